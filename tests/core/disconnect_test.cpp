// Logging out of the iSCSI sessions that carry a snapshot set: every answer of the initiator.
#include <algorithm>
#include <deque>
#include <functional>

#include "tests/core/maintenance_fixture.h"
#include "tests/support/forwarding_host.h"

namespace varnel::test {
namespace {

constexpr wchar_t kFirstShadowDisk[] = L"\\\\.\\PhysicalDrive3";
constexpr DWORD kLogoutFailed = 0xEFFF0011;

// The log lines and calls of one device or session.
std::string NoSnapshotDevice(int disk) {
  return "V Device not snapshot device, Device=\\\\.\\PhysicalDrive" + std::to_string(disk);
}
std::string SnapshotDevice(int disk, const std::string& file) {
  return "I Device is a snapshot, Device=\\\\.\\PhysicalDrive" + std::to_string(disk) + ", File=" + file;
}
std::string LoggingOut(const std::string& target) {
  return "I Logging out of target " + target + "  ";
}
std::string LogoutError(const std::string& target, int budget, const std::string& code) {
  return "E LogoutIScsiTarget() Failed, Target=" + target + ", RetryCount=" + std::to_string(budget) + ", Error=0x" +
         code;
}
std::string BusyWarning(int devices) {
  return "W   GetDevicesForIScsiSessionW returned ISDSC_DEVICE_BUSY_ON_SESSION is sleeping for 500 ms and retrying. "
         "DeviceCount:" +
         std::to_string(devices);
}
std::string Devices(const std::string& target, const std::string& result = "ok") {
  return "GetDevicesForIScsiSessionW(" + target + ") = " + result;
}
std::string Logout(const std::string& target, const std::string& result = "ok") {
  return "LogoutIScsiTarget(" + target + ") = " + result;
}

constexpr char kDisconnecting[] = "I Disconnecting snapshot LUNs...";
constexpr char kListTooSmall[] = "GetIScsiSessionListW() = error 122";
constexpr char kListed[] = "GetIScsiSessionListW() = ok";
constexpr char kAllocated[] = "malloc() = ok";
constexpr char kTooSmall[] = "error 122";
constexpr char kBusy[] = "error 0xefff0040";

IscsiSession ShadowSession(std::wstring target, std::wstring serial, int busyQueries = 0, int failedLogouts = 0) {
  return {std::move(target), {{std::move(serial), true}}, busyQueries, failedLogouts};
}

class DisconnectTest : public MaintenanceTest {
 protected:
  /// One session, "one", to the shadow copy of TSL0001.
  void SetUp() override { Install(Model({ShadowSession(L"one", L"TSL0001")})); }

  /// Takes a set of both disks on a host with these sessions and disconnects.
  Outcome Disconnect(std::vector<IscsiSession> sessions) {
    Install(Model(std::move(sessions)));
    TakenRequest request(*this, BothDisks());
    return DisconnectTaken(request);
  }

  /// The same for a set that was taken; keeps what the operation appended and checks that it touches no record.
  Outcome DisconnectTaken(SnapshotRequest<>& request) {
    const std::vector<std::wstring> before = Records(request);
    const std::string appended = request.alerts();
    const ULONGLONG now = host().machine().now;
    const ULONGLONG slept = host().machine().slept;
    const Outcome outcome = OutcomeOn(request, &CVarnel::DisconnectSnapshotLuns);
    alerts = request.alerts().substr(appended.size());
    pause = host().machine().slept - slept;
    calls = CallsOfTheOperation();
    EXPECT_EQ(host().machine().now - now, pause) << "nothing but Sleep takes time";
    EXPECT_EQ(host().live().Count("heap block"), 0);
    EXPECT_EQ(Records(request), before);
    return outcome;
  }

  /// The targets of the sessions that are left.
  std::vector<std::wstring> OpenSessions() {
    ULONG bytes = 0;
    ULONG count = 0;
    if (host().iscsi().GetIScsiSessionListW(&bytes, &count, nullptr) != ERROR_INSUFFICIENT_BUFFER) return {};
    std::vector<iscsi::SessionInfo> buffer(bytes / sizeof(iscsi::SessionInfo) + 1);
    EXPECT_EQ(host().iscsi().GetIScsiSessionListW(&bytes, &count, buffer.data()), DWORD{ERROR_SUCCESS});
    std::vector<std::wstring> targets;
    for (ULONG i = 0; i < count; ++i) targets.emplace_back(buffer[i].TargetName);
    return targets;
  }

  std::string alerts;              // what the last disconnect appended
  ULONGLONG pause = 0;             // how long it slept
  std::vector<std::string> calls;  // its calls, without those that look for an error's text

