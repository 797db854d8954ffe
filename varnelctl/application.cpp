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

std::string_view MissingWriterAdvice(Application application) {
  switch (application) {
    case Application::Sql:
      return "SQL Server is missing: no SqlServerWriter answered. Is the service \"SQL Server VSS Writer\" (SQLWriter) "
             "stopped? Start it; varnelctl writers then lists the writer";
    case Application::Exchange:
      return "Exchange is missing: no Microsoft Exchange Writer answered. Is the service \"Microsoft Exchange "
             "Replication\" (MSExchangeRepl) or \"Microsoft Exchange Information Store\" (MSExchangeIS) stopped? Start "
             "it; varnelctl writers then lists the writer";
    case Application::HyperV:
      return "Hyper-V is missing: no Microsoft Hyper-V VSS Writer answered. Is the service \"Hyper-V Virtual Machine "
             "Management\" (vmms) stopped? Start it; varnelctl writers then lists the writer";
    case Application::None:
      break;
  }
  return "no writer of any application answered. Is the service \"COM+ Event System\" (EventSystem) stopped? Start it; "
         "varnelctl writers then lists the writers";
}

}  // namespace varnelctl
