#include "simulator/vss/vss_async.h"

#include <algorithm>

#include "simulator/vss/com_object.h"

namespace varnel::simulator {
namespace {

constexpr GUID kAsyncInterfaces[] = {kIidVssAsync};

class Async final : public ComObject<IVssAsync> {
 public:
  Async(std::shared_ptr<Machine> machine, std::shared_ptr<AsyncOperation> operation)
      : ComObject(std::move(machine), "IVssAsync", kAsyncInterfaces), operation_(std::move(operation)) {}

  HRESULT STDMETHODCALLTYPE Cancel() override {
    bool cancelled = false;
    const HRESULT result = Call("IVssAsync::Cancel", NoArguments, [&] {
      const bool running = operation_->IsRunning(machine().now);
      if (running) {
        operation_->result = VSS_S_ASYNC_CANCELLED;
        operation_->endsAt = machine().now;
      }
      operation_->settled = true;
      cancelled = operation_->result == VSS_S_ASYNC_CANCELLED;
      return running ? S_OK : operation_->result;
    });
    // Who waited goes on when the call is over.
    if (cancelled) machine().faults.hangs().Clear(operation_->hangs);
    return result;
  }

  // An endless wait for an operation that hangs blocks before the call begins: other calls go on meanwhile.
  HRESULT STDMETHODCALLTYPE Wait(DWORD milliseconds) override {
    if (milliseconds == INFINITE) machine().faults.hangs().WaitWhile(operation_->hangs);
    return Call(
        "IVssAsync::Wait",
        [&] { return milliseconds == INFINITE ? std::string("INFINITE") : std::to_string(milliseconds); },
        [&] {
          PassTime(milliseconds);
          operation_->settled = !operation_->IsRunning(machine().now);
          return S_OK;
        });
  }

  HRESULT STDMETHODCALLTYPE QueryStatus(HRESULT* result, INT* reserved) override {
    HRESULT status = S_OK;
    return Call(
        "IVssAsync::QueryStatus", [&] { return "-> " + ResultName(status); },
        [&] {
          if (result == nullptr) return E_INVALIDARG;
          const bool running = operation_->IsRunning(machine().now);
          status = running ? VSS_S_ASYNC_PENDING : operation_->result;
          if (!running) operation_->settled = true;
          *result = status;
          if (reserved != nullptr) *reserved = 0;
          return S_OK;
        });
  }

 private:
  ~Async() override { operation_->settled = true; }

  // An operation that never ends lets an endless wait return at once when it does not hang, or not any more.
  void PassTime(DWORD milliseconds) {
    ULONGLONG& now = machine().now;
    if (operation_->result == VSS_S_ASYNC_PENDING) {
      if (milliseconds != INFINITE) now += milliseconds;
      return;
    }
    const ULONGLONG left = operation_->endsAt > now ? operation_->endsAt - now : 0;
    now += milliseconds == INFINITE ? left : std::min<ULONGLONG>(left, milliseconds);
  }

  std::shared_ptr<AsyncOperation> operation_;
};

}  // namespace

IVssAsync* MakeAsync(std::shared_ptr<Machine> machine, std::shared_ptr<AsyncOperation> operation) {
  return new Async(std::move(machine), std::move(operation));
}

}  // namespace varnel::simulator
