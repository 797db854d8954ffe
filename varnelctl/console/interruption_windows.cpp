#include <atomic>
#include <cstdlib>
#include <optional>
#include <thread>

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

// Whether somebody had asked before.
bool Interrupt() {
  if (requested.exchange(true)) return true;
  DWORD written = 0;
  ::WriteFile(::GetStdHandle(STD_ERROR_HANDLE), kInterruptionNotice, sizeof kInterruptionNotice - 1, &written, nullptr);
  return false;
}

// Runs in a thread of its own. Where it answers FALSE the system's handler ends the process. When the console or the
// session goes, the process ends as soon as this is answered: it waits for the run, whose end ends it, as long as the
// system lets it (a few seconds).
BOOL WINAPI OnControl(DWORD event) {
  const bool byUser = event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT;
  if (event == CTRL_LOGOFF_EVENT && IsServiceSession()) return FALSE;
  if (byUser) return Interrupt() ? FALSE : TRUE;
  goes = true;  // before the run can end for it
  Interrupt();
  ::Sleep(INFINITE);
  return TRUE;
}

class Event {
 public:
  Event() : handle_(::CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}
  ~Event() { ::CloseHandle(handle_); }
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;
  void Set() const { ::SetEvent(handle_); }
  void Reset() const { ::ResetEvent(handle_); }
  void Wait() const { ::WaitForSingleObject(handle_, INFINITE); }

 private:
  HANDLE handle_;
};

// Once user32.dll is loaded, which it is by whoever takes the command line apart, no console handler hears of the end
// of the session or of the system: a window does, which nobody sees.
class SessionWindow {
 public:
  SessionWindow() {
    if (IsServiceSession()) return;
    Over().Reset();
    const Event ready;
    thread_ = std::thread([&] { Live(ready); });
    ready.Wait();
  }
  // A session that ends waits for the end of the process.
  ~SessionWindow() {
    if (!thread_.joinable()) return;
    if (goes) {
      thread_.detach();
      return;
    }
    Over().Set();
    if (window_ != nullptr) ::PostMessageW(window_, WM_CLOSE, 0, 0);
    thread_.join();
  }
  SessionWindow(const SessionWindow&) = delete;
  SessionWindow& operator=(const SessionWindow&) = delete;

 private:
  // Set when nobody watches any longer.
  static const Event& Over() {
    static const Event over;
    return over;
  }

  static LRESULT CALLBACK OnMessage(HWND window, UINT message, WPARAM word, LPARAM more) {
    switch (message) {
      case WM_QUERYENDSESSION:
        Interrupt();
        return TRUE;
      case WM_ENDSESSION:
        if (word == FALSE) return 0;  // somebody else kept the session
        goes = true;
        Interrupt();    // a session that is made to end asks nobody before
        Over().Wait();  // as OnControl does, but for a watch that has just ended
        return 0;
      case WM_DESTROY:
        ::PostQuitMessage(0);
        return 0;
      default:
        return ::DefWindowProcW(window, message, word, more);
    }
  }

  // Where there is no desktop there is no window, and no session of a user that could end.
  void Live(const Event& ready) {
    const HINSTANCE module = ::GetModuleHandleW(nullptr);
    WNDCLASSW kind{};
    kind.lpfnWndProc = OnMessage;
    kind.hInstance = module;
    kind.lpszClassName = kSessionWindow;
    ::RegisterClassW(&kind);  // once is enough
    window_ =
        ::CreateWindowExW(0, kSessionWindow, L"varnelctl", WS_POPUP, 0, 0, 0, 0, nullptr, nullptr, module, nullptr);
    if (window_ != nullptr) ::ShutdownBlockReasonCreate(window_, L"A backup is being completed; it ends by itself.");
    const bool lives = window_ != nullptr;
    ready.Set();
    MSG message{};
    while (lives && ::GetMessageW(&message, nullptr, 0, 0) > 0) ::DispatchMessageW(&message);
  }

  HWND window_ = nullptr;
  std::thread thread_;
};

class ConsoleWatch final : public Interruption {
 public:
  ConsoleWatch() {
    requested = false;
    ::SetConsoleCtrlHandler(OnControl, TRUE);
    window_.emplace();
  }
  // A handler that waits for the end stays.
  ~ConsoleWatch() override {
    if (!goes) ::SetConsoleCtrlHandler(OnControl, FALSE);
  }
  ConsoleWatch(const ConsoleWatch&) = delete;
  ConsoleWatch& operator=(const ConsoleWatch&) = delete;

  bool Requested() const override { return requested; }

 private:
  std::optional<SessionWindow> window_;
};

}  // namespace

std::unique_ptr<Interruption> WatchProcess() {
  return std::make_unique<ConsoleWatch>();
}

void EndProcess(std::string_view words, int status) {
  constexpr DWORD kPatience = 1000;  // milliseconds
  const auto tell = [](void* text) -> DWORD {
    const auto& said = *static_cast<const std::string_view*>(text);
    DWORD written = 0;
    ::WriteFile(::GetStdHandle(STD_ERROR_HANDLE), said.data(), static_cast<DWORD>(said.size()), &written, nullptr);
    return 0;
  };
  if (const HANDLE teller = ::CreateThread(nullptr, 0, tell, &words, 0, nullptr)) {
    ::WaitForSingleObject(teller, kPatience);
  }
  ::TerminateProcess(::GetCurrentProcess(), static_cast<UINT>(status));  // ExitProcess would wait for the libraries
  std::abort();
}

// What it is called depends on who closed the pipe; the runtime knows only one of the three by a name of its own.
bool LastWriteHadNoReader() {
  const DWORD error = ::GetLastError();
  return error == ERROR_BROKEN_PIPE || error == ERROR_NO_DATA || error == ERROR_PIPE_NOT_CONNECTED;
}

}  // namespace varnelctl
