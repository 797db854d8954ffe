// The drop-in libraries by themselves, called as any requestor calls the service and the initiator.
#include "tests/windows/dropin/dropin.h"

#include "platform/owners.h"
#include "tests/support/host_fixture.h"
#include "text/ascii_case.h"

namespace varnel::test {
namespace {

using testing::Contains;
using testing::UnorderedElementsAre;
using testing::UnorderedElementsAreArray;

constexpr GUID kMail = ParseGuid<GUID>("{00000001-0000-0000-0000-000000000000}");
constexpr GUID kMailInstance = ParseGuid<GUID>("{00000001-0001-0000-0000-000000000000}");
constexpr GUID kProvider = ParseGuid<GUID>("{374579ad-285c-49b9-ab8a-950e0e252de2}");

std::vector<std::string> ExportsOf(HMODULE module) {
  const char* base = reinterpret_cast<const char*>(module);
  const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
  const IMAGE_DATA_DIRECTORY& place = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
  const auto* exports = reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(base + place.VirtualAddress);
  const auto* names = reinterpret_cast<const DWORD*>(base + exports->AddressOfNames);
  std::vector<std::string> texts;
  for (DWORD i = 0; i < exports->NumberOfNames; ++i) texts.emplace_back(base + names[i]);
  return texts;
}

/// What `action` wrote to standard error.
template <class Action>
std::string ReportOf(Action action) {
  testing::internal::CaptureStderr();
  action();
  std::string text = testing::internal::GetCapturedStderr();
  std::erase(text, '\r');
  return text;
}

template <class Start>
void Finish(Start start) {
  ComPtr<IVssAsync> async;
  ASSERT_EQ(start(async.Put()), S_OK);
  EXPECT_EQ(async->Wait(INFINITE), S_OK);
  HRESULT result = E_FAIL;
  EXPECT_EQ(async->QueryStatus(&result, nullptr), S_OK);
  EXPECT_EQ(result, VSS_S_ASYNC_FINISHED);
}

// One requestor's backup of the mail databases, step by step.
class Backup {
 public:
  explicit Backup(const ServiceLibrary& service) { EXPECT_EQ(service.Create(object_.Put()), S_OK); }

  IVssBackupComponents* operator->() const { return object_.Get(); }
  void Initialize() {
    EXPECT_EQ(object_->InitializeForBackup(nullptr), S_OK);
    EXPECT_EQ(object_->SetBackupState(true, true, VSS_BT_FULL, false), S_OK);
  }
  void Gather() {
    Finish([&](IVssAsync** async) { return object_->GatherWriterMetadata(async); });
  }
  void Select() {
    for (const wchar_t* name : {L"db1", L"db2"}) {
      EXPECT_EQ(object_->AddComponent(kMailInstance, kMail, VSS_CT_FILEGROUP, L"mail", name), S_OK);
    }
  }
  void TakeSnapshot() {
    VSS_ID set{};
    EXPECT_EQ(object_->StartSnapshotSet(&set), S_OK);
    std::wstring volume = VolumeName(1);
    EXPECT_EQ(object_->AddToSnapshotSet(volume.data(), kProvider, &copy_), S_OK);
    Finish([&](IVssAsync** async) { return object_->PrepareForBackup(async); });
    Finish([&](IVssAsync** async) { return object_->DoSnapshotSet(async); });
  }
  void Complete() {
    for (const wchar_t* name : {L"db1", L"db2"}) {
      EXPECT_EQ(object_->SetBackupSucceeded(kMailInstance, kMail, VSS_CT_FILEGROUP, L"mail", name, true), S_OK);
    }
    Finish([&](IVssAsync** async) { return object_->BackupComplete(async); });
  }
  /// Everything up to the snapshot.
  void Start() {
    Initialize();
    Gather();
    Select();
    TakeSnapshot();
  }
  const VSS_ID& copy() const { return copy_; }

