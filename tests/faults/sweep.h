// Call sweeps: a whole request runs again and again on a fresh host, each time with another platform call that fails,
// once or from then on. Every run is compared with the clean one: the failure surfaces and is named, nothing stays
// live, and the service takes the next request. The calls are those that the clean run made, so a new call is covered
// the day it is written. Not failed here: calls that report nothing (Release, SysFreeString, LocalFree) and memory of
// the process itself.
#pragma once

#include <algorithm>
#include <array>
#include <cctype>
#include <iostream>
#include <iterator>
#include <map>
#include <new>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "simulator/vss/snapshot_service.h"
#include "tests/faults/sample.h"
#include "tests/support/host_fixture.h"
#include "tests/support/snapshot_request.h"
#include "tests/support/total.h"
#include "text/format.h"
#include "text/guid.h"

namespace varnel::test {

/// The steps of a request, in the host agent's order; the last two may change places.
enum Step {
  kValidate,
  kProvider,
  kWriter,
  kCreate,
  kCatalog,
  kVerify,
  kComplete,
  kMaintain,
  kDisconnect,
  kSteps,
};

/// What becomes of the set after the completion.
enum class Then { keep, breakUp, mask, remove };

inline void Maintain(Then then, CVarnel& requestor, std::string& details) {
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

/// The small host with two writers: Mail, whose two databases may fail one by one, and Web.
inline simulator::HostModel MailAndWebHost() {
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

/// After the snapshot one of Mail's databases has failed, and Web as a whole.
inline std::vector<simulator::WriterFault> FailedMailAndWeb() {
  simulator::WriterFault partial;
  partial.writer = L"Mail";
  partial.event = simulator::WriterEvent::postSnapshot;
  partial.failure = VSS_E_WRITERERROR_PARTIAL_FAILURE;
  partial.components = {{L"\\mail\\db2", VSS_E_WRITERERROR_NONRETRYABLE, S_OK, L"db2 is offline"}};
  simulator::WriterFault whole;
  whole.writer = L"Web";
  whole.event = simulator::WriterEvent::postSnapshot;
  whole.failure = VSS_E_WRITERERROR_RETRYABLE;
  return {partial, whole};
}

/// A session that carries no shadow copy, and one with that of the first disk, whose first logouts fail.
inline std::vector<simulator::IscsiSession> DataAndShadowSessions(int failedLogouts) {
  return {{L"iqn.2007-11.example:data", {{L"TSL0001"}, {L"TSL0002"}}, 1, 0},
          {L"iqn.2007-11.example:shadow", {{L"TSL0001", true}}, 0, failedLogouts}};
}

/// How one step ended.
struct Ending {
  Outcome outcome;
  std::string otherException;  ///< of the documented types besides `long` and VarnelException
  DWORD refusal = 0;           ///< the catalog id of a validation

  bool Returned() const { return *this == Ending(); }
  friend bool operator==(const Ending&, const Ending&) = default;
};

/// What the host agent passes to SetBackupStatus after a step that ended so.
inline int StatusCode(const Ending& ending) {
  return ending.otherException.empty() && ending.refusal == 0 ? StatusCode(ending.outcome) : -1;
}

/// What to fail. Call 0 is none; otherwise an asynchronous operation may end badly.
struct Injection {
  int call = 0;
  DWORD code = 0;
  bool persistent = false;
  std::string async = {};
  int occurrence = 0;

  bool None() const { return call == 0 && async.empty(); }
};

/// How the steps of a request ended; one that was not reached counts as returned.
struct StepEndings {
  std::array<Ending, kSteps> endings;

  /// What the host agent passes to SetBackupStatus.
  int CodeSoFar() const {
    for (const Step step : {kValidate, kCreate, kCatalog, kVerify}) {
      if (!endings[step].Returned()) return StatusCode(endings[step]);
    }
    return VarnelException::None;
  }
  bool GotThrough() const {
    const int code = CodeSoFar();
    return code == VarnelException::None || code == VarnelException::PartialSuccess;
  }
};

/// One run: everything that it shows to the outside, and what became of the injection.
struct Trial : StepEndings {
  Injection injection;
  std::array<int, kSteps> callsAtEnd{};  ///< of each step; 0 for one that was not reached
  std::vector<std::string> answers;      ///< what the request told besides
  std::string details;
  std::vector<std::string> problems;  ///< error and warning lines
  int callsBeforeCompletion = 0;
  std::size_t copies = 0;  ///< of the set when it was taken
  bool abortFailed = false;
  std::optional<Step> firedIn = {};  ///< nothing: in no step, or in the destructor
  std::string firedAt;
  int firedOccurrence = 0;      ///< of its name, from 1
  std::string firedLine;        ///< of the call log
  std::string firedFor;         ///< the line of the path whose volume the call names
  bool firedAtMarking = false;  ///< in the completion, before BackupComplete

  bool Fired() const { return !firedAt.empty(); }
  bool LooksLike(const Trial& other) const { return Shown() == other.Shown(); }

 private:
  std::tuple<const std::array<Ending, kSteps>&, const std::vector<std::string>&, const std::string&,
             const std::vector<std::string>&>
  Shown() const {
    return {endings, answers, details, problems};
  }
};

/// For requests whose lines nobody reads.
class SilentLog : public LogSink {
 public:
  int LowestCategory() const override { return CFileLog::Error + 1; }
  void Write(int, std::wstring_view, int, std::wstring_view) override {}
};

inline bool IsCom(const std::string& call) {
  return call.find("::") != call.npos || call == "CreateVssBackupComponents" || call == "CoCreateInstance";
}

/// Win32 calls that return their error code: to them 0 is no failure.
inline bool ReturnsItsCode(const std::string& call) {
  return call == "GetIScsiSessionListW" || call == "GetDevicesForIScsiSessionW" || call == "LogoutIScsiTarget" ||
         call == "GetNodeClusterState";
}

/// Calls whose failure degrades an answer instead of ending the request; the log or the texts must show it.
inline bool IsDegrading(const std::string& call) {
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
      // Without an answer the request keeps to every database and to the computer's own name.
      "MetadataService::FindDatabasesToQuiesce",
      "MetadataService::GetClusterName",
  };
  return calls.contains(call);
}

/// Calls of the completion whose failure is logged and does not stop it.
inline bool IsPassedOver(const std::string& call) {
  return call == "IVssBackupComponents::AbortBackup" || call == "IVssBackupComponents::DeleteSnapshots";
}

/// Calls that promise an object: a success without it is as unexpected as a failure.
inline bool PromisesAnObject(const std::string& call) {
  static const std::set<std::string> calls = {
      "CoCreateInstance",
      "CreateVssBackupComponents",
      "IVssBackupComponents::QueryInterface",
      "IVssBackupComponents::GatherWriterMetadata",
      "IVssBackupComponents::GetWriterMetadata",
      "IVssBackupComponents::PrepareForBackup",
      "IVssBackupComponents::GatherWriterStatus",
      "IVssBackupComponents::DoSnapshotSet",
      "IVssBackupComponents::SaveAsXML",
      "IVssBackupComponents::BackupComplete",
      "IVssBackupComponentsEx2::BreakSnapshotSetEx",
      "IVssExamineWriterMetadata::GetExcludeFile",
      "IVssExamineWriterMetadata::GetComponent",
      "IVssWMComponent::GetComponentInfo",
      "IVssWMComponent::GetFile",
      "IVssWMComponent::GetDatabaseFile",
      "IVssWMComponent::GetDatabaseLogFile",
  };
  return calls.contains(call);
}

/// Whether the failure of a COM call that ends its step leaves an alert record, or only lines in the log. Presence is
/// asked for before the request, so nobody has to hear of it but for what the service itself could not finish.
inline bool LeavesARecord(const std::string& call, Step step, int occurrence) {
  static const std::set<std::string> calls = {
      "CreateVssBackupComponents",
      "IVssBackupComponents::InitializeForBackup",
      "IVssBackupComponents::SetContext",
      "IVssBackupComponents::SetBackupState",
      "IVssBackupComponents::GatherWriterMetadata",
      "IVssBackupComponents::GetWriterMetadataCount",
      "IVssBackupComponents::GetWriterMetadata",
      "IVssBackupComponents::StartSnapshotSet",
      "IVssBackupComponents::AddComponent",
      "IVssBackupComponents::AddToSnapshotSet",
      "IVssBackupComponents::PrepareForBackup",
      "IVssBackupComponents::GatherWriterStatus",
      "IVssBackupComponents::GetWriterStatusCount",
      "IVssBackupComponentsEx3::GetWriterStatusEx",
      "IVssBackupComponents::FreeWriterStatus",
      "IVssBackupComponents::DoSnapshotSet",
      "IVssBackupComponents::SaveAsXML",
      "IVssBackupComponents::SetBackupSucceeded",
      "IVssBackupComponents::BreakSnapshotSet",
      "IVssBackupComponentsEx2::BreakSnapshotSetEx",
  };
  if (call.starts_with("IVssAsync::")) return true;
  if (step == kProvider || step == kWriter) return false;
  if (call == "IVssBackupComponents::QueryInterface") return step == kMaintain;
  // The properties of each copy are asked for twice.
  if (call == "IVssBackupComponents::GetSnapshotProperties") return occurrence % 2 == 0;
  return calls.contains(call);
}

/// The HRESULT that surfaces for a failure.
inline HRESULT HResultOf(DWORD code) {
  return FAILED(static_cast<HRESULT>(code)) ? static_cast<HRESULT>(code) : HResultFromWin32(code);
}

/// What the step of a failed Win32 call must throw; nothing where the request may go on, or ends in its own way.
inline std::optional<HRESULT> StepMustThrow(const std::string& call, Step step, int occurrence, DWORD code) {
  const HRESULT asHResult = HResultOf(code == ERROR_SUCCESS ? DWORD{ERROR_GEN_FAILURE} : code);
  // The first answer only tells how much memory the list takes.
  if (call == "GetIScsiSessionListW" && occurrence % 2 == 0) return asHResult;
  if (call == "malloc") return static_cast<HRESULT>(ERROR_INSUFFICIENT_BUFFER);  // whatever was the matter
  if (call == "GetComputerNameW" && step == kCreate) return asHResult;
  return std::nullopt;
}

/// A failure that a request may absorb without a word.
struct Benign {
  const char* part;               ///< of its call log line
  std::optional<Step> only = {};  ///< the step that may absorb it; nothing: any
};

// Parts of call log lines: calls that give something back, which is gone either way.
inline constexpr char kCloseHandle[] = "CloseHandle(";
inline constexpr char kFindVolumeClose[] = "FindVolumeClose(";
inline constexpr char kFreeLibrary[] = "FreeLibrary(";
inline constexpr char kFreeComponentInfo[] = "::FreeComponentInfo(";

/// What a sweep found, for the test to compare with what it may find.
struct Findings {
  std::set<std::string> absorbed;  ///< benign parts whose failure went unnoticed
  std::set<std::string> renamed;   ///< calls whose failure was noticed, but under no name of its code
};

/// The ways in which a log line or an alert names a failure code.
inline std::vector<std::string> NamesOf(DWORD code) {
  const HRESULT hr = HResultOf(code);
  return {WideToUtf8Lossy(CVarnel::HResult2String(hr)),
          FormatNarrow("0x%x", {code}),
          FormatNarrow("0x%08x", {hr}),
          FormatNarrow("=%d", {code}),
          FormatNarrow("=%u", {code}),
          FormatNarrow(" %d", {code}),
          FormatNarrow(" %u", {code})};
}

/// Whether the text holds the name and does not go on with another letter or digit.
inline bool Mentions(const std::string& text, const std::string& name) {
  for (std::size_t at = text.find(name); at != text.npos; at = text.find(name, at + 1)) {
    const std::size_t end = at + name.size();
    if (end == text.size() || std::isalnum(static_cast<unsigned char>(text[end])) == 0) return true;
  }
  return false;
}

class CallSweepFixture : public HostFixture {
 protected:
  static void TearDownTestSuite() { TellTotal(std::to_string(allRuns_) + " runs with a failed call" + Sample::Text()); }

  /// Which calls of a clean run fail: all of them or those from the completion on with every code; or in turn, each
  /// with one code, and with every code those that stand for the others of their kind.
  enum class Calls { all, fromCompletion, inTurn, fromCompletionInTurn };

  /// Runs `drive` on a fresh host with the failure planned. `drive` takes the trial, runs the steps of a request in
  /// Attempt and calls Conclude while the requestor still lives.
  template <class Drive>
  Trial RunOnce(const simulator::HostModel& model, const Injection& injection, const Drive& drive) {
    ++runs_;
    Install(model);
    log.lines.clear();
    Plan(injection);
    Trial trial;
    trial.injection = injection;
    drive(trial);
    DescribeCalls(trial);
    if (trial.abortFailed) ExpectTheServiceIsFree();
    return trial;
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
    trial.callsAtEnd[step] = host().faults().callCount();
  }

  /// The creation, and how many shadow copies there are after it.
  template <class Action>
  void AttemptCreation(Trial& trial, const CVarnel& requestor, Action action) {
    Attempt(trial, kCreate, action);
    const std::wstring set = requestor.GetSnapShotSetId();
    const std::optional<GUID> id = TryParseGuid<GUID>(std::wstring_view(set));
    if (id) trial.copies = host().machine().snapshots->CopiesOfSet(*id).size();
  }

  /// What must hold while the requestor still lives.
  void Conclude(Trial& trial, std::string details, bool snapshotDone) {
    trial.details += details;
    const Injection& injection = trial.injection;
    // An operation that never ends keeps the service until its object is gone.
    const bool endless = !injection.async.empty() && injection.code == static_cast<DWORD>(VSS_S_ASYNC_PENDING);
    trial.abortFailed =
        injection.persistent || endless || host().faults().firedAt() == "IVssBackupComponents::AbortBackup";
    ExpectACompletedBackup(trial, snapshotDone);
    if (!trial.abortFailed) ExpectTheServiceIsFree();
  }

  /// Every chosen call fails with each of its codes, once and from then on. `run` makes a trial of an injection,
  /// `codesFor` the codes of a call's name.
  template <class Run, class CodesFor>
  Findings Sweep(Calls calls, const std::vector<Benign>& benign, const Run& run, const CodesFor& codesFor) {
    findings_ = {};
    benign_ = benign;
    runs_ = 0;
    const Trial clean = run({});
    ExpectNothingLeft();
    const std::vector<std::string> lines = CountedLines();
    const std::vector<ChosenCall> chosen = Choose(calls, clean, lines);
    EXPECT_THAT(chosen, testing::Not(IsEmpty())) << "nothing was swept";
    for (const Injection& injection : sample_.Of(Injections(chosen, lines, codesFor))) {
      TryOne(clean, run, injection);
      if (HasFailure()) return findings_;  // one report is enough
    }
    // The calls of a run are always the same.
    const Trial beyond = run({.call = static_cast<int>(lines.size()) + 1, .code = 1});
    EXPECT_FALSE(beyond.Fired());
    EXPECT_TRUE(beyond.LooksLike(clean));
    TellRuns(chosen, lines.size());
    return findings_;
  }

  /// Every asynchronous operation of a clean run ends with each of the codes.
  template <class Run>
  void SweepAsyncs(const Run& run, std::span<const DWORD> codes) {
    runs_ = 0;
    const Trial clean = run({});
    const std::vector<std::string> lines = CountedLines();
    std::map<std::string, int> occurrences;
    std::vector<std::pair<Step, Injection>> injections;
    for (std::size_t i = 0; i < lines.size(); ++i) {
      const std::string async = AsyncOf(CallName(lines[i]));
      if (async.empty()) continue;
      const int occurrence = ++occurrences[async];
      const Step step = StepOf(clean, static_cast<int>(i) + 1);
      for (const DWORD code : codes)
        injections.push_back({step, {.code = code, .async = async, .occurrence = occurrence}});
    }
    for (const auto& [step, injection] : sample_.Of(injections)) {
      TryAsync(step, run, injection);
      if (HasFailure()) return;
    }
    EXPECT_THAT(occurrences, testing::SizeIs(testing::Ge(4U))) << "nothing was swept";
    TellRuns(FormatNarrow("%u kinds of operations", {occurrences.size()}));
  }

  /// What a sweep may find and, made whole, must find.
  auto Finds(const std::set<std::string>& all) const { return sample_.Finds(all); }

  /// A request that gets through on this host while nothing fails.
  virtual Outcome AnotherRequest() { return PlainRequest(); }

  void ExpectNothingLeft() {
    EXPECT_EQ(host().live().Describe(), "");
    EXPECT_THAT(host().live().misuses(), IsEmpty());
  }

 private:
  // A call of the clean run by its number. Only the first of its kind fails from then on with every code.
  struct ChosenCall {
    int number = 0;
    bool firstOfItsKind = false;
    bool withEveryCode = true;
  };

  // What is done to the chosen calls.
  template <class CodesFor>
  static std::vector<Injection> Injections(const std::vector<ChosenCall>& chosen, const std::vector<std::string>& lines,
                                           const CodesFor& codesFor) {
    std::vector<Injection> injections;
    for (const ChosenCall& call : chosen) {
      const std::span<const DWORD> all = codesFor(CallName(lines[Index(call.number)]));
      const std::span<const DWORD> codes = call.withEveryCode ? all : all.subspan(Index(call.number) % all.size(), 1);
      for (const DWORD code : codes) {
        injections.push_back({.call = call.number, .code = code});
        if (!call.firstOfItsKind && code != codes.front()) continue;
        injections.push_back({.call = call.number, .code = code, .persistent = true});
      }
    }
    return injections;
  }

  static std::size_t Index(int call) { return static_cast<std::size_t>(call) - 1; }

  // The operation that a call starts, as the fault plan knows it.
  static std::string AsyncOf(const std::string& call) {
    static const std::set<std::string> names = {"GatherWriterMetadata", "PrepareForBackup", "GatherWriterStatus",
                                                "DoSnapshotSet",        "BackupComplete",   "BreakSnapshotSetEx"};
    const std::string name = call.substr(call.find("::") == call.npos ? 0 : call.find("::") + 2);
    return names.contains(name) ? name : std::string();
  }

  // The first step that ended after the call; kSteps for the destructor.
  static Step StepOf(const Trial& clean, int call) {
    std::size_t first = kSteps;
    for (std::size_t step = 0; step < kSteps; ++step) {
      if (call > clean.callsAtEnd[step]) continue;
      if (first == kSteps || clean.callsAtEnd[step] < clean.callsAtEnd[first]) first = step;
    }
    return static_cast<Step>(first);
  }

  // The fault plan, the call log and the log stay as they are.
  template <class Action>
  auto Undisturbed(Action action) {
    const simulator::FaultPlan planned = std::exchange(host().faults(), {});
    host().calls().enabled = false;
    SilentLog silent;
    const ScopedLog guard(silent);
    auto result = action();
    host().calls().enabled = true;
    host().faults() = planned;
    return result;
  }

  void Plan(const Injection& injection) {
    simulator::FaultPlan& faults = host().faults();
    if (injection.call != 0) faults.FailNthCall(injection.call, injection.code, injection.persistent);
    if (injection.async.empty()) return;
    faults.FailAsync(injection.async, static_cast<HRESULT>(injection.code), injection.occurrence);
  }

  // Every call that can fail has its line, in the order of the calls; a pause cannot.
  static bool IsCounted(const std::string& line) { return !line.starts_with("Sleep("); }

  std::vector<std::string> CountedLines() {
    std::vector<std::string> lines = host().calls().lines();
    std::erase_if(lines, [](const std::string& line) { return !IsCounted(line); });
    return lines;
  }

  static std::vector<ChosenCall> Choose(Calls calls, const Trial& clean, const std::vector<std::string>& lines) {
    if (calls == Calls::inTurn) return InTurn(clean, lines);
    std::vector<ChosenCall> chosen;
    if (calls == Calls::fromCompletionInTurn) {
      chosen = InTurn(clean, lines);
      std::erase_if(chosen, [&](const ChosenCall& call) { return call.number <= clean.callsBeforeCompletion; });
      return chosen;
    }
    const int last = static_cast<int>(lines.size());
    for (int n = calls == Calls::all ? 1 : clean.callsBeforeCompletion + 1; n <= last; ++n) chosen.push_back({n, true});
    return chosen;
  }

  // A host with hundreds of files makes the same calls hundreds of times. Of those with one name (and control code)
  // that follow the same call of the service in the same step, the first two and the last stand for all.
  static std::vector<ChosenCall> InTurn(const Trial& clean, const std::vector<std::string>& lines) {
    std::map<std::tuple<Step, std::string, std::string>, std::vector<std::size_t>> kinds;
    std::vector<ChosenCall> chosen;
    std::string service;
    for (std::size_t i = 0; i < lines.size(); ++i) {
      const int call = static_cast<int>(i) + 1;
      const std::string name = CallName(lines[i]);
      if (name.starts_with("IVssBackupComponents")) service = name;
      const std::string kind = name == "DeviceIoControl" ? lines[i].substr(lines[i].rfind(", IOCTL_")) : name;
      std::vector<std::size_t>& sameKind = kinds[{StepOf(clean, call), service, kind}];
      chosen.push_back({.number = call, .firstOfItsKind = sameKind.empty()});
      if (sameKind.size() == kMostOfAKind) {
        chosen[sameKind.back()].withEveryCode = false;
        sameKind.pop_back();
      }
      sameKind.push_back(i);
    }
    return chosen;
  }

  template <class Run>
  void TryOne(const Trial& clean, const Run& run, const Injection& injection) {
    SCOPED_TRACE(FormatNarrow("call %d fails%s with 0x%x",
                              {injection.call, injection.persistent ? " from then on" : "", injection.code}));
    const Trial trial = run(injection);
    SCOPED_TRACE(trial.firedLine);
    ExpectNothingLeft();
    EXPECT_TRUE(trial.Fired());
    Judge(trial, clean);
  }

  template <class Run>
  void TryAsync(Step step, const Run& run, const Injection& injection) {
    SCOPED_TRACE(FormatNarrow("%s, occurrence %d, ends with 0x%x",
                              {injection.async.c_str(), injection.occurrence, injection.code}));
    const Trial trial = run(injection);
    ExpectNothingLeft();
    const auto hr = static_cast<HRESULT>(injection.code);
    if (SUCCEEDED(hr)) {
      ExpectNoSetOutOfNothing(trial);
      return;
    }
    ASSERT_LT(step, kSteps);
    EXPECT_EQ(trial.endings[step].outcome, Outcome::Thrown(hr));
    EXPECT_THAT(trial.details, HasSubstr("RequestStatus=QueryStatus(), Function=pAsync->QueryStatus(), Error=" +
                                         NamesFor(injection.code).front() + ", rc=SystemError"));
  }

  void DescribeCalls(Trial& trial) {
    trial.problems = Problems();
    trial.firedAt = host().faults().firedAt();
    const std::vector<std::string>& lines = host().calls().lines();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(), IsCounted), host().faults().callCount());
    if (!trial.Fired()) return;
    bool completed = false;
    int call = 0;
    for (const std::string& line : lines) {
      if (CallName(line) == trial.firedAt) ++trial.firedOccurrence;
      if (IsCounted(line) && ++call == trial.injection.call) {
        trial.firedLine = line;
        break;
      }
      if (line.starts_with("GetVolumePathNameW(")) trial.firedFor = line;
      completed = completed || line.starts_with("IVssBackupComponents::BackupComplete(");
    }
    if (trial.firedAt != "GetVolumeNameForVolumeMountPointW") trial.firedFor.clear();
    trial.firedAtMarking = trial.firedIn == kComplete && !completed;
  }

