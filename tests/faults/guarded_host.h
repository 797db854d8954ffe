// A simulated host for a program whose memory fails: none of its answers fails for want of memory, because the host is
// not under test.
#pragma once

#include <string>
#include <vector>

#include "platform/host.h"
#include "platform/tessel/log_sink.h"
#include "simulator/simulated_host.h"
#include "tests/faults/failing_memory.h"
#include "tests/faults/guarded_vss.h"
#include "tests/support/forwarding_host.h"

namespace varnel::test {

class GuardedStorage final : public ForwardingStorage {
 public:
  using ForwardingStorage::ForwardingStorage;
  HANDLE CreateFileW(LPCWSTR name, DWORD access, DWORD share, void* security, DWORD disposition, DWORD flags,
                     HANDLE templateFile) override {
    const memory::Outside outside;
    return ForwardingStorage::CreateFileW(name, access, share, security, disposition, flags, templateFile);
  }
  BOOL DeviceIoControl(HANDLE device, DWORD code, void* in, DWORD inBytes, void* out, DWORD outBytes, DWORD* returned,
                       void* overlapped) override {
    const memory::Outside outside;
    return ForwardingStorage::DeviceIoControl(device, code, in, inBytes, out, outBytes, returned, overlapped);
  }
  BOOL CloseHandle(HANDLE handle) override {
    const memory::Outside outside;
    return ForwardingStorage::CloseHandle(handle);
  }
  BOOL GetVolumePathNameW(LPCWSTR path, LPWSTR mountPoint, DWORD characters) override {
    const memory::Outside outside;
    return ForwardingStorage::GetVolumePathNameW(path, mountPoint, characters);
  }
  BOOL GetVolumeNameForVolumeMountPointW(LPCWSTR mountPoint, LPWSTR volumeName, DWORD characters) override {
    const memory::Outside outside;
    return ForwardingStorage::GetVolumeNameForVolumeMountPointW(mountPoint, volumeName, characters);
  }
  HANDLE FindFirstVolumeW(LPWSTR volumeName, DWORD characters) override {
    const memory::Outside outside;
    return ForwardingStorage::FindFirstVolumeW(volumeName, characters);
  }
  BOOL FindNextVolumeW(HANDLE search, LPWSTR volumeName, DWORD characters) override {
    const memory::Outside outside;
    return ForwardingStorage::FindNextVolumeW(search, volumeName, characters);
  }
  BOOL FindVolumeClose(HANDLE search) override {
    const memory::Outside outside;
    return ForwardingStorage::FindVolumeClose(search);
  }
  BOOL GetVolumePathNamesForVolumeNameW(LPCWSTR volumeName, LPWSTR names, DWORD characters, DWORD* needed) override {
    const memory::Outside outside;
    return ForwardingStorage::GetVolumePathNamesForVolumeNameW(volumeName, names, characters, needed);
  }
};

class GuardedIscsi final : public ForwardingIscsi {
 public:
  using ForwardingIscsi::ForwardingIscsi;
  DWORD GetIScsiSessionListW(ULONG* bytes, ULONG* sessions, iscsi::SessionInfo* list) override {
    const memory::Outside outside;
    return ForwardingIscsi::GetIScsiSessionListW(bytes, sessions, list);
  }
  DWORD GetDevicesForIScsiSessionW(iscsi::UniqueSessionId* session, ULONG* devices,
                                   iscsi::DeviceOnSession* list) override {
    const memory::Outside outside;
    return ForwardingIscsi::GetDevicesForIScsiSessionW(session, devices, list);
  }
  DWORD LogoutIScsiTarget(iscsi::UniqueSessionId* session) override {
    const memory::Outside outside;
    return ForwardingIscsi::LogoutIScsiTarget(session);
  }
};

class GuardedProcesses final : public ForwardingProcesses {
 public:
  using ForwardingProcesses::ForwardingProcesses;
  BOOL CreateProcessW(LPCWSTR application, LPWSTR commandLine, void* processSecurity, void* threadSecurity,
                      BOOL inheritHandles, DWORD flags, void* environment, LPCWSTR directory, STARTUPINFOW* startup,
                      PROCESS_INFORMATION* process) override {
    const memory::Outside outside;
    return ForwardingProcesses::CreateProcessW(application, commandLine, processSecurity, threadSecurity,
                                               inheritHandles, flags, environment, directory, startup, process);
  }
  DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) override {
    const memory::Outside outside;
    return ForwardingProcesses::WaitForSingleObject(handle, milliseconds);
  }
  BOOL GetExitCodeProcess(HANDLE process, DWORD* exitCode) override {
    const memory::Outside outside;
    return ForwardingProcesses::GetExitCodeProcess(process, exitCode);
  }
  BOOL CloseHandle(HANDLE handle) override {
    const memory::Outside outside;
    return ForwardingProcesses::CloseHandle(handle);
  }
  DWORD SearchPathW(LPCWSTR path, LPCWSTR file, LPCWSTR extension, DWORD characters, LPWSTR found,
                    LPWSTR* filePart) override {
    const memory::Outside outside;
    return ForwardingProcesses::SearchPathW(path, file, extension, characters, found, filePart);
  }
};

