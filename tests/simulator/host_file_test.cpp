// Host files: what they fill, and every error that they can have.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "simulator/host_file/documents.h"
#include "simulator/simulated_host.h"
#include "tests/simulator/fixture.h"
#include "text/guid.h"
#include "text/unicode.h"

namespace varnel::simulator {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

constexpr GUID kArrayProvider = ParseGuid<GUID>("{374579ad-285c-49b9-ab8a-950e0e252de2}");

std::filesystem::path SourceFolder() {
  return std::filesystem::path(__FILE__).parent_path().parent_path().parent_path();
}

// A host with an event of these keys.
std::string WithEvent(const std::string& keys) {
  return R"({"disks": [], "events": [{)" + keys + "}]}";
}

// Disks A and C; a volume of A lies on these too.
std::string WithVolumeOn(const std::string& otherDisks) {
  return R"({"disks": [{"serial": "A", "volumes": [{"otherDisks": )" + otherDisks +
         R"(, "name": "\\\\?\\Volume{00000001-0000-0000-0000-000000000000}\\"}]}, {"serial": "C"}]})";
}

// The error of a host file with this text; empty when it is a good one.
std::string ErrorOf(const std::string& json, const std::filesystem::path& directory = {}) {
  try {
    ParseHostFile(json, "host.json", directory);
  } catch (const HostFileError& error) {
    return error.what();
  }
  return {};
}

// A folder of its own that goes with the test.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    const auto* info = testing::UnitTest::GetInstance()->current_test_info();
    path_ = std::filesystem::temp_directory_path() / (std::string("varnel-") + info->test_suite_name() + info->name());
    std::filesystem::create_directories(path_);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  const std::filesystem::path& path() const { return path_; }
  void Write(const std::string& name, const std::string& text) const {
    std::ofstream(path_ / name, std::ios::binary) << text;
  }

 private:
  std::filesystem::path path_;
};

TEST(HostFile, HasASerialNumberTwiceWhereItSaysSo) {
  const std::string disks =
      R"({"disks": [{"serial": "A", "volumes": [{"name": "\\\\?\\Volume{6f1c0a20-0000-0000-0000-000000000001}\\",
                                                                       "otherDisks": [1]}]},
                                          {"serial": "a", "duplicateSerial": true}]})";
  const HostModel model = ParseHostFile(disks, "host.json", ".");
  EXPECT_EQ(model.disks[1].serial, L"a");
  EXPECT_EQ(model.disks[0].volumes[0].otherDisks, std::vector<DWORD>{1});
}

TEST(HostFile, NeedsOnlyItsDisks) {
  const HostModel model = ParseHostFile("{ \"disks\": [ { \"serial\": \"A\" }, { \"serial\": null } ] }", "h", {});
  ASSERT_THAT(model.disks, SizeIs(2));
  EXPECT_EQ(model.disks[0].serial, L"A");
  EXPECT_TRUE(model.disks[0].reportsSerial);
  EXPECT_EQ(model.disks[1].number, 1u);
  EXPECT_FALSE(model.disks[1].reportsSerial);
  EXPECT_EQ(model.computerName, L"HOST");
  EXPECT_THAT(model.providers, IsEmpty());
  EXPECT_FALSE(model.vssMessages);
  EXPECT_FALSE(model.cluster);
}

const char kFullHost[] = R"json({
  // every key once
  "seed": 7,
  "computerName": "SQL01",
  "domain": "corp.example",
  "systemDirectory": "D:\\WinNT\\system32",
  "environment": { "Data": "E:\\data" },
  "os": { "server": false, "version": "6.3.9600", "servicePack": 1 },
  "cluster": { "name": "CLU01", "networkNames": { "sqlvirt": "sqlnet" } },
  "disks": [ { "serial": "TSL0001", "number": 4, "vendor": "Tessel", "system": true, "clustered": true,
               "volumes": [ { "name": "\\\\?\\Volume{00000004-0000-0000-0000-000000000000}\\",
                              "mountPoints": ["E:\\", "C:\\mnt\\"], "csv": true, "label": "data",
                              "sizeMegabytes": 5000, "freeMegabytes": 10 } ] } ],
  "providers": [ { "id": "{374579AD-285c-49b9-ab8a-950e0e252de2}", "name": "P", "type": "hardware", "version": "1.0",
                   "supports": [ "transportable", "plex" ], "unsupportedVolumes": [ "c:\\MNT\\" ], "veto": "endPrepare",
                   "hangs": true } ],
  "writers": [ { "name": "W", "timeoutMilliseconds": 20000,
                 "lastFailure": { "event": "freeze", "failure": "VSS_E_WRITERERROR_TIMEOUT" }, "writerId": "{00000000-0000-0000-0000-000000000001}", "instanceName": "I",
                 "usage": "systemService", "source": "nonTransactedDb", "majorVersion": 1, "minorVersion": 2,
                 "backupSchema": 3, "restoreMethod": "restoreStopStart", "service": "s", "userProcedure": "u",
                 "writerRestore": "ifReplaceFails", "rebootRequired": true,
                 "excludeFiles": [ { "path": "E:\\tmp", "filespec": "*", "recursive": true } ],
                 "excludeFilesFromSnapshot": [ { "path": "E:\\x", "filespec": "y" } ],
                 "components": [ { "type": "database", "logicalPath": "", "name": "c", "caption": "", "selectable": false,
                                   "restoreMetadata": true, "selectableForRestore": true, "componentFlags": 4,
                                   "backupStamp": "s1", "backupMetadata": "bTE=",
                                   "databaseFiles": [ { "path": "E:\\", "filespec": "c.mdf", "backupType": 15 } ],
                                   "logFiles": [ { "path": "E:\\", "filespec": "c.ldf", "alternatePath": "F:\\" } ] } ] } ],
  "databases": { "TSL0001": "sales@sql01" },
  "iscsiSessions": [ { "targetName": "iqn", "devices": [ { "shadowOf": "TSL0001", "appearsAfter": 4 },
                                                     { "disk": "TSL0001" } ],
                       "busyQueries": 1, "failedLogouts": 2, "appearsAfter": 3 } ],
  "files": { "C:\\Vmms.exe": { "version": "6.3.9600.17120" } },
  "registry": { "HKEY_LOCAL_MACHINE\\A\\B": { "V": "text" } },
  "commands": [ { "match": "a *", "exitCode": 3, "folder": "C:\\Tools" } ],
  "messages": { "0x80004005": "m", "5": "n" },
  "vssMessages": { "VSS_E_BAD_STATE": "v" },
  "faults": [ { "call": "IVssAsync::Wait", "occurrence": 2, "result": "VSS_E_PROVIDER_VETO" },
              { "call": "CreateFileW", "occurrence": 0, "result": 5 },
              { "async": "DoSnapshotSet", "result": "0x80042314" },
              { "writer": "W", "event": "postSnapshot", "failure": "VSS_E_WRITERERROR_PARTIAL_FAILURE",
                "applicationResult": "0x1", "applicationMessage": "log full",
                "components": [ { "fullPath": "\\c", "failure": "VSS_E_WRITERERROR_RETRYABLE" } ] },
              { "deleteShadowOf": "TSL0001", "result": "VSS_E_PROVIDER_VETO" },
              { "call": "CloseHandle", "hangs": true },
              { "async": "PrepareForBackup", "hangs": true },
              { "writer": "W", "event": "freeze", "hangs": true },
              { "writer": "W", "event": "thaw", "hangs": false, "failure": "VSS_E_WRITERERROR_TIMEOUT" } ],
  "timing": { "freezeMilliseconds": 100, "commitMilliseconds": 200, "eventLimitMilliseconds": 300 },
  "services": { "VSS": { "start": "disabled", "state": "stopping" }, "Other": {}, "swprv": null },
  "process": { "elevated": false, "bits": 32 },
  "clock": "2031-02-28T23:59:58Z",
  "orphanedSnapshot": "complete"
})json";

