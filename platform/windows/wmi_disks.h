// Reading MSFT_Disk instances from the enumeration of a WMI query.
#pragma once

#include "platform/host.h"
// clang-format off
#include <wbemidl.h>
// clang-format on

namespace varnel::windows {

/// The longest that one question to the enumeration waits, and all of them together, in milliseconds: a storage
/// provider that hangs must not hang the request.
inline constexpr LONG kWmiSlice = 1000;
inline constexpr ULONGLONG kWmiPatience = 2 * 60 * 1000;

/// Appends every object as a disk, in the enumeration's order. HRESULT_FROM_WIN32(ERROR_TIMEOUT) when they are not all
/// there after kWmiPatience on `time`'s clock. On failure `disks` is empty.
HRESULT ReadDisks(IEnumWbemClassObject& objects, Time& time, std::vector<WmiDisk>& disks);

}  // namespace varnel::windows
