// Hosts compared by what they mean, and what of a host a capture cannot know.
#pragma once

#include <string>

#include "simulator/machine/model.h"

namespace varnel::test {

/// The host as a capture of it can be: without what nobody can ask it, and with what it has by default in so many
/// values. This is the one place that says what a capture does not bring back.
simulator::HostModel AsCaptured(simulator::HostModel model);

/// Where two hosts mean different things, the order of keys and written defaults apart: the first place, as
/// each has it, with what stands around it. Empty when they mean the same.
std::string Difference(const simulator::HostModel& one, const simulator::HostModel& other);

}  // namespace varnel::test
