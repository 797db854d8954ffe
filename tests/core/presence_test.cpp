// Questions about the host: its provider, its writers, its network name, programs that it runs; and the writer code of
// a request.

#include <optional>

#include "simulator/vss/vss_enum.h"
#include "tests/support/forwarding_vss.h"
#include "tests/support/request_fixture.h"

namespace varnel::test {
namespace {

constexpr GUID kOtherProvider = ParseGuid<GUID>("{b5946137-7b9f-4925-af80-51abd60b20d5}");

class ProviderPresence : public HostFixture {
 protected:
  void InstallProviders(std::vector<simulator::Provider> providers) {
    simulator::HostModel model = SmallHost();
    model.providers = std::move(providers);
    Install(std::move(model));
  }
  static simulator::Provider Provider(const GUID& id, const std::wstring& name) {
    return {id, name, VSS_PROV_HARDWARE, L"1.0"};
  }
  static bool IsPresent() { return CVarnel(0).IsTesselVSSProviderPresent(); }
  // A failing call is reported, thrown, and leaves nothing behind.
  void ExpectFailure(const std::string& call, HRESULT hr, const std::string& text, const std::string& code,
                     const std::string& name) {
    SCOPED_TRACE(call);
    log.lines.clear();

    EXPECT_EQ(ThrownLong([] { IsPresent(); }), Failure(hr));

    EXPECT_EQ(log.Errors(), ComFailureLines("\"" + text + "\"", code, name));
    ExpectNothingLive();
  }
};

const std::string kCreateCoordinator =
    "CoCreateInstance(CLSID_VSSCoordinator, NULL, CLSCTX_ALL, IID_IVssAdmin, (void **)&pVssAdmin)";

TEST_F(ProviderPresence, TheIdentifierIsTheOneOfTheArraysProvider) {
  EXPECT_EQ(FormatGuid(CVarnel::TesselVssProviderID), L"{374579ad-285c-49b9-ab8a-950e0e252de2}");
}

TEST_F(ProviderPresence, ARegisteredProviderIsPresent) {
  EXPECT_TRUE(IsPresent());
  EXPECT_THAT(log.All(), IsEmpty());
}

TEST_F(ProviderPresence, AListWithoutTheArraysProviderAnswersFalse) {
  InstallProviders({Provider(kOtherProvider, L"Tessel VSS Hardware Provider")});
  EXPECT_FALSE(IsPresent());
}

TEST_F(ProviderPresence, AnotherProviderBeforeItDoesNotHideIt) {
  InstallProviders({Provider(kOtherProvider, L"Another"), Provider(CVarnel::TesselVssProviderID, L"Ours")});
  EXPECT_TRUE(IsPresent());
  ExpectNothingLive();
}

TEST_F(ProviderPresence, TheSearchStopsAtTheArraysProvider) {
  InstallProviders({Provider(CVarnel::TesselVssProviderID, L"Ours"), Provider(kOtherProvider, L"Another")});
  EXPECT_TRUE(IsPresent());
  EXPECT_THAT(Calls("IVssEnumObject::Next"), SizeIs(1));
}

TEST_F(ProviderPresence, TheProvidersNameIsNotCompared) {
  InstallProviders({Provider(CVarnel::TesselVssProviderID, L"Renamed")});
  EXPECT_TRUE(IsPresent());
}

TEST_F(ProviderPresence, AHostWithoutProvidersAnswersFalse) {
  InstallProviders({});
  EXPECT_FALSE(IsPresent());
  EXPECT_THAT(log.All(), IsEmpty());
}

TEST_F(ProviderPresence, AnAnswerWithoutAnEnumeratorIsFalse) {
  FailCall("IVssAdmin::QueryProviders", S_FALSE);
  EXPECT_FALSE(IsPresent());
  EXPECT_THAT(Calls("IVssEnumObject::Next"), IsEmpty());
  EXPECT_THAT(log.All(), IsEmpty());
}

TEST_F(ProviderPresence, ProvidersAreAskedForOneAtATime) {
  InstallProviders({Provider(kOtherProvider, L"Another")});
  IsPresent();
  EXPECT_THAT(Calls("IVssEnumObject::Next"),
              ElementsAre("IVssEnumObject::Next(1) = S_OK", "IVssEnumObject::Next(1) = S_FALSE"));
}

TEST_F(ProviderPresence, AFailingCallIsReportedAndThrown) {
  FailCall("CoCreateInstance", E_ACCESSDENIED);
  ExpectFailure("CoCreateInstance", E_ACCESSDENIED, kCreateCoordinator, "0x80070005", "Error: 0x80070005");
  FailCall("CoCreateInstance", S_OK);  // without an object
  ExpectFailure("CoCreateInstance", E_UNEXPECTED, kCreateCoordinator, "0x8000ffff", "E_UNEXPECTED");
  FailCall("IVssAdmin::QueryProviders", VSS_E_UNEXPECTED);
  ExpectFailure("QueryProviders", VSS_E_UNEXPECTED, "pVssAdmin->QueryProviders(&pEnum)", "0x80042302",
                "VSS_E_UNEXPECTED");
  InstallProviders({Provider(kOtherProvider, L"Another"), Provider(CVarnel::TesselVssProviderID, L"Ours")});
  FailCall("IVssEnumObject::Next", E_OUTOFMEMORY, 2);
  ExpectFailure("Next", E_OUTOFMEMORY, "pEnum->Next(1, &rgelt, &celtFetched)", "0x8007000e", "E_OUTOFMEMORY");
}

// An administration interface whose list of providers holds whatever the test wants. Lives on the stack.
class AdminOf final : public IVssAdmin {
 public:
  AdminOf(simulator::Machine& machine, std::vector<simulator::EnumeratedObject> objects)
      : machine_(machine), objects_(std::move(objects)) {}
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
  ULONG STDMETHODCALLTYPE Release() override { return --references; }
  HRESULT STDMETHODCALLTYPE RegisterProvider(VSS_ID, CLSID, VSS_PWSZ, VSS_PROVIDER_TYPE, VSS_PWSZ, VSS_ID) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE UnregisterProvider(VSS_ID) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE QueryProviders(IVssEnumObject** enumerator) override {
    *enumerator = simulator::MakeEnumerator(machine_.shared_from_this(), objects_);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE AbortAllSnapshotsInProgress() override { return E_NOTIMPL; }

  ULONG references = 1;

 private:
  simulator::Machine& machine_;
  std::vector<simulator::EnumeratedObject> objects_;
};

// Hands out that interface as the coordinator.
class AdministeredService final : public ForwardingVss {
 public:
  AdministeredService(VssService& inner, IVssAdmin& admin) : ForwardingVss(inner), admin_(admin) {}
  HRESULT CoCreateInstance(REFCLSID, IUnknown*, DWORD, REFIID, void** object) override {
    *object = &admin_;
    return S_OK;
  }

