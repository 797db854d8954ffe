// One run of one command: where it prints, and what it has asked the library so far.
#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "simulator/machine/machine.h"
#include "varnelctl/console/console.h"
#include "varnelctl/console/interruption.h"
#include "varnelctl/explanation/failure.h"

namespace varnelctl {

class Session {
 public:
  Session(Console& sessionConsole, bool printJson, InterruptionSource source)
      : console(sessionConsole), json(printJson), watchInterruption(std::move(source)) {}
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  Console& console;
  const bool json;
  /// Empty when nobody can interrupt.
  const InterruptionSource watchInterruption;
  /// The simulated host's call log, null on a real machine. Borrowed while the command runs.
  const varnel::simulator::CallLog* calls = nullptr;
  /// The library's error-details argument: the alert records collected so far.
  std::string errorDetails;

  /// Asks something of the library under the name that a failure report gives it.
  template <class Action>
  decltype(auto) Ask(std::string_view call, Action&& action) {
    call_ = call;
    return std::forward<Action>(action)();
  }
  /// What was asked last.
  const std::string& call() const { return call_; }

  /// Prints a failure and the alert records, and returns its status.
  ExitStatus Report(const Failure& failure);

 private:
  std::string call_ = "varnelctl";
};

}  // namespace varnelctl
