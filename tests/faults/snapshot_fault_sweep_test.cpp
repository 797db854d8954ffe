// The call sweep over requests on a small host, their completion included: every platform call that can fail does so
// with every code. An HRESULT given to a Win32 call is just an unknown error to it; a code that is no failure makes a
// COM call succeed without doing or delivering anything. Every step is tried whatever became of the ones before it.
#include <map>

#include "tests/faults/sweep.h"

namespace varnel::test {
namespace {

constexpr DWORD kCodes[] = {
    static_cast<DWORD>(E_FAIL),
    static_cast<DWORD>(E_OUTOFMEMORY),
    static_cast<DWORD>(VSS_E_BAD_STATE),
    static_cast<DWORD>(VSS_E_UNEXPECTED_PROVIDER_ERROR),
    ERROR_ACCESS_DENIED,  // and for COM a success
    S_FALSE,
    S_OK,  // and for Win32 a failure that tells no reason
};

// More calls whose failure a request may absorb without a word.
constexpr char kIsClustered[] = ", IOCTL_DISK_IS_CLUSTERED)";  // systems without the feature do not know the question
constexpr char kExcludedFile[] = "VolumePathNameW(C:\\";       // files that are not backed up may lie anywhere
// A session that does not tell how many devices it has counts as one without any: it stays, and nobody hears of it.
constexpr char kShadowDevices[] = "GetDevicesForIScsiSessionW(iqn.2007-11.example:shadow)";

// Calls whose failure is told without its code: what cannot be found or held is named instead. Without devices a
// session is left, and the warning that it is busy is missing.
constexpr const char* kToldWithoutTheirCode[] = {"GetVolumePathNameW", "GetVolumeNameForVolumeMountPointW",
                                                 "GetIScsiSessionListW", "GetDevicesForIScsiSessionW", "malloc"};

const std::vector<Benign>& AllBenign() {
  static const std::vector<Benign> all = {{kCloseHandle}, {kFindVolumeClose}, {kFreeLibrary},  {kFreeComponentInfo},
                                          {kIsClustered}, {kExcludedFile},    {kShadowDevices}};
  return all;
}

// What a run does.
struct Scenario {
  simulator::HostModel model;
  RequestOptions options = {};
  bool partialFailures = false;
  Then then = Then::keep;
  bool disconnect = false;
};

class SnapshotFaultSweepTest : public CallSweepFixture {
 protected:
  /// A scenario whose set goes through `then`, with a session that carries the shadow copy and one that does not.
  static Scenario Maintenance(Then then) {
    Scenario scenario{.model = MailAndWebHost(), .then = then, .disconnect = true};
    scenario.model.iscsiSessions = DataAndShadowSessions(0);
    return scenario;
  }

  /// Calls from the completion on are those of another scenario before it.
  Findings SweepScenario(const Scenario& scenario, Calls calls = Calls::all) {
    const auto run = [&](const Injection& injection) {
      return scenario.partialFailures ? RunAs<PartialRequestor>(scenario, injection)
                                      : RunAs<CVarnel>(scenario, injection);
    };
    Findings findings =
        Sweep(calls, AllBenign(), run, [](const std::string&) { return std::span<const DWORD>(kCodes); });
    EXPECT_THAT(findings.renamed, testing::IsSubsetOf(kToldWithoutTheirCode));
    return findings;
  }

 private:
  template <class Requestor>
  Trial RunAs(const Scenario& scenario, const Injection& injection) {
    return RunOnce(scenario.model, injection, [&](Trial& trial) {
      SnapshotRequest<Requestor> request(scenario.options);
      RunSteps(scenario, request, trial);
      Conclude(trial, request.details(), request.probe.snapshotDone());
    });
  }

