// The requestor of SQL Server databases: its writers, its catalogue, and whole requests.
#include "requestors/SqlReq.h"

#include "tests/support/applications.h"

namespace varnel::test {
namespace {

static_assert(sizeof(SqlReq) == sizeof(CVarnel), "it adds nothing to its base");

class SqlWriters : public HostFixture {};

TEST_F(SqlWriters, EachWriterIdOfSqlServerIsAccepted) {
  EXPECT_TRUE(IsEligible<SqlReq>(L"MSDEWriter", L"{f8544ac1-0611-4fa5-b04b-f7ee00b03277}"));
  EXPECT_TRUE(IsEligible<SqlReq>(L"SqlServerWriter", L"{a65faa63-5ea8-4ebc-9dbd-a0c4db26912a}"));
  EXPECT_THAT(log.AllWithSources(),
              ElementsAre("I SqlReq: Found SQL writer MSDEWriter ", "I SqlReq: Found SQL writer SqlServerWriter "));
}

TEST_F(SqlWriters, TheSecondAndTheThirdIdAreTheSame) {
  EXPECT_EQ(std::wstring(kSqlWriterIds[1]), kSqlWriterIds[2]);
  EXPECT_EQ(std::size(kSqlWriterIds), 3u);
}

TEST_F(SqlWriters, AnIdInUpperCaseIsRejected) {
  EXPECT_FALSE(IsEligible<SqlReq>(L"SqlServerWriter", L"{A65FAA63-5EA8-4EBC-9DBD-A0C4DB26912A}"));
  EXPECT_FALSE(IsEligible<SqlReq>(L"MSDEWriter", L"{F8544AC1-0611-4FA5-B04B-F7EE00B03277}"));
  EXPECT_THAT(log.AllWithSources(), ElementsAre("V SqlReq: Writer SqlServerWriter is not an SQL writer ",
                                                "V SqlReq: Writer MSDEWriter is not an SQL writer "));
}

TEST_F(SqlWriters, TheIdIsComparedAndNotTheName) {
  EXPECT_FALSE(IsEligible<SqlReq>(L"SqlServerWriter", kExchangeWriterId));
  EXPECT_TRUE(IsEligible<SqlReq>(L"Anything", kSqlServerWriterId));
  EXPECT_TRUE(IsEligible<SqlReq>(L"", kMsdeWriterId));
  EXPECT_THAT(log.All(), ElementsAre("V Writer SqlServerWriter is not an SQL writer ", "I Found SQL writer Anything ",
                                     "I Found SQL writer  "));
}

TEST_F(SqlWriters, AnIdThatIsNotWholeIsRejected) {
  EXPECT_FALSE(IsEligible<SqlReq>(L"a", L""));
  EXPECT_FALSE(IsEligible<SqlReq>(L"b", L"a65faa63-5ea8-4ebc-9dbd-a0c4db26912a"));
  EXPECT_FALSE(IsEligible<SqlReq>(L"c", L"{a65faa63-5ea8-4ebc-9dbd-a0c4db26912a} "));
  EXPECT_FALSE(IsEligible<SqlReq>(L"d", L"{a65faa63-5ea8-4ebc-9dbd-a0c4db26912"));
}

TEST_F(SqlWriters, OneOfThemOnTheHostIsPresent) {
  Install(HostWithEveryApplication());
  std::string details;
  EXPECT_TRUE(SqlReq(0).IsWriterPresent(details));
  // The system writer, then the first of SQL Server's.
  EXPECT_EQ(Calls("IVssBackupComponents::GetWriterMetadata").size(), 2u);
  EXPECT_THAT(log.All(), Contains("I Found SQL writer MSDEWriter "));
}

TEST_F(SqlWriters, NoneOfThemOnTheHostIsNotPresent) {
  Install(HostWithEveryApplication());
  model().writers.erase(model().writers.begin() + 1, model().writers.begin() + 3);
  std::string details;
  EXPECT_FALSE(SqlReq(0).IsWriterPresent(details));
}

class SqlComponents : public HostFixture {
 protected:
  static ComponentCatalogingInfo InfoOf(const VssComponent& component) {
    SqlReq requestor(0);
    ComponentCatalogingInfo info{L"left over", L"left over"};
    RequestorProbe(requestor).GetComponentInfoForCataloging(component, info);
    return info;
  }
};

TEST_F(SqlComponents, VerifyingAFileDoesNothing) {
  SqlReq requestor(kTestPointFailFileVerification);
  VssFileDescriptor empty;
  VssFileDescriptor file;
  file.filespec = L"E00.log";
  file.snapshotDeviceName = L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1\\";
  requestor.VerifyComponentFile(empty);
  requestor.VerifyComponentFile(file);
  RequestorProbe::VerifyLogNCheckPtFiles(requestor, empty);
  RequestorProbe::VerifyLogNCheckPtFiles(requestor, file);
  EXPECT_EQ(file.filespec, L"E00.log");
  EXPECT_EQ(empty.filespec, L"");
  EXPECT_THAT(log.All(), IsEmpty());
  EXPECT_THAT(host().calls().lines(), IsEmpty());
}

TEST_F(SqlComponents, TheFullPathIsTheIdAndThereIsNoName) {
  VssComponent component;
  component.name = L"sales";
  component.caption = L"Sales database";
  component.fullPath = L"\\SQL01\\sales";
  const ComponentCatalogingInfo info = InfoOf(component);
  EXPECT_EQ(info.appObjectId, L"\\SQL01\\sales");
  EXPECT_EQ(info.appObjectName, L"");
  EXPECT_THAT(log.All(), IsEmpty());
}

TEST_F(SqlComponents, AnEmptyFullPathIsAnUnknownIdAndOneErrorLine) {
  const ComponentCatalogingInfo info = InfoOf({});
  EXPECT_EQ(info.appObjectId, L"UNKNOWN");
  EXPECT_EQ(info.appObjectName, L"");
  EXPECT_THAT(log.AllWithSources(),
              ElementsAre("E SqlReq: Unexcpected app object id in SQL requester! The component full path was empty."));
}

TEST_F(SqlComponents, TheHostAndItsVolumesAreNotValidated) {
  SqlReq requestor(0);
  std::string status = "before";
  std::string details = "before";
  EXPECT_EQ(requestor.ValidateVolumes({"anything"}, status, details, {}, ""), 0u);
  EXPECT_EQ(requestor.ValidateHostConfiguration(status), 0u);
  EXPECT_EQ(details, "");
  EXPECT_THAT(log.All(), IsEmpty());
  EXPECT_THAT(host().calls().lines(), IsEmpty());
}

class SqlRequests : public HostFixture {
 protected:
  void SetUp() override { Install(HostWithEveryApplication()); }
};

TEST_F(SqlRequests, OnlyTheWritersOfSqlServerTakePart) {
  CreatedRequest<SqlReq> request;
  EXPECT_THAT(SelectedWriters(request.requestor), ElementsAre(L"MSDEWriter", L"SqlServerWriter"));
  EXPECT_THAT(
      Calls("IVssBackupComponents::AddComponent"),
      ElementsAre(AddedLine(2, kMsdeWriterId, "SQL01", "old"), AddedLine(3, kSqlServerWriterId, "SQL01", "sales"),
                  AddedLine(3, kSqlServerWriterId, "SQL01", "crm")));
  EXPECT_THAT(log.Of(CFileLog::Verbose), ElementsAre("Writer System Writer is not an SQL writer ",
                                                     "Writer Microsoft Exchange Writer is not an SQL writer ",
                                                     "Writer Microsoft Hyper-V VSS Writer is not an SQL writer ",
                                                     "Writer Cluster Shared Volume VSS Writer is not an SQL writer "));
  EXPECT_EQ(request.alerts(), "");
}

TEST_F(SqlRequests, TheCatalogueHoldsThePathsOfTheDatabasesWithoutNames) {
  CreatedRequest<SqlReq> request;
  EXPECT_THAT(CatalogueLines(request.requestor),
              ElementsAre("TSL0001 id \\SQL01\\old", "TSL0001 id \\SQL01\\sales", "TSL0001 id \\SQL01\\crm"));
}

TEST_F(SqlRequests, OnlyTheDatabasesThatTheMetadataServiceNamesAreBackedUp) {
  model().databases = {{L"TSL0001", L"crm@sql01"}};
  SnapshotRequest<SqlReq> request;
  request.details() = "writer=2,";
  EXPECT_EQ(request.StartAndCreate(), Outcome::Returned());
  EXPECT_THAT(SelectedWriters(request.requestor), ElementsAre(L"SqlServerWriter"));
  EXPECT_THAT(Calls("IVssBackupComponents::AddComponent"),
              ElementsAre(AddedLine(3, kSqlServerWriterId, "SQL01", "crm")));
  EXPECT_STREQ(request.requestor.getSuccesfulDBList(), "crm@sql01");
}

TEST_F(SqlRequests, VerifyingTheSnapshotRunsNoProgram) {
  CreatedRequest<SqlReq> request;
  EXPECT_EQ(request.Verify(), Outcome::Returned());
  EXPECT_THAT(Calls("CreateProcessW"), IsEmpty());
}

TEST_F(SqlRequests, AWriterThatFailsFailsTheRequestAndNamesItsDatabasesByTheirPaths) {
  FailWriter(Fault(L"SqlServerWriter", WriterEvent::freeze, VSS_E_WRITERERROR_TIMEOUT));
  SnapshotRequest<SqlReq> request;
  const std::wstring text = L"SqlServerWriter failed to freeze the I/O operations. VSS_E_WRITERERROR_TIMEOUT";
  EXPECT_EQ(request.StartAndCreate(),
            Outcome::Exception(600, text,
                               {text + L" Application error code: 0x0, Application error message:  \n"
                                       L"Failed application components: [\\SQL01\\sales],[\\SQL01\\crm] \n"}));
}

TEST_F(SqlRequests, APartialFailureFailsTheRequestToo) {
  FailWriter(Fault(L"SqlServerWriter", WriterEvent::postSnapshot, VSS_E_WRITERERROR_PARTIAL_FAILURE));
  SnapshotRequest<SqlReq> request;
  EXPECT_EQ(request.StartAndCreate().alertCode, 600);
}

TEST_F(SqlRequests, WithoutAWriterOfSqlServerTheRequestIsRefused) {
  model().writers.erase(model().writers.begin() + 1, model().writers.begin() + 3);
  SnapshotRequest<SqlReq> request;
  const std::wstring text = L"VSS writer is not present on the host.";
  EXPECT_EQ(request.StartAndCreate(), Outcome::Exception(602, text));
}

TEST_F(SqlRequests, TheDestructorOfABaseRequestorReleasesEverything) {
  {
    TesselCommonClasses::DiskAndVolumeEnumerator enumerator;
    std::unique_ptr<CVarnel> requestor = std::make_unique<SqlReq>(0);
    std::string details;
    requestor->Initialize(0, L"", false, VSS_BT_FULL, details, &enumerator);
    requestor->GatherWriterMetadata(details);
    EXPECT_GT(host().live().Count(), 0);
  }
  ExpectNothingLive();
}

}  // namespace
}  // namespace varnel::test
