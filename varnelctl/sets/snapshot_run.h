// One request for a snapshot, from the first check to what becomes of its set, and what came of it.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/varnel.h"
#include "varnelctl/console/phases.h"
#include "varnelctl/console/watchdog.h"
#include "varnelctl/explanation/explanation.h"
#include "varnelctl/explanation/failure.h"
#include "varnelctl/explanation/objects.h"
#include "varnelctl/providers.h"
#include "varnelctl/session.h"
#include "varnelctl/sets/iscsi_sessions.h"
#include "varnelctl/sets/shadow_copies.h"
#include "varnelctl/sets/snapshot_options.h"
#include "varnelctl/watched_host.h"

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

/// A call of the service that failed.
struct FailedServiceCall {
  ServiceCall call;
  HRESULT result;
};

/// The writers' states as the request read them once.
struct WriterStates {
  const char* step;         ///< at whose end, or beginning, they were read
  unsigned long long time;  ///< milliseconds since the run began
  std::vector<WriterStatusTold> writers;
};

/// What a writer of a simulated host was told, which no requestor hears of.
struct WriterMoment {
  unsigned long long time;  ///< milliseconds since the run began
  std::wstring writer;
  const char* event;  ///< as the documentation of writers names it
  HRESULT failure;
};

/// What came of a request. Keeps the requestor: a set whose context releases it stays until the results were shown.
/// While it lives its host is the current one.
struct SnapshotOutcome {
  explicit SnapshotOutcome(const SnapshotOptions& snapshotOptions);
  /// With a requestor of another kind.
  SnapshotOutcome(const SnapshotOptions& snapshotOptions, std::unique_ptr<CVarnel> made);
  /// What is released then may not return.
  ~SnapshotOutcome() { watchdog.BeginEnd(); }
  SnapshotOutcome(const SnapshotOutcome&) = delete;
  SnapshotOutcome& operator=(const SnapshotOutcome&) = delete;

  /// Notes the exception that is being handled: the first failure is the request's and replaces mere messages, what
  /// else fails is a detail of it. \param status in place of the failure's.
  void NoteFailure(Session& session, std::optional<ExitStatus> status = {});
  /// Runs `action` and notes what it throws, but for UsageError: that is no outcome of a request, as none was begun.
  template <class Action>
  void Attempt(Session& session, Action action) {
    try {
      action();
    } catch (const UsageError&) {
      throw;
    } catch (...) {
      NoteFailure(session);
    }
  }

  Watchdog watchdog;                        ///< first: it watches the others' end
  WatchedHost host{varnel::CurrentHost()};  ///< before what is obtained through it, which goes before it
  const varnel::ScopedHost current{host};
  TesselCommonClasses::DiskAndVolumeEnumerator enumerator;  ///< the requestor's
  const std::unique_ptr<CVarnel> requestor;                 ///< never null
  const SnapshotOptions options;
  const bool isTransportable;
  std::vector<Phase> phases;
  std::vector<Step> steps;
  std::vector<WriterStates> writerStates;  ///< in the order in which they were read
  std::vector<WriterMoment> moments;       ///< none on a real machine
  std::optional<Failure> failure;
  std::optional<FailedServiceCall> failedCall;  ///< the first of those that are watched
  bool taken = false;                           ///< a set was taken, whatever became of it
  bool mayCome = false;                         ///< nobody could say whether the set is still being taken
  bool gotThrough = false;                      ///< with or without messages: the set is not deleted for a failure
  bool completed = false;                       ///< the service was told how it ended, and told the writers
  SetState setState = SetState::None;
  bool disconnected = false;               ///< the end of its iSCSI sessions was begun
  std::vector<ListedCopy> copiesLeft;      ///< of a set that could not be deleted whole; empty for any other
  std::vector<IscsiSession> sessionsLeft;  ///< that carried disks of the set after --disconnect
  std::string errorDetails;                ///< the alert records, without the request text before them
  std::map<std::string, ApplicationObjectMeatadataInfo> catalog;
  std::vector<ShadowCopyView> shadowCopies;
  std::string databases;
  Explanation explanation;                 ///< borrows the requestor's writers
  std::vector<ApplicationObject> objects;  ///< borrows the explanation
  std::vector<Provider> providers;   ///< the registered ones, of a set that was taken; none where they were not told
  std::optional<Provider> provider;  ///< the array's among them
};

/// Drives the outcome's requestor in the host agent's order of calls, through every phase. A failure ends the sequence,
/// the backup is completed all the same, and the failure is kept; nothing is thrown for it.
void TakeSnapshot(Session& session, const SnapshotOptions& options, SnapshotOutcome& outcome);

}  // namespace varnelctl
