// The steps of a snapshot set over many components: each must cost in proportion to them.
#include <benchmark/benchmark.h>

#include <optional>

#include "bench/workloads.h"
#include "simulator/simulated_host.h"
#include "tests/support/snapshot_request.h"

namespace varnel::bench {
namespace {

// A requestor on a fresh host, as far as the step before the measured one.
struct PreparedRequest {
  explicit PreparedRequest(const simulator::HostModel& model)
      : host(model), current(host), request({.serialNumbers = DisksOf(model)}) {
    host.calls().enabled = false;
    request.Gather();
  }
  void Select() { request.probe.SelectComponentsForBackup(request.details()); }
  void Add() {
    request.probe.StartSnapshotSet();
    request.probe.AddToSnapshotSet(request.details());
  }
  void Snapshot() {
    request.probe.PrepareForBackup(request.details());
    request.probe.DoSnapshotSet(request.details());
  }

  simulator::SimulatedHost host;
  ScopedHost current;
  test::SnapshotRequest<> request;
};

class Steps : public benchmark::Fixture {
 public:
  void SetUp(benchmark::State& state) override {
    prepared.emplace(FindWorkload("sql").makeHost(static_cast<std::size_t>(state.range(0))));
  }
  void TearDown(benchmark::State&) override { prepared.reset(); }

 protected:
  std::optional<PreparedRequest> prepared;
};

class StepsAfterSelection : public Steps {
 public:
  void SetUp(benchmark::State& state) override {
    Steps::SetUp(state);
    prepared->Select();
    prepared->request.probe.StartSnapshotSet();
  }
};

class StepsAfterSnapshot : public Steps {
 public:
  void SetUp(benchmark::State& state) override {
    Steps::SetUp(state);
    prepared->Select();
    prepared->Add();
    prepared->Snapshot();
  }
};

// The writer fails for every component after the snapshot.
class StepsAfterFailure : public Steps {
 public:
  void SetUp(benchmark::State& state) override {
    Steps::SetUp(state);
    prepared->Select();
    prepared->Add();
    prepared->request.probe.PrepareForBackup(prepared->request.details());
    simulator::WriterFault fault{
        L"SqlServerWriter", simulator::WriterEvent::postSnapshot, VSS_E_WRITERERROR_PARTIAL_FAILURE, 0, L"", {}};
    for (const VssComponent& component : prepared->request.requestor.GetWriters().front().components) {
      fault.components.push_back({component.fullPath, VSS_E_WRITERERROR_RETRYABLE, 1, L"log full"});
    }
    prepared->host.faults().FailWriter(std::move(fault));
    try {
      prepared->request.probe.DoSnapshotSet(prepared->request.details());
    } catch (const VarnelException&) {
      // What the measured step looks at again.
    }
    prepared->request.details().clear();
  }
};

BENCHMARK_DEFINE_F(Steps, Selection)(benchmark::State& state) {
  for ([[maybe_unused]] auto _ : state) prepared->Select();
}
BENCHMARK_DEFINE_F(StepsAfterSelection, AddToSnapshotSet)(benchmark::State& state) {
  for ([[maybe_unused]] auto _ : state) prepared->request.probe.AddToSnapshotSet(prepared->request.details());
}
BENCHMARK_DEFINE_F(StepsAfterSnapshot, Properties)(benchmark::State& state) {
  for ([[maybe_unused]] auto _ : state) prepared->request.probe.GetSnapShotProperties(prepared->request.details());
}
BENCHMARK_DEFINE_F(StepsAfterFailure, WriterStatus)(benchmark::State& state) {
  for ([[maybe_unused]] auto _ : state) {
    try {
      prepared->request.probe.CheckSelectedWriterStatus(prepared->request.details());
    } catch (const VarnelException&) {
      // Every component failed.
    }
  }
}

// Each step changes the requestor, so each run measures it once.
void Register(benchmark::internal::Benchmark* step) {
  step->Arg(1000)->Arg(10000)->Iterations(1)->Unit(benchmark::kMillisecond);
}
BENCHMARK_REGISTER_F(Steps, Selection)->Apply(Register);
BENCHMARK_REGISTER_F(StepsAfterSelection, AddToSnapshotSet)->Apply(Register);
BENCHMARK_REGISTER_F(StepsAfterSnapshot, Properties)->Apply(Register);
BENCHMARK_REGISTER_F(StepsAfterFailure, WriterStatus)->Apply(Register);

}  // namespace
}  // namespace varnel::bench
