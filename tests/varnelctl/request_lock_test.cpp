// varnelctl's requests of one host take turns, whichever processes make them.
#include "varnelctl/sets/request_lock.h"

#include <future>
#include <thread>

#include "tests/faults/child_program.h"
#include "tests/varnelctl/snapshot_support.h"
#ifdef _WIN32
// clang-format off
#include <aclapi.h>
#include <sddl.h>
// clang-format on
#endif

namespace varnel::test {
namespace {

using nlohmann::json;
using namespace std::chrono_literals;
using varnelctl::OpenRequestLock;
using varnelctl::RequestLock;
using varnelctl::RequestLockOfState;

/// Has the lock in a thread of its own until it is told to give it back.
class Holder {
 public:
  explicit Holder(const std::string& name) {
    std::promise<bool> held;
    std::future<bool> isHeld = held.get_future();
    thread_ = std::thread([this, name, held = std::move(held)]() mutable {
      const std::unique_ptr<RequestLock> lock = OpenRequestLock(name);
      held.set_value(lock->Acquire(0ms));
      end_.get_future().wait();
    });
    EXPECT_TRUE(isHeld.get());
  }
  ~Holder() { GiveBack(); }
  Holder(const Holder&) = delete;
  Holder& operator=(const Holder&) = delete;

  void GiveBack() {
    if (!thread_.joinable()) return;
    end_.set_value();
    thread_.join();
  }

 private:
  std::promise<void> end_;
  std::thread thread_;
};

bool IsFree(const std::string& name) {
  return OpenRequestLock(name)->Acquire(0ms);
}

/// A process that hangs does not outlive its test.
class KilledAtTheEnd {
 public:
  explicit KilledAtTheEnd(ChildProgram& child) : child_(child) {}
  ~KilledAtTheEnd() { child_.Kill(); }
  KilledAtTheEnd(const KilledAtTheEnd&) = delete;
  KilledAtTheEnd& operator=(const KilledAtTheEnd&) = delete;

 private:
  ChildProgram& child_;
};

/// Waits in real time for what another process does.
template <class Condition>
bool Becomes(Condition condition) {
  constexpr auto kPatience = 60s;
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(10ms);
  }
  return true;
}

/// Requests on a host with a state file.
class RequestTurn : public SnapshotCommand {
 protected:
  std::string State() const { return folder.File("host.state"); }
  std::string Lock() const { return RequestLockOfState(State()); }
  Arguments WithState(Arguments arguments) const {
    arguments.insert(arguments.end(), {"--state", State()});
    return arguments;
  }
  CliResult Request(Arguments arguments = {}, int status = 0, varnelctl::InterruptionSource interruption = {}) {
    return Snapshot(WithState(std::move(arguments)), status, std::move(interruption));
  }
  /// Another process with a request of its own, on the same host.
  ChildProgram StartRequest(const json& faults = json::array()) {
    json host = hostFile;
    host["faults"] = faults;
    const std::string file = folder.Write("host-" + std::to_string(++children_) + ".json", host.dump());
    return ChildProgram({VARNEL_PROGRAM, "--host", file, "--state", State(), "snapshot", "--app", "none", "--disk",
                         "TSL0001", "TSL0002", "--context", "app-rollback"});
  }
  static constexpr char kOther[] = "another request of varnelctl is taking a snapshot set on this host (";

