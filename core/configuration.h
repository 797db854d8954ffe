// The module-wide constants, the applications' and the host agent's among them.
#pragma once

#include "platform/win32.h"

namespace varnel {

inline constexpr char kAllDatabasesList[] = "ALL_DB";
inline constexpr wchar_t kAllDatabases[] = L"ALL_DB";
inline constexpr wchar_t kCatalogModule[] = L"varnel";
inline constexpr wchar_t kUnknown[] = L"UNKNOWN";

inline constexpr wchar_t kExchangeWriterId[] = L"{76fe1ac4-15f7-4bcd-987e-8e1acb462fb7}";
inline constexpr wchar_t kExchangeInstallKey[] = L"SOFTWARE\\Microsoft\\ExchangeServer";
inline constexpr wchar_t kExchangeSetupKey[] = L"Setup";
inline constexpr wchar_t kExchangeInstallValue[] = L"MsiInstallPath";
inline constexpr wchar_t kDatabaseChecker[] = L"eseutil.exe";
inline constexpr wchar_t kDatabaseCheckerSwitches[] = L"/k /i";
inline constexpr wchar_t kLogCheckerSwitch[] = L"/k";
inline constexpr wchar_t kHyperVWriterId[] = L"{66841cd4-6ded-4f4b-8f17-fd23f8ddc3de}";
inline constexpr wchar_t kClusterSharedVolumeWriterId[] = L"{1072ae1c-e5a7-4ea1-9e4a-6f7964656570}";
inline constexpr wchar_t kSqlServerWriterId[] = L"{a65faa63-5ea8-4ebc-9dbd-a0c4db26912a}";
inline constexpr wchar_t kMsdeWriterId[] = L"{f8544ac1-0611-4fa5-b04b-f7ee00b03277}";
/// The writers of SQL Server. The second and the third are the same identifier: the list has three entries.
inline constexpr const wchar_t* kSqlWriterIds[] = {kMsdeWriterId, kSqlServerWriterId, kSqlServerWriterId};

/// Test points: bits of the constructor's mask. All others are ignored.
inline constexpr DWORD kTestPointFailDoSnapshotSet = 0x1;
inline constexpr DWORD kTestPointFailFileVerification = 0x2;

/// Registry names of the host agent. The library reads none of them; TestPointSetting reaches it as the constructor's
/// argument.
namespace agent_registry {
inline constexpr wchar_t kRoot[] = L"SOFTWARE\\Tessel Storage";
inline constexpr wchar_t kConfiguration[] = L"SOFTWARE\\Tessel Storage\\Configuration";
inline constexpr wchar_t kTestPointSetting[] = L"TestPointSetting";
inline constexpr wchar_t kDisableTransportableSnapshots[] = L"DisableTransportableSnapshots";
inline constexpr wchar_t kNoAdditionalVolumeInSnapshot[] = L"NoAdditionalVolumeInSnapshot";
inline constexpr wchar_t kCleanPhantomDevices[] = L"CleanPhantomDevices";
inline constexpr wchar_t kCleanPhantomDevicesInterval[] = L"CleanPhantomDevicesInterval";
inline constexpr wchar_t kCleanPhantomDevicesThreshold[] = L"CleanPhantomDevicesThreshold";
inline constexpr wchar_t kMaxArrayVerSupported[] = L"MaxArrayVerSupported";
inline constexpr wchar_t kMinArrayVerSupported[] = L"MinArrayVerSupported";
inline constexpr wchar_t kExcludedIps[] = L"ExcludedIps";
inline constexpr wchar_t kIncludedIps[] = L"IncludedIps";
inline constexpr wchar_t kGroupMgmtIps[] = L"GroupMgmtIps";
inline constexpr wchar_t kGroupMgmtIp[] = L"GroupMgmtIP";
inline constexpr wchar_t kIscsiGlobalDigestPolicy[] = L"ISCSIGlobalDigestPolicy";
inline constexpr wchar_t kDisableAutomaticGroupDiscovery[] = L"DisableAutomaticGroupDiscovery";
}  // namespace agent_registry

}  // namespace varnel
