#include "varnelctl/report/fleet/protection.h"

#include <algorithm>
#include <map>
#include <set>
#include <unordered_map>
#include <utility>

#include "varnelctl/console/text.h"
#include "varnelctl/report/html/sections.h"

namespace varnelctl::fleet {
namespace {

// What the runs so far tell of a host.
struct Known {
  std::vector<Object> objects;
  std::unordered_map<std::wstring, LastSet> last;  // by the keys of objects
};

using KnownHosts = std::unordered_map<std::string, Known>;

// Of a host without documents those of an earlier run.
void AdoptObjects(HostResult& result, const Known& known) {
  for (Object object : known.objects) {
    object.state = StateOfObjects(result.state);
    object.why = result.why;
    object.last.reset();
    result.objects.push_back(std::move(object));
  }
}

void Relate(HostResult& result, Known& known, LONGLONG startOfRun) {
  if (result.objects.empty() && result.state != HostState::Protected) AdoptObjects(result, known);
  for (Object& object : result.objects) {
    const auto last = known.last.find(object.key);
    if (object.state == ObjectState::Protected && result.taken) {
      known.last[object.key] = {*result.taken, startOfRun};
    } else if (last != known.last.end()) {
      object.last = last->second;
    }
  }
  known.objects = result.objects;
}

std::size_t CountOf(const std::vector<HostResult>& results, HostState state) {
  return static_cast<std::size_t>(
      std::count_if(results.begin(), results.end(), [&](const HostResult& result) { return result.state == state; }));
}

Summary SummaryOf(const Run& run, const std::vector<HostResult>& results) {
  Summary summary = {run.name, run.startedAt, run.endedAt, run.isPlan, run.hosts.size()};
  summary.part = CountOf(results, HostState::Partly);
  summary.protectedHosts = CountOf(results, HostState::Protected) + summary.part;
  for (const HostResult& result : results) {
    summary.objects += result.objects.size();
    summary.protectedObjects += result.ProtectedCount();
  }
  return summary;
}

std::vector<HostResult> ResultsOf(const Run& run, KnownHosts& known) {
  std::vector<HostResult> results;
  for (const Host& host : run.hosts) {
    results.push_back(ResultOf(run, host));
    Relate(results.back(), known[host.name], run.startedAt);
  }
  return results;
}

// The names of hosts that the other run does not have.
std::vector<std::string> Without(const Run& run, const Run& other) {
  std::set<std::string> names;
  for (const Host& host : other.hosts) names.insert(host.name);
  std::vector<std::string> rest;
  for (const Host& host : run.hosts) {
    if (!names.contains(host.name)) rest.push_back(host.name);
  }
  return rest;
}

// ": sql-003, sql-004 and 7 more"
std::string NamesOf(const Protection& protection, HostState state) {
  constexpr std::size_t kMostNamed = 3;
  std::vector<std::string> names;
  for (std::size_t i = 0; i < protection.results.size(); ++i) {
    if (protection.results[i].state == state) names.push_back(protection.run.hosts[i].name);
  }
  return html::Names(names, kMostNamed);
}

std::string CountText(const Protection& protection) {
  const Summary& last = protection.last();
  const std::string of = " of " + Counted(last.hosts, "host");
  if (last.isPlan)
    return std::to_string(CountOf(protection.results, HostState::Planned)) + of + " planned, nothing taken";
  return std::to_string(last.protectedHosts) + of + " protected" +
         (last.part == 0 ? "" : ", " + std::to_string(last.part) + " of them in part");
}

}  // namespace

Protection ProtectionOf(Runs runs, std::size_t mostRuns) {
  Protection protection;
  protection.unreadable = std::move(runs.unreadable);
  const std::size_t count = runs.runs.size();
  protection.earlierRuns = count - std::min(count, mostRuns);
  KnownHosts known;
  for (std::size_t i = protection.earlierRuns; i < count; ++i) {
    protection.results = ResultsOf(runs.runs[i], known);
    protection.runs.push_back(SummaryOf(runs.runs[i], protection.results));
  }
  if (count > 1) {
    protection.gone = Without(runs.runs[count - 2], runs.runs.back());
    protection.added = Without(runs.runs.back(), runs.runs[count - 2]);
  }
  protection.run = std::move(runs.runs.back());
  return protection;
}

std::string NounOf(const Protection& protection) {
  std::set<std::string> nouns;
  for (const HostResult& result : protection.results) {
    if (!result.noun.empty()) nouns.insert(result.noun);
  }
  return nouns.size() == 1 ? *nouns.begin() + "s" : "objects";
}

std::string HeadlineOf(const Protection& protection) {
  if (protection.run.hosts.empty()) return "No hosts: this run had none";
  std::string text = CountText(protection);
  for (const HostState state :
       {HostState::Failed, HostState::Nothing, HostState::Unknown, HostState::Refused, HostState::Unreachable,
        HostState::Hung, HostState::Ended, HostState::Planned, HostState::NotRun}) {
    if (state == HostState::Planned && protection.last().isPlan) continue;
    const std::string names = NamesOf(protection, state);
    if (!names.empty()) text += std::string("; ") + WordFor(state) + ": " + names;
  }
  return text;
}

const char* WordFor(HostState state) {
  switch (state) {
    case HostState::Protected:
      return "protected";
    case HostState::Partly:
      return "protected in part";
    case HostState::Nothing:
      return "nothing protected";
    case HostState::Failed:
      return "failed";
    case HostState::Ended:
      return "set ended";
    case HostState::Planned:
      return "planned";
    case HostState::Refused:
      return "refused";
    case HostState::Unreachable:
      return "unreachable";
    case HostState::Hung:
      return "hung";
    case HostState::NotRun:
      return "not run";
    case HostState::Unknown:
      break;
  }
  return "not known";
}

}  // namespace varnelctl::fleet
