// What the requestor's process may do.
#pragma once

#include <memory>

#include "platform/host.h"

namespace varnel::simulator {

class Machine;

std::unique_ptr<ProcessSecurity> MakeProcessSecurity(Machine& machine);

}  // namespace varnel::simulator
