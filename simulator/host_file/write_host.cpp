#include "simulator/host_file/write_host.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "simulator/host_file/host_words.h"
#include "simulator/machine/result_names.h"
#include "text/ascii_case.h"
#include "text/guid.h"
#include "text/unicode.h"

namespace varnel::simulator {
namespace {

using OrderedJson = nlohmann::ordered_json;

std::string Utf8(std::wstring_view text) {
  return WideToUtf8Lossy(text);
}

// What is not the default.
template <class Value>
void Put(OrderedJson& json, const char* key, const Value& value, const Value& usual) {
  if (value == usual) return;
  if constexpr (std::is_same_v<Value, std::wstring>) {
    json[key] = Utf8(value);
  } else {
    json[key] = value;
  }
}

template <class List, class Make>
void PutList(OrderedJson& json, const char* key, const List& list, Make make) {
  OrderedJson array = OrderedJson::array();
  for (const auto& item : list) array.push_back(make(item));
  if (!array.empty()) json[key] = std::move(array);
}

OrderedJson Texts(const std::map<std::wstring, std::wstring>& texts) {
  OrderedJson json = OrderedJson::object();
  for (const auto& [name, text] : texts) json[Utf8(name)] = Utf8(text);
  return json;
}

void PutTexts(OrderedJson& json, const char* key, const std::map<std::wstring, std::wstring>& texts) {
  if (!texts.empty()) json[key] = Texts(texts);
}

OrderedJson Messages(const std::map<DWORD, std::wstring>& messages) {
  OrderedJson json = OrderedJson::object();
  for (const auto& [code, text] : messages) {
    const std::string name = ResultName(static_cast<HRESULT>(code));
    json[code < 0x10000 ? std::to_string(code) : name] = Utf8(text);
  }
  return json;
}

void PutOs(OrderedJson& root, const OperatingSystem& os) {
  const OperatingSystem usual;
  OrderedJson json;
  Put(json, "server", os.server, usual.server);
  const auto version = [](const OperatingSystem& one) {
    return std::to_string(one.major) + "." + std::to_string(one.minor) + "." + std::to_string(one.build);
  };
  Put(json, "version", version(os), version(usual));
  Put(json, "servicePack", os.servicePack, usual.servicePack);
  if (!json.is_null()) root["os"] = std::move(json);
}

void PutCluster(OrderedJson& root, const std::optional<ClusterNode>& cluster) {
  if (!cluster) return;
  OrderedJson& json = root["cluster"] = OrderedJson::object();
  Put(json, "name", cluster->name, {});
  PutTexts(json, "networkNames", cluster->networkNames);
}

// The first disk of this serial number, in any case.
const Disk* FirstOf(const std::vector<Disk>& disks, std::wstring_view serial) {
  const auto found = std::find_if(disks.begin(), disks.end(),
                                  [&](const Disk& disk) { return ascii::EqualIgnoringCase(disk.serial, serial); });
  return found == disks.end() ? nullptr : &*found;
}

// A disk's serial number; its number where that says it no better.
OrderedJson NameOf(const std::vector<Disk>& disks, DWORD number) {
  const auto found = std::find_if(disks.begin(), disks.end(), [&](const Disk& disk) { return disk.number == number; });
  if (found == disks.end() || found->serial.empty() || FirstOf(disks, found->serial) != &*found) return number;
  return Utf8(found->serial);
}

OrderedJson VolumeJson(const Volume& volume, const std::vector<Disk>& disks) {
  OrderedJson json = {{"name", Utf8(volume.name)}};
  PutList(json, "mountPoints", volume.mountPoints, Utf8);
  Put(json, "csv", volume.csv, false);
  Put(json, "label", volume.label, {});
  Put(json, "sizeMegabytes", volume.sizeMegabytes, Volume{}.sizeMegabytes);
  const DWORD usuallyFree = volume.sizeMegabytes / 2;
  Put(json, "freeMegabytes", volume.freeMegabytes.value_or(usuallyFree), usuallyFree);
  PutList(json, "otherDisks", volume.otherDisks, [&](DWORD number) { return NameOf(disks, number); });
  return json;
}

OrderedJson DiskJson(const Disk& disk, DWORD place, const std::vector<Disk>& disks) {
  OrderedJson json;
  json["serial"] = disk.reportsSerial ? OrderedJson(Utf8(disk.serial)) : OrderedJson();
  Put(json, "duplicateSerial", !disk.serial.empty() && FirstOf(disks, disk.serial) != &disk, false);
  Put(json, "number", disk.number, place);
  Put(json, "vendor", disk.vendor, {});
  Put(json, "system", disk.system, false);
  Put(json, "clustered", disk.clustered, false);
  PutList(json, "volumes", disk.volumes, [&](const Volume& volume) { return VolumeJson(volume, disks); });
  return json;
}

void PutDisks(OrderedJson& root, const std::vector<Disk>& disks) {
  OrderedJson& list = root["disks"] = OrderedJson::array();
  for (const Disk& disk : disks) list.push_back(DiskJson(disk, static_cast<DWORD>(list.size()), disks));
}

OrderedJson ProviderJson(const Provider& provider) {
  OrderedJson json = {{"id", Utf8(FormatGuid(provider.id))}};
  Put(json, "name", provider.name, {});
  Put(json, "type", WordFor(kProviderTypes, provider.type), WordFor(kProviderTypes, VSS_PROV_UNKNOWN));
  Put(json, "version", provider.version, {});
  if (provider.supports) {
    OrderedJson& kinds = json["supports"] = OrderedJson::array();
    for (const Word<LONG>& kind : kCopyKinds) {
      if ((*provider.supports & kind.value) != 0) kinds.push_back(kind.text);
    }
  }
  PutList(json, "unsupportedVolumes", provider.unsupportedVolumes, Utf8);
  return json;
}

OrderedJson LeavingsJson(const WriterComponent& component) {
  OrderedJson json = {{"fullPath", Utf8(FullPath(component))}};
  if (component.backupStamp) json["backupStamp"] = Utf8(*component.backupStamp);
  if (component.backupMetadata) json["backupMetadata"] = Utf8(*component.backupMetadata);
  return json;
}

OrderedJson WriterJson(const Writer& writer, const std::string& document) {
  OrderedJson json = {{"document", document}};
  Put(json, "timeoutMilliseconds", writer.timeoutMilliseconds, kFreezeLimitMilliseconds);
  if (writer.lastFailure) {
    json["lastFailure"] = {{"event", WordFor(kFailedStates, writer.lastFailure->state)},
                           {"failure", ResultName(writer.lastFailure->failure)}};
  }
  OrderedJson components = OrderedJson::array();
  for (const WriterComponent& component : writer.components) {
    if (component.backupStamp || component.backupMetadata) components.push_back(LeavingsJson(component));
  }
  if (!components.empty()) json["components"] = std::move(components);
  return json;
}

OrderedJson SessionJson(const IscsiSession& session) {
  OrderedJson json = {{"targetName", Utf8(session.targetName)}};
  PutList(json, "devices", session.devices, [](const IscsiDevice& device) {
    return OrderedJson{{device.shadow ? "shadowOf" : "disk", Utf8(device.diskSerial)}};
  });
  return json;
}

OrderedJson CommandJson(const Command& command) {
  OrderedJson json = {{"match", Utf8(command.match)}};
  Put(json, "exitCode", command.exitCode, DWORD{0});
  Put(json, "folder", command.folder, {});
  return json;
}

OrderedJson ServiceJson(const std::optional<Service>& service) {
  if (!service) return {};
  return {{"start", WordFor(kServiceStarts, service->startType)}, {"state", WordFor(kServiceStates, service->state)}};
}

void PutProcess(OrderedJson& root, const Process& process) {
  OrderedJson json;
  Put(json, "elevated", process.elevated, true);
  if (process.is32Bit) json["bits"] = 32;
  if (!json.is_null()) root["process"] = std::move(json);
}

template <class Fault>
void PutFailure(OrderedJson& json, const Fault& fault) {
  json["failure"] = ResultName(fault.failure);
  if (fault.applicationResult != 0) json["applicationResult"] = ResultName(fault.applicationResult);
  Put(json, "applicationMessage", fault.applicationMessage, {});
}

OrderedJson WriterFaultJson(const WriterFault& fault) {
  OrderedJson json = {{"writer", Utf8(fault.writer)}, {"event", WordFor(kWriterEvents, fault.event)}};
  PutFailure(json, fault);
  PutList(json, "components", fault.components, [](const ComponentFault& component) {
    OrderedJson one = {{"fullPath", Utf8(component.fullPath)}};
    PutFailure(one, component);
    return one;
  });
  return json;
}

// Those that a failed run may have met.
void PutFaults(OrderedJson& root, const Faults& faults) {
  OrderedJson list = OrderedJson::array();
  for (const CallFault& fault : faults.calls) {
    const std::string result = ResultName(static_cast<HRESULT>(fault.result));
    list.push_back({{"call", fault.call}, {"occurrence", fault.occurrence}, {"result", result}});
  }
  for (const AsyncFault& fault : faults.asyncs) {
    list.push_back({{"async", fault.async}, {"occurrence", fault.occurrence}, {"result", ResultName(fault.result)}});
  }
  for (const WriterFault& fault : faults.writers) list.push_back(WriterFaultJson(fault));
  if (!list.empty()) root["faults"] = std::move(list);
}

OrderedJson ModelJson(const HostModel& model, const std::vector<std::string>& documents) {
  const HostModel usual;
  OrderedJson root = OrderedJson::object();
  Put(root, "computerName", model.computerName, usual.computerName);
  Put(root, "domain", model.domain, usual.domain);
  Put(root, "systemDirectory", model.systemDirectory, usual.systemDirectory);
  PutTexts(root, "environment", model.environment);
  PutOs(root, model.os);
  PutCluster(root, model.cluster);
  PutDisks(root, model.disks);
  PutList(root, "providers", model.providers, ProviderJson);
  std::size_t next = 0;
  PutList(root, "writers", model.writers,
          [&](const Writer& writer) { return WriterJson(writer, documents.at(next++)); });
  PutTexts(root, "databases", model.databases);
  PutList(root, "iscsiSessions", model.iscsiSessions, SessionJson);
  for (const auto& [path, version] : model.fileVersions) root["files"][Utf8(path)] = {{"version", Utf8(version)}};
  for (const auto& [key, values] : model.registry) root["registry"][Utf8(key)] = Texts(values);
  PutList(root, "commands", model.commands, CommandJson);
  for (const auto& [name, service] : model.services) root["services"][Utf8(name)] = ServiceJson(service);
  PutProcess(root, model.process);
  if (!model.messages.empty()) root["messages"] = Messages(model.messages);
  if (model.vssMessages) root["vssMessages"] = Messages(*model.vssMessages);
  PutFaults(root, model.faults);
  return root;
}

}  // namespace

std::string FormatHostFile(const HostModel& model, const std::vector<std::string>& documents,
                           const std::vector<std::string>& comments) {
  std::string text;
  for (std::string line : comments) {
    std::replace_if(
        line.begin(), line.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; }, ' ');
    text += "// " + line + "\n";
  }
  return text + ModelJson(model, documents).dump(2) + "\n";
}

}  // namespace varnel::simulator
