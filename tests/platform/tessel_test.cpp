// The stand-ins for the maker's libraries, over a simulated host and, where a machine answers what a simulated one
// never does, over a host whose answers a test replaces.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/host.h"
#include "platform/tessel/FileLog.h"
#include "platform/tessel/MetadataWrapper.h"
#include "platform/tessel/TesselCommonClasses.h"
#include "platform/tessel/log_sink.h"
#include "tests/support/host_fixture.h"

namespace varnel {
namespace {

using simulator::HostModel;
using TesselCommonClasses::ClusterHelper;
using TesselCommonClasses::DiskAndVolumeEnumerator;
using TesselCommonClasses::ExceptionCommon;
using TesselCommonClasses::UtilityClass;
using TesselCommonClasses::Version;
using TesselCommonClasses::VersionHelper;
using TesselCommonClasses::WindowsDiskDevice;
using TesselCommonClasses::WindowsVolumeInfo;
using TesselCommonClasses::WMIDiskHelper;
using test::MakeDisk;
using test::SmallHost;
using test::VolumeName;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;

// ---- log ----

class LevelLog final : public test::RecordingLog {
 public:
  explicit LevelLog(int lowestCategory) : lowestCategory_(lowestCategory) {}
  int LowestCategory() const override { return lowestCategory_; }

 private:
  int lowestCategory_;
};

TEST(FileLog, IsNullUntilSomebodyListens) {
  EXPECT_EQ(CFileLog::GetInstance(), nullptr);
  {
    test::RecordingLog log;
    const ScopedLog scoped(log);
    EXPECT_NE(CFileLog::GetInstance(), nullptr);
  }
  EXPECT_EQ(CFileLog::GetInstance(), nullptr);
}

TEST(FileLog, IsOneObjectForTheProcess) {
  test::RecordingLog log;
  const ScopedLog scoped(log);
  EXPECT_EQ(CFileLog::GetInstance(), CFileLog::GetInstance());
}

TEST(FileLog, GoesToTheInnermostListener) {
  test::RecordingLog outer;
  test::RecordingLog inner;
  const ScopedLog scopedOuter(outer);
  {
    const ScopedLog scopedInner(inner);
    CFileLog::GetInstance()->Log(CFileLog::Error, L"varnel", 1, L"inner");
  }
  CFileLog::GetInstance()->Log(CFileLog::Error, L"varnel", 2, L"outer");
  EXPECT_THAT(inner.Errors(), ElementsAre("inner"));
  EXPECT_THAT(outer.Errors(), ElementsAre("outer"));
}

TEST(FileLog, FormatsWideAndNarrowText) {
  test::RecordingLog log;
  const ScopedLog scoped(log);
  CFileLog::GetInstance()->Log(CFileLog::Information, L"varnel", 1, L"%s, %S, %d, 0x%08lx", L"wide", "narrow", -5,
                               0x80042301u);
  EXPECT_THAT(log.All(), ElementsAre("I wide, narrow, -5, 0x80042301"));
  EXPECT_EQ(log.lines[0].source, "varnel");
}

TEST(FileLog, DropsLinesBelowTheLowestCategory) {
  LevelLog log(CFileLog::Warning);
  const ScopedLog scoped(log);
  for (const int category : {CFileLog::Verbose, CFileLog::Information, CFileLog::Warning, CFileLog::Error}) {
    CFileLog::GetInstance()->Log(category, L"varnel", 1, L"category %d", category);
  }
  EXPECT_THAT(log.All(), ElementsAre("W category 3", "E category 4"));
}

TEST(FileLog, TakesANullSourceAndANullFormat) {
  test::RecordingLog log;
  const ScopedLog scoped(log);
  CFileLog::GetInstance()->Log(CFileLog::Error, nullptr, 1, nullptr);
  EXPECT_THAT(log.All(), ElementsAre("E "));
}

// A file of this test's own, gone with it.
class LogFile : public testing::Test {
 protected:
  LogFile()
      : path_(std::filesystem::temp_directory_path() /
              ("varnel-log-test-" + std::string(testing::UnitTest::GetInstance()->current_test_info()->name()) +
               ".txt")) {
    std::filesystem::remove(path_);
  }
  ~LogFile() override {
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
  }

  std::vector<std::string> Lines() const {
    std::ifstream file(path_);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
  }

  void LogOneLine(int category, const wchar_t* text) {
    const std::unique_ptr<LogSink> sink = OpenLogFile(path_, CFileLog::Verbose);
    const ScopedLog scoped(*sink);
    CFileLog::GetInstance()->Log(category, L"varnel", 123, L"%s", text);
  }

