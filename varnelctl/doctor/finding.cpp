#include "varnelctl/doctor/finding.h"

#include <utility>

#include "varnelctl/explanation/advice.h"
#include "varnelctl/explanation/next_step.h"

namespace varnelctl {
namespace {

Finding Advised(Finding finding, Failure failure) {
  Advise(failure, {});
  finding.explain = std::move(failure.explain);
  finding.remedy = std::move(failure.remedy);
  finding.code = failure.hresult;
  return finding;
}

}  // namespace

const char* WordFor(Severity severity) {
  switch (severity) {
    case Severity::Error:
      return "error";
    case Severity::Warning:
      return "warning";
    case Severity::Note:
      break;
  }
  return "note";
}

Finding Found(Severity severity, std::string object, std::string found, std::string wanted, std::string_view key) {
  const Advice& advice = *FindAdvice(key);
  return {
      severity, std::move(object), std::move(found), std::move(wanted), std::string(key), std::string(advice.remedy),
      {}};
}

Finding FoundCode(Severity severity, std::string object, std::string found, std::string wanted, HRESULT code) {
  Failure failure;
  failure.hresult = code;
  return Advised({severity, std::move(object), std::move(found), std::move(wanted), {}, {}, {}}, std::move(failure));
}

Finding NotAsked(std::string object, std::string_view call) {
  Failure failure = DescribeFailure(std::current_exception(), call);
  std::string found = "could not be asked: " + failure.message;
  return Advised({Severity::Warning, std::move(object), std::move(found), {}, {}, {}, {}}, std::move(failure));
}

}  // namespace varnelctl
