#include <cstdlib>

#include "platform/windows/catalog_module.h"
#include "platform/windows/machine_services.h"
#include "platform/windows/system_library.h"

namespace varnel {
namespace {

class MachineStorage final : public Storage {
 public:
  HANDLE CreateFileW(LPCWSTR name, DWORD access, DWORD share, void* security, DWORD disposition, DWORD flags,
                     HANDLE templateFile) override {
    return ::CreateFileW(name, access, share, static_cast<SECURITY_ATTRIBUTES*>(security), disposition, flags,
                         templateFile);
  }
  BOOL DeviceIoControl(HANDLE device, DWORD code, void* in, DWORD inBytes, void* out, DWORD outBytes, DWORD* returned,
                       void* overlapped) override {
    return ::DeviceIoControl(device, code, in, inBytes, out, outBytes, returned, static_cast<OVERLAPPED*>(overlapped));
  }
  BOOL CloseHandle(HANDLE handle) override { return ::CloseHandle(handle); }
  BOOL GetVolumePathNameW(LPCWSTR path, LPWSTR mountPoint, DWORD characters) override {
    return ::GetVolumePathNameW(path, mountPoint, characters);
  }
  BOOL GetVolumeNameForVolumeMountPointW(LPCWSTR mountPoint, LPWSTR volumeName, DWORD characters) override {
    return ::GetVolumeNameForVolumeMountPointW(mountPoint, volumeName, characters);
  }
  HANDLE FindFirstVolumeW(LPWSTR volumeName, DWORD characters) override {
    return ::FindFirstVolumeW(volumeName, characters);
  }
  BOOL FindNextVolumeW(HANDLE search, LPWSTR volumeName, DWORD characters) override {
    return ::FindNextVolumeW(search, volumeName, characters);
  }
  BOOL FindVolumeClose(HANDLE search) override { return ::FindVolumeClose(search); }
  BOOL GetVolumePathNamesForVolumeNameW(LPCWSTR volumeName, LPWSTR names, DWORD characters, DWORD* needed) override {
    return ::GetVolumePathNamesForVolumeNameW(volumeName, names, characters, needed);
  }
};

class MachineProcesses final : public Processes {
 public:
  BOOL CreateProcessW(LPCWSTR application, LPWSTR commandLine, void* processSecurity, void* threadSecurity,
                      BOOL inheritHandles, DWORD flags, void* environment, LPCWSTR directory, STARTUPINFOW* startup,
                      PROCESS_INFORMATION* process) override {
    return ::CreateProcessW(application, commandLine, static_cast<SECURITY_ATTRIBUTES*>(processSecurity),
                            static_cast<SECURITY_ATTRIBUTES*>(threadSecurity), inheritHandles, flags, environment,
                            directory, startup, process);
  }
  DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) override {
    return ::WaitForSingleObject(handle, milliseconds);
  }
  BOOL GetExitCodeProcess(HANDLE process, DWORD* exitCode) override { return ::GetExitCodeProcess(process, exitCode); }
  BOOL CloseHandle(HANDLE handle) override { return ::CloseHandle(handle); }
  DWORD SearchPathW(LPCWSTR path, LPCWSTR file, LPCWSTR extension, DWORD characters, LPWSTR found,
                    LPWSTR* filePart) override {
    return ::SearchPathW(path, file, extension, characters, found, filePart);
  }
  DWORD GetCurrentProcessId() override { return ::GetCurrentProcessId(); }
};

class MachineRegistry final : public Registry {
 public:
  LSTATUS RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM access, HKEY* result) override {
    return ::RegOpenKeyExW(key, subKey, options, access, result);
  }
  LSTATUS RegQueryInfoKeyW(HKEY key, LPWSTR className, DWORD* classCharacters, DWORD* reserved, DWORD* subKeys,
                           DWORD* maxSubKeyLength, DWORD* maxClassLength, DWORD* values, DWORD* maxValueNameLength,
                           DWORD* maxValueBytes, DWORD* securityDescriptorBytes, FILETIME* lastWrite) override {
    return ::RegQueryInfoKeyW(key, className, classCharacters, reserved, subKeys, maxSubKeyLength, maxClassLength,
                              values, maxValueNameLength, maxValueBytes, securityDescriptorBytes, lastWrite);
  }
  LSTATUS RegEnumKeyExW(HKEY key, DWORD index, LPWSTR name, DWORD* characters, DWORD* reserved, LPWSTR className,
                        DWORD* classCharacters, FILETIME* lastWrite) override {
    return ::RegEnumKeyExW(key, index, name, characters, reserved, className, classCharacters, lastWrite);
  }
  LSTATUS RegGetValueW(HKEY key, LPCWSTR subKey, LPCWSTR value, DWORD flags, DWORD* type, void* data,
                       DWORD* bytes) override {
    return ::RegGetValueW(key, subKey, value, flags, type, data, bytes);
  }
  LSTATUS RegCloseKey(HKEY key) override { return ::RegCloseKey(key); }
};

