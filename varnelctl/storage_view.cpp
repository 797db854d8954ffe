#include "varnelctl/storage_view.h"

#include <algorithm>
#include <array>
#include <map>
#include <optional>

#include "platform/host.h"
#include "platform/owners.h"
#include "text/ascii_case.h"
#include "text/format.h"
#include "text/unicode.h"
#include "varnelctl/console/text.h"
#include "varnelctl/explanation/failure.h"

namespace varnelctl {
namespace {

using TesselCommonClasses::DiskAndVolumeEnumerator;
using TesselCommonClasses::WindowsDiskDevice;
using varnel::CurrentHost;

std::vector<std::wstring> ListVolumes() {
  varnel::Storage& storage = CurrentHost().storage();
  std::vector<std::wstring> names;
  std::array<wchar_t, MAX_PATH> name{};
  const varnel::VolumeSearch search(storage.FindFirstVolumeW(name.data(), MAX_PATH));
  if (!search) {
    if (CurrentHost().GetLastError() == ERROR_NO_MORE_FILES) return names;
    ThrowLastError("FindFirstVolumeW");
  }
  do {
    names.emplace_back(name.data());
  } while (storage.FindNextVolumeW(search.Get(), name.data(), MAX_PATH));
  if (CurrentHost().GetLastError() != ERROR_NO_MORE_FILES) ThrowLastError("FindNextVolumeW");
  return names;
}

std::vector<std::wstring> SplitList(const wchar_t* list) {
  std::vector<std::wstring> entries;
  while (*list != L'\0') {
    entries.emplace_back(list);
    list += entries.back().size() + 1;
  }
  return entries;
}

std::vector<std::wstring> MountPointsOf(const std::wstring& volume, std::vector<Warning>& warnings) {
  std::wstring list(MAX_PATH, L'\0');
  for (;;) {
    DWORD needed = 0;
    const auto room = static_cast<DWORD>(list.size());
    // Two characters less than there are, so that a list without its end still ends.
    if (CurrentHost().storage().GetVolumePathNamesForVolumeNameW(volume.c_str(), list.data(), room - 2, &needed)) {
      return SplitList(list.c_str());
    }
    const DWORD error = CurrentHost().GetLastError();
    if (error != ERROR_MORE_DATA || needed <= room - 2) {
      warnings.push_back({"mountPointsUnknown", varnel::FormatNarrow("the mount points of %s cannot be read (error %u)",
                                                                     {std::string_view(Printable(volume)), error})});
      return {};
    }
    list.assign(needed + std::size_t{2}, L'\0');
  }
}

std::vector<DWORD> SeveralDisksOf(const std::wstring& volume, DiskAndVolumeEnumerator& enumerator) {
  std::vector<DWORD> disks = enumerator.GetDiskNumbersOfVolume(volume);
  return disks.size() > 1 ? disks : std::vector<DWORD>();
}

std::optional<DWORD> SystemDiskNumber(DiskAndVolumeEnumerator& enumerator) {
  std::array<wchar_t, MAX_PATH> directory{};
  const UINT length = CurrentHost().system().GetSystemDirectoryW(directory.data(), MAX_PATH);
  if (length == 0 || length >= MAX_PATH) return std::nullopt;
  std::wstring volume;
  std::wstring mountPoint;
  if (!TesselCommonClasses::UtilityClass::GetUniqueVolumeNameForPathNoThrow(directory.data(), volume, mountPoint)) {
    return std::nullopt;
  }
  WindowsDiskDevice device;
  enumerator.GetDiskDeviceForUniqueVolume(volume, device);
  return device.diskName.empty() ? std::nullopt : std::optional(device.diskNumber);
}

std::vector<WindowsDiskDevice> ManagedDisksOrWarning(std::vector<Warning>& warnings) {
  try {
    return ManagedDisks();
  } catch (const TesselCommonClasses::ExceptionCommon& error) {
    warnings.push_back({"managedDisksUnknown", OneLine(error.what()) + "; disks without volumes are not shown"});
    return {};
  }
}

}  // namespace

void VolumeLocations::RememberAll() {
  for (const WindowsDiskDevice& disk : enumerator_.GetDisks()) {
    if (disk.serialNumber.empty()) continue;
    std::vector<TesselCommonClasses::WindowsVolumeInfo> volumes;
    enumerator_.GetVolumesForGivenDisk(disk.serialNumber, volumes);
    for (auto& volume : volumes) {
      Of(volume.uniqueVolumeName);  // the disk may be another one whose serial number differs in case alone
      known_[varnel::ascii::ToLower(volume.uniqueVolumeName)].mountPoint = std::move(volume.mountPoint);
    }
  }
}

const VolumeLocation& VolumeLocations::Of(const std::wstring& volume) {
  std::wstring key = varnel::ascii::ToLower(volume);
  const auto known = known_.find(key);
  if (known != known_.end()) return known->second;
  VolumeLocation location;
  try {
    WindowsDiskDevice device;
    enumerator_.GetDiskDeviceForUniqueVolume(volume, device);
    location.serialNumber = device.serialNumber;
    location.severalDisks = SeveralDisksOf(volume, enumerator_);
  } catch (const TesselCommonClasses::ExceptionCommon&) {
    // No volume's disk can be told on this host.
  }
  return known_.emplace(std::move(key), std::move(location)).first->second;
}

std::string VolumeLocations::Named(std::string_view text) const {
  const std::wstring wide = varnel::Utf8ToWideLossy(text);
  const std::wstring lower = varnel::ascii::ToLower(wide);
  std::map<std::size_t, std::string> byPosition;
  for (const auto& [volume, location] : known_) {
    const std::size_t at = lower.find(volume);
    if (at == lower.npos || location.mountPoint.empty()) continue;
    byPosition[at] = Printable(wide.substr(at, volume.size())) + " is " + Printable(location.mountPoint) + " on disk " +
                     Quoted(location.serialNumber);
  }
  std::string named;
  for (const auto& [at, volume] : byPosition) named += (named.empty() ? "" : ", ") + volume;
  return named;
}

std::string NumberList(const std::vector<DWORD>& disks) {
  std::string list;
  for (const DWORD disk : disks) list += (list.empty() ? "" : ", ") + std::to_string(disk);
  return list;
}

std::vector<WindowsDiskDevice> ManagedDisks() {
  return TesselCommonClasses::WMIDiskHelper().GetDiskDevices2k8(false);
}

StorageView ReadStorage() {
  StorageView view;
  DiskAndVolumeEnumerator enumerator;
  std::map<DWORD, DiskView> disks;
  for (const std::wstring& name : ListVolumes()) {
    VolumeView volume{name, MountPointsOf(name, view.warnings)};
    WindowsDiskDevice device;
    enumerator.GetDiskDeviceForUniqueVolume(volume.name, device);
    if (device.diskName.empty()) {
      volume.severalDisks = SeveralDisksOf(volume.name, enumerator);
      auto& list = volume.severalDisks.empty() ? view.volumesWithoutDisk : view.volumesOnSeveralDisks;
      list.push_back(std::move(volume));
      continue;
    }
    DiskView& disk = disks[device.diskNumber];
    disk.device = std::move(device);
    disk.volumes.push_back(std::move(volume));
  }
  for (WindowsDiskDevice& device : ManagedDisksOrWarning(view.warnings)) {
    const DWORD number = device.diskNumber;
    disks.try_emplace(number, DiskView{std::move(device), false, {}});
  }
  const std::optional<DWORD> systemDisk = SystemDiskNumber(enumerator);
  if (!systemDisk) view.warnings.push_back({"systemDiskUnknown", "the disk of the system directory cannot be told"});
  for (auto& [number, disk] : disks) {
    disk.system = number == systemDisk;
    view.disks.push_back(std::move(disk));
  }
  return view;
}

}  // namespace varnelctl
