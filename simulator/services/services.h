// The answers of a simulated host, one class per question of platform/host.h.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/host.h"
#include "simulator/machine/handles.h"
#include "simulator/machine/machine.h"
#include "simulator/machine/volumes.h"

namespace varnel::simulator {

/// What a handle that CloseHandle closes stands for.
struct KernelObject {
  enum class Kind { device, process, thread };
  Kind kind = Kind::device;
  std::wstring name;  // for the call log
  DWORD diskNumber = 0;
  DWORD partition = 0;  // 0: the whole disk
  DWORD exitCode = 0;
};

/// File, process and thread handles share CloseHandle.
class KernelObjects {
 public:
  explicit KernelObjects(Machine& machine) : machine_(machine), handles_(machine, 0x1000) {}
  HANDLE Open(KernelObject object);
  /// Null for a handle that is not open or stands for something else.
  const KernelObject* Find(HANDLE handle, KernelObject::Kind kind);
  /// A close that the fault plan makes fail has closed the handle all the same: no caller can do more.
  BOOL CloseHandle(HANDLE handle);
  std::string Describe(HANDLE handle);

 private:
  Machine& machine_;
  HandleTable<KernelObject> handles_;
};

class SimulatedVss final : public VssService {
 public:
  explicit SimulatedVss(std::shared_ptr<Machine> machine) : machine_(std::move(machine)) {}
  HRESULT CreateVssBackupComponents(IVssBackupComponents** backup) override;
  HRESULT CoCreateInstance(REFCLSID classId, IUnknown* outer, DWORD context, REFIID interfaceId,
                           void** object) override;
  void VssFreeSnapshotProperties(VSS_SNAPSHOT_PROP* properties) override;
  BSTR SysAllocStringLen(const wchar_t* text, UINT length) override;
  void SysFreeString(BSTR text) override;
  void CoTaskMemFree(void* block) override;

 private:
  std::shared_ptr<Machine> machine_;
};

class SimulatedStorage final : public Storage {
 public:
  SimulatedStorage(Machine& machine, KernelObjects& objects)
      : machine_(machine), objects_(objects), searches_(machine, 0x1001) {}
  HANDLE CreateFileW(LPCWSTR name, DWORD access, DWORD share, void* security, DWORD disposition, DWORD flags,
                     HANDLE templateFile) override;
  BOOL DeviceIoControl(HANDLE device, DWORD code, void* in, DWORD inBytes, void* out, DWORD outBytes, DWORD* returned,
                       void* overlapped) override;
  BOOL CloseHandle(HANDLE handle) override { return objects_.CloseHandle(handle); }
  BOOL GetVolumePathNameW(LPCWSTR path, LPWSTR mountPoint, DWORD characters) override;
  BOOL GetVolumeNameForVolumeMountPointW(LPCWSTR mountPoint, LPWSTR volumeName, DWORD characters) override;
  HANDLE FindFirstVolumeW(LPWSTR volumeName, DWORD characters) override;
  BOOL FindNextVolumeW(HANDLE search, LPWSTR volumeName, DWORD characters) override;
  BOOL FindVolumeClose(HANDLE search) override;
  BOOL GetVolumePathNamesForVolumeNameW(LPCWSTR volumeName, LPWSTR names, DWORD characters, DWORD* needed) override;

 private:
  struct VolumeSearch {
    std::vector<std::wstring> names;
    std::size_t next = 0;
  };

  HANDLE OpenDevice(std::wstring_view name);
  std::optional<KernelObject> FindDevice(std::wstring_view name) const;
  BOOL NextVolume(VolumeSearch& search, LPWSTR volumeName, DWORD characters);
  BOOL QueryProperty(const DiskView& disk, const void* in, DWORD inBytes, void* out, DWORD outBytes, DWORD* returned);
  BOOL Control(const KernelObject& device, DWORD code, const void* in, DWORD inBytes, void* out, DWORD outBytes,
               DWORD* returned);
  BOOL Fail(DWORD error);
  BOOL Give(std::wstring_view text, LPWSTR buffer, DWORD characters);
  BOOL Give(const void* record, std::size_t bytes, void* out, DWORD outBytes, DWORD* returned);

