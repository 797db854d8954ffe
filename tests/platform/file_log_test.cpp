// The log and the file that it may go to.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <memory>
#include <sstream>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "platform/tessel/FileLog.h"
#include "platform/tessel/log_sink.h"
#include "tests/support/recording_log.h"
#include "text/unicode.h"

#ifndef _WIN32
#include <sys/resource.h>

#include <csignal>
#endif

namespace varnel {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::SizeIs;

class LevelLog final : public test::RecordingLog {
 public:
  explicit LevelLog(int lowestCategory) : lowestCategory_(lowestCategory) {}
  int LowestCategory() const override { return lowestCategory_; }

 private:
  int lowestCategory_;
};

TEST(FileLog, IsNullUntilSomebodyListens) {
  EXPECT_EQ(CFileLog::GetInstance(), nullptr);
  {
    test::RecordingLog log;
    const ScopedLog scoped(log);
    EXPECT_NE(CFileLog::GetInstance(), nullptr);
  }
  EXPECT_EQ(CFileLog::GetInstance(), nullptr);
}

TEST(FileLog, IsOneObjectForTheProcess) {
  test::RecordingLog log;
  const ScopedLog scoped(log);
  EXPECT_EQ(CFileLog::GetInstance(), CFileLog::GetInstance());
}

TEST(FileLog, GoesToTheInnermostListener) {
  test::RecordingLog outer;
  test::RecordingLog inner;
  const ScopedLog scopedOuter(outer);
  {
    const ScopedLog scopedInner(inner);
    CFileLog::GetInstance()->Log(CFileLog::Error, L"varnel", 1, L"inner");
  }
  CFileLog::GetInstance()->Log(CFileLog::Error, L"varnel", 2, L"outer");
  EXPECT_THAT(inner.Errors(), ElementsAre("inner"));
  EXPECT_THAT(outer.Errors(), ElementsAre("outer"));
}

TEST(FileLog, FormatsWideAndNarrowText) {
  test::RecordingLog log;
  const ScopedLog scoped(log);
  CFileLog::GetInstance()->Log(CFileLog::Information, L"varnel", 1, L"%s, %S, %d, 0x%08lx", L"wide", "narrow", -5,
                               0x80042301u);
  EXPECT_THAT(log.All(), ElementsAre("I wide, narrow, -5, 0x80042301"));
  EXPECT_EQ(log.lines[0].source, "varnel");
}

TEST(FileLog, DropsLinesBelowTheLowestCategory) {
  LevelLog log(CFileLog::Warning);
  const ScopedLog scoped(log);
  for (const int category : {CFileLog::Verbose, CFileLog::Information, CFileLog::Warning, CFileLog::Error}) {
    CFileLog::GetInstance()->Log(category, L"varnel", 1, L"category %d", category);
  }
  EXPECT_THAT(log.All(), ElementsAre("W category 3", "E category 4"));
}

TEST(FileLog, TakesANullSourceAndANullFormat) {
  test::RecordingLog log;
  const ScopedLog scoped(log);
  CFileLog::GetInstance()->Log(CFileLog::Error, nullptr, 1, nullptr);
  EXPECT_THAT(log.All(), ElementsAre("E "));
}

// A file of this test's own, gone with it.
class LogFile : public testing::Test {
 protected:
  LogFile()
      : path_(std::filesystem::temp_directory_path() /
              ("varnel-log-test-" + std::string(testing::UnitTest::GetInstance()->current_test_info()->name()) +
               ".txt")) {
    std::filesystem::remove(path_);
  }
  ~LogFile() override {
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
  }

  std::vector<std::string> Lines() const {
    std::ifstream file(path_);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
  }

  void LogOneLine(int category, const wchar_t* text) {
    const std::unique_ptr<LogSink> sink = OpenLogFile(path_, CFileLog::Verbose);
    const ScopedLog scoped(*sink);
    CFileLog::GetInstance()->Log(category, L"varnel", 123, L"%s", text);
  }

