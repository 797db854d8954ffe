// The page that the evidence of a run begins with.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "varnelctl/evidence/evidence_file.h"

namespace varnelctl {

/// What the run came to, each file with what it is, and what could not be had and why. Needs nothing beside itself.
/// \param run its document, as html::ReadRun gives it. \param anonymised whether names are replaced.
std::string EvidenceIndex(const nlohmann::json& run, const std::vector<EvidenceFile>& files, bool anonymised);

}  // namespace varnelctl
