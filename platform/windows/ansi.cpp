#include "platform/ansi.h"

#include "platform/windows/code_page.h"

namespace varnel {

std::string WideToAnsi(std::wstring_view text) {
  return windows::WideToCodePage(CP_THREAD_ACP, text);
}

std::wstring AnsiToWide(std::string_view text) {
  return windows::CodePageToWide(CP_THREAD_ACP, text);
}

}  // namespace varnel
