#include "varnelctl/console/phases.h"

#include <string_view>
#include <utility>

#include "platform/host.h"
#include "text/format.h"
#include "varnelctl/console/text.h"

namespace varnelctl {
namespace {

constexpr unsigned long long kMilliseconds = 1000;  // of a second

unsigned long long Clock() {
  return varnel::CurrentHost().time().GetTickCount64();
}

std::string Seconds(unsigned long long count) {
  return Counted(count, "second");
}

}  // namespace

void ThrowEnding(const Ending& ending, std::vector<std::string> details) {
  switch (ending.cause) {
    case Ending::Cause::Interrupted:
      break;
    case Ending::Cause::Abandoned:
      throw Abandoned(ending.text, std::move(details));
    case Ending::Cause::PastDeadline:
      throw PastDeadline(ending.text, std::move(details));
  }
  throw Interrupted(ending.text, std::move(details));
}

Phases::Phases(Session& session, Deadlines deadlines)
    : session_(session),
      deadlines_(std::move(deadlines)),
      interruption_(session.watchInterruption ? session.watchInterruption() : nullptr),
      runStart_(Clock()) {
  if (deadlines_.seconds && !session.deadline) session.deadline = runStart_ + kMilliseconds * *deadlines_.seconds;
}

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
  if (stepBegins_) stepBegins_();
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
  if (const std::optional<Ending> ending = WhyToEnd()) ThrowEnding(*ending);
}

std::optional<Ending> Phases::WhyToEnd() const {
  const bool abandoned = session_.console.IsAbandoned();
  if (abandoned || (interruption_ != nullptr && interruption_->Requested())) {
    return Ending{abandoned ? Ending::Cause::Abandoned : Ending::Cause::Interrupted, "interrupted " + Where()};
  }
  std::optional<Ending> late = WhyStepTooLate();
  return late ? late : WhyRunTooLate();
}

std::optional<Ending> Phases::WhyStepTooLate() const {
  const std::optional<Left> left = LeftOfStep();
  if (!left || left->milliseconds > 0) return std::nullopt;
  return Ending{Ending::Cause::PastDeadline, std::string(current_->name.words) + " did not end within " + left->words};
}

std::optional<Ending> Phases::WhyRunTooLate(unsigned past) const {
  const std::optional<Left> left = LeftOfRun();
  if (!left || left->milliseconds + past > 0) return std::nullopt;
  std::string text = "the deadline of " + left->words + " passed " + Where();
  if (current_) {
    text = std::string(current_->name.words) + ", under way for " + Seconds((Now() - current_->start) / kMilliseconds) +
           ", had not ended at the deadline of " + left->words;
  }
  return Ending{Ending::Cause::PastDeadline, std::move(text)};
}

std::optional<Phases::Left> Phases::TimeLeft() const {
  std::optional<Left> ofRun = LeftOfRun();
  std::optional<Left> ofStep = LeftOfStep();
  if (!ofRun || (ofStep && ofStep->milliseconds < ofRun->milliseconds)) return ofStep;
  return ofRun;
}

std::optional<Phases::Left> Phases::LeftOfRun() const {
  if (!deadlines_.seconds) return std::nullopt;
  return Left{static_cast<long long>(*session_.deadline) - static_cast<long long>(Clock()),
              Seconds(*deadlines_.seconds) + " (--deadline " + std::to_string(*deadlines_.seconds) + ")"};
}

std::optional<Phases::Left> Phases::LeftOfStep() const {
  if (!current_) return std::nullopt;
  const auto found = deadlines_.ofStep.find(current_->name.key);
  if (found == deadlines_.ofStep.end()) return std::nullopt;
  const auto& [name, seconds] = found->second;
  return Left{static_cast<long long>(current_->start + kMilliseconds * seconds) - static_cast<long long>(Now()),
              Seconds(seconds) + " (--deadline-step " + name + "=" + std::to_string(seconds) + ")"};
}

std::string Phases::Where() const {
  if (current_) return "while " + std::string(current_->name.words);
  return steps_.empty() ? "before anything was done" : "after " + std::string(steps_.back().name.words);
}

}  // namespace varnelctl
