// varnelctl snapshot: how every run is completed, and what becomes of its set.
#include <functional>

#include "core/varnel.h"
#include "simulator/vss/snapshot_service.h"
#include "tests/varnelctl/snapshot_support.h"
#include "text/guid.h"
#include "text/unicode.h"

namespace varnel::test {
namespace {

using nlohmann::json;
using testing::AnyOf;
using testing::Contains;
using testing::EndsWith;
using testing::Not;
using testing::StartsWith;

constexpr GUID kAnyWriter = ParseGuid<GUID>("{00000001-0000-0000-0000-000000000000}");
const GUID kExchangeWriter = GuidOrNull<GUID>(kExchangeWriterId);
const GUID kHyperVWriter = GuidOrNull<GUID>(kHyperVWriterId);

const std::vector<std::string> kUpToTheGetters = {"EnumerateDisks",       "ValidateHostConfiguration",
                                                  "ValidateVolumes",      "IsTesselVSSProviderPresent",
                                                  "IsWriterPresent",      "Initialize",
                                                  "CreateVssSnapshotSet", "GetSnapshotMeatadata"};

std::vector<std::string> WithThose(std::vector<std::string> phases) {
  phases.insert(phases.begin(), kUpToTheGetters.begin(), kUpToTheGetters.end());
  return phases;
}

// Answers the nth question, and every one after it, with yes.
class InterruptedAtBoundary final : public varnelctl::Interruption {
 public:
  explicit InterruptedAtBoundary(int n) : left_(n) {}
  bool Requested() const override { return --left_ <= 0; }

 private:
  mutable int left_;
};

varnelctl::InterruptionSource InterruptAtBoundary(int n) {
  return [n] { return std::make_unique<InterruptedAtBoundary>(n); };
}

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
  void AddUnusedDisk() {
    simulator::HostModel model = HostWithWriter();
    model.disks.push_back(MakeDisk(L"TSL0003", 3, L"G:\\"));
    Install(std::move(model));
  }

