#include "varnelctl/explanation/left_out.h"

#include <algorithm>
#include <set>

#include "varnelctl/console/text.h"
#include "varnelctl/storage_view.h"

namespace varnelctl {
namespace {

using TesselCommonClasses::DiskAndVolumeEnumerator;

// The serial numbers of the component's disks, each once; `unknown` is a directory whose disk cannot be told.
std::set<std::wstring> DisksOf(const VssComponent& component, VolumeSerials& serials, std::wstring& unknown) {
  std::set<std::wstring> disks;
  for (const VssFileDescriptor& file : component.files) {
    const std::wstring& serialNumber = serials.Of(file.volumeName);
    if (serialNumber.empty()) {
      unknown = file.expandedPath;
    } else {
      disks.insert(serialNumber);
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
                      const std::vector<std::wstring>& serialNumbers, VolumeSerials& serials) {
  if (!component.excluded && !writer.excluded) {
    return component.selectable || HasIncludedParent(writer, component)
               ? "the request ended before it was added"
               : "it is not selectable, and no selectable parent is included";
  }
  if (component.files.empty()) return "it has no files";
  std::wstring unknown;
  std::string missing;
  for (const std::wstring& serialNumber : DisksOf(component, serials, unknown)) {
    if (serialNumber == DiskAndVolumeEnumerator::systemDriveSerialNumber) {
      return "disk " + Quoted(serialNumber) + " holds the system";
    }
    if (std::find(serialNumbers.begin(), serialNumbers.end(), serialNumber) == serialNumbers.end()) {
      missing += (missing.empty() ? "" : ", ") + Quoted(serialNumber);
    }
  }
  if (!missing.empty()) return "not in the protection set: disk " + missing;
  if (!unknown.empty()) return "the disk of " + Printable(unknown) + " is not known";
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
                                 DiskAndVolumeEnumerator& enumerator) {
  VolumeSerials serials(enumerator);
  std::vector<LeftOut> leftOut;
  for (const VssWriter& writer : writers) {
    if (IsOfAnotherApplication(writer)) {
      leftOut.push_back({&writer, nullptr, "not a writer of this application"});
      continue;
    }
    for (const VssComponent& component : writer.components) {
      if (IsCaptured(writer, component) || IsCapturedByItsParts(writer, component)) continue;
      leftOut.push_back({&writer, &component, ReasonFor(writer, component, serialNumbers, serials)});
    }
  }
  return leftOut;
}

}  // namespace varnelctl
