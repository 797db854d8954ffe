// varnelctl: its command line, its three looking commands, and how its failures end.
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "core/varnel.h"
#include "tests/support/host_fixture.h"
#include "tests/varnelctl/cli_support.h"
#include "text/guid.h"
#include "text/unicode.h"
#include "varnelctl/explanation/failure.h"
#include "varnelctl/machine_session.h"

namespace varnel::test {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::EndsWith;
using testing::Not;
using testing::StartsWith;

constexpr char kTwoDisks[] = R"({
  "disks": [
    { "serial": "SYS", "number": 0, "system": true,
      "volumes": [ { "name": "\\\\?\\Volume{00000000-0000-0000-0000-000000000001}\\", "mountPoints": ["C:\\"] } ] },
    { "serial": "TSL0001", "number": 1, "vendor": "Tessel", "clustered": true,
      "volumes": [ { "name": "\\\\?\\Volume{00000000-0000-0000-0000-000000000002}\\", "mountPoints": ["E:\\", "C:\\mnt\\"] },
                   { "name": "\\\\?\\Volume{00000000-0000-0000-0000-000000000003}\\" } ] } ],
  "providers": [
    { "id": "{B5946137-7B9F-4925-AF80-51ABD60B20D5}", "name": "Microsoft Software Shadow Copy provider 1.0",
      "type": "system", "version": "1.0.0.7" },
    { "id": "{374579ad-285c-49b9-ab8a-950e0e252de2}", "name": "Tessel VSS Hardware Provider", "type": "hardware",
      "version": "4.2" } ],
  "writers": [
    { "name": "SqlServerWriter", "writerId": "{a65faa63-5ea8-4ebc-9dbd-a0c4db26912a}",
      "instanceId": "{11111111-2222-3333-4444-555555555555}", "usage": "userData", "source": "transactedDb",
      "restoreMethod": "restoreIfCanReplace", "writerRestore": "always",
      "components": [
        { "type": "database", "logicalPath": "SQL01", "name": "sales", "caption": "Vertrieb \u00e4", "selectable": true,
          "databaseFiles": [ { "path": "E:\\data", "filespec": "sales.mdf" } ],
          "logFiles": [ { "path": "C:\\logs", "filespec": "sales.ldf" } ] },
        { "type": "fileGroup", "logicalPath": "SQL01\\sales", "name": "texts", "selectable": false,
          "files": [ { "path": "Q:\\texts", "filespec": "*" } ] } ] },
    { "name": "Empty Writer", "writerId": "{00000000-0000-0000-0000-00000000000e}",
      "instanceId": "{00000000-0000-0000-0000-0000000000ee}" } ]
})";

constexpr char kWritersText[] = R"(SqlServerWriter
  writer id    {a65faa63-5ea8-4ebc-9dbd-a0c4db26912a}
  instance id  {11111111-2222-3333-4444-555555555555}
  \SQL01\sales
    database, selectable, top level, "Vertrieb ä"
    E:\data  on \\?\Volume{00000000-0000-0000-0000-000000000002}\, disk "TSL0001"
      sales.mdf  (databaseFile)
    C:\logs  on \\?\Volume{00000000-0000-0000-0000-000000000001}\, disk "SYS"
      sales.ldf  (databaseLogFile)
  \SQL01\sales\texts
    fileGroup, not selectable
    Q:\texts  on Q:\texts\, disk unknown
      *  (file)

Empty Writer
  writer id    {00000000-0000-0000-0000-00000000000e}
  instance id  {00000000-0000-0000-0000-0000000000ee}
  no components

2 writers, 2 components, 3 files
)";

