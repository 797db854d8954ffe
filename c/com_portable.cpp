#include "c/com.h"

namespace varnel::c {

const ComCalls* MachineCom() noexcept {
  return nullptr;
}

}  // namespace varnel::c
