// The metadata service: databases of a disk, network names of the cluster.
#pragma once

#include <memory>

#include "platform/host.h"

namespace varnel::simulator {

class Machine;

std::unique_ptr<MetadataService> MakeMetadataService(Machine& machine);

}  // namespace varnel::simulator
