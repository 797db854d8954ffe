// Windows types, constants and structures under their own names: the SDK's on Windows, varnel's declarations elsewhere.
#pragma once

#ifdef _WIN32
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
// clang-format off
#include <windows.h>
#include <winioctl.h>
#include <winver.h>
#include <winevt.h>
#include <objbase.h>
#include <oleauto.h>
// clang-format on
#ifndef IOCTL_DISK_IS_CLUSTERED
#define IOCTL_DISK_IS_CLUSTERED 0x700F8
#endif
#else
#include "platform/portable/win32.h"
#endif

namespace varnel {

/// The HRESULT of a Win32 error code: 0 and below stay as they are, others become 0x80070000 with their low 16 bits.
constexpr HRESULT HResultFromWin32(DWORD code) {
  return static_cast<HRESULT>(code) <= 0 ? static_cast<HRESULT>(code)
                                         : static_cast<HRESULT>((code & 0xFFFF) | 0x80070000);
}

}  // namespace varnel
