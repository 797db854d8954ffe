// Forwarding hosts and objects pass every call on as it is made: the simulated host's call log is the same line by
// line.
#include "platform/forwarding_vss.h"

#include <array>
#include <set>
#include <utility>

#include "platform/forwarding_host.h"
#include "simulator/machine/call_names.h"
#include "tests/simulator/documented_codes.h"

namespace varnel::test {
namespace {

// The object that a call hands out, wrapped.
template <class Wrapper, class Interface>
HRESULT Wrapped(HRESULT result, Interface** object) {
  if (result == S_OK && *object != nullptr) *object = new Wrapper(ComPtr<Interface>::Attach(*object));
  return result;
}

class WrappedComponent final : public ForwardingComponent {
 public:
  using ForwardingComponent::ForwardingComponent;
  HRESULT STDMETHODCALLTYPE GetFile(UINT index, IVssWMFiledesc** file) override {
    return Wrapped<ForwardingFile>(ForwardingComponent::GetFile(index, file), file);
  }
};

class WrappedMetadata final : public ForwardingMetadata {
 public:
  using ForwardingMetadata::ForwardingMetadata;
  HRESULT STDMETHODCALLTYPE GetComponent(UINT index, IVssWMComponent** component) override {
    return Wrapped<WrappedComponent>(ForwardingMetadata::GetComponent(index, component), component);
  }
};

class WrappedBackup final : public ForwardingBackup {
 public:
  using ForwardingBackup::ForwardingBackup;
  HRESULT STDMETHODCALLTYPE GetWriterMetadata(UINT index, VSS_ID* instance,
                                              IVssExamineWriterMetadata** metadata) override {
    return Wrapped<WrappedMetadata>(ForwardingBackup::GetWriterMetadata(index, instance, metadata), metadata);
  }
  HRESULT STDMETHODCALLTYPE GetWriterComponents(UINT index, IVssWriterComponentsExt** writer) override {
    return Wrapped<ForwardingWriterComponents>(ForwardingBackup::GetWriterComponents(index, writer), writer);
  }
  HRESULT STDMETHODCALLTYPE DoSnapshotSet(IVssAsync** async) override {
    return Wrapped<ForwardingAsync>(ForwardingBackup::DoSnapshotSet(async), async);
  }
};

// Notes the arguments that the call log leaves out.
class NotingBackup final : public ForwardingBackup {
 public:
  NotingBackup(ComPtr<IVssBackupComponents> backup, std::vector<std::wstring>& notes)
      : ForwardingBackup(std::move(backup)), notes_(notes) {}
  HRESULT STDMETHODCALLTYPE SetRangesFilePath(VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR path, LPCWSTR name,
                                              UINT index, LPCWSTR ranges) override {
    return Note(writer, type, path, name, index, ranges);
  }
  HRESULT STDMETHODCALLTYPE RevertToSnapshot(VSS_ID snapshot, BOOL dismount) override {
    return Note(snapshot, dismount);
  }
  HRESULT STDMETHODCALLTYPE QueryRevertStatus(VSS_PWSZ volume, IVssAsync**) override { return Note(volume); }
  HRESULT STDMETHODCALLTYPE SetAuthoritativeRestore(VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR path, LPCWSTR name,
                                                    VssBool authoritative) override {
    return Note(writer, type, path, name, authoritative);
  }
  HRESULT STDMETHODCALLTYPE SetRollForward(VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR path, LPCWSTR name,
                                           VSS_ROLLFORWARD_TYPE how, LPCWSTR point) override {
    return Note(writer, type, path, name, how, point);
  }
  HRESULT STDMETHODCALLTYPE SetRestoreName(VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR path, LPCWSTR name,
                                           LPCWSTR restoreName) override {
    return Note(writer, type, path, name, restoreName);
  }
  HRESULT STDMETHODCALLTYPE PreFastRecovery(VSS_ID set, DWORD flags, IVssAsync**) override { return Note(set, flags); }
  HRESULT STDMETHODCALLTYPE FastRecovery(VSS_ID set, DWORD flags, IVssAsync**) override { return Note(set, flags); }
  HRESULT STDMETHODCALLTYPE AddSnapshotToRecoverySet(VSS_ID snapshot, DWORD flags, VSS_PWSZ volume) override {
    return Note(snapshot, flags, volume);
  }
  HRESULT STDMETHODCALLTYPE RecoverSet(DWORD flags, IVssAsync**) override { return Note(flags); }
  HRESULT STDMETHODCALLTYPE GetRootAndLogicalPrefixPaths(VSS_PWSZ file, VSS_PWSZ*, VSS_PWSZ*, BOOL normalize) override {
    return Note(file, normalize);
  }

