// The seam: everything the library asks of the machine it runs on, one small abstract class per question. Methods keep
// the Win32 name, argument order, result convention and error codes, so that the Windows back end is a line each and a
// Windows engineer reads them without a manual.
//
// Calls that report through GetLastError on Windows report through Host::GetLastError here.
//
// One host serves every thread of the process: each method may be called on several threads at once.
#pragma once

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/export.h"
#include "platform/iscsi.h"
#include "platform/vss.h"
#include "platform/win32.h"

namespace varnel {

/// Creation of the service's objects, and the memory that they hand to their caller.
class VssService {
 public:
  virtual ~VssService() = default;
  /// As the function of Windows with this name: its arguments, its results and its error codes.
  ///@{
  virtual HRESULT CreateVssBackupComponents(IVssBackupComponents** backup) = 0;
  virtual HRESULT CoCreateInstance(REFCLSID classId, IUnknown* outer, DWORD context, REFIID interfaceId,
                                   void** object) = 0;
  /// Frees the strings of a property structure, not the structure.
  virtual void VssFreeSnapshotProperties(VSS_SNAPSHOT_PROP* properties) = 0;
  virtual BSTR SysAllocStringLen(const wchar_t* text, UINT length) = 0;
  virtual void SysFreeString(BSTR text) = 0;
  virtual void CoTaskMemFree(void* block) = 0;
  ///@}
};

/// Volumes, disks and their handles.
class Storage {
 public:
  virtual ~Storage() = default;
  /// As the function of Windows with this name: its arguments, its results and its error codes.
  ///@{
  virtual HANDLE CreateFileW(LPCWSTR name, DWORD access, DWORD share, void* security, DWORD disposition, DWORD flags,
                             HANDLE templateFile) = 0;
  virtual BOOL DeviceIoControl(HANDLE device, DWORD code, void* in, DWORD inBytes, void* out, DWORD outBytes,
                               DWORD* returned, void* overlapped) = 0;
  virtual BOOL CloseHandle(HANDLE handle) = 0;
  /// The mount point that holds `path`, as a prefix of it with a trailing backslash.
  virtual BOOL GetVolumePathNameW(LPCWSTR path, LPWSTR mountPoint, DWORD characters) = 0;
  virtual BOOL GetVolumeNameForVolumeMountPointW(LPCWSTR mountPoint, LPWSTR volumeName, DWORD characters) = 0;
  virtual HANDLE FindFirstVolumeW(LPWSTR volumeName, DWORD characters) = 0;
  virtual BOOL FindNextVolumeW(HANDLE search, LPWSTR volumeName, DWORD characters) = 0;
  virtual BOOL FindVolumeClose(HANDLE search) = 0;
  /// `names` is a list of NUL-terminated texts with one more NUL after the last.
  virtual BOOL GetVolumePathNamesForVolumeNameW(LPCWSTR volumeName, LPWSTR names, DWORD characters, DWORD* needed) = 0;
  ///@}
};

/// Processes.
class Processes {
 public:
  virtual ~Processes() = default;
  /// As the function of Windows with this name: its arguments, its results and its error codes.
  ///@{
  virtual BOOL CreateProcessW(LPCWSTR application, LPWSTR commandLine, void* processSecurity, void* threadSecurity,
                              BOOL inheritHandles, DWORD flags, void* environment, LPCWSTR directory,
                              STARTUPINFOW* startup, PROCESS_INFORMATION* process) = 0;
  virtual DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) = 0;
  virtual BOOL GetExitCodeProcess(HANDLE process, DWORD* exitCode) = 0;
  virtual BOOL CloseHandle(HANDLE handle) = 0;
  /// Where a program lies. With a null `path` the folders are those of CreateProcessW. The characters written without
  /// the NUL, or with too little room those needed with it; 0 when there is none.
  virtual DWORD SearchPathW(LPCWSTR path, LPCWSTR file, LPCWSTR extension, DWORD characters, LPWSTR found,
                            LPWSTR* filePart) = 0;
  virtual DWORD GetCurrentProcessId() = 0;
  ///@}
};

/// The registry. Functions return their Win32 error code.
class Registry {
 public:
  virtual ~Registry() = default;
  /// As the function of Windows with this name: its arguments, its results and its error codes.
  ///@{
  virtual LSTATUS RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM access, HKEY* result) = 0;
  virtual LSTATUS RegQueryInfoKeyW(HKEY key, LPWSTR className, DWORD* classCharacters, DWORD* reserved, DWORD* subKeys,
                                   DWORD* maxSubKeyLength, DWORD* maxClassLength, DWORD* values,
                                   DWORD* maxValueNameLength, DWORD* maxValueBytes, DWORD* securityDescriptorBytes,
                                   FILETIME* lastWrite) = 0;
  virtual LSTATUS RegEnumKeyExW(HKEY key, DWORD index, LPWSTR name, DWORD* characters, DWORD* reserved,
                                LPWSTR className, DWORD* classCharacters, FILETIME* lastWrite) = 0;
  virtual LSTATUS RegGetValueW(HKEY key, LPCWSTR subKey, LPCWSTR value, DWORD flags, DWORD* type, void* data,
                               DWORD* bytes) = 0;
  virtual LSTATUS RegCloseKey(HKEY key) = 0;
  ///@}
};

