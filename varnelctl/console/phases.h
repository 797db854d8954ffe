// A run as people see it: what is under way is announced, timed and remembered, and between two phases the user may end
// the run, which the end of its reader does, too.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "varnelctl/console/interruption.h"
#include "varnelctl/console/step.h"
#include "varnelctl/session.h"

namespace varnelctl {

struct Step {
  StepName name;
  unsigned long long start = 0;  ///< milliseconds since the run began, like the end
  unsigned long long end = 0;
  bool failed = false;
};

struct Phase {
  std::string name;
  unsigned long long milliseconds = 0;
};

/// The user ended the run between two phases.
class Interrupted : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Nobody reads what the run prints any longer.
class Abandoned : public Interrupted {
 public:
  using Interrupted::Interrupted;
};

/// Shows the steps as they start and end, unless the session prints a JSON document: that is all its reader wants.
class Phases {
 public:
  /// The session is borrowed. The run begins now, and so does the watch for an interruption.
  explicit Phases(Session& session);

  /// Runs a phase, which starts with this step. A failure is reported under the words of the step at hand. Throws what
  /// the phase throws; Interrupted, without running it, when the user wants to end the run.
  void Run(const StepName& first, const std::function<void()>& action);
  /// The same for a phase that nobody can interrupt.
  void RunAnyway(const StepName& first, const std::function<void()>& action);
  /// Within a phase: the step at hand is done, and this one begins. Nothing happens where it is the one at hand.
  void Enter(const StepName& next);
  /// Throws Interrupted when the user wants to end the run, or nobody reads on.
  void ThrowIfInterrupted() const;
  /// From now on an interruption ends the process.
  void StopWatching() { interruption_.reset(); }

  /// Something that a later phase may fail over, or that is left out.
  void Warn(const Warning& warning) { session_.Warn(warning); }
  /// Those that ran, in order.
  const std::vector<Phase>& list() const { return list_; }
  const std::vector<Step>& steps() const { return steps_; }

 private:
  unsigned long long Now() const;
  void Begin(const StepName& step);
  void End(bool failed);
  void EndPhase(unsigned long long start, bool failed);

  Session& session_;
  std::unique_ptr<Interruption> interruption_;  // null when nobody can interrupt
  unsigned long long runStart_;
  std::optional<Step> current_;
  std::vector<Phase> list_;
  std::vector<Step> steps_;
};

}  // namespace varnelctl