class GuardedRegistry final : public ForwardingRegistry {
 public:
  using ForwardingRegistry::ForwardingRegistry;
  LSTATUS RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM access, HKEY* result) override {
    const memory::Outside outside;
    return ForwardingRegistry::RegOpenKeyExW(key, subKey, options, access, result);
  }
  LSTATUS RegQueryInfoKeyW(HKEY key, LPWSTR className, DWORD* classCharacters, DWORD* reserved, DWORD* subKeys,
                           DWORD* maxSubKeyLength, DWORD* maxClassLength, DWORD* values, DWORD* maxValueNameLength,
                           DWORD* maxValueBytes, DWORD* securityDescriptorBytes, FILETIME* lastWrite) override {
    const memory::Outside outside;
    return ForwardingRegistry::RegQueryInfoKeyW(key, className, classCharacters, reserved, subKeys, maxSubKeyLength,
                                                maxClassLength, values, maxValueNameLength, maxValueBytes,
                                                securityDescriptorBytes, lastWrite);
  }
  LSTATUS RegEnumKeyExW(HKEY key, DWORD index, LPWSTR name, DWORD* characters, DWORD* reserved, LPWSTR className,
                        DWORD* classCharacters, FILETIME* lastWrite) override {
    const memory::Outside outside;
    return ForwardingRegistry::RegEnumKeyExW(key, index, name, characters, reserved, className, classCharacters,
                                             lastWrite);
  }
  LSTATUS RegGetValueW(HKEY key, LPCWSTR subKey, LPCWSTR value, DWORD flags, DWORD* type, void* data,
                       DWORD* bytes) override {
    const memory::Outside outside;
    return ForwardingRegistry::RegGetValueW(key, subKey, value, flags, type, data, bytes);
  }
  LSTATUS RegCloseKey(HKEY key) override {
    const memory::Outside outside;
    return ForwardingRegistry::RegCloseKey(key);
  }
};

class GuardedCluster final : public ForwardingCluster {
 public:
  using ForwardingCluster::ForwardingCluster;
  DWORD GetNodeClusterState(LPCWSTR node, DWORD* state) override {
    const memory::Outside outside;
    return ForwardingCluster::GetNodeClusterState(node, state);
  }
  BOOL ClusterIsPathOnSharedVolume(LPCWSTR path) override {
    const memory::Outside outside;
    return ForwardingCluster::ClusterIsPathOnSharedVolume(path);
  }
};

