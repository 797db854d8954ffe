// The iSCSI sessions of this host, and which of them carry disks of a set.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/iscsi.h"
#include "platform/tessel/TesselCommonClasses.h"

namespace varnelctl {

/// A device of a session, by what the initiator tells of it.
struct SessionDevice {
  std::wstring name;          ///< empty where it was not told
  std::optional<DWORD> disk;  ///< its number; nothing when it is no disk
};

struct OpenSession {
  std::wstring targetName;
  std::string sessionId;  ///< as iscsicli writes and takes it
  varnel::iscsi::UniqueSessionId id{};
  std::vector<SessionDevice> devices;
};

/// Told of a session whose devices could not be asked, and of the error.
using DevicesFailed = std::function<void(const OpenSession& session, DWORD error)>;

/// The open sessions. One that is busy is asked again. Throws CallFailure, but not for the devices of a session where
/// `failed` is there to be told: the session then has none.
std::vector<OpenSession> ListSessions(const DevicesFailed& failed = nullptr);

/// Ends a session, as the library does: tries five times, which its log tells. \return whether it has ended.
bool LogOut(OpenSession& session);

/// An open session and those of the disks that it carries.
struct IscsiSession {
  std::wstring targetName;
  std::string sessionId;  ///< as iscsicli writes and takes it
  std::vector<TesselCommonClasses::WindowsDiskDevice> disks;
};

/// The open sessions that carry one of these disks. Throws CallFailure.
std::vector<IscsiSession> FindSessionsOf(const std::vector<TesselCommonClasses::WindowsDiskDevice>& disks);

/// How people know a disk: by its serial number, which stands in quotes, or else by its name.
std::string NameOfDisk(const TesselCommonClasses::WindowsDiskDevice& disk);

/// What to do about a session that is left. \param carries disks for people.
std::string SessionLeftText(const std::string& sessionId, const std::wstring& targetName, const std::string& carries);

}  // namespace varnelctl
