// varnelctl's command line, the host files that it cannot use, and the log.
#include "core/varnel.h"
#include "tests/varnelctl/cli_support.h"

namespace varnel::test {
namespace {

using testing::AllOf;
using testing::Not;

constexpr char kOneDisk[] = R"({ "disks": [ { "serial": "IN-FILE", "number": 0, "system": true, "volumes": [
  { "name": "\\\\?\\Volume{00000000-0000-0000-0000-000000000001}\\", "mountPoints": ["C:\\"] } ] } ] })";

class CommandLine : public CliFixture {};

TEST_F(CommandLine, HelpNamesEveryCommandOptionAndExitStatus) {
  const std::string help = Output({"--help"});

  for (const char* part :
       {"writers",           "providers", "disks",        "--host FILE", "--state FILE", "--json",   "--log FILE",
        "--log-level LEVEL", "--version", "Exit status:", "\n   0  ",    "\n   1  ",     "\n   2  ", "\n  10  ",
        "\n  11  ",          "\n  12  ",  "\n  13  ",     "\n  14  ",    "\n  15  ",     "\n  16  ", "\n  18  "}) {
    EXPECT_THAT(help, HasSubstr(part));
  }
}

TEST_F(CommandLine, ACommandHasItsOwnHelpWithExamples) {
  EXPECT_THAT(Output({"writers", "--help"}),
              AllOf(HasSubstr("--all"), HasSubstr("varnelctl writers --json --host host.json")));
}

TEST_F(CommandLine, TheVersionIsPrintedAlone) {
  EXPECT_EQ(Output({"--version"}), "varnelctl " VARNEL_VERSION "\n");
}

TEST_F(CommandLine, AWrongArgumentEndsWithStatus2AndOneLine) {
  const std::vector<Arguments> wrong = {{},
                                        {"frobnicate"},
                                        {"writers", "disks"},
                                        {"writers", "--frobnicate"},
                                        {"disks", "--all"},
                                        {"writers", "/all"},
                                        {"writers", "--host"},
                                        {"disks", "--state", "host.state"},
                                        {"writers", "--host", "a.json", "--host", "b.json"},
                                        {"writers", "--log", "x.log", "--log-level", "loud"},
                                        {"writers", "--log-level", "error"},
                                        {"writers", "two\nlines"}};
  for (const Arguments& arguments : wrong) {
    SCOPED_TRACE(testing::PrintToString(arguments));
    ExpectRefused(RunCli(arguments), "varnelctl: ", "--help lists what there is)\n");
  }
}

TEST_F(CommandLine, GlobalOptionsMayStandBeforeAndAfterTheCommand) {
  const std::string file = folder.Write("host.json", kOneDisk);
  const nlohmann::json disks = nlohmann::json::parse(Output({"--json", "--host", file, "disks"})).at("disks");

  EXPECT_EQ(disks.at(0).at("serialNumber"), "IN-FILE");
  EXPECT_EQ(nlohmann::json::parse(Output({"disks", "--host", file, "--json"})).at("disks"), disks);
}

TEST(WithoutAHostFile, TheSampleHostAnswersWhereThereIsNoMachine) {
  if (MachineHost() != nullptr) GTEST_SKIP() << "this platform's machine answers";
  const CliResult result = RunCli({"writers", "--json"});

  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(nlohmann::json::parse(result.out).at("writers"), Not(IsEmpty()));
}

TEST_F(CommandLine, TheHostIsGoneWhenTheCommandHasEnded) {
  Output({"disks", "--host", folder.Write("host.json", kOneDisk)});

  EXPECT_EQ(CurrentHostOrNull(), &host());
}

TEST_F(CommandLine, OutputThatCannotBeWrittenIsAFailure) {
  std::ostringstream out;
  std::ostringstream trouble;
  out.setstate(std::ios::badbit);

  EXPECT_EQ(varnelctl::RunVarnelctl({"disks"}, out, trouble), 1);
  std::string err = trouble.str();
  EXPECT_THAT(TakeNextStep(err), testing::EndsWith("  next: varnelctl explain output-lost\n"));
  EXPECT_EQ(err, "varnelctl: standard output did not take everything\n");
}

TEST_F(CommandLine, TheLogHasTheLinesOfTheLevelAskedForAndAbove) {
  const std::string everything = folder.File("all.log");
  const std::string errors = folder.File("errors.log");
  host().faults().FailAsync("GatherWriterMetadata", VSS_E_WRITER_INFRASTRUCTURE, 0);

  Run({"writers", "--log", everything, "--log-level", "verbose"});
  Run({"writers", "--log", errors, "--log-level", "error"});

  EXPECT_THAT(ReadFile(everything), AllOf(HasSubstr(" I varnel("), HasSubstr(" E varnel(")));
  EXPECT_THAT(ReadFile(errors), AllOf(Not(HasSubstr(" I varnel(")), HasSubstr(" E varnel(")));
}

