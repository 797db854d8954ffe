#include "platform/tessel/FileLog.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <ctime>
#include <fstream>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <system_error>

#include "platform/tessel/log_sink.h"
#include "text/format.h"
#include "text/unicode.h"

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

// Local time, "2026-11-20 18:52:44.123". Asks for the time zone once a second.
class TimeStamp {
 public:
  void AppendTo(std::string& text) {
    const auto now = std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
    const std::time_t second = std::chrono::system_clock::to_time_t(now);
    if (second != second_) Render(second);
    const auto fraction = now - std::chrono::floor<std::chrono::seconds>(now);
    const std::string milliseconds = std::to_string(fraction.count() + 1000);  // a leading digit too many
    text.append(rendered_).append(1, '.').append(milliseconds, 1);
  }

 private:
  void Render(std::time_t second) {
    static std::mutex mutex;  // the result of std::localtime is the process's
    const std::lock_guard<std::mutex> lock(mutex);
    char text[32] = "";
    if (const std::tm* local = std::localtime(&second)) std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", local);
    rendered_ = text;
    second_ = second;
  }

  std::time_t second_ = -1;
  std::string rendered_;  // of second_
};

// A line break of the text must not look like the start of another line of the log: what follows it is indented, and
// one at the very end is dropped, for the line ends there anyway.
void AppendAsOneLine(std::string& line, std::wstring_view text) {
  text = text.substr(0, text.find_last_not_of(L"\r\n") + 1);
  const auto isBreak = [](wchar_t c) { return c == L'\r' || c == L'\n'; };
  for (;;) {
    const auto end = static_cast<std::size_t>(std::find_if(text.begin(), text.end(), isBreak) - text.begin());
    AppendUtf8Lossy(line, text.substr(0, end));
    if (end == text.size()) return;
    line += "\n    ";
    text.remove_prefix(end + (text.substr(end, 2) == L"\r\n" ? 2 : 1));
  }
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
    timeStamp_.AppendTo(line_);
    line_.append(1, ' ').append(1, LetterOf(category)).append(1, ' ');
    AppendUtf8Lossy(line_, source);
    line_.append(1, '(').append(std::to_string(line)).append(") ");
    AppendAsOneLine(line_, text);
    line_ += '\n';
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
  TimeStamp timeStamp_;
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
