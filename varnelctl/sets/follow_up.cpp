#include "varnelctl/sets/follow_up.h"

#include <algorithm>
#include <functional>

#include "varnelctl/console/text.h"
#include "varnelctl/explanation/advice.h"
#include "varnelctl/report/verdict.h"
#include "varnelctl/sets/snapshot_steps.h"

namespace varnelctl {

// One of the things that may be done with a set.
struct FollowUp::Step {
  std::string option;
  StepName name;
  std::optional<SetState> result;  // nothing: the set stays what it is
  std::function<void()> action;
};

void FollowUp::LookBeforeCompletion() {
  if (!outcome_.gotThrough && MayBeListed()) copiesBefore_ = AskForCopies();
}

void FollowUp::LookAfterCompletion() {
  outcome_.setState = outcome_.gotThrough ? StateOfExistingSet() : StateAfterFailure();
}

// The service lists neither what it was never asked to make nor what is not surfaced here.
bool FollowUp::MayBeListed() const {
  const std::vector<SnapshotVolumeInfo>& volumes = requestor_.GetSnapshotVolumes();
  const bool complete = !volumes.empty() && std::none_of(volumes.begin(), volumes.end(),
                                                         [](const auto& volume) { return volume.snapshotId.empty(); });
  return complete && !options_.IsTransportable();
}

SetState FollowUp::StateOfExistingSet() const {
  const bool goes = (options_.context & VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE) == 0 && !options_.IsTransportable();
  return goes ? SetState::Released : SetState::Kept;
}

SetState FollowUp::StateAfterFailure() {
  if (!MayBeListed()) {
    if (outcome_.taken) return StateOfExistingSet();
    const std::vector<SnapshotVolumeInfo>& volumes = requestor_.GetSnapshotVolumes();
    const bool begun = !volumes.empty() && !volumes.back().snapshotId.empty();
    return begun ? SetState::Unknown : SetState::None;
  }
  if (!copiesBefore_) return SetState::Unknown;
  if (copiesBefore_->empty()) return outcome_.mayCome ? SetState::Unknown : SetState::None;
  const Copies copiesAfter = AskForCopies();
  if (!copiesAfter) return SetState::Unknown;
  if (copiesAfter->empty()) return SetState::Deleted;
  outcome_.copiesLeft = *copiesAfter;
  return StateOfExistingSet();
}

FollowUp::Copies FollowUp::AskForCopies() {
  Copies copies;
  outcome_.Attempt(session_, [&] { copies = ListShadowCopies(requestor_.GetSnapShotSetId()); });
  return copies;
}

void FollowUp::TellWhatIsLeft() {
  if (!outcome_.copiesLeft.empty()) TellCopiesLeft();
  TellSessionsLeft();
  if (!outcome_.failure || outcome_.failure->status != ExitStatus::NotAllDone) return;
  if (!outcome_.sessionsLeft.empty()) outcome_.failure->explain = advice::kSessionOpen;
  if (!outcome_.copiesLeft.empty()) outcome_.failure->explain = advice::kCopiesLeft;
}

void FollowUp::TellCopiesLeft() {
  const std::wstring setId = requestor_.GetSnapShotSetId();
  std::vector<std::wstring> sources;
  for (const ListedCopy& copy : outcome_.copiesLeft) sources.push_back(SourceOf(copy));
  const char* const remedy = outcome_.setState == SetState::Released
                                 ? "; what is still there after this program has ended is deleted with: "
                                 : "; to be deleted with: ";
  outcome_.failure->details.push_back(CopiesLeftText(setId, outcome_.copiesLeft, sources) + remedy +
                                      CommandThatEnds(Printable(setId)));
}

void FollowUp::TellSessionsLeft() {
  for (const IscsiSession& session : outcome_.sessionsLeft) {
    std::string disks;
    for (const auto& disk : session.disks) disks += (disks.empty() ? "" : ", ") + NameOfDisk(disk);
    outcome_.failure->details.push_back(SessionLeftText(session.sessionId, session.targetName, disks));
  }
}

const ShadowCopyView* FollowUp::ViewOf(const std::wstring& snapshotId) const {
  for (const ShadowCopyView& view : outcome_.shadowCopies) {
    if (view.volume.snapshotId == snapshotId) return &view;
  }
  return nullptr;
}

// As people know it.
std::wstring FollowUp::SourceOf(const ListedCopy& copy) const {
  const ShadowCopyView* const view = ViewOf(copy.snapshotId);
  return view == nullptr || view->mountPoint.empty() ? copy.volume : view->mountPoint;
}

void FollowUp::Run(std::string reason) {
  if (reason.empty()) reason = WhyNothingFollows();
  for (const Step& step : StepsWanted()) {
    if (!reason.empty()) {
      phases_.Warn({"leftOut", step.option + " is left out: " + reason});
      continue;
    }
    try {
      phases_.Run(step.name, step.action);
      outcome_.setState = step.result.value_or(outcome_.setState);
    } catch (const Interrupted& ending) {
      outcome_.NoteFailure(session_);
      const bool isLate = dynamic_cast<const PastDeadline*>(&ending) != nullptr;
      reason = isLate ? "the deadline was past" : "the run was interrupted";
      phases_.Warn({"leftOut", step.option + " is left out: " + reason});
    } catch (...) {
      outcome_.NoteFailure(session_, ExitStatus::NotAllDone);
      if (!step.result) {  // what else is wanted of the set does not depend on it
        if (outcome_.sessionsLeft.empty()) outcome_.Attempt(session_, [&] { LookForSessions(); });
        continue;
      }
      reason = std::string(step.name.words) + " failed";
      LookAfterFailedStep(*step.result);
    }
  }
}

// Masked disks are no longer seen on their sessions, so these end first. Elsewhere it is the other way round: a set
// whose disks are gone can be neither broken nor deleted.
std::vector<FollowUp::Step> FollowUp::StepsWanted() {
  std::string& details = session_.errorDetails;
  std::vector<Step> steps;
  switch (options_.then) {
    case Then::Keep:
      break;
    case Then::Break:
      steps.push_back(
          {"--then break", step::kBreaking, SetState::Broken, [&] { requestor_.BreakSnapshotSet(details); }});
      break;
    case Then::Mask:
      steps.push_back({"--then mask", step::kMasking, SetState::Masked, [&] { requestor_.MaskSnapshotSet(details); }});
      break;
    case Then::Delete:
      steps.push_back({"--then delete", step::kDeleting, SetState::Deleted, [&] { Delete(); }});
      break;
  }
  if (options_.disconnect) {
    steps.insert(options_.then == Then::Mask ? steps.begin() : steps.end(),
                 Step{"--disconnect", step::kDisconnecting, std::nullopt, [&] { Disconnect(); }});
  }
  return steps;
}

void FollowUp::Delete() {
  requestor_.DeleteSnapshotSet(session_.errorDetails);
  if (MayBeListed()) RequireGone(requestor_.GetSnapShotSetId());
}

// The library gives up on a session that does not end and tells of it in its log alone.
void FollowUp::Disconnect() {
  outcome_.disconnected = true;
  requestor_.DisconnectSnapshotLuns(session_.errorDetails);
  LookForSessions();
  const std::size_t left = outcome_.sessionsLeft.size();
  if (left != 0) throw NotAllDone(Counted(left, "iSCSI session") + " of the set's disks did not end");
}

void FollowUp::LookForSessions() {
  constexpr char kQuestion[] = "whether the iSCSI sessions of the set's disks have ended";
  std::vector<TesselCommonClasses::WindowsDiskDevice> disks;
  for (const SnapshotVolumeInfo& volume : requestor_.GetSnapshotVolumes()) {
    if (volume.snapshotDeviceName.empty()) continue;  // no disk of this host
    const ShadowCopyView* const copy = ViewOf(volume.snapshotId);
    if (copy == nullptr || copy->disk.diskName.empty()) {
      throw NotAllDone(kQuestion + (" could not be checked: the disk of shadow copy " + Printable(volume.snapshotId)) +
                       " is not known");
    }
    disks.push_back(copy->disk);
  }
  outcome_.sessionsLeft = Checked(kQuestion, [&] { return FindSessionsOf(disks); });
}

std::string FollowUp::WhyNothingFollows() const {
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
void FollowUp::LookAfterFailedStep(SetState wanted) {
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

}  // namespace varnelctl
