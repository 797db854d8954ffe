// The planned faults of a host file.
#pragma once

#include "simulator/host_file/json_reader.h"
#include "simulator/machine/model.h"

namespace varnel::simulator {

/// Adds one fault to a model whose disks and writers are read.
void ReadFault(const JsonNode& node, HostModel& model);

}  // namespace varnel::simulator
