// Disks, volumes and mount points of the current host, as the commands show them.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "platform/tessel/TesselCommonClasses.h"
#include "varnelctl/console/warning.h"

namespace varnelctl {

/// Where a volume lies.
struct VolumeLocation {
  std::wstring serialNumber;        ///< of its only disk; empty when that has none or cannot be told
  std::vector<DWORD> severalDisks;  ///< the numbers of its disks where there are more than one
  std::wstring mountPoint;          ///< its first one; only of a volume that RememberAll met
};

/// Where volumes lie. Each is looked up once, by its unique name in any case.
class VolumeLocations {
 public:
  /// The enumerator is borrowed.
  explicit VolumeLocations(TesselCommonClasses::DiskAndVolumeEnumerator& enumerator) : enumerator_(enumerator) {}
  /// Looks up every volume whose disk has a serial number, before something changes them.
  void RememberAll();
  const VolumeLocation& Of(const std::wstring& volume);
  /// As people know the volumes that RememberAll met and that the text (UTF-8) names: "VOLUME is E:\ on disk "A", ...".
  std::string Named(std::string_view text) const;

 private:
  TesselCommonClasses::DiskAndVolumeEnumerator& enumerator_;
  std::unordered_map<std::wstring, VolumeLocation> known_;
};

/// "1, 2"
std::string NumberList(const std::vector<DWORD>& disks);

struct VolumeView {
  std::wstring name;
  std::vector<std::wstring> mountPoints;
  std::vector<DWORD> severalDisks{};  ///< the numbers of its disks where there are more than one
};

struct DiskView {
  TesselCommonClasses::WindowsDiskDevice device;
  bool system = false;  ///< holds the system directory
  std::vector<VolumeView> volumes;
};

struct StorageView {
  std::vector<DiskView> disks;  ///< by number
  std::vector<VolumeView> volumesOnSeveralDisks;
  std::vector<VolumeView> volumesWithoutDisk;
  std::vector<Warning> warnings;  ///< what could not be read
};

/// The disks that the disk management lists, those without volumes among them. Throws ExceptionCommon when it cannot be
/// asked.
std::vector<TesselCommonClasses::WindowsDiskDevice> ManagedDisks();

/// Disks that hold volumes, and those that only the disk management knows. What cannot be read is left empty with a
/// warning; only a failing search for volumes is a failure (CallFailure, ExceptionCommon).
StorageView ReadStorage();

}  // namespace varnelctl
