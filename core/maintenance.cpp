// What becomes of a snapshot set after it was taken.
#include <algorithm>
#include <cstring>

#include "core/alerts.h"
#include "core/varnel.h"
#include "core/vss_call.h"
#include "platform/host.h"
#include "text/guid.h"

using varnel::AlertAndThrow;
using varnel::CurrentHost;
using varnel::kLog;
namespace iscsi = varnel::iscsi;

namespace {

// Records of the initiator in one block, and after them the texts that they point at.
template <class Record>
class RecordBuffer {
 public:
  RecordBuffer() = default;
  explicit RecordBuffer(std::size_t bytes) : block_(bytes), bytes_(bytes) {
    if (block_) std::memset(block_.Get(), 0, bytes);
  }
  explicit operator bool() const noexcept { return static_cast<bool>(block_); }
  Record* Get() const noexcept { return static_cast<Record*>(block_.Get()); }
  /// As many of `reported` records as the block can hold: none without one.
  std::size_t Count(ULONG reported) const noexcept {
    return block_ ? std::min<std::size_t>(reported, bytes_ / sizeof(Record)) : 0;
  }

 private:
  varnel::HeapBlock block_;
  std::size_t bytes_ = 0;
};

using SessionBuffer = RecordBuffer<iscsi::SessionInfo>;
using DeviceBuffer = RecordBuffer<iscsi::DeviceOnSession>;

struct Sessions {
  SessionBuffer buffer;
  std::size_t count = 0;
};

// The first answer tells how much memory the list takes. Any other answer leaves the second call without a buffer: it
// then says itself what is wrong.
Sessions ListSessions(std::string& errorDetails) {
  varnel::IscsiInitiator& initiator = CurrentHost().iscsi();
  ULONG bytes = 0;
  ULONG reported = 0;
  Sessions sessions;
  if (initiator.GetIScsiSessionListW(&bytes, &reported, nullptr) == ERROR_INSUFFICIENT_BUFFER) {
    sessions.buffer = SessionBuffer(bytes);
    if (!sessions.buffer) {
      varnel::WriteAlert<varnel::alert::kSessionMemory>(errorDetails);
      throw long{ERROR_INSUFFICIENT_BUFFER};
    }
  }
  const DWORD error = initiator.GetIScsiSessionListW(&bytes, &reported, sessions.buffer.Get());
  if (error != ERROR_SUCCESS) varnel::LogAndThrowWin32(L"GetIScsiSessionListW", error, varnel::CallText::bare);
  sessions.count = sessions.buffer.Count(reported);
  return sessions;
}

DWORD QueryDevices(iscsi::SessionInfo& session, ULONG& reported, const DeviceBuffer& buffer) {
  constexpr DWORD kPauseMilliseconds = 500;
  varnel::IscsiInitiator& initiator = CurrentHost().iscsi();
  const DWORD error = initiator.GetDevicesForIScsiSessionW(&session.SessionId, &reported, buffer.Get());
  if (error != iscsi::kDeviceBusyOnSession) return error;
  kLog.Warning(
      L"  GetDevicesForIScsiSessionW returned ISDSC_DEVICE_BUSY_ON_SESSION is sleeping for 500 ms and retrying. "
      L"DeviceCount:%d",
      reported);
  CurrentHost().time().Sleep(kPauseMilliseconds);
  // The busy answer may have raised the count beyond the room that there is.
  if (buffer) reported = static_cast<ULONG>(buffer.Count(reported));
  return initiator.GetDevicesForIScsiSessionW(&session.SessionId, &reported, buffer.Get());
}

// The device paths of the session; none when they cannot be read.
std::vector<std::wstring> DevicesOf(iscsi::SessionInfo& session, std::string& errorDetails) {
  ULONG reported = 0;
  DeviceBuffer buffer;
  const DWORD needed = CurrentHost().iscsi().GetDevicesForIScsiSessionW(&session.SessionId, &reported, nullptr);
  if (needed == ERROR_INSUFFICIENT_BUFFER) {
    buffer = DeviceBuffer(std::size_t{reported} * sizeof(iscsi::DeviceOnSession));
    if (!buffer) {
      varnel::WriteAlert<varnel::alert::kDeviceMemory>(errorDetails);
      throw long{ERROR_INSUFFICIENT_BUFFER};
    }
  }
  std::vector<std::wstring> devices;
  if (reported == 0) return devices;
  if (const DWORD error = QueryDevices(session, reported, buffer); error != ERROR_SUCCESS) {
    kLog.Error(L"GetDevicesForIScsiSessionW() Failed! Error=0x%x", error);
    return devices;
  }
  const std::size_t count = buffer.Count(reported);
  for (std::size_t i = 0; i < count; ++i) {
    const auto& name = buffer.Get()[i].LegacyName;
    devices.emplace_back(std::begin(name), std::find(std::begin(name), std::end(name), L'\0'));
  }
  return devices;
}

void LogOut(iscsi::SessionInfo& session) {
  constexpr int kTries = 5;
  constexpr DWORD kPauseMilliseconds = 10;
  const std::wstring target = session.TargetName == nullptr ? L"" : session.TargetName;
  for (int budget = kTries; budget > 0; --budget) {
    kLog.Info(L"Logging out of target %s  ", target);
    const DWORD error = CurrentHost().iscsi().LogoutIScsiTarget(&session.SessionId);
    if (error == ERROR_SUCCESS) return;
    kLog.Error(L"LogoutIScsiTarget() Failed, Target=%s, RetryCount=%d, Error=0x%x", target, budget, error);
    CurrentHost().time().Sleep(kPauseMilliseconds);
  }
}

}  // namespace

