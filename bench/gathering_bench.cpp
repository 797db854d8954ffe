// Reading the writers' metadata. The captured server is read when VARNEL_CAPTURES names the folder of its documents.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

#include "bench/hosts.h"
#include "core/varnel.h"
#include "simulator/host_file/documents.h"
#include "simulator/simulated_host.h"

namespace varnel::bench {
namespace {

std::size_t Gather() {
  std::string errorDetails;
  CVarnel requestor(0);
  requestor.Initialize(0, L"", false, VSS_BT_FULL, errorDetails, nullptr);
  requestor.GatherWriterMetadata(errorDetails);
  std::size_t files = 0;
  for (const VssWriter& writer : requestor.GetWriters()) {
    for (const VssComponent& component : writer.components) files += component.files.size();
  }
  return files;
}

simulator::Writer ReadDocument(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return simulator::ParseWriterMetadata(text.str());
}

class Gathering : public benchmark::Fixture {
 protected:
  void Install(simulator::HostModel model) {
    host_ = std::make_unique<simulator::SimulatedHost>(std::move(model));
    host_->calls().enabled = false;
    current_.emplace(*host_);
  }

 public:
  void SetUp(benchmark::State& state) override { Install(MakeHost(static_cast<std::size_t>(state.range(0)), 3)); }
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
    simulator::HostModel model = MakeHost(0, 0);
    model.writers.clear();
    for (int n = 0; n < kDocuments; ++n) {
      model.writers.push_back(ReadDocument(std::filesystem::path(folder) / ("WM" + std::to_string(n) + ".xml")));
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