TEST(HostFile, FillsWhatTheMachinesConditionIs) {
  const HostModel model = ParseHostFile(kFullHost, "h", {});
  EXPECT_EQ(model.disks.at(0).volumes.at(0).sizeMegabytes, 5000u);
  EXPECT_EQ(model.disks[0].volumes[0].freeMegabytes, 10u);
  EXPECT_EQ(model.writers.at(0).lastFailure->state, VSS_WS_FAILED_AT_FREEZE);
  EXPECT_EQ(model.writers[0].lastFailure->failure, VSS_E_WRITERERROR_TIMEOUT);
  EXPECT_EQ(model.services.at(L"VSS")->startType, SERVICE_DISABLED);
  EXPECT_EQ(model.services.at(L"VSS")->state, SERVICE_STOP_PENDING);
  EXPECT_EQ(model.services.at(L"Other")->startType, SERVICE_DEMAND_START);
  EXPECT_EQ(model.services.at(L"Other")->state, SERVICE_STOPPED);
  EXPECT_FALSE(model.services.at(L"swprv"));
  EXPECT_FALSE(model.process.elevated);
  EXPECT_TRUE(model.process.is32Bit);
  EXPECT_EQ(model.clock, 135'745'631'980'000'000);
}

TEST(HostFile, FillsTheMachinePartOfTheModel) {
  const HostModel model = ParseHostFile(kFullHost, "h", {});
  EXPECT_EQ(model.seed, 7);
  EXPECT_EQ(model.computerName, L"SQL01");
  EXPECT_EQ(model.domain, L"corp.example");
  EXPECT_EQ(model.systemDirectory, L"D:\\WinNT\\system32");
  EXPECT_EQ(model.environment.at(L"Data"), L"E:\\data");
  EXPECT_FALSE(model.os.server);
  EXPECT_EQ(model.os.major, 6u);
  EXPECT_EQ(model.os.build, 9600u);
  EXPECT_EQ(model.os.servicePack, 1);
  ASSERT_TRUE(model.cluster);
  EXPECT_EQ(model.cluster->networkNames.at(L"sqlvirt"), L"sqlnet");
  ASSERT_THAT(model.disks, SizeIs(1));
  EXPECT_EQ(model.disks[0].number, 4u);
  EXPECT_TRUE(model.disks[0].system && model.disks[0].clustered);
  EXPECT_THAT(model.disks[0].volumes.at(0).mountPoints, ElementsAre(L"E:\\", L"C:\\mnt\\"));
  EXPECT_TRUE(model.disks[0].volumes[0].csv);
  EXPECT_EQ(model.iscsiSessions.at(0).failedLogouts, 2);
  EXPECT_EQ(model.iscsiSessions[0].appearsAfter, 3);
  EXPECT_EQ(model.iscsiSessions[0].devices.at(0).appearsAfter, 4);
  EXPECT_EQ(model.iscsiSessions[0].devices.at(1).appearsAfter, 0);
  EXPECT_TRUE(model.iscsiSessions[0].devices.at(0).shadow);
  EXPECT_FALSE(model.iscsiSessions[0].devices.at(1).shadow);
  EXPECT_EQ(model.registry.at(L"HKEY_LOCAL_MACHINE\\A\\B").at(L"V"), L"text");
  EXPECT_EQ(model.commands.at(0).exitCode, 3u);
  EXPECT_EQ(model.commands[0].folder, L"C:\\Tools");
  EXPECT_EQ(model.messages.at(5), L"n");
  EXPECT_EQ(model.vssMessages->at(0x80042301), L"v");
  EXPECT_EQ(model.freezeMilliseconds, 100u);
  EXPECT_EQ(model.commitMilliseconds, 200u);
  EXPECT_EQ(model.eventLimitMilliseconds, 300u);
  EXPECT_EQ(model.orphanedSnapshot, OrphanedSnapshot::complete);
}

TEST(HostFile, FillsTheServicePartOfTheModel) {
  const HostModel model = ParseHostFile(kFullHost, "h", {});
  EXPECT_EQ(model.providers.at(0).type, VSS_PROV_HARDWARE);
  EXPECT_TRUE(model.providers[0].id == kArrayProvider);
  EXPECT_EQ(model.providers[0].supports, VSS_VOLSNAP_ATTR_TRANSPORTABLE | VSS_VOLSNAP_ATTR_PLEX);
  EXPECT_THAT(model.providers[0].unsupportedVolumes,
              ElementsAre(L"\\\\?\\Volume{00000004-0000-0000-0000-000000000000}\\"));
  EXPECT_EQ(model.providers[0].veto, ProviderStep::endPrepare);
  const Writer& writer = model.writers.at(0);
  EXPECT_EQ(writer.usage, VSS_UT_SYSTEMSERVICE);
  EXPECT_EQ(writer.source, VSS_ST_NONTRANSACTEDDB);
  ASSERT_TRUE(writer.restoreMethod);
  EXPECT_EQ(writer.restoreMethod->method, VSS_RME_RESTORE_STOP_START);
  EXPECT_EQ(writer.restoreMethod->writerRestore, VSS_WRE_IF_REPLACE_FAILS);
  const WriterComponent& component = writer.components.at(0);
  EXPECT_EQ(component.type, VSS_CT_DATABASE);
  EXPECT_EQ(component.logicalPath, L"");
  EXPECT_EQ(component.caption, L"");
  EXPECT_EQ(component.backupStamp, L"s1");
  EXPECT_EQ(component.backupMetadata, L"bTE=");
  EXPECT_EQ(component.databaseFiles.at(0).backupTypeMask, 15u);
  EXPECT_EQ(component.logFiles.at(0).alternatePath, L"F:\\");
  EXPECT_EQ(writer.excludeFilesFromSnapshot.at(0).path, L"E:\\x");
  EXPECT_EQ(model.faults.calls.at(0).result, 0x80042306u);
  EXPECT_EQ(model.faults.calls.at(1).occurrence, 0);
  EXPECT_EQ(model.faults.asyncs.at(0).result, VSS_E_HOLD_WRITES_TIMEOUT);
  EXPECT_EQ(model.faults.writers.at(0).event, WriterEvent::postSnapshot);
  EXPECT_EQ(model.faults.writers[0].components.at(0).fullPath, L"\\c");
  EXPECT_EQ(model.faults.deletions.at(0).shadowOf, L"TSL0001");
  EXPECT_EQ(model.faults.deletions[0].result, VSS_E_PROVIDER_VETO);
}

TEST(HostFile, FillsTheEventLog) {
  const HostModel model = ParseHostFile(WithEvent(R"("channel": "System", "source": "disk", "id": 3221487623,
      "level": "warning", "time": "2026-01-01T00:00:05.25Z", "computer": "OLD", "texts": ["a", ""], "data": "00FF",
      "message": "m")") + "\n",
                                        "h", {});
  const LoggedEvent& event = model.events.at(0);
  EXPECT_EQ(event.channel, L"System");
  EXPECT_EQ(event.source, L"disk");
  EXPECT_EQ(event.id, 0xC0040007u);
  EXPECT_EQ(event.level, EventLevel::warning);
  EXPECT_EQ(event.time, 134116992052500000);
  EXPECT_EQ(event.computer, L"OLD");
  EXPECT_THAT(event.texts, ElementsAre(L"a", L""));
  EXPECT_EQ(event.data, L"00FF");
  EXPECT_EQ(event.message, L"m");
}

TEST(HostFile, AnEventNeedsOnlySourceAndNumber) {
  const HostModel model = ParseHostFile(WithEvent(R"("source": "VSS", "id": 8193)"), "h", {});
  const LoggedEvent& event = model.events.at(0);
  EXPECT_EQ(event.channel, L"Application");
  EXPECT_EQ(event.level, EventLevel::information);
  EXPECT_EQ(event.time, std::nullopt);
  EXPECT_EQ(event.computer, L"");
  EXPECT_THAT(event.texts, IsEmpty());
  EXPECT_EQ(event.data, L"");
  EXPECT_EQ(event.message, std::nullopt);
}

TEST(HostFile, TellsWhatHangs) {
  const HostModel model = ParseHostFile(kFullHost, "h", {});
  EXPECT_TRUE(model.providers.at(0).hangs);
  EXPECT_EQ(model.writers.at(0).timeoutMilliseconds, 20000u);
  EXPECT_FALSE(model.faults.calls.at(0).hangs);
  EXPECT_EQ(model.faults.calls.at(2).call, "CloseHandle");
  EXPECT_TRUE(model.faults.calls[2].hangs);
  EXPECT_TRUE(model.faults.asyncs.at(1).hangs);
  EXPECT_EQ(model.faults.asyncs[1].result, VSS_S_ASYNC_PENDING);
  EXPECT_TRUE(model.faults.writers.at(1).hangs);
  EXPECT_FALSE(model.faults.writers.at(2).hangs);
  EXPECT_EQ(model.faults.writers[2].failure, VSS_E_WRITERERROR_TIMEOUT);
}

TEST(HostFile, ACallThatItLetsHangHangs) {
  SimulatedHost host(ParseHostFile(
      R"({"disks": [], "faults": [{"call": "GetComputerNameW", "hangs": true, "occurrence": 2}]})", "h", {}));
  std::array<wchar_t, 64> name{};
  const auto ask = [&] {
    auto characters = static_cast<DWORD>(name.size());
    EXPECT_TRUE(host.system().GetComputerNameW(name.data(), &characters));
  };
  ask();
  std::thread second(ask);
  host.faults().EndHangs();
  second.join();
}

TEST(HostFile, DerivesInstanceIdentifiersThatDifferAndStayTheSame) {
  const std::string json =
      R"({"disks": [], "writers": [ {"name": "W", "writerId": "{00000000-0000-0000-0000-000000000001}"},
                                    {"name": "W", "writerId": "{00000000-0000-0000-0000-000000000001}"} ]})";
  const HostModel once = ParseHostFile(json, "h", {});
  const HostModel again = ParseHostFile(json, "h", {});
  EXPECT_FALSE(once.writers[0].instanceId == once.writers[1].instanceId);
  EXPECT_TRUE(once.writers[0].instanceId == again.writers[0].instanceId);
  EXPECT_TRUE(once.writers[1].instanceId == again.writers[1].instanceId);
}

