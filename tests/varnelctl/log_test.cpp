// The log of a run: the library's lines between those that say which run it is and how it ended.
#include "tests/varnelctl/snapshot_support.h"

namespace varnel::test {
namespace {

const std::string kRuler = "I varnelctl(0) " + std::string(80, '-');
const std::string kVersion = "I varnelctl(0) varnelctl " VARNEL_VERSION;
const std::string kRun = kVersion + " on HOST, process 4242, 2026-01-01T00:00:00.000Z: ";

class LogOfVarnelctl : public CliFixture {
 protected:
  /// The lines of the log without their times.
  std::vector<std::string> LinesAfter(Arguments arguments, int status = 0) {
    arguments.insert(arguments.begin(), {"--log", file_});
    EXPECT_EQ(Run(std::move(arguments)).status, status);
    return Lines();
  }
  std::vector<std::string> Lines() const {
    std::vector<std::string> lines;
    std::ifstream file(PathOf(file_));
    for (std::string line; std::getline(file, line);) lines.push_back(line.substr(kTime.size()));
    return lines;
  }

  const std::string kTime = "2026-11-20 18:52:44.123 ";
  const std::string file_ = folder.File("varnel.log");
};

TEST_F(LogOfVarnelctl, BeginsWithTheHeaderAndEndsWithTheExitStatus) {
  EXPECT_THAT(LinesAfter({"providers"}), ElementsAre(kRuler, kRun + "--log " + file_ + " providers",
                                                     "I varnelctl(0) ends with exit status 0: done"));
}

TEST_F(LogOfVarnelctl, HasTheLibrarysLinesInBetweenAsTheyAre) {
  Output({"writers"});
  std::vector<std::string> expected = {kRuler, kRun + "--log " + file_ + " writers"};
  for (const RecordingLog::Line& line : log.lines) {
    if (line.category < CFileLog::Information) continue;
    expected.push_back(std::string(1, "?VIWE"[line.category]) + " " + line.source + "(" + std::to_string(line.line) +
                       ") " + line.text);
  }
  EXPECT_THAT(expected, testing::Not(SizeIs(2)));
  expected.push_back("I varnelctl(0) ends with exit status 0: done");

  EXPECT_EQ(LinesAfter({"writers"}), expected);
}

TEST_F(LogOfVarnelctl, TellsWhichSetWasAskedForAndTheVerdict) {
  model().writers = {MakeWriter(L"Writer", 1, {MakeComponent(L"", L"one", {L"E:\\"})})};
  const std::vector<std::string> lines = LinesAfter(
      {"--log-level", "error", "snapshot", "--app", "none", "--disk", "TSL0001", "--context", "app-rollback"});

  ASSERT_THAT(lines, SizeIs(4));
  EXPECT_EQ(lines[2],
            "I varnelctl(0) application none, disks \"TSL0001\", type full, context app-rollback, provider "
            "{374579ad-285c-49b9-ab8a-950e0e252de2}");
  EXPECT_EQ(lines[3],
            "I varnelctl(0) ends with exit status 0: CAPTURED 1 of 1 component; set "
            "{00000002-5e1f-4c3d-9a0b-000000000000} kept until it is deleted");
}

TEST_F(LogOfVarnelctl, HasHeaderAndEndWhateverTheLevelIs) {
  EXPECT_THAT(LinesAfter({"--log-level", "error", "disks"}), SizeIs(3));
}

TEST_F(LogOfVarnelctl, HasEachRunAfterARulerOfItsOwn) {
  LinesAfter({"providers"});

  EXPECT_THAT(LinesAfter({"disks"}),
              ElementsAre(kRuler, HasSubstr(" providers"), HasSubstr(" ends with exit status 0: done"), kRuler,
                          HasSubstr(" disks"), HasSubstr(" ends with exit status 0: done")));
}

TEST_F(LogOfVarnelctl, EndsWithWhatFailed) {
  Fail("CoCreateInstance", REGDB_E_CLASSNOTREG);
  const std::vector<std::string> lines = LinesAfter({"providers"}, 15);

  EXPECT_EQ(lines.back(),
            "E varnelctl(0) ends with exit status 15: CoCreateInstance(CLSID_VSSCoordinator) failed: "
            "Error: 0x80040154 (0x80040154)");
}

TEST_F(LogOfVarnelctl, HasHeaderAndEndOfARunWhoseHostFileCannotBeRead) {
  const std::string missing = folder.File("missing.json");
  const std::vector<std::string> lines = LinesAfter({"--host", missing, "disks"}, 2);

  ASSERT_THAT(lines, SizeIs(3));
  EXPECT_THAT(lines[1], StartsWith(kVersion));
  EXPECT_THAT(lines[1], EndsWith("--log " + file_ + " --host " + missing + " disks"));
  EXPECT_THAT(lines[2], StartsWith("E varnelctl(0) ends with exit status 2: " + missing + ": /: cannot read the file"));
}

TEST_F(LogOfVarnelctl, ShowsArgumentsAsAShellTakesThem) {
  const std::vector<std::string> lines = LinesAfter({"snapshot", "--app", "none", "--disk", " TSL\x1b[2J", ""}, 2);

  EXPECT_THAT(lines[1], EndsWith(" --disk \" TSL\xEF\xBF\xBD[2J\" \"\""));
  EXPECT_THAT(lines[2], HasSubstr("disks \" TSL\xEF\xBF\xBD[2J\", \"\", type full"));
}

TEST_F(LogOfVarnelctl, DoesWithoutTheNameOfAHostThatDoesNotSay) {
  Fail("GetComputerNameExW", HRESULT{ERROR_ACCESS_DENIED});

  EXPECT_EQ(LinesAfter({"disks"})[1], kVersion + ", process 4242, 2026-01-01T00:00:00.000Z: --log " + file_ + " disks");
}

}  // namespace
}  // namespace varnel::test
