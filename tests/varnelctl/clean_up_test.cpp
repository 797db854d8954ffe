// varnelctl sets clean-up: what requests have left whose process is gone is ended, and nothing else.
#include "varnelctl/sets/clean_up.h"
#include "platform/forwarding_host.h"
#include "tests/varnelctl/sets_support.h"

namespace varnel::test {
namespace {

using nlohmann::json;
using testing::AllOf;

// Does something once, when so much of the virtual clock has passed in pauses.
class HostThatChanges final : public ForwardingHost {
 public:
  HostThatChanges(Host& inner, DWORD afterMilliseconds, std::function<void()> change)
      : ForwardingHost(inner), time_(inner.time(), afterMilliseconds, std::move(change)) {}
  varnel::Time& time() override { return time_; }
  DWORD Slept() const { return time_.slept; }

 private:
  class Time final : public varnel::Time {
   public:
    Time(varnel::Time& inner, DWORD after, std::function<void()> change)
        : inner_(inner), after_(after), change_(std::move(change)) {}
    void Sleep(DWORD milliseconds) override {
      inner_.Sleep(milliseconds);
      slept += milliseconds;
      if (slept >= after_ && change_) std::exchange(change_, nullptr)();
    }
    ULONGLONG GetTickCount64() override { return inner_.GetTickCount64(); }
    void GetSystemTimeAsFileTime(FILETIME* time) override { inner_.GetSystemTimeAsFileTime(time); }

    DWORD slept = 0;

   private:
    varnel::Time& inner_;
    const DWORD after_;
    std::function<void()> change_;
  };

