// The event log of a host file.
#pragma once

#include <vector>

#include "simulator/host_file/json_reader.h"
#include "simulator/machine/model.h"

namespace varnel::simulator {

LoggedEvent ReadEvent(const JsonNode& node);

}  // namespace varnel::simulator
