#include "varnelctl/sets/set_service.h"

#include "core/alerts.h"
#include "core/hresult.h"
#include "core/logging.h"
#include "core/varnel.h"
#include "core/vss_call.h"
#include "platform/host.h"
#include "text/guid.h"
#include "varnelctl/explanation/failure.h"
#include "varnelctl/vss_object.h"

namespace varnelctl {
namespace {

using varnel::ComPtr;
using varnel::kLog;

GUID IdOf(const std::wstring& setId) {
  return varnel::GuidOrNull<GUID>(setId);
}

std::wstring TextOrEmpty(const wchar_t* text) {
  return text == nullptr ? L"" : text;
}

[[noreturn]] void ThrowResult(HRESULT hr) {
  throw static_cast<long>(hr);
}

// The record that the library writes for this call.
void CheckWithRecord(const char* call, HRESULT hr, std::string& errorDetails) {
  if (SUCCEEDED(hr)) return;
  const std::wstring text = CVarnel::HResult2String(hr);
  const std::string record = varnel::FormatNarrow(varnel::alert::kComError.format, {call, text});
  kLog.Error(L" %S", record);
  errorDetails += record + varnel::alert::kComError.ending;
  ThrowResult(hr);
}

HRESULT Wait(IVssAsync& async) {
  if (const HRESULT hr = async.Wait(INFINITE); FAILED(hr)) return hr;
  HRESULT result = S_OK;
  if (const HRESULT hr = async.QueryStatus(&result, nullptr); FAILED(hr)) return hr;
  // That it was cancelled is a success code, too.
  return SUCCEEDED(result) && result != VSS_S_ASYNC_FINISHED ? E_ABORT : result;
}

}  // namespace

SetService::SetService() {
  CheckCall("CreateVssBackupComponents",
            varnel::Delivered(varnel::CurrentHost().vss().CreateVssBackupComponents(vss_.Put()), vss_));
  CheckCall("IVssBackupComponents::InitializeForBackup", vss_->InitializeForBackup(nullptr));
  CheckCall("IVssBackupComponents::SetContext", vss_->SetContext(static_cast<LONG>(VSS_CTX_ALL)));
}

std::vector<ListedCopy> SetService::List() const {
  ComPtr<IVssEnumObject> list;
  CheckCall("IVssBackupComponents::Query", vss_->Query(GUID{}, VSS_OBJECT_NONE, VSS_OBJECT_SNAPSHOT, list.Put()));
  std::vector<ListedCopy> copies;
  if (!list) return copies;
  ForEachVssObject(*list, [&](const varnel::VssObject& object) {
    const VSS_SNAPSHOT_PROP* copy = object.snapshot();
    if (copy == nullptr) return;
    copies.push_back({varnel::FormatGuid(copy->m_SnapshotId), TextOrEmpty(copy->m_pwszOriginalVolumeName),
                      TextOrEmpty(copy->m_pwszSnapshotDeviceObject), varnel::FormatGuid(copy->m_SnapshotSetId),
                      copy->m_ProviderId, copy->m_lSnapshotAttributes, copy->m_tsCreationTimestamp});
  });
  return copies;
}

std::vector<ListedCopy> SetService::List(const std::wstring& setId) const {
  std::vector<ListedCopy> copies = List();
  std::erase_if(copies, [&](const ListedCopy& copy) { return copy.setId != setId; });
  return copies;
}

void SetService::Break(const std::wstring& setId, std::string& errorDetails) const {
  kLog.Info(L"Breaking snapshot set...");
  CheckWithRecord("m_pVssObject->BreakSnapshotSet()", vss_->BreakSnapshotSet(IdOf(setId)), errorDetails);
}

void SetService::Mask(const std::wstring& setId, std::string& errorDetails) const {
  constexpr char kCall[] = "pVssObject2->BreakSnapshotSetEx()";
  kLog.Info(L"Breaking snapshot set and masking the shadow copy LUNs...");
  ComPtr<IVssBackupComponentsEx2> extended;
  const HRESULT there = varnel::QueryFor(vss_.Get(), varnel::kIidVssBackupComponentsEx2, extended);
  CheckWithRecord("m_pVssObject->QueryInterface(IVssBackupComponentsEx2)", varnel::Delivered(there, extended),
                  errorDetails);
  ComPtr<IVssAsync> async;
  const HRESULT started = extended->BreakSnapshotSetEx(IdOf(setId), VSS_BREAKEX_FLAG_MASK_LUNS, async.Put());
  CheckWithRecord(kCall, varnel::Delivered(started, async), errorDetails);
  CheckWithRecord(kCall, Wait(*async), errorDetails);
}

void SetService::Delete(const std::wstring& setId) const {
  kLog.Info(L"Deleting shadow copy set %s", setId);
  LONG deleted = 0;
  VSS_ID notDeleted{};
  const HRESULT hr = vss_->DeleteSnapshots(IdOf(setId), VSS_OBJECT_SNAPSHOT_SET, TRUE, &deleted, &notDeleted);
  if (SUCCEEDED(hr)) return;
  kLog.Error(L"DeleteSnapshots() Failed, SnapshotID=%s, Error=0x%x", varnel::FormatGuid(notDeleted), hr);
  kLog.Error(L"- Error text: %s", CVarnel::HResult2String(hr));
  ThrowResult(hr);
}

}  // namespace varnelctl
