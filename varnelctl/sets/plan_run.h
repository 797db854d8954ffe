// What a snapshot would hold, and how it would end, without one.
#pragma once

#include "varnelctl/sets/snapshot_run.h"

namespace varnelctl {

struct PlanOutcome : SnapshotOutcome {
  /// A volume of the set. \param extra of a disk that the application does not use.
  struct Volume {
    std::wstring name;
    std::wstring mountPoint;  ///< empty when it has none
    std::wstring serialNumber;
    bool extra = false;
  };
  explicit PlanOutcome(const SnapshotOptions& chosen)
      : PlanOutcome(chosen, MakePlanningRequestor(chosen.application)) {}

  std::function<void(SelectionWatcher&, std::string&)> select;  ///< the requestor's
  std::function<IVssBackupComponents*()> service;               ///< the requestor's
  std::vector<Volume> volumes;

 private:
  PlanOutcome(const SnapshotOptions& chosen, PlanningRequestor planner)
      : SnapshotOutcome(chosen, std::move(planner.requestor)),
        select(std::move(planner.select)),
        service(std::move(planner.service)) {}
};

/// Goes as far as the selection. No writer hears more than Identify, no set is started and nothing is completed. A
/// failure is the one that a snapshot would have; nothing is thrown for it.
void MakePlan(Session& session, const SnapshotOptions& options, PlanOutcome& outcome);

}  // namespace varnelctl