constexpr char kWritersJson[] = R"({
  "writers": [
    {
      "name": "SqlServerWriter",
      "writerId": "{a65faa63-5ea8-4ebc-9dbd-a0c4db26912a}",
      "instanceId": "{11111111-2222-3333-4444-555555555555}",
      "components": [
        {
          "fullPath": "\\SQL01\\sales",
          "name": "sales",
          "logicalPath": "SQL01",
          "caption": "Vertrieb ä",
          "type": "database",
          "selectable": true,
          "topLevel": true,
          "files": [
            {
              "path": "E:\\data",
              "filespec": "sales.mdf",
              "fileType": "databaseFile",
              "volume": "\\\\?\\Volume{00000000-0000-0000-0000-000000000002}\\",
              "serialNumber": "TSL0001"
            },
            {
              "path": "C:\\logs",
              "filespec": "sales.ldf",
              "fileType": "databaseLogFile",
              "volume": "\\\\?\\Volume{00000000-0000-0000-0000-000000000001}\\",
              "serialNumber": "SYS"
            }
          ]
        },
        {
          "fullPath": "\\SQL01\\sales\\texts",
          "name": "texts",
          "logicalPath": "SQL01\\sales",
          "caption": "",
          "type": "fileGroup",
          "selectable": false,
          "topLevel": false,
          "files": [
            {
              "path": "Q:\\texts",
              "filespec": "*",
              "fileType": "file",
              "volume": "Q:\\texts\\",
              "serialNumber": ""
            }
          ]
        }
      ]
    },
    {
      "name": "Empty Writer",
      "writerId": "{00000000-0000-0000-0000-00000000000e}",
      "instanceId": "{00000000-0000-0000-0000-0000000000ee}",
      "components": []
    }
  ]
}
)";

constexpr char kProvidersText[] = R"(Microsoft Software Shadow Copy provider 1.0
  id       {b5946137-7b9f-4925-af80-51abd60b20d5}
  type     system
  version  1.0.0.7

Tessel VSS Hardware Provider  (the array's own)
  id       {374579ad-285c-49b9-ab8a-950e0e252de2}
  type     hardware
  version  4.2

2 providers; the array's own is registered.
)";

constexpr char kProvidersJson[] = R"({
  "providers": [
    {
      "id": "{b5946137-7b9f-4925-af80-51abd60b20d5}",
      "name": "Microsoft Software Shadow Copy provider 1.0",
      "type": "system",
      "version": "1.0.0.7",
      "isArrayProvider": false
    },
    {
      "id": "{374579ad-285c-49b9-ab8a-950e0e252de2}",
      "name": "Tessel VSS Hardware Provider",
      "type": "hardware",
      "version": "4.2",
      "isArrayProvider": true
    }
  ],
  "arrayProviderPresent": true
}
)";

constexpr char kDisksText[] = R"(\\.\PhysicalDrive0  serial "SYS", system disk
  \\?\Volume{00000000-0000-0000-0000-000000000001}\  C:\
\\.\PhysicalDrive1  serial "TSL0001", clustered
  \\?\Volume{00000000-0000-0000-0000-000000000002}\  E:\, C:\mnt\
  \\?\Volume{00000000-0000-0000-0000-000000000003}\  (not mounted)

2 disks
)";

constexpr char kDisksJson[] = R"({
  "disks": [
    {
      "name": "\\\\.\\PhysicalDrive0",
      "number": 0,
      "serialNumber": "SYS",
      "system": true,
      "clustered": false,
      "volumes": [
        {
          "name": "\\\\?\\Volume{00000000-0000-0000-0000-000000000001}\\",
          "mountPoints": [
            "C:\\"
          ]
        }
      ]
    },
    {
      "name": "\\\\.\\PhysicalDrive1",
      "number": 1,
      "serialNumber": "TSL0001",
      "system": false,
      "clustered": true,
      "volumes": [
        {
          "name": "\\\\?\\Volume{00000000-0000-0000-0000-000000000002}\\",
          "mountPoints": [
            "E:\\",
            "C:\\mnt\\"
          ]
        },
        {
          "name": "\\\\?\\Volume{00000000-0000-0000-0000-000000000003}\\",
          "mountPoints": []
        }
      ]
    }
  ]
}
)";

// Runs on a host file; nothing may be said about trouble.
std::string OutputOf(const std::string& hostFile, std::vector<std::string> arguments) {
  arguments.insert(arguments.end(), {"--host", hostFile});
  const CliResult result = RunCli(std::move(arguments));
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  return result.out;
}

void ExpectRefusal(const CliResult& result, const std::string& line) {
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, line + "\n");
}

// The command line

