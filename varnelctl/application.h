// The applications that a snapshot can be consistent for.
#pragma once

#include <memory>

#include "core/varnel.h"

namespace varnelctl {

enum class Application {
  None,  ///< none in particular: every writer takes part
  Sql,
  Exchange,
  HyperV,
};

/// The application's requestor. \param testPoints as for CVarnel. \param skipDbVerification is Exchange's alone.
std::unique_ptr<CVarnel> MakeRequestor(Application application, DWORD testPoints, bool skipDbVerification);

}  // namespace varnelctl
