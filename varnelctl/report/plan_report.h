// How a plan is shown.
#pragma once

#include "varnelctl/console/console.h"
#include "varnelctl/sets/disks_for.h"
#include "varnelctl/sets/plan_run.h"

namespace varnelctl {

Json PlanDocument(const PlanOutcome& plan);
void PrintPlan(Console& console, const PlanOutcome& plan, bool verbose);

Json DisksForDocument(const DisksFor& found);
void PrintDisksFor(Console& console, const DisksFor& found, Application application);

}  // namespace varnelctl
