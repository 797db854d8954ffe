#include "varnelctl/sets/iscsi_sessions.h"

#include <algorithm>
#include <iterator>

#include "core/logging.h"
#include "platform/host.h"
#include "text/ascii_case.h"
#include "text/format.h"
#include "varnelctl/console/text.h"
#include "varnelctl/explanation/failure.h"

namespace varnelctl {
namespace {

using TesselCommonClasses::WindowsDiskDevice;
using varnel::CurrentHost;
using varnel::kLog;
namespace iscsi = varnel::iscsi;

// Sessions come and go: a list may have grown since its size was told.
constexpr int kTries = 5;

void CheckIscsiCall(const char* call, DWORD error) {
  if (error != ERROR_SUCCESS) throw CallFailure(call, varnel::HResultFromWin32(error));
}

struct SessionList {
  std::vector<iscsi::SessionInfo> block;  // the records, and after them the texts that they point at
  std::size_t count = 0;
};

SessionList ReadSessions() {
  SessionList list;
  ULONG bytes = 0;
  ULONG reported = 0;
  DWORD error = CurrentHost().iscsi().GetIScsiSessionListW(&bytes, &reported, nullptr);
  for (int i = 0; i < kTries && error == ERROR_INSUFFICIENT_BUFFER; ++i) {
    list.block.assign(bytes / sizeof(iscsi::SessionInfo) + 1, {});
    bytes = static_cast<ULONG>(list.block.size() * sizeof(iscsi::SessionInfo));
    error = CurrentHost().iscsi().GetIScsiSessionListW(&bytes, &reported, list.block.data());
  }
  CheckIscsiCall("GetIScsiSessionListW", error);
  list.count = std::min<std::size_t>(reported, list.block.size());
  return list;
}

DWORD ReadDevices(iscsi::SessionInfo& session, std::vector<iscsi::DeviceOnSession>& devices) {
  constexpr DWORD kPauseMilliseconds = 500;
  ULONG reported = 0;
  DWORD error = CurrentHost().iscsi().GetDevicesForIScsiSessionW(&session.SessionId, &reported, nullptr);
  for (int i = 0; i < kTries; ++i) {
    if (error == iscsi::kDeviceBusyOnSession) {
      CurrentHost().time().Sleep(kPauseMilliseconds);
    } else if (error != ERROR_INSUFFICIENT_BUFFER) {
      break;
    }
    devices.resize(std::max<std::size_t>(reported, devices.size()));
    reported = static_cast<ULONG>(devices.size());
    error = CurrentHost().iscsi().GetDevicesForIScsiSessionW(&session.SessionId, &reported,
                                                             devices.empty() ? nullptr : devices.data());
  }
  devices.resize(error == ERROR_SUCCESS ? std::min<std::size_t>(reported, devices.size()) : 0);
  return error;
}

std::string IdOf(const iscsi::UniqueSessionId& id) {
  constexpr int kHalf = 32;
  return varnel::FormatNarrow("%08x%08x-%08x%08x", {id.AdapterUnique >> kHalf, id.AdapterUnique,
                                                    id.AdapterSpecific >> kHalf, id.AdapterSpecific});
}

// The number in the name of a disk.
std::optional<DWORD> NumberIn(std::wstring_view name) {
  constexpr std::wstring_view kPrefix = L"\\\\.\\PhysicalDrive";
  constexpr std::size_t kMostDigits = 9;
  if (!varnel::ascii::StartsWithIgnoringCase(name, kPrefix)) return std::nullopt;
  const std::wstring digits(name.substr(kPrefix.size()));
  const bool isNumber = !digits.empty() && digits.size() <= kMostDigits &&
                        std::all_of(digits.begin(), digits.end(), [](wchar_t c) { return c >= L'0' && c <= L'9'; });
  return isNumber ? std::optional(static_cast<DWORD>(std::stoul(digits))) : std::nullopt;
}

// The name or the number may be all that the initiator tells of a disk.
SessionDevice DeviceOf(const iscsi::DeviceOnSession& device) {
  constexpr DWORD kFileDeviceDisk = 7;
  SessionDevice made;
  made.name.assign(std::begin(device.LegacyName),
                   std::find(std::begin(device.LegacyName), std::end(device.LegacyName), L'\0'));
  made.disk = NumberIn(made.name);
  if (!made.disk && device.StorageDeviceNumber.DeviceType == kFileDeviceDisk) {
    made.disk = device.StorageDeviceNumber.DeviceNumber;
  }
  return made;
}

bool IsDisk(const SessionDevice& device, const WindowsDiskDevice& disk) {
  return device.disk == disk.diskNumber;
}

}  // namespace

std::vector<OpenSession> ListSessions(const DevicesFailed& failed) {
  std::vector<OpenSession> sessions;
  SessionList list = ReadSessions();
  for (std::size_t i = 0; i < list.count; ++i) {
    iscsi::SessionInfo& info = list.block[i];
    OpenSession session{info.TargetName == nullptr ? L"" : info.TargetName, IdOf(info.SessionId), info.SessionId, {}};
    std::vector<iscsi::DeviceOnSession> devices;
    const DWORD error = ReadDevices(info, devices);
    if (error != ERROR_SUCCESS && failed) failed(session, error);
    if (!failed) CheckIscsiCall("GetDevicesForIScsiSessionW", error);
    for (const iscsi::DeviceOnSession& device : devices) session.devices.push_back(DeviceOf(device));
    sessions.push_back(std::move(session));
  }
  return sessions;
}

bool LogOut(OpenSession& session) {
  constexpr DWORD kPauseMilliseconds = 10;
  for (int budget = kTries; budget > 0; --budget) {
    kLog.Info(L"Logging out of target %s  ", session.targetName);
    const DWORD error = CurrentHost().iscsi().LogoutIScsiTarget(&session.id);
    if (error == ERROR_SUCCESS) return true;
    kLog.Error(L"LogoutIScsiTarget() Failed, Target=%s, RetryCount=%d, Error=0x%x", session.targetName, budget, error);
    CurrentHost().time().Sleep(kPauseMilliseconds);
  }
  return false;
}

std::vector<IscsiSession> FindSessionsOf(const std::vector<WindowsDiskDevice>& disks) {
  std::vector<IscsiSession> sessions;
  for (const OpenSession& open : ListSessions()) {
    IscsiSession session{open.targetName, open.sessionId, {}};
    for (const WindowsDiskDevice& disk : disks) {
      const bool carried = std::any_of(open.devices.begin(), open.devices.end(),
                                       [&](const SessionDevice& device) { return IsDisk(device, disk); });
      if (carried) session.disks.push_back(disk);
    }
    if (!session.disks.empty()) sessions.push_back(std::move(session));
  }
  return sessions;
}

std::string NameOfDisk(const WindowsDiskDevice& disk) {
  return disk.serialNumber.empty() ? Printable(disk.diskName) : Quoted(disk.serialNumber);
}

std::string SessionLeftText(const std::string& sessionId, const std::wstring& targetName, const std::string& carries) {
  return "iSCSI session " + sessionId + " to target " + Printable(targetName) + " carries " + carries +
         ": end what holds the disk, then log out with: iscsicli LogoutTarget " + sessionId +
         " (iscsicli SessionList shows what is open)";
}

}  // namespace varnelctl
