#include "platform/tessel/FileLog.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <fstream>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <system_error>

#include "platform/tessel/log_sink.h"
#include "text/format.h"
#include "text/log_line.h"
#include "text/unicode.h"

namespace varnel {
namespace {

std::atomic<LogSink*> currentSink{nullptr};

std::wstring_view TextOf(const wchar_t* text) {
  return text == nullptr ? std::wstring_view() : text;
}

// Nothing when there is no memory for the line: what it tells of goes on without it.
std::optional<std::wstring> FormatLine(const wchar_t* format, std::va_list arguments) {
  try {
    return FormatWideV(TextOf(format), arguments);
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
}

class FileSink final : public LogSink {
 public:
  FileSink(const std::filesystem::path& path, int lowestCategory) : lowestCategory_(lowestCategory) {
    file_.rdbuf()->pubsetbuf(nullptr, 0);
    errno = 0;
    file_.open(path, std::ios::app);
    if (!file_) {
      throw std::system_error(errno == 0 ? EIO : errno, std::generic_category(),
                              "cannot open the log file " + WideToUtf8Lossy(WideFileName(path.native())));
    }
  }

  int LowestCategory() const override { return lowestCategory_; }

  void Write(int category, std::wstring_view source, int line, std::wstring_view text) override {
    const std::lock_guard<std::mutex> lock(mutex_);
    try {
      WriteLine(category, source, line, text);
    } catch (const std::bad_alloc&) {
      Count(ENOMEM);
    }
  }

  void Lose() noexcept override {
    const std::lock_guard<std::mutex> lock(mutex_);
    Count(ENOMEM);
  }

  LostLines Lost() const override {
    const std::lock_guard<std::mutex> lock(mutex_);
    return lost_;
  }

 private:
  void WriteLine(int category, std::wstring_view source, int line, std::wstring_view text) {
    line_.assign(torn_ ? "\n" : "");
    lines_.AppendTo(line_, LetterOf(category), source, line, text);
    // Each line leaves the process at once, as there is no buffer: what the log says last may be all that is known of a
    // crash. One that fails does not keep back those after it.
    errno = 0;
    torn_ = !file_.write(line_.data(), static_cast<std::streamsize>(line_.size()));
    if (!torn_) return;
    Count(errno == 0 ? EIO : errno);
    file_.clear();
  }

  // What is lost goes on without its line.
  void Count(int error) noexcept {
    if (lost_.count++ == 0) lost_.reason.assign(error, std::generic_category());
  }

  const int lowestCategory_;
  mutable std::mutex mutex_;  // lines of two threads do not mix
  std::ofstream file_;
  LogLines lines_;
  std::string line_;  // room that is kept from line to line
  LostLines lost_;
  bool torn_ = false;  // a part of the line before may be in the file
};

}  // namespace

ScopedLog::ScopedLog(LogSink& sink) noexcept : previous_(currentSink.exchange(&sink)) {}

ScopedLog::~ScopedLog() {
  currentSink = previous_;
}

std::unique_ptr<LogSink> OpenLogFile(const std::filesystem::path& path, int lowestCategory) {
  return std::make_unique<FileSink>(path, lowestCategory);
}

}  // namespace varnel

CFileLog* CFileLog::GetInstance() {
  static CFileLog instance;
  return varnel::currentSink == nullptr ? nullptr : &instance;
}

void CFileLog::Log(int category, const wchar_t* source, int line, const wchar_t* format, ...) {
  varnel::LogSink* sink = varnel::currentSink;
  if (sink == nullptr || category < sink->LowestCategory()) return;
  std::va_list arguments;
  va_start(arguments, format);
  const std::optional<std::wstring> text = varnel::FormatLine(format, arguments);
  va_end(arguments);
  if (!text) return sink->Lose();
  sink->Write(category, varnel::TextOf(source), line, *text);
}
