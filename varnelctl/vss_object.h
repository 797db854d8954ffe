// One entry of a list that the service answers a query with.
#pragma once

#include "platform/host.h"
#include "platform/owners.h"
#include "platform/vss.h"
#include "varnelctl/explanation/failure.h"

namespace varnelctl {

/// Owns the texts of its entry.
class VssObject {
 public:
  VssObject() = default;
  VssObject(const VssObject&) = delete;
  VssObject& operator=(const VssObject&) = delete;
  ~VssObject() {
    varnel::VssService& vss = varnel::CurrentHost().vss();
    if (entry_.Type == VSS_OBJECT_PROVIDER) {
      vss.CoTaskMemFree(entry_.Obj.Prov.m_pwszProviderName);
      vss.CoTaskMemFree(entry_.Obj.Prov.m_pwszProviderVersion);
    } else if (entry_.Type == VSS_OBJECT_SNAPSHOT) {
      vss.VssFreeSnapshotProperties(&entry_.Obj.Snap);
    }
  }
  VSS_OBJECT_PROP* Put() { return &entry_; }
  /// Null when the entry is something else.
  const VSS_PROVIDER_PROP* provider() const { return entry_.Type == VSS_OBJECT_PROVIDER ? &entry_.Obj.Prov : nullptr; }
  const VSS_SNAPSHOT_PROP* snapshot() const { return entry_.Type == VSS_OBJECT_SNAPSHOT ? &entry_.Obj.Snap : nullptr; }

 private:
  VSS_OBJECT_PROP entry_{};
};

/// Calls `visit` with every entry. Throws CallFailure.
template <class Visit>
void ForEachVssObject(IVssEnumObject& list, Visit visit) {
  for (;;) {
    VssObject object;
    ULONG fetched = 0;
    CheckCall("IVssEnumObject::Next", list.Next(1, object.Put(), &fetched));
    if (fetched == 0) return;
    visit(object);
  }
}

}  // namespace varnelctl
