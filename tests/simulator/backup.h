// A backup at the simulated service: the object, what a requestor does with it, and a host for it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/owners.h"
#include "simulator/machine/result_names.h"
#include "simulator/vss/backup_document.h"
#include "simulator/vss/snapshot_service.h"
#include "tests/support/host_fixture.h"
#include "text/guid.h"
#include "text/unicode.h"

namespace varnel::test {

using simulator::BackupDocument;
using simulator::FormatBackupDocument;
using simulator::HostModel;
using simulator::ParseBackupDocument;
using simulator::ResultName;
using simulator::ShadowCopy;
using simulator::WriterEvent;
using testing::Each;
using testing::EndsWith;
using testing::Not;
using testing::SizeIs;

inline constexpr GUID kHardware = ParseGuid<GUID>("{374579ad-285c-49b9-ab8a-950e0e252de2}");
inline constexpr GUID kSoftware = ParseGuid<GUID>("{00000000-0000-0000-0000-00000000050f}");
inline constexpr GUID kSystem = ParseGuid<GUID>("{b5946137-7b9f-4925-af80-51abd60b20d5}");
inline constexpr GUID kFileShare = ParseGuid<GUID>("{89300202-3cec-4981-9171-19f59559e0f2}");

// A context with attributes, whatever enumerations they come from.
template <class... Bits>
inline constexpr LONG Context(Bits... bits) {
  return static_cast<LONG>((static_cast<DWORD>(bits) | ...));
}
inline constexpr LONG kTransportable = Context(VSS_CTX_APP_ROLLBACK, VSS_VOLSNAP_ATTR_TRANSPORTABLE);

MATCHER_P(Gives, expected, ResultName(expected)) {
  *result_listener << ResultName(arg);
  return arg == expected;
}

inline void Expect(HRESULT result, HRESULT expected) {
  EXPECT_THAT(result, Gives(expected));
}

// What a getter gives when it succeeds; texts as text.
template <class Object, class Interface, class Value>
auto Got(Object& object, HRESULT (STDMETHODCALLTYPE Interface::*get)(Value*)) {
  std::conditional_t<std::is_same_v<Value, BSTR>, Bstr, Value> value{};
  if constexpr (std::is_same_v<Value, BSTR>) {
    EXPECT_THAT((object.*get)(value.Put()), Gives(S_OK));
    return std::wstring(value.View());
  } else {
    EXPECT_THAT((object.*get)(&value), Gives(S_OK));
    return value;
  }
}

inline simulator::Provider MakeProvider(const GUID& id, std::wstring name, VSS_PROVIDER_TYPE type) {
  return {id, std::move(name), type, L"1.0"};
}

// Three writers: SQL with two components, a tree whose middle and leaf are not selectable, and one without components.
inline HostModel VssHost() {
  HostModel model = SmallHost();
  model.computerName = L"SQL01";
  model.disks[1].volumes[0].mountPoints.push_back(L"C:\\mnt\\data\\");
  simulator::WriterComponent server = MakeComponent(L"", L"Server", {});
  simulator::WriterComponent store = MakeComponent(L"Server", L"Store", {L"F:\\store"});
  store.selectable = false;
  simulator::WriterComponent log = MakeComponent(L"Server\\Store", L"Log", {L"F:\\log"});
  log.selectable = false;
  simulator::WriterComponent required = MakeComponent(L"Other", L"Required", {L"F:\\other"});
  required.selectable = false;
  model.writers = {
      MakeWriter(L"SqlServerWriter", 0xA,
                 {MakeComponent(L"SQL01", L"sales", {L"E:\\data"}), MakeComponent(L"SQL01", L"crm", {L"F:\\data"})}),
      MakeWriter(L"Tree Writer", 0xB, {server, store, log, required}), MakeWriter(L"Quiet Writer", 0xC, {})};
  return model;
}

inline GUID ClassId(DWORD n) {
  GUID id{};
  id.Data1 = n;
  return id;
}

inline GUID InstanceId(DWORD n) {
  GUID id = ClassId(n);
  id.Data2 = 1;
  return id;
}

// Where a backup stands.
enum class Phase { created, initialized, gathered, setStarted, prepared, snapshotDone, complete, aborted };
inline constexpr Phase kPhases[] = {Phase::created,  Phase::initialized,  Phase::gathered, Phase::setStarted,
                                    Phase::prepared, Phase::snapshotDone, Phase::complete, Phase::aborted};

using Start = HRESULT (STDMETHODCALLTYPE IVssBackupComponents::*)(IVssAsync**);

inline std::wstring Wide(VSS_PWSZ text) {
  return text == nullptr ? L"" : text;
}

// One backup components object and what a requestor does with it.
class Backup {
 public:
  // The usual backup up to a phase: of the SQL writer's "sales" on E:.
  explicit Backup(Phase phase = Phase::created, LONG context = VSS_CTX_BACKUP) {
    EXPECT_THAT(CurrentHost().vss().CreateVssBackupComponents(object_.Put()), Gives(S_OK));
    AdvanceTo(phase, context);
  }

