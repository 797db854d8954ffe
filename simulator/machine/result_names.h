// Results as text, in the call log and in host files.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/win32.h"

namespace varnel::simulator {

/// The name of a result code: "VSS_E_BAD_STATE", "E_INVALIDARG", else "0x8004...".
/// This table is larger than the library's own and lives here because the simulator does not depend on the library.
std::string ResultName(HRESULT result);
/// Every name that a code has, by code.
std::vector<std::string_view> ResultNames();
/// The code of a name, "0x..." text or decimal text; nothing for anything else.
std::optional<DWORD> ParseResult(std::string_view text);
/// A Win32 code for the call log: decimal, an HRESULT or ISDSC_ code "0x...".
std::string ErrorName(DWORD code);

}  // namespace varnel::simulator
