#include "varnelctl/session.h"

#include "varnelctl/console/text.h"

namespace varnelctl {

const Header& Session::TellHeader(std::optional<RequestedSet> request) {
  if (!document.header()) document.Begin(ReadHeader(arguments_, std::move(request)));
  return *document.header();
}

void Session::Warn(const Warning& warning) {
  console.Warning(warning.text);
  document.Warn(warning);
}

ExitStatus Session::Report(const Failure& failure) {
  if (!failure.quiet || !failure.details.empty()) console.Error(failure.message);
  for (const std::string& detail : failure.details) console.Detail("  " + detail);
  const std::string records = FromLibrary(errorDetails);
  console.Detail(records);
  document.Fail(failure, records);
  return failure.status;
}

ExitStatus Session::ReportUndone(const std::string& what, ExitStatus status) {
  console.Error(what);
  undone_.push_back(what);
  Failure failure;
  failure.status = status == ExitStatus::Done ? ExitStatus::NotAllDone : status;
  failure.message = what;
  document.Fail(failure, {});
  return failure.status;
}

ExitStatus Session::ReportOutcome(const Failure& failure) {
  console.Flush();  // on a terminal everything in its order
  if (failure.status != ExitStatus::Done) return Report(failure);
  Warn({"extraVolumesAccepted", failure.message});  // nothing else is told of a success
  for (const std::string& detail : failure.details) console.Detail("  " + detail);
  return ExitStatus::Done;
}

}  // namespace varnelctl
