#include "varnelctl/sets/request_run.h"

#include <algorithm>

#include "core/alerts.h"
#include "platform/ansi.h"
#include "resources/catalog.h"
#include "text/unicode.h"
#include "varnelctl/console/text.h"
#include "varnelctl/explanation/advice.h"
#include "varnelctl/explanation/next_step.h"
#include "varnelctl/explanation/objects.h"
#include "varnelctl/explanation/requirement.h"
#include "varnelctl/sets/requested_disks.h"
#include "varnelctl/sets/snapshot_steps.h"

namespace varnelctl {
namespace {

// The host check tells its status word in the alert record only.
const char* StatusWordOfHostCheck(DWORD catalogId) {
  constexpr DWORD kUnsupportedOsId = 254;
  return catalogId == kUnsupportedOsId ? varnel::alert::kUnsupportedOs.tag : varnel::alert::kMissingHotfixes.tag;
}

// An alert's message does not say where it was raised.
void NameStep(Failure& failure, Session& session) {
  const std::optional<StepName> step = std::exchange(session.failedStep, std::nullopt);
  if (!step) return;
  failure.step = step->key;
  const bool namesIt = failure.message.starts_with(session.call()) || failure.status == ExitStatus::NotAllDone ||
                       failure.status == ExitStatus::NotContained || failure.status == ExitStatus::Stopped;
  if (namesIt) return;
  failure.details.insert(failure.details.begin(), "while " + session.call());
}

}  // namespace

void RequestRun::Begin() {
  CheckDisks();
  ValidateHost();
  ValidateVolumes();
  CheckProvider();
  details_ = "writer=" + std::to_string(options_.writerCode) + ",";
  requestTextLength_ = details_.size();
  phases_.Run(step::kStarting, [&] {
    requestor_.SetInputDriveSerialNos(serialNumbers_);
    requestor_.Initialize(options_.context, L"", false, options_.backupType, details_, &outcome_.enumerator);
  });
}

void RequestRun::ExplainFailure(const std::wstring& refusedVolume) {
  NameMissingWriter();
  NameRefusedVolume(refusedVolume);
  NameVolumes();
}

void RequestRun::Conclude() {
  phases_.StopWatching();
  for (const VssWriter& writer : requestor_.GetWriters()) outcome_.explanation.push_back({&writer, Reason::None, {}});
  Attempt([&] { outcome_.explanation = ExplainSelection(); });
  outcome_.objects = ObjectsOf(outcome_.explanation, options_.application);
  outcome_.phases = phases_.list();
  outcome_.steps = phases_.steps();
  outcome_.moments = moments_.Since(phases_.start());
  outcome_.errorDetails = details_.erase(0, requestTextLength_);
  if (!outcome_.failure) return;
  Advise(*outcome_.failure, outcome_.errorDetails, ObjectsOf(outcome_.explanation, options_.application));
}

void RequestRun::NoteMessages(const VarnelException& alert) {
  const int code = alert.GetAlertCode();
  if (code != VarnelException::PartialSuccess && code != VarnelException::ExtraVolumes) throw;
  outcome_.NoteFailure(session_);
  if (code == VarnelException::ExtraVolumes && options_.acceptExtraVolumes) {
    outcome_.failure->status = ExitStatus::Done;
    outcome_.failure->backupStatus = 0;
  }
}

void RequestRun::CheckRequirement() {
  if (options_.required.empty()) return;
  const Explanation explanation = ExplainSelection();
  CheckRequired(options_.required, ObjectsOf(explanation, options_.application), options_.application);
}

Explanation RequestRun::ExplainSelection() {
  return Explain(requestor_.GetWriters(), options_.application, serialNumbers_, locations_);
}

// The library takes a serial number that no disk has for an extra disk; a typing error deserves a plainer word.
void RequestRun::CheckDisks() {
  phases_.Run(step::kLookingForDisks, [&] {
    outcome_.enumerator.GetDisks();
    locations_.RememberAll();
  });
  RequestedDisks requested = ReadRequestedDisks(options_.disks, outcome_.enumerator, options_.acceptUnknownDisks);
  for (const Warning& warning : requested.warnings) phases_.Warn(warning);
  serialNumbers_ = std::move(requested.serialNumbers);
}

void RequestRun::ValidateHost() {
  phases_.Run(step::kCheckingHost, [&] {
    if (const DWORD code = requestor_.ValidateHostConfiguration(details_)) {
      throw ValidationFailure(code, StatusWordOfHostCheck(code));
    }
  });
}

void RequestRun::ValidateVolumes() {
  phases_.Run(step::kCheckingVolumes, [&] {
    std::vector<std::string> disks;
    std::vector<std::string> volumes;
    for (const std::wstring& serialNumber : serialNumbers_) {
      disks.push_back(varnel::WideToUtf8Lossy(serialNumber));
      std::vector<std::wstring> names;
      outcome_.enumerator.GetUniqueVolumeNamesForDisk(serialNumber, names);
      for (const std::wstring& name : names) volumes.push_back(varnel::WideToAnsi(name));
    }
    std::string status;
    if (const DWORD code = requestor_.ValidateVolumes(volumes, status, details_, disks, "")) {
      throw ValidationFailure(code, status);
    }
  });
}

// A provider that is missing, or cannot be asked for, makes a later step fail with its own message; a warning says it
// early. The writers are not looked for here: every writer would have to identify itself twice, which costs half a
// minute on a large server, and the request says itself that none is there.
void RequestRun::CheckProvider() {
  phases_.Run(step::kLookingForProvider, [&] {
    try {
      if (requestor_.IsTesselVSSProviderPresent()) return;
      phases_.Warn({"providerMissing", "the array's VSS hardware provider is not registered on this host"});
    } catch (long) {
      phases_.Warn({"providerUnknown", DescribeFailure(std::current_exception(), session_.call()).message});
    }
  });
}

// The library's message does not name the application.
void RequestRun::NameMissingWriter() {
  if (!outcome_.failure || outcome_.failure->message != CatalogText(varnel::message::kNoWriter)) return;
  outcome_.failure->explain = MissingWriterCase(options_.application);
  outcome_.failure->details.emplace_back(FindAdvice(outcome_.failure->explain)->meaning);
}

// Records name volumes as nobody knows them, and a failed snapshot names none.
void RequestRun::NameVolumes() {
  if (!outcome_.failure) return;
  std::string volumes;
  if (outcome_.failure->status == ExitStatus::Validation) volumes = locations_.Named(details_);
  if (outcome_.failure->hresult && !outcome_.taken) volumes = VolumesOfSet(requestor_, locations_);
  if (!volumes.empty()) outcome_.failure->details.push_back(volumes);
}

void RequestRun::NameRefusedVolume(const std::wstring& volume) {
  if (!outcome_.failure || volume.empty()) return;
  const VolumeLocation& location = locations_.Of(volume);
  const std::wstring& name = location.mountPoint.empty() ? volume : location.mountPoint;
  outcome_.failure->details.push_back("for volume " + Printable(name) + " (disk " + Quoted(location.serialNumber) +
                                      ")");
}

SnapshotOutcome::SnapshotOutcome(const SnapshotOptions& snapshotOptions)
    : SnapshotOutcome(snapshotOptions, MakeRequestor(snapshotOptions.application, snapshotOptions.testPoints,
                                                     snapshotOptions.skipDbVerification)) {}

SnapshotOutcome::SnapshotOutcome(const SnapshotOptions& snapshotOptions, std::unique_ptr<CVarnel> made)
    : requestor(std::move(made)), options(snapshotOptions), isTransportable(options.IsTransportable()) {
  requestor->SetDiskAndVolumeEnumeratorObj(&enumerator);
}

void SnapshotOutcome::NoteFailure(Session& session, std::optional<ExitStatus> status) {
  const std::string& call = session.call();
  Failure next = DescribeFailure(std::current_exception(), call);
  NameStep(next, session);
  next.status = status.value_or(next.status);
  if (!failure || (GotThrough(*failure) && !GotThrough(next))) {
    if (failure) {
      next.details.push_back(failure->message);
      next.details.insert(next.details.end(), failure->details.begin(), failure->details.end());
    }
    failure = std::move(next);
    return;
  }
  // An alert's message does not say where it was raised.
  std::string detail = next.alertCode == 0 ? next.message : call + ": " + next.message;
  std::vector<std::string>& details = failure->details;
  if (detail == failure->message) return;
  if (std::find(details.begin(), details.end(), detail) == details.end()) details.push_back(std::move(detail));
}

}  // namespace varnelctl
