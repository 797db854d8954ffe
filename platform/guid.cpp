#include "platform/guid.h"

namespace varnel {
namespace {

void AppendHex(std::wstring& text, unsigned long value, int digits) {
  constexpr wchar_t kDigits[] = L"0123456789abcdef";
  for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4) text += kDigits[value >> shift & 0xF];
}

}  // namespace

std::wstring FormatBareGuid(const GUID& guid) {
  std::wstring text;
  text.reserve(38);
  AppendHex(text, guid.Data1, 8);
  text += L'-';
  AppendHex(text, guid.Data2, 4);
  text += L'-';
  AppendHex(text, guid.Data3, 4);
  text += L'-';
  for (int i = 0; i < 8; ++i) {
    if (i == 2) text += L'-';
    AppendHex(text, guid.Data4[i], 2);
  }
  return text;
}

std::wstring FormatGuid(const GUID& guid) {
  return L"{" + FormatBareGuid(guid) + L"}";
}

}  // namespace varnel
