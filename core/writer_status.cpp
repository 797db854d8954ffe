// How the writers fared, and what a failed writer or component means for the request.
#include <algorithm>
#include <unordered_map>

#include "core/alerts.h"
#include "core/message_catalog.h"
#include "core/metadata_reader.h"
#include "core/varnel.h"
#include "core/vss_call.h"
#include "text/guid.h"

using varnel::AlertAndThrow;
using varnel::CheckedCall;
using varnel::kLog;
using varnel::LogAndThrow;
using varnel::Obtain;
using varnel::ObtainInterface;
namespace alert = varnel::alert;
namespace message = varnel::message;

namespace varnel {

// One entry of the service's status list.
struct WriterStatus {
  VSS_ID instanceId{};
  VSS_ID writerId{};
  Bstr name;
  VSS_WRITER_STATE state = VSS_WS_UNKNOWN;
  HRESULT failure = S_OK;
  HRESULT applicationResult = S_OK;
  Bstr applicationMessage;
};

// What is told of one selected writer that failed.
class FailedWriter {
 public:
  FailedWriter(CVarnel& requestor, const WriterStatus& status, std::string& errorDetails)
      : requestor_(requestor), status_(status), errorDetails_(errorDetails) {}

  // The text for the administrator; `cameThrough` is set when the writer counts as come through all the same.
  std::wstring Report(bool& cameThrough);

 private:
  std::wstring Describe();
  VssWriter& Record();
  std::wstring FailWhole(VssWriter& writer, HRESULT hr);
  std::wstring FailPartly(VssWriter& writer, bool& cameThrough);

  CVarnel& requestor_;
  const WriterStatus& status_;
  std::string& errorDetails_;
};

std::wstring FailedWriter::Report(bool& cameThrough) {
  std::wstring text = Describe();
  VssWriter& writer = Record();
  text += status_.failure == VSS_E_WRITERERROR_PARTIAL_FAILURE ? FailPartly(writer, cameThrough)
                                                               : FailWhole(writer, status_.failure);
  return text;
}

std::wstring FailedWriter::Describe() {
  const std::wstring name(status_.name.View());
  const std::wstring_view applicationMessage = status_.applicationMessage.View();
  WriteAlert<alert::kWriterFailure>(errorDetails_, name, HResultText(status_.failure),
                                    requestor_.GetStringFromWriterStatus(status_.state), status_.applicationResult,
                                    applicationMessage);
  std::wstring stateText;
  std::wstring errorText;
  std::wstring applicationText;
  requestor_.GetWriterStatusMessage(status_.state, name, stateText);
  requestor_.GetErrorString(status_.failure, errorText);
  requestor_.m_writerErrorText += stateText + errorText;
  requestor_.GetErrorMessageFromCatalog(message::kApplicationError, applicationText, status_.applicationResult,
                                        applicationMessage);
  return stateText + errorText + applicationText;
}

VssWriter& FailedWriter::Record() {
  const std::wstring id = FormatGuid(status_.instanceId);
  std::vector<VssWriter>& writers = requestor_.m_writers;
  const auto record = std::find_if(writers.begin(), writers.end(), [&](const VssWriter& writer) {
    return !writer.excluded && writer.instanceId == id;
  });
  if (record == writers.end()) {
    kLog.Error(L"No record of the selected writer, Writer=%s, InstanceID=%s", status_.name.View(), id);
    ThrowHResult(E_UNEXPECTED);
  }
  return *record;
}

std::wstring FailedWriter::FailWhole(VssWriter& writer, HRESULT hr) {
  std::wstring list;
  std::wstring text;
  requestor_.MarkAllWriterComponentsAsFailed(writer, hr, list);
  requestor_.GetErrorMessageFromCatalog(message::kFailedComponents, text, list);
  return text;
}

// Components that cannot be read turn the partial failure into one of the whole writer.
std::wstring FailedWriter::FailPartly(VssWriter& writer, bool& cameThrough) {
  try {
    std::wstring text;
    requestor_.HandlePartialWriterFailure(writer, text, errorDetails_);
    if (requestor_.ArePartialFailuresSupported()) cameThrough = true;
    return text;
  } catch (long hr) {
    std::wstring reason;
    requestor_.GetErrorString(hr, reason);
    kLog.Error(
        L"Partial writer failure has been reported, but failed to get component level information. Partial failure "
        L"will be treated as complete failure. Error: %s",
        reason);
    return FailWhole(writer, AsHResult(hr));
  }
}

}  // namespace varnel

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
  const auto extended = ObtainInterface<IVssComponentEx2>(
      LogAndThrow(L"pComponent->QueryInterface(IID_IVssComponentEx2, (void**)&pCompEx2)"), component,
      varnel::kIidVssComponentEx2);
  DWORD reserved = 0;
  CheckedCall(LogAndThrow(L"pCompEx2->GetFailure(&hrComp, &hrApplicationComp, &bstrAppMsgComp, &dwReserved)"), extended,
              &IVssComponentEx2::GetFailure, &failure.result, &failure.applicationResult,
              failure.applicationMessage.Put(), &reserved);
  varnel::Bstr name;
  varnel::Bstr logicalPath;
  CheckedCall(LogAndThrow(L"pComponent->GetComponentName(&bstrCompName)"), component, &IVssComponent::GetComponentName,
              name.Put());
  CheckedCall(LogAndThrow(L"pComponent->GetLogicalPath(&bstrLogicalPath)"), component, &IVssComponent::GetLogicalPath,
              logicalPath.Put());
  failure.fullPath = varnel::ComponentFullPath(logicalPath.View(), name.View());
  return failure;
}

