// A Windows host in memory. It enforces the service's own rules, counts what it hands out, records every call and fails
// any of them on demand.
#pragma once

#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>

#include "platform/host.h"
#include "simulator/machine/machine.h"
#include "simulator/machine/model.h"

namespace varnel::simulator {

/// A host file that cannot be used: what() is "FILE: JSON-POINTER: reason" in UTF-8.
class HostFileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Reads a host file and the writer documents that it names (relative to it). Throws HostFileError.
HostModel LoadHostFile(const std::filesystem::path& path);
/// The same from text; `name` stands for the file in errors, documents are looked up in `directory`.
HostModel ParseHostFile(std::string_view json, const std::string& name, const std::filesystem::path& directory);

/// The sample host that varnelctl uses when no host file is named.
HostModel SampleHost();

class KernelObjects;

/// Any thread may call it; install it and change its model, fault plan and logs while no other thread does.
class SimulatedHost final : public Host {
 public:
  /// A host as the model says, with nothing done on it yet.
  explicit SimulatedHost(HostModel model);
  /// Ends what hangs, and waits until the calls that hung are over.
  ~SimulatedHost() override;

  /// As varnel::Host says.
  ///@{
  VssService& vss() override { return *vss_; }
  Storage& storage() override { return *storage_; }
  Processes& processes() override { return *processes_; }
  Registry& registry() override { return *registry_; }
  SystemInformation& system() override { return *system_; }
  Messages& messages() override { return *messages_; }
  IscsiInitiator& iscsi() override { return *iscsi_; }
  Cluster& cluster() override { return *cluster_; }
  WmiDisks& wmi() override { return *wmi_; }
  FileVersions& files() override { return *files_; }
  Heap& heap() override { return *heap_; }
  Time& time() override { return *time_; }
  MetadataService& metadata() override { return *metadata_; }
  EventLog& eventLog() override { return *eventLog_; }
  ServiceManager& services() override { return *services_; }
  ProcessSecurity& security() override { return *security_; }
  VolumeSpace& space() override { return *space_; }
  DWORD GetLastError() override { return machine_->lastError; }
  ///@}

  /// For changes that are made before the next call.
  HostModel& model() { return machine_->ChangeModel(); }
  /// Shares the state with every process that names this file, from now on. Throws StateFileError.
  void KeepStateIn(const std::filesystem::path& file);
  /// What is to fail.
  FaultPlan& faults() { return machine_->faults; }
  /// What was called.
  CallLog& calls() { return machine_->calls; }
  /// What was handed out and not given back.
  LiveObjects& live() { return machine_->live; }
  /// The parts of the host, for tests that look into it.
  Machine& machine() { return *machine_; }

 private:
  std::shared_ptr<Machine> machine_;
  std::unique_ptr<KernelObjects> objects_;
  std::unique_ptr<VssService> vss_;
  std::unique_ptr<Storage> storage_;
  std::unique_ptr<Processes> processes_;
  std::unique_ptr<Registry> registry_;
  std::unique_ptr<SystemInformation> system_;
  std::unique_ptr<Messages> messages_;
  std::unique_ptr<IscsiInitiator> iscsi_;
  std::unique_ptr<Cluster> cluster_;
  std::unique_ptr<WmiDisks> wmi_;
  std::unique_ptr<FileVersions> files_;
  std::unique_ptr<Heap> heap_;
  std::unique_ptr<Time> time_;
  std::unique_ptr<MetadataService> metadata_;
  std::unique_ptr<EventLog> eventLog_;
  std::unique_ptr<ServiceManager> services_;
  std::unique_ptr<ProcessSecurity> security_;
  std::unique_ptr<VolumeSpace> space_;
};

}  // namespace varnel::simulator
