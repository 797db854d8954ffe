// A log that keeps its lines, so that a test can expect them.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "platform/tessel/FileLog.h"
#include "platform/tessel/log_sink.h"
#include "text/unicode.h"

namespace varnel::test {

class RecordingLog : public LogSink {
 public:
  struct Line {
    int category;
    std::string source;
    std::string text;
    int line;  ///< of the statement that writes it
  };

  int LowestCategory() const override { return CFileLog::Verbose; }
  void Write(int category, std::wstring_view source, int line, std::wstring_view text) override {
    const std::lock_guard<std::mutex> lock(mutex_);
    lines.push_back({category, WideToUtf8Lossy(source), WideToUtf8Lossy(text), line});
  }

  /// The lines of one category, as text.
  std::vector<std::string> Of(int category) const {
    std::vector<std::string> texts;
    for (const Line& line : lines) {
      if (line.category == category) texts.push_back(line.text);
    }
    return texts;
  }
  std::vector<std::string> Errors() const { return Of(CFileLog::Error); }
  std::vector<std::string> Warnings() const { return Of(CFileLog::Warning); }
  /// Every line after its category: "E text".
  std::vector<std::string> All() const {
    std::vector<std::string> texts;
    for (const Line& line : lines) texts.push_back(std::string(1, "?VIWE"[line.category]) + " " + line.text);
    return texts;
  }

  /// The same with the source: "E varnel: text".
  std::vector<std::string> AllWithSources() const {
    std::vector<std::string> texts;
    for (const Line& line : lines) {
      texts.push_back(std::string(1, "?VIWE"[line.category]) + " " + line.source + ": " + line.text);
    }
    return texts;
  }

  std::vector<Line> lines;

 private:
  std::mutex mutex_;  // several threads may log
};

}  // namespace varnel::test
