// State files from anywhere: each is read or refused with a reason. What was read is written as it was read, and a host
// takes it: every call answers, a set can be begun or is under construction, and nothing stays behind.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "fuzz/fuzz_support.h"
#include "platform/owners.h"
#include "simulator/host_file/json_reader.h"
#include "simulator/host_file/state_document.h"
#include "simulator/machine/volumes.h"
#include "simulator/simulated_host.h"
#include "simulator/vss/snapshot_service.h"
#include "tests/support/host_model.h"

namespace {

using namespace varnel::simulator;
using varnel::fuzz::Require;

std::optional<HostState> Read(const std::string& text, const HostModel& model) {
  try {
    return ParseHostState(text, model);
  } catch (const JsonError& error) {
    Require(*error.what() != '\0', "a refusal has a reason");
    return std::nullopt;
  }
}

void UseHost(SimulatedHost& host) {
  const varnel::ScopedHost current(host);
  Require(VisibleDisks(host.machine()).size() >= host.machine().model().disks.size(), "the host keeps its disks");
  varnel::ComPtr<IVssBackupComponents> backup;
  Require(host.vss().CreateVssBackupComponents(backup.Put()) == S_OK, "there is a service");
  Require(backup->InitializeForBackup(nullptr) == S_OK, "it can be used");
  varnel::ComPtr<IVssEnumObject> copies;
  Require(SUCCEEDED(backup->Query(GUID{}, VSS_OBJECT_NONE, VSS_OBJECT_SNAPSHOT, copies.Put())), "it lists its copies");
  const bool busy = host.machine().snapshots->State().openSet.has_value();
  GUID set{};
  const HRESULT begun = backup->StartSnapshotSet(&set);
  Require(begun == S_OK || begun == VSS_E_SNAPSHOT_SET_IN_PROGRESS, "a set begins unless there is one");
  Require(!busy || begun != S_OK, "one set is under construction");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const HostModel model = varnel::test::SmallHost();
  const std::optional<HostState> state = Read(std::string(reinterpret_cast<const char*>(data), size), model);
  if (!state) return 0;
  const std::string text = FormatHostState(*state, model);
  const std::optional<HostState> again = Read(text, model);
  Require(again.has_value(), "what is written can be read");
  Require(FormatHostState(*again, model) == text, "what is read is written as it was");
  SimulatedHost host(model);
  host.machine().snapshots->SetState(state->service);
  UseHost(host);
  Require(host.live().Count() == 0, "nothing stays behind");
  return 0;
}
