#include "varnelctl/console/phases.h"

#include "platform/host.h"

namespace varnelctl {

Phases::Phases(Session& session, PhaseListener& listener)
    : session_(session),
      listener_(listener),
      interruption_(session.watchInterruption ? session.watchInterruption() : nullptr) {}

void Phases::Run(const std::string& name, const std::function<void()>& action) {
  ThrowIfInterrupted();
  RunAnyway(name, action);
}

void Phases::RunAnyway(const std::string& name, const std::function<void()>& action) {
  varnel::Time& time = varnel::CurrentHost().time();
  const ULONGLONG start = time.GetTickCount64();
  listener_.Started(name);
  const auto end = [&](bool succeeded) {
    list_.push_back({name, time.GetTickCount64() - start});
    listener_.Ended(list_.back(), succeeded);
  };
  try {
    session_.Ask(name, action);
  } catch (...) {
    end(false);
    throw;
  }
  end(true);
}

void Phases::ThrowIfInterrupted() const {
  if (interruption_ == nullptr || !interruption_->Requested()) return;
  throw Interrupted(list_.empty() ? "interrupted before anything was done" : "interrupted after " + list_.back().name);
}

}  // namespace varnelctl
