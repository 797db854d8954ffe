// The service's COM objects over a Machine.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "simulator/machine/machine.h"
#include "simulator/machine/model.h"

namespace varnel::simulator {

/// What CreateVssBackupComponents and CoCreateInstance of the VSS coordinator do on this machine. The calls themselves
/// are logged and may be failed by the fault plan.
HRESULT CreateBackupComponents(const std::shared_ptr<Machine>& machine, IVssBackupComponents** backup);
HRESULT CreateCoordinator(const std::shared_ptr<Machine>& machine, REFCLSID classId, IUnknown* outer, DWORD context,
                          REFIID interfaceId, void** object);
void FreeSnapshotProperties(Machine& machine, VSS_SNAPSHOT_PROP* properties);

}  // namespace varnel::simulator
