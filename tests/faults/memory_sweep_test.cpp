// The memory sweep: whole requests run again and again, each time with another request of the library for memory that
// fails, once or from then on. What the library asks for itself fails; the host, the log and the test are not under
// test and have all the memory they want, except for the texts that the service hands out. Expected is std::bad_alloc,
// or the code that is stated for a shortage, or a step that does without; never a crash, a leak, a failure that nobody
// hears of, or a service that takes no other request.
#include <algorithm>
#include <array>
#include <exception>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "requestors/ExchReq.h"
#include "requestors/HyperVReq.h"
#include "requestors/SqlReq.h"
#include "simulator/vss/snapshot_service.h"
#include "tests/faults/failing_memory.h"
#include "tests/faults/guarded_host.h"
#include "tests/faults/sample.h"
#include "tests/faults/sweep.h"
#include "tests/support/applications.h"
#include "tests/support/disk_volumes.h"
#include "tests/support/golden.h"
#include "tests/support/snapshot_request.h"

namespace varnel::test {
namespace {

// What a run does.
struct Course {
  simulator::HostModel model;
  std::vector<std::wstring> disks = {L"TSL0001"};
  DWORD context = 0;
  int writerCode = 0;
  bool verify = false;
  Then then = Then::mask;
  bool callLog = true;
};

// What there is no memory for. 0 is nothing.
struct Shortage {
  int request = 0;
  bool persistent = false;
  int text = 0;
  bool silently = false;
};

std::string DescriptionOf(const Shortage& shortage) {
  if (shortage.text != 0) {
    return FormatNarrow("text %d is lost%s", {shortage.text, shortage.silently ? " silently" : ""});
  }
  return FormatNarrow("request %d for memory fails%s", {shortage.request, shortage.persistent ? " from then on" : ""});
}

struct MemoryTrial : StepEndings {
  int requests = 0;
  int texts = 0;
  bool fired = false;
  std::optional<Step> firedIn = {};  // nothing: while the requestor was made or destroyed
  bool completed = false;
  std::vector<std::string> answers;
  std::string details;
  std::vector<std::string> lines;  // of the log

  bool LooksLike(const MemoryTrial& other) const {
    return endings == other.endings && answers == other.answers && details == other.details && lines == other.lines;
  }
  const Ending& At(Step step) const { return endings[step]; }
};

bool RanOut(const Ending& ending) {
  return ending.otherException == std::bad_alloc().what();
}

// One request in the host agent's order; a step that failed ends it.
template <class Requestor>
class MemoryRun {
 public:
  MemoryRun(const Course& course, const Shortage& shortage)
      : course_(course), texts_(shortage.text, shortage.silently), host_(course.model), guarded_(host_, texts_) {
    host_.calls().enabled = course.callLog;
    memory::FailNth(shortage.request, shortage.persistent);
    Request();
    trial.requests = memory::Requests();
    trial.texts = texts_.count();
    trial.fired = Fired();
    trial.lines = lines_.AllWithSources();
    memory::FailNth(0, false);
    ExpectNothingLeft();
  }

  MemoryTrial trial;

 private:
  void Request() {
    std::optional<Requestor> requestor(std::in_place, 0u);
    RunSteps(*requestor);
    if (trial.completed) ExpectTheServiceIsFree();
    const memory::Armed armed;
    requestor.reset();
  }

  void RunSteps(Requestor& requestor) {
    Attempt(kValidate, [&] { trial.endings[kValidate].refusal = Validate(requestor); });
    const bool valid = trial.At(kValidate).Returned();
    if (valid) CheckPresence(requestor);
    details_ = "writer=" + std::to_string(course_.writerCode) + ",";
    if (valid) Attempt(kCreate, [&] { Create(requestor); });
    if (valid && trial.GotThrough()) Attempt(kCatalog, [&] { ReadResults(requestor); });
    if (course_.verify && trial.GotThrough()) Attempt(kVerify, [&] { requestor.VerifySnapShotData(); });
    const int code = trial.CodeSoFar();
    Attempt(kComplete, [&] { requestor.SetBackupStatus(code, details_); });
    trial.completed = !RanOut(trial.At(kComplete));
    trial.details += details_;
    if (!trial.GotThrough()) return;
    Attempt(kDisconnect, [&] { requestor.DisconnectSnapshotLuns(details_); });
    Attempt(kMaintain, [&] { Maintain(course_.then, requestor, details_); });
    trial.details += details_;
  }

