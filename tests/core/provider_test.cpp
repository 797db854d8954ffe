// The array's provider: the built-in one, and the one that a thread names in its place.
#include "core/provider.h"

#include <thread>

#include "core/varnel.h"
#include "tests/support/host_fixture.h"
#include "tests/support/snapshot_request.h"
#include "text/guid.h"
#include "text/unicode.h"

namespace varnel::test {
namespace {

constexpr GUID kSecondArray = ParseGuid<GUID>("{5ec0d000-1111-2222-3333-444455556666}");
constexpr GUID kThirdArray = ParseGuid<GUID>("{7419d000-1111-2222-3333-444455556666}");

class ArraysProvider : public HostFixture {
 protected:
  void SetUp() override {
    simulator::HostModel model = SmallHost();
    model.providers.push_back({kSecondArray, L"Second Hardware Provider", VSS_PROV_HARDWARE, L"2.0"});
    model.writers = {MakeWriter(L"Mail", 1, {MakeComponent(L"mail", L"db1", {L"E:\\db1"})})};
    Install(std::move(model));
  }
};

TEST_F(ArraysProvider, IsTheBuiltInOneUntilAnotherIsNamed) {
  EXPECT_EQ(ArrayProviderId(), CVarnel::TesselVssProviderID);
  {
    const ScopedProvider second(kSecondArray);
    EXPECT_EQ(ArrayProviderId(), kSecondArray);
    {
      const ScopedProvider third(kThirdArray);
      EXPECT_EQ(ArrayProviderId(), kThirdArray);
    }
    EXPECT_EQ(ArrayProviderId(), kSecondArray);
    EXPECT_EQ(CVarnel::TesselVssProviderID, ParseGuid<GUID>("{374579ad-285c-49b9-ab8a-950e0e252de2}"));
  }
  EXPECT_EQ(ArrayProviderId(), CVarnel::TesselVssProviderID);
}

TEST_F(ArraysProvider, OtherThreadsKeepTheirs) {
  const ScopedProvider second(kSecondArray);
  GUID seen{};
  std::thread([&] { seen = ArrayProviderId(); }).join();
  EXPECT_EQ(seen, CVarnel::TesselVssProviderID);
}

TEST_F(ArraysProvider, TheNamedOneIsLookedFor) {
  const ScopedProvider second(kSecondArray);
  EXPECT_TRUE(CVarnel(0).IsTesselVSSProviderPresent());
  const ScopedProvider third(kThirdArray);
  EXPECT_FALSE(CVarnel(0).IsTesselVSSProviderPresent());
}

TEST_F(ArraysProvider, VolumesAreAddedWithTheNamedOne) {
  const ScopedProvider second(kSecondArray);
  SnapshotRequest request;
  EXPECT_EQ(request.StartAndCreate(), Outcome::Returned());
  const std::vector<std::string> added = Calls("IVssBackupComponents::AddToSnapshotSet");
  ASSERT_EQ(added.size(), 1U);
  EXPECT_THAT(added[0], HasSubstr(WideToUtf8Lossy(FormatGuid(kSecondArray))));
  request.Complete(0);
}

TEST_F(ArraysProvider, AVolumeIsRefusedWhereTheNamedOneIsNotRegistered) {
  const ScopedProvider third(kThirdArray);
  SnapshotRequest request;
  EXPECT_EQ(request.StartAndCreate(), Outcome::Thrown(VSS_E_PROVIDER_NOT_REGISTERED));
  request.Complete(static_cast<int>(VSS_E_PROVIDER_NOT_REGISTERED));
}

}  // namespace
}  // namespace varnel::test
