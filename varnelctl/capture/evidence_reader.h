// A host made of what the evidence of a run tells of it.
#pragma once

#include <string>

#include "varnelctl/capture/host_reader.h"

namespace varnelctl {

/// Reads a folder of --evidence. The host's fault plan has the failure of the run, so that the same command meets it
/// again. Throws UsageError, which names the file and the place, for a folder that is no evidence or lacks a part that
/// no host can do without.
CapturedHost ReadEvidence(const std::string& folder);

}  // namespace varnelctl
