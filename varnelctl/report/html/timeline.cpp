#include "varnelctl/report/html/timeline.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <vector>

#include "text/format.h"
#include "varnelctl/console/text.h"
#include "varnelctl/explanation/records.h"
#include "varnelctl/report/html/markup.h"
#include "varnelctl/sets/snapshot_steps.h"

namespace varnelctl::html {
namespace {

using nlohmann::json;

constexpr StepName kSteps[] = {
    step::kLookingForDisks, step::kCheckingHost, step::kCheckingVolumes, step::kLookingForProvider, step::kStarting,
    step::kGathering,       step::kSelecting,    step::kAdding,          step::kPreparing,          step::kSnapshot,
    step::kReading,         step::kCataloguing,  step::kVerifying,       step::kCompleting,         step::kBreaking,
    step::kMasking,         step::kDeleting,     step::kDisconnecting};

constexpr DWORD kWriterFailure = 2;  // the alert record

constexpr char kLimits[] =
    "Within this step the writers prepare, freeze and thaw; a requestor is told of none of it. A writer stays frozen "
    "for "
    "60 seconds at most (Exchange: 20), and the service holds writes to the volumes for 10.";

std::string WordsFor(const std::string& key) {
  const auto* const found =
      std::find_if(std::begin(kSteps), std::end(kSteps), [&](const StepName& name) { return key == name.key; });
  return found == std::end(kSteps) ? key : found->words;
}

std::string Percent(unsigned long long part, unsigned long long whole) {
  constexpr unsigned kTenths = 1000;
  const auto tenths = static_cast<unsigned>(part * kTenths / whole);
  return varnel::FormatNarrow("%u.%u%%", {tenths / 10, tenths % 10});
}

std::string TimeText(unsigned long long milliseconds) {
  constexpr unsigned long long kSecond = 1000;
  if (milliseconds < 10 * kSecond) return std::to_string(milliseconds) + " ms";
  return std::to_string(milliseconds / kSecond) + "." + std::to_string(milliseconds % kSecond / 100) + " s";
}

// A class instead of a style: the page allows none in elements.
std::string Bar(unsigned long long start, unsigned long long end, unsigned long long whole) {
  if (whole == 0) return {};
  const unsigned long long least = std::max<unsigned long long>(whole / 200, 1);
  const unsigned long long length = std::max(end - start, least);
  return "<svg class=\"bar\" aria-hidden=\"true\" focusable=\"false\"><rect x=\"" +
         Percent(std::min(start, whole - std::min(whole, length)), whole) + "\" width=\"" + Percent(length, whole) +
         "\" height=\"100%\"/></svg>";
}

std::string Row(const json& step, unsigned long long whole) {
  const auto start = step["start"].get<unsigned long long>();
  const auto end = std::max(step["end"].get<unsigned long long>(), start);
  const std::string key = step["name"];
  const bool failed = step["result"] == "failed";
  std::string row = std::string("<tr") + (failed ? " class=\"failed\"" : "") + "><th scope=\"row\">" +
                    Escaped(WordsFor(key)) + (failed ? " <span class=\"mark\">failed</span>" : "");
  if (key == step::kSnapshot.key) row += Element("p", kLimits, "note");
  return row + "</th><td class=\"track\">" + Bar(start, end, whole) + "</td>" +
         Element("td", TimeText(start), "number") + Element("td", TimeText(end - start), "number") + "</tr>\n";
}

unsigned long long EndOf(const json& steps) {
  unsigned long long end = 0;
  for (const json& step : steps) end = std::max(end, step["end"].get<unsigned long long>());
  return end;
}

// What the alert records say of a writer; "no failure told" otherwise.
std::string StateOf(const std::string& writer, const std::vector<RecordText>& records) {
  for (const RecordText& record : records) {
    if (record.number != kWriterFailure || FieldOf(record, "WriterName") != writer) continue;
    return std::string(FieldOf(record, "WriterStatus")) + ", " + std::string(FieldOf(record, "WriterError"));
  }
  return {};
}

std::string WriterRow(const json& writer, const std::vector<RecordText>& records) {
  const json& components = writer["components"];
  const auto failed = std::count_if(components.begin(), components.end(), [](const json& component) {
    return component["failed"].get<bool>() && component["failureCode"] != "0x00000000";
  });
  const std::string state = StateOf(writer["name"], records);
  std::string text = state.empty() ? "no failure told" : state;
  if (failed != 0)
    text = (state.empty() ? "" : state + "; ") + "failed for " + Counted(static_cast<std::size_t>(failed), "component");
  const bool isFailed = failed != 0 || !state.empty();
  return std::string("<tr") + (isFailed ? " class=\"failed\"" : "") + "><th scope=\"row\">" +
         Escaped(writer["name"].get<std::string>()) + (isFailed ? " <span class=\"mark\">failed</span>" : "") +
         "</th>" + Element("td", text) + Element("td", std::to_string(components.size()), "number") + "</tr>\n";
}

// Those that take part.
std::string Writers(const json& run) {
  const std::string& details = run["errorDetails"].get_ref<const std::string&>();
  const std::vector<RecordText> records = RecordsIn(details);
  std::string rows;
  for (const json& writer : run["writers"]) {
    if (writer["reason"].is_null()) rows += WriterRow(writer, records);
  }
  if (rows.empty()) return {};
  return "<div class=\"scroll\" role=\"group\" aria-label=\"Writers\" tabindex=\"0\"><table "
         "class=\"writers\">\n<thead><tr>"
         "<th scope=\"col\">Writer</th><th scope=\"col\">State</th><th scope=\"col\" class=\"number\">Components</th>"
         "</tr></thead>\n<tbody>\n" +
         rows + "</tbody></table></div>\n";
}

}  // namespace

std::string Timeline(const json& run) {
  if (!run.contains("steps") || run["steps"].empty()) return {};
  const json& steps = run["steps"];
  const unsigned long long whole = EndOf(steps);
  std::string text;
  if (whole == 0) {
    text = "<p class=\"quiet\">The clock of this host stood still, so that no step took any time.</p>\n";
  }
  text +=
      "<div class=\"scroll\" role=\"group\" aria-label=\"Steps\" tabindex=\"0\"><table class=\"steps\">\n<thead><tr>"
      "<th scope=\"col\">Step</th><td></td><th scope=\"col\" class=\"number\">Start</th>"
      "<th scope=\"col\" class=\"number\">Duration</th></tr></thead>\n<tbody>\n";
  for (const json& step : steps) text += Row(step, whole);
  return text + "</tbody></table></div>\n" + Writers(run);
}

}  // namespace varnelctl::html