class GuardedSystem final : public SystemInformation {
 public:
  explicit GuardedSystem(SystemInformation& inner) : inner_(inner) {}
  BOOL GetComputerNameW(LPWSTR name, DWORD* characters) override {
    const memory::Outside outside;
    return inner_.GetComputerNameW(name, characters);
  }
  BOOL GetComputerNameExW(COMPUTER_NAME_FORMAT format, LPWSTR name, DWORD* characters) override {
    const memory::Outside outside;
    return inner_.GetComputerNameExW(format, name, characters);
  }
  UINT GetSystemDirectoryW(LPWSTR directory, UINT characters) override {
    const memory::Outside outside;
    return inner_.GetSystemDirectoryW(directory, characters);
  }
  DWORD ExpandEnvironmentStringsW(LPCWSTR source, LPWSTR target, DWORD characters) override {
    const memory::Outside outside;
    return inner_.ExpandEnvironmentStringsW(source, target, characters);
  }
  DWORD GetEnvironmentVariableW(LPCWSTR name, LPWSTR value, DWORD characters) override {
    const memory::Outside outside;
    return inner_.GetEnvironmentVariableW(name, value, characters);
  }
  BOOL SetEnvironmentVariableW(LPCWSTR name, LPCWSTR value) override {
    const memory::Outside outside;
    return inner_.SetEnvironmentVariableW(name, value);
  }
  DWORD GetCurrentDirectoryW(DWORD characters, LPWSTR directory) override {
    const memory::Outside outside;
    return inner_.GetCurrentDirectoryW(characters, directory);
  }
  BOOL SetCurrentDirectoryW(LPCWSTR directory) override {
    const memory::Outside outside;
    return inner_.SetCurrentDirectoryW(directory);
  }
  BOOL VerifyVersionInfoW(OSVERSIONINFOEXW* version, DWORD typeMask, DWORDLONG conditionMask) override {
    const memory::Outside outside;
    return inner_.VerifyVersionInfoW(version, typeMask, conditionMask);
  }
  ULONGLONG VerSetConditionMask(ULONGLONG conditionMask, DWORD typeMask, BYTE condition) override {
    const memory::Outside outside;
    return inner_.VerSetConditionMask(conditionMask, typeMask, condition);
  }

 private:
  SystemInformation& inner_;
};

class GuardedMessages final : public Messages {
 public:
  explicit GuardedMessages(Messages& inner) : inner_(inner) {}
  DWORD FormatMessageW(DWORD flags, const void* source, DWORD id, DWORD language, LPWSTR text, DWORD characters,
                       void* arguments) override {
    const memory::Outside outside;
    return inner_.FormatMessageW(flags, source, id, language, text, characters, arguments);
  }
  void LocalFree(void* block) override {
    const memory::Outside outside;
    inner_.LocalFree(block);
  }
  HMODULE LoadLibraryW(LPCWSTR name) override {
    const memory::Outside outside;
    return inner_.LoadLibraryW(name);
  }
  BOOL FreeLibrary(HMODULE module) override {
    const memory::Outside outside;
    return inner_.FreeLibrary(module);
  }
  BOOL GetModuleHandleExW(DWORD flags, LPCWSTR name, HMODULE* module) override {
    const memory::Outside outside;
    return inner_.GetModuleHandleExW(flags, name, module);
  }
  int LoadStringW(HMODULE module, UINT id, LPWSTR text, int characters) override {
    const memory::Outside outside;
    return inner_.LoadStringW(module, id, text, characters);
  }

 private:
  Messages& inner_;
};

class GuardedWmiDisks final : public WmiDisks {
 public:
  explicit GuardedWmiDisks(WmiDisks& inner) : inner_(inner) {}
  HRESULT QueryDisks(std::vector<WmiDisk>& disks) override {
    const memory::Outside outside;
    return inner_.QueryDisks(disks);
  }

 private:
  WmiDisks& inner_;
};

