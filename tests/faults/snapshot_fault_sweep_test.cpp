// Fault model: in whole runs of a requestor, its completion included, every platform call that can fail does so once,
// with every code of a list, and then it and every later one. An HRESULT given to a Win32 call is just an unknown error
// to it; a code that is no failure makes a COM call succeed without doing or delivering anything. The sweep ends at the
// first call number that no run reaches, so a new call is covered the day it is written. Not failed here: calls that
// report nothing (Release, SysFreeString, LocalFree) and memory of the process itself.
#include <algorithm>
#include <array>
#include <map>
#include <new>
#include <optional>
#include <set>
#include <utility>

#include "platform/format.h"
#include "simulator/snapshot_service.h"
#include "tests/support/host_fixture.h"
#include "tests/support/snapshot_request.h"

namespace varnel::test {
namespace {

using simulator::WriterEvent;
using simulator::WriterFault;

using testing::UnorderedElementsAre;

constexpr DWORD kCodes[] = {
    static_cast<DWORD>(E_FAIL),
    static_cast<DWORD>(E_OUTOFMEMORY),
    static_cast<DWORD>(VSS_E_BAD_STATE),
    static_cast<DWORD>(VSS_E_UNEXPECTED_PROVIDER_ERROR),
    ERROR_ACCESS_DENIED,  // and for COM a success
    S_FALSE,
    S_OK,  // and for Win32 a failure that tells no reason
};

constexpr int kMostCalls = 2000;

// Parts of call log lines. A request may absorb the failure of such a call without a word.
constexpr char kCloseHandle[] = "CloseHandle(";                // the handle is closed or lost either way
constexpr char kFindVolumeClose[] = "FindVolumeClose(";        // the search is closed or lost either way
constexpr char kFreeLibrary[] = "FreeLibrary(";                // the module is released or lost either way
constexpr char kFreeComponentInfo[] = "::FreeComponentInfo(";  // the information is freed or lost either way
constexpr char kIsClustered[] = ", IOCTL_DISK_IS_CLUSTERED)";  // systems without the feature do not know the question
constexpr char kExcludedFile[] = "VolumePathNameW(C:\\";       // files that are not backed up may lie anywhere
constexpr char kExcludedVolume[] = "MountPointW(C:\\)";        // their volume; the system drive's would be missed
// A session that does not tell how many devices it has counts as one without any: it stays, and nobody hears of it.
constexpr char kShadowDevices[] = "GetDevicesForIScsiSessionW(iqn.2007-11.example:shadow)";
constexpr const char* kBenign[] = {kCloseHandle, kFindVolumeClose, kFreeLibrary,    kFreeComponentInfo,
                                   kIsClustered, kExcludedFile,    kExcludedVolume, kShadowDevices};

// Null when the call must not fail unnoticed.
const char* BenignPartOf(const std::string& line) {
  const auto* found = std::find_if(std::begin(kBenign), std::end(kBenign),
                                   [&](const char* part) { return line.find(part) != line.npos; });
  return found == std::end(kBenign) ? nullptr : *found;
}

// Calls whose failure degrades an answer instead of ending the request; the log or the texts must show it.
const std::set<std::string>& Degrading() {
  static const std::set<std::string> calls = {
      // A partial failure whose components cannot be read becomes a complete one.
      "IVssBackupComponents::GetWriterComponentsCount",
      "IVssBackupComponents::GetWriterComponents",
      "IVssWriterComponents::GetWriterInfo",
      "IVssWriterComponents::GetComponentCount",
      "IVssWriterComponents::GetComponent",
      "IVssComponent::QueryInterface",
      "IVssComponentEx2::GetFailure",
      "IVssComponent::GetComponentName",
      "IVssComponent::GetLogicalPath",
      // The destructor has nobody to tell but the log.
      "IVssBackupComponents::FreeWriterMetadata",
  };
  return calls;
}

// Calls of the completion whose failure is logged and does not stop it.
bool IsPassedOver(const std::string& call) {
  return call == "IVssBackupComponents::AbortBackup" || call == "IVssBackupComponents::DeleteSnapshots";
}

// Win32 calls that return their error code: to them 0 is no failure.
bool ReturnsItsCode(const std::string& call) {
  return call == "GetIScsiSessionListW" || call == "GetDevicesForIScsiSessionW" || call == "LogoutIScsiTarget";
}

bool IsCom(const std::string& call) {
  return call.find("::") != call.npos || call == "CreateVssBackupComponents" || call == "CoCreateInstance";
}

// The steps of a run, in the host agent's order.
enum Step { kCreate, kCatalog, kComplete, kMaintain, kDisconnect, kSteps };

// How one step ended.
struct Ending {
  Outcome outcome;
  std::string otherException;  // of the documented types besides `long` and VarnelException

