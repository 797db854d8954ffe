// The calling thread's ANSI code page: CP_THREAD_ACP on Windows, UTF-8 elsewhere.
#pragma once

#include <string>
#include <string_view>

#include "platform/export.h"

namespace varnel {

/// Character for character; a text that the code page cannot express is given whole in UTF-8, so that nothing of it is
/// lost.
VARNEL_API std::string WideToAnsi(std::wstring_view text);
/// What is no character of the code page becomes a replacement character.
VARNEL_API std::wstring AnsiToWide(std::string_view text);

}  // namespace varnel
