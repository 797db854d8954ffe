// The steps of a run: each is announced, timed and remembered, and between two of them the user may end the run.
#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "varnelctl/console/interruption.h"
#include "varnelctl/session.h"

namespace varnelctl {

struct Phase {
  std::string name;
  unsigned long long milliseconds = 0;
};

/// Told when a phase starts and when it ends.
class PhaseListener {
 public:
  virtual ~PhaseListener() = default;
  virtual void Started(const std::string& name) = 0;
  virtual void Ended(const Phase& phase, bool succeeded) = 0;
  /// Something that a later phase may fail over, or that is left out.
  virtual void Warned(const std::string& warning) = 0;
};

/// The user ended the run between two phases.
class Interrupted : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class Phases {
 public:
  /// Session and listener are borrowed. Watches for an interruption from now on.
  Phases(Session& session, PhaseListener& listener);

  /// Runs a step that asks something of the library under its name. Throws what the step throws, or Interrupted in
  /// its place.
  void Run(const std::string& name, const std::function<void()>& action);
  /// The same for a step that nobody can interrupt.
  void RunAnyway(const std::string& name, const std::function<void()>& action);
  void ThrowIfInterrupted() const;
  /// From now on an interruption ends the process.
  void StopWatching() { interruption_.reset(); }

  void Warn(const std::string& warning) { listener_.Warned(warning); }
  /// Those that ran, in order.
  const std::vector<Phase>& list() const { return list_; }

 private:
  Session& session_;
  PhaseListener& listener_;
  std::unique_ptr<Interruption> interruption_;  // null when nobody can interrupt
  std::vector<Phase> list_;
};

}  // namespace varnelctl
