// One snapshot from the first check to the last getter, and what came of it.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/varnel.h"
#include "varnelctl/failure.h"
#include "varnelctl/session.h"
#include "varnelctl/snapshot_options.h"
#include "varnelctl/storage_view.h"

namespace varnelctl {

struct Phase {
  std::string name;
  unsigned long long milliseconds = 0;
};

/// Told when a phase starts and when it ends.
class PhaseListener {
 public:
  virtual ~PhaseListener() = default;
  virtual void Started(const std::string& name) = 0;
  virtual void Ended(const Phase& phase, bool succeeded) = 0;
  /// Something that a later phase may fail over.
  virtual void Warned(const std::string& warning) = 0;
};

/// A shadow copy, its source, and the disk that the host found it on; no disk when the copy is not surfaced here.
struct ShadowCopyView {
  SnapshotVolumeInfo volume;
  std::wstring mountPoint;          ///< of the source volume; empty when it has none
  std::wstring sourceSerialNumber;  ///< of the disk that holds the source volume
  TesselCommonClasses::WindowsDiskDevice disk;
};

/// Whether the component is part of the set: the service was given it or a parent of it.
bool IsCaptured(const VssWriter& writer, const VssComponent& component);

/// A component that was left out, and why.
struct LeftOut {
  const VssWriter* writer = nullptr;
  const VssComponent* component = nullptr;
  std::string reason;
};

/// Drives one requestor in the host agent's order of calls. Keeps the requestor: a set whose context releases it stays
/// until the results have been shown.
class SnapshotRun {
 public:
  SnapshotRun(Session& session, const SnapshotOptions& options, PhaseListener& listener);
  ~SnapshotRun();
  SnapshotRun(const SnapshotRun&) = delete;
  SnapshotRun& operator=(const SnapshotRun&) = delete;

  /// Runs every phase. A failure ends the sequence and is kept; nothing is thrown for it.
  void Run();

  const CVarnel& requestor() const { return *requestor_; }
  const std::vector<Phase>& phases() const { return phases_; }
  const std::optional<Failure>& failure() const { return failure_; }
  /// Whether the request got through, with or without messages.
  bool taken() const { return taken_; }
  /// The alert records, without the request text in front.
  std::string errorDetails() const;
  const std::map<std::string, ApplicationObjectMeatadataInfo>& catalog() const { return catalog_; }
  const std::vector<ShadowCopyView>& shadowCopies() const { return shadowCopies_; }
  const std::string& databases() const { return databases_; }
  const std::vector<LeftOut>& leftOut() const { return leftOut_; }

 private:
  void Sequence();
  void CheckDisks();
  void Validate();
  void CheckPresence();
  void Create();
  void ReadResults();
  void FindShadowCopies();
  void ExplainWhatWasLeftOut();
  std::string ReasonFor(const VssWriter& writer, const VssComponent& component, VolumeSerials& serials);
  void InPhase(const std::string& name, const std::function<void()>& action);
  void NoteFailure();

  Session& session_;
  const SnapshotOptions& options_;
  PhaseListener& listener_;
  TesselCommonClasses::DiskAndVolumeEnumerator enumerator_;
  std::unique_ptr<CVarnel> requestor_;
  std::vector<std::wstring> serialNumbers_;
  std::vector<Phase> phases_;
  std::optional<Failure> failure_;
  bool taken_ = false;
  std::size_t requestTextLength_ = 0;
  std::map<std::string, ApplicationObjectMeatadataInfo> catalog_;
  std::vector<ShadowCopyView> shadowCopies_;
  std::string databases_;
  std::vector<LeftOut> leftOut_;
};

}  // namespace varnelctl
