// varnelctl snapshot: what was asked for after the set was taken and is not done is never told as a success.
#include "tests/varnelctl/snapshot_support.h"

namespace varnel::test {
namespace {

constexpr char kSet[] = "{00000002-5e1f-4c3d-9a0b-000000000000}";

// A host whose originals have an iSCSI session, and each shadow copy one of its own.
class EndingCommand : public SnapshotCommand {
 protected:
  EndingCommand() {
    hostFile["iscsiSessions"] = nlohmann::json::parse(R"([
      { "targetName": "originals", "devices": [ { "disk": "TSL0001" }, { "disk": "TSL0002" } ] },
      { "targetName": "copy-1", "devices": [ { "shadowOf": "TSL0001" } ] },
      { "targetName": "copy-2", "devices": [ { "shadowOf": "TSL0002" } ] } ])");
  }

  void KeepSessionOpen(std::size_t n) { hostFile["iscsiSessions"][n]["failedLogouts"] = 9; }
  void FailCall(const char* call, const char* result, int occurrence = 1) {
    hostFile["faults"].push_back({{"call", call}, {"result", result}, {"occurrence", occurrence}});
  }
  std::string ErrorOf(const Arguments& arguments, int status) { return Snapshot(Kept(arguments), status).err; }
  nlohmann::json DocumentOf(const Arguments& arguments, int status) { return SnapshotJson(Kept(arguments), status); }

