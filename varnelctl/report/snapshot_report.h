// How a snapshot is shown: one JSON document, or text that ends with what a person wants to know.
#pragma once

#include "varnelctl/commands/snapshot_run.h"
#include "varnelctl/console/console.h"

namespace varnelctl {

Json SnapshotDocument(const SnapshotRun& run);
Json CatalogDocument(const SnapshotRun& run);
void PrintSnapshot(Console& console, const SnapshotRun& run);

}  // namespace varnelctl
