// A world that hangs: calls, operations, providers and writers that do not come to an end by themselves.
#include <atomic>
#include <functional>
#include <thread>

#include "tests/simulator/backup.h"

namespace varnel::test {
namespace {

constexpr char kProperties[] = "IVssBackupComponents::GetSnapshotProperties";

// Something done on a thread of its own, which is over when this goes.
class InBackground {
 public:
  explicit InBackground(std::function<void()> work)
      : thread_([this, work = std::move(work)] {
          work();
          done_ = true;
        }) {}
  InBackground(const InBackground&) = delete;
  InBackground& operator=(const InBackground&) = delete;
  ~InBackground() { Join(); }

  void Join() {
    if (thread_.joinable()) thread_.join();
  }
  // Whether it is still under way after some time in which it could have ended.
  bool Lasts() const {
    for (int i = 0; i < 20 && !done_; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return !done_;
  }

 private:
  std::atomic<bool> done_ = false;
  std::thread thread_;
};

HRESULT StatusOf(IVssAsync& async) {
  HRESULT result = E_UNEXPECTED;
  EXPECT_THAT(async.QueryStatus(&result, nullptr), Gives(S_OK));
  return result;
}

// An endless wait on another thread lasts until the operation is cancelled.
void ExpectCancelledWhileWaitedFor(IVssAsync& async) {
  InBackground waiting([&] { EXPECT_THAT(async.Wait(INFINITE), Gives(S_OK)); });
  EXPECT_TRUE(waiting.Lasts());
  EXPECT_THAT(async.Cancel(), Gives(S_OK));
  waiting.Join();
  EXPECT_THAT(StatusOf(async), Gives(VSS_S_ASYNC_CANCELLED));
}

class HangingWorld : public ShadowCopyService {
 protected:
  // At its `event`, until the service gives it up.
  void HangWriter(WriterEvent event) {
    simulator::WriterFault fault{L"SqlServerWriter", event, S_OK, S_OK, L"", {}};
    fault.hangs = true;
    host().faults().FailWriter(std::move(fault));
  }
  ULONGLONG now() { return host().machine().now; }
};

TEST_F(HangingWorld, AnEndlessWaitForAnOperationThatHangsEndsWithItsCancellation) {
  host().faults().HangAsync("DoSnapshotSet");
  Backup backup(Phase::prepared);
  ComPtr<IVssAsync> async;
  ASSERT_THAT(backup->DoSnapshotSet(async.Put()), Gives(S_OK));
  ExpectCancelledWhileWaitedFor(*async);
  EXPECT_THAT(Copies(), IsEmpty());
  EXPECT_THAT(backup.States(), Each(VSS_WS_STABLE));
}

TEST_F(HangingWorld, AWaitWithALimitMovesTheClockAndEnds) {
  host().faults().HangAsync("PrepareForBackup");
  Backup backup(Phase::setStarted);
  ComPtr<IVssAsync> async;
  ASSERT_THAT(backup->PrepareForBackup(async.Put()), Gives(S_OK));
  EXPECT_THAT(async->Wait(1500), Gives(S_OK));
  EXPECT_EQ(now(), 1500U);
  EXPECT_THAT(StatusOf(*async), Gives(VSS_S_ASYNC_PENDING));
  EXPECT_THAT(async->Cancel(), Gives(S_OK));
  EXPECT_THAT(async->Wait(INFINITE), Gives(S_OK)) << "there is nothing to wait for";
  EXPECT_THAT(backup.Snapshot(), Gives(VSS_E_BAD_STATE));
}

TEST_F(HangingWorld, EndingTheHangsEndsEveryWaitAndLeavesTheOperationPending) {
  host().faults().HangAsync("GatherWriterMetadata");
  Backup backup(Phase::initialized);
  ComPtr<IVssAsync> async;
  ASSERT_THAT(backup->GatherWriterMetadata(async.Put()), Gives(S_OK));
  InBackground waiting([&] { EXPECT_THAT(async->Wait(INFINITE), Gives(S_OK)); });
  EXPECT_TRUE(waiting.Lasts());
  host().faults().EndHangs();
  waiting.Join();
  EXPECT_THAT(StatusOf(*async), Gives(VSS_S_ASYNC_PENDING));
}

TEST_F(HangingWorld, TheEndOfTheHostEndsEveryWait) {
  ComPtr<IVssAsync> async;
  host().faults().HangAsync("GatherWriterMetadata");
  Backup backup(Phase::initialized);
  ASSERT_THAT(backup->GatherWriterMetadata(async.Put()), Gives(S_OK));
  InBackground waiting([&] { EXPECT_THAT(async->Wait(INFINITE), Gives(S_OK)); });
  EXPECT_TRUE(waiting.Lasts());
  Install(VssHost());
}

TEST_F(HangingWorld, AProviderThatHangsKeepsTheSnapshotUntilItIsCancelled) {
  host().model().providers.at(0).hangs = true;
  Backup backup(Phase::prepared);
  ComPtr<IVssAsync> async;
  ASSERT_THAT(backup->DoSnapshotSet(async.Put()), Gives(S_OK));
  ExpectCancelledWhileWaitedFor(*async);
  EXPECT_THAT(Copies(), IsEmpty());
  EXPECT_THAT(backup.States(), Each(VSS_WS_STABLE));
  EXPECT_THAT(Told(std::nullopt), ElementsAre(L"SqlServerWriter"));
  backup.Release();
  EXPECT_THAT(Backup(Phase::initialized)->StartSnapshotSet(&backup.setId), Gives(S_OK)) << "the next set may begin";
}

TEST_F(HangingWorld, WritersDoNotStayFrozenForAProviderThatHangs) {
  host().model().providers.at(0).hangs = true;
  Backup backup(Phase::prepared);
  ComPtr<IVssAsync> async;
  ASSERT_THAT(backup->DoSnapshotSet(async.Put()), Gives(S_OK));
  EXPECT_THAT(async->Wait(60001), Gives(S_OK));
  EXPECT_THAT(async->Cancel(), Gives(S_OK));
  EXPECT_EQ(backup.States().at(0), VSS_WS_FAILED_AT_FREEZE);
  EXPECT_THAT(backup.Statuses().at(0).failure, Gives(VSS_E_WRITERERROR_TIMEOUT));
}

TEST_F(HangingWorld, AProviderThatHangsDoesNotKeepASetOfAnother) {
  Install(HostWithProviders({kHardwareProvider, kSystemProvider}));
  host().model().providers.at(0).hangs = true;
  Backup backup(Phase::gathered);
  backup.StartSet();
  ASSERT_THAT(backup.AddVolume(L"E:\\", kSystem), Gives(S_OK));
  backup.Take();
  EXPECT_THAT(Copies(), SizeIs(1));
}

TEST_F(HangingWorld, ACallThatHangsDoesItsWorkOnceTheHangsAreEnded) {
  Backup backup(Phase::snapshotDone);
  host().faults().HangCall(kProperties, 2);
  EXPECT_THAT(backup.PropertiesOf(backup.copyIds.at(0)), Gives(S_OK)) << "the second one hangs";
  host().calls().Clear();
  InBackground calling([&] { EXPECT_THAT(backup.PropertiesOf(backup.copyIds.at(0)), Gives(S_OK)); });
  EXPECT_TRUE(calling.Lasts());
  host().faults().EndHangs();
  calling.Join();
  EXPECT_THAT(host().calls().Of(kProperties), SizeIs(1));
  EXPECT_THAT(backup.PropertiesOf(backup.copyIds.at(0)), Gives(S_OK)) << "and no third one";
}

TEST_F(HangingWorld, TheHostEndsNoSoonerThanACallThatHung) {
  host().faults().HangCall("GetComputerNameW");
  InBackground calling([&] {
    std::array<wchar_t, 64> name{};
    auto characters = static_cast<DWORD>(name.size());
    EXPECT_TRUE(host().system().GetComputerNameW(name.data(), &characters));
  });
  EXPECT_TRUE(calling.Lasts());
  host().faults().EndHangs();
  calling.Join();

  auto other = std::make_unique<simulator::SimulatedHost>(VssHost());
  simulator::SimulatedHost* const borrowed = other.get();
  borrowed->faults().HangCall("GetComputerNameW", 0);
  InBackground second([borrowed] {
    std::array<wchar_t, 64> name{};
    auto characters = static_cast<DWORD>(name.size());
    EXPECT_TRUE(borrowed->system().GetComputerNameW(name.data(), &characters));
  });
  EXPECT_TRUE(second.Lasts());
  other.reset();
}

TEST_F(HangingWorld, AWriterThatHangsInFreezeTimesOutAfterAMinute) {
  HangWriter(WriterEvent::freeze);
  Backup backup(Phase::prepared);
  EXPECT_THAT(backup.Snapshot(), Gives(VSS_S_ASYNC_FINISHED)) << "a writer's failure is not the set's";
  EXPECT_EQ(now(), 60000U);
  EXPECT_EQ(backup.States().at(0), VSS_WS_FAILED_AT_FREEZE);
  EXPECT_THAT(backup.Statuses().at(0).failure, Gives(VSS_E_WRITERERROR_TIMEOUT));
  EXPECT_THAT(Told(std::nullopt), ElementsAre(L"SqlServerWriter"));
  EXPECT_THAT(Copies(), SizeIs(1));
}

TEST_F(HangingWorld, AWriterWithALimitOfItsOwnTimesOutThen) {
  HangWriter(WriterEvent::freeze);
  host().model().writers.at(0).timeoutMilliseconds = 20000;
  host().model().freezeMilliseconds = 5000;
  Backup backup(Phase::prepared);
  EXPECT_THAT(backup.Snapshot(), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_EQ(now(), 20000U) << "the others freeze meanwhile";
  EXPECT_THAT(backup.Statuses().at(0).failure, Gives(VSS_E_WRITERERROR_TIMEOUT));
  backup.Release();

  Install(VssHost());
  host().model().writers.at(0).timeoutMilliseconds = 20000;
  host().model().freezeMilliseconds = 20001;
  Backup slow(Phase::snapshotDone);
  EXPECT_THAT(slow.Statuses().at(0).failure, Gives(VSS_E_WRITERERROR_TIMEOUT));
}

TEST_F(HangingWorld, AFrozenWriterTimesOutWhileAnotherHangs) {
  HangWriter(WriterEvent::freeze);
  host().model().writers.at(1).timeoutMilliseconds = 30000;
  Backup backup(Phase::gathered);
  ASSERT_THAT(backup.Add(0xA, L"SQL01", L"sales"), Gives(S_OK));
  ASSERT_THAT(backup.Add(0xB, nullptr, L"Server"), Gives(S_OK));
  backup.StartSet();
  ASSERT_THAT(backup.AddVolume(L"E:\\"), Gives(S_OK));
  backup.Take();
  EXPECT_THAT(backup.Statuses().at(1).failure, Gives(VSS_E_WRITERERROR_TIMEOUT));
}

TEST_F(HangingWorld, AWriterThatHangsInAnotherEventDoesNotRespond) {
  host().model().eventLimitMilliseconds = 90000;
  const std::pair<WriterEvent, VSS_WRITER_STATE> events[] = {
      {WriterEvent::prepareSnapshot, VSS_WS_FAILED_AT_PREPARE_SNAPSHOT},
      {WriterEvent::thaw, VSS_WS_FAILED_AT_THAW},
      {WriterEvent::postSnapshot, VSS_WS_FAILED_AT_POST_SNAPSHOT}};
  for (const auto& [event, state] : events) {
    SCOPED_TRACE(state);
    Install(VssHost());
    host().model().eventLimitMilliseconds = 90000;
    HangWriter(event);
    Backup backup(Phase::prepared);
    EXPECT_THAT(backup.Snapshot(), Gives(VSS_S_ASYNC_FINISHED));
    EXPECT_EQ(now(), 90000U);
    EXPECT_EQ(backup.States().at(0), state);
    EXPECT_THAT(backup.Statuses().at(0).failure, Gives(VSS_E_WRITER_NOT_RESPONDING));
    EXPECT_THAT(Told(std::nullopt), SizeIs(event == WriterEvent::thaw ? 1 : 0));
  }
}

TEST_F(HangingWorld, AWriterThatHangsWhileItIsIdentifiedIsMissing) {
  HangWriter(WriterEvent::identify);
  Backup backup(Phase::initialized);
  backup.Gather();
  EXPECT_EQ(now(), 600000U);
  EXPECT_EQ(Got(*backup, &IVssBackupComponents::GetWriterMetadataCount), 2U);
}

TEST_F(HangingWorld, APreparationThatIsCancelledWhileAWriterHangsIsNone) {
  HangWriter(WriterEvent::prepareBackup);
  Backup backup(Phase::setStarted);
  ComPtr<IVssAsync> async;
  ASSERT_THAT(backup->PrepareForBackup(async.Put()), Gives(S_OK));
  EXPECT_THAT(async->Wait(1000), Gives(S_OK));
  EXPECT_THAT(StatusOf(*async), Gives(VSS_S_ASYNC_PENDING));
  EXPECT_THAT(async->Cancel(), Gives(S_OK));
  EXPECT_THAT(backup.Snapshot(), Gives(VSS_E_BAD_STATE));
  EXPECT_THAT(backup->AbortBackup(), Gives(S_OK));
}

TEST_F(HangingWorld, AWriterThatHungWhilePreparingHasFailedAndTheBackupGoesOn) {
  HangWriter(WriterEvent::prepareBackup);
  Backup backup(Phase::snapshotDone);
  EXPECT_EQ(backup.States().at(0), VSS_WS_FAILED_AT_PREPARE_BACKUP);
  EXPECT_THAT(backup.Statuses().at(0).failure, Gives(VSS_E_WRITER_NOT_RESPONDING));
  EXPECT_THAT(backup.Complete(), Gives(VSS_S_ASYNC_FINISHED));
}

}  // namespace
}  // namespace varnel::test
