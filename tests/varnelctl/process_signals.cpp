// Signals and closed pipes as the program takes them, where there are signals.
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <tuple>
#include <utility>

#include "tests/varnelctl/snapshot_support.h"
#include "tests/varnelctl/started_program.h"
#include "varnelctl/console/interruption.h"

namespace varnel::test {
namespace {

class ProcessSignals : public testing::TestWithParam<int> {};

TEST_P(ProcessSignals, TheFirstIsNoted) {
  testing::internal::CaptureStderr();
  const auto watch = varnelctl::WatchProcess();
  EXPECT_FALSE(watch->Requested());

  std::raise(GetParam());

  EXPECT_TRUE(watch->Requested());
  EXPECT_EQ(testing::internal::GetCapturedStderr(), varnelctl::kInterruptionNotice);
}

TEST_P(ProcessSignals, TheSecondEndsTheProcessAtOnce) {
  const auto raiseTwice = [] {
    const auto watch = varnelctl::WatchProcess();
    std::raise(SIGINT);
    std::raise(GetParam());
  };
  EXPECT_EXIT(raiseTwice(), testing::KilledBySignal(GetParam()), "interrupted; ends after this step");
}

TEST_P(ProcessSignals, TheyEndTheProcessAgainWhenNobodyWatches) {
  const auto raiseLate = [] {
    varnelctl::WatchProcess();
    std::raise(GetParam());
  };
  EXPECT_EXIT(raiseLate(), testing::KilledBySignal(GetParam()), "^$");
}

TEST_P(ProcessSignals, WhatThePresentProcessIgnoresStaysIgnored) {
  const auto raiseTwice = [] {
    std::signal(GetParam(), SIG_IGN);
    const auto watch = varnelctl::WatchProcess();
    std::raise(GetParam());
    std::raise(GetParam());
    std::exit(watch->Requested() ? 1 : 0);
  };
  EXPECT_EXIT(raiseTwice(), testing::ExitedWithCode(0), "^$");
}

INSTANTIATE_TEST_SUITE_P(Signals, ProcessSignals, testing::Values(SIGINT, SIGTERM));

TEST(EndOfTheTerminal, MayBeToldTwice) {
  const auto raiseTwice = [] {
    const auto watch = varnelctl::WatchProcess();
    std::raise(SIGHUP);
    std::raise(SIGHUP);
    std::exit(watch->Requested() ? 7 : 0);
  };
  EXPECT_EXIT(raiseTwice(), testing::ExitedWithCode(7), "interrupted; ends after this step");
}

TEST(EndOfTheTerminal, EndsTheProcessWhenNobodyWatches) {
  const auto raiseLate = [] {
    varnelctl::WatchProcess();
    std::raise(SIGHUP);
  };
  EXPECT_EXIT(raiseLate(), testing::KilledBySignal(SIGHUP), "^$");
}

TEST_F(SnapshotCommand, ASignalEndsTheRunAfterThePresentPhase) {
  testing::internal::CaptureStderr();
  const CliResult result = Snapshot({}, 17, [] {
    auto watch = varnelctl::WatchProcess();
    std::raise(SIGINT);
    return watch;
  });
  testing::internal::GetCapturedStderr();

  EXPECT_EQ(result.err, "varnelctl: interrupted before anything was done\n");
}

// Whom the system lets read everything becomes somebody else.
TEST(HostFilePermission, ThatIsMissingIsSaid) {
  const TemporaryFolder folder;
  const std::string file = folder.Write("closed.json", "{}");
  std::filesystem::permissions(PathOf(file), std::filesystem::perms::none);
  const auto readAsNobody = [&] {
    constexpr uid_t kNobody = 65534;
    if (::geteuid() == 0 && ::seteuid(kNobody) != 0) std::_Exit(1);
    const CliResult result = RunCli({"disks", "--host", file});
    std::fputs(result.err.c_str(), stderr);
    std::fflush(stderr);
    std::_Exit(result.status);  // no search for leaks, which nobody may make
  };
  EXPECT_EXIT(readAsNobody(), testing::ExitedWithCode(2),
              "closed.json: /: cannot read the file: this user has no permission to read it\n");
}

// The program itself

class Pipe {
 public:
  Pipe() { EXPECT_EQ(::pipe2(ends_, O_CLOEXEC), 0); }
  ~Pipe() {
    CloseReader();
    CloseWriter();
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  void Swap(Pipe& other) { std::swap(ends_, other.ends_); }
  int writer() const { return ends_[1]; }
  void CloseReader() { Close(ends_[0]); }
  void CloseWriter() { Close(ends_[1]); }
  /// Leaves room for so many bytes: whoever writes more waits. \return how many bytes lie in it.
  int FillUpTo(int room) {
    const int size = ::fcntl(ends_[1], F_SETPIPE_SZ, 4096);
    const std::string filling(static_cast<std::size_t>(size - room), '#');
    EXPECT_EQ(::write(ends_[1], filling.data(), filling.size()), static_cast<ssize_t>(filling.size()));
    return size - room;
  }
  int BytesWaiting() const {
    int bytes = 0;
    EXPECT_EQ(::ioctl(ends_[0], FIONREAD, &bytes), 0);
    return bytes;
  }
  /// Waits for bytes.
  void Await() const {
    pollfd reader{ends_[0], POLLIN, 0};
    EXPECT_GT(::poll(&reader, 1, kPatience), 0);
  }
  std::string ReadAll() const {
    std::string text;
    char block[4096];
    for (ssize_t n = 0; (n = ::read(ends_[0], block, sizeof block)) > 0;)
      text.append(block, static_cast<std::size_t>(n));
    return text;
  }

  static constexpr int kPatience = 60'000;  // milliseconds

 private:
  static void Close(int& end) {
    if (end >= 0) ::close(end);
    end = -1;
  }

  int ends_[2] = {-1, -1};
};

// varnelctl taking a snapshot. It waits in the middle of the request, with the end of a step to write, until somebody
// reads.
class RunningProgram : public SnapshotCommand {
 protected:
  // Room for the steps before those.
  static constexpr int kInSelection = 240;
  static constexpr int kAfterTheSnapshot = 440;
  static constexpr int kLongestStep = 45;  // of those that may be at hand then

