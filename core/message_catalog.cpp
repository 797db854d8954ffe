// The message catalog: the module's string table, reached by the module's name.
#include <algorithm>
#include <cwchar>
#include <new>

#include "core/logging.h"
#include "core/varnel.h"
#include "platform/owners.h"

using varnel::kLog;

namespace {
constexpr std::size_t kMessageCharacters = 65536;
constexpr int kEntryCharacters = 1024;
}  // namespace

bool CVarnel::PrepareMessageBuffer() {
  if (!m_messageBuffer) m_messageBuffer.reset(new (std::nothrow) wchar_t[kMessageCharacters]());
  if (!m_messageBuffer) return false;
  // Only what an earlier message left is cleared: thousands of components may fail in one request.
  std::fill_n(m_messageBuffer.get(), std::wcslen(m_messageBuffer.get()), L'\0');
  return true;
}

DWORD CVarnel::FormatCatalogMessage(int id, std::wstring& text,
                                    std::initializer_list<varnel::FormatArgument> arguments) {
  text.clear();
  if (!PrepareMessageBuffer()) {
    kLog.Error(L"Memory allocation failed, Function=GetErrorMessageFromCatalog");
    return ERROR_NOT_ENOUGH_MEMORY;
  }
  varnel::Host* host = varnel::CurrentHostOrNull();
  varnel::Module module;
  if (host == nullptr || !host->messages().GetModuleHandleExW(0, varnel::kCatalogModule, module.Put())) {
    const DWORD error = host == nullptr ? ERROR_MOD_NOT_FOUND : varnel::LastErrorOrGeneric();
    kLog.Error(L"GetModuleHandleEx() Failed, Resource=%s, Error=%d", varnel::kCatalogModule, error);
    return error;
  }
  wchar_t entry[kEntryCharacters] = {};
  if (host->messages().LoadStringW(module.Get(), static_cast<UINT>(id), entry, kEntryCharacters) == 0) {
    const DWORD error = varnel::LastErrorOrGeneric();
    kLog.Error(L"LoadString() Failed, StringID=%d, Error = %d", id, error);
    return error;
  }
  const std::wstring formatted = varnel::FormatWide(entry, arguments);
  const std::size_t length = std::min(formatted.size(), kMessageCharacters - 1);
  std::copy_n(formatted.data(), length, m_messageBuffer.get());
  text.assign(m_messageBuffer.get(), length);
  return ERROR_SUCCESS;
}
