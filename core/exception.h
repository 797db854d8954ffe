// The exception of a failed request.
#pragma once

#include <exception>
#include <string>
#include <vector>

#include "platform/export.h"

/// A request-level failure: an alert code for the array and a text for the administrator.
class VARNEL_API VarnelException : public std::exception {
 public:
  /// What went wrong, as the array is told.
  enum AlertCode : int {
    None = 0,                   ///< nothing
    WriterFailure = 600,        ///< selected writers failed
    PartialSuccess = 601,       ///< got through, but messages were collected
    ConfigurationError = 602,   ///< nothing eligible, or the protection set is wrong
    VerificationFailure = 603,  ///< a file of the snapshot failed its check
    ExtraVolumes = 701,         ///< the volume collection holds more volumes than the application uses
  };

  /// No failure: code None, no text.
  VarnelException() = default;
  /// `message` is also the single entry of the list.
  VarnelException(int code, const std::wstring& message);
  /// `message` sums up what the entries of `list` tell one by one.
  VarnelException(int code, const std::wstring& message, const std::vector<std::wstring>& list);
  /// Copies code, message and list.
  VarnelException(const VarnelException& other);
  /// Copies code, message and list.
  VarnelException& operator=(const VarnelException& other);
  ~VarnelException() override;

  /// The message in the current locale's narrow form, or "Alert Code: N" without one. Built on each call; valid until
  /// one in another locale or the end of this object. May be called, and the object copied, on several threads at once.
  const char* what() const noexcept override;

  /// An AlertCode, or the number that the subclass of an agent chose.
  int GetAlertCode() const noexcept { return code_; }
  /// One text for the administrator, over several lines where several things failed.
  const std::wstring& GetMessageText() const noexcept { return message_; }
  /// One entry per failed writer or component, or the single detail of a configuration error.
  const std::vector<std::wstring>& GetMessageList() const noexcept { return list_; }

 private:
  int code_ = None;
  std::wstring message_;
  std::vector<std::wstring> list_;
  mutable std::string narrow_;  // what what() gave last; not copied
};
