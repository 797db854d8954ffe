#include "varnelctl/explanation/next_step.h"

#include <algorithm>

#include "core/exception.h"
#include "core/varnel.h"
#include "platform/vss.h"
#include "resources/catalog.h"
#include "simulator/machine/result_names.h"
#include "text/format.h"
#include "text/unicode.h"
#include "varnelctl/console/text.h"
#include "varnelctl/explanation/advice.h"
#include "varnelctl/explanation/records.h"

namespace varnelctl {
namespace {

using Records = std::vector<RecordText>;
using Objects = std::span<const ApplicationObject>;

struct Choice {
  std::string key;
  std::string remedy;
};

Choice Of(const Advice* advice) {
  return {advice->Key(), std::string(advice->remedy)};
}

Choice After(const std::string& text, Choice choice) {
  choice.remedy.insert(0, text);
  return choice;
}

Choice OfCase(std::string_view key) {
  return Of(FindAdvice(key));
}

Choice OfStatus(ExitStatus status) {
  return Of(FindAdvice(AdviceKind::ExitStatus, static_cast<DWORD>(status)));
}

const RecordText* Last(const Records& records, DWORD number) {
  const auto found =
      std::find_if(records.rbegin(), records.rend(), [&](const RecordText& record) { return record.number == number; });
  return found == records.rend() ? nullptr : &*found;
}

const RecordText* First(const Records& records, DWORD number) {
  const auto found =
      std::find_if(records.begin(), records.end(), [&](const RecordText& record) { return record.number == number; });
  return found == records.end() ? nullptr : &*found;
}

Choice OfCode(HRESULT code) {
  if (const Advice* advice = FindAdvice(AdviceKind::Code, static_cast<DWORD>(code))) return Of(advice);
  Choice choice = OfCase(advice::kOtherCode);
  choice.key = varnel::FormatNarrow("0x%08x", {code});
  return choice;
}

std::string Shown(std::string_view field) {
  return Printable(varnel::Utf8ToWideLossy(OneLine(FromLibrary(field))));
}

// A machine's component is named by an identifier; people know its name.
std::string NameOfComponent(std::string_view path, Objects objects) {
  std::string shown = Shown(path);
  for (const ApplicationObject& object : objects) {
    const bool isIt = Printable(object.component->fullPath) == shown;
    if (isIt && object.name != shown) return object.name + " (" + shown + ")";
  }
  return shown;
}

// What a writer or a component says of itself outweighs what its alert means in general.
Choice OfFailedWriter(int alertCode, const Records& records, Objects objects) {
  Choice general = Of(FindAdvice(AdviceKind::Alert, static_cast<DWORD>(alertCode)));
  const RecordText* component = First(records, 3);
  const RecordText* record = component == nullptr ? First(records, 2) : component;
  if (record == nullptr) return general;
  const std::optional<HRESULT> code =
      CodeCalled(FieldOf(*record, component == nullptr ? "WriterError" : "ComponentLevelError"));
  if (!code) return general;
  Choice choice = OfCode(*code);
  const std::string subject = component == nullptr ? Shown(FieldOf(*record, "WriterName"))
                                                   : NameOfComponent(FieldOf(*record, "Component"), objects);
  const std::string said = Shown(FieldOf(*record, "ApplicationMsg"));
  choice.remedy = subject + (said.empty() ? ": " : " said \"" + said + "\": ") + choice.remedy;
  return choice;
}

// "sales lacks disk "TSL0001"; "; of an object that no disk of the set holds a part of only where `all` is wanted.
std::string MissingDisks(Objects objects, bool all) {
  constexpr std::size_t kMost = 3;
  std::size_t count = 0;
  std::string text;
  for (const ApplicationObject& object : objects) {
    if (object.missingDisks.empty() || (!all && object.missingDisks.size() == object.disks.size())) continue;
    if (++count > kMost) continue;
    text += (text.empty() ? "" : "; ") + object.name + " lacks disk " + SerialNumberList(object.missingDisks);
  }
  if (count > kMost) text += "; and " + Counted(count - kMost, "more object");
  return text.empty() ? text : text + ". ";
}

Choice OfConfiguration(const Failure& failure, const Records& records) {
  if (failure.message == CatalogText(varnel::message::kNoWriter)) return OfCase(advice::kNoWriter);
  if (failure.message == CatalogText(varnel::message::kVolumesMissing)) return OfCase(advice::kChildOutside);
  for (const DWORD number : {9U, 10U}) {
    if (Last(records, number) != nullptr) return Of(FindAdvice(AdviceKind::Record, number));
  }
  return Of(FindAdvice(AdviceKind::Alert, VarnelException::ConfigurationError));
}

Choice OfAlert(const Failure& failure, const Records& records, Objects objects) {
  switch (failure.alertCode) {
    case VarnelException::WriterFailure:
    case VarnelException::PartialSuccess:
      return OfFailedWriter(failure.alertCode, records, objects);
    case VarnelException::ConfigurationError:
      return After(MissingDisks(objects, true), OfConfiguration(failure, records));
    case VarnelException::ExtraVolumes:
      return After(MissingDisks(objects, false), Of(FindAdvice(AdviceKind::Alert, VarnelException::ExtraVolumes)));
    default:
      break;
  }
  const Advice* advice = FindAdvice(AdviceKind::Alert, static_cast<DWORD>(failure.alertCode));
  return advice == nullptr ? OfStatus(failure.status) : Of(advice);
}

// The call itself is in a record: the failure only knows the operation of the requestor that made it.
Choice OfFailedCall(HRESULT hr, const Records& records) {
  for (const DWORD number : {6U, 7U}) {
    const bool isPlainCode = hr == static_cast<HRESULT>(ERROR_INSUFFICIENT_BUFFER);
    if (isPlainCode && Last(records, number) != nullptr) return Of(FindAdvice(AdviceKind::Record, number));
  }
  Choice choice = OfCode(hr);
  const RecordText* record = hr == VSS_E_BAD_STATE ? Last(records, 1) : nullptr;
  const std::string wants = record == nullptr ? std::string() : WantsOf(MethodOf(CallOf(*record)));
  if (!wants.empty()) choice.remedy += " " + wants + ".";
  return choice;
}

Choice Choose(const Failure& failure, const Records& records, Objects objects) {
  if (!failure.explain.empty()) return OfCase(failure.explain);
  if (failure.alertCode != 0) return OfAlert(failure, records, objects);
  if (failure.hresult) return OfFailedCall(*failure.hresult, records);
  return OfStatus(failure.status);
}

std::string UpperCase(std::string_view text) {
  std::string upper(text);
  std::transform(upper.begin(), upper.end(), upper.begin(),
                 [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
  return upper;
}

}  // namespace

void Advise(Failure& failure, std::string_view errorDetails, std::span<const ApplicationObject> objects) {
  Choice choice = Choose(failure, RecordsIn(errorDetails), objects);
  failure.explain = std::move(choice.key);
  failure.remedy = std::move(choice.remedy);
}

std::optional<HRESULT> CodeCalled(std::string_view name) {
  const std::string upper = UpperCase(name);
  for (const Advice& advice : AllAdvice()) {
    if (advice.kind == AdviceKind::Code && advice.name == upper) return static_cast<HRESULT>(advice.number);
  }
  const std::vector<std::string_view> names = varnel::simulator::ResultNames();
  if (std::find(names.begin(), names.end(), upper) == names.end()) return std::nullopt;
  return static_cast<HRESULT>(*varnel::simulator::ParseResult(upper));
}

std::string NameOfCode(HRESULT code) {
  if (const Advice* advice = FindAdvice(AdviceKind::Code, static_cast<DWORD>(code))) return std::string(advice->name);
  std::string name = varnel::simulator::ResultName(code);
  if (name.starts_with("0x")) name = OneLine(varnel::WideToUtf8Lossy(CVarnel::HResult2String(code)));
  return name;
}

std::string WantsOf(std::string_view method) {
  for (const CallOrder& order : CallOrders()) {
    if (order.call != method) continue;
    return std::string(method) + "() wants " + std::string(order.wants);
  }
  return {};
}

}  // namespace varnelctl
