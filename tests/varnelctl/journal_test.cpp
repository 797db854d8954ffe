// What is remembered of requests: the journal's files, and when a request writes them.
#include "varnelctl/sets/journal.h"

#include <array>
#include <map>

#include "tests/faults/killed_request.h"
#include "tests/varnelctl/snapshot_support.h"
#include "text/guid.h"
#include "varnelctl/sets/journal_document.h"

#ifndef _WIN32
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#endif

namespace varnel::test {
namespace {

using nlohmann::json;
using testing::AllOf;
using varnelctl::Journal;
using varnelctl::JournalEnd;
using varnelctl::JournalEntry;
using varnelctl::JournalError;
using varnelctl::JournalStage;

constexpr wchar_t kSet[] = L"{5f1c0a20-7d1e-4c55-9a60-1b2c3d4e5f00}";

class JournalFolder : public SnapshotFixture {
 protected:
  static JournalEntry Entry() {
    JournalEntry entry;
    entry.host = "HOST";
    entry.process = varnelctl::ThisProcess();
    entry.start = "2026-11-20T18:52:44.123Z";
    entry.commandLine = {"snapshot", "--app", "sql", "\"ü\""};
    entry.application = "sql";
    entry.disks = {"TSL0001", "TSL 2"};
    entry.context = 9;
    entry.stage = JournalStage::Ended;
    entry.end = JournalEnd::Kept;
    entry.setId = kSet;
    entry.disconnected = true;
    entry.copies = {{kSet, L"\\\\?\\Volume{1}\\", L"E:\\", L"TSL0001", L"\\\\?\\GLOBALROOT\\1\\",
                     L"\\\\.\\PhysicalDrive5", L"SHADOW-TSL0001"}};
    entry.sessions = {{L"iqn.2007-11.example:data", "ffff-1", {L"SHADOW-TSL0001"}}};
    return entry;
  }
  /// An entry's text, changed.
  static std::string Text(const json& changes) {
    json document = json::parse(varnelctl::FormatJournalEntry(Entry()));
    document.merge_patch(changes);
    return document.dump();
  }
  std::string Write(const std::string& name, const std::string& text) const {
    std::filesystem::create_directories(journal.folder());
    return folder.Write("sets/" + name, text);
  }
  /// Why the only file there is no entry. It stays as it is.
  std::string FaultOf(const std::string& text) const {
    const std::string file = Write("one.json", text);
    const Journal::Content content = journal.Read();
    EXPECT_THAT(content.entries, IsEmpty());
    EXPECT_THAT(content.faults, SizeIs(1));
    EXPECT_EQ(ReadFile(file), text);
    return content.faults.empty() ? std::string() : content.faults[0].reason;
  }
  std::vector<std::string> FileNames() const {
    std::vector<std::string> names;
    for (const auto& file : std::filesystem::directory_iterator(journal.folder())) {
      names.push_back(file.path().filename().string());
    }
    return names;
  }

