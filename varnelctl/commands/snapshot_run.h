// One snapshot from the first check to what becomes of its set, and what came of it.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/varnel.h"
#include "varnelctl/commands/shadow_copies.h"
#include "varnelctl/commands/snapshot_options.h"
#include "varnelctl/console/phases.h"
#include "varnelctl/explanation/failure.h"
#include "varnelctl/explanation/left_out.h"
#include "varnelctl/session.h"

namespace varnelctl {

/// What became of the snapshot set.
enum class SetState {
  None,      ///< it was never taken
  Kept,      ///< it stays until somebody deletes it
  Released,  ///< it goes when the requestor is released, at the end of the program
  Deleted,
  Broken,   ///< its disks are ordinary disks of this host
  Masked,   ///< broken, and its disks were taken from this host
  Unknown,  ///< nobody could say
};

/// Drives one requestor in the host agent's order of calls. Keeps the requestor: a set whose context releases it stays
/// until the results have been shown.
class SnapshotRun {
 public:
  SnapshotRun(Session& session, const SnapshotOptions& options, PhaseListener& listener);
  ~SnapshotRun();
  SnapshotRun(const SnapshotRun&) = delete;
  SnapshotRun& operator=(const SnapshotRun&) = delete;

  /// Runs every phase. A failure ends the sequence, the backup is completed all the same, and the failure is kept;
  /// nothing is thrown for it.
  void Run();

  const CVarnel& requestor() const { return *requestor_; }
  const SnapshotOptions& options() const { return options_; }
  const std::vector<Phase>& phases() const { return phases_.list(); }
  const std::optional<Failure>& failure() const { return failure_; }
  /// Whether a set was taken, whatever became of it.
  bool taken() const { return taken_; }
  /// Whether the request got through, with or without messages: its set is not deleted for a failure.
  bool gotThrough() const { return gotThrough_; }
  SetState setState() const { return setState_; }
  /// How many shadow copies are left of a set that could not be deleted whole; nothing for any other.
  const std::optional<std::size_t>& copiesLeft() const { return copiesLeft_; }
  /// The alert records, without the request text in front.
  std::string errorDetails() const;
  const std::map<std::string, ApplicationObjectMeatadataInfo>& catalog() const { return catalog_; }
  const std::vector<ShadowCopyView>& shadowCopies() const { return shadowCopies_; }
  const std::string& databases() const { return databases_; }
  const std::vector<LeftOut>& leftOut() const { return leftOut_; }

 private:
  struct Step;

  void Sequence();
  void CheckDisks();
  void Validate();
  void CheckPresence();
  void WarnUnless(const std::string& phase, const std::string& warning, const std::function<bool()>& holds);
  void Create();
  void ReadResults();
  void Verify();
  void Complete();
  void TellWriters(int code);
  SetState StateAfterFailure(const std::optional<std::size_t>& copiesBefore);
  SetState StateOfExistingSet() const;
  bool MayBeListed() const;
  std::optional<std::size_t> AskForCopies();
  void FollowUp();
  std::vector<Step> StepsWanted();
  std::string WhyNothingFollows() const;
  void LookAfterFailedStep(SetState wanted);
  template <class Action>
  void Attempt(Action action);
  void NoteFailure();

  Session& session_;
  const SnapshotOptions& options_;
  TesselCommonClasses::DiskAndVolumeEnumerator enumerator_;
  std::unique_ptr<CVarnel> requestor_;
  Phases phases_;
  std::vector<std::wstring> serialNumbers_;
  std::optional<Failure> failure_;
  bool taken_ = false;
  bool gotThrough_ = false;
  SetState setState_ = SetState::None;
  std::optional<std::size_t> copiesLeft_;
  std::size_t requestTextLength_ = 0;
  std::map<std::string, ApplicationObjectMeatadataInfo> catalog_;
  std::vector<ShadowCopyView> shadowCopies_;
  std::string databases_;
  std::vector<LeftOut> leftOut_;
};

}  // namespace varnelctl