  const std::filesystem::path path_;
};

TEST_F(LogFile, GivesTimeCategorySourceLineAndText) {
  LogOneLine(CFileLog::Error, L"text of the line");
  EXPECT_THAT(Lines(), ElementsAre(MatchesRegex("....-..-.. ..:..:..\\.... E varnel\\(123\\) text of the line")));
}

TEST_F(LogFile, NamesEveryCategoryByALetter) {
  for (const int category : {CFileLog::Verbose, CFileLog::Information, CFileLog::Warning, CFileLog::Error}) {
    LogOneLine(category, L"x");
  }
  EXPECT_THAT(Lines(), ElementsAre(HasSubstr(" V varnel"), HasSubstr(" I varnel"), HasSubstr(" W varnel"),
                                   HasSubstr(" E varnel")));
}

TEST_F(LogFile, IsUtf8AndIsAppendedTo) {
  LogOneLine(CFileLog::Information, L"\u00E9\U0001F680");
  LogOneLine(CFileLog::Information, L"second");
  EXPECT_THAT(Lines(), ElementsAre(HasSubstr(") \xC3\xA9\xF0\x9F\x9A\x80"), HasSubstr(") second")));
}

TEST_F(LogFile, IndentsWhatFollowsALineBreakInTheText) {
  LogOneLine(CFileLog::Information, L"first\r\nsecond\nthird\rfourth");
  EXPECT_THAT(Lines(), ElementsAre(HasSubstr(") first"), "    second", "    third", "    fourth"));
}

TEST_F(LogFile, DropsTheLineBreaksAtTheEndOfTheText) {
  LogOneLine(CFileLog::Information, L"rc=SystemError;\r\n\n");
  LogOneLine(CFileLog::Information, L"\n");
  EXPECT_THAT(Lines(), ElementsAre(HasSubstr(") rc=SystemError;"), MatchesRegex(".*varnel\\(123\\) ")));
}

TEST_F(LogFile, WritesWhatIsLoggedAtOnce) {
  const std::unique_ptr<LogSink> sink = OpenLogFile(path_, CFileLog::Verbose);
  sink->Write(CFileLog::Error, L"varnel", 1, L"before the end of the process");
  EXPECT_THAT(Lines(), SizeIs(1));
}

TEST_F(LogFile, KnowsItsLowestCategory) {
  EXPECT_EQ(OpenLogFile(path_, CFileLog::Warning)->LowestCategory(), CFileLog::Warning);
}

TEST_F(LogFile, ThatCannotBeOpenedIsAnError) {
  EXPECT_THROW(OpenLogFile(path_ / "no" / "such" / "folder.txt", CFileLog::Verbose), std::system_error);
}

// ---- a host whose answers a test replaces ----

class StorageDecorator : public Storage {
 public:
  explicit StorageDecorator(Storage& inner) : inner_(inner) {}
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

// Forwards to another host; a test sets what is to answer instead.
class HostDecorator : public Host {
 public:
  explicit HostDecorator(Host& inner) : inner_(inner) {}
  VssService& vss() override { return inner_.vss(); }
  Storage& storage() override { return storageInstead == nullptr ? inner_.storage() : *storageInstead; }
  Processes& processes() override { return inner_.processes(); }
  Registry& registry() override { return inner_.registry(); }
  SystemInformation& system() override { return inner_.system(); }
  Messages& messages() override { return inner_.messages(); }
  IscsiInitiator& iscsi() override { return inner_.iscsi(); }
  Cluster& cluster() override { return clusterInstead == nullptr ? inner_.cluster() : *clusterInstead; }
  WmiDisks& wmi() override { return inner_.wmi(); }
  FileVersions& files() override { return inner_.files(); }
  Heap& heap() override { return inner_.heap(); }
  Time& time() override { return inner_.time(); }
  MetadataService& metadata() override { return inner_.metadata(); }
  DWORD GetLastError() override { return lastErrorInstead ? *lastErrorInstead : inner_.GetLastError(); }

  Storage* storageInstead = nullptr;
  Cluster* clusterInstead = nullptr;
  std::optional<DWORD> lastErrorInstead;

 private:
  Host& inner_;
};

// ---- volumes and disks ----

class Enumerator : public test::HostFixture {
 protected:
  std::wstring SerialOf(const std::wstring& volume) {
    WindowsDiskDevice device;
    enumerator.GetDiskDeviceForUniqueVolume(volume, device);
    return device.serialNumber;
  }
  std::vector<std::wstring> VolumesOf(const std::wstring& serial) {
    std::vector<std::wstring> names;
    enumerator.GetUniqueVolumeNamesForDisk(serial, names);
    return names;
  }
  std::size_t OpenCount() { return host().calls().Of("CreateFileW").size(); }

