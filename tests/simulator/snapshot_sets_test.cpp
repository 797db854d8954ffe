// Snapshot sets and copies: how they are made, listed, deleted, broken and imported, and the providers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/simulator/backup.h"

namespace varnel::test {
namespace {

TEST_F(ShadowCopyService, LetsOnlyOneSetBeUnderConstructionOnTheMachine) {
  using Ending = std::function<void(Backup&)>;
  const std::pair<const char*, Ending> endings[] = {
      {"abort", [](Backup& b) { b->AbortBackup(); }},
      {"release", [](Backup& b) { b.Release(); }},
      {"success", [](Backup& b) { b.Prepare().Snapshot(); }},
      {"failure",
       [this](Backup& b) {
         host().faults().FailAsync("DoSnapshotSet", VSS_E_PROVIDER_VETO);
         b.Prepare().Snapshot();
       }},
  };
  for (const auto& [name, end] : endings) {
    SCOPED_TRACE(name);
    Install(VssHost());
    Backup first(Phase::setStarted);
    Backup second(Phase::gathered);
    GUID id{};
    EXPECT_THAT(second->StartSnapshotSet(&id), Gives(VSS_E_SNAPSHOT_SET_IN_PROGRESS));
    end(first);
    EXPECT_THAT(second->StartSnapshotSet(&id), Gives(S_OK));
  }
}

TEST_F(ShadowCopyService, SurfacesEachCopyOnADiskOfItsOwn) {
  Backup backup(Phase::setStarted);
  ASSERT_THAT(backup.AddVolume(L"F:\\"), Gives(S_OK));
  backup.Prepare();
  EXPECT_THAT(Copies(), IsEmpty());
  EXPECT_THAT(backup.PropertiesOf(backup.copyIds.at(0)), Gives(VSS_E_OBJECT_NOT_FOUND));
  host().machine().now = 1000;
  ASSERT_THAT(backup.Snapshot(), Gives(VSS_S_ASYNC_FINISHED));

  const std::vector<const ShadowCopy*> copies = Copies();
  ASSERT_THAT(copies, SizeIs(2));
  EXPECT_EQ(copies[0]->diskNumber, 3U);
  EXPECT_EQ(copies[0]->serial, L"SHADOW-TSL0001");
  EXPECT_EQ(copies[1]->diskNumber, 4U);
  EXPECT_EQ(copies[1]->serial, L"SHADOW-TSL0002");

  SnapshotProperties properties;
  ASSERT_THAT(backup->GetSnapshotProperties(backup.copyIds.at(1), properties.Put()), Gives(S_OK));
  EXPECT_EQ(properties->m_SnapshotId, backup.copyIds.at(1));
  EXPECT_EQ(properties->m_SnapshotSetId, backup.setId);
  EXPECT_EQ(properties->m_lSnapshotsCount, 2);
  EXPECT_EQ(Wide(properties->m_pwszSnapshotDeviceObject), L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy2");
  EXPECT_EQ(Wide(properties->m_pwszOriginalVolumeName), VolumeName(2));
  EXPECT_EQ(Wide(properties->m_pwszOriginatingMachine), L"SQL01");
  EXPECT_EQ(Wide(properties->m_pwszServiceMachine), L"SQL01");
  EXPECT_EQ(properties->m_pwszExposedName, nullptr);
  EXPECT_EQ(properties->m_pwszExposedPath, nullptr);
  EXPECT_EQ(properties->m_ProviderId, kHardware);
  EXPECT_EQ(properties->m_lSnapshotAttributes, Context(VSS_VOLSNAP_ATTR_HARDWARE_ASSISTED, VSS_VOLSNAP_ATTR_IMPORTED));
  EXPECT_EQ(properties->m_tsCreationTimestamp, copies[0]->timestamp);
  EXPECT_EQ(properties->m_eStatus, VSS_SS_CREATED);
}

TEST_F(ShadowCopyService, FreesTheStringsOfPropertiesOnceAndNullsThem) {
  Backup backup(Phase::snapshotDone);
  VSS_SNAPSHOT_PROP properties{};
  ASSERT_THAT(backup->GetSnapshotProperties(backup.copyIds.at(0), &properties), Gives(S_OK));
  EXPECT_EQ(host().live().Count("task memory"), 4);
  CurrentHost().vss().VssFreeSnapshotProperties(&properties);
  EXPECT_EQ(properties.m_pwszSnapshotDeviceObject, nullptr);
  CurrentHost().vss().VssFreeSnapshotProperties(&properties);
  EXPECT_EQ(host().live().Count("task memory"), 0);
}

TEST_F(ShadowCopyService, CountsDevicesUpAndUsesFreeDiskNumbersAgain) {
  host().model().disks[2].number = 5;
  Backup first(Phase::snapshotDone);
  EXPECT_EQ(Copies().at(0)->diskNumber, 2U);
  first.Release();
  EXPECT_THAT(Copies(), IsEmpty());
  Backup second(Phase::snapshotDone);
  EXPECT_EQ(Copies().at(0)->diskNumber, 2U);
  EXPECT_THAT(WideToUtf8(Copies().at(0)->device), EndsWith("HarddiskVolumeShadowCopy2"));
}

TEST_F(ShadowCopyService, LeavesCopiesOfTheSystemProviderOnTheirDisk) {
  Install(HostWithProviders({kSystemProvider}));
  Backup backup(Phase::snapshotDone);
  const ShadowCopy& copy = *Copies().at(0);
  EXPECT_FALSE(copy.ownDisk);
  EXPECT_EQ(copy.diskNumber, 1U);
  EXPECT_EQ(copy.serial, L"TSL0001");
  EXPECT_EQ(copy.attributes, VSS_VOLSNAP_ATTR_DIFFERENTIAL);
  EXPECT_THAT(backup->BreakSnapshotSet(backup.setId), Gives(VSS_E_PROVIDER_VETO));
  EXPECT_THAT(Copies(), SizeIs(1));
}

TEST_F(ShadowCopyService, FailsTheSetWhenAVolumeVanishedMeanwhile) {
  Backup backup(Phase::setStarted);
  ASSERT_THAT(backup.AddVolume(L"F:\\"), Gives(S_OK));
  backup.Prepare();
  host().model().disks.pop_back();
  EXPECT_THAT(backup.Snapshot(), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(Copies(), IsEmpty()) << "all or none";
}

TEST_F(ShadowCopyService, AcceptsAnEmptySetWhenWritersTakePart) {
  Backup backup(Phase::gathered);
  backup.StartSet().Take();
  EXPECT_THAT(Copies(), IsEmpty());
}

TEST_F(ShadowCopyService, ReleasesAutoReleaseCopiesAndKeepsPersistentOnes) {
  Backup released(Phase::complete);
  Backup kept(Phase::complete, VSS_CTX_APP_ROLLBACK);
  released.Release();
  ASSERT_THAT(Copies(), SizeIs(1));
  EXPECT_EQ(Copies()[0]->attributes,
            Context(VSS_CTX_APP_ROLLBACK, VSS_VOLSNAP_ATTR_HARDWARE_ASSISTED, VSS_VOLSNAP_ATTR_IMPORTED));
  kept.Release();
  EXPECT_THAT(Copies(), SizeIs(1));
}

TEST_F(ShadowCopyService, DeletesACopyOrAWholeSet) {
  Backup backup;
  backup.TakeBoth();
  LONG deleted = 7;
  EXPECT_THAT(backup.Delete(backup.setId, VSS_OBJECT_PROVIDER, &deleted), Gives(E_INVALIDARG));
  EXPECT_THAT(backup.Delete(backup.setId, VSS_OBJECT_SNAPSHOT, &deleted), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_EQ(deleted, 0);
  EXPECT_THAT(backup.Delete(backup.copyIds.at(0), VSS_OBJECT_SNAPSHOT, &deleted), Gives(S_OK));
  EXPECT_EQ(deleted, 1);
  EXPECT_THAT(backup.PropertiesOf(backup.copyIds.at(0)), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(backup.Delete(backup.setId, VSS_OBJECT_SNAPSHOT_SET, &deleted), Gives(S_OK));
  EXPECT_EQ(deleted, 1);
  EXPECT_THAT(backup.Delete(backup.setId, VSS_OBJECT_SNAPSHOT_SET, &deleted), Gives(VSS_E_OBJECT_NOT_FOUND));
}

TEST_F(ShadowCopyService, StopsDeletingAtTheFirstCopyThatStays) {
  Install(HostWithProviders({kHardwareProvider, kSoftwareProvider}));
  Backup backup(Phase::setStarted, VSS_CTX_APP_ROLLBACK);
  ASSERT_THAT(backup.AddVolume(L"F:\\", kSoftware), Gives(S_OK));
  backup.Take();
  host().model().providers.pop_back();
  LONG deleted = 0;
  GUID left{};
  EXPECT_THAT(backup->DeleteSnapshots(backup.setId, VSS_OBJECT_SNAPSHOT_SET, FALSE, &deleted, &left),
              Gives(VSS_E_UNEXPECTED_PROVIDER_ERROR));
  EXPECT_EQ(deleted, 1);
  EXPECT_EQ(left, backup.copyIds.at(1));
}

TEST_F(ShadowCopyService, DeletesUpToTheCopyThatItsProviderKeeps) {
  for (const bool firstStays : {true, false}) {
    SCOPED_TRACE(firstStays);
    Install(VssHost());
    host().faults().FailDeletion({firstStays ? L"TSL0001" : L"TSL0002", VSS_E_PROVIDER_VETO});
    Backup backup;
    backup.TakeBoth();
    LONG deleted = 7;
    GUID left{};
    EXPECT_THAT(backup->DeleteSnapshots(backup.setId, VSS_OBJECT_SNAPSHOT_SET, TRUE, &deleted, &left),
                Gives(VSS_E_PROVIDER_VETO));
    EXPECT_EQ(deleted, firstStays ? 0 : 1);
    EXPECT_EQ(left, backup.copyIds.at(firstStays ? 0 : 1));
    EXPECT_THAT(Copies(), SizeIs(firstStays ? 2 : 1));
    EXPECT_THAT(backup.PropertiesOf(left), Gives(S_OK));
    EXPECT_THAT(
        host().calls().Of("IVssBackupComponents::DeleteSnapshots"),
        ElementsAre("IVssBackupComponents::DeleteSnapshots(" + WideToUtf8(FormatGuid(backup.setId)) + ", 2, 1 -> " +
                    std::to_string(deleted) + ", not " + WideToUtf8(FormatGuid(left)) + ") = VSS_E_PROVIDER_VETO"));
    EXPECT_THAT(backup.Delete(left, VSS_OBJECT_SNAPSHOT), Gives(VSS_E_PROVIDER_VETO));
    host().faults().Load({});
    EXPECT_THAT(backup.Delete(backup.setId, VSS_OBJECT_SNAPSHOT_SET), Gives(S_OK));
    EXPECT_THAT(Copies(), IsEmpty());
  }
}

TEST_F(ShadowCopyService, KeepsAutoReleaseCopiesUntilTheLastReferenceGoes) {
  Backup backup;
  backup.TakeBoth(VSS_CTX_BACKUP);
  auto extended = backup.As<IVssBackupComponentsEx2>();
  backup.Release();
  EXPECT_THAT(Copies(), SizeIs(2));
  EXPECT_THAT(Told(WriterEvent::backupShutdown), IsEmpty());
  extended.Reset();
  EXPECT_THAT(Copies(), IsEmpty());
  EXPECT_THAT(Told(WriterEvent::backupShutdown), ElementsAre(L"SqlServerWriter"));
}

TEST_F(ShadowCopyService, ListsABrokenSetNoMore) {
  Backup backup;
  backup.TakeBoth();
  const auto count = [] {
    Backup administrator(Phase::initialized, Context(VSS_CTX_ALL));
    ComPtr<IVssEnumObject> found;
    const HRESULT result = administrator->Query(GUID{}, VSS_OBJECT_NONE, VSS_OBJECT_SNAPSHOT, found.Put());
    ULONG fetched = 0;
    VSS_OBJECT_PROP objects[3] = {};
    EXPECT_THAT(found->Next(3, objects, &fetched), Gives(S_FALSE));
    EXPECT_THAT(result, Gives(fetched == 0 ? S_FALSE : S_OK));
    for (ULONG i = 0; i < fetched; ++i) CurrentHost().vss().VssFreeSnapshotProperties(&objects[i].Obj.Snap);
    return fetched;
  };
  EXPECT_EQ(count(), 2U);
  EXPECT_THAT(backup->BreakSnapshotSet(backup.setId), Gives(S_OK));
  EXPECT_EQ(count(), 0U);
  EXPECT_THAT(service().CopiesOfSet(backup.setId), IsEmpty());
  EXPECT_THAT(Copies(), SizeIs(2)) << "the disks are there";
}

TEST_F(ShadowCopyService, ForgetsABrokenSetWhoseDisksStay) {
  Backup backup(Phase::snapshotDone);
  EXPECT_THAT(backup->BreakSnapshotSet(ClassId(1)), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(backup->BreakSnapshotSet(backup.setId), Gives(S_OK));
  EXPECT_THAT(backup->BreakSnapshotSet(backup.setId), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(backup.PropertiesOf(backup.copyIds.at(0)), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(backup.Delete(backup.setId, VSS_OBJECT_SNAPSHOT_SET), Gives(VSS_E_OBJECT_NOT_FOUND));
  backup.Release();
  EXPECT_THAT(Copies(), SizeIs(1)) << "an ordinary disk is not released with the session";
}

class BreakingEx : public ShadowCopyService {
 protected:
  HRESULT Break(Backup& backup, DWORD flags) {
    auto extended = backup.As<IVssBackupComponentsEx2>();
    ComPtr<IVssAsync> async;
    const HRESULT started = extended->BreakSnapshotSetEx(backup.setId, flags, async.Put());
    return FAILED(started) ? started : Backup::ResultOf(*async);
  }
};

TEST_F(BreakingEx, TakesMaskedDisksAway) {
  Backup backup(Phase::snapshotDone);
  EXPECT_THAT(Break(backup, VSS_BREAKEX_FLAG_MASK_LUNS), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_THAT(Copies(), IsEmpty());
  EXPECT_THAT(Break(backup, VSS_BREAKEX_FLAG_MASK_LUNS), Gives(VSS_E_OBJECT_NOT_FOUND));
}

TEST_F(BreakingEx, RefusesUnknownAndContradictoryFlags) {
  Backup backup(Phase::snapshotDone);
  EXPECT_THAT(Break(backup, 0x10), Gives(E_INVALIDARG));
  EXPECT_THAT(Break(backup, VSS_BREAKEX_FLAG_REVERT_IDENTITY_ALL | VSS_BREAKEX_FLAG_REVERT_IDENTITY_NONE),
              Gives(E_INVALIDARG));
  EXPECT_THAT(Break(backup, VSS_BREAKEX_FLAG_MAKE_READ_WRITE | VSS_BREAKEX_FLAG_REVERT_IDENTITY_NONE),
              Gives(VSS_S_ASYNC_FINISHED));
}

TEST_F(BreakingEx, RevertsTheIdentityOnlyWhenTheOriginalDiskIsGone) {
  Backup backup(Phase::snapshotDone);
  EXPECT_THAT(Break(backup, VSS_BREAKEX_FLAG_REVERT_IDENTITY_ALL), Gives(VSS_E_BREAK_REVERT_ID_FAILED));
  EXPECT_EQ(Copies().at(0)->serial, L"SHADOW-TSL0001");
  host().model().disks.erase(host().model().disks.begin() + 1);
  EXPECT_THAT(Break(backup, VSS_BREAKEX_FLAG_REVERT_IDENTITY_ALL), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_EQ(Copies().at(0)->serial, L"TSL0001");
}

TEST_F(BreakingEx, LeavesTheSetAloneWhenTheOperationFails) {
  Backup backup(Phase::snapshotDone);
  host().faults().FailAsync("BreakSnapshotSetEx", VSS_E_PROVIDER_VETO);
  EXPECT_THAT(Break(backup, VSS_BREAKEX_FLAG_MASK_LUNS), Gives(VSS_E_PROVIDER_VETO));
  EXPECT_THAT(backup.PropertiesOf(backup.copyIds.at(0)), Gives(S_OK));
}

TEST_F(ShadowCopyService, KeepsTransportableCopiesForImportElsewhere) {
  Backup backup(Phase::snapshotDone, kTransportable);
  EXPECT_THAT(Copies(), IsEmpty());
  EXPECT_THAT(backup.PropertiesOf(backup.copyIds.at(0)), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(backup->BreakSnapshotSet(backup.setId), Gives(VSS_E_OBJECT_NOT_FOUND));
  const std::wstring document = backup.Document();
  const GUID id = backup.copyIds.at(0);
  backup.Release();

  Install(SmallHost());
  Backup importing;
  const Bstr xml(document);
  ASSERT_THAT(importing->InitializeForBackup(xml.Get()), Gives(S_OK));
  EXPECT_THAT(importing.Run(&IVssBackupComponents::ImportSnapshots), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_THAT(importing.Run(&IVssBackupComponents::ImportSnapshots), Gives(VSS_E_NO_SNAPSHOTS_IMPORTED));
  SnapshotProperties properties;
  ASSERT_THAT(importing->GetSnapshotProperties(id, properties.Put()), Gives(S_OK));
  EXPECT_EQ(Wide(properties->m_pwszOriginatingMachine), L"SQL01");
  EXPECT_EQ(Wide(properties->m_pwszServiceMachine), L"HOST");
  EXPECT_EQ(properties->m_lSnapshotAttributes,
            Context(kTransportable, VSS_VOLSNAP_ATTR_HARDWARE_ASSISTED, VSS_VOLSNAP_ATTR_IMPORTED));
  EXPECT_EQ(Copies().at(0)->serial, L"SHADOW-TSL0001");
}

TEST_F(ShadowCopyService, ImportsOnTheSameMachineAndOnlyWithTheProvider) {
  Backup backup(Phase::snapshotDone, kTransportable);
  const Bstr xml(backup.Document());
  backup.Release();
  const std::vector<simulator::Provider> providers = std::exchange(host().model().providers, {});
  Backup importing;
  ASSERT_THAT(importing->InitializeForBackup(xml.Get()), Gives(S_OK));
  EXPECT_THAT(importing.Run(&IVssBackupComponents::ImportSnapshots), Gives(VSS_E_PROVIDER_NOT_REGISTERED));
  host().model().providers = providers;
  EXPECT_THAT(importing.Run(&IVssBackupComponents::ImportSnapshots), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_THAT(Copies(), SizeIs(1));
}

TEST_F(ShadowCopyService, ListsCopiesOfItsContextOnly) {
  Backup persistent(Phase::complete, VSS_CTX_APP_ROLLBACK);
  const auto count = [](LONG context) {
    Backup backup(Phase::initialized, context);
    ComPtr<IVssEnumObject> found;
    const HRESULT listed = backup->Query(GUID{}, VSS_OBJECT_NONE, VSS_OBJECT_SNAPSHOT, found.Put());
    ULONG fetched = 9;
    VSS_OBJECT_PROP object{};
    const HRESULT result = found->Next(1, &object, &fetched);
    EXPECT_THAT(result, Gives(fetched == 1 ? S_OK : S_FALSE));
    EXPECT_THAT(listed, Gives(result)) << "nothing to list is told by the query as well";
    if (fetched == 1) {
      EXPECT_EQ(object.Type, VSS_OBJECT_SNAPSHOT);
      CurrentHost().vss().VssFreeSnapshotProperties(&object.Obj.Snap);
    }
    return fetched;
  };
  EXPECT_EQ(count(VSS_CTX_BACKUP), 0U);
  EXPECT_EQ(count(VSS_CTX_APP_ROLLBACK), 1U);
  EXPECT_EQ(count(Context(VSS_CTX_ALL)), 1U);
}

TEST_F(ShadowCopyService, QueriesAllObjectsOfOneKindAndNothingElse) {
  Backup backup(Phase::initialized);
  ComPtr<IVssEnumObject> found;
  EXPECT_THAT(backup->Query(ClassId(1), VSS_OBJECT_NONE, VSS_OBJECT_SNAPSHOT, found.Put()), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->Query(GUID{}, VSS_OBJECT_SNAPSHOT, VSS_OBJECT_SNAPSHOT, found.Put()), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->Query(GUID{}, VSS_OBJECT_NONE, VSS_OBJECT_SNAPSHOT_SET, found.Put()), Gives(E_INVALIDARG));
  EXPECT_FALSE(found);
}

void FreeProviders(VSS_OBJECT_PROP* objects, ULONG count) {
  for (ULONG i = 0; i < count; ++i) {
    CurrentHost().vss().CoTaskMemFree(objects[i].Obj.Prov.m_pwszProviderName);
    CurrentHost().vss().CoTaskMemFree(objects[i].Obj.Prov.m_pwszProviderVersion);
  }
}

TEST_F(ShadowCopyService, EnumeratesProvidersInPieces) {
  Install(HostWithProviders({kSystemProvider, kHardwareProvider, kSoftwareProvider}));
  ComPtr<IVssAdmin> admin;
  ASSERT_THAT(CurrentHost().vss().CoCreateInstance(kClsidVssCoordinator, nullptr, CLSCTX_ALL, kIidVssAdmin,
                                                   reinterpret_cast<void**>(admin.Put())),
              Gives(S_OK));
  ComPtr<IVssEnumObject> providers;
  ASSERT_THAT(admin->QueryProviders(providers.Put()), Gives(S_OK));
  VSS_OBJECT_PROP objects[4] = {};
  ULONG fetched = 0;
  EXPECT_THAT(providers->Next(2, objects, &fetched), Gives(S_OK));
  ASSERT_EQ(fetched, 2U);
  EXPECT_EQ(objects[1].Type, VSS_OBJECT_PROVIDER);
  EXPECT_EQ(objects[1].Obj.Prov.m_ProviderId, kHardware);
  EXPECT_EQ(Wide(objects[1].Obj.Prov.m_pwszProviderName), L"Array");
  EXPECT_EQ(Wide(objects[1].Obj.Prov.m_pwszProviderVersion), L"1.0");
  EXPECT_EQ(objects[1].Obj.Prov.m_eProviderType, VSS_PROV_HARDWARE);
  FreeProviders(objects, fetched);

  ComPtr<IVssEnumObject> clone;
  EXPECT_THAT(providers->Clone(clone.Put()), Gives(S_OK));
  EXPECT_THAT(clone->Next(4, objects, &fetched), Gives(S_FALSE));
  EXPECT_EQ(fetched, 1U);
  FreeProviders(objects, fetched);
  EXPECT_THAT(clone->Next(1, objects, &fetched), Gives(S_FALSE));
  EXPECT_EQ(fetched, 0U);
  EXPECT_THAT(providers->Skip(1), Gives(S_OK));
  EXPECT_THAT(providers->Skip(1), Gives(S_FALSE));
  EXPECT_THAT(providers->Reset(), Gives(S_OK));
  EXPECT_THAT(providers->Skip(3), Gives(S_OK));
  EXPECT_THAT(providers->Next(1, nullptr, &fetched), Gives(E_POINTER));
  EXPECT_THAT(providers->Clone(nullptr), Gives(E_POINTER));
}

TEST_F(ShadowCopyService, CreatesTheCoordinatorOnlyAsWhatItIs) {
  VssService& vss = CurrentHost().vss();
  ComPtr<IUnknown> object;
  void** const output = reinterpret_cast<void**>(object.Put());
  EXPECT_THAT(vss.CoCreateInstance(ClassId(1), nullptr, CLSCTX_ALL, kIidVssAdmin, output), Gives(REGDB_E_CLASSNOTREG));
  EXPECT_THAT(vss.CoCreateInstance(kClsidVssCoordinator, nullptr, CLSCTX_ALL, kIidVssAsync, output),
              Gives(E_NOINTERFACE));
  EXPECT_THAT(vss.CoCreateInstance(kClsidVssCoordinator, nullptr, CLSCTX_ALL, kIidVssAdmin, nullptr), Gives(E_POINTER));
  EXPECT_FALSE(object);
  EXPECT_THAT(vss.CoCreateInstance(kClsidVssCoordinator, nullptr, CLSCTX_ALL, kIidUnknown, output), Gives(S_OK));
}

}  // namespace
}  // namespace varnel::test