  DWORD Validate(Requestor& requestor) {
    if (const DWORD refusal = requestor.ValidateHostConfiguration(details_)) return refusal;
    requestor.SetDiskAndVolumeEnumeratorObj(&enumerator_);
    const std::vector<std::string> volumes = VolumesOn(enumerator_, course_.disks);
    std::string status;
    const DWORD refusal = requestor.ValidateVolumes(volumes, status, details_, {}, "");
    trial.details += details_;
    return refusal;
  }

  void CheckPresence(Requestor& requestor) {
    Attempt(kProvider, [&] { Answer(requestor.IsTesselVSSProviderPresent()); });
    Attempt(kWriter, [&] { Answer(requestor.IsWriterPresent(details_)); });
  }

  void Create(Requestor& requestor) {
    requestor.SetInputDriveSerialNos(course_.disks);
    requestor.Initialize(course_.context, L"", false, VSS_BT_FULL, details_, &enumerator_);
    requestor.CreateVssSnapshotSet(details_);
  }

  void ReadResults(Requestor& requestor) {
    std::map<std::string, ApplicationObjectMeatadataInfo> metadata;
    requestor.GetSnapshotMeatadata(metadata);
    const std::size_t characters = requestor.GetSnapShotSetId().size() + requestor.GetBackupDocument().size();
    Answer(metadata.size() + characters);
    Answer(requestor.IsDiskPresentInSystem(L"SYS", details_));
  }

  template <class Value>
  void Answer(Value value) {
    const memory::Outside outside;
    trial.answers.push_back(std::to_string(value));
  }

  template <class Action>
  void Attempt(Step step, Action action) {
    const bool firedBefore = Fired();
    Ending& ending = trial.endings[step];
    try {
      ending.outcome = OutcomeOf([&] {
        const memory::Armed armed;
        action();
      });
    } catch (const std::exception& exception) {
      ending.otherException = exception.what();
    }
    if (!firedBefore && Fired()) trial.firedIn = step;
  }

  bool Fired() const { return memory::Fired() || texts_.Fired(); }

  // Where no set was asked for, none can be in the way.
  void ExpectTheServiceIsFree() {
    if (host_.calls().Of("IVssBackupComponents::StartSnapshotSet").empty()) return;
    const simulator::FaultPlan planned = std::exchange(host_.faults(), {});
    SilentLog silent;
    const ScopedLog scoped(silent);
    const ScopedHost whole(host_);
    EXPECT_EQ(PlainRequest(), Outcome::Returned());
    host_.faults() = planned;
  }

  // A failed request leaves no shadow copies behind, unless its completion had no memory either.
  void ExpectNothingLeft() {
    EXPECT_EQ(host_.live().Describe(), "");
    EXPECT_THAT(host_.live().misuses(), IsEmpty());
    if (trial.completed && !trial.GotThrough()) {
      EXPECT_THAT(host_.machine().snapshots->SurfacedCopies(), IsEmpty());
    }
    if (!trial.completed) ExpectTheServiceIsFree();
  }

  const Course& course_;
  TextShortage texts_;
  simulator::SimulatedHost host_;
  GuardedHost guarded_;
  const ScopedHost current_{guarded_};
  RecordingLog lines_;
  GuardedLog log_{lines_};
  const ScopedLog scoped_{log_};
  TesselCommonClasses::DiskAndVolumeEnumerator enumerator_;
  std::string details_;
};

template <class Requestor>
MemoryTrial RunRequest(const Course& course, const Shortage& shortage) {
  MemoryRun<Requestor> run(course, shortage);
  return std::move(run.trial);
}

class MemorySweepTest : public testing::Test {
 protected:
  static void TearDownTestSuite() { TellTotal(std::to_string(allRuns_) + " runs that lack memory" + Sample::Text()); }

