// The disks and volumes that a simulated host sees at this moment, those of its shadow copies included.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "simulator/machine/machine.h"
#include "simulator/machine/model.h"

namespace varnel::simulator {

struct ShadowCopy;

/// A disk of the model, or the disk that a shadow copy was surfaced on.
struct DiskView {
  DWORD number = 0;
  std::wstring serial;
  bool reportsSerial = true;
  std::wstring vendor;
  bool system = false;
  bool clustered = false;
};

/// A volume of the model, or with `copy` the one on a shadow copy's disk.
struct VolumeView {
  const Volume* volume = nullptr;
  const ShadowCopy* copy = nullptr;
  DWORD diskNumber = 0;
  DWORD partition = 0;  // counted from 1
  /// How many characters of the path that was looked up name the volume, without the backslash after them.
  std::size_t prefix = 0;
};

/// The names of the model's volumes and the numbers of its disks, for look-ups that do not walk them. Belongs to one
/// state of the model's disks.
class VolumeIndex {
 public:
  explicit VolumeIndex(const HostModel& model);
  /// The volume of the longest name or mount point that holds `path`, which starts at its `drivePrefix`th character
  /// when it names a drive. Nothing when none does.
  std::optional<VolumeView> Find(std::wstring_view path, std::size_t drivePrefix) const;
  const Disk* FindDisk(DWORD number) const;
  /// By the volume's unique name, case ignored.
  const Disk* FindDiskOfVolume(std::wstring_view name) const;

 private:
  struct Root {
    const Volume* volume;
    DWORD diskNumber;
    DWORD partition;
    bool isName;  // of the volume, which takes no prefix before it
  };
  void Add(std::wstring_view name, const Root& root);

  std::unordered_map<std::wstring, Root> roots_;  // by folded name without a backslash at the end
  std::unordered_map<DWORD, const Disk*> disks_;
};

/// Every disk, by number.
std::vector<DiskView> VisibleDisks(const Machine& machine);
std::optional<DiskView> FindDisk(const Machine& machine, DWORD number);
/// The model's volumes in the order of their disks' numbers.
std::vector<VolumeView> ListVolumes(const Machine& machine);
/// The surfaced copies of the volumes on this disk that have a disk of their own.
std::vector<const ShadowCopy*> CopiesOfDisk(const Machine& machine, std::wstring_view serial);

/// The volume that holds `path`: the longest mount point, of an exposed shadow copy as well, volume name or shadow copy
/// device that is a prefix of it at a component boundary. ASCII case does not matter and '/' is as good as a backslash.
std::optional<VolumeView> FindVolumeOfPath(const Machine& machine, std::wstring_view path);

/// "\\.\PhysicalDriveN"
std::wstring PhysicalDriveName(DWORD number);

}  // namespace varnel::simulator
