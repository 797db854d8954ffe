// Volumes of a cluster, and whether a node belongs to one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
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
using TesselCommonClasses::ClusterHelper;
using TesselCommonClasses::ExceptionCommon;
using test::Enumerator;
using test::ReplacedHost;
using test::SmallHost;
using test::VolumeName;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

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

// Volume 1 lies on a clustered disk and is no cluster shared volume unless a test makes it one, volume 2 is neither.
class ClusterVolumes : public Enumerator {
 protected:
  void SetUp() override {
    HostModel model = SmallHost();
    model.cluster = simulator::ClusterNode{L"CLU01", {}};
    model.disks[1].clustered = true;
    Install(std::move(model));
  }
  void ShareVolume1() { host().model().disks[1].volumes[0].csv = true; }
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
  EXPECT_EQ(ExceptionFor(L"Q:\\").first, static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
  EXPECT_EQ(ExceptionFor(L"").first, static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
}

TEST_F(ClusterVolumes, AreGivenByAMountPointToo) {
  host().model().disks[2].volumes[0].mountPoints = {L"F:\\", L"C:\\mnt\\data\\"};
  host().model().disks[2].clustered = true;
  EXPECT_TRUE(enumerator.IsClusteredDisk(L"E:\\"));
  EXPECT_TRUE(enumerator.IsClusteredDisk(L"e:"));
  EXPECT_TRUE(enumerator.IsClusteredDisk(L"C:\\mnt\\data"));
  EXPECT_FALSE(enumerator.IsClusteredDisk(L"C:\\"));
}

TEST_F(ClusterVolumes, OnAHostWhoseSystemDriveCannotBeToldAreAnException) {
  host().faults().FailCall("GetSystemDirectoryW", ERROR_ACCESS_DENIED);
  EXPECT_EQ(ExceptionFor(VolumeName(1)), std::make_pair(static_cast<DWORD>(ERROR_ACCESS_DENIED),
                                                        std::wstring(L"GetSystemDirectoryW() failed with 5")));
}

TEST_F(ClusterVolumes, OnSeveralDisksAreAnException) {
  host().model().disks[1].volumes[0].otherDisks = {2};
  EXPECT_EQ(ExceptionFor(VolumeName(1)), std::make_pair(static_cast<DWORD>(ERROR_NOT_SUPPORTED),
                                                        L"Volume " + VolumeName(1) + L" lies on several disks"));
}

TEST_F(ClusterVolumes, ThatAreSharedAreClusteredWhateverTheirDiskAnswers) {
  ShareVolume1();
  host().model().disks[1].clustered = false;
  host().faults().FailCall("CreateFileW", ERROR_ACCESS_DENIED, 3);  // the volume itself
  EXPECT_TRUE(enumerator.IsClusteredDisk(VolumeName(1)));
  EXPECT_TRUE(enumerator.IsClusteredDisk(L"E:\\"));
  EXPECT_EQ(OpenCount(), 2u) << "the system drive's volume and disk";
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
  enumerator.GetDisks();
  EXPECT_TRUE(enumerator.IsClusteredDisk(VolumeName(1)));
  const std::size_t before = OpenCount();
  EXPECT_TRUE(enumerator.IsClusteredDisk(VolumeName(1)));
  EXPECT_FALSE(enumerator.IsClusteredDisk(VolumeName(2)));
  EXPECT_EQ(OpenCount(), before);
}

TEST_F(ClusterVolumes, AreSharedWhenTheClusterSaysSo) {
  ShareVolume1();
  EXPECT_TRUE(enumerator.IsClusterSharedVolume(VolumeName(1)));
  EXPECT_TRUE(enumerator.IsClusterSharedVolume(L"E:\\"));
  EXPECT_FALSE(enumerator.IsClusterSharedVolume(VolumeName(2)));
  EXPECT_FALSE(enumerator.IsClusterSharedVolume(VolumeName(99)));
  EXPECT_FALSE(enumerator.IsClusterSharedVolume(L""));
}

TEST_F(ClusterVolumes, AreNotSharedWhenTheClusterCannotTell) {
  ShareVolume1();
  host().faults().FailCall("ClusterIsPathOnSharedVolume", ERROR_PROC_NOT_FOUND, 0);
  EXPECT_FALSE(enumerator.IsClusterSharedVolume(VolumeName(1)));
}

class SharedClusterVolumes : public ClusterVolumes {
 protected:
  void SetUp() override {
    ClusterVolumes::SetUp();
    host().model().disks[2].volumes.push_back({VolumeName(20), {}, false, L""});
    decorator = std::make_unique<ReplacedHost>(host());
    decorator->clusterInstead = &cluster;
    scoped.emplace(*decorator);
  }
  void TearDown() override {
    scoped.reset();
    ClusterVolumes::TearDown();
  }

  SharedPaths cluster;
  std::unique_ptr<ReplacedHost> decorator;
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
  EXPECT_TRUE(enumerator.IsClusteredDisk(name));
  EXPECT_THAT(cluster.asked, SizeIs(2)) << "nothing is asked twice";
}

TEST_F(SharedClusterVolumes, GivenByAMountPointMayBeKnownByTheirNameOnly) {
  cluster.shared = {VolumeName(1)};
  EXPECT_TRUE(enumerator.IsClusterSharedVolume(L"E:\\"));
  EXPECT_THAT(cluster.asked, ElementsAre(L"E:\\", VolumeName(1)));
}

// What another node owns is no disk of this one: neither listed nor opened, but mounted below C:\ClusterStorage.
TEST_F(SharedClusterVolumes, OfAnotherNodeAreClusteredThoughNothingElseIsKnownOfThem) {
  cluster.shared = {L"C:\\ClusterStorage\\Volume1\\", VolumeName(77)};
  EXPECT_TRUE(enumerator.IsClusteredDisk(L"C:\\ClusterStorage\\Volume1\\"));
  EXPECT_TRUE(enumerator.IsClusteredDisk(VolumeName(77)));
}

TEST_F(SharedClusterVolumes, WithoutAMountPointAreAskedForByTheirNameOnly) {
  EXPECT_FALSE(enumerator.IsClusterSharedVolume(VolumeName(20)));
  EXPECT_FALSE(enumerator.IsClusterSharedVolume(VolumeName(99)));
  EXPECT_THAT(cluster.asked, ElementsAre(VolumeName(20), VolumeName(99)));
}

// ---- nodes ----

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
  EXPECT_FALSE(ClusterHelper().IsCluster(true));
  EXPECT_FALSE(ClusterHelper().IsCluster(false));
  HostModel model = SmallHost();
  model.cluster = simulator::ClusterNode{L"CLU01", {}};
  Install(std::move(model));
  EXPECT_TRUE(ClusterHelper().IsCluster(true));
  EXPECT_TRUE(ClusterHelper().IsCluster(false));
}

TEST_F(ClusterNode, WithAStoppedServiceIsOneOnlyForWhomThatIsEnough) {
  ReplacedHost decorator(host());
  StatedCluster cluster;
  decorator.clusterInstead = &cluster;
  const ScopedHost scoped(decorator);
  const std::pair<DWORD, std::pair<bool, bool>> expected[] = {
      {0, {false, false}}, {1, {false, false}}, {3, {false, true}}, {0x13, {true, true}}};
  for (const auto& [state, answers] : expected) {
    cluster.state = state;
    EXPECT_EQ(ClusterHelper().IsCluster(true), answers.first) << state;
    EXPECT_EQ(ClusterHelper().IsCluster(false), answers.second) << state;
  }
}

TEST_F(ClusterNode, IsNoneWhenTheStateCannotBeRead) {
  HostModel model = SmallHost();
  model.cluster = simulator::ClusterNode{L"CLU01", {}};
  Install(std::move(model));
  host().faults().FailCall("GetNodeClusterState", ERROR_PROC_NOT_FOUND, 0);
  EXPECT_FALSE(ClusterHelper().IsCluster(true));
  EXPECT_FALSE(ClusterHelper().IsCluster(false));
  EXPECT_THAT(log.Warnings(), Contains(HasSubstr("Error=127")));
}

}  // namespace
}  // namespace varnel