  std::size_t SurfacedCopies() { return host().machine().snapshots->SurfacedCopies().size(); }
  std::size_t ListedCopies() {
    return host().machine().snapshots->CopiesOfContext(static_cast<LONG>(VSS_CTX_ALL)).size();
  }
  std::vector<std::string> SessionsLeft() {
    ULONG bytes = 0;
    ULONG count = 0;
    host().iscsi().GetIScsiSessionListW(&bytes, &count, nullptr);
    std::vector<iscsi::SessionInfo> buffer(bytes / sizeof(iscsi::SessionInfo) + 1);
    EXPECT_EQ(host().iscsi().GetIScsiSessionListW(&bytes, &count, buffer.data()), DWORD{ERROR_SUCCESS});
    std::vector<std::string> targets;
    for (ULONG i = 0; i < count; ++i) targets.push_back(WideToUtf8Lossy(buffer[i].TargetName));
    return targets;
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
  const json outcome = SnapshotJson();

  EXPECT_EQ(PhasesOf(outcome), WithThose({"SetBackupStatus"}));
  EXPECT_EQ(StatusLine(), CalledWith(0));
  EXPECT_THAT(CallsOf("IVssBackupComponents::SetBackupSucceeded"),
              ElementsAre(HasSubstr("\"one\", true) = S_OK"), HasSubstr("\"two\", true) = S_OK")));
  EXPECT_EQ(CallsOf("IVssBackupComponents::BackupComplete").size(), 1u);
  EXPECT_THAT(CallsOf("IVssBackupComponents::DeleteSnapshots"), IsEmpty());
  EXPECT_THAT(CallsOf("IVssBackupComponents::Query"), IsEmpty()) << "the state of a success needs no question";
  EXPECT_EQ(outcome["setState"], "released");
  EXPECT_EQ(SurfacedCopies(), 0u);
}

TEST_F(Completion, ASetThatIsKeptOutlivesTheProgram) {
  EXPECT_EQ(SnapshotJson({"--context", "app-rollback"})["setState"], "kept");
  EXPECT_EQ(ListedCopies(), 2u);
  EXPECT_THAT(Snapshot({"--context", "app-rollback"}).out, HasSubstr(": kept until it is deleted\n  E:\\  on disk"));
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
  const CliResult result = Snapshot({"--disk", "SYS"});

  EXPECT_EQ(result.status, 12);
  EXPECT_EQ(StatusLine(), CalledWith(602));
  EXPECT_THAT(result.out, HasSubstr("CreateVssSnapshotSet: failed (0 ms)\nSetBackupStatus ...\n"
                                    "SetBackupStatus: done (0 ms)\n\nSnapshot set: not taken\n"));
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
  EXPECT_THAT(outcome["result"]["details"].back().get<std::string>(), StartsWith("SetBackupStatus: Writer "))
      << "the writer is still in its failed state";
  EXPECT_EQ(ListedCopies(), 0u);
}

TEST_F(Completion, AWriterThatFailsBeforeTheSnapshotLeavesNothingToDelete) {
  FailWriter(simulator::WriterEvent::prepareBackup);
  const CliResult result = Snapshot({"--then", "delete", "--disconnect"});

  EXPECT_EQ(result.status, 10);
  EXPECT_THAT(CallsOf("IVssBackupComponents::DeleteSnapshots"), IsEmpty());
  EXPECT_THAT(result.out, HasSubstr("}: not taken\n"));
  EXPECT_THAT(result.err, StartsWith("varnelctl: warning: --then delete is left out: no snapshot set was taken\n"
                                     "varnelctl: warning: --disconnect is left out: no snapshot set was taken\n"));
}

TEST_F(Completion, MessagesAre601AndTheSetIsKept) {
  Install(HostWithWriter(kHyperVWriter));
  host().faults().FailWriter(OneComponentFails());
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
      Snapshot({"--disk", "TSL0001", "TSL0002", "TSL0003", "--context", "app-rollback", "--then", "mask"});

  EXPECT_EQ(result.status, 14);
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

  EXPECT_EQ(PhasesOf(outcome), std::vector<std::string>({"EnumerateDisks", "ValidateHostConfiguration",
                                                         "ValidateVolumes", "IsTesselVSSProviderPresent",
                                                         "IsWriterPresent", "Initialize", "SetBackupStatus"}));
  EXPECT_THAT(outcome["errorDetails"].get<std::string>(), testing::StartsWith("CreateVssBackupComponents()=Failed, "));
  EXPECT_THAT(log.Warnings(), Contains("Snapshot not created, not calling AbortBackup because VSS is not yet "
                                       "initialized."));
  EXPECT_EQ(outcome["setState"], "none");
}

TEST_F(Completion, APresenceThatCannotBeAskedForIsAWarning) {
  Fail("CoCreateInstance", E_FAIL);
  Fail("CreateVssBackupComponents", E_FAIL);
  const CliResult result = Snapshot();

  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err,
            "varnelctl: warning: IsTesselVSSProviderPresent failed: Error: 0x80004005 (0x80004005)\n"
            "varnelctl: warning: IsWriterPresent failed: Error: 0x80004005 (0x80004005)\n");
}

TEST_F(Completion, AFailureOfTheCompletionIsTheRunsWhenNothingFailedBefore) {
  Fail("IVssBackupComponents::SetBackupSucceeded", VSS_E_OBJECT_NOT_FOUND);
  const CliResult result = Snapshot({"--context", "app-rollback"});

  EXPECT_EQ(result.status, 15);
  EXPECT_EQ(result.err,
            "varnelctl: SetBackupStatus failed: VSS_E_OBJECT_NOT_FOUND (0x80042308)\n"
            "SetBackupSucceeded()=Failed, error=VSS_E_OBJECT_NOT_FOUND, rc=COMMError, "
            "ca=ContactTechSupport;\n");
  EXPECT_THAT(result.out, HasSubstr("SetBackupStatus: failed (0 ms)\n"));
  EXPECT_THAT(result.out, HasSubstr("}: kept until it is deleted\n"));
}

TEST_F(Completion, AWriterThatFailsAtTheCompletionEndsWith10AndTheSetIsThere) {
  FailWriter(simulator::WriterEvent::backupComplete);
  const json outcome = SnapshotJson({"--context", "app-rollback", "--then", "break"}, 10);

  EXPECT_EQ(outcome["result"]["alertCode"], 600);
  EXPECT_EQ(PhasesOf(outcome), WithThose({"SetBackupStatus", "BreakSnapshotSet"}));
  EXPECT_EQ(outcome["setState"], "broken");
}

TEST_F(Completion, AFailureOfTheCompletionBehindAnotherIsADetail) {
  FailWriter(simulator::WriterEvent::thaw);
  Fail("IVssBackupComponents::GetWriterComponentsCount", VSS_E_UNEXPECTED);
  const json outcome = SnapshotJson({}, 10);

  EXPECT_EQ(outcome["result"]["alertCode"], 600);
  EXPECT_EQ(outcome["result"]["details"].back(), "SetBackupStatus failed: VSS_E_UNEXPECTED (0x80042302)");
}

TEST_F(Completion, AFailureTakesThePlaceOfMereMessages) {
  Install(HostWithWriter(kHyperVWriter));
  host().faults().FailWriter(OneComponentFails());
  Fail("IVssBackupComponents::BreakSnapshotSet", VSS_E_PROVIDER_VETO);
  const json outcome = SnapshotJson({"--app", "hyperv", "--then", "break"}, 15);

  EXPECT_EQ(outcome["result"]["message"], "BreakSnapshotSet failed: VSS_E_PROVIDER_VETO (0x80042306)");
  EXPECT_THAT(outcome["result"]["details"].dump(), HasSubstr("Writer has failed during post snapshot event."));
}

// What is known of a set behind a failure

TEST_F(Completion, ShadowCopiesThatCannotBeDeletedAreCounted) {
  FailWriter(simulator::WriterEvent::thaw);
  host().faults().FailDeletion({L"TSL0002", VSS_E_PROVIDER_VETO});
  const CliResult result = Snapshot({"--context", "app-rollback", "--then", "mask"});

  EXPECT_EQ(result.status, 10);
  EXPECT_THAT(result.out, HasSubstr("}: kept until it is deleted, because 1 shadow copy could not be deleted\n"));
  EXPECT_THAT(result.err, HasSubstr("warning: --then mask is left out: the request failed\n"));
  EXPECT_EQ(ListedCopies(), 1u);
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
  const CliResult failed = Snapshot(transportable);
  EXPECT_EQ(failed.status, 10);
  EXPECT_THAT(failed.out, HasSubstr("}: unknown, as this host does not see transportable sets: ask the array\n"));
  EXPECT_THAT(CallsOf("IVssBackupComponents::DeleteSnapshots"), IsEmpty());
}

TEST_F(Completion, ATransportableSetWithExtraVolumesStays) {
  AddUnusedDisk();
  const CliResult result =
      Snapshot({"--disk", "TSL0001", "TSL0002", "TSL0003", "--context", "app-rollback+transportable"});

  EXPECT_EQ(result.status, 14);
  EXPECT_THAT(result.out, HasSubstr("}: kept for the array, although the request failed: deleting a transportable set "
                                    "is up to the array\n"));
}

// --then and --disconnect

TEST_F(Completion, ABrokenSetLeavesOrdinaryDisks) {
  const json outcome = SnapshotJson({"--then", "break"});

  EXPECT_EQ(PhasesOf(outcome), WithThose({"SetBackupStatus", "BreakSnapshotSet"}));
  EXPECT_EQ(outcome["setState"], "broken");
  EXPECT_EQ(outcome["snapshots"][1]["disk"], "\\\\.\\PhysicalDrive4") << "as it was before";
  EXPECT_EQ(ListedCopies(), 0u);
  EXPECT_EQ(SurfacedCopies(), 2u);
  EXPECT_THAT(Snapshot({"--then", "break"}).out,
              HasSubstr("}: broken, its disks are ordinary read-write disks of this host\n"));
}

TEST_F(Completion, AMaskedSetLeavesNoDisks) {
  const json outcome = SnapshotJson({"--then", "mask"});

  EXPECT_EQ(PhasesOf(outcome), WithThose({"SetBackupStatus", "MaskSnapshotSet"}));
  EXPECT_EQ(outcome["setState"], "masked");
  EXPECT_EQ(outcome["snapshots"][1]["serialNumber"], "SHADOW-TSL0002") << "as it was before";
  EXPECT_EQ(SurfacedCopies(), 0u);
  EXPECT_THAT(Snapshot({"--then", "mask"}).out,
              HasSubstr("}: broken and masked, its disks are hidden from this host\n"));
}

TEST_F(Completion, ADeletedSetIsGone) {
  const json outcome = SnapshotJson({"--then", "delete", "--context", "app-rollback"});

  EXPECT_EQ(PhasesOf(outcome), WithThose({"SetBackupStatus", "DeleteSnapshotSet"}));
  EXPECT_EQ(outcome["setState"], "deleted");
  EXPECT_EQ(ListedCopies(), 0u);
  EXPECT_THAT(Snapshot({"--then", "delete"}).out, HasSubstr("}: deleted\n"));
}

TEST_F(Completion, DisconnectingEndsTheSessionsThatCarryShadowDisksBeforeTheseAreMasked) {
  const json outcome = SnapshotJson({"--then", "mask", "--disconnect"});

  EXPECT_EQ(PhasesOf(outcome), WithThose({"SetBackupStatus", "DisconnectSnapshotLuns", "MaskSnapshotSet"}));
  EXPECT_EQ(outcome["setState"], "masked");
  EXPECT_THAT(SessionsLeft(), ElementsAre("originals"));
}

TEST_F(Completion, DisconnectingComesBehindABreak) {
  const json outcome = SnapshotJson({"--then", "break", "--disconnect"});

  EXPECT_EQ(PhasesOf(outcome), WithThose({"SetBackupStatus", "BreakSnapshotSet", "DisconnectSnapshotLuns"}));
  EXPECT_THAT(SessionsLeft(), ElementsAre("originals"));
}

TEST_F(Completion, ADeletedSetHasNoDisksLeftToDisconnect) {
  const json outcome = SnapshotJson({"--then", "delete", "--disconnect"});

  EXPECT_EQ(PhasesOf(outcome), WithThose({"SetBackupStatus", "DeleteSnapshotSet", "DisconnectSnapshotLuns"}));
  EXPECT_THAT(CallsOf("LogoutIScsiTarget"), IsEmpty());
}

TEST_F(Completion, ASetThatIsKeptCanBeDisconnected) {
  const json outcome = SnapshotJson({"--disconnect", "--context", "app-rollback"});

  EXPECT_EQ(PhasesOf(outcome), WithThose({"SetBackupStatus", "DisconnectSnapshotLuns"}));
  EXPECT_EQ(outcome["setState"], "kept");
  EXPECT_THAT(SessionsLeft(), ElementsAre("originals"));
}

TEST_F(Completion, ABreakThatFailsIsTheRunsFailureAndNothingIsDisconnected) {
  Fail("IVssBackupComponents::BreakSnapshotSet", VSS_E_PROVIDER_VETO);
  const CliResult result = Snapshot({"--then", "break", "--disconnect", "--context", "app-rollback"});

  EXPECT_EQ(result.status, 15);
  EXPECT_EQ(result.err,
            "varnelctl: warning: --disconnect is left out: BreakSnapshotSet failed\n"
            "varnelctl: BreakSnapshotSet failed: VSS_E_PROVIDER_VETO (0x80042306)\n"
            "m_pVssObject->BreakSnapshotSet()=Failed, error=VSS_E_PROVIDER_VETO, rc=COMMError, "
            "ca=ContactTechSupport;\n");
  EXPECT_THAT(result.out, HasSubstr("}: kept until it is deleted\n"));
  EXPECT_EQ(SessionsLeft().size(), 3u);
}

TEST_F(Completion, ADeletionThatStopsHalfwayTellsWhatIsLeft) {
  host().faults().FailDeletion({L"TSL0002", VSS_E_PROVIDER_VETO});
  const CliResult result = Snapshot({"--then", "delete", "--context", "app-rollback"});

  EXPECT_EQ(result.status, 15);
  EXPECT_EQ(result.err, "varnelctl: DeleteSnapshotSet failed: VSS_E_PROVIDER_VETO (0x80042306)\n");
  EXPECT_THAT(result.out, HasSubstr("}: kept until it is deleted, because 1 shadow copy could not be deleted\n"));
}

TEST_F(Completion, AMaskWhoseEndIsNotKnownLeavesTheStateUnknown) {
  host().faults().FailAsync("BreakSnapshotSetEx", VSS_E_UNEXPECTED);
  Fail("IVssBackupComponents::Query", VSS_E_UNEXPECTED);
  const CliResult result = Snapshot({"--then", "mask"});

  EXPECT_EQ(result.status, 15);
  EXPECT_THAT(result.out, HasSubstr("}: unknown, as the service did not say whether it is still there\n"));
}

TEST_F(Completion, ADisconnectThatFailsIsTheRunsFailureAndTheSetIsMaskedAllTheSame) {
  host().faults().FailCall("GetIScsiSessionListW", ERROR_ACCESS_DENIED, 0);
  const json outcome = SnapshotJson({"--then", "mask", "--disconnect"}, 15);

  EXPECT_EQ(PhasesOf(outcome), WithThose({"SetBackupStatus", "DisconnectSnapshotLuns", "MaskSnapshotSet"}));
  EXPECT_EQ(outcome["result"]["hresult"], "0x80070005");
  EXPECT_EQ(outcome["setState"], "masked");
}

TEST_F(Completion, AFailureBehindAnotherIsADetail) {
  FailWriter(simulator::WriterEvent::backupComplete);
  Fail("IVssBackupComponents::DeleteSnapshots", VSS_E_PROVIDER_VETO);
  const json outcome = SnapshotJson({"--then", "delete"}, 10);

  EXPECT_EQ(outcome["result"]["details"].back(), "DeleteSnapshotSet failed: VSS_E_PROVIDER_VETO (0x80042306)");
}

// --verify

TEST_F(Completion, VerifyingComesBeforeTheCompletion) {
  std::vector<std::string> phases = WithThose({"VerifySnapShotData", "SetBackupStatus"});
  EXPECT_EQ(PhasesOf(SnapshotJson({"--verify"})), phases);
}

TEST_F(Completion, NothingIsVerifiedOnASetThatWillBeDeleted) {
  AddUnusedDisk();
  const json outcome = SnapshotJson({"--verify", "--disk", "TSL0001", "TSL0002", "TSL0003"}, 14);

  EXPECT_EQ(PhasesOf(outcome), WithThose({"SetBackupStatus"}));
  EXPECT_THAT(err,
              StartsWith("varnelctl: warning: --verify is left out: the request failed, and its set is deleted\n"));
}

TEST_F(Completion, ATransportableSetCannotBeVerified) {
  ExpectRefused(
      Snapshot({"--verify", "--context", "transportable"}),
      "varnelctl: --verify does not go with a transportable context: there would be no snapshot to verify here\n");
}

TEST_F(Completion, NothingCanBeDoneToATransportableSetHere) {
  for (const char* then : {"break", "mask", "delete"}) {
    ExpectRefused(Snapshot({"--then", then, "--context", "app-rollback+transportable"}),
                  "varnelctl: --then does not go with a transportable context: the set belongs to the array, not to "
                  "this host\n");
  }
}

TEST_F(Completion, ADiskThatIsNamedTwiceIsAWarning) {
  EXPECT_THAT(Snapshot({"--disk", "TSL0001", "TSL0002", "TSL0001", "TSL0001"}).err,
              HasSubstr("varnelctl: warning: --disk names \"TSL0001\" twice; the library counts it twice, too\n"));
}

// Ctrl-C

TEST_F(Completion, AnInterruptionEndsTheRunBehindThePresentPhaseAndCompletesItAsAFailure) {
  constexpr int kBehindTheSnapshot = 8;
  const CliResult result = Snapshot({"--then", "mask"}, InterruptAtBoundary(kBehindTheSnapshot));

  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out, HasSubstr("CreateVssSnapshotSet: done (0 ms)\nSetBackupStatus ...\n"));
  EXPECT_THAT(result.out, HasSubstr("}: deleted, because the request failed\n"));
  EXPECT_EQ(result.err,
            "varnelctl: warning: --then mask is left out: the set was deleted because the request failed\n"
            "varnelctl: interrupted after CreateVssSnapshotSet\n");
  EXPECT_EQ(StatusLine(), CalledWith(-1));
  EXPECT_EQ(ListedCopies(), 0u);
}

