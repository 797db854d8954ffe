#include "varnelctl/explanation/records.h"

#include "varnelctl/explanation/advice.h"

namespace varnelctl {
namespace {

constexpr std::string_view kReason = "rc=";
constexpr std::string_view kAction = "ca=";
constexpr std::string_view kUnendedAction = "ca=ContactSupport";  // whatever comes next follows it directly
constexpr DWORD kFailedCall = 1;
constexpr DWORD kSessionMemory = 6;

// The end of the record that starts before `reason`: after the last action that follows it.
std::size_t EndOfRecord(std::string_view text, std::size_t reason) {
  const std::size_t nextReason = std::min(text.find(kReason, reason + 1), text.size());
  std::size_t end = reason;
  const std::string_view before = text.substr(0, nextReason);
  for (std::size_t at = before.find(kAction, reason); at != before.npos; at = before.find(kAction, end)) {
    const bool isUnended = text.substr(at).starts_with(kUnendedAction);
    end = isUnended ? at + kUnendedAction.size() : std::min(text.find_first_of(",;\r\n", at), text.size());
    if (text.substr(end, 2) != ", ") break;
  }
  return end == reason ? nextReason : end;
}

// 0 when it is none that the library writes.
DWORD NumberOf(std::string_view record) {
  DWORD number = 0;
  std::size_t first = record.npos;
  for (const Advice& advice : AllAdvice()) {
    if (advice.kind != AdviceKind::Record) continue;
    const std::size_t at = record.find(advice.name);
    if (at == record.npos) continue;
    if (advice.number == kFailedCall) return kFailedCall;  // what it calls may look like another record's name
    if (at >= first) continue;
    first = at;
    number = advice.number;
  }
  const bool isMallocOfDevices = number == kSessionMemory && record.find("malloc()") == record.npos;
  return isMallocOfDevices ? kSessionMemory + 1 : number;
}

// Where a value ends: before the next field, as a text may hold commas itself.
std::size_t EndOfValue(std::string_view text, std::size_t value) {
  for (std::size_t at = text.find(", ", value); at != text.npos; at = text.find(", ", at + 1)) {
    const std::size_t afterKey = text.find_first_of(" ,;=", at + 2);
    if (afterKey != text.npos && text[afterKey] == '=') return at;
  }
  return text.size();
}

}  // namespace

std::vector<RecordText> RecordsIn(std::string_view text) {
  std::vector<RecordText> records;
  std::size_t begin = 0;
  for (std::size_t reason = text.find(kReason); reason != text.npos; reason = text.find(kReason, begin)) {
    const std::size_t end = EndOfRecord(text, reason);
    const std::string_view record = text.substr(begin, end - begin);
    if (const DWORD number = NumberOf(record)) records.push_back({number, record});
    begin = end;
  }
  return records;
}

std::string_view FieldOf(const RecordText& record, std::string_view key) {
  const std::string_view text = record.text;
  for (std::size_t at = text.find(key); at != text.npos; at = text.find(key, at + 1)) {
    const std::size_t value = at + key.size();
    const bool isKey = (at == 0 || text[at - 1] == ' ') && value < text.size() && text[value] == '=';
    if (isKey) return text.substr(value + 1, EndOfValue(text, value) - value - 1);
  }
  return {};
}

std::vector<RecordField> FieldsOf(const RecordText& record) {
  const std::string_view text = record.text.substr(0, record.text.find_last_not_of(" ;\r\n") + 1);
  std::vector<RecordField> fields;
  for (std::size_t at = text.find_first_not_of(" ,;\n"); at != text.npos;) {
    const std::size_t afterKey = text.find_first_of("=,;", at);
    if (afterKey == text.npos) break;
    std::size_t end = afterKey + 1;
    if (text[afterKey] == '=') {
      end = EndOfValue(text, afterKey + 1);
      fields.push_back({text.substr(at, afterKey - at), text.substr(afterKey + 1, end - afterKey - 1)});
    }
    at = text.find_first_not_of(" ,;\n", end);
  }
  return fields;
}

std::string_view CallOf(const RecordText& record) {
  const std::size_t end = record.text.find("=Failed, error=");
  if (record.number != kFailedCall || end == record.text.npos) return {};
  const std::string_view before = record.text.substr(0, end);
  const std::size_t begin = before.find_last_of(",;\n");
  return begin == before.npos ? before : before.substr(before.find_first_not_of(' ', begin + 1));
}

std::string_view MethodOf(std::string_view call) {
  const std::string_view name = call.substr(0, call.find('('));
  const std::size_t before = name.find_last_of(">:");
  return before == name.npos ? name : name.substr(before + 1);
}

}  // namespace varnelctl
