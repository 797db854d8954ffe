// What a set holds, what it does not, and why.
#pragma once

#include <string>
#include <vector>

#include "core/varnel.h"
#include "varnelctl/storage_view.h"

namespace varnelctl {

/// Whether the component is part of the set: the service was given it or a parent of it.
bool IsCaptured(const VssWriter& writer, const VssComponent& component);

/// A component that was left out, or with a null component a whole writer.
struct LeftOut {
  const VssWriter* writer = nullptr;
  const VssComponent* component = nullptr;
  std::string reason;
};

/// Everything that was gathered and is not captured, in the writers' order. \param serialNumbers of the protection set.
/// \param locations as the request saw them.
std::vector<LeftOut> FindLeftOut(const std::vector<VssWriter>& writers, const std::vector<std::wstring>& serialNumbers,
                                 VolumeLocations& locations);

}  // namespace varnelctl
