#include "simulator/services/simulated_service_manager.h"

#include <cstring>

#include "simulator/machine/handles.h"
#include "simulator/services/on_machine.h"
#include "text/ascii_case.h"

namespace varnel::simulator {
namespace {

struct UsualService {
  std::wstring_view name;
  Service service;
};

// What every Windows has of the services that shadow copies need.
constexpr UsualService kUsualServices[] = {
    {L"EventSystem", {SERVICE_AUTO_START, SERVICE_RUNNING}},
    {L"MSiSCSI", {SERVICE_DEMAND_START, SERVICE_STOPPED}},
    {L"swprv", {SERVICE_DEMAND_START, SERVICE_STOPPED}},
    {L"VSS", {SERVICE_DEMAND_START, SERVICE_STOPPED}},
};

class SimulatedServiceManager final : public OnMachine<ServiceManager> {
 public:
  explicit SimulatedServiceManager(Machine& machine) : OnMachine(machine), handles_(machine, 0x1004) {}

  SC_HANDLE OpenSCManagerW(LPCWSTR machine, LPCWSTR, DWORD) override {
    return Win32Call(machine_, "OpenSCManagerW", Shown(machine), SC_HANDLE{nullptr}, [&] { return Open({}); });
  }

  SC_HANDLE OpenServiceW(SC_HANDLE manager, LPCWSTR name, DWORD) override {
    return Win32Call(machine_, "OpenServiceW", Shown(name), SC_HANDLE{nullptr}, [&] {
      const std::wstring* const held = handles_.Find(manager);
      if (held == nullptr || !held->empty()) return Fail(ERROR_INVALID_HANDLE, SC_HANDLE{});
      if (name == nullptr || *name == L'\0') return Fail(ERROR_INVALID_NAME, SC_HANDLE{});
      if (!FindService(model(), name)) return Fail(ERROR_SERVICE_DOES_NOT_EXIST, SC_HANDLE{});
      return Open(name);
    });
  }

  BOOL QueryServiceConfigW(SC_HANDLE service, QUERY_SERVICE_CONFIGW* configuration, DWORD bytes,
                           DWORD* needed) override {
    const auto described = [&] { return Describe(service); };
    return Win32Call(machine_, "QueryServiceConfigW", described, BOOL{FALSE}, [&] {
      const std::optional<Service> found = Find(service);
      if (!found) return Fail(ERROR_INVALID_HANDLE);
      if (needed == nullptr) return Fail(ERROR_INVALID_PARAMETER);
      return Give(*found, *handles_.Find(service), configuration, bytes, *needed);
    });
  }

  BOOL QueryServiceStatus(SC_HANDLE service, SERVICE_STATUS* status) override {
    const auto described = [&] { return Describe(service); };
    return Win32Call(machine_, "QueryServiceStatus", described, BOOL{FALSE}, [&] {
      const std::optional<Service> found = Find(service);
      if (!found) return Fail(ERROR_INVALID_HANDLE);
      if (status == nullptr) return Fail(ERROR_INVALID_PARAMETER);
      *status = {};
      status->dwServiceType = SERVICE_WIN32_OWN_PROCESS;
      status->dwCurrentState = found->state;
      return TRUE;
    });
  }

  BOOL CloseServiceHandle(SC_HANDLE handle) override {
    const auto lock = machine_.Lock();
    const std::string what = machine_.calls.enabled ? Describe(handle) : std::string();
    const bool closed = handles_.Close(handle, "CloseServiceHandle");
    return Win32Call(machine_, "CloseServiceHandle", Arguments(what), BOOL{FALSE},
                     [&] { return closed ? TRUE : Fail(ERROR_INVALID_HANDLE); });
  }

 private:
  SC_HANDLE Open(std::wstring name) {
    const std::string_view kind = name.empty() ? "service manager" : "service";
    return static_cast<SC_HANDLE>(handles_.Open(kind, std::move(name)));
  }

  std::optional<Service> Find(SC_HANDLE handle) {
    const std::wstring* const name = handles_.Find(handle);
    return name == nullptr || name->empty() ? std::nullopt : FindService(model(), *name);
  }

  std::string Describe(SC_HANDLE handle) {
    const std::wstring* const name = handles_.Find(handle);
    if (name == nullptr) return "not open";
    return name->empty() ? "manager" : Show(*name);
  }

  // The structure, and after it the name, which stands for all of its texts.
  BOOL Give(const Service& service, const std::wstring& name, QUERY_SERVICE_CONFIGW* configuration, DWORD bytes,
            DWORD& needed) {
    needed = static_cast<DWORD>(sizeof *configuration + (name.size() + 1) * sizeof(wchar_t));
    if (configuration == nullptr || bytes < needed) return Fail(ERROR_INSUFFICIENT_BUFFER);
    auto* const text = reinterpret_cast<wchar_t*>(configuration + 1);
    CopyWithEnd(name, text);
    *configuration = {};
    configuration->dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    configuration->dwStartType = service.startType;
    configuration->lpBinaryPathName = text;
    configuration->lpLoadOrderGroup = text + name.size();
    configuration->lpDependencies = text + name.size();
    configuration->lpServiceStartName = text + name.size();
    configuration->lpDisplayName = text;
    return TRUE;
  }

  HandleTable<std::wstring> handles_;  // the service's name; empty of the manager
};

}  // namespace

std::optional<Service> FindService(const HostModel& model, std::wstring_view name) {
  for (const auto& [known, service] : model.services) {
    if (ascii::EqualIgnoringCase(known, name)) return service;
  }
  for (const UsualService& usual : kUsualServices) {
    if (ascii::EqualIgnoringCase(usual.name, name)) return usual.service;
  }
  return std::nullopt;
}

std::unique_ptr<ServiceManager> MakeServiceManager(Machine& machine) {
  return std::make_unique<SimulatedServiceManager>(machine);
}

}  // namespace varnel::simulator
