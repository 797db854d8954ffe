// The steps of a run on its time, and how its writers fared.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace varnelctl::html {

/// Empty where the run had no steps.
std::string Timeline(const nlohmann::json& run);

}  // namespace varnelctl::html
