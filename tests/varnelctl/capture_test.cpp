// varnelctl capture: what it writes, what it refuses, and that what it wrote replays.
#include <regex>
#include <set>

#include "simulator/host_file/documents.h"
#include "simulator/vss/snapshot_service.h"
#include "tests/varnelctl/cli_support.h"
#include "text/unicode.h"
#include "varnelctl/anonymise/anonymiser.h"
#include "varnelctl/anonymise/folding.h"

namespace varnel::test {
namespace {

namespace fs = std::filesystem;

std::string Example(const std::string& name) {
  return VARNEL_EXAMPLES "/hosts/" + name + ".json";
}

std::vector<std::string> SampleHosts() {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(VARNEL_EXAMPLES "/hosts")) {
    if (entry.path().extension() == ".json") names.push_back(entry.path().stem().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

// Every file below a folder, by its name in it.
std::map<std::string, std::string> FilesIn(const fs::path& folder) {
  std::map<std::string, std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    if (entry.is_regular_file())
      files[fs::relative(entry.path(), folder).generic_string()] = ReadFile(entry.path().string());
  }
  return files;
}

// Whether a name stands whole in a text, in any case.
bool Holds(const std::string& foldedText, const std::string& foldedName) {
  for (std::size_t at = foldedText.find(foldedName); at != foldedText.npos; at = foldedText.find(foldedName, at + 1)) {
    const std::size_t end = at + foldedName.size();
    const bool begins = at == 0 || !varnelctl::IsWordByte(foldedText[at - 1]);
    if (begins && (end == foldedText.size() || !varnelctl::IsWordByte(foldedText[end]))) return true;
  }
  return false;
}

class Capture : public CliFixture {
 protected:
  std::string Path(const std::string& name) const { return folder.File(name); }

  CliResult Captured(const std::string& host, Arguments more = {}) {
    Arguments arguments = {"--host", host, "capture", Path("captured")};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return RunCli(std::move(arguments));
  }

  // What no file can hold is taken from the host it was made of: the seed, by which identifiers and times repeat, and
  // what happens during a set.
  std::string WithWhatHappens(const std::string& original) const {
    const auto parsed = [](const std::string& file) {
      return nlohmann::json::parse(ReadFile(file), nullptr, true, true);
    };
    nlohmann::json captured = parsed(Path("captured/host.json"));
    const nlohmann::json host = parsed(original);
    for (const char* key : {"seed", "faults", "timing", "commands", "iscsiSessions"}) {
      if (host.contains(key)) captured[key] = host[key];
    }
    std::ofstream(PathOf(Path("captured/replay.json")), std::ios::binary) << captured.dump();
    return Path("captured/replay.json");
  }

  static std::string Told(const std::string& host, Arguments arguments) {
    arguments.insert(arguments.begin(), {"--host", host});
    const CliResult result = RunCli(std::move(arguments));
    return std::to_string(result.status) + "\n" + result.out + result.err + result.next;
  }
};

TEST_F(Capture, SaysWhatItWroteAndHowToReplayIt) {
  const CliResult result = Captured(Example("sql-server"));
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(result.out, HasSubstr("5 disks with 6 volumes, 3 providers and 11 writers"));
  EXPECT_THAT(result.out, EndsWith("replay it with: varnelctl --host " + Path("captured") + "/host.json COMMAND\n"));
  EXPECT_TRUE(fs::exists(PathOf(Path("captured/host.json"))));
}

TEST_F(Capture, TellsProgramsWhatItWrote) {
  const CliResult result = Captured(Example("plain"), {"--json", "--anonymise"});
  ASSERT_EQ(result.status, 0) << result.err;
  const nlohmann::json document = nlohmann::json::parse(result.out);
  EXPECT_EQ(document["kind"], "capture");
  EXPECT_EQ(document["folder"], Path("captured"));
  EXPECT_EQ(document["hostFile"], "host.json");
  EXPECT_EQ(document["key"], Path("captured.key.json"));
  EXPECT_TRUE(document["notTold"].empty());
  EXPECT_EQ(document["documents"].size(), document["writers"]);
  for (const auto& file : document["documents"]) {
    EXPECT_TRUE(fs::exists(PathOf(Path("captured/" + file.get<std::string>()))));
  }
}

TEST_F(Capture, RaisesIdentifyAloneAndChangesNothing) {
  Install(simulator::SampleHost());
  const simulator::HostModel& before = model();
  const std::size_t variables = before.environment.size();
  const std::wstring directory = before.currentDirectory;
  ASSERT_EQ(Run({"capture", Path("captured")}).status, 0);
  ASSERT_FALSE(host().machine().snapshots->raisedEvents.empty());
  for (const auto& raised : host().machine().snapshots->raisedEvents) {
    EXPECT_EQ(raised.event, simulator::WriterEvent::identify);
  }
  EXPECT_EQ(model().environment.size(), variables);
  EXPECT_EQ(model().currentDirectory, directory);
  EXPECT_THAT(Calls("IVssBackupComponents::StartSnapshotSet"), IsEmpty());
  EXPECT_THAT(Calls("CreateProcessW"), IsEmpty());
}

struct Command {
  std::string host;
  Arguments arguments;
};

TEST_F(Capture, ReplaysWhatEverySampleHostTells) {
  const std::vector<Command> commands = {
      {"sql-server", {"plan", "--app", "sql", "--disk", "TSL0001", "TSL0002", "TSL0003"}},
      {"sql-server", {"plan", "--app", "sql", "--for", "sales", "archive"}},
      {"sql-server", {"snapshot", "--app", "sql", "--disk", "TSL0001", "TSL0002", "TSL0003", "--disconnect"}},
      {"sql-server", {"snapshot", "--app", "sql", "--disk", "TSL0001", "TSL0002", "TSL0003", "--writer-code", "2"}},
      {"sql-server-torn", {"snapshot", "--app", "sql", "--disk", "TSL0001", "TSL0002", "TSL0003"}},
      {"sql-server-torn", {"snapshot", "--app", "sql", "--disk", "TSL0002"}},
      {"sql-server-freeze-timeout", {"snapshot", "--app", "sql", "--disk", "TSL0001", "TSL0003"}},
      {"exchange", {"snapshot", "--app", "exchange", "--disk", "TSL1001", "TSL1002", "--verify"}},
      {"exchange-damaged", {"snapshot", "--app", "exchange", "--disk", "TSL1001", "TSL1002", "--verify"}},
      {"exchange-no-utility", {"snapshot", "--app", "exchange", "--disk", "TSL1001", "TSL1002", "--verify"}},
      {"exchange-not-installed", {"snapshot", "--app", "exchange", "--disk", "TSL1001", "TSL1002", "--verify"}},
      {"hyperv-cluster", {"snapshot", "--app", "hyperv", "--disk", "TSL2001", "TSL2002"}},
      {"hyperv-one-of-twenty", {"snapshot", "--app", "hyperv", "--disk", "TSL2001", "TSL2002"}},
      {"hyperv-mixed-volumes", {"snapshot", "--app", "hyperv", "--disk", "TSL2001", "TSL2003"}},
      {"hyperv-missing-hotfix", {"snapshot", "--app", "hyperv", "--disk", "TSL2001"}},
      {"plain", {"snapshot", "--app", "none", "--disk", "TSL0001"}},
  };
  for (const std::string& name : SampleHosts()) {
    SCOPED_TRACE(name);
    fs::remove_all(PathOf(Path("captured")));
    ASSERT_EQ(Captured(Example(name)).status, 0);
    const std::string replay = WithWhatHappens(Example(name));
    for (const char* listing : {"writers", "disks", "providers"}) {
      EXPECT_EQ(Told(Path("captured/host.json"), {listing}), Told(Example(name), {listing}));
    }
    for (const Command& command : commands) {
      if (command.host != name) continue;
      EXPECT_EQ(Told(replay, command.arguments), Told(Example(name), command.arguments));
    }
  }
}

// The checker that a captured host has is found and says that every file is whole.
TEST_F(Capture, RemembersWhetherTheCheckerIsThere) {
  const Arguments verify = {"snapshot", "--app", "exchange", "--disk", "TSL1001", "TSL1002", "--verify"};
  for (const char* name : {"exchange", "exchange-no-utility"}) {
    fs::remove_all(PathOf(Path("captured")));
    ASSERT_EQ(Captured(Example(name)).status, 0);
    EXPECT_THAT(Told(Path("captured/host.json"), verify), StartsWith("0\n")) << name;
  }
}

TEST_F(Capture, LeavesNoNameInAnAnonymousOne) {
  for (const std::string& name : SampleHosts()) {
    SCOPED_TRACE(name);
    fs::remove_all(PathOf(Path("captured")));
    fs::remove(PathOf(Path("captured.key.json")));
    ASSERT_EQ(Captured(Example(name), {"--anonymise"}).status, 0);
    const nlohmann::json key = nlohmann::json::parse(ReadFile(Path("captured.key.json")));
    ASSERT_GT(key["names"].size(), 5u);
    std::set<std::string> replacements;
    for (const auto& [file, text] : FilesIn(PathOf(Path("captured")))) {
      const std::string folded = varnelctl::Folded(text);
      for (const auto& entry : key["names"]) {
        const std::string original = entry["original"];
        EXPECT_FALSE(Holds(folded, varnelctl::Folded(original))) << original << " in " << file;
        // As JSON writes it.
        EXPECT_FALSE(Holds(folded, varnelctl::Folded(nlohmann::json(original).dump()))) << original << " in " << file;
      }
    }
    for (const auto& entry : key["names"]) {
      EXPECT_TRUE(replacements.insert(entry["replacement"]).second) << entry["replacement"];
    }
  }
}

// With the key applied to it, what the host tells is what the anonymous one tells.
TEST_F(Capture, AnswersAnonymouslyAsItWouldByItsNames) {
  ASSERT_EQ(Captured(Example("sql-server"), {"--anonymise"}).status, 0);
  const nlohmann::json key = nlohmann::json::parse(ReadFile(Path("captured.key.json")));
  std::map<std::string, std::string> names;
  for (const auto& entry : key["names"]) names[entry["original"]] = entry["replacement"];
  const std::string told = Told(Path("captured/host.json"), {"plan", "--app", "sql", "--disk", names.at("TSL0001"),
                                                             names.at("TSL0002"), names.at("TSL0003"), "--json"});
  const std::string original =
      Told(Example("sql-server"), {"plan", "--app", "sql", "--disk", "TSL0001", "TSL0002", "TSL0003", "--json"});
  const auto document = [](const std::string& text) { return nlohmann::json::parse(text.substr(text.find('{'))); };
  EXPECT_EQ(document(told)["status"], document(original)["status"]);
  EXPECT_EQ(document(told)["verdict"]["state"], document(original)["verdict"]["state"]);
  EXPECT_EQ(document(told)["writers"].size(), document(original)["writers"].size());
}

TEST_F(Capture, GivesAnOutputOfItsOwnToEveryDisk) {
  ASSERT_EQ(Captured(Example("sql-server"), {"--anonymise"}).status, 0);
  EXPECT_EQ(RunCli({"--host", Path("captured/host.json"), "disks"}).status, 0);
}

TEST_F(Capture, RefusesAFolderWithSomethingInIt) {
  fs::create_directories(PathOf(Path("captured")));
  folder.Write("captured/mine.txt", "mine");
  ExpectRefused(Captured(Example("plain")), "varnelctl: capture " + Path("captured") + ": there is something in this");
  EXPECT_EQ(FilesIn(PathOf(Path("captured"))).size(), 1u);
  ExpectRefused(RunCli({"--host", Example("plain"), "capture", folder.Write("file", "x")}),
                "varnelctl: capture " + Path("file") + ": this is no folder");
  ExpectRefused(RunCli({"--host", Example("plain"), "capture", Path("no/where")}),
                "varnelctl: capture " + Path("no/where") + ": there is no folder " + Path("no"));
}

TEST_F(Capture, RefusesToWriteOverAnEarlierKey) {
  folder.Write("captured.key.json", "{}");
  ExpectRefused(Captured(Example("plain"), {"--anonymise"}),
                "varnelctl: capture: " + Path("captured.key.json") + " is there already");
  EXPECT_FALSE(fs::exists(PathOf(Path("captured"))));
  EXPECT_EQ(Captured(Example("plain")).status, 0);
}

TEST_F(Capture, LeavesNoFolderBehindWhenTheHostCannotBeRead) {
  ExpectRefused(Captured(folder.Write("broken.json", "{")), "varnelctl: ");
  EXPECT_FALSE(fs::exists(PathOf(Path("captured"))));
}

bool IsCom(const std::string& call) {
  return call.find("::") != call.npos || call == "CoCreateInstance" || call == "CreateVssBackupComponents" ||
         call == "CoInitializeSecurity";
}

// Each call in turn answers nothing but a failure: the rest is captured, and the file says what is missing.
TEST_F(Capture, TakesTheHalfOfAHostThatAnswers) {
  Forget();
  ASSERT_EQ(Run({"capture", Path("captured")}).status, 0);
  std::set<std::string> calls;
  for (const std::string& line : host().calls().lines()) calls.insert(line.substr(0, line.find('(')));
  ASSERT_GT(calls.size(), 30u);
  int told = 0;
  for (const std::string& call : calls) {
    SCOPED_TRACE(call);
    fs::remove_all(PathOf(Path("captured")));
    StartOver();
    FailCall(call, IsCom(call) ? static_cast<DWORD>(E_ACCESSDENIED) : DWORD{ERROR_ACCESS_DENIED}, 0);
    const CliResult result = Run({"capture", Path("captured")});
    ASSERT_EQ(result.status, 0) << result.err;
    const std::string file = ReadFile(Path("captured/host.json"));
    EXPECT_EQ(file.starts_with("// What this host did not tell:\n"), result.err.find("warning") != result.err.npos);
    if (file.starts_with("//")) {
      EXPECT_THAT(file,
                  HasSubstr(call.starts_with("MetadataService") ? "did not tell the databases: The metadata service"
                                                                : "E_ACCESSDENIED (0x80070005)"));
      ++told;
    }
    EXPECT_EQ(RunCli({"--host", Path("captured/host.json"), "disks"}).status, 0);
  }
  EXPECT_GT(told, 20);
}

TEST_F(Capture, IsRefusedWithThePlaceWhereItWasCutShort) {
  ASSERT_EQ(Captured(Example("sql-server")).status, 0);
  const std::string whole = ReadFile(Path("captured/host.json"));
  for (std::size_t length = 0; length + 2 < whole.size(); length += 1 + whole.size() / 40) {
    const std::string file = folder.Write("captured/short.json", whole.substr(0, length));
    const CliResult result = RunCli({"--host", file, "disks"});
    EXPECT_EQ(result.status, 2) << length;
    EXPECT_THAT(result.err, HasSubstr("line "));
  }
  const std::string last = nlohmann::json::parse(whole)["writers"].back()["document"];
  fs::remove(PathOf(Path("captured/" + last)));
  const CliResult result = RunCli({"--host", Path("captured/host.json"), "disks"});
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.err, HasSubstr("host.json: /writers/10/document: cannot read \"" + last + "\""));
}

TEST_F(Capture, KeepsADocumentThatNoHostFileCanHold) {
  const std::string odd =
      "<WRITER_METADATA xmlns=\"x-schema:#VssWriterMetadataInfo\" version=\"1.2\"><IDENTIFICATION "
      "writerId=\"00000000-0000-0000-0000-00000000000a\" instanceId=\"00000000-0000-0000-0000-0000000000ab\" "
      "friendlyName=\"Odd\" usage=\"SOMETHING_NEW\" dataSource=\"OTHER\"/></WRITER_METADATA>";
  simulator::Writer writer;
  writer.name = L"Odd";
  writer.document = std::make_shared<const std::string>(odd);
  model().writers.push_back(std::move(writer));
  const CliResult result = Run({"capture", Path("captured")});
  ASSERT_EQ(result.status, 0);
  EXPECT_THAT(result.err, HasSubstr("a writer left out, whose document cannot be read: IDENTIFICATION: usage"));
  bool kept = false;
  for (const auto& [file, text] : FilesIn(PathOf(Path("captured")))) kept = kept || text == odd;
  EXPECT_TRUE(kept);
}

class CaptureOfModel : public Capture {
 protected:
  nlohmann::json CapturedModel() {
    const CliResult result = Run({"capture", Path("captured")});
    EXPECT_EQ(result.status, 0);
    told_ = result.err;
    return nlohmann::json::parse(ReadFile(Path("captured/host.json")), nullptr, true, true);
  }

