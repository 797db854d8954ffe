// Requests of one host take turns, whichever processes make them: the service takes one snapshot set at a time.
#pragma once

#include <chrono>
#include <memory>
#include <string>

namespace varnelctl {

class Phases;
class Session;

/// Held by one request at a time: on Windows a mutex, elsewhere a lock on a file. The system takes it back from a
/// process that ends, however it ends. An object belongs to one thread and gives the lock back at its end.
class RequestLock {
 public:
  virtual ~RequestLock() = default;
  /// Waits so long in real time, or a little longer. False when another request holds it still. Throws
  /// std::system_error.
  virtual bool Acquire(std::chrono::milliseconds most) = 0;
  /// "lock NAME of process N", as far as it is known who holds it.
  virtual std::string Describe() const = 0;
};

/// Makes the lock of this name (see below) where there is none. Throws std::system_error.
std::unique_ptr<RequestLock> OpenRequestLock(const std::string& name);

/// The name of the lock of this machine; empty where there is no such machine.
std::string RequestLockOfMachine();
/// That of the simulated host with this state file: the same however the file is named.
std::string RequestLockOfState(const std::string& stateFile);

/// The session's lock, to be held while the set is taken. A person is told of a wait that takes longer than a second,
/// and can interrupt it. Without the lock, where it cannot be had or `most` is over, the request goes on after a
/// warning: the service itself answers then that a set is in progress. Throws Interrupted.
std::unique_ptr<RequestLock> TakeTurn(Session& session, const Phases& phases, std::chrono::seconds most);

}  // namespace varnelctl
