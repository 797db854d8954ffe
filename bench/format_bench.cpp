// What one log line and one alert record cost to format.
#include <benchmark/benchmark.h>

#include <string>

#include "text/format.h"

namespace {

void FormatLogLine(benchmark::State& state) {
  const std::wstring component = L"\\SQL01\\sales";
  for ([[maybe_unused]] auto _ : state) {
    benchmark::DoNotOptimize(varnel::FormatWide(L"Add Component=%s , result=0x%08lx", {component, 0x80042301U}));
  }
}
BENCHMARK(FormatLogLine);

void FormatAlertText(benchmark::State& state) {
  const std::wstring error = L"VSS_E_BAD_STATE";
  for ([[maybe_unused]] auto _ : state) {
    benchmark::DoNotOptimize(varnel::FormatNarrow("%s=Failed, error=%S, rc=COMMError, ca=ContactTechSupport;",
                                                  {"m_pVssObject->StartSnapshotSet()", error}));
  }
}
BENCHMARK(FormatAlertText);

}  // namespace