 private:
  static std::wstring Text(const GUID& id) { return FormatGuid(id); }
  static std::wstring Text(LPCWSTR text) { return text; }
  template <class Number>
  static std::wstring Text(Number number) requires(std::is_arithmetic_v<Number> || std::is_enum_v<Number>) {
    return std::to_wstring(static_cast<long>(number));
  }
  template <class... Values>
  HRESULT Note(const Values&... values) {
    notes_.push_back((... + (Text(values) + L" ")));
    return S_OK;
  }

  std::vector<std::wstring>& notes_;
};

class WrappingVss final : public ForwardingVss {
 public:
  using ForwardingVss::ForwardingVss;

 private:
  IVssBackupComponents* Wrap(ComPtr<IVssBackupComponents> backup) override {
    return new WrappedBackup(std::move(backup));
  }
};

class WrappingHost final : public ForwardingHost {
 public:
  explicit WrappingHost(Host& inner)
      : ForwardingHost(inner),
        vss_(inner.vss()),
        storage_(inner.storage()),
        iscsi_(inner.iscsi()),
        processes_(inner.processes()),
        registry_(inner.registry()),
        cluster_(inner.cluster()),
        messages_(inner.messages()),
        eventLog_(inner.eventLog()) {}
  VssService& vss() override { return vss_; }
  Storage& storage() override { return storage_; }
  IscsiInitiator& iscsi() override { return iscsi_; }
  Processes& processes() override { return processes_; }
  Registry& registry() override { return registry_; }
  Cluster& cluster() override { return cluster_; }
  Messages& messages() override { return messages_; }
  EventLog& eventLog() override { return eventLog_; }

 private:
  WrappingVss vss_;
  ForwardingStorage storage_;
  ForwardingIscsi iscsi_;
  ForwardingProcesses processes_;
  ForwardingRegistry registry_;
  ForwardingCluster cluster_;
  ForwardingMessages messages_;
  ForwardingEventLog eventLog_;
};

class Forwarding : public HostFixture {
 protected:
  // What `action` answers and calls, once on the host itself and once through wrappers.
  template <class Action>
  void ExpectTheSame(const HostModel& model, Action action) {
    Install(model);
    const auto plain = action();
    const std::vector<std::string> lines = host().calls().lines();
    Install(model);
    WrappingHost wrapping(host());
    const ScopedHost current(wrapping);
    EXPECT_EQ(action(), plain);
    EXPECT_EQ(host().calls().lines(), lines);
    ExpectNothingLive();
    for (const std::string& line : lines) called_.insert(line.substr(0, line.find('(')));
  }
  // The names of the calls of one kind of object that were never made.
  std::vector<std::string> NeverCalled(const std::string& object) const {
    std::vector<std::string> names;
    for (const std::string_view name : simulator::CallNames()) {
      if (name.starts_with(object + "::") && !called_.contains(std::string(name))) names.emplace_back(name);
    }
    return names;
  }

