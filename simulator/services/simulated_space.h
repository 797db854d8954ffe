// The room on volumes.
#pragma once

#include <memory>

#include "platform/host.h"

namespace varnel::simulator {

class Machine;

std::unique_ptr<VolumeSpace> MakeVolumeSpace(Machine& machine);

}  // namespace varnel::simulator
