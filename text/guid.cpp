#include "text/guid.h"

namespace varnel::detail {

void AppendHex(std::wstring& text, std::uint32_t value, int digits) {
  constexpr wchar_t kDigits[] = L"0123456789abcdef";
  for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4) text += kDigits[value >> shift & 0xF];
}

}  // namespace varnel::detail
