// A host and services that pass every question on. Whoever wants to hear of a call, or to answer it otherwise, derives
// from the class that has it, overrides that one method and installs the host (ScopedHost). What is wrapped is borrowed
// and must outlive the wrapper.
#pragma once

#include "platform/host.h"

namespace varnel {

/// Hands out the services of another host. Owners that were filled while it was the current host give back through it:
/// it must outlive them.
class ForwardingHost : public Host {
 public:
  explicit ForwardingHost(Host& inner) : inner_(inner) {}
  VssService& vss() override { return inner_.vss(); }
  Storage& storage() override { return inner_.storage(); }
  Processes& processes() override { return inner_.processes(); }
  Registry& registry() override { return inner_.registry(); }
  SystemInformation& system() override { return inner_.system(); }
  Messages& messages() override { return inner_.messages(); }
  IscsiInitiator& iscsi() override { return inner_.iscsi(); }
  Cluster& cluster() override { return inner_.cluster(); }
  WmiDisks& wmi() override { return inner_.wmi(); }
  FileVersions& files() override { return inner_.files(); }
  Heap& heap() override { return inner_.heap(); }
  Time& time() override { return inner_.time(); }
  MetadataService& metadata() override { return inner_.metadata(); }
  EventLog& eventLog() override { return inner_.eventLog(); }
  ServiceManager& services() override { return inner_.services(); }
  ProcessSecurity& security() override { return inner_.security(); }
  VolumeSpace& space() override { return inner_.space(); }
  DWORD GetLastError() override { return inner_.GetLastError(); }

 private:
  Host& inner_;
};

class ForwardingStorage : public Storage {
 public:
  explicit ForwardingStorage(Storage& inner) : inner_(inner) {}
  HANDLE CreateFileW(LPCWSTR name, DWORD access, DWORD share, void* security, DWORD disposition, DWORD flags,
                     HANDLE templateFile) override {
    return inner_.CreateFileW(name, access, share, security, disposition, flags, templateFile);
  }
  BOOL DeviceIoControl(HANDLE device, DWORD code, void* in, DWORD inBytes, void* out, DWORD outBytes, DWORD* returned,
                       void* overlapped) override {
    return inner_.DeviceIoControl(device, code, in, inBytes, out, outBytes, returned, overlapped);
  }
  BOOL CloseHandle(HANDLE handle) override { return inner_.CloseHandle(handle); }
  BOOL GetVolumePathNameW(LPCWSTR path, LPWSTR mountPoint, DWORD characters) override {
    return inner_.GetVolumePathNameW(path, mountPoint, characters);
  }
  BOOL GetVolumeNameForVolumeMountPointW(LPCWSTR mountPoint, LPWSTR volumeName, DWORD characters) override {
    return inner_.GetVolumeNameForVolumeMountPointW(mountPoint, volumeName, characters);
  }
  HANDLE FindFirstVolumeW(LPWSTR volumeName, DWORD characters) override {
    return inner_.FindFirstVolumeW(volumeName, characters);
  }
  BOOL FindNextVolumeW(HANDLE search, LPWSTR volumeName, DWORD characters) override {
    return inner_.FindNextVolumeW(search, volumeName, characters);
  }
  BOOL FindVolumeClose(HANDLE search) override { return inner_.FindVolumeClose(search); }
  BOOL GetVolumePathNamesForVolumeNameW(LPCWSTR volumeName, LPWSTR names, DWORD characters, DWORD* needed) override {
    return inner_.GetVolumePathNamesForVolumeNameW(volumeName, names, characters, needed);
  }

 private:
  Storage& inner_;
};

class ForwardingIscsi : public IscsiInitiator {
 public:
  explicit ForwardingIscsi(IscsiInitiator& inner) : inner_(inner) {}
  DWORD GetIScsiSessionListW(ULONG* bytes, ULONG* sessions, iscsi::SessionInfo* list) override {
    return inner_.GetIScsiSessionListW(bytes, sessions, list);
  }
  DWORD GetDevicesForIScsiSessionW(iscsi::UniqueSessionId* session, ULONG* devices,
                                   iscsi::DeviceOnSession* list) override {
    return inner_.GetDevicesForIScsiSessionW(session, devices, list);
  }
  DWORD LogoutIScsiTarget(iscsi::UniqueSessionId* session) override { return inner_.LogoutIScsiTarget(session); }

 private:
  IscsiInitiator& inner_;
};

class ForwardingProcesses : public Processes {
 public:
  explicit ForwardingProcesses(Processes& inner) : inner_(inner) {}
  BOOL CreateProcessW(LPCWSTR application, LPWSTR commandLine, void* processSecurity, void* threadSecurity,
                      BOOL inheritHandles, DWORD flags, void* environment, LPCWSTR directory, STARTUPINFOW* startup,
                      PROCESS_INFORMATION* process) override {
    return inner_.CreateProcessW(application, commandLine, processSecurity, threadSecurity, inheritHandles, flags,
                                 environment, directory, startup, process);
  }
  DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) override {
    return inner_.WaitForSingleObject(handle, milliseconds);
  }
  BOOL GetExitCodeProcess(HANDLE process, DWORD* exitCode) override {
    return inner_.GetExitCodeProcess(process, exitCode);
  }
  BOOL CloseHandle(HANDLE handle) override { return inner_.CloseHandle(handle); }
  DWORD SearchPathW(LPCWSTR path, LPCWSTR file, LPCWSTR extension, DWORD characters, LPWSTR found,
                    LPWSTR* filePart) override {
    return inner_.SearchPathW(path, file, extension, characters, found, filePart);
  }
  DWORD GetCurrentProcessId() override { return inner_.GetCurrentProcessId(); }