  const Journal journal{PathOf(folder.File("sets"))};
};

TEST_F(JournalFolder, WhatIsWrittenIsReadAndIsAsTheSchemaSays) {
  JournalEntry entry = Entry();
  journal.Write(entry);
  EXPECT_EQ(entry.file.filename().string(), "20261120T185244.123Z-" + std::to_string(entry.process.id) + ".json");
  EXPECT_THAT(JournalSchemaErrors(json::parse(ReadFile(folder.File("sets/" + entry.file.filename().string())))),
              IsEmpty());
  const Journal::Content content = journal.Read();
  EXPECT_THAT(content.faults, IsEmpty());
  ASSERT_THAT(content.entries, SizeIs(1));
  EXPECT_EQ(content.entries[0].file, entry.file);
  EXPECT_EQ(varnelctl::FormatJournalEntry(content.entries[0]), varnelctl::FormatJournalEntry(entry));
  EXPECT_THAT(FileNames(), SizeIs(1));  // nothing beside it
}

TEST_F(JournalFolder, IsEmptyWhereThereIsNone) {
  const Journal::Content content = journal.Read();
  EXPECT_THAT(content.entries, IsEmpty());
  EXPECT_THAT(content.faults, IsEmpty());
  EXPECT_FALSE(std::filesystem::exists(journal.folder()));
}

TEST_F(JournalFolder, RequestsOfOneMomentHaveFilesOfTheirOwnAndAreReadInTheirOrder) {
  JournalEntry later = Entry();
  later.start = "2026-11-21T00:00:00.000Z";
  journal.Write(later);
  JournalEntry first = Entry();
  JournalEntry second = Entry();
  second.application = "none";
  journal.Write(first);
  journal.Write(second);
  EXPECT_NE(first.file, second.file);
  std::vector<std::string> applications;
  for (const JournalEntry& entry : journal.Read().entries) applications.push_back(entry.start + entry.application);
  EXPECT_THAT(applications, ElementsAre("2026-11-20T18:52:44.123Znone", "2026-11-20T18:52:44.123Zsql",
                                        "2026-11-21T00:00:00.000Zsql"));
}

TEST_F(JournalFolder, AFileThatIsNoEntryIsNamedWithItsReasonAndLeft) {
  const std::string whole = Text({});
  EXPECT_THAT(FaultOf(whole.substr(0, whole.size() / 2)), HasSubstr("line 1, column"));
  EXPECT_THAT(FaultOf(""), HasSubstr("line 1, column"));
  EXPECT_EQ(FaultOf("{}"), "has no version: it is no entry of a journal");
  EXPECT_EQ(FaultOf(Text({{"version", 2}})), "/version: is version 2, and this varnelctl reads version 1");
  EXPECT_EQ(FaultOf(Text({{"host", "OTHER"}})), "it is of the host \"OTHER\", and this one is \"HOST\"");
  EXPECT_THAT(FaultOf(Text({{"stage", "takn"}})), HasSubstr("/stage: \"takn\" is none of begun, started"));
  EXPECT_THAT(FaultOf(Text({{"stage", "taken"}})), HasSubstr("\"end\" stands with the stage \"ended\""));
  EXPECT_THAT(FaultOf(Text({{"setId", ""}})), HasSubstr("there is no setId"));
  EXPECT_THAT(FaultOf(Text({{"setId", "{5f1c"}})), StartsWith("/setId: "));
  EXPECT_THAT(FaultOf(Text({{"surprise", 1}})), HasSubstr("surprise"));
  EXPECT_THAT(FaultOf(Text({{"context", nullptr}})), HasSubstr("context"));  // taken away
  EXPECT_THAT(FaultOf(Text({{"process", {{"start", "7x"}}}})), "/process/start: \"7x\" is no number");
  EXPECT_THAT(FaultOf(whole + std::string(std::size_t{2} << 20, ' ')), Not(IsEmpty()));
}

TEST_F(JournalFolder, OtherFilesOfTheFolderAreNotItsBusiness) {
  Write("20261120T185244.123Z-1.json.new", "{");
  Write("readme.txt", "");
  EXPECT_THAT(journal.Read().faults, IsEmpty());
}

TEST_F(JournalFolder, AFolderInAFilesPlaceIsNamedAndNotFollowed) {
  std::filesystem::create_directories(journal.folder() / "a.json");
  EXPECT_THAT(journal.Read().faults, SizeIs(1));
}

TEST_F(JournalFolder, WhatIsOverGoesWithTheNextRequestOnceItsProcessIsGone) {
  const auto write = [&](JournalEnd end, bool runs) {
    JournalEntry entry = Entry();
    entry.end = end;
    if (!runs) ++entry.process.start;
    journal.Write(entry);
    return entry.file;
  };
  std::vector<std::filesystem::path> stay;
  std::vector<std::filesystem::path> go;
  for (const JournalEnd end : {JournalEnd::Nothing, JournalEnd::Released, JournalEnd::Deleted}) {
    stay.push_back(write(end, true));
    go.push_back(write(end, false));
  }
  for (const JournalEnd end : {JournalEnd::Kept, JournalEnd::Broken, JournalEnd::Masked, JournalEnd::ToBeEnded}) {
    stay.push_back(write(end, false));
  }
  const std::string fault = Write("fault.json", "{");
  journal.Tidy();
  for (const auto& file : go) EXPECT_FALSE(std::filesystem::exists(file)) << file;
  for (const auto& file : stay) EXPECT_TRUE(std::filesystem::exists(file)) << file;
  EXPECT_TRUE(std::filesystem::exists(PathOf(fault)));
}

TEST(ProcessIdentities, AreThoseOfAProcessAndOfNoLaterOneWithItsNumber) {
  const varnelctl::ProcessIdentity self = varnelctl::ThisProcess();
  EXPECT_NE(self.id, 0u);
  EXPECT_NE(self.start, 0u);
  EXPECT_TRUE(varnelctl::IsRunning(self));
  EXPECT_FALSE(varnelctl::IsRunning({self.id, self.start + 1}));
  EXPECT_FALSE(varnelctl::IsRunning({0, 0}));
  EXPECT_FALSE(varnelctl::IsRunning({0x7FFFFFF0, self.start}));
}

#ifndef _WIN32

TEST_F(JournalFolder, IsForItsUserAlone) {
  JournalEntry entry = Entry();
  journal.Write(entry);
  struct stat status {};
  ASSERT_EQ(::stat(journal.folder().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777u, 0700u);
  ASSERT_EQ(::stat(entry.file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777u, 0600u);
}

TEST_F(JournalFolder, LinksAreNotFollowed) {
  JournalEntry entry = Entry();
  const Journal elsewhere(PathOf(folder.File("elsewhere")));
  elsewhere.Write(entry);
  std::filesystem::create_directories(journal.folder());
  std::filesystem::create_symlink(entry.file, journal.folder() / "link.json");
  EXPECT_THAT(journal.Read().entries, IsEmpty());
  EXPECT_THAT(journal.Read().faults, SizeIs(1));
}

TEST_F(JournalFolder, AnotherUsersFileIsNotFollowed) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root gives files away";
  JournalEntry entry = Entry();
  journal.Write(entry);
  ASSERT_EQ(::chown(entry.file.c_str(), 12345, 12345), 0);
  EXPECT_THAT(journal.Read().entries, IsEmpty());
  ASSERT_EQ(::chown(journal.folder().c_str(), 12345, 12345), 0);
  JournalEntry other = Entry();
  EXPECT_THROW(journal.Write(other), JournalError);
}

TEST(ProcessIdentities, AProcessThatHasEndedIsGoneBeforeItsParentAsks) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(0);
  siginfo_t info{};
  ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT), 0);
  EXPECT_FALSE(varnelctl::IsRunning({static_cast<std::uint32_t>(child), 0}));
  ASSERT_EQ(::waitpid(child, nullptr, 0), child);
}

