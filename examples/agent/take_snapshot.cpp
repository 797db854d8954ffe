#include "take_snapshot.h"

#include "requestors/SqlReq.h"  // or ExchReq.h, HyperVReq.h; core/varnel.h for every writer of the host

namespace {

// Takes down what was thrown. The failure that came first decides the outcome.
void NoteFailure(SnapshotResult& result) {
  int outcome = -1;
  std::string text;
  try {
    throw;
  } catch (const VarnelException& alert) {
    outcome = alert.GetAlertCode();  // 601: the set stands, writers failed for some components
    text = alert.what();
  } catch (long hr) {
    outcome = static_cast<int>(hr);
    text = CVarnel::wstringTostring(CVarnel::HResult2String(hr).c_str());
  } catch (const std::exception& error) {  // the disks cannot be told, no memory, no host (outside Windows), ...
    text = error.what();
  } catch (...) {
    text = "unknown exception";
  }
  if (result.outcome == 0) result.outcome = outcome;
  result.trouble += text + '\n';
}

}  // namespace

SnapshotResult TakeSnapshot(const std::vector<std::wstring>& diskSerialNumbers) {
  SnapshotResult result;
  result.alertRecords = "writer=0,";  // in: the request text; out: alert records after it
  TesselCommonClasses::DiskAndVolumeEnumerator enumerator;
  SqlReq requestor(0);
  try {
    requestor.SetInputDriveSerialNos(diskSerialNumbers);
    requestor.Initialize(VSS_CTX_APP_ROLLBACK, L"", false, VSS_BT_FULL, result.alertRecords, &enumerator);
    requestor.CreateVssSnapshotSet(result.alertRecords);
  } catch (...) {
    NoteFailure(result);
  }
  result.setId = requestor.GetSnapShotSetId();
  try {
    requestor.SetBackupStatus(result.outcome, result.alertRecords);  // deletes the set of a failed request
  } catch (...) {
    NoteFailure(result);
  }
  return result;
}