/// The machine's names and version, and this process's environment and current directory.
class SystemInformation {
 public:
  virtual ~SystemInformation() = default;
  /// As the function of Windows with this name: its arguments, its results and its error codes.
  ///@{
  virtual BOOL GetComputerNameW(LPWSTR name, DWORD* characters) = 0;
  virtual BOOL GetComputerNameExW(COMPUTER_NAME_FORMAT format, LPWSTR name, DWORD* characters) = 0;
  virtual UINT GetSystemDirectoryW(LPWSTR directory, UINT characters) = 0;
  /// The characters written or needed, the NUL included; 0 is a failure.
  virtual DWORD ExpandEnvironmentStringsW(LPCWSTR source, LPWSTR target, DWORD characters) = 0;
  /// The characters written without the NUL, or with too little room those needed with it; 0 for an empty value and,
  /// with ERROR_ENVVAR_NOT_FOUND, for none.
  virtual DWORD GetEnvironmentVariableW(LPCWSTR name, LPWSTR value, DWORD characters) = 0;
  /// A null value takes the variable away.
  virtual BOOL SetEnvironmentVariableW(LPCWSTR name, LPCWSTR value) = 0;
  /// The characters written without the NUL, or with too little room those needed with it; 0 is a failure.
  virtual DWORD GetCurrentDirectoryW(DWORD characters, LPWSTR directory) = 0;
  virtual BOOL SetCurrentDirectoryW(LPCWSTR directory) = 0;
  virtual BOOL VerifyVersionInfoW(OSVERSIONINFOEXW* version, DWORD typeMask, DWORDLONG conditionMask) = 0;
  virtual ULONGLONG VerSetConditionMask(ULONGLONG conditionMask, DWORD typeMask, BYTE condition) = 0;
  ///@}
};

/// Message tables, modules and their string tables.
class Messages {
 public:
  virtual ~Messages() = default;
  /// As the function of Windows with this name: its arguments, its results and its error codes.
  ///@{
  /// With FORMAT_MESSAGE_ALLOCATE_BUFFER, `text` points at the pointer to set, cast as on Windows.
  virtual DWORD FormatMessageW(DWORD flags, const void* source, DWORD id, DWORD language, LPWSTR text, DWORD characters,
                               void* arguments) = 0;
  virtual void LocalFree(void* block) = 0;
  /// A module of the system directory; nothing is searched for elsewhere.
  virtual HMODULE LoadLibraryW(LPCWSTR name) = 0;
  virtual BOOL FreeLibrary(HMODULE module) = 0;
  virtual BOOL GetModuleHandleExW(DWORD flags, LPCWSTR name, HMODULE* module) = 0;
  virtual int LoadStringW(HMODULE module, UINT id, LPWSTR text, int characters) = 0;
  ///@}
};

/// The iSCSI initiator. Functions return their Win32 or ISDSC_ code.
class IscsiInitiator {
 public:
  virtual ~IscsiInitiator() = default;
  /// As the function of Windows with this name: its arguments, its results and its error codes.
  ///@{
  virtual DWORD GetIScsiSessionListW(ULONG* bytes, ULONG* sessions, iscsi::SessionInfo* list) = 0;
  virtual DWORD GetDevicesForIScsiSessionW(iscsi::UniqueSessionId* session, ULONG* devices,
                                           iscsi::DeviceOnSession* list) = 0;
  virtual DWORD LogoutIScsiTarget(iscsi::UniqueSessionId* session) = 0;
  ///@}
};

/// The failover cluster as this node sees it.
class Cluster {
 public:
  virtual ~Cluster() = default;
  /// As the function of Windows with this name: its arguments, its results and its error codes.
  ///@{
  /// `state`: 0 no cluster software, 1 not configured, 3 not running, 0x13 running.
  virtual DWORD GetNodeClusterState(LPCWSTR node, DWORD* state) = 0;
  virtual BOOL ClusterIsPathOnSharedVolume(LPCWSTR path) = 0;
  ///@}
};