 private:
  ComPtr<IVssBackupComponents> object_;
  VSS_ID copy_{};
};

std::vector<std::wstring> WriterNames(const Backup& backup) {
  UINT count = 0;
  EXPECT_EQ(backup->GetWriterMetadataCount(&count), S_OK);
  std::vector<std::wstring> names;
  for (UINT i = 0; i < count; ++i) {
    ComPtr<IVssExamineWriterMetadata> metadata;
    VSS_ID instance{};
    EXPECT_EQ(backup->GetWriterMetadata(i, &instance, metadata.Put()), S_OK);
    VSS_ID writer{};
    BSTR name = nullptr;
    VSS_USAGE_TYPE usage{};
    VSS_SOURCE_TYPE source{};
    EXPECT_EQ(metadata->GetIdentity(&instance, &writer, &name, &usage, &source), S_OK);
    names.emplace_back(name, ::SysStringLen(name));
    ::SysFreeString(name);
  }
  return names;
}

std::vector<VSS_WRITER_STATE> WriterStates(const Backup& backup) {
  Finish([&](IVssAsync** async) { return backup->GatherWriterStatus(async); });
  UINT count = 0;
  EXPECT_EQ(backup->GetWriterStatusCount(&count), S_OK);
  std::vector<VSS_WRITER_STATE> states(count);
  for (UINT i = 0; i < count; ++i) {
    VSS_ID instance{};
    VSS_ID writer{};
    BSTR name = nullptr;
    HRESULT failure = E_FAIL;
    EXPECT_EQ(backup->GetWriterStatus(i, &instance, &writer, &name, &states[i], &failure), S_OK);
    EXPECT_EQ(failure, S_OK);
    ::SysFreeString(name);
  }
  EXPECT_EQ(backup->FreeWriterStatus(), S_OK);
  return states;
}

// The files of a component, as "path\filespec"; with the component's name in front.
std::vector<std::wstring> FirstComponent(const Backup& backup) {
  ComPtr<IVssExamineWriterMetadata> metadata;
  VSS_ID instance{};
  EXPECT_EQ(backup->GetWriterMetadata(0, &instance, metadata.Put()), S_OK);
  ComPtr<IVssWMComponent> component;
  EXPECT_EQ(metadata->GetComponent(0, component.Put()), S_OK);
  PVSSCOMPONENTINFO info = nullptr;
  EXPECT_EQ(component->GetComponentInfo(&info), S_OK);
  std::vector<std::wstring> texts = {info->bstrComponentName};
  for (UINT i = 0; i < info->cFileCount; ++i) {
    ComPtr<IVssWMFiledesc> file;
    EXPECT_EQ(component->GetFile(i, file.Put()), S_OK);
    Bstr path;
    Bstr filespec;
    EXPECT_EQ(file->GetPath(path.Put()), S_OK);
    EXPECT_EQ(file->GetFilespec(filespec.Put()), S_OK);
    texts.push_back(std::wstring(path.View()) + L"\\" + std::wstring(filespec.View()));
  }
  EXPECT_EQ(component->FreeComponentInfo(info), S_OK);
  return texts;
}

// The components of the first writer that the backup document holds.
std::vector<std::wstring> DocumentedComponents(const Backup& backup) {
  ComPtr<IVssWriterComponentsExt> writer;
  EXPECT_EQ(backup->GetWriterComponents(0, writer.Put()), S_OK);
  UINT count = 0;
  EXPECT_EQ(writer->GetComponentCount(&count), S_OK);
  std::vector<std::wstring> names;
  for (UINT i = 0; i < count; ++i) {
    ComPtr<IVssComponent> component;
    EXPECT_EQ(writer->GetComponent(i, component.Put()), S_OK);
    Bstr name;
    EXPECT_EQ(component->GetComponentName(name.Put()), S_OK);
    names.emplace_back(name.View());
  }
  return names;
}

// Session identifiers, and the numbers of the disks of each.
std::vector<iscsi::UniqueSessionId> SessionsOf(IscsiInitiator& initiator) {
  ULONG bytes = 0;
  ULONG count = 0;
  if (initiator.GetIScsiSessionListW(&bytes, &count, nullptr) == ERROR_SUCCESS) return {};
  std::vector<iscsi::SessionInfo> buffer(bytes / sizeof(iscsi::SessionInfo) + 1);
  EXPECT_EQ(initiator.GetIScsiSessionListW(&bytes, &count, buffer.data()), DWORD{ERROR_SUCCESS});
  std::vector<iscsi::UniqueSessionId> ids;
  for (ULONG i = 0; i < count; ++i) ids.push_back(buffer[i].SessionId);
  return ids;
}

std::vector<std::wstring> DrivesOf(IscsiInitiator& initiator, iscsi::UniqueSessionId session) {
  ULONG count = 0;
  initiator.GetDevicesForIScsiSessionW(&session, &count, nullptr);
  std::vector<iscsi::DeviceOnSession> devices(count);
  EXPECT_EQ(initiator.GetDevicesForIScsiSessionW(&session, &count, devices.data()), DWORD{ERROR_SUCCESS});
  std::vector<std::wstring> drives;
  for (const iscsi::DeviceOnSession& device : devices) drives.emplace_back(device.LegacyName);
  return drives;
}

void RunProgram(std::wstring commandLine) {
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process{};
  ASSERT_TRUE(
      ::CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process));
  constexpr DWORD kPatience = 60000;
  EXPECT_EQ(::WaitForSingleObject(process.hProcess, kPatience), DWORD{WAIT_OBJECT_0});
  ::CloseHandle(process.hThread);
  ::CloseHandle(process.hProcess);
}

class DropInTest : public DropInFixture {};

// What only writers, and tools that describe snapshot sets by hand, link. The drop-in library does not have it.
bool IsNotForRequestors(const std::string& name) {
  constexpr std::string_view kParts[] = {
      "@CVssWriter@@",          "@CVssJetWriter@@",         "??0CVss", "??1CVss", "CreateWriter",
      "CreateVssExpressWriter", "VssSnapshotSetDescription"};
  return std::any_of(std::begin(kParts), std::end(kParts),
                     [&](std::string_view part) { return name.find(part) != std::string::npos; });
}

// The functions of the toolchain's import library of the service.
std::vector<std::string> LinkableNames() {
  std::vector<std::string> names;
  for (const std::string& line : LinesOf(ReadText(VARNEL_VSSAPI_SYMBOLS))) {
    const std::size_t kind = line.find(" T ");
    if (kind != std::string::npos) names.push_back(line.substr(kind + 3));
  }
  return names;
}

TEST_F(DropInTest, TheServiceExportsEveryNameThatARequestorCanLinkAndTwoMore) {
  std::vector<std::string> names = LinkableNames();
  EXPECT_THAT(names, Contains("ShouldBlockRevertInternal"));
  EXPECT_GT(std::erase_if(names, IsNotForRequestors), 50u);
  names.insert(names.end(), {"DllGetClassObject", "VarnelSimulatedHost"});
  EXPECT_THAT(ExportsOf(ServiceLibrary(ServiceFile()).module()), UnorderedElementsAreArray(names));
}

TEST_F(DropInTest, TheOtherFunctionsOfTheServiceAnswerByEveryName) {
  const ServiceLibrary service(ServiceFile());
  Backup backup(service);
  backup.Start();
  for (const char* name : {"IsVolumeSnapshotted", "IsVolumeSnapshottedInternal"}) {
    const auto ask = EntryPoint<HRESULT WINAPI(LPCWSTR, BOOL*, LONG*)>(service.module(), name);
    BOOL present = FALSE;
    LONG capability = 7;
    EXPECT_EQ(ask(L"E:\\", &present, &capability), S_OK);
    EXPECT_TRUE(present);
    EXPECT_EQ(capability, 0);
  }
  for (const char* name : {"ShouldBlockRevert", "ShouldBlockRevertInternal"}) {
    const auto ask = EntryPoint<HRESULT WINAPI(LPCWSTR, VssBool*)>(service.module(), name);
    VssBool block = 1;
    EXPECT_EQ(ask(L"E:\\", &block), S_OK);
    EXPECT_FALSE(block);
  }
  for (const char* name : {"CreateVssExamineWriterMetadataInternal",
                           "?CreateVssExamineWriterMetadata@@YAJPEAGPEAPEAVIVssExamineWriterMetadata@@@Z"}) {
    const auto examine = EntryPoint<HRESULT WINAPI(BSTR, IVssExamineWriterMetadata**)>(service.module(), name);
    ComPtr<IVssExamineWriterMetadata> metadata;
    EXPECT_EQ(examine(nullptr, metadata.Put()), E_INVALIDARG);
  }
  for (const char* name : {"GetProviderMgmtInterface", "GetProviderMgmtInterfaceInternal"}) {
    const auto manage = EntryPoint<HRESULT WINAPI(VSS_ID, IID, IUnknown**)>(service.module(), name);
    auto* object = reinterpret_cast<IUnknown*>(1);
    EXPECT_EQ(manage(kProvider, kIidUnknown, &object), E_NOTIMPL);
    EXPECT_EQ(object, nullptr);
  }
}

TEST_F(DropInTest, TheInitiatorExportsTheThreeCallsThatARequestorMakes) {
  EXPECT_THAT(ExportsOf(InitiatorLibrary(InitiatorFile()).module()),
              UnorderedElementsAre("GetIScsiSessionListW", "GetDevicesForIScsiSessionW", "LogoutIScsiTarget"));
}

TEST_F(DropInTest, BothNamesOfCreationMakeObjectsOfOneMachine) {
  const ServiceLibrary service(ServiceFile());
  const auto create = EntryPoint<ServiceLibrary::CreateFunction>(
      service.module(), "?CreateVssBackupComponents@@YAJPEAPEAVIVssBackupComponents@@@Z");
  ASSERT_NE(create, nullptr);
  Backup first(service);
  ComPtr<IVssBackupComponents> second;
  ASSERT_EQ(create(second.Put()), S_OK);
  EXPECT_EQ(service.host().live().Describe(), "2 IVssBackupComponents");
}

TEST_F(DropInTest, AProgramThatIsLinkedAgainstTheServiceGetsTheLibraryBesideIt) {
  const std::wstring loaded = FileOf(::GetModuleHandleW(L"vssapi.dll")).wstring();
  EXPECT_TRUE(ascii::EqualIgnoringCase(loaded, (ProgramFolder() / L"vssapi.dll").wstring())) << WideToUtf8(loaded);
  ComPtr<IVssBackupComponents> backup;
  EXPECT_EQ(::CreateVssBackupComponents(backup.Put()), S_OK);
  EXPECT_TRUE(backup);
}

TEST_F(DropInTest, WithoutAHostFileCreationFailsAndSaysWhichVariableIsMissing) {
  ::SetEnvironmentVariableW(simulator::kHostVariable, nullptr);
  const ServiceLibrary service(ServiceFile());
  auto* backup = reinterpret_cast<IVssBackupComponents*>(1);
  const std::string report = ReportOf([&] { EXPECT_EQ(service.Create(&backup), E_UNEXPECTED); });
  EXPECT_EQ(backup, nullptr);
  EXPECT_EQ(report, "vssapi.dll: VARNEL_SIMULATED_HOST is not set; it names the host file\n");
}

TEST_F(DropInTest, AHostFileThatCannotBeUsedIsReportedWithItsPlaceAndReason) {
  WriteHostFile(HostTextWith("\"colour\"", "\"vendor\""));
  const ServiceLibrary service(ServiceFile());
  IVssBackupComponents* backup = nullptr;
  const std::string report = ReportOf([&] { EXPECT_EQ(service.Create(&backup), E_UNEXPECTED); });
  EXPECT_EQ(report, "vssapi.dll: " + WideToUtf8(HostFile().wstring()) + ": /disks/0/colour: unknown key\n");
}

TEST_F(DropInTest, AHostFileThatIsNotThereIsReported) {
  ::SetEnvironmentVariableW(simulator::kHostVariable, L"Z:\\no such folder\\h\u00f6st.json");
  const ServiceLibrary service(ServiceFile());
  IVssBackupComponents* backup = nullptr;
  const std::string report = ReportOf([&] { EXPECT_EQ(service.Create(&backup), E_UNEXPECTED); });
  EXPECT_THAT(report, HasSubstr("vssapi.dll: Z:\\no such folder\\h\xc3\xb6st.json: "));
  EXPECT_THAT(report, HasSubstr("cannot read the file: there is no such file\n"));
}

TEST_F(DropInTest, ACallLogThatCannotBeWrittenIsReported) {
  ::SetEnvironmentVariableW(simulator::kCallsVariable, L"Z:\\no such folder\\calls.txt");
  const ServiceLibrary service(ServiceFile());
  IVssBackupComponents* backup = nullptr;
  const std::string report = ReportOf([&] { EXPECT_EQ(service.Create(&backup), E_UNEXPECTED); });
  EXPECT_EQ(report, "vssapi.dll: Z:\\no such folder\\calls.txt: cannot write the call log\n");
}

TEST_F(DropInTest, TheNextCallAfterAFailureTriesAgain) {
  WriteHostFile("{}");
  const ServiceLibrary service(ServiceFile());
  IVssBackupComponents* refused = nullptr;
  ReportOf([&] { EXPECT_EQ(service.Create(&refused), E_UNEXPECTED); });
  WriteHostFile(HostText());
  ComPtr<IVssBackupComponents> backup;
  EXPECT_EQ(service.Create(backup.Put()), S_OK);
}

TEST_F(DropInTest, ABackupRunsFromCreationToCompletionAndLeavesNothingBehind) {
  const ServiceLibrary service(ServiceFile());
  {
    Backup backup(service);
    backup.Initialize();
    backup.Gather();
    EXPECT_THAT(WriterNames(backup), ElementsAre(L"Mail", L"Web"));
    EXPECT_THAT(FirstComponent(backup), ElementsAre(L"db1", L"E:\\db1\\data.bin", L"%MailData%\\log\\data.bin"));
    backup.Select();
    backup.TakeSnapshot();
    EXPECT_THAT(WriterStates(backup), ElementsAre(VSS_WS_WAITING_FOR_BACKUP_COMPLETE, VSS_WS_STABLE));
    backup.Complete();
    EXPECT_THAT(WriterStates(backup), ElementsAre(VSS_WS_STABLE, VSS_WS_STABLE));
    EXPECT_THAT(DocumentedComponents(backup), ElementsAre(L"db1", L"db2"));
    EXPECT_EQ(backup->FreeWriterMetadata(), S_OK);
  }
  EXPECT_EQ(service.host().live().Describe(), "");
  EXPECT_THAT(service.host().live().misuses(), IsEmpty());
}

TEST_F(DropInTest, TheLibraryGivesTheStringsOfAShadowCopyAndTakesThemBack) {
  const ServiceLibrary service(ServiceFile());
  Backup backup(service);
  backup.Start();
  VSS_SNAPSHOT_PROP properties{};
  ASSERT_EQ(backup->GetSnapshotProperties(backup.copy(), &properties), S_OK);
  EXPECT_STREQ(properties.m_pwszSnapshotDeviceObject, L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1");
  EXPECT_EQ(properties.m_pwszOriginalVolumeName, VolumeName(1));
  service.Free(&properties);
  EXPECT_EQ(properties.m_pwszSnapshotDeviceObject, nullptr);
  EXPECT_EQ(properties.m_pwszOriginalVolumeName, nullptr);
}

TEST_F(DropInTest, EveryCallIsInTheCallLogAsSoonAsItReturns) {
  const ServiceLibrary service(ServiceFile());
  Backup backup(service);
  EXPECT_THAT(Calls(), ElementsAre("CreateVssBackupComponents() = S_OK"));
  backup.Initialize();
  EXPECT_THAT(Calls(), ElementsAre("CreateVssBackupComponents() = S_OK",
                                   "IVssBackupComponents::InitializeForBackup(null) = S_OK",
                                   "IVssBackupComponents::SetBackupState(true, true, 1, false) = S_OK"));
}

TEST_F(DropInTest, WithoutAFileForItNoCallIsLogged) {
  ::SetEnvironmentVariableW(simulator::kCallsVariable, nullptr);
  const ServiceLibrary service(ServiceFile());
  Backup backup(service);
  backup.Initialize();
  EXPECT_FALSE(std::filesystem::exists(CallsFile()));
  EXPECT_THAT(service.host().calls().lines(), IsEmpty());
}

TEST_F(DropInTest, TwoRequestorsOfAProcessMeetOneService) {
  const ServiceLibrary service(ServiceFile());
  Backup first(service);
  Backup second(service);
  for (Backup* backup : {&first, &second}) {
    backup->Initialize();
    backup->Gather();
  }
  VSS_ID set{};
  EXPECT_EQ(first->StartSnapshotSet(&set), S_OK);
  EXPECT_EQ(second->StartSnapshotSet(&set), VSS_E_SNAPSHOT_SET_IN_PROGRESS);
}

TEST_F(DropInTest, AFaultOfTheHostFileFailsItsCall) {
  WriteHostFile(WithFaults(R"({ "call": "CreateVssBackupComponents", "result": "E_ACCESSDENIED" })"));
  const ServiceLibrary service(ServiceFile());
  auto* backup = reinterpret_cast<IVssBackupComponents*>(1);
  EXPECT_EQ(service.Create(&backup), E_ACCESSDENIED);
  EXPECT_EQ(backup, nullptr);
}

TEST_F(DropInTest, OnceItHasAMachineTheLibraryStaysUntilTheProcessEnds) {
  const ServiceLibrary service(ServiceFile());
  Backup backup(service);
  EXPECT_TRUE(::FreeLibrary(service.module()));
  ::FreeLibrary(service.module());
  EXPECT_EQ(::GetModuleHandleW(ServiceFile().c_str()), service.module());
  backup.Initialize();
}

TEST_F(DropInTest, TheClassObjectMakesTheCoordinatorWithTheHostsProviders) {
  const ServiceLibrary service(ServiceFile());
  {
    ComPtr<IClassFactory> coordinator;
    ASSERT_EQ(
        service.GetClassObject(kClsidVssCoordinator, IID_IClassFactory, reinterpret_cast<void**>(coordinator.Put())),
        S_OK);
    ComPtr<IVssAdmin> admin;
    ASSERT_EQ(coordinator->CreateInstance(nullptr, kIidVssAdmin, reinterpret_cast<void**>(admin.Put())), S_OK);
    ComPtr<IVssEnumObject> providers;
    ASSERT_EQ(admin->QueryProviders(providers.Put()), S_OK);
    VSS_OBJECT_PROP object{};
    ULONG fetched = 0;
    ASSERT_EQ(providers->Next(1, &object, &fetched), S_OK);
    EXPECT_EQ(object.Type, VSS_OBJECT_PROVIDER);
    EXPECT_EQ(object.Obj.Prov.m_ProviderId, kProvider);
    EXPECT_STREQ(object.Obj.Prov.m_pwszProviderName, L"Tessel VSS Hardware Provider");
    ::CoTaskMemFree(object.Obj.Prov.m_pwszProviderName);
    ::CoTaskMemFree(object.Obj.Prov.m_pwszProviderVersion);
    EXPECT_EQ(providers->Next(1, &object, &fetched), S_FALSE);
  }
  EXPECT_EQ(service.host().live().Describe(), "");
}

TEST_F(DropInTest, ThereIsNoClassObjectOfAnotherClass) {
  auto* object = reinterpret_cast<void*>(1);
  EXPECT_EQ(ServiceLibrary(ServiceFile()).GetClassObject(kMail, IID_IClassFactory, &object), CLASS_E_CLASSNOTAVAILABLE);
  EXPECT_EQ(object, nullptr);
}

TEST_F(DropInTest, TheInitiatorShowsTheDiskOfAShadowCopyAsLongAsThereIsOne) {
  const ServiceLibrary service(ServiceFile());
  InitiatorLibrary initiator(InitiatorFile());
  const std::vector<iscsi::UniqueSessionId> sessions = SessionsOf(initiator);
  ASSERT_EQ(sessions.size(), 1u);
  EXPECT_THAT(DrivesOf(initiator, sessions[0]), ElementsAre(L"\\\\.\\PhysicalDrive1"));
  {
    Backup backup(service);
    backup.Start();
    EXPECT_THAT(DrivesOf(initiator, sessions[0]), ElementsAre(L"\\\\.\\PhysicalDrive1", L"\\\\.\\PhysicalDrive3"));
  }
  EXPECT_THAT(DrivesOf(initiator, sessions[0]), ElementsAre(L"\\\\.\\PhysicalDrive1"));
}

TEST_F(DropInTest, ProcessesThatNameOneStateFileMeetOneService) {
  ::SetEnvironmentVariableW(simulator::kStateVariable, StateFile().c_str());
  const ServiceLibrary service(ServiceFile());
  Backup backup(service);
  backup.Start();
  ::SetEnvironmentVariableW(simulator::kCallsVariable, nullptr);
  const ServiceLibrary other(OtherServiceFile());
  ComPtr<IVssBackupComponents> second;
  ASSERT_EQ(other.Create(second.Put()), S_OK);
  EXPECT_EQ(second->InitializeForBackup(nullptr), S_OK);
  SnapshotProperties properties;
  EXPECT_EQ(second->GetSnapshotProperties(backup.copy(), properties.Put()), S_OK);
}

TEST_F(DropInTest, AStateFileThatCannotBeUsedIsReportedAndStays) {
  std::ofstream(StateFile()) << "{}";
  ::SetEnvironmentVariableW(simulator::kStateVariable, StateFile().c_str());
  const ServiceLibrary service(ServiceFile());
  IVssBackupComponents* backup = nullptr;
  const std::string report = ReportOf([&] { EXPECT_EQ(service.Create(&backup), E_UNEXPECTED); });
  EXPECT_THAT(report, StartsWith("vssapi.dll: " + WideToUtf8(StateFile().wstring()) + ": /: missing key \"version\""));
  EXPECT_EQ(ReadText(StateFile()), "{}");
}

TEST_F(DropInTest, ASessionEndsWithItsLogout) {
  const ServiceLibrary service(ServiceFile());
  InitiatorLibrary initiator(InitiatorFile());
  std::vector<iscsi::UniqueSessionId> sessions = SessionsOf(initiator);
  ASSERT_EQ(sessions.size(), 1u);
  EXPECT_EQ(initiator.LogoutIScsiTarget(&sessions[0]), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(SessionsOf(initiator).size(), 0u);
  EXPECT_THAT(Calls(), Contains("LogoutIScsiTarget(iqn.2007-11.com.example:data) = ok"));
}

TEST_F(DropInTest, WithoutAHostTheInitiatorIsNotRunning) {
  ::SetEnvironmentVariableW(simulator::kHostVariable, nullptr);
  const ServiceLibrary service(ServiceFile());
  InitiatorLibrary initiator(InitiatorFile());
  ULONG bytes = 0;
  ULONG sessions = 0;
  iscsi::UniqueSessionId id{};
  constexpr DWORD kNotRunning = ERROR_SERVICE_NOT_ACTIVE;
  const std::string line = "vssapi.dll: VARNEL_SIMULATED_HOST is not set; it names the host file\n";
  EXPECT_EQ(ReportOf([&] { EXPECT_EQ(initiator.GetIScsiSessionListW(&bytes, &sessions, nullptr), kNotRunning); }),
            line);
  EXPECT_EQ(ReportOf([&] { EXPECT_EQ(initiator.GetDevicesForIScsiSessionW(&id, &sessions, nullptr), kNotRunning); }),
            line);
  EXPECT_EQ(ReportOf([&] { EXPECT_EQ(initiator.LogoutIScsiTarget(&id), kNotRunning); }), line);
}

TEST_F(DropInTest, AnInitiatorWithoutAServiceBesideItTakesTheOneThatTheProcessHas) {
  std::filesystem::remove(ServiceFile());
  InitiatorLibrary initiator(InitiatorFile());
  EXPECT_EQ(SessionsOf(initiator).size(), 1u);
}

TEST_F(DropInTest, InAProcessWithoutAServiceTheInitiatorLoadsTheOneBesideIt) {
  const std::filesystem::path caller = VARNEL_INITIATOR_CALLER;
  RunProgram(L"\"" + caller.wstring() + L"\" \"" + InitiatorFile().wstring() + L"\"");
  EXPECT_THAT(Calls(), ElementsAre("GetIScsiSessionListW() = error 87"));
}

TEST_F(DropInTest, AServiceWithAMachineHasLoadedTheInitiatorBesideIt) {
  const ServiceLibrary service(ServiceFile());
  EXPECT_EQ(::GetModuleHandleW(InitiatorFile().c_str()), nullptr);
  Backup backup(service);
  EXPECT_NE(::GetModuleHandleW(InitiatorFile().c_str()), nullptr);
}

}  // namespace
}  // namespace varnel::test
