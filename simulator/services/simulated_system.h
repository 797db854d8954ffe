// The machine's names, environment and version, and the versions of its files.
#pragma once

#include <memory>

#include "platform/host.h"

namespace varnel::simulator {

class Machine;

std::unique_ptr<SystemInformation> MakeSystemInformation(Machine& machine);
std::unique_ptr<FileVersions> MakeFileVersions(Machine& machine);

}  // namespace varnel::simulator
