// Every sample host of examples/hosts: what a request on it comes to, and what is left behind.
#include <tuple>

#include "requestors/ExchReq.h"
#include "requestors/HyperVReq.h"
#include "requestors/SqlReq.h"
#include "tests/samples/sample_run.h"

namespace varnel::test {
namespace {

using testing::Contains;
using testing::Not;
using testing::SizeIs;

class SqlServerSample : public SampleFixture {};
class ExchangeSample : public SampleFixture {
 protected:
  std::vector<std::string> Commands() { return ArgumentsOf("CreateProcessW"); }
};
class HyperVSample : public SampleFixture {};
class PlainSample : public SampleFixture {};

template <class Requestor>
void ExpectPresence(const AgentRun<Requestor>& run) {
  EXPECT_TRUE(run.providerPresent);
  EXPECT_TRUE(run.writerPresent);
}

template <class Requestor>
void ExpectSuccess(const AgentRun<Requestor>& run) {
  ExpectPresence(run);
  EXPECT_EQ(run.refusal, 0U);
  EXPECT_EQ(run.outcome, Outcome::Returned());
  EXPECT_EQ(run.completion, Outcome::Returned());
  EXPECT_EQ(run.alerts(), "");
}

std::vector<std::string> With(std::vector<std::string> lines, const std::string& part) {
  std::erase_if(lines, [&](const std::string& line) { return line.find(part) == line.npos; });
  return lines;
}

// ---- sql-server.json ----

TEST_F(SqlServerSample, EveryDatabaseOfBothInstancesThatLiesOnTheSetIsCaptured) {
  const auto run = Run<SqlReq>("sql-server.json", {.disks = {L"TSL0001", L"TSL0002", L"TSL0003"}});

  ExpectSuccess(run);
  EXPECT_EQ(run.databases, "ALL_DB");
  EXPECT_THAT(run.catalogue,
              ElementsAre("TSL0001 id \\SQL01\\master", "TSL0001 id \\SQL01\\model", "TSL0001 id \\SQL01\\msdb",
                          "TSL0001 id \\SQL01\\sales", "TSL0001 id \\SQL01\\crm", "TSL0002 id \\SQL01\\sales",
                          "TSL0002 id \\SQL01\\webshop", "TSL0002 id \\SQL01\\PROD\\master",
                          "TSL0002 id \\SQL01\\PROD\\model", "TSL0002 id \\SQL01\\PROD\\msdb",
                          "TSL0002 id \\SQL01\\PROD\\reports", "TSL0002 id \\SQL01\\PROD\\stock",
                          "TSL0003 id \\SQL01\\sales", "TSL0003 id \\SQL01\\crm", "TSL0003 id \\SQL01\\webshop",
                          "TSL0003 id \\SQL01\\PROD\\reports", "TSL0003 id \\SQL01\\PROD\\stock"));
  EXPECT_THAT(Reported(), ElementsAre("SQL01\\master true", "SQL01\\model true", "SQL01\\msdb true",
                                      "SQL01\\sales true", "SQL01\\crm true", "SQL01\\webshop true",
                                      "SQL01\\PROD\\master true", "SQL01\\PROD\\model true", "SQL01\\PROD\\msdb true",
                                      "SQL01\\PROD\\reports true", "SQL01\\PROD\\stock true"));
  EXPECT_THAT(Copies(), ElementsAre("SHADOW-TSL0001", "SHADOW-TSL0002", "SHADOW-TSL0003"));
}

TEST_F(SqlServerSample, OnlyTheSessionsOfShadowCopiesAreLoggedOutOf) {
  const auto run = Run<SqlReq>("sql-server.json", {.disks = {L"TSL0001", L"TSL0002", L"TSL0003"}, .disconnect = true});

  const std::string target = "LogoutIScsiTarget(iqn.2007-11.com.example:";
  const std::string refused = target + "sql01-log-copy) = error ";
  const std::vector<std::string> logouts = host().calls().Of("LogoutIScsiTarget");
  ASSERT_THAT(logouts, SizeIs(5));
  EXPECT_EQ(logouts[0], target + "sql01-data1-copy) = ok");
  EXPECT_EQ(logouts[1], target + "sql01-data2-copy) = ok");
  EXPECT_THAT(logouts[2], testing::StartsWith(refused));
  EXPECT_THAT(logouts[3], testing::StartsWith(refused));
  EXPECT_EQ(logouts[4], target + "sql01-log-copy) = ok");
}

TEST_F(SqlServerSample, AWriterCodeLimitsTheSetToTheDatabasesOfTheArray) {
  const auto run = Run<SqlReq>("sql-server.json", {.disks = {L"TSL0001", L"TSL0002", L"TSL0003"}, .writerCode = 2});

  EXPECT_EQ(run.outcome, Outcome::Returned());
  EXPECT_EQ(run.databases, "sales@sql01\tcrm@sql01\twebshop@sql01\treports@prod\tstock@prod");
  EXPECT_THAT(Reported(), ElementsAre("SQL01\\sales true", "SQL01\\crm true", "SQL01\\webshop true",
                                      "SQL01\\PROD\\reports true", "SQL01\\PROD\\stock true"));
}

// ---- sql-server-torn.json ----

constexpr char kTornAlerts[] =
    "status=ExtarVolumesInVolColl, VolumesInvolvedInSnapshot =2 , ExtraVolumes =1, rc=ConfigWarning, "
    "ca=CheckVolumeCollection, ca=CheckHostsVolumes/Connections;\n"
    "Extra volumes in volume collection are:TSL0002:\n";

TEST_F(SqlServerSample, ATornDatabaseIsLeftOutAndItsDiskIsExtra) {
  const auto run = Run<SqlReq>("sql-server-torn.json", {.disks = {L"TSL0001", L"TSL0002", L"TSL0003"}});

  ExpectPresence(run);
  EXPECT_EQ(run.outcome, Outcome::Exception(701, L"Extra volumes found in the volume collection. ",
                                            {L"Extra volumes in the volume collection : TSL0002"}));
  EXPECT_EQ(run.alerts(), kTornAlerts);
  EXPECT_EQ(run.completion, Outcome::Returned()) << "no writer has failed";
  EXPECT_THAT(Reported(), ElementsAre("SQL01\\sales false"));
  ExpectNothingLeft(run);
}

TEST_F(SqlServerSample, AWriterThatFailsAfterTheSnapshotFailsTheRequest) {
  Load("sql-server-torn.json");
  host().model().vssMessages = {{static_cast<DWORD>(VSS_E_WRITERERROR_INCONSISTENTSNAPSHOT), L"Not whole.\r\n"}};
  host().faults().FailWriter({L"SqlServerWriter",
                              WriterEvent::postSnapshot,
                              VSS_E_WRITERERROR_INCONSISTENTSNAPSHOT,
                              S_OK,
                              L"the log cannot be read",
                              {}});
  const AgentRun<SqlReq> run({.disks = {L"TSL0001", L"TSL0002", L"TSL0003"}});

  const std::wstring message = L"SqlServerWriter has failed during post snapshot event. Not whole.\r\n";
  EXPECT_EQ(run.outcome,
            Outcome::Exception(600, message,
                               {message + L" Application error code: 0x0, Application error message: the log cannot "
                                          L"be read \nFailed application components: [\\SQL01\\sales] \n"}));
  EXPECT_THAT(run.alerts(), testing::StartsWith(kTornAlerts));
  EXPECT_THAT(run.alerts(),
              HasSubstr("RequestStatus=WriterFailure, WriterName=SqlServerWriter, "
                        "WriterError=VSS_E_WRITERERROR_INCONSISTENTSNAPSHOT, "
                        "WriterStatus=VSS_WS_FAILED_AT_POST_SNAPSHOT, ApplicationError=0x0, ApplicationMsg=the log "
                        "cannot be read, rc=VssWriterStatusError, ca=CheckWriterState;\n"));
  EXPECT_EQ(run.completion.alertCode, 600) << "the writer still has failed";
  EXPECT_THAT(Reported(), ElementsAre("SQL01\\sales false"));
  ExpectNothingLeft(run);
}

TEST_F(SqlServerSample, ASetWithNothingButHalfADatabaseIsRefused) {
  const auto run = Run<SqlReq>("sql-server-torn.json", {.disks = {L"TSL0002"}});

  EXPECT_EQ(run.outcome.alertCode, 602);
  EXPECT_THAT(run.outcome.list, ElementsAre(L"\n Volumes in volume collection: TSL0002 \n Volumes containing "
                                            L"application components eligible for backup: "));
  EXPECT_EQ(run.alerts(),
            "status=LunMismatch, VolCollVolumes=1, VolumesInvolvedInSnapshot=0, rc=ConfigError, "
            "ca=CheckVolumeCollection, ca=CheckHostsVolumes/Connections;\n"
            "Input list of volumes in volume collection: TSL0002;\n"
            "List of volumes used by application writer : ;\n");
  EXPECT_EQ(run.completion, Outcome::Returned());
  EXPECT_THAT(host().calls().Of("IVssBackupComponents::AbortBackup"), SizeIs(1));
  EXPECT_THAT(host().calls().Of("IVssBackupComponents::AddComponent"), IsEmpty());
  ExpectNothingLeft(run);
}

// ---- sql-server-freeze-timeout.json ----

TEST_F(SqlServerSample, AWriterThatIsFrozenTooLongFailsTheRequest) {
  Load("sql-server-freeze-timeout.json");
  const ULONGLONG start = host().time().GetTickCount64();
  const AgentOptions options{.disks = {L"TSL0001", L"TSL0003"}};
  const AgentRun<SqlReq> run(options);

  ExpectPresence(run);
  EXPECT_EQ(host().time().GetTickCount64() - start, 60000U);
  const std::wstring message =
      L"SqlServerWriter failed to freeze the I/O operations. The writer exceeded the time between freeze and thaw.\r\n";
  EXPECT_EQ(
      run.outcome,
      Outcome::Exception(600, message,
                         {message + L" Application error code: 0x0, Application error message:  \nFailed application "
                                    L"components: [\\SQL01\\sales],[\\SQL01\\crm] \n"}));
  const std::string record =
      "RequestStatus=WriterFailure, WriterName=SqlServerWriter, WriterError=VSS_E_WRITERERROR_TIMEOUT, "
      "WriterStatus=VSS_WS_FAILED_AT_FREEZE, ApplicationError=0x0, ApplicationMsg=, rc=VssWriterStatusError, "
      "ca=CheckWriterState;\n";
  EXPECT_EQ(run.alerts(), record + record) << "once for the snapshot, once for the completion";
  EXPECT_EQ(run.completion, run.outcome);
  EXPECT_THAT(Reported(), ElementsAre("SQL01\\sales false", "SQL01\\crm false"));
  ExpectNothingLeft(run);
}

// ---- exchange.json ----

TEST_F(ExchangeSample, BothDatabasesAreCapturedAndTheirFilesVerified) {
  const auto run = Run<ExchangeReq>("exchange.json", {.disks = {L"TSL1001", L"TSL1002"}, .verify = true});

  ExpectSuccess(run);
  const std::string databases = "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1\\";
  const std::string logs = "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy2\\\\";
  EXPECT_THAT(Commands(), ElementsAre("eseutil.exe /k /i \"" + databases + "MDB1\\\\MDB1.edb\"",
                                      "eseutil.exe /k \"" + logs + "MDB1\\\\E00\"",
                                      "eseutil.exe /k /i \"" + databases + "MDB2\\\\MDB2.edb\"",
                                      "eseutil.exe /k \"" + logs + "MDB2\\\\E01\""));
  const std::string store = "\\Microsoft Exchange Server\\Microsoft Information Store\\EXCH01";
  EXPECT_THAT(run.catalogue, Contains("TSL1001 name Mailbox Database 1"));
  EXPECT_THAT(run.catalogue, Contains("TSL1002 id " + store + "\\b61e6ba5-3682-4dd6-b804-69b84b2d451c\\Logs"));
  EXPECT_THAT(run.catalogue, Not(Contains(HasSubstr("other"))));
  const std::string added = store.substr(1) + "\\";
  EXPECT_THAT(Reported(), ElementsAre(added + "62f746b4-84e6-4ceb-95bd-447e7184d454 true",
                                      added + "b61e6ba5-3682-4dd6-b804-69b84b2d451c true"));
  EXPECT_THAT(Copies(), ElementsAre("SHADOW-TSL1001", "SHADOW-TSL1002"));
}

TEST_F(ExchangeSample, TheQueuesSessionIsLeftAlone) {
  const auto run = Run<ExchangeReq>("exchange.json", {.disks = {L"TSL1001", L"TSL1002"}, .disconnect = true});

  const std::string target = "LogoutIScsiTarget(iqn.2007-11.com.example:exch01-";
  EXPECT_THAT(host().calls().Of("LogoutIScsiTarget"),
              ElementsAre(target + "databases-copy) = ok", target + "logs-copy) = ok"));
}

TEST_F(ExchangeSample, DatabasesWithoutTheirLogsAreRefused) {
  const auto run = Run<ExchangeReq>("exchange.json", {.disks = {L"TSL1001"}});

  EXPECT_EQ(run.outcome.alertCode, 602);
  EXPECT_THAT(run.outcome.list,
              ElementsAre(L"Protection set does not contain all the volumes required to take application consistent "
                          L"snapshot. Check the protection set configuration.Component Mailbox Database 1 logs needs "
                          L"to be in the protection set as parent EXCH01 is included. Make sure volumes affected by "
                          L"Mailbox Database 1 logs are included in volume collection."));
  EXPECT_EQ(run.alerts(), "");
  EXPECT_EQ(run.completion, Outcome::Returned());
  ExpectNothingLeft(run);
}

// ---- exchange-damaged.json, exchange-no-utility.json ----

TEST_F(ExchangeSample, ADamagedDatabaseEndsTheVerificationAndTheSetIsDeleted) {
  const auto run = Run<ExchangeReq>("exchange-damaged.json", {.disks = {L"TSL1001", L"TSL1002"}, .verify = true});

  ExpectPresence(run);
  EXPECT_EQ(run.outcome, Outcome::Exception(603, L"Incorrect function.\r\n", {L"Incorrect function.\r\n"}));
  EXPECT_THAT(Commands(), SizeIs(3)) << "the logs behind the damaged database are not looked at";
  EXPECT_THAT(log.Errors(),
              Contains("Command Failed, Command=eseutil.exe /k /i "
                       "\"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1\\MDB2\\\\MDB2.edb\", Error=0x1"));
  EXPECT_EQ(run.alerts(), "");
  EXPECT_EQ(run.completion, Outcome::Returned());
  EXPECT_THAT(Reported(), ElementsAre(HasSubstr("62f746b4-84e6-4ceb-95bd-447e7184d454 false"),
                                      HasSubstr("b61e6ba5-3682-4dd6-b804-69b84b2d451c false")));
  ExpectNothingLeft(run);
}

TEST_F(ExchangeSample, AUtilityThatIsNotOnTheSearchPathEndsTheVerification) {
  const auto run = Run<ExchangeReq>("exchange-no-utility.json", {.disks = {L"TSL1001", L"TSL1002"}, .verify = true});

  ExpectPresence(run);
  const std::wstring text = L"The system cannot find the file specified.\r\n";
  EXPECT_EQ(run.outcome, Outcome::Exception(603, text, {text}));
  EXPECT_THAT(Commands(), SizeIs(1));
  EXPECT_EQ(run.alerts(), "");
  EXPECT_EQ(run.completion, Outcome::Returned());
  EXPECT_THAT(Reported(), ElementsAre(HasSubstr("62f746b4-84e6-4ceb-95bd-447e7184d454 false")));
  ExpectNothingLeft(run);
}

// ---- hyperv-cluster.json ----

TEST_F(HyperVSample, TheMachinesOnBothSharedVolumesAreCapturedAlsoThoseOfOtherNodes) {
  const auto run = Run<HyperVReq>("hyperv-cluster.json", {.disks = {L"TSL2001", L"TSL2002"}});

  ExpectSuccess(run);
  EXPECT_THAT(
      run.catalogue,
      ElementsAre("TSL2001 id EC7AC8AD-1B2B-406B-AAE1-2C972399D29D", "TSL2001 id DC36FC90-2248-4D70-ACA4-A1A9F5B19F71",
                  "TSL2001 id 0DB317D9-4C8E-4FA3-969A-73BF4C83CF3B", "TSL2001 name WEB01", "TSL2001 name APP01",
                  "TSL2001 name MAIL01", "TSL2002 id E500BDDF-37B0-4307-8F0F-4C3C2052E52B",
                  "TSL2002 id 8C0A70A7-A845-47F9-953A-5154281FA6F5", "TSL2002 id 0DB317D9-4C8E-4FA3-969A-73BF4C83CF3B",
                  "TSL2002 name DB01", "TSL2002 name FILE01", "TSL2002 name MAIL01"));
  EXPECT_THAT(
      Reported(),
      ElementsAre("\\EC7AC8AD-1B2B-406B-AAE1-2C972399D29D true", "\\DC36FC90-2248-4D70-ACA4-A1A9F5B19F71 true",
                  "\\E500BDDF-37B0-4307-8F0F-4C3C2052E52B true", "\\8C0A70A7-A845-47F9-953A-5154281FA6F5<CSV>HV02 true",
                  "\\0DB317D9-4C8E-4FA3-969A-73BF4C83CF3B<CSV>HV03 true"));
  EXPECT_THAT(Copies(), ElementsAre("SHADOW-TSL2001", "SHADOW-TSL2002"));
}

TEST_F(HyperVSample, TheWitnessDiskDoesNotGoWithASharedVolume) {
  const auto run = Run<HyperVReq>("hyperv-cluster.json", {.disks = {L"TSL2001", L"TSL2003"}});

  EXPECT_EQ(run.refusal, 250U);
  EXPECT_THAT(host().calls().Of("CreateVssBackupComponents"), IsEmpty());
}

// ---- hyperv-one-of-twenty.json ----

TEST_F(HyperVSample, OneMachineOfTwentyThatFailsIsCataloguedApartAndTheSetStands) {
  const auto run = Run<HyperVReq>("hyperv-one-of-twenty.json", {.disks = {L"TSL2001", L"TSL2002"}});

  ExpectPresence(run);
  EXPECT_EQ(run.outcome.alertCode, 601);
  EXPECT_EQ(run.outcome.message,
            L"Microsoft Hyper-V VSS Writer has failed during post snapshot event. The writer experienced a partial "
            L"failure. Check the application event log on the application server to determine application objects "
            L"for which VSS synchronization failed.");
  EXPECT_EQ(run.completion, run.outcome) << "the writer still has failed";
  const std::string records =
      "RequestStatus=WriterFailure, WriterName=Microsoft Hyper-V VSS Writer, "
      "WriterError=VSS_E_WRITERERROR_PARTIAL_FAILURE, WriterStatus=VSS_WS_FAILED_AT_POST_SNAPSHOT, "
      "ApplicationError=0x0, ApplicationMsg=, rc=VssWriterStatusError, ca=CheckWriterState;\n"
      "RequestStatus=ComponentLevelFailure, Component=\\1E07EA63-524C-498F-94DC-77A72ED0D50A, "
      "ComponentLevelError=VSS_E_WRITERERROR_NONRETRYABLE, ApplicationError=0x80070070, ApplicationMsg=The guest of "
      "MAIL01 has no room for its own shadow copy, rc=VssPartialWriterError, ca=CheckWriterState;\n";
  EXPECT_EQ(run.alerts(), records + records);
  EXPECT_THAT(With(run.catalogue, " other "),
              ElementsAre("TSL2001 other id 1E07EA63-524C-498F-94DC-77A72ED0D50A", "TSL2001 other name MAIL01"));
  EXPECT_THAT(With(run.catalogue, " name "), SizeIs(19 + 1)) << "the other name is one of them";
  EXPECT_THAT(With(Reported(), " false"), ElementsAre("\\1E07EA63-524C-498F-94DC-77A72ED0D50A false"));
  EXPECT_THAT(With(Reported(), " true"), SizeIs(19));
  EXPECT_THAT(Copies(), ElementsAre("SHADOW-TSL2001", "SHADOW-TSL2002"));
}

// ---- hyperv-mixed-volumes.json, hyperv-missing-hotfix.json ----

TEST_F(HyperVSample, VolumesOfTwoKindsAreRefusedBeforeAnythingIsTouched) {
  const std::string csv = "\\\\?\\Volume{a37f5c42-1b8e-4f60-b5d1-3d4e5f6a7b02}\\";
  const std::string clustered = "\\\\?\\Volume{a37f5c44-1b8e-4f60-b5d1-3d4e5f6a7b04}\\";
  const std::string local = "\\\\?\\Volume{a37f5c45-1b8e-4f60-b5d1-3d4e5f6a7b05}\\";
  const std::tuple<std::vector<std::wstring>, DWORD, std::string, std::string> cases[] = {
      {{L"TSL2001", L"TSL2003"}, 250, "MixOfCSV_NonCSVVolumes", "CSV:" + csv + "Non CSV:" + clustered},
      {{L"TSL2003"}, 251, "ClusterDiskFound", "Cluster Disk:" + clustered},
      {{L"TSL2001", L"TSL2004"}, 253, "MixOfStandalone_ClusterVolumes", "Clustered:" + csv + "Standalone:" + local},
  };
  for (const auto& [disks, refusal, status, lists] : cases) {
    SCOPED_TRACE(refusal);
    const auto run = Run<HyperVReq>("hyperv-mixed-volumes.json", {.disks = disks});
    EXPECT_EQ(run.refusal, refusal);
    EXPECT_EQ(run.statusWord, "TesselHyperVValidation_" + status);
    EXPECT_EQ(run.alerts(),
              "Error, status=" + run.statusWord + ", rc=ConfigError, ca=CheckVolumeCollection" + lists + ";\n");
    EXPECT_THAT(host().calls().Of("CreateVssBackupComponents"), IsEmpty());
    EXPECT_THAT(Copies(), IsEmpty());
  }
}

TEST_F(HyperVSample, EachKindOfVolumeAloneIsFine) {
  for (const std::wstring disk : {L"TSL2001", L"TSL2004"}) {
    const auto run = Run<HyperVReq>("hyperv-mixed-volumes.json", {.disks = {disk}});
    ExpectSuccess(run);
    EXPECT_THAT(Copies(), SizeIs(1));
  }
}

TEST_F(HyperVSample, AnOldManagementServiceIsRefused) {
  const auto run = Run<HyperVReq>("hyperv-missing-hotfix.json", {.disks = {L"TSL2901"}});

  EXPECT_EQ(run.refusal, 255U);
  EXPECT_EQ(run.alerts(), "Error, status=MissingHotfixes, rc=ConfigError, ca=VerifyRequiredHotfixes;\n");
  EXPECT_THAT(host().calls().Of("CreateVssBackupComponents"), IsEmpty());

  host().model().fileVersions[L"C:\\Windows\\system32\\Vmms.exe"] = L"6.3.9600.17120";
  AgentRun<HyperVReq> mended({.disks = {L"TSL2901"}});
  EXPECT_EQ(mended.refusal, 0U);
  EXPECT_EQ(mended.outcome, Outcome::Returned());
  EXPECT_THAT(Copies(), ElementsAre("SHADOW-TSL2901"));
}

// ---- plain.json ----

TEST_F(PlainSample, AHostWithoutAnApplicationIsSnapshotWithEveryWriterThatHasFilesThere) {
  const auto run = Run<CVarnel>("plain.json", {.disks = {L"TSL3001", L"TSL3002"}, .disconnect = true});

  ExpectSuccess(run);
  EXPECT_THAT(run.catalogue, ElementsAre("TSL3001 id \\Shares\\Projects", "TSL3001 name Projects",
                                         "TSL3002 id \\Shares\\Home", "TSL3002 name Home"));
  EXPECT_THAT(Reported(), ElementsAre("Shares\\Projects true", "Shares\\Home true"));
  const std::string target = "LogoutIScsiTarget(iqn.2007-11.com.example:files01-";
  EXPECT_THAT(host().calls().Of("LogoutIScsiTarget"),
              ElementsAre(target + "shares-copy) = ok", target + "home-copy) = ok"));
  EXPECT_THAT(Copies(), ElementsAre("SHADOW-TSL3001", "SHADOW-TSL3002"));
}

}  // namespace
}  // namespace varnel::test
