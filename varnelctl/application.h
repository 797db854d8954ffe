// The applications that a snapshot can be consistent for.
#pragma once

#include <memory>
#include <string_view>

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

/// Who is missing on a host where no writer of the application answers, and what to do about it; one line of UTF-8.
std::string_view MissingWriterAdvice(Application application);

}  // namespace varnelctl
