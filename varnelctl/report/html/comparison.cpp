#include "varnelctl/report/html/comparison.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <unordered_map>

#include "text/ascii_case.h"
#include "text/unicode.h"
#include "varnelctl/console/text.h"
#include "varnelctl/report/html/markup.h"
#include "varnelctl/report/html/run_sections.h"
#include "varnelctl/report/html/sections.h"

namespace varnelctl::html {
namespace {

using nlohmann::json;
using NameList = std::vector<std::string>;

using ByKey = std::unordered_map<std::wstring, const json*>;

ByKey ObjectsOf(const json& run) {
  ByKey objects;
  const auto found = run.find("objects");
  if (found == run.end()) return objects;
  for (const json& object : *found) objects.emplace(KeyOf(object), &object);
  return objects;
}

std::string StateOf(const json& object) {
  if (object["captured"].get<bool>()) return "captured";
  if (object["failed"].get<bool>()) return "failed by its writer";
  const auto why = object.find("why");
  if (why != object.end() && why->is_string()) return *why;
  return object["reason"].is_string() ? object["reason"].get<std::string>() : "nothing was captured";
}

std::string NameAndState(const json& object) {
  return object["name"].get<std::string>() + ": " + StateOf(object);
}

void CompareObjects(const json& before, const json& now, Changes& changes) {
  const ByKey then = ObjectsOf(before);
  for (const json& object : now.value("objects", json::array())) {
    const auto found = then.find(KeyOf(object));
    const bool isCaptured = object["captured"].get<bool>();
    if (found == then.end()) {
      changes.added.push_back(NameAndState(object));
    } else if (const bool wasCaptured = (*found->second)["captured"].get<bool>(); wasCaptured != isCaptured) {
      wasCaptured ? changes.lost.push_back(NameAndState(object)) : changes.gained.push_back(object["name"]);
    }
  }
  const ByKey present = ObjectsOf(now);
  for (const json& object : before.value("objects", json::array())) {
    if (!present.contains(KeyOf(object))) changes.removed.push_back(object["name"]);
  }
}

NameList DisksOf(const json& run) {
  return run["header"].value("disks", NameList());
}

// Those of `disks` that `others` does not have.
NameList Without(const NameList& disks, const NameList& others) {
  NameList rest;
  for (const std::string& disk : disks) {
    if (std::find(others.begin(), others.end(), disk) == others.end()) rest.push_back(disk);
  }
  return rest;
}

std::string HostOf(const json& run) {
  const json& host = run["header"]["host"];
  return host.is_string() ? host.get<std::string>() : "unknown host";
}

std::string CountText(const json& run) {
  if (!run.contains("verdict")) return {};
  const json& verdict = run["verdict"];
  return std::to_string(verdict["captured"].get<long long>()) + " of " + std::to_string(verdict["of"].get<long long>());
}

std::string ChangeText(const Changes& changes) {
  std::string text;
  const auto add = [&](std::size_t count, const char* words) {
    if (count != 0) text += (text.empty() ? "" : ", ") + std::to_string(count) + " " + words;
  };
  const std::size_t disks = changes.disksAdded.size() + changes.disksRemoved.size();
  add(changes.lost.size(), "lost");
  add(changes.gained.size(), "gained");
  add(changes.added.size(), "new");
  add(changes.removed.size(), "gone");
  add(disks, disks == 1 ? "disk changed" : "disks changed");
  return text.empty() ? "nothing" : text;
}

// Without the folder.
std::string FileName(const std::string& file) {
  const std::u8string name = PathOf(file).filename().u8string();
  return {name.begin(), name.end()};
}

std::string RunRow(const std::vector<StoredRun>& runs, std::size_t index) {
  const json& run = runs[index].document;
  const std::string change = index == 0 ? "" : ChangeText(ChangesOf(runs[index - 1].document, run));
  return "<tr class=\"" + std::string(ClassOf(StandingOf(run))) + "\"><th scope=\"row\"><a href=\"#run-" +
         std::to_string(index) + "\">" + Escaped(TimeText(run["header"]["start"])) + "</a></th>" +
         Element("td", HostOf(run)) + Element("td", CountText(run), "number") + Element("td", change) +
         Element("td", VerdictText(run)) + Element("td", std::to_string(run["status"].get<int>()), "number") +
         Element("td", FileName(runs[index].name)) + "</tr>\n";
}

std::string RunTable(const std::vector<StoredRun>& runs) {
  std::string table =
      "<div class=\"scroll\" role=\"group\" aria-label=\"Runs\" tabindex=\"0\"><table class=\"runs\">\n<thead><tr>"
      "<th scope=\"col\">Start</th><th scope=\"col\">Host</th><th scope=\"col\" class=\"number\">Captured</th>"
      "<th scope=\"col\">Changed</th><th scope=\"col\">Verdict</th><th scope=\"col\" class=\"number\">Exit status</th>"
      "<th scope=\"col\">File</th></tr></thead>\n<tbody>\n";
  for (std::size_t i = runs.size(); i-- > 0;) table += RunRow(runs, i);
  return table + "</tbody></table></div>\n";
}

std::string Listed(const char* heading, const NameList& entries, std::string_view className) {
  return entries.empty() ? std::string() : Element("h3", heading) + "\n" + ListOf(entries, className);
}

std::string WhatChanged(const json& before, const json& now) {
  const Changes changes = ChangesOf(before, now);
  std::string text = "<section>\n<h2 id=\"changes\">What changed since the run before</h2>\n";
  if (HostOf(before) != HostOf(now)) text += Element("p", "These are runs of different hosts.", "warnings") + "\n";
  if (before["status"] != now["status"]) {
    text += Element("p", "The exit status was " + std::to_string(before["status"].get<int>()) + " and is " +
                             std::to_string(now["status"].get<int>()) + ".") +
            "\n";
  }
  if (changes.IsNone()) text += "<p>The same objects are captured, on the same disks.</p>\n";
  return text + Listed("Captured then, not now", changes.lost, "lost") +
         Listed("Captured now, not then", changes.gained, "gained") +
         Listed("New on the host", changes.added, "added") + Listed("Gone from the host", changes.removed, "removed") +
         Listed("Disks added", changes.disksAdded, "gained") + Listed("Disks left out", changes.disksRemoved, "lost") +
         "</section>\n";
}

}  // namespace

std::wstring KeyOf(const json& object) {
  return varnel::ascii::ToLower(
      varnel::Utf8ToWideLossy(object["writer"].get<std::string>() + "\n" + object["path"].get<std::string>()));
}

Changes ChangesOf(const json& before, const json& now) {
  Changes changes;
  CompareObjects(before, now, changes);
  changes.disksAdded = Without(DisksOf(now), DisksOf(before));
  changes.disksRemoved = Without(DisksOf(before), DisksOf(now));
  return changes;
}

std::string Comparison(const std::vector<StoredRun>& runs) {
  std::set<std::string> hosts;
  for (const StoredRun& run : runs) hosts.insert(HostOf(run.document));
  const std::string title = std::to_string(runs.size()) + " runs of " +
                            (hosts.size() == 1 ? *hosts.begin() : std::to_string(hosts.size()) + " hosts");
  return "<article class=\"comparison\">\n<header>" + Element("h1", title, "verdict") + "</header>\n" + RunTable(runs) +
         WhatChanged(runs[runs.size() - 2].document, runs.back().document) + "</article>\n";
}

}  // namespace varnelctl::html
