// A change at a host whose state file holds so many shadow copies, and the first call that sees another process's.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>

#include "simulator/machine/shared_state.h"
#include "simulator/simulated_host.h"
#include "simulator/vss/snapshot_service.h"
#include "tests/support/host_model.h"

namespace varnel::bench {
namespace {

class StateFile : public benchmark::Fixture {
 public:
  void SetUp(benchmark::State& state) override {
    std::filesystem::remove(path_);
    host_ = MakeHost();
    simulator::ServiceState copies;
    for (int i = 0; i < state.range(0); ++i) copies.copies.push_back(MakeCopy(i));
    host_->machine().snapshots->SetState(std::move(copies));
    Change(*host_);
  }
  void TearDown(benchmark::State&) override {
    host_.reset();
    std::filesystem::remove(path_);
    std::filesystem::remove(path_ + ".lock");
  }

 protected:
  std::unique_ptr<simulator::SimulatedHost> MakeHost() const {
    auto host = std::make_unique<simulator::SimulatedHost>(test::SmallHost());
    host->calls().enabled = false;
    host->KeepStateIn(path_);
    return host;
  }
  // Two: a set begins, and is given up.
  static void Change(simulator::SimulatedHost& host) {
    GUID id{};
    simulator::SnapshotService& service = *host.machine().snapshots;
    const simulator::Turn turn(host.machine());
    if (FAILED(service.StartSet(GUID{1, 0, 0, {}}, VSS_CTX_NAS_ROLLBACK, id))) std::abort();
    if (FAILED(service.AbandonSet(GUID{1, 0, 0, {}}))) std::abort();
  }

  std::unique_ptr<simulator::SimulatedHost> host_;

 private:
  static simulator::ShadowCopy MakeCopy(int n) {
    simulator::ShadowCopy copy;
    copy.id.Data1 = static_cast<DWORD>(n);
    copy.originatingMachine = L"SQL01";
    copy.originalVolume = test::VolumeName(1);
    copy.originalSerial = L"TSL0001";
    copy.device = L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy" + std::to_wstring(n);
    copy.diskNumber = static_cast<DWORD>(n + 10);
    copy.serial = L"SHADOW-TSL0001";
    copy.surfaced = true;
    return copy;
  }

  const std::string path_ = (std::filesystem::temp_directory_path() / "varnel-state-bench").string();
};

BENCHMARK_DEFINE_F(StateFile, TwoChanges)(benchmark::State& state) {
  for ([[maybe_unused]] auto _ : state) Change(*host_);
}
BENCHMARK_REGISTER_F(StateFile, TwoChanges)->Arg(1)->Arg(1000)->Unit(benchmark::kMillisecond);

BENCHMARK_DEFINE_F(StateFile, Opening)(benchmark::State& state) {
  for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(MakeHost());
}
BENCHMARK_REGISTER_F(StateFile, Opening)->Arg(1)->Arg(1000)->Unit(benchmark::kMillisecond);

BENCHMARK_DEFINE_F(StateFile, CallWithoutAChange)(benchmark::State& state) {
  wchar_t mountPoint[MAX_PATH];
  for ([[maybe_unused]] auto _ : state) {
    benchmark::DoNotOptimize(host_->storage().GetVolumePathNameW(L"C:\\", mountPoint, MAX_PATH));
  }
}
BENCHMARK_REGISTER_F(StateFile, CallWithoutAChange)->Arg(1000)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace varnel::bench
