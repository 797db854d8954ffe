// The iSCSI discovery structures. Declared here on every platform: MinGW's iscsidsc.h does not compile. Text inside a
// structure is WCHAR on Windows; elsewhere the records are wider and are counted by sizeof.
#pragma once

#include <cstddef>

#include "platform/win32.h"

namespace varnel::iscsi {

inline constexpr DWORD kDeviceBusyOnSession = 0xEFFF0040;  // ISDSC_DEVICE_BUSY_ON_SESSION
inline constexpr std::size_t kMaxHbaNameLength = 256;
inline constexpr std::size_t kMaxNameLength = 224;  // 223 characters and the NUL

struct UniqueSessionId {
  ULONGLONG AdapterUnique;
  ULONGLONG AdapterSpecific;
};

struct ConnectionInfo {
  UniqueSessionId ConnectionId;
  PWSTR InitiatorAddress;
  PWSTR TargetAddress;
  USHORT InitiatorSocket;
  USHORT TargetSocket;
  UCHAR CID[2];
};

struct SessionInfo {
  UniqueSessionId SessionId;
  PWSTR InitiatorName;
  PWSTR TargetNodeName;
  PWSTR TargetName;
  UCHAR ISID[6];
  UCHAR TSID[2];
  ULONG ConnectionCount;
  ConnectionInfo* Connections;
};

struct ScsiAddress {
  ULONG Length;
  UCHAR PortNumber;
  UCHAR PathId;
  UCHAR TargetId;
  UCHAR Lun;
};

struct DeviceOnSession {
  WCHAR InitiatorName[kMaxHbaNameLength];
  WCHAR TargetName[kMaxNameLength];
  iscsi::ScsiAddress ScsiAddress;
  GUID DeviceInterfaceType;
  WCHAR DeviceInterfaceName[MAX_PATH];
  WCHAR LegacyName[MAX_PATH];
  STORAGE_DEVICE_NUMBER StorageDeviceNumber;
  DWORD DeviceInstance;
};

}  // namespace varnel::iscsi
