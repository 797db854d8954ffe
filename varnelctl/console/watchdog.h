// Ends the process when something never returns: what a thread is in cannot be ended otherwise.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace varnelctl {

/// Watches one thread from another, which the first Watch starts, on the real clock.
class Watchdog {
 public:
  using Clock = std::chrono::steady_clock;
  /// What is done in the end; does not return in a program.
  using Bite = std::function<void(const std::string& words)>;

  /// Ends the process with ExitStatus::Stopped after it has told the words on standard error.
  Watchdog();
  explicit Watchdog(Bite bite) : bite_(std::move(bite)) {}
  ~Watchdog();
  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;

  /// Is called with the words before the process ends, on a thread of its own; what is watched may go on meanwhile, but
  /// not to a normal end. The process ends after `patience` also where the deed is not done. One at a time, none where
  /// it is empty.
  void DoFirst(Bite deed, Clock::duration patience = std::chrono::seconds(10));
  /// Unless this or Rest is called again until then, the words are told and the process ends.
  void Watch(Clock::time_point until, std::string words);
  /// Nothing is watched until Watch is called again.
  void Rest();
  /// What the next call of BeginEnd watches for `grace`, from then on or from `deadline`, whichever is later.
  void WatchAtEnd(Clock::time_point deadline, Clock::duration grace, std::string words);
  void BeginEnd() noexcept;

 private:
  void Run();

  const Bite bite_;
  std::mutex mutex_;  // of what follows
  std::condition_variable changed_;
  Bite first_;
  Clock::duration patience_{};  // with it
  std::optional<Clock::time_point> until_;
  Clock::time_point wakesAt_ = Clock::time_point::max();  // a later end needs no word to the thread
  std::string words_;
  struct AtEnd {
    Clock::time_point deadline;
    Clock::duration grace;
    std::string words;
  };
  std::optional<AtEnd> atEnd_;
  bool over_ = false;
  std::thread thread_;
};

}  // namespace varnelctl
