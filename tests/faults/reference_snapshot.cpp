#include "tests/faults/reference_rules.h"

#include <algorithm>

#include "text/guid.h"

namespace varnel::test::reference {

bool Reference::IsVolumeAdded(const std::wstring& volume) const {
  return std::any_of(volumes_.begin(), volumes_.end(),
                     [&](const SnapshotVolume& added) { return SameInAnyCase(added.volumeName, volume); });
}

std::vector<simulator::Disk> Reference::DisksByNumber() const {
  std::vector<simulator::Disk> disks = host_.disks;
  std::sort(disks.begin(), disks.end(), [](const auto& a, const auto& b) { return a.number < b.number; });
  return disks;
}

std::vector<std::wstring> Reference::ExtraVolumes() {
  std::vector<std::wstring> names;
  for (const std::wstring& serialNumber : extra_) {
    if (SameInAnyCase(serialNumber, SystemSerialNumber())) {
      Log('I', L"Excluding volume = " + serialNumber + L" from extra volume.");
      continue;
    }
    for (const simulator::Disk& disk : DisksByNumber()) {
      if (!disk.reportsSerial || disk.serial.empty() || !SameInAnyCase(disk.serial, serialNumber)) continue;
      for (const simulator::Volume& volume : disk.volumes) {
        if (volume.otherDisks.empty()) names.push_back(volume.name);
      }
    }
  }
  return names;
}

void Reference::AddVolumes() {
  const std::wstring setId = FormatGuid(service_.setId);
  for (const Writer& writer : writers_) {
    if (writer.excluded) continue;
    for (const Component& component : writer.components) {
      if (component.excluded) continue;
      for (const File& file : component.files) {
        if (!IsVolumeAdded(file.volumeName)) volumes_.push_back({file.volumeName, L"", L""});
      }
    }
  }
  for (const std::wstring& name : ExtraVolumes()) {
    if (IsVolumeAdded(name)) {
      Log('W',
          L"Volume to be added is a system drive hence excluding from snapshot set even though this volume was "
          L"detected as an extra volume.");
      continue;
    }
    Log('I', L"Adding extra volume = " + name + L" to the snapshot set");
    volumes_.push_back({name, L"", L""});
  }
  for (std::size_t i = 0; i < volumes_.size(); ++i) {
    Log('I', L"Add Volume=" + volumes_[i].volumeName + L", SnapshotSetID=" + setId + L" ");
    calls_.push_back(
        Narrow(L"AddToSnapshotSet \"" + volumes_[i].volumeName + L"\" {374579ad-285c-49b9-ab8a-950e0e252de2}"));
    const ServiceAnswers::Volume answer =
        i < service_.volumes.size() ? service_.volumes[i] : ServiceAnswers::Volume{E_FAIL, {}};
    CheckCall(answer.result, L"m_pVssObject->AddToSnapshotSet()");
    volumes_[i].snapshotId = FormatGuid(answer.snapshotId);
  }
}

std::wstring Reference::ShadowSerialNumber(const std::wstring& volume) const {
  for (const simulator::Disk& disk : host_.disks) {
    for (const simulator::Volume& candidate : disk.volumes) {
      if (SameInAnyCase(candidate.name, volume)) return L"SHADOW-" + disk.serial;
    }
  }
  return L"";
}

// Every shadow copy is on a disk of its own, with the lowest free number.
void Reference::ReadProperties() {
  std::vector<DWORD> used;
  for (const simulator::Disk& disk : host_.disks) used.push_back(disk.number);
  Log('I', L"Getting snapshot properties...");
  for (std::size_t i = 0; i < volumes_.size(); ++i) {
    SnapshotVolume& entry = volumes_[i];
    DWORD number = 0;
    while (Contains(used, number)) ++number;
    used.push_back(number);
    const std::wstring disk = L"\\\\.\\PhysicalDrive" + std::to_wstring(number);
    const std::wstring serialNumber = ShadowSerialNumber(entry.volumeName);
    entry.snapshotDeviceName = L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy" + std::to_wstring(i + 1) + L"\\";
    Log('I', L"re-enumerating cache");
    Log('I', L"SnapshotdeviceName=" + entry.snapshotDeviceName + L", volume=" + entry.volumeName + L", DiskName=" +
                 disk + L", SerialNumber=" + serialNumber);
    for (Writer& writer : writers_) {
      if (writer.excluded) continue;
      for (Component& component : writer.components) {
        if (component.excluded) continue;
        for (File& file : component.files) {
          if (file.volumeName != entry.volumeName) continue;
          file.snapshotDeviceName = entry.snapshotDeviceName;
          file.snapshotDiskName = disk;
          file.snapshotSerialNumber = serialNumber;
        }
      }
    }
  }
}

// ---- the writers' status ----

void Reference::CheckStatus() {
  const Check& check = scenario_.checks.at(checks_++);
  bool cameThrough = false;
  bool failureSeen = false;
  Log('I', L"GatherWriterStatus");
  Log('I', L"Waiting for Operation=m_pVssObject->GatherWriterStatus(&pAsync) to finish...");
  CheckCall(check.counting, L"m_pVssObject->GetWriterStatusCount()");
  CheckComCall(ResultOf(check.view), L"m_pVssObject->QueryInterface(IID_IVssBackupComponentsEx3, (void**)&bucompEx3)");
  for (const StatusEntry& entry : check.entries) CheckEntry(check, entry, cameThrough, failureSeen);
  CheckCall(check.freeing, L"m_pVssObject->FreeWriterStatus()");
  if (scenario_.partialFailures ? !cameThrough : failureSeen) {
    throw EndingWithException(600, errorText_, failedComponents_);
  }
}

Writer* Reference::SelectedWriter(const std::wstring& instanceId) {
  for (Writer& writer : writers_) {
    if (!writer.excluded && writer.instanceId == instanceId) return &writer;
  }
  return nullptr;
}

void Reference::CheckEntry(const Check& check, const StatusEntry& entry, bool& cameThrough, bool& failureSeen) {
  CheckCall(entry.reading, L"bucompEx3->GetWriterStatusEx()");
  Writer* writer = SelectedWriter(FormatGuid(entry.instanceId));
  if (writer == nullptr) return;
  const std::wstring name = entry.name.value_or(L"");
  const std::wstring message = entry.applicationMessage.value_or(L"");
  if (entry.failure == 0) {
    cameThrough = true;
    Log('I', L"Writer=" + name + L", WriterStatus=" + StateName(entry.state) + L", WriterError=S_OK");
    return;
  }
  failureSeen = true;
  Alert('E', L"  ",
        L"RequestStatus=WriterFailure, WriterName=" + name + L", WriterError=" + ResultText(entry.failure) +
            L", WriterStatus=" + StateName(entry.state) + L", ApplicationError=0x" + Hex(entry.applicationResult) +
            L", ApplicationMsg=" + message + L", rc=VssWriterStatusError, ca=CheckWriterState;\n",
        "");
  const std::wstring stateText = StateMessage(entry.state, name);
  const std::wstring errorText = ErrorText(entry.failure);
  errorText_ += stateText + errorText;
  std::wstring text = stateText + errorText + L" Application error code: 0x" + Hex(entry.applicationResult) +
                      L", Application error message: " + message + L" \n";
  text += entry.failure == VSS_E_WRITERERROR_PARTIAL_FAILURE ? FailPartially(*writer, check, cameThrough)
                                                             : FailWriter(*writer, entry.failure);
  failedComponents_.push_back(text);
}

std::wstring Reference::FailWriter(Writer& writer, HRESULT hr) {
  Log('E', L"Marking all components of writer " + writer.name + L" as FAILED!");
  std::wstring list;
  for (Component& component : writer.components) {
    if (!component.added) continue;
    component.failed = true;
    component.failureCode = static_cast<DWORD>(hr);
    list += component.name + L"[" + component.fullPath + L"],";
  }
  if (!list.empty()) list.pop_back();
  return L"Failed application components: " + list + L" \n";
}

std::wstring Reference::FailPartially(Writer& writer, const Check& check, bool& cameThrough) {
  std::wstring text;
  try {
    ReadDocument(writer, check, text);
  } catch (const Ending& failure) {
    const std::wstring reason = ErrorText(failure.statusCode);
    Log('E',
        L"Partial writer failure has been reported, but failed to get component level information. Partial failure "
        L"will be treated as complete failure. Error: " +
            reason);
    return FailWriter(writer, failure.statusCode);
  }
  if (scenario_.partialFailures) cameThrough = true;
  return text;
}

void Reference::ReadDocument(Writer& writer, const Check& check, std::wstring& text) {
  bool found = false;
  CheckComCall(check.countingDocument, L"m_pVssObject->GetWriterComponentsCount(&nWritersInBCD)");
  for (const DocumentWriter& told : check.document) {
    CheckComCall(ResultOf(told.delivery), L"m_pVssObject->GetWriterComponents(iBCDWriter, &pWriter)");
    CheckComCall(told.identifying, L"pWriter->GetWriterInfo(&writerInstanceId, &writerId)");
    if (FormatGuid(told.instanceId) != writer.instanceId) continue;
    found = true;
    CheckComCall(told.counting, L"pWriter->GetComponentCount(&nComponents)");
    for (const DocumentComponent& component : told.components) ReadDocumentComponent(writer, component, text);
  }
  if (!found) Log('E', L"Could not find the writer reporting partial failure in BCD -- this is UNEXPECTED!!");
}

void Reference::ReadDocumentComponent(Writer& writer, const DocumentComponent& told, std::wstring& text) {
  CheckComCall(ResultOf(told.delivery), L"pWriter->GetComponent(iBCDComp, &pComponent)");
  CheckComCall(ResultOf(told.view), L"pComponent->QueryInterface(IID_IVssComponentEx2, (void**)&pCompEx2)");
  CheckComCall(told.reading, L"pCompEx2->GetFailure(&hrComp, &hrApplicationComp, &bstrAppMsgComp, &dwReserved)");
  CheckComCall(told.naming, L"pComponent->GetComponentName(&bstrCompName)");
  CheckComCall(told.locating, L"pComponent->GetLogicalPath(&bstrLogicalPath)");
  const std::wstring path = FullPath(told.logicalPath.value_or(L""), told.name.value_or(L""));
  for (Component& component : writer.components) {
    if (!component.added || component.fullPath != path) continue;
    component.failed = true;
    component.failureCode = static_cast<DWORD>(told.failure);
    break;
  }
  if (told.failure == 0) {
    Log('V', L"Component " + path + L" was successfully backed up.");
    return;
  }
  const std::wstring message = told.applicationMessage.value_or(L"");
  Alert('E', L"  ",
        L"RequestStatus=ComponentLevelFailure, Component=" + path + L", ComponentLevelError=" +
            ResultText(told.failure) + L", ApplicationError=0x" + Hex(told.applicationResult) + L", ApplicationMsg=" +
            message + L", rc=VssPartialWriterError, ca=CheckWriterState;\n",
        "");
  text += L"Failed component: " + path + L", Error: 0x" + Hex(told.failure) + L", Application error code: 0x" +
          Hex(told.applicationResult) + L", Application error message: " + message + L" \n";
}

}  // namespace varnel::test::reference
