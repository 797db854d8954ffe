#include "simulator/services/simulated_iscsi.h"

#include <utility>

#include "simulator/machine/volumes.h"
#include "simulator/machine/win32_codes.h"
#include "simulator/services/on_machine.h"
#include "simulator/vss/snapshot_service.h"
#include "text/ascii_case.h"
#include "text/guid.h"

namespace varnel::simulator {
namespace {

constexpr ULONGLONG kAdapter = 0xFFFF800000000000;
constexpr ULONGLONG kFirstSession = 0x4000013700000001;
constexpr GUID kDiskInterface = ParseGuid<GUID>("{53f56307-b6bf-11d0-94f2-00a0c91efb8b}");

bool SameSession(const iscsi::UniqueSessionId& a, const iscsi::UniqueSessionId& b) {
  return a.AdapterUnique == b.AdapterUnique && a.AdapterSpecific == b.AdapterSpecific;
}

std::wstring InitiatorName(const Machine& machine) {
  return L"iqn.1991-05.com.microsoft:" + ascii::ToLower(machine.model().computerName);
}

template <std::size_t n>
void CopyTruncated(std::wstring_view text, wchar_t (&target)[n]) {
  CopyWithEnd(text.substr(0, n - 1), target);
}

// The one buffer of a session list: the records, their connections, then the texts that they point at.
class SessionListBuffer {
 public:
  SessionListBuffer(iscsi::SessionInfo* list, std::size_t sessions)
      : connections_(reinterpret_cast<iscsi::ConnectionInfo*>(list + sessions)),
        text_(reinterpret_cast<wchar_t*>(connections_ + sessions)) {}

  static std::size_t FixedBytes(std::size_t sessions) {
    return sessions * (sizeof(iscsi::SessionInfo) + sizeof(iscsi::ConnectionInfo));
  }

  void Fill(iscsi::SessionInfo& info, const iscsi::UniqueSessionId& id, std::wstring_view initiator,
            std::wstring_view target) {
    info = {};
    info.SessionId = id;
    info.InitiatorName = Add(initiator);
    info.TargetNodeName = Add(target);
    info.TargetName = info.TargetNodeName;
    info.ConnectionCount = 1;
    info.Connections = connections_++;
    *info.Connections = {};
    info.Connections->ConnectionId = id;
  }

 private:
  PWSTR Add(std::wstring_view text) {
    CopyWithEnd(text, text_);
    return std::exchange(text_, text_ + text.size() + 1);
  }

  iscsi::ConnectionInfo* connections_;
  wchar_t* text_;
};

void FillDevice(const Machine& machine, const IscsiSession& session, DWORD disk, iscsi::DeviceOnSession& device) {
  device = {};
  CopyTruncated(InitiatorName(machine), device.InitiatorName);
  CopyTruncated(session.targetName, device.TargetName);
  device.ScsiAddress.Length = sizeof device.ScsiAddress;
  device.DeviceInterfaceType = kDiskInterface;
  CopyTruncated(L"\\\\?\\scsi#disk#" + std::to_wstring(disk) + L"#" + FormatGuid(kDiskInterface),
                device.DeviceInterfaceName);
  CopyTruncated(PhysicalDriveName(disk), device.LegacyName);
  device.StorageDeviceNumber.DeviceType = kFileDeviceDisk;
  device.StorageDeviceNumber.DeviceNumber = disk;
}

class SimulatedIscsi final : public OnMachine<IscsiInitiator> {
 public:
  using OnMachine::OnMachine;

  DWORD GetIScsiSessionListW(ULONG* bytes, ULONG* sessions, iscsi::SessionInfo* list) override {
    return CodeCall<DWORD>(machine_, "GetIScsiSessionListW", NoArguments, [&]() -> DWORD {
      if (bytes == nullptr || sessions == nullptr) return ERROR_INVALID_PARAMETER;
      const std::vector<Session> open = Sessions();
      ++lists_;
      const std::wstring initiator = InitiatorName(machine_);
      std::size_t needed = SessionListBuffer::FixedBytes(open.size());
      for (const Session& session : open) {
        needed += (initiator.size() + session.model->targetName.size() + 2) * sizeof(wchar_t);
      }
      const bool fits = needed == 0 || (list != nullptr && *bytes >= needed);
      *bytes = static_cast<ULONG>(needed);
      *sessions = static_cast<ULONG>(open.size());
      if (!fits) return ERROR_INSUFFICIENT_BUFFER;
      SessionListBuffer buffer(list, open.size());
      for (const Session& session : open) buffer.Fill(*list++, session.id, initiator, session.model->targetName);
      return ERROR_SUCCESS;
    });
  }