struct BadHostFile {
  const char* name;
  std::string json;
  const char* error;  // after the file's name
};

class BadHostFiles : public testing::TestWithParam<BadHostFile> {};

TEST(HostFile, NamesTheOtherDisksOfAVolume) {
  const HostModel model = ParseHostFile(WithVolumeOn(R"(["C"])"), "h", {});
  EXPECT_THAT(model.disks[0].volumes.at(0).otherDisks, ElementsAre(1u));
}

TEST_P(BadHostFiles, AreErrorsThatNameFilePlaceAndReason) {
  EXPECT_EQ(ErrorOf(GetParam().json), std::string("host.json: ") + GetParam().error);
}

// A host with one disk that holds these volumes; one with this writer and what else is given.
std::string WithVolumes(const std::string& volumes) {
  return R"({"disks": [{"serial": "a", "volumes": [)" + volumes + "]}]}";
}
std::string NamedVolume(int n, const std::string& more = "") {
  return R"({"name": "\\\\?\\Volume{0000000)" + std::to_string(n) + R"(-0000-0000-0000-000000000000}\\")" + more + "}";
}
std::string WithProvider(const std::string& keys) {
  return R"({"disks": [], "providers": [{"id": "{374579ad-285c-49b9-ab8a-950e0e252de2}", )" + keys + "}]}";
}
std::string WithWriter(const std::string& writerKeys, const std::string& hostKeys = "") {
  return R"({"disks": [], "writers": [{"name": "W", "writerId": "{00000000-0000-0000-0000-000000000001}")" +
         writerKeys + "}]" + hostKeys + "}";
}

