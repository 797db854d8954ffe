// CreateVssSnapshotSet and its steps.
#include <algorithm>
#include <unordered_map>
#include <unordered_set>

#include "core/logging.h"
#include "core/varnel.h"
#include "platform/owners.h"
#include "text/ascii_case.h"
#include "text/guid.h"

using TesselCommonClasses::DiskAndVolumeEnumerator;
using TesselCommonClasses::UtilityClass;
using varnel::ComPtr;
using varnel::kLog;
namespace ascii = varnel::ascii;

namespace {

// Calls `visit` for every file of every component that takes part.
template <class Visit>
void ForEachSelectedFile(std::vector<VssWriter>& writers, Visit visit) {
  for (VssWriter& writer : writers) {
    if (writer.excluded) continue;
    for (VssComponent& component : writer.components) {
      if (component.excluded) continue;
      for (VssFileDescriptor& file : component.files) visit(file);
    }
  }
}

}  // namespace

void CVarnel::CreateVssSnapshotSet(std::string& errorDetails) {
  kLog.Info(L"CreateVssSnapshotSet : Enter");
  m_snapshotDone = false;
  m_writerErrorText.clear();
  m_failedComponents.clear();
  GatherWriterMetadata(errorDetails);
  SelectComponentsForBackup(errorDetails);
  StartSnapshotSet(errorDetails);
  AddToSnapshotSet(errorDetails);
  PrepareForBackup(errorDetails);
  CheckSelectedWriterStatus(errorDetails);
  DoSnapshotSet(errorDetails);
  SaveBackupComponentsDocument(errorDetails);
  // A transportable set is not surfaced on this host.
  if ((m_context & VSS_VOLSNAP_ATTR_TRANSPORTABLE) == 0) GetSnapShotProperties(errorDetails);
  if (!m_writerErrorText.empty()) {
    throw VarnelException(VarnelException::PartialSuccess, m_writerErrorText, m_failedComponents);
  }
  if (m_lastException.GetAlertCode() != VarnelException::None) throw VarnelException(m_lastException);
}

void CVarnel::StartSnapshotSet(std::string& errorDetails) {
  VSS_ID setId{};
  CheckCommError(OnVssObject([&](auto& vss) { return vss.StartSnapshotSet(&setId); }),
                 "m_pVssObject->StartSnapshotSet()", errorDetails);
  m_snapshotSetId = varnel::FormatGuid(setId);
}

void CVarnel::AddToSnapshotSet(std::string& errorDetails) {
  CollectVolumes();
  for (SnapshotVolumeInfo& volume : m_snapshotVolumes) {
    kLog.Info(L"Add Volume=%s, SnapshotSetID=%s ", volume.volumeName, m_snapshotSetId);
    VSS_ID snapshotId{};
    const HRESULT hr = OnVssObject(
        [&](auto& vss) { return vss.AddToSnapshotSet(volume.volumeName.data(), TesselVssProviderID, &snapshotId); });
    CheckCommError(hr, "m_pVssObject->AddToSnapshotSet()", errorDetails);
    volume.snapshotId = varnel::FormatGuid(snapshotId);
  }
}

// The application's volumes, then those of the extra disks; each once, whatever its spelling.
void CVarnel::CollectVolumes() {
  std::unordered_set<std::wstring> added;
  for (const SnapshotVolumeInfo& volume : m_snapshotVolumes) added.insert(ascii::ToLower(volume.volumeName));
  std::unordered_set<std::wstring_view> seen;  // spellings that need no folding again
  ForEachSelectedFile(m_writers, [&](VssFileDescriptor& file) {
    const std::wstring& name = file.volumeName;
    if (!seen.insert(name).second || !added.insert(ascii::ToLower(name)).second) return;
    m_snapshotVolumes.push_back({file.volumeName, {}, {}});
  });

  std::vector<std::wstring> extraVolumes;
  GetVolumeListForExtraVolumes(extraVolumes);
  for (const std::wstring& volume : extraVolumes) {
    if (!added.insert(ascii::ToLower(volume)).second) {
      kLog.Warning(
          L"Volume to be added is a system drive hence excluding from snapshot set even though this volume was "
          L"detected as an extra volume.");
      continue;
    }
    kLog.Info(L"Adding extra volume = %s to the snapshot set", volume);
    m_snapshotVolumes.push_back({volume, {}, {}});
  }
}

bool CVarnel::IsVolumeAlreadyAdded(std::wstring volume) {
  return std::any_of(m_snapshotVolumes.begin(), m_snapshotVolumes.end(), [&](const SnapshotVolumeInfo& added) {
    return ascii::EqualIgnoringCase(added.volumeName, volume);
  });
}

