#include "bench/workloads.h"

#include <set>
#include <stdexcept>

#include "c/varnel-c.h"
#include "requestors/ExchReq.h"
#include "requestors/HyperVReq.h"
#include "requestors/SqlReq.h"
#include "tests/support/host_model.h"
#include "text/guid.h"

namespace varnel::bench {
namespace {

using simulator::HostModel;
using simulator::Writer;
using simulator::WriterComponent;

constexpr std::size_t kDisks = 64;  // of the array, the most that a snapshot set takes
// A drive letter cannot name so many volumes, so each is mounted in a folder.
constexpr std::wstring_view kMountFolder = L"C:\\mnt\\";

std::wstring Number(std::size_t n) {
  return std::to_wstring(n);
}

std::wstring GuidText(std::size_t n) {
  GUID guid{};
  guid.Data1 = static_cast<DWORD>(n + 1);
  return FormatBareGuid(guid);
}

WriterComponent MakeComponent(std::wstring logicalPath, std::wstring name, std::wstring caption) {
  WriterComponent component = test::MakeComponent(std::move(logicalPath), std::move(name), {});
  component.caption = std::move(caption);
  return component;
}

// The whole of a component lies on one disk, as databases and machines do.
void AddFile(WriterComponent& component, std::size_t disk, const std::wstring& folder, std::wstring filespec) {
  component.files.push_back({std::wstring(kMountFolder) + Number(disk % kDisks) + L"\\" + folder, std::move(filespec)});
}

HostModel WithWriter(Writer writer) {
  HostModel model = HostWithoutWriters();
  model.writers.push_back(std::move(writer));
  return model;
}

HostModel SqlHost(std::size_t n) {
  Writer writer = test::MakeWriterOf(kSqlServerWriterId, L"SqlServerWriter", 2, {});
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
  Writer writer = test::MakeWriterOf(kHyperVWriterId, L"Microsoft Hyper-V VSS Writer", 2, {});
  for (std::size_t c = 0; c < n; ++c) {
    WriterComponent machine = MakeComponent(L"", GuidText(c), L"Online\\machine" + Number(c));
    AddMachineFiles(machine, c);
    writer.components.push_back(std::move(machine));
  }
  return WithWriter(std::move(writer));
}

HostModel ClusterHost(std::size_t n) {
  Writer writer = test::MakeWriterOf(kClusterSharedVolumeWriterId, L"Cluster Shared Volume VSS Writer", 2, {});
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
  const std::wstring belowStore = store + L"\\";
  Writer writer = test::MakeWriterOf(kExchangeWriterId, L"Microsoft Exchange Writer", 2, {});
  for (std::size_t c = 0; c < n; ++c) {
    const std::wstring server = L"EXCH" + Number(c / kDatabasesPerServer);
    if (c % kDatabasesPerServer == 0) writer.components.push_back(MakeComponent(store, server, server));
    const std::wstring path = belowStore + server;
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
  Writer writer = test::MakeWriterOf(L"{e8132975-6f93-4464-a53e-1050253ae220}", L"System Writer", 2, {});
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
  Writer writer = test::MakeWriter(L"Deep Writer", 2, {});
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
  Writer writer = test::MakeWriter(L"Wide Writer", 2, {});
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
      {"sql", "databases of 3 files", SqlHost, {kSqlServerWriterId}, Make<SqlReq>, VARNEL_SQL_SERVER},
      {"hyperv", "machines of 6 files", HyperVHost, {kHyperVWriterId}, Make<HyperVReq>, VARNEL_HYPER_V},
      {"hyperv-csv",
       "machines of 6 files on CSVs",
       ClusterHost,
       {kClusterSharedVolumeWriterId},
       Make<HyperVReq>,
       VARNEL_HYPER_V},
      {"exchange",
       "databases as trees of 3 files",
       ExchangeHost,
       {kExchangeWriterId},
       Make<ExchangeReq>,
       VARNEL_EXCHANGE},
      {"system", "files in one component", SystemHost, {}, Make<CVarnel>, VARNEL_NO_APPLICATION},
      {"deep", "components in chains of 50", DeepHost, {}, Make<CVarnel>, VARNEL_NO_APPLICATION},
      {"wide", "children of one parent", WideHost, {}, Make<CVarnel>, VARNEL_NO_APPLICATION},
  };
  return workloads;
}

const Workload& FindWorkload(const std::string& name) {
  for (const Workload& workload : Workloads()) {
    if (workload.name == name) return workload;
  }
  throw std::invalid_argument("no workload " + name);
}

HostModel HostWithoutWriters() {
  HostModel model;
  model.disks = {test::MakeDisk(L"SYSTEM", 0, L"C:\\", true)};
  for (std::size_t n = 0; n < kDisks; ++n) {
    model.disks.push_back(test::MakeDisk(L"TSL" + Number(1000 + n), static_cast<DWORD>(n + 1),
                                         std::wstring(kMountFolder) + Number(n) + L"\\"));
  }
  model.providers = {test::ArrayProvider()};
  return model;
}

std::vector<std::wstring> DisksOf(const HostModel& model) {
  std::set<std::size_t> used;
  for (const Writer& writer : model.writers) {
    for (const WriterComponent& component : writer.components) {
      for (const simulator::FileSpec& file : component.files) {
        used.insert(std::stoul(file.path.substr(kMountFolder.size())));
      }
    }
  }
  std::vector<std::wstring> disks;
  disks.reserve(used.size());
  for (const std::size_t disk : used) disks.push_back(model.disks[disk + 1].serial);
  return disks;
}

std::size_t CountFiles(const simulator::HostModel& model) {
  std::size_t files = 0;
  for (const simulator::Writer& writer : model.writers) {
    for (const WriterComponent& component : writer.components) files += component.files.size();
  }
  return files;
}

}  // namespace varnel::bench
