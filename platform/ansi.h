// The calling thread's ANSI code page: CP_THREAD_ACP on Windows, UTF-8 elsewhere.
#pragma once

#include <string>
#include <string_view>

#include "platform/export.h"

namespace varnel {

/// Never fails on a character.
VARNEL_API std::string WideToAnsi(std::wstring_view text);
VARNEL_API std::wstring AnsiToWide(std::string_view text);

}  // namespace varnel
