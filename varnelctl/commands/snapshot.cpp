#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "text/unicode.h"
#include "varnelctl/commands/command.h"
#include "varnelctl/console/text.h"
#include "varnelctl/report/snapshot_report.h"
#include "varnelctl/sets/snapshot_options.h"
#include "varnelctl/sets/snapshot_run.h"

namespace varnelctl {
namespace {

// A file that is written at the end, and only when there is something to write: what it held before stays until then,
// and where there was none, none is left. It is tried at the start: a run of minutes must not end in a path that cannot
// be written.
class OutputFile {
 public:
  explicit OutputFile(const std::optional<std::string>& path) : path_(path) {
    if (!path_) return;
    std::error_code ignored;
    file_ = std::filesystem::absolute(PathOf(*path_), ignored);
    isNew_ = !std::filesystem::exists(file_, ignored);
    if (!std::ofstream(file_, std::ios::binary | std::ios::app)) {
      throw UsageError(*path_ + ": the file cannot be written");
    }
  }
  ~OutputFile() {
    std::error_code ignored;
    if (isNew_) std::filesystem::remove(file_, ignored);
  }
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  bool wanted() const { return path_.has_value(); }
  /// The status of the run that ended with `status`: a file that does not take everything turns a success into a
  /// failure.
  ExitStatus Write(const std::string& text, Console& console, ExitStatus status) {
    isNew_ = false;
    std::ofstream file(file_, std::ios::binary | std::ios::trunc);
    file << text << std::flush;
    if (file.good()) return status;
    console.Error(*path_ + ": the file did not take everything");
    return status == ExitStatus::Done ? ExitStatus::Unexpected : status;
  }

 private:
  std::optional<std::string> path_;  // as it was given
  std::filesystem::path file_;       // the same wherever the current directory is when it is written
  bool isNew_ = false;               // made here and not written yet
};

ExitStatus Show(Session& session, const SnapshotOutcome& outcome) {
  if (session.json) {
    session.console.Document(SnapshotDocument(outcome));
  } else {
    PrintSnapshot(session.console, outcome);
  }
  if (!outcome.failure) return ExitStatus::Done;
  if (outcome.failure->status != ExitStatus::Done) return session.Report(*outcome.failure);
  session.console.Warning(outcome.failure->message);
  for (const std::string& detail : outcome.failure->details) session.console.Detail("  " + detail);
  return ExitStatus::Done;
}

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
  void AddOptions(CLI::App& app) override { AddSnapshotOptions(app, options_); }

  ExitStatus Run(Session& session) override {
    CheckSnapshotOptions(options_, session.calls != nullptr);
    OutputFile document(options_.documentFile);
    OutputFile catalog(options_.catalogFile);
    OutputFile calls(options_.callsFile);
    const ExitStatus status = TakeAndShow(session, document, catalog);
    if (!calls.wanted()) return status;
    // After the requestor's end, which makes calls too.
    std::string log;
    for (const std::string& line : session.calls->lines()) log += line + "\n";
    return calls.Write(log, session.console, status);
  }

 private:
  ExitStatus TakeAndShow(Session& session, OutputFile& document, OutputFile& catalog) const {
    SnapshotOutcome outcome(options_);
    TakeSnapshot(session, options_, outcome);
    ExitStatus status = Show(session, outcome);
    const std::string xml = varnel::WideToUtf8Lossy(outcome.requestor->GetBackupDocument());
    if (document.wanted() && !xml.empty()) status = document.Write(xml, session.console, status);
    if (catalog.wanted() && outcome.taken) {
      constexpr int kIndent = 2;
      status = catalog.Write(CatalogDocument(outcome).dump(kIndent) + "\n", session.console, status);
    }
    return status;
  }

  SnapshotOptions options_;
};

}  // namespace

std::unique_ptr<Command> MakeSnapshotCommand() {
  return std::make_unique<SnapshotCommand>();
}

}  // namespace varnelctl
