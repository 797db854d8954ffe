#include "simulator/volumes.h"

#include <algorithm>

#include "simulator/snapshot_service.h"
#include "simulator/text.h"

namespace varnel::simulator {
namespace {

constexpr std::wstring_view kDevicePrefix = L"\\\\?\\GLOBALROOT\\Device\\";

bool IsSeparator(wchar_t c) {
  return c == L'\\' || c == L'/';
}

bool SamePathCharacter(wchar_t a, wchar_t b) {
  return (IsSeparator(a) && IsSeparator(b)) || FoldAscii(a) == FoldAscii(b);
}

std::wstring_view WithoutTrailingBackslash(std::wstring_view text) {
  if (text.ends_with(L'\\')) text.remove_suffix(1);
  return text;
}

// Whether `root` names the start of `path` up to the end of a component.
bool Holds(std::wstring_view root, std::wstring_view path) {
  if (root.empty() || path.size() < root.size()) return false;
  if (!std::equal(root.begin(), root.end(), path.begin(), SamePathCharacter)) return false;
  return path.size() == root.size() || IsSeparator(path[root.size()]);
}

// "\\?\E:\..." and "\\.\E:" name the same place as "E:\...".
std::size_t DrivePrefixLength(std::wstring_view path) {
  const bool prefixed = path.starts_with(L"\\\\?\\") || path.starts_with(L"\\\\.\\");
  return prefixed && path.size() > 5 && path[5] == L':' ? 4 : 0;
}

DiskView ViewOf(const Disk& disk) {
  return {disk.number, disk.serial, disk.reportsSerial, disk.vendor, disk.system, disk.clustered};
}

const Disk* DiskOfVolume(const HostModel& model, std::wstring_view volumeName) {
  for (const Disk& disk : model.disks) {
    for (const Volume& volume : disk.volumes) {
      if (EqualsIgnoringCase(volume.name, volumeName)) return &disk;
    }
  }
  return nullptr;
}

DiskView ViewOf(const Machine& machine, const ShadowCopy& copy) {
  const Disk* original = DiskOfVolume(machine.model, copy.originalVolume);
  return {copy.diskNumber, copy.serial, true, original == nullptr ? L"" : original->vendor, false, false};
}

// The copies that brought a disk of their own.
std::vector<const ShadowCopy*> CopiesWithDisk(const Machine& machine) {
  std::vector<const ShadowCopy*> copies = machine.snapshots->SurfacedCopies();
  std::erase_if(copies, [](const ShadowCopy* copy) { return !copy->ownDisk; });
  return copies;
}

std::optional<VolumeView> FindCopyOfPath(const Machine& machine, std::wstring_view path) {
  if (!StartsWithIgnoringCase(path, kDevicePrefix)) return std::nullopt;
  for (const ShadowCopy* copy : machine.snapshots->SurfacedCopies()) {
    if (Holds(copy->device, path)) return VolumeView{nullptr, copy, copy->diskNumber, 1, copy->device.size()};
  }
  return std::nullopt;
}

// The length of the longest name of `volume` that holds `path`; 0 when none does.
std::size_t LongestName(const Volume& volume, std::wstring_view path) {
  const std::size_t drivePrefix = DrivePrefixLength(path);
  std::size_t longest = 0;
  for (const std::wstring& mountPoint : volume.mountPoints) {
    const std::wstring_view root = WithoutTrailingBackslash(mountPoint);
    if (Holds(root, path.substr(drivePrefix))) longest = std::max(longest, drivePrefix + root.size());
  }
  const std::wstring_view name = WithoutTrailingBackslash(volume.name);
  return Holds(name, path) ? std::max(longest, name.size()) : longest;
}

}  // namespace

std::vector<DiskView> VisibleDisks(const Machine& machine) {
  std::vector<DiskView> disks;
  for (const Disk& disk : machine.model.disks) disks.push_back(ViewOf(disk));
  for (const ShadowCopy* copy : CopiesWithDisk(machine)) disks.push_back(ViewOf(machine, *copy));
  std::stable_sort(disks.begin(), disks.end(),
                   [](const DiskView& a, const DiskView& b) { return a.number < b.number; });
  return disks;
}

std::optional<DiskView> FindDisk(const Machine& machine, DWORD number) {
  for (const Disk& disk : machine.model.disks) {
    if (disk.number == number) return ViewOf(disk);
  }
  for (const ShadowCopy* copy : CopiesWithDisk(machine)) {
    if (copy->diskNumber == number) return ViewOf(machine, *copy);
  }
  return std::nullopt;
}

std::vector<VolumeView> ListVolumes(const Machine& machine) {
  std::vector<VolumeView> volumes;
  for (const Disk& disk : machine.model.disks) {
    DWORD partition = 0;
    for (const Volume& volume : disk.volumes) volumes.push_back({&volume, nullptr, disk.number, ++partition, 0});
  }
  std::stable_sort(volumes.begin(), volumes.end(),
                   [](const VolumeView& a, const VolumeView& b) { return a.diskNumber < b.diskNumber; });
  return volumes;
}

std::vector<const ShadowCopy*> CopiesOfDisk(const Machine& machine, std::wstring_view serial) {
  std::vector<const ShadowCopy*> copies = CopiesWithDisk(machine);
  std::erase_if(copies, [&](const ShadowCopy* copy) { return copy->originalSerial != serial; });
  return copies;
}

std::optional<VolumeView> FindVolumeOfPath(const Machine& machine, std::wstring_view path) {
  std::optional<VolumeView> best = FindCopyOfPath(machine, path);
  for (const Disk& disk : machine.model.disks) {
    DWORD partition = 0;
    for (const Volume& volume : disk.volumes) {
      ++partition;
      const std::size_t length = LongestName(volume, path);
      if (length > (best ? best->prefix : 0)) best = VolumeView{&volume, nullptr, disk.number, partition, length};
    }
  }
  return best;
}

std::wstring PhysicalDriveName(DWORD number) {
  return L"\\\\.\\PhysicalDrive" + std::to_wstring(number);
}

}  // namespace varnel::simulator
