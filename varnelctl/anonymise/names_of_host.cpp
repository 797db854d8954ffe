#include "varnelctl/anonymise/names_of_host.h"

#include <algorithm>

#include "core/configuration.h"
#include "simulator/host_file/documents.h"
#include "simulator/host_file/xml.h"
#include "text/ascii_case.h"
#include "text/guid.h"
#include "text/unicode.h"

namespace varnelctl {
namespace {

using varnel::simulator::Disk;
using varnel::simulator::FileSpec;
using varnel::simulator::HostModel;
using varnel::simulator::Volume;
using varnel::simulator::Writer;
using varnel::simulator::WriterComponent;
using varnel::simulator::XmlElement;

// Writers whose components, by their names, are the same on every Windows.
constexpr const wchar_t* kSystemWriterIds[] = {
    L"{e8132975-6f93-4464-a53e-1050253ae220}",  // System Writer
    L"{afbab4a2-367d-4d15-a586-71dbb18f8485}",  // Registry Writer
    L"{542da469-d3e1-473c-9f4f-7847f01fc64f}",  // COM+ REGDB Writer
    L"{be000cbe-11fe-4426-9c58-531aa6355fc4}",  // ASR Writer
    L"{4969d978-be47-48b0-b100-f328f07ac1e0}",  // BITS Writer
    L"{a6ad56c2-b509-4e6c-bb19-49d8f43532f0}",  // WMI Writer
    L"{4dc3bdd4-ab48-4d07-adb0-3bee2926fd7f}",  // Shadow Copy Optimization Writer
    L"{d61d61c8-d73a-4eee-8cdd-f6f9786b7124}",  // Task Scheduler Writer
    L"{75dfb225-e2e4-4d39-9ac9-ffaff65ddf06}",  // VSS Metadata Store Writer
    L"{0bada1de-01a9-4625-8278-69e735f39dd2}",  // Performance Counters Writer
};
constexpr const wchar_t* kApplicationWriterIds[] = {
    varnel::kSqlServerWriterId,           varnel::kMsdeWriterId, varnel::kExchangeWriterId, varnel::kHyperVWriterId,
    varnel::kClusterSharedVolumeWriterId,
};

// Calls `visit` with each part of a list.
template <class Visit>
void ForEachPart(std::wstring_view list, wchar_t separator, Visit visit) {
  while (!list.empty()) {
    const std::wstring_view part = list.substr(0, list.find(separator));
    list.remove_prefix(std::min(part.size() + 1, list.size()));
    if (!part.empty()) visit(part);
  }
}

// The identifiers in a text such as "8C0A70A7-...<CSV>HV02", and the rest of it.
std::wstring AddIdentifiers(std::wstring_view text, Anonymiser& names) {
  constexpr std::size_t kLength = 36;
  std::wstring rest;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const std::wstring_view candidate = text.substr(at, kLength);
    const std::wstring braced = L"{" + std::wstring(candidate) + L"}";
    if (varnel::TryParseGuid<GUID>(std::wstring_view(braced))) {
      names.Add(NameKind::Identifier, candidate);
      at += kLength - 1;
    } else {
      rest += text[at];
    }
  }
  return rest;
}

template <std::size_t n>
bool IsWriter(const Writer& writer, const wchar_t* const (&ids)[n]) {
  const std::wstring id = varnel::FormatGuid(writer.writerId);
  return std::any_of(std::begin(ids), std::end(ids),
                     [&](const wchar_t* known) { return varnel::ascii::EqualIgnoringCase(id, known); });
}

bool IsOfSystem(const Writer& writer) {
  return IsWriter(writer, kSystemWriterIds);
}

// What such a writer calls itself is the same on every host.
bool IsOfProduct(const Writer& writer) {
  return IsOfSystem(writer) || IsWriter(writer, kApplicationWriterIds);
}

// "SQL01\PROD" and "sales".
void AddSqlNames(const WriterComponent& component, Anonymiser& names) {
  NameKind kind = NameKind::Host;
  ForEachPart(component.logicalPath.value_or(L""), L'\\', [&](std::wstring_view part) {
    names.Add(kind, part);
    kind = NameKind::Instance;
  });
  names.Add(NameKind::Database, component.name);
  names.Add(NameKind::Database, component.caption.value_or(L""));
}

// A server, its databases by their identifiers with the names as captions, and below them what every database has.
void AddExchangeNames(const WriterComponent& component, Anonymiser& names) {
  const std::wstring server = AddIdentifiers(component.name, names);
  const std::wstring path = AddIdentifiers(component.logicalPath.value_or(L""), names);
  ForEachPart(path, L'\\', [&](std::wstring_view part) { names.Add(NameKind::Host, part); });
  if (server == L"File" || server == L"Logs") return;
  names.Add(server.empty() ? NameKind::Database : NameKind::Host, component.caption.value_or(L""));
  names.Add(NameKind::Host, server);
}

// Identifiers of machines, with the nodes that they run on, and captions such as "Online\WEB01".
void AddMachineNames(const WriterComponent& component, Anonymiser& names) {
  constexpr std::wstring_view kMark = L"<CSV>";
  AddIdentifiers(component.name, names);
  const std::size_t mark = component.name.find(kMark);
  if (mark != component.name.npos) names.Add(NameKind::Host, component.name.substr(mark + kMark.size()));
  const std::wstring caption = component.caption.value_or(L"");
  const std::size_t backslash = caption.find(L'\\');
  if (backslash != caption.npos) names.Add(NameKind::Machine, caption.substr(backslash + 1));
}

void AddOtherNames(const WriterComponent& component, Anonymiser& names) {
  const auto add = [&](std::wstring_view text) { names.Add(NameKind::Component, AddIdentifiers(text, names)); };
  ForEachPart(component.logicalPath.value_or(L""), L'\\', add);
  add(component.name);
  add(component.caption.value_or(L""));
}

void AddComponentNames(const Writer& writer, Anonymiser& names) {
  for (const WriterComponent& component : writer.components) {
    if (IsWriter(writer, {varnel::kSqlServerWriterId, varnel::kMsdeWriterId})) {
      AddSqlNames(component, names);
    } else if (IsWriter(writer, {varnel::kExchangeWriterId})) {
      AddExchangeNames(component, names);
    } else if (IsWriter(writer, {varnel::kHyperVWriterId, varnel::kClusterSharedVolumeWriterId})) {
      AddMachineNames(component, names);
    } else if (!IsOfSystem(writer)) {
      AddOtherNames(component, names);
    }
  }
}

// Components of writers that need not be on this host.
void AddDependencies(const Writer& writer, Anonymiser& names) {
  if (!writer.document || writer.document->find("DEPENDENCY") == std::string::npos) return;
  const varnel::simulator::XmlDocument document(*writer.document);
  const auto addTarget = [&](const XmlElement& element) {
    if (element.name() != "DEPENDENCY") return;
    Writer target;
    target.writerId = element.Identifier("writerId").value_or(GUID{});
    target.components.emplace_back();
    target.components.back().logicalPath = element.Text("logicalPath");
    target.components.back().name = element.Text("componentName").value_or(L"");
    AddComponentNames(target, names);
  };
  document.Root("WRITER_METADATA").ForEachChild([&](const XmlElement& part) {
    part.ForEachChild([&](const XmlElement& component) { component.ForEachChild(addTarget); });
  });
}

// Of the writer itself.
void AddWriterNames(const Writer& writer, Anonymiser& names) {
  if (!IsOfSystem(writer)) names.Add(NameKind::Instance, AddIdentifiers(writer.instanceName, names));
  if (!writer.restoreMethod) return;
  names.Add(NameKind::Instance, writer.restoreMethod->service);
  names.AddPath(writer.restoreMethod->userProcedure);
}

void AddFiles(const std::vector<FileSpec>& files, Anonymiser& names) {
  for (const FileSpec& file : files) {
    names.AddPath(file.path, file.filespec);
    names.AddPath(file.alternatePath);
  }
}

void AddFileNames(const Writer& writer, Anonymiser& names) {
  for (const WriterComponent& component : writer.components) {
    AddFiles(component.files, names);
    AddFiles(component.databaseFiles, names);
    AddFiles(component.logFiles, names);
  }
  AddFiles(writer.excludeFiles, names);
  AddFiles(writer.excludeFilesFromSnapshot, names);
}

void AddHostNames(const HostModel& host, Anonymiser& names) {
  names.Add(NameKind::Host, host.computerName);
  names.Add(NameKind::Domain, host.domain);
  names.Add(NameKind::Domain, host.domain.substr(0, host.domain.find(L'.')));
  if (!host.cluster) return;
  names.Add(NameKind::Cluster, host.cluster->name);
  for (const auto& [name, network] : host.cluster->networkNames) {
    names.Add(NameKind::Host, name);
    names.Add(NameKind::Host, network);
  }
}

// "sales@sql01\tcrm@prod"
void AddDatabaseNames(const HostModel& host, Anonymiser& names) {
  for (const auto& [serial, databases] : host.databases) {
    if (databases == varnel::kAllDatabases) continue;
    ForEachPart(databases, L'\t', [&](std::wstring_view entry) {
      const std::size_t at = std::min(entry.find(L'@'), entry.size());
      names.Add(NameKind::Database, entry.substr(0, at));
      if (at < entry.size()) names.Add(NameKind::Host, entry.substr(at + 1));
    });
  }
}

void AddStorageNames(const HostModel& host, Anonymiser& names) {
  for (const Disk& disk : host.disks) {
    names.Add(NameKind::Serial, disk.serial);
    for (const Volume& volume : disk.volumes) {
      AddIdentifiers(volume.name, names);
      names.Add(NameKind::Label, volume.label);
      for (const std::wstring& mountPoint : volume.mountPoints) names.AddPath(mountPoint);
    }
  }
  for (const auto& session : host.iscsiSessions) names.Add(NameKind::Target, session.targetName);
}

// The one variable of every host that no path is made of.
bool IsSearchPath(const std::wstring& variable) {
  return varnel::ascii::EqualIgnoringCase(variable, L"PATH");
}

void AddPlaces(const HostModel& host, Anonymiser& names) {
  names.AddPath(host.systemDirectory);
  for (const auto& [name, value] : host.environment) {
    if (!IsSearchPath(name)) names.Add(NameKind::Folder, name);
    ForEachPart(value, L';', [&](std::wstring_view path) { names.AddPath(path); });
  }
  for (const auto& [key, values] : host.registry) {
    for (const auto& [name, value] : values) names.AddPath(value);
  }
  for (const auto& command : host.commands) names.AddPath(command.folder);
}

void ReplaceIn(std::map<std::wstring, std::wstring>& texts, Anonymiser& names) {
  for (auto& [name, text] : texts) text = names.Replace(text);
}

Writer WithoutNames(const Writer& writer, Anonymiser& names) {
  const std::string document = writer.document ? *writer.document : varnel::simulator::FormatWriterMetadata(writer);
  Writer anonymous = varnel::simulator::ReadWriterDocument(names.ReplaceInXml(document));
  anonymous.timeoutMilliseconds = writer.timeoutMilliseconds;
  anonymous.lastFailure = writer.lastFailure;
  return anonymous;
}

void ReplaceInDisks(std::vector<Disk>& disks, Anonymiser& names) {
  for (Disk& disk : disks) {
    disk.serial = names.Replace(disk.serial);
    for (Volume& volume : disk.volumes) {
      volume.name = names.Replace(volume.name);
      volume.label = names.Replace(volume.label);
      for (std::wstring& mountPoint : volume.mountPoints) mountPoint = names.Replace(mountPoint);
    }
  }
}

void ReplaceInCluster(varnel::simulator::ClusterNode& cluster, Anonymiser& names) {
  cluster.name = names.Replace(cluster.name);
  std::map<std::wstring, std::wstring> networkNames;
  for (const auto& [name, network] : cluster.networkNames) networkNames[names.Replace(name)] = names.Replace(network);
  cluster.networkNames = std::move(networkNames);
}

void ReplaceInDatabases(HostModel& host, Anonymiser& names) {
  std::map<std::wstring, std::wstring> databases;
  for (const auto& [serial, list] : host.databases) {
    databases[names.Replace(serial)] = list == varnel::kAllDatabases ? list : names.Replace(list);
  }
  host.databases = std::move(databases);
}

void ReplaceInPlaces(HostModel& host, Anonymiser& names) {
  host.systemDirectory = names.Replace(host.systemDirectory);
  std::map<std::wstring, std::wstring> environment;
  for (const auto& [name, value] : host.environment) {
    environment[IsSearchPath(name) ? name : names.Replace(name)] = names.Replace(value);
  }
  host.environment = std::move(environment);
  for (auto& [key, values] : host.registry) ReplaceIn(values, names);
  for (auto& command : host.commands) {
    command.folder = names.Replace(command.folder);
    command.match = names.Replace(command.match);
  }
  std::map<std::wstring, std::wstring> versions;
  for (const auto& [path, version] : host.fileVersions) versions[names.Replace(path)] = version;
  host.fileVersions = std::move(versions);
}

void ReplaceInFaults(varnel::simulator::Faults& faults, Anonymiser& names) {
  for (varnel::simulator::WriterFault& fault : faults.writers) {
    fault.writer = names.Replace(fault.writer);
    fault.applicationMessage = names.Replace(fault.applicationMessage);
    for (varnel::simulator::ComponentFault& component : fault.components) {
      component.fullPath = names.Replace(component.fullPath);
      component.applicationMessage = names.Replace(component.applicationMessage);
    }
  }
}

}  // namespace

