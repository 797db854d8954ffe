// One conversion of a printf format, and whether a format and its arguments fit each other. Compiled code and the
// compiler read formats through the same function.
#pragma once

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string_view>
#include <type_traits>

namespace varnel {

/// "%-08lx" and the like.
struct Conversion {
  bool leftAligned = false;
  bool zeroPadded = false;
  bool alternate = false;
  std::size_t width = 0;
  std::optional<std::size_t> precision;
  char type = 0;           ///< d i u x X c s S, or 0 when the text is none of these
  bool wideText = false;   ///< for s and S: the width that this format gives the argument
  std::size_t length = 0;  ///< characters of the format, the '%' included

  constexpr bool IsText() const { return type == 's' || type == 'S'; }
};

namespace detail {

template <class Char>
constexpr std::size_t ReadNumber(std::basic_string_view<Char> format, std::size_t& at) {
  constexpr std::size_t kLargestField = 65536;
  std::size_t value = 0;
  for (; at < format.size() && format[at] >= '0' && format[at] <= '9'; ++at) {
    value = std::min<std::size_t>(value * 10 + static_cast<std::size_t>(format[at] - '0'), kLargestField);
  }
  return value;
}

template <class Char>
constexpr void ReadFlags(std::basic_string_view<Char> format, std::size_t& at, Conversion& result) {
  for (; at < format.size(); ++at) {
    if (format[at] == '-') {
      result.leftAligned = true;
    } else if (format[at] == '0') {
      result.zeroPadded = true;
    } else if (format[at] == '#') {
      result.alternate = true;
    } else {
      return;
    }
  }
}

}  // namespace detail

/// The conversion at the start of `format`, whose first character is its '%'.
template <class Char>
constexpr Conversion ReadConversion(std::basic_string_view<Char> format) {
  Conversion result;
  std::size_t at = 1;
  detail::ReadFlags(format, at, result);
  result.width = detail::ReadNumber(format, at);
  if (at < format.size() && format[at] == '.') {
    ++at;
    result.precision = detail::ReadNumber(format, at);
  }
  bool wide = false;
  bool narrow = false;
  for (; at < format.size() && (format[at] == 'w' || format[at] == 'l' || format[at] == 'h'); ++at) {
    (format[at] == 'h' ? narrow : wide) = true;
  }
  result.length = std::min(at + 1, format.size());
  if (at >= format.size()) return result;
  const Char type = format[at];
  for (const char known : {'d', 'i', 'u', 'x', 'X', 'c', 's', 'S'}) {
    if (type == static_cast<Char>(known)) result.type = known;
  }
  const bool wideFormat = sizeof(Char) == sizeof(wchar_t);
  result.wideText = narrow ? false : wide ? true : (type == static_cast<Char>('s')) == wideFormat;
  return result;
}

/// What a conversion takes.
enum class ArgumentKind { number, narrowText, wideText, none };

/// Numbers are 32 bits wide; `long` carries HRESULTs and is allowed on every platform.
template <class T>
inline constexpr ArgumentKind kArgumentKind = std::is_convertible_v<T, std::string_view>    ? ArgumentKind::narrowText
                                              : std::is_convertible_v<T, std::wstring_view> ? ArgumentKind::wideText
                                              : (std::is_integral_v<T> || std::is_enum_v<T>)&&(sizeof(T) <= 4 ||
                                                                                               std::is_same_v<T, long>)
                                                  ? ArgumentKind::number
                                                  : ArgumentKind::none;

/// Whether the conversions of `format` are as many as the arguments and take what these are.
template <class... Arguments, class Char>
constexpr bool FormatTakes(std::basic_string_view<Char> format) {
  constexpr ArgumentKind kKinds[] = {kArgumentKind<std::decay_t<Arguments>>..., ArgumentKind::none};
  std::size_t next = 0;
  while (!format.empty()) {
    format.remove_prefix(std::min(format.find(static_cast<Char>('%')), format.size()));
    if (format.empty()) break;
    if (format.size() > 1 && format[1] == static_cast<Char>('%')) {
      format.remove_prefix(2);
      continue;
    }
    const Conversion conversion = ReadConversion(format);
    const ArgumentKind wanted = !conversion.IsText()  ? ArgumentKind::number
                                : conversion.wideText ? ArgumentKind::wideText
                                                      : ArgumentKind::narrowText;
    if (conversion.type == 0 || next >= sizeof...(Arguments) || kKinds[next] != wanted) return false;
    ++next;
    format.remove_prefix(conversion.length);
  }
  return next == sizeof...(Arguments);
}

}  // namespace varnel
