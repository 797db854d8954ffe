// For a module that has the whole library in itself, under another name than the library's.
#include "platform/windows/catalog_module.h"

namespace varnel::windows {

BOOL FindCatalogModule(DWORD flags, LPCWSTR /*name*/, HMODULE* module) noexcept {
  static constexpr char kInThisModule = 0;
  return ::GetModuleHandleExW(flags | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, reinterpret_cast<LPCWSTR>(&kInThisModule),
                              module);
}

}  // namespace varnel::windows