 private:
  std::set<std::string> called_;
};

// Arguments of which each is another one, whatever the call makes of them.
constexpr auto kType = VSS_CT_DATABASE;
constexpr LPCWSTR kPath = L"path";
constexpr LPCWSTR kName = L"name";
const GUID kFirst = ClassId(1);
const GUID kSecond = ClassId(2);

template <class... Interfaces>
using Calls = std::vector<std::function<HRESULT(Interfaces&...)>>;

using Object = IVssBackupComponents;

const Calls<Object> kRestoreCalls = {
    [](Object& b) { return b.SetRestoreState(VSS_RTYPE_BY_COPY); },
    [](Object& b) { return b.SetBackupOptions(kFirst, kType, kPath, kName, L"options"); },
    [](Object& b) { return b.SetSelectedForRestore(kFirst, kType, kPath, kName, true); },
    [](Object& b) { return b.SetRestoreOptions(kFirst, kType, kPath, kName, L"options"); },
    [](Object& b) { return b.SetAdditionalRestores(kFirst, kType, kPath, kName, true); },
    [](Object& b) { return b.SetPreviousBackupStamp(kFirst, kType, kPath, kName, L"stamp"); },
    [](Object& b) { return b.SetFileRestoreStatus(kFirst, kType, kPath, kName, VSS_RS_ALL); },
    [](Object& b) { return b.SetRangesFilePath(kFirst, kType, kPath, kName, 7, L"ranges"); },
    [](Object& b) { return b.AddNewTarget(kFirst, kType, kPath, kName, L"from", L"file", true, L"to"); },
    [](Object& b) {
      return b.AddAlternativeLocationMapping(kFirst, kType, kPath, kName, L"from", L"file", true, L"to");
    },
    [](Object& b) { return b.AddRestoreSubcomponent(kFirst, kType, kPath, kName, L"subpath", L"subname", true); },
    [](Object& b) { return b.PreRestore(ComPtr<IVssAsync>().Put()); },
    [](Object& b) { return b.PostRestore(ComPtr<IVssAsync>().Put()); },
};

const Calls<Object> kExposureCalls = {
    [](Object& b) { return b.ImportSnapshots(ComPtr<IVssAsync>().Put()); },
    [](Object& b) { return b.RevertToSnapshot(kFirst, TRUE); },
    [](Object& b) { return b.QueryRevertStatus(std::wstring(L"E:\\").data(), ComPtr<IVssAsync>().Put()); },
    [](Object& b) {
      VSS_PWSZ exposed = nullptr;
      std::wstring root = L"root";
      std::wstring at = L"X:\\";
      const HRESULT result =
          b.ExposeSnapshot(kFirst, root.data(), VSS_VOLSNAP_ATTR_EXPOSED_LOCALLY, at.data(), &exposed);
      CurrentHost().vss().CoTaskMemFree(exposed);
      return result;
    },
};

const Calls<IVssBackupComponentsEx4> kLaterCalls = {
    [](auto& b) {
      GUID instance{};
      return b.GetWriterMetadataEx(1, &instance, ComPtr<IVssExamineWriterMetadataEx>().Put());
    },
    [](auto& b) { return b.SetSelectedForRestoreEx(kFirst, kType, kPath, kName, true, kSecond); },
    [](auto& b) { return b.UnexposeSnapshot(kFirst); },
    [](auto& b) { return b.SetAuthoritativeRestore(kFirst, kType, kPath, kName, true); },
    [](auto& b) { return b.SetRollForward(kFirst, kType, kPath, kName, VSS_RF_PARTIAL, L"point"); },
    [](auto& b) { return b.SetRestoreName(kFirst, kType, kPath, kName, L"new"); },
    [](auto& b) { return b.BreakSnapshotSetEx(kFirst, 3, ComPtr<IVssAsync>().Put()); },
    [](auto& b) { return b.PreFastRecovery(kFirst, 5, ComPtr<IVssAsync>().Put()); },
    [](auto& b) { return b.FastRecovery(kFirst, 6, ComPtr<IVssAsync>().Put()); },
    [](auto& b) { return b.AddSnapshotToRecoverySet(kFirst, 7, std::wstring(L"X:\\").data()); },
    [](auto& b) { return b.RecoverSet(8, ComPtr<IVssAsync>().Put()); },
    [](auto& b) {
      GUID session{};
      return b.GetSessionId(&session);
    },
    [](auto& b) {
      VSS_PWSZ root = nullptr;
      VSS_PWSZ prefix = nullptr;
      return b.GetRootAndLogicalPrefixPaths(std::wstring(L"X:\\file").data(), &root, &prefix, TRUE);
    },
};

ComPtr<IVssBackupComponentsEx4> LastVersionOf(IVssBackupComponents& backup) {
  ComPtr<IVssBackupComponentsEx4> last;
  EXPECT_THAT(QueryFor(&backup, kIidVssBackupComponentsEx4, last), Gives(S_OK));
  return last;
}

std::vector<HRESULT> MakeLaterCalls() {
  const Backup backup(Phase::gathered);
  const auto later = LastVersionOf(*backup);
  std::vector<HRESULT> results;
  for (const auto& call : kLaterCalls) results.push_back(call(*later));
  return results;
}

std::vector<HRESULT> MakeObjectCalls() {
  Backup backup(Phase::gathered);
  GUID instance{};
  ComPtr<IVssExamineWriterMetadata> metadata;
  ComPtr<IVssWMComponent> component;
  ComPtr<IVssWMFiledesc> file;
  Expect(backup->GetWriterMetadata(0, &instance, metadata.Put()), S_OK);
  Expect(metadata->GetComponent(0, component.Put()), S_OK);
  Expect(component->GetFile(0, file.Put()), S_OK);
  ComPtr<IUnknown> same;
  return {
      metadata->GetIncludeFile(3, ComPtr<IVssWMFiledesc>().Put()),
      metadata->GetAlternateLocationMapping(4, ComPtr<IVssWMFiledesc>().Put()),
      metadata->GetDocument(nullptr),
      component->GetDependency(5, ComPtr<IVssWMDependency>().Put()),
      QueryFor(component.Get(), kIidUnknown, same),
      QueryFor(file.Get(), kIidUnknown, same),
  };
}

// What calls with several answers tell.
std::wstring ReadAnswers() {
  Backup backup(Phase::prepared);
  GUID instance{};
  GUID id{};
  Bstr text;
  Bstr second;
  std::wstring told;
  const auto tell = [&](auto... numbers) { told += (... + (std::to_wstring(static_cast<long>(numbers)) + L" ")); };
  ComPtr<IVssExamineWriterMetadata> metadata;
  Expect(backup->GetWriterMetadata(0, &instance, metadata.Put()), S_OK);
  VSS_USAGE_TYPE usage{};
  VSS_SOURCE_TYPE source{};
  Expect(metadata->GetIdentity(&instance, &id, text.Put(), &usage, &source), S_OK);
  told += FormatGuid(instance) + FormatGuid(id) + std::wstring(text.View());
  UINT included = 0;
  UINT excluded = 0;
  UINT components = 0;
  Expect(metadata->GetFileCounts(&included, &excluded, &components), S_OK);
  tell(usage, source, included, excluded, components);
  VSS_RESTOREMETHOD_ENUM method{};
  VSS_WRITERRESTORE_ENUM restore{};
  VssBool reboot{};
  Expect(metadata->GetRestoreMethod(&method, text.Put(), second.Put(), &restore, &reboot, &included), S_OK);
  tell(method, restore, reboot, included);
  told += std::wstring(text.View()) + L"/" + std::wstring(second.View());
  ComPtr<IVssWriterComponentsExt> writer;
  Expect(backup->GetWriterComponents(0, writer.Put()), S_OK);
  Expect(writer->GetWriterInfo(&instance, &id), S_OK);
  return told + FormatGuid(instance) + FormatGuid(id);
}

std::vector<HRESULT> MakeOtherCalls() {
  Backup backup(Phase::prepared);
  ComPtr<IVssWriterComponentsExt> writer;
  ComPtr<IVssAsync> async;
  ComPtr<IUnknown> same;
  Expect(backup->GetWriterComponents(0, writer.Put()), S_OK);
  Expect(backup->DoSnapshotSet(async.Put()), S_OK);
  return {static_cast<IUnknown*>(writer.Get())->QueryInterface(kIidUnknown, reinterpret_cast<void**>(same.Put())),
          QueryFor(async.Get(), kIidVssAsync, same)};
}

TEST_F(Forwarding, ObjectsOfTheServicePassEveryCallOn) {
  for (const auto& calls : {BackupCalls(), ObjectCalls()}) {
    for (const DocumentedCall& call : calls) {
      for (const Reached& reached : call.byItself) {
        SCOPED_TRACE(call.name + " " + reached.how);
        ExpectTheSame(reached.host(), [&] { return reached.prepare()(); });
      }
    }
  }
  for (const auto& calls : {kRestoreCalls, kExposureCalls}) {
    for (const auto& call : calls) {
      ExpectTheSame(VssHost(), [&] { return call(*Backup(Phase::gathered)); });
    }
  }
  for (const auto make : {MakeLaterCalls, MakeObjectCalls, MakeOtherCalls}) ExpectTheSame(VssHost(), make);
  for (const char* object :
       {"IVssBackupComponents", "IVssBackupComponentsEx", "IVssBackupComponentsEx2", "IVssBackupComponentsEx3",
        "IVssBackupComponentsEx4", "IVssExamineWriterMetadata", "IVssWMComponent", "IVssWMFiledesc",
        "IVssWriterComponents", "IVssWriterComponentsExt", "IVssAsync"}) {
    EXPECT_THAT(NeverCalled(object), IsEmpty());
  }
}

TEST_F(Forwarding, SeveralAnswersComeInTheirPlaces) {
  HostModel model = VssHost();
  model.writers.at(0).excludeFiles = {{L"E:\\tmp", L"*"}};
  model.writers.at(0).usage = VSS_UT_SYSTEMSERVICE;
  ExpectTheSame(model, ReadAnswers);
}

TEST_F(Forwarding, ArgumentsThatTheCallLogLeavesOutArePassedOn) {
  std::vector<std::wstring> plain;
  std::vector<std::wstring> forwarded;
  for (std::vector<std::wstring>* notes : {&plain, &forwarded}) {
    ComPtr<IVssBackupComponents> object;
    Expect(host().vss().CreateVssBackupComponents(object.Put()), S_OK);
    object = ComPtr<IVssBackupComponents>::Attach(new NotingBackup(std::move(object), *notes));
    if (notes == &forwarded) {
      object = ComPtr<IVssBackupComponents>::Attach(new WrappedBackup(std::move(object)));
    }
    for (const auto& calls : {kRestoreCalls, kExposureCalls}) {
      for (const auto& call : calls) call(*object);
    }
    const auto last = LastVersionOf(*object);
    for (const auto& call : kLaterCalls) call(*last);
  }
  EXPECT_THAT(plain, SizeIs(11));
  EXPECT_EQ(forwarded, plain);
}

TEST_F(Forwarding, AnObjectIsItselfWhicheverInterfaceItIsAskedFor) {
  WrappingHost wrapping(host());
  const ScopedHost current(wrapping);
  Backup backup;
  const ComPtr<IVssBackupComponentsEx2> second = backup.As<IVssBackupComponentsEx2>();
  EXPECT_EQ(static_cast<IVssBackupComponents*>(second.Get()), &*backup);
  ComPtr<IUnknown> unknown;
  EXPECT_THAT(QueryFor(second.Get(), kIidUnknown, unknown), Gives(S_OK));
  EXPECT_EQ(unknown.Get(), &*backup);
  EXPECT_EQ(second->AddRef(), 4u);
  EXPECT_EQ(second->Release(), 3u);
}

TEST_F(Forwarding, AnInterfaceThatTheWrappedObjectDoesNotHaveIsRefused) {
  WrappingHost wrapping(host());
  const ScopedHost current(wrapping);
  Backup backup;
  ComPtr<IUnknown> other;
  EXPECT_THAT(QueryFor(&*backup, kIidVssAdmin, other), Gives(E_NOINTERFACE));
  EXPECT_FALSE(other);
  FailCall("IVssBackupComponents::QueryInterface", E_OUTOFMEMORY);
  EXPECT_THAT(QueryFor(&*backup, kIidVssBackupComponentsEx3, other), Gives(E_OUTOFMEMORY));
  EXPECT_FALSE(other);
}

// The one asked for last may be the older one.
TEST_F(Forwarding, AnEarlierVersionLeavesALaterOneUsable) {
  WrappingHost wrapping(host());
  const ScopedHost current(wrapping);
  Backup backup(Phase::gathered);
  const auto third = backup.As<IVssBackupComponentsEx3>();
  const auto second = backup.As<IVssBackupComponentsEx2>();
  GUID session{};
  EXPECT_EQ(third->GetSessionId(&session), third->GetSessionId(&session));
  EXPECT_THAT(Calls("IVssBackupComponentsEx3::GetSessionId"), SizeIs(2));
}

// ---- the host's services ----

// Made with braces, which ask from left to right.
struct Results {
  template <class... Values>
  explicit Results(Values... values) : codes{static_cast<DWORD>(values)...} {}
  friend bool operator==(const Results&, const Results&) = default;

