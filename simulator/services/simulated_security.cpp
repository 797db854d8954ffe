#include "simulator/services/simulated_security.h"

#include "simulator/services/on_machine.h"

namespace varnel::simulator {
namespace {

class SimulatedSecurity final : public OnMachine<ProcessSecurity> {
 public:
  using OnMachine::OnMachine;

  BOOL GetTokenElevation(BOOL* elevated) override {
    return Win32Call(machine_, "GetTokenInformation", NoArguments, BOOL{FALSE},
                     [&] { return Tell(elevated, model().process.elevated); });
  }

  BOOL IsWow64Process(BOOL* wow64) override {
    return Win32Call(machine_, "IsWow64Process", NoArguments, BOOL{FALSE},
                     [&] { return Tell(wow64, model().process.is32Bit); });
  }

  HRESULT CoInitializeSecurity(void*, LONG, void*, DWORD authentication, DWORD impersonation, void*,
                               DWORD capabilities) override {
    return Call(machine_, "CoInitializeSecurity", Arguments(authentication, impersonation, capabilities),
                [] { return S_OK; });
  }

 private:
  BOOL Tell(BOOL* answer, bool value) {
    if (answer == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    *answer = value ? TRUE : FALSE;
    return TRUE;
  }
};

}  // namespace

std::unique_ptr<ProcessSecurity> MakeProcessSecurity(Machine& machine) {
  return std::make_unique<SimulatedSecurity>(machine);
}

}  // namespace varnel::simulator
