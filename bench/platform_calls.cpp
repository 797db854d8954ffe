// How often a whole request asks the platform, by kind, for sets of 1, 16 and 64 volumes, beside the fewest calls that
// could do:
//
//   platform_calls
//
// Prints the table of docs/performance.md. One writer has a component with a file on each volume; each volume has a
// disk of its own.
#include <algorithm>
#include <array>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/varnel.h"
#include "simulator/simulated_host.h"
#include "tests/support/host_model.h"

namespace varnel::bench {
namespace {

constexpr int kSizes[] = {1, 16, 64};

// Calls of one kind, and how many would do for a set of so many volumes: `always` and `perVolume`.
struct Kind {
  const char* name = "";
  std::array<std::string_view, 8> calls{};  // "::Method" of any interface, "Interface::" or a function; the rest empty
  int always = 0;
  int perVolume = 0;
};

// Besides its work, an asynchronous operation takes a wait and a question for its result.
constexpr Kind kKinds[] = {
    {"set-up", {"CreateVssBackupComponents", "::InitializeForBackup", "::SetBackupState"}, 3, 0},
    {"asynchronous operations with their waits",
     {"::GatherWriterMetadata", "::GatherWriterStatus", "::PrepareForBackup", "::DoSnapshotSet", "::BackupComplete",
      "IVssAsync::Wait", "IVssAsync::QueryStatus"},
     7 * 3,
     0},
    {"writers' metadata",
     {"::GetWriterMetadataCount", "::GetWriterMetadata", "::FreeWriterMetadata",
      "IVssExamineWriterMetadata::", "IVssWMComponent::", "IVssWMFiledesc::"},
     6,
     4 + 4},
    {"directories: expanded and their volume found",
     {"ExpandEnvironmentStringsW", "GetVolumePathNameW", "GetVolumeNameForVolumeMountPointW"},
     1,
     3},
    {"the system directory", {"GetSystemDirectoryW"}, 1, 0},
    {"volumes and disks opened", {"CreateFileW"}, 2, 4},
    {"questions to devices", {"DeviceIoControl"}, 2, 4},
    {"components and volumes added", {"::AddComponent", "::StartSnapshotSet", "::AddToSnapshotSet"}, 1, 2},
    {"writer status", {"::GetWriterStatusCount", "::GetWriterStatusEx", "::FreeWriterStatus"}, 3 * 3, 0},
    {"properties of shadow copies, the document", {"::GetSnapshotProperties", "::SaveAsXML"}, 1, 1},
    {"components marked", {"::GetWriterComponentsCount", "::SetBackupSucceeded"}, 0, 1},
};

simulator::HostModel HostWith(int volumes) {
  simulator::HostModel model;
  model.disks = {test::MakeDisk(L"SYS", 0, L"C:\\", true)};
  model.providers = {test::ArrayProvider()};
  std::vector<simulator::WriterComponent> components;
  for (int n = 1; n <= volumes; ++n) {
    const std::wstring folder = L"C:\\mnt\\" + std::to_wstring(n) + L"\\";
    model.disks.push_back(test::MakeDisk(L"TSL" + std::to_wstring(n), static_cast<DWORD>(n), folder));
    components.push_back(test::MakeComponent(L"", L"db" + std::to_wstring(n), {folder + L"data"}));
  }
  model.writers = {test::MakeWriter(L"Databases", 1, std::move(components))};
  return model;
}

std::vector<std::string> CallsOfRequest(int volumes) {
  simulator::SimulatedHost host(HostWith(volumes));
  const ScopedHost current(host);
  TesselCommonClasses::DiskAndVolumeEnumerator enumerator;
  std::vector<std::wstring> disks;
  for (int n = 1; n <= volumes; ++n) disks.push_back(L"TSL" + std::to_wstring(n));
  std::string errorDetails = "writer=0,";
  auto requestor = std::make_unique<CVarnel>(0);
  requestor->SetInputDriveSerialNos(disks);
  requestor->Initialize(0, L"", false, VSS_BT_FULL, errorDetails, &enumerator);
  requestor->CreateVssSnapshotSet(errorDetails);
  requestor->SetBackupStatus(0, errorDetails);
  requestor.reset();
  return host.calls().lines();
}

bool IsOf(const Kind& kind, std::string_view line) {
  const std::string_view name = line.substr(0, line.find('('));
  return std::any_of(kind.calls.begin(), kind.calls.end(), [&](std::string_view call) {
    if (call.empty()) return false;
    if (call.ends_with("::")) return name.starts_with(call);
    return call.starts_with("::") ? name.ends_with(call) : name == call;
  });
}

void PrintTable() {
  std::vector<std::vector<std::string>> calls;
  for (const int volumes : kSizes) calls.push_back(CallsOfRequest(volumes));
  std::printf("| calls | 1 volume | fewest | 16 volumes | fewest | 64 volumes | fewest |\n");
  std::printf("|---|--:|--:|--:|--:|--:|--:|\n");
  std::vector<std::size_t> counted(std::size(kSizes));
  for (const Kind& kind : kKinds) {
    std::printf("| %s |", kind.name);
    for (std::size_t i = 0; i < std::size(kSizes); ++i) {
      const auto made =
          std::count_if(calls[i].begin(), calls[i].end(), [&](const std::string& line) { return IsOf(kind, line); });
      counted[i] += static_cast<std::size_t>(made);
      std::printf(" %td | %d |", made, kind.always + kind.perVolume * kSizes[i]);
    }
    std::printf("\n");
  }
  std::printf("| handles closed, and whatever else |");
  for (std::size_t i = 0; i < std::size(kSizes); ++i) std::printf(" %zu | |", calls[i].size() - counted[i]);
  std::printf("\n");
}

}  // namespace
}  // namespace varnel::bench

int main() {
  try {
    varnel::bench::PrintTable();
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "platform_calls: %s\n", error.what());
    return 1;
  } catch (long hr) {
    std::fprintf(stderr, "platform_calls: 0x%08lx\n", static_cast<unsigned long>(hr));
    return 1;
  }
}