/// One disk of the WMI class MSFT_Disk.
struct WmiDisk {
  /// The property of MSFT_Disk with this name.
  ///@{
  DWORD number = 0;
  std::wstring serialNumber;
  std::wstring manufacturer;
  bool isSystem = false;
  bool isClustered = false;
  ///@}
};

/// Disks as WMI lists them.
class WmiDisks {
 public:
  virtual ~WmiDisks() = default;
  /// As the function of Windows with this name: its arguments, its results and its error codes.
  ///@{
  /// Every MSFT_Disk instance in the class's order; on failure `disks` is empty.
  virtual HRESULT QueryDisks(std::vector<WmiDisk>& disks) = 0;
  ///@}
};

/// Version resources of files.
class FileVersions {
 public:
  virtual ~FileVersions() = default;
  /// As the function of Windows with this name: its arguments, its results and its error codes.
  ///@{
  /// The fixed version resource of a file: GetFileVersionInfoSizeW, GetFileVersionInfoW and VerQueryValueW in one.
  virtual BOOL GetFileVersion(LPCWSTR path, VS_FIXEDFILEINFO* version) = 0;
  ///@}
};

/// The C runtime's heap, for buffers whose size the machine names: a request for one may fail.
class Heap {
 public:
  virtual ~Heap() = default;
  /// Null only when there is no memory, also for 0 bytes.
  virtual void* Malloc(std::size_t bytes) = 0;
  /// Takes a block of Malloc back; null is none.
  virtual void Free(void* block) = 0;
};

/// The clock, and waiting for it.
class Time {
 public:
  virtual ~Time() = default;
  /// As the function of Windows with this name: its arguments, its results and its error codes.
  ///@{
  virtual void Sleep(DWORD milliseconds) = 0;
  virtual ULONGLONG GetTickCount64() = 0;
  /// UTC.
  virtual void GetSystemTimeAsFileTime(FILETIME* time) = 0;
  ///@}
};

/// The array's metadata service, which knows which databases a protection set holds. Texts are UTF-8.
class MetadataService {
 public:
  virtual ~MetadataService() = default;
  /// Fills `databases` and answers true, or fills `error` and answers false.
  virtual bool FindDatabasesToQuiesce(const std::string& serialNumber, std::string& databases, std::string& error) = 0;
  /// The network name under which the cluster knows `name`. Throws std::runtime_error when there is none.
  virtual std::string GetClusterName(const std::string& name) = 0;
};

/// The event log: what its channels hold, and sources that write to it. Each handle of the Evt functions is given back
/// to EvtClose.
class EventLog {
 public:
  virtual ~EventLog() = default;
  /// As the function of Windows with this name: its arguments, its results and its error codes.
  ///@{
  /// Null when it fails. With 0 as the last error this machine has no event log that could be read: nothing else of the
  /// Evt functions may be called then.
  virtual EVT_HANDLE EvtQuery(EVT_HANDLE session, LPCWSTR path, LPCWSTR query, DWORD flags) = 0;
  virtual BOOL EvtNext(EVT_HANDLE results, DWORD count, EVT_HANDLE* events, DWORD milliseconds, DWORD flags,
                       DWORD* returned) = 0;
  /// Sizes are in bytes.
  virtual BOOL EvtRender(EVT_HANDLE context, EVT_HANDLE event, DWORD flags, DWORD bytes, void* buffer, DWORD* used,
                         DWORD* properties) = 0;
  virtual EVT_HANDLE EvtOpenPublisherMetadata(EVT_HANDLE session, LPCWSTR publisher, LPCWSTR logFile, DWORD locale,
                                              DWORD flags) = 0;
  /// Sizes are in characters, with the NUL.
  virtual BOOL EvtFormatMessage(EVT_HANDLE publisher, EVT_HANDLE event, DWORD message, DWORD count, EVT_VARIANT* values,
                                DWORD flags, DWORD characters, LPWSTR buffer, DWORD* used) = 0;
  virtual BOOL EvtClose(EVT_HANDLE object) = 0;
  /// A source that no log knows writes to Application.
  virtual HANDLE RegisterEventSourceW(LPCWSTR server, LPCWSTR source) = 0;
  virtual BOOL ReportEventW(HANDLE log, WORD type, WORD category, DWORD id, void* user, WORD count, DWORD dataBytes,
                            LPCWSTR* texts, void* data) = 0;
  virtual BOOL DeregisterEventSource(HANDLE log) = 0;
  ///@}
};