  std::vector<DWORD> codes;
};

Results AskStorage() {
  Storage& storage = CurrentHost().storage();
  std::array<wchar_t, 300> text{};
  const auto room = static_cast<DWORD>(text.size());
  DWORD size = 0;
  const FileHandle disk(storage.CreateFileW(L"\\\\.\\PhysicalDrive1", GENERIC_READ, FILE_SHARE_READ, nullptr,
                                            OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  const HANDLE search = storage.FindFirstVolumeW(text.data(), room);
  return Results{
      disk.Get() == INVALID_HANDLE_VALUE,
      search == INVALID_HANDLE_VALUE,
      storage.DeviceIoControl(disk.Get(), IOCTL_DISK_IS_CLUSTERED, nullptr, 1, text.data(), 7, &size, nullptr),
      storage.FindNextVolumeW(search, text.data(), room),
      storage.FindVolumeClose(search),
      storage.CloseHandle(nullptr),
      storage.GetVolumePathNameW(L"E:\\data\\file", text.data(), room),
      storage.GetVolumeNameForVolumeMountPointW(L"E:\\", text.data(), room),
      storage.GetVolumePathNamesForVolumeNameW(VolumeName(1).c_str(), text.data(), room, &size),
      size};
}

Results AskProcesses() {
  Processes& processes = CurrentHost().processes();
  std::wstring line = L"tool.exe /all";
  std::array<wchar_t, 300> text{};
  STARTUPINFOW startup{};
  PROCESS_INFORMATION process{};
  DWORD code = 0;
  return Results{
      processes.CreateProcessW(L"tool.exe", line.data(), nullptr, nullptr, FALSE, 3, nullptr, L"C:\\", &startup,
                               &process),
      processes.WaitForSingleObject(nullptr, 11), processes.GetExitCodeProcess(nullptr, &code),
      processes.CloseHandle(nullptr),
      processes.SearchPathW(nullptr, L"tool.exe", L".exe", static_cast<DWORD>(text.size()), text.data(), nullptr)};
}

Results AskRegistry() {
  Registry& registry = CurrentHost().registry();
  std::array<wchar_t, 300> text{};
  auto characters = static_cast<DWORD>(text.size());
  DWORD bytes = 12;
  DWORD type = 0;
  RegistryKey key;
  DWORD subKeys = 0;
  return Results{registry.RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Tool", 0, KEY_READ, key.Put()),
                 registry.RegQueryInfoKeyW(key.Get(), nullptr, nullptr, nullptr, &subKeys, nullptr, nullptr, nullptr,
                                           nullptr, nullptr, nullptr, nullptr),
                 subKeys,
                 registry.RegEnumKeyExW(key.Get(), 0, text.data(), &characters, nullptr, nullptr, nullptr, nullptr),
                 registry.RegGetValueW(key.Get(), L"Sub", L"Value", RRF_RT_REG_SZ, &type, text.data(), &bytes),
                 bytes,
                 registry.RegCloseKey(nullptr)};
}

Results AskMessagesAndNetwork() {
  Messages& messages = CurrentHost().messages();
  IscsiInitiator& initiator = CurrentHost().iscsi();
  Cluster& cluster = CurrentHost().cluster();
  LocalText text;
  std::array<wchar_t, 9> room{};
  HMODULE module = nullptr;
  ULONG bytes = 0;
  ULONG count = 0;
  DWORD state = 0;
  iscsi::UniqueSessionId session{1, 2};
  constexpr DWORD kFlags = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM;
  return Results{messages.FormatMessageW(kFlags, nullptr, 5, 0, text.AsBuffer(), 0, nullptr),
                 messages.LoadLibraryW(L"vssmsg.dll") != nullptr,
                 messages.FreeLibrary(nullptr),
                 messages.GetModuleHandleExW(4, L"varnel.dll", &module),
                 messages.LoadStringW(module, 251, room.data(), 9),
                 initiator.GetIScsiSessionListW(&bytes, &count, nullptr),
                 initiator.GetDevicesForIScsiSessionW(&session, &count, nullptr),
                 initiator.LogoutIScsiTarget(&session),
                 cluster.GetNodeClusterState(nullptr, &state),
                 cluster.ClusterIsPathOnSharedVolume(L"E:\\")};
}

Results AskTheEventLog() {
  EventLog& log = CurrentHost().eventLog();
  constexpr wchar_t kQuery[] =
      L"*[System[TimeCreated[@SystemTime>='2026-01-01T00:00:00.000Z' and @SystemTime<='2099-01-01T00:00:00.000Z']]]";
  const EventHandle results(log.EvtQuery(nullptr, L"System", kQuery, EvtQueryChannelPath | EvtQueryReverseDirection));
  std::array<EVT_HANDLE, 2> next{};
  DWORD count = 0;
  DWORD used = 0;
  DWORD properties = 0;
  std::array<wchar_t, 2000> text{};
  const auto bytes = static_cast<DWORD>(sizeof text);
  const BOOL found = log.EvtNext(results.Get(), 2, next.data(), 0, 0, &count);
  const EventHandle event(next[0]);
  const EventHandle publisher(log.EvtOpenPublisherMetadata(nullptr, L"disk", nullptr, 0, 0));
  const BOOL rendered = log.EvtRender(nullptr, event.Get(), EvtRenderEventXml, bytes, text.data(), &used, &properties);
  const auto first = static_cast<DWORD>(std::hash<std::wstring>()(text.data()));
  const BOOL formatted = log.EvtFormatMessage(publisher.Get(), event.Get(), 0, 0, nullptr, EvtFormatMessageEvent,
                                              static_cast<DWORD>(text.size()), text.data(), &used);
  const EventSource source(log.RegisterEventSourceW(nullptr, L"varnel"));
  std::array<LPCWSTR, 1> texts = {L"text"};
  return Results{found,
                 count,
                 rendered,
                 first,
                 formatted,
                 used,
                 static_cast<DWORD>(text[0]),
                 log.ReportEventW(source.Get(), EVENTLOG_ERROR_TYPE, 1, 2, nullptr, 1, 0, texts.data(), nullptr),
                 log.EvtClose(nullptr),
                 log.DeregisterEventSource(nullptr)};
}

Results AskTheHost() {
  Host& host = CurrentHost();
  std::array<wchar_t, 300> text{};
  auto room = static_cast<DWORD>(text.size());
  std::vector<WmiDisk> disks;
  VS_FIXEDFILEINFO version{};
  std::string databases;
  std::string error;
  const HeapBlock block(7);
  host.time().Sleep(17);
  BOOL elevated = FALSE;
  BOOL wow64 = TRUE;
  ULARGE_INTEGER free{};
  SERVICE_STATUS status{};
  const ServiceHandle manager(host.services().OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
  const ServiceHandle service(host.services().OpenServiceW(manager.Get(), L"VSS", SERVICE_QUERY_STATUS));
  return Results{host.system().GetComputerNameW(text.data(), &room),
                 host.wmi().QueryDisks(disks),
                 disks.size(),
                 host.files().GetFileVersion(L"C:\\tool.exe", &version),
                 host.GetLastError(),
                 host.time().GetTickCount64(),
                 host.metadata().FindDatabasesToQuiesce("TSL0001", databases, error),
                 databases.size(),
                 host.security().GetTokenElevation(&elevated),
                 host.security().IsWow64Process(&wow64),
                 host.services().QueryServiceStatus(service.Get(), &status),
                 status.dwCurrentState,
                 host.space().GetDiskFreeSpaceExW(L"E:\\", nullptr, nullptr, &free),
                 free.QuadPart};
}

Results AskTheService() {
  VssService& service = CurrentHost().vss();
  ComPtr<IUnknown> coordinator;
  const Bstr text(L"text");
  service.CoTaskMemFree(nullptr);
  return Results{text.View().size(), service.CoCreateInstance(kClsidVssCoordinator, nullptr, CLSCTX_ALL, kIidVssAdmin,
                                                              reinterpret_cast<void**>(coordinator.Put()))};
}

TEST_F(Forwarding, ServicesPassEveryCallOn) {
  HostModel model = VssHost();
  model.iscsiSessions = {{L"target", {{L"TSL0001", false}}, 0, 0}};
  simulator::LoggedEvent event{L"System", L"disk", 7};
  event.message = L"A message.";
  model.seed = 1;
  model.events = {event};
  for (const auto ask :
       {AskStorage, AskProcesses, AskRegistry, AskMessagesAndNetwork, AskTheEventLog, AskTheHost, AskTheService}) {
    ExpectTheSame(model, ask);
  }
}

}  // namespace
}  // namespace varnel::test
