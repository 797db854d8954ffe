// Requests that are made again: which failures pass, how long is waited, and what is left of a try.
#include "varnelctl/sets/tries.h"

#include <functional>
#include <set>

#include "simulator/machine/result_names.h"
#include "tests/varnelctl/snapshot_support.h"
#include "varnelctl/console/shared_watch.h"

namespace varnel::test {
namespace {

using nlohmann::json;
using simulator::WriterEvent;
using varnelctl::GrowingPauses;

constexpr char kStart[] = "IVssBackupComponents::StartSnapshotSet";
constexpr char kAbort[] = "IVssBackupComponents::AbortBackup";

class Flag final : public varnelctl::Interruption {
 public:
  explicit Flag(std::function<bool()> isSet) : isSet_(std::move(isSet)) {}
  bool Requested() const override { return isSet_(); }

 private:
  std::function<bool()> isSet_;
};

varnelctl::InterruptionSource InterruptedWhen(std::function<bool()> isSet) {
  return [isSet = std::move(isSet)] { return std::make_unique<Flag>(isSet); };
}

// How every interrupted run ends.
int StatusOfInterruption() {
  return static_cast<int>(varnelctl::DescribeFailure(std::make_exception_ptr(varnelctl::Interrupted("")), "").status);
}

class Tries : public SnapshotFixture {
 protected:
  void SetUp() override {
    simulator::HostModel model = SmallHost();
    model.writers = {MakeWriter(L"Mail", 1, {MakeComponent(L"", L"mail", {L"E:\\mail"})}),
                     MakeWriter(L"Web", 2, {MakeComponent(L"", L"site", {L"F:\\web"})})};
    Install(std::move(model));
  }
  void WriterFails(HRESULT failure, WriterEvent event = WriterEvent::thaw, const wchar_t* writer = L"Mail") {
    FailWriter({.writer = writer, .event = event, .failure = failure, .applicationMessage = {}, .components = {}});
  }
  /// `action` hears of the first so many times of a call, each with its number, when it was made.
  void At(std::string call, std::function<void(int)> action) {
    host().calls().SendTo([=, call = call + "(", n = 0](const std::string& line) mutable {
      if (line.starts_with(call)) action(++n);
    });
  }
  /// From the nth set on nothing fails.
  void FailsUntilSet(int n) {
    At(kStart, [this, n](int set) {
      if (set == n) host().faults().Load({});
    });
  }
  unsigned long long slept() { return host().machine().slept; }

  static std::vector<int> StatusesOf(const json& outcome) {
    std::vector<int> statuses;
    for (const json& made : outcome.at("tries")) {
      statuses.push_back(made.at("status"));
      EXPECT_EQ(made.at("number"), statuses.size());
    }
    EXPECT_EQ(statuses.back(), outcome.at("status"));
    return statuses;
  }
  static std::vector<unsigned long long> PausesOf(const json& outcome) {
    std::vector<unsigned long long> pauses;
    for (const json& made : outcome.at("tries")) {
      if (!made.at("pause").is_null()) pauses.push_back(made.at("pause"));
    }
    return pauses;
  }
  static std::vector<std::string> WarningsOf(const json& outcome) {
    std::vector<std::string> codes;
    for (const json& warning : outcome.at("warnings")) codes.push_back(warning.at("code"));
    return codes;
  }
  static std::string DetailsOf(const json& outcome) { return outcome.at("result").at("details").dump(); }
  /// How many tries a run takes whose failures pass no more than once.
  std::size_t TriesWith(const Arguments& arguments) {
    const CliResult result = Run(Whole(arguments));
    return json::parse(result.out).at("tries").size();
  }
};

// --retries

TEST_F(Tries, OneWithoutAFailureIsToldAsOne) {
  const json outcome = SnapshotJson();
  EXPECT_EQ(outcome["tries"], json::parse(R"([{"number": 1, "start": 0, "status": 0, "pause": null, "result": {
    "alertCode": 0, "hresult": null, "message": "", "details": [], "remedy": "", "explain": "", "step": null}}])"));
}

