// What the machine's volumes and disks tell of themselves, each question asked anew. Warnings go to the log.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/tessel/TesselCommonClasses.h"

namespace TesselCommonClasses {

/// The disks that a volume lies on, each once, that of its first extent first.
struct DisksOfVolume {
  std::vector<DWORD> numbers;
  DWORD error = ERROR_SUCCESS;  ///< why there are none
};

/// A disk, with an empty serial number when it has none or could not be asked.
struct AskedDisk {
  WindowsDiskDevice device;
  DWORD error = ERROR_SUCCESS;  ///< why it could not be asked for its serial number
};

inline std::wstring_view WithoutTrailingBackslash(std::wstring_view name) {
  return name.ends_with(L'\\') ? name.substr(0, name.size() - 1) : name;
}

/// The unique names of all volumes. Throws ExceptionCommon when they cannot be listed.
std::vector<std::wstring> ListVolumes();
/// Empty when the volume has none or they cannot be read. \param volume a unique name with its backslash.
std::wstring FirstMountPoint(const std::wstring& volume);
DisksOfVolume ReadDisksOf(std::wstring_view volume);
AskedDisk ReadDisk(DWORD number);
/// The unique name of the volume of the system directory. Throws ExceptionCommon when it cannot be told.
std::wstring SystemVolume();

}  // namespace TesselCommonClasses
