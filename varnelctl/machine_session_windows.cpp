#include "platform/host.h"
#include "platform/owners.h"
#include "platform/win32.h"
#include "varnelctl/explanation/failure.h"
#include "varnelctl/machine_session.h"

namespace varnelctl {
namespace {

// Writers call back into the requestor under their own accounts, so no access list is set; the cloaking lets the
// service see the caller's identity.
HRESULT SetSecurity() {
  return ::CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_PKT_PRIVACY, RPC_C_IMP_LEVEL_IDENTIFY,
                                nullptr, EOAC_DYNAMIC_CLOAKING, nullptr);
}

class Token {
 public:
  Token() { ::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &handle_); }
  ~Token() {
    if (handle_ != nullptr) ::CloseHandle(handle_);
  }
  Token(const Token&) = delete;
  Token& operator=(const Token&) = delete;
  // A token that does not tell counts as elevated: the service then says itself what it refuses.
  bool IsElevated() const {
    TOKEN_ELEVATION elevation{};
    DWORD bytes = 0;
    return !::GetTokenInformation(handle_, TokenElevation, &elevation, sizeof elevation, &bytes) ||
           elevation.TokenIsElevated != 0;
  }

 private:
  HANDLE handle_ = nullptr;
};

bool IsWow64() {
  BOOL wow64 = FALSE;
  return ::IsWow64Process(::GetCurrentProcess(), &wow64) && wow64;
}

bool HasService() {
  const varnel::Module library(varnel::CurrentHost().messages().LoadLibraryW(L"vssapi.dll"));
  return static_cast<bool>(library);
}

void RequireFitMachine() {
  const bool elevated = Token().IsElevated();
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

MachineSession::MachineSession() {
  RequireFitMachine();
  CheckCall("CoInitializeEx", ::CoInitializeEx(nullptr, COINIT_MULTITHREADED));
  if (const HRESULT hr = SetSecurity(); FAILED(hr)) {
    ::CoUninitialize();
    throw CallFailure("CoInitializeSecurity", hr);
  }
}

MachineSession::~MachineSession() {
  ::CoUninitialize();
}

}  // namespace varnelctl