TEST_F(Tries, AWriterThatFailsTwiceIsTriedThreeTimesAndTheThirdSucceeds) {
  WriterFails(VSS_E_WRITERERROR_RETRYABLE);
  FailsUntilSet(3);
  const json outcome = SnapshotJson({"--retries", "2"});

  EXPECT_THAT(StatusesOf(outcome), ElementsAre(10, 10, 0));
  EXPECT_THAT(PausesOf(outcome), ElementsAre(600000u, 600000u));
  EXPECT_EQ(outcome["tries"][2]["start"], 1200000);
  EXPECT_EQ(outcome["tries"][0]["result"]["alertCode"], 600);
  EXPECT_EQ(slept(), 1200000u);
  EXPECT_EQ(outcome["setState"], "released");
  EXPECT_EQ(outcome["errorDetails"], "");
  EXPECT_EQ(outcome["snapshots"].size(), 2u);
  EXPECT_THAT(WarningsOf(outcome), ElementsAre("tryFailed", "tryFailed"));
}

TEST_F(Tries, APersonIsToldOfEachThatFailed) {
  FailCall("IVssBackupComponents::DoSnapshotSet", VSS_E_PROVIDER_VETO, 0);
  const CliResult result = Snapshot({"--retries", "2", "--retry-wait", "60"}, 15);
  const std::string why = " failed: taking the snapshot failed: VSS_E_PROVIDER_VETO (0x80042306)";
  EXPECT_THAT(result.err, StartsWith("varnelctl: warning: try 1 of 3" + why + "; the next one follows in 60 s\n" +
                                     "varnelctl: warning: try 2 of 3" + why + "; the next one follows in 60 s\n" +
                                     "varnelctl: taking the snapshot failed: VSS_E_PROVIDER_VETO (0x80042306)\n"));
  EXPECT_THAT(result.err, HasSubstr("\n  the last of 3 tries (--retries)\n"));
  EXPECT_EQ(slept(), 120000u);
}

TEST_F(Tries, WithoutRetriesThereIsOne) {
  WriterFails(VSS_E_WRITERERROR_RETRYABLE);
  const json outcome = SnapshotJson({}, 10);
  EXPECT_THAT(StatusesOf(outcome), ElementsAre(10));
  EXPECT_THAT(DetailsOf(outcome), Not(HasSubstr("tries")));
  EXPECT_EQ(slept(), 0u);
}

// Every result that has a name, at a writer and at DoSnapshotSet, whether it starts or ends so. Where sweeps make a
// sample of their runs (VARNEL_SAMPLE), one in five of those that do not pass.
TEST_F(Tries, OnlyWhatIsDocumentedToPassIsTriedAgain) {
  const std::set<HRESULT> writers = {VSS_E_WRITERERROR_RETRYABLE, VSS_E_WRITERERROR_TIMEOUT,
                                     VSS_E_WRITERERROR_OUTOFRESOURCES};
  const std::set<HRESULT> snapshot = {VSS_E_FLUSH_WRITES_TIMEOUT, VSS_E_HOLD_WRITES_TIMEOUT, VSS_E_PROVIDER_VETO,
                                      VSS_E_UNEXPECTED_PROVIDER_ERROR};
  const Arguments arguments = {"--retries", "1", "--json"};
  const unsigned step = EnvironmentNumber("VARNEL_SAMPLE").value_or(1) > 1 ? 5 : 1;
  unsigned number = EnvironmentNumber("VARNEL_SAMPLE_SEED").value_or(0);
  std::size_t passing = 0;
  for (const std::string_view name : simulator::ResultNames()) {
    const auto code = static_cast<HRESULT>(simulator::ParseResult(name).value());
    const bool passes = writers.contains(code) || snapshot.contains(code);
    if (SUCCEEDED(code) || (++number % step != 0 && !passes)) continue;
    SCOPED_TRACE(name);
    StartOver();
    WriterFails(code);
    EXPECT_EQ(TriesWith(arguments), 1u + writers.count(code)) << "a writer";
    StartOver();
    FailCall("IVssBackupComponents::DoSnapshotSet", code);
    EXPECT_EQ(TriesWith(arguments), 1u + snapshot.count(code)) << "the start of DoSnapshotSet";
    StartOver();
    host().faults().FailAsync("DoSnapshotSet", code);
    EXPECT_EQ(TriesWith(arguments), 1u + snapshot.count(code)) << "the end of DoSnapshotSet";
    passing += writers.count(code) + snapshot.count(code);
  }
  EXPECT_EQ(passing, writers.size() + snapshot.size());
}

