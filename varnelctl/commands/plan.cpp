#include <nlohmann/json.hpp>

#include "varnelctl/commands/command.h"
#include "varnelctl/event_log/event_ids.h"
#include "varnelctl/event_log/writer.h"
#include "varnelctl/evidence/names.h"
#include "varnelctl/explanation/requirement.h"
#include "varnelctl/report/html/run_report.h"
#include "varnelctl/report/plan_report.h"
#include "varnelctl/report/snapshot_report.h"
#include "varnelctl/sets/disks_for.h"
#include "varnelctl/sets/plan_run.h"
#include "varnelctl/sets/snapshot_options.h"

namespace varnelctl {
namespace {

class PlanCommand final : public Command {
 public:
  const char* name() const override { return "plan"; }
  const char* description() const override {
    return "Tell what a snapshot would hold and how it would end; no writer is asked for more than its metadata";
  }
  const char* examples() const override {
    return "  varnelctl plan --app sql --disk TSL0001 TSL0002 TSL0003\n"
           "  varnelctl plan --app sql --disk TSL0001 TSL0002 --require all\n"
           "  varnelctl plan --app sql --for sales crm\n";
  }
  void AddOptions(CLI::App& app) override {
    AddPlanOptions(app, options_);
    AddReportOption(app, report_);
    AddEvidenceOptions(app, evidence_);
    AddEventLogOption(app, writesEvents_);
  }

  std::optional<RequestedSet> Requested() const override {
    return options_.disks.empty() ? std::nullopt : std::optional(varnelctl::Requested(options_));
  }

  ExitStatus Run(Session& session) override {
    if (options_.disks.empty() == options_.wanted.empty()) {
      throw UsageError("plan takes either --disk, whose snapshot is planned, or --for, whose disks are told");
    }
    if (!options_.wanted.empty() && report_) throw UsageError("--report shows a plan of --disk, and --for makes none");
    if (!options_.wanted.empty() && evidence_.folder) {
      throw UsageError("--evidence is of a plan of --disk, and --for makes none");
    }
    if (!options_.wanted.empty() && writesEvents_) {
      throw UsageError("--event-log takes the verdict of a plan of --disk, and --for makes none");
    }
    if (!options_.wanted.empty()) return TellDisks(session);
    CheckSnapshotOptions(options_, session.calls != nullptr);
    PlanOutcome plan(options_);
    MakePlan(session, options_, plan);
    if (session.evidence != nullptr && session.evidence->wantsNames) {
      session.evidence->writers = WritersOf(plan.requestor->GetWriters());
    }
    if (session.keepsDocument) session.document.Set(name(), PlanDocument(plan));
    if (!session.json) PrintPlan(session.console, plan, session.verbose);
    verdict_ = VerdictOfPlan(plan);
    return plan.failure ? session.ReportOutcome(*plan.failure) : ExitStatus::Done;
  }
  std::optional<std::string> ReportFile() const override { return report_; }
  EvidenceOptions Evidence() const override { return evidence_; }
  std::optional<DWORD> Events() const override { return writesEvents_ ? std::optional(kPlanEvents) : std::nullopt; }
  void NoteLastWord(Session& session) const override {
    if (verdict_) NoteVerdict(session, VerdictNow(*verdict_, session));
  }
  std::string LastWord(const Session& session) const override {
    return verdict_ ? VerdictNow(*verdict_, session).Text() : std::string();
  }
  void Conclude(Session& session) override {
    if (verdict_) TellVerdict(session, VerdictNow(*verdict_, session));
  }

 private:
  ExitStatus TellDisks(Session& session) const {
    const auto found = FindDisksFor(session, options_.wanted, options_.application);
    if (session.json) {
      session.document.Set("disksFor", DisksForDocument(*found));
    } else {
      PrintDisksFor(session.console, *found, options_.application);
    }
    if (found->unprotected.empty()) return ExitStatus::Done;
    Failure failure;
    failure.status = ExitStatus::NotContained;
    failure.message = "no set of disks can hold all of these objects wholly";
    return session.Report(failure);
  }

  SnapshotOptions options_;
  std::optional<std::string> report_;
  EvidenceOptions evidence_;
  bool writesEvents_ = false;
  std::optional<Verdict> verdict_;  // of a plan that was made
};

}  // namespace

std::unique_ptr<Command> MakePlanCommand() {
  return std::make_unique<PlanCommand>();
}

}  // namespace varnelctl