  /// Every request for memory fails, once and from then on.
  template <class Requestor>
  void Sweep(const Course& course) {
    const MemoryTrial clean = Clean<Requestor>(course);
    int thrown = 0;
    std::vector<Shortage> shortages;
    for (const bool persistent : {false, true}) {
      for (int n = 1; n <= clean.requests; ++n) shortages.push_back({.request = n, .persistent = persistent});
    }
    for (const Shortage& shortage : sample_.Of(shortages)) {
      Try<Requestor>(course, shortage, [&](const MemoryTrial& trial) {
        if (shortage.persistent) return JudgePersistent(trial);
        Judge(trial, clean);
        if (HasRunOut(trial)) ++thrown;
      });
      if (HasFailure()) return;  // one report is enough
    }
    std::cout << "[     SWEEP ] " << clean.requests << " requests for memory, " << thrown << " end in bad_alloc\n";
    RecordProperty("requests", clean.requests);
  }

  /// Every text that the service hands out is lost, with and without a failure of its call.
  template <class Requestor>
  void SweepTexts(const Course& course) {
    const MemoryTrial clean = Clean<Requestor>(course);
    EXPECT_GT(clean.texts, 10);
    std::vector<Shortage> shortages;
    for (const bool silently : {false, true}) {
      for (int text = 1; text <= clean.texts; ++text) shortages.push_back({.text = text, .silently = silently});
    }
    for (const Shortage& shortage : sample_.Of(shortages)) {
      Try<Requestor>(course, shortage, [&](const MemoryTrial& trial) {
        shortage.silently ? JudgePersistent(trial) : JudgeLostText(trial, clean);
      });
      if (HasFailure()) return;
    }
    std::cout << "[     SWEEP ] " << clean.texts << " texts\n";
  }

 private:
  static inline int allRuns_ = 0;
  Sample sample_;

  // One request with this shortage, which must happen and leave no block behind.
  template <class Requestor, class Judgement>
  static void Try(const Course& course, const Shortage& shortage, const Judgement& judge) {
    SCOPED_TRACE(DescriptionOf(shortage));
    WithoutLeak([&] {
      const MemoryTrial trial = RunRequest<Requestor>(course, shortage);
      EXPECT_TRUE(trial.fired);
      judge(trial);
    });
    ++allRuns_;
  }

  template <class Requestor>
  MemoryTrial Clean(const Course& course) {
    const MemoryTrial clean = RunRequest<Requestor>(course, {});  // fills what the process keeps
    WithoutLeak([&] { EXPECT_TRUE(RunRequest<Requestor>(course, {}).LooksLike(clean)); });
    EXPECT_GT(clean.requests, 100);
    EXPECT_FALSE(clean.fired);
    for (const Ending& ending : clean.endings) EXPECT_EQ(ending.otherException, "");
    return clean;
  }

  template <class Action>
  static void WithoutLeak(Action action) {
    const long before = memory::LiveBlocks();
    action();
    if (HasFailure()) return;  // the report holds memory
    EXPECT_EQ(memory::LiveBlocks(), before);
  }

  static bool HasRunOut(const MemoryTrial& trial) {
    return std::any_of(trial.endings.begin(), trial.endings.end(), RanOut);
  }

  // A text that could not be made is missing from the same answer.
  static bool IsTheSameAlert(const Ending& ending, const Ending& other) {
    return ending.otherException.empty() && !ending.outcome.thrown &&
           ending.outcome.alertCode == other.outcome.alertCode && ending.refusal == other.refusal;
  }

