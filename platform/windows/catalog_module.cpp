#include "platform/windows/catalog_module.h"

namespace varnel::windows {

BOOL FindCatalogModule(DWORD flags, LPCWSTR name, HMODULE* module) noexcept {
  return ::GetModuleHandleExW(flags, name, module);
}

}  // namespace varnel::windows
