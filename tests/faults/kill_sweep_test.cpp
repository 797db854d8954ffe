// varnelctl is killed at every call of whole runs: before the call's effect, and after it but before its answer. Then
// another process lists and cleans up: nothing of the run is left that nobody wants, and nothing of anybody else's is
// touched.
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "platform/owners.h"
#include "simulator/vss/snapshot_service.h"
#include "tests/faults/child_program.h"
#include "tests/faults/kill_here.h"
#include "tests/faults/killed_run.h"
#include "tests/faults/sample.h"
#include "tests/support/host_fixture.h"
#include "text/guid.h"
#include "varnelctl/run.h"
#include "varnelctl/sets/journal.h"

namespace varnel::test {
namespace {

using nlohmann::json;
using simulator::ShadowCopy;
using varnelctl::JournalEnd;
using varnelctl::JournalEntry;
using varnelctl::JournalStage;

namespace fs = std::filesystem;

struct Told {
  int status;
  std::string out;
  std::string err;
};

Told RunVarnelctl(std::vector<std::string> arguments) {
  std::ostringstream out;
  std::ostringstream err;
  const int status = varnelctl::RunVarnelctl(std::move(arguments), out, err);
  return {status, out.str(), err.str()};
}

std::string Utf8(const fs::path& path) {
  const std::u8string text = path.u8string();
  return {text.begin(), text.end()};
}

// A process that comes later, on the state and the journal of a folder.
class LaterProcess {
 public:
  LaterProcess(const std::string& scenario, const fs::path& folder)
      : journal(folder / "sets"), host_(KilledRunHost(scenario)), current_(Keep(host_, folder)) {
    ComPtr<IVssBackupComponents> any;  // its first call finds what the dead process left
    EXPECT_EQ(host_.vss().CreateVssBackupComponents(any.Put()), S_OK);
  }

  std::vector<ShadowCopy> Copies() {
    const simulator::ServiceState state = host_.machine().snapshots->State();
    return {state.copies.begin(), state.copies.end()};
  }
  std::vector<ShadowCopy> CopiesOf(const std::wstring& setId) {
    std::vector<ShadowCopy> copies = Copies();
    std::erase_if(copies, [&](const ShadowCopy& copy) { return FormatGuid(copy.setId) != setId; });
    return copies;
  }
  bool HasEnded(std::size_t session) { return host_.machine().endedSessions.contains(session); }
  ULONGLONG now() { return host_.machine().now; }
  Told Run(std::vector<std::string> arguments) const {
    arguments.insert(arguments.end(), {"--journal", Utf8(journal.folder())});
    return RunVarnelctl(std::move(arguments));
  }

  const varnelctl::Journal journal;

 private:
  static simulator::SimulatedHost& Keep(simulator::SimulatedHost& host, const fs::path& folder) {
    host.KeepStateIn(folder / "host.state");
    return host;
  }

  simulator::SimulatedHost host_;
  const ScopedHost current_;
};

class KillSweep : public testing::TestWithParam<const char*> {
 protected:
  KillSweep() {
    std::string name = testing::UnitTest::GetInstance()->current_test_info()->name();
    std::replace(name.begin(), name.end(), '/', '-');
    folder_ = fs::temp_directory_path() / ("varnel-kill-" + name);
    fs::remove_all(folder_);
    fs::create_directories(Before());
    MakeBystanders();
  }
  ~KillSweep() override {
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
  }

  struct Point {
    std::string_view where;
    int number;  // from 1
  };

  std::vector<Point> Points() {
    StartOver();
    simulator::SimulatedHost host(KilledRunHost(GetParam()));
    host.KeepStateIn(Now() / "host.state");
    const ScopedHost current(host);
    const Told told = RunVarnelctl(KilledRunArguments(GetParam(), Now() / "sets"));
    EXPECT_EQ(told.status, 0) << told.err;
    std::vector<Point> points;
    for (int call = 1; call <= host.faults().callCount(); ++call) points.push_back({kBeforeCall, call});
    const int lines = static_cast<int>(host.calls().lines().size());
    for (int line = 1; line <= lines; ++line) points.push_back({kAfterCall, line});
    return points;
  }

  void KillAndCleanUp(const Point& point) {
    SCOPED_TRACE(std::string(point.where) + " " + std::to_string(point.number));
    StartOver();
    ChildProgram program({VARNEL_KILLED_RUN_PROGRAM, GetParam(), Utf8(Now() / "host.state"), Utf8(Now() / "sets"),
                          std::string(point.where), std::to_string(point.number)});
    ASSERT_EQ(program.Wait(), kKilled);
    CleanUp();
  }

 private:
  fs::path Before() const { return folder_ / "before"; }
  fs::path Now() const { return folder_ / "now"; }
  void StartOver() {
    fs::remove_all(Now());
    fs::copy(Before(), Now(), fs::copy_options::recursive);
  }

