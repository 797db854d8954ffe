#include "c/com.h"
#include "platform/com_security.h"

namespace varnel::c {

const ComCalls* MachineCom() noexcept {
  static constexpr ComCalls kCalls = {[] { return ::CoInitializeEx(nullptr, COINIT_MULTITHREADED); },
                                      [] { return SetComSecurity(*MachineHost()); }, [] { ::CoUninitialize(); }};
  return &kCalls;
}

}  // namespace varnel::c
