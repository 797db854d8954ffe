#include <algorithm>

#include "text/guid.h"
#include "text/unicode.h"
#include "varnelctl/commands/command.h"
#include "varnelctl/console/json.h"
#include "varnelctl/console/text.h"
#include "varnelctl/providers.h"

namespace varnelctl {
namespace {

using varnel::WideToUtf8Lossy;

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
      session.document.Set(
          name(), {{"providers", ArrayOf(providers, ProviderJson)}, {"arrayProviderPresent", arrayProviderPresent}});
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
