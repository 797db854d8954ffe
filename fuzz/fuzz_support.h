// What the fuzz targets share: a check that keeps the input, an input read piece by piece, and its readings as text.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "text/unicode.h"

namespace varnel::fuzz {

/// Ends the process where a property does not hold, so that the fuzzer writes the input down.
inline void Require(bool holds, const char* property) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", property);
  std::abort();
}

/// Bytes from anywhere. What is taken after the end is 0 or empty.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : rest_(reinterpret_cast<const char*>(data), size) {}

  std::string_view Take(std::size_t bytes) {
    const std::string_view taken = rest_.substr(0, bytes);
    rest_.remove_prefix(taken.size());
    return taken;
  }
  /// Up to the next line break, which is left out.
  std::string_view Line() {
    const std::string_view line = Take(std::min(rest_.find('\n'), rest_.size()));
    Take(1);
    return line;
  }
  std::string_view Rest() { return Take(rest_.size()); }
  std::uint8_t Byte() {
    const std::string_view taken = Take(1);
    return taken.empty() ? std::uint8_t{0} : static_cast<std::uint8_t>(taken.front());
  }
  /// Four bytes, the lowest first.
  std::uint32_t Number() {
    std::uint32_t number = 0;
    for (int shift = 0; shift < 32; shift += 8) number |= static_cast<std::uint32_t>(Byte()) << shift;
    return number;
  }

 private:
  std::string_view rest_;
};

/// Wide text with every kind of character, a byte for each: ASCII as it is, then high and low surrogates, letters of
/// two and of three bytes in UTF-8, a character outside the basic plane, and (0xFF) one that is none.
inline std::wstring WideFrom(std::string_view bytes) {
  constexpr auto kNoCharacter = static_cast<wchar_t>(sizeof(wchar_t) == 2 ? 0xDFFF : 0x110000);
  std::wstring text;
  text.reserve(bytes.size());
  for (const char c : bytes) {
    const unsigned byte = static_cast<unsigned char>(c);
    if (byte < 0x80) {
      text += static_cast<wchar_t>(byte);
    } else if (byte < 0xC0) {
      text += static_cast<wchar_t>(0xD800 + (byte - 0x80) * 0x20);
    } else if (byte < 0xF0) {
      text += static_cast<wchar_t>(byte < 0xE0 ? byte : 0x6500 + byte);
    } else if (byte < 0xFF) {
      text += L"\U0001F680";
    } else {
      text += kNoCharacter;
    }
  }
  return text;
}

/// The text as wide text, or nothing when it is not UTF-8.
inline std::optional<std::wstring> Decoded(std::string_view text) {
  try {
    return Utf8ToWide(text);
  } catch (const std::range_error&) {
    return std::nullopt;
  }
}

/// Whether it is UTF-8. Without an exception, which would take longer than the text.
inline bool IsUtf8(std::string_view text) {
  const bool ascii = std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
  return ascii || WideToUtf8Lossy(Utf8ToWideLossy(text)) == text;
}

}  // namespace varnel::fuzz
