// Ctrl-C and SIGTERM as the program takes them, where there are signals.
#include <csignal>

#include "tests/varnelctl/snapshot_support.h"
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

TEST_F(SnapshotCommand, ASignalEndsTheRunAfterThePresentPhase) {
  testing::internal::CaptureStderr();
  const CliResult result = Snapshot({}, 1, [] {
    auto watch = varnelctl::WatchProcess();
    std::raise(SIGINT);
    return watch;
  });
  testing::internal::GetCapturedStderr();

  EXPECT_EQ(result.err, "varnelctl: interrupted before anything was done\n");
}

}  // namespace
}  // namespace varnel::test
