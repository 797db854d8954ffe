// Message tables, modules and their string tables.
#pragma once

#include <memory>

#include "platform/host.h"

namespace varnel::simulator {

class Machine;

std::unique_ptr<Messages> MakeMessages(Machine& machine);

}  // namespace varnel::simulator
