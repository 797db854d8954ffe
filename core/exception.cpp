#include "core/exception.h"

#include <mutex>

#include "text/format.h"
#include "text/unicode.h"

namespace {
std::mutex narrowTextMutex;  // of every exception
}

VarnelException::VarnelException(int code, const std::wstring& message)
    : code_(code), message_(message), list_{message} {}

VarnelException::VarnelException(int code, const std::wstring& message, const std::vector<std::wstring>& list)
    : code_(code), message_(message), list_(list) {}

VarnelException::VarnelException(const VarnelException& other)
    : std::exception(other), code_(other.code_), message_(other.message_), list_(other.list_) {}

VarnelException& VarnelException::operator=(const VarnelException& other) {
  if (this == &other) return *this;
  code_ = other.code_;
  message_ = other.message_;
  list_ = other.list_;
  return *this;
}

VarnelException::~VarnelException() = default;

const char* VarnelException::what() const noexcept {
  try {
    std::string text =
        message_.empty() ? varnel::FormatNarrow("Alert Code: %d", {code_}) : varnel::WideToLocale(message_);
    const std::lock_guard<std::mutex> lock(narrowTextMutex);
    if (narrow_ != text) narrow_ = std::move(text);  // another thread may be reading what it was given
    return narrow_.c_str();
  } catch (...) {
    return "VarnelException";
  }
}
