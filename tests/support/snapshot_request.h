// A requestor on the current host, driven as the host agent drives it, and how its operations end.
#pragma once

#include <algorithm>
#include <cstdio>
#include <optional>
#include <ostream>
#include <stdexcept>
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

/// The `long` that a failed call throws for this HRESULT.
constexpr long Failure(HRESULT hr) {
  return static_cast<long>(hr);
}
/// The same for a Win32 code.
constexpr long Win32Failure(DWORD code) {
  return Failure(HResultFromWin32(code));
}

/// How an operation ended: it returned, threw a `long`, or threw a VarnelException.
struct Outcome {
  std::optional<long> thrown;
  int alertCode = 0;
  std::wstring message;
  std::vector<std::wstring> list;

  static Outcome Returned() { return {}; }
  static Outcome Thrown(HRESULT hr) { return {Failure(hr), 0, L"", {}}; }
  static Outcome Exception(int code, std::wstring message, std::vector<std::wstring> list) {
    return {std::nullopt, code, std::move(message), std::move(list)};
  }
  /// One whose list holds the message alone.
  static Outcome Exception(int code, const std::wstring& message) { return Exception(code, message, {message}); }

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

/// A requestor whose catalogue records cannot be built, so that listing a failed writer's components fails.
class ThrowingRequestor : public CVarnel {
 public:
  using CVarnel::CVarnel;

 private:
  void GetComponentInfoForCataloging(const VssComponent&, ComponentCatalogingInfo&) override {
    throw std::runtime_error("no record");
  }
};

struct RequestOptions {
  std::vector<std::wstring> serialNumbers = {L"TSL0001"};
  DWORD context = 0;
  DWORD testPoints = 0;
};

/// The disks of both volumes of SmallHost.
inline RequestOptions BothDisks(DWORD context = 0) {
  return {.serialNumbers = {L"TSL0001", L"TSL0002"}, .context = context};
}

template <class Requestor = CVarnel>
class SnapshotRequest {
 public:
  /// `arguments` follow the test points in the requestor's constructor.
  template <class... Arguments>
  explicit SnapshotRequest(RequestOptions options = {}, Arguments&&... arguments)
      : requestor(options.testPoints, std::forward<Arguments>(arguments)...), options_(std::move(options)) {
    requestor.SetDiskAndVolumeEnumeratorObj(&enumerator);
  }

  /// The disks and Initialize.
  void Start() {
    requestor.SetInputDriveSerialNos(options_.serialNumbers);
    Initialize();
  }
  void Initialize() { requestor.Initialize(options_.context, L"", false, VSS_BT_FULL, details_, &enumerator); }
  /// Start and the writers' metadata; without disks too.
  void Gather() {
    if (!options_.serialNumbers.empty()) requestor.SetInputDriveSerialNos(options_.serialNumbers);
    Initialize();
    requestor.GatherWriterMetadata(details_);
  }
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
  Outcome Verify() {
    return OutcomeOf([&] { requestor.VerifySnapShotData(); });
  }
  /// Everything before the volumes are added.
  void StartSet() {
    Gather();
    probe.SelectComponentsForBackup(details_);
    probe.StartSnapshotSet();
  }

  /// The argument, which starts with the request text.
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

/// A request that has read the writers.
template <class Requestor = CVarnel>
class GatheredRequest : public SnapshotRequest<Requestor> {
 public:
  template <class... Arguments>
  explicit GatheredRequest(RequestOptions options = {}, Arguments&&... arguments)
      : SnapshotRequest<Requestor>(std::move(options), std::forward<Arguments>(arguments)...) {
    this->Gather();
  }
};

/// How a request without any special wish ends, its completion included. It needs a service that is free for it.
inline Outcome PlainRequest() {
  SnapshotRequest request;
  const Outcome outcome = request.StartAndCreate();
  return outcome == Outcome::Returned() ? request.Complete(0) : outcome;
}

/// The name before a call log line's arguments.
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
