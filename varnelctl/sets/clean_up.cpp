#include "varnelctl/sets/clean_up.h"

#include <algorithm>

#include "platform/host.h"
#include "text/unicode.h"
#include "varnelctl/console/text.h"
#include "varnelctl/explanation/advice.h"
#include "varnelctl/report/verdict.h"
#include "varnelctl/sets/set_actions.h"
#include "varnelctl/sets/shadow_copies.h"

namespace varnelctl {
namespace {

using varnel::CurrentHost;

// A set whose requestor died in DoSnapshotSet may still be made.
constexpr DWORD kMayComeMilliseconds = 60'000;
constexpr DWORD kAskAgainMilliseconds = 1'000;

JournalCopy ForJournal(const KnownCopy& copy) {
  return {copy.snapshotId, copy.volume,        copy.mountPoint,       copy.sourceDisk,
          copy.device,     copy.disk.diskName, copy.disk.serialNumber};
}

// One set after the other.
class CleanUpRun {
 public:
  explicit CleanUpRun(Session& session) : session_(session), journal_(*session.journal) {}

  std::vector<CleanUpOutcome> Run(bool dryRun) {
    std::vector<CleanUpOutcome> outcomes;
    const KnownSets known(service_, journal_);
    for (const Warning& warning : known.warnings()) session_.Warn(warning);
    for (KnownSet set : known.sets()) {
      if (!set.IsLeftover() || (!dryRun && !IsStillLeftover(set))) continue;
      CleanUpOutcome& outcome = outcomes.emplace_back();
      outcome.setId = set.id;
      outcome.file = set.entry->file;
      dryRun ? Plan(set, outcome) : End(set, outcome);
    }
    if (!dryRun) journal_.Tidy();
    return outcomes;
  }

 private:
  // Others may have seen to it while this run waited for another set.
  bool IsStillLeftover(KnownSet& set) const {
    for (JournalEntry& entry : journal_.Read().entries) {
      if (entry.file != set.entry->file) continue;
      set.entry = std::move(entry);
      return set.IsLeftover();
    }
    return false;
  }

  static void Tell(CleanUpOutcome& outcome, CleanUpResult result, std::string text) {
    outcome.result = result;
    outcome.text = std::move(text);
  }

  static CleanUpResult WhatBreakingCameTo(const JournalEntry& entry) {
    return entry.stage == JournalStage::Breaking ? CleanUpResult::Broken : CleanUpResult::Masked;
  }
  static bool WasBeingBroken(const JournalEntry& entry) {
    return entry.stage == JournalStage::Breaking || entry.stage == JournalStage::Masking;
  }

  static void Plan(const KnownSet& set, CleanUpOutcome& outcome) {
    const std::size_t copies = set.Listed().size();
    const std::string state = " (" + DescribeState(set) + ")";
    if (copies != 0) {
      Tell(outcome, CleanUpResult::Deleted, "would be deleted: " + CountedCopies(copies) + state);
    } else if (!set.entry->MayHaveSet()) {
      Tell(outcome, CleanUpResult::NothingTaken, "would be forgotten" + state);
    } else if (WasBeingBroken(*set.entry)) {
      Tell(outcome, WhatBreakingCameTo(*set.entry), "would count as done" + state);
    } else if (set.IsElsewhere()) {
      Tell(outcome, CleanUpResult::Left, "would be tried, and most likely stay" + state);
    } else {
      Tell(outcome, CleanUpResult::Gone, "would be deleted where the service still knows it" + state);
    }
  }

  void End(const KnownSet& set, CleanUpOutcome& outcome) {
    JournalEntry entry = *set.entry;
    isGone_ = false;
    try {
      EndSet(set, entry, outcome);
    } catch (...) {
      Tell(outcome, CleanUpResult::Left, DescribeFailure(std::current_exception(), "deleting the set").message);
      NoteLeft(set, entry, outcome);
    }
  }

  void EndSet(const KnownSet& set, JournalEntry& entry, CleanUpOutcome& outcome) {
    if (!entry.MayHaveSet() && !set.IsListed()) {
      journal_.Remove(entry);
      return Tell(outcome, CleanUpResult::NothingTaken, "nothing was taken: its process ended before");
    }
    if (WasBeingBroken(entry) && !set.IsListed()) return CountAsBroken(entry, outcome);
    entry.process = ThisProcess();  // nobody else works on it meanwhile
    const std::size_t deleted = DeleteCopies(set, entry);
    if (deleted == 0 && WasBeingBroken(entry)) {
      entry.process = set.entry->process;
      return CountAsBroken(entry, outcome);
    }
    if (deleted == 0 && set.IsElsewhere()) {
      throw NotAllDone("it cannot be ended here: " + DescribeState(set) +
                       "; when it is ended where it is, the journal forgets it with: " +
                       CommandThatEnds(varnel::WideToUtf8Lossy(set.id)) + " --force");
    }
    deleted == 0 ? Tell(outcome, CleanUpResult::Gone, "gone: the service knows it no more")
                 : Tell(outcome, CleanUpResult::Deleted, "deleted: " + CountedCopies(deleted));
    isGone_ = true;
    EndSessions(entry, outcome);
    if (outcome.sessionsLeft.empty()) return journal_.Remove(entry);
    outcome.result = CleanUpResult::Left;
    NoteLeft(set, entry, outcome);
  }

