// varnelctl's commands that look: writers, providers and disks, as text and as JSON.
#include "core/varnel.h"
#include "tests/varnelctl/cli_support.h"
#include "text/guid.h"
#include "text/unicode.h"

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
    Q:\texts  on no known volume
      *  (file)

Empty Writer
  writer id    {00000000-0000-0000-0000-00000000000e}
  instance id  {00000000-0000-0000-0000-0000000000ee}
  no components

2 writers, 2 components, 3 files
)";

constexpr char kWritersJson[] = R"({"writers": [
  {"name": "SqlServerWriter", "writerId": "{a65faa63-5ea8-4ebc-9dbd-a0c4db26912a}", "instanceId": "{11111111-2222-3333-4444-555555555555}",
   "components": [
     {"fullPath": "\\SQL01\\sales", "name": "sales", "logicalPath": "SQL01", "caption": "Vertrieb ä",
      "type": "database", "selectable": true, "topLevel": true,
      "files": [
        {"path": "E:\\data", "filespec": "sales.mdf", "fileType": "databaseFile",
         "volume": "\\\\?\\Volume{00000000-0000-0000-0000-000000000002}\\", "serialNumber": "TSL0001"},
        {"path": "C:\\logs", "filespec": "sales.ldf", "fileType": "databaseLogFile",
         "volume": "\\\\?\\Volume{00000000-0000-0000-0000-000000000001}\\", "serialNumber": "SYS"}]},
     {"fullPath": "\\SQL01\\sales\\texts", "name": "texts", "logicalPath": "SQL01\\sales", "caption": "",
      "type": "fileGroup", "selectable": false, "topLevel": false,
      "files": [
        {"path": "Q:\\texts", "filespec": "*", "fileType": "file",
         "volume": "Q:\\texts\\", "serialNumber": ""}]}]},
  {"name": "Empty Writer", "writerId": "{00000000-0000-0000-0000-00000000000e}", "instanceId": "{00000000-0000-0000-0000-0000000000ee}", "components": []}
]})";

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

constexpr char kProvidersJson[] = R"({"providers": [
  {"id": "{b5946137-7b9f-4925-af80-51abd60b20d5}", "name": "Microsoft Software Shadow Copy provider 1.0",
   "type": "system", "version": "1.0.0.7", "isArrayProvider": false},
  {"id": "{374579ad-285c-49b9-ab8a-950e0e252de2}", "name": "Tessel VSS Hardware Provider",
   "type": "hardware", "version": "4.2", "isArrayProvider": true}],
 "arrayProviderPresent": true})";

constexpr char kDisksText[] = R"(\\.\PhysicalDrive0  serial "SYS", system disk
  \\?\Volume{00000000-0000-0000-0000-000000000001}\  C:\
\\.\PhysicalDrive1  serial "TSL0001", clustered
  \\?\Volume{00000000-0000-0000-0000-000000000002}\  E:\, C:\mnt\
  \\?\Volume{00000000-0000-0000-0000-000000000003}\  (not mounted)

2 disks
)";

constexpr char kDisksJson[] = R"({"disks": [
  {"name": "\\\\.\\PhysicalDrive0", "number": 0, "serialNumber": "SYS", "system": true, "clustered": false,
   "volumes": [
     {"name": "\\\\?\\Volume{00000000-0000-0000-0000-000000000001}\\", "mountPoints": ["C:\\"]}]},
  {"name": "\\\\.\\PhysicalDrive1", "number": 1, "serialNumber": "TSL0001", "system": false, "clustered": true,
   "volumes": [
     {"name": "\\\\?\\Volume{00000000-0000-0000-0000-000000000002}\\", "mountPoints": ["E:\\", "C:\\mnt\\"]},
     {"name": "\\\\?\\Volume{00000000-0000-0000-0000-000000000003}\\", "mountPoints": []}]}],
 "volumesOnSeveralDisks": [], "volumesWithoutDisk": []})";

// As varnelctl prints documents: two blanks a level, keys in this order.
std::string Printed(const char* document) {
  return nlohmann::ordered_json::parse(document).dump(2) + "\n";
}

// What a document has of its own, printed in the same way.
std::string Found(const std::string& out) {
  nlohmann::ordered_json document = nlohmann::ordered_json::parse(out);
  for (const char* key : {"schema", "kind", "header", "status", "result", "warnings"}) document.erase(key);
  return document.dump(2) + "\n";
}