TEST(CommandLine, HelpNamesEveryCommandOptionAndExitStatus) {
  const CliResult result = RunCli({"--help"});

  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  for (const char* word : {"writers", "providers", "disks", "--host FILE", "--json", "--log FILE", "--log-level LEVEL",
                           "--version", "Exit status:"}) {
    EXPECT_THAT(result.out, HasSubstr(word));
  }
  for (const char* status :
       {"   0  ", "   1  ", "   2  ", "  10  ", "  11  ", "  12  ", "  13  ", "  14  ", "  15  ", "  16  "}) {
    EXPECT_THAT(result.out, HasSubstr(std::string("\n") + status));
  }
}

TEST(CommandLine, ACommandHasItsOwnHelpWithExamples) {
  const CliResult result = RunCli({"writers", "--help"});

  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, AllOf(HasSubstr("--all"), HasSubstr("varnelctl writers --json --host host.json")));
}

TEST(CommandLine, TheVersionIsPrintedAlone) {
  const CliResult result = RunCli({"--version"});

  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "varnelctl " VARNEL_VERSION "\n");
  EXPECT_EQ(result.err, "");
}

TEST(CommandLine, AWrongArgumentEndsWithStatus2AndOneLine) {
  const std::vector<std::vector<std::string>> wrong = {
      {},
      {"frobnicate"},
      {"writers", "disks"},
      {"writers", "--frobnicate"},
      {"disks", "--all"},
      {"writers", "/all"},
      {"writers", "--host"},
      {"writers", "--host", "a.json", "--host", "b.json"},
      {"writers", "--log", "x.log", "--log-level", "loud"},
      {"writers", "--log-level", "error"},
      {"writers", "two\nlines"},
  };
  for (const std::vector<std::string>& arguments : wrong) {
    const CliResult result = RunCli(arguments);

    SCOPED_TRACE(testing::PrintToString(arguments));
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, AllOf(StartsWith("varnelctl: "), EndsWith("(varnelctl --help lists what there is)\n")));
    EXPECT_TRUE(IsOneLine(result.err)) << result.err;
  }
}

TEST(CommandLine, GlobalOptionsMayStandBeforeAndBehindTheCommand) {
  const TemporaryFolder folder;
  const std::string host = folder.Write("host.json", kTwoDisks);

  EXPECT_EQ(RunCli({"--json", "--host", host, "disks"}).out, kDisksJson);
  EXPECT_EQ(RunCli({"disks", "--host", host, "--json"}).out, kDisksJson);
}

TEST(CommandLine, WithoutAHostFileTheSampleHostAnswersWhereThereIsNoMachine) {
  if (MachineHost() != nullptr) GTEST_SKIP() << "this platform's machine answers";
  const CliResult result = RunCli({"writers", "--json"});

  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(json::parse(result.out).at("writers"), Not(IsEmpty()));
}

TEST(CommandLine, TheHostIsGoneWhenTheCommandHasEnded) {
  Host* const before = CurrentHostOrNull();
  const TemporaryFolder folder;
  RunCli({"disks", "--host", folder.Write("host.json", kTwoDisks)});

  EXPECT_EQ(CurrentHostOrNull(), before);
}

TEST(CommandLine, OutputThatCannotBeWrittenIsAFailure) {
  const TemporaryFolder folder;
  std::ostringstream out;
  std::ostringstream err;
  out.setstate(std::ios::badbit);

  EXPECT_EQ(varnelctl::RunVarnelctl({"disks", "--host", folder.Write("host.json", kTwoDisks)}, out, err), 1);
  EXPECT_EQ(err.str(), "varnelctl: standard output did not take everything\n");
}

// Host files that cannot be used

TEST(HostFile, AMissingFileIsNamed) {
  const TemporaryFolder folder;
  const std::string path = folder.Argument("no  such.json");

  ExpectRefusal(RunCli({"writers", "--host", path}), "varnelctl: " + path + ": /: cannot read the file");
}

TEST(HostFile, AFolderIsNoHostFile) {
  const TemporaryFolder folder;

  const CliResult result = RunCli({"writers", "--host", folder.Argument("")});

  EXPECT_EQ(result.status, 2);
  EXPECT_TRUE(IsOneLine(result.err)) << result.err;
}

