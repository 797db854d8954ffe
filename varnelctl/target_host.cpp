#include "varnelctl/target_host.h"

#include "varnelctl/console/text.h"
#include "varnelctl/sets/journal.h"
#include "varnelctl/sets/request_lock.h"

namespace varnelctl {

TargetHost::TargetHost(const std::optional<std::string>& hostFile, const std::optional<std::string>& stateFile,
                       Fitness fitness) {
  varnel::Host* const current = varnel::CurrentHostOrNull();
  if (hostFile) {
    Simulate(varnel::simulator::LoadHostFile(PathOf(*hostFile)));
    if (!stateFile) return;
    simulated_->KeepStateIn(PathOf(*stateFile));
    journalFolder_ = std::filesystem::absolute(PathOf(*stateFile)) += ".sets";
    requestLock_ = RequestLockOfState(*stateFile);
  } else if (current == nullptr) {
    Simulate(varnel::simulator::SampleHost());
  } else if (current == varnel::MachineHost()) {
    machine_.emplace(fitness);
    journalFolder_ = DefaultJournalFolder();
    requestLock_ = RequestLockOfMachine();
  }
}

const std::vector<varnel::simulator::RaisedEvent>* TargetHost::writerEvents() {
  return simulated_ ? &simulated_->machine().snapshots->raisedEvents : nullptr;
}

void TargetHost::Simulate(varnel::simulator::HostModel model) {
  simulated_.emplace(std::move(model));
  current_.emplace(*simulated_);
}

}  // namespace varnelctl