void CVarnel::BreakSnapshotSet(std::string& errorDetails) {
  kLog.Info(L"Breaking snapshot set...");
  varnel::CheckedCall(AlertAndThrow("m_pVssObject->BreakSnapshotSet()", errorDetails), m_pVssObject,
                      &IVssBackupComponents::BreakSnapshotSet, varnel::GuidOrNull<GUID>(m_snapshotSetId));
}

void CVarnel::MaskSnapshotSet(std::string& errorDetails) {
  constexpr char kCall[] = "pVssObject2->BreakSnapshotSetEx()";
  kLog.Info(L"Breaking snapshot set and masking the shadow copy LUNs...");
  const auto extended = varnel::ObtainInterface<IVssBackupComponentsEx2>(
      AlertAndThrow("m_pVssObject->QueryInterface(IVssBackupComponentsEx2)", errorDetails), m_pVssObject.Get(),
      varnel::kIidVssBackupComponentsEx2);
  const auto async = varnel::Obtain<IVssAsync>(AlertAndThrow(kCall, errorDetails), extended,
                                               &IVssBackupComponentsEx2::BreakSnapshotSetEx,
                                               varnel::GuidOrNull<GUID>(m_snapshotSetId), VSS_BREAKEX_FLAG_MASK_LUNS);
  WaitAndCheckForAsyncOperation(async.Get(), kCall, errorDetails);
}

void CVarnel::DeleteSnapshotSet(std::string& /*errorDetails*/) {
  kLog.Info(L"Deleting shadow copy set %s", m_snapshotSetId);
  LONG deleted = 0;
  VSS_ID notDeleted{};
  const HRESULT hr =
      varnel::ResultOf(m_pVssObject, &IVssBackupComponents::DeleteSnapshots, varnel::GuidOrNull<GUID>(m_snapshotSetId),
                       VSS_OBJECT_SNAPSHOT_SET, TRUE, &deleted, &notDeleted);
  if (SUCCEEDED(hr)) return;
  kLog.Error(L"DeleteSnapshots() Failed, SnapshotID=%s, Error=0x%x", varnel::FormatGuid(notDeleted), hr);
  // The text names the call as support knows it; the set is deleted by force.
  varnel::LogAndThrow(
      L"m_pVssObject->DeleteSnapshots(snapshotSetID, VSS_OBJECT_SNAPSHOT_SET,FALSE,&lSnapshots,&idNonDeleted)",
      varnel::CallText::wideLiteral)(hr);
}

void CVarnel::DisconnectSnapshotLuns(std::string& errorDetails) {
  kLog.Info(L"Disconnecting snapshot LUNs...");
  const Sessions sessions = ListSessions(errorDetails);
  for (std::size_t i = 0; i < sessions.count; ++i) {
    iscsi::SessionInfo& session = sessions.buffer.Get()[i];
    for (const std::wstring& device : DevicesOf(session, errorDetails)) {
      if (IsSnapShotDevice(device)) {
        LogOut(session);
        break;
      }
      kLog.Verbose(L"Device not snapshot device, Device=%s", device);
    }
  }
}

void CVarnel::VerifySnapShotData() {
  kLog.Info(L"VerifySnapShotData");
  for (VssWriter& writer : m_writers) {
    if (writer.excluded) continue;
    for (VssComponent& component : writer.components) {
      if (component.excluded || component.files.empty()) {
        kLog.Verbose(L"Component either excluded or has no files, Component=%s", component.name);
        continue;
      }
      for (VssFileDescriptor& file : component.files) VerifyComponentFile(file);
    }
  }
}
