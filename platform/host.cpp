#include "platform/host.h"

#include <atomic>

namespace varnel {
namespace {
std::atomic<Host*> installed{nullptr};
}  // namespace

Host* CurrentHostOrNull() noexcept {
  Host* host = installed;
  return host != nullptr ? host : MachineHost();
}

Host& CurrentHost() {
  Host* host = CurrentHostOrNull();
  if (host == nullptr) throw NoHostError();
  return *host;
}

ScopedHost::ScopedHost(Host& host) noexcept : previous_(installed.exchange(&host)) {}

ScopedHost::~ScopedHost() {
  installed = previous_;
}

}  // namespace varnel