 private:
  Processes& inner_;
};

class ForwardingRegistry : public Registry {
 public:
  explicit ForwardingRegistry(Registry& inner) : inner_(inner) {}
  LSTATUS RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM access, HKEY* result) override {
    return inner_.RegOpenKeyExW(key, subKey, options, access, result);
  }
  LSTATUS RegQueryInfoKeyW(HKEY key, LPWSTR className, DWORD* classCharacters, DWORD* reserved, DWORD* subKeys,
                           DWORD* maxSubKeyLength, DWORD* maxClassLength, DWORD* values, DWORD* maxValueNameLength,
                           DWORD* maxValueBytes, DWORD* securityDescriptorBytes, FILETIME* lastWrite) override {
    return inner_.RegQueryInfoKeyW(key, className, classCharacters, reserved, subKeys, maxSubKeyLength, maxClassLength,
                                   values, maxValueNameLength, maxValueBytes, securityDescriptorBytes, lastWrite);
  }
  LSTATUS RegEnumKeyExW(HKEY key, DWORD index, LPWSTR name, DWORD* characters, DWORD* reserved, LPWSTR className,
                        DWORD* classCharacters, FILETIME* lastWrite) override {
    return inner_.RegEnumKeyExW(key, index, name, characters, reserved, className, classCharacters, lastWrite);
  }
  LSTATUS RegGetValueW(HKEY key, LPCWSTR subKey, LPCWSTR value, DWORD flags, DWORD* type, void* data,
                       DWORD* bytes) override {
    return inner_.RegGetValueW(key, subKey, value, flags, type, data, bytes);
  }
  LSTATUS RegCloseKey(HKEY key) override { return inner_.RegCloseKey(key); }

 private:
  Registry& inner_;
};

class ForwardingCluster : public Cluster {
 public:
  explicit ForwardingCluster(Cluster& inner) : inner_(inner) {}
  DWORD GetNodeClusterState(LPCWSTR node, DWORD* state) override { return inner_.GetNodeClusterState(node, state); }
  BOOL ClusterIsPathOnSharedVolume(LPCWSTR path) override { return inner_.ClusterIsPathOnSharedVolume(path); }

 private:
  Cluster& inner_;
};

class ForwardingMessages : public Messages {
 public:
  explicit ForwardingMessages(Messages& inner) : inner_(inner) {}
  DWORD FormatMessageW(DWORD flags, const void* source, DWORD id, DWORD language, LPWSTR text, DWORD characters,
                       void* arguments) override {
    return inner_.FormatMessageW(flags, source, id, language, text, characters, arguments);
  }
  void LocalFree(void* block) override { inner_.LocalFree(block); }
  HMODULE LoadLibraryW(LPCWSTR name) override { return inner_.LoadLibraryW(name); }
  BOOL FreeLibrary(HMODULE module) override { return inner_.FreeLibrary(module); }
  BOOL GetModuleHandleExW(DWORD flags, LPCWSTR name, HMODULE* module) override {
    return inner_.GetModuleHandleExW(flags, name, module);
  }
  int LoadStringW(HMODULE module, UINT id, LPWSTR text, int characters) override {
    return inner_.LoadStringW(module, id, text, characters);
  }

 private:
  Messages& inner_;
};

class ForwardingEventLog : public EventLog {
 public:
  explicit ForwardingEventLog(EventLog& inner) : inner_(inner) {}
  EVT_HANDLE EvtQuery(EVT_HANDLE session, LPCWSTR path, LPCWSTR query, DWORD flags) override {
    return inner_.EvtQuery(session, path, query, flags);
  }
  BOOL EvtNext(EVT_HANDLE results, DWORD count, EVT_HANDLE* events, DWORD milliseconds, DWORD flags,
               DWORD* returned) override {
    return inner_.EvtNext(results, count, events, milliseconds, flags, returned);
  }
  BOOL EvtRender(EVT_HANDLE context, EVT_HANDLE event, DWORD flags, DWORD bytes, void* buffer, DWORD* used,
                 DWORD* properties) override {
    return inner_.EvtRender(context, event, flags, bytes, buffer, used, properties);
  }
  EVT_HANDLE EvtOpenPublisherMetadata(EVT_HANDLE session, LPCWSTR publisher, LPCWSTR logFile, DWORD locale,
                                      DWORD flags) override {
    return inner_.EvtOpenPublisherMetadata(session, publisher, logFile, locale, flags);
  }
  BOOL EvtFormatMessage(EVT_HANDLE publisher, EVT_HANDLE event, DWORD message, DWORD count, EVT_VARIANT* values,
                        DWORD flags, DWORD characters, LPWSTR buffer, DWORD* used) override {
    return inner_.EvtFormatMessage(publisher, event, message, count, values, flags, characters, buffer, used);
  }
  BOOL EvtClose(EVT_HANDLE object) override { return inner_.EvtClose(object); }
  HANDLE RegisterEventSourceW(LPCWSTR server, LPCWSTR source) override {
    return inner_.RegisterEventSourceW(server, source);
  }
  BOOL ReportEventW(HANDLE log, WORD type, WORD category, DWORD id, void* user, WORD count, DWORD dataBytes,
                    LPCWSTR* texts, void* data) override {
    return inner_.ReportEventW(log, type, category, id, user, count, dataBytes, texts, data);
  }
  BOOL DeregisterEventSource(HANDLE log) override { return inner_.DeregisterEventSource(log); }

 private:
  EventLog& inner_;
};

}  // namespace varnel
