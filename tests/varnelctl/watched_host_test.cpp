// What a watcher of the host hears of a request, and how it ends one.
#include "varnelctl/watched_host.h"

#include <map>
#include <utility>

#include "core/varnel.h"
#include "simulator/vss/snapshot_service.h"
#include "tests/support/host_fixture.h"
#include "text/unicode.h"

namespace varnel::test {
namespace {

using varnelctl::RequestWatcher;
using varnelctl::ServiceCall;
using varnelctl::WatchedHost;

const std::map<ServiceCall, std::string> kNames = {
    {ServiceCall::InitializeForBackup, "InitializeForBackup"},
    {ServiceCall::GatherWriterMetadata, "GatherWriterMetadata"},
    {ServiceCall::AddComponent, "AddComponent"},
    {ServiceCall::StartSnapshotSet, "StartSnapshotSet"},
    {ServiceCall::AddToSnapshotSet, "AddToSnapshotSet"},
    {ServiceCall::PrepareForBackup, "PrepareForBackup"},
    {ServiceCall::DoSnapshotSet, "DoSnapshotSet"},
    {ServiceCall::GatherWriterStatus, "GatherWriterStatus"},
    {ServiceCall::SaveAsXML, "SaveAsXML"},
    {ServiceCall::GetSnapshotProperties, "GetSnapshotProperties"},
    {ServiceCall::BackupComplete, "BackupComplete"},
    {ServiceCall::AbortBackup, "AbortBackup"},
    {ServiceCall::DeleteSnapshots, "DeleteSnapshots"},
};

// An exception that the library knows nothing of.
struct Refused {
  ServiceCall at;
};

class Listener final : public RequestWatcher {
 public:
  explicit Listener(simulator::SimulatedHost& host, std::optional<ServiceCall> refused = {})
      : host_(host), refused_(refused) {}
  void Before(ServiceCall call) override {
    const std::string name = "IVssBackupComponents::" + kNames.at(call);
    const auto made = host_.calls().Of(name).size();
    EXPECT_EQ(made, before_[call]++) << name << " is told of before it is made";
    if (refused_ == call) throw Refused{call};
  }
  void After(ServiceCall call, HRESULT result) override {
    ended.push_back(kNames.at(call) + (SUCCEEDED(result) ? "" : " failed"));
    results[call] = result;
  }
  void AfterAddToSnapshotSet(std::wstring_view volume, HRESULT result) override {
    volumes.push_back(WideToUtf8Lossy(volume) + (SUCCEEDED(result) ? "" : " failed"));
  }

  std::vector<std::string> ended;
  std::vector<std::string> volumes;
  std::map<ServiceCall, HRESULT> results;

