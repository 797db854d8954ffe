// Questions about the host: its providers and writers, its network name, and programs that it runs.
#include <stdexcept>

#include "core/logging.h"
#include "core/varnel.h"
#include "platform/owners.h"
#include "platform/tessel/MetadataWrapper.h"
#include "text/ascii_case.h"

using varnel::CheckComCall;
using varnel::ComPtr;
using varnel::CurrentHost;
using varnel::kLog;

namespace {

// One object of an enumeration; the strings in it are the owner's.
class EnumeratedObject {
 public:
  EnumeratedObject() = default;
  EnumeratedObject(const EnumeratedObject&) = delete;
  EnumeratedObject& operator=(const EnumeratedObject&) = delete;
  ~EnumeratedObject() {
    varnel::Host* host = varnel::CurrentHostOrNull();
    if (host == nullptr) return;
    varnel::VssService& vss = host->vss();
    if (object_.Type == VSS_OBJECT_PROVIDER) {
      vss.CoTaskMemFree(object_.Obj.Prov.m_pwszProviderName);
      vss.CoTaskMemFree(object_.Obj.Prov.m_pwszProviderVersion);
    } else if (object_.Type == VSS_OBJECT_SNAPSHOT) {
      vss.VssFreeSnapshotProperties(&object_.Obj.Snap);
    }
  }
  VSS_OBJECT_PROP* Put() { return &object_; }
  bool IsProvider(const GUID& id) const {
    return object_.Type == VSS_OBJECT_PROVIDER && object_.Obj.Prov.m_ProviderId == id;
  }

 private:
  VSS_OBJECT_PROP object_{};
};

// The two handles of a started process.
class ProcessHandles {
 public:
  ProcessHandles() = default;
  ProcessHandles(const ProcessHandles&) = delete;
  ProcessHandles& operator=(const ProcessHandles&) = delete;
  ~ProcessHandles() {
    varnel::Host* host = varnel::CurrentHostOrNull();
    if (host == nullptr) return;
    varnel::Processes& processes = host->processes();
    if (information_.hThread != nullptr) processes.CloseHandle(information_.hThread);
    if (information_.hProcess != nullptr) processes.CloseHandle(information_.hProcess);
  }
  PROCESS_INFORMATION* Put() { return &information_; }
  HANDLE Process() const { return information_.hProcess; }

 private:
  PROCESS_INFORMATION information_{};
};

}  // namespace

bool CVarnel::IsTesselVSSProviderPresent() {
  ComPtr<IVssAdmin> admin;
  HRESULT hr = CurrentHost().vss().CoCreateInstance(varnel::kClsidVssCoordinator, nullptr, CLSCTX_ALL,
                                                    varnel::kIidVssAdmin, reinterpret_cast<void**>(admin.Put()));
  CheckComCall(varnel::Delivered(hr, admin),
               L"\"CoCreateInstance(CLSID_VSSCoordinator, NULL, CLSCTX_ALL, IID_IVssAdmin, (void **)&pVssAdmin)\"");
  ComPtr<IVssEnumObject> providers;
  CheckComCall(admin->QueryProviders(providers.Put()), L"\"pVssAdmin->QueryProviders(&pEnum)\"");
  if (!providers) return false;
  for (;;) {
    EnumeratedObject object;
    ULONG fetched = 0;
    CheckComCall(providers->Next(1, object.Put(), &fetched), L"\"pEnum->Next(1, &rgelt, &celtFetched)\"");
    if (fetched == 0) return false;
    if (object.IsProvider(TesselVssProviderID)) return true;
  }
}

bool CVarnel::IsWriterPresent(std::string& errorDetails) {
  m_metadataGathered = false;
  CheckComCall(varnel::Delivered(CurrentHost().vss().CreateVssBackupComponents(m_pVssObject.Put()), m_pVssObject),
               L"\"CreateVssBackupComponents(&m_pVssObject)\"");
  CheckComCall(m_pVssObject->InitializeForBackup(nullptr), L"\"m_pVssObject->InitializeForBackup()\"");
  ComPtr<IVssAsync> async;
  const HRESULT hr = m_pVssObject->GatherWriterMetadata(async.Put());
  CheckComCall(varnel::Delivered(hr, async), L"\"m_pVssObject->GatherWriterMetadata(&pAsync)\"");
  WaitAndCheckForAsyncOperation(async.Get(), "GatherWriterMetadata()", errorDetails);
  m_metadataGathered = true;
  const bool found = FindEligibleWriter();
  FreeWriterMetadata();
  return found;
}

