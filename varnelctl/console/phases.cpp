#include "varnelctl/console/phases.h"

#include <string_view>
#include <utility>

#include "platform/host.h"
#include "text/format.h"

namespace varnelctl {
namespace {

unsigned long long Clock() {
  return varnel::CurrentHost().time().GetTickCount64();
}

}  // namespace

Phases::Phases(Session& session)
    : session_(session),
      interruption_(session.watchInterruption ? session.watchInterruption() : nullptr),
      runStart_(Clock()) {}

unsigned long long Phases::Now() const {
  return Clock() - runStart_;
}

void Phases::Run(const StepName& first, const std::function<void()>& action) {
  ThrowIfInterrupted();
  RunAnyway(first, action);
}

void Phases::RunAnyway(const StepName& first, const std::function<void()>& action) {
  const unsigned long long start = Now();
  Begin(first);
  try {
    action();
  } catch (...) {
    EndPhase(start, true);
    throw;
  }
  EndPhase(start, false);
}

void Phases::Enter(const StepName& next) {
  if (!current_ || current_->name.key == std::string_view(next.key)) return;
  End(false);
  Begin(next);
}

// What is asked of the library from now on is reported under the step's words.
void Phases::Begin(const StepName& step) {
  current_ = {step, Now()};
  std::string words = step.words;
  if (session_.verbose) words.append(" [").append(step.phase) += ']';
  session_.Begin(std::move(words));
  session_.document.Step(step.key, "started", 0);
  if (!session_.json) session_.console.Live(session_.call() + step.parts + " ...");
}

void Phases::End(bool failed) {
  Step ended = *std::exchange(current_, std::nullopt);
  ended.end = Now();
  ended.failed = failed;
  steps_.push_back(ended);
  session_.document.Step(ended.name.key, failed ? "failed" : "done", ended.end - ended.start);
  if (session_.json) return;
  session_.console.EndLive(session_.call() + ended.name.parts + (failed ? ": failed" : ": done") +
                           varnel::FormatNarrow(" (%u ms)", {ended.end - ended.start}));
}

void Phases::EndPhase(unsigned long long start, bool failed) {
  if (failed) session_.failedStep = current_->name;
  list_.push_back({current_->name.phase, Now() - start});
  End(failed);
}

void Phases::ThrowIfInterrupted() const {
  const bool abandoned = session_.console.IsAbandoned();
  if (!abandoned && (interruption_ == nullptr || !interruption_->Requested())) return;
  const std::string text = steps_.empty() ? "interrupted before anything was done"
                                          : "interrupted after " + std::string(steps_.back().name.words);
  if (abandoned) throw Abandoned(text);
  throw Interrupted(text);
}

}  // namespace varnelctl
