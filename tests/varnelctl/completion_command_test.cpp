// varnelctl snapshot: how every run is completed, and what becomes of its set.
#include <functional>

#include "core/varnel.h"
#include "simulator/vss/snapshot_service.h"
#include "tests/varnelctl/open_sessions.h"
#include "tests/varnelctl/snapshot_support.h"
#include "text/guid.h"
#include "text/unicode.h"

namespace varnel::test {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::AnyOf;
using testing::Contains;
using testing::Not;
using testing::StartsWith;

constexpr GUID kAnyWriter = ParseGuid<GUID>("{00000001-0000-0000-0000-000000000000}");
const GUID kExchangeWriter = GuidOrNull<GUID>(kExchangeWriterId);
const GUID kHyperVWriter = GuidOrNull<GUID>(kHyperVWriterId);

// Answers the nth question, and every one after it, with yes.
class InterruptedAtQuestion final : public varnelctl::Interruption {
 public:
  explicit InterruptedAtQuestion(int n) : left_(n) {}
  bool Requested() const override { return --left_ <= 0; }

 private:
  mutable int left_;
};

// Wants to end the run as soon as a call has been made so often.
class InterruptedAfter final : public varnelctl::Interruption {
 public:
  InterruptedAfter(const simulator::CallLog& calls, std::string call, std::size_t times)
      : calls_(calls), call_(std::move(call)), times_(times) {}
  bool Requested() const override { return calls_.Of(call_).size() >= times_; }

 private:
  const simulator::CallLog& calls_;
  const std::string call_;
  const std::size_t times_;
};

// A small host whose writer has components on both array disks. Each shadow copy has an iSCSI session of its own, and
// so have the originals.
simulator::HostModel HostWithWriter(const GUID& writerId = kAnyWriter) {
  simulator::HostModel model = SmallHost();
  model.writers = {
      MakeWriter(L"Writer", 1, {MakeComponent(L"", L"one", {L"E:\\one"}), MakeComponent(L"", L"two", {L"F:\\two"})})};
  model.writers[0].writerId = writerId;
  for (simulator::WriterComponent& component : model.writers[0].components) {
    component.caption = L"Online\\" + component.name;
  }
  model.iscsiSessions = {{.targetName = L"originals", .devices = {{L"TSL0001"}, {L"TSL0002"}}},
                         {.targetName = L"copy-1", .devices = {{L"TSL0001", true}}},
                         {.targetName = L"copy-2", .devices = {{L"TSL0002", true}}}};
  model.fileVersions = {{L"C:\\Windows\\system32\\Vmms.exe", L"10.0.17763.1"}};
  return model;
}

simulator::WriterFault WriterFails(simulator::WriterEvent event, HRESULT failure = VSS_E_WRITERERROR_RETRYABLE) {
  return {.writer = L"Writer", .event = event, .failure = failure, .applicationMessage = {}, .components = {}};
}

// Component "two" fails, its writer with it in part.
simulator::WriterFault OneComponentFails() {
  simulator::WriterFault fault = WriterFails(simulator::WriterEvent::postSnapshot, VSS_E_WRITERERROR_PARTIAL_FAILURE);
  fault.components = {{L"\\two", VSS_E_WRITERERROR_TIMEOUT, 0, L""}};
  return fault;
}

std::string CalledWith(int code) {
  return "Backup shutdown phase: SetBackupStatus called with snapErrorCode " + std::to_string(code) + "...";
}

class Completion : public SnapshotFixture {
 protected:
  void SetUp() override { Install(HostWithWriter()); }

  void FailWriter(simulator::WriterEvent event) { host().faults().FailWriter(WriterFails(event)); }
  void AddUnusedDisk() { host().model().disks.push_back(MakeDisk(L"TSL0003", 3, L"G:\\")); }

