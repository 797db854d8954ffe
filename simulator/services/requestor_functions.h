// What the service's library has for requestors beside the backup components object.
#pragma once

#include "platform/vss.h"

namespace varnel::simulator {

class Machine;

/// Reads a Writer Metadata Document: VSS_E_INVALID_XML_DOCUMENT for any other text.
HRESULT CreateVssExamineWriterMetadata(Machine& machine, BSTR xml, IVssExamineWriterMetadata** metadata);
/// Whether there are shadow copies of a volume here. They forbid no operation on it, so `capability` is 0.
HRESULT IsVolumeSnapshotted(Machine& machine, LPCWSTR volume, BOOL* present, LONG* capability);
/// Whether a writer forbids that a volume is reverted; none of a simulated host does.
HRESULT ShouldBlockRevert(Machine& machine, LPCWSTR volume, VssBool* block);

}  // namespace varnel::simulator
