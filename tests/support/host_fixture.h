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

/// "\\?\Volume{0000000N-...}\" for a small number.
inline std::wstring VolumeName(int n) {
  return L"\\\\?\\Volume{" + std::wstring(8 - std::to_wstring(n).size(), L'0') + std::to_wstring(n) +
         L"-0000-0000-0000-000000000000}\\";
}

/// A disk with one volume at one mount point; the volume is VolumeName(number).
inline simulator::Disk MakeDisk(std::wstring serial, DWORD number, std::wstring mountPoint, bool system = false) {
  simulator::Disk disk;
  disk.serial = std::move(serial);
  disk.number = number;
  disk.vendor = system ? L"Local" : L"Tessel";
  disk.system = system;
  disk.volumes = {{VolumeName(static_cast<int>(number)), {std::move(mountPoint)}, false, L""}};
  return disk;
}

/// A file group component with one file per directory given.
inline simulator::WriterComponent MakeComponent(std::wstring logicalPath, std::wstring name,
                                                std::vector<std::wstring> directories) {
  simulator::WriterComponent component;
  if (!logicalPath.empty()) component.logicalPath = std::move(logicalPath);
  component.caption = name;
  component.name = std::move(name);
  for (std::wstring& directory : directories) component.files.push_back({std::move(directory), L"data.bin"});
  return component;
}

/// A writer whose class id and instance id are {0000000N-...} and {0000000N-0001-...}.
inline simulator::Writer MakeWriter(std::wstring name, DWORD n, std::vector<simulator::WriterComponent> components) {
  simulator::Writer writer;
  writer.name = std::move(name);
  writer.writerId.Data1 = n;
  writer.instanceId.Data1 = n;
  writer.instanceId.Data2 = 1;
  writer.usage = VSS_UT_USERDATA;
  writer.source = VSS_ST_OTHER;
  writer.restoreMethod = simulator::RestoreMethod{VSS_RME_RESTORE_IF_CAN_REPLACE, L"", L"", VSS_WRE_ALWAYS, false};
  writer.components = std::move(components);
  return writer;
}

/// A system disk (SYS, C:), two array disks (TSL0001 at E:, TSL0002 at F:) and the array's provider; no writers.
inline simulator::HostModel SmallHost() {
  simulator::HostModel model;
  model.disks = {MakeDisk(L"SYS", 0, L"C:\\", true), MakeDisk(L"TSL0001", 1, L"E:\\"),
                 MakeDisk(L"TSL0002", 2, L"F:\\")};
  model.environment = {{L"SystemRoot", L"C:\\Windows"}, {L"SystemDrive", L"C:"}};
  model.providers = {{ParseGuid<GUID>("{374579ad-285c-49b9-ab8a-950e0e252de2}"), L"Tessel VSS Hardware Provider",
                      VSS_PROV_HARDWARE, L"1.0"}};
  return model;
}

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