class OnTwoDisks : public CliFixture {
 protected:
  OnTwoDisks() { hostFile = json::parse(kTwoDisks); }
};
class Writers : public OnTwoDisks {
 protected:
  /// What is listed, with the warning about what lies on Q:.
  std::string Listed(Arguments arguments) {
    const CliResult result = Run(std::move(arguments));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, kWarning);
    return result.out;
  }
  static constexpr char kWarning[] =
      "varnelctl: warning: no volume of this host holds Q:\\texts of \\SQL01\\sales\\texts (SqlServerWriter): no "
      "snapshot set can hold the component\n";
};
class Providers : public OnTwoDisks {};
class Disks : public OnTwoDisks {};

TEST_F(Writers, AreListedForPeople) {
  EXPECT_EQ(Listed({"writers"}), kWritersText);
}

TEST_F(Writers, AreListedAsJson) {
  EXPECT_EQ(Found(Listed({"writers", "--json"})), Printed(kWritersJson));
}

TEST_F(Writers, AHostWithoutWritersHasAnEmptyList) {
  hostFile.erase("writers");

  EXPECT_EQ(Output({"writers"}), "0 writers, 0 components, 0 files\n");
  EXPECT_EQ(Found(Output({"writers", "--json"})), "{\n  \"writers\": []\n}\n");
}

TEST_F(Writers, AreListedWithoutDisksWhereTheSystemDriveCannotBeTold) {
  hostFile["faults"] = json::parse(R"([{"call": "GetSystemDirectoryW", "occurrence": 0, "result": 5}])");
  const CliResult result = Run({"writers"});

  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err,
            "varnelctl: warning: GetSystemDirectoryW() failed with 5; disks are not shown\n" + std::string(kWarning));
  EXPECT_THAT(result.out,
              HasSubstr("E:\\data  on \\\\?\\Volume{00000000-0000-0000-0000-000000000002}\\, disk unknown"));
}

TEST_F(Writers, TellOfAVolumeOnSeveralDisks) {
  hostFile["disks"][1]["volumes"][0]["otherDisks"] = {"SYS"};

  EXPECT_THAT(Listed({"writers"}), HasSubstr("    E:\\data  on \\\\?\\Volume{00000000-0000-0000-0000-000000000002}\\, "
                                             "several disks (1, 0)\n"));
  const json files = json::parse(Listed({"writers", "--json"}))["writers"][0]["components"][0]["files"];
  EXPECT_EQ(files[0]["serialNumber"], "");
  EXPECT_EQ(files[0]["severalDisks"], json({1, 0}));
  EXPECT_FALSE(files[1].contains("severalDisks"));
}

TEST_F(Providers, AreListedForPeople) {
  EXPECT_EQ(Output({"providers"}), kProvidersText);
}

TEST_F(Providers, AreListedAsJson) {
  EXPECT_EQ(Found(Output({"providers", "--json"})), Printed(kProvidersJson));
}

TEST_F(Providers, AnAbsentArrayProviderIsSaid) {
  hostFile = json::parse(R"({ "disks": [] })");

  EXPECT_EQ(Output({"providers"}), "0 providers; the array's own is NOT registered.\n");
  EXPECT_EQ(Found(Output({"providers", "--json"})), "{\n  \"providers\": [],\n  \"arrayProviderPresent\": false\n}\n");
}

TEST_F(Disks, AreListedForPeople) {
  EXPECT_EQ(Output({"disks"}), kDisksText);
}

TEST_F(Disks, VolumesOnSeveralOfThemAreListedApart) {
  hostFile["disks"][1]["volumes"][0]["otherDisks"] = {"SYS"};

  EXPECT_THAT(Output({"disks"}), HasSubstr("volumes on several disks: cannot be in a protection set\n"
                                           "  \\\\?\\Volume{00000000-0000-0000-0000-000000000002}\\  E:\\, C:\\mnt\\  "
                                           "on disks 1, 0\n"
                                           "\n2 disks\n"));
  const json document = json::parse(Output({"disks", "--json"}));
  ASSERT_EQ(document["volumesOnSeveralDisks"].size(), 1u);
  EXPECT_EQ(document["volumesOnSeveralDisks"][0]["severalDisks"], json({1, 0}));
  EXPECT_EQ(document["disks"][1]["volumes"].size(), 1u);
}

TEST_F(Disks, OfAHostWhoseSystemDriveCannotBeToldAreNot) {
  hostFile["faults"] = json::parse(R"([{"call": "GetSystemDirectoryW", "occurrence": 0, "result": 5}])");
  const CliResult result = Run({"disks"});

  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "varnelctl: GetSystemDirectoryW() failed with 5\n");
}

