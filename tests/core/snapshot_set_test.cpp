// CreateVssSnapshotSet and its steps: what is called in which order, which volumes go in, and what every failure
// leaves.
#include "simulator/vss/snapshot_service.h"
#include "tests/support/request_fixture.h"
#include "text/format.h"

namespace varnel::test {
namespace {

constexpr wchar_t kSetId[] = L"{00000002-5e1f-4c3d-9a0b-000000000000}";
constexpr wchar_t kExtraVolumesText[] = L"Extra volumes found in the volume collection. ";
constexpr char kPresentVolumeLine[] =
    "Volume to be added is a system drive hence excluding from snapshot set even though this volume was detected as "
    "an extra volume.";
constexpr char kPropertiesCall[] = "m_pVssObject->GetSnapshotProperties(WString2Guid(snapshotID), &Snap)";

std::wstring Device(int n) {
  return L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy" + std::to_wstring(n) + L"\\";
}

// What a host with extra volumes in the collection appends to the error details.
std::string ExtraRecord(int involved, int extra, const std::string& list) {
  return FormatNarrow(
      "status=ExtarVolumesInVolColl, VolumesInvolvedInSnapshot =%d , ExtraVolumes =%d, rc=ConfigWarning, "
      "ca=CheckVolumeCollection, ca=CheckHostsVolumes/Connections;\nExtra volumes in volume collection are:%s:\n",
      {involved, extra, list});
}

Outcome ExtraVolumes(const std::wstring& list) {
  return Outcome::Exception(701, kExtraVolumesText, {L"Extra volumes in the volume collection : " + list});
}

class SnapshotSetTest : public HostFixture {
 protected:
  void SetUp() override { Install(Model({L"E:\\db"})); }

  /// One writer with one component that has a file in each directory.
  static simulator::HostModel Model(std::vector<std::wstring> directories) {
    simulator::HostModel model = SmallHost();
    model.writers = {MakeWriter(L"Mail", 1, {MakeComponent(L"mail", L"db1", std::move(directories))})};
    return model;
  }

  template <class Requestor>
  static std::vector<std::wstring> VolumeNames(SnapshotRequest<Requestor>& request) {
    std::vector<std::wstring> names;
    for (const SnapshotVolumeInfo& volume : request.requestor.GetSnapshotVolumes()) names.push_back(volume.volumeName);
    return names;
  }