  void InstallExchange() { Install(HostWithWriter(kExchangeWriter)); }
  void InstallFailingMachine() { Install(HostWithWriter(kHyperVWriter)).faults().FailWriter(OneComponentFails()); }
  /// From the moment on when a call has been made so often.
  varnelctl::InterruptionSource InterruptAfter(const std::string& call, std::size_t times) {
    return [this, call, times] { return std::make_unique<InterruptedAfter>(host().calls(), call, times); };
  }
  varnelctl::InterruptionSource InterruptAfterTheSnapshot() {
    constexpr std::size_t kLast = 4;  // of two volumes, each twice
    return InterruptAfter("IVssBackupComponents::GetSnapshotProperties", kLast);
  }
  std::size_t SurfacedCopies() { return host().machine().snapshots->SurfacedCopies().size(); }
  std::size_t ListedCopies() {
    return host().machine().snapshots->CopiesOfContext(static_cast<LONG>(VSS_CTX_ALL)).size();
  }
  /// A run whose phases after the getters and whose set's state in the end are these.
  json Completed(const Arguments& arguments, std::vector<std::string> phases, const char* state, int status = 0) {
    phases.insert(phases.begin(),
                  {"EnumerateDisks", "ValidateHostConfiguration", "ValidateVolumes", "IsTesselVSSProviderPresent",
                   "Initialize", "CreateVssSnapshotSet", "GetSnapshotMeatadata"});
    json outcome = SnapshotJson(arguments, status);
    EXPECT_EQ(PhasesOf(outcome), phases);
    EXPECT_EQ(outcome["setState"], state);
    return outcome;
  }
  // What the library was told about the request.
  std::string StatusLine() {
    for (const std::string& line : log.Of(CFileLog::Information)) {
      if (line.starts_with("Backup shutdown phase: ")) return line;
    }
    return {};
  }
};

// The completion

TEST_F(Completion, ASuccessIsToldToTheWritersPerComponent) {
  Completed({}, {"SetBackupStatus"}, "released");

  EXPECT_EQ(StatusLine(), CalledWith(0));
  EXPECT_THAT(CallsOf("IVssBackupComponents::SetBackupSucceeded"),
              ElementsAre(HasSubstr("\"one\", true) = S_OK"), HasSubstr("\"two\", true) = S_OK")));
  EXPECT_EQ(CallsOf("IVssBackupComponents::BackupComplete").size(), 1u);
  EXPECT_THAT(CallsOf("IVssBackupComponents::DeleteSnapshots"), IsEmpty());
  EXPECT_THAT(CallsOf("IVssBackupComponents::Query"), IsEmpty()) << "the state of a success needs no question";
  EXPECT_EQ(SurfacedCopies(), 0u);
}

TEST_F(Completion, ASetThatIsKeptOutlivesTheProgram) {
  EXPECT_EQ(SnapshotJson({"--context", "app-rollback"})["setState"], "kept");
  EXPECT_EQ(ListedCopies(), 2u);
  EXPECT_THAT(Snapshot({"--context", "app-rollback"}).out,
              HasSubstr("}: kept until it is deleted\n  end it with varnelctl sets delete {"));
}

TEST_F(Completion, AThrownCodeIsPassedOnAsItIs) {
  host().faults().FailAsync("DoSnapshotSet", VSS_E_HOLD_WRITES_TIMEOUT);
  const json outcome = SnapshotJson({}, 15);

  EXPECT_EQ(StatusLine(), CalledWith(VSS_E_HOLD_WRITES_TIMEOUT));
  EXPECT_EQ(CallsOf("IVssBackupComponents::AbortBackup").size(), 1u);
  EXPECT_EQ(outcome["setState"], "none");
  EXPECT_EQ(PhasesOf(outcome).back(), "SetBackupStatus");
}

TEST_F(Completion, ARefusalByTheProtectionSetIs602) {
  const CliResult result = Snapshot({"--disk", "SYS"}, 12);

  EXPECT_EQ(StatusLine(), CalledWith(602));
  EXPECT_THAT(result.out, HasSubstr("selecting the components: failed (0 ms)\n"
                                    "completing the backup: done (0 ms)\n\n"));
  EXPECT_THAT(result.out, HasSubstr("\nFAILED: nothing was captured: Number of disks added in the snapshot set were "
                                    "different than listed in the protection set\n"));
}

TEST_F(Completion, AFailedWriterIs600AndTheSetIsDeleted) {
  FailWriter(simulator::WriterEvent::thaw);
  const json outcome = SnapshotJson({"--context", "app-rollback"}, 10);

  EXPECT_EQ(StatusLine(), CalledWith(600));
  EXPECT_THAT(CallsOf("IVssBackupComponents::SetBackupSucceeded"),
              ElementsAre(HasSubstr("\"one\", false"), HasSubstr("\"two\", false")));
  EXPECT_EQ(outcome["setState"], "deleted");
  EXPECT_EQ(outcome["snapshots"].size(), 2u) << "identifiers that the array's log knows";
  EXPECT_EQ(outcome["result"]["alertCode"], 600);
  EXPECT_THAT(outcome["result"]["details"].back().get<std::string>(), StartsWith("completing the backup: Writer "))
      << "the writer is still in its failed state";
  EXPECT_EQ(ListedCopies(), 0u);
}

TEST_F(Completion, AWriterThatFailsBeforeTheSnapshotLeavesNothingToDelete) {
  FailWriter(simulator::WriterEvent::prepareBackup);
  const CliResult result = Snapshot({"--then", "break", "--disconnect"}, 10);

  EXPECT_THAT(CallsOf("IVssBackupComponents::BreakSnapshotSet"), IsEmpty());
  EXPECT_THAT(CallsOf("IVssBackupComponents::DeleteSnapshots"), IsEmpty());
  EXPECT_THAT(result.out, HasSubstr("\nFAILED: nothing was captured: Writer "));
  EXPECT_THAT(result.err, StartsWith("varnelctl: warning: --then break is left out: no snapshot set was taken\n"
                                     "varnelctl: warning: --disconnect is left out: no snapshot set was taken\n"));
}

TEST_F(Completion, MessagesAre601AndTheSetIsKept) {
  InstallFailingMachine();
  const json outcome = SnapshotJson({"--app", "hyperv", "--context", "app-rollback"}, 11);

  EXPECT_EQ(StatusLine(), CalledWith(601));
  EXPECT_THAT(CallsOf("IVssBackupComponents::SetBackupSucceeded"),
              ElementsAre(HasSubstr("\"one\", true"), HasSubstr("\"two\", false")));
  EXPECT_EQ(outcome["setState"], "kept");
  EXPECT_EQ(ListedCopies(), 2u);
}

TEST_F(Completion, ExtraVolumesAre701AndTheSetIsDeleted) {
  AddUnusedDisk();
  const CliResult result =
      Snapshot({"--disk", "TSL0001", "TSL0002", "TSL0003", "--context", "app-rollback", "--then", "mask"}, 14);

  EXPECT_EQ(StatusLine(), CalledWith(701));
  EXPECT_THAT(result.out, HasSubstr("}: deleted, because the request failed\n"));
  EXPECT_THAT(result.out, Not(HasSubstr("Captured application-consistent")));
  EXPECT_THAT(result.err, StartsWith("varnelctl: warning: --then mask is left out: the set was deleted because the "
                                     "request failed\nvarnelctl: Extra volumes found"));
  EXPECT_EQ(ListedCopies(), 0u);
}

TEST_F(Completion, AcceptedExtraVolumesAre0AndTheSetIsKept) {
  AddUnusedDisk();
  const json outcome =
      SnapshotJson({"--disk", "TSL0001", "TSL0002", "TSL0003", "--context", "app-rollback", "--accept-extra-volumes"});

  EXPECT_EQ(StatusLine(), CalledWith(0));
  EXPECT_EQ(outcome["result"]["alertCode"], 701);
  EXPECT_EQ(outcome["setState"], "kept");
  EXPECT_EQ(ListedCopies(), 3u);
}

TEST_F(Completion, ARequestThatNeverReachedTheServiceIsCompletedToo) {
  Fail("CreateVssBackupComponents", E_FAIL, 0);
  const json outcome = SnapshotJson({}, 15);

  EXPECT_EQ(PhasesOf(outcome),
            std::vector<std::string>({"EnumerateDisks", "ValidateHostConfiguration", "ValidateVolumes",
                                      "IsTesselVSSProviderPresent", "Initialize", "SetBackupStatus"}));
  EXPECT_THAT(outcome["errorDetails"].get<std::string>(), testing::StartsWith("CreateVssBackupComponents()=Failed, "));
  EXPECT_THAT(log.Warnings(), Contains("Snapshot not created, not calling AbortBackup because VSS is not yet "
                                       "initialized."));
  EXPECT_EQ(outcome["setState"], "none");
}

TEST_F(Completion, AProviderThatCannotBeAskedForIsAWarning) {
  Fail("CoCreateInstance", E_FAIL);
  const CliResult result = Snapshot();

  EXPECT_EQ(result.err,
            "varnelctl: warning: looking for the array's provider failed: Error: 0x80004005 (0x80004005)\n");
}

TEST_F(Completion, TheWritersIdentifyThemselvesOnce) {
  InstallExchange();
  Snapshot({"--app", "exchange", "--verify", "--then", "mask", "--disconnect"});

  EXPECT_EQ(CallsOf("IVssBackupComponents::GatherWriterMetadata").size(), 1u);
}

TEST_F(Completion, AFailureOfTheCompletionIsTheRunsWhenNothingFailedBefore) {
  Fail("IVssBackupComponents::SetBackupSucceeded", VSS_E_OBJECT_NOT_FOUND);
  const CliResult result = Snapshot({"--context", "app-rollback"}, 15);

  EXPECT_EQ(result.err,
            "varnelctl: completing the backup failed: VSS_E_OBJECT_NOT_FOUND (0x80042308)\n"
            "SetBackupSucceeded()=Failed, error=VSS_E_OBJECT_NOT_FOUND, rc=COMMError, "
            "ca=ContactTechSupport;\n");
  EXPECT_THAT(result.out, HasSubstr("completing the backup: failed (0 ms)\n"));
  EXPECT_THAT(result.out, HasSubstr("}: kept until it is deleted\n"));
}

TEST_F(Completion, AWriterThatFailsAtTheCompletionEndsWith10AndTheSetIsThere) {
  FailWriter(simulator::WriterEvent::backupComplete);
  const json outcome = Completed({"--context", "app-rollback", "--then", "break"},
                                 {"SetBackupStatus", "BreakSnapshotSet"}, "broken", 10);

  EXPECT_EQ(outcome["result"]["alertCode"], 600);
}

TEST_F(Completion, AFailureOfTheCompletionAfterAnotherIsADetail) {
  FailWriter(simulator::WriterEvent::thaw);
  Fail("IVssBackupComponents::GetWriterComponentsCount", VSS_E_UNEXPECTED);
  const json outcome = SnapshotJson({}, 10);

  EXPECT_EQ(outcome["result"]["alertCode"], 600);
  EXPECT_EQ(outcome["result"]["details"].back(), "completing the backup failed: VSS_E_UNEXPECTED (0x80042302)");
}

TEST_F(Completion, AFailureTakesThePlaceOfMereMessages) {
  InstallFailingMachine();
  Fail("IVssBackupComponents::BreakSnapshotSet", VSS_E_PROVIDER_VETO);
  const json outcome = SnapshotJson({"--app", "hyperv", "--then", "break"}, 18);

  EXPECT_EQ(outcome["result"]["message"], "breaking the set failed: VSS_E_PROVIDER_VETO (0x80042306)");
  EXPECT_THAT(outcome["result"]["details"].dump(), HasSubstr("Writer has failed during post snapshot event."));
}

// What is known of a set after a failure

TEST_F(Completion, ShadowCopiesThatCannotBeDeletedAreTold) {
  FailWriter(simulator::WriterEvent::thaw);
  host().faults().FailDeletion({L"TSL0002", VSS_E_PROVIDER_VETO});
  const CliResult result = Snapshot({"--context", "app-rollback", "--then", "mask"}, 10);

  EXPECT_THAT(result.out, HasSubstr("}: kept until it is deleted, because 1 shadow copy could not be deleted\n"));
  EXPECT_THAT(result.err, HasSubstr("warning: --then mask is left out: the request failed\n"));
  EXPECT_THAT(result.err,
              HasSubstr("\n  left of snapshot set {00000002-5e1f-4c3d-9a0b-000000000000}: F:\\ (shadow copy "
                        "{00000004-5e1f-4c3d-9a0b-000000000000}); to be deleted with: varnelctl sets "
                        "delete {00000002-5e1f-4c3d-9a0b-000000000000}\n"));
  EXPECT_EQ(ListedCopies(), 1u);
}

TEST_F(Completion, ShadowCopiesThatCannotBeDeletedAreListedInTheDocument) {
  FailWriter(simulator::WriterEvent::thaw);
  host().faults().FailDeletion({L"TSL0002", VSS_E_PROVIDER_VETO});
  const json outcome = SnapshotJson({"--context", "app-rollback"}, 10);

  EXPECT_EQ(outcome["result"]["alertCode"], 600) << "the failure that came first";
  EXPECT_EQ(outcome["copiesLeft"], json::parse(R"([{"snapshotId": "{00000004-5e1f-4c3d-9a0b-000000000000}",
                             "volume": "\\\\?\\Volume{00000002-0000-0000-0000-000000000000}\\",
                             "device": "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy2"}])"));
  EXPECT_THAT(outcome["result"]["details"].dump(), HasSubstr("left of snapshot set "));
}

