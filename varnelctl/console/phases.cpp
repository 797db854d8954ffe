#include "varnelctl/console/phases.h"

#include "platform/host.h"
#include "text/format.h"

namespace varnelctl {

Phases::Phases(Session& session)
    : session_(session), interruption_(session.watchInterruption ? session.watchInterruption() : nullptr) {}

void Phases::Run(const std::string& name, const std::function<void()>& action) {
  ThrowIfInterrupted();
  RunAnyway(name, action);
}

void Phases::RunAnyway(const std::string& name, const std::function<void()>& action) {
  const ULONGLONG start = varnel::CurrentHost().time().GetTickCount64();
  if (!session_.json) session_.console.Live(name + " ...");
  try {
    session_.Ask(name, action);
  } catch (...) {
    End(name, start, ": failed");
    throw;
  }
  End(name, start, ": done");
}

void Phases::End(const std::string& name, unsigned long long start, const char* result) {
  const unsigned long long milliseconds = varnel::CurrentHost().time().GetTickCount64() - start;
  list_.push_back({name, milliseconds});
  if (!session_.json) session_.console.EndLive(name + result + varnel::FormatNarrow(" (%u ms)", {milliseconds}));
}

void Phases::ThrowIfInterrupted() const {
  if (interruption_ == nullptr || !interruption_->Requested()) return;
  throw Interrupted(list_.empty() ? "interrupted before anything was done" : "interrupted after " + list_.back().name);
}

}  // namespace varnelctl
