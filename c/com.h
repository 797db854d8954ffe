// COM and its security, as the service's writers want them of a requestor's process.
#pragma once

#include "platform/win32.h"

namespace varnel::c {

/// The three calls of COM that it takes.
struct ComCalls {
  HRESULT (*initialize)();
  HRESULT (*secure)();
  void (*uninitialize)();
};

/// This machine's; null where there is no COM.
const ComCalls* MachineCom() noexcept;

/// What varnel_initialize_com answers. `result` is the HRESULT of the call that decided.
int InitializeCom(const ComCalls& calls, HRESULT& result) noexcept;

}  // namespace varnel::c
