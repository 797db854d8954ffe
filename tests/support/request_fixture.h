// The fixture of tests that take snapshot sets: hosts of two writers, failing writers, taken requests, and the records
// that failures append to the error details.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "tests/support/host_fixture.h"
#include "tests/support/snapshot_request.h"

namespace varnel::test {

using simulator::WriterEvent;
using simulator::WriterFault;

/// The text of a failed writer's error where some of its components succeeded.
inline constexpr char kPartialText[] =
    "The writer experienced a partial failure. Check the application event log on the application server to determine "
    "application objects for which VSS synchronization failed.";

inline std::wstring Wide(std::string_view text) {
  return Utf8ToWideLossy(text);
}

// ---- records of failures ----

inline std::string ComRecord(const std::string& call, const std::string& error) {
  return call + "=Failed, error=" + error + ", rc=COMMError, ca=ContactTechSupport;\n";
}

/// That of an operation that ended in a failure; it has no line end.
inline std::string QueryStatusRecord(const std::string& error) {
  return "RequestStatus=QueryStatus(), Function=pAsync->QueryStatus(), Error=" + error +
         ", rc=SystemError, ca=ContactSupport";
}

inline std::string WriterRecord(const std::string& name, const std::string& error, const std::string& state,
                                const std::string& applicationError = "0x0", const std::string& message = "") {
  return "RequestStatus=WriterFailure, WriterName=" + name + ", WriterError=" + error + ", WriterStatus=" + state +
         ", ApplicationError=" + applicationError + ", ApplicationMsg=" + message +
         ", rc=VssWriterStatusError, ca=CheckWriterState;\n";
}

inline std::string ComponentRecord(const std::string& path, const std::string& error,
                                   const std::string& applicationError = "0x0", const std::string& message = "") {
  return "RequestStatus=ComponentLevelFailure, Component=" + path + ", ComponentLevelError=" + error +
         ", ApplicationError=" + applicationError + ", ApplicationMsg=" + message +
         ", rc=VssPartialWriterError, ca=CheckWriterState;\n";
}

/// What the text of a failed writer tells of its application.
inline std::string ApplicationText(const std::string& error = "0x0", const std::string& message = "") {
  return " Application error code: " + error + ", Application error message: " + message + " \n";
}

/// The record's line in the log, which has no line end.
inline std::string LogLineOf(const std::string& record) {
  return " " + record.substr(0, record.size() - 1);
}

/// The three error lines of a failed COM call, which stands there as `call`.
inline std::vector<std::string> ComFailureLines(const std::string& call, const std::string& code,
                                                const std::string& text) {
  return {"ERROR: COM call " + call + " failed.", "- Returned HRESULT = " + code, "- Error text: " + text};
}

/// The same of a failed Win32 call.
inline std::vector<std::string> Win32FailureLines(const std::string& call, const std::string& error,
                                                  const std::string& text) {
  return {"ERROR: Win32 call " + call + " failed.", "- GetLastError() == " + error, "- Error text: " + text};
}

// ---- writers that fail ----

inline WriterFault Fault(std::wstring writer, WriterEvent event, HRESULT failure = VSS_E_WRITERERROR_RETRYABLE) {
  WriterFault fault;
  fault.writer = std::move(writer);
  fault.event = event;
  fault.failure = failure;
  return fault;
}

/// Mail's first database fails after the snapshot; its others do well.
inline WriterFault PartialFault(HRESULT failure = VSS_E_WRITERERROR_NONRETRYABLE, HRESULT applicationResult = S_OK) {
  WriterFault fault = Fault(L"Mail", WriterEvent::postSnapshot, VSS_E_WRITERERROR_PARTIAL_FAILURE);
  fault.components = {{L"\\mail\\db1", failure, applicationResult, L"log full"}};
  return fault;
}

// ---- records that no service filled ----

inline VssWriter WriterOf(std::vector<VssComponent> components) {
  VssWriter writer;
  writer.components = std::move(components);
  return writer;
}

/// Two writers, Mail (db1, db2) and Web (site), whose files lie on TSL0001, and Other (store), whose do not.
inline simulator::HostModel HostOfThreeWriters() {
  simulator::HostModel model = SmallHost();
  model.writers = {
      MakeWriter(L"Mail", 1,
                 {MakeComponent(L"mail", L"db1", {L"E:\\db1"}), MakeComponent(L"mail", L"db2", {L"E:\\db2"})}),
      MakeWriter(L"Web", 2, {MakeComponent(L"", L"site", {L"E:\\web"})}),
      MakeWriter(L"Other", 3, {MakeComponent(L"", L"store", {L"F:\\store"})}),
  };
  return model;
}

/// A request that ended so.
template <class Requestor = CVarnel>
class EndedRequest : public SnapshotRequest<Requestor> {
 public:
  explicit EndedRequest(const Outcome& expected, RequestOptions options = {})
      : SnapshotRequest<Requestor>(std::move(options)) {
    EXPECT_EQ(this->StartAndCreate(), expected);
  }
};

/// A request whose set was taken.
template <class Requestor = CVarnel>
class CreatedRequest : public EndedRequest<Requestor> {
 public:
  explicit CreatedRequest(RequestOptions options = {})
      : EndedRequest<Requestor>(Outcome::Returned(), std::move(options)) {}
};

/// The same; what the test's host logs and is called from then on is the next operation's.
template <class Requestor = CVarnel>
class TakenRequest : public CreatedRequest<Requestor> {
 public:
  explicit TakenRequest(HostFixture& test, RequestOptions options = {})
      : CreatedRequest<Requestor>(std::move(options)) {
    test.Forget();
  }
};

}  // namespace varnel::test
