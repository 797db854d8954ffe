#include "platform/win32.h"
#include "varnelctl/sets/process_identity.h"

namespace varnelctl {
namespace {

class Process {
 public:
  explicit Process(std::uint32_t id)
      : handle_(::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE, FALSE, id)) {}
  ~Process() {
    if (handle_ != nullptr) ::CloseHandle(handle_);
  }
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  explicit operator bool() const { return handle_ != nullptr; }
  bool HasEnded() const { return ::WaitForSingleObject(handle_, 0) == WAIT_OBJECT_0; }
  std::uint64_t Start() const { return StartOf(handle_); }

  static std::uint64_t StartOf(HANDLE process) {
    constexpr int kHalf = 32;
    FILETIME created{};
    FILETIME unused{};
    if (!::GetProcessTimes(process, &created, &unused, &unused, &unused)) return 0;
    return (std::uint64_t{created.dwHighDateTime} << kHalf) | created.dwLowDateTime;
  }

 private:
  HANDLE handle_;
};

}  // namespace

ProcessIdentity ThisProcess() {
  return {::GetCurrentProcessId(), Process::StartOf(::GetCurrentProcess())};
}

// An identifier that no process has is ERROR_INVALID_PARAMETER.
bool IsRunning(const ProcessIdentity& identity) {
  if (identity.id == 0) return false;
  const Process process(identity.id);
  if (!process) return ::GetLastError() != ERROR_INVALID_PARAMETER;
  const std::uint64_t start = process.Start();
  return !process.HasEnded() && (start == 0 || start == identity.start);
}

}  // namespace varnelctl