TEST_F(Completion, NothingIsLeftOfASetThatWasDeleted) {
  FailWriter(simulator::WriterEvent::thaw);
  const json outcome = SnapshotJson({}, 10);

  EXPECT_EQ(outcome["copiesLeft"], json::array());
  EXPECT_THAT(outcome["result"]["details"].dump(), Not(HasSubstr("left of snapshot set ")));
}

TEST_F(Completion, ShadowCopiesThatMayGoWithTheProgramAreToldSo) {
  FailWriter(simulator::WriterEvent::thaw);
  host().faults().FailDeletion({L"TSL0001", VSS_E_PROVIDER_VETO});

  EXPECT_THAT(Snapshot({}, 10).err, AllOf(HasSubstr(": E:\\ (shadow copy "), HasSubstr(", F:\\ (shadow copy "),
                                          HasSubstr("; what is still there after this program has ended is deleted "
                                                    "with: varnelctl sets delete {")));
}

TEST_F(Completion, AnInterruptedRunWhoseSetIsLeftKeepsItsStatus) {
  host().faults().FailDeletion({L"TSL0001", VSS_E_PROVIDER_VETO});
  const json outcome = SnapshotJson({"--context", "app-rollback"}, 17, InterruptAfterTheSnapshot());

  EXPECT_EQ(outcome["copiesLeft"].size(), 2u);
}

