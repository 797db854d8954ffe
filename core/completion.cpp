// The end of a backup: what the writers are told, and what becomes of a set that is of no use.
#include "core/logging.h"
#include "core/varnel.h"
#include "core/vss_call.h"
#include "text/guid.h"

using varnel::AlertAndThrow;
using varnel::CheckedCall;
using varnel::kLog;
using varnel::LogAndThrow;

namespace {

// A request that got through with collected messages has its snapshot, like one without.
bool GotThrough(int snapErrorCode) {
  return snapErrorCode == VarnelException::None || snapErrorCode == VarnelException::PartialSuccess;
}

void AbortUnfinishedBackup(IVssBackupComponents* service) {
  if (service == nullptr) {
    kLog.Warning(L"Snapshot not created, not calling AbortBackup because VSS is not yet initialized.");
    return;
  }
  kLog.Warning(L"Snapshot not created, calling AbortBackup");
  const HRESULT hr = service->AbortBackup();
  if (FAILED(hr)) kLog.Error(L"AbortBackup failed. Error 0x%x", hr);
}

// A transportable set is the array's to clean up.
bool IsOursToDelete(DWORD context) {
  if ((context & VSS_VOLSNAP_ATTR_TRANSPORTABLE) == 0) {
    kLog.Info(L"Delete snapshots before exiting...");
    return true;
  }
  kLog.Warning(
      L"Backup failed, but snapshopts won't be cleaned up by Vorn as they are transportable. The array should clean "
      L"up the snapshots if failure is terminating.");
  return false;
}

bool HasWriterComponents(const varnel::ComPtr<IVssBackupComponents>& service) {
  UINT writers = 0;
  CheckedCall(LogAndThrow(L"m_pVssObject->GetWriterComponentsCount(&cWriters)"), service,
              &IVssBackupComponents::GetWriterComponentsCount, &writers);
  if (writers == 0) kLog.Warning(L"- There were no writer components in this backup");
  return writers != 0;
}

void LogIntention(int snapErrorCode) {
  if (snapErrorCode == VarnelException::None) {
    kLog.Info(L"- Mark components as succesfully backed up");
  } else if (snapErrorCode == VarnelException::PartialSuccess) {
    kLog.Warning(
        L"- Backup was partially successful. Mark components as SUCCEEDED unless overriden by component level "
        L"failure.");
  } else {
    kLog.Warning(L"- Mark components as failed.");
  }
}

}  // namespace

void CVarnel::SetBackupStatus(int snapErrorCode, std::string& errorDetails) {
  m_writerErrorText.clear();
  m_failedComponents.clear();
  kLog.Info(L"Backup shutdown phase: SetBackupStatus called with snapErrorCode %d...", snapErrorCode);
  if (!m_snapshotDone) {
    AbortUnfinishedBackup(m_pVssObject.Get());
    return;
  }
  if (!GotThrough(snapErrorCode) && IsOursToDelete(m_context)) {
    try {
      DeleteSnapshotSet(errorDetails);
    } catch (...) {
      // A set that is left must not keep the writers from being told.
      kLog.Error(L"Failed to delete the snapshots.");
    }
  }
  long failure = S_OK;
  try {
    if (!HasWriterComponents(m_pVssObject)) return;
    LogIntention(snapErrorCode);
    SetBackupSucceeded(snapErrorCode, errorDetails);
  } catch (long hr) {
    failure = hr;
    kLog.Error(L"SetBackupStatus Failed. Error = 0x%x", hr);
  } catch (...) {
    failure = E_FAIL;
    kLog.Error(L"SetBackupStatus Failed. Unknown error.");
  }
  try {
    BackupComplete(errorDetails);
  } catch (...) {
    // The failure that came first is the one to report.
    if (failure == S_OK) throw;
  }
  if (failure != S_OK) throw long{failure};
}

void CVarnel::SetBackupSucceeded(int snapErrorCode, std::string& errorDetails) {
  const bool byDefault = GotThrough(snapErrorCode);
  if (byDefault) {
    kLog.Info(L"***Reporting component status as SUCCEEDED unless overriden***");
  } else {
    kLog.Info(L"***Reporting component status as FAILED unless overriden***");
  }
  for (const VssWriter& writer : m_writers) {
    if (writer.excluded) continue;
    const auto instanceId = varnel::GuidOrNull<GUID>(writer.instanceId);
    const auto writerId = varnel::GuidOrNull<GUID>(writer.writerId);
    for (const VssComponent& component : writer.components) {
      if (!component.added) continue;
      const bool succeeded = component.failed ? !varnel::HasFailed(component) : byDefault;
      if (component.failed) {
        kLog.Info(L"Component level status code has been set for %s. Reporting succeeded = %d", component.fullPath,
                  succeeded);
      }
      CheckedCall(AlertAndThrow("SetBackupSucceeded()", errorDetails), m_pVssObject,
                  &IVssBackupComponents::SetBackupSucceeded, instanceId, writerId,
                  static_cast<VSS_COMPONENT_TYPE>(component.type), component.logicalPath.c_str(),
                  component.name.c_str(), succeeded);
    }
  }
}

void CVarnel::BackupComplete(std::string& errorDetails) {
  const auto async = varnel::Obtain<IVssAsync>(LogAndThrow(L"m_pVssObject->BackupComplete(&pAsync)"), m_pVssObject,
                                               &IVssBackupComponents::BackupComplete);
  WaitAndCheckForAsyncOperation(async.Get(), "BackupComplete()", errorDetails);
  CheckSelectedWriterStatus(errorDetails);
  if (!m_writerErrorText.empty()) {
    throw VarnelException(VarnelException::PartialSuccess, m_writerErrorText, m_failedComponents);
  }
}

// The pointer is handed out as the interface has it; nobody may write to the text.
char* CVarnel::getSuccesfulDBList() {
  return const_cast<char*>(static_cast<const char*>(m_successfulDBList));
}
