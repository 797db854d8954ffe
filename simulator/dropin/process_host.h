// The simulated host of the process: one, made from the host file that the environment names.
#pragma once

#include "platform/host.h"

namespace varnel::simulator {

/// The host file; required.
inline constexpr wchar_t kHostVariable[] = L"VARNEL_SIMULATED_HOST";
/// The file that the call log is written to, line by line as calls are made; nothing is logged without it.
inline constexpr wchar_t kCallsVariable[] = L"VARNEL_SIMULATED_CALLS";

/// The file that keeps the host's state between processes; without it the state ends with the process.
inline constexpr wchar_t kStateVariable[] = L"VARNEL_SIMULATED_STATE";

/// The export of the drop-in vssapi.dll through which the drop-in iscsidsc.dll, and programs of the same build, reach
/// the host. `host` is valid until the process ends; it is a SimulatedHost.
inline constexpr char kHostExport[] = "VarnelSimulatedHost";
using HostExport = HRESULT STDAPICALLTYPE(Host** host);

/// Makes the host at the first call. Without a usable host file or state file: one reported line, E_UNEXPECTED and
/// null; the next call tries again.
HRESULT ProcessHost(Host** host) noexcept;

}  // namespace varnel::simulator