  IVssBackupComponents* operator->() const { return object_.Get(); }
  IVssBackupComponents& operator*() const { return *object_; }
  void Release() { object_.Reset(); }
  // The object by a later interface.
  template <class Interface>
  ComPtr<Interface> As() const {
    constexpr bool third = std::is_same_v<Interface, IVssBackupComponentsEx3>;
    ComPtr<Interface> extended;
    EXPECT_THAT(QueryFor(object_.Get(), third ? kIidVssBackupComponentsEx3 : kIidVssBackupComponentsEx2, extended),
                Gives(S_OK));
    return extended;
  }

  // Starts an operation, waits for it and answers its result; a failure to start it as it is.
  HRESULT Run(Start start) {
    ComPtr<IVssAsync> async;
    const HRESULT started = ((*object_).*start)(async.Put());
    return FAILED(started) ? started : ResultOf(*async);
  }
  static HRESULT ResultOf(IVssAsync& async) {
    HRESULT result = E_UNEXPECTED;
    EXPECT_THAT(async.Wait(INFINITE), Gives(S_OK));
    EXPECT_THAT(async.QueryStatus(&result, nullptr), Gives(S_OK));
    return result;
  }

  Backup& Initialize(LONG context = VSS_CTX_BACKUP) {
    EXPECT_THAT(object_->InitializeForBackup(nullptr), Gives(S_OK));
    if (context != VSS_CTX_BACKUP) Expect(object_->SetContext(context), S_OK);
    return *this;
  }
  Backup& Gather() {
    EXPECT_THAT(Run(&IVssBackupComponents::GatherWriterMetadata), Gives(VSS_S_ASYNC_FINISHED));
    return *this;
  }
  HRESULT Add(DWORD writer, LPCWSTR path, LPCWSTR name) {
    return object_->AddComponent(InstanceId(writer), ClassId(writer), VSS_CT_FILEGROUP, path, name);
  }
  HRESULT Mark(DWORD writer, LPCWSTR path, LPCWSTR name, bool succeeded = true) {
    return object_->SetBackupSucceeded(InstanceId(writer), ClassId(writer), VSS_CT_FILEGROUP, path, name, succeeded);
  }
  Backup& StartSet(bool selectComponents = true) {
    EXPECT_THAT(object_->SetBackupState(selectComponents, true, VSS_BT_FULL, false), Gives(S_OK));
    EXPECT_THAT(object_->StartSnapshotSet(&setId), Gives(S_OK));
    return *this;
  }
  HRESULT AddVolume(const wchar_t* volume, const GUID& provider = GUID{}) {
    std::wstring name(volume);
    GUID id{};
    const HRESULT result = object_->AddToSnapshotSet(name.data(), provider, &id);
    if (SUCCEEDED(result)) copyIds.push_back(id);
    return result;
  }
  Backup& Prepare() {
    EXPECT_THAT(Run(&IVssBackupComponents::PrepareForBackup), Gives(VSS_S_ASYNC_FINISHED));
    return *this;
  }
  Backup& Take() {
    Prepare();
    EXPECT_THAT(Snapshot(), Gives(VSS_S_ASYNC_FINISHED));
    return *this;
  }
  // Takes the copies of E: and F:, in this order, from the start.
  Backup& TakeBoth(LONG context = VSS_CTX_APP_ROLLBACK) {
    AdvanceTo(Phase::setStarted, context);
    EXPECT_THAT(AddVolume(L"F:\\"), Gives(S_OK));
    return Take();
  }
  HRESULT Snapshot() { return Run(&IVssBackupComponents::DoSnapshotSet); }
  HRESULT Complete() { return Run(&IVssBackupComponents::BackupComplete); }

  HRESULT PropertiesOf(const GUID& id) {
    SnapshotProperties properties;
    return object_->GetSnapshotProperties(id, properties.Put());
  }
  HRESULT Delete(const GUID& id, VSS_OBJECT_TYPE type, LONG* deleted = nullptr) {
    LONG count = 0;
    GUID left{};
    const HRESULT result = object_->DeleteSnapshots(id, type, TRUE, &count, &left);
    if (deleted != nullptr) *deleted = count;
    return result;
  }
  std::wstring Document() {
    Bstr xml;
    EXPECT_THAT(object_->SaveAsXML(xml.Put()), Gives(S_OK));
    return std::wstring(xml.View());
  }