  std::vector<std::string> Problems() const {
    std::vector<std::string> lines = log.Errors();
    const std::vector<std::string> warnings = log.Warnings();
    lines.insert(lines.end(), warnings.begin(), warnings.end());
    return lines;
  }

  /// Whatever failed: without a set the completion ends in silence, with one BackupComplete was sent once, and a failed
  /// request leaves no shadow copies behind unless they could not be deleted.
  void ExpectACompletedBackup(const Trial& trial, bool snapshotDone) {
    if (!snapshotDone) {
      EXPECT_TRUE(trial.endings[kComplete].Returned());
      // Copies of an operation that could not be waited for are not known to exist.
      if (!trial.abortFailed && !host().faults().firedAt().starts_with("IVssAsync::")) ExpectNoCopies();
      return;
    }
    const Injection& injection = trial.injection;
    // A success that does nothing may hide the writers' components from the completion.
    const bool mayHide = SUCCEEDED(static_cast<HRESULT>(injection.code)) &&
                         (injection.persistent || !injection.async.empty() || IsCom(host().faults().firedAt()));
    if (injection.None() || !mayHide) {
      EXPECT_EQ(host().calls().Of("IVssBackupComponents::BackupComplete").size(), 1U);
    }
    if (trial.GotThrough() || trial.abortFailed || IsPassedOver(host().faults().firedAt())) return;
    ExpectNoCopies();
  }

