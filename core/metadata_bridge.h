// The metadata bridge is one for the process, with one place for each text that it gives.
#pragma once

#include <mutex>

#include "platform/tessel/MetadataWrapper.h"

namespace varnel {

/// Keeps the requests of other threads from the bridge until the texts that it gave to this one are copied.
[[nodiscard]] inline std::unique_lock<std::mutex> HoldMetadataBridge() {
  static std::mutex mutex;
  return std::unique_lock(mutex);
}

}  // namespace varnel