TEST_F(Tries, AWriterMayFailAtAnyEventOfTheSet) {
  for (const WriterEvent event : {WriterEvent::prepareBackup, WriterEvent::prepareSnapshot, WriterEvent::freeze,
                                  WriterEvent::thaw, WriterEvent::postSnapshot}) {
    StartOver();
    WriterFails(VSS_E_WRITERERROR_TIMEOUT, event);
    FailsUntilSet(2);
    EXPECT_THAT(StatusesOf(SnapshotJson({"--retries", "1"})), ElementsAre(10, 0));
  }
}

TEST_F(Tries, TheSameResultOfAnotherCallIsNotTriedAgain) {
  const char* const calls[] = {"IVssBackupComponents::PrepareForBackup",     "IVssBackupComponents::AddToSnapshotSet",
                               "IVssBackupComponents::GatherWriterStatus",   kStart,
                               "IVssBackupComponentsEx3::GetWriterStatusEx", "IVssBackupComponents::SaveAsXML"};
  for (const char* call : calls) {
    for (const HRESULT code : {VSS_E_PROVIDER_VETO, VSS_E_HOLD_WRITES_TIMEOUT}) {
      SCOPED_TRACE(call);
      StartOver();
      FailCall(call, code, std::string_view(call).find("Status") == std::string_view::npos ? 1 : 3);
      EXPECT_EQ(TriesWith({"--retries", "1", "--json"}), 1u);
      EXPECT_EQ(slept(), 0u);
    }
  }
}

TEST_F(Tries, OfSeveralWritersThatFailEachMustPass) {
  WriterFails(VSS_E_WRITERERROR_RETRYABLE);
  WriterFails(VSS_E_WRITERERROR_NONRETRYABLE, WriterEvent::thaw, L"Web");
  EXPECT_THAT(StatusesOf(SnapshotJson({"--retries", "1"}, 10)), ElementsAre(10));

  StartOver();
  WriterFails(VSS_E_WRITERERROR_RETRYABLE);
  WriterFails(VSS_E_WRITERERROR_OUTOFRESOURCES, WriterEvent::thaw, L"Web");
  EXPECT_THAT(StatusesOf(SnapshotJson({"--retries", "1"}, 10)), ElementsAre(10, 10));
}

// What is captured stands, whatever the writers say of its completion.
TEST_F(Tries, ARequestThatGotThroughIsNotMadeAgain) {
  WriterFails(VSS_E_WRITERERROR_RETRYABLE, WriterEvent::backupComplete);
  const json outcome = SnapshotJson({"--retries", "3", "--context", "app-rollback", "--then", "delete"}, 10);
  EXPECT_THAT(StatusesOf(outcome), ElementsAre(10));
  EXPECT_THAT(DetailsOf(outcome), Not(HasSubstr("not tried again")));
}

TEST_F(Tries, MessagesAboutASetAreNoFailure) {
  const std::string host = VARNEL_EXAMPLES "/hosts/hyperv-one-of-twenty.json";
  const CliResult result = RunCli(
      {"--host", host, "snapshot", "--app", "hyperv", "--disk", "TSL2001", "TSL2002", "--retries", "3", "--json"});
  EXPECT_EQ(result.status, 11) << result.err;
  EXPECT_THAT(StatusesOf(json::parse(result.out)), ElementsAre(11));
}

TEST_F(Tries, AnInterruptedRequestIsNotMadeAgainWhateverTheServiceSaidLast) {
  varnelctl::SnapshotOutcome outcome{varnelctl::SnapshotOptions()};
  outcome.failedCall = {varnelctl::ServiceCall::DoSnapshotSet, VSS_E_PROVIDER_VETO};
  outcome.failure = varnelctl::DescribeFailure(std::make_exception_ptr(long{VSS_E_PROVIDER_VETO}), "");
  EXPECT_EQ(varnelctl::PassingOf(outcome), varnelctl::Passing::Failure);
  outcome.failure = varnelctl::DescribeFailure(std::make_exception_ptr(varnelctl::Interrupted("")), "");
  EXPECT_EQ(varnelctl::PassingOf(outcome), varnelctl::Passing::No);
}

// What is left of a try

TEST_F(Tries, OneWhoseCopiesAreLeftIsTheLast) {
  WriterFails(VSS_E_WRITERERROR_RETRYABLE);
  host().faults().FailDeletion({L"TSL0001", VSS_E_PROVIDER_VETO});
  const json outcome = SnapshotJson({"--retries", "2", "--context", "app-rollback"}, 10);
  EXPECT_THAT(StatusesOf(outcome), ElementsAre(10));
  EXPECT_THAT(outcome["copiesLeft"], Not(IsEmpty()));
  EXPECT_THAT(DetailsOf(outcome), HasSubstr("not tried again: "));
  EXPECT_EQ(slept(), 0u);
}