TEST_F(Completion, AnInterruptionBehindTheCompletionLeavesTheSetAsItIs) {
  constexpr int kBehindTheCompletion = 10;
  const CliResult result = Snapshot({"--then", "mask", "--disconnect", "--context", "app-rollback"},
                                    InterruptAtBoundary(kBehindTheCompletion));

  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err,
            "varnelctl: warning: --disconnect is left out: the run was interrupted\n"
            "varnelctl: warning: --then mask is left out: the run was interrupted\n"
            "varnelctl: interrupted after SetBackupStatus\n");
  EXPECT_THAT(result.out, HasSubstr("}: kept until it is deleted\n"));
  EXPECT_EQ(StatusLine(), CalledWith(0));
}

TEST_F(Completion, AnInterruptionBetweenAnyTwoPhasesLeavesTheServiceFree) {
  constexpr int kMoreThanAnyRun = 50;
  for (int boundary = 1; boundary < kMoreThanAnyRun; ++boundary) {
    SCOPED_TRACE(boundary);
    Install(HostWithWriter());
    const CliResult result = Snapshot({"--verify", "--then", "break", "--disconnect"}, InterruptAtBoundary(boundary));
    EXPECT_EQ(host().live().Describe(), "");
    EXPECT_EQ(Snapshot().status, 0) << "the next run";
    if (result.status == 0) {
      EXPECT_EQ(boundary, 13);
      return;
    }
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("varnelctl: interrupted "));
  }
  FAIL() << "every run was interrupted";
}

