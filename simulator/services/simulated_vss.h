// Creation of the service's objects, and the memory that they hand out.
#pragma once

#include <memory>

#include "platform/host.h"

namespace varnel::simulator {

class Machine;

std::unique_ptr<VssService> MakeVssService(std::shared_ptr<Machine> machine);

}  // namespace varnel::simulator
