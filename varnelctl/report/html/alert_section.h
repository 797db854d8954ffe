// The alert records of a run, taken apart.
#pragma once

#include <string>
#include <string_view>

namespace varnelctl::html {

/// Of each kind of record what it means, what to do and whom to ask, its records with their fields, and what their
/// codes mean. Empty without records. \param errorDetails UTF-8.
std::string AlertSection(std::string_view errorDetails);

}  // namespace varnelctl::html
