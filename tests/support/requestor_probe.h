// The one friend of CVarnel: reaches the private operations and members that the tests look at.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "core/message_catalog.h"
#include "core/varnel.h"
#include "text/guid.h"

namespace varnel {

class RequestorProbe {
 public:
  explicit RequestorProbe(CVarnel& requestor) : requestor_(requestor) {}

  auto& systemDisks() { return requestor_.m_systemDisks; }
  auto& inputComponents() { return requestor_.m_inputComponents; }
  auto& successfulDBList() { return requestor_.m_successfulDBList; }
  auto& vssObject() { return requestor_.m_pVssObject; }
  auto& snapshotSetId() { return requestor_.m_snapshotSetId; }
  auto& initialized() { return requestor_.m_initialized; }
  auto& restoreMode() { return requestor_.m_restoreMode; }
  auto& context() { return requestor_.m_context; }
  auto& writers() { return requestor_.m_writers; }
  auto& snapshotVolumes() { return requestor_.m_snapshotVolumes; }
  auto& inputSerialNumbers() { return requestor_.m_inputSerialNumbers; }
  auto& eligibleSerialNumbers() { return requestor_.m_eligibleSerialNumbers; }
  auto& snapshotDone() { return requestor_.m_snapshotDone; }
  auto& writerErrorText() { return requestor_.m_writerErrorText; }
  auto& failedComponents() { return requestor_.m_failedComponents; }
  auto& backupDocument() { return requestor_.m_backupDocument; }
  auto& metadataGathered() { return requestor_.m_metadataGathered; }
  auto& messageBuffer() { return requestor_.m_messageBuffer; }
  auto& lastException() { return requestor_.m_lastException; }
  auto& extraSerialNumbers() { return requestor_.m_extraSerialNumbers; }
  auto& writerCode() { return requestor_.m_writerCode; }
  auto& diskAndVolumeEnumerator() { return requestor_.m_diskAndVolumeEnumerator; }
  auto& testPoints() { return requestor_.m_testPoints; }

  void WaitAndCheckForAsyncOperation(IVssAsync* async, std::string operation, std::string& errorDetails) {
    requestor_.WaitAndCheckForAsyncOperation(async, std::move(operation), errorDetails);
  }
  void FreeWriterMetadata() { requestor_.FreeWriterMetadata(); }
  void GetVSSErrorMessage(long hr, std::wstring& text) { requestor_.GetVSSErrorMessage(hr, text); }
  template <class... Arguments>
  DWORD GetErrorMessageFromCatalog(int id, std::wstring& text, const Arguments&... arguments) {
    return requestor_.GetErrorMessageFromCatalog(id, text, arguments...);
  }

  void SelectComponentsForBackup(std::string& errorDetails) { requestor_.SelectComponentsForBackup(errorDetails); }
  bool checkComponents(std::set<std::wstring> input, std::wstring fullPath) {
    return requestor_.checkComponents(std::move(input), std::move(fullPath));
  }
  void GetComponentsList(std::set<std::wstring>& components) { requestor_.GetComponentsList(components); }
  void IncludeImplicitComponents() { requestor_.IncludeImplicitComponents(); }
  void VerifyComponentSelection() { requestor_.VerifyComponentSelection(); }
  void DiscardEmptyWriters() { requestor_.DiscardEmptyWriters(); }
  void AddSelectedComponents(std::string& errorDetails) { requestor_.AddSelectedComponents(errorDetails); }
  bool IsWriterSelected(GUID instanceId) { return requestor_.IsWriterSelected(instanceId); }
  std::string parseWriterCode(std::string text) { return requestor_.parseWriterCode(std::move(text)); }
  void setWriterCode(std::string code) { requestor_.setWriterCode(std::move(code)); }
  std::string getWriterCode() { return requestor_.getWriterCode(); }