TEST_F(Completion, ASetThatTheServiceCannotTellOfIsUnknown) {
  FailWriter(simulator::WriterEvent::thaw);
  Fail("IVssBackupComponents::Query", VSS_E_UNEXPECTED, 0);
  const json outcome = SnapshotJson({}, 10);

  EXPECT_EQ(outcome["setState"], "unknown");
  EXPECT_THAT(outcome["result"]["details"].dump(),
              HasSubstr("IVssBackupComponents::Query failed: VSS_E_UNEXPECTED (0x80042302)"));
}

TEST_F(Completion, OnlyTheCopiesOfTheSetAreCounted) {
  SnapshotJson({"--context", "app-rollback"});
  FailWriter(simulator::WriterEvent::thaw);

  EXPECT_EQ(SnapshotJson({"--context", "app-rollback"}, 10)["setState"], "deleted");
  EXPECT_EQ(ListedCopies(), 2u) << "those of the first run";
}

TEST_F(Completion, AFailedTransportableSetIsTheArraysToDelete) {
  FailWriter(simulator::WriterEvent::backupComplete);
  const Arguments transportable = {"--context", "app-rollback+transportable"};

  EXPECT_EQ(SnapshotJson(transportable, 10)["setState"], "kept") << "the completion failed, not the request";
  host().faults().Load({});
  EXPECT_EQ(SnapshotJson(transportable)["setState"], "kept");
  EXPECT_THAT(Snapshot(transportable).out, HasSubstr("}: kept for the array\n"));

  FailWriter(simulator::WriterEvent::thaw);
  const CliResult failed = Snapshot(transportable, 10);
  EXPECT_THAT(failed.out, HasSubstr("}: unknown, as this host does not see transportable sets: ask the array\n"));
  EXPECT_THAT(CallsOf("IVssBackupComponents::DeleteSnapshots"), IsEmpty());
}

