#include "platform/host.h"

namespace varnel {
namespace {
Host*& Installed() noexcept {
  static Host* installed = nullptr;
  return installed;
}
}  // namespace

Host* CurrentHostOrNull() noexcept {
  return Installed() != nullptr ? Installed() : MachineHost();
}

Host& CurrentHost() {
  Host* host = CurrentHostOrNull();
  if (host == nullptr) throw NoHostError();
  return *host;
}

ScopedHost::ScopedHost(Host& host) noexcept : previous_(Installed()) {
  Installed() = &host;
}

ScopedHost::~ScopedHost() {
  Installed() = previous_;
}

}  // namespace varnel
