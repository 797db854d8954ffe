#include "varnelctl/run.h"

#include <memory>
#include <optional>
#include <system_error>

#include "platform/tessel/log_sink.h"
#include "text/unicode.h"
#include "varnelctl/command_line.h"
#include "varnelctl/console/console.h"
#include "varnelctl/console/output_file.h"
#include "varnelctl/console/printable_log.h"
#include "varnelctl/console/text.h"
#include "varnelctl/session.h"
#include "varnelctl/target_host.h"

namespace varnelctl {
namespace {

// The process's log while a command runs, if one was asked for.
class LogOfRun {
 public:
  explicit LogOfRun(const std::optional<std::string>& file, int lowestCategory) {
    if (!file) return;
    name_ = Printable(varnel::Utf8ToWideLossy(*file));
    if (name_.empty()) throw UsageError("--log: a file name is missing");
    try {
      sink_ = MakePrintableLog(varnel::OpenLogFile(PathOf(*file), lowestCategory));
    } catch (const std::system_error& error) {
      throw UsageError(OneLine(error.what()));
    }
    current_.emplace(*sink_);
  }

  /// The status of the run that ended with `status`: what is missing from its log makes a success one no more.
  ExitStatus End(Session& session, ExitStatus status) const {
    const varnel::LostLines lost = sink_ ? sink_->Lost() : varnel::LostLines();
    if (lost.count == 0) return status;
    return session.ReportUndone(
        "the log " + name_ + " lost " + Counted(lost.count, "line") + ": " + lost.reason.message(), status);
  }

 private:
  std::string name_;
  std::unique_ptr<varnel::LogSink> sink_;
  std::optional<varnel::ScopedLog> current_;
};

void RequireDifferentFiles(const Invocation& invocation) {
  const GlobalOptions& options = invocation.options;
  std::vector<FileOption> files = {
      {"--host", options.hostFile}, {"--state", options.stateFile}, {"--log", options.logFile}};
  for (FileOption& file : invocation.command->Files()) files.push_back(std::move(file));
  RequireDifferentFiles(files);
}

// Ends every exception: `action`'s status, or that of the failure, which is then printed.
template <class Action>
ExitStatus Guarded(Session& session, Action action) {
  try {
    return action();
  } catch (...) {
    return session.Report(DescribeFailure(std::current_exception(), session.call()));
  }
}

ExitStatus RunCommand(const Invocation& invocation, Console& console, InterruptionSource interruption) {
  if (!invocation.command) return ExitStatus::Done;
  const GlobalOptions& options = invocation.options;
  Session session(console, options.json, options.verbose, std::move(interruption));
  return Guarded(session, [&] {
    RequireDifferentFiles(invocation);
    const LogOfRun log(options.logFile, options.lowestLogCategory);
    ExitStatus status = Guarded(session, [&] {
      TargetHost host(options.hostFile, options.stateFile);
      session.calls = host.calls();
      // One more guard, because a failure of the command is described while its host is still there.
      return Guarded(session, [&] { return invocation.command->Run(session); });
    });
    status = log.End(session, status);
    console.Flush();  // on a terminal trouble comes before the last word
    invocation.command->Conclude(session);
    return status;
  });
}

ExitStatus ParseAndRun(std::vector<std::string> arguments, Console& console, InterruptionSource interruption,
                       Invocation& invocation) {
  try {
    invocation = ParseCommandLine(std::move(arguments), console);
  } catch (const UsageError& error) {
    console.Error(error.what());
    return ExitStatus::Usage;
  }
  return RunCommand(invocation, console, std::move(interruption));
}

}  // namespace

int RunVarnelctl(std::vector<std::string> arguments, std::ostream& out, std::ostream& err, const Terminals& terminals,
                 InterruptionSource interruption) {
  Console console(out, err, terminals);
  Invocation invocation;
  ExitStatus status = ParseAndRun(std::move(arguments), console, std::move(interruption), invocation);
  if (!console.Flush()) {
    const std::string stands = invocation.command ? invocation.command->WhatStands() : std::string();
    if (!console.IsAbandoned()) console.Error("standard output did not take everything");
    if (!console.IsAbandoned() && !stands.empty()) console.Detail("  " + stands);
    if (status == ExitStatus::Done) status = stands.empty() ? ExitStatus::Unexpected : ExitStatus::NotAllDone;
  }
  return static_cast<int>(status);
}

}  // namespace varnelctl