 private:
  IVssAdmin& admin_;
};

TEST_F(ProviderPresence, AnObjectThatIsNoProviderIsPassedOverAndFreed) {
  simulator::ShadowCopy copy;
  copy.id = CVarnel::TesselVssProviderID;  // lies where a provider has its identifier
  copy.device = L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1";
  AdminOf admin(host().machine(), {copy, Provider(kOtherProvider, L"Another")});
  AdministeredService administered(host().vss(), admin);
  const CurrentHostWith current(host(), administered);
  EXPECT_FALSE(IsPresent());
  EXPECT_THAT(Calls("IVssEnumObject::Next"), SizeIs(3));
  EXPECT_EQ(admin.references, 0u);
  ExpectNothingLive();
}

// How the coordinator is asked for.
class WatchedService final : public ForwardingVss {
 public:
  using ForwardingVss::ForwardingVss;
  HRESULT CoCreateInstance(REFCLSID classId, IUnknown* outer, DWORD context, REFIID interfaceId,
                           void** object) override {
    EXPECT_EQ(GUID(classId), ParseGuid<GUID>("{e579ab5f-1cc4-44b4-bed9-de0991ff0623}"));
    EXPECT_EQ(outer, nullptr);
    contexts.push_back(context);
    EXPECT_EQ(GUID(interfaceId), ParseGuid<GUID>("{77ed5996-2f63-11d3-8a39-00c04f72d8e3}"));
    return ForwardingVss::CoCreateInstance(classId, outer, context, interfaceId, object);
  }
  std::vector<DWORD> contexts;
};

TEST_F(ProviderPresence, TheCoordinatorMayRunAnywhere) {
  constexpr DWORD kAnywhere = 0x17;  // in this process, in another one, on another machine
  WatchedService watched(host().vss());
  const CurrentHostWith current(host(), watched);
  EXPECT_TRUE(IsPresent());
  EXPECT_THAT(watched.contexts, ElementsAre(kAnywhere));
}

// ---- writers ----

// Accepts the writer of one name and remembers whom it was asked about.
class OneWriter final : public CVarnel {
 public:
  OneWriter(DWORD testPoints, std::wstring accepted) : CVarnel(testPoints), accepted_(std::move(accepted)) {}
  bool IsWriterEligible(VssWriter& writer) override {
    asked.push_back(writer);
    return writer.name == accepted_;
  }
  std::vector<VssWriter> asked;