/// The services of Windows, asked and not changed. Each handle is given back to CloseServiceHandle.
class ServiceManager {
 public:
  virtual ~ServiceManager() = default;
  /// As the function of Windows with this name: its arguments, its results and its error codes.
  ///@{
  virtual SC_HANDLE OpenSCManagerW(LPCWSTR machine, LPCWSTR database, DWORD access) = 0;
  virtual SC_HANDLE OpenServiceW(SC_HANDLE manager, LPCWSTR name, DWORD access) = 0;
  /// `bytes` is the size of what `configuration` points to, texts included.
  virtual BOOL QueryServiceConfigW(SC_HANDLE service, QUERY_SERVICE_CONFIGW* configuration, DWORD bytes,
                                   DWORD* needed) = 0;
  virtual BOOL QueryServiceStatus(SC_HANDLE service, SERVICE_STATUS* status) = 0;
  virtual BOOL CloseServiceHandle(SC_HANDLE handle) = 0;
  ///@}
};

/// What this process may do, and what it lets others do.
class ProcessSecurity {
 public:
  virtual ~ProcessSecurity() = default;
  /// As the function of Windows with this name: its arguments, its results and its error codes.
  ///@{
  /// Whether its token is elevated: OpenProcessToken and GetTokenInformation in one.
  virtual BOOL GetTokenElevation(BOOL* elevated) = 0;
  /// Whether it is a 32-bit process of a 64-bit Windows.
  virtual BOOL IsWow64Process(BOOL* wow64) = 0;
  /// Once for the process, before its first call through COM.
  virtual HRESULT CoInitializeSecurity(void* descriptor, LONG services, void* list, DWORD authentication,
                                       DWORD impersonation, void* authenticationList, DWORD capabilities) = 0;
  ///@}
};

/// The room on volumes.
class VolumeSpace {
 public:
  virtual ~VolumeSpace() = default;
  /// As the function of Windows with this name: its arguments, its results and its error codes.
  ///@{
  /// `directory` ends in a backslash. Sizes are in bytes.
  virtual BOOL GetDiskFreeSpaceExW(LPCWSTR directory, ULARGE_INTEGER* freeToCaller, ULARGE_INTEGER* size,
                                   ULARGE_INTEGER* free) = 0;
  ///@}
};

/// One machine: the one the process runs on, or a simulated one.
class Host {
 public:
  /// For the hosts themselves.
  Host() = default;
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;
  virtual ~Host() = default;
  /// What answers questions of this kind; the host's own, as long as it lives.
  ///@{
  virtual VssService& vss() = 0;
  virtual Storage& storage() = 0;
  virtual Processes& processes() = 0;
  virtual Registry& registry() = 0;
  virtual SystemInformation& system() = 0;
  virtual Messages& messages() = 0;
  virtual IscsiInitiator& iscsi() = 0;
  virtual Cluster& cluster() = 0;
  virtual WmiDisks& wmi() = 0;
  virtual FileVersions& files() = 0;
  virtual Heap& heap() = 0;
  virtual Time& time() = 0;
  virtual MetadataService& metadata() = 0;
  virtual EventLog& eventLog() = 0;
  virtual ServiceManager& services() = 0;
  virtual ProcessSecurity& security() = 0;
  virtual VolumeSpace& space() = 0;
  ///@}
  /// The last error of the calling thread on this host.
  virtual DWORD GetLastError() = 0;

  /// For those who keep what the host handed out: expires with the host.
  std::weak_ptr<Host> Reference() const noexcept { return reference_; }

 private:
  const std::shared_ptr<Host> reference_{this, [](Host*) {}};
};

/// Thrown where a machine is needed and none is installed (only possible outside Windows).
class NoHostError : public std::logic_error {
 public:
  /// Says what to install.
  NoHostError()
      : std::logic_error("no host: this platform has no Volume Shadow Copy service; install a simulated host first") {}
};

/// The process's current host, the same for every thread: on Windows the machine itself until another is installed.
/// Throws NoHostError without one.
VARNEL_API Host& CurrentHost();
/// The same, null without one. For paths that may not throw.
VARNEL_API Host* CurrentHostOrNull() noexcept;
/// The current host's last error, ERROR_GEN_FAILURE in place of 0.
inline DWORD LastErrorOrGeneric() {
  const DWORD code = CurrentHost().GetLastError();
  return code == ERROR_SUCCESS ? ERROR_GEN_FAILURE : code;
}

/// Installs a host for its lifetime and puts the one before it back. The host must outlive the guard. Belongs where no
/// other thread installs one or works on the current one.
class VARNEL_API ScopedHost {
 public:
  /// Borrows `host`.
  explicit ScopedHost(Host& host) noexcept;
  ~ScopedHost();
  ScopedHost(const ScopedHost&) = delete;
  ScopedHost& operator=(const ScopedHost&) = delete;

 private:
  Host* previous_;
};

/// The machine's own host; each platform's back end defines it. Null where there is none.
VARNEL_API Host* MachineHost() noexcept;

}  // namespace varnel
