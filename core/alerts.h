// The alert records of the error-details argument, which the array parses.
#pragma once

#include <initializer_list>
#include <span>
#include <string>
#include <string_view>

#include "core/logging.h"
#include "text/conversion.h"
#include "text/format.h"

namespace varnel {

/// One record; core/alert_records.inc says what its fields mean.
struct AlertRecord {
  const char* tag;
  const char* ending;
  int category;
  const wchar_t* logFormat;
  std::size_t bytes;  ///< of the whole record with its terminator
  const char* format;
};

namespace alert {

inline constexpr std::size_t kRecordBytes = 2048;
inline constexpr std::size_t kHyperVRecordBytes = 1024;

#define VARNEL_ALERT(name, ...) inline constexpr AlertRecord name = {__VA_ARGS__};
#include "core/alert_records.inc"
#undef VARNEL_ALERT

/// Every record, in the order of the list.
std::span<const AlertRecord* const> All();

}  // namespace alert

/// Where a record goes: the error details, and the log under a source name and the line that names the record.
struct AlertTarget {
  AlertTarget(std::string& details, const Logger& logger = kLog, int sourceLine = __builtin_LINE())
      : errorDetails(details), log(logger), line(sourceLine) {}
  std::string& errorDetails;
  const Logger& log;
  int line;
};

/// The record with these arguments (after the tag). Within its bytes: the longest inserted text gives way and then
/// ends in "...", the first field and the rc= and ca= fields stay whole.
std::string FormatAlert(const AlertRecord& record, std::initializer_list<FormatArgument> arguments);
/// Formats, logs and appends the record with its ending to the error details.
void WriteAlert(const AlertRecord& record, std::initializer_list<FormatArgument> arguments, const AlertTarget& target);

namespace detail {
template <const AlertRecord& record, class... Arguments>
constexpr bool RecordTakes() {
  return record.tag == nullptr ? FormatTakes<Arguments...>(std::string_view(record.format))
                               : FormatTakes<const char*, Arguments...>(std::string_view(record.format));
}
}  // namespace detail

/// The same for a record of the list: arguments that it does not take do not compile.
template <const AlertRecord& record, class... Arguments>
void WriteAlert(const AlertTarget& target, const Arguments&... arguments) {
  static_assert(detail::RecordTakes<record, Arguments...>(), "the record does not take these arguments");
  WriteAlert(record, {FormatArgument(arguments)...}, target);
}

}  // namespace varnel