  Machine& machine_;
  KernelObjects& objects_;
  HandleTable<VolumeSearch> searches_;
};

class SimulatedProcesses final : public Processes {
 public:
  SimulatedProcesses(Machine& machine, KernelObjects& objects) : machine_(machine), objects_(objects) {}
  BOOL CreateProcessW(LPCWSTR application, LPWSTR commandLine, void* processSecurity, void* threadSecurity,
                      BOOL inheritHandles, DWORD flags, void* environment, LPCWSTR directory, STARTUPINFOW* startup,
                      PROCESS_INFORMATION* process) override;
  DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) override;
  BOOL GetExitCodeProcess(HANDLE process, DWORD* exitCode) override;
  BOOL CloseHandle(HANDLE handle) override { return objects_.CloseHandle(handle); }

 private:
  BOOL Start(LPCWSTR commandLine, PROCESS_INFORMATION* process);

  Machine& machine_;
  KernelObjects& objects_;
  DWORD nextProcessId_ = 1000;
};

class SimulatedRegistry final : public Registry {
 public:
  explicit SimulatedRegistry(Machine& machine) : machine_(machine), keys_(machine, 0x1002) {}
  LSTATUS RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM access, HKEY* result) override;
  LSTATUS RegQueryInfoKeyW(HKEY key, LPWSTR className, DWORD* classCharacters, DWORD* reserved, DWORD* subKeys,
                           DWORD* maxSubKeyLength, DWORD* maxClassLength, DWORD* values, DWORD* maxValueNameLength,
                           DWORD* maxValueBytes, DWORD* securityDescriptorBytes, FILETIME* lastWrite) override;
  LSTATUS RegEnumKeyExW(HKEY key, DWORD index, LPWSTR name, DWORD* characters, DWORD* reserved, LPWSTR className,
                        DWORD* classCharacters, FILETIME* lastWrite) override;
  LSTATUS RegGetValueW(HKEY key, LPCWSTR subKey, LPCWSTR value, DWORD flags, DWORD* type, void* data,
                       DWORD* bytes) override;
  LSTATUS RegCloseKey(HKEY key) override;

 private:
  std::optional<std::wstring> PathOf(HKEY key, LPCWSTR subKey);
  bool Exists(std::wstring_view path) const;
  std::vector<std::wstring> SubKeys(std::wstring_view path) const;
  const std::map<std::wstring, std::wstring>* Values(std::wstring_view path) const;
  const std::wstring* ValueAt(std::wstring_view path, LPCWSTR value) const;
  std::string Describe(HKEY key, LPCWSTR subKey);

  Machine& machine_;
  HandleTable<std::wstring> keys_;  // the full path of each open key
};

class SimulatedSystem final : public SystemInformation {
 public:
  explicit SimulatedSystem(Machine& machine) : machine_(machine) {}
  BOOL GetComputerNameW(LPWSTR name, DWORD* characters) override;
  UINT GetSystemDirectoryW(LPWSTR directory, UINT characters) override;
  DWORD ExpandEnvironmentStringsW(LPCWSTR source, LPWSTR target, DWORD characters) override;
  BOOL VerifyVersionInfoW(OSVERSIONINFOEXW* version, DWORD typeMask, DWORDLONG conditionMask) override;
  ULONGLONG VerSetConditionMask(ULONGLONG conditionMask, DWORD typeMask, BYTE condition) override;

 private:
  Machine& machine_;
};

