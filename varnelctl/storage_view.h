// Disks, volumes and mount points of the current host, as the commands show them.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "platform/tessel/TesselCommonClasses.h"

namespace varnelctl {

/// Serial numbers of the disks under volumes. Each volume is looked up once.
class VolumeSerials {
 public:
  /// The enumerator is borrowed.
  explicit VolumeSerials(TesselCommonClasses::DiskAndVolumeEnumerator& enumerator) : enumerator_(enumerator) {}
  /// Empty when it cannot be told.
  const std::wstring& Of(const std::wstring& volume);

 private:
  TesselCommonClasses::DiskAndVolumeEnumerator& enumerator_;
  std::unordered_map<std::wstring, std::wstring> known_;
};

struct VolumeView {
  std::wstring name;
  std::vector<std::wstring> mountPoints;
};

struct DiskView {
  TesselCommonClasses::WindowsDiskDevice device;
  bool system = false;  ///< holds the system directory
  std::vector<VolumeView> volumes;
};

struct StorageView {
  std::vector<DiskView> disks;  ///< by number
  std::vector<VolumeView> volumesWithoutDisk;
  std::vector<std::string> warnings;  ///< what could not be read
};

/// Disks that hold volumes, and those that only the disk management knows. What cannot be read is left empty with a
/// warning; only a failing search for volumes is a failure (CallFailure, ExceptionCommon).
StorageView ReadStorage();

}  // namespace varnelctl
