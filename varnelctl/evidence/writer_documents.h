// The documents in which writers describe themselves, asked for once more.
#pragma once

#include <vector>

#include "varnelctl/console/interruption.h"
#include "varnelctl/evidence/evidence_file.h"

namespace varnelctl {

/// Asks every writer, on a backup object of its own, and waits at most so many milliseconds: what lasts longer, or is
/// interrupted, is cancelled. A writer whose document cannot be had is named with the reason. Throws CallFailure where
/// none can be had, Interrupted where somebody did not want to wait.
std::vector<EvidenceFile> AskForWriterDocuments(const Interruption* interruption, unsigned long long most);

}  // namespace varnelctl
