#include "varnelctl/explanation/explanation.h"

#include <algorithm>
#include <set>
#include <unordered_map>

#include "text/ascii_case.h"
#include "varnelctl/console/text.h"

namespace varnelctl {
namespace {

using TesselCommonClasses::DiskAndVolumeEnumerator;
using Components = std::vector<VssComponent>;

constexpr std::size_t kNone = static_cast<std::size_t>(-1);

// The components of a writer by the paths above them.
class Family {
 public:
  explicit Family(const Components& components) : components_(components) {
    for (std::size_t index = 0; index < components.size(); ++index) {
      byPath_[varnel::ascii::ToLower(components[index].fullPath)].push_back(index);
    }
  }

  /// Calls `visit` with the index of every ancestor, the nearest first.
  template <class Visit>
  void VisitAncestors(std::size_t index, Visit visit) const {
    const std::wstring path = varnel::ascii::ToLower(components_[index].fullPath);
    for (std::size_t end = path.rfind(L'\\'); end != path.npos && end != 0; end = path.rfind(L'\\', end - 1)) {
      const auto found = byPath_.find(path.substr(0, end));
      if (found == byPath_.end()) continue;
      for (const std::size_t ancestor : found->second) visit(ancestor);
    }
  }

 private:
  const Components& components_;
  std::unordered_map<std::wstring, std::vector<std::size_t>> byPath_;
};

// How the files of a component lie to the protection set.
struct Standing {
  Reason reason = Reason::None;  // what keeps it out by itself
  std::vector<std::wstring> disks;
  std::vector<std::wstring> missingDisks;
  std::vector<DWORD> severalDisks;
  std::vector<std::wstring> files;
};

class Set {
 public:
  Set(const std::vector<std::wstring>& serialNumbers, VolumeLocations& locations)
      : serialNumbers_(serialNumbers.begin(), serialNumbers.end()), locations_(locations) {}

  Standing Of(const VssComponent& component) const {
    Standing standing;
    std::set<std::wstring> disks;
    std::set<std::wstring> missing;
    for (const VssFileDescriptor& file : component.files) {
      const VolumeLocation& location = locations_.Of(file.volumeName);
      const Reason reason = ReasonFor(location);
      if (!location.serialNumber.empty()) disks.insert(location.serialNumber);
      if (reason == Reason::DiskNotInSet) missing.insert(location.serialNumber);
      if (standing.severalDisks.empty()) standing.severalDisks = location.severalDisks;
      if (reason != Reason::None) standing.files.push_back(file.expandedPath + file.filespec);
      standing.reason = Gravest(standing.reason, reason);
    }
    if (component.files.empty()) standing.reason = Reason::NoFiles;
    if (IsUnnamed(component)) standing.reason = Reason::NotNamed;
    standing.disks.assign(disks.begin(), disks.end());
    standing.missingDisks.assign(missing.begin(), missing.end());
    return standing;
  }

 private:
  Reason ReasonFor(const VolumeLocation& location) const {
    if (!location.severalDisks.empty()) return Reason::SeveralDisks;
    if (location.serialNumber.empty()) return Reason::DiskUnknown;
    if (location.serialNumber == DiskAndVolumeEnumerator::systemDriveSerialNumber) return Reason::SystemDisk;
    return serialNumbers_.contains(location.serialNumber) ? Reason::None : Reason::DiskNotInSet;
  }

  // What no other set would change comes before what one more disk does.
  static Reason Gravest(Reason a, Reason b) {
    constexpr Reason kByGravity[] = {Reason::SystemDisk, Reason::SeveralDisks, Reason::DiskUnknown,
                                     Reason::DiskNotInSet};
    for (const Reason reason : kByGravity) {
      if (a == reason || b == reason) return reason;
    }
    return Reason::None;
  }

  // The requestor asks for the name first: it notes the disk of the first file only after that.
  bool IsUnnamed(const VssComponent& component) const {
    return component.excluded && !component.files.empty() && component.affectedSerialNumbers.empty() &&
           !locations_.Of(component.files.front().volumeName).serialNumber.empty();
  }

  std::set<std::wstring> serialNumbers_;
  VolumeLocations& locations_;
};

// Explains the components of one writer of the application.
class WriterView {
 public:
  WriterView(const VssWriter& writer, const Set& set) : writer_(writer), family_(writer.components) {
    for (const VssComponent& component : components_) standings_.push_back(set.Of(component));
    for (std::size_t index = 0; index < components_.size(); ++index) Relate(index);
    for (std::size_t index = 0; index < components_.size(); ++index) JudgeContainers(index);
  }

