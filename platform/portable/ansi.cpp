#include "platform/unicode.h"

namespace varnel {

std::string WideToAnsi(std::wstring_view text) {
  return WideToUtf8Lossy(text);
}

}  // namespace varnel
