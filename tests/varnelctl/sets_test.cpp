// varnelctl sets: what it shows of snapshot sets, and what it does with one of them.
#include "tests/varnelctl/sets_support.h"

namespace varnel::test {
namespace {

using nlohmann::json;
using testing::AllOf;

constexpr char kNoSet[] = "{99999999-5e1f-4c3d-9a0b-000000000000}";

class SetsCommand : public SetsFixture {
 protected:
  /// The only set that is listed.
  json OnlySet() {
    const json document = SetsJson({"list"});
    EXPECT_THAT(document.at("sets"), SizeIs(1));
    return document.at("sets").empty() ? json() : document.at("sets")[0];
  }
};

std::string Bare(const std::string& setId) {
  return setId.substr(1, setId.size() - 2);
}

// The words of the command line

TEST_F(SetsCommand, SaysWhatItTakes) {
  const std::string actions = "list, show SET, break SET, mask SET, disconnect SET, delete SET or clean-up";
  ExpectRefusal({}, "sets takes " + actions);
  ExpectRefusal({"dlete"}, "sets has no \"dlete\"; did you mean \"delete\"? It takes " + actions);
  ExpectRefusal({"everything"}, "sets has no \"everything\"; it takes " + actions);
  ExpectRefusal({"delete"}, "sets delete takes the identifier of one set (varnelctl sets list)");
  ExpectRefusal({"show", "a", "b"}, "sets show takes the identifier of one set (varnelctl sets list)");
  ExpectRefusal({"list", "a"}, "sets list takes no set");
  ExpectRefusal({"list", "--dry-run"}, "sets list changes nothing: it takes no --dry-run");
  ExpectRefusal({"clean-up", "--force"}, "sets clean-up takes no --force");
  EXPECT_THAT(Sets({"list", "--frce"}, 2).err, HasSubstr("sets has no option --frce; did you mean \"--force\"?"));
}

TEST_F(SetsCommand, AnUnknownSetIsRefusedWithTheNearestOne) {
  const std::string set = KeptSet();
  std::string wrong = set;
  wrong[3] = '7';
  ExpectRefusal({"delete", wrong}, "no set " + wrong + " is known here; did you mean \"" + set +
                                       "\"? (varnelctl sets list names those that are)");
  ExpectRefusal({"show", set.substr(0, 36)}, "\"" + set.substr(0, 36) +
                                                 "\" is no identifier of a set; did you mean \"" + set +
                                                 "\"? (varnelctl sets list names those that are)");
  TakeAway(set);
  std::filesystem::remove_all(journal.folder());
  ExpectRefusal({"break", kNoSet},
                std::string("no set ") + kNoSet + " is known here (varnelctl sets list names those that are)");
}

TEST_F(SetsCommand, TakesAnIdentifierWithOrWithoutBracesInAnyCase) {
  const std::string set = KeptSet();
  std::string upper = Bare(set);
  for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  for (const std::string& id : {set, Bare(set), upper, "{" + upper + "}"}) {
    EXPECT_EQ(SetsJson({"show", id}).at("set").at("setId"), set);
  }
}

// list

TEST_F(SetsCommand, ListsTheThreeKindsOfSets) {
  const std::string there = KeptSet();
  const std::string masked = KeptSet();
  Sets({"mask", masked});
  const std::string foreign = ForeignSet();
  const json document = SetsJson({"list"});

  std::vector<std::string> found;
  for (const json& set : document.at("sets"))
    found.push_back(set.at("setId").get<std::string>() + set.at("kind").get<std::string>());
  EXPECT_THAT(found, ElementsAre(there + "there", masked + "notVisible", foreign + "notJournalled"));
  EXPECT_EQ(document.at("journal"), folder.File("sets"));
  const std::string out = Sets({"list"}).out;
  EXPECT_EQ(out, "In the journal and on this host\n" + there +
                     "\n  kept until it is deleted\n  2026-01-01T00:00:00.000Z, application none\n"
                     "  E:\\ on disk \"TSL0001\": shadow copy on disk \"SHADOW-TSL0001\"\n"
                     "  F:\\ on disk \"TSL0002\": shadow copy on disk \"SHADOW-TSL0002\"\n"
                     "\nIn the journal, not visible on this host\n" +
                     masked +
                     "\n  broken and masked: its disks are hidden from this host\n"
                     "  2026-01-01T00:00:01.000Z, application none\n"
                     "  E:\\ on disk \"TSL0001\": not listed, was on disk \"SHADOW-TSL0001\"\n"
                     "  F:\\ on disk \"TSL0002\": not listed, was on disk \"SHADOW-TSL0002\"\n"
                     "\nOn this host, not in the journal\n" +
                     foreign +
                     "\n  kept until it is deleted\n"
                     "  2026-01-01T00:00:02.000Z, made by another product, provider \"In-box provider\"\n"
                     "  E:\\ on disk \"TSL0001\": shadow copy without a disk of its own\n"
                     "\n3 sets\n");
}

TEST_F(SetsCommand, SaysWhyASetIsNotVisibleAndNeverThatItIsGone) {
  const auto state = [&](Stage stage, std::optional<End> end, const std::function<void(Entry&)>& change = {}) {
    const std::string set = LeftSet(stage, end);
    if (change) Change(set, change);
    TakeAway(set);
    const json shown = SetsJson({"show", set}).at("set");
    EXPECT_EQ(shown.at("kind"), "notVisible");
    return shown.at("state").get<std::string>();
  };
  const std::string process = "process 4242, started 2026-01-01T00:00:00.000Z";
  const std::string unlisted =
      "; the service does not list it: its disks are not seen here now, or somebody else has deleted or broken it";

  EXPECT_EQ(state(Stage::Ended, End::Kept), "kept until it is deleted" + unlisted);
  EXPECT_EQ(state(Stage::Ended, End::Kept, [](Entry& entry) { entry.disconnected = true; }),
            "kept until it is deleted; its iSCSI sessions were ended: this host does not see its disks");
  EXPECT_EQ(state(Stage::Ended, End::Kept, [](Entry& entry) { entry.context |= VSS_VOLSNAP_ATTR_TRANSPORTABLE; }),
            "kept until it is deleted; transportable: this host does not see it before it is imported here, the array "
            "knows it");
  EXPECT_EQ(state(Stage::Ended, End::Broken), "broken: its disks are ordinary disks of this host");
  EXPECT_EQ(state(Stage::Ended, End::ToBeEnded), "to be ended: its request did not end it" + unlisted);
  EXPECT_EQ(state(Stage::Started, {}), "nothing was taken: " + process + ", has ended");
  EXPECT_EQ(state(Stage::TakingSnapshot, {}),
            "it may still come: " + process + ", has ended while the snapshot was taken");
  EXPECT_EQ(state(Stage::Breaking, {}),
            "it was being broken, and the service does not list it any more: " + process + ", has ended");
  EXPECT_EQ(state(Stage::Taken, {}), "to be ended: " + process + ", has ended before the request was done");
}

TEST_F(SetsCommand, SaysThatARequestStillRuns) {
  const std::string set = KeptSet();
  const auto running = [](Stage stage) {
    return [stage](Entry& entry) {
      entry.stage = stage;
      entry.end.reset();
    };
  };
  Change(set, running(Stage::Taken));
  const std::string process =
      "process " + std::to_string(varnelctl::ThisProcess().id) + ", started 2026-01-01T00:00:00.000Z, still runs";
  EXPECT_EQ(OnlySet().at("state"), "its request still runs: " + process);
  EXPECT_EQ(OnlySet().at("leftover"), false);
  EXPECT_EQ(OnlySet().at("next"), json::array());
  TakeAway(set);
  Change(set, running(Stage::TakingSnapshot));
  EXPECT_EQ(OnlySet().at("state"), "the snapshot is being taken: " + process);
  Change(set, running(Stage::Begun));
  EXPECT_EQ(OnlySet().at("state"), "no snapshot was taken yet: " + process);
}

TEST_F(SetsCommand, CountsWhatIsToBeEnded) {
  KeptSet();
  const std::string left = LeftSet(Stage::Completed);
  EXPECT_THAT(Sets({"list"}).out, EndsWith("\n2 sets; 1 to be ended with varnelctl sets clean-up\n"));
  EXPECT_EQ(SetsJson({"show", left}).at("set").at("next")[0], "varnelctl sets clean-up");
}

TEST_F(SetsCommand, NamesFaultyFilesOfTheJournalAndLeavesThem) {
  KeptSet();
  folder.Write("sets/torn.json", "{\"version\": 1");
  const std::string torn = (journal.folder() / "torn.json").string();
  const auto files = JournalFiles();
  const CliResult result = Sets({"list"});
  EXPECT_THAT(result.err, StartsWith("varnelctl: warning: the journal's " + torn + " is left as it is: "));
  EXPECT_THAT(SetsJson({"list"}).at("faults"), SizeIs(1));
  EXPECT_THAT(result.out, EndsWith("\n1 set\n"));
  EXPECT_EQ(JournalFiles(), files);
}

TEST_F(SetsCommand, ListsWhatTheServiceTellsWithoutAJournal) {
  const std::string set = KeptSet();
  const CliResult result = Run({"sets", "list"});
  EXPECT_EQ(result.out, "On this host, not in the journal\n" + set +
                            "\n  kept until it is deleted\n"
                            "  2026-01-01T00:00:00.000Z, made by another program or without a journal, provider "
                            "\"Tessel VSS Hardware Provider\"\n"
                            "  E:\\ on disk \"TSL0001\": shadow copy on disk \"SHADOW-TSL0001\"\n"
                            "  F:\\ on disk \"TSL0002\": shadow copy on disk \"SHADOW-TSL0002\"\n\n"
                            "No journal is kept here: only the service tells of sets.\n1 set\n");
  EXPECT_EQ(Document({"sets", "list"}).at("journal"), nullptr);
}

TEST_F(SetsCommand, FitsInto80Columns) {
  KeptSet();
  varnelctl::Terminals terminals;
  terminals.out.columns = 80;
  const CliResult result = RunCli(Journalled({"sets", "list"}), {}, terminals);
  std::istringstream lines(result.out);
  for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 80u) << line;
}

TEST_F(SetsCommand, AServiceThatCannotBeAskedIs15) {
  const std::string set = KeptSet();
  for (const Arguments& arguments : std::vector<Arguments>{{"list"}, {"show", set}, {"delete", set}, {"clean-up"}}) {
    Fail("IVssBackupComponents::Query", E_ACCESSDENIED, 0);
    EXPECT_THAT(Sets(arguments, 15).err,
                StartsWith("varnelctl: IVssBackupComponents::Query failed: Error: 0x80070005 (0x80070005)\n"));
  }
}

// show

TEST_F(SetsCommand, ShowsASetWhole) {
  const std::string set = KeptSet();
  const std::string out = Sets({"show", set}).out;
  EXPECT_THAT(out, StartsWith("Snapshot set " + set + "\n  kept until it is deleted\nRequest\n  varnelctl snapshot "));
  EXPECT_THAT(out, HasSubstr("  application none, context app-rollback\n  journal " + folder.File("sets")));
  EXPECT_THAT(out, HasSubstr("\n    device       \\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1\n"
                             "    disk         \\\\.\\PhysicalDrive3\n"
                             "    provider     \"Tessel VSS Hardware Provider\"\n"
                             "    made         2026-01-01T00:00:00.000Z\n"));
  EXPECT_THAT(out, HasSubstr("iSCSI sessions\n  ffff800000000000-4000013700000002 to copy-1 carries "
                             "\"SHADOW-TSL0001\"\n"));
  EXPECT_THAT(out, EndsWith("What may be done with it\n  varnelctl sets break " + set + "\n  varnelctl sets mask " +
                            set + "\n  varnelctl sets disconnect " + set + "\n  varnelctl sets delete " + set + "\n"));
}

TEST_F(SetsCommand, ShowsTheSessionsThatWereOpenWhenTheSetWasTaken) {
  const std::string set = KeptSet();
  Sets({"disconnect", set});
  EXPECT_THAT(Sets({"show", set}).out,
              HasSubstr("iSCSI sessions\n  ffff800000000000-4000013700000002 to copy-1 carried its disks\n"));
}

TEST_F(SetsCommand, AnInitiatorThatDoesNotAnswerIsAWarningOfShow) {
  const std::string set = KeptSet();
  Fail("GetIScsiSessionListW", ERROR_ACCESS_DENIED, 0);
  EXPECT_THAT(Sets({"show", set}).err,
              StartsWith("varnelctl: warning: the iSCSI sessions cannot be told: GetIScsiSessionListW failed: "));
}

// What is refused

TEST_F(SetsCommand, ASetWhoseRequestStillRunsIsRefused) {
  const std::string set = KeptSet();
  const std::string process =
      "process " + std::to_string(varnelctl::ThisProcess().id) + ", started 2026-01-01T00:00:00.000Z, still runs";
  for (const char* action : {"break", "mask", "disconnect", "delete"}) {
    Change(set, [](Entry& entry) {
      entry.stage = Stage::Completed;
      entry.end.reset();
    });
    ExpectRefusal({action, set, "--force"}, "set " + set + " belongs to a request that is not done: " + process);
    Change(set, [](Entry& entry) {
      entry.stage = Stage::Ended;
      entry.end = End::Released;
    });
    ExpectRefusal({action, set, "--force"}, "set " + set + " goes by itself when its process ends: " + process);
  }
  EXPECT_EQ(CopiesOf(set), 2u);
}

TEST_F(SetsCommand, BreakingWhatIsNoHardwareCopyIsRefused) {
  const std::string set = ForeignSet();
  for (const auto& [action, done] : {std::pair("break", "broken"), std::pair("mask", "masked")}) {
    ExpectRefusal({action, set, "--force"}, "set " + set + " cannot be " + done +
                                                ": its shadow copy of E:\\ is no hardware copy and has no disk of its "
                                                "own");
  }
  ExpectRefusal({"disconnect", set, "--force"},
                "set " + set + " cannot be disconnected: no disk of its own is known on this host");
}

TEST_F(SetsCommand, BreakingWhatThisHostDoesNotSeeIsRefused) {
  const std::string set = SnapshotJson(Journalled({"--context", "0x29"})).at("snapshotSetId");
  ASSERT_EQ(CopiesOf(set), 2u);
  const std::string state =
      " here, as the service does not list it: kept until it is deleted; transportable: this host does not see it "
      "before it is imported here, the array knows it";
  ExpectRefusal({"break", set}, "set " + set + " cannot be broken" + state);
  ExpectRefusal({"mask", set}, "set " + set + " cannot be masked" + state);
}

TEST_F(SetsCommand, ASetOfAnotherProductIsRefusedButForForce) {
  const std::string set = ForeignSet();
  const std::string reason = "set " + set +
                             " was not made by varnelctl: its shadow copy of E:\\ is of provider \"In-box provider\"; "
                             "with --force it is ";
  ExpectRefusal({"delete", set}, reason + "deleted all the same");
  ExpectRefusal({"break", set}, reason + "broken all the same");
  EXPECT_EQ(SetsJson({"show", set}).at("set").at("next"), json({"varnelctl sets delete " + set + " --force"}));
  EXPECT_EQ(Sets({"delete", set, "--force"}).out, "deleting the set: done (0 ms)\nset " + set + " was deleted\n");
  EXPECT_EQ(CopiesOf(set), 0u);
}

TEST_F(SetsCommand, AnAutoReleaseSetOfAnotherProgramIsRefusedButForForce) {
  const std::string set = ForeignSet(ArrayProvider().id, VSS_CTX_BACKUP);
  ExpectRefusal({"delete", set}, "set " + set +
                                     " goes by itself when the program that made it ends, which may need it; with "
                                     "--force it is deleted all the same");
  Sets({"delete", set, "--force"});
  EXPECT_EQ(CopiesOf(set), 0u);
}

TEST_F(SetsCommand, ASetOfTheArraysProviderNeedsNoForce) {
  const std::string set = ForeignSet(ArrayProvider().id);
  Sets({"delete", set});
  EXPECT_EQ(CopiesOf(set), 0u);
}

// A dry run

TEST_F(SetsCommand, ADryRunSaysWhatWouldBeDoneAndTouchesNothing) {
  const std::string set = KeptSet();
  const auto files = JournalFiles();
  host().calls().Clear();
  const std::string copies =
      "\n  shadow copy {00000003-5e1f-4c3d-9a0b-000000000000} of E:\\ on disk \"SHADOW-TSL0001\"\n"
      "  shadow copy {00000004-5e1f-4c3d-9a0b-000000000000} of F:\\ on disk \"SHADOW-TSL0002\"\n";
  const std::string end = "would write what becomes of it into " + EntryOf(set).file.string() +
                          "\nnothing was done: this was a dry run for set " + set + "\n";
  EXPECT_EQ(Sets({"delete", set, "--dry-run"}).out,
            "would call IVssBackupComponents::DeleteSnapshots, by force, for set " + set + copies + end);
  EXPECT_EQ(Sets({"break", set, "--dry-run"}).out,
            "would call IVssBackupComponents::BreakSnapshotSet for set " + set + copies + end);
  EXPECT_EQ(Sets({"mask", set, "--dry-run"}).out,
            "would call IVssBackupComponentsEx2::BreakSnapshotSetEx, masking the disks, for set " + set + copies + end);
  EXPECT_EQ(Sets({"disconnect", set, "--dry-run"}).out,
            "would end iSCSI session ffff800000000000-4000013700000002 to target copy-1, which carries "
            "\"SHADOW-TSL0001\"\n"
            "would end iSCSI session ffff800000000000-4000013700000003 to target copy-2, which carries "
            "\"SHADOW-TSL0002\"\n" +
                end);
  EXPECT_EQ(SetsJson({"delete", set, "--dry-run"}).at("done"), false);
  EXPECT_THAT(Changes(), IsEmpty());
  EXPECT_EQ(JournalFiles(), files);
}

// break and mask

TEST_F(SetsCommand, BreaksASet) {
  const std::string set = KeptSet();
  EXPECT_EQ(Sets({"break", set}).out, "breaking the set: done (0 ms)\nset " + set + " was broken\n");
  EXPECT_THAT(log.Of(CFileLog::Information), Contains("Breaking snapshot set..."));
  EXPECT_EQ(CopiesOf(set), 0u);
  EXPECT_THAT(Document({"disks"}).at("disks"), SizeIs(5));
  EXPECT_EQ(EntryOf(set).end, End::Broken);
  EXPECT_EQ(OnlySet().at("state"), "broken: its disks are ordinary disks of this host");
}

TEST_F(SetsCommand, MasksASet) {
  const std::string set = KeptSet();
  EXPECT_EQ(Sets({"mask", set}).out, "masking the set: done (0 ms)\nset " + set + " was masked\n");
  EXPECT_THAT(log.Of(CFileLog::Information), Contains("Breaking snapshot set and masking the shadow copy LUNs..."));
  EXPECT_THAT(Document({"disks"}).at("disks"), SizeIs(3));
  EXPECT_EQ(EntryOf(set).end, End::Masked);
}

TEST_F(SetsCommand, ABreakThatFailsLeavesTheSetKept) {
  const std::string set = KeptSet();
  const auto files = JournalFiles();
  Fail("IVssBackupComponents::BreakSnapshotSet", VSS_E_PROVIDER_VETO);
  const CliResult result = Sets({"break", set}, 18);
  EXPECT_EQ(result.err,
            "varnelctl: breaking the set failed: VSS_E_PROVIDER_VETO (0x80042306)\n"
            "m_pVssObject->BreakSnapshotSet()=Failed, error=VSS_E_PROVIDER_VETO, rc=COMMError, ca=ContactTechSupport;"
            "\n");
  EXPECT_EQ(result.out,
            "breaking the set: failed (0 ms)\nNOT ALL DONE: breaking the set failed: VSS_E_PROVIDER_VETO "
            "(0x80042306)\n");
  EXPECT_EQ(JournalFiles(), files);
  EXPECT_THAT(log.Errors(), Contains(HasSubstr("m_pVssObject->BreakSnapshotSet()=Failed, ")));
}

TEST_F(SetsCommand, AnOperationThatIsCancelledIsNotDone) {
  const std::string set = KeptSet();
  host().faults().FailAsync("BreakSnapshotSetEx", VSS_S_ASYNC_CANCELLED);
  EXPECT_THAT(Sets({"mask", set}, 18).err, StartsWith("varnelctl: masking the set failed: "));
  EXPECT_EQ(EntryOf(set).end, End::Kept);
}

TEST_F(SetsCommand, TheJournalSaysWhatIsBeingDoneWhileItIsDone) {
  for (const auto& [action, call, stage] :
       {std::tuple("break", "IVssBackupComponents::BreakSnapshotSet", "breaking"),
        std::tuple("mask", "IVssBackupComponentsEx2::BreakSnapshotSetEx", "masking"),
        std::tuple("delete", "IVssBackupComponents::DeleteSnapshots", "deleting")}) {
    Install(Model());
    std::filesystem::remove_all(journal.folder());
    const std::string set = KeptSet();
    json seen;
    host().calls().Clear();
    BeforeEachCall([&] {
      if (seen.is_null() && !CallsOf("IVssBackupComponents::Query").empty()) {
        const Entry entry = EntryOf(set);
        if (entry.stage == Stage::Ended) return;
        seen = {WordFor(entry.stage), entry.end ? WordFor(*entry.end) : "", entry.process == varnelctl::ThisProcess(),
                Changes().size()};
      }
    });
    Sets({action, set});
    // A set that is kept stays kept where the process dies now; one that is to be deleted does not.
    EXPECT_EQ(seen, json({stage, stage == std::string("deleting") ? "" : "kept", true, 0})) << call;
    host().faults().TellCallsTo({});
  }
}

TEST_F(SetsCommand, NothingIsDoneWhereTheJournalCannotBeWritten) {
  const std::string set = KeptSet();
  std::filesystem::create_directory(EntryOf(set).file.string() + "." + std::to_string(varnelctl::ThisProcess().id) +
                                    ".new");
  host().calls().Clear();
  const CliResult result = Sets({"delete", set}, 2);
  EXPECT_THAT(result.err, HasSubstr(" cannot be written: "));
  EXPECT_THAT(Changes(), IsEmpty());
}

// delete

TEST_F(SetsCommand, DeletesASet) {
  const std::string set = KeptSet();
  EXPECT_EQ(Sets({"delete", set}).out, "deleting the set: done (0 ms)\nset " + set + " was deleted\n");
  EXPECT_EQ(CopiesOf(set), 0u);
  EXPECT_EQ(EntryOf(set).end, End::Deleted);
  EXPECT_THAT(SetsJson({"list"}).at("sets"), IsEmpty());
  EXPECT_THAT(log.Of(CFileLog::Information), Contains("Deleting shadow copy set " + set));
}

TEST_F(SetsCommand, CopiesThatCannotBeDeletedAreNamed) {
  const std::string set = LeftSet(Stage::Ended, End::Kept);
  host().faults().FailDeletion({L"TSL0002", VSS_E_PROVIDER_VETO});
  const CliResult result = Sets({"delete", set}, 18);
  EXPECT_EQ(result.err,
            "varnelctl: deleting the set failed: VSS_E_PROVIDER_VETO (0x80042306)\n  left of snapshot set " + set +
                ": F:\\ (shadow copy {00000004-5e1f-4c3d-9a0b-000000000000})\n");
  EXPECT_THAT(result.next, HasSubstr("next: varnelctl explain copies-left"));
  EXPECT_EQ(EntryOf(set).end, End::ToBeEnded);
  const json again = SetsJson({"delete", set}, 18);
  EXPECT_EQ(again.at("done"), false);
  EXPECT_THAT(again.at("copiesLeft"), SizeIs(1));
  EXPECT_EQ(again.at("result").at("hresult"), "0x80042306");
  EXPECT_EQ(OnlySet().at("leftover"), true);
}

TEST_F(SetsCommand, CopiesThatAreThereAfterADeletionAreNamed) {
  const std::string set = KeptSet();
  Fail("IVssBackupComponents::DeleteSnapshots", S_OK);
  EXPECT_THAT(Sets({"delete", set}, 18).err,
              StartsWith("varnelctl: the deletion succeeded, but shadow copies of the set are still there\n  left of "
                         "snapshot set "));
}

TEST_F(SetsCommand, ASetThatNobodyWantsAndTheServiceNoLongerKnowsWasGoneAlready) {
  const std::string set = LeftSet(Stage::Completed);
  TakeAway(set);
  EXPECT_THAT(Sets({"delete", set}).out, EndsWith("set " + set + " was gone already: the service knows it no more\n"));
  EXPECT_EQ(EntryOf(set).end, End::Deleted);
}

TEST_F(SetsCommand, ASetThatTheServiceDoesNotKnowIsForgottenByForceAlone) {
  for (const End end : {End::Kept, End::Broken, End::Masked, End::ToBeEnded}) {
    const std::string set = KeptSet();
    Change(set, [&](Entry& entry) { entry.end = end; });
    TakeAway(set);
    EXPECT_THAT(Sets({"delete", set, "--force"}).out,
                EndsWith("set " + set + " was gone already: the service knows it no more\n"));
    EXPECT_EQ(EntryOf(set).end, End::Deleted);
  }
}

TEST_F(SetsCommand, ASetThatThisHostDoesNotSeeIsNotGone) {
  const auto refused = [&](const std::function<void(Entry&)>& change) {
    const std::string set = KeptSet();
    Change(set, change);
    TakeAway(set);
    const auto files = JournalFiles();
    const CliResult result = Sets({"delete", set}, 18);
    EXPECT_EQ(JournalFiles(), files);
    EXPECT_THAT(result.err, AllOf(StartsWith("varnelctl: set " + set + " cannot be deleted here: "),
                                  HasSubstr("; when it is ended where it is, the journal forgets it with: varnelctl "
                                            "sets delete " +
                                            set + " --force\n")));
    return result.err;
  };
  EXPECT_THAT(refused([](Entry& entry) { entry.context |= VSS_VOLSNAP_ATTR_TRANSPORTABLE; }),
              HasSubstr("the array knows it"));
  EXPECT_THAT(refused([](Entry& entry) { entry.disconnected = true; }), HasSubstr("its iSCSI sessions were ended"));
  EXPECT_THAT(refused([](Entry& /*entry*/) {}), HasSubstr("its disks are not seen here now, or somebody else has"));
  EXPECT_THAT(refused([](Entry& entry) { entry.end = End::Broken; }), HasSubstr("ordinary disks of this host"));
  EXPECT_THAT(refused([](Entry& entry) { entry.end = End::Masked; }), HasSubstr("hidden from this host"));
}

TEST_F(SetsCommand, ASetThatMayStillComeIsLeftToTheCleanUp) {
  const std::string set = LeftSet(Stage::TakingSnapshot);
  TakeAway(set);
  EXPECT_THAT(Sets({"delete", set}, 18).err, AllOf(HasSubstr(" cannot be deleted now: it may still come: "),
                                                   HasSubstr("; varnelctl sets clean-up sees to it\n")));
  EXPECT_EQ(EntryOf(set).stage, Stage::TakingSnapshot);
}

TEST_F(SetsCommand, AJournalThatCannotSayWhatBecameOfASetIs18) {
  const std::string set = KeptSet();
  const std::string file = EntryOf(set).file.string();
  host().calls().Clear();
  BeforeEachCall([&] {
    if (!CallsOf("IVssBackupComponents::DeleteSnapshots").empty()) {
      std::filesystem::create_directory(file + "." + std::to_string(varnelctl::ThisProcess().id) + ".new");
    }
  });
  EXPECT_THAT(Sets({"delete", set}, 18).err,
              StartsWith("varnelctl: what became of set " + set + " is not remembered: the journal "));
  EXPECT_EQ(CopiesOf(set), 0u);
}

// disconnect

TEST_F(SetsCommand, DisconnectsASet) {
  const std::string set = KeptSet();
  EXPECT_THAT(Sets({"disconnect", set}).out, EndsWith("set " + set + " is disconnected: 2 iSCSI sessions ended\n"));
  EXPECT_THAT(OpenTargets(), ElementsAre("originals"));
  EXPECT_TRUE(EntryOf(set).disconnected);
  EXPECT_EQ(EntryOf(set).end, End::Kept);
  EXPECT_THAT(Sets({"disconnect", set}).out,
              EndsWith("set " + set + " is disconnected: no iSCSI session carried its disks\n"));
}

TEST_F(SetsCommand, ASessionThatCarriesAnotherDiskStays) {
  host().model().iscsiSessions[1].devices.push_back({L"TSL0002"});
  const std::string set = KeptSet();
  const CliResult result = Sets({"disconnect", set}, 18);
  EXPECT_EQ(result.err,
            "varnelctl: 1 iSCSI session of the set's disks did not end\n"
            "  iSCSI session ffff800000000000-4000013700000002 to target copy-1 carries \"SHADOW-TSL0001\", "
            "\"TSL0002\": end what holds the disk, then log out with: iscsicli LogoutTarget "
            "ffff800000000000-4000013700000002 (iscsicli SessionList shows what is open); it stays, as it carries "
            "\"TSL0002\" besides\n");
  EXPECT_THAT(result.next, HasSubstr("next: varnelctl explain session-open"));
  EXPECT_THAT(OpenTargets(), ElementsAre("originals", "copy-1"));
  EXPECT_THAT(SetsJson({"disconnect", set}, 18).at("sessionsLeft")[0].at("others"), ElementsAre("\"TSL0002\""));
}

TEST_F(SetsCommand, ASessionThatCarriesACopyOfAnotherSetStays) {
  const std::string set = KeptSet();
  const std::string bystander = KeptSet();
  EXPECT_THAT(Sets({"disconnect", set}, 18).err, HasSubstr("2 iSCSI sessions of the set's disks did not end"));
  EXPECT_THAT(OpenTargets(), SizeIs(3));
  Sets({"delete", bystander});
  Sets({"disconnect", set});
  EXPECT_THAT(OpenTargets(), ElementsAre("originals"));
}

TEST_F(SetsCommand, ASessionThatDoesNotEndIsTriedFiveTimesAndNamed) {
  host().model().iscsiSessions[1].failedLogouts = 5;
  const std::string set = KeptSet();
  EXPECT_THAT(Sets({"disconnect", set}, 18).err,
              StartsWith("varnelctl: 1 iSCSI session of the set's disks did not end\n  iSCSI session "
                         "ffff800000000000-4000013700000002 to target copy-1 carries \"SHADOW-TSL0001\": end what "));
  EXPECT_THAT(CallsOf("LogoutIScsiTarget"), SizeIs(6));
  EXPECT_THAT(log.Errors(), SizeIs(5));
}

TEST_F(SetsCommand, EveryCallOfAListMayFail) {
  FailEachCall(Model(), Journalled({"sets", "list"}),
               [&](const CliResult& result) { EXPECT_THAT(result.status, testing::AnyOf(0, 15)) << result.err; });
}

}  // namespace
}  // namespace varnel::test
