// Which module holds the message catalog.
#pragma once

#include "platform/win32.h"

namespace varnel::windows {

/// GetModuleHandleExW, for the module that the library calls by this name.
BOOL FindCatalogModule(DWORD flags, LPCWSTR name, HMODULE* module) noexcept;

}  // namespace varnel::windows
