// A host whose state outlives its processes: what they see of each other, and what stays of one that died.
#include <array>
#include <set>
#include <thread>

#include "simulator/vss/vss_async.h"
#include "tests/simulator/state_support.h"

namespace varnel::test {
namespace {

using simulator::OrphanedSnapshot;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr wchar_t kFirstDevice[] = L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1";
constexpr wchar_t kSecondDevice[] = L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy2";

std::vector<std::wstring> WhoHeard(Process& process, std::optional<WriterEvent> event) {
  std::vector<std::wstring> names;
  for (const simulator::RaisedEvent& raised : process.service().raisedEvents) {
    if (raised.event == event) names.push_back(raised.writer);
  }
  return names;
}

bool HasDisk(DWORD number) {
  const std::wstring name = L"\\\\.\\PhysicalDrive" + std::to_wstring(number);
  const HANDLE disk = CurrentHost().storage().CreateFileW(name.c_str(), 0, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  if (disk == INVALID_HANDLE_VALUE) return false;
  CurrentHost().storage().CloseHandle(disk);
  return true;
}

HRESULT BreakSet(const GUID& setId, DWORD flags) {
  Backup backup(Phase::initialized);
  ComPtr<IVssAsync> async;
  const HRESULT started = backup.As<IVssBackupComponentsEx2>()->BreakSnapshotSetEx(setId, flags, async.Put());
  return FAILED(started) ? started : Backup::ResultOf(*async);
}

TEST_F(StateFixture, APersistentSetIsThereInTheNextProcess) {
  GUID set{};
  std::vector<GUID> ids;
  {
    Backup backup;
    backup.TakeBoth();
    set = backup.setId;
    ids = backup.copyIds;
  }
  Begin(VssHost());
  Backup backup(Phase::initialized, kPersistent);
  SnapshotProperties properties;
  Expect(backup->GetSnapshotProperties(ids.at(0), properties.Put()), S_OK);
  const VSS_SNAPSHOT_PROP& found = properties.Get();
  EXPECT_EQ(found.m_SnapshotSetId, set);
  EXPECT_EQ(found.m_lSnapshotsCount, 2);
  EXPECT_EQ(Wide(found.m_pwszOriginalVolumeName), VolumeName(1));
  EXPECT_EQ(Wide(found.m_pwszSnapshotDeviceObject), kFirstDevice);
  EXPECT_EQ(Wide(found.m_pwszOriginatingMachine), L"SQL01");
  EXPECT_EQ(found.m_ProviderId, kHardware);
  EXPECT_EQ(found.m_lSnapshotAttributes,
            Context(kPersistent, VSS_VOLSNAP_ATTR_HARDWARE_ASSISTED, VSS_VOLSNAP_ATTR_IMPORTED));
  EXPECT_EQ(found.m_tsCreationTimestamp, 134116992000000000);
  EXPECT_TRUE(HasDisk(3));
  EXPECT_TRUE(HasDisk(4));
}

std::vector<std::wstring> Sources(Process& process) {
  std::vector<std::wstring> sources;
  for (const simulator::LoggedEvent& event : process.host().machine().newEvents) sources.push_back(event.source);
  return sources;
}

TEST_F(StateFixture, TheEventLogIsOneOfAllProcesses) {
  {
    EventLog& log = CurrentHost().eventLog();
    const EventSource source(log.RegisterEventSourceW(nullptr, L"first"));
    std::array<LPCWSTR, 1> texts = {L"\x00FC"};
    std::array<char, 2> data = {'\x00', '\xFF'};
    ASSERT_TRUE(
        log.ReportEventW(source.Get(), EVENTLOG_WARNING_TYPE, 0, 0xC0000001, nullptr, 1, 2, texts.data(), data.data()));
  }
  EXPECT_THAT(StateText(), HasSubstr("\"events\":[{\"channel\":\"Application\",\"source\":\"first\""));
  InSecond();
  second().host().faults().FailCall("IVssBackupComponents::StartSnapshotSet", static_cast<DWORD>(VSS_E_UNEXPECTED));
  Expect(StartSet(), VSS_E_UNEXPECTED);
  InFirst();
  GUID id{};
  Backup(Phase::gathered)->StartSnapshotSet(&id);
  EXPECT_THAT(Sources(first()), ElementsAre(L"first", L"VSS"));
  Begin(VssHost());
  CurrentHost().time().GetTickCount64();
  Listed();
  ASSERT_THAT(Sources(first()), ElementsAre(L"first", L"VSS"));
  const std::vector<simulator::LoggedEvent>& events = first().host().machine().newEvents;
  EXPECT_EQ(events[0].id, 0xC0000001u);
  EXPECT_EQ(events[0].level, simulator::EventLevel::warning);
  EXPECT_TRUE(events[0].time.has_value());
  EXPECT_THAT(events[0].texts, ElementsAre(L"\x00FC"));
  EXPECT_EQ(events[0].data, L"00FF");
  EXPECT_EQ(events[0].message, std::nullopt);
  EXPECT_EQ(events[1].message->find(L"An unexpected error"), 0u);
}

TEST_F(StateFixture, AReportThatCannotBeWrittenDownFails) {
  Listed();
  BlockWrites();
  EventLog& log = CurrentHost().eventLog();
  const EventSource source(log.RegisterEventSourceW(nullptr, L"first"));
  EXPECT_FALSE(log.ReportEventW(source.Get(), EVENTLOG_WARNING_TYPE, 0, 1, nullptr, 0, 0, nullptr, nullptr));
  EXPECT_NE(CurrentHost().GetLastError(), DWORD{ERROR_SUCCESS});
  AllowWrites();
  EXPECT_THAT(Sources(first()), IsEmpty());
}

TEST_F(StateFixture, AnotherProcessDeletesASetAndTheFirstSeesItAtItsNextCall) {
  Backup backup;
  backup.TakeBoth();
  EXPECT_THAT(Listed(), ElementsAre(kFirstDevice, kSecondDevice));
  InSecond();
  {
    Backup other(Phase::initialized, kPersistent);
    LONG deleted = 0;
    Expect(other.Delete(backup.setId, VSS_OBJECT_SNAPSHOT_SET, &deleted), S_OK);
    EXPECT_EQ(deleted, 2);
  }
  InFirst();
  EXPECT_FALSE(HasDisk(3));
  Expect(backup.PropertiesOf(backup.copyIds[0]), VSS_E_OBJECT_NOT_FOUND);
  EXPECT_THAT(Listed(), IsEmpty());
}

TEST_F(StateFixture, ABrokenSetStaysBrokenAndAMaskedDiskStaysAway) {
  Backup broken;
  broken.TakeBoth();
  Backup masked;
  masked.TakeBoth();
  InSecond();
  Expect(BreakSet(broken.setId, 0), VSS_S_ASYNC_FINISHED);
  Expect(BreakSet(masked.setId, VSS_BREAKEX_FLAG_MASK_LUNS), VSS_S_ASYNC_FINISHED);
  broken.Release();
  masked.Release();
  Begin(VssHost());
  EXPECT_THAT(Listed(), IsEmpty());
  Expect(BreakSet(broken.setId, 0), VSS_E_OBJECT_NOT_FOUND);
  EXPECT_TRUE(HasDisk(3));
  EXPECT_TRUE(HasDisk(4));
  EXPECT_FALSE(HasDisk(5));
  EXPECT_FALSE(HasDisk(6));
}

TEST_F(StateFixture, DevicesAreNumberedOnThroughAllProcesses) {
  { Backup().TakeBoth(); }
  Begin(VssHost());
  { Backup(Phase::snapshotDone, kPersistent); }
  EXPECT_EQ(Listed().back(), L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy3");
}

TEST_F(StateFixture, TransportableCopiesAreImportedOnceWhateverTheProcess) {
  std::wstring document;
  {
    Backup backup(Phase::snapshotDone, kTransportable);
    document = backup.Document();
    Expect(backup.Complete(), VSS_S_ASYNC_FINISHED);
  }
  const auto import = [&] {
    Backup backup;
    const Bstr xml(document);
    EXPECT_THAT(backup->InitializeForBackup(xml.Get()), Gives(S_OK));
    return backup.Run(&IVssBackupComponents::ImportSnapshots);
  };
  InSecond();
  Expect(import(), VSS_S_ASYNC_FINISHED);
  EXPECT_THAT(Listed(), ElementsAre(kFirstDevice));
  InFirst();
  Expect(import(), VSS_E_NO_SNAPSHOTS_IMPORTED);
}

TEST_F(StateFixture, ALogoutEndsTheSessionForEveryProcess) {
  HostModel model = VssHost();
  model.iscsiSessions = {{L"iqn.2007-11.example:a", {{L"TSL0001"}}}, {L"iqn.2007-11.example:b", {{L"TSL0002"}}}};
  Begin(model);
  const auto targets = [] {
    std::vector<std::wstring> names;
    ULONG bytes = 0;
    ULONG count = 0;
    CurrentHost().iscsi().GetIScsiSessionListW(&bytes, &count, nullptr);
    std::vector<char> buffer(bytes);
    auto* list = reinterpret_cast<iscsi::SessionInfo*>(buffer.data());
    EXPECT_EQ(CurrentHost().iscsi().GetIScsiSessionListW(&bytes, &count, list), DWORD{ERROR_SUCCESS});
    for (ULONG i = 0; i < count; ++i) names.emplace_back(list[i].TargetName);
    if (count == 2) {
      EXPECT_EQ(CurrentHost().iscsi().LogoutIScsiTarget(&list[0].SessionId), DWORD{ERROR_SUCCESS});
    }
    return names;
  };
  EXPECT_THAT(targets(), SizeIs(2));
  InSecond();
  EXPECT_THAT(targets(), ElementsAre(L"iqn.2007-11.example:b"));
  Begin(model);
  EXPECT_THAT(targets(), ElementsAre(L"iqn.2007-11.example:b"));
}

TEST_F(StateFixture, OneSetIsUnderConstructionAmongAllProcesses) {
  Backup backup(Phase::setStarted);
  InSecond();
  Expect(StartSet(), VSS_E_SNAPSHOT_SET_IN_PROGRESS);
  InFirst();
  backup.Take();
  InSecond();
  Expect(StartSet(), S_OK);
}

TEST_F(StateFixture, TheNextSetWaitsUntilTheEndOfDoSnapshotSet) {
  HostModel model = VssHost();
  model.freezeMilliseconds = 5000;
  Begin(model);
  Backup backup(Phase::prepared);
  ComPtr<IVssAsync> async;
  Expect(backup->DoSnapshotSet(async.Put()), S_OK);
  Expect(async->Wait(4999), S_OK);
  InSecond();
  Expect(StartSet(), VSS_E_SNAPSHOT_SET_IN_PROGRESS);
  InFirst();
  Expect(async->Wait(1), S_OK);
  InSecond();
  Expect(StartSet(), S_OK);
}

TEST_F(StateFixture, AnAbortLetsTheOtherProcessBegin) {
  Backup backup(Phase::prepared);
  Expect(backup->AbortBackup(), S_OK);
  InSecond();
  Expect(StartSet(), S_OK);
}

TEST_F(StateFixture, WithItsProcessGoWhatASessionHadUnderConstruction) {
  for (const Phase phase : {Phase::setStarted, Phase::prepared}) {
    Backup backup(phase, kPersistent);
    first().Die();
    InSecond();
    Expect(StartSet(), S_OK);
    EXPECT_THAT(Listed(), IsEmpty());
    const bool told = phase == Phase::prepared;
    EXPECT_THAT(WhoHeard(second(), WriterEvent::backupShutdown),
                told ? std::vector<std::wstring>{L"SqlServerWriter"} : std::vector<std::wstring>{});
    EXPECT_THAT(WhoHeard(second(), std::nullopt), IsEmpty());
    InFirst();
    backup.Release();
    Begin(VssHost());
  }
}

TEST_F(StateFixture, WithItsProcessGoAutoReleaseCopiesAndPersistentOnesStay) {
  Backup plain;
  plain.TakeBoth(VSS_CTX_BACKUP);
  Backup persistent(Phase::snapshotDone, kPersistent);
  EXPECT_THAT(Listed(), SizeIs(3));
  InSecond();
  EXPECT_THAT(Listed(), SizeIs(3));
  first().Die();
  EXPECT_THAT(Listed(), ElementsAre(L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy3"));
  EXPECT_THAT(WhoHeard(second(), WriterEvent::backupShutdown), ElementsAre(L"SqlServerWriter", L"SqlServerWriter"));
  EXPECT_THAT(StateText(), Not(HasSubstr("HarddiskVolumeShadowCopy1")));
  InFirst();
  plain.Release();
  persistent.Release();
}

TEST_F(StateFixture, ASessionThatEndsByItselfLeavesNothingToOthers) {
  { Backup plain(Phase::snapshotDone); }
  InSecond();
  EXPECT_THAT(Listed(), IsEmpty());
  EXPECT_THAT(WhoHeard(second(), WriterEvent::backupShutdown), IsEmpty());
  EXPECT_THAT(StateText(), HasSubstr("\"sessions\":[]"));
}

TEST_F(StateFixture, ASetThatWasBeingMadeIsGivenUpOrCompletedAsTheHostFileSays) {
  struct Case {
    OrphanedSnapshot orphaned;
    LONG context;
    std::size_t left;
    std::size_t aborts;
  };
  for (const Case& given :
       {Case{OrphanedSnapshot::abandon, kPersistent, 0, 1}, Case{OrphanedSnapshot::complete, kPersistent, 1, 0},
        Case{OrphanedSnapshot::complete, VSS_CTX_BACKUP, 0, 0}}) {
    HostModel model = VssHost();
    model.freezeMilliseconds = 5000;
    model.orphanedSnapshot = given.orphaned;
    std::filesystem::remove(StatePath());
    Begin(model);
    Backup backup(Phase::prepared, given.context);
    ComPtr<IVssAsync> async;
    Expect(backup->DoSnapshotSet(async.Put()), S_OK);
    first().Die();
    InSecond();
    EXPECT_THAT(Listed(), SizeIs(given.left));
    EXPECT_THAT(WhoHeard(second(), std::nullopt), SizeIs(given.aborts));
    EXPECT_THAT(WhoHeard(second(), WriterEvent::backupShutdown), SizeIs(1));
    Expect(StartSet(), S_OK);
    InFirst();
    async.Reset();
    backup.Release();
  }
}

// Between the note that it begins and the copies.
TEST_F(StateFixture, ACommitThatHadNotMadeItsCopiesIsCompletedToo) {
  HostModel model = VssHost();
  model.orphanedSnapshot = OrphanedSnapshot::complete;
  Begin(model);
  Backup backup(Phase::prepared, kPersistent);
  const auto neverEnds = std::make_shared<simulator::AsyncOperation>();
  Expect(first().service().BeginCommit(first().service().State().openSet->session, neverEnds), S_OK);
  first().Die();
  InSecond();
  EXPECT_THAT(Listed(), ElementsAre(kFirstDevice));
  InFirst();
  backup.Release();
}

TEST_F(StateFixture, ThreadsOfManyProcessesLoseNoChange) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 5;
  const auto work = [](Process& process) {
    for (int round = 0; round < kRounds; ++round) {
      ComPtr<IVssBackupComponents> backup;
      Expect(process.host().vss().CreateVssBackupComponents(backup.Put()), S_OK);
      Expect(backup->InitializeForBackup(nullptr), S_OK);
      Expect(backup->SetContext(VSS_CTX_NAS_ROLLBACK), S_OK);
      GUID id{};
      while (backup->StartSnapshotSet(&id) == VSS_E_SNAPSHOT_SET_IN_PROGRESS) std::this_thread::yield();
      std::wstring volume = L"E:\\";
      Expect(backup->AddToSnapshotSet(volume.data(), GUID{}, &id), S_OK);
      ComPtr<IVssAsync> async;
      Expect(backup->DoSnapshotSet(async.Put()), S_OK);
    }
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) threads.emplace_back(work, std::ref(i % 2 == 0 ? first() : second()));
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(Listed(), SizeIs(kThreads * kRounds));
  InSecond();
  const std::vector<std::wstring> devices = Listed();
  EXPECT_THAT(std::set<std::wstring>(devices.begin(), devices.end()), SizeIs(kThreads * kRounds));
}

}  // namespace
}  // namespace varnel::test