TEST_F(Disks, AreListedAsJson) {
  EXPECT_EQ(Found(Output({"disks", "--json"})), Printed(kDisksJson));
}

// The examples

class Examples : public CliFixture {};

TEST_F(Examples, TheSqlServerHostShowsEveryComponentOfItsWriter) {
  const std::string path = VARNEL_EXAMPLES "/hosts/sql-server.json";
  const simulator::HostModel model = simulator::LoadHostFile(path);
  const auto expected = std::find_if(model.writers.begin(), model.writers.end(),
                                     [](const simulator::Writer& writer) { return writer.name == L"SqlServerWriter"; });
  ASSERT_NE(expected, model.writers.end());

  const json writers = json::parse(Output({"writers", "--json", "--host", path})).at("writers");

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

class CliOnHost : public CliFixture {
 protected:
  /// What a run that fails says of it.
  std::string TroubleOf(const Arguments& arguments, int status) {
    const CliResult result = Run(arguments);
    EXPECT_EQ(result.status, status);
    ExpectOnlyTrouble(result);
    return result.err;
  }
};

TEST_F(CliOnHost, ALongFileListIsCutUnlessAllIsAskedFor) {
  simulator::WriterComponent component = MakeComponent(L"", L"big", {});
  for (int i = 0; i < 25; ++i) component.files.push_back({i % 2 == 0 ? L"E:\\a" : L"F:\\b", std::to_wstring(i)});
  host().model().writers = {MakeWriter(L"Writer", 1, {component})};

  const std::string cut = Output({"writers"});
  const std::string all = Output({"writers", "--all"});

  EXPECT_THAT(cut, HasSubstr("      13  (file)\n    ... and 5 more files (--all shows them)\n"));
  EXPECT_THAT(cut, AllOf(Not(HasSubstr("      15  (file)")), EndsWith("1 writer, 1 component, 25 files\n")));
  EXPECT_THAT(all, AllOf(HasSubstr("      23  (file)\n"), Not(HasSubstr("--all"))));
}

TEST_F(CliOnHost, EachVolumeIsLookedUpOnceHoweverManyFilesItHolds) {
  host().model().writers = {MakeWriter(L"Writer", 1, {MakeComponent(L"", L"a", {L"E:\\a", L"E:\\b"})})};

  Document({"writers"});

  const std::vector<std::string> opened = CallsOf("CreateFileW");
  EXPECT_EQ(std::count_if(opened.begin(), opened.end(),
                          [](const std::string& call) { return call.find("Volume{00000001") != call.npos; }),
            1);
}

TEST_F(CliOnHost, TextThatIsNoUnicodeBecomesTheReplacementCharacter) {
  host().model().writers = {MakeWriter(std::wstring(L"bad ") + static_cast<wchar_t>(0xD800), 1, {})};

  EXPECT_EQ(Document({"writers"}).at("writers").at(0).at("name"), "bad \xEF\xBF\xBD");
}

TEST_F(CliOnHost, ControlCharactersReachJsonButNoTerminal) {
  host().model().writers = {MakeWriter(L"\x1B[2Jevil\nname\x9B", 1, {})};

  EXPECT_THAT(Output({"writers"}), StartsWith("\xEF\xBF\xBD[2Jevil\xEF\xBF\xBDname\xEF\xBF\xBD\n"));
  EXPECT_EQ(Document({"writers"}).at("writers").at(0).at("name"), "\x1B[2Jevil\nname\xC2\x9B");
}

TEST_F(CliOnHost, ADiskWithoutASerialNumberIsListedWithARemark) {
  host().model().disks[2].reportsSerial = false;
  host().model().disks[2].serial.clear();

  EXPECT_THAT(Run({"disks"}).out, HasSubstr("\\\\.\\PhysicalDrive2  no serial number: cannot be in a protection set\n  "
                                            "\\\\?\\Volume{00000002-0000-0000-0000-000000000000}\\  F:\\\n"));
  const json disks = Document({"disks"}).at("disks");
  EXPECT_EQ(disks.at(2).at("serialNumber"), "");
  EXPECT_EQ(disks.at(2).at("volumes").at(0).at("mountPoints"), json({"F:\\"}));
}

TEST_F(CliOnHost, ADiskWithoutVolumesIsListed) {
  host().model().disks[1].volumes.clear();

  EXPECT_THAT(Output({"disks"}), HasSubstr("\\\\.\\PhysicalDrive1  serial \"TSL0001\"\n  no volumes\n"));
}

TEST_F(CliOnHost, EveryMountPointOfALongListIsShown) {
  std::vector<std::wstring>& mountPoints = host().model().disks[1].volumes[0].mountPoints;
  for (int i = 0; i < 40; ++i) mountPoints.push_back(L"C:\\a rather long folder\\" + std::to_wstring(i) + L"\\");

  const json shown = Document({"disks"}).at("disks").at(1).at("volumes").at(0).at("mountPoints");

  ASSERT_EQ(shown.size(), mountPoints.size());
  EXPECT_EQ(shown.back(), "C:\\a rather long folder\\39\\");
}

TEST_F(CliOnHost, MountPointsThatCannotBeReadAreAWarning) {
  host().faults().FailCall("GetVolumePathNamesForVolumeNameW", ERROR_ACCESS_DENIED);

  EXPECT_EQ(Document({"disks"}).at("disks").size(), 3u);
  EXPECT_EQ(err,
            "varnelctl: warning: the mount points of \\\\?\\Volume{00000000-0000-0000-0000-000000000000}\\ cannot be "
            "read (error 5)\n");
}

TEST_F(CliOnHost, WithoutDiskManagementTheDisksOfVolumesAreShown) {
  Fail("IWbemServices::ExecQuery", E_FAIL);

  EXPECT_EQ(Document({"disks"}).at("disks").size(), 3u);
  EXPECT_THAT(err, EndsWith("; disks without volumes are not shown\n"));
}

TEST_F(CliOnHost, AFailedCallOfTheRequestorEndsWithStatus15AndItsAlertRecord) {
  host().faults().FailAsync("GatherWriterMetadata", VSS_E_WRITER_INFRASTRUCTURE);

  EXPECT_EQ(TroubleOf({"writers", "--json"}, 15),
            "varnelctl: GatherWriterMetadata failed: VSS_E_WRITER_INFRASTRUCTURE (0x80042318)\n"
            "RequestStatus=QueryStatus(), Function=pAsync->QueryStatus(), Error=VSS_E_WRITER_INFRASTRUCTURE, "
            "rc=SystemError, ca=ContactSupport\n");
}

TEST_F(CliOnHost, AFailedCallInInitializeIsNamed) {
  Fail("IVssBackupComponents::InitializeForBackup", VSS_E_BAD_STATE);

  EXPECT_EQ(TroubleOf({"writers"}, 15),
            "varnelctl: Initialize failed: VSS_E_BAD_STATE (0x80042301)\n"
            "InitializeForBackup()=Failed, error=VSS_E_BAD_STATE, rc=COMMError, ca=ContactTechSupport;\n");
}

TEST_F(CliOnHost, AFailedProviderQueryIsNamed) {
  Fail("IVssAdmin::QueryProviders", VSS_E_UNEXPECTED);

  EXPECT_EQ(TroubleOf({"providers"}, 15),
            "varnelctl: IVssAdmin::QueryProviders failed: VSS_E_UNEXPECTED (0x80042302)\n");
}

TEST_F(CliOnHost, AResultWithoutANameHasTheHostsTextForIt) {
  host().model().messages[0x80070005] = L"Access is denied.\r\n";
  Fail("CoCreateInstance", E_ACCESSDENIED);

  EXPECT_EQ(TroubleOf({"providers"}, 15),
            "varnelctl: CoCreateInstance(CLSID_VSSCoordinator) failed: Access is denied. (0x80070005)\n");
}

// A failure of any one call is told or absorbed; either way the output is a whole document.
class CliSweep : public CliOnHost, public testing::WithParamInterface<const char*> {};

TEST_P(CliSweep, AnyCallMayFail) {
  simulator::HostModel model = SmallHost();
  model.writers = {MakeWriter(L"Writer", 1, {MakeComponent(L"path", L"name", {L"E:\\a", L"F:\\b"})})};
  FailEachCall(model, {GetParam(), "--json"}, [](const CliResult& result) {
    EXPECT_THAT(result.status, testing::AnyOf(0, 1, 15));
    if (result.status == 0) {
      EXPECT_EQ(json::parse(result.out).at("kind"), GetParam());
    } else {
      ExpectOnlyTrouble(result);
    }
  });
}

INSTANTIATE_TEST_SUITE_P(Commands, CliSweep, testing::Values("writers", "providers", "disks"));

}  // namespace
}  // namespace varnel::test
