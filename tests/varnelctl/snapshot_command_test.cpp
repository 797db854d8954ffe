// varnelctl snapshot: what it prints, saves and ends with.
#include <cstdlib>

#include "tests/varnelctl/snapshot_support.h"
#include "varnelctl/sets/snapshot_options.h"

namespace varnel::test {
namespace {

using nlohmann::json;
using testing::StartsWith;

constexpr char kSetId[] = "{00000002-5e1f-4c3d-9a0b-000000000000}";

constexpr char kCleanRun[] = R"(looking for the disks: done (0 ms)
checking the host: done (0 ms)
checking the volumes: done (0 ms)
looking for the array's provider: done (0 ms)
starting the request: done (0 ms)
gathering the writers' metadata: done (0 ms)
selecting the components: done (0 ms)
adding the components and volumes: done (0 ms)
asking the writers to prepare: done (0 ms)
taking the snapshot (preparing, freezing, thawing, after the snapshot): done (0 ms)
reading the results: done (0 ms)
making the catalogue: done (0 ms)
completing the backup: done (0 ms)

Volumes
  E:\ on disk "TSL0001": shadow copy on disk "SHADOW-TSL0001"
  F:\ on disk "TSL0002": shadow copy on disk "SHADOW-TSL0002"
Not in the set
  SQL01\tools (Demo Writer): disk "SYS" holds the system
Full backup, context backup (auto-release, with writers), taken by provider "Tessel VSS Hardware Provider" 1.0
  a writer may truncate its logs and take it for the base of later backups
Snapshot set {00000002-5e1f-4c3d-9a0b-000000000000}: exists until this program ends
CAPTURED 2 of 3 components; set {00000002-5e1f-4c3d-9a0b-000000000000} until this program ends
)";

std::vector<std::string> PathsOf(const json& writer, const std::string& flag) {
  std::vector<std::string> paths;
  for (const json& component : writer["components"]) {
    if (component[flag] == true) paths.push_back(component["fullPath"]);
  }
  return paths;
}

TEST_F(SnapshotCommand, ACleanRunEndsWithTheVerdict) {
  EXPECT_EQ(Output(Whole({})), kCleanRun);
}

TEST_F(SnapshotCommand, AComponentOnAVolumeOfSeveralDisksIsLeftOutAndToldWhy) {
  for (json& disk : hostFile["disks"]) {
    if (disk["serial"] == "TSL0002") disk["volumes"][0]["otherDisks"] = {"TSL0001"};
  }
  const CliResult result = Snapshot({"--disk", "TSL0001"});

  EXPECT_THAT(
      result.out,
      HasSubstr("  SQL01\\crm (Demo Writer): F:\\data\\* lies on several disks (2, 1), so no snapshot of one of "
                "them holds it whole (move it to a volume on one disk of the array)\n"));
  EXPECT_THAT(result.out, Not(HasSubstr("\\SQL01\\crm  on")));
}

TEST_F(SnapshotCommand, JsonIsOneDocumentWithTheWholeOutcome) {
  const json outcome = SnapshotJson();

  EXPECT_EQ(outcome["snapshotSetId"], kSetId);
  EXPECT_EQ(outcome["result"], json::parse(R"({"alertCode":0,"hresult":null,"message":"","details":[],"remedy":"",
      "explain":"","step":null})"));
  EXPECT_EQ(outcome["errorDetails"], "");
  ASSERT_EQ(outcome["writers"].size(), 1u);
  EXPECT_THAT(PathsOf(outcome["writers"][0], "added"), ElementsAre("\\SQL01\\sales", "\\SQL01\\crm"));
  EXPECT_EQ(outcome["writers"][0]["components"][1], json::parse(R"({"fullPath":"\\SQL01\\crm","caption":"crm",
      "excluded":false,"added":true,"failed":false,"failureCode":"0x00000000","disks":["TSL0001","TSL0002"],
      "volumes":["\\\\?\\Volume{00000001-0000-0000-0000-000000000000}\\",
      "\\\\?\\Volume{00000002-0000-0000-0000-000000000000}\\"],
      "place":"captured","reason":null,"why":null,"because":null,"missingDisks":[],"files":[]})"));
  EXPECT_EQ(outcome["writers"][0]["components"][2]["why"], "disk \"SYS\" holds the system");
  ASSERT_EQ(outcome["snapshots"].size(), 2u);
  EXPECT_EQ(outcome["snapshots"][1]["mountPoint"], "F:\\");
  EXPECT_EQ(outcome["snapshots"][1]["sourceSerialNumber"], "TSL0002");
  EXPECT_EQ(outcome["snapshots"][1]["device"], "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy2\\");
  EXPECT_EQ(outcome["snapshots"][1]["disk"], "\\\\.\\PhysicalDrive4");
  EXPECT_EQ(outcome["snapshots"][1]["serialNumber"], "SHADOW-TSL0002");
  EXPECT_EQ(outcome["catalog"]["TSL0001"]["appObjectNames"], json({"sales", "crm"}));
  EXPECT_EQ(outcome["databases"], "ALL_DB");
  EXPECT_EQ(outcome["setState"], "released");
  EXPECT_EQ(outcome["phases"].back()["name"], "SetBackupStatus");
  EXPECT_THAT(outcome["document"].get<std::string>(), StartsWith("<BACKUP_COMPONENTS "));
}

TEST_F(SnapshotCommand, WritesTheDocumentTheCatalogueAndTheCalls) {
  const std::string document = folder.File("out.xml");
  const std::string catalog = folder.File("out.json");
  const std::string calls = folder.File("calls.txt");
  const json outcome = SnapshotJson({"--document", document, "--catalog", catalog, "--calls", calls});

  EXPECT_EQ(ReadFile(document), outcome["document"]);
  EXPECT_EQ(json::parse(ReadFile(catalog)), outcome["catalog"]);
  const std::string saved = ReadFile(calls);
  EXPECT_THAT(saved, HasSubstr("IVssBackupComponents::DoSnapshotSet("));
  EXPECT_THAT(saved, testing::EndsWith("IVssBackupComponents::FreeWriterMetadata() = S_OK\n"));
}

TEST_F(SnapshotCommand, ExtraVolumesEndWith14AndTheSetIsDeleted) {
  hostFile["disks"].push_back(DiskJson("TSL0003", 3, "G:\\"));
  const json outcome = SnapshotJson({"--disk", "TSL0001", "TSL0002", "TSL0003"}, 14);

  EXPECT_EQ(outcome["result"]["alertCode"], 701);
  EXPECT_EQ(outcome["setState"], "deleted");
  EXPECT_EQ(outcome["result"]["details"], json({"Extra volumes in the volume collection : TSL0003"}));
  EXPECT_EQ(outcome["errorDetails"],
            "status=ExtarVolumesInVolColl, VolumesInvolvedInSnapshot =2 , ExtraVolumes =1, rc=ConfigWarning, "
            "ca=CheckVolumeCollection, ca=CheckHostsVolumes/Connections;\n"
            "Extra volumes in volume collection are:TSL0003:\n");
  EXPECT_EQ(outcome["snapshots"].size(), 3u);
  EXPECT_EQ(outcome["catalog"]["tsl0003"]["otherObjectNames"], json({"G:\\"}));
}

// The library gives volumes, serial numbers and lists in the thread's code page, objects and records in UTF-8.
TEST_F(SnapshotCommand, WhatTheLibraryGivesInTheCodePageIsPrintedInUtf8) {
  for (const std::string name : {"Donn\u00e9es", "\u0414\u0430\u043d\u043d\u044b\u0435", "\U0001F680"}) {
    const std::string mountPoint = "E:\\" + name + "\\";
    hostFile["disks"][3] = DiskJson("TSL0003", 3, mountPoint);
    const Arguments extra = {"--disk", "TSL0001", "TSL0002", "TSL0003", "--accept-extra-volumes"};
    EXPECT_EQ(SnapshotJson(extra)["catalog"]["tsl0003"]["otherObjectNames"], json({mountPoint}));
    EXPECT_THAT(Snapshot({"--verbose", "--disk", "TSL0001", "TSL0002", "TSL0003", "--accept-extra-volumes"}).out,
                HasSubstr("other name   " + mountPoint + "\n"));

    const Arguments unknown = {"--disk", "TSL0001", "TSL0002", name, "--accept-unknown-disks"};
    EXPECT_THAT(SnapshotJson(unknown, 14)["errorDetails"].get<std::string>(), EndsWith("are:" + name + ":\n"));
    EXPECT_THAT(Snapshot(unknown, 14).err, EndsWith("are:" + name + ":\n"));
  }
}

TEST_F(SnapshotCommand, AcceptedExtraVolumesAreAWarning) {
  hostFile["disks"].push_back(DiskJson("TSL0003", 3, "G:\\"));
  const CliResult result = Snapshot({"--disk", "TSL0001", "TSL0002", "TSL0003", "--accept-extra-volumes"});

  EXPECT_EQ(result.err,
            "varnelctl: warning: Extra volumes found in the volume collection. \n"
            "  Extra volumes in the volume collection : TSL0003\n");
}

TEST_F(SnapshotCommand, ADiskThatHoldsNothingEligibleEndsWith12AndTheMismatch) {
  const CliResult result = Snapshot({"--disk", "TSL0002"}, 12);

  EXPECT_EQ(
      result.err,
      "varnelctl: Number of disks added in the snapshot set were different than listed in the protection set. "
      "This can happen due to incorrect configuration or application objects in incorrect state. Check the "
      "protection set configuration and ensure that objects being backed up are in correct state.\n"
      "  while selecting the components\n"
      "   Volumes in volume collection: TSL0002   Volumes containing application components eligible for backup: \n"
      "status=LunMismatch, VolCollVolumes=1, VolumesInvolvedInSnapshot=0, rc=ConfigError, "
      "ca=CheckVolumeCollection, ca=CheckHostsVolumes/Connections;\n"
      "Input list of volumes in volume collection: TSL0002;\n"
      "List of volumes used by application writer : ;\n");
  EXPECT_THAT(result.out,
              HasSubstr("  SQL01\\sales (Demo Writer): not in the protection set: disk \"TSL0001\" (add it with --disk "
                        "TSL0001)\n"));
}

TEST_F(SnapshotCommand, AWriterThatFailsEndsWith10AndTheFailedComponents) {
  hostFile["faults"] = json::array({{{"writer", "Demo Writer"},
                                     {"event", "freeze"},
                                     {"failure", "VSS_E_WRITERERROR_TIMEOUT"},
                                     {"applicationResult", "0x1f"},
                                     {"applicationMessage", "log full"}}});
  const json outcome = SnapshotJson({}, 10);

  EXPECT_EQ(outcome["result"]["alertCode"], 600);
  EXPECT_THAT(PathsOf(outcome["writers"][0], "failed"), ElementsAre("\\SQL01\\sales", "\\SQL01\\crm"));
  EXPECT_EQ(outcome["writers"][0]["components"][0]["failureCode"], "0x800423f2");
  EXPECT_THAT(outcome["errorDetails"].get<std::string>(), HasSubstr("ApplicationMsg=log full"));
  EXPECT_EQ(outcome["snapshots"].size(), 2u) << "identifiers that the array's log knows";
}

TEST_F(SnapshotCommand, AProviderThatIsNotRegisteredIsWarnedOfAndEndsWith15) {
  hostFile["providers"] = json::array();
  const CliResult result = Snapshot({}, 15);

  EXPECT_EQ(result.err,
            "varnelctl: warning: the array's VSS hardware provider is not registered on this host\n"
            "varnelctl: adding the components and volumes failed: VSS_E_PROVIDER_NOT_REGISTERED (0x80042304)\n"
            "  for volume E:\\ (disk \"TSL0001\")\n"
            "m_pVssObject->AddToSnapshotSet()=Failed, error=VSS_E_PROVIDER_NOT_REGISTERED, rc=COMMError, "
            "ca=ContactTechSupport;\n");
  EXPECT_THAT(result.out, testing::EndsWith("\nFAILED: nothing was captured: adding the components and volumes failed: "
                                            "VSS_E_PROVIDER_NOT_REGISTERED (0x80042304)\n"));
}

TEST_F(SnapshotCommand, ATestPointFailsTheSnapshotAfterItWasTaken) {
  const json outcome = SnapshotJson({"--test-points", "0x1"}, 15);
  EXPECT_EQ(outcome["result"]["hresult"], "0x80042315");
  EXPECT_EQ(outcome["snapshotSetId"], kSetId);
}

TEST_F(SnapshotCommand, ATransportableSetHasNoDevicesHere) {
  const json outcome = SnapshotJson({"--context", "app-rollback+transportable"});
  EXPECT_EQ(outcome["snapshots"][0]["device"], "");
  EXPECT_EQ(outcome["snapshots"][0]["serialNumber"], "");
  EXPECT_THAT(Snapshot({"--context", "0x29"}).out,
              HasSubstr("  E:\\ on disk \"TSL0001\": not surfaced on this host\n"));
}

TEST_F(SnapshotCommand, AWriterCodeLimitsTheSetToTheDatabasesThatTheArrayNames) {
  const json outcome = SnapshotJson({"--disk", "TSL0001", "--writer-code", "2"});
  EXPECT_THAT(PathsOf(outcome["writers"][0], "added"), ElementsAre("\\SQL01\\sales"));
  EXPECT_EQ(outcome["databases"], "sales@sql01");
  EXPECT_THAT(Snapshot({"--writer-code", "2"}, 14).out,
              HasSubstr("  SQL01\\crm (Demo Writer): it is not among the databases that the array named (have the "
                        "array name it, or use --writer-code 0)\n"));
}

TEST_F(SnapshotCommand, WhatItCannotDoIsAUsageError) {
  const std::vector<Arguments> cases = {{"--disk"},
                                        {"--context", "nonsense"},
                                        {"--context", "backup+"},
                                        {"--test-points", "many"},
                                        {"--backup-type", "half"},
                                        {"--writer-code", "x"},
                                        {"--then", "forget"},
                                        {"--then", "1"},
                                        {"--backup-type", "1"},
                                        {"--document", "no/such/folder/out.xml"},
                                        {"--app", "oracle"}};
  for (const Arguments& arguments : cases) {
    SCOPED_TRACE(testing::PrintToString(arguments));
    ExpectRefused(Snapshot(arguments, 2), "varnelctl: ");
  }
  ExpectRefused(Run({"snapshot", "--app", "none"}), "varnelctl: ");
}

TEST_F(SnapshotCommand, TheListOfDisksEndsAtTheNextOption) {
  const std::string file = folder.Write("host.json", hostFile.dump());
  const CliResult result =
      RunCli({"snapshot", "--disk", "TSL0001", "TSL0002", "--host", file, "--app", "none", "--json"});
  EXPECT_EQ(result.status, 0) << result.err;

  for (const char* option : {"--host", "--app", "--json", "-h", "--hsot"}) {
    ExpectRefused(RunCli({"snapshot", "--app", "none", "--disk", option, file}),
                  std::string("varnelctl: --disk: no value stands before ") + option + " (");
  }
}

TEST_F(SnapshotCommand, ASerialNumberMayBeANegativeNumber) {
  EXPECT_THAT(Snapshot({"--disk", "-5", "--accept-unknown-disks"}, 12).err,
              StartsWith("varnelctl: warning: no disk of this host has serial \"-5\"\n"));
}

TEST(SnapshotContext, IsANumberOrNamesJoinedByPlus) {
  EXPECT_EQ(varnelctl::ParseContext("backup"), 0u);
  EXPECT_EQ(varnelctl::ParseContext("app-rollback+transportable"), 0x29u);
  EXPECT_EQ(varnelctl::ParseContext("0x1D"), 0x1Du);
  EXPECT_EQ(varnelctl::ParseContext("41"), 41u);
  EXPECT_EQ(varnelctl::ParseContext(""), std::nullopt);
  EXPECT_EQ(varnelctl::ParseContext("0x"), std::nullopt);
  EXPECT_EQ(varnelctl::ParseContext("-1"), std::nullopt);
  EXPECT_EQ(varnelctl::ParseContext("4294967296"), std::nullopt);
}

// The captured server: its SQL Server databases lie on E: and F:, everything else on C:.
class CapturedServer : public SnapshotCommand {
 protected:
  void SetUp() override {
    SnapshotCommand::SetUp();
    const char* captures = std::getenv("VARNEL_CAPTURES");
    if (captures == nullptr || !std::filesystem::is_directory(captures)) {
      GTEST_SKIP() << "VARNEL_CAPTURES names no folder with captured documents";
    }
    hostFile = {{"disks", json::array({DiskJson("SYS", 0, "C:\\"), DiskJson("TSLE", 1, "E:\\"),
                                       DiskJson("TSLF", 2, "F:\\"), DiskJson("TSLG", 3, "G:\\")})},
                {"providers", SmallHostJson()["providers"]}};
    for (int n = 0; n <= 10; ++n) {
      const auto path = std::filesystem::path(captures) / ("WM" + std::to_string(n) + ".xml");
      hostFile["writers"].push_back({{"document", path.string()}});
    }
  }