 private:
  std::wstring accepted_;
};

class WriterPresence : public HostFixture {
 protected:
  void SetUp() override {
    HostFixture::SetUp();
    simulator::HostModel model = SmallHost();
    model.writers = {MakeWriter(L"First", 1, {MakeComponent(L"", L"one", {L"E:\\one"})}), MakeWriter(L"Second", 2, {}),
                     MakeWriter(L"Third", 3, {})};
    Install(std::move(model));
  }
  bool IsPresent(const std::wstring& accepted) { return OneWriter(0, accepted).IsWriterPresent(details); }
  // The lines of the backup components object and of its operations.
  std::vector<std::string> ServiceCalls() {
    std::vector<std::string> lines;
    for (const std::string& line : host().calls().lines()) {
      if (line.starts_with("CreateVss") || line.starts_with("IVssBackupComponents::") ||
          line.starts_with("IVssAsync")) {
        lines.push_back(line);
      }
    }
    return lines;
  }
  // A failing call is reported without an alert record, thrown, and leaves nothing behind.
  void ExpectFailure(const std::string& call, const std::string& text) {
    SCOPED_TRACE(call);
    log.lines.clear();
    FailCall(call, VSS_E_BAD_STATE);

    EXPECT_EQ(ThrownLong([&] { IsPresent(L"Third"); }), Failure(VSS_E_BAD_STATE));

    EXPECT_EQ(log.Errors(), ComFailureLines("\"" + text + "\"", "0x80042301", "VSS_E_BAD_STATE"));
    EXPECT_EQ(details, "");
    ExpectNothingLive();
  }

