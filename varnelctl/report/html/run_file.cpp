#include "varnelctl/report/html/run_file.h"

#include <algorithm>

#include "simulator/host_file/json_reader.h"
#include "simulator/host_file/text_file.h"
#include "text/unicode.h"
#include "varnelctl/console/text.h"
#include "varnelctl/explanation/failure.h"
#include "varnelctl/report/html/shape.h"

namespace varnelctl::html {
namespace {

using nlohmann::json;
using varnel::simulator::JsonError;

constexpr std::string_view kSchema = "varnelctl/1";

constexpr Field kHeader[] = {{"version", Type::Text},
                             {"host", Type::TextOrNull},
                             {"commandLine", Type::Texts},
                             {"start", Type::Text},
                             {"application", Type::Text, {}, kOptional},
                             {"disks", Type::Texts, {}, kOptional},
                             {"provider", Type::Text, {}, kOptional}};
constexpr Field kResult[] = {{"alertCode", Type::Number}, {"hresult", Type::TextOrNull}, {"message", Type::Text},
                             {"details", Type::Texts},    {"remedy", Type::Text},        {"explain", Type::Text},
                             {"step", Type::TextOrNull}};
constexpr Field kWarning[] = {{"code", Type::Text}, {"text", Type::Text}};
constexpr Field kComponent[] = {{"fullPath", Type::Text},
                                {"caption", Type::Text},
                                {"failed", Type::Flag},
                                {"failureCode", Type::Text},
                                {"disks", Type::Texts},
                                {"volumes", Type::Texts, {}, kOptional},
                                {"place", Type::Text, {}, kOptional},
                                {"reason", Type::TextOrNull, {}, kOptional},
                                {"why", Type::TextOrNull, {}, kOptional},
                                {"because", Type::TextOrNull, {}, kOptional},
                                {"missingDisks", Type::Texts, {}, kOptional}};
constexpr Field kWriter[] = {{"name", Type::Text},
                             {"reason", Type::TextOrNull},
                             {"why", Type::TextOrNull, {}, kOptional},
                             {"components", Type::Objects, kComponent}};
constexpr Field kObject[] = {
    {"name", Type::Text},          {"writer", Type::Text}, {"path", Type::Text},
    {"captured", Type::Flag},      {"failed", Type::Flag}, {"reason", Type::TextOrNull},
    {"missingDisks", Type::Texts}, {"disks", Type::Texts}, {"why", Type::TextOrNull, {}, kOptional}};
constexpr Field kBackup[] = {{"type", Type::Text}, {"context", Type::Text}, {"effect", Type::TextOrNull}};
constexpr Field kProvider[] = {{"id", Type::Text}, {"name", Type::TextOrNull}, {"version", Type::TextOrNull}};
constexpr Field kStep[] = {
    {"name", Type::Text}, {"start", Type::Number}, {"end", Type::Number}, {"result", Type::Text}};
constexpr Field kWriterStatus[] = {
    {"name", Type::Text},    {"instanceId", Type::Text},        {"state", Type::Text},
    {"failure", Type::Text}, {"applicationResult", Type::Text}, {"applicationMessage", Type::Text}};
constexpr Field kWriterStates[] = {
    {"step", Type::Text}, {"time", Type::Number}, {"writers", Type::Objects, kWriterStatus}};
constexpr Field kMoment[] = {
    {"time", Type::Number}, {"writer", Type::Text}, {"event", Type::Text}, {"failure", Type::Text}};
constexpr Field kVerdict[] = {{"text", Type::Text},
                              {"captured", Type::Number},
                              {"of", Type::Number},
                              {"noun", Type::Text},
                              {"endWith", Type::TextOrNull, {}, kOptional}};
constexpr Field kShadowCopy[] = {{"volume", Type::Text},
                                 {"mountPoint", Type::Text, {}, kOptional},
                                 {"sourceSerialNumber", Type::Text, {}, kOptional},
                                 {"snapshotId", Type::Text},
                                 {"device", Type::Text},
                                 {"serialNumber", Type::Text}};
constexpr Field kVolume[] = {
    {"volume", Type::Text}, {"mountPoint", Type::Text}, {"serialNumber", Type::Text}, {"extra", Type::Flag}};

// Of every run.
constexpr Field kRun[] = {{"header", Type::Object, kHeader},
                          {"status", Type::Number},
                          {"result", Type::Object, kResult},
                          {"errorDetails", Type::Text},
                          {"warnings", Type::Objects, kWarning}};
// Of one that found something.
constexpr Field kFound[] = {{"verdict", Type::Object, kVerdict},
                            {"writers", Type::Objects, kWriter},
                            {"objects", Type::Objects, kObject},
                            {"backup", Type::Object, kBackup},
                            {"provider", Type::Object, kProvider},
                            {"steps", Type::Objects, kStep},
                            {"writerStates", Type::Objects, kWriterStates, kOptional},
                            {"moments", Type::Objects, kMoment, kOptional},
                            {"snapshots", Type::Objects, kShadowCopy, kOptional},
                            {"volumes", Type::Objects, kVolume, kOptional},
                            {"snapshotSetId", Type::Text, {}, kOptional}};

void CheckRun(const json& run, const std::string& pointer) {
  Expect(Type::Object, run, pointer);
  if (!run.contains("schema")) {
    throw JsonError(pointer + "/schema",
                    "the key is missing: this is none of varnelctl's documents, or one of an older version");
  }
  constexpr Field kSchemaAndKind[] = {{"schema", Type::Text}, {"kind", Type::Text}};
  Check(run, kSchemaAndKind, pointer);
  if (run["schema"] != kSchema) {
    throw JsonError(pointer + "/schema", "\"" + run["schema"].get<std::string>() + "\" is not \"" +
                                             std::string(kSchema) + "\", which this version reads");
  }
  const std::string& kind = run["kind"].get_ref<const std::string&>();
  const bool isFound = kind == "snapshot" || kind == "plan";
  if (!isFound && kind != "failure") {
    throw JsonError(pointer + "/kind", "\"" + kind + "\" is none of snapshot, plan, failure: only these are runs");
  }
  Check(run, kRun, pointer);
  // A failure has none of these, unless somebody else wrote it.
  const bool hasFound =
      std::any_of(std::begin(kFound), std::end(kFound), [&](const Field& field) { return run.contains(field.key); });
  if (isFound || hasFound) Check(run, kFound, pointer);
}

// The lines that are not empty, each with its number from 1.
std::vector<std::pair<std::size_t, std::string_view>> LinesOf(std::string_view text) {
  std::vector<std::pair<std::size_t, std::string_view>> lines;
  for (std::size_t number = 1; !text.empty(); ++number) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    if (line.find_first_not_of(" \t\r") != line.npos) lines.emplace_back(number, line);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

bool IsEvent(std::string_view line) {
  const json value = json::parse(line, nullptr, false);
  return value.is_object() && value.contains("event");
}

// The document in what --json-lines ends with; any other value as it is.
json WithoutEvent(json value, std::string& pointer) {
  if (!value.is_object() || !value.contains("event")) return value;
  if (value["event"] != "end" || !value.contains("document")) {
    throw JsonError("/event", "the last line is not the \"end\" of a run: this one broke off");
  }
  pointer = "/document";
  return std::move(value["document"]);
}

json Parse(std::string_view text, std::string& place) {
  const auto lines = LinesOf(text);
  if (lines.empty()) throw JsonError("", "no JSON: the file is empty");
  if (lines.size() > 1 && IsEvent(lines.front().second)) {
    place = "line " + std::to_string(lines.back().first) + ": ";
    text = lines.back().second;
  }
  return varnel::simulator::ParseJson(text);
}

}  // namespace

StoredRun ReadRun(std::string name, std::string_view text) {
  std::string place;
  std::string pointer;
  try {
    json document = WithoutEvent(Parse(text, place), pointer);
    CheckRun(document, pointer);
    return {std::move(name), std::move(document)};
  } catch (const JsonError& error) {
    const std::string where = error.pointer().empty() ? "" : error.pointer() + ": ";
    throw UsageError(OneLine(name + ": " + place + where + error.what()));
  }
}

StoredRun ReadRunFile(const std::string& argument) {
  const std::string name = Printable(varnel::Utf8ToWideLossy(argument));
  try {
    return ReadRun(name, varnel::simulator::ReadTextFile(PathOf(argument)));
  } catch (const varnel::simulator::TextFileError& error) {
    throw UsageError(name + ": " + error.what());
  }
}

}  // namespace varnelctl::html
