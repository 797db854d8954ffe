// Programs that a test starts.
#pragma once

#include <csignal>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#ifdef _WIN32
#include "platform/win32.h"
#include "text/unicode.h"
#else
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace varnel::test {

/// The status of a child that was killed, on every platform.
inline constexpr int kKilled = 137;

/// A running program. Its arguments hold no quotation marks and end in no backslash.
class ChildProgram {
 public:
  /// Throws std::runtime_error when it cannot be started.
  explicit ChildProgram(std::vector<std::string> arguments);
  ChildProgram(ChildProgram&& other) noexcept : process_(std::exchange(other.process_, {})) {}
  ChildProgram& operator=(ChildProgram&&) = delete;
  ~ChildProgram() { Wait(); }

  /// Its exit status, kKilled where it was killed. Once.
  int Wait();
  /// Ends it at once, as an administrator would. Nothing happens after Wait.
  void Kill() const;

 private:
#ifdef _WIN32
  HANDLE process_ = nullptr;
#else
  pid_t process_ = 0;
#endif
};

#ifdef _WIN32

inline ChildProgram::ChildProgram(std::vector<std::string> arguments) {
  std::wstring line;
  for (const std::string& argument : arguments) line += L"\"" + Utf8ToWide(argument) + L"\" ";
  STARTUPINFOW start{};
  start.cb = sizeof start;
  PROCESS_INFORMATION made{};
  if (::CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &start, &made) == FALSE) {
    throw std::runtime_error("cannot start " + arguments.at(0));
  }
  ::CloseHandle(made.hThread);
  process_ = made.hProcess;
}

inline int ChildProgram::Wait() {
  if (process_ == nullptr) return 0;
  DWORD status = 0;
  ::WaitForSingleObject(process_, INFINITE);
  ::GetExitCodeProcess(process_, &status);
  ::CloseHandle(std::exchange(process_, nullptr));
  return static_cast<int>(status);
}

inline void ChildProgram::Kill() const {
  if (process_ != nullptr) ::TerminateProcess(process_, kKilled);
}

#else

inline ChildProgram::ChildProgram(std::vector<std::string> arguments) {
  std::vector<char*> pointers;
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  if (::posix_spawn(&process_, pointers.at(0), nullptr, nullptr, pointers.data(), environ) != 0) {
    throw std::runtime_error("cannot start " + arguments.at(0));
  }
}

inline int ChildProgram::Wait() {
  if (process_ == 0) return 0;
  int status = 0;
  ::waitpid(std::exchange(process_, 0), &status, 0);
  return WIFSIGNALED(status) ? kKilled : WEXITSTATUS(status);
}

inline void ChildProgram::Kill() const {
  if (process_ != 0) ::kill(process_, SIGKILL);
}

#endif

}  // namespace varnel::test
