// Volumes and disks, shadow copies among them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/simulator/fixture.h"
#include "text/ascii_case.h"

namespace varnel::simulator {
namespace {

using test::VolumeName;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr DWORD kFilenameExceedsRange = 206;
constexpr wchar_t kFirstCopyDevice[] = L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1";

TEST_F(StorageTest, OpensDrivesVolumesAndDriveLettersInAnyCase) {
  const std::wstring volume = VolumeName(1);
  for (const std::wstring& name : {std::wstring(L"\\\\.\\PhysicalDrive1"), std::wstring(L"\\\\.\\physicaldrive1"),
                                   volume.substr(0, volume.size() - 1), std::wstring(L"\\\\.\\e:")}) {
    const FileHandle handle(Open(name));
    ASSERT_TRUE(handle) << WideToUtf8(name);
    EXPECT_EQ(host().live().Describe(), "1 file handle");
    EXPECT_EQ(AskFor<STORAGE_DEVICE_NUMBER>(handle.Get(), IOCTL_STORAGE_GET_DEVICE_NUMBER).DeviceNumber, 1u);
  }
}

TEST_F(StorageTest, RefusesNamesThatAreNoDevices) {
  EXPECT_EQ(OpenError(VolumeName(1)), DWORD{ERROR_PATH_NOT_FOUND});
  EXPECT_EQ(OpenError(L"\\\\.\\PhysicalDrive9"), DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(OpenError(L"\\\\.\\PhysicalDrive01"), DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(OpenError(L"\\\\.\\PhysicalDrive"), DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(OpenError(L"\\\\.\\Q:"), DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(OpenError(L"E:"), DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(OpenError(L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1"), DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(OpenError(L""), DWORD{ERROR_FILE_NOT_FOUND});
}

TEST_F(StorageTest, RecordsEachCallWithItsResult) {
  { const FileHandle handle(Open(L"\\\\.\\PhysicalDrive1")); }
  Open(L"\\\\.\\PhysicalDrive7");
  EXPECT_THAT(host().calls().lines(),
              ElementsAre("CreateFileW(\\\\.\\PhysicalDrive1) = ok", "CloseHandle(\\\\.\\PhysicalDrive1) = ok",
                          "CreateFileW(\\\\.\\PhysicalDrive7) = error 2"));
}

TEST_F(StorageTest, FailsACallWithTheCodeOfTheFaultPlan) {
  host().faults().FailCall("CreateFileW", ERROR_ACCESS_DENIED);
  EXPECT_EQ(OpenError(L"\\\\.\\PhysicalDrive1"), DWORD{ERROR_ACCESS_DENIED});
  EXPECT_THAT(host().calls().lines(), ElementsAre("CreateFileW(\\\\.\\PhysicalDrive1) = error 5"));
  const FileHandle handle(Open(L"\\\\.\\PhysicalDrive1"));
  EXPECT_TRUE(handle);
}

TEST_F(StorageTest, ACloseThatIsMadeToFailHasClosedTheHandle) {
  HANDLE handle = Open(L"\\\\.\\PhysicalDrive1");
  host().faults().FailCall("CloseHandle", ERROR_GEN_FAILURE);
  EXPECT_EQ(storage().CloseHandle(handle), FALSE);
  EXPECT_EQ(host().live().Describe(), "");
}

TEST(StorageMisuse, ClosingAHandleTwiceIsRecorded) {
  SimulatedHost host(test::SmallHost());
  HANDLE handle = host.storage().CreateFileW(L"\\\\.\\PhysicalDrive1", 0, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  EXPECT_EQ(host.storage().CloseHandle(handle), TRUE);
  EXPECT_EQ(host.storage().CloseHandle(handle), FALSE);
  EXPECT_EQ(host.GetLastError(), DWORD{ERROR_INVALID_HANDLE});
  EXPECT_THAT(host.live().misuses(), ElementsAre("CloseHandle of a handle that is not open"));
  EXPECT_EQ(host.storage().FindVolumeClose(handle), FALSE);
  EXPECT_EQ(host.registry().RegCloseKey(reinterpret_cast<HKEY>(handle)), LSTATUS{ERROR_INVALID_HANDLE});
  EXPECT_EQ(host.messages().FreeLibrary(nullptr), FALSE);
  EXPECT_THAT(host.live().misuses(), SizeIs(4));
}

TEST_F(StorageTest, DescribesADiskWithVendorAndSerialNumber) {
  const FileHandle handle(Open(L"\\\\.\\PhysicalDrive1"));
  EXPECT_EQ(SerialOf(handle.Get()), "TSL0001");
  const std::vector<char> bytes = Ask(handle.Get(), IOCTL_STORAGE_QUERY_PROPERTY);
  STORAGE_DEVICE_DESCRIPTOR descriptor{};
  std::memcpy(&descriptor, bytes.data(), sizeof descriptor);
  EXPECT_STREQ(bytes.data() + descriptor.VendorIdOffset, "Tessel");
  EXPECT_THAT(Ask(handle.Get(), IOCTL_STORAGE_QUERY_PROPERTY, 8), SizeIs(8));
  EXPECT_THAT(Ask(handle.Get(), IOCTL_STORAGE_QUERY_PROPERTY, 7), FailsWith(ERROR_INSUFFICIENT_BUFFER));
}

TEST_F(StorageTest, ADiskWithoutASerialNumberHasNoOffset) {
  HostModel model = test::SmallHost();
  model.disks[1].reportsSerial = false;
  model.disks[2].serial.clear();
  Install(model);
  const FileHandle none(Open(L"\\\\.\\PhysicalDrive1"));
  EXPECT_EQ(SerialOf(none.Get()), "none");
  const FileHandle empty(Open(L"\\\\.\\PhysicalDrive2"));
  EXPECT_EQ(SerialOf(empty.Get()), "");
}

TEST_F(StorageTest, TellsExtentsOfVolumesOnlyAndWhetherADiskIsClustered) {
  HostModel model = test::SmallHost();
  model.disks[2].clustered = true;
  Install(model);
  const std::wstring name = VolumeName(2);
  const FileHandle volume(Open(name.substr(0, name.size() - 1)));
  const auto extents = AskFor<VOLUME_DISK_EXTENTS>(volume.Get(), IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS);
  EXPECT_EQ(extents.NumberOfDiskExtents, 1u);
  EXPECT_EQ(extents.Extents[0].DiskNumber, 2u);
  EXPECT_EQ(AskFor<BOOL>(volume.Get(), IOCTL_DISK_IS_CLUSTERED), TRUE);
  const FileHandle disk(Open(L"\\\\.\\PhysicalDrive1"));
  EXPECT_THAT(Ask(disk.Get(), IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS), IsEmpty());
  EXPECT_EQ(AskFor<BOOL>(disk.Get(), IOCTL_DISK_IS_CLUSTERED), FALSE);
  EXPECT_THAT(Ask(disk.Get(), 0x12345), IsEmpty());
  EXPECT_THAT(Ask(disk.Get(), IOCTL_STORAGE_GET_DEVICE_NUMBER, 4), FailsWith(ERROR_INSUFFICIENT_BUFFER));
  EXPECT_THAT(Ask(INVALID_HANDLE_VALUE, IOCTL_DISK_IS_CLUSTERED), FailsWith(ERROR_INVALID_HANDLE));
}

TEST_F(StorageTest, TellsAnExtentOfEveryDiskThatAVolumeLiesOn) {
  HostModel model = test::SmallHost();
  model.disks[2].volumes[0].otherDisks = {1, 0};
  Install(model);
  const std::wstring name = VolumeName(2);
  const FileHandle volume(Open(name.substr(0, name.size() - 1)));
  const std::vector<char> bytes = Ask(volume.Get(), IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS);
  ASSERT_EQ(bytes.size(), offsetof(VOLUME_DISK_EXTENTS, Extents) + 3 * sizeof(DISK_EXTENT));
  std::vector<DWORD> disks(3);
  for (std::size_t i = 0; i < disks.size(); ++i) {
    std::memcpy(&disks[i], bytes.data() + offsetof(VOLUME_DISK_EXTENTS, Extents) + i * sizeof(DISK_EXTENT),
                sizeof disks[i]);
  }
  EXPECT_THAT(disks, ElementsAre(2u, 1u, 0u));
  EXPECT_THAT(Ask(volume.Get(), IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS, sizeof(VOLUME_DISK_EXTENTS)),
              FailsWith(ERROR_MORE_DATA));
}

TEST_F(StorageTest, FindsTheLongestMountPointInThePathsOwnSpelling) {
  HostModel model = test::SmallHost();
  model.disks[2].volumes[0].mountPoints = {L"C:\\Mounts\\Data\\", L"F:\\"};
  Install(model);
  EXPECT_EQ(MountPointOf(L"e:\\data\\sales.mdf"), L"e:\\");
  EXPECT_EQ(MountPointOf(L"E:"), L"E:\\");
  EXPECT_EQ(MountPointOf(L"C:\\mounts\\DATA\\x"), L"C:\\mounts\\DATA\\");
  EXPECT_EQ(MountPointOf(L"C:\\Mounts\\Data"), L"C:\\Mounts\\Data\\");
  EXPECT_EQ(MountPointOf(L"C:\\Mounts\\Data2\\x"), L"C:\\");
  EXPECT_EQ(MountPointOf(L"C:/Mounts/Data/x"), L"C:/Mounts/Data\\");
  EXPECT_EQ(MountPointOf(L"\\\\?\\E:\\x"), L"\\\\?\\E:\\");
  EXPECT_EQ(MountPointOf(VolumeName(1) + L"Boot"), VolumeName(1));
  EXPECT_EQ(MountPointOf(L"\\System Volume Information\\Heat"), L"C:\\");
}

TEST_F(StorageTest, RefusesPathsOnNoVolumeAndBuffersThatAreTooSmall) {
  EXPECT_THAT(MountPointOf(L"Q:\\x"), FailsWith(ERROR_FILE_NOT_FOUND));
  EXPECT_THAT(MountPointOf(VolumeName(9) + L"x"), FailsWith(ERROR_PATH_NOT_FOUND));
  EXPECT_EQ(MountPointOf(L"\\\\server\\share\\x"), L"");
  EXPECT_THAT(MountPointOf(L""), FailsWith(ERROR_INVALID_NAME));
  std::array<wchar_t, 3> small{};
  EXPECT_THAT(storage().GetVolumePathNameW(L"E:\\x", small.data(), 3), FailsWith(kFilenameExceedsRange));
}

TEST_F(StorageTest, NamesTheVolumeOfAMountPoint) {
  EXPECT_EQ(VolumeNameOf(L"e:\\"), VolumeName(1));
  EXPECT_EQ(VolumeNameOf(VolumeName(1)), VolumeName(1));
  EXPECT_THAT(VolumeNameOf(L"E:"), FailsWith(ERROR_INVALID_NAME));
  EXPECT_THAT(VolumeNameOf(L"Q:\\"), FailsWith(ERROR_FILE_NOT_FOUND));
  EXPECT_THAT(VolumeNameOf(L"E:\\folder\\"), FailsWith(4390));
}

TEST_F(StorageTest, EnumeratesVolumesInDiskOrder) {
  HostModel model = test::SmallHost();
  std::swap(model.disks[0], model.disks[2]);
  Install(model);
  std::array<wchar_t, MAX_PATH> name{};
  HANDLE search = storage().FindFirstVolumeW(name.data(), MAX_PATH);
  ASSERT_NE(search, INVALID_HANDLE_VALUE);
  EXPECT_EQ(host().live().Describe(), "1 volume search");
  std::vector<std::wstring> names = {name.data()};
  while (storage().FindNextVolumeW(search, name.data(), MAX_PATH)) names.emplace_back(name.data());
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_NO_MORE_FILES});
  EXPECT_THAT(names, ElementsAre(VolumeName(0), VolumeName(1), VolumeName(2)));
  EXPECT_EQ(storage().FindVolumeClose(search), TRUE);
}

TEST_F(StorageTest, AHostWithoutVolumesHasNoneToEnumerate) {
  Install(HostModel{});
  std::array<wchar_t, MAX_PATH> name{};
  EXPECT_EQ(storage().FindFirstVolumeW(name.data(), MAX_PATH), INVALID_HANDLE_VALUE);
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_NO_MORE_FILES});
}

TEST_F(StorageTest, ListsTheMountPointsOfAVolume) {
  HostModel model = test::SmallHost();
  model.disks[1].volumes[0].mountPoints = {L"E:\\", L"C:\\m\\"};
  Install(model);
  std::array<wchar_t, 16> names{};
  DWORD needed = 0;
  EXPECT_THAT(storage().GetVolumePathNamesForVolumeNameW(VolumeName(1).c_str(), names.data(), 10, &needed),
              FailsWith(ERROR_MORE_DATA));
  EXPECT_EQ(needed, 11u);
  EXPECT_EQ(storage().GetVolumePathNamesForVolumeNameW(VolumeName(1).c_str(), names.data(), needed, &needed), TRUE);
  EXPECT_EQ(std::wstring(names.data(), needed), std::wstring(L"E:\\\0C:\\m\\\0\0", 11));
  EXPECT_THAT(storage().GetVolumePathNamesForVolumeNameW(VolumeName(8).c_str(), names.data(), 16, &needed),
              FailsWith(ERROR_FILE_NOT_FOUND));
}

TEST_F(StorageTest, AShadowCopyHasADeviceADiskAndASerialNumber) {
  Snapshot({L"E:\\"});
  const std::wstring device = L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1";
  EXPECT_EQ(MountPointOf(device + L"\\data\\x.mdf"), device + L"\\");
  EXPECT_EQ(OpenError(device + L"\\"), DWORD{ERROR_PATH_NOT_FOUND});
  const FileHandle volume(Open(ascii::ToLower(device)));
  ASSERT_TRUE(volume);
  const auto extents = AskFor<VOLUME_DISK_EXTENTS>(volume.Get(), IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS);
  EXPECT_EQ(extents.Extents[0].DiskNumber, 3u);
  const FileHandle disk(Open(L"\\\\.\\PhysicalDrive3"));
  ASSERT_TRUE(disk);
  EXPECT_EQ(SerialOf(disk.Get()), "SHADOW-TSL0001");
}

TEST_F(StorageTest, WmiListsAllDisksInTheOrderOfTheirNumbers) {
  Snapshot({L"F:\\"});
  std::vector<WmiDisk> disks;
  EXPECT_EQ(host().wmi().QueryDisks(disks), S_OK);
  std::vector<std::wstring> serials;
  for (const WmiDisk& disk : disks) serials.push_back(disk.serialNumber);
  EXPECT_THAT(serials, ElementsAre(L"SYS", L"TSL0001", L"TSL0002", L"SHADOW-TSL0002"));
  EXPECT_TRUE(disks[0].isSystem);
  EXPECT_EQ(disks[3].manufacturer, L"Tessel");
  host().faults().FailCall("IWbemServices::ExecQuery", 0x80041010);
  EXPECT_EQ(host().wmi().QueryDisks(disks), static_cast<HRESULT>(0x80041010));
  EXPECT_THAT(disks, IsEmpty());
}

TEST_F(StorageTest, ABrokenCopyStaysAsAnOrdinaryDisk) {
  Snapshot({L"E:\\"});
  const GUID set = host().machine().snapshots->SurfacedCopies().at(0)->setId;
  ASSERT_EQ(host().machine().snapshots->Break(set, 0), S_OK);
  EXPECT_THAT(Serials(), ElementsAre(L"SYS", L"TSL0001", L"TSL0002", L"SHADOW-TSL0001"));
  const FileHandle disk(Open(L"\\\\.\\PhysicalDrive3"));
  ASSERT_TRUE(disk);
  EXPECT_EQ(SerialOf(disk.Get()), "SHADOW-TSL0001");
  EXPECT_TRUE(FileHandle(Open(kFirstCopyDevice)));
  // Its number stays taken.
  Snapshot({L"E:\\"});
  EXPECT_EQ(host().machine().snapshots->SurfacedCopies().at(1)->diskNumber, 4u);
}

TEST_F(StorageTest, AMaskedDiskIsGoneFromEveryListAndGivesItsNumberBack) {
  Snapshot({L"E:\\"});
  const GUID set = host().machine().snapshots->SurfacedCopies().at(0)->setId;
  const FileHandle open(Open(L"\\\\.\\PhysicalDrive3"));
  ASSERT_TRUE(open);
  ASSERT_EQ(host().machine().snapshots->Break(set, VSS_BREAKEX_FLAG_MASK_LUNS), S_OK);
  EXPECT_THAT(Serials(), ElementsAre(L"SYS", L"TSL0001", L"TSL0002"));
  EXPECT_EQ(OpenError(L"\\\\.\\PhysicalDrive3"), DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(OpenError(kFirstCopyDevice), DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(MountPointOf(std::wstring(kFirstCopyDevice) + L"\\data"), L"");
  EXPECT_THAT(Ask(open.Get(), IOCTL_STORAGE_QUERY_PROPERTY), IsEmpty());
  EXPECT_EQ(host().GetLastError(), DWORD{1167}) << "the device is not connected any more";
  Snapshot({L"F:\\"});
  EXPECT_EQ(host().machine().snapshots->SurfacedCopies().at(0)->diskNumber, 3u);
}

}  // namespace
}  // namespace varnel::simulator
