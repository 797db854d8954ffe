// The part of the Windows SDK that varnel names, for builds without it. Types have the sizes they have on 64-bit
// Windows, except that wchar_t is whatever the compiler's is: a wide text outside Windows is UTF-32.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#define STDMETHODCALLTYPE
#define WINAPI

using BYTE = std::uint8_t;
using UCHAR = std::uint8_t;
using BOOLEAN = std::uint8_t;
using WORD = std::uint16_t;
using USHORT = std::uint16_t;
using DWORD = std::uint32_t;
using ULONG = std::uint32_t;
using UINT = std::uint32_t;
using LONG = std::int32_t;
using INT = std::int32_t;
using BOOL = std::int32_t;
using HRESULT = std::int32_t;
using LONGLONG = std::int64_t;
using ULONGLONG = std::uint64_t;
using DWORDLONG = std::uint64_t;
using WCHAR = wchar_t;
using LPWSTR = wchar_t*;
using PWSTR = wchar_t*;
using LPCWSTR = const wchar_t*;
using PCWSTR = const wchar_t*;
using BSTR = wchar_t*;
using HANDLE = void*;
using EVT_HANDLE = HANDLE;
using HMODULE = struct HINSTANCE__*;
using HINSTANCE = HMODULE;
using HKEY = struct HKEY__*;
using SC_HANDLE = struct SC_HANDLE__*;
using LSTATUS = LONG;
using REGSAM = DWORD;

struct GUID {
  std::uint32_t Data1;
  std::uint16_t Data2;
  std::uint16_t Data3;
  std::uint8_t Data4[8];
};
using IID = GUID;
using CLSID = GUID;
using REFGUID = const GUID&;
using REFIID = const IID&;
using REFCLSID = const CLSID&;

inline bool operator==(const GUID& a, const GUID& b) {
  return std::memcmp(&a, &b, sizeof(GUID)) == 0;
}
inline bool operator!=(const GUID& a, const GUID& b) {
  return !(a == b);
}

struct FILETIME {
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
};

enum COMPUTER_NAME_FORMAT {
  ComputerNameNetBIOS,
  ComputerNameDnsHostname,
  ComputerNameDnsDomain,
  ComputerNameDnsFullyQualified,
  ComputerNamePhysicalNetBIOS,
  ComputerNamePhysicalDnsHostname,
};

struct LARGE_INTEGER {
  LONGLONG QuadPart;
};
struct ULARGE_INTEGER {
  ULONGLONG QuadPart;
};

constexpr BOOL TRUE = 1;
constexpr BOOL FALSE = 0;
constexpr DWORD INFINITE = 0xFFFFFFFF;
constexpr int MAX_PATH = 260;
inline const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(-1));

constexpr HRESULT S_OK = 0;
constexpr HRESULT S_FALSE = 1;
constexpr HRESULT E_NOTIMPL = static_cast<HRESULT>(0x80004001);
constexpr HRESULT E_NOINTERFACE = static_cast<HRESULT>(0x80004002);
constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003);
constexpr HRESULT E_ABORT = static_cast<HRESULT>(0x80004004);
constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005);
constexpr HRESULT E_UNEXPECTED = static_cast<HRESULT>(0x8000FFFF);
constexpr HRESULT E_ACCESSDENIED = static_cast<HRESULT>(0x80070005);
constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000E);
constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057);
constexpr HRESULT REGDB_E_CLASSNOTREG = static_cast<HRESULT>(0x80040154);
constexpr HRESULT CO_E_NOTINITIALIZED = static_cast<HRESULT>(0x800401F0);

constexpr bool SUCCEEDED(HRESULT hr) {
  return hr >= 0;
}
constexpr bool FAILED(HRESULT hr) {
  return hr < 0;
}