// Calls `visit` with the failure of each component of a writer in the document, as soon as it is read.
template <class Visit>
void VisitComponentFailures(IVssWriterComponentsExt* writer, Visit visit) {
  UINT count = 0;
  CheckedCall(LogAndThrow(L"pWriter->GetComponentCount(&nComponents)"), writer,
              &IVssWriterComponentsExt::GetComponentCount, &count);
  for (UINT index = 0; index < count; ++index) {
    const auto component = Obtain<IVssComponent>(LogAndThrow(L"pWriter->GetComponent(iBCDComp, &pComponent)"), writer,
                                                 &IVssWriterComponentsExt::GetComponent, index);
    visit(ReadComponentFailure(component.Get()));
  }
}

// The first added component of each full path.
std::unordered_map<std::wstring_view, VssComponent*> AddedByFullPath(VssWriter& writer) {
  std::unordered_map<std::wstring_view, VssComponent*> components;
  for (VssComponent& component : writer.components) {
    if (component.added) components.try_emplace(component.fullPath, &component);
  }
  return components;
}

varnel::WriterStatus ReadWriterStatus(IVssBackupComponentsEx3* service, UINT index, std::string& errorDetails) {
  varnel::WriterStatus status;
  CheckedCall(AlertAndThrow("bucompEx3->GetWriterStatusEx()", errorDetails), service,
              &IVssBackupComponentsEx3::GetWriterStatusEx, index, &status.instanceId, &status.writerId,
              status.name.Put(), &status.state, &status.failure, &status.applicationResult,
              status.applicationMessage.Put());
  return status;
}

}  // namespace

void CVarnel::GatherWriterStatus(std::string& errorDetails) {
  constexpr char kCall[] = "m_pVssObject->GatherWriterStatus(&pAsync)";
  kLog.Info(L"GatherWriterStatus");
  const auto async =
      Obtain<IVssAsync>(AlertAndThrow(kCall, errorDetails), m_pVssObject, &IVssBackupComponents::GatherWriterStatus);
  WaitAndCheckForAsyncOperation(async.Get(), kCall, errorDetails);
}

void CVarnel::CheckSelectedWriterStatus(std::string& errorDetails) {
  if ((m_context & VSS_VOLSNAP_ATTR_NO_WRITERS) != 0) return;
  GatherWriterStatus(errorDetails);
  UINT count = 0;
  CheckedCall(AlertAndThrow("m_pVssObject->GetWriterStatusCount()", errorDetails), m_pVssObject,
              &IVssBackupComponents::GetWriterStatusCount, &count);
  const auto extended = ObtainInterface<IVssBackupComponentsEx3>(
      LogAndThrow(L"m_pVssObject->QueryInterface(IID_IVssBackupComponentsEx3, (void**)&bucompEx3)"), m_pVssObject.Get(),
      varnel::kIidVssBackupComponentsEx3);
  bool anyCameThrough = false;
  bool failureSeen = false;
  for (UINT index = 0; index < count; ++index) {
    const varnel::WriterStatus status = ReadWriterStatus(extended.Get(), index, errorDetails);
    if (!IsWriterSelected(status.instanceId)) continue;
    // The failure code decides, never the state; a positive code is a failure too.
    if (status.failure == S_OK) {
      anyCameThrough = true;
      if (varnel::Logger::IsOn()) {
        kLog.Info(L"Writer=%s, WriterStatus=%s, WriterError=%s", status.name.View(),
                  GetStringFromWriterStatus(status.state), HResult2String(status.failure));
      }
      continue;
    }
    failureSeen = true;
    std::wstring text = varnel::FailedWriter(*this, status, errorDetails).Report(anyCameThrough);
    if (!text.empty()) m_failedComponents.push_back(std::move(text));
  }
  CheckedCall(AlertAndThrow("m_pVssObject->FreeWriterStatus()", errorDetails), m_pVssObject,
              &IVssBackupComponents::FreeWriterStatus);
  if (ArePartialFailuresSupported() ? !anyCameThrough : failureSeen) {
    throw VarnelException(VarnelException::WriterFailure, m_writerErrorText, m_failedComponents);
  }
}

