#include "core/varnel.h"

#include "core/logging.h"
#include "text/guid.h"
#include "text/unicode.h"

using varnel::kLog;

const GUID CVarnel::TesselVssProviderID = varnel::ParseGuid<GUID>(VARNEL_PROVIDER_ID);

namespace {
// The list is handed out as writable text, so it is no literal.
char defaultDatabaseList[] = "ALL_DB";
}  // namespace

CVarnel::WriterIds::WriterIds(const VssWriter& writer)
    : instanceId(varnel::GuidOrNull<GUID>(writer.instanceId)), writerId(varnel::GuidOrNull<GUID>(writer.writerId)) {}

CVarnel::CVarnel(DWORD testPoints) : m_successfulDBList(defaultDatabaseList), m_testPoints(testPoints) {}

CVarnel::~CVarnel() {
  try {
    FreeWriterMetadata();
  } catch (...) {
    // Only the log could have thrown, and nobody is left to tell.
  }
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
  CreateBackupComponents(errorDetails);
  m_restoreMode = restore;
  if (restore) {
    const varnel::Bstr document(backupDocumentXml);
    CheckCommError(m_pVssObject->InitializeForRestore(document.Get()), "InitializeForRestore()", errorDetails);
  } else {
    InitializeBackup(context, backupDocumentXml, errorDetails);
  }
  m_context = context;
  CheckCommError(m_pVssObject->SetBackupState(true, true, backupType, false), "SetBackupState()", errorDetails);
  SetDiskAndVolumeEnumeratorObj(enumerator);
}

void CVarnel::CreateBackupComponents(std::string& errorDetails) {
  m_metadataGathered = false;
  const HRESULT hr = varnel::CurrentHost().vss().CreateVssBackupComponents(m_pVssObject.Put());
  CheckCommError(varnel::Delivered(hr, m_pVssObject), "CreateVssBackupComponents()", errorDetails);
}

void CVarnel::InitializeBackup(DWORD context, const std::wstring& backupDocumentXml, std::string& errorDetails) {
  if (backupDocumentXml.empty()) {
    CheckCommError(m_pVssObject->InitializeForBackup(nullptr), "InitializeForBackup()", errorDetails);
  } else {
    const varnel::Bstr document(backupDocumentXml);
    CheckCommError(m_pVssObject->InitializeForBackup(document.Get()), "InitializeForBackup(XmlDoc)", errorDetails);
  }
  if (context == 0) return;
  kLog.Info(L"- Setting VssContext=0x%08lx", context);
  CheckCommError(m_pVssObject->SetContext(static_cast<LONG>(context)), "SetContext()", errorDetails);
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
