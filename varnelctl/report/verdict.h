// What a run comes to: the one line that a person reads last, and the same as values.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "varnelctl/explanation/objects.h"
#include "varnelctl/sets/snapshot_run.h"

namespace varnelctl {

/// How many of the application's objects a set holds.
struct Tally {
  std::size_t captured = 0;
  std::size_t of = 0;
  std::size_t failed = 0;  ///< in the set, but failed by their writer
  std::string_view noun;   ///< of one of them
};

Tally TallyOf(const std::vector<ApplicationObject>& objects, Application application);

/// "11 of 13 databases", "19 of 20 virtual machines (1 failed by its writer)"
std::string TallyText(const Tally& tally);

struct Verdict {
  bool isPlan = false;
  ExitStatus status = ExitStatus::Done;
  bool gotThrough = false;  ///< what was captured stands, or would
  Tally tally;
  SetState setState = SetState::None;  ///< this and what follows on the set: not of a plan
  std::string set;                     ///< what there is of it now, in words
  std::string lifetime;                ///< how long the set exists, or what became of it
  std::optional<std::string> endWith;  ///< the command that ends the set, where one of this host does
  std::string cause;                   ///< of a failure, or what is not done; empty after a success

  /// Everything of the application was captured, and everything was done.
  bool IsWhole() const { return status == ExitStatus::Done && gotThrough && tally.captured == tally.of; }
  /// The one line.
  std::string Text() const;
  /// For what goes wrong after the run's own end. What went wrong first stays the cause.
  void NoteUndone(const std::string& what);
};

/// Of a request that was refused before it was begun.
Verdict VerdictOfRefusal(std::string_view reason);
/// Of a run that has ended.
Verdict VerdictOf(const SnapshotOutcome& outcome);
/// Of a plan: what the run would capture, or what it would fail of.
Verdict VerdictOfPlan(const SnapshotOutcome& plan);

/// "Snapshot set {...}: kept until it is deleted"
std::string DescribeSet(const SnapshotOutcome& outcome);

/// The word that JSON documents have.
const char* WordFor(SetState state);

/// The command that deletes a set of this host.
std::string CommandThatEnds(const std::string& setId);

/// The first sentence of a message, without its end.
std::string_view FirstSentence(std::string_view message);

}  // namespace varnelctl
