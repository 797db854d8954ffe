#include "core/text.h"

#include <cwchar>

#include "platform/guid.h"
#include "platform/unicode.h"

namespace varnel {

std::wstring Guid2WString(const GUID& guid) {
  return FormatGuid(guid);
}

GUID WString2Guid(std::wstring_view text) {
  return TryParseGuid(text).value_or(GUID{});
}

std::wstring_view ViewOf(BSTR text) {
  return text == nullptr ? std::wstring_view() : std::wstring_view(text, ::SysStringLen(text));
}

std::wstring BSTR2WString(BSTR text) {
  return std::wstring(ViewOf(text));
}

std::string WString2String(const std::wstring& text) {
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