TEST(HostFile, ANameOutsideAsciiIsFound) {
  const TemporaryFolder folder;

  EXPECT_EQ(OutputOf(folder.Write("h\xC3\xB6st \xE2\x82\xAC.json", kTwoDisks), {"disks"}), kDisksText);
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
  for (const char* command : {"writers", "providers", "disks"}) {
    for (const bool asJson : {false, true}) {
      std::vector<std::string> arguments = {command, "--host", path};
      if (asJson) arguments.emplace_back("--json");

      const CliResult result = RunCli(arguments);

      EXPECT_EQ(result.status, 2);
      EXPECT_EQ(result.out, "");
      EXPECT_THAT(result.err, StartsWith("varnelctl: " + path + ": " + GetParam().pointer + ": "));
      EXPECT_TRUE(IsOneLine(result.err)) << result.err;
    }
  }
}

constexpr BadHostFile kBadHostFiles[] = {
    {"an empty file", "", "/"},
    {"no JSON", "{ \"disks\": [\n}\n", "/"},
    {"text behind the document", R"({ "disks": [] } x)", "/"},
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
    {"a fault with no known result", R"({ "disks": [], "faults": [ { "call": "Sleep", "result": "E_NO" } ] })",
     "/faults/0/result"},
    {"a fault of no writer",
     R"({ "disks": [], "faults": [ { "writer": "W", "event": "freeze", "failure": "E_FAIL" } ] })", "/faults/0/writer"},
    {"a key with a slash", R"({ "disks": [], "a/b": 1 })", "/a~1b"},
};
INSTANTIATE_TEST_SUITE_P(HostFile, BadHostFileTest, testing::ValuesIn(kBadHostFiles));

// What the commands print

TEST(Writers, AreListedForPeople) {
  const TemporaryFolder folder;

  EXPECT_EQ(OutputOf(folder.Write("host.json", kTwoDisks), {"writers"}), kWritersText);
}

TEST(Writers, AreListedAsJson) {
  const TemporaryFolder folder;

  EXPECT_EQ(OutputOf(folder.Write("host.json", kTwoDisks), {"writers", "--json"}), kWritersJson);
}

TEST(Writers, AHostWithoutWritersHasAnEmptyList) {
  const TemporaryFolder folder;
  const std::string host = folder.Write("host.json", R"({ "disks": [] })");

  EXPECT_EQ(OutputOf(host, {"writers"}), "0 writers, 0 components, 0 files\n");
  EXPECT_EQ(OutputOf(host, {"writers", "--json"}), "{\n  \"writers\": []\n}\n");
}

TEST(Providers, AreListedForPeople) {
  const TemporaryFolder folder;

  EXPECT_EQ(OutputOf(folder.Write("host.json", kTwoDisks), {"providers"}), kProvidersText);
}

TEST(Providers, AreListedAsJson) {
  const TemporaryFolder folder;

  EXPECT_EQ(OutputOf(folder.Write("host.json", kTwoDisks), {"providers", "--json"}), kProvidersJson);
}

TEST(Providers, AnAbsentArrayProviderIsSaid) {
  const TemporaryFolder folder;
  const std::string host = folder.Write("host.json", R"({ "disks": [] })");

  EXPECT_EQ(OutputOf(host, {"providers"}), "0 providers; the array's own is NOT registered.\n");
  EXPECT_EQ(OutputOf(host, {"providers", "--json"}), "{\n  \"providers\": [],\n  \"arrayProviderPresent\": false\n}\n");
}

TEST(Disks, AreListedForPeople) {
  const TemporaryFolder folder;

  EXPECT_EQ(OutputOf(folder.Write("host.json", kTwoDisks), {"disks"}), kDisksText);
}

TEST(Disks, AreListedAsJson) {
  const TemporaryFolder folder;

  EXPECT_EQ(OutputOf(folder.Write("host.json", kTwoDisks), {"disks", "--json"}), kDisksJson);
}

// The examples

