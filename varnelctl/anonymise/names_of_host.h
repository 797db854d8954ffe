// The names that a host has, and a host without them.
#pragma once

#include <string_view>

#include "simulator/machine/model.h"
#include "varnelctl/anonymise/anonymiser.h"

namespace varnelctl {

/// Tells the anonymiser every name of the host: of itself, its domain and cluster, its disks, volumes and targets, its
/// databases, instances and virtual machines, and of folders and files other than those of Windows. Writers of the
/// system, which are known by their identifiers, have no names but those of their files.
void AddNames(const varnel::simulator::HostModel& host, Anonymiser& names);

/// Tells it the identifiers of volumes in a text (UTF-8).
void AddVolumesIn(std::string_view text, Anonymiser& names);

/// The host with its names replaced, its writers' documents and its fault plan too. Serial numbers, volumes and paths
/// stay as different from each other as they were.
varnel::simulator::HostModel WithoutNames(varnel::simulator::HostModel host, Anonymiser& names);

}  // namespace varnelctl
