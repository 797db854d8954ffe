// What the tests of the simulated host share: failed calls, storage with shadow copies, a document of a writer.
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

/// A call that answered nothing (FALSE, 0, null, empty) and left this last error.
MATCHER_P(FailsWith, error, "") {
  *result_listener << "the last error is " << CurrentHost().GetLastError();
  return arg == std::decay_t<decltype(arg)>{} && CurrentHost().GetLastError() == static_cast<DWORD>(error);
}

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
  // Makes a shadow copy of a volume through the service that the objects use.
  void Snapshot(std::initializer_list<const wchar_t*> volumes) {
    SnapshotService& service = *host().machine().snapshots;
    GUID set{};
    GUID copy{};
    ASSERT_EQ(service.StartSet(kSession, VSS_CTX_APP_ROLLBACK, set), S_OK);
    for (const wchar_t* volume : volumes) ASSERT_EQ(service.AddVolume(kSession, volume, kArrayProvider, copy), S_OK);
    ASSERT_EQ(service.CommitSet(kSession), S_OK);
  }
};

// A Writer Metadata Document with every attribute.
inline const char kSmallDocument[] =
    "<WRITER_METADATA xmlns=\"x-schema:#VssWriterMetadataInfo\" version=\"1.2\" backupSchema=\"881\">"
    "<IDENTIFICATION writerId=\"a65faa63-5ea8-4ebc-9dbd-a0c4db26912a\" "
    "instanceId=\"235435d9-34d6-41ea-8c08-5958a9982636\" instanceName=\"SQL &amp; more\" "
    "friendlyName=\"SqlServerWriter\" usage=\"USER_DATA\" dataSource=\"TRANSACTION_DB\" majorVersion=\"1\" "
    "minorVersion=\"2\"/>"
    "<RESTORE_METHOD method=\"STOP_RESTORE_START\" service=\"svc\" userProcedure=\"proc\" writerRestore=\"always\" "
    "rebootRequired=\"yes\"/>"
    "<BACKUP_LOCATIONS>"
    "<FILE_GROUP logicalPath=\"SQL01\" componentName=\"sales\" caption=\"one&#13;&#10;two\" restoreMetadata=\"yes\" "
    "notifyOnBackupComplete=\"yes\" selectable=\"no\" selectableForRestore=\"yes\" componentFlags=\"2\">"
    "<FILE_LIST path=\"E:\\data\" filespec=\"*\" recursive=\"yes\" alternatePath=\"E:\\alt\" "
    "filespecBackupType=\"3855\"/>"
    "</FILE_GROUP>"
    "<DATABASE componentName=\"m\xC3\xBC\" restoreMetadata=\"no\" notifyOnBackupComplete=\"no\" selectable=\"yes\" "
    "selectableForRestore=\"no\" componentFlags=\"0\">"
    "<DATABASE_FILES path=\"E:\\\" filespec=\"a.mdf\" filespecBackupType=\"3855\"/>"
    "<DATABASE_LOGFILES path=\"F:\\\" filespec=\"a.ldf\" filespecBackupType=\"15\"/>"
    "</DATABASE>"
    "<EXCLUDE_FILES path=\"E:\\tmp\" filespec=\"*\" recursive=\"no\"/>"
    "<EXCLUDE_FILES_FROM_SNAPSHOT path=\"\\Heat\" filespec=\"*.*\" recursive=\"yes\"/>"
    "</BACKUP_LOCATIONS></WRITER_METADATA>";

}  // namespace varnel::simulator