  void ExpectNoCopies() { EXPECT_THAT(host().machine().snapshots->SurfacedCopies(), IsEmpty()); }

  /// Another request gets through; the trial's faults, calls and log lines stay as they were. Where no set was asked
  /// for, none can be in the way.
  void ExpectTheServiceIsFree() {
    if (host().calls().Of("IVssBackupComponents::StartSnapshotSet").empty()) return;
    EXPECT_EQ(Undisturbed([&] { return AnotherRequest(); }), Outcome::Returned());
  }

  const std::vector<std::string>& NamesFor(DWORD code) {
    const auto known = names_.find(code);
    if (known != names_.end()) return known->second;
    return names_.emplace(code, Undisturbed([&] { return NamesOf(code); })).first->second;
  }

  bool IsNamed(const Trial& trial) {
    const DWORD code = trial.injection.code;
    const auto names = [&](const std::string& text) {
      return std::any_of(NamesFor(code).begin(), NamesFor(code).end(),
                         [&](const std::string& name) { return Mentions(text, name); });
    };
    // What the common classes throw carries its own text.
    const auto tells = [&](const Ending& ending) { return names(ending.otherException); };
    return names(trial.details) || std::any_of(trial.endings.begin(), trial.endings.end(), tells) ||
           std::any_of(log.lines.begin(), log.lines.end(),
                       [&](const RecordingLog::Line& line) { return names(line.text); });
  }

