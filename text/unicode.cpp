#include "text/unicode.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cwchar>
#include <stdexcept>
#include <type_traits>

namespace varnel {
namespace {

constexpr char32_t kInvalid = 0xFFFFFFFF;
constexpr char32_t kReplacement = 0xFFFD;
constexpr bool kWideIsUtf16 = sizeof(wchar_t) == 2;

constexpr bool IsHighSurrogate(char32_t c) {
  return c >= 0xD800 && c <= 0xDBFF;
}
constexpr bool IsLowSurrogate(char32_t c) {
  return c >= 0xDC00 && c <= 0xDFFF;
}
constexpr bool IsSurrogate(char32_t c) {
  return c >= 0xD800 && c <= 0xDFFF;
}

int SequenceLength(unsigned char first) {
  if (first < 0x80) return 1;
  if (first >= 0xC2 && first <= 0xDF) return 2;
  if (first >= 0xE0 && first <= 0xEF) return 3;
  if (first >= 0xF0 && first <= 0xF4) return 4;
  return 0;
}

// Reads one code point and moves `at` past it; kInvalid moves one byte on.
char32_t NextUtf8(std::string_view text, std::size_t& at) {
  const auto first = static_cast<unsigned char>(text[at]);
  const int length = SequenceLength(first);
  if (length == 0 || at + static_cast<std::size_t>(length) > text.size()) {
    ++at;
    return kInvalid;
  }
  constexpr unsigned char kFirstMask[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
  char32_t c = first & kFirstMask[length];
  for (int i = 1; i < length; ++i) {
    const auto next = static_cast<unsigned char>(text[at + static_cast<std::size_t>(i)]);
    if ((next & 0xC0) != 0x80) {
      ++at;
      return kInvalid;
    }
    c = c << 6 | (next & 0x3Fu);
  }
  constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  if (c < kSmallest[length] || c > 0x10FFFF || IsSurrogate(c)) {
    ++at;
    return kInvalid;
  }
  at += static_cast<std::size_t>(length);
  return c;
}

char32_t NextWide(std::wstring_view text, std::size_t& at) {
  const auto unit = static_cast<char32_t>(static_cast<std::make_unsigned_t<wchar_t>>(text[at++]));
  if (IsHighSurrogate(unit)) {
    if (at < text.size()) {
      const auto low = static_cast<char32_t>(static_cast<std::make_unsigned_t<wchar_t>>(text[at]));
      if (IsLowSurrogate(low)) {
        ++at;
        return 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
      }
    }
    return kInvalid;
  }
  return IsLowSurrogate(unit) || unit > 0x10FFFF ? kInvalid : unit;
}

void AppendUtf8(std::string& text, char32_t c) {
  if (c < 0x80) {
    text += static_cast<char>(c);
  } else if (c < 0x800) {
    text += static_cast<char>(0xC0 | c >> 6);
    text += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    text += static_cast<char>(0xE0 | c >> 12);
    text += static_cast<char>(0x80 | (c >> 6 & 0x3F));
    text += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    text += static_cast<char>(0xF0 | c >> 18);
    text += static_cast<char>(0x80 | (c >> 12 & 0x3F));
    text += static_cast<char>(0x80 | (c >> 6 & 0x3F));
    text += static_cast<char>(0x80 | (c & 0x3F));
  }
}

void AppendWide(std::wstring& text, char32_t c) {
  if (kWideIsUtf16 && c >= 0x10000) {
    text += static_cast<wchar_t>(0xD800 + ((c - 0x10000) >> 10));
    text += static_cast<wchar_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
  } else {
    text += static_cast<wchar_t>(c);
  }
}

// Appends the ASCII characters from `at` on, which are the same in both forms, and moves `at` past them.
template <class To, class From>
void CopyAscii(To& result, From text, std::size_t& at) {
  using Unit = std::make_unsigned_t<typename From::value_type>;
  const auto isOther = [](auto c) { return static_cast<Unit>(c) >= 0x80; };
  const auto begin = text.begin() + static_cast<std::ptrdiff_t>(at);
  const auto end = std::find_if(begin, text.end(), isOther);
  const std::size_t old = result.size();
  result.resize(old + static_cast<std::size_t>(end - begin));
  std::transform(begin, end, result.begin() + static_cast<std::ptrdiff_t>(old),
                 [](auto c) { return static_cast<typename To::value_type>(c); });
  at = static_cast<std::size_t>(end - text.begin());
}

template <class To, class From, class Next, class Append>
void Convert(To& result, From text, bool strict, Next next, Append append) {
  for (std::size_t at = 0;;) {
    CopyAscii(result, text, at);
    if (at == text.size()) return;
    char32_t c = next(text, at);
    if (c == kInvalid) {
      if (strict) throw std::range_error("bad conversion");
      c = kReplacement;
    }
    append(result, c);
  }
}

}  // namespace

std::wstring Utf8ToWide(std::string_view text) {
  std::wstring result;
  Convert(result, text, true, NextUtf8, AppendWide);
  return result;
}
std::string WideToUtf8(std::wstring_view text) {
  std::string result;
  Convert(result, text, true, NextWide, AppendUtf8);
  return result;
}
std::wstring Utf8ToWideLossy(std::string_view text) {
  std::wstring result;
  Convert(result, text, false, NextUtf8, AppendWide);
  return result;
}
std::string WideToUtf8Lossy(std::wstring_view text) {
  std::string result;
  AppendUtf8Lossy(result, text);
  return result;
}
void AppendUtf8Lossy(std::string& result, std::wstring_view text) {
  Convert(result, text, false, NextWide, AppendUtf8);
}

std::string WideToLocale(const std::wstring& text) {
  std::mbstate_t state{};
  const wchar_t* source = text.c_str();
  const std::size_t bytes = std::wcsrtombs(nullptr, &source, 0, &state);
  if (bytes == static_cast<std::size_t>(-1)) return WideToUtf8Lossy(text);
  std::string result(bytes, '\0');
  state = {};
  source = text.c_str();
  std::wcsrtombs(result.data(), &source, bytes, &state);
  return result;
}

}  // namespace varnel