  const std::filesystem::path path_;
};

TEST_F(LogFile, GivesTimeCategorySourceLineAndText) {
  LogOneLine(CFileLog::Error, L"text of the line");
  EXPECT_THAT(Lines(), ElementsAre(MatchesRegex("....-..-.. ..:..:..\\.... E varnel\\(123\\) text of the line")));
}

TEST_F(LogFile, NamesEveryCategoryByALetter) {
  for (const int category : {CFileLog::Verbose, CFileLog::Information, CFileLog::Warning, CFileLog::Error}) {
    LogOneLine(category, L"x");
  }
  EXPECT_THAT(Lines(), ElementsAre(HasSubstr(" V varnel"), HasSubstr(" I varnel"), HasSubstr(" W varnel"),
                                   HasSubstr(" E varnel")));
}

TEST_F(LogFile, IsUtf8AndIsAppendedTo) {
  LogOneLine(CFileLog::Information, L"\u00E9\U0001F680");
  LogOneLine(CFileLog::Information, L"second");
  EXPECT_THAT(Lines(), ElementsAre(HasSubstr(") \xC3\xA9\xF0\x9F\x9A\x80"), HasSubstr(") second")));
}

TEST_F(LogFile, IndentsWhatFollowsALineBreakInTheText) {
  LogOneLine(CFileLog::Information, L"first\r\nsecond\nthird\rfourth");
  EXPECT_THAT(Lines(), ElementsAre(HasSubstr(") first"), "    second", "    third", "    fourth"));
}

TEST_F(LogFile, DropsTheLineBreaksAtTheEndOfTheText) {
  LogOneLine(CFileLog::Information, L"rc=SystemError;\r\n\n");
  LogOneLine(CFileLog::Information, L"\n");
  EXPECT_THAT(Lines(), ElementsAre(HasSubstr(") rc=SystemError;"), MatchesRegex(".*varnel\\(123\\) ")));
}

TEST_F(LogFile, WritesWhatIsLoggedAtOnce) {
  const std::unique_ptr<LogSink> sink = OpenLogFile(path_, CFileLog::Verbose);
  sink->Write(CFileLog::Error, L"varnel", 1, L"before the end of the process");
  EXPECT_THAT(Lines(), SizeIs(1));
}

TEST_F(LogFile, HasLostNothingAsLongAsEveryLineIsWritten) {
  const std::unique_ptr<LogSink> sink = OpenLogFile(path_, CFileLog::Verbose);
  sink->Write(CFileLog::Error, L"varnel", 1, L"text");
  EXPECT_EQ(sink->Lost().count, 0u);
  sink->Lose();
  EXPECT_EQ(sink->Lost().count, 1u);
  EXPECT_EQ(sink->Lost().reason, std::errc::not_enough_memory);
}

#ifndef _WIN32
TEST_F(LogFile, CountsTheLinesThatAFullDiskDoesNotTakeAndSaysWhy) {
  const std::unique_ptr<LogSink> sink = OpenLogFile("/dev/full", CFileLog::Verbose);
  for (int i = 0; i < 3; ++i) sink->Write(CFileLog::Error, L"varnel", i, L"text");
  EXPECT_EQ(sink->Lost().count, 3u);
  EXPECT_EQ(sink->Lost().reason, std::errc::no_space_on_device);
}

// The most bytes that a file of this process may have; a write beyond fails.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &before_);
    rlimit limit = before_;
    limit.rlim_cur = bytes;
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() {
    ::setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, handler_);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  rlimit before_{};
  void (*handler_)(int);
};

TEST_F(LogFile, GoesOnWithANewLineWhereTheDiskTakesLinesAgain) {
  const std::unique_ptr<LogSink> sink = OpenLogFile(path_, CFileLog::Verbose);
  sink->Write(CFileLog::Error, L"varnel", 1, L"first");
  {
    const FileSizeLimit limit(std::filesystem::file_size(path_) + 10);
    sink->Write(CFileLog::Error, L"varnel", 2, L"torn");
    sink->Write(CFileLog::Error, L"varnel", 3, L"lost");
  }
  sink->Write(CFileLog::Error, L"varnel", 4, L"last");
  sink->Write(CFileLog::Error, L"varnel", 5, L"very last");
  EXPECT_THAT(Lines(), ElementsAre(HasSubstr(") first"), SizeIs(10), HasSubstr(") last"), HasSubstr(") very last")));
  EXPECT_EQ(sink->Lost().count, 2u);
  EXPECT_EQ(sink->Lost().reason, std::errc::file_too_large);
}
#endif

