// Runs as one HTML page that needs nothing beside itself: everybody can open it, wherever it was sent to.
#pragma once

#include <string>
#include <vector>

#include "varnelctl/report/html/run_file.h"

namespace varnelctl::html {

/// The page of one run; of several, what changed from each to the next, and then each run by itself, the last first.
/// Runs follow each other by their start, those of the same start as they stand.
std::string ReportPage(std::vector<StoredRun> runs);

}  // namespace varnelctl::html
