// What a request and a plan of one have in common: the checks before, the beginning, and what is told of it at the end.
#pragma once

#include "varnelctl/sets/limits.h"
#include "varnelctl/sets/snapshot_run.h"
#include "varnelctl/sets/writer_moments.h"

namespace varnelctl {

/// Borrows all that it is given.
class RequestRun {
 public:
  RequestRun(const RequestRun&) = delete;
  RequestRun& operator=(const RequestRun&) = delete;

 protected:
  RequestRun(Session& session, const SnapshotOptions& options, SnapshotOutcome& outcome)
      : session_(session), options_(options), outcome_(outcome), phases_(session, options.deadlines) {}
  ~RequestRun() = default;

  /// Up to Initialize, in the host agent's order of calls. Throws what the steps throw.
  void Begin();
  /// Adds to the failure what a person needs to know of it and the library does not tell.
  /// \param refusedVolume that could not be added to the set; empty for none.
  void ExplainFailure(const std::wstring& refusedVolume);
  /// Puts what was gathered and done into the outcome.
  void Conclude();

  /// How a set that exists ended creation, in the handler of what was thrown: messages, and volumes that the
  /// application does not use. Throws anything else again.
  void NoteMessages(const VarnelException& alert);
  /// Throws NotContained unless what is required is selected.
  void CheckRequirement();

  template <class Action>
  void Attempt(Action action) {
    outcome_.Attempt(session_, [&] { limits_.Explain(action); });
  }

  Session& session_;
  const SnapshotOptions& options_;
  SnapshotOutcome& outcome_;
  CVarnel& requestor_ = *outcome_.requestor;
  std::string& details_ = session_.errorDetails;
  Phases phases_;
  Limits limits_{session_, phases_, outcome_.watchdog};
  const WriterMoments moments_{session_};
  std::vector<std::wstring> serialNumbers_;
  VolumeLocations locations_{outcome_.enumerator};  ///< as they were before the snapshot

 private:
  void CheckDisks();
  void ValidateHost();
  void ValidateVolumes();
  void CheckProvider();
  void NameMissingWriter();
  void NameVolumes();
  void NameRefusedVolume(const std::wstring& volume);
  Explanation ExplainSelection();

  std::size_t requestTextLength_ = 0;
  const WatchedHost::Limiting limiting_{outcome_.host, limits_};
};

}  // namespace varnelctl
