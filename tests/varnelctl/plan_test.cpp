// varnelctl plan, and --require of a plan and of a run.
#include "tests/varnelctl/snapshot_support.h"

namespace varnel::test {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

const char* const kServiceCalls[] = {"StartSnapshotSet", "AddToSnapshotSet",   "PrepareForBackup",
                                     "DoSnapshotSet",    "GatherWriterStatus", "SetBackupSucceeded",
                                     "BackupComplete",   "AbortBackup",        "DeleteSnapshots"};

class PlanCommand : public CliFixture {
 protected:
  PlanCommand() { hostFile = SmallHostJson(); }
  Arguments Plan(Arguments more = {}) const {
    Arguments arguments = {"plan", "--app", "none", "--disk", "TSL0001", "TSL0002"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }
  /// On the fixture's own host, whose calls are kept.
  void UseSmallHost() {
    hostFile = nullptr;
    simulator::HostModel model = SmallHost();
    model.writers = {
        MakeWriter(L"Demo", 1,
                   {MakeComponent(L"S", L"sales", {L"E:\\data"}), MakeComponent(L"S", L"crm", {L"F:\\data"}),
                    MakeComponent(L"S", L"tools", {L"C:\\data"})})};
    Install(model);
  }
  std::size_t CallsOf(const char* method) { return Calls(std::string("IVssBackupComponents::") + method).size(); }
};

TEST_F(PlanCommand, TellsWhatASnapshotWouldHoldAndWhatNotWithTheVerdictLast) {
  EXPECT_THAT(Output(Plan()), EndsWith(R"(
Volumes
  E:\ on disk "TSL0001"
  F:\ on disk "TSL0002"
Not in the set
  SQL01\tools (Demo Writer): disk "SYS" holds the system
Full backup, context backup (auto-release, with writers)
  a writer may truncate its logs and take it for the base of later backups
WOULD CAPTURE 2 of 3 components
)"));
}

TEST_F(PlanCommand, VerboseListsEveryComponent) {
  EXPECT_THAT(Output(Plan({"--verbose"})), AllOf(HasSubstr("Captured application-consistent\n  Demo Writer\n"
                                                           "    \\SQL01\\sales  on \"TSL0001\"\n"),
                                                 HasSubstr("    \\SQL01\\empty: it has no files\n")));
}

TEST_F(PlanCommand, NoWriterHearsMoreThanIdentifyAndNothingIsLeftInProgress) {
  UseSmallHost();
  Output(Plan());

  EXPECT_EQ(CallsOf("GatherWriterMetadata"), 1u);
  EXPECT_EQ(CallsOf("AddComponent"), 2u);
  for (const char* call : kServiceCalls) EXPECT_EQ(CallsOf(call), 0u) << call;
  ExpectNothingLive();
  EXPECT_EQ(Run({"snapshot", "--app", "none", "--disk", "TSL0001", "TSL0002"}).status, 0);
}

TEST_F(PlanCommand, ADiskThatIsMissingIsNamedForEachObject) {
  const CliResult result = Run({"plan", "--app", "none", "--disk", "TSL0001"});

  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out,
              HasSubstr("  SQL01\\crm (Demo Writer): not in the protection set: disk \"TSL0002\" (add it with --disk "
                        "TSL0002)\n"));
}

TEST_F(PlanCommand, ExtraVolumesEndWith14AndAreMarked) {
  hostFile["disks"].push_back(DiskJson("TSL0003", 3, "G:\\"));
  const CliResult result = Run(Plan({"TSL0003"}));

  EXPECT_EQ(result.status, 14);
  EXPECT_THAT(result.out, HasSubstr("  G:\\ on disk \"TSL0003\", which the application does not use\n"));
  EXPECT_THAT(result.out, EndsWith("\nWOULD FAIL: Extra volumes found in the volume collection\n"));
  EXPECT_THAT(result.err, HasSubstr("varnelctl: Extra volumes found in the volume collection. \n"));
}

TEST_F(PlanCommand, AcceptedExtraVolumesEndWith0AndAreMarked) {
  hostFile["disks"].push_back(DiskJson("TSL0003", 3, "G:\\"));
  const CliResult result = Run(Plan({"TSL0003", "--accept-extra-volumes"}));

  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, EndsWith("\nWOULD CAPTURE 2 of 3 components\n"));
  EXPECT_THAT(result.err, StartsWith("varnelctl: warning: Extra volumes found in the volume collection. \n"));
}

TEST_F(PlanCommand, AProtectionSetWithNothingEligibleEndsWith12) {
  const CliResult result = Run({"plan", "--app", "none", "--disk", "SYS"});

  EXPECT_EQ(result.status, 12);
  EXPECT_THAT(result.out, HasSubstr("\nWOULD FAIL: "));
}

TEST_F(PlanCommand, AProviderThatDoesNotTakeTheVolumeIsToldWithItsName) {
  hostFile["providers"] = json::array();
  const CliResult result = Run(Plan());

  EXPECT_EQ(result.status, 15);
  EXPECT_THAT(result.err,
              AllOf(HasSubstr("VSS_E_PROVIDER_NOT_REGISTERED"), HasSubstr("  for volume E:\\ (disk \"TSL0001\")\n")));
}

TEST_F(PlanCommand, TheDocumentHasVolumesObjectsAndTheVerdict) {
  const json plan = Document(Plan());

  EXPECT_EQ(plan["volumes"], json::parse(R"([
    {"volume": "\\\\?\\Volume{00000001-0000-0000-0000-000000000000}\\", "mountPoint": "E:\\",
     "serialNumber": "TSL0001", "extra": false},
    {"volume": "\\\\?\\Volume{00000002-0000-0000-0000-000000000000}\\", "mountPoint": "F:\\",
     "serialNumber": "TSL0002", "extra": false}])"));
  EXPECT_EQ(plan["objects"][2]["reason"], "systemDisk");
  EXPECT_EQ(plan["verdict"]["text"], "WOULD CAPTURE 2 of 3 components");
  EXPECT_EQ(plan["verdict"]["status"], 0);
  EXPECT_EQ(plan["verdict"]["captured"], 2);
  EXPECT_EQ(plan["verdict"]["of"], 3);
  for (const char* key : {"snapshotSetId", "setState", "snapshots", "catalog", "document"}) {
    EXPECT_FALSE(plan.contains(key)) << key;
  }
}

TEST_F(PlanCommand, TakesEitherDisksOrNames) {
  const char* const kOneOfBoth =
      "varnelctl: plan takes either --disk, whose snapshot is planned, or --for, whose disks are told";
  ExpectRefused(Run({"plan", "--app", "none"}), kOneOfBoth);
  ExpectRefused(Run(Plan({"--for", "sales"})), kOneOfBoth);
}

TEST_F(PlanCommand, AnyCallMayFail) {
  UseSmallHost();
  const simulator::HostModel model = host().model();
  FailEachCall(model, Plan({"--json"}), [&](const CliResult& result) {
    EXPECT_THAT(result.status, testing::AnyOf(0, 1, 12, 14, 15));
    EXPECT_FALSE(json::parse(result.out, nullptr, false).is_discarded()) << result.out;
    for (const char* call : kServiceCalls) EXPECT_EQ(CallsOf(call), 0u) << call;
  });
}

// ---- --for ----

TEST_F(PlanCommand, TellsTheDisksThatHoldAnObjectAndWhatElseLiesOnThem) {
  EXPECT_EQ(Output({"plan", "--app", "none", "--for", "crm"}),
            "Also wholly on these disks\n"
            "  SQL01\\sales  on \"TSL0001\"\n"
            "--disk TSL0001 TSL0002\n");
  EXPECT_EQ(Output({"plan", "--app", "none", "--for", "SALES"}),
            "Also partly on these disks\n"
            "  SQL01\\crm  on \"TSL0001\", \"TSL0002\"\n"
            "--disk TSL0001\n");
}

TEST_F(PlanCommand, AnObjectThatNoDisksCanHoldIs19) {
  const CliResult result = Run({"plan", "--app", "none", "--for", "tools", "sales"});

  EXPECT_EQ(result.status, 19);
  EXPECT_EQ(result.out,
            "No set of disks can hold these wholly\n"
            "  SQL01\\tools (Demo Writer): disk \"SYS\" holds the system\n"
            "Also partly on these disks\n"
            "  SQL01\\crm  on \"TSL0001\", \"TSL0002\"\n"
            "--disk TSL0001\n");
}

TEST_F(PlanCommand, ANameThatNothingHasIs19WithTheNearest) {
  const CliResult result = Run({"plan", "--app", "none", "--for", "saless"});

  EXPECT_EQ(result.status, 19);
  EXPECT_THAT(result.err, StartsWith("varnelctl: this host has no component \"saless\"; did you mean \"sales\"?\n"));
}

TEST_F(PlanCommand, ASerialNumberWithBlanksIsQuotedForTheShell) {
  hostFile["disks"][1]["serial"] = " TSL 1";
  hostFile["databases"] = json::object();
  EXPECT_THAT(Output({"plan", "--app", "none", "--for", "sales"}), EndsWith("--disk \" TSL 1\"\n"));
}

TEST_F(PlanCommand, TheDocumentOfDisksHasEveryList) {
  const json found = Document({"plan", "--app", "none", "--for", "crm", "tools"}, 19);

  EXPECT_EQ(found["disks"], json({"TSL0001", "TSL0002"}));
  EXPECT_EQ(found["objects"][0]["name"], "SQL01\\crm");
  EXPECT_EQ(found["unprotected"][0]["name"], "SQL01\\tools");
  EXPECT_EQ(found["alsoWholly"][0]["disks"], json({"TSL0001"}));
  EXPECT_EQ(found["alsoPartly"], json::array());
}

TEST_F(PlanCommand, TheDisksToldHoldTheObjectWhenTheyArePlanned) {
  const json found = Document({"plan", "--app", "none", "--for", "crm"});
  Arguments arguments = {"plan", "--app", "none", "--require", "crm", "--disk"};
  for (const json& disk : found["disks"]) arguments.push_back(disk);

  EXPECT_EQ(Run(arguments).status, 0);
}

// ---- --require ----

TEST_F(PlanCommand, WhatIsRequiredAndMissingIs19InPlanAndRunAlike) {
  for (const char* command : {"plan", "snapshot"}) {
    const CliResult result = Run({command, "--app", "none", "--disk", "TSL0001", "--require", "crm", "sales"});

    EXPECT_EQ(result.status, 19) << command;
    EXPECT_THAT(result.err, StartsWith("varnelctl: 1 of 2 required components would not be in the set\n")) << command;
    EXPECT_THAT(result.err,
                HasSubstr("  SQL01\\crm (Demo Writer): not in the protection set: disk \"TSL0002\" (add it with --disk "
                          "TSL0002)\n"));
  }
}

TEST_F(PlanCommand, WhatIsRequiredIsCheckedBeforeAWriterPreparesAndTheBackupIsEnded) {
  UseSmallHost();
  const CliResult result = Run({"snapshot", "--app", "none", "--disk", "TSL0001", "--require", "all"});

  EXPECT_EQ(result.status, 19);
  EXPECT_EQ(CallsOf("GatherWriterMetadata"), 1u);
  for (const char* call : {"StartSnapshotSet", "PrepareForBackup", "DoSnapshotSet"}) EXPECT_EQ(CallsOf(call), 0u);
  EXPECT_EQ(CallsOf("AbortBackup"), 1u);
  ExpectNothingLive();
  EXPECT_EQ(Run({"snapshot", "--app", "none", "--disk", "TSL0001", "--require", "sales"}).status, 0);
}

TEST_F(PlanCommand, TheFirstFailureDecides) {
  hostFile["disks"].push_back(DiskJson("TSL0003", 3, "G:\\"));
  for (const char* command : {"plan", "snapshot"}) {
    EXPECT_EQ(Run({command, "--app", "none", "--disk", "TSL0001", "TSL0003", "--require", "crm"}).status, 19);
    EXPECT_EQ(Run({command, "--app", "none", "--disk", "TSL0001", "TSL0003", "--require", "sales"}).status, 14);
    EXPECT_EQ(Run({command, "--app", "none", "--disk", "SYS", "--require", "crm"}).status, 12);
  }
}

}  // namespace
}  // namespace varnel::test
