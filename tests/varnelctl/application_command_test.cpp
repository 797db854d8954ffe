// varnelctl snapshot for the applications, on the sample hosts.
#include "tests/support/golden.h"
#include "tests/varnelctl/snapshot_support.h"

namespace varnel::test {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::EndsWith;
using testing::StartsWith;

// A host file may have comments.
json SampleJson(const std::string& name) {
  return json::parse(ReadFile(std::string(VARNEL_EXAMPLES "/hosts/") + name), nullptr, true, true);
}

class ApplicationSnapshot : public SnapshotFixture {
 protected:
  explicit ApplicationSnapshot(const std::string& sample) { hostFile = SampleJson(sample); }

  // The lines of the call log that start so.
  std::vector<std::string> SavedCalls(const std::string& start) {
    std::vector<std::string> lines = LinesOf(ReadFile(calls));
    std::erase_if(lines, [&](const std::string& line) { return !line.starts_with(start); });
    return lines;
  }

  const std::string calls = folder.File("calls.txt");
};

// SQL Server

class SqlSnapshot : public ApplicationSnapshot {
 protected:
  SqlSnapshot() : ApplicationSnapshot("sql-server.json") {}

  Arguments With(const Arguments& more) const {
    Arguments all = arguments;
    all.insert(all.end(), more.begin(), more.end());
    return all;
  }

  const Arguments arguments = {"--app", "sql", "--disk", "TSL0001", "TSL0002", "TSL0003"};
};

TEST_F(SqlSnapshot, TakesTheSqlWritersOnly) {
  const json outcome = SnapshotJson(arguments);

  for (const json& writer : outcome["writers"]) {
    EXPECT_EQ(writer["excluded"], writer["name"] != "SqlServerWriter") << writer["name"];
  }
  EXPECT_EQ(outcome["setState"], "released");
}

TEST_F(SqlSnapshot, CataloguesDatabasesByTheirPaths) {
  const json outcome = SnapshotJson(arguments);

  EXPECT_EQ(outcome["catalog"]["TSL0001"],
            json::parse(
                R"({"appObjectIds":["\\SQL01\\master","\\SQL01\\model","\\SQL01\\msdb","\\SQL01\\sales","\\SQL01\\crm"],
                            "appObjectNames":[],"otherObjectIds":[],"otherObjectNames":[]})"));
  EXPECT_THAT(Snapshot(With({"--verbose"})).out, HasSubstr("\nCatalogue by disk\n"
                                                           "  disk \"TSL0001\"\n"
                                                           "    object id    \\SQL01\\master\n"
                                                           "    object id    \\SQL01\\model\n"
                                                           "    object id    \\SQL01\\msdb\n"
                                                           "    object id    \\SQL01\\sales\n"
                                                           "    object id    \\SQL01\\crm\n"
                                                           "  disk \"TSL0002\"\n"));
}

TEST_F(SqlSnapshot, WritersOfOtherApplicationsAreLeftOutInOneLineEach) {
  EXPECT_THAT(Snapshot(arguments).out, HasSubstr("\n10 writers of other applications (--verbose lists them)\n"));
  const std::string whole = Snapshot(With({"--verbose"})).out;
  EXPECT_THAT(whole, HasSubstr("\n10 writers of other applications\n"));
  EXPECT_THAT(whole, HasSubstr("Left out\n"
                               "  Task Scheduler Writer: not a writer of this application\n"
                               "  VSS Metadata Store Writer: not a writer of this application\n"
                               "  Performance Counters Writer: not a writer of this application\n"
                               "  System Writer: not a writer of this application\n"
                               "  ASR Writer: not a writer of this application\n"
                               "  SqlServerWriter\n"
                               "    \\SQL01\\archive: not in the protection set: disk \"TSL0004\"\n"
                               "    \\SQL01\\tools: disk \"LOCAL-SSD-0001\" holds the system\n"
                               "  Shadow Copy Optimization Writer: not a writer of this "
                               "application\n"
                               "  Registry Writer: not a writer of this application\n"
                               "  COM+ REGDB Writer: not a writer of this application\n"
                               "  WMI Writer: not a writer of this application\n"
                               "  BITS Writer: not a writer of this application\n"));
}

TEST_F(SqlSnapshot, AnExtraDiskIsCataloguedWithItsVolumes) {
  for (json& writer : hostFile["writers"]) {
    if (!writer.contains("components")) continue;
    json& components = writer["components"];
    components.erase(std::remove_if(components.begin(), components.end(),
                                    [](const json& component) { return component["name"] == "archive"; }),
                     components.end());
  }
  const CliResult result = Snapshot(
      {"--app", "sql", "--disk", "TSL0001", "TSL0002", "TSL0003", "TSL0004", "--accept-extra-volumes", "--verbose"});

  EXPECT_THAT(result.out, HasSubstr("  disk \"tsl0004\"\n"
                                    "    other id     \\\\?\\Volume{5f1c0a25-7d1e-4c55-9a60-1b2c3d4e5f05}\\\n"
                                    "    other name   G:\\\n"));
}

TEST_F(SqlSnapshot, AHostWithoutItsWriterIsRefusedInPlainWords) {
  hostFile = SampleJson("exchange.json");
  const CliResult result = Snapshot({"--app", "sql", "--disk", "TSL1001", "--then", "mask"}, 12);

  EXPECT_EQ(
      result.err,
      "varnelctl: warning: --then mask is left out: no snapshot set was taken\n"
      "varnelctl: VSS writer is not present on the host.\n"
      "  while selecting the components\n"
      "  SQL Server is missing: no SqlServerWriter answered. Its service is stopped, or it failed at Identify.\n");
  EXPECT_THAT(result.next, StartsWith("  what to do: Start the service \"SQL Server VSS Writer\" (SQLWriter); "));
  EXPECT_THAT(result.out, EndsWith("\nFAILED: nothing was captured: VSS writer is not present on the host\n"));
}

TEST_F(SqlSnapshot, EachApplicationsMissingWriterIsNamed) {
  const std::pair<const char*, const char*> applications[] = {
      {"exchange", "  Exchange is missing: no Microsoft Exchange Writer answered."},
      {"hyperv", "  Hyper-V is missing: no Microsoft Hyper-V VSS Writer answered."},
  };
  hostFile["files"] = json::parse(R"({"C:\\Windows\\system32\\Vmms.exe": {"version": "10.0.17763.1"}})");
  for (const auto& [application, advice] : applications) {
    EXPECT_THAT(Snapshot({"--app", application, "--disk", "TSL0001"}, 12).err, HasSubstr(advice));
  }
  hostFile.erase("writers");
  EXPECT_THAT(Snapshot({"--disk", "TSL0001"}, 12).err, HasSubstr("  No writer of any application answered: "));
}

// Exchange

class ExchangeSnapshot : public ApplicationSnapshot {
 protected:
  ExchangeSnapshot() : ApplicationSnapshot("exchange.json") {}

