#include "varnelctl/sets/set_actions.h"

#include <algorithm>

#include "core/logging.h"
#include "core/provider.h"
#include "varnelctl/console/phases.h"
#include "varnelctl/console/text.h"
#include "varnelctl/explanation/advice.h"
#include "varnelctl/explanation/next_step.h"
#include "varnelctl/report/verdict.h"
#include "varnelctl/sets/shadow_copies.h"
#include "varnelctl/sets/snapshot_steps.h"

namespace varnelctl {
namespace {

// What belongs to an action.
struct ActionKind {
  SetAction action = SetAction::Delete;
  const char* word = "";
  const char* done = "";  // "it is ..."
  StepName step = step::kDeleting;
  JournalStage stage = JournalStage::Ended;  // while it is done
  JournalEnd end = JournalEnd::Kept;
  const char* call = "";
};

constexpr ActionKind kActionKinds[] = {
    {SetAction::Break, "break", "broken", step::kBreaking, JournalStage::Breaking, JournalEnd::Broken,
     "IVssBackupComponents::BreakSnapshotSet"},
    {SetAction::Mask, "mask", "masked", step::kMasking, JournalStage::Masking, JournalEnd::Masked,
     "IVssBackupComponentsEx2::BreakSnapshotSetEx, masking the disks,"},
    {SetAction::Disconnect, "disconnect", "disconnected", step::kDisconnecting, JournalStage::Ended, JournalEnd::Kept,
     "LogoutIScsiTarget"},
    {SetAction::Delete, "delete", "deleted", step::kDeleting, JournalStage::Deleting, JournalEnd::Deleted,
     "IVssBackupComponents::DeleteSnapshots, by force,"},
};

const ActionKind& KindOf(SetAction action) {
  return kActionKinds[static_cast<std::size_t>(action)];
}

bool HasAny(const ListedCopy& copy, LONG attributes) {
  return (copy.attributes & attributes) != 0;
}

std::string WhyInUse(const KnownSet& set) {
  const std::string process = ProcessText(*set.entry) + ", still runs";
  if (set.entry->end == JournalEnd::Released) return NameOf(set) + " goes by itself when its process ends: " + process;
  return NameOf(set) + " belongs to a request that is not done: " + process;
}

// A set that no varnelctl remembers may be in use by anybody.
std::string WhyNotOurs(SetAction action, const KnownSet& set, const KnownSets& known) {
  const std::string all = std::string("; with --force it is ") + KindOf(action).done + " all the same";
  for (const KnownCopy& copy : set.copies) {
    if (copy.listed->provider == varnel::ArrayProviderId()) continue;
    return NameOf(set) + " was not made by varnelctl: its shadow copy of " + Printable(copy.Source()) +
           " is of provider " + known.NameOfProvider(copy.listed->provider) + all;
  }
  const bool stays = HasAny(*set.copies.front().listed, VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE);
  return stays ? std::string()
               : NameOf(set) + " goes by itself when the program that made it ends, which may need it" + all;
}

std::string WhyNotBroken(SetAction action, const KnownSet& set) {
  const std::string cannot = NameOf(set) + " cannot be " + KindOf(action).done;
  if (!set.IsListed()) return cannot + " here, as the service does not list it: " + DescribeState(set);
  for (const KnownCopy& copy : set.copies) {
    if (!copy.listed) continue;
    const std::string which = cannot + ": its shadow copy of " + Printable(copy.Source());
    if (!HasAny(*copy.listed, VSS_VOLSNAP_ATTR_HARDWARE_ASSISTED)) {
      return which + " is no hardware copy and has no disk of its own";
    }
    if (HasAny(*copy.listed, VSS_VOLSNAP_ATTR_NOT_SURFACED)) return which + " is transportable and not on this host";
  }
  return {};
}

std::string CopyAndDisk(const KnownCopy& copy) {
  std::string text = "shadow copy " + Printable(copy.snapshotId) + " of " + Printable(copy.Source());
  if (!copy.disk.diskName.empty()) text += " on disk " + NameOfDisk(copy.disk);
  return text;
}

std::string SessionAndDisks(const SessionOfSet& session) {
  return "iSCSI session " + session.session.sessionId + " to target " + Printable(session.session.targetName) +
         ", which carries " + session.Carries();
}

class ActionRun {
 public:
  ActionRun(Session& session, SetAction action, const std::string& id, bool force)
      : session_(session),
        kind_(KindOf(action)),
        force_(force),
        known_(service_, session.journal),
        set_(known_.Find(id)),
        entry_(set_.entry) {
    for (const Warning& warning : known_.warnings()) session_.Warn(warning);
    if (std::string reason = WhyNot(action, set_, known_, force); !reason.empty()) throw UsageError(reason);
    outcome_.action = action;
    outcome_.setId = set_.id;
  }

