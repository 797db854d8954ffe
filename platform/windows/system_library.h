// The libraries that are loaded at run time, and where they lie.
#pragma once

#include "platform/win32.h"

namespace varnel::windows {

/// Loads a library of the system directory, by its path there: by its name alone the system would hand out any library
/// of that name that the process has loaded already, wherever it lies. What it depends on comes from the system
/// directory too. Null, with the last error set, when it is not there. Every library is loaded here.
HMODULE LoadSystemLibrary(LPCWSTR name) noexcept;

/// Functions of a library that not every Windows has. It stays loaded for the rest of the process: unloading one while
/// the process ends, when static objects are destroyed, is not safe.
class SystemLibrary {
 public:
  explicit SystemLibrary(LPCWSTR name) noexcept
      : module_(LoadSystemLibrary(name)), error_(module_ == nullptr ? ::GetLastError() : ERROR_SUCCESS) {}

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