class MachineSystemInformation final : public SystemInformation {
 public:
  BOOL GetComputerNameW(LPWSTR name, DWORD* characters) override { return ::GetComputerNameW(name, characters); }
  BOOL GetComputerNameExW(COMPUTER_NAME_FORMAT format, LPWSTR name, DWORD* characters) override {
    return ::GetComputerNameExW(format, name, characters);
  }
  UINT GetSystemDirectoryW(LPWSTR directory, UINT characters) override {
    return ::GetSystemDirectoryW(directory, characters);
  }
  DWORD ExpandEnvironmentStringsW(LPCWSTR source, LPWSTR target, DWORD characters) override {
    return ::ExpandEnvironmentStringsW(source, target, characters);
  }
  DWORD GetEnvironmentVariableW(LPCWSTR name, LPWSTR value, DWORD characters) override {
    return ::GetEnvironmentVariableW(name, value, characters);
  }
  BOOL SetEnvironmentVariableW(LPCWSTR name, LPCWSTR value) override { return ::SetEnvironmentVariableW(name, value); }
  DWORD GetCurrentDirectoryW(DWORD characters, LPWSTR directory) override {
    return ::GetCurrentDirectoryW(characters, directory);
  }
  BOOL SetCurrentDirectoryW(LPCWSTR directory) override { return ::SetCurrentDirectoryW(directory); }
  BOOL VerifyVersionInfoW(OSVERSIONINFOEXW* version, DWORD typeMask, DWORDLONG conditionMask) override {
    return ::VerifyVersionInfoW(version, typeMask, conditionMask);
  }
  ULONGLONG VerSetConditionMask(ULONGLONG conditionMask, DWORD typeMask, BYTE condition) override {
    return ::VerSetConditionMask(conditionMask, typeMask, condition);
  }
};

class MachineMessages final : public Messages {
 public:
  DWORD FormatMessageW(DWORD flags, const void* source, DWORD id, DWORD language, LPWSTR text, DWORD characters,
                       void* arguments) override {
    return ::FormatMessageW(flags, source, id, language, text, characters, static_cast<va_list*>(arguments));
  }
  void LocalFree(void* block) override { ::LocalFree(block); }
  HMODULE LoadLibraryW(LPCWSTR name) override { return windows::LoadSystemLibrary(name); }
  BOOL FreeLibrary(HMODULE module) override { return ::FreeLibrary(module); }
  BOOL GetModuleHandleExW(DWORD flags, LPCWSTR name, HMODULE* module) override {
    return windows::FindCatalogModule(flags, name, module);
  }
  int LoadStringW(HMODULE module, UINT id, LPWSTR text, int characters) override {
    return ::LoadStringW(module, id, text, characters);
  }
};

class MachineHeap final : public Heap {
 public:
  void* Malloc(std::size_t bytes) override { return std::malloc(bytes == 0 ? 1 : bytes); }
  void Free(void* block) override { std::free(block); }
};

class MachineTime final : public Time {
 public:
  void Sleep(DWORD milliseconds) override { ::Sleep(milliseconds); }
  ULONGLONG GetTickCount64() override { return ::GetTickCount64(); }
  void GetSystemTimeAsFileTime(FILETIME* time) override { ::GetSystemTimeAsFileTime(time); }
};

