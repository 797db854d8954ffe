#include <poll.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "varnelctl/console/interruption.h"

namespace varnelctl {
namespace {

constexpr std::array kSignals = {SIGINT, SIGTERM, SIGHUP};

std::atomic<bool> requested;
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler may not wait");

extern "C" void OnSignal(int signal) {
  const int error = errno;
  if (const bool again = requested.exchange(true); again && signal == SIGHUP) {
    // The shell and the system both tell of a terminal that goes.
  } else if (again) {
    ::signal(signal, SIG_DFL);
    ::raise(signal);  // delivered when this handler returns
  } else {
    [[maybe_unused]] const auto written = ::write(STDERR_FILENO, kInterruptionNotice, sizeof kInterruptionNotice - 1);
  }
  errno = error;
}

class SignalWatch final : public Interruption {
 public:
  SignalWatch() {
    requested = false;
    struct sigaction action {};
    action.sa_handler = OnSignal;
    action.sa_flags = SA_RESTART;
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
      ::sigaction(kSignals[i], nullptr, &previous_[i]);
      // A job in the background was started with the signal ignored, and stays so.
      if (previous_[i].sa_handler != SIG_IGN) ::sigaction(kSignals[i], &action, nullptr);
    }
  }
  ~SignalWatch() override {
    for (std::size_t i = 0; i < kSignals.size(); ++i) ::sigaction(kSignals[i], &previous_[i], nullptr);
  }
  SignalWatch(const SignalWatch&) = delete;
  SignalWatch& operator=(const SignalWatch&) = delete;

  bool Requested() const override { return requested; }

 private:
  std::array<struct sigaction, kSignals.size()> previous_{};
};

}  // namespace

std::unique_ptr<Interruption> WatchProcess() {
  return std::make_unique<SignalWatch>();
}

void EndProcess(std::string_view words, int status) {
  constexpr int kPatience = 1000;  // milliseconds
  pollfd error{STDERR_FILENO, POLLOUT, 0};
  if (::poll(&error, 1, kPatience) == 1) {
    [[maybe_unused]] const auto written = ::write(STDERR_FILENO, words.data(), words.size());
  }
  std::_Exit(status);
}

bool LastWriteHadNoReader() {
  return errno == EPIPE;
}

}  // namespace varnelctl
