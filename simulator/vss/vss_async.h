// Asynchronous operations of the service.
#pragma once

#include <atomic>
#include <memory>

#include "simulator/machine/machine.h"

namespace varnel::simulator {

/// An operation, shared by the object that started it and the IVssAsync that was handed out. Its work is done when it
/// starts; until `endsAt` on the virtual clock it only looks unfinished.
struct AsyncOperation {
  HRESULT result = 0;               // VSS_S_ASYNC_PENDING: it never ends by itself
  ULONGLONG endsAt = 0;             // Machine::now
  bool settled = false;             // the caller has seen its end, cancelled it or let go of it
  std::atomic<bool> hangs = false;  // with VSS_S_ASYNC_PENDING: until it is cancelled

  bool IsRunning(ULONGLONG now) const { return result == VSS_S_ASYNC_PENDING || now < endsAt; }
};

/// The caller's view of an operation.
IVssAsync* MakeAsync(std::shared_ptr<Machine> machine, std::shared_ptr<AsyncOperation> operation);

}  // namespace varnel::simulator
