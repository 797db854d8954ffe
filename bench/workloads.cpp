#include "bench/workloads.h"

#include <stdexcept>

#include "bench/hosts.h"
#include "requestors/ExchReq.h"
#include "requestors/HyperVReq.h"
#include "requestors/SqlReq.h"
#include "text/guid.h"

namespace varnel::bench {
namespace {

using simulator::HostModel;
using simulator::Writer;
using simulator::WriterComponent;

std::wstring Number(std::size_t n) {
  return std::to_wstring(n);
}

std::wstring GuidText(std::size_t n) {
  GUID guid{};
  guid.Data1 = static_cast<DWORD>(n + 1);
  const std::wstring text = FormatGuid(guid);
  return text.substr(1, text.size() - 2);
}

Writer MakeWriter(std::wstring name, const wchar_t* id) {
  Writer writer;
  writer.name = std::move(name);
  writer.writerId = TryParseGuid<GUID>(std::wstring_view(id)).value();
  writer.instanceId.Data1 = 2;
  return writer;
}

WriterComponent MakeComponent(std::wstring logicalPath, std::wstring name, std::wstring caption) {
  WriterComponent component;
  if (!logicalPath.empty()) component.logicalPath = std::move(logicalPath);
  component.name = std::move(name);
  component.caption = std::move(caption);
  component.selectable = true;
  return component;
}

// The whole of a component lies on one disk, as databases and machines do.
void AddFile(WriterComponent& component, std::size_t disk, const std::wstring& folder, std::wstring filespec) {
  simulator::FileSpec& file = component.files.emplace_back();
  file.path = MountPoint(disk % kDisks) + folder;
  file.filespec = std::move(filespec);
}

HostModel EmptyHost() {
  return MakeHost(0, 0);
}

HostModel WithWriter(Writer writer) {
  HostModel model = EmptyHost();
  model.writers.clear();
  model.writers.push_back(std::move(writer));
  return model;
}

HostModel SqlHost(std::size_t n) {
  Writer writer = MakeWriter(L"SqlServerWriter", kSqlServerWriterId);
  for (std::size_t c = 0; c < n; ++c) {
    WriterComponent database = MakeComponent(L"SQL01", L"database" + Number(c), L"");
    AddFile(database, c, L"data", L"database" + Number(c) + L".mdf");
    AddFile(database, c, L"data", L"database" + Number(c) + L"_2.ndf");
    AddFile(database, c, L"log", L"database" + Number(c) + L".ldf");
    writer.components.push_back(std::move(database));
  }
  return WithWriter(std::move(writer));
}

void AddMachineFiles(WriterComponent& machine, std::size_t c) {
  const std::wstring folder = L"machines\\" + GuidText(c);
  AddFile(machine, c, folder, GuidText(c) + L".vmcx");
  AddFile(machine, c, folder, GuidText(c) + L".vmrs");
  AddFile(machine, c, folder + L"\\Snapshots", L"*");
  for (int disk = 0; disk < 3; ++disk) {
    AddFile(machine, c, folder + L"\\disks", L"disk" + std::to_wstring(disk) + L".vhdx");
  }
}

HostModel HyperVHost(std::size_t n) {
  Writer writer = MakeWriter(L"Microsoft Hyper-V VSS Writer", kHyperVWriterId);
  for (std::size_t c = 0; c < n; ++c) {
    WriterComponent machine = MakeComponent(L"", GuidText(c), L"Online\\machine" + Number(c));
    AddMachineFiles(machine, c);
    writer.components.push_back(std::move(machine));
  }
  return WithWriter(std::move(writer));
}

HostModel ClusterHost(std::size_t n) {
  Writer writer = MakeWriter(L"Cluster Shared Volume VSS Writer", kClusterSharedVolumeWriterId);
  for (std::size_t c = 0; c < n; ++c) {
    WriterComponent machine =
        MakeComponent(L"", GuidText(c) + L"<CSV>node" + Number(c % 4), L"Online\\machine" + Number(c));
    AddMachineFiles(machine, c);
    writer.components.push_back(std::move(machine));
  }
  HostModel model = WithWriter(std::move(writer));
  model.cluster.emplace();
  for (simulator::Disk& disk : model.disks) {
    if (disk.system) continue;
    disk.clustered = true;
    for (simulator::Volume& volume : disk.volumes) volume.csv = true;
  }
  return model;
}

// Servers of 100 databases; every database is a tree with its file and its logs below it.
HostModel ExchangeHost(std::size_t n) {
  constexpr std::size_t kDatabasesPerServer = 100;
  const std::wstring store = L"Microsoft Exchange Server\\Microsoft Information Store";
  Writer writer = MakeWriter(L"Microsoft Exchange Writer", kExchangeWriterId);
  for (std::size_t c = 0; c < n; ++c) {
    const std::wstring server = L"EXCH" + Number(c / kDatabasesPerServer);
    if (c % kDatabasesPerServer == 0) writer.components.push_back(MakeComponent(store, server, server));
    const std::wstring path = store + L"\\" + server;
    writer.components.push_back(MakeComponent(path, GuidText(c), L"mailbox" + Number(c)));
    const std::wstring folder = L"mailbox" + Number(c);
    WriterComponent file = MakeComponent(path + L"\\" + GuidText(c), L"File", L"File");
    WriterComponent logs = MakeComponent(path + L"\\" + GuidText(c), L"Logs", L"Logs");
    file.selectable = logs.selectable = false;
    AddFile(file, c, folder, L"mailbox" + Number(c) + L".edb");
    AddFile(logs, c, folder, L"E00*.log");
    AddFile(logs, c, folder, L"E00.chk");
    writer.components.push_back(std::move(file));
    writer.components.push_back(std::move(logs));
  }
  return WithWriter(std::move(writer));
}

// One component of n files in few folders, as the operating system's own writer has it, on a disk of the array.
HostModel SystemHost(std::size_t n) {
  constexpr std::size_t kFolders = 400;
  Writer writer = MakeWriter(L"System Writer", L"{e8132975-6f93-4464-a53e-1050253ae220}");
  WriterComponent component = MakeComponent(L"", L"System Files", L"System Files");
  for (std::size_t f = 0; f < n; ++f) {
    AddFile(component, f, L"Windows\\winsxs\\folder" + Number(f % kFolders), L"component" + Number(f) + L".dll");
  }
  writer.components.push_back(std::move(component));
  return WithWriter(std::move(writer));
}

// Chains of 50 components, each below the one before. (In one chain of n the paths alone would be quadratic text.)
HostModel DeepHost(std::size_t n) {
  constexpr std::size_t kDepth = 50;
  Writer writer = MakeWriter(L"Deep Writer", L"{00000001-0000-0000-0000-000000000000}");
  std::wstring path;
  for (std::size_t c = 0; c < n; ++c) {
    if (c % kDepth == 0) path = L"chain" + Number(c / kDepth);
    WriterComponent component = MakeComponent(path, L"c" + Number(c % kDepth), L"");
    AddFile(component, c / kDepth, L"deep", L"file" + Number(c));
    path += L"\\" + component.name;
    writer.components.push_back(std::move(component));
  }
  return WithWriter(std::move(writer));
}

HostModel WideHost(std::size_t n) {
  Writer writer = MakeWriter(L"Wide Writer", L"{00000002-0000-0000-0000-000000000000}");
  writer.components.push_back(MakeComponent(L"", L"parent", L"parent"));
  for (std::size_t c = 0; c < n; ++c) {
    WriterComponent child = MakeComponent(L"parent", L"child" + Number(c), L"");
    AddFile(child, c, L"wide", L"file" + Number(c));
    writer.components.push_back(std::move(child));
  }
  return WithWriter(std::move(writer));
}

template <class Requestor>
std::unique_ptr<CVarnel> Make() {
  return std::make_unique<Requestor>(0);
}

}  // namespace

const std::vector<Workload>& Workloads() {
  static const std::vector<Workload> workloads = {
      {"sql", "databases of 3 files", SqlHost, {kSqlServerWriterId}, Make<SqlReq>},
      {"hyperv", "machines of 6 files", HyperVHost, {kHyperVWriterId}, Make<HyperVReq>},
      {"hyperv-csv", "machines of 6 files on CSVs", ClusterHost, {kClusterSharedVolumeWriterId}, Make<HyperVReq>},
      {"exchange", "databases as trees of 3 files", ExchangeHost, {kExchangeWriterId}, Make<ExchangeReq>},
      {"system", "files in one component", SystemHost, {}, Make<CVarnel>},
      {"deep", "components in chains of 50", DeepHost, {}, Make<CVarnel>},
      {"wide", "children of one parent", WideHost, {}, Make<CVarnel>},
  };
  return workloads;
}

const Workload& FindWorkload(const std::string& name) {
  for (const Workload& workload : Workloads()) {
    if (workload.name == name) return workload;
  }
  throw std::invalid_argument("no workload " + name);
}

std::size_t CountFiles(const simulator::HostModel& model) {
  std::size_t files = 0;
  for (const simulator::Writer& writer : model.writers) {
    for (const WriterComponent& component : writer.components) files += component.files.size();
  }
  return files;
}

}  // namespace varnel::bench
