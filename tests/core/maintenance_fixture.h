// The fixture of what becomes of a snapshot set after it was taken.
#pragma once

#include "simulator/vss/snapshot_service.h"
#include "tests/support/request_fixture.h"

namespace varnel::test {

using simulator::IscsiSession;
using simulator::ShadowCopy;

inline constexpr char kSetId[] = "{00000002-5e1f-4c3d-9a0b-000000000000}";

using Operation = void (CVarnel::*)(std::string&);

inline Outcome OutcomeOn(SnapshotRequest<>& request, Operation operation) {
  return OutcomeOf([&] { (request.requestor.*operation)(request.details()); });
}

/// Everything that the operations must leave as it is.
inline std::vector<std::wstring> Records(SnapshotRequest<>& request) {
  std::vector<std::wstring> records = {request.requestor.GetSnapShotSetId(), request.requestor.GetBackupDocument(),
                                       request.probe.snapshotDone() ? L"done" : L"not done"};
  for (const SnapshotVolumeInfo& volume : request.requestor.GetSnapshotVolumes()) {
    records.insert(records.end(), {volume.volumeName, volume.snapshotId, volume.snapshotDeviceName});
  }
  for (const VssWriter& writer : request.requestor.GetWriters()) {
    for (const VssComponent& component : writer.components) {
      records.push_back(component.excluded ? L"excluded" : component.failed ? L"failed" : L"selected");
      for (const VssFileDescriptor& file : component.files) records.push_back(file.snapshotDiskName);
    }
  }
  return records;
}

class MaintenanceTest : public HostFixture {
 protected:
  void SetUp() override { Install(Model()); }

  /// One writer with a component on each of the array's disks.
  static simulator::HostModel Model(std::vector<IscsiSession> sessions = {}) {
    simulator::HostModel model = SmallHost();
    model.writers = {MakeWriter(
        L"Mail", 1, {MakeComponent(L"mail", L"db1", {L"E:\\db"}), MakeComponent(L"mail", L"db2", {L"F:\\db"})})};
    model.iscsiSessions = std::move(sessions);
    return model;
  }

  std::vector<std::wstring> Disks() {
    std::vector<WmiDisk> disks;
    EXPECT_EQ(host().wmi().QueryDisks(disks), S_OK);
    std::vector<std::wstring> serials;
    for (const WmiDisk& disk : disks) serials.push_back(disk.serialNumber);
    return serials;
  }

  /// The copies that the service knows of the request's set.
  std::vector<std::wstring> CopiesOf(SnapshotRequest<>& request) {
    const GUID setId = TryParseGuid<GUID>(std::wstring_view(request.requestor.GetSnapShotSetId())).value_or(GUID{});
    std::vector<std::wstring> serials;
    for (const ShadowCopy* copy : host().machine().snapshots->CopiesOfSet(setId)) serials.push_back(copy->serial);
    return serials;
  }
};

}  // namespace varnel::test