TEST_F(JournalFolder, AnotherUsersLinkIsNotFollowed) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root gives files away";
  std::filesystem::create_directories(PathOf(folder.File("elsewhere")));
  std::filesystem::create_directory_symlink("elsewhere", journal.folder());
  JournalEntry entry = Entry();
  journal.Write(entry);
  ASSERT_EQ(::lchown(journal.folder().c_str(), 12345, 12345), 0);
  JournalEntry other = Entry();
  EXPECT_THROW(journal.Write(other), JournalError);
}

// A clean-up may write an entry while another one does.
TEST_F(JournalFolder, ProcessesThatWriteOneEntryDoNotDisturbEachOther) {
  JournalEntry entry = Entry();
  journal.Write(entry);
  const pid_t child = ::fork();
  if (child == 0) {
    for (;;) journal.Write(entry);
  }
  constexpr int kTimes = 500;
  std::string failure;
  try {
    for (int i = 0; i < kTimes; ++i) journal.Write(entry);
  } catch (const JournalError& error) {
    failure = error.what();
  }
  ::kill(child, SIGKILL);
  ASSERT_EQ(::waitpid(child, nullptr, 0), child);
  EXPECT_EQ(failure, "");
  EXPECT_THAT(journal.Read().entries, SizeIs(1));
}

// It keeps its set and ends while the journal is read.
TEST_F(JournalFolder, TheLastWordOfAProcessThatEndsMeanwhileIsRead) {
  constexpr int kProcesses = 40;
  JournalEntry entry = Entry();
  for (int i = 0; i < kProcesses; ++i) {
    std::array<int, 2> ready{};
    ASSERT_EQ(::pipe(ready.data()), 0);
    const pid_t child = ::fork();
    if (child == 0) {
      entry.process = varnelctl::ThisProcess();
      entry.stage = JournalStage::Completed;
      entry.end.reset();
      journal.Write(entry);
      [[maybe_unused]] const auto told = ::write(ready[1], "", 1);
      entry.stage = JournalStage::Ended;
      entry.end = JournalEnd::Kept;
      journal.Write(entry);
      ::_exit(0);
    }
    char any = 0;
    ASSERT_EQ(::read(ready[0], &any, 1), 1);
    for (bool runs = true; runs;) {
      const Journal::Content content = journal.Read();
      ASSERT_THAT(content.entries, SizeIs(1));
      runs = content.entries[0].isRunning;
      if (!runs) ASSERT_FALSE(content.entries[0].IsLeftover());
    }
    ASSERT_EQ(::waitpid(child, nullptr, 0), child);
    for (const int end : ready) ::close(end);
    std::filesystem::remove_all(journal.folder());
  }
}

