// Where the evidence of a run goes, and what it does not.
#include "tests/support/host_fixture.h"
#include "tests/varnelctl/evidence_support.h"
#include "tests/varnelctl/started_program.h"
#include "varnelctl/evidence/collectors.h"
#include "varnelctl/evidence/kept_log.h"
#include "varnelctl/evidence/run_evidence.h"

namespace varnel::test {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

class EvidenceFolder : public EvidenceFixture {
 protected:
  void ExpectNothingDone(const Arguments& arguments, const std::string& reason) {
    const std::string calls = folder.File("calls.txt");
    Arguments whole = Whole(arguments);
    whole.insert(whole.end(), {"--calls", calls});
    ExpectRefused(Run(whole), reason);
    EXPECT_EQ(ReadFile(calls), "");
  }
};

TEST_F(EvidenceFolder, WithSomethingInItIsNotOverwritten) {
  std::filesystem::create_directory(PathOf(evidence));
  std::ofstream(PathOf(evidence + "/mine.txt")) << "mine";

  ExpectNothingDone({"--evidence", evidence},
                    "varnelctl: --evidence " + evidence + ": there is something in this folder");

  EXPECT_THAT(NamesIn(evidence), ElementsAre("mine.txt"));
}

TEST_F(EvidenceFolder, ThatIsAFileIsRefused) {
  folder.Write("evidence", "mine");

  ExpectNothingDone({"--evidence", evidence}, "varnelctl: --evidence " + evidence + ": this is no folder");

  EXPECT_EQ(ReadFile(evidence), "mine");
}

TEST_F(EvidenceFolder, BelowOneThatIsNotThereIsRefused) {
  ExpectNothingDone({"--evidence", folder.File("nowhere/evidence")},
                    "varnelctl: --evidence " + folder.File("nowhere/evidence") + ": there is no folder");
}

TEST_F(EvidenceFolder, ThatIsEmptyIsTaken) {
  std::filesystem::create_directory(PathOf(evidence));

  Snapshot({"--evidence", evidence + "/"});

  EXPECT_THAT(NamesIn(evidence), testing::Contains("index.html"));
}

TEST_F(EvidenceFolder, KeepsItsOwnFilesAlone) {
  ExpectNothingDone({"--evidence", evidence, "--report", evidence + "/report.html"},
                    "varnelctl: --report names a file in the folder " + evidence);
  ExpectNothingDone({"--evidence", evidence, "--log", evidence}, "varnelctl: --log and --evidence name one file");
}

TEST_F(EvidenceFolder, OfACommandThatIsRefusedAtOnceIsNotMade) {
  ExpectNothingDone({"--evidence", evidence, "--log", folder.File("nowhere/run.log")},
                    "varnelctl: cannot open the log file");

  EXPECT_FALSE(std::filesystem::exists(PathOf(evidence)));
}

TEST_F(EvidenceFolder, IsNotForAPlanThatMakesNone) {
  ExpectRefused(Run({"plan", "--app", "none", "--for", "sales", "--evidence", evidence}),
                "varnelctl: --evidence is of a plan of --disk, and --for makes none");
}

#ifndef _WIN32
TEST_F(EvidenceFolder, IsForItsUserAlone) {
  using std::filesystem::perms;
  SnapshotWithEvidence();

  const auto permissions = [](const std::string& path) { return std::filesystem::status(PathOf(path)).permissions(); };
  EXPECT_EQ(permissions(evidence), perms::owner_all);
  for (const std::string& name : NamesIn(evidence)) {
    EXPECT_EQ(permissions(evidence + "/" + name), perms::owner_read | perms::owner_write) << name;
  }
}
#endif

// As on a disk that takes no more: a folder stands where a file belongs.
class FullDisk : public EvidenceFixture {
 protected:
  // While the request is under way, after the folder was tried.
  varnelctl::InterruptionSource Blocking(const std::string& file) const {
    class Quiet final : public varnelctl::Interruption {
      bool Requested() const override { return false; }
    };
    return [path = evidence + "/" + file] {
      std::filesystem::create_directories(PathOf(path + "/in"));
      return std::make_unique<Quiet>();
    };
  }
};

TEST_F(FullDisk, EndsInNotAllDoneWithWhatWasWritten) {
  const CliResult result = SnapshotWithEvidence({}, 18, Blocking("calls.txt"));

  EXPECT_THAT(result.err, HasSubstr("varnelctl: --evidence " + evidence + ": calls.txt was not written: "));
  EXPECT_THAT(result.out, HasSubstr("NOT ALL DONE: --evidence "));
  EXPECT_EQ(JsonOfEvidence("run.json").at("status"), 18);
  EXPECT_THAT(WhyNot(evidence, "calls.txt"), HasSubstr("was not written: "));
  EXPECT_THAT(FileOfEvidence("disks.json"), HasSubstr("TSL0001"));
}

TEST_F(FullDisk, CountsWhatElseWasNotWritten) {
  const auto both = [first = Blocking("calls.txt"), second = Blocking("disks.json")] {
    first();
    return second();
  };

  const CliResult result = SnapshotWithEvidence({}, 18, both);

  EXPECT_THAT(result.err, HasSubstr("; nor was 1 other file\n"));
}

TEST_F(FullDisk, WithoutItsIndexIsToldAllTheSame) {
  const CliResult result = SnapshotWithEvidence({}, 18, Blocking("index.html"));

  EXPECT_THAT(result.err, HasSubstr(": index.html was not written: "));
  EXPECT_EQ(JsonOfEvidence("run.json").at("kind"), "snapshot");
}

TEST_F(FullDisk, DoesNotHideThatTheRunFailed) {
  FailCallOfHost("IVssBackupComponents::PrepareForBackup");

  const CliResult result = SnapshotWithEvidence({}, 15, Blocking("calls.txt"));

  EXPECT_THAT(result.err, HasSubstr(": calls.txt was not written: "));
  EXPECT_EQ(JsonOfEvidence("run.json").at("status"), 15);
}

// A call that never returns ends the program: what there is by then is written before.
TEST_F(EvidenceFolder, OfARunThatHangsTellsTheCall) {
  hostFile["faults"] = json::array({{{"call", "IVssBackupComponents::DoSnapshotSet"}, {"hangs", true}}});
  StartedProgram program(folder, "hung", hostFile, Whole({"--deadline", "1", "--evidence", evidence}));

  EXPECT_EQ(program.Wait(), 17);

  EXPECT_THAT(program.Err(), HasSubstr("IVssBackupComponents::DoSnapshotSet does not return: the process ends now"));
  EXPECT_TRUE(Shows(FileOfEvidence("index.html"), "IVssBackupComponents::DoSnapshotSet does not return"));
  EXPECT_TRUE(Shows(FileOfEvidence("index.html"), "varnelctl explain past-deadline"));
  EXPECT_EQ(JsonOfEvidence("run.json").at("status"), 17);
  EXPECT_THAT(FileOfEvidence("calls.txt"), HasSubstr("IVssBackupComponents::PrepareForBackup"));
  EXPECT_THAT(FileOfEvidence("log.txt"), HasSubstr("CreateVssSnapshotSet : Enter"));
  EXPECT_THAT(WhyNot(evidence, "disks.json"), HasSubstr("the host was not asked"));
}

// What is saved of a run by the thread that watches it, when a call of it hangs.
class EvidenceOfHungRun : public HostFixture {
 protected:
  void SetUp() override {
    Install(SmallHost());
    session.TellHeader(std::nullopt);
    log.Add(CFileLog::Information, L"varnel", 1, L"crm");
  }
  void Remember() {
    session.journal.emplace(PathOf(folder.File("journal")));
    varnelctl::JournalEntry entry;
    entry.host = session.document.header()->host.value_or("");
    entry.process = varnelctl::ThisProcess();
    entry.start = session.document.header()->start;
    entry.application = "sql";
    session.journal->Write(entry);
  }
  // After the set was handed over.
  void Hang(bool anonymise) {
    varnelctl::RunEvidence run(session, {.folder = evidence, .anonymise = anonymise}, log);
    session.evidence->Add(varnelctl::DocumentEvidence("<crm/>"));
    session.document.Set("snapshot", {{"tries", "crm"}});
    session.beforeEnd("\nvarnelctl: it hangs\n  what to do: nothing\n");
    session.evidence->Add(varnelctl::CatalogEvidence("crm"));
    EXPECT_FALSE(session.evidence->Has("catalog.json")) << "the run goes on, but its evidence is written";
  }
  std::string FileOfEvidence(const std::string& name) const { return ReadFile(evidence + "/" + name); }
  void ExpectRunTellsWhy() const {
    const nlohmann::json document = json::parse(FileOfEvidence("run.json"));
    EXPECT_THAT(SchemaErrors(document), IsEmpty());
    EXPECT_EQ(document.at("kind"), "failure");
    EXPECT_EQ(document.at("status"), 17);
    EXPECT_EQ(document.at("result").at("message"), "it hangs");
    EXPECT_TRUE(Shows(FileOfEvidence("index.html"), "it hangs"));
    EXPECT_TRUE(Shows(FileOfEvidence("report.html"), "it hangs"));
    EXPECT_EQ(out.str(), "") << "the console may be what hangs";
  }

