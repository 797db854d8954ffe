#include <algorithm>

#include "core/alerts.h"
#include "core/varnel.h"
#include "core/vss_call.h"
#include "platform/host.h"
#include "platform/owners.h"
#include "text/unicode.h"
#include "varnelctl/commands/command.h"
#include "varnelctl/console/json.h"
#include "varnelctl/console/text.h"
#include "varnelctl/vss_object.h"

namespace varnelctl {
namespace {

using varnel::ComPtr;
using varnel::CurrentHost;
using varnel::WideToUtf8Lossy;

struct Provider {
  GUID id{};
  std::wstring name;
  VSS_PROVIDER_TYPE type = VSS_PROV_UNKNOWN;
  std::wstring version;

  bool IsArrayProvider() const { return id == CVarnel::TesselVssProviderID; }
};

std::wstring TextOf(const wchar_t* text) {
  return text == nullptr ? std::wstring() : std::wstring(text);
}

std::vector<Provider> ReadProviders() {
  ComPtr<IVssAdmin> admin;
  const HRESULT hr = CurrentHost().vss().CoCreateInstance(varnel::kClsidVssCoordinator, nullptr, CLSCTX_ALL,
                                                          varnel::kIidVssAdmin, reinterpret_cast<void**>(admin.Put()));
  CheckCall("CoCreateInstance(CLSID_VSSCoordinator)", varnel::Delivered(hr, admin));
  ComPtr<IVssEnumObject> list;
  CheckCall("IVssAdmin::QueryProviders", admin->QueryProviders(list.Put()));
  std::vector<Provider> providers;
  if (!list) return providers;
  ForEachVssObject(*list, [&](const varnel::VssObject& object) {
    const VSS_PROVIDER_PROP* properties = object.provider();
    if (properties == nullptr) return;
    providers.push_back({properties->m_ProviderId, TextOf(properties->m_pwszProviderName), properties->m_eProviderType,
                         TextOf(properties->m_pwszProviderVersion)});
  });
  return providers;
}

const char* NameOf(VSS_PROVIDER_TYPE type) {
  switch (type) {
    case VSS_PROV_SYSTEM:
      return "system";
    case VSS_PROV_SOFTWARE:
      return "software";
    case VSS_PROV_HARDWARE:
      return "hardware";
    case VSS_PROV_FILESHARE:
      return "fileshare";
    default:
      return "unknown";
  }
}

Json ProviderJson(const Provider& provider) {
  return {{"id", WideToUtf8Lossy(varnel::FormatGuid(provider.id))},
          {"name", WideToUtf8Lossy(provider.name)},
          {"type", NameOf(provider.type)},
          {"version", WideToUtf8Lossy(provider.version)},
          {"isArrayProvider", provider.IsArrayProvider()}};
}

void Print(Console& console, const std::vector<Provider>& providers, bool arrayProviderPresent) {
  for (const Provider& provider : providers) {
    console.Line(Printable(provider.name) + (provider.IsArrayProvider() ? "  (the array's own)" : ""));
    console.Line("  id       " + WideToUtf8Lossy(varnel::FormatGuid(provider.id)));
    console.Line("  type     " + std::string(NameOf(provider.type)));
    console.Line("  version  " + Printable(provider.version));
    console.Line("");
  }
  console.Line(Counted(providers.size(), "provider") + "; the array's own is " +
               (arrayProviderPresent ? "registered." : "NOT registered."));
}

class ProvidersCommand final : public Command {
 public:
  const char* name() const override { return "providers"; }
  const char* description() const override {
    return "Show the registered VSS providers and whether the array's own is there";
  }
  const char* examples() const override {
    return "  varnelctl providers\n  varnelctl providers --json --host host.json\n";
  }
  ExitStatus Run(Session& session) override {
    const std::vector<Provider> providers = ReadProviders();
    const bool arrayProviderPresent = std::any_of(providers.begin(), providers.end(),
                                                  [](const Provider& provider) { return provider.IsArrayProvider(); });
    if (session.json) {
      session.console.Document(
          {{"providers", ArrayOf(providers, ProviderJson)}, {"arrayProviderPresent", arrayProviderPresent}});
    } else {
      Print(session.console, providers, arrayProviderPresent);
    }
    return ExitStatus::Done;
  }
};

}  // namespace

std::unique_ptr<Command> MakeProvidersCommand() {
  return std::make_unique<ProvidersCommand>();
}

}  // namespace varnelctl
