// The steps of a snapshot as people and programs are told of them.
#include <utility>

#include "tests/varnelctl/snapshot_support.h"

namespace varnel::test {
namespace {

using nlohmann::json;

class Steps : public SnapshotCommand {
 protected:
  /// The names of the steps of a document, and " failed" after those that did.
  static std::vector<std::string> Of(const json& outcome) {
    std::vector<std::string> names;
    for (const json& step : outcome.at("steps")) {
      const bool done = step.at("result") == "done";
      EXPECT_EQ(step.at("result"), done ? "done" : "failed");
      names.push_back(step.at("name").get<std::string>() + (done ? "" : " failed"));
    }
    return names;
  }
  static json Last(const json& outcome, const std::string& name) {
    json found;
    for (const json& step : outcome.at("steps")) {
      if (step.at("name") == name) found = step;
    }
    return found;
  }
  void Fail(const std::string& call, const std::string& result, int occurrence = 1) {
    hostFile["faults"] = {{{"call", call}, {"occurrence", occurrence}, {"result", result}}};
  }
};

TEST_F(Steps, ADocumentHasEveryStepInItsOrder) {
  const json outcome = SnapshotJson({"--then", "break", "--disconnect", "--context", "app-rollback"});
  EXPECT_THAT(Of(outcome), ElementsAre("lookingForDisks", "checkingHost", "checkingVolumes", "lookingForProvider",
                                       "starting", "gathering", "selecting", "adding", "preparing", "snapshot",
                                       "reading", "cataloguing", "completing", "breaking", "disconnecting"));
  EXPECT_EQ(outcome["result"]["step"], nullptr);
}

TEST_F(Steps, PhasesStayTheLibrarysOperations) {
  EXPECT_THAT(PhasesOf(SnapshotJson()), ElementsAre("EnumerateDisks", "ValidateHostConfiguration", "ValidateVolumes",
                                                    "IsTesselVSSProviderPresent", "Initialize", "CreateVssSnapshotSet",
                                                    "GetSnapshotMeatadata", "SetBackupStatus"));
}

TEST_F(Steps, TheirTimesAreThoseOfTheHostsClockSinceTheRunBegan) {
  hostFile["timing"] = {{"freezeMilliseconds", 61000}};
  const json outcome = SnapshotJson({}, 10);
  unsigned long long before = 0;
  for (const json& step : outcome["steps"]) {
    EXPECT_EQ(step["start"], before) << step;  // nothing takes time between two steps of a simulated host
    before = step["end"];
  }
  const json snapshot = Last(outcome, "snapshot");
  EXPECT_EQ(snapshot["result"], "failed");
  EXPECT_EQ(snapshot["start"], 0);
  EXPECT_EQ(snapshot["end"], 60000);
  EXPECT_EQ(outcome["result"]["step"], "snapshot");
  EXPECT_EQ(outcome["result"]["details"][0], "while taking the snapshot");
}

TEST_F(Steps, AFailureNamesTheStepOfTheCallThatFailed) {
  const std::pair<const char*, const char*> faults[] = {
      {"IVssBackupComponents::GatherWriterMetadata", "gathering"},
      {"IVssBackupComponents::GetWriterMetadataCount", "selecting"},
      {"IVssBackupComponents::AddComponent", "adding"},
      {"IVssBackupComponents::StartSnapshotSet", "adding"},
      {"IVssBackupComponents::AddToSnapshotSet", "adding"},
      {"IVssBackupComponents::PrepareForBackup", "preparing"},
      {"IVssBackupComponents::DoSnapshotSet", "snapshot"},
      {"IVssBackupComponents::SaveAsXML", "reading"},
      {"IVssBackupComponents::GetSnapshotProperties", "reading"},
  };
  for (const auto& [call, step] : faults) {
    SCOPED_TRACE(call);
    Fail(call, "E_UNEXPECTED");
    const json outcome = SnapshotJson({}, 15);
    EXPECT_EQ(outcome["result"]["step"], step);
    const std::vector<std::string> steps = Of(outcome);
    EXPECT_THAT(steps, Contains(std::string(step) + " failed"));
    EXPECT_EQ(steps.back(), "completing");
    EXPECT_EQ(outcome["phases"][5]["name"], "CreateVssSnapshotSet");
  }
}

TEST_F(Steps, MessagesAboutASetAreNoFailureOfAStep) {
  hostFile["disks"].push_back(DiskJson("TSL0003", 3, "G:\\"));
  const json outcome = SnapshotJson({"--disk", "TSL0001", "TSL0002", "TSL0003", "--accept-extra-volumes"});
  EXPECT_EQ(outcome["result"]["alertCode"], 701);
  EXPECT_EQ(outcome["result"]["step"], nullptr);
  for (const json& step : outcome["steps"]) EXPECT_EQ(step["result"], "done") << step;
}

TEST_F(Steps, AVolumeThatIsRefusedIsNamedAsPeopleKnowIt) {
  Fail("IVssBackupComponents::AddToSnapshotSet", "VSS_E_INSUFFICIENT_STORAGE", 2);
  EXPECT_THAT(Snapshot({}, 15).err,
              StartsWith("varnelctl: adding the components and volumes failed: VSS_E_INSUFFICIENT_STORAGE "
                         "(0x8004231f)\n"
                         "  for volume F:\\ (disk \"TSL0002\")\n"));
}

TEST_F(Steps, AVolumeWithoutAMountPointIsNamedByItsOwnName) {
  hostFile["disks"].push_back(DiskJson("TSL0003", 3, "G:\\"));
  hostFile["disks"][3]["volumes"][0]["mountPoints"] = json::array();
  Fail("IVssBackupComponents::AddToSnapshotSet", "VSS_E_VOLUME_NOT_SUPPORTED", 3);
  EXPECT_THAT(Snapshot({"--disk", "TSL0001", "TSL0002", "TSL0003"}, 15).err,
              HasSubstr("\n  for volume \\\\?\\Volume{00000003-0000-0000-0000-000000000000}\\ (disk \"TSL0003\")\n"));
}

TEST_F(Steps, VerboseTellsTheLibrarysFunctions) {
  Fail("IVssBackupComponents::DoSnapshotSet", "E_UNEXPECTED");
  const CliResult result = Snapshot({"--verbose"}, 15);
  EXPECT_THAT(result.out, StartsWith("looking for the disks [EnumerateDisks]: done (0 ms)\n"));
  EXPECT_THAT(result.out, HasSubstr("taking the snapshot [CreateVssSnapshotSet] (preparing, freezing, thawing, after "
                                    "the snapshot): failed (0 ms)\n"));
  EXPECT_THAT(result.err, StartsWith("varnelctl: taking the snapshot [CreateVssSnapshotSet] failed: "));
}

TEST_F(Steps, OnATerminalTheEndOfAStepReplacesItsStart) {
  std::ostringstream out;
  std::ostringstream trouble;
  const std::string file = folder.Write("host.json", hostFile.dump());
  EXPECT_EQ(varnelctl::RunVarnelctl({"--host", file, "snapshot", "--app", "none", "--disk", "TSL0001", "TSL0002"}, out,
                                    trouble, {{.columns = 0, .colour = false, .erases = true}, {}}),
            0);
  EXPECT_THAT(out.str(), HasSubstr("\nselecting the components ...\r\x1b[Kselecting the components: done (0 ms)\n"
                                   "adding the components and volumes ...\r\x1b[K"));
}

}  // namespace
}  // namespace varnel::test