TEST_F(JournalFolder, AFileThatGoesWhileTheJournalIsReadIsNoFault) {
  JournalEntry entry = Entry();
  journal.Write(entry);
  const std::filesystem::path away = PathOf(folder.File("away"));
  const pid_t child = ::fork();
  if (child == 0) {
    for (;;) {
      ::rename(entry.file.c_str(), away.c_str());
      ::rename(away.c_str(), entry.file.c_str());
    }
  }
  constexpr int kTimes = 2000;
  std::size_t read = 0;
  std::vector<varnelctl::JournalFault> faults;
  for (int i = 0; i < kTimes && faults.empty(); ++i) {
    Journal::Content content = journal.Read();
    read += content.entries.size();
    faults = std::move(content.faults);
  }
  ::kill(child, SIGKILL);
  ASSERT_EQ(::waitpid(child, nullptr, 0), child);
  EXPECT_NE(read, 0u);
  EXPECT_THAT(faults, IsEmpty());
}

TEST(JournalFolders, AreWhereTheXdgDirectoriesSay) {
  const char* const before = std::getenv("XDG_STATE_HOME");
  const std::string kept = before == nullptr ? "" : before;
  ::setenv("XDG_STATE_HOME", "/srv/state", 1);
  EXPECT_EQ(varnelctl::DefaultJournalFolder(), "/srv/state/varnel/sets");
  ::setenv("XDG_STATE_HOME", "relative", 1);
  EXPECT_THAT(varnelctl::DefaultJournalFolder().string(), EndsWith("/.local/state/varnel/sets"));
  before == nullptr ? ::unsetenv("XDG_STATE_HOME") : ::setenv("XDG_STATE_HOME", kept.c_str(), 1);
}

#else

TEST(JournalFolders, AreInTheProgramData) {
  EXPECT_THAT(varnelctl::DefaultJournalFolder().wstring(), testing::EndsWith(L"\\varnel\\sets"));
}

#endif

// Requests on a host with persistent copies.
class JournalledRequest : public JournalFolder {
 protected:
  void SetUp() override { Restart("kept"); }
  void Restart(const char* scenario) { Install(KilledHost(scenario)); }

  Arguments Journalled(Arguments arguments) const {
    arguments.insert(arguments.end(), {"--context", "app-rollback", "--journal", folder.File("sets")});
    return arguments;
  }
  /// The only entry that stands there; null for none.
  json EntryNow() const {
    json entry;
    if (!std::filesystem::exists(journal.folder())) return entry;
    for (const auto& file : std::filesystem::directory_iterator(journal.folder())) {
      if (file.path().extension() == ".json") entry = json::parse(ReadFile(file.path().string()));
    }
    return entry;
  }
  /// Puts a file in the folder's place after this call of the service, and collects the calls.
  void LoseTheJournalAfter(const std::string& call) {
    host().calls().SendTo([this, start = "IVssBackupComponents::" + call + "("](const std::string& line) {
      calls_.push_back(line);
      if (!line.starts_with(start)) return;
      std::filesystem::remove_all(journal.folder());
      folder.Write("sets", "");
    });
  }
  /// The stage that stood in the journal when the service was called: "DoSnapshotSet" -> "takingSnapshot".
  std::map<std::string, std::string> StagesOf(const Arguments& arguments) {
    std::map<std::string, std::string> stages;
    host().calls().SendTo([&](const std::string& line) {
      const std::string prefix = "IVssBackupComponents::";
      if (!line.starts_with(prefix) && !line.starts_with("IVssBackupComponentsEx2::")) return;
      const std::string call = line.substr(line.find("::") + 2, line.find('(') - line.find("::") - 2);
      const json entry = EntryNow();
      stages.try_emplace(call, entry.is_null() ? "" : entry.at("stage").get<std::string>());
    });
    Snapshot(Journalled(arguments));
    host().calls().SendTo({});
    return stages;
  }

  std::vector<std::string> calls_;
};

TEST_F(JournalledRequest, IsRememberedBeforeEachOfItsSteps) {
  std::map<std::string, std::string> stages = StagesOf({"--then", "break"});
  EXPECT_EQ(stages["GatherWriterMetadata"], "begun");
  EXPECT_EQ(stages["StartSnapshotSet"], "begun");
  EXPECT_EQ(stages["AddToSnapshotSet"], "started");
  EXPECT_EQ(stages["PrepareForBackup"], "started");
  EXPECT_EQ(stages["DoSnapshotSet"], "takingSnapshot");
  EXPECT_EQ(stages["BackupComplete"], "taken");
  EXPECT_EQ(stages["BreakSnapshotSet"], "breaking");
  const json entry = EntryNow();
  EXPECT_EQ(entry.at("stage"), "ended");
  EXPECT_EQ(entry.at("end"), "broken");
}

