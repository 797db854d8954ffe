// Enumerators, property structures and the administration interface.
#pragma once

#include <memory>
#include <variant>
#include <vector>

#include "simulator/machine/machine.h"
#include "simulator/vss/snapshot_service.h"

namespace varnel::simulator {

using EnumeratedObject = std::variant<Provider, ShadowCopy>;

IVssEnumObject* MakeEnumerator(std::shared_ptr<Machine> machine, std::vector<EnumeratedObject> objects);
/// The registered providers in the model's order.
IVssEnumObject* MakeProviderEnumerator(std::shared_ptr<Machine> machine);
IVssAdmin* MakeAdmin(std::shared_ptr<Machine> machine);

/// Fills every field; the strings become the caller's.
void FillProperties(Machine& machine, const ShadowCopy& copy, VSS_SNAPSHOT_PROP& properties);

}  // namespace varnel::simulator