// The service is free behind every run, however it ended.

struct Ending {
  int status;
  const char* what;
  GUID writerId;
  Arguments arguments;
  std::function<void(simulator::SimulatedHost&)> prepare;
};

void Nothing(simulator::SimulatedHost&) {}

std::vector<Ending> Endings() {
  return {
      {0, "Done", kAnyWriter, {}, Nothing},
      {2, "Usage", kAnyWriter, {"--document", "no/such/folder/out.xml"}, Nothing},
      {10,
       "WriterFailure",
       kAnyWriter,
       {},
       [](auto& host) {
         host.faults().FailWriter(WriterFails(simulator::WriterEvent::freeze, VSS_E_WRITERERROR_TIMEOUT));
       }},
      {11,
       "PartialSuccess",
       kHyperVWriter,
       {"--app", "hyperv"},
       [](auto& host) { host.faults().FailWriter(OneComponentFails()); }},
      {12, "ConfigurationError", kExchangeWriter, {"--app", "sql"}, Nothing},
      {13, "VerificationFailure", kExchangeWriter, {"--app", "exchange", "--verify", "--test-points", "2"}, Nothing},
      {14, "ExtraVolumes", kAnyWriter, {"--disk", "TSL0001", "TSL0002", "NONE"}, Nothing},
      {15,
       "FailedCall",
       kAnyWriter,
       {},
       [](auto& host) { host.faults().FailAsync("DoSnapshotSet", VSS_E_PROVIDER_VETO); }},
      {16, "Validation", kHyperVWriter, {"--app", "hyperv"}, [](auto& host) { host.model().os.server = false; }},
  };
}

