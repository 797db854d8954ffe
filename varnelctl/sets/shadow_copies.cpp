#include "varnelctl/sets/shadow_copies.h"

#include "core/alerts.h"
#include "core/vss_call.h"
#include "platform/host.h"
#include "platform/owners.h"
#include "text/guid.h"
#include "varnelctl/console/text.h"
#include "varnelctl/explanation/failure.h"
#include "varnelctl/vss_object.h"

namespace varnelctl {
namespace {

using TesselCommonClasses::DiskAndVolumeEnumerator;
using varnel::ComPtr;

// Asks an object of its own: the requestor's has a context, and the service lists to it only what was made in that one.
ComPtr<IVssEnumObject> QueryAllShadowCopies(ComPtr<IVssBackupComponents>& vss) {
  CheckCall("CreateVssBackupComponents",
            varnel::Delivered(varnel::CurrentHost().vss().CreateVssBackupComponents(vss.Put()), vss));
  CheckCall("IVssBackupComponents::InitializeForBackup", vss->InitializeForBackup(nullptr));
  CheckCall("IVssBackupComponents::SetContext", vss->SetContext(static_cast<LONG>(VSS_CTX_ALL)));
  ComPtr<IVssEnumObject> list;
  CheckCall("IVssBackupComponents::Query", vss->Query(GUID{}, VSS_OBJECT_NONE, VSS_OBJECT_SNAPSHOT, list.Put()));
  return list;
}

std::wstring TextOrEmpty(const wchar_t* text) {
  return text == nullptr ? L"" : text;
}

}  // namespace

std::vector<ShadowCopyView> FindShadowCopies(const CVarnel& requestor, VolumeLocations& locations,
                                             DiskAndVolumeEnumerator& enumerator) {
  std::vector<ShadowCopyView> copies;
  for (const SnapshotVolumeInfo& volume : requestor.GetSnapshotVolumes()) {
    ShadowCopyView& view = copies.emplace_back();
    view.volume = volume;
    const VolumeLocation& source = locations.Of(volume.volumeName);
    view.sourceSerialNumber = source.serialNumber;
    view.mountPoint = source.mountPoint;
    if (!volume.snapshotDeviceName.empty()) {
      enumerator.GetDiskDeviceForUniqueVolume(volume.snapshotDeviceName, view.disk);
    }
  }
  return copies;
}

std::string VolumesOfSet(const CVarnel& requestor, VolumeLocations& locations) {
  const auto shown = [&](const SnapshotVolumeInfo& volume) {
    const VolumeLocation& location = locations.Of(volume.volumeName);
    return Printable(location.mountPoint.empty() ? volume.volumeName : location.mountPoint) + " on disk " +
           Quoted(location.serialNumber);
  };
  std::string all;
  for (const SnapshotVolumeInfo& volume : requestor.GetSnapshotVolumes()) {
    if (volume.snapshotId.empty()) return {};
    all += (all.empty() ? "volumes of the set: " : ", ") + shown(volume);
  }
  return all;
}

std::vector<ListedCopy> ListShadowCopies(const std::wstring& setId) {
  ComPtr<IVssBackupComponents> vss;
  const ComPtr<IVssEnumObject> list = QueryAllShadowCopies(vss);
  std::vector<ListedCopy> copies;
  if (!list) return copies;
  ForEachVssObject(*list, [&](const varnel::VssObject& object) {
    const VSS_SNAPSHOT_PROP* copy = object.snapshot();
    if (copy == nullptr || varnel::FormatGuid(copy->m_SnapshotSetId) != setId) return;
    copies.push_back({varnel::FormatGuid(copy->m_SnapshotId), TextOrEmpty(copy->m_pwszOriginalVolumeName),
                      TextOrEmpty(copy->m_pwszSnapshotDeviceObject)});
  });
  return copies;
}

}  // namespace varnelctl
