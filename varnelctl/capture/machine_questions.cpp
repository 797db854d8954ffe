#include <algorithm>
#include <array>
#include <functional>

#include "platform/host.h"
#include "platform/owners.h"
#include "simulator/services/simulated_service_manager.h"
#include "text/unicode.h"
#include "varnelctl/capture/questions.h"

namespace varnelctl::capture {
namespace {

using varnel::CurrentHost;

void AskNames(CapturedHost& host) {
  constexpr DWORD kRoom = 1024;
  std::array<wchar_t, kRoom> name{};
  DWORD characters = kRoom;
  if (CurrentHost().system().GetComputerNameW(name.data(), &characters)) {
    host.model.computerName.assign(name.data(), std::min(characters, kRoom));
  } else {
    NoteLastError(host, "GetComputerNameW", "");
  }
  characters = kRoom;
  if (CurrentHost().system().GetComputerNameExW(ComputerNameDnsDomain, name.data(), &characters)) {
    host.model.domain.assign(name.data(), std::min(characters, kRoom));
  } else {
    NoteLastError(host, "GetComputerNameExW", "the domain");
  }
  if (UINT length = CurrentHost().system().GetSystemDirectoryW(name.data(), kRoom); length > 0 && length < kRoom) {
    host.model.systemDirectory.assign(name.data(), length);
  } else {
    NoteLastError(host, "GetSystemDirectoryW", "");
  }
}

// One part of the version, of which the system tells only whether it is at least a number.
class VersionQuestion {
 public:
  VersionQuestion(DWORD type, std::function<void(OSVERSIONINFOEXW&, DWORD)> set) : type_(type), set_(std::move(set)) {}

  /// 0 where the system does not say; the last error tells why.
  DWORD Ask(DWORD largest) const {
    DWORD low = 0;
    if (!IsAtLeast(low)) return 0;
    // Most are small, or of a build: double first.
    DWORD high = 1;
    while (high < largest && IsAtLeast(high)) high = high > largest / 2 ? largest : high * 2;
    if (high == largest && IsAtLeast(largest)) return largest;
    while (high - low > 1) {
      const DWORD middle = low + (high - low) / 2;
      (IsAtLeast(middle) ? low : high) = middle;
    }
    return low;
  }

 private:
  bool IsAtLeast(DWORD number) const {
    varnel::SystemInformation& system = CurrentHost().system();
    OSVERSIONINFOEXW version{};
    version.dwOSVersionInfoSize = sizeof version;
    set_(version, number);
    const ULONGLONG condition = system.VerSetConditionMask(0, type_, VER_GREATER_EQUAL);
    return system.VerifyVersionInfoW(&version, type_, condition) != FALSE;
  }

