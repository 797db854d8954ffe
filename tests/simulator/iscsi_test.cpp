// The iSCSI initiator: sessions, their devices, and how they appear and end.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/simulator/fixture.h"

namespace varnel::simulator {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class IscsiTest : public StorageTest {
 protected:
  void SetUp() override {
    HostModel model = test::SmallHost();
    model.iscsiSessions = {{L"iqn:one", {{L"TSL0001", true}, {L"TSL0001", false}}, 1, 2},
                           {L"iqn:two", {{L"TSL0002", true}}, 0, 0}};
    Install(model);
  }
  IscsiInitiator& iscsi() { return host().iscsi(); }

  // The sessions by the two calls that a caller makes.
  std::vector<std::pair<std::wstring, iscsi::UniqueSessionId>> Sessions() {
    ULONG bytes = 0;
    ULONG count = 0;
    if (iscsi().GetIScsiSessionListW(&bytes, &count, nullptr) != ERROR_INSUFFICIENT_BUFFER) return {};
    std::vector<iscsi::SessionInfo> buffer(bytes / sizeof(iscsi::SessionInfo) + 1);
    EXPECT_EQ(iscsi().GetIScsiSessionListW(&bytes, &count, buffer.data()), DWORD{ERROR_SUCCESS});
    std::vector<std::pair<std::wstring, iscsi::UniqueSessionId>> sessions;
    for (ULONG i = 0; i < count; ++i) sessions.emplace_back(buffer[i].TargetName, buffer[i].SessionId);
    return sessions;
  }
  std::vector<std::wstring> Devices(iscsi::UniqueSessionId session) {
    ULONG count = 0;
    if (iscsi().GetDevicesForIScsiSessionW(&session, &count, nullptr) != ERROR_INSUFFICIENT_BUFFER) return {};
    std::vector<iscsi::DeviceOnSession> devices(count);
    EXPECT_EQ(iscsi().GetDevicesForIScsiSessionW(&session, &count, devices.data()), DWORD{ERROR_SUCCESS});
    std::vector<std::wstring> names;
    for (const iscsi::DeviceOnSession& device : devices) names.emplace_back(device.LegacyName);
    return names;
  }
};

TEST_F(IscsiTest, SessionsAreListedInOneBufferWithTheirTexts) {
  const auto sessions = Sessions();
  ASSERT_THAT(sessions, SizeIs(2));
  EXPECT_EQ(sessions[0].first, L"iqn:one");
  EXPECT_EQ(sessions[1].first, L"iqn:two");
  Install(test::SmallHost());
  ULONG bytes = 0;
  ULONG count = 7;
  EXPECT_EQ(iscsi().GetIScsiSessionListW(&bytes, &count, nullptr), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(count, 0u);
}

TEST_F(IscsiTest, ASessionIsBusyForItsFirstQueriesWithABuffer) {
  iscsi::UniqueSessionId session = Sessions().at(0).second;
  ULONG count = 0;
  EXPECT_EQ(iscsi().GetDevicesForIScsiSessionW(&session, &count, nullptr), DWORD{ERROR_INSUFFICIENT_BUFFER});
  EXPECT_EQ(count, 1u);
  std::vector<iscsi::DeviceOnSession> devices(count);
  EXPECT_EQ(iscsi().GetDevicesForIScsiSessionW(&session, &count, devices.data()), iscsi::kDeviceBusyOnSession);
  EXPECT_EQ(iscsi().GetDevicesForIScsiSessionW(&session, &count, devices.data()), DWORD{ERROR_SUCCESS});
  EXPECT_STREQ(devices[0].LegacyName, L"\\\\.\\PhysicalDrive1");
  EXPECT_STREQ(devices[0].TargetName, L"iqn:one");
  EXPECT_THAT(host().calls().Of("GetDevicesForIScsiSessionW"),
              ElementsAre("GetDevicesForIScsiSessionW(iqn:one) = error 122",
                          "GetDevicesForIScsiSessionW(iqn:one) = error 0xefff0040",
                          "GetDevicesForIScsiSessionW(iqn:one) = ok"));
}

TEST_F(IscsiTest, TheDiskOfAShadowCopyAppearsWithTheCopy) {
  const iscsi::UniqueSessionId session = Sessions().at(1).second;
  EXPECT_THAT(Devices(session), IsEmpty());
  Snapshot({L"F:\\"});
  EXPECT_THAT(Devices(session), ElementsAre(L"\\\\.\\PhysicalDrive3"));
}

TEST_F(IscsiTest, LogoutFailsAsOftenAsPlannedAndThenEndsTheSession) {
  iscsi::UniqueSessionId session = Sessions().at(0).second;
  EXPECT_NE(iscsi().LogoutIScsiTarget(&session), 0u);
  EXPECT_NE(iscsi().LogoutIScsiTarget(&session), 0u);
  EXPECT_THAT(Sessions(), SizeIs(2));
  EXPECT_EQ(iscsi().LogoutIScsiTarget(&session), 0u);
  ASSERT_THAT(Sessions(), SizeIs(1));
  EXPECT_EQ(Sessions()[0].first, L"iqn:two");
  EXPECT_NE(iscsi().LogoutIScsiTarget(&session), 0u);
}

TEST_F(IscsiTest, ASessionThatWasLoggedOutOfHasNoDevices) {
  iscsi::UniqueSessionId session = Sessions().at(1).second;
  Snapshot({L"F:\\"});
  EXPECT_THAT(Devices(session), SizeIs(1));
  EXPECT_EQ(iscsi().LogoutIScsiTarget(&session), 0u);
  ULONG count = 5;
  EXPECT_EQ(iscsi().GetDevicesForIScsiSessionW(&session, &count, nullptr), DWORD{0xEFFF0012});
  EXPECT_EQ(count, 5u);
  EXPECT_EQ(host().calls().lines().back(), "GetDevicesForIScsiSessionW(unknown session) = error 0xefff0012");
}

TEST_F(IscsiTest, QueriesWithoutABufferAreNeverBusy) {
  iscsi::UniqueSessionId session = Sessions().at(0).second;
  ULONG count = 0;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(iscsi().GetDevicesForIScsiSessionW(&session, &count, nullptr), DWORD{ERROR_INSUFFICIENT_BUFFER});
  }
  iscsi::DeviceOnSession device{};
  EXPECT_EQ(iscsi().GetDevicesForIScsiSessionW(&session, &count, &device), iscsi::kDeviceBusyOnSession);
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(device.LegacyName[0], L'\0');
}

TEST_F(IscsiTest, DisksOfABrokenSetStayOnTheirSessionsAndMaskedOnesDoNot) {
  const iscsi::UniqueSessionId session = Sessions().at(1).second;
  Snapshot({L"F:\\"});
  SnapshotService& service = *host().machine().snapshots;
  ASSERT_EQ(service.Break(service.SurfacedCopies().at(0)->setId, 0), S_OK);
  EXPECT_THAT(Devices(session), ElementsAre(L"\\\\.\\PhysicalDrive3"));
  Snapshot({L"F:\\"});
  EXPECT_THAT(Devices(session), SizeIs(2));
  ASSERT_EQ(service.Break(service.SurfacedCopies().at(1)->setId, VSS_BREAKEX_FLAG_MASK_LUNS), S_OK);
  EXPECT_THAT(Devices(session), ElementsAre(L"\\\\.\\PhysicalDrive3"));
}

TEST_F(IscsiTest, ASessionThatAppearsBetweenTwoListsNeedsMoreRoom) {
  HostModel model = test::SmallHost();
  model.iscsiSessions = {{L"iqn:one", {}}, {L"iqn:two", {}, 0, 0, 1}, {L"iqn:three", {}, 0, 0, 3}};
  Install(model);
  ULONG bytes = 0;
  ULONG count = 0;
  EXPECT_EQ(iscsi().GetIScsiSessionListW(&bytes, &count, nullptr), DWORD{ERROR_INSUFFICIENT_BUFFER});
  EXPECT_EQ(count, 1u);
  const ULONG first = bytes;
  std::vector<iscsi::SessionInfo> buffer(bytes / sizeof(iscsi::SessionInfo) + 1);
  EXPECT_EQ(iscsi().GetIScsiSessionListW(&bytes, &count, buffer.data()), DWORD{ERROR_INSUFFICIENT_BUFFER});
  EXPECT_EQ(count, 2u);
  EXPECT_GT(bytes, first);
  buffer.resize(bytes / sizeof(iscsi::SessionInfo) + 1);
  EXPECT_EQ(iscsi().GetIScsiSessionListW(&bytes, &count, buffer.data()), DWORD{ERROR_SUCCESS});
  ASSERT_EQ(count, 2u);
  EXPECT_STREQ(buffer[1].TargetName, L"iqn:two");
  iscsi::UniqueSessionId third = buffer[1].SessionId;
  ++third.AdapterSpecific;
  ULONG devices = 0;
  EXPECT_EQ(iscsi().GetDevicesForIScsiSessionW(&third, &devices, nullptr), DWORD{ERROR_SUCCESS}) << "there by now";
  EXPECT_THAT(Sessions(), SizeIs(3));
}

TEST_F(IscsiTest, AListCallThatIsMadeToFailBringsNoSessionCloser) {
  HostModel model = test::SmallHost();
  model.iscsiSessions = {{L"iqn:one", {}, 0, 0, 1}};
  Install(model);
  host().faults().FailCall("GetIScsiSessionListW", ERROR_ACCESS_DENIED);
  ULONG bytes = 0;
  ULONG count = 0;
  EXPECT_EQ(iscsi().GetIScsiSessionListW(&bytes, &count, nullptr), DWORD{ERROR_ACCESS_DENIED});
  EXPECT_EQ(iscsi().GetIScsiSessionListW(&bytes, &count, nullptr), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(iscsi().GetIScsiSessionListW(&bytes, &count, nullptr), DWORD{ERROR_INSUFFICIENT_BUFFER});
}

TEST_F(IscsiTest, ADeviceThatAppearsBetweenTwoQueriesNeedsMoreRoom) {
  HostModel model = test::SmallHost();
  model.iscsiSessions = {{L"iqn:one", {{L"TSL0002", false, 2}, {L"TSL0001", false}}, 1},
                         {L"iqn:two", {{L"SYS", false, 1}}}};
  Install(model);
  const auto sessions = Sessions();
  iscsi::UniqueSessionId session = sessions.at(0).second;
  ULONG count = 0;
  EXPECT_EQ(iscsi().GetDevicesForIScsiSessionW(&session, &count, nullptr), DWORD{ERROR_INSUFFICIENT_BUFFER});
  EXPECT_EQ(count, 1u);
  std::array<iscsi::DeviceOnSession, 2> devices{};
  EXPECT_EQ(iscsi().GetDevicesForIScsiSessionW(&session, &count, devices.data()), iscsi::kDeviceBusyOnSession);
  EXPECT_EQ(iscsi().GetDevicesForIScsiSessionW(&session, &count, devices.data()), DWORD{ERROR_INSUFFICIENT_BUFFER});
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(iscsi().GetDevicesForIScsiSessionW(&session, &count, devices.data()), DWORD{ERROR_SUCCESS});
  EXPECT_STREQ(devices[0].LegacyName, L"\\\\.\\PhysicalDrive2");
  EXPECT_STREQ(devices[1].LegacyName, L"\\\\.\\PhysicalDrive1");
  EXPECT_THAT(Devices(sessions.at(1).second), IsEmpty()) << "each session counts its own queries";
  EXPECT_THAT(Devices(sessions.at(1).second), SizeIs(1));
}

}  // namespace
}  // namespace varnel::simulator
