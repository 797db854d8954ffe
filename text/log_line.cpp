#include "text/log_line.h"

#include <algorithm>
#include <chrono>
#include <mutex>

#include "text/unicode.h"

namespace varnel {
namespace {

std::string LocalTime(std::time_t second) {
  static std::mutex mutex;  // the result of std::localtime is the process's
  const std::lock_guard<std::mutex> lock(mutex);
  char text[32] = "";
  if (const std::tm* local = std::localtime(&second)) std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", local);
  return text;
}

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

}  // namespace

void LogLines::AppendTo(std::string& log, char category, std::wstring_view source, int line, std::wstring_view text) {
  AppendTime(log);
  log.append(1, ' ').append(1, category).append(1, ' ');
  AppendUtf8Lossy(log, source);
  log.append(1, '(').append(std::to_string(line)).append(") ");
  AppendAsOneLine(log, text);
  log += '\n';
}

// Local time, "2026-11-20 18:52:44.123". Asks for the time zone once a second.
void LogLines::AppendTime(std::string& log) {
  const auto now = std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
  const std::time_t second = std::chrono::system_clock::to_time_t(now);
  if (second != second_) {
    rendered_ = LocalTime(second);
    second_ = second;
  }
  const auto fraction = now - std::chrono::floor<std::chrono::seconds>(now);
  const std::string milliseconds = std::to_string(fraction.count() + 1000);  // a leading digit too many
  log.append(rendered_).append(1, '.').append(milliseconds, 1);
}

}  // namespace varnel