  // All that an anonymous capture holds.
  std::string AnonymousText(const Arguments& more = {}) {
    Arguments arguments = {"capture", Path("captured"), "--anonymise"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const CliResult result = Run(std::move(arguments));
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(RunCli({"--host", Path("captured/host.json"), "providers"}).status, 0);
    std::string all;
    for (const auto& [file, text] : FilesIn(PathOf(Path("captured")))) all += file + "\n" + text + "\n";
    return all;
  }

  std::string told_;
};

TEST_F(CaptureOfModel, SetsUpSecurityBeforeAnyCallToAnotherProcess) {
  Forget();
  CapturedModel();
  const auto& lines = host().calls().lines();
  const auto isOfCom = [](const std::string& line) { return IsCom(line.substr(0, line.find('('))); };
  const auto first = std::find_if(lines.begin(), lines.end(), isOfCom);
  ASSERT_NE(first, lines.end());
  EXPECT_THAT(*first, StartsWith("CoInitializeSecurity("));
}

TEST_F(CaptureOfModel, LeavesOutAVolumeThatLiesOnNoDiskWithoutAWord) {
  const std::string whole = CapturedModel()["disks"].dump();
  StartOver();
  fs::remove_all(PathOf(Path("captured")));
  FailCall("DeviceIoControl", ERROR_INVALID_FUNCTION, 1);
  Forget();
  const std::string without = CapturedModel()["disks"].dump();
  EXPECT_LT(without.size(), whole.size());
  EXPECT_EQ(told_, "");
}

TEST_F(CaptureOfModel, KeepsASessionWhoseDevicesCannotBeAsked) {
  model().iscsiSessions = {{L"iqn.a", {}}, {L"iqn.b", {}}};
  FailCall("GetDevicesForIScsiSessionW", ERROR_INVALID_PARAMETER, 1);
  EXPECT_EQ(CapturedModel()["iscsiSessions"].size(), 2u);
  EXPECT_THAT(told_, HasSubstr("GetDevicesForIScsiSessionW of iqn.a failed with"));
  EXPECT_THAT(told_, Not(HasSubstr("iqn.b")));
}

TEST_F(CaptureOfModel, TakesAProviderOfOneKindOfCopiesForOneOfEveryVolume) {
  simulator::Provider array{GUID{0xA, 0, 0, {}}, L"Array", VSS_PROV_HARDWARE, L"1.0"};
  array.supports = VSS_VOLSNAP_ATTR_TRANSPORTABLE;
  model().providers = {array};
  bool found = false;
  const nlohmann::json captured = CapturedModel();
  for (const auto& provider : captured["providers"]) {
    if (provider["type"] != "hardware") continue;
    found = true;
    EXPECT_FALSE(provider.contains("unsupportedVolumes")) << provider;
    EXPECT_THAT(provider["supports"].dump(), "[\"transportable\"]");
  }
  EXPECT_TRUE(found);
}

TEST_F(CaptureOfModel, TellsOnceWhyTheDatabasesAreNotKnown) {
  FailCall("MetadataService::FindDatabasesToQuiesce", static_cast<DWORD>(E_FAIL), 0);
  CapturedModel();
  const std::string line = "the array's metadata service did not tell the databases";
  EXPECT_THAT(told_, HasSubstr(line));
  EXPECT_EQ(told_.find(line), told_.rfind(line));
}

TEST_F(CaptureOfModel, TakesAServiceThatIsBeingPausedForPaused) {
  model().services[L"MSExchangeRepl"] = simulator::Service{SERVICE_AUTO_START, 6};  // pause pending
  EXPECT_EQ(CapturedModel()["services"]["MSExchangeRepl"]["state"], "paused");
}

TEST_F(CaptureOfModel, GivesTheKeyToItsUserAlone) {
  AnonymousText();
  EXPECT_TRUE(fs::exists(PathOf(Path("captured.key.json"))));
#ifndef _WIN32
  const fs::perms others = fs::perms::group_all | fs::perms::others_all;
  EXPECT_EQ(fs::status(PathOf(Path("captured.key.json"))).permissions() & others, fs::perms::none);
#endif
}

constexpr char kNamesEverywhere[] =
    "<WRITER_METADATA xmlns=\"x-schema:#VssWriterMetadataInfo\" version=\"1.2\"><IDENTIFICATION "
    "writerId=\"00000000-0000-0000-0000-00000000000a\" instanceId=\"00000000-0000-0000-0000-0000000000ab\" "
    "friendlyName=\"Ledger Writer - ORCL7\" instanceName=\"ORCL7\" usage=\"SYSTEM_SERVICE\" dataSource=\"OTHER\"/>"
    "<RESTORE_METHOD method=\"RESTORE_IF_CAN_BE_REPLACED\" service=\"LedgerSvc$ORCL7\" "
    "userProcedure=\"\\\\fileserver9\\scripts9\\back.cmd\" writerRestore=\"always\" rebootRequired=\"no\"/>"
    "<BACKUP_LOCATIONS><DATABASE logicalPath=\"payroll9\" componentName=\"wages9\" caption=\"Wages9\">"
    "<DATABASE_FILES path=\"%LEDGER9_HOME%\\x9\" filespec=\"*\"/>"
    "<DEPENDENCY writerId=\"00000000-0000-0000-0000-00000000000c\" logicalPath=\"other9\" componentName=\"far9\"/>"
    "</DATABASE></BACKUP_LOCATIONS></WRITER_METADATA>";

TEST_F(CaptureOfModel, FindsNamesWhereverAWriterHasThem) {
  model().writers.push_back(simulator::ReadWriterDocument(kNamesEverywhere));
  model().environment[L"LEDGER9_HOME"] = L"E:\\home9";
  const std::string all = varnelctl::Folded(AnonymousText());
  EXPECT_THAT(all, HasSubstr("ledger writer - "));
  for (const char* name : {"orcl7", "ledgersvc", "fileserver9", "scripts9", "payroll9", "wages9", "ledger9_home", "x9",
                           "home9", "other9", "far9"}) {
    EXPECT_FALSE(Holds(all, name)) << name;
  }
}

TEST_F(CaptureOfModel, HasNoDocumentInAnAnonymousOneWhoseNamesAreNotKnown) {
  simulator::Writer writer;
  writer.name = L"Odd";
  writer.document = std::make_shared<const std::string>("<WRITER_METADATA secret9=\"secret9\"/>");
  model().writers.push_back(std::move(writer));
  const std::string all = AnonymousText();
  EXPECT_THAT(all, Not(HasSubstr("secret9")));
  EXPECT_THAT(all, HasSubstr("are not in an anonymous capture"));
}

TEST_F(CaptureOfModel, ReplacesTheIdentifierOfAVolumeThatWasLeftOut) {
  FailCall("DeviceIoControl", ERROR_ACCESS_DENIED, 1);
  const std::string all = AnonymousText();
  EXPECT_THAT(all, HasSubstr("left out: its disk is not known"));
  for (const auto& disk : model().disks) {
    for (const auto& volume : disk.volumes) {
      EXPECT_THAT(varnelctl::Folded(all), Not(HasSubstr(varnelctl::Folded(WideToUtf8Lossy(volume.name)))));
    }
  }
}

// ---- of the evidence of a run ----

// What a run came to, without the identifiers of its sets.
std::string Outcome(const CliResult& result) {
  static const std::regex identifier("\\{[0-9a-f]{8}-[0-9a-f-]{27}\\}");
  return std::to_string(result.status) + "\n" + std::regex_replace(result.err, identifier, "{...}");
}

class CaptureOfEvidence : public Capture {
 protected:
  // The failure of a run on this host, and that of the same run on the host made of its evidence.
  void ExpectSameFailure(const std::string& host, const Arguments& command) {
    for (const char* old : {"evidence", "captured"}) fs::remove_all(PathOf(Path(old)));
    Arguments arguments = {"--host", host};
    arguments.insert(arguments.end(), command.begin(), command.end());
    Arguments withEvidence = arguments;
    withEvidence.insert(withEvidence.end(), {"--evidence", Path("evidence")});
    const CliResult failed = RunCli(withEvidence);
    EXPECT_NE(failed.status, 0);
    const CliResult made = RunCli({"capture", "--from", Path("evidence"), Path("captured")});
    ASSERT_EQ(made.status, 0) << made.err;
    arguments[1] = Path("captured/host.json");
    EXPECT_EQ(Outcome(RunCli(arguments)), Outcome(failed));
  }