  std::vector<std::string> Added(const json& outcome) {
    std::vector<std::string> added;
    for (const json& writer : outcome["writers"]) {
      for (std::string& path : PathsOf(writer, "added")) added.push_back(std::move(path));
    }
    return added;
  }
};

TEST_F(CapturedServer, ComponentsAreChosenByTheirDisks) {
  const json both = SnapshotJson({"--disk", "TSLE", "TSLF"});
  EXPECT_THAT(Added(both),
              ElementsAre("\\WIN2012-SQL17-2\\master", "\\WIN2012-SQL17-2\\model", "\\WIN2012-SQL17-2\\msdb",
                          "\\WIN2012-SQL17-2\\SecondServerDb", "\\WIN2012-SQL17-2\\OtherSanDatabase"));
  const json one = SnapshotJson({"--disk", "TSLF"});
  EXPECT_THAT(Added(one), ElementsAre("\\WIN2012-SQL17-2\\OtherSanDatabase"));
}

TEST_F(CapturedServer, ADiskWithoutADatabaseIsExtra) {
  const json outcome = SnapshotJson({"--disk", "TSLE", "TSLG"}, 14);
  EXPECT_EQ(outcome["result"]["alertCode"], 701);
  EXPECT_EQ(outcome["snapshots"].size(), 2u);
}

}  // namespace
}  // namespace varnel::test
