// The registry: keys and text values.
#pragma once

#include <memory>

#include "platform/host.h"

namespace varnel::simulator {

class Machine;

std::unique_ptr<Registry> MakeRegistry(Machine& machine);

}  // namespace varnel::simulator
