// What becomes of a snapshot set after it was taken: break, mask, delete and verify, with every failure.

#include "simulator/machine/result_names.h"
#include "tests/core/maintenance_fixture.h"

namespace varnel::test {
namespace {

constexpr char kFirstCopy[] = "{00000003-5e1f-4c3d-9a0b-000000000000}";
constexpr char kSecondCopy[] = "{00000004-5e1f-4c3d-9a0b-000000000000}";
constexpr char kNullId[] = "{00000000-0000-0000-0000-000000000000}";
constexpr char kEx2Id[] = "{acfe2b3a-22c9-4ef8-bd03-2f9ca230084e}";
constexpr char kBreakExCall[] = "pVssObject2->BreakSnapshotSetEx()";
constexpr char kQueryEx2Call[] = "m_pVssObject->QueryInterface(IVssBackupComponentsEx2)";

std::string DeleteCall(const std::string& outputs, const std::string& result) {
  return std::string("IVssBackupComponents::DeleteSnapshots(") + kSetId + ", 2, 1 -> " + outputs + ") = " + result;
}

// ---- break ----

TEST_F(MaintenanceTest, ABrokenSetIsNoShadowCopySetAnyMoreAndItsDisksStay) {
  TakenRequest request(*this, BothDisks());
  const std::vector<std::wstring> before = Records(request);
  EXPECT_EQ(OutcomeOn(request, &CVarnel::BreakSnapshotSet), Outcome::Returned());
  EXPECT_THAT(log.All(), ElementsAre("I Breaking snapshot set..."));
  EXPECT_THAT(host().calls().lines(),
              ElementsAre(std::string("IVssBackupComponents::BreakSnapshotSet(") + kSetId + ") = S_OK"));
  EXPECT_EQ(request.alerts(), "");
  EXPECT_EQ(Records(request), before);
  EXPECT_THAT(CopiesOf(request), IsEmpty());
  EXPECT_THAT(Disks(), ElementsAre(L"SYS", L"TSL0001", L"TSL0002", L"SHADOW-TSL0001", L"SHADOW-TSL0002"));
}

TEST_F(MaintenanceTest, TheDisksOfABrokenSetOutliveTheRequestor) {
  {
    TakenRequest request(*this, BothDisks());
    EXPECT_EQ(OutcomeOn(request, &CVarnel::BreakSnapshotSet), Outcome::Returned());
  }
  EXPECT_THAT(Disks(), SizeIs(5));
}

TEST_F(MaintenanceTest, ABreakThatFailsIsReportedAndLeavesTheSet) {
  TakenRequest request(*this, BothDisks());
  const std::vector<std::wstring> before = Records(request);
  FailCall("IVssBackupComponents::BreakSnapshotSet", VSS_E_PROVIDER_VETO);
  EXPECT_EQ(OutcomeOn(request, &CVarnel::BreakSnapshotSet), Outcome::Thrown(VSS_E_PROVIDER_VETO));
  const std::string record = ComRecord("m_pVssObject->BreakSnapshotSet()", "VSS_E_PROVIDER_VETO");
  EXPECT_THAT(log.All(), ElementsAre("I Breaking snapshot set...", "E " + LogLineOf(record)));
  EXPECT_EQ(request.alerts(), record);
  EXPECT_EQ(Records(request), before);
  EXPECT_THAT(CopiesOf(request), SizeIs(2));
}

TEST_F(MaintenanceTest, ASetIsBrokenOnce) {
  TakenRequest request(*this, BothDisks());
  EXPECT_EQ(OutcomeOn(request, &CVarnel::BreakSnapshotSet), Outcome::Returned());
  EXPECT_EQ(OutcomeOn(request, &CVarnel::BreakSnapshotSet), Outcome::Thrown(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_EQ(request.alerts(), ComRecord("m_pVssObject->BreakSnapshotSet()", "VSS_E_OBJECT_NOT_FOUND"));
}

// ---- mask ----

TEST_F(MaintenanceTest, AMaskedSetLeavesNoDiskBehind) {
  TakenRequest request(*this, BothDisks());
  const std::vector<std::wstring> before = Records(request);
  EXPECT_EQ(OutcomeOn(request, &CVarnel::MaskSnapshotSet), Outcome::Returned());
  EXPECT_THAT(log.All(), ElementsAre("I Breaking snapshot set and masking the shadow copy LUNs...",
                                     "I Waiting for Operation=pVssObject2->BreakSnapshotSetEx() to finish..."));
  EXPECT_THAT(
      host().calls().lines(),
      ElementsAre(std::string("IVssBackupComponents::QueryInterface(") + kEx2Id + ") = S_OK",
                  std::string("IVssBackupComponentsEx2::BreakSnapshotSetEx(") + kSetId + ", 1) = S_OK",
                  "IVssAsync::Wait(INFINITE) = S_OK", "IVssAsync::QueryStatus(-> VSS_S_ASYNC_FINISHED) = S_OK"));
  EXPECT_EQ(request.alerts(), "");
  EXPECT_EQ(Records(request), before);
  EXPECT_THAT(CopiesOf(request), IsEmpty());
  EXPECT_THAT(Disks(), ElementsAre(L"SYS", L"TSL0001", L"TSL0002"));
}

struct MaskFailure {
  const char* call;
  HRESULT planned;
  HRESULT thrown;
  std::string record;  // as it is appended
  std::size_t linesBefore;
  bool masked;  // all the same: the operation had run when its end could not be told
};

TEST_F(MaintenanceTest, EveryCallOfAMaskThatFailsIsReportedUnderItsName) {
  constexpr char kQuery[] = "IVssBackupComponents::QueryInterface";
  constexpr char kBreak[] = "IVssBackupComponentsEx2::BreakSnapshotSetEx";
  const MaskFailure failures[] = {
      {kQuery, E_NOINTERFACE, E_NOINTERFACE, ComRecord(kQueryEx2Call, "Error: 0x80004002"), 1, false},
      {kQuery, S_OK, E_UNEXPECTED, ComRecord(kQueryEx2Call, "E_UNEXPECTED"), 1, false},
      {kBreak, VSS_E_PROVIDER_VETO, VSS_E_PROVIDER_VETO, ComRecord(kBreakExCall, "VSS_E_PROVIDER_VETO"), 1, false},
      {kBreak, S_FALSE, E_UNEXPECTED, ComRecord(kBreakExCall, "E_UNEXPECTED"), 1, false},
      {"IVssAsync::Wait", VSS_E_UNEXPECTED, VSS_E_UNEXPECTED, ComRecord("pAsync->Wait()", "VSS_E_UNEXPECTED"), 2, true},
      {"IVssAsync::QueryStatus", VSS_E_BAD_STATE, VSS_E_BAD_STATE,
       ComRecord("pAsync->QueryStatus()", "VSS_E_BAD_STATE"), 2, true},
  };
  for (const MaskFailure& failure : failures) {
    SCOPED_TRACE(std::string(failure.call) + " " + simulator::ResultName(failure.planned));
    {
      TakenRequest request(*this, BothDisks());
      FailCall(failure.call, failure.planned);
      EXPECT_EQ(OutcomeOn(request, &CVarnel::MaskSnapshotSet), Outcome::Thrown(failure.thrown));
      EXPECT_EQ(request.alerts(), failure.record);
      ASSERT_THAT(log.All(), SizeIs(failure.linesBefore + 1));
      EXPECT_EQ(log.All().back() + "\n", "E  " + failure.record);
      EXPECT_THAT(Disks(), SizeIs(failure.masked ? 3 : 5));
      EXPECT_THAT(CopiesOf(request), SizeIs(failure.masked ? 0 : 2));
    }
    StartOver();
  }
}

TEST_F(MaintenanceTest, AMaskWhoseOperationFailsAppendsAnUnendedRecordAndLeavesTheSet) {
  TakenRequest request(*this, BothDisks());
  host().faults().FailAsync("BreakSnapshotSetEx", VSS_E_PROVIDER_VETO);
  EXPECT_EQ(OutcomeOn(request, &CVarnel::MaskSnapshotSet), Outcome::Thrown(VSS_E_PROVIDER_VETO));
  EXPECT_EQ(request.alerts(), QueryStatusRecord("VSS_E_PROVIDER_VETO"));
  EXPECT_THAT(log.Errors(), ElementsAre("  " + QueryStatusRecord("VSS_E_PROVIDER_VETO")));
  EXPECT_THAT(CopiesOf(request), SizeIs(2));
  EXPECT_THAT(Disks(), SizeIs(5));
}

// ---- delete ----

TEST_F(MaintenanceTest, ADeletionIsForcedAndTakesTheWholeSet) {
  TakenRequest request(*this, BothDisks(VSS_CTX_APP_ROLLBACK));
  const std::vector<std::wstring> before = Records(request);
  EXPECT_EQ(OutcomeOn(request, &CVarnel::DeleteSnapshotSet), Outcome::Returned());
  EXPECT_THAT(log.All(), ElementsAre(std::string("I Deleting shadow copy set ") + kSetId));
  EXPECT_THAT(host().calls().lines(), ElementsAre(DeleteCall("2", "S_OK")));
  EXPECT_EQ(request.alerts(), "");
  EXPECT_EQ(Records(request), before);
  EXPECT_THAT(CopiesOf(request), IsEmpty());
  EXPECT_THAT(Disks(), ElementsAre(L"SYS", L"TSL0001", L"TSL0002"));
}

// The error lines of a deletion; the call's text says FALSE although the deletion is forced.
auto DeletionErrors(const std::string& notDeleted, const std::string& code, const std::string& text) {
  return ElementsAre("DeleteSnapshots() Failed, SnapshotID=" + notDeleted + ", Error=0x" + code,
                     "ERROR: COM call L\"m_pVssObject->DeleteSnapshots(snapshotSetID, "
                     "VSS_OBJECT_SNAPSHOT_SET,FALSE,&lSnapshots,&idNonDeleted)\" failed.",
                     "- Returned HRESULT = 0x" + code, "- Error text: " + text);
}

TEST_F(MaintenanceTest, APartialDeletionNamesTheCopyThatIsLeft) {
  TakenRequest request(*this, BothDisks(VSS_CTX_APP_ROLLBACK));
  host().faults().FailDeletion({L"TSL0002", VSS_E_PROVIDER_VETO});
  EXPECT_EQ(OutcomeOn(request, &CVarnel::DeleteSnapshotSet), Outcome::Thrown(VSS_E_PROVIDER_VETO));
  EXPECT_THAT(Calls("IVssBackupComponents::DeleteSnapshots"),
              ElementsAre(DeleteCall(std::string("1, not ") + kSecondCopy, "VSS_E_PROVIDER_VETO")));
  EXPECT_EQ(log.All().front(), std::string("I Deleting shadow copy set ") + kSetId);
  EXPECT_THAT(log.All(), SizeIs(5));
  EXPECT_THAT(log.Errors(), DeletionErrors(kSecondCopy, "80042306", "VSS_E_PROVIDER_VETO"));
  EXPECT_EQ(request.alerts(), "") << "a deletion writes no record";
  EXPECT_THAT(CopiesOf(request), ElementsAre(L"SHADOW-TSL0002"));
  EXPECT_THAT(Disks(), ElementsAre(L"SYS", L"TSL0001", L"TSL0002", L"SHADOW-TSL0002"));
}

TEST_F(MaintenanceTest, ADeletionMayBeTriedAgainForWhatIsLeft) {
  TakenRequest request(*this, BothDisks(VSS_CTX_APP_ROLLBACK));
  host().faults().FailDeletion({L"TSL0001", VSS_E_UNEXPECTED_PROVIDER_ERROR});
  EXPECT_EQ(OutcomeOn(request, &CVarnel::DeleteSnapshotSet), Outcome::Thrown(VSS_E_UNEXPECTED_PROVIDER_ERROR));
  EXPECT_THAT(log.Errors(), DeletionErrors(kFirstCopy, "8004230f", "VSS_E_UNEXPECTED_PROVIDER_ERROR"));
  EXPECT_THAT(CopiesOf(request), SizeIs(2)) << "the service stops at the first failure";
  host().faults().Load({});
  EXPECT_EQ(OutcomeOn(request, &CVarnel::DeleteSnapshotSet), Outcome::Returned());
  EXPECT_THAT(host().calls().lines(),
              ElementsAre(DeleteCall(std::string("0, not ") + kFirstCopy, "VSS_E_UNEXPECTED_PROVIDER_ERROR"),
                          DeleteCall("2", "S_OK")));
  EXPECT_THAT(CopiesOf(request), IsEmpty());
}

TEST_F(MaintenanceTest, ADeletionThatFailsAsACallNamesNoCopy) {
  TakenRequest request(*this, BothDisks());
  FailCall("IVssBackupComponents::DeleteSnapshots", E_OUTOFMEMORY);
  EXPECT_EQ(OutcomeOn(request, &CVarnel::DeleteSnapshotSet), Outcome::Thrown(E_OUTOFMEMORY));
  EXPECT_THAT(log.Errors(), DeletionErrors(kNullId, "8007000e", "E_OUTOFMEMORY"));
  EXPECT_EQ(request.alerts(), "");
  EXPECT_THAT(CopiesOf(request), SizeIs(2));
}

TEST_F(MaintenanceTest, ABrokenSetCannotBeDeleted) {
  TakenRequest request(*this, BothDisks());
  EXPECT_EQ(OutcomeOn(request, &CVarnel::BreakSnapshotSet), Outcome::Returned());
  EXPECT_EQ(OutcomeOn(request, &CVarnel::DeleteSnapshotSet), Outcome::Thrown(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(log.Errors(), DeletionErrors(kNullId, "80042308", "VSS_E_OBJECT_NOT_FOUND"));
  EXPECT_THAT(Disks(), SizeIs(5));
}

// ---- without a set, without an object ----

TEST_F(MaintenanceTest, WithoutAnObjectEachOperationFailsItsOwnWay) {
  SnapshotRequest request;
  EXPECT_EQ(OutcomeOn(request, &CVarnel::BreakSnapshotSet), Outcome::Thrown(VSS_E_BAD_STATE));
  std::string records = ComRecord("m_pVssObject->BreakSnapshotSet()", "VSS_E_BAD_STATE");
  EXPECT_EQ(request.alerts(), records);
  EXPECT_EQ(OutcomeOn(request, &CVarnel::MaskSnapshotSet), Outcome::Thrown(VSS_E_BAD_STATE));
  records += ComRecord(kQueryEx2Call, "VSS_E_BAD_STATE");
  EXPECT_EQ(request.alerts(), records);
  log.lines.clear();
  EXPECT_EQ(OutcomeOn(request, &CVarnel::DeleteSnapshotSet), Outcome::Thrown(VSS_E_BAD_STATE));
  EXPECT_EQ(log.All().front(), "I Deleting shadow copy set ");
  EXPECT_THAT(log.Errors(), DeletionErrors(kNullId, "80042301", "VSS_E_BAD_STATE"));
  EXPECT_EQ(request.alerts(), records);
  EXPECT_THAT(host().calls().lines(), IsEmpty());
}

TEST_F(MaintenanceTest, WithoutASetTheServiceAnswersForTheNullIdentifier) {
  SnapshotRequest request;
  request.Start();
  for (const Operation operation :
       {&CVarnel::BreakSnapshotSet, &CVarnel::MaskSnapshotSet, &CVarnel::DeleteSnapshotSet}) {
    EXPECT_EQ(OutcomeOn(request, operation), Outcome::Thrown(VSS_E_OBJECT_NOT_FOUND));
  }
  EXPECT_EQ(request.alerts(), ComRecord("m_pVssObject->BreakSnapshotSet()", "VSS_E_OBJECT_NOT_FOUND") +
                                  ComRecord(kBreakExCall, "VSS_E_OBJECT_NOT_FOUND"));
  EXPECT_THAT(
      Calls("IVssBackupComponents::BreakSnapshotSet"),
      ElementsAre(std::string("IVssBackupComponents::BreakSnapshotSet(") + kNullId + ") = VSS_E_OBJECT_NOT_FOUND"));
}

// ---- verify ----

class VerifyingRequestor : public CVarnel {
 public:
  using CVarnel::CVarnel;
  void VerifyComponentFile(VssFileDescriptor& file) override {
    verified.push_back(file.expandedPath);
    if (file.expandedPath == damaged) throw VarnelException(VarnelException::VerificationFailure, L"Damaged");
  }

  std::vector<std::wstring> verified;
  std::wstring damaged;
};

VssComponent Component(std::wstring name, const std::vector<std::wstring>& files) {
  VssComponent component;
  component.name = std::move(name);
  for (const std::wstring& path : files) component.files.emplace_back().expandedPath = path;
  return component;
}

TEST_F(MaintenanceTest, EveryFileOfEverySelectedComponentIsVerifiedInOrder) {
  SnapshotRequest<VerifyingRequestor> request;
  request.probe.writers() = {WriterOf({Component(L"a", {L"2", L"1"}), Component(L"b", {L"3"})}),
                             WriterOf({Component(L"c", {L"2"})})};
  request.requestor.VerifySnapShotData();
  EXPECT_THAT(request.requestor.verified, ElementsAre(L"2", L"1", L"3", L"2"));
  EXPECT_THAT(log.All(), ElementsAre("I VerifySnapShotData"));
}

TEST_F(MaintenanceTest, ExcludedComponentsAndThoseWithoutFilesAreNamedAndPassedOver) {
  SnapshotRequest<VerifyingRequestor> request;
  VssComponent excluded = Component(L"excluded", {L"x"});
  excluded.excluded = true;
  VssWriter excludedWriter = WriterOf({Component(L"of an excluded writer", {L"y"}), Component(L"empty too", {})});
  excludedWriter.excluded = true;
  request.probe.writers() = {
      excludedWriter, WriterOf({excluded, Component(L"a", {L"1"}), Component(L"empty", {}), Component(L"b", {L"2"})})};
  request.requestor.VerifySnapShotData();
  EXPECT_THAT(request.requestor.verified, ElementsAre(L"1", L"2"));
  EXPECT_THAT(log.All(),
              ElementsAre("I VerifySnapShotData", "V Component either excluded or has no files, Component=excluded",
                          "V Component either excluded or has no files, Component=empty"));
}

TEST_F(MaintenanceTest, TheFirstDamagedFileEndsTheWalkAndMarksNothing) {
  SnapshotRequest<VerifyingRequestor> request;
  request.requestor.damaged = L"2";
  request.probe.writers() = {WriterOf({Component(L"a", {L"1", L"2", L"3"}), Component(L"b", {})}),
                             WriterOf({Component(L"c", {L"4"})})};
  EXPECT_EQ(OutcomeOf([&] { request.requestor.VerifySnapShotData(); }), Outcome::Exception(603, L"Damaged"));
  EXPECT_THAT(request.requestor.verified, ElementsAre(L"1", L"2"));
  EXPECT_THAT(log.All(), ElementsAre("I VerifySnapShotData"));
  EXPECT_FALSE(request.component(0, 0).failed);
  EXPECT_EQ(request.component(0, 0).failureCode, 0U);
  EXPECT_EQ(request.alerts(), "");
}

TEST_F(MaintenanceTest, OnlyWhatTheRequestSelectedIsVerifiedAfterASnapshot) {
  CreatedRequest<VerifyingRequestor> request;
  Forget();
  request.requestor.VerifySnapShotData();
  EXPECT_THAT(request.requestor.verified, ElementsAre(L"E:\\db\\"));
  EXPECT_THAT(log.All(),
              ElementsAre("I VerifySnapShotData", "V Component either excluded or has no files, Component=db2"));
  EXPECT_THAT(host().calls().lines(), IsEmpty());
}

TEST_F(MaintenanceTest, WithoutAnApplicationNoFileIsChecked) {
  TakenRequest request(*this, BothDisks());
  request.requestor.VerifySnapShotData();
  EXPECT_THAT(log.All(), ElementsAre("I VerifySnapShotData"));
  EXPECT_THAT(host().calls().lines(), IsEmpty());
}

}  // namespace
}  // namespace varnel::test
