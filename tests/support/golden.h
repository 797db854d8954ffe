// Runs as text, and their comparison with texts that were read once and kept.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/support/snapshot_request.h"
#include "text/unicode.h"

namespace varnel::test {

/// Without the carriage returns that a checkout may add.
inline std::string ReadText(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  std::erase(text, '\r');
  return text;
}

/// The parts between line ends; one at the end adds none.
inline std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    lines.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return lines;
}

/// A title and lines, each on one line whatever it holds.
inline std::string GoldenSection(const std::string& title, const std::vector<std::string>& lines) {
  std::string text = "== " + title + " ==\n";
  for (const std::string& line : lines) {
    for (const char c : line) {
      if (c == '\n') {
        text += "\\n";
      } else if (c == '\r') {
        text += "\\r";
      } else {
        text += c;
      }
    }
    text += "\n";
  }
  return text;
}

/// How an operation ended, for a section.
inline std::vector<std::string> GoldenOutcome(const Outcome& outcome) {
  if (outcome.alertCode == 0) return {testing::PrintToString(outcome)};
  std::vector<std::string> lines = {"alert code " + std::to_string(outcome.alertCode),
                                    "message " + WideToUtf8Lossy(outcome.message)};
  for (const std::wstring& entry : outcome.list) lines.push_back("entry " + WideToUtf8Lossy(entry));
  return lines;
}

/// Compares the text with the file, or rewrites the file when VARNEL_UPDATE_GOLDEN is set.
inline void CompareWithGolden(const std::filesystem::path& file, const std::string& text) {
  if (std::getenv("VARNEL_UPDATE_GOLDEN") != nullptr) {
    std::ofstream(file, std::ios::binary) << text;
    GTEST_SKIP() << "rewrote " << file;
  }
  EXPECT_EQ(text, ReadText(file)) << "set VARNEL_UPDATE_GOLDEN to rewrite " << file;
}

}  // namespace varnel::test
