// Win32 and iSCSI codes that the simulated host answers and platform/win32.h does not name on every platform.
#pragma once

#include "platform/win32.h"

namespace varnel::simulator {

inline constexpr DWORD kErrorInvalidFunction = 1;
inline constexpr DWORD kErrorWriteProtect = 19;
inline constexpr DWORD kErrorWriteFault = 29;
inline constexpr DWORD kErrorDiskFull = 112;
inline constexpr DWORD kErrorBadArguments = 160;
inline constexpr DWORD kErrorLockFailed = 167;
inline constexpr DWORD kErrorFilenameExceedsRange = 206;
inline constexpr DWORD kErrorServiceDisabled = 1058;
inline constexpr DWORD kErrorDeviceNotConnected = 1167;
inline constexpr DWORD kErrorFileCorrupt = 1392;
inline constexpr DWORD kErrorUnsupportedType = 1630;
inline constexpr DWORD kRpcInvalidBound = 1734;
inline constexpr DWORD kErrorNotAReparsePoint = 4390;
inline constexpr DWORD kFileDeviceDisk = 7;  // a kind of device, FILE_DEVICE_DISK
inline constexpr DWORD kIscsiLogoutFailed = 0xEFFF0011;
inline constexpr DWORD kIscsiInvalidSession = 0xEFFF0012;

}  // namespace varnel::simulator
