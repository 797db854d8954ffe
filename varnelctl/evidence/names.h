// The names in the evidence of a run, for evidence without them.
#pragma once

#include <vector>

#include "core/varnel.h"
#include "simulator/machine/model.h"
#include "varnelctl/anonymise/anonymiser.h"
#include "varnelctl/evidence/evidence_file.h"
#include "varnelctl/report/header.h"

namespace varnelctl {

/// What the library knows of the writers: enough to know their names.
std::vector<varnel::simulator::Writer> WritersOf(const std::vector<VssWriter>& writers);

/// Adds the names of the current host, which is asked for them but for its service, and of the writers.
void AddNamesOfHost(std::vector<varnel::simulator::Writer> writers, Anonymiser& names);
/// Reads the documents of writers among the files: what they tell takes the place of the same writers in `writers`. A
/// document that cannot be read is taken out of its file, as nobody knows the names in it.
void ReadWriterDocuments(std::vector<EvidenceFile>& files, std::vector<varnel::simulator::Writer>& writers);
/// Adds what the document of a run names: the host, serial numbers, places of files on the command line.
void AddNamesOfRun(const Header& header, const Json& run, Anonymiser& names);

/// Replaces the names in a file, by the kind that its name tells, and in what is said of it.
void ReplaceNames(EvidenceFile& file, Anonymiser& names);
/// The document of a run without its names: the words of the format stay.
Json WithoutNames(Json run, Anonymiser& names);

}  // namespace varnelctl
