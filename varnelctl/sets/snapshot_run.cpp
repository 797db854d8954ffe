#include "varnelctl/sets/snapshot_run.h"

#include <algorithm>
#include <functional>
#include <set>

#include "core/alerts.h"
#include "core/configuration.h"
#include "platform/ansi.h"
#include "resources/catalog.h"
#include "text/ascii_case.h"
#include "text/unicode.h"
#include "varnelctl/console/text.h"
#include "varnelctl/exchange_installation.h"
#include "varnelctl/program_search.h"

namespace varnelctl {
namespace {

using TesselCommonClasses::WindowsDiskDevice;

std::wstring Trimmed(const std::wstring& text) {
  const std::size_t first = text.find_first_not_of(L' ');
  return first == text.npos ? std::wstring() : text.substr(first, text.find_last_not_of(L' ') - first + 1);
}

// What the user may have meant by a serial number that no disk has.
std::string HintFor(const std::wstring& serialNumber, const std::vector<WindowsDiskDevice>& disks) {
  for (const WindowsDiskDevice& disk : disks) {
    if (!disk.serialNumber.empty() &&
        varnel::ascii::EqualIgnoringCase(Trimmed(disk.serialNumber), Trimmed(serialNumber))) {
      return "; there is " + Quoted(disk.serialNumber);
    }
  }
  return {};
}

// The host check tells its status word in the alert record only.
const char* StatusWordOfHostCheck(DWORD catalogId) {
  constexpr DWORD kUnsupportedOsId = 254;
  return catalogId == kUnsupportedOsId ? varnel::alert::kUnsupportedOs.tag : varnel::alert::kMissingHotfixes.tag;
}

// Messages about a set that exists, as opposed to a failure.
bool GotThrough(const Failure& failure) {
  return failure.alertCode == VarnelException::PartialSuccess || failure.status == ExitStatus::Done;
}

// One of the things that may be done with a set.
struct Step {
  std::string option;
  std::string phase;
  std::optional<SetState> result;  // nothing: the set stays what it is
  std::function<void()> action;
  std::optional<ExitStatus> failed = {};  // how a run ends over it; nothing: as its failure says
};

class SnapshotRun {
 public:
  SnapshotRun(Session& session, const SnapshotOptions& options, SnapshotOutcome& outcome)
      : session_(session), options_(options), outcome_(outcome), phases_(session) {
    for (const std::string& disk : options.disks) serialNumbers_.push_back(varnel::Utf8ToWideLossy(disk));
  }

  void Run() {
    Attempt([&] { Sequence(); });
    AdviseOnMissingWriter();
    Complete();
    FollowUp();
    TellCopiesLeft();
    phases_.StopWatching();
    for (const VssWriter& writer : requestor_.GetWriters()) outcome_.explanation.push_back({&writer, Reason::None, {}});
    Attempt([&] {
      outcome_.explanation = Explain(requestor_.GetWriters(), options_.application, serialNumbers_, locations_);
    });
    outcome_.phases = phases_.list();
    outcome_.errorDetails = details_.erase(0, requestTextLength_);
  }

 private:
  using Copies = std::optional<std::vector<ListedCopy>>;  // nothing: the service did not say

  void Sequence() {
    CheckDisks();
    ValidateHost();
    ValidateVolumes();
    CheckProvider();
    details_ = "writer=" + std::to_string(options_.writerCode) + ",";
    requestTextLength_ = details_.size();
    phases_.Run("Initialize", [&] {
      requestor_.SetInputDriveSerialNos(serialNumbers_);
      requestor_.Initialize(options_.context, L"", false, options_.backupType, details_, &outcome_.enumerator);
    });
    phases_.Run("CreateVssSnapshotSet", [&] { Create(); });
    phases_.Run("GetSnapshotMeatadata", [&] { ReadResults(); });
    if (options_.verify) Verify();
    phases_.ThrowIfInterrupted();
  }

