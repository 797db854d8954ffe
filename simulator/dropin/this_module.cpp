#include "simulator/dropin/this_module.h"

#include <cstdio>
#include <exception>
#include <string>

#include "platform/win32.h"
#include "text/unicode.h"

namespace varnel::simulator::this_module {
namespace {

// Its address tells Windows which module is meant.
constexpr char kAnchor = 0;

HMODULE Handle(DWORD flags) noexcept {
  HMODULE module = nullptr;
  ::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | flags, reinterpret_cast<LPCWSTR>(&kAnchor), &module);
  return module;
}

std::filesystem::path File() {
  const HMODULE module = Handle(GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT);
  std::wstring name(MAX_PATH, L'\0');
  DWORD length = 0;
  while ((length = ::GetModuleFileNameW(module, name.data(), static_cast<DWORD>(name.size()))) == name.size()) {
    name.resize(2 * name.size());
  }
  name.resize(length);
  return name;
}

}  // namespace

std::filesystem::path Folder() {
  return File().parent_path();
}

void Pin() noexcept {
  Handle(GET_MODULE_HANDLE_EX_FLAG_PIN);
}

void Report(std::string_view text) noexcept {
  try {
    const std::string line = WideToUtf8Lossy(File().filename().wstring()) + ": " + std::string(text) + "\n";
    std::fputs(line.c_str(), stderr);
    std::fflush(stderr);
    ::OutputDebugStringW(Utf8ToWideLossy(line).c_str());
  } catch (const std::exception&) {
    std::fputs("no memory to report an error\n", stderr);
  }
}

}  // namespace varnel::simulator::this_module
