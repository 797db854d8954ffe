// Text as Windows compares it in names and paths: without regard to ASCII case.
#pragma once

#include <string>
#include <string_view>

#include "text/ascii_case.h"

namespace varnel::simulator {

inline wchar_t FoldAscii(wchar_t c) {
  return ascii::ToLower(c);
}
inline std::wstring FoldAscii(std::wstring_view text) {
  return ascii::ToLower(text);
}

inline bool EqualsIgnoringCase(std::wstring_view a, std::wstring_view b) {
  return ascii::EqualIgnoringCase(a, b);
}
bool StartsWithIgnoringCase(std::wstring_view text, std::wstring_view prefix);

/// Orders texts without regard to ASCII case.
struct LessIgnoringCase {
  using is_transparent = void;
  bool operator()(std::wstring_view a, std::wstring_view b) const;
};

/// Whether `text` is of the form `pattern`: '*' stands for any text, '?' for any one character; case does not matter.
bool MatchesPattern(std::wstring_view pattern, std::wstring_view text);

/// Text for the call log and for messages: UTF-8, "null" for a null pointer.
std::string Show(const wchar_t* text);
std::string Show(std::wstring_view text);

}  // namespace varnel::simulator