TEST_F(LogFile, KnowsItsLowestCategory) {
  EXPECT_EQ(OpenLogFile(path_, CFileLog::Warning)->LowestCategory(), CFileLog::Warning);
}

TEST_F(LogFile, ThatCannotBeOpenedIsAnError) {
  const std::filesystem::path missing = path_ / "no" / "such" / "folder.txt";
  try {
    OpenLogFile(missing, CFileLog::Verbose);
    FAIL() << "a file in a missing folder was opened";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code(), std::errc::no_such_file_or_directory);
    EXPECT_THAT(error.what(), HasSubstr("cannot open the log file " + WideToUtf8Lossy(WideFileName(missing.native()))));
  }
  try {
    OpenLogFile(std::filesystem::temp_directory_path(), CFileLog::Verbose);
    FAIL() << "a folder was opened";
  } catch (const std::system_error& error) {
    EXPECT_NE(error.code().value(), 0);
  }
}

using Clock = std::chrono::system_clock;

// The moment that a line of the log names, in local time.
Clock::time_point StampOf(const std::string& line) {
  std::tm local{};
  std::istringstream(line.substr(0, 19)) >> std::get_time(&local, "%Y-%m-%d %H:%M:%S");
  local.tm_isdst = -1;
  return Clock::from_time_t(std::mktime(&local)) + std::chrono::milliseconds(std::stoi(line.substr(20, 3)));
}

Clock::time_point InMilliseconds(Clock::time_point time) {
  return std::chrono::floor<std::chrono::milliseconds>(time);
}

TEST_F(LogFile, StampsALineWithItsOwnMomentAlsoInALaterSecond) {
  const std::unique_ptr<LogSink> sink = OpenLogFile(path_, CFileLog::Verbose);
  std::vector<std::pair<Clock::time_point, Clock::time_point>> moments;
  for (int i = 0; i < 2; ++i) {
    if (i == 1) std::this_thread::sleep_until(std::chrono::ceil<std::chrono::seconds>(Clock::now()));
    const Clock::time_point before = Clock::now();
    sink->Write(CFileLog::Error, L"varnel", 1, L"x");
    moments.emplace_back(before, Clock::now());
  }
  const std::vector<std::string> lines = Lines();
  ASSERT_THAT(lines, SizeIs(2));
  for (std::size_t i = 0; i < 2; ++i) {
    EXPECT_GE(StampOf(lines[i]), InMilliseconds(moments[i].first)) << lines[i];
    EXPECT_LE(StampOf(lines[i]), moments[i].second) << lines[i];
  }
  EXPECT_NE(lines[0].substr(0, 19), lines[1].substr(0, 19));
}

TEST_F(LogFile, KeepsTheLinesOfTwoThreadsApart) {
  constexpr int kLines = 2000;
  const std::unique_ptr<LogSink> sink = OpenLogFile(path_, CFileLog::Verbose);
  const auto write = [&](const wchar_t* source) {
    for (int i = 0; i < kLines; ++i) sink->Write(CFileLog::Error, source, i, L"text");
  };
  std::thread other(write, L"other");
  write(L"varnel");
  other.join();
  std::vector<std::string> written = Lines();
  for (std::string& line : written) line.erase(0, std::min(line.size(), std::string("2026-11-20 18:52:44.123").size()));
  std::vector<std::string> expected;
  for (int i = 0; i < kLines; ++i) {
    for (const std::string source : {"other", "varnel"}) {
      expected.push_back(" E " + source + "(" + std::to_string(i) + ") text");
    }
  }
  std::sort(written.begin(), written.end());
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(written, expected);
}

}  // namespace
}  // namespace varnel