TEST_F(Tries, OneWhoseSetNobodyCanAskForIsTheLast) {
  WriterFails(VSS_E_WRITERERROR_RETRYABLE);
  const json outcome = SnapshotJson({"--retries", "2", "--context", "app-rollback+transportable"}, 10);
  EXPECT_EQ(outcome["setState"], "unknown");
  EXPECT_THAT(StatusesOf(outcome), ElementsAre(10));
  EXPECT_THAT(DetailsOf(outcome), HasSubstr("not tried again: "));
}

TEST_F(Tries, TheNextBeginsWithNothingOfTheLast) {
  WriterFails(VSS_E_WRITERERROR_RETRYABLE);
  std::vector<std::string> live;
  At(kStart, [&](int) { live.push_back(host().live().Describe()); });
  SnapshotJson({"--retries", "2"}, 10);
  ASSERT_THAT(live, SizeIs(3));
  EXPECT_THAT(live[0], Not(IsEmpty()));
  EXPECT_EQ(live[1], live[0]);
  EXPECT_EQ(live[2], live[0]);
}

TEST_F(Tries, TheErrorDetailsAreThoseOfTheLast) {
  WriterFails(VSS_E_WRITERERROR_RETRYABLE);
  At("Sleep", [this](int n) {
    if (n == 1) FailCall("IVssBackupComponents::GatherWriterMetadata", E_UNEXPECTED);
  });
  const json outcome = SnapshotJson({"--retries", "2"}, 15);
  EXPECT_THAT(StatusesOf(outcome), ElementsAre(10, 15));
  EXPECT_THAT(outcome["errorDetails"].get<std::string>(), Not(HasSubstr("WriterFailure")));

  // It ends before there is a request.
  StartOver();
  WriterFails(VSS_E_WRITERERROR_RETRYABLE);
  At("Sleep", [this](int n) {
    if (n == 1) FailCall("FindFirstVolumeW", ERROR_GEN_FAILURE, 0);
  });
  const json early = SnapshotJson({"--retries", "2"}, 1);
  EXPECT_EQ(early["result"]["step"], "lookingForDisks");
  EXPECT_EQ(early["errorDetails"], "");
}

TEST_F(Tries, WhatALaterOneDoesIsNotToldAsLeftOut) {
  WriterFails(VSS_E_WRITERERROR_RETRYABLE);
  FailsUntilSet(2);
  const json outcome = SnapshotJson({"--retries", "1", "--context", "app-rollback", "--then", "delete"});
  EXPECT_THAT(WarningsOf(outcome), ElementsAre("tryFailed"));
  EXPECT_EQ(outcome["setState"], "deleted");

  StartOver();
  WriterFails(VSS_E_WRITERERROR_RETRYABLE);
  const json failed = SnapshotJson({"--retries", "1", "--context", "app-rollback", "--then", "delete"}, 10);
  EXPECT_THAT(WarningsOf(failed), ElementsAre("tryFailed", "leftOut"));
}

// --wait-for-others

TEST_F(Tries, AnotherBackupInProgressIsWaitedFor) {
  FailCall(kStart, VSS_E_SNAPSHOT_SET_IN_PROGRESS, 1);
  FailCall(kStart, VSS_E_SNAPSHOT_SET_IN_PROGRESS, 2);
  const json outcome = SnapshotJson();
  EXPECT_THAT(StatusesOf(outcome), ElementsAre(15, 15, 0));
  EXPECT_THAT(WarningsOf(outcome), ElementsAre("otherBackup", "otherBackup"));
  EXPECT_EQ(outcome["tries"][0]["result"]["hresult"], "0x80042316");
  const std::vector<unsigned long long> pauses = PausesOf(outcome);
  EXPECT_EQ(outcome["tries"][2]["start"], pauses[0] + pauses[1]);
  EXPECT_EQ(slept(), pauses[0] + pauses[1]);
}

