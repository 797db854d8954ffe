// The steps of a run on its time, and how its writers fared.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace varnelctl::html {

/// When the step that takes the snapshot ended, in milliseconds since the run began; 0 of a run without one.
long long EndOfSnapshot(const nlohmann::json& run);

/// Empty where the run had no steps.
std::string Timeline(const nlohmann::json& run);

}  // namespace varnelctl::html
