#include "varnelctl/sets/iscsi_sessions.h"

#include <algorithm>
#include <iterator>

#include "platform/host.h"
#include "text/ascii_case.h"
#include "text/format.h"
#include "varnelctl/explanation/failure.h"

namespace varnelctl {
namespace {

using TesselCommonClasses::WindowsDiskDevice;
using varnel::CurrentHost;
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

SessionList ListSessions() {
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

std::vector<iscsi::DeviceOnSession> DevicesOf(iscsi::SessionInfo& session) {
  constexpr DWORD kPauseMilliseconds = 500;
  std::vector<iscsi::DeviceOnSession> devices;
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
  CheckIscsiCall("GetDevicesForIScsiSessionW", error);
  devices.resize(std::min<std::size_t>(reported, devices.size()));
  return devices;
}

std::string IdOf(const iscsi::UniqueSessionId& id) {
  constexpr int kHalf = 32;
  return varnel::FormatNarrow("%08x%08x-%08x%08x", {id.AdapterUnique >> kHalf, id.AdapterUnique,
                                                    id.AdapterSpecific >> kHalf, id.AdapterSpecific});
}

// Either may be all that the initiator tells of a disk.
bool IsDisk(const iscsi::DeviceOnSession& device, const WindowsDiskDevice& disk) {
  constexpr DWORD kFileDeviceDisk = 7;
  const std::wstring legacyName(std::begin(device.LegacyName),
                                std::find(std::begin(device.LegacyName), std::end(device.LegacyName), L'\0'));
  return varnel::ascii::EqualIgnoringCase(legacyName, disk.diskName) ||
         (device.StorageDeviceNumber.DeviceType == kFileDeviceDisk &&
          device.StorageDeviceNumber.DeviceNumber == disk.diskNumber);
}

}  // namespace

std::vector<IscsiSession> FindSessionsOf(const std::vector<WindowsDiskDevice>& disks) {
  std::vector<IscsiSession> sessions;
  SessionList list = ListSessions();
  for (std::size_t i = 0; i < list.count; ++i) {
    iscsi::SessionInfo& info = list.block[i];
    const std::vector<iscsi::DeviceOnSession> devices = DevicesOf(info);
    IscsiSession session{info.TargetName == nullptr ? L"" : info.TargetName, IdOf(info.SessionId), {}};
    for (const WindowsDiskDevice& disk : disks) {
      const bool carried =
          std::any_of(devices.begin(), devices.end(), [&](const auto& device) { return IsDisk(device, disk); });
      if (carried) session.disks.push_back(disk);
    }
    if (!session.disks.empty()) sessions.push_back(std::move(session));
  }
  return sessions;
}

}  // namespace varnelctl
