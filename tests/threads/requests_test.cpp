// Requests side by side on threads of one process, on one host: each has its own requestor and its own enumerator, all
// share the host, the log, the metadata bridge and what the common classes keep for the process.
#include <future>
#include <memory>
#include <sstream>
#include <thread>

#include "requestors/ExchReq.h"
#include "requestors/HyperVReq.h"
#include "requestors/SqlReq.h"
#include "simulator/vss/snapshot_service.h"
#include "tests/support/applications.h"
#include "tests/support/files.h"
#include "tests/threads/thread_support.h"

namespace varnel::test {
namespace {

enum class Application { sql, hyperV, exchange };

// What the nth request protects: the nth disk, on which its application has one component.
struct Job {
  int n;
  Application application;

  std::wstring disk() const { return L"TSL000" + std::to_wstring(n); }
  std::wstring mountPoint() const { return std::wstring(1, static_cast<wchar_t>(L'D' + n)) + L":\\"; }
  std::wstring component() const { return L"db" + std::to_wstring(n); }
};

std::vector<Job> MakeJobs(int count) {
  constexpr Application kTurns[] = {Application::sql, Application::sql, Application::hyperV, Application::exchange};
  std::vector<Job> jobs;
  for (int n = 1; n <= count; ++n) jobs.push_back({n, kTurns[(n - 1) % 4]});
  return jobs;
}

simulator::WriterComponent MailboxOf(const Job& job) {
  simulator::WriterComponent component = MakeMailbox(job.component());
  for (simulator::FileSpec& file : component.files) file.path.replace(0, 3, job.mountPoint());
  return component;
}

void AddComponentOf(const Job& job, std::vector<simulator::Writer>& writers) {
  switch (job.application) {
    case Application::sql:
      writers[2].components.push_back(MakeComponent(L"SQL01", job.component(), {job.mountPoint() + L"data"}));
      break;
    case Application::exchange:
      writers[3].components.push_back(MailboxOf(job));
      break;
    case Application::hyperV:
      writers[4].components.push_back(
          MakeMachine(job.component(), L"Online\\" + job.component(), job.mountPoint() + L"vm"));
      break;
  }
}

// The disks of the jobs, the writers of all applications with a component for each job, and its databases.
simulator::HostModel HostOf(const std::vector<Job>& jobs) {
  simulator::HostModel model = HostWithEveryApplication();
  model.disks.resize(1);  // the system's
  for (simulator::Writer& writer : model.writers) writer.components.clear();
  for (const Job& job : jobs) {
    model.disks.push_back(MakeDisk(job.disk(), static_cast<DWORD>(job.n), job.mountPoint()));
    AddComponentOf(job, model.writers);
    model.databases[job.disk()] = job.component() + L"@sql01";
  }
  return model;
}

std::unique_ptr<CVarnel> MakeRequestor(Application application) {
  if (application == Application::sql) return std::make_unique<SqlReq>(0);
  if (application == Application::exchange) return std::make_unique<ExchangeReq>(0);
  return std::make_unique<HyperVReq>(0);
}

// One request as the host agent drives it.
class Request {
 public:
  explicit Request(const Job& job) : requestor(MakeRequestor(job.application)) {
    std::string details = job.application == Application::sql ? "writer=2," : "writer=0,";
    taken = OutcomeOf([&] {
      requestor->SetInputDriveSerialNos({job.disk()});
      requestor->Initialize(VSS_CTX_APP_ROLLBACK, L"", false, VSS_BT_FULL, details, &enumerator_);
      requestor->CreateVssSnapshotSet(details);
      catalogue = CatalogueLines(*requestor);
    });
    completed = OutcomeOf([&] { requestor->SetBackupStatus(StatusCode(taken), details); });
  }

 private:
  TesselCommonClasses::DiskAndVolumeEnumerator enumerator_;

