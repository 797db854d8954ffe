// The parts of the machine's own host that are more than calls to Win32 functions of the same name. Each is one object
// for the whole process.
#pragma once

#include "platform/host.h"

namespace varnel::windows {

/// vssapi.dll and COM. COM must be initialised by the process.
VssService& MachineVss();
/// iscsidsc.dll. Where it is absent there are no sessions.
IscsiInitiator& MachineIscsi();
/// clusapi.dll and resutils.dll. Where they are absent the node belongs to no cluster.
Cluster& MachineCluster();
/// version.dll.
FileVersions& MachineFiles();
/// wevtapi.dll, and the functions that write.
EventLog& MachineEventLog();
/// The WMI class MSFT_Disk. COM must be initialised by the process.
WmiDisks& MachineWmi();

}  // namespace varnel::windows