  std::string details;
};

TEST_F(WriterPresence, AnAcceptedWriterIsPresent) {
  EXPECT_TRUE(IsPresent(L"Second"));
  EXPECT_EQ(details, "");
  EXPECT_THAT(log.All(), ElementsAre("I Waiting for Operation=GatherWriterMetadata() to finish..."));
}

TEST_F(WriterPresence, WithoutAnAcceptedWriterTheAnswerIsFalse) {
  EXPECT_FALSE(IsPresent(L"Fourth"));
  EXPECT_THAT(Calls("IVssBackupComponents::GetWriterMetadata"), SizeIs(3));
}

TEST_F(WriterPresence, WithoutWritersTheAnswerIsFalse) {
  Install(SmallHost());
  EXPECT_FALSE(CVarnel(0).IsWriterPresent(details));
}

TEST_F(WriterPresence, TheBaseRequestorAcceptsAnyWriter) {
  EXPECT_TRUE(CVarnel(0).IsWriterPresent(details));
  EXPECT_THAT(Calls("IVssBackupComponents::GetWriterMetadata"), SizeIs(1));
}

TEST_F(WriterPresence, TheServiceIsAskedInThisOrderAndNoFurtherThanTheFirstAcceptedWriter) {
  IsPresent(L"Second");
  EXPECT_THAT(
      ServiceCalls(),
      ElementsAre(
          "CreateVssBackupComponents() = S_OK", "IVssBackupComponents::InitializeForBackup(null) = S_OK",
          "IVssBackupComponents::GatherWriterMetadata() = S_OK", "IVssAsync::Wait(INFINITE) = S_OK",
          "IVssAsync::QueryStatus(-> VSS_S_ASYNC_FINISHED) = S_OK",
          "IVssBackupComponents::GetWriterMetadataCount() = S_OK", "IVssBackupComponents::GetWriterMetadata(0) = S_OK",
          "IVssBackupComponents::GetWriterMetadata(1) = S_OK", "IVssBackupComponents::FreeWriterMetadata() = S_OK"));
}

TEST_F(WriterPresence, ARequestorIsAskedAboutWholeWriters) {
  OneWriter requestor(0, L"Second");
  EXPECT_TRUE(requestor.IsWriterPresent(details));
  ASSERT_THAT(requestor.asked, SizeIs(2));
  EXPECT_EQ(requestor.asked[0].name, L"First");
  EXPECT_EQ(requestor.asked[0].writerId, L"{00000001-0000-0000-0000-000000000000}");
  EXPECT_EQ(requestor.asked[0].instanceId, L"{00000001-0001-0000-0000-000000000000}");
  ASSERT_THAT(requestor.asked[0].components, SizeIs(1));
  EXPECT_EQ(requestor.asked[0].components[0].fullPath, L"\\one");
  EXPECT_EQ(requestor.asked[1].name, L"Second");
}

TEST_F(WriterPresence, TheWritersAreNotKept) {
  OneWriter requestor(0, L"Second");
  requestor.IsWriterPresent(details);
  RequestorProbe probe(requestor);
  EXPECT_THAT(probe.writers(), IsEmpty());
  EXPECT_FALSE(probe.metadataGathered());
  EXPECT_TRUE(probe.vssObject());
}

TEST_F(WriterPresence, ASecondQuestionReplacesTheObjectOfTheFirst) {
  OneWriter requestor(0, L"Second");
  EXPECT_TRUE(requestor.IsWriterPresent(details));
  EXPECT_TRUE(requestor.IsWriterPresent(details));
  EXPECT_EQ(host().live().Count("IVssBackupComponents"), 1);
}

TEST_F(WriterPresence, EachFailingCallIsReportedAndThrown) {
  ExpectFailure("CreateVssBackupComponents", "CreateVssBackupComponents(&m_pVssObject)");
  ExpectFailure("IVssBackupComponents::InitializeForBackup", "m_pVssObject->InitializeForBackup()");
  ExpectFailure("IVssBackupComponents::GatherWriterMetadata", "m_pVssObject->GatherWriterMetadata(&pAsync)");
  ExpectFailure("IVssBackupComponents::GetWriterMetadataCount", "m_pVssObject->GetWriterMetadataCount(&cWriters)");
  ExpectFailure("IVssBackupComponents::GetWriterMetadata",
                "m_pVssObject->GetWriterMetadata(iWriter, &idInstance, &pMetadata)");
  ExpectFailure("IVssExamineWriterMetadata::GetIdentity",
                "pMetadata->GetIdentity(&idInstance, &idWriter, &bstrWriterName, &usage, &source)");
}

TEST_F(WriterPresence, AnObjectThatIsNotDeliveredIsUnexpected) {
  for (const char* call : {"CreateVssBackupComponents", "IVssBackupComponents::GatherWriterMetadata",
                           "IVssBackupComponents::GetWriterMetadata"}) {
    SCOPED_TRACE(call);
    FailCall(call, S_OK);
    EXPECT_EQ(ThrownLong([&] { IsPresent(L"Third"); }), Failure(E_UNEXPECTED));
    ExpectNothingLive();
  }
}

TEST_F(WriterPresence, AFailureAfterTheFirstWriterFreesTheMetadata) {
  FailCall("IVssBackupComponents::GetWriterMetadata", VSS_E_BAD_STATE, 2);
  EXPECT_EQ(ThrownLong([&] { IsPresent(L"Third"); }), Failure(VSS_E_BAD_STATE));
  EXPECT_THAT(Calls("IVssBackupComponents::FreeWriterMetadata"), SizeIs(1));
}

TEST_F(WriterPresence, AWaitThatFailsWritesItsAlertAndIsThrown) {
  for (const auto& [call, text] :
       {std::pair{"IVssAsync::Wait", "pAsync->Wait()"}, std::pair{"IVssAsync::QueryStatus", "pAsync->QueryStatus()"}}) {
    details.clear();
    FailCall(call, VSS_E_UNEXPECTED);
    EXPECT_EQ(ThrownLong([&] { IsPresent(L"Third"); }), Failure(VSS_E_UNEXPECTED));
    EXPECT_EQ(details, ComRecord(text, "VSS_E_UNEXPECTED"));
    ExpectNothingLive();
  }
}

TEST_F(WriterPresence, AGatheringThatFailsWritesTheStatusRecordWithoutAnEndAndIsThrown) {
  host().faults().FailAsync("GatherWriterMetadata", VSS_E_WRITER_INFRASTRUCTURE);
  details = "writer=0,";
  EXPECT_EQ(ThrownLong([&] { IsPresent(L"Third"); }), Failure(VSS_E_WRITER_INFRASTRUCTURE));
  const std::string record = QueryStatusRecord("VSS_E_WRITER_INFRASTRUCTURE");
  EXPECT_EQ(details, "writer=0," + record);
  EXPECT_THAT(log.All(), ElementsAre("I Waiting for Operation=GatherWriterMetadata() to finish...", "E   " + record));
  ExpectNothingLive();
}

TEST_F(WriterPresence, MetadataThatCannotBeFreedIsLoggedAndTheAnswerStands) {
  FailCall("IVssBackupComponents::FreeWriterMetadata", VSS_E_BAD_STATE);
  EXPECT_TRUE(IsPresent(L"Third"));
  EXPECT_THAT(log.Errors(), ElementsAre("FreeWriterMetadata failed with error: 0x80042301"));
}

TEST_F(WriterPresence, AQuestionAfterAGatheringKeepsTheWritersAndForgetsTheServicesMetadata) {
  GatheredRequest<OneWriter> request({}, L"Second");
  request.requestor.asked.clear();
  EXPECT_TRUE(request.requestor.IsWriterPresent(details));
  EXPECT_THAT(request.requestor.asked, SizeIs(2));
  EXPECT_THAT(request.probe.writers(), SizeIs(3));
  EXPECT_FALSE(request.probe.metadataGathered());
  EXPECT_EQ(host().live().Count("IVssBackupComponents"), 1);
  EXPECT_EQ(details, "");
  EXPECT_EQ(request.alerts(), "");
  // The metadata of the first object went with it; that of the second was given back by the question itself.
  EXPECT_THAT(Calls("IVssBackupComponents::FreeWriterMetadata"), SizeIs(1));
}

class NetworkName : public HostFixture {
 protected:
  void InstallNode(std::optional<simulator::ClusterNode> cluster) {
    simulator::HostModel model = SmallHost();
    model.computerName = L"SQL01";
    model.cluster = std::move(cluster);
    Install(std::move(model));
  }
  static std::wstring NameOf(const std::wstring& name) {
    CVarnel requestor(0);
    return RequestorProbe(requestor).GetHostnameNetworkName(name);
  }
};

const std::string kFallsBack = "I  GetClusterName failed. Falling back to local hostname";

TEST_F(NetworkName, OutsideAClusterItIsTheComputerNameInLowerCase) {
  InstallNode(std::nullopt);
  EXPECT_EQ(NameOf(L"anything"), L"sql01");
  EXPECT_THAT(log.All(), IsEmpty());
  EXPECT_THAT(Calls("MetadataService::GetClusterName"), IsEmpty());
}

TEST_F(NetworkName, OnAClusterNodeItIsTheClustersNameInLowerCase) {
  InstallNode(simulator::ClusterNode{L"CLU01", {{L"sqlvirt", L"SQLVirt-Net"}}});
  EXPECT_EQ(NameOf(L"sqlvirt"), L"sqlvirt-net");
  EXPECT_THAT(log.All(), IsEmpty());
  EXPECT_THAT(Calls("GetComputerNameW"), IsEmpty());
}

TEST_F(NetworkName, TheClusterIsAskedForTheNameAsItStands) {
  InstallNode(simulator::ClusterNode{L"CLU01", {{L"SQLVIRT", L"net"}}});
  EXPECT_EQ(NameOf(L"SqlVirt"), L"net");
  EXPECT_THAT(Calls("MetadataService::GetClusterName"),
              ElementsAre(StartsWith("MetadataService::GetClusterName(SqlVirt)")));
}

TEST_F(NetworkName, OnlyLatinLettersChangeTheirCase) {
  model().computerName = L"K\u00D6LN";
  EXPECT_EQ(NameOf(L"x"), L"k\u00D6ln");
}

TEST_F(NetworkName, ANameThatTheClusterDoesNotTellFallsBackToTheComputerName) {
  InstallNode(simulator::ClusterNode{L"CLU01", {{L"sqlvirt", L"sqlvirt"}, {L"nameless", L""}}});
  EXPECT_EQ(NameOf(L"other"), L"sql01");
  EXPECT_EQ(NameOf(std::wstring(1, static_cast<wchar_t>(0xD800))), L"sql01");
  FailCall("MetadataService::GetClusterName", E_FAIL);
  EXPECT_EQ(NameOf(L"sqlvirt"), L"sql01");
  EXPECT_THAT(log.All(), ElementsAre(kFallsBack, kFallsBack, kFallsBack));
  log.lines.clear();
  EXPECT_EQ(NameOf(L"nameless"), L"sql01");
  EXPECT_THAT(log.All(), IsEmpty());
}

TEST_F(NetworkName, AClusterStateThatCannotBeReadCountsAsNoCluster) {
  InstallNode(simulator::ClusterNode{L"CLU01", {{L"sqlvirt", L"net"}}});
  FailCall("GetNodeClusterState", ERROR_ACCESS_DENIED);
  EXPECT_EQ(NameOf(L"sqlvirt"), L"sql01");
}

TEST_F(NetworkName, AComputerNameThatCannotBeReadIsReportedAndThrown) {
  InstallNode(std::nullopt);
  FailCall("GetComputerNameW", ERROR_ACCESS_DENIED);
  EXPECT_EQ(ThrownLong([] { NameOf(L"sql01"); }), Win32Failure(ERROR_ACCESS_DENIED));
  EXPECT_EQ(log.Errors(), Win32FailureLines("\"GetComputerNameW(buffer, &size)\"", "5", "Error: 0x80070005"));
}

TEST_F(NetworkName, AComputerNameThatFailsWithoutACodeIsAGeneralFailure) {
  InstallNode(std::nullopt);
  FailCall("GetComputerNameW", ERROR_SUCCESS);
  EXPECT_EQ(ThrownLong([] { NameOf(L"sql01"); }), Win32Failure(ERROR_GEN_FAILURE));
}

// A node whose cluster service has another state.
class ClusterInState final : public ForwardingCluster {
 public:
  ClusterInState(Cluster& inner, DWORD state) : ForwardingCluster(inner), state_(state) {}
  DWORD GetNodeClusterState(LPCWSTR, DWORD* state) override {
    *state = state_;
    return ERROR_SUCCESS;
  }