constexpr DWORD ERROR_SUCCESS = 0;
constexpr DWORD ERROR_INVALID_FUNCTION = 1;
constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
constexpr DWORD ERROR_PATH_NOT_FOUND = 3;
constexpr DWORD ERROR_ACCESS_DENIED = 5;
constexpr DWORD ERROR_INVALID_HANDLE = 6;
constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
constexpr DWORD ERROR_NO_MORE_FILES = 18;
constexpr DWORD ERROR_GEN_FAILURE = 31;
constexpr DWORD ERROR_NOT_SUPPORTED = 50;
constexpr DWORD ERROR_INVALID_PARAMETER = 87;
constexpr DWORD ERROR_BUFFER_OVERFLOW = 111;
constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
constexpr DWORD ERROR_INVALID_NAME = 123;
constexpr DWORD ERROR_MOD_NOT_FOUND = 126;
constexpr DWORD ERROR_PROC_NOT_FOUND = 127;
constexpr DWORD ERROR_ENVVAR_NOT_FOUND = 203;
constexpr DWORD ERROR_MORE_DATA = 234;
constexpr DWORD ERROR_NO_MORE_ITEMS = 259;
constexpr DWORD ERROR_MR_MID_NOT_FOUND = 317;
constexpr DWORD ERROR_OLD_WIN_VERSION = 1150;
constexpr DWORD ERROR_SERVICE_DOES_NOT_EXIST = 1060;
constexpr DWORD ERROR_NOT_FOUND = 1168;
constexpr DWORD ERROR_NO_UNICODE_TRANSLATION = 1113;
constexpr DWORD ERROR_RESOURCE_DATA_NOT_FOUND = 1812;
constexpr DWORD ERROR_RESOURCE_TYPE_NOT_FOUND = 1813;
constexpr DWORD ERROR_RESOURCE_NAME_NOT_FOUND = 1814;
constexpr DWORD ERROR_EVT_INVALID_QUERY = 15001;
constexpr DWORD ERROR_EVT_PUBLISHER_METADATA_NOT_FOUND = 15002;
constexpr DWORD ERROR_EVT_CHANNEL_NOT_FOUND = 15007;
constexpr DWORD ERROR_EVT_MESSAGE_NOT_FOUND = 15027;
constexpr DWORD ERROR_EVT_UNRESOLVED_VALUE_INSERT = 15029;
constexpr DWORD ERROR_EVT_UNRESOLVED_PARAMETER_INSERT = 15030;

constexpr DWORD FORMAT_MESSAGE_ALLOCATE_BUFFER = 0x100;
constexpr DWORD FORMAT_MESSAGE_IGNORE_INSERTS = 0x200;
constexpr DWORD FORMAT_MESSAGE_FROM_HMODULE = 0x800;
constexpr DWORD FORMAT_MESSAGE_FROM_SYSTEM = 0x1000;

constexpr DWORD GENERIC_READ = 0x80000000;
constexpr DWORD GENERIC_WRITE = 0x40000000;
constexpr DWORD FILE_SHARE_READ = 0x1;
constexpr DWORD FILE_SHARE_WRITE = 0x2;
constexpr DWORD OPEN_EXISTING = 3;
constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;

constexpr DWORD CREATE_UNICODE_ENVIRONMENT = 0x400;
constexpr DWORD CREATE_NO_WINDOW = 0x08000000;
constexpr DWORD WAIT_OBJECT_0 = 0;
constexpr DWORD WAIT_TIMEOUT = 258;
constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;

// The event log. Values that an event has are never looked at one by one.
struct EVT_VARIANT;
constexpr DWORD EvtQueryChannelPath = 0x1;
constexpr DWORD EvtQueryForwardDirection = 0x100;
constexpr DWORD EvtQueryReverseDirection = 0x200;
constexpr DWORD EvtRenderEventXml = 1;
constexpr DWORD EvtFormatMessageEvent = 1;
constexpr WORD EVENTLOG_SUCCESS = 0;
constexpr WORD EVENTLOG_ERROR_TYPE = 1;
constexpr WORD EVENTLOG_WARNING_TYPE = 2;
constexpr WORD EVENTLOG_INFORMATION_TYPE = 4;