 private:
  std::vector<std::string> CallsOfTheOperation() {
    std::vector<std::string> lines;
    for (const std::string& line : host().calls().lines()) {
      if (!line.starts_with("FormatMessageW(") && !line.starts_with("LocalFree(")) lines.push_back(line);
    }
    return lines;
  }
};

TEST_F(DisconnectTest, LogsOutOfEverySessionThatCarriesAShadowCopyInListOrder) {
  EXPECT_EQ(Disconnect({ShadowSession(L"two", L"TSL0002"), ShadowSession(L"one", L"TSL0001")}), Outcome::Returned());
  EXPECT_THAT(log.All(), ElementsAre(kDisconnecting, SnapshotDevice(4, "F:\\db\\"), LoggingOut("two"),
                                     SnapshotDevice(3, "E:\\db\\"), LoggingOut("one")));
  EXPECT_THAT(calls,
              ElementsAre(kListTooSmall, kAllocated, kListed, Devices("two", kTooSmall), kAllocated, Devices("two"),
                          Logout("two"), Devices("one", kTooSmall), kAllocated, Devices("one"), Logout("one")));
  EXPECT_EQ(alerts, "");
  EXPECT_EQ(pause, 0U);
  EXPECT_THAT(OpenSessions(), IsEmpty());
}

TEST_F(DisconnectTest, LeavesASessionWithoutAShadowCopyAlone) {
  EXPECT_EQ(
      Disconnect({{L"data", {{L"TSL0001", false}, {L"TSL0002", false}}, 0, 0}, ShadowSession(L"shadow", L"TSL0001")}),
      Outcome::Returned());
  EXPECT_THAT(log.All(), ElementsAre(kDisconnecting, NoSnapshotDevice(1), NoSnapshotDevice(2),
                                     SnapshotDevice(3, "E:\\db\\"), LoggingOut("shadow")));
  EXPECT_THAT(Calls("LogoutIScsiTarget"), ElementsAre(Logout("shadow")));
  EXPECT_THAT(OpenSessions(), ElementsAre(L"data"));
}

TEST_F(DisconnectTest, StopsAtTheFirstSnapshotDeviceOfASession) {
  EXPECT_EQ(
      Disconnect({{L"mixed", {{L"TSL0001", false}, {L"TSL0002", true}, {L"TSL0001", true}, {L"TSL0002", false}}}}),
      Outcome::Returned());
  EXPECT_THAT(log.All(),
              ElementsAre(kDisconnecting, NoSnapshotDevice(1), SnapshotDevice(4, "F:\\db\\"), LoggingOut("mixed")));
  EXPECT_THAT(Calls("LogoutIScsiTarget"), SizeIs(1));
}

TEST_F(DisconnectTest, PassesOverASessionWithoutDevices) {
  EXPECT_EQ(Disconnect({{L"empty", {}, 0, 0}, ShadowSession(L"shadow", L"TSL0001")}), Outcome::Returned());
  EXPECT_THAT(log.All(), ElementsAre(kDisconnecting, SnapshotDevice(3, "E:\\db\\"), LoggingOut("shadow")));
  EXPECT_THAT(Calls("GetDevicesForIScsiSessionW"),
              ElementsAre(Devices("empty"), Devices("shadow", kTooSmall), Devices("shadow")));
}

TEST_F(DisconnectTest, AHostWithoutSessionsHasNothingToVisit) {
  EXPECT_EQ(Disconnect({}), Outcome::Returned());
  EXPECT_THAT(log.All(), ElementsAre(kDisconnecting));
  EXPECT_THAT(calls, ElementsAre(kListed, kListed));
  EXPECT_EQ(alerts, "");
}

TEST_F(DisconnectTest, FilesOfExcludedWritersAndComponentsMatchNothing) {
  Install(Model({ShadowSession(L"one", L"TSL0001"), ShadowSession(L"two", L"TSL0002")}));
  TakenRequest request(*this, BothDisks());
  request.component(0, 0).excluded = true;
  EXPECT_EQ(DisconnectTaken(request), Outcome::Returned());
  EXPECT_THAT(OpenSessions(), ElementsAre(L"one"));
  request.probe.writers()[0].excluded = true;
  Forget();
  EXPECT_EQ(DisconnectTaken(request), Outcome::Returned());
  EXPECT_THAT(log.All(), ElementsAre(kDisconnecting, NoSnapshotDevice(3)));
}

TEST_F(DisconnectTest, DevicePathsAreComparedExactly) {
  TakenRequest request(*this, BothDisks());
  request.component(0, 0).files[0].snapshotDiskName = L"\\\\.\\PHYSICALDRIVE3";
  EXPECT_EQ(DisconnectTaken(request), Outcome::Returned());
  EXPECT_THAT(log.All(), ElementsAre(kDisconnecting, NoSnapshotDevice(3)));
}

// No file of the application lies on an extra volume, so no file tells its disk.
TEST_F(DisconnectTest, TheShadowCopyOfAnExtraVolumeStaysConnected) {
  Install(Model({ShadowSession(L"extra", L"TSL0002")}));
  model().writers[0].components.pop_back();
  SnapshotRequest request(BothDisks());
  EXPECT_EQ(request.StartAndCreate().alertCode, VarnelException::ExtraVolumes);
  Forget();
  EXPECT_EQ(DisconnectTaken(request), Outcome::Returned());
  EXPECT_THAT(log.All(), ElementsAre(kDisconnecting, NoSnapshotDevice(4)));
  EXPECT_THAT(OpenSessions(), ElementsAre(L"extra"));
}

TEST_F(DisconnectTest, ATransportableSetHasNoDiskHere) {
  Install(Model({{L"one", {{L"TSL0001", false}, {L"TSL0001", true}}}, ShadowSession(L"two", L"TSL0002")}));
  TakenRequest request(*this, BothDisks(DWORD{VSS_CTX_APP_ROLLBACK} | DWORD{VSS_VOLSNAP_ATTR_TRANSPORTABLE}));
  EXPECT_EQ(DisconnectTaken(request), Outcome::Returned());
  EXPECT_THAT(log.All(), ElementsAre(kDisconnecting, NoSnapshotDevice(1)));
  EXPECT_THAT(Calls("LogoutIScsiTarget"), IsEmpty());
}

TEST_F(DisconnectTest, DisksOfABrokenSetAreStillLoggedOutOf) {
  TakenRequest request(*this, BothDisks());
  EXPECT_EQ(OutcomeOn(request, &CVarnel::BreakSnapshotSet), Outcome::Returned());
  EXPECT_EQ(DisconnectTaken(request), Outcome::Returned());
  EXPECT_THAT(OpenSessions(), IsEmpty());
}

TEST_F(DisconnectTest, DisksOfAMaskedSetAreNoDevicesOfTheirSessionsAnyMore) {
  TakenRequest request(*this, BothDisks());
  EXPECT_EQ(OutcomeOn(request, &CVarnel::MaskSnapshotSet), Outcome::Returned());
  EXPECT_EQ(DisconnectTaken(request), Outcome::Returned());
  EXPECT_THAT(OpenSessions(), ElementsAre(L"one"));
}

TEST_F(DisconnectTest, NeedsNoObjectOfTheService) {
  SnapshotRequest request;
  EXPECT_EQ(DisconnectTaken(request), Outcome::Returned());
  EXPECT_THAT(log.All(), ElementsAre(kDisconnecting));
}

// ---- the session list

auto ListErrors(const std::string& code, const std::string& text) {
  return ElementsAre("ERROR: Win32 call GetIScsiSessionListW failed.", "- GetLastError() == " + code,
                     "- Error text: " + text);
}

TEST_F(DisconnectTest, MemoryForTheSessionListThatIsMissingIsThrownAsThePlainCode) {
  TakenRequest request(*this, BothDisks());
  FailCall("malloc", ERROR_NOT_ENOUGH_MEMORY);
  EXPECT_EQ(DisconnectTaken(request), Outcome::Thrown(ERROR_INSUFFICIENT_BUFFER));
  const std::string record =
      "malloc() Failed, Variable=SessionInfo, RequestStatus=LowMemory, rc=SystemError, ca=CallSupport;\n";
  EXPECT_EQ(alerts, record);
  EXPECT_THAT(log.All(), ElementsAre(kDisconnecting, "E   " + record));
  EXPECT_THAT(calls, ElementsAre(kListTooSmall, "malloc() = error 8"));
  EXPECT_THAT(OpenSessions(), SizeIs(1));
}

TEST_F(DisconnectTest, ASessionListThatCannotBeReadIsThrownAsAnHResult) {
  TakenRequest request(*this, BothDisks());
  FailCall("GetIScsiSessionListW", ERROR_ACCESS_DENIED, 2);
  EXPECT_EQ(DisconnectTaken(request), Outcome::Thrown(HResultFromWin32(ERROR_ACCESS_DENIED)));
  EXPECT_THAT(log.Errors(), ListErrors("5", "Error: 0x80070005"));
  EXPECT_THAT(log.All(), SizeIs(4));
  EXPECT_EQ(alerts, "");
  EXPECT_THAT(calls, ElementsAre(kListTooSmall, kAllocated, "GetIScsiSessionListW() = error 5"));
}

TEST_F(DisconnectTest, AnInitiatorsOwnCodeIsThrownAsItIs) {
  constexpr DWORD kNoService = 0xEFFF0007;
  Install(Model({ShadowSession(L"one", L"TSL0001")}));
  TakenRequest request(*this, BothDisks());
  FailCall("GetIScsiSessionListW", kNoService, 0);
  EXPECT_EQ(DisconnectTaken(request), Outcome::Thrown(static_cast<HRESULT>(kNoService)));
  EXPECT_THAT(log.Errors(), ListErrors("-268500985", "Error: 0xefff0007"));
  EXPECT_THAT(calls,
              ElementsAre("GetIScsiSessionListW() = error 0xefff0007", "GetIScsiSessionListW() = error 0xefff0007"));
}

TEST_F(DisconnectTest, TheSecondListCallSaysWhatIsWrongAfterAFirstOneThatFailed) {
  TakenRequest request(*this, BothDisks());
  FailCall("GetIScsiSessionListW", ERROR_ACCESS_DENIED);
  EXPECT_EQ(DisconnectTaken(request), Outcome::Thrown(HResultFromWin32(ERROR_INSUFFICIENT_BUFFER)));
  EXPECT_THAT(log.Errors(), ListErrors("122", "Error: 0x8007007a"));
  EXPECT_THAT(calls, ElementsAre("GetIScsiSessionListW() = error 5", kListTooSmall));
}

TEST_F(DisconnectTest, AListThatGrowsBetweenItsCallsIsThrownAsAnHResult) {
  IscsiSession late = ShadowSession(L"late", L"TSL0002");
  late.appearsAfter = 1;
  EXPECT_EQ(Disconnect({ShadowSession(L"one", L"TSL0001"), late}),
            Outcome::Thrown(HResultFromWin32(ERROR_INSUFFICIENT_BUFFER)));
  EXPECT_THAT(log.Errors(), ListErrors("122", "Error: 0x8007007a"));
  EXPECT_EQ(alerts, "");
  EXPECT_THAT(calls, ElementsAre(kListTooSmall, kAllocated, kListTooSmall));
  EXPECT_THAT(OpenSessions(), SizeIs(2));
}

TEST_F(DisconnectTest, AFirstSessionBetweenTheCallsFindsNoBuffer) {
  IscsiSession late = ShadowSession(L"late", L"TSL0002");
  late.appearsAfter = 1;
  EXPECT_EQ(Disconnect({late}), Outcome::Thrown(HResultFromWin32(ERROR_INSUFFICIENT_BUFFER)));
  EXPECT_THAT(calls, ElementsAre(kListed, kListTooSmall));
  EXPECT_THAT(OpenSessions(), SizeIs(1));
}

// ---- the devices of a session

TEST_F(DisconnectTest, MemoryForTheDevicesThatIsMissingEndsTheWalk) {
  Install(Model(
      {ShadowSession(L"one", L"TSL0001"), ShadowSession(L"two", L"TSL0002"), ShadowSession(L"three", L"TSL0001")}));
  TakenRequest request(*this, BothDisks());
  FailCall("malloc", ERROR_NOT_ENOUGH_MEMORY, 3);
  EXPECT_EQ(DisconnectTaken(request), Outcome::Thrown(ERROR_INSUFFICIENT_BUFFER));
  const std::string record = "RequestStatus=LowMemory, rc=SystemError, ca=CallSupport;\n";
  EXPECT_EQ(alerts, record);
  EXPECT_THAT(log.All(),
              ElementsAre(kDisconnecting, SnapshotDevice(3, "E:\\db\\"), LoggingOut("one"), "W   " + record));
  EXPECT_THAT(OpenSessions(), ElementsAre(L"two", L"three"));
}

TEST_F(DisconnectTest, ABusySessionIsAskedOnceMoreAfterHalfASecond) {
  EXPECT_EQ(Disconnect({ShadowSession(L"one", L"TSL0001", 1), ShadowSession(L"two", L"TSL0002", 1)}),
            Outcome::Returned());
  EXPECT_THAT(log.All(), ElementsAre(kDisconnecting, BusyWarning(1), SnapshotDevice(3, "E:\\db\\"), LoggingOut("one"),
                                     BusyWarning(1), SnapshotDevice(4, "F:\\db\\"), LoggingOut("two")));
  EXPECT_THAT(calls,
              ElementsAre(kListTooSmall, kAllocated, kListed, Devices("one", kTooSmall), kAllocated,
                          Devices("one", kBusy), "Sleep(500)", Devices("one"), Logout("one"), Devices("two", kTooSmall),
                          kAllocated, Devices("two", kBusy), "Sleep(500)", Devices("two"), Logout("two")));
  EXPECT_EQ(pause, 1000U) << "500 ms for each busy session";
  EXPECT_EQ(alerts, "");
}

TEST_F(DisconnectTest, ASessionThatIsBusyTwiceIsSkippedAfterOnePause) {
  EXPECT_EQ(Disconnect({ShadowSession(L"one", L"TSL0001", 2), ShadowSession(L"two", L"TSL0002")}), Outcome::Returned());
  EXPECT_THAT(log.All(),
              ElementsAre(kDisconnecting, BusyWarning(1), "E GetDevicesForIScsiSessionW() Failed! Error=0xefff0040",
                          SnapshotDevice(4, "F:\\db\\"), LoggingOut("two")));
  EXPECT_EQ(pause, 500U);
  EXPECT_THAT(OpenSessions(), ElementsAre(L"one"));
}

TEST_F(DisconnectTest, AnotherErrorAfterTheBusyOneSkipsTheSession) {
  Install(Model({ShadowSession(L"one", L"TSL0001", 1)}));
  TakenRequest request(*this, BothDisks());
  FailCall("GetDevicesForIScsiSessionW", ERROR_ACCESS_DENIED, 3);
  EXPECT_EQ(DisconnectTaken(request), Outcome::Returned());
  EXPECT_THAT(log.All(),
              ElementsAre(kDisconnecting, BusyWarning(1), "E GetDevicesForIScsiSessionW() Failed! Error=0x5"));
  EXPECT_EQ(pause, 500U);
  EXPECT_THAT(OpenSessions(), SizeIs(1));
}

TEST_F(DisconnectTest, AnotherErrorSkipsTheSessionWithoutAPause) {
  Install(Model({ShadowSession(L"one", L"TSL0001"), ShadowSession(L"two", L"TSL0002")}));
  TakenRequest request(*this, BothDisks());
  FailCall("GetDevicesForIScsiSessionW", 0xEFFF0012, 2);
  EXPECT_EQ(DisconnectTaken(request), Outcome::Returned());
  EXPECT_THAT(log.All(), ElementsAre(kDisconnecting, "E GetDevicesForIScsiSessionW() Failed! Error=0xefff0012",
                                     SnapshotDevice(4, "F:\\db\\"), LoggingOut("two")));
  EXPECT_EQ(pause, 0U);
  EXPECT_EQ(alerts, "");
  EXPECT_THAT(OpenSessions(), ElementsAre(L"one"));
}

// Such a call reports no device, so there is nothing to ask for; a busy one too is passed over without a pause.
TEST_F(DisconnectTest, AFirstDeviceCallThatFailsPassesOverTheSessionInSilence) {
  for (const DWORD error : {DWORD{ERROR_ACCESS_DENIED}, iscsi::kDeviceBusyOnSession}) {
    SCOPED_TRACE(error);
    Install(Model({ShadowSession(L"one", L"TSL0001"), ShadowSession(L"two", L"TSL0002")}));
    TakenRequest request(*this, BothDisks());
    FailCall("GetDevicesForIScsiSessionW", error);
    EXPECT_EQ(DisconnectTaken(request), Outcome::Returned());
    EXPECT_THAT(log.All(), ElementsAre(kDisconnecting, SnapshotDevice(4, "F:\\db\\"), LoggingOut("two")));
    EXPECT_EQ(pause, 0U);
    EXPECT_THAT(OpenSessions(), ElementsAre(L"one"));
  }
}

TEST_F(DisconnectTest, ADeviceMoreThanTheBufferHoldsSkipsTheSession) {
  IscsiSession growing = ShadowSession(L"one", L"TSL0001");
  growing.devices.push_back({L"TSL0002", true, 1});
  EXPECT_EQ(Disconnect({growing, ShadowSession(L"two", L"TSL0002")}), Outcome::Returned());
  EXPECT_THAT(log.All(), ElementsAre(kDisconnecting, "E GetDevicesForIScsiSessionW() Failed! Error=0x7a",
                                     SnapshotDevice(4, "F:\\db\\"), LoggingOut("two")));
  EXPECT_THAT(calls, ElementsAre(kListTooSmall, kAllocated, kListed, Devices("one", kTooSmall), kAllocated,
                                 Devices("one", kTooSmall), Devices("two", kTooSmall), kAllocated, Devices("two"),
                                 Logout("two")));
  EXPECT_EQ(alerts, "");
}

TEST_F(DisconnectTest, ADeviceThatAppearsAfterTheFirstCallIsNotAskedFor) {
  EXPECT_EQ(Disconnect({{L"one", {{L"TSL0001", true, 1}}}}), Outcome::Returned());
  EXPECT_THAT(calls, ElementsAre(kListTooSmall, kAllocated, kListed, Devices("one")));
  EXPECT_THAT(log.All(), ElementsAre(kDisconnecting));
}

// ---- logging out

TEST_F(DisconnectTest, ALogoutIsTriedFiveTimesWithAPauseAfterEachFailure) {
  for (int failures = 0; failures <= 5; ++failures) {
    SCOPED_TRACE(failures);
    EXPECT_EQ(Disconnect({ShadowSession(L"one", L"TSL0001", 0, failures), ShadowSession(L"two", L"TSL0002")}),
              Outcome::Returned());
    std::vector<std::string> lines = {kDisconnecting, SnapshotDevice(3, "E:\\db\\")};
    std::vector<std::string> expected = {kListTooSmall, kAllocated,    kListed, Devices("one", kTooSmall),
                                         kAllocated,    Devices("one")};
    for (int i = 0; i < failures; ++i) {
      lines.insert(lines.end(), {LoggingOut("one"), LogoutError("one", 5 - i, "efff0011")});
      expected.insert(expected.end(), {Logout("one", "error 0xefff0011"), "Sleep(10)"});
    }
    if (failures < 5) {
      lines.push_back(LoggingOut("one"));
      expected.push_back(Logout("one"));
    }
    lines.insert(lines.end(), {SnapshotDevice(4, "F:\\db\\"), LoggingOut("two")});
    expected.insert(expected.end(), {Devices("two", kTooSmall), kAllocated, Devices("two"), Logout("two")});
    EXPECT_EQ(log.All(), lines);
    EXPECT_EQ(calls, expected);
    EXPECT_EQ(alerts, "");
    EXPECT_EQ(pause, static_cast<ULONGLONG>(failures) * 10);
    EXPECT_THAT(OpenSessions(), SizeIs(failures < 5 ? 0 : 1));
  }
}

TEST_F(DisconnectTest, ASessionThatIsGivenUpIsTriedAgainByTheNextDisconnect) {
  Install(Model({ShadowSession(L"one", L"TSL0001", 0, 7)}));
  TakenRequest request(*this, BothDisks());
  EXPECT_EQ(DisconnectTaken(request), Outcome::Returned());
  EXPECT_EQ(pause, 50U);
  Forget();
  EXPECT_EQ(DisconnectTaken(request), Outcome::Returned());
  EXPECT_EQ(pause, 20U);
  EXPECT_THAT(log.Errors(),
              ElementsAre(LogoutError("one", 5, "efff0011").substr(2), LogoutError("one", 4, "efff0011").substr(2)));
  EXPECT_THAT(OpenSessions(), IsEmpty());
}

TEST_F(DisconnectTest, EachFailedLogoutShowsItsOwnCode) {
  TakenRequest request(*this, BothDisks());
  FailCall("LogoutIScsiTarget", ERROR_ACCESS_DENIED, 1);
  FailCall("LogoutIScsiTarget", kLogoutFailed, 2);
  EXPECT_EQ(DisconnectTaken(request), Outcome::Returned());
  EXPECT_THAT(log.All(),
              ElementsAre(kDisconnecting, SnapshotDevice(3, "E:\\db\\"), LoggingOut("one"), LogoutError("one", 5, "5"),
                          LoggingOut("one"), LogoutError("one", 4, "efff0011"), LoggingOut("one")));
}

// ---- answers that no host file describes

// The simulated initiator with its records changed on the way.
class EditingInitiator : public ForwardingIscsi {
 public:
  using ForwardingIscsi::ForwardingIscsi;
  DWORD GetIScsiSessionListW(ULONG* bytes, ULONG* sessions, iscsi::SessionInfo* list) override {
    const DWORD error = ForwardingIscsi::GetIScsiSessionListW(bytes, sessions, list);
    if (error == ERROR_SUCCESS && list != nullptr && editSession) std::for_each(list, list + *sessions, editSession);
    return error;
  }
  DWORD GetDevicesForIScsiSessionW(iscsi::UniqueSessionId* session, ULONG* devices,
                                   iscsi::DeviceOnSession* list) override {
    const DWORD error = ForwardingIscsi::GetDevicesForIScsiSessionW(session, devices, list);
    if (error == ERROR_SUCCESS && list != nullptr && editDevice) std::for_each(list, list + *devices, editDevice);
    return error;
  }