class SimulatedMessages final : public Messages {
 public:
  explicit SimulatedMessages(Machine& machine) : machine_(machine) {}
  DWORD FormatMessageW(DWORD flags, const void* source, DWORD id, DWORD language, LPWSTR text, DWORD characters,
                       void* arguments) override;
  void LocalFree(void* block) override;
  HMODULE LoadLibraryW(LPCWSTR name) override;
  BOOL FreeLibrary(HMODULE module) override;
  BOOL GetModuleHandleExW(DWORD flags, LPCWSTR name, HMODULE* module) override;
  int LoadStringW(HMODULE module, UINT id, LPWSTR text, int characters) override;

 private:
  const std::wstring* FindMessage(DWORD flags, const void* source, DWORD id) const;
  DWORD Deliver(std::wstring_view message, DWORD flags, LPWSTR text, DWORD characters);
  bool IsLoaded(const void* module) const;
  HMODULE AddReference(std::uintptr_t module);

  Machine& machine_;
  std::map<std::uintptr_t, int> references_;  // loaded modules
};

class SimulatedIscsi final : public IscsiInitiator {
 public:
  explicit SimulatedIscsi(Machine& machine) : machine_(machine) {}
  DWORD GetIScsiSessionListW(ULONG* bytes, ULONG* sessions, iscsi::SessionInfo* list) override;
  DWORD GetDevicesForIScsiSessionW(iscsi::UniqueSessionId* session, ULONG* devices,
                                   iscsi::DeviceOnSession* list) override;
  DWORD LogoutIScsiTarget(iscsi::UniqueSessionId* session) override;

 private:
  // What has happened to a session of the model so far.
  struct SessionState {
    int busyAnswers = 0;
    int failedLogouts = 0;
    int queries = 0;  // of its devices
    bool loggedOut = false;
  };
  struct Session {
    const IscsiSession* model;
    SessionState* state;
    iscsi::UniqueSessionId id;
  };

  std::vector<Session> Sessions();
  std::optional<Session> Find(const iscsi::UniqueSessionId* id);
  std::string TargetOf(const iscsi::UniqueSessionId* id);
  std::vector<DWORD> DisksOf(const Session& session) const;

  Machine& machine_;
  int lists_ = 0;                     // session lists that were asked for
  std::vector<SessionState> states_;  // by index in the model
};

class SimulatedCluster final : public Cluster {
 public:
  explicit SimulatedCluster(Machine& machine) : machine_(machine) {}
  DWORD GetNodeClusterState(LPCWSTR node, DWORD* state) override;
  BOOL ClusterIsPathOnSharedVolume(LPCWSTR path) override;

 private:
  Machine& machine_;
};

class SimulatedWmiDisks final : public WmiDisks {
 public:
  explicit SimulatedWmiDisks(Machine& machine) : machine_(machine) {}
  HRESULT QueryDisks(std::vector<WmiDisk>& disks) override;

 private:
  Machine& machine_;
};

class SimulatedFileVersions final : public FileVersions {
 public:
  explicit SimulatedFileVersions(Machine& machine) : machine_(machine) {}
  BOOL GetFileVersion(LPCWSTR path, VS_FIXEDFILEINFO* version) override;

 private:
  Machine& machine_;
};

/// Blocks are counted; the fault plan's call "malloc" makes a request fail.
class SimulatedHeap final : public Heap {
 public:
  explicit SimulatedHeap(Machine& machine) : machine_(machine) {}
  void* Malloc(std::size_t bytes) override;
  void Free(void* block) override;

 private:
  Machine& machine_;
};

/// The virtual clock.
class SimulatedTime final : public Time {
 public:
  explicit SimulatedTime(Machine& machine) : machine_(machine) {}
  void Sleep(DWORD milliseconds) override;
  ULONGLONG GetTickCount64() override { return machine_.now; }

 private:
  Machine& machine_;
};

class SimulatedMetadataService final : public MetadataService {
 public:
  explicit SimulatedMetadataService(Machine& machine) : machine_(machine) {}
  bool FindDatabasesToQuiesce(const std::string& serialNumber, std::string& databases, std::string& error) override;
  std::string GetClusterName(const std::string& name) override;

 private:
  Machine& machine_;
};

}  // namespace varnel::simulator
