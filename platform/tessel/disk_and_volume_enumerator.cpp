#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <mutex>
#include <optional>
#include <string_view>
#include <unordered_map>

#include "platform/host.h"
#include "platform/owners.h"
#include "platform/tessel/FileLog.h"
#include "platform/tessel/TesselCommonClasses.h"
#include "text/ascii_case.h"
#include "text/format.h"

namespace TesselCommonClasses {
namespace {

using varnel::CurrentHost;
using varnel::FileHandle;

void Warn(int line, const wchar_t* call, std::wstring_view device, DWORD error) {
  if (CFileLog* log = CFileLog::GetInstance()) {
    log->Log(CFileLog::Warning, L"DiskAndVolumeEnumerator", line, L"%s Failed, Device=%s, Error=%u", call,
             std::wstring(device).c_str(), error);
  }
}

[[noreturn]] void ThrowLastError(const wchar_t* call) {
  const DWORD last = CurrentHost().GetLastError();
  const DWORD error = last == ERROR_SUCCESS ? ERROR_GEN_FAILURE : last;
  throw ExceptionCommon(error, varnel::FormatWide(L"%s failed with %u", {call, error}));
}

std::wstring_view WithoutTrailingBackslash(std::wstring_view name) {
  return name.ends_with(L'\\') ? name.substr(0, name.size() - 1) : name;
}

// Names of one volume differ in case and in a backslash at the end.
std::wstring KeyOf(std::wstring_view volume) {
  return varnel::ascii::ToLower(WithoutTrailingBackslash(volume));
}

bool IsDevicePath(std::wstring_view name) {
  return name.starts_with(L"\\\\?\\") || name.starts_with(L"\\\\.\\");
}

// Only asks for the device's properties, so neither needs the device for itself nor the right to read from it.
FileHandle OpenDevice(const std::wstring& name) {
  return FileHandle(CurrentHost().storage().CreateFileW(name.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                                        OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
}

std::vector<std::wstring> ListVolumes() {
  std::vector<std::wstring> names;
  std::array<wchar_t, MAX_PATH> name{};
  const varnel::VolumeSearch search(CurrentHost().storage().FindFirstVolumeW(name.data(), MAX_PATH));
  if (!search) {
    if (CurrentHost().GetLastError() == ERROR_NO_MORE_FILES) return names;
    ThrowLastError(L"FindFirstVolumeW()");
  }
  do {
    names.emplace_back(name.data());
  } while (CurrentHost().storage().FindNextVolumeW(search.Get(), name.data(), MAX_PATH));
  if (CurrentHost().GetLastError() != ERROR_NO_MORE_FILES) ThrowLastError(L"FindNextVolumeW()");
  return names;
}

// Empty when the volume has none or they cannot be read.
std::wstring FirstMountPoint(const std::wstring& volume) {
  std::wstring names(MAX_PATH, L'\0');
  for (;;) {
    DWORD needed = 0;
    const auto room = static_cast<DWORD>(names.size());
    if (CurrentHost().storage().GetVolumePathNamesForVolumeNameW(volume.c_str(), names.data(), room, &needed)) {
      return names.substr(0, names.find(L'\0'));  // the first of the list
    }
    const DWORD error = CurrentHost().GetLastError();
    if (error != ERROR_MORE_DATA || needed <= room) {
      Warn(__LINE__, L"GetVolumePathNamesForVolumeNameW()", volume, error);
      return {};
    }
    names.assign(needed, L'\0');
  }
}

// The disk of the first extent: a volume that spans several disks counts to that one.
std::optional<DWORD> FirstDiskOf(const FileHandle& device, std::wstring_view volume) {
  constexpr std::size_t kMostExtents = 4096;
  for (std::size_t room = 1; room <= kMostExtents; room *= 8) {
    std::vector<VOLUME_DISK_EXTENTS> extents(room);
    DWORD returned = 0;
    if (CurrentHost().storage().DeviceIoControl(device.Get(), IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS, nullptr, 0,
                                                extents.data(), static_cast<DWORD>(room * sizeof extents[0]), &returned,
                                                nullptr)) {
      if (returned >= sizeof extents[0] && extents[0].NumberOfDiskExtents > 0) return extents[0].Extents[0].DiskNumber;
      Warn(__LINE__, L"IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS without an extent", volume, ERROR_SUCCESS);
      return std::nullopt;
    }
    if (const DWORD error = CurrentHost().GetLastError(); error != ERROR_MORE_DATA || room == kMostExtents) {
      Warn(__LINE__, L"IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS", volume, error);
      return std::nullopt;
    }
  }
  return std::nullopt;
}

std::optional<DWORD> DiskNumberOf(std::wstring_view volume) {
  // With the backslash it would be the root directory of the volume, which is no device.
  const FileHandle device = OpenDevice(std::wstring(WithoutTrailingBackslash(volume)));
  if (!device) {
    Warn(__LINE__, L"CreateFileW()", volume, CurrentHost().GetLastError());
    return std::nullopt;
  }
  return FirstDiskOf(device, volume);
}

// The text as the device gives it, blanks included; empty when the device reports none.
std::wstring SerialNumberIn(const char* bytes, std::size_t returned) {
  constexpr std::size_t kStrings = offsetof(STORAGE_DEVICE_DESCRIPTOR, RawDeviceProperties);
  if (returned < kStrings) return {};
  DWORD offset = 0;
  std::memcpy(&offset, bytes + offsetof(STORAGE_DEVICE_DESCRIPTOR, SerialNumberOffset), sizeof offset);
  if (offset < kStrings || offset >= returned) return {};
  const std::string_view rest(bytes + offset, returned - offset);
  const std::size_t end = rest.find('\0');
  if (end == rest.npos) return {};
  std::wstring serial;
  for (const char c : rest.substr(0, end)) serial += static_cast<wchar_t>(static_cast<unsigned char>(c));
  return serial;
}

std::wstring ReadSerialNumber(const FileHandle& disk, const std::wstring& diskName) {
  STORAGE_PROPERTY_QUERY query{};
  query.PropertyId = StorageDeviceProperty;
  query.QueryType = PropertyStandardQuery;
  std::array<char, 4096> descriptor{};
  DWORD returned = 0;
  if (!CurrentHost().storage().DeviceIoControl(disk.Get(), IOCTL_STORAGE_QUERY_PROPERTY, &query, sizeof query,
                                               descriptor.data(), static_cast<DWORD>(descriptor.size()), &returned,
                                               nullptr)) {
    Warn(__LINE__, L"IOCTL_STORAGE_QUERY_PROPERTY", diskName, CurrentHost().GetLastError());
    return {};
  }
  return SerialNumberIn(descriptor.data(), std::min<std::size_t>(returned, descriptor.size()));
}

// Systems without the cluster feature do not know the question, which is an answer too.
void AskWhetherClustered(const FileHandle& disk, WindowsDiskDevice& device) {
  DWORD clustered = 0;
  DWORD returned = 0;
  if (CurrentHost().storage().DeviceIoControl(disk.Get(), IOCTL_DISK_IS_CLUSTERED, nullptr, 0, &clustered,
                                              sizeof clustered, &returned, nullptr)) {
    device.isClustered = clustered != 0;
    device.isClusteredKnown = true;
    return;
  }
  const DWORD error = CurrentHost().GetLastError();
  device.isClusteredKnown = error == ERROR_INVALID_FUNCTION || error == ERROR_NOT_SUPPORTED;
  if (!device.isClusteredKnown) Warn(__LINE__, L"IOCTL_DISK_IS_CLUSTERED", device.diskName, error);
}

// A disk that cannot be read has no serial number.
WindowsDiskDevice ReadDisk(DWORD number) {
  WindowsDiskDevice device;
  device.diskName = varnel::FormatWide(L"\\\\.\\PhysicalDrive%u", {number});
  device.diskNumber = number;
  const FileHandle disk = OpenDevice(device.diskName);
  if (!disk) {
    Warn(__LINE__, L"CreateFileW()", device.diskName, CurrentHost().GetLastError());
    return device;
  }
  device.serialNumber = ReadSerialNumber(disk, device.diskName);
  AskWhetherClustered(disk, device);
  return device;
}

// Other threads may be reading the serial number: on a host that has not changed they see no change.
void RememberSystemDrive(std::wstring serialNumber) {
  static std::mutex mutex;
  const std::lock_guard<std::mutex> lock(mutex);
  std::wstring& known = DiskAndVolumeEnumerator::systemDriveSerialNumber;
  if (known != serialNumber) known = std::move(serialNumber);
}

}  // namespace

std::wstring DiskAndVolumeEnumerator::systemDriveSerialNumber;

// What one enumeration found, and what was asked for since: nothing is asked of a device twice.
struct DiskAndVolumeEnumerator::Cache {
  Cache() {
    for (std::wstring& name : ListVolumes()) AddVolume(std::move(name));
    for (const auto& [number, disk] : devices) disks.push_back(disk);
    std::sort(disks.begin(), disks.end(),
              [](const WindowsDiskDevice& a, const WindowsDiskDevice& b) { return a.diskNumber < b.diskNumber; });
  }

  void AddVolume(std::wstring name) {
    const WindowsDiskDevice* disk = DiskOf(name);
    if (disk != nullptr && !disk->serialNumber.empty()) {
      volumesOnDisk[varnel::ascii::ToLower(disk->serialNumber)].push_back(volumes.size());
    }
    std::wstring mountPoint = FirstMountPoint(name);
    volumes.push_back({std::move(name), std::move(mountPoint)});
  }

  /// Empty when the volume has none or is not known.
  std::wstring MountPointOf(std::wstring_view volume) const {
    const std::wstring key = KeyOf(volume);
    const auto known = std::find_if(volumes.begin(), volumes.end(),
                                    [&](const WindowsVolumeInfo& info) { return KeyOf(info.uniqueVolumeName) == key; });
    return known == volumes.end() ? std::wstring() : known->mountPoint;
  }

  /// Null when no disk can be told.
  const WindowsDiskDevice* DiskOf(std::wstring_view volume) {
    if (!IsDevicePath(volume)) return nullptr;
    const auto [entry, isNew] = diskNumbers.try_emplace(KeyOf(volume));
    if (isNew) entry->second = DiskNumberOf(volume);
    return entry->second ? &Device(*entry->second) : nullptr;
  }

  const WindowsDiskDevice& Device(DWORD number) {
    const auto known = devices.find(number);
    return known != devices.end() ? known->second : devices.emplace(number, ReadDisk(number)).first->second;
  }

  const std::vector<std::size_t>& VolumesOnDisk(std::wstring_view serialNumber) const {
    static const std::vector<std::size_t> none;
    const auto found = volumesOnDisk.find(varnel::ascii::ToLower(serialNumber));
    return found == volumesOnDisk.end() ? none : found->second;
  }

  /// Empty when it cannot be told.
  std::wstring SystemDriveSerialNumber() {
    std::array<wchar_t, MAX_PATH> directory{};
    const UINT length = CurrentHost().system().GetSystemDirectoryW(directory.data(), MAX_PATH);
    if (length == 0 || length >= MAX_PATH) {
      Warn(__LINE__, L"GetSystemDirectoryW()", L"", CurrentHost().GetLastError());
      return {};
    }
    const std::wstring drive = std::wstring(directory.data(), 2) + L"\\";
    std::array<wchar_t, MAX_PATH> volume{};
    if (!CurrentHost().storage().GetVolumeNameForVolumeMountPointW(drive.c_str(), volume.data(), MAX_PATH)) {
      Warn(__LINE__, L"GetVolumeNameForVolumeMountPointW()", drive, CurrentHost().GetLastError());
      return {};
    }
    const WindowsDiskDevice* disk = DiskOf(volume.data());
    return disk == nullptr ? std::wstring() : disk->serialNumber;
  }

  std::vector<WindowsDiskDevice> disks;  // by number
  std::vector<WindowsVolumeInfo> volumes;
  std::unordered_map<std::wstring, std::vector<std::size_t>> volumesOnDisk;  // lower-case serial -> in `volumes`
  std::unordered_map<std::wstring, std::optional<DWORD>> diskNumbers;        // KeyOf a volume -> disk
  std::unordered_map<DWORD, WindowsDiskDevice> devices;
};

DiskAndVolumeEnumerator::DiskAndVolumeEnumerator() = default;
DiskAndVolumeEnumerator::~DiskAndVolumeEnumerator() = default;

void DiskAndVolumeEnumerator::EnumerateDisks(bool refresh) {
  if (cache_ != nullptr && !refresh) return;
  auto fresh = std::make_unique<Cache>();
  RememberSystemDrive(fresh->SystemDriveSerialNumber());
  cache_ = std::move(fresh);
}

DiskAndVolumeEnumerator::Cache& DiskAndVolumeEnumerator::Filled() {
  EnumerateDisks(false);
  return *cache_;
}

void DiskAndVolumeEnumerator::GetDiskDeviceForUniqueVolume(const std::wstring& volume, WindowsDiskDevice& device) {
  const WindowsDiskDevice* disk = Filled().DiskOf(volume);
  device = disk == nullptr ? WindowsDiskDevice() : *disk;
}

void DiskAndVolumeEnumerator::GetUniqueVolumeNamesForDisk(const std::wstring& serialNumber,
                                                          std::vector<std::wstring>& names) {
  const Cache& cache = Filled();
  names.clear();
  for (const std::size_t i : cache.VolumesOnDisk(serialNumber)) names.push_back(cache.volumes[i].uniqueVolumeName);
}

void DiskAndVolumeEnumerator::GetVolumesForGivenDisk(const std::wstring& serialNumber,
                                                     std::vector<WindowsVolumeInfo>& volumes) {
  const Cache& cache = Filled();
  volumes.clear();
  for (const std::size_t i : cache.VolumesOnDisk(serialNumber)) volumes.push_back(cache.volumes[i]);
}

bool DiskAndVolumeEnumerator::IsClusteredDisk(const std::wstring& volume) {
  const WindowsDiskDevice* disk = Filled().DiskOf(volume);
  if (disk == nullptr) {
    throw ExceptionCommon(ERROR_FILE_NOT_FOUND, varnel::FormatWide(L"No disk is known for volume %s", {volume}));
  }
  if (!disk->isClusteredKnown) {
    throw ExceptionCommon(ERROR_GEN_FAILURE,
                          varnel::FormatWide(L"%s did not tell whether it is clustered", {disk->diskName}));
  }
  return disk->isClustered;
}

// The volume may be known to the cluster by either of its names.
bool DiskAndVolumeEnumerator::IsClusterSharedVolume(const std::wstring& volume) {
  varnel::Cluster& cluster = CurrentHost().cluster();
  if (cluster.ClusterIsPathOnSharedVolume(volume.c_str())) return true;
  const std::wstring mountPoint = Filled().MountPointOf(volume);
  return !mountPoint.empty() && cluster.ClusterIsPathOnSharedVolume(mountPoint.c_str());
}

const std::vector<WindowsDiskDevice>& DiskAndVolumeEnumerator::GetDisks() {
  return Filled().disks;
}

}  // namespace TesselCommonClasses