  bool Returned() const { return *this == Ending(); }
  friend bool operator==(const Ending&, const Ending&) = default;
};

// What the host agent passes to SetBackupStatus after a step that ended so.
int StatusCode(const Ending& ending) {
  return ending.otherException.empty() ? StatusCode(ending.outcome) : -1;
}

// Everything that a run shows to the outside.
struct Trial {
  std::array<Ending, kSteps> endings;
  std::string details;
  std::vector<std::string> problems;  // error and warning lines
  int callsBeforeCompletion = 0;
  std::optional<Step> firedIn;  // nothing: in no step, or in the destructor
  std::string firedAt;
  std::string firedLine;        // of the call log
  bool firedAtMarking = false;  // in the completion, before BackupComplete

  bool Fired() const { return !firedAt.empty(); }
  bool LooksLike(const Trial& other) const {
    return endings == other.endings && details == other.details && problems == other.problems;
  }
};

// What becomes of the set behind the completion.
enum class Then { keep, breakUp, mask, remove };

// What a run does.
struct Scenario {
  simulator::HostModel model;
  RequestOptions options = {};
  bool partialFailures = false;
  Then then = Then::keep;
  bool disconnect = false;
  bool fromCompletion = false;  // the calls before are those of another scenario
};

// What to fail. Call 0 is none.
struct Injection {
  int call = 0;
  DWORD code = 0;
  bool persistent = false;
};

// For requests whose lines nobody reads.
class SilentLog : public LogSink {
 public:
  int LowestCategory() const override { return CFileLog::Error + 1; }
  void Write(int, std::wstring_view, int, std::wstring_view) override {}
};

class SnapshotFaultSweepTest : public HostFixture {
 protected:
  static simulator::HostModel Model() {
    simulator::HostModel model = SmallHost();
    model.vssMessages = {{{static_cast<DWORD>(VSS_E_WRITERERROR_RETRYABLE), L"Try again.\r\n"}}};
    model.writers = {
        MakeWriter(L"Mail", 1,
                   {MakeComponent(L"mail", L"db1", {L"E:\\db1"}), MakeComponent(L"mail", L"db2", {L"E:\\db2"})}),
        MakeWriter(L"Web", 2, {MakeComponent(L"", L"site", {L"E:\\web"})}),
    };
    model.writers[0].excludeFiles = {{L"C:\\tmp", L"*"}};
    return model;
  }

  /// A scenario whose set goes through `then`, with a session that carries the shadow copy and one that does not.
  static Scenario Maintenance(Then then) {
    Scenario scenario{.model = Model(), .then = then, .disconnect = true, .fromCompletion = true};
    scenario.model.iscsiSessions = {{L"iqn.2007-11.example:data", {{L"TSL0001"}, {L"TSL0002"}}, 1, 0},
                                    {L"iqn.2007-11.example:shadow", {{L"TSL0001", true}}, 0, 0}};
    return scenario;
  }

  Trial Run(const Scenario& scenario, const Injection& injection) {
    return scenario.partialFailures ? RunAs<PartialRequestor>(scenario, injection)
                                    : RunAs<CVarnel>(scenario, injection);
  }

