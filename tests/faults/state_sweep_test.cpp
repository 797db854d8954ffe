// A process with a state file is killed at every call of whole requests: before the call's effect, and after it but
// before its answer. Then another process looks, and finds what the service leaves of a requestor that died. What that
// is, is taken from the same request on a host without a state file.
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "simulator/machine/shared_state.h"
#include "simulator/vss/snapshot_service.h"
#include "tests/faults/child_program.h"
#include "tests/faults/kill_here.h"
#include "tests/faults/killed_request.h"
#include "tests/faults/sample.h"
#include "tests/support/host_fixture.h"
#include "tests/support/recording_log.h"

namespace varnel::test {
namespace {

using simulator::ShadowCopy;

// One shadow copy as the sweep compares it.
struct Left {
  std::wstring volume;
  std::wstring device;
  DWORD diskNumber = 0;
  bool masked = false;
  bool forgotten = false;

  friend bool operator==(const Left&, const Left&) = default;
  friend std::ostream& operator<<(std::ostream& out, const Left& left) {
    return out << WideToUtf8Lossy(left.device) << " of " << WideToUtf8Lossy(left.volume) << " on " << left.diskNumber
               << (left.masked ? ", masked" : "") << (left.forgotten ? ", forgotten" : "");
  }
};

// What a process leaves that ends at one point of a request.
struct Leftovers {
  std::vector<Left> copies;
  std::set<std::size_t> endedSessions;
  std::size_t shutdowns = 0;  // writers that are told of it

  friend bool operator==(const Leftovers&, const Leftovers&) = default;
  friend std::ostream& operator<<(std::ostream& out, const Leftovers& left) {
    out << left.copies.size() << " copies, " << left.endedSessions.size() << " ended sessions, " << left.shutdowns
        << " writers told";
    for (const Left& copy : left.copies) out << "\n  " << copy;
    return out;
  }
};

std::size_t CountShutdowns(const simulator::SnapshotService& service) {
  const auto& raised = service.raisedEvents;
  return static_cast<std::size_t>(std::count_if(raised.begin(), raised.end(), [](const simulator::RaisedEvent& event) {
    return event.event == simulator::WriterEvent::backupShutdown;
  }));
}

// The request on a host of one process, watched at every point.
class CleanRun {
 public:
  explicit CleanRun(const std::string& scenario) : scenario_(scenario), host_(KilledHost(scenario)) {
    host_.faults().TellCallsTo([this](int) { before_.push_back(LeftNow()); });
    host_.calls().SendTo([this](const std::string& line) { Note(line); });
    const ScopedHost current(host_);
    RunRequest(scenario);
  }

  const std::vector<Leftovers>& before() const { return before_; }
  const std::vector<Leftovers>& after() const { return after_; }
  /// The line from which on this run makes other calls than that one, and the call; both from 0.
  std::pair<std::size_t, std::size_t> PartsFrom(const CleanRun& other) const {
    const auto end = std::mismatch(lines_.begin(), lines_.end(), other.lines_.begin(), other.lines_.end()).first;
    const auto line = static_cast<std::size_t>(end - lines_.begin());
    return {line, end == lines_.end() ? before_.size() : callsAtLine_[line] - 1};
  }

 private:
  void Note(const std::string& line) {
    lines_.push_back(line);
    callsAtLine_.push_back(before_.size());
    if (line.starts_with("IVssBackupComponents::PrepareForBackup(")) prepared_ = true;
    if (line.starts_with("IVssBackupComponents::DoSnapshotSet(")) underWay_ = true;
    after_.push_back(LeftNow());
    if (line.starts_with("IVssAsync::Wait(")) underWay_ = false;
  }

  Leftovers LeftNow() {
    simulator::Machine& machine = host_.machine();
    Leftovers left{{}, machine.endedSessions, prepared_ && CountShutdowns(*machine.snapshots) == 0 ? 2u : 0u};
    const bool stays = scenario_ != "plain" && (!underWay_ || scenario_.ends_with("-complete"));
    if (!stays) return left;
    for (const ShadowCopy& copy : machine.snapshots->State().copies) {
      left.copies.push_back({copy.originalVolume, copy.device, copy.diskNumber, copy.masked, copy.forgotten});
    }
    return left;
  }

  std::string scenario_;
  simulator::SimulatedHost host_;
  std::vector<Leftovers> before_;
  std::vector<Leftovers> after_;
  std::vector<std::string> lines_;
  std::vector<std::size_t> callsAtLine_;
  bool prepared_ = false;
  bool underWay_ = false;
};

class StateSweep : public testing::TestWithParam<const char*> {
 protected:
  StateSweep() {
    std::string name = testing::UnitTest::GetInstance()->current_test_info()->name();
    std::replace(name.begin(), name.end(), '/', '-');
    folder_ = std::filesystem::temp_directory_path() / ("varnel-" + name);
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directories(folder_);
  }
  ~StateSweep() override {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }

