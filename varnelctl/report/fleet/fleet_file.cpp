#include "varnelctl/report/fleet/fleet_file.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <system_error>

#include "simulator/host_file/json_reader.h"
#include "simulator/host_file/text_file.h"
#include "simulator/machine/utc_time.h"
#include "text/unicode.h"
#include "varnelctl/console/text.h"
#include "varnelctl/explanation/failure.h"
#include "varnelctl/report/html/shape.h"

namespace varnelctl::fleet {
namespace {

namespace fs = std::filesystem;
using html::Field;
using html::kOptional;
using html::Type;
using nlohmann::json;
using varnel::simulator::JsonError;
using varnel::simulator::Word;

constexpr int kVersion = 1;
constexpr char kFileName[] = "fleet.json";

constexpr Field kGroup[] = {{"name", Type::Text},
                            {"mode", Type::Text},
                            {"onFailure", Type::Text},
                            {"outcome", Type::Text},
                            {"message", Type::Text}};
constexpr Field kHost[] = {
    {"name", Type::Text},          {"group", Type::TextOrNull, {}, kOptional}, {"outcome", Type::Text},
    {"message", Type::Text},       {"seconds", Type::SecondsOrNull},           {"documents", Type::Object},
    {"evidence", Type::TextOrNull}};
constexpr Field kRun[] = {{"fleet", Type::Text},
                          {"startedAt", Type::Text},
                          {"endedAt", Type::TextOrNull},
                          {"plan", Type::Flag, {}, kOptional},
                          {"groups", Type::Objects, kGroup},
                          {"hosts", Type::Objects, kHost}};

constexpr Word<Mode> kModes[] = {{"together", Mode::Together}, {"rolling", Mode::Rolling}};
constexpr Word<OnFailure> kOnFailure[] = {{"end", OnFailure::End}, {"keep", OnFailure::Keep}};
constexpr Word<GroupOutcome> kGroupOutcomes[] = {
    {"taken", GroupOutcome::Taken},     {"incomplete", GroupOutcome::Incomplete}, {"ended", GroupOutcome::Ended},
    {"stopped", GroupOutcome::Stopped}, {"planned", GroupOutcome::Planned},       {"notRun", GroupOutcome::NotRun}};
constexpr Word<Outcome> kOutcomes[] = {{"taken", Outcome::Taken},     {"failed", Outcome::Failed},
                                       {"ended", Outcome::Ended},     {"planned", Outcome::Planned},
                                       {"refused", Outcome::Refused}, {"unreachable", Outcome::Unreachable},
                                       {"hung", Outcome::Hung},       {"notRun", Outcome::NotRun}};

[[noreturn]] void Refuse(const json& value, const std::string& pointer, const std::string& why) {
  throw JsonError(pointer, "\"" + value.get<std::string>() + "\" " + why);
}

template <class Value, std::size_t n>
Value OneOf(const Word<Value> (&words)[n], const json& object, const char* key, const std::string& pointer) {
  const json& value = object[key];
  if (const auto known = varnel::simulator::ValueOf(words, value.get_ref<const std::string&>())) return *known;
  std::string list;
  for (const Word<Value>& word : words) list.append(list.empty() ? "" : ", ").append(word.text);
  Refuse(value, pointer + "/" + key, "is none of " + list);
}

LONGLONG TimeAt(const json& object, const char* key) {
  const auto time = varnel::simulator::ParseUtc(object[key].get_ref<const std::string&>());
  if (!time) Refuse(object[key], std::string("/") + key, "is no time like 2026-11-22T16:05:00Z");
  return *time;
}

// Whether it leads out of the folder that it is in: on any platform, whatever else its file system makes of dots.
bool Leaves(std::string_view path) {
  if (path.empty() || path.front() == '/' || path.front() == '\\') return true;
  if (path.size() > 1 && path[1] == ':') return true;  // a drive
  while (!path.empty()) {
    const std::size_t end = std::min(path.find_first_of("/\\"), path.size());
    const std::string_view part = path.substr(0, end);
    if (part.starts_with("..") && part.find_first_not_of(". ") == part.npos) return true;
    path.remove_prefix(std::min(end + 1, path.size()));
  }
  return false;
}

std::string PathAt(const json& value, const std::string& pointer) {
  html::Expect(Type::Text, value, pointer);
  const auto& path = value.get_ref<const std::string&>();
  if (Leaves(path)) Refuse(value, pointer, "leaves the folder of the run");
  if (std::any_of(path.begin(), path.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; })) {
    throw JsonError(pointer, "a path has no control characters");
  }
  return path;
}

Group GroupOf(const json& group, const std::string& pointer) {
  return {group["name"], OneOf(kModes, group, "mode", pointer), OneOf(kOnFailure, group, "onFailure", pointer),
          OneOf(kGroupOutcomes, group, "outcome", pointer), group["message"]};
}

Host HostOf(const json& object, const std::string& pointer) {
  Host host;
  host.name = object["name"];
  if (host.name.empty()) throw JsonError(pointer + "/name", "a host has a name");
  if (object.contains("group") && object["group"].is_string()) host.group = object["group"];
  host.outcome = OneOf(kOutcomes, object, "outcome", pointer);
  host.message = object["message"];
  if (!object["seconds"].is_null()) host.seconds = object["seconds"].get<double>();
  const std::string documents = pointer + "/documents/";
  for (const auto& [step, path] : object["documents"].items()) {
    host.documents.emplace(step, PathAt(path, std::string(documents).append(step)));
  }
  if (!object["evidence"].is_null()) host.evidence = PathAt(object["evidence"], pointer + "/evidence");
  return host;
}

void CheckVersion(const json& document) {
  html::Expect(Type::Object, document, "");
  constexpr Field kSchemaVersion[] = {{"schemaVersion", Type::Number}};
  html::Check(document, kSchemaVersion, "");
  if (document["schemaVersion"] == kVersion) return;
  throw JsonError("/schemaVersion", document["schemaVersion"].dump() + " is not " + std::to_string(kVersion) +
                                        ", which this version reads");
}

// A run that does not say whether it only plans, plans all of its groups or none.
bool HasPlannedGroup(const Run& run) {
  return std::any_of(run.groups.begin(), run.groups.end(),
                     [](const Group& group) { return group.outcome == GroupOutcome::Planned; });
}

Run RunOf(const json& document) {
  CheckVersion(document);
  html::Check(document, kRun, "");
  Run run;
  run.fleet = document["fleet"];
  run.startedAt = TimeAt(document, "startedAt");
  if (!document["endedAt"].is_null()) run.endedAt = TimeAt(document, "endedAt");
  for (const json& group : document["groups"]) {
    run.groups.push_back(GroupOf(group, "/groups/" + std::to_string(run.groups.size())));
  }
  run.isPlan = document.contains("plan") ? document["plan"].get<bool>() : HasPlannedGroup(run);
  std::map<std::string, std::size_t> names;
  for (const json& object : document["hosts"]) {
    const std::string pointer = "/hosts/" + std::to_string(run.hosts.size());
    run.hosts.push_back(HostOf(object, pointer));
    const auto [first, isNew] = names.emplace(run.hosts.back().name, run.hosts.size() - 1);
    if (!isNew) Refuse(object["name"], pointer + "/name", "is /hosts/" + std::to_string(first->second) + " already");
  }
  return run;
}

std::string TextOf(const fs::path& path) {
  return Printable(varnel::WideFileName(path.native()));
}

Run ReadRunOf(const fs::path& folder) {
  const std::string name = TextOf(folder / kFileName);
  try {
    Run run = ReadRun(name, varnel::simulator::ReadTextFile(folder / kFileName));
    run.name = TextOf(folder);
    run.folder = folder;
    return run;
  } catch (const varnel::simulator::TextFileError& error) {
    throw UsageError(name + ": " + error.what());
  }
}

// By their names, so that one folder gives one page.
std::set<fs::path> FoldersOfRuns(const fs::path& folder, const std::string& name) {
  std::set<fs::path> folders;
  std::error_code error;
  for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
    std::error_code none;
    if (fs::exists(at->path() / kFileName, none)) folders.insert(at->path());
  }
  if (error) throw UsageError(name + ": the folder cannot be read: " + error.message());
  return folders;
}

}  // namespace

