// The order of calls and the contexts of a backup, the call log and calls that are made to fail.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <set>

#include "tests/simulator/backup.h"

namespace varnel::test {
namespace {

using Order = std::function<HRESULT(Backup&)>;

struct OrderedCall {
  const char* name;
  Order call;
  std::set<Phase> allowed;
};

Order Starting(Start start) {
  return [start](Backup& b) {
    ComPtr<IVssAsync> async;
    return ((*b).*start)(async.Put());
  };
}

Order Counting(HRESULT (STDMETHODCALLTYPE IVssBackupComponents::*get)(UINT*)) {
  return [get](Backup& b) {
    UINT count = 0;
    return ((*b).*get)(&count);
  };
}

HRESULT FirstMetadata(Backup& b) {
  GUID instance{};
  ComPtr<IVssExamineWriterMetadata> metadata;
  return b->GetWriterMetadata(0, &instance, metadata.Put());
}

HRESULT FirstComponents(Backup& b) {
  ComPtr<IVssWriterComponentsExt> writer;
  return b->GetWriterComponents(0, writer.Put());
}

HRESULT Save(Backup& b) {
  Bstr xml;
  return b->SaveAsXML(xml.Put());
}

HRESULT QueryProviders(Backup& b) {
  ComPtr<IVssEnumObject> found;
  return b->Query(GUID{}, VSS_OBJECT_NONE, VSS_OBJECT_PROVIDER, found.Put());
}

HRESULT AskForVolume(Backup& b) {
  std::wstring volume = L"E:\\";
  BOOL supported = FALSE;
  return b->IsVolumeSupported(GUID{}, volume.data(), &supported);
}

using Object = IVssBackupComponents;
using enum Phase;
const GUID kId = ClassId(0xA);
const std::set<Phase> kUntilSetStarted = {initialized, gathered, setStarted};
const std::set<Phase> kInitialized = {initialized, gathered, setStarted, prepared, snapshotDone, complete};
const std::set<Phase> kGathered = {gathered, setStarted, prepared, snapshotDone, complete};
const std::set<Phase> kGatheredOnce = {gathered, setStarted, prepared, snapshotDone, complete, aborted};
const std::set<Phase> kWithDocument = {prepared, snapshotDone, complete};

const OrderedCall kOrderedCalls[] = {
    {"InitializeForBackup", [](Backup& b) { return b->InitializeForBackup(nullptr); }, {created}},
    {"InitializeForRestore", [](Backup& b) { return b->InitializeForRestore(LoadableDocument().Get()); }, {created}},
    {"SetContext", [](Backup& b) { return b->SetContext(VSS_CTX_APP_ROLLBACK); }, {initialized}},
    {"SetBackupState", [](Backup& b) { return b->SetBackupState(true, true, VSS_BT_COPY, false); }, kUntilSetStarted},
    {"EnableWriterClasses", [](Backup& b) { return b->EnableWriterClasses(&kId, 1); }, {initialized}},
    {"DisableWriterClasses", [](Backup& b) { return b->DisableWriterClasses(&kId, 1); }, {initialized}},
    {"DisableWriterInstances", [](Backup& b) { return b->DisableWriterInstances(&kId, 1); }, {initialized}},
    {"GatherWriterMetadata", Starting(&Object::GatherWriterMetadata), {initialized}},
    {"GetWriterMetadataCount", Counting(&Object::GetWriterMetadataCount), kGathered},
    {"GetWriterMetadata", FirstMetadata, kGathered},
    {"FreeWriterMetadata", [](Backup& b) { return b->FreeWriterMetadata(); }, kGatheredOnce},
    {"AddComponent", [](Backup& b) { return b.Add(0xA, L"SQL01", L"crm"); }, {gathered, setStarted}},
    {"SetBackupOptions", [](Backup& b) { return b->SetBackupOptions(kId, VSS_CT_FILEGROUP, L"SQL01", L"sales", L"x"); },
     kUntilSetStarted},
    {"AddToSnapshotSet", [](Backup& b) { return b.AddVolume(L"F:\\"); }, {setStarted}},
    {"PrepareForBackup", Starting(&Object::PrepareForBackup), {setStarted}},
    {"DoSnapshotSet", Starting(&Object::DoSnapshotSet), {prepared}},
    {"GatherWriterStatus", Starting(&Object::GatherWriterStatus), kGatheredOnce},
    {"GetWriterStatusCount", Counting(&Object::GetWriterStatusCount), {}},
    {"FreeWriterStatus", [](Backup& b) { return b->FreeWriterStatus(); }, {}},
    {"SaveAsXML", Save, kWithDocument},
    {"GetWriterComponentsCount", Counting(&Object::GetWriterComponentsCount), kWithDocument},
    {"GetWriterComponents", FirstComponents, kWithDocument},
    {"SetBackupSucceeded", [](Backup& b) { return b.Mark(0xA, L"SQL01", L"sales"); }, {snapshotDone}},
    {"BackupComplete", Starting(&Object::BackupComplete), {snapshotDone}},
    {"AbortBackup",
     [](Backup& b) { return b->AbortBackup(); },
     {initialized, gathered, setStarted, prepared, snapshotDone, complete, aborted}},
    {"GetSnapshotProperties", [](Backup& b) { return b.PropertiesOf(kId); }, kInitialized},
    {"DeleteSnapshots", [](Backup& b) { return b.Delete(kId, VSS_OBJECT_SNAPSHOT); }, kInitialized},
    {"BreakSnapshotSet", [](Backup& b) { return b->BreakSnapshotSet(kId); }, kInitialized},
    {"Query", QueryProviders, kInitialized},
    {"IsVolumeSupported", AskForVolume, kInitialized},
    {"ImportSnapshots", Starting(&Object::ImportSnapshots), {}},
};

TEST_F(ShadowCopyService, AnswersEveryCallThatIsOutOfOrderWithBadState) {
  for (const OrderedCall& ordered : kOrderedCalls) {
    for (const Phase phase : kPhases) {
      SCOPED_TRACE(testing::Message() << ordered.name << " in phase " << static_cast<int>(phase));
      Install(VssHost());
      Backup backup(phase);

      const HRESULT result = ordered.call(backup);

      if (ordered.allowed.contains(phase)) {
        EXPECT_THAT(result, Not(Gives(VSS_E_BAD_STATE)));
      } else {
        EXPECT_THAT(result, Gives(VSS_E_BAD_STATE));
      }
      backup.Release();
      EXPECT_EQ(host().live().Describe(), "");
    }
  }
}

TEST_F(ShadowCopyService, StartsOneSetPerObjectAndSaysSoWhileItIsOpen) {
  for (const Phase phase : kPhases) {
    SCOPED_TRACE(testing::Message() << "phase " << static_cast<int>(phase));
    Install(VssHost());
    Backup backup(phase);
    GUID id{};
    const bool open = phase == Phase::setStarted || phase == Phase::prepared;
    const bool fresh = phase == Phase::initialized || phase == Phase::gathered;
    EXPECT_THAT(backup->StartSnapshotSet(&id),
                Gives(open ? VSS_E_SNAPSHOT_SET_IN_PROGRESS : (fresh ? S_OK : VSS_E_BAD_STATE)));
  }
}

TEST_F(ShadowCopyService, PreparesNothingWithoutBackupStateOrWriters) {
  Backup withoutState(Phase::gathered);
  GUID id{};
  ASSERT_THAT(withoutState->StartSnapshotSet(&id), Gives(S_OK));
  EXPECT_THAT(withoutState.Run(&IVssBackupComponents::PrepareForBackup), Gives(VSS_E_BAD_STATE));
  withoutState.Release();

  Backup withoutWriters(Phase::initialized);
  withoutWriters.StartSet();
  EXPECT_THAT(withoutWriters.Run(&IVssBackupComponents::PrepareForBackup), Gives(VSS_E_BAD_STATE));
}

TEST_F(ShadowCopyService, TakesGatheringAndComponentsAlsoAfterTheSetWasStarted) {
  Backup backup(Phase::initialized);
  backup.StartSet().Gather();
  EXPECT_THAT(backup.Add(0xA, L"SQL01", L"sales"), Gives(S_OK));
  backup.Take();
}

TEST_F(ShadowCopyService, HoldsTheNextCallBackUntilTheOperationWasWaitedForOrReleased) {
  Backup backup(Phase::initialized);
  ComPtr<IVssAsync> async;
  ASSERT_THAT(backup->GatherWriterMetadata(async.Put()), Gives(S_OK));
  UINT count = 0;
  GUID id{};
  EXPECT_THAT(backup->GetWriterMetadataCount(&count), Gives(VSS_E_BAD_STATE));
  EXPECT_THAT(backup->StartSnapshotSet(&id), Gives(VSS_E_BAD_STATE));

  EXPECT_THAT(async->Wait(INFINITE), Gives(S_OK));
  EXPECT_THAT(backup->GetWriterMetadataCount(&count), Gives(S_OK));

  ASSERT_THAT(backup->GatherWriterStatus(async.Put()), Gives(S_OK));
  EXPECT_THAT(backup->GetWriterStatusCount(&count), Gives(VSS_E_BAD_STATE));
  async.Reset();
  EXPECT_THAT(backup->GetWriterStatusCount(&count), Gives(S_OK));

  ASSERT_THAT(backup->GatherWriterStatus(async.Put()), Gives(S_OK));
  HRESULT result = S_OK;
  INT reserved = 7;
  EXPECT_THAT(async->QueryStatus(&result, &reserved), Gives(S_OK));
  EXPECT_EQ(reserved, 0);
  EXPECT_THAT(backup->GetWriterStatusCount(&count), Gives(S_OK));
}

TEST_F(ShadowCopyService, AbortsWhileAnOperationIsPending) {
  Backup backup(Phase::setStarted);
  ComPtr<IVssAsync> async;
  ASSERT_THAT(backup->PrepareForBackup(async.Put()), Gives(S_OK));
  EXPECT_THAT(backup->AbortBackup(), Gives(S_OK));
  EXPECT_THAT(backup->DoSnapshotSet(async.Put()), Gives(VSS_E_BAD_STATE));
}

TEST_F(ShadowCopyService, RefusesNullPointers) {
  Backup backup(Phase::gathered);
  GUID id{};
  UINT count = 0;
  LONG deleted = 0;
  std::wstring volume = L"E:\\";
  EXPECT_THAT(backup->GatherWriterStatus(nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->GetWriterMetadataCount(nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->GetWriterMetadata(0, &id, nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->GetWriterStatusCount(nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->GetWriterStatus(0, &id, &id, nullptr, nullptr, nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup.Add(0xA, L"SQL01", nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->StartSnapshotSet(nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->AddToSnapshotSet(nullptr, GUID{}, &id), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->AddToSnapshotSet(volume.data(), GUID{}, nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->PrepareForBackup(nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->DoSnapshotSet(nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->BackupComplete(nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->SaveAsXML(nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->GetWriterComponentsCount(nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->GetWriterComponents(0, nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->GetSnapshotProperties(id, nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->Query(GUID{}, VSS_OBJECT_NONE, VSS_OBJECT_SNAPSHOT, nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->IsVolumeSupported(GUID{}, volume.data(), nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->DeleteSnapshots(id, VSS_OBJECT_SNAPSHOT, TRUE, nullptr, &id), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->DeleteSnapshots(id, VSS_OBJECT_SNAPSHOT, TRUE, &deleted, nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->EnableWriterClasses(nullptr, 1), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->QueryInterface(kIidUnknown, nullptr), Gives(E_POINTER));
  EXPECT_THAT(backup->GetWriterMetadataCount(&count), Gives(S_OK));
  EXPECT_THAT(CurrentHost().vss().CreateVssBackupComponents(nullptr), Gives(E_INVALIDARG));
}

TEST_F(ShadowCopyService, AnswersOnlyToItsOwnInterfaces) {
  Backup backup;
  for (const GUID& id : {kIidUnknown, kIidVssBackupComponents, kIidVssBackupComponentsEx, kIidVssBackupComponentsEx2,
                         kIidVssBackupComponentsEx3, kIidVssBackupComponentsEx4}) {
    ComPtr<IUnknown> same;
    EXPECT_THAT(QueryFor(&*backup, id, same), Gives(S_OK));
    EXPECT_EQ(same.Get(), static_cast<IUnknown*>(&*backup));
  }
  ComPtr<IUnknown> other;
  EXPECT_THAT(QueryFor(&*backup, kIidVssComponent, other), Gives(E_NOINTERFACE));
  EXPECT_FALSE(other);
  EXPECT_THAT(host().calls().Of("IVssBackupComponents::QueryInterface"), SizeIs(7));
}

TEST_F(ShadowCopyService, TakesTheContextsAndTheAttributesThatARequestorMayAdd) {
  const std::pair<LONG, HRESULT> cases[] = {
      {VSS_CTX_BACKUP, S_OK},
      {VSS_CTX_FILE_SHARE_BACKUP, S_OK},
      {VSS_CTX_NAS_ROLLBACK, S_OK},
      {VSS_CTX_APP_ROLLBACK, S_OK},
      {VSS_CTX_CLIENT_ACCESSIBLE, S_OK},
      {VSS_CTX_CLIENT_ACCESSIBLE_WRITERS, S_OK},
      {Context(VSS_CTX_ALL), S_OK},
      {kTransportable, S_OK},
      {Context(VSS_CTX_BACKUP, VSS_VOLSNAP_ATTR_NO_AUTORECOVERY, VSS_VOLSNAP_ATTR_NOT_TRANSACTED), S_OK},
      {Context(VSS_CTX_BACKUP, VSS_VOLSNAP_ATTR_DIFFERENTIAL), S_OK},
      {Context(VSS_CTX_BACKUP, VSS_VOLSNAP_ATTR_DIFFERENTIAL, VSS_VOLSNAP_ATTR_PLEX), E_INVALIDARG},
      {Context(VSS_CTX_CLIENT_ACCESSIBLE, VSS_VOLSNAP_ATTR_PLEX), E_INVALIDARG},
      {Context(VSS_CTX_CLIENT_ACCESSIBLE_WRITERS, VSS_VOLSNAP_ATTR_TRANSPORTABLE), E_INVALIDARG},
      {0x02000009, S_OK},  // with VSS_VOLSNAP_ATTR_TXF_RECOVERY
      {0x0200002B, S_OK},
      {VSS_VOLSNAP_ATTR_TXF_RECOVERY, S_OK},
      {VSS_VOLSNAP_ATTR_PERSISTENT, E_INVALIDARG},
      {VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE, E_INVALIDARG},
      {Context(VSS_CTX_BACKUP, VSS_VOLSNAP_ATTR_IMPORTED), E_INVALIDARG},
      {Context(VSS_CTX_BACKUP, 0x40000000), E_INVALIDARG},
  };
  for (const auto& [context, expected] : cases) {
    SCOPED_TRACE(testing::Message() << "context " << context);
    Backup backup(Phase::initialized);
    EXPECT_THAT(backup->SetContext(context), Gives(expected));
    EXPECT_THAT(backup->SetContext(VSS_CTX_APP_ROLLBACK), Gives(expected == S_OK ? VSS_E_BAD_STATE : S_OK));
  }
}

TEST_F(ShadowCopyService, FixesTheContextWithTheFirstQuery) {
  Backup backup(Phase::initialized);
  ComPtr<IVssEnumObject> found;
  ASSERT_THAT(backup->Query(GUID{}, VSS_OBJECT_NONE, VSS_OBJECT_SNAPSHOT, found.Put()), Gives(S_FALSE));
  EXPECT_THAT(backup->SetContext(VSS_CTX_APP_ROLLBACK), Gives(VSS_E_BAD_STATE));
}

TEST_F(ShadowCopyService, MakesNoSetInTheContextOfAll) {
  Backup backup(Phase::initialized, Context(VSS_CTX_ALL));
  GUID id{};
  EXPECT_THAT(backup->StartSnapshotSet(&id), Gives(VSS_E_UNSUPPORTED_CONTEXT));
}

TEST_F(ShadowCopyService, LeavesTheWritersOutInContextsWithoutWriters) {
  Backup backup(Phase::gathered, VSS_CTX_NAS_ROLLBACK);
  EXPECT_THAT(backup.Add(0xA, L"SQL01", L"sales"), Gives(VSS_E_BAD_STATE));
  backup.StartSet();
  EXPECT_THAT(backup.Snapshot(), Gives(VSS_E_BAD_STATE)) << "an empty set has nothing to copy";
  ASSERT_THAT(backup.AddVolume(L"E:\\"), Gives(S_OK));
  EXPECT_THAT(backup.Run(&IVssBackupComponents::PrepareForBackup), Gives(VSS_E_BAD_STATE));
  EXPECT_THAT(backup.Snapshot(), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_THAT(backup.Complete(), Gives(VSS_E_BAD_STATE));
  EXPECT_THAT(Copies(), SizeIs(1));
  EXPECT_THAT(Told(WriterEvent::freeze), IsEmpty());
}

TEST_F(ShadowCopyService, RecordsCallsWithTheirArgumentsAndResults) {
  Backup backup(Phase::setStarted);
  EXPECT_THAT(backup.AddVolume(L"X:\\"), Gives(VSS_E_OBJECT_NOT_FOUND));
  const std::string set = WideToUtf8(FormatGuid(backup.setId));
  const std::string copy = WideToUtf8(FormatGuid(backup.copyIds.at(0)));
  const std::string none = "{00000000-0000-0000-0000-000000000000}";
  EXPECT_THAT(
      host().calls().lines(),
      ElementsAre(
          "CreateVssBackupComponents() = S_OK", "IVssBackupComponents::InitializeForBackup(null) = S_OK",
          "IVssBackupComponents::GatherWriterMetadata() = S_OK", "IVssAsync::Wait(INFINITE) = S_OK",
          "IVssAsync::QueryStatus(-> VSS_S_ASYNC_FINISHED) = S_OK",
          "IVssBackupComponents::AddComponent({0000000a-0001-0000-0000-000000000000}, "
          "{0000000a-0000-0000-0000-000000000000}, 2, \"SQL01\", \"sales\") = S_OK",
          "IVssBackupComponents::SetBackupState(true, true, 1, false) = S_OK",
          "IVssBackupComponents::StartSnapshotSet(-> " + set + ") = S_OK",
          "IVssBackupComponents::AddToSnapshotSet(\"E:\\\", " + none + " -> " + copy + ") = S_OK",
          "IVssBackupComponents::AddToSnapshotSet(\"X:\\\", " + none + " -> " + none + ") = VSS_E_OBJECT_NOT_FOUND"));
}

TEST_F(ShadowCopyService, HandsOutNothingFromACallThatIsMadeToFailOrToSucceedUnrun) {
  Backup backup(Phase::gathered);
  GUID instance{};
  IVssExamineWriterMetadata* const poison = reinterpret_cast<IVssExamineWriterMetadata*>(std::uintptr_t{1});
  for (const HRESULT forced : {E_OUTOFMEMORY, S_FALSE}) {
    host().faults().FailCall("IVssBackupComponents::GetWriterMetadata", static_cast<DWORD>(forced));
    IVssExamineWriterMetadata* metadata = poison;
    EXPECT_THAT(backup->GetWriterMetadata(0, &instance, &metadata), Gives(forced));
    EXPECT_EQ(metadata, nullptr);
  }
  host().faults().FailCall("IVssBackupComponents::StartSnapshotSet", static_cast<DWORD>(E_ACCESSDENIED));
  GUID id = ClassId(9);
  EXPECT_THAT(backup->StartSnapshotSet(&id), Gives(E_ACCESSDENIED));
  EXPECT_EQ(id, ClassId(9));
  EXPECT_THAT(backup->StartSnapshotSet(&id), Gives(S_OK)) << "the failed call changed nothing";
}

TEST_F(ShadowCopyService, CanBeMadeToFailAtItsCreation) {
  host().faults().FailCall("CreateVssBackupComponents", static_cast<DWORD>(E_ACCESSDENIED));
  host().faults().FailCall("CoCreateInstance", static_cast<DWORD>(E_ACCESSDENIED));
  ComPtr<IVssBackupComponents> backup;
  ComPtr<IVssAdmin> admin;
  EXPECT_THAT(CurrentHost().vss().CreateVssBackupComponents(backup.Put()), Gives(E_ACCESSDENIED));
  EXPECT_THAT(CurrentHost().vss().CoCreateInstance(kClsidVssCoordinator, nullptr, CLSCTX_ALL, kIidVssAdmin,
                                                   reinterpret_cast<void**>(admin.Put())),
              Gives(E_ACCESSDENIED));
  EXPECT_FALSE(backup);
  EXPECT_FALSE(admin);
}

TEST_F(ShadowCopyService, RecordsCallsThatItDoesNotImplement) {
  Backup backup;
  const auto extended = backup.As<IVssBackupComponentsEx3>();
  ComPtr<IVssAsync> async;
  EXPECT_THAT(backup->RevertToSnapshot(GUID{}, FALSE), Gives(E_NOTIMPL));
  EXPECT_THAT(extended->RecoverSet(0, async.Put()), Gives(E_NOTIMPL));
  EXPECT_THAT(host().calls().lines(), testing::Contains("IVssBackupComponentsEx3::RecoverSet() = E_NOTIMPL"));
  EXPECT_THAT(host().calls().lines(), testing::Contains("IVssBackupComponents::RevertToSnapshot() = E_NOTIMPL"));
}

TEST_F(ShadowCopyService, NamesItsSession) {
  Backup backup;
  const auto extended = backup.As<IVssBackupComponentsEx3>();
  GUID id{};
  EXPECT_THAT(extended->GetSessionId(&id), Gives(VSS_E_BAD_STATE));
  backup.Initialize();
  EXPECT_THAT(extended->GetSessionId(&id), Gives(S_OK));
  EXPECT_NE(id, GUID{});
}

TEST_F(ShadowCopyService, OutlivesItsHostInTheObjectsThatWereHandedOut) {
  Backup backup(Phase::snapshotDone);
  Install(SmallHost());
  EXPECT_THAT(backup.PropertiesOf(backup.setId), Gives(VSS_E_OBJECT_NOT_FOUND));
  backup.Release();
}

}  // namespace
}  // namespace varnel::test