  // It may hold what its owner wanted.
  void CountAsBroken(JournalEntry& entry, CleanUpOutcome& outcome) {
    const CleanUpResult result = WhatBreakingCameTo(entry);
    entry.stage = JournalStage::Ended;
    entry.end = result == CleanUpResult::Broken ? JournalEnd::Broken : JournalEnd::Masked;
    journal_.Write(entry);
    Tell(outcome, result,
         result == CleanUpResult::Broken ? "counts as broken: it was to be, and the service lists it no more"
                                         : "counts as masked: it was to be, and the service lists it no more");
  }

  // How many there were. Throws what the deletion throws; NotAllDone when copies are still there.
  std::size_t DeleteCopies(const KnownSet& set, JournalEntry& entry) {
    const bool mayCome = entry.stage == JournalStage::TakingSnapshot && !set.IsElsewhere();
    std::size_t listed = Record(set.id, entry);
    for (bool again = true; again;) {
      const bool found = Delete(set.id);
      if (found) RequireGone(set.id);
      if (found) return std::max<std::size_t>(listed, 1);
      again = mayCome && WaitForCopies(set);
      if (again) listed = Record(set.id, entry);
    }
    RequireGone(set.id);
    return 0;
  }

  // False when the service knows no such set.
  bool Delete(const std::wstring& setId) {
    try {
      service_.Delete(setId);
      return true;
    } catch (long hr) {
      if (static_cast<HRESULT>(hr) != VSS_E_OBJECT_NOT_FOUND) throw;
      return false;
    }
  }

  // Until copies are listed, or the time is over in which those of any set of this run may come.
  bool WaitForCopies(const KnownSet& set) {
    varnel::Time& time = CurrentHost().time();
    if (!deadline_) {
      deadline_ = time.GetTickCount64() + kMayComeMilliseconds;
      session_.Warn({"mayStillCome", NameOf(set) +
                                         " may still come, as its process ended while the snapshot was taken: "
                                         "the service is asked again for 60 seconds"});
    }
    while (time.GetTickCount64() < *deadline_) {
      time.Sleep(kAskAgainMilliseconds);
      if (!service_.List(set.id).empty()) return true;
    }
    return false;
  }

  // What is there now is remembered before anything of it goes. \return how many copies are listed.
  std::size_t Record(const std::wstring& setId, JournalEntry& entry) {
    const KnownSets known(service_, journal_);
    std::size_t listed = 0;
    for (const KnownSet& set : known.sets()) {
      if (set.id != setId || !set.IsListed()) continue;
      listed = set.Listed().size();
      RecordCopies(set, entry);
      RecordSessions(set, known, entry);
    }
    journal_.Write(entry);
    return listed;
  }

  static void RecordCopies(const KnownSet& set, JournalEntry& entry) {
    for (const KnownCopy& copy : set.copies) {
      if (!copy.listed) continue;
      std::erase_if(entry.copies, [&](const JournalCopy& recorded) { return recorded.volume == copy.volume; });
      entry.copies.push_back(ForJournal(copy));
    }
  }

  // Where the initiator does not answer nothing is to be remembered.
  static void RecordSessions(const KnownSet& set, const KnownSets& known, JournalEntry& entry) {
    if (set.Disks().empty()) return;
    try {
      for (const SessionOfSet& session : ReadSessions(set.Disks(), known.DisksOfOthers(set.id))) {
        if (session.own.empty() || IsRecorded(entry, session.session)) continue;
        JournalSession& recorded = entry.sessions.emplace_back();
        recorded.targetName = session.session.targetName;
        recorded.sessionId = session.session.sessionId;
        for (const auto& disk : session.own) {
          recorded.disks.push_back(disk.serialNumber.empty() ? disk.diskName : disk.serialNumber);
        }
      }
    } catch (const CallFailure&) {
      return;
    }
  }
  static bool IsRecorded(const JournalEntry& entry, const OpenSession& session) {
    return std::any_of(entry.sessions.begin(), entry.sessions.end(), [&](const JournalSession& recorded) {
      return recorded.targetName == session.targetName && recorded.sessionId == session.sessionId;
    });
  }

