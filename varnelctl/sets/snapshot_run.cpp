#include "varnelctl/sets/snapshot_run.h"

#include <algorithm>

#include "core/alerts.h"
#include "core/configuration.h"
#include "platform/ansi.h"
#include "resources/catalog.h"
#include "text/unicode.h"
#include "varnelctl/console/text.h"
#include "varnelctl/exchange_installation.h"
#include "varnelctl/program_search.h"
#include "varnelctl/sets/follow_up.h"
#include "varnelctl/sets/requested_disks.h"
#include "varnelctl/sets/snapshot_steps.h"

namespace varnelctl {
namespace {

// The host check tells its status word in the alert record only.
const char* StatusWordOfHostCheck(DWORD catalogId) {
  constexpr DWORD kUnsupportedOsId = 254;
  return catalogId == kUnsupportedOsId ? varnel::alert::kUnsupportedOs.tag : varnel::alert::kMissingHotfixes.tag;
}

class SnapshotRun final : private RequestWatcher {
 public:
  SnapshotRun(Session& session, const SnapshotOptions& options, SnapshotOutcome& outcome)
      : session_(session),
        options_(options),
        outcome_(outcome),
        phases_(session),
        followUp_(session, options, outcome, phases_) {}

  void Run() {
    Attempt([&] { Sequence(); });
    AdviseOnMissingWriter();
    NameRefusedVolume();
    Complete();
    followUp_.Run();
    followUp_.TellWhatIsLeft();
    phases_.StopWatching();
    for (const VssWriter& writer : requestor_.GetWriters()) outcome_.explanation.push_back({&writer, Reason::None, {}});
    Attempt([&] {
      outcome_.explanation = Explain(requestor_.GetWriters(), options_.application, serialNumbers_, locations_);
    });
    outcome_.phases = phases_.list();
    outcome_.steps = phases_.steps();
    outcome_.errorDetails = details_.erase(0, requestTextLength_);
  }

 private:
  // Each call belongs to the step that it begins, or to the one at hand.
  void Before(ServiceCall call) override {
    switch (call) {
      case ServiceCall::AddComponent:
      case ServiceCall::StartSnapshotSet:
        return phases_.Enter(step::kAdding);
      case ServiceCall::PrepareForBackup:
        return phases_.Enter(step::kPreparing);
      case ServiceCall::DoSnapshotSet:
        return phases_.Enter(step::kSnapshot);
      case ServiceCall::SaveAsXML:
        return phases_.Enter(step::kReading);
      default:
        return;
    }
  }
  void After(ServiceCall call, HRESULT result) override {
    if (call == ServiceCall::GatherWriterMetadata && SUCCEEDED(result)) phases_.Enter(step::kSelecting);
  }
  void AfterAddToSnapshotSet(std::wstring_view volume, HRESULT result) override {
    if (FAILED(result)) refusedVolume_ = volume;
  }

  void Sequence() {
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
    phases_.Run(step::kGathering, [&] { Create(); });
    phases_.Run(step::kCataloguing, [&] { ReadResults(); });
    if (options_.verify) Verify();
    phases_.ThrowIfInterrupted();
  }

  // The library takes a serial number that no disk has for an extra disk; a typing error deserves a plainer word.
  void CheckDisks() {
    phases_.Run(step::kLookingForDisks, [&] {
      outcome_.enumerator.GetDisks();
      locations_.RememberAll();
    });
    RequestedDisks requested = ReadRequestedDisks(options_.disks, outcome_.enumerator, options_.acceptUnknownDisks);
    for (const std::string& warning : requested.warnings) phases_.Warn(warning);
    serialNumbers_ = std::move(requested.serialNumbers);
  }

  void ValidateHost() {
    phases_.Run(step::kCheckingHost, [&] {
      if (const DWORD code = requestor_.ValidateHostConfiguration(details_)) {
        throw ValidationFailure(code, StatusWordOfHostCheck(code));
      }
    });
  }

