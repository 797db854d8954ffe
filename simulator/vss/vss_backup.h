// The backup components object.
#pragma once

#include <memory>

#include "simulator/machine/machine.h"

namespace varnel::simulator {

IVssBackupComponents* MakeBackupComponents(std::shared_ptr<Machine> machine);

}  // namespace varnel::simulator
