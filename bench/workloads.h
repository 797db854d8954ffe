// Hosts of the kinds that grow large, and the requestor that each is made for.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "core/varnel.h"
#include "simulator/machine/model.h"

namespace varnel::bench {

/// What a bare requestor needs to know of a host: which writers take part.
struct Workload {
  std::string name;
  std::string what;  ///< for the report
  std::function<simulator::HostModel(std::size_t n)> makeHost;
  std::vector<std::wstring> writerIds;  ///< of the writers that take part; empty: all
  std::function<std::unique_ptr<CVarnel>()> makeRequestor;
  int application;  ///< that requestor's in the C interface
};

const std::vector<Workload>& Workloads();
/// Throws std::invalid_argument for a name that no workload has.
const Workload& FindWorkload(const std::string& name);

/// A system disk and 64 of the array, each with a volume.
simulator::HostModel HostWithoutWriters();
/// The serial numbers of the disks that hold files: a protection set without extra volumes.
std::vector<std::wstring> DisksOf(const simulator::HostModel& model);
/// Files that the writers of the model name.
std::size_t CountFiles(const simulator::HostModel& model);

}  // namespace varnel::bench
