// What the library and the system must agree on, as published for 64-bit Windows: the layouts of what the service, the
// disks and the initiator write into, and values. A declaration that differs does not compile, be it the SDK's, MinGW's
// or our own for other platforms. The interfaces' slots are compared by a test, which needs both declarations at once.
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "platform/iscsi.h"
#include "platform/vss.h"
#include "platform/win32.h"

namespace varnel {
namespace {

// Values of 32 bits, whatever their sign and type.
constexpr bool Is(long long value, std::uint32_t published) {
  return static_cast<std::uint32_t>(value) == published;
}

// Where a structure holds text: outside Windows a wide character is larger.
constexpr bool kWindowsText = sizeof(WCHAR) == 2;

// Two interface pointers, first the writer's components, then IUnknown: a caller releases through the second.
static_assert(sizeof(IVssWriterComponentsExt) == 2 * sizeof(void*));
static_assert(std::is_base_of_v<IVssWriterComponents, IVssWriterComponentsExt>);
static_assert(std::is_base_of_v<IUnknown, IVssWriterComponentsExt>);
static_assert(!std::is_base_of_v<IUnknown, IVssWriterComponents>);

static_assert(sizeof(GUID) == 16);
static_assert(offsetof(GUID, Data2) == 4);
static_assert(offsetof(GUID, Data3) == 6);
static_assert(offsetof(GUID, Data4) == 8);

static_assert(sizeof(FILETIME) == 8);
static_assert(offsetof(FILETIME, dwHighDateTime) == 4);

static_assert(sizeof(VSS_SNAPSHOT_PROP) == 128);
static_assert(offsetof(VSS_SNAPSHOT_PROP, m_SnapshotId) == 0);
static_assert(offsetof(VSS_SNAPSHOT_PROP, m_SnapshotSetId) == 16);
static_assert(offsetof(VSS_SNAPSHOT_PROP, m_lSnapshotsCount) == 32);
static_assert(offsetof(VSS_SNAPSHOT_PROP, m_pwszSnapshotDeviceObject) == 40);
static_assert(offsetof(VSS_SNAPSHOT_PROP, m_pwszOriginalVolumeName) == 48);
static_assert(offsetof(VSS_SNAPSHOT_PROP, m_pwszOriginatingMachine) == 56);
static_assert(offsetof(VSS_SNAPSHOT_PROP, m_pwszServiceMachine) == 64);
static_assert(offsetof(VSS_SNAPSHOT_PROP, m_pwszExposedName) == 72);
static_assert(offsetof(VSS_SNAPSHOT_PROP, m_pwszExposedPath) == 80);
static_assert(offsetof(VSS_SNAPSHOT_PROP, m_ProviderId) == 88);
static_assert(offsetof(VSS_SNAPSHOT_PROP, m_lSnapshotAttributes) == 104);
static_assert(offsetof(VSS_SNAPSHOT_PROP, m_tsCreationTimestamp) == 112);
static_assert(offsetof(VSS_SNAPSHOT_PROP, m_eStatus) == 120);

static_assert(sizeof(VSS_PROVIDER_PROP) == 72);
static_assert(offsetof(VSS_PROVIDER_PROP, m_ProviderId) == 0);
static_assert(offsetof(VSS_PROVIDER_PROP, m_pwszProviderName) == 16);
static_assert(offsetof(VSS_PROVIDER_PROP, m_eProviderType) == 24);
static_assert(offsetof(VSS_PROVIDER_PROP, m_pwszProviderVersion) == 32);
static_assert(offsetof(VSS_PROVIDER_PROP, m_ProviderVersionId) == 40);
static_assert(offsetof(VSS_PROVIDER_PROP, m_ClassId) == 56);

static_assert(sizeof(VSS_OBJECT_PROP) == 136);
static_assert(offsetof(VSS_OBJECT_PROP, Type) == 0);
static_assert(offsetof(VSS_OBJECT_PROP, Obj) == 8);

static_assert(sizeof(VSS_COMPONENTINFO) == 72);
static_assert(offsetof(VSS_COMPONENTINFO, type) == 0);
static_assert(offsetof(VSS_COMPONENTINFO, bstrLogicalPath) == 8);
static_assert(offsetof(VSS_COMPONENTINFO, bstrComponentName) == 16);
static_assert(offsetof(VSS_COMPONENTINFO, bstrCaption) == 24);
static_assert(offsetof(VSS_COMPONENTINFO, pbIcon) == 32);
static_assert(offsetof(VSS_COMPONENTINFO, cbIcon) == 40);
static_assert(offsetof(VSS_COMPONENTINFO, bRestoreMetadata) == 44);
static_assert(offsetof(VSS_COMPONENTINFO, bNotifyOnBackupComplete) == 45);
static_assert(offsetof(VSS_COMPONENTINFO, bSelectable) == 46);
static_assert(offsetof(VSS_COMPONENTINFO, bSelectableForRestore) == 47);
static_assert(offsetof(VSS_COMPONENTINFO, dwComponentFlags) == 48);
static_assert(offsetof(VSS_COMPONENTINFO, cFileCount) == 52);
static_assert(offsetof(VSS_COMPONENTINFO, cDatabases) == 56);
static_assert(offsetof(VSS_COMPONENTINFO, cLogFiles) == 60);
static_assert(offsetof(VSS_COMPONENTINFO, cDependencies) == 64);

static_assert(sizeof(STORAGE_PROPERTY_QUERY) == 12);
static_assert(offsetof(STORAGE_PROPERTY_QUERY, PropertyId) == 0);
static_assert(offsetof(STORAGE_PROPERTY_QUERY, QueryType) == 4);
static_assert(offsetof(STORAGE_PROPERTY_QUERY, AdditionalParameters) == 8);

static_assert(sizeof(STORAGE_DEVICE_DESCRIPTOR) == 40);
static_assert(offsetof(STORAGE_DEVICE_DESCRIPTOR, Version) == 0);
static_assert(offsetof(STORAGE_DEVICE_DESCRIPTOR, Size) == 4);
static_assert(offsetof(STORAGE_DEVICE_DESCRIPTOR, DeviceType) == 8);
static_assert(offsetof(STORAGE_DEVICE_DESCRIPTOR, DeviceTypeModifier) == 9);
static_assert(offsetof(STORAGE_DEVICE_DESCRIPTOR, RemovableMedia) == 10);
static_assert(offsetof(STORAGE_DEVICE_DESCRIPTOR, CommandQueueing) == 11);
static_assert(offsetof(STORAGE_DEVICE_DESCRIPTOR, VendorIdOffset) == 12);
static_assert(offsetof(STORAGE_DEVICE_DESCRIPTOR, ProductIdOffset) == 16);
static_assert(offsetof(STORAGE_DEVICE_DESCRIPTOR, ProductRevisionOffset) == 20);
static_assert(offsetof(STORAGE_DEVICE_DESCRIPTOR, SerialNumberOffset) == 24);
static_assert(offsetof(STORAGE_DEVICE_DESCRIPTOR, BusType) == 28);
static_assert(offsetof(STORAGE_DEVICE_DESCRIPTOR, RawPropertiesLength) == 32);
static_assert(offsetof(STORAGE_DEVICE_DESCRIPTOR, RawDeviceProperties) == 36);

static_assert(sizeof(STORAGE_DEVICE_NUMBER) == 12);
static_assert(offsetof(STORAGE_DEVICE_NUMBER, DeviceType) == 0);
static_assert(offsetof(STORAGE_DEVICE_NUMBER, DeviceNumber) == 4);
static_assert(offsetof(STORAGE_DEVICE_NUMBER, PartitionNumber) == 8);

static_assert(sizeof(DISK_EXTENT) == 24);
static_assert(offsetof(DISK_EXTENT, DiskNumber) == 0);
static_assert(offsetof(DISK_EXTENT, StartingOffset) == 8);
static_assert(offsetof(DISK_EXTENT, ExtentLength) == 16);

static_assert(sizeof(VOLUME_DISK_EXTENTS) == 32);
static_assert(offsetof(VOLUME_DISK_EXTENTS, NumberOfDiskExtents) == 0);
static_assert(offsetof(VOLUME_DISK_EXTENTS, Extents) == 8);

static_assert(!kWindowsText || sizeof(OSVERSIONINFOEXW) == 284);
static_assert(!kWindowsText || offsetof(OSVERSIONINFOEXW, dwMajorVersion) == 4);
static_assert(!kWindowsText || offsetof(OSVERSIONINFOEXW, dwMinorVersion) == 8);
static_assert(!kWindowsText || offsetof(OSVERSIONINFOEXW, szCSDVersion) == 20);
static_assert(!kWindowsText || offsetof(OSVERSIONINFOEXW, wServicePackMajor) == 276);
static_assert(!kWindowsText || offsetof(OSVERSIONINFOEXW, wServicePackMinor) == 278);
static_assert(!kWindowsText || offsetof(OSVERSIONINFOEXW, wSuiteMask) == 280);
static_assert(!kWindowsText || offsetof(OSVERSIONINFOEXW, wProductType) == 282);

static_assert(sizeof(VS_FIXEDFILEINFO) == 52);
static_assert(offsetof(VS_FIXEDFILEINFO, dwSignature) == 0);
static_assert(offsetof(VS_FIXEDFILEINFO, dwFileVersionMS) == 8);
static_assert(offsetof(VS_FIXEDFILEINFO, dwFileVersionLS) == 12);
static_assert(offsetof(VS_FIXEDFILEINFO, dwFileType) == 36);

static_assert(sizeof(STARTUPINFOW) == 104);
static_assert(offsetof(STARTUPINFOW, cb) == 0);
static_assert(offsetof(STARTUPINFOW, lpTitle) == 24);
static_assert(offsetof(STARTUPINFOW, dwX) == 32);
static_assert(offsetof(STARTUPINFOW, dwFlags) == 60);
static_assert(offsetof(STARTUPINFOW, wShowWindow) == 64);
static_assert(offsetof(STARTUPINFOW, lpReserved2) == 72);
static_assert(offsetof(STARTUPINFOW, hStdInput) == 80);
static_assert(offsetof(STARTUPINFOW, hStdOutput) == 88);
static_assert(offsetof(STARTUPINFOW, hStdError) == 96);

static_assert(sizeof(PROCESS_INFORMATION) == 24);
static_assert(offsetof(PROCESS_INFORMATION, hProcess) == 0);
static_assert(offsetof(PROCESS_INFORMATION, hThread) == 8);
static_assert(offsetof(PROCESS_INFORMATION, dwProcessId) == 16);
static_assert(offsetof(PROCESS_INFORMATION, dwThreadId) == 20);

// The initiator's structures: ISCSI_UNIQUE_SESSION_ID, ISCSI_CONNECTION_INFOW, ISCSI_SESSION_INFOW, SCSI_ADDRESS and
// ISCSI_DEVICE_ON_SESSIONW of the SDK.
static_assert(sizeof(iscsi::UniqueSessionId) == 16);
static_assert(offsetof(iscsi::UniqueSessionId, AdapterSpecific) == 8);

static_assert(sizeof(iscsi::ConnectionInfo) == 40);
static_assert(offsetof(iscsi::ConnectionInfo, ConnectionId) == 0);
static_assert(offsetof(iscsi::ConnectionInfo, InitiatorAddress) == 16);
static_assert(offsetof(iscsi::ConnectionInfo, TargetAddress) == 24);
static_assert(offsetof(iscsi::ConnectionInfo, InitiatorSocket) == 32);
static_assert(offsetof(iscsi::ConnectionInfo, TargetSocket) == 34);
static_assert(offsetof(iscsi::ConnectionInfo, CID) == 36);

static_assert(sizeof(iscsi::SessionInfo) == 64);
static_assert(offsetof(iscsi::SessionInfo, SessionId) == 0);
static_assert(offsetof(iscsi::SessionInfo, InitiatorName) == 16);
static_assert(offsetof(iscsi::SessionInfo, TargetNodeName) == 24);
static_assert(offsetof(iscsi::SessionInfo, TargetName) == 32);
static_assert(offsetof(iscsi::SessionInfo, ISID) == 40);
static_assert(offsetof(iscsi::SessionInfo, TSID) == 46);
static_assert(offsetof(iscsi::SessionInfo, ConnectionCount) == 48);
static_assert(offsetof(iscsi::SessionInfo, Connections) == 56);
static_assert(alignof(iscsi::SessionInfo) == 8);

static_assert(sizeof(iscsi::ScsiAddress) == 8);
static_assert(offsetof(iscsi::ScsiAddress, Length) == 0);
static_assert(offsetof(iscsi::ScsiAddress, PortNumber) == 4);
static_assert(offsetof(iscsi::ScsiAddress, PathId) == 5);
static_assert(offsetof(iscsi::ScsiAddress, TargetId) == 6);
static_assert(offsetof(iscsi::ScsiAddress, Lun) == 7);

static_assert(!kWindowsText || sizeof(iscsi::DeviceOnSession) == 2040);
static_assert(!kWindowsText || offsetof(iscsi::DeviceOnSession, InitiatorName) == 0);
static_assert(!kWindowsText || offsetof(iscsi::DeviceOnSession, TargetName) == 512);
static_assert(!kWindowsText || offsetof(iscsi::DeviceOnSession, ScsiAddress) == 960);
static_assert(!kWindowsText || offsetof(iscsi::DeviceOnSession, DeviceInterfaceType) == 968);
static_assert(!kWindowsText || offsetof(iscsi::DeviceOnSession, DeviceInterfaceName) == 984);
static_assert(!kWindowsText || offsetof(iscsi::DeviceOnSession, LegacyName) == 1504);
static_assert(!kWindowsText || offsetof(iscsi::DeviceOnSession, StorageDeviceNumber) == 2024);
static_assert(!kWindowsText || offsetof(iscsi::DeviceOnSession, DeviceInstance) == 2036);
static_assert(kWindowsText || sizeof(iscsi::DeviceOnSession) == 2040 + 1000 * (sizeof(WCHAR) - 2));
static_assert(alignof(iscsi::DeviceOnSession) == 4);
static_assert(Is(iscsi::kDeviceBusyOnSession, 0xEFFF0040));
static_assert(iscsi::kMaxHbaNameLength == 256 && iscsi::kMaxNameLength == 224);

// The union of an object's properties begins with them all.
static_assert(sizeof(VSS_OBJECT_UNION) == sizeof(VSS_SNAPSHOT_PROP));
static_assert(sizeof(VSS_ID) == 16 && sizeof(VSS_TIMESTAMP) == 8 && sizeof(VssBool) == 1);
static_assert(std::is_signed_v<HRESULT> && sizeof(HRESULT) == 4 && sizeof(BOOL) == 4 && sizeof(DWORD) == 4);

static_assert(Is(TRUE, 1));
static_assert(Is(FALSE, 0));
static_assert(Is(INFINITE, 0xFFFFFFFF));
static_assert(Is(MAX_PATH, 260));
static_assert(Is(S_OK, 0));
static_assert(Is(S_FALSE, 1));
static_assert(Is(E_NOTIMPL, 0x80004001));
static_assert(Is(E_NOINTERFACE, 0x80004002));
static_assert(Is(E_POINTER, 0x80004003));
static_assert(Is(E_ABORT, 0x80004004));
static_assert(Is(E_FAIL, 0x80004005));
static_assert(Is(E_UNEXPECTED, 0x8000FFFF));
static_assert(Is(E_ACCESSDENIED, 0x80070005));
static_assert(Is(E_OUTOFMEMORY, 0x8007000E));
static_assert(Is(E_INVALIDARG, 0x80070057));
static_assert(Is(REGDB_E_CLASSNOTREG, 0x80040154));
static_assert(Is(CO_E_NOTINITIALIZED, 0x800401F0));
static_assert(Is(ERROR_SUCCESS, 0));
static_assert(Is(ERROR_INVALID_FUNCTION, 1));
static_assert(Is(ERROR_FILE_NOT_FOUND, 2));
static_assert(Is(ERROR_PATH_NOT_FOUND, 3));
static_assert(Is(ERROR_ACCESS_DENIED, 5));
static_assert(Is(ERROR_INVALID_HANDLE, 6));
static_assert(Is(ERROR_NOT_ENOUGH_MEMORY, 8));
static_assert(Is(ERROR_NO_MORE_FILES, 18));
static_assert(Is(ERROR_GEN_FAILURE, 31));
static_assert(Is(ERROR_NOT_SUPPORTED, 50));
static_assert(Is(ERROR_INVALID_PARAMETER, 87));
static_assert(Is(ERROR_BUFFER_OVERFLOW, 111));
static_assert(Is(ERROR_INSUFFICIENT_BUFFER, 122));
static_assert(Is(ERROR_INVALID_NAME, 123));
static_assert(Is(ERROR_MOD_NOT_FOUND, 126));
static_assert(Is(ERROR_PROC_NOT_FOUND, 127));
static_assert(Is(ERROR_MORE_DATA, 234));
static_assert(Is(ERROR_NO_MORE_ITEMS, 259));
static_assert(Is(ERROR_MR_MID_NOT_FOUND, 317));
static_assert(Is(ERROR_OLD_WIN_VERSION, 1150));
static_assert(Is(ERROR_SERVICE_DOES_NOT_EXIST, 1060));
static_assert(Is(ERROR_NOT_FOUND, 1168));
static_assert(Is(ERROR_NO_UNICODE_TRANSLATION, 1113));
static_assert(Is(ERROR_RESOURCE_DATA_NOT_FOUND, 1812));
static_assert(Is(ERROR_RESOURCE_TYPE_NOT_FOUND, 1813));
static_assert(Is(ERROR_RESOURCE_NAME_NOT_FOUND, 1814));
static_assert(Is(FORMAT_MESSAGE_ALLOCATE_BUFFER, 0x100));
static_assert(Is(FORMAT_MESSAGE_IGNORE_INSERTS, 0x200));
static_assert(Is(FORMAT_MESSAGE_FROM_HMODULE, 0x800));
static_assert(Is(FORMAT_MESSAGE_FROM_SYSTEM, 0x1000));
static_assert(Is(GENERIC_READ, 0x80000000));
static_assert(Is(GENERIC_WRITE, 0x40000000));
static_assert(Is(FILE_SHARE_READ, 0x1));
static_assert(Is(FILE_SHARE_WRITE, 0x2));
static_assert(Is(OPEN_EXISTING, 3));
static_assert(Is(FILE_ATTRIBUTE_NORMAL, 0x80));
static_assert(Is(CREATE_UNICODE_ENVIRONMENT, 0x400));
static_assert(Is(CREATE_NO_WINDOW, 0x08000000));
static_assert(Is(WAIT_OBJECT_0, 0));
static_assert(Is(WAIT_TIMEOUT, 258));
static_assert(Is(WAIT_FAILED, 0xFFFFFFFF));
static_assert(Is(CLSCTX_INPROC_SERVER, 0x1));
static_assert(Is(CLSCTX_ALL, 0x17));
static_assert(Is(IOCTL_STORAGE_QUERY_PROPERTY, 0x2D1400));
static_assert(Is(IOCTL_STORAGE_GET_DEVICE_NUMBER, 0x2D1080));
static_assert(Is(IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS, 0x560000));
static_assert(Is(IOCTL_DISK_IS_CLUSTERED, 0x700F8));
static_assert(Is(KEY_READ, 0x20019));
static_assert(Is(RRF_RT_REG_SZ, 0x2));
static_assert(Is(RRF_RT_REG_DWORD, 0x10));
static_assert(Is(REG_SZ, 1));
static_assert(Is(REG_DWORD, 4));
static_assert(Is(VER_MINORVERSION, 0x1));
static_assert(Is(VER_MAJORVERSION, 0x2));
static_assert(Is(VER_BUILDNUMBER, 0x4));
static_assert(Is(VER_SERVICEPACKMINOR, 0x10));
static_assert(Is(VER_SERVICEPACKMAJOR, 0x20));
static_assert(Is(VER_PRODUCT_TYPE, 0x80));
static_assert(Is(VER_EQUAL, 1));
static_assert(Is(VER_GREATER, 2));
static_assert(Is(VER_GREATER_EQUAL, 3));
static_assert(Is(VER_LESS, 4));
static_assert(Is(VER_LESS_EQUAL, 5));
static_assert(Is(VER_NT_WORKSTATION, 1));
static_assert(Is(VER_NT_DOMAIN_CONTROLLER, 2));
static_assert(Is(VER_NT_SERVER, 3));

static_assert(Is(VSS_S_ASYNC_PENDING, 0x00042309));
static_assert(Is(VSS_S_ASYNC_FINISHED, 0x0004230A));
static_assert(Is(VSS_S_ASYNC_CANCELLED, 0x0004230B));
static_assert(Is(VSS_S_SOME_SNAPSHOTS_NOT_IMPORTED, 0x00042321));
static_assert(Is(VSS_E_BAD_STATE, 0x80042301));
static_assert(Is(VSS_E_UNEXPECTED, 0x80042302));
static_assert(Is(VSS_E_PROVIDER_ALREADY_REGISTERED, 0x80042303));
static_assert(Is(VSS_E_PROVIDER_NOT_REGISTERED, 0x80042304));
static_assert(Is(VSS_E_PROVIDER_VETO, 0x80042306));
static_assert(Is(VSS_E_PROVIDER_IN_USE, 0x80042307));
static_assert(Is(VSS_E_OBJECT_NOT_FOUND, 0x80042308));
static_assert(Is(VSS_E_VOLUME_NOT_SUPPORTED, 0x8004230C));
static_assert(Is(VSS_E_OBJECT_ALREADY_EXISTS, 0x8004230D));
static_assert(Is(VSS_E_VOLUME_NOT_SUPPORTED_BY_PROVIDER, 0x8004230E));
static_assert(Is(VSS_E_UNEXPECTED_PROVIDER_ERROR, 0x8004230F));
static_assert(Is(VSS_E_CORRUPT_XML_DOCUMENT, 0x80042310));
static_assert(Is(VSS_E_INVALID_XML_DOCUMENT, 0x80042311));
static_assert(Is(VSS_E_MAXIMUM_NUMBER_OF_VOLUMES_REACHED, 0x80042312));
static_assert(Is(VSS_E_FLUSH_WRITES_TIMEOUT, 0x80042313));
static_assert(Is(VSS_E_HOLD_WRITES_TIMEOUT, 0x80042314));
static_assert(Is(VSS_E_UNEXPECTED_WRITER_ERROR, 0x80042315));
static_assert(Is(VSS_E_SNAPSHOT_SET_IN_PROGRESS, 0x80042316));
static_assert(Is(VSS_E_MAXIMUM_NUMBER_OF_SNAPSHOTS_REACHED, 0x80042317));
static_assert(Is(VSS_E_WRITER_INFRASTRUCTURE, 0x80042318));
static_assert(Is(VSS_E_WRITER_NOT_RESPONDING, 0x80042319));
static_assert(Is(VSS_E_WRITER_ALREADY_SUBSCRIBED, 0x8004231A));
static_assert(Is(VSS_E_UNSUPPORTED_CONTEXT, 0x8004231B));
static_assert(Is(VSS_E_VOLUME_IN_USE, 0x8004231D));
static_assert(Is(VSS_E_MAXIMUM_DIFFAREA_ASSOCIATIONS_REACHED, 0x8004231E));
static_assert(Is(VSS_E_INSUFFICIENT_STORAGE, 0x8004231F));
static_assert(Is(VSS_E_NO_SNAPSHOTS_IMPORTED, 0x80042320));
static_assert(Is(VSS_E_SOME_SNAPSHOTS_NOT_IMPORTED, 0x80042321));
static_assert(Is(VSS_E_MAXIMUM_NUMBER_OF_REMOTE_MACHINES_REACHED, 0x80042322));
static_assert(Is(VSS_E_REMOTE_SERVER_UNAVAILABLE, 0x80042323));
static_assert(Is(VSS_E_REMOTE_SERVER_UNSUPPORTED, 0x80042324));
static_assert(Is(VSS_E_REVERT_IN_PROGRESS, 0x80042325));
static_assert(Is(VSS_E_REVERT_VOLUME_LOST, 0x80042326));
static_assert(Is(VSS_E_REBOOT_REQUIRED, 0x80042327));
static_assert(Is(VSS_E_TRANSACTION_FREEZE_TIMEOUT, 0x80042328));
static_assert(Is(VSS_E_TRANSACTION_THAW_TIMEOUT, 0x80042329));
static_assert(Is(VSS_E_UNSELECTED_VOLUME, 0x8004232A));
static_assert(Is(VSS_E_SNAPSHOT_NOT_IN_SET, 0x8004232B));
static_assert(Is(VSS_E_NESTED_VOLUME_LIMIT, 0x8004232C));
static_assert(Is(VSS_E_VOLUME_NOT_LOCAL, 0x8004232D));
static_assert(Is(VSS_E_CLUSTER_TIMEOUT, 0x8004232E));
static_assert(Is(VSS_E_NOT_SUPPORTED, 0x8004232F));
static_assert(Is(VSS_E_WRITERERROR_PARTIAL_FAILURE, 0x80042336));
static_assert(Is(VSS_E_WRITERERROR_INCONSISTENTSNAPSHOT, 0x800423F0));
static_assert(Is(VSS_E_WRITERERROR_OUTOFRESOURCES, 0x800423F1));
static_assert(Is(VSS_E_WRITERERROR_TIMEOUT, 0x800423F2));
static_assert(Is(VSS_E_WRITERERROR_RETRYABLE, 0x800423F3));
static_assert(Is(VSS_E_WRITERERROR_NONRETRYABLE, 0x800423F4));
static_assert(Is(VSS_E_WRITERERROR_RECOVERY_FAILED, 0x800423F5));
static_assert(Is(VSS_E_BREAK_REVERT_ID_FAILED, 0x800423F6));
static_assert(Is(VSS_E_LEGACY_PROVIDER, 0x800423F7));
static_assert(Is(VSS_E_MISSING_DISK, 0x800423F8));
static_assert(Is(VSS_E_MISSING_HIDDEN_VOLUME, 0x800423F9));
static_assert(Is(VSS_E_MISSING_VOLUME, 0x800423FA));
static_assert(Is(VSS_E_AUTORECOVERY_FAILED, 0x800423FB));
static_assert(Is(VSS_E_DYNAMIC_DISK_ERROR, 0x800423FC));
static_assert(Is(VSS_E_NONTRANSPORTABLE_BCD, 0x800423FD));
static_assert(Is(VSS_E_CANNOT_REVERT_DISKID, 0x800423FE));
static_assert(Is(VSS_E_RESYNC_IN_PROGRESS, 0x800423FF));
static_assert(Is(VSS_E_CLUSTER_ERROR, 0x80042400));
static_assert(Is(VSS_E_ASRERROR_DISK_ASSIGNMENT_FAILED, 0x80042401));
static_assert(Is(VSS_E_ASRERROR_DISK_RECREATION_FAILED, 0x80042402));
static_assert(Is(VSS_E_ASRERROR_NO_ARCPATH, 0x80042403));
static_assert(Is(VSS_E_ASRERROR_MISSING_DYNDISK, 0x80042404));
static_assert(Is(VSS_E_ASRERROR_SHARED_CRIDISK, 0x80042405));
static_assert(Is(VSS_E_ASRERROR_DATADISK_RDISK0, 0x80042406));
static_assert(Is(VSS_E_ASRERROR_RDISK0_TOOSMALL, 0x80042407));
static_assert(Is(VSS_E_ASRERROR_CRITICAL_DISKS_TOO_SMALL, 0x80042408));
static_assert(Is(VSS_E_WRITER_STATUS_NOT_AVAILABLE, 0x80042409));
static_assert(Is(VSS_E_ASRERROR_DYNAMIC_VHD_NOT_SUPPORTED, 0x8004240A));
static_assert(Is(VSS_E_FSS_TIMEOUT, 0x80042417));

}  // namespace
}  // namespace varnel
