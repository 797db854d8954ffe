#include <algorithm>
#include <utility>

#include "simulator/host_file/text.h"
#include "simulator/services/services.h"

namespace varnel::simulator {
namespace {

std::string_view KindName(KernelObject::Kind kind) {
  switch (kind) {
    case KernelObject::Kind::process:
      return "process handle";
    case KernelObject::Kind::thread:
      return "thread handle";
    default:
      return "file handle";
  }
}

}  // namespace

HANDLE KernelObjects::Open(KernelObject object) {
  const std::string_view kind = KindName(object.kind);
  return handles_.Open(kind, std::move(object));
}

const KernelObject* KernelObjects::Find(HANDLE handle, KernelObject::Kind kind) {
  const KernelObject* object = handles_.Find(handle);
  return object != nullptr && object->kind == kind ? object : nullptr;
}

std::string KernelObjects::Describe(HANDLE handle) {
  const KernelObject* object = handles_.Find(handle);
  return object == nullptr ? "not open" : Show(object->name);
}

BOOL KernelObjects::CloseHandle(HANDLE handle) {
  const std::string what = machine_.calls.enabled ? Describe(handle) : std::string();
  const bool closed = handles_.Close(handle, "CloseHandle");
  return Win32Call(
      machine_, "CloseHandle", BOOL{FALSE}, [&] { return what; },
      [&]() -> BOOL {
        if (!closed) machine_.lastError = ERROR_INVALID_HANDLE;
        return closed ? TRUE : FALSE;
      });
}

BOOL SimulatedProcesses::Start(LPCWSTR commandLine, PROCESS_INFORMATION* process) {
  const std::vector<Command>& commands = machine_.model.commands;
  const auto command = std::find_if(commands.begin(), commands.end(), [&](const Command& candidate) {
    return MatchesPattern(candidate.match, commandLine);
  });
  if (command == commands.end()) {
    machine_.lastError = ERROR_FILE_NOT_FOUND;
    return FALSE;
  }
  KernelObject object{KernelObject::Kind::process, L"process", 0, 0, command->exitCode};
  process->hProcess = objects_.Open(object);
  object.kind = KernelObject::Kind::thread;
  object.name = L"thread";
  process->hThread = objects_.Open(object);
  process->dwProcessId = nextProcessId_++;
  process->dwThreadId = nextProcessId_++;
  return TRUE;
}

BOOL SimulatedProcesses::CreateProcessW(LPCWSTR application, LPWSTR commandLine, void*, void*, BOOL, DWORD, void*,
                                        LPCWSTR, STARTUPINFOW*, PROCESS_INFORMATION* process) {
  const LPCWSTR line = commandLine != nullptr ? commandLine : application;
  return Win32Call(
      machine_, "CreateProcessW", BOOL{FALSE}, [&] { return Show(line); },
      [&]() -> BOOL {
        if (line != nullptr && process != nullptr) return Start(line, process);
        machine_.lastError = ERROR_INVALID_PARAMETER;
        return FALSE;
      });
}

DWORD SimulatedProcesses::WaitForSingleObject(HANDLE handle, DWORD) {
  return Win32Call(
      machine_, "WaitForSingleObject", DWORD{WAIT_FAILED}, [&] { return objects_.Describe(handle); },
      [&]() -> DWORD {
        const bool known = objects_.Find(handle, KernelObject::Kind::process) != nullptr ||
                           objects_.Find(handle, KernelObject::Kind::thread) != nullptr;
        if (!known) machine_.lastError = ERROR_INVALID_HANDLE;
        return known ? WAIT_OBJECT_0 : WAIT_FAILED;
      });
}

BOOL SimulatedProcesses::GetExitCodeProcess(HANDLE process, DWORD* exitCode) {
  return Win32Call(
      machine_, "GetExitCodeProcess", BOOL{FALSE}, [&] { return objects_.Describe(process); },
      [&]() -> BOOL {
        const KernelObject* object = objects_.Find(process, KernelObject::Kind::process);
        if (object == nullptr || exitCode == nullptr) {
          machine_.lastError = object == nullptr ? ERROR_INVALID_HANDLE : ERROR_INVALID_PARAMETER;
          return FALSE;
        }
        *exitCode = object->exitCode;
        return TRUE;
      });
}

}  // namespace varnel::simulator
