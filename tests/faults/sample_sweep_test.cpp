// The call sweep over the sample hosts, each with its application's requestor and in the host agent's order of calls:
// validation, presence, the set, its catalogue and its verification, the completion, and what follows it. A step that
// failed ends the request; a failed presence check is a warning.
#include <functional>

#include "requestors/ExchReq.h"
#include "requestors/HyperVReq.h"
#include "requestors/SqlReq.h"
#include "tests/faults/sweep.h"
#include "tests/samples/sample_run.h"
#include "tests/support/disk_volumes.h"

namespace varnel::test {
namespace {

constexpr DWORD kDisconnected = 0x80010108;  // RPC_E_DISCONNECTED

constexpr DWORD kComFailures[] = {
    static_cast<DWORD>(E_OUTOFMEMORY),
    static_cast<DWORD>(E_ACCESSDENIED),
    static_cast<DWORD>(VSS_E_BAD_STATE),
    static_cast<DWORD>(VSS_E_UNEXPECTED),
    static_cast<DWORD>(VSS_E_PROVIDER_VETO),
    static_cast<DWORD>(VSS_E_WRITERERROR_RETRYABLE),
    kDisconnected,
    // No failures, but nothing is done or delivered.
    S_FALSE,
    static_cast<DWORD>(VSS_S_ASYNC_CANCELLED),
    static_cast<DWORD>(VSS_S_ASYNC_PENDING),
};

constexpr DWORD kWin32Failures[] = {
    ERROR_FILE_NOT_FOUND,    ERROR_ACCESS_DENIED,       ERROR_NOT_ENOUGH_MEMORY,
    ERROR_INVALID_PARAMETER, ERROR_INSUFFICIENT_BUFFER, ERROR_NOT_FOUND,
};

// More calls whose failure a request may absorb without a word.
constexpr char kAnyPath[] = "GetVolumePathNameW(";       // who is present does not depend on where files lie
constexpr char kSystemDrive[] = "VolumePathNameW(C:\\";  // nor does a set on files that are not in it
constexpr char kReserved[] = "VolumePathNameW(\\\\?\\Volume{";
constexpr char kExcluded[] = "DfsrPrivate\\)";
// The first to ask for these folders are files that the writer excludes; the databases' own files ask again.
constexpr char kOfflineData[] = "VolumePathNameW(E:\\MSSQL\\Data\\";
constexpr char kOfflineLog[] = "VolumePathNameW(L:\\MSSQL\\Log\\";
constexpr char kOtherDatabase[] = "VolumePathNameW(G:\\";
constexpr char kOtherMachine[] = "VolumePathNameW(D:\\Hyper-V\\";
constexpr char kIsWorkstation[] = "VerifyVersionInfoW(0x00000080)";  // "no" is a failure of the call
constexpr char kSharedVolume[] = "ClusterIsPathOnSharedVolume(";     // the volume's other name is asked about too
constexpr char kSessionListCall[] = "GetIScsiSessionListW(";  // where there are no sessions, the second one says so
constexpr char kSessionDevices[] = "GetDevicesForIScsiSessionW(";  // a session whose devices cannot be told is left

// On every sample host.
const std::vector<Benign>& UsuallyBenign() {
  static const std::vector<Benign> all = {{kCloseHandle},      {kFindVolumeClose},      {kFreeComponentInfo},
                                          {kAnyPath, kWriter}, {kSystemDrive, kCreate}, {kSessionDevices, kDisconnect}};
  return all;
}

// Calls whose failure is told without its code.
constexpr char kSessionList[] = "GetIScsiSessionListW";    // what the second call says counts
constexpr char kDevices[] = "GetDevicesForIScsiSessionW";  // a session without devices is not even called busy
constexpr char kHeap[] = "malloc";                         // the alert says what there was no memory for
constexpr char kPath[] = "GetVolumePathNameW";             // the line says that no disk was found for the path
constexpr char kVolume[] = "GetVolumeNameForVolumeMountPointW";
constexpr char kVersion[] = "VerifyVersionInfoW";                         // too old a system
constexpr char kDatabases[] = "MetadataService::FindDatabasesToQuiesce";  // in the words of that service

std::span<const DWORD> CodesFor(const std::string& call) {
  if (IsCom(call)) return kComFailures;
  return kWin32Failures;
}

// What a run does on its sample host.
struct Sample {
  std::string file;
  std::vector<std::wstring> disks;
  DWORD context = 0;
  int writerCode = 0;
  bool verify = false;
  Then then = Then::keep;
  std::vector<Benign> benign = {};  // on this host besides
  DWORD refusal = 0;                // that its clean run meets
  int status = 0;                   // what its clean run tells the completion
};

std::vector<Benign> BenignOn(const Sample& sample) {
  std::vector<Benign> all = UsuallyBenign();
  all.insert(all.end(), sample.benign.begin(), sample.benign.end());
  return all;
}

template <class Requestor>
class SampleRequest {
 public:
  explicit SampleRequest(const Sample& sample)
      : details_("writer=" + std::to_string(sample.writerCode) + ","), sample_(sample) {
    requestor.SetDiskAndVolumeEnumeratorObj(&enumerator_);
  }