INSTANTIATE_TEST_SUITE_P(
    All, BadHostFiles,
    testing::Values(
        BadHostFile{"NoObject", "[]", "/: expected object, found array"},
        BadHostFile{"MissingDisks", "{}", "/: missing key \"disks\""},
        BadHostFile{"UnknownKey", R"({"disks": [], "disk": []})", "/disk: unknown key; did you mean \"disks\"?"},
        BadHostFile{"UnknownNestedKey", R"({"disks": [{"serial": "A", "a/b~": 1}]})", "/disks/0/a~1b~0: unknown key"},
        BadHostFile{"DuplicateKey", R"({"disks": [{}, {"serial": "A", "serial": "B"}]})",
                    "/disks/1/serial: the key stands twice"},
        BadHostFile{"RelativeFolder", R"({"disks": [], "commands": [{"match": "a", "folder": "Tools"}]})",
                    "/commands/0/folder: \"Tools\" is no full path"},
        BadHostFile{"OrphanedSnapshot", R"({"disks": [], "orphanedSnapshot": "keep"})",
                    "/orphanedSnapshot: \"keep\" is none of abandon, complete"},
        BadHostFile{"WrongType", R"({"disks": [], "computerName": 1})", "/computerName: expected string, found number"},
        BadHostFile{"NegativeNumber", R"({"disks": [{"serial": "A", "number": -1}]})",
                    "/disks/0/number: expected a whole number from 0 to 4294967295"},
        BadHostFile{"NulCharacter", R"({"disks": [], "computerName": "a\u0000b"})",
                    "/computerName: the text contains a NUL character"},
        BadHostFile{"DiskWithoutSerial", R"({"disks": [{}]})", "/disks/0: missing key \"serial\""},
        BadHostFile{"DuplicateSerial", R"({"disks": [{"serial": "a"}, {"serial": "A"}]})",
                    "/disks/1/serial: duplicate disk serial \"A\""},
        BadHostFile{"DuplicateNumber", R"({"disks": [{"serial": "a", "number": 1}, {"serial": "b"}]})",
                    "/disks/1: duplicate disk number \"1\""},
        BadHostFile{"BadVolumeName", R"({"disks": [{"serial": "a", "volumes": [{"name": "E:\\"}]}]})",
                    "/disks/0/volumes/0/name: \"E:\\\" is no volume name (\\\\?\\Volume{GUID}\\)"},
        BadHostFile{"DuplicateVolume", WithVolumes(NamedVolume(1) + "," + NamedVolume(1)),
                    "/disks/0/volumes/1/name: duplicate volume name "
                    "\"\\\\?\\Volume{00000001-0000-0000-0000-000000000000}\\\""},
        BadHostFile{"BadMountPoint", WithVolumes(NamedVolume(1, R"(, "mountPoints": ["E:"])")),
                    "/disks/0/volumes/0/mountPoints/0: \"E:\" is no mount point (X:\\ or a folder, with a "
                    "backslash at its end)"},
        BadHostFile{"DuplicateMountPoint",
                    WithVolumes(NamedVolume(1, R"(, "mountPoints": ["E:\\"])") + "," +
                                NamedVolume(2, R"(, "mountPoints": ["e:\\"])")),
                    "/disks/0/volumes/1/mountPoints/0: duplicate mount point \"e:\\\""},
        BadHostFile{"PartOnNoDisk", WithVolumes(NamedVolume(1, R"(, "otherDisks": [7])")),
                    "/disks/0/volumes/0/otherDisks/0: no disk has the number 7"},
        BadHostFile{"PartOnItsOwnDisk", WithVolumes(NamedVolume(1, R"(, "otherDisks": [0])")),
                    "/disks/0/volumes/0/otherDisks/0: disk 0 already holds a part of the volume"},
        BadHostFile{"BadVersion", R"({"disks": [], "os": {"version": "10"}})",
                    "/os/version: \"10\" is no version (major.minor.build)"},
        BadHostFile{"BadGuid", R"({"disks": [], "providers": [{"id": "374579ad"}]})",
                    "/providers/0/id: \"374579ad\" is no GUID in braces"},
        BadHostFile{"BadEnumWord",
                    R"({"disks": [], "providers": [{"id": "{374579ad-285c-49b9-ab8a-950e0e252de2}", "type": "disk"}]})",
                    "/providers/0/type: \"disk\" is none of system, software, hardware, fileshare, unknown"},
        BadHostFile{"BigSeed", R"({"disks": [], "seed": 65536})", "/seed: expected a whole number from 0 to 65535"},
        BadHostFile{"EmptyDomain", R"({"disks": [], "domain": ""})", "/domain: \"\" is no domain (corp.example)"},
        BadHostFile{"DomainWithAMachine", R"({"disks": [], "domain": "CORP\\SQL01"})",
                    "/domain: \"CORP\\SQL01\" is no domain (corp.example)"},
        BadHostFile{"SupportOfASystemProvider", WithProvider(R"("type": "system", "supports": ["transportable"])"),
                    "/providers/0/supports: only a hardware or software provider says what it supports"},
        BadHostFile{"UnknownSupport", WithProvider(R"("type": "software", "supports": ["plex", "remote"])"),
                    "/providers/0/supports/1: \"remote\" is none of transportable, differential, plex"},
        BadHostFile{"UnsupportedVolumeThatIsNone", WithProvider(R"("unsupportedVolumes": ["E:\\"])"),
                    "/providers/0/unsupportedVolumes/0: \"E:\\\" is neither the name nor a mount point of a volume"},
        BadHostFile{"VetoAtAnUnknownStep", WithProvider(R"("veto": "lunch")"),
                    "/providers/0/veto: \"lunch\" is none of beginPrepare, endPrepare, commit"},
        BadHostFile{"WriterWithoutId", R"({"disks": [], "writers": [{"name": "W"}]})",
                    "/writers/0: missing key \"writerId\""},
        BadHostFile{"DocumentWithMore", R"({"disks": [], "writers": [{"document": "a.xml", "name": "W"}]})",
                    "/writers/0/name: unknown key"},
        BadHostFile{"MissingDocument", R"({"disks": [], "writers": [{"document": "no/such.xml"}]})",
                    "/writers/0/document: cannot read \"no/such.xml\": there is no such file"},
        BadHostFile{"DatabaseFilesOfAFileGroup",
                    WithWriter(R"(, "components": [{"name": "c", "logFiles": [{"path": "a", "filespec": "b"}]}])"),
                    "/writers/0/components/0/logFiles: a file group has files only"},
        BadHostFile{"DatabasesOfAnUnknownDisk", R"({"disks": [{"serial": "A"}], "databases": {"B": "x@y"}})",
                    "/databases/B: no disk has the serial \"B\""},
        BadHostFile{"VolumeOnAnUnknownDisk", WithVolumeOn(R"(["B"])"),
                    "/disks/0/volumes/0/otherDisks/0: no disk has the serial \"B\""},
        BadHostFile{"VolumeTwiceOnItsOwnDisk", WithVolumeOn(R"(["A"])"),
                    "/disks/0/volumes/0/otherDisks/0: \"A\" already holds a part of the volume"},
        BadHostFile{"VolumeTwiceOnAnotherDisk", WithVolumeOn(R"(["C", "C"])"),
                    "/disks/0/volumes/0/otherDisks/1: \"C\" already holds a part of the volume"},
        BadHostFile{"DeviceOfAnUnknownDisk",
                    R"({"disks": [{"serial": "A"}], "iscsiSessions": [{"devices": [{"shadowOf": "B"}]}]})",
                    "/iscsiSessions/0/devices/0/shadowOf: no disk has the serial \"B\""},
        BadHostFile{"DeviceThatIsBoth",
                    R"({"disks": [{"serial": "A"}], "iscsiSessions": [{"devices": [{"shadowOf": "A", "disk": "A"}]}]})",
                    "/iscsiSessions/0/devices/0: expected one of disk, shadowOf"},
        BadHostFile{"BadFileVersion", R"({"disks": [], "files": {"C:\\a": {"version": "1.2.3"}}})",
                    "/files/C:\\a/version: \"1.2.3\" is no file version (four numbers)"},
        BadHostFile{"BadRegistryKey", R"({"disks": [], "registry": {"HKLM\\A": {}}})",
                    "/registry/HKLM\\A: a key stands below HKEY_LOCAL_MACHINE\\ or HKEY_CURRENT_USER\\"},
        BadHostFile{"BadMessageId", R"({"disks": [], "messages": {"five": "x"}})",
                    "/messages/five: \"five\" is no result name, \"0x\" number or decimal code"},
        BadHostFile{"SameMessageTwice", R"({"disks": [], "messages": {"5": "x", "0x5": "y"}})",
                    "/messages/5: duplicate message \"5\""},
        BadHostFile{"FaultOfNothing", R"({"disks": [], "faults": [{"result": 5}]})",
                    "/faults/0: expected one of call, async, writer, deleteShadowOf"},
        BadHostFile{"FaultThatIsNoObject", R"({"disks": [], "faults": [5]})",
                    "/faults/0: expected object, found number"},
        BadHostFile{"DeletionFaultOfAnUnknownDisk",
                    R"({"disks": [], "faults": [{"deleteShadowOf": "A", "result": "VSS_E_PROVIDER_VETO"}]})",
                    "/faults/0/deleteShadowOf: no disk has the serial \"A\""},
        BadHostFile{"DeletionFaultThatIsNone",
                    R"({"disks": [{"serial": "A"}], "faults": [{"deleteShadowOf": "A", "result": "S_FALSE"}]})",
                    "/faults/0/result: a deletion that fails needs a failure"},
        BadHostFile{"DeletionFaultWithAnOccurrence",
                    R"({"disks": [{"serial": "A"}],
                        "faults": [{"deleteShadowOf": "A", "occurrence": 1, "result": "E_FAIL"}]})",
                    "/faults/0/occurrence: unknown key"},
        BadHostFile{"SessionThatAppearsBeforeTheStart",
                    R"({"disks": [], "iscsiSessions": [{"devices": [], "appearsAfter": -1}]})",
                    "/iscsiSessions/0/appearsAfter: expected a whole number from 0 to 2147483647"},
        BadHostFile{"DeviceThatAppearsAfterAWord",
                    R"({"disks": [{"serial": "A"}],
                        "iscsiSessions": [{"devices": [{"disk": "A", "appearsAfter": "later"}]}]})",
                    "/iscsiSessions/0/devices/0/appearsAfter: expected number, found string"},
        BadHostFile{"FaultWithABadCall", R"({"disks": [], "faults": [{"call": "a b", "result": 5}]})",
                    "/faults/0/call: \"a b\" is no call that may fail (Interface::Method or a function's name)"},
        BadHostFile{"FaultWithABadResult",
                    R"({"disks": [], "faults": [{"call": "CloseHandle", "result": "VSS_E_NOPE"}]})",
                    "/faults/0/result: \"VSS_E_NOPE\" is no result name, \"0x\" number or decimal code"},
        BadHostFile{"HangWithAResult",
                    R"({"disks": [], "faults": [{"call": "CloseHandle", "hangs": true, "result": 5}]})",
                    "/faults/0/result: what hangs has no result"},
        BadHostFile{"HangThatIsNone", R"({"disks": [], "faults": [{"async": "DoSnapshotSet", "hangs": false}]})",
                    "/faults/0: missing key \"result\""},
        BadHostFile{"HangOfAWord", R"({"disks": [], "faults": [{"async": "DoSnapshotSet", "hangs": "yes"}]})",
                    "/faults/0/hangs: expected boolean, found string"},
        BadHostFile{"WriterThatHangsWithAMessage",
                    WithWriter("", R"(, "faults": [{"writer": "W", "event": "freeze", "hangs": true,
                                                    "applicationMessage": "busy"}])"),
                    "/faults/0/applicationMessage: what hangs has no result"},
        BadHostFile{"WriterWithTooMuchTime", WithWriter(R"(, "timeoutMilliseconds": 60001)"),
                    "/writers/0/timeoutMilliseconds: expected a whole number from 0 to 60000"},
        BadHostFile{"WriterWithoutTime", WithWriter(R"(, "timeoutMilliseconds": 0)"),
                    "/writers/0/timeoutMilliseconds: a writer cannot freeze in no time"},
        BadHostFile{"MoreRoomThanTheVolumeHas",
                    WithVolumes(NamedVolume(1, R"(, "sizeMegabytes": 5, "freeMegabytes": 6)")),
                    "/disks/0/volumes/0/freeMegabytes: expected a whole number from 0 to 5"},
        BadHostFile{"FailureThatIsNone", WithWriter(R"(, "lastFailure": {"event": "freeze", "failure": "S_OK"})"),
                    "/writers/0/lastFailure/failure: the result is no failure"},
        BadHostFile{"FailureAtAnUnknownEvent", WithWriter(R"(, "lastFailure": {"event": "thaws", "failure": 5})"),
                    "/writers/0/lastFailure/event: \"thaws\" is none of prepareBackup, prepareSnapshot, freeze, thaw, "
                    "postSnapshot, backupComplete, backupShutdown, preRestore, postRestore; did you mean \"thaw\"?"},
        BadHostFile{"ServiceThatStartsOddly", R"({"disks": [], "services": {"VSS": {"start": "off"}}})",
                    "/services/VSS/start: \"off\" is none of boot, system, automatic, manual, disabled"},
        BadHostFile{"ServiceTwice", R"({"disks": [], "services": {"VSS": {}, "vss": null}})",
                    "/services/vss: duplicate service \"vss\""},
        BadHostFile{"ProcessOfOddBits", R"({"disks": [], "process": {"bits": 16}})",
                    "/process/bits: expected 32 or 64"},
        BadHostFile{"ClockThatIsNone", R"({"disks": [], "clock": "2026-01-01"})",
                    "/clock: \"2026-01-01\" is no time (2026-01-31T12:00:00Z)"},
        BadHostFile{"ClockOfNoDay", R"({"disks": [], "clock": "2026-02-30T00:00:00Z"})",
                    "/clock: \"2026-02-30T00:00:00Z\" is no time from 1601 on"},
        BadHostFile{"FaultOfAnUnknownWriter",
                    R"({"disks": [], "faults": [{"writer": "V", "event": "freeze", "failure": 5}]})",
                    "/faults/0/writer: no writer is named \"V\""},
        BadHostFile{"FaultAtAnUnknownEvent",
                    WithWriter("", R"(, "faults": [{"writer": "W", "event": "lunch", "failure": 5}])"),
                    "/faults/0/event: \"lunch\" is none of identify, prepareBackup, prepareSnapshot, "
                    "freeze, thaw, postSnapshot, backupComplete, backupShutdown, preRestore, postRestore"},
        BadHostFile{"FaultOfAnUnknownComponent",
                    WithWriter(R"(, "components": [{"name": "c"}])",
                               R"(, "faults": [{"writer": "W", "event": "freeze", "failure": 5,
                        "components": [{"fullPath": "c", "failure": 5}]}])"),
                    "/faults/0/components/0/fullPath: the writer has no component \"c\""},
        BadHostFile{"ComponentThatIsMistyped",
                    WithWriter(R"(, "components": [{"logicalPath": "SQL01", "name": "sales"}])",
                               R"(, "faults": [{"writer": "W", "event": "freeze", "failure": 5,
                        "components": [{"fullPath": "SQL01\\sales", "failure": 5}]}])"),
                    "/faults/0/components/0/fullPath: the writer has no component \"SQL01\\sales\"; did you mean "
                    "\"\\SQL01\\sales\"?"},
        BadHostFile{"CallThatIsMistyped",
                    R"({"disks": [], "faults": [{"call": "IVssBackupComponents::AddToSnapShotSets", "result": 5}]})",
                    "/faults/0/call: \"IVssBackupComponents::AddToSnapShotSets\" is no call that may fail "
                    "(Interface::Method or a function's name); did you mean "
                    "\"IVssBackupComponents::AddToSnapshotSet\"?"},
        BadHostFile{"CallWithoutItsInterface", R"({"disks": [], "faults": [{"call": "QueryStatus", "result": 5}]})",
                    "/faults/0/call: \"QueryStatus\" is no call that may fail (Interface::Method or a function's "
                    "name); did you mean \"IVssAsync::QueryStatus\"?"},
        BadHostFile{"CallOfAnotherInterface",
                    R"({"disks": [], "faults": [{"call": "IVssBackupComponents::QueryStatus", "result": 5}]})",
                    "/faults/0/call: \"IVssBackupComponents::QueryStatus\" is no call that may fail "
                    "(Interface::Method or a function's name); did you mean \"IVssAsync::QueryStatus\"?"},
        BadHostFile{"AsyncThatIsMistyped", R"({"disks": [], "faults": [{"async": "DoSnapshot", "result": 5}]})",
                    "/faults/0/async: \"DoSnapshot\" starts no asynchronous operation; did you mean "
                    "\"DoSnapshotSet\"?"},
        BadHostFile{"ResultThatIsMistyped",
                    R"({"disks": [], "faults": [{"call": "CloseHandle", "result": "VSS_E_BADSTATE"}]})",
                    "/faults/0/result: \"VSS_E_BADSTATE\" is no result name, \"0x\" number or decimal code; did you "
                    "mean \"VSS_E_BAD_STATE\"?"},
        BadHostFile{"EventThatIsMistyped",
                    WithWriter("", R"(, "faults": [{"writer": "W", "event": "Frezee", "failure": 5}])"),
                    "/faults/0/event: \"Frezee\" is none of identify, prepareBackup, prepareSnapshot, freeze, thaw, "
                    "postSnapshot, backupComplete, backupShutdown, preRestore, "
                    "postRestore; did you mean \"freeze\"?"},
        BadHostFile{"DiskThatIsMistyped",
                    R"({"disks": [{"serial": "TSL0001"}, {"serial": "TSL0022"}], "databases": {"TSL0002": "x@y"}})",
                    "/databases/TSL0002: no disk has the serial \"TSL0002\"; did you mean \"TSL0001\"?"},
        BadHostFile{"WriterThatIsMistyped",
                    R"({"disks": [], "writers": [{"name": "SqlServerWriter",
                        "writerId": "{00000000-0000-0000-0000-000000000001}"}],
                        "faults": [{"writer": "SQLServer Writer", "event": "freeze", "failure": 5}]})",
                    "/faults/0/writer: no writer is named \"SQLServer Writer\"; did you mean "
                    "\"SqlServerWriter\"?"},
        BadHostFile{"EventWithoutSource", WithEvent(R"("id": 1)"), "/events/0: missing key \"source\""},
        BadHostFile{"EventWithoutNumber", WithEvent(R"("source": "VSS")"), "/events/0: missing key \"id\""},
        BadHostFile{"EventWithAnEmptyName", WithEvent(R"("source": "", "id": 1)"),
                    "/events/0/source: a name is not empty"},
        BadHostFile{"EventOfAnEmptyChannel", WithEvent(R"("source": "VSS", "id": 1, "channel": "")"),
                    "/events/0/channel: a name is not empty"},
        BadHostFile{"EventWithAnUnknownKey", WithEvent(R"("source": "VSS", "id": 1, "text": [])"),
                    "/events/0/text: unknown key; did you mean \"texts\"?"},
        BadHostFile{"EventOfAnUnknownLevel", WithEvent(R"("source": "VSS", "id": 1, "level": "eror")"),
                    "/events/0/level: \"eror\" is none of critical, error, warning, information, always; did you "
                    "mean \"error\"?"},
        BadHostFile{"EventAtNoTime", WithEvent(R"("source": "VSS", "id": 1, "time": "2026-02-30T00:00:00Z")"),
                    "/events/0/time: \"2026-02-30T00:00:00Z\" is no time in UTC (2026-01-01T00:00:05Z)"},
        BadHostFile{"EventWithHalfAByte", WithEvent(R"("source": "VSS", "id": 1, "data": "00F")"),
                    "/events/0/data: \"00F\" is no data (two digits of 0-9, A-F for each byte)"},
        BadHostFile{"EventWithDataThatIsNone", WithEvent(R"("source": "VSS", "id": 1, "data": "0x")"),
                    "/events/0/data: \"0x\" is no data (two digits of 0-9, A-F for each byte)"},
        BadHostFile{"EventWithATextThatIsNone", WithEvent(R"("source": "VSS", "id": 1, "texts": [1])"),
                    "/events/0/texts/0: expected string, found number"}),
    [](const testing::TestParamInfo<BadHostFile>& test) { return std::string(test.param.name); });