 private:
  int children_ = 0;
};

// The lock

TEST_F(RequestTurn, ALockIsHeldByOne) {
  EXPECT_TRUE(IsFree(Lock()));
  Holder holder(Lock());
  EXPECT_FALSE(IsFree(Lock()));
  holder.GiveBack();
  EXPECT_TRUE(IsFree(Lock()));
}

TEST_F(RequestTurn, ALockIsWaitedForSoLong) {
  Holder holder(Lock());
  const std::unique_ptr<RequestLock> lock = OpenRequestLock(Lock());
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(lock->Acquire(80ms));
  EXPECT_GE(std::chrono::steady_clock::now() - start, 70ms);
  std::thread end([&] {
    std::this_thread::sleep_for(50ms);
    holder.GiveBack();
  });
  EXPECT_TRUE(lock->Acquire(60s));
  end.join();
}

TEST_F(RequestTurn, AHostHasOneLockHoweverItsStateFileIsNamed) {
  const Holder holder(Lock());
  std::filesystem::create_directory(PathOf(folder.File("sub")));
  EXPECT_FALSE(IsFree(RequestLockOfState(folder.File("sub/../host.state"))));
  EXPECT_TRUE(IsFree(RequestLockOfState(folder.File("other.state"))));
}

#ifdef _WIN32

TEST_F(RequestTurn, TheSameNameInOtherLettersIsTheSameHost) {
  const Holder holder(Lock());
  EXPECT_FALSE(IsFree(RequestLockOfState(folder.File("HOST.State"))));
}

// Whoever may take no snapshot set cannot hold up those who may.
TEST(MachineRequestLock, IsForTheSystemAdministratorsAndBackupOperators) {
  EXPECT_EQ(varnelctl::RequestLockOfMachine(), "Global\\varnel-request");
  const std::unique_ptr<RequestLock> lock = OpenRequestLock(varnelctl::RequestLockOfMachine());
  EXPECT_TRUE(lock->Acquire(0ms));
  EXPECT_EQ(lock->Describe(), "mutex Global\\varnel-request");

  const HANDLE mutex = ::OpenMutexW(READ_CONTROL, FALSE, L"Global\\varnel-request");
  ASSERT_NE(mutex, nullptr);
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  ASSERT_EQ(::GetSecurityInfo(mutex, SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, nullptr, nullptr,
                              &descriptor),
            DWORD{ERROR_SUCCESS});
  LPWSTR text = nullptr;
  ASSERT_TRUE(::ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor, SDDL_REVISION_1,
                                                                     DACL_SECURITY_INFORMATION, &text, nullptr));
  EXPECT_EQ(WideToUtf8Lossy(text), "D:P(A;;0x100001;;;SY)(A;;0x100001;;;BA)(A;;0x100001;;;BO)");
  ::LocalFree(text);
  ::LocalFree(descriptor);
  ::CloseHandle(mutex);
}

#else

TEST_F(RequestTurn, ALockNamesTheProcessThatHoldsIt) {
  const Holder holder(Lock());
  EXPECT_EQ(OpenRequestLock(Lock())->Describe(), "lock " + Lock() + " of process " + std::to_string(::getpid()));
}

TEST(MachineRequestLock, IsNoneWhereThereIsNoSuchMachine) {
  EXPECT_EQ(varnelctl::RequestLockOfMachine(), "");
}

#endif

// A request's turn

TEST_F(RequestTurn, ARequestThatWaitsLongerThanASecondSaysForWhomOnce) {
  Holder holder(Lock());
  std::thread end([&] {
    std::this_thread::sleep_for(1600ms);
    holder.GiveBack();
  });
  const CliResult result = Request();
  end.join();
  EXPECT_EQ(result.err,
            "varnelctl: warning: " + std::string(kOther) + OpenRequestLock(Lock())->Describe() + "); this one waits\n");
}

TEST_F(RequestTurn, OfAShorterWaitNothingIsSaid) {
  Holder holder(Lock());
  std::thread end([&] {
    std::this_thread::sleep_for(300ms);
    holder.GiveBack();
  });
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Request().err, "");
  EXPECT_GE(std::chrono::steady_clock::now() - start, 200ms);
  end.join();
}

