#include <atomic>

#include "platform/win32.h"
#include "varnelctl/console/interruption.h"

namespace varnelctl {
namespace {

std::atomic<bool> requested;
std::atomic<bool> goes;  // the console, or the session

// A service is told when any user logs off, which is nothing to it.
bool IsServiceSession() {
  DWORD session = 0;
  return ::ProcessIdToSessionId(::GetCurrentProcessId(), &session) && session == 0;
}

void Acknowledge() {
  DWORD written = 0;
  ::WriteFile(::GetStdHandle(STD_ERROR_HANDLE), kInterruptionNotice, sizeof kInterruptionNotice - 1, &written, nullptr);
}

// Runs in a thread of its own. Where it answers FALSE the system's handler ends the process. When the console or the
// session goes, the process ends as soon as this is answered: it waits for the run, whose end ends it, as long as the
// system lets it (a few seconds).
BOOL WINAPI OnControl(DWORD event) {
  const bool byUser = event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT;
  if (event == CTRL_LOGOFF_EVENT && IsServiceSession()) return FALSE;
  const bool again = requested.exchange(true);
  if (byUser && again) return FALSE;
  if (!byUser) goes = true;
  if (!again) Acknowledge();
  if (!byUser) ::Sleep(INFINITE);
  return TRUE;
}

class ConsoleWatch final : public Interruption {
 public:
  ConsoleWatch() {
    requested = false;
    ::SetConsoleCtrlHandler(OnControl, TRUE);
  }
  // A handler that waits for the end stays.
  ~ConsoleWatch() override {
    if (!goes) ::SetConsoleCtrlHandler(OnControl, FALSE);
  }
  ConsoleWatch(const ConsoleWatch&) = delete;
  ConsoleWatch& operator=(const ConsoleWatch&) = delete;

  bool Requested() const override { return requested; }
};

}  // namespace

std::unique_ptr<Interruption> WatchProcess() {
  return std::make_unique<ConsoleWatch>();
}

// What it is called depends on who closed the pipe; the runtime knows only one of the three by a name of its own.
bool LastWriteHadNoReader() {
  const DWORD error = ::GetLastError();
  return error == ERROR_BROKEN_PIPE || error == ERROR_NO_DATA || error == ERROR_PIPE_NOT_CONNECTED;
}

}  // namespace varnelctl
