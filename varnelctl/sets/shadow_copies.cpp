#include "varnelctl/sets/shadow_copies.h"

#include "varnelctl/console/text.h"
#include "varnelctl/explanation/failure.h"

namespace varnelctl {

using TesselCommonClasses::DiskAndVolumeEnumerator;

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

// Asks an object of its own: the requestor's has a context, and the service lists to it only what was made in that one.
std::vector<ListedCopy> ListShadowCopies(const std::wstring& setId) {
  return SetService().List(setId);
}

void RequireGone(const std::wstring& setId) {
  if (Checked("whether the set is gone", [&] { return ListShadowCopies(setId); }).empty()) return;
  throw NotAllDone("the deletion succeeded, but shadow copies of the set are still there");
}

std::string CountedCopies(std::size_t count) {
  return std::to_string(count) + (count == 1 ? " shadow copy" : " shadow copies");
}

std::string CopiesLeftText(const std::wstring& setId, const std::vector<ListedCopy>& copies,
                           const std::vector<std::wstring>& sources) {
  std::string text;
  for (std::size_t i = 0; i < copies.size(); ++i) {
    text +=
        (text.empty() ? "" : ", ") + Printable(sources[i]) + " (shadow copy " + Printable(copies[i].snapshotId) + ")";
  }
  return "left of snapshot set " + Printable(setId) + ": " + text;
}

}  // namespace varnelctl
