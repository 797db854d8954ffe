// The services of Windows.
#pragma once

#include <memory>
#include <optional>
#include <string_view>

#include "platform/host.h"
#include "simulator/machine/model.h"

namespace varnel::simulator {

class Machine;

/// As the model or, for those that every Windows has, the system says it; nothing when there is none of that name.
std::optional<Service> FindService(const HostModel& model, std::wstring_view name);

std::unique_ptr<ServiceManager> MakeServiceManager(Machine& machine);

}  // namespace varnel::simulator
