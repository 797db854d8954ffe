#include "simulator/services/simulated_processes.h"

#include <algorithm>

#include "simulator/services/kernel_objects.h"
#include "simulator/services/on_machine.h"
#include "text/ascii_case.h"

namespace varnel::simulator {
namespace {

class SimulatedProcesses final : public OnMachine<Processes> {
 public:
  SimulatedProcesses(Machine& machine, KernelObjects& objects) : OnMachine(machine), objects_(objects) {}

  BOOL CreateProcessW(LPCWSTR application, LPWSTR commandLine, void*, void*, BOOL, DWORD, void*, LPCWSTR, STARTUPINFOW*,
                      PROCESS_INFORMATION* process) override {
    const LPCWSTR line = commandLine != nullptr ? commandLine : application;
    return Win32Call(machine_, "CreateProcessW", Shown(line), BOOL{FALSE}, [&] {
      return line != nullptr && process != nullptr ? Start(line, *process) : Fail(ERROR_INVALID_PARAMETER);
    });
  }

  DWORD WaitForSingleObject(HANDLE handle, DWORD) override {
    const auto described = [&] { return objects_.Describe(handle); };
    return Win32Call(machine_, "WaitForSingleObject", described, DWORD{WAIT_FAILED}, [&]() -> DWORD {
      const bool known = Find(handle) != nullptr || objects_.Find(handle, KernelObject::Kind::thread) != nullptr;
      return known ? WAIT_OBJECT_0 : Fail(ERROR_INVALID_HANDLE, DWORD{WAIT_FAILED});
    });
  }

  BOOL GetExitCodeProcess(HANDLE process, DWORD* exitCode) override {
    const auto described = [&] { return objects_.Describe(process); };
    return Win32Call(machine_, "GetExitCodeProcess", described, BOOL{FALSE}, [&] {
      const KernelObject* object = Find(process);
      if (object == nullptr) return Fail(ERROR_INVALID_HANDLE);
      if (exitCode == nullptr) return Fail(ERROR_INVALID_PARAMETER);
      *exitCode = object->exitCode;
      return TRUE;
    });
  }

  BOOL CloseHandle(HANDLE handle) override { return objects_.CloseHandle(handle); }

 private:
  const KernelObject* Find(HANDLE process) { return objects_.Find(process, KernelObject::Kind::process); }

  BOOL Start(LPCWSTR commandLine, PROCESS_INFORMATION& process) {
    const auto command = std::find_if(model().commands.begin(), model().commands.end(), [&](const Command& candidate) {
      return ascii::MatchesPattern(candidate.match, commandLine);
    });
    if (command == model().commands.end()) return Fail(ERROR_FILE_NOT_FOUND);
    process.hProcess = objects_.Open({KernelObject::Kind::process, L"process", 0, 0, command->exitCode});
    process.hThread = objects_.Open({KernelObject::Kind::thread, L"thread", 0, 0, command->exitCode});
    process.dwProcessId = nextProcessId_++;
    process.dwThreadId = nextProcessId_++;
    return TRUE;
  }

  KernelObjects& objects_;
  DWORD nextProcessId_ = 1000;
};

}  // namespace

std::unique_ptr<Processes> MakeProcesses(Machine& machine, KernelObjects& objects) {
  return std::make_unique<SimulatedProcesses>(machine, objects);
}

}  // namespace varnel::simulator
