// Restores: what is selected, how it comes back, what the writers are told, and the order of the calls.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "tests/simulator/backup.h"

namespace varnel::test {
namespace {

constexpr GUID kSql = {0xA, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}};
constexpr Start kPreRestore = &IVssBackupComponents::PreRestore;
constexpr Start kPostRestore = &IVssBackupComponents::PostRestore;

HRESULT Select(Backup& restore, const wchar_t* name = L"sales") {
  return restore->SetSelectedForRestore(kSql, VSS_CT_FILEGROUP, L"SQL01", name, true);
}

HRESULT SetStatus(Backup& restore, VSS_FILE_RESTORE_STATUS status) {
  return restore->SetFileRestoreStatus(kSql, VSS_CT_FILEGROUP, L"SQL01", L"sales", status);
}

// A restore of the usual backup: the SQL writer's "sales".
class Restoring : public ShadowCopyService {
 protected:
  void SetUp() override {
    ShadowCopyService::SetUp();
    saved_ = Backup(Phase::complete).Document();
    service().raisedEvents.clear();
  }

  // A restore of the saved document whose writers are gathered.
  void Begin(Backup& restore) const {
    const Bstr xml(saved_);
    ASSERT_THAT(restore->InitializeForRestore(xml.Get()), Gives(S_OK));
    restore.Gather();
  }
  std::wstring saved_;
};

TEST_F(Restoring, RunsFromTheSavedDocumentToItsEnd) {
  Backup restore;
  Begin(restore);
  EXPECT_FALSE(Got(*AddedComponent(restore, 0), &IVssComponent::IsSelectedForRestore));
  ASSERT_THAT(Select(restore), Gives(S_OK));
  EXPECT_TRUE(Got(*AddedComponent(restore, 0), &IVssComponent::IsSelectedForRestore));
  ASSERT_THAT(restore.Run(kPreRestore), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_THAT(Told(WriterEvent::preRestore), ElementsAre(L"SqlServerWriter")) << "only writers of the document";
  EXPECT_THAT(restore.States(), Each(VSS_WS_STABLE));
  ASSERT_THAT(SetStatus(restore, VSS_RS_ALL), Gives(S_OK));
  EXPECT_EQ(Got(*AddedComponent(restore, 0), &IVssComponent::GetFileRestoreStatus), VSS_RS_ALL);
  ASSERT_THAT(restore.Run(kPostRestore), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_THAT(Told(WriterEvent::postRestore), ElementsAre(L"SqlServerWriter"));
  EXPECT_THAT(restore.States(), Each(VSS_WS_STABLE));
  const std::string document = WideToUtf8(restore.Document());
  EXPECT_THAT(document, HasSubstr("selectedForRestore=\"yes\""));
  EXPECT_THAT(document, HasSubstr("fileRestoreStatus=\"all\""));
  restore.Release();
  EXPECT_THAT(Told(WriterEvent::backupShutdown), IsEmpty()) << "no backup took place";
}

void ExpectParts(IVssComponent& component) {
  EXPECT_EQ(Got(component, &IVssComponent::GetRestoreOptions), L"to=now");
  EXPECT_TRUE(Got(component, &IVssComponent::GetAdditionalRestores));
  ASSERT_EQ(Got(component, &IVssComponent::GetRestoreSubcomponentCount), 2U);
  Bstr path;
  Bstr name;
  VssBool repair = true;
  ASSERT_THAT(component.GetRestoreSubcomponent(0, path.Put(), name.Put(), &repair), Gives(S_OK));
  EXPECT_EQ(path.View(), L"SQL01\\sales");
  EXPECT_EQ(name.View(), L"log");
  EXPECT_FALSE(repair);
  ASSERT_THAT(component.GetRestoreSubcomponent(1, path.Put(), name.Put(), &repair), Gives(S_OK));
  EXPECT_FALSE(path);
  EXPECT_THAT(component.GetRestoreSubcomponent(2, path.Put(), name.Put(), &repair), Gives(VSS_E_OBJECT_NOT_FOUND));
}

void ExpectTargets(IVssComponent& component) {
  ASSERT_EQ(Got(component, &IVssComponent::GetNewTargetCount), 1U);
  ComPtr<IVssWMFiledesc> file;
  ASSERT_THAT(component.GetNewTarget(0, file.Put()), Gives(S_OK));
  EXPECT_EQ(Got(*file, &IVssWMFiledesc::GetPath), L"E:\\data");
  EXPECT_EQ(Got(*file, &IVssWMFiledesc::GetFilespec), L"*");
  EXPECT_TRUE(Got(*file, &IVssWMFiledesc::GetRecursive));
  EXPECT_EQ(Got(*file, &IVssWMFiledesc::GetAlternateLocation), L"F:\\new");
  EXPECT_THAT(component.GetNewTarget(1, file.Put()), Gives(VSS_E_OBJECT_NOT_FOUND));
  ASSERT_EQ(Got(component, &IVssComponent::GetAlternateLocationMappingCount), 1U);
  ASSERT_THAT(component.GetAlternateLocationMapping(0, file.Put()), Gives(S_OK));
  EXPECT_EQ(Got(*file, &IVssWMFiledesc::GetAlternateLocation), L"F:\\log");
  EXPECT_THAT(component.GetAlternateLocationMapping(1, file.Put()), Gives(VSS_E_OBJECT_NOT_FOUND));
}

TEST_F(Restoring, KeepsWhatTheRequestorAsksForAComponent) {
  Backup restore;
  Begin(restore);
  const auto type = VSS_CT_FILEGROUP;
  EXPECT_THAT(restore->SetRestoreOptions(kSql, type, L"SQL01", L"sales", L"to=now"), Gives(S_OK));
  EXPECT_THAT(restore->SetAdditionalRestores(kSql, type, L"SQL01", L"sales", true), Gives(S_OK));
  EXPECT_THAT(restore->AddRestoreSubcomponent(kSql, type, L"SQL01", L"sales", L"SQL01\\sales", L"log", false),
              Gives(S_OK));
  EXPECT_THAT(restore->AddRestoreSubcomponent(kSql, type, L"SQL01", L"sales", nullptr, L"top", false), Gives(S_OK));
  EXPECT_THAT(restore->AddNewTarget(kSql, type, L"SQL01", L"sales", L"E:\\data", L"*", true, L"F:\\new"), Gives(S_OK));
  EXPECT_THAT(
      restore->AddAlternativeLocationMapping(kSql, type, L"SQL01", L"sales", L"E:\\data", L"*.ldf", false, L"F:\\log"),
      Gives(S_OK));

  // What the document says when it is saved and loaded again is what the component says now.
  const Bstr xml(restore.Document());
  Backup loaded;
  ASSERT_THAT(loaded->InitializeForRestore(xml.Get()), Gives(S_OK));
  for (Backup* backup : {&restore, &loaded}) {
    const ComPtr<IVssComponentEx2> component = AddedComponent(*backup, 0);
    ExpectParts(*component);
    ExpectTargets(*component);
  }
}

// Where a restore stands; `backup` stands for an object that is no restore's.
enum class RestorePoint { created, backup, initialized, gathered, restoring, complete };
struct RestoreCall {
  const char* name;
  std::function<HRESULT(Backup&)> call;
  RestorePoint first;
  RestorePoint last;
};
constexpr VSS_COMPONENT_TYPE kGroup = VSS_CT_FILEGROUP;
const RestoreCall kRestoreCalls[] = {
    {"SetBackupState", [](Backup& b) { return b->SetBackupState(true, true, VSS_BT_FULL, false); },
     RestorePoint::backup, RestorePoint::gathered},
    {"SetRestoreState", [](Backup& b) { return b->SetRestoreState(VSS_RTYPE_BY_COPY); }, RestorePoint::initialized,
     RestorePoint::gathered},
    {"SetSelectedForRestore", [](Backup& b) { return Select(b); }, RestorePoint::initialized, RestorePoint::gathered},
    {"SetRestoreOptions", [](Backup& b) { return b->SetRestoreOptions(kSql, kGroup, L"SQL01", L"sales", L"x"); },
     RestorePoint::initialized, RestorePoint::gathered},
    {"SetAdditionalRestores",
     [](Backup& b) { return b->SetAdditionalRestores(kSql, kGroup, L"SQL01", L"sales", true); },
     RestorePoint::initialized, RestorePoint::gathered},
    {"AddRestoreSubcomponent",
     [](Backup& b) { return b->AddRestoreSubcomponent(kSql, kGroup, L"SQL01", L"sales", L"", L"x", false); },
     RestorePoint::initialized, RestorePoint::gathered},
    {"AddNewTarget",
     [](Backup& b) { return b->AddNewTarget(kSql, kGroup, L"SQL01", L"sales", L"E:\\", L"*", false, L"F:\\"); },
     RestorePoint::initialized, RestorePoint::gathered},
    {"PreRestore", [](Backup& b) { return b.Run(kPreRestore); }, RestorePoint::gathered, RestorePoint::gathered},
    {"SetFileRestoreStatus", [](Backup& b) { return SetStatus(b, VSS_RS_ALL); }, RestorePoint::restoring,
     RestorePoint::restoring},
    {"PostRestore", [](Backup& b) { return b.Run(kPostRestore); }, RestorePoint::restoring, RestorePoint::restoring},
};

TEST_F(Restoring, AnswersEveryCallThatIsOutOfOrderWithBadState) {
  for (const RestoreCall& ordered : kRestoreCalls) {
    for (int at = 0; at <= static_cast<int>(RestorePoint::complete); ++at) {
      SCOPED_TRACE(std::string(ordered.name) + " at point " + std::to_string(at));
      const RestorePoint point{at};
      Backup b;
      const Bstr xml(saved_);
      if (point == RestorePoint::backup) b.Initialize();
      if (point >= RestorePoint::initialized) Expect(b->InitializeForRestore(xml.Get()), S_OK);
      if (point >= RestorePoint::gathered) b.Gather();
      if (point >= RestorePoint::restoring) Expect(b.Run(kPreRestore), VSS_S_ASYNC_FINISHED);
      if (point >= RestorePoint::complete) Expect(b.Run(kPostRestore), VSS_S_ASYNC_FINISHED);

      const bool allowed = point >= ordered.first && point <= ordered.last;
      EXPECT_EQ(ordered.call(b) != VSS_E_BAD_STATE, allowed);
    }
  }
}

TEST_F(Restoring, RefusesComponentsAndValuesThatItDoesNotKnow) {
  Backup restore;
  Begin(restore);
  const auto type = VSS_CT_FILEGROUP;
  EXPECT_THAT(Select(restore, L"crm"), Gives(VSS_E_OBJECT_NOT_FOUND)) << "it was not backed up";
  EXPECT_THAT(Select(restore, nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(restore->SetSelectedForRestore(ClassId(0xB), type, L"SQL01", L"sales", true),
              Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(restore->SetRestoreOptions(kSql, type, L"SQL01", L"sales", nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(restore->AddNewTarget(kSql, type, L"SQL01", L"sales", L"E:\\", L"*", false, nullptr),
              Gives(E_INVALIDARG));
  EXPECT_THAT(restore->AddRestoreSubcomponent(kSql, type, L"SQL01", L"sales", L"", nullptr, false),
              Gives(E_INVALIDARG));
  EXPECT_THAT(restore->AddRestoreSubcomponent(kSql, type, L"SQL01", L"sales", L"", L"x", true), Gives(E_INVALIDARG));
  EXPECT_THAT(restore->SetRestoreState(VSS_RTYPE_UNDEFINED), Gives(E_INVALIDARG));
  EXPECT_THAT(restore->PreRestore(nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(restore->PostRestore(nullptr), Gives(E_INVALIDARG));
  Expect(restore.Run(kPreRestore), VSS_S_ASYNC_FINISHED);
  EXPECT_THAT(SetStatus(restore, VSS_RS_UNDEFINED), Gives(E_INVALIDARG));
}

TEST_F(Restoring, TellsOfWritersThatFail) {
  FailWriter(WriterEvent::preRestore, VSS_E_WRITERERROR_NONRETRYABLE,
             {{L"\\SQL01\\sales", VSS_E_WRITERERROR_NONRETRYABLE, 0x41, L"database in use"}});
  Backup restore;
  Begin(restore);
  ASSERT_THAT(Select(restore), Gives(S_OK));
  EXPECT_THAT(restore.Run(kPreRestore), Gives(VSS_S_ASYNC_FINISHED)) << "the status tells it";
  const Backup::Status status = restore.Statuses().at(0);
  EXPECT_EQ(status.state, VSS_WS_FAILED_AT_PRE_RESTORE);
  EXPECT_THAT(status.failure, Gives(VSS_E_WRITERERROR_NONRETRYABLE));
  EXPECT_EQ(Got(*AddedComponent(restore, 0), &IVssComponent::GetPreRestoreFailureMsg), L"database in use");
  Bstr none;
  EXPECT_THAT(AddedComponent(restore, 0)->GetPostRestoreFailureMsg(none.Put()), Gives(S_FALSE));
  restore.Release();

  host().faults().Load({});
  FailWriter(WriterEvent::postRestore, VSS_E_WRITERERROR_RETRYABLE,
             {{L"\\SQL01\\sales", VSS_E_WRITERERROR_RETRYABLE, 0, L"no recovery"}});
  Backup again;
  Begin(again);
  EXPECT_THAT(again.Run(kPreRestore), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_EQ(again.States().at(0), VSS_WS_STABLE);
  EXPECT_THAT(again.Run(kPostRestore), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_EQ(again.States().at(0), VSS_WS_FAILED_AT_POST_RESTORE);
  EXPECT_EQ(Got(*AddedComponent(again, 0), &IVssComponent::GetPostRestoreFailureMsg), L"no recovery");
}

TEST_F(Restoring, EndsAnOperationAsThePlanSays) {
  host().faults().FailAsync("PreRestore", VSS_E_UNEXPECTED);
  Backup restore;
  Begin(restore);
  EXPECT_THAT(restore.Run(kPreRestore), Gives(VSS_E_UNEXPECTED));
  EXPECT_THAT(Told(WriterEvent::preRestore), IsEmpty());
  EXPECT_THAT(restore.Run(kPostRestore), Gives(VSS_E_BAD_STATE));
}

TEST_F(Restoring, FindsTheWriterOfADocumentThatHasAnotherInstanceOfIt) {
  host().model().writers[0].instanceId = InstanceId(0x77);
  Backup restore;
  Begin(restore);
  ASSERT_THAT(Select(restore), Gives(S_OK));
  ASSERT_THAT(restore.Run(kPreRestore), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_THAT(Told(WriterEvent::preRestore), ElementsAre(L"SqlServerWriter"));
}

TEST_F(Restoring, GivesAComponentToTheInstanceThatIsNamed) {
  simulator::Writer second = host().model().writers[0];
  second.name = L"Second";
  second.instanceId = InstanceId(0x77);
  second.instanceName = L"SECOND";
  host().model().writers.push_back(second);
  Backup restore;
  Begin(restore);
  ComPtr<IVssBackupComponentsEx> extended;
  ASSERT_THAT(QueryFor(&*restore, kIidVssBackupComponentsEx, extended), Gives(S_OK));
  const auto select = [&](const GUID& instance) {
    return extended->SetSelectedForRestoreEx(kSql, VSS_CT_FILEGROUP, L"SQL01", L"sales", true, instance);
  };
  EXPECT_THAT(select(InstanceId(0x78)), Gives(VSS_E_OBJECT_NOT_FOUND));
  ASSERT_THAT(select(InstanceId(0x77)), Gives(S_OK));
  ASSERT_THAT(restore.Run(kPreRestore), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_THAT(Told(WriterEvent::preRestore), ElementsAre(L"SqlServerWriter", L"Second"));
}

TEST_F(Restoring, MakesWriterComponentsStaleWithEveryPhase) {
  Backup restore;
  Begin(restore);
  UINT count = 0;
  for (const Start start : {kPreRestore, kPostRestore}) {
    ComPtr<IVssWriterComponentsExt> writer;
    ASSERT_THAT(restore->GetWriterComponents(0, writer.Put()), Gives(S_OK));
    EXPECT_THAT(writer->GetComponentCount(&count), Gives(S_OK));
    ASSERT_THAT(restore.Run(start), Gives(VSS_S_ASYNC_FINISHED));
    EXPECT_THAT(writer->GetComponentCount(&count), Gives(VSS_E_BAD_STATE));
  }
}

}  // namespace
}  // namespace varnel::test
