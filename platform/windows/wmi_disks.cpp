#include "platform/windows/wmi_disks.h"

#include "platform/owners.h"

namespace varnel::windows {
namespace {

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

HRESULT ReadAll(IEnumWbemClassObject& objects, Time& time, std::vector<WmiDisk>& disks) {
  const ULONGLONG start = time.GetTickCount64();
  for (;;) {
    ComPtr<IWbemClassObject> object;
    ULONG fetched = 0;
    const HRESULT hr = objects.Next(kWmiSlice, 1, object.Put(), &fetched);
    if (FAILED(hr)) return hr;
    if (object) {
      disks.push_back(DiskOf(*object));
    } else if (hr != WBEM_S_TIMEDOUT) {
      return S_OK;
    }
    if (time.GetTickCount64() - start >= kWmiPatience) return HResultFromWin32(ERROR_TIMEOUT);
  }
}

}  // namespace

HRESULT ReadDisks(IEnumWbemClassObject& objects, Time& time, std::vector<WmiDisk>& disks) {
  const HRESULT hr = ReadAll(objects, time, disks);
  if (FAILED(hr)) disks.clear();
  return hr;
}

}  // namespace varnel::windows
