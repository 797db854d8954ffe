// The objects through which a requestor reads the Backup Components Document.
#pragma once

#include <memory>

#include "simulator/machine/machine.h"
#include "simulator/vss/backup_document.h"

namespace varnel::simulator {

/// The document of a session, shared with the objects that read it.
struct SharedDocument {
  BackupDocument content;
  /// Counts the phases in which writers may change it: objects of an earlier phase are stale.
  unsigned phase = 0;
};

/// The components of the writer at `index`; stale after the document's present phase.
IVssWriterComponentsExt* MakeWriterComponents(std::shared_ptr<Machine> machine,
                                              std::shared_ptr<const SharedDocument> document, std::size_t index);

}  // namespace varnel::simulator
