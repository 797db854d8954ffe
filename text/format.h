// printf as Microsoft's C runtime does it, the same on every platform: in wide formats %s takes wide text and %S narrow
// text, in narrow formats the reverse, %ws is wide in both; %d %ld %u %lu %x %X are 32 bits wide. A null text is
// the empty text. Nothing here throws for a format or a character: what cannot be converted becomes U+FFFD, what is no
// conversion is copied as it stands, and a missing argument leaves nothing.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>

namespace varnel {

/// One argument: a 32-bit number, or narrow (UTF-8) or wide text. Text is borrowed, not copied.
class FormatArgument {
 public:
  template <class T>
  requires(std::is_integral_v<T> || std::is_enum_v<T>) FormatArgument(T value)
  noexcept : value_(static_cast<std::uint32_t>(value)) {}
  FormatArgument(const char* text) noexcept : value_(text == nullptr ? std::string_view() : std::string_view(text)) {}
  FormatArgument(const wchar_t* text) noexcept
      : value_(text == nullptr ? std::wstring_view() : std::wstring_view(text)) {}
  FormatArgument(std::string_view text) noexcept : value_(text) {}
  FormatArgument(std::wstring_view text) noexcept : value_(text) {}
  FormatArgument(const std::string& text) noexcept : value_(std::string_view(text)) {}
  FormatArgument(const std::wstring& text) noexcept : value_(std::wstring_view(text)) {}

  const std::variant<std::uint32_t, std::string_view, std::wstring_view>& value() const noexcept { return value_; }

 private:
  std::variant<std::uint32_t, std::string_view, std::wstring_view> value_;
};

std::wstring FormatWide(std::wstring_view format, std::span<const FormatArgument> arguments);
std::string FormatNarrow(std::string_view format, std::span<const FormatArgument> arguments);

inline std::wstring FormatWide(std::wstring_view format, std::initializer_list<FormatArgument> arguments) {
  return FormatWide(format, std::span<const FormatArgument>(arguments.begin(), arguments.size()));
}
inline std::string FormatNarrow(std::string_view format, std::initializer_list<FormatArgument> arguments) {
  return FormatNarrow(format, std::span<const FormatArgument>(arguments.begin(), arguments.size()));
}

/// The C form, for interfaces that are variadic. Text arguments must match the width that the format names.
std::wstring FormatWideV(std::wstring_view format, std::va_list arguments);

}  // namespace varnel
