// The check of Exchange's files on a snapshot, with more to say about its failure than the library.
#pragma once

#include "core/varnel.h"

namespace varnelctl {

/// Verifies the requestor's set with the checker of the PATH or else of the installation, never with one that lies in
/// the user's folder. Throws FailedCheck for a checker that is missing and for one that ends with an exit code, else
/// what VerifySnapShotData throws.
void VerifyExchangeFiles(CVarnel& requestor);

}  // namespace varnelctl