TEST(Examples, TheSqlServerHostShowsEveryComponentOfItsWriter) {
  const std::string path = VARNEL_EXAMPLES "/hosts/sql-server.json";
  const simulator::HostModel model = simulator::LoadHostFile(path);
  const auto expected = std::find_if(model.writers.begin(), model.writers.end(),
                                     [](const simulator::Writer& writer) { return writer.name == L"SqlServerWriter"; });
  ASSERT_NE(expected, model.writers.end());

  const json writers = json::parse(OutputOf(path, {"writers", "--json"})).at("writers");

  ASSERT_EQ(writers.size(), model.writers.size());
  const json& writer = writers.at(static_cast<std::size_t>(expected - model.writers.begin()));
  EXPECT_EQ(writer.at("name"), "SqlServerWriter");
  EXPECT_EQ(writer.at("writerId"), WideToUtf8(kSqlServerWriterId));
  ASSERT_FALSE(expected->components.empty());
  ASSERT_EQ(writer.at("components").size(), expected->components.size());
  for (std::size_t i = 0; i < expected->components.size(); ++i) {
    const simulator::WriterComponent& component = expected->components[i];
    const json& shown = writer.at("components").at(i);
    EXPECT_EQ(shown.at("fullPath"), WideToUtf8(simulator::FullPath(component)));
    EXPECT_EQ(shown.at("selectable"), component.selectable);
    EXPECT_EQ(shown.at("type"), component.type == VSS_CT_DATABASE ? "database" : "fileGroup");
    EXPECT_EQ(shown.at("files").size(),
              component.files.size() + component.databaseFiles.size() + component.logFiles.size());
    for (const json& file : shown.at("files")) EXPECT_NE(file.at("serialNumber"), "") << file;
  }
}

// On a host that the test holds: faults, unusual values, and nothing left behind

class CliOnHost : public HostFixture {};

TEST_F(CliOnHost, ALongFileListIsCutUnlessAllIsAskedFor) {
  simulator::WriterComponent component = MakeComponent(L"", L"big", {});
  for (int i = 0; i < 25; ++i) component.files.push_back({i % 2 == 0 ? L"E:\\a" : L"F:\\b", std::to_wstring(i)});
  simulator::HostModel model = SmallHost();
  model.writers = {MakeWriter(L"Writer", 1, {component})};
  Install(std::move(model));

  const std::string cut = RunCli({"writers"}).out;
  const std::string all = RunCli({"writers", "--all"}).out;

  EXPECT_THAT(cut, HasSubstr("      13  (file)\n    ... and 5 more files (--all shows them)\n"));
  EXPECT_THAT(cut, AllOf(Not(HasSubstr("      15  (file)")), EndsWith("1 writer, 1 component, 25 files\n")));
  EXPECT_THAT(all, AllOf(HasSubstr("      23  (file)\n"), Not(HasSubstr("--all"))));
}

TEST_F(CliOnHost, EachVolumeIsLookedUpOnceHoweverManyFilesItHolds) {
  simulator::HostModel model = SmallHost();
  model.writers = {MakeWriter(L"Writer", 1, {MakeComponent(L"", L"a", {L"E:\\a", L"E:\\b"})})};
  Install(std::move(model));

  RunCli({"writers", "--json"});

  int opened = 0;
  for (const std::string& call : host().calls().Of("CreateFileW")) {
    if (call.find("Volume{00000001") != std::string::npos) ++opened;
  }
  EXPECT_EQ(opened, 1);
}

TEST_F(CliOnHost, TextThatIsNoUnicodeBecomesTheReplacementCharacter) {
  simulator::HostModel model = SmallHost();
  model.writers = {MakeWriter(std::wstring(L"bad ") + static_cast<wchar_t>(0xD800), 1, {})};
  Install(std::move(model));

  const CliResult result = RunCli({"writers", "--json"});

  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(json::parse(result.out).at("writers").at(0).at("name"), "bad \xEF\xBF\xBD");
}

TEST_F(CliOnHost, ControlCharactersReachJsonButNoTerminal) {
  simulator::HostModel model = SmallHost();
  model.writers = {MakeWriter(L"\x1B[2Jevil\nname\x9B", 1, {})};
  Install(std::move(model));

  EXPECT_THAT(RunCli({"writers"}).out, StartsWith("\xEF\xBF\xBD[2Jevil\xEF\xBF\xBDname\xEF\xBF\xBD\n"));
  EXPECT_EQ(json::parse(RunCli({"writers", "--json"}).out).at("writers").at(0).at("name"), "\x1B[2Jevil\nname\xC2\x9B");
}