TEST_F(RequestTurn, AWaitCanBeInterrupted) {
  class Late final : public varnelctl::Interruption {
   public:
    bool Requested() const override { return std::chrono::steady_clock::now() > when_; }

   private:
    std::chrono::steady_clock::time_point when_ = std::chrono::steady_clock::now() + 700ms;
  };
  const Holder holder(Lock());
  const CliResult result = Run(Whole(WithState({})), [] { return std::make_unique<Late>(); });
  EXPECT_NE(result.status, 0);
  EXPECT_THAT(result.err, HasSubstr("varnelctl: interrupted after starting the request\n"));
}

// The service itself says whether a set is in progress.
TEST_F(RequestTurn, AfterItsTimeARequestGoesOnWithoutItsTurn) {
  const Holder holder(Lock());
  const auto start = std::chrono::steady_clock::now();
  for (const char* seconds : {"0", "1"}) {
    EXPECT_THAT(Request({"--wait-for-others", seconds}).err,
                HasSubstr(") and is waited for no longer (--wait-for-others " + std::string(seconds) + ")\n"));
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, 20s);
}

TEST_F(RequestTurn, WithoutAStateFileAHostIsTheProcessesOwn) {
  const Holder holder(Lock());
  EXPECT_EQ(Snapshot({"--wait-for-others", "0"}).err, "");
}

TEST_F(RequestTurn, ALockThatCannotBeHadIsAWarning) {
#ifdef _WIN32
  const HANDLE taken = ::CreateEventW(nullptr, TRUE, FALSE, Utf8ToWide(Lock()).c_str());  // the name of something else
#else
  std::filesystem::create_directory(PathOf(Lock()));
#endif
  const json outcome = SnapshotJson(WithState({}));
#ifdef _WIN32
  ::CloseHandle(taken);
#endif
  ASSERT_THAT(outcome["warnings"], SizeIs(1));
  EXPECT_EQ(outcome["warnings"][0]["code"], "requestLockMissing");
  EXPECT_THAT(outcome["warnings"][0]["text"].get<std::string>(), StartsWith("lock " + Lock() + " cannot be had: "));
}

// Several processes

// It hangs in DoSnapshotSet and is killed there.
TEST_F(RequestTurn, ARequestWaitsForThatOfAnotherProcessAndTakesOverWhenThatIsKilled) {
  ChildProgram other = StartRequest(json::parse(R"([ { "async": "DoSnapshotSet", "hangs": true } ])"));
  const KilledAtTheEnd killed(other);
  ASSERT_TRUE(Becomes([&] { return !IsFree(Lock()); }));
  std::thread end([&] {
    std::this_thread::sleep_for(1500ms);
    other.Kill();
  });
  const json outcome = SnapshotJson(WithState({}));
  end.join();
  EXPECT_EQ(other.Wait(), kKilled);
  EXPECT_THAT(outcome["tries"], SizeIs(1));
  EXPECT_EQ(outcome["warnings"][0]["code"], "otherRequest");
}

TEST_F(RequestTurn, ARequestThatHasItsSetHoldsUpNobody) {
  ChildProgram other = StartRequest(json::parse(R"([ { "async": "BackupComplete", "hangs": true } ])"));
  const KilledAtTheEnd killed(other);
  ASSERT_TRUE(Becomes([&] { return Document(WithState({"disks"})).at("disks").size() > 3; }));
  ASSERT_TRUE(Becomes([&] { return IsFree(Lock()); }));
  EXPECT_EQ(Request({"--accept-extra-volumes"}).err, "");
}

TEST_F(RequestTurn, OfSeveralAtOnceEachSucceeds) {
  constexpr int kRequests = 6;
  std::vector<ChildProgram> others;
  for (int i = 0; i < kRequests; ++i) others.push_back(StartRequest());
  const json outcome = SnapshotJson(WithState({"--context", "app-rollback"}));
  for (ChildProgram& other : others) EXPECT_EQ(other.Wait(), 0);
  EXPECT_EQ(Document(WithState({"disks"})).at("disks").size(), 3u + 2u * (kRequests + 1));
}

}  // namespace
}  // namespace varnel::test
