// The applications that a snapshot can be consistent for.
#pragma once

#include <memory>

#include "core/varnel.h"
#include "varnelctl/commands/snapshot_options.h"

namespace varnelctl {

/// The requestor of the application that was asked for.
std::unique_ptr<CVarnel> MakeRequestor(const SnapshotOptions& options);

}  // namespace varnelctl
