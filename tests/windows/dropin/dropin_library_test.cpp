// The requestor library over the drop-in libraries.
#include "tests/windows/dropin/dropin.h"

#include "platform/owners.h"
#include "tests/support/forwarding_host.h"
#include "tests/support/host_fixture.h"

namespace varnel::test {
namespace {

using testing::Contains;

// The service through its library's exports. What it hands out is given back to the machine, which counts it.
class DropInVss final : public VssService {
 public:
  DropInVss(const ServiceLibrary& service, VssService& machine) : service_(service), machine_(machine) {}
  HRESULT CreateVssBackupComponents(IVssBackupComponents** backup) override { return service_.Create(backup); }
  HRESULT CoCreateInstance(REFCLSID classId, IUnknown* outer, DWORD /*context*/, REFIID interfaceId,
                           void** object) override {
    ComPtr<IClassFactory> factory;
    const HRESULT hr = service_.GetClassObject(classId, IID_IClassFactory, reinterpret_cast<void**>(factory.Put()));
    return FAILED(hr) ? hr : factory->CreateInstance(outer, interfaceId, object);
  }
  void VssFreeSnapshotProperties(VSS_SNAPSHOT_PROP* properties) override { service_.Free(properties); }
  BSTR SysAllocStringLen(const wchar_t* text, UINT length) override { return machine_.SysAllocStringLen(text, length); }
  void SysFreeString(BSTR text) override { machine_.SysFreeString(text); }
  void CoTaskMemFree(void* block) override { machine_.CoTaskMemFree(block); }

 private:
  const ServiceLibrary& service_;
  VssService& machine_;
};

// Service and initiator through the drop-in libraries, every other question answered by the machine behind them.
class DropInHost final : public ForwardingHost {
 public:
  DropInHost(const ServiceLibrary& service, const std::filesystem::path& initiator)
      : ForwardingHost(service.host()), vss_(service, service.host().vss()), iscsi_(initiator) {}
  VssService& vss() override { return vss_; }
  IscsiInitiator& iscsi() override { return iscsi_; }

 private:
  DropInVss vss_;
  InitiatorLibrary iscsi_;
};

// Mail's second database fails while the first does well.
constexpr char kPartialFault[] = R"({
  "writer": "Mail", "event": "postSnapshot", "failure": "VSS_E_WRITERERROR_PARTIAL_FAILURE",
  "applicationResult": "0x80040e14", "applicationMessage": "one database is offline",
  "components": [{ "fullPath": "\\mail\\db2", "failure": "VSS_E_WRITERERROR_RETRYABLE",
                   "applicationResult": "0x80040e15", "applicationMessage": "db2 is offline" }] })";

class DropInLibraryTest : public DropInFixture {
 protected:
  /// The libraries with a machine of this host file, current from now on.
  void Install(const std::string& hostText) {
    WriteHostFile(hostText);
    service_.emplace(ServiceFile());
    service_->host().machine().countsSystemMemory = true;
    host_.emplace(*service_, InitiatorFile());
    current_.emplace(*host_);
  }
  void TearDown() override {
    if (service_) {
      EXPECT_EQ(service_->host().live().Describe(), "");
      EXPECT_THAT(service_->host().live().misuses(), IsEmpty());
    }
    DropInFixture::TearDown();
  }

  /// A whole life of a requestor over the libraries; `completed`: with what became of the request told to
  /// SetBackupStatus.
  template <class Requestor>
  std::string Run(RequestOptions options, bool completed) {
    std::string endings;
    std::string details;
    {
      SnapshotRequest<Requestor> request(std::move(options));
      const Outcome outcome = request.StartAndCreate();
      endings = GoldenSection("outcome", GoldenOutcome(outcome));
      if (completed) endings += GoldenSection("completion", GoldenOutcome(request.Complete(StatusCode(outcome))));
      details = request.details();
    }
    return endings + GoldenSection("error details", LinesOf(details)) + GoldenSection("log", log.All()) +
           GoldenSection("calls", Calls());
  }
  template <class Requestor = CVarnel>
  std::string RunRequest(RequestOptions options = {}) {
    return Run<Requestor>(std::move(options), false);
  }
  template <class Requestor = CVarnel>
  std::string RunBackup(RequestOptions options = {}) {
    return Run<Requestor>(std::move(options), true);
  }
  static std::string Golden(const std::string& name) {
    return ReadText(std::filesystem::path(VARNEL_GOLDEN_DIR) / (name + ".txt"));
  }

  RecordingLog log;

 private:
  ScopedLog scopedLog_{log};
  std::optional<ServiceLibrary> service_;
  std::optional<DropInHost> host_;
  std::optional<ScopedHost> current_;
};

// The texts are those of the same runs on a host without libraries between; only the golden tests write them.

TEST_F(DropInLibraryTest, ACleanRequestIsTheGoldenOne) {
  Install(HostText());
  EXPECT_EQ(RunRequest(), Golden("clean"));
}

TEST_F(DropInLibraryTest, ARequestWithAPartialWriterFailureIsTheGoldenOne) {
  Install(WithFaults(kPartialFault));
  EXPECT_EQ(RunRequest<PartialRequestor>(), Golden("partial"));
}

TEST_F(DropInLibraryTest, ARequestWhoseDisksHoldNoApplicationIsTheGoldenOne) {
  Install(HostText());
  EXPECT_EQ(RunRequest({.serialNumbers = {L"TSL0002", L"TSL0003"}}), Golden("mismatch"));
}

