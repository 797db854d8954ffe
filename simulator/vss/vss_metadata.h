// The objects through which a requestor examines a writer's metadata.
#pragma once

#include <memory>

#include "simulator/machine/machine.h"
#include "simulator/machine/model.h"

namespace varnel::simulator {

/// A file descriptor; keeps `file` alive.
IVssWMFiledesc* MakeFileDescriptor(std::shared_ptr<Machine> machine, std::shared_ptr<const FileSpec> file);

/// The objects borrow from `writer` and keep it alive.
IVssExamineWriterMetadataEx2* MakeWriterMetadata(std::shared_ptr<Machine> machine,
                                                 std::shared_ptr<const Writer> writer);

}  // namespace varnel::simulator