  /// Every call in turn fails with every code, once and from then on, until a run does not reach it. The benign calls
  /// whose failure went unnoticed.
  std::set<std::string> Sweep(const Scenario& scenario) {
    absorbed_.clear();
    const Trial clean = Run(scenario, {});
    ExpectNothingLeft();
    const int first = scenario.fromCompletion ? clean.callsBeforeCompletion + 1 : 1;
    for (const DWORD code : kCodes) {
      for (const bool persistent : {false, true}) {
        int call = first;
        for (; call <= kMostCalls; ++call) {
          SCOPED_TRACE(FormatNarrow("call %d fails%s with 0x%x", {call, persistent ? " from then on" : "", code}));
          const Trial trial = Run(scenario, {call, code, persistent});
          SCOPED_TRACE(trial.firedLine);
          ExpectNothingLeft();
          if (!trial.Fired()) {
            EXPECT_TRUE(trial.LooksLike(clean));
            break;
          }
          Judge(trial, clean, {call, code, persistent});
          if (HasFailure()) return absorbed_;  // one report is enough
        }
        EXPECT_GT(call, first) << "nothing was swept";
        EXPECT_LE(call, kMostCalls);
      }
    }
    return absorbed_;
  }

 private:
  template <class Requestor>
  Trial RunAs(const Scenario& scenario, const Injection& injection) {
    Install(scenario.model);
    log.lines.clear();
    if (injection.call != 0) host().faults().FailNthCall(injection.call, injection.code, injection.persistent);
    Trial trial;
    bool abortFailed = false;
    {
      SnapshotRequest<Requestor> request(scenario.options);
      RunSteps(scenario, request, trial);
      trial.details = request.details();
      abortFailed = injection.persistent || host().faults().firedAt() == "IVssBackupComponents::AbortBackup";
      ExpectACompletedBackup(trial, request.probe.snapshotDone(), injection);
      if (!abortFailed) ExpectTheServiceIsFree();
    }
    DescribeCalls(trial, injection);
    if (abortFailed) ExpectTheServiceIsFree();
    return trial;
  }

  template <class Requestor>
  void RunSteps(const Scenario& scenario, SnapshotRequest<Requestor>& request, Trial& trial) {
    CVarnel& requestor = request.requestor;
    std::string& details = request.details();
    Attempt(trial, kCreate, [&] {
      request.Start();
      requestor.CreateVssSnapshotSet(details);
    });
    Attempt(trial, kCatalog, [&] {
      std::map<std::string, ApplicationObjectMeatadataInfo> metadata;
      requestor.GetSnapshotMeatadata(metadata);
    });
    trial.callsBeforeCompletion = host().faults().callCount();
    Attempt(trial, kComplete, [&] { requestor.SetBackupStatus(CodeSoFar(trial), details); });
    Attempt(trial, kMaintain, [&] { Maintain(scenario.then, requestor, details); });
    if (scenario.disconnect) Attempt(trial, kDisconnect, [&] { requestor.DisconnectSnapshotLuns(details); });
  }

  static int CodeSoFar(const Trial& trial) {
    const Ending& created = trial.endings[kCreate];
    return StatusCode(created.Returned() ? trial.endings[kCatalog] : created);
  }

  static void Maintain(Then then, CVarnel& requestor, std::string& details) {
    switch (then) {
      case Then::keep:
        break;
      case Then::breakUp:
        requestor.BreakSnapshotSet(details);
        break;
      case Then::mask:
        requestor.MaskSnapshotSet(details);
        break;
      case Then::remove:
        requestor.DeleteSnapshotSet(details);
        break;
    }
  }