void CVarnel::GetVolumeListForExtraVolumes(std::vector<std::wstring>& volumes) {
  for (const std::wstring& serialNumber : m_extraSerialNumbers) {
    if (ascii::EqualIgnoringCase(serialNumber, DiskAndVolumeEnumerator::systemDriveSerialNumber)) {
      kLog.Info(L"Excluding volume = %s from extra volume.", serialNumber);
      continue;
    }
    std::vector<std::wstring> names;
    RequireEnumerator().GetUniqueVolumeNamesForDisk(ascii::ToLower(serialNumber), names);
    volumes.insert(volumes.end(), names.begin(), names.end());
  }
}

void CVarnel::PrepareForBackup(std::string& errorDetails) {
  const std::string operationName = "PrepareForBackup()";
  ComPtr<IVssAsync> async;
  const HRESULT hr = OnVssObject([&](auto& vss) { return vss.PrepareForBackup(async.Put()); });
  CheckCommError(varnel::Delivered(hr, async), operationName, errorDetails);
  WaitAndCheckForAsyncOperation(async.Get(), operationName, errorDetails);
}

void CVarnel::DoSnapshotSet(std::string& errorDetails) {
  const std::string operationName = "DoSnapshotSet()";
  ComPtr<IVssAsync> async;
  const HRESULT hr = OnVssObject([&](auto& vss) { return vss.DoSnapshotSet(async.Put()); });
  CheckCommError(varnel::Delivered(hr, async), operationName, errorDetails);
  WaitAndCheckForAsyncOperation(async.Get(), operationName, errorDetails);
  m_snapshotDone = true;
  CheckSelectedWriterStatus(errorDetails);
  if (IsTestPointSet(varnel::kTestPointFailDoSnapshotSet)) {
    kLog.Error(L"***Testpoint enabled. Throwing error unexpected writer error after DoSnapshotSet***");
    varnel::ThrowHResult(VSS_E_UNEXPECTED_WRITER_ERROR);
  }
}

void CVarnel::SaveBackupComponentsDocument(std::string& errorDetails) {
  const HRESULT hr = OnVssObject([&](auto& vss) { return vss.SaveAsXML(m_backupDocument.Put()); });
  CheckCommError(varnel::Delivered(hr, m_backupDocument), "SaveAsXML()", errorDetails);
}

void CVarnel::GetSnapShotProperties(std::string& errorDetails) {
  kLog.Info(L"Getting snapshot properties...");
  std::unordered_map<std::wstring_view, std::vector<VssFileDescriptor*>> filesByVolume;
  ForEachSelectedFile(m_writers,
                      [&](VssFileDescriptor& file) { filesByVolume[file.volumeName.Get()].push_back(&file); });
  for (SnapshotVolumeInfo& volume : m_snapshotVolumes) {
    ReadSnapshotProperties(volume, errorDetails);
    std::wstring diskName;
    std::wstring serialNumber;
    IdentifySnapshotDisk(volume, diskName, serialNumber);
    const SharedText sharedDevice = volume.snapshotDeviceName;
    const SharedText sharedDisk = std::move(diskName);
    const SharedText sharedSerial = std::move(serialNumber);
    for (VssFileDescriptor* file : filesByVolume[volume.volumeName]) {
      file->snapshotDeviceName = sharedDevice;
      file->snapshotDiskName = sharedDisk;
      file->snapshotSerialNumber = sharedSerial;
    }
  }
}

// Asked twice on purpose; the second answer counts.
void CVarnel::ReadSnapshotProperties(SnapshotVolumeInfo& volume, std::string& errorDetails) {
  const GUID snapshotId = varnel::GuidOrNull<GUID>(volume.snapshotId);
  varnel::SnapshotProperties properties;
  const auto read = [&](auto& vss) { return vss.GetSnapshotProperties(snapshotId, properties.Put()); };
  varnel::CheckComCall(OnVssObject(read), L"\"m_pVssObject->GetSnapshotProperties(WString2Guid(snapshotID), &Snap)\"");
  CheckCommError(OnVssObject(read), "m_pVssObject->GetSnapshotProperties()", errorDetails);
  const wchar_t* device = properties->m_pwszSnapshotDeviceObject;
  volume.snapshotDeviceName = UtilityClass::AppendBackslash(device == nullptr ? L"" : device);
}

void CVarnel::IdentifySnapshotDisk(const SnapshotVolumeInfo& volume, std::wstring& diskName,
                                   std::wstring& serialNumber) {
  kLog.Info(L"re-enumerating cache");
  RequireEnumerator().EnumerateDisks(true);
  const DWORD error = GetDiskSerialNumberForVolume(volume.snapshotDeviceName, diskName, serialNumber);
  if (error != ERROR_SUCCESS) {
    const HRESULT hr = varnel::HResultFromWin32(error);
    varnel::LogAlert(varnel::alert::kDiskSerialNumber, {HResult2String(hr)});
    varnel::ThrowHResult(hr);
  }
  kLog.Info(L"SnapshotdeviceName=%s, volume=%s, DiskName=%s, SerialNumber=%s", volume.snapshotDeviceName,
            volume.volumeName, diskName, serialNumber);
}
