#include "platform/com_security.h"
#include "platform/host.h"
#include "platform/owners.h"
#include "platform/win32.h"
#include "varnelctl/explanation/failure.h"
#include "varnelctl/machine_session.h"

namespace varnelctl {
namespace {

bool IsElevated() {
  BOOL elevated = FALSE;
  // A token that does not tell counts as elevated: the service then says itself what it refuses.
  return !varnel::CurrentHost().security().GetTokenElevation(&elevated) || elevated;
}

bool IsWow64() {
  BOOL wow64 = FALSE;
  return varnel::CurrentHost().security().IsWow64Process(&wow64) && wow64;
}

bool HasService() {
  const varnel::Module library(varnel::CurrentHost().messages().LoadLibraryW(L"vssapi.dll"));
  return static_cast<bool>(library);
}

void RequireFitMachine() {
  const bool elevated = IsElevated();
  const bool matchesSystem = !IsWow64();
  const bool hasService = HasService();
  const std::string reason = WhyUnfit(elevated, matchesSystem, hasService);
  if (reason.empty()) return;
  DWORD code = ERROR_ACCESS_DENIED;
  if (!matchesSystem) code = ERROR_EXE_MACHINE_TYPE_MISMATCH;
  if (!hasService) code = ERROR_MOD_NOT_FOUND;
  throw UnfitMachine(reason, varnel::HResultFromWin32(code));
}

}  // namespace

MachineSession::MachineSession(Fitness fitness) {
  if (fitness == Fitness::Required) RequireFitMachine();
  CheckCall("CoInitializeEx", ::CoInitializeEx(nullptr, COINIT_MULTITHREADED));
  if (fitness == Fitness::Examined) return;
  if (const HRESULT hr = varnel::SetComSecurity(varnel::CurrentHost()); FAILED(hr)) {
    ::CoUninitialize();
    throw CallFailure("CoInitializeSecurity", hr);
  }
}

MachineSession::~MachineSession() {
  ::CoUninitialize();
}

}  // namespace varnelctl
