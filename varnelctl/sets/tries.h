// A request that is made again while its failure may pass: another backup is in progress, or what --retries names.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "varnelctl/sets/snapshot_run.h"

namespace varnelctl {

/// Whether a request may succeed when it is made again as it is.
enum class Passing {
  No,
  OtherBackup,  ///< the service is busy with another backup's set
  Failure,      ///< what is documented as passing
};
Passing PassingOf(const SnapshotOutcome& outcome);

/// Whether nothing is left of the request's set, and that is known.
bool IsEnded(const SnapshotOutcome& outcome);

/// How long to wait for another backup: 5 s, then twice as long each time up to a minute, each up to a fifth longer or
/// shorter, so that two that wait do not meet again and again. The same for the same seed.
class GrowingPauses {
 public:
  explicit GrowingPauses(std::uint32_t seed) : random_(seed) {}
  /// Milliseconds.
  DWORD Next();

 private:
  std::uint32_t random_;
  DWORD base_ = 5000;
};

struct Try {
  unsigned long long start = 0;             ///< milliseconds since the run began
  std::optional<Failure> failure;           ///< nothing after a success
  std::optional<unsigned long long> pause;  ///< milliseconds that were waited after it; nothing where none were to be
};

struct TriedSnapshot {
  std::unique_ptr<SnapshotOutcome> outcome;  ///< of the last try; never null
  std::vector<Try> tries;                    ///< at least one
};

/// TakeSnapshot with a fresh requestor each time; nothing of a try is left when the next begins. Each try that is not
/// the last is told as a warning. An interruption of a pause is the failure of the last try. Throws UsageError.
TriedSnapshot TakeSnapshotInTries(Session& session, const SnapshotOptions& options);

}  // namespace varnelctl
