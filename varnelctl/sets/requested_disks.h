// The disks of a protection set as --disk names them: typing errors are told before anything is asked of the writers.
#pragma once

#include <string>
#include <vector>

#include "platform/tessel/TesselCommonClasses.h"
#include "varnelctl/console/warning.h"

namespace varnelctl {

struct RequestedDisks {
  std::vector<std::wstring> serialNumbers;  ///< as the devices report them
  std::vector<Warning> warnings;            ///< about those that no disk of this host has
};

/// What can be told without the host: an empty serial number, and the same one twice. Throws UsageError.
void CheckDiskArguments(const std::vector<std::string>& arguments);

/// The serial numbers that `arguments` (UTF-8) stand for. One that no disk of this host has is read as a list where it
/// can be one: "A,B", "A;B", "A B". The disk management is asked only for disks that the enumerator does not have: a
/// disk without a volume of its own is a warning.
/// \param enumerator of this host. \param acceptUnknown a serial number that no disk has is a warning too, but for one
/// that differs from a disk's in case or blanks alone. Throws UsageError for any other that no disk has and for a disk
/// that is named twice; what the enumerator throws.
RequestedDisks ReadRequestedDisks(const std::vector<std::string>& arguments,
                                  TesselCommonClasses::DiskAndVolumeEnumerator& enumerator, bool acceptUnknown);

}  // namespace varnelctl
