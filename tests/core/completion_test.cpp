// The end of a backup: what becomes of the set, what every writer is told, and which failure is the one that surfaces.
#include <functional>
#include <new>
#include <stdexcept>

#include "simulator/vss/backup_document.h"
#include "simulator/vss/snapshot_service.h"
#include "tests/support/request_fixture.h"
#include "text/format.h"
#include "text/guid.h"

namespace varnel::test {
namespace {

using testing::Contains;
using testing::ElementsAreArray;
using testing::Not;

constexpr char kBackup[] = "IVssBackupComponents::";
constexpr char kCountFailed[] = "E ERROR: COM call \"m_pVssObject->GetWriterComponentsCount(&cWriters)\" failed.";
constexpr char kCompleteFailed[] = "E ERROR: COM call \"m_pVssObject->BackupComplete(&pAsync)\" failed.";
constexpr char kDeleteFailed[] =
    "E ERROR: COM call L\"m_pVssObject->DeleteSnapshots(snapshotSetID, VSS_OBJECT_SNAPSHOT_SET,FALSE,&lSnapshots,"
    "&idNonDeleted)\" failed.";
constexpr char kTransportableLine[] =
    "W Backup failed, but snapshopts won't be cleaned up by Vorn as they are transportable. The array should clean up "
    "the snapshots if failure is terminating.";
constexpr char kMessagesLine[] =
    "W - Backup was partially successful. Mark components as SUCCEEDED unless overriden by component level failure.";

using Lines = std::vector<std::string>;

Lines Joined(std::initializer_list<Lines> parts) {
  Lines lines;
  for (const Lines& part : parts) lines.insert(lines.end(), part.begin(), part.end());
  return lines;
}

std::string CalledLine(int code) {
  return FormatNarrow("I Backup shutdown phase: SetBackupStatus called with snapErrorCode %d...", {code});
}

// The log of a completion up to the first component.
Lines MarkingSucceeded() {
  return {"I - Mark components as succesfully backed up",
          "I ***Reporting component status as SUCCEEDED unless overriden***"};
}
Lines MarkingSucceededWithMessages() {
  return {kMessagesLine, "I ***Reporting component status as SUCCEEDED unless overriden***"};
}
Lines MarkingFailed() {
  return {"W - Mark components as failed.", "I ***Reporting component status as FAILED unless overriden***"};
}
Lines Deleting() {
  return {"I Delete snapshots before exiting...", "I Deleting shadow copy set {00000002-5e1f-4c3d-9a0b-000000000000}"};
}

// The log of BackupComplete up to the writers' status.
Lines Completing() {
  return {"I Waiting for Operation=BackupComplete() to finish...", "I GatherWriterStatus",
          "I Waiting for Operation=m_pVssObject->GatherWriterStatus(&pAsync) to finish..."};
}

// The log of BackupComplete when the writers do well.
Lines Completed() {
  return Joined({Completing(),
                 {"I Writer=Mail, WriterStatus=VSS_WS_STABLE, WriterError=S_OK",
                  "I Writer=Web, WriterStatus=VSS_WS_STABLE, WriterError=S_OK"}});
}

// What is logged of a failed call behind the line that names it.
Lines CallFailure(const std::string& line, const std::string& hresult, const std::string& name) {
  return {line, "E - Returned HRESULT = " + hresult, "E - Error text: " + name};
}

Lines DeletionFailure(const std::string& copy, const std::string& hresult, const std::string& name) {
  return Joined({Deleting(),
                 {"E DeleteSnapshots() Failed, SnapshotID=" + copy + ", Error=" + hresult},
                 CallFailure(kDeleteFailed, hresult, name),
                 {"E Failed to delete the snapshots."}});
}

// The message of a writer that fails at BackupComplete, and its entry in the list of messages.
std::string CompleteText(const std::string& writer) {
  return writer + " has failed during backup complete event. Try again.";
}
std::string CompleteEntry(const std::string& writer, const std::string& components) {
  return CompleteText(writer) +
         " Application error code: 0x0, Application error message:  \nFailed application components: " + components +
         " \n";
}

// The record of Mail after that.
std::string MailRecord() {
  return WriterRecord("Mail", "VSS_E_WRITERERROR_RETRYABLE", "VSS_WS_FAILED_AT_BACKUP_COMPLETE");
}

// Fails while it writes a line that holds the text.
class FailingLog : public RecordingLog {
 public:
  FailingLog(std::string text, std::function<void()> fail) : text_(std::move(text)), fail_(std::move(fail)) {}
  void Write(int category, std::wstring_view source, int line, std::wstring_view text) override {
    RecordingLog::Write(category, source, line, text);
    if (lines.back().text.find(text_) != text_.npos) fail_();
  }