TEST_F(CliOnHost, ADiskWithoutASerialNumberIsListedWithARemark) {
  simulator::HostModel model = SmallHost();
  model.disks[2].reportsSerial = false;
  model.disks[2].serial.clear();
  Install(std::move(model));

  const CliResult text = RunCli({"disks"});
  EXPECT_THAT(text.out, HasSubstr("\\\\.\\PhysicalDrive2  no serial number: cannot be in a protection set\n  "
                                  "\\\\?\\Volume{00000002-0000-0000-0000-000000000000}\\  F:\\\n"));
  const json disks = json::parse(RunCli({"disks", "--json"}).out).at("disks");
  EXPECT_EQ(disks.at(2).at("serialNumber"), "");
  EXPECT_EQ(disks.at(2).at("volumes").at(0).at("mountPoints"), json({"F:\\"}));
}

TEST_F(CliOnHost, ADiskWithoutVolumesIsListed) {
  simulator::HostModel model = SmallHost();
  model.disks[1].volumes.clear();
  Install(std::move(model));

  EXPECT_THAT(RunCli({"disks"}).out, HasSubstr("\\\\.\\PhysicalDrive1  serial \"TSL0001\"\n  no volumes\n"));
}

TEST_F(CliOnHost, EveryMountPointOfALongListIsShown) {
  simulator::HostModel model = SmallHost();
  for (int i = 0; i < 40; ++i) {
    model.disks[1].volumes[0].mountPoints.push_back(L"C:\\a rather long folder\\" + std::to_wstring(i) + L"\\");
  }
  const std::size_t expected = model.disks[1].volumes[0].mountPoints.size();
  Install(std::move(model));

  const json disks = json::parse(RunCli({"disks", "--json"}).out).at("disks");

  const json& mountPoints = disks.at(1).at("volumes").at(0).at("mountPoints");
  ASSERT_EQ(mountPoints.size(), expected);
  EXPECT_EQ(mountPoints.back(), "C:\\a rather long folder\\39\\");
}

TEST_F(CliOnHost, MountPointsThatCannotBeReadAreAWarning) {
  host().faults().FailCall("GetVolumePathNamesForVolumeNameW", ERROR_ACCESS_DENIED);

  const CliResult result = RunCli({"disks", "--json"});

  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err,
            "varnelctl: warning: the mount points of \\\\?\\Volume{00000000-0000-0000-0000-000000000000}\\ cannot be "
            "read (error 5)\n");
  EXPECT_EQ(json::parse(result.out).at("disks").size(), 3u);
}

TEST_F(CliOnHost, WithoutDiskManagementTheDisksOfVolumesAreShown) {
  host().faults().FailCall("IWbemServices::ExecQuery", static_cast<DWORD>(E_FAIL));

  const CliResult result = RunCli({"disks", "--json"});

  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.err, EndsWith("; disks without volumes are not shown\n"));
  EXPECT_EQ(json::parse(result.out).at("disks").size(), 3u);
}

TEST_F(CliOnHost, AFailedCallOfTheRequestorEndsWithStatus15AndItsAlertRecord) {
  host().faults().FailAsync("GatherWriterMetadata", VSS_E_WRITER_INFRASTRUCTURE);

  const CliResult result = RunCli({"writers", "--json"});

  EXPECT_EQ(result.status, 15);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err,
            "varnelctl: GatherWriterMetadata failed: VSS_E_WRITER_INFRASTRUCTURE (0x80042318)\n"
            "RequestStatus=QueryStatus(), Function=pAsync->QueryStatus(), Error=VSS_E_WRITER_INFRASTRUCTURE, "
            "rc=SystemError, ca=ContactSupport\n");
}

TEST_F(CliOnHost, AFailedCallInInitializeIsNamed) {
  host().faults().FailCall("IVssBackupComponents::InitializeForBackup", static_cast<DWORD>(VSS_E_BAD_STATE));

  const CliResult result = RunCli({"writers"});

  EXPECT_EQ(result.status, 15);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err,
            "varnelctl: Initialize failed: VSS_E_BAD_STATE (0x80042301)\n"
            "InitializeForBackup()=Failed, error=VSS_E_BAD_STATE, rc=COMMError, ca=ContactTechSupport;\n");
}

TEST_F(CliOnHost, AFailedProviderQueryIsNamed) {
  host().faults().FailCall("IVssAdmin::QueryProviders", static_cast<DWORD>(VSS_E_UNEXPECTED));

  const CliResult result = RunCli({"providers"});

  EXPECT_EQ(result.status, 15);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "varnelctl: IVssAdmin::QueryProviders failed: VSS_E_UNEXPECTED (0x80042302)\n");
}

