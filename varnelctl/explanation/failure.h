// From what was thrown to what the user sees: the one place that knows how a failure ends the program.
#pragma once

#include <exception>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "platform/win32.h"
#include "varnelctl/explanation/exit_status.h"

namespace varnelctl {

/// Arguments or files that cannot be used; what() is the reason in one line.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A platform call of varnelctl's own failed. (The library throws a bare `long` for its calls.)
class CallFailure : public std::exception {
 public:
  CallFailure(std::string call, HRESULT hr) : call_(std::move(call)), hr_(hr) {}
  const char* what() const noexcept override { return call_.c_str(); }
  HRESULT hresult() const noexcept { return hr_; }

 private:
  std::string call_;
  HRESULT hr_;
};

/// "CALL failed: NAME (0x...)"
std::string Describe(const CallFailure& failure);

/// Throws CallFailure for a failed call.
inline void CheckCall(const char* call, HRESULT hr) {
  if (FAILED(hr)) throw CallFailure(call, hr);
}

/// Throws CallFailure with the last error of a Win32 call that failed.
[[noreturn]] void ThrowLastError(const char* call);

/// This machine cannot take a snapshot for this process at all; what() is the reason in one sentence.
class UnfitMachine : public std::runtime_error {
 public:
  UnfitMachine(const std::string& reason, HRESULT hr) : std::runtime_error(reason), hr_(hr) {}
  HRESULT hresult() const noexcept { return hr_; }

 private:
  HRESULT hr_;
};

/// The library refused the volumes or the host before anything was asked of the service. what() is the catalogue's
/// message; the alert records say which volumes.
class ValidationFailure : public std::runtime_error {
 public:
  /// \param statusWord of the rule that was broken, as the array knows it.
  ValidationFailure(DWORD catalogId, std::string statusWord);
  int catalogId() const noexcept { return catalogId_; }
  const std::string& statusWord() const noexcept { return statusWord_; }

 private:
  int catalogId_;
  std::string statusWord_;
};

/// A file of the snapshot failed its check, or could not be checked; what() is the reason in one line of UTF-8.
class FailedCheck : public std::runtime_error {
 public:
  /// \param advice the case of the advice table.
  FailedCheck(std::string_view advice, const std::string& reason, std::vector<std::string> details)
      : std::runtime_error(reason), advice_(advice), details_(std::move(details)) {}
  const std::string& advice() const noexcept { return advice_; }
  const std::vector<std::string>& details() const noexcept { return details_; }

 private:
  std::string advice_;
  std::vector<std::string> details_;
};

struct Failure {
  ExitStatus status = ExitStatus::Unexpected;
  int alertCode = 0;               ///< of a VarnelException, else 0
  std::optional<HRESULT> hresult;  ///< of a failed call
  std::string message;             ///< one line of UTF-8
  std::vector<std::string> details;
  std::string remedy;     ///< what to do, in one paragraph; see Advise
  std::string explain;    ///< the key of the advice: `varnelctl explain KEY`
  std::string step;       ///< the key of the step that failed; empty when none did
  bool quiet = false;     ///< nobody waits for the message
  int backupStatus = -1;  ///< what SetBackupStatus is told: the alert code or the thrown HRESULT, else -1
};

/// What a request does cannot be remembered: names the place, the reason and what to do.
class JournalError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A set was taken, but what was asked for besides was not done, or nobody can say whether it was.
class NotAllDone : public std::runtime_error {
 public:
  /// \param hresult of the call that failed, if one did.
  explicit NotAllDone(const std::string& reason, std::optional<HRESULT> hresult = {})
      : std::runtime_error(reason), hresult_(hresult) {}
  std::optional<HRESULT> hresult() const noexcept { return hresult_; }

 private:
  std::optional<HRESULT> hresult_;
};

/// What `question` answers; a failure of it is told as one to find out `what`. Throws NotAllDone.
template <class Question>
auto Checked(const std::string& what, Question question) {
  try {
    return question();
  } catch (const CallFailure& failure) {
    throw NotAllDone(what + " could not be checked: " + Describe(failure), failure.hresult());
  }
}

/// Whether it is mere messages about a set that exists.
bool GotThrough(const Failure& failure);

/// The catalogue's text of a message that takes no arguments, in one line of UTF-8.
std::string CatalogText(DWORD id);

/// Describes an exception. `call` is what was asked of the library when it left as a bare `long`. Belongs where the
/// host is still installed: its message tables name the results that the library has no name for.
Failure DescribeFailure(const std::exception_ptr& exception, std::string_view call);

}  // namespace varnelctl
