#include "varnelctl/session.h"

#include "varnelctl/console/text.h"
#include "varnelctl/explanation/next_step.h"

namespace varnelctl {
namespace {

void PrintLines(Console& console, std::string_view remedy, std::string_view key) {
  if (!remedy.empty()) console.Detail("  what to do: " + std::string(remedy));
  console.Detail("  next: varnelctl explain " + std::string(key));
}

}  // namespace

const Header& Session::TellHeader(std::optional<RequestedSet> request) {
  if (!document.header()) document.Begin(ReadHeader(arguments_, std::move(request)));
  return *document.header();
}

void Session::Warn(const Warning& warning) {
  console.Warning(warning.text);
  document.Warn(warning);
}

ExitStatus Session::Report(Failure failure) {
  if (failure.remedy.empty()) Advise(failure, errorDetails);
  const bool isTold = !failure.quiet || !failure.details.empty();
  if (isTold) console.Error(failure.message);
  for (const std::string& detail : failure.details) console.Detail("  " + detail);
  const std::string records = FromLibrary(errorDetails);
  if (isTold) console.Detail(records);
  // The message of a usage error says itself what to do.
  if (isTold) PrintLines(console, failure.status == ExitStatus::Usage ? "" : failure.remedy, failure.explain);
  document.Fail(failure, records);
  return failure.status;
}

ExitStatus Session::ReportUndone(const std::string& what, ExitStatus status) {
  console.Error(what);
  undone_.push_back(what);
  Failure failure;
  failure.status = status == ExitStatus::Done ? ExitStatus::NotAllDone : status;
  failure.message = what;
  failure.explain = advice::kOutputLost;
  Advise(failure, {});
  PrintLines(console, failure.remedy, failure.explain);
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

void PrintNextStep(Console& console, const Advice& advice) {
  PrintLines(console, advice.remedy, advice.Key());
}

}  // namespace varnelctl
