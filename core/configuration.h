// The module-wide constants, the applications' and the host agent's among them.
#pragma once

#include "platform/win32.h"

/// What goes with the interface: constants, owners of platform resources, the log, texts.
namespace varnel {

/// What getSuccesfulDBList gives when every database is to be quiesced.
inline constexpr char kAllDatabasesList[] = "ALL_DB";
/// The same as wide text.
inline constexpr wchar_t kAllDatabases[] = L"ALL_DB";
/// The module whose string table holds the message catalog: varnel.dll.
inline constexpr wchar_t kCatalogModule[] = L"varnel";
/// What stands for an application object that cannot be told.
inline constexpr wchar_t kUnknown[] = L"UNKNOWN";

/// The class of the Exchange writer.
inline constexpr wchar_t kExchangeWriterId[] = L"{76fe1ac4-15f7-4bcd-987e-8e1acb462fb7}";
/// Below it, one key per installed version of Exchange.
inline constexpr wchar_t kExchangeInstallKey[] = L"SOFTWARE\\Microsoft\\ExchangeServer";
/// The key of a version that names its folder.
inline constexpr wchar_t kExchangeSetupKey[] = L"Setup";
/// The value there that does.
inline constexpr wchar_t kExchangeInstallValue[] = L"MsiInstallPath";
/// The program that verifies Exchange databases and logs, found on the PATH.
inline constexpr wchar_t kDatabaseChecker[] = L"eseutil.exe";
/// How it is asked to verify a database.
inline constexpr wchar_t kDatabaseCheckerSwitches[] = L"/k /i";
/// How it is asked to verify logs.
inline constexpr wchar_t kLogCheckerSwitch[] = L"/k";
/// The class of the Hyper-V writer.
inline constexpr wchar_t kHyperVWriterId[] = L"{66841cd4-6ded-4f4b-8f17-fd23f8ddc3de}";
/// The class of the writer of cluster shared volumes.
inline constexpr wchar_t kClusterSharedVolumeWriterId[] = L"{1072ae1c-e5a7-4ea1-9e4a-6f7964656570}";
/// The class of the writer of SQL Server.
inline constexpr wchar_t kSqlServerWriterId[] = L"{a65faa63-5ea8-4ebc-9dbd-a0c4db26912a}";
/// The class of the writer of its desktop edition.
inline constexpr wchar_t kMsdeWriterId[] = L"{f8544ac1-0611-4fa5-b04b-f7ee00b03277}";
/// The writers of SQL Server. The second and the third are the same identifier: the list has three entries.
inline constexpr const wchar_t* kSqlWriterIds[] = {kMsdeWriterId, kSqlServerWriterId, kSqlServerWriterId};

/// Test point, a bit of the constructor's mask (all others are ignored): the snapshot fails after it was taken.
inline constexpr DWORD kTestPointFailDoSnapshotSet = 0x1;
/// Test point: the verification of Exchange files fails.
inline constexpr DWORD kTestPointFailFileVerification = 0x2;

/// Registry names of the host agent. The library reads none of them; TestPointSetting reaches it as the constructor's
/// argument.
namespace agent_registry {
/// The maker's key.
inline constexpr wchar_t kRoot[] = L"SOFTWARE\\Tessel Storage";
/// The host agent's key, which has the values below.
inline constexpr wchar_t kConfiguration[] = L"SOFTWARE\\Tessel Storage\\Configuration";
/// The mask of test points.
inline constexpr wchar_t kTestPointSetting[] = L"TestPointSetting";
/// No set may leave this host.
inline constexpr wchar_t kDisableTransportableSnapshots[] = L"DisableTransportableSnapshots";
/// A set with volumes that the application does not use is refused.
inline constexpr wchar_t kNoAdditionalVolumeInSnapshot[] = L"NoAdditionalVolumeInSnapshot";
/// Devices of removed disks are removed from the device tree.
inline constexpr wchar_t kCleanPhantomDevices[] = L"CleanPhantomDevices";
/// How often that is done.
inline constexpr wchar_t kCleanPhantomDevicesInterval[] = L"CleanPhantomDevicesInterval";
/// From how many devices on.
inline constexpr wchar_t kCleanPhantomDevicesThreshold[] = L"CleanPhantomDevicesThreshold";
/// The newest firmware of arrays that the agent works with.
inline constexpr wchar_t kMaxArrayVerSupported[] = L"MaxArrayVerSupported";
/// The oldest.
inline constexpr wchar_t kMinArrayVerSupported[] = L"MinArrayVerSupported";
/// Addresses that are not used to reach arrays.
inline constexpr wchar_t kExcludedIps[] = L"ExcludedIps";
/// Addresses that are.
inline constexpr wchar_t kIncludedIps[] = L"IncludedIps";
/// Management addresses of the groups of arrays.
inline constexpr wchar_t kGroupMgmtIps[] = L"GroupMgmtIps";
/// That of one group.
inline constexpr wchar_t kGroupMgmtIp[] = L"GroupMgmtIP";
/// Whether sessions use digests.
inline constexpr wchar_t kIscsiGlobalDigestPolicy[] = L"ISCSIGlobalDigestPolicy";
/// Groups of arrays are named by the administrator alone.
inline constexpr wchar_t kDisableAutomaticGroupDiscovery[] = L"DisableAutomaticGroupDiscovery";
}  // namespace agent_registry

}  // namespace varnel
