// What terminals of every width are given, and what they never are.
#include "platform/win32.h"
#include "tests/varnelctl/snapshot_support.h"
#include "text/unicode.h"
#include "varnelctl/commands/command.h"
#include "varnelctl/console/layout.h"

namespace varnel::test {
namespace {

using testing::AllOf;
using testing::Not;
using testing::StartsWith;
using varnelctl::Wrapped;

varnelctl::Terminals Columns(int columns) {
  return {{.columns = columns}, {.columns = columns}};
}

// The terminal that the process was given

varnelctl::Terminal Describe(int columns, bool takesSequences, std::map<std::string, std::string> environment) {
  return varnelctl::DescribeTerminal(columns, takesSequences, [&](const char* name) {
    const auto found = environment.find(name);
    return found == environment.end() ? nullptr : found->second.c_str();
  });
}

TEST(TerminalDescription, HasTheWidthOfTheConsoleUnlessColumnsSaysOtherwise) {
  EXPECT_EQ(Describe(80, true, {}).columns, 80);
  EXPECT_EQ(Describe(80, true, {{"COLUMNS", "132"}}).columns, 132);
  EXPECT_EQ(Describe(80, true, {{"COLUMNS", "wide"}}).columns, 80);
  EXPECT_EQ(Describe(80, true, {{"COLUMNS", ""}}).columns, 80);
  EXPECT_EQ(Describe(20, true, {}).columns, 40) << "no narrower";
  EXPECT_EQ(Describe(0, true, {}).columns, 0) << "not known: nothing is wrapped";
  EXPECT_EQ(Describe(0, true, {{"COLUMNS", "99"}}).columns, 99);
}

TEST(TerminalDescription, HasColoursUnlessTheEnvironmentOrTheConsoleDoesWithout) {
  EXPECT_TRUE(Describe(80, true, {{"TERM", "xterm"}}).colour);
  EXPECT_TRUE(Describe(80, true, {{"NO_COLOR", ""}}).colour) << "empty is not set";
  EXPECT_FALSE(Describe(80, true, {{"NO_COLOR", "1"}}).colour);
  EXPECT_FALSE(Describe(80, true, {{"TERM", "dumb"}}).colour);
  EXPECT_FALSE(Describe(80, false, {}).colour);
}

TEST(TerminalDescription, ErasesLinesUnlessItIsDumb) {
  EXPECT_TRUE(Describe(80, true, {{"NO_COLOR", "1"}}).erases);
  EXPECT_FALSE(Describe(80, true, {{"TERM", "dumb"}}).erases);
  EXPECT_FALSE(Describe(80, false, {}).erases);
}

// Wrapping

TEST(Layout, ALineThatFitsStaysAsItIs) {
  EXPECT_EQ(Wrapped("0123456789", 10), "0123456789");
  EXPECT_EQ(Wrapped("a  b\n\n  c \n", 10), "a  b\n\n  c \n");
  EXPECT_EQ(Wrapped("no width, no wrapping at all", 0), "no width, no wrapping at all");
}

TEST(Layout, ALongLineGoesOnBelowItsText) {
  EXPECT_EQ(Wrapped("one two three four", 10), "one two\n  three\n  four");
  EXPECT_EQ(Wrapped("  one two three", 10), "  one two\n    three");
  EXPECT_EQ(Wrapped("one two three\nfour five six\n", 10), "one two\n  three\nfour five\n  six\n");
}

TEST(Layout, WhatALabelStandsForGoesOnBesideIt) {
  EXPECT_EQ(Wrapped("key  one two three", 14), "key  one two\n     three");
  EXPECT_EQ(Wrapped("  a longer label  one two", 20), "  a longer label\n      one two");
}

TEST(Layout, AColumnOfATableThatDoesNotFitStandsBelowItsLabel) {
  const std::string margin(30, ' ');
  EXPECT_EQ(Wrapped(margin + "one two three", 40), "      one two three");
  EXPECT_EQ(Wrapped(margin + "one two three four five six seven eight", 64),
            margin + "one two three four five six seven\n" + margin + "eight");
}

TEST(Layout, AWordIsNotBroken) {
  const std::string path = "\\\\?\\Volume{5f1c0a20-7d1e-4c55-9a60-1b2c3d4e5f00}\\";
  EXPECT_EQ(Wrapped("volume " + path + " is it", 40), "volume\n" + path + "\n  is it");
  const std::string guid = "{5f1c0a20-7d1e-4c55-9a60-1b2c3d4e5f00}";
  EXPECT_EQ(Wrapped("  writer id    " + guid, 40), "  writer id\n  " + guid) << "further left it is whole";
}

TEST(Layout, WhatStandsInQuotesIsOneWord) {
  EXPECT_EQ(Wrapped("serial \"A B C D\" of it", 14), "serial\n  \"A B C D\" of\n  it");
  EXPECT_EQ(Wrapped("\"a text that is longer than a line\"", 14), "\"a text that\n  is longer\n  than a line\"");
  EXPECT_EQ(Wrapped("one \" quote alone", 10), "one \"\n  quote\n  alone");
}

TEST(Layout, CountsColumnsNotBytes) {
  EXPECT_EQ(varnelctl::ColumnsOf("Donn\u00e9es"), 7);
  EXPECT_EQ(varnelctl::ColumnsOf("e\u0301"), 1) << "a combining accent";
  EXPECT_EQ(varnelctl::ColumnsOf("\u65e5\u672c"), 4);
  EXPECT_EQ(varnelctl::ColumnsOf("\U0001F680"), 2);
  EXPECT_EQ(Wrapped("\u65e5\u672c \u65e5\u672c", 8), "\u65e5\u672c\n  \u65e5\u672c");
  EXPECT_EQ(varnelctl::FirstColumns("\u65e5\u672ce\u0301x", 5), "\u65e5\u672ce\u0301");
  EXPECT_EQ(varnelctl::FirstColumns("\u65e5\u672c", 3), "\u65e5");
}

// The console

struct Streams {
  std::ostringstream out;
  std::ostringstream err;
};

TEST(ConsoleTones, AreColoursOfWholeLines) {
  Streams streams;
  const varnelctl::Terminal terminal{.columns = 40, .colour = true, .erases = true};
  varnelctl::Console console(streams.out, streams.err, {terminal, terminal});

  console.Line("plain");
  console.Line("CAPTURED", varnelctl::Tone::Good);
  console.Error("one two three four five six seven eight");
  console.Warning("one");
  console.Detail("  detail\n");

  EXPECT_EQ(streams.out.str(), "plain\n\x1b[32mCAPTURED\x1b[0m\n");
  EXPECT_EQ(streams.err.str(),
            "\x1b[31mvarnelctl: one two three four five six\x1b[0m\n\x1b[31m  seven eight\x1b[0m\n"
            "\x1b[33mvarnelctl: warning: one\x1b[0m\n  detail\n");
}

TEST(ConsoleTones, AreNothingElsewhere) {
  Streams streams;
  varnelctl::Console console(streams.out, streams.err);
  console.Line("CAPTURED", varnelctl::Tone::Good);
  console.Error("no");

  EXPECT_EQ(streams.out.str(), "CAPTURED\n");
  EXPECT_EQ(streams.err.str(), "varnelctl: no\n");
}

TEST(ConsoleLive, WhatIsPrintedMeanwhileStandsAboveTheLine) {
  std::ostringstream both;
  const varnelctl::Terminal terminal{.columns = 40, .erases = true};
  varnelctl::Console console(both, both, {terminal, terminal});
  console.Live("looking ...");
  console.Warning("no provider");
  console.EndLive("looking: done");
  console.Warning("no more");

  EXPECT_EQ(both.str(),
            "looking ...\r\x1b[Kvarnelctl: warning: no provider\nlooking ...\r\x1b[Klooking: done\n"
            "varnelctl: warning: no more\n");
}

TEST(ConsoleLive, IsNeverLongerThanTheLineThatIsErased) {
  Streams streams;
  varnelctl::Console console(streams.out, streams.err, {{.columns = 40, .erases = true}, {}});
  console.Live("0123456789012345678901234567890123456789 ...");

  EXPECT_EQ(streams.out.str(), "012345678901234567890123456789012345678");
}

TEST(ConsoleLive, IsLeftOutWhereNothingCanBeErased) {
  Streams streams;
  varnelctl::Console console(streams.out, streams.err, {{.columns = 40}, {}});
  console.Live("looking ...");
  console.EndLive("looking: done");

  EXPECT_EQ(streams.out.str(), "looking: done\n");
}

// Transcripts

class Transcript : public SnapshotCommand {
 protected:
  CliResult RunAt(int columns, Arguments arguments) {
    arguments.insert(arguments.begin(), {"--host", folder.Write("host.json", hostFile.dump())});
    return RunCli(std::move(arguments), {}, Columns(columns));
  }
};

TEST_F(Transcript, OfAHelp) {
  EXPECT_EQ(RunAt(80, {"disks", "--help"}).out,
            R"(Show disks with their serial numbers, volumes and mount points
Usage: varnelctl disks [OPTIONS]

Options:
  -h,--help                   Print this help, or after a command its own, and
                              exit

The options of varnelctl --help may follow too.
Examples:
  varnelctl disks
  varnelctl disks --json --host host.json

)");
  EXPECT_EQ(RunAt(40, {"disks", "--help"}).out,
            R"(Show disks with their serial numbers,
  volumes and mount points
Usage: varnelctl disks [OPTIONS]

Options:
  -h,--help
      Print this help, or after a
      command its own, and exit

The options of varnelctl --help may
  follow too.
Examples:
  varnelctl disks
  varnelctl disks --json --host
    host.json

)");
}

TEST_F(Transcript, OfTheDisks) {
  EXPECT_EQ(RunAt(80, {"disks"}).out, R"(\\.\PhysicalDrive0  serial "SYS", system disk
  \\?\Volume{00000000-0000-0000-0000-000000000000}\  C:\
\\.\PhysicalDrive1  serial "TSL0001"
  \\?\Volume{00000001-0000-0000-0000-000000000000}\  E:\
\\.\PhysicalDrive2  serial "TSL0002"
  \\?\Volume{00000002-0000-0000-0000-000000000000}\  F:\

3 disks
)");
  EXPECT_EQ(RunAt(40, {"disks"}).out, R"(\\.\PhysicalDrive0  serial "SYS", system
                    disk
  \\?\Volume{00000000-0000-0000-0000-000000000000}\
      C:\
\\.\PhysicalDrive1  serial "TSL0001"
  \\?\Volume{00000001-0000-0000-0000-000000000000}\
      E:\
\\.\PhysicalDrive2  serial "TSL0002"
  \\?\Volume{00000002-0000-0000-0000-000000000000}\
      F:\

3 disks
)");
}

TEST_F(Transcript, OfTheWriters) {
  hostFile["writers"][0]["components"].erase(2);
  hostFile["writers"][0]["components"].erase(1);
  EXPECT_EQ(RunAt(80, {"writers"}).out, R"(Demo Writer
  writer id    {00000000-0000-0000-0000-00000000000a}
  instance id  {00000000-0000-0000-0000-0000000000aa}
  \SQL01\sales
    fileGroup, selectable, top level, "sales"
    E:\data  on \\?\Volume{00000001-0000-0000-0000-000000000000}\, disk
             "TSL0001"
      *  (file)
  \SQL01\empty
    fileGroup, selectable, top level, "empty"
    no files

1 writer, 2 components, 1 file
)");
  EXPECT_EQ(RunAt(40, {"writers"}).out, R"(Demo Writer
  writer id
  {00000000-0000-0000-0000-00000000000a}
  instance id
  {00000000-0000-0000-0000-0000000000aa}
  \SQL01\sales
    fileGroup, selectable, top level,
      "sales"
    E:\data  on
    \\?\Volume{00000001-0000-0000-0000-000000000000}\,
             disk "TSL0001"
      *  (file)
  \SQL01\empty
    fileGroup, selectable, top level,
      "empty"
    no files

1 writer, 2 components, 1 file
)");
}

TEST_F(Transcript, OfAFailingRun) {
  const Arguments run = {"snapshot", "--app", "none", "--disk", "TSL0001", "TSLOO02"};
  EXPECT_EQ(RunAt(80, run).err,
            "varnelctl: no disk of this host has serial \"TSLOO02\"; did you mean \"TSL0002\"?\n"
            "  (--accept-unknown-disks takes a disk of another host)\n");
  EXPECT_EQ(RunAt(40, run).err,
            "varnelctl: no disk of this host has\n"
            "  serial \"TSLOO02\"; did you mean\n"
            "  \"TSL0002\"? (--accept-unknown-disks\n"
            "  takes a disk of another host)\n");
  hostFile["providers"] = nlohmann::json::array();
  EXPECT_THAT(RunAt(40, {"snapshot", "--app", "none", "--disk", "TSL0001", "TSL0002"}).err,
              StartsWith("varnelctl: warning: the array's VSS\n"
                         "  hardware provider is not registered on\n"
                         "  this host\n"
                         "varnelctl: adding the components and\n"
                         "  volumes failed:\n"
                         "  VSS_E_PROVIDER_NOT_REGISTERED\n"
                         "  (0x80042304)\n"));
}

// Every line of every help fits, or is one word; and nothing but blanks and line ends is different.
TEST_F(Transcript, EveryHelpFitsEveryWidth) {
  const auto words = [](const std::string& text) {
    std::istringstream stream(text);
    return std::vector<std::string>{std::istream_iterator<std::string>(stream), {}};
  };
  std::vector<Arguments> helps = {{"--help"}};
  for (const auto& command : varnelctl::MakeCommands()) helps.push_back({command->name(), "--help"});
  for (const Arguments& help : helps) {
    const std::string whole = RunCli(help).out;
    for (const int columns : {40, 63, 80, 132}) {
      const std::string wrapped = RunAt(columns, help).out;
      EXPECT_EQ(words(wrapped), words(whole));
      std::istringstream lines(wrapped);
      for (std::string line; std::getline(lines, line);) {
        EXPECT_TRUE(varnelctl::ColumnsOf(line) <= columns || words(line).size() == 1) << line;
      }
    }
  }
}

TEST_F(Transcript, ADocumentIsNotWrapped) {
  EXPECT_EQ(RunAt(40, {"disks", "--json"}).out, Output({"disks", "--json"}));
}

// What could move the cursor, hide text or turn it round

// A bell, the start of a colour, the cursor's way home, a C1 control, line separators, and every mark, embedding and
// isolate of the bidirectional algorithm. By their numbers, as an editor would obey them.
constexpr int kNastyCharacters[] = {0x07,   0x1B,   0x0D,   0x7F,   0x85,   0x061C, 0x200E, 0x200F, 0x2028, 0x2029,
                                    0x202A, 0x202B, 0x202C, 0x202D, 0x202E, 0x2066, 0x2067, 0x2068, 0x2069};

std::string Character(int code) {
  return WideToUtf8(std::wstring(1, static_cast<wchar_t>(code)));
}

std::string Nasty() {
  std::string text = "x";
  for (const int code : kNastyCharacters) text += Character(code) + "[31my";
  return text;
}

std::string Tame() {
  std::string text = "x";
  for (std::size_t i = 0; i < std::size(kNastyCharacters); ++i) text += "\uFFFD[31my";
  return text;
}

void ExpectNothingNasty(const std::string& text) {
  for (const int code : kNastyCharacters) EXPECT_THAT(text, Not(HasSubstr(Character(code)))) << code;
}

TEST_F(Transcript, NothingNastyOfAHostIsPrinted) {
  hostFile["writers"][0]["name"] = Nasty();
  hostFile["writers"][0]["components"][0]["caption"] = Nasty();
  const std::string text = Output({"writers"});
  EXPECT_THAT(text, AllOf(StartsWith(Tame() + "\n"), HasSubstr("top level, \"" + Tame() + "\"")));

  const std::string document = Output({"writers", "--json"});
  EXPECT_EQ(nlohmann::json::parse(document)["writers"][0]["name"], Nasty()) << "the whole text, but as escapes";
  ExpectNothingNasty(document);
}

TEST_F(Transcript, NothingNastyOfAnArgumentIsPrinted) {
  const std::string nasty = Nasty();
  for (const Arguments& arguments :
       std::vector<Arguments>{{nasty},
                              {"disks", "--" + nasty},
                              {"disks", nasty},
                              {"disks", "--host", nasty},
                              {"disks", "--log", nasty + "/x/y", "--log-level", nasty},
                              {"disks", "--log", nasty + "/x/y"},
                              {"snapshot", "--app", nasty, "--disk", nasty},
                              {"snapshot", "--app", "none", "--disk", "A", "--context", nasty},
                              {"snapshot", "--app", "none", "--disk", nasty}}) {
    SCOPED_TRACE(testing::PrintToString(arguments));
    const CliResult result = RunCli(arguments);
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("[31my"));
    ExpectNothingNasty(result.err);
  }
}

TEST_F(Transcript, NothingNastyOfAHostFileIsPrinted) {
  nlohmann::json bad = {{"disks", nlohmann::json::array()}};
  bad[Nasty()] = 1;
  const CliResult result = RunCli({"disks", "--host", folder.Write("bad.json", bad.dump())});
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.err, AllOf(HasSubstr("[31my"), HasSubstr("unknown key")));
  ExpectNothingNasty(result.err);
}

