// What the doctor found, as people read it and as JSON.
#pragma once

#include "varnelctl/console/console.h"
#include "varnelctl/doctor/doctor.h"

namespace varnelctl {

Json DoctorDocument(const Diagnosis& diagnosis);

void PrintDiagnosis(Console& console, const Diagnosis& diagnosis);

/// "15 checks: 1 error, 2 notes; 3 more with --disk"
std::string SummaryOf(const Diagnosis& diagnosis);

}  // namespace varnelctl
