#include <algorithm>
#include <array>
#include <map>
#include <mutex>
#include <optional>
#include <string_view>
#include <unordered_map>

#include "platform/host.h"
#include "platform/tessel/TesselCommonClasses.h"
#include "platform/tessel/storage_devices.h"
#include "text/ascii_case.h"
#include "text/format.h"

namespace TesselCommonClasses {
namespace {

// Names of one volume differ in case and in a backslash at the end.
std::wstring KeyOf(std::wstring_view volume) {
  return varnel::ascii::ToLower(WithoutTrailingBackslash(volume));
}

bool IsDevicePath(std::wstring_view name) {
  return name.starts_with(L"\\\\?\\") || name.starts_with(L"\\\\.\\");
}

// The unique name of the volume that is mounted there; a device path is one already. Empty when
// there is none.
std::wstring UniqueNameOf(const std::wstring& volume) {
  if (volume.empty() || IsDevicePath(volume)) return volume;
  std::array<wchar_t, MAX_PATH> name{};
  const bool found = varnel::CurrentHost().storage().GetVolumeNameForVolumeMountPointW(
      UtilityClass::AppendBackslash(volume).c_str(), name.data(), MAX_PATH);
  return found ? name.data() : std::wstring();
}

// Readers hold no lock: they see no change while the system disk stays the same.
void RememberSystemDrive(const std::wstring& serialNumber) {
  static std::mutex mutex;
  const std::lock_guard<std::mutex> lock(mutex);
  std::wstring& known = DiskAndVolumeEnumerator::systemDriveSerialNumber;
  if (known != serialNumber) known = serialNumber;
}

}  // namespace

std::wstring DiskAndVolumeEnumerator::systemDriveSerialNumber;

// What was found since the last refresh: nothing is asked of a device twice.
class DiskAndVolumeEnumerator::Cache {
 public:
  /// The disks that hold volumes, by number, and the volumes on them.
  struct Listing {
    std::vector<WindowsDiskDevice> disks;
    std::unordered_map<std::wstring, std::vector<std::wstring>> volumesOnDisk;  // lower-case serial -> unique names
  };

  const Listing& Listed() {
    if (!listing_) listing_ = List();
    return *listing_;
  }

  const std::vector<std::wstring>& VolumesOnDisk(std::wstring_view serialNumber) {
    static const std::vector<std::wstring> none;
    const auto& volumes = Listed().volumesOnDisk;
    const auto found = volumes.find(varnel::ascii::ToLower(serialNumber));
    return found == volumes.end() ? none : found->second;
  }

  const DisksOfVolume& DisksOf(std::wstring_view volume) {
    std::wstring key = KeyOf(volume);
    const auto known = disksOfVolumes_.find(key);
    if (known != disksOfVolumes_.end()) return known->second;
    return disksOfVolumes_.emplace(std::move(key), ReadDisksOf(volume)).first->second;
  }

  const AskedDisk& DiskNumbered(DWORD number) {
    const auto known = disks_.find(number);
    return known != disks_.end() ? known->second : disks_.emplace(number, ReadDisk(number)).first->second;
  }

  /// Null when no disk can be told, or more than one.
  const WindowsDiskDevice* DiskOf(std::wstring_view volume) {
    if (!IsDevicePath(volume)) return nullptr;
    const DisksOfVolume& disks = DisksOf(volume);
    return disks.numbers.size() == 1 ? &DiskNumbered(disks.numbers.front()).device : nullptr;
  }

  /// Empty when the volume has none or is not known.
  const std::wstring& MountPointOf(const std::wstring& volume) {
    std::wstring key = KeyOf(volume);
    const auto known = mountPoints_.find(key);
    if (known != mountPoints_.end()) return known->second;
    return mountPoints_.emplace(std::move(key), FirstMountPoint(UtilityClass::AppendBackslash(volume))).first->second;
  }

  /// The cluster may know the volume by either of its names.
  bool IsShared(const std::wstring& volume) {
    std::wstring key = KeyOf(volume);
    const auto known = shared_.find(key);
    if (known != shared_.end()) return known->second;
    varnel::Cluster& cluster = varnel::CurrentHost().cluster();
    bool shared = cluster.ClusterIsPathOnSharedVolume(volume.c_str()) != FALSE;
    if (!shared) {
      const std::wstring other = IsDevicePath(volume) ? MountPointOf(volume) : UniqueNameOf(volume);
      shared = !other.empty() && cluster.ClusterIsPathOnSharedVolume(other.c_str()) != FALSE;
    }
    return shared_.emplace(std::move(key), shared).first->second;
  }