  DiskAndVolumeEnumerator enumerator;
};

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

TEST_F(Enumerator, LearnsTheDiskOfTheSystemDriveAnewWithEveryEnumeration) {
  enumerator.EnumerateDisks(true);
  HostModel model = SmallHost();
  model.systemDirectory = L"F:\\Windows\\system32";
  Install(std::move(model));
  enumerator.EnumerateDisks(true);
  EXPECT_EQ(DiskAndVolumeEnumerator::systemDriveSerialNumber, L"TSL0002");
  model = SmallHost();
  model.systemDirectory = L"Q:\\Windows\\system32";
  Install(std::move(model));
  enumerator.EnumerateDisks(true);
  EXPECT_EQ(DiskAndVolumeEnumerator::systemDriveSerialNumber, L"");
  EXPECT_THAT(log.Warnings(), Contains(HasSubstr("GetVolumeNameForVolumeMountPointW() Failed, Device=Q:\\")));
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
  enumerator.EnumerateDisks(false);
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
  enumerator.EnumerateDisks(true);
  EXPECT_EQ(OpenCount(), 53u + 3u);  // every volume, every disk
  std::size_t descriptors = 0;
  for (const std::string& line : host().calls().Of("DeviceIoControl")) {
    if (line.find("IOCTL_STORAGE_QUERY_PROPERTY") != line.npos) ++descriptors;
  }
  EXPECT_EQ(descriptors, 3u);
}

TEST_F(Enumerator, GoesOnWhenOneVolumeOrDiskCannotBeOpened) {
  // Opened in turn: volume 0, disk 0, volume 1, disk 1, volume 2, disk 2.
  for (const int occurrence : {3, 4}) {
    Install(SmallHost());
    log.lines.clear();
    host().faults().FailCall("CreateFileW", ERROR_ACCESS_DENIED, occurrence);
    enumerator.EnumerateDisks(true);
    EXPECT_THAT(log.Warnings(), ElementsAre(AllOf(HasSubstr("CreateFileW() Failed"), HasSubstr("Error=5"))));
    EXPECT_EQ(log.lines[0].source, "DiskAndVolumeEnumerator");
    EXPECT_EQ(SerialOf(VolumeName(1)), L"");
    EXPECT_EQ(SerialOf(VolumeName(2)), L"TSL0002");
    EXPECT_THAT(VolumesOf(L"TSL0001"), IsEmpty());
  }
}

TEST_F(Enumerator, KeepsAVolumeWhoseMountPointsCannotBeRead) {
  host().faults().FailCall("GetVolumePathNamesForVolumeNameW", ERROR_ACCESS_DENIED, 2);
  std::vector<WindowsVolumeInfo> volumes;
  enumerator.GetVolumesForGivenDisk(L"TSL0001", volumes);
  ASSERT_THAT(volumes, SizeIs(1));
  EXPECT_EQ(volumes[0].mountPoint, L"");
  EXPECT_THAT(log.Warnings(), ElementsAre(HasSubstr("GetVolumePathNamesForVolumeNameW() Failed")));
}

TEST_F(Enumerator, FailsWhenTheVolumesCannotBeListedAndKeepsWhatItKnew) {
  enumerator.EnumerateDisks(true);
  for (const std::string call : {"FindNextVolumeW", "FindFirstVolumeW"}) {
    host().faults().FailCall(call, ERROR_ACCESS_DENIED, 0);
    try {
      enumerator.EnumerateDisks(true);
      FAIL() << call << " did not fail the enumeration";
    } catch (const ExceptionCommon& e) {
      EXPECT_EQ(e.GetErrorCode(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
      EXPECT_EQ(e.what(), call + "() failed with 5");
    }
    EXPECT_EQ(SerialOf(VolumeName(1)), L"TSL0001");
    EXPECT_EQ(host().live().Describe(), "");
  }
}

TEST_F(Enumerator, AHostWithoutVolumesHasNoDisks) {
  HostModel model;
  Install(std::move(model));
  EXPECT_THAT(enumerator.GetDisks(), IsEmpty());
  EXPECT_EQ(SerialOf(VolumeName(1)), L"");
}

// Every call fails once, then that call and all after it: nothing is left open, and only a failed listing throws.
TEST_F(Enumerator, HoldsNothingWhicheverCallFails) {
  for (const bool persistent : {false, true}) {
    for (int n = 1;; ++n) {
      ASSERT_LT(n, 1000);
      Install(SmallHost());
      host().faults().FailNthCall(n, ERROR_ACCESS_DENIED, persistent);
      DiskAndVolumeEnumerator fresh;
      bool thrown = false;
      try {
        fresh.EnumerateDisks(true);
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
      EXPECT_EQ(thrown, failed == "FindFirstVolumeW" || failed == "FindNextVolumeW");
    }
  }
}

// A device that answers one query as the test wants.
class ScriptedStorage final : public StorageDecorator {
 public:
  using StorageDecorator::StorageDecorator;

  HANDLE CreateFileW(LPCWSTR name, DWORD access, DWORD share, void* security, DWORD disposition, DWORD flags,
                     HANDLE templateFile) override {
    accesses.push_back(access);
    shares.push_back(share);
    const auto alias = aliases.find(name);
    return StorageDecorator::CreateFileW(alias == aliases.end() ? name : alias->second.c_str(), access, share, security,
                                         disposition, flags, templateFile);
  }

  BOOL DeviceIoControl(HANDLE device, DWORD code, void* in, DWORD inBytes, void* out, DWORD outBytes, DWORD* returned,
                       void* overlapped) override {
    if (code == answeredCode && answer) return answer(out, outBytes, returned);
    return StorageDecorator::DeviceIoControl(device, code, in, inBytes, out, outBytes, returned, overlapped);
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
    decorator = std::make_unique<HostDecorator>(host());
    decorator->storageInstead = storage.get();
    scoped.emplace(*decorator);
  }
  void TearDown() override {
    scoped.reset();
    Enumerator::TearDown();
  }

  /// The descriptor of every disk: `strings` behind the fixed part, the serial number said to be at `offset`.
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
  std::unique_ptr<HostDecorator> decorator;
  std::optional<ScopedHost> scoped;
};

TEST_F(ScriptedEnumerator, NeedsNoRightsAndNoExclusiveAccess) {
  enumerator.EnumerateDisks(true);
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

TEST_F(ScriptedEnumerator, CountsAVolumeOnSeveralDisksToTheDiskOfItsFirstExtent) {
  storage->answeredCode = IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS;
  storage->answer = [this](void* out, DWORD outBytes, DWORD* returned) -> BOOL {
    constexpr DWORD kExtents = 20;
    constexpr DWORD kNeeded = offsetof(VOLUME_DISK_EXTENTS, Extents) + kExtents * sizeof(DISK_EXTENT);
    std::vector<VOLUME_DISK_EXTENTS> answer(kExtents);
    answer[0].NumberOfDiskExtents = kExtents;
    answer[0].Extents[0].DiskNumber = 2;
    *returned = std::min(outBytes, kNeeded);
    std::memcpy(out, answer.data(), *returned);
    decorator->lastErrorInstead.reset();
    if (outBytes < kNeeded) decorator->lastErrorInstead = ERROR_MORE_DATA;
    return outBytes < kNeeded ? FALSE : TRUE;
  };
  EXPECT_EQ(SerialOf(VolumeName(1)), L"TSL0002");
  EXPECT_THAT(VolumesOf(L"TSL0001"), IsEmpty());
}

TEST_F(ScriptedEnumerator, GivesUpOnADeviceWhoseExtentsNeverFit) {
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
  storage->answeredCode = IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS;
  storage->answer = [](void* out, DWORD outBytes, DWORD* returned) -> BOOL {
    std::memset(out, 0, outBytes);
    *returned = outBytes;
    return TRUE;
  };
  EXPECT_EQ(SerialOf(VolumeName(1)), L"");
  EXPECT_THAT(enumerator.GetDisks(), IsEmpty());
  EXPECT_THAT(log.Warnings(), Contains(HasSubstr("without an extent")));
}

// ---- volumes of a cluster ----

// Remembers what the cluster is asked and answers for the paths that a test names.
class SharedPaths final : public Cluster {
 public:
  DWORD GetNodeClusterState(LPCWSTR /*node*/, DWORD* state) override {
    *state = 0x13;
    return ERROR_SUCCESS;
  }
  BOOL ClusterIsPathOnSharedVolume(LPCWSTR path) override {
    asked.emplace_back(path);
    return std::find(shared.begin(), shared.end(), path) != shared.end() ? TRUE : FALSE;
  }
  std::vector<std::wstring> shared;
  std::vector<std::wstring> asked;
};

// Volume 1 lies on a clustered disk and is a cluster shared volume, volume 2 is neither.
class ClusterVolumes : public Enumerator {
 protected:
  void SetUp() override {
    HostModel model = SmallHost();
    model.cluster = simulator::ClusterNode{L"CLU01", {}};
    model.disks[1].clustered = true;
    model.disks[1].volumes[0].csv = true;
    Install(std::move(model));
  }
  std::pair<DWORD, std::wstring> ExceptionFor(const std::wstring& volume) {
    try {
      enumerator.IsClusteredDisk(volume);
    } catch (const ExceptionCommon& e) {
      return {e.GetErrorCode(), e.GetErrorMessage()};
    }
    return {};
  }
};

TEST_F(ClusterVolumes, LieOnClusteredDisks) {
  EXPECT_TRUE(enumerator.IsClusteredDisk(VolumeName(1)));
  EXPECT_FALSE(enumerator.IsClusteredDisk(VolumeName(2)));
  EXPECT_FALSE(enumerator.IsClusteredDisk(VolumeName(0)));
}

TEST_F(ClusterVolumes, AreKnownByANameInAnyCaseAndWithoutItsBackslash) {
  std::wstring name = VolumeName(1);
  name.pop_back();
  EXPECT_TRUE(enumerator.IsClusteredDisk(name));
  EXPECT_TRUE(enumerator.IsClusteredDisk(L"\\\\?\\VOLUME{00000001-0000-0000-0000-000000000000}\\"));
}

TEST_F(ClusterVolumes, WithoutADiskAreAnException) {
  EXPECT_EQ(ExceptionFor(VolumeName(99)),
            std::make_pair(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), L"No disk is known for volume " + VolumeName(99)));
  EXPECT_EQ(ExceptionFor(L"E:\\").first, static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
  EXPECT_EQ(ExceptionFor(L"").first, static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
}

TEST_F(ClusterVolumes, OfWhichTheEnumerationFailsAreItsException) {
  host().faults().FailCall("FindFirstVolumeW", ERROR_ACCESS_DENIED);
  EXPECT_EQ(ExceptionFor(VolumeName(1)),
            std::make_pair(static_cast<DWORD>(ERROR_ACCESS_DENIED), std::wstring(L"FindFirstVolumeW() failed with 5")));
}

TEST_F(ClusterVolumes, OnADiskThatDoesNotKnowTheQuestionAreNone) {
  // Every disk answers three queries: the extents of its volume, its descriptor, and whether it is clustered.
  constexpr DWORD kInvalidFunction = 1;
  host().faults().FailCall("DeviceIoControl", kInvalidFunction, 6);
  EXPECT_FALSE(enumerator.IsClusteredDisk(VolumeName(1)));
  EXPECT_EQ(host().calls().Of("DeviceIoControl")[5],
            "DeviceIoControl(\\\\.\\PhysicalDrive1, IOCTL_DISK_IS_CLUSTERED) = error 1");
  EXPECT_THAT(log.Warnings(), IsEmpty());
}

TEST_F(ClusterVolumes, OnADiskThatCannotBeAskedAreAnExceptionAndNotStandalone) {
  host().faults().FailCall("DeviceIoControl", ERROR_ACCESS_DENIED, 6);
  EXPECT_EQ(ExceptionFor(VolumeName(1)),
            std::make_pair(static_cast<DWORD>(ERROR_GEN_FAILURE),
                           std::wstring(L"\\\\.\\PhysicalDrive1 did not tell whether it is clustered")));
  EXPECT_THAT(log.Warnings(), ElementsAre("IOCTL_DISK_IS_CLUSTERED Failed, Device=\\\\.\\PhysicalDrive1, Error=5"));
}

TEST_F(ClusterVolumes, AreAskedForOnce) {
  EXPECT_TRUE(enumerator.IsClusteredDisk(VolumeName(1)));
  const std::size_t before = OpenCount();
  EXPECT_TRUE(enumerator.IsClusteredDisk(VolumeName(1)));
  EXPECT_FALSE(enumerator.IsClusteredDisk(VolumeName(2)));
  EXPECT_EQ(OpenCount(), before);
}

TEST_F(ClusterVolumes, AreSharedWhenTheClusterSaysSo) {
  EXPECT_TRUE(enumerator.IsClusterSharedVolume(VolumeName(1)));
  EXPECT_FALSE(enumerator.IsClusterSharedVolume(VolumeName(2)));
  EXPECT_FALSE(enumerator.IsClusterSharedVolume(VolumeName(99)));
  EXPECT_FALSE(enumerator.IsClusterSharedVolume(L""));
}

TEST_F(ClusterVolumes, AreNotSharedWhenTheClusterCannotTell) {
  host().faults().FailCall("ClusterIsPathOnSharedVolume", ERROR_PROC_NOT_FOUND, 0);
  EXPECT_FALSE(enumerator.IsClusterSharedVolume(VolumeName(1)));
}

class SharedClusterVolumes : public ClusterVolumes {
 protected:
  void SetUp() override {
    ClusterVolumes::SetUp();
    host().model().disks[2].volumes.push_back({VolumeName(20), {}, false, L""});
    decorator = std::make_unique<HostDecorator>(host());
    decorator->clusterInstead = &cluster;
    scoped.emplace(*decorator);
  }
  void TearDown() override {
    scoped.reset();
    ClusterVolumes::TearDown();
  }

  SharedPaths cluster;
  std::unique_ptr<HostDecorator> decorator;
  std::optional<ScopedHost> scoped;
};

TEST_F(SharedClusterVolumes, AreAskedForByTheirNameFirst) {
  cluster.shared = {VolumeName(1)};
  EXPECT_TRUE(enumerator.IsClusterSharedVolume(VolumeName(1)));
  EXPECT_THAT(cluster.asked, ElementsAre(VolumeName(1)));
}

TEST_F(SharedClusterVolumes, MayBeKnownByTheirMountPointOnly) {
  cluster.shared = {L"E:\\"};
  std::wstring name = L"\\\\?\\volume{00000001-0000-0000-0000-000000000000}";
  EXPECT_TRUE(enumerator.IsClusterSharedVolume(name));
  EXPECT_THAT(cluster.asked, ElementsAre(name, L"E:\\"));
}

TEST_F(SharedClusterVolumes, WithoutAMountPointAreAskedForByTheirNameOnly) {
  EXPECT_FALSE(enumerator.IsClusterSharedVolume(VolumeName(20)));
  EXPECT_FALSE(enumerator.IsClusterSharedVolume(VolumeName(99)));
  EXPECT_THAT(cluster.asked, ElementsAre(VolumeName(20), VolumeName(99)));
}

// ---- disks by WMI ----

class WmiHelper : public test::HostFixture {};

TEST_F(WmiHelper, ListsTheArraysDisksByTheirManufacturer) {
  HostModel model = SmallHost();
  model.disks.push_back(MakeDisk(L" TSL3 ", 3, L"H:\\"));
  model.disks.back().vendor = L"  Tessel  ";
  model.disks.back().clustered = true;
  model.disks.push_back(MakeDisk(L"OTHER", 4, L"I:\\"));
  model.disks.back().vendor = L"TesselX";
  model.disks.push_back(MakeDisk(L"CASE", 6, L"K:\\"));
  model.disks.back().vendor = L"TESSEL";
  model.disks.push_back(MakeDisk(L"NONE", 5, L"J:\\"));
  model.disks.back().vendor = L"   ";
  Install(std::move(model));
  const std::vector<WindowsDiskDevice> disks = WMIDiskHelper().GetDiskDevices2k8(true);
  ASSERT_THAT(disks, SizeIs(3));
  EXPECT_EQ(disks[0].serialNumber, L"TSL0001");
  EXPECT_EQ(disks[0].diskName, L"\\\\.\\PhysicalDrive1");
  EXPECT_EQ(disks[0].diskNumber, 1u);
  EXPECT_FALSE(disks[0].isClustered);
  EXPECT_EQ(disks[1].serialNumber, L"TSL0002");
  EXPECT_EQ(disks[2].serialNumber, L" TSL3 ");
  EXPECT_TRUE(disks[2].isClustered);
}

TEST_F(WmiHelper, ListsEveryDiskOnRequest) {
  EXPECT_THAT(WMIDiskHelper().GetDiskDevices2k8(false), SizeIs(3));
}

TEST_F(WmiHelper, ThrowsTheCodeOfAFailedQuery) {
  host().faults().FailNthCall(1, 0x80041003);
  try {
    WMIDiskHelper().GetDiskDevices2k8(true);
    FAIL() << "the failure was swallowed";
  } catch (const ExceptionCommon& e) {
    EXPECT_EQ(e.GetErrorCode(), 0x80041003u);
    EXPECT_EQ(e.GetErrorMessage(), L"The query of the MSFT_Disk class failed with 0x80041003");
    EXPECT_STREQ(e.what(), "The query of the MSFT_Disk class failed with 0x80041003");
  }
}

// ---- cluster ----

class StatedCluster final : public Cluster {
 public:
  DWORD GetNodeClusterState(LPCWSTR /*node*/, DWORD* result) override {
    *result = state;
    return ERROR_SUCCESS;
  }
  BOOL ClusterIsPathOnSharedVolume(LPCWSTR /*path*/) override { return FALSE; }
  DWORD state = 0;
};

class ClusterNode : public test::HostFixture {};

TEST_F(ClusterNode, IsOneWhenTheHostBelongsToACluster) {
  EXPECT_FALSE(ClusterHelper::IsCluster(true));
  EXPECT_FALSE(ClusterHelper::IsCluster(false));
  HostModel model = SmallHost();
  model.cluster = simulator::ClusterNode{L"CLU01", {}};
  Install(std::move(model));
  EXPECT_TRUE(ClusterHelper::IsCluster(true));
  EXPECT_TRUE(ClusterHelper::IsCluster(false));
}

TEST_F(ClusterNode, WithAStoppedServiceIsOneOnlyForWhomThatIsEnough) {
  HostDecorator decorator(host());
  StatedCluster cluster;
  decorator.clusterInstead = &cluster;
  const ScopedHost scoped(decorator);
  const std::pair<DWORD, std::pair<bool, bool>> expected[] = {
      {0, {false, false}}, {1, {false, false}}, {3, {false, true}}, {0x13, {true, true}}};
  for (const auto& [state, answers] : expected) {
    cluster.state = state;
    EXPECT_EQ(ClusterHelper::IsCluster(true), answers.first) << state;
    EXPECT_EQ(ClusterHelper::IsCluster(false), answers.second) << state;
  }
}

TEST_F(ClusterNode, IsNoneWhenTheStateCannotBeRead) {
  HostModel model = SmallHost();
  model.cluster = simulator::ClusterNode{L"CLU01", {}};
  Install(std::move(model));
  host().faults().FailCall("GetNodeClusterState", ERROR_PROC_NOT_FOUND, 0);
  EXPECT_FALSE(ClusterHelper::IsCluster(true));
  EXPECT_FALSE(ClusterHelper::IsCluster(false));
  EXPECT_THAT(log.Warnings(), Contains(HasSubstr("Error=127")));
}

// ---- versions of files ----

static_assert(Version(6, 3, 9600, 17120) > Version(6, 3, 9600, 17119));
static_assert(Version(10, 0, 0, 0) > Version(6, 3, 9600, 17120));
static_assert(Version(6, 4, 0, 0) > Version(6, 3, 65535, 65535));
static_assert(Version(6, 3, 9600, 17120) == Version(6, 3, 9600, 17120));

class FileVersionCheck : public test::HostFixture {
 protected:
  void SetUp() override {
    HostModel model = SmallHost();
    model.fileVersions = {{L"C:\\a.exe", L"6.3.9600.17120"}, {L"C:\\b.exe", L"1.2.3.4"}};
    Install(std::move(model));
  }
  static bool Verify(const std::map<std::wstring, Version>& lowest) {
    return VersionHelper::VerifyFileVersions(lowest);
  }
};

TEST_F(FileVersionCheck, OfNoFileHolds) {
  EXPECT_TRUE(Verify({}));
  EXPECT_THAT(host().calls().lines(), IsEmpty());
}

TEST_F(FileVersionCheck, HoldsWhenEveryFileHasAtLeastItsVersion) {
  EXPECT_TRUE(Verify({{L"C:\\a.exe", Version(6, 3, 9600, 17120)}, {L"C:\\b.exe", Version(1, 2, 3, 3)}}));
  EXPECT_TRUE(Verify({{L"c:\\A.EXE", Version(6, 2, 65535, 65535)}}));
  EXPECT_THAT(log.All(), IsEmpty());
}

TEST_F(FileVersionCheck, FailsForAFileThatIsOlderInAnyPart) {
  for (const Version& lowest : {Version(7, 0, 0, 0), Version(6, 4, 0, 0), Version(6, 3, 9601, 0),
                                Version(6, 3, 9600, 17121), Version(65535, 65535, 65535, 65535)}) {
    log.lines.clear();
    EXPECT_FALSE(Verify({{L"C:\\a.exe", lowest}}));
    EXPECT_THAT(log.AllWithSources(),
                ElementsAre("W VersionHelper: File is older than required, File=C:\\a.exe, Version=6.3.9600.17120"));
  }
}

TEST_F(FileVersionCheck, FailsForAFileThatIsMissing) {
  EXPECT_FALSE(Verify({{L"C:\\a.exe", Version(0, 0, 0, 0)}, {L"C:\\c.exe", Version(0, 0, 0, 0)}}));
  EXPECT_THAT(log.AllWithSources(),
              ElementsAre("W VersionHelper: GetFileVersionInfoW() Failed, File=C:\\c.exe, Error=2"));
}

TEST(FileVersionCheckWithoutALog, FailsAllTheSame) {
  HostModel model = SmallHost();
  model.fileVersions = {{L"C:\\a.exe", L"6.3.9600.17120"}};
  simulator::SimulatedHost host(std::move(model));
  const ScopedHost scoped(host);
  EXPECT_FALSE(VersionHelper::VerifyFileVersions({{L"C:\\c.exe", Version(0, 0, 0, 0)}}));
  EXPECT_FALSE(VersionHelper::VerifyFileVersions({{L"C:\\a.exe", Version(7, 0, 0, 0)}}));
}

// ---- paths ----

class Paths : public test::HostFixture {
 protected:
  struct Found {
    bool found;
    std::wstring volume;
    std::wstring mountPoint;
    friend bool operator==(const Found&, const Found&) = default;
  };
  static Found Find(const std::wstring& path) {
    Found result{false, L"of the call before", L"of the call before"};
    result.found = UtilityClass::GetUniqueVolumeNameForPathNoThrow(path, result.volume, result.mountPoint);
    return result;
  }
};

TEST_F(Paths, EndInABackslash) {
  EXPECT_EQ(UtilityClass::AppendBackslash(L"E:\\data"), L"E:\\data\\");
  EXPECT_EQ(UtilityClass::AppendBackslash(L"E:\\data\\"), L"E:\\data\\");
  EXPECT_EQ(UtilityClass::AppendBackslash(L"E:\\data\\\\"), L"E:\\data\\\\");
  EXPECT_EQ(UtilityClass::AppendBackslash(L""), L"\\");
}

TEST_F(Paths, AreFoundOnTheVolumeThatHoldsThem) {
  EXPECT_EQ(Find(L"E:\\data\\sub\\"), (Found{true, VolumeName(1), L"E:\\"}));
  EXPECT_EQ(Find(L"f:\\DATA"), (Found{true, VolumeName(2), L"f:\\"}));
}

TEST_F(Paths, AreFoundBelowTheDeepestMountPoint) {
  HostModel model = SmallHost();
  model.disks[2].volumes[0].mountPoints = {L"E:\\mount\\crm\\"};
  Install(std::move(model));
  EXPECT_EQ(Find(L"E:\\Mount\\crm\\db\\"), (Found{true, VolumeName(2), L"E:\\Mount\\crm\\"}));
  EXPECT_EQ(Find(L"E:\\mount\\crm2\\"), (Found{true, VolumeName(1), L"E:\\"}));
}

TEST_F(Paths, NamedByTheirVolumeHaveItsNameAsMountPoint) {
  EXPECT_EQ(Find(VolumeName(1) + L"data\\"), (Found{true, VolumeName(1), VolumeName(1)}));
}

TEST_F(Paths, ShorterThanTheirMountPointAreAllMountPoint) {
  EXPECT_EQ(Find(L"E:"), (Found{true, VolumeName(1), L"E:"}));
  EXPECT_EQ(Find(L"E:\\"), (Found{true, VolumeName(1), L"E:\\"}));
}

TEST_F(Paths, LongerThanAPathUsuallyIsAreFound) {
  const std::wstring path = L"E:\\" + std::wstring(1000, L'p') + L"\\";
  EXPECT_EQ(Find(path), (Found{true, VolumeName(1), L"E:\\"}));
  HostModel model = SmallHost();
  model.disks[2].volumes[0].mountPoints = {path};
  Install(std::move(model));
  EXPECT_EQ(Find(path + L"data\\"), (Found{true, VolumeName(2), path}));
}

TEST_F(Paths, OnNoVolumeLeaveBothEmpty) {
  EXPECT_EQ(Find(L"X:\\data\\"), (Found{false, L"", L""}));
  EXPECT_EQ(Find(L""), (Found{false, L"", L""}));
}

TEST_F(Paths, LeaveBothEmptyWheneverACallFails) {
  for (const char* call : {"GetVolumePathNameW", "GetVolumeNameForVolumeMountPointW"}) {
    Install(SmallHost());
    host().faults().FailCall(call, ERROR_ACCESS_DENIED, 0);
    EXPECT_EQ(Find(L"E:\\data\\"), (Found{false, L"", L""})) << call;
  }
}

// A system that completes a path from the current folder.
class RelativePathStorage final : public StorageDecorator {
 public:
  using StorageDecorator::StorageDecorator;
  BOOL GetVolumePathNameW(LPCWSTR /*path*/, LPWSTR mountPoint, DWORD characters) override {
    const std::wstring_view root = L"E:\\";
    if (characters <= root.size()) return FALSE;
    root.copy(mountPoint, root.size());
    mountPoint[root.size()] = L'\0';
    return TRUE;
  }
};

TEST_F(Paths, OfWhichTheMountPointIsNoPrefixHaveNothingToCut) {
  RelativePathStorage storage(host().storage());
  HostDecorator decorator(host());
  decorator.storageInstead = &storage;
  const ScopedHost scoped(decorator);
  EXPECT_EQ(Find(L"data\\sub\\"), (Found{true, VolumeName(1), L""}));
  EXPECT_EQ(Find(L"e:/data/"), (Found{true, VolumeName(1), L"e:/"}));
}

// ---- bridge to the metadata service ----

class Bridge : public test::HostFixture {
 protected:
  void SetUp() override {
    HostModel model = SmallHost();
    model.databases = {{L"TSL0001", L"sales@sql01\tcrm@prod"}, {L"TSL0002", L"ALL_DB"}};
    model.cluster = simulator::ClusterNode{L"CLU01", {{L"sqlvirt", L"sqlvirt-net"}}};
    Install(std::move(model));
  }
  MetadataWrapper& bridge() { return *MetadataWrapper::GetMetadataWrapperInstance(); }
};

TEST(BridgeInstance, IsThereOnlyWithAHost) {
  EXPECT_EQ(MetadataWrapper::GetMetadataWrapperInstance() == nullptr, CurrentHostOrNull() == nullptr);
}

TEST_F(Bridge, IsOneInstanceForTheProcess) {
  ASSERT_NE(MetadataWrapper::GetMetadataWrapperInstance(), nullptr);
  EXPECT_EQ(MetadataWrapper::GetMetadataWrapperInstance(), MetadataWrapper::GetMetadataWrapperInstance());
}

TEST_F(Bridge, HoldsTheListOfTheLastDiskThatHasOne) {
  EXPECT_TRUE(bridge().W_FindDataBaseToQuiesce("TSL0001"));
  EXPECT_STREQ(bridge().GetdbFilesToQuiescePtr(), "sales@sql01\tcrm@prod");
  EXPECT_TRUE(bridge().W_FindDataBaseToQuiesce("TSL0002"));
  EXPECT_STREQ(bridge().GetdbFilesToQuiescePtr(), "ALL_DB");
}

TEST_F(Bridge, KeepsItsListAndTellsTheReasonOfAFailure) {
  ASSERT_TRUE(bridge().W_FindDataBaseToQuiesce("TSL0001"));
  const char* held = bridge().GetdbFilesToQuiescePtr();
  EXPECT_FALSE(bridge().W_FindDataBaseToQuiesce("NO-SUCH-DISK"));
  EXPECT_EQ(bridge().GetdbFilesToQuiescePtr(), held);
  EXPECT_STREQ(held, "sales@sql01\tcrm@prod");
  ASSERT_NE(bridge().W_GetErrorDetailStructurePtr(), nullptr);
  EXPECT_STRNE(bridge().W_GetErrorDetailStructurePtr(), "");
  EXPECT_FALSE(bridge().W_FindDataBaseToQuiesce(nullptr));
}

TEST_F(Bridge, HoldsTheNetworkNameThatItFound) {
  char* name = bridge().W_GetClusterName("sqlvirt");
  EXPECT_STREQ(name, "sqlvirt-net");
}

TEST_F(Bridge, LetsAnUnknownClusterNameThrow) {
  EXPECT_THROW(bridge().W_GetClusterName("no-such-name"), std::runtime_error);
}

}  // namespace
}  // namespace varnel