 public:
  std::unique_ptr<CVarnel> requestor;
  Outcome taken;
  Outcome completed;
  std::vector<std::string> catalogue;
};

// The service has one set under construction at a time: who meets another's tries again with a new requestor.
std::unique_ptr<Request> Take(const Job& job, Meeting& start) {
  constexpr int kMostTries = 10000;
  start.ArriveAndWait();
  auto request = std::make_unique<Request>(job);
  for (int i = 1; i < kMostTries && request->taken == Outcome::Thrown(VSS_E_SNAPSHOT_SET_IN_PROGRESS); ++i) {
    EXPECT_EQ(request->completed, Outcome::Returned());
    std::this_thread::yield();
    request = std::make_unique<Request>(job);
  }
  return request;
}

std::vector<std::unique_ptr<Request>> TakeAll(const std::vector<Job>& jobs) {
  Meeting start(static_cast<int>(jobs.size()));
  std::vector<std::future<std::unique_ptr<Request>>> threads;
  for (const Job& job : jobs) {
    threads.push_back(std::async(std::launch::async, [&start, &job] { return Take(job, start); }));
  }
  std::vector<std::unique_ptr<Request>> requests;
  for (auto& thread : threads) requests.push_back(thread.get());
  return requests;
}

std::vector<std::string> ExpectedCatalogue(const Job& job) {
  const std::string disk = WideToUtf8(job.disk());
  const std::string component = WideToUtf8(job.component());
  switch (job.application) {
    case Application::sql:
      return {disk + " id \\SQL01\\" + component};
    case Application::exchange:
      return {disk + " id \\Information Store\\EX01\\" + component, disk + " name Mailbox " + component};
    default:
      return {disk + " id " + component, disk + " name " + component};
  }
}

class SideBySide : public HostFixture, public testing::WithParamInterface<int> {
 protected:
  std::vector<std::wstring> VolumesOfSet(const CVarnel& requestor) {
    std::vector<std::wstring> volumes;
    const GUID set = GuidOrNull<GUID>(requestor.GetSnapShotSetId());
    for (const simulator::ShadowCopy* copy : host().machine().snapshots->CopiesOfSet(set)) {
      volumes.push_back(copy->originalVolume);
    }
    return volumes;
  }

  void ExpectItsOwnSet(const Job& job, const Request& request) {
    SCOPED_TRACE("request " + std::to_string(job.n));
    EXPECT_EQ(request.taken, Outcome::Returned());
    EXPECT_EQ(request.completed, Outcome::Returned());
    EXPECT_THAT(VolumesOfSet(*request.requestor), ElementsAre(VolumeName(job.n)));
    EXPECT_EQ(request.catalogue, ExpectedCatalogue(job));
  }
};

INSTANTIATE_TEST_SUITE_P(Two, SideBySide, testing::Values(2));
INSTANTIATE_TEST_SUITE_P(Eight, SideBySide, testing::Values(8));

TEST_P(SideBySide, EachRequestGetsTheSetOfItsOwnDisksAndDatabases) {
  const std::vector<Job> jobs = MakeJobs(GetParam());
  Install(HostOf(jobs));
  const std::vector<std::unique_ptr<Request>> requests = TakeAll(jobs);
  for (std::size_t i = 0; i < jobs.size(); ++i) ExpectItsOwnSet(jobs[i], *requests[i]);
  EXPECT_EQ(host().machine().snapshots->SurfacedCopies().size(), jobs.size());
}

// "2026-11-20 18:52:44.123 I varnel(84) text", or what follows a line break in the text.
bool IsWholeLine(const std::string& line) {
  constexpr std::string_view kStamp = "dddd-dd-dd dd:dd:dd.ddd ";
  if (line.starts_with("    ")) return true;
  const bool stamped = line.size() > kStamp.size() + 2 &&
                       std::equal(kStamp.begin(), kStamp.end(), line.begin(), [](char wanted, char c) {
                         return wanted == 'd' ? c >= '0' && c <= '9' : c == wanted;
                       });
  return stamped && std::string_view("VIWE").find(line[kStamp.size()]) != std::string_view::npos &&
         line.find(") ", kStamp.size()) != std::string::npos;
}

int Occurrences(const std::string& text, std::string_view part) {
  int count = 0;
  for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at) ++count;
  return count;
}

TEST_P(SideBySide, TheLinesOfTheirLogAndTheirCallsAreWhole) {
  const std::vector<Job> jobs = MakeJobs(GetParam());
  Install(HostOf(jobs));
  const TemporaryFile logFile;
  {
    const std::unique_ptr<LogSink> file = OpenLogFile(logFile.path, CFileLog::Verbose);
    const ScopedLog scoped(*file);
    TakeAll(jobs);
  }
  const std::string text = ReadFile(logFile.path);
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) EXPECT_PRED1(IsWholeLine, line);
  const auto started = static_cast<int>(Calls("IVssBackupComponents::InitializeForBackup").size());
  EXPECT_EQ(Occurrences(text, ") CreateVssSnapshotSet : Enter"), started);
  EXPECT_EQ(Calls("IVssBackupComponents::DoSnapshotSet").size(), jobs.size());
  for (const std::string& line : host().calls().lines()) EXPECT_THAT(line, HasSubstr("(")) << "a call is whole";
}

}  // namespace
}  // namespace varnel::test
