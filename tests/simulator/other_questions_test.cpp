// Cluster, file versions, clock, heap and metadata service.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>

#include "platform/owners.h"
#include "tests/simulator/fixture.h"

namespace varnel::simulator {
namespace {

using test::HostFixture;
using test::VolumeName;
using testing::ElementsAre;
using testing::SizeIs;

class OtherQuestionsTest : public HostFixture {
 protected:
  void SetUp() override {
    HostModel model = test::SmallHost();
    model.cluster = ClusterNode{L"CLU01", {{L"SqlVirt", L"sqlnet"}}};
    model.disks[1].volumes[0].mountPoints = {L"C:\\ClusterStorage\\Volume1\\"};
    model.disks[1].volumes[0].csv = true;
    model.fileVersions = {{L"C:\\Windows\\system32\\Vmms.exe", L"6.3.9600.17120"}};
    model.databases = {{L"TSL0001", L"sales@sql01"}};
    Install(model);
  }
};

TEST_F(OtherQuestionsTest, ANodeOfARunningClusterSaysSo) {
  DWORD state = 99;
  EXPECT_EQ(host().cluster().GetNodeClusterState(nullptr, &state), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(state, 0x13u);
  Install(test::SmallHost());
  EXPECT_EQ(host().cluster().GetNodeClusterState(nullptr, &state), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(state, 0u);
}

TEST_F(OtherQuestionsTest, OnlyPathsOnClusterSharedVolumesAreShared) {
  EXPECT_EQ(host().cluster().ClusterIsPathOnSharedVolume(L"c:\\clusterstorage\\volume1\\vm"), TRUE);
  EXPECT_EQ(host().cluster().ClusterIsPathOnSharedVolume(VolumeName(1).c_str()), TRUE);
  EXPECT_EQ(host().cluster().ClusterIsPathOnSharedVolume(L"C:\\ClusterStorage\\Volume12"), FALSE);
  EXPECT_EQ(host().cluster().ClusterIsPathOnSharedVolume(L"F:\\"), FALSE);
}

TEST_F(OtherQuestionsTest, AFileTellsItsFixedVersion) {
  VS_FIXEDFILEINFO version{};
  ASSERT_EQ(host().files().GetFileVersion(L"c:\\windows\\system32\\vmms.exe", &version), TRUE);
  EXPECT_EQ(version.dwFileVersionMS, 6u << 16 | 3u);
  EXPECT_EQ(version.dwFileVersionLS, 9600u << 16 | 17120u);
  EXPECT_THAT(host().files().GetFileVersion(L"Vmms.exe", &version), FailsWith(ERROR_FILE_NOT_FOUND));
}

TEST_F(OtherQuestionsTest, TheKernelHasTheVersionOfTheSystemUnlessItSaysOtherwise) {
  VS_FIXEDFILEINFO version{};
  ASSERT_EQ(host().files().GetFileVersion(L"C:\\Windows\\System32\\KERNEL32.dll", &version), TRUE);
  EXPECT_EQ(version.dwFileVersionMS, 10u << 16);
  EXPECT_EQ(version.dwFileVersionLS, 17763u << 16);
  model().fileVersions[L"C:\\Windows\\system32\\kernel32.dll"] = L"6.2.9200.7";
  ASSERT_EQ(host().files().GetFileVersion(L"C:\\Windows\\System32\\KERNEL32.dll", &version), TRUE);
  EXPECT_EQ(version.dwFileVersionMS, 6u << 16 | 2u);
}

TEST_F(OtherQuestionsTest, SleepingMovesTheVirtualClock) {
  const ULONGLONG before = host().time().GetTickCount64();
  host().time().Sleep(500);
  EXPECT_EQ(host().time().GetTickCount64() - before, 500u);
  EXPECT_THAT(host().calls().lines(), ElementsAre("Sleep(500)"));
}

TEST_F(OtherQuestionsTest, TimeSpentInSleepIsToldApartFromOtherTime) {
  host().machine().now = 1000;
  host().time().Sleep(500);
  host().time().Sleep(10);
  EXPECT_EQ(host().machine().now, 1510u);
  EXPECT_EQ(host().machine().slept, 510u);
}

TEST_F(OtherQuestionsTest, TheHeapCountsItsBlocks) {
  void* block = host().heap().Malloc(100);
  void* empty = host().heap().Malloc(0);
  ASSERT_NE(block, nullptr);
  ASSERT_NE(empty, nullptr);
  std::memset(block, 1, 100);
  EXPECT_EQ(host().live().Describe(), "2 heap block");
  host().heap().Free(block);
  host().heap().Free(empty);
  host().heap().Free(nullptr);
  EXPECT_EQ(host().live().Describe(), "");
  EXPECT_THAT(host().calls().lines(), ElementsAre("malloc() = ok", "malloc() = ok"));
}

TEST_F(OtherQuestionsTest, TheHeapRunsOutOfMemoryOnDemand) {
  host().faults().FailCall("malloc", ERROR_NOT_ENOUGH_MEMORY, 2);
  const HeapBlock first(10);
  const HeapBlock second(10);
  EXPECT_TRUE(first);
  EXPECT_FALSE(second);
  EXPECT_EQ(host().live().Count("heap block"), 1);
  EXPECT_THAT(host().calls().lines(), ElementsAre("malloc() = ok", "malloc() = error 8"));
}

TEST(HeapMisuse, ABlockFreedTwiceOrOfAnotherKindIsRecorded) {
  SimulatedHost host{HostModel{}};
  const ScopedHost scope(host);
  void* block = host.heap().Malloc(10);
  BSTR text = host.vss().SysAllocStringLen(L"abc", 3);
  host.heap().Free(text);
  EXPECT_THAT(host.live().misuses(), ElementsAre("heap block given back that the caller does not hold"));
  host.heap().Free(block);
  host.heap().Free(block);
  EXPECT_THAT(host.live().misuses(), SizeIs(2));
  EXPECT_EQ(host.live().Describe(), "1 BSTR");
  host.vss().SysFreeString(text);
}

TEST_F(OtherQuestionsTest, TheMetadataServiceKnowsDatabasesByTheExactSerialNumber) {
  std::string databases;
  std::string error;
  EXPECT_TRUE(host().metadata().FindDatabasesToQuiesce("TSL0001", databases, error));
  EXPECT_EQ(databases, "sales@sql01");
  EXPECT_FALSE(host().metadata().FindDatabasesToQuiesce("tsl0001", databases, error));
  EXPECT_EQ(error, "No protection set holds the disk tsl0001");
  host().faults().FailCall("MetadataService::FindDatabasesToQuiesce", static_cast<DWORD>(E_FAIL));
  EXPECT_FALSE(host().metadata().FindDatabasesToQuiesce("TSL0001", databases, error));
  EXPECT_EQ(error, "The metadata service failed: E_FAIL");
}

TEST_F(OtherQuestionsTest, TheMetadataServiceKnowsNetworkNamesOfTheCluster) {
  EXPECT_EQ(host().metadata().GetClusterName("sqlvirt"), "sqlnet");
  EXPECT_THROW(host().metadata().GetClusterName("other"), std::runtime_error);
  Install(test::SmallHost());
  EXPECT_THROW(host().metadata().GetClusterName("sqlvirt"), std::runtime_error);
}

TEST_F(OtherQuestionsTest, TextsOfTheCallerAreCountedLikeTheServicesOwn) {
  BSTR text = host().vss().SysAllocStringLen(L"abc", 3);
  EXPECT_EQ(host().live().Describe(), "1 BSTR");
  host().vss().SysFreeString(text);
  host().faults().FailCall("SysAllocStringLen", static_cast<DWORD>(E_OUTOFMEMORY));
  EXPECT_EQ(host().vss().SysAllocStringLen(L"abc", 3), nullptr);
}

ServiceHandle OpenService(const wchar_t* name) {
  ServiceManager& services = CurrentHost().services();
  const ServiceHandle manager(services.OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
  return ServiceHandle(services.OpenServiceW(manager.Get(), name, SERVICE_QUERY_CONFIG | SERVICE_QUERY_STATUS));
}

TEST_F(OtherQuestionsTest, AServiceTellsHowItStartsAndStands) {
  model().services = {{L"Vss", Service{SERVICE_DISABLED, SERVICE_STOP_PENDING}}, {L"swprv", std::nullopt}};
  const ServiceHandle service = OpenService(L"VSS");
  ServiceManager& services = host().services();
  SERVICE_STATUS status{};
  ASSERT_TRUE(services.QueryServiceStatus(service.Get(), &status));
  EXPECT_EQ(status.dwCurrentState, SERVICE_STOP_PENDING);
  DWORD needed = 0;
  EXPECT_THAT(services.QueryServiceConfigW(service.Get(), nullptr, 0, &needed), FailsWith(ERROR_INSUFFICIENT_BUFFER));
  std::vector<QUERY_SERVICE_CONFIGW> room(needed / sizeof(QUERY_SERVICE_CONFIGW) + 1);
  ASSERT_TRUE(services.QueryServiceConfigW(service.Get(), room.data(), needed, &needed));
  EXPECT_EQ(room[0].dwStartType, SERVICE_DISABLED);
  EXPECT_STREQ(room[0].lpDisplayName, L"VSS");
  EXPECT_THAT(OpenService(L"swprv").Get(), FailsWith(ERROR_SERVICE_DOES_NOT_EXIST));
  EXPECT_TRUE(OpenService(L"eventsystem")) << "every Windows has it";
}

TEST_F(OtherQuestionsTest, AServiceIsAskedThroughItsOwnHandle) {
  ServiceManager& services = host().services();
  const ServiceHandle manager(services.OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
  const ServiceHandle service(services.OpenServiceW(manager.Get(), L"VSS", SERVICE_QUERY_STATUS));
  SERVICE_STATUS status{};
  DWORD needed = 0;
  EXPECT_THAT(services.QueryServiceStatus(manager.Get(), &status), FailsWith(ERROR_INVALID_HANDLE));
  EXPECT_THAT(services.QueryServiceConfigW(manager.Get(), nullptr, 0, &needed), FailsWith(ERROR_INVALID_HANDLE));
  EXPECT_THAT(services.OpenServiceW(service.Get(), L"VSS", SERVICE_QUERY_STATUS), FailsWith(ERROR_INVALID_HANDLE));
  EXPECT_THAT(services.OpenServiceW(manager.Get(), L"", SERVICE_QUERY_STATUS), FailsWith(ERROR_INVALID_NAME));
  EXPECT_THAT(services.QueryServiceStatus(service.Get(), nullptr), FailsWith(ERROR_INVALID_PARAMETER));
  EXPECT_THAT(services.QueryServiceConfigW(service.Get(), nullptr, 0, nullptr), FailsWith(ERROR_INVALID_PARAMETER));
}

TEST_F(OtherQuestionsTest, TheProcessIsElevatedAndOf64BitsUnlessTheHostSaysOtherwise) {
  BOOL elevated = FALSE;
  BOOL wow64 = TRUE;
  ASSERT_TRUE(host().security().GetTokenElevation(&elevated));
  ASSERT_TRUE(host().security().IsWow64Process(&wow64));
  EXPECT_EQ(elevated, TRUE);
  EXPECT_EQ(wow64, FALSE);
  model().process = {false, true};
  ASSERT_TRUE(host().security().GetTokenElevation(&elevated));
  ASSERT_TRUE(host().security().IsWow64Process(&wow64));
  EXPECT_EQ(elevated, FALSE);
  EXPECT_EQ(wow64, TRUE);
  EXPECT_THAT(host().security().GetTokenElevation(nullptr), FailsWith(ERROR_INVALID_PARAMETER));
  EXPECT_EQ(host().security().CoInitializeSecurity(nullptr, -1, nullptr, 6, 2, nullptr, 0x40), S_OK);
  EXPECT_THAT(Calls("CoInitializeSecurity"), ElementsAre("CoInitializeSecurity(6, 2, 64) = S_OK"));
}

TEST_F(OtherQuestionsTest, TheServiceAnswersNobodyWhoMayNotAskOrThatCannotStartIt) {
  const auto ask = [&] {
    ComPtr<IVssBackupComponents> backup;
    ComPtr<IUnknown> coordinator;
    const HRESULT created = host().vss().CreateVssBackupComponents(backup.Put());
    EXPECT_EQ(host().vss().CoCreateInstance(kClsidVssCoordinator, nullptr, CLSCTX_ALL, kIidVssAdmin,
                                            reinterpret_cast<void**>(coordinator.Put())),
              created);
    return created;
  };
  EXPECT_EQ(ask(), S_OK);
  model().services = {{L"VSS", Service{SERVICE_DISABLED, SERVICE_STOPPED}}};
  EXPECT_EQ(ask(), static_cast<HRESULT>(0x80070422));
  model().services = {{L"VSS", std::nullopt}};
  EXPECT_EQ(ask(), static_cast<HRESULT>(0x80070424));
  model().process.elevated = false;
  EXPECT_EQ(ask(), E_ACCESSDENIED);
}

TEST_F(OtherQuestionsTest, AVolumeTellsItsRoomByAnyPathOnIt) {
  model().disks[1].volumes[0].sizeMegabytes = 8192;
  model().disks[1].volumes[0].freeMegabytes = 5;
  ULARGE_INTEGER size{};
  ULARGE_INTEGER free{};
  ULARGE_INTEGER toCaller{};
  for (const std::wstring& path : {VolumeName(1), std::wstring(L"C:\\ClusterStorage\\Volume1\\")}) {
    ASSERT_TRUE(host().space().GetDiskFreeSpaceExW(path.c_str(), &toCaller, &size, &free));
    EXPECT_EQ(size.QuadPart, ULONGLONG{8192} << 20);
    EXPECT_EQ(free.QuadPart, ULONGLONG{5} << 20);
    EXPECT_EQ(toCaller.QuadPart, free.QuadPart);
  }
  ASSERT_TRUE(host().space().GetDiskFreeSpaceExW(L"F:\\", nullptr, nullptr, &free));
  EXPECT_EQ(free.QuadPart, ULONGLONG{51200} << 20) << "half of what a volume has that does not say";
  EXPECT_THAT(host().space().GetDiskFreeSpaceExW(L"X:\\", nullptr, &size, &free), FailsWith(ERROR_PATH_NOT_FOUND));
}

TEST_F(OtherQuestionsTest, TheClockIsTheModelsOwnWhereItHasOne) {
  model().clock = 130'000'000'000'000'000;
  host().time().Sleep(1);
  FILETIME time{};
  host().time().GetSystemTimeAsFileTime(&time);
  EXPECT_EQ(static_cast<LONGLONG>(ULONGLONG{time.dwHighDateTime} << 32 | time.dwLowDateTime), 130'000'000'000'010'000);
}

TEST_F(OtherQuestionsTest, ASuccessLeavesTheLastErrorAlone) {
  host().files().GetFileVersion(L"none", nullptr);
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  std::array<wchar_t, MAX_PATH> directory{};
  host().system().GetSystemDirectoryW(directory.data(), MAX_PATH);
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

}  // namespace
}  // namespace varnel::simulator
