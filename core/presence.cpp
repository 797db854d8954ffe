// Questions about the host: its providers and writers, its network name, and programs that it runs.
#include <stdexcept>

#include "core/logging.h"
#include "core/metadata_bridge.h"
#include "core/metadata_reader.h"
#include "core/provider.h"
#include "core/varnel.h"
#include "core/vss_call.h"
#include "platform/host.h"
#include "platform/tessel/MetadataWrapper.h"
#include "text/ascii_case.h"

using varnel::CheckedCall;
using varnel::ComPtr;
using varnel::CurrentHost;
using varnel::Delivered;
using varnel::kLog;
using varnel::LogAndThrow;

namespace {

// The network name of the cluster; empty where this node belongs to none. Throws where the bridge cannot tell.
std::wstring ClusterNetworkName(const std::wstring& name) {
  if (!TesselCommonClasses::ClusterHelper().IsCluster(true)) return {};
  const auto held = varnel::HoldMetadataBridge();
  MetadataWrapper* bridge = MetadataWrapper::GetMetadataWrapperInstance();
  if (bridge == nullptr) throw std::runtime_error("the metadata bridge is not available");
  return CVarnel::stringToWstring(bridge->W_GetClusterName(CVarnel::wstringTostring(name.c_str()).c_str()));
}

std::wstring ComputerName() {
  constexpr DWORD kNameCharacters = 32767;
  std::wstring buffer(kNameCharacters, L'\0');
  DWORD characters = kNameCharacters;
  if (!CurrentHost().system().GetComputerNameW(buffer.data(), &characters)) {
    varnel::LogAndThrowWin32(L"GetComputerNameW(buffer, &size)", varnel::LastErrorOrGeneric());
  }
  return buffer.substr(0, buffer.find(L'\0'));
}

}  // namespace

bool CVarnel::IsTesselVSSProviderPresent() {
  ComPtr<IVssAdmin> admin;
  const HRESULT hr = CurrentHost().vss().CoCreateInstance(varnel::kClsidVssCoordinator, nullptr, CLSCTX_ALL,
                                                          varnel::kIidVssAdmin, reinterpret_cast<void**>(admin.Put()));
  LogAndThrow(L"CoCreateInstance(CLSID_VSSCoordinator, NULL, CLSCTX_ALL, IID_IVssAdmin, (void **)&pVssAdmin)")(
      Delivered(hr, admin));
  ComPtr<IVssEnumObject> providers;
  CheckedCall(LogAndThrow(L"pVssAdmin->QueryProviders(&pEnum)"), admin, &IVssAdmin::QueryProviders, providers.Put());
  if (!providers) return false;
  for (;;) {
    varnel::VssObject object;
    ULONG fetched = 0;
    CheckedCall(LogAndThrow(L"pEnum->Next(1, &rgelt, &celtFetched)"), providers, &IVssEnumObject::Next, ULONG{1},
                object.Put(), &fetched);
    if (fetched == 0) return false;
    const VSS_PROVIDER_PROP* provider = object.provider();
    if (provider != nullptr && provider->m_ProviderId == varnel::ArrayProviderId()) return true;
  }
}

bool CVarnel::IsWriterPresent(std::string& errorDetails) {
  m_metadataGathered = false;
  const HRESULT hr = CurrentHost().vss().CreateVssBackupComponents(m_pVssObject.Put());
  LogAndThrow(L"CreateVssBackupComponents(&m_pVssObject)")(Delivered(hr, m_pVssObject));
  CheckedCall(LogAndThrow(L"m_pVssObject->InitializeForBackup()"), m_pVssObject,
              &IVssBackupComponents::InitializeForBackup, nullptr);
  const auto async = varnel::Obtain<IVssAsync>(LogAndThrow(L"m_pVssObject->GatherWriterMetadata(&pAsync)"),
                                               m_pVssObject, &IVssBackupComponents::GatherWriterMetadata);
  WaitAndCheckForAsyncOperation(async.Get(), "GatherWriterMetadata()", errorDetails);
  m_metadataGathered = true;
  UINT count = 0;
  CheckedCall(LogAndThrow(L"m_pVssObject->GetWriterMetadataCount(&cWriters)"), m_pVssObject,
              &IVssBackupComponents::GetWriterMetadataCount, &count);
  varnel::DirectoryResolver directories;
  bool found = false;
  for (UINT index = 0; index < count && !found; ++index) {
    VSS_ID instanceId{};
    const auto metadata = varnel::Obtain<IVssExamineWriterMetadata>(
        LogAndThrow(L"m_pVssObject->GetWriterMetadata(iWriter, &idInstance, &pMetadata)"), m_pVssObject,
        &IVssBackupComponents::GetWriterMetadata, index, &instanceId);
    VssWriter writer;
    varnel::BuildWriter(writer, metadata.Get(), directories);
    found = IsWriterEligible(writer);
  }
  FreeWriterMetadata();
  return found;
}

std::wstring CVarnel::GetHostnameNetworkName(std::wstring name) {
  std::wstring networkName;
  try {
    networkName = ClusterNetworkName(name);
  } catch (...) {
    kLog.Info(L" GetClusterName failed. Falling back to local hostname");
  }
  return varnel::ascii::ToLower(networkName.empty() ? ComputerName() : networkName);
}

void CVarnel::ExecCommand(std::wstring command) const {
  kLog.Info(L"- Executing command = %s", command);
  varnel::Processes& processes = CurrentHost().processes();
  // The command line must be writable, and the log lines below want it unchanged.
  std::wstring commandLine = command;
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  varnel::ProcessHandles process;
  if (!processes.CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE,
                                CREATE_NO_WINDOW | CREATE_UNICODE_ENVIRONMENT, nullptr, nullptr, &startup,
                                process.Put())) {
    varnel::LogAndThrowWin32(
        L"CreateProcessW(NULL, (LPWSTR)execCommand.c_str(), NULL, NULL, FALSE, CREATE_NO_WINDOW | "
        L"CREATE_UNICODE_ENVIRONMENT, NULL, NULL, &si, &pi)",
        varnel::LastErrorOrGeneric());
  }
  if (processes.WaitForSingleObject(process->hProcess, INFINITE) != WAIT_OBJECT_0) {
    varnel::LogAndThrowWin32(L"WaitForSingleObject(pi.hProcess, INFINITE) == WAIT_OBJECT_0",
                             varnel::LastErrorOrGeneric());
  }
  DWORD exitCode = 0;
  if (!processes.GetExitCodeProcess(process->hProcess, &exitCode)) {
    varnel::LogAndThrowWin32(L"GetExitCodeProcess(pi.hProcess, &dwExitCode)", varnel::LastErrorOrGeneric());
  }
  if (exitCode != 0) {
    kLog.Error(L"Command Failed, Command=%s, Error=0x%x", command, exitCode);
    varnel::ThrowHResult(varnel::HResultFromWin32(exitCode));
  }
  kLog.Info(L"Successfully completed execution of command = %s", command);
}
