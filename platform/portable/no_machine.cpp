#include "platform/host.h"

namespace varnel {

Host* MachineHost() noexcept {
  return nullptr;
}

}  // namespace varnel