TEST_F(CliOnHost, AResultWithoutANameHasTheHostsTextForIt) {
  simulator::HostModel model = SmallHost();
  model.messages[0x80070005] = L"Access is denied.\r\n";
  Install(std::move(model)).faults().FailCall("CoCreateInstance", 0x80070005);

  EXPECT_EQ(RunCli({"providers"}).err,
            "varnelctl: CoCreateInstance(CLSID_VSSCoordinator) failed: Access is denied. (0x80070005)\n");
}

TEST_F(CliOnHost, TheLogHasTheLinesOfTheLevelAskedForAndAbove) {
  const TemporaryFolder folder;
  const std::string everything = folder.Argument("all.log");
  const std::string errors = folder.Argument("errors.log");
  host().faults().FailAsync("GatherWriterMetadata", VSS_E_WRITER_INFRASTRUCTURE, 0);

  RunCli({"writers", "--log", everything, "--log-level", "verbose"});
  RunCli({"writers", "--log", errors, "--log-level", "error"});

  EXPECT_THAT(ReadFile(everything), AllOf(HasSubstr(" I varnel("), HasSubstr(" E varnel(")));
  EXPECT_THAT(ReadFile(errors), AllOf(Not(HasSubstr(" I varnel(")), HasSubstr(" E varnel(")));
}

TEST_F(CliOnHost, ALogThatCannotBeOpenedIsAUsageError) {
  const TemporaryFolder folder;

  const CliResult result = RunCli({"disks", "--log", folder.Argument("no/such/folder.log")});

  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, StartsWith("varnelctl: cannot open the log file "));
  EXPECT_TRUE(IsOneLine(result.err)) << result.err;
}

// A failure of any one call is told or absorbed; either way the output is a whole document or nothing, and everything
// that was handed out is given back (the fixture checks that).
class CliSweep : public CliOnHost, public testing::WithParamInterface<const char*> {};

TEST_P(CliSweep, AnyCallMayFail) {
  constexpr int kMoreThanAnyRun = 2000;
  simulator::HostModel model = SmallHost();
  model.writers = {MakeWriter(L"Writer", 1, {MakeComponent(L"path", L"name", {L"E:\\a", L"F:\\b"})})};
  for (int n = 1; n < kMoreThanAnyRun; ++n) {
    Install(model).faults().FailNthCall(n, static_cast<DWORD>(E_FAIL));

    const CliResult result = RunCli({GetParam(), "--json"});

    SCOPED_TRACE("call " + std::to_string(n) + ": " + host().faults().firedAt());
    EXPECT_EQ(host().live().Describe(), "");
    EXPECT_THAT(host().live().misuses(), IsEmpty());
    EXPECT_TRUE(result.status == 0 || result.status == 1 || result.status == 15) << result.status;
    EXPECT_EQ(result.status == 0, json::accept(result.out)) << result.out;
    EXPECT_THAT(result.err, testing::AnyOf(StartsWith("varnelctl: "), IsEmpty()));
    EXPECT_FALSE(result.status != 0 && result.err.empty());
    if (!host().faults().fired()) {
      EXPECT_EQ(result.status, 0);
      return;
    }
  }
  FAIL() << "the run never came to its end";
}

INSTANTIATE_TEST_SUITE_P(Commands, CliSweep, testing::Values("writers", "providers", "disks"));

// From exceptions to statuses

template <class Exception>
varnelctl::Failure Described(const Exception& exception) {
  return varnelctl::DescribeFailure(std::make_exception_ptr(exception), "SomeCall");
}

TEST(Failure, EachAlertCodeHasItsStatus) {
  const std::pair<int, int> expected[] = {{600, 10}, {601, 11}, {602, 12}, {603, 13}, {701, 14}, {999, 1}};
  for (const auto& [alert, status] : expected) {
    const varnelctl::Failure failure = Described(VarnelException(alert, L"text"));

    EXPECT_EQ(static_cast<int>(failure.status), status) << alert;
    EXPECT_EQ(failure.alertCode, alert);
    EXPECT_EQ(failure.message, "text");
    EXPECT_EQ(failure.details.size(), alert == VarnelException::VerificationFailure ? 1u : 0u);
  }
}

