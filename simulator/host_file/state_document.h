// The JSON document that keeps the state of a host between its processes.
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include "simulator/machine/model.h"
#include "simulator/vss/snapshot_service.h"

namespace varnel::simulator {

struct HostState {
  ServiceState service;
  std::set<std::size_t> endedSessions;  // by index in the model's iscsiSessions
  std::vector<LoggedEvent> newEvents;
};

/// The text of a state, and which host it is of.
std::string FormatHostState(HostState state, const HostModel& model);
/// Throws JsonError, also for the state of another host.
HostState ParseHostState(const std::string& text, const HostModel& model);

}  // namespace varnel::simulator
