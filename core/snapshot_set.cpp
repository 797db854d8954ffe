// CreateVssSnapshotSet and its steps.
#include <algorithm>
#include <unordered_map>
#include <unordered_set>

#include "core/alerts.h"
#include "core/configuration.h"
#include "core/provider.h"
#include "core/varnel.h"
#include "core/vss_call.h"
#include "text/ascii_case.h"
#include "text/guid.h"

using TesselCommonClasses::DiskAndVolumeEnumerator;
using TesselCommonClasses::UtilityClass;
using varnel::AlertAndThrow;
using varnel::kLog;
namespace ascii = varnel::ascii;

void CVarnel::CreateVssSnapshotSet(std::string& errorDetails) {
  kLog.Info(L"CreateVssSnapshotSet : Enter");
  m_snapshotDone = false;
  m_writerErrorText.clear();
  m_failedComponents.clear();
  GatherWriterMetadata(errorDetails);
  SelectComponentsForBackup(errorDetails);
  VSS_ID setId{};
  varnel::CheckedCall(AlertAndThrow("m_pVssObject->StartSnapshotSet()", errorDetails), m_pVssObject,
                      &IVssBackupComponents::StartSnapshotSet, &setId);
  m_snapshotSetId = varnel::FormatGuid(setId);
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

// The application's volumes, then those of the extra disks; each once, whatever its spelling.
void CVarnel::AddToSnapshotSet(std::string& errorDetails) {
  std::unordered_set<std::wstring_view> seen;  // spellings that need not be asked for again
  for (const VssComponent* component : varnel::SelectedComponents(m_writers)) {
    for (const VssFileDescriptor& file : component->files) {
      if (!seen.insert(file.volumeName).second || IsVolumeAlreadyAdded(file.volumeName)) continue;
      m_snapshotVolumes.push_back({file.volumeName, {}, {}});
    }
  }
  std::vector<std::wstring> extraVolumes;
  GetVolumeListForExtraVolumes(extraVolumes);
  for (const std::wstring& volume : extraVolumes) {
    if (IsVolumeAlreadyAdded(volume)) {
      kLog.Warning(
          L"Volume to be added is a system drive hence excluding from snapshot set even though this volume was "
          L"detected as an extra volume.");
      continue;
    }
    kLog.Info(L"Adding extra volume = %s to the snapshot set", volume);
    m_snapshotVolumes.push_back({volume, {}, {}});
  }
  for (SnapshotVolumeInfo& volume : m_snapshotVolumes) {
    kLog.Info(L"Add Volume=%s, SnapshotSetID=%s ", volume.volumeName, m_snapshotSetId);
    VSS_ID snapshotId{};
    varnel::CheckedCall(AlertAndThrow("m_pVssObject->AddToSnapshotSet()", errorDetails), m_pVssObject,
                        &IVssBackupComponents::AddToSnapshotSet, volume.volumeName.data(), varnel::ArrayProviderId(),
                        &snapshotId);
    volume.snapshotId = varnel::FormatGuid(snapshotId);
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
    varnel::Required(m_diskAndVolumeEnumerator).GetUniqueVolumeNamesForDisk(ascii::ToLower(serialNumber), names);
    volumes.insert(volumes.end(), names.begin(), names.end());
  }
}

void CVarnel::PrepareForBackup(std::string& errorDetails) {
  constexpr char kCall[] = "PrepareForBackup()";
  const auto async = varnel::Obtain<IVssAsync>(AlertAndThrow(kCall, errorDetails), m_pVssObject,
                                               &IVssBackupComponents::PrepareForBackup);
  WaitAndCheckForAsyncOperation(async.Get(), kCall, errorDetails);
}

void CVarnel::DoSnapshotSet(std::string& errorDetails) {
  constexpr char kCall[] = "DoSnapshotSet()";
  const auto async =
      varnel::Obtain<IVssAsync>(AlertAndThrow(kCall, errorDetails), m_pVssObject, &IVssBackupComponents::DoSnapshotSet);
  WaitAndCheckForAsyncOperation(async.Get(), kCall, errorDetails);
  m_snapshotDone = true;
  CheckSelectedWriterStatus(errorDetails);
  if ((m_testPoints & varnel::kTestPointFailDoSnapshotSet) != 0) {
    kLog.Error(L"***Testpoint enabled. Throwing error unexpected writer error after DoSnapshotSet***");
    varnel::ThrowHResult(VSS_E_UNEXPECTED_WRITER_ERROR);
  }
}

void CVarnel::SaveBackupComponentsDocument(std::string& errorDetails) {
  const HRESULT hr = varnel::ResultOf(m_pVssObject, &IVssBackupComponents::SaveAsXML, m_backupDocument.Put());
  AlertAndThrow("SaveAsXML()", errorDetails)(varnel::Delivered(hr, m_backupDocument));
}

void CVarnel::GetSnapShotProperties(std::string& errorDetails) {
  kLog.Info(L"Getting snapshot properties...");
  std::unordered_map<std::wstring_view, std::vector<VssFileDescriptor*>> filesByVolume;
  for (VssComponent* component : varnel::SelectedComponents(m_writers)) {
    for (VssFileDescriptor& file : component->files) filesByVolume[file.volumeName].push_back(&file);
  }
  for (SnapshotVolumeInfo& volume : m_snapshotVolumes) {
    const auto snapshotId = varnel::GuidOrNull<GUID>(volume.snapshotId);
    varnel::SnapshotProperties properties;
    // Asked twice on purpose; the second answer counts.
    varnel::CheckedCall(varnel::LogAndThrow(L"m_pVssObject->GetSnapshotProperties(WString2Guid(snapshotID), &Snap)"),
                        m_pVssObject, &IVssBackupComponents::GetSnapshotProperties, snapshotId, properties.Put());
    varnel::CheckedCall(AlertAndThrow("m_pVssObject->GetSnapshotProperties()", errorDetails), m_pVssObject,
                        &IVssBackupComponents::GetSnapshotProperties, snapshotId, properties.Put());
    const wchar_t* device = properties->m_pwszSnapshotDeviceObject;
    volume.snapshotDeviceName = UtilityClass::AppendBackslash(device == nullptr ? L"" : device);
    kLog.Info(L"re-enumerating cache");
    varnel::Required(m_diskAndVolumeEnumerator).EnumerateDisks(true);
    std::wstring diskName;
    std::wstring serialNumber;
    if (const DWORD error = GetDiskSerialNumberForVolume(volume.snapshotDeviceName, diskName, serialNumber)) {
      const HRESULT hr = varnel::HResultFromWin32(error);
      std::string record;  // for the log alone
      varnel::WriteAlert<varnel::alert::kDiskSerialNumber>(record, HResult2String(hr));
      varnel::ThrowHResult(hr);
    }
    kLog.Info(L"SnapshotdeviceName=%s, volume=%s, DiskName=%s, SerialNumber=%s", volume.snapshotDeviceName,
              volume.volumeName, diskName, serialNumber);
    for (VssFileDescriptor* file : filesByVolume[volume.volumeName]) {
      file->snapshotDeviceName = volume.snapshotDeviceName;
      file->snapshotDiskName = diskName;
      file->snapshotSerialNumber = serialNumber;
    }
  }
}
