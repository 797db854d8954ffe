// How a request ends that lasts too long, or longer than somebody wants.
#pragma once

#include <exception>
#include <optional>
#include <string>
#include <string_view>

#include "varnelctl/console/phases.h"
#include "varnelctl/console/watchdog.h"
#include "varnelctl/watched_host.h"

namespace varnelctl {

/// Reads "prepare=120", with a step's name or key, into `deadlines`. \return what is wrong with it; empty for nothing.
std::string ReadStepDeadline(std::string_view text, Deadlines& deadlines);

/// The names of steps for --deadline-step, as a list for the help.
std::string DeadlineStepNames();

/// While a set is made, the deadlines and whoever ends the run end it before the next call or in the wait at hand. Its
/// completion goes on all the same, so that the writers are told: a wait of it is given up when its own step is past
/// its deadline, or where the run is to end and the wait lasts longer than a minute. Every call that does not return
/// although a deadline is past ends the process.
class Limits final : public CallLimits {
 public:
  /// All are borrowed.
  Limits(Session& session, Phases& phases, Watchdog& watchdog);
  ~Limits() override;
  Limits(const Limits&) = delete;
  Limits& operator=(const Limits&) = delete;

  /// Throws, in place of what `action` throws because it was given up, why that was.
  template <class Action>
  void Explain(Action action) {
    try {
      action();
    } catch (const Interrupted&) {
      throw;
    } catch (...) {
      if (!untold_) throw;
      ThrowReason(std::current_exception());
    }
  }
  /// What follows is no part of making the set.
  void BeginCompletion() { isCreating_ = false; }
  /// DoSnapshotSet was given up and had succeeded: the library knows of no set.
  bool LeftSet() const { return leftSet_; }
  /// DoSnapshotSet was given up and may still go on.
  bool MayLeaveSet() const { return mayLeaveSet_; }

  bool Refuses(ServiceCall call) override;
  bool MayGiveUp() const override { return phases_.MayHaveToEnd(); }
  bool GivesUp(unsigned long long waited) override;
  void Cancelled(ServiceCall operation, std::optional<HRESULT> status) override;
  void Begin(const char* method) override;
  void End() override;

 private:
  std::optional<Ending> WhyToGiveUpCompletion(unsigned long long waited) const;
  void Watch(std::string_view what, std::chrono::milliseconds grace);
  std::string Words(const Phases::Left& left, std::string_view what) const;
  [[noreturn]] void ThrowReason(const std::exception_ptr& thrown);

  Session& session_;
  Phases& phases_;
  Watchdog& watchdog_;
  bool isCreating_ = true;
  bool leftSet_ = false;
  bool mayLeaveSet_ = false;
  std::optional<Ending> stopped_;  // why no more of the set is made
  std::optional<Ending> untold_;   // what was thrown for it is yet to be explained
};

}  // namespace varnelctl