  std::function<void(iscsi::SessionInfo&)> editSession;
  std::function<void(iscsi::DeviceOnSession&)> editDevice;
};

TEST_F(DisconnectTest, ASessionWithoutATargetNameIsLoggedOutOfAllTheSame) {
  Install(Model({ShadowSession(L"one", L"TSL0001", 0, 1)}));
  EditingInitiator initiator(host().iscsi());
  initiator.editSession = [](iscsi::SessionInfo& session) { session.TargetName = nullptr; };
  TakenRequest request(*this, BothDisks());
  const CurrentHostWith other(host(), initiator);
  EXPECT_EQ(DisconnectTaken(request), Outcome::Returned());
  EXPECT_THAT(log.All(), ElementsAre(kDisconnecting, SnapshotDevice(3, "E:\\db\\"), LoggingOut(""),
                                     LogoutError("", 5, "efff0011"), LoggingOut("")));
  EXPECT_THAT(OpenSessions(), IsEmpty());
}

TEST_F(DisconnectTest, ADeviceNameThatFillsItsFieldEndsThere) {
  const std::wstring whole(MAX_PATH, L'x');
  for (const std::wstring& expected : {whole, whole.substr(1)}) {
    SCOPED_TRACE(expected.size());
    StartOver();
    EditingInitiator initiator(host().iscsi());
    initiator.editDevice = [](iscsi::DeviceOnSession& device) {
      std::fill(std::begin(device.LegacyName), std::end(device.LegacyName), L'x');
      device.StorageDeviceNumber.DeviceType = L'x';  // directly after it
    };
    TakenRequest request(*this, BothDisks());
    request.component(0, 0).files[0].snapshotDiskName = expected;
    const CurrentHostWith other(host(), initiator);
    EXPECT_EQ(DisconnectTaken(request), Outcome::Returned());
    const std::string name(MAX_PATH, 'x');
    if (expected == whole) {
      EXPECT_THAT(log.All(), ElementsAre(kDisconnecting, "I Device is a snapshot, Device=" + name + ", File=E:\\db\\",
                                         LoggingOut("one")));
    } else {
      EXPECT_THAT(log.All(), ElementsAre(kDisconnecting, "V Device not snapshot device, Device=" + name));
    }
  }
}

TEST_F(DisconnectTest, ADeviceWithoutANameIsNoSnapshotDevice) {
  EditingInitiator initiator(host().iscsi());
  initiator.editDevice = [](iscsi::DeviceOnSession& device) { device.LegacyName[0] = L'\0'; };
  TakenRequest request(*this, BothDisks());
  request.component(0, 0).files[0].snapshotDiskName.clear();
  const CurrentHostWith other(host(), initiator);
  EXPECT_EQ(DisconnectTaken(request), Outcome::Returned());
  EXPECT_THAT(log.All(), ElementsAre(kDisconnecting, "V Device not snapshot device, Device="));
}

// An initiator that answers as it is told, and notes what it was asked and which room it was given.
class ScriptedInitiator : public IscsiInitiator {
 public:
  struct ListAnswer {
    DWORD error;
    ULONG bytes;
    ULONG sessions;
  };
  struct DeviceAnswer {
    DWORD error;
    ULONG devices;
  };