  DWORD GetDevicesForIScsiSessionW(iscsi::UniqueSessionId* session, ULONG* devices,
                                   iscsi::DeviceOnSession* list) override {
    const auto target = [&] { return TargetOf(session); };
    return CodeCall<DWORD>(machine_, "GetDevicesForIScsiSessionW", target, [&]() -> DWORD {
      const std::optional<Session> open = Find(session);
      if (!open) return kIscsiInvalidSession;
      if (devices == nullptr) return ERROR_INVALID_PARAMETER;
      const std::vector<DWORD> disks = DisksOf(*open);
      ++open->state->queries;
      if (list != nullptr && open->state->busyAnswers < open->model->busyQueries) {
        ++open->state->busyAnswers;
        return iscsi::kDeviceBusyOnSession;
      }
      const bool fits = disks.empty() || (list != nullptr && *devices >= disks.size());
      *devices = static_cast<ULONG>(disks.size());
      if (!fits) return ERROR_INSUFFICIENT_BUFFER;
      for (const DWORD disk : disks) FillDevice(machine_, *open->model, disk, *list++);
      return ERROR_SUCCESS;
    });
  }

  DWORD LogoutIScsiTarget(iscsi::UniqueSessionId* session) override {
    const auto lock = machine_.Lock();
    const std::string target = machine_.calls.enabled ? TargetOf(session) : std::string();
    return CodeCall<DWORD>(machine_, "LogoutIScsiTarget", Arguments(target), [&]() -> DWORD {
      const std::optional<Session> open = Find(session);
      if (!open) return kIscsiInvalidSession;
      if (open->state->failedLogouts < open->model->failedLogouts) {
        ++open->state->failedLogouts;
        return kIscsiLogoutFailed;
      }
      machine_.endedSessions.insert(open->index);
      return machine_.shared == nullptr ? ERROR_SUCCESS : machine_.shared->Save();
    });
  }

 private:
  // What has happened to a session of the model so far.
  struct SessionState {
    int busyAnswers = 0;
    int failedLogouts = 0;
    int queries = 0;  // of its devices
  };
  struct Session {
    std::size_t index;  // in the model
    const IscsiSession* model;
    SessionState* state;
    iscsi::UniqueSessionId id;
  };

  std::vector<Session> Sessions() {
    const std::vector<IscsiSession>& all = model().iscsiSessions;
    states_.resize(all.size());
    std::vector<Session> sessions;
    for (std::size_t i = 0; i < all.size(); ++i) {
      if (machine_.endedSessions.contains(i) || lists_ < all[i].appearsAfter) continue;
      sessions.push_back({i, &all[i], &states_[i], {kAdapter, kFirstSession + i}});
    }
    return sessions;
  }

  std::optional<Session> Find(const iscsi::UniqueSessionId* id) {
    if (id == nullptr) return std::nullopt;
    for (const Session& session : Sessions()) {
      if (SameSession(session.id, *id)) return session;
    }
    return std::nullopt;
  }

  std::string TargetOf(const iscsi::UniqueSessionId* id) {
    const std::optional<Session> session = Find(id);
    return session ? Show(session->model->targetName) : "unknown session";
  }

  std::vector<DWORD> DisksOf(const Session& session) const {
    std::vector<DWORD> disks;
    for (const IscsiDevice& device : session.model->devices) {
      if (session.state->queries < device.appearsAfter) continue;
      if (device.shadow) {
        for (const ShadowCopy* copy : CopiesOfDisk(machine_, device.diskSerial)) disks.push_back(copy->diskNumber);
        continue;
      }
      for (const Disk& disk : model().disks) {
        if (disk.serial == device.diskSerial) disks.push_back(disk.number);
      }
    }
    return disks;
  }

  int lists_ = 0;                     // session lists that were asked for
  std::vector<SessionState> states_;  // by index in the model
};

}  // namespace

std::unique_ptr<IscsiInitiator> MakeIscsiInitiator(Machine& machine) {
  return std::make_unique<SimulatedIscsi>(machine);
}

}  // namespace varnel::simulator