  ActionOutcome Plan() {
    outcome_.text = std::string("nothing was done: this was a dry run for ") + NameOf(set_);
    kind_.action == SetAction::Disconnect ? PlanSessions() : PlanCopies();
    if (entry_) outcome_.plan.push_back("would write what becomes of it into " + ShownPath(entry_->file));
    return std::move(outcome_);
  }

  ActionOutcome Do() {
    Phases phases(session_);
    phases.ThrowIfInterrupted();
    NoteBegin();
    try {
      phases.RunAnyway(kind_.step, [&] { Act(); });
    } catch (...) {
      NoteFailure();
    }
    NoteEnd();
    Conclude();
    return std::move(outcome_);
  }

 private:
  void PlanCopies() {
    outcome_.plan.push_back(std::string("would call ") + kind_.call + " for " + NameOf(set_));
    for (const KnownCopy& copy : set_.copies) {
      outcome_.plan.push_back((copy.listed ? "  " : "  not listed: ") + CopyAndDisk(copy));
    }
  }
  void PlanSessions() {
    for (const SessionOfSet& session : SessionsOfDisks()) {
      outcome_.plan.push_back((session.others.empty() ? "would end " : "would leave ") + SessionAndDisks(session));
    }
    if (outcome_.plan.empty()) outcome_.plan.emplace_back("no iSCSI session carries a disk of it");
  }

  std::vector<SessionOfSet> SessionsOfDisks() const {
    std::vector<SessionOfSet> sessions = ReadSessions(set_.Disks(), known_.DisksOfOthers(set_.id));
    std::erase_if(sessions, [](const SessionOfSet& session) { return session.own.empty(); });
    return sessions;
  }

  void Act() {
    switch (kind_.action) {
      case SetAction::Break:
        return service_.Break(set_.id, session_.errorDetails);
      case SetAction::Mask:
        return service_.Mask(set_.id, session_.errorDetails);
      case SetAction::Disconnect:
        return Disconnect();
      case SetAction::Delete:
        return Delete();
    }
  }

  void Delete() {
    try {
      service_.Delete(set_.id);
    } catch (long hr) {
      if (static_cast<HRESULT>(hr) != VSS_E_OBJECT_NOT_FOUND) throw;
      if (!MayCountAsGone()) throw NotAllDone(WhyNotFound(), VSS_E_OBJECT_NOT_FOUND);
      wasGone_ = true;
    }
    RequireGone(set_.id);
  }

  // Where the service knows no such set. One that somebody wants may only be out of sight.
  bool MayCountAsGone() const {
    const bool isWanted = entry_ && entry_->end == JournalEnd::Kept;
    return force_ || set_.IsListed() || (set_.WouldBeListed() && !isWanted);
  }

  std::string WhyNotFound() const {
    if (set_.IsLeftover() && !set_.IsElsewhere()) {
      return NameOf(set_) + " cannot be deleted now: " + DescribeState(set_) + "; varnelctl sets clean-up sees to it";
    }
    return NameOf(set_) + " cannot be deleted here: " + DescribeState(set_) +
           "; when it is ended where it is, the journal forgets it with: " +
           CommandThatEnds(varnel::WideToUtf8Lossy(set_.id)) + " --force";
  }

  void Disconnect() {
    constexpr char kQuestion[] = "whether the iSCSI sessions of the set's disks have ended";
    varnel::kLog.Info(L"Disconnecting snapshot LUNs...");
    for (SessionOfSet& session : SessionsOfDisks()) {
      if (session.others.empty() && LogOut(session.session)) ++ended_;
    }
    outcome_.sessionsLeft = Checked(kQuestion, [&] { return SessionsOfDisks(); });
    const std::size_t left = outcome_.sessionsLeft.size();
    if (left != 0) throw NotAllDone(Counted(left, "iSCSI session") + " of the set's disks did not end");
  }

  // So that a process that ends now leaves the truth. What is kept goes on being kept until it is something else.
  void NoteBegin() {
    if (!entry_) return;
    if (kind_.action == SetAction::Disconnect) {
      entry_->disconnected = true;
      return session_.journal->Write(*entry_);
    }
    if (!MayCountAsGone()) return;
    entry_->process = ThisProcess();
    entry_->stage = kind_.stage;
    if (kind_.action == SetAction::Delete || entry_->end != JournalEnd::Kept) entry_->end.reset();
    session_.journal->Write(*entry_);
  }

