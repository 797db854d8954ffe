#include "simulator/services/simulated_processes.h"

#include <algorithm>

#include "simulator/services/kernel_objects.h"
#include "simulator/services/on_machine.h"
#include "simulator/services/simulated_system.h"
#include "text/ascii_case.h"

namespace varnel::simulator {
namespace {

// A command line taken apart. The program may stand in quotation marks.
struct CommandLine {
  std::wstring folder;  // with a backslash at its end; empty when the program stands alone
  std::wstring program;
  std::wstring bare;  // the line without folder and quotation marks
};

CommandLine Split(std::wstring_view line) {
  const bool quoted = line.starts_with(L'"');
  if (quoted) line.remove_prefix(1);
  const std::size_t end = std::min(quoted ? line.find(L'"') : line.find_first_of(L" \t"), line.size());
  const std::wstring_view path = line.substr(0, end);
  const std::wstring_view rest = line.substr(std::min(end + (quoted ? 1 : 0), line.size()));
  const std::size_t name = path.find_last_of(L'\\') + 1;  // 0 without one
  CommandLine parts{std::wstring(path.substr(0, name)), std::wstring(path.substr(name)), {}};
  parts.bare = parts.program + std::wstring(rest);
  return parts;
}

std::wstring WithBackslash(std::wstring_view folder) {
  return std::wstring(folder) + (folder.ends_with(L'\\') ? L"" : L"\\");
}

bool IsSameFolder(std::wstring_view one, std::wstring_view other) {
  return ascii::EqualIgnoringCase(WithBackslash(one), WithBackslash(other));
}

bool LiesIn(const Command& command, std::wstring_view folder) {
  return command.folder.empty() || IsSameFolder(command.folder, folder);
}

// The folders of a list such as PATH.
std::vector<std::wstring> FoldersOf(std::wstring_view list) {
  std::vector<std::wstring> folders;
  while (!list.empty()) {
    const std::size_t end = std::min(list.find(L';'), list.size());
    if (end != 0) folders.emplace_back(list.substr(0, end));
    list.remove_prefix(std::min(end + 1, list.size()));
  }
  return folders;
}

// Where the system looks for a program that is named without its folder, in this order. The program's own folder, the
// first on Windows, holds none.
std::vector<std::wstring> FoldersSearched(const HostModel& model) {
  std::vector<std::wstring> folders = {model.currentDirectory, model.systemDirectory};
  if (const auto windows = EnvironmentValue(model, L"SystemRoot")) folders.push_back(*windows);
  if (const auto path = EnvironmentValue(model, L"PATH")) {
    for (std::wstring& folder : FoldersOf(*path)) folders.push_back(std::move(folder));
  }
  return folders;
}

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

  DWORD SearchPathW(LPCWSTR path, LPCWSTR file, LPCWSTR, DWORD characters, LPWSTR found, LPWSTR*) override {
    return Win32Call(machine_, "SearchPathW", Shown(file), DWORD{0}, [&] {
      if (file == nullptr || *file == L'\0') return Fail(ERROR_INVALID_PARAMETER, DWORD{0});
      for (const std::wstring& folder : path != nullptr ? FoldersOf(path) : FoldersSearched(model())) {
        if (Holds(folder, file)) return Fill(WithBackslash(folder) + file, found, characters);
      }
      return Fail(ERROR_FILE_NOT_FOUND, DWORD{0});
    });
  }

  // The same on every run, so that what a run tells of itself can be compared.
  DWORD GetCurrentProcessId() override { return 4242; }

 private:
  const KernelObject* Find(HANDLE process) { return objects_.Find(process, KernelObject::Kind::process); }

  // Whether a program of this name lies in the folder. One that lies wherever it is looked for is found in the first.
  bool Holds(const std::wstring& folder, std::wstring_view program) const {
    return std::any_of(model().commands.begin(), model().commands.end(), [&](const Command& command) {
      const CommandLine known = Split(command.match);
      if (!ascii::MatchesPattern(known.program, program)) return false;
      return LiesIn(command, folder) && (known.folder.empty() || IsSameFolder(known.folder, folder));
    });
  }

  const Command* Find(const std::wstring& line) const {
    const CommandLine parts = Split(line);
    const bool isBare = parts.folder.empty();
    for (const std::wstring& folder : isBare ? FoldersSearched(model()) : std::vector{parts.folder}) {
      for (const Command& command : model().commands) {
        const std::wstring& text = command.folder.empty() ? line : parts.bare;
        if (LiesIn(command, folder) && ascii::MatchesPattern(command.match, text)) return &command;
      }
    }
    return nullptr;
  }

  BOOL Start(LPCWSTR commandLine, PROCESS_INFORMATION& process) {
    const Command* const command = Find(commandLine);
    if (command == nullptr) return Fail(ERROR_FILE_NOT_FOUND);
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
