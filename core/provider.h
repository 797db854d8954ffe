// The provider that makes the array's shadow copies.
#pragma once

#include "platform/export.h"
#include "platform/win32.h"

namespace varnel {

/// The registered identifier of the array's VSS hardware provider, as the calling thread's requests take it:
/// CVarnel::TesselVssProviderID, unless a ScopedProvider of this thread names another.
VARNEL_API GUID ArrayProviderId() noexcept;

/// For an agent that serves several arrays: what requestors do on the calling thread during the guard's lifetime, they
/// do with the provider of this identifier. Other threads keep theirs. Guards of a thread end in reverse order.
class VARNEL_API ScopedProvider {
 public:
  /// \param id the registered identifier of the provider, which is copied.
  explicit ScopedProvider(const GUID& id) noexcept;
  ~ScopedProvider();
  ScopedProvider(const ScopedProvider&) = delete;
  ScopedProvider& operator=(const ScopedProvider&) = delete;

 private:
  const GUID id_;
  const GUID* previous_;
};

}  // namespace varnel
