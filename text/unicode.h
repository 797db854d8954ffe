// UTF-8 and wide text. wchar_t is UTF-16 on Windows and one code point elsewhere; both directions know surrogate pairs.
#pragma once

#include <string>
#include <string_view>

namespace varnel {

/// Conversions that refuse: std::range_error on text that is not valid.
std::wstring Utf8ToWide(std::string_view text);
std::string WideToUtf8(std::wstring_view text);

/// Conversions that never fail on a character: what cannot be converted becomes U+FFFD.
std::wstring Utf8ToWideLossy(std::string_view text);
std::string WideToUtf8Lossy(std::wstring_view text);
void AppendUtf8Lossy(std::string& result, std::wstring_view text);

/// A file name as the platform keeps it (std::filesystem::path::native), in wide text. The conversions of
/// std::filesystem depend on the locale, and throw for what it cannot express.
inline std::wstring WideFileName(const std::string& utf8) {
  return Utf8ToWideLossy(utf8);
}
inline std::wstring WideFileName(const std::wstring& utf16) {
  return utf16;
}

/// The current locale's multibyte form; a text that the locale cannot express is given whole in UTF-8.
std::string WideToLocale(const std::wstring& text);

}  // namespace varnel
