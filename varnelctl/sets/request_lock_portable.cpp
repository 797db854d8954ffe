#include <unistd.h>

#include <filesystem>
#include <thread>

#include "simulator/machine/state_file.h"
#include "varnelctl/console/text.h"
#include "varnelctl/sets/request_lock.h"

namespace varnelctl {
namespace {

// The number in the file is the process that held the lock last. The file stays: who deletes it may take it from under
// somebody who waits.
class FileLock final : public RequestLock {
 public:
  explicit FileLock(const std::string& name) : name_(name), file_(PathOf(name)) {}

  bool Acquire(std::chrono::milliseconds most) override {
    constexpr std::chrono::milliseconds kPause{10};
    for (std::chrono::milliseconds waited{0}; !file_.Lock(kPlace, false); waited += kPause) {
      if (waited >= most) return false;
      std::this_thread::sleep_for(kPause);
    }
    file_.SetNumber(static_cast<std::uint64_t>(::getpid()));  // for people: the lock holds without it
    return true;
  }
  std::string Describe() const override {
    const std::uint64_t process = file_.Number().value_or(0);
    return "lock " + name_ + (process == 0 ? "" : " of process " + std::to_string(process));
  }

 private:
  static constexpr DWORD kPlace = 0;

  std::string name_;
  varnel::simulator::LockFile file_;
};

}  // namespace

std::unique_ptr<RequestLock> OpenRequestLock(const std::string& name) {
  return std::make_unique<FileLock>(name);
}

std::string RequestLockOfMachine() {
  return {};
}

std::string RequestLockOfState(const std::string& stateFile) {
  return stateFile + ".request";
}

}  // namespace varnelctl
