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

TEST_F(OtherQuestionsTest, ASuccessLeavesTheLastErrorAlone) {
  host().files().GetFileVersion(L"none", nullptr);
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  std::array<wchar_t, MAX_PATH> directory{};
  host().system().GetSystemDirectoryW(directory.data(), MAX_PATH);
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

}  // namespace
}  // namespace varnel::simulator