 private:
  simulator::SimulatedHost& host_;
  std::optional<ServiceCall> refused_;
  std::map<ServiceCall, std::size_t> before_;
};

class WatchedHostTest : public HostFixture {
 protected:
  void SetUp() override {
    simulator::HostModel model = SmallHost();
    model.writers = {MakeWriter(L"Writer", 1, {MakeComponent(L"", L"one", {L"E:\\one", L"F:\\two"})})};
    Install(std::move(model));
  }
  /// A request for both disks that ends in whatever it throws; completed as `status`.
  void Request(int status = 0) {
    std::string details = "writer=0,";
    TesselCommonClasses::DiskAndVolumeEnumerator enumerator;
    CVarnel requestor(0);
    const auto complete = [&](int code) { requestor.SetBackupStatus(code, details); };
    requestor.SetInputDriveSerialNos({L"TSL0001", L"TSL0002"});
    try {
      requestor.Initialize(VSS_CTX_APP_ROLLBACK, L"", false, VSS_BT_FULL, details, &enumerator);
      requestor.CreateVssSnapshotSet(details);
    } catch (...) {
      complete(-1);
      throw;
    }
    complete(status);
  }
  /// The same while the watcher listens.
  void WatchedRequest(RequestWatcher& watcher, int status = 0) {
    WatchedHost watched(host());
    const WatchedHost::Watching watching(watched, watcher);
    const ScopedHost current(watched);
    Request(status);
  }
};

TEST_F(WatchedHostTest, TheWatcherHearsOfEachCallWhenItIsMadeAndWhenItHasEnded) {
  Listener listener(host());
  WatchedRequest(listener);
  EXPECT_THAT(
      listener.ended,
      ElementsAre("InitializeForBackup", "GatherWriterMetadata", "AddComponent", "StartSnapshotSet", "AddToSnapshotSet",
                  "AddToSnapshotSet", "PrepareForBackup", "GatherWriterStatus", "DoSnapshotSet", "GatherWriterStatus",
                  "SaveAsXML", "GetSnapshotProperties", "GetSnapshotProperties", "GetSnapshotProperties",
                  "GetSnapshotProperties", "BackupComplete", "GatherWriterStatus"));
  EXPECT_THAT(listener.volumes, ElementsAre(WideToUtf8Lossy(VolumeName(1)), WideToUtf8Lossy(VolumeName(2))));
}

TEST_F(WatchedHostTest, TheServiceIsAskedNothingMore) {
  Request();
  const std::vector<std::string> plain = host().calls().lines();
  SetUp();
  Listener listener(host());
  WatchedRequest(listener);
  EXPECT_EQ(host().calls().lines(), plain);
}

TEST_F(WatchedHostTest, AFailedRequestTellsOfItsDeletion) {
  Listener listener(host());
  WatchedRequest(listener, -1);
  EXPECT_THAT(listener.ended, Contains("DeleteSnapshots"));
}

TEST_F(WatchedHostTest, ACallThatFailsIsToldWithItsResultAndItsVolume) {
  FailCall("IVssBackupComponents::AddToSnapshotSet", VSS_E_INSUFFICIENT_STORAGE, 2);
  Listener listener(host());
  EXPECT_EQ(ThrownLong([&] { WatchedRequest(listener); }), long{VSS_E_INSUFFICIENT_STORAGE});
  EXPECT_EQ(listener.results[ServiceCall::AddToSnapshotSet], VSS_E_INSUFFICIENT_STORAGE);
  EXPECT_EQ(listener.volumes.back(), WideToUtf8Lossy(VolumeName(2)) + " failed");
  EXPECT_EQ(listener.ended.back(), "AbortBackup");
}

// Whether it is the start, the wait, the question or the operation itself that fails, it is told of once.
TEST_F(WatchedHostTest, AnOperationThatFailsIsToldWithItsResultOnce) {
  const std::pair<std::string, HRESULT> faults[] = {{"IVssBackupComponents::PrepareForBackup", E_OUTOFMEMORY},
                                                    {"IVssAsync::Wait", E_FAIL},
                                                    {"IVssAsync::QueryStatus", E_UNEXPECTED}};
  for (const auto& [call, result] : faults) {
    SCOPED_TRACE(call);
    StartOver();
    FailCall(call, result, call.starts_with("IVssAsync") ? 2 : 1);  // that of the metadata is the first
    Listener listener(host());
    EXPECT_EQ(ThrownLong([&] { WatchedRequest(listener); }), long{result});
    EXPECT_EQ(listener.results[ServiceCall::PrepareForBackup], result);
    EXPECT_EQ(std::count(listener.ended.begin(), listener.ended.end(), "PrepareForBackup failed"), 1);
  }
  StartOver();
  host().faults().FailAsync("PrepareForBackup", VSS_E_BAD_STATE);
  Listener listener(host());
  EXPECT_EQ(ThrownLong([&] { WatchedRequest(listener); }), long{VSS_E_BAD_STATE});
  EXPECT_EQ(listener.results[ServiceCall::PrepareForBackup], VSS_E_BAD_STATE);
}

// Nothing is left of such a request, and the service is free for the next one.
TEST_F(WatchedHostTest, WhatTheWatcherThrowsLeavesTheLibraryAsItIs) {
  for (const ServiceCall refused :
       {ServiceCall::InitializeForBackup, ServiceCall::GatherWriterMetadata, ServiceCall::AddComponent,
        ServiceCall::StartSnapshotSet, ServiceCall::AddToSnapshotSet, ServiceCall::PrepareForBackup,
        ServiceCall::GatherWriterStatus, ServiceCall::DoSnapshotSet, ServiceCall::SaveAsXML,
        ServiceCall::GetSnapshotProperties}) {
    SCOPED_TRACE(kNames.at(refused));
    StartOver();
    Listener listener(host(), refused);
    try {
      WatchedRequest(listener);
      ADD_FAILURE() << "nothing was thrown";
    } catch (const Refused& thrown) {
      EXPECT_EQ(thrown.at, refused);
    }
    EXPECT_THAT(host().machine().snapshots->SurfacedCopies(), IsEmpty());
    ExpectNothingLive();
    Request();
  }
}

TEST_F(WatchedHostTest, ARequestRefusedBeforeItsSetIsAborted) {
  Listener listener(host(), ServiceCall::StartSnapshotSet);
  EXPECT_THROW(WatchedRequest(listener), Refused);
  EXPECT_THAT(Calls("IVssBackupComponents::StartSnapshotSet"), IsEmpty());
  EXPECT_THAT(Calls("IVssBackupComponents::PrepareForBackup"), IsEmpty());
  EXPECT_THAT(Calls("IVssBackupComponents::AbortBackup"), SizeIs(1));
}

TEST_F(WatchedHostTest, WithoutAWatcherCallsAreOnlyPassedOn) {
  WatchedHost watched(host());
  const ScopedHost current(watched);
  Listener listener(host());
  { const WatchedHost::Watching watching(watched, listener); }
  Request();
  EXPECT_THAT(listener.ended, IsEmpty());
}

}  // namespace
}  // namespace varnel::test
