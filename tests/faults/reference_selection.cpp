#include "tests/faults/reference_rules.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "platform/ansi.h"

namespace varnel::test::reference {

void Reference::Select() {
  bool anyEligible = false;
  for (Writer& writer : writers_) {
    writer.excluded = Contains(scenario_.ineligibleWriters, writer.name);
    if (writer.excluded) continue;
    anyEligible = true;
    const int code = WriterCode();
    if (code == 2 || code == 3 || code == 4) GetComponentsList();
    for (Component& component : writer.components) component.excluded = !IsEligible(component, code);
  }
  if (!anyEligible) {
    const std::wstring message = L"VSS writer is not present on the host.";
    throw EndingWithException(602, message, {message});
  }
  IncludeParents();
  VerifySelection();
  DiscardEmptyWriters();
  VerifyProtectionSet();
  AddComponents();
}

int Reference::WriterCode() {
  std::string code;
  std::istringstream fields(scenario_.requestText);
  for (std::string field; std::getline(fields, field, ',');) {
    if (field.find("writer") == field.npos) continue;
    code = field.find('=') == field.npos ? field : field.substr(field.find('=') + 1);
    break;
  }
  Log('I', L"Writer code received from Array is: " + Wide(code));
  try {
    return std::stoi(code);
  } catch (const std::invalid_argument&) {
    Log('E', L"Writer code is not a number: " + Wide(code));
    throw EndingWithOther("std::invalid_argument");
  } catch (const std::out_of_range&) {
    Log('E', L"Writer code is not a number: " + Wide(code));
    throw EndingWithOther("std::out_of_range");
  }
}

void Reference::GetComponentsList() {
  if (scenario_.inputSerialNumbers.empty()) {
    Log('E', L"Invalid number of serial nos");
    Throw(E_INVALIDARG);
  }
  const std::wstring& first = scenario_.inputSerialNumbers.front();
  const auto known = host_.databases.find(first);
  if (known != host_.databases.end()) {
    databases_ = known->second;
  } else {
    Log('I', L" GetdbFilesToQuiescePtr failed with error =No protection set holds the disk " + first);
  }
  if (databases_ == L"ALL_DB") {
    InsertInOrder(inputComponents_, L"ALL_DB");
    return;
  }
  std::wistringstream entries(databases_);
  for (std::wstring entry; std::getline(entries, entry, L'\t');) {
    const std::size_t at = entry.find(L'@');
    if (at == entry.npos) {
      Log('W', L"Database entry without a server is skipped, Entry=" + entry);
      continue;
    }
    const std::wstring database = entry.substr(0, at);
    const std::wstring server = entry.substr(at + 1);
    const std::wstring network = NetworkNameOf(server);
    std::wstring path = L"\\" + network + L"\\";
    if (Lower(server) != network) path += server + L"\\";
    InsertInOrder(inputComponents_, Lower(path + database));
  }
}

std::wstring Reference::NetworkNameOf(const std::wstring& name) {
  std::wstring result;
  if (host_.cluster) {
    bool found = false;
    for (const auto& [known, network] : host_.cluster->networkNames) {
      if (found || !SameInAnyCase(known, name)) continue;
      found = true;
      result = network;
    }
    if (!found) Log('I', L" GetClusterName failed. Falling back to local hostname");
  }
  return Lower(result.empty() ? host_.computerName : result);
}

bool Reference::PassesComponentList(const Component& component) const {
  if (inputComponents_.empty()) return false;
  return inputComponents_.front() == L"ALL_DB" || Contains(inputComponents_, Lower(component.fullPath));
}

bool Reference::IsEligible(Component& component, int writerCode) {
  if (component.files.empty()) return false;
  std::vector<std::wstring> passed;
  for (const File& file : component.files) {
    const bool narrowed = writerCode == 2 || writerCode == 3 || writerCode == 4;
    if (narrowed && !PassesComponentList(component)) {
      Log('W', L"Component not in input file, State=NotEligible");
      return false;
    }
    std::wstring serialNumber;
    if (!FindSerialNumber(file.volumeName, serialNumber)) {
      Log('E', L"GetDiskSerialNumberForVolume() Failed, Volume=" + file.volumeName + L", Component=" +
                   component.caption + L", State=NotEligible");
      return false;
    }
    Log('I', L"Component=" + component.caption + L", File=" + file.expandedPath + L", AffectedVolume=" +
                 file.volumeName + L", SerialNumber=" + serialNumber);
    InsertInOrder(component.affectedSerialNumbers, serialNumber);
    if (!IsDiskEligible(serialNumber)) {
      Log('W', L"Volume not in input list, State=NotEligible");
      return false;
    }
    InsertInOrder(passed, serialNumber);
  }
  for (const std::wstring& serialNumber : passed) {
    if (!Contains(eligible_, serialNumber)) eligible_.push_back(serialNumber);
  }
  return true;
}

bool Reference::FindSerialNumber(const std::wstring& volume, std::wstring& serialNumber) const {
  for (const simulator::Disk& disk : host_.disks) {
    for (const simulator::Volume& candidate : disk.volumes) {
      if (!SameInAnyCase(candidate.name, volume)) continue;
      serialNumber = disk.reportsSerial && candidate.otherDisks.empty() ? disk.serial : L"";
      return !serialNumber.empty();
    }
  }
  return false;
}

// The disk that holds C:\.
std::wstring Reference::SystemSerialNumber() const {
  for (const simulator::Disk& disk : host_.disks) {
    for (const simulator::Volume& volume : disk.volumes) {
      if (Contains(volume.mountPoints, std::wstring(L"C:\\"))) return disk.reportsSerial ? disk.serial : L"";
    }
  }
  return L"";
}

bool Reference::IsDiskEligible(const std::wstring& serialNumber) {
  if (!Contains(scenario_.inputSerialNumbers, serialNumber)) return false;
  if (serialNumber == SystemSerialNumber()) {
    Log('W', L"Affected volume " + serialNumber +
                 L" of file descriptor is a system volume. Hence not including in the snapshot set.");
    return false;
  }
  return true;
}

void Reference::IncludeParents() {
  Log('I', L"Including implicit components");
  for (Writer& writer : writers_) {
    if (writer.excluded) continue;
    for (Component& p : writer.components) {
      for (Component& c : writer.components) {
        if (!IsAncestor(p, c) || c.excluded) continue;
        if (p.excluded) {
          Log('I', L"Including, Component='" + p.fullPath + L", BecauseOf='" + c.fullPath);
          p.excluded = false;
        }
        for (const std::wstring& serialNumber : c.affectedSerialNumbers) {
          InsertInOrder(p.affectedSerialNumbers, serialNumber);
        }
      }
    }
  }
}

void Reference::VerifySelection() {
  const std::wstring message =
      L"Protection set does not contain all the volumes required to take application consistent snapshot. Check the "
      L"protection set configuration.";
  Log('I', L"VerifyComponentSelection");
  for (const Writer& writer : writers_) {
    if (writer.excluded) continue;
    for (const Component& p : writer.components) {
      for (const Component& c : writer.components) {
        if (!IsAncestor(p, c) || p.excluded || !c.excluded) continue;
        Log('E', L"IncludedParent=" + p.caption + L", ExcludedChild=" + c.caption +
                     L". Ensure that protection set is complete");
        throw EndingWithException(
            602, message,
            {message + L"Component " + c.caption + L" needs to be in the protection set as parent " + p.caption +
             L" is included. Make sure volumes affected by " + c.caption + L" are included in volume collection."});
      }
    }
  }
}

void Reference::DiscardEmptyWriters() {
  Log('I', L"Discarding empty writers");
  for (Writer& writer : writers_) {
    if (writer.excluded) continue;
    int count = 0;
    for (const Component& component : writer.components) {
      if (!component.excluded) ++count;
    }
    if (count != 0) continue;
    Log('I', L"Discarding writer. Writer=" + writer.name);
    writer.excluded = true;
  }
}

void Reference::ReportMismatch() {
  const std::vector<std::wstring>& input = scenario_.inputSerialNumbers;
  Alert('E', L" ",
        L"status=LunMismatch, VolCollVolumes=" + std::to_wstring(input.size()) + L", VolumesInvolvedInSnapshot=" +
            std::to_wstring(eligible_.size()) +
            L", rc=ConfigError, ca=CheckVolumeCollection, ca=CheckHostsVolumes/Connections",
        ";\n");
  const std::wstring inputLine = L"Input list of volumes in volume collection: " + Joined(input);
  Log('E', L" " + inputLine);
  details_ += WideToAnsi(inputLine) + ";\n";
  const std::wstring applicationLine = L"List of volumes used by application writer : " + Joined(eligible_);
  Log('E', L" " + applicationLine);
  details_ += WideToAnsi(applicationLine) + ";\n";
  throw EndingWithException(
      602,
      L"Number of disks added in the snapshot set were different than listed in the protection set. This can happen "
      L"due to incorrect configuration or application objects in incorrect state. Check the protection set "
      L"configuration and ensure that objects being backed up are in correct state.",
      {L"\n Volumes in volume collection: " + Joined(input) +
       L" \n Volumes containing application components eligible for backup: " + Joined(eligible_)});
}

void Reference::VerifyProtectionSet() {
  const std::vector<std::wstring>& input = scenario_.inputSerialNumbers;
  const std::vector<std::wstring>& application = eligible_;
  if (input.size() == application.size()) return;
  if (application.empty()) ReportMismatch();
  for (const std::wstring& serialNumber : input) {
    bool used = false;
    for (const std::wstring& candidate : application) used = used || SameInAnyCase(candidate, serialNumber);
    if (!used) extra_.push_back(serialNumber);
  }
  Alert('W', L"",
        L"status=ExtarVolumesInVolColl, VolumesInvolvedInSnapshot =" + std::to_wstring(application.size()) +
            L" , ExtraVolumes =" + std::to_wstring(extra_.size()) +
            L", rc=ConfigWarning, ca=CheckVolumeCollection, ca=CheckHostsVolumes/Connections",
        ";\n");
  deferred_ = EndingWithException(701, L"Extra volumes found in the volume collection. ",
                                  {L"Extra volumes in the volume collection : " + Joined(extra_)});
  const std::wstring line = L"Extra volumes in volume collection are:" + Joined(extra_);
  Log('W', L" " + line);
  details_ += WideToAnsi(line) + ":\n";
}

void Reference::AddComponents() {
  Log('I', L"Selecting components");
  int count = 0;
  for (Writer& writer : writers_) {
    if (writer.excluded) continue;
    for (Component& component : writer.components) {
      if (component.excluded || !component.selectable) continue;
      Log('I', L"Add Component=" + component.fullPath + L" ");
      calls_.push_back(Narrow(L"AddComponent " + writer.instanceId + L" " + writer.writerId + L" " +
                              std::to_wstring(component.type) + L" \"" + component.logicalPath + L"\" \"" +
                              component.name + L"\""));
      const HRESULT hr = AnswerOf(scenario_.addAnswers, adds_);
      if (hr != 0) {
        Alert('E', L"  ",
              L"status=AddComponentFailed, Component=" + component.fullPath +
                  L", rc=ConfigError, ca=CheckVolumeCollection, ca=CheckHostsVolumes",
              ";\n");
        CheckCall(hr, L"m_pVssObject->AddComponent()");
      }
      component.added = true;
      ++count;
    }
  }
  if (count == 0) {
    Alert('E', L"  ",
          L"status=NoComponentsEligibleForBackup, rc=ConfigError, ca=CheckVolumeCollection, "
          L"ca=CheckHostsVolumes/Connections",
          ";\n");
    const std::wstring message =
        L"Protection set does not contain any application components for backup. Make sure that all the files to be "
        L"backed up reside on volumes in the protection set.";
    throw EndingWithException(602, message, {message});
  }
  Log('I', L"Number of components explicitly included in snapshot set = " + std::to_wstring(count) + L" ");
}

}  // namespace varnel::test::reference
