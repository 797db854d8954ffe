// BackupComplete and what fails there, and which failure of a completion is the one that surfaces.
#include <stdexcept>

#include "tests/core/completion_fixture.h"

namespace varnel::test {
namespace {

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
  for (const DWORD context : {0x10u, 0x19u, 0x1Du}) {
    SCOPED_TRACE(context);
    StartOver();
    FailWriter(Fault(L"Mail", WriterEvent::backupComplete));
    TakenRequest request(*this);
    request.probe.context() = context;
    EXPECT_EQ(request.Complete(0), Outcome::Returned());
    EXPECT_EQ(log.All().back(), "I Waiting for Operation=BackupComplete() to finish...");
    EXPECT_EQ(TimesCalled("GatherWriterStatus"), 0);
  }
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
  /// The marking fails, and BackupComplete with the writers' check after it fails too.
  template <class Requestor>
  void ExpectTheFirstFailureSurfaces(const std::string& alertsAfter) {
    TakenRequest<Requestor> request(*this);
    FailCall("IVssBackupComponents::SetBackupSucceeded", VSS_E_UNEXPECTED);
    EXPECT_EQ(request.Complete(0), Outcome::Thrown(VSS_E_UNEXPECTED));
    EXPECT_EQ(request.alerts(), ComRecord("SetBackupSucceeded()", "VSS_E_UNEXPECTED") + alertsAfter);
    EXPECT_EQ(TimesCalled("BackupComplete"), 1);
    ExpectTheServiceIsFree();
  }
};

TEST_F(FirstFailureTest, AWriterFailureAfterAFailedMarkingIsSwallowedButItsRecordStays) {
  FailWriter(Fault(L"Mail", WriterEvent::backupComplete));
  ExpectTheFirstFailureSurfaces<CVarnel>(MailRecord());
}

TEST_F(FirstFailureTest, MessagesAfterAFailedMarkingAreSwallowedButTheirRecordStays) {
  FailWriter(Fault(L"Mail", WriterEvent::backupComplete));
  ExpectTheFirstFailureSurfaces<PartialRequestor>(MailRecord());
}

TEST_F(FirstFailureTest, AFailedBackupCompleteAfterAFailedMarkingIsSwallowed) {
  FailCall("IVssBackupComponents::BackupComplete", E_ACCESSDENIED);
  ExpectTheFirstFailureSurfaces<CVarnel>("");
}

TEST_F(FirstFailureTest, AnyOtherExceptionAfterAFailedMarkingIsSwallowed) {
  FailWriter(Fault(L"Mail", WriterEvent::backupComplete));
  ExpectTheFirstFailureSurfaces<ThrowingRequestor>(MailRecord());
}

TEST_F(CompletionTest, AWriterFailureAfterAnUnspecifiedFailureIsSwallowedToo) {
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
