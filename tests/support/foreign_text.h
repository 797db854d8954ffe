// Text that is not ASCII, in both widths: a letter and a sign of the basic plane, and a character outside it.
#pragma once

#include <string>

namespace varnel::test {

inline const std::wstring kForeign = L"\u0416\u65E5\U0001F680";
inline const std::string kForeignUtf8 = "\xD0\x96\xE6\x97\xA5\xF0\x9F\x9A\x80";

inline const std::wstring kRocket = L"\U0001F680";
inline const std::string kRocketUtf8 = "\xF0\x9F\x9A\x80";

/// What stands for something that cannot be converted.
inline const std::wstring kReplaced = L"\uFFFD";
inline const std::string kReplacedUtf8 = "\xEF\xBF\xBD";

}  // namespace varnel::test
