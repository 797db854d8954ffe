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

class SimulatedHost final : public Host {
 public:
  explicit SimulatedHost(HostModel model);
  ~SimulatedHost() override;

  VssService& vss() override;
  Storage& storage() override;
  Processes& processes() override;
  Registry& registry() override;
  SystemInformation& system() override;
  Messages& messages() override;
  IscsiInitiator& iscsi() override;
  Cluster& cluster() override;
  WmiDisks& wmi() override;
  FileVersions& files() override;
  Heap& heap() override;
  Time& time() override;
  MetadataService& metadata() override;
  DWORD GetLastError() override;

  /// For changes between calls.
  HostModel& model();
  FaultPlan& faults() { return machine_->faults; }
  CallLog& calls() { return machine_->calls; }
  LiveObjects& live() { return machine_->live; }
  Machine& machine() { return *machine_; }

 private:
  struct Services;
  std::shared_ptr<Machine> machine_;
  std::unique_ptr<Services> services_;
};

}  // namespace varnel::simulator