  Arguments With(Arguments more) {
    more.insert(more.begin(), {"--app", "exchange", "--disk", "TSL1001", "TSL1002", "--calls", calls});
    return more;
  }
};

TEST_F(ExchangeSnapshot, VerifiesDatabasesAndLogsOnTheSnapshot) {
  const json outcome = SnapshotJson(With({"--verify"}));

  const std::vector<std::string> phases = PhasesOf(outcome);
  EXPECT_THAT(std::vector<std::string>(phases.end() - 3, phases.end()),
              ElementsAre("GetSnapshotMeatadata", "VerifySnapShotData", "SetBackupStatus"));
  EXPECT_EQ(outcome["steps"][outcome["steps"].size() - 2]["name"], "verifying");
  EXPECT_THAT(SavedCalls("CreateProcessW("),
              ElementsAre(HasSubstr("MDB1.edb"), HasSubstr("E00"), HasSubstr("MDB2.edb"), HasSubstr("E01")));
  EXPECT_THAT(SavedCalls("CreateProcessW(")[0],
              StartsWith("CreateProcessW(eseutil.exe /k /i \"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1\\"));
}

TEST_F(ExchangeSnapshot, WithoutVerifyNothingIsRun) {
  Snapshot(With({}));
  EXPECT_THAT(SavedCalls("CreateProcessW("), IsEmpty());
}

TEST_F(ExchangeSnapshot, DatabasesCanBeLeftUnverified) {
  Snapshot(With({"--verify", "--skip-db-verification"}));
  EXPECT_THAT(SavedCalls("CreateProcessW("), ElementsAre(HasSubstr("E00"), HasSubstr("E01")));
}

TEST_F(ExchangeSnapshot, ADamagedFileEndsWith13AndTheSetIsDeleted) {
  hostFile["commands"].insert(hostFile["commands"].begin(), json::parse(R"({"match": "*MDB2.edb*", "exitCode": 1})"));
  hostFile["messages"]["1"] = "Incorrect function.\r\n";
  const CliResult result = Snapshot(With({"--verify", "--context", "app-rollback", "--disconnect"}), 13);

  EXPECT_THAT(result.out,
              AllOf(HasSubstr("verifying the snapshot: failed (0 ms)\ncompleting the backup: done (0 ms)\n"),
                    HasSubstr("}: deleted, because the request failed\n")));
  EXPECT_THAT(result.err, StartsWith("varnelctl: warning: --disconnect is left out: the set was deleted because the "
                                     "request failed\nvarnelctl: "));
  EXPECT_THAT(SavedCalls("CreateProcessW("),
              ElementsAre(HasSubstr("MDB1.edb"), HasSubstr("E00"), HasSubstr("MDB2.edb")))
      << "the first damaged file ends the verification";
  EXPECT_EQ(SavedCalls("IVssBackupComponents::DeleteSnapshots(").size(), 1u);
  EXPECT_THAT(SavedCalls("IVssBackupComponents::SetBackupSucceeded("),
              ElementsAre(EndsWith(", false) = S_OK"), EndsWith(", false) = S_OK")));
}

TEST_F(ExchangeSnapshot, ATestPointFailsTheVerification) {
  Snapshot(With({"--test-points", "0x2"}));  // nothing is verified
  const json outcome = SnapshotJson(With({"--test-points", "0x2", "--verify"}), 13);

  EXPECT_EQ(outcome["result"]["alertCode"], 603);
  EXPECT_EQ(outcome["setState"], "deleted");
  EXPECT_THAT(SavedCalls("CreateProcessW("), IsEmpty());
}

TEST_F(ExchangeSnapshot, OnlyExchangeHasAVerificationOfDatabasesToSkip) {
  ExpectRefused(Snapshot({"--app", "sql", "--disk", "TSL1001", "--skip-db-verification"}, 2),
                "varnelctl: --skip-db-verification goes with --app exchange only\n");
}

// Hyper-V

class HyperVSnapshot : public ApplicationSnapshot {
 protected:
  HyperVSnapshot() : ApplicationSnapshot("hyperv-cluster.json") {}
};

TEST_F(HyperVSnapshot, CataloguesMachinesByIdAndName) {
  const json outcome = SnapshotJson({"--app", "hyperv", "--disk", "TSL2001"});

  EXPECT_EQ(outcome["catalog"]["TSL2001"]["appObjectNames"], json({"WEB01", "APP01"}));
}

TEST_F(HyperVSnapshot, AMachineThatFailsEndsWith11AndTheSetHoldsTheOthers) {
  hostFile["faults"] = json::parse(R"([ { "writer": "Microsoft Hyper-V VSS Writer", "event": "postSnapshot",
      "failure": "VSS_E_WRITERERROR_PARTIAL_FAILURE",
      "components": [ { "fullPath": "\\DC36FC90-2248-4D70-ACA4-A1A9F5B19F71", "failure": "VSS_E_WRITERERROR_TIMEOUT",
                        "applicationResult": "0x1", "applicationMessage": "guest busy" } ] } ])");
  const CliResult result =
      Snapshot({"--app", "hyperv", "--disk", "TSL2001", "--context", "app-rollback", "--verbose"}, 11);

  EXPECT_THAT(result.out, AllOf(HasSubstr("}: kept until it is deleted\n"),
                                HasSubstr("Captured application-consistent\n"
                                          "  Microsoft Hyper-V VSS Writer\n"
                                          "    \\EC7AC8AD-1B2B-406B-AAE1-2C972399D29D  on \"TSL2001\"\n"
                                          "In the set, but failed by their writer\n"
                                          "  Microsoft Hyper-V VSS Writer\n"
                                          "    \\DC36FC90-2248-4D70-ACA4-A1A9F5B19F71  on \"TSL2001\": "),
                                HasSubstr("In the set, but failed by their writer\n"
                                          "  APP01: VSS_E_WRITERERROR_TIMEOUT: guest busy\n"),
                                HasSubstr("    object name  WEB01\n"
                                          "    other id     DC36FC90-2248-4D70-ACA4-A1A9F5B19F71\n"
                                          "    other name   APP01\n")));
  EXPECT_THAT(result.err, HasSubstr("Application error message: guest busy"));
}

