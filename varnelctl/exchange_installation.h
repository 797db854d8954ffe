// Where this host's Exchange server is installed.
#pragma once

#include <string>

namespace varnelctl {

/// The folder of its programs with a backslash at its end, by the same rules as the requestor's own look-up; empty when
/// the registry knows of no installation.
std::wstring ExchangeProgramFolder();

}  // namespace varnelctl
