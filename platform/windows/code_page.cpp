#include "platform/windows/code_page.h"

#include <optional>

#include "text/unicode.h"

namespace varnel::windows {
namespace {

// Nothing when the system does not convert so. `lost`, when asked for, is told whether a character was replaced.
std::optional<std::string> Converted(UINT codePage, DWORD flags, std::wstring_view text, BOOL* lost) {
  const int length = static_cast<int>(text.size());
  const int bytes = ::WideCharToMultiByte(codePage, flags, text.data(), length, nullptr, 0, nullptr, nullptr);
  std::string result(static_cast<std::size_t>(bytes), '\0');
  if (::WideCharToMultiByte(codePage, flags, text.data(), length, result.data(), bytes, nullptr, lost) == 0) return {};
  return result;
}

}  // namespace

std::string WideToCodePage(UINT codePage, std::wstring_view text) {
  if (text.empty()) return {};
  BOOL lost = FALSE;
  std::optional<std::string> result = Converted(codePage, WC_NO_BEST_FIT_CHARS, text, &lost);
  // UTF-8 and its like, which express every character, refuse the flag and the question.
  if (!result) result = Converted(codePage, 0, text, nullptr);
  return result && !lost ? *result : WideToUtf8Lossy(text);
}

std::wstring CodePageToWide(UINT codePage, std::string_view text) {
  if (text.empty()) return {};
  const int bytes = static_cast<int>(text.size());
  const int length = ::MultiByteToWideChar(codePage, 0, text.data(), bytes, nullptr, 0);
  if (length == 0) return Utf8ToWideLossy(text);
  std::wstring result(static_cast<std::size_t>(length), L'\0');
  ::MultiByteToWideChar(codePage, 0, text.data(), bytes, result.data(), length);
  return result;
}

}  // namespace varnel::windows
