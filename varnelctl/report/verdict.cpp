#include "varnelctl/report/verdict.h"

#include <algorithm>

#include "varnelctl/console/text.h"

namespace varnelctl {
namespace {

constexpr char kNothing[] = "nothing was captured";

std::string LifetimeOf(const SnapshotOutcome& outcome) {
  switch (outcome.setState) {
    case SetState::None:
      return "not taken";
    case SetState::Kept:
      return outcome.isTransportable ? "kept for the array" : "kept until it is deleted";
    case SetState::Released:
      return "until this program ends";
    case SetState::Deleted:
      return "deleted";
    case SetState::Broken:
      return "broken, its disks are ordinary read-write disks of this host";
    case SetState::Masked:
      return "broken and masked, its disks are hidden from this host";
    case SetState::Unknown:
      break;
  }
  return outcome.isTransportable ? "unknown, as this host does not see transportable sets: ask the array"
                                 : "unknown, as the service did not say whether it is still there";
}

// Why the set is in this state after a failure.
std::string WhyIn(const SnapshotOutcome& outcome) {
  if (!outcome.copiesLeft.empty()) {
    return ", because " + CountedCopies(outcome.copiesLeft.size()) + " could not be deleted";
  }
  if (outcome.gotThrough) return {};
  switch (outcome.setState) {
    case SetState::Deleted:
      return ", because the request failed";
    case SetState::Kept:
    case SetState::Released:
      return outcome.isTransportable ? ", although the request failed: deleting a transportable set is up to the array"
                                     : ", although the request failed";
    default:
      return {};
  }
}

std::string SetName(const SnapshotOutcome& outcome) {
  const std::string id = Printable(outcome.requestor->GetSnapShotSetId());
  return id.empty() ? "the set" : "set " + id;
}

std::string CopiesLeft(const SnapshotOutcome& outcome) {
  return CountedCopies(outcome.copiesLeft.size()) + " of " + SetName(outcome) +
         (outcome.copiesLeft.size() == 1 ? " is left" : " are left");
}

// What there is of the set now.
std::string WhatIsThere(const SnapshotOutcome& outcome) {
  if (!outcome.copiesLeft.empty()) return CopiesLeft(outcome);
  switch (outcome.setState) {
    case SetState::None:
      return kNothing;
    case SetState::Deleted:
      return SetName(outcome) + " was deleted";
    case SetState::Unknown:
      return "whether " + SetName(outcome) + " is still there is not known";
    default:
      return SetName(outcome) + " " + LifetimeOf(outcome);
  }
}

// What plans have, too.
Verdict CountsAndCause(const SnapshotOutcome& outcome) {
  Verdict verdict;
  verdict.gotThrough = outcome.gotThrough;
  verdict.tally = TallyOf(outcome.objects, outcome.options.application);
  if (!outcome.gotThrough) verdict.tally.captured = verdict.tally.failed = 0;
  if (!outcome.failure) return verdict;
  verdict.status = outcome.failure->status;
  if (!GotThrough(*outcome.failure)) verdict.cause = FirstSentence(outcome.failure->message);
  return verdict;
}

// Released copies are told of where they were to be deleted and could not be.
bool CanBeEndedHere(const SnapshotOutcome& outcome) {
  return !outcome.isTransportable && (outcome.setState == SetState::Kept || !outcome.copiesLeft.empty());
}

}  // namespace

Tally TallyOf(const std::vector<ApplicationObject>& objects, Application application) {
  Tally tally{0, objects.size(), 0, NounFor(application)};
  for (const ApplicationObject& object : objects) {
    if (object.IsCaptured()) ++tally.captured;
    if (object.leftOut == nullptr && object.failed) ++tally.failed;
  }
  return tally;
}

std::string TallyText(const Tally& tally) {
  std::string text = std::to_string(tally.captured) + " of " + Counted(tally.of, tally.noun);
  if (tally.failed != 0) {
    text += " (" + std::to_string(tally.failed) +
            (tally.failed == 1 ? " failed by its writer)" : " failed by their writers)");
  }
  return text;
}

std::string DescribeSet(const SnapshotOutcome& outcome) {
  const std::string id = Printable(outcome.requestor->GetSnapShotSetId());
  const char* const exists = outcome.setState == SetState::Released ? "exists " : "";
  return "Snapshot set" + (id.empty() ? id : " " + id) + ": " + exists + LifetimeOf(outcome) + WhyIn(outcome);
}

Verdict VerdictOfRefusal(std::string_view reason) {
  Verdict verdict;
  verdict.status = ExitStatus::Usage;
  verdict.set = kNothing;
  verdict.cause = FirstSentence(reason);
  return verdict;
}

Verdict VerdictOf(const SnapshotOutcome& outcome) {
  Verdict verdict = CountsAndCause(outcome);
  verdict.setState = outcome.setState;
  verdict.set = WhatIsThere(outcome);
  verdict.lifetime = LifetimeOf(outcome);
  if (CanBeEndedHere(outcome)) verdict.endWith = CommandThatEnds(Printable(outcome.requestor->GetSnapShotSetId()));
  return verdict;
}

Verdict VerdictOfPlan(const SnapshotOutcome& plan) {
  Verdict verdict = CountsAndCause(plan);
  verdict.isPlan = true;
  return verdict;
}

std::string Verdict::Text() const {
  if (!gotThrough) return isPlan ? "WOULD FAIL: " + cause : "FAILED: " + set + ": " + cause;
  const std::string text =
      (isPlan ? "WOULD CAPTURE " : "CAPTURED ") + TallyText(tally) + (cause.empty() ? "" : "; NOT ALL DONE: " + cause);
  return isPlan ? text : text + "; " + set;
}

void Verdict::NoteUndone(const std::string& what) {
  if (status == ExitStatus::Done) status = ExitStatus::NotAllDone;
  if (cause.empty()) cause = what;
}

const char* WordFor(SetState state) {
  switch (state) {
    case SetState::None:
      return "none";
    case SetState::Kept:
      return "kept";
    case SetState::Released:
      return "released";
    case SetState::Deleted:
      return "deleted";
    case SetState::Broken:
      return "broken";
    case SetState::Masked:
      return "masked";
    case SetState::Unknown:
      break;
  }
  return "unknown";
}

std::string CommandThatEnds(const std::string& setId) {
  return "varnelctl sets delete " + setId;
}

std::string_view FirstSentence(std::string_view message) {
  const std::string_view sentence = message.substr(0, message.find(". "));
  return sentence.substr(0, sentence.find_last_not_of(". ") + 1);
}

}  // namespace varnelctl