  std::vector<ComponentExplanation> Explain() {
    std::vector<ComponentExplanation> explained;
    for (std::size_t index = 0; index < components_.size(); ++index) explained.push_back(Explain(index));
    return explained;
  }

 private:
  struct Relations {
    std::size_t parent = kNone;        // the nearest that was named to the service
    std::size_t object = kNone;        // itself or the nearest above it that can be selected
    std::size_t part = kNone;          // the first below it that takes part for its own sake
    std::size_t missingPart = kNone;   // the first below it that is left out
    bool hasSelectableParent = false;  // one that takes part and can be selected
    bool anyPart = false;              // something below it has files
    bool allPartsCaptured = true;
  };

  bool TakesPart(std::size_t index) const { return !writer_.excluded && !components_[index].excluded; }
  bool IsEligible(std::size_t index) const { return TakesPart(index) && standings_[index].reason == Reason::None; }
  bool IsCaptured(std::size_t index) const {
    return TakesPart(index) && (components_[index].added || relations_[index].parent != kNone);
  }

  void Relate(std::size_t index) {
    std::size_t& object = relations_[index].object;
    if (components_[index].selectable) object = index;
    family_.VisitAncestors(index, [&](std::size_t ancestor) {
      if (TakesPart(ancestor) && components_[ancestor].selectable) relations_[index].hasSelectableParent = true;
      if (components_[ancestor].selectable) SetFirst(object, ancestor);
      if (components_[ancestor].added && relations_[index].parent == kNone) relations_[index].parent = ancestor;
      if (IsEligible(index)) SetFirst(relations_[ancestor].part, index);
      if (components_[index].excluded) SetFirst(relations_[ancestor].missingPart, index);
    });
    SetFirst(object, index);
  }

  void JudgeContainers(std::size_t index) {
    if (components_[index].files.empty()) return;
    family_.VisitAncestors(index, [&](std::size_t ancestor) {
      relations_[ancestor].anyPart = true;
      if (!IsCaptured(index)) relations_[ancestor].allPartsCaptured = false;
    });
  }

  static void SetFirst(std::size_t& first, std::size_t index) {
    if (first == kNone) first = index;
  }

  ComponentExplanation Explain(std::size_t index) {
    Standing& standing = standings_[index];
    ComponentExplanation explained{&components_[index],
                                   Place::LeftOut,
                                   Reason::None,
                                   standing.reason,
                                   nullptr,
                                   &components_[relations_[index].object],
                                   std::move(standing.disks),
                                   std::move(standing.missingDisks),
                                   std::move(standing.severalDisks),
                                   std::move(standing.files)};
    const Relations& relations = relations_[index];
    if (IsCaptured(index)) {
      if (!components_[index].added) {
        explained.place = Place::WithParent;
        explained.because = &components_[relations.parent];
      } else {
        explained.place = standing.reason == Reason::None ? Place::Captured : Place::Implicit;
        if (explained.place == Place::Implicit) explained.because = At(relations.part);
      }
      if (standing.reason != Reason::NoFiles) explained.reason = standing.reason;
    } else if (components_[index].files.empty() && relations.anyPart && relations.allPartsCaptured) {
      explained.place = Place::Container;
    } else {
      explained.reason = ReasonFor(index);
      if (explained.reason == Reason::ChildMissing) explained.because = At(relations.missingPart);
    }
    return explained;
  }

  Reason ReasonFor(std::size_t index) const {
    const Relations& relations = relations_[index];
    if (!TakesPart(index)) {
      // The host answered otherwise when it was selected.
      return standings_[index].reason == Reason::None ? Reason::DiskUnknown : standings_[index].reason;
    }
    if (relations.missingPart != kNone) return Reason::ChildMissing;
    return components_[index].selectable || relations.hasSelectableParent ? Reason::RequestEnded
                                                                          : Reason::NotSelectable;
  }

  const VssComponent* At(std::size_t index) const { return index == kNone ? nullptr : &components_[index]; }

