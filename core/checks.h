// What a failed call does: it tells the array and throws (AlertAndThrow), or it tells the log alone and throws
// (LogAndThrow). Either is handed the call's HRESULT and does nothing when that is a success.
#pragma once

#include <string>

#include "core/hresult.h"
#include "platform/tessel/TesselCommonClasses.h"

namespace varnel {

/// Writes the COMMError record of a failed call and throws its HRESULT as a `long`.
class AlertAndThrow {
 public:
  /// \param call the call as it stands in the record, such as "m_pVssObject->StartSnapshotSet()".
  AlertAndThrow(const char* call, std::string& errorDetails, int line = __builtin_LINE())
      : call_(call), errorDetails_(errorDetails), line_(line) {}
  void operator()(HRESULT hr) const {
    if (FAILED(hr)) Report(hr);
  }

 private:
  [[noreturn]] void Report(HRESULT hr) const;

  const char* call_;
  std::string& errorDetails_;
  int line_;
};

/// How the log shows the text of a call.
enum class CallText {
  quoted,       ///< "call", the rule
  wideLiteral,  ///< L"call"
  bare,         ///< call
};

/// Logs three error lines for a failed COM call and throws its HRESULT as a `long`.
class LogAndThrow {
 public:
  explicit LogAndThrow(const wchar_t* call, CallText shown = CallText::quoted, int line = __builtin_LINE())
      : call_(call), shown_(shown), line_(line) {}
  void operator()(HRESULT hr) const {
    if (FAILED(hr)) Report(hr);
  }

 private:
  [[noreturn]] void Report(HRESULT hr) const;

  const wchar_t* call_;
  CallText shown_;
  int line_;
};

/// Logs three error lines for a failed Win32 call and throws `code` as an HRESULT. A code of 0 counts as
/// ERROR_GEN_FAILURE.
[[noreturn]] void LogAndThrowWin32(const wchar_t* call, DWORD code, CallText shown = CallText::quoted,
                                   int line = __builtin_LINE());

/// The enumerator; E_POINTER as a `long`, with an error line, while none is set.
TesselCommonClasses::DiskAndVolumeEnumerator& Required(TesselCommonClasses::DiskAndVolumeEnumerator* enumerator);

}  // namespace varnel