  template <class Action>
  void Attempt(Trial& trial, Step step, Action action) {
    const bool firedBefore = host().faults().fired();
    Ending& ending = trial.endings[step];
    try {
      ending.outcome = OutcomeOf(action);
    } catch (const TesselCommonClasses::ExceptionCommon& exception) {
      ending.otherException = exception.what();
    } catch (const std::bad_alloc& exception) {
      ending.otherException = exception.what();
    }
    if (!firedBefore && host().faults().fired()) trial.firedIn = step;
  }

  void DescribeCalls(Trial& trial, const Injection& injection) {
    trial.problems = Problems();
    trial.firedAt = host().faults().firedAt();
    // Every call that can fail has its line, in the order of the calls.
    std::vector<std::string> lines = host().calls().lines();
    std::erase_if(lines, [](const std::string& line) { return line.starts_with("Sleep("); });
    EXPECT_EQ(lines.size(), static_cast<std::size_t>(host().faults().callCount()));
    if (!trial.Fired()) return;
    const auto fired = lines.begin() + (injection.call - 1);
    trial.firedLine = *fired;
    trial.firedAtMarking =
        trial.firedIn == kComplete && std::none_of(lines.begin(), fired, [](const std::string& line) {
          return CallName(line) == "IVssBackupComponents::BackupComplete";
        });
  }

  std::vector<std::string> Problems() const {
    std::vector<std::string> lines = log.Errors();
    const std::vector<std::string> warnings = log.Warnings();
    lines.insert(lines.end(), warnings.begin(), warnings.end());
    return lines;
  }

  void ExpectNothingLeft() {
    EXPECT_EQ(host().live().Describe(), "");
    EXPECT_THAT(host().live().misuses(), IsEmpty());
  }

  /// Whatever failed: without a set the completion ends in silence, with one BackupComplete was sent once, and a failed
  /// request leaves no shadow copies behind unless they could not be deleted.
  void ExpectACompletedBackup(const Trial& trial, bool snapshotDone, const Injection& injection) {
    if (!snapshotDone) {
      EXPECT_TRUE(trial.endings[kComplete].Returned());
      return;
    }
    // A success that does nothing may hide the writers' components from the completion.
    if (injection.call == 0 || FAILED(static_cast<HRESULT>(injection.code))) {
      EXPECT_EQ(host().calls().Of("IVssBackupComponents::BackupComplete").size(), 1U);
    }
    const int code = CodeSoFar(trial);
    if (code == 0 || code == VarnelException::PartialSuccess) return;
    if (injection.persistent || IsPassedOver(host().faults().firedAt())) return;
    EXPECT_THAT(host().machine().snapshots->SurfacedCopies(), IsEmpty());
  }

  /// A plain request gets through while nothing fails; the trial's faults, calls and log lines stay as they were. Where
  /// no set was asked for, none can be in the way.
  void ExpectTheServiceIsFree() {
    if (host().calls().Of("IVssBackupComponents::StartSnapshotSet").empty()) return;
    const simulator::FaultPlan planned = std::exchange(host().faults(), {});
    host().calls().enabled = false;
    SilentLog silent;
    const ScopedLog guard(silent);
    EXPECT_EQ(PlainRequest(), Outcome::Returned());
    host().calls().enabled = true;
    host().faults() = planned;
  }

  void Judge(const Trial& trial, const Trial& clean, const Injection& injection) {
    const bool failsCom = IsCom(trial.firedAt) && FAILED(static_cast<HRESULT>(injection.code));
    // No failure, so none can be swallowed.
    if (IsCom(trial.firedAt) && !failsCom) return;
    if (ReturnsItsCode(trial.firedAt) && injection.code == ERROR_SUCCESS) return;
    if (const char* part = BenignPartOf(trial.firedLine); part != nullptr && trial.LooksLike(clean)) {
      absorbed_.insert(part);
      return;
    }
    EXPECT_FALSE(trial.LooksLike(clean)) << "the failure was swallowed";
    if (failsCom && !injection.persistent && MustEndItsStep(trial)) {
      ASSERT_TRUE(trial.firedIn);
      EXPECT_EQ(trial.endings[*trial.firedIn].outcome, Outcome::Thrown(static_cast<HRESULT>(injection.code)));
    }
  }

