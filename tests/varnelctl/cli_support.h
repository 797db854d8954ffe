// Runs varnelctl in the test's own process, on host files in a folder that goes with the test.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "varnelctl/run.h"

namespace varnel::test {

struct CliResult {
  int status;
  std::string out;
  std::string err;
};

inline CliResult RunCli(std::vector<std::string> arguments, varnelctl::InterruptionSource interruption = {}) {
  std::ostringstream out;
  std::ostringstream err;
  const int status = varnelctl::RunVarnelctl(std::move(arguments), out, err, false, std::move(interruption));
  return {status, out.str(), err.str()};
}

inline bool IsOneLine(const std::string& text) {
  return text.ends_with('\n') && std::count(text.begin(), text.end(), '\n') == 1;
}

inline std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// A new folder, removed with everything in it.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
    path_ = std::filesystem::temp_directory_path() / (std::string("varnelctl-") + test->name());
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  /// The path as an argument of varnelctl.
  std::string Argument(const std::string& name) const {
    const std::u8string path = (path_ / std::u8string(name.begin(), name.end())).u8string();
    return {path.begin(), path.end()};
  }
  /// Writes a file and returns its path as an argument.
  std::string Write(const std::string& name, const std::string& text) const {
    std::ofstream(path_ / std::u8string(name.begin(), name.end()), std::ios::binary) << text;
    return Argument(name);
  }

 private:
  std::filesystem::path path_;
};

}  // namespace varnel::test
