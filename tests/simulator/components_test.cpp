// Components of a backup, and the volumes and providers of its set.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/simulator/backup.h"

namespace varnel::test {
namespace {

TEST_F(ShadowCopyService, AddsOnlyComponentsOfTheMetadata) {
  Backup backup(Phase::gathered);
  const GUID instance = InstanceId(0xA);
  const GUID writer = ClassId(0xA);
  EXPECT_THAT(backup->AddComponent(instance, writer, VSS_CT_FILEGROUP, L"SQL01", L"unknown"),
              Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(backup->AddComponent(instance, writer, VSS_CT_FILEGROUP, nullptr, L"sales"),
              Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(backup->AddComponent(instance, writer, VSS_CT_DATABASE, L"SQL01", L"sales"),
              Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(backup->AddComponent(writer, writer, VSS_CT_FILEGROUP, L"SQL01", L"sales"),
              Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(backup->AddComponent(instance, ClassId(0xB), VSS_CT_FILEGROUP, L"SQL01", L"sales"),
              Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(backup->AddComponent(instance, writer, VSS_CT_FILEGROUP, L"sql01", L"SALES"), Gives(S_OK));
  EXPECT_THAT(backup->AddComponent(instance, writer, VSS_CT_FILEGROUP, L"SQL01", L"sales"),
              Gives(VSS_E_OBJECT_ALREADY_EXISTS));
}

TEST_F(ShadowCopyService, RefusesComponentsThatASelectableAncestorIncludes) {
  Backup backup(Phase::gathered);
  EXPECT_THAT(backup.Add(0xB, L"Server", L"Store"), Gives(E_INVALIDARG));
  EXPECT_THAT(backup.Add(0xB, L"Server\\Store", L"Log"), Gives(E_INVALIDARG));
  EXPECT_THAT(backup.Add(0xB, nullptr, L"Server"), Gives(S_OK));
  EXPECT_THAT(backup.Add(0xB, L"", L"Server"), Gives(VSS_E_OBJECT_ALREADY_EXISTS));
  EXPECT_THAT(backup.Add(0xB, L"Other", L"Required"), Gives(S_OK)) << "not selectable, but nothing above it is";
}

TEST_F(ShadowCopyService, FindsEachOfTenThousandComponentsByItsKey) {
  constexpr int kComponents = 10000;
  HostModel model = SmallHost();
  std::vector<simulator::WriterComponent> components;
  for (int i = 0; i < kComponents; ++i) components.push_back(MakeComponent(L"S", L"db" + std::to_wstring(i), {}));
  model.writers = {MakeWriter(L"SqlServerWriter", 0xA, std::move(components))};
  Install(std::move(model));
  host().calls().enabled = false;
  Backup backup(Phase::gathered);
  const auto nameOf = [](int i) { return L"DB" + std::to_wstring(i); };
  int added = 0;
  for (int i = 0; i < kComponents; ++i) added += backup.Add(0xA, L"S", nameOf(i).c_str()) == S_OK;
  backup.StartSet().Take();
  int succeeded = 0;
  for (int i = 0; i < kComponents; ++i) {
    succeeded += backup.Mark(0xA, L"S", nameOf(i).c_str()) == S_OK;
  }
  EXPECT_EQ(added, kComponents);
  EXPECT_EQ(succeeded, kComponents);
}

TEST_F(ShadowCopyService, MarksOnlyAddedComponentsAsSucceeded) {
  Backup backup(Phase::snapshotDone);
  const auto mark = [&](VSS_COMPONENT_TYPE type, LPCWSTR name) {
    return backup->SetBackupSucceeded(InstanceId(0xA), ClassId(0xA), type, L"SQL01", name, true);
  };
  EXPECT_THAT(mark(VSS_CT_FILEGROUP, L"sales"), Gives(S_OK));
  EXPECT_THAT(mark(VSS_CT_FILEGROUP, L"crm"), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(mark(VSS_CT_DATABASE, L"sales"), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(mark(VSS_CT_FILEGROUP, nullptr), Gives(E_INVALIDARG));
}

TEST_F(ShadowCopyService, KeepsOptionsAndStampsOfTheRequestor) {
  Backup backup(Phase::setStarted);
  EXPECT_THAT(backup->SetBackupOptions(ClassId(0xA), VSS_CT_FILEGROUP, L"SQL01", L"sales", L"fast"), Gives(S_OK));
  EXPECT_THAT(backup->SetPreviousBackupStamp(ClassId(0xA), VSS_CT_FILEGROUP, L"SQL01", L"sales", L"before"),
              Gives(S_OK));
  EXPECT_THAT(backup->SetBackupOptions(ClassId(0xA), VSS_CT_FILEGROUP, L"SQL01", L"crm", L"fast"),
              Gives(VSS_E_OBJECT_NOT_FOUND));
  backup.Prepare();
  const BackupDocument document = ParseBackupDocument(WideToUtf8(backup.Document()));
  EXPECT_EQ(document.writers.at(0).components.at(0).backupOptions, L"fast");
  EXPECT_EQ(document.writers.at(0).components.at(0).previousBackupStamp, L"before");
}

TEST_F(ShadowCopyService, FindsAVolumeByDriveMountedFolderAndName) {
  for (const std::wstring& name : {std::wstring(L"e:\\"), std::wstring(L"C:\\MNT\\data\\"), VolumeName(1)}) {
    SCOPED_TRACE(WideToUtf8(name));
    Backup backup(Phase::gathered);
    backup.StartSet();
    EXPECT_THAT(backup.AddVolume(name.c_str()), Gives(S_OK));
    for (const std::wstring& other : {std::wstring(L"E:\\"), std::wstring(L"C:\\mnt\\data\\"), VolumeName(1)}) {
      EXPECT_THAT(backup.AddVolume(other.c_str()), Gives(VSS_E_OBJECT_ALREADY_EXISTS));
    }
    EXPECT_THAT(backup.AddVolume(L"F:\\"), Gives(S_OK));
  }
}

TEST_F(ShadowCopyService, RefusesVolumesThatItCannotName) {
  Backup backup(Phase::gathered);
  backup.StartSet();
  EXPECT_THAT(backup.AddVolume(L"E:"), Gives(E_INVALIDARG));
  EXPECT_THAT(backup.AddVolume(L""), Gives(E_INVALIDARG));
  EXPECT_THAT(backup.AddVolume(L"X:\\"), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(backup.AddVolume(L"E:\\data\\"), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(backup.AddVolume(L"\\\\server\\share\\"), Gives(VSS_E_OBJECT_NOT_FOUND));
}

TEST_F(ShadowCopyService, TakesSixtyFourVolumesPerSet) {
  HostModel model = VssHost();
  simulator::Disk& disk = model.disks[2];
  disk.volumes.clear();
  const auto folder = [](int i) { return L"C:\\v\\" + std::to_wstring(i) + L"\\"; };
  for (int i = 0; i < 65; ++i) disk.volumes.push_back({VolumeName(100 + i), {folder(i)}, false, L""});
  Install(std::move(model));
  Backup backup(Phase::gathered);
  backup.StartSet();
  for (int i = 0; i < 64; ++i) ASSERT_THAT(backup.AddVolume(folder(i).c_str()), Gives(S_OK));
  EXPECT_THAT(backup.AddVolume(folder(64).c_str()), Gives(VSS_E_MAXIMUM_NUMBER_OF_VOLUMES_REACHED));
  backup.Take();
  EXPECT_THAT(Copies(), SizeIs(64));
}

TEST_F(ShadowCopyService, PrefersHardwareThenSoftwareThenSystemProviders) {
  const std::vector<simulator::Provider> all = {kFileShareProvider, kSystemProvider, kSoftwareProvider,
                                                kHardwareProvider};
  for (const GUID& expected : {kHardware, kSoftware, kSystem}) {
    const std::ptrdiff_t count = expected == kHardware ? 4 : (expected == kSoftware ? 3 : 2);
    Install(HostWithProviders({all.begin(), all.begin() + count}));
    Backup backup(Phase::snapshotDone);
    EXPECT_EQ(Copies().at(0)->providerId, expected);
  }
  Install(HostWithProviders({kFileShareProvider}));
  Backup backup(Phase::gathered);
  backup.StartSet();
  EXPECT_THAT(backup.AddVolume(L"E:\\"), Gives(VSS_E_VOLUME_NOT_SUPPORTED));
}

TEST_F(ShadowCopyService, UsesANamedProviderOnlyWhereItSupportsTheVolume) {
  struct Case {
    LONG context;
    GUID provider;
    HRESULT expected;
  };
  const Case cases[] = {
      {VSS_CTX_BACKUP, kHardware, S_OK},
      {VSS_CTX_BACKUP, kSoftware, S_OK},
      {VSS_CTX_BACKUP, kSystem, S_OK},
      {VSS_CTX_BACKUP, kFileShare, VSS_E_VOLUME_NOT_SUPPORTED_BY_PROVIDER},
      {VSS_CTX_BACKUP, ClassId(0x77), VSS_E_PROVIDER_NOT_REGISTERED},
      {kTransportable, kHardware, S_OK},
      {kTransportable, kSoftware, VSS_E_VOLUME_NOT_SUPPORTED_BY_PROVIDER},
      {kTransportable, kSystem, VSS_E_VOLUME_NOT_SUPPORTED_BY_PROVIDER},
      {VSS_CTX_CLIENT_ACCESSIBLE_WRITERS, kHardware, VSS_E_VOLUME_NOT_SUPPORTED_BY_PROVIDER},
      {VSS_CTX_CLIENT_ACCESSIBLE_WRITERS, kSystem, S_OK},
  };
  Install(HostWithProviders({kHardwareProvider, kSoftwareProvider, kSystemProvider, kFileShareProvider}));
  for (const Case& tried : cases) {
    SCOPED_TRACE(testing::Message() << tried.context << " " << WideToUtf8(FormatGuid(tried.provider)));
    Backup backup(Phase::gathered, tried.context);
    backup.StartSet();
    EXPECT_THAT(backup.AddVolume(L"E:\\", tried.provider), Gives(tried.expected));
    std::wstring volume = L"E:\\";
    BOOL supported = 7;
    const bool unknown = tried.expected == VSS_E_PROVIDER_NOT_REGISTERED;
    EXPECT_THAT(backup->IsVolumeSupported(tried.provider, volume.data(), &supported),
                Gives(unknown ? tried.expected : S_OK));
    EXPECT_EQ(supported, unknown ? 7 : (tried.expected == S_OK ? TRUE : FALSE));
  }
}

TEST_F(ShadowCopyService, AsksForExistingVolumesOnly) {
  Backup backup(Phase::initialized);
  BOOL supported = FALSE;
  std::wstring missing = L"X:\\";
  std::wstring bare = L"E:";
  EXPECT_THAT(backup->IsVolumeSupported(GUID{}, missing.data(), &supported), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(backup->IsVolumeSupported(GUID{}, bare.data(), &supported), Gives(E_INVALIDARG));
}

TEST_F(ShadowCopyService, LimitsTheCopiesOfTheSystemProviderPerVolume) {
  Install(HostWithProviders({kSystemProvider}));
  host().calls().enabled = false;
  for (int i = 0; i < 64; ++i) {
    Backup backup(Phase::snapshotDone, VSS_CTX_CLIENT_ACCESSIBLE_WRITERS);
  }
  Backup backup(Phase::gathered, VSS_CTX_CLIENT_ACCESSIBLE_WRITERS);
  backup.StartSet();
  EXPECT_THAT(backup.AddVolume(L"E:\\"), Gives(VSS_E_MAXIMUM_NUMBER_OF_SNAPSHOTS_REACHED));
  EXPECT_THAT(backup.AddVolume(L"F:\\"), Gives(S_OK));
}

}  // namespace
}  // namespace varnel::test
