// varnelctl snapshot: what a person reads at the end of a run, and its last line.
//
// With the environment variable VARNEL_UPDATE_GOLDEN set to anything, the transcripts in tests/golden/verdicts are
// rewritten from the runs; read the difference before you keep it.
#include <algorithm>
#include <memory>

#include "tests/support/golden.h"
#include "tests/varnelctl/snapshot_support.h"
#include "varnelctl/report/backup_text.h"
#include "varnelctl/report/verdict.h"

namespace varnel::test {
namespace {

using nlohmann::json;
using testing::EndsWith;
using testing::Lt;
using varnelctl::Application;
using varnelctl::BackupEffect;
using varnelctl::BackupText;
using varnelctl::ContextName;
using varnelctl::TallyText;

constexpr char kIdInVerdict[] = "{00000002-5e1f-4c3d-9a0b-000000000000}";
constexpr char kSetName[] = "set {00000002-5e1f-4c3d-9a0b-000000000000}";

std::string LastLine(const std::string& text) {
  return LinesOf(text).back();
}

// ---- transcripts ----

struct SampleCommand {
  const char* name;  // of the transcript
  const char* sample;
  Arguments arguments;
};

std::vector<SampleCommand> SampleCommands() {
  const Arguments sql = {"--app", "sql", "--disk", "TSL0001", "TSL0002", "TSL0003"};
  const Arguments exchange = {"--app", "exchange", "--disk", "TSL1001", "TSL1002", "--verify"};
  const Arguments hyperv = {"--app", "hyperv", "--disk", "TSL2001", "TSL2002"};
  return {
      {"SqlServer", "sql-server", sql},
      {"SqlServerTorn", "sql-server-torn", sql},
      {"SqlServerTornHalf", "sql-server-torn", {"--app", "sql", "--disk", "TSL0002"}},
      {"SqlServerFreezeTimeout", "sql-server-freeze-timeout", {"--app", "sql", "--disk", "TSL0001", "TSL0003"}},
      {"Exchange", "exchange", exchange},
      {"ExchangeWithoutLogs", "exchange", {"--app", "exchange", "--disk", "TSL1001"}},
      {"ExchangeDamaged", "exchange-damaged", exchange},
      {"ExchangeNoUtility", "exchange-no-utility", exchange},
      {"ExchangeNotInstalled", "exchange-not-installed", exchange},
      {"HyperVCluster", "hyperv-cluster", hyperv},
      {"HyperVOneOfTwenty", "hyperv-one-of-twenty", hyperv},
      {"HyperVMixedVolumes", "hyperv-mixed-volumes", {"--app", "hyperv", "--disk", "TSL2001", "TSL2003"}},
      {"HyperVMissingHotfix", "hyperv-missing-hotfix", {"--app", "hyperv", "--disk", "TSL2901"}},
      {"Plain", "plain", {"--app", "none", "--disk", "TSL3001", "TSL3002"}},
  };
}

// What follows the steps on standard output.
std::string EndOf(const std::string& out) {
  const std::size_t begin = out.find("\n\n");
  return begin == out.npos ? out : out.substr(begin + 2);
}

std::string RunOnSample(const SampleCommand& command, const Arguments& more, const char* name = "snapshot") {
  Arguments arguments = {"--host", std::string(VARNEL_EXAMPLES "/hosts/") + command.sample + ".json", name};
  arguments.insert(arguments.end(), command.arguments.begin(), command.arguments.end());
  arguments.insert(arguments.end(), more.begin(), more.end());
  return RunCli(arguments).out;
}

class SampleVerdict : public testing::TestWithParam<SampleCommand> {};

TEST_P(SampleVerdict, IsAsItWasRead) {
  const std::string text = "== in few lines ==\n" + EndOf(RunOnSample(GetParam(), {})) + "== --verbose ==\n" +
                           EndOf(RunOnSample(GetParam(), {"--verbose"}));
  CompareWithGolden(std::filesystem::path(VARNEL_GOLDEN_DIR) / (std::string(GetParam().name) + ".txt"), text);
}

TEST_P(SampleVerdict, IsTheLastLineAndTheSameInJson) {
  const std::string last = LastLine(RunOnSample(GetParam(), {}));

  EXPECT_EQ(json::parse(RunOnSample(GetParam(), {"--json"})).at("verdict").at("text"), last);
  EXPECT_EQ(LastLine(RunOnSample(GetParam(), {"--verbose"})), last);
}

// Writers that fail after the selection are no part of a plan.
TEST_P(SampleVerdict, IsWhatThePlanSaid) {
  SampleCommand command = GetParam();
  std::erase(command.arguments, "--verify");
  const json snapshot = json::parse(RunOnSample(command, {"--json"}));
  const json plan = json::parse(RunOnSample(command, {"--json"}, "plan"));

  const int status = snapshot["status"].get<int>();
  const bool failedLater = status == 10 || status == 11;
  EXPECT_EQ(plan["status"], failedLater ? 0 : status);
  if (!failedLater) {
    EXPECT_EQ(plan["verdict"]["captured"], snapshot["verdict"]["captured"]);
  }
  ASSERT_EQ(plan["objects"].size(), snapshot["objects"].size());
  for (std::size_t i = 0; i < plan["objects"].size(); ++i) {
    for (const char* key : {"name", "reason", "missingDisks", "disks"}) {
      EXPECT_EQ(plan["objects"][i][key], snapshot["objects"][i][key]) << key;
    }
  }
}

TEST_P(SampleVerdict, FitsAScreen) {
  constexpr std::size_t kScreen = 24;
  EXPECT_THAT(LinesOf(EndOf(RunOnSample(GetParam(), {}))).size(), Lt(kScreen));
}

INSTANTIATE_TEST_SUITE_P(Samples, SampleVerdict, testing::ValuesIn(SampleCommands()),
                         [](const auto& command) { return std::string(command.param.name); });

// ---- what became of the set ----

class VerdictOfRun : public SnapshotCommand {
 protected:
  std::string Verdict(const Arguments& arguments, int status = 0, varnelctl::InterruptionSource interruption = {}) {
    return LastLine(Snapshot(arguments, status, std::move(interruption)).out);
  }
  json VerdictJson(const Arguments& arguments, int status = 0) { return SnapshotJson(arguments, status).at("verdict"); }
  void FailCall(const char* call, const char* result) {
    hostFile["faults"].push_back({{"call", call}, {"result", result}, {"occurrence", 1}});
  }
  void FailWriterAt(const char* event) {
    hostFile["faults"].push_back(
        {{"writer", "Demo Writer"}, {"event", event}, {"failure", "VSS_E_WRITERERROR_RETRYABLE"}});
  }
};

TEST_F(VerdictOfRun, ASetOfThisProgramSaysSo) {
  EXPECT_EQ(Verdict({}), std::string("CAPTURED 2 of 3 components; ") + kSetName + " until this program ends");
  EXPECT_EQ(VerdictJson({}), json::parse(R"({
      "text": "CAPTURED 2 of 3 components; set {00000002-5e1f-4c3d-9a0b-000000000000} until this program ends",
      "status": 0, "captured": 2, "of": 3, "noun": "component", "setState": "released",
      "lifetime": "until this program ends", "endWith": null})"));
}

TEST_F(VerdictOfRun, AKeptSetTellsWhatEndsIt) {
  const CliResult result = Snapshot({"--context", "app-rollback"});

  EXPECT_THAT(result.out,
              EndsWith("\nSnapshot " + std::string(kSetName) +
                       ": kept until it is deleted\n"
                       "  end it with varnelctl sets delete " +
                       kIdInVerdict + "\nCAPTURED 2 of 3 components; " + kSetName + " kept until it is deleted\n"));
  const json verdict = VerdictJson({"--context", "app-rollback"});
  EXPECT_EQ(verdict["endWith"], std::string("varnelctl sets delete ") + kIdInVerdict);
  EXPECT_EQ(verdict["lifetime"], "kept until it is deleted");
}

TEST_F(VerdictOfRun, ATransportableSetIsTheArrays) {
  const CliResult result = Snapshot({"--context", "app-rollback+transportable"});

  EXPECT_THAT(result.out,
              EndsWith("\n" + ("Snapshot " + std::string(kSetName)) +
                       ": kept for the array\nCAPTURED 2 of 3 components; " + kSetName + " kept for the array\n"));
  EXPECT_EQ(VerdictJson({"--context", "app-rollback+transportable"})["endWith"], nullptr);
}

TEST_F(VerdictOfRun, WhatWasDoneWithTheSetIsTold) {
  const std::string captured = std::string("CAPTURED 2 of 3 components; ") + kSetName;

  EXPECT_EQ(Verdict({"--then", "delete"}), captured + " was deleted");
  EXPECT_EQ(Verdict({"--then", "break"}), captured + " broken, its disks are ordinary read-write disks of this host");
  EXPECT_EQ(Verdict({"--then", "mask"}), captured + " broken and masked, its disks are hidden from this host");
  EXPECT_THAT(Snapshot({"--then", "delete"}).out, Not(HasSubstr("Volumes\n"))) << "they are gone";
}

TEST_F(VerdictOfRun, WhatIsNotDoneAfterwardsIsNoSuccess) {
  FailCall("IVssBackupComponents::DeleteSnapshots", "VSS_E_PROVIDER_VETO");
  const json verdict = VerdictJson({"--then", "delete", "--context", "app-rollback"}, 18);

  EXPECT_EQ(verdict["text"],
            std::string("CAPTURED 2 of 3 components; NOT ALL DONE: deleting the set failed: VSS_E_PROVIDER_VETO "
                        "(0x80042306); 2 shadow copies of ") +
                kSetName + " are left");
  EXPECT_EQ(verdict["status"], 18);
  EXPECT_EQ(verdict["endWith"], std::string("varnelctl sets delete ") + kIdInVerdict);
}

TEST_F(VerdictOfRun, ASetThatNobodyCanTellOfIsToldSo) {
  hostFile["faults"] = json::parse(R"([{"async": "BreakSnapshotSetEx", "result": "VSS_E_UNEXPECTED"},
                                       {"call": "IVssBackupComponents::Query", "result": "VSS_E_UNEXPECTED"}])");
  EXPECT_THAT(Verdict({"--then", "mask"}, 18),
              EndsWith("; whether " + std::string(kSetName) + " is still there is not known"));
}

// ---- failures ----

TEST_F(VerdictOfRun, AFailureBeforeTheSnapshotCapturedNothing) {
  FailWriterAt("prepareBackup");

  EXPECT_EQ(Verdict({}, 10), "FAILED: nothing was captured: Demo Writer has failed to prepare for backup");
  const json verdict = VerdictJson({}, 10);
  EXPECT_EQ(verdict["captured"], 0);
  EXPECT_EQ(verdict["of"], 3);
  EXPECT_EQ(verdict["setState"], "none");
  EXPECT_EQ(verdict["status"], 10);
}

TEST_F(VerdictOfRun, ADeletedSetOfAFailedRequestIsToldWithTheCause) {
  hostFile["disks"].push_back(DiskJson("TSL0003", 3, "G:\\"));

  EXPECT_EQ(Verdict({"--disk", "TSL0001", "TSL0002", "TSL0003"}, 14),
            std::string("FAILED: ") + kSetName + " was deleted: Extra volumes found in the volume collection");
}

TEST_F(VerdictOfRun, AnObjectOfADeletedSetIsNotCaptured) {
  hostFile["disks"].push_back(DiskJson("TSL0003", 3, "G:\\"));
  const json outcome = SnapshotJson({"--disk", "TSL0001", "TSL0002", "TSL0003"}, 14);

  for (const json& object : outcome["objects"]) EXPECT_EQ(object["captured"], false) << object["name"];
}

TEST_F(VerdictOfRun, AnInterruptionIsTheCause) {
  class InterruptedFromTheStart final : public varnelctl::Interruption {
    bool Requested() const override { return true; }
  };
  EXPECT_EQ(Verdict({}, 17, [] { return std::make_unique<InterruptedFromTheStart>(); }),
            "FAILED: nothing was captured: interrupted before anything was done");
}

TEST_F(VerdictOfRun, ADiskThatIsNotThereIsTheCause) {
  EXPECT_THAT(Verdict({"--disk", "TSL0009"}, 2),
              testing::StartsWith("FAILED: nothing was captured: no disk of this host has serial \"TSL0009\""));
}

TEST_F(VerdictOfRun, ACommandLineThatIsRefusedIsNoRun) {
  EXPECT_EQ(Snapshot({"--context", "transportable", "--then", "mask"}, 2).out, "");
}

// ---- objects ----

TEST_F(VerdictOfRun, TheDocumentHasEachObject) {
  const json objects = SnapshotJson()["objects"];

  ASSERT_EQ(objects.size(), 3u);
  EXPECT_EQ(objects[1], json::parse(R"({"name": "SQL01\\crm", "writer": "Demo Writer", "path": "\\SQL01\\crm",
      "captured": true, "failed": false, "reason": null, "why": null, "missingDisks": [],
      "disks": ["TSL0001", "TSL0002"]})"));
  EXPECT_EQ(objects[2], json::parse(R"({"name": "SQL01\\tools", "writer": "Demo Writer", "path": "\\SQL01\\tools",
      "captured": false, "failed": false, "reason": "systemDisk",
      "why": "disk \"SYS\" holds the system", "missingDisks": [], "disks": ["SYS"]})"));
}

TEST_F(VerdictOfRun, TheDocumentHasTheBackupAndItsProvider) {
  const json outcome = SnapshotJson({"--backup-type", "copy", "--context", "app-rollback"});

  EXPECT_EQ(outcome["backup"], json::parse(R"({"type": "copy", "context": "app-rollback",
      "effect": "the writers are asked to change neither their logs nor the base of later backups"})"));
  EXPECT_EQ(outcome["provider"], json::parse(R"({"id": "{374579ad-285c-49b9-ab8a-950e0e252de2}",
      "name": "Tessel VSS Hardware Provider", "version": "1.0"})"));
  EXPECT_EQ(outcome["otherWriters"], json::array());
}

TEST_F(VerdictOfRun, AProviderThatCannotBeAskedForAgainHasNoName) {
  hostFile["faults"] = json::parse(R"([{"call": "IVssAdmin::QueryProviders", "result": "E_FAIL", "occurrence": 2}])");

  EXPECT_EQ(SnapshotJson()["provider"]["name"], nullptr);
  EXPECT_THAT(Snapshot().out, HasSubstr("\nFull backup, context backup (auto-release, with writers)\n"));
}

TEST_F(VerdictOfRun, AWriterThatFailsAtTheEndLeavesOpenWhatItMakesOfIt) {
  FailWriterAt("backupComplete");
  const CliResult result = Snapshot({"--context", "app-rollback"}, 10);

  EXPECT_THAT(result.out, HasSubstr("\n  completing the backup failed: what the writers make of it is not known\n"));
  EXPECT_THAT(LastLine(result.out),
              testing::StartsWith("CAPTURED 0 of 3 components (2 failed by their writers); NOT "
                                  "ALL DONE: Demo Writer has failed during backup complete event; set "));
}

TEST_F(VerdictOfRun, MoreThanTenObjectsThatAreNotInTheSetAreForVerbose) {
  json& components = hostFile["writers"][0]["components"];
  for (int n = 0; n < 10; ++n) {
    json tools = components[2];
    tools["name"] = "tools" + std::to_string(n);
    components.push_back(tools);
  }
  const std::string out = Snapshot().out;

  EXPECT_THAT(out, HasSubstr("  SQL01\\tools7 (Demo Writer): disk \"SYS\" holds the system\n"
                             "  and 2 more components (--verbose lists them)\n"));
  EXPECT_THAT(Snapshot({"--verbose"}).out, HasSubstr("  SQL01\\tools9 (Demo Writer): disk \"SYS\" holds the system\n"));
}

// ---- plans ----

class VerdictOfPlan : public VerdictOfRun {
 protected:
  static Arguments PlanOf(const Arguments& arguments) {
    Arguments plan = Whole(arguments);
    plan.front() = "plan";
    return plan;
  }
  CliResult Plan(const Arguments& arguments, int status = 0) {
    const CliResult result = Run(PlanOf(arguments));
    EXPECT_EQ(result.status, status) << result.err;
    return result;
  }
};

TEST_F(VerdictOfPlan, SaysBeforeWhatASnapshotSaysAfterwards) {
  EXPECT_THAT(Plan({"--backup-type", "copy"}).out,
              EndsWith("\nNot in the set\n"
                       "  SQL01\\tools (Demo Writer): disk \"SYS\" holds the system\n"
                       "Copy backup, context backup (auto-release, with writers)\n"
                       "  the writers are asked to change neither their logs nor the base of later backups\n"
                       "WOULD CAPTURE 2 of 3 components\n"));
}

TEST_F(VerdictOfPlan, SaysWhatASnapshotWouldFailOf) {
  hostFile["disks"].push_back(DiskJson("TSL0003", 3, "G:\\"));
  const Arguments extra = {"--disk", "TSL0001", "TSL0002", "TSL0003"};

  EXPECT_EQ(LastLine(Plan(extra, 14).out), "WOULD FAIL: Extra volumes found in the volume collection");
  EXPECT_EQ(LastLine(Plan({"--accept-extra-volumes", "--disk", "TSL0001", "TSL0002", "TSL0003"}).out),
            "WOULD CAPTURE 2 of 3 components");
}

TEST_F(VerdictOfPlan, IsInTheDocument) {
  const json plan = Document(PlanOf({}));

  EXPECT_EQ(plan["verdict"], json::parse(R"({"text": "WOULD CAPTURE 2 of 3 components", "status": 0, "captured": 2,
                                             "of": 3, "noun": "component"})"));
  EXPECT_EQ(plan["backup"]["effect"], "a writer may truncate its logs and take it for the base of later backups");
  EXPECT_EQ(plan["objects"][0]["captured"], true);
}

TEST_F(VerdictOfPlan, VerboseListsEveryComponent) {
  EXPECT_THAT(Plan({"--verbose"}).out, HasSubstr("\nCaptured application-consistent\n"
                                                 "  Demo Writer\n"
                                                 "    \\SQL01\\sales  on \"TSL0001\"\n"
                                                 "    \\SQL01\\crm  on \"TSL0001\", \"TSL0002\"\n"
                                                 "Left out\n"
                                                 "  Demo Writer\n"
                                                 "    \\SQL01\\tools: disk \"SYS\" holds the system\n"
                                                 "    \\SQL01\\empty: it has no files\n"));
}

// ---- words ----

TEST(VerdictWords, ObjectsAreCountedInTheirNumber) {
  EXPECT_EQ(TallyText({1, 1, 0, "database"}), "1 of 1 database");
  EXPECT_EQ(TallyText({0, 2, 0, "mailbox database"}), "0 of 2 mailbox databases");
  EXPECT_EQ(TallyText({19, 20, 1, "virtual machine"}), "19 of 20 virtual machines (1 failed by its writer)");
  EXPECT_EQ(TallyText({1, 3, 2, "database"}), "1 of 3 databases (2 failed by their writers)");
}

TEST(VerdictWords, TheCauseIsTheFirstSentence) {
  EXPECT_EQ(varnelctl::FirstSentence("One. Two."), "One");
  EXPECT_EQ(varnelctl::FirstSentence("One 1.5."), "One 1.5");
  EXPECT_EQ(varnelctl::FirstSentence(""), "");
}

TEST(VerdictWords, AContextIsNamedSoThatItCanBeReadAgain) {
  EXPECT_EQ(ContextName(VSS_CTX_BACKUP), "backup");
  EXPECT_EQ(ContextName(0x29), "app-rollback+transportable");
  EXPECT_EQ(ContextName(VSS_CTX_CLIENT_ACCESSIBLE), "client-accessible");
  EXPECT_EQ(ContextName(0x4000d), "client-accessible-writers+plex");
  EXPECT_EQ(ContextName(0x80000008), "0x80000008");
  for (const DWORD context : {0x0u, 0x9u, 0x19u, 0x10u, 0xdu, 0x1du, 0x22u, 0x29u, 0x1u, 0xffffffffu}) {
    EXPECT_EQ(varnelctl::ParseContext(ContextName(context)), context);
  }
}

TEST(VerdictWords, ABackupIsToldWithHowLongItsContextKeepsIt) {
  EXPECT_EQ(BackupText(VSS_BT_FULL, VSS_CTX_BACKUP), "Full backup, context backup (auto-release, with writers)");
  EXPECT_EQ(BackupText(VSS_BT_COPY, VSS_CTX_APP_ROLLBACK),
            "Copy backup, context app-rollback (persistent, with writers)");
  EXPECT_EQ(BackupText(VSS_BT_FULL, 0x8), "Full backup, context 0x8 (no auto-release, with writers)");
  EXPECT_EQ(BackupText(VSS_BT_FULL, 0x20), "Full backup, context transportable (for the array, with writers)");
  EXPECT_EQ(BackupText(VSS_BT_OTHER, VSS_CTX_NAS_ROLLBACK),
            "Other backup, context nas-rollback (persistent, without writers)");
}

TEST(VerdictWords, OnlyExchangeTruncatesLogsForSure) {
  for (const VSS_BACKUP_TYPE type : {VSS_BT_FULL, VSS_BT_INCREMENTAL}) {
    EXPECT_THAT(BackupEffect(Application::Exchange, type, VSS_CTX_BACKUP), HasSubstr("truncates its logs once"));
  }
  EXPECT_EQ(BackupEffect(Application::Exchange, VSS_BT_DIFFERENTIAL, VSS_CTX_BACKUP),
            "Exchange keeps its logs; it needs an earlier full backup");
  EXPECT_EQ(BackupEffect(Application::Exchange, VSS_BT_COPY, VSS_CTX_BACKUP),
            "Exchange changes neither its logs nor the base of later backups");
  EXPECT_EQ(BackupEffect(Application::Sql, VSS_BT_FULL, VSS_CTX_BACKUP),
            "SQL Server takes it for the base of later differential backups; no log is truncated");
  EXPECT_EQ(BackupEffect(Application::Sql, VSS_BT_COPY, VSS_CTX_BACKUP),
            "SQL Server changes neither the base of differential backups nor its logs");
}

TEST(VerdictWords, WhatIsNotKnownOfATypeIsNotSaid) {
  constexpr char kOwn[] = "each writer decides what that means to its logs and to later backups";

  EXPECT_EQ(BackupEffect(Application::Exchange, VSS_BT_LOG, VSS_CTX_BACKUP), kOwn);
  EXPECT_EQ(BackupEffect(Application::HyperV, VSS_BT_INCREMENTAL, VSS_CTX_BACKUP), kOwn);
  EXPECT_EQ(BackupEffect(Application::None, VSS_BT_FULL, VSS_CTX_BACKUP),
            "a writer may truncate its logs and take it for the base of later backups");
  EXPECT_THAT(BackupEffect(Application::Sql, VSS_BT_LOG, VSS_CTX_BACKUP), HasSubstr("nothing is known of this type"));
  EXPECT_EQ(BackupEffect(Application::Sql, VSS_BT_FULL, VSS_CTX_NAS_ROLLBACK), "no application is told of it");
}

}  // namespace
}  // namespace varnel::test
