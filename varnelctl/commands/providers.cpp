#include <algorithm>

#include "text/guid.h"
#include "text/unicode.h"
#include "varnelctl/commands/command.h"
#include "varnelctl/console/json.h"
#include "varnelctl/console/text.h"
#include "varnelctl/report/host_json.h"

namespace varnelctl {
namespace {

using varnel::WideToUtf8Lossy;

void Print(Console& console, const std::vector<Provider>& providers) {
  const bool arrayProviderPresent = std::any_of(providers.begin(), providers.end(),
                                                [](const Provider& provider) { return provider.IsArrayProvider(); });
  for (const Provider& provider : providers) {
    console.Line(Printable(provider.name) + (provider.IsArrayProvider() ? "  (the array's own)" : ""));
    console.Line("  id       " + WideToUtf8Lossy(varnel::FormatGuid(provider.id)));
    console.Line("  type     " + std::string(ProviderTypeName(provider.type)));
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
    if (session.json) {
      session.document.Set(name(), ProvidersJson(providers));
    } else {
      Print(session.console, providers);
    }
    return ExitStatus::Done;
  }
};

}  // namespace

std::unique_ptr<Command> MakeProvidersCommand() {
  return std::make_unique<ProvidersCommand>();
}

}  // namespace varnelctl
