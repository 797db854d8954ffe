// Host files, written.
#pragma once

#include <string>
#include <vector>

#include "simulator/machine/model.h"

namespace varnel::simulator {

/// The text of a host file that reads as this model: what a host file has by default is left out, and equal models give
/// equal texts. Writers are their documents alone, with what no document says beside them. Of what happens on a host
/// the failures of calls, operations and writers are written. \param documents the file of each writer's document,
/// relative to the host file, as the model has them. \param comments lines that stand before the rest, for people
/// (UTF-8).
std::string FormatHostFile(const HostModel& model, const std::vector<std::string>& documents,
                           const std::vector<std::string>& comments = {});

}  // namespace varnel::simulator