  DWORD GetIScsiSessionListW(ULONG* bytes, ULONG* sessions, iscsi::SessionInfo* list) override {
    asked.push_back("list of " + std::to_string(*bytes) + (list == nullptr ? " bytes, no buffer" : " bytes"));
    if (list != nullptr && fills) {
      for (ULONG i = 0; i < *bytes / sizeof *list; ++i) list[i].SessionId.AdapterSpecific = i + 1;
    }
    const ListAnswer answer = Next(lists);
    *bytes = answer.bytes;
    *sessions = answer.sessions;
    return answer.error;
  }
  DWORD GetDevicesForIScsiSessionW(iscsi::UniqueSessionId* session, ULONG* devices,
                                   iscsi::DeviceOnSession* list) override {
    asked.push_back(std::to_string(*devices) + " devices of " + std::to_string(session->AdapterSpecific) +
                    (list == nullptr ? ", no buffer" : ""));
    if (list != nullptr && fills) {
      for (ULONG i = 0; i < *devices; ++i) std::wstring_view(kFirstShadowDisk).copy(list[i].LegacyName, MAX_PATH);
    }
    const DeviceAnswer answer = Next(queries);
    *devices = answer.devices;
    return answer.error;
  }
  DWORD LogoutIScsiTarget(iscsi::UniqueSessionId* session) override {
    asked.push_back("logout of " + std::to_string(session->AdapterSpecific));
    return ERROR_SUCCESS;
  }