TEST_F(Completion, ATransportableSetWithExtraVolumesStays) {
  AddUnusedDisk();
  const CliResult result =
      Snapshot({"--disk", "TSL0001", "TSL0002", "TSL0003", "--context", "app-rollback+transportable"}, 14);

  EXPECT_THAT(result.out, HasSubstr("}: kept for the array, although the request failed: deleting a transportable set "
                                    "is up to the array\n"));
}

// --then and --disconnect

TEST_F(Completion, ABrokenSetLeavesOrdinaryDisks) {
  const json outcome = Completed({"--then", "break"}, {"SetBackupStatus", "BreakSnapshotSet"}, "broken");

  EXPECT_EQ(outcome["snapshots"][1]["disk"], "\\\\.\\PhysicalDrive4") << "as it was before";
  EXPECT_EQ(ListedCopies(), 0u);
  EXPECT_EQ(SurfacedCopies(), 2u);
  EXPECT_THAT(Snapshot({"--then", "break"}).out,
              HasSubstr("}: broken, its disks are ordinary read-write disks of this host\n"));
}

TEST_F(Completion, AMaskedSetLeavesNoDisks) {
  const json outcome = Completed({"--then", "mask"}, {"SetBackupStatus", "MaskSnapshotSet"}, "masked");

  EXPECT_EQ(outcome["snapshots"][1]["serialNumber"], "SHADOW-TSL0002") << "as it was before";
  EXPECT_EQ(SurfacedCopies(), 0u);
  EXPECT_THAT(Snapshot({"--then", "mask"}).out,
              HasSubstr("}: broken and masked, its disks are hidden from this host\n"));
}

TEST_F(Completion, ADeletedSetIsGone) {
  Completed({"--then", "delete", "--context", "app-rollback"}, {"SetBackupStatus", "DeleteSnapshotSet"}, "deleted");

  EXPECT_EQ(ListedCopies(), 0u);
  EXPECT_THAT(Snapshot({"--then", "delete"}).out, HasSubstr("}: deleted\n"));
}

