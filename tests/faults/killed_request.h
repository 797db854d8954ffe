// Whole requests that a process makes on a host with a state file, and is killed in.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>

#include "simulator/simulated_host.h"
#include "tests/support/host_model.h"
#include "tests/support/snapshot_request.h"

namespace varnel::test {

// The killed program is told: SCENARIO STATE-FILE, and WHERE NUMBER for its end.

/// "plain" goes with its process; the others are persistent, and "kept", broken, masked or deleted at the end. Those
/// whose name ends in "-complete" are on a host that completes what was under way.
inline constexpr const char* kKilledScenarios[] = {"plain", "kept", "kept-complete", "broken", "masked", "deleted"};

inline simulator::HostModel KilledHost(std::string_view scenario) {
  simulator::HostModel model = SmallHost();
  model.writers = {MakeWriter(L"Mail", 1, {MakeComponent(L"mail", L"db1", {L"E:\\db1"})}),
                   MakeWriter(L"Web", 2, {MakeComponent(L"", L"site", {L"F:\\web"})})};
  model.iscsiSessions = {{L"iqn.2007-11.example:data", {{L"TSL0001"}, {L"TSL0002"}}, 1, 0},
                         {L"iqn.2007-11.example:shadow", {{L"TSL0001", true}}, 0, 1}};
  model.freezeMilliseconds = 2000;
  if (scenario.ends_with("-complete")) model.orphanedSnapshot = simulator::OrphanedSnapshot::complete;
  return model;
}

inline void Require(const Outcome& outcome) {
  if (outcome != Outcome::Returned()) throw std::runtime_error("a step of the request failed");
}

/// The whole request on the current host, and what follows it. Throws std::runtime_error when a step fails.
inline void RunRequest(std::string_view scenario) {
  SnapshotRequest<> request(BothDisks(scenario == "plain" ? DWORD{VSS_CTX_BACKUP} : DWORD{VSS_CTX_APP_ROLLBACK}));
  CVarnel& requestor = request.requestor;
  Require(request.StartAndCreate());
  Require(request.Complete(0));
  if (scenario == "plain") return;
  requestor.DisconnectSnapshotLuns(request.details());
  if (scenario == "broken") requestor.BreakSnapshotSet(request.details());
  if (scenario == "masked") requestor.MaskSnapshotSet(request.details());
  if (scenario == "deleted") requestor.DeleteSnapshotSet(request.details());
}

}  // namespace varnel::test