  DWORD Validate() {
    if (const DWORD refusal = requestor.ValidateHostConfiguration(early_)) return refusal;
    std::string status;
    return requestor.ValidateVolumes(VolumesOn(enumerator_, sample_.disks), status, early_, {}, "");
  }
  void Create() {
    requestor.SetInputDriveSerialNos(sample_.disks);
    requestor.Initialize(sample_.context, L"", false, VSS_BT_FULL, details_, &enumerator_);
    requestor.CreateVssSnapshotSet(details_);
  }
  /// The alert records of the checks before the request are its own no longer.
  std::string& early() { return early_; }
  std::string& details() { return details_; }
  const Sample& sample() const { return sample_; }

  Requestor requestor{0};
  RequestorProbe probe{requestor};

 private:
  std::string early_;
  std::string details_;
  const Sample& sample_;
  TesselCommonClasses::DiskAndVolumeEnumerator enumerator_;
};

class SampleSweepTest : public CallSweepFixture {
 protected:
  /// Whatever may be absorbed is; gives the calls whose failure is told without its code.
  template <class Requestor>
  std::set<std::string> SweepSample(const Sample& sample) {
    Use<Requestor>(sample);
    const Trial clean = run_({});
    EXPECT_TRUE(std::all_of(clean.endings.begin(), clean.endings.end(), std::mem_fn(&Ending::Returned)));
    EXPECT_EQ(fresh_, Outcome::Returned());
    const std::vector<Benign> benign = BenignOn(sample);
    const Findings findings = Sweep(Calls::inTurn, benign, run_, CodesFor);
    std::set<std::string> parts;
    for (const Benign& one : benign) parts.insert(one.part);
    EXPECT_THAT(findings.absorbed, Finds(parts));
    return findings.renamed;
  }

  /// A sample host whose request ends badly by itself: what may be absorbed there need not be.
  template <class Requestor>
  void SweepFailingSample(const Sample& sample, Calls calls) {
    Use<Requestor>(sample);
    const Trial clean = run_({});
    EXPECT_EQ(clean.endings[kValidate].refusal, sample.refusal);
    EXPECT_EQ(clean.CodeSoFar(), sample.status);
    std::vector<Benign> benign = BenignOn(sample);
    benign.push_back({kFreeLibrary});
    Sweep(calls, benign, run_, CodesFor);
  }

  template <class Requestor>
  void SweepAsyncsOf(const Sample& sample) {
    Use<Requestor>(sample);
    SweepAsyncs(run_, kComFailures);
  }

 private:
  template <class Requestor>
  void Use(const Sample& sample) {
    sample_ = sample;
    model_ = simulator::LoadHostFile(SampleFolder() / sample.file);
    run_ = [this](const Injection& injection) {
      return RunOnce(model_, injection, [this](Trial& trial) {
        SampleRequest<Requestor> request(sample_);
        RunSteps(request, trial);
        Conclude(trial, request.early() + request.details(), request.probe.snapshotDone());
      });
    };
    another_ = [this] {
      SampleRequest<Requestor> request(sample_);
      const Outcome created = OutcomeOf([&] { request.Create(); });
      const Outcome completed =
          OutcomeOf([&] { request.requestor.SetBackupStatus(StatusCode(created), request.details()); });
      return created == Outcome::Returned() ? completed : created;
    };
    Install(model_).faults() = {};
    fresh_ = another_();
  }

  // It ends as on a fresh host; a writer that is too slow is so every time.
  Outcome AnotherRequest() override {
    const Outcome outcome = another_();
    return outcome == fresh_ ? Outcome::Returned() : outcome;
  }

