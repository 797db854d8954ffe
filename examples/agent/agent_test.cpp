// The agent's own tests, each on a simulated host of its own: agent_test HOST.json CASE
#include <cstdio>
#include <exception>
#include <functional>
#include <map>
#include <string>

#include "core/exception.h"
#include "simulator/simulated_host.h"
#include "take_snapshot.h"

namespace {

using varnel::simulator::SimulatedHost;

bool Check(bool holds, const char* claim, const SnapshotResult& result) {
  if (!holds) {
    std::printf("not so: %s\noutcome %d (0x%08x)\n%s%s\n", claim, result.outcome, static_cast<unsigned>(result.outcome),
                result.trouble.c_str(), result.alertRecords.c_str());
  }
  return holds;
}

// The whole result of a request that failed so: nothing of its set is left.
bool FailsWith(int outcome, SimulatedHost& host, const std::vector<std::wstring>& disks) {
  const SnapshotResult result = TakeSnapshot(disks);
  return Check(result.outcome == outcome, "the failure has its outcome", result) &&
         Check(!result.trouble.empty(), "the failure is told", result) &&
         Check(host.live().Count() == 0, "nothing is held at the host", result);
}

bool Taken(SimulatedHost& host) {
  const SnapshotResult result = TakeSnapshot({L"TSL0001", L"TSL0002"});
  return Check(result.outcome == 0 && result.trouble.empty(), "the set is taken", result) &&
         Check(result.setId.size() == 38, "it has an identifier", result) &&
         Check(host.calls().Of("IVssBackupComponents::BackupComplete").size() == 1, "the writers are told", result) &&
         Check(host.live().Count() == 0, "nothing is held at the host", result);
}

bool ProviderFails(SimulatedHost& host) {
  host.faults().FailCall("IVssBackupComponents::AddToSnapshotSet", static_cast<DWORD>(VSS_E_PROVIDER_VETO));
  return FailsWith(VSS_E_PROVIDER_VETO, host, {L"TSL0001", L"TSL0002"});
}

bool WriterFails(SimulatedHost& host) {
  varnel::simulator::WriterFault fault;
  fault.writer = L"SqlServerWriter";
  fault.failure = VSS_E_WRITERERROR_TIMEOUT;
  host.faults().FailWriter(fault);  // as it freezes
  return FailsWith(VarnelException::WriterFailure, host, {L"TSL0001", L"TSL0002"});
}

bool DiskTooMany(SimulatedHost& host) {
  return FailsWith(VarnelException::ExtraVolumes, host, {L"TSL0001", L"TSL0002", L"TSL0003"});
}

bool NothingEligible(SimulatedHost& host) {
  return FailsWith(VarnelException::ConfigurationError, host, {L"TSL0003"});
}

bool NoDisks(SimulatedHost& host) {
  return FailsWith(E_INVALIDARG, host, {});
}

bool DisksCannotBeTold(SimulatedHost& host) {
  host.faults().FailCall("GetSystemDirectoryW", ERROR_ACCESS_DENIED);
  return FailsWith(-1, host, {L"TSL0001", L"TSL0002"});
}

int RunCase(const char* hostFile, const std::string& name) {
  static const std::map<std::string, std::function<bool(SimulatedHost&)>> cases = {
      {"taken", Taken},
      {"provider_fails", ProviderFails},
      {"writer_fails", WriterFails},
      {"disk_too_many", DiskTooMany},
      {"nothing_eligible", NothingEligible},
      {"no_disks", NoDisks},
      {"disks_cannot_be_told", DisksCannotBeTold},
  };
  SimulatedHost host(varnel::simulator::LoadHostFile(hostFile));
  const varnel::ScopedHost current(host);
  return cases.at(name)(host) ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  try {
    return RunCase(argv[1], argv[2]);
  } catch (const std::exception& error) {  // a host file that cannot be used says where and why
    std::printf("%s\n", error.what());
    return 2;
  }
}
