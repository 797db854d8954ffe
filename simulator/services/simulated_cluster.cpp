#include "simulator/services/simulated_cluster.h"

#include "simulator/machine/volumes.h"
#include "simulator/services/on_machine.h"

namespace varnel::simulator {
namespace {

class SimulatedCluster final : public OnMachine<Cluster> {
 public:
  using OnMachine::OnMachine;

  DWORD GetNodeClusterState(LPCWSTR node, DWORD* state) override {
    constexpr DWORD kRunning = 0x13;
    return CodeCall<DWORD>(machine_, "GetNodeClusterState", Shown(node), [&]() -> DWORD {
      if (state == nullptr) return ERROR_INVALID_PARAMETER;
      *state = model().cluster ? kRunning : 0;
      return ERROR_SUCCESS;
    });
  }

  BOOL ClusterIsPathOnSharedVolume(LPCWSTR path) override {
    // "No" is an answer and not a failure.
    constexpr BOOL kFailed = -1;
    const BOOL answer = Win32Call(machine_, "ClusterIsPathOnSharedVolume", Shown(path), BOOL{kFailed}, [&] {
      const std::optional<VolumeView> volume =
          model().cluster && path != nullptr ? FindVolumeOfPath(machine_, path) : std::nullopt;
      return volume && volume->volume != nullptr && volume->volume->csv ? TRUE : FALSE;
    });
    return answer == kFailed ? FALSE : answer;
  }
};

}  // namespace

std::unique_ptr<Cluster> MakeCluster(Machine& machine) {
  return std::make_unique<SimulatedCluster>(machine);
}

}  // namespace varnel::simulator