  static bool MustEndItsStep(const Trial& trial) {
    if (trial.firedIn == kComplete && IsPassedOver(trial.firedAt)) return false;
    return trial.firedAtMarking || !Degrading().contains(trial.firedAt);
  }

  std::set<std::string> absorbed_;
};

TEST_F(SnapshotFaultSweepTest, EveryCallOfACleanRequestMayFail) {
  EXPECT_THAT(Sweep({.model = Model()}), UnorderedElementsAre(kCloseHandle, kFindVolumeClose, kFreeComponentInfo,
                                                              kIsClustered, kExcludedFile, kExcludedVolume));
}

TEST_F(SnapshotFaultSweepTest, EveryCallOfARequestWithExtraVolumesMayFail) {
  const Scenario scenario{.model = Model(),
                          .options = {.serialNumbers = {L"TSL0001", L"TSL0002"}, .context = VSS_CTX_APP_ROLLBACK}};
  EXPECT_THAT(Sweep(scenario), UnorderedElementsAre(kCloseHandle, kFindVolumeClose, kFreeLibrary, kFreeComponentInfo,
                                                    kIsClustered, kExcludedFile, kExcludedVolume));
}

TEST_F(SnapshotFaultSweepTest, EveryCallOfARequestWithAPartialWriterFailureMayFail) {
  Scenario scenario{.model = Model(), .partialFailures = true};
  WriterFault partial;
  partial.writer = L"Mail";
  partial.event = WriterEvent::postSnapshot;
  partial.failure = VSS_E_WRITERERROR_PARTIAL_FAILURE;
  partial.components = {{L"\\mail\\db2", VSS_E_WRITERERROR_NONRETRYABLE, S_OK, L"db2 is offline"}};
  WriterFault whole;
  whole.writer = L"Web";
  whole.event = WriterEvent::postSnapshot;
  whole.failure = VSS_E_WRITERERROR_RETRYABLE;
  scenario.model.faults.writers = {partial, whole};
  EXPECT_THAT(Sweep(scenario), UnorderedElementsAre(kCloseHandle, kFindVolumeClose, kFreeLibrary, kFreeComponentInfo,
                                                    kIsClustered, kExcludedFile, kExcludedVolume));
}

TEST_F(SnapshotFaultSweepTest, EveryCallThatCompletesAFailedRequestMayFail) {
  const Scenario scenario{.model = Model(),
                          .options = {.context = VSS_CTX_APP_ROLLBACK, .testPoints = kTestPointFailDoSnapshotSet},
                          .fromCompletion = true};
  EXPECT_THAT(Sweep(scenario), IsEmpty());
}

TEST_F(SnapshotFaultSweepTest, EveryCallThatAbortsARequestMayFail) {
  Scenario scenario{.model = Model(), .fromCompletion = true};
  scenario.model.faults.asyncs = {{"PrepareForBackup", 1, VSS_E_WRITER_INFRASTRUCTURE}};
  EXPECT_THAT(Sweep(scenario), IsEmpty());
}

TEST_F(SnapshotFaultSweepTest, EveryCallThatBreaksACompletedSetAndDisconnectsItMayFail) {
  EXPECT_THAT(Sweep(Maintenance(Then::breakUp)), UnorderedElementsAre(kShadowDevices));
}

TEST_F(SnapshotFaultSweepTest, EveryCallThatMasksACompletedSetAndDisconnectsItMayFail) {
  EXPECT_THAT(Sweep(Maintenance(Then::mask)), UnorderedElementsAre(kShadowDevices));
}

TEST_F(SnapshotFaultSweepTest, EveryCallThatDeletesACompletedSetAndDisconnectsItMayFail) {
  EXPECT_THAT(Sweep(Maintenance(Then::remove)), UnorderedElementsAre(kShadowDevices));
}

}  // namespace
}  // namespace varnel::test
