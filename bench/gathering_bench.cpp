// Reading the writers' metadata. The captured server is read when VARNEL_CAPTURES names the folder of its documents.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <optional>

#include "bench/workloads.h"
#include "simulator/host_file/documents.h"
#include "simulator/simulated_host.h"
#include "tests/support/files.h"
#include "tests/support/snapshot_request.h"

namespace varnel::bench {
namespace {

std::size_t Gather() {
  test::SnapshotRequest request({.serialNumbers = {}});
  request.Gather();
  std::size_t files = 0;
  for (const VssWriter& writer : request.requestor.GetWriters()) {
    for (const VssComponent& component : writer.components) files += component.files.size();
  }
  return files;
}

class Gathering : public benchmark::Fixture {
 protected:
  void Install(simulator::HostModel model) {
    host_ = std::make_unique<simulator::SimulatedHost>(std::move(model));
    host_->calls().enabled = false;
    current_.emplace(*host_);
  }

 public:
  void SetUp(benchmark::State& state) override {
    Install(FindWorkload("sql").makeHost(static_cast<std::size_t>(state.range(0))));
  }
  void TearDown(benchmark::State&) override {
    current_.reset();
    host_.reset();
  }

 private:
  std::unique_ptr<simulator::SimulatedHost> host_;
  std::optional<ScopedHost> current_;
};

class GatheringCapturedServer : public Gathering {
 public:
  void SetUp(benchmark::State& state) override {
    constexpr int kDocuments = 11;
    const char* folder = std::getenv("VARNEL_CAPTURES");
    if (folder == nullptr || !std::filesystem::exists(folder)) {
      state.SkipWithError("VARNEL_CAPTURES names no folder");
      return;
    }
    simulator::HostModel model = HostWithoutWriters();
    for (int n = 0; n < kDocuments; ++n) {
      const std::filesystem::path document = std::filesystem::path(folder) / ("WM" + std::to_string(n) + ".xml");
      model.writers.push_back(simulator::ParseWriterMetadata(test::ReadFile(document)));
    }
    Install(std::move(model));
  }
};

BENCHMARK_DEFINE_F(Gathering, Components)(benchmark::State& state) {
  std::size_t files = 0;
  for ([[maybe_unused]] auto _ : state) files = Gather();
  state.counters["files"] = static_cast<double>(files);
}
BENCHMARK_REGISTER_F(Gathering, Components)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

BENCHMARK_DEFINE_F(GatheringCapturedServer, Documents)(benchmark::State& state) {
  std::size_t files = 0;
  for ([[maybe_unused]] auto _ : state) files = Gather();
  state.counters["files"] = static_cast<double>(files);
}
BENCHMARK_REGISTER_F(GatheringCapturedServer, Documents)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace varnel::bench
