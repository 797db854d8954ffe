// The failover cluster.
#pragma once

#include <memory>

#include "platform/host.h"

namespace varnel::simulator {

class Machine;

std::unique_ptr<Cluster> MakeCluster(Machine& machine);

}  // namespace varnel::simulator