  Time time_;
};

class CleanUp : public SetsFixture {
 protected:
  /// The outcome of the only leftover.
  json CleanOne(int status = 0) {
    const json document = SetsJson({"clean-up"}, status);
    EXPECT_THAT(document.at("sets"), SizeIs(1));
    return document.at("sets").empty() ? json::object() : document.at("sets")[0];
  }
  /// In the journal's order.
  std::pair<std::string, std::string> BothSets() const {
    const auto entries = journal.Read().entries;
    EXPECT_THAT(entries, SizeIs(2));
    return {WideToUtf8Lossy(entries.at(0).setId), WideToUtf8Lossy(entries.at(1).setId)};
  }
  /// Nothing is done, whatever is asked.
  void ExpectUntouched(const std::string& set) {
    host().calls().Clear();
    const auto files = JournalFiles();
    const std::size_t copies = CopiesOf(set);
    EXPECT_EQ(Sets({"clean-up"}).out, "nothing is to be cleaned up\n");
    EXPECT_THAT(Changes(), IsEmpty());
    EXPECT_EQ(JournalFiles(), files);
    EXPECT_EQ(CopiesOf(set), copies);
  }
  /// Hides all sets until so much time has passed.
  json CleanWhileTheSetComes(DWORD afterMilliseconds, DWORD& slept) {
    simulator::SnapshotService& service = *host().machine().snapshots;
    simulator::ServiceState whole = service.State();
    service.SetState({});
    HostThatChanges late(host(), afterMilliseconds, [&] { service.SetState(whole); });
    const ScopedHost current(late);
    json outcome = CleanOne();
    slept = late.Slept();
    return outcome;
  }
};

// Each stage that a process may die in

TEST_F(CleanUp, BeforeTheSnapshotNothingWasTaken) {
  for (const Stage stage : {Stage::Begun, Stage::Started}) {
    const std::string set = LeftSet(stage);
    TakeAway(set);
    host().calls().Clear();
    const json outcome = CleanOne();
    EXPECT_EQ(outcome.at("outcome"), "nothingTaken");
    EXPECT_EQ(outcome.at("text"), "nothing was taken: its process ended before");
    EXPECT_THAT(Changes(), IsEmpty());
    EXPECT_THAT(JournalFiles(), IsEmpty());
  }
}

TEST_F(CleanUp, ASetThatIsThereIsDeletedAndItsSessionsEndInEveryStage) {
  for (const auto& [stage, end] : std::vector<std::pair<Stage, std::optional<End>>>{{Stage::TakingSnapshot, {}},
                                                                                    {Stage::Taken, {}},
                                                                                    {Stage::Completed, {}},
                                                                                    {Stage::Breaking, {}},
                                                                                    {Stage::Masking, {}},
                                                                                    {Stage::Deleting, {}},
                                                                                    {Stage::Ended, End::ToBeEnded}}) {
    Install(Model());
    const std::string set = LeftSet(stage, end);
    // The request had not come so far as to remember them.
    Change(set, [](Entry& entry) {
      entry.copies.clear();
      entry.sessions.clear();
    });
    const json outcome = CleanOne();
    EXPECT_EQ(outcome.at("outcome"), "deleted") << static_cast<int>(stage);
    EXPECT_EQ(outcome.at("setId"), set);
    EXPECT_EQ(outcome.at("text"), "deleted: 2 shadow copies; 2 iSCSI sessions ended");
    EXPECT_EQ(CopiesOf(set), 0u);
    EXPECT_THAT(OpenTargets(), ElementsAre("originals"));
    EXPECT_THAT(JournalFiles(), IsEmpty());
    host().calls().Clear();
    EXPECT_EQ(Sets({"clean-up"}).out, "nothing is to be cleaned up\n");
    EXPECT_THAT(Changes(), IsEmpty());
  }
}

TEST_F(CleanUp, ASetThatTheServiceNoLongerKnowsIsGone) {
  for (const auto& [stage, end] : std::vector<std::pair<Stage, std::optional<End>>>{
           {Stage::Taken, {}}, {Stage::Completed, {}}, {Stage::Deleting, {}}, {Stage::Ended, End::ToBeEnded}}) {
    Install(Model());
    const std::string set = LeftSet(stage, end);
    TakeAway(set);
    const json outcome = CleanOne();
    EXPECT_EQ(outcome.at("outcome"), "gone");
    EXPECT_EQ(outcome.at("text"), "gone: the service knows it no more; 2 iSCSI sessions ended")
        << "as they were recorded, and carry nothing now";
    EXPECT_THAT(OpenTargets(), ElementsAre("originals"));
    EXPECT_THAT(JournalFiles(), IsEmpty());
  }
}

TEST_F(CleanUp, ASetThatWasBeingBrokenAndIsNotListedCountsAsBroken) {
  for (const auto& [stage, word, end] :
       {std::tuple(Stage::Breaking, "broken", End::Broken), std::tuple(Stage::Masking, "masked", End::Masked)}) {
    const std::string set = LeftSet(stage);
    TakeAway(set);
    host().calls().Clear();
    const json outcome = CleanOne();
    EXPECT_EQ(outcome.at("outcome"), word);
    EXPECT_EQ(outcome.at("text"),
              std::string("counts as ") + word + ": it was to be, and the service lists it no more");
    EXPECT_THAT(Changes(), IsEmpty());
    EXPECT_EQ(EntryOf(set).end, end);
    ExpectUntouched(set);
  }
}

TEST_F(CleanUp, ASetThatComesLateIsDeletedWhenItCame) {
  const std::string set = LeftSet(Stage::TakingSnapshot);
  Change(set, [](Entry& entry) { entry.sessions.clear(); });
  DWORD slept = 0;
  const json outcome = CleanWhileTheSetComes(30'000, slept);
  EXPECT_EQ(outcome.at("outcome"), "deleted");
  EXPECT_EQ(outcome.at("text"), "deleted: 2 shadow copies; 2 iSCSI sessions ended");
  EXPECT_EQ(slept, 30'000u);
  EXPECT_EQ(CopiesOf(set), 0u);
  EXPECT_THAT(JournalFiles(), IsEmpty());
}

TEST_F(CleanUp, ASetThatMayComeIsWaitedForOnceAndSixtySecondsInAll) {
  LeftSet(Stage::TakingSnapshot);
  LeftSet(Stage::TakingSnapshot);
  const auto [first, second] = BothSets();
  TakeAway(first);
  TakeAway(second);
  HostThatChanges watched(host(), 0, {});
  const ScopedHost current(watched);
  const CliResult result = Sets({"clean-up"});
  EXPECT_EQ(watched.Slept(), 60'000u);
  EXPECT_EQ(result.err, "varnelctl: warning: set " + first +
                            " may still come, as its process ended while the snapshot was taken: the service is asked "
                            "again for 60 seconds\n");
  EXPECT_EQ(result.out, "set " + first + ": gone: the service knows it no more; 2 iSCSI sessions ended\nset " + second +
                            ": gone: the service knows it no more\n2 leftovers, none of which is left\n");
  EXPECT_THAT(JournalFiles(), IsEmpty());
}

// Somebody breaks one, and another clean-up ends one.
TEST_F(CleanUp, WhatBecameOfASetWhileAnotherWasWaitedForHolds) {
  LeftSet(Stage::TakingSnapshot);
  LeftSet(Stage::Completed);
  LeftSet(Stage::Completed);
  const auto entries = journal.Read().entries;
  ASSERT_THAT(entries, SizeIs(3));
  const std::string late = WideToUtf8Lossy(entries[0].setId);
  const std::string broken = WideToUtf8Lossy(entries[1].setId);
  const std::string gone = WideToUtf8Lossy(entries[2].setId);
  TakeAway(late);
  HostThatChanges changing(host(), 30'000, [&] {
    Leave(broken, Stage::Ended, End::Broken);
    TakeAway(broken);
    journal.Remove(EntryOf(gone));
    TakeAway(gone);
  });
  const ScopedHost current(changing);
  host().calls().Clear();
  const json document = SetsJson({"clean-up"});
  ASSERT_THAT(document.at("sets"), SizeIs(1));
  EXPECT_EQ(document.at("sets")[0].at("setId"), late);
  for (const std::string& call : CallsOf("IVssBackupComponents::DeleteSnapshots")) EXPECT_THAT(call, HasSubstr(late));
  EXPECT_EQ(EntryOf(broken).end, End::Broken);
  EXPECT_THAT(journal.Read().entries, SizeIs(1));
}

// The service may still be breaking it when its process has died.
TEST_F(CleanUp, ASetThatIsBrokenBeforeItIsDeletedCountsAsBroken) {
  const std::string set = LeftSet(Stage::Breaking);
  BeforeEachCall([&] {
    if (EntryOf(set).process == varnelctl::ThisProcess()) TakeAway(set);
  });
  const json outcome = CleanOne();
  EXPECT_EQ(outcome.at("outcome"), "broken");
  EXPECT_EQ(EntryOf(set).end, End::Broken);
  EXPECT_EQ(EntryOf(set).process.id, 4242u);
}

TEST_F(CleanUp, ASetThatWasBeingBrokenAndCannotBeDeletedIsStillBeingBroken) {
  const std::string set = LeftSet(Stage::Breaking);
  Fail("IVssBackupComponents::DeleteSnapshots", VSS_E_PROVIDER_VETO);
  CleanOne(18);
  EXPECT_EQ(EntryOf(set).stage, Stage::Breaking);
  TakeAway(set);
  EXPECT_EQ(CleanOne().at("outcome"), "broken");
}

TEST_F(CleanUp, ASetInAnotherStageIsNotWaitedFor) {
  TakeAway(LeftSet(Stage::Taken));
  HostThatChanges watched(host(), 0, {});
  const ScopedHost current(watched);
  CleanOne();
  EXPECT_LT(watched.Slept(), 1'000u);
}

// What is never touched

TEST_F(CleanUp, ASetThatWasKeptIsNotTouched) {
  ExpectUntouched(LeftSet(Stage::Ended, End::Kept));
}

TEST_F(CleanUp, AKeptSetThatWasToBeBrokenIsNotTouched) {
  for (const Stage stage : {Stage::Breaking, Stage::Masking}) {
    const std::string set = LeftSet(stage, End::Kept);
    ExpectUntouched(set);
    EXPECT_THAT(SetsJson({"show", set}).at("set").at("state").get<std::string>(),
                StartsWith("kept until it is deleted; it was to be "));
    TakeAway(set);
    ExpectUntouched(set);
    std::filesystem::remove_all(journal.folder());
  }
}

TEST_F(CleanUp, ABrokenAndAMaskedSetAreNotTouched) {
  for (const char* action : {"break", "mask"}) {
    const std::string set = KeptSet();
    Sets({action, set});
    Leave(set, Stage::Ended, action == std::string("break") ? End::Broken : End::Masked);
    ExpectUntouched(set);
  }
}

TEST_F(CleanUp, ARequestThatStillRunsIsNotTouched) {
  const std::string set = KeptSet();
  for (const Stage stage : {Stage::Begun, Stage::TakingSnapshot, Stage::Completed, Stage::Deleting}) {
    Change(set, [&](Entry& entry) {
      entry.stage = stage;
      entry.end.reset();
    });
    ExpectUntouched(set);
  }
}

TEST_F(CleanUp, ASetThatIsNotJournalledIsNotTouched) {
  ExpectUntouched(ForeignSet());
  ExpectUntouched(ForeignSet(ArrayProvider().id));
}

TEST_F(CleanUp, AnEntryOfAnotherHostAndATornOneAreNamedAndLeft) {
  const std::string set = LeftSet(Stage::Completed);
  Change(set, [](Entry& entry) { entry.host = "OTHER"; });
  folder.Write("sets/torn.json", "{\"version\": 1, \"host\": \"");
  const auto files = JournalFiles();
  const CliResult result = Sets({"clean-up"});
  EXPECT_EQ(result.out, "nothing is to be cleaned up\n");
  EXPECT_THAT(result.err, AllOf(HasSubstr("is left as it is: it is of the host \"OTHER\""), HasSubstr("torn.json")));
  EXPECT_EQ(JournalFiles(), files);
  EXPECT_EQ(CopiesOf(set), 2u);
}

TEST_F(CleanUp, OthersSetsOfTheSameDisksStayWithTheirSessions) {
  const std::string bystander = KeptSet();
  const std::string foreign = ForeignSet();
  const std::string set = LeftSet(Stage::Completed);
  const json outcome = CleanOne();
  EXPECT_EQ(outcome.at("outcome"), "deleted");
  EXPECT_EQ(outcome.at("text"),
            "deleted: 2 shadow copies; iSCSI session ffff800000000000-4000013700000002 stays, as it carries "
            "\"SHADOW-TSL0001\"; iSCSI session ffff800000000000-4000013700000003 stays, as it carries "
            "\"SHADOW-TSL0002\"");
  EXPECT_EQ(CopiesOf(set), 0u);
  EXPECT_EQ(CopiesOf(bystander), 2u);
  EXPECT_EQ(CopiesOf(foreign), 1u);
  EXPECT_THAT(OpenTargets(), SizeIs(3));
  EXPECT_THAT(JournalFiles(), SizeIs(1));
}

// Sessions

TEST_F(CleanUp, ASessionThatMeanwhileCarriesAnotherDiskStays) {
  const std::string set = LeftSet(Stage::Completed);
  host().model().iscsiSessions[1].devices.push_back({L"TSL0002"});
  EXPECT_EQ(CleanOne().at("text"),
            "deleted: 2 shadow copies; 1 iSCSI session ended; iSCSI session ffff800000000000-4000013700000002 stays, "
            "as it carries \"TSL0002\"");
  EXPECT_THAT(OpenTargets(), ElementsAre("originals", "copy-1"));
  EXPECT_THAT(JournalFiles(), IsEmpty()) << "nothing of the set is left";
}

TEST_F(CleanUp, ASessionWhoseTargetOrIdentifierIsAnotherNowStays) {
  const std::string set = LeftSet(Stage::Completed);
  TakeAway(set);
  Change(set, [](Entry& entry) {
    entry.sessions[0].targetName = L"renamed";
    entry.sessions[1].sessionId = "ffff800000000000-4000013700000009";
  });
  EXPECT_EQ(CleanOne().at("text"), "gone: the service knows it no more");
  EXPECT_THAT(OpenTargets(), SizeIs(3));
}

TEST_F(CleanUp, ADiskWithTheNumberOfACopyIsNotTakenForIt) {
  const std::string set = LeftSet(Stage::Completed);
  TakeAway(set);
  // The numbers 3 and 4 were the copies'.
  host().model().disks.push_back(MakeDisk(L"OTHER", 3, L"G:\\"));
  host().model().iscsiSessions[1].devices = {{L"OTHER"}};
  EXPECT_THAT(CleanOne().at("text").get<std::string>(), HasSubstr("stays, as it carries \"OTHER\""));
  EXPECT_THAT(OpenTargets(), ElementsAre("originals", "copy-1"));
}

TEST_F(CleanUp, TheDisksOfASetThatCameLaterAreNotTakenForThoseBefore) {
  const std::string set = LeftSet(Stage::Completed);
  TakeAway(set);
  KeptSet();  // with the same numbers and, on a simulated host, the same serial numbers
  EXPECT_THAT(CleanOne().at("text").get<std::string>(), HasSubstr("stays, as it carries \"SHADOW-TSL0001\""));
  EXPECT_THAT(OpenTargets(), SizeIs(3));
}

TEST_F(CleanUp, ACopyOnItsSourcesDiskEndsNoSessionOfThat) {
  const std::string set = LeftSet(Stage::Completed);
  TakeAway(set);
  Change(set, [](Entry& entry) {
    entry.copies[0].disk = L"\\\\.\\PhysicalDrive1";
    entry.copies[0].serialNumber = L"TSL0001";
    entry.sessions[0].targetName = L"originals";
    entry.sessions[0].sessionId = "ffff800000000000-4000013700000001";
  });
  CleanOne();
  EXPECT_THAT(OpenTargets(), testing::Contains("originals"));
}

TEST_F(CleanUp, ASessionThatDoesNotEndStaysJournalledAndIsEndedTheNextTime) {
  host().model().iscsiSessions[1].failedLogouts = 7;
  const std::string set = LeftSet(Stage::Completed);
  const CliResult result = Sets({"clean-up"}, 18);
  EXPECT_EQ(result.out, "set " + set +
                            ": deleted: 2 shadow copies; 1 iSCSI session ended; 1 iSCSI session did not end\n"
                            "NOT ALL DONE: 1 of 1 leftover is left\n");
  EXPECT_THAT(result.err, AllOf(StartsWith("varnelctl: 1 of 1 set could not be ended\n"),
                                HasSubstr("log out with: iscsicli LogoutTarget ffff800000000000-4000013700000002")));
  EXPECT_THAT(result.next, HasSubstr("explain session-open"));
  EXPECT_EQ(EntryOf(set).end, End::ToBeEnded);
  EXPECT_EQ(EntryOf(set).process.id, 4242u);
  EXPECT_EQ(CleanOne().at("text"), "gone: the service knows it no more; 1 iSCSI session ended");
  EXPECT_THAT(JournalFiles(), IsEmpty());
}

TEST_F(CleanUp, AnInitiatorThatDoesNotAnswerLeavesTheEntry) {
  const std::string set = LeftSet(Stage::Completed);
  Fail("GetIScsiSessionListW", ERROR_ACCESS_DENIED, 0);
  const json outcome = CleanOne(18);
  EXPECT_EQ(outcome.at("outcome"), "left");
  EXPECT_THAT(outcome.at("text").get<std::string>(),
              StartsWith("whether the set's iSCSI sessions have ended could not be checked: GetIScsiSessionListW"));
  EXPECT_EQ(CopiesOf(set), 0u) << "the copies are deleted all the same";
  EXPECT_EQ(EntryOf(set).sessions.size(), 2u);
}

// What cannot be ended

TEST_F(CleanUp, CopiesThatCannotBeDeletedStayJournalledAndAreNamed) {
  const std::string set = LeftSet(Stage::TakingSnapshot);
  host().faults().FailDeletion({L"TSL0002", VSS_E_PROVIDER_VETO});
  const CliResult result = Sets({"clean-up"}, 18);
  EXPECT_EQ(result.err, "varnelctl: 1 of 1 set could not be ended\n  set " + set +
                            ": deleting the set failed: VSS_E_PROVIDER_VETO (0x80042306)\n  left of snapshot set " +
                            set + ": F:\\ (shadow copy {00000004-5e1f-4c3d-9a0b-000000000000})\n");
  EXPECT_THAT(result.next, HasSubstr("explain copies-left"));
  EXPECT_THAT(OpenTargets(), SizeIs(3)) << "the sessions of a set that is there stay";
  EXPECT_EQ(EntryOf(set).end, End::ToBeEnded);
  EXPECT_THAT(EntryOf(set).sessions, SizeIs(2));
  EXPECT_THAT(CleanOne(18).at("copiesLeft"), SizeIs(1));
}

TEST_F(CleanUp, ASetThatThisHostDoesNotSeeStaysJournalledWithWords) {
  const auto left = [&](Stage stage, std::optional<End> end, const std::function<void(Entry&)>& change) {
    const std::string set = LeftSet(stage, end);
    Change(set, change);
    TakeAway(set);
    const CliResult result = Sets({"clean-up"}, 18);
    EXPECT_THAT(result.next, HasSubstr("explain set-elsewhere"));
    EXPECT_THAT(result.err,
                HasSubstr("; when it is ended where it is, the journal forgets it with: varnelctl sets delete " + set +
                          " --force"));
    EXPECT_TRUE(IsJournalled(set));
    std::filesystem::remove_all(journal.folder());
    return result.err;
  };
  const auto transportable = [](Entry& entry) { entry.context |= VSS_VOLSNAP_ATTR_TRANSPORTABLE; };
  EXPECT_THAT(left(Stage::Completed, {}, transportable), HasSubstr("it cannot be ended here: to be ended: process "));
  EXPECT_THAT(left(Stage::TakingSnapshot, {}, transportable), HasSubstr("the array knows it"));
  EXPECT_THAT(left(Stage::Ended, End::ToBeEnded, [](Entry& entry) { entry.disconnected = true; }),
              HasSubstr("its iSCSI sessions were ended"));
}

TEST_F(CleanUp, OneSetThatCannotBeEndedKeepsNoOther) {
  LeftSet(Stage::Completed);
  LeftSet(Stage::Completed);
  const auto [first, second] = BothSets();
  Fail("IVssBackupComponents::DeleteSnapshots", VSS_E_PROVIDER_VETO);
  const json document = SetsJson({"clean-up"}, 18);
  EXPECT_EQ(document.at("sets")[0].at("outcome"), "left");
  EXPECT_EQ(document.at("sets")[1].at("outcome"), "deleted");
  EXPECT_EQ(document.at("text"), "NOT ALL DONE: 1 of 2 leftovers is left");
  EXPECT_TRUE(IsJournalled(first));
  EXPECT_FALSE(IsJournalled(second));
}

TEST_F(CleanUp, NothingIsDeletedBeforeItIsRecorded) {
  const std::string set = LeftSet(Stage::TakingSnapshot);
  Change(set, [](Entry& entry) {
    entry.copies.clear();
    entry.sessions.clear();
  });
  json seen;
  host().calls().Clear();
  BeforeEachCall([&] {
    if (!seen.is_null()) return;
    const Entry entry = EntryOf(set);
    if (entry.copies.empty()) return;
    seen = {WideToUtf8Lossy(entry.copies[1].serialNumber), entry.sessions.size(),
            entry.process == varnelctl::ThisProcess(), Changes().size()};
  });
  Sets({"clean-up"});
  EXPECT_EQ(seen, json({"SHADOW-TSL0002", 2, true, 0}));
}

TEST_F(CleanUp, NothingIsDeletedWhereItCannotBeRecorded) {
  const std::string set = LeftSet(Stage::Completed);
  std::filesystem::create_directory(EntryOf(set).file.string() + "." + std::to_string(varnelctl::ThisProcess().id) +
                                    ".new");
  const CliResult result = Sets({"clean-up"}, 18);
  EXPECT_THAT(result.err, HasSubstr(" cannot be written: "));
  EXPECT_EQ(CopiesOf(set), 2u);
  EXPECT_EQ(EntryOf(set).stage, Stage::Completed);
}

TEST_F(CleanUp, WhateverCallFailsTheNextCleanUpEndsTheRest) {
  constexpr int kMoreThanAnyRun = 1000;
  const std::string kept = KeptSet();
  const std::string set = LeftSet(Stage::Completed);
  const simulator::ServiceState sets = host().machine().snapshots->State();
  const auto files = JournalFiles();
  // Where sweeps make a sample of their runs (VARNEL_SAMPLE), every fifth.
  const int step = EnvironmentNumber("VARNEL_SAMPLE").value_or(1) > 1 ? 5 : 1;
  int n = 1 + static_cast<int>(EnvironmentNumber("VARNEL_SAMPLE_SEED").value_or(0)) % step;
  for (; n < kMoreThanAnyRun; n += step) {
    Install(Model()).machine().snapshots->SetState(sets);
    for (const auto& [name, bytes] : files) folder.Write("sets/" + name, bytes);
    host().faults().FailNthCall(n, static_cast<DWORD>(E_FAIL));
    const CliResult result = Run(Journalled({"sets", "clean-up"}));
    SCOPED_TRACE("call " + std::to_string(n) + ": " + host().faults().firedAt());
    if (!host().faults().fired()) break;
    EXPECT_THAT(result.status, testing::AnyOf(0, 15, 18)) << result.err;
    EXPECT_EQ(host().live().Describe(), "");
    EXPECT_EQ(IsJournalled(set) ? 0 : CopiesOf(set), 0u) << "what is there is remembered";
    Sets({"clean-up"});
    EXPECT_EQ(CopiesOf(set), 0u);
    EXPECT_FALSE(IsJournalled(set));
    EXPECT_EQ(CopiesOf(kept), 2u);
    EXPECT_EQ(EntryOf(kept).end, End::Kept);
  }
  EXPECT_GT(n, 30);
  EXPECT_LT(n, kMoreThanAnyRun);
}

// A dry run, and what else it tells

TEST_F(CleanUp, ADryRunSaysWhatWouldBeDoneAndTouchesNothing) {
  const std::string there = LeftSet(Stage::Completed);
  const std::string begun = LeftSet(Stage::Started);
  const std::string breaking = LeftSet(Stage::Breaking);
  const std::string late = LeftSet(Stage::TakingSnapshot);
  const std::string kept = KeptSet();
  for (const std::string& set : {begun, breaking, late}) TakeAway(set);
  host().calls().Clear();
  const auto files = JournalFiles();
  HostThatChanges watched(host(), 0, {});
  const ScopedHost current(watched);
  const std::string process = "process 4242, started 2026-01-01T00:00:00.000Z, has ended";
  EXPECT_EQ(Sets({"clean-up", "--dry-run"}).out,
            "set " + there + ": would be deleted: 2 shadow copies (to be ended: " + process +
                " before the request was done)\n" +                                               //
                "set " + begun + ": would be forgotten (nothing was taken: " + process + ")\n" +  //
                "set " + breaking +
                ": would count as done (it was being broken, and the service does not list it any more: " + process +
                ")\n" +  //
                "set " + late + ": would be deleted where the service still knows it (it may still come: " + process +
                " while the snapshot was taken)\n" +  //
                "4 leftovers; nothing was done: this was a dry run\n");
  EXPECT_THAT(Changes(), IsEmpty());
  EXPECT_EQ(JournalFiles(), files);
  EXPECT_EQ(watched.Slept(), 0u);
}

TEST_F(CleanUp, EntriesThatAreOverGo) {
  for (const End end : {End::Nothing, End::Released, End::Deleted}) {
    const std::string set = LeftSet(Stage::Ended, end);
    TakeAway(set);
    EXPECT_THAT(JournalFiles(), SizeIs(1));
    EXPECT_EQ(Sets({"clean-up"}).out, "nothing is to be cleaned up\n");
    EXPECT_THAT(JournalFiles(), IsEmpty());
  }
}

TEST_F(CleanUp, WithoutAJournalThereIsNothingToGoBy) {
  ExpectRefused(Run({"sets", "clean-up"}),
                "varnelctl: sets clean-up ends what the journal remembers, and there is none: name its folder with "
                "--journal");
}

TEST_F(CleanUp, LeftoversAreTold) {
  const auto told = [&] {
    std::ostringstream out;
    std::ostringstream err;
    varnelctl::Console console(out, err);
    varnelctl::Session session(console, varnelctl::Format::Text, false, {}, {});
    session.journal = journal;
    varnelctl::TellLeftovers(session, session.journal->Read());
    EXPECT_EQ(out.str(), "");
    return err.str();
  };
  EXPECT_EQ(told(), "");
  KeptSet();
  LeftSet(Stage::Started);
  EXPECT_EQ(told(), "") << "no set was taken";
  LeftSet(Stage::TakingSnapshot);
  host().calls().Clear();
  EXPECT_EQ(told(),
            "varnelctl: warning: 1 earlier request may have left sets behind: varnelctl sets list shows them, "
            "varnelctl sets clean-up ends them\n");
  EXPECT_THAT(CallsOf("CreateVssBackupComponents"), IsEmpty());
  LeftSet(Stage::Ended, End::ToBeEnded);
  EXPECT_THAT(told(), HasSubstr("2 earlier requests may have left sets behind"));
}

}  // namespace
}  // namespace varnel::test