bool CVarnel::FindEligibleWriter() {
  UINT count = 0;
  CheckComCall(m_pVssObject->GetWriterMetadataCount(&count), L"\"m_pVssObject->GetWriterMetadataCount(&cWriters)\"");
  varnel::DirectoryResolver directories;
  for (UINT index = 0; index < count; ++index) {
    VSS_ID instanceId{};
    ComPtr<IVssExamineWriterMetadata> metadata;
    const HRESULT hr = m_pVssObject->GetWriterMetadata(index, &instanceId, metadata.Put());
    CheckComCall(varnel::Delivered(hr, metadata),
                 L"\"m_pVssObject->GetWriterMetadata(iWriter, &idInstance, &pMetadata)\"");
    VssWriter writer;
    varnel::BuildWriter(writer, metadata.Get(), directories);
    if (IsWriterEligible(writer)) return true;
  }
  return false;
}

std::wstring CVarnel::GetHostnameNetworkName(std::wstring name) {
  std::wstring networkName;
  try {
    networkName = ClusterNetworkName(name);
  } catch (...) {
    kLog.Info(L" GetClusterName failed. Falling back to local hostname");
  }
  if (networkName.empty()) {
    constexpr DWORD kNameCharacters = 32767;
    std::wstring buffer(kNameCharacters, L'\0');
    DWORD characters = kNameCharacters;
    if (!CurrentHost().system().GetComputerNameW(buffer.data(), &characters)) {
      varnel::ThrowWin32Failure(L"\"GetComputerNameW(buffer, &size)\"", varnel::LastErrorOrGeneric());
    }
    networkName = buffer.c_str();
  }
  return varnel::ascii::ToLower(networkName);
}

// Empty where this node belongs to no cluster; throws where the cluster does not know the name.
std::wstring CVarnel::ClusterNetworkName(const std::wstring& name) {
  if (!TesselCommonClasses::ClusterHelper::IsCluster(true)) return {};
  MetadataWrapper* bridge = MetadataWrapper::GetMetadataWrapperInstance();
  if (bridge == nullptr) throw std::runtime_error("the metadata bridge is not available");
  return stringToWstring(bridge->W_GetClusterName(wstringTostring(name.c_str()).c_str()));
}

void CVarnel::ExecCommand(std::wstring command) const {
  kLog.Info(L"- Executing command = %s", command);
  varnel::Processes& processes = CurrentHost().processes();
  // The command line must be writable, and the log lines below want it unchanged.
  std::wstring commandLine = command;
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  ProcessHandles process;
  if (!processes.CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE,
                                CREATE_NO_WINDOW | CREATE_UNICODE_ENVIRONMENT, nullptr, nullptr, &startup,
                                process.Put())) {
    varnel::ThrowWin32Failure(
        L"\"CreateProcessW(NULL, (LPWSTR)execCommand.c_str(), NULL, NULL, FALSE, CREATE_NO_WINDOW | "
        L"CREATE_UNICODE_ENVIRONMENT, NULL, NULL, &si, &pi)\"",
        varnel::LastErrorOrGeneric());
  }
  if (processes.WaitForSingleObject(process.Process(), INFINITE) != WAIT_OBJECT_0) {
    varnel::ThrowWin32Failure(L"\"WaitForSingleObject(pi.hProcess, INFINITE) == WAIT_OBJECT_0\"",
                              varnel::LastErrorOrGeneric());
  }
  DWORD exitCode = 0;
  if (!processes.GetExitCodeProcess(process.Process(), &exitCode)) {
    varnel::ThrowWin32Failure(L"\"GetExitCodeProcess(pi.hProcess, &dwExitCode)\"", varnel::LastErrorOrGeneric());
  }
  if (exitCode != 0) {
    kLog.Error(L"Command Failed, Command=%s, Error=0x%x", command, exitCode);
    varnel::ThrowHResult(varnel::HResultFromWin32(exitCode));
  }
  kLog.Info(L"Successfully completed execution of command = %s", command);
}
