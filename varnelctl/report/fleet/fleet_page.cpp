#include "varnelctl/report/fleet/fleet_page.h"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>

#include "varnelctl/console/text.h"
#include "varnelctl/report/fleet/fleet_data.h"
#include "varnelctl/report/html/frame.h"
#include "varnelctl/report/html/markup.h"
#include "varnelctl/report/html/run_sections.h"
#include "varnelctl/report/html/sections.h"

namespace varnelctl::fleet {
namespace {

using html::ColumnHead;
using html::Element;
using html::Escaped;
using html::Section;
using html::Standing;

constexpr LONGLONG kTicksOfSecond = 10'000'000;

constexpr char kConsistency[] =
    "Each set is consistent in itself, and not with the sets of other hosts: also where they were taken together.";

const char* WordsFor(GroupOutcome outcome) {
  switch (outcome) {
    case GroupOutcome::Taken:
      return "taken: every host's set is there";
    case GroupOutcome::Incomplete:
      return "incomplete: some sets are there, and some are not";
    case GroupOutcome::Ended:
      return "ended: no set of it is left";
    case GroupOutcome::Stopped:
      return "stopped: nothing was taken";
    case GroupOutcome::Planned:
      return "planned: nothing was to be taken";
    default:
      return "not run";
  }
}

Standing StandingOf(GroupOutcome outcome) {
  switch (outcome) {
    case GroupOutcome::Taken:
    case GroupOutcome::Planned:
      return Standing::Whole;
    case GroupOutcome::Incomplete:
      return Standing::Partial;
    default:
      return Standing::Failed;
  }
}

Standing StandingOf(const Protection& protection) {
  const Summary& last = protection.last();
  const auto planned = static_cast<std::size_t>(
      std::count_if(protection.results.begin(), protection.results.end(),
                    [](const HostResult& result) { return result.state == HostState::Planned; }));
  const std::size_t good = last.isPlan ? planned : last.protectedHosts;
  if (last.hosts != 0 && good == last.hosts && last.part == 0) return Standing::Whole;
  return good == 0 && last.hosts != 0 ? Standing::Failed : Standing::Partial;
}

std::string Capitalised(std::string noun) {
  if (noun.front() >= 'a' && noun.front() <= 'z') noun.front() = static_cast<char>(noun.front() - 'a' + 'A');
  return noun;
}

std::string CountOf(std::size_t part, std::size_t whole) {
  return std::to_string(part) + " of " + std::to_string(whole);
}

std::string InPart(std::size_t part) {
  return part == 0 ? std::string() : ", " + std::to_string(part) + " of them in part";
}

std::string TitleOf(const Protection& protection) {
  return "Fleet " + protection.run.fleet + ", run of " + TimeText(protection.run.startedAt);
}

std::string DurationOf(const Summary& run) {
  if (!run.endedAt || *run.endedAt < run.startedAt) return {};
  return DurationText(static_cast<double>(*run.endedAt - run.startedAt) / static_cast<double>(kTicksOfSecond));
}

std::string Head(const Protection& protection) {
  const Summary& last = protection.last();
  std::vector<std::string> sentences;
  if (last.objects != 0) {
    sentences.push_back(CountOf(last.protectedObjects, last.objects) + " " + NounOf(protection) + " are protected.");
  }
  const std::string duration = DurationOf(last);
  if (!duration.empty()) sentences.push_back("The run took " + duration + ".");
  if (!last.endedAt) sentences.emplace_back("This run did not come to its end.");
  std::string text;
  for (const std::string& sentence : sentences) text += (text.empty() ? "" : " ") + sentence;
  return "<header>\n" + Element("p", TitleOf(protection), "eyebrow") + "\n" +
         html::VerdictHeading(HeadlineOf(protection), 1) + "<div class=\"cause\">" + Element("p", text) +
         "</div>\n</header>\n";
}

// "7 of 12, 3 of them in part" of the hosts whose group is one of these.
template <class IsMember>
std::string CountHosts(const Protection& protection, IsMember isMember) {
  std::size_t hosts = 0;
  std::size_t taken = 0;
  std::size_t part = 0;
  for (std::size_t i = 0; i < protection.results.size(); ++i) {
    if (!isMember(protection.run.hosts[i].group)) continue;
    ++hosts;
    if (protection.results[i].IsProtected()) ++taken;
    if (protection.results[i].state == HostState::Partly) ++part;
  }
  return hosts == 0 ? std::string() : CountOf(taken, hosts) + InPart(part);
}

std::string GroupRow(const Protection& protection, const Group& group) {
  const std::string count = CountHosts(protection, [&](const std::string& name) { return name == group.name; });
  return "<tr class=\"" + std::string(html::ClassOf(StandingOf(group.outcome))) + "\"><th scope=\"row\">" +
         Escaped(group.name) + "</th>" + Element("td", count.empty() ? "no hosts" : count, "number") +
         Element("td", group.mode == Mode::Together ? "together" : "one after another") +
         Element("td", group.onFailure == OnFailure::End ? "the other sets are ended" : "the other sets are kept") +
         "<td>" + Escaped(WordsFor(group.outcome)) +
         (group.message.empty() ? "" : Element("p", group.message, "note")) + "</td></tr>\n";
}

// Hosts whose group is none of the run's.
std::string GrouplessRow(const Protection& protection) {
  std::set<std::string> groups;
  for (const Group& group : protection.run.groups) groups.insert(group.name);
  const std::string count = CountHosts(protection, [&](const std::string& name) { return !groups.contains(name); });
  if (count.empty()) return {};
  return "<tr class=\"partial\"><th scope=\"row\">in no group of the run</th>" + Element("td", count, "number") +
         "<td></td><td></td><td></td></tr>\n";
}

std::string Groups(const Protection& protection) {
  std::string rows;
  const auto& groups = protection.run.groups;
  const std::size_t listed = std::min(groups.size(), html::kMostListed);
  for (std::size_t i = 0; i < listed; ++i) rows += GroupRow(protection, groups[i]);
  rows += GrouplessRow(protection);
  if (rows.empty()) return {};
  return Element("p", kConsistency, "note") + "\n" +
         html::ScrollingTable("Groups", "groups",
                              ColumnHead("Group") + ColumnHead("Hosts protected", true) + ColumnHead("Taken") +
                                  ColumnHead("After a failure") + ColumnHead("Outcome"),
                              rows) +
         html::AndMore(groups.size() - listed);
}

// What is not protected stands with what is alike.
std::string HostsNotProtected(const Protection& protection) {
  html::ReasonList list;
  for (std::size_t i = 0; i < protection.results.size(); ++i) {
    const HostResult& result = protection.results[i];
    if (result.IsProtected() || (result.state == HostState::Planned && protection.last().isPlan)) continue;
    list.Add(protection.run.hosts[i].name, WordFor(result.state) + (result.why.empty() ? "" : ": " + result.why));
  }
  return list.Markup();
}

std::string UntilText(const Object& object) {
  if (!object.last) return {};
  return "protected until " + TimeText(object.last->taken) + ": last taken in the run of " + TimeText(object.last->run);
}

// What a host's own reason does not tell: an object's, and how long it was protected.
std::string WhyNot(const Object& object, const HostResult& host) {
  std::string reason = object.why == host.why ? std::string() : object.why;
  if (const std::string until = UntilText(object); !until.empty()) reason += (reason.empty() ? "" : "; ") + until;
  return reason.empty() ? "never taken in these runs" : reason;
}

std::string ObjectsNotProtected(const Protection& protection) {
  constexpr std::size_t kMostNamed = 3;
  html::ReasonList list;
  for (std::size_t i = 0; i < protection.results.size(); ++i) {
    std::map<std::string, std::vector<std::string>> namesByReason;
    for (const Object& object : protection.results[i].objects) {
      if (object.state == ObjectState::Protected) continue;
      namesByReason[WhyNot(object, protection.results[i])].push_back(object.name);
    }
    for (const auto& [reason, names] : namesByReason) {
      list.Add(protection.run.hosts[i].name + ": " + html::Names(names, kMostNamed), reason);
    }
  }
  return list.Markup();
}

std::string Slowest(const Protection& protection) {
  constexpr std::size_t kMost = 10;
  std::vector<std::pair<double, const Host*>> hosts;
  for (const Host& host : protection.run.hosts) {
    if (host.seconds) hosts.emplace_back(*host.seconds, &host);
  }
  std::stable_sort(hosts.begin(), hosts.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
  hosts.resize(std::min(hosts.size(), kMost));
  std::string rows;
  for (const auto& [seconds, host] : hosts) {
    constexpr double kThousand = 1000;
    const auto whole = static_cast<unsigned long long>(hosts.front().first * kThousand);
    rows += "<tr><th scope=\"row\">" + Escaped(host->name) + "</th><td class=\"track\">" +
            html::Bar(0, static_cast<unsigned long long>(seconds * kThousand), whole) + "</td>" +
            Element("td", DurationText(seconds), "number") + "</tr>\n";
  }
  if (rows.empty()) return {};
  return html::ScrollingTable("Slowest hosts", "slowest",
                              ColumnHead("Host") + "<td></td>" + ColumnHead("Last step", true), rows);
}

std::string CountCell(std::size_t part, std::size_t whole, const std::string& more = {}) {
  return "<td class=\"track\">" + Escaped(CountOf(part, whole) + more) + html::Bar(0, part, whole) + "</td>";
}

std::string RunRow(const Summary& run) {
  const std::string duration = DurationOf(run);
  std::string note = run.isPlan ? "planned only" : "";
  if (!run.endedAt) note += std::string(note.empty() ? "" : ", ") + "did not come to its end";
  return "<tr><th scope=\"row\">" + Escaped(TimeText(run.startedAt)) + "</th>" +
         CountCell(run.protectedHosts, run.hosts, InPart(run.part)) + CountCell(run.protectedObjects, run.objects) +
         Element("td", duration, "number") + Element("td", note) + "</tr>\n";
}

std::string Trend(const Protection& protection) {
  std::string rows;
  for (std::size_t i = protection.runs.size(); i-- > 0;) rows += RunRow(protection.runs[i]);
  const std::string noun = NounOf(protection);
  std::string text =
      html::ScrollingTable("Runs", "trend",
                           ColumnHead("Run") + ColumnHead("Hosts protected") + ColumnHead("Protected " + noun) +
                               ColumnHead("Duration", true) + ColumnHead("Note"),
                           rows);
  if (protection.earlierRuns != 0) {
    text += Element("p", Counted(protection.earlierRuns, "earlier run") + " in this folder not looked at", "quiet");
  }
  return text;
}

std::string Listed(const char* heading, const std::vector<std::string>& names, std::string_view className) {
  return names.empty() ? std::string() : Element("h3", heading) + "\n" + html::ListOf(names, className);
}

// Hosts whose documents are of another time than the run by more than a minute.
std::string Clocks(const Protection& protection) {
  constexpr LONGLONG kMinute = 60 * kTicksOfSecond;
  std::vector<std::string> lines;
  for (std::size_t i = 0; i < protection.results.size(); ++i) {
    const std::optional<LONGLONG>& time = protection.results[i].documentTime;
    if (!time) continue;
    const bool isBefore = *time < protection.run.startedAt - kMinute;
    const bool isAfter = protection.run.endedAt && *time > *protection.run.endedAt + kMinute;
    if (isBefore || isAfter) lines.push_back(protection.run.hosts[i].name + ": " + TimeText(*time));
  }
  if (lines.empty()) return {};
  return "<p>Times of sets and documents are those of each host's own clock. These documents are of a time outside the "
         "run:</p>\n<details><summary>" +
         Counted(lines.size(), "host") + "</summary>\n" + html::ListOf(lines) + "</details>\n";
}

std::string Tables(const Protection& protection, const std::string& noun, const std::optional<std::string>& linkBase) {
  if (protection.run.hosts.empty()) return {};
  const bool hasObjects = protection.last().objects != 0;
  return "<noscript><p class=\"quiet\">The tables of this page need its script, which this browser does not "
         "run.</p></noscript>\n" +
         Section("hosts", 2, "Hosts", html::Place("hosts"), "wide") +
         Section("objects", 2, Capitalised(noun), hasObjects ? html::Place("objects") : "", "wide") +
         "<script type=\"application/json\" class=\"fleet-data\">" + html::EscapedJson(DataOf(protection, linkBase)) +
         "</script>\n";
}

}  // namespace

std::string FleetPage(const Protection& protection, const std::optional<std::string>& linkBase) {
  const std::string noun = NounOf(protection);
  const std::string content =
      "<article class=\"run fleet " + std::string(html::ClassOf(StandingOf(protection))) + "\">\n" + Head(protection) +
      Section("unreadable", 2, "Runs that cannot be read", html::ListOf(protection.unreadable, "warnings")) +
      Section("groups", 2, "Groups", Groups(protection)) +
      Section("not-protected", 2, "Hosts without a set", HostsNotProtected(protection)) +
      Section("objects-not-protected", 2, Capitalised(noun) + " without protection", ObjectsNotProtected(protection)) +
      Tables(protection, noun, linkBase) + Section("slowest", 2, "Slowest hosts", Slowest(protection)) +
      Section("trend", 2, "Runs", Trend(protection)) +
      Section("changes", 2, "Hosts since the run before",
              Listed("Not in this run", protection.gone, "removed") + Listed("New", protection.added, "added")) +
      Section("clocks", 2, "Clocks", Clocks(protection)) + "</article>\n";
  return html::WholePage(TitleOf(protection) + ": " + HeadlineOf(protection), content, html::Script::OfFleet);
}

}  // namespace varnelctl::fleet
