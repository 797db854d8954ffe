// Where the stand-in of CFileLog writes. The maker's own library brings its own destination and does without this.
#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>

#include "platform/export.h"
#include "platform/tessel/FileLog.h"

namespace varnel {

/// How a category (CFileLog::Category) is written in a line.
inline char LetterOf(int category) {
  constexpr std::string_view kLetters = "VIWE";
  const bool isKnown = category >= CFileLog::Verbose && category <= CFileLog::Error;
  return isKnown ? kLetters[static_cast<std::size_t>(category - CFileLog::Verbose)] : '?';
}

/// Lines that never reached a log.
struct LostLines {
  std::size_t count = 0;   ///< how many
  std::error_code reason;  ///< of the first
};

/// Called by every thread that logs, by several at once.
class LogSink {
 public:
  virtual ~LogSink() = default;
  /// The lowest category (CFileLog::Category) that is written; lines below it are never formatted.
  virtual int LowestCategory() const = 0;
  /// Takes one line, without its end. \param category a CFileLog::Category. \param source and \param line say which
  /// part of the library speaks; a line of 0 is none. \param text may hold any character. Must not throw.
  virtual void Write(int category, std::wstring_view source, int line, std::wstring_view text) = 0;
  /// There was no memory for a line.
  virtual void Lose() noexcept {}
  /// For a sink that keeps count.
  virtual LostLines Lost() const { return {}; }
};

/// Makes `sink` the process's log for the guard's lifetime; `CFileLog::GetInstance()` is null without one. Belongs
/// where no other thread logs.
class VARNEL_API ScopedLog {
 public:
  /// Borrows `sink`, which must outlive the guard. The log before it comes back at the guard's end.
  explicit ScopedLog(LogSink& sink) noexcept;
  ~ScopedLog();
  ScopedLog(const ScopedLog&) = delete;
  ScopedLog& operator=(const ScopedLog&) = delete;

 private:
  LogSink* previous_;
};

/// Appends lines to a file as UTF-8, each whole: time, category, source(line), text. Counts the lines that the file
/// does not take. Throws std::system_error when the file cannot be opened.
VARNEL_API std::unique_ptr<LogSink> OpenLogFile(const std::filesystem::path& path, int lowestCategory);

}  // namespace varnel