TEST(Failure, AFailedVerificationSaysWhereItsFileIsNamed) {
  EXPECT_THAT(
      Described(VarnelException(VarnelException::VerificationFailure, L"text")).details,
      ElementsAre("a check of VerifySnapShotData failed; the log (--log FILE) has its command line and its file"));
}

TEST(Failure, AnUnfitMachineIsOneSentenceAndAFailedCall) {
  const varnelctl::Failure failure = Described(varnelctl::UnfitMachine("no service here", E_ACCESSDENIED));

  EXPECT_EQ(failure.status, varnelctl::ExitStatus::FailedCall);
  EXPECT_EQ(failure.message, "no service here");
  EXPECT_EQ(failure.hresult, E_ACCESSDENIED);
}

TEST(Failure, AProcessIsToldWhyTheServiceWillNotAnswerIt) {
  EXPECT_EQ(varnelctl::WhyUnfit(true, true, true), "");
  EXPECT_EQ(varnelctl::WhyUnfit(true, true, false),
            "this machine has no Volume Shadow Copy service: vssapi.dll cannot be loaded");
  EXPECT_EQ(varnelctl::WhyUnfit(true, false, true),
            "the Volume Shadow Copy service of 64-bit Windows answers 64-bit programs only, and this one has 32");
  EXPECT_EQ(varnelctl::WhyUnfit(false, true, true),
            "the Volume Shadow Copy service answers administrators only: start varnelctl elevated");
}

TEST(Failure, AnAlertsListFollowsItsMessage) {
  const varnelctl::Failure failure = Described(VarnelException(600, L"two\r\nlines", {L"first", L"", L"second\r\n"}));

  EXPECT_EQ(failure.message, "two lines");
  EXPECT_THAT(failure.details, ElementsAre("first", "second"));
}

TEST(Failure, AThrownLongIsAFailedCall) {
  const varnelctl::Failure failure = Described(static_cast<long>(VSS_E_BAD_STATE));

  EXPECT_EQ(failure.status, varnelctl::ExitStatus::FailedCall);
  EXPECT_EQ(failure.hresult, VSS_E_BAD_STATE);
  EXPECT_EQ(failure.message, "SomeCall failed: VSS_E_BAD_STATE (0x80042301)");
}

TEST(Failure, ARefusalHasTheCataloguesMessageAndTheStatusWord) {
  const varnelctl::Failure failure = Described(varnelctl::ValidationFailure(252, "TesselHyperVValidation_Exception"));

  EXPECT_EQ(failure.status, varnelctl::ExitStatus::Validation);
  EXPECT_EQ(failure.alertCode, 252);
  EXPECT_EQ(failure.message,
            "An error occurred while validating volumes in volume collection. Please refer to logs on the host for "
            "more details.");
  EXPECT_THAT(failure.details, ElementsAre("status TesselHyperVValidation_Exception"));
  EXPECT_EQ(Described(varnelctl::ValidationFailure(99, "")).message, "the library refuses this request (message 99)");
}

TEST(Failure, TheCompletionIsToldAnAlertsCodeOrAThrownResultElseMinusOne) {
  EXPECT_EQ(Described(VarnelException(601, L"text")).backupStatus, 601);
  EXPECT_EQ(Described(static_cast<long>(VSS_E_BAD_STATE)).backupStatus, static_cast<int>(VSS_E_BAD_STATE));
  EXPECT_EQ(Described(122L).backupStatus, 122);
  EXPECT_EQ(Described(varnelctl::ValidationFailure(250, "")).backupStatus, -1);
  EXPECT_EQ(Described(varnelctl::CallFailure("SomeCall", E_FAIL)).backupStatus, -1);
  EXPECT_EQ(Described(std::runtime_error("broken")).backupStatus, -1);
  EXPECT_EQ(Described(VarnelException()).backupStatus, -1) << "0 would be a success";
  EXPECT_EQ(Described(0L).backupStatus, -1);
}

TEST(Failure, AnythingElseIsUnexpected) {
  EXPECT_EQ(Described(NoHostError()).status, varnelctl::ExitStatus::Unexpected);
  EXPECT_EQ(Described(std::runtime_error("broken")).message, "broken");
  EXPECT_EQ(Described(7).status, varnelctl::ExitStatus::Unexpected);
}

}  // namespace
}  // namespace varnel::test
