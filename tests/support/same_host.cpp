#include "tests/support/same_host.h"

#include <algorithm>
#include <set>

#include "core/configuration.h"
#include "simulator/host_file/documents.h"
#include "simulator/host_file/write_host.h"
#include "simulator/machine/result_names.h"
#include "simulator/services/simulated_service_manager.h"
#include "simulator/services/simulated_system.h"
#include "text/ascii_case.h"

namespace varnel::test {
namespace {

using namespace simulator;

// What happens on the host is no property of it, and how long it takes nobody can ask before.
void ForgetWhatHappens(HostModel& model) {
  model.seed.reset();
  model.clock.reset();
  model.faults = {};
  model.freezeMilliseconds = 0;
  model.commitMilliseconds = 0;
  model.eventLimitMilliseconds = HostModel().eventLimitMilliseconds;
  model.orphanedSnapshot = OrphanedSnapshot::abandon;
  model.currentDirectory = HostModel().currentDirectory;
}

// The labels of volumes have no question in the seam, a disk without a serial number may have an empty one, and the
// metadata service is asked for the disks that are there.
void ForgetOfDisks(HostModel& model) {
  std::stable_sort(model.disks.begin(), model.disks.end(),
                   [](const Disk& a, const Disk& b) { return a.number < b.number; });
  for (Disk& disk : model.disks) {
    disk.reportsSerial = disk.reportsSerial && !disk.serial.empty();
    if (!disk.reportsSerial) disk.serial.clear();
    // A volume of another name is none that a host file can hold.
    std::erase_if(disk.volumes, [](const Volume& volume) { return volume.name.size() != 49; });
    for (Volume& volume : disk.volumes) {
      volume.label.clear();
      volume.csv = volume.csv && model.cluster;
      volume.freeMegabytes = volume.freeMegabytes.value_or(volume.sizeMegabytes / 2);
    }
  }
  std::erase_if(model.databases, [&](const auto& known) {
    return std::none_of(model.disks.begin(), model.disks.end(),
                        [&](const Disk& disk) { return !disk.serial.empty() && disk.serial == known.first; });
  });
}

// What a provider refuses during a set. One that copies no volume here does not tell what it supports.
void ForgetOfProviders(HostModel& model) {
  std::vector<std::wstring> volumes;
  for (const Disk& disk : model.disks) {
    for (const Volume& volume : disk.volumes) volumes.push_back(volume.name);
  }
  for (simulator::Provider& provider : model.providers) {
    provider.veto.reset();
    provider.hangs = false;
    std::vector<std::wstring> refused;
    const auto& all = provider.unsupportedVolumes;
    std::copy_if(volumes.begin(), volumes.end(), std::back_inserter(refused),
                 [&](const std::wstring& volume) { return std::find(all.begin(), all.end(), volume) != all.end(); });
    const bool isAsked = provider.type == VSS_PROV_HARDWARE || provider.type == VSS_PROV_SOFTWARE;
    if (!isAsked && provider.type != VSS_PROV_SYSTEM) refused.clear();
    const bool copies = isAsked && refused.size() < volumes.size();
    const LONG usual = provider.type == VSS_PROV_HARDWARE
                           ? VSS_VOLSNAP_ATTR_TRANSPORTABLE | VSS_VOLSNAP_ATTR_DIFFERENTIAL | VSS_VOLSNAP_ATTR_PLEX
                           : VSS_VOLSNAP_ATTR_DIFFERENTIAL;
    provider.supports = copies ? std::optional<LONG>(provider.supports.value_or(usual)) : std::nullopt;
    provider.unsupportedVolumes = std::move(refused);
  }
}

// The writer as its document tells it; nothing where no host file can hold that.
std::optional<Writer> AsDocumented(const Writer& writer) {
  try {
    return ReadWriterDocument(writer.document ? *writer.document : FormatWriterMetadata(writer));
  } catch (const DocumentError&) {
    return std::nullopt;
  }
}

// How long a writer stays frozen, and what it leaves in a document when it is backed up. One without a document has one
// when it was asked for it.
void ForgetOfWriters(HostModel& model) {
  std::vector<Writer> writers;
  for (const Writer& writer : model.writers) {
    std::optional<Writer> documented = AsDocumented(writer);
    const auto same = [&](const Writer& other) { return other.instanceId == writer.instanceId; };
    if (!documented || std::any_of(writers.begin(), writers.end(), same)) continue;
    documented->lastFailure = writer.lastFailure;
    writers.push_back(std::move(*documented));
  }
  model.writers = std::move(writers);
}

// Disks that appear with a shadow copy, and what comes later or fails at first.
void ForgetOfSessions(HostModel& model) {
  for (IscsiSession& session : model.iscsiSessions) {
    std::erase_if(session.devices, [](const IscsiDevice& device) { return device.shadow; });
    for (IscsiDevice& device : session.devices) device.appearsAfter = 0;
    session.busyQueries = 0;
    session.failedLogouts = 0;
    session.appearsAfter = 0;
  }
}

// The names that the node does not bear, and that none of its databases is said to be on, are not asked for.
void ForgetOfCluster(HostModel& model) {
  if (!model.cluster) return;
  model.cluster->name.clear();
  std::set<std::wstring, ascii::LessIgnoringCase> known = {model.computerName};
  for (const auto& [serial, databases] : model.databases) {
    for (std::size_t at = databases.find(L'@'); at != databases.npos; at = databases.find(L'@', at + 1)) {
      known.insert(databases.substr(at + 1, databases.find(L'\t', at) - at - 1));
    }
  }
  for (const Writer& writer : model.writers) {
    for (const WriterComponent& component : writer.components) {
      const std::wstring path = component.logicalPath.value_or(L"");
      known.insert(path.substr(0, path.find(L'\\')));
    }
  }
  std::map<std::wstring, std::wstring> kept;
  for (const auto& [name, network] : model.cluster->networkNames) {
    if (const auto found = known.find(name); found != known.end()) kept[ascii::ToLower(name)] = network;
  }
  model.cluster->networkNames = std::move(kept);
}

// Of the registry the installation of Exchange, of the files one, of the services those of shadow copies and of the
// applications, of the programs whether the checker is there: nobody runs it.
void ForgetSurroundings(HostModel& model) {
  const std::wstring root = std::wstring(L"HKEY_LOCAL_MACHINE\\") + kExchangeInstallKey;
  std::map<std::wstring, std::map<std::wstring, std::wstring>> registry;
  for (const auto& [key, values] : model.registry) {
    if (!ascii::StartsWithIgnoringCase(key, root)) continue;
    const std::wstring below = key.size() > root.size() ? key.substr(root.size() + 1) : L"";
    const std::wstring version = below.substr(0, below.find(L'\\'));
    const auto path = values.find(kExchangeInstallValue);
    if (below == version + L"\\" + kExchangeSetupKey && path != values.end()) {
      registry[key][path->first] = path->second;
    } else if (version.empty()) {
      registry[root];
    } else {
      registry[root + L"\\" + version];
    }
  }
  std::erase_if(registry, [&](const auto& key) {
    const auto below = registry.lower_bound(key.first + L"\\");
    return key.second.empty() && below != registry.end() && below->first.starts_with(key.first + L"\\");
  });
  model.registry = std::move(registry);
  std::erase_if(model.fileVersions, [&](const auto& file) {
    return !ascii::EqualIgnoringCase(file.first, model.systemDirectory + L"\\Vmms.exe");
  });
  model.commands.clear();
}

void ForgetServices(HostModel& model) {
  std::map<std::wstring, std::optional<Service>> kept;
  for (const wchar_t* name : {L"ClusSvc", L"EventSystem", L"MSExchangeIS", L"MSExchangeRepl", L"MSiSCSI", L"SQLWriter",
                              L"VSS", L"swprv", L"vmms"}) {
    const auto said = FindService(model, name);
    const auto usual = FindService(HostModel(), name);
    const bool same = said.has_value() == usual.has_value() &&
                      (!said || (said->startType == usual->startType && said->state == usual->state));
    if (!same) kept[name] = said;
  }
  model.services = std::move(kept);
}

// A variable that no writer's path names, and one that has its usual value.
void ForgetVariables(HostModel& model) {
  std::wstring paths = L"%PATH%%SystemRoot%%SystemDrive%%windir%%ProgramData%";
  for (const Writer& writer : model.writers) {
    const auto add = [&](const std::vector<FileSpec>& files) {
      for (const FileSpec& file : files) paths += file.path + L"\n" + file.alternatePath + L"\n";
    };
    for (const WriterComponent& component : writer.components) {
      add(component.files);
      add(component.databaseFiles);
      add(component.logFiles);
    }
    add(writer.excludeFiles);
    add(writer.excludeFilesFromSnapshot);
  }
  paths = ascii::ToLower(paths);
  HostModel bare;
  bare.systemDirectory = model.systemDirectory;
  std::map<std::wstring, std::wstring> kept;
  for (const auto& [name, value] : model.environment) {
    if (paths.find(L"%" + ascii::ToLower(name) + L"%") == paths.npos || EnvironmentValue(bare, name) == value) continue;
    kept[ascii::ToLower(name)] = value;
  }
  model.environment = std::move(kept);
}

// Texts of codes that have no name; a code of Windows is the same as an HRESULT.
void ForgetMessages(std::map<DWORD, std::wstring>& messages) {
  std::map<DWORD, std::wstring> kept;
  for (const auto& [code, text] : messages) {
    const bool named = code < 0x10000 || !ResultName(static_cast<HRESULT>(code)).starts_with("0x");
    if (named && !text.empty()) kept[(code & 0xFFFF0000) == 0x80070000 ? code & 0xFFFF : code] = text;
  }
  messages = std::move(kept);
}

// Equal for hosts that differ in nothing but the order of their keys and in whether a default is written.
std::string MeaningOf(const HostModel& model) {
  std::vector<std::string> documents;
  for (const Writer& writer : model.writers) {
    documents.push_back(writer.document ? *writer.document : FormatWriterMetadata(writer));
  }
  return FormatHostFile(model, documents);
}

}  // namespace

HostModel AsCaptured(HostModel model) {
  ForgetWhatHappens(model);
  ForgetOfDisks(model);
  ForgetOfProviders(model);
  ForgetOfWriters(model);
  ForgetOfSessions(model);
  ForgetOfCluster(model);
  ForgetVariables(model);
  ForgetSurroundings(model);
  ForgetServices(model);
  ForgetMessages(model.messages);
  if (model.vssMessages) ForgetMessages(*model.vssMessages);
  return model;
}

std::string Difference(const HostModel& one, const HostModel& other) {
  const std::string first = MeaningOf(one);
  const std::string second = MeaningOf(other);
  if (first == second) return {};
  const auto at = static_cast<std::size_t>(
      std::mismatch(first.begin(), first.end(), second.begin(), second.end()).first - first.begin());
  constexpr std::size_t kAround = 160;
  const std::size_t start = at - std::min(at, kAround);
  const auto part = [&](const std::string& text) { return text.substr(start, at + kAround - start); };
  return "one:" + part(first) + "\nother:" + part(second);
}

}  // namespace varnel::test
