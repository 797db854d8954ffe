// Fault model: in whole runs of a requestor every platform call that can fail does so once, with every code of a list,
// and then it and every later one. An HRESULT given to a Win32 call is just an unknown error to it; a code that is no
// failure makes a COM call succeed without doing or delivering anything. The sweep ends at the first call number that
// no run reaches, so a new call is covered the day it is written. Not failed here: calls that report nothing (Release,
// SysFreeString, LocalFree) and memory of the process itself.
#include <algorithm>
#include <map>
#include <new>
#include <set>

#include "platform/format.h"
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
constexpr const char* kBenign[] = {kCloseHandle, kFindVolumeClose, kFreeLibrary,   kFreeComponentInfo,
                                   kIsClustered, kExcludedFile,    kExcludedVolume};

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

bool IsCom(const std::string& call) {
  return call.find("::") != call.npos || call == "CreateVssBackupComponents" || call == "CoCreateInstance";
}

// Everything that a run shows to the outside.
struct Trial {
  Outcome outcome;
  std::string otherException;  // of the documented types besides `long` and VarnelException
  std::string details;
  std::vector<std::string> problems;  // error and warning lines
  Outcome catalog;
  bool fired = false;
  std::string firedAt;
  std::string firedLine;  // of the call log

  bool LooksLike(const Trial& other) const {
    return outcome == other.outcome && otherException == other.otherException && details == other.details &&
           problems == other.problems && catalog == other.catalog;
  }
};

// What a run does.
struct Scenario {
  simulator::HostModel model;
  RequestOptions options;
  bool partialFailures = false;
};

// What to fail. Call 0 is none.
struct Injection {
  int call = 0;
  DWORD code = 0;
  bool persistent = false;
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
    for (const DWORD code : kCodes) {
      for (const bool persistent : {false, true}) {
        int call = 1;
        for (; call <= kMostCalls; ++call) {
          const Trial trial = Run(scenario, {call, code, persistent});
          SCOPED_TRACE(FormatNarrow("call %d %s fails%s with 0x%x",
                                    {call, trial.firedAt, persistent ? " from then on" : "", code}));
          ExpectNothingLeft();
          if (!trial.fired) {
            EXPECT_TRUE(trial.LooksLike(clean));
            break;
          }
          Judge(trial, clean, {call, code, persistent});
          if (HasFailure()) return absorbed_;  // one report is enough
        }
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
    {
      SnapshotRequest<Requestor> request(scenario.options);
      try {
        trial.outcome = OutcomeOf([&] {
          request.Start();
          request.requestor.CreateVssSnapshotSet(request.details());
        });
        trial.catalog = OutcomeOf([&] {
          std::map<std::string, ApplicationObjectMeatadataInfo> metadata;
          request.requestor.GetSnapshotMeatadata(metadata);
        });
      } catch (const TesselCommonClasses::ExceptionCommon& exception) {
        trial.otherException = exception.what();
      } catch (const std::bad_alloc& exception) {
        trial.otherException = exception.what();
      }
      trial.details = request.details();
    }
    trial.problems = Problems();
    trial.fired = host().faults().fired();
    trial.firedAt = host().faults().firedAt();
    // Every call that can fail has its line, in the order of the calls.
    EXPECT_EQ(host().calls().lines().size(), static_cast<std::size_t>(host().faults().callCount()));
    if (trial.fired) trial.firedLine = host().calls().lines().at(static_cast<std::size_t>(injection.call) - 1);
    return trial;
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

  void Judge(const Trial& trial, const Trial& clean, const Injection& injection) {
    const bool failsCom = IsCom(trial.firedAt) && FAILED(static_cast<HRESULT>(injection.code));
    if (IsCom(trial.firedAt) && !failsCom) return;  // no failure, so none can be swallowed
    if (const char* part = BenignPartOf(trial.firedLine); part != nullptr && trial.LooksLike(clean)) {
      absorbed_.insert(part);
      return;
    }
    EXPECT_FALSE(trial.LooksLike(clean)) << "the failure was swallowed";
    if (failsCom && !injection.persistent && !Degrading().contains(trial.firedAt)) {
      EXPECT_EQ(trial.outcome, Outcome::Thrown(static_cast<HRESULT>(injection.code)));
    }
  }

  std::set<std::string> absorbed_;
};

TEST_F(SnapshotFaultSweepTest, EveryCallOfACleanRequestMayFail) {
  EXPECT_THAT(Sweep({Model(), {}, false}), UnorderedElementsAre(kCloseHandle, kFindVolumeClose, kFreeComponentInfo,
                                                                kIsClustered, kExcludedFile, kExcludedVolume));
}

TEST_F(SnapshotFaultSweepTest, EveryCallOfARequestWithExtraVolumesMayFail) {
  Scenario scenario{Model(), {.serialNumbers = {L"TSL0001", L"TSL0002"}, .context = VSS_CTX_APP_ROLLBACK}, false};
  EXPECT_THAT(Sweep(scenario), UnorderedElementsAre(kCloseHandle, kFindVolumeClose, kFreeLibrary, kFreeComponentInfo,
                                                    kIsClustered, kExcludedFile, kExcludedVolume));
}

TEST_F(SnapshotFaultSweepTest, EveryCallOfARequestWithAPartialWriterFailureMayFail) {
  Scenario scenario{Model(), {}, true};
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

}  // namespace
}  // namespace varnel::test
