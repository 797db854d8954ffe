// How the writers fared, and what a failed writer or component means for the request.
#include <unordered_map>

#include "core/logging.h"
#include "core/varnel.h"
#include "platform/owners.h"
#include "text/guid.h"

using varnel::CheckComCall;
using varnel::ComPtr;
using varnel::Delivered;
using varnel::kLog;

// What decides over the request at the end of a check.
struct CVarnel::StatusSummary {
  bool anyCameThrough = false;
  bool failureSeen = false;
};

// One entry of the service's status list.
struct CVarnel::WriterStatus {
  VSS_ID instanceId{};
  VSS_ID writerId{};
  varnel::Bstr name;
  VSS_WRITER_STATE state = VSS_WS_UNKNOWN;
  HRESULT failure = S_OK;
  HRESULT applicationResult = S_OK;
  varnel::Bstr applicationMessage;
};

namespace {

// The failure of one component, as the writer left it in the backup components document.
struct ComponentFailure {
  std::wstring fullPath;
  HRESULT result = S_OK;
  HRESULT applicationResult = S_OK;
  varnel::Bstr applicationMessage;
};

ComponentFailure ReadComponentFailure(IVssComponent* component) {
  ComponentFailure failure;
  ComPtr<IVssComponentEx2> extended;
  const HRESULT hr = varnel::QueryFor(component, varnel::kIidVssComponentEx2, extended);
  CheckComCall(Delivered(hr, extended), L"\"pComponent->QueryInterface(IID_IVssComponentEx2, (void**)&pCompEx2)\"");
  DWORD reserved = 0;
  CheckComCall(
      extended->GetFailure(&failure.result, &failure.applicationResult, failure.applicationMessage.Put(), &reserved),
      L"\"pCompEx2->GetFailure(&hrComp, &hrApplicationComp, &bstrAppMsgComp, &dwReserved)\"");
  varnel::Bstr name;
  varnel::Bstr logicalPath;
  CheckComCall(component->GetComponentName(name.Put()), L"\"pComponent->GetComponentName(&bstrCompName)\"");
  CheckComCall(component->GetLogicalPath(logicalPath.Put()), L"\"pComponent->GetLogicalPath(&bstrLogicalPath)\"");
  failure.fullPath = varnel::ComponentFullPath(std::wstring(logicalPath.View()), std::wstring(name.View()));
  return failure;
}

// The first added component of each full path.
std::unordered_map<std::wstring_view, VssComponent*> AddedByFullPath(VssWriter& writer) {
  std::unordered_map<std::wstring_view, VssComponent*> components;
  for (VssComponent& component : writer.components) {
    if (component.added) components.try_emplace(component.fullPath, &component);
  }
  return components;
}

}  // namespace

void CVarnel::GatherWriterStatus(std::string& errorDetails) {
  const std::string operationName = "m_pVssObject->GatherWriterStatus(&pAsync)";
  kLog.Info(L"GatherWriterStatus");
  ComPtr<IVssAsync> async;
  const HRESULT hr = OnVssObject([&](auto& vss) { return vss.GatherWriterStatus(async.Put()); });
  CheckCommError(Delivered(hr, async), operationName, errorDetails);
  WaitAndCheckForAsyncOperation(async.Get(), operationName, errorDetails);
}

void CVarnel::CheckSelectedWriterStatus(std::string& errorDetails) {
  if ((m_context & VSS_VOLSNAP_ATTR_NO_WRITERS) != 0) return;
  GatherWriterStatus(errorDetails);
  UINT count = 0;
  CheckCommError(m_pVssObject->GetWriterStatusCount(&count), "m_pVssObject->GetWriterStatusCount()", errorDetails);
  ComPtr<IVssBackupComponentsEx3> extended;
  const HRESULT hr = varnel::QueryFor(m_pVssObject.Get(), varnel::kIidVssBackupComponentsEx3, extended);
  CheckComCall(Delivered(hr, extended),
               L"\"m_pVssObject->QueryInterface(IID_IVssBackupComponentsEx3, (void**)&bucompEx3)\"");
  StatusSummary summary;
  for (UINT index = 0; index < count; ++index) {
    WriterStatus status;
    CheckCommError(
        extended->GetWriterStatusEx(index, &status.instanceId, &status.writerId, status.name.Put(), &status.state,
                                    &status.failure, &status.applicationResult, status.applicationMessage.Put()),
        "bucompEx3->GetWriterStatusEx()", errorDetails);
    CheckWriterStatus(status, summary, errorDetails);
  }
  CheckCommError(m_pVssObject->FreeWriterStatus(), "m_pVssObject->FreeWriterStatus()", errorDetails);
  if (ArePartialFailuresSupported() ? !summary.anyCameThrough : summary.failureSeen) {
    throw VarnelException(VarnelException::WriterFailure, m_writerErrorText, m_failedComponents);
  }
}