  struct Point {
    std::string_view where;
    std::size_t number;  // from 1
    const Leftovers* left;
  };

  std::string State() const { return (folder_ / "host.state").string(); }
  ChildProgram Start(const std::string& scenario, std::string_view where, std::size_t number) const {
    return ChildProgram({VARNEL_KILLED_PROGRAM, scenario, State(), std::string(where), std::to_string(number)});
  }

  void KillAndLook(const std::string& scenario, const Point& point) {
    SCOPED_TRACE(std::string(point.where) + " " + std::to_string(point.number));
    std::filesystem::remove(State());
    ASSERT_EQ(Start(scenario, point.where, point.number).Wait(), kKilled);
    Look(scenario, *point.left);
  }

  // As another process, whose first call finds the dead one's leftovers and whose set can begin at once.
  void Look(const std::string& scenario, const Leftovers& expected) {
    simulator::SimulatedHost host(KilledHost(scenario));
    host.KeepStateIn(State());
    ComPtr<IVssBackupComponents> backup;
    ASSERT_EQ(host.vss().CreateVssBackupComponents(backup.Put()), S_OK);
    const simulator::SnapshotService& service = *host.machine().snapshots;
    const simulator::ServiceState state = service.State();
    Leftovers found{{}, host.machine().endedSessions, CountShutdowns(service)};
    for (const ShadowCopy& copy : state.copies) {
      found.copies.push_back({copy.originalVolume, copy.device, copy.diskNumber, copy.masked, copy.forgotten});
    }
    EXPECT_EQ(found, expected);
    EXPECT_FALSE(state.openSet);
    EXPECT_TRUE(state.sessions.empty());
    EXPECT_EQ(backup->InitializeForBackup(nullptr), S_OK);
    GUID id{};
    EXPECT_EQ(backup->StartSnapshotSet(&id), S_OK);
  }

 private:
  RecordingLog log_;
  ScopedLog scopedLog_{log_};
  std::filesystem::path folder_;
};

// Of a scenario that goes as "kept" does up to some point, what comes after it and what else leaves something else.
TEST_P(StateSweep, AnotherProcessFindsWhatTheServiceLeaves) {
  const std::string scenario = GetParam();
  const CleanRun clean(scenario);
  const CleanRun kept("kept");
  const bool own = scenario == "plain" || scenario == "kept";
  const auto [firstLine, firstCall] = own ? std::pair<std::size_t, std::size_t>() : clean.PartsFrom(kept);
  std::vector<Point> points;
  const auto add = [&](std::string_view where, const std::vector<Leftovers>& all, const std::vector<Leftovers>& others,
                       std::size_t first) {
    for (std::size_t i = 0; i < all.size(); ++i) {
      if (i >= first || all[i] != others[i]) points.push_back({where, i + 1, &all[i]});
    }
  };
  add(kBeforeCall, clean.before(), kept.before(), firstCall);
  add(kAfterCall, clean.after(), kept.after(), firstLine);
  ASSERT_GT(points.size(), own ? 200u : 2u);
  points = Sample().Of(points);
  const auto start = std::chrono::steady_clock::now();
  for (const Point& point : points) KillAndLook(scenario, point);
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
  std::cout << scenario << ": " << points.size() << " kills" << Sample::Text() << ", " << seconds.count() << " s\n";
}

INSTANTIATE_TEST_SUITE_P(Scenarios, StateSweep, testing::ValuesIn(kKilledScenarios));

class SideBySide : public StateSweep {};

TEST_P(SideBySide, ProcessesTakeTurnsAndLoseNoSet) {
  constexpr std::size_t kProcesses = 4;
  constexpr std::size_t kRounds = 3;
  std::vector<ChildProgram> programs;
  for (std::size_t i = 0; i < kProcesses; ++i) programs.push_back(Start(GetParam(), "rounds", kRounds));
  for (ChildProgram& program : programs) EXPECT_EQ(program.Wait(), 0);
  simulator::SimulatedHost host(KilledHost(GetParam()));
  host.KeepStateIn(State());
  const simulator::ServiceState state = host.machine().snapshots->State();
  EXPECT_EQ(state.copies.size(), 2 * kProcesses * kRounds);
  std::set<std::wstring> devices;
  std::set<DWORD> disks;
  for (const ShadowCopy& copy : state.copies) {
    devices.insert(copy.device);
    disks.insert(copy.diskNumber);
  }
  EXPECT_EQ(devices.size(), state.copies.size());
  EXPECT_EQ(disks.size(), state.copies.size());
}

INSTANTIATE_TEST_SUITE_P(Scenarios, SideBySide, testing::Values("kept"));

}  // namespace
}  // namespace varnel::test
