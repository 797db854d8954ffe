// Failures: the exception of a failed request, the alert records that the array parses, and the log-only reports of
// failed platform calls. Every failed call ends in a thrown `long` that holds the HRESULT; a failed request in a
// VarnelException.
#pragma once

#include <exception>
#include <initializer_list>
#include <span>
#include <string>
#include <vector>

#include "core/logging.h"
#include "platform/export.h"
#include "platform/tessel/FileLog.h"
#include "platform/win32.h"
#include "text/format.h"

/// A request-level failure: an alert code for the array and a text for the administrator.
class VARNEL_API VarnelException : public std::exception {
 public:
  enum AlertCode : int {
    None = 0,
    WriterFailure = 600,        ///< selected writers failed
    PartialSuccess = 601,       ///< got through, but messages were collected
    ConfigurationError = 602,   ///< nothing eligible, or the protection set is wrong
    VerificationFailure = 603,  ///< a file of the snapshot failed its check
    ExtraVolumes = 701,         ///< the volume collection holds more volumes than the application uses
  };

  VarnelException() = default;
  /// `message` is also the single entry of the list.
  VarnelException(int code, const std::wstring& message);
  VarnelException(int code, const std::wstring& message, const std::vector<std::wstring>& list);
  VarnelException(const VarnelException&) = default;
  VarnelException& operator=(const VarnelException&) = default;
  ~VarnelException() override;

  /// The message in the current locale's narrow form, or "Alert Code: N" without one. Built on each call; valid until
  /// the next one or the end of this object.
  const char* what() const noexcept override;

  int GetAlertCode() const noexcept { return code_; }
  const std::wstring& GetMessageText() const noexcept { return message_; }
  /// One entry per failed writer or component, or the single detail of a configuration error.
  const std::vector<std::wstring>& GetMessageList() const noexcept { return list_; }

 private:
  int code_ = 0;
  std::wstring message_;
  std::vector<std::wstring> list_;
  mutable std::string narrow_;
};

