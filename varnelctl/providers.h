// The VSS providers that are registered on the current host.
#pragma once

#include <string>
#include <vector>

#include "platform/vss.h"

namespace varnelctl {

struct Provider {
  GUID id{};
  std::wstring name;
  VSS_PROVIDER_TYPE type = VSS_PROV_UNKNOWN;
  std::wstring version;

  bool IsArrayProvider() const;
};

/// In the service's order. Throws CallFailure.
std::vector<Provider> ReadProviders();

}  // namespace varnelctl
