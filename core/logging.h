// Log lines with the place they are written at. While nobody listens nothing is formatted or converted. A format that
// does not fit its arguments does not compile.
#pragma once

#include <string>
#include <string_view>
#include <type_traits>

#include "platform/tessel/FileLog.h"
#include "text/conversion.h"
#include "text/unicode.h"

namespace varnel {

/// Narrow text (UTF-8) for a conversion that takes wide text, and the reverse: converted when the line is written.
struct Widened {
  std::string_view text;
};
struct Narrowed {
  std::wstring_view text;
};
template <>
inline constexpr ArgumentKind kArgumentKind<Widened> = ArgumentKind::wideText;
template <>
inline constexpr ArgumentKind kArgumentKind<Narrowed> = ArgumentKind::narrowText;

/// A wide printf format and the line that names it. %s takes wide text, %S narrow text.
template <class... Arguments>
struct LogFormat {
  // std::source_location would say the same, but Clang 14 has none.
  template <std::size_t N>
  consteval LogFormat(const wchar_t (&format)[N], int sourceLine = __builtin_LINE()) : text(format), line(sourceLine) {
    if (!FormatTakes<Arguments...>(std::wstring_view(format))) throw "the format does not fit its arguments";
  }
  const wchar_t* text;
  int line;
};

/// The log lines of one source file name, as the support engineer filters them.
class Logger {
 public:
  template <class... Arguments>
  using Format = LogFormat<std::type_identity_t<Arguments>...>;

  explicit constexpr Logger(const wchar_t* source) noexcept : source_(source) {}

  /// Whether somebody listens. Ask before making what only a log line needs.
  static bool IsOn() { return CFileLog::GetInstance() != nullptr; }

  template <class... Arguments>
  void Verbose(Format<Arguments...> format, const Arguments&... arguments) const {
    Write(CFileLog::Verbose, format.line, format, arguments...);
  }
  template <class... Arguments>
  void Info(Format<Arguments...> format, const Arguments&... arguments) const {
    Write(CFileLog::Information, format.line, format, arguments...);
  }
  template <class... Arguments>
  void Warning(Format<Arguments...> format, const Arguments&... arguments) const {
    Write(CFileLog::Warning, format.line, format, arguments...);
  }
  template <class... Arguments>
  void Error(Format<Arguments...> format, const Arguments&... arguments) const {
    Write(CFileLog::Error, format.line, format, arguments...);
  }
  /// For lines that report for somebody else: `line` is the caller's.
  template <class... Arguments>
  void Write(int category, int line, Format<Arguments...> format, const Arguments&... arguments) const {
    if (CFileLog* log = CFileLog::GetInstance()) {
      log->Log(category, source_, line, format.text, Plain(Held(arguments))...);
    }
  }
  /// For a format from a table, which was checked there: it takes one narrow text.
  void WriteText(int category, int line, const wchar_t* format, const std::string& text) const {
    if (CFileLog* log = CFileLog::GetInstance()) log->Log(category, source_, line, format, text.c_str());
  }

 private:
  // What must live as long as the line is written.
  template <class T>
  static const T& Held(const T& argument) {
    return argument;
  }
  static std::wstring Held(std::wstring_view text) { return std::wstring(text); }
  static std::wstring Held(Widened argument) { return Utf8ToWideLossy(argument.text); }
  static std::string Held(Narrowed argument) { return WideToUtf8Lossy(argument.text); }

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
