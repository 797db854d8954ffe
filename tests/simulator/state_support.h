// Simulated hosts that share a state file as processes do: each opens the file for itself.
#pragma once

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "simulator/machine/shared_state.h"
#include "tests/simulator/backup.h"
#include "tests/support/files.h"

namespace varnel::test {

inline constexpr LONG kPersistent = VSS_CTX_APP_ROLLBACK;

/// One process with the host.
class Process {
 public:
  Process(HostModel model, const std::filesystem::path& state)
      : host_(std::make_unique<simulator::SimulatedHost>(std::move(model))) {
    host_->KeepStateIn(state);
  }

  simulator::SimulatedHost& host() { return *host_; }
  simulator::SnapshotService& service() { return *host_->machine().snapshots; }
  /// Ends as a killed process does: the system takes back its locks, and nobody tells the service. What it still does
  /// reaches nobody.
  void Die() { host_->machine().shared.reset(); }

 private:
  std::unique_ptr<simulator::SimulatedHost> host_;
};

class StateFixture : public testing::Test {
 protected:
  StateFixture() {
    const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
    folder_ = std::filesystem::temp_directory_path() / (std::string("varnel-state-") + test->name());
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directories(folder_);
  }
  ~StateFixture() override {
    current_.reset();
    first_.reset();
    second_.reset();
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }

  void SetUp() override { Begin(VssHost()); }
  /// Both processes anew, over a state that is kept unless the file is removed.
  void Begin(const HostModel& model) {
    current_.reset();
    first_.reset();
    second_.reset();
    first_ = std::make_unique<Process>(model, StatePath());
    second_ = std::make_unique<Process>(model, StatePath());
    InFirst();
  }
  Process& first() { return *first_; }
  Process& second() { return *second_; }
  void InFirst() { Use(*first_); }
  void InSecond() { Use(*second_); }
  void Use(Process& process) {
    current_.reset();
    current_.emplace(process.host());
  }

  std::filesystem::path StatePath() const { return folder_ / "host.state"; }
  std::string StateText() const { return ReadFile(StatePath()); }
  void WriteState(const std::string& text) const { std::ofstream(StatePath(), std::ios::binary) << text; }
  /// Nothing is written any more: the place of the new file is taken.
  void BlockWrites() const { std::filesystem::create_directory(NewFile()); }
  void AllowWrites() const { std::filesystem::remove(NewFile()); }
  std::filesystem::path NewFile() const { return folder_ / "host.state.new"; }

  /// What the current process sees of all shadow copies, by another object: "E: masked" and so on.
  static std::vector<std::wstring> Listed() {
    Backup backup;
    backup.Initialize(static_cast<LONG>(VSS_CTX_ALL));
    ComPtr<IVssEnumObject> list;
    EXPECT_TRUE(SUCCEEDED(backup->Query(GUID{}, VSS_OBJECT_NONE, VSS_OBJECT_SNAPSHOT, list.Put())));
    std::vector<std::wstring> devices;
    for (;;) {
      VSS_OBJECT_PROP object{};
      ULONG fetched = 0;
      list->Next(1, &object, &fetched);
      if (fetched == 0) return devices;
      devices.emplace_back(object.Obj.Snap.m_pwszSnapshotDeviceObject);
      CurrentHost().vss().VssFreeSnapshotProperties(&object.Obj.Snap);
    }
  }
  static HRESULT StartSet() {
    Backup backup(Phase::gathered);
    GUID id{};
    return backup->StartSnapshotSet(&id);
  }

 private:
  std::filesystem::path folder_;
  std::unique_ptr<Process> first_;
  std::unique_ptr<Process> second_;
  std::optional<ScopedHost> current_;
};

}  // namespace varnel::test
