#include "text/format.h"

#include <algorithm>
#include <optional>

#include "text/conversion.h"
#include "text/unicode.h"

namespace varnel {
namespace {

// ASCII digits only, so that the same text serves both widths.
std::string FormatNumber(const Conversion& conversion, std::uint32_t value) {
  std::string digits;
  const bool hex = conversion.type == 'x' || conversion.type == 'X';
  const bool negative = !hex && conversion.type != 'u' && static_cast<std::int32_t>(value) < 0;
  std::uint32_t rest = negative ? 0u - value : value;
  const char* alphabet = conversion.type == 'X' ? "0123456789ABCDEF" : "0123456789abcdef";
  do {
    digits += alphabet[rest % (hex ? 16 : 10)];
    rest /= hex ? 16 : 10;
  } while (rest != 0);
  while (conversion.precision && digits.size() < *conversion.precision) digits += '0';
  std::string prefix = negative ? "-" : "";
  if (hex && conversion.alternate && value != 0) prefix += conversion.type == 'X' ? "0X" : "0x";
  if (conversion.zeroPadded && !conversion.leftAligned && !conversion.precision) {
    while (prefix.size() + digits.size() < conversion.width) digits += '0';
  }
  std::reverse(digits.begin(), digits.end());
  return prefix + digits;
}

// Text of either width.
template <class Char>
void Append(std::basic_string<Char>& result, std::string_view text) {
  if constexpr (sizeof(Char) == sizeof(wchar_t)) {
    result += Utf8ToWideLossy(text);
  } else {
    result += text;
  }
}

template <class Char>
void Append(std::basic_string<Char>& result, std::wstring_view text) {
  if constexpr (sizeof(Char) == sizeof(wchar_t)) {
    result += text;
  } else {
    AppendUtf8Lossy(result, text);
  }
}

template <class Char>
void Append(std::basic_string<Char>& result, const Conversion& conversion, std::uint32_t number) {
  if (conversion.type == 'c') {
    result += static_cast<Char>(number);
  } else if (!conversion.IsText()) {
    const std::string digits = FormatNumber(conversion, number);
    result.append(digits.begin(), digits.end());
  }
}

template <class Char>
void AppendField(std::basic_string<Char>& result, const Conversion& conversion, const FormatArgument& argument) {
  const std::size_t begin = result.size();
  if (const auto* number = std::get_if<std::uint32_t>(&argument.value())) {
    Append(result, conversion, *number);
  } else {
    if (const auto* wide = std::get_if<std::wstring_view>(&argument.value())) Append(result, *wide);
    if (const auto* narrow = std::get_if<std::string_view>(&argument.value())) Append(result, *narrow);
    if (conversion.precision && result.size() - begin > *conversion.precision) {
      result.resize(begin + *conversion.precision);
    }
  }
  const std::size_t length = result.size() - begin;
  if (length < conversion.width) {
    result.insert(conversion.leftAligned ? result.size() : begin, conversion.width - length, static_cast<Char>(' '));
  }
}

// `next(conversion)` yields the argument of one conversion, or nothing when there is none left.
template <class Char, class Next>
std::basic_string<Char> Format(std::basic_string_view<Char> format, Next next) {
  std::basic_string<Char> result;
  constexpr std::size_t kUsualFields = 192;  // characters
  result.reserve(format.size() + kUsualFields);
  while (!format.empty()) {
    const std::size_t percent = format.find(static_cast<Char>('%'));
    result.append(format.substr(0, percent));
    if (percent == format.npos) break;
    format.remove_prefix(percent);
    if (format.size() > 1 && format[1] == static_cast<Char>('%')) {
      result += static_cast<Char>('%');
      format.remove_prefix(2);
      continue;
    }
    const Conversion conversion = ReadConversion(format);
    if (conversion.type == 0) {
      result.append(format.substr(0, conversion.length));
    } else if (const std::optional<FormatArgument> argument = next(conversion)) {
      AppendField(result, conversion, *argument);
    }
    format.remove_prefix(conversion.length);
  }
  return result;
}

auto TakeFrom(std::span<const FormatArgument> arguments) {
  return [arguments](const Conversion&) mutable -> std::optional<FormatArgument> {
    if (arguments.empty()) return std::nullopt;
    const FormatArgument argument = arguments.front();
    arguments = arguments.subspan(1);
    return argument;
  };
}

}  // namespace

std::wstring FormatWide(std::wstring_view format, std::span<const FormatArgument> arguments) {
  return Format(format, TakeFrom(arguments));
}

std::string FormatNarrow(std::string_view format, std::span<const FormatArgument> arguments) {
  return Format(format, TakeFrom(arguments));
}

std::wstring FormatWideV(std::wstring_view format, std::va_list arguments) {
  std::va_list rest;
  va_copy(rest, arguments);
  std::wstring result = Format(format, [&rest](const Conversion& conversion) -> std::optional<FormatArgument> {
    if (!conversion.IsText()) return FormatArgument(va_arg(rest, unsigned int));
    if (conversion.wideText) return FormatArgument(va_arg(rest, const wchar_t*));
    return FormatArgument(va_arg(rest, const char*));
  });
  va_end(rest);
  return result;
}

}  // namespace varnel
