// Comparisons that fold A-Z only, the same on every platform and in every locale: what Windows names compare by here.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace varnel::ascii {

constexpr wchar_t ToLower(wchar_t c) {
  return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c - L'A' + L'a') : c;
}

inline std::wstring ToLower(std::wstring_view text) {
  std::wstring lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), [](wchar_t c) { return ToLower(c); });
  return lower;
}

constexpr bool EqualIgnoringCase(std::wstring_view a, std::wstring_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](wchar_t x, wchar_t y) { return ToLower(x) == ToLower(y); });
}

constexpr bool StartsWithIgnoringCase(std::wstring_view text, std::wstring_view prefix) {
  return EqualIgnoringCase(text.substr(0, prefix.size()), prefix);
}

/// Orders texts, for sorted containers.
struct LessIgnoringCase {
  using is_transparent = void;
  bool operator()(std::wstring_view a, std::wstring_view b) const;
};

/// Whether `text` is of the form `pattern`: '*' stands for any text, '?' for any one character; case does not matter.
bool MatchesPattern(std::wstring_view pattern, std::wstring_view text);

}  // namespace varnel::ascii
