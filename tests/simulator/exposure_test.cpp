// Shadow copies that are exposed under a drive letter, a folder or a share.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "simulator/machine/volumes.h"
#include "tests/simulator/backup.h"

namespace varnel::test {
namespace {

constexpr LONG kLocally = VSS_VOLSNAP_ATTR_EXPOSED_LOCALLY;
constexpr LONG kRemotely = VSS_VOLSNAP_ATTR_EXPOSED_REMOTELY;

// What callers give and get.
struct Exposure {
  HRESULT result = E_UNEXPECTED;
  std::wstring name;
};

Exposure Expose(Backup& backup, const GUID& copyId, LONG where, std::wstring name, std::wstring path = L"") {
  VSS_PWSZ exposed = nullptr;
  Exposure exposure;
  exposure.result = backup->ExposeSnapshot(copyId, path.empty() ? nullptr : path.data(), where, name.data(), &exposed);
  exposure.name = Wide(exposed);
  CurrentHost().vss().CoTaskMemFree(exposed);
  return exposure;
}

HRESULT Unexpose(Backup& backup, const GUID& copyId) {
  return backup.As<IVssBackupComponentsEx2>()->UnexposeSnapshot(copyId);
}

class Exposing : public ShadowCopyService {
 protected:
  // The device of the copy that holds a path; empty for a path on no copy.
  std::wstring CopyAt(std::wstring_view path) {
    const auto found = simulator::FindVolumeOfPath(host().machine(), path);
    return found && found->copy != nullptr ? found->copy->device : L"";
  }
  std::wstring MountPointOf(const std::wstring& path) {
    wchar_t mountPoint[MAX_PATH] = {};
    return host().storage().GetVolumePathNameW(path.c_str(), mountPoint, MAX_PATH) ? mountPoint : L"";
  }
};

TEST_F(Exposing, MountsACopyAsADrive) {
  Backup backup(Phase::complete, VSS_CTX_APP_ROLLBACK);
  const GUID id = backup.copyIds.at(0);
  const Exposure exposure = Expose(backup, id, kLocally, L"x:");
  EXPECT_THAT(exposure.result, Gives(S_OK));
  EXPECT_EQ(exposure.name, L"x:\\");

  SnapshotProperties properties;
  ASSERT_THAT(backup->GetSnapshotProperties(id, properties.Put()), Gives(S_OK));
  EXPECT_EQ(Wide(properties->m_pwszExposedName), L"x:\\");
  EXPECT_EQ(properties->m_pwszExposedPath, nullptr);
  EXPECT_EQ(properties->m_lSnapshotAttributes & (kLocally | kRemotely), kLocally);

  const std::wstring device = Copies().at(0)->device;
  EXPECT_EQ(CopyAt(L"X:\\data\\sales.mdf"), device);
  EXPECT_EQ(CopyAt(L"\\\\?\\x:\\"), device);
  EXPECT_EQ(MountPointOf(L"X:\\data\\sales.mdf"), L"X:\\");
  EXPECT_EQ(CopyAt(L"E:\\data"), L"") << "the original stays";

  backup.Release();
  EXPECT_EQ(CopyAt(L"X:\\data"), device) << "a persistent copy and its exposure outlive the object";
  Backup administrator(Phase::initialized, Context(VSS_CTX_ALL));
  EXPECT_THAT(Unexpose(administrator, id), Gives(S_OK));
  EXPECT_EQ(CopyAt(L"X:\\data"), L"");
  EXPECT_EQ(Copies().at(0)->attributes & (kLocally | kRemotely), 0);
  EXPECT_THAT(Unexpose(administrator, id), Gives(VSS_E_OBJECT_NOT_FOUND));
}

TEST_F(Exposing, MountsACopyInAFolder) {
  Backup backup(Phase::complete, VSS_CTX_APP_ROLLBACK);
  const Exposure exposure = Expose(backup, backup.copyIds.at(0), kLocally, L"C:\\Mounts\\Sales\\");
  EXPECT_THAT(exposure.result, Gives(S_OK));
  EXPECT_EQ(exposure.name, L"C:\\Mounts\\Sales\\");
  EXPECT_EQ(CopyAt(L"c:\\mounts\\sales"), Copies().at(0)->device);
  EXPECT_EQ(CopyAt(L"C:/Mounts/Sales/data"), Copies().at(0)->device);
  EXPECT_EQ(CopyAt(L"C:\\Mounts\\Sales2"), L"");
  EXPECT_EQ(MountPointOf(L"C:\\Mounts\\Sales\\data"), L"C:\\Mounts\\Sales\\");
  EXPECT_EQ(MountPointOf(L"C:\\Mounts"), L"C:\\");
  EXPECT_THAT(backup.Delete(backup.setId, VSS_OBJECT_SNAPSHOT_SET), Gives(S_OK));
  EXPECT_EQ(CopyAt(L"C:\\Mounts\\Sales\\data"), L"") << "the exposure goes with the copy";
}

TEST_F(Exposing, SharesACopyOrAPartOfIt) {
  Backup backup(Phase::setStarted, VSS_CTX_APP_ROLLBACK);
  ASSERT_THAT(backup.AddVolume(L"F:\\"), Gives(S_OK));
  backup.Take();
  const GUID id = backup.copyIds.at(0);
  const Exposure exposure = Expose(backup, id, kRemotely, L"sales", L"data\\2026");
  EXPECT_THAT(exposure.result, Gives(S_OK));
  EXPECT_EQ(exposure.name, L"sales");
  SnapshotProperties properties;
  ASSERT_THAT(backup->GetSnapshotProperties(id, properties.Put()), Gives(S_OK));
  EXPECT_EQ(Wide(properties->m_pwszExposedName), L"sales");
  EXPECT_EQ(Wide(properties->m_pwszExposedPath), L"data\\2026");
  EXPECT_EQ(properties->m_lSnapshotAttributes & (kLocally | kRemotely), kRemotely);
  EXPECT_THAT(Expose(backup, backup.copyIds.at(1), kRemotely, L"SALES").result, Gives(VSS_E_OBJECT_ALREADY_EXISTS));
  EXPECT_THAT(Expose(backup, backup.copyIds.at(1), kRemotely, L"other").result, Gives(S_OK));
  EXPECT_THAT(Unexpose(backup, id), Gives(S_OK));
  EXPECT_THAT(Expose(backup, id, kRemotely, L"sales").result, Gives(S_OK));
}

TEST_F(Exposing, RefusesWhatIsTakenOrNotThere) {
  Backup backup(Phase::setStarted, VSS_CTX_APP_ROLLBACK);
  ASSERT_THAT(backup.AddVolume(L"F:\\"), Gives(S_OK));
  backup.Take();
  const GUID id = backup.copyIds.at(0);
  EXPECT_THAT(Expose(backup, ClassId(0x99), kLocally, L"X:").result, Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(Expose(backup, id, kLocally, L"e:\\").result, Gives(VSS_E_OBJECT_ALREADY_EXISTS));
  EXPECT_THAT(Expose(backup, id, kLocally, L"C:\\mnt\\data").result, Gives(VSS_E_OBJECT_ALREADY_EXISTS));
  EXPECT_THAT(Expose(backup, id, kLocally, L"Q:\\folder").result, Gives(VSS_E_OBJECT_NOT_FOUND));
  ASSERT_THAT(Expose(backup, id, kLocally, L"X:").result, Gives(S_OK));
  EXPECT_THAT(Expose(backup, id, kLocally, L"Y:").result, Gives(VSS_E_OBJECT_ALREADY_EXISTS));
  EXPECT_THAT(Expose(backup, backup.copyIds.at(1), kLocally, L"x:\\").result, Gives(VSS_E_OBJECT_ALREADY_EXISTS));
  EXPECT_THAT(Expose(backup, backup.copyIds.at(1), kLocally, L"X:\\in").result, Gives(S_OK)) << "a folder of the copy";
}

TEST_F(Exposing, RefusesNamesAndAttributesThatMakeNoSense) {
  Backup backup(Phase::complete, VSS_CTX_APP_ROLLBACK);
  const GUID id = backup.copyIds.at(0);
  for (const wchar_t* name :
       {L"", L"X", L"1:", L"X:dir", L"X:\\\\", L"C:\\a\\\\b", L"C:\\%TEMP%\\x", L"C:\\a*", L"C:/a"}) {
    EXPECT_THAT(Expose(backup, id, kLocally, name).result, Gives(E_INVALIDARG)) << WideToUtf8(name);
  }
  for (const wchar_t* name : {L"", L"a\\b", L"C:", L"a*"}) {
    EXPECT_THAT(Expose(backup, id, kRemotely, name).result, Gives(E_INVALIDARG)) << WideToUtf8(name);
  }
  EXPECT_THAT(Expose(backup, id, kLocally, L"X:", L"data").result, Gives(E_INVALIDARG)) << "a whole volume is mounted";
  EXPECT_THAT(Expose(backup, id, kRemotely, L"s", L"%data%").result, Gives(E_INVALIDARG));
  EXPECT_THAT(Expose(backup, id, kLocally | kRemotely, L"X:").result, Gives(E_INVALIDARG));
  EXPECT_THAT(Expose(backup, id, 0, L"X:").result, Gives(E_INVALIDARG));
  std::wstring drive = L"X:";
  VSS_PWSZ exposed = nullptr;
  EXPECT_THAT(backup->ExposeSnapshot(id, nullptr, kLocally, drive.data(), nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->ExposeSnapshot(id, nullptr, kLocally, nullptr, &exposed), Gives(E_INVALIDARG));
  EXPECT_THAT(Expose(backup, id, kLocally, L"X:").result, Gives(S_OK));
}

TEST_F(Exposing, IsRefusedForCopiesThatAreNotHereAndOutOfOrder) {
  Backup transportable(Phase::complete, kTransportable);
  EXPECT_THAT(Expose(transportable, transportable.copyIds.at(0), kLocally, L"X:").result,
              Gives(VSS_E_OBJECT_NOT_FOUND));
  Backup broken(Phase::complete, VSS_CTX_APP_ROLLBACK);
  Expect(broken->BreakSnapshotSet(broken.setId), S_OK);
  EXPECT_THAT(Expose(broken, broken.copyIds.at(0), kLocally, L"X:").result, Gives(VSS_E_OBJECT_NOT_FOUND));
  Backup created;
  EXPECT_THAT(Expose(created, ClassId(1), kLocally, L"X:").result, Gives(VSS_E_BAD_STATE));
  EXPECT_THAT(Unexpose(created, ClassId(1)), Gives(VSS_E_BAD_STATE));
}

}  // namespace
}  // namespace varnel::test
