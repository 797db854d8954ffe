// What the writers' status means for a request: both kinds of requestor, every failing call, every text.
#include <stdexcept>

#include "tests/support/request_fixture.h"
#include "text/format.h"

namespace varnel::test {
namespace {

constexpr char kFallbackLine[] =
    "Partial writer failure has been reported, but failed to get component level information. Partial failure will be "
    "treated as complete failure. Error: ";

constexpr HRESULT kApplicationResult = static_cast<HRESULT>(0x80040e14);

class WriterStatusTest : public HostFixture {
 protected:
  void SetUp() override { Install(HostOfThreeWriters()); }
};

TEST_F(WriterStatusTest, AStateWithoutANameIsShownByItsNumber) {
  SnapshotRequest request;
  EXPECT_EQ(request.probe.GetStringFromWriterStatus(static_cast<VSS_WRITER_STATE>(16)), L"Writer status 16");
  EXPECT_EQ(request.probe.GetStringFromWriterStatus(static_cast<VSS_WRITER_STATE>(31)), L"Writer status 31");
}

struct NamedState {
  const char* name;
  std::string message;
};

TEST_F(WriterStatusTest, EveryStateHasItsNameAndEveryFailedOneItsMessage) {
  const std::string checkLog = "Check the Application event log on the application server for more information. ";
  const NamedState states[] = {
      {"VSS_WS_UNKNOWN", "Mail failed with unknown error. "},
      {"VSS_WS_STABLE", ""},
      {"VSS_WS_WAITING_FOR_FREEZE", ""},
      {"VSS_WS_WAITING_FOR_THAW", ""},
      {"VSS_WS_WAITING_FOR_POST_SNAPSHOT", ""},
      {"VSS_WS_WAITING_FOR_BACKUP_COMPLETE", ""},
      {"VSS_WS_FAILED_AT_IDENTIFY", "Mail has failed the Identify event. " + checkLog},
      {"VSS_WS_FAILED_AT_PREPARE_BACKUP", "Mail has failed to prepare for backup. " + checkLog},
      {"VSS_WS_FAILED_AT_PREPARE_SNAPSHOT", "Mail has failed to prepare for snapshot. " + checkLog},
      {"VSS_WS_FAILED_AT_FREEZE", "Mail failed to freeze the I/O operations. "},
      {"VSS_WS_FAILED_AT_THAW", "Mail has failed during thaw event. " + checkLog},
      {"VSS_WS_FAILED_AT_POST_SNAPSHOT", "Mail has failed during post snapshot event. "},
      {"VSS_WS_FAILED_AT_BACKUP_COMPLETE", "Mail has failed during backup complete event. "},
      {"VSS_WS_FAILED_AT_PRE_RESTORE", "Mail has failed during pre-restore event. "},
      {"VSS_WS_FAILED_AT_POST_RESTORE", "Mail has failed during post-restore event. "},
      {"VSS_WS_FAILED_AT_BACKUPSHUTDOWN", "Mail failed during the shutdown of backup application. "},
      {"Writer status 16", ""},
      {"Writer status 17", ""},
  };
  SnapshotRequest request;
  for (std::size_t i = 0; i < std::size(states); ++i) {
    const auto state = static_cast<VSS_WRITER_STATE>(i);
    std::wstring text = L"left over";
    EXPECT_EQ(request.probe.GetWriterStatusMessage(state, L"Mail", text), ERROR_SUCCESS);
    EXPECT_EQ(text, Wide(states[i].message)) << i;
    EXPECT_EQ(request.probe.GetStringFromWriterStatus(state), Wide(states[i].name));
  }
}

TEST_F(WriterStatusTest, AStateMessageThatCannotBeLoadedGivesTheErrorAndNoText) {
  SnapshotRequest request;
  FailCall("LoadStringW", ERROR_RESOURCE_NAME_NOT_FOUND);
  std::wstring text = L"left over";
  EXPECT_EQ(request.probe.GetWriterStatusMessage(VSS_WS_FAILED_AT_FREEZE, L"Mail", text),
            DWORD{ERROR_RESOURCE_NAME_NOT_FOUND});
  EXPECT_EQ(text, L"");
}

TEST_F(WriterStatusTest, AContextWithoutWritersGathersNothingAndThrowsNothing) {
  for (const DWORD context : {0x10u, 0x19u, 0x1Du, 0x30u, 0xFFFFFFFFu}) {
    SCOPED_TRACE(context);
    SnapshotRequest request;
    request.Start();
    Forget();
    request.probe.context() = context;
    EXPECT_EQ(request.CheckStatus(), Outcome::Returned());
    EXPECT_THAT(host().calls().lines(), IsEmpty());
    EXPECT_THAT(log.All(), IsEmpty());
  }
}

TEST_F(WriterStatusTest, EveryOtherContextGathersTheStatus) {
  TakenRequest request(*this);
  for (const DWORD context : {0x0u, 0x9u, 0xDu, 0x20u, 0xFFFFFFEFu}) {
    SCOPED_TRACE(context);
    Forget();
    request.probe.context() = context;
    EXPECT_EQ(request.CheckStatus(), Outcome::Returned());
    EXPECT_THAT(Calls("IVssBackupComponents::GatherWriterStatus"), SizeIs(1));
  }
}

TEST_F(WriterStatusTest, WritersThatDidWellAreLoggedAndNothingElse) {
  TakenRequest request(*this);
  EXPECT_EQ(request.CheckStatus(), Outcome::Returned());
  EXPECT_THAT(log.All(),
              ElementsAre("I GatherWriterStatus",
                          "I Waiting for Operation=m_pVssObject->GatherWriterStatus(&pAsync) to finish...",
                          "I Writer=Mail, WriterStatus=VSS_WS_WAITING_FOR_BACKUP_COMPLETE, WriterError=S_OK",
                          "I Writer=Web, WriterStatus=VSS_WS_WAITING_FOR_BACKUP_COMPLETE, WriterError=S_OK"));
  EXPECT_EQ(request.alerts(), "");
  EXPECT_THAT(request.probe.failedComponents(), IsEmpty());
  EXPECT_EQ(request.probe.writerErrorText(), L"");
}

TEST_F(WriterStatusTest, TheStatusIsReadWriterByWriterAndFreedOnceAtTheEnd) {
  TakenRequest request(*this);
  EXPECT_EQ(request.CheckStatus(), Outcome::Returned());
  EXPECT_THAT(CallNames(host().calls(), {"IVss"}),
              ElementsAre("IVssBackupComponents::GatherWriterStatus", "IVssAsync::Wait", "IVssAsync::QueryStatus",
                          "IVssBackupComponents::GetWriterStatusCount", "IVssBackupComponents::QueryInterface",
                          "IVssBackupComponentsEx3::GetWriterStatusEx", "IVssBackupComponentsEx3::GetWriterStatusEx",
                          "IVssBackupComponentsEx3::GetWriterStatusEx", "IVssBackupComponents::FreeWriterStatus"));
}

TEST_F(WriterStatusTest, AWriterThatFailsFailsTheRequestWithEveryText) {
  WriterFault fault = Fault(L"Mail", WriterEvent::freeze, VSS_E_WRITERERROR_RETRYABLE);
  fault.applicationResult = static_cast<HRESULT>(0x80040e14);
  fault.applicationMessage = L"log full";
  FailWriter(fault);
  SnapshotRequest request;
  const Outcome outcome = request.StartAndCreate();
  const std::string stateAndError = "Mail failed to freeze the I/O operations. VSS_E_WRITERERROR_RETRYABLE";
  const std::string entry = stateAndError + ApplicationText("0x80040e14", "log full") +
                            "Failed application components: db1[\\mail\\db1],db2[\\mail\\db2] \n";
  EXPECT_EQ(outcome, Outcome::Exception(600, Wide(stateAndError), {Wide(entry)}));
  const std::string record =
      WriterRecord("Mail", "VSS_E_WRITERERROR_RETRYABLE", "VSS_WS_FAILED_AT_FREEZE", "0x80040e14", "log full");
  EXPECT_EQ(request.alerts(), record);
  EXPECT_THAT(log.Errors(), ElementsAre("  " + record, "Marking all components of writer Mail as FAILED!"));
  EXPECT_EQ(request.probe.writerErrorText(), Wide(stateAndError));
  EXPECT_THAT(request.probe.failedComponents(), ElementsAre(Wide(entry)));
}

TEST_F(WriterStatusTest, AFailedWritersAddedComponentsFailWithItsCode) {
  FailWriter(Fault(L"Mail", WriterEvent::thaw, VSS_E_WRITERERROR_TIMEOUT));
  SnapshotRequest request;
  EXPECT_EQ(request.StartAndCreate().alertCode, 600);
  for (const std::size_t index : {0U, 1U}) {
    EXPECT_TRUE(request.component(0, index).failed);
    EXPECT_EQ(request.component(0, index).failureCode, 0x800423F2U);
  }
  EXPECT_FALSE(request.component(1, 0).failed);
  EXPECT_EQ(request.component(1, 0).failureCode, 0U);
}

TEST_F(WriterStatusTest, ComponentsThatWereNotAddedAreNotMarkedAsFailed) {
  TakenRequest request(*this);
  request.component(0, 0).added = false;
  std::wstring list = L"left over";
  request.probe.MarkAllWriterComponentsAsFailed(request.probe.writers()[0], Failure(E_UNEXPECTED), list);
  EXPECT_EQ(list, L"db2[\\mail\\db2]");
  EXPECT_FALSE(request.component(0, 0).failed);
  EXPECT_TRUE(request.component(0, 1).failed);
  EXPECT_EQ(request.component(0, 1).failureCode, 0x8000FFFFU);
}

TEST_F(WriterStatusTest, AWriterWithoutAddedComponentsGivesAnEmptyList) {
  TakenRequest request(*this);
  std::wstring list = L"left over";
  request.probe.MarkAllWriterComponentsAsFailed(request.probe.writers()[2], Failure(E_UNEXPECTED), list);
  EXPECT_EQ(list, L"");
  EXPECT_THAT(log.All(), ElementsAre("E Marking all components of writer Other as FAILED!"));
}

TEST_F(WriterStatusTest, TheErrorTextComesFromTheServicesMessageTable) {
  Install(HostOfThreeWriters());
  model().vssMessages = {{{0x800423F3, L"Try again.\r\n"}}};
  FailWriter(Fault(L"Web", WriterEvent::prepareSnapshot, VSS_E_WRITERERROR_RETRYABLE));
  SnapshotRequest request;
  const Outcome outcome = request.StartAndCreate();
  EXPECT_EQ(outcome.message,
            L"Web has failed to prepare for snapshot. Check the Application event log on the application server for "
            L"more information. Try again.\r\n");
}

TEST_F(WriterStatusTest, AStableWriterWithAFailureCodeCountsAsFailed) {
  WriterFault fault = Fault(L"Mail", WriterEvent::postSnapshot, VSS_E_WRITERERROR_RETRYABLE);
  fault.state = VSS_WS_STABLE;
  FailWriter(fault);
  SnapshotRequest request;
  const Outcome outcome = request.StartAndCreate();
  EXPECT_EQ(outcome.alertCode, 600);
  EXPECT_EQ(outcome.message, L"VSS_E_WRITERERROR_RETRYABLE");
  EXPECT_EQ(request.alerts(), WriterRecord("Mail", "VSS_E_WRITERERROR_RETRYABLE", "VSS_WS_STABLE"));
}

TEST_F(WriterStatusTest, AWriterThatFailedAtFreezeWithoutAFailureCodeCountsAsSuccessful) {
  WriterFault fault = Fault(L"Mail", WriterEvent::postSnapshot, S_OK);
  fault.state = VSS_WS_FAILED_AT_FREEZE;
  FailWriter(fault);
  CreatedRequest request;
  EXPECT_EQ(request.alerts(), "");
  EXPECT_THAT(log.All(), Contains("I Writer=Mail, WriterStatus=VSS_WS_FAILED_AT_FREEZE, WriterError=S_OK"));
}

TEST_F(WriterStatusTest, TheApplicationsResultOfASuccessfulWriterIsNotItsOwn) {
  WriterFault fault = Fault(L"Mail", WriterEvent::postSnapshot, S_OK);
  fault.state = VSS_WS_STABLE;
  fault.applicationResult = kApplicationResult;
  fault.applicationMessage = L"nothing to worry about";
  FailWriter(fault);
  CreatedRequest request;
  EXPECT_EQ(request.alerts(), "");
  EXPECT_THAT(log.All(), Contains("I Writer=Mail, WriterStatus=VSS_WS_STABLE, WriterError=S_OK"));
  EXPECT_THAT(log.All(), Not(Contains(HasSubstr("80040e14"))));
  EXPECT_FALSE(request.component(0, 0).failed);
}

TEST_F(WriterStatusTest, APositiveFailureCodeIsAFailureToo) {
  FailWriter(Fault(L"Mail", WriterEvent::postSnapshot, S_FALSE));
  SnapshotRequest request;
  EXPECT_EQ(request.StartAndCreate().alertCode, 600);
  EXPECT_EQ(request.alerts(), WriterRecord("Mail", "S_FALSE", "VSS_WS_FAILED_AT_POST_SNAPSHOT"));
  EXPECT_TRUE(request.component(0, 0).failed);
  EXPECT_EQ(request.component(0, 0).failureCode, 1U);
}

TEST_F(WriterStatusTest, WritersThatAreNotSelectedNeverProduceAlertsOrMessages) {
  FailWriter(Fault(L"Other", WriterEvent::prepareBackup, VSS_E_WRITERERROR_NONRETRYABLE));
  CreatedRequest request;
  EXPECT_EQ(request.alerts(), "");
  EXPECT_THAT(log.Errors(), IsEmpty());
  EXPECT_THAT(log.All(), Not(Contains(HasSubstr("Writer=Other, WriterStatus"))));
  EXPECT_THAT(request.probe.failedComponents(), IsEmpty());
}

// Alert code by what the two selected writers report, for each kind of requestor. 601 is what the request ends in when
// the check lets it pass with messages.
struct Decision {
  HRESULT mail;
  HRESULT web;
  int allOrNothing;
  int partial;
};

class WriterStatusDecisionTest : public WriterStatusTest {
 protected:
  template <class Requestor>
  int AlertCode(const Decision& decision) {
    StartOver();
    if (decision.mail != S_OK) FailWriter(Fault(L"Mail", WriterEvent::postSnapshot, decision.mail));
    if (decision.web != S_OK) FailWriter(Fault(L"Web", WriterEvent::postSnapshot, decision.web));
    SnapshotRequest<Requestor> request;
    return request.StartAndCreate().alertCode;
  }
};

TEST_F(WriterStatusDecisionTest, OneFailureFailsARequestUnlessComponentsMayFailAndAWriterCameThrough) {
  constexpr HRESULT kPartial = VSS_E_WRITERERROR_PARTIAL_FAILURE;
  constexpr HRESULT kWhole = VSS_E_WRITERERROR_RETRYABLE;
  const std::vector<Decision> decisions = {
      {S_OK, S_OK, 0, 0},           {kWhole, S_OK, 600, 601},     {S_OK, kWhole, 600, 601},
      {kWhole, kWhole, 600, 600},   {kPartial, S_OK, 600, 601},   {S_OK, kPartial, 600, 601},
      {kPartial, kWhole, 600, 601}, {kWhole, kPartial, 600, 601}, {kPartial, kPartial, 600, 601},
      {S_FALSE, S_OK, 600, 601},    {S_FALSE, S_FALSE, 600, 600}, {VSS_S_ASYNC_FINISHED, kWhole, 600, 600},
  };
  for (const Decision& decision : decisions) {
    SCOPED_TRACE(FormatNarrow("Mail 0x%x, Web 0x%x", {decision.mail, decision.web}));
    EXPECT_EQ(AlertCode<CVarnel>(decision), decision.allOrNothing);
    EXPECT_EQ(AlertCode<PartialRequestor>(decision), decision.partial);
  }
}

TEST_F(WriterStatusTest, ARequestorWithPartialFailuresFailsWhenNoSelectedWriterIsInTheStatus) {
  TakenRequest<PartialRequestor> request(*this);
  for (VssWriter& writer : request.probe.writers()) writer.excluded = true;
  EXPECT_EQ(request.CheckStatus(), Outcome::Exception(600, L"", {}));
  EXPECT_EQ(request.alerts(), "");
}

TEST_F(WriterStatusTest, ARequestorWithoutPartialFailuresPassesWhenNoSelectedWriterIsInTheStatus) {
  TakenRequest request(*this);
  for (VssWriter& writer : request.probe.writers()) writer.excluded = true;
  EXPECT_EQ(request.CheckStatus(), Outcome::Returned());
}

TEST_F(WriterStatusTest, APartialFailureReportsTheWriterAndEachFailedComponentAndFailsTheRequest) {
  FailWriter(PartialFault(VSS_E_WRITERERROR_NONRETRYABLE, kApplicationResult));
  SnapshotRequest request;
  const Outcome outcome = request.StartAndCreate();
  const std::string stateAndError = "Mail has failed during post snapshot event. " + std::string(kPartialText);
  const std::string entry = stateAndError + ApplicationText() +
                            "Failed component: \\mail\\db1, Error: 0x800423f4, Application error code: 0x80040e14, "
                            "Application error message: log full \n";
  EXPECT_EQ(outcome, Outcome::Exception(600, Wide(stateAndError), {Wide(entry)}));
  const std::string writerRecord =
      WriterRecord("Mail", "VSS_E_WRITERERROR_PARTIAL_FAILURE", "VSS_WS_FAILED_AT_POST_SNAPSHOT");
  const std::string componentRecord =
      ComponentRecord("\\mail\\db1", "VSS_E_WRITERERROR_NONRETRYABLE", "0x80040e14", "log full");
  EXPECT_EQ(request.alerts(), writerRecord + componentRecord);
  EXPECT_THAT(log.Errors(), ElementsAre("  " + writerRecord, "  " + componentRecord));
}

TEST_F(WriterStatusTest, ARequestorWithPartialFailuresPassesAPartialFailure) {
  FailWriter(PartialFault(VSS_E_WRITERERROR_NONRETRYABLE, kApplicationResult));
  SnapshotRequest<PartialRequestor> request;
  const Outcome outcome = request.StartAndCreate();
  EXPECT_EQ(outcome.alertCode, 601);
  EXPECT_EQ(outcome.message, request.probe.writerErrorText());
  EXPECT_EQ(outcome.list, request.probe.failedComponents());
  EXPECT_TRUE(request.probe.snapshotDone());
  EXPECT_EQ(request.CheckStatus(), Outcome::Returned());  // the check itself
}

TEST_F(WriterStatusTest, APartialFailureMarksEveryReadComponentWithItsOwnCode) {
  FailWriter(PartialFault(VSS_E_WRITERERROR_NONRETRYABLE, kApplicationResult));
  SnapshotRequest<PartialRequestor> request;
  EXPECT_EQ(request.StartAndCreate().alertCode, 601);
  EXPECT_TRUE(request.component(0, 0).failed);
  EXPECT_EQ(request.component(0, 0).failureCode, 0x800423F4U);
  // A component-level status of "did well" counts as one.
  EXPECT_TRUE(request.component(0, 1).failed);
  EXPECT_EQ(request.component(0, 1).failureCode, 0U);
  EXPECT_FALSE(request.component(1, 0).failed);
  EXPECT_THAT(log.Of(CFileLog::Verbose), ElementsAre("Component \\mail\\db2 was successfully backed up."));
}

TEST_F(WriterStatusTest, ComponentsAreMatchedByTheirExactFullPath) {
  FailWriter(PartialFault(VSS_E_WRITERERROR_NONRETRYABLE, kApplicationResult));
  SnapshotRequest request;
  EXPECT_EQ(request.StartAndCreate().alertCode, 600);
  VssWriter& mail = request.probe.writers()[0];
  for (VssComponent& component : mail.components) component.failed = false;
  mail.components[0].fullPath = L"\\Mail\\db1";
  std::wstring text;
  std::string details;
  request.probe.HandlePartialWriterFailure(mail, text, details);
  EXPECT_FALSE(mail.components[0].failed);
  EXPECT_TRUE(mail.components[1].failed);
  EXPECT_EQ(details, ComponentRecord("\\mail\\db1", "VSS_E_WRITERERROR_NONRETRYABLE", "0x80040e14", "log full"));
}

TEST_F(WriterStatusTest, OnlyTheFirstAddedComponentOfAFullPathIsMarked) {
  FailWriter(PartialFault(VSS_E_WRITERERROR_NONRETRYABLE, kApplicationResult));
  SnapshotRequest request;
  EXPECT_EQ(request.StartAndCreate().alertCode, 600);
  VssWriter& mail = request.probe.writers()[0];
  for (VssComponent& component : mail.components) {
    component.failed = false;
    component.fullPath = L"\\mail\\db1";
  }
  VssComponent first = mail.components[0];
  first.added = false;
  mail.components.insert(mail.components.begin(), first);
  std::wstring text;
  std::string details;
  request.probe.HandlePartialWriterFailure(mail, text, details);
  EXPECT_FALSE(mail.components[0].failed);
  EXPECT_TRUE(mail.components[1].failed);
  EXPECT_EQ(mail.components[1].failureCode, 0x800423F4U);
  EXPECT_FALSE(mail.components[2].failed);
}

TEST_F(WriterStatusTest, AComponentWithoutALogicalPathHasABackslashBeforeItsName) {
  WriterFault fault = Fault(L"Web", WriterEvent::postSnapshot, VSS_E_WRITERERROR_PARTIAL_FAILURE);
  fault.components = {{L"\\site", VSS_E_WRITERERROR_TIMEOUT, S_OK, L""}};
  FailWriter(fault);
  SnapshotRequest request;
  EXPECT_EQ(request.StartAndCreate().alertCode, 600);
  EXPECT_THAT(request.alerts(), EndsWith(ComponentRecord("\\site", "VSS_E_WRITERERROR_TIMEOUT")));
  EXPECT_TRUE(request.component(1, 0).failed);
}

// A call that reading component failures makes, and its text in the log.
struct ComponentRead {
  std::string call;
  std::string text;
  bool deliversAnObject = false;
};

const std::vector<ComponentRead>& ComponentReads() {
  static const std::vector<ComponentRead> reads = {
      {"IVssBackupComponents::GetWriterComponentsCount", "m_pVssObject->GetWriterComponentsCount(&nWritersInBCD)"},
      {"IVssBackupComponents::GetWriterComponents", "m_pVssObject->GetWriterComponents(iBCDWriter, &pWriter)", true},
      {"IVssWriterComponents::GetWriterInfo", "pWriter->GetWriterInfo(&writerInstanceId, &writerId)"},
      {"IVssWriterComponents::GetComponentCount", "pWriter->GetComponentCount(&nComponents)"},
      {"IVssWriterComponents::GetComponent", "pWriter->GetComponent(iBCDComp, &pComponent)", true},
      {"IVssComponent::QueryInterface", "pComponent->QueryInterface(IID_IVssComponentEx2, (void**)&pCompEx2)", true},
      {"IVssComponentEx2::GetFailure",
       "pCompEx2->GetFailure(&hrComp, &hrApplicationComp, &bstrAppMsgComp, &dwReserved)"},
      {"IVssComponent::GetComponentName", "pComponent->GetComponentName(&bstrCompName)"},
      {"IVssComponent::GetLogicalPath", "pComponent->GetLogicalPath(&bstrLogicalPath)"},
  };
  return reads;
}

std::vector<std::string> FailedReadLines(const std::string& call, const std::string& hresult, const std::string& name) {
  return {"ERROR: COM call \"" + call + "\" failed.", "- Returned HRESULT = " + hresult, "- Error text: " + name,
          kFallbackLine + name, "Marking all components of writer Mail as FAILED!"};
}

TEST_F(WriterStatusTest, ComponentsThatCannotBeReadFailWithTheReadErrorAndNotTheWriters) {
  for (const ComponentRead& read : ComponentReads()) {
    SCOPED_TRACE(read.call);
    StartOver();
    FailWriter(PartialFault(VSS_E_WRITERERROR_NONRETRYABLE, kApplicationResult));
    FailCall(read.call, E_OUTOFMEMORY);
    SnapshotRequest request;
    const Outcome outcome = request.StartAndCreate();
    const std::string stateAndError = "Mail has failed during post snapshot event. " + std::string(kPartialText);
    EXPECT_EQ(outcome,
              Outcome::Exception(600, Wide(stateAndError),
                                 {Wide(stateAndError + ApplicationText() +
                                       "Failed application components: db1[\\mail\\db1],db2[\\mail\\db2] \n")}));
    const std::string record =
        WriterRecord("Mail", "VSS_E_WRITERERROR_PARTIAL_FAILURE", "VSS_WS_FAILED_AT_POST_SNAPSHOT");
    EXPECT_EQ(request.alerts(), record);
    std::vector<std::string> lines = FailedReadLines(read.text, "0x8007000e", "E_OUTOFMEMORY");
    lines.insert(lines.begin(), "  " + record);
    EXPECT_EQ(log.Errors(), lines);
    for (const VssComponent& component : request.probe.writers()[0].components) {
      EXPECT_TRUE(component.failed);
      EXPECT_EQ(component.failureCode, 0x8007000EU);
    }
    EXPECT_EQ(host().live().Count("IVssWriterComponentsExt") + host().live().Count("IVssComponent"), 0);
  }
}

TEST_F(WriterStatusTest, AReadThatDeliversNoObjectCountsAsUnexpected) {
  for (const ComponentRead& read : ComponentReads()) {
    if (!read.deliversAnObject) continue;
    SCOPED_TRACE(read.call);
    StartOver();
    FailWriter(PartialFault(VSS_E_WRITERERROR_NONRETRYABLE, kApplicationResult));
    FailCall(read.call, S_FALSE);
    SnapshotRequest request;
    EXPECT_EQ(request.StartAndCreate().alertCode, 600);
    const std::vector<std::string> errors = log.Errors();
    EXPECT_EQ(std::vector<std::string>(errors.begin() + 1, errors.end()),
              FailedReadLines(read.text, "0x8000ffff", "E_UNEXPECTED"));
    EXPECT_EQ(request.component(0, 0).failureCode, 0x8000FFFFU);
  }
}

TEST_F(WriterStatusTest, AnUnreadablePartialFailureIsACompleteFailureForEveryKindOfRequestor) {
  simulator::HostModel model = HostOfThreeWriters();
  model.writers.erase(model.writers.begin() + 1);  // Mail alone is selected
  Install(std::move(model));
  FailWriter(PartialFault(VSS_E_WRITERERROR_NONRETRYABLE, kApplicationResult));
  FailCall("IVssBackupComponents::GetWriterComponentsCount", VSS_E_BAD_STATE);
  SnapshotRequest<PartialRequestor> request;
  EXPECT_EQ(request.StartAndCreate().alertCode, 600);
}

TEST_F(WriterStatusTest, MessagesReadBeforeAFailedReadAreDroppedWhileTheirRecordsStay) {
  FailWriter(PartialFault(VSS_E_WRITERERROR_NONRETRYABLE, kApplicationResult));
  FailCall("IVssComponentEx2::GetFailure", VSS_E_INVALID_XML_DOCUMENT, 2);
  SnapshotRequest request;
  const Outcome outcome = request.StartAndCreate();
  ASSERT_EQ(outcome.list.size(), 1U);
  EXPECT_EQ(outcome.list[0],
            Wide("Mail has failed during post snapshot event. " + std::string(kPartialText) + ApplicationText() +
                 "Failed application components: db1[\\mail\\db1],db2[\\mail\\db2] \n"));
  EXPECT_EQ(request.alerts(),
            WriterRecord("Mail", "VSS_E_WRITERERROR_PARTIAL_FAILURE", "VSS_WS_FAILED_AT_POST_SNAPSHOT") +
                ComponentRecord("\\mail\\db1", "VSS_E_WRITERERROR_NONRETRYABLE", "0x80040e14", "log full"));
  EXPECT_EQ(request.component(0, 0).failureCode, 0x80042311U);
  EXPECT_EQ(request.component(0, 1).failureCode, 0x80042311U);
}

// The document knows nothing of a writer whose components were never really added.
TEST_F(WriterStatusTest, AWriterThatIsNotInTheDocumentIsLoggedAndMarksNothing) {
  FailWriter(Fault(L"Web", WriterEvent::prepareBackup, VSS_E_WRITERERROR_PARTIAL_FAILURE));
  FailCall("IVssBackupComponents::AddComponent", S_OK, 3);
  SnapshotRequest<PartialRequestor> request;
  request.StartSet();
  request.probe.AddToSnapshotSet(request.details());
  request.probe.PrepareForBackup(request.details());
  log.lines.clear();
  EXPECT_EQ(request.CheckStatus(), Outcome::Returned());
  const std::string record =
      WriterRecord("Web", "VSS_E_WRITERERROR_PARTIAL_FAILURE", "VSS_WS_FAILED_AT_PREPARE_BACKUP");
  EXPECT_EQ(request.alerts(), record);
  EXPECT_THAT(
      log.Errors(),
      ElementsAre("  " + record, "Could not find the writer reporting partial failure in BCD -- this is UNEXPECTED!!"));
  EXPECT_FALSE(request.component(1, 0).failed);
  EXPECT_THAT(request.probe.failedComponents(),
              ElementsAre(Wide("Web has failed to prepare for backup. Check the Application event log on the "
                               "application server for more information. " +
                               std::string(kPartialText) + ApplicationText())));
}

struct FailingCall {
  std::string call;
  std::string text;
};

TEST_F(WriterStatusTest, AFailedCallWritesItsRecordAndThrowsItsCode) {
  const std::vector<FailingCall> calls = {
      {"IVssBackupComponents::GatherWriterStatus", "m_pVssObject->GatherWriterStatus(&pAsync)"},
      {"IVssAsync::Wait", "pAsync->Wait()"},
      {"IVssAsync::QueryStatus", "pAsync->QueryStatus()"},
      {"IVssBackupComponents::GetWriterStatusCount", "m_pVssObject->GetWriterStatusCount()"},
      {"IVssBackupComponentsEx3::GetWriterStatusEx", "bucompEx3->GetWriterStatusEx()"},
      {"IVssBackupComponents::FreeWriterStatus", "m_pVssObject->FreeWriterStatus()"},
  };
  for (const FailingCall& failing : calls) {
    SCOPED_TRACE(failing.call);
    StartOver();
    TakenRequest request(*this);
    FailCall(failing.call, VSS_E_BAD_STATE);
    EXPECT_EQ(request.CheckStatus(), Outcome::Thrown(VSS_E_BAD_STATE));
    const std::string record = ComRecord(failing.text, "VSS_E_BAD_STATE");
    EXPECT_EQ(request.alerts(), record);
    EXPECT_THAT(log.Errors(), ElementsAre(" " + record.substr(0, record.size() - 1)));
    EXPECT_EQ(host().live().Count("IVssAsync"), 0);
  }
}

TEST_F(WriterStatusTest, AGatheringThatEndsInAFailureWritesTheStatusRecordWithoutALineEnd) {
  TakenRequest request(*this);
  host().faults().FailAsync("GatherWriterStatus", VSS_E_WRITER_INFRASTRUCTURE);
  EXPECT_EQ(request.CheckStatus(), Outcome::Thrown(VSS_E_WRITER_INFRASTRUCTURE));
  const std::string record =
      "RequestStatus=QueryStatus(), Function=pAsync->QueryStatus(), Error=VSS_E_WRITER_INFRASTRUCTURE, "
      "rc=SystemError, ca=ContactSupport";
  EXPECT_EQ(request.alerts(), record);
  EXPECT_THAT(log.Errors(), ElementsAre("  " + record));
}

TEST_F(WriterStatusTest, AServiceWithoutTheExtendedStatusIsLoggedWithoutARecord) {
  TakenRequest request(*this);
  FailCall("IVssBackupComponents::QueryInterface", E_UNEXPECTED);
  EXPECT_EQ(request.CheckStatus(), Outcome::Thrown(E_UNEXPECTED));
  EXPECT_EQ(request.alerts(), "");
  EXPECT_THAT(log.Errors(), ElementsAre("ERROR: COM call \"m_pVssObject->QueryInterface(IID_IVssBackupComponentsEx3, "
                                        "(void**)&bucompEx3)\" failed.",
                                        "- Returned HRESULT = 0x8000ffff", "- Error text: E_UNEXPECTED"));
}

TEST_F(WriterStatusTest, AGatheringThatDeliversNoOperationIsUnexpected) {
  TakenRequest request(*this);
  FailCall("IVssBackupComponents::GatherWriterStatus", S_FALSE);
  EXPECT_EQ(request.CheckStatus(), Outcome::Thrown(E_UNEXPECTED));
  EXPECT_EQ(request.alerts(), ComRecord("m_pVssObject->GatherWriterStatus(&pAsync)", "E_UNEXPECTED"));
}

TEST_F(WriterStatusTest, ACheckWithoutABackupObjectIsOutOfState) {
  SnapshotRequest request;
  EXPECT_EQ(request.CheckStatus(), Outcome::Thrown(VSS_E_BAD_STATE));
  EXPECT_EQ(request.alerts(), ComRecord("m_pVssObject->GatherWriterStatus(&pAsync)", "VSS_E_BAD_STATE"));
}

TEST_F(WriterStatusTest, TheStatusIsFreedBeforeTheRequestFails) {
  FailWriter(Fault(L"Mail", WriterEvent::prepareBackup, VSS_E_WRITERERROR_RETRYABLE));
  SnapshotRequest request;
  EXPECT_EQ(request.StartAndCreate().alertCode, 600);
  EXPECT_EQ(CallNames(host().calls(), {"IVss"}).back(), "IVssBackupComponents::FreeWriterStatus");
}

TEST_F(WriterStatusTest, AnEntryThatCannotBeReadEndsTheCheckWithoutFreeingTheStatus) {
  TakenRequest request(*this);
  FailCall("IVssBackupComponentsEx3::GetWriterStatusEx", VSS_E_UNEXPECTED, 2);
  EXPECT_EQ(request.CheckStatus(), Outcome::Thrown(VSS_E_UNEXPECTED));
  EXPECT_THAT(Calls("IVssBackupComponents::FreeWriterStatus"), IsEmpty());
}

TEST_F(WriterStatusTest, AFailureToFreeTheStatusReplacesTheWriterFailureButKeepsItsMessages) {
  FailWriter(Fault(L"Mail", WriterEvent::prepareBackup, VSS_E_WRITERERROR_RETRYABLE));
  FailCall("IVssBackupComponents::FreeWriterStatus", E_OUTOFMEMORY);
  EndedRequest request(Outcome::Thrown(E_OUTOFMEMORY));
  EXPECT_EQ(request.alerts(), WriterRecord("Mail", "VSS_E_WRITERERROR_RETRYABLE", "VSS_WS_FAILED_AT_PREPARE_BACKUP") +
                                  ComRecord("m_pVssObject->FreeWriterStatus()", "E_OUTOFMEMORY"));
  EXPECT_EQ(request.probe.failedComponents().size(), 1U);
}

TEST_F(WriterStatusTest, TheStringsOfAnEntryAreFreedWhenAnExceptionLeavesIt) {
  WriterFault fault = Fault(L"Mail", WriterEvent::prepareBackup, VSS_E_WRITERERROR_RETRYABLE);
  fault.applicationMessage = L"log full";
  FailWriter(fault);
  SnapshotRequest<ThrowingRequestor> request;
  EXPECT_THROW(request.StartAndCreate(), std::runtime_error);
  EXPECT_EQ(host().live().Count("BSTR"), 0);
}

TEST_F(WriterStatusTest, TheStringsOfSkippedAndSuccessfulEntriesAreFreed) {
  WriterFault fault = Fault(L"Other", WriterEvent::prepareBackup, VSS_E_WRITERERROR_RETRYABLE);
  fault.applicationMessage = L"log full";
  FailWriter(fault);
  TakenRequest request(*this);
  const long long held = host().live().Count("BSTR");  // the saved document
  EXPECT_EQ(request.CheckStatus(), Outcome::Returned());
  EXPECT_EQ(held, 1);
  EXPECT_EQ(host().live().Count("BSTR"), 1);
}

TEST_F(WriterStatusTest, MessagesPileUpOverTheChecksOfARequest) {
  FailWriter(Fault(L"Mail", WriterEvent::prepareBackup, VSS_E_WRITERERROR_RETRYABLE));
  SnapshotRequest<PartialRequestor> request;
  const Outcome outcome = request.StartAndCreate();
  const std::string text =
      "Mail has failed to prepare for backup. Check the Application event log on the application server for more "
      "information. VSS_E_WRITERERROR_RETRYABLE";
  const std::wstring entry =
      Wide(text + ApplicationText() + "Failed application components: db1[\\mail\\db1],db2[\\mail\\db2] \n");
  EXPECT_EQ(outcome, Outcome::Exception(601, Wide(text + text), {entry, entry}));
  const std::string record = WriterRecord("Mail", "VSS_E_WRITERERROR_RETRYABLE", "VSS_WS_FAILED_AT_PREPARE_BACKUP");
  EXPECT_EQ(request.alerts(), record + record);
}

TEST_F(WriterStatusTest, EveryFailedWriterHasItsOwnEntryInStatusOrder) {
  FailWriter(Fault(L"Web", WriterEvent::prepareSnapshot, VSS_E_WRITERERROR_OUTOFRESOURCES));
  FailWriter(Fault(L"Mail", WriterEvent::postSnapshot, VSS_E_WRITERERROR_TIMEOUT));
  SnapshotRequest request;
  const Outcome outcome = request.StartAndCreate();
  const std::string mail = "Mail has failed during post snapshot event. VSS_E_WRITERERROR_TIMEOUT";
  const std::string web =
      "Web has failed to prepare for snapshot. Check the Application event log on the application server for more "
      "information. VSS_E_WRITERERROR_OUTOFRESOURCES";
  EXPECT_EQ(outcome,
            Outcome::Exception(
                600, Wide(mail + web),
                {Wide(mail + ApplicationText() + "Failed application components: db1[\\mail\\db1],db2[\\mail\\db2] \n"),
                 Wide(web + ApplicationText() + "Failed application components: site[\\site] \n")}));
}

TEST_F(WriterStatusTest, ALongApplicationMessageIsShortenedInTheRecordAndWholeInTheText) {
  WriterFault fault = Fault(L"Mail", WriterEvent::prepareBackup, VSS_E_WRITERERROR_RETRYABLE);
  fault.applicationMessage = std::wstring(5000, L'x');
  FailWriter(fault);
  SnapshotRequest request;
  const Outcome outcome = request.StartAndCreate();
  const std::string record = request.alerts();
  EXPECT_EQ(record.size(), 2047U);
  EXPECT_THAT(record, StartsWith("RequestStatus=WriterFailure, WriterName=Mail, "
                                 "WriterError=VSS_E_WRITERERROR_RETRYABLE, "
                                 "WriterStatus=VSS_WS_FAILED_AT_PREPARE_BACKUP, ApplicationError=0x0, "
                                 "ApplicationMsg=xxx"));
  EXPECT_THAT(record, EndsWith("xxx..., rc=VssWriterStatusError, ca=CheckWriterState;\n"));
  ASSERT_EQ(outcome.list.size(), 1U);
  EXPECT_NE(outcome.list[0].find(L"message: " + fault.applicationMessage + L" \n"), std::wstring::npos);
}

TEST_F(WriterStatusTest, ALongMessageOfAComponentIsShortenedInItsRecordAndWholeInTheText) {
  WriterFault fault = PartialFault(VSS_E_WRITERERROR_NONRETRYABLE, kApplicationResult);
  fault.components[0].applicationMessage = std::wstring(5000, L'y');
  FailWriter(fault);
  SnapshotRequest request;
  const Outcome outcome = request.StartAndCreate();
  const std::string alerts = request.alerts();
  const std::string record = alerts.substr(alerts.find("RequestStatus=ComponentLevelFailure"));
  EXPECT_EQ(record.size(), 2047U);
  EXPECT_THAT(record, EndsWith("yyy..., rc=VssPartialWriterError, ca=CheckWriterState;\n"));
  ASSERT_EQ(outcome.list.size(), 1U);
  EXPECT_NE(outcome.list[0].find(L"message: " + fault.components[0].applicationMessage + L" \n"), std::wstring::npos);
}

TEST_F(WriterStatusTest, ApplicationMessagesKeepCharactersOfEveryScript) {
  WriterFault fault = Fault(L"Mail", WriterEvent::prepareBackup, VSS_E_WRITERERROR_RETRYABLE);
  fault.applicationMessage = L"\u00fc\u6f22 %s {1}";
  FailWriter(fault);
  SnapshotRequest request;
  const Outcome outcome = request.StartAndCreate();
  EXPECT_EQ(request.alerts(), WriterRecord("Mail", "VSS_E_WRITERERROR_RETRYABLE", "VSS_WS_FAILED_AT_PREPARE_BACKUP",
                                           "0x0", "\xc3\xbc\xe6\xbc\xa2 %s {1}"));
  ASSERT_EQ(outcome.list.size(), 1U);
  EXPECT_NE(outcome.list[0].find(fault.applicationMessage), std::wstring::npos);
}

}  // namespace
}  // namespace varnel::test
