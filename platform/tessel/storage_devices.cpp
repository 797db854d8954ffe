#include "platform/tessel/storage_devices.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <optional>
#include <span>

#include "platform/host.h"
#include "platform/owners.h"
#include "platform/storage_descriptor.h"
#include "platform/tessel/FileLog.h"
#include "text/format.h"

namespace TesselCommonClasses {
namespace {

using varnel::CurrentHost;
using varnel::FileHandle;
using varnel::LastErrorOrGeneric;

void Warn(int line, const wchar_t* call, std::wstring_view device, DWORD error) {
  if (CFileLog* log = CFileLog::GetInstance()) {
    log->Log(CFileLog::Warning, L"DiskAndVolumeEnumerator", line, L"%s Failed, Device=%s, Error=%u", call,
             std::wstring(device).c_str(), error);
  }
}

[[noreturn]] void ThrowLastError(const wchar_t* call) {
  const DWORD error = LastErrorOrGeneric();
  throw ExceptionCommon(error, varnel::FormatWide(L"%s failed with %u", {call, error}));
}

std::wstring PhysicalDriveName(DWORD number) {
  return varnel::FormatWide(L"\\\\.\\PhysicalDrive%u", {number});
}

// Only asks for the device's properties, so neither needs the device for itself nor the right to read from it.
FileHandle OpenDevice(const std::wstring& name) {
  return FileHandle(CurrentHost().storage().CreateFileW(name.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                                        OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
}

DWORD Warned(int line, const wchar_t* call, std::wstring_view device) {
  const DWORD error = LastErrorOrGeneric();
  Warn(line, call, device, error);
  return error;
}

// None when the answer is shorter than it says: a disk may be among what is missing.
std::vector<DWORD> DistinctDisks(const std::vector<VOLUME_DISK_EXTENTS>& answer, std::size_t returned) {
  constexpr std::size_t kStart = offsetof(VOLUME_DISK_EXTENTS, Extents);
  const std::size_t count = answer.front().NumberOfDiskExtents;
  std::vector<DWORD> numbers;
  if (returned < kStart || (returned - kStart) / sizeof(DISK_EXTENT) < count) return numbers;
  const auto* const extents = reinterpret_cast<const BYTE*>(answer.data()) + kStart;
  for (std::size_t i = 0; i < count; ++i) {
    DISK_EXTENT extent{};
    std::memcpy(&extent, extents + i * sizeof extent, sizeof extent);
    if (std::find(numbers.begin(), numbers.end(), extent.DiskNumber) == numbers.end()) {
      numbers.push_back(extent.DiskNumber);
    }
  }
  return numbers;
}

DisksOfVolume DisksOfExtents(const FileHandle& device, std::wstring_view volume) {
  constexpr std::size_t kMostExtents = 4096;
  for (std::size_t room = 1;; room *= 8) {
    std::vector<VOLUME_DISK_EXTENTS> extents(room);
    DWORD returned = 0;
    if (CurrentHost().storage().DeviceIoControl(device.Get(), IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS, nullptr, 0,
                                                extents.data(), static_cast<DWORD>(room * sizeof extents[0]), &returned,
                                                nullptr)) {
      DisksOfVolume disks{DistinctDisks(extents, std::min<std::size_t>(returned, room * sizeof extents[0]))};
      if (!disks.numbers.empty()) return disks;
      Warn(__LINE__, L"IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS without an extent", volume, ERROR_SUCCESS);
      return {{}, ERROR_GEN_FAILURE};
    }
    if (CurrentHost().GetLastError() != ERROR_MORE_DATA || room == kMostExtents) {
      return {{}, Warned(__LINE__, L"IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS", volume)};
    }
  }
}

// A part of a volume's data is no volume: what is taken of one disk alone cannot be restored.
void TellOfSeveralDisks(std::wstring_view volume, const std::vector<DWORD>& numbers) {
  CFileLog* log = CFileLog::GetInstance();
  if (log == nullptr) return;
  std::wstring names;
  for (const DWORD number : numbers) names += (names.empty() ? L"" : L", ") + PhysicalDriveName(number);
  log->Log(CFileLog::Error, L"DiskAndVolumeEnumerator", __LINE__,
           L"Volume lies on several disks and counts to none of them, Volume=%s, Disks=%s",
           std::wstring(volume).c_str(), names.c_str());
}

// Offset 0, like the one that says so, is taken for none: it is the descriptor's own first byte, and all disks without
// a serial number would share that piece of it.
std::wstring SerialNumberIn(std::span<const BYTE> descriptor, const std::wstring& diskName) {
  const std::optional<DWORD> offset = varnel::SerialNumberOffsetIn(descriptor);
  if (offset && (*offset == 0 || *offset == varnel::kNoSerialNumberOffset)) return {};
  std::optional<std::wstring> text = offset ? varnel::SerialNumberAt(*offset, descriptor) : std::nullopt;
  if (text) return std::move(*text);
  Warn(__LINE__, L"IOCTL_STORAGE_QUERY_PROPERTY without a readable serial number", diskName, ERROR_SUCCESS);
  return {};
}

void ReadSerialNumber(const FileHandle& handle, AskedDisk& disk) {
  STORAGE_PROPERTY_QUERY query{};
  query.PropertyId = StorageDeviceProperty;
  query.QueryType = PropertyStandardQuery;
  std::array<BYTE, 4096> descriptor{};
  DWORD returned = 0;
  if (!CurrentHost().storage().DeviceIoControl(handle.Get(), IOCTL_STORAGE_QUERY_PROPERTY, &query, sizeof query,
                                               descriptor.data(), static_cast<DWORD>(descriptor.size()), &returned,
                                               nullptr)) {
    disk.error = Warned(__LINE__, L"IOCTL_STORAGE_QUERY_PROPERTY", disk.device.diskName);
    return;
  }
  const std::span<const BYTE> given(descriptor.data(), std::min<std::size_t>(returned, descriptor.size()));
  disk.device.serialNumber = SerialNumberIn(given, disk.device.diskName);
}

// Systems without the cluster feature do not know the question, which is an answer too. The answer is a BOOLEAN.
void AskWhetherClustered(const FileHandle& handle, WindowsDiskDevice& device) {
  DWORD clustered = 0;
  DWORD returned = 0;
  if (CurrentHost().storage().DeviceIoControl(handle.Get(), IOCTL_DISK_IS_CLUSTERED, nullptr, 0, &clustered,
                                              sizeof clustered, &returned, nullptr)) {
    device.isClusteredKnown = returned != 0;
    device.isClustered = device.isClusteredKnown && clustered != 0;
    if (returned == 0) Warn(__LINE__, L"IOCTL_DISK_IS_CLUSTERED without an answer", device.diskName, ERROR_SUCCESS);
    return;
  }
  const DWORD error = LastErrorOrGeneric();
  device.isClusteredKnown = error == ERROR_INVALID_FUNCTION || error == ERROR_NOT_SUPPORTED;
  if (!device.isClusteredKnown) Warn(__LINE__, L"IOCTL_DISK_IS_CLUSTERED", device.diskName, error);
}

}  // namespace

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

DisksOfVolume ReadDisksOf(std::wstring_view volume) {
  // With the backslash it would be the root directory of the volume, which is no device.
  const FileHandle device = OpenDevice(std::wstring(WithoutTrailingBackslash(volume)));
  if (!device) return {{}, Warned(__LINE__, L"CreateFileW()", volume)};
  DisksOfVolume disks = DisksOfExtents(device, volume);
  if (disks.numbers.size() > 1) TellOfSeveralDisks(volume, disks.numbers);
  return disks;
}

AskedDisk ReadDisk(DWORD number) {
  AskedDisk disk;
  disk.device.diskName = PhysicalDriveName(number);
  disk.device.diskNumber = number;
  const FileHandle handle = OpenDevice(disk.device.diskName);
  if (!handle) {
    disk.error = Warned(__LINE__, L"CreateFileW()", disk.device.diskName);
    return disk;
  }
  ReadSerialNumber(handle, disk);
  AskWhetherClustered(handle, disk.device);
  return disk;
}

std::wstring SystemVolume() {
  std::array<wchar_t, MAX_PATH> directory{};
  const UINT length = CurrentHost().system().GetSystemDirectoryW(directory.data(), MAX_PATH);
  if (length >= MAX_PATH) {
    throw ExceptionCommon(ERROR_INSUFFICIENT_BUFFER, L"GetSystemDirectoryW() gives a path that is too long");
  }
  if (length == 0) ThrowLastError(L"GetSystemDirectoryW()");
  const std::wstring drive = std::wstring(directory.data(), 2) + L"\\";
  std::array<wchar_t, MAX_PATH> volume{};
  if (!CurrentHost().storage().GetVolumeNameForVolumeMountPointW(drive.c_str(), volume.data(), MAX_PATH)) {
    const DWORD error = LastErrorOrGeneric();
    throw ExceptionCommon(
        error, varnel::FormatWide(L"The volume of the system drive %s cannot be told: error %u", {drive, error}));
  }
  return volume.data();
}

}  // namespace TesselCommonClasses