// The failure code decides, never the state; a positive code is a failure too.
void CVarnel::CheckWriterStatus(const WriterStatus& status, StatusSummary& summary, std::string& errorDetails) {
  VssWriter* writer = FindSelectedWriter(status.instanceId);
  if (writer == nullptr) return;
  if (status.failure == S_OK) {
    summary.anyCameThrough = true;
    kLog.Info(L"Writer=%s, WriterStatus=%s, WriterError=%s", std::wstring(status.name.View()),
              GetStringFromWriterStatus(status.state), HResult2String(status.failure));
    return;
  }
  summary.failureSeen = true;
  std::wstring text = ReportWriterFailure(status, errorDetails);
  text += status.failure == VSS_E_WRITERERROR_PARTIAL_FAILURE ? FailPartialWriter(*writer, summary, errorDetails)
                                                              : FailWholeWriter(*writer, status.failure);
  if (!text.empty()) m_failedComponents.push_back(std::move(text));
}

std::wstring CVarnel::ReportWriterFailure(const WriterStatus& status, std::string& errorDetails) {
  constexpr int kApplicationMessage = 121;
  const std::wstring name(status.name.View());
  varnel::WriteAlert(varnel::alert::kWriterFailure,
                     {name, HResult2String(status.failure), GetStringFromWriterStatus(status.state),
                      status.applicationResult, status.applicationMessage.View()},
                     errorDetails);
  std::wstring stateText;
  std::wstring errorText;
  std::wstring applicationText;
  GetWriterStatusMessage(status.state, name, stateText);
  GetErrorString(status.failure, errorText);
  m_writerErrorText += stateText + errorText;
  GetErrorMessageFromCatalog(kApplicationMessage, applicationText, status.applicationResult,
                             status.applicationMessage.View());
  return stateText + errorText + applicationText;
}

std::wstring CVarnel::FailWholeWriter(VssWriter& writer, HRESULT hr) {
  constexpr int kFailedComponentsMessage = 125;
  std::wstring list;
  MarkAllWriterComponentsAsFailed(writer, hr, list);
  std::wstring text;
  GetErrorMessageFromCatalog(kFailedComponentsMessage, text, list);
  return text;
}

// Components that cannot be read turn the partial failure into one of the whole writer.
std::wstring CVarnel::FailPartialWriter(VssWriter& writer, StatusSummary& summary, std::string& errorDetails) {
  try {
    std::wstring text;
    HandlePartialWriterFailure(writer, text, errorDetails);
    if (ArePartialFailuresSupported()) summary.anyCameThrough = true;
    return text;
  } catch (long hr) {
    std::wstring reason;
    GetErrorString(hr, reason);
    kLog.Error(
        L"Partial writer failure has been reported, but failed to get component level information. Partial failure "
        L"will be treated as complete failure. Error: %s",
        reason);
    return FailWholeWriter(writer, varnel::AsHResult(hr));
  }
}

void CVarnel::HandlePartialWriterFailure(VssWriter& writer, std::wstring& failedComponentsText,
                                         std::string& errorDetails) {
  UINT writers = 0;
  CheckComCall(OnVssObject([&](auto& vss) { return vss.GetWriterComponentsCount(&writers); }),
               L"\"m_pVssObject->GetWriterComponentsCount(&nWritersInBCD)\"");
  bool found = false;
  for (UINT index = 0; index < writers; ++index) {
    ComPtr<IVssWriterComponentsExt> components;
    const HRESULT hr = m_pVssObject->GetWriterComponents(index, components.Put());
    CheckComCall(Delivered(hr, components), L"\"m_pVssObject->GetWriterComponents(iBCDWriter, &pWriter)\"");
    VSS_ID instanceId{};
    VSS_ID writerId{};
    CheckComCall(components->GetWriterInfo(&instanceId, &writerId),
                 L"\"pWriter->GetWriterInfo(&writerInstanceId, &writerId)\"");
    if (varnel::FormatGuid(instanceId) != writer.instanceId) continue;
    found = true;
    ReadComponentFailures(writer, components.Get(), failedComponentsText, errorDetails);
  }
  if (!found) kLog.Error(L"Could not find the writer reporting partial failure in BCD -- this is UNEXPECTED!!");
}

