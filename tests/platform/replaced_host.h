// A host whose answers a test replaces, where a machine answers what a simulated one never does.
#pragma once

#include <optional>

#include "tests/support/forwarding_host.h"

namespace varnel::test {

class ReplacedHost final : public ForwardingHost {
 public:
  using ForwardingHost::ForwardingHost;
  Storage& storage() override { return storageInstead == nullptr ? ForwardingHost::storage() : *storageInstead; }
  Cluster& cluster() override { return clusterInstead == nullptr ? ForwardingHost::cluster() : *clusterInstead; }
  DWORD GetLastError() override { return lastErrorInstead ? *lastErrorInstead : ForwardingHost::GetLastError(); }

  Storage* storageInstead = nullptr;
  Cluster* clusterInstead = nullptr;
  std::optional<DWORD> lastErrorInstead;
};

}  // namespace varnel::test