TEST_F(Completion, DisconnectingEndsTheSessionsThatCarryShadowDisksBeforeTheseAreMasked) {
  Completed({"--then", "mask", "--disconnect"}, {"SetBackupStatus", "DisconnectSnapshotLuns", "MaskSnapshotSet"},
            "masked");

  EXPECT_THAT(OpenTargets(), ElementsAre("originals"));
}

TEST_F(Completion, DisconnectingComesAfterABreak) {
  Completed({"--then", "break", "--disconnect"}, {"SetBackupStatus", "BreakSnapshotSet", "DisconnectSnapshotLuns"},
            "broken");

  EXPECT_THAT(OpenTargets(), ElementsAre("originals"));
}

TEST_F(Completion, ADeletedSetHasNoDisksLeftToDisconnect) {
  ExpectRefused(Snapshot({"--then", "delete", "--disconnect"}, 2),
                "varnelctl: --then delete does not go with --disconnect: a deleted set has no disks left to "
                "disconnect\n");
  Completed({"--then", "delete"}, {"SetBackupStatus", "DeleteSnapshotSet"}, "deleted");

  EXPECT_THAT(CallsOf("LogoutIScsiTarget"), IsEmpty());
}

TEST_F(Completion, ASetThatIsKeptCanBeDisconnected) {
  Completed({"--disconnect", "--context", "app-rollback"}, {"SetBackupStatus", "DisconnectSnapshotLuns"}, "kept");

  EXPECT_THAT(OpenTargets(), ElementsAre("originals"));
}

TEST_F(Completion, ABreakThatFailsIsTheRunsFailureAndNothingIsDisconnected) {
  Fail("IVssBackupComponents::BreakSnapshotSet", VSS_E_PROVIDER_VETO);
  const CliResult result = Snapshot({"--then", "break", "--disconnect", "--context", "app-rollback"}, 18);

  EXPECT_EQ(result.err,
            "varnelctl: warning: --disconnect is left out: breaking the set failed\n"
            "varnelctl: breaking the set failed: VSS_E_PROVIDER_VETO (0x80042306)\n"
            "m_pVssObject->BreakSnapshotSet()=Failed, error=VSS_E_PROVIDER_VETO, rc=COMMError, "
            "ca=ContactTechSupport;\n");
  EXPECT_THAT(result.out, HasSubstr("}: kept until it is deleted\n"));
  EXPECT_EQ(OpenTargets().size(), 3u);
}

TEST_F(Completion, ADeletionThatStopsHalfwayTellsWhatIsLeft) {
  host().faults().FailDeletion({L"TSL0002", VSS_E_PROVIDER_VETO});
  const CliResult result = Snapshot({"--then", "delete", "--context", "app-rollback"}, 18);

  EXPECT_EQ(result.err,
            "varnelctl: deleting the set failed: VSS_E_PROVIDER_VETO (0x80042306)\n"
            "  left of snapshot set {00000002-5e1f-4c3d-9a0b-000000000000}: F:\\ (shadow copy "
            "{00000004-5e1f-4c3d-9a0b-000000000000}); to be deleted with: varnelctl sets delete "
            "{00000002-5e1f-4c3d-9a0b-000000000000}\n");
  EXPECT_THAT(result.out, HasSubstr("}: kept until it is deleted, because 1 shadow copy could not be deleted\n"));
}

TEST_F(Completion, ADeletionThatLeavesTheWholeSetTellsIt) {
  Fail("IVssBackupComponents::DeleteSnapshots", VSS_E_PROVIDER_VETO);
  const json outcome = SnapshotJson({"--then", "delete", "--context", "app-rollback"}, 18);

  EXPECT_EQ(outcome["result"]["hresult"], "0x80042306");
  EXPECT_EQ(outcome["setState"], "kept");
  EXPECT_EQ(outcome["copiesLeft"].size(), 2u);
}

TEST_F(Completion, ADeletionThatFailsTakesThePlaceOfMereMessages) {
  InstallFailingMachine();
  Fail("IVssBackupComponents::DeleteSnapshots", VSS_E_PROVIDER_VETO);
  const json outcome = SnapshotJson({"--app", "hyperv", "--then", "delete"}, 18);

  EXPECT_THAT(outcome["result"]["details"].dump(), HasSubstr("Writer has failed during post snapshot event."));
}

TEST_F(Completion, AMaskWhoseEndIsNotKnownLeavesTheStateUnknown) {
  host().faults().FailAsync("BreakSnapshotSetEx", VSS_E_UNEXPECTED);
  Fail("IVssBackupComponents::Query", VSS_E_UNEXPECTED);
  const CliResult result = Snapshot({"--then", "mask"}, 18);

  EXPECT_THAT(result.out, HasSubstr("}: unknown, as the service did not say whether it is still there\n"));
}

