// GUIDs from and to text. The functions take any structure with the fields of a GUID: text knows no platform.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace varnel {
namespace detail {

template <class Char>
constexpr int HexDigit(Char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

inline void AppendHex(std::wstring& text, std::uint32_t value, int digits) {
  for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4) text += L"0123456789abcdef"[value >> shift & 0xF];
}

}  // namespace detail

/// The GUID of 32 digits in groups of 8-4-4-4-12 without braces, as the service's XML documents write identifiers;
/// nothing for any other text.
template <class Guid, class Char>
constexpr std::optional<Guid> TryParseBareGuid(std::basic_string_view<Char> text) {
  if (text.size() != 36) return std::nullopt;
  unsigned char bytes[16] = {};
  int digits = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (i == 8 || i == 13 || i == 18 || i == 23) {
      if (text[i] != '-') return std::nullopt;
      continue;
    }
    const int value = detail::HexDigit(text[i]);
    if (value < 0) return std::nullopt;
    bytes[digits / 2] = static_cast<unsigned char>(bytes[digits / 2] << 4 | value);
    ++digits;
  }
  Guid guid = {};
  guid.Data1 = static_cast<std::uint32_t>(bytes[0]) << 24 | static_cast<std::uint32_t>(bytes[1]) << 16 |
               static_cast<std::uint32_t>(bytes[2]) << 8 | bytes[3];
  guid.Data2 = static_cast<std::uint16_t>(bytes[4] << 8 | bytes[5]);
  guid.Data3 = static_cast<std::uint16_t>(bytes[6] << 8 | bytes[7]);
  for (int i = 0; i < 8; ++i) guid.Data4[i] = bytes[8 + i];
  return guid;
}

/// The same in braces ("{374579ad-285c-49b9-ab8a-950e0e252de2}", either case).
template <class Guid, class Char>
constexpr std::optional<Guid> TryParseGuid(std::basic_string_view<Char> text) {
  if (text.size() != 38 || text.front() != '{' || text.back() != '}') return std::nullopt;
  return TryParseBareGuid<Guid>(text.substr(1, 36));
}

/// The null GUID for text that is no GUID in braces: the service then answers for it.
template <class Guid>
Guid GuidOrNull(std::wstring_view text) {
  return TryParseGuid<Guid>(text).value_or(Guid{});
}

/// For constants, in braces: malformed text does not compile.
template <class Guid>
consteval Guid ParseGuid(std::string_view text) {
  const std::optional<Guid> guid = TryParseGuid<Guid>(text);
  if (!guid) throw std::invalid_argument("not a GUID in braces");
  return *guid;
}

/// Lower-case hexadecimal without braces.
template <class Guid>
std::wstring FormatBareGuid(const Guid& guid) {
  std::wstring text;
  text.reserve(38);
  detail::AppendHex(text, guid.Data1, 8);
  text += L'-';
  detail::AppendHex(text, guid.Data2, 4);
  text += L'-';
  detail::AppendHex(text, guid.Data3, 4);
  text += L'-';
  for (int i = 0; i < 8; ++i) {
    if (i == 2) text += L'-';
    detail::AppendHex(text, guid.Data4[i], 2);
  }
  return text;
}

/// Lower-case hexadecimal in braces: the form in which identifiers are kept, compared and shown.
template <class Guid>
std::wstring FormatGuid(const Guid& guid) {
  return L"{" + FormatBareGuid(guid) + L"}";
}

}  // namespace varnel
