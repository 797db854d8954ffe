// The lock of a simulated host.
#pragma once

#include <atomic>
#include <thread>

namespace varnel::simulator {

/// A mutex that the thread which holds it may take again. Every call takes it and is over at once, so whoever finds it
/// taken lets other threads run and looks again; taking a free one costs a fraction of a std::recursive_mutex.
class MachineMutex {
 public:
  void lock() noexcept {
    const void* const self = ThisThread();
    if (owner_.load(std::memory_order_relaxed) == self) {
      ++takenAgain_;
      return;
    }
    for (const void* nobody = nullptr; !owner_.compare_exchange_strong(nobody, self, std::memory_order_acquire);
         nobody = nullptr) {
      std::this_thread::yield();
    }
  }
  void unlock() noexcept {
    if (takenAgain_ > 0) {
      --takenAgain_;
    } else {
      owner_.store(nullptr, std::memory_order_release);
    }
  }

 private:
  // An address that no other thread has.
  static const void* ThisThread() noexcept {
    constinit static thread_local const char here = 0;
    return &here;
  }

  std::atomic<const void*> owner_ = nullptr;
  int takenAgain_ = 0;
};

}  // namespace varnel::simulator