TEST(HostFile, TextThatIsNoJsonIsReportedWithLineAndColumn) {
  EXPECT_THAT(ErrorOf("{\n  \"disks\": [,]\n}"), StartsWith("host.json: /: no JSON: line 2, column 13: "));
  EXPECT_THAT(ErrorOf(""), StartsWith("host.json: /: no JSON: line 1, column 1: "));
  EXPECT_THAT(ErrorOf("{\"disks\": [1e999]}"), StartsWith("host.json: /: no JSON: "));
  EXPECT_THAT(ErrorOf("{\"disks\": [\"\xFF\"]}"), StartsWith("host.json: /: no JSON: line 1, "));
}

std::string LoadError(const std::filesystem::path& path) {
  try {
    LoadHostFile(path);
  } catch (const HostFileError& error) {
    return error.what();
  }
  return {};
}

std::string InUtf8(const std::filesystem::path& path) {
  const std::u8string text = path.u8string();
  return std::string(text.begin(), text.end());
}

TEST(HostFile, AFileThatCannotBeReadIsReportedUnderItsNameWithTheReason) {
  const std::filesystem::path missing = "no-such-folder/host.json";
  EXPECT_EQ(LoadError(missing), InUtf8(missing) + ": /: cannot read the file: there is no such file");
  EXPECT_EQ(LoadError(SourceFolder()), InUtf8(SourceFolder()) + ": /: cannot read the file: it is a folder");

  const TemporaryFolder folder;
  folder.Write("host.json", "{}");
  const std::filesystem::path locked = folder.path() / "host.json";
  std::filesystem::permissions(locked, std::filesystem::perms::none);
  if (std::ifstream(locked).is_open()) GTEST_SKIP() << "this user may read everything";
  EXPECT_EQ(LoadError(locked), InUtf8(locked) + ": /: cannot read the file: it cannot be read");
}

