#include "varnelctl/explanation/look_up.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <optional>

#include "core/varnel.h"
#include "platform/vss.h"
#include "simulator/machine/result_names.h"
#include "text/format.h"
#include "text/nearest_name.h"
#include "text/unicode.h"
#include "varnelctl/console/text.h"
#include "varnelctl/explanation/failure.h"
#include "varnelctl/explanation/next_step.h"
#include "varnelctl/explanation/records.h"

namespace varnelctl {
namespace {

using List = std::vector<Explained>;

constexpr DWORD kLargestWin32Code = 0xFFFF;

char LowerCase(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool EqualIgnoringCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return LowerCase(x) == LowerCase(y); });
}

bool StartsWithIgnoringCase(std::string_view text, std::string_view prefix) {
  return EqualIgnoringCase(text.substr(0, prefix.size()), prefix);
}

std::string Hex(DWORD code) {
  return varnel::FormatNarrow("0x%08x", {code});
}

void Add(List& list, Explained explained) {
  const bool isThere =
      std::any_of(list.begin(), list.end(), [&](const Explained& other) { return other.key == explained.key; });
  if (!isThere) list.push_back(std::move(explained));
}

// A code that has a name or a text somewhere, or that is an HRESULT of a failure at least.
std::optional<Explained> ExplainCode(DWORD code) {
  if (const Advice* advice = FindAdvice(AdviceKind::Code, code)) return AsExplained(*advice);
  const HRESULT hr = static_cast<HRESULT>(code);
  const std::string name = NameOfCode(hr);
  const bool isNamed = !name.empty() && name != varnel::FormatNarrow("Error: 0x%x", {hr});
  const bool isWin32 = (code & ~kLargestWin32Code) == 0x80070000;
  if (!isNamed && (!FAILED(hr) || isWin32)) return std::nullopt;
  return Explained{FindAdvice(advice::kOtherCode), isNamed ? name + " (" + Hex(code) + ")" : Hex(code), Hex(code), {}};
}

// Decimal, with a sign or not, or hexadecimal.
std::optional<std::int64_t> ParseNumber(std::string_view text) {
  const bool hex = StartsWithIgnoringCase(text, "0x");
  if (hex) text.remove_prefix(2);
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, hex ? 16 : 10);
  const bool isWhole = error == std::errc() && end == text.data() + text.size();
  const bool fits = number >= INT32_MIN && number <= std::int64_t{UINT32_MAX} && !(hex && text.starts_with('-'));
  return isWhole && fits ? std::optional(number) : std::nullopt;
}

List ExplainNumber(std::int64_t number) {
  const auto value = static_cast<DWORD>(number);
  for (const AdviceKind kind : {AdviceKind::ExitStatus, AdviceKind::Alert}) {
    if (const Advice* advice = FindAdvice(kind, value)) return {AsExplained(*advice)};
  }
  const DWORD code = value <= kLargestWin32Code ? 0x80070000 | value : value;
  const std::optional<Explained> explained = ExplainCode(code);
  return explained ? List{*explained} : List{};
}

std::string_view Stripped(std::string_view text, std::string_view characters) {
  const std::size_t first = text.find_first_not_of(characters);
  return first == text.npos ? std::string_view() : text.substr(first, text.find_last_not_of(characters) - first + 1);
}

// "exit 12" is "exit:12", and a tag is known without what stands before it in its record.
std::string AsKey(std::string_view text) {
  for (const std::string_view prefix : {"RequestStatus=", "status="}) {
    if (StartsWithIgnoringCase(text, prefix)) return std::string(text.substr(prefix.size()));
  }
  for (const std::string_view prefix : {"exit", "record"}) {
    const bool isParted = text.size() > prefix.size() && (text[prefix.size()] == ' ' || text[prefix.size()] == ':');
    if (!isParted || !StartsWithIgnoringCase(text, prefix)) continue;
    return std::string(prefix) + ":" + std::string(Stripped(text.substr(prefix.size() + 1), " "));
  }
  return std::string(text);
}

