// The steps of a snapshot set over many components: each must cost in proportion to them.
#include <benchmark/benchmark.h>

#include <memory>
#include <optional>

#include "bench/hosts.h"
#include "core/varnel.h"
#include "simulator/simulated_host.h"
#include "tests/support/requestor_probe.h"

namespace varnel::bench {
namespace {

constexpr std::size_t kFilesPerComponent = 3;

// A requestor on a fresh host, as far as the step before the measured one.
struct Request {
  explicit Request(std::size_t components) : host(MakeHost(components, kFilesPerComponent)), current(host) {
    host.calls().enabled = false;
    requestor.SetInputDriveSerialNos(AllSerials());
    requestor.Initialize(0, L"", false, VSS_BT_FULL, errorDetails, &enumerator);
    requestor.GatherWriterMetadata(errorDetails);
  }
  void Select() { probe.SelectComponentsForBackup(errorDetails); }
  void Add() {
    probe.StartSnapshotSet(errorDetails);
    probe.AddToSnapshotSet(errorDetails);
  }
  void Snapshot() {
    probe.PrepareForBackup(errorDetails);
    probe.DoSnapshotSet(errorDetails);
  }

  simulator::SimulatedHost host;
  ScopedHost current;
  TesselCommonClasses::DiskAndVolumeEnumerator enumerator;
  CVarnel requestor{0};
  RequestorProbe probe{requestor};
  std::string errorDetails = "writer=0,";
};

class Steps : public benchmark::Fixture {
 public:
  void SetUp(benchmark::State& state) override {
    request = std::make_unique<Request>(static_cast<std::size_t>(state.range(0)));
  }
  void TearDown(benchmark::State&) override { request.reset(); }

 protected:
  std::unique_ptr<Request> request;
};

class StepsAfterSelection : public Steps {
 public:
  void SetUp(benchmark::State& state) override {
    Steps::SetUp(state);
    request->Select();
    request->probe.StartSnapshotSet(request->errorDetails);
  }
};

class StepsAfterSnapshot : public Steps {
 public:
  void SetUp(benchmark::State& state) override {
    Steps::SetUp(state);
    request->Select();
    request->Add();
    request->Snapshot();
  }
};

// The writer fails for every component after the snapshot.
class StepsAfterFailure : public Steps {
 public:
  void SetUp(benchmark::State& state) override {
    Steps::SetUp(state);
    request->Select();
    request->Add();
    request->probe.PrepareForBackup(request->errorDetails);
    simulator::WriterFault fault{
        L"Bench Writer", simulator::WriterEvent::postSnapshot, VSS_E_WRITERERROR_PARTIAL_FAILURE, 0, L"", {}};
    for (const VssComponent& component : request->requestor.GetWriters().front().components) {
      fault.components.push_back({component.fullPath, VSS_E_WRITERERROR_RETRYABLE, 1, L"log full"});
    }
    request->host.faults().FailWriter(std::move(fault));
    try {
      request->probe.DoSnapshotSet(request->errorDetails);
    } catch (const VarnelException&) {
      // What the measured step looks at again.
    }
    request->errorDetails.clear();
  }
};

BENCHMARK_DEFINE_F(Steps, Selection)(benchmark::State& state) {
  for ([[maybe_unused]] auto _ : state) request->Select();
}
BENCHMARK_DEFINE_F(StepsAfterSelection, AddToSnapshotSet)(benchmark::State& state) {
  for ([[maybe_unused]] auto _ : state) request->probe.AddToSnapshotSet(request->errorDetails);
}
BENCHMARK_DEFINE_F(StepsAfterSnapshot, Properties)(benchmark::State& state) {
  for ([[maybe_unused]] auto _ : state) request->probe.GetSnapShotProperties(request->errorDetails);
}
BENCHMARK_DEFINE_F(StepsAfterFailure, WriterStatus)(benchmark::State& state) {
  for ([[maybe_unused]] auto _ : state) {
    try {
      request->probe.CheckSelectedWriterStatus(request->errorDetails);
    } catch (const VarnelException&) {
      // Every component failed.
    }
  }
}

// Each step changes the requestor, so each run measures it once.
BENCHMARK_REGISTER_F(Steps, Selection)->Arg(1000)->Arg(10000)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_REGISTER_F(StepsAfterSelection, AddToSnapshotSet)
    ->Arg(1000)
    ->Arg(10000)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_REGISTER_F(StepsAfterSnapshot, Properties)
    ->Arg(1000)
    ->Arg(10000)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_REGISTER_F(StepsAfterFailure, WriterStatus)
    ->Arg(1000)
    ->Arg(10000)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace varnel::bench
