// Whole lives of requestors that others have written for the service: their contexts, their order of calls, what they
// ask and what they take for an answer.
#include <array>

#include "tests/simulator/backup.h"

namespace varnel::test {
namespace {

constexpr LONG kTxfRecovery = 0x2000000;

class RequestorLives : public ShadowCopyService {
 protected:
  /// As a lister reads it: S_FALSE is "none", and so is an enumerator that yields nothing.
  static std::vector<GUID> CopiesListedIn(LONG context) {
    Backup lister;
    lister.Initialize(context);
    ComPtr<IVssEnumObject> list;
    const HRESULT result = lister->Query(GUID{}, VSS_OBJECT_NONE, VSS_OBJECT_SNAPSHOT, list.Put());
    EXPECT_TRUE(SUCCEEDED(result));
    EXPECT_TRUE(list) << "also with nothing to list";
    std::vector<GUID> ids;
    while (list) {
      VssObject object;
      ULONG fetched = 0;
      const HRESULT next = list->Next(1, object.Put(), &fetched);
      Expect(next, fetched == 1 ? S_OK : S_FALSE);
      if (fetched == 0) break;
      ids.push_back(object.snapshot()->m_SnapshotId);
    }
    EXPECT_EQ(result, ids.empty() ? S_FALSE : S_OK);
    return ids;
  }
};

// The context before the state, components before the set, the provider left to the service; the set outlives the
// object and is broken by another one.
TEST_F(RequestorLives, APersistentSetIsMadeByOneProgramAndBrokenByTheNext) {
  EXPECT_THAT(CopiesListedIn(static_cast<LONG>(VSS_CTX_ALL)), IsEmpty());
  GUID set{};
  {
    Backup maker;
    maker.Initialize(Context(VSS_CTX_APP_ROLLBACK, kTxfRecovery));
    Expect(maker->SetBackupState(true, true, VSS_BT_COPY, false), S_OK);
    maker.Gather();
    Expect(maker.Add(0xA, L"SQL01", L"sales"), S_OK);
    Expect(maker->StartSnapshotSet(&maker.setId), S_OK);
    Expect(maker.AddVolume(L"E:\\"), S_OK);
    maker.Prepare();
    for (const Backup::Status& status : maker.Statuses()) EXPECT_THAT(status.failure, Gives(S_OK)) << status.name;
    Expect(maker.Snapshot(), VSS_S_ASYNC_FINISHED);
    Expect(maker.PropertiesOf(maker.copyIds.front()), S_OK);
    Expect(maker.Mark(0xA, L"SQL01", L"sales"), S_OK);
    Expect(maker.Complete(), VSS_S_ASYNC_FINISHED);
    set = maker.setId;
  }
  EXPECT_THAT(CopiesListedIn(VSS_CTX_BACKUP), IsEmpty()) << "of another context";
  EXPECT_THAT(CopiesListedIn(static_cast<LONG>(VSS_CTX_ALL)), SizeIs(1));
  Backup breaker;
  breaker.Initialize(static_cast<LONG>(VSS_CTX_ALL));
  Expect(breaker->BreakSnapshotSet(set), S_OK);
  EXPECT_THAT(CopiesListedIn(static_cast<LONG>(VSS_CTX_ALL)), IsEmpty());
}

// The state before the context, transportable without recovery, and the document as what the next host imports.
TEST_F(RequestorLives, ATransportableSetIsImportedFromItsDocumentAndDeletedByItsCopies) {
  Backup maker;
  Expect(maker->InitializeForBackup(nullptr), S_OK);
  Expect(maker->SetBackupState(true, true, VSS_BT_FULL, false), S_OK);
  Expect(maker->SetContext(0x0200002B), S_OK);
  maker.Gather();
  Expect(maker.Add(0xA, L"SQL01", L"sales"), S_OK);
  Expect(maker->StartSnapshotSet(&maker.setId), S_OK);
  Expect(maker.AddVolume(L"E:\\", kHardware), S_OK);
  maker.Take();
  Expect(maker.PropertiesOf(maker.copyIds.front()), VSS_E_OBJECT_NOT_FOUND);
  Expect(maker.Complete(), VSS_S_ASYNC_FINISHED);
  const Bstr document(maker.Document());
  maker.Release();

  Backup importer;
  Expect(importer->InitializeForBackup(document.Get()), S_OK);
  Expect(importer->SetContext(0x0200002B), S_OK);
  Expect(importer.Run(&IVssBackupComponents::ImportSnapshots), VSS_S_ASYNC_FINISHED);
  const std::vector<GUID> copies = CopiesListedIn(static_cast<LONG>(VSS_CTX_ALL));
  ASSERT_THAT(copies, SizeIs(1));
  Expect(importer.Delete(copies.front(), VSS_OBJECT_SNAPSHOT), S_OK);
  EXPECT_THAT(CopiesListedIn(static_cast<LONG>(VSS_CTX_ALL)), IsEmpty());
}

// A sample that checks every result, the one of SetBackupState after InitializeForRestore too.
TEST_F(RequestorLives, ARestoreSetsItsStateFirst) {
  const Bstr document(Backup(Phase::complete).Document());
  Backup restore;
  Expect(restore->InitializeForRestore(document.Get()), S_OK);
  Expect(restore->SetBackupState(true, true, VSS_BT_FULL, false), S_OK);
  restore.Gather();
  Expect(restore->SetSelectedForRestore(ClassId(0xA), VSS_CT_FILEGROUP, L"SQL01", L"sales", true), S_OK);
  Expect(restore.Run(&IVssBackupComponents::PreRestore), VSS_S_ASYNC_FINISHED);
  Expect(restore->SetFileRestoreStatus(ClassId(0xA), VSS_CT_FILEGROUP, L"SQL01", L"sales", VSS_RS_ALL), S_OK);
  Expect(restore.Run(&IVssBackupComponents::PostRestore), VSS_S_ASYNC_FINISHED);
}

// A copy that is to be looked at under a letter, by a program that did not make it.
TEST_F(RequestorLives, ACopyIsExposedLookedAtAndDeletedByAnotherProgram) {
  GUID copy{};
  {
    Backup maker(Phase::complete, VSS_CTX_APP_ROLLBACK);
    copy = maker.copyIds.front();
  }
  Backup viewer;
  viewer.Initialize(static_cast<LONG>(VSS_CTX_ALL));
  std::wstring letter = L"X:";
  VSS_PWSZ exposed = nullptr;
  Expect(viewer->ExposeSnapshot(copy, nullptr, VSS_VOLSNAP_ATTR_EXPOSED_LOCALLY, letter.data(), &exposed), S_OK);
  EXPECT_EQ(Wide(exposed), L"X:\\");
  CurrentHost().vss().CoTaskMemFree(exposed);
  std::array<wchar_t, MAX_PATH> mountPoint{};
  EXPECT_TRUE(CurrentHost().storage().GetVolumePathNameW(L"X:\\data", mountPoint.data(), MAX_PATH));
  Expect(viewer.Delete(copy, VSS_OBJECT_SNAPSHOT), S_OK);
  EXPECT_FALSE(CurrentHost().storage().GetVolumePathNameW(L"X:\\data", mountPoint.data(), MAX_PATH));
}

}  // namespace
}  // namespace varnel::test