  template <class Requestor>
  void RunSteps(SampleRequest<Requestor>& request, Trial& trial) {
    CVarnel& requestor = request.requestor;
    Attempt(trial, kValidate, [&] { trial.endings[kValidate].refusal = request.Validate(); });
    const bool valid = trial.endings[kValidate].Returned();
    if (valid) CheckPresence(request, trial);
    if (valid) AttemptCreation(trial, requestor, [&] { request.Create(); });
    if (valid && trial.GotThrough()) Attempt(trial, kCatalog, [&] { ReadCatalogue(requestor, trial); });
    if (trial.GotThrough() && request.sample().verify) Attempt(trial, kVerify, [&] { requestor.VerifySnapShotData(); });
    trial.callsBeforeCompletion = host().faults().callCount();
    Attempt(trial, kComplete, [&] { requestor.SetBackupStatus(trial.CodeSoFar(), request.details()); });
    if (trial.GotThrough()) FollowUp(request, trial);
  }

  template <class Requestor>
  void CheckPresence(SampleRequest<Requestor>& request, Trial& trial) {
    CVarnel& requestor = request.requestor;
    Attempt(trial, kProvider, [&] {
      trial.answers.push_back(requestor.IsTesselVSSProviderPresent() ? "provider present" : "provider absent");
    });
    Attempt(trial, kWriter, [&] {
      trial.answers.push_back(requestor.IsWriterPresent(request.early()) ? "writer present" : "writer absent");
    });
  }

  static void ReadCatalogue(CVarnel& requestor, Trial& trial) {
    for (std::string& line : CatalogueLines(requestor)) trial.answers.push_back(std::move(line));
    trial.answers.push_back(requestor.getSuccesfulDBList());
  }

  // Masked disks are no longer seen on their sessions, so these end first.
  template <class Requestor>
  void FollowUp(SampleRequest<Requestor>& request, Trial& trial) {
    CVarnel& requestor = request.requestor;
    const Then then = request.sample().then;
    const auto disconnect = [&] {
      Attempt(trial, kDisconnect, [&] { requestor.DisconnectSnapshotLuns(request.details()); });
    };
    if (then == Then::mask) disconnect();
    Attempt(trial, kMaintain, [&] { Maintain(then, requestor, request.details()); });
    if (then != Then::mask) disconnect();
  }

