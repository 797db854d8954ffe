// The fixture of the selection's tests: hosts of a few components, what was added, and what the log says of it.
#pragma once

#include <map>
#include <set>

#include "tests/support/request_fixture.h"

namespace varnel::test {

using Names = std::set<std::wstring>;
using Lines = std::vector<std::string>;

inline const std::wstring kMessage113 =
    L"Protection set does not contain all the volumes required to take application consistent snapshot. Check the "
    L"protection set configuration.";
inline const std::wstring kMessage114 =
    L"Protection set does not contain any application components for backup. Make sure that all the files to be "
    L"backed up reside on volumes in the protection set.";
inline const std::wstring kMessage126 = L"VSS writer is not present on the host.";
inline const std::string kNoComponentsRecord =
    "status=NoComponentsEligibleForBackup, rc=ConfigError, ca=CheckVolumeCollection, "
    "ca=CheckHostsVolumes/Connections";

inline std::string AddComponentFailedRecord(const std::string& component) {
  return "status=AddComponentFailed, Component=" + component +
         ", rc=ConfigError, ca=CheckVolumeCollection, ca=CheckHostsVolumes";
}

/// How a selection ends that holds a parent without one of its children.
inline Outcome NeedsChild(const std::string& parent, const std::string& child) {
  return Outcome::Exception(602, kMessage113,
                            {kMessage113 + Wide("Component " + child + " needs to be in the protection set as parent " +
                                                parent + " is included. Make sure volumes affected by " + child +
                                                " are included in volume collection.")});
}
inline std::string NeedsChildLine(const std::string& parent, const std::string& child) {
  return "IncludedParent=" + parent + ", ExcludedChild=" + child + ". Ensure that protection set is complete";
}

inline simulator::WriterComponent NotSelectable(simulator::WriterComponent component) {
  component.selectable = false;
  return component;
}

// What the log says of one file on array disk `number`.
inline std::string FileLine(const std::string& component, const std::string& file, int number) {
  return "I Component=" + component + ", File=" + file + ", AffectedVolume=" + WideToUtf8(VolumeName(number)) +
         ", SerialNumber=TSL000" + std::to_string(number);
}

class Selection : public HostFixture {
 protected:
  /// One writer, "Files".
  void InstallComponents(std::vector<simulator::WriterComponent> components) {
    model().writers = {MakeWriter(L"Files", 1, std::move(components))};
  }

  /// Selects with only its own lines in the log and only its own calls in the call log.
  template <class Requestor>
  void Select(SnapshotRequest<Requestor>& request, const std::string& requestText = "writer=0,") {
    Forget();
    request.details() = requestText;
    request.probe.SelectComponentsForBackup(request.details());
  }

  /// The paths in the order in which components were added: "logicalPath|name".
  Lines Added() {
    Lines added;
    for (const std::string& line : Calls("IVssBackupComponents::AddComponent")) {
      const std::string path = line.substr(0, line.rfind("\")"));
      const std::size_t name = path.rfind("\", \"");
      const std::size_t logical = path.rfind(", \"", name - 1) + 3;
      added.push_back(path.substr(logical, name - logical) + "|" + path.substr(name + 4));
    }
    return added;
  }
  Lines LinesWith(const std::string& part) {
    Lines lines;
    for (const std::string& line : log.All()) {
      if (line.find(part) != line.npos) lines.push_back(line);
    }
    return lines;
  }
};

/// A request that has selected; the logs hold what the selection left there.
template <class Requestor = CVarnel>
class SelectedRequest : public GatheredRequest<Requestor> {
 public:
  template <class... Arguments>
  explicit SelectedRequest(HostFixture& test, RequestOptions options = {}, Arguments&&... arguments)
      : GatheredRequest<Requestor>(std::move(options), std::forward<Arguments>(arguments)...) {
    test.Forget();
    this->probe.SelectComponentsForBackup(this->details());
  }
};

// Accepts the writers of some names, and remembers what it was asked.
class Choosy final : public CVarnel {
 public:
  Choosy(DWORD testPoints, Names accepted) : CVarnel(testPoints), accepted_(std::move(accepted)) {}
  bool IsWriterEligible(VssWriter& writer) override {
    asked.push_back(writer.name);
    return accepted_.contains(writer.name);
  }
  bool IsComponentEligible(VssComponent& component, std::map<std::wstring, std::wstring>& volumeSerials) override {
    asked.push_back(component.fullPath);
    return CVarnel::IsComponentEligible(component, volumeSerials);
  }
  std::vector<std::wstring> asked;

 private:
  Names accepted_;
};

// A component that is selected, by its full path.
inline VssComponent Selected(const std::wstring& fullPath, Names disks = {}) {
  VssComponent component;
  component.fullPath = fullPath;
  component.caption = L"the " + fullPath;
  component.selectable = true;
  component.affectedSerialNumbers = std::move(disks);
  return component;
}

inline VssComponent Unselected(const std::wstring& fullPath, Names disks = {}) {
  VssComponent component = Selected(fullPath, std::move(disks));
  component.excluded = true;
  return component;
}

}  // namespace varnel::test
