// What the host agent names a validation by: volumes, while it knows disks.
#pragma once

#include <string>
#include <vector>

#include "platform/ansi.h"
#include "platform/tessel/TesselCommonClasses.h"
#include "text/unicode.h"

namespace varnel::test {

/// The unique names of the volumes on these disks, in the thread's ANSI code page.
inline std::vector<std::string> VolumesOn(TesselCommonClasses::DiskAndVolumeEnumerator& enumerator,
                                          const std::vector<std::wstring>& disks) {
  std::vector<std::string> volumes;
  for (const std::wstring& disk : disks) {
    std::vector<std::wstring> names;
    enumerator.GetUniqueVolumeNamesForDisk(disk, names);
    for (const std::wstring& name : names) volumes.push_back(WideToAnsi(name));
  }
  return volumes;
}

}  // namespace varnel::test
