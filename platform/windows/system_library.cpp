#include "platform/windows/system_library.h"

#include <array>
#include <string_view>

namespace varnel::windows {

HMODULE LoadSystemLibrary(LPCWSTR name) noexcept {
  const std::wstring_view file = name;
  std::array<wchar_t, MAX_PATH> path{};
  const UINT length = ::GetSystemDirectoryW(path.data(), MAX_PATH);
  if (length == 0) return nullptr;
  if (file.find_first_of(L"\\/:") != file.npos || length + 1 + file.size() >= path.size()) {
    ::SetLastError(ERROR_INVALID_NAME);
    return nullptr;
  }
  path[length] = L'\\';
  file.copy(&path[length + 1], file.size());
  return ::LoadLibraryExW(path.data(), nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
}

}  // namespace varnel::windows
