// The end of a backup: what the writers are told, and what becomes of a set that is of no use.
#include "core/logging.h"
#include "core/varnel.h"
#include "platform/owners.h"

using varnel::CheckComCall;
using varnel::ComPtr;
using varnel::kLog;

namespace {

// A request that got through with collected messages has its snapshot, like one without.
bool GotThrough(int snapErrorCode) {
  return snapErrorCode == VarnelException::None || snapErrorCode == VarnelException::PartialSuccess;
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

// What the guarded part of the completion came to.
struct CVarnel::MarkingResult {
  bool anyWriters = true;
  long failure = S_OK;  // the saved failure code
};

void CVarnel::SetBackupStatus(int snapErrorCode, std::string& errorDetails) {
  m_writerErrorText.clear();
  m_failedComponents.clear();
  kLog.Info(L"Backup shutdown phase: SetBackupStatus called with snapErrorCode %d...", snapErrorCode);
  if (!m_snapshotDone) {
    AbortUnfinishedBackup();
    return;
  }
  if (!GotThrough(snapErrorCode)) CleanUpFailedSet(errorDetails);
  const MarkingResult marking = MarkComponents(snapErrorCode, errorDetails);
  if (!marking.anyWriters) return;
  try {
    BackupComplete(errorDetails);
  } catch (...) {
    // The failure that came first is the one to report.
    if (marking.failure == S_OK) throw;
  }
  if (marking.failure != S_OK) throw marking.failure;
}

void CVarnel::AbortUnfinishedBackup() {
  if (!m_pVssObject) {
    kLog.Warning(L"Snapshot not created, not calling AbortBackup because VSS is not yet initialized.");
    return;
  }
  kLog.Warning(L"Snapshot not created, calling AbortBackup");
  const HRESULT hr = m_pVssObject->AbortBackup();
  if (FAILED(hr)) kLog.Error(L"AbortBackup failed. Error 0x%x", hr);
}

// Never fails: a set that stays behind must not keep the writers from being told.
void CVarnel::CleanUpFailedSet(std::string& errorDetails) {
  if ((m_context & VSS_VOLSNAP_ATTR_TRANSPORTABLE) != 0) {
    kLog.Warning(
        L"Backup failed, but snapshopts won't be cleaned up by Vorn as they are transportable. The array should clean "
        L"up the snapshots if failure is terminating.");
    return;
  }
  kLog.Info(L"Delete snapshots before exiting...");
  try {
    DeleteSnapshotSet(errorDetails);
  } catch (...) {
    kLog.Error(L"Failed to delete the snapshots.");
  }
}

CVarnel::MarkingResult CVarnel::MarkComponents(int snapErrorCode, std::string& errorDetails) {
  MarkingResult result;
  try {
    UINT writers = 0;
    CheckComCall(OnVssObject([&](auto& vss) { return vss.GetWriterComponentsCount(&writers); }),
                 L"\"m_pVssObject->GetWriterComponentsCount(&cWriters)\"");
    if (writers == 0) {
      kLog.Warning(L"- There were no writer components in this backup");
      result.anyWriters = false;
      return result;
    }
    LogIntention(snapErrorCode);
    SetBackupSucceeded(snapErrorCode, errorDetails);
  } catch (long hr) {
    result.failure = hr;
    kLog.Error(L"SetBackupStatus Failed. Error = 0x%x", hr);
  } catch (...) {
    result.failure = E_FAIL;
    kLog.Error(L"SetBackupStatus Failed. Unknown error.");
  }
  return result;
}

void CVarnel::SetBackupSucceeded(int snapErrorCode, std::string& errorDetails) {
  const bool byDefault = GotThrough(snapErrorCode);
  kLog.Info(byDefault ? L"***Reporting component status as SUCCEEDED unless overriden***"
                      : L"***Reporting component status as FAILED unless overriden***");
  for (const VssWriter& writer : m_writers) {
    if (writer.excluded) continue;
    const WriterIds ids(writer);
    for (const VssComponent& component : writer.components) {
      if (component.added) ReportComponent(ids, component, byDefault, errorDetails);
    }
  }
}

void CVarnel::ReportComponent(const WriterIds& writer, const VssComponent& component, bool byDefault,
                              std::string& errorDetails) {
  bool succeeded = byDefault;
  if (component.failed) {
    succeeded = component.failureCode == 0;
    kLog.Info(L"Component level status code has been set for %s. Reporting succeeded = %d", component.fullPath,
              succeeded ? 1 : 0);
  }
  const HRESULT hr = OnVssObject([&](auto& vss) {
    return vss.SetBackupSucceeded(writer.instanceId, writer.writerId, static_cast<VSS_COMPONENT_TYPE>(component.type),
                                  component.logicalPath.c_str(), component.name.c_str(), succeeded);
  });
  if (FAILED(hr)) CheckCommError(hr, "SetBackupSucceeded()", errorDetails);
}

void CVarnel::BackupComplete(std::string& errorDetails) {
  ComPtr<IVssAsync> async;
  const HRESULT hr = OnVssObject([&](auto& vss) { return vss.BackupComplete(async.Put()); });
  CheckComCall(varnel::Delivered(hr, async), L"\"m_pVssObject->BackupComplete(&pAsync)\"");
  WaitAndCheckForAsyncOperation(async.Get(), "BackupComplete()", errorDetails);
  CheckSelectedWriterStatus(errorDetails);
  if (!m_writerErrorText.empty()) {
    throw VarnelException(VarnelException::PartialSuccess, m_writerErrorText, m_failedComponents);
  }
}

char* CVarnel::getSuccesfulDBList() {
  return m_successfulDBList;
}