  std::deque<ListAnswer> lists;
  std::deque<DeviceAnswer> queries;
  bool fills = true;
  std::vector<std::string> asked;

 private:
  template <class Answer>
  static Answer Next(std::deque<Answer>& answers) {
    if (answers.empty()) {
      ADD_FAILURE() << "asked too often";
      return {};
    }
    const Answer answer = answers.front();
    answers.pop_front();
    return answer;
  }
};

class ScriptedDisconnectTest : public DisconnectTest {
 protected:
  static constexpr ULONG kSessionBytes = sizeof(iscsi::SessionInfo);

  Outcome DisconnectScripted() {
    TakenRequest request(*this, BothDisks());
    if (!onSnapshotDisk) {
      for (VssComponent& component : request.probe.writers()[0].components) {
        component.files[0].snapshotDiskName = L"another";
      }
    }
    const CurrentHostWith other(host(), initiator);
    const Outcome outcome = DisconnectTaken(request);
    EXPECT_THAT(initiator.lists, IsEmpty());
    EXPECT_THAT(initiator.queries, IsEmpty());
    return outcome;
  }

  /// One session, unless a test says otherwise.
  void SetUp() override {
    DisconnectTest::SetUp();
    initiator.lists = {{ERROR_INSUFFICIENT_BUFFER, kSessionBytes, 1}, {ERROR_SUCCESS, kSessionBytes, 1}};
  }