void AddVolumesIn(std::string_view text, Anonymiser& names) {
  constexpr std::string_view kStart = "Volume{";
  for (std::size_t at = text.find(kStart); at != text.npos; at = text.find(kStart, at + 1)) {
    AddIdentifiers(varnel::Utf8ToWideLossy(text.substr(at + kStart.size(), 36)), names);
  }
}

void AddNames(const HostModel& host, Anonymiser& names) {
  for (const auto& provider : host.providers) names.Keep(provider.name);
  for (const Disk& disk : host.disks) names.Keep(disk.vendor);
  for (const auto& [name, service] : host.services) names.Keep(name);
  for (const Writer& writer : host.writers) {
    if (IsOfProduct(writer)) names.Keep(writer.name);
  }
  AddHostNames(host, names);
  AddDatabaseNames(host, names);
  for (const Writer& writer : host.writers) AddComponentNames(writer, names);
  for (const Writer& writer : host.writers) {
    AddDependencies(writer, names);
    AddWriterNames(writer, names);
  }
  AddStorageNames(host, names);
  AddPlaces(host, names);
  // The applications' names first: of each the spelling that is told first has its replacement in capitals.
  for (const bool ofSystem : {false, true}) {
    for (const Writer& writer : host.writers) {
      if (IsOfSystem(writer) == ofSystem) AddFileNames(writer, names);
    }
  }
}

HostModel WithoutNames(HostModel host, Anonymiser& names) {
  host.computerName = names.Replace(host.computerName);
  host.domain = names.Replace(host.domain);
  if (host.cluster) ReplaceInCluster(*host.cluster, names);
  ReplaceInDisks(host.disks, names);
  for (auto& provider : host.providers) {
    for (std::wstring& volume : provider.unsupportedVolumes) volume = names.Replace(volume);
  }
  for (Writer& writer : host.writers) writer = WithoutNames(writer, names);
  ReplaceInDatabases(host, names);
  for (auto& session : host.iscsiSessions) {
    session.targetName = names.Replace(session.targetName);
    for (auto& device : session.devices) device.diskSerial = names.Replace(device.diskSerial);
  }
  ReplaceInPlaces(host, names);
  ReplaceInFaults(host.faults, names);
  return host;
}

}  // namespace varnelctl