  const TemporaryFolder folder;
  const std::string evidence = folder.File("evidence");
  std::ostringstream out;
  varnelctl::Console console{out, out};
  varnelctl::Session session{console, varnelctl::Format::Text, false, {}, {}};
  varnelctl::KeptLog log;
};

TEST_F(EvidenceOfHungRun, HasWhatWasThereByThen) {
  Remember();
  Hang(false);

  ExpectRunTellsWhy();
  EXPECT_EQ(FileOfEvidence("backup.xml"), "<crm/>");
  EXPECT_THAT(FileOfEvidence("log.txt"), HasSubstr("crm"));
  EXPECT_THAT(FileOfEvidence("journal.json"), HasSubstr("\"sql\""));
  EXPECT_THAT(WhyNot(evidence, "catalog.json"), EndsWith(": the run hung before it was handed over"));
  EXPECT_THAT(WhyNot(evidence, "disks.json"), EndsWith(": the host was not asked: a call hung"));
}

TEST_F(EvidenceOfHungRun, WithoutNamesHasNothingThatMayHoldUnknownOnes) {
  Remember();
  Hang(true);

  ExpectRunTellsWhy();
  EXPECT_THAT(NamesIn(evidence), ElementsAre("header.txt", "index.html", "report.html", "run.json"));
  for (const auto& [file, content] : FilesIn(evidence)) EXPECT_THAT(content, testing::Not(HasSubstr("crm"))) << file;
  for (const char* file : {"backup.xml", "journal.json", "log.txt"}) {
    EXPECT_THAT(WhyNot(evidence, file), HasSubstr("the names in it could not be found out")) << file;
  }
}

TEST_F(EvidenceOfHungRun, WithoutAPageHasItsDocumentAndItsIndex) {
  varnelctl::RunEvidence run(session, {.folder = evidence}, log);
  session.document.Set("snapshot", {{"tries", "none"}});

  EXPECT_EQ(run.WriteRun(varnelctl::ExitStatus::Done), varnelctl::ExitStatus::NotAllDone);

  EXPECT_THAT(NamesIn(evidence), ElementsAre("index.html", "run.json"));
  EXPECT_THAT(WhyNot(evidence, "report.html"), HasSubstr("the key is missing"));
  EXPECT_THAT(out.str(), HasSubstr("report.html was not made: "));
}

std::wstring Digits(int number) {
  return std::to_wstring(number);
}

TEST(KeptLog, KeepsEveryLineAsAFileHasIt) {
  varnelctl::KeptLog log;
  log.Add(CFileLog::Verbose, L"varnel", 7, L"two\nlines");
  log.Add(CFileLog::Error, L"varnel", 8, L"one");

  const std::string text = log.Text();
  const std::size_t first = text.find(" V varnel(7) two\n    lines\n");
  EXPECT_EQ(first, std::string_view("2026-11-20 18:52:44.123").size()) << text;
  EXPECT_THAT(text, testing::EndsWith(" E varnel(8) one\n"));
}

TEST(KeptLog, OfALongLogKeepsTheBeginningAndTheEnd) {
  varnelctl::KeptLog log(varnelctl::KeptLog::Room{.beginning = 200, .end = 300});
  for (int i = 0; i < 1000; ++i) log.Add(CFileLog::Information, L"s", 1, L"line " + Digits(i) + L".");

  const std::string text = log.Text();
  std::size_t kept = 0;
  for (int i = 0; i < 1000; ++i) kept += text.find("line " + std::to_string(i) + ".") != text.npos ? 1 : 0;
  EXPECT_THAT(text, AllOf(HasSubstr("line 0.\n"), HasSubstr("line 999.\n")));
  EXPECT_LT(text.size(), 600U);
  EXPECT_GT(kept, 8U);
  EXPECT_THAT(text, HasSubstr("\n... " + std::to_string(1000 - kept) + " lines left out here ...\n"));
}

TEST(KeptLog, CountsALineThatThereWasNoMemoryFor) {
  varnelctl::KeptLog log;
  log.Lose();

  EXPECT_EQ(log.Text(), "... 1 line left out here ...\n");
}

}  // namespace
}  // namespace varnel::test
