// The whole program but for its process: tests call it in theirs.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "varnelctl/console/interruption.h"
#include "varnelctl/console/terminal.h"

namespace varnelctl {

/// Runs varnelctl. \param arguments UTF-8, without the program's name. \param terminals what `out` and `err` lead to.
/// \param interruption how the user can end a run that must not just stop. \return the exit status.
int RunVarnelctl(std::vector<std::string> arguments, std::ostream& out, std::ostream& err,
                 const Terminals& terminals = {}, InterruptionSource interruption = {});

}  // namespace varnelctl