TEST_F(Tries, OfAnotherBackupInProgressAPersonIsTold) {
  FailCall(kStart, VSS_E_SNAPSHOT_SET_IN_PROGRESS, 1);
  EXPECT_THAT(Snapshot({"--wait-for-others", "2"}).err,
              HasSubstr("varnelctl: warning: another backup of this host is in progress; try 2 follows in 2 s "
                        "(--wait-for-others: 2 s left)\n"));
}

TEST_F(Tries, ItIsWaitedForSoLongAndNoLonger) {
  FailCall(kStart, VSS_E_SNAPSHOT_SET_IN_PROGRESS, 0);
  const json outcome = SnapshotJson({}, 15);
  EXPECT_EQ(slept(), 600000u);
  EXPECT_THAT(DetailsOf(outcome), HasSubstr("waited 600 s for the other backup to end (--wait-for-others)"));
  EXPECT_EQ(outcome["result"]["hresult"], "0x80042316");
  std::vector<unsigned long long> pauses = PausesOf(outcome);
  ASSERT_GT(pauses.size(), 5u);
  EXPECT_EQ(StatusesOf(outcome), std::vector<int>(pauses.size() + 1, 15));
  pauses.pop_back();  // no longer than what is left
  unsigned long long base = 5000;
  for (const unsigned long long pause : pauses) {
    EXPECT_GE(pause, base * 8 / 10);
    EXPECT_LE(pause, base * 12 / 10);
    base = std::min(base * 2, 60000ULL);
  }
}

TEST_F(Tries, ItIsNotWaitedForWhereNobodyWantsThat) {
  FailCall(kStart, VSS_E_SNAPSHOT_SET_IN_PROGRESS, 0);
  const json outcome = SnapshotJson({"--wait-for-others", "0", "--retries", "3"}, 15);
  EXPECT_THAT(StatusesOf(outcome), ElementsAre(15));
  EXPECT_THAT(DetailsOf(outcome), Not(HasSubstr("waited")));
  EXPECT_EQ(slept(), 0u);
}

TEST_F(Tries, ADeadlineEndsAPause) {
  FailCall(kStart, VSS_E_SNAPSHOT_SET_IN_PROGRESS, 0);
  const json outcome = SnapshotJson({"--deadline", "30"}, 17);
  EXPECT_THAT(outcome["result"]["message"].get<std::string>(),
              testing::MatchesRegex("the deadline of .*30 seconds.* passed before the next try"));
  EXPECT_GE(slept(), 30000u);
  EXPECT_LE(slept(), 31000u);
}

TEST_F(Tries, OneThatAVolumeTellsOfIsWaitedForToo) {
  FailCall("IVssBackupComponents::AddToSnapshotSet", VSS_E_SNAPSHOT_SET_IN_PROGRESS);
  EXPECT_THAT(StatusesOf(SnapshotJson()), ElementsAre(15, 0));
}

TEST_F(Tries, NoOtherCallTellsOfAnotherBackup) {
  FailCall("IVssBackupComponents::PrepareForBackup", VSS_E_SNAPSHOT_SET_IN_PROGRESS);
  EXPECT_THAT(StatusesOf(SnapshotJson({}, 15)), ElementsAre(15));
}

TEST_F(Tries, WaitingForOthersUsesUpNoRetry) {
  FailCall(kStart, VSS_E_SNAPSHOT_SET_IN_PROGRESS, 1);
  FailCall("IVssBackupComponents::DoSnapshotSet", VSS_E_FLUSH_WRITES_TIMEOUT, 1);
  FailCall(kStart, VSS_E_SNAPSHOT_SET_IN_PROGRESS, 3);
  const json outcome = SnapshotJson({"--retries", "1", "--retry-wait", "0"});
  EXPECT_THAT(WarningsOf(outcome), ElementsAre("otherBackup", "tryFailed", "otherBackup"));
  EXPECT_THAT(outcome["warnings"][1]["text"].get<std::string>(), StartsWith("try 2 of 3 failed: "));
  EXPECT_EQ(PausesOf(outcome)[1], 0u);
}

TEST(GrowingPausesTest, AreWithinAFifthOfADoubledPauseUpToAMinute) {
  std::set<DWORD> first;
  for (std::uint32_t seed = 0; seed < 2000; ++seed) {
    GrowingPauses pauses(seed);
    first.insert(pauses.Next());
    for (DWORD base = 10000; base != 60000; base = std::min<DWORD>(base * 2, 60000)) {
      const DWORD pause = pauses.Next();
      ASSERT_GE(pause, base * 8 / 10);
      ASSERT_LE(pause, base * 12 / 10);
    }
    ASSERT_GE(pauses.Next(), 48000u);
    ASSERT_LE(pauses.Next(), 72000u);
  }
  EXPECT_GE(*first.begin(), 4000u);
  EXPECT_LE(*first.rbegin(), 6000u);
  EXPECT_GT(first.size(), 300u);  // of 401 that there may be
}

