#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <map>
#include <optional>
#include <set>
#include <span>

#include "platform/host.h"
#include "platform/owners.h"
#include "platform/storage_descriptor.h"
#include "text/ascii_case.h"
#include "text/guid.h"
#include "text/unicode.h"
#include "varnelctl/capture/questions.h"
#include "varnelctl/console/text.h"
#include "varnelctl/explanation/failure.h"
#include "varnelctl/sets/iscsi_sessions.h"

namespace varnelctl::capture {
namespace {

using varnel::CurrentHost;
using varnel::FileHandle;
using varnel::WideToUtf8Lossy;
using varnel::simulator::Disk;
using varnel::simulator::Volume;

// The disks by their numbers, as they become known.
using Disks = std::map<DWORD, Disk>;

constexpr std::wstring_view kVolumeStart = L"\\\\?\\Volume{";
constexpr std::size_t kVolumeLength = 49;  // of a whole unique name

FileHandle OpenDevice(const std::wstring& name) {
  return FileHandle(CurrentHost().storage().CreateFileW(name.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                                        OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
}

std::vector<std::wstring> AskVolumeNames(CapturedHost& host) {
  std::vector<std::wstring> names;
  std::array<wchar_t, MAX_PATH> name{};
  const varnel::VolumeSearch search(CurrentHost().storage().FindFirstVolumeW(name.data(), MAX_PATH));
  if (!search) {
    if (CurrentHost().GetLastError() != ERROR_NO_MORE_FILES) NoteLastError(host, "FindFirstVolumeW", "");
    return names;
  }
  do {
    names.emplace_back(name.data());
  } while (CurrentHost().storage().FindNextVolumeW(search.Get(), name.data(), MAX_PATH));
  if (CurrentHost().GetLastError() != ERROR_NO_MORE_FILES) NoteLastError(host, "FindNextVolumeW", "");
  return names;
}

bool IsMountPoint(std::wstring_view path) {
  const wchar_t letter = path.empty() ? L'\0' : varnel::ascii::ToLower(path[0]);
  return path.size() >= 3 && letter >= L'a' && letter <= L'z' && path.substr(1, 2) == L":\\" && path.ends_with(L'\\');
}

// Of a volume that does not list them.
void TryDriveLetters(Volume& volume) {
  for (wchar_t letter = L'A'; letter <= L'Z'; ++letter) {
    const std::wstring root = std::wstring(1, letter) + L":\\";
    std::array<wchar_t, MAX_PATH> name{};
    if (CurrentHost().storage().GetVolumeNameForVolumeMountPointW(root.c_str(), name.data(), MAX_PATH) &&
        varnel::ascii::EqualIgnoringCase(name.data(), volume.name)) {
      volume.mountPoints.push_back(root);
    }
  }
}

void AskMountPoints(CapturedHost& host, Volume& volume) {
  std::wstring list(MAX_PATH, L'\0');
  DWORD needed = 0;
  varnel::Storage& storage = CurrentHost().storage();
  while (!storage.GetVolumePathNamesForVolumeNameW(volume.name.c_str(), list.data(),
                                                   static_cast<DWORD>(list.size()) - 2, &needed)) {
    if (CurrentHost().GetLastError() != ERROR_MORE_DATA || needed + std::size_t{2} <= list.size()) {
      NoteLastError(host, "GetVolumePathNamesForVolumeNameW", WideToUtf8Lossy(volume.name));
      return TryDriveLetters(volume);
    }
    list.assign(needed + std::size_t{2}, L'\0');
  }
  for (const wchar_t* path = list.c_str(); *path != L'\0'; path += volume.mountPoints.back().size() + 1) {
    volume.mountPoints.emplace_back(path);
  }
  std::erase_if(volume.mountPoints, [&](const std::wstring& path) {
    if (IsMountPoint(path)) return false;
    NoteLeftOut(host, "mount point " + WideToUtf8Lossy(path) + " of " + WideToUtf8Lossy(volume.name) + " left out");
    return true;
  });
}

void AskWhetherShared(Volume& volume) {
  const auto isShared = [](const std::wstring& name) {
    return CurrentHost().cluster().ClusterIsPathOnSharedVolume(name.c_str()) != FALSE;
  };
  volume.csv = isShared(volume.name) || std::any_of(volume.mountPoints.begin(), volume.mountPoints.end(), isShared);
}

void AskRoom(CapturedHost& host, Volume& volume) {
  ULARGE_INTEGER freeToCaller{};
  ULARGE_INTEGER size{};
  ULARGE_INTEGER free{};
  if (!CurrentHost().space().GetDiskFreeSpaceExW(volume.name.c_str(), &freeToCaller, &size, &free)) {
    return NoteLastError(host, "GetDiskFreeSpaceExW", WideToUtf8Lossy(volume.name));
  }
  volume.sizeMegabytes = static_cast<DWORD>(size.QuadPart >> 20);
  volume.freeMegabytes = std::min(static_cast<DWORD>(free.QuadPart >> 20), volume.sizeMegabytes);
}

// The numbers of the disks in an answer, each once and in its order.
std::vector<DWORD> NumbersIn(std::span<const BYTE> answer) {
  constexpr std::size_t kStart = offsetof(VOLUME_DISK_EXTENTS, Extents);
  std::vector<DWORD> numbers;
  for (std::size_t at = kStart; at + sizeof(DISK_EXTENT) <= answer.size(); at += sizeof(DISK_EXTENT)) {
    DISK_EXTENT extent{};
    std::memcpy(&extent, answer.data() + at, sizeof extent);
    if (std::find(numbers.begin(), numbers.end(), extent.DiskNumber) == numbers.end()) {
      numbers.push_back(extent.DiskNumber);
    }
  }
  return numbers;
}

// None where they are not told; nothing at all for a volume that lies on no disk, as that of a DVD drive.
std::optional<std::vector<DWORD>> AskDisksOf(CapturedHost& host, const std::wstring& volume) {
  constexpr std::size_t kMostBytes = 1 << 18;
  const FileHandle device = OpenDevice(volume.substr(0, volume.size() - 1));
  if (!device) {
    NoteLastError(host, "CreateFileW", WideToUtf8Lossy(volume));
    return std::vector<DWORD>();
  }
  for (std::size_t room = 4096;; room *= 8) {
    std::vector<BYTE> answer(room);
    DWORD returned = 0;
    if (CurrentHost().storage().DeviceIoControl(device.Get(), IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS, nullptr, 0,
                                                answer.data(), static_cast<DWORD>(room), &returned, nullptr)) {
      return NumbersIn(std::span(answer).first(std::min<std::size_t>(returned, room)));
    }
    const DWORD error = CurrentHost().GetLastError();
    if (error == ERROR_INVALID_FUNCTION) return std::nullopt;
    if (error != ERROR_MORE_DATA || room > kMostBytes) {
      NoteLastError(host, "DeviceIoControl(IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS)", WideToUtf8Lossy(volume));
      return std::vector<DWORD>();
    }
  }
}

void AskVolumes(CapturedHost& host, Disks& disks) {
  for (const std::wstring& name : AskVolumeNames(host)) {
    Volume volume{name, {}, false, {}};
    if (name.size() != kVolumeLength || !name.starts_with(kVolumeStart)) {
      NoteLeftOut(host, "volume " + WideToUtf8Lossy(name) + " left out: it has no unique name");
      continue;
    }
    const std::optional<std::vector<DWORD>> numbers = AskDisksOf(host, name);
    if (!numbers) continue;
    if (numbers->empty()) {
      NoteLeftOut(host, "volume " + WideToUtf8Lossy(name) + " left out: its disk is not known");
      continue;
    }
    AskMountPoints(host, volume);
    AskWhetherShared(volume);
    AskRoom(host, volume);
    volume.otherDisks.assign(numbers->begin() + 1, numbers->end());
    for (const DWORD other : volume.otherDisks) disks[other].number = other;
    Disk& disk = disks[numbers->front()];
    disk.number = numbers->front();
    disk.volumes.push_back(std::move(volume));
  }
}

// What the disk management says of the disks.
void AskManagement(CapturedHost& host, Disks& disks) {
  std::vector<varnel::WmiDisk> told;
  const HRESULT result = CurrentHost().wmi().QueryDisks(told);
  if (FAILED(result)) return NoteFailure(host, "IWbemServices::ExecQuery", "MSFT_Disk", result);
  for (varnel::WmiDisk& one : told) {
    if (disks.contains(one.number)) continue;
    Disk& disk = disks[one.number];
    disk.number = one.number;
    disk.serial = std::move(one.serialNumber);
    disk.vendor = std::move(one.manufacturer);
    disk.system = one.isSystem;
    disk.clustered = one.isClustered;
  }
}

// What the device says of itself, which is what requestors go by.
void AskDevice(CapturedHost& host, Disk& disk) {
  const std::wstring name = L"\\\\.\\PhysicalDrive" + std::to_wstring(disk.number);
  const FileHandle device = OpenDevice(name);
  if (!device) return NoteLastError(host, "CreateFileW", WideToUtf8Lossy(name));
  STORAGE_PROPERTY_QUERY query{};
  query.PropertyId = StorageDeviceProperty;
  query.QueryType = PropertyStandardQuery;
  std::array<BYTE, 4096> descriptor{};
  DWORD returned = 0;
  varnel::Storage& storage = CurrentHost().storage();
  if (storage.DeviceIoControl(device.Get(), IOCTL_STORAGE_QUERY_PROPERTY, &query, sizeof query, descriptor.data(),
                              static_cast<DWORD>(descriptor.size()), &returned, nullptr)) {
    const auto answer = std::span<const BYTE>(descriptor).first(std::min<std::size_t>(returned, descriptor.size()));
    const DWORD offset = varnel::SerialNumberOffsetIn(answer).value_or(0);
    disk.serial = offset == 0 ? L"" : varnel::SerialNumberAt(offset, answer).value_or(L"");
  } else {
    NoteLastError(host, "DeviceIoControl(IOCTL_STORAGE_QUERY_PROPERTY)", WideToUtf8Lossy(name));
  }
  DWORD clustered = 0;
  if (storage.DeviceIoControl(device.Get(), IOCTL_DISK_IS_CLUSTERED, nullptr, 0, &clustered, sizeof clustered,
                              &returned, nullptr)) {
    disk.clustered = clustered != 0;
  } else if (const DWORD error = CurrentHost().GetLastError();
             error != ERROR_INVALID_FUNCTION && error != ERROR_NOT_SUPPORTED) {
    NoteError(host, "DeviceIoControl(IOCTL_DISK_IS_CLUSTERED)", WideToUtf8Lossy(name), error);
  }
}

void AskDatabases(CapturedHost& host) {
  std::set<std::string> reasons;
  for (const Disk& disk : host.model.disks) {
    if (disk.serial.empty()) continue;
    std::string databases;
    std::string reason;
    if (CurrentHost().metadata().FindDatabasesToQuiesce(WideToUtf8Lossy(disk.serial), databases, reason)) {
      host.model.databases[disk.serial] = varnel::Utf8ToWideLossy(databases);
    } else if (reason.find(WideToUtf8Lossy(disk.serial)) == reason.npos && reasons.insert(reason).second) {
      // What is said of one disk is its answer.
      NoteLeftOut(host, "the array's metadata service did not tell the databases: " + OneLine(reason));
    }
  }
}

const Disk* FindDisk(const CapturedHost& host, const std::optional<DWORD>& number) {
  const auto& disks = host.model.disks;
  const auto found = std::find_if(disks.begin(), disks.end(), [&](const Disk& disk) { return disk.number == number; });
  return found == disks.end() ? nullptr : &*found;
}

}  // namespace

void AskStorage(CapturedHost& host) {
  Disks disks;
  AskManagement(host, disks);
  AskVolumes(host, disks);
  for (auto& [number, disk] : disks) {
    AskDevice(host, disk);
    disk.reportsSerial = !disk.serial.empty();
    host.model.disks.push_back(std::move(disk));
  }
  AskDatabases(host);
}

void AskSessions(CapturedHost& host) {
  std::vector<OpenSession> sessions;
  try {
    sessions = ListSessions([&](const OpenSession& session, DWORD error) {
      NoteError(host, "GetDevicesForIScsiSessionW", WideToUtf8Lossy(session.targetName), error);
    });
  } catch (const CallFailure& failure) {
    return NoteFailure(host, failure.what(), "", failure.hresult());
  }
  for (const OpenSession& open : sessions) {
    varnel::simulator::IscsiSession session{open.targetName, {}};
    for (const SessionDevice& device : open.devices) {
      const Disk* disk = FindDisk(host, device.disk);
      if (disk != nullptr && !disk->serial.empty()) {
        session.devices.push_back({disk->serial});
      } else {
        NoteLeftOut(host, "device " + WideToUtf8Lossy(device.name) + " of the iSCSI session to " +
                              WideToUtf8Lossy(open.targetName) + " left out: it is no disk with a serial number");
      }
    }
    host.model.iscsiSessions.push_back(std::move(session));
  }
}

}  // namespace varnelctl::capture
