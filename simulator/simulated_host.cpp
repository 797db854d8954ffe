#include "simulator/simulated_host.h"

#include <utility>

#include "simulator/host_file/text.h"
#include "simulator/machine/version.h"
#include "simulator/machine/volumes.h"
#include "simulator/services/services.h"
#include "simulator/vss/vss_objects.h"
#include "text/unicode.h"

namespace varnel::simulator {

HRESULT SimulatedVss::CreateVssBackupComponents(IVssBackupComponents** backup) {
  return CreateBackupComponents(machine_, backup);
}

HRESULT SimulatedVss::CoCreateInstance(REFCLSID classId, IUnknown* outer, DWORD context, REFIID interfaceId,
                                       void** object) {
  return CreateCoordinator(machine_, classId, outer, context, interfaceId, object);
}

void SimulatedVss::VssFreeSnapshotProperties(VSS_SNAPSHOT_PROP* properties) {
  FreeSnapshotProperties(*machine_, properties);
}

BSTR SimulatedVss::SysAllocStringLen(const wchar_t* text, UINT length) {
  return Win32Call(
      *machine_, "SysAllocStringLen", BSTR{nullptr}, [&] { return std::to_string(length); },
      [&] { return machine_->MakeBstr(text == nullptr ? std::wstring(length, L'\0') : std::wstring(text, length)); });
}

void SimulatedVss::SysFreeString(BSTR text) {
  machine_->FreeBstr(text);
}

void SimulatedVss::CoTaskMemFree(void* block) {
  machine_->FreeTask(block);
}

DWORD SimulatedCluster::GetNodeClusterState(LPCWSTR node, DWORD* state) {
  constexpr DWORD kRunning = 0x13;
  return CodeCall<DWORD>(
      machine_, "GetNodeClusterState", [&] { return Show(node); },
      [&]() -> DWORD {
        if (state == nullptr) return ERROR_INVALID_PARAMETER;
        *state = machine_.model.cluster ? kRunning : 0;
        return ERROR_SUCCESS;
      });
}

BOOL SimulatedCluster::ClusterIsPathOnSharedVolume(LPCWSTR path) {
  // "No" is an answer and not a failure.
  constexpr int kFailed = -1;
  const int answer = Win32Call(
      machine_, "ClusterIsPathOnSharedVolume", int{kFailed}, [&] { return Show(path); },
      [&]() -> int {
        const std::optional<VolumeView> volume =
            machine_.model.cluster && path != nullptr ? FindVolumeOfPath(machine_, path) : std::nullopt;
        return volume && volume->volume != nullptr && volume->volume->csv ? 1 : 0;
      });
  return answer == 1 ? TRUE : FALSE;
}

HRESULT SimulatedWmiDisks::QueryDisks(std::vector<WmiDisk>& disks) {
  disks.clear();
  return Call(
      machine_, "IWbemServices::ExecQuery", [] { return std::string("SELECT * FROM MSFT_Disk"); },
      [&]() -> HRESULT {
        for (const DiskView& disk : VisibleDisks(machine_)) {
          disks.push_back({disk.number, disk.serial, disk.vendor, disk.system, disk.clustered});
        }
        return S_OK;
      });
}

BOOL SimulatedFileVersions::GetFileVersion(LPCWSTR path, VS_FIXEDFILEINFO* version) {
  constexpr DWORD kSignature = 0xFEEF04BD;
  return Win32Call(
      machine_, "GetFileVersionInfoW", BOOL{FALSE}, [&] { return Show(path); },
      [&]() -> BOOL {
        if (path == nullptr || version == nullptr) {
          machine_.lastError = ERROR_INVALID_PARAMETER;
          return FALSE;
        }
        for (const auto& [file, text] : machine_.model.fileVersions) {
          if (!EqualsIgnoringCase(file, path)) continue;
          const std::optional<FileVersion> parts = ParseFileVersion(WideToUtf8Lossy(text));
          if (!parts) break;
          *version = {};
          version->dwSignature = kSignature;
          version->dwFileVersionMS = (*parts)[0] << 16 | (*parts)[1];
          version->dwFileVersionLS = (*parts)[2] << 16 | (*parts)[3];
          return TRUE;
        }
        machine_.lastError = ERROR_FILE_NOT_FOUND;
        return FALSE;
      });
}

void* SimulatedHeap::Malloc(std::size_t bytes) {
  return Win32Call(
      machine_, "malloc", static_cast<void*>(nullptr), [] { return std::string(); },
      [&] { return machine_.MakeHeapBlock(bytes); });
}

void SimulatedHeap::Free(void* block) {
  machine_.FreeHeapBlock(block);
}

void SimulatedTime::Sleep(DWORD milliseconds) {
  machine_.now += milliseconds;
  machine_.slept += milliseconds;
  RecordCall(machine_, "Sleep", [&] { return std::to_string(milliseconds); });
}

bool SimulatedMetadataService::FindDatabasesToQuiesce(const std::string& serialNumber, std::string& databases,
                                                      std::string& error) {
  const HRESULT result = Call(
      machine_, "MetadataService::FindDatabasesToQuiesce", [&] { return serialNumber; },
      [&]() -> HRESULT {
        const auto found = machine_.model.databases.find(Utf8ToWideLossy(serialNumber));
        if (found == machine_.model.databases.end()) return S_FALSE;
        databases = WideToUtf8Lossy(found->second);
        return S_OK;
      });
  if (result == S_OK) return true;
  error = result == S_FALSE ? "No protection set holds the disk " + serialNumber
                            : "The metadata service failed: " + ResultName(result);
  return false;
}

std::string SimulatedMetadataService::GetClusterName(const std::string& name) {
  std::string networkName;
  const HRESULT result = Call(
      machine_, "MetadataService::GetClusterName", [&] { return name; },
      [&]() -> HRESULT {
        if (!machine_.model.cluster) return S_FALSE;
        for (const auto& [known, network] : machine_.model.cluster->networkNames) {
          if (!EqualsIgnoringCase(known, Utf8ToWideLossy(name))) continue;
          networkName = WideToUtf8Lossy(network);
          return S_OK;
        }
        return S_FALSE;
      });
  if (result == S_OK) return networkName;
  throw std::runtime_error("the cluster has no network name for " + name);
}

struct SimulatedHost::Services {
  explicit Services(const std::shared_ptr<Machine>& machine)
      : objects(*machine),
        vss(machine),
        storage(*machine, objects),
        processes(*machine, objects),
        registry(*machine),
        system(*machine),
        messages(*machine),
        iscsi(*machine),
        cluster(*machine),
        wmi(*machine),
        files(*machine),
        heap(*machine),
        time(*machine),
        metadata(*machine) {}

