// The stand-ins for the maker's libraries that have no file of their own: disks by WMI, versions of files, paths, and
// the bridge to the metadata service.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/tessel/MetadataWrapper.h"
#include "platform/tessel/TesselCommonClasses.h"
#include "tests/platform/replaced_host.h"
#include "tests/support/host_fixture.h"

namespace varnel {
namespace {

using simulator::HostModel;
using TesselCommonClasses::ExceptionCommon;
using TesselCommonClasses::UtilityClass;
using TesselCommonClasses::Version;
using TesselCommonClasses::VersionHelper;
using TesselCommonClasses::WindowsDiskDevice;
using TesselCommonClasses::WMIDiskHelper;
using test::MakeDisk;
using test::ReplacedHost;
using test::SmallHost;
using test::VolumeName;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

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

// A system whose policy, or whose program, has no long paths: it takes them in the long form only.
class ShortPathStorage final : public ForwardingStorage {
 public:
  using ForwardingStorage::ForwardingStorage;
  BOOL GetVolumePathNameW(LPCWSTR path, LPWSTR mountPoint, DWORD characters) override {
    return Takes(path) && ForwardingStorage::GetVolumePathNameW(path, mountPoint, characters);
  }
  BOOL GetVolumeNameForVolumeMountPointW(LPCWSTR mountPoint, LPWSTR volumeName, DWORD characters) override {
    // The long form of what has a short one is not known here.
    const bool isLongForm = std::wstring_view(mountPoint).starts_with(L"\\\\?\\");
    return Takes(mountPoint) && (!isLongForm || std::wstring_view(mountPoint).size() >= MAX_PATH) &&
           ForwardingStorage::GetVolumeNameForVolumeMountPointW(mountPoint, volumeName, characters);
  }

 private:
  static bool Takes(std::wstring_view path) { return path.starts_with(L"\\\\?\\") || path.size() < MAX_PATH; }
};

TEST_F(Paths, OfAnyLengthAreFoundWithoutLongPathsInTheSystem) {
  for (const std::size_t length : {253u, 254u, 255u, 256u, 257u, 258u, 300u, 1000u, 32000u}) {
    const std::wstring path = L"E:\\" + std::wstring(length, L'p') + L"\\";
    HostModel model = SmallHost();
    model.disks[2].volumes[0].mountPoints = {path};
    Install(std::move(model));
    ShortPathStorage storage(host().storage());
    ReplacedHost decorator(host());
    decorator.storageInstead = &storage;
    const ScopedHost scoped(decorator);
    EXPECT_EQ(Find(L"E:\\" + std::wstring(length, L'q') + L"\\"), (Found{true, VolumeName(1), L"E:\\"})) << length;
    EXPECT_EQ(Find(L"e:/" + std::wstring(length, L'q') + L"/"), (Found{true, VolumeName(1), L"e:/"})) << length;
    EXPECT_EQ(Find(path), (Found{true, VolumeName(2), path})) << length;
    EXPECT_EQ(Find(path + L"data\\"), (Found{true, VolumeName(2), path})) << length;
  }
}

TEST_F(Paths, ThatAreLongAreAskedForInTheLongFormAndShortOnesAsTheyAre) {
  const std::wstring longPath = L"E:\\" + std::wstring(300, L'p') + L"\\";
  Find(L"E:\\data\\");
  Find(longPath);
  Find(VolumeName(1) + std::wstring(300, L'p'));
  Find(L"E:\\" + std::wstring(300, L'p') + L"\\..\\x\\");
  const std::string ps(300, 'p');
  const std::string volume = WideToUtf8(VolumeName(1));
  EXPECT_THAT(
      host().calls().lines(),
      ElementsAre("GetVolumePathNameW(E:\\data\\) = ok", "GetVolumeNameForVolumeMountPointW(E:\\) = ok",
                  "GetVolumePathNameW(\\\\?\\E:\\" + ps + "\\) = ok", "GetVolumeNameForVolumeMountPointW(E:\\) = ok",
                  "GetVolumePathNameW(" + volume + ps + ") = ok",
                  "GetVolumeNameForVolumeMountPointW(" + volume + ") = ok",
                  "GetVolumePathNameW(E:\\" + ps + "\\..\\x\\) = ok", "GetVolumeNameForVolumeMountPointW(E:\\) = ok"));
}

// A system that completes a path from the current folder.
class RelativePathStorage final : public ForwardingStorage {
 public:
  using ForwardingStorage::ForwardingStorage;
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
  ReplacedHost decorator(host());
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
