#include "core/provider.h"

#include <utility>

#include "core/varnel.h"

namespace varnel {
namespace {
constinit thread_local const GUID* named = nullptr;
}  // namespace

GUID ArrayProviderId() noexcept {
  return named == nullptr ? CVarnel::TesselVssProviderID : *named;
}

ScopedProvider::ScopedProvider(const GUID& id) noexcept : id_(id), previous_(std::exchange(named, &id_)) {}

ScopedProvider::~ScopedProvider() {
  named = previous_;
}

}  // namespace varnel