TEST(GrowingPausesTest, AreTheSameForTheSameSeed) {
  GrowingPauses one(7);
  GrowingPauses other(7);
  for (int i = 0; i < 20; ++i) EXPECT_EQ(one.Next(), other.Next());
}

// Interruptions

TEST_F(Tries, AnInterruptionEndsAPause) {
  WriterFails(VSS_E_WRITERERROR_RETRYABLE);
  const json outcome = SnapshotJson({"--retries", "2", "--then", "delete"}, StatusOfInterruption(),
                                    InterruptedWhen([this] { return slept() >= 2000; }));
  EXPECT_EQ(slept(), 2000u);
  EXPECT_EQ(outcome["result"]["message"], "interrupted before the next try");
  EXPECT_THAT(DetailsOf(outcome), HasSubstr("try 1 failed: Mail has failed during thaw event"));
  EXPECT_EQ(outcome["result"]["explain"], "interrupted");
  ASSERT_EQ(outcome["tries"].size(), 1u);
  EXPECT_EQ(outcome["tries"][0]["status"], 10);
  EXPECT_EQ(outcome["tries"][0]["pause"], 2000);
  EXPECT_EQ(outcome["setState"], "deleted");
  EXPECT_THAT(WarningsOf(outcome), ElementsAre("leftOut", "tryFailed"));
}

TEST_F(Tries, AnInterruptionThatIsNotedBeforeThePauseIsNotLost) {
  FailCall(kStart, VSS_E_SNAPSHOT_SET_IN_PROGRESS, 0);
  bool requested = false;
  int watches = 0;
  At(kAbort, [&](int) { requested = true; });  // in the completion, which nobody can interrupt
  SnapshotJson({}, StatusOfInterruption(), [&]() -> std::unique_ptr<varnelctl::Interruption> {
    if (++watches > 1) requested = false;  // as the process's own does when it begins
    return std::make_unique<Flag>([&] { return requested; });
  });
  EXPECT_EQ(slept(), 0u);
  EXPECT_EQ(watches, 1);
}

TEST(SharedWatchTest, IsMadeAgainWhenNobodyHasIt) {
  int made = 0;
  const varnelctl::InterruptionSource source = varnelctl::SharedWatch([&] {
    ++made;
    return std::make_unique<Flag>([] { return true; });
  });
  {
    const auto one = source();
    EXPECT_TRUE(source()->Requested());
    EXPECT_EQ(made, 1);
  }
  EXPECT_TRUE(source()->Requested());
  EXPECT_EQ(made, 2);
  EXPECT_FALSE(varnelctl::SharedWatch({}));
}

// The command line

TEST_F(Tries, NumbersThatCannotBeAreRefused) {
  const std::pair<Arguments, std::string> wrong[] = {
      {{"--retries", "4"}, "--retries: \"4\" is no number of retries from 0 to 3"},
      {{"--retries", "-1"}, "--retries: \"-1\" is no number of retries from 0 to 3"},
      {{"--retries", "two"}, "--retries: \"two\" is no number of retries from 0 to 3"},
      {{"--wait-for-others", "-5"}, "--wait-for-others: \"-5\" is no number of seconds from 0 to 86400, a day"},
      {{"--wait-for-others", "86401"}, "--wait-for-others: \"86401\" is no number of seconds from 0 to 86400, a day"},
      {{"--retries", "1", "--retry-wait", "1.5"},
       "--retry-wait: \"1.5\" is no number of seconds from 0 to 86400, a day"},
      {{"--retry-wait", "60"}, "--retry-wait requires --retries"}};
  for (const auto& [arguments, text] : wrong) {
    ExpectRefused(Run(Whole(arguments)), "varnelctl: " + text, " (varnelctl snapshot --help lists what there is)\n");
  }
}

TEST_F(Tries, TheHelpSaysWhatARetryCosts) {
  EXPECT_THAT(RunCli({"snapshot", "--help"}).out, HasSubstr("Each try costs an Identify of every writer"));
}

}  // namespace
}  // namespace varnel::test
