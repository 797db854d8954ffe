// The iSCSI sessions of this host that carry disks of a set.
#pragma once

#include <string>
#include <vector>

#include "platform/tessel/TesselCommonClasses.h"

namespace varnelctl {

/// An open session and those of the disks that it carries.
struct IscsiSession {
  std::wstring targetName;
  std::string sessionId;  ///< as iscsicli writes and takes it
  std::vector<TesselCommonClasses::WindowsDiskDevice> disks;
};

/// The open sessions that carry one of these disks. A session that is busy is asked again. Throws CallFailure.
std::vector<IscsiSession> FindSessionsOf(const std::vector<TesselCommonClasses::WindowsDiskDevice>& disks);

}  // namespace varnelctl