TEST_F(JournalledRequest, IsRememberedWithItsCopiesDisksAndSessions) {
  const json document = SnapshotJson(Journalled({}));
  const json entry = EntryNow();
  EXPECT_THAT(JournalSchemaErrors(entry), IsEmpty());
  EXPECT_EQ(entry.at("end"), "kept");
  EXPECT_EQ(entry.at("setId"), document.at("snapshotSetId"));
  EXPECT_EQ(entry.at("application"), "none");
  EXPECT_EQ(entry.at("disks"), json::parse(R"(["TSL0001","TSL0002"])"));
  EXPECT_EQ(entry.at("context"), VSS_CTX_APP_ROLLBACK);
  EXPECT_EQ(entry.at("commandLine")[0], "snapshot");
  EXPECT_EQ(entry.at("disconnected"), false);
  ASSERT_THAT(entry.at("copies"), SizeIs(2));
  const json& copy = entry.at("copies")[0];
  EXPECT_EQ(copy.at("snapshotId"), document.at("snapshots")[0].at("snapshotId"));
  EXPECT_EQ(copy.at("mountPoint"), "E:\\");
  EXPECT_EQ(copy.at("sourceDisk"), "TSL0001");
  EXPECT_EQ(copy.at("serialNumber"), document.at("snapshots")[0].at("serialNumber"));
  EXPECT_EQ(copy.at("disk"), document.at("snapshots")[0].at("disk"));
  ASSERT_THAT(entry.at("sessions"), SizeIs(1));
  EXPECT_EQ(entry.at("sessions")[0].at("targetName"), "iqn.2007-11.example:shadow");
  EXPECT_EQ(entry.at("sessions")[0].at("disks"), json::array({copy.at("serialNumber")}));
}

TEST_F(JournalledRequest, SaysAtItsEndWhatTheSetIs) {
  const auto endAfter = [&](const Arguments& arguments) {
    std::filesystem::remove_all(journal.folder());
    Restart("kept");
    Snapshot(Journalled(arguments));
    return EntryNow().at("end");
  };
  EXPECT_EQ(endAfter({}), "kept");
  EXPECT_EQ(endAfter({"--then", "break"}), "broken");
  EXPECT_EQ(endAfter({"--then", "mask"}), "masked");
  EXPECT_EQ(endAfter({"--then", "delete"}), "deleted");
  std::filesystem::remove_all(journal.folder());
  Restart("plain");
  Snapshot({"--journal", folder.File("sets")});
  EXPECT_EQ(EntryNow().at("end"), "released");
}

TEST_F(JournalledRequest, ThatTakesNothingLeavesNoEntry) {
  FailCall("IVssBackupComponents::StartSnapshotSet", VSS_E_UNEXPECTED);
  Snapshot(Journalled({}), 15);
  EXPECT_THAT(FileNames(), IsEmpty());
  Snapshot(Journalled({"--disk", "NONE"}), 2);
  EXPECT_THAT(FileNames(), IsEmpty());
  FailCall("IVssBackupComponents::AddToSnapshotSet", VSS_E_UNEXPECTED);
  Snapshot(Journalled({}), 15);
  EXPECT_THAT(FileNames(), IsEmpty());
}

TEST_F(JournalledRequest, WhoseSetCouldNotBeDeletedIsToBeEnded) {
  FailCall("IVssBackupComponents::DeleteSnapshots", VSS_E_PROVIDER_VETO, 0);
  Snapshot(Journalled({"--test-points", "1"}), 15);
  const json entry = EntryNow();
  EXPECT_EQ(entry.at("stage"), "ended");
  EXPECT_EQ(entry.at("end"), "toBeEnded");
}

TEST_F(JournalledRequest, TellsAtItsStartWhatEarlierOnesLeft) {
  JournalEntry entry = Entry();
  entry.stage = JournalStage::Taken;
  entry.end.reset();
  ++entry.process.start;
  journal.Write(entry);
  Write("fault.json", "{");
  EXPECT_THAT(Snapshot(Journalled({})).err,
              AllOf(StartsWith("varnelctl: warning: 1 earlier request may have left sets behind: "),
                    HasSubstr("varnelctl: warning: 1 file of the journal cannot be read and may remember a set: ")));
}

