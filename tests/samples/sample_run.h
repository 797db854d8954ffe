// A sample host of examples/hosts as the current host, and a request on it in the host agent's order of calls.
#pragma once

#include <filesystem>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "core/varnel.h"
#include "simulator/simulated_host.h"
#include "simulator/vss/snapshot_service.h"
#include "tests/support/applications.h"
#include "tests/support/disk_volumes.h"
#include "tests/support/host_fixture.h"
#include "tests/support/snapshot_request.h"

namespace varnel::test {

inline std::filesystem::path SampleFolder() {
  return std::filesystem::path(VARNEL_EXAMPLES) / "hosts";
}

struct AgentOptions {
  std::vector<std::wstring> disks;
  int writerCode = 0;
  bool verify = false;
  bool disconnect = false;  ///< when the request got through
};

/// A whole request: validation, presence, the set, what it holds, the verification, the completion.
template <class Requestor>
class AgentRun {
 public:
  explicit AgentRun(AgentOptions runOptions) : options(std::move(runOptions)) {
    requestor.SetDiskAndVolumeEnumeratorObj(&enumerator_);
    if (IsRefused()) return;
    providerPresent = requestor.IsTesselVSSProviderPresent();
    writerPresent = requestor.IsWriterPresent(details_);
    const std::string requestText = "writer=" + std::to_string(options.writerCode) + ",";
    details_ = requestText;
    requestTextLength_ = requestText.size();
    outcome = Take();
    completion = OutcomeOf([&] { requestor.SetBackupStatus(StatusCode(outcome), details_); });
    if (options.disconnect && (outcome.alertCode == 601 || outcome == Outcome::Returned())) {
      requestor.DisconnectSnapshotLuns(details_);
    }
  }

  /// The alert records of the whole request.
  std::string alerts() const { return details_.substr(requestTextLength_); }

  const AgentOptions options;
  Requestor requestor{0};
  DWORD refusal = 0;       ///< the catalog id of a validation that ended the request before it began
  std::string statusWord;  ///< of ValidateVolumes
  bool providerPresent = false;
  bool writerPresent = false;
  Outcome outcome;
  Outcome completion;
  std::vector<std::string> catalogue;
  std::string databases;

 private:
  bool IsRefused() {
    refusal = requestor.ValidateHostConfiguration(details_);
    if (refusal != 0) return true;
    const std::vector<std::string> volumes = VolumesOn(enumerator_, options.disks);
    std::vector<std::string> serialNumbers;
    for (const std::wstring& disk : options.disks) serialNumbers.push_back(WideToUtf8Lossy(disk));
    refusal = requestor.ValidateVolumes(volumes, statusWord, details_, serialNumbers, "");
    return refusal != 0;
  }

  // How the request ended before its completion. A set that got through with messages is catalogued and verified too.
  Outcome Take() {
    const Outcome created = OutcomeOf([&] {
      requestor.SetInputDriveSerialNos(options.disks);
      requestor.Initialize(0, L"", false, VSS_BT_FULL, details_, &enumerator_);
      requestor.CreateVssSnapshotSet(details_);
    });
    if (created.thrown || (created.alertCode != 0 && created.alertCode != 601 && created.alertCode != 701)) {
      return created;
    }
    catalogue = CatalogueLines(requestor);
    databases = requestor.getSuccesfulDBList();
    if (!options.verify) return created;
    const Outcome verified = OutcomeOf([&] { requestor.VerifySnapShotData(); });
    return verified == Outcome::Returned() ? created : verified;
  }

  TesselCommonClasses::DiskAndVolumeEnumerator enumerator_;
  std::string details_;
  std::size_t requestTextLength_ = 0;
};

class SampleFixture : public HostFixture {
 protected:
  void Load(const std::string& file) { Install(simulator::LoadHostFile(SampleFolder() / file)); }
  /// A request on a sample host.
  template <class Requestor>
  AgentRun<Requestor> Run(const std::string& file, AgentOptions options) {
    Load(file);
    return AgentRun<Requestor>(std::move(options));
  }

  /// The serial numbers of the shadow copies that this host has.
  std::vector<std::string> Copies() {
    std::vector<std::string> serials;
    for (const simulator::ShadowCopy* copy : host().machine().snapshots->SurfacedCopies()) {
      serials.push_back(WideToUtf8Lossy(copy->serial));
    }
    return serials;
  }
  /// No shadow copy; and the service is free for the next request, which ends as this one did.
  template <class Requestor>
  void ExpectNothingLeft(const AgentRun<Requestor>& run) {
    EXPECT_THAT(Copies(), IsEmpty());
    EXPECT_EQ(AgentRun<Requestor>(run.options).outcome, run.outcome);
  }

  /// The arguments of each call of this name.
  std::vector<std::string> ArgumentsOf(const std::string& call) {
    std::vector<std::string> arguments;
    for (const std::string& line : host().calls().Of(call)) {
      const std::size_t begin = line.find('(') + 1;
      arguments.push_back(line.substr(begin, line.rfind(')') - begin));
    }
    return arguments;
  }

  /// What the service was told of each component: `SQL01\\sales true`.
  std::vector<std::string> Reported() {
    static const std::regex component("^.*?\"(.*)\", \"(.*)\", (true|false)$");
    std::vector<std::string> reported = ArgumentsOf("IVssBackupComponents::SetBackupSucceeded");
    for (std::string& line : reported) line = std::regex_replace(line, component, "$1\\$2 $3");
    return reported;
  }
};

}  // namespace varnel::test