  /// A system disk must never be taken for a data disk because a question failed: then this throws ExceptionCommon.
  void LearnSystemDrive() {
    if (knowsSystemDrive_) return;
    const std::wstring volume = SystemVolume();
    const DisksOfVolume& disks = DisksOf(volume);
    const AskedDisk* disk = disks.numbers.empty() ? nullptr : &DiskNumbered(disks.numbers.front());
    if (const DWORD error = disk == nullptr ? disks.error : disk->error) {
      throw ExceptionCommon(
          error, varnel::FormatWide(L"The disk of the system volume %s cannot be told: error %u", {volume, error}));
    }
    RememberSystemDrive(disk->device.serialNumber);
    knowsSystemDrive_ = true;
  }

 private:
  Listing List() {
    LearnSystemDrive();
    Listing listing;
    std::map<DWORD, const WindowsDiskDevice*> disks;
    for (std::wstring& name : ListVolumes()) {
      const WindowsDiskDevice* disk = DiskOf(name);
      if (disk == nullptr) continue;
      disks.emplace(disk->diskNumber, disk);
      if (disk->serialNumber.empty()) continue;
      listing.volumesOnDisk[varnel::ascii::ToLower(disk->serialNumber)].push_back(std::move(name));
    }
    for (const auto& [number, disk] : disks) listing.disks.push_back(*disk);
    return listing;
  }

  bool knowsSystemDrive_ = false;
  std::optional<Listing> listing_;
  std::unordered_map<std::wstring, DisksOfVolume> disksOfVolumes_;  // by KeyOf a volume
  std::unordered_map<std::wstring, std::wstring> mountPoints_;      // by KeyOf a volume
  std::unordered_map<std::wstring, bool> shared_;                   // by KeyOf a volume's name or mount point
  std::unordered_map<DWORD, AskedDisk> disks_;                      // by number
};

DiskAndVolumeEnumerator::DiskAndVolumeEnumerator() = default;
DiskAndVolumeEnumerator::~DiskAndVolumeEnumerator() = default;

void DiskAndVolumeEnumerator::EnumerateDisks(bool refresh) {
  if (cache_ != nullptr) {
    if (refresh) *cache_ = Cache();
    return;
  }
  auto cache = std::make_unique<Cache>();
  cache->LearnSystemDrive();
  cache_ = std::move(cache);
}

DiskAndVolumeEnumerator::Cache& DiskAndVolumeEnumerator::Filled() {
  EnumerateDisks(false);
  return *cache_;
}

void DiskAndVolumeEnumerator::GetDiskDeviceForUniqueVolume(const std::wstring& volume, WindowsDiskDevice& device) {
  const WindowsDiskDevice* disk = Filled().DiskOf(volume);
  device = disk == nullptr ? WindowsDiskDevice() : *disk;
}

std::vector<DWORD> DiskAndVolumeEnumerator::GetDiskNumbersOfVolume(const std::wstring& volume) {
  return IsDevicePath(volume) ? Filled().DisksOf(volume).numbers : std::vector<DWORD>();
}

void DiskAndVolumeEnumerator::GetUniqueVolumeNamesForDisk(const std::wstring& serialNumber,
                                                          std::vector<std::wstring>& names) {
  names = Filled().VolumesOnDisk(serialNumber);
}

void DiskAndVolumeEnumerator::GetVolumesForGivenDisk(const std::wstring& serialNumber,
                                                     std::vector<WindowsVolumeInfo>& volumes) {
  Cache& cache = Filled();
  volumes.clear();
  for (const std::wstring& name : cache.VolumesOnDisk(serialNumber)) {
    volumes.push_back({name, cache.MountPointOf(name)});
  }
}

// Where another node owns a cluster shared volume, its disk answers nothing here, or not what it is.
bool DiskAndVolumeEnumerator::IsClusteredDisk(const std::wstring& volume) {
  if (IsClusterSharedVolume(volume)) return true;
  const std::wstring name = UniqueNameOf(volume);
  const std::vector<DWORD> numbers = GetDiskNumbersOfVolume(name);
  if (numbers.empty()) {
    throw ExceptionCommon(ERROR_FILE_NOT_FOUND, varnel::FormatWide(L"No disk is known for volume %s", {volume}));
  }
  if (numbers.size() > 1) {
    throw ExceptionCommon(ERROR_NOT_SUPPORTED, varnel::FormatWide(L"Volume %s lies on several disks", {volume}));
  }
  const WindowsDiskDevice& disk = Filled().DiskNumbered(numbers.front()).device;
  if (!disk.isClusteredKnown) {
    throw ExceptionCommon(ERROR_GEN_FAILURE,
                          varnel::FormatWide(L"%s did not tell whether it is clustered", {disk.diskName}));
  }
  return disk.isClustered;
}

bool DiskAndVolumeEnumerator::IsClusterSharedVolume(const std::wstring& volume) {
  return Filled().IsShared(volume);
}

const std::vector<WindowsDiskDevice>& DiskAndVolumeEnumerator::GetDisks() {
  return Filled().Listed().disks;
}

}  // namespace TesselCommonClasses