// Everything of this name: a word may be one of several kinds.
List ExplainName(std::string_view text) {
  const std::string name = AsKey(text);
  List list;
  for (const Advice& advice : AllAdvice()) {
    const bool isMeant = EqualIgnoringCase(advice.name, name) || EqualIgnoringCase(advice.Key(), name);
    if (isMeant && advice.name != advice::kOtherCode) Add(list, AsExplained(advice));
  }
  if (!list.empty()) return list;
  if (const std::optional<HRESULT> code = CodeCalled(name)) {
    if (const auto explained = ExplainCode(static_cast<DWORD>(*code))) list.push_back(*explained);
  }
  return list;
}

void AddRecord(List& list, const RecordText& record) {
  Explained explained = AsExplained(*FindAdvice(AdviceKind::Record, record.number));
  const std::string text = OneLine(FromLibrary(Stripped(record.text, " ;\r\n")));
  explained.particulars.push_back("read: " + Printable(varnel::Utf8ToWideLossy(text)));
  Add(list, std::move(explained));
  for (const std::string_view field : {"error", "WriterError", "ComponentLevelError", "Error", "ErrMsg"}) {
    const std::optional<HRESULT> code = CodeCalled(FieldOf(record, field));
    if (!code) continue;
    std::optional<Explained> reason = ExplainCode(static_cast<DWORD>(*code));
    const std::string wants = *code == VSS_E_BAD_STATE ? WantsOf(MethodOf(CallOf(record))) : std::string();
    if (!wants.empty()) reason->particulars = {wants};
    Add(list, *std::move(reason));
  }
}

// Codes, names and numbers with 0x that stand in a text.
void AddWords(List& list, std::string_view text) {
  constexpr std::string_view kWord = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_";
  for (std::size_t begin = text.find_first_of(kWord); begin != text.npos; begin = text.find_first_of(kWord, begin)) {
    const std::size_t end = std::min(text.find_first_not_of(kWord, begin), text.size());
    const std::string_view word = text.substr(begin, end - begin);
    begin = end;
    const bool isNumber = StartsWithIgnoringCase(word, "0x");
    const bool isName = word.find('_') != word.npos;
    if (!isNumber && !isName) continue;
    const std::optional<std::int64_t> number = ParseNumber(word);
    for (Explained& explained : number ? ExplainNumber(*number) : ExplainName(word)) Add(list, std::move(explained));
  }
}

List ExplainText(std::string_view text) {
  List list;
  for (const RecordText& record : RecordsIn(text)) AddRecord(list, record);
  if (list.empty()) AddWords(list, text);
  return list;
}

}  // namespace

Explained AsExplained(const Advice& advice) {
  Explained explained{&advice, advice.Key(), advice.Key(), {}};
  switch (advice.kind) {
    case AdviceKind::ExitStatus:
      explained.title = "exit status " + std::to_string(advice.number);
      break;
    case AdviceKind::Alert:
      explained.title = "alert " + std::to_string(advice.number) + ", " + std::string(advice.name);
      break;
    case AdviceKind::Record:
      explained.title = "alert record " + std::to_string(advice.number) + ", " + std::string(advice.name);
      break;
    case AdviceKind::Code:
      explained.title += " (" + Hex(advice.number) + ")";
      break;
    case AdviceKind::Case:
      break;
  }
  if (advice.kind == AdviceKind::Code && advice.number == static_cast<DWORD>(VSS_E_BAD_STATE)) {
    for (const CallOrder& order : CallOrders()) explained.particulars.push_back(WantsOf(order.call));
  }
  return explained;
}

List LookUp(std::string_view text) {
  text = Stripped(text, " \t\r\n\"'");
  const std::string_view bare = Stripped(text, " .,;:()\"'");
  if (const std::optional<std::int64_t> number = ParseNumber(bare)) return ExplainNumber(*number);
  List list = ExplainName(bare);
  if (list.empty()) list = ExplainName(text);  // "QueryStatus()"
  if (list.empty()) list = ExplainText(text);
  return list;
}

List LookUpOrRefuse(std::string_view text) {
  List list = LookUp(text);
  if (!list.empty()) return list;
  std::vector<std::string_view> names = varnel::simulator::ResultNames();
  for (const Advice& advice : AllAdvice()) {
    if (advice.name != advice::kOtherCode) names.push_back(advice.name);
  }
  const std::string shown = Printable(varnel::Utf8ToWideLossy(text));
  throw UsageError("nothing is known of \"" + shown + "\"" + varnel::DidYouMean(AsKey(Stripped(text, " ")), names) +
                   " (varnelctl explain lists what there is)");
}

}  // namespace varnelctl
