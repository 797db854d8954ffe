// What a requestor's process brings, and what Windows must let it do.
#include <array>
#include <vector>

#include "core/varnel.h"
#include "platform/com_security.h"
#include "platform/host.h"
#include "platform/owners.h"
#include "text/ascii_case.h"
#include "text/unicode.h"
#include "varnelctl/doctor/check.h"
#include "varnelctl/doctor/file_version.h"
#include "varnelctl/explanation/advice.h"
#include "varnelctl/explanation/failure.h"
#include "varnelctl/explanation/next_step.h"
#include "varnelctl/report/document.h"

namespace varnelctl {
namespace {

using varnel::CurrentHost;

constexpr char kThisProcess[] = "this process";

struct NeededService {
  const wchar_t* name;
  const char* title;
  bool mustRun;  // the others start when they are needed
};

constexpr NeededService kNeededServices[] = {
    {L"VSS", "the service \"Volume Shadow Copy\" (VSS)", false},
    {L"swprv", "the service \"Microsoft Software Shadow Copy Provider\" (swprv)", false},
    {L"EventSystem", "the service \"COM+ Event System\" (EventSystem)", true},
};

struct ServiceCondition {
  DWORD startType = 0;
  DWORD state = 0;
};

varnel::ServiceHandle OpenService(const wchar_t* name) {
  varnel::ServiceManager& services = CurrentHost().services();
  const varnel::ServiceHandle manager(services.OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
  if (!manager) ThrowLastError("OpenSCManagerW");
  varnel::ServiceHandle service(
      services.OpenServiceW(manager.Get(), name, SERVICE_QUERY_CONFIG | SERVICE_QUERY_STATUS));
  if (!service) ThrowLastError("OpenServiceW");
  return service;
}

ServiceCondition ReadService(const wchar_t* name) {
  varnel::ServiceManager& services = CurrentHost().services();
  const varnel::ServiceHandle service = OpenService(name);
  DWORD needed = 0;
  services.QueryServiceConfigW(service.Get(), nullptr, 0, &needed);
  std::vector<QUERY_SERVICE_CONFIGW> configuration(needed / sizeof(QUERY_SERVICE_CONFIGW) + 1);
  const auto room = static_cast<DWORD>(configuration.size() * sizeof(QUERY_SERVICE_CONFIGW));
  if (!services.QueryServiceConfigW(service.Get(), configuration.data(), room, &needed)) {
    ThrowLastError("QueryServiceConfigW");
  }
  SERVICE_STATUS status{};
  if (!services.QueryServiceStatus(service.Get(), &status)) ThrowLastError("QueryServiceStatus");
  return {configuration.front().dwStartType, status.dwCurrentState};
}

std::string InWords(const ServiceCondition& service) {
  if (service.startType == SERVICE_DISABLED) return "it is disabled";
  switch (service.state) {
    case SERVICE_RUNNING:
      return "it runs";
    case SERVICE_STOPPED:
      return "it is stopped";
    case SERVICE_START_PENDING:
      return "it is being started";
    case SERVICE_STOP_PENDING:
      return "it is being stopped";
    default:
      return "it is paused";
  }
}

void Judge(const NeededService& needed, const ServiceCondition& service, Told& told) {
  const std::string state = InWords(service);
  if (service.startType == SERVICE_DISABLED) {
    return told.Add(Found(Severity::Error, needed.title, state,
                          needed.mustRun ? "that it starts with the system" : "start type manual",
                          "ERROR_SERVICE_DISABLED"));
  }
  if (needed.mustRun && service.state != SERVICE_RUNNING) {
    return told.Add(Found(Severity::Error, needed.title, state, "that it runs", advice::kNoWriter));
  }
  const bool goes = service.state == SERVICE_STOP_PENDING || service.state == SERVICE_PAUSED;
  if (goes) {
    told.Add(Found(Severity::Warning, needed.title, state, "that it can be started", "ERROR_SERVICE_NOT_ACTIVE"));
  }
}

bool IsDcomOff() {
  std::array<wchar_t, 16> value{};
  DWORD bytes = sizeof value;
  const LSTATUS error = CurrentHost().registry().RegGetValueW(
      HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Ole", L"EnableDCOM", RRF_RT_REG_SZ, nullptr, value.data(), &bytes);
  if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) return false;
  if (error != ERROR_SUCCESS) {
    throw CallFailure("RegGetValueW(EnableDCOM)", varnel::HResultFromWin32(static_cast<DWORD>(error)));
  }
  return varnel::ascii::EqualIgnoringCase(value.data(), L"N");
}

// What Windows tells this process that it is at least.
bool IsWindowsAtLeast(DWORD major, DWORD minor) {
  varnel::SystemInformation& system = CurrentHost().system();
  OSVERSIONINFOEXW version{};
  version.dwOSVersionInfoSize = sizeof version;
  version.dwMajorVersion = major;
  version.dwMinorVersion = minor;
  ULONGLONG conditions = system.VerSetConditionMask(0, VER_MAJORVERSION, VER_GREATER_EQUAL);
  conditions = system.VerSetConditionMask(conditions, VER_MINORVERSION, VER_GREATER_EQUAL);
  if (system.VerifyVersionInfoW(&version, VER_MAJORVERSION | VER_MINORVERSION, conditions)) return true;
  if (CurrentHost().GetLastError() != ERROR_OLD_WIN_VERSION) ThrowLastError("VerifyVersionInfoW");
  return false;
}

}  // namespace

std::string StateOfService(const wchar_t* name) {
  try {
    return InWords(ReadService(name));
  } catch (const CallFailure& failure) {
    const bool isAbsent = failure.hresult() == varnel::HResultFromWin32(ERROR_SERVICE_DOES_NOT_EXIST);
    return isAbsent ? "it is not there" : "";
  }
}

void CheckProcess(Examination& /*examination*/, Told& told) {
  BOOL elevated = FALSE;
  BOOL wow64 = FALSE;
  if (!CurrentHost().security().GetTokenElevation(&elevated)) ThrowLastError("GetTokenInformation");
  if (!CurrentHost().security().IsWow64Process(&wow64)) ThrowLastError("IsWow64Process");
  if (!elevated) {
    told.Add(Found(Severity::Error, kThisProcess, "it is not elevated",
                   "an elevated process: the service answers administrators only", "E_ACCESSDENIED"));
  }
  if (wow64) {
    told.Add(Found(Severity::Error, kThisProcess, "it is a 32-bit process of a 64-bit Windows",
                   "a 64-bit process: the service answers no other", advice::kWrongBitness));
  }
}

void CheckComSecurity(Examination& /*examination*/, Told& told) {
  if (const HRESULT hr = varnel::SetComSecurity(varnel::CurrentHost()); FAILED(hr)) {
    told.Add(FoundCode(Severity::Error, "COM security of this process",
                       "CoInitializeSecurity failed: " + NameOfCode(hr) + " (" + Hex(hr) + ")",
                       "that writers may call back into this process", hr));
  }
  if (IsDcomOff()) {
    told.Add(Found(Severity::Error, "DCOM of this host", "it is off (EnableDCOM is N)",
                   "that it is on: writers call back into the requestor through it", advice::kDcomOff));
  }
}

void CheckServices(Examination& /*examination*/, Told& told) {
  for (const NeededService& needed : kNeededServices) {
    try {
      Judge(needed, ReadService(needed.name), told);
    } catch (const CallFailure& failure) {
      if (failure.hresult() != varnel::HResultFromWin32(ERROR_SERVICE_DOES_NOT_EXIST)) throw;
      told.Add(FoundCode(Severity::Error, needed.title, "it is not there", "that it is there", failure.hresult()));
    }
  }
}

void CheckManifest(Examination& /*examination*/, Told& told) {
  const FileVersionText windows = ReadSystemFileVersion(L"kernel32.dll");
  told.saw = "Windows " + windows.text;
  if (IsWindowsAtLeast(windows.major, windows.minor)) return;
  told.Add(Found(Severity::Warning, kThisProcess, "Windows tells it an older version than its own, " + windows.text,
                 "a program whose manifest names that version", advice::kNoManifest));
}

}  // namespace varnelctl
