// The lists that the service answers a query with.
#pragma once

#include "platform/owners.h"
#include "platform/vss.h"
#include "varnelctl/explanation/failure.h"

namespace varnelctl {

/// Calls `visit` with every entry. Throws CallFailure.
template <class Visit>
void ForEachVssObject(IVssEnumObject& list, Visit visit) {
  for (;;) {
    varnel::VssObject object;
    ULONG fetched = 0;
    CheckCall("IVssEnumObject::Next", list.Next(1, object.Put(), &fetched));
    if (fetched == 0) return;
    visit(object);
  }
}

}  // namespace varnelctl
