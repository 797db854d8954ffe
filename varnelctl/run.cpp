#include "varnelctl/run.h"

#include <memory>
#include <optional>
#include <system_error>

#include "platform/tessel/log_sink.h"
#include "varnelctl/command_line.h"
#include "varnelctl/console/console.h"
#include "varnelctl/console/text.h"
#include "varnelctl/session.h"
#include "varnelctl/target_host.h"

namespace varnelctl {
namespace {

// The process's log while a command runs, if one was asked for.
class LogOfRun {
 public:
  explicit LogOfRun(const GlobalOptions& options) {
    if (!options.logFile) return;
    try {
      sink_ = varnel::OpenLogFile(PathOf(*options.logFile), options.lowestLogCategory);
    } catch (const std::system_error& error) {
      throw UsageError(OneLine(error.what()));
    }
    current_.emplace(*sink_);
  }

 private:
  std::unique_ptr<varnel::LogSink> sink_;
  std::optional<varnel::ScopedLog> current_;
};

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
  Session session(console, invocation.options.json, std::move(interruption));
  return Guarded(session, [&] {
    const LogOfRun log(invocation.options);
    TargetHost host(invocation.options.hostFile, invocation.options.stateFile);
    session.calls = host.calls();
    // A second guard, because a failure of the command is described while its host is still there.
    return Guarded(session, [&] { return invocation.command->Run(session); });
  });
}

ExitStatus ParseAndRun(std::vector<std::string> arguments, Console& console, InterruptionSource interruption) {
  Invocation invocation;
  try {
    invocation = ParseCommandLine(std::move(arguments), console);
  } catch (const UsageError& error) {
    console.Error(error.what());
    return ExitStatus::Usage;
  }
  return RunCommand(invocation, console, std::move(interruption));
}

}  // namespace

int RunVarnelctl(std::vector<std::string> arguments, std::ostream& out, std::ostream& err, bool terminal,
                 InterruptionSource interruption) {
  Console console(out, err, terminal);
  ExitStatus status = ParseAndRun(std::move(arguments), console, std::move(interruption));
  if (!console.Flush()) {
    console.Error("standard output did not take everything");
    if (status == ExitStatus::Done) status = ExitStatus::Unexpected;
  }
  return static_cast<int>(status);
}

}  // namespace varnelctl
