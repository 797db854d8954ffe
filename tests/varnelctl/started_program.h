// varnelctl as a program of its own, which a test starts, looks at and ends.
#pragma once

#include <chrono>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/varnelctl/cli_support.h"

#ifdef _WIN32
#include "platform/win32.h"
#include "text/unicode.h"
#else
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace varnel::test {

/// Prints into files of the test's folder. On Windows it has a console of its own, without a window.
class StartedProgram {
 public:
  /// \param name tells its files from those of others. \param desktop Windows alone: where it may have windows.
  StartedProgram(const TemporaryFolder& folder, const std::string& name, const nlohmann::json& hostFile,
                 const Arguments& arguments, const wchar_t* desktop = nullptr)
      : out_(folder.File(name + ".out")), err_(folder.File(name + ".err")) {
    Arguments whole = {VARNEL_PROGRAM, "--host", folder.Write(name + ".json", hostFile.dump())};
    whole.insert(whole.end(), arguments.begin(), arguments.end());
    Start(std::move(whole), desktop);
  }
  StartedProgram(const StartedProgram&) = delete;
  StartedProgram& operator=(const StartedProgram&) = delete;
  ~StartedProgram() { Wait(); }

  std::string Out() const { return ReadFile(out_); }
  std::string Err() const { return ReadFile(err_); }
  void AwaitOut(const std::string& text) const {
    constexpr std::chrono::minutes kPatience{1};
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (Out().find(text) == std::string::npos) {
      if (std::chrono::steady_clock::now() > end) throw std::runtime_error("the program never said " + text);
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  }
#ifdef _WIN32
  HANDLE process() const {
    return process_;
  }
#else
  pid_t id() const {
    return id_;
  }
#endif
  /// Its exit status, -1 where it was killed. Once.
  int Wait();

 private:
  void Start(Arguments arguments, const wchar_t* desktop);

  const std::string out_;
  const std::string err_;
#ifdef _WIN32
  HANDLE process_ = nullptr;
#else
  pid_t id_ = 0;
#endif
};

#ifdef _WIN32

inline void StartedProgram::Start(Arguments arguments, const wchar_t* desktop) {
  const auto open = [](const std::string& file) {
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    return ::CreateFileW(PathOf(file).wstring().c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited,
                         CREATE_ALWAYS, 0, nullptr);
  };
  std::wstring line;
  for (const std::string& argument : arguments) line += L"\"" + Utf8ToWide(argument) + L"\" ";
  std::wstring where = desktop == nullptr ? L"" : desktop;
  STARTUPINFOW start{};
  start.cb = sizeof start;
  start.dwFlags = STARTF_USESTDHANDLES;
  start.hStdOutput = open(out_);
  start.hStdError = open(err_);
  if (desktop != nullptr) start.lpDesktop = where.data();
  PROCESS_INFORMATION made{};
  const BOOL started =
      ::CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr, nullptr, &start, &made);
  ::CloseHandle(start.hStdOutput);
  ::CloseHandle(start.hStdError);
  if (!started) throw std::runtime_error("cannot start " + arguments.at(0));
  ::CloseHandle(made.hThread);
  process_ = made.hProcess;
}

inline int StartedProgram::Wait() {
  if (process_ == nullptr) return 0;
  DWORD status = 0;
  ::WaitForSingleObject(process_, INFINITE);
  ::GetExitCodeProcess(process_, &status);
  ::CloseHandle(std::exchange(process_, nullptr));
  return static_cast<int>(status);
}

#else

inline void StartedProgram::Start(Arguments arguments, const wchar_t*) {
  std::vector<char*> words;
  for (std::string& argument : arguments) words.push_back(argument.data());
  words.push_back(nullptr);
  constexpr mode_t kReadable = 0600;
  const int out = ::open(out_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, kReadable);
  const int err = ::open(err_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, kReadable);
  id_ = ::fork();
  if (id_ == 0) {
    ::dup2(out, STDOUT_FILENO);
    ::dup2(err, STDERR_FILENO);
    ::execv(words[0], words.data());
    ::_exit(127);
  }
  ::close(out);
  ::close(err);
}

inline int StartedProgram::Wait() {
  if (id_ <= 0) return 0;
  int status = 0;
  ::waitpid(std::exchange(id_, 0), &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

#endif

}  // namespace varnel::test