  KernelObjects objects;
  SimulatedVss vss;
  SimulatedStorage storage;
  SimulatedProcesses processes;
  SimulatedRegistry registry;
  SimulatedSystem system;
  SimulatedMessages messages;
  SimulatedIscsi iscsi;
  SimulatedCluster cluster;
  SimulatedWmiDisks wmi;
  SimulatedFileVersions files;
  SimulatedHeap heap;
  SimulatedTime time;
  SimulatedMetadataService metadata;
};

SimulatedHost::SimulatedHost(HostModel model)
    : machine_(std::make_shared<Machine>(std::move(model))), services_(std::make_unique<Services>(machine_)) {}

SimulatedHost::~SimulatedHost() = default;

HostModel& SimulatedHost::model() {
  machine_->volumeIndex.reset();
  return machine_->model;
}

VssService& SimulatedHost::vss() {
  return services_->vss;
}
Storage& SimulatedHost::storage() {
  return services_->storage;
}
Processes& SimulatedHost::processes() {
  return services_->processes;
}
Registry& SimulatedHost::registry() {
  return services_->registry;
}
SystemInformation& SimulatedHost::system() {
  return services_->system;
}
Messages& SimulatedHost::messages() {
  return services_->messages;
}
IscsiInitiator& SimulatedHost::iscsi() {
  return services_->iscsi;
}
Cluster& SimulatedHost::cluster() {
  return services_->cluster;
}
WmiDisks& SimulatedHost::wmi() {
  return services_->wmi;
}
FileVersions& SimulatedHost::files() {
  return services_->files;
}
Heap& SimulatedHost::heap() {
  return services_->heap;
}
Time& SimulatedHost::time() {
  return services_->time;
}
MetadataService& SimulatedHost::metadata() {
  return services_->metadata;
}
DWORD SimulatedHost::GetLastError() {
  return machine_->lastError;
}

}  // namespace varnel::simulator
