// Host files from anywhere: each is read or refused with a HostFileError that names the file. On a host that was read a
// request for all of its disks ends in one of the ways that the library promises, and leaves nothing behind.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "platform/tessel/TesselCommonClasses.h"
#include "simulator/simulated_host.h"
#include "simulator/vss/backup_document.h"
#include "tests/support/snapshot_request.h"
#include "text/guid.h"
#include "text/unicode.h"

namespace {

using namespace varnel::simulator;
using varnel::fuzz::Require;
using varnel::test::Outcome;
using varnel::test::OutcomeOf;

std::optional<HostModel> Read(std::string_view json) {
  try {
    return ParseHostFile(json, "fuzz.json", "no-such-directory");
  } catch (const HostFileError& error) {
    Require(std::string_view(error.what()).starts_with("fuzz.json: "), "an error names the file");
    return std::nullopt;
  }
}

// The common classes' exception passes through the library; nothing else but its own failures does.
template <class Action>
Outcome Attempt(Action action) {
  try {
    return OutcomeOf(action);
  } catch (const TesselCommonClasses::ExceptionCommon& exception) {
    return Outcome::Thrown(static_cast<HRESULT>(exception.GetErrorCode()));
  }
}

bool HasKnownCode(const Outcome& outcome) {
  switch (outcome.alertCode) {
    case VarnelException::None:
    case VarnelException::WriterFailure:
    case VarnelException::PartialSuccess:
    case VarnelException::ConfigurationError:
    case VarnelException::ExtraVolumes:
      return true;
    default:
      return false;
  }
}

// What a request that returned has to show.
void CheckSet(const CVarnel& requestor) {
  Require(varnel::TryParseGuid<GUID>(std::wstring_view(requestor.GetSnapShotSetId())).has_value(),
          "the set has an identifier");
  Require(!requestor.GetSnapshotVolumes().empty(), "the set has a volume");
  try {
    ParseBackupDocument(varnel::WideToUtf8(requestor.GetBackupDocument()));
  } catch (const DocumentError&) {
    Require(false, "the set's document can be read");
  }
}

void TakeSnapshot(const std::vector<std::wstring>& disks) {
  varnel::test::SnapshotRequest request({disks, 0, 0});
  std::size_t written = request.details().size();
  const auto attempt = [&](auto action) {
    Outcome outcome = Attempt(action);
    Require(HasKnownCode(outcome), "an exception carries an alert code");
    Require(request.details().size() >= written, "error details are only added to");
    written = request.details().size();
    return outcome;
  };
  const Outcome outcome = attempt([&] {
    request.Start();
    request.requestor.CreateVssSnapshotSet(request.details());
  });
  if (outcome == Outcome::Returned()) CheckSet(request.requestor);
  attempt([&] { request.requestor.DisconnectSnapshotLuns(request.details()); });
  attempt([&] { request.requestor.SetBackupStatus(varnel::test::StatusCode(outcome), request.details()); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::optional<HostModel> model = Read(std::string_view(reinterpret_cast<const char*>(data), size));
  if (!model) return 0;
  std::vector<std::wstring> disks;
  for (const Disk& disk : model->disks) disks.push_back(disk.serial);
  if (disks.empty()) disks = {L"no such disk"};
  SimulatedHost host(*model);
  host.faults().EndHangs();
  const varnel::ScopedHost current(host);
  TakeSnapshot(disks);
  Require(host.live().Count() == 0, "nothing is live after the requestor");
  Require(host.live().misuses().empty(), "nothing was given back wrongly");
  return 0;
}
