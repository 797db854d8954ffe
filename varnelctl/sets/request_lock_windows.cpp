#include <cstdint>
#include <filesystem>
#include <system_error>

#include "platform/win32.h"
#include "text/ascii_case.h"
#include "text/format.h"
#include "text/unicode.h"
#include "varnelctl/console/text.h"
#include "varnelctl/sets/access_list.h"
#include "varnelctl/sets/request_lock.h"

namespace varnelctl {
namespace {

constexpr char kMachine[] = "Global\\varnel-request";
constexpr DWORD kAccess = SYNCHRONIZE | MUTEX_MODIFY_STATE;
// To wait for it and to give it back, for the system, administrators and backup operators: only those who may take a
// set of this machine may hold up others that do.
constexpr wchar_t kAccessList[] = L"D:P(A;;0x00100001;;;SY)(A;;0x00100001;;;BA)(A;;0x00100001;;;BO)";
static_assert(kAccess == 0x00100001, "as in the access list");

[[noreturn]] void ThrowLastError() {
  throw std::system_error(static_cast<int>(::GetLastError()), std::system_category());
}

HANDLE OpenMutexCalled(const std::string& name) {
  const std::wstring wide = varnel::Utf8ToWideLossy(name);
  if (name != kMachine) return ::CreateMutexExW(nullptr, wide.c_str(), 0, kAccess);
  const AccessList list(kAccessList);
  SECURITY_ATTRIBUTES attributes = list.Attributes();
  return ::CreateMutexExW(&attributes, wide.c_str(), 0, kAccess);
}

// FNV-1a: the same in every version of the program.
std::uint64_t HashOf(std::wstring_view text) {
  constexpr std::uint64_t kPrime = 1099511628211U;
  std::uint64_t hash = 14695981039346656037U;
  for (const wchar_t c : text) hash = (hash ^ static_cast<std::uint64_t>(c)) * kPrime;
  return hash;
}

class Mutex final : public RequestLock {
 public:
  explicit Mutex(const std::string& name) : name_(name), mutex_(OpenMutexCalled(name)) {
    if (mutex_ == nullptr) ThrowLastError();
  }
  ~Mutex() override {
    if (held_) ::ReleaseMutex(mutex_);
    ::CloseHandle(mutex_);
  }
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  // One that belonged to a process that died is as good as any: what it guards is the service's, which is never torn.
  bool Acquire(std::chrono::milliseconds most) override {
    const DWORD result = ::WaitForSingleObject(mutex_, static_cast<DWORD>(most.count()));
    if (result == WAIT_FAILED) ThrowLastError();
    held_ = result == WAIT_OBJECT_0 || result == WAIT_ABANDONED;
    return held_;
  }
  std::string Describe() const override { return "mutex " + name_; }

 private:
  std::string name_;
  HANDLE mutex_;
  bool held_ = false;
};

}  // namespace

std::unique_ptr<RequestLock> OpenRequestLock(const std::string& name) {
  return std::make_unique<Mutex>(name);
}

std::string RequestLockOfMachine() {
  return kMachine;
}

// The name of a mutex takes no path.
std::string RequestLockOfState(const std::string& stateFile) {
  // By its name alone: a file that is open at the wrong moment cannot be replaced by the process that uses the state.
  std::error_code error;
  std::filesystem::path path = std::filesystem::absolute(PathOf(stateFile), error);
  if (error) path = PathOf(stateFile);
  const std::uint64_t hash = HashOf(varnel::ascii::ToLower(path.lexically_normal().wstring()));
  return kMachine +
         varnel::FormatNarrow("-%08x%08x", {static_cast<std::uint32_t>(hash >> 32), static_cast<std::uint32_t>(hash)});
}

}  // namespace varnelctl