  /// The log lines of the extra volumes.
  std::vector<std::string> LinesWith(std::string_view part) const {
    std::vector<std::string> lines;
    for (const std::string& line : log.All()) {
      if (line.find(part) != line.npos) lines.push_back(line);
    }
    return lines;
  }
};

TEST_F(SnapshotSetTest, TheStepsRunInTheirOrder) {
  CreatedRequest request;
  const std::string object = "IVssBackupComponents::";
  EXPECT_THAT(
      CallNames(host().calls(), {"IVssBackupComponents", "IVssAsync"}),
      ElementsAre(object + "InitializeForBackup", object + "SetBackupState", object + "GatherWriterMetadata",
                  "IVssAsync::Wait", "IVssAsync::QueryStatus", object + "GetWriterMetadataCount",
                  object + "GetWriterMetadata", object + "AddComponent", object + "StartSnapshotSet",
                  object + "AddToSnapshotSet", object + "PrepareForBackup", "IVssAsync::Wait", "IVssAsync::QueryStatus",
                  object + "GatherWriterStatus", "IVssAsync::Wait", "IVssAsync::QueryStatus",
                  object + "GetWriterStatusCount", object + "QueryInterface",
                  "IVssBackupComponentsEx3::GetWriterStatusEx", object + "FreeWriterStatus", object + "DoSnapshotSet",
                  "IVssAsync::Wait", "IVssAsync::QueryStatus", object + "GatherWriterStatus", "IVssAsync::Wait",
                  "IVssAsync::QueryStatus", object + "GetWriterStatusCount", object + "QueryInterface",
                  "IVssBackupComponentsEx3::GetWriterStatusEx", object + "FreeWriterStatus", object + "SaveAsXML",
                  object + "GetSnapshotProperties", object + "GetSnapshotProperties"));
}

TEST_F(SnapshotSetTest, TheLogTellsTheStepsInTheirOrder) {
  CreatedRequest request;
  const std::string volume = WideToUtf8Lossy(VolumeName(1));
  const std::string device = WideToUtf8Lossy(Device(1));
  EXPECT_THAT(log.All(),
              ElementsAre("I CreateVssSnapshotSet : Enter",
                          "I Waiting for Operation=m_pVssObject->GatherWriterMetadata(&pAsync) to finish...",
                          "I Writer code received from Array is: 0",
                          "I Component=db1, File=E:\\db\\, AffectedVolume=" + volume + ", SerialNumber=TSL0001",
                          "I Including implicit components", "I VerifyComponentSelection", "I Discarding empty writers",
                          "I Selecting components", "I Add Component=\\mail\\db1 ",
                          "I Number of components explicitly included in snapshot set = 1 ",
                          "I Add Volume=" + volume + ", SnapshotSetID=" + WideToUtf8Lossy(kSetId) + " ",
                          "I Waiting for Operation=PrepareForBackup() to finish...", "I GatherWriterStatus",
                          "I Waiting for Operation=m_pVssObject->GatherWriterStatus(&pAsync) to finish...",
                          "I Writer=Mail, WriterStatus=VSS_WS_STABLE, WriterError=S_OK",
                          "I Waiting for Operation=DoSnapshotSet() to finish...", "I GatherWriterStatus",
                          "I Waiting for Operation=m_pVssObject->GatherWriterStatus(&pAsync) to finish...",
                          "I Writer=Mail, WriterStatus=VSS_WS_WAITING_FOR_BACKUP_COMPLETE, WriterError=S_OK",
                          "I Getting snapshot properties...", "I re-enumerating cache",
                          "I SnapshotdeviceName=" + device + ", volume=" + volume +
                              ", DiskName=\\\\.\\PhysicalDrive3, SerialNumber=SHADOW-TSL0001"));
}

TEST_F(SnapshotSetTest, ASetLeavesItsIdVolumesAndDocument) {
  CreatedRequest request;
  EXPECT_EQ(request.requestor.GetSnapShotSetId(), kSetId);
  ASSERT_EQ(request.probe.snapshotVolumes().size(), 1U);
  const SnapshotVolumeInfo& volume = request.probe.snapshotVolumes()[0];
  EXPECT_EQ(volume.volumeName, VolumeName(1));
  EXPECT_EQ(volume.snapshotId, L"{00000003-5e1f-4c3d-9a0b-000000000000}");
  EXPECT_EQ(volume.snapshotDeviceName, Device(1));
  EXPECT_TRUE(request.probe.snapshotDone());
  EXPECT_NE(request.requestor.GetBackupDocument().find(L"db1"), std::wstring::npos);
  EXPECT_EQ(request.alerts(), "");
}

TEST_F(SnapshotSetTest, FilesLearnTheSnapshotThatHoldsThem) {
  CreatedRequest request;
  const VssFileDescriptor& file = request.component(0, 0).files[0];
  EXPECT_EQ(file.snapshotDeviceName, Device(1));
  EXPECT_EQ(file.snapshotDiskName, L"\\\\.\\PhysicalDrive3");
  EXPECT_EQ(file.snapshotSerialNumber, L"SHADOW-TSL0001");
}

// The comparison of volume names is exact here, unlike the one that adds volumes.
TEST_F(SnapshotSetTest, AFileWhoseVolumeIsSpelledOtherwiseLearnsNothing) {
  Install(Model({L"E:\\db", L"E:\\log"}));
  SnapshotRequest request;
  request.StartSet();
  std::wstring name = request.component(0, 0).files[1].volumeName;
  name.replace(name.find(L"Volume"), 6, L"VOLUME");
  request.component(0, 0).files[1].volumeName = name;
  request.probe.AddToSnapshotSet(request.details());
  request.probe.PrepareForBackup(request.details());
  request.probe.DoSnapshotSet(request.details());
  request.probe.GetSnapShotProperties(request.details());
  EXPECT_EQ(request.component(0, 0).files[0].snapshotDeviceName, Device(1));
  EXPECT_EQ(request.component(0, 0).files[1].snapshotDeviceName, L"");
  EXPECT_EQ(request.component(0, 0).files[1].snapshotDiskName, L"");
  EXPECT_EQ(request.component(0, 0).files[1].snapshotSerialNumber, L"");
}

TEST_F(SnapshotSetTest, AComponentWithAllFilesOnOneVolumeAddsItOnce) {
  Install(Model({L"E:\\db", L"E:\\log", L"E:\\db"}));
  CreatedRequest request;
  EXPECT_THAT(VolumeNames(request), ElementsAre(VolumeName(1)));
  EXPECT_EQ(Calls("IVssBackupComponents::AddToSnapshotSet").size(), 1U);
}

TEST_F(SnapshotSetTest, VolumesThatDifferOnlyInCaseCountAsOne) {
  Install(Model({L"E:\\db", L"E:\\log"}));
  SnapshotRequest request;
  request.StartSet();
  std::wstring name = request.component(0, 0).files[1].volumeName;
  name.replace(name.find(L"Volume"), 6, L"VOLUME");
  request.component(0, 0).files[1].volumeName = name;
  request.probe.AddToSnapshotSet(request.details());
  EXPECT_THAT(VolumeNames(request), ElementsAre(VolumeName(1)));
  EXPECT_TRUE(request.probe.IsVolumeAlreadyAdded(name));
  EXPECT_FALSE(request.probe.IsVolumeAlreadyAdded(VolumeName(2)));
}

TEST_F(SnapshotSetTest, VolumesAreAddedInTheOrderOfTheFiles) {
  Install(Model({L"F:\\db", L"E:\\log"}));
  CreatedRequest request(BothDisks());
  EXPECT_THAT(VolumeNames(request), ElementsAre(VolumeName(2), VolumeName(1)));
}

TEST_F(SnapshotSetTest, ExcludedWritersAndComponentsAddNoVolume) {
  Install(Model({L"E:\\db"}));
  model().writers[0].components.push_back(MakeComponent(L"mail", L"db2", {L"F:\\db2"}));
  model().writers.push_back(MakeWriter(L"Other", 2, {MakeComponent(L"", L"store", {L"F:\\store"})}));
  CreatedRequest request;
  EXPECT_THAT(VolumeNames(request), ElementsAre(VolumeName(1)));
}

TEST_F(SnapshotSetTest, EveryVolumeIsAddedWithTheArraysProvider) {
  CreatedRequest request;
  const std::vector<std::string> added = Calls("IVssBackupComponents::AddToSnapshotSet");
  ASSERT_EQ(added.size(), 1U);
  EXPECT_THAT(added[0], HasSubstr(WideToUtf8Lossy(FormatGuid(CVarnel::TesselVssProviderID))));
}

TEST_F(SnapshotSetTest, ExtraVolumesAreAddedAfterTheApplicationsVolumes) {
  EndedRequest request(ExtraVolumes(L"TSL0002"), {.serialNumbers = {L"TSL0002", L"TSL0001"}});
  EXPECT_THAT(VolumeNames(request), ElementsAre(VolumeName(1), VolumeName(2)));
  EXPECT_THAT(log.All(),
              Contains("I Adding extra volume = " + WideToUtf8Lossy(VolumeName(2)) + " to the snapshot set"));
}

TEST_F(SnapshotSetTest, EveryVolumeOfAnExtraDiskIsAdded) {
  Install(Model({L"E:\\db"}));
  model().disks[2].volumes.push_back({VolumeName(20), {}, false, L""});
  EndedRequest request(ExtraVolumes(L"tsl0002"), {.serialNumbers = {L"TSL0001", L"tsl0002"}});
  EXPECT_THAT(VolumeNames(request), ElementsAre(VolumeName(1), VolumeName(2), VolumeName(20)));
}

TEST_F(SnapshotSetTest, AnExtraDiskWithoutVolumesAddsNone) {
  EndedRequest request(ExtraVolumes(L"GONE"), {.serialNumbers = {L"TSL0001", L"GONE"}});
  EXPECT_THAT(VolumeNames(request), ElementsAre(VolumeName(1)));
}

// The parent lies on a disk outside the collection, so it is no user of TSL0002, but its child pulls it in.
TEST_F(SnapshotSetTest, AnExtraVolumeThatIsAlreadyInTheSetIsSkippedWithTheSystemDriveWarning) {
  model().disks.push_back(MakeDisk(L"LOCAL", 4, L"G:\\"));
  model().writers = {
      MakeWriter(L"Mail", 1,
                 {MakeComponent(L"", L"mail", {L"F:\\all", L"G:\\all"}), MakeComponent(L"mail", L"db1", {L"E:\\db"})})};
  EndedRequest request(ExtraVolumes(L"TSL0002"), BothDisks());
  EXPECT_THAT(VolumeNames(request), ElementsAre(VolumeName(2), VolumeName(4), VolumeName(1)));
  EXPECT_THAT(log.Warnings(), Contains(kPresentVolumeLine));
  EXPECT_THAT(LinesWith("Adding extra volume"), IsEmpty());
}

TEST_F(SnapshotSetTest, AnExtraSerialOfTheSystemDiskContributesNoVolume) {
  for (const std::wstring serial : {L"SYS", L"sys"}) {
    StartOver();
    EndedRequest request(ExtraVolumes(serial), {.serialNumbers = {L"TSL0001", serial}});
    EXPECT_THAT(VolumeNames(request), ElementsAre(VolumeName(1)));
    EXPECT_THAT(log.All(), Contains("I Excluding volume = " + WideToUtf8Lossy(serial) + " from extra volume."));
    EXPECT_THAT(log.Warnings(), Not(Contains(kPresentVolumeLine)));
  }
}

TEST_F(SnapshotSetTest, AnEmptyExtraListAddsNoVolumeAndLogsNothingForIt) {
  CreatedRequest request;
  EXPECT_THAT(request.probe.extraSerialNumbers(), IsEmpty());
  EXPECT_THAT(LinesWith("extra"), IsEmpty());
  EXPECT_THAT(log.Warnings(), IsEmpty());
}

TEST_F(SnapshotSetTest, ExtraVolumesOfSeveralDisksKeepTheOrderOfTheirSerials) {
  Install(Model({L"E:\\db"}));
  model().disks.push_back(MakeDisk(L"TSL0003", 5, L"H:\\"));
  EndedRequest request(ExtraVolumes(L"TSL0003, TSL0002"), {.serialNumbers = {L"TSL0003", L"TSL0001", L"TSL0002"}});
  EXPECT_THAT(VolumeNames(request), ElementsAre(VolumeName(1), VolumeName(5), VolumeName(2)));
  EXPECT_EQ(request.alerts(), ExtraRecord(1, 2, "TSL0003, TSL0002"));
}

TEST_F(SnapshotSetTest, TheExtraVolumesWarningIsThrownWhenTheSetExists) {
  EndedRequest request(ExtraVolumes(L"TSL0002"), BothDisks());
  EXPECT_TRUE(request.probe.snapshotDone());
  EXPECT_NE(request.requestor.GetBackupDocument(), L"");
  EXPECT_EQ(request.probe.snapshotVolumes()[1].snapshotDeviceName, Device(2));
  EXPECT_EQ(host().machine().snapshots->SurfacedCopies().size(), 2U);
}

TEST_F(SnapshotSetTest, APartialWriterFailureIsThrownAlthoughTheSetAndTheDocumentExist) {
  FailWriter(PartialFault());
  SnapshotRequest<PartialRequestor> request;
  const Outcome outcome = request.StartAndCreate();
  EXPECT_EQ(outcome.alertCode, 601);
  EXPECT_EQ(outcome.message, request.probe.writerErrorText());
  EXPECT_EQ(outcome.list, request.probe.failedComponents());
  EXPECT_TRUE(request.probe.snapshotDone());
  EXPECT_NE(request.requestor.GetBackupDocument(), L"");
  EXPECT_EQ(request.probe.snapshotVolumes()[0].snapshotDeviceName, Device(1));
  EXPECT_EQ(host().machine().snapshots->SurfacedCopies().size(), 1U);
}

TEST_F(SnapshotSetTest, APartialWriterFailureTakesPrecedenceOverTheExtraVolumesWarning) {
  FailWriter(PartialFault());
  SnapshotRequest<PartialRequestor> request(BothDisks());
  EXPECT_EQ(request.StartAndCreate().alertCode, 601);
  EXPECT_EQ(request.probe.lastException().GetAlertCode(), 701);
}

TEST_F(SnapshotSetTest, ATransportableSetsPropertiesAreNotRead) {
  CreatedRequest request({.context = VSS_VOLSNAP_ATTR_TRANSPORTABLE});
  EXPECT_THAT(Calls("IVssBackupComponents::GetSnapshotProperties"), IsEmpty());
  EXPECT_EQ(request.probe.snapshotVolumes()[0].snapshotDeviceName, L"");
  EXPECT_NE(request.probe.snapshotVolumes()[0].snapshotId, L"");
  const VssFileDescriptor& file = request.component(0, 0).files[0];
  EXPECT_EQ(file.snapshotDeviceName, L"");
  EXPECT_EQ(file.snapshotDiskName, L"");
  EXPECT_EQ(file.snapshotSerialNumber, L"");
  EXPECT_NE(request.requestor.GetBackupDocument(), L"");
}

TEST_F(SnapshotSetTest, APersistentTransportableSetsPropertiesAreNotReadEither) {
  CreatedRequest request({.context = DWORD{VSS_CTX_APP_ROLLBACK} | VSS_VOLSNAP_ATTR_TRANSPORTABLE});
  EXPECT_THAT(LinesWith("Getting snapshot properties"), IsEmpty());
}

TEST_F(SnapshotSetTest, TheSnapshotCountsAsDoneBeforeTheWritersAreCheckedAgain) {
  WriterFault fault = PartialFault();
  fault.failure = VSS_E_WRITERERROR_TIMEOUT;
  FailWriter(fault);
  SnapshotRequest request;
  EXPECT_EQ(request.StartAndCreate().alertCode, 600);
  EXPECT_TRUE(request.probe.snapshotDone());
  EXPECT_EQ(request.requestor.GetBackupDocument(), L"");
}

TEST_F(SnapshotSetTest, AWriterThatFailsToPrepareStopsTheRequestBeforeTheSnapshot) {
  WriterFault fault = PartialFault();
  fault.event = WriterEvent::prepareBackup;
  fault.failure = VSS_E_WRITERERROR_TIMEOUT;
  FailWriter(fault);
  SnapshotRequest request;
  EXPECT_EQ(request.StartAndCreate().alertCode, 600);
  EXPECT_FALSE(request.probe.snapshotDone());
  EXPECT_THAT(Calls("IVssBackupComponents::DoSnapshotSet"), IsEmpty());
}

TEST_F(SnapshotSetTest, TheTestPointFailsTheRequestAfterTheSecondWriterCheckWithoutARecord) {
  EndedRequest request(Outcome::Thrown(VSS_E_UNEXPECTED_WRITER_ERROR), {.testPoints = kTestPointFailDoSnapshotSet});
  EXPECT_TRUE(request.probe.snapshotDone());
  EXPECT_EQ(request.alerts(), "");
  EXPECT_THAT(log.Errors(), ElementsAre("***Testpoint enabled. Throwing error unexpected writer error after "
                                        "DoSnapshotSet***"));
  EXPECT_EQ(Calls("IVssBackupComponents::GatherWriterStatus").size(), 2U);
  EXPECT_EQ(request.requestor.GetBackupDocument(), L"");
}

TEST_F(SnapshotSetTest, OtherTestPointsDoNotDisturbTheRequest) {
  CreatedRequest request({.testPoints = ~kTestPointFailDoSnapshotSet});
}

TEST_F(SnapshotSetTest, ASecondSaveFreesTheFirstDocument) {
  CreatedRequest request;
  const std::wstring first = request.requestor.GetBackupDocument();
  request.probe.SaveBackupComponentsDocument(request.details());
  EXPECT_EQ(request.requestor.GetBackupDocument(), first);
  EXPECT_EQ(host().live().Count("BSTR"), 1);
}

TEST_F(SnapshotSetTest, ASaveThatDeliversNoDocumentIsUnexpected) {
  FailCall("IVssBackupComponents::SaveAsXML", S_FALSE);
  EndedRequest request(Outcome::Thrown(E_UNEXPECTED));
  EXPECT_EQ(request.alerts(), ComRecord("SaveAsXML()", "E_UNEXPECTED"));
}

TEST_F(SnapshotSetTest, PropertiesAreAskedForTwiceAndBothAnswersAreFreed) {
  SnapshotRequest request;
  request.StartSet();
  request.probe.AddToSnapshotSet(request.details());
  request.probe.PrepareForBackup(request.details());
  request.probe.DoSnapshotSet(request.details());
  host().calls().Clear();
  request.probe.GetSnapShotProperties(request.details());
  EXPECT_EQ(Calls("IVssBackupComponents::GetSnapshotProperties").size(), 2U);
  EXPECT_EQ(host().live().Count("task memory"), 0);
}

TEST_F(SnapshotSetTest, AnEmptyFirstAnswerAboutASnapshotDoesNotCount) {
  FailCall("IVssBackupComponents::GetSnapshotProperties", S_FALSE, 1);
  CreatedRequest request;
  EXPECT_EQ(request.probe.snapshotVolumes()[0].snapshotDeviceName, Device(1));
}

TEST_F(SnapshotSetTest, AnEmptySecondAnswerAboutASnapshotReplacesTheFirst) {
  FailCall("IVssBackupComponents::GetSnapshotProperties", S_FALSE, 2);
  EndedRequest request(Outcome::Thrown(HResultFromWin32(ERROR_INVALID_NAME)));
  EXPECT_EQ(request.probe.snapshotVolumes()[0].snapshotDeviceName, L"\\");
}

TEST_F(SnapshotSetTest, AFailedFirstQuestionAboutASnapshotIsLoggedInThreeLinesWithoutARecord) {
  FailCall("IVssBackupComponents::GetSnapshotProperties", VSS_E_OBJECT_NOT_FOUND);
  EndedRequest request(Outcome::Thrown(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_EQ(request.alerts(), "");
  EXPECT_THAT(log.Errors(), ElementsAre("ERROR: COM call \"" + std::string(kPropertiesCall) + "\" failed.",
                                        "- Returned HRESULT = 0x80042308", "- Error text: VSS_E_OBJECT_NOT_FOUND"));
  EXPECT_EQ(host().live().Count("task memory"), 0);
}

TEST_F(SnapshotSetTest, AFailedSecondQuestionAboutASnapshotWritesItsRecordAndFreesTheFirstAnswer) {
  FailCall("IVssBackupComponents::GetSnapshotProperties", VSS_E_PROVIDER_VETO, 2);
  EndedRequest request(Outcome::Thrown(VSS_E_PROVIDER_VETO));
  EXPECT_EQ(request.alerts(), ComRecord("m_pVssObject->GetSnapshotProperties()", "VSS_E_PROVIDER_VETO"));
  EXPECT_EQ(host().live().Count("task memory"), 0);
}

TEST_F(SnapshotSetTest, ASnapshotWhoseDiskHasNoSerialNumberIsReportedToTheLogOnly) {
  FailCall("IVssBackupComponents::GetSnapshotProperties", S_FALSE, 0);  // a device name is never given
  EndedRequest request(Outcome::Thrown(static_cast<HRESULT>(0x8007007B)));
  EXPECT_EQ(request.alerts(), "");
  EXPECT_THAT(log.Errors(), ElementsAre("  RequestStatus=GetDiskSerialNumberForVolume()_failed, rc=SystemError, "
                                        "error=Error: 0x8007007b, ca=ContactTechSupport;\n"));
  EXPECT_EQ(request.component(0, 0).files[0].snapshotDeviceName, L"");
}

TEST_F(SnapshotSetTest, TheDisksAreEnumeratedAgainForEverySnapshot) {
  Install(Model({L"E:\\db", L"F:\\log"}));
  CreatedRequest request(BothDisks());
  EXPECT_EQ(LinesWith("re-enumerating cache").size(), 2U);
  EXPECT_EQ(request.component(0, 0).files[0].snapshotSerialNumber, L"SHADOW-TSL0001");
  EXPECT_EQ(request.component(0, 0).files[1].snapshotSerialNumber, L"SHADOW-TSL0002");
}

// A system disk that cannot be told must not be taken for a data disk: the request ends before a set is begun.
TEST_F(SnapshotSetTest, AnEnumerationThatFailsPassesAsItIsThrown) {
  FailCall("GetSystemDirectoryW", ERROR_ACCESS_DENIED);
  SnapshotRequest request;
  try {
    request.StartAndCreate();
    FAIL() << "nothing was thrown";
  } catch (const TesselCommonClasses::ExceptionCommon& exception) {
    EXPECT_EQ(exception.GetErrorCode(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_STREQ(exception.what(), "GetSystemDirectoryW() failed with 5");
  }
  EXPECT_EQ(request.alerts(), "");
  EXPECT_FALSE(request.probe.snapshotDone());
  EXPECT_THAT(Calls("IVssBackupComponents::StartSnapshotSet"), IsEmpty());
}

TEST_F(SnapshotSetTest, ASnapshotOfAnExtraVolumeIsIdentifiedThoughNoFileLiesOnIt) {
  EndedRequest request(ExtraVolumes(L"TSL0002"), BothDisks());
  EXPECT_THAT(LinesWith("SerialNumber=SHADOW-TSL0002").size(), 1U);
}

// A call that fails, its name in the record, and what the requestor holds then.
struct FailingStep {
  std::string call;
  int occurrence;
  std::string text;
  bool hasSetId;
  bool hasVolume;
  bool hasSnapshotId;
  bool snapshotDone;
  bool hasDocument;
};

TEST_F(SnapshotSetTest, AFailedCallWritesItsRecordAndLeavesTheMembersAsFarAsTheyWereFilled) {
  const std::string object = "IVssBackupComponents::";
  const std::vector<FailingStep> steps = {
      {object + "GatherWriterMetadata", 1, "m_pVssObject->GatherWriterMetadata(&pAsync)", false, false, false, false,
       false},
      {"IVssAsync::Wait", 1, "pAsync->Wait()", false, false, false, false, false},
      {object + "GetWriterMetadataCount", 1, "GetWriterMetadataCount()", false, false, false, false, false},
      {object + "GetWriterMetadata", 1, "GetWriterMetadata()", false, false, false, false, false},
      {object + "StartSnapshotSet", 1, "m_pVssObject->StartSnapshotSet()", false, false, false, false, false},
      {object + "AddToSnapshotSet", 1, "m_pVssObject->AddToSnapshotSet()", true, true, false, false, false},
      {object + "PrepareForBackup", 1, "PrepareForBackup()", true, true, true, false, false},
      {"IVssAsync::QueryStatus", 2, "pAsync->QueryStatus()", true, true, true, false, false},
      {object + "GatherWriterStatus", 1, "m_pVssObject->GatherWriterStatus(&pAsync)", true, true, true, false, false},
      {object + "DoSnapshotSet", 1, "DoSnapshotSet()", true, true, true, false, false},
      {"IVssAsync::Wait", 4, "pAsync->Wait()", true, true, true, false, false},
      {"IVssAsync::QueryStatus", 4, "pAsync->QueryStatus()", true, true, true, false, false},
      {object + "GatherWriterStatus", 2, "m_pVssObject->GatherWriterStatus(&pAsync)", true, true, true, true, false},
      {object + "SaveAsXML", 1, "SaveAsXML()", true, true, true, true, false},
      {object + "GetSnapshotProperties", 2, "m_pVssObject->GetSnapshotProperties()", true, true, true, true, true},
  };
  for (const FailingStep& step : steps) {
    SCOPED_TRACE(step.call + " " + std::to_string(step.occurrence));
    StartOver();
    FailCall(step.call, VSS_E_UNEXPECTED, step.occurrence);
    EndedRequest request(Outcome::Thrown(VSS_E_UNEXPECTED));
    const std::string record = ComRecord(step.text, "VSS_E_UNEXPECTED");
    EXPECT_EQ(request.alerts(), record);
    EXPECT_THAT(log.Errors(), ElementsAre(" " + record.substr(0, record.size() - 1)));
    EXPECT_EQ(request.requestor.GetSnapShotSetId(), step.hasSetId ? kSetId : L"");
    ASSERT_EQ(request.probe.snapshotVolumes().size(), step.hasVolume ? 1U : 0U);
    if (step.hasVolume) {
      EXPECT_EQ(request.probe.snapshotVolumes()[0].snapshotId.empty(), !step.hasSnapshotId);
    }
    EXPECT_EQ(request.probe.snapshotDone(), step.snapshotDone);
    EXPECT_EQ(request.requestor.GetBackupDocument().empty(), !step.hasDocument);
    EXPECT_THAT(Calls(object + "AbortBackup"), IsEmpty());
  }
}

TEST_F(SnapshotSetTest, AnOperationThatIsNotDeliveredIsUnexpected) {
  for (const std::string name : {"PrepareForBackup", "DoSnapshotSet"}) {
    StartOver();
    FailCall("IVssBackupComponents::" + name, S_FALSE);
    EndedRequest request(Outcome::Thrown(E_UNEXPECTED));
    EXPECT_EQ(request.alerts(), ComRecord(name + "()", "E_UNEXPECTED"));
    EXPECT_FALSE(request.probe.snapshotDone());
  }
}

TEST_F(SnapshotSetTest, AnOperationThatEndsInAFailureWritesTheStatusRecord) {
  for (const std::string name : {"PrepareForBackup", "DoSnapshotSet"}) {
    StartOver();
    host().faults().FailAsync(name, VSS_E_FLUSH_WRITES_TIMEOUT);
    EndedRequest request(Outcome::Thrown(VSS_E_FLUSH_WRITES_TIMEOUT));
    EXPECT_EQ(request.alerts(), QueryStatusRecord("VSS_E_FLUSH_WRITES_TIMEOUT"));
    EXPECT_THAT(log.Errors(), ElementsAre("  " + QueryStatusRecord("VSS_E_FLUSH_WRITES_TIMEOUT")));
    EXPECT_FALSE(request.probe.snapshotDone());
  }
}

TEST_F(SnapshotSetTest, TheFirstVolumeKeepsItsSnapshotIdWhenTheSecondCannotBeAdded) {
  Install(Model({L"E:\\db", L"F:\\log"}));
  FailCall("IVssBackupComponents::AddToSnapshotSet", VSS_E_PROVIDER_VETO, 2);
  EndedRequest request(Outcome::Thrown(VSS_E_PROVIDER_VETO), BothDisks());
  ASSERT_EQ(request.probe.snapshotVolumes().size(), 2U);
  EXPECT_NE(request.probe.snapshotVolumes()[0].snapshotId, L"");
  EXPECT_EQ(request.probe.snapshotVolumes()[1].snapshotId, L"");
}

TEST_F(SnapshotSetTest, AVolumeThatVanishesBeforeItIsAddedFailsTheRequest) {
  SnapshotRequest request;
  request.StartSet();
  model().disks[1].volumes.clear();
  EXPECT_EQ(OutcomeOf([&] { request.probe.AddToSnapshotSet(request.details()); }),
            Outcome::Thrown(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_EQ(request.alerts(), ComRecord("m_pVssObject->AddToSnapshotSet()", "VSS_E_OBJECT_NOT_FOUND"));
}

TEST_F(SnapshotSetTest, AVolumeThatVanishesBeforeTheSnapshotFailsTheRequest) {
  SnapshotRequest request;
  request.StartSet();
  request.probe.AddToSnapshotSet(request.details());
  request.probe.PrepareForBackup(request.details());
  model().disks[1].volumes.clear();
  EXPECT_EQ(OutcomeOf([&] { request.probe.DoSnapshotSet(request.details()); }),
            Outcome::Thrown(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_EQ(request.alerts(), QueryStatusRecord("VSS_E_OBJECT_NOT_FOUND"));
  EXPECT_FALSE(request.probe.snapshotDone());
}

TEST_F(SnapshotSetTest, AProviderThatIsNotRegisteredFailsTheFirstVolume) {
  model().providers.clear();
  EndedRequest request(Outcome::Thrown(VSS_E_PROVIDER_NOT_REGISTERED));
  EXPECT_EQ(request.alerts(), ComRecord("m_pVssObject->AddToSnapshotSet()", "VSS_E_PROVIDER_NOT_REGISTERED"));
}

// One more than a set holds.
TEST_F(SnapshotSetTest, TheSixtyFifthVolumeFailsTheRequest) {
  constexpr DWORD kVolumes = 65;
  simulator::HostModel model = SmallHost();
  std::vector<std::wstring> directories;
  RequestOptions options{.serialNumbers = {}};
  for (DWORD n = 1; n <= kVolumes; ++n) {
    const std::wstring mountPoint = L"C:\\mnt\\" + std::to_wstring(n) + L"\\";
    directories.push_back(mountPoint + L"db");
    options.serialNumbers.push_back(L"BIG" + std::to_wstring(n));
    model.disks.push_back(MakeDisk(options.serialNumbers.back(), 100 + n, mountPoint));
  }
  model.writers = {MakeWriter(L"Mail", 1, {MakeComponent(L"", L"big", std::move(directories))})};
  Install(std::move(model));
  EndedRequest request(Outcome::Thrown(VSS_E_MAXIMUM_NUMBER_OF_VOLUMES_REACHED), options);
  EXPECT_EQ(request.alerts(), ComRecord("m_pVssObject->AddToSnapshotSet()", "VSS_E_MAXIMUM_NUMBER_OF_VOLUMES_REACHED"));
  ASSERT_EQ(request.probe.snapshotVolumes().size(), kVolumes);
  EXPECT_NE(request.probe.snapshotVolumes()[63].snapshotId, L"");
  EXPECT_EQ(request.probe.snapshotVolumes()[64].snapshotId, L"");
}

TEST_F(SnapshotSetTest, AnotherRequestorsOpenSetKeepsThisOneOut) {
  SnapshotRequest first;
  first.StartSet();
  SnapshotRequest second;
  EXPECT_EQ(second.StartAndCreate(), Outcome::Thrown(VSS_E_SNAPSHOT_SET_IN_PROGRESS));
  EXPECT_EQ(second.alerts(), ComRecord("m_pVssObject->StartSnapshotSet()", "VSS_E_SNAPSHOT_SET_IN_PROGRESS"));
}

TEST_F(SnapshotSetTest, AProviderThatHoldsWritesTooLongFailsTheSnapshot) {
  model().commitMilliseconds = 10001;
  EndedRequest request(Outcome::Thrown(VSS_E_HOLD_WRITES_TIMEOUT));
  EXPECT_EQ(request.alerts(), QueryStatusRecord("VSS_E_HOLD_WRITES_TIMEOUT"));
  EXPECT_FALSE(request.probe.snapshotDone());
}

TEST_F(SnapshotSetTest, AProviderThatJustMakesItTakesTheSnapshot) {
  model().commitMilliseconds = 10000;
  CreatedRequest request;
  EXPECT_EQ(host().machine().now, 10000U);
}

TEST_F(SnapshotSetTest, AWriterThatStaysFrozenTooLongFailsTheRequestAfterTheSnapshot) {
  model().freezeMilliseconds = 60001;
  SnapshotRequest request;
  const Outcome outcome = request.StartAndCreate();
  EXPECT_EQ(outcome.alertCode, 600);
  EXPECT_EQ(outcome.message, L"Mail failed to freeze the I/O operations. VSS_E_WRITERERROR_TIMEOUT");
  EXPECT_TRUE(request.probe.snapshotDone());
}

TEST_F(SnapshotSetTest, AWriterThatJustMakesItDoesWell) {
  model().freezeMilliseconds = 60000;
  CreatedRequest request;
}

TEST_F(SnapshotSetTest, EveryCallWithoutABackupObjectIsOutOfState) {
  SnapshotRequest request;
  RequestorProbe& probe = request.probe;
  const auto check = [&](const std::string& call, auto step) {
    SCOPED_TRACE(call);
    request.details().resize(std::string("writer=0,").size());
    EXPECT_EQ(OutcomeOf(step), Outcome::Thrown(VSS_E_BAD_STATE));
    EXPECT_EQ(request.alerts(), ComRecord(call, "VSS_E_BAD_STATE"));
  };
  check("m_pVssObject->GatherWriterMetadata(&pAsync)",
        [&] { request.requestor.CreateVssSnapshotSet(request.details()); });
  check("PrepareForBackup()", [&] { probe.PrepareForBackup(request.details()); });
  check("DoSnapshotSet()", [&] { probe.DoSnapshotSet(request.details()); });
  check("SaveAsXML()", [&] { probe.SaveBackupComponentsDocument(request.details()); });
  probe.snapshotVolumes() = {{VolumeName(1), L"", L""}};
  check("m_pVssObject->AddToSnapshotSet()", [&] { probe.AddToSnapshotSet(request.details()); });
}

TEST_F(SnapshotSetTest, PropertiesWithoutABackupObjectAreLoggedInThreeLines) {
  SnapshotRequest request;
  request.probe.snapshotVolumes() = {{VolumeName(1), L"", L""}};
  EXPECT_EQ(OutcomeOf([&] { request.probe.GetSnapShotProperties(request.details()); }),
            Outcome::Thrown(VSS_E_BAD_STATE));
  EXPECT_EQ(request.alerts(), "");
  EXPECT_THAT(log.Errors(), ElementsAre("ERROR: COM call \"" + std::string(kPropertiesCall) + "\" failed.",
                                        "- Returned HRESULT = 0x80042301", "- Error text: VSS_E_BAD_STATE"));
}

TEST_F(SnapshotSetTest, PropertiesWithoutAnEnumeratorThrowAnInvalidPointer) {
  CreatedRequest request;
  request.requestor.SetDiskAndVolumeEnumeratorObj(nullptr);
  EXPECT_EQ(OutcomeOf([&] { request.probe.GetSnapShotProperties(request.details()); }), Outcome::Thrown(E_POINTER));
  EXPECT_THAT(log.Errors(), ElementsAre("No disk and volume enumerator has been set"));
}

TEST_F(SnapshotSetTest, ExtraVolumesWithoutAnEnumeratorThrowAnInvalidPointer) {
  SnapshotRequest request;
  request.Start();
  request.requestor.SetDiskAndVolumeEnumeratorObj(nullptr);
  request.probe.extraSerialNumbers() = {L"TSL0002"};
  std::vector<std::wstring> volumes;
  EXPECT_EQ(OutcomeOf([&] { request.probe.GetVolumeListForExtraVolumes(volumes); }), Outcome::Thrown(E_POINTER));
  EXPECT_THAT(log.Errors(), ElementsAre("No disk and volume enumerator has been set"));
}

TEST_F(SnapshotSetTest, ARequestWithoutAnEnumeratorFindsNothingOnTheDisks) {
  SnapshotRequest request;
  request.Start();
  request.requestor.SetDiskAndVolumeEnumeratorObj(nullptr);
  EXPECT_EQ(request.Create().alertCode, 602);
  EXPECT_THAT(request.alerts(), StartsWith("status=LunMismatch, "));
}

TEST_F(SnapshotSetTest, AnotherRequestForgetsTheFirstOnesMessages) {
  CreatedRequest request;
  request.probe.writerErrorText() = L"left over";
  request.probe.failedComponents() = {L"left over"};
  EXPECT_EQ(request.Create(), Outcome::Thrown(VSS_E_BAD_STATE));  // the object has been used up
  EXPECT_FALSE(request.probe.snapshotDone());
  EXPECT_EQ(request.probe.writerErrorText(), L"");
  EXPECT_THAT(request.probe.failedComponents(), IsEmpty());
  EXPECT_EQ(request.requestor.GetSnapShotSetId(), kSetId);
}

TEST_F(SnapshotSetTest, AnotherRequestAppendsToTheVolumesOfTheFirst) {
  CreatedRequest request;
  request.requestor.SetInputDriveSerialNos({L"TSL0002"});
  request.probe.writers().clear();
  model().writers = {MakeWriter(L"Web", 2, {MakeComponent(L"", L"site", {L"F:\\web"})})};
  request.Initialize();
  EXPECT_EQ(request.Create(), Outcome::Returned());
  EXPECT_THAT(VolumeNames(request), ElementsAre(VolumeName(1), VolumeName(2)));
  EXPECT_EQ(Calls("IVssBackupComponents::AddToSnapshotSet").size(), 3U);
}

TEST_F(SnapshotSetTest, AnAutoReleaseSetGoesWithItsRequestor) {
  {
    CreatedRequest request;
    EXPECT_EQ(host().machine().snapshots->SurfacedCopies().size(), 1U);
  }
  EXPECT_THAT(host().machine().snapshots->SurfacedCopies(), IsEmpty());
}

TEST_F(SnapshotSetTest, APersistentSetOutlivesItsRequestor) {
  { CreatedRequest request({.context = VSS_CTX_APP_ROLLBACK}); }
  EXPECT_EQ(host().machine().snapshots->SurfacedCopies().size(), 1U);
}

// The service takes no writers' components in such a context; those who want a set there take it step by step.
TEST_F(SnapshotSetTest, InAContextWithoutWritersNoComponentIsTaken) {
  for (const DWORD context : {0x10u, 0x19u, 0x1Du}) {
    SCOPED_TRACE(context);
    StartOver();
    EndedRequest request(Outcome::Thrown(VSS_E_BAD_STATE), {.context = context});
    EXPECT_THAT(request.alerts(), HasSubstr(ComRecord("m_pVssObject->AddComponent()", "VSS_E_BAD_STATE")));
    EXPECT_THAT(Calls("IVssBackupComponents::GatherWriterStatus"), IsEmpty());
    EXPECT_FALSE(request.component(0, 0).added);
    EXPECT_EQ(request.Complete(StatusCode(Outcome::Thrown(VSS_E_BAD_STATE))), Outcome::Returned());
  }
}

class SecondSetTest : public SnapshotSetTest {
 protected:
  /// Mail lies on TSL0001, Other on a disk that is not protected, and no one on TSL0003.
  void SetUp() override {
    SnapshotSetTest::SetUp();
    model().writers.push_back(MakeWriter(L"Other", 2, {MakeComponent(L"", L"store", {L"F:\\store"})}));
    model().disks.push_back(MakeDisk(L"TSL0003", 3, L"G:\\"));
    ASSERT_EQ(request.StartAndCreate(), ExtraVolumes(L"TSL0003"));
    ASSERT_EQ(request.Complete(0), Outcome::Returned());
    request.Initialize();
    request.probe.writerErrorText() = L"left over";
    request.probe.failedComponents() = {L"left over"};
    Forget();
  }
  void TearDown() override {
    request.probe.vssObject().Reset();
    request.probe.backupDocument().Reset();
    SnapshotSetTest::TearDown();
  }

  SnapshotRequest<> request{RequestOptions{.serialNumbers = {L"TSL0001", L"TSL0003"}}};
};

TEST_F(SecondSetTest, KeepsWhatTheFirstLeftButTheReportAndTheMarkOfTheSnapshot) {
  const std::wstring setId = request.requestor.GetSnapShotSetId();
  const std::wstring document = request.requestor.GetBackupDocument();
  // The writers are read once more, and the service has Mail's component already.
  EXPECT_EQ(request.Create(), Outcome::Thrown(VSS_E_OBJECT_ALREADY_EXISTS));
  EXPECT_FALSE(request.probe.snapshotDone());
  EXPECT_EQ(request.probe.writerErrorText(), L"");
  EXPECT_THAT(request.probe.failedComponents(), IsEmpty());
  std::vector<std::pair<std::wstring, bool>> writers;
  for (const VssWriter& writer : request.requestor.GetWriters()) writers.emplace_back(writer.name, writer.excluded);
  EXPECT_THAT(writers, ElementsAre(std::pair(L"Mail", false), std::pair(L"Other", true), std::pair(L"Mail", false),
                                   std::pair(L"Other", true)));
  EXPECT_THAT(request.probe.inputSerialNumbers(), ElementsAre(L"TSL0001", L"TSL0003"));
  EXPECT_THAT(request.probe.eligibleSerialNumbers(), ElementsAre(L"TSL0001"));
  EXPECT_THAT(request.probe.extraSerialNumbers(), ElementsAre(L"TSL0003", L"TSL0003"));
  EXPECT_EQ(request.probe.lastException().GetAlertCode(), 701);
  EXPECT_THAT(VolumeNames(request), ElementsAre(VolumeName(1), VolumeName(3)));
  EXPECT_EQ(request.requestor.GetSnapShotSetId(), setId);
  EXPECT_EQ(request.requestor.GetBackupDocument(), document);
}

TEST_F(SecondSetTest, TakesEveryVolumeOnceAlthoughTheExtraDisksPileUp) {
  const std::wstring firstSet = request.requestor.GetSnapShotSetId();
  request.probe.writers().clear();
  EXPECT_EQ(request.Create(), ExtraVolumes(L"TSL0003, TSL0003"));
  EXPECT_TRUE(request.probe.snapshotDone());
  EXPECT_NE(request.requestor.GetSnapShotSetId(), firstSet);
  EXPECT_THAT(VolumeNames(request), ElementsAre(VolumeName(1), VolumeName(3)));
  EXPECT_THAT(Calls("IVssBackupComponents::AddToSnapshotSet"),
              ElementsAre(HasSubstr("Volume{00000001-"), HasSubstr("Volume{00000003-")));
  // Both mentions of the extra disk find its volume in the list of the first set.
  EXPECT_THAT(log.Warnings(), Contains(kPresentVolumeLine).Times(2));
  EXPECT_THAT(LinesWith("Adding extra volume"), IsEmpty());
  EXPECT_EQ(request.Complete(0), Outcome::Returned());
}

}  // namespace
}  // namespace varnel::test
