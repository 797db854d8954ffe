#include "text/ascii_case.h"

namespace varnel::ascii {

bool LessIgnoringCase::operator()(std::wstring_view a, std::wstring_view b) const {
  return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                      [](wchar_t x, wchar_t y) { return ToLower(x) < ToLower(y); });
}

bool MatchesPattern(std::wstring_view pattern, std::wstring_view text) {
  std::size_t p = 0;
  std::size_t t = 0;
  std::size_t star = std::wstring_view::npos;  // the last '*' seen, and the text that it stood for so far
  std::size_t resume = 0;
  while (t < text.size()) {
    if (p < pattern.size() && pattern[p] == L'*') {
      star = p++;
      resume = t;
    } else if (p < pattern.size() && (pattern[p] == L'?' || ToLower(pattern[p]) == ToLower(text[t]))) {
      ++p;
      ++t;
    } else if (star != std::wstring_view::npos) {
      p = star + 1;
      t = ++resume;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of(L'*', p) == std::wstring_view::npos;
}

}  // namespace varnel::ascii
