// Version numbers as text: "10.0.17763", "6.3.9600.17120".
#pragma once

#include <array>
#include <charconv>
#include <optional>
#include <string_view>

#include "platform/win32.h"

namespace varnel::simulator {

/// `parts` numbers of at most `largest` with dots between them and nothing else.
template <std::size_t parts>
std::optional<std::array<DWORD, parts>> ParseVersion(std::string_view text, DWORD largest) {
  std::array<DWORD, parts> version{};
  const char* at = text.data();
  const char* end = at + text.size();
  for (std::size_t i = 0; i < parts; ++i) {
    if (i > 0 && (at == end || *at++ != '.')) return std::nullopt;
    const auto [next, error] = std::from_chars(at, end, version[i]);
    if (error != std::errc() || version[i] > largest) return std::nullopt;
    at = next;
  }
  if (at != end) return std::nullopt;
  return version;
}

using FileVersion = std::array<DWORD, 4>;

/// The four 16-bit parts of a file version.
inline std::optional<FileVersion> ParseFileVersion(std::string_view text) {
  return ParseVersion<4>(text, 0xFFFF);
}

}  // namespace varnel::simulator
