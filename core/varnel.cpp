#include "core/varnel.h"

#include "core/configuration.h"
#include "core/logging.h"
#include "core/message_catalog.h"
#include "core/vss_call.h"
#include "platform/host.h"
#include "text/guid.h"
#include "text/unicode.h"

using varnel::AlertAndThrow;
using varnel::Bstr;
using varnel::CheckedCall;
using varnel::kLog;

constexpr GUID kProviderId = varnel::ParseGuid<GUID>(VARNEL_PROVIDER_ID);
const GUID CVarnel::TesselVssProviderID = kProviderId;

CVarnel::CVarnel(DWORD testPoints) : m_successfulDBList(varnel::kAllDatabasesList), m_testPoints(testPoints) {}

CVarnel::~CVarnel() {
  FreeWriterMetadata();
}

DWORD CVarnel::ValidateVolumes(const std::vector<std::string>& /*volumes*/, std::string& /*status*/,
                               std::string& errorDetails, std::vector<std::string> /*serialNumbers*/,
                               const std::string& /*hostName*/) {
  errorDetails.clear();
  return 0;
}

DWORD CVarnel::ValidateHostConfiguration(std::string& /*errorDetails*/) {
  return 0;
}

void CVarnel::Initialize(DWORD context, std::wstring backupDocumentXml, bool restore, VSS_BACKUP_TYPE backupType,
                         std::string& errorDetails, TesselCommonClasses::DiskAndVolumeEnumerator* enumerator) {
  m_initialized = true;
  m_metadataGathered = false;
  const HRESULT created = varnel::CurrentHost().vss().CreateVssBackupComponents(m_pVssObject.Put());
  AlertAndThrow("CreateVssBackupComponents()", errorDetails)(varnel::Delivered(created, m_pVssObject));
  m_restoreMode = restore;
  if (restore) {
    CheckedCall(AlertAndThrow("InitializeForRestore()", errorDetails), m_pVssObject,
                &IVssBackupComponents::InitializeForRestore, Bstr(backupDocumentXml).Get());
  } else {
    if (backupDocumentXml.empty()) {
      CheckedCall(AlertAndThrow("InitializeForBackup()", errorDetails), m_pVssObject,
                  &IVssBackupComponents::InitializeForBackup, nullptr);
    } else {
      CheckedCall(AlertAndThrow("InitializeForBackup(XmlDoc)", errorDetails), m_pVssObject,
                  &IVssBackupComponents::InitializeForBackup, Bstr(backupDocumentXml).Get());
    }
    if (context != 0) {
      kLog.Info(L"- Setting VssContext=0x%08lx", context);
      CheckedCall(AlertAndThrow("SetContext()", errorDetails), m_pVssObject, &IVssBackupComponents::SetContext,
                  static_cast<LONG>(context));
    }
  }
  m_context = context;
  CheckedCall(AlertAndThrow("SetBackupState()", errorDetails), m_pVssObject, &IVssBackupComponents::SetBackupState,
              true, true, backupType, false);
  SetDiskAndVolumeEnumeratorObj(enumerator);
}

DWORD CVarnel::GetContext() const {
  return m_context;
}

void CVarnel::SetDiskAndVolumeEnumeratorObj(TesselCommonClasses::DiskAndVolumeEnumerator* enumerator) {
  m_diskAndVolumeEnumerator = enumerator;
}

void CVarnel::SetInputDriveSerialNos(std::vector<std::wstring> serialNumbers) {
  if (serialNumbers.empty()) {
    kLog.Error(L"Invalid number of serial nos");
    varnel::ThrowHResult(E_INVALIDARG);
  }
  for (std::wstring& serialNumber : serialNumbers) m_inputSerialNumbers.push_back(std::move(serialNumber));
}

std::wstring CVarnel::GetSnapShotSetId() const {
  return m_snapshotSetId;
}

std::wstring CVarnel::GetBackupDocument() const {
  return std::wstring(m_backupDocument.View());
}

std::wstring CVarnel::stringToWstring(const char* text) {
  return text == nullptr ? std::wstring() : varnel::Utf8ToWide(text);
}

std::string CVarnel::wstringTostring(const wchar_t* text) {
  return varnel::WideToUtf8(text);
}

std::wstring CVarnel::VectorToString(const std::vector<std::wstring>& elements) {
  constexpr std::size_t kSeparatorLength = 2;
  std::wstring text;
  for (const std::wstring& element : elements) text += element + L", ";
  if (!text.empty()) text.resize(text.size() - kSeparatorLength);
  return text;
}

std::wstring CVarnel::HResult2String(long hr) {
  return varnel::HResultText(varnel::AsHResult(hr));
}

void CVarnel::GetVSSErrorMessage(long hr, std::wstring& text) {
  text = varnel::MessageTableText(varnel::AsHResult(hr));
}

void CVarnel::GetErrorString(long hr, std::wstring& text) {
  text.clear();
  if (varnel::AsHResult(hr) == VSS_E_WRITERERROR_PARTIAL_FAILURE) {
    GetErrorMessageFromCatalog(varnel::message::kPartialFailure, text);
  } else {
    GetVSSErrorMessage(hr, text);
  }
  if (text.empty()) text = HResult2String(hr);
}

void CVarnel::CheckCommError(long hr, std::string callName, std::string& errorDetails) {
  AlertAndThrow(callName.c_str(), errorDetails)(varnel::AsHResult(hr));
}
