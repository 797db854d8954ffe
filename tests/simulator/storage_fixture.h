// Storage of a simulated host and its shadow copies, for tests that ask about disks.
#pragma once

#include <array>
#include <cstring>
#include <initializer_list>

#include "platform/owners.h"
#include "simulator/vss/snapshot_service.h"
#include "tests/support/host_fixture.h"
#include "text/unicode.h"

namespace varnel::simulator {

inline constexpr GUID kArrayProvider = ParseGuid<GUID>("{374579ad-285c-49b9-ab8a-950e0e252de2}");
inline constexpr GUID kSession = ParseGuid<GUID>("{00000000-0000-0000-0000-00000000a5a5}");

class StorageTest : public test::HostFixture {
 protected:
  Storage& storage() { return host().storage(); }

  HANDLE Open(const std::wstring& name) {
    return storage().CreateFileW(name.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                 FILE_ATTRIBUTE_NORMAL, nullptr);
  }
  DWORD OpenError(const std::wstring& name) {
    EXPECT_EQ(Open(name), INVALID_HANDLE_VALUE) << WideToUtf8(name);
    return host().GetLastError();
  }
  std::vector<char> Ask(HANDLE handle, DWORD code, std::size_t room = 4096) {
    std::vector<char> out(room);
    STORAGE_PROPERTY_QUERY query{};
    DWORD returned = 0;
    const bool property = code == IOCTL_STORAGE_QUERY_PROPERTY;
    const BOOL ok = storage().DeviceIoControl(handle, code, property ? &query : nullptr, property ? sizeof query : 0,
                                              out.data(), static_cast<DWORD>(out.size()), &returned, nullptr);
    out.resize(ok ? returned : 0);
    return out;
  }
  template <class Record>
  Record AskFor(HANDLE handle, DWORD code) {
    Record record{};
    const std::vector<char> bytes = Ask(handle, code);
    EXPECT_GE(bytes.size(), sizeof record);
    if (bytes.size() >= sizeof record) std::memcpy(&record, bytes.data(), sizeof record);
    return record;
  }
  std::string SerialOf(HANDLE handle) {
    const std::vector<char> bytes = Ask(handle, IOCTL_STORAGE_QUERY_PROPERTY);
    STORAGE_DEVICE_DESCRIPTOR descriptor{};
    std::memcpy(&descriptor, bytes.data(), sizeof descriptor);
    EXPECT_EQ(descriptor.Size, bytes.size());
    if (descriptor.SerialNumberOffset >= bytes.size()) return "none";
    return bytes.data() + descriptor.SerialNumberOffset;
  }
  std::wstring MountPointOf(const std::wstring& path) {
    std::array<wchar_t, MAX_PATH> mountPoint{};
    return storage().GetVolumePathNameW(path.c_str(), mountPoint.data(), MAX_PATH) ? mountPoint.data() : L"";
  }
  std::wstring VolumeNameOf(const std::wstring& mountPoint) {
    std::array<wchar_t, MAX_PATH> name{};
    return storage().GetVolumeNameForVolumeMountPointW(mountPoint.c_str(), name.data(), MAX_PATH) ? name.data() : L"";
  }
  std::vector<std::wstring> Serials() {
    std::vector<WmiDisk> disks;
    EXPECT_EQ(host().wmi().QueryDisks(disks), S_OK);
    std::vector<std::wstring> serials;
    for (const WmiDisk& disk : disks) serials.push_back(disk.serialNumber);
    return serials;
  }
  // Makes a shadow copy of a volume through the service behind the objects.
  void Snapshot(std::initializer_list<const wchar_t*> volumes) {
    SnapshotService& service = *host().machine().snapshots;
    GUID set{};
    GUID copy{};
    ASSERT_EQ(service.StartSet(kSession, VSS_CTX_APP_ROLLBACK, set), S_OK);
    for (const wchar_t* volume : volumes) ASSERT_EQ(service.AddVolume(kSession, volume, kArrayProvider, copy), S_OK);
    ASSERT_EQ(service.CommitSet(kSession), S_OK);
  }
};

}  // namespace varnel::simulator