TEST_F(Completion, ADisconnectThatFailsIsTheRunsFailureAndTheSetIsMaskedAllTheSame) {
  host().faults().FailCall("GetIScsiSessionListW", ERROR_ACCESS_DENIED, 0);
  const json outcome = Completed({"--then", "mask", "--disconnect"},
                                 {"SetBackupStatus", "DisconnectSnapshotLuns", "MaskSnapshotSet"}, "masked", 18);

  EXPECT_EQ(outcome["result"]["hresult"], "0x80070005");
  EXPECT_EQ(outcome["result"]["details"],
            json({"whether the iSCSI sessions of the set's disks have ended could not be checked: GetIScsiSessionListW "
                  "failed: Error: 0x80070005 (0x80070005)"}));
}

TEST_F(Completion, AFailureAfterAnotherIsADetail) {
  FailWriter(simulator::WriterEvent::backupComplete);
  Fail("IVssBackupComponents::DeleteSnapshots", VSS_E_PROVIDER_VETO);
  const json outcome = SnapshotJson({"--then", "delete"}, 10);

  EXPECT_THAT(outcome["result"]["details"], Contains("deleting the set failed: VSS_E_PROVIDER_VETO (0x80042306)"));
}

// --verify

TEST_F(Completion, VerifyingComesBeforeTheCompletion) {
  InstallExchange();
  Completed({"--app", "exchange", "--verify"}, {"VerifySnapShotData", "SetBackupStatus"}, "released");
}

TEST_F(Completion, NothingIsVerifiedOnASetThatWillBeDeleted) {
  InstallExchange();
  AddUnusedDisk();
  Completed({"--app", "exchange", "--verify", "--disk", "TSL0001", "TSL0002", "TSL0003"}, {"SetBackupStatus"},
            "deleted", 14);

  EXPECT_THAT(err,
              StartsWith("varnelctl: warning: --verify is left out: the request failed, and its set is deleted\n"));
}

TEST_F(Completion, OtherApplicationsHaveNothingToVerify) {
  for (const char* application : {"none", "sql", "hyperv"}) {
    ExpectRefused(Snapshot({"--app", application, "--verify"}, 2),
                  "varnelctl: --verify goes with --app exchange only: for other applications there is no check of "
                  "their files\n");
  }
}

TEST_F(Completion, ATransportableSetCannotBeVerified) {
  ExpectRefused(
      Snapshot({"--app", "exchange", "--verify", "--context", "transportable"}, 2),
      "varnelctl: --verify does not go with a transportable context: there would be no snapshot to verify here\n");
}

TEST_F(Completion, NothingCanBeDoneToATransportableSetHere) {
  for (const char* then : {"break", "mask", "delete"}) {
    ExpectRefused(Snapshot({"--then", then, "--context", "app-rollback+transportable"}, 2),
                  "varnelctl: --then does not go with a transportable context: the set belongs to the array, not to "
                  "this host\n");
  }
}

// Ctrl-C

TEST_F(Completion, AnInterruptionEndsTheRunAfterThePresentPhaseAndCompletesItAsAFailure) {
  const CliResult result = Snapshot({"--then", "mask"}, 17, InterruptAfterTheSnapshot());

  EXPECT_THAT(result.out, HasSubstr("reading the results: done (0 ms)\ncompleting the backup: done (0 ms)\n"));
  EXPECT_THAT(result.out, HasSubstr("}: deleted, because the request failed\n"));
  EXPECT_EQ(result.err,
            "varnelctl: warning: --then mask is left out: the set was deleted because the request failed\n"
            "varnelctl: interrupted after reading the results\n");
  EXPECT_EQ(StatusLine(), CalledWith(-1));
  EXPECT_EQ(ListedCopies(), 0u);
}

TEST_F(Completion, AnInterruptionAfterTheCompletionLeavesTheSetAsItIs) {
  const CliResult result = Snapshot({"--then", "mask", "--disconnect", "--context", "app-rollback"}, 17,
                                    InterruptAfter("IVssBackupComponents::BackupComplete", 1));

  EXPECT_EQ(result.err,
            "varnelctl: warning: --disconnect is left out: the run was interrupted\n"
            "varnelctl: warning: --then mask is left out: the run was interrupted\n"
            "varnelctl: interrupted after completing the backup\n");
  EXPECT_THAT(result.out, HasSubstr("}: kept until it is deleted\n"));
  EXPECT_EQ(StatusLine(), CalledWith(0));
}

