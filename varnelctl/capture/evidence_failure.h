// The failure of a stored run as a fault plan.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "simulator/machine/model.h"

namespace varnelctl {

/// Adds what makes the run of this document fail in the same way on the host, whose writers are known already.
/// \param calls the run's calls on a simulated host; empty where there are none.
void AddFailure(const nlohmann::json& run, const std::string& calls, varnel::simulator::HostModel& host);

}  // namespace varnelctl
