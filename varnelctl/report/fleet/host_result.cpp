#include "varnelctl/report/fleet/host_result.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

#include "simulator/host_file/text_file.h"
#include "simulator/machine/utc_time.h"
#include "varnelctl/console/text.h"
#include "varnelctl/explanation/failure.h"
#include "varnelctl/report/html/comparison.h"
#include "varnelctl/report/html/run_file.h"
#include "varnelctl/report/html/run_sections.h"
#include "varnelctl/report/html/shape.h"
#include "varnelctl/report/html/timeline.h"

namespace varnelctl::fleet {
namespace {

using html::TextAt;
using nlohmann::json;

constexpr LONGLONG kTicksOfMillisecond = 10'000;

// Null where there is no such document, and where it cannot be read, with the problem.
json ReadDocument(const Run& run, const Host& host, const char* step, std::string& problem) {
  const auto named = host.documents.find(step);
  if (named == host.documents.end()) return nullptr;
  const std::string& path = named->second;
  try {
    json document = html::ReadRun(path, varnel::simulator::ReadTextFile(run.folder / PathOf(path))).document;
    const auto& kind = document["kind"].get_ref<const std::string&>();
    if (kind == step || kind == "failure") return document;
    problem = path + ": /kind: \"" + kind + "\" is not \"" + step + "\"";
  } catch (const varnel::simulator::TextFileError& error) {
    problem = path + ": " + error.what();
  } catch (const UsageError& error) {
    problem = error.what();
  }
  return nullptr;
}

bool HasObjects(const json& document) {
  return document.is_object() && document.contains("objects") && !document["objects"].empty();
}

std::optional<LONGLONG> StartOf(const json& document) {
  if (!document.is_object()) return std::nullopt;
  return varnel::simulator::ParseUtc(document["header"]["start"].get_ref<const std::string&>());
}

// Of the end of the step that takes the snapshot.
std::optional<LONGLONG> TimeOfSet(const json& document) {
  const std::optional<LONGLONG> start = StartOf(document);
  constexpr long long kMostMilliseconds = 1'000'000'000'000;
  if (!start) return std::nullopt;
  return *start + std::clamp(html::EndOfSnapshot(document), 0LL, kMostMilliseconds) * kTicksOfMillisecond;
}

// Why there is no set although the document is that of a success; empty where there is one.
std::string WhyNoSet(const json& document) {
  const std::string state = TextAt(document, "setState");
  if (state == "kept" || state == "broken" || state == "masked") return {};
  if (state == "released") return "the set ended with the program that took it";
  if (state == "deleted") return "the set was deleted by the run that took it";
  return "nobody can say whether there is a set";
}

HostState StateOf(Outcome outcome) {
  constexpr std::array<HostState, 8> kStates = {HostState::Unknown, HostState::Failed,  HostState::Ended,
                                                HostState::Planned, HostState::Refused, HostState::Unreachable,
                                                HostState::Hung,    HostState::NotRun};
  return kStates.at(static_cast<std::size_t>(outcome));
}

void AddTo(std::string& text, const std::string& more) {
  if (more.empty()) return;
  if (!text.empty()) text += text.ends_with('.') ? " " : ". ";
  text += more;
}

// What a document says of its failure and what to do.
std::string FailureText(const json& document) {
  std::string text = TextAt(document["result"], "message");
  if (text.empty()) text = html::VerdictText(document);
  AddTo(text, TextAt(document["result"], "remedy"));
  return text;
}

// The host is taken, as the run says, and this is its document.
void JudgeSet(HostResult& result, const json& document) {
  const bool isFailed = html::StandingOf(document) == html::Standing::Failed;
  const std::string whyNot = isFailed ? FailureText(document) : WhyNoSet(document);
  result.state = whyNot.empty() ? HostState::Protected : HostState::Nothing;
  if (whyNot.empty()) result.taken = TimeOfSet(document);
  AddTo(result.why, whyNot);
}

// What is wrong with an object by itself, whatever became of its host.
std::optional<std::pair<ObjectState, std::string>> OwnFault(const json& object, const json& document) {
  const std::string reason = TextAt(object, "reason");
  if (!reason.empty() && reason != "requestEnded") {
    const std::string why = TextAt(object, "why");
    return std::pair(ObjectState::LeftOut, why.empty() ? reason : why);
  }
  if (!object["failed"].get<bool>()) return std::nullopt;
  std::string why = "failed by its writer";
  AddTo(why, TextAt(document["result"], "remedy"));
  return std::pair(ObjectState::Failed, why);
}

Object ObjectOf(const json& object, const json& document, const HostResult& host) {
  Object made = {html::KeyOf(object), object["name"], StateOfObjects(host.state), host.why};
  if (auto fault = OwnFault(object, document)) {
    std::tie(made.state, made.why) = std::move(*fault);
  } else if (host.state == HostState::Protected) {
    made.state = object["captured"].get<bool>() ? ObjectState::Protected : ObjectState::LeftOut;
    made.why.clear();
  }
  return made;
}

// The objects as the snapshot has them, or else as the plan has.
void ReadObjects(HostResult& result, const Run& run, const Host& host, const json& snapshot) {
  std::string problem;
  const json plan = HasObjects(snapshot) ? json() : ReadDocument(run, host, "plan", problem);
  if (!problem.empty()) AddTo(result.why, "Its plan cannot be read: " + problem);
  result.hasBrokenDocument = result.hasBrokenDocument || !problem.empty();
  const json& document = HasObjects(plan) ? plan : snapshot;
  if (!document.is_object()) return;
  if (!result.documentTime) result.documentTime = StartOf(document);
  if (document.contains("verdict")) result.noun = TextAt(document["verdict"], "noun");
  for (const json& object : document.value("objects", json::array())) {
    result.objects.push_back(ObjectOf(object, document, result));
  }
}

}  // namespace

std::size_t HostResult::ProtectedCount() const {
  return static_cast<std::size_t>(std::count_if(
      objects.begin(), objects.end(), [](const Object& object) { return object.state == ObjectState::Protected; }));
}

ObjectState StateOfObjects(HostState host) {
  switch (host) {
    case HostState::Failed:
      return ObjectState::Failed;
    case HostState::Ended:
      return ObjectState::Ended;
    case HostState::Unknown:
      return ObjectState::Unknown;
    default:
      return ObjectState::NotTaken;
  }
}

HostResult ResultOf(const Run& run, const Host& host) {
  HostResult result;
  result.state = StateOf(host.outcome);
  result.why = host.message;
  std::string problem;
  const json snapshot = ReadDocument(run, host, "snapshot", problem);
  result.documentTime = StartOf(snapshot);
  if (!problem.empty()) {
    AddTo(result.why, "Its document cannot be read: " + problem);
    result.hasBrokenDocument = true;
  } else if (host.outcome == Outcome::Taken && snapshot.is_object()) {
    JudgeSet(result, snapshot);
  } else if (host.outcome == Outcome::Taken) {
    AddTo(result.why, "There is no document of its snapshot");
  } else if (host.outcome == Outcome::Failed && result.why.empty() && snapshot.is_object()) {
    result.why = FailureText(snapshot);
  }
  ReadObjects(result, run, host, snapshot);
  if (result.state == HostState::Protected && result.ProtectedCount() != result.objects.size()) {
    result.state = result.ProtectedCount() == 0 ? HostState::Nothing : HostState::Partly;
  }
  return result;
}

}  // namespace varnelctl::fleet