// Text of plain characters and of one outside the basic plane, as PowerShell's redirection writes it.
std::string Utf16(const std::string& text, bool bigEndian) {
  std::u16string units = u"\xFEFF";
  for (const char c : text) units += c == '*' ? u"\U0001F4BE" : std::u16string(1, static_cast<char16_t>(c));
  std::string bytes;
  for (const char16_t unit : units) {
    const auto low = static_cast<char>(unit & 0xFF);
    const auto high = static_cast<char>(unit >> 8);
    bytes += bigEndian ? high : low;
    bytes += bigEndian ? low : high;
  }
  return bytes;
}

TEST(HostFile, IsReadInUtf16AndWithAnyByteOrderMark) {
  const TemporaryFolder folder;
  const std::string json = R"({"computerName": "PC*", "disks": [], "writers": [{"document": "sql.xml"}]})";
  const std::wstring plain = L"PC*";
  const std::wstring astral = Utf8ToWide("PC\xF0\x9F\x92\xBE");
  const std::tuple<std::string, std::string, std::wstring> forms[] = {
      {json, kSmallDocument, plain},
      {"\xEF\xBB\xBF" + json, std::string("\xEF\xBB\xBF") + kSmallDocument, plain},
      {Utf16(json, false), Utf16("<WRITER_METADATA/>", false), astral},
      {Utf16(json, true), Utf16("<WRITER_METADATA/>", true), astral}};
  for (const auto& [host, document, name] : forms) {
    folder.Write("host.json", host);
    const bool whole = document.find("xmlns") != document.npos;
    folder.Write("sql.xml", document);
    if (!whole) {
      EXPECT_THAT(LoadError(folder.path() / "host.json"), EndsWith("no IDENTIFICATION")) << "it was read";
      folder.Write("sql.xml", kSmallDocument);
    }
    const HostModel model = LoadHostFile(folder.path() / "host.json");
    EXPECT_EQ(model.computerName, name);
    EXPECT_EQ(FormatWriterMetadata(model.writers.at(0)), kSmallDocument);
  }
}

