#include "varnelctl/evidence/names.h"

#include <algorithm>
#include <unordered_set>

#include "simulator/host_file/documents.h"
#include "text/ascii_case.h"
#include "text/guid.h"
#include "text/unicode.h"
#include "varnelctl/anonymise/names_of_host.h"
#include "varnelctl/capture/questions.h"
#include "varnelctl/console/json.h"
#include "varnelctl/console/text.h"

namespace varnelctl {
namespace {

namespace simulator = varnel::simulator;
using varnel::Utf8ToWideLossy;

// Keys whose values are words of the document.
const std::unordered_set<std::string>& WordsOfRun() {
  static const std::unordered_set<std::string> kKeys = {
      "schema", "kind",   "version", "start",    "application", "type",  "context", "hresult",     "explain", "step",
      "steps",  "phases", "code",    "setState", "reason",      "place", "noun",    "failureCode", "document"};
  return kKeys;
}

simulator::WriterComponent ComponentOf(const VssComponent& component) {
  simulator::WriterComponent made;
  made.logicalPath = component.logicalPath;
  made.name = component.name;
  made.caption = component.caption;
  for (const VssFileDescriptor& file : component.files) {
    made.files.push_back({file.path, file.filespec});
    made.files.push_back({file.expandedPath, {}});
  }
  return made;
}

// Whether it has no file on another one.
bool IsOnSystemDrive(const simulator::Writer& writer, std::wstring_view systemDirectory) {
  const std::wstring_view drive = systemDirectory.substr(0, systemDirectory.find(L'\\'));
  const auto isThere = [&](const simulator::FileSpec& file) {
    const bool hasDrive = file.path.size() > 1 && file.path[1] == L':';
    return !hasDrive || varnel::ascii::StartsWithIgnoringCase(file.path, drive);
  };
  return std::all_of(writer.components.begin(), writer.components.end(), [&](const auto& component) {
    return std::all_of(component.files.begin(), component.files.end(), isThere);
  });
}

// "SQL01.corp.example"
void AddHost(const std::string& name, Anonymiser& names) {
  const std::size_t dot = std::min(name.find('.'), name.size());
  names.Add(NameKind::Host, name.substr(0, dot));
  if (dot == name.size()) return;
  const std::string domain = name.substr(dot + 1);
  names.Add(NameKind::Domain, domain);
  names.Add(NameKind::Domain, domain.substr(0, domain.find('.')));
}

void AddFile(const std::string& argument, Anonymiser& names) {
  const std::wstring path = Utf8ToWideLossy(argument);
  const std::size_t end = path.find_last_of(L"\\/");
  const std::size_t file = end == path.npos ? 0 : end + 1;
  names.AddPath(path.substr(0, file), path.substr(file));
}

// The values of options: files, and names that no writer may have.
void AddArguments(const std::vector<std::string>& arguments, Anonymiser& names) {
  const std::unordered_set<std::string_view> files = {"--host",     "--state",    "--log",     "--journal", "--report",
                                                      "--evidence", "--document", "--catalog", "--calls"};
  std::string option;
  for (const std::string& argument : arguments) {
    const bool isOption = argument.starts_with("--");
    const std::size_t equals = isOption ? argument.find('=') : argument.npos;
    if (isOption) option = argument.substr(0, equals);
    if (isOption && equals == argument.npos) continue;
    const std::string value = equals == argument.npos ? argument : argument.substr(equals + 1);
    if (option == "--require" && value != "all") names.Add(NameKind::Database, value);
    if (!files.contains(option)) continue;
    AddFile(value, names);
    option.clear();  // the next word is not its value
  }
}

bool IsSerialNumber(const std::string& key) {
  return key == "serialNumber" || key == "sourceSerialNumber" || key == "disks" || key == "missingDisks";
}

// NOLINTNEXTLINE(misc-no-recursion): as deep as the document is
void AddNamesIn(const Json& value, const std::string& key, Anonymiser& names) {
  if (value.is_string()) {
    const auto& text = value.get_ref<const std::string&>();
    if (IsSerialNumber(key)) names.Add(NameKind::Serial, text);
    if (key == "targetName") names.Add(NameKind::Target, text);
    if (key == "mountPoint" || key == "mountPoints") names.AddPath(Utf8ToWideLossy(text));
  }
  for (const auto& [inner, member] : value.items()) {
    if (value.is_structured()) AddNamesIn(member, value.is_object() ? inner : key, names);
  }
}

// Of a catalogue, which has serial numbers for keys.
Json WithReplacedKeys(const Json& object, Anonymiser& names) {
  Json replaced = Json::object();
  for (const auto& [key, value] : object.items()) replaced[names.Replace(key)] = value;
  return replaced;
}

// The data of an event may hold any text in any coding.
std::string WithoutBinary(std::string xml) {
  constexpr std::string_view kBegin = "<Binary>";
  constexpr std::string_view kEnd = "</Binary>";
  for (std::size_t at = xml.find(kBegin); at != xml.npos; at = xml.find(kBegin, at)) {
    at += kBegin.size();
    xml.erase(at, std::min(xml.find(kEnd, at), xml.size()) - at);
  }
  return xml;
}

}  // namespace

std::vector<simulator::Writer> WritersOf(const std::vector<VssWriter>& writers) {
  std::vector<simulator::Writer> made;
  for (const VssWriter& writer : writers) {
    simulator::Writer& entry = made.emplace_back();
    entry.name = writer.name;
    entry.writerId = varnel::GuidOrNull<GUID>(writer.writerId);
    entry.usage = VSS_UT_UNDEFINED;  // the library does not keep it
    for (const VssComponent& component : writer.components) entry.components.push_back(ComponentOf(component));
    for (const VssFileDescriptor& file : writer.excludeFiles) entry.excludeFiles.push_back({file.path, file.filespec});
  }
  return made;
}

void AddNamesOfHost(std::vector<simulator::Writer> writers, Anonymiser& names) {
  CapturedHost host;
  capture::AskMachine(host);
  capture::AskStorage(host);
  capture::AskSessions(host);
  for (simulator::Writer& writer : writers) {
    const bool isOfSystem = writer.usage == VSS_UT_UNDEFINED && IsOnSystemDrive(writer, host.model.systemDirectory);
    if (isOfSystem) writer.usage = VSS_UT_BOOTABLESYSTEMSTATE;
  }
  host.model.writers = std::move(writers);
  capture::AskSurroundings(host);
  AddNames(host.model, names);
}

void ReadWriterDocuments(std::vector<EvidenceFile>& files, std::vector<simulator::Writer>& writers) {
  std::vector<simulator::Writer> told;
  for (EvidenceFile& file : files) {
    if (!file.name.starts_with("writer-") || !file.whyNot.empty()) continue;
    try {
      told.push_back(simulator::ParseWriterMetadata(file.content));
    } catch (const simulator::DocumentError& error) {
      file.content.clear();
      file.whyNot = "the names in it cannot be found out: " + OneLine(error.what());
    }
  }
  std::erase_if(writers, [&](const simulator::Writer& writer) {
    return std::any_of(told.begin(), told.end(),
                       [&](const simulator::Writer& other) { return other.writerId == writer.writerId; });
  });
  writers.insert(writers.begin(), std::make_move_iterator(told.begin()), std::make_move_iterator(told.end()));
}

void AddNamesOfRun(const Header& header, const Json& run, Anonymiser& names) {
  if (header.host) AddHost(*header.host, names);
  AddArguments(header.commandLine, names);
  AddNamesIn(run, {}, names);
}

void ReplaceNames(EvidenceFile& file, Anonymiser& names) {
  file.title = names.Replace(file.title);
  file.whyNot = names.Replace(file.whyNot);
  if (file.name.ends_with(".xml")) {
    file.content = names.ReplaceInXml(WithoutBinary(std::move(file.content)));
  } else if (file.name.ends_with(".json") && !file.content.empty()) {
    Json replaced = names.ReplaceInJson(Json::parse(file.content), {"kind", "type", "stage", "end", "application"});
    if (file.name == "catalog.json") replaced = WithReplacedKeys(replaced, names);
    file.content = EscapeUnprintable(replaced.dump(2)) + "\n";
  } else {
    file.content = names.Replace(file.content);
  }
}

Json WithoutNames(Json run, Anonymiser& names) {
  run = names.ReplaceInJson(std::move(run), WordsOfRun());
  if (run.contains("document")) run["document"] = names.ReplaceInXml(run["document"].get_ref<const std::string&>());
  if (run.contains("catalog")) run["catalog"] = WithReplacedKeys(run["catalog"], names);
  return run;
}

}  // namespace varnelctl
