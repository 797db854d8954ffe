// varnelctl doctor: on broken hosts it names what is broken and nothing else, on good ones it is silent.
#include <functional>

#include "core/configuration.h"
#include "tests/varnelctl/sets_support.h"
#include "varnelctl/doctor/check.h"
#include "varnelctl/explanation/advice.h"

namespace varnel::test {
namespace {

using nlohmann::json;
using simulator::HostModel;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

// SQL Server with a database on each of two array disks.
HostModel GoodHost() {
  HostModel model = SmallHost();
  model.writers = {
      MakeWriterOf(kSqlServerWriterId, L"SqlServerWriter", 1,
                   {MakeComponent(L"SQL01", L"sales", {L"E:\\data"}), MakeComponent(L"SQL01", L"crm", {L"F:\\data"})}),
      MakeWriter(L"Other Writer", 2, {MakeComponent(L"", L"settings", {L"C:\\settings"})})};
  return model;
}

HostModel ExchangeHost() {
  HostModel model = GoodHost();
  model.writers = {MakeWriterOf(kExchangeWriterId, L"Microsoft Exchange Writer", 1, {})};
  model.commands = {{L"", 0, L"C:\\Exchange\\Bin"}};
  model.commands[0].match = L"eseutil.exe *";
  model.environment[L"PATH"] = L"C:\\Exchange\\Bin";
  return model;
}

HostModel HyperVHost() {
  HostModel model = GoodHost();
  model.writers = {MakeWriterOf(kHyperVWriterId, L"Microsoft Hyper-V VSS Writer", 1, {})};
  model.fileVersions = {{L"C:\\Windows\\system32\\Vmms.exe", L"10.0.17763.1"}};
  return model;
}

const Arguments kSet = {"doctor", "--app", "sql", "--disk", "TSL0001", "TSL0002"};

// "error provider VSS_E_PROVIDER_NOT_REGISTERED"
std::string Told(const json& finding) {
  return finding.at("severity").get<std::string>() + " " + finding.at("check").get<std::string>() + " " +
         finding.at("explain").get<std::string>();
}

struct BrokenHost {
  const char* name;
  HostModel (*good)();
  std::function<void(HostModel&)> breakIt;
  Arguments arguments;
  const char* told;   // the only finding
  const char* found;  // in its object and what was found
};

class BrokenHosts : public CliFixture, public testing::WithParamInterface<BrokenHost> {
 protected:
  json Examine(HostModel model, const Arguments& arguments, int status) {
    Install(std::move(model));
    return Document(arguments, status);
  }
};

TEST_P(BrokenHosts, AreToldWithTheirFaultAndNothingElse) {
  const BrokenHost& broken = GetParam();
  const json good = Examine(broken.good(), broken.arguments, 0);
  EXPECT_THAT(good.at("findings"), IsEmpty()) << good.at("findings").dump(1);

  HostModel model = broken.good();
  broken.breakIt(model);
  const bool isError = std::string(broken.told).starts_with("error");
  const json document = Examine(std::move(model), broken.arguments, isError ? 12 : 0);
  ASSERT_EQ(document.at("findings").size(), 1u) << document.at("findings").dump(1);
  const json& finding = document.at("findings")[0];
  EXPECT_EQ(Told(finding), broken.told);
  EXPECT_THAT(finding.at("object").get<std::string>() + ": " + finding.at("found").get<std::string>(),
              HasSubstr(broken.found));
  const varnelctl::Advice* const advice = varnelctl::FindAdvice(finding.at("explain").get<std::string>());
  ASSERT_NE(advice, nullptr);
  EXPECT_THAT(finding.at("remedy").get<std::string>(), HasSubstr(std::string(advice->remedy)));
  EXPECT_EQ(err, "") << "what is told is told as findings";
}

void AddDisk(HostModel& model, const wchar_t* serial, DWORD number, const wchar_t* mountPoint) {
  model.disks.push_back(MakeDisk(serial, number, mountPoint));
}

// The first database has a file on each.
void AddVolumes(HostModel& model, int count) {
  for (int n = 0; n < count; ++n) {
    const std::wstring folder = L"E:\\m" + std::to_wstring(n);
    model.disks[1].volumes.push_back({VolumeName(100 + n), {folder + L"\\"}, false, L""});
    model.writers[0].components[0].files.push_back({folder, L"*"});
  }
}

simulator::LoggedEvent ErrorOfVss() {
  simulator::LoggedEvent event;
  event.source = L"VSS";
  event.id = 8193;
  event.level = simulator::EventLevel::error;
  event.message = L"Unexpected error calling routine ConvertStringSidToSid.";
  return event;
}

INSTANTIATE_TEST_SUITE_P(
    All, BrokenHosts,
    testing::Values(
        BrokenHost{"NotElevated", GoodHost, [](HostModel& host) { host.process.elevated = false; }, kSet,
                   "error process E_ACCESSDENIED", "this process: it is not elevated"},
        BrokenHost{"Of32Bits", GoodHost, [](HostModel& host) { host.process.is32Bit = true; }, kSet,
                   "error process wrong-bitness", "32-bit process"},
        BrokenHost{"ComSecurityTooLate", GoodHost,
                   [](HostModel& host) {
                     host.faults.calls = {{"CoInitializeSecurity", 1, 0x80010119}};
                   },
                   kSet, "error comSecurity RPC_E_TOO_LATE",
                   "CoInitializeSecurity failed: RPC_E_TOO_LATE (0x80010119)"},
        BrokenHost{"DcomOff", GoodHost,
                   [](HostModel& host) {
                     host.registry[L"HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Ole"][L"EnableDCOM"] = L"n";
                   },
                   kSet, "error comSecurity dcom-off", "it is off (EnableDCOM is N)"},
        BrokenHost{"ServiceDisabled", GoodHost,
                   [](HostModel& host) {
                     host.services[L"VSS"] = {{SERVICE_DISABLED, SERVICE_STOPPED}};
                   },
                   kSet, "error services ERROR_SERVICE_DISABLED", "\"Volume Shadow Copy\" (VSS): it is disabled"},
        BrokenHost{"NoService", GoodHost, [](HostModel& host) { host.services[L"VSS"] = std::nullopt; }, kSet,
                   "error services ERROR_SERVICE_DOES_NOT_EXIST", "(VSS): it is not there"},
        BrokenHost{"ServicePaused", GoodHost,
                   [](HostModel& host) {
                     host.services[L"VSS"] = {{SERVICE_DEMAND_START, SERVICE_PAUSED}};
                   },
                   kSet, "warning services ERROR_SERVICE_NOT_ACTIVE", "(VSS): it is paused"},
        BrokenHost{"SoftwareProviderDisabled", GoodHost,
                   [](HostModel& host) {
                     host.services[L"swprv"] = {{SERVICE_DISABLED, SERVICE_STOPPED}};
                   },
                   kSet, "error services ERROR_SERVICE_DISABLED", "(swprv): it is disabled"},
        BrokenHost{"EventSystemStopped", GoodHost,
                   [](HostModel& host) {
                     host.services[L"EventSystem"] = {{SERVICE_AUTO_START, SERVICE_STOPPED}};
                   },
                   kSet, "error services no-writer", "(EventSystem): it is stopped"},
        BrokenHost{"NoProvider", GoodHost, [](HostModel& host) { host.providers.clear(); }, kSet,
                   "error provider VSS_E_PROVIDER_NOT_REGISTERED", "it is not registered on this host"},
        BrokenHost{"VolumeNotSupported", GoodHost,
                   [](HostModel& host) { host.providers[0].unsupportedVolumes = {VolumeName(2)}; }, kSet,
                   "error volumeSupport VSS_E_VOLUME_NOT_SUPPORTED_BY_PROVIDER",
                   "F:\\ on disk \"TSL0002\": the array's provider does not support it"},
        BrokenHost{"NoSqlWriter", GoodHost,
                   [](HostModel& host) {
                     host.writers.erase(host.writers.begin());
                     host.services[L"SQLWriter"] = {{SERVICE_AUTO_START, SERVICE_STOPPED}};
                   },
                   kSet, "error writers no-sql-writer",
                   "SqlServerWriter: it has not answered; its service SQLWriter: it is stopped"},
        BrokenHost{"NoWriter",
                   GoodHost,
                   [](HostModel& host) { host.writers.clear(); },
                   {"doctor"},
                   "error writers no-writer",
                   "the writers: none has answered"},
        BrokenHost{"WritersNotGathered", GoodHost,
                   [](HostModel& host) {
                     host.faults.calls = {{"IVssBackupComponents::GatherWriterMetadata", 0,
                                           static_cast<DWORD>(VSS_E_WRITER_INFRASTRUCTURE)}};
                   },
                   kSet, "error writers VSS_E_WRITER_INFRASTRUCTURE",
                   "could not be asked: GatherWriterMetadata failed"},
        BrokenHost{"SqlWriterFailed", GoodHost,
                   [](HostModel& host) {
                     host.writers[0].lastFailure = {VSS_WS_FAILED_AT_FREEZE, VSS_E_WRITERERROR_TIMEOUT};
                   },
                   kSet, "error writerStates VSS_E_WRITERERROR_TIMEOUT",
                   "SqlServerWriter: it failed at Freeze: VSS_E_WRITERERROR_TIMEOUT"},
        BrokenHost{"OtherWriterFailed", GoodHost,
                   [](HostModel& host) {
                     host.writers[1].lastFailure = {VSS_WS_FAILED_AT_POST_SNAPSHOT, VSS_E_WRITERERROR_NONRETRYABLE};
                   },
                   kSet, "warning writerStates VSS_E_WRITERERROR_NONRETRYABLE",
                   "Other Writer: it failed at PostSnapshot"},
        BrokenHost{"VolumeOnSeveralDisks", GoodHost,
                   [](HostModel& host) {
                     host.disks[1].volumes.push_back({VolumeName(7), {L"G:\\"}, false, L"", {2}});
                   },
                   kSet, "error severalDisks several-disks", "G:\\: it lies on disks 1, 2"},
        BrokenHost{"SameSerialNumber", GoodHost, [](HostModel& host) { AddDisk(host, L"TSL0002", 3, L"G:\\"); }, kSet,
                   "error serialNumbers same-serial-number",
                   "disks 2, 3: they have the same serial number \"TSL0002\""},
        BrokenHost{"NoSerialNumber", GoodHost,
                   [](HostModel& host) {
                     AddDisk(host, L"", 3, L"G:\\");
                     host.disks[3].reportsSerial = false;
                   },
                   kSet, "note serialNumbers no-serial-number", "disk 3: it has no serial number"},
        BrokenHost{"TornDatabase", GoodHost,
                   [](HostModel& host) {
                     AddDisk(host, L"TSL0003", 3, L"G:\\");
                     host.writers[0].components[1].files.push_back({L"G:\\logs", L"crm.ldf"});
                   },
                   kSet, "error databases not-whole",
                   "database SQL01\\crm: only a part of it lies on these disks: not in the protection set: disk "
                   "\"TSL0003\" (add it with --disk TSL0003)"},
        BrokenHost{"TornDatabaseThatIsNoneOfThePlans", GoodHost,
                   [](HostModel& host) {
                     AddDisk(host, L"TSL0003", 3, L"G:\\");
                     host.writers[0].components.push_back(MakeComponent(L"SQL01", L"hr", {L"E:\\hr", L"G:\\hr"}));
                   },
                   kSet, "warning databases not-whole", "database SQL01\\hr: only a part of it"},
        BrokenHost{"DatabaseOnTheSystemDisk", GoodHost,
                   [](HostModel& host) {
                     host.writers[0].components.push_back(MakeComponent(L"SQL01", L"tools", {L"C:\\tools"}));
                   },
                   kSet, "note databases on-other-disks", "SQL01\\tools: lies on none of these disks"},
        BrokenHost{"TooManyVolumes", GoodHost, [](HostModel& host) { AddVolumes(host, 63); }, kSet,
                   "error setSize VSS_E_MAXIMUM_NUMBER_OF_VOLUMES_REACHED", "it would have 65 volumes"},
        BrokenHost{"NothingOnTheDisk", GoodHost, [](HostModel& host) { host.writers[0].components.pop_back(); }, kSet,
                   "error plan 701", "a snapshot of these disks: it would fail: Extra volumes found"},
        BrokenHost{"NoChecker",
                   ExchangeHost,
                   [](HostModel& host) { host.commands.clear(); },
                   {"doctor", "--app", "exchange"},
                   "warning checker checker-missing",
                   "the checker eseutil.exe: it is not on the PATH"},
        BrokenHost{"MissingHotfix",
                   HyperVHost,
                   [](HostModel& host) { host.fileVersions[L"C:\\Windows\\system32\\Vmms.exe"] = L"6.3.9600.17000"; },
                   {"doctor", "--app", "hyperv"},
                   "error hyperVHost 255",
                   "Vmms.exe: its version is 6.3.9600.17000"},
        BrokenHost{"OldWindows",
                   HyperVHost,
                   [](HostModel& host) {
                     host.os.major = 6;
                     host.os.minor = 2;
                   },
                   {"doctor", "--app", "hyperv"},
                   "error hyperVHost 254",
                   "it is 6.2.17763.0"},
        BrokenHost{"NoManifest", GoodHost,
                   [](HostModel& host) {
                     host.os.major = 6;
                     host.os.minor = 2;
                     host.fileVersions = {{L"C:\\Windows\\system32\\kernel32.dll", L"10.0.17763.1"}};
                   },
                   kSet, "warning manifest no-manifest", "an older version than its own, 10.0.17763.1"},
        BrokenHost{"NoRoom", GoodHost, [](HostModel& host) { host.disks[1].volumes[0].freeMegabytes = 319; }, kSet,
                   "note space VSS_E_INSUFFICIENT_STORAGE", "E:\\ on disk \"TSL0001\": 319 of its 102400 MB are free"},
        BrokenHost{"ClockOfThePast", GoodHost, [](HostModel& host) { host.clock = 131'000'000'000'000'000; }, kSet,
                   "warning clock clock", "the clock of this host: it says 2016-02-15T"},
        BrokenHost{"ErrorInTheLog", GoodHost, [](HostModel& host) { host.events = {ErrorOfVss()}; }, kSet,
                   "warning events event-errors",
                   "source VSS of the log Application: 1 error with the number 8193 in the last day, the latest at "
                   "2026-01-01T00:00:00.000Z: Unexpected error"},
        BrokenHost{"ErrorOfTheMachines", GoodHost,
                   [](HostModel& host) {
                     host.events = {ErrorOfVss()};
                     host.events[0].channel = L"Microsoft-Windows-Hyper-V-VMMS-Admin";
                     host.events[0].source = L"Microsoft-Windows-Hyper-V-VMMS";
                   },
                   kSet, "warning events event-errors",
                   "source Microsoft-Windows-Hyper-V-VMMS of the log Microsoft-Windows-Hyper-V-VMMS-Admin: 1 error"},
        BrokenHost{"ErrorOfTheEventSystem", GoodHost,
                   [](HostModel& host) {
                     host.events = {ErrorOfVss()};
                     host.events[0].source = L"Microsoft-Windows-EventSystem";
                   },
                   kSet, "warning events event-errors", "source Microsoft-Windows-EventSystem of the log Application"},
        BrokenHost{"MoreErrorsThanAreRead", GoodHost, [](HostModel& host) { host.events.assign(5001, ErrorOfVss()); },
                   kSet, "warning events event-errors", "at least 5000 errors with the number 8193"},
        BrokenHost{"ManyDatabasesElsewhere", GoodHost,
                   [](HostModel& host) {
                     for (const wchar_t* name : {L"master", L"msdb", L"d1", L"d2", L"d3", L"d4", L"d5", L"d6", L"d7"}) {
                       host.writers[0].components.push_back(MakeComponent(L"SQL01", name, {L"C:\\data"}));
                     }
                   },
                   kSet, "note databases on-other-disks",
                   "SQL01\\d1, SQL01\\d2, SQL01\\d3, SQL01\\d4, SQL01\\d5 and 2 more: lie on none of these disks"},
        BrokenHost{"LogOfNobody", GoodHost,
                   [](HostModel& host) {
                     host.faults.calls = {{"EvtQuery", 1, ERROR_ACCESS_DENIED}};
                   },
                   kSet, "warning events E_ACCESSDENIED", "the event log Application: could not be asked"}),
    [](const auto& instance) { return instance.param.name; });

class Doctor : public SetsFixture {
 protected:
  std::string Whole(const Arguments& arguments, int status) {
    const CliResult result = Run(arguments);
    EXPECT_EQ(result.status, status);
    EXPECT_EQ(result.err, "");
    return result.out;
  }
  std::vector<std::string> Findings(Arguments arguments, int status = 0) {
    std::vector<std::string> told;
    const json document = Document(std::move(arguments), status);
    for (const json& finding : document.at("findings")) told.push_back(Told(finding));
    return told;
  }
};

TEST_F(Doctor, SaysInOneLineThatAllIsWell) {
  Install(GoodHost());
  EXPECT_EQ(Whole(kSet, 0),
            "A snapshot of these disks: WOULD CAPTURE 2 of 2 databases\n"
            "18 checks, nothing found; 2 more with a journal\n");
  EXPECT_EQ(Whole({"doctor"}, 0), "15 checks, nothing found; 3 more with --app and --disk; 2 more with a journal\n");
}

TEST_F(Doctor, TellsTheWorstFirstWithWhatToDo) {
  HostModel model = GoodHost();
  model.process.is32Bit = true;
  model.writers[1].lastFailure = {VSS_WS_FAILED_AT_THAW, VSS_E_WRITERERROR_TIMEOUT};
  Install(model);
  EXPECT_EQ(Whole({"doctor", "--disk", "TSL0001"}, 12), R"(Errors
  this process: it is a 32-bit process of a 64-bit Windows
    wanted: a 64-bit process: the service answers no other
    what to do: Install the 64-bit varnelctl, or build the agent for 64 bits.
    next: varnelctl explain wrong-bitness
Warnings
  Other Writer: it failed at Thaw: VSS_E_WRITERERROR_TIMEOUT
    wanted: a writer that is stable
    what to do: )" + std::string(varnelctl::FindAdvice("VSS_E_WRITERERROR_TIMEOUT")->remedy) +
                                                            R"(
    next: varnelctl explain VSS_E_WRITERERROR_TIMEOUT
Notes
  SQL01\crm: lies on none of these disks
    what to do: Nothing, when it is not to be in the set. Otherwise add the disks that it lies on: varnelctl plan --for NAME names them.
    next: varnelctl explain on-other-disks
17 checks: 1 error, 1 warning, 1 note; 1 more with --app; 2 more with a journal
)");
}

TEST_F(Doctor, DocumentsNameWhatFailedAsTheirResult) {
  HostModel model = GoodHost();
  model.providers.clear();
  Install(model);
  const json document = Document(kSet, 12);
  EXPECT_EQ(document.at("kind"), "doctor");
  EXPECT_EQ(document.at("errors"), 1);
  EXPECT_EQ(document.at("result").at("explain"), "VSS_E_PROVIDER_NOT_REGISTERED");
  EXPECT_THAT(document.at("plan").get<std::string>(), StartsWith("WOULD FAIL: "));
  EXPECT_EQ(document.at("checks").size(), varnelctl::AllChecks().size());
  EXPECT_EQ(document.at("checks")[3].at("findings"), 1);
}

TEST_F(Doctor, TellsWhatItSawWhereNothingIsWrong) {
  Install(HyperVHost());
  std::map<std::string, std::string> saw;
  const json document = Document({"doctor"});
  for (const json& check : document.at("checks")) saw[check.at("name")] = check.at("saw");
  EXPECT_EQ(saw.at("provider"), "Tessel VSS Hardware Provider 1.0");
  EXPECT_EQ(saw.at("hyperVHost"), "Vmms.exe 10.0.17763.1");
  EXPECT_EQ(saw.at("manifest"), "Windows 10.0.17763.0");
  EXPECT_EQ(saw.at("clock"), "2026-01-01T00:00:00.000Z");
}

TEST_F(Doctor, RefusesADiskThatThisHostDoesNotHave) {
  Install(GoodHost());
  ExpectRefused(Run({"doctor", "--app", "sql", "--disk", "TSL0009"}), "varnelctl: no disk of this host has serial");
  ExpectRefused(Run({"doctor", "--disk", "TSL0009"}), "varnelctl: no disk of this host has serial");
}

TEST_F(Doctor, NoWriterHearsMoreThanIdentifyAndNothingIsChanged) {
  Install(GoodHost());
  Whole(kSet, 0);
  for (const auto& event : host().machine().snapshots->raisedEvents) {
    EXPECT_EQ(event.event, simulator::WriterEvent::identify);
  }
  EXPECT_THAT(CallsOf("IVssBackupComponents::GatherWriterMetadata"), testing::SizeIs(1)) << "one Identify";
  for (const char* call : {"StartSnapshotSet", "AddToSnapshotSet", "PrepareForBackup", "DoSnapshotSet",
                           "DeleteSnapshots", "BreakSnapshotSet", "BackupComplete", "AbortBackup"}) {
    EXPECT_THAT(CallsOf(std::string("IVssBackupComponents::") + call), IsEmpty()) << call;
  }
  for (const char* call : {"CreateProcessW", "LogoutIScsiTarget", "ReportEventW", "RegisterEventSourceW",
                           "IVssAdmin::RegisterProvider", "IVssAdmin::UnregisterProvider"}) {
    EXPECT_THAT(CallsOf(call), IsEmpty()) << call;
  }
}

TEST_F(Doctor, IsSilentOnTheGoodSampleHosts) {
  const std::filesystem::path samples = std::filesystem::path(VARNEL_EXAMPLES) / "hosts";
  const std::vector<std::pair<const char*, Arguments>> good = {
      {"sql-server.json", {"--app", "sql", "--disk", "TSL0001", "TSL0002", "TSL0003", "TSL0004"}},
      {"exchange.json", {"--app", "exchange", "--disk", "TSL1001", "TSL1002"}},
      {"hyperv-cluster.json", {"--app", "hyperv", "--disk", "TSL2001", "TSL2002"}},
      {"plain.json", {"--app", "none", "--disk", "TSL3001", "TSL3002"}}};
  for (const auto& [file, options] : good) {
    SCOPED_TRACE(file);
    for (const Arguments& more : {Arguments(), options}) {
      Arguments arguments = {"--host", (samples / file).string(), "doctor"};
      arguments.insert(arguments.end(), more.begin(), more.end());
      for (const std::string& told : Findings(arguments)) EXPECT_THAT(told, StartsWith("note "));
    }
  }
}

TEST_F(Doctor, NamesALeftSetAndTheSessionThatCarriesIt) {
  const std::string setId = KeptSet();
  Entry entry = EntryOf(setId);
  entry.end = End::ToBeEnded;
  entry.process.id = 0x7fffffff;  // of nobody
  journal.Write(entry);
  EXPECT_THAT(Findings(Journalled({"doctor"})),
              testing::ElementsAre("warning leftovers leftover-set", "warning sessions session-open",
                                   "warning sessions session-open"));
  const std::string text = Whole(Journalled({"doctor"}), 0);
  EXPECT_THAT(text, AllOf(HasSubstr("  set " + setId + ": to be ended: its request did not end it\n"),
                          HasSubstr("of copy-1: it carries \"SHADOW-TSL0001\" of set " + setId),
                          EndsWith("17 checks: 3 warnings; 3 more with --app and --disk\n")));
}

TEST_F(Doctor, AKeptSetIsNoFaultAndAnUnreadableFileOfTheJournalIsOne) {
  KeptSet();
  EXPECT_THAT(Findings(Journalled({"doctor"})), IsEmpty());
  std::filesystem::create_directories(varnelctl::PathOf(folder.File("sets")));
  folder.Write("sets/11111111-1111-1111-1111-111111111111.json", "{");
  EXPECT_THAT(Findings(Journalled({"doctor"})), testing::ElementsAre("warning leftovers journal"));
}

TEST_F(Doctor, AClockBehindAShadowCopyIsTold) {
  KeptSet();
  model().clock = 134116992000000000 - 20 * 864'000'000'000;
  EXPECT_THAT(Findings(Journalled({"doctor"})), testing::ElementsAre("warning clock clock"));
  model().clock = 134116992000000000 + 864'000'000'000;
  EXPECT_THAT(Findings(Journalled({"doctor"})), IsEmpty());
}

TEST_F(Doctor, CountsTheVolumesThatThePlanHas) {
  HostModel model = GoodHost();
  for (int n = 0; n < 64; ++n) model.disks[1].volumes.push_back({VolumeName(100 + n), {}, false, L""});
  Install(model);
  EXPECT_THAT(Findings(kSet), IsEmpty());
  EXPECT_THAT(Findings({"doctor", "--disk", "TSL0001", "TSL0002"}),
              testing::ElementsAre("warning setSize VSS_E_MAXIMUM_NUMBER_OF_VOLUMES_REACHED"));
}

TEST_F(Doctor, SaysNothingOfDatabasesElsewhereWhenNoDiskIsNamed) {
  HostModel model = GoodHost();
  model.writers[0].components.push_back(MakeComponent(L"SQL01", L"tools", {L"C:\\tools"}));
  Install(model);
  EXPECT_THAT(Findings({"doctor"}), IsEmpty());
}

TEST_F(Doctor, NamesTheOtherDiskOfATornDatabaseWhenNoDiskIsNamed) {
  HostModel model = GoodHost();
  model.writers[0].components[1].files.push_back({L"C:\\logs", L"crm.ldf"});
  Install(model);
  EXPECT_THAT(Whole({"doctor"}, 0), HasSubstr("only a part of it lies on disks of the array"));
  model.disks.push_back(MakeDisk(L"OTHER-3", 3, L"G:\\"));
  model.disks[3].vendor = L"Other";
  model.writers[0].components[1].files.back().path = L"G:\\logs";
  Install(model);
  EXPECT_THAT(Whole({"doctor"}, 0),
              HasSubstr("only a part of it lies on disks of the array, another on disk \"OTHER-3\"\n"));
}

TEST_F(Doctor, AVolumeWithoutAFileSystemHasNoRoomToAskFor) {
  for (const DWORD error : {DWORD{21}, DWORD{1005}}) {
    HostModel model = GoodHost();
    model.faults.calls = {{"GetDiskFreeSpaceExW", 0, error}};
    Install(model);
    EXPECT_THAT(Findings(kSet), IsEmpty()) << error;
  }
}

TEST_F(Doctor, TheClockIsJudgedWithoutTheJournal) {
  KeptSet();
  std::filesystem::remove_all(varnelctl::PathOf(folder.File("sets")));
  folder.Write("sets", "no folder");
  model().clock = 134116992000000000 - 20 * 864'000'000'000;
  EXPECT_THAT(Findings(Journalled({"doctor"})), testing::Contains("warning clock clock"));
}

// Each question may fail: the others are asked all the same, and the finding has the code.
TEST_F(Doctor, AQuestionThatFailsIsAFindingAndNeverTheEnd) {
  constexpr int kMoreThanAnyRun = 2000;
  for (int n = 1; n < kMoreThanAnyRun; ++n) {
    Install(GoodHost()).faults().FailNthCall(n, static_cast<DWORD>(E_FAIL));
    const CliResult result = Run({"doctor", "--app", "sql", "--disk", "TSL0001", "TSL0002", "--json"});
    SCOPED_TRACE("call " + std::to_string(n) + ": " + host().faults().firedAt());
    EXPECT_THAT(result.status, testing::AnyOf(0, 2, 12));
    ASSERT_FALSE(result.out.empty());
    EXPECT_EQ(host().live().Describe(), "");
    if (!host().faults().fired()) return;
  }
  FAIL() << "the run never came to its end";
}

}  // namespace
}  // namespace varnel::test
