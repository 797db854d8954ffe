#include "platform/ansi.h"

#include "platform/win32.h"

namespace varnel {

std::string WideToAnsi(std::wstring_view text) {
  if (text.empty()) return {};
  const int length = static_cast<int>(text.size());
  const int bytes = ::WideCharToMultiByte(CP_THREAD_ACP, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
  std::string result(static_cast<std::size_t>(bytes), '\0');
  ::WideCharToMultiByte(CP_THREAD_ACP, 0, text.data(), length, result.data(), bytes, nullptr, nullptr);
  return result;
}

std::wstring AnsiToWide(std::string_view text) {
  if (text.empty()) return {};
  const int bytes = static_cast<int>(text.size());
  const int length = ::MultiByteToWideChar(CP_THREAD_ACP, 0, text.data(), bytes, nullptr, 0);
  std::wstring result(static_cast<std::size_t>(length), L'\0');
  ::MultiByteToWideChar(CP_THREAD_ACP, 0, text.data(), bytes, result.data(), length);
  return result;
}

}  // namespace varnel