  static void Judge(const MemoryTrial& trial, const MemoryTrial& clean) {
    EXPECT_FALSE(trial.LooksLike(clean)) << "nobody hears of the shortage";
    for (int step = 0; step < kSteps; ++step) {
      const auto index = static_cast<std::size_t>(step);
      SCOPED_TRACE(FormatNarrow("step %d", {step}));
      const Ending& ending = trial.endings[index];
      if (step != trial.firedIn) {
        EXPECT_TRUE(ending.Returned() || ending == clean.endings[index]) << ending.outcome << ending.otherException;
        continue;
      }
      const bool marking = step == kComplete && ending.outcome == Outcome::Thrown(E_FAIL);
      const bool asClean = ending == clean.endings[index] || IsTheSameAlert(ending, clean.endings[index]);
      EXPECT_TRUE(RanOut(ending) || marking || asClean) << ending.outcome << ending.otherException;
    }
  }

  static void JudgePersistent(const MemoryTrial& trial) {
    for (const Ending& ending : trial.endings) EXPECT_TRUE(ending.otherException.empty() || RanOut(ending));
  }

  static void JudgeLostText(const MemoryTrial& trial, const MemoryTrial& clean) {
    EXPECT_FALSE(trial.LooksLike(clean)) << "nobody hears of the shortage";
    ASSERT_TRUE(trial.firedIn);
    const Ending& ending = trial.endings[*trial.firedIn];
    const bool degraded = ending.outcome.alertCode != 0;
    EXPECT_TRUE(degraded || ending.outcome == Outcome::Thrown(E_OUTOFMEMORY)) << ending.outcome;
  }
};

simulator::HostModel PlainModel() {
  simulator::HostModel model = MailAndWebHost();
  model.iscsiSessions = DataAndShadowSessions(1);
  return model;
}

// One component of a writer fails, and another writer as a whole.
Course FailingWriters() {
  Course course{.model = PlainModel(), .context = VSS_CTX_APP_ROLLBACK, .then = Then::breakUp};
  course.model.faults.writers = FailedMailAndWeb();
  return course;
}

Course SqlServer() {
  Course course{.model = HostWithEveryApplication(), .writerCode = 2, .then = Then::remove};
  course.model.cluster = simulator::ClusterNode{L"CLU01", {{L"sqlvirt", L"SQL01"}}};
  course.model.databases = {{L"TSL0001", L"sales@sqlvirt\tcrm@sqlvirt\tbroken"}};
  return course;
}

Course Exchange(DWORD exitCode) {
  Course course{.model = HostWithEveryApplication(), .context = VSS_CTX_APP_ROLLBACK, .verify = true};
  course.model.commands = {{L"eseutil.exe /k /i *", 0}, {L"eseutil.exe /k *", exitCode}};
  return course;
}

Course HyperV(bool shared) {
  Course course{.model = HostWithEveryApplication(), .disks = {L"TSL0001", L"TSL0002"}};
  course.model.cluster = simulator::ClusterNode{L"CLU01", {}};
  course.model.systemDirectory = L"C:\\Windows\\system32";
  course.model.fileVersions = {{L"C:\\Windows\\system32\\Vmms.exe", L"10.0.17763.1"}};
  for (simulator::Disk& disk : course.model.disks) disk.clustered = true;
  course.model.disks[1].volumes[0].csv = true;
  course.model.disks[2].volumes[0].csv = shared;
  return course;
}

TEST_F(MemorySweepTest, ARequestThatGetsThroughMayRunOutOfMemory) {
  Sweep<CVarnel>({.model = PlainModel(), .context = VSS_CTX_APP_ROLLBACK});
}

TEST_F(MemorySweepTest, ARequestWithExtraVolumesMayRunOutOfMemory) {
  Sweep<CVarnel>({.model = PlainModel(), .disks = {L"TSL0001", L"TSL0002"}});
}

TEST_F(MemorySweepTest, ARequestOnTheWrongDiskMayRunOutOfMemory) {
  Sweep<CVarnel>({.model = PlainModel(), .disks = {L"TSL0002"}});
}

TEST_F(MemorySweepTest, ARequestWithFailedWritersMayRunOutOfMemory) {
  Sweep<PartialRequestor>(FailingWriters());
}

TEST_F(MemorySweepTest, ARequestWithAFailedCallMayRunOutOfMemory) {
  Course course{.model = PlainModel()};
  course.model.faults.calls = {{"IVssBackupComponents::AddToSnapshotSet", 1, static_cast<DWORD>(VSS_E_PROVIDER_VETO)}};
  Sweep<CVarnel>(course);
}

TEST_F(MemorySweepTest, ASqlServerRequestMayRunOutOfMemory) {
  Sweep<SqlReq>(SqlServer());
}

TEST_F(MemorySweepTest, AnExchangeRequestMayRunOutOfMemory) {
  Sweep<ExchangeReq>(Exchange(0));
}

TEST_F(MemorySweepTest, AnExchangeRequestWithADamagedFileMayRunOutOfMemory) {
  Sweep<ExchangeReq>(Exchange(4294967291));
}

TEST_F(MemorySweepTest, AHyperVRequestMayRunOutOfMemory) {
  Sweep<HyperVReq>(HyperV(true));
}

TEST_F(MemorySweepTest, ARefusedHyperVRequestMayRunOutOfMemory) {
  Sweep<HyperVReq>(HyperV(false));
}

// Otherwise the sweeps would fail requests of the host's own.
TEST_F(MemorySweepTest, OnlyTheLibraryMeetsTheShortage) {
  Course course{.model = PlainModel()};
  const int requests = RunRequest<CVarnel>(course, {}).requests;
  course.callLog = false;
  EXPECT_EQ(RunRequest<CVarnel>(course, {}).requests, requests);
}

TEST_F(MemorySweepTest, EveryBlockOfTheHeapMayBeRefused) {
  for (int block = 1; block <= 4; ++block) {
    SCOPED_TRACE(block);
    Course course{.model = PlainModel()};
    course.model.faults.calls = {{"malloc", block, ERROR_NOT_ENOUGH_MEMORY}};
    const MemoryTrial trial = RunRequest<CVarnel>(course, {});
    EXPECT_TRUE(trial.GotThrough());
    EXPECT_TRUE(trial.At(kMaintain).Returned());
    if (block == 4) {  // one for the sessions and one for the devices of each
      EXPECT_TRUE(trial.At(kDisconnect).Returned());
      continue;
    }
    EXPECT_EQ(trial.At(kDisconnect).outcome.thrown, long{ERROR_INSUFFICIENT_BUFFER});
    EXPECT_THAT(trial.details, HasSubstr("RequestStatus=LowMemory"));
  }
}

TEST_F(MemorySweepTest, EveryTextOfTheServiceMayBeLost) {
  SweepTexts<CVarnel>({.model = PlainModel()});
  SweepTexts<PartialRequestor>(FailingWriters());
}

// A saved document on its way into a new request. Its text is the only one that the library makes for the service.
TEST_F(MemorySweepTest, ASavedDocumentMayRunOutOfMemory) {
  TextShortage texts(0, false);
  simulator::SimulatedHost host(PlainModel());
  GuardedHost guarded(host, texts);
  const ScopedHost current(guarded);
  SnapshotRequest first;
  ASSERT_EQ(first.StartAndCreate(), Outcome::Returned());
  const std::wstring document = first.requestor.GetBackupDocument();
  int request = 0;
  do {
    CVarnel second(0);
    std::string details;
    memory::FailNth(++request, false);
    try {
      const memory::Armed armed;
      second.Initialize(0, document, false, VSS_BT_FULL, details, nullptr);
    } catch (const std::bad_alloc&) {
      EXPECT_TRUE(memory::Fired());
    }
  } while (memory::Fired());
  EXPECT_GT(request, 1);

  CVarnel second(0);
  std::string details;
  host.faults().FailCall("SysAllocStringLen", ERROR_NOT_ENOUGH_MEMORY);
  EXPECT_THROW(second.Initialize(0, document, false, VSS_BT_FULL, details, nullptr), std::bad_alloc);
  EXPECT_EQ(first.Complete(0), Outcome::Returned());
}

TEST(MemoryShortage, ADiskThatCannotBeDescribedForWantOfMemoryEndsTheListWithItsCode) {
  TextShortage texts(0, false);
  simulator::SimulatedHost host(PlainModel());
  GuardedHost guarded(host, texts);
  const ScopedHost current(guarded);
  RecordingLog lines;
  GuardedLog log(lines);
  const ScopedLog scoped(log);
  int refused = 0;
  for (int request = 1;; ++request) {
    CVarnel requestor(0);
    RequestorProbe probe(requestor);
    lines.lines.clear();
    memory::FailNth(request, false);
    long code = 0;
    try {
      const memory::Armed armed;
      probe.GetAllSystemDisks();
    } catch (long thrown) {
      code = thrown;
    } catch (const std::bad_alloc&) {
      EXPECT_TRUE(memory::Fired());
    }
    if (!memory::Fired()) break;
    if (code == 0) continue;
    ++refused;
    EXPECT_EQ(code, Win32Failure(ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_EQ(lines.Errors().front(), "Failed to allocate memory for PSTORAGE_DEVICE_DESCRIPTOR");
  }
  memory::FailNth(0, false);
  EXPECT_EQ(refused, 3);  // one for each disk
  EXPECT_EQ(host.live().Describe(), "");
}

TEST(MemoryShortage, AnExceptionHasATextEvenWithoutMemoryForIt) {
  const VarnelException exception(VarnelException::WriterFailure, L"A text that fits into no short string at all.");
  memory::FailNth(1, true);
  const char* text = nullptr;
  {
    const memory::Armed armed;
    text = exception.what();
  }
  memory::FailNth(0, false);
  EXPECT_STREQ(text, "VarnelException");
  EXPECT_STREQ(exception.what(), "A text that fits into no short string at all.");
}

TEST(MemoryShortage, AnExceptionThatCannotBeCopiedIsABadAlloc) {
  const VarnelException exception(VarnelException::WriterFailure, L"A text that fits into no short string at all.");
  for (int request = 1; request <= 3; ++request) {  // the message, the list and its entry
    memory::FailNth(request, false);
    const auto copyAndThrow = [&] {
      const memory::Armed armed;
      throw VarnelException(exception);
    };
    EXPECT_THROW(copyAndThrow(), std::bad_alloc);
  }
  memory::FailNth(0, false);
}

// Whatever is short while a line is written: nothing is thrown, and the file holds whole lines only.
TEST(MemoryShortage, ALogLineWithoutMemoryIsLost) {
  const std::filesystem::path path =
      std::filesystem::temp_directory_path() / FormatNarrow("varnel_memory_%u.log", {std::random_device()()});
  int request = 0;
  {
    const std::unique_ptr<LogSink> sink = OpenLogFile(path, CFileLog::Verbose);
    const ScopedLog scoped(*sink);
    do {
      memory::FailNth(++request, false);
      const memory::Armed armed;
      CFileLog::GetInstance()->Log(CFileLog::Error, L"a source of some length", 7, L"A line of %s.", L"some length");
    } while (memory::Fired());
    memory::FailNth(0, false);
  }
  const std::vector<std::string> lines = LinesOf(ReadText(path));
  std::filesystem::remove(path);
  EXPECT_GT(request, 3);
  EXPECT_THAT(lines, testing::Not(IsEmpty()));
  EXPECT_LE(static_cast<int>(lines.size()), request);
  for (const std::string& line : lines) {
    EXPECT_THAT(line, testing::EndsWith(" E a source of some length(7) A line of some length."));
  }
}

}  // namespace
}  // namespace varnel::test
