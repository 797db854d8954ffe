#include "varnelctl/providers.h"

#include "core/alerts.h"
#include "core/provider.h"
#include "core/vss_call.h"
#include "platform/host.h"
#include "platform/owners.h"
#include "varnelctl/explanation/failure.h"
#include "varnelctl/vss_object.h"

namespace varnelctl {

using varnel::ComPtr;

bool Provider::IsArrayProvider() const {
  return id == varnel::ArrayProviderId();
}

std::vector<Provider> ReadProviders() {
  const auto textOf = [](const wchar_t* text) { return text == nullptr ? std::wstring() : std::wstring(text); };
  ComPtr<IVssAdmin> admin;
  const HRESULT hr = varnel::CurrentHost().vss().CoCreateInstance(
      varnel::kClsidVssCoordinator, nullptr, CLSCTX_ALL, varnel::kIidVssAdmin, reinterpret_cast<void**>(admin.Put()));
  CheckCall("CoCreateInstance(CLSID_VSSCoordinator)", varnel::Delivered(hr, admin));
  ComPtr<IVssEnumObject> list;
  CheckCall("IVssAdmin::QueryProviders", admin->QueryProviders(list.Put()));
  std::vector<Provider> providers;
  if (!list) return providers;
  ForEachVssObject(*list, [&](const varnel::VssObject& object) {
    const VSS_PROVIDER_PROP* properties = object.provider();
    if (properties == nullptr) return;
    providers.push_back({properties->m_ProviderId, textOf(properties->m_pwszProviderName), properties->m_eProviderType,
                         textOf(properties->m_pwszProviderVersion)});
  });
  return providers;
}

}  // namespace varnelctl