  // The library takes a serial number that no disk has for an extra disk; a typing error deserves a plainer word.
  void CheckDisks() {
    phases_.Run("EnumerateDisks", [&] {
      const std::vector<WindowsDiskDevice>& disks = outcome_.enumerator.GetDisks();
      locations_.RememberAll();
      std::set<std::wstring> seen;
      for (const std::wstring& serialNumber : serialNumbers_) {
        if (!seen.insert(serialNumber).second) {
          phases_.Warn("--disk names " + Quoted(serialNumber) + " twice; the library counts it twice, too");
        }
        const bool known = std::any_of(disks.begin(), disks.end(),
                                       [&](const auto& disk) { return disk.serialNumber == serialNumber; });
        if (!known) {
          phases_.Warn("no disk of this host has serial " + Quoted(serialNumber) + HintFor(serialNumber, disks));
        }
      }
    });
  }

  void ValidateHost() {
    phases_.Run("ValidateHostConfiguration", [&] {
      if (const DWORD code = requestor_.ValidateHostConfiguration(details_)) {
        throw ValidationFailure(code, StatusWordOfHostCheck(code));
      }
    });
  }

  void ValidateVolumes() {
    phases_.Run("ValidateVolumes", [&] {
      std::vector<std::string> volumes;
      for (const std::wstring& serialNumber : serialNumbers_) {
        std::vector<std::wstring> names;
        outcome_.enumerator.GetUniqueVolumeNamesForDisk(serialNumber, names);
        for (const std::wstring& name : names) volumes.push_back(varnel::WideToAnsi(name));
      }
      std::string status;
      if (const DWORD code = requestor_.ValidateVolumes(volumes, status, details_, options_.disks, "")) {
        throw ValidationFailure(code, status);
      }
    });
  }

  // A provider that is missing, or cannot be asked for, makes a later step fail with its own message; a warning says it
  // early. The writers are not looked for here: every writer would have to identify itself twice, which costs half a
  // minute on a large server, and the request says itself that none is there.
  void CheckProvider() {
    constexpr char kPhase[] = "IsTesselVSSProviderPresent";
    phases_.Run(kPhase, [&] {
      try {
        if (requestor_.IsTesselVSSProviderPresent()) return;
        phases_.Warn("the array's VSS hardware provider is not registered on this host");
      } catch (long) {
        phases_.Warn(DescribeFailure(std::current_exception(), kPhase).message);
      }
    });
  }

  // The library's message names neither the application nor a remedy.
  void AdviseOnMissingWriter() {
    if (!outcome_.failure || outcome_.failure->message != CatalogText(varnel::message::kNoWriter)) return;
    outcome_.failure->details.emplace_back(MissingWriterAdvice(options_.application));
  }

