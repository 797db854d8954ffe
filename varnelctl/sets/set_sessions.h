// Which iSCSI sessions may be ended with a set: those that carry its disks and nothing else.
#pragma once

#include <string>
#include <vector>

#include "varnelctl/sets/iscsi_sessions.h"
#include "varnelctl/sets/known_sets.h"

namespace varnelctl {

/// An open session, by what it carries.
struct SessionOfSet {
  OpenSession session;
  std::vector<TesselCommonClasses::WindowsDiskDevice> own;  ///< of the set
  std::vector<std::string> others;                          ///< of anybody else, for people

  /// All of it, for people: "\"A\", \"B\""
  std::string Carries() const;
};

/// Every open session, as it is now. A disk is the set's where name and serial number are those of one in `disks`, as
/// numbers are given again, and it holds no copy of another set. Throws CallFailure.
std::vector<SessionOfSet> ReadSessions(const std::vector<TesselCommonClasses::WindowsDiskDevice>& disks,
                                       const std::vector<TesselCommonClasses::WindowsDiskDevice>& ofOtherSets);

/// "a, b"
std::string Joined(const std::vector<std::string>& texts);

}  // namespace varnelctl
