// The floor: what the calls of a snapshot cost by themselves.
#pragma once

#include <string>
#include <vector>

#include "platform/tessel/TesselCommonClasses.h"

namespace varnel::bench {

/// Takes a snapshot of every component whose files lie on `disks` and completes the backup, on the current host.
/// \param writerIds of the writers that take part; empty: all. Throws std::runtime_error when a call fails.
void TakeBareSnapshot(const std::vector<std::wstring>& writerIds, const std::vector<std::wstring>& disks,
                      TesselCommonClasses::DiskAndVolumeEnumerator& enumerator);

}  // namespace varnel::bench
