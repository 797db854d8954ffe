// A text that its holder points at and may own.
#pragma once

#include <string>

namespace varnel {

/// A pointer to narrow text: somebody else's, or a copy that goes with this object.
class KeptText {
 public:
  /// Borrows `text`, which may be null.
  KeptText(const char* text) noexcept : text_(text) {}
  KeptText& operator=(const char* text) noexcept {
    text_ = text;
    return *this;
  }
  KeptText(const KeptText&) = delete;
  KeptText& operator=(const KeptText&) = delete;

  /// Points at a copy of `text`, or at nothing when that is null. What it pointed at before is gone if it was a copy.
  void Keep(const char* text) {
    copy_ = text == nullptr ? "" : text;
    text_ = text == nullptr ? nullptr : copy_.c_str();
  }
  operator const char*() const noexcept { return text_; }

 private:
  const char* text_;
  std::string copy_;
};

}  // namespace varnel