 private:
  static Arguments Kept(Arguments arguments) {
    arguments.insert(arguments.begin(), {"--context", "app-rollback"});
    return arguments;
  }
};

std::string SessionLeft(int n) {
  const std::string number = std::to_string(n);
  const std::string id = "ffff800000000000-400001370000000" + std::to_string(n + 1);
  return "iSCSI session " + id + " to target copy-" + number + " carries \"SHADOW-TSL000" + number +
         "\": end what holds the disk, then log out with: iscsicli LogoutTarget " + id +
         " (iscsicli SessionList shows what is open)";
}

// --disconnect

TEST_F(EndingCommand, ASessionThatDoesNotEndIs18AndIsNamedWithItsDiskAndTheNextStep) {
  KeepSessionOpen(2);

  EXPECT_EQ(ErrorOf({"--disconnect"}, 18),
            "varnelctl: 1 iSCSI session of the set's disks did not end\n  " + SessionLeft(2) + "\n");
}

TEST_F(EndingCommand, SessionsThatDoNotEndAreInTheDocument) {
  KeepSessionOpen(1);
  KeepSessionOpen(2);
  const nlohmann::json outcome = DocumentOf({"--disconnect"}, 18);

  EXPECT_EQ(outcome["sessionsLeft"], nlohmann::json::parse(R"([
    {"targetName": "copy-1", "sessionId": "ffff800000000000-4000013700000002", "disks": ["SHADOW-TSL0001"]},
    {"targetName": "copy-2", "sessionId": "ffff800000000000-4000013700000003", "disks": ["SHADOW-TSL0002"]}])"));
  EXPECT_EQ(outcome["result"]["message"], "2 iSCSI sessions of the set's disks did not end");
  EXPECT_EQ(outcome["result"]["details"], nlohmann::json({SessionLeft(1), SessionLeft(2)}));
  EXPECT_EQ(outcome["setState"], "kept");
}

TEST_F(EndingCommand, SessionsThatEndedLeaveNothingToTell) {
  EXPECT_EQ(ErrorOf({"--disconnect"}, 0), "");
  EXPECT_EQ(DocumentOf({"--disconnect"}, 0)["sessionsLeft"], nlohmann::json::array());
}

TEST_F(EndingCommand, SessionsAreLookedAtBeforeTheirDisksAreMasked) {
  KeepSessionOpen(1);
  const nlohmann::json outcome = DocumentOf({"--then", "mask", "--disconnect"}, 18);

  EXPECT_EQ(outcome["setState"], "masked");
  EXPECT_EQ(outcome["sessionsLeft"].size(), 1u);
  EXPECT_THAT(PhasesOf(outcome), testing::IsSupersetOf({"DisconnectSnapshotLuns", "MaskSnapshotSet"}));
}

TEST_F(EndingCommand, TheDisksOfABrokenSetHaveSessionsToo) {
  KeepSessionOpen(2);
  EXPECT_THAT(ErrorOf({"--then", "break", "--disconnect"}, 18), HasSubstr(SessionLeft(2)));
}

TEST_F(EndingCommand, ASessionThatIsBusyIsAskedAgain) {
  hostFile["iscsiSessions"][0]["busyQueries"] = 4;
  EXPECT_EQ(ErrorOf({"--disconnect"}, 0), "");
}

TEST_F(EndingCommand, SessionsThatCannotBeListedAfterwardsAre18) {
  constexpr int kFirstOfTheCheck = 3;
  FailCall("GetIScsiSessionListW", "5", kFirstOfTheCheck);

  EXPECT_EQ(ErrorOf({"--disconnect"}, 18),
            "varnelctl: whether the iSCSI sessions of the set's disks have ended could not be checked: "
            "GetIScsiSessionListW failed: Error: 0x80070005 (0x80070005)\n");
}

TEST_F(EndingCommand, ASessionWhoseDevicesAreNotToldIs18) {
  hostFile["iscsiSessions"][0]["busyQueries"] = 99;

  EXPECT_THAT(ErrorOf({"--disconnect"}, 18),
              testing::StartsWith("varnelctl: whether the iSCSI sessions of the set's disks have ended could not be "
                                  "checked: GetDevicesForIScsiSessionW failed: "));
}

TEST_F(EndingCommand, AFailureThatCameFirstKeepsItsStatus) {
  KeepSessionOpen(1);
  hostFile["faults"] = nlohmann::json::parse(
      R"([ { "writer": "Demo Writer", "event": "backupComplete", "failure": "VSS_E_WRITERERROR_RETRYABLE" } ])");
  const nlohmann::json outcome = DocumentOf({"--disconnect"}, 10);

  EXPECT_EQ(outcome["result"]["alertCode"], 600);
  EXPECT_THAT(outcome["result"]["details"].dump(), HasSubstr("1 iSCSI session of the set's disks did not end"));
  EXPECT_EQ(outcome["result"]["details"].back(), SessionLeft(1));
}

// Deletions

TEST_F(EndingCommand, ADeletionThatLeavesCopiesAlthoughItSucceedsIs18) {
  FailCall("IVssBackupComponents::DeleteSnapshots", "S_OK");
  const CliResult result = Snapshot({"--context", "app-rollback", "--then", "delete"}, 18);

  EXPECT_EQ(result.err, std::string("varnelctl: the deletion succeeded, but shadow copies of the set are still "
                                    "there\n  left of snapshot set ") +
                            kSet +
                            ": E:\\ (shadow copy {00000003-5e1f-4c3d-9a0b-000000000000}), F:\\ (shadow copy "
                            "{00000004-5e1f-4c3d-9a0b-000000000000}); to be deleted with: varnelctl sets "
                            "delete " +
                            kSet + "\n");
  EXPECT_THAT(result.out, HasSubstr("deleting the set: failed (0 ms)\n"));
  EXPECT_THAT(result.out, HasSubstr("}: kept until it is deleted, because 2 shadow copies could not be deleted\n"));
}

TEST_F(EndingCommand, ADeletionWhoseEndCannotBeCheckedIs18) {
  FailCall("IVssBackupComponents::Query", "VSS_E_UNEXPECTED", 0);
  const nlohmann::json outcome = DocumentOf({"--then", "delete"}, 18);

  EXPECT_EQ(outcome["result"]["message"],
            "whether the set is gone could not be checked: IVssBackupComponents::Query failed: VSS_E_UNEXPECTED "
            "(0x80042302)");
  EXPECT_EQ(outcome["result"]["hresult"], "0x80042302");
  EXPECT_EQ(outcome["setState"], "unknown");
}

TEST_F(EndingCommand, CopiesThatTheCompletionOfAFailedRequestLeavesAreToldWithTheFailure) {
  FailCall("IVssBackupComponents::DeleteSnapshots", "S_OK");
  hostFile["faults"].push_back(
      {{"writer", "Demo Writer"}, {"event", "thaw"}, {"failure", "VSS_E_WRITERERROR_RETRYABLE"}});
  const nlohmann::json outcome = DocumentOf({}, 10);

  EXPECT_EQ(outcome["copiesLeft"].size(), 2u);
  EXPECT_THAT(outcome["result"]["details"].back().get<std::string>(),
              testing::StartsWith(std::string("left of snapshot set ") + kSet));
}

// Breaking and masking

TEST_F(EndingCommand, ABreakThatFailsIs18AndSaysWhatTheSetIs) {
  FailCall("IVssBackupComponents::BreakSnapshotSet", "VSS_E_PROVIDER_VETO");
  const nlohmann::json outcome = DocumentOf({"--then", "break"}, 18);

  EXPECT_EQ(outcome["result"]["message"], "breaking the set failed: VSS_E_PROVIDER_VETO (0x80042306)");
  EXPECT_EQ(outcome["setState"], "kept");
}

TEST_F(EndingCommand, AMaskThatFailsIs18) {
  FailCall("IVssBackupComponentsEx2::BreakSnapshotSetEx", "VSS_E_PROVIDER_VETO");
  EXPECT_EQ(DocumentOf({"--then", "mask"}, 18)["setState"], "kept");
}

}  // namespace
}  // namespace varnel::test
