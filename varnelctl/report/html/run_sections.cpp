#include "varnelctl/report/html/run_sections.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <vector>

#include "varnelctl/console/text.h"
#include "varnelctl/report/html/alert_section.h"
#include "varnelctl/report/html/markup.h"
#include "varnelctl/report/html/sections.h"
#include "varnelctl/report/html/shape.h"
#include "varnelctl/report/html/timeline.h"

namespace varnelctl::html {
namespace {

using nlohmann::json;

// The texts one after another.
std::string Joined(const json& texts, std::string_view between) {
  std::string joined;
  for (const json& text : texts) joined.append(joined.empty() ? "" : between).append(text.get<std::string>());
  return joined;
}

// An argument as a shell takes it.
std::string CommandLine(const json& arguments) {
  std::string line = "varnelctl";
  for (const json& argument : arguments) {
    const std::string text = argument.get<std::string>();
    const bool isPlain = !text.empty() && text.find_first_of(" \"'") == text.npos;
    line += " " + (isPlain ? text : '"' + text + '"');
  }
  return line;
}

std::string ProviderText(const json& run) {
  if (!run.contains("provider")) return TextAt(run["header"], "provider");
  const json& provider = run["provider"];
  const std::string name = TextAt(provider, "name");
  return name.empty() ? TextAt(provider, "id") + ", not registered" : name + " " + TextAt(provider, "version");
}

std::string BackupFacts(const json& run) {
  if (!run.contains("backup")) return {};
  const json& backup = run["backup"];
  return Fact("Backup", TextAt(backup, "type") + ", context " + TextAt(backup, "context")) +
         Fact("Effect", TextAt(backup, "effect"));
}

std::string SetFacts(const json& run) {
  const json verdict = run.value("verdict", json::object());
  return Fact("Set", TextAt(run, "snapshotSetId")) + Fact("Lifetime", TextAt(verdict, "lifetime")) +
         Fact("End it with", TextAt(verdict, "endWith"));
}

std::string Facts(const json& run) {
  const json& header = run["header"];
  const json process = header.value("process", json());
  return "<dl class=\"facts\">\n" + Fact("Host", TextAt(header, "host")) + Fact("Started", TimeText(header["start"])) +
         Fact("Application", TextAt(header, "application")) +
         Fact("Disks", header.contains("disks") ? Joined(header["disks"], ", ") : "") + BackupFacts(run) +
         Fact("Provider", ProviderText(run)) + SetFacts(run) +
         Fact("Exit status", std::to_string(run["status"].get<int>())) +
         Fact("varnelctl",
              header["version"].get<std::string>() +
                  (process.is_number_integer() ? ", process " + std::to_string(process.get<long long>()) : "")) +
         "<dt>Command line</dt><dd><code>" + Escaped(CommandLine(header["commandLine"])) + "</code></dd>\n</dl>\n";
}

std::string Cause(const json& run) {
  const json& result = run["result"];
  const std::string message = TextAt(result, "message");
  if (message.empty()) return {};
  const bool isInVerdict = VerdictText(run).find(message) != std::string::npos;
  std::string text = "<div class=\"cause\">\n" + (isInVerdict ? "" : Element("p", message, "message") + "\n");
  std::vector<std::string> details;
  for (const json& detail : result["details"]) details.push_back(detail);
  text += ListOf(details, "details");
  if (const std::string remedy = TextAt(result, "remedy"); !remedy.empty()) {
    text += "<p><strong>What to do.</strong> " + Escaped(remedy) + "</p>\n";
  }
  std::string codes;
  if (const int alert = result["alertCode"]; alert != 0) codes += "alert " + std::to_string(alert) + ", ";
  if (const std::string hresult = TextAt(result, "hresult"); !hresult.empty()) codes += hresult + ", ";
  return text + "<p class=\"quiet\">" + Escaped(codes) + "more with <code>varnelctl explain " +
         Escaped(TextAt(result, "explain")) + "</code></p>\n</div>\n";
}

// Empty of an object that is captured, or that only the end of the request kept out.
std::string WhyNot(const json& object) {
  const std::string reason = TextAt(object, "reason");
  if (reason == "requestEnded") return {};
  if (reason.empty()) return object["failed"].get<bool>() ? "failed by its writer" : "";
  const std::string why = TextAt(object, "why");
  return why.empty() ? reason : why;
}

std::string NotCapturedList(const json& run) {
  ReasonList list;
  for (const json& object : run.value("objects", json::array())) {
    const std::string why = WhyNot(object);
    if (!why.empty()) list.Add(object["name"], why);
  }
  return list.Markup();
}

std::string Warnings(const json& run) {
  std::vector<std::string> lines;
  for (const json& warning : run["warnings"]) lines.push_back(warning["text"]);
  return ListOf(lines, "warnings");
}

std::string CountedObjects(const json& run) {
  std::string noun = run["verdict"]["noun"];
  noun += noun.ends_with('s') ? "es" : "s";
  noun.front() = static_cast<char>(noun.front() - 'a' + 'A');
  return noun;
}

// Of a long log the beginning and the end, which is where a failure is: a page is not to weigh more than it tells.
std::string PartOfLog(const std::string& log) {
  constexpr std::size_t kBeginning = 500'000;
  constexpr std::size_t kEnd = 1'500'000;
  if (log.size() <= kBeginning + kEnd) return log;
  const std::size_t first = log.rfind('\n', kBeginning) + 1;
  const std::size_t last = log.find('\n', log.size() - kEnd) + 1;
  const auto left = std::count(log.begin() + static_cast<std::ptrdiff_t>(first),
                               log.begin() + static_cast<std::ptrdiff_t>(last), '\n');
  return log.substr(0, first) + "... " + Counted(static_cast<std::size_t>(left), "line") + " left out here ...\n" +
         log.substr(last);
}

std::string LogSection(const std::string& log, const std::string& id, int level) {
  if (log.empty()) return {};
  return Section(id, level, "Log", Place("log"), "wide log") + "<script type=\"application/json\" class=\"log-text\">" +
         EscapedJson(PartOfLog(log)) + "</script>\n";
}

std::string InteractiveSections(const json& run, const std::string& id, int level) {
  if (!run.contains("verdict")) return {};
  return "<noscript><p class=\"quiet\">The map and the tables of this page need its script, which this browser does "
         "not "
         "run.</p></noscript>\n" +
         Section(id + "-map", level, "What lies where", Place("map"), "wide") +
         Section(id + "-objects", level, run["objects"].empty() ? "" : CountedObjects(run),
                 run["objects"].empty() ? "" : Place("objects"), "wide") +
         Section(id + "-components", level, "Writers and components", Place("components"), "wide");
}

}  // namespace

Standing StandingOf(const json& run) {
  if (!run.contains("verdict")) return Standing::Failed;
  const json& verdict = run["verdict"];
  const std::string& text = verdict["text"].get_ref<const std::string&>();
  if (text.starts_with("FAILED") || text.starts_with("WOULD FAIL")) return Standing::Failed;
  return run["status"] == 0 && verdict["captured"] == verdict["of"] ? Standing::Whole : Standing::Partial;
}

std::string_view ClassOf(Standing standing) {
  switch (standing) {
    case Standing::Whole:
      return "good";
    case Standing::Partial:
      return "partial";
    default:
      return "bad";
  }
}

std::string VerdictText(const json& run) {
  if (run.contains("verdict")) return run["verdict"]["text"];
  const std::string message = TextAt(run["result"], "message");
  return message.empty() ? "done" : "FAILED: " + message;
}

std::string TimeText(const std::string& start) {
  constexpr std::size_t kDate = 10;
  constexpr std::size_t kSeconds = 19;
  if (start.size() < kSeconds) return start;
  return start.substr(0, kDate) + " " + start.substr(kDate + 1, kSeconds - kDate - 1) + " UTC";
}

std::string TitleOf(const json& run) {
  const std::string kind = run["kind"];
  const std::string what = kind == "plan" ? "Plan" : kind == "snapshot" ? "Snapshot" : "Run";
  const std::string host = TextAt(run["header"], "host");
  return what + (host.empty() ? "" : " of " + host) + ", " + TimeText(run["header"]["start"]);
}

std::string RunHeader(const json& run, int level) {
  return "<header>\n" + Element("p", TitleOf(run), "eyebrow") + "\n" + VerdictHeading(VerdictText(run), level) +
         Cause(run) + "</header>\n";
}

std::string RunArticle(const StoredRun& stored, const std::string& id, int level) {
  const json& run = stored.document;
  const int below = level + 1;
  std::string article = "<article id=\"" + id + "\" class=\"run " + std::string(ClassOf(StandingOf(run))) + "\">\n";
  article += RunHeader(run, level);
  article += Section(id + "-missing", below, "Not captured", NotCapturedList(run));
  article += InteractiveSections(run, id, below);
  article += Section(id + "-steps", below, "Steps", Timeline(run));
  article +=
      Section(id + "-alerts", below, "Alert records", AlertSection(run["errorDetails"].get_ref<const std::string&>()));
  article += Section(id + "-warnings", below, "Warnings", Warnings(run));
  article += Section(id + "-facts", below, "The run", Facts(run));
  article += LogSection(stored.log, id + "-log", below);
  article += "<script type=\"application/json\" class=\"document\">" + EscapedJson(run) + "</script>\n";
  return article + "</article>\n";
}

}  // namespace varnelctl::html
