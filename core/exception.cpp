#include "core/exception.h"

#include "text/format.h"
#include "text/unicode.h"

VarnelException::VarnelException(int code, const std::wstring& message)
    : code_(code), message_(message), list_{message} {}

VarnelException::VarnelException(int code, const std::wstring& message, const std::vector<std::wstring>& list)
    : code_(code), message_(message), list_(list) {}

VarnelException::~VarnelException() = default;

const char* VarnelException::what() const noexcept {
  try {
    narrow_ = message_.empty() ? varnel::FormatNarrow("Alert Code: %d", {code_}) : varnel::WideToLocale(message_);
    return narrow_.c_str();
  } catch (...) {
    return "VarnelException";
  }
}
