// The log of a run, kept in memory.
#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <string>

#include "platform/tessel/log_sink.h"
#include "text/log_line.h"

namespace varnelctl {

/// Keeps every line as a log file has it. Of a log that grows too large it keeps the beginning and the end.
class KeptLog {
 public:
  /// How much is kept, in bytes of whole lines.
  struct Room {
    std::size_t beginning = std::size_t{4} << 20;
    std::size_t end = std::size_t{12} << 20;
  };
  KeptLog() : KeptLog(Room{}) {}
  explicit KeptLog(const Room& room) : room_(room) {}

  void Add(int category, std::wstring_view source, int line, std::wstring_view text);
  /// A line that there was no memory for.
  void Lose() noexcept;
  /// The lines, with one that says how many are left out where some are.
  std::string Text() const;

 private:
  const Room room_;
  mutable std::mutex mutex_;  // of what follows
  varnel::LogLines lines_;
  std::string beginning_;
  std::deque<std::string> end_;
  std::size_t endBytes_ = 0;
  std::size_t leftOut_ = 0;
};

/// A sink whose lines `kept` (borrowed) takes, all of them, and `sink` those that it wants; it may be null.
std::unique_ptr<varnel::LogSink> MakeKeepingLog(std::unique_ptr<varnel::LogSink> sink, KeptLog& kept);

}  // namespace varnelctl
