#include <nlohmann/json.hpp>

#include "text/unicode.h"
#include "varnelctl/commands/command.h"
#include "varnelctl/console/output_file.h"
#include "varnelctl/event_log/event_ids.h"
#include "varnelctl/event_log/writer.h"
#include "varnelctl/evidence/collectors.h"
#include "varnelctl/evidence/names.h"
#include "varnelctl/report/html/run_report.h"
#include "varnelctl/report/snapshot_report.h"
#include "varnelctl/sets/snapshot_options.h"
#include "varnelctl/sets/tries.h"

namespace varnelctl {
namespace {

// The files of a run. What the run does not write is gone with it.
class Outputs {
 public:
  Outputs(const SnapshotOptions& options, Session& session)
      : document("--document", options.documentFile),
        catalog("--catalog", options.catalogFile),
        calls("--calls", options.callsFile),
        session_(session) {}
  ~Outputs() {
    for (const OutputFile* file : {&document, &catalog, &calls}) {
      try {
        if (const std::string told = file->RemoveEarlier(); !told.empty()) session_.Warn({"earlierFile", told});
      } catch (const std::exception&) {
        // No memory for the words.
      }
    }
  }
  Outputs(const Outputs&) = delete;
  Outputs& operator=(const Outputs&) = delete;

  OutputFile document;
  OutputFile catalog;
  OutputFile calls;

 private:
  Session& session_;
};

class SnapshotCommand final : public Command {
 public:
  const char* name() const override { return "snapshot"; }
  const char* description() const override {
    return "Take an application-consistent snapshot set of disks, from the first check to what becomes of the set";
  }
  const char* examples() const override {
    return "  varnelctl snapshot --app sql --disk TSL0001 TSL0002 TSL0003\n"
           "  varnelctl snapshot --app exchange --disk TSL1001 TSL1002 --context app-rollback --verify --then mask "
           "--disconnect\n"
           "  varnelctl snapshot --app none --disk TSL0001 --json --document backup.xml --catalog catalog.json\n";
  }
  void AddOptions(CLI::App& app) override {
    AddSnapshotOptions(app, options_);
    AddReportOption(app, report_);
    AddEvidenceOptions(app, evidence_);
    AddEventLogOption(app, writesEvents_);
  }

  std::optional<RequestedSet> Requested() const override { return varnelctl::Requested(options_); }

  ExitStatus Run(Session& session) override {
    CheckSnapshotOptions(options_, session.calls != nullptr);
    Outputs outputs(options_, session);
    const ExitStatus status = TakeAndShow(session, outputs);
    if (!options_.callsFile) return status;
    // After the requestor's end, which makes calls too.
    try {
      outputs.calls.Write(session.calls->Text());
    } catch (const NotAllDone& failure) {
      return session.ReportUndone(failure.what(), status);
    }
    return status;
  }
  std::vector<FileOption> Files() const override {
    return {
        {"--document", options_.documentFile}, {"--catalog", options_.catalogFile}, {"--calls", options_.callsFile}};
  }
  std::optional<std::string> ReportFile() const override { return report_; }
  EvidenceOptions Evidence() const override { return evidence_; }
  std::optional<DWORD> Events() const override { return writesEvents_ ? std::optional(kSnapshotEvents) : std::nullopt; }
  void NoteLastWord(Session& session) const override {
    if (verdict_) NoteVerdict(session, VerdictNow(*verdict_, session));
  }
  std::string LastWord(const Session& session) const override {
    return verdict_ ? VerdictNow(*verdict_, session).Text() : std::string();
  }
  void Conclude(Session& session) override {
    if (verdict_) TellVerdict(session, VerdictNow(*verdict_, session));
  }
  std::string WhatStands() const override { return whatStands_; }

 private:
  TriedSnapshot Take(Session& session) {
    try {
      return TakeSnapshotInTries(session, options_);
    } catch (const UsageError& error) {
      verdict_ = VerdictOfRefusal(error.what());
      throw;
    }
  }

  static void HandOver(const SnapshotOutcome& outcome, const std::string& xml, FoundEvidence& evidence) {
    evidence.Add(DocumentEvidence(xml));
    if (outcome.taken) evidence.Add(CatalogEvidence(CatalogDocument(outcome)));
    evidence.providers = outcome.providers;
    if (evidence.wantsNames) evidence.writers = WritersOf(outcome.requestor->GetWriters());
  }

  ExitStatus TakeAndShow(Session& session, Outputs& outputs) {
    const TriedSnapshot tried = Take(session);
    SnapshotOutcome& outcome = *tried.outcome;
    const std::string xml = varnel::WideToUtf8Lossy(outcome.requestor->GetBackupDocument());
    if (!xml.empty()) outcome.Attempt(session, [&] { outputs.document.Write(xml); });
    if (outcome.taken) {
      constexpr int kIndent = 2;
      outcome.Attempt(session, [&] { outputs.catalog.Write(CatalogDocument(outcome).dump(kIndent) + "\n"); });
    }
    if (session.evidence != nullptr) HandOver(outcome, xml, *session.evidence);
    whatStands_ = DescribeSet(outcome);
    verdict_ = VerdictOf(outcome);
    if (session.keepsDocument) {
      session.document.Set(name(), SnapshotDocument(outcome));
      session.document.Add("tries", TriesJson(tried.tries));
    }
    if (!session.json) PrintSnapshot(session.console, outcome, *verdict_, session.verbose);
    return outcome.failure ? session.ReportOutcome(*outcome.failure) : ExitStatus::Done;
  }

  SnapshotOptions options_;
  std::optional<std::string> report_;
  EvidenceOptions evidence_;
  bool writesEvents_ = false;
  std::string whatStands_;
  std::optional<Verdict> verdict_;  // nothing before a run
};

}  // namespace

std::unique_ptr<Command> MakeSnapshotCommand() {
  return std::make_unique<SnapshotCommand>();
}

}  // namespace varnelctl