TEST_F(CommandLine, ALogThatCannotBeOpenedIsAUsageError) {
  ExpectRefused(Run({"disks", "--log", folder.File("no/such/folder.log")}), "varnelctl: cannot open the log file ");
  ExpectRefused(Run({"disks", "--log", folder.File("no/\u00fc.log")}), "varnelctl: cannot open the log file ");
}

// Host files that cannot be used

class HostFile : public CliFixture {};

TEST_F(HostFile, AMissingFileIsNamed) {
  const std::string path = folder.File("no  such.json");

  ExpectRefused(RunCli({"writers", "--host", path}),
                "varnelctl: " + path + ": /: cannot read the file: there is no such file\n");
}

TEST_F(HostFile, AFolderIsNoHostFile) {
  ExpectRefused(RunCli({"writers", "--host", folder.File("")}), "varnelctl: ");
}

TEST_F(HostFile, ANameOutsideAsciiIsFound) {
  const std::string path = folder.Write("h\xC3\xB6st \xE2\x82\xAC.json", kOneDisk);

  EXPECT_EQ(Output({"disks", "--host", path}), R"(\\.\PhysicalDrive0  serial "IN-FILE", system disk
  \\?\Volume{00000000-0000-0000-0000-000000000001}\  C:\

1 disk
)");
}

struct BadHostFile {
  const char* what;
  const char* text;
  const char* pointer;
};

void PrintTo(const BadHostFile& bad, std::ostream* stream) {
  *stream << bad.what;
}

class BadHostFileTest : public testing::TestWithParam<BadHostFile> {};

TEST_P(BadHostFileTest, EndsEveryCommandWithStatus2AndOneLineThatNamesThePlace) {
  const TemporaryFolder folder;
  const std::string path = folder.Write("bad.json", GetParam().text);
  const std::string start = "varnelctl: " + path + ": " + GetParam().pointer + ": ";
  for (const char* command : {"writers", "providers", "disks"}) {
    ExpectRefused(RunCli({command, "--host", path}), start);
    ExpectRefused(RunCli({command, "--host", path, "--json"}), start);
  }
}

constexpr BadHostFile kBadHostFiles[] = {
    {"an empty file", "", "/"},
    {"no JSON", "{ \"disks\": [\n}\n", "/"},
    {"text after the document", R"({ "disks": [] } x)", "/"},
    {"invalid UTF-8", "{ \"disks\": [], \"computerName\": \"\xFF\" }", "/"},
    {"no object", "[]", "/"},
    {"no disks", "{}", "/"},
    {"an unknown key", R"({ "disks": [], "disk": 1 })", "/disk"},
    {"an unknown key in a disk", R"({ "disks": [ { "serial": "A", "size": 1 } ] })", "/disks/0/size"},
    {"a disk without a serial", R"({ "disks": [ { "number": 1 } ] })", "/disks/0"},
    {"a wrong type", R"({ "disks": {} })", "/disks"},
    {"a number for a text", R"({ "disks": [ { "serial": 7 } ] })", "/disks/0/serial"},
    {"a negative number", R"({ "disks": [ { "serial": "A", "number": -1 } ] })", "/disks/0/number"},
    {"a volume without its form", R"({ "disks": [ { "serial": "A", "volumes": [ { "name": "E:" } ] } ] })",
     "/disks/0/volumes/0/name"},
    {"two disks of one serial", R"({ "disks": [ { "serial": "A" }, { "serial": "A" } ] })", "/disks/1/serial"},
    {"a provider without braces", R"({ "disks": [], "providers": [ { "id": "374579ad" } ] })", "/providers/0/id"},
    {"a provider of no known type",
     R"({ "disks": [], "providers": [ { "id": "{374579ad-285c-49b9-ab8a-950e0e252de2}", "type": "soft" } ] })",
     "/providers/0/type"},
    {"a missing document", R"({ "disks": [], "writers": [ { "document": "none.xml" } ] })", "/writers/0/document"},
    {"a document that is none", R"({ "disks": [], "writers": [ { "document": "bad.json" } ] })", "/writers/0/document"},
    {"databases of no disk", R"({ "disks": [], "databases": { "TSL0001": "a@b" } })", "/databases/TSL0001"},
    {"a session on no disk", R"({ "disks": [], "iscsiSessions": [ { "devices": [ { "disk": "X" } ] } ] })",
     "/iscsiSessions/0/devices/0/disk"},
    {"a fault of nothing", R"({ "disks": [], "faults": [ { "result": "E_FAIL" } ] })", "/faults/0"},
    {"a fault with no known result", R"({ "disks": [], "faults": [ { "call": "CloseHandle", "result": "E_NO" } ] })",
     "/faults/0/result"},
    {"a fault of no writer",
     R"({ "disks": [], "faults": [ { "writer": "W", "event": "freeze", "failure": "E_FAIL" } ] })", "/faults/0/writer"},
    {"a key with a slash", R"({ "disks": [], "a/b": 1 })", "/a~1b"},
};
INSTANTIATE_TEST_SUITE_P(HostFile, BadHostFileTest, testing::ValuesIn(kBadHostFiles));

}  // namespace
}  // namespace varnel::test