struct Refusal {
  int id;
  const char* name;
  Arguments disks;
  std::string message;
  std::string status;
  std::string advice;         // the rest of the alert record
  const char* change = "{}";  // merged into the host
  const char* checked = "volumes";

  std::string Err() const {
    return "varnelctl: " + message + "\n  while checking the " + checked + "\n  status " + status + "\n" + Named() +
           "Error, status=" + status + ", rc=ConfigError, ca=" + advice + ";\n";
  }
  // The volumes of the record as people know them.
  std::string Named() const {
    const std::map<std::string, std::string> volumes = {
        {"TSL2001", "\\\\?\\Volume{a37f5c42-1b8e-4f60-b5d1-3d4e5f6a7b02}\\ is C:\\ClusterStorage\\Volume1\\"},
        {"TSL2003", "\\\\?\\Volume{a37f5c44-1b8e-4f60-b5d1-3d4e5f6a7b04}\\ is Q:\\"},
        {"TSL2004", "\\\\?\\Volume{a37f5c45-1b8e-4f60-b5d1-3d4e5f6a7b05}\\ is D:\\"}};
    if (checked != std::string("volumes")) return {};
    std::string named;
    for (const std::string& disk : disks) {
      named += (named.empty() ? "  " : ", ") + volumes.at(disk) + " on disk \"" + disk + "\"";
    }
    return named + "\n";
  }
};