  // A set that nobody remembers, and one that an earlier run kept.
  void MakeBystanders() {
    LaterProcess earlier("kept", Before());
    const std::vector<std::string> request = {"snapshot", "--app",     "none",        "--disk",
                                              "TSL0003",  "--context", "app-rollback"};
    std::vector<std::string> forgotten = request;
    forgotten.push_back("--no-journal");
    ASSERT_EQ(RunVarnelctl(forgotten).status, 0);
    ASSERT_EQ(earlier.Run(request).status, 0);
    ASSERT_EQ(earlier.Copies().size(), 2u);
    kept_ = earlier.journal.Read().entries.at(0).setId;
    for (const ShadowCopy& copy : earlier.Copies()) bystanders_.insert(FormatGuid(copy.id));
  }

  // The entry of the killed run.
  std::optional<JournalEntry> EntryIn(const varnelctl::Journal& journal) const {
    const varnelctl::Journal::Content content = journal.Read();
    EXPECT_TRUE(content.faults.empty());
    for (const JournalEntry& entry : content.entries) {
      if (entry.setId != kept_) return entry;
    }
    return std::nullopt;
  }

  void CleanUp() {
    LaterProcess later(GetParam(), Now());
    const std::optional<JournalEntry> before = EntryIn(later.journal);
    const std::wstring setId = before ? before->setId : L"";
    const bool wasThere = !setId.empty() && !later.CopiesOf(setId).empty();
    const bool mixedHadEnded = later.HasEnded(kMixedSession);
    const Told listed = later.Run({"sets", "list"});
    EXPECT_EQ(listed.status, 0) << listed.err;
    if (wasThere) EXPECT_THAT(listed.out, testing::HasSubstr(WideToUtf8Lossy(setId)));
    const Told told = later.Run({"sets", "clean-up"});
    EXPECT_EQ(told.status, 0) << told.out << told.err;

    ExpectBystanders(later);
    ExpectNothingUnwanted(later, before, told);
    EXPECT_FALSE(later.HasEnded(kDataSession));
    EXPECT_EQ(later.HasEnded(kMixedSession), mixedHadEnded);
    const bool isGone = wasThere && later.CopiesOf(setId).empty();
    if (isGone) EXPECT_TRUE(later.HasEnded(kOwnSession)) << told.out;
    if (isGone) ++ended_;
    const Told again = later.Run({"sets", "clean-up"});
    EXPECT_EQ(again.status, 0) << again.out << again.err;
  }

  void ExpectBystanders(LaterProcess& later) const {
    std::set<std::wstring> left;
    for (const ShadowCopy& copy : later.Copies()) {
      if (!copy.forgotten && !copy.masked) left.insert(FormatGuid(copy.id));
    }
    for (const std::wstring& copy : bystanders_) EXPECT_TRUE(left.contains(copy));
    bool isKept = false;
    for (const JournalEntry& entry : later.journal.Read().entries) {
      isKept = isKept || (entry.setId == kept_ && entry.end == JournalEnd::Kept);
    }
    EXPECT_TRUE(isKept);
  }

  // What is there is what the run left for good, and the journal says so; what it does not say is not there.
  void ExpectNothingUnwanted(LaterProcess& later, const std::optional<JournalEntry>& before, const Told& told) {
    const std::optional<JournalEntry> after = EntryIn(later.journal);
    const std::size_t others = bystanders_.size();
    if (!after) {
      EXPECT_EQ(later.Copies().size(), others) << told.out;
      return;
    }
    ++stayed_;
    ASSERT_TRUE(before && after->end) << told.out;
    EXPECT_EQ(after->setId, before->setId);
    EXPECT_EQ(later.Copies().size(), others + 2);
    const std::string_view scenario = GetParam();
    if (scenario.starts_with("kept")) {
      EXPECT_EQ(after->end, JournalEnd::Kept);
      EXPECT_EQ(before->end, JournalEnd::Kept);
    } else {
      EXPECT_TRUE(scenario.starts_with("masked"));
      EXPECT_EQ(after->end, JournalEnd::Masked);
      EXPECT_TRUE(before->stage == JournalStage::Masking || before->end == JournalEnd::Masked);
      for (const ShadowCopy& copy : later.CopiesOf(after->setId)) EXPECT_TRUE(copy.masked && copy.forgotten);
    }
  }

  fs::path folder_;
  std::wstring kept_;
  std::set<std::wstring> bystanders_;  // their copies

 protected:
  int ended_ = 0;   // sets that clean-up ended
  int stayed_ = 0;  // sets that the run left for good
};

TEST_P(KillSweep, CleanUpEndsWhatAKilledRunLeftAndNothingElse) {
  const std::vector<Point> all = Points();
  ASSERT_GT(all.size(), 300u);
  const std::vector<Point> points = Sample().Of(all);
  const auto start = std::chrono::steady_clock::now();
  for (const Point& point : points) KillAndCleanUp(point);
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
  std::cout << GetParam() << ": " << points.size() << " kills" << Sample::Text() << ", " << ended_
            << " sets were ended and " << stayed_ << " stayed, " << seconds.count() << " s\n";
}

INSTANTIATE_TEST_SUITE_P(Runs, KillSweep, testing::ValuesIn(kKilledRuns));

}  // namespace
}  // namespace varnel::test