TEST_F(Transcript, NothingNastyIsWrittenToTheLog) {
  hostFile["writers"][0]["components"][0]["name"] = Nasty();
  const std::string file = folder.File("run.log");
  Snapshot({"--log", file, "--log-level", "verbose"});

  // Lines end as they do on this platform.
  std::istringstream lines(ReadFile(file));
  std::string text;
  for (std::string line; std::getline(lines, line);)
    text += line.ends_with('\r') ? line.substr(0, line.size() - 1) : line;
  EXPECT_THAT(text, HasSubstr("[31my\uFFFD[31my"));
  ExpectNothingNasty(text);
}

// A reader that goes away

// As a write that failed leaves it.
void Leave(int error) {
  errno = error;
#ifdef _WIN32
  ::SetLastError(error == EPIPE ? ERROR_NO_DATA : ERROR_DISK_FULL);
#endif
}

// Takes some flushes and then fails like a pipe without a reader, or like a full disk.
class FailingStream final : public std::stringbuf {
 public:
  FailingStream(int flushes, int error) : left_(flushes), error_(error) {}

 protected:
  int sync() override {
    if (left_-- > 0) return 0;
    Leave(error_);
    return -1;
  }

 private:
  int left_;
  const int error_;
};

class Abandoned : public Transcript {
 protected:
  CliResult RunWith(int flushes, int error, Arguments arguments) {
    arguments.insert(arguments.begin(), {"--host", folder.Write("host.json", hostFile.dump())});
    FailingStream buffer(flushes, error);
    std::ostream out(&buffer);
    std::ostringstream trouble;
    const int status = varnelctl::RunVarnelctl(std::move(arguments), out, trouble);
    return MakeResult(status, buffer.str(), trouble.str());
  }
};

