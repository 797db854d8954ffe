#include "varnelctl/session.h"

#include "varnelctl/console/text.h"

namespace varnelctl {

ExitStatus Session::Report(const Failure& failure) {
  if (!failure.quiet || !failure.details.empty()) console.Error(failure.message);
  for (const std::string& detail : failure.details) console.Detail("  " + detail);
  console.Detail(FromLibrary(errorDetails));
  return failure.status;
}

}  // namespace varnelctl
