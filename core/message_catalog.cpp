#include "core/message_catalog.h"

#include <algorithm>
#include <new>

#include "core/checks.h"
#include "core/configuration.h"
#include "core/logging.h"
#include "platform/host.h"
#include "platform/owners.h"

namespace varnel {
namespace {

constexpr std::size_t kMessageCharacters = 65536;
constexpr int kEntryCharacters = 1024;

// 0, or why there is no such message.
DWORD LoadEntry(int id, wchar_t* entry) {
  Host* host = CurrentHostOrNull();
  Module module;
  if (host == nullptr || !host->messages().GetModuleHandleExW(0, kCatalogModule, module.Put())) {
    const DWORD error = host == nullptr ? ERROR_MOD_NOT_FOUND : LastErrorOrGeneric();
    kLog.Error(L"GetModuleHandleEx() Failed, Resource=%s, Error=%d", kCatalogModule, error);
    return error;
  }
  if (host->messages().LoadStringW(module.Get(), static_cast<UINT>(id), entry, kEntryCharacters) == 0) {
    const DWORD error = LastErrorOrGeneric();
    kLog.Error(L"LoadString() Failed, StringID=%d, Error = %d", id, error);
    return error;
  }
  return ERROR_SUCCESS;
}

}  // namespace

DWORD FormatCatalogMessage(std::unique_ptr<wchar_t[]>& buffer, int id, std::wstring& text,
                           std::initializer_list<FormatArgument> arguments) {
  text.clear();
  if (!buffer) buffer.reset(new (std::nothrow) wchar_t[kMessageCharacters]);
  if (!buffer) {
    kLog.Error(L"Memory allocation failed, Function=GetErrorMessageFromCatalog");
    return ERROR_NOT_ENOUGH_MEMORY;
  }
  std::fill_n(buffer.get(), kMessageCharacters, L'\0');
  wchar_t entry[kEntryCharacters] = {};
  if (const DWORD error = LoadEntry(id, entry)) return error;
  const std::wstring formatted = FormatWide(entry, arguments);
  const std::size_t length = std::min(formatted.size(), kMessageCharacters - 1);
  std::copy_n(formatted.data(), length, buffer.get());
  text.assign(buffer.get(), length);
  return ERROR_SUCCESS;
}

}  // namespace varnel
