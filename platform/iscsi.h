// The iSCSI discovery structures. Declared here on every platform: MinGW's iscsidsc.h does not compile. Text inside a
// structure is WCHAR on Windows; elsewhere the records are wider and are counted by sizeof.
#pragma once

#include <cstddef>

#include "platform/win32.h"

/// The structures of iscsidsc.h, by its names without their prefix; members have its names.
namespace varnel::iscsi {

inline constexpr DWORD kDeviceBusyOnSession = 0xEFFF0040;  ///< ISDSC_DEVICE_BUSY_ON_SESSION
/// MAX_ISCSI_HBANAME_LEN.
inline constexpr std::size_t kMaxHbaNameLength = 256;
inline constexpr std::size_t kMaxNameLength = 224;  ///< 223 characters and the NUL

/// A session or connection.
struct UniqueSessionId {
  /// As the member of the initiator's structure with this name.
  ///@{
  ULONGLONG AdapterUnique;
  ULONGLONG AdapterSpecific;
  ///@}
};

/// A connection of a session.
struct ConnectionInfo {
  /// As the member of the initiator's structure with this name.
  ///@{
  UniqueSessionId ConnectionId;
  PWSTR InitiatorAddress;
  PWSTR TargetAddress;
  USHORT InitiatorSocket;
  USHORT TargetSocket;
  UCHAR CID[2];
  ///@}
};

/// A session.
struct SessionInfo {
  /// As the member of the initiator's structure with this name.
  ///@{
  UniqueSessionId SessionId;
  PWSTR InitiatorName;
  PWSTR TargetNodeName;
  PWSTR TargetName;
  UCHAR ISID[6];
  UCHAR TSID[2];
  ULONG ConnectionCount;
  ConnectionInfo* Connections;
  ///@}
};

/// Where a device is.
struct ScsiAddress {
  /// As the member of the initiator's structure with this name.
  ///@{
  ULONG Length;
  UCHAR PortNumber;
  UCHAR PathId;
  UCHAR TargetId;
  UCHAR Lun;
  ///@}
};

/// A device that a session shows.
struct DeviceOnSession {
  /// As the member of the initiator's structure with this name.
  ///@{
  WCHAR InitiatorName[kMaxHbaNameLength];
  WCHAR TargetName[kMaxNameLength];
  iscsi::ScsiAddress ScsiAddress;
  GUID DeviceInterfaceType;
  WCHAR DeviceInterfaceName[MAX_PATH];
  WCHAR LegacyName[MAX_PATH];
  STORAGE_DEVICE_NUMBER StorageDeviceNumber;
  DWORD DeviceInstance;
  ///@}
};

}  // namespace varnel::iscsi