TEST(HostFile, Utf16ThatIsNoneIsReported) {
  const TemporaryFolder folder;
  const std::filesystem::path path = folder.path() / "host.json";
  folder.Write("host.json", "\xFF\xFE{");
  EXPECT_THAT(LoadError(path), EndsWith("cannot read the file: it is no UTF-16: an odd number of bytes"));
  folder.Write("host.json", std::string("\xFE\xFF\xD8\x00\x00{", 6));
  EXPECT_THAT(LoadError(path), EndsWith("cannot read the file: it is no UTF-16: half of a surrogate pair"));
  folder.Write("host.json", std::string("\xFF\xFE", 2));
  EXPECT_THAT(LoadError(path), HasSubstr("no JSON: line 1, column 1"));
}

TEST(HostFile, ReadsWriterDocumentsBesideIt) {
  const TemporaryFolder folder;
  folder.Write("sql.xml", kSmallDocument);
  folder.Write("host.json", R"({"disks": [], "writers": [{"document": "sql.xml"}]})");
  const HostModel model = LoadHostFile(folder.path() / "host.json");
  ASSERT_THAT(model.writers, SizeIs(1));
  EXPECT_EQ(FormatWriterMetadata(model.writers[0]), kSmallDocument);
}

TEST(HostFile, ReadsWhatAWriterOfADocumentLeavesForItsComponents) {
  const TemporaryFolder folder;
  folder.Write("sql.xml", kSmallDocument);
  const auto withComponent = [](const std::string& keys) {
    return R"({"disks": [], "writers": [{"document": "sql.xml", "components": [{)" + keys + "}]}]}";
  };
  const HostModel model =
      ParseHostFile(withComponent(R"("fullPath": "\\SQL01\\sales", "backupStamp": "", "backupMetadata": "bTE=")"), "h",
                    folder.path());
  EXPECT_EQ(model.writers.at(0).components.at(0).backupStamp, L"");
  EXPECT_EQ(model.writers[0].components[0].backupMetadata, L"bTE=");
  EXPECT_EQ(*model.writers[0].document, kSmallDocument) << "the document stays as it was";
  EXPECT_EQ(ErrorOf(withComponent(R"("fullPath": "\\sales")"), folder.path()),
            "host.json: /writers/0/components/0/fullPath: the writer has no component \"\\sales\"");
  EXPECT_EQ(ErrorOf(withComponent(R"("name": "sales")"), folder.path()),
            "host.json: /writers/0/components/0/name: unknown key");
}

