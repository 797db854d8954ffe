// A fleet as one HTML page that needs nothing beside itself, but links to what lies in the fleet's folder.
#pragma once

#include <optional>
#include <string>

#include "varnelctl/report/fleet/protection.h"

namespace varnelctl::fleet {

/// \param linkBase path from the page's folder to that of the last run, with '/'; nothing for a page without links.
std::string FleetPage(const Protection& protection, const std::optional<std::string>& linkBase);

}  // namespace varnelctl::fleet
