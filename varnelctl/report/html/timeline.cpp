#include "varnelctl/report/html/timeline.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <vector>

#include "text/ascii_case.h"
#include "varnelctl/console/text.h"
#include "varnelctl/explanation/records.h"
#include "varnelctl/report/html/markup.h"
#include "varnelctl/report/html/sections.h"
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
    "for 60 seconds at most (Exchange: 20), and the service holds writes to the volumes for 10.";

std::string WordsFor(const std::string& key) {
  const auto* const found =
      std::find_if(std::begin(kSteps), std::end(kSteps), [&](const StepName& name) { return key == name.key; });
  return found == std::end(kSteps) ? key : found->words;
}

std::string TimeText(unsigned long long milliseconds) {
  constexpr unsigned long long kSecond = 1000;
  if (milliseconds < 10 * kSecond) return std::to_string(milliseconds) + " ms";
  return std::to_string(milliseconds / kSecond) + "." + std::to_string(milliseconds % kSecond / 100) + " s";
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

// What the alert records say of a writer; empty otherwise.
std::string StateOf(const std::string& writer, const std::vector<RecordText>& records) {
  for (const RecordText& record : records) {
    if (record.number != kWriterFailure || FieldOf(record, "WriterName") != writer) continue;
    return std::string(FieldOf(record, "WriterStatus")) + ", " + std::string(FieldOf(record, "WriterError"));
  }
  return {};
}

bool IsFailure(const std::string& code) {
  return code != "0x00000000";
}

// "stable" of "VSS_WS_STABLE"
std::string StateWords(std::string state) {
  constexpr std::string_view kPrefix = "VSS_WS_";
  if (state.starts_with(kPrefix)) state.erase(0, kPrefix.size());
  for (char& c : state) c = c == '_' ? ' ' : static_cast<char>(varnel::ascii::ToLower(static_cast<wchar_t>(c)));
  return state;
}

// How a writer stood when the states were read, in a cell.
std::string StateCell(const json& states, const std::string& instanceId) {
  for (const json& status : states["writers"]) {
    if (status["instanceId"] != instanceId) continue;
    std::string text = StateWords(status["state"]);
    const std::string failure = status["failure"];
    if (IsFailure(failure)) text += "; " + failure;
    if (const std::string message = status["applicationMessage"]; !message.empty()) text += "; " + message;
    return Element("td", text);
  }
  return Element("td", "not told", "quiet");
}

std::string FailureText(const json& writer, const std::vector<RecordText>& records) {
  const json& components = writer["components"];
  const auto failed = std::count_if(components.begin(), components.end(), [](const json& component) {
    return component["failed"].get<bool>() && IsFailure(component["failureCode"]);
  });
  std::string state = StateOf(writer["name"], records);
  if (failed == 0) return state;
  return (state.empty() ? "" : state + "; ") + "failed for " + Counted(static_cast<std::size_t>(failed), "component");
}

std::string WriterRow(const json& writer, const std::vector<RecordText>& records, const json& readings) {
  const std::string failure = FailureText(writer, records);
  const std::string name = Escaped(writer["name"].get<std::string>());
  std::string row = failure.empty()
                        ? "<tr><th scope=\"row\">" + name + "</th>"
                        : "<tr class=\"failed\"><th scope=\"row\">" + name + " <span class=\"mark\">failed</span></th>";
  for (const json& states : readings) row += StateCell(states, writer.value("instanceId", std::string()));
  return row + Element("td", failure.empty() ? "no failure told" : failure) +
         Element("td", std::to_string(writer["components"].size()), "number") + "</tr>\n";
}

// "After the snapshot": what the writers were asked after.
std::string ReadingHead(const std::string& key) {
  if (key == step::kPreparing.key) return "Prepared";
  if (key == step::kSnapshot.key) return "After the snapshot";
  if (key == step::kCompleting.key) return "After completion";
  return "After " + WordsFor(key);
}

// Those that take part.
std::string Writers(const json& run) {
  const std::vector<RecordText> records = RecordsIn(run["errorDetails"].get_ref<const std::string&>());
  const json readings = run.value("writerStates", json::array());
  std::string rows;
  for (const json& writer : run["writers"]) {
    if (writer["reason"].is_null()) rows += WriterRow(writer, records, readings);
  }
  if (rows.empty()) return {};
  std::string head = ColumnHead("Writer");
  for (const json& states : readings) head += ColumnHead(ReadingHead(states["step"]));
  return ScrollingTable("Writers", "writers", head + ColumnHead("Failure") + ColumnHead("Components", true), rows);
}

std::string MomentRow(const json& moment) {
  const std::string failure = moment["failure"];
  return std::string("<tr") + (IsFailure(failure) ? " class=\"failed\">" : ">") +
         Element("td", TimeText(moment["time"].get<unsigned long long>()), "number") +
         Element("td", moment["event"].get<std::string>()) + Element("td", moment["writer"].get<std::string>()) +
         Element("td", IsFailure(failure) ? "failed: " + failure : "done") + "</tr>\n";
}

// Of the writers that take part.
std::string Moments(const json& run) {
  std::set<std::string> writers;
  for (const json& writer : run["writers"]) {
    if (writer["reason"].is_null()) writers.insert(writer["name"]);
  }
  std::vector<std::string> rows;
  for (const json& moment : run.value("moments", json::array())) {
    if (writers.contains(moment["writer"])) rows.push_back(MomentRow(moment));
  }
  if (rows.empty()) return {};
  std::string listed;
  for (std::size_t i = 0; i < std::min(rows.size(), kMostListed); ++i) listed += rows[i];
  return "<details class=\"told\"><summary>What the writers of this simulated host were told (" +
         Counted(rows.size(), "event") + ")</summary>\n" +
         ScrollingTable("Events", "moments",
                        ColumnHead("At", true) + ColumnHead("Event") + ColumnHead("Writer") + ColumnHead("Result"),
                        listed) +
         AndMore(rows.size() - std::min(rows.size(), kMostListed)) + "</details>\n";
}

}  // namespace

long long EndOfSnapshot(const json& run) {
  long long end = 0;
  for (const json& step : run.value("steps", json::array())) {
    if (step["name"] == step::kSnapshot.key) end = step["end"].get<long long>();
  }
  return end;
}

std::string Timeline(const json& run) {
  if (!run.contains("steps") || run["steps"].empty()) return {};
  const json& steps = run["steps"];
  const unsigned long long whole = EndOf(steps);
  std::string text;
  if (whole == 0) {
    text = "<p class=\"quiet\">The clock of this host stood still, so that no step took any time.</p>\n";
  }
  std::string rows;
  for (const json& step : steps) rows += Row(step, whole);
  text +=
      ScrollingTable("Steps", "steps",
                     ColumnHead("Step") + "<td></td>" + ColumnHead("Start", true) + ColumnHead("Duration", true), rows);
  return text + Moments(run) + Writers(run);
}

}  // namespace varnelctl::html