TEST_F(Abandoned, ARunEndsInOrderAndSaysNothing) {
  const std::string calls = folder.File("calls.txt");
  const CliResult result = RunWith(3, EPIPE, Whole({"--calls", calls}));

  EXPECT_EQ(result.status, 17);
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(ReadFile(calls), AllOf(HasSubstr("IVssAdmin::QueryProviders("), Not(HasSubstr("InitializeForBackup("))));
}

TEST_F(Abandoned, TheBackupIsCompletedWhateverWasReached) {
  constexpr int kMoreThanAnyRun = 30;
  for (int flushes = 0; flushes < kMoreThanAnyRun; ++flushes) {
    SCOPED_TRACE(flushes);
    const std::string calls = folder.File("calls.txt");
    const CliResult result = RunWith(flushes, EPIPE, Whole({"--calls", calls}));
    const std::string made = ReadFile(calls);
    if (result.status == 0) {
      EXPECT_THAT(made, HasSubstr("IVssBackupComponents::DoSnapshotSet("));
      return;
    }
    EXPECT_THAT(result.status, testing::AnyOf(17, 18)) << "18 where the set stands and its text is lost";
    EXPECT_EQ(result.err, "");
    if (made.find("IVssBackupComponents::SetBackupState(") == made.npos) continue;
    EXPECT_THAT(made, testing::AnyOf(HasSubstr("IVssBackupComponents::AbortBackup("),
                                     HasSubstr("IVssBackupComponents::BackupComplete(")));
  }
  FAIL() << "every run was cut";
}

TEST_F(Abandoned, AListingThatNobodyReadsIsAFailureWithoutAWord) {
  const CliResult result = RunWith(0, EPIPE, {"disks"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "");
}

TEST_F(Abandoned, AFullDiskIsAnotherMatter) {
  const CliResult listing = RunWith(0, ENOSPC, {"disks"});
  EXPECT_EQ(listing.status, 1);
  EXPECT_EQ(listing.err, "varnelctl: standard output did not take everything\n");
  EXPECT_THAT(RunWith(3, ENOSPC, Whole({})).err, StartsWith("varnelctl: standard output did not take everything\n"));
}

}  // namespace
}  // namespace varnel::test