std::vector<Refusal> Refusals() {
  return {{250,
           "CsvWithOtherClusteredVolumes",
           {"TSL2001", "TSL2003"},
           "Combining cluster shared volumes (CSVs) and non-CSVs in same volume collection is not supported.",
           "TesselHyperVValidation_MixOfCSV_NonCSVVolumes",
           "CheckVolumeCollectionCSV:\\\\?\\Volume{a37f5c42-1b8e-4f60-b5d1-3d4e5f6a7b02}\\"
           "Non CSV:\\\\?\\Volume{a37f5c44-1b8e-4f60-b5d1-3d4e5f6a7b04}\\"},
          {251,
           "AClusteredVolumeThatIsNoCsv",
           {"TSL2003"},
           "One or more volumes in volume collection are clustered but not configured as CSV. Hyper-V VSS snapshot for "
           "non-CSV clustered volume is not supported.",
           "TesselHyperVValidation_ClusterDiskFound",
           "CheckVolumeCollectionCluster Disk:\\\\?\\Volume{a37f5c44-1b8e-4f60-b5d1-3d4e5f6a7b04}\\"},
          {253,
           "ClusteredWithStandAloneVolumes",
           {"TSL2001", "TSL2004"},
           "Combining cluster and non-cluster Windows volumes in same volume collection is not supported.",
           "TesselHyperVValidation_MixOfStandalone_ClusterVolumes",
           "CheckVolumeCollectionClustered:\\\\?\\Volume{a37f5c42-1b8e-4f60-b5d1-3d4e5f6a7b02}\\"
           "Standalone:\\\\?\\Volume{a37f5c45-1b8e-4f60-b5d1-3d4e5f6a7b05}\\"},
          {254,
           "AnOperatingSystemThatIsNoServer",
           {"TSL2001"},
           "Version of operating system running on the host is not supported by this feature.",
           "UnsupportedOSVersion",
           "CheckHostOSVersion",
           R"({"os": {"server": false}})",
           "host"},
          {255,
           "AMissingHotfix",
           {"TSL2001"},
           "Host is missing some of the hotfixes required for using this feature.",
           "MissingHotfixes",
           "VerifyRequiredHotfixes",
           R"({"files": {"C:\\Windows\\system32\\Vmms.exe": {"version": "6.3.9600.17119"}}})",
           "host"}};
}

class HyperVRefusal : public HyperVSnapshot, public testing::WithParamInterface<Refusal> {
 protected:
  void SetUp() override {
    HyperVSnapshot::SetUp();
    hostFile.merge_patch(json::parse(GetParam().change));
    arguments.insert(arguments.end(), GetParam().disks.begin(), GetParam().disks.end());
  }

  Arguments arguments = {"--app", "hyperv", "--disk"};
};

TEST_P(HyperVRefusal, EndsWith16AndTheCataloguesMessage) {
  const CliResult result = Snapshot(arguments, 16);

  EXPECT_EQ(result.err, GetParam().Err());
  EXPECT_THAT(result.out, EndsWith(": failed (0 ms)\ncompleting the backup: done (0 ms)\n\n"
                                   "FAILED: nothing was captured: " +
                                   GetParam().message.substr(0, GetParam().message.find('.')) + "\n"));
}

TEST_P(HyperVRefusal, IsTheResultOfTheDocument) {
  const json outcome = SnapshotJson(arguments, 16);

  EXPECT_EQ(outcome["result"]["alertCode"], GetParam().id);
  EXPECT_EQ(outcome["result"]["hresult"], nullptr);
  EXPECT_EQ(outcome["setState"], "none");
  EXPECT_EQ(outcome["snapshots"], json::array());
}

INSTANTIATE_TEST_SUITE_P(Rules, HyperVRefusal, testing::ValuesIn(Refusals()),
                         [](const auto& refusal) { return std::string(refusal.param.name); });

TEST_F(HyperVSnapshot, OtherApplicationsAreNotValidated) {
  hostFile["os"]["server"] = false;
  Snapshot({"--disk", "TSL2001"});
}

}  // namespace
}  // namespace varnel::test
