// What of a fleet is protected after its last run, and how that came about over the runs before.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "varnelctl/report/fleet/fleet_file.h"
#include "varnelctl/report/fleet/host_result.h"

namespace varnelctl::fleet {

/// Of one run.
struct Summary {
  std::string name;  ///< of its folder, for people
  LONGLONG startedAt = 0;
  std::optional<LONGLONG> endedAt;
  bool isPlan = false;  ///< nothing was to be taken
  std::size_t hosts = 0;
  std::size_t protectedHosts = 0;  ///< wholly and in part
  std::size_t part = 0;            ///< in part
  std::size_t objects = 0;
  std::size_t protectedObjects = 0;
};

struct Protection {
  Run run;                          ///< the last one
  std::vector<HostResult> results;  ///< of its hosts, in their order
  std::vector<Summary> runs;        ///< by their start; the last one is that of `run`
  std::size_t earlierRuns = 0;      ///< that were not looked at
  std::vector<std::string> gone;    ///< hosts of the run before that this one does not have
  std::vector<std::string> added;   ///< hosts that the run before does not have; none where there is no run before
  std::vector<std::string> unreadable;

  const Summary& last() const { return runs.back(); }
};

/// Reads the documents of the runs' hosts, of so many runs at most.
Protection ProtectionOf(Runs runs, std::size_t mostRuns = 30);

/// What the objects of the fleet are called in the plural: "databases", or "objects" where they are of several kinds.
std::string NounOf(const Protection& protection);

/// The last run in one line: how many hosts are protected, and which are not.
std::string HeadlineOf(const Protection& protection);

/// "protected", "unreachable", ...
const char* WordFor(HostState state);

}  // namespace varnelctl::fleet
