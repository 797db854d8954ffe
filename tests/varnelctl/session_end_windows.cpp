// Ctrl-Break, and the end of the session and of the system, as the program takes them on Windows.
#include "tests/varnelctl/snapshot_support.h"
#include "tests/varnelctl/started_program.h"
#include "varnelctl/console/interruption.h"

namespace varnel::test {
namespace {

using testing::AllOf;

// A desktop of the test's own, on which programs may have windows. Wine has none without a display, unless it is told
// before the desktop's first window that nothing is to be shown.
class Desktop {
 public:
  Desktop() {
    const wchar_t driver[] = L"null";
    if (::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr) {
      ::RegSetKeyValueW(HKEY_CURRENT_USER, kKey, L"Graphics", REG_SZ, driver, sizeof driver);
    }
    desktop_ = ::CreateDesktopW(kName, nullptr, nullptr, 0, GENERIC_ALL, nullptr);
    ::SetThreadDesktop(desktop_);
  }
  ~Desktop() {
    ::SetThreadDesktop(before_);
    ::CloseDesktop(desktop_);
    ::RegDeleteKeyValueW(HKEY_CURRENT_USER, kKey, L"Graphics");  // other programs are to have none
  }
  Desktop(const Desktop&) = delete;
  Desktop& operator=(const Desktop&) = delete;

  static constexpr wchar_t kName[] = L"varnel-test";

 private:
  static constexpr wchar_t kKey[] = L"Software\\Wine\\Drivers";

  HDESK before_ = ::GetThreadDesktop(::GetCurrentThreadId());
  HDESK desktop_ = nullptr;
};

// varnelctl while the writers prepare, which they never end.
class SessionEnd : public SnapshotCommand {
 protected:
  StartedProgram Start() {
    hostFile["faults"] = {{{"async", "PrepareForBackup"}, {"hangs", true}}};
    return StartedProgram(folder, "p", hostFile, Whole({}), Desktop::kName);
  }
  static void ExpectEndedInOrder(StartedProgram& program) {
    EXPECT_EQ(program.Wait(), 17);
    EXPECT_THAT(program.Err(), AllOf(StartsWith(varnelctl::kInterruptionNotice),
                                     HasSubstr("varnelctl: interrupted while asking the writers to prepare\n")));
    EXPECT_THAT(program.Out(), HasSubstr("FAILED: nothing was captured: interrupted "));
  }

  const Desktop desktop;
};

TEST_F(SessionEnd, IsAgreedToAndEndsTheRun) {
  StartedProgram program = Start();
  program.AwaitOut("adding the components and volumes: done");
  const HWND window = ::FindWindowW(varnelctl::kSessionWindow, nullptr);
  ASSERT_NE(window, nullptr);
  EXPECT_EQ(::SendMessageW(window, WM_QUERYENDSESSION, 0, 0), TRUE);

  ExpectEndedInOrder(program);
}

// Whoever answers may be ended at once. A session that is made to end asks nobody before.
TEST_F(SessionEnd, WaitsForTheEndOfTheRunAlsoWhereNobodyWasAsked) {
  StartedProgram program = Start();
  program.AwaitOut("adding the components and volumes: done");
  const HWND window = ::FindWindowW(varnelctl::kSessionWindow, nullptr);
  ASSERT_NE(window, nullptr);
  EXPECT_EQ(::SendMessageW(window, WM_ENDSESSION, FALSE, 0), 0);
  DWORD_PTR answer = 0;
  constexpr UINT kPatience = 60'000;
  EXPECT_EQ(::SendMessageTimeoutW(window, WM_ENDSESSION, TRUE, 0, SMTO_NORMAL, kPatience, &answer), 0)
      << "it was answered before the program ended";

  ExpectEndedInOrder(program);
}

// As a console tells a program of it: with a thread in that program.
class ConsoleEvent : public SessionEnd, public testing::WithParamInterface<DWORD> {
 protected:
  void Tell(const StartedProgram& program) {
    const FARPROC routine = ::GetProcAddress(::GetModuleHandleW(L"kernelbase.dll"), "CtrlRoutine");
    ASSERT_NE(routine, nullptr);
    const auto begin = reinterpret_cast<LPTHREAD_START_ROUTINE>(reinterpret_cast<void*>(routine));
    void* const event = reinterpret_cast<void*>(static_cast<ULONG_PTR>(GetParam()));
    const HANDLE thread = ::CreateRemoteThread(program.process(), nullptr, 0, begin, event, 0, nullptr);
    ASSERT_NE(thread, nullptr);
    ::CloseHandle(thread);
  }
};

TEST_P(ConsoleEvent, EndsTheRun) {
  StartedProgram program = Start();
  program.AwaitOut("adding the components and volumes: done");
  Tell(program);

  ExpectEndedInOrder(program);
}

INSTANTIATE_TEST_SUITE_P(Windows, ConsoleEvent, testing::Values(DWORD{CTRL_BREAK_EVENT}, DWORD{CTRL_CLOSE_EVENT}));

}  // namespace
}  // namespace varnel::test