 private:
  std::string text_;
  std::function<void()> fail_;
};

class CompletionTest : public HostFixture {
 protected:
  /// Two writers whose files lie on the protected disk, and one whose do not.
  void SetUp() override { Install(Model()); }

  static simulator::HostModel Model() {
    simulator::HostModel model = HostOfThreeWriters();
    model.vssMessages = {{{static_cast<DWORD>(VSS_E_WRITERERROR_RETRYABLE), L"Try again."}}};
    simulator::WriterComponent& site = model.writers[1].components[0];
    site.type = VSS_CT_DATABASE;
    site.databaseFiles = std::move(site.files);
    site.files.clear();
    return model;
  }

  /// How the request up to the completion ends; what it logged is forgotten.
  template <class Requestor>
  Outcome Take(SnapshotRequest<Requestor>& request) {
    const Outcome outcome = request.StartAndCreate();
    Forget();
    return outcome;
  }

  Lines BackupCalls() { return CallNames(host().calls(), {"IVssBackupComponents"}); }
  int TimesCalled(const std::string& method) { return static_cast<int>(Calls(kBackup + method).size()); }

  /// What the service was told of each component: `"mail", "db1", true`.
  Lines Reported() {
    Lines reported;
    for (const std::string& line : Calls(std::string(kBackup) + "SetBackupSucceeded")) {
      const std::size_t begin = line.find('"');
      reported.push_back(line.substr(begin, line.rfind(')') - begin));
    }
    return reported;
  }

  /// The components in the document that the writers see, and how they stand there.
  template <class Requestor>
  static Lines Marks(SnapshotRequest<Requestor>& request) {
    Bstr xml;
    EXPECT_EQ(request.probe.vssObject()->SaveAsXML(xml.Put()), S_OK);
    Lines marks;
    for (const auto& writer : simulator::ParseBackupDocument(WideToUtf8Lossy(xml.View())).writers) {
      for (const simulator::DocumentComponent& component : writer.components) {
        const char* state = !component.succeeded ? " unmarked" : *component.succeeded ? " succeeded" : " failed";
        marks.push_back(WideToUtf8Lossy(component.name) + state);
      }
    }
    return marks;
  }

  /// The writers that were told of BackupComplete, in order.
  Lines ToldOfBackupComplete() {
    Lines writers;
    for (const simulator::RaisedEvent& raised : host().machine().snapshots->raisedEvents) {
      if (raised.event == WriterEvent::backupComplete) writers.push_back(WideToUtf8Lossy(raised.writer));
    }
    return writers;
  }

  /// How many shadow copies of the request's set there are, also ones that are not on this host.
  template <class Requestor>
  std::size_t Copies(const SnapshotRequest<Requestor>& request) {
    return host().machine().snapshots->CopiesOfSet(GuidOrNull<GUID>(request.requestor.GetSnapShotSetId())).size();
  }

