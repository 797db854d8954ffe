// External programs: they are looked for where the system looks, the first command of the model that lies there and
// matches runs, and has ended at once.
#pragma once

#include <memory>

#include "platform/host.h"

namespace varnel::simulator {

class KernelObjects;
class Machine;

std::unique_ptr<Processes> MakeProcesses(Machine& machine, KernelObjects& objects);

}  // namespace varnel::simulator