TEST_F(JournalledRequest, MakesNoFurtherCallOfTheService) {
  const auto calls = [&](const Arguments& arguments) {
    Restart("kept");
    Snapshot(arguments);
    std::vector<std::string> lines;
    for (const std::string& line : host().calls().lines()) {
      if (line.starts_with("IVss") || line.starts_with("CreateVss")) lines.push_back(line);
    }
    return lines;
  };
  EXPECT_EQ(calls(Journalled({})), calls({"--context", "app-rollback"}));
}

TEST_F(JournalledRequest, DoesNotStartWithoutAJournal) {
  const std::string file = folder.Write("sets", "no folder");
  const CliResult result = Run(Whole(Journalled({})));
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.err, AllOf(StartsWith("varnelctl: the journal " + file + " "), HasSubstr("cannot be ")));
  EXPECT_THAT(result.next, HasSubstr("varnelctl explain journal"));
  EXPECT_THAT(Calls("CreateVssBackupComponents"), IsEmpty());
  EXPECT_EQ(ReadFile(file), "no folder");
  Snapshot({"--no-journal"});
}

// What is not remembered is not begun.
TEST_F(JournalledRequest, TakesNoSnapshotThatItCannotRemember) {
  LoseTheJournalAfter("PrepareForBackup");
  const CliResult result = Run(Whole(Journalled({})));
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.err, HasSubstr(" cannot be written: "));
  EXPECT_THAT(calls_, Not(Contains(HasSubstr("DoSnapshotSet"))));
  EXPECT_THAT(calls_, Contains(HasSubstr("AbortBackup")));
}

// The set is there, and clean-up would take it for one that nobody wants.
TEST_F(JournalledRequest, SaysWhatItCouldNotRememberOfASetThatIsThere) {
  LoseTheJournalAfter("BackupComplete");
  const CliResult result = Run(Whole(Journalled({})));
  EXPECT_EQ(result.status, 18);
  EXPECT_THAT(result.err, AllOf(HasSubstr("what became of snapshot set {"), HasSubstr("varnelctl sets clean-up"),
                                HasSubstr("cannot be written: ")));
  EXPECT_THAT(result.out, HasSubstr("CAPTURED"));
}

TEST_F(JournalledRequest, LeavesOutWhatItCannotRemember) {
  LoseTheJournalAfter("BackupComplete");
  const CliResult result = Run(Whole(Journalled({"--then", "break", "--disconnect"})));
  EXPECT_EQ(result.status, 18);
  EXPECT_THAT(result.err, AllOf(HasSubstr("--then break is left out: the journal cannot be written"),
                                HasSubstr("--disconnect is left out: the journal cannot be written")));
  EXPECT_THAT(calls_, Not(Contains(HasSubstr("BreakSnapshotSet"))));
}

// A set of which the sessions are open is one that this host sees.
TEST_F(JournalledRequest, SaysWhetherItsSessionsWereEnded) {
  const auto disconnected = [&](const Arguments& arguments, int status) {
    std::filesystem::remove_all(journal.folder());
    Snapshot(Journalled(arguments), status);
    return EntryNow().at("disconnected");
  };
  EXPECT_EQ(disconnected({"--disconnect"}, 0), true);
  Restart("kept");
  FailCall("IVssBackupComponents::BreakSnapshotSet", VSS_E_PROVIDER_VETO);
  EXPECT_EQ(disconnected({"--then", "break", "--disconnect"}, 18), false) << "the disconnection was left out";
}

TEST_F(JournalledRequest, HasItsJournalBesideTheStateOfASimulatedHostAndNoneWithoutAState) {
  hostFile = SmallHostJson();
  Snapshot({"--context", "app-rollback", "--state", folder.File("host.state")});
  const Journal beside(PathOf(folder.File("host.state.sets")));
  std::filesystem::path file;
  for (const auto& entry : std::filesystem::directory_iterator(beside.folder())) file = entry.path();
  EXPECT_EQ(json::parse(ReadFile(file.string())).at("end"), "kept");
  Snapshot({"--context", "app-rollback", "--state", folder.File("other.state"), "--no-journal"});
  EXPECT_FALSE(std::filesystem::exists(PathOf(folder.File("other.state.sets"))));
  Snapshot({"--context", "app-rollback"});
  ExpectRefused(Run(Whole({"--journal", "x", "--no-journal"})), "varnelctl: --journal excludes --no-journal");
}

}  // namespace
}  // namespace varnel::test
