// What the evidence of a run consists of besides what the run itself found. Each collector asks one question; what it
// fails over is the reason why its file is not there.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "varnelctl/evidence/evidence_file.h"
#include "varnelctl/explanation/exit_status.h"
#include "varnelctl/session.h"

namespace varnelctl {

/// Asks the current host for what its run, whose request is over and ended so, did not hand over. After a run that
/// ended well the service is asked nothing, nor after one that was made to end.
/// \param milliseconds that the writers may take to answer once more; nothing where they are not to be asked any more.
void CollectFromHost(const Session& session, ExitStatus status, std::optional<unsigned long long> milliseconds,
                     FoundEvidence& found);
/// The same where there is no host.
void CollectWithoutHost(const Session& session, FoundEvidence& found);
/// The same where a call to the host hangs, on another thread than that of the run.
void CollectWhileHung(const Session& session, FoundEvidence& found);

// What the commands hand over themselves.

/// \param xml empty where there is none.
EvidenceFile DocumentEvidence(std::string xml);
EvidenceFile CatalogEvidence(const Json& catalog);

}  // namespace varnelctl