  Sample sample_;
  simulator::HostModel model_;
  std::function<Trial(const Injection&)> run_;
  std::function<Outcome()> another_;
  Outcome fresh_;
};

const Sample& SqlServer() {
  static const Sample sample{
      .file = "sql-server.json",
      .disks = {L"TSL0001", L"TSL0002", L"TSL0003"},
      .writerCode = 2,
      .then = Then::breakUp,
      .benign = {{kReserved, kCreate}, {kOtherDatabase, kCreate}, {kOfflineData, kCreate}, {kOfflineLog, kCreate}}};
  return sample;
}

const Sample& Exchange() {
  static const Sample sample{.file = "exchange.json",
                             .disks = {L"TSL1001", L"TSL1002"},
                             .context = VSS_CTX_APP_ROLLBACK,
                             .verify = true,
                             .then = Then::mask,
                             .benign = {{kReserved, kCreate}}};
  return sample;
}

const Sample& HyperV() {
  static const Sample sample{
      .file = "hyperv-cluster.json",
      .disks = {L"TSL2001", L"TSL2002"},
      .then = Then::remove,
      .benign = {
          {kReserved, kCreate}, {kOtherMachine, kCreate}, {kIsWorkstation, kValidate}, {kSharedVolume, kValidate}}};
  return sample;
}

const Sample& Plain() {
  static const Sample sample{.file = "plain.json",
                             .disks = {L"TSL3001", L"TSL3002"},
                             .context = VSS_CTX_APP_ROLLBACK,
                             .then = Then::remove,
                             .benign = {{kExcluded, kCreate}}};
  return sample;
}

TEST_F(SampleSweepTest, EveryCallOfASqlServerRequestMayFail) {
  EXPECT_THAT(SweepSample<SqlReq>(SqlServer()), Finds({kSessionList, kDevices, kHeap, kPath, kVolume, kDatabases}));
}

TEST_F(SampleSweepTest, EveryCallOfAnExchangeRequestMayFail) {
  EXPECT_THAT(SweepSample<ExchangeReq>(Exchange()), Finds({kSessionList, kHeap, kPath, kVolume}));
}

TEST_F(SampleSweepTest, EveryCallOfAHyperVRequestMayFail) {
  EXPECT_THAT(SweepSample<HyperVReq>(HyperV()), Finds({kSessionList, kHeap, kPath, kVolume, kVersion}));
}

TEST_F(SampleSweepTest, EveryCallOfAPlainRequestMayFail) {
  EXPECT_THAT(SweepSample<CVarnel>(Plain()), Finds({kSessionList, kHeap, kPath, kVolume}));
}

// Up to the completion the requests below are those above.

TEST_F(SampleSweepTest, EveryCallThatCompletesARequestWithATornDatabaseMayFail) {
  SweepFailingSample<SqlReq>({.file = "sql-server-torn.json",
                              .disks = {L"TSL0001", L"TSL0002", L"TSL0003"},
                              .status = VarnelException::ExtraVolumes},
                             Calls::fromCompletionInTurn);
}

TEST_F(SampleSweepTest, EveryCallThatCompletesARequestWithAFrozenWriterMayFail) {
  SweepFailingSample<SqlReq>({.file = "sql-server-freeze-timeout.json",
                              .disks = {L"TSL0001", L"TSL0003"},
                              .status = VarnelException::WriterFailure},
                             Calls::fromCompletionInTurn);
}

TEST_F(SampleSweepTest, EveryCallThatCompletesARequestWithADamagedDatabaseMayFail) {
  SweepFailingSample<ExchangeReq>({.file = "exchange-damaged.json",
                                   .disks = {L"TSL1001", L"TSL1002"},
                                   .verify = true,
                                   .status = VarnelException::VerificationFailure},
                                  Calls::fromCompletionInTurn);
}

TEST_F(SampleSweepTest, EveryCallThatCompletesARequestWithoutTheUtilityMayFail) {
  SweepFailingSample<ExchangeReq>({.file = "exchange-no-utility.json",
                                   .disks = {L"TSL1001", L"TSL1002"},
                                   .verify = true,
                                   .status = VarnelException::VerificationFailure},
                                  Calls::fromCompletionInTurn);
}

TEST_F(SampleSweepTest, EveryCallAfterAPartialSuccessMayFail) {
  SweepFailingSample<HyperVReq>({.file = "hyperv-one-of-twenty.json",
                                 .disks = {L"TSL2001", L"TSL2002"},
                                 .then = Then::breakUp,
                                 .benign = {{kSessionListCall, kDisconnect}},
                                 .status = VarnelException::PartialSuccess},
                                Calls::fromCompletionInTurn);
}

TEST_F(SampleSweepTest, EveryCallOfARequestWithoutTheHotfixMayFail) {
  SweepFailingSample<HyperVReq>({.file = "hyperv-missing-hotfix.json",
                                 .disks = {L"TSL2901"},
                                 .benign = {{kIsWorkstation, kValidate}},
                                 .refusal = 255,
                                 .status = -1},
                                Calls::all);
}

TEST_F(SampleSweepTest, EveryCallOfARequestForVolumesThatDoNotGoTogetherMayFail) {
  SweepFailingSample<HyperVReq>({.file = "hyperv-mixed-volumes.json",
                                 .disks = {L"TSL2001", L"TSL2003"},
                                 .benign = {{kIsWorkstation, kValidate}, {kSharedVolume, kValidate}},
                                 .refusal = 250,
                                 .status = -1},
                                Calls::all);
}

TEST_F(SampleSweepTest, EveryOperationOfASqlServerRequestMayEndBadly) {
  SweepAsyncsOf<SqlReq>(SqlServer());
}

TEST_F(SampleSweepTest, EveryOperationOfAnExchangeRequestMayEndBadly) {
  SweepAsyncsOf<ExchangeReq>(Exchange());
}

TEST_F(SampleSweepTest, EveryOperationOfAHyperVRequestMayEndBadly) {
  SweepAsyncsOf<HyperVReq>(HyperV());
}

TEST_F(SampleSweepTest, EveryOperationOfAPlainRequestMayEndBadly) {
  SweepAsyncsOf<CVarnel>(Plain());
}

}  // namespace
}  // namespace varnel::test