constexpr DWORD CLSCTX_INPROC_SERVER = 0x1;
constexpr DWORD CLSCTX_ALL = 0x17;
constexpr DWORD RPC_C_AUTHN_LEVEL_PKT_PRIVACY = 6;
constexpr DWORD RPC_C_IMP_LEVEL_IDENTIFY = 2;
constexpr DWORD EOAC_DYNAMIC_CLOAKING = 0x40;

constexpr DWORD SC_MANAGER_CONNECT = 0x1;
constexpr DWORD SERVICE_QUERY_CONFIG = 0x1;
constexpr DWORD SERVICE_QUERY_STATUS = 0x4;
constexpr DWORD SERVICE_WIN32_OWN_PROCESS = 0x10;
constexpr DWORD SERVICE_BOOT_START = 0;
constexpr DWORD SERVICE_SYSTEM_START = 1;
constexpr DWORD SERVICE_AUTO_START = 2;
constexpr DWORD SERVICE_DEMAND_START = 3;
constexpr DWORD SERVICE_DISABLED = 4;
constexpr DWORD SERVICE_STOPPED = 1;
constexpr DWORD SERVICE_START_PENDING = 2;
constexpr DWORD SERVICE_STOP_PENDING = 3;
constexpr DWORD SERVICE_RUNNING = 4;
constexpr DWORD SERVICE_PAUSED = 7;

struct QUERY_SERVICE_CONFIGW {
  DWORD dwServiceType;
  DWORD dwStartType;
  DWORD dwErrorControl;
  LPWSTR lpBinaryPathName;
  LPWSTR lpLoadOrderGroup;
  DWORD dwTagId;
  LPWSTR lpDependencies;
  LPWSTR lpServiceStartName;
  LPWSTR lpDisplayName;
};
struct SERVICE_STATUS {
  DWORD dwServiceType;
  DWORD dwCurrentState;
  DWORD dwControlsAccepted;
  DWORD dwWin32ExitCode;
  DWORD dwServiceSpecificExitCode;
  DWORD dwCheckPoint;
  DWORD dwWaitHint;
};

constexpr DWORD IOCTL_STORAGE_QUERY_PROPERTY = 0x2D1400;
constexpr DWORD IOCTL_STORAGE_GET_DEVICE_NUMBER = 0x2D1080;
constexpr DWORD IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS = 0x560000;
constexpr DWORD IOCTL_DISK_IS_CLUSTERED = 0x700F8;

constexpr REGSAM KEY_READ = 0x20019;
constexpr DWORD RRF_RT_REG_SZ = 0x2;
constexpr DWORD RRF_RT_REG_DWORD = 0x10;
constexpr DWORD REG_SZ = 1;
constexpr DWORD REG_DWORD = 4;
inline const HKEY HKEY_CURRENT_USER = reinterpret_cast<HKEY>(static_cast<std::uintptr_t>(0x80000001));
inline const HKEY HKEY_LOCAL_MACHINE = reinterpret_cast<HKEY>(static_cast<std::uintptr_t>(0x80000002));

constexpr DWORD VER_MINORVERSION = 0x1;
constexpr DWORD VER_MAJORVERSION = 0x2;
constexpr DWORD VER_BUILDNUMBER = 0x4;
constexpr DWORD VER_SERVICEPACKMINOR = 0x10;
constexpr DWORD VER_SERVICEPACKMAJOR = 0x20;
constexpr DWORD VER_PRODUCT_TYPE = 0x80;
constexpr BYTE VER_EQUAL = 1;
constexpr BYTE VER_GREATER = 2;
constexpr BYTE VER_GREATER_EQUAL = 3;
constexpr BYTE VER_LESS = 4;
constexpr BYTE VER_LESS_EQUAL = 5;
constexpr BYTE VER_NT_WORKSTATION = 1;
constexpr BYTE VER_NT_DOMAIN_CONTROLLER = 2;
constexpr BYTE VER_NT_SERVER = 3;