 private:
  DWORD state_;
};

TEST_F(NetworkName, OnlyARunningClusterIsAsked) {
  InstallNode(simulator::ClusterNode{L"CLU01", {{L"sqlvirt", L"net"}}});
  for (const auto& [state, name, configured] : {std::tuple<DWORD, std::wstring, bool>{0x00, L"sql01", false},
                                                {0x01, L"sql01", false},
                                                {0x03, L"sql01", true},
                                                {0x13, L"net", true}}) {
    SCOPED_TRACE(state);
    ClusterInState cluster(host().cluster(), state);
    const CurrentHostWith current(host(), cluster);
    EXPECT_EQ(NameOf(L"sqlvirt"), name);
    EXPECT_EQ(TesselCommonClasses::ClusterHelper().IsCluster(true), name == L"net");
    EXPECT_EQ(TesselCommonClasses::ClusterHelper().IsCluster(false), configured);
  }
  EXPECT_THAT(Calls("MetadataService::GetClusterName"), SizeIs(1));
  EXPECT_THAT(log.All(), IsEmpty());
}

TEST_F(NetworkName, AComputerNameMayFillItsBuffer) {
  const std::wstring longest(32766, L'n');
  model().computerName = longest;
  EXPECT_EQ(NameOf(L"anything"), longest);
  model().computerName += L'n';
  EXPECT_EQ(OutcomeOf([] { NameOf(L"anything"); }).thrown.has_value(), true);
}

// ---- external programs ----

const std::string kCreateProcess =
    "\"CreateProcessW(NULL, (LPWSTR)execCommand.c_str(), NULL, NULL, FALSE, CREATE_NO_WINDOW | "
    "CREATE_UNICODE_ENVIRONMENT, NULL, NULL, &si, &pi)\"";

class ExternalProgram : public HostFixture {
 protected:
  void InstallProgram(DWORD exitCode) {
    simulator::HostModel model = SmallHost();
    model.commands = {{L"tool.exe *", exitCode}};
    Install(std::move(model));
  }
  static void Run() { CVarnel(0).ExecCommand(L"tool.exe /k \"E:\\Db 1\""); }
};

TEST_F(ExternalProgram, ExitCode0IsASuccess) {
  InstallProgram(0);
  Run();
  EXPECT_THAT(log.All(), ElementsAre("I - Executing command = tool.exe /k \"E:\\Db 1\"",
                                     "I Successfully completed execution of command = tool.exe /k \"E:\\Db 1\""));
}

TEST_F(ExternalProgram, IsStartedWaitedForAndAskedForItsExitCode) {
  InstallProgram(0);
  Run();
  EXPECT_THAT(host().calls().lines(),
              ElementsAre("CreateProcessW(tool.exe /k \"E:\\Db 1\") = ok", "WaitForSingleObject(process) = ok",
                          "GetExitCodeProcess(process) = ok", StartsWith("CloseHandle("), StartsWith("CloseHandle(")));
}

TEST_F(ExternalProgram, AnExitCodeIsThrownAsAnHresultOfItsLow16BitsUnlessItIsNegative) {
  for (const auto& [code, thrown, shown] : {std::tuple{0x1u, 0x80070001u, "1"},
                                            {0x123ABCDu, 0x8007ABCDu, "123abcd"},
                                            {0xC0000005u, 0xC0000005u, "c0000005"}}) {
    InstallProgram(code);
    log.lines.clear();
    EXPECT_EQ(ThrownLong([] { Run(); }), Failure(static_cast<HRESULT>(thrown)));
    EXPECT_THAT(log.All(),
                ElementsAre("I - Executing command = tool.exe /k \"E:\\Db 1\"",
                            "E Command Failed, Command=tool.exe /k \"E:\\Db 1\", Error=0x" + std::string(shown)));
    ExpectNothingLive();
  }
}

TEST_F(ExternalProgram, AProgramThatDoesNotExistIsReported) {
  EXPECT_EQ(ThrownLong([] { Run(); }), Win32Failure(ERROR_FILE_NOT_FOUND));
  EXPECT_EQ(log.Errors(), Win32FailureLines(kCreateProcess, "2", "Error: 0x80070002"));
}

TEST_F(ExternalProgram, AStartThatFailsWithoutACodeIsAGeneralFailure) {
  InstallProgram(0);
  FailCall("CreateProcessW", ERROR_SUCCESS);
  EXPECT_EQ(ThrownLong([] { Run(); }), Win32Failure(ERROR_GEN_FAILURE));
  EXPECT_EQ(log.Errors(), Win32FailureLines(kCreateProcess, "31", "Error: 0x8007001f"));
}

TEST_F(ExternalProgram, AFailingCallAfterTheStartIsReportedAndTheHandlesAreClosed) {
  for (const auto& [call, text] :
       {std::pair{"WaitForSingleObject", "\"WaitForSingleObject(pi.hProcess, INFINITE) == WAIT_OBJECT_0\""},
        std::pair{"GetExitCodeProcess", "\"GetExitCodeProcess(pi.hProcess, &dwExitCode)\""}}) {
    InstallProgram(0);
    log.lines.clear();
    FailCall(call, ERROR_INVALID_HANDLE);
    EXPECT_EQ(ThrownLong([] { Run(); }), Win32Failure(ERROR_INVALID_HANDLE));
    EXPECT_EQ(log.Errors(), Win32FailureLines(text, "6", "Error: 0x80070006"));
    ExpectNothingLive();
  }
}

// What a program is started with.
struct Start {
  bool hasApplication = true;
  std::wstring commandLine;
  bool hasSecurity = true;
  BOOL inheritHandles = TRUE;
  DWORD flags = 0;
  bool hasEnvironment = true;
  bool hasDirectory = true;
  STARTUPINFOW startup{};
  DWORD waitedFor = 0;
};

// Remembers how a program is started, and writes into its command line as the system may.
class WatchedProcesses final : public ForwardingProcesses {
 public:
  using ForwardingProcesses::ForwardingProcesses;
  BOOL CreateProcessW(LPCWSTR application, LPWSTR commandLine, void* processSecurity, void* threadSecurity,
                      BOOL inheritHandles, DWORD flags, void* environment, LPCWSTR directory, STARTUPINFOW* startup,
                      PROCESS_INFORMATION* process) override {
    start = {application != nullptr, commandLine, processSecurity != nullptr || threadSecurity != nullptr,
             inheritHandles,         flags,       environment != nullptr,
             directory != nullptr,   *startup,    0};
    const BOOL started =
        ForwardingProcesses::CreateProcessW(application, commandLine, processSecurity, threadSecurity, inheritHandles,
                                            flags, environment, directory, startup, process);
    commandLine[0] = L'\0';
    return started;
  }
  DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) override {
    start.waitedFor = milliseconds;
    return waitResult ? *waitResult : ForwardingProcesses::WaitForSingleObject(handle, milliseconds);
  }

