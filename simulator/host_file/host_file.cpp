#include <algorithm>
#include <chrono>

#include "simulator/host_file/host_words.h"
#include "simulator/host_file/json_reader.h"
#include "simulator/host_file/read_disks.h"
#include "simulator/host_file/read_events.h"
#include "simulator/host_file/read_faults.h"
#include "simulator/host_file/read_writers.h"
#include "simulator/host_file/text_file.h"
#include "simulator/machine/result_names.h"
#include "simulator/machine/version.h"
#include "simulator/simulated_host.h"
#include "text/guid.h"
#include "text/unicode.h"

namespace varnel::simulator {
namespace {

constexpr Word<ProviderStep> kProviderSteps[] = {
    {"beginPrepare", ProviderStep::beginPrepare},
    {"endPrepare", ProviderStep::endPrepare},
    {"commit", ProviderStep::commit},
};

constexpr Word<OrphanedSnapshot> kOrphanedSnapshot[] = {
    {"abandon", OrphanedSnapshot::abandon},
    {"complete", OrphanedSnapshot::complete},
};

// A map whose keys compare without regard to case.
std::map<std::wstring, std::wstring> ReadTexts(const JsonObject& object, std::string_view key,
                                               const std::string& what) {
  std::map<std::wstring, std::wstring> texts;
  UniqueNames names(what);
  for (const auto& [name, node] : object.MembersOf(key)) {
    names.Add(Utf8ToWide(name), node);
    texts.emplace(Utf8ToWide(name), node.Text());
  }
  return texts;
}

void ReadOs(const JsonNode& node, OperatingSystem& os) {
  const JsonObject object(node, {"server", "version", "servicePack"});
  object.Read("server", os.server);
  if (const auto version = object.Find("version")) {
    const auto parts = ParseVersion<3>(version->Utf8(), 0xFFFFFFFF);
    if (!parts) version->Refuse("is no version (major.minor.build)");
    os.major = (*parts)[0];
    os.minor = (*parts)[1];
    os.build = (*parts)[2];
  }
  if (const auto servicePack = object.Find("servicePack")) {
    os.servicePack = static_cast<WORD>(servicePack->Number(0xFFFF));
  }
}

ClusterNode ReadCluster(const JsonNode& node) {
  const JsonObject object(node, {"name", "networkNames"});
  ClusterNode cluster;
  object.Read("name", cluster.name);
  cluster.networkNames = ReadTexts(object, "networkNames", "name");
  return cluster;
}

void ReadSupport(const JsonObject& object, Provider& provider, const std::vector<Disk>& disks) {
  if (const auto kinds = object.Find("supports")) {
    const bool asked = provider.type == VSS_PROV_HARDWARE || provider.type == VSS_PROV_SOFTWARE;
    if (!asked) kinds->Fail("only a hardware or software provider says what it supports");
    LONG supported = 0;
    for (const JsonNode& kind : kinds->Elements()) supported |= kind.OneOf(kCopyKinds);
    provider.supports = supported;
  }
  object.ReadList("unsupportedVolumes", provider.unsupportedVolumes,
                  [&](const JsonNode& volume) { return ReadVolumeOf(disks, volume).name; });
  if (const auto veto = object.Find("veto")) provider.veto = veto->OneOf(kProviderSteps);
}

void ReadProviders(const JsonObject& root, HostModel& model) {
  UniqueNames ids("provider");
  root.ReadList("providers", model.providers, [&](const JsonNode& node) {
    const JsonObject object(node, {"id", "name", "type", "version", "supports", "unsupportedVolumes", "veto", "hangs"});
    Provider provider;
    provider.id = object.At("id").Guid();
    ids.Add(FormatGuid(provider.id), node);
    object.Read("name", provider.name).Read("type", provider.type, kProviderTypes).Read("version", provider.version);
    ReadSupport(object, provider, model.disks);
    object.Read("hangs", provider.hangs);
    return provider;
  });
}

IscsiDevice ReadIscsiDevice(const JsonNode& node, const HostModel& model) {
  const JsonObject object(node, {"disk", "shadowOf", "appearsAfter"});
  const bool shadow = object.Has("shadowOf");
  if (object.Has("disk") == shadow) node.Fail("expected one of disk, shadowOf");
  IscsiDevice device{ReadSerialOf(model.disks, object.At(shadow ? "shadowOf" : "disk")), shadow};
  object.Read("appearsAfter", device.appearsAfter);
  return device;
}

IscsiSession ReadIscsiSession(const JsonNode& node, const HostModel& model) {
  const JsonObject object(node, {"targetName", "devices", "busyQueries", "failedLogouts", "appearsAfter"});
  IscsiSession session;
  object.Read("targetName", session.targetName).Read("busyQueries", session.busyQueries);
  object.Read("failedLogouts", session.failedLogouts).Read("appearsAfter", session.appearsAfter);
  object.ReadList("devices", session.devices, [&](const JsonNode& device) { return ReadIscsiDevice(device, model); });
  return session;
}

void ReadFileVersions(const JsonObject& root, HostModel& model) {
  UniqueNames paths("file");
  for (const auto& [path, node] : root.MembersOf("files")) {
    const JsonNode version = JsonObject(node, {"version"}).At("version");
    if (!ParseFileVersion(version.Utf8())) version.Refuse("is no file version (four numbers)");
    paths.Add(Utf8ToWide(path), node);
    model.fileVersions.emplace(Utf8ToWide(path), version.Text());
  }
}

void ReadRegistry(const JsonObject& root, HostModel& model) {
  UniqueNames keys("key");
  for (const auto& [key, node] : root.MembersOf("registry")) {
    if (!key.starts_with("HKEY_LOCAL_MACHINE\\") && !key.starts_with("HKEY_CURRENT_USER\\")) {
      node.Fail("a key stands below HKEY_LOCAL_MACHINE\\ or HKEY_CURRENT_USER\\");
    }
    if (key.ends_with('\\') || key.find("\\\\") != std::string::npos) node.Fail("a key has no empty part");
    keys.Add(Utf8ToWide(key), node);
    auto& values = model.registry[Utf8ToWide(key)];
    UniqueNames names("value");
    for (const auto& [name, value] : node.Members()) {
      names.Add(Utf8ToWide(name), value);
      values.emplace(Utf8ToWide(name), value.Text());
    }
  }
}

Command ReadCommand(const JsonNode& node) {
  const JsonObject object(node, {"match", "exitCode", "folder"});
  Command command{object.At("match").Text()};
  object.Read("exitCode", command.exitCode);
  if (const auto folder = object.Find("folder")) {
    command.folder = folder->Text();
    if (!command.folder.starts_with(L"\\\\") && command.folder.find(L":\\") != 1) folder->Refuse("is no full path");
  }
  return command;
}

Service ReadService(const JsonNode& node) {
  const JsonObject object(node, {"start", "state"});
  Service service{SERVICE_DEMAND_START, SERVICE_STOPPED};
  object.Read("start", service.startType, kServiceStarts).Read("state", service.state, kServiceStates);
  return service;
}

void ReadServices(const JsonObject& root, HostModel& model) {
  UniqueNames names("service");
  for (const auto& [name, node] : root.MembersOf("services")) {
    names.Add(Utf8ToWide(name), node);
    model.services.emplace(Utf8ToWide(name), node.IsNull() ? std::nullopt : std::optional(ReadService(node)));
  }
}

void ReadProcess(const JsonNode& node, Process& process) {
  const JsonObject object(node, {"elevated", "bits"});
  DWORD bits = 64;
  object.Read("elevated", process.elevated).Read("bits", bits);
  if (bits != 32 && bits != 64) object.At("bits").Fail("expected 32 or 64");
  process.is32Bit = bits == 32;
}

// "2026-01-01T00:00:00Z", in FILETIME's units.
LONGLONG ReadTime(const JsonNode& node) {
  constexpr std::string_view kPattern = "0000-00-00T00:00:00Z";
  const std::string& text = node.Utf8();
  const auto number = [&](std::size_t at, std::size_t digits) { return std::stoi(text.substr(at, digits)); };
  bool fits = text.size() == kPattern.size();
  for (std::size_t at = 0; fits && at < text.size(); ++at) {
    fits = kPattern[at] == '0' ? text[at] >= '0' && text[at] <= '9' : text[at] == kPattern[at];
  }
  if (!fits) node.Refuse("is no time (2026-01-31T12:00:00Z)");
  const auto date = std::chrono::year(number(0, 4)) / number(5, 2) / number(8, 2);
  const int hour = number(11, 2);
  const int minute = number(14, 2);
  const int second = number(17, 2);
  const std::chrono::sys_days epoch(std::chrono::year(1601) / 1 / 1);
  if (!date.ok() || hour > 23 || minute > 59 || second > 59 || std::chrono::sys_days(date) < epoch) {
    node.Refuse("is no time from 1601 on");
  }
  const std::chrono::seconds passed = std::chrono::sys_days(date) - epoch + std::chrono::hours(hour) +
                                      std::chrono::minutes(minute) + std::chrono::seconds(second);
  return LONGLONG{passed.count()} * 10'000'000;
}

std::map<DWORD, std::wstring> ReadMessages(const JsonObject& root, std::string_view key) {
  std::map<DWORD, std::wstring> messages;
  for (const auto& [id, node] : root.MembersOf(key)) {
    const std::optional<DWORD> code = ParseResult(id);
    if (!code) node.Fail("\"" + id + "\" is no result name, \"0x\" number or decimal code");
    if (!messages.emplace(*code, node.Text()).second) node.Fail("duplicate message \"" + id + "\"");
  }
  return messages;
}

void ReadTiming(const JsonNode& node, HostModel& model) {
  const JsonObject object(node, {"freezeMilliseconds", "commitMilliseconds", "eventLimitMilliseconds"});
  object.Read("freezeMilliseconds", model.freezeMilliseconds).Read("commitMilliseconds", model.commitMilliseconds);
  object.Read("eventLimitMilliseconds", model.eventLimitMilliseconds);
}

// What the rest refers to comes first.
void ReadStorageAndWriters(const JsonObject& root, HostModel& model, const std::filesystem::path& directory) {
  model.disks = ReadDisks(root.At("disks"));
  ReadProviders(root, model);
  model.writers = ReadWriters(root, directory);
  for (const auto& [serial, node] : root.MembersOf("databases")) {
    ExpectDisk(model.disks, Utf8ToWide(serial), node);
    model.databases.emplace(Utf8ToWide(serial), node.Text());
  }
  root.ReadList("iscsiSessions", model.iscsiSessions,
                [&](const JsonNode& node) { return ReadIscsiSession(node, model); });
}

// What identifies the machine and the things on it.
void ReadIdentity(const JsonObject& root, HostModel& model) {
  if (const auto seed = root.Find("seed")) model.seed = static_cast<WORD>(seed->Number(0xFFFF));
  root.Read("computerName", model.computerName).Read("domain", model.domain);
  const bool isName = !model.domain.starts_with(L'.') && model.domain.find_first_of(L"\\/ ") == model.domain.npos;
  if (root.Has("domain") && (model.domain.empty() || !isName)) root.At("domain").Refuse("is no domain (corp.example)");
}

HostModel ReadHost(const JsonNode& node, const std::filesystem::path& directory) {
  const JsonObject root(node, {"seed",      "computerName",  "domain", "systemDirectory", "environment",
                               "os",        "cluster",       "disks",  "providers",       "writers",
                               "databases", "iscsiSessions", "files",  "registry",        "commands",
                               "messages",  "vssMessages",   "faults", "timing",          "orphanedSnapshot",
                               "services",  "process",       "clock",  "events"});
  HostModel model;
  ReadIdentity(root, model);
  root.Read("systemDirectory", model.systemDirectory);
  model.environment = ReadTexts(root, "environment", "variable");
  if (const auto os = root.Find("os")) ReadOs(*os, model.os);
  if (const auto cluster = root.Find("cluster")) model.cluster = ReadCluster(*cluster);
  ReadStorageAndWriters(root, model, directory);
  ReadFileVersions(root, model);
  ReadRegistry(root, model);
  root.ReadList("commands", model.commands, ReadCommand);
  ReadServices(root, model);
  if (const auto process = root.Find("process")) ReadProcess(*process, model.process);
  if (const auto clock = root.Find("clock")) model.clock = ReadTime(*clock);
  model.messages = ReadMessages(root, "messages");
  if (root.Has("vssMessages")) model.vssMessages = ReadMessages(root, "vssMessages");
  root.ReadList("events", model.events, ReadEvent);
  if (const auto faults = root.Find("faults")) {
    for (const JsonNode& fault : faults->Elements()) ReadFault(fault, model);
  }
  if (const auto timing = root.Find("timing")) ReadTiming(*timing, model);
  root.Read("orphanedSnapshot", model.orphanedSnapshot, kOrphanedSnapshot);
  return model;
}

HostFileError ErrorOf(const std::string& file, const std::string& pointer, std::string_view reason) {
  std::string text = file + ": " + (pointer.empty() ? "/" : pointer) + ": " + std::string(reason);
  for (char& c : text) {
    if (static_cast<unsigned char>(c) < 0x20) c = ' ';
  }
  return HostFileError(text);
}

}  // namespace

HostModel ParseHostFile(std::string_view json, const std::string& name, const std::filesystem::path& directory) {
  try {
    const nlohmann::json document = ParseJson(json);
    return ReadHost(JsonNode(document, ""), directory);
  } catch (const JsonError& error) {
    throw ErrorOf(name, error.pointer(), error.what());
  }
}

HostModel LoadHostFile(const std::filesystem::path& path) {
  const std::u8string utf8 = path.u8string();
  const std::string name(utf8.begin(), utf8.end());
  try {
    return ParseHostFile(ReadTextFile(path), name, path.parent_path());
  } catch (const TextFileError& error) {
    throw ErrorOf(name, "", std::string("cannot read the file: ") + error.what());
  }
}

}  // namespace varnel::simulator