  void GetAllSystemDisks() { requestor_.GetAllSystemDisks(); }
  DWORD GetDiskSerialNumberForVolume(const std::wstring& volume, std::wstring& disk, std::wstring& serial) {
    return requestor_.GetDiskSerialNumberForVolume(volume, disk, serial);
  }
  bool IsSerialNumberPresentInInputList(std::wstring serial) {
    return requestor_.IsSerialNumberPresentInInputList(std::move(serial));
  }
  bool IsSnapShotDevice(std::wstring disk) { return requestor_.IsSnapShotDevice(std::move(disk)); }
  bool isVolumeEligible(std::wstring serial) { return requestor_.isVolumeEligible(std::move(serial)); }
  void VerifyProtectionSetDiskList(std::string& errorDetails) { requestor_.VerifyProtectionSetDiskList(errorDetails); }

  /// Starts a set by hand: CreateVssSnapshotSet does it between its steps.
  HRESULT StartSnapshotSet() {
    VSS_ID setId{};
    const HRESULT hr = requestor_.m_pVssObject->StartSnapshotSet(&setId);
    requestor_.m_snapshotSetId = FormatGuid(setId);
    return hr;
  }
  void AddToSnapshotSet(std::string& errorDetails) { requestor_.AddToSnapshotSet(errorDetails); }
  void PrepareForBackup(std::string& errorDetails) { requestor_.PrepareForBackup(errorDetails); }
  void DoSnapshotSet(std::string& errorDetails) { requestor_.DoSnapshotSet(errorDetails); }
  void SaveBackupComponentsDocument(std::string& errorDetails) {
    requestor_.SaveBackupComponentsDocument(errorDetails);
  }
  void GetSnapShotProperties(std::string& errorDetails) { requestor_.GetSnapShotProperties(errorDetails); }
  bool IsVolumeAlreadyAdded(std::wstring volume) { return requestor_.IsVolumeAlreadyAdded(std::move(volume)); }
  void GetVolumeListForExtraVolumes(std::vector<std::wstring>& volumes) {
    requestor_.GetVolumeListForExtraVolumes(volumes);
  }

  void GatherWriterStatus(std::string& errorDetails) { requestor_.GatherWriterStatus(errorDetails); }
  void CheckSelectedWriterStatus(std::string& errorDetails) { requestor_.CheckSelectedWriterStatus(errorDetails); }
  void HandlePartialWriterFailure(VssWriter& writer, std::wstring& text, std::string& errorDetails) {
    requestor_.HandlePartialWriterFailure(writer, text, errorDetails);
  }
  void MarkAllWriterComponentsAsFailed(VssWriter& writer, long hr, std::wstring& list) {
    requestor_.MarkAllWriterComponentsAsFailed(writer, hr, list);
  }
  DWORD GetWriterStatusMessage(VSS_WRITER_STATE state, const std::wstring& name, std::wstring& text) {
    return requestor_.GetWriterStatusMessage(state, name, text);
  }
  std::wstring GetStringFromWriterStatus(VSS_WRITER_STATE state) { return requestor_.GetStringFromWriterStatus(state); }
  std::wstring GetHostnameNetworkName(std::wstring name) { return requestor_.GetHostnameNetworkName(std::move(name)); }
  void GetComponentInfoForCataloging(const VssComponent& component, ComponentCatalogingInfo& info) {
    requestor_.GetComponentInfoForCataloging(component, info);
  }

  // What the application requestors have of their own.
  template <class Requestor>
  static void VerifyLogNCheckPtFiles(Requestor& requestor, VssFileDescriptor& file) {
    requestor.VerifyLogNCheckPtFiles(file);
  }
  template <class Requestor>
  static long FindExchangeServerBinFolder(Requestor& requestor, std::wstring& folder) {
    return requestor.FindExchangeServerBinFolder(folder);
  }
  template <class Requestor>
  static const DWORD& Flag(const Requestor& requestor) {
    return requestor.m_flag;
  }
  template <class Requestor>
  static const DWORD& SkipDBVerification(const Requestor& requestor) {
    return requestor.m_skipDBVerification;
  }

 private:
  CVarnel& requestor_;
};

}  // namespace varnel
