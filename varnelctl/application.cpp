#include "varnelctl/application.h"

#include "requestors/ExchReq.h"
#include "requestors/HyperVReq.h"
#include "requestors/SqlReq.h"

namespace varnelctl {

std::unique_ptr<CVarnel> MakeRequestor(Application application, DWORD testPoints, bool skipDbVerification) {
  switch (application) {
    case Application::Sql:
      return std::make_unique<SqlReq>(testPoints);
    case Application::Exchange: {
      auto requestor = std::make_unique<ExchangeReq>(testPoints);
      if (skipDbVerification) requestor->SetSkipDBVerification();
      return requestor;
    }
    case Application::HyperV:
      return std::make_unique<HyperVReq>(testPoints);
    case Application::None:
      break;
  }
  return std::make_unique<CVarnel>(testPoints);
}

}  // namespace varnelctl