void CVarnel::HandlePartialWriterFailure(VssWriter& writer, std::wstring& failedComponentsText,
                                         std::string& errorDetails) {
  UINT writers = 0;
  CheckedCall(LogAndThrow(L"m_pVssObject->GetWriterComponentsCount(&nWritersInBCD)"), m_pVssObject,
              &IVssBackupComponents::GetWriterComponentsCount, &writers);
  const auto added = AddedByFullPath(writer);
  const auto report = [&](const ComponentFailure& failure) {
    if (const auto record = added.find(failure.fullPath); record != added.end()) {
      record->second->failed = true;
      record->second->failureCode = static_cast<DWORD>(failure.result);
    }
    if (failure.result == S_OK) {
      kLog.Verbose(L"Component %s was successfully backed up.", failure.fullPath);
      return;
    }
    const std::wstring_view applicationMessage = failure.applicationMessage.View();
    varnel::WriteAlert<alert::kComponentFailure>(errorDetails, failure.fullPath, HResult2String(failure.result),
                                                 failure.applicationResult, applicationMessage);
    std::wstring line;
    GetErrorMessageFromCatalog(message::kFailedComponent, line, failure.fullPath, failure.result,
                               failure.applicationResult, applicationMessage);
    failedComponentsText += line;
  };
  bool found = false;
  for (UINT index = 0; index < writers; ++index) {
    const auto components =
        Obtain<IVssWriterComponentsExt>(LogAndThrow(L"m_pVssObject->GetWriterComponents(iBCDWriter, &pWriter)"),
                                        m_pVssObject, &IVssBackupComponents::GetWriterComponents, index);
    VSS_ID instanceId{};
    VSS_ID writerId{};
    CheckedCall(LogAndThrow(L"pWriter->GetWriterInfo(&writerInstanceId, &writerId)"), components.Get(),
                &IVssWriterComponentsExt::GetWriterInfo, &instanceId, &writerId);
    if (varnel::FormatGuid(instanceId) != writer.instanceId) continue;
    found = true;
    VisitComponentFailures(components.Get(), report);
  }
  if (!found) kLog.Error(L"Could not find the writer reporting partial failure in BCD -- this is UNEXPECTED!!");
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
    message::Id id;
  };
  static constexpr StateMessage kMessages[] = {
      {VSS_WS_UNKNOWN, message::kFailedForUnknownReason},
      {VSS_WS_FAILED_AT_IDENTIFY, message::kFailedAtIdentify},
      {VSS_WS_FAILED_AT_PREPARE_BACKUP, message::kFailedAtPrepareBackup},
      {VSS_WS_FAILED_AT_PREPARE_SNAPSHOT, message::kFailedAtPrepareSnapshot},
      {VSS_WS_FAILED_AT_FREEZE, message::kFailedAtFreeze},
      {VSS_WS_FAILED_AT_THAW, message::kFailedAtThaw},
      {VSS_WS_FAILED_AT_POST_SNAPSHOT, message::kFailedAtPostSnapshot},
      {VSS_WS_FAILED_AT_BACKUP_COMPLETE, message::kFailedAtBackupComplete},
      {VSS_WS_FAILED_AT_PRE_RESTORE, message::kFailedAtPreRestore},
      {VSS_WS_FAILED_AT_POST_RESTORE, message::kFailedAtPostRestore},
      {VSS_WS_FAILED_AT_BACKUPSHUTDOWN, message::kFailedAtBackupShutdown},
  };
  text.clear();
  for (const StateMessage& entry : kMessages) {
    if (entry.state == state) return GetErrorMessageFromCatalog(entry.id, text, writerName);
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
  return index < std::size(kNames) ? kNames[index]
                                   : varnel::FormatWide(L"Writer status %d", {static_cast<DWORD>(index)});
}
