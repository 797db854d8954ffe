// Deadlines and interruptions: what ends a request that lasts too long, and what becomes of it.
#include "varnelctl/sets/limits.h"

#include <chrono>
#include <future>
#include <limits>
#include <sstream>

#include "platform/forwarding_host.h"
#include "simulator/vss/snapshot_service.h"
#include "tests/support/applications.h"
#include "tests/varnelctl/snapshot_support.h"
#include "varnelctl/sets/journal.h"

namespace varnel::test {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::Not;
using testing::StartsWith;

using varnelctl::Deadlines;

// Wants to end the run from a time of the host's clock on.
class InterruptedAt final : public varnelctl::Interruption {
 public:
  InterruptedAt(simulator::SimulatedHost& host, ULONGLONG time) : host_(host), time_(time) {}
  bool Requested() const override { return host_.time().GetTickCount64() >= time_; }

 private:
  simulator::SimulatedHost& host_;
  const ULONGLONG time_;
};

constexpr ULONGLONG kNever = std::numeric_limits<ULONGLONG>::max();
constexpr char kCancelled[] = "\n  the operation was cancelled (E_ABORT, 0x80004004)\n";

class Limited : public SnapshotFixture {
 protected:
  void SetUp() override {
    simulator::HostModel model = SmallHost();
    model.writers = {
        MakeWriter(L"Writer", 1, {MakeComponent(L"", L"one", {L"E:\\one"}), MakeComponent(L"", L"two", {L"F:\\two"})})};
    Install(std::move(model));
  }
  varnelctl::InterruptionSource InterruptAt(ULONGLONG time) {
    return [this, time] { return std::make_unique<InterruptedAt>(host(), time); };
  }
  void Hang(const std::string& operation, int occurrence = 1) { host().faults().HangAsync(operation, occurrence); }
  void HangWriterAtTheEnd() {
    simulator::WriterFault fault{L"Writer", simulator::WriterEvent::backupComplete, S_OK, S_OK, L"", {}};
    fault.hangs = true;
    FailWriter(std::move(fault));
  }
  std::size_t ListedCopies() {
    return host().machine().snapshots->CopiesOfContext(static_cast<LONG>(VSS_CTX_ALL)).size();
  }
  std::size_t Made(const std::string& method) { return CallsOf("IVssBackupComponents::" + method).size(); }
  ULONGLONG Now() { return host().time().GetTickCount64(); }
  /// Nothing is left of the run, and the service takes the next one.
  void ExpectServiceFree() {
    EXPECT_EQ(host().live().Describe(), "");
    EXPECT_EQ(ListedCopies(), 0u);
    host().faults().Load({});
    Snapshot();
  }
};

// Operations that never end while the set is made

struct Hanging {
  const char* operation;
  const char* step;      // in the words of the message
  const char* deadline;  // the step's name on the command line
};

class HangingOperation : public Limited, public testing::WithParamInterface<Hanging> {
 protected:
  void SetUp() override {
    Limited::SetUp();
    Hang(GetParam().operation);
  }
  const std::string step = GetParam().step;
};

TEST_P(HangingOperation, IsCancelledAtTheDeadlineOfTheRun) {
  const CliResult result = Snapshot({"--deadline", "30"}, 17);

  const std::string cause =
      step + ", under way for 30 seconds, had not ended at the deadline of 30 seconds (--deadline 30)";
  EXPECT_THAT(result.err, StartsWith("varnelctl: " + cause + kCancelled));
  EXPECT_THAT(result.next, HasSubstr("varnelctl explain past-deadline"));
  EXPECT_THAT(result.out, HasSubstr("FAILED: nothing was captured: " + cause + "\n"));
  EXPECT_EQ(Now(), 30'000u);
  EXPECT_THAT(CallsOf("IVssAsync::Cancel"), SizeIs(1));
  EXPECT_EQ(Made("AbortBackup"), 1u);
  EXPECT_EQ(Made("BackupComplete"), 0u);
  ExpectServiceFree();
}

TEST_P(HangingOperation, IsCancelledAtTheDeadlineOfItsStep) {
  const std::string deadline = GetParam().deadline + std::string("=20");
  const json outcome = SnapshotJson({"--deadline", "3000", "--deadline-step", deadline}, 17);

  EXPECT_EQ(outcome["result"]["message"], step + " did not end within 20 seconds (--deadline-step " + deadline + ")");
  EXPECT_EQ(outcome["result"]["hresult"], nullptr);
  EXPECT_EQ(outcome["setState"], "none");
  EXPECT_EQ(Now(), 20'000u);
  ExpectServiceFree();
}

TEST_P(HangingOperation, IsCancelledWhenSomebodyEndsTheRun) {
  const CliResult result = Snapshot({}, 17, InterruptAt(5000));

  EXPECT_THAT(result.err, StartsWith("varnelctl: interrupted while " + step + kCancelled));
  EXPECT_THAT(result.next, HasSubstr("varnelctl explain interrupted"));
  EXPECT_EQ(Now(), 5000u);
  ExpectServiceFree();
}

INSTANTIATE_TEST_SUITE_P(Limits, HangingOperation,
                         testing::Values(Hanging{"GatherWriterMetadata", "gathering the writers' metadata", "gather"},
                                         Hanging{"PrepareForBackup", "asking the writers to prepare", "prepare"},
                                         Hanging{"GatherWriterStatus", "asking the writers to prepare", "preparing"},
                                         Hanging{"DoSnapshotSet", "taking the snapshot", "snapshot"}),
                         [](const auto& hanging) { return std::string(hanging.param.operation); });

TEST_F(Limited, AProviderThatHangsIsGivenUp) {
  host().model().providers.at(0).hangs = true;
  const json outcome = SnapshotJson({"--deadline-step", "snapshot=15", "--context", "app-rollback"}, 17);

  EXPECT_EQ(outcome["result"]["step"], "snapshot");
  EXPECT_EQ(outcome["setState"], "none");
  host().model().providers.at(0).hangs = false;
  ExpectServiceFree();
}

// The set is there: it is deleted, and the writers are told.
TEST_F(Limited, ASetThatWasTakenBeforeTheDeadlineIsDeleted) {
  Hang("GatherWriterStatus", 2);
  const CliResult result = Snapshot({"--deadline", "30", "--context", "app-rollback"}, 17);

  EXPECT_THAT(result.out, HasSubstr("} was deleted: taking the snapshot, under way for 30 seconds"));
  EXPECT_EQ(Made("DeleteSnapshots"), 1u);
  EXPECT_EQ(Made("BackupComplete"), 1u);
  EXPECT_THAT(CallsOf("IVssBackupComponents::SetBackupSucceeded").at(0), HasSubstr("false"));
  ExpectServiceFree();
}

// Completion

TEST_F(Limited, AnOperationOfTheCompletionHasAMinuteMoreThanTheRun) {
  Hang("BackupComplete");
  const CliResult result = Snapshot({"--deadline", "30", "--context", "app-rollback"}, 17);

  EXPECT_THAT(result.err, StartsWith("varnelctl: completing the backup, under way for 90 seconds, had not ended at the "
                                     "deadline of 30 seconds (--deadline 30)"));
  EXPECT_THAT(result.out, HasSubstr("NOT ALL DONE: completing the backup"));
  EXPECT_EQ(Now(), 90'000u);
  EXPECT_EQ(ListedCopies(), 2u) << "the set had got through";
}

TEST_F(Limited, TheCompletionOfARunThatIsPastItsDeadlineHasAMinute) {
  Hang("GatherWriterStatus", 2);
  Hang("BackupComplete");
  const CliResult result = Snapshot({"--deadline", "30"}, 17);

  EXPECT_THAT(result.err, AllOf(StartsWith("varnelctl: taking the snapshot, under way for 30 seconds"),
                                HasSubstr("\n  given up after 60 seconds while completing the backup\n")));
  EXPECT_EQ(Now(), 90'000u);
  ExpectServiceFree();
}

TEST_F(Limited, TheCompletionHasADeadlineOfItsOwn) {
  Hang("BackupComplete");
  const json outcome = SnapshotJson({"--deadline-step", "complete=10", "--then", "delete"}, 17);

  EXPECT_EQ(outcome["result"]["step"], "completing");
  EXPECT_EQ(Now(), 10'000u);
}

// As the notice promises.
TEST_F(Limited, AnInterruptionDuringTheCompletionDoesNotEndIt) {
  HangWriterAtTheEnd();
  const CliResult result = Run(Whole({"--context", "app-rollback"}), InterruptAt(1));

  EXPECT_THAT(CallsOf("IVssAsync::Cancel"), IsEmpty());
  EXPECT_EQ(ListedCopies(), 2u);
  EXPECT_THAT(result.out, HasSubstr("} kept until it is deleted"));
}

// What is answered does not matter

TEST_F(Limited, ASnapshotThatEndedWellAlthoughItWasCancelledIsDeleted) {
  host().model().freezeMilliseconds = 10'000;
  host().faults().FailCall("IVssAsync::Cancel", static_cast<DWORD>(VSS_S_ASYNC_FINISHED));
  const CliResult result = Snapshot({"--deadline-step", "snapshot=5", "--context", "app-rollback"}, 17);

  EXPECT_THAT(result.out, HasSubstr("FAILED: "));
  EXPECT_EQ(Made("DeleteSnapshots"), 1u);
  EXPECT_EQ(Made("AbortBackup"), 1u);
  ExpectServiceFree();
}

TEST_F(Limited, ACancellationThatFailsEndsTheRunAllTheSame) {
  Hang("PrepareForBackup");
  FailCall("IVssAsync::Cancel", E_ACCESSDENIED);
  const CliResult result = Snapshot({"--deadline", "30"}, 17);

  EXPECT_THAT(result.err, StartsWith("varnelctl: asking the writers to prepare, under way for 30 seconds"));
  EXPECT_EQ(Made("DoSnapshotSet"), 0u);
}

// What the service may still be making is not forgotten.
TEST_F(Limited, ASnapshotThatMayStillComeStaysJournalled) {
  Hang("DoSnapshotSet");
  FailCall("IVssAsync::Cancel", E_ACCESSDENIED);
  const json outcome =
      SnapshotJson({"--deadline", "30", "--context", "app-rollback", "--journal", folder.File("sets")}, 17);

  EXPECT_EQ(outcome["setState"], "unknown");
  const auto entries = varnelctl::Journal(PathOf(folder.File("sets"))).Read().entries;
  ASSERT_THAT(entries, SizeIs(1));
  EXPECT_EQ(entries[0].stage, varnelctl::JournalStage::TakingSnapshot);
  EXPECT_TRUE(entries[0].IsLeftover());
}

// Calls

TEST_F(Limited, NoCallIsAddedForWhatEndsInTime) {
  Snapshot();
  std::vector<std::string> plain = host().calls().lines();
  SetUp();
  Snapshot({"--deadline", "30", "--deadline-step", "prepare=5"}, 0, InterruptAt(kNever));
  for (std::string& line : plain) {
    if (line == "IVssAsync::Wait(INFINITE) = S_OK") line = "IVssAsync::Wait(500) = S_OK";
  }
  EXPECT_EQ(host().calls().lines(), plain);
}

TEST_F(Limited, AServiceThatKnowsOnlyEndlessWaitsIsWaitedForWithoutEnd) {
  FailCall("IVssAsync::Wait", E_INVALIDARG, 1);
  Snapshot({"--deadline", "30"});

  EXPECT_THAT(CallsOf("IVssAsync::Wait").at(1), HasSubstr("INFINITE"));
}

TEST_F(Limited, AWaitOrAQuestionThatFailsIsToldAsWithoutLimits) {
  for (const char* call : {"IVssAsync::Wait", "IVssAsync::QueryStatus"}) {
    SetUp();
    FailCall(call, VSS_E_UNEXPECTED, 2);
    const std::string plain = Snapshot({}, 15).err;
    SetUp();
    FailCall(call, VSS_E_UNEXPECTED, 2);
    EXPECT_EQ(Snapshot({"--deadline", "30"}, 15).err, plain);
  }
}

// Whoever goes on after a wait that was given up gets nothing more of the set; what ends it is done.
TEST_F(Limited, AfterAWaitWasGivenUpNoCallOfTheSetIsMade) {
  Hang("GatherWriterMetadata");
  varnelctl::WatchedHost watched(host());
  const ScopedHost current(watched);
  std::ostringstream out;
  varnelctl::Console console(out, out);
  varnelctl::Session session(console, varnelctl::Format::Text, false, {}, {});
  varnelctl::Phases phases(session, Deadlines{30, {}});
  varnelctl::Watchdog watchdog;
  varnelctl::Limits limits(session, phases, watchdog);
  const varnelctl::WatchedHost::Limiting limiting(watched, limits);
  ComPtr<IVssBackupComponents> backup;
  ASSERT_EQ(watched.vss().CreateVssBackupComponents(backup.Put()), S_OK);
  ASSERT_EQ(backup->InitializeForBackup(nullptr), S_OK);
  ComPtr<IVssAsync> async;
  ASSERT_EQ(backup->GatherWriterMetadata(async.Put()), S_OK);
  EXPECT_EQ(async->Wait(INFINITE), E_ABORT);
  HRESULT status = S_OK;
  EXPECT_EQ(async->QueryStatus(&status, nullptr), S_OK);
  EXPECT_EQ(status, E_ABORT);

  VSS_ID set{};
  EXPECT_EQ(backup->StartSnapshotSet(&set), E_ABORT);
  ComPtr<IVssAsync> none;
  EXPECT_EQ(backup->PrepareForBackup(none.Put()), E_ABORT);
  EXPECT_FALSE(none);
  EXPECT_EQ(backup->AbortBackup(), S_OK);
  EXPECT_EQ(Made("StartSnapshotSet") + Made("PrepareForBackup"), 0u);
  EXPECT_EQ(Made("AbortBackup"), 1u);
}

// Its service would be asked thousands of times a second while nothing happens.
TEST_F(Limited, AHostWhoseClockJumpsIsNotAskedWithoutAPauseForEver) {
  Hang("PrepareForBackup");
  constexpr ULONGLONG kSlices = 10'001;
  const auto start = std::chrono::steady_clock::now();
  Snapshot({}, 17, InterruptAt((kSlices + 1) * 500));

  constexpr std::chrono::milliseconds kPause{400};  // of half a second
  EXPECT_GE(std::chrono::steady_clock::now() - start, kPause);
}

// Between calls

TEST_F(Limited, ARunThatIsLateBetweenTwoStepsAsksForNothingMore) {
  host().model().freezeMilliseconds = 40'000;
  const CliResult result = Snapshot({"--deadline", "40", "--context", "app-rollback", "--then", "mask"}, 17);

  EXPECT_EQ(Made("DoSnapshotSet"), 1u);
  EXPECT_EQ(Made("SaveAsXML"), 0u);
  EXPECT_THAT(result.out, HasSubstr("} was deleted: "));
  ExpectServiceFree();
}

TEST_F(Limited, WhatFollowsTheCompletionIsLeftOutAfterTheDeadline) {
  host().model().eventLimitMilliseconds = 40'000;
  HangWriterAtTheEnd();
  const CliResult result =
      Run(Whole({"--deadline", "30", "--context", "app-rollback", "--then", "mask", "--disconnect"}));

  EXPECT_THAT(result.err, AllOf(HasSubstr("warning: --disconnect is left out: the deadline was past"),
                                HasSubstr("warning: --then mask is left out: the deadline was past")));
  EXPECT_EQ(ListedCopies(), 2u);
}

TEST_F(Limited, APlanIsInterruptedInItsWaitToo) {
  Hang("GatherWriterMetadata");
  const CliResult result = Run({"plan", "--app", "none", "--disk", "TSL0001", "TSL0002"}, InterruptAt(5000));

  EXPECT_EQ(result.status, 17);
  EXPECT_THAT(result.err, StartsWith("varnelctl: interrupted while gathering the writers' metadata"));
}

TEST_F(Limited, ARunWithinItsDeadlinesIsASuccess) {
  host().model().freezeMilliseconds = 20'000;
  Snapshot({"--deadline", "30", "--deadline-step", "snapshot=25", "--deadline-step", "prepare=1"});
}

// The options

TEST_F(Limited, AStepThatDoesNotExistIsToldWithTheNearestOne) {
  const CliResult result = Run(Whole({"--deadline-step", "prepair=5"}));

  ExpectRefused(result,
                "varnelctl: --deadline-step: there is no step \"prepair\"; did you mean \"prepare\"? the steps are ");
  EXPECT_THAT(result.err, HasSubstr("gather, select, add, prepare, snapshot"));
}

TEST_F(Limited, DeadlinesThatMeanNothingAreRefused) {
  for (const char* seconds : {"0", "-1", "86401", "1.5", "soon"}) {
    EXPECT_EQ(Run(Whole({"--deadline", seconds})).status, 2) << seconds;
    EXPECT_EQ(Run(Whole({"--deadline-step", std::string("prepare=") + seconds})).status, 2) << seconds;
  }
  EXPECT_THAT(Run(Whole({"--deadline-step", "prepare"})).err, HasSubstr("is not a step and its seconds (prepare=120)"));
  EXPECT_THAT(Run(Whole({"--deadline-step", "prepare=1", "--deadline-step", "preparing=2"})).err,
              HasSubstr("is given two deadlines"));
  EXPECT_THAT(host().calls().lines(), IsEmpty());
}

TEST(StepDeadlines, TakeNamesAndKeys) {
  Deadlines deadlines;
  EXPECT_EQ(varnelctl::ReadStepDeadline("prepare=120", deadlines), "");
  EXPECT_EQ(varnelctl::ReadStepDeadline("lookingForDisks=86400", deadlines), "");
  EXPECT_EQ(deadlines.ofStep.at("preparing").seconds, 120u);
  EXPECT_EQ(deadlines.ofStep.at("lookingForDisks").seconds, 86'400u);
}

// A program of the request's own, such as a checker

// Whatever is waited for ends after so many slices of half a second.
class SlowPrograms final : public ForwardingProcesses {
 public:
  SlowPrograms(Processes& inner, simulator::SimulatedHost& host, int slices)
      : ForwardingProcesses(inner), host_(host), slices_(slices) {}
  DWORD WaitForSingleObject(HANDLE, DWORD milliseconds) override {
    asked.push_back(milliseconds);
    if (milliseconds == INFINITE) return WAIT_OBJECT_0;
    host_.time().Sleep(milliseconds);
    return slices_-- > 0 ? DWORD{WAIT_TIMEOUT} : DWORD{WAIT_OBJECT_0};
  }

  std::vector<DWORD> asked;

 private:
  simulator::SimulatedHost& host_;
  int slices_;
};

class HostOfSlowPrograms final : public ForwardingHost {
 public:
  HostOfSlowPrograms(simulator::SimulatedHost& inner, int slices)
      : ForwardingHost(inner), programs(inner.processes(), inner, slices) {}
  Processes& processes() override { return programs; }

  SlowPrograms programs;
};

class Checker : public Limited {
 protected:
  void SetUp() override {
    simulator::HostModel model = SmallHost();
    model.writers = {
        MakeWriterOf(kExchangeWriterId, kExchangeWriterName, 1, {MakeMailbox(L"DB1"), MakeMailbox(L"DB2")})};
    model.commands = {{L"eseutil.exe *", 0, L""}};
    Install(std::move(model));
  }
  CliResult Verify(HostOfSlowPrograms& slow, const Arguments& deadline) {
    const ScopedHost current(slow);
    Arguments arguments = Whole({"--app", "exchange", "--disk", "TSL0001", "--verify"});
    arguments.insert(arguments.end(), deadline.begin(), deadline.end());
    return Run(std::move(arguments));
  }
};

TEST_F(Checker, ThatRunsTooLongIsLeftToItself) {
  HostOfSlowPrograms slow(host(), 1000);
  const CliResult result = Verify(slow, {"--deadline-step", "verify=60"});

  EXPECT_EQ(result.status, 17) << result.err;
  EXPECT_THAT(result.err, StartsWith("varnelctl: verifying the snapshot did not end within 60 seconds"));
  EXPECT_THAT(result.out, HasSubstr("} was deleted: verifying the snapshot did not end"));
  EXPECT_THAT(slow.programs.asked, SizeIs(120));
}

TEST_F(Checker, ThatEndsInTimeIsWaitedFor) {
  HostOfSlowPrograms slow(host(), 3);
  EXPECT_EQ(Verify(slow, {"--deadline-step", "verify=60"}).status, 0);
  EXPECT_THAT(slow.programs.asked, AllOf(Not(IsEmpty()), testing::Each(500u)));
}

TEST_F(Checker, ThatNobodyMayEndIsWaitedForWithoutEnd) {
  HostOfSlowPrograms slow(host(), 3);
  EXPECT_EQ(Verify(slow, {}).status, 0);
  EXPECT_THAT(slow.programs.asked, AllOf(Not(IsEmpty()), testing::Each(DWORD{INFINITE})));
}

// The watchdog, on the real clock

class WatchdogTest : public testing::Test {
 protected:
  using Clock = varnelctl::Watchdog::Clock;

  static Clock::time_point In(std::chrono::milliseconds time) { return Clock::now() + time; }
  bool HasBitten(std::chrono::milliseconds time) { return words_.wait_for(time) == std::future_status::ready; }

  static constexpr std::chrono::milliseconds kSoon{20};
  static constexpr std::chrono::milliseconds kLongAfter{200};
  static constexpr std::chrono::hours kNotInThisTest{1};

 private:
  std::promise<std::string> bitten_;

 protected:
  std::future<std::string> words_ = bitten_.get_future();
  varnelctl::Watchdog dog{[this](const std::string& words) { bitten_.set_value(words); }};
};

TEST_F(WatchdogTest, EndsWhatLastsTooLong) {
  dog.Watch(In(kSoon), "words");
  EXPECT_EQ(words_.get(), "words");
}

TEST_F(WatchdogTest, LeavesAloneWhatGoesOn) {
  dog.Watch(In(kSoon), "first");
  dog.Watch(In(kNotInThisTest), "second");
  EXPECT_FALSE(HasBitten(kLongAfter));
  dog.Rest();
  EXPECT_FALSE(HasBitten(kLongAfter));
}

TEST_F(WatchdogTest, WakesForWhatEndsSooner) {
  dog.Watch(In(kNotInThisTest), "first");
  EXPECT_FALSE(HasBitten(kSoon)) << "it sleeps now";
  dog.Watch(In(kSoon), "second");
  EXPECT_EQ(words_.get(), "second");
}

TEST_F(WatchdogTest, DoesFirstWhatItWasTold) {
  std::string first;
  dog.DoFirst([&](const std::string& words) { first = words; });
  dog.Watch(In(kSoon), "words");
  EXPECT_EQ(words_.get(), "words");
  EXPECT_EQ(first, "words");
}

TEST_F(WatchdogTest, DoesNotWaitForEverForWhatItDoesFirst) {
  std::promise<void> hang;
  dog.DoFirst([over = hang.get_future().share()](const std::string&) { over.wait(); }, kSoon);
  dog.Watch(In(kSoon), "words");
  constexpr std::chrono::seconds kAtMost{30};
  EXPECT_TRUE(HasBitten(kAtMost));
  hang.set_value();
}

TEST_F(WatchdogTest, EndsAlsoWhereWhatItDoesFirstFails) {
  dog.DoFirst([](const std::string&) { throw std::bad_alloc(); });
  dog.Watch(In(kSoon), "words");
  EXPECT_EQ(words_.get(), "words");
}

TEST_F(WatchdogTest, WatchesTheEndOnlyOnceItHasBegun) {
  dog.BeginEnd();
  dog.WatchAtEnd(In(kSoon), kSoon, "the end");
  EXPECT_FALSE(HasBitten(kLongAfter));
  dog.BeginEnd();
  EXPECT_EQ(words_.get(), "the end");
}

}  // namespace
}  // namespace varnel::test
