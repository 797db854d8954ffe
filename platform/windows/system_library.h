// Functions of libraries that not every Windows has, looked up at run time.
#pragma once

#include "platform/win32.h"

namespace varnel::windows {

/// A library of the system directory, loaded for the rest of the process: unloading one while the process ends, when
/// static objects are destroyed, is not safe. Nothing is searched for outside `places` (LOAD_LIBRARY_SEARCH_ flags).
class SystemLibrary {
 public:
  explicit SystemLibrary(LPCWSTR name, DWORD places = LOAD_LIBRARY_SEARCH_SYSTEM32) noexcept
      : module_(::LoadLibraryExW(name, nullptr, places)),
        error_(module_ == nullptr ? ::GetLastError() : ERROR_SUCCESS) {}

  /// Null when the library or the function is absent.
  template <class Function>
  Function* Find(const char* name) const noexcept {
    if (module_ == nullptr) return nullptr;
    const FARPROC address = ::GetProcAddress(module_, name);
    return reinterpret_cast<Function*>(reinterpret_cast<void (*)()>(address));
  }

  /// Why a function is absent.
  DWORD Error() const noexcept { return module_ == nullptr ? error_ : ERROR_PROC_NOT_FOUND; }

 private:
  HMODULE module_;
  DWORD error_;
};

}  // namespace varnel::windows