class AfterAnyEnding : public Completion, public testing::WithParamInterface<Ending> {};

TEST_P(AfterAnyEnding, ASecondRunOnTheSameServiceWorks) {
  Install(HostWithWriter(GetParam().writerId));
  GetParam().prepare(host());
  EXPECT_EQ(Snapshot(GetParam().arguments).status, GetParam().status);
  EXPECT_EQ(host().live().Describe(), "");

  host().faults().Load({});
  const json second = SnapshotJson({"--app", "none"});
  EXPECT_EQ(second["snapshots"].size(), 2u);
  EXPECT_EQ(second["setState"], "released");
}

TEST_P(AfterAnyEnding, ASecondRunThatEndsAlikeSaysTheSame) {
  Install(HostWithWriter(GetParam().writerId));
  GetParam().prepare(host());
  const CliResult first = Snapshot(GetParam().arguments);
  GetParam().prepare(host());
  const CliResult second = Snapshot(GetParam().arguments);

  EXPECT_EQ(second.status, GetParam().status);
  EXPECT_EQ(second.err, first.err);
}

INSTANTIATE_TEST_SUITE_P(Statuses, AfterAnyEnding, testing::ValuesIn(Endings()),
                         [](const auto& ending) { return std::string(ending.param.what); });

// Any one call may fail: the outcome is told as one whole document, and the next run works.
TEST_F(Completion, AnyCallMayFail) {
  const Arguments arguments = {"snapshot", "--app",  "none", "--disk",       "TSL0001", "TSL0002",
                               "--verify", "--then", "mask", "--disconnect", "--json"};
  FailEachCall(HostWithWriter(), arguments, [&](const CliResult& result) {
    EXPECT_THAT(result.status, AnyOf(0, 1, 10, 12, 14, 15));
    const json outcome = json::parse(result.out, nullptr, false);
    ASSERT_FALSE(outcome.is_discarded()) << result.out;
    EXPECT_TRUE(result.status != 0 || outcome["setState"] == "masked") << outcome["setState"];
    EXPECT_FALSE(result.status != 0 && outcome["result"]["message"] == "");
    host().faults().FailNthCall(0, 0);
    EXPECT_EQ(Snapshot().status, 0) << "the next run";
  });
}

}  // namespace
}  // namespace varnel::test