TEST_F(DropInLibraryTest, ARequestWithExtraVolumesIsTheGoldenOne) {
  Install(HostText());
  EXPECT_EQ(RunRequest({.serialNumbers = {L"TSL0001", L"TSL0002"}}), Golden("extra_volumes"));
}

TEST_F(DropInLibraryTest, ACompletedBackupIsTheGoldenOne) {
  Install(HostText());
  EXPECT_EQ(RunBackup(), Golden("completed"));
}

TEST_F(DropInLibraryTest, ABackupCompletedWithMessagesIsTheGoldenOne) {
  Install(WithFaults(kPartialFault));
  EXPECT_EQ(RunBackup<PartialRequestor>(), Golden("completed_partial"));
}

TEST_F(DropInLibraryTest, AFailedBackupWhoseSetIsDeletedIsTheGoldenOne) {
  Install(WithFaults(kPartialFault));
  EXPECT_EQ(RunBackup(), Golden("failed"));
}

TEST_F(DropInLibraryTest, ABackupAbortedBeforeItsSnapshotIsTheGoldenOne) {
  Install(WithFaults(R"({ "async": "PrepareForBackup", "result": "VSS_E_WRITER_INFRASTRUCTURE" })"));
  EXPECT_EQ(RunBackup(), Golden("aborted"));
}

TEST_F(DropInLibraryTest, ABackupThatNeverBeganIsTheGoldenOne) {
  Install(WithFaults(R"({ "call": "CreateVssBackupComponents", "result": "E_ACCESSDENIED" })"));
  EXPECT_EQ(RunBackup(), Golden("never_begun"));
}

TEST_F(DropInLibraryTest, DisconnectingLogsOutOfTheSessionThatHoldsTheShadowCopy) {
  Install(HostText());
  SnapshotRequest request;
  ASSERT_EQ(request.StartAndCreate(), Outcome::Returned());
  request.requestor.DisconnectSnapshotLuns(request.details());
  EXPECT_EQ(Calls().back(), "LogoutIScsiTarget(iqn.2007-11.com.example:data) = ok");
  ULONG bytes = 0;
  ULONG sessions = 1;
  EXPECT_EQ(CurrentHost().iscsi().GetIScsiSessionListW(&bytes, &sessions, nullptr), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(sessions, 0u);
}

TEST_F(DropInLibraryTest, TheArraysProviderIsFoundThroughTheClassObject) {
  Install(HostText());
  CVarnel requestor(0);
  EXPECT_TRUE(requestor.IsTesselVSSProviderPresent());
}

// What the machine's own host has of the drop-in libraries beside the program. Its volumes stay the machine's.
class DropInMachineTest : public DropInFixture {
 protected:
  void SetUp() override {
    DropInFixture::SetUp();
    ASSERT_EQ(&CurrentHost(), MachineHost());
    ASSERT_TRUE(SUCCEEDED(::CoInitializeEx(nullptr, COINIT_MULTITHREADED)));
  }
  void TearDown() override {
    ::CoUninitialize();
    DropInFixture::TearDown();
  }

  RecordingLog log;

 private:
  ScopedLog scopedLog_{log};
};

TEST_F(DropInMachineTest, TheLibraryReadsTheWritersOfTheHostFile) {
  SnapshotRequest request;
  request.Start();
  request.requestor.GatherWriterMetadata(request.details());
  ASSERT_EQ(request.probe.writers().size(), 2u);
  EXPECT_EQ(request.probe.writers()[0].name, L"Mail");
  EXPECT_EQ(request.probe.writers()[1].name, L"Web");
}

// The machine's own disks stay those of the machine, and Wine's do not tell where the system lies.
TEST_F(DropInMachineTest, ARequestReadsTheWritersAndEndsAtTheDisksOfTheMachine) {
  {
    SnapshotRequest request;
    EXPECT_THROW(request.StartAndCreate(), TesselCommonClasses::ExceptionCommon);
    EXPECT_EQ(request.probe.writers().size(), 2u);
  }
  EXPECT_EQ(ServiceLibrary(ProgramFolder() / L"vssapi.dll").host().live().Describe(), "");
}

TEST_F(DropInMachineTest, TheSessionsAreThoseOfTheHostFile) {
  ComPtr<IVssBackupComponents> backup;
  ASSERT_EQ(CurrentHost().vss().CreateVssBackupComponents(backup.Put()), S_OK);
  ULONG bytes = 0;
  ULONG sessions = 0;
  EXPECT_EQ(CurrentHost().iscsi().GetIScsiSessionListW(&bytes, &sessions, nullptr), DWORD{ERROR_INSUFFICIENT_BUFFER});
  EXPECT_EQ(sessions, 1u);
}

TEST_F(DropInMachineTest, TheCoordinatorIsFoundOnceItsClassObjectIsRegistered) {
  const ServiceLibrary service(ProgramFolder() / L"vssapi.dll");
  ComPtr<IUnknown> coordinator;
  ASSERT_EQ(service.GetClassObject(kClsidVssCoordinator, kIidUnknown, reinterpret_cast<void**>(coordinator.Put())),
            S_OK);
  DWORD registration = 0;
  ASSERT_EQ(::CoRegisterClassObject(kClsidVssCoordinator, coordinator.Get(), CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE,
                                    &registration),
            S_OK);
  CVarnel requestor(0);
  EXPECT_TRUE(requestor.IsTesselVSSProviderPresent());
  EXPECT_EQ(::CoRevokeClassObject(registration), S_OK);
}

}  // namespace
}  // namespace varnel::test
