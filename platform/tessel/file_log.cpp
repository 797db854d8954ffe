#include "platform/tessel/FileLog.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <ctime>
#include <fstream>
#include <mutex>
#include <system_error>

#include "platform/format.h"
#include "platform/tessel/log_sink.h"
#include "platform/unicode.h"

namespace varnel {
namespace {

std::atomic<LogSink*> currentSink{nullptr};

std::wstring_view TextOf(const wchar_t* text) {
  return text == nullptr ? std::wstring_view() : text;
}

char LetterOf(int category) {
  switch (category) {
    case CFileLog::Verbose:
      return 'V';
    case CFileLog::Information:
      return 'I';
    case CFileLog::Warning:
      return 'W';
    case CFileLog::Error:
      return 'E';
    default:
      return '?';
  }
}

// Local time, "2026-11-20 18:52:44.123".
std::string TimeStamp(std::chrono::system_clock::time_point now) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto sinceEpoch = std::chrono::floor<std::chrono::milliseconds>(now).time_since_epoch();
  char text[32] = "";
  if (const std::tm* local = std::localtime(&seconds)) std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", local);
  return text + FormatNarrow(".%03d", {(sinceEpoch % std::chrono::seconds(1)).count()});
}

// A line break of the text must not look like the start of another line of the log: what follows it is indented, and
// one at the very end is dropped, for the line ends there anyway.
std::string KeepToOneLine(std::string_view text) {
  text = text.substr(0, text.find_last_not_of("\r\n") + 1);
  std::string result;
  result.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') continue;
    if (text[i] == '\r' || text[i] == '\n') {
      result += "\n    ";
    } else {
      result += text[i];
    }
  }
  return result;
}

class FileSink final : public LogSink {
 public:
  FileSink(const std::filesystem::path& path, int lowestCategory) : lowestCategory_(lowestCategory) {
    errno = 0;
    file_.open(path, std::ios::app);
    if (!file_) {
      throw std::system_error(errno == 0 ? EIO : errno, std::generic_category(),
                              "cannot open the log file " + WideToUtf8Lossy(path.wstring()));
    }
  }

  int LowestCategory() const override { return lowestCategory_; }

  void Write(int category, std::wstring_view source, int line, std::wstring_view text) override {
    const std::string message = KeepToOneLine(WideToUtf8Lossy(text));
    const std::string name = WideToUtf8Lossy(source);
    const std::lock_guard<std::mutex> lock(mutex_);
    file_ << TimeStamp(std::chrono::system_clock::now()) << ' ' << LetterOf(category) << ' ' << name << '(' << line
          << ") " << message << '\n'
          << std::flush;
  }

 private:
  const int lowestCategory_;
  std::mutex mutex_;  // lines of two threads do not mix; std::localtime's result is shared too
  std::ofstream file_;
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
  const std::wstring text = varnel::FormatWideV(varnel::TextOf(format), arguments);
  va_end(arguments);
  sink->Write(category, varnel::TextOf(source), line, text);
}
