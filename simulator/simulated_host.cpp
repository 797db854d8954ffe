#include "simulator/simulated_host.h"

#include <utility>

#include "simulator/machine/shared_state.h"
#include "simulator/services/kernel_objects.h"
#include "simulator/services/simulated_cluster.h"
#include "simulator/services/simulated_event_log.h"
#include "simulator/services/simulated_iscsi.h"
#include "simulator/services/simulated_messages.h"
#include "simulator/services/simulated_metadata.h"
#include "simulator/services/simulated_processes.h"
#include "simulator/services/simulated_registry.h"
#include "simulator/services/simulated_runtime.h"
#include "simulator/services/simulated_security.h"
#include "simulator/services/simulated_service_manager.h"
#include "simulator/services/simulated_space.h"
#include "simulator/services/simulated_storage.h"
#include "simulator/services/simulated_system.h"
#include "simulator/services/simulated_vss.h"

namespace varnel::simulator {

SimulatedHost::SimulatedHost(HostModel model)
    : machine_(std::make_shared<Machine>(std::move(model))),
      objects_(std::make_unique<KernelObjects>(*machine_)),
      vss_(MakeVssService(machine_)),
      storage_(MakeStorage(*machine_, *objects_)),
      processes_(MakeProcesses(*machine_, *objects_)),
      registry_(MakeRegistry(*machine_)),
      system_(MakeSystemInformation(*machine_)),
      messages_(MakeMessages(*machine_)),
      iscsi_(MakeIscsiInitiator(*machine_)),
      cluster_(MakeCluster(*machine_)),
      wmi_(MakeWmiDisks(*machine_)),
      files_(MakeFileVersions(*machine_)),
      heap_(MakeHeap(*machine_)),
      time_(MakeTime(*machine_)),
      metadata_(MakeMetadataService(*machine_)),
      eventLog_(MakeEventLog(*machine_)),
      services_(MakeServiceManager(*machine_)),
      security_(MakeProcessSecurity(*machine_)),
      space_(MakeVolumeSpace(*machine_)) {}

SimulatedHost::~SimulatedHost() {
  machine_->faults.hangs().EndAndJoin();
}

void SimulatedHost::KeepStateIn(const std::filesystem::path& file) {
  machine_->shared = std::make_unique<SharedState>(*machine_, file);
}

}  // namespace varnel::simulator
