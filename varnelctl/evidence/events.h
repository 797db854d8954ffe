// What the event log says of the time of a run.
#pragma once

#include <string>
#include <vector>

#include "varnelctl/evidence/evidence_file.h"

namespace varnelctl {

/// Of the channels Application and System the entries of the service, its providers, the writers' applications, the
/// initiator and the disks; of the channels of the application all. Two files of each: as people read them, and as the
/// event log has them.
/// \param application in the words of the command line; empty where none was asked for.
/// \param providers names of registered providers. \param from, to UTC, in FILETIME's units.
std::vector<EvidenceFile> ReadEventEvidence(const std::string& application, const std::vector<std::string>& providers,
                                            long long from, long long to);

}  // namespace varnelctl
