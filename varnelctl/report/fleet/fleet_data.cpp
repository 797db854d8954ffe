#include "varnelctl/report/fleet/fleet_data.h"

#include <cmath>
#include <nlohmann/json.hpp>
#include <unordered_map>

#include "simulator/machine/utc_time.h"
#include "text/format.h"
#include "varnelctl/report/html/run_sections.h"

namespace varnelctl::fleet {
namespace {

using nlohmann::json;

// The sign of a state, of those that the script has, and its word.
struct Shown {
  const char* sign;
  const char* word;
};

Shown ShownOf(HostState state) {
  switch (state) {
    case HostState::Protected:
      return {"captured", WordFor(state)};
    case HostState::Partly:
      return {"partial", WordFor(state)};
    case HostState::Ended:
      return {"container", WordFor(state)};
    case HostState::Planned:
    case HostState::NotRun:
      return {"other", WordFor(state)};
    default:
      return {"failed", WordFor(state)};
  }
}

Shown ShownOf(ObjectState state) {
  switch (state) {
    case ObjectState::Protected:
      return {"captured", "protected"};
    case ObjectState::LeftOut:
      return {"leftOut", "left out"};
    case ObjectState::Failed:
      return {"failed", "failed"};
    case ObjectState::Ended:
      return {"container", "set ended"};
    case ObjectState::NotTaken:
      return {"other", "not taken"};
    default:
      return {"failed", "not known"};
  }
}

// Texts by their numbers, so that none stands twice.
class Texts {
 public:
  /// Null for an empty one.
  json Of(const std::string& text) {
    if (text.empty()) return nullptr;
    return numbers_.emplace(text, numbers_.size()).first->second;
  }
  json Of(const std::optional<LONGLONG>& time) { return time ? Of(TimeText(*time)) : json(nullptr); }
  json All() const {
    json all = json::array();
    for (std::size_t i = 0; i < numbers_.size(); ++i) all.push_back(nullptr);
    for (const auto& [text, number] : numbers_) all[number] = text;
    return all;
  }

 private:
  std::unordered_map<std::string, std::size_t> numbers_;
};

// The numbers of what is shown, by their words.
class States {
 public:
  json Of(const Shown& shown) {
    const auto [place, isNew] = numbers_.emplace(shown.word, all_.size());
    if (isNew) all_.push_back({shown.sign, shown.word});
    return place->second;
  }
  const json& all() const { return all_; }

 private:
  std::unordered_map<std::string, std::size_t> numbers_;
  json all_ = json::array();
};

json LinksOf(const Host& host, const std::optional<std::string>& linkBase) {
  json links = json::array();
  if (!linkBase) return links;
  for (const auto& [step, path] : host.documents) links.push_back({step, LinkTo(*linkBase, path)});
  if (host.evidence) links.push_back({"evidence", LinkTo(*linkBase, *host.evidence + "/index.html")});
  return links;
}

json HostRow(const Host& host, const HostResult& result, States& states, Texts& texts,
             const std::optional<std::string>& linkBase) {
  return {host.name,
          host.group,
          states.Of(ShownOf(result.state)),
          texts.Of(result.why),
          result.ProtectedCount(),
          result.objects.size(),
          texts.Of(result.taken),
          texts.Of(result.documentTime),
          host.seconds ? json(DurationText(*host.seconds)) : json(nullptr),
          LinksOf(host, linkBase)};
}

// What stands at the end of most rows is nothing, and left out.
json ObjectRow(const Object& object, std::size_t host, States& states, Texts& texts) {
  json row = {host, object.name, states.Of(ShownOf(object.state)), texts.Of(object.why)};
  if (object.last) {
    row.push_back(texts.Of(object.last->taken));
    row.push_back(texts.Of(object.last->run));
  }
  while (row.back().is_null()) row.erase(row.size() - 1);
  return row;
}

bool IsUnreserved(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         std::string_view("-._~/").find(c) != std::string_view::npos;
}

}  // namespace

std::string TimeText(LONGLONG time) {
  return html::TimeText(varnel::simulator::FormatUtc(time));
}

std::string DurationText(double seconds) {
  constexpr long long kTenths = 10;
  constexpr long long kMinute = 60;
  constexpr long long kHour = 3600;
  const long long tenths = std::llround(seconds * kTenths);
  const long long whole = std::llround(seconds);
  if (whole < 2 * kMinute) return std::to_string(tenths / kTenths) + "." + std::to_string(tenths % kTenths) + " s";
  if (whole < 2 * kHour) return std::to_string(whole / kMinute) + " min " + std::to_string(whole % kMinute) + " s";
  return std::to_string(whole / kHour) + " h " + std::to_string(whole % kHour / kMinute) + " min";
}

std::string LinkTo(const std::string& linkBase, const std::string& path) {
  std::string link;
  std::string whole = linkBase;
  if (!whole.empty()) whole += "/";
  whole += path;
  for (const char c : whole) {
    if (IsUnreserved(c)) {
      link += c;
    } else {
      link += varnel::FormatNarrow("%%%02X", {static_cast<unsigned>(static_cast<unsigned char>(c))});
    }
  }
  return link;
}

json DataOf(const Protection& protection, const std::optional<std::string>& linkBase) {
  States states;
  Texts texts;
  json hosts = json::array();
  json objects = json::array();
  for (std::size_t i = 0; i < protection.results.size(); ++i) {
    const HostResult& result = protection.results[i];
    hosts.push_back(HostRow(protection.run.hosts[i], result, states, texts, linkBase));
    for (const Object& object : result.objects) objects.push_back(ObjectRow(object, i, states, texts));
  }
  return {{"states", states.all()}, {"texts", texts.All()}, {"hosts", hosts}, {"objects", objects}};
}

}  // namespace varnelctl::fleet
