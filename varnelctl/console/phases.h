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

/// The user ended the run between two phases.
class Interrupted : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Shows the phases as they start and end, unless the session prints a JSON document: that is all its reader wants.
class Phases {
 public:
  /// The session is borrowed. Watches for an interruption from now on.
  explicit Phases(Session& session);

  /// Runs a step that asks something of the library under its name. Throws what the step throws; Interrupted, without
  /// running it, when the user wants to end the run.
  void Run(const std::string& name, const std::function<void()>& action);
  /// The same for a step that nobody can interrupt.
  void RunAnyway(const std::string& name, const std::function<void()>& action);
  void ThrowIfInterrupted() const;
  /// From now on an interruption ends the process.
  void StopWatching() { interruption_.reset(); }

  /// Something that a later phase may fail over, or that is left out.
  void Warn(const std::string& warning) { session_.console.Warning(warning); }
  /// Those that ran, in order.
  const std::vector<Phase>& list() const { return list_; }

 private:
  void End(const std::string& name, unsigned long long start, const char* result);

  Session& session_;
  std::unique_ptr<Interruption> interruption_;  // null when nobody can interrupt
  std::vector<Phase> list_;
};

}  // namespace varnelctl
