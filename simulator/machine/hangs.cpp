#include "simulator/machine/hangs.h"

#include <utility>

namespace varnel::simulator {

void Hangs::Plan(std::string call, int occurrence) {
  const std::lock_guard lock(mutex_);
  calls_.push_back({std::move(call), occurrence});
  planned_ = true;
  ended_ = false;
}

void Hangs::Arm() {
  const std::lock_guard lock(mutex_);
  ended_ = false;
}

void Hangs::Reset() {
  const std::lock_guard lock(mutex_);
  calls_.clear();
  planned_ = false;
  ended_ = false;
}

bool Hangs::IsPlanned(std::string_view call) {
  bool planned = false;
  for (PlannedCall& candidate : calls_) {
    if (candidate.call != call) continue;
    ++candidate.seen;
    if (candidate.occurrence == 0 || candidate.occurrence == candidate.seen) planned = true;
  }
  return planned;
}

bool Hangs::Hang(std::string_view call) {
  std::unique_lock lock(mutex_);
  if (!IsPlanned(call)) return false;
  ++inside_;
  changed_.wait(lock, [&] { return ended_; });
  return true;
}

void Hangs::Leave() {
  const std::lock_guard lock(mutex_);
  --inside_;
  changed_.notify_all();
}

void Hangs::WaitWhile(const std::atomic<bool>& hangs) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return ended_ || !hangs; });
}

void Hangs::Clear(std::atomic<bool>& hangs) {
  const std::lock_guard lock(mutex_);
  hangs = false;
  changed_.notify_all();
}

void Hangs::End() {
  const std::lock_guard lock(mutex_);
  ended_ = true;
  changed_.notify_all();
}

void Hangs::EndAndJoin() {
  End();
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return inside_ == 0; });
}

}  // namespace varnel::simulator