class GuardedFileVersions final : public FileVersions {
 public:
  explicit GuardedFileVersions(FileVersions& inner) : inner_(inner) {}
  BOOL GetFileVersion(LPCWSTR path, VS_FIXEDFILEINFO* version) override {
    const memory::Outside outside;
    return inner_.GetFileVersion(path, version);
  }

 private:
  FileVersions& inner_;
};

class GuardedHeap final : public Heap {
 public:
  explicit GuardedHeap(Heap& inner) : inner_(inner) {}
  void* Malloc(std::size_t bytes) override {
    const memory::Outside outside;
    return inner_.Malloc(bytes);
  }
  void Free(void* block) override {
    const memory::Outside outside;
    inner_.Free(block);
  }

 private:
  Heap& inner_;
};

class GuardedTime final : public Time {
 public:
  explicit GuardedTime(Time& inner) : inner_(inner) {}
  void Sleep(DWORD milliseconds) override {
    const memory::Outside outside;
    inner_.Sleep(milliseconds);
  }
  ULONGLONG GetTickCount64() override { return inner_.GetTickCount64(); }
  void GetSystemTimeAsFileTime(FILETIME* time) override { inner_.GetSystemTimeAsFileTime(time); }

 private:
  Time& inner_;
};

class GuardedMetadataService final : public MetadataService {
 public:
  explicit GuardedMetadataService(MetadataService& inner) : inner_(inner) {}
  bool FindDatabasesToQuiesce(const std::string& serialNumber, std::string& databases, std::string& error) override {
    const memory::Outside outside;
    return inner_.FindDatabasesToQuiesce(serialNumber, databases, error);
  }
  std::string GetClusterName(const std::string& name) override {
    const memory::Outside outside;
    return inner_.GetClusterName(name);
  }

 private:
  MetadataService& inner_;
};

class GuardedHost final : public ForwardingHost {
 public:
  GuardedHost(simulator::SimulatedHost& inner, TextShortage& texts)
      : ForwardingHost(inner),
        vss_(inner, texts),
        storage_(inner.storage()),
        processes_(inner.processes()),
        registry_(inner.registry()),
        system_(inner.system()),
        messages_(inner.messages()),
        iscsi_(inner.iscsi()),
        cluster_(inner.cluster()),
        wmi_(inner.wmi()),
        files_(inner.files()),
        heap_(inner.heap()),
        time_(inner.time()),
        metadata_(inner.metadata()) {}
  VssService& vss() override { return vss_; }
  Storage& storage() override { return storage_; }
  Processes& processes() override { return processes_; }
  Registry& registry() override { return registry_; }
  SystemInformation& system() override { return system_; }
  Messages& messages() override { return messages_; }
  IscsiInitiator& iscsi() override { return iscsi_; }
  Cluster& cluster() override { return cluster_; }
  WmiDisks& wmi() override { return wmi_; }
  FileVersions& files() override { return files_; }
  Heap& heap() override { return heap_; }
  Time& time() override { return time_; }
  MetadataService& metadata() override { return metadata_; }

 private:
  GuardedService vss_;
  GuardedStorage storage_;
  GuardedProcesses processes_;
  GuardedRegistry registry_;
  GuardedSystem system_;
  GuardedMessages messages_;
  GuardedIscsi iscsi_;
  GuardedCluster cluster_;
  GuardedWmiDisks wmi_;
  GuardedFileVersions files_;
  GuardedHeap heap_;
  GuardedTime time_;
  GuardedMetadataService metadata_;
};

/// Passes lines on to a log of the test.
class GuardedLog final : public LogSink {
 public:
  explicit GuardedLog(LogSink& inner) : inner_(inner) {}
  int LowestCategory() const override { return inner_.LowestCategory(); }
  void Write(int category, std::wstring_view source, int line, std::wstring_view text) override {
    const memory::Outside outside;
    inner_.Write(category, source, line, text);
  }

 private:
  LogSink& inner_;
};

}  // namespace varnel::test