  const VssWriter& writer_;
  const Components& components_ = writer_.components;
  Family family_;
  std::vector<Standing> standings_;
  std::vector<Relations> relations_ = std::vector<Relations>(components_.size());
};

// "E:\data\sales.mdf and 2 more files"
std::string Files(const ComponentExplanation& component) {
  if (component.files.empty()) return Printable(component.component->fullPath);
  std::string text = Printable(component.files.front());
  const std::size_t more = component.files.size() - 1;
  return more == 0 ? text : text + " and " + Counted(more, "more file");
}

}  // namespace

Explanation Explain(const std::vector<VssWriter>& writers, Application application,
                    const std::vector<std::wstring>& serialNumbers, VolumeLocations& locations) {
  const Set set(serialNumbers, locations);
  Explanation explanation;
  bool anyOfApplication = false;
  for (const VssWriter& writer : writers) {
    WriterExplanation explained{&writer, Reason::None, {}};
    if (!IsWriterOf(application, writer)) {
      explained.reason = Reason::OtherApplication;
    } else {
      anyOfApplication = true;
      if (writer.components.empty()) explained.reason = Reason::NoComponents;
      explained.components = WriterView(writer, set).Explain();
    }
    explanation.push_back(std::move(explained));
  }
  if (!anyOfApplication) explanation.push_back({nullptr, Reason::WriterAbsent, {}});
  return explanation;
}

const char* WordFor(Place place) {
  switch (place) {
    case Place::Captured:
      return "captured";
    case Place::Implicit:
      return "implicit";
    case Place::WithParent:
      return "withParent";
    case Place::Container:
      return "container";
    case Place::LeftOut:
      break;
  }
  return "leftOut";
}

const char* WordFor(Reason reason) {
  switch (reason) {
    case Reason::None:
      return "";
    case Reason::OtherApplication:
      return "otherApplication";
    case Reason::NoComponents:
      return "noComponents";
    case Reason::NoFiles:
      return "noFiles";
    case Reason::NotNamed:
      return "notNamed";
    case Reason::SystemDisk:
      return "systemDisk";
    case Reason::SeveralDisks:
      return "severalDisks";
    case Reason::DiskUnknown:
      return "diskUnknown";
    case Reason::DiskNotInSet:
      return "diskNotInSet";
    case Reason::NotSelectable:
      return "notSelectable";
    case Reason::ChildMissing:
      return "childMissing";
    case Reason::WriterAbsent:
      return "writerAbsent";
    case Reason::RequestEnded:
      break;
  }
  return "requestEnded";
}

std::string ReasonText(const ComponentExplanation& component) {
  switch (component.reason) {
    case Reason::NoFiles:
      return "it has no files";
    case Reason::NotNamed:
      return "it is not among the databases that the array named";
    case Reason::SystemDisk:
      return "disk " + Quoted(DiskAndVolumeEnumerator::systemDriveSerialNumber) + " holds the system";
    case Reason::SeveralDisks:
      return Files(component) + " lies on several disks (" + NumberList(component.severalDisks) +
             "), so no snapshot of one of them holds it whole";
    case Reason::DiskUnknown:
      return "the disk of " + Files(component) + " is not known";
    case Reason::DiskNotInSet:
      return "not in the protection set: disk " + SerialNumberList(component.missingDisks);
    case Reason::NotSelectable:
      return "it is not selectable, and no selectable parent is included";
    case Reason::ChildMissing:
      return "its part " + NameOf(*component.because) + " is left out";
    case Reason::RequestEnded:
      return "the request ended before it was added";
    default:
      return {};
  }
}

std::string ReasonText(const WriterExplanation& writer) {
  switch (writer.reason) {
    case Reason::OtherApplication:
      return "not a writer of this application";
    case Reason::NoComponents:
      return "it told no components";
    default:
      return {};
  }
}

std::string BecauseText(const ComponentExplanation& component) {
  if (component.because == nullptr) return {};
  switch (component.place) {
    case Place::Implicit:
      return "because of " + NameOf(*component.because);
    case Place::WithParent:
      return "with " + NameOf(*component.because);
    default:
      return {};
  }
}

std::string NameOf(const VssComponent& component) {
  const std::string path = Printable(component.fullPath);
  return component.caption.empty() ? path : Printable(component.caption) + " (" + path + ")";
}

std::string SerialNumberList(const std::vector<std::wstring>& serialNumbers) {
  std::string list;
  for (const std::wstring& serialNumber : serialNumbers) list += (list.empty() ? "" : ", ") + Quoted(serialNumber);
  return list;
}

}  // namespace varnelctl