  std::string WithFault(const std::string& name, const nlohmann::json& fault) {
    nlohmann::json host = nlohmann::json::parse(ReadFile(Example(name)), nullptr, true, true);
    host["faults"] = nlohmann::json::array({fault});
    return folder.Write("faulty.json", host.dump());
  }
};

TEST_F(CaptureOfEvidence, FailsAsTheFailingSamplesDo) {
  const std::vector<Command> failing = {
      {"sql-server-freeze-timeout", {"snapshot", "--app", "sql", "--disk", "TSL0001", "TSL0003"}},
      {"sql-server-torn", {"snapshot", "--app", "sql", "--disk", "TSL0002"}},
      {"exchange", {"snapshot", "--app", "exchange", "--disk", "TSL1001"}},
      {"exchange-damaged", {"snapshot", "--app", "exchange", "--disk", "TSL1001", "TSL1002", "--verify"}},
      {"exchange-not-installed", {"snapshot", "--app", "exchange", "--disk", "TSL1001", "TSL1002", "--verify"}},
      {"hyperv-missing-hotfix", {"snapshot", "--app", "hyperv", "--disk", "TSL2901"}},
      {"hyperv-mixed-volumes", {"snapshot", "--app", "hyperv", "--disk", "TSL2001", "TSL2003"}},
      {"hyperv-one-of-twenty", {"snapshot", "--app", "hyperv", "--disk", "TSL2001", "TSL2002"}},
  };
  for (const Command& command : failing) {
    SCOPED_TRACE(command.host);
    ExpectSameFailure(Example(command.host), command.arguments);
  }
}

TEST_F(CaptureOfEvidence, FailsInTheSameCallOperationAndWriter) {
  const Arguments sql = {"snapshot", "--app", "sql", "--disk", "TSL0001", "TSL0002", "TSL0003"};
  for (const nlohmann::json& fault : std::vector<nlohmann::json>{
           {{"call", "IVssBackupComponents::AddToSnapshotSet"}, {"occurrence", 2}, {"result", "VSS_E_PROVIDER_VETO"}},
           {{"async", "DoSnapshotSet"}, {"result", "VSS_E_HOLD_WRITES_TIMEOUT"}},
           {{"async", "GatherWriterMetadata"}, {"result", "E_OUTOFMEMORY"}},
           {{"writer", "SqlServerWriter"},
            {"event", "postSnapshot"},
            {"failure", "VSS_E_WRITERERROR_RETRYABLE"},
            {"applicationResult", "0x80040e14"},
            {"applicationMessage", "log full"}}}) {
    SCOPED_TRACE(fault.dump());
    ExpectSameFailure(WithFault("sql-server", fault), sql);
  }
}

TEST_F(CaptureOfEvidence, AsksNoHost) {
  ASSERT_NE(RunCli({"--host", Example("sql-server-torn"), "snapshot", "--app", "sql", "--disk", "TSL0002", "--evidence",
                    Path("evidence")})
                .status,
            0);
  Forget();
  ASSERT_EQ(Run({"capture", "--from", Path("evidence"), Path("captured"), "--anonymise"}).status, 0);
  EXPECT_THAT(host().calls().lines(), IsEmpty());
  EXPECT_THAT(ReadFile(Path("captured/host.json")), Not(HasSubstr("TSL0002")));
}

TEST_F(CaptureOfEvidence, LoadsWithoutNamesWithItsFaults) {
  ASSERT_NE(RunCli({"--host", Example("hyperv-one-of-twenty"), "snapshot", "--app", "hyperv", "--disk", "TSL2001",
                    "TSL2002", "--evidence", Path("evidence")})
                .status,
            0);
  const CliResult made = RunCli({"capture", "--from", Path("evidence"), Path("captured"), "--anonymise"});
  ASSERT_EQ(made.status, 0) << made.err;
  const CliResult loaded = RunCli({"--host", Path("captured/host.json"), "disks"});
  EXPECT_EQ(loaded.status, 0) << loaded.err;
  const std::string file = varnelctl::Folded(ReadFile(Path("captured/host.json")));
  EXPECT_THAT(file, HasSubstr("fullpath"));
  const nlohmann::json key = nlohmann::json::parse(ReadFile(Path("captured.key.json")));
  for (const auto& entry : key.at("names")) {
    EXPECT_FALSE(Holds(file, varnelctl::Folded(entry["original"].get<std::string>()))) << entry;
  }
}

TEST_F(CaptureOfEvidence, TakesARunOfAHostWithoutANameAndTellsOfAVolumeWithoutADisk) {
  ASSERT_NE(RunCli({"--host", Example("sql-server-torn"), "snapshot", "--app", "sql", "--disk", "TSL0002", "--evidence",
                    Path("evidence")})
                .status,
            0);
  nlohmann::json run = nlohmann::json::parse(ReadFile(Path("evidence/run.json")));
  run["header"]["host"] = nullptr;
  folder.Write("evidence/run.json", run.dump());
  nlohmann::json disks = nlohmann::json::parse(ReadFile(Path("evidence/disks.json")));
  disks["volumesOnSeveralDisks"].push_back(
      {{"name", "\\\\?\\Volume{1}\\"}, {"mountPoints", nlohmann::json::array()}, {"severalDisks", {77, 78}}});
  folder.Write("evidence/disks.json", disks.dump());
  const CliResult made = RunCli({"capture", "--from", Path("evidence"), Path("captured")});
  EXPECT_EQ(made.status, 0);
  EXPECT_THAT(made.err, HasSubstr("Volume{1}\\ left out: its disk is not known"));
}

TEST_F(CaptureOfEvidence, RefusesWhatIsNoEvidenceWithThePlace) {
  const auto refused = [&](const std::string& end) {
    ExpectRefused(RunCli({"capture", "--from", Path("evidence"), Path("captured")}), "varnelctl: ", end);
    EXPECT_FALSE(fs::exists(PathOf(Path("captured"))));
  };
  refused("there is no such folder\n");
  fs::create_directories(PathOf(Path("evidence")));
  refused("there is no run.json in it: this is no evidence of a run\n");
  ASSERT_NE(RunCli({"--host", Example("sql-server-torn"), "snapshot", "--app", "sql", "--disk", "TSL0002", "--evidence",
                    Path("evidence")})
                .status,
            0);
  const std::string disks = ReadFile(Path("evidence/disks.json"));
  for (const std::string& broken : {disks.substr(0, disks.size() / 2), std::string("{}"), std::string("[1]")}) {
    folder.Write("evidence/disks.json", broken);
    ExpectRefused(RunCli({"capture", "--from", Path("evidence"), Path("captured")}),
                  "varnelctl: --from " + Path("evidence") + ": disks.json: ");
  }
  fs::remove(PathOf(Path("evidence/disks.json")));
  refused("there is no disks.json in it, and no host without disks\n");
}

}  // namespace
}  // namespace varnel::test
