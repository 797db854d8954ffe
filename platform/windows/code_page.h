// Text in a code page of the system.
#pragma once

#include <string>
#include <string_view>

#include "platform/win32.h"

namespace varnel::windows {

/// Character for character, nothing replaced by what looks alike. A text that the code page cannot express, or that the
/// system cannot convert to it, is given whole in UTF-8.
std::string WideToCodePage(UINT codePage, std::wstring_view text);
/// What is no character of the code page becomes a replacement character. A text that the system cannot convert from
/// the code page is read as UTF-8.
std::wstring CodePageToWide(UINT codePage, std::string_view text);

}  // namespace varnel::windows
