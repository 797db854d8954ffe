// `varnelctl explain`, and the next step that every failure ends with.
#include "tests/varnelctl/snapshot_support.h"
#include "varnelctl/explanation/advice.h"

namespace varnel::test {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::StartsWith;

// What the question means, by what `explain` finds it by.
std::vector<std::string> Explained(const std::string& question) {
  const CliResult result = RunCli({"explain", question, "--json"});
  EXPECT_EQ(result.status, 0) << question << ": " << result.err;
  std::vector<std::string> keys;
  if (result.status != 0) return keys;
  const json document = json::parse(result.out);
  for (const json& entry : document.at("explained")) keys.push_back(entry.at("explain"));
  return keys;
}

TEST(Explain, FindsEveryEntryByItsKeyAndByItsName) {
  for (const varnelctl::Advice& advice : varnelctl::AllAdvice()) {
    if (advice.name == varnelctl::advice::kOtherCode) continue;
    EXPECT_THAT(Explained(advice.Key()), ElementsAre(advice.Key()));
    EXPECT_THAT(Explained(std::string(advice.name)), testing::Contains(advice.Key()));
  }
}

TEST(Explain, TellsMeaningRemedyAndWhomToAsk) {
  EXPECT_EQ(RunCli({"explain", "VSS_E_VOLUME_IN_USE"}).out,
            "VSS_E_VOLUME_IN_USE (0x8004231d)\n"
            "  meaning: The volume is in use, so that the operation cannot have it for itself.\n"
            "  what to do: Close the programs that have files open on it, then try again.\n"
            "  whom to ask: the administrator of this host\n");
  const json document = json::parse(RunCli({"explain", "VSS_E_VOLUME_IN_USE", "--json"}).out);
  EXPECT_EQ(document["explained"], json::parse(R"JSON([
      {"explain":"VSS_E_VOLUME_IN_USE","kind":"code","title":"VSS_E_VOLUME_IN_USE (0x8004231d)","code":"0x8004231d",
       "meaning":"The volume is in use, so that the operation cannot have it for itself.",
       "remedy":"Close the programs that have files open on it, then try again.",
       "ask":"the administrator of this host","particulars":[]}])JSON"));
}

TEST(Explain, ANumberIsAnExitStatusElseAnAlertCodeElseACode) {
  const std::pair<const char*, const char*> questions[] = {
      {"12", "exit:12"},
      {"exit:12", "exit:12"},
      {"exit 12", "exit:12"},
      {"EXIT 12", "exit:12"},
      {"602", "602"},
      {"255", "255"},
      {"record:10", "record:10"},
      {"record 10", "record:10"},
      {"0x80042308", "VSS_E_OBJECT_NOT_FOUND"},
      {"0X80042308", "VSS_E_OBJECT_NOT_FOUND"},
      {"-2147212536", "VSS_E_OBJECT_NOT_FOUND"},
      {"2147754760", "VSS_E_OBJECT_NOT_FOUND"},
      {"1722", "RPC_S_SERVER_UNAVAILABLE"},
      {"0x800706ba", "RPC_S_SERVER_UNAVAILABLE"},
      {"5", "E_ACCESSDENIED"},
      {"0x5", "E_ACCESSDENIED"},
      {"0xEFFF0040", "ISDSC_DEVICE_BUSY_ON_SESSION"},
      {"(0x80042308).", "VSS_E_OBJECT_NOT_FOUND"},
  };
  for (const auto& [question, key] : questions) EXPECT_THAT(Explained(question), ElementsAre(key)) << question;
}

TEST(Explain, ANegativeNumberIsNoOption) {
  EXPECT_THAT(RunCli({"explain", "-2147212536"}).out, StartsWith("VSS_E_OBJECT_NOT_FOUND (0x80042308)\n"));
}

TEST(Explain, ANameMayBeInAnyCaseAndWithWhatStandsBeforeItInARecord) {
  EXPECT_THAT(Explained("vss_e_bad_state"), ElementsAre("VSS_E_BAD_STATE"));
  EXPECT_THAT(Explained("lunmismatch"), ElementsAre("record:10"));
  EXPECT_THAT(Explained("status=LunMismatch"), ElementsAre("record:10"));
  EXPECT_THAT(Explained(" \"LunMismatch\"; "), ElementsAre("record:10"));
  EXPECT_THAT(Explained("QueryStatus()"), ElementsAre("record:5"));
}

TEST(Explain, AWordOfSeveralMeaningsListsAll) {
  EXPECT_THAT(Explained("WriterFailure"), ElementsAre("600", "record:2"));
  EXPECT_THAT(Explained("RequestStatus=LowMemory"), ElementsAre("record:6", "record:7"));
  EXPECT_THAT(Explained("MissingHotfixes"), ElementsAre("255", "record:16"));
}

TEST(Explain, AWholeRecordIsItsMeaningAndThatOfItsError) {
  const std::string record =
      "RequestStatus=WriterFailure, WriterName=SqlServerWriter, WriterError=VSS_E_WRITERERROR_TIMEOUT, "
      "WriterStatus=VSS_WS_FAILED_AT_FREEZE, ApplicationError=0x0, ApplicationMsg=\x1b[2J, rc=VssWriterStatusError, "
      "ca=CheckWriterState;";
  EXPECT_THAT(Explained(record), ElementsAre("record:2", "VSS_E_WRITERERROR_TIMEOUT"));
  EXPECT_THAT(RunCli({"explain", record}).out,
              AllOf(HasSubstr("\n  read: RequestStatus=WriterFailure, WriterName=SqlServerWriter, "),
                    testing::Not(HasSubstr("\x1b"))));
}

TEST(Explain, ARecordOfABadStateTellsWhatItsCallWants) {
  const std::string out = RunCli({"explain",
                                  "m_pVssObject->StartSnapshotSet()=Failed, error=VSS_E_BAD_STATE, "
                                  "rc=COMMError, ca=ContactTechSupport;"})
                              .out;
  EXPECT_THAT(out, EndsWith("\n  StartSnapshotSet() wants InitializeForBackup before it, every operation begun to have "
                            "been waited for, and no set yet\n"));
  EXPECT_EQ(out.find("AddComponent() wants"), out.npos);
  EXPECT_THAT(RunCli({"explain", "VSS_E_BAD_STATE"}).out, HasSubstr("\n  AddComponent() wants "));
}

TEST(Explain, ALineOfErrorDetailsIsEveryRecordInIt) {
  EXPECT_THAT(
      Explained("writer=0,status=ExtarVolumesInVolColl, VolumesInvolvedInSnapshot =2 , ExtraVolumes =1, "
                "rc=ConfigWarning, ca=CheckVolumeCollection, ca=CheckHostsVolumes/Connections;\nExtra volumes in "
                "volume collection are:TSL0002:\nm_pVssObject->AddToSnapshotSet()=Failed, "
                "error=VSS_E_PROVIDER_VETO, rc=COMMError, ca=ContactTechSupport;\n"),
      ElementsAre("record:11", "record:1", "VSS_E_PROVIDER_VETO"));
}

TEST(Explain, AMessageIsWhatIsKnownInItEachOnce) {
  EXPECT_THAT(Explained("varnelctl: CreateVssSnapshotSet failed: VSS_E_PROVIDER_VETO (0x80042306)"),
              ElementsAre("VSS_E_PROVIDER_VETO"));
  EXPECT_EQ(RunCli({"explain", "failed:", "VSS_E_PROVIDER_VETO", "(0x80042306)"}).status, 0) << "without quotes";
}

TEST(Explain, WithoutAQuestionEverythingIsListed) {
  const std::string out = RunCli({"explain"}).out;
  for (const varnelctl::Advice& advice : varnelctl::AllAdvice()) {
    EXPECT_THAT(out, HasSubstr("\n  " + advice.Key() + "  " + std::string(advice.meaning) + "\n"));
  }
  EXPECT_EQ(json::parse(RunCli({"explain", "--json"}).out).at("explained").size(), varnelctl::AllAdvice().size());
}

TEST(Explain, WhatNobodyKnowsIsRefusedWithTheNearestName) {
  ExpectRefused(RunCli({"explain", "VSS_E_HOLD_WRITE_TIMEOUT"}),
                "varnelctl: nothing is known of \"VSS_E_HOLD_WRITE_TIMEOUT\"; did you mean "
                "\"VSS_E_HOLD_WRITES_TIMEOUT\"? ");
  ExpectRefused(RunCli({"explain", "status=LunMissmatch"}),
                "varnelctl: nothing is known of \"status=LunMissmatch\"; did you mean \"LunMismatch\"? ");
  for (const std::string question : {"", "98765", "exit:5", "exit:", "record:18", "99999999999", "0x", "0x1ffffffff",
                                     "-", "\x1b[2J", "\xff", "other", "0x-5", "12 13", "nothing of the kind"}) {
    ExpectRefused(RunCli({"explain", question}), "varnelctl: nothing is known of \"",
                  "(varnelctl explain lists what there is)\n");
    EXPECT_EQ(RunCli({"explain", question}).err.find('\x1b'), std::string::npos);
  }
}

class ExplainOnHost : public CliFixture {};

TEST_F(ExplainOnHost, ACodeThatTheTableLacksHasTheSystemsTextAndTheGeneralStep) {
  host().model().messages[0x80042999] = L"The moon is in the way.\r\n";
  EXPECT_THAT(
      Run({"explain", "0x80042999"}).out,
      StartsWith("The moon is in the way. (0x80042999)\n  meaning: A code that varnelctl has no advice for.\n"));
  EXPECT_THAT(Explained("VSS_E_ASRERROR_NO_ARCPATH"), ElementsAre("0x80042403"));
  EXPECT_THAT(Explained("0x80042998"), ElementsAre("0x80042998")) << "it is a failure, if nothing else";
}

TEST_F(ExplainOnHost, NothingIsAskedOfTheHost) {
  Run({"explain", "602"});
  EXPECT_THAT(host().calls().lines(), IsEmpty());
}

// ---- the next step ----

class NextStep : public SnapshotCommand {};

TEST_F(NextStep, FollowsTheRecordsOfAFailure) {
  hostFile["providers"] = json::array();
  std::ostringstream out;
  std::ostringstream err;
  varnelctl::RunVarnelctl({"--host", folder.Write("host.json", hostFile.dump()), "snapshot", "--app", "none", "--disk",
                           "TSL0001", "TSL0002"},
                          out, err);
  EXPECT_EQ(
      err.str(),
      "varnelctl: warning: the array's VSS hardware provider is not registered on this host\n"
      "varnelctl: adding the components and volumes failed: VSS_E_PROVIDER_NOT_REGISTERED (0x80042304)\n"
      "  for volume E:\\ (disk \"TSL0001\")\n"
      "m_pVssObject->AddToSnapshotSet()=Failed, error=VSS_E_PROVIDER_NOT_REGISTERED, rc=COMMError, "
      "ca=ContactTechSupport;\n"
      "  what to do: Run varnelctl providers. If the array's own is not registered, install or repair the array's "
      "host software, then try again; no disk or writer is at fault.\n"
      "  next: varnelctl explain VSS_E_PROVIDER_NOT_REGISTERED\n");
}

TEST_F(NextStep, IsInTheDocumentToo) {
  hostFile["providers"] = json::array();
  const json result = SnapshotJson({}, 15).at("result");
  EXPECT_EQ(result.at("explain"), "VSS_E_PROVIDER_NOT_REGISTERED");
  EXPECT_THAT(result.at("remedy").get<std::string>(), StartsWith("Run varnelctl providers. "));
}

TEST_F(NextStep, OfARefusalIsWhereToReadOnAndTheMessageIsTheRemedy) {
  EXPECT_EQ(Run({"snapshot", "--app", "mysql"}).next, "  next: varnelctl explain exit:2\n");
  EXPECT_EQ(RunCli({"disks", "--host", folder.File("none.json")}).next, "  next: varnelctl explain exit:2\n");
}

TEST_F(NextStep, OfNoRoomNamesTheVolumesOfTheSet) {
  hostFile["faults"] = json::parse(R"([{"async": "DoSnapshotSet", "result": "VSS_E_INSUFFICIENT_STORAGE"}])");
  const CliResult result = Snapshot({}, 15);
  EXPECT_THAT(result.err, HasSubstr("\n  volumes of the set: E:\\ on disk \"TSL0001\", F:\\ on disk \"TSL0002\"\n"));
  EXPECT_THAT(result.next, EndsWith("  next: varnelctl explain VSS_E_INSUFFICIENT_STORAGE\n"));
}

TEST_F(NextStep, OfEachFailureIsFoundByExplain) {
  for (const char* result : {"VSS_E_BAD_STATE", "E_ACCESSDENIED", "VSS_E_FLUSH_WRITES_TIMEOUT", "0x800706ba",
                             "VSS_E_REVERT_IN_PROGRESS", "0x80049999"}) {
    hostFile["faults"] = {{{"async", "DoSnapshotSet"}, {"result", result}}};
    const std::string next = Snapshot({}, 15).next;
    const std::string mark = "  next: varnelctl explain ";
    ASSERT_THAT(next, HasSubstr(mark)) << result;
    const std::string key = next.substr(next.find(mark) + mark.size());
    EXPECT_EQ(Explained(key.substr(0, key.size() - 1)).size(), 1u) << key;
  }
}

TEST_F(NextStep, OfAnAcceptedExtraVolumeIsNone) {
  hostFile["disks"].push_back(DiskJson("TSL0003", 3, "G:\\"));
  EXPECT_EQ(Snapshot({"--disk", "TSL0001", "TSL0002", "TSL0003", "--accept-extra-volumes"}).next, "");
}

}  // namespace
}  // namespace varnel::test
