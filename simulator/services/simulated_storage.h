// Volumes, disks and their handles, as Win32 and as WMI show them.
#pragma once

#include <memory>

#include "platform/host.h"

namespace varnel::simulator {

class KernelObjects;
class Machine;

std::unique_ptr<Storage> MakeStorage(Machine& machine, KernelObjects& objects);
std::unique_ptr<WmiDisks> MakeWmiDisks(Machine& machine);

}  // namespace varnel::simulator
