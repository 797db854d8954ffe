// A run as people see it: what is under way is announced, timed and remembered, and the user may end the run, which the
// end of its reader and a deadline do, too.
#pragma once

#include <functional>
#include <map>
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

/// How long a run and its steps may take.
struct Deadlines {
  /// Of a step, by the name that it was given on the command line.
  struct OfStep {
    std::string name;
    unsigned seconds = 0;
  };
  std::optional<unsigned> seconds;       ///< of the whole run
  std::map<std::string, OfStep> ofStep;  ///< by the step's key

  bool AreAny() const { return seconds.has_value() || !ofStep.empty(); }
};

/// Why a run ends before it is done, in one line that says where it was.
struct Ending {
  enum class Cause { Interrupted, Abandoned, PastDeadline };
  Cause cause = Cause::Interrupted;
  std::string text;
};

/// The user ended the run before it was done.
class Interrupted : public std::runtime_error {
 public:
  explicit Interrupted(const std::string& text, std::vector<std::string> details = {})
      : std::runtime_error(text), details_(std::move(details)) {}
  const std::vector<std::string>& details() const { return details_; }

 private:
  std::vector<std::string> details_;
};

/// Nobody reads what the run prints any longer.
class Abandoned : public Interrupted {
 public:
  using Interrupted::Interrupted;
};

/// The run, or a step of it, took longer than it may.
class PastDeadline : public Interrupted {
 public:
  using Interrupted::Interrupted;
};

/// Throws what belongs to the cause.
[[noreturn]] void ThrowEnding(const Ending& ending, std::vector<std::string> details = {});

/// Shows the steps as they start and end, unless the session prints a JSON document: that is all its reader wants.
class Phases {
 public:
  /// The session is borrowed. The run begins now, and so does the watch for an interruption; its deadline counts from
  /// the session's first run.
  explicit Phases(Session& session, Deadlines deadlines = {});

  /// Runs a phase, which starts with this step. A failure is reported under the words of the step at hand. Throws what
  /// the phase throws; Interrupted, without running it, when the user wants to end the run.
  void Run(const StepName& first, const std::function<void()>& action);
  /// The same for a phase that nobody can interrupt.
  void RunAnyway(const StepName& first, const std::function<void()>& action);
  /// The step at hand, which has not ended; null between the steps.
  const Step* AtHand() const { return current_ ? &*current_ : nullptr; }
  /// When the run began, as GetTickCount64 counts.
  unsigned long long start() const { return runStart_; }
  /// Milliseconds since then.
  unsigned long long Now() const;
  /// Within a phase: the step at hand is done, and this one begins. Nothing happens where it is the one at hand.
  void Enter(const StepName& next);
  /// Throws Interrupted when the user wants to end the run, nobody reads on, or a deadline is past.
  void ThrowIfInterrupted() const;
  /// From now on an interruption ends the process.
  void StopWatching() { interruption_.reset(); }

  /// Whether WhyToEnd may ever have a reason.
  bool MayHaveToEnd() const { return interruption_ != nullptr || deadlines_.AreAny(); }
  /// Why the run has to end now; nothing while it may go on.
  std::optional<Ending> WhyToEnd() const;
  /// The same for one deadline alone: that of the step at hand; the run's, when it is past by so many milliseconds.
  std::optional<Ending> WhyStepTooLate() const;
  std::optional<Ending> WhyRunTooLate(unsigned past = 0) const;
  /// The deadline that comes first, the run's or that of the step at hand: the milliseconds until then, negative after
  /// it, and its words.
  struct Left {
    long long milliseconds = 0;
    std::string words;
  };
  std::optional<Left> TimeLeft() const;
  /// "while asking the writers to prepare", "after reading the results", "before anything was done"
  std::string Where() const;
  /// Is called, on the thread of the run, whenever a step begins. One at a time.
  void WhenStepBegins(std::function<void()> action) { stepBegins_ = std::move(action); }

  /// Something that a later phase may fail over, or that is left out.
  void Warn(const Warning& warning) { session_.Warn(warning); }
  /// Those that ran, in order.
  const std::vector<Phase>& list() const { return list_; }
  const std::vector<Step>& steps() const { return steps_; }

 private:
  void Begin(const StepName& step);
  void End(bool failed);
  void EndPhase(unsigned long long start, bool failed);

  std::optional<Left> LeftOfRun() const;
  std::optional<Left> LeftOfStep() const;

  Session& session_;
  const Deadlines deadlines_;
  std::unique_ptr<Interruption> interruption_;  // null when nobody can interrupt
  unsigned long long runStart_;
  std::function<void()> stepBegins_;
  std::optional<Step> current_;
  std::vector<Phase> list_;
  std::vector<Step> steps_;
};

}  // namespace varnelctl
