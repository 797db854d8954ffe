#include "varnelctl/session.h"

namespace varnelctl {

ExitStatus Session::Report(const Failure& failure) {
  console.Error(failure.message);
  for (const std::string& detail : failure.details) console.Detail("  " + detail);
  console.Detail(errorDetails);
  return failure.status;
}

}  // namespace varnelctl
