// A call of the service that never returns, in a program with a deadline.
#include "tests/varnelctl/snapshot_support.h"
#include "tests/varnelctl/started_program.h"

namespace varnel::test {
namespace {

using nlohmann::json;

class HungCalls : public SnapshotCommand {
 protected:
  json HostThatHangsIn(const char* call) const {
    json host = hostFile;
    host["faults"] = {{{"call", call}, {"hangs", true}}};
    return host;
  }
};

// Each takes the deadline and a grace of the real clock, so they run side by side.
TEST_F(HungCalls, EndTheProgramAfterTheDeadline) {
  const auto start = std::chrono::steady_clock::now();
  const Arguments arguments = Whole({"--deadline", "1", "--json"});
  StartedProgram call(folder, "call", HostThatHangsIn("IVssBackupComponents::DoSnapshotSet"), arguments);
  json host = HostThatHangsIn("IVssAsync::Cancel");
  host["faults"].push_back({{"async", "PrepareForBackup"}, {"hangs", true}});
  StartedProgram cancellation(folder, "cancellation", host, arguments);
  StartedProgram inTime(folder, "inTime", hostFile, arguments);
  EXPECT_EQ(inTime.Wait(), 0) << inTime.Err();
  EXPECT_EQ(call.Wait(), 17);
  EXPECT_EQ(cancellation.Wait(), 17);

  EXPECT_EQ(call.Err(),
            "\nvarnelctl: past the deadline of 1 second (--deadline 1) while taking the snapshot, and "
            "IVssBackupComponents::DoSnapshotSet does not return: the process ends now, with exit status 17\n"
            "  what there is of the set is left to its journal\n"
            "  what to do: varnelctl sets clean-up ends what is left of the set; then see what hangs\n"
            "  next: varnelctl explain past-deadline\n");
  EXPECT_EQ(call.Out(), "");
  EXPECT_THAT(
      cancellation.Err(),
      HasSubstr("while asking the writers to prepare, and IVssAsync::Cancel does not return: the process ends"));
  constexpr std::chrono::seconds kGrace{10};
  EXPECT_GE(std::chrono::steady_clock::now() - start, kGrace);
}

}  // namespace
}  // namespace varnel::test
