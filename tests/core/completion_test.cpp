// The end of a backup: what becomes of the set, and what every writer is told of its components.
#include <functional>
#include <new>
#include <stdexcept>

#include "tests/core/completion_fixture.h"

namespace varnel::test {
namespace {

TEST_F(CompletionTest, ASuccessfulBackupIsMarkedCompletedAndCheckedInThisOrder) {
  TakenRequest request(*this);
  EXPECT_EQ(request.Complete(0), Outcome::Returned());
  const std::string object = kBackup;
  const std::string mail = "({00000001-0001-0000-0000-000000000000}, {00000001-0000-0000-0000-000000000000}, 2, ";
  const std::string web = "({00000002-0001-0000-0000-000000000000}, {00000002-0000-0000-0000-000000000000}, 1, ";
  EXPECT_THAT(
      host().calls().lines(),
      ElementsAre(object + "GetWriterComponentsCount() = S_OK",
                  object + "SetBackupSucceeded" + mail + "\"mail\", \"db1\", true) = S_OK",
                  object + "SetBackupSucceeded" + mail + "\"mail\", \"db2\", true) = S_OK",
                  object + "SetBackupSucceeded" + web + "\"\", \"site\", true) = S_OK",
                  object + "BackupComplete() = S_OK", "IVssAsync::Wait(INFINITE) = S_OK",
                  "IVssAsync::QueryStatus(-> VSS_S_ASYNC_FINISHED) = S_OK", object + "GatherWriterStatus() = S_OK",
                  "IVssAsync::Wait(INFINITE) = S_OK", "IVssAsync::QueryStatus(-> VSS_S_ASYNC_FINISHED) = S_OK",
                  object + "GetWriterStatusCount() = S_OK",
                  object + "QueryInterface({c191bfbc-b602-4675-8bd1-67d642f529d5}) = S_OK",
                  "IVssBackupComponentsEx3::GetWriterStatusEx(0) = S_OK",
                  "IVssBackupComponentsEx3::GetWriterStatusEx(1) = S_OK",
                  "IVssBackupComponentsEx3::GetWriterStatusEx(2) = S_OK", object + "FreeWriterStatus() = S_OK"));
  EXPECT_THAT(log.All(), ElementsAreArray(Joined({{CalledLine(0)}, MarkingSucceeded(), Completed()})));
  EXPECT_EQ(request.alerts(), "");
  EXPECT_EQ(Copies(request), 1U);
  EXPECT_THAT(Marks(request), ElementsAre("db1 succeeded", "db2 succeeded", "site succeeded"));
  EXPECT_THAT(ToldOfBackupComplete(), ElementsAre("Mail", "Web"));
  ExpectTheServiceIsFree();
}

TEST_F(CompletionTest, TheLinesOfTheCompletionCarryTheLibrarysName) {
  TakenRequest request(*this);
  EXPECT_EQ(request.Complete(5), Outcome::Returned());
  for (const RecordingLog::Line& line : log.lines) EXPECT_EQ(line.source, "varnel") << line.text;
}

TEST_F(CompletionTest, ExcludedWritersAndComponentsThatWereNotAddedAreNotReported) {
  TakenRequest request(*this);
  request.component(0, 0).added = false;
  request.probe.writers()[1].excluded = true;
  EXPECT_EQ(request.Complete(0), Outcome::Returned());
  EXPECT_THAT(Reported(), ElementsAre("\"mail\", \"db2\", true"));
  EXPECT_THAT(Marks(request), ElementsAre("db1 failed", "db2 succeeded", "site failed"));
}

// Whether a component takes part is for the selection to say; here only what was added counts.
TEST_F(CompletionTest, AnAddedComponentIsReportedWhateverItsExcludedMark) {
  TakenRequest request(*this);
  request.component(0, 0).excluded = true;
  EXPECT_EQ(request.Complete(0), Outcome::Returned());
  EXPECT_THAT(Reported(), Contains("\"mail\", \"db1\", true"));
}

TEST_F(CompletionTest, EveryOtherCodeDeletesTheSetAndMarksTheComponentsAsFailed) {
  for (const int code : {1, 5, -1, 600, 602, 603, 701, static_cast<int>(VSS_E_UNEXPECTED_PROVIDER_ERROR)}) {
    SCOPED_TRACE(code);
    StartOver();
    TakenRequest request(*this);
    EXPECT_EQ(request.Complete(code), Outcome::Returned());
    EXPECT_THAT(log.All(), ElementsAreArray(Joined({{CalledLine(code)}, Deleting(), MarkingFailed(), Completed()})));
    EXPECT_EQ(host().calls().lines().front(),
              "IVssBackupComponents::DeleteSnapshots({00000002-5e1f-4c3d-9a0b-000000000000}, 2, 1 -> 1) = S_OK");
    EXPECT_EQ(TimesCalled("BackupComplete"), 1);
    EXPECT_EQ(Copies(request), 0U);
    EXPECT_THAT(Marks(request), ElementsAre("db1 failed", "db2 failed", "site failed"));
    EXPECT_EQ(request.alerts(), "");
    ExpectTheServiceIsFree();
  }
}

TEST_F(CompletionTest, ACodeThatIsAnHResultIsLoggedAsASignedNumber) {
  TakenRequest request(*this);
  EXPECT_EQ(request.Complete(StatusCode(Outcome::Thrown(VSS_E_HOLD_WRITES_TIMEOUT))), Outcome::Returned());
  EXPECT_EQ(log.All().front(), "I Backup shutdown phase: SetBackupStatus called with snapErrorCode -2147212524...");
}

TEST_F(CompletionTest, CollectedMessagesKeepTheSetAndReportTheFailedComponentsAlone) {
  FailWriter(PartialFault());
  SnapshotRequest<PartialRequestor> request;
  const Outcome created = Take(request);
  ASSERT_EQ(created.alertCode, 601);
  const std::string alerts = request.alerts();
  // The writer stays as it is, so the check after BackupComplete finds the same again.
  EXPECT_EQ(request.Complete(601), created);
  EXPECT_EQ(request.alerts(), alerts + alerts);
  const Lines lines = log.All();
  EXPECT_THAT(
      Lines(lines.begin(), lines.begin() + 8),
      ElementsAreArray(Joined({{CalledLine(601)},
                               MarkingSucceededWithMessages(),
                               {"I Component level status code has been set for \\mail\\db1. Reporting succeeded = 0",
                                "I Component level status code has been set for \\mail\\db2. Reporting succeeded = 1"},
                               Completing()})));
  EXPECT_THAT(Reported(), ElementsAre("\"mail\", \"db1\", false", "\"mail\", \"db2\", true", "\"\", \"site\", true"));
  EXPECT_EQ(TimesCalled("DeleteSnapshots"), 0);
  EXPECT_EQ(TimesCalled("BackupComplete"), 1);
  EXPECT_EQ(Copies(request), 1U);
  EXPECT_THAT(Marks(request), ElementsAre("db1 failed", "db2 succeeded", "site succeeded"));
  ExpectTheServiceIsFree();
}

TEST_F(CompletionTest, AComponentWhoseWriterFailedItWithoutACodeSucceedsInAFailedBackup) {
  FailWriter(PartialFault());
  SnapshotRequest<PartialRequestor> request({.testPoints = kTestPointFailDoSnapshotSet});
  const Outcome created = Take(request);
  ASSERT_EQ(created, Outcome::Thrown(VSS_E_UNEXPECTED_WRITER_ERROR));
  EXPECT_EQ(request.Complete(StatusCode(created)).alertCode, 601);
  const Lines lines = log.All();
  EXPECT_THAT(
      Lines(lines.begin(), lines.begin() + 10),
      ElementsAreArray(Joined({{CalledLine(StatusCode(created))},
                               Deleting(),
                               MarkingFailed(),
                               {"I Component level status code has been set for \\mail\\db1. Reporting succeeded = 0",
                                "I Component level status code has been set for \\mail\\db2. Reporting succeeded = 1"},
                               Completing()})));
  EXPECT_THAT(Reported(), ElementsAre("\"mail\", \"db1\", false", "\"mail\", \"db2\", true", "\"\", \"site\", false"));
  EXPECT_THAT(Marks(request), ElementsAre("db1 failed", "db2 succeeded", "site failed"));
}

TEST_F(CompletionTest, TheComponentsOfAFailedWriterFailAndTheRequestEndsInTheSameFailureAgain) {
  FailWriter(Fault(L"Mail", WriterEvent::postSnapshot));
  SnapshotRequest request;
  const Outcome created = Take(request);
  ASSERT_EQ(created.alertCode, 600);
  EXPECT_EQ(request.Complete(600), created);
  EXPECT_EQ(Copies(request), 0U);
  EXPECT_THAT(Marks(request), ElementsAre("db1 failed", "db2 failed", "site failed"));
  EXPECT_THAT(ToldOfBackupComplete(), ElementsAre("Web"));
  ExpectTheServiceIsFree();
}

TEST_F(CompletionTest, ExtraVolumesTakenAsAFailureDeleteTheWholeSet) {
  Install(Model());
  model().writers.pop_back();
  SnapshotRequest request(BothDisks());
  const Outcome created = Take(request);
  ASSERT_EQ(created.alertCode, 701);
  ASSERT_EQ(Copies(request), 2U);
  EXPECT_EQ(request.Complete(StatusCode(created)), Outcome::Returned());
  EXPECT_THAT(host().calls().lines().front(), HasSubstr("DeleteSnapshots({00000002-5e1f-4c3d-9a0b-000000000000}"));
  EXPECT_EQ(Copies(request), 0U);
  EXPECT_THAT(Marks(request), ElementsAre("db1 failed", "db2 failed", "site failed"));
}

TEST_F(CompletionTest, AFailedTransportableSetIsKeptForTheArrayToCleanUp) {
  TakenRequest request(*this, {.context = VSS_VOLSNAP_ATTR_TRANSPORTABLE});
  EXPECT_EQ(request.Complete(5), Outcome::Returned());
  EXPECT_THAT(log.All(), ElementsAreArray(Joined({{CalledLine(5), kTransportableLine}, MarkingFailed(), Completed()})));
  EXPECT_EQ(TimesCalled("DeleteSnapshots"), 0);
  EXPECT_EQ(TimesCalled("BackupComplete"), 1);
  EXPECT_EQ(Copies(request), 1U);
  EXPECT_THAT(Marks(request), ElementsAre("db1 failed", "db2 failed", "site failed"));
  ExpectTheServiceIsFree();
}

TEST_F(CompletionTest, OnlyTheTransportableBitOfTheContextKeepsAFailedSet) {
  TakenRequest request(*this, {.context = VSS_CTX_APP_ROLLBACK});
  EXPECT_EQ(request.Complete(5), Outcome::Returned());
  EXPECT_EQ(Copies(request), 0U);
}

TEST_F(CompletionTest, ATransportableSetThatIsOfUseIsKeptWithoutAWarning) {
  for (const int code : {0, 601}) {
    SCOPED_TRACE(code);
    StartOver();
    TakenRequest request(*this, {.context = VSS_VOLSNAP_ATTR_TRANSPORTABLE});
    EXPECT_EQ(request.Complete(code), Outcome::Returned());
    EXPECT_THAT(log.All(), Not(Contains(kTransportableLine)));
    EXPECT_EQ(Copies(request), 1U);
    EXPECT_THAT(Marks(request), ElementsAre("db1 succeeded", "db2 succeeded", "site succeeded"));
  }
}

TEST_F(CompletionTest, ASetThatTheProviderDoesNotDeleteIsNamedAndTheCompletionGoesOn) {
  TakenRequest request(*this);
  const std::vector<simulator::Provider> providers = model().providers;
  model().providers.clear();
  EXPECT_EQ(request.Complete(5), Outcome::Returned());
  EXPECT_THAT(log.All(),
              ElementsAreArray(Joined({{CalledLine(5)},
                                       {"I Delete snapshots before exiting..."},
                                       {"I Deleting shadow copy set {00000002-5e1f-4c3d-9a0b-000000000000}",
                                        "E DeleteSnapshots() Failed, SnapshotID={00000003-5e1f-4c3d-9a0b-000000000000}"
                                        ", Error=0x8004230f"},
                                       CallFailure(kDeleteFailed, "0x8004230f", "VSS_E_UNEXPECTED_PROVIDER_ERROR"),
                                       {"E Failed to delete the snapshots."},
                                       MarkingFailed(),
                                       Completed()})));
  EXPECT_EQ(TimesCalled("DeleteSnapshots"), 1);
  EXPECT_EQ(TimesCalled("BackupComplete"), 1);
  EXPECT_EQ(request.alerts(), "");
  EXPECT_EQ(Copies(request), 1U);
  EXPECT_THAT(Marks(request), ElementsAre("db1 failed", "db2 failed", "site failed"));
  model().providers = providers;
  ExpectTheServiceIsFree();
}

TEST_F(CompletionTest, EveryFailureOfTheDeletionIsLoggedAndPassedOver) {
  TakenRequest request(*this);
  FailCall("IVssBackupComponents::DeleteSnapshots", VSS_E_OBJECT_NOT_FOUND);
  EXPECT_EQ(request.Complete(600), Outcome::Returned());
  EXPECT_THAT(log.All(), ElementsAreArray(Joined({{CalledLine(600)},
                                                  DeletionFailure("{00000000-0000-0000-0000-000000000000}",
                                                                  "0x80042308", "VSS_E_OBJECT_NOT_FOUND"),
                                                  MarkingFailed(),
                                                  Completed()})));
  EXPECT_EQ(TimesCalled("BackupComplete"), 1);
}

TEST_F(CompletionTest, AnyExceptionOfTheDeletionIsLoggedAndPassedOver) {
  TakenRequest request(*this);
  FailingLog failing("Deleting shadow copy set", [] { throw std::runtime_error("the log is full"); });
  const ScopedLog guard(failing);
  EXPECT_EQ(request.Complete(600), Outcome::Returned());
  EXPECT_THAT(
      failing.All(),
      ElementsAreArray(Joined(
          {{CalledLine(600)}, Deleting(), {"E Failed to delete the snapshots."}, MarkingFailed(), Completed()})));
  EXPECT_EQ(TimesCalled("DeleteSnapshots"), 0);
  EXPECT_EQ(TimesCalled("BackupComplete"), 1);
}

TEST_F(CompletionTest, ARequestThatFailedBeforeTheSnapshotIsAborted) {
  host().faults().FailAsync("PrepareForBackup", VSS_E_WRITER_INFRASTRUCTURE);
  SnapshotRequest request;
  const Outcome created = Take(request);
  ASSERT_EQ(created, Outcome::Thrown(VSS_E_WRITER_INFRASTRUCTURE));
  const std::string alerts = request.alerts();
  EXPECT_EQ(request.Complete(StatusCode(created)), Outcome::Returned());
  EXPECT_THAT(log.All(), ElementsAre(CalledLine(StatusCode(created)), "W Snapshot not created, calling AbortBackup"));
  EXPECT_THAT(host().calls().lines(), ElementsAre("IVssBackupComponents::AbortBackup() = S_OK"));
  EXPECT_EQ(request.alerts(), alerts);
  ExpectTheServiceIsFree();
}

TEST_F(CompletionTest, WithoutASnapshotTheCodeMakesNoDifference) {
  for (const int code : {0, 601, 701}) {
    SCOPED_TRACE(code);
    StartOver();
    SnapshotRequest request;
    request.Start();
    host().calls().Clear();
    EXPECT_EQ(request.Complete(code), Outcome::Returned());
    EXPECT_THAT(log.All(), ElementsAre(CalledLine(code), "W Snapshot not created, calling AbortBackup"));
    EXPECT_THAT(BackupCalls(), ElementsAre("IVssBackupComponents::AbortBackup"));
  }
}

TEST_F(CompletionTest, ASnapshotThatFailedInTheServiceIsAborted) {
  host().faults().FailAsync("DoSnapshotSet", VSS_E_HOLD_WRITES_TIMEOUT);
  SnapshotRequest request;
  const Outcome created = Take(request);
  ASSERT_EQ(created, Outcome::Thrown(VSS_E_HOLD_WRITES_TIMEOUT));
  EXPECT_EQ(request.Complete(StatusCode(created)), Outcome::Returned());
  EXPECT_THAT(BackupCalls(), ElementsAre("IVssBackupComponents::AbortBackup"));
  ExpectTheServiceIsFree();
}

TEST_F(CompletionTest, AFailedAbortIsLoggedAndLeavesTheSetOpenUntilTheRequestorIsGone) {
  {
    host().faults().FailAsync("PrepareForBackup", VSS_E_WRITER_INFRASTRUCTURE);
    SnapshotRequest request;
    ASSERT_EQ(Take(request), Outcome::Thrown(VSS_E_WRITER_INFRASTRUCTURE));
    const std::string alerts = request.alerts();
    FailCall("IVssBackupComponents::AbortBackup", VSS_E_UNEXPECTED);
    EXPECT_EQ(request.Complete(-1), Outcome::Returned());
    EXPECT_THAT(log.All(), ElementsAre(CalledLine(-1), "W Snapshot not created, calling AbortBackup",
                                       "E AbortBackup failed. Error 0x80042302"));
    EXPECT_EQ(TimesCalled("AbortBackup"), 1);
    EXPECT_EQ(request.alerts(), alerts);
    host().faults() = {};
    EXPECT_EQ(PlainRequest(), Outcome::Thrown(VSS_E_SNAPSHOT_SET_IN_PROGRESS));
  }
  EXPECT_EQ(PlainRequest(), Outcome::Returned());
}

TEST_F(CompletionTest, AnAbortThatSucceedsWithAnotherCodeIsNotLogged) {
  SnapshotRequest request;
  request.Start();
  FailCall("IVssBackupComponents::AbortBackup", S_FALSE);
  EXPECT_EQ(request.Complete(-1), Outcome::Returned());
  EXPECT_THAT(log.Errors(), IsEmpty());
}

TEST_F(CompletionTest, WithoutABackupObjectThereIsNothingToAbort) {
  FailCall("CreateVssBackupComponents", E_ACCESSDENIED);
  SnapshotRequest request;
  const Outcome created = Take(request);
  ASSERT_EQ(created, Outcome::Thrown(E_ACCESSDENIED));
  const std::string alerts = request.alerts();
  EXPECT_EQ(request.Complete(StatusCode(created)), Outcome::Returned());
  EXPECT_THAT(log.All(),
              ElementsAre(CalledLine(StatusCode(created)),
                          "W Snapshot not created, not calling AbortBackup because VSS is not yet initialized."));
  EXPECT_THAT(host().calls().lines(), IsEmpty());
  EXPECT_EQ(request.alerts(), alerts);
  ExpectTheServiceIsFree();
}

TEST_F(CompletionTest, ARequestorThatWasNeverInitializedCompletesInSilence) {
  SnapshotRequest request;
  EXPECT_EQ(request.Complete(5), Outcome::Returned());
  EXPECT_THAT(log.All(),
              ElementsAre(CalledLine(5),
                          "W Snapshot not created, not calling AbortBackup because VSS is not yet initialized."));
  EXPECT_EQ(request.alerts(), "");
}

// The service lost the components on the way, so its document names no writer.
TEST_F(CompletionTest, ADocumentWithoutWriterComponentsEndsTheCompletionThere) {
  FailCall("IVssBackupComponents::AddComponent", S_OK, 0);
  TakenRequest request(*this);
  EXPECT_EQ(request.Complete(0), Outcome::Returned());
  EXPECT_THAT(log.All(), ElementsAre(CalledLine(0), "W - There were no writer components in this backup"));
  EXPECT_THAT(BackupCalls(), ElementsAre("IVssBackupComponents::GetWriterComponentsCount"));
  EXPECT_THAT(ToldOfBackupComplete(), IsEmpty());
  EXPECT_EQ(Copies(request), 1U);
  ExpectTheServiceIsFree();
}

TEST_F(CompletionTest, AFailedSetIsDeletedAlsoWithoutWriterComponents) {
  FailCall("IVssBackupComponents::AddComponent", S_OK, 0);
  TakenRequest request(*this);
  EXPECT_EQ(request.Complete(5), Outcome::Returned());
  EXPECT_THAT(
      log.All(),
      ElementsAreArray(Joined({{CalledLine(5)}, Deleting(), {"W - There were no writer components in this backup"}})));
  EXPECT_EQ(Copies(request), 0U);
}

// The service prepares no backup in such a context, so its set is taken step by step.
TEST_F(CompletionTest, ASetTakenWithoutWritersIsNotCompletedWithThem) {
  for (const DWORD context : {DWORD{VSS_CTX_FILE_SHARE_BACKUP}, DWORD{VSS_CTX_NAS_ROLLBACK}}) {
    SCOPED_TRACE(context);
    StartOver();
    SnapshotRequest request({.context = context});
    request.Start();
    request.probe.snapshotVolumes() = {{VolumeName(1), L"", L""}};
    ASSERT_EQ(request.probe.StartSnapshotSet(), S_OK);
    request.probe.AddToSnapshotSet(request.details());
    request.probe.DoSnapshotSet(request.details());
    ASSERT_EQ(Copies(request), 1U);
    Forget();
    EXPECT_EQ(request.Complete(0), Outcome::Returned());
    EXPECT_THAT(log.All(), ElementsAre(CalledLine(0), "W - There were no writer components in this backup"));
    EXPECT_THAT(BackupCalls(), ElementsAre("IVssBackupComponents::GetWriterComponentsCount"));
    ExpectTheServiceIsFree();
  }
}

TEST_F(CompletionTest, ADocumentThatCannotBeCountedSurfacesAfterBackupComplete) {
  TakenRequest request(*this);
  FailCall("IVssBackupComponents::GetWriterComponentsCount", E_OUTOFMEMORY);
  EXPECT_EQ(request.Complete(0), Outcome::Thrown(E_OUTOFMEMORY));
  EXPECT_THAT(log.All(), ElementsAreArray(Joined({{CalledLine(0)},
                                                  CallFailure(kCountFailed, "0x8007000e", "E_OUTOFMEMORY"),
                                                  {"E SetBackupStatus Failed. Error = 0x8007000e"},
                                                  Completed()})));
  EXPECT_THAT(Reported(), IsEmpty());
  EXPECT_EQ(TimesCalled("BackupComplete"), 1);
  EXPECT_EQ(request.alerts(), "");
  EXPECT_THAT(Marks(request), ElementsAre("db1 failed", "db2 failed", "site failed"));
  EXPECT_THAT(ToldOfBackupComplete(), ElementsAre("Mail", "Web"));
  ExpectTheServiceIsFree();
}

TEST_F(CompletionTest, AComponentThatCannotBeMarkedEndsTheMarkingAndSurfacesAfterBackupComplete) {
  TakenRequest request(*this);
  FailCall("IVssBackupComponents::SetBackupSucceeded", VSS_E_UNEXPECTED, 2);
  EXPECT_EQ(request.Complete(0), Outcome::Thrown(VSS_E_UNEXPECTED));
  EXPECT_THAT(Reported(), ElementsAre("\"mail\", \"db1\", true", "\"mail\", \"db2\", true"));
  EXPECT_EQ(TimesCalled("BackupComplete"), 1);
  const std::string record = ComRecord("SetBackupSucceeded()", "VSS_E_UNEXPECTED");
  EXPECT_EQ(request.alerts(), record);
  EXPECT_THAT(log.All(), ElementsAreArray(Joined({{CalledLine(0)},
                                                  MarkingSucceeded(),
                                                  {"E  " + record.substr(0, record.size() - 1),
                                                   "E SetBackupStatus Failed. Error = 0x80042302"},
                                                  Completed()})));
  EXPECT_THAT(Marks(request), ElementsAre("db1 succeeded", "db2 failed", "site failed"));
  ExpectTheServiceIsFree();
}

TEST_F(CompletionTest, AComponentThatTheServiceDoesNotKnowCannotBeMarked) {
  FailCall("IVssBackupComponents::AddComponent", S_OK, 1);
  TakenRequest request(*this);
  EXPECT_EQ(request.Complete(0), Outcome::Thrown(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_EQ(request.alerts(), ComRecord("SetBackupSucceeded()", "VSS_E_OBJECT_NOT_FOUND"));
  EXPECT_THAT(Marks(request), ElementsAre("db2 failed", "site failed"));
}

TEST_F(CompletionTest, AMarkThatSucceedsWithAnotherCodeIsNoFailure) {
  TakenRequest request(*this);
  FailCall("IVssBackupComponents::SetBackupSucceeded", S_FALSE, 0);
  EXPECT_EQ(request.Complete(0), Outcome::Returned());
  EXPECT_EQ(Reported().size(), 3U);
  EXPECT_THAT(log.Errors(), IsEmpty());
}

TEST_F(CompletionTest, AnyOtherExceptionOfTheMarkingSurfacesAsUnspecifiedAfterBackupComplete) {
  const std::vector<std::function<void()>> failures = {
      [] { throw std::runtime_error("the log is full"); }, [] { throw std::bad_alloc(); },
      [] { throw VarnelException(VarnelException::WriterFailure, L"not of this kind"); }, [] { throw int{5}; }};
  for (const std::function<void()>& fail : failures) {
    StartOver();
    TakenRequest request(*this);
    FailingLog failing("***Reporting component status", fail);
    const ScopedLog guard(failing);
    EXPECT_EQ(request.Complete(0), Outcome::Thrown(E_FAIL));
    EXPECT_THAT(failing.All(),
                ElementsAreArray(Joined(
                    {{CalledLine(0)}, MarkingSucceeded(), {"E SetBackupStatus Failed. Unknown error."}, Completed()})));
    EXPECT_THAT(Reported(), IsEmpty());
    EXPECT_EQ(TimesCalled("BackupComplete"), 1);
    EXPECT_EQ(request.alerts(), "");
    EXPECT_THAT(Marks(request), ElementsAre("db1 failed", "db2 failed", "site failed"));
    ExpectTheServiceIsFree();
  }
}

}  // namespace
}  // namespace varnel::test
