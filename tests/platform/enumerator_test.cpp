// Volumes and disks.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/platform/enumerator.h"
#include "tests/platform/replaced_host.h"

namespace varnel {
namespace {

using simulator::HostModel;
using TesselCommonClasses::DiskAndVolumeEnumerator;
using TesselCommonClasses::ExceptionCommon;
using TesselCommonClasses::WindowsDiskDevice;
using TesselCommonClasses::WindowsVolumeInfo;
using test::Enumerator;
using test::MakeDisk;
using test::ReplacedHost;
using test::SmallHost;
using test::VolumeName;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

TEST_F(Enumerator, FindsTheDiskOfAVolume) {
  WindowsDiskDevice device;
  enumerator.GetDiskDeviceForUniqueVolume(VolumeName(2), device);
  EXPECT_EQ(device.serialNumber, L"TSL0002");
  EXPECT_EQ(device.diskName, L"\\\\.\\PhysicalDrive2");
  EXPECT_EQ(device.diskNumber, 2u);
  EXPECT_FALSE(device.isClustered);
}

TEST_F(Enumerator, FindsItByANameInAnyCaseAndWithoutItsBackslash) {
  HostModel model = SmallHost();
  const std::wstring mixed = L"\\\\?\\Volume{aBcDeF01-0000-0000-0000-000000000000}\\";
  model.disks[1].volumes[0].name = mixed;
  Install(std::move(model));
  EXPECT_EQ(SerialOf(mixed), L"TSL0001");
  EXPECT_EQ(SerialOf(L"\\\\?\\volume{abcdef01-0000-0000-0000-000000000000}\\"), L"TSL0001");
  EXPECT_EQ(SerialOf(L"\\\\?\\VOLUME{ABCDEF01-0000-0000-0000-000000000000}"), L"TSL0001");
}

TEST_F(Enumerator, LeavesTheSerialNumberEmptyForAnUnknownVolume) {
  WindowsDiskDevice device;
  device.serialNumber = L"of the call before";
  enumerator.GetDiskDeviceForUniqueVolume(VolumeName(99), device);
  EXPECT_EQ(device.serialNumber, L"");
  EXPECT_EQ(SerialOf(L""), L"");
}

TEST_F(Enumerator, OpensNothingForAPathThatIsNoDevice) {
  enumerator.EnumerateDisks(false);
  const std::size_t before = OpenCount();
  EXPECT_EQ(SerialOf(L"x:\\data\\"), L"");
  EXPECT_EQ(SerialOf(L"\\\\server\\share\\"), L"");
  EXPECT_EQ(OpenCount(), before);
}

TEST_F(Enumerator, FindsTheVolumesOfADiskBySerialNumberInAnyCase) {
  HostModel model = SmallHost();
  model.disks[1].volumes.push_back({VolumeName(11), {L"E:\\mount\\", L"G:\\"}, false, L""});
  model.disks[1].volumes.push_back({VolumeName(12), {}, false, L""});
  Install(std::move(model));
  EXPECT_THAT(VolumesOf(L"tsl0001"), ElementsAre(VolumeName(1), VolumeName(11), VolumeName(12)));
  EXPECT_THAT(VolumesOf(L"TSL0002"), ElementsAre(VolumeName(2)));
  EXPECT_THAT(VolumesOf(L"TSL0003"), IsEmpty());

  std::vector<WindowsVolumeInfo> volumes(7);
  enumerator.GetVolumesForGivenDisk(L"tsl0001", volumes);
  ASSERT_THAT(volumes, SizeIs(3));
  EXPECT_EQ(volumes[0].uniqueVolumeName, VolumeName(1));
  EXPECT_EQ(volumes[0].mountPoint, L"E:\\");
  EXPECT_EQ(volumes[1].mountPoint, L"E:\\mount\\");
  EXPECT_EQ(volumes[2].mountPoint, L"");
}

TEST_F(Enumerator, ReplacesWhatTheListsHeld) {
  std::vector<std::wstring> names = {L"old"};
  enumerator.GetUniqueVolumeNamesForDisk(L"TSL0002", names);
  EXPECT_THAT(names, ElementsAre(VolumeName(2)));
}

TEST_F(Enumerator, ReadsAMountPointLongerThanAPathUsuallyIs) {
  HostModel model = SmallHost();
  const std::wstring longMountPoint = L"E:\\" + std::wstring(300, L'm') + L"\\";
  model.disks[2].volumes[0].mountPoints = {longMountPoint};
  Install(std::move(model));
  std::vector<WindowsVolumeInfo> volumes;
  enumerator.GetVolumesForGivenDisk(L"TSL0002", volumes);
  ASSERT_THAT(volumes, SizeIs(1));
  EXPECT_EQ(volumes[0].mountPoint, longMountPoint);
}

TEST_F(Enumerator, ListsTheDisksInDriveOrder) {
  HostModel model = SmallHost();
  model.disks.push_back(MakeDisk(L"TSL0010", 10, L"K:\\"));
  model.disks.push_back(MakeDisk(L"TSL0003", 3, L"H:\\"));
  model.disks.back().clustered = true;
  Install(std::move(model));
  std::vector<std::wstring> serials;
  for (const WindowsDiskDevice& disk : enumerator.GetDisks()) serials.push_back(disk.serialNumber);
  EXPECT_THAT(serials, ElementsAre(L"SYS", L"TSL0001", L"TSL0002", L"TSL0003", L"TSL0010"));
  EXPECT_TRUE(enumerator.GetDisks()[3].isClustered);
  EXPECT_FALSE(enumerator.GetDisks()[4].isClustered);
}

TEST_F(Enumerator, KeepsTheBlanksOfASerialNumber) {
  HostModel model = SmallHost();
  model.disks[1].serial = L"  TSL 1 ";
  Install(std::move(model));
  EXPECT_EQ(SerialOf(VolumeName(1)), L"  TSL 1 ");
}

TEST_F(Enumerator, ADiskWithoutASerialNumberHasAnEmptyOneAndIsFoundByNone) {
  HostModel model = SmallHost();
  model.disks[1].reportsSerial = false;
  Install(std::move(model));
  WindowsDiskDevice device;
  enumerator.GetDiskDeviceForUniqueVolume(VolumeName(1), device);
  EXPECT_EQ(device.serialNumber, L"");
  EXPECT_EQ(device.diskName, L"\\\\.\\PhysicalDrive1");
  EXPECT_THAT(VolumesOf(L""), IsEmpty());
  EXPECT_THAT(enumerator.GetDisks(), SizeIs(3));
}

TEST_F(Enumerator, FindsTheVolumesOfEveryDiskThatReportsTheSerialNumber) {
  HostModel model = SmallHost();
  model.disks[2].serial = L"tsl0001";
  Install(std::move(model));
  EXPECT_THAT(VolumesOf(L"TSL0001"), ElementsAre(VolumeName(1), VolumeName(2)));
}

TEST_F(Enumerator, KnowsTheDiskOfTheSystemDrive) {
  enumerator.EnumerateDisks(true);
  EXPECT_EQ(DiskAndVolumeEnumerator::systemDriveSerialNumber, L"SYS");
}

TEST_F(Enumerator, LearnsTheDiskOfTheSystemDriveAnewWithEveryListing) {
  enumerator.GetDisks();
  HostModel model = SmallHost();
  model.systemDirectory = L"F:\\Windows\\system32";
  Install(std::move(model));
  enumerator.EnumerateDisks(true);
  enumerator.GetDisks();
  EXPECT_EQ(DiskAndVolumeEnumerator::systemDriveSerialNumber, L"TSL0002");
}

// A refresh forgets and asks nothing; the machine is asked again when something is asked.
TEST_F(Enumerator, AsksNothingOfTheMachineForARefresh) {
  enumerator.EnumerateDisks(true);
  EXPECT_THAT(enumerator.GetDisks(), SizeIs(3));
  host().calls().Clear();
  enumerator.EnumerateDisks(true);
  EXPECT_THAT(host().calls().lines(), IsEmpty());
  EXPECT_EQ(SerialOf(VolumeName(1)), L"TSL0001");
  EXPECT_EQ(OpenCount(), 2u) << "the volume and its disk";
}

TEST_F(Enumerator, SeesWhatChangedBetweenTwoRefreshes) {
  EXPECT_EQ(SerialOf(VolumeName(1)), L"TSL0001");
  host().model().disks[1].serial = L"TSL0009";
  EXPECT_EQ(SerialOf(VolumeName(1)), L"TSL0001");
  enumerator.EnumerateDisks(true);
  EXPECT_EQ(SerialOf(VolumeName(1)), L"TSL0009");
  host().model().disks.erase(host().model().disks.begin() + 1);
  EXPECT_EQ(SerialOf(VolumeName(1)), L"TSL0009");
  enumerator.EnumerateDisks(true);
  EXPECT_EQ(SerialOf(VolumeName(1)), L"");
  EXPECT_THAT(enumerator.GetDisks(), SizeIs(2));
}

TEST_F(Enumerator, TakesTheFirstDiskOfASystemDriveOnSeveral) {
  host().model().disks[0].volumes[0].otherDisks = {1};
  enumerator.EnumerateDisks(true);
  EXPECT_EQ(DiskAndVolumeEnumerator::systemDriveSerialNumber, L"SYS");
}

TEST_F(Enumerator, ASystemDiskWithoutASerialNumberIsNoFailure) {
  enumerator.EnumerateDisks(true);
  HostModel model = SmallHost();
  model.disks[0].reportsSerial = false;
  Install(std::move(model));
  DiskAndVolumeEnumerator fresh;
  fresh.EnumerateDisks(false);
  EXPECT_EQ(DiskAndVolumeEnumerator::systemDriveSerialNumber, L"");
}

// Whatever question fails: no disk is told of, neither is an empty serial number taken for the system disk's.
TEST_F(Enumerator, FailsWhenTheSystemDriveCannotBeTold) {
  const std::wstring volume = VolumeName(0);
  struct Question {
    const char* call;
    int occurrence;
    std::wstring message;
  };
  const Question questions[] = {
      {"GetSystemDirectoryW", 1, L"GetSystemDirectoryW() failed with 5"},
      {"GetVolumeNameForVolumeMountPointW", 1, L"The volume of the system drive C:\\ cannot be told: error 5"},
      {"CreateFileW", 1, L"The disk of the system volume " + volume + L" cannot be told: error 5"},
      {"CreateFileW", 2, L"The disk of the system volume " + volume + L" cannot be told: error 5"},
      {"DeviceIoControl", 1, L"The disk of the system volume " + volume + L" cannot be told: error 5"},
      {"DeviceIoControl", 2, L"The disk of the system volume " + volume + L" cannot be told: error 5"},
  };
  for (const Question& question : questions) {
    Install(SmallHost());
    host().faults().FailCall(question.call, ERROR_ACCESS_DENIED, question.occurrence);
    DiskAndVolumeEnumerator fresh;
    WindowsDiskDevice device;
    try {
      fresh.GetDiskDeviceForUniqueVolume(VolumeName(1), device);
      ADD_FAILURE() << question.call << " did not fail the enumeration";
    } catch (const ExceptionCommon& e) {
      EXPECT_EQ(e.GetErrorCode(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
      EXPECT_EQ(e.GetErrorMessage(), question.message);
    }
    EXPECT_EQ(device.diskName, L"");
    // It is asked again, and the fault is gone.
    fresh.GetDiskDeviceForUniqueVolume(VolumeName(1), device);
    EXPECT_EQ(device.serialNumber, L"TSL0001");
  }
}

TEST_F(Enumerator, AVolumeOnSeveralDisksBelongsToNone) {
  host().model().disks[1].volumes.push_back({VolumeName(11), {L"G:\\"}, false, L"", {2}});
  WindowsDiskDevice device;
  enumerator.GetDiskDeviceForUniqueVolume(VolumeName(11), device);
  EXPECT_EQ(device.serialNumber, L"");
  EXPECT_EQ(device.diskName, L"");
  EXPECT_THAT(VolumesOf(L"TSL0001"), ElementsAre(VolumeName(1)));
  EXPECT_THAT(VolumesOf(L"TSL0002"), ElementsAre(VolumeName(2)));
  EXPECT_THAT(enumerator.GetDiskNumbersOfVolume(VolumeName(11)), ElementsAre(1u, 2u));
  EXPECT_THAT(enumerator.GetDiskNumbersOfVolume(VolumeName(1)), ElementsAre(1u));
  EXPECT_THAT(enumerator.GetDiskNumbersOfVolume(VolumeName(99)), IsEmpty());
  EXPECT_THAT(enumerator.GetDiskNumbersOfVolume(L"E:\\"), IsEmpty());
  EXPECT_THAT(log.Errors(), ElementsAre("Volume lies on several disks and counts to none of them, "
                                        "Volume=\\\\?\\Volume{00000011-0000-0000-0000-000000000000}\\, "
                                        "Disks=\\\\.\\PhysicalDrive1, \\\\.\\PhysicalDrive2"));
}

TEST_F(Enumerator, SeesANewVolumeAfterTheNextEnumeration) {
  EXPECT_THAT(VolumesOf(L"TSL0003"), IsEmpty());
  host().model().disks.push_back(MakeDisk(L"TSL0003", 3, L"H:\\"));
  enumerator.EnumerateDisks(false);
  EXPECT_THAT(VolumesOf(L"TSL0003"), IsEmpty());
  enumerator.EnumerateDisks(true);
  EXPECT_THAT(VolumesOf(L"TSL0003"), ElementsAre(VolumeName(3)));
}

TEST_F(Enumerator, AsksNoDeviceForWhatItKnows) {
  enumerator.GetDisks();
  EXPECT_EQ(SerialOf(VolumeName(99)), L"");
  const std::size_t before = OpenCount();
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(SerialOf(VolumeName(1)), L"TSL0001");
    EXPECT_EQ(SerialOf(VolumeName(99)), L"");
    EXPECT_THAT(VolumesOf(L"tsl0002"), SizeIs(1));
  }
  EXPECT_EQ(OpenCount(), before);
}

TEST_F(Enumerator, ReadsADiskOnceHoweverManyVolumesItHolds) {
  HostModel model = SmallHost();
  for (int i = 0; i < 50; ++i) model.disks[1].volumes.push_back({VolumeName(100 + i), {}, false, L""});
  Install(std::move(model));
  enumerator.GetDisks();
  EXPECT_EQ(OpenCount(), 53u + 3u);  // every volume, every disk
  std::size_t descriptors = 0;
  for (const std::string& line : host().calls().Of("DeviceIoControl")) {
    if (line.find("IOCTL_STORAGE_QUERY_PROPERTY") != line.npos) ++descriptors;
  }
  EXPECT_EQ(descriptors, 3u);
}

TEST_F(Enumerator, GoesOnWhenOneVolumeOrDiskCannotBeOpened) {
  // Opened in turn: the system's volume 0 and its disk 0, volume 1, disk 1, volume 2, disk 2.
  for (const int occurrence : {3, 4}) {
    Install(SmallHost());
    log.lines.clear();
    host().faults().FailCall("CreateFileW", ERROR_ACCESS_DENIED, occurrence);
    enumerator.EnumerateDisks(true);
    enumerator.GetDisks();
    EXPECT_THAT(log.Warnings(), ElementsAre(AllOf(HasSubstr("CreateFileW() Failed"), HasSubstr("Error=5"))));
    EXPECT_EQ(log.lines[0].source, "DiskAndVolumeEnumerator");
    EXPECT_EQ(SerialOf(VolumeName(1)), L"");
    EXPECT_EQ(SerialOf(VolumeName(2)), L"TSL0002");
    EXPECT_THAT(VolumesOf(L"TSL0001"), IsEmpty());
  }
}

TEST_F(Enumerator, KeepsAVolumeWhoseMountPointsCannotBeRead) {
  host().faults().FailCall("GetVolumePathNamesForVolumeNameW", ERROR_ACCESS_DENIED);
  std::vector<WindowsVolumeInfo> volumes;
  enumerator.GetVolumesForGivenDisk(L"TSL0001", volumes);
  ASSERT_THAT(volumes, SizeIs(1));
  EXPECT_EQ(volumes[0].mountPoint, L"");
  EXPECT_THAT(log.Warnings(), ElementsAre(HasSubstr("GetVolumePathNamesForVolumeNameW() Failed")));
}

TEST_F(Enumerator, FailsWhenTheVolumesCannotBeListedAndStillKnowsEachOne) {
  enumerator.EnumerateDisks(true);
  for (const std::string call : {"FindNextVolumeW", "FindFirstVolumeW"}) {
    host().faults().FailCall(call, ERROR_ACCESS_DENIED, 0);
    enumerator.EnumerateDisks(true);
    try {
      enumerator.GetDisks();
      FAIL() << call << " did not fail the enumeration";
    } catch (const ExceptionCommon& e) {
      EXPECT_EQ(e.GetErrorCode(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
      EXPECT_EQ(e.what(), call + "() failed with 5");
    }
    EXPECT_EQ(SerialOf(VolumeName(1)), L"TSL0001");
    EXPECT_EQ(host().live().Describe(), "");
  }
}

TEST_F(Enumerator, AHostOfTheSystemDriveAloneHasNoOtherDisk) {
  HostModel model;
  model.disks.push_back(MakeDisk(L"SYS", 0, L"C:\\"));
  Install(std::move(model));
  EXPECT_THAT(enumerator.GetDisks(), SizeIs(1));
  EXPECT_EQ(SerialOf(VolumeName(1)), L"");
}

// Every call fails once, then that call and all after it: nothing is left open, and only a failed listing or question
// for the system drive throws.
TEST_F(Enumerator, HoldsNothingWhicheverCallFails) {
  for (const bool persistent : {false, true}) {
    for (int n = 1;; ++n) {
      ASSERT_LT(n, 1000);
      Install(SmallHost());
      host().faults().FailNthCall(n, ERROR_ACCESS_DENIED, persistent);
      DiskAndVolumeEnumerator fresh;
      bool thrown = false;
      try {
        fresh.GetDisks();
      } catch (const ExceptionCommon& e) {
        thrown = true;
        EXPECT_EQ(e.GetErrorCode(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
      }
      const std::string& failed = host().faults().firedAt();
      SCOPED_TRACE("call " + std::to_string(n) + " " + failed);
      EXPECT_THAT(host().live().misuses(), IsEmpty());
      EXPECT_EQ(host().live().Describe(), "");
      if (!host().faults().fired()) break;
      if (persistent) continue;
      // The directory, its volume, the volume opened, asked and closed, its disk opened and asked.
      const bool isForTheSystemDrive = n <= 7 && failed != "CloseHandle";
      EXPECT_EQ(thrown, isForTheSystemDrive || failed == "FindFirstVolumeW" || failed == "FindNextVolumeW") << n;
    }
  }
}

// A device that answers one query as the test wants.
class ScriptedStorage final : public ForwardingStorage {
 public:
  using ForwardingStorage::ForwardingStorage;

  HANDLE CreateFileW(LPCWSTR name, DWORD access, DWORD share, void* security, DWORD disposition, DWORD flags,
                     HANDLE templateFile) override {
    accesses.push_back(access);
    shares.push_back(share);
    const auto alias = aliases.find(name);
    return ForwardingStorage::CreateFileW(alias == aliases.end() ? name : alias->second.c_str(), access, share,
                                          security, disposition, flags, templateFile);
  }

  BOOL DeviceIoControl(HANDLE device, DWORD code, void* in, DWORD inBytes, void* out, DWORD outBytes, DWORD* returned,
                       void* overlapped) override {
    if (code == answeredCode && answer) return answer(out, outBytes, returned);
    return ForwardingStorage::DeviceIoControl(device, code, in, inBytes, out, outBytes, returned, overlapped);
  }

  std::vector<DWORD> accesses;
  std::vector<DWORD> shares;
  std::map<std::wstring, std::wstring> aliases;
  DWORD answeredCode = 0;
  std::function<BOOL(void* out, DWORD outBytes, DWORD* returned)> answer;
};

class ScriptedEnumerator : public Enumerator {
 protected:
  void SetUp() override {
    Enumerator::SetUp();
    storage = std::make_unique<ScriptedStorage>(host().storage());
    decorator = std::make_unique<ReplacedHost>(host());
    decorator->storageInstead = storage.get();
    scoped.emplace(*decorator);
  }
  void TearDown() override {
    scoped.reset();
    Enumerator::TearDown();
  }

  /// The descriptor of every disk: `strings` after the fixed part, the serial number said to be at `offset`.
  void AnswerDescriptor(DWORD offset, const std::string& strings) {
    storage->answeredCode = IOCTL_STORAGE_QUERY_PROPERTY;
    storage->answer = [offset, strings](void* out, DWORD outBytes, DWORD* returned) -> BOOL {
      if (outBytes < kStrings + strings.size()) return FALSE;
      STORAGE_DEVICE_DESCRIPTOR descriptor{};
      descriptor.Version = sizeof descriptor;
      descriptor.SerialNumberOffset = offset;
      std::memcpy(out, &descriptor, kStrings);
      std::memcpy(static_cast<char*>(out) + kStrings, strings.data(), strings.size());
      *returned = static_cast<DWORD>(kStrings + strings.size());
      return TRUE;
    };
  }

  static constexpr DWORD kStrings = offsetof(STORAGE_DEVICE_DESCRIPTOR, RawDeviceProperties);
  std::unique_ptr<ScriptedStorage> storage;
  std::unique_ptr<ReplacedHost> decorator;
  std::optional<ScopedHost> scoped;
};

TEST_F(ScriptedEnumerator, NeedsNoRightsAndNoExclusiveAccess) {
  enumerator.GetDisks();
  EXPECT_THAT(storage->accesses, Each(0u));
  EXPECT_THAT(storage->shares, Each(static_cast<DWORD>(FILE_SHARE_READ | FILE_SHARE_WRITE)));
  EXPECT_THAT(storage->accesses, SizeIs(6));
}

TEST_F(ScriptedEnumerator, AsksTheDeviceOfAShadowCopyInAnyCase) {
  storage->aliases[L"\\\\?\\globalroot\\device\\harddiskvolumeshadowcopy7"] =
      VolumeName(2).substr(0, VolumeName(2).size() - 1);
  EXPECT_EQ(SerialOf(L"\\\\?\\globalroot\\device\\harddiskvolumeshadowcopy7\\"), L"TSL0002");
  EXPECT_EQ(SerialOf(L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy7\\"), L"TSL0002");
  EXPECT_THAT(VolumesOf(L"TSL0002"), ElementsAre(VolumeName(2)));
}

TEST_F(ScriptedEnumerator, ReadsASerialNumberWhereverItStands) {
  AnswerDescriptor(kStrings + 7, std::string("Tessel\0TSL9\0", 12));
  EXPECT_EQ(SerialOf(VolumeName(1)), L"TSL9");
}

TEST_F(ScriptedEnumerator, ReadsASerialNumberByteByByte) {
  AnswerDescriptor(kStrings, std::string("\xB0\xFF\0", 3));
  EXPECT_EQ(SerialOf(VolumeName(1)), L"\u00B0\u00FF");
}

TEST_F(ScriptedEnumerator, TakesNoSerialNumberFromOutsideTheReturnedBytes) {
  const DWORD end = kStrings + 5;
  for (const DWORD offset : std::initializer_list<DWORD>{0xFFFFFFFF, 0, kStrings - 1, end, end + 1, 4096, 0x80000000}) {
    AnswerDescriptor(offset, std::string("TSL9\0", 5));
    enumerator.EnumerateDisks(true);
    EXPECT_EQ(SerialOf(VolumeName(1)), L"") << offset;
  }
}

TEST_F(ScriptedEnumerator, TakesNoSerialNumberWithoutAnEnd) {
  AnswerDescriptor(kStrings, "TSL9");
  EXPECT_EQ(SerialOf(VolumeName(1)), L"");
}

TEST_F(ScriptedEnumerator, TakesNoSerialNumberFromADescriptorThatWasCutShort) {
  storage->answeredCode = IOCTL_STORAGE_QUERY_PROPERTY;
  storage->answer = [](void*, DWORD, DWORD* returned) -> BOOL {
    *returned = 8;
    return TRUE;
  };
  EXPECT_EQ(SerialOf(VolumeName(1)), L"");
}

TEST_F(ScriptedEnumerator, AsksAgainWithMoreRoomForAVolumeOfManyExtents) {
  storage->answeredCode = IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS;
  storage->answer = [this](void* out, DWORD outBytes, DWORD* returned) -> BOOL {
    constexpr DWORD kExtents = 20;
    constexpr DWORD kNeeded = offsetof(VOLUME_DISK_EXTENTS, Extents) + kExtents * sizeof(DISK_EXTENT);
    std::vector<VOLUME_DISK_EXTENTS> answer(kExtents);
    answer[0].NumberOfDiskExtents = kExtents;
    const DISK_EXTENT extent{2, {}, {}};
    for (DWORD i = 0; i < kExtents; ++i) {
      std::memcpy(reinterpret_cast<char*>(answer.data()) + offsetof(VOLUME_DISK_EXTENTS, Extents) + i * sizeof extent,
                  &extent, sizeof extent);
    }
    *returned = std::min(outBytes, kNeeded);
    std::memcpy(out, answer.data(), *returned);
    decorator->lastErrorInstead.reset();
    if (outBytes < kNeeded) decorator->lastErrorInstead = ERROR_MORE_DATA;
    return outBytes < kNeeded ? FALSE : TRUE;
  };
  EXPECT_EQ(SerialOf(VolumeName(1)), L"TSL0002");
  EXPECT_THAT(VolumesOf(L"TSL0001"), IsEmpty());
  EXPECT_THAT(enumerator.GetDiskNumbersOfVolume(VolumeName(1)), ElementsAre(2u));
}

// A disk may be among the extents that are missing.
TEST_F(ScriptedEnumerator, TakesNoDiskFromExtentsThatWereCutShort) {
  enumerator.EnumerateDisks(false);
  storage->answeredCode = IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS;
  storage->answer = [](void* out, DWORD, DWORD* returned) -> BOOL {
    VOLUME_DISK_EXTENTS extents{};
    extents.NumberOfDiskExtents = 2;
    extents.Extents[0].DiskNumber = 1;
    std::memcpy(out, &extents, sizeof extents);
    *returned = sizeof extents;
    return TRUE;
  };
  EXPECT_EQ(SerialOf(VolumeName(1)), L"");
}

TEST_F(ScriptedEnumerator, GivesUpOnADeviceWhoseExtentsNeverFit) {
  enumerator.EnumerateDisks(false);
  storage->answeredCode = IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS;
  int queries = 0;
  storage->answer = [&](void*, DWORD, DWORD*) -> BOOL {
    ++queries;
    decorator->lastErrorInstead = ERROR_MORE_DATA;
    return FALSE;
  };
  EXPECT_EQ(SerialOf(L"\\\\.\\PhysicalDrive1"), L"");
  EXPECT_LT(queries, 40);
}

TEST_F(ScriptedEnumerator, AVolumeWithoutAnExtentHasNoDisk) {
  enumerator.EnumerateDisks(false);
  storage->answeredCode = IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS;
  storage->answer = [](void* out, DWORD outBytes, DWORD* returned) -> BOOL {
    std::memset(out, 0, outBytes);
    *returned = outBytes;
    return TRUE;
  };
  EXPECT_EQ(SerialOf(VolumeName(1)), L"");
  EXPECT_THAT(enumerator.GetDisks(), SizeIs(1)) << "the system's, which told before";
  EXPECT_THAT(log.Warnings(), Contains(HasSubstr("without an extent")));
}

TEST_F(ScriptedEnumerator, AsksADeviceOnceWhoseExtentsCannotBeRead) {
  enumerator.EnumerateDisks(false);
  storage->answeredCode = IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS;
  int queries = 0;
  storage->answer = [&](void*, DWORD, DWORD*) -> BOOL {
    ++queries;
    decorator->lastErrorInstead = ERROR_ACCESS_DENIED;
    return FALSE;
  };
  EXPECT_EQ(SerialOf(L"\\\\.\\PhysicalDrive1"), L"");
  EXPECT_EQ(SerialOf(L"\\\\.\\PhysicalDrive1"), L"");
  EXPECT_EQ(queries, 1);
}

// ---- what is written to the log ----

struct Failure {
  const char* call;
  DWORD error;
  int occurrence;
  std::string warning;
};

// Opened in turn: volume 0, disk 0, volume 1 and so on. Every disk answers three queries: the extents of its volume,
// its descriptor, and whether it is clustered.
const Failure kFailures[] = {
    {"CreateFileW", ERROR_ACCESS_DENIED, 3,
     "CreateFileW() Failed, Device=\\\\?\\Volume{00000001-0000-0000-0000-000000000000}\\, Error=5"},
    {"CreateFileW", ERROR_FILE_NOT_FOUND, 4, "CreateFileW() Failed, Device=\\\\.\\PhysicalDrive1, Error=2"},
    {"DeviceIoControl", ERROR_ACCESS_DENIED, 4,
     "IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS Failed, Device=\\\\?\\Volume{00000001-0000-0000-0000-000000000000}\\, "
     "Error=5"},
    {"DeviceIoControl", ERROR_GEN_FAILURE, 5,
     "IOCTL_STORAGE_QUERY_PROPERTY Failed, Device=\\\\.\\PhysicalDrive1, Error=31"},
    {"DeviceIoControl", ERROR_ACCESS_DENIED, 6,
     "IOCTL_DISK_IS_CLUSTERED Failed, Device=\\\\.\\PhysicalDrive1, Error=5"},
    {"GetVolumePathNamesForVolumeNameW", ERROR_ACCESS_DENIED, 1,
     "GetVolumePathNamesForVolumeNameW() Failed, Device=\\\\?\\Volume{00000001-0000-0000-0000-000000000000}\\, "
     "Error=5"},
    {"GetVolumePathNamesForVolumeNameW", ERROR_MORE_DATA, 1,  // without saying how much room is needed
     "GetVolumePathNamesForVolumeNameW() Failed, Device=\\\\?\\Volume{00000001-0000-0000-0000-000000000000}\\, "
     "Error=234"},
};

TEST_F(Enumerator, WarnsOnceOfWhatItCannotRead) {
  for (const Failure& failure : kFailures) {
    SCOPED_TRACE(failure.warning);
    Install(SmallHost());
    log.lines.clear();
    host().faults().FailCall(failure.call, failure.error, failure.occurrence);
    DiskAndVolumeEnumerator fresh;
    std::vector<WindowsVolumeInfo> volumes;
    fresh.GetVolumesForGivenDisk(L"TSL0001", volumes);
    EXPECT_THAT(log.AllWithSources(), ElementsAre("W DiskAndVolumeEnumerator: " + failure.warning));
  }
}

TEST_F(ScriptedEnumerator, WarnsOfAVolumeWithoutAnExtentAndOfExtentsThatNeverFit) {
  enumerator.EnumerateDisks(false);
  storage->answeredCode = IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS;
  storage->answer = [](void* out, DWORD outBytes, DWORD* returned) -> BOOL {
    std::memset(out, 0, outBytes);
    *returned = outBytes;
    return TRUE;
  };
  log.lines.clear();
  SerialOf(L"\\\\.\\PhysicalDrive1");
  storage->answer = [this](void*, DWORD, DWORD*) -> BOOL {
    decorator->lastErrorInstead = ERROR_MORE_DATA;
    return FALSE;
  };
  SerialOf(L"\\\\.\\PhysicalDrive2");
  EXPECT_THAT(
      log.Warnings(),
      ElementsAre("IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS without an extent Failed, Device=\\\\.\\PhysicalDrive1, "
                  "Error=0",
                  "IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS Failed, Device=\\\\.\\PhysicalDrive2, Error=234"));
}

}  // namespace
}  // namespace varnel
