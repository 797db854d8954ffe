// What never ends by itself on a simulated host.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace varnel::simulator {

/// The calls that hang, and waits for operations that do. For any thread, with or without a call under way. A hang is
/// real: it takes no time of the virtual clock and blocks the thread that meets it.
class Hangs {
 public:
  /// Kept by a call while it runs.
  class Passage {
   public:
    /// \param hangs null for a call that did not hang.
    explicit Passage(Hangs* hangs = nullptr) : hangs_(hangs) {}
    Passage(const Passage&) = delete;
    Passage& operator=(const Passage&) = delete;
    ~Passage() {
      if (hangs_ != nullptr) hangs_->Leave();
    }

   private:
    Hangs* hangs_;  // null for a call that did not hang
  };

  /// From now on the `occurrence`th call of this name (from 1; 0: every one) hangs.
  void Plan(std::string call, int occurrence);
  /// Lets operations hang that are yet to start, also after an End.
  void Arm();
  /// Forgets every planned call.
  void Reset();
  /// Where a call begins, before it holds anything: returns once it does not hang any more.
  Passage Pass(std::string_view call) {
    return Passage(planned_.load(std::memory_order_relaxed) && Hang(call) ? this : nullptr);
  }

  /// Blocks while the flag is set.
  void WaitWhile(const std::atomic<bool>& hangs);
  /// Clears the flag and wakes who waits for it.
  void Clear(std::atomic<bool>& hangs);

  /// Ends what hangs now or later, until a hang is planned again.
  void End();
  /// Ends it, and returns when the calls that hung are over.
  void EndAndJoin();

 private:
  struct PlannedCall {
    std::string call;
    int occurrence;
    int seen = 0;
  };

  bool Hang(std::string_view call);
  bool IsPlanned(std::string_view call);
  void Leave();

  std::atomic<bool> planned_ = false;  // whether any call hangs
  std::mutex mutex_;                   // of what follows
  std::condition_variable changed_;
  std::vector<PlannedCall> calls_;
  bool ended_ = false;
  int inside_ = 0;  // calls that hung and are not over
};

}  // namespace varnel::simulator
