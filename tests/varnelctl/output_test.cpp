// varnelctl: the files that a run writes, its log and its standard output, whole or told.
#include "varnelctl/console/output_file.h"

#include <set>
#include <thread>

#include "tests/varnelctl/snapshot_support.h"
#include "varnelctl/explanation/failure.h"

#ifndef _WIN32
#include <sys/stat.h>
#endif

namespace varnel::test {
namespace {

namespace fs = std::filesystem;

class InterruptedAtOnce final : public varnelctl::Interruption {
 public:
  bool Requested() const override { return true; }
};

class OutputCommand : public SnapshotCommand {
 protected:
  const std::string document = folder.File("out.xml");
  const std::string catalog = folder.File("out.json");
  const std::string calls = folder.File("calls.txt");
  const Arguments all = {"--document", document, "--catalog", catalog, "--calls", calls};

  void WriteAll(const std::string& text) const {
    for (const char* name : {"out.xml", "out.json", "calls.txt"}) folder.Write(name, text);
  }
  std::set<std::string> Names() const {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(PathOf(folder.File("")))) {
      names.insert(entry.path().filename().string());
    }
    return names;
  }
  static bool Exists(const std::string& file) { return fs::exists(PathOf(file)); }
  static Arguments With(Arguments arguments, const Arguments& more) {
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }
  static std::string Removed(const std::string& option, const std::string& file) {
    return "varnelctl: warning: " + option + " " + file +
           ": the file of an earlier run was removed, as this run wrote none\n";
  }
};

// Whole files

TEST_F(OutputCommand, FilesOfAnEarlierRunAreReplacedAndNothingElseIsLeft) {
  WriteAll(std::string(100000, 'x'));
  const nlohmann::json outcome = SnapshotJson(all);

  EXPECT_EQ(ReadFile(document), outcome["document"]);
  EXPECT_EQ(nlohmann::json::parse(ReadFile(catalog)), outcome["catalog"]);
  EXPECT_THAT(ReadFile(calls), testing::EndsWith("IVssBackupComponents::FreeWriterMetadata() = S_OK\n"));
  EXPECT_EQ(Names(), std::set<std::string>({"host.json", "out.xml", "out.json", "calls.txt"}));
}

TEST_F(OutputCommand, AFailedRunRemovesTheFilesOfAnEarlierOneThatItDoesNotWrite) {
  WriteAll("yesterday");
  const CliResult result = Snapshot(With({"--disk", "SYS"}, all), 12);

  EXPECT_FALSE(Exists(document));
  EXPECT_FALSE(Exists(catalog));
  EXPECT_THAT(ReadFile(calls), HasSubstr("IVssBackupComponents::AbortBackup() = S_OK\n"));
  EXPECT_THAT(result.err, testing::EndsWith(Removed("--document", document) + Removed("--catalog", catalog)));
}

TEST_F(OutputCommand, ARunThatFindsADiskMissingRemovesThemAll) {
  WriteAll("yesterday");
  const CliResult result = Snapshot(With({"--disk", "TSL0001", "NONE"}, all), 2);

  EXPECT_EQ(Names(), std::set<std::string>({"host.json"}));
  EXPECT_THAT(result.err, HasSubstr(Removed("--calls", calls)));
}

TEST_F(OutputCommand, AFailedRunLeavesNoFileWhereThereWasNone) {
  const CliResult result = Snapshot({"--disk", "SYS", "--document", document, "--catalog", catalog}, 12);

  EXPECT_EQ(Names(), std::set<std::string>({"host.json"}));
  EXPECT_THAT(result.err, testing::Not(HasSubstr("earlier run")));
}

TEST_F(OutputCommand, AnInterruptedRunRemovesTheFilesOfAnEarlierOne) {
  WriteAll("yesterday");
  const CliResult result = Snapshot(all, 17, [] { return std::make_unique<InterruptedAtOnce>(); });

  EXPECT_FALSE(Exists(document));
  EXPECT_FALSE(Exists(catalog));
  EXPECT_THAT(result.err, HasSubstr(Removed("--catalog", catalog)));
}

TEST_F(OutputCommand, ARunThatIsRefusedLeavesEveryFileAsItIs) {
  WriteAll("yesterday");
  Snapshot(With({"--verify", "--context", "transportable"}, all), 2);
  Snapshot(With(all, {"--log", document}), 2);
  Snapshot({"--document", document, "--catalog", folder.File("none/out.json")}, 2);

  for (const std::string& file : {document, catalog, calls}) EXPECT_EQ(ReadFile(file), "yesterday") << file;
}

TEST_F(OutputCommand, AFileThatTakesThePlaceOfAnotherIsWrittenThere) {
  WriteAll("yesterday");
  const fs::path link = PathOf(folder.File("link.xml"));
  std::error_code error;
  fs::create_symlink(PathOf(document), link, error);
  if (error) GTEST_SKIP() << "no links here";
  Snapshot({"--document", folder.File("link.xml")});

  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_THAT(ReadFile(document), testing::StartsWith("<BACKUP_COMPONENTS "));
}

// Tried at the start

TEST_F(OutputCommand, AFolderIsNoFileToWrite) {
  fs::create_directory(PathOf(document));
  ExpectRefused(Snapshot({"--document", document}, 2),
                "varnelctl: --document " + document + ": this is a folder; name a file\n");
  EXPECT_TRUE(Exists(document));
}

TEST_F(OutputCommand, AMissingFolderIsNamed) {
  const std::string file = folder.File("none/out.json");
  ExpectRefused(Snapshot({"--catalog", file}, 2), "varnelctl: --catalog " + file + ": there is no folder ", "none\n");
}

TEST_F(OutputCommand, AMissingNameIsAUsageError) {
  ExpectRefused(Snapshot({"--calls", ""}, 2), "varnelctl: --calls: a file name is missing\n");
  ExpectRefused(Snapshot({"--log", ""}, 2), "varnelctl: --log: a file name is missing\n");
}

TEST_F(OutputCommand, AFileThatMayNotBeWrittenIsNotReplaced) {
  WriteAll("yesterday");
  fs::permissions(PathOf(document), fs::perms::owner_read);
  const CliResult result = Snapshot({"--document", document}, 2);
  fs::permissions(PathOf(document), fs::perms::owner_all);

  ExpectRefused(
      result, "varnelctl: --document " + document + ": the file that is there cannot be replaced: Permission denied\n");
  EXPECT_EQ(ReadFile(document), "yesterday");
}

TEST_F(OutputCommand, AnythingThatCannotBeReplacedAtTheEndIsTold) {
  varnelctl::OutputFile file("--document", document);
  fs::create_directories(PathOf(document + "/full"));
  try {
    file.Write("text");
    ADD_FAILURE() << "a folder was replaced";
  } catch (const varnelctl::NotAllDone& failure) {
    EXPECT_THAT(failure.what(), testing::StartsWith("--document " + document + " was not written whole: "));
  }
  EXPECT_EQ(file.RemoveEarlier(), "");
  EXPECT_EQ(Names(), std::set<std::string>({"out.xml"}));
}

TEST_F(OutputCommand, AFolderThatIsGoneAtTheEndIsTold) {
  const std::string below = folder.File("below");
  fs::create_directory(PathOf(below));
  varnelctl::OutputFile file("--document", below + "/out.xml");
  fs::remove(PathOf(below));
  EXPECT_THROW(file.Write("text"), varnelctl::NotAllDone);
}

// One file for two options

struct OneFile {
  const char* what;
  Arguments arguments;  // the file is out.xml in the present folder, linked.xml another name of it
  const char* options;
};

void PrintTo(const OneFile& one, std::ostream* stream) {
  *stream << one.what;
}

class OneFileForTwo : public OutputCommand, public testing::WithParamInterface<OneFile> {};

TEST_P(OneFileForTwo, IsAUsageErrorThatNamesBothAndTouchesNothing) {
  folder.Write("out.xml", "yesterday");
  fs::create_hard_link(PathOf(document), PathOf(folder.File("linked.xml")));
  Arguments arguments = GetParam().arguments;
  for (std::string& argument : arguments) {
    if (!argument.starts_with("--")) argument = folder.File(argument);
  }
  ExpectRefused(Snapshot(arguments, 2), std::string("varnelctl: ") + GetParam().options + " name one file, ",
                ": give each its own\n");
  EXPECT_EQ(ReadFile(document), "yesterday");
}

INSTANTIATE_TEST_SUITE_P(
    Options, OneFileForTwo,
    testing::Values(
        OneFile{"one name", {"--document", "out.xml", "--catalog", "out.xml"}, "--document and --catalog"},
        OneFile{"a new file", {"--document", "new.xml", "--calls", "new.xml"}, "--document and --calls"},
        OneFile{"a detour", {"--document", "out.xml", "--catalog", "./x/../out.xml"}, "--document and --catalog"},
        OneFile{"a new file by a detour", {"--document", "new", "--catalog", "./new"}, "--document and --catalog"},
        OneFile{"a hard link", {"--document", "out.xml", "--catalog", "linked.xml"}, "--document and --catalog"},
        OneFile{"the log", {"--calls", "out.xml", "--log", "linked.xml"}, "--log and --calls"},
        OneFile{"the host", {"--document", "host.json"}, "--host and --document"},
        OneFile{"the state", {"--catalog", "a.state", "--state", "a.state"}, "--state and --catalog"},
        OneFile{"the state of itself", {"--state", "host.json"}, "--host and --state"}));

TEST_F(OutputCommand, OneFileForTwoOptionsIsRefusedForEveryCommand) {
  ExpectRefused(Run({"disks", "--log", folder.File("host.json")}), "varnelctl: --host and --log name one file, ");
  EXPECT_EQ(ReadFile(folder.File("host.json")), hostFile.dump());
}

TEST_F(OutputCommand, NamesThatDifferInCaseAreOneFileWhereTheSystemSaysSo) {
  const bool anyCase = fs::path::preferred_separator == '\\';
  Snapshot({"--document", folder.File("new"), "--catalog", folder.File("NEW")}, anyCase ? 2 : 0);
}

TEST_F(OutputCommand, ADeviceIsWrittenToAsItIsAndTakesTwoOutputs) {
  const bool windows = fs::path::preferred_separator == '\\';
  for (const char* null : {windows ? "\\\\.\\NUL" : "/dev/null", windows ? "NUL" : "/dev/../dev/null"}) {
    Snapshot({"--document", null, "--catalog", null, "--calls", calls});
  }
}

// Standard output

TEST_F(OutputCommand, ASetWhoseResultsWereLostIs18AndTold) {
  std::ostringstream out;
  std::ostringstream trouble;
  out.setstate(std::ios::badbit);
  const Arguments host = {"--host", folder.Write("host.json", hostFile.dump())};

  EXPECT_EQ(varnelctl::RunVarnelctl(With(host, Whole({"--context", "app-rollback"})), out, trouble), 18);
  std::string err = trouble.str();
  EXPECT_THAT(TakeNextStep(err), testing::EndsWith("  next: varnelctl explain output-lost\n"));
  EXPECT_EQ(err,
            "varnelctl: standard output did not take everything\n"
            "  Snapshot set {00000002-5e1f-4c3d-9a0b-000000000000}: kept until it is deleted\n");
  EXPECT_EQ(varnelctl::RunVarnelctl(With(host, Whole({"--disk", "SYS"})), out, trouble), 12);
}

// Files that do not take everything

#ifndef _WIN32

TEST_F(OutputCommand, ADocumentThatIsNotWholeIs18AndTheSetIsTold) {
  const CliResult result = Snapshot({"--document", "/dev/full", "--context", "app-rollback"}, 18);

  EXPECT_EQ(result.err, "varnelctl: --document /dev/full was not written whole: No space left on device\n");
  EXPECT_THAT(result.out, HasSubstr("}: kept until it is deleted\n"));
}

TEST_F(OutputCommand, ACatalogueThatIsNotWholeIsInTheRunsOwnDocument) {
  const nlohmann::json outcome = SnapshotJson({"--catalog", "/dev/full"}, 18);

  EXPECT_EQ(outcome["result"]["message"], "--catalog /dev/full was not written whole: No space left on device");
  EXPECT_EQ(outcome["setState"], "released");
}

TEST_F(OutputCommand, CallsThatAreNotWholeAre18) {
  const CliResult result = Snapshot({"--calls", "/dev/full"}, 18);

  EXPECT_EQ(result.err, "varnelctl: --calls /dev/full was not written whole: No space left on device\n");
  EXPECT_THAT(result.out, HasSubstr("\nCAPTURED 2 of 3 components; NOT ALL DONE: --calls /dev/full was not written "
                                    "whole: No space left on device; set {"));
  EXPECT_EQ(SnapshotJson({"--calls", "/dev/full"}, 18)["verdict"]["status"], 18);
}

TEST_F(OutputCommand, AFailureKeepsItsStatusWhateverIsNotWholeAfterIt) {
  const Arguments full = {"--document", "/dev/full", "--calls", "/dev/full", "--log", "/dev/full"};
  const CliResult result = Snapshot(With({"--disk", "TSL0001", "TSL0002", "NONE", "--accept-unknown-disks"}, full), 14);

  EXPECT_THAT(result.err, HasSubstr("  --document /dev/full was not written whole: No space left on device\n"));
  EXPECT_THAT(result.err, HasSubstr("varnelctl: --calls /dev/full was not written whole: "));
  EXPECT_THAT(result.err, HasSubstr("varnelctl: the log /dev/full lost "));
}

TEST_F(OutputCommand, ALogThatLostLinesIs18) {
  const CliResult result = Snapshot({"--log", "/dev/full"}, 18);

  EXPECT_THAT(result.err, testing::MatchesRegex("varnelctl: the log /dev/full lost [0-9]+ lines: "
                                                "No space left on device\n"));
  EXPECT_THAT(result.out, HasSubstr("\nCAPTURED 2 of 3 components; NOT ALL DONE: the log /dev/full lost "));
}

TEST_F(OutputCommand, ALogThatLostLinesIs18ForEveryCommand) {
  const CliResult result = Run({"writers", "--log", "/dev/full"});

  EXPECT_EQ(result.status, 18);
  EXPECT_EQ(result.err, "varnelctl: the log /dev/full lost 4 lines: No space left on device\n");
}

TEST_F(OutputCommand, ANamedPipeIsWrittenToAsItIs) {
  const std::string pipe = folder.File("pipe");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  std::string read;
  std::thread reader([&] { read = ReadFile(pipe); });
  const nlohmann::json outcome = SnapshotJson({"--document", pipe});
  reader.join();

  EXPECT_EQ(read, outcome["document"]);
  EXPECT_TRUE(fs::is_fifo(PathOf(pipe)));
}

TEST_F(OutputCommand, AReplacedFileKeepsWhoMayReadIt) {
  WriteAll("yesterday");
  constexpr fs::perms kMine = fs::perms::owner_read | fs::perms::owner_write;
  fs::permissions(PathOf(document), kMine);
  Snapshot({"--document", document});

  EXPECT_EQ(fs::status(PathOf(document)).permissions(), kMine);
}

#endif

}  // namespace
}  // namespace varnel::test
