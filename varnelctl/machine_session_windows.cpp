#include "platform/win32.h"
#include "varnelctl/failure.h"
#include "varnelctl/machine_session.h"

namespace varnelctl {
namespace {

// Writers call back into the requestor under their own accounts, so no access list is set; the cloaking lets the
// service see the caller's identity.
HRESULT SetSecurity() {
  return ::CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_PKT_PRIVACY, RPC_C_IMP_LEVEL_IDENTIFY,
                                nullptr, EOAC_DYNAMIC_CLOAKING, nullptr);
}

}  // namespace

MachineSession::MachineSession() {
  CheckCall("CoInitializeEx", ::CoInitializeEx(nullptr, COINIT_MULTITHREADED));
  if (const HRESULT hr = SetSecurity(); FAILED(hr)) {
    ::CoUninitialize();
    throw CallFailure("CoInitializeSecurity", hr);
  }
}

MachineSession::~MachineSession() {
  ::CoUninitialize();
}

}  // namespace varnelctl
