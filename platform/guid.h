// GUIDs from and to text.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/export.h"
#include "platform/win32.h"

namespace varnel {
namespace detail {

template <class Char>
constexpr int HexDigit(Char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// 32 digits in groups of 8-4-4-4-12, without braces.
template <class Char>
constexpr std::optional<GUID> TryParseBareGuid(std::basic_string_view<Char> text) {
  if (text.size() != 36) return std::nullopt;
  unsigned char bytes[16] = {};
  int digits = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (i == 8 || i == 13 || i == 18 || i == 23) {
      if (text[i] != '-') return std::nullopt;
      continue;
    }
    const int value = HexDigit(text[i]);
    if (value < 0) return std::nullopt;
    bytes[digits / 2] = static_cast<unsigned char>(bytes[digits / 2] << 4 | value);
    ++digits;
  }
  GUID guid = {};
  guid.Data1 = static_cast<DWORD>(bytes[0]) << 24 | static_cast<DWORD>(bytes[1]) << 16 |
               static_cast<DWORD>(bytes[2]) << 8 | bytes[3];
  guid.Data2 = static_cast<WORD>(bytes[4] << 8 | bytes[5]);
  guid.Data3 = static_cast<WORD>(bytes[6] << 8 | bytes[7]);
  for (int i = 0; i < 8; ++i) guid.Data4[i] = bytes[8 + i];
  return guid;
}

}  // namespace detail

/// The GUID of text in braces ("{374579ad-285c-49b9-ab8a-950e0e252de2}", either case); nothing for any other text.
template <class Char>
constexpr std::optional<GUID> TryParseGuid(std::basic_string_view<Char> text) {
  if (text.size() != 38 || text.front() != '{' || text.back() != '}') return std::nullopt;
  return detail::TryParseBareGuid(text.substr(1, 36));
}

/// The same without braces, as the service's XML documents write identifiers.
template <class Char>
constexpr std::optional<GUID> TryParseBareGuid(std::basic_string_view<Char> text) {
  return detail::TryParseBareGuid(text);
}

/// For constants: malformed text does not compile.
consteval GUID ParseGuid(std::string_view text) {
  const std::optional<GUID> guid = TryParseGuid(text);
  if (!guid) throw std::invalid_argument("not a GUID in braces");
  return *guid;
}

/// Lower-case hexadecimal in braces.
VARNEL_API std::wstring FormatGuid(const GUID& guid);
/// Lower-case hexadecimal without braces.
VARNEL_API std::wstring FormatBareGuid(const GUID& guid);

}  // namespace varnel
