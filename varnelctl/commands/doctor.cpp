#include "varnelctl/doctor/doctor.h"

#include <nlohmann/json.hpp>

#include "varnelctl/commands/command.h"
#include "varnelctl/report/doctor_report.h"
#include "varnelctl/sets/snapshot_options.h"

namespace varnelctl {
namespace {

class DoctorCommand final : public Command {
 public:
  const char* name() const override { return "doctor"; }
  const char* description() const override {
    return "Tell what would make a snapshot fail or incomplete, each with what to do; nothing is changed, and no "
           "writer is asked for more than its metadata and its state";
  }
  const char* examples() const override {
    return "  varnelctl doctor\n"
           "  varnelctl doctor --app sql --disk TSL0001 TSL0002\n"
           "  varnelctl doctor --json --host host.json\n";
  }
  void AddOptions(CLI::App& app) override { AddExaminationOptions(app, options_); }
  Fitness NeededFitness() const override { return Fitness::Examined; }

  ExitStatus Run(Session& session) override {
    const Diagnosis diagnosis = Examine(session, options_);
    if (diagnosis.stopped) return session.Report(*diagnosis.stopped);
    if (session.json) {
      session.document.Set(name(), DoctorDocument(diagnosis));
    } else {
      PrintDiagnosis(session.console, diagnosis);
    }
    lastWord_ = SummaryOf(diagnosis);
    const bool isWorse = diagnosis.Count(Severity::Warning) != 0;
    tone_ = isWorse ? Tone::Warning : Tone::Good;
    if (diagnosis.Count(Severity::Error) == 0) return ExitStatus::Done;
    tone_ = Tone::Bad;
    Failure failure;
    failure.status = ExitStatus::ConfigurationError;
    failure.message = lastWord_;
    failure.explain = diagnosis.findings.front().finding.explain;
    failure.remedy = diagnosis.findings.front().finding.remedy;
    failure.quiet = true;  // told as findings
    return session.Report(failure);
  }
  std::string LastWord(const Session& /*session*/) const override { return lastWord_; }
  void Conclude(Session& session) override {
    if (!session.json && !lastWord_.empty()) session.console.Line(lastWord_, tone_);
  }

 private:
  DoctorOptions options_;
  std::string lastWord_;
  Tone tone_ = Tone::Plain;
};

}  // namespace

std::unique_ptr<Command> MakeDoctorCommand() {
  return std::make_unique<DoctorCommand>();
}

}  // namespace varnelctl
