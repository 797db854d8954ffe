#include "varnelctl/sets/snapshot_run.h"

#include "varnelctl/sets/database_check.h"
#include "varnelctl/sets/follow_up.h"
#include "varnelctl/sets/request_journal.h"
#include "varnelctl/sets/request_lock.h"
#include "varnelctl/sets/request_run.h"
#include "varnelctl/sets/snapshot_steps.h"

namespace varnelctl {
namespace {

class SnapshotRun final : private RequestRun, private RequestWatcher {
 public:
  SnapshotRun(Session& session, const SnapshotOptions& options, SnapshotOutcome& outcome)
      : RequestRun(session, options, outcome),
        followUp_(session, options, outcome, phases_),
        journal_(session, options, outcome) {}

  void Run() {
    Attempt([&] {
      journal_.BeginRequest();
      Sequence();
    });
    ExplainFailure(refusedVolume_);
    Complete();
    followUp_.Run(WhyNotRemembered());
    followUp_.TellWhatIsLeft();
    journal_.NoteEnd();
    Conclude();
    if (outcome_.taken) FindProvider();
  }

 private:
  // Each call belongs to the step that it begins, or to the one at hand.
  void Before(ServiceCall call) override {
    Remember(call);
    if (call == ServiceCall::GatherWriterStatus) BeginStates();
    switch (call) {
      case ServiceCall::AddComponent:
        return phases_.Enter(step::kAdding);
      case ServiceCall::StartSnapshotSet:  // the selection is final, and no writer was asked to prepare
        phases_.Enter(step::kAdding);
        return CheckRequirement();
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
    if (FAILED(result) && !outcome_.failedCall) outcome_.failedCall = {call, result};
    if (call == ServiceCall::GatherWriterMetadata && SUCCEEDED(result)) phases_.Enter(step::kSelecting);
    if (call == ServiceCall::DoSnapshotSet && SUCCEEDED(result)) journal_.NoteTaken();
  }
  // The identifier is remembered before anything is done to the set.
  void Remember(ServiceCall call) {
    if (const auto setId = std::exchange(newSet_, std::nullopt)) journal_.NameSet(*setId);
    if (call == ServiceCall::DoSnapshotSet) journal_.BeginSnapshot();
  }
  void AfterStartSnapshotSet(const VSS_ID& setId) override { newSet_ = setId; }
  void AfterAddToSnapshotSet(std::wstring_view volume, HRESULT result) override {
    if (FAILED(result)) refusedVolume_ = volume;
  }

  void AfterGetWriterStatus(const WriterStatusTold& status) override {
    if (!outcome_.writerStates.empty()) outcome_.writerStates.back().writers.push_back(status);
  }
  void BeginStates() {
    const Step* const step = phases_.AtHand();
    outcome_.writerStates.push_back({step == nullptr ? "" : step->name.key, phases_.Now(), {}});
  }

  void Sequence() {
    Begin();
    TakeSet();
    phases_.Run(step::kCataloguing, [&] { ReadResults(); });
    if (options_.verify) Verify();
    phases_.ThrowIfInterrupted();
  }

  // Requests of varnelctl wait for each other so long and no longer: what follows may take hours.
  void TakeSet() {
    const auto turn = TakeTurn(session_, phases_, std::chrono::seconds(options_.waitForOthers));
    phases_.Run(step::kGathering, [&] { Create(); });
  }

  // A set that exists with messages is shown like one without.
  void Create() {
    try {
      requestor_.CreateVssSnapshotSet(details_);
    } catch (const VarnelException& alert) {
      NoteMessages(alert);
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
      phases_.Warn({"leftOut", "--verify is left out: the request failed, and its set is deleted"});
      return;
    }
    phases_.Run(step::kVerifying, [&] {
      if (options_.application == Application::Exchange) return VerifyExchangeFiles(requestor_);
      requestor_.VerifySnapShotData();
    });
  }

  void Complete() {
    limits_.BeginCompletion();
    const int code = outcome_.failure ? outcome_.failure->backupStatus : 0;
    outcome_.gotThrough = outcome_.taken && (!outcome_.failure || GotThrough(*outcome_.failure));
    Attempt([&] { outcome_.shadowCopies = FindShadowCopies(requestor_, locations_, outcome_.enumerator); });
    outcome_.mayCome = limits_.MayLeaveSet();
    journal_.NoteCopies();
    followUp_.LookBeforeCompletion();
    if (limits_.LeftSet() && !options_.IsTransportable()) Attempt([&] { requestor_.DeleteSnapshotSet(details_); });
    Attempt([&] { phases_.RunAnyway(step::kCompleting, [&] { TellWriters(code); }); });
    followUp_.LookAfterCompletion();
    journal_.NoteCompleted();
  }

  // Messages are no failure of the completion: the writers were told, and the set is there.
  void TellWriters(int code) {
    try {
      requestor_.SetBackupStatus(code, details_);
    } catch (const VarnelException& alert) {
      if (alert.GetAlertCode() != VarnelException::PartialSuccess) throw;
      outcome_.NoteFailure(session_);
    }
    outcome_.completed = true;
  }

  // What is not remembered is not begun.
  std::string WhyNotRemembered() {
    try {
      journal_.BeginFollowUp();
      return {};
    } catch (const JournalError&) {
      outcome_.NoteFailure(session_, ExitStatus::NotAllDone);
      return "the journal cannot be written";
    }
  }

  // For its name alone.
  void FindProvider() {
    try {
      outcome_.providers = ReadProviders();
      for (const Provider& provider : outcome_.providers) {
        if (provider.IsArrayProvider()) outcome_.provider = provider;
      }
    } catch (const CallFailure&) {
      return;  // its identifier is known all the same
    }
  }

  FollowUp followUp_;
  RequestJournal journal_;
  std::optional<VSS_ID> newSet_;  // not yet remembered
  std::wstring refusedVolume_;    // that AddToSnapshotSet failed for
  const WatchedHost::Watching watching_{outcome_.host, *this};
};

}  // namespace

void TakeSnapshot(Session& session, const SnapshotOptions& options, SnapshotOutcome& outcome) {
  SnapshotRun(session, options, outcome).Run();
}

}  // namespace varnelctl
