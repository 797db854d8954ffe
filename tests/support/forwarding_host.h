// A host that passes every question on to another one. Tests replace a single answer that no host file can describe.
#pragma once

#include "platform/host.h"

namespace varnel::test {

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

}  // namespace varnel::test
