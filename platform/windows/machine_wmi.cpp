#include "platform/win32.h"
// clang-format off
#include <wbemidl.h>
// clang-format on

#include "platform/owners.h"
#include "platform/windows/machine_services.h"

namespace varnel::windows {
namespace {

struct FreeBstr {
  void operator()(OLECHAR* text) const noexcept { ::SysFreeString(text); }
};
// Not varnel::Bstr: these texts are this machine's, whatever host is the current one.
using OwnedBstr = std::unique_ptr<OLECHAR, FreeBstr>;

class Variant {
 public:
  Variant() noexcept { ::VariantInit(&value_); }
  Variant(const Variant&) = delete;
  Variant& operator=(const Variant&) = delete;
  ~Variant() { ::VariantClear(&value_); }
  VARIANT* Put() noexcept { return &value_; }
  const VARIANT& Get() const noexcept { return value_; }

 private:
  VARIANT value_;
};

// A property that is missing, null or of another type has its type's empty value.
std::wstring TextProperty(IWbemClassObject& object, LPCWSTR name) {
  Variant value;
  if (FAILED(object.Get(name, 0, value.Put(), nullptr, nullptr)) || value.Get().vt != VT_BSTR) return {};
  return {value.Get().bstrVal, ::SysStringLen(value.Get().bstrVal)};
}

bool FlagProperty(IWbemClassObject& object, LPCWSTR name) {
  Variant value;
  if (FAILED(object.Get(name, 0, value.Put(), nullptr, nullptr)) || value.Get().vt != VT_BOOL) return false;
  return value.Get().boolVal != VARIANT_FALSE;
}

DWORD NumberProperty(IWbemClassObject& object, LPCWSTR name) {
  Variant value;
  if (FAILED(object.Get(name, 0, value.Put(), nullptr, nullptr)) || value.Get().vt != VT_I4) return 0;
  return static_cast<DWORD>(value.Get().lVal);
}

WmiDisk DiskOf(IWbemClassObject& object) {
  WmiDisk disk;
  disk.number = NumberProperty(object, L"Number");
  disk.serialNumber = TextProperty(object, L"SerialNumber");
  disk.manufacturer = TextProperty(object, L"Manufacturer");
  disk.isSystem = FlagProperty(object, L"IsSystem");
  disk.isClustered = FlagProperty(object, L"IsClustered");
  return disk;
}

HRESULT Connect(ComPtr<IWbemServices>& services) {
  ComPtr<IWbemLocator> locator;
  HRESULT hr = ::CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator,
                                  reinterpret_cast<void**>(locator.Put()));
  if (FAILED(hr)) return hr;
  const OwnedBstr space(::SysAllocString(L"ROOT\\Microsoft\\Windows\\Storage"));
  if (space == nullptr) return E_OUTOFMEMORY;
  hr = locator->ConnectServer(space.get(), nullptr, nullptr, nullptr, 0, nullptr, nullptr, services.Put());
  if (FAILED(hr)) return hr;
  return ::CoSetProxyBlanket(services.Get(), RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr, RPC_C_AUTHN_LEVEL_CALL,
                             RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE);
}

HRESULT Execute(IWbemServices& services, ComPtr<IEnumWbemClassObject>& objects) {
  const OwnedBstr language(::SysAllocString(L"WQL"));
  const OwnedBstr query(
      ::SysAllocString(L"SELECT Number, SerialNumber, Manufacturer, IsSystem, IsClustered FROM MSFT_Disk"));
  if (language == nullptr || query == nullptr) return E_OUTOFMEMORY;
  return services.ExecQuery(language.get(), query.get(), WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY, nullptr,
                            objects.Put());
}

HRESULT ReadAll(IEnumWbemClassObject& objects, std::vector<WmiDisk>& disks) {
  for (;;) {
    ComPtr<IWbemClassObject> object;
    ULONG fetched = 0;
    const HRESULT hr = objects.Next(static_cast<LONG>(WBEM_INFINITE), 1, object.Put(), &fetched);
    if (FAILED(hr)) return hr;
    if (fetched == 0 || !object) return S_OK;
    disks.push_back(DiskOf(*object));
  }
}

class Wmi final : public WmiDisks {
 public:
  HRESULT QueryDisks(std::vector<WmiDisk>& disks) override {
    disks.clear();
    ComPtr<IWbemServices> services;
    if (const HRESULT hr = Connect(services); FAILED(hr)) return hr;
    ComPtr<IEnumWbemClassObject> objects;
    if (const HRESULT hr = Execute(*services, objects); FAILED(hr)) return hr;
    const HRESULT hr = ReadAll(*objects, disks);
    if (FAILED(hr)) disks.clear();
    return hr;
  }
};

}  // namespace

WmiDisks& MachineWmi() {
  static Wmi wmi;
  return wmi;
}

}  // namespace varnel::windows
