// What other programs read about varnelctl's command line: completions of shells and the manual page.
#pragma once

#include <string>
#include <vector>

#include "varnelctl/shells/command_words.h"

namespace varnelctl {

/// A script for bash that completes commands, options and their values. It needs nothing but bash 4.4.
std::string BashCompletion(const std::vector<CommandWords>& commands);
/// A script for Windows PowerShell 5.1 and later that does the same.
std::string PowerShellCompletion(const std::vector<CommandWords>& commands);
/// The manual page varnelctl(1), for man or mandoc. \param released the day of the version, as YYYY-MM-DD.
std::string ManualPage(const std::vector<CommandWords>& commands, const std::string& version,
                       const std::string& released);

}  // namespace varnelctl
