#include "varnelctl/explanation/left_out.h"

#include <algorithm>
#include <set>

#include "varnelctl/console/text.h"

namespace varnelctl {
namespace {

using TesselCommonClasses::DiskAndVolumeEnumerator;

// The disks of a component's files.
struct ComponentDisks {
  std::set<std::wstring> serialNumbers;
  std::wstring unknown;   // a directory whose disk cannot be told; empty when there is none
  std::string onSeveral;  // a directory whose volume lies on several disks, and these
};

ComponentDisks DisksOf(const VssComponent& component, VolumeLocations& locations) {
  ComponentDisks disks;
  for (const VssFileDescriptor& file : component.files) {
    const VolumeLocation& location = locations.Of(file.volumeName);
    if (!location.severalDisks.empty()) {
      disks.onSeveral = Printable(file.expandedPath) + " lies on several disks (" + NumberList(location.severalDisks) +
                        "), so no snapshot of one of them holds it whole";
    } else if (location.serialNumber.empty()) {
      disks.unknown = file.expandedPath;
    } else {
      disks.serialNumbers.insert(location.serialNumber);
    }
  }
  return disks;
}

// The requestor excludes such a writer without a look at its components, so that these are not excluded themselves.
bool IsOfAnotherApplication(const VssWriter& writer) {
  return writer.excluded && std::any_of(writer.components.begin(), writer.components.end(),
                                        [](const VssComponent& component) { return !component.excluded; });
}

bool HasIncludedParent(const VssWriter& writer, const VssComponent& component) {
  return std::any_of(writer.components.begin(), writer.components.end(), [&](const VssComponent& parent) {
    return !parent.excluded && parent.selectable && varnel::IsAncestor(parent, component);
  });
}

// A mere container: it has no files, and what lies below it is captured.
bool IsCapturedByItsParts(const VssWriter& writer, const VssComponent& component) {
  if (!component.files.empty()) return false;
  bool anyBelow = false;
  for (const VssComponent& part : writer.components) {
    if (part.files.empty() || !varnel::IsAncestor(component, part)) continue;
    if (!IsCaptured(writer, part)) return false;
    anyBelow = true;
  }
  return anyBelow;
}

std::string ReasonFor(const VssWriter& writer, const VssComponent& component,
                      const std::vector<std::wstring>& serialNumbers, VolumeLocations& locations) {
  if (!component.excluded && !writer.excluded) {
    return component.selectable || HasIncludedParent(writer, component)
               ? "the request ended before it was added"
               : "it is not selectable, and no selectable parent is included";
  }
  if (component.files.empty()) return "it has no files";
  const ComponentDisks disks = DisksOf(component, locations);
  if (!disks.onSeveral.empty()) return disks.onSeveral;
  std::string missing;
  for (const std::wstring& serialNumber : disks.serialNumbers) {
    if (serialNumber == DiskAndVolumeEnumerator::systemDriveSerialNumber) {
      return "disk " + Quoted(serialNumber) + " holds the system";
    }
    if (std::find(serialNumbers.begin(), serialNumbers.end(), serialNumber) == serialNumbers.end()) {
      missing += (missing.empty() ? "" : ", ") + Quoted(serialNumber);
    }
  }
  if (!missing.empty()) return "not in the protection set: disk " + missing;
  if (!disks.unknown.empty()) return "the disk of " + Printable(disks.unknown) + " is not known";
  return "it is not among the databases that the array named";
}

}  // namespace

bool IsCaptured(const VssWriter& writer, const VssComponent& component) {
  if (writer.excluded || component.excluded) return false;
  return component.added || std::any_of(writer.components.begin(), writer.components.end(), [&](const auto& parent) {
           return parent.added && varnel::IsAncestor(parent, component);
         });
}

std::vector<LeftOut> FindLeftOut(const std::vector<VssWriter>& writers, const std::vector<std::wstring>& serialNumbers,
                                 VolumeLocations& locations) {
  std::vector<LeftOut> leftOut;
  for (const VssWriter& writer : writers) {
    if (IsOfAnotherApplication(writer)) {
      leftOut.push_back({&writer, nullptr, "not a writer of this application"});
      continue;
    }
    for (const VssComponent& component : writer.components) {
      if (IsCaptured(writer, component) || IsCapturedByItsParts(writer, component)) continue;
      leftOut.push_back({&writer, &component, ReasonFor(writer, component, serialNumbers, locations)});
    }
  }
  return leftOut;
}

}  // namespace varnelctl
