// The host that a command asks: the one of a host file, this machine, or the built-in sample.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "platform/host.h"
#include "simulator/simulated_host.h"
#include "simulator/vss/snapshot_service.h"
#include "varnelctl/machine_session.h"

namespace varnelctl {

/// Makes the host current for its own lifetime. Objects of the host must be gone before this one.
class TargetHost {
 public:
  /// With a host file the simulated host that it describes (throws simulator::HostFileError), which keeps its state in
  /// the state file if there is one (throws simulator::StateFileError); else the current host, which is this machine
  /// unless another is installed; else the sample host.
  /// \param fitness of this process for this machine.
  TargetHost(const std::optional<std::string>& hostFile, const std::optional<std::string>& stateFile,
             Fitness fitness = Fitness::Required);
  TargetHost(const TargetHost&) = delete;
  TargetHost& operator=(const TargetHost&) = delete;

  /// Where requests on this host are remembered; nothing for a simulated host that ends with its process, and for a
  /// host that was installed before.
  const std::optional<std::filesystem::path>& journalFolder() const { return journalFolder_; }
  /// The call log of a simulated host that this object made, else null.
  const varnel::simulator::CallLog* calls() { return simulated_ ? &simulated_->calls() : nullptr; }
  /// What the writers of such a host were told, else null.
  const std::vector<varnel::simulator::RaisedEvent>* writerEvents();
  /// The lock of its requests: a simulated host that only this process has needs none, nor does another's host.
  const std::string& requestLock() const { return requestLock_; }

 private:
  void Simulate(varnel::simulator::HostModel model);

  std::string requestLock_;  // empty for none
  std::optional<MachineSession> machine_;
  std::optional<varnel::simulator::SimulatedHost> simulated_;
  std::optional<varnel::ScopedHost> current_;
  std::optional<std::filesystem::path> journalFolder_;
};

}  // namespace varnelctl
