#include "varnelctl/session.h"

#include "varnelctl/console/text.h"

namespace varnelctl {

ExitStatus Session::Report(const Failure& failure) {
  if (!failure.quiet || !failure.details.empty()) console.Error(failure.message);
  for (const std::string& detail : failure.details) console.Detail("  " + detail);
  console.Detail(FromLibrary(errorDetails));
  return failure.status;
}

ExitStatus Session::ReportUndone(const std::string& what, ExitStatus status) {
  console.Error(what);
  undone_.push_back(what);
  return status == ExitStatus::Done ? ExitStatus::NotAllDone : status;
}

ExitStatus Session::ReportOutcome(const Failure& failure) {
  console.Flush();  // on a terminal everything in its order
  if (failure.status != ExitStatus::Done) return Report(failure);
  console.Warning(failure.message);
  for (const std::string& detail : failure.details) console.Detail("  " + detail);
  return ExitStatus::Done;
}

}  // namespace varnelctl