  ScriptedInitiator initiator;
  bool onSnapshotDisk = true;
};

TEST_F(ScriptedDisconnectTest, CountsThatExceedTheBuffersAreCutToThem) {
  onSnapshotDisk = false;
  initiator.lists = {{ERROR_INSUFFICIENT_BUFFER, 2 * kSessionBytes, 2}, {ERROR_SUCCESS, 2 * kSessionBytes, 0xFFFFFFFF}};
  initiator.queries = {
      {ERROR_INSUFFICIENT_BUFFER, 2}, {ERROR_SUCCESS, 0xFFFFFFFF}, {ERROR_INSUFFICIENT_BUFFER, 1}, {ERROR_SUCCESS, 2}};
  EXPECT_EQ(DisconnectScripted(), Outcome::Returned());
  EXPECT_THAT(initiator.asked,
              ElementsAre("list of 0 bytes, no buffer", "list of 128 bytes", "0 devices of 1, no buffer",
                          "2 devices of 1", "0 devices of 2, no buffer", "1 devices of 2"));
  EXPECT_THAT(log.All(), ElementsAre(kDisconnecting, NoSnapshotDevice(3), NoSnapshotDevice(3), NoSnapshotDevice(3)));
}

TEST_F(ScriptedDisconnectTest, ABufferTooShortForOneRecordHoldsNone) {
  initiator.lists = {{ERROR_INSUFFICIENT_BUFFER, kSessionBytes - 1, 1}, {ERROR_SUCCESS, kSessionBytes - 1, 1}};
  EXPECT_EQ(DisconnectScripted(), Outcome::Returned());
  EXPECT_THAT(initiator.asked, ElementsAre("list of 0 bytes, no buffer", "list of 63 bytes"));
}

TEST_F(ScriptedDisconnectTest, ACountWithoutABufferIsNone) {
  initiator.lists = {{ERROR_SUCCESS, 0, 7}, {ERROR_SUCCESS, 0, 7}};
  EXPECT_EQ(DisconnectScripted(), Outcome::Returned());
  EXPECT_THAT(log.All(), ElementsAre(kDisconnecting));
  log.lines.clear();
  StartOver();
  initiator.queries = {{ERROR_ACCESS_DENIED, 3}, {ERROR_SUCCESS, 3}};
  initiator.asked.clear();
  EXPECT_EQ(DisconnectScripted(), Outcome::Returned());
  EXPECT_THAT(initiator.asked, ElementsAre("list of 0 bytes, no buffer", "list of 64 bytes",
                                           "0 devices of 1, no buffer", "3 devices of 1, no buffer"));
  EXPECT_THAT(log.All(), ElementsAre(kDisconnecting));
}

TEST_F(ScriptedDisconnectTest, ARoomOfNoDeviceIsStillAskedForAndPassedOver) {
  initiator.queries = {{ERROR_INSUFFICIENT_BUFFER, 0}};
  EXPECT_EQ(DisconnectScripted(), Outcome::Returned());
  EXPECT_THAT(calls, ElementsAre(kAllocated, kAllocated));
}

TEST_F(ScriptedDisconnectTest, RecordsThatAreNotFilledAreZero) {
  initiator.fills = false;
  initiator.queries = {{ERROR_INSUFFICIENT_BUFFER, 1}, {ERROR_SUCCESS, 1}};
  EXPECT_EQ(DisconnectScripted(), Outcome::Returned());
  EXPECT_THAT(initiator.asked, ElementsAre("list of 0 bytes, no buffer", "list of 64 bytes",
                                           "0 devices of 0, no buffer", "1 devices of 0"));
  EXPECT_THAT(log.All(), ElementsAre(kDisconnecting, "V Device not snapshot device, Device="));
}

TEST_F(ScriptedDisconnectTest, ASmallerSecondCountIsTheOneThatHolds) {
  initiator.lists = {{ERROR_INSUFFICIENT_BUFFER, 3 * kSessionBytes, 3}, {ERROR_SUCCESS, kSessionBytes, 1}};
  initiator.queries = {{ERROR_INSUFFICIENT_BUFFER, 3}, {ERROR_SUCCESS, 0}};
  EXPECT_EQ(DisconnectScripted(), Outcome::Returned());
  EXPECT_THAT(log.All(), ElementsAre(kDisconnecting));
}

TEST_F(ScriptedDisconnectTest, ACountThatABusyAnswerRaisedIsNotTakenForRoom) {
  initiator.queries = {{ERROR_INSUFFICIENT_BUFFER, 1}, {iscsi::kDeviceBusyOnSession, 5}, {ERROR_SUCCESS, 1}};
  EXPECT_EQ(DisconnectScripted(), Outcome::Returned());
  EXPECT_THAT(log.Warnings(), ElementsAre(BusyWarning(5).substr(2)));
  EXPECT_EQ(initiator.asked.at(4), "1 devices of 1");
}

TEST_F(ScriptedDisconnectTest, TheWarningShowsTheCountThatTheBusyAnswerLeft) {
  initiator.queries = {{ERROR_INSUFFICIENT_BUFFER, 2}, {iscsi::kDeviceBusyOnSession, 1}, {ERROR_SUCCESS, 1}};
  EXPECT_EQ(DisconnectScripted(), Outcome::Returned());
  EXPECT_THAT(log.Warnings(), ElementsAre(BusyWarning(1).substr(2)));
  EXPECT_EQ(pause, 500U);
  EXPECT_EQ(initiator.asked.back(), "logout of 1");
}

}  // namespace
}  // namespace varnel::test
