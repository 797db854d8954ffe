// Text in which names are looked for whatever case they stand in.
#pragma once

#include <string>
#include <string_view>

namespace varnelctl {

/// The text in small letters, of the same length: Latin, Greek and Cyrillic, as Windows compares names.
std::string Folded(std::string_view utf8);

/// Whether a byte belongs to a word: a letter, a digit, or part of a character beyond ASCII.
constexpr bool IsWordByte(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         static_cast<unsigned char>(c) >= 0x80;
}

/// Where the word that begins at `at` ends.
constexpr std::size_t WordEnd(std::string_view text, std::size_t at) {
  while (at < text.size() && IsWordByte(text[at])) ++at;
  return at;
}

/// Calls `visit` with each word.
template <class Visit>
void ForEachWord(std::string_view text, Visit visit) {
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (!IsWordByte(text[at])) continue;
    const std::size_t end = WordEnd(text, at);
    visit(text.substr(at, end - at));
    at = end;
  }
}

}  // namespace varnelctl
