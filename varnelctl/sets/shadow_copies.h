// The shadow copies of a set, as this host sees them.
#pragma once

#include <string>
#include <vector>

#include "core/varnel.h"
#include "varnelctl/sets/set_service.h"
#include "varnelctl/storage_view.h"

namespace varnelctl {

/// A shadow copy, its source, and the disk that the host found it on; no disk when the copy is not surfaced here.
struct ShadowCopyView {
  SnapshotVolumeInfo volume;
  std::wstring mountPoint;          ///< of the source volume; empty when it has none
  std::wstring sourceSerialNumber;  ///< of the disk that holds the source volume
  TesselCommonClasses::WindowsDiskDevice disk;
};

/// Those of the requestor's set, in its order. To be called before anything takes their disks away.
/// \param locations of the source volumes.
std::vector<ShadowCopyView> FindShadowCopies(const CVarnel& requestor, VolumeLocations& locations,
                                             TesselCommonClasses::DiskAndVolumeEnumerator& enumerator);

/// The volumes of the requestor's set, as people know them; empty before all of them were added to it.
/// \param locations of the volumes.
std::string VolumesOfSet(const CVarnel& requestor, VolumeLocations& locations);

/// The shadow copies of this set that the service lists on this host. Transportable and broken ones it does not list.
/// Throws CallFailure.
std::vector<ListedCopy> ListShadowCopies(const std::wstring& setId);

/// After a deletion that succeeded. Throws NotAllDone where copies of the set are there, or the service does not say.
void RequireGone(const std::wstring& setId);

/// "1 shadow copy", "3 shadow copies"
std::string CountedCopies(std::size_t count);

/// "left of snapshot set {...}: E:\ (shadow copy {...}), ..." \param sources of the copies, as people know them.
std::string CopiesLeftText(const std::wstring& setId, const std::vector<ListedCopy>& copies,
                           const std::vector<std::wstring>& sources);

}  // namespace varnelctl
