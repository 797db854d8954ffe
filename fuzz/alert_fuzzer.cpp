// Alert records with values from anywhere: one that fits is exact to the byte; one that does not keeps its bytes and
// every literal part (the first field, the keys, rc= and ca=), and its values are whole or shortened and end in "...".
// Input: a byte for the record; then for each of its values four bytes of a number, or of a text a byte for its width
// (odd: wide), how often it is repeated, its length, and as many bytes.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cwchar>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "core/alerts.h"
#include "core/vss_call.h"
#include "fuzz/fuzz_support.h"
#include "tests/support/alert_parts.h"
#include "tests/support/recording_log.h"
#include "text/unicode.h"

namespace {

using namespace varnel;
using fuzz::Require;
using test::AlertParts;
using test::AlertValue;

constexpr std::string_view kDots = "...";
constexpr std::size_t kLongText = 2 * alert::kRecordBytes;  // longer ones only cost time

// One value, with the text that belongs into the record.
struct Value {
  bool isText = false;
  bool isWide = false;
  std::uint32_t number = 0;
  std::string narrow;
  std::wstring wide;
  std::string expected;

  FormatArgument Argument() const {
    if (!isText) return {number};
    return isWide ? FormatArgument(wide) : FormatArgument(narrow);
  }
};

std::string WriteNumber(AlertValue kind, std::uint32_t number) {
  char text[16];
  if (kind == AlertValue::decimal) {
    std::snprintf(text, sizeof text, "%d", static_cast<int>(number));
  } else {
    std::snprintf(text, sizeof text, "%x", number);
  }
  return text;
}

Value ReadValue(fuzz::Input& input, AlertValue kind) {
  Value value;
  value.isText = kind == AlertValue::text;
  if (!value.isText) {
    value.number = input.Number();
    value.expected = WriteNumber(kind, value.number);
    return value;
  }
  value.isWide = (input.Byte() & 1U) != 0;
  const std::size_t repeats = input.Byte();
  const std::string_view piece = input.Take(input.Byte());
  for (std::size_t i = 0; i < repeats && value.narrow.size() < kLongText; ++i) value.narrow += piece;
  value.wide = fuzz::WideFrom(value.narrow);
  value.expected = value.isWide ? WideToUtf8Lossy(value.wide) : value.narrow;
  return value;
}

bool IsUtf8(std::string_view text) {
  try {
    Utf8ToWide(text);
    return true;
  } catch (const std::range_error&) {
    return false;
  }
}

// The places behind a value that begins at `at`: it stands there whole, or its beginning and the dots do.
void AddEnds(std::string_view record, std::size_t at, const Value& value, std::set<std::size_t>& ends) {
  const std::string_view rest = record.substr(at);
  const std::string_view text = value.expected;
  if (rest.starts_with(text)) ends.insert(at + text.size());
  if (!value.isText || text.size() <= kDots.size()) return;  // dots would not be shorter
  for (std::size_t kept = 0; kept <= text.size() && kept <= rest.size(); ++kept) {
    if (rest.substr(kept).starts_with(kDots)) ends.insert(at + kept + kDots.size());
    if (kept == text.size() || kept == rest.size() || text[kept] != rest[kept]) break;
  }
}

// Whether the record is its literal parts in order with those values between them.
bool Matches(std::string_view record, const AlertParts& parts, const std::vector<Value>& values) {
  std::set<std::size_t> places = {0};
  for (std::size_t i = 0; i < parts.literals.size(); ++i) {
    const std::string& literal = parts.literals[i];
    std::set<std::size_t> next;
    for (const std::size_t at : places) {
      if (!record.substr(at).starts_with(literal)) continue;
      if (i == values.size()) {
        next.insert(at + literal.size());
      } else {
        AddEnds(record, at + literal.size(), values[i], next);
      }
    }
    places = std::move(next);
  }
  return places.contains(record.size());
}

void CheckShortened(const AlertRecord& record, const std::string& formatted, const AlertParts& parts,
                    const std::vector<Value>& values) {
  Require(formatted.size() < record.bytes, "a record keeps its bytes");
  Require(Matches(formatted, parts, values), "only values give way, and end in dots");
  const bool valid = std::all_of(values.begin(), values.end(), [](const Value& v) { return IsUtf8(v.expected); });
  if (!valid) return;
  Require(IsUtf8(formatted), "no character is cut in half");
  Require(formatted.size() + kDots.size() + 1 >= record.bytes, "no more is cut than must be");
}

void CheckWritten(const AlertRecord& record, const std::vector<FormatArgument>& arguments,
                  const std::string& formatted) {
  test::RecordingLog log;
  const ScopedLog scopedLog(log);
  std::string details = "before;\n";
  test::WriteAlertWith(record, arguments, details);
  Require(details == "before;\n" + formatted + record.ending, "a record is appended with its ending");
  Require(log.lines.size() == 1, "a record is logged once");
  Require(log.lines.front().category == record.category, "at its own level");
  if (!IsUtf8(formatted)) return;
  const std::wstring_view blanks = std::wstring_view(record.logFormat).substr(0, std::wcslen(record.logFormat) - 2);
  // The log takes texts as C strings.
  Require(log.lines.front().text == WideToUtf8(blanks) + formatted.substr(0, formatted.find('\0')),
          "a record is logged as it is appended");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const AlertRecord& record = *alert::All()[input.Byte() % alert::All().size()];
  const AlertParts parts = test::PartsOf(record);
  std::vector<Value> values;
  for (const AlertValue kind : parts.values) values.push_back(ReadValue(input, kind));

  std::vector<FormatArgument> arguments;
  std::vector<std::string> texts;
  for (const Value& value : values) {
    arguments.push_back(value.Argument());
    texts.push_back(value.expected);
  }
  const std::string whole = parts.Join(texts);
  const std::string formatted = test::FormatAlertWith(record, arguments);
  if (whole.size() < record.bytes) {
    Require(formatted == whole, "a record that fits is exact");
  } else {
    CheckShortened(record, formatted, parts, values);
  }
  CheckWritten(record, arguments, formatted);
  return 0;
}