  void NoteFailure() {
    Failure failure = DescribeFailure(std::current_exception(), session_.call());
    failure.status = ExitStatus::NotAllDone;
    failure.step = kind_.step.key;
    session_.failedStep.reset();
    outcome_.failure = std::move(failure);
    if (kind_.action == SetAction::Disconnect) return;
    try {
      outcome_.copiesLeft = service_.List(set_.id);
      areCopiesKnown_ = true;
    } catch (const CallFailure& unknown) {
      outcome_.failure->details.push_back(Describe(unknown));
    }
  }

  void NoteEnd() {
    if (!entry_) return;
    entry_->process = set_.entry->process;
    if (kind_.action == SetAction::Disconnect) {
      entry_->disconnected = set_.entry->disconnected || ended_ != 0 || !outcome_.failure;
    } else if (!outcome_.failure) {
      End(kind_.end);
    } else if (kind_.action == SetAction::Delete) {
      if (MayCountAsGone()) End(JournalEnd::ToBeEnded);
    } else if (!areCopiesKnown_ || !outcome_.copiesLeft.empty()) {
      entry_->stage = set_.entry->stage;
      entry_->end = set_.entry->end;
    }
    try {
      session_.journal->Write(*entry_);
    } catch (const JournalError& error) {
      NoteLostEnd(error);
    }
  }
  void End(JournalEnd end) {
    entry_->stage = JournalStage::Ended;
    entry_->end = end;
  }
  void NoteLostEnd(const JournalError& error) {
    const std::string text = "what became of " + NameOf(set_) + " is not remembered: " + error.what();
    if (outcome_.failure) return outcome_.failure->details.push_back(text);
    outcome_.failure = DescribeFailure(std::make_exception_ptr(NotAllDone(text)), {});
  }

  void Conclude() {
    if (outcome_.failure) {
      // A break that fails leaves the copies where they were.
      if (kind_.action != SetAction::Delete) outcome_.copiesLeft.clear();
      TellLeft(*outcome_.failure, set_, outcome_.copiesLeft, outcome_.sessionsLeft);
      Advise(*outcome_.failure, session_.errorDetails);
      outcome_.text = "NOT ALL DONE: " + std::string(outcome_.failure->message);
      return;
    }
    outcome_.text = NameOf(set_) + " ";
    if (kind_.action == SetAction::Disconnect) {
      outcome_.text += "is disconnected: " + (ended_ == 0 ? "no iSCSI session carried its disks"
                                                          : Counted(ended_, "iSCSI session") + " ended");
    } else if (wasGone_) {
      outcome_.text += "was gone already: the service knows it no more";
    } else {
      outcome_.text += std::string("was ") + kind_.done;
    }
  }

  Session& session_;
  const ActionKind& kind_;
  const bool force_;
  const SetService service_;
  const KnownSets known_;
  const KnownSet& set_;
  std::optional<JournalEntry> entry_;
  ActionOutcome outcome_;
  std::size_t ended_ = 0;        // sessions
  bool wasGone_ = false;         // before the deletion
  bool areCopiesKnown_ = false;  // those that are left after a failure
};

}  // namespace

const char* WordFor(SetAction action) {
  return KindOf(action).word;
}

std::string WhyNot(SetAction action, const KnownSet& set, const KnownSets& known, bool force) {
  if (set.IsInUse()) return WhyInUse(set);
  if (!set.entry && !force) {
    if (std::string reason = WhyNotOurs(action, set, known); !reason.empty()) return reason;
  }
  switch (action) {
    case SetAction::Break:
    case SetAction::Mask:
      return WhyNotBroken(action, set);
    case SetAction::Disconnect:
      if (!set.Disks().empty()) return {};
      return NameOf(set) + " cannot be disconnected: no disk of its own is known on this host";
    case SetAction::Delete:
      break;
  }
  return {};
}

void TellLeft(Failure& failure, const KnownSet& set, const std::vector<ListedCopy>& copies,
              const std::vector<SessionOfSet>& sessions) {
  if (!copies.empty()) failure.details.push_back(CopiesLeftText(set.id, copies, set.Sources(copies)));
  for (const SessionOfSet& left : sessions) {
    failure.details.push_back(
        SessionLeftText(left.session.sessionId, left.session.targetName, left.Carries()) +
        (left.others.empty() ? "" : "; it stays, as it carries " + Joined(left.others) + " besides"));
  }
  if (!sessions.empty()) failure.explain = advice::kSessionOpen;
  if (!copies.empty()) failure.explain = advice::kCopiesLeft;
}

ActionOutcome DoWithSet(Session& session, SetAction action, const std::string& id, bool force) {
  return ActionRun(session, action, id, force).Do();
}

ActionOutcome PlanWithSet(Session& session, SetAction action, const std::string& id, bool force) {
  return ActionRun(session, action, id, force).Plan();
}

}  // namespace varnelctl
