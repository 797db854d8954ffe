#include "simulator/machine/volumes.h"

#include <algorithm>

#include "simulator/vss/snapshot_service.h"
#include "text/ascii_case.h"

namespace varnel::simulator {
namespace {

constexpr std::wstring_view kDevicePrefix = L"\\\\?\\GLOBALROOT\\Device\\";

bool IsSeparator(wchar_t c) {
  return c == L'\\' || c == L'/';
}

std::wstring_view WithoutTrailingBackslash(std::wstring_view text) {
  if (text.ends_with(L'\\')) text.remove_suffix(1);
  return text;
}

// "\\?\E:\..." and "\\.\E:" name the same place as "E:\...".
std::size_t DrivePrefixLength(std::wstring_view path) {
  const bool prefixed = path.starts_with(L"\\\\?\\") || path.starts_with(L"\\\\.\\");
  return prefixed && path.size() > 5 && path[5] == L':' ? 4 : 0;
}

DiskView ViewOf(const Disk& disk) {
  return {disk.number, disk.serial, disk.reportsSerial, disk.vendor, disk.system, disk.clustered};
}

DiskView ViewOf(const Machine& machine, const ShadowCopy& copy) {
  const Disk* original = machine.volumes().FindDiskOfVolume(copy.originalVolume);
  return {copy.diskNumber, copy.serial, true, original == nullptr ? L"" : original->vendor, false, false};
}

// The copies that brought a disk of their own.
std::vector<const ShadowCopy*> CopiesWithDisk(const Machine& machine) {
  std::vector<const ShadowCopy*> copies = machine.snapshots->SurfacedCopies();
  std::erase_if(copies, [](const ShadowCopy* copy) { return !copy->ownDisk; });
  return copies;
}

std::optional<VolumeView> FindCopyOfPath(const Machine& machine, std::wstring_view path) {
  if (!ascii::StartsWithIgnoringCase(path, kDevicePrefix)) return std::nullopt;
  const auto length = static_cast<std::size_t>(
      std::find_if(path.begin() + kDevicePrefix.size(), path.end(), IsSeparator) - path.begin());
  const ShadowCopy* copy = machine.snapshots->CopyOfDevice(path.substr(0, length));
  if (copy == nullptr) return std::nullopt;
  return VolumeView{nullptr, copy, copy->diskNumber, 1, copy->device.size()};
}

// One spelling for all that name the same place.
std::wstring Folded(std::wstring_view path) {
  std::wstring text(path);
  for (wchar_t& c : text) c = IsSeparator(c) ? L'\\' : ascii::ToLower(c);
  return text;
}

// The copy whose mount point, a drive or folder without its backslash, is the longest that holds the path.
std::optional<VolumeView> FindMountedCopy(const Machine& machine, std::wstring_view path) {
  std::optional<VolumeView> found;
  const std::size_t drivePrefix = DrivePrefixLength(path);
  for (const ShadowCopy* copy : machine.snapshots->MountedCopies()) {
    const std::wstring mountPoint = Folded(WithoutTrailingBackslash(copy->exposedName));
    const std::wstring place = Folded(path.substr(drivePrefix)) + L'\\';
    const std::size_t prefix = drivePrefix + mountPoint.size();
    if (!place.starts_with(mountPoint + L'\\') || (found && found->prefix >= prefix)) continue;
    found = VolumeView{nullptr, copy, copy->diskNumber, 1, prefix};
  }
  return found;
}

}  // namespace

VolumeIndex::VolumeIndex(const HostModel& model) {
  for (const Disk& disk : model.disks) {
    disks_.emplace(disk.number, &disk);
    DWORD partition = 0;
    for (const Volume& volume : disk.volumes) {
      ++partition;
      Add(volume.name, {&volume, disk.number, partition, true});
      for (const std::wstring& mountPoint : volume.mountPoints) {
        Add(mountPoint, {&volume, disk.number, partition, false});
      }
    }
  }
}

// The first volume of a name keeps it.
void VolumeIndex::Add(std::wstring_view name, const Root& root) {
  const std::wstring_view key = WithoutTrailingBackslash(name);
  if (!key.empty()) roots_.emplace(Folded(key), root);
}

std::optional<VolumeView> VolumeIndex::Find(std::wstring_view path, std::size_t drivePrefix) const {
  const auto findLongest = [&](std::size_t skipped, bool isName) -> std::optional<VolumeView> {
    std::wstring key = Folded(path.substr(skipped));
    for (;;) {
      const auto root = roots_.find(key);
      if (root != roots_.end() && root->second.isName == isName) {
        const Root& found = root->second;
        return VolumeView{found.volume, nullptr, found.diskNumber, found.partition, skipped + key.size()};
      }
      const std::size_t end = key.rfind(L'\\');
      if (end == key.npos) return std::nullopt;
      key.resize(end);
    }
  };
  const std::optional<VolumeView> byMountPoint = findLongest(drivePrefix, false);
  const std::optional<VolumeView> byName = findLongest(0, true);
  if (!byName || (byMountPoint && byMountPoint->prefix > byName->prefix)) return byMountPoint;
  return byName;
}

const Disk* VolumeIndex::FindDisk(DWORD number) const {
  const auto found = disks_.find(number);
  return found == disks_.end() ? nullptr : found->second;
}

const Disk* VolumeIndex::FindDiskOfVolume(std::wstring_view name) const {
  const auto root = roots_.find(Folded(WithoutTrailingBackslash(name)));
  return root == roots_.end() || !root->second.isName ? nullptr : FindDisk(root->second.diskNumber);
}

std::vector<DiskView> VisibleDisks(const Machine& machine) {
  std::vector<DiskView> disks;
  for (const Disk& disk : machine.model().disks) disks.push_back(ViewOf(disk));
  for (const ShadowCopy* copy : CopiesWithDisk(machine)) disks.push_back(ViewOf(machine, *copy));
  std::stable_sort(disks.begin(), disks.end(),
                   [](const DiskView& a, const DiskView& b) { return a.number < b.number; });
  return disks;
}

std::optional<DiskView> FindDisk(const Machine& machine, DWORD number) {
  if (const Disk* disk = machine.volumes().FindDisk(number)) return ViewOf(*disk);
  const ShadowCopy* copy = machine.snapshots->CopyOnDisk(number);
  return copy == nullptr ? std::nullopt : std::optional(ViewOf(machine, *copy));
}

std::vector<VolumeView> ListVolumes(const Machine& machine) {
  std::vector<VolumeView> volumes;
  for (const Disk& disk : machine.model().disks) {
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
  std::optional<VolumeView> found = FindCopyOfPath(machine, path);
  for (const std::optional<VolumeView>& other :
       {FindMountedCopy(machine, path), machine.volumes().Find(path, DrivePrefixLength(path))}) {
    if (other && other->prefix > (found ? found->prefix : 0)) found = other;
  }
  return found;
}

std::wstring PhysicalDriveName(DWORD number) {
  return L"\\\\.\\PhysicalDrive" + std::to_wstring(number);
}

}  // namespace varnel::simulator
