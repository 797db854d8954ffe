// A requestor on the current host, driven as the host agent drives it, and how its operations end.
#pragma once

#include <algorithm>
#include <cstdio>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/varnel.h"
#include "platform/tessel/TesselCommonClasses.h"
#include "simulator/machine/machine.h"
#include "tests/support/requestor_probe.h"
#include "text/unicode.h"

namespace varnel::test {

/// An HRESULT as the bare `long` that is thrown for it.
constexpr long AsThrown(HRESULT hr) {
  return static_cast<long>(hr);
}

/// How an operation ended: it returned, threw a `long`, or threw a VarnelException.
struct Outcome {
  std::optional<long> thrown;
  int alertCode = 0;
  std::wstring message;
  std::vector<std::wstring> list;

  static Outcome Returned() { return {}; }
  static Outcome Thrown(HRESULT hr) { return {AsThrown(hr), 0, L"", {}}; }
  static Outcome Exception(int code, std::wstring message, std::vector<std::wstring> list) {
    return {std::nullopt, code, std::move(message), std::move(list)};
  }

  friend bool operator==(const Outcome&, const Outcome&) = default;
  friend std::ostream& operator<<(std::ostream& out, const Outcome& outcome) {
    if (outcome.thrown) {
      char code[16];
      std::snprintf(code, sizeof code, "0x%08x", static_cast<unsigned>(*outcome.thrown));
      return out << "long " << code;
    }
    if (outcome.alertCode == 0) return out << "returned";
    out << "VarnelException " << outcome.alertCode << " \"" << WideToUtf8Lossy(outcome.message) << "\"";
    for (const std::wstring& entry : outcome.list) out << "\n  entry \"" << WideToUtf8Lossy(entry) << "\"";
    return out;
  }
};

/// Any other exception passes.
template <class Action>
Outcome OutcomeOf(Action action) {
  try {
    action();
  } catch (long hr) {
    return {hr, 0, L"", {}};
  } catch (const VarnelException& exception) {
    return Outcome::Exception(exception.GetAlertCode(), exception.GetMessageText(), exception.GetMessageList());
  }
  return Outcome::Returned();
}

/// What the host agent passes to SetBackupStatus after a request that ended so.
inline int StatusCode(const Outcome& outcome) {
  return outcome.thrown ? static_cast<int>(*outcome.thrown) : outcome.alertCode;
}

/// A requestor of an application whose components may fail one by one.
class PartialRequestor : public CVarnel {
 public:
  using CVarnel::CVarnel;

 private:
  bool ArePartialFailuresSupported() override { return true; }
};

struct RequestOptions {
  std::vector<std::wstring> serialNumbers = {L"TSL0001"};
  DWORD context = 0;
  DWORD testPoints = 0;
};

template <class Requestor = CVarnel>
class SnapshotRequest {
 public:
  explicit SnapshotRequest(RequestOptions options = {}) : requestor(options.testPoints), options_(std::move(options)) {}

  /// The disks and Initialize.
  void Start() {
    requestor.SetInputDriveSerialNos(options_.serialNumbers);
    Initialize();
  }
  void Initialize() { requestor.Initialize(options_.context, L"", false, VSS_BT_FULL, details_, &enumerator); }
  Outcome Create() {
    return OutcomeOf([&] { requestor.CreateVssSnapshotSet(details_); });
  }
  Outcome StartAndCreate() {
    return OutcomeOf([&] {
      Start();
      requestor.CreateVssSnapshotSet(details_);
    });
  }
  Outcome Complete(int snapErrorCode) {
    return OutcomeOf([&] { requestor.SetBackupStatus(snapErrorCode, details_); });
  }
  Outcome CheckStatus() {
    return OutcomeOf([&] { probe.CheckSelectedWriterStatus(details_); });
  }
  /// Everything before the volumes are added.
  void StartSet() {
    Start();
    requestor.GatherWriterMetadata(details_);
    probe.SelectComponentsForBackup(details_);
    probe.StartSnapshotSet();
  }

  /// The argument, with the request text in front.
  std::string& details() { return details_; }
  /// What was appended to the request text.
  std::string alerts() const { return details_.substr(kRequestText.size()); }
  VssComponent& component(std::size_t writer, std::size_t index) { return probe.writers()[writer].components[index]; }

  TesselCommonClasses::DiskAndVolumeEnumerator enumerator;
  Requestor requestor;
  RequestorProbe probe{requestor};

 private:
  static constexpr std::string_view kRequestText = "writer=0,";

  RequestOptions options_;
  std::string details_{kRequestText};
};

/// How a request without any special wish ends, its completion included. It needs a service that is free for it.
inline Outcome PlainRequest() {
  SnapshotRequest request;
  const Outcome outcome = request.StartAndCreate();
  return outcome == Outcome::Returned() ? request.Complete(0) : outcome;
}

/// The name in front of a call log line's arguments.
inline std::string CallName(const std::string& line) {
  return line.substr(0, line.find('('));
}

/// The names of the logged calls that start with one of `prefixes`, in order.
inline std::vector<std::string> CallNames(const simulator::CallLog& calls,
                                          const std::vector<std::string_view>& prefixes) {
  std::vector<std::string> names;
  for (const std::string& line : calls.lines()) {
    const bool wanted = std::any_of(prefixes.begin(), prefixes.end(),
                                    [&](std::string_view prefix) { return line.starts_with(prefix); });
    if (wanted) names.push_back(CallName(line));
  }
  return names;
}

}  // namespace varnel::test
