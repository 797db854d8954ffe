// The parts of the text that a run and a plan share.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "varnelctl/console/console.h"
#include "varnelctl/explanation/explanation.h"

namespace varnelctl {

/// The first lines under a heading, or with `verbose` all of them; nothing where there are none. `noun` is what a line
/// stands for.
void PrintLines(Console& console, const std::string& heading, const std::vector<std::string>& lines,
                std::string_view noun, bool verbose);

/// Every captured component under its writer's name.
void PrintCaptured(Console& console, const std::string& heading, const Explanation& explanation);
/// Every writer and component that is left out, and why.
void PrintLeftOut(Console& console, const Explanation& explanation);
/// How many writers of other applications there are, or with `verbose` which.
void PrintOtherWriters(Console& console, const Explanation& explanation, bool verbose);

/// The name of the HRESULT that the component failed with.
std::string FailureName(const VssComponent& component);

}  // namespace varnelctl