  /// A request that returned has its set. A volume that the service only says it added is missed by nobody when its
  /// copy is not looked at here.
  static void ExpectNoSetOutOfNothing(const Trial& trial) {
    if (trial.firedAt == "IVssBackupComponents::AddToSnapshotSet") return;
    if (trial.endings[kCreate].Returned() && trial.callsAtEnd[kCreate] != 0) {
      EXPECT_GT(trial.copies, 0U);
    }
  }

  // Null when the call must not fail unnoticed.
  const char* BenignPartOf(const Trial& trial) const {
    for (const Benign& benign : benign_) {
      if (benign.only && benign.only != trial.firedIn) continue;
      for (const std::string& line : {trial.firedLine, trial.firedFor}) {
        if (line.find(benign.part) != std::string::npos) return benign.part;
      }
    }
    return nullptr;
  }

  void Judge(const Trial& trial, const Trial& clean) {
    const Injection& injection = trial.injection;
    const bool failsCom = IsCom(trial.firedAt) && FAILED(static_cast<HRESULT>(injection.code));
    if (IsCom(trial.firedAt) && !failsCom) {
      JudgeEmptySuccess(trial);
      return;
    }
    if (ReturnsItsCode(trial.firedAt) && injection.code == ERROR_SUCCESS) return;
    if (const char* part = BenignPartOf(trial); part != nullptr && trial.LooksLike(clean)) {
      findings_.absorbed.insert(part);
      return;
    }
    EXPECT_FALSE(trial.LooksLike(clean)) << "the failure was swallowed";
    // Success codes are unknown errors to Win32, and a call that fails from then on may hide the code of the first.
    if (!injection.persistent && injection.code > S_FALSE && !IsNamed(trial)) findings_.renamed.insert(trial.firedAt);
    const bool mayGoOn = injection.persistent && BenignPartOf(trial) != nullptr;
    if (failsCom && !mayGoOn && MustEndItsStep(trial)) ExpectItsStepThrew(trial, injection.code);
    if (!failsCom && !injection.persistent) ExpectWin32FailureToEndItsStep(trial);
  }