TEST(HostFile, ADocumentThatIsNoneIsReportedWithItsReasonInOneLine) {
  const TemporaryFolder folder;
  folder.Write("bad.xml", "<WRITER_METADATA/>");
  folder.Write("sql.xml", kSmallDocument);
  EXPECT_EQ(ErrorOf(R"({"disks": [], "writers": [{"document": "bad.xml"}]})", folder.path()),
            "host.json: /writers/0/document: \"bad.xml\" is no Writer Metadata Document: no IDENTIFICATION");
  EXPECT_EQ(ErrorOf(R"({"disks": [], "writers": [{"document": "a\nb"}]})", folder.path()),
            "host.json: /writers/0/document: cannot read \"a b\": there is no such file");
  EXPECT_EQ(ErrorOf(R"({"disks": [], "writers": [{"document": "sql.xml"}, {"document": "sql.xml"}]})", folder.path()),
            "host.json: /writers/1: duplicate writer instance \"{235435d9-34d6-41ea-8c08-5958a9982636}\"");
}

TEST(HostFile, IsWhatTheExampleOfItsPageShows) {
  std::ifstream page(SourceFolder() / "docs" / "host-file.md", std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(page), std::istreambuf_iterator<char>()};
  const std::size_t begin = text.find("```jsonc\n") + 9;
  const TemporaryFolder folder;
  std::filesystem::create_directories(folder.path() / "writers");
  folder.Write("writers/sql.xml", kSmallDocument);
  const HostModel model =
      ParseHostFile(text.substr(begin, text.find("```", begin) - begin), "the page's example", folder.path());
  EXPECT_THAT(model.writers, SizeIs(2));
  EXPECT_EQ(model.seed, 1);
}

TEST(ExampleHosts, AllLoadAndHaveASystemDiskAndTheArraysProvider) {
  for (const char* name : {"sql-server.json", "exchange.json", "hyperv-cluster.json", "plain.json"}) {
    SCOPED_TRACE(name);
    const HostModel model = LoadHostFile(SourceFolder() / "examples" / "hosts" / name);
    EXPECT_GE(model.disks.size(), 3u);
    EXPECT_TRUE(model.disks.at(0).system);
    EXPECT_TRUE(model.providers.at(0).id == kArrayProvider);
    EXPECT_GE(model.writers.size(), 11u);
  }
}

TEST(ExampleHosts, TheBuiltInSampleIsTheSqlServer) {
  const HostModel file = LoadHostFile(SourceFolder() / "examples" / "hosts" / "sql-server.json");
  const HostModel sample = SampleHost();
  EXPECT_EQ(sample.computerName, L"SQL01");
  ASSERT_EQ(sample.disks.size(), file.disks.size());
  for (std::size_t i = 0; i < file.disks.size(); ++i) EXPECT_EQ(sample.disks[i].serial, file.disks[i].serial);
  ASSERT_EQ(sample.writers.size(), file.writers.size());
  for (std::size_t i = 0; i < file.writers.size(); ++i) {
    EXPECT_EQ(FormatWriterMetadata(sample.writers[i]), FormatWriterMetadata(file.writers[i]));
  }
  EXPECT_EQ(sample.databases, file.databases);
}

}  // namespace
}  // namespace varnel::simulator