  // A set that exists with messages is shown like one without.
  void Create() {
    try {
      requestor_.CreateVssSnapshotSet(details_);
    } catch (const VarnelException& alert) {
      const int code = alert.GetAlertCode();
      if (code != VarnelException::PartialSuccess && code != VarnelException::ExtraVolumes) throw;
      NoteFailure();
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
    phases_.Run("VerifySnapShotData", [&] {
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

  // The set is looked at before and after only where its state cannot be told otherwise.
  void Complete() {
    const int code = outcome_.failure ? outcome_.failure->backupStatus : 0;
    outcome_.gotThrough = outcome_.taken && (!outcome_.failure || GotThrough(*outcome_.failure));
    Attempt([&] { outcome_.shadowCopies = FindShadowCopies(requestor_, locations_, outcome_.enumerator); });
    const Copies copiesBefore = !outcome_.gotThrough && MayBeListed() ? AskForCopies() : std::nullopt;
    Attempt([&] { phases_.RunAnyway("SetBackupStatus", [&] { TellWriters(code); }); });
    outcome_.setState = outcome_.gotThrough ? StateOfExistingSet() : StateAfterFailure(copiesBefore);
  }

  // Messages are no failure of the completion: the writers were told, and the set is there.
  void TellWriters(int code) {
    try {
      requestor_.SetBackupStatus(code, details_);
    } catch (const VarnelException& alert) {
      if (alert.GetAlertCode() != VarnelException::PartialSuccess) throw;
      NoteFailure();
    }
  }

  // The service lists neither what it was never asked to make nor what is not surfaced here.
  bool MayBeListed() const {
    const std::vector<SnapshotVolumeInfo>& volumes = requestor_.GetSnapshotVolumes();
    const bool complete = !volumes.empty() && std::none_of(volumes.begin(), volumes.end(), [](const auto& volume) {
      return volume.snapshotId.empty();
    });
    return complete && !options_.IsTransportable();
  }

  SetState StateOfExistingSet() const {
    const bool goes = (options_.context & VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE) == 0 && !options_.IsTransportable();
    return goes ? SetState::Released : SetState::Kept;
  }

  SetState StateAfterFailure(const Copies& copiesBefore) {
    if (!MayBeListed()) {
      if (outcome_.taken) return StateOfExistingSet();
      const std::vector<SnapshotVolumeInfo>& volumes = requestor_.GetSnapshotVolumes();
      const bool begun = !volumes.empty() && !volumes.back().snapshotId.empty();
      return begun ? SetState::Unknown : SetState::None;
    }
    if (!copiesBefore) return SetState::Unknown;
    if (copiesBefore->empty()) return SetState::None;
    const Copies copiesAfter = AskForCopies();
    if (!copiesAfter) return SetState::Unknown;
    if (copiesAfter->empty()) return SetState::Deleted;
    outcome_.copiesLeft = *copiesAfter;
    return StateOfExistingSet();
  }

  Copies AskForCopies() {
    Copies copies;
    Attempt([&] { copies = ListShadowCopies(requestor_.GetSnapShotSetId()); });
    return copies;
  }

  // The library tells of them in its log alone.
  void TellCopiesLeft() {
    if (outcome_.copiesLeft.empty()) return;
    const std::string setId = Printable(requestor_.GetSnapShotSetId());
    std::string copies;
    for (const ListedCopy& copy : outcome_.copiesLeft) {
      copies += (copies.empty() ? "" : ", ") + Printable(SourceOf(copy)) + " (shadow copy " +
                Printable(copy.snapshotId) + ")";
    }
    const char* const remedy =
        outcome_.setState == SetState::Released
            ? "; what is still there after this program has ended is deleted in diskshadow with: "
            : "; to be deleted in diskshadow with: ";
    outcome_.failure->details.push_back("left of snapshot set " + setId + ": " + copies + remedy +
                                        "delete shadows set " + setId);
  }

  // As people know it.
  std::wstring SourceOf(const ListedCopy& copy) const {
    for (const ShadowCopyView& view : outcome_.shadowCopies) {
      if (view.volume.snapshotId == copy.snapshotId && !view.mountPoint.empty()) return view.mountPoint;
    }
    return copy.volume;
  }

  void FollowUp() {
    std::string reason = WhyNothingFollows();
    for (const Step& step : StepsWanted()) {
      if (!reason.empty()) {
        phases_.Warn(step.option + " is left out: " + reason);
        continue;
      }
      try {
        phases_.Run(step.phase, step.action);
        outcome_.setState = step.result.value_or(outcome_.setState);
      } catch (const Interrupted&) {
        NoteFailure();
        reason = "the run was interrupted";
        phases_.Warn(step.option + " is left out: " + reason);
      } catch (...) {
        NoteFailure(step.failed);
        if (!step.result) continue;  // what else is wanted of the set does not depend on it
        reason = step.phase + " failed";
        LookAfterFailedStep(*step.result);
      }
    }
  }

  // Masked disks are no longer seen on their sessions, so these end first. Elsewhere it is the other way round: a set
  // whose disks are gone can be neither broken nor deleted.
  std::vector<Step> StepsWanted() {
    std::vector<Step> steps;
    switch (options_.then) {
      case Then::Keep:
        break;
      case Then::Break:
        steps.push_back(
            {"--then break", "BreakSnapshotSet", SetState::Broken, [this] { requestor_.BreakSnapshotSet(details_); }});
        break;
      case Then::Mask:
        steps.push_back(
            {"--then mask", "MaskSnapshotSet", SetState::Masked, [this] { requestor_.MaskSnapshotSet(details_); }});
        break;
      case Then::Delete:
        steps.push_back({"--then delete", "DeleteSnapshotSet", SetState::Deleted,
                         [this] { requestor_.DeleteSnapshotSet(details_); }, ExitStatus::NotAllDone});
        break;
    }
    if (options_.disconnect) {
      steps.insert(options_.then == Then::Mask ? steps.begin() : steps.end(),
                   Step{"--disconnect", "DisconnectSnapshotLuns", std::nullopt,
                        [this] { requestor_.DisconnectSnapshotLuns(details_); }});
    }
    return steps;
  }

  std::string WhyNothingFollows() const {
    if (outcome_.gotThrough) return {};
    switch (outcome_.setState) {
      case SetState::None:
        return "no snapshot set was taken";
      case SetState::Deleted:
        return "the set was deleted because the request failed";
      default:
        return "the request failed";
    }
  }

  // Part of the set may be gone.
  void LookAfterFailedStep(SetState wanted) {
    if (!MayBeListed()) return;
    const Copies copies = AskForCopies();
    if (!copies) {
      outcome_.setState = SetState::Unknown;
    } else if (copies->empty()) {
      outcome_.setState = wanted == SetState::Deleted ? SetState::Deleted : SetState::Unknown;
    } else if (wanted == SetState::Deleted || copies->size() < outcome_.shadowCopies.size()) {
      outcome_.copiesLeft = *copies;
    }
  }

  template <class Action>
  void Attempt(Action action) {
    try {
      action();
    } catch (...) {
      NoteFailure();
    }
  }

  // The first failure is the outcome of the request and replaces mere messages; what else fails is a detail.
  // `status` takes the place of the failure's own.
  void NoteFailure(std::optional<ExitStatus> status = {}) {
    Failure failure = DescribeFailure(std::current_exception(), session_.call());
    failure.status = status.value_or(failure.status);
    std::optional<Failure>& first = outcome_.failure;
    if (!first || (GotThrough(*first) && !GotThrough(failure))) {
      if (first) {
        failure.details.push_back(first->message);
        failure.details.insert(failure.details.end(), first->details.begin(), first->details.end());
      }
      first = std::move(failure);
      return;
    }
    // An alert's message does not say where it was raised.
    std::string detail = failure.alertCode == 0 ? failure.message : session_.call() + ": " + failure.message;
    std::vector<std::string>& details = first->details;
    if (std::find(details.begin(), details.end(), detail) == details.end()) details.push_back(std::move(detail));
  }

  Session& session_;
  const SnapshotOptions& options_;
  SnapshotOutcome& outcome_;
  CVarnel& requestor_ = *outcome_.requestor;
  std::string& details_ = session_.errorDetails;
  std::size_t requestTextLength_ = 0;
  Phases phases_;
  std::vector<std::wstring> serialNumbers_;
  VolumeLocations locations_{outcome_.enumerator};  // as they were before the snapshot
};

}  // namespace

SnapshotOutcome::SnapshotOutcome(const SnapshotOptions& options)
    : requestor(MakeRequestor(options.application, options.testPoints, options.skipDbVerification)),
      isTransportable(options.IsTransportable()) {
  requestor->SetDiskAndVolumeEnumeratorObj(&enumerator);
}

void TakeSnapshot(Session& session, const SnapshotOptions& options, SnapshotOutcome& outcome) {
  SnapshotRun(session, options, outcome).Run();
}

}  // namespace varnelctl
