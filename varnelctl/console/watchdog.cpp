#include "varnelctl/console/watchdog.h"

#include <algorithm>
#include <exception>
#include <future>
#include <memory>
#include <utility>

#include "varnelctl/console/interruption.h"
#include "varnelctl/explanation/exit_status.h"

namespace varnelctl {
namespace {

// The thread of a deed that hangs, too, goes with the process.
void DoWithin(Watchdog::Clock::duration patience, const Watchdog::Bite& deed, const std::string& words) {
  const auto done = std::make_shared<std::promise<void>>();
  const std::future<void> over = done->get_future();
  std::thread([done, deed, words] {
    try {
      deed(words);
    } catch (const std::exception&) {
      // The process ends all the same.
    }
    done->set_value();
  }).detach();
  over.wait_for(patience);
}

}  // namespace

Watchdog::Watchdog()
    : Watchdog([](const std::string& words) { EndProcess(words, static_cast<int>(ExitStatus::Stopped)); }) {}

Watchdog::~Watchdog() {
  if (!thread_.joinable()) return;
  {
    const std::lock_guard lock(mutex_);
    over_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

void Watchdog::DoFirst(Bite deed, Clock::duration patience) {
  const std::lock_guard lock(mutex_);
  first_ = std::move(deed);
  patience_ = patience;
}

void Watchdog::Watch(Clock::time_point until, std::string words) {
  const std::lock_guard lock(mutex_);
  until_ = until;
  words_ = std::move(words);
  if (!thread_.joinable()) {
    thread_ = std::thread([this] { Run(); });
  } else if (until < wakesAt_) {
    changed_.notify_all();
  }
}

void Watchdog::Rest() {
  const std::lock_guard lock(mutex_);
  until_.reset();
}

void Watchdog::WatchAtEnd(Clock::time_point deadline, Clock::duration grace, std::string words) {
  atEnd_ = AtEnd{deadline, grace, std::move(words)};
}

void Watchdog::BeginEnd() noexcept {
  if (!atEnd_) return;
  try {
    Watch(std::max(atEnd_->deadline, Clock::now()) + atEnd_->grace, std::move(atEnd_->words));
  } catch (const std::exception&) {
    // No thread: nobody watches.
  }
}

void Watchdog::Run() {
  std::unique_lock lock(mutex_);
  while (!over_) {
    if (until_ && *until_ <= Clock::now()) {
      until_.reset();
      try {
        if (first_) DoWithin(patience_, first_, words_);
      } catch (const std::exception&) {
        // No thread: the process ends all the same.
      }
      bite_(words_);  // with the lock: who is watched cannot go on to a normal end any more
      continue;
    }
    wakesAt_ = until_.value_or(Clock::time_point::max());
    if (until_) {
      changed_.wait_until(lock, *until_);
    } else {
      changed_.wait(lock);
    }
  }
}

}  // namespace varnelctl
