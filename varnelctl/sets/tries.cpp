#include "varnelctl/sets/tries.h"

#include <algorithm>
#include <array>
#include <utility>

#include "platform/host.h"
#include "varnelctl/explanation/next_step.h"
#include "varnelctl/explanation/records.h"

namespace varnelctl {
namespace {

constexpr unsigned long long kSecond = 1000;

template <std::size_t n>
bool IsOneOf(const std::array<HRESULT, n>& codes, HRESULT code) {
  return std::find(codes.begin(), codes.end(), code) != codes.end();
}

bool PassesAtSnapshot(HRESULT code) {
  static constexpr std::array kCodes = {VSS_E_FLUSH_WRITES_TIMEOUT, VSS_E_HOLD_WRITES_TIMEOUT, VSS_E_PROVIDER_VETO,
                                        VSS_E_UNEXPECTED_PROVIDER_ERROR};
  return IsOneOf(kCodes, code);
}

bool PassesAtWriter(HRESULT code) {
  static constexpr std::array kCodes = {VSS_E_WRITERERROR_RETRYABLE, VSS_E_WRITERERROR_TIMEOUT,
                                        VSS_E_WRITERERROR_OUTOFRESOURCES};
  return IsOneOf(kCodes, code);
}

// Of every writer that failed.
bool HavePassingWriters(std::string_view errorDetails) {
  constexpr DWORD kFailedWriter = 2;
  bool any = false;
  for (const RecordText& record : RecordsIn(errorDetails)) {
    if (record.number != kFailedWriter) continue;
    const std::optional<HRESULT> code = CodeCalled(FieldOf(record, "WriterError"));
    if (!code || !PassesAtWriter(*code)) return false;
    any = true;
  }
  return any;
}

unsigned long long Clock() {
  return varnel::CurrentHost().time().GetTickCount64();
}

// Whole ones, of which a moment is one.
std::string Seconds(unsigned long long milliseconds) {
  return std::to_string(std::max((milliseconds + kSecond / 2) / kSecond, 1ULL)) + " s";
}

class Tries {
 public:
  Tries(Session& session, const SnapshotOptions& options)
      : session_(session), options_(options), watch_(session, options.deadlines), retriesLeft_(options.retries) {}

  TriedSnapshot Run() {
    for (;;) {
      Begin();
      auto outcome = std::make_unique<SnapshotOutcome>(options_);
      TakeSnapshot(session_, options_, *outcome);
      const std::optional<unsigned long long> pause = PauseAfter(*outcome);
      tries_.back().failure = outcome->failure;
      if (!pause || !Sleep(*pause, *outcome)) return {std::move(outcome), std::move(tries_)};
    }
  }

 private:
  // What the last try put into the session goes, but for what is told of it as one.
  void Begin() {
    session_.errorDetails.clear();
    session_.failedStep.reset();
    session_.document.ForgetWarnings(firstWarning_, lastWarning_);
    firstWarning_ = session_.document.warningCount();
    tries_.push_back({Clock() - start_, {}, {}});
  }

  // Until the next try; nothing where there is none.
  std::optional<unsigned long long> PauseAfter(SnapshotOutcome& outcome) {
    lastWarning_ = session_.document.warningCount();
    const Passing passing = PassingOf(outcome);
    if (passing != Passing::OtherBackup) othersSince_.reset();
    if (passing == Passing::No) return std::nullopt;
    if (passing == Passing::OtherBackup ? options_.waitForOthers == 0 : options_.retries == 0) return std::nullopt;
    if (!IsEnded(outcome)) {
      outcome.failure->details.emplace_back("not tried again: it is not known that nothing is left of the set");
      return std::nullopt;
    }
    return passing == Passing::OtherBackup ? PauseForOthers(*outcome.failure) : PauseForRetry(*outcome.failure);
  }

  std::optional<unsigned long long> PauseForOthers(Failure& failure) {
    const unsigned long long now = Clock();
    if (!othersSince_) {
      othersSince_ = now;
      pauses_.emplace(static_cast<std::uint32_t>(now) ^ varnel::CurrentHost().processes().GetCurrentProcessId());
    }
    const unsigned long long waited = now - *othersSince_;
    const unsigned long long most = options_.waitForOthers * kSecond;
    if (waited >= most) {
      failure.details.push_back("waited " + Seconds(waited) + " for the other backup to end (--wait-for-others)");
      return std::nullopt;
    }
    const unsigned long long pause = std::min<unsigned long long>(pauses_->Next(), most - waited);
    session_.Warn({"otherBackup", "another backup of this host is in progress; try " +
                                      std::to_string(tries_.size() + 1) + " follows in " + Seconds(pause) +
                                      " (--wait-for-others: " + Seconds(most - waited) + " left)"});
    return pause;
  }

