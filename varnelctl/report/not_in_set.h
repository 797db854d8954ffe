// What of the application is not in a set, why not and what to do about it, in as few lines as that takes.
#pragma once

#include <string>
#include <vector>

#include "varnelctl/explanation/objects.h"

namespace varnelctl {

/// A line for each object of the application that is not in the set, and for each other component with files that its
/// writers have. What is left out only because the request ended is not among them.
std::vector<std::string> LinesNotInSet(const Explanation& explanation, const std::vector<ApplicationObject>& objects,
                                       Application application);

/// "9 writers of other applications"; empty where there are none.
std::string OtherWritersText(const Explanation& explanation);
/// Their names.
std::vector<std::string> OtherWriters(const Explanation& explanation);

}  // namespace varnelctl
