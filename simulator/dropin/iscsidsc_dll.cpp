// The initiator's library over the host of the drop-in vssapi.dll, so that both show one machine. iscsidsc.def gives
// the functions their names.
#include <exception>
#include <string>

#include "simulator/dropin/process_host.h"
#include "simulator/dropin/this_module.h"
#include "text/unicode.h"

namespace varnel::simulator {
namespace {

constexpr wchar_t kService[] = L"vssapi.dll";

HostExport* ExportOf(HMODULE service) {
  const FARPROC address = service == nullptr ? nullptr : ::GetProcAddress(service, kHostExport);
  return reinterpret_cast<HostExport*>(reinterpret_cast<void (*)()>(address));
}

// A service that the process has already is taken first, the one beside this library before any other.
HostExport* FindService() {
  const std::wstring beside = this_module::Folder() / kService;
  if (HostExport* found = ExportOf(::GetModuleHandleW(beside.c_str()))) return found;
  if (HostExport* found = ExportOf(::GetModuleHandleW(kService))) return found;
  return ExportOf(::LoadLibraryW(beside.c_str()));
}

Host* FindHost() noexcept {
  Host* host = nullptr;
  try {
    HostExport* service = FindService();
    if (service != nullptr) {
      service(&host);  // it reports why there is none
    } else {
      this_module::Report("no drop-in vssapi.dll is loaded or lies beside this library");
    }
  } catch (const std::exception& error) {
    this_module::Report(error.what());
  }
  return host;
}

// What a machine whose initiator service is not running answers.
constexpr DWORD kNoInitiator = ERROR_SERVICE_NOT_ACTIVE;

}  // namespace
}  // namespace varnel::simulator

using varnel::simulator::FindHost;
using varnel::simulator::kNoInitiator;

extern "C" {

DWORD STDAPICALLTYPE SimulatedGetSessionList(ULONG* bytes, ULONG* sessions, varnel::iscsi::SessionInfo* list) {
  varnel::Host* host = FindHost();
  return host == nullptr ? kNoInitiator : host->iscsi().GetIScsiSessionListW(bytes, sessions, list);
}

DWORD STDAPICALLTYPE SimulatedGetDevices(varnel::iscsi::UniqueSessionId* session, ULONG* devices,
                                         varnel::iscsi::DeviceOnSession* list) {
  varnel::Host* host = FindHost();
  return host == nullptr ? kNoInitiator : host->iscsi().GetDevicesForIScsiSessionW(session, devices, list);
}

DWORD STDAPICALLTYPE SimulatedLogout(varnel::iscsi::UniqueSessionId* session) {
  varnel::Host* host = FindHost();
  return host == nullptr ? kNoInitiator : host->iscsi().LogoutIScsiTarget(session);
}

}  // extern "C"
