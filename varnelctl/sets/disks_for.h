// Which disks hold objects wholly, and what else lies on them.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "varnelctl/explanation/objects.h"
#include "varnelctl/session.h"

namespace varnelctl {

struct DisksFor {
  std::vector<ApplicationObject> wanted;
  std::vector<std::wstring> disks;             ///< serial numbers of all that hold something of them
  std::vector<ApplicationObject> alsoWholly;   ///< what else these disks hold, of every writer
  std::vector<ApplicationObject> alsoPartly;   ///< what lies on other disks, too
  std::vector<ApplicationObject> unprotected;  ///< those wanted that no set of disks could hold

  // What these borrow.
  TesselCommonClasses::DiskAndVolumeEnumerator enumerator;
  std::unique_ptr<CVarnel> requestor;
  Explanation ofApplication;
  Explanation ofOthers;
};

/// Asks every writer for its metadata and nothing else. Throws what the library throws; NotContained for a name that no
/// object of the application has.
std::unique_ptr<const DisksFor> FindDisksFor(Session& session, const std::vector<std::string>& names,
                                             Application application);

}  // namespace varnelctl
