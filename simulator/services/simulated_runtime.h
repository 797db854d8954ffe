// The heap, whose blocks are counted and whose "malloc" the fault plan can make fail, and the virtual clock.
#pragma once

#include <memory>

#include "platform/host.h"

namespace varnel::simulator {

class Machine;

std::unique_ptr<Heap> MakeHeap(Machine& machine);
std::unique_ptr<Time> MakeTime(Machine& machine);

}  // namespace varnel::simulator