  void ValidateVolumes() {
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
  void CheckProvider() {
    phases_.Run(step::kLookingForProvider, [&] {
      try {
        if (requestor_.IsTesselVSSProviderPresent()) return;
        phases_.Warn("the array's VSS hardware provider is not registered on this host");
      } catch (long) {
        phases_.Warn(DescribeFailure(std::current_exception(), session_.call()).message);
      }
    });
  }

  // The library's message names neither the application nor a remedy.
  void AdviseOnMissingWriter() {
    if (!outcome_.failure || outcome_.failure->message != CatalogText(varnel::message::kNoWriter)) return;
    outcome_.failure->details.emplace_back(MissingWriterAdvice(options_.application));
  }

  void NameRefusedVolume() {
    if (!outcome_.failure || refusedVolume_.empty()) return;
    const VolumeLocation& location = locations_.Of(refusedVolume_);
    const std::wstring& name = location.mountPoint.empty() ? refusedVolume_ : location.mountPoint;
    outcome_.failure->details.push_back("for volume " + Printable(name) + " (disk " + Quoted(location.serialNumber) +
                                        ")");
  }

  // A set that exists with messages is shown like one without.
  void Create() {
    try {
      requestor_.CreateVssSnapshotSet(details_);
    } catch (const VarnelException& alert) {
      const int code = alert.GetAlertCode();
      if (code != VarnelException::PartialSuccess && code != VarnelException::ExtraVolumes) throw;
      outcome_.NoteFailure(session_);
      if (code == VarnelException::ExtraVolumes && options_.acceptExtraVolumes) {
        outcome_.failure->status = ExitStatus::Done;
        outcome_.failure->backupStatus = 0;
      }
    }
    outcome_.taken = true;
  }

  void ReadResults() {
    requestor_.GetSnapshotMeatadata(outcome_.catalog);
    if (const char* databases = requestor_.getSuccesfulDBList()) outcome_.databases = databases;
  }

  // The checker may run for hours: not on a set that is about to be deleted.
  void Verify() {
    if (outcome_.failure && !GotThrough(*outcome_.failure)) {
      phases_.Warn("--verify is left out: the request failed, and its set is deleted");
      return;
    }
    phases_.Run(step::kVerifying, [&] {
      if (options_.application == Application::Exchange) return VerifyWithChecker();
      requestor_.VerifySnapShotData();
    });
  }

  // The requestor starts the checker by its bare name. The text of its failure is the same for a checker that is not
  // there and for one that ends with the exit code 2.
  void VerifyWithChecker() {
    const std::wstring folder = ExchangeProgramFolder();
    const ProgramSearch search(folder);
    try {
      requestor_.VerifySnapShotData();
    } catch (const VarnelException& failure) {
      if (ProgramSearch::Finds(varnel::kDatabaseChecker)) throw;
      throw VarnelException(failure.GetAlertCode(), MissingChecker(folder), {failure.GetMessageText()});
    }
  }

  static std::wstring MissingChecker(const std::wstring& folder) {
    const std::wstring place = folder.empty() ? L", and the registry knows no installation of Exchange"
                                              : L" nor in " + folder + L", where Exchange is installed";
    return std::wstring(L"the checker ") + varnel::kDatabaseChecker + L" was not found on the PATH" + place +
           L": install it, or add its folder to the PATH";
  }

  void Complete() {
    const int code = outcome_.failure ? outcome_.failure->backupStatus : 0;
    outcome_.gotThrough = outcome_.taken && (!outcome_.failure || GotThrough(*outcome_.failure));
    Attempt([&] { outcome_.shadowCopies = FindShadowCopies(requestor_, locations_, outcome_.enumerator); });
    followUp_.LookBeforeCompletion();
    Attempt([&] { phases_.RunAnyway(step::kCompleting, [&] { TellWriters(code); }); });
    followUp_.LookAfterCompletion();
  }

  // Messages are no failure of the completion: the writers were told, and the set is there.
  void TellWriters(int code) {
    try {
      requestor_.SetBackupStatus(code, details_);
    } catch (const VarnelException& alert) {
      if (alert.GetAlertCode() != VarnelException::PartialSuccess) throw;
      outcome_.NoteFailure(session_);
    }
  }

  template <class Action>
  void Attempt(Action action) {
    outcome_.Attempt(session_, action);
  }

  Session& session_;
  const SnapshotOptions& options_;
  SnapshotOutcome& outcome_;
  CVarnel& requestor_ = *outcome_.requestor;
  std::string& details_ = session_.errorDetails;
  std::size_t requestTextLength_ = 0;
  Phases phases_;
  FollowUp followUp_;
  std::wstring refusedVolume_;  // that AddToSnapshotSet failed for
  std::vector<std::wstring> serialNumbers_;
  VolumeLocations locations_{outcome_.enumerator};  // as they were before the snapshot
  const WatchedHost::Watching watching_{outcome_.host, *this};
};

// An alert's message does not say where it was raised.
void NameStep(Failure& failure, Session& session) {
  const std::optional<StepName> step = std::exchange(session.failedStep, std::nullopt);
  if (!step) return;
  failure.step = step->key;
  if (failure.message.starts_with(session.call())) return;
  failure.details.insert(failure.details.begin(), "while " + session.call());
}

}  // namespace

SnapshotOutcome::SnapshotOutcome(const SnapshotOptions& options)
    : requestor(MakeRequestor(options.application, options.testPoints, options.skipDbVerification)),
      isTransportable(options.IsTransportable()) {
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

void TakeSnapshot(Session& session, const SnapshotOptions& options, SnapshotOutcome& outcome) {
  SnapshotRun(session, options, outcome).Run();
}

}  // namespace varnelctl