  /// The service is free for the next request, while the requestor before it still lives.
  void ExpectTheServiceIsFree() {
    host().faults() = {};
    RecordingLog other;
    const ScopedLog guard(other);
    EXPECT_EQ(PlainRequest(), Outcome::Returned());
  }
};

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
  // The writer stays as it is, so the check behind BackupComplete finds the same again.
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
  simulator::HostModel model = Model();
  model.writers.pop_back();
  Install(std::move(model));
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
  SnapshotRequest request({.context = VSS_CTX_FILE_SHARE_BACKUP});
  request.Start();
  request.probe.snapshotVolumes() = {{VolumeName(1), L"", L""}};
  request.probe.StartSnapshotSet(request.details());
  request.probe.AddToSnapshotSet(request.details());
  request.probe.DoSnapshotSet(request.details());
  ASSERT_EQ(Copies(request), 1U);
  Forget();
  EXPECT_EQ(request.Complete(0), Outcome::Returned());
  EXPECT_THAT(log.All(), ElementsAre(CalledLine(0), "W - There were no writer components in this backup"));
  EXPECT_THAT(BackupCalls(), ElementsAre("IVssBackupComponents::GetWriterComponentsCount"));
  ExpectTheServiceIsFree();
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

TEST_F(CompletionTest, AWriterThatFailsAtBackupCompleteFailsARequestThatWantsAllOfThem) {
  FailWriter(Fault(L"Mail", WriterEvent::backupComplete));
  TakenRequest request(*this);
  EXPECT_EQ(request.Complete(0),
            Outcome::Exception(600, Wide(CompleteText("Mail")),
                               {Wide(CompleteEntry("Mail", "db1[\\mail\\db1],db2[\\mail\\db2]"))}));
  const std::string record = MailRecord();
  EXPECT_EQ(request.alerts(), record);
  EXPECT_THAT(log.All(),
              ElementsAreArray(Joined({{CalledLine(0)},
                                       MarkingSucceeded(),
                                       Completing(),
                                       {"E   " + record, "E Marking all components of writer Mail as FAILED!",
                                        "I Writer=Web, WriterStatus=VSS_WS_STABLE, WriterError=S_OK"}})));
  // The writers had been told before.
  EXPECT_THAT(Marks(request), ElementsAre("db1 succeeded", "db2 succeeded", "site succeeded"));
  EXPECT_TRUE(request.component(0, 0).failed);
  EXPECT_EQ(Copies(request), 1U);
  ExpectTheServiceIsFree();
}

TEST_F(CompletionTest, AWriterThatFailsAtBackupCompleteIsAMessageWhereComponentsMayFail) {
  FailWriter(Fault(L"Mail", WriterEvent::backupComplete));
  TakenRequest<PartialRequestor> request(*this);
  const std::wstring text = Wide(CompleteText("Mail"));
  const std::wstring entry = Wide(CompleteEntry("Mail", "db1[\\mail\\db1],db2[\\mail\\db2]"));
  EXPECT_EQ(request.Complete(0), Outcome::Exception(601, text, {entry}));
  EXPECT_EQ(request.alerts(), MailRecord());
  EXPECT_EQ(request.probe.writerErrorText(), text);
  EXPECT_THAT(request.probe.failedComponents(), ElementsAre(entry));
  EXPECT_EQ(Copies(request), 1U);
  ExpectTheServiceIsFree();
}

TEST_F(CompletionTest, WritersThatAllFailAtBackupCompleteFailEveryRequest) {
  FailWriter(Fault(L"Mail", WriterEvent::backupComplete));
  FailWriter(Fault(L"Web", WriterEvent::backupComplete));
  TakenRequest<PartialRequestor> request(*this);
  EXPECT_EQ(request.Complete(0), Outcome::Exception(600, Wide(CompleteText("Mail") + CompleteText("Web")),
                                                    {Wide(CompleteEntry("Mail", "db1[\\mail\\db1],db2[\\mail\\db2]")),
                                                     Wide(CompleteEntry("Web", "site[\\site]"))}));
  ExpectTheServiceIsFree();
}

TEST_F(CompletionTest, WritersAreNotCheckedInAContextWithoutWriters) {
  FailWriter(Fault(L"Mail", WriterEvent::backupComplete));
  TakenRequest request(*this);
  request.probe.context() = VSS_CTX_FILE_SHARE_BACKUP;
  EXPECT_EQ(request.Complete(0), Outcome::Returned());
  EXPECT_EQ(log.All().back(), "I Waiting for Operation=BackupComplete() to finish...");
  EXPECT_EQ(TimesCalled("GatherWriterStatus"), 0);
}

TEST_F(CompletionTest, MessagesOfTheRequestAreForgottenAtTheStart) {
  FailWriter(Fault(L"Mail", WriterEvent::prepareBackup));
  SnapshotRequest<PartialRequestor> request;
  ASSERT_EQ(Take(request).list.size(), 2U);  // one of each check
  const Outcome completed = request.Complete(601);
  EXPECT_EQ(completed.alertCode, 601);
  EXPECT_EQ(completed.list.size(), 1U);
  EXPECT_EQ(completed.message,
            L"Mail has failed to prepare for backup. Check the Application event log on the application server for "
            L"more information. Try again.");
}

TEST_F(CompletionTest, OldMessagesDoNotTurnACompletedBackupIntoOneWithMessages) {
  TakenRequest request(*this);
  request.probe.writerErrorText() = L"left over";
  request.probe.failedComponents() = {L"left over"};
  EXPECT_EQ(request.Complete(0), Outcome::Returned());
  EXPECT_EQ(request.probe.writerErrorText(), L"");
  EXPECT_THAT(request.probe.failedComponents(), IsEmpty());
}

TEST_F(CompletionTest, MessagesAreForgottenAlsoWhenTheBackupIsAborted) {
  SnapshotRequest request;
  request.probe.writerErrorText() = L"left over";
  request.probe.failedComponents() = {L"left over"};
  EXPECT_EQ(request.Complete(0), Outcome::Returned());
  EXPECT_EQ(request.probe.writerErrorText(), L"");
  EXPECT_THAT(request.probe.failedComponents(), IsEmpty());
}

TEST_F(CompletionTest, AFailedBackupCompleteIsLoggedWithoutARecordAndSurfaces) {
  TakenRequest request(*this);
  FailCall("IVssBackupComponents::BackupComplete", E_ACCESSDENIED, 0);
  EXPECT_EQ(request.Complete(0), Outcome::Thrown(E_ACCESSDENIED));
  EXPECT_THAT(log.All(), ElementsAreArray(Joined({{CalledLine(0)},
                                                  MarkingSucceeded(),
                                                  CallFailure(kCompleteFailed, "0x80070005", "Error: 0x80070005")})));
  EXPECT_EQ(TimesCalled("BackupComplete"), 1);
  EXPECT_EQ(request.alerts(), "");
  EXPECT_THAT(Marks(request), ElementsAre("db1 succeeded", "db2 succeeded", "site succeeded"));
  EXPECT_THAT(ToldOfBackupComplete(), IsEmpty());
  ExpectTheServiceIsFree();
}

TEST_F(CompletionTest, ABackupCompleteThatDeliversNoOperationIsUnexpected) {
  TakenRequest request(*this);
  FailCall("IVssBackupComponents::BackupComplete", S_FALSE);
  EXPECT_EQ(request.Complete(0), Outcome::Thrown(E_UNEXPECTED));
  EXPECT_THAT(log.Errors(), ElementsAre(std::string(kCompleteFailed).substr(2), "- Returned HRESULT = 0x8000ffff",
                                        "- Error text: E_UNEXPECTED"));
  EXPECT_EQ(request.alerts(), "");
}

TEST_F(CompletionTest, ABackupCompleteThatEndsInAFailureWritesTheStatusRecord) {
  TakenRequest request(*this);
  host().faults().FailAsync("BackupComplete", VSS_E_WRITER_INFRASTRUCTURE);
  EXPECT_EQ(request.Complete(0), Outcome::Thrown(VSS_E_WRITER_INFRASTRUCTURE));
  const std::string record =
      "RequestStatus=QueryStatus(), Function=pAsync->QueryStatus(), Error=VSS_E_WRITER_INFRASTRUCTURE, "
      "rc=SystemError, ca=ContactSupport";
  EXPECT_EQ(request.alerts(), record);
  EXPECT_THAT(log.All(),
              ElementsAreArray(Joined({{CalledLine(0)},
                                       MarkingSucceeded(),
                                       {"I Waiting for Operation=BackupComplete() to finish...", "E   " + record}})));
  EXPECT_EQ(TimesCalled("GatherWriterStatus"), 0);
  ExpectTheServiceIsFree();
}

struct FailingCall {
  std::string call;
  std::string text;
};

TEST_F(CompletionTest, AFailedCallAfterBackupCompleteWritesItsRecordAndSurfaces) {
  const std::vector<FailingCall> calls = {
      {"IVssAsync::Wait", "pAsync->Wait()"},
      {"IVssAsync::QueryStatus", "pAsync->QueryStatus()"},
      {"IVssBackupComponents::GatherWriterStatus", "m_pVssObject->GatherWriterStatus(&pAsync)"},
      {"IVssBackupComponents::FreeWriterStatus", "m_pVssObject->FreeWriterStatus()"},
  };
  for (const FailingCall& failing : calls) {
    SCOPED_TRACE(failing.call);
    StartOver();
    TakenRequest request(*this);
    FailCall(failing.call, VSS_E_UNEXPECTED);
    EXPECT_EQ(request.Complete(0), Outcome::Thrown(VSS_E_UNEXPECTED));
    EXPECT_EQ(request.alerts(), ComRecord(failing.text, "VSS_E_UNEXPECTED"));
    EXPECT_EQ(host().live().Count("IVssAsync"), 0);
    EXPECT_EQ(TimesCalled("BackupComplete"), 1);
    ExpectTheServiceIsFree();
  }
}

TEST_F(CompletionTest, AnyOtherExceptionOfBackupCompletePassesUnchanged) {
  FailWriter(Fault(L"Mail", WriterEvent::backupComplete));
  TakenRequest<ThrowingRequestor> request(*this);
  EXPECT_THROW(request.Complete(0), std::runtime_error);
}

class FirstFailureTest : public CompletionTest {
 protected:
  /// The marking fails, and BackupComplete with the writers' check behind it fails too.
  template <class Requestor>
  void ExpectTheFirstFailureSurfaces(const std::string& alertsBehind) {
    TakenRequest<Requestor> request(*this);
    FailCall("IVssBackupComponents::SetBackupSucceeded", VSS_E_UNEXPECTED);
    EXPECT_EQ(request.Complete(0), Outcome::Thrown(VSS_E_UNEXPECTED));
    EXPECT_EQ(request.alerts(), ComRecord("SetBackupSucceeded()", "VSS_E_UNEXPECTED") + alertsBehind);
    EXPECT_EQ(TimesCalled("BackupComplete"), 1);
    ExpectTheServiceIsFree();
  }
};

TEST_F(FirstFailureTest, AWriterFailureBehindAFailedMarkingIsSwallowedButItsRecordStays) {
  FailWriter(Fault(L"Mail", WriterEvent::backupComplete));
  ExpectTheFirstFailureSurfaces<CVarnel>(MailRecord());
}

TEST_F(FirstFailureTest, MessagesBehindAFailedMarkingAreSwallowedButTheirRecordStays) {
  FailWriter(Fault(L"Mail", WriterEvent::backupComplete));
  ExpectTheFirstFailureSurfaces<PartialRequestor>(MailRecord());
}

TEST_F(FirstFailureTest, AFailedBackupCompleteBehindAFailedMarkingIsSwallowed) {
  FailCall("IVssBackupComponents::BackupComplete", E_ACCESSDENIED);
  ExpectTheFirstFailureSurfaces<CVarnel>("");
}

TEST_F(FirstFailureTest, AnyOtherExceptionBehindAFailedMarkingIsSwallowed) {
  FailWriter(Fault(L"Mail", WriterEvent::backupComplete));
  ExpectTheFirstFailureSurfaces<ThrowingRequestor>(MailRecord());
}

TEST_F(CompletionTest, AWriterFailureBehindAnUnspecifiedFailureIsSwallowedToo) {
  FailWriter(Fault(L"Mail", WriterEvent::backupComplete));
  TakenRequest request(*this);
  FailingLog failing("- Mark components", [] { throw std::runtime_error("the log is full"); });
  const ScopedLog guard(failing);
  EXPECT_EQ(request.Complete(0), Outcome::Thrown(E_FAIL));
  EXPECT_EQ(request.alerts(), MailRecord());
  EXPECT_EQ(TimesCalled("BackupComplete"), 1);
}

TEST_F(CompletionTest, AFailedDeletionAndAFailedMarkingStillLetBackupCompleteRun) {
  TakenRequest request(*this);
  FailCall("IVssBackupComponents::DeleteSnapshots", VSS_E_PROVIDER_VETO);
  FailCall("IVssBackupComponents::GetWriterComponentsCount", E_OUTOFMEMORY);
  EXPECT_EQ(request.Complete(5), Outcome::Thrown(E_OUTOFMEMORY));
  EXPECT_THAT(log.All(), ElementsAreArray(Joined({{CalledLine(5)},
                                                  DeletionFailure("{00000000-0000-0000-0000-000000000000}",
                                                                  "0x80042306", "VSS_E_PROVIDER_VETO"),
                                                  CallFailure(kCountFailed, "0x8007000e", "E_OUTOFMEMORY"),
                                                  {"E SetBackupStatus Failed. Error = 0x8007000e"},
                                                  Completed()})));
  EXPECT_EQ(TimesCalled("BackupComplete"), 1);
  ExpectTheServiceIsFree();
}

// The object went with a second Initialize that failed.
TEST_F(CompletionTest, ASnapshotWhoseBackupObjectIsGoneIsOutOfState) {
  TakenRequest request(*this);
  FailCall("CreateVssBackupComponents", E_ACCESSDENIED);
  EXPECT_EQ(OutcomeOf([&] { request.Initialize(); }), Outcome::Thrown(E_ACCESSDENIED));
  log.lines.clear();
  EXPECT_EQ(request.Complete(5), Outcome::Thrown(VSS_E_BAD_STATE));
  EXPECT_THAT(log.All(), ElementsAreArray(Joined({{CalledLine(5)},
                                                  DeletionFailure("{00000000-0000-0000-0000-000000000000}",
                                                                  "0x80042301", "VSS_E_BAD_STATE"),
                                                  CallFailure(kCountFailed, "0x80042301", "VSS_E_BAD_STATE"),
                                                  {"E SetBackupStatus Failed. Error = 0x80042301"},
                                                  CallFailure(kCompleteFailed, "0x80042301", "VSS_E_BAD_STATE")})));
  ExpectTheServiceIsFree();
}

TEST_F(CompletionTest, ASecondCompletionIsRefusedByTheServiceAndChangesNoMark) {
  TakenRequest request(*this);
  ASSERT_EQ(request.Complete(0), Outcome::Returned());
  EXPECT_EQ(request.Complete(5), Outcome::Thrown(VSS_E_BAD_STATE));
  EXPECT_EQ(request.alerts(), ComRecord("SetBackupSucceeded()", "VSS_E_BAD_STATE"));
  EXPECT_THAT(Marks(request), ElementsAre("db1 succeeded", "db2 succeeded", "site succeeded"));
  EXPECT_THAT(ToldOfBackupComplete(), ElementsAre("Mail", "Web"));
}

TEST_F(CompletionTest, TheDatabaseListIsHandedOutAsItStands) {
  CVarnel requestor(0);
  RequestorProbe probe(requestor);
  EXPECT_STREQ(requestor.getSuccesfulDBList(), "ALL_DB");
  char databases[] = "sales@sql01";
  probe.successfulDBList() = databases;
  EXPECT_EQ(requestor.getSuccesfulDBList(), databases);
  probe.successfulDBList() = nullptr;
  EXPECT_EQ(requestor.getSuccesfulDBList(), nullptr);
}

}  // namespace
}  // namespace varnel::test