  Start start;
  std::optional<DWORD> waitResult;
};

TEST_F(ExternalProgram, IsStartedWithoutAWindowInTheCallersEnvironmentAndFolder) {
  InstallProgram(0);
  WatchedProcesses watched(host().processes());
  const CurrentHostWith current(host(), watched);
  Run();
  const Start& start = watched.start;
  EXPECT_FALSE(start.hasApplication);
  EXPECT_EQ(start.commandLine, L"tool.exe /k \"E:\\Db 1\"");
  EXPECT_FALSE(start.hasSecurity);
  EXPECT_EQ(start.inheritHandles, FALSE);
  EXPECT_EQ(start.flags, DWORD{CREATE_NO_WINDOW | CREATE_UNICODE_ENVIRONMENT});
  EXPECT_FALSE(start.hasEnvironment);
  EXPECT_FALSE(start.hasDirectory);
  EXPECT_EQ(start.startup.cb, sizeof(STARTUPINFOW));
  EXPECT_EQ(start.startup.dwFlags, 0u);
  EXPECT_EQ(start.waitedFor, DWORD{INFINITE});
}

TEST_F(ExternalProgram, TheLogKeepsTheCommandThatTheSystemWroteInto) {
  InstallProgram(1);
  WatchedProcesses watched(host().processes());
  const CurrentHostWith current(host(), watched);
  EXPECT_EQ(ThrownLong([] { Run(); }), Win32Failure(1));
  EXPECT_THAT(log.Errors(), ElementsAre("Command Failed, Command=tool.exe /k \"E:\\Db 1\", Error=0x1"));
}

TEST_F(ExternalProgram, AWaitThatEndsInAnyOtherWayIsAFailure) {
  InstallProgram(0);
  WatchedProcesses watched(host().processes());
  const CurrentHostWith current(host(), watched);
  watched.waitResult = 0x102;  // WAIT_TIMEOUT
  host().machine().lastError = ERROR_SUCCESS;
  EXPECT_EQ(ThrownLong([] { Run(); }), Win32Failure(ERROR_GEN_FAILURE));
}

TEST_F(ExternalProgram, EveryLogLineTellsTheLineOfItsStatement) {
  InstallProgram(0);
  Run();
  Run();
  ASSERT_THAT(log.lines, SizeIs(4));
  for (const RecordingLog::Line& line : log.lines) {
    EXPECT_GT(line.line, 0);
    EXPECT_LT(line.line, 10000);
  }
  EXPECT_LT(log.lines[0].line, log.lines[1].line);
  EXPECT_EQ(log.lines[2].line, log.lines[0].line);
  EXPECT_EQ(log.lines[3].line, log.lines[1].line);
}

class WriterCode : public HostFixture {
 protected:
  static std::string Parse(const std::string& requestText) {
    CVarnel requestor(0);
    RequestorProbe probe(requestor);
    const std::string code = probe.parseWriterCode(requestText);
    EXPECT_EQ(probe.getWriterCode(), code);
    return code;
  }
};

TEST_F(WriterCode, IsTheValueOfTheFirstFieldThatContainsTheWord) {
  const std::pair<const char*, const char*> codes[] = {
      {"host=a,writer=4,x=1", "4"},
      {"writer=3", "3"},
      {"writer=1,writer=2", "1"},
      {"a,,writer=2,", "2"},
      // a field without a value
      {"writers,z", "writers"},
      {"a=1,the writer", "the writer"},
      // the word anywhere in its field
      {"the writer code=2,writer=3", "2"},
      {"x=writer", "writer"},
      {"underwriters=7", "7"},
      // nowhere, or not in lower case
      {"a=1,b=2", ""},
      {"a=1,b=2,", ""},
      {"a", ""},
      {",", ""},
      {"", ""},
      {"Writer=1", ""},
      {"Writer=1,WRITER=2,writer=3", "3"},
      // the first equals sign separates
      {"writer=1=2", "1=2"},
      {"writer==2", "=2"},
      {"writer=", ""},
      // blanks and line breaks stay
      {" writer= 3 \nnext,", " 3 \nnext"},
  };
  for (const auto& [text, code] : codes) EXPECT_EQ(Parse(text), code) << text;
}

TEST_F(WriterCode, IsLoggedAndKeptUntilTheNextOne) {
  CVarnel requestor(0);
  RequestorProbe probe(requestor);
  EXPECT_EQ(probe.getWriterCode(), "");
  probe.parseWriterCode("writer=2,");
  EXPECT_EQ(probe.getWriterCode(), "2");
  probe.parseWriterCode("nothing");
  EXPECT_EQ(probe.getWriterCode(), "");
  EXPECT_THAT(log.All(),
              ElementsAre("I Writer code received from Array is: 2", "I Writer code received from Array is: "));
}

TEST_F(WriterCode, CanBeSet) {
  CVarnel requestor(0);
  RequestorProbe probe(requestor);
  probe.setWriterCode("17");
  EXPECT_EQ(probe.getWriterCode(), "17");
  EXPECT_THAT(log.All(), IsEmpty());
}

}  // namespace
}  // namespace varnel::test
