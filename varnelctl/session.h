// One run of one command: where it prints, and what it has asked the library so far.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "simulator/machine/machine.h"
#include "varnelctl/console/console.h"
#include "varnelctl/console/interruption.h"
#include "varnelctl/console/step.h"
#include "varnelctl/explanation/advice.h"
#include "varnelctl/explanation/failure.h"
#include "varnelctl/report/document.h"
#include "varnelctl/sets/journal.h"

namespace varnel::simulator {
struct RaisedEvent;
}

namespace varnelctl {

class FoundEvidence;

class Session {
 public:
  /// \param arguments as varnelctl was given them.
  Session(Console& sessionConsole, Format format, bool tellMore, std::vector<std::string> arguments,
          InterruptionSource source)
      : console(sessionConsole),
        json(format != Format::Text),
        keepsDocument(json),
        verbose(tellMore),
        watchInterruption(std::move(source)),
        document(sessionConsole, format),
        arguments_(std::move(arguments)) {}
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  Console& console;
  const bool json;     ///< people are told nothing on standard output
  bool keepsDocument;  ///< commands set what they have found: it is printed, or a page is made of it
  /// Takes what belongs into the evidence of the run; null where nobody wants any. Borrowed.
  FoundEvidence* evidence = nullptr;
  /// Where something is to be saved of a run that hangs: is called, on another thread, before the process ends.
  std::function<void(const std::string& words)> beforeEnd;
  const bool verbose;  ///< tells the library's functions, too
  /// Empty when nobody can interrupt.
  const InterruptionSource watchInterruption;
  Document document;
  /// The simulated host's call log, null on a real machine. Borrowed while the command runs.
  const varnel::simulator::CallLog* calls = nullptr;
  /// What the simulated host's writers were told, null on a real machine. Borrowed while the command runs.
  const std::vector<varnel::simulator::RaisedEvent>* writerEvents = nullptr;
  /// Where requests on this host are remembered; nothing where they are not.
  std::optional<Journal> journal;
  /// The name of the lock that requests of this host hold one at a time (sets/request_lock.h); empty for none.
  std::string requestLock;
  /// The library's error-details argument: the alert records collected so far.
  std::string errorDetails;
  /// The step that failed, until the failure is noted.
  std::optional<StepName> failedStep;
  /// When the run has to be over, as GetTickCount64 counts; nothing while it has no deadline.
  std::optional<unsigned long long> deadline;

  /// What the run says of itself. The first time it is read off the current host, and the document begins with it.
  const Header& TellHeader(std::optional<RequestedSet> request);

  /// What varnelctl was called with, in one line of UTF-8.
  std::string CommandLine() const { return CommandLineText(arguments_); }

  /// Asks something of the library under the name that a failure report gives it.
  template <class Action>
  decltype(auto) Ask(std::string_view call, Action&& action) {
    Begin(std::string(call));
    return std::forward<Action>(action)();
  }
  /// The same for what is asked from now on.
  void Begin(std::string call) { call_ = std::move(call); }
  /// What was asked last.
  const std::string& call() const { return call_; }

  void Warn(const Warning& warning);
  /// Prints what was asked for and is not done, and remembers it. \return how a run ends then that ended so before.
  ExitStatus ReportUndone(const std::string& what, ExitStatus status);
  const std::vector<std::string>& undone() const { return undone_; }

  /// Prints a failure, the alert records and the next step, and returns its status.
  ExitStatus Report(Failure failure);
  /// The same after the text of a run, where a success may be told of something, too.
  ExitStatus ReportOutcome(const Failure& failure);

 private:
  const std::vector<std::string> arguments_;
  std::string call_ = "varnelctl";
  std::vector<std::string> undone_;
};

/// What to do about a failure that is told without Report, and where more is to be read.
void PrintNextStep(Console& console, const Advice& advice);

}  // namespace varnelctl
