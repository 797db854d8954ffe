#include <CLI/App.hpp>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "text/format.h"
#include "varnelctl/commands/command.h"
#include "varnelctl/commands/snapshot_options.h"
#include "varnelctl/commands/snapshot_run.h"
#include "varnelctl/console/text.h"
#include "varnelctl/report/snapshot_report.h"

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
    isNew_ = !std::filesystem::exists(PathOf(*path_), ignored);
    if (!std::ofstream(PathOf(*path_), std::ios::binary | std::ios::app)) {
      throw UsageError(*path_ + ": the file cannot be written");
    }
  }
  ~OutputFile() {
    std::error_code ignored;
    if (isNew_) std::filesystem::remove(PathOf(*path_), ignored);
  }
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  bool wanted() const { return path_.has_value(); }
  /// False when the file did not take everything.
  bool Write(const std::string& text) {
    isNew_ = false;
    std::ofstream file(PathOf(*path_), std::ios::binary | std::ios::trunc);
    file << text << std::flush;
    return file.good();
  }
  const std::string& path() const { return *path_; }

 private:
  std::optional<std::string> path_;
  bool isNew_ = false;  // made here and not written yet
};

// A JSON document is all that its reader wants on standard output; warnings go beside it.
class QuietProgress : public PhaseListener {
 public:
  explicit QuietProgress(Console& progressConsole) : console(progressConsole) {}
  void Started(const std::string& /*name*/) override {}
  void Ended(const Phase& /*phase*/, bool /*succeeded*/) override {}
  void Warned(const std::string& warning) override { console.Warning(warning); }

 protected:
  Console& console;
};

class Progress final : public QuietProgress {
 public:
  using QuietProgress::QuietProgress;
  void Started(const std::string& name) override { console.Live(name + " ..."); }
  void Ended(const Phase& phase, bool succeeded) override {
    console.EndLive(phase.name + (succeeded ? ": done" : ": failed") +
                    varnel::FormatNarrow(" (%u ms)", {phase.milliseconds}));
  }
};

std::string JoinLines(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
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
    CheckSnapshotOptions(options_);
    if (options_.callsFile && session.calls == nullptr) {
      throw UsageError("--calls needs a simulated host: this machine keeps no log of its calls");
    }
    OutputFile document(options_.documentFile);
    OutputFile catalog(options_.catalogFile);
    OutputFile calls(options_.callsFile);
    ExitStatus status = RunAndShow(session, document, catalog);
    // Behind the requestor's end, which makes calls too.
    if (calls.wanted()) status = Save(session, calls, JoinLines(session.calls->lines()), status);
    return status;
  }

 private:
  ExitStatus RunAndShow(Session& session, OutputFile& document, OutputFile& catalog) {
    Progress progress(session.console);
    QuietProgress quiet(session.console);
    SnapshotRun run(session, options_, session.json ? quiet : progress);
    run.Run();
    ExitStatus status = Show(session, run);
    const std::string xml = Utf8(run.requestor().GetBackupDocument());
    if (document.wanted() && !xml.empty()) status = Save(session, document, xml, status);
    if (catalog.wanted() && run.taken()) {
      constexpr int kIndent = 2;
      status = Save(session, catalog, CatalogDocument(run).dump(kIndent) + "\n", status);
    }
    return status;
  }

  static ExitStatus Show(Session& session, const SnapshotRun& run) {
    if (session.json) {
      session.console.Document(SnapshotDocument(run));
    } else {
      PrintSnapshot(session.console, run);
    }
    session.errorDetails = run.errorDetails();
    if (!run.failure()) return ExitStatus::Done;
    if (run.failure()->status != ExitStatus::Done) return session.Report(*run.failure());
    session.console.Warning(run.failure()->message);
    for (const std::string& detail : run.failure()->details) session.console.Detail("  " + detail);
    return ExitStatus::Done;
  }

  // The outcome of the snapshot stays what it is; only a success turns into a failure.
  static ExitStatus Save(Session& session, OutputFile& file, const std::string& text, ExitStatus status) {
    if (file.Write(text)) return status;
    session.console.Error(file.path() + ": the file did not take everything");
    return status == ExitStatus::Done ? ExitStatus::Unexpected : status;
  }

  SnapshotOptions options_;
};

}  // namespace

std::unique_ptr<Command> MakeSnapshotCommand() {
  return std::make_unique<SnapshotCommand>();
}

}  // namespace varnelctl