void CVarnel::ReadComponentFailures(VssWriter& writer, IVssWriterComponentsExt* components, std::wstring& text,
                                    std::string& errorDetails) {
  constexpr int kFailedComponentMessage = 122;
  const auto added = AddedByFullPath(writer);
  UINT count = 0;
  CheckComCall(components->GetComponentCount(&count), L"\"pWriter->GetComponentCount(&nComponents)\"");
  for (UINT index = 0; index < count; ++index) {
    ComPtr<IVssComponent> component;
    const HRESULT hr = components->GetComponent(index, component.Put());
    CheckComCall(Delivered(hr, component), L"\"pWriter->GetComponent(iBCDComp, &pComponent)\"");
    const ComponentFailure failure = ReadComponentFailure(component.Get());
    if (const auto record = added.find(failure.fullPath); record != added.end()) {
      record->second->failed = true;
      record->second->failureCode = static_cast<DWORD>(failure.result);
    }
    if (failure.result == S_OK) {
      kLog.Verbose(L"Component %s was successfully backed up.", failure.fullPath);
      continue;
    }
    const std::wstring_view message = failure.applicationMessage.View();
    varnel::WriteAlert(varnel::alert::kComponentFailure,
                       {failure.fullPath, HResult2String(failure.result), failure.applicationResult, message},
                       errorDetails);
    std::wstring line;
    GetErrorMessageFromCatalog(kFailedComponentMessage, line, failure.fullPath, failure.result,
                               failure.applicationResult, message);
    text += line;
  }
}

void CVarnel::MarkAllWriterComponentsAsFailed(VssWriter& writer, long hr, std::wstring& failedComponentList) {
  kLog.Error(L"Marking all components of writer %s as FAILED!", writer.name);
  failedComponentList.clear();
  for (VssComponent& component : writer.components) {
    if (!component.added) continue;
    component.failed = true;
    component.failureCode = static_cast<DWORD>(varnel::AsHResult(hr));
    ComponentCatalogingInfo info;
    GetComponentInfoForCataloging(component, info);
    failedComponentList += info.appObjectName + L"[" + info.appObjectId + L"],";
  }
  if (!failedComponentList.empty()) failedComponentList.pop_back();
}

DWORD CVarnel::GetWriterStatusMessage(VSS_WRITER_STATE state, const std::wstring& writerName, std::wstring& text) {
  struct StateMessage {
    VSS_WRITER_STATE state;
    int id;
  };
  static constexpr StateMessage kMessages[] = {
      {VSS_WS_UNKNOWN, 120},
      {VSS_WS_FAILED_AT_IDENTIFY, 108},
      {VSS_WS_FAILED_AT_PREPARE_BACKUP, 109},
      {VSS_WS_FAILED_AT_PREPARE_SNAPSHOT, 110},
      {VSS_WS_FAILED_AT_FREEZE, 107},
      {VSS_WS_FAILED_AT_THAW, 111},
      {VSS_WS_FAILED_AT_POST_SNAPSHOT, 115},
      {VSS_WS_FAILED_AT_BACKUP_COMPLETE, 116},
      {VSS_WS_FAILED_AT_PRE_RESTORE, 117},
      {VSS_WS_FAILED_AT_POST_RESTORE, 118},
      {VSS_WS_FAILED_AT_BACKUPSHUTDOWN, 119},
  };
  text.clear();
  for (const StateMessage& message : kMessages) {
    if (message.state == state) return GetErrorMessageFromCatalog(message.id, text, writerName);
  }
  return ERROR_SUCCESS;
}

std::wstring CVarnel::GetStringFromWriterStatus(VSS_WRITER_STATE state) {
  static constexpr const wchar_t* kNames[] = {
      L"VSS_WS_UNKNOWN",
      L"VSS_WS_STABLE",
      L"VSS_WS_WAITING_FOR_FREEZE",
      L"VSS_WS_WAITING_FOR_THAW",
      L"VSS_WS_WAITING_FOR_POST_SNAPSHOT",
      L"VSS_WS_WAITING_FOR_BACKUP_COMPLETE",
      L"VSS_WS_FAILED_AT_IDENTIFY",
      L"VSS_WS_FAILED_AT_PREPARE_BACKUP",
      L"VSS_WS_FAILED_AT_PREPARE_SNAPSHOT",
      L"VSS_WS_FAILED_AT_FREEZE",
      L"VSS_WS_FAILED_AT_THAW",
      L"VSS_WS_FAILED_AT_POST_SNAPSHOT",
      L"VSS_WS_FAILED_AT_BACKUP_COMPLETE",
      L"VSS_WS_FAILED_AT_PRE_RESTORE",
      L"VSS_WS_FAILED_AT_POST_RESTORE",
      L"VSS_WS_FAILED_AT_BACKUPSHUTDOWN",
  };
  const auto index = static_cast<std::size_t>(static_cast<DWORD>(state));
  return index < std::size(kNames) ? kNames[index] : varnel::FormatWide(L"Writer status %d", {index});
}
