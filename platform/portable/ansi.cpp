#include "platform/ansi.h"

#include "text/unicode.h"

namespace varnel {

std::string WideToAnsi(std::wstring_view text) {
  return WideToUtf8Lossy(text);
}

std::wstring AnsiToWide(std::string_view text) {
  return Utf8ToWideLossy(text);
}

}  // namespace varnel
