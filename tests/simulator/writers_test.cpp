// What writers are told, how they fail, and how long they take.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/simulator/backup.h"

namespace varnel::test {
namespace {

TEST_F(ShadowCopyService, TakesOnlyWritersWithComponentsThroughTheSnapshot) {
  Backup backup(Phase::prepared);
  EXPECT_THAT(backup.States(), ElementsAre(VSS_WS_STABLE, VSS_WS_STABLE, VSS_WS_STABLE));
  EXPECT_THAT(Told(WriterEvent::prepareBackup), SizeIs(3));
  ASSERT_THAT(backup.Snapshot(), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_THAT(backup.States(), ElementsAre(VSS_WS_WAITING_FOR_BACKUP_COMPLETE, VSS_WS_STABLE, VSS_WS_STABLE));
  ASSERT_THAT(backup.Complete(), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_THAT(backup.States(), ElementsAre(VSS_WS_STABLE, VSS_WS_STABLE, VSS_WS_STABLE));
  backup.Release();
  for (const WriterEvent event :
       {WriterEvent::prepareSnapshot, WriterEvent::freeze, WriterEvent::thaw, WriterEvent::postSnapshot,
        WriterEvent::backupComplete, WriterEvent::backupShutdown}) {
    EXPECT_THAT(Told(event), ElementsAre(L"SqlServerWriter"));
  }
  EXPECT_THAT(Told(std::nullopt), IsEmpty());
}

TEST_F(ShadowCopyService, TakesEveryWriterThroughAVolumeBackup) {
  Backup backup(Phase::gathered);
  backup.StartSet(false);
  ASSERT_THAT(backup.AddVolume(L"E:\\"), Gives(S_OK));
  backup.Take();
  EXPECT_THAT(backup.States(), Each(VSS_WS_WAITING_FOR_BACKUP_COMPLETE));
}

TEST_F(ShadowCopyService, KeepsAFailedWriterWhereItFailed) {
  struct Case {
    WriterEvent event;
    Phase seenIn;
    VSS_WRITER_STATE state;
    std::size_t aborts;
  };
  const Case cases[] = {
      {WriterEvent::prepareBackup, Phase::prepared, VSS_WS_FAILED_AT_PREPARE_BACKUP, 0},
      {WriterEvent::prepareSnapshot, Phase::snapshotDone, VSS_WS_FAILED_AT_PREPARE_SNAPSHOT, 0},
      {WriterEvent::freeze, Phase::snapshotDone, VSS_WS_FAILED_AT_FREEZE, 1},
      {WriterEvent::thaw, Phase::snapshotDone, VSS_WS_FAILED_AT_THAW, 1},
      {WriterEvent::postSnapshot, Phase::snapshotDone, VSS_WS_FAILED_AT_POST_SNAPSHOT, 0},
      {WriterEvent::backupComplete, Phase::complete, VSS_WS_FAILED_AT_BACKUP_COMPLETE, 0},
  };
  for (const Case& tried : cases) {
    SCOPED_TRACE(testing::Message() << "event " << static_cast<int>(tried.event));
    Install(VssHost());
    FailWriter(tried.event, VSS_E_WRITERERROR_RETRYABLE);
    Backup backup(tried.seenIn);
    const Backup::Status status = backup.Statuses().at(0);
    EXPECT_EQ(status.name, L"SqlServerWriter");
    EXPECT_EQ(status.state, tried.state);
    EXPECT_THAT(status.failure, Gives(VSS_E_WRITERERROR_RETRYABLE));
    EXPECT_EQ(status.applicationResult, 0x40);
    EXPECT_EQ(status.applicationMessage, L"log full");
    EXPECT_THAT(Told(std::nullopt), SizeIs(tried.aborts));
    if (tried.seenIn == Phase::snapshotDone) Expect(backup.Complete(), VSS_S_ASYNC_FINISHED);
    EXPECT_EQ(backup.Statuses().at(0).state, tried.state);
  }
}

TEST_F(ShadowCopyService, TellsTheOlderStatusCallTheSameFailure) {
  FailWriter(WriterEvent::freeze, VSS_E_WRITERERROR_PARTIAL_FAILURE);
  Backup backup(Phase::snapshotDone);
  ASSERT_THAT(backup.Run(&IVssBackupComponents::GatherWriterStatus), Gives(VSS_S_ASYNC_FINISHED));
  GUID instance{};
  GUID writer{};
  Bstr name;
  VSS_WRITER_STATE state{};
  HRESULT failure = S_OK;
  EXPECT_THAT(backup->GetWriterStatus(0, &instance, &writer, name.Put(), &state, &failure), Gives(S_OK));
  EXPECT_EQ(instance, InstanceId(0xA));
  EXPECT_EQ(writer, ClassId(0xA));
  EXPECT_THAT(failure, Gives(VSS_E_WRITERERROR_PARTIAL_FAILURE));
  EXPECT_THAT(backup->GetWriterStatus(3, &instance, &writer, name.Put(), &state, &failure),
              Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_FALSE(name);
  EXPECT_THAT(backup->FreeWriterStatus(), Gives(S_OK));
  EXPECT_THAT(backup->FreeWriterStatus(), Gives(VSS_E_BAD_STATE));
  UINT count = 0;
  EXPECT_THAT(backup->GetWriterStatusCount(&count), Gives(VSS_E_BAD_STATE));
}

TEST_F(ShadowCopyService, ReturnsWritersToStableOnAbort) {
  FailWriter(WriterEvent::postSnapshot, VSS_E_WRITERERROR_TIMEOUT);
  Backup backup(Phase::gathered);
  backup.StartSet(false).Take();
  EXPECT_THAT(backup->AbortBackup(), Gives(S_OK));
  EXPECT_THAT(backup->AbortBackup(), Gives(S_OK));
  EXPECT_THAT(backup.States(), ElementsAre(VSS_WS_FAILED_AT_POST_SNAPSHOT, VSS_WS_STABLE, VSS_WS_STABLE));
  EXPECT_THAT(Told(std::nullopt), SizeIs(3));
}

TEST_F(ShadowCopyService, LeavesTheCopiesOfAnAbortedBackupToTheirRelease) {
  for (const LONG context : {LONG{VSS_CTX_BACKUP}, LONG{VSS_CTX_APP_ROLLBACK}}) {
    Install(VssHost());
    Backup backup(Phase::snapshotDone, context);
    EXPECT_THAT(backup->AbortBackup(), Gives(S_OK));
    EXPECT_THAT(Told(std::nullopt), ElementsAre(L"SqlServerWriter"));
    EXPECT_THAT(backup.Complete(), Gives(VSS_E_BAD_STATE));
    EXPECT_THAT(backup.Delete(backup.setId, VSS_OBJECT_SNAPSHOT_SET), Gives(VSS_E_BAD_STATE));
    EXPECT_THAT(Copies(), SizeIs(1));
    EXPECT_THAT(Told(WriterEvent::backupComplete), IsEmpty());
    backup.Release();
    EXPECT_THAT(Copies(), SizeIs(context == VSS_CTX_BACKUP ? 0 : 1));
  }
}

TEST_F(ShadowCopyService, AbortsNothingOnceTheBackupIsComplete) {
  Backup backup(Phase::complete);
  EXPECT_THAT(backup->AbortBackup(), Gives(S_OK));
  EXPECT_THAT(Told(std::nullopt), IsEmpty());
  EXPECT_THAT(backup.PropertiesOf(backup.copyIds.at(0)), Gives(S_OK));
}

TEST_F(ShadowCopyService, RaisesBackupCompleteWhenItIsTriedAgainAfterAFailure) {
  Backup backup(Phase::snapshotDone);
  host().faults().FailAsync("BackupComplete", VSS_E_UNEXPECTED_WRITER_ERROR);
  EXPECT_THAT(backup.Complete(), Gives(VSS_E_UNEXPECTED_WRITER_ERROR));
  EXPECT_THAT(Told(WriterEvent::backupComplete), IsEmpty());
  EXPECT_THAT(backup.Complete(), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_THAT(Told(WriterEvent::backupComplete), ElementsAre(L"SqlServerWriter"));
  EXPECT_THAT(backup.Complete(), Gives(VSS_E_BAD_STATE));
}

TEST_F(ShadowCopyService, StartsEverySessionWithStableWriters) {
  FailWriter(WriterEvent::freeze, VSS_E_WRITERERROR_TIMEOUT);
  Backup first(Phase::complete);
  Backup second(Phase::gathered);
  EXPECT_THAT(second.States(), Each(VSS_WS_STABLE));
}

TEST_F(ShadowCopyService, TellsWhichComponentsAWriterFailed) {
  FailWriter(WriterEvent::postSnapshot, VSS_E_WRITERERROR_PARTIAL_FAILURE,
             {{L"\\sql01\\CRM", VSS_E_WRITERERROR_RETRYABLE, 0x41, L"crm busy"}, {L"\\SQL01\\other", E_FAIL, 0, L""}});
  Backup backup(Phase::gathered);
  ASSERT_THAT(backup.Add(0xA, L"SQL01", L"sales"), Gives(S_OK));
  ASSERT_THAT(backup.Add(0xA, L"SQL01", L"crm"), Gives(S_OK));
  backup.StartSet().Take();
  EXPECT_THAT(backup.Statuses().at(0).failure, Gives(VSS_E_WRITERERROR_PARTIAL_FAILURE));

  HRESULT failure = E_FAIL;
  HRESULT application = E_FAIL;
  DWORD reserved = 1;
  Bstr message;
  EXPECT_THAT(AddedComponent(backup, 0)->GetFailure(&failure, &application, message.Put(), &reserved), Gives(S_OK));
  EXPECT_THAT(failure, Gives(S_OK));
  EXPECT_FALSE(message);
  const ComPtr<IVssComponentEx2> crm = AddedComponent(backup, 1);
  EXPECT_THAT(crm->GetFailure(&failure, &application, message.Put(), &reserved), Gives(S_OK));
  EXPECT_THAT(failure, Gives(VSS_E_WRITERERROR_RETRYABLE));
  EXPECT_EQ(application, 0x41);
  EXPECT_EQ(message.View(), L"crm busy");
  EXPECT_EQ(reserved, 0U);
  EXPECT_THAT(crm->GetFailure(&failure, &application, message.Put(), nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(crm->SetFailure(S_OK, S_OK, nullptr, 0), Gives(VSS_E_BAD_STATE));

  const BackupDocument document = ParseBackupDocument(WideToUtf8(backup.Document()));
  EXPECT_TRUE(document.writers.at(0).changedByWriter);
  EXPECT_THAT(document.writers.at(0).components.at(1).failure, Gives(VSS_E_WRITERERROR_RETRYABLE));
}

TEST_F(ShadowCopyService, MovesTheClockWhenTheSnapshotIsWaitedFor) {
  host().model().freezeMilliseconds = 20000;
  host().model().commitMilliseconds = 5000;
  Backup backup(Phase::prepared);
  ComPtr<IVssAsync> async;
  ASSERT_THAT(backup->DoSnapshotSet(async.Put()), Gives(S_OK));
  HRESULT result = S_OK;
  EXPECT_THAT(async->Wait(24000), Gives(S_OK));
  EXPECT_THAT(async->QueryStatus(&result, nullptr), Gives(S_OK));
  EXPECT_THAT(result, Gives(VSS_S_ASYNC_PENDING));
  EXPECT_THAT(backup.PropertiesOf(backup.copyIds.at(0)), Gives(VSS_E_BAD_STATE));
  EXPECT_THAT(async->Wait(INFINITE), Gives(S_OK));
  EXPECT_THAT(async->QueryStatus(&result, nullptr), Gives(S_OK));
  EXPECT_THAT(result, Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_EQ(host().machine().now, 25000U);
  EXPECT_EQ(host().machine().slept, 0U) << "a wait is no sleep";
  EXPECT_THAT(backup.PropertiesOf(backup.copyIds.at(0)), Gives(S_OK));
}

TEST_F(ShadowCopyService, FailsWritersThatAreFrozenForMoreThanAMinute) {
  host().model().freezeMilliseconds = 60000;
  Backup inTime(Phase::snapshotDone);
  EXPECT_EQ(inTime.States().at(0), VSS_WS_WAITING_FOR_BACKUP_COMPLETE);
  inTime.Release();

  host().model().commitMilliseconds = 1;
  Backup late(Phase::snapshotDone);
  EXPECT_EQ(late.Statuses().at(0).state, VSS_WS_FAILED_AT_FREEZE);
  EXPECT_THAT(late.Statuses().at(0).failure, Gives(VSS_E_WRITERERROR_TIMEOUT));
  EXPECT_EQ(late.States().at(1), VSS_WS_STABLE);
  EXPECT_THAT(Copies(), SizeIs(1)) << "a writer's failure is not the set's";
}

TEST_F(ShadowCopyService, ReleasesTheHoldAfterTenSecondsAndFailsTheSet) {
  host().model().commitMilliseconds = 10000;
  Backup inTime(Phase::snapshotDone);
  inTime.Release();
  host().model().commitMilliseconds = 10001;
  Backup late(Phase::prepared);
  EXPECT_THAT(late.Snapshot(), Gives(VSS_E_HOLD_WRITES_TIMEOUT));
  EXPECT_THAT(Copies(), IsEmpty());
  EXPECT_THAT(late.States(), Each(VSS_WS_STABLE));
}

TEST_F(ShadowCopyService, ReportsThePlannedResultOfTheSnapshotAndUndoesIt) {
  for (const HRESULT planned : {VSS_E_PROVIDER_VETO, VSS_E_FLUSH_WRITES_TIMEOUT, VSS_S_ASYNC_CANCELLED}) {
    SCOPED_TRACE(ResultName(planned));
    Install(VssHost());
    host().faults().FailAsync("DoSnapshotSet", planned);
    Backup backup(Phase::prepared);
    EXPECT_THAT(backup.Snapshot(), Gives(planned));
    EXPECT_THAT(Copies(), IsEmpty());
    EXPECT_THAT(Told(std::nullopt), ElementsAre(L"SqlServerWriter"));
    EXPECT_THAT(backup.States(), Each(VSS_WS_STABLE));
    EXPECT_THAT(backup.Complete(), Gives(VSS_E_BAD_STATE));
    EXPECT_THAT(backup->AbortBackup(), Gives(S_OK));
  }
}

TEST_F(ShadowCopyService, NeverEndsAnOperationThatIsPlannedToStayPending) {
  host().faults().FailAsync("DoSnapshotSet", VSS_S_ASYNC_PENDING);
  Backup backup(Phase::prepared);
  EXPECT_THAT(backup.Snapshot(), Gives(VSS_S_ASYNC_PENDING));
  EXPECT_THAT(backup.Snapshot(), Gives(VSS_E_BAD_STATE));
  EXPECT_EQ(backup.States().at(0), VSS_WS_WAITING_FOR_THAW);
  EXPECT_THAT(backup->AbortBackup(), Gives(S_OK));
  EXPECT_THAT(backup.States(), Each(VSS_WS_STABLE));
}

TEST_F(ShadowCopyService, ReportsThePlannedResultOfEveryOtherOperation) {
  const auto fail = [this](const char* async) { host().faults().FailAsync(async, VSS_E_UNEXPECTED); };
  Backup backup(Phase::initialized);
  fail("GatherWriterMetadata");
  EXPECT_THAT(backup.Run(&IVssBackupComponents::GatherWriterMetadata), Gives(VSS_E_UNEXPECTED));
  EXPECT_THAT(backup.Run(&IVssBackupComponents::GatherWriterMetadata), Gives(VSS_E_BAD_STATE));
  backup.Release();

  Backup second(Phase::setStarted);
  fail("PrepareForBackup");
  EXPECT_THAT(second.Run(&IVssBackupComponents::PrepareForBackup), Gives(VSS_E_UNEXPECTED));
  EXPECT_THAT(second.Snapshot(), Gives(VSS_E_BAD_STATE));
  second.Release();

  Backup third(Phase::snapshotDone);
  fail("GatherWriterStatus");
  EXPECT_THAT(third.Run(&IVssBackupComponents::GatherWriterStatus), Gives(VSS_E_UNEXPECTED));
  UINT count = 0;
  EXPECT_THAT(third->GetWriterStatusCount(&count), Gives(VSS_E_BAD_STATE));
  fail("BackupComplete");
  EXPECT_THAT(third.Complete(), Gives(VSS_E_UNEXPECTED));
  EXPECT_EQ(third.States().at(0), VSS_WS_WAITING_FOR_BACKUP_COMPLETE);
}

TEST_F(ShadowCopyService, UndoesASnapshotThatIsCancelledBeforeItsEnd) {
  host().model().freezeMilliseconds = 1000;
  Backup backup(Phase::prepared, VSS_CTX_APP_ROLLBACK);
  ComPtr<IVssAsync> async;
  ASSERT_THAT(backup->DoSnapshotSet(async.Put()), Gives(S_OK));
  EXPECT_THAT(async->Cancel(), Gives(S_OK));
  EXPECT_THAT(async->Cancel(), Gives(VSS_S_ASYNC_CANCELLED));
  EXPECT_THAT(Backup::ResultOf(*async), Gives(VSS_S_ASYNC_CANCELLED));
  EXPECT_THAT(backup.Complete(), Gives(VSS_E_BAD_STATE));
  EXPECT_THAT(Copies(), IsEmpty());
}

TEST_F(ShadowCopyService, AnswersACancellationThatComesTooLateWithTheResult) {
  Backup backup(Phase::initialized);
  ComPtr<IVssAsync> async;
  ASSERT_THAT(backup->GatherWriterMetadata(async.Put()), Gives(S_OK));
  EXPECT_THAT(async->Cancel(), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_THAT(async->QueryStatus(nullptr, nullptr), Gives(E_INVALIDARG));
  ComPtr<IVssAsync> same;
  EXPECT_THAT(QueryFor(async.Get(), kIidVssAsync, same), Gives(S_OK));
}

}  // namespace
}  // namespace varnel::test
