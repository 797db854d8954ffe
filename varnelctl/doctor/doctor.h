// What would make a snapshot on this host fail or incomplete, found without one.
#pragma once

#include <string>
#include <vector>

#include "varnelctl/doctor/check.h"

namespace varnelctl {

struct CheckMade {
  const Check* check = nullptr;
  bool asked = false;   ///< false where it was not made, or its question failed
  std::string lacks{};  ///< what must be given so that it is made: "--disk"; empty for one that was made
  std::string saw;
  std::size_t findings = 0;
};

struct FoundBy {
  const Check* check = nullptr;
  Finding finding;
};

struct Diagnosis {
  std::vector<CheckMade> checks;   ///< in the order in which they were made
  std::vector<FoundBy> findings;   ///< worst first, else in the order in which they were found
  std::string verdict;             ///< of the plan; empty without one
  std::optional<Failure> stopped;  ///< somebody ended it

  std::size_t Count(Severity severity) const;
};

/// Asks and changes nothing: no writer is told of more than Identify. Throws UsageError for disks that this host does
/// not have; what else fails is a finding.
Diagnosis Examine(Session& session, const DoctorOptions& options);

}  // namespace varnelctl
