// What changed in the set from one run to the next.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "varnelctl/report/html/run_file.h"

namespace varnelctl::html {

/// An object is known by its writer and path, whatever it is called.
std::wstring KeyOf(const nlohmann::json& object);

/// Each list names objects or disks by their order in the run that has them.
struct Changes {
  std::vector<std::string> lost;          ///< captured then and not now: "NAME: REASON"
  std::vector<std::string> gained;        ///< captured now and not then, though it was there
  std::vector<std::string> added;         ///< there now and not then: "NAME: captured" or "NAME: REASON"
  std::vector<std::string> removed;       ///< there then and not now
  std::vector<std::string> disksAdded;    ///< asked for now and not then
  std::vector<std::string> disksRemoved;  ///< asked for then and not now

  bool IsNone() const {
    return lost.empty() && gained.empty() && added.empty() && removed.empty() && disksAdded.empty() &&
           disksRemoved.empty();
  }
};

Changes ChangesOf(const nlohmann::json& before, const nlohmann::json& now);

/// A table of the runs and what changed with the last of them. At least two runs, in their order.
std::string Comparison(const std::vector<StoredRun>& runs);

}  // namespace varnelctl::html