namespace varnel {

/// One record of the error-details argument. The format's first conversion takes `tag`, or the caller's first argument
/// where `tag` is null.
struct AlertRecord {
  const char* format;
  const char* tag;
  const char* ending;  // appended behind the record in the error details, not logged
  int category;
  const wchar_t* logFormat;
  std::size_t bytes;  // of the whole record with its terminator
};

namespace alert {

inline constexpr std::size_t kRecordBytes = 2048;
inline constexpr std::size_t kHyperVRecordBytes = 1024;

inline constexpr AlertRecord kComError = {
    "%s=Failed, error=%S, rc=COMMError, ca=ContactTechSupport;", nullptr, "\n", CFileLog::Error, L" %S", kRecordBytes};
inline constexpr AlertRecord kWriterFailure = {
    "%s, WriterName=%S, WriterError=%S, WriterStatus=%S, ApplicationError=0x%x, ApplicationMsg=%S, "
    "rc=VssWriterStatusError, ca=CheckWriterState;\n",
    "RequestStatus=WriterFailure",
    "",
    CFileLog::Error,
    L"  %S",
    kRecordBytes};
inline constexpr AlertRecord kComponentFailure = {
    "%s, Component=%S, ComponentLevelError=%S, ApplicationError=0x%x, ApplicationMsg=%S, rc=VssPartialWriterError, "
    "ca=CheckWriterState;\n",
    "RequestStatus=ComponentLevelFailure",
    "",
    CFileLog::Error,
    L"  %S",
    kRecordBytes};
inline constexpr AlertRecord kDiskSerialNumber = {"%s, rc=SystemError, error=%S, ca=ContactTechSupport;\n",
                                                  "RequestStatus=GetDiskSerialNumberForVolume()_failed",
                                                  "",
                                                  CFileLog::Error,
                                                  L"  %S",
                                                  kRecordBytes};
inline constexpr AlertRecord kQueryStatus = {"%s, Function=%s, Error=%S, rc=SystemError, ca=ContactSupport",
                                             "RequestStatus=QueryStatus()",
                                             "",
                                             CFileLog::Error,
                                             L"  %S",
                                             kRecordBytes};
inline constexpr AlertRecord kSessionMemory = {
    "malloc() Failed, Variable=SessionInfo, %s, rc=SystemError, ca=CallSupport;\n",
    "RequestStatus=LowMemory",
    "",
    CFileLog::Error,
    L"  %S",
    kRecordBytes};
inline constexpr AlertRecord kDeviceMemory = {
    "%s, rc=SystemError, ca=CallSupport;\n", "RequestStatus=LowMemory", "", CFileLog::Warning, L"  %S", kRecordBytes};
inline constexpr AlertRecord kAddComponentFailed = {
    "status=%s, Component=%S, rc=ConfigError, ca=CheckVolumeCollection, ca=CheckHostsVolumes",
    "AddComponentFailed",
    ";\n",
    CFileLog::Error,
    L"  %S",
    kRecordBytes};
inline constexpr AlertRecord kNoComponents = {
    "status=%s, rc=ConfigError, ca=CheckVolumeCollection, ca=CheckHostsVolumes/Connections",
    "NoComponentsEligibleForBackup",
    ";\n",
    CFileLog::Error,
    L"  %S",
    kRecordBytes};
inline constexpr AlertRecord kLunMismatch = {
    "status=%s, VolCollVolumes=%d, VolumesInvolvedInSnapshot=%d, rc=ConfigError, ca=CheckVolumeCollection, "
    "ca=CheckHostsVolumes/Connections",
    "LunMismatch",
    ";\n",
    CFileLog::Error,
    L" %S",
    kRecordBytes};
inline constexpr AlertRecord kExtraVolumes = {
    "status=%s, VolumesInvolvedInSnapshot =%d , ExtraVolumes =%d, rc=ConfigWarning, ca=CheckVolumeCollection, "
    "ca=CheckHostsVolumes/Connections",
    "ExtarVolumesInVolColl",
    ";\n",
    CFileLog::Warning,
    L"%S",
    kRecordBytes};
inline constexpr AlertRecord kMixedCluster = {"Error, status=%s, rc=ConfigError, ca=CheckVolumeCollection",
                                              "TesselHyperVValidation_MixOfStandalone_ClusterVolumes",
                                              "",
                                              CFileLog::Error,
                                              L"  %S",
                                              kHyperVRecordBytes};
inline constexpr AlertRecord kMixedCsv = {"Error, status=%s, rc=ConfigError, ca=CheckVolumeCollection",
                                          "TesselHyperVValidation_MixOfCSV_NonCSVVolumes",
                                          "",
                                          CFileLog::Error,
                                          L"  %S",
                                          kHyperVRecordBytes};
inline constexpr AlertRecord kClusterDisk = {"Error, status=%s, rc=ConfigError, ca=CheckVolumeCollection",
                                             "TesselHyperVValidation_ClusterDiskFound",
                                             "",
                                             CFileLog::Error,
                                             L"  %S",
                                             kHyperVRecordBytes};
inline constexpr AlertRecord kValidationException = {
    "Error, status=%s, ErrMsg=%ws, rc=ConfigError, ca=CheckVolumeCollection",
    "TesselHyperVValidation_Exception",
    ";\n",
    CFileLog::Error,
    L"  %S",
    kHyperVRecordBytes};
inline constexpr AlertRecord kMissingHotfixes = {"Error, status=%s, rc=ConfigError, ca=VerifyRequiredHotfixes",
                                                 "MissingHotfixes",
                                                 ";\n",
                                                 CFileLog::Error,
                                                 L"  %S",
                                                 kHyperVRecordBytes};
inline constexpr AlertRecord kUnsupportedOs = {"Error, status=%s, rc=ConfigError, ca=CheckHostOSVersion",
                                               "UnsupportedOSVersion",
                                               ";\n",
                                               CFileLog::Error,
                                               L"  %S",
                                               kHyperVRecordBytes};

/// Every record, in the order above.
std::span<const AlertRecord* const> All();

}  // namespace alert

/// The record with these arguments (behind the tag). Within its bytes: the longest inserted text gives way and then
/// ends in "...", the first field and the rc= and ca= fields stay whole.
std::string FormatAlert(const AlertRecord& record, std::initializer_list<FormatArgument> arguments);
/// Formats and logs the record, under the source name of `log` and the caller's line.
std::string LogAlert(const AlertRecord& record, std::initializer_list<FormatArgument> arguments,
                     const Logger& log = kLog, int line = __builtin_LINE());
/// Formats, logs and appends the record with its ending to the error details.
void WriteAlert(const AlertRecord& record, std::initializer_list<FormatArgument> arguments, std::string& errorDetails,
                const Logger& log = kLog, int line = __builtin_LINE());

/// The low 32 bits, signed: what an HRESULT argument means wherever `long` is wider.
constexpr HRESULT AsHResult(long hr) {
  return static_cast<HRESULT>(static_cast<unsigned long>(hr) & 0xFFFFFFFF);
}

/// Throws the HRESULT as a bare, sign-extended `long`.
[[noreturn]] void ThrowHResult(HRESULT hr);

/// A success without the object that it promises is as unexpected as a failure.
template <class T>
HRESULT Delivered(HRESULT hr, const T& object) {
  return SUCCEEDED(hr) && !object ? E_UNEXPECTED : hr;
}

/// Three error lines for a failed COM call, nothing for a successful one. `call` is logged as it stands.
void ReportComFailure(const wchar_t* call, HRESULT hr, const Logger& log = kLog, int line = __builtin_LINE());
/// Reports a failed COM call and throws its HRESULT; returns on success.
void CheckComCall(HRESULT hr, const wchar_t* call, const Logger& log = kLog, int line = __builtin_LINE());
/// Three error lines for a failed Win32 call, then throws `code` as an HRESULT. A code of 0 counts as
/// ERROR_GEN_FAILURE.
[[noreturn]] void ThrowWin32Failure(const wchar_t* call, DWORD code, const Logger& log = kLog,
                                    int line = __builtin_LINE());
/// The current host's last error, ERROR_GEN_FAILURE in place of 0.
DWORD LastErrorOrGeneric();

}  // namespace varnel
