#include "varnelctl/sets/request_lock.h"

#include <system_error>

#include "varnelctl/console/phases.h"
#include "varnelctl/console/text.h"
#include "varnelctl/session.h"

namespace varnelctl {
namespace {

using Clock =
    std::chrono::steady_clock;  // the other requests are other processes: a simulated clock knows no such wait

constexpr std::chrono::milliseconds kSlice{100};
constexpr std::chrono::seconds kPatience{1};

Warning OfOther(const RequestLock& lock, const std::string& what) {
  return {"otherRequest",
          "another request of varnelctl is taking a snapshot set on this host (" + lock.Describe() + ")" + what};
}

bool Await(RequestLock& lock, Session& session, const Phases& phases, std::chrono::seconds most) {
  const Clock::time_point start = Clock::now();
  bool told = false;
  while (!lock.Acquire(most.count() == 0 ? std::chrono::milliseconds(0) : kSlice)) {
    phases.ThrowIfInterrupted();
    const auto waited = Clock::now() - start;
    if (waited >= most) return false;
    if (told || waited < kPatience) continue;
    told = true;
    session.Warn(OfOther(lock, "; this one waits"));
  }
  return true;
}

}  // namespace

std::unique_ptr<RequestLock> TakeTurn(Session& session, const Phases& phases, std::chrono::seconds most) {
  if (session.requestLock.empty()) return nullptr;
  try {
    std::unique_ptr<RequestLock> lock = OpenRequestLock(session.requestLock);
    if (Await(*lock, session, phases, most)) return lock;
    session.Warn(
        OfOther(*lock, " and is waited for no longer (--wait-for-others " + std::to_string(most.count()) + ")"));
  } catch (const std::system_error& error) {
    session.Warn({"requestLockMissing", "lock " + session.requestLock + " cannot be had: " + OneLine(error.what()) +
                                            "; other requests of varnelctl on this host do not wait for this one"});
  }
  session.requestLock.clear();
  return nullptr;
}

}  // namespace varnelctl
