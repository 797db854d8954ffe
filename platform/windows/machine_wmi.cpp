#include "platform/owners.h"
#include "platform/windows/machine_services.h"
#include "platform/windows/wmi_disks.h"

namespace varnel::windows {
namespace {

struct FreeBstr {
  void operator()(OLECHAR* text) const noexcept { ::SysFreeString(text); }
};
// Not varnel::Bstr: these texts are this machine's, whatever host is the current one.
using OwnedBstr = std::unique_ptr<OLECHAR, FreeBstr>;

// WMI acts for the caller. Each proxy has a blanket of its own; an object of this process needs none.
HRESULT SetBlanket(IUnknown* proxy) {
  const HRESULT hr = ::CoSetProxyBlanket(proxy, RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr, RPC_C_AUTHN_LEVEL_CALL,
                                         RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE);
  return hr == E_NOINTERFACE ? S_OK : hr;
}

HRESULT Connect(ComPtr<IWbemServices>& services) {
  ComPtr<IWbemLocator> locator;
  HRESULT hr = ::CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator,
                                  reinterpret_cast<void**>(locator.Put()));
  if (FAILED(hr)) return hr;
  const OwnedBstr space(::SysAllocString(L"ROOT\\Microsoft\\Windows\\Storage"));
  if (space == nullptr) return E_OUTOFMEMORY;
  // With the flag it answers within two minutes, also when the service hangs.
  hr = locator->ConnectServer(space.get(), nullptr, nullptr, nullptr, WBEM_FLAG_CONNECT_USE_MAX_WAIT, nullptr, nullptr,
                              services.Put());
  return FAILED(hr) ? hr : SetBlanket(services.Get());
}

HRESULT Execute(IWbemServices& services, ComPtr<IEnumWbemClassObject>& objects) {
  const OwnedBstr language(::SysAllocString(L"WQL"));
  const OwnedBstr query(
      ::SysAllocString(L"SELECT Number, SerialNumber, Manufacturer, IsSystem, IsClustered FROM MSFT_Disk"));
  if (language == nullptr || query == nullptr) return E_OUTOFMEMORY;
  const HRESULT hr = services.ExecQuery(language.get(), query.get(),
                                        WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY, nullptr, objects.Put());
  return FAILED(hr) ? hr : SetBlanket(objects.Get());
}

class Wmi final : public WmiDisks {
 public:
  HRESULT QueryDisks(std::vector<WmiDisk>& disks) override {
    disks.clear();
    ComPtr<IWbemServices> services;
    if (const HRESULT hr = Connect(services); FAILED(hr)) return hr;
    ComPtr<IEnumWbemClassObject> objects;
    if (const HRESULT hr = Execute(*services, objects); FAILED(hr)) return hr;
    return ReadDisks(*objects, MachineHost()->time(), disks);
  }
};

}  // namespace

WmiDisks& MachineWmi() {
  static Wmi wmi;
  return wmi;
}

}  // namespace varnel::windows
