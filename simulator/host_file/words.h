// Values that documents and host files write as words.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace varnel::simulator {

template <class Value>
struct Word {
  std::string_view text;
  Value value;
};

template <class Value, std::size_t n>
std::optional<Value> ValueOf(const Word<Value> (&words)[n], std::string_view text) {
  for (const Word<Value>& word : words) {
    if (word.text == text) return word.value;
  }
  return std::nullopt;
}

/// The first word where the value has none.
template <class Value, std::size_t n>
std::string_view WordFor(const Word<Value> (&words)[n], Value value) {
  for (const Word<Value>& word : words) {
    if (word.value == value) return word.text;
  }
  return words[0].text;
}

}  // namespace varnel::simulator
