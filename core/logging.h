// Log lines with the place they are written at. Nothing is evaluated beyond the arguments while nobody listens.
#pragma once

#include <string>
#include <type_traits>

#include "platform/tessel/FileLog.h"
#include "platform/win32.h"

namespace varnel {

/// A wide printf format and the line that names it. %s takes wide text, %S narrow text.
struct LogFormat {
  // std::source_location would say the same, but Clang 14 has none.
  LogFormat(const wchar_t* format, int sourceLine = __builtin_LINE()) noexcept : text(format), line(sourceLine) {}
  const wchar_t* text;
  int line;
};

/// The log lines of one source file name, as the support engineer filters them.
class Logger {
 public:
  explicit constexpr Logger(const wchar_t* source) noexcept : source_(source) {}

  template <class... Arguments>
  void Verbose(LogFormat format, const Arguments&... arguments) const {
    Write(CFileLog::Verbose, format, arguments...);
  }
  template <class... Arguments>
  void Info(LogFormat format, const Arguments&... arguments) const {
    Write(CFileLog::Information, format, arguments...);
  }
  template <class... Arguments>
  void Warning(LogFormat format, const Arguments&... arguments) const {
    Write(CFileLog::Warning, format, arguments...);
  }
  template <class... Arguments>
  void Error(LogFormat format, const Arguments&... arguments) const {
    Write(CFileLog::Error, format, arguments...);
  }
  template <class... Arguments>
  void Write(int category, LogFormat format, const Arguments&... arguments) const {
    if (CFileLog* log = CFileLog::GetInstance()) {
      log->Log(category, source_, format.line, format.text, Plain(arguments)...);
    }
  }

 private:
  // The log is a C variadic function: text travels as a pointer, numbers as 32 bits.
  static const wchar_t* Plain(const std::wstring& text) { return text.c_str(); }
  static const wchar_t* Plain(const wchar_t* text) { return text; }
  static const char* Plain(const std::string& text) { return text.c_str(); }
  static const char* Plain(const char* text) { return text; }
  template <class Number>
  requires std::is_integral_v<Number>
  static unsigned int Plain(Number number) { return static_cast<unsigned int>(number); }

  const wchar_t* source_;
};

inline constexpr Logger kLog(L"varnel");

}  // namespace varnel
