#include "simulator/services/simulated_metadata.h"

#include "simulator/services/on_machine.h"
#include "text/ascii_case.h"
#include "text/unicode.h"

namespace varnel::simulator {
namespace {

class SimulatedMetadataService final : public OnMachine<MetadataService> {
 public:
  using OnMachine::OnMachine;

  bool FindDatabasesToQuiesce(const std::string& serialNumber, std::string& databases, std::string& error) override {
    const HRESULT result =
        Call(machine_, "MetadataService::FindDatabasesToQuiesce", Arguments(serialNumber), [&]() -> HRESULT {
          const auto found = model().databases.find(Utf8ToWideLossy(serialNumber));
          if (found == model().databases.end()) return S_FALSE;
          databases = Show(found->second);
          return S_OK;
        });
    if (result == S_OK) return true;
    error = result == S_FALSE ? "No protection set holds the disk " + serialNumber
                              : "The metadata service failed: " + ResultName(result);
    return false;
  }

  std::string GetClusterName(const std::string& name) override {
    std::string networkName;
    const HRESULT result = Call(machine_, "MetadataService::GetClusterName", Arguments(name), [&]() -> HRESULT {
      if (!model().cluster) return S_FALSE;
      for (const auto& [known, network] : model().cluster->networkNames) {
        if (!ascii::EqualIgnoringCase(known, Utf8ToWideLossy(name))) continue;
        networkName = Show(network);
        return S_OK;
      }
      return S_FALSE;
    });
    if (result == S_OK) return networkName;
    throw std::runtime_error("the cluster has no network name for " + name);
  }
};

}  // namespace

std::unique_ptr<MetadataService> MakeMetadataService(Machine& machine) {
  return std::make_unique<SimulatedMetadataService>(machine);
}

}  // namespace varnel::simulator
