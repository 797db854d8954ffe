// A program that has no service: asks the initiator in the library that it is given for its sessions, with nothing to
// put them in, which the initiator refuses.
#include <windows.h>

int wmain(int count, wchar_t** arguments) {
  const HMODULE library = count == 2 ? ::LoadLibraryW(arguments[1]) : nullptr;
  if (library == nullptr) return 1;
  const FARPROC list = ::GetProcAddress(library, "GetIScsiSessionListW");
  if (list == nullptr) return 1;
  using ListFunction = DWORD(WINAPI*)(ULONG*, ULONG*, void*);
  reinterpret_cast<ListFunction>(reinterpret_cast<void*>(list))(nullptr, nullptr, nullptr);
  return 0;
}
