// A simulated host that is current for a test, with its log recorded. At the end nothing may be live and nothing may
// have been given back wrongly.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "simulator/simulated_host.h"
#include "tests/support/host_model.h"
#include "tests/support/recording_log.h"

namespace varnel::test {

using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

class HostFixture : public testing::Test {
 public:
  /// What is logged and called from here on is all that the logs hold.
  void Forget() {
    log.lines.clear();
    host_->calls().Clear();
  }

 protected:
  /// Replaces the host; objects of the one before must be gone.
  simulator::SimulatedHost& Install(simulator::HostModel model) {
    current_.reset();
    host_ = std::make_unique<simulator::SimulatedHost>(std::move(model));
    current_.emplace(*host_);
    return *host_;
  }
  simulator::SimulatedHost& host() { return *host_; }
  simulator::HostModel& model() { return host_->model(); }
  /// The calls of one name as they stand in the call log.
  std::vector<std::string> Calls(std::string_view call) const { return host_->calls().Of(call); }

  /// Lets the call fail with an HRESULT or a Win32 code at its `occurrence`th time; 0: each time.
  template <class Code>
  void FailCall(const std::string& call, Code code, int occurrence = 1) {
    host_->faults().FailCall(call, static_cast<DWORD>(code), occurrence);
  }
  void FailWriter(simulator::WriterFault fault) { host_->faults().FailWriter(std::move(fault)); }

  void ExpectNothingLive() const { EXPECT_EQ(host_->live().Describe(), ""); }

  void SetUp() override { Install(SmallHost()); }
  void TearDown() override {
    ExpectNothingLive();
    EXPECT_THAT(host_->live().misuses(), IsEmpty());
  }
  /// For the next round of a loop; nothing of the last one may be live.
  void StartOver() {
    TearDown();
    SetUp();
    log.lines.clear();
  }

  RecordingLog log;

 private:
  ScopedLog scopedLog_{log};
  std::unique_ptr<simulator::SimulatedHost> host_;
  std::optional<ScopedHost> current_;
};

/// The `long` that `action` throws; nothing when it returns. Any other exception passes.
template <class Action>
std::optional<long> ThrownLong(Action action) {
  try {
    action();
  } catch (long hr) {
    return hr;
  }
  return std::nullopt;
}

}  // namespace varnel::test
