// The log file: when its lines were written, by several threads at once, and why it cannot be opened.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <regex>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "platform/tessel/FileLog.h"
#include "platform/tessel/log_sink.h"
#include "tests/support/golden.h"

namespace varnel::test {
namespace {

using testing::SizeIs;
using Clock = std::chrono::system_clock;

// Local time to the second, as the log shows it.
std::string SecondOf(Clock::time_point time) {
  const std::time_t second = Clock::to_time_t(time);
  char text[32] = "";
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", std::localtime(&second));
  return text;
}

class LogFileTest : public testing::Test {
 protected:
  void TearDown() override { std::filesystem::remove(path_); }
  std::unique_ptr<LogSink> Open() { return OpenLogFile(path_, CFileLog::Verbose); }
  std::vector<std::string> Lines() { return LinesOf(ReadText(path_)); }

  const std::filesystem::path path_ =
      std::filesystem::temp_directory_path() /
      (std::string("varnel_log_") + testing::UnitTest::GetInstance()->current_test_info()->name() + "_" +
       std::to_string(Clock::now().time_since_epoch().count()) + ".txt");
};

TEST_F(LogFileTest, ALineBeginsWithTheLocalTimeToTheMillisecond) {
  const Clock::time_point before = Clock::now();
  Open()->Write(CFileLog::Information, L"source", 7, L"text");
  const Clock::time_point after = Clock::now();
  ASSERT_THAT(Lines(), SizeIs(1));
  const std::string line = Lines()[0];
  EXPECT_TRUE(std::regex_match(line, std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} I source\(7\) text)")))
      << line;
  EXPECT_GE(line.substr(0, 19), SecondOf(before));
  EXPECT_LE(line.substr(0, 19), SecondOf(after));
}

TEST_F(LogFileTest, TheTimeOfALineIsThatOfItsOwnSecond) {
  const std::unique_ptr<LogSink> log = Open();
  const std::string first = SecondOf(Clock::now());
  log->Write(CFileLog::Information, L"source", 1, L"first");
  while (SecondOf(Clock::now()) == first) std::this_thread::yield();
  const std::string second = SecondOf(Clock::now());
  log->Write(CFileLog::Information, L"source", 2, L"second");
  ASSERT_THAT(Lines(), SizeIs(2));
  EXPECT_GE(Lines()[0].substr(0, 19), first);
  EXPECT_GE(Lines()[1].substr(0, 19), second);
  EXPECT_LE(Lines()[1].substr(0, 19), SecondOf(Clock::now()));
}

TEST_F(LogFileTest, LinesOfTwoThreadsDoNotMix) {
  constexpr std::size_t kLines = 500;
  const std::unique_ptr<LogSink> log = Open();
  const auto write = [&](wchar_t letter) {
    for (std::size_t i = 0; i < kLines; ++i) log->Write(CFileLog::Error, L"s", 1, std::wstring(200, letter));
  };
  std::thread one([&] { write(L'a'); });
  std::thread two([&] { write(L'b'); });
  one.join();
  two.join();
  const std::vector<std::string> lines = Lines();
  ASSERT_THAT(lines, SizeIs(2 * kLines));
  std::size_t ofOne = 0;
  for (const std::string& line : lines) {
    const std::string text = line.substr(23);
    ASSERT_TRUE(text == " E s(1) " + std::string(200, 'a') || text == " E s(1) " + std::string(200, 'b')) << line;
    ofOne += text.back() == 'a' ? 1u : 0u;
  }
  EXPECT_EQ(ofOne, kLines);
}

TEST_F(LogFileTest, AFileThatCannotBeOpenedTellsItsPathAndTheReason) {
  const std::filesystem::path path = path_ / "no such folder" / "log.txt";
  try {
    OpenLogFile(path, CFileLog::Verbose);
    FAIL() << "opened";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().category(), std::generic_category());
    EXPECT_EQ(error.code(), std::errc::no_such_file_or_directory);
    EXPECT_THAT(error.what(), testing::HasSubstr("cannot open the log file " + path.string()));
  }
}

TEST_F(LogFileTest, AFolderIsNoLogFile) {
  try {
    OpenLogFile(std::filesystem::temp_directory_path(), CFileLog::Verbose);
    FAIL() << "opened";
  } catch (const std::system_error& error) {
    EXPECT_NE(error.code().value(), 0);
    EXPECT_EQ(error.code().category(), std::generic_category());
  }
}

}  // namespace
}  // namespace varnel::test
