// A call of the service that never returns, in a program with a deadline.
#include "tests/varnelctl/evidence_support.h"
#include "tests/varnelctl/started_program.h"

namespace varnel::test {
namespace {

using nlohmann::json;
using testing::StartsWith;

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

// What the evidence asks has a minute, which this takes: not where sweeps make a sample of their runs (VARNEL_SAMPLE).
// What the run came to stays as it is.
TEST_F(HungCalls, OfTheEvidenceEndTheProgramWithTheStatusOfTheRun) {
  if (EnvironmentNumber("VARNEL_SAMPLE").value_or(1) > 1) GTEST_SKIP() << "it takes a minute";
  json failing = HostThatHangsIn("EvtQuery");
  failing["faults"].push_back({{"call", "IVssBackupComponents::PrepareForBackup"}, {"result", "E_FAIL"}});
  const std::string good = folder.File("good");
  const std::string failed = folder.File("failed");
  const std::string nameless = folder.File("nameless");
  StartedProgram one(folder, "one", HostThatHangsIn("EvtQuery"), Whole({"--deadline", "1", "--evidence", good}));
  StartedProgram two(folder, "two", failing, Whole({"--deadline", "1", "--evidence", failed}));
  StartedProgram three(folder, "three", HostThatHangsIn("EvtQuery"),
                       Whole({"--deadline", "1", "--evidence", nameless, "--anonymise"}));
  EXPECT_EQ(one.Wait(), 18);
  EXPECT_EQ(two.Wait(), 15);
  EXPECT_EQ(three.Wait(), 18);

  const char* const words = "the host does not answer what the evidence of the run asks: the process ends now";
  EXPECT_THAT(one.Err(), HasSubstr(words));
  const json run = json::parse(ReadFile(good + "/run.json"));
  EXPECT_THAT(SchemaErrors(run), testing::IsEmpty());
  EXPECT_EQ(run.at("kind"), "snapshot");
  EXPECT_EQ(run.at("status"), 18);
  EXPECT_THAT(run.at("result").at("message"), StartsWith(words));
  EXPECT_TRUE(Shows(ReadFile(good + "/index.html"), "CAPTURED"));
  EXPECT_THAT(ReadFile(good + "/backup.xml"), HasSubstr("crm"));
  EXPECT_THAT(WhyNot(good, "events-*"), HasSubstr("a call hung"));

  const json ofFailed = json::parse(ReadFile(failed + "/run.json"));
  EXPECT_EQ(ofFailed.at("status"), 15);
  EXPECT_THAT(ofFailed.at("result").at("message"), StartsWith("asking the writers to prepare failed"));

  const json ofNameless = json::parse(ReadFile(nameless + "/run.json"));
  EXPECT_EQ(ofNameless.at("kind"), "failure");
  EXPECT_EQ(ofNameless.at("status"), 18);
  EXPECT_THAT(NamesIn(nameless), testing::ElementsAre("header.txt", "index.html", "report.html", "run.json"));
}

}  // namespace
}  // namespace varnel::test
