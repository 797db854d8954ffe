// Another answer to where libraries lie: beside the program first. For runs on the drop-in libraries of the simulator,
// in tests and in builds with VARNEL_LIBRARIES_BESIDE_PROGRAM; whoever may write into the program's folder decides
// there what the process runs.
#include "platform/windows/system_library.h"

namespace varnel::windows {

HMODULE LoadSystemLibrary(LPCWSTR name) noexcept {
  return ::LoadLibraryExW(name, nullptr, LOAD_LIBRARY_SEARCH_APPLICATION_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32);
}

}  // namespace varnel::windows
