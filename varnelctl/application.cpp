#include "varnelctl/application.h"

#include "requestors/ExchReq.h"
#include "requestors/HyperVReq.h"
#include "requestors/SqlReq.h"

namespace varnelctl {

std::unique_ptr<CVarnel> MakeRequestor(const SnapshotOptions& options) {
  switch (options.application) {
    case Application::Sql:
      return std::make_unique<SqlReq>(options.testPoints);
    case Application::Exchange: {
      auto requestor = std::make_unique<ExchangeReq>(options.testPoints);
      if (options.skipDbVerification) requestor->SetSkipDBVerification();
      return requestor;
    }
    case Application::HyperV:
      return std::make_unique<HyperVReq>(options.testPoints);
    case Application::None:
      break;
  }
  return std::make_unique<CVarnel>(options.testPoints);
}

}  // namespace varnelctl