bool IsFolder(const std::string& argument) {
  std::error_code none;
  return fs::is_directory(PathOf(argument), none);
}

Run ReadRun(const std::string& name, std::string_view text) {
  try {
    if (text.find_first_not_of(" \t\r\n") == text.npos) throw JsonError("", "no JSON: the file is empty");
    return RunOf(varnel::simulator::ParseJson(text));
  } catch (const JsonError& error) {
    const std::string where = error.pointer().empty() ? "" : error.pointer() + ": ";
    throw UsageError(OneLine(name + ": " + where + error.what()));
  }
}

Runs ReadRuns(const std::string& folder) {
  const fs::path path = PathOf(folder);
  const std::string name = TextOf(path);
  std::error_code none;
  if (fs::exists(path / kFileName, none)) return {{ReadRunOf(path)}, {}};
  Runs read;
  for (const fs::path& of : FoldersOfRuns(path, name)) {
    try {
      read.runs.push_back(ReadRunOf(of));
    } catch (const UsageError& error) {
      read.unreadable.emplace_back(error.what());
    }
  }
  if (read.runs.empty() && read.unreadable.empty()) {
    throw UsageError(name + ": neither this folder nor one in it has a " + kFileName);
  }
  if (read.runs.empty()) throw UsageError(read.unreadable.back());
  std::stable_sort(read.runs.begin(), read.runs.end(),
                   [](const Run& a, const Run& b) { return a.startedAt < b.startedAt; });
  return read;
}

}  // namespace varnelctl::fleet