  // Of those that were recorded, the ones that carry nothing else now.
  void EndSessions(const JournalEntry& entry, CleanUpOutcome& outcome) {
    if (entry.sessions.empty()) return;
    const KnownSets known(service_, journal_);
    const std::vector<TesselCommonClasses::WindowsDiskDevice> disks = DisksOf(entry);
    std::size_t ended = 0;
    std::vector<std::string> stay;
    std::vector<SessionOfSet> sessions = Checked("whether the set's iSCSI sessions have ended",
                                                 [&] { return ReadSessions(disks, known.DisksOfOthers(entry.setId)); });
    for (SessionOfSet& session : sessions) {
      if (!IsRecorded(entry, session.session)) continue;
      if (session.others.empty() && LogOut(session.session)) {
        ++ended;
      } else if (!session.others.empty() && session.own.empty()) {
        stay.push_back("iSCSI session " + session.session.sessionId + " stays, as it carries " + session.Carries());
      } else {
        outcome.sessionsLeft.push_back(std::move(session));
      }
    }
    if (ended != 0) outcome.text += "; " + Counted(ended, "iSCSI session") + " ended";
    for (const std::string& text : stay) outcome.text += "; " + text;
    const std::size_t left = outcome.sessionsLeft.size();
    if (left != 0) outcome.text += "; " + Counted(left, "iSCSI session") + " did not end";
  }

  // Of the copies, as they were recorded.
  static std::vector<TesselCommonClasses::WindowsDiskDevice> DisksOf(const JournalEntry& entry) {
    KnownSet recorded;
    for (const JournalCopy& copy : entry.copies) recorded.copies.push_back(FromJournal(copy));
    return recorded.Disks();
  }

  // It stays journalled, and is told with what is left of it.
  void NoteLeft(const KnownSet& set, JournalEntry& entry, CleanUpOutcome& outcome) {
    Failure failure;
    try {
      outcome.copiesLeft = service_.List(set.id);
      entry.process = set.entry->process;
      const bool mayCome = entry.stage == JournalStage::TakingSnapshot && !isGone_;
      if (!WasBeingBroken(entry) && (!mayCome || !outcome.copiesLeft.empty())) {
        entry.stage = JournalStage::Ended;
        entry.end = JournalEnd::ToBeEnded;
      }
      journal_.Write(entry);
    } catch (const std::exception&) {
      failure.details.push_back(DescribeFailure(std::current_exception(), {}).message);
    }
    TellLeft(failure, set, outcome.copiesLeft, outcome.sessionsLeft);
    outcome.details = std::move(failure.details);
  }

  Session& session_;
  const Journal journal_;
  const SetService service_;
  bool isGone_ = false;                // the set at hand
  std::optional<ULONGLONG> deadline_;  // for what may still come; nothing before it is waited for
};

}  // namespace

const char* WordFor(CleanUpResult result) {
  switch (result) {
    case CleanUpResult::NothingTaken:
      return "nothingTaken";
    case CleanUpResult::Deleted:
      return "deleted";
    case CleanUpResult::Gone:
      return "gone";
    case CleanUpResult::Broken:
      return "broken";
    case CleanUpResult::Masked:
      return "masked";
    case CleanUpResult::Left:
      break;
  }
  return "left";
}

std::vector<CleanUpOutcome> CleanUp(Session& session, bool dryRun) {
  if (!session.journal) {
    throw UsageError(
        "sets clean-up ends what the journal remembers, and there is none: name its folder with --journal");
  }
  return CleanUpRun(session).Run(dryRun);
}

std::optional<Failure> FailureOf(const std::vector<CleanUpOutcome>& outcomes) {
  Failure failure;
  std::size_t left = 0;
  bool areCopiesLeft = false;
  bool areSessionsLeft = false;
  for (const CleanUpOutcome& outcome : outcomes) {
    if (outcome.result != CleanUpResult::Left) continue;
    ++left;
    failure.details.push_back("set " + Printable(outcome.setId) + ": " + outcome.text);
    failure.details.insert(failure.details.end(), outcome.details.begin(), outcome.details.end());
    areCopiesLeft = areCopiesLeft || !outcome.copiesLeft.empty();
    areSessionsLeft = areSessionsLeft || !outcome.sessionsLeft.empty();
  }
  if (left == 0) return std::nullopt;
  failure.status = ExitStatus::NotAllDone;
  failure.message = std::to_string(left) + " of " + Counted(outcomes.size(), "set") + " could not be ended";
  failure.explain = areCopiesLeft     ? advice::kCopiesLeft
                    : areSessionsLeft ? advice::kSessionOpen
                                      : advice::kSetElsewhere;
  return failure;
}

void TellLeftovers(Session& session, const Journal::Content& content) {
  const auto isLeftover = [](const JournalEntry& entry) {
    return entry.IsLeftover() && entry.MayHaveSet() && !entry.isRunning;
  };
  const auto count =
      static_cast<std::size_t>(std::count_if(content.entries.begin(), content.entries.end(), isLeftover));
  if (count != 0) {
    session.Warn({"leftovers", Counted(count, "earlier request") +
                                   " may have left sets behind: varnelctl sets list shows them, varnelctl sets "
                                   "clean-up ends them"});
  }
  if (content.faults.empty()) return;
  session.Warn({"journalFault", Counted(content.faults.size(), "file") +
                                    " of the journal cannot be read and may remember a set: varnelctl sets list names "
                                    "each with its reason"});
}

}  // namespace varnelctl
