#include "varnelctl/sets/limits.h"

#include <algorithm>
#include <charconv>
#include <vector>

#include "text/nearest_name.h"
#include "varnelctl/explanation/failure.h"
#include "varnelctl/sets/snapshot_steps.h"

namespace varnelctl {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kGraceOfCall{10'000};
constexpr milliseconds kGraceOfCompletion{60'000};

// What people call the steps.
struct NamedStep {
  std::string_view name;
  const StepName& step;
};

constexpr NamedStep kSteps[] = {
    {"disks", step::kLookingForDisks},
    {"host", step::kCheckingHost},
    {"volumes", step::kCheckingVolumes},
    {"provider", step::kLookingForProvider},
    {"start", step::kStarting},
    {"gather", step::kGathering},
    {"select", step::kSelecting},
    {"add", step::kAdding},
    {"prepare", step::kPreparing},
    {"snapshot", step::kSnapshot},
    {"read", step::kReading},
    {"catalog", step::kCataloguing},
    {"verify", step::kVerifying},
    {"complete", step::kCompleting},
    {"break", step::kBreaking},
    {"mask", step::kMasking},
    {"delete", step::kDeleting},
    {"disconnect", step::kDisconnecting},
};

std::optional<unsigned> ReadSeconds(std::string_view text) {
  constexpr unsigned kMost = 86'400;
  unsigned seconds = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
  const bool isRead = error == std::errc() && end == text.data() + text.size();
  return isRead && seconds >= 1 && seconds <= kMost ? std::optional(seconds) : std::nullopt;
}

std::string UnknownStep(std::string_view name) {
  std::vector<std::string_view> names;
  for (const NamedStep& known : kSteps) names.insert(names.end(), {known.name, known.step.key});
  const std::string nearest = varnel::DidYouMean(name, names);
  return "there is no step \"" + std::string(name) + "\"" + (nearest.empty() ? ";" : nearest) + " the steps are " +
         DeadlineStepNames();
}

// The calls that a set is made with. InitializeForBackup is none: others than the request begin with it, too.
bool MakesSet(ServiceCall call) {
  switch (call) {
    case ServiceCall::InitializeForBackup:
    case ServiceCall::BackupComplete:
    case ServiceCall::AbortBackup:
    case ServiceCall::DeleteSnapshots:
      return false;
    default:
      return true;
  }
}

}  // namespace

std::string DeadlineStepNames() {
  std::string names;
  for (const NamedStep& known : kSteps) names.append(names.empty() ? "" : ", ").append(known.name);
  return names;
}

std::string ReadStepDeadline(std::string_view text, Deadlines& deadlines) {
  const std::size_t equals = text.find('=');
  if (equals == text.npos) return "\"" + std::string(text) + "\" is not a step and its seconds (prepare=120)";
  const std::string_view name = text.substr(0, equals);
  const auto* const found = std::find_if(std::begin(kSteps), std::end(kSteps), [&](const NamedStep& known) {
    return known.name == name || known.step.key == name;
  });
  if (found == std::end(kSteps)) return UnknownStep(name);
  const std::optional<unsigned> seconds = ReadSeconds(text.substr(equals + 1));
  if (!seconds) return "\"" + std::string(text) + "\" does not give whole seconds from 1 to 86400 (prepare=120)";
  const bool isNew =
      deadlines.ofStep.try_emplace(found->step.key, Deadlines::OfStep{std::string(name), *seconds}).second;
  return isNew ? "" : "the step \"" + std::string(name) + "\" is given two deadlines";
}

Limits::Limits(Session& session, Phases& phases, Watchdog& watchdog)
    : session_(session), phases_(phases), watchdog_(watchdog) {
  phases_.WhenStepBegins([this] { End(); });
  watchdog_.DoFirst(session_.beforeEnd);
}

// What is released after the run may hang as well.
Limits::~Limits() {
  phases_.WhenStepBegins({});
  watchdog_.Rest();
  try {
    const std::optional<Phases::Left> left = phases_.TimeLeft();
    if (!left) return;
    watchdog_.WatchAtEnd(Watchdog::Clock::now() + milliseconds(left->milliseconds), kGraceOfCompletion,
                         Words(*left, "the release of the backup does not return"));
  } catch (const std::exception&) {
    // No memory for the words.
  }
}

// Whoever goes on all the same after an operation was given up gets nothing more of the set.
bool Limits::Refuses(ServiceCall call) {
  if (!isCreating_ || !MakesSet(call)) return false;
  if (stopped_) return true;
  stopped_ = phases_.WhyToEnd();
  if (stopped_) ThrowEnding(*stopped_);
  return false;
}

bool Limits::GivesUp(unsigned long long waited) {
  if (isCreating_) {
    if (!stopped_) stopped_ = phases_.WhyToEnd();
    untold_ = stopped_;
  } else {
    untold_ = WhyToGiveUpCompletion(waited);
  }
  return untold_.has_value();
}

void Limits::Cancelled(ServiceCall operation, std::optional<HRESULT> status) {
  if (operation != ServiceCall::DoSnapshotSet) return;
  leftSet_ = status == VSS_S_ASYNC_FINISHED;
  mayLeaveSet_ = !status;
}

std::optional<Ending> Limits::WhyToGiveUpCompletion(unsigned long long waited) const {
  if (std::optional<Ending> late = phases_.WhyStepTooLate()) return late;
  if (waited < static_cast<unsigned long long>(kGraceOfCompletion.count())) return std::nullopt;
  if (stopped_) return Ending{stopped_->cause, "given up after 60 seconds " + phases_.Where()};
  return phases_.WhyRunTooLate(static_cast<unsigned>(kGraceOfCompletion.count()));
}

void Limits::ThrowReason(const std::exception_ptr& thrown) {
  const Ending reason = *std::exchange(untold_, std::nullopt);
  if (reason.cause == Ending::Cause::Abandoned) ThrowEnding(reason);
  const Failure failure = DescribeFailure(thrown, session_.call());
  if (failure.hresult == E_ABORT) ThrowEnding(reason, {"the operation was cancelled (E_ABORT, 0x80004004)"});
  ThrowEnding(reason, {failure.message});
}

// A call that ends something may take its time.
void Limits::Begin(const char* method) {
  Watch(std::string(method) + " does not return", isCreating_ ? kGraceOfCall : kGraceOfCompletion);
}

void Limits::End() {
  Watch("it does not go on", kGraceOfCompletion);
}

void Limits::Watch(std::string_view what, milliseconds grace) {
  const std::optional<Phases::Left> left = phases_.TimeLeft();
  if (!left) return watchdog_.Rest();
  const milliseconds most = milliseconds(std::max(0LL, left->milliseconds)) + grace;
  watchdog_.Watch(Watchdog::Clock::now() + most, Words(*left, what));
}

std::string Limits::Words(const Phases::Left& left, std::string_view what) const {
  return "\nvarnelctl: past the deadline of " + left.words + " " + phases_.Where() + ", and " + std::string(what) +
         ": the process ends now, with exit status 17\n"
         "  what there is of the set is left to its journal\n"
         "  what to do: varnelctl sets clean-up ends what is left of the set; then see what hangs\n"
         "  next: varnelctl explain past-deadline\n";
}

}  // namespace varnelctl