  DWORD type_;
  std::function<void(OSVERSIONINFOEXW&, DWORD)> set_;
};

// A version that is not told stays the usual one: "0 or later" is said of every system.
bool TellsItsVersion(CapturedHost& host) {
  varnel::SystemInformation& system = CurrentHost().system();
  OSVERSIONINFOEXW version{};
  version.dwOSVersionInfoSize = sizeof version;
  const ULONGLONG condition = system.VerSetConditionMask(0, VER_MAJORVERSION, VER_GREATER_EQUAL);
  if (system.VerifyVersionInfoW(&version, VER_MAJORVERSION, condition)) return true;
  NoteLastError(host, "VerifyVersionInfoW", "");
  return false;
}

void AskVersion(CapturedHost& host) {
  if (!TellsItsVersion(host)) return;
  constexpr DWORD kMost = 0xFFFFFFFF;
  varnel::simulator::OperatingSystem& os = host.model.os;
  os.major = VersionQuestion(VER_MAJORVERSION, [](auto& version, DWORD n) { version.dwMajorVersion = n; }).Ask(kMost);
  os.minor = VersionQuestion(VER_MINORVERSION, [](auto& version, DWORD n) { version.dwMinorVersion = n; }).Ask(kMost);
  os.build = VersionQuestion(VER_BUILDNUMBER, [](auto& version, DWORD n) { version.dwBuildNumber = n; }).Ask(kMost);
  const VersionQuestion servicePack(VER_SERVICEPACKMAJOR,
                                    [](auto& version, DWORD n) { version.wServicePackMajor = static_cast<WORD>(n); });
  os.servicePack = static_cast<WORD>(servicePack.Ask(0xFFFF));
  varnel::SystemInformation& system = CurrentHost().system();
  OSVERSIONINFOEXW version{};
  version.dwOSVersionInfoSize = sizeof version;
  version.wProductType = VER_NT_WORKSTATION;
  const ULONGLONG condition = system.VerSetConditionMask(0, VER_PRODUCT_TYPE, VER_EQUAL);
  os.server = !system.VerifyVersionInfoW(&version, VER_PRODUCT_TYPE, condition);
}

void AskCluster(CapturedHost& host) {
  constexpr DWORD kRunning = 0x13;
  DWORD state = 0;
  const DWORD error = CurrentHost().cluster().GetNodeClusterState(nullptr, &state);
  if (error != ERROR_SUCCESS) return NoteError(host, "GetNodeClusterState", "", error);
  if (state == kRunning) host.model.cluster.emplace();
}

// Nothing where there is no such service, or where it does not tell, which is noted.
std::optional<varnel::simulator::Service> AskService(CapturedHost& host, SC_HANDLE manager, const wchar_t* name) {
  varnel::ServiceManager& services = CurrentHost().services();
  const varnel::ServiceHandle service(
      services.OpenServiceW(manager, name, SERVICE_QUERY_CONFIG | SERVICE_QUERY_STATUS));
  const auto note = [&](const char* call) {
    const DWORD error = CurrentHost().GetLastError();
    if (error != ERROR_SERVICE_DOES_NOT_EXIST) NoteError(host, call, varnel::WideToUtf8Lossy(name), error);
    return std::nullopt;
  };
  if (!service) return note("OpenServiceW");
  DWORD needed = 0;
  services.QueryServiceConfigW(service.Get(), nullptr, 0, &needed);
  std::vector<QUERY_SERVICE_CONFIGW> configuration(needed / sizeof(QUERY_SERVICE_CONFIGW) + 1);
  const auto room = static_cast<DWORD>(configuration.size() * sizeof configuration[0]);
  if (!services.QueryServiceConfigW(service.Get(), configuration.data(), room, &needed)) {
    return note("QueryServiceConfigW");
  }
  SERVICE_STATUS status{};
  if (!services.QueryServiceStatus(service.Get(), &status)) return note("QueryServiceStatus");
  constexpr DWORD kContinuePending = 5;
  constexpr DWORD kPausePending = 6;
  const bool isPaused = status.dwCurrentState == kPausePending || status.dwCurrentState == kContinuePending;
  return varnel::simulator::Service{configuration.front().dwStartType,
                                    isPaused ? DWORD{SERVICE_PAUSED} : status.dwCurrentState};
}

// What shadow copies need, and what belongs to the applications.
void AskServices(CapturedHost& host) {
  constexpr const wchar_t* kServices[] = {L"ClusSvc", L"EventSystem", L"MSExchangeIS", L"MSExchangeRepl",
                                          L"MSiSCSI", L"SQLWriter",   L"VSS",          L"swprv",
                                          L"vmms"};
  const varnel::ServiceHandle manager(CurrentHost().services().OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
  if (!manager) return NoteLastError(host, "OpenSCManagerW", "");
  for (const wchar_t* name : kServices) {
    const std::size_t notes = host.unanswered.size();
    const auto service = AskService(host, manager.Get(), name);
    const auto usual = varnel::simulator::FindService(host.model, name);
    const bool isUsual = service.has_value() == usual.has_value() &&
                         (!service || (service->startType == usual->startType && service->state == usual->state));
    if (!isUsual && notes == host.unanswered.size()) host.model.services[name] = service;
  }
}

void AskProcess(CapturedHost& host) {
  varnel::ProcessSecurity& security = CurrentHost().security();
  BOOL answer = FALSE;
  if (security.GetTokenElevation(&answer)) {
    host.model.process.elevated = answer != FALSE;
  } else {
    NoteLastError(host, "GetTokenInformation", "the elevation");
  }
  if (security.IsWow64Process(&answer)) {
    host.model.process.is32Bit = answer != FALSE;
  } else {
    NoteLastError(host, "IsWow64Process", "");
  }
}

}  // namespace

void AskMachine(CapturedHost& host) {
  AskNames(host);
  AskVersion(host);
  AskCluster(host);
  AskServices(host);
  AskProcess(host);
}

}  // namespace varnelctl::capture
