// What every page has around its content: style, content security policy and script, all in itself.
#pragma once

#include <string>

namespace varnelctl::html {

enum class Script { None, OfRuns, OfFleet };

/// \param title plain text. \param content markup, what is in the page's `main`.
std::string WholePage(const std::string& title, const std::string& content, Script script);

}  // namespace varnelctl::html