  void Start(int room) {
    const int filled = out.FillUpTo(room);
    Execute({"--calls", folder.File("c"), "--context", "app-rollback"});
    AwaitBytes(filled + room - kLongestStep);
  }
  void Execute(const Arguments& more) {
    Arguments arguments = {VARNEL_PROGRAM, "--host", folder.Write("host.json", hostFile.dump())};
    for (const std::string& argument : Whole(more)) arguments.push_back(argument);
    std::vector<char*> words;
    for (const std::string& argument : arguments) words.push_back(const_cast<char*>(argument.c_str()));
    words.push_back(nullptr);
    process = ::fork();
    if (process == 0) {
      ::dup2(out.writer(), STDOUT_FILENO);
      ::dup2(trouble.writer(), STDERR_FILENO);
      ::execv(words[0], words.data());
      ::_exit(127);
    }
    out.CloseWriter();
    trouble.CloseWriter();
  }
  /// Until there are more.
  void AwaitBytes(int bytes) const {
    int patience = Pipe::kPatience;
    while (out.BytesWaiting() <= bytes && patience-- > 0) ::usleep(1000);
    EXPECT_GT(patience, 0) << "it never came so far";
  }
  /// How it ended, as waitpid tells it.
  int Wait() const {
    int status = -1;
    EXPECT_EQ(::waitpid(process, &status, 0), process);
    return status;
  }
  /// As a failure: before there was a set, or with the set deleted and its writers told.
  void ExpectCompleted(int status, int room) {
    ASSERT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 17);
    const std::string calls = ReadFile(folder.File("c"));
    const bool hasSet = room == kAfterTheSnapshot;
    for (const char* call : {"DoSnapshotSet(", "DeleteSnapshots(", "BackupComplete("}) {
      EXPECT_EQ(calls.find(std::string("IVssBackupComponents::") + call) != calls.npos, hasSet) << call;
    }
    EXPECT_EQ(calls.find("IVssBackupComponents::AbortBackup(") != calls.npos, !hasSet);
  }

  Pipe out;
  Pipe trouble;
  pid_t process = -1;
};

class SignalledProgram : public RunningProgram, public testing::WithParamInterface<std::tuple<int, int>> {};

TEST_P(SignalledProgram, EndsAfterThePresentStep) {
  const auto [signal, room] = GetParam();
  Start(room);
  ASSERT_EQ(::kill(process, signal), 0);
  trouble.Await();  // it has noted the signal
  const std::string text = out.ReadAll();
  const int status = Wait();
  const std::string said = trouble.ReadAll();

  ExpectCompleted(status, room);
  EXPECT_THAT(said, testing::StartsWith(varnelctl::kInterruptionNotice));
  EXPECT_THAT(said, HasSubstr("varnelctl: interrupted "));
  EXPECT_THAT(text, HasSubstr(room == kInSelection ? "nothing was captured: interrupted while "
                                                   : "} was deleted: interrupted "));
}

INSTANTIATE_TEST_SUITE_P(Signals, SignalledProgram,
                         testing::Combine(testing::Values(SIGINT, SIGTERM, SIGHUP), testing::Values(240, 440)));

TEST_F(RunningProgram, EndsInOrderAndQuietlyWhenNobodyReadsOn) {
  for (const int room : {kInSelection, kAfterTheSnapshot}) {
    Pipe().Swap(out);
    Pipe().Swap(trouble);
    Start(room);
    out.CloseReader();
    const int status = Wait();

    ExpectCompleted(status, room);
    EXPECT_EQ(trouble.ReadAll(), "");
  }
}

// The service never ends what the program waits for.
class HungProgram : public SnapshotCommand, public testing::WithParamInterface<int> {};

TEST_P(HungProgram, EndsInTheWait) {
  hostFile["faults"] = {{{"async", "PrepareForBackup"}, {"hangs", true}}};
  StartedProgram program(folder, "p", hostFile, Whole({}));
  program.AwaitOut("adding the components and volumes: done");
  ASSERT_EQ(::kill(program.id(), GetParam()), 0);

  EXPECT_EQ(program.Wait(), 17);
  EXPECT_THAT(program.Err(), HasSubstr("varnelctl: interrupted while asking the writers to prepare\n"));
  EXPECT_THAT(program.Out(), HasSubstr("FAILED: nothing was captured: interrupted "));
}

INSTANTIATE_TEST_SUITE_P(Signals, HungProgram, testing::Values(SIGINT, SIGTERM, SIGHUP));

}  // namespace
}  // namespace varnel::test