  struct Status {
    std::wstring name;
    VSS_WRITER_STATE state = VSS_WS_UNKNOWN;
    HRESULT failure = E_UNEXPECTED;
    HRESULT applicationResult = E_UNEXPECTED;
    std::optional<std::wstring> applicationMessage;
  };
  // The status of every writer; frees it again.
  std::vector<Status> Statuses() {
    EXPECT_THAT(Run(&IVssBackupComponents::GatherWriterStatus), Gives(VSS_S_ASYNC_FINISHED));
    const auto extended = As<IVssBackupComponentsEx3>();
    UINT count = 0;
    EXPECT_THAT(object_->GetWriterStatusCount(&count), Gives(S_OK));
    std::vector<Status> statuses(count);
    for (UINT i = 0; i < count; ++i) Read(*extended, i, statuses[i]);
    EXPECT_THAT(object_->FreeWriterStatus(), Gives(S_OK));
    return statuses;
  }
  std::vector<VSS_WRITER_STATE> States() {
    std::vector<VSS_WRITER_STATE> states;
    for (const Status& status : Statuses()) states.push_back(status.state);
    return states;
  }

  GUID setId{};
  std::vector<GUID> copyIds;

 private:
  void AdvanceTo(Phase phase, LONG context) {
    if (phase >= Phase::initialized) Initialize(context);
    if (phase >= Phase::gathered) Gather();
    if (phase >= Phase::setStarted) {
      EXPECT_THAT(Add(0xA, L"SQL01", L"sales"), Gives(S_OK));
      StartSet();
      EXPECT_THAT(AddVolume(L"E:\\"), Gives(S_OK));
    }
    if (phase >= Phase::prepared) Prepare();
    if (phase >= Phase::snapshotDone) Expect(Snapshot(), VSS_S_ASYNC_FINISHED);
    if (phase == Phase::complete) Expect(Complete(), VSS_S_ASYNC_FINISHED);
    if (phase == Phase::aborted) Expect(object_->AbortBackup(), S_OK);
  }

  static void Read(IVssBackupComponentsEx3& backup, UINT index, Status& status) {
    GUID instance{};
    GUID writer{};
    Bstr name;
    Bstr message;
    EXPECT_THAT(backup.GetWriterStatusEx(index, &instance, &writer, name.Put(), &status.state, &status.failure,
                                         &status.applicationResult, message.Put()),
                Gives(S_OK));
    status.name = name.View();
    if (message) status.applicationMessage = message.View();
  }

  ComPtr<IVssBackupComponents> object_;
};

class ShadowCopyService : public HostFixture {
 protected:
  void SetUp() override { Install(VssHost()); }

  simulator::SnapshotService& service() { return *host().machine().snapshots; }
  std::vector<const ShadowCopy*> Copies() { return service().SurfacedCopies(); }

  // Who was told of `event`; nothing stands for Abort.
  std::vector<std::wstring> Told(std::optional<WriterEvent> event) {
    std::vector<std::wstring> names;
    for (const simulator::RaisedEvent& raised : service().raisedEvents) {
      if (raised.event == event) names.push_back(raised.writer);
    }
    return names;
  }

  void FailWriter(WriterEvent event, HRESULT failure, std::vector<simulator::ComponentFault> components = {}) {
    host().faults().FailWriter({L"SqlServerWriter", event, failure, 0x40, L"log full", std::move(components)});
  }
};

inline Bstr LoadableDocument() {
  return Bstr(L"<BACKUP_COMPONENTS xmlns=\"x-schema:#VssComponentMetadata\" version=\"1.2\" backupType=\"full\"/>");
}

inline HostModel HostWithProviders(std::vector<simulator::Provider> providers) {
  HostModel model = VssHost();
  model.providers = std::move(providers);
  return model;
}

inline const simulator::Provider kHardwareProvider = MakeProvider(kHardware, L"Array", VSS_PROV_HARDWARE);
inline const simulator::Provider kSoftwareProvider = MakeProvider(kSoftware, L"Soft", VSS_PROV_SOFTWARE);
inline const simulator::Provider kSystemProvider = MakeProvider(kSystem, L"System", VSS_PROV_SYSTEM);
inline const simulator::Provider kFileShareProvider = MakeProvider(kFileShare, L"Share", VSS_PROV_FILESHARE);

// The components of the only writer of the document.
inline ComPtr<IVssComponentEx2> AddedComponent(Backup& backup, UINT index) {
  ComPtr<IVssWriterComponentsExt> writer;
  EXPECT_THAT(backup->GetWriterComponents(0, writer.Put()), Gives(S_OK));
  ComPtr<IVssComponent> component;
  EXPECT_THAT(writer->GetComponent(index, component.Put()), Gives(S_OK));
  ComPtr<IVssComponentEx2> extended;
  EXPECT_THAT(QueryFor(component.Get(), kIidVssComponentEx2, extended), Gives(S_OK));
  return extended;
}

}  // namespace varnel::test