struct OSVERSIONINFOEXW {
  DWORD dwOSVersionInfoSize;
  DWORD dwMajorVersion;
  DWORD dwMinorVersion;
  DWORD dwBuildNumber;
  DWORD dwPlatformId;
  WCHAR szCSDVersion[128];
  WORD wServicePackMajor;
  WORD wServicePackMinor;
  WORD wSuiteMask;
  BYTE wProductType;
  BYTE wReserved;
};

struct VS_FIXEDFILEINFO {
  DWORD dwSignature;
  DWORD dwStrucVersion;
  DWORD dwFileVersionMS;
  DWORD dwFileVersionLS;
  DWORD dwProductVersionMS;
  DWORD dwProductVersionLS;
  DWORD dwFileFlagsMask;
  DWORD dwFileFlags;
  DWORD dwFileOS;
  DWORD dwFileType;
  DWORD dwFileSubtype;
  DWORD dwFileDateMS;
  DWORD dwFileDateLS;
};

struct STARTUPINFOW {
  DWORD cb;
  LPWSTR lpReserved;
  LPWSTR lpDesktop;
  LPWSTR lpTitle;
  DWORD dwX, dwY, dwXSize, dwYSize, dwXCountChars, dwYCountChars, dwFillAttribute, dwFlags;
  WORD wShowWindow, cbReserved2;
  BYTE* lpReserved2;
  HANDLE hStdInput, hStdOutput, hStdError;
};

struct PROCESS_INFORMATION {
  HANDLE hProcess;
  HANDLE hThread;
  DWORD dwProcessId;
  DWORD dwThreadId;
};

enum STORAGE_PROPERTY_ID { StorageDeviceProperty = 0 };
enum STORAGE_QUERY_TYPE { PropertyStandardQuery = 0 };

struct STORAGE_PROPERTY_QUERY {
  STORAGE_PROPERTY_ID PropertyId;
  STORAGE_QUERY_TYPE QueryType;
  BYTE AdditionalParameters[1];
};

struct STORAGE_DEVICE_DESCRIPTOR {
  DWORD Version;
  DWORD Size;
  BYTE DeviceType;
  BYTE DeviceTypeModifier;
  BOOLEAN RemovableMedia;
  BOOLEAN CommandQueueing;
  DWORD VendorIdOffset;
  DWORD ProductIdOffset;
  DWORD ProductRevisionOffset;
  DWORD SerialNumberOffset;
  DWORD BusType;
  DWORD RawPropertiesLength;
  BYTE RawDeviceProperties[1];
};

struct STORAGE_DEVICE_NUMBER {
  DWORD DeviceType;
  DWORD DeviceNumber;
  DWORD PartitionNumber;
};

struct DISK_EXTENT {
  DWORD DiskNumber;
  LARGE_INTEGER StartingOffset;
  LARGE_INTEGER ExtentLength;
};

struct VOLUME_DISK_EXTENTS {
  DWORD NumberOfDiskExtents;
  DISK_EXTENT Extents[1];
};

struct IXMLDOMDocument;  // named in one signature, never used

struct IUnknown {
  virtual HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) = 0;
  virtual ULONG STDMETHODCALLTYPE AddRef() = 0;
  virtual ULONG STDMETHODCALLTYPE Release() = 0;
};

// Counted text as COM hands it out: the length in bytes stands before the first character, a NUL after the last.
BSTR SysAllocString(const wchar_t* text);
BSTR SysAllocStringLen(const wchar_t* text, UINT length);
void SysFreeString(BSTR text);
UINT SysStringLen(BSTR text);
void* CoTaskMemAlloc(std::size_t bytes);
void CoTaskMemFree(void* block);
