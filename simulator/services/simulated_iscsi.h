// The iSCSI initiator.
#pragma once

#include <memory>

#include "platform/host.h"

namespace varnel::simulator {

class Machine;

std::unique_ptr<IscsiInitiator> MakeIscsiInitiator(Machine& machine);

}  // namespace varnel::simulator
