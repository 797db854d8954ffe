// Alert records with values from anywhere: one that fits is exact to the byte; one that does not keeps its bytes and
// every literal part (the first field, the keys, rc= and ca=), and its values are whole or shortened and end in "...".
// Input: a byte for the record, which beyond their number has room for little text; then for each of its values four
// bytes of a number, or of a text a byte for its width (odd: wide), how often it is repeated, its length, and as many
// bytes.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cwchar>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/alerts.h"
#include "core/vss_call.h"
#include "fuzz/fuzz_support.h"
#include "platform/tessel/log_sink.h"
#include "tests/support/alert_parts.h"
#include "text/unicode.h"

namespace {

using namespace varnel;
using fuzz::Require;
using test::AlertParts;
using test::AlertValue;

constexpr std::string_view kDots = "...";

// The log's last line as it came: converting it would take longer than writing it.
class LastLine final : public LogSink {
 public:
  int LowestCategory() const override { return CFileLog::Verbose; }
  void Write(int category, std::wstring_view /*source*/, int /*line*/, std::wstring_view text) override {
    ++lines;
    lastCategory = category;
    last = text;
  }

  int lines = 0;
  int lastCategory = 0;
  std::wstring last;
};

// One value, with the text that belongs into the record.
struct Value {
  bool isText = false;
  bool isWide = false;
  std::uint32_t number = 0;
  std::wstring wide;
  std::string expected;

  FormatArgument Argument() const {
    if (!isText) return {number};
    return isWide ? FormatArgument(wide) : FormatArgument(expected);
  }
  bool IsUtf8() const { return isWide || fuzz::IsUtf8(expected); }
};

std::string WriteNumber(AlertValue kind, std::uint32_t number) {
  if (kind == AlertValue::decimal) return std::to_string(static_cast<std::int32_t>(number));
  char text[16];
  std::snprintf(text, sizeof text, "%x", number);
  return text;
}

// Texts are repeated as long as there is room, which they use up: more would only cost time.
Value ReadValue(fuzz::Input& input, AlertValue kind, std::size_t& room) {
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
  for (std::size_t i = 0; i < repeats && value.expected.size() < room; ++i) value.expected += piece;
  room -= std::min(room, value.expected.size());
  if (!value.isWide) return value;
  value.wide = fuzz::WideFrom(value.expected);
  value.expected = WideToUtf8Lossy(value.wide);
  return value;
}

// The places after a value that begins at `at`: it stands there whole, or its beginning and the dots do.
void AddEnds(std::string_view record, std::size_t at, const Value& value, std::set<std::size_t>& ends) {
  const std::string_view rest = record.substr(at);
  const std::string_view text = value.expected;
  const auto same =
      static_cast<std::size_t>(std::mismatch(rest.begin(), rest.end(), text.begin(), text.end()).first - rest.begin());
  if (same == text.size()) ends.insert(at + same);
  if (!value.isText || text.size() <= kDots.size()) return;  // dots would not be shorter
  for (std::size_t kept = rest.find(kDots); kept <= same; kept = rest.find(kDots, kept + 1)) {
    ends.insert(at + kept + kDots.size());
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

void CheckContent(const AlertRecord& record, std::string_view formatted, const AlertParts& parts,
                  const std::vector<Value>& values) {
  std::vector<std::string> texts;
  texts.reserve(values.size());
  for (const Value& value : values) texts.push_back(value.expected);
  const std::string whole = parts.Join(texts);
  if (whole.size() < record.bytes) {
    Require(formatted == whole, "a record that fits is exact");
    return;
  }
  Require(formatted.size() < record.bytes, "a record keeps its bytes");
  Require(Matches(formatted, parts, values), "only values give way, and end in dots");
  if (!std::all_of(values.begin(), values.end(), [](const Value& value) { return value.IsUtf8(); })) return;
  Require(fuzz::IsUtf8(formatted), "no character is cut in half");
  Require(formatted.size() + kDots.size() + 1 >= record.bytes, "no more is cut than must be");
}

void CheckLogged(const AlertRecord& record, std::string_view formatted, const LastLine& log) {
  Require(log.lines == 1, "a record is logged once");
  Require(log.lastCategory == record.category, "at its own level");
  const std::wstring_view line = log.last;
  const std::wstring_view blanks = std::wstring_view(record.logFormat).substr(0, std::wcslen(record.logFormat) - 2);
  // The log takes texts as C strings.
  const std::wstring text = Utf8ToWideLossy(formatted.substr(0, formatted.find('\0')));
  Require(line.starts_with(blanks) && line.substr(blanks.size()) == text, "a record is logged as it is appended");
}

// Appends the record to error details. Returns what then stands between the text before it and its ending.
std::string_view Write(const AlertRecord& record, const std::vector<Value>& values, std::string& details) {
  std::vector<FormatArgument> arguments;
  arguments.reserve(values.size());
  for (const Value& value : values) arguments.push_back(value.Argument());
  const std::string before = details;
  test::WriteAlertWith(record, arguments, details);
  std::string_view written = details;
  Require(written.starts_with(before), "what was there stays");
  written.remove_prefix(before.size());
  Require(written.ends_with(record.ending), "a record is appended with its ending");
  written.remove_suffix(std::string_view(record.ending).size());
  return written;
}

std::vector<AlertParts> PartsOfAll() {
  std::vector<AlertParts> all;
  for (const AlertRecord* record : alert::All()) all.push_back(test::PartsOf(*record));
  return all;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::vector<AlertParts> allParts = PartsOfAll();
  static LastLine log;
  static const ScopedLog scopedLog(log);
  log.lines = 0;

  fuzz::Input input(data, size);
  const unsigned choice = input.Byte();
  const std::size_t index = choice % allParts.size();
  const AlertParts& parts = allParts[index];
  AlertRecord record = *alert::All()[index];
  // Texts are cut in the same way where there is less room for them, and sooner.
  if (choice != index) record.bytes = 40 + parts.Join(std::vector<std::string>(parts.values.size())).size();
  std::size_t room = 2 * record.bytes;
  std::vector<Value> values;
  for (const AlertValue kind : parts.values) values.push_back(ReadValue(input, kind, room));

  std::string details = "before;\n";
  const std::string_view formatted = Write(record, values, details);
  CheckContent(record, formatted, parts, values);
  CheckLogged(record, formatted, log);
  return 0;
}