  template <class Requestor>
  void RunSteps(const Scenario& scenario, SnapshotRequest<Requestor>& request, Trial& trial) {
    CVarnel& requestor = request.requestor;
    std::string& details = request.details();
    AttemptCreation(trial, requestor, [&] {
      request.Start();
      requestor.CreateVssSnapshotSet(details);
    });
    Attempt(trial, kCatalog, [&] {
      std::map<std::string, ApplicationObjectMeatadataInfo> metadata;
      requestor.GetSnapshotMeatadata(metadata);
    });
    trial.callsBeforeCompletion = host().faults().callCount();
    Attempt(trial, kComplete, [&] { requestor.SetBackupStatus(trial.CodeSoFar(), details); });
    Attempt(trial, kMaintain, [&] { Maintain(scenario.then, requestor, details); });
    if (scenario.disconnect) Attempt(trial, kDisconnect, [&] { requestor.DisconnectSnapshotLuns(details); });
  }
};

TEST_F(SnapshotFaultSweepTest, EveryCallOfACleanRequestMayFail) {
  EXPECT_THAT(SweepScenario({.model = MailAndWebHost()}).absorbed,
              Finds({kCloseHandle, kFreeComponentInfo, kIsClustered, kExcludedFile}));
}

TEST_F(SnapshotFaultSweepTest, EveryCallOfARequestWithExtraVolumesMayFail) {
  const Scenario scenario{.model = MailAndWebHost(),
                          .options = {.serialNumbers = {L"TSL0001", L"TSL0002"}, .context = VSS_CTX_APP_ROLLBACK}};
  EXPECT_THAT(SweepScenario(scenario).absorbed,
              Finds({kCloseHandle, kFindVolumeClose, kFreeLibrary, kFreeComponentInfo, kIsClustered, kExcludedFile}));
}

TEST_F(SnapshotFaultSweepTest, EveryCallOfATransportableRequestMayFail) {
  const Scenario scenario{.model = MailAndWebHost(),
                          .options = {.context = DWORD{VSS_CTX_APP_ROLLBACK} | DWORD{VSS_VOLSNAP_ATTR_TRANSPORTABLE}}};
  EXPECT_THAT(SweepScenario(scenario).absorbed, Finds({kCloseHandle, kFreeComponentInfo, kIsClustered, kExcludedFile}));
}

TEST_F(SnapshotFaultSweepTest, EveryCallOfARequestWithAPartialWriterFailureMayFail) {
  Scenario scenario{.model = MailAndWebHost(), .partialFailures = true};
  scenario.model.faults.writers = FailedMailAndWeb();
  EXPECT_THAT(SweepScenario(scenario).absorbed,
              Finds({kCloseHandle, kFreeLibrary, kFreeComponentInfo, kIsClustered, kExcludedFile}));
}

TEST_F(SnapshotFaultSweepTest, EveryCallThatCompletesAFailedRequestMayFail) {
  const Scenario scenario{.model = MailAndWebHost(),
                          .options = {.context = VSS_CTX_APP_ROLLBACK, .testPoints = kTestPointFailDoSnapshotSet}};
  EXPECT_THAT(SweepScenario(scenario, Calls::fromCompletion).absorbed, IsEmpty());
}

TEST_F(SnapshotFaultSweepTest, EveryCallThatAbortsARequestMayFail) {
  Scenario scenario{.model = MailAndWebHost()};
  scenario.model.faults.asyncs = {{"PrepareForBackup", 1, VSS_E_WRITER_INFRASTRUCTURE}};
  EXPECT_THAT(SweepScenario(scenario, Calls::fromCompletion).absorbed, IsEmpty());
}

TEST_F(SnapshotFaultSweepTest, EveryCallThatBreaksACompletedSetAndDisconnectsItMayFail) {
  EXPECT_THAT(SweepScenario(Maintenance(Then::breakUp), Calls::fromCompletion).absorbed, Finds({kShadowDevices}));
}

TEST_F(SnapshotFaultSweepTest, EveryCallThatMasksACompletedSetAndDisconnectsItMayFail) {
  EXPECT_THAT(SweepScenario(Maintenance(Then::mask), Calls::fromCompletion).absorbed, Finds({kShadowDevices}));
}

TEST_F(SnapshotFaultSweepTest, EveryCallThatDeletesACompletedSetAndDisconnectsItMayFail) {
  EXPECT_THAT(SweepScenario(Maintenance(Then::remove), Calls::fromCompletion).absorbed, Finds({kShadowDevices}));
}

}  // namespace
}  // namespace varnel::test
