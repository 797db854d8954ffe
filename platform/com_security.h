// The COM security of a requestor's process.
#pragma once

#include "platform/host.h"
#include "platform/win32.h"

namespace varnel {

/// Sets it on `host`, once for a process. Writers call back into the requestor under their own accounts, so no access
/// list is set; the cloaking lets the service see the caller's identity.
inline HRESULT SetComSecurity(Host& host) {
  return host.security().CoInitializeSecurity(nullptr, -1, nullptr, RPC_C_AUTHN_LEVEL_PKT_PRIVACY,
                                              RPC_C_IMP_LEVEL_IDENTIFY, nullptr, EOAC_DYNAMIC_CLOAKING);
}

}  // namespace varnel
