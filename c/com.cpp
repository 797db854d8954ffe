#include "c/com.h"

#include <atomic>

#include "c/varnel-c.h"
#include "platform/host.h"

namespace varnel::c {
namespace {

constexpr auto kTooLate = static_cast<HRESULT>(0x80010119);  // RPC_E_TOO_LATE

// Whether the process's security is ours: set once, it is there for every thread.
std::atomic<bool> isOurs{false};

// How often it was initialized here and not ended.
thread_local int begun = 0;

// A simulated host has no COM.
bool IsSimulated() noexcept {
  const Host* const host = CurrentHostOrNull();
  return host != nullptr && host != MachineHost();
}

}  // namespace

int InitializeCom(const ComCalls& calls, HRESULT& result) noexcept {
  result = calls.initialize();
  if (FAILED(result)) return VARNEL_CALL_FAILED;
  result = calls.secure();
  if (SUCCEEDED(result)) isOurs = true;
  if (result == kTooLate && isOurs) result = S_OK;
  if (result == kTooLate) return VARNEL_COM_TOO_LATE;
  if (SUCCEEDED(result)) return VARNEL_DONE;
  calls.uninitialize();
  return VARNEL_CALL_FAILED;
}

}  // namespace varnel::c

int varnel_initialize_com(int* hresult) {
  using namespace varnel::c;
  HRESULT result = S_OK;
  int code = VARNEL_DONE;
  if (!IsSimulated()) {
    const ComCalls* const calls = MachineCom();
    code = calls == nullptr ? VARNEL_NO_HOST : InitializeCom(*calls, result);
    if (code == VARNEL_DONE || code == VARNEL_COM_TOO_LATE) ++begun;
  }
  if (hresult != nullptr) *hresult = result;
  return code;
}

int varnel_uninitialize_com() {
  using namespace varnel::c;
  const ComCalls* const calls = MachineCom();
  if (begun > 0) {
    --begun;
    calls->uninitialize();
    return VARNEL_DONE;
  }
  if (IsSimulated()) return VARNEL_DONE;
  return calls == nullptr ? VARNEL_NO_HOST : VARNEL_BAD_ORDER;
}
