// What the script of a fleet's page makes its tables of: short, as a large fleet has many rows.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "varnelctl/report/fleet/protection.h"

namespace varnelctl::fleet {

/// "2026-01-01 00:00:00 UTC"
std::string TimeText(LONGLONG time);
/// "12.3 s", "4 min 10 s", "2 h 5 min"
std::string DurationText(double seconds);
/// The link to a file beside the page. \param path with '/'.
std::string LinkTo(const std::string& linkBase, const std::string& path);

/// `states` are the signs and words of `hosts` and `objects`; a text that is not one of a name stands in `texts`, once.
nlohmann::json DataOf(const Protection& protection, const std::optional<std::string>& linkBase);

}  // namespace varnelctl::fleet
