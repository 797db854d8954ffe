// What becomes of a snapshot set at the end of its request: what was asked for is done to it, and the service is asked
// what is left of it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "varnelctl/console/phases.h"
#include "varnelctl/sets/snapshot_run.h"

namespace varnelctl {

/// Borrows all that it is given. Failures are noted in the outcome; nothing is thrown for them.
class FollowUp {
 public:
  FollowUp(Session& session, const SnapshotOptions& options, SnapshotOutcome& outcome, Phases& phases)
      : session_(session), options_(options), outcome_(outcome), phases_(phases) {}

  /// To be called before the completion, which deletes the set of a failed request. The set is looked at before and
  /// after only where its state cannot be told otherwise.
  void LookBeforeCompletion();
  void LookAfterCompletion();
  /// Does what --then and --disconnect ask for and looks whether it is done, or warns that it is left out.
  /// \param reason why it is left out; empty for none.
  void Run(std::string reason);
  /// Adds the copies and sessions that are left to the failure, each with its remedy: the library tells of them in its
  /// log alone.
  void TellWhatIsLeft();

 private:
  using Copies = std::optional<std::vector<ListedCopy>>;  // nothing: the service did not say
  struct Step;

  bool MayBeListed() const;
  SetState StateOfExistingSet() const;
  SetState StateAfterFailure();
  Copies AskForCopies();
  const ShadowCopyView* ViewOf(const std::wstring& snapshotId) const;
  std::wstring SourceOf(const ListedCopy& copy) const;
  void TellCopiesLeft();
  void TellSessionsLeft();
  void Delete();
  void Disconnect();
  void LookForSessions();
  std::vector<Step> StepsWanted();
  std::string WhyNothingFollows() const;
  void LookAfterFailedStep(SetState wanted);

  Session& session_;
  const SnapshotOptions& options_;
  SnapshotOutcome& outcome_;
  Phases& phases_;
  CVarnel& requestor_ = *outcome_.requestor;
  Copies copiesBefore_;  // of a failed request
};

}  // namespace varnelctl