  std::optional<unsigned long long> PauseForRetry(Failure& failure) {
    const std::size_t number = tries_.size();
    const std::size_t all = number + retriesLeft_;
    if (retriesLeft_ == 0) {
      failure.details.push_back("the last of " + std::to_string(number) + " tries (--retries)");
      return std::nullopt;
    }
    --retriesLeft_;
    const unsigned long long pause = options_.retryWait * kSecond;
    session_.Warn({"tryFailed", "try " + std::to_string(number) + " of " + std::to_string(all) +
                                    " failed: " + failure.message + "; the next one follows in " + Seconds(pause)});
    return pause;
  }

  // False after an interruption, which takes the place of the failure.
  bool Sleep(unsigned long long milliseconds, SnapshotOutcome& outcome) {
    const unsigned long long start = Clock();
    bool slept = true;
    try {
      SleepInSlices(milliseconds);
    } catch (const Interrupted&) {
      slept = false;
      const std::string earlier = std::exchange(outcome.failure, std::nullopt)->message;
      outcome.NoteFailure(session_);
      outcome.failure->details.push_back("try " + std::to_string(tries_.size()) + " failed: " + earlier);
      Advise(*outcome.failure, {});
    }
    tries_.back().pause = Clock() - start;
    return slept;
  }

  void SleepInSlices(unsigned long long milliseconds) const {
    constexpr unsigned long long kSlice = 500;
    ThrowIfInterrupted();
    for (unsigned long long slept = 0; slept < milliseconds; slept += kSlice) {
      varnel::CurrentHost().time().Sleep(static_cast<DWORD>(std::min(kSlice, milliseconds - slept)));
      ThrowIfInterrupted();
    }
  }

  void ThrowIfInterrupted() const {
    std::optional<Ending> ending = watch_.WhyToEnd();
    if (!ending) return;
    const bool isLate = ending->cause == Ending::Cause::PastDeadline;
    ending->text =
        (isLate ? "the deadline of " + watch_.TimeLeft()->words + " passed" : "interrupted") + " before the next try";
    ThrowEnding(*ending);
  }

  Session& session_;
  const SnapshotOptions& options_;
  const Phases watch_;  // of the pauses
  const unsigned long long start_ = Clock();
  std::vector<Try> tries_;
  DWORD retriesLeft_;
  std::optional<unsigned long long> othersSince_;  // when the service was busy for the first time in a row
  std::optional<GrowingPauses> pauses_;
  std::size_t firstWarning_ = 0;  // of the last try
  std::size_t lastWarning_ = 0;
};

}  // namespace

Passing PassingOf(const SnapshotOutcome& outcome) {
  if (!outcome.failure || outcome.gotThrough) return Passing::No;
  const Failure& failure = *outcome.failure;
  if (failure.alertCode == VarnelException::WriterFailure) {
    return HavePassingWriters(outcome.errorDetails) ? Passing::Failure : Passing::No;
  }
  if (!outcome.failedCall || failure.hresult != outcome.failedCall->result) return Passing::No;
  const auto& [call, result] = *outcome.failedCall;
  // Another node of a cluster may be taking a set of a shared volume.
  const bool beginsSet = call == ServiceCall::StartSnapshotSet || call == ServiceCall::AddToSnapshotSet;
  if (beginsSet && result == VSS_E_SNAPSHOT_SET_IN_PROGRESS) return Passing::OtherBackup;
  return call == ServiceCall::DoSnapshotSet && PassesAtSnapshot(result) ? Passing::Failure : Passing::No;
}

bool IsEnded(const SnapshotOutcome& outcome) {
  const bool isGone = outcome.setState == SetState::None || outcome.setState == SetState::Deleted;
  return isGone && outcome.copiesLeft.empty();
}

DWORD GrowingPauses::Next() {
  constexpr DWORD kLongest = 60000;
  constexpr std::uint32_t kSpread = 401;  // from 800 to 1200 thousandths
  random_ = random_ * 1664525U + 1013904223U;
  const DWORD thousandths = 800 + (random_ >> 16) % kSpread;
  const DWORD pause = base_ / 1000 * thousandths;
  base_ = std::min(base_ * 2, kLongest);
  return pause;
}

TriedSnapshot TakeSnapshotInTries(Session& session, const SnapshotOptions& options) {
  return Tries(session, options).Run();
}

}  // namespace varnelctl