  // No failure, so none can be swallowed; but what was promised must be there.
  void JudgeEmptySuccess(const Trial& trial) {
    ExpectNoSetOutOfNothing(trial);
    if (trial.injection.persistent || !PromisesAnObject(trial.firedAt) || !MustEndItsStep(trial)) return;
    ExpectItsStepThrew(trial, static_cast<DWORD>(E_UNEXPECTED));
  }

  void ExpectItsStepThrew(const Trial& trial, DWORD code) {
    ASSERT_TRUE(trial.firedIn);
    EXPECT_EQ(trial.endings[*trial.firedIn].outcome, Outcome::Thrown(static_cast<HRESULT>(code)));
    // Where everything else fails too, the text of the code may be another one.
    if (!trial.injection.persistent) ExpectItsReport(trial, code);
  }

  static void ExpectWin32FailureToEndItsStep(const Trial& trial) {
    if (!trial.firedIn) return;
    const std::optional<HRESULT> thrown =
        StepMustThrow(trial.firedAt, *trial.firedIn, trial.firedOccurrence, trial.injection.code);
    if (!thrown) return;
    EXPECT_EQ(trial.endings[*trial.firedIn].outcome, Outcome::Thrown(*thrown));
  }

  // The record, or the lines, with the call and the name of the code.
  void ExpectItsReport(const Trial& trial, DWORD code) {
    const std::string call = trial.firedAt.substr(trial.firedAt.rfind(':') + 1) + "(";
    const std::string& name = NamesFor(code).front();
    if (LeavesARecord(trial.firedAt, *trial.firedIn, trial.firedOccurrence)) {
      EXPECT_THAT(trial.details,
                  testing::AllOf(HasSubstr(call), HasSubstr(")=Failed, error=" + name + ", rc=COMMError")));
    } else {
      const std::vector<std::string> errors = log.Errors();
      EXPECT_THAT(errors, testing::Contains(testing::AllOf(testing::StartsWith("ERROR: COM call "), HasSubstr(call))));
      EXPECT_THAT(errors, testing::Contains("- Error text: " + name));
      EXPECT_THAT(trial.details, testing::Not(HasSubstr(call)));
    }
  }

  static bool MustEndItsStep(const Trial& trial) {
    if (trial.firedIn == kComplete && IsPassedOver(trial.firedAt)) return false;
    return trial.firedAtMarking || !IsDegrading(trial.firedAt);
  }

  void TellRuns(const std::vector<ChosenCall>& chosen, std::size_t all) const {
    const auto thorough =
        std::count_if(chosen.begin(), chosen.end(), [](const ChosenCall& call) { return call.withEveryCode; });
    TellRuns(FormatNarrow("%u of %u calls, %u of them with every code", {chosen.size(), all, thorough}));
  }

  void TellRuns(const std::string& over) const {
    std::cout << "[     SWEEP ] " << runs_ << " runs over " << over << '\n';
    RecordProperty("runs", runs_);
    allRuns_ += runs_;
  }

  static constexpr std::size_t kMostOfAKind = 3;

  static inline int allRuns_ = 0;
  Sample sample_;
  int runs_ = 0;
  std::vector<Benign> benign_;
  Findings findings_;
  std::map<DWORD, std::vector<std::string>> names_;
};

}  // namespace varnel::test
