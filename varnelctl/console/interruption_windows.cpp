#include <atomic>

#include "platform/win32.h"
#include "varnelctl/console/interruption.h"

namespace varnelctl {
namespace {

std::atomic<bool> requested;

// Runs in a thread of its own. Where it answers FALSE the system's handler ends the process.
BOOL WINAPI OnControl(DWORD event) {
  if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) return FALSE;
  if (requested.exchange(true)) return FALSE;
  DWORD written = 0;
  ::WriteFile(::GetStdHandle(STD_ERROR_HANDLE), kInterruptionNotice, sizeof kInterruptionNotice - 1, &written, nullptr);
  return TRUE;
}

class ConsoleWatch final : public Interruption {
 public:
  ConsoleWatch() {
    requested = false;
    ::SetConsoleCtrlHandler(OnControl, TRUE);
  }
  ~ConsoleWatch() override { ::SetConsoleCtrlHandler(OnControl, FALSE); }
  ConsoleWatch(const ConsoleWatch&) = delete;
  ConsoleWatch& operator=(const ConsoleWatch&) = delete;

  bool Requested() const override { return requested; }
};

}  // namespace

std::unique_ptr<Interruption> WatchProcess() {
  return std::make_unique<ConsoleWatch>();
}

}  // namespace varnelctl
