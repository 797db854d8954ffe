// The event log.
#pragma once

#include <memory>

#include "platform/host.h"

namespace varnel::simulator {

class Machine;

std::unique_ptr<EventLog> MakeEventLog(Machine& machine);

}  // namespace varnel::simulator