TEST_F(Completion, AnInterruptionAtAnyPlaceLeavesTheServiceFree) {
  constexpr int kMoreThanAnyRun = 100;
  for (int question = 1; question < kMoreThanAnyRun; ++question) {
    SCOPED_TRACE(question);
    InstallExchange();
    const CliResult result = Run(Whole({"--app", "exchange", "--verify", "--then", "break", "--disconnect"}),
                                 [&] { return std::make_unique<InterruptedAtQuestion>(question); });
    EXPECT_EQ(host().live().Describe(), "");
    Snapshot();  // the next run
    if (result.status == 0) {
      EXPECT_EQ(question, 27);
      return;
    }
    EXPECT_EQ(result.status, 17);
    EXPECT_THAT(result.err, HasSubstr("varnelctl: interrupted "));
  }
  FAIL() << "every run was interrupted";
}

// The service is free after every run, however it ended.

struct Ending {
  int status;
  const char* what;
  GUID writerId;
  Arguments arguments;
  std::function<void(simulator::SimulatedHost&)> prepare = [](auto&) {};
};

std::vector<Ending> Endings() {
  const auto timeOut = [](auto& host) {
    host.faults().FailWriter(WriterFails(simulator::WriterEvent::freeze, VSS_E_WRITERERROR_TIMEOUT));
  };
  const auto failOne = [](auto& host) { host.faults().FailWriter(OneComponentFails()); };
  const auto failCall = [](auto& host) { host.faults().FailAsync("DoSnapshotSet", VSS_E_PROVIDER_VETO); };
  const auto makeWorkstation = [](auto& host) { host.model().os.server = false; };
  return {
      {0, "Done", kAnyWriter, {}},
      {2, "Usage", kAnyWriter, {"--document", "no/such/folder/out.xml"}},
      {10, "WriterFailure", kAnyWriter, {}, timeOut},
      {11, "PartialSuccess", kHyperVWriter, {"--app", "hyperv"}, failOne},
      {12, "ConfigurationError", kExchangeWriter, {"--app", "sql"}},
      {13, "VerificationFailure", kExchangeWriter, {"--app", "exchange", "--verify", "--test-points", "2"}},
      {14, "ExtraVolumes", kAnyWriter, {"--disk", "TSL0001", "TSL0002", "NONE", "--accept-unknown-disks"}},
      {15, "FailedCall", kAnyWriter, {}, failCall},
      {16, "Validation", kHyperVWriter, {"--app", "hyperv"}, makeWorkstation},
  };
}

class AfterAnyEnding : public Completion, public testing::WithParamInterface<Ending> {
 protected:
  void SetUp() override { Install(HostWithWriter(GetParam().writerId)); }
  CliResult RunToItsEnd() {
    GetParam().prepare(host());
    return Snapshot(GetParam().arguments, GetParam().status);
  }
};

TEST_P(AfterAnyEnding, ASecondRunOnTheSameServiceWorks) {
  RunToItsEnd();
  EXPECT_EQ(host().live().Describe(), "");

  host().faults().Load({});
  const json second = SnapshotJson({"--app", "none"});
  EXPECT_EQ(second["snapshots"].size(), 2u);
  EXPECT_EQ(second["setState"], "released");
}

TEST_P(AfterAnyEnding, ASecondRunThatEndsAlikeSaysTheSame) {
  const CliResult first = RunToItsEnd();

  EXPECT_EQ(RunToItsEnd().err, first.err);
}

INSTANTIATE_TEST_SUITE_P(Statuses, AfterAnyEnding, testing::ValuesIn(Endings()),
                         [](const auto& ending) { return std::string(ending.param.what); });

// Any one call may fail: the outcome is told as one whole document, and the next run works.
TEST_F(Completion, AnyCallMayFail) {
  const Arguments arguments = Whole({"--app", "exchange", "--verify", "--then", "mask", "--disconnect", "--json"});
  FailEachCall(HostWithWriter(kExchangeWriter), arguments, [&](const CliResult& result) {
    EXPECT_THAT(result.status, AnyOf(0, 1, 10, 12, 14, 15, 18));
    const json outcome = json::parse(result.out, nullptr, false);
    ASSERT_FALSE(outcome.is_discarded()) << result.out;
    EXPECT_TRUE(result.status != 0 || outcome["setState"] == "masked") << outcome["setState"];
    EXPECT_FALSE(result.status != 0 && outcome["result"]["message"] == json(""));
    host().faults().FailNthCall(0, 0);
    Snapshot();  // the next run
  });
}

}  // namespace
}  // namespace varnel::test
