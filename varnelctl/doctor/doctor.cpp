#include "varnelctl/doctor/doctor.h"

#include <algorithm>

#include "varnelctl/report/verdict.h"

namespace varnelctl {
namespace {

// Empty where the check can be made.
std::string WhatLacks(const Check& check, const Session& session, const DoctorOptions& options) {
  if (check.needs == Needs::Nothing) return {};
  if (check.needs == Needs::Journal) return session.journal ? "" : "a journal";
  const bool lacksApplication = !options.application;
  if (options.disks.empty()) return lacksApplication ? "--app and --disk" : "--disk";
  return lacksApplication && check.needs == Needs::ApplicationAndDisks ? "--app" : "";
}

class Examiner {
 public:
  Examiner(Session& session, const DoctorOptions& options) : session_(session), options_(options) {}

  Diagnosis Run() {
    for (const Check& check : AllChecks()) {
      Make(check);
      NotePlan();
      if (diagnosis_.stopped) break;
    }
    std::stable_sort(diagnosis_.findings.begin(), diagnosis_.findings.end(),
                     [](const FoundBy& a, const FoundBy& b) { return a.finding.severity < b.finding.severity; });
    return std::move(diagnosis_);
  }

 private:
  void NotePlan() {
    const PlanOutcome* const plan = examination_.MadePlan();
    if (plan == nullptr) return;
    diagnosis_.verdict = VerdictOfPlan(*plan).Text();
    if (plan->failure && plan->failure->status == ExitStatus::Stopped) diagnosis_.stopped = plan->failure;
  }

  void Make(const Check& check) {
    CheckMade& made = diagnosis_.checks.emplace_back();
    made.check = &check;
    made.lacks = WhatLacks(check, session_, options_);
    if (!made.lacks.empty()) return;
    Told told;
    made.asked = true;
    try {
      check.run(examination_, told);
    } catch (const UsageError&) {
      throw;
    } catch (...) {
      made.asked = false;
      told.Add(NotAsked(check.subject, session_.call()));
      told.findings.back().severity = check.whenNotAsked;
    }
    made.saw = std::move(told.saw);
    for (Finding& finding : told.findings) {
      if (IsKnown(check, finding, made.asked)) continue;
      ++made.findings;
      diagnosis_.findings.push_back({&check, std::move(finding)});
    }
  }

  // A plan that fails does so for what was found before it; what could not be asked may have its reason told already.
  bool IsKnown(const Check& check, const Finding& finding, bool asked) const {
    const auto tells = [&](const FoundBy& known) {
      const bool isError = known.finding.severity == Severity::Error;
      if (check.run == CheckPlan && isError) return true;
      return !asked && (known.finding.found == finding.found || (isError && known.finding.explain == finding.explain));
    };
    return std::any_of(diagnosis_.findings.begin(), diagnosis_.findings.end(), tells);
  }

  Session& session_;
  const DoctorOptions& options_;
  Diagnosis diagnosis_;
  Examination examination_{session_, options_};
};

}  // namespace

std::size_t Diagnosis::Count(Severity severity) const {
  return static_cast<std::size_t>(std::count_if(
      findings.begin(), findings.end(), [&](const FoundBy& found) { return found.finding.severity == severity; }));
}

Diagnosis Examine(Session& session, const DoctorOptions& options) {
  return Examiner(session, options).Run();
}

}  // namespace varnelctl
