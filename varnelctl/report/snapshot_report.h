// How a snapshot is shown: one JSON document, or text that ends with what a person wants to know.
#pragma once

#include <string>

#include "varnelctl/console/console.h"
#include "varnelctl/sets/snapshot_run.h"

namespace varnelctl {

/// "Snapshot set {...}: kept until it is deleted"
std::string DescribeSet(const SnapshotOutcome& outcome);
Json SnapshotDocument(const SnapshotOutcome& outcome);
Json CatalogDocument(const SnapshotOutcome& outcome);
void PrintSnapshot(Console& console, const SnapshotOutcome& outcome);

}  // namespace varnelctl