// The service is reached through the array's own bridge library, which this build does not have.
class MachineMetadata final : public MetadataService {
 public:
  bool FindDatabasesToQuiesce(const std::string& /*serialNumber*/, std::string& /*databases*/,
                              std::string& error) override {
    error = kNotAvailable;
    return false;
  }
  std::string GetClusterName(const std::string& /*name*/) override { throw std::runtime_error(kNotAvailable); }

 private:
  static constexpr char kNotAvailable[] = "the array's metadata service is not available on this machine";
};

class MachineServices final : public ServiceManager {
 public:
  SC_HANDLE OpenSCManagerW(LPCWSTR machine, LPCWSTR database, DWORD access) override {
    return ::OpenSCManagerW(machine, database, access);
  }
  SC_HANDLE OpenServiceW(SC_HANDLE manager, LPCWSTR name, DWORD access) override {
    return ::OpenServiceW(manager, name, access);
  }
  BOOL QueryServiceConfigW(SC_HANDLE service, QUERY_SERVICE_CONFIGW* configuration, DWORD bytes,
                           DWORD* needed) override {
    return ::QueryServiceConfigW(service, configuration, bytes, needed);
  }
  BOOL QueryServiceStatus(SC_HANDLE service, SERVICE_STATUS* status) override {
    return ::QueryServiceStatus(service, status);
  }
  BOOL CloseServiceHandle(SC_HANDLE handle) override { return ::CloseServiceHandle(handle); }
};

class MachineSecurity final : public ProcessSecurity {
 public:
  BOOL GetTokenElevation(BOOL* elevated) override {
    HANDLE token = nullptr;
    if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token)) return FALSE;
    TOKEN_ELEVATION elevation{};
    DWORD bytes = 0;
    const BOOL told = ::GetTokenInformation(token, TokenElevation, &elevation, sizeof elevation, &bytes);
    const DWORD error = ::GetLastError();
    ::CloseHandle(token);
    *elevated = elevation.TokenIsElevated != 0;
    if (!told) ::SetLastError(error);
    return told;
  }
  BOOL IsWow64Process(BOOL* wow64) override { return ::IsWow64Process(::GetCurrentProcess(), wow64); }
  HRESULT CoInitializeSecurity(void* descriptor, LONG services, void* list, DWORD authentication, DWORD impersonation,
                               void* authenticationList, DWORD capabilities) override {
    return ::CoInitializeSecurity(descriptor, services, static_cast<SOLE_AUTHENTICATION_SERVICE*>(list), nullptr,
                                  authentication, impersonation, authenticationList, capabilities, nullptr);
  }
};

class MachineSpace final : public VolumeSpace {
 public:
  BOOL GetDiskFreeSpaceExW(LPCWSTR directory, ULARGE_INTEGER* freeToCaller, ULARGE_INTEGER* size,
                           ULARGE_INTEGER* free) override {
    return ::GetDiskFreeSpaceExW(directory, freeToCaller, size, free);
  }
};

class Machine final : public Host {
 public:
  VssService& vss() override { return windows::MachineVss(); }
  Storage& storage() override { return storage_; }
  Processes& processes() override { return processes_; }
  Registry& registry() override { return registry_; }
  SystemInformation& system() override { return system_; }
  Messages& messages() override { return messages_; }
  IscsiInitiator& iscsi() override { return windows::MachineIscsi(); }
  Cluster& cluster() override { return windows::MachineCluster(); }
  WmiDisks& wmi() override { return windows::MachineWmi(); }
  FileVersions& files() override { return windows::MachineFiles(); }
  Heap& heap() override { return heap_; }
  Time& time() override { return time_; }
  MetadataService& metadata() override { return metadata_; }
  EventLog& eventLog() override { return windows::MachineEventLog(); }
  ServiceManager& services() override { return services_; }
  ProcessSecurity& security() override { return security_; }
  VolumeSpace& space() override { return space_; }
  DWORD GetLastError() override { return ::GetLastError(); }

 private:
  MachineStorage storage_;
  MachineProcesses processes_;
  MachineRegistry registry_;
  MachineSystemInformation system_;
  MachineMessages messages_;
  MachineHeap heap_;
  MachineTime time_;
  MachineMetadata metadata_;
  MachineServices services_;
  MachineSecurity security_;
  MachineSpace space_;
};

}  // namespace

Host* MachineHost() noexcept {
  static Machine machine;
  return &machine;
}

}  // namespace varnel
