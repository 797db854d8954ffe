// What an administrator got wrong on the command line, and what is answered.
#include "tests/varnelctl/snapshot_support.h"
#include "varnelctl/commands/command.h"

namespace varnel::test {
namespace {

using testing::Not;
using testing::StartsWith;

// --disk

class DiskArguments : public SnapshotFixture {
 protected:
  void SetUp() override {
    simulator::HostModel model = SmallHost();
    model.disks.push_back(MakeDisk(L"A,B", 7, L"H:\\"));
    model.disks.push_back(MakeDisk(L"C D", 8, L"I:\\"));
    model.writers = {MakeWriter(L"Writer", 1,
                                {MakeComponent(L"", L"one", {L"E:\\one", L"F:\\two"}),
                                 MakeComponent(L"", L"list", {L"H:\\three", L"I:\\four"})})};
    Install(model);
  }
  /// The refusal of these disks, before anything was asked of the service.
  std::string Refusal(Arguments disks, const Arguments& more = {}) {
    disks.insert(disks.begin(), "--disk");
    disks.insert(disks.end(), more.begin(), more.end());
    const CliResult result = Snapshot(disks, 2);
    EXPECT_THAT(CallsOf("CreateVssBackupComponents"), IsEmpty());
    return result.err;
  }
  std::vector<std::string> VolumesOf(Arguments disks) {
    disks.insert(disks.begin(), "--disk");
    std::vector<std::string> volumes;
    const nlohmann::json outcome = SnapshotJson(disks);
    for (const nlohmann::json& copy : outcome["snapshots"]) volumes.push_back(copy["volume"]);
    return volumes;
  }
};

TEST_F(DiskArguments, ASerialNumberIsSpeltAsTheDiskSpellsIt) {
  for (const std::string wrong : {"tsl0001", "TSL0001 ", " TSL0001", "TSL 0001", "Tsl0001\t"}) {
    SCOPED_TRACE(wrong);
    const std::string quoted = wrong.ends_with('\t') ? "Tsl0001\uFFFD" : wrong;
    EXPECT_EQ(Refusal({wrong}),
              "varnelctl: no disk of this host has serial \"" + quoted + "\"; did you mean \"TSL0001\"?\n");
    EXPECT_EQ(Refusal({wrong}, {"--accept-unknown-disks"}), Refusal({wrong})) << "surely a typing error";
  }
}

TEST_F(DiskArguments, AnUnknownDiskIsRefusedWithTheNearestOne) {
  EXPECT_EQ(Refusal({"TSL0001", "TSLO002"}),
            "varnelctl: no disk of this host has serial \"TSLO002\"; did you mean \"TSL0002\"? (--accept-unknown-disks "
            "takes a disk of another host)\n");
  EXPECT_EQ(Refusal({"NONE"}, {"--accept-extra-volumes"}),
            "varnelctl: no disk of this host has serial \"NONE\"; varnelctl disks lists those that there are "
            "(--accept-unknown-disks takes a disk of another host)\n");
}

TEST_F(DiskArguments, AnUnknownDiskIsAWarningWhereItMayBeAnotherHosts) {
  const CliResult result = Snapshot({"--disk", "TSL0001", "TSL0002", "TSLO002", "--accept-unknown-disks"}, 14);

  EXPECT_THAT(result.err, StartsWith("varnelctl: warning: no disk of this host has serial \"TSLO002\"; did you mean "
                                     "\"TSL0002\"?\nvarnelctl: Extra volumes found"));
}

TEST_F(DiskArguments, ADiskWithoutVolumesIsKnown) {
  host().model().disks.push_back(MakeDisk(L"RAW", 9, L""));
  host().model().disks.back().volumes.clear();

  EXPECT_THAT(Snapshot({"--disk", "TSL0001", "TSL0002", "RAW"}, 14).err,
              StartsWith("varnelctl: warning: disk \"RAW\" has no volume of its own to be in a set\nvarnelctl: Extra"));
}

TEST_F(DiskArguments, AnEmptySerialNumberIsRefused) {
  EXPECT_EQ(Refusal({""}), "varnelctl: --disk: \"\" is no serial number\n");
  EXPECT_EQ(Refusal({"TSL0001", "  "}), "varnelctl: --disk: \"  \" is no serial number\n");
  EXPECT_THAT(host().calls().lines(), IsEmpty());
}

TEST_F(DiskArguments, ADiskIsNamedOnce) {
  EXPECT_EQ(Refusal({"TSL0001", "TSL0002", "TSL0001"}), "varnelctl: --disk names \"TSL0001\" twice\n");
  EXPECT_THAT(host().calls().lines(), IsEmpty());
  EXPECT_EQ(Refusal({"TSL0001", "tsl0001 "}),
            "varnelctl: --disk names \"TSL0001\" twice, the second time as \"tsl0001 \"\n");
  EXPECT_EQ(Refusal({"TSL0001,TSL0002", "TSL0002"}), "varnelctl: --disk names \"TSL0002\" twice\n");
}

TEST_F(DiskArguments, TwoDisksMayDifferInCaseAlone) {
  host().model().disks.push_back(MakeDisk(L"tsl0001", 9, L"J:\\"));

  EXPECT_THAT(Snapshot({"--disk", "TSL0001", "TSL0002", "tsl0001", "--accept-extra-volumes"}).err,
              Not(HasSubstr("twice")));
}

TEST_F(DiskArguments, AListMayStandInOneArgument) {
  EXPECT_EQ(Refusal({"TSL0001,tsl0002"}),
            "varnelctl: no disk of this host has serial \"tsl0002\"; did you mean \"TSL0002\"?\n");
  const std::vector<std::string> both = VolumesOf({"TSL0001", "TSL0002"});
  EXPECT_EQ(both.size(), 2u);
  for (const char* list :
       {"TSL0001,TSL0002", "TSL0001, TSL0002", "TSL0001;TSL0002", "TSL0001 TSL0002", ",TSL0001,TSL0002,"}) {
    EXPECT_EQ(VolumesOf({list}), both) << list;
  }
}

TEST_F(DiskArguments, ASerialNumberMayHoldWhatPartsAList) {
  EXPECT_THAT(Refusal({"A,B;TSL0001"}), StartsWith("varnelctl: no disk of this host has serial \"A\"; "));
  EXPECT_EQ(VolumesOf({"A,B", "C D"}).size(), 2u);
}

// Options that mean nothing

TEST_F(DiskArguments, AWriterCodeMeansSomething) {
  for (const char* code : {"0", "1"}) Snapshot({"--writer-code", code, "--test-points", "0"});
  for (const std::string code : {"5", "9", "-1", "x", ""}) {
    ExpectRefused(Snapshot({"--writer-code", code}, 2),
                  "varnelctl: --writer-code: \"" + code +
                      "\" is no writer code: 0 and 1 ask for every component, 2, 3 and 4 for the databases that the "
                      "array's metadata service names (varnelctl");
  }
}

TEST_F(DiskArguments, ATestPointMakesSomethingFail) {
  for (const std::string mask : {"0xfff", "4", "-1", "many"}) {
    ExpectRefused(Snapshot({"--test-points", mask}, 2),
                  "varnelctl: --test-points: \"" + mask +
                      "\" is no mask of test points: 0x1 makes the snapshot fail, 0x2 the verification of Exchange "
                      "files, 0x3 both (varnelctl");
  }
  ExpectRefused(Snapshot({"--test-points", "2"}, 2),
                "varnelctl: --test-points 0x2 goes with --app exchange only: it makes the verification of Exchange "
                "files fail\n");
}

// Host files

using HostFileOddities = SnapshotCommand;

TEST_F(HostFileOddities, WhatCannotBeReadIsSaid) {
  const std::string start = "varnelctl: ";
  const std::string missing = folder.File("none.json");
  EXPECT_EQ(RunCli({"disks", "--host", missing}).err,
            start + missing + ": /: cannot read the file: there is no such file\n");
  const std::string directory = folder.File("folder");
  std::filesystem::create_directory(PathOf(directory));
  EXPECT_EQ(RunCli({"disks", "--host", directory}).err,
            start + directory + ": /: cannot read the file: it is a folder\n");
  const std::string half = folder.Write("half.json", "\xFF\xFE{");
  EXPECT_EQ(RunCli({"disks", "--host", half}).err,
            start + half + ": /: cannot read the file: it is no UTF-16: an odd number of bytes\n");
}

TEST_F(HostFileOddities, WhatPowerShellsRedirectWritesIsRead) {
  std::string utf16 = "\xFF\xFE";
  for (const char c : hostFile.dump()) utf16 += {c, '\0'};
  EXPECT_EQ(RunCli({"disks", "--host", folder.Write("utf16.json", utf16)}).out, Output({"disks"}));
}

TEST_F(HostFileOddities, FaultsOfNothingAreRefusedWithWhatThereIs) {
  const std::pair<const char*, const char*> faults[] = {
      {R"({ "call": "IVssBackupComponents::Foo", "result": "E_FAIL" })",
       "/faults/0/call: \"IVssBackupComponents::Foo\" is no call that may fail (Interface::Method or a function's "
       "name)"},
      {R"({ "async": "DoSnapshot", "result": "E_FAIL" })",
       "/faults/0/async: \"DoSnapshot\" starts no asynchronous operation; did you mean \"DoSnapshotSet\"?"},
      {R"({ "writer": "Demo Writer", "event": "freze", "failure": "E_FAIL" })", "; did you mean \"freeze\"?"},
  };
  for (const auto& [fault, answer] : faults) {
    hostFile["faults"] = nlohmann::json::array({nlohmann::json::parse(fault)});
    const CliResult result = Run({"disks"});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr(answer));
  }
}

TEST_F(HostFileOddities, TwoComponentsWithOnePathAreTold) {
  hostFile["writers"][0]["components"][1] = hostFile["writers"][0]["components"][0];
  EXPECT_EQ(Run({"writers"}).err,
            "varnelctl: warning: two components have the path \\SQL01\\sales (Demo Writer): a request cannot tell them "
            "apart\n");
}

TEST_F(HostFileOddities, AFileOnNoVolumeIsTold) {
  hostFile["writers"][0]["components"][0]["files"][0]["path"] = "Q:\\data";
  const CliResult result = Run({"writers"});

  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(
      result.err,
      "varnelctl: warning: no volume of this host holds Q:\\data of \\SQL01\\sales (Demo Writer): no snapshot set "
      "can hold the component\n");
  EXPECT_THAT(result.out, HasSubstr("    Q:\\data  on no known volume\n"));
}

// Typing errors

struct Typing {
  Arguments arguments;
  std::string answer;
};

std::string Commands() {
  std::string list;
  for (const auto& command : varnelctl::MakeCommands()) list += command->name() + std::string(", ");
  return list + "help";
}

TEST(TypingErrors, AreAnsweredWithWhatWasMeant) {
  const Typing cases[] = {
      {{}, "no command was given; there are " + Commands() + " (varnelctl"},
      {{"snapshto"}, "there is no command \"snapshto\"; did you mean \"snapshot\"? (varnelctl"},
      {{"writer"}, "there is no command \"writer\"; did you mean \"writers\"? (varnelctl"},
      {{"--json", "writer", "--all"}, "there is no command \"writer\"; did you mean \"writers\"? (varnelctl"},
      {{"frobnicate"}, "there is no command \"frobnicate\"; there are " + Commands() + " (varnelctl"},
      {{"help", "disk"}, "there is no command \"disk\"; did you mean \"disks\"? (varnelctl help"},
      {{"-v"}, "there is no option -v; did you mean \"--version\" or \"--verbose\"? (varnelctl"},
      {{"snapshot", "-disk", "X"}, "snapshot has no option -disk; did you mean \"--disk\"? (varnelctl snapshot"},
      {{"snapshot", "--dsik", "X"}, "snapshot has no option --dsik; did you mean \"--disk\"? (varnelctl snapshot"},
      {{"snapshot", "--dsik=X"}, "snapshot has no option --dsik; did you mean \"--disk\"? (varnelctl snapshot"},
      {{"snapshot", "--app", "sql", "--disk", "-5", "X", "--thne"},
       "snapshot has no option --thne; did you mean \"--then\"? (varnelctl snapshot"},
      {{"disks", "--jsno"}, "disks has no option --jsno; did you mean \"--json\"? (varnelctl disks"},
      {{"disks", "--all"}, "disks has no option --all; it is one of writers (varnelctl disks"},
      {{"--disk", "X", "snapshot"},
       "there is no option --disk; it is one of doctor and of plan and of snapshot and stands after it (varnelctl"},
      {{"writers", "/all"}, "writers has no option /all; did you mean \"--all\"? (varnelctl writers"},
      {{"/all", "writers"}, "there is no option /all (varnelctl"},
      {{"disks", "json"}, "disks takes no argument \"json\"; did you mean \"--json\"? (varnelctl disks"},
      {{"writers", "disks"}, "one command at a time: writers or disks (varnelctl writers"},
      {{"disks", "--host", ""}, "--host: a file name is missing (varnelctl disks"},
      {{"disks", "--host", "a.json", "--state", ""}, "--state: a file name is missing (varnelctl disks"},
  };
  for (const Typing& typing : cases) {
    SCOPED_TRACE(testing::PrintToString(typing.arguments));
    const CliResult result = RunCli(typing.arguments);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, "varnelctl: " + typing.answer + " --help lists what there is)\n");
    ExpectOnlyTrouble(result);
  }
}

TEST(TypingErrors, EveryUsualQuestionForHelpIsAnswered) {
  const std::string help = RunCli({"--help"}).out;
  const std::string helpOfDisks = RunCli({"disks", "--help"}).out;
  EXPECT_NE(help, helpOfDisks);
  for (const Arguments& arguments : std::vector<Arguments>{{"help"}, {"/?"}, {"-?"}, {"-help"}, {"-h"}}) {
    const CliResult result = RunCli(arguments);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, help);
  }
  for (const Arguments& arguments : std::vector<Arguments>{{"help", "disks"}, {"disks", "/?"}, {"disks", "-h"}}) {
    const CliResult result = RunCli(arguments);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, helpOfDisks);
  }
}

}  // namespace
}  // namespace varnel::test
