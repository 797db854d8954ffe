// What a request asks of volumes and disks: each at most once before the snapshot, and after it the copies alone.
#include <map>

#include "tests/support/forwarding_host.h"
#include "tests/support/request_fixture.h"

namespace varnel::test {
namespace {

using testing::_;
using testing::Each;
using testing::Pair;
using Opened = std::map<std::string, int>;

// How often each device was opened.
Opened OpenedIn(const std::vector<std::string>& lines, std::size_t first, std::size_t end) {
  constexpr std::string_view kCall = "CreateFileW(";
  Opened opened;
  for (std::size_t i = first; i < end; ++i) {
    if (lines[i].starts_with(kCall)) ++opened[lines[i].substr(kCall.size(), lines[i].find(')') - kCall.size())];
  }
  return opened;
}

// A database on each of 64 volumes, of which each has a disk of its own.
simulator::HostModel ManyVolumes() {
  constexpr int kVolumes = 64;
  simulator::HostModel model;
  model.disks = {MakeDisk(L"SYS", 0, L"C:\\", true)};
  model.providers = {ArrayProvider()};
  std::vector<simulator::WriterComponent> components;
  for (int n = 1; n <= kVolumes; ++n) {
    const std::wstring folder = L"C:\\mnt\\" + std::to_wstring(n) + L"\\";
    model.disks.push_back(MakeDisk(L"TSL" + std::to_wstring(n), static_cast<DWORD>(n), folder));
    components.push_back(MakeComponent(L"", L"db" + std::to_wstring(n), {folder + L"data"}));
  }
  model.writers = {MakeWriter(L"Databases", 1, std::move(components))};
  return model;
}

class DeviceCalls : public HostFixture {
 protected:
  void SetUp() override { Install(ManyVolumes()); }

  static RequestOptions AllDisks() {
    RequestOptions options{.serialNumbers = {}};
    for (int n = 1; n <= 64; ++n) options.serialNumbers.push_back(L"TSL" + std::to_wstring(n));
    return options;
  }
  /// The place of the call that takes the snapshot.
  std::size_t Snapshot() {
    const std::vector<std::string>& lines = host().calls().lines();
    const auto found = std::find_if(lines.begin(), lines.end(), [](const std::string& line) {
      return line.starts_with("IVssBackupComponents::DoSnapshotSet(");
    });
    return static_cast<std::size_t>(found - lines.begin());
  }
  Opened OpenedBefore() { return OpenedIn(host().calls().lines(), 0, Snapshot()); }
  Opened OpenedAfter() { return OpenedIn(host().calls().lines(), Snapshot(), host().calls().lines().size()); }
};

TEST_F(DeviceCalls, ASetOf64VolumesOpensEachVolumeAndDiskOnceBeforeTheSnapshot) {
  SnapshotRequest request(AllDisks());
  ASSERT_EQ(request.StartAndCreate(), Outcome::Returned());
  const Opened opened = OpenedBefore();
  EXPECT_THAT(opened, SizeIs(2 * 65)) << "those of the system and of the set";
  EXPECT_THAT(opened, Each(Pair(_, 1)));
}

TEST_F(DeviceCalls, ASetOf64VolumesOpensEachCopyAndItsDiskOnceAfterTheSnapshot) {
  SnapshotRequest request(AllDisks());
  ASSERT_EQ(request.StartAndCreate(), Outcome::Returned());
  ASSERT_EQ(request.Complete(0), Outcome::Returned());
  const Opened opened = OpenedAfter();
  EXPECT_THAT(opened, SizeIs(2 * 64));
  EXPECT_THAT(opened, Each(Pair(_, 1)));
  for (int n = 1; n <= 64; ++n) {
    EXPECT_TRUE(opened.contains("\\\\.\\PhysicalDrive" + std::to_string(64 + n)));
    EXPECT_TRUE(opened.contains("\\\\?\\globalroot\\device\\harddiskvolumeshadowcopy" + std::to_string(n)));
  }
  EXPECT_THAT(Calls("FindFirstVolumeW"), IsEmpty());
}

// Between the refreshes for two of its copies.
TEST_F(DeviceCalls, ADiskThatChangesAfterTheSnapshotIsSeen) {
  class ChangingDisk final : public ForwardingStorage {
   public:
    ChangingDisk(simulator::SimulatedHost& host) : ForwardingStorage(host.storage()), host_(host) {}
    HANDLE CreateFileW(LPCWSTR name, DWORD access, DWORD share, void* security, DWORD disposition, DWORD flags,
                       HANDLE templateFile) override {
      if (std::wstring_view(name).ends_with(L"shadowcopy2")) host_.model().disks[2].serial = L"TSL-NEW";
      return ForwardingStorage::CreateFileW(name, access, share, security, disposition, flags, templateFile);
    }

   private:
    simulator::SimulatedHost& host_;
  };
  ChangingDisk changing(host());
  const CurrentHostWith current(host(), changing);
  SnapshotRequest request(AllDisks());
  ASSERT_EQ(request.StartAndCreate(), Outcome::Returned());
  TesselCommonClasses::WindowsDiskDevice device;
  request.enumerator.GetDiskDeviceForUniqueVolume(VolumeName(2), device);
  EXPECT_EQ(device.serialNumber, L"TSL-NEW");
}

// An extra disk's volumes are told with the objects of the set, as they are then.
TEST_F(DeviceCalls, ASetWithExtraDisksListsTheVolumesOnceMoreForItsObjects) {
  model().writers[0].components.pop_back();
  SnapshotRequest request(AllDisks());
  EXPECT_EQ(request.StartAndCreate().alertCode, 701);
  std::map<std::string, ApplicationObjectMeatadataInfo> objects;
  request.requestor.GetSnapshotMeatadata(objects);
  EXPECT_THAT(OpenedBefore(), Each(Pair(_, 1)));
  EXPECT_THAT(Calls("FindFirstVolumeW"), SizeIs(2));
}

}  // namespace
}  // namespace varnel::test
