// The simulated shadow copy service: the order of calls, and every rule that a requestor can break.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "platform/owners.h"
#include "simulator/machine/result_names.h"
#include "simulator/simulated_host.h"
#include "simulator/vss/backup_document.h"
#include "simulator/vss/snapshot_service.h"
#include "simulator/vss/writer_session.h"
#include "tests/support/host_fixture.h"
#include "text/guid.h"
#include "text/unicode.h"

namespace varnel::test {
namespace {

using simulator::BackupDocument;
using simulator::FormatBackupDocument;
using simulator::HostModel;
using simulator::ParseBackupDocument;
using simulator::ResultName;
using simulator::ShadowCopy;
using simulator::WriterEvent;
using testing::EndsWith;
using testing::Not;
using testing::SizeIs;

constexpr GUID kHardware = ParseGuid<GUID>("{374579ad-285c-49b9-ab8a-950e0e252de2}");
constexpr GUID kSoftware = ParseGuid<GUID>("{00000000-0000-0000-0000-00000000050f}");
constexpr GUID kSystem = ParseGuid<GUID>("{b5946137-7b9f-4925-af80-51abd60b20d5}");
constexpr GUID kFileShare = ParseGuid<GUID>("{89300202-3cec-4981-9171-19f59559e0f2}");

// A context with attributes, whatever enumerations they come from.
template <class... Bits>
constexpr LONG Context(Bits... bits) {
  return static_cast<LONG>((static_cast<DWORD>(bits) | ...));
}
constexpr LONG kTransportable = Context(VSS_CTX_APP_ROLLBACK, VSS_VOLSNAP_ATTR_TRANSPORTABLE);

MATCHER_P(Gives, expected, ResultName(expected)) {
  *result_listener << ResultName(arg);
  return arg == expected;
}

void Expect(HRESULT result, HRESULT expected) {
  EXPECT_THAT(result, Gives(expected));
}

simulator::Provider MakeProvider(const GUID& id, std::wstring name, VSS_PROVIDER_TYPE type) {
  return {id, std::move(name), type, L"1.0"};
}

// Three writers: SQL with two components, a tree whose middle and leaf are not selectable, and one without components.
HostModel VssHost() {
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

GUID ClassId(DWORD n) {
  GUID id{};
  id.Data1 = n;
  return id;
}

GUID InstanceId(DWORD n) {
  GUID id = ClassId(n);
  id.Data2 = 1;
  return id;
}

// Where a backup stands.
enum class Phase { created, initialized, gathered, setStarted, prepared, snapshotDone, complete, aborted };
constexpr Phase kPhases[] = {Phase::created,  Phase::initialized,  Phase::gathered, Phase::setStarted,
                             Phase::prepared, Phase::snapshotDone, Phase::complete, Phase::aborted};

using Start = HRESULT (STDMETHODCALLTYPE IVssBackupComponents::*)(IVssAsync**);

std::wstring Wide(VSS_PWSZ text) {
  return text == nullptr ? L"" : text;
}

// One backup components object and what a requestor does with it.
class Backup {
 public:
  Backup() { EXPECT_THAT(CurrentHost().vss().CreateVssBackupComponents(object_.Put()), Gives(S_OK)); }

  IVssBackupComponents* operator->() const { return object_.Get(); }
  IVssBackupComponents& operator*() const { return *object_; }
  void Release() { object_.Reset(); }

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
  HRESULT Snapshot() { return Run(&IVssBackupComponents::DoSnapshotSet); }
  HRESULT Complete() { return Run(&IVssBackupComponents::BackupComplete); }

  // The usual backup of the SQL writer's "sales" on E:, up to a phase.
  Backup& AdvanceTo(Phase phase, LONG context = VSS_CTX_BACKUP) {
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
    return *this;
  }

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
    ComPtr<IVssBackupComponentsEx3> extended;
    EXPECT_THAT(QueryFor(object_.Get(), kIidVssBackupComponentsEx3, extended), Gives(S_OK));
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

// ---------------------------------------------------------------------------------------------------------------------
// Order of calls

struct OrderedCall {
  const char* name;
  std::function<HRESULT(Backup&)> call;
  std::set<Phase> allowed;
};

Bstr LoadableDocument() {
  return Bstr(L"<BACKUP_COMPONENTS xmlns=\"x-schema:#VssComponentMetadata\" version=\"1.2\" backupType=\"full\"/>");
}

HRESULT StartOnly(Backup& backup, Start start) {
  ComPtr<IVssAsync> async;
  return ((*backup).*start)(async.Put());
}

std::vector<OrderedCall> OrderedCalls() {
  using enum Phase;
  const std::set<Phase> afterInitializing = {initialized, gathered, setStarted, prepared, snapshotDone, complete};
  const std::set<Phase> withMetadata = {gathered, setStarted, prepared, snapshotDone, complete};
  const std::set<Phase> withDocument = {prepared, snapshotDone, complete};
  static const GUID kId = ClassId(0xA);
  return {
      {"InitializeForBackup", [](Backup& b) { return b->InitializeForBackup(nullptr); }, {created}},
      {"InitializeForRestore", [](Backup& b) { return b->InitializeForRestore(LoadableDocument().Get()); }, {created}},
      {"SetContext", [](Backup& b) { return b->SetContext(VSS_CTX_APP_ROLLBACK); }, {initialized}},
      {"SetBackupState",
       [](Backup& b) { return b->SetBackupState(true, true, VSS_BT_COPY, false); },
       {initialized, gathered, setStarted}},
      {"EnableWriterClasses", [](Backup& b) { return b->EnableWriterClasses(&kId, 1); }, {initialized}},
      {"DisableWriterClasses", [](Backup& b) { return b->DisableWriterClasses(&kId, 1); }, {initialized}},
      {"DisableWriterInstances", [](Backup& b) { return b->DisableWriterInstances(&kId, 1); }, {initialized}},
      {"GatherWriterMetadata",
       [](Backup& b) { return StartOnly(b, &IVssBackupComponents::GatherWriterMetadata); },
       {initialized}},
      {"GetWriterMetadataCount",
       [](Backup& b) {
         UINT count = 0;
         return b->GetWriterMetadataCount(&count);
       },
       withMetadata},
      {"GetWriterMetadata",
       [](Backup& b) {
         GUID instance{};
         ComPtr<IVssExamineWriterMetadata> metadata;
         return b->GetWriterMetadata(0, &instance, metadata.Put());
       },
       withMetadata},
      {"FreeWriterMetadata",
       [](Backup& b) { return b->FreeWriterMetadata(); },
       {gathered, setStarted, prepared, snapshotDone, complete, aborted}},
      {"AddComponent", [](Backup& b) { return b.Add(0xA, L"SQL01", L"crm"); }, {gathered, setStarted}},
      {"SetBackupOptions",
       [](Backup& b) { return b->SetBackupOptions(kId, VSS_CT_FILEGROUP, L"SQL01", L"sales", L"x"); },
       {initialized, gathered, setStarted}},
      {"AddToSnapshotSet", [](Backup& b) { return b.AddVolume(L"F:\\"); }, {setStarted}},
      {"PrepareForBackup",
       [](Backup& b) { return StartOnly(b, &IVssBackupComponents::PrepareForBackup); },
       {setStarted}},
      {"DoSnapshotSet", [](Backup& b) { return StartOnly(b, &IVssBackupComponents::DoSnapshotSet); }, {prepared}},
      {"GatherWriterStatus",
       [](Backup& b) { return StartOnly(b, &IVssBackupComponents::GatherWriterStatus); },
       {gathered, setStarted, prepared, snapshotDone, complete, aborted}},
      {"GetWriterStatusCount",
       [](Backup& b) {
         UINT count = 0;
         return b->GetWriterStatusCount(&count);
       },
       {}},
      {"FreeWriterStatus", [](Backup& b) { return b->FreeWriterStatus(); }, {}},
      {"SaveAsXML",
       [](Backup& b) {
         Bstr xml;
         return b->SaveAsXML(xml.Put());
       },
       withDocument},
      {"GetWriterComponentsCount",
       [](Backup& b) {
         UINT count = 0;
         return b->GetWriterComponentsCount(&count);
       },
       withDocument},
      {"GetWriterComponents",
       [](Backup& b) {
         ComPtr<IVssWriterComponentsExt> writer;
         return b->GetWriterComponents(0, writer.Put());
       },
       withDocument},
      {"SetBackupSucceeded",
       [](Backup& b) {
         return b->SetBackupSucceeded(InstanceId(0xA), kId, VSS_CT_FILEGROUP, L"SQL01", L"sales", true);
       },
       {snapshotDone}},
      {"BackupComplete", [](Backup& b) { return StartOnly(b, &IVssBackupComponents::BackupComplete); }, {snapshotDone}},
      {"AbortBackup",
       [](Backup& b) { return b->AbortBackup(); },
       {initialized, gathered, setStarted, prepared, snapshotDone, complete, aborted}},
      {"GetSnapshotProperties", [](Backup& b) { return b.PropertiesOf(kId); }, afterInitializing},
      {"DeleteSnapshots", [](Backup& b) { return b.Delete(kId, VSS_OBJECT_SNAPSHOT); }, afterInitializing},
      {"BreakSnapshotSet", [](Backup& b) { return b->BreakSnapshotSet(kId); }, afterInitializing},
      {"Query",
       [](Backup& b) {
         ComPtr<IVssEnumObject> found;
         return b->Query(GUID{}, VSS_OBJECT_NONE, VSS_OBJECT_PROVIDER, found.Put());
       },
       afterInitializing},
      {"IsVolumeSupported",
       [](Backup& b) {
         std::wstring volume = L"E:\\";
         BOOL supported = FALSE;
         return b->IsVolumeSupported(GUID{}, volume.data(), &supported);
       },
       afterInitializing},
      {"ImportSnapshots", [](Backup& b) { return StartOnly(b, &IVssBackupComponents::ImportSnapshots); }, {}},
  };
}

TEST_F(ShadowCopyService, AnswersEveryCallThatIsOutOfOrderWithBadState) {
  for (const OrderedCall& ordered : OrderedCalls()) {
    for (const Phase phase : kPhases) {
      SCOPED_TRACE(testing::Message() << ordered.name << " in phase " << static_cast<int>(phase));
      Install(VssHost());
      Backup backup;
      backup.AdvanceTo(phase);

      const HRESULT result = ordered.call(backup);

      if (ordered.allowed.contains(phase)) {
        EXPECT_THAT(result, Not(Gives(VSS_E_BAD_STATE)));
      } else {
        EXPECT_THAT(result, Gives(VSS_E_BAD_STATE));
      }
      backup.Release();
      EXPECT_EQ(host().live().Describe(), "");
    }
  }
}

TEST_F(ShadowCopyService, StartsOneSetPerObjectAndSaysSoWhileItIsOpen) {
  for (const Phase phase : kPhases) {
    SCOPED_TRACE(testing::Message() << "phase " << static_cast<int>(phase));
    Install(VssHost());
    Backup backup;
    backup.AdvanceTo(phase);
    GUID id{};
    const bool open = phase == Phase::setStarted || phase == Phase::prepared;
    const bool fresh = phase == Phase::initialized || phase == Phase::gathered;
    EXPECT_THAT(backup->StartSnapshotSet(&id),
                Gives(open ? VSS_E_SNAPSHOT_SET_IN_PROGRESS : (fresh ? S_OK : VSS_E_BAD_STATE)));
  }
}

TEST_F(ShadowCopyService, PreparesNothingWithoutBackupStateOrWriters) {
  Backup withoutState;
  withoutState.Initialize().Gather();
  GUID id{};
  ASSERT_THAT(withoutState->StartSnapshotSet(&id), Gives(S_OK));
  EXPECT_THAT(withoutState.Run(&IVssBackupComponents::PrepareForBackup), Gives(VSS_E_BAD_STATE));
  withoutState.Release();

  Backup withoutWriters;
  withoutWriters.Initialize().StartSet();
  EXPECT_THAT(withoutWriters.Run(&IVssBackupComponents::PrepareForBackup), Gives(VSS_E_BAD_STATE));
}

TEST_F(ShadowCopyService, TakesGatheringAndComponentsAlsoAfterTheSetWasStarted) {
  Backup backup;
  backup.Initialize().StartSet().Gather();
  EXPECT_THAT(backup.Add(0xA, L"SQL01", L"sales"), Gives(S_OK));
  backup.Prepare();
  EXPECT_THAT(backup.Snapshot(), Gives(VSS_S_ASYNC_FINISHED));
}

TEST_F(ShadowCopyService, HoldsTheNextCallBackUntilTheOperationWasWaitedForOrReleased) {
  Backup backup;
  backup.Initialize();
  ComPtr<IVssAsync> async;
  ASSERT_THAT(backup->GatherWriterMetadata(async.Put()), Gives(S_OK));
  UINT count = 0;
  GUID id{};
  EXPECT_THAT(backup->GetWriterMetadataCount(&count), Gives(VSS_E_BAD_STATE));
  EXPECT_THAT(backup->StartSnapshotSet(&id), Gives(VSS_E_BAD_STATE));

  EXPECT_THAT(async->Wait(INFINITE), Gives(S_OK));
  EXPECT_THAT(backup->GetWriterMetadataCount(&count), Gives(S_OK));

  ASSERT_THAT(backup->GatherWriterStatus(async.Put()), Gives(S_OK));
  EXPECT_THAT(backup->GetWriterStatusCount(&count), Gives(VSS_E_BAD_STATE));
  async.Reset();
  EXPECT_THAT(backup->GetWriterStatusCount(&count), Gives(S_OK));

  ASSERT_THAT(backup->GatherWriterStatus(async.Put()), Gives(S_OK));
  HRESULT result = S_OK;
  INT reserved = 7;
  EXPECT_THAT(async->QueryStatus(&result, &reserved), Gives(S_OK));
  EXPECT_EQ(reserved, 0);
  EXPECT_THAT(backup->GetWriterStatusCount(&count), Gives(S_OK));
}

TEST_F(ShadowCopyService, AbortsWhileAnOperationIsPending) {
  Backup backup;
  backup.AdvanceTo(Phase::setStarted);
  ComPtr<IVssAsync> async;
  ASSERT_THAT(backup->PrepareForBackup(async.Put()), Gives(S_OK));
  EXPECT_THAT(backup->AbortBackup(), Gives(S_OK));
  EXPECT_THAT(backup->DoSnapshotSet(async.Put()), Gives(VSS_E_BAD_STATE));
}

TEST_F(ShadowCopyService, RefusesNullPointers) {
  Backup backup;
  backup.AdvanceTo(Phase::gathered);
  GUID id{};
  UINT count = 0;
  LONG deleted = 0;
  std::wstring volume = L"E:\\";
  EXPECT_THAT(backup->GatherWriterStatus(nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->GetWriterMetadataCount(nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->GetWriterMetadata(0, &id, nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->GetWriterStatusCount(nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->GetWriterStatus(0, &id, &id, nullptr, nullptr, nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup.Add(0xA, L"SQL01", nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->StartSnapshotSet(nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->AddToSnapshotSet(nullptr, GUID{}, &id), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->AddToSnapshotSet(volume.data(), GUID{}, nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->PrepareForBackup(nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->DoSnapshotSet(nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->BackupComplete(nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->SaveAsXML(nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->GetWriterComponentsCount(nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->GetWriterComponents(0, nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->GetSnapshotProperties(id, nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->Query(GUID{}, VSS_OBJECT_NONE, VSS_OBJECT_SNAPSHOT, nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->IsVolumeSupported(GUID{}, volume.data(), nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->DeleteSnapshots(id, VSS_OBJECT_SNAPSHOT, TRUE, nullptr, &id), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->DeleteSnapshots(id, VSS_OBJECT_SNAPSHOT, TRUE, &deleted, nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->EnableWriterClasses(nullptr, 1), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->QueryInterface(kIidUnknown, nullptr), Gives(E_POINTER));
  EXPECT_THAT(backup->GetWriterMetadataCount(&count), Gives(S_OK));
  EXPECT_THAT(CurrentHost().vss().CreateVssBackupComponents(nullptr), Gives(E_INVALIDARG));
}

TEST_F(ShadowCopyService, AnswersOnlyToItsOwnInterfaces) {
  Backup backup;
  for (const GUID& id : {kIidUnknown, kIidVssBackupComponents, kIidVssBackupComponentsEx, kIidVssBackupComponentsEx2,
                         kIidVssBackupComponentsEx3, kIidVssBackupComponentsEx4}) {
    ComPtr<IUnknown> same;
    EXPECT_THAT(QueryFor(&*backup, id, same), Gives(S_OK));
    EXPECT_EQ(same.Get(), static_cast<IUnknown*>(&*backup));
  }
  ComPtr<IUnknown> other;
  EXPECT_THAT(QueryFor(&*backup, kIidVssComponent, other), Gives(E_NOINTERFACE));
  EXPECT_FALSE(other);
  EXPECT_THAT(host().calls().Of("IVssBackupComponents::QueryInterface"), SizeIs(7));
}

// ---------------------------------------------------------------------------------------------------------------------
// Contexts

TEST_F(ShadowCopyService, TakesTheContextsAndTheAttributesThatARequestorMayAdd) {
  const std::pair<LONG, HRESULT> cases[] = {
      {VSS_CTX_BACKUP, S_OK},
      {VSS_CTX_FILE_SHARE_BACKUP, S_OK},
      {VSS_CTX_NAS_ROLLBACK, S_OK},
      {VSS_CTX_APP_ROLLBACK, S_OK},
      {VSS_CTX_CLIENT_ACCESSIBLE, S_OK},
      {VSS_CTX_CLIENT_ACCESSIBLE_WRITERS, S_OK},
      {Context(VSS_CTX_ALL), S_OK},
      {kTransportable, S_OK},
      {Context(VSS_CTX_BACKUP, VSS_VOLSNAP_ATTR_NO_AUTORECOVERY, VSS_VOLSNAP_ATTR_NOT_TRANSACTED), S_OK},
      {Context(VSS_CTX_BACKUP, VSS_VOLSNAP_ATTR_DIFFERENTIAL), S_OK},
      {Context(VSS_CTX_BACKUP, VSS_VOLSNAP_ATTR_DIFFERENTIAL, VSS_VOLSNAP_ATTR_PLEX), E_INVALIDARG},
      {Context(VSS_CTX_CLIENT_ACCESSIBLE, VSS_VOLSNAP_ATTR_PLEX), E_INVALIDARG},
      {Context(VSS_CTX_CLIENT_ACCESSIBLE_WRITERS, VSS_VOLSNAP_ATTR_TRANSPORTABLE), E_INVALIDARG},
      {VSS_VOLSNAP_ATTR_PERSISTENT, E_INVALIDARG},
      {VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE, E_INVALIDARG},
      {Context(VSS_CTX_BACKUP, VSS_VOLSNAP_ATTR_IMPORTED), E_INVALIDARG},
      {Context(VSS_CTX_BACKUP, 0x40000000), E_INVALIDARG},
  };
  for (const auto& [context, expected] : cases) {
    SCOPED_TRACE(testing::Message() << "context " << context);
    Backup backup;
    backup.Initialize();
    EXPECT_THAT(backup->SetContext(context), Gives(expected));
    EXPECT_THAT(backup->SetContext(VSS_CTX_APP_ROLLBACK), Gives(expected == S_OK ? VSS_E_BAD_STATE : S_OK));
  }
}

TEST_F(ShadowCopyService, FixesTheContextWithTheFirstQuery) {
  Backup backup;
  backup.Initialize();
  ComPtr<IVssEnumObject> found;
  ASSERT_THAT(backup->Query(GUID{}, VSS_OBJECT_NONE, VSS_OBJECT_SNAPSHOT, found.Put()), Gives(S_OK));
  EXPECT_THAT(backup->SetContext(VSS_CTX_APP_ROLLBACK), Gives(VSS_E_BAD_STATE));
}

TEST_F(ShadowCopyService, MakesNoSetInTheContextOfAll) {
  Backup backup;
  backup.Initialize(Context(VSS_CTX_ALL));
  GUID id{};
  EXPECT_THAT(backup->StartSnapshotSet(&id), Gives(VSS_E_UNSUPPORTED_CONTEXT));
}

TEST_F(ShadowCopyService, LeavesTheWritersOutInContextsWithoutWriters) {
  Backup backup;
  backup.Initialize(VSS_CTX_NAS_ROLLBACK).Gather();
  EXPECT_THAT(backup.Add(0xA, L"SQL01", L"sales"), Gives(VSS_E_BAD_STATE));
  backup.StartSet();
  EXPECT_THAT(backup.Snapshot(), Gives(VSS_E_BAD_STATE)) << "an empty set has nothing to copy";
  ASSERT_THAT(backup.AddVolume(L"E:\\"), Gives(S_OK));
  EXPECT_THAT(backup.Run(&IVssBackupComponents::PrepareForBackup), Gives(VSS_E_BAD_STATE));
  EXPECT_THAT(backup.Snapshot(), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_THAT(backup.Complete(), Gives(VSS_E_BAD_STATE));
  EXPECT_THAT(Copies(), SizeIs(1));
  EXPECT_THAT(Told(WriterEvent::freeze), IsEmpty());
}

// ---------------------------------------------------------------------------------------------------------------------
// Writer metadata

TEST_F(ShadowCopyService, ListsTheWritersThatAnswerIdentify) {
  FailWriter(WriterEvent::identify, VSS_E_WRITERERROR_NONRETRYABLE);
  Backup backup;
  backup.AdvanceTo(Phase::gathered);
  UINT count = 0;
  EXPECT_THAT(backup->GetWriterMetadataCount(&count), Gives(S_OK));
  EXPECT_EQ(count, 2U);
  EXPECT_THAT(backup.Add(0xA, L"SQL01", L"sales"), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(backup.Statuses(), SizeIs(2));
  GUID instance{};
  ComPtr<IVssExamineWriterMetadata> metadata;
  EXPECT_THAT(backup->GetWriterMetadata(2, &instance, metadata.Put()), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_FALSE(metadata);
}

TEST_F(ShadowCopyService, KeepsEnabledWritersFirstAndThenDropsDisabledOnes) {
  Backup backup;
  backup.Initialize();
  const GUID enabled[] = {ClassId(0xA), ClassId(0xB), ClassId(0xC)};
  const GUID disabledClass = ClassId(0xB);
  const GUID disabledInstance = InstanceId(0xC);
  ASSERT_THAT(backup->DisableWriterClasses(&disabledClass, 1), Gives(S_OK));
  ASSERT_THAT(backup->EnableWriterClasses(enabled, 3), Gives(S_OK));
  ASSERT_THAT(backup->DisableWriterInstances(&disabledInstance, 1), Gives(S_OK));
  backup.Gather();
  UINT count = 0;
  ASSERT_THAT(backup->GetWriterMetadataCount(&count), Gives(S_OK));
  ASSERT_EQ(count, 1U);
  GUID instance{};
  ComPtr<IVssExamineWriterMetadata> metadata;
  ASSERT_THAT(backup->GetWriterMetadata(0, &instance, metadata.Put()), Gives(S_OK));
  EXPECT_EQ(instance, InstanceId(0xA));
}

TEST_F(ShadowCopyService, ForgetsMetadataThatWasFreedButKeepsWhatIsReferenced) {
  Backup backup;
  backup.AdvanceTo(Phase::gathered);
  GUID instance{};
  ComPtr<IVssExamineWriterMetadata> metadata;
  ASSERT_THAT(backup->GetWriterMetadata(0, &instance, metadata.Put()), Gives(S_OK));
  ASSERT_THAT(backup->FreeWriterMetadata(), Gives(S_OK));
  UINT count = 0;
  EXPECT_THAT(backup->GetWriterMetadataCount(&count), Gives(VSS_E_BAD_STATE));
  EXPECT_THAT(backup->FreeWriterMetadata(), Gives(VSS_E_BAD_STATE));
  EXPECT_THAT(backup.Add(0xA, L"SQL01", L"sales"), Gives(S_OK));
  host().model().writers.clear();
  backup.Release();
  Bstr name;
  GUID writer{};
  VSS_USAGE_TYPE usage{};
  VSS_SOURCE_TYPE source{};
  EXPECT_THAT(metadata->GetIdentity(&instance, &writer, name.Put(), &usage, &source), Gives(S_OK));
  EXPECT_EQ(name.View(), L"SqlServerWriter");
}

// The metadata of one writer of a host that has just this one.
class WriterMetadata : public ShadowCopyService {
 protected:
  ComPtr<IVssExamineWriterMetadataEx2> Examine(simulator::Writer writer) {
    HostModel model = SmallHost();
    model.writers = {std::move(writer)};
    Install(std::move(model));
    Backup backup;
    backup.AdvanceTo(Phase::gathered);
    GUID instance{};
    ComPtr<IVssExamineWriterMetadata> metadata;
    EXPECT_THAT(backup->GetWriterMetadata(0, &instance, metadata.Put()), Gives(S_OK));
    ComPtr<IVssExamineWriterMetadataEx2> extended;
    EXPECT_THAT(QueryFor(metadata.Get(), kIidVssExamineWriterMetadataEx2, extended), Gives(S_OK));
    return extended;
  }

  static ComPtr<IVssWMComponent> ComponentOf(IVssExamineWriterMetadata& metadata, UINT index = 0) {
    ComPtr<IVssWMComponent> component;
    EXPECT_THAT(metadata.GetComponent(index, component.Put()), Gives(S_OK));
    return component;
  }
};

TEST_F(WriterMetadata, TellsTheIdentityInFull) {
  simulator::Writer writer = MakeWriter(L"SqlServerWriter", 0xA, {});
  writer.instanceName = L"SQL:SQLWriter";
  writer.source = VSS_ST_TRANSACTEDDB;
  writer.majorVersion = 2;
  writer.minorVersion = 3;
  writer.backupSchema = 0x371;
  const ComPtr<IVssExamineWriterMetadataEx2> metadata = Examine(writer);
  GUID instance{};
  GUID id{};
  Bstr name;
  Bstr instanceName;
  VSS_USAGE_TYPE usage{};
  VSS_SOURCE_TYPE source{};
  EXPECT_THAT(metadata->GetIdentityEx(&instance, &id, name.Put(), instanceName.Put(), &usage, &source), Gives(S_OK));
  EXPECT_EQ(instance, InstanceId(0xA));
  EXPECT_EQ(id, ClassId(0xA));
  EXPECT_EQ(name.View(), L"SqlServerWriter");
  EXPECT_EQ(instanceName.View(), L"SQL:SQLWriter");
  EXPECT_EQ(usage, VSS_UT_USERDATA);
  EXPECT_EQ(source, VSS_ST_TRANSACTEDDB);
  DWORD major = 0;
  DWORD minor = 0;
  DWORD schema = 0;
  EXPECT_THAT(metadata->GetVersion(&major, &minor), Gives(S_OK));
  EXPECT_THAT(metadata->GetBackupSchema(&schema), Gives(S_OK));
  EXPECT_EQ(major, 2U);
  EXPECT_EQ(minor, 3U);
  EXPECT_EQ(schema, 0x371U);
}

TEST_F(WriterMetadata, CountsFilesAndRefusesIndexesBehindThem) {
  simulator::Writer writer = MakeWriter(L"W", 1, {MakeComponent(L"p", L"c", {L"E:\\a", L"E:\\b"})});
  writer.excludeFiles = {{L"E:\\tmp", L"*", true}};
  writer.excludeFilesFromSnapshot = {{L"E:\\cache", L"*", false}};
  const ComPtr<IVssExamineWriterMetadataEx2> metadata = Examine(writer);
  UINT include = 9;
  UINT exclude = 0;
  UINT components = 0;
  UINT fromSnapshot = 0;
  EXPECT_THAT(metadata->GetFileCounts(&include, &exclude, &components), Gives(S_OK));
  EXPECT_THAT(metadata->GetExcludeFromSnapshotCount(&fromSnapshot), Gives(S_OK));
  EXPECT_EQ(include, 0U);
  EXPECT_EQ(exclude, 1U);
  EXPECT_EQ(components, 1U);
  EXPECT_EQ(fromSnapshot, 1U);

  ComPtr<IVssWMFiledesc> file;
  ComPtr<IVssWMComponent> component;
  ComPtr<IVssWMDependency> dependency;
  EXPECT_THAT(metadata->GetExcludeFile(0, file.Put()), Gives(S_OK));
  EXPECT_THAT(metadata->GetExcludeFromSnapshotFile(0, file.Put()), Gives(S_OK));
  EXPECT_THAT(metadata->GetExcludeFile(1, file.Put()), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(metadata->GetExcludeFromSnapshotFile(1, file.Put()), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(metadata->GetIncludeFile(0, file.Put()), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(metadata->GetAlternateLocationMapping(0, file.Put()), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(metadata->GetComponent(1, component.Put()), Gives(VSS_E_OBJECT_NOT_FOUND));
  component = ComponentOf(*metadata);
  EXPECT_THAT(component->GetFile(1, file.Put()), Gives(S_OK));
  EXPECT_THAT(component->GetFile(2, file.Put()), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(component->GetDatabaseFile(0, file.Put()), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(component->GetDependency(0, dependency.Put()), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_FALSE(file);
}

TEST_F(WriterMetadata, ToldOfAFileGivesPathSpecAndAlternateLocation) {
  simulator::WriterComponent component = MakeComponent(L"", L"c", {});
  component.files = {{L"E:\\a", L"*.mdf", true, L"F:\\alt", 0x101}, {L"E:\\b", L"x", false}};
  const ComPtr<IVssExamineWriterMetadataEx2> metadata = Examine(MakeWriter(L"W", 1, {component}));
  const ComPtr<IVssWMComponent> examined = ComponentOf(*metadata);
  ComPtr<IVssWMFiledesc> file;
  ASSERT_THAT(examined->GetFile(0, file.Put()), Gives(S_OK));
  Bstr path;
  Bstr spec;
  Bstr alternate;
  VssBool recursive = false;
  DWORD mask = 0;
  EXPECT_THAT(file->GetPath(path.Put()), Gives(S_OK));
  EXPECT_THAT(file->GetFilespec(spec.Put()), Gives(S_OK));
  EXPECT_THAT(file->GetRecursive(&recursive), Gives(S_OK));
  EXPECT_THAT(file->GetAlternateLocation(alternate.Put()), Gives(S_OK));
  EXPECT_THAT(file->GetBackupTypeMask(&mask), Gives(S_OK));
  EXPECT_EQ(path.View(), L"E:\\a");
  EXPECT_EQ(spec.View(), L"*.mdf");
  EXPECT_TRUE(recursive);
  EXPECT_EQ(alternate.View(), L"F:\\alt");
  EXPECT_EQ(mask, 0x101U);
  ASSERT_THAT(examined->GetFile(1, file.Put()), Gives(S_OK));
  EXPECT_THAT(file->GetAlternateLocation(alternate.Put()), Gives(S_FALSE));
  EXPECT_FALSE(alternate);
  EXPECT_THAT(file->GetPath(nullptr), Gives(E_INVALIDARG));
}

TEST_F(WriterMetadata, DistinguishesAMissingTextFromAnEmptyOne) {
  simulator::WriterComponent none = MakeComponent(L"", L"none", {});
  none.caption.reset();
  simulator::WriterComponent empty = none;
  empty.name = L"empty";
  empty.logicalPath = L"";
  empty.caption = L"";
  const ComPtr<IVssExamineWriterMetadataEx2> metadata = Examine(MakeWriter(L"W", 1, {none, empty}));
  for (UINT i = 0; i < 2; ++i) {
    const ComPtr<IVssWMComponent> component = ComponentOf(*metadata, i);
    PVSSCOMPONENTINFO info = nullptr;
    ASSERT_THAT(component->GetComponentInfo(&info), Gives(S_OK));
    EXPECT_EQ(info->bstrLogicalPath == nullptr, i == 0);
    EXPECT_EQ(info->bstrCaption == nullptr, i == 0);
    EXPECT_NE(info->bstrComponentName, nullptr);
    EXPECT_THAT(component->FreeComponentInfo(info), Gives(S_OK));
  }
}

TEST_F(WriterMetadata, CountsFilesOfDatabasesApartFromThoseOfFileGroups) {
  simulator::WriterComponent database = MakeComponent(L"S", L"d", {L"E:\\ignored"});
  database.type = VSS_CT_DATABASE;
  database.databaseFiles = {{L"E:\\d", L"a"}, {L"E:\\d", L"b"}};
  database.logFiles = {{L"E:\\l", L"c"}};
  database.restoreMetadata = true;
  database.notifyOnBackupComplete = true;
  database.componentFlags = 2;
  const ComPtr<IVssExamineWriterMetadataEx2> metadata = Examine(MakeWriter(L"W", 1, {database}));
  const ComPtr<IVssWMComponent> component = ComponentOf(*metadata);
  PVSSCOMPONENTINFO info = nullptr;
  ASSERT_THAT(component->GetComponentInfo(&info), Gives(S_OK));
  EXPECT_EQ(info->type, VSS_CT_DATABASE);
  EXPECT_EQ(info->cFileCount, 0U);
  EXPECT_EQ(info->cDatabases, 2U);
  EXPECT_EQ(info->cLogFiles, 1U);
  EXPECT_EQ(info->cDependencies, 0U);
  EXPECT_EQ(info->dwComponentFlags, 2U);
  EXPECT_TRUE(info->bRestoreMetadata);
  EXPECT_TRUE(info->bNotifyOnBackupComplete);
  EXPECT_TRUE(info->bSelectable);
  EXPECT_FALSE(info->bSelectableForRestore);
  component->FreeComponentInfo(info);
  ComPtr<IVssWMFiledesc> file;
  EXPECT_THAT(component->GetFile(0, file.Put()), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(component->GetDatabaseFile(1, file.Put()), Gives(S_OK));
  EXPECT_THAT(component->GetDatabaseLogFile(0, file.Put()), Gives(S_OK));
}

TEST_F(WriterMetadata, SaysWhetherThereIsARestoreMethod) {
  VSS_RESTOREMETHOD_ENUM method{};
  VSS_WRITERRESTORE_ENUM writerRestore{};
  Bstr service;
  Bstr procedure;
  VssBool reboot = false;
  UINT mappings = 9;
  simulator::Writer writer = MakeWriter(L"W", 1, {});
  writer.restoreMethod = {VSS_RME_STOP_RESTORE_START, L"svc", L"http://help", VSS_WRE_ALWAYS, true};
  ComPtr<IVssExamineWriterMetadataEx2> metadata = Examine(writer);
  EXPECT_THAT(metadata->GetRestoreMethod(&method, service.Put(), procedure.Put(), &writerRestore, &reboot, &mappings),
              Gives(S_OK));
  EXPECT_EQ(method, VSS_RME_STOP_RESTORE_START);
  EXPECT_EQ(service.View(), L"svc");
  EXPECT_EQ(procedure.View(), L"http://help");
  EXPECT_EQ(writerRestore, VSS_WRE_ALWAYS);
  EXPECT_TRUE(reboot);
  EXPECT_EQ(mappings, 0U);
  service.Reset();
  procedure.Reset();
  metadata.Reset();

  writer.restoreMethod->method = VSS_RME_RESTORE_IF_CAN_REPLACE;
  metadata = Examine(writer);
  EXPECT_THAT(metadata->GetRestoreMethod(&method, service.Put(), procedure.Put(), &writerRestore, &reboot, &mappings),
              Gives(S_OK));
  EXPECT_FALSE(service) << "only methods that stop a service name it";
  procedure.Reset();
  metadata.Reset();

  writer.restoreMethod.reset();
  metadata = Examine(writer);
  EXPECT_THAT(metadata->GetRestoreMethod(&method, service.Put(), procedure.Put(), &writerRestore, &reboot, &mappings),
              Gives(S_FALSE));
  EXPECT_EQ(method, VSS_RME_UNDEFINED);
  EXPECT_FALSE(procedure);
}

TEST_F(WriterMetadata, SavesAndLoadsItsDocument) {
  const ComPtr<IVssExamineWriterMetadataEx2> metadata =
      Examine(MakeWriter(L"W <&> \"1\"", 1, {MakeComponent(L"p", L"c", {L"E:\\a"})}));
  Bstr xml;
  ASSERT_THAT(metadata->SaveAsXML(xml.Put()), Gives(S_OK));
  EXPECT_EQ(xml.View().substr(0, 16), L"<WRITER_METADATA");
  const Bstr rubbish(L"<WRITER_METADATA>");
  EXPECT_THAT(metadata->LoadFromXML(rubbish.Get()), Gives(VSS_E_INVALID_XML_DOCUMENT));
  EXPECT_THAT(metadata->LoadFromXML(nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(metadata->LoadFromXML(xml.Get()), Gives(S_OK));
  Bstr again;
  ASSERT_THAT(metadata->SaveAsXML(again.Put()), Gives(S_OK));
  EXPECT_EQ(xml.View(), again.View());
  IXMLDOMDocument* document = nullptr;
  EXPECT_THAT(metadata->GetDocument(&document), Gives(E_NOTIMPL));
}

TEST_F(WriterMetadata, TakesComponentInformationBackOnceAndOnlyItsOwn) {
  {
    const ComPtr<IVssExamineWriterMetadataEx2> metadata =
        Examine(MakeWriter(L"W", 1, {MakeComponent(L"", L"c", {}), MakeComponent(L"", L"d", {})}));
    const ComPtr<IVssWMComponent> component = ComponentOf(*metadata);
    const ComPtr<IVssWMComponent> other = ComponentOf(*metadata, 1);
    PVSSCOMPONENTINFO info = nullptr;
    ASSERT_THAT(component->GetComponentInfo(&info), Gives(S_OK));
    EXPECT_EQ(host().live().Count("VSS_COMPONENTINFO"), 1);
    EXPECT_THAT(other->FreeComponentInfo(info), Gives(E_INVALIDARG));
    EXPECT_THAT(component->FreeComponentInfo(info), Gives(S_OK));
    EXPECT_THAT(component->FreeComponentInfo(info), Gives(E_INVALIDARG));
    EXPECT_THAT(component->FreeComponentInfo(nullptr), Gives(S_OK));
    EXPECT_EQ(host().live().Count("VSS_COMPONENTINFO"), 0);
    EXPECT_THAT(host().live().misuses(), SizeIs(2));
  }
  Install(SmallHost());
}

// ---------------------------------------------------------------------------------------------------------------------
// Components

TEST_F(ShadowCopyService, AddsOnlyComponentsOfTheMetadata) {
  Backup backup;
  backup.AdvanceTo(Phase::gathered);
  const GUID instance = InstanceId(0xA);
  const GUID writer = ClassId(0xA);
  EXPECT_THAT(backup->AddComponent(instance, writer, VSS_CT_FILEGROUP, L"SQL01", L"unknown"),
              Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(backup->AddComponent(instance, writer, VSS_CT_FILEGROUP, nullptr, L"sales"),
              Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(backup->AddComponent(instance, writer, VSS_CT_DATABASE, L"SQL01", L"sales"),
              Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(backup->AddComponent(writer, writer, VSS_CT_FILEGROUP, L"SQL01", L"sales"),
              Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(backup->AddComponent(instance, ClassId(0xB), VSS_CT_FILEGROUP, L"SQL01", L"sales"),
              Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(backup->AddComponent(instance, writer, VSS_CT_FILEGROUP, L"sql01", L"SALES"), Gives(S_OK));
  EXPECT_THAT(backup->AddComponent(instance, writer, VSS_CT_FILEGROUP, L"SQL01", L"sales"),
              Gives(VSS_E_OBJECT_ALREADY_EXISTS));
}

TEST_F(ShadowCopyService, RefusesComponentsThatASelectableAncestorIncludes) {
  Backup backup;
  backup.AdvanceTo(Phase::gathered);
  EXPECT_THAT(backup.Add(0xB, L"Server", L"Store"), Gives(E_INVALIDARG));
  EXPECT_THAT(backup.Add(0xB, L"Server\\Store", L"Log"), Gives(E_INVALIDARG));
  EXPECT_THAT(backup.Add(0xB, nullptr, L"Server"), Gives(S_OK));
  EXPECT_THAT(backup.Add(0xB, L"", L"Server"), Gives(VSS_E_OBJECT_ALREADY_EXISTS));
  EXPECT_THAT(backup.Add(0xB, L"Other", L"Required"), Gives(S_OK)) << "not selectable, but nothing above it is";
}

TEST_F(ShadowCopyService, FindsEachOfTenThousandComponentsByItsKey) {
  constexpr int kComponents = 10000;
  HostModel model = SmallHost();
  std::vector<simulator::WriterComponent> components;
  for (int i = 0; i < kComponents; ++i) components.push_back(MakeComponent(L"S", L"db" + std::to_wstring(i), {}));
  model.writers = {MakeWriter(L"SqlServerWriter", 0xA, std::move(components))};
  Install(std::move(model));
  host().calls().enabled = false;
  Backup backup;
  backup.Initialize().Gather();
  const auto nameOf = [](int i) { return L"DB" + std::to_wstring(i); };
  int added = 0;
  for (int i = 0; i < kComponents; ++i) added += backup.Add(0xA, L"S", nameOf(i).c_str()) == S_OK;
  backup.StartSet().Prepare();
  ASSERT_THAT(backup.Snapshot(), Gives(VSS_S_ASYNC_FINISHED));
  int succeeded = 0;
  for (int i = 0; i < kComponents; ++i) {
    succeeded += backup->SetBackupSucceeded(InstanceId(0xA), ClassId(0xA), VSS_CT_FILEGROUP, L"S", nameOf(i).c_str(),
                                            true) == S_OK;
  }
  EXPECT_EQ(added, kComponents);
  EXPECT_EQ(succeeded, kComponents);
}

TEST_F(ShadowCopyService, MarksOnlyAddedComponentsAsSucceeded) {
  Backup backup;
  backup.AdvanceTo(Phase::snapshotDone);
  const auto mark = [&](VSS_COMPONENT_TYPE type, LPCWSTR name) {
    return backup->SetBackupSucceeded(InstanceId(0xA), ClassId(0xA), type, L"SQL01", name, true);
  };
  EXPECT_THAT(mark(VSS_CT_FILEGROUP, L"sales"), Gives(S_OK));
  EXPECT_THAT(mark(VSS_CT_FILEGROUP, L"crm"), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(mark(VSS_CT_DATABASE, L"sales"), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(mark(VSS_CT_FILEGROUP, nullptr), Gives(E_INVALIDARG));
}

TEST_F(ShadowCopyService, KeepsOptionsAndStampsOfTheRequestor) {
  Backup backup;
  backup.AdvanceTo(Phase::setStarted);
  EXPECT_THAT(backup->SetBackupOptions(ClassId(0xA), VSS_CT_FILEGROUP, L"SQL01", L"sales", L"fast"), Gives(S_OK));
  EXPECT_THAT(backup->SetPreviousBackupStamp(ClassId(0xA), VSS_CT_FILEGROUP, L"SQL01", L"sales", L"before"),
              Gives(S_OK));
  EXPECT_THAT(backup->SetBackupOptions(ClassId(0xA), VSS_CT_FILEGROUP, L"SQL01", L"crm", L"fast"),
              Gives(VSS_E_OBJECT_NOT_FOUND));
  backup.Prepare();
  const BackupDocument document = ParseBackupDocument(WideToUtf8(backup.Document()));
  EXPECT_EQ(document.writers.at(0).components.at(0).backupOptions, L"fast");
  EXPECT_EQ(document.writers.at(0).components.at(0).previousBackupStamp, L"before");
}

// ---------------------------------------------------------------------------------------------------------------------
// Volumes and providers

TEST_F(ShadowCopyService, FindsAVolumeByDriveMountedFolderAndName) {
  for (const std::wstring& name : {std::wstring(L"e:\\"), std::wstring(L"C:\\MNT\\data\\"), VolumeName(1)}) {
    SCOPED_TRACE(WideToUtf8(name));
    Backup backup;
    backup.AdvanceTo(Phase::gathered).StartSet();
    EXPECT_THAT(backup.AddVolume(name.c_str()), Gives(S_OK));
    for (const std::wstring& other : {std::wstring(L"E:\\"), std::wstring(L"C:\\mnt\\data\\"), VolumeName(1)}) {
      EXPECT_THAT(backup.AddVolume(other.c_str()), Gives(VSS_E_OBJECT_ALREADY_EXISTS));
    }
    EXPECT_THAT(backup.AddVolume(L"F:\\"), Gives(S_OK));
  }
}

TEST_F(ShadowCopyService, RefusesVolumesThatItCannotName) {
  Backup backup;
  backup.AdvanceTo(Phase::gathered).StartSet();
  EXPECT_THAT(backup.AddVolume(L"E:"), Gives(E_INVALIDARG));
  EXPECT_THAT(backup.AddVolume(L""), Gives(E_INVALIDARG));
  EXPECT_THAT(backup.AddVolume(L"X:\\"), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(backup.AddVolume(L"E:\\data\\"), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(backup.AddVolume(L"\\\\server\\share\\"), Gives(VSS_E_OBJECT_NOT_FOUND));
}

TEST_F(ShadowCopyService, TakesSixtyFourVolumesPerSet) {
  HostModel model = VssHost();
  simulator::Disk& disk = model.disks[2];
  disk.volumes.clear();
  const auto folder = [](int i) { return L"C:\\v\\" + std::to_wstring(i) + L"\\"; };
  for (int i = 0; i < 65; ++i) disk.volumes.push_back({VolumeName(100 + i), {folder(i)}, false, L""});
  Install(std::move(model));
  Backup backup;
  backup.AdvanceTo(Phase::gathered).StartSet();
  for (int i = 0; i < 64; ++i) ASSERT_THAT(backup.AddVolume(folder(i).c_str()), Gives(S_OK));
  EXPECT_THAT(backup.AddVolume(folder(64).c_str()), Gives(VSS_E_MAXIMUM_NUMBER_OF_VOLUMES_REACHED));
  backup.Prepare();
  EXPECT_THAT(backup.Snapshot(), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_THAT(Copies(), SizeIs(64));
}

HostModel HostWithProviders(std::vector<simulator::Provider> providers) {
  HostModel model = VssHost();
  model.providers = std::move(providers);
  return model;
}

const simulator::Provider kHardwareProvider = MakeProvider(kHardware, L"Array", VSS_PROV_HARDWARE);
const simulator::Provider kSoftwareProvider = MakeProvider(kSoftware, L"Soft", VSS_PROV_SOFTWARE);
const simulator::Provider kSystemProvider = MakeProvider(kSystem, L"System", VSS_PROV_SYSTEM);
const simulator::Provider kFileShareProvider = MakeProvider(kFileShare, L"Share", VSS_PROV_FILESHARE);

TEST_F(ShadowCopyService, PrefersHardwareThenSoftwareThenSystemProviders) {
  const std::vector<simulator::Provider> all = {kFileShareProvider, kSystemProvider, kSoftwareProvider,
                                                kHardwareProvider};
  for (const GUID& expected : {kHardware, kSoftware, kSystem}) {
    const std::ptrdiff_t count = expected == kHardware ? 4 : (expected == kSoftware ? 3 : 2);
    Install(HostWithProviders({all.begin(), all.begin() + count}));
    Backup backup;
    backup.AdvanceTo(Phase::snapshotDone);
    EXPECT_EQ(Copies().at(0)->providerId, expected);
  }
  Install(HostWithProviders({kFileShareProvider}));
  Backup backup;
  backup.AdvanceTo(Phase::gathered).StartSet();
  EXPECT_THAT(backup.AddVolume(L"E:\\"), Gives(VSS_E_VOLUME_NOT_SUPPORTED));
}

TEST_F(ShadowCopyService, UsesANamedProviderOnlyWhereItSupportsTheVolume) {
  struct Case {
    LONG context;
    GUID provider;
    HRESULT expected;
  };
  const Case cases[] = {
      {VSS_CTX_BACKUP, kHardware, S_OK},
      {VSS_CTX_BACKUP, kSoftware, S_OK},
      {VSS_CTX_BACKUP, kSystem, S_OK},
      {VSS_CTX_BACKUP, kFileShare, VSS_E_VOLUME_NOT_SUPPORTED_BY_PROVIDER},
      {VSS_CTX_BACKUP, ClassId(0x77), VSS_E_PROVIDER_NOT_REGISTERED},
      {kTransportable, kHardware, S_OK},
      {kTransportable, kSoftware, VSS_E_VOLUME_NOT_SUPPORTED_BY_PROVIDER},
      {kTransportable, kSystem, VSS_E_VOLUME_NOT_SUPPORTED_BY_PROVIDER},
      {VSS_CTX_CLIENT_ACCESSIBLE_WRITERS, kHardware, VSS_E_VOLUME_NOT_SUPPORTED_BY_PROVIDER},
      {VSS_CTX_CLIENT_ACCESSIBLE_WRITERS, kSystem, S_OK},
  };
  Install(HostWithProviders({kHardwareProvider, kSoftwareProvider, kSystemProvider, kFileShareProvider}));
  for (const Case& tried : cases) {
    SCOPED_TRACE(testing::Message() << tried.context << " " << WideToUtf8(FormatGuid(tried.provider)));
    Backup backup;
    backup.Initialize(tried.context).Gather().StartSet();
    EXPECT_THAT(backup.AddVolume(L"E:\\", tried.provider), Gives(tried.expected));
    std::wstring volume = L"E:\\";
    BOOL supported = 7;
    const bool unknown = tried.expected == VSS_E_PROVIDER_NOT_REGISTERED;
    EXPECT_THAT(backup->IsVolumeSupported(tried.provider, volume.data(), &supported),
                Gives(unknown ? tried.expected : S_OK));
    EXPECT_EQ(supported, unknown ? 7 : (tried.expected == S_OK ? TRUE : FALSE));
  }
}

TEST_F(ShadowCopyService, AsksForExistingVolumesOnly) {
  Backup backup;
  backup.Initialize();
  BOOL supported = FALSE;
  std::wstring missing = L"X:\\";
  std::wstring bare = L"E:";
  EXPECT_THAT(backup->IsVolumeSupported(GUID{}, missing.data(), &supported), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(backup->IsVolumeSupported(GUID{}, bare.data(), &supported), Gives(E_INVALIDARG));
}

TEST_F(ShadowCopyService, LimitsTheCopiesOfTheSystemProviderPerVolume) {
  Install(HostWithProviders({kSystemProvider}));
  host().calls().enabled = false;
  for (int i = 0; i < 64; ++i) {
    Backup backup;
    backup.AdvanceTo(Phase::snapshotDone, VSS_CTX_CLIENT_ACCESSIBLE_WRITERS);
  }
  Backup backup;
  backup.Initialize(VSS_CTX_CLIENT_ACCESSIBLE_WRITERS).Gather().StartSet();
  EXPECT_THAT(backup.AddVolume(L"E:\\"), Gives(VSS_E_MAXIMUM_NUMBER_OF_SNAPSHOTS_REACHED));
  EXPECT_THAT(backup.AddVolume(L"F:\\"), Gives(S_OK));
}

// ---------------------------------------------------------------------------------------------------------------------
// Snapshot sets and copies

TEST_F(ShadowCopyService, LetsOnlyOneSetBeUnderConstructionOnTheMachine) {
  using Ending = std::function<void(Backup&)>;
  const std::pair<const char*, Ending> endings[] = {
      {"abort", [](Backup& b) { b->AbortBackup(); }},
      {"release", [](Backup& b) { b.Release(); }},
      {"success", [](Backup& b) { b.Prepare().Snapshot(); }},
      {"failure",
       [this](Backup& b) {
         host().faults().FailAsync("DoSnapshotSet", VSS_E_PROVIDER_VETO);
         b.Prepare().Snapshot();
       }},
  };
  for (const auto& [name, end] : endings) {
    SCOPED_TRACE(name);
    Install(VssHost());
    Backup first;
    first.AdvanceTo(Phase::setStarted);
    Backup second;
    second.Initialize().Gather();
    GUID id{};
    EXPECT_THAT(second->StartSnapshotSet(&id), Gives(VSS_E_SNAPSHOT_SET_IN_PROGRESS));
    end(first);
    EXPECT_THAT(second->StartSnapshotSet(&id), Gives(S_OK));
  }
}

TEST_F(ShadowCopyService, SurfacesEachCopyOnADiskOfItsOwn) {
  Backup backup;
  backup.AdvanceTo(Phase::setStarted);
  ASSERT_THAT(backup.AddVolume(L"F:\\"), Gives(S_OK));
  backup.Prepare();
  EXPECT_THAT(Copies(), IsEmpty());
  EXPECT_THAT(backup.PropertiesOf(backup.copyIds.at(0)), Gives(VSS_E_OBJECT_NOT_FOUND));
  host().machine().now = 1000;
  ASSERT_THAT(backup.Snapshot(), Gives(VSS_S_ASYNC_FINISHED));

  const std::vector<const ShadowCopy*> copies = Copies();
  ASSERT_THAT(copies, SizeIs(2));
  EXPECT_EQ(copies[0]->diskNumber, 3U);
  EXPECT_EQ(copies[0]->serial, L"SHADOW-TSL0001");
  EXPECT_EQ(copies[1]->diskNumber, 4U);
  EXPECT_EQ(copies[1]->serial, L"SHADOW-TSL0002");

  SnapshotProperties properties;
  ASSERT_THAT(backup->GetSnapshotProperties(backup.copyIds.at(1), properties.Put()), Gives(S_OK));
  EXPECT_EQ(properties->m_SnapshotId, backup.copyIds.at(1));
  EXPECT_EQ(properties->m_SnapshotSetId, backup.setId);
  EXPECT_EQ(properties->m_lSnapshotsCount, 2);
  EXPECT_EQ(Wide(properties->m_pwszSnapshotDeviceObject), L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy2");
  EXPECT_EQ(Wide(properties->m_pwszOriginalVolumeName), VolumeName(2));
  EXPECT_EQ(Wide(properties->m_pwszOriginatingMachine), L"SQL01");
  EXPECT_EQ(Wide(properties->m_pwszServiceMachine), L"SQL01");
  EXPECT_EQ(properties->m_pwszExposedName, nullptr);
  EXPECT_EQ(properties->m_pwszExposedPath, nullptr);
  EXPECT_EQ(properties->m_ProviderId, kHardware);
  EXPECT_EQ(properties->m_lSnapshotAttributes, Context(VSS_VOLSNAP_ATTR_HARDWARE_ASSISTED, VSS_VOLSNAP_ATTR_IMPORTED));
  EXPECT_EQ(properties->m_tsCreationTimestamp, copies[0]->timestamp);
  EXPECT_EQ(properties->m_eStatus, VSS_SS_CREATED);
}

TEST_F(ShadowCopyService, FreesTheStringsOfPropertiesOnceAndNullsThem) {
  Backup backup;
  backup.AdvanceTo(Phase::snapshotDone);
  VSS_SNAPSHOT_PROP properties{};
  ASSERT_THAT(backup->GetSnapshotProperties(backup.copyIds.at(0), &properties), Gives(S_OK));
  EXPECT_EQ(host().live().Count("task memory"), 4);
  CurrentHost().vss().VssFreeSnapshotProperties(&properties);
  EXPECT_EQ(properties.m_pwszSnapshotDeviceObject, nullptr);
  CurrentHost().vss().VssFreeSnapshotProperties(&properties);
  EXPECT_EQ(host().live().Count("task memory"), 0);
}

TEST_F(ShadowCopyService, CountsDevicesUpAndUsesFreeDiskNumbersAgain) {
  host().model().disks[2].number = 5;
  Backup first;
  first.AdvanceTo(Phase::snapshotDone);
  EXPECT_EQ(Copies().at(0)->diskNumber, 2U);
  first.Release();
  EXPECT_THAT(Copies(), IsEmpty());
  Backup second;
  second.AdvanceTo(Phase::snapshotDone);
  EXPECT_EQ(Copies().at(0)->diskNumber, 2U);
  EXPECT_THAT(WideToUtf8(Copies().at(0)->device), EndsWith("HarddiskVolumeShadowCopy2"));
}

TEST_F(ShadowCopyService, LeavesCopiesOfTheSystemProviderOnTheirDisk) {
  Install(HostWithProviders({kSystemProvider}));
  Backup backup;
  backup.AdvanceTo(Phase::snapshotDone);
  const ShadowCopy& copy = *Copies().at(0);
  EXPECT_FALSE(copy.ownDisk);
  EXPECT_EQ(copy.diskNumber, 1U);
  EXPECT_EQ(copy.serial, L"TSL0001");
  EXPECT_EQ(copy.attributes, 0);
  EXPECT_THAT(backup->BreakSnapshotSet(backup.setId), Gives(VSS_E_PROVIDER_VETO));
  EXPECT_THAT(Copies(), SizeIs(1));
}

TEST_F(ShadowCopyService, FailsTheSetWhenAVolumeVanishedMeanwhile) {
  Backup backup;
  backup.AdvanceTo(Phase::setStarted);
  ASSERT_THAT(backup.AddVolume(L"F:\\"), Gives(S_OK));
  backup.Prepare();
  host().model().disks.pop_back();
  EXPECT_THAT(backup.Snapshot(), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(Copies(), IsEmpty()) << "all or none";
}

TEST_F(ShadowCopyService, AcceptsAnEmptySetWhenWritersTakePart) {
  Backup backup;
  backup.Initialize().Gather().StartSet().Prepare();
  EXPECT_THAT(backup.Snapshot(), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_THAT(Copies(), IsEmpty());
}

TEST_F(ShadowCopyService, ReleasesAutoReleaseCopiesAndKeepsPersistentOnes) {
  Backup released;
  released.AdvanceTo(Phase::complete);
  Backup kept;
  kept.AdvanceTo(Phase::complete, VSS_CTX_APP_ROLLBACK);
  released.Release();
  ASSERT_THAT(Copies(), SizeIs(1));
  EXPECT_EQ(Copies()[0]->attributes,
            Context(VSS_CTX_APP_ROLLBACK, VSS_VOLSNAP_ATTR_HARDWARE_ASSISTED, VSS_VOLSNAP_ATTR_IMPORTED));
  kept.Release();
  EXPECT_THAT(Copies(), SizeIs(1));
}

TEST_F(ShadowCopyService, DeletesACopyOrAWholeSet) {
  Backup backup;
  backup.AdvanceTo(Phase::setStarted, VSS_CTX_APP_ROLLBACK);
  ASSERT_THAT(backup.AddVolume(L"F:\\"), Gives(S_OK));
  backup.Prepare();
  ASSERT_THAT(backup.Snapshot(), Gives(VSS_S_ASYNC_FINISHED));
  LONG deleted = 7;
  EXPECT_THAT(backup.Delete(backup.setId, VSS_OBJECT_PROVIDER, &deleted), Gives(E_INVALIDARG));
  EXPECT_THAT(backup.Delete(backup.setId, VSS_OBJECT_SNAPSHOT, &deleted), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_EQ(deleted, 0);
  EXPECT_THAT(backup.Delete(backup.copyIds.at(0), VSS_OBJECT_SNAPSHOT, &deleted), Gives(S_OK));
  EXPECT_EQ(deleted, 1);
  EXPECT_THAT(backup.PropertiesOf(backup.copyIds.at(0)), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(backup.Delete(backup.setId, VSS_OBJECT_SNAPSHOT_SET, &deleted), Gives(S_OK));
  EXPECT_EQ(deleted, 1);
  EXPECT_THAT(backup.Delete(backup.setId, VSS_OBJECT_SNAPSHOT_SET, &deleted), Gives(VSS_E_OBJECT_NOT_FOUND));
}

TEST_F(ShadowCopyService, StopsDeletingAtTheFirstCopyThatStays) {
  Install(HostWithProviders({kHardwareProvider, kSoftwareProvider}));
  Backup backup;
  backup.AdvanceTo(Phase::setStarted, VSS_CTX_APP_ROLLBACK);
  ASSERT_THAT(backup.AddVolume(L"F:\\", kSoftware), Gives(S_OK));
  backup.Prepare();
  ASSERT_THAT(backup.Snapshot(), Gives(VSS_S_ASYNC_FINISHED));
  host().model().providers.pop_back();
  LONG deleted = 0;
  GUID left{};
  EXPECT_THAT(backup->DeleteSnapshots(backup.setId, VSS_OBJECT_SNAPSHOT_SET, FALSE, &deleted, &left),
              Gives(VSS_E_UNEXPECTED_PROVIDER_ERROR));
  EXPECT_EQ(deleted, 1);
  EXPECT_EQ(left, backup.copyIds.at(1));
}

// The copies of E: and F:, in this order.
void TakeBoth(Backup& backup, LONG context = VSS_CTX_APP_ROLLBACK) {
  backup.AdvanceTo(Phase::setStarted, context);
  ASSERT_THAT(backup.AddVolume(L"F:\\"), Gives(S_OK));
  backup.Prepare();
  ASSERT_THAT(backup.Snapshot(), Gives(VSS_S_ASYNC_FINISHED));
}

TEST_F(ShadowCopyService, DeletesUpToTheCopyThatItsProviderKeeps) {
  for (const bool firstStays : {true, false}) {
    SCOPED_TRACE(firstStays);
    Install(VssHost());
    host().faults().FailDeletion({firstStays ? L"TSL0001" : L"TSL0002", VSS_E_PROVIDER_VETO});
    Backup backup;
    TakeBoth(backup);
    LONG deleted = 7;
    GUID left{};
    EXPECT_THAT(backup->DeleteSnapshots(backup.setId, VSS_OBJECT_SNAPSHOT_SET, TRUE, &deleted, &left),
                Gives(VSS_E_PROVIDER_VETO));
    EXPECT_EQ(deleted, firstStays ? 0 : 1);
    EXPECT_EQ(left, backup.copyIds.at(firstStays ? 0 : 1));
    EXPECT_THAT(Copies(), SizeIs(firstStays ? 2 : 1));
    EXPECT_THAT(backup.PropertiesOf(left), Gives(S_OK));
    EXPECT_THAT(
        host().calls().Of("IVssBackupComponents::DeleteSnapshots"),
        ElementsAre("IVssBackupComponents::DeleteSnapshots(" + WideToUtf8(FormatGuid(backup.setId)) + ", 2, 1 -> " +
                    std::to_string(deleted) + ", not " + WideToUtf8(FormatGuid(left)) + ") = VSS_E_PROVIDER_VETO"));
    EXPECT_THAT(backup.Delete(left, VSS_OBJECT_SNAPSHOT), Gives(VSS_E_PROVIDER_VETO));
    host().faults().Load({});
    EXPECT_THAT(backup.Delete(backup.setId, VSS_OBJECT_SNAPSHOT_SET), Gives(S_OK));
    EXPECT_THAT(Copies(), IsEmpty());
  }
}

TEST_F(ShadowCopyService, KeepsAutoReleaseCopiesUntilTheLastReferenceGoes) {
  Backup backup;
  TakeBoth(backup, VSS_CTX_BACKUP);
  ComPtr<IVssBackupComponentsEx2> extended;
  ASSERT_THAT(QueryFor(&*backup, kIidVssBackupComponentsEx2, extended), Gives(S_OK));
  backup.Release();
  EXPECT_THAT(Copies(), SizeIs(2));
  EXPECT_THAT(Told(WriterEvent::backupShutdown), IsEmpty());
  extended.Reset();
  EXPECT_THAT(Copies(), IsEmpty());
  EXPECT_THAT(Told(WriterEvent::backupShutdown), ElementsAre(L"SqlServerWriter"));
}

TEST_F(ShadowCopyService, ListsABrokenSetNoMore) {
  Backup backup;
  TakeBoth(backup);
  const auto count = [] {
    Backup administrator;
    administrator.Initialize(Context(VSS_CTX_ALL));
    ComPtr<IVssEnumObject> found;
    EXPECT_THAT(administrator->Query(GUID{}, VSS_OBJECT_NONE, VSS_OBJECT_SNAPSHOT, found.Put()), Gives(S_OK));
    ULONG fetched = 0;
    VSS_OBJECT_PROP objects[3] = {};
    EXPECT_THAT(found->Next(3, objects, &fetched), Gives(S_FALSE));
    for (ULONG i = 0; i < fetched; ++i) CurrentHost().vss().VssFreeSnapshotProperties(&objects[i].Obj.Snap);
    return fetched;
  };
  EXPECT_EQ(count(), 2U);
  EXPECT_THAT(backup->BreakSnapshotSet(backup.setId), Gives(S_OK));
  EXPECT_EQ(count(), 0U);
  EXPECT_THAT(service().CopiesOfSet(backup.setId), IsEmpty());
  EXPECT_THAT(Copies(), SizeIs(2)) << "the disks are there";
}

TEST_F(ShadowCopyService, ForgetsABrokenSetWhoseDisksStay) {
  Backup backup;
  backup.AdvanceTo(Phase::snapshotDone);
  EXPECT_THAT(backup->BreakSnapshotSet(ClassId(1)), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(backup->BreakSnapshotSet(backup.setId), Gives(S_OK));
  EXPECT_THAT(backup->BreakSnapshotSet(backup.setId), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(backup.PropertiesOf(backup.copyIds.at(0)), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(backup.Delete(backup.setId, VSS_OBJECT_SNAPSHOT_SET), Gives(VSS_E_OBJECT_NOT_FOUND));
  backup.Release();
  EXPECT_THAT(Copies(), SizeIs(1)) << "an ordinary disk is not released with the session";
}

class BreakingEx : public ShadowCopyService {
 protected:
  HRESULT Break(Backup& backup, DWORD flags) {
    ComPtr<IVssBackupComponentsEx2> extended;
    EXPECT_THAT(QueryFor(&*backup, kIidVssBackupComponentsEx2, extended), Gives(S_OK));
    ComPtr<IVssAsync> async;
    const HRESULT started = extended->BreakSnapshotSetEx(backup.setId, flags, async.Put());
    return FAILED(started) ? started : Backup::ResultOf(*async);
  }
};

TEST_F(BreakingEx, TakesMaskedDisksAway) {
  Backup backup;
  backup.AdvanceTo(Phase::snapshotDone);
  EXPECT_THAT(Break(backup, VSS_BREAKEX_FLAG_MASK_LUNS), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_THAT(Copies(), IsEmpty());
  EXPECT_THAT(Break(backup, VSS_BREAKEX_FLAG_MASK_LUNS), Gives(VSS_E_OBJECT_NOT_FOUND));
}

TEST_F(BreakingEx, RefusesUnknownAndContradictoryFlags) {
  Backup backup;
  backup.AdvanceTo(Phase::snapshotDone);
  EXPECT_THAT(Break(backup, 0x10), Gives(E_INVALIDARG));
  EXPECT_THAT(Break(backup, VSS_BREAKEX_FLAG_REVERT_IDENTITY_ALL | VSS_BREAKEX_FLAG_REVERT_IDENTITY_NONE),
              Gives(E_INVALIDARG));
  EXPECT_THAT(Break(backup, VSS_BREAKEX_FLAG_MAKE_READ_WRITE | VSS_BREAKEX_FLAG_REVERT_IDENTITY_NONE),
              Gives(VSS_S_ASYNC_FINISHED));
}

TEST_F(BreakingEx, RevertsTheIdentityOnlyWhenTheOriginalDiskIsGone) {
  Backup backup;
  backup.AdvanceTo(Phase::snapshotDone);
  EXPECT_THAT(Break(backup, VSS_BREAKEX_FLAG_REVERT_IDENTITY_ALL), Gives(VSS_E_BREAK_REVERT_ID_FAILED));
  EXPECT_EQ(Copies().at(0)->serial, L"SHADOW-TSL0001");
  host().model().disks.erase(host().model().disks.begin() + 1);
  EXPECT_THAT(Break(backup, VSS_BREAKEX_FLAG_REVERT_IDENTITY_ALL), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_EQ(Copies().at(0)->serial, L"TSL0001");
}

TEST_F(BreakingEx, LeavesTheSetAloneWhenTheOperationFails) {
  Backup backup;
  backup.AdvanceTo(Phase::snapshotDone);
  host().faults().FailAsync("BreakSnapshotSetEx", VSS_E_PROVIDER_VETO);
  EXPECT_THAT(Break(backup, VSS_BREAKEX_FLAG_MASK_LUNS), Gives(VSS_E_PROVIDER_VETO));
  EXPECT_THAT(backup.PropertiesOf(backup.copyIds.at(0)), Gives(S_OK));
}

// ---------------------------------------------------------------------------------------------------------------------
// Transportable copies

TEST_F(ShadowCopyService, KeepsTransportableCopiesForImportElsewhere) {
  Backup backup;
  backup.AdvanceTo(Phase::snapshotDone, kTransportable);
  EXPECT_THAT(Copies(), IsEmpty());
  EXPECT_THAT(backup.PropertiesOf(backup.copyIds.at(0)), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(backup->BreakSnapshotSet(backup.setId), Gives(VSS_E_OBJECT_NOT_FOUND));
  const std::wstring document = backup.Document();
  const GUID id = backup.copyIds.at(0);
  backup.Release();

  Install(SmallHost());
  Backup importing;
  const Bstr xml(document);
  ASSERT_THAT(importing->InitializeForBackup(xml.Get()), Gives(S_OK));
  EXPECT_THAT(importing.Run(&IVssBackupComponents::ImportSnapshots), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_THAT(importing.Run(&IVssBackupComponents::ImportSnapshots), Gives(VSS_E_NO_SNAPSHOTS_IMPORTED));
  SnapshotProperties properties;
  ASSERT_THAT(importing->GetSnapshotProperties(id, properties.Put()), Gives(S_OK));
  EXPECT_EQ(Wide(properties->m_pwszOriginatingMachine), L"SQL01");
  EXPECT_EQ(Wide(properties->m_pwszServiceMachine), L"HOST");
  EXPECT_EQ(properties->m_lSnapshotAttributes,
            Context(kTransportable, VSS_VOLSNAP_ATTR_HARDWARE_ASSISTED, VSS_VOLSNAP_ATTR_IMPORTED));
  EXPECT_EQ(Copies().at(0)->serial, L"SHADOW-TSL0001");
}

TEST_F(ShadowCopyService, ImportsOnTheSameMachineAndOnlyWithTheProvider) {
  Backup backup;
  backup.AdvanceTo(Phase::snapshotDone, kTransportable);
  const Bstr xml(backup.Document());
  backup.Release();
  const std::vector<simulator::Provider> providers = std::exchange(host().model().providers, {});
  Backup importing;
  ASSERT_THAT(importing->InitializeForBackup(xml.Get()), Gives(S_OK));
  EXPECT_THAT(importing.Run(&IVssBackupComponents::ImportSnapshots), Gives(VSS_E_PROVIDER_NOT_REGISTERED));
  host().model().providers = providers;
  EXPECT_THAT(importing.Run(&IVssBackupComponents::ImportSnapshots), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_THAT(Copies(), SizeIs(1));
}

// ---------------------------------------------------------------------------------------------------------------------
// Enumeration and administration

TEST_F(ShadowCopyService, ListsCopiesOfItsContextOnly) {
  Backup persistent;
  persistent.AdvanceTo(Phase::complete, VSS_CTX_APP_ROLLBACK);
  const auto count = [](LONG context) {
    Backup backup;
    backup.Initialize(context);
    ComPtr<IVssEnumObject> found;
    EXPECT_THAT(backup->Query(GUID{}, VSS_OBJECT_NONE, VSS_OBJECT_SNAPSHOT, found.Put()), Gives(S_OK));
    ULONG fetched = 9;
    VSS_OBJECT_PROP object{};
    const HRESULT result = found->Next(1, &object, &fetched);
    EXPECT_THAT(result, Gives(fetched == 1 ? S_OK : S_FALSE));
    if (fetched == 1) {
      EXPECT_EQ(object.Type, VSS_OBJECT_SNAPSHOT);
      CurrentHost().vss().VssFreeSnapshotProperties(&object.Obj.Snap);
    }
    return fetched;
  };
  EXPECT_EQ(count(VSS_CTX_BACKUP), 0U);
  EXPECT_EQ(count(VSS_CTX_APP_ROLLBACK), 1U);
  EXPECT_EQ(count(Context(VSS_CTX_ALL)), 1U);
}

TEST_F(ShadowCopyService, QueriesAllObjectsOfOneKindAndNothingElse) {
  Backup backup;
  backup.Initialize();
  ComPtr<IVssEnumObject> found;
  EXPECT_THAT(backup->Query(ClassId(1), VSS_OBJECT_NONE, VSS_OBJECT_SNAPSHOT, found.Put()), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->Query(GUID{}, VSS_OBJECT_SNAPSHOT, VSS_OBJECT_SNAPSHOT, found.Put()), Gives(E_INVALIDARG));
  EXPECT_THAT(backup->Query(GUID{}, VSS_OBJECT_NONE, VSS_OBJECT_SNAPSHOT_SET, found.Put()), Gives(E_INVALIDARG));
  EXPECT_FALSE(found);
}

void FreeProviders(VSS_OBJECT_PROP* objects, ULONG count) {
  for (ULONG i = 0; i < count; ++i) {
    CurrentHost().vss().CoTaskMemFree(objects[i].Obj.Prov.m_pwszProviderName);
    CurrentHost().vss().CoTaskMemFree(objects[i].Obj.Prov.m_pwszProviderVersion);
  }
}

TEST_F(ShadowCopyService, EnumeratesProvidersInPieces) {
  Install(HostWithProviders({kSystemProvider, kHardwareProvider, kSoftwareProvider}));
  ComPtr<IVssAdmin> admin;
  ASSERT_THAT(CurrentHost().vss().CoCreateInstance(kClsidVssCoordinator, nullptr, CLSCTX_ALL, kIidVssAdmin,
                                                   reinterpret_cast<void**>(admin.Put())),
              Gives(S_OK));
  ComPtr<IVssEnumObject> providers;
  ASSERT_THAT(admin->QueryProviders(providers.Put()), Gives(S_OK));
  VSS_OBJECT_PROP objects[4] = {};
  ULONG fetched = 0;
  EXPECT_THAT(providers->Next(2, objects, &fetched), Gives(S_OK));
  ASSERT_EQ(fetched, 2U);
  EXPECT_EQ(objects[1].Type, VSS_OBJECT_PROVIDER);
  EXPECT_EQ(objects[1].Obj.Prov.m_ProviderId, kHardware);
  EXPECT_EQ(Wide(objects[1].Obj.Prov.m_pwszProviderName), L"Array");
  EXPECT_EQ(Wide(objects[1].Obj.Prov.m_pwszProviderVersion), L"1.0");
  EXPECT_EQ(objects[1].Obj.Prov.m_eProviderType, VSS_PROV_HARDWARE);
  FreeProviders(objects, fetched);

  ComPtr<IVssEnumObject> clone;
  EXPECT_THAT(providers->Clone(clone.Put()), Gives(S_OK));
  EXPECT_THAT(clone->Next(4, objects, &fetched), Gives(S_FALSE));
  EXPECT_EQ(fetched, 1U);
  FreeProviders(objects, fetched);
  EXPECT_THAT(clone->Next(1, objects, &fetched), Gives(S_FALSE));
  EXPECT_EQ(fetched, 0U);
  EXPECT_THAT(providers->Skip(1), Gives(S_OK));
  EXPECT_THAT(providers->Skip(1), Gives(S_FALSE));
  EXPECT_THAT(providers->Reset(), Gives(S_OK));
  EXPECT_THAT(providers->Skip(3), Gives(S_OK));
  EXPECT_THAT(providers->Next(1, nullptr, &fetched), Gives(E_POINTER));
  EXPECT_THAT(providers->Clone(nullptr), Gives(E_POINTER));
}

TEST_F(ShadowCopyService, CreatesTheCoordinatorOnlyAsWhatItIs) {
  VssService& vss = CurrentHost().vss();
  ComPtr<IUnknown> object;
  void** const output = reinterpret_cast<void**>(object.Put());
  EXPECT_THAT(vss.CoCreateInstance(ClassId(1), nullptr, CLSCTX_ALL, kIidVssAdmin, output), Gives(REGDB_E_CLASSNOTREG));
  EXPECT_THAT(vss.CoCreateInstance(kClsidVssCoordinator, nullptr, CLSCTX_ALL, kIidVssAsync, output),
              Gives(E_NOINTERFACE));
  EXPECT_THAT(vss.CoCreateInstance(kClsidVssCoordinator, nullptr, CLSCTX_ALL, kIidVssAdmin, nullptr), Gives(E_POINTER));
  EXPECT_FALSE(object);
  EXPECT_THAT(vss.CoCreateInstance(kClsidVssCoordinator, nullptr, CLSCTX_ALL, kIidUnknown, output), Gives(S_OK));
}

// ---------------------------------------------------------------------------------------------------------------------
// Writers

TEST_F(ShadowCopyService, TakesOnlyWritersWithComponentsThroughTheSnapshot) {
  Backup backup;
  backup.AdvanceTo(Phase::prepared);
  EXPECT_THAT(backup.States(), ElementsAre(VSS_WS_STABLE, VSS_WS_STABLE, VSS_WS_STABLE));
  EXPECT_THAT(Told(WriterEvent::prepareBackup), SizeIs(3));
  ASSERT_THAT(backup.Snapshot(), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_THAT(backup.States(), ElementsAre(VSS_WS_WAITING_FOR_BACKUP_COMPLETE, VSS_WS_STABLE, VSS_WS_STABLE));
  ASSERT_THAT(backup.Complete(), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_THAT(backup.States(), ElementsAre(VSS_WS_STABLE, VSS_WS_STABLE, VSS_WS_STABLE));
  backup.Release();
  for (const WriterEvent event :
       {WriterEvent::prepareSnapshot, WriterEvent::freeze, WriterEvent::thaw, WriterEvent::postSnapshot,
        WriterEvent::backupComplete, WriterEvent::backupShutdown}) {
    EXPECT_THAT(Told(event), ElementsAre(L"SqlServerWriter"));
  }
  EXPECT_THAT(Told(std::nullopt), IsEmpty());
}

TEST_F(ShadowCopyService, TakesEveryWriterThroughAVolumeBackup) {
  Backup backup;
  backup.Initialize().Gather().StartSet(false);
  ASSERT_THAT(backup.AddVolume(L"E:\\"), Gives(S_OK));
  backup.Prepare();
  ASSERT_THAT(backup.Snapshot(), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_THAT(backup.States(), testing::Each(VSS_WS_WAITING_FOR_BACKUP_COMPLETE));
}

TEST_F(ShadowCopyService, KeepsAFailedWriterWhereItFailed) {
  struct Case {
    WriterEvent event;
    Phase seenIn;
    VSS_WRITER_STATE state;
    std::size_t aborts;
  };
  const Case cases[] = {
      {WriterEvent::prepareBackup, Phase::prepared, VSS_WS_FAILED_AT_PREPARE_BACKUP, 0},
      {WriterEvent::prepareSnapshot, Phase::snapshotDone, VSS_WS_FAILED_AT_PREPARE_SNAPSHOT, 0},
      {WriterEvent::freeze, Phase::snapshotDone, VSS_WS_FAILED_AT_FREEZE, 1},
      {WriterEvent::thaw, Phase::snapshotDone, VSS_WS_FAILED_AT_THAW, 1},
      {WriterEvent::postSnapshot, Phase::snapshotDone, VSS_WS_FAILED_AT_POST_SNAPSHOT, 0},
      {WriterEvent::backupComplete, Phase::complete, VSS_WS_FAILED_AT_BACKUP_COMPLETE, 0},
  };
  for (const Case& tried : cases) {
    SCOPED_TRACE(testing::Message() << "event " << static_cast<int>(tried.event));
    Install(VssHost());
    FailWriter(tried.event, VSS_E_WRITERERROR_RETRYABLE);
    Backup backup;
    backup.AdvanceTo(tried.seenIn);
    const Backup::Status status = backup.Statuses().at(0);
    EXPECT_EQ(status.name, L"SqlServerWriter");
    EXPECT_EQ(status.state, tried.state);
    EXPECT_THAT(status.failure, Gives(VSS_E_WRITERERROR_RETRYABLE));
    EXPECT_EQ(status.applicationResult, 0x40);
    EXPECT_EQ(status.applicationMessage, L"log full");
    EXPECT_THAT(Told(std::nullopt), SizeIs(tried.aborts));
    if (tried.seenIn == Phase::snapshotDone) Expect(backup.Complete(), VSS_S_ASYNC_FINISHED);
    EXPECT_EQ(backup.Statuses().at(0).state, tried.state);
  }
}

TEST_F(ShadowCopyService, TellsTheOlderStatusCallTheSameFailure) {
  FailWriter(WriterEvent::freeze, VSS_E_WRITERERROR_PARTIAL_FAILURE);
  Backup backup;
  backup.AdvanceTo(Phase::snapshotDone);
  ASSERT_THAT(backup.Run(&IVssBackupComponents::GatherWriterStatus), Gives(VSS_S_ASYNC_FINISHED));
  GUID instance{};
  GUID writer{};
  Bstr name;
  VSS_WRITER_STATE state{};
  HRESULT failure = S_OK;
  EXPECT_THAT(backup->GetWriterStatus(0, &instance, &writer, name.Put(), &state, &failure), Gives(S_OK));
  EXPECT_EQ(instance, InstanceId(0xA));
  EXPECT_EQ(writer, ClassId(0xA));
  EXPECT_THAT(failure, Gives(VSS_E_WRITERERROR_PARTIAL_FAILURE));
  EXPECT_THAT(backup->GetWriterStatus(3, &instance, &writer, name.Put(), &state, &failure),
              Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_FALSE(name);
  EXPECT_THAT(backup->FreeWriterStatus(), Gives(S_OK));
  EXPECT_THAT(backup->FreeWriterStatus(), Gives(VSS_E_BAD_STATE));
  UINT count = 0;
  EXPECT_THAT(backup->GetWriterStatusCount(&count), Gives(VSS_E_BAD_STATE));
}

TEST_F(ShadowCopyService, ReturnsWritersToStableOnAbort) {
  FailWriter(WriterEvent::postSnapshot, VSS_E_WRITERERROR_TIMEOUT);
  Backup backup;
  backup.Initialize().Gather().StartSet(false).Prepare();
  ASSERT_THAT(backup.Snapshot(), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_THAT(backup->AbortBackup(), Gives(S_OK));
  EXPECT_THAT(backup->AbortBackup(), Gives(S_OK));
  EXPECT_THAT(backup.States(), ElementsAre(VSS_WS_FAILED_AT_POST_SNAPSHOT, VSS_WS_STABLE, VSS_WS_STABLE));
  EXPECT_THAT(Told(std::nullopt), SizeIs(3));
}

TEST_F(ShadowCopyService, LeavesTheCopiesOfAnAbortedBackupToTheirRelease) {
  for (const LONG context : {LONG{VSS_CTX_BACKUP}, LONG{VSS_CTX_APP_ROLLBACK}}) {
    Install(VssHost());
    Backup backup;
    backup.AdvanceTo(Phase::snapshotDone, context);
    EXPECT_THAT(backup->AbortBackup(), Gives(S_OK));
    EXPECT_THAT(Told(std::nullopt), ElementsAre(L"SqlServerWriter"));
    EXPECT_THAT(backup.Complete(), Gives(VSS_E_BAD_STATE));
    EXPECT_THAT(backup.Delete(backup.setId, VSS_OBJECT_SNAPSHOT_SET), Gives(VSS_E_BAD_STATE));
    EXPECT_THAT(Copies(), SizeIs(1));
    EXPECT_THAT(Told(WriterEvent::backupComplete), IsEmpty());
    backup.Release();
    EXPECT_THAT(Copies(), SizeIs(context == VSS_CTX_BACKUP ? 0 : 1));
  }
}

TEST_F(ShadowCopyService, AbortsNothingOnceTheBackupIsComplete) {
  Backup backup;
  backup.AdvanceTo(Phase::complete);
  EXPECT_THAT(backup->AbortBackup(), Gives(S_OK));
  EXPECT_THAT(Told(std::nullopt), IsEmpty());
  EXPECT_THAT(backup.PropertiesOf(backup.copyIds.at(0)), Gives(S_OK));
}

TEST_F(ShadowCopyService, RaisesBackupCompleteWhenItIsTriedAgainAfterAFailure) {
  Backup backup;
  backup.AdvanceTo(Phase::snapshotDone);
  host().faults().FailAsync("BackupComplete", VSS_E_UNEXPECTED_WRITER_ERROR);
  EXPECT_THAT(backup.Complete(), Gives(VSS_E_UNEXPECTED_WRITER_ERROR));
  EXPECT_THAT(Told(WriterEvent::backupComplete), IsEmpty());
  EXPECT_THAT(backup.Complete(), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_THAT(Told(WriterEvent::backupComplete), ElementsAre(L"SqlServerWriter"));
  EXPECT_THAT(backup.Complete(), Gives(VSS_E_BAD_STATE));
}

TEST_F(ShadowCopyService, StartsEverySessionWithStableWriters) {
  FailWriter(WriterEvent::freeze, VSS_E_WRITERERROR_TIMEOUT);
  Backup first;
  first.AdvanceTo(Phase::complete);
  Backup second;
  second.AdvanceTo(Phase::gathered);
  EXPECT_THAT(second.States(), testing::Each(VSS_WS_STABLE));
}

// The components of the only writer of the document.
ComPtr<IVssComponentEx2> AddedComponent(Backup& backup, UINT index) {
  ComPtr<IVssWriterComponentsExt> writer;
  EXPECT_THAT(backup->GetWriterComponents(0, writer.Put()), Gives(S_OK));
  ComPtr<IVssComponent> component;
  EXPECT_THAT(writer->GetComponent(index, component.Put()), Gives(S_OK));
  ComPtr<IVssComponentEx2> extended;
  EXPECT_THAT(QueryFor(component.Get(), kIidVssComponentEx2, extended), Gives(S_OK));
  return extended;
}

TEST_F(ShadowCopyService, TellsWhichComponentsAWriterFailed) {
  FailWriter(WriterEvent::postSnapshot, VSS_E_WRITERERROR_PARTIAL_FAILURE,
             {{L"\\sql01\\CRM", VSS_E_WRITERERROR_RETRYABLE, 0x41, L"crm busy"}, {L"\\SQL01\\other", E_FAIL, 0, L""}});
  Backup backup;
  backup.AdvanceTo(Phase::gathered);
  ASSERT_THAT(backup.Add(0xA, L"SQL01", L"sales"), Gives(S_OK));
  ASSERT_THAT(backup.Add(0xA, L"SQL01", L"crm"), Gives(S_OK));
  backup.StartSet().Prepare();
  ASSERT_THAT(backup.Snapshot(), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_THAT(backup.Statuses().at(0).failure, Gives(VSS_E_WRITERERROR_PARTIAL_FAILURE));

  HRESULT failure = E_FAIL;
  HRESULT application = E_FAIL;
  DWORD reserved = 1;
  Bstr message;
  EXPECT_THAT(AddedComponent(backup, 0)->GetFailure(&failure, &application, message.Put(), &reserved), Gives(S_OK));
  EXPECT_THAT(failure, Gives(S_OK));
  EXPECT_FALSE(message);
  const ComPtr<IVssComponentEx2> crm = AddedComponent(backup, 1);
  EXPECT_THAT(crm->GetFailure(&failure, &application, message.Put(), &reserved), Gives(S_OK));
  EXPECT_THAT(failure, Gives(VSS_E_WRITERERROR_RETRYABLE));
  EXPECT_EQ(application, 0x41);
  EXPECT_EQ(message.View(), L"crm busy");
  EXPECT_EQ(reserved, 0U);
  EXPECT_THAT(crm->GetFailure(&failure, &application, message.Put(), nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(crm->SetFailure(S_OK, S_OK, nullptr, 0), Gives(VSS_E_BAD_STATE));

  const BackupDocument document = ParseBackupDocument(WideToUtf8(backup.Document()));
  EXPECT_TRUE(document.writers.at(0).changedByWriter);
  EXPECT_THAT(document.writers.at(0).components.at(1).failure, Gives(VSS_E_WRITERERROR_RETRYABLE));
}

// ---------------------------------------------------------------------------------------------------------------------
// Time and asynchronous results

TEST_F(ShadowCopyService, MovesTheClockWhenTheSnapshotIsWaitedFor) {
  host().model().freezeMilliseconds = 20000;
  host().model().commitMilliseconds = 5000;
  Backup backup;
  backup.AdvanceTo(Phase::prepared);
  ComPtr<IVssAsync> async;
  ASSERT_THAT(backup->DoSnapshotSet(async.Put()), Gives(S_OK));
  HRESULT result = S_OK;
  EXPECT_THAT(async->Wait(24000), Gives(S_OK));
  EXPECT_THAT(async->QueryStatus(&result, nullptr), Gives(S_OK));
  EXPECT_THAT(result, Gives(VSS_S_ASYNC_PENDING));
  EXPECT_THAT(backup.PropertiesOf(backup.copyIds.at(0)), Gives(VSS_E_BAD_STATE));
  EXPECT_THAT(async->Wait(INFINITE), Gives(S_OK));
  EXPECT_THAT(async->QueryStatus(&result, nullptr), Gives(S_OK));
  EXPECT_THAT(result, Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_EQ(host().machine().now, 25000U);
  EXPECT_EQ(host().machine().slept, 0U) << "a wait is no sleep";
  EXPECT_THAT(backup.PropertiesOf(backup.copyIds.at(0)), Gives(S_OK));
}

TEST_F(ShadowCopyService, FailsWritersThatAreFrozenForMoreThanAMinute) {
  host().model().freezeMilliseconds = 60000;
  Backup inTime;
  inTime.AdvanceTo(Phase::snapshotDone);
  EXPECT_EQ(inTime.States().at(0), VSS_WS_WAITING_FOR_BACKUP_COMPLETE);
  inTime.Release();

  host().model().commitMilliseconds = 1;
  Backup late;
  late.AdvanceTo(Phase::snapshotDone);
  EXPECT_EQ(late.Statuses().at(0).state, VSS_WS_FAILED_AT_FREEZE);
  EXPECT_THAT(late.Statuses().at(0).failure, Gives(VSS_E_WRITERERROR_TIMEOUT));
  EXPECT_EQ(late.States().at(1), VSS_WS_STABLE);
  EXPECT_THAT(Copies(), SizeIs(1)) << "a writer's failure is not the set's";
}

TEST_F(ShadowCopyService, ReleasesTheHoldAfterTenSecondsAndFailsTheSet) {
  host().model().commitMilliseconds = 10000;
  Backup inTime;
  inTime.AdvanceTo(Phase::snapshotDone);
  inTime.Release();
  host().model().commitMilliseconds = 10001;
  Backup late;
  late.AdvanceTo(Phase::prepared);
  EXPECT_THAT(late.Snapshot(), Gives(VSS_E_HOLD_WRITES_TIMEOUT));
  EXPECT_THAT(Copies(), IsEmpty());
  EXPECT_THAT(late.States(), testing::Each(VSS_WS_STABLE));
}

TEST_F(ShadowCopyService, ReportsThePlannedResultOfTheSnapshotAndUndoesIt) {
  for (const HRESULT planned : {VSS_E_PROVIDER_VETO, VSS_E_FLUSH_WRITES_TIMEOUT, VSS_S_ASYNC_CANCELLED}) {
    SCOPED_TRACE(ResultName(planned));
    Install(VssHost());
    host().faults().FailAsync("DoSnapshotSet", planned);
    Backup backup;
    backup.AdvanceTo(Phase::prepared);
    EXPECT_THAT(backup.Snapshot(), Gives(planned));
    EXPECT_THAT(Copies(), IsEmpty());
    EXPECT_THAT(Told(std::nullopt), ElementsAre(L"SqlServerWriter"));
    EXPECT_THAT(backup.States(), testing::Each(VSS_WS_STABLE));
    EXPECT_THAT(backup.Complete(), Gives(VSS_E_BAD_STATE));
    EXPECT_THAT(backup->AbortBackup(), Gives(S_OK));
  }
}

TEST_F(ShadowCopyService, NeverEndsAnOperationThatIsPlannedToStayPending) {
  host().faults().FailAsync("DoSnapshotSet", VSS_S_ASYNC_PENDING);
  Backup backup;
  backup.AdvanceTo(Phase::prepared);
  EXPECT_THAT(backup.Snapshot(), Gives(VSS_S_ASYNC_PENDING));
  EXPECT_THAT(backup.Snapshot(), Gives(VSS_E_BAD_STATE));
  EXPECT_EQ(backup.States().at(0), VSS_WS_WAITING_FOR_THAW);
  EXPECT_THAT(backup->AbortBackup(), Gives(S_OK));
  EXPECT_THAT(backup.States(), testing::Each(VSS_WS_STABLE));
}

TEST_F(ShadowCopyService, ReportsThePlannedResultOfEveryOtherOperation) {
  const auto fail = [this](const char* async) { host().faults().FailAsync(async, VSS_E_UNEXPECTED); };
  Backup backup;
  backup.Initialize();
  fail("GatherWriterMetadata");
  EXPECT_THAT(backup.Run(&IVssBackupComponents::GatherWriterMetadata), Gives(VSS_E_UNEXPECTED));
  EXPECT_THAT(backup.Run(&IVssBackupComponents::GatherWriterMetadata), Gives(VSS_E_BAD_STATE));
  backup.Release();

  Backup second;
  second.AdvanceTo(Phase::setStarted);
  fail("PrepareForBackup");
  EXPECT_THAT(second.Run(&IVssBackupComponents::PrepareForBackup), Gives(VSS_E_UNEXPECTED));
  EXPECT_THAT(second.Snapshot(), Gives(VSS_E_BAD_STATE));
  second.Release();

  Backup third;
  third.AdvanceTo(Phase::snapshotDone);
  fail("GatherWriterStatus");
  EXPECT_THAT(third.Run(&IVssBackupComponents::GatherWriterStatus), Gives(VSS_E_UNEXPECTED));
  UINT count = 0;
  EXPECT_THAT(third->GetWriterStatusCount(&count), Gives(VSS_E_BAD_STATE));
  fail("BackupComplete");
  EXPECT_THAT(third.Complete(), Gives(VSS_E_UNEXPECTED));
  EXPECT_EQ(third.States().at(0), VSS_WS_WAITING_FOR_BACKUP_COMPLETE);
}

TEST_F(ShadowCopyService, UndoesASnapshotThatIsCancelledBeforeItsEnd) {
  host().model().freezeMilliseconds = 1000;
  Backup backup;
  backup.AdvanceTo(Phase::prepared, VSS_CTX_APP_ROLLBACK);
  ComPtr<IVssAsync> async;
  ASSERT_THAT(backup->DoSnapshotSet(async.Put()), Gives(S_OK));
  EXPECT_THAT(async->Cancel(), Gives(S_OK));
  EXPECT_THAT(async->Cancel(), Gives(VSS_S_ASYNC_CANCELLED));
  EXPECT_THAT(Backup::ResultOf(*async), Gives(VSS_S_ASYNC_CANCELLED));
  EXPECT_THAT(backup.Complete(), Gives(VSS_E_BAD_STATE));
  EXPECT_THAT(Copies(), IsEmpty());
}

TEST_F(ShadowCopyService, AnswersACancellationThatComesTooLateWithTheResult) {
  Backup backup;
  backup.Initialize();
  ComPtr<IVssAsync> async;
  ASSERT_THAT(backup->GatherWriterMetadata(async.Put()), Gives(S_OK));
  EXPECT_THAT(async->Cancel(), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_THAT(async->QueryStatus(nullptr, nullptr), Gives(E_INVALIDARG));
  ComPtr<IVssAsync> same;
  EXPECT_THAT(QueryFor(async.Get(), kIidVssAsync, same), Gives(S_OK));
}

// ---------------------------------------------------------------------------------------------------------------------
// The Backup Components Document

TEST_F(ShadowCopyService, ListsAddedComponentsByWriter) {
  Backup backup;
  backup.AdvanceTo(Phase::gathered);
  ASSERT_THAT(backup.Add(0xB, nullptr, L"Server"), Gives(S_OK));
  ASSERT_THAT(backup.Add(0xA, L"SQL01", L"crm"), Gives(S_OK));
  ASSERT_THAT(backup.Add(0xA, L"SQL01", L"sales"), Gives(S_OK));
  backup.StartSet().Prepare();
  UINT count = 0;
  ASSERT_THAT(backup->GetWriterComponentsCount(&count), Gives(S_OK));
  ASSERT_EQ(count, 2U);
  ComPtr<IVssWriterComponentsExt> writer;
  EXPECT_THAT(backup->GetWriterComponents(2, writer.Put()), Gives(VSS_E_OBJECT_NOT_FOUND));
  ASSERT_THAT(backup->GetWriterComponents(1, writer.Put()), Gives(S_OK));
  GUID instance{};
  GUID id{};
  EXPECT_THAT(writer->GetWriterInfo(&instance, &id), Gives(S_OK));
  EXPECT_EQ(instance, InstanceId(0xA));
  EXPECT_EQ(id, ClassId(0xA));
  EXPECT_THAT(writer->GetComponentCount(&count), Gives(S_OK));
  EXPECT_EQ(count, 2U);
  ComPtr<IVssComponent> component;
  EXPECT_THAT(writer->GetComponent(2, component.Put()), Gives(VSS_E_OBJECT_NOT_FOUND));
  ASSERT_THAT(writer->GetComponent(0, component.Put()), Gives(S_OK));
  Bstr text;
  VSS_COMPONENT_TYPE type{};
  EXPECT_THAT(component->GetLogicalPath(text.Put()), Gives(S_OK));
  EXPECT_EQ(text.View(), L"SQL01");
  EXPECT_THAT(component->GetComponentName(text.Put()), Gives(S_OK));
  EXPECT_EQ(text.View(), L"crm");
  EXPECT_THAT(component->GetComponentType(&type), Gives(S_OK));
  EXPECT_EQ(type, VSS_CT_FILEGROUP);

  ASSERT_THAT(backup->GetWriterComponents(0, writer.Put()), Gives(S_OK));
  ASSERT_THAT(writer->GetComponent(0, component.Put()), Gives(S_OK));
  EXPECT_THAT(component->GetLogicalPath(text.Put()), Gives(S_FALSE));
  EXPECT_FALSE(text);
}

TEST_F(ShadowCopyService, GivesWriterComponentsTwoBasesAndCountsThemThroughUnknown) {
  Backup backup;
  backup.AdvanceTo(Phase::prepared);
  IVssWriterComponentsExt* writer = nullptr;
  ASSERT_THAT(backup->GetWriterComponents(0, &writer), Gives(S_OK));
  IUnknown* unknown = writer;
  EXPECT_EQ(reinterpret_cast<char*>(unknown), reinterpret_cast<char*>(writer) + sizeof(void*));
  void* same = nullptr;
  EXPECT_THAT(unknown->QueryInterface(kIidUnknown, &same), Gives(S_OK));
  EXPECT_EQ(same, unknown);
  EXPECT_EQ(host().live().Count("IVssWriterComponentsExt"), 1);
  EXPECT_EQ(unknown->Release(), 1U);
  EXPECT_EQ(unknown->Release(), 0U);
}

TEST_F(ShadowCopyService, MakesWriterComponentsStaleWithEveryPhase) {
  Backup backup;
  backup.AdvanceTo(Phase::prepared);
  const auto fetch = [&] {
    ComPtr<IVssWriterComponentsExt> writer;
    EXPECT_THAT(backup->GetWriterComponents(0, writer.Put()), Gives(S_OK));
    return writer;
  };
  UINT count = 0;
  GUID id{};
  ComPtr<IVssWriterComponentsExt> writer = fetch();
  EXPECT_THAT(writer->GetComponentCount(&count), Gives(S_OK));
  ASSERT_THAT(backup.Snapshot(), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_THAT(writer->GetComponentCount(&count), Gives(VSS_E_BAD_STATE));
  writer = fetch();
  EXPECT_THAT(writer->GetWriterInfo(&id, &id), Gives(S_OK));
  ASSERT_THAT(backup.Complete(), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_THAT(writer->GetWriterInfo(&id, &id), Gives(VSS_E_BAD_STATE));
  ComPtr<IVssComponent> component;
  EXPECT_THAT(writer->GetComponent(0, component.Put()), Gives(VSS_E_BAD_STATE));
  EXPECT_THAT(fetch()->GetComponent(0, component.Put()), Gives(S_OK));
}

TEST_F(ShadowCopyService, KnowsSuccessFromTheRequestorAndFailureFromItsSilence) {
  Backup backup;
  backup.AdvanceTo(Phase::gathered);
  ASSERT_THAT(backup.Add(0xA, L"SQL01", L"sales"), Gives(S_OK));
  ASSERT_THAT(backup.Add(0xA, L"SQL01", L"crm"), Gives(S_OK));
  backup.StartSet().Prepare();
  ASSERT_THAT(backup.Snapshot(), Gives(VSS_S_ASYNC_FINISHED));
  VssBool succeeded = true;
  EXPECT_THAT(AddedComponent(backup, 0)->GetBackupSucceeded(&succeeded), Gives(S_FALSE));
  ASSERT_THAT(backup->SetBackupSucceeded(InstanceId(0xA), ClassId(0xA), VSS_CT_FILEGROUP, L"SQL01", L"sales", true),
              Gives(S_OK));
  ASSERT_THAT(backup.Complete(), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_THAT(AddedComponent(backup, 0)->GetBackupSucceeded(&succeeded), Gives(S_OK));
  EXPECT_TRUE(succeeded);
  EXPECT_THAT(AddedComponent(backup, 1)->GetBackupSucceeded(&succeeded), Gives(S_OK));
  EXPECT_FALSE(succeeded);
}

TEST_F(ShadowCopyService, SavesWhatBecameOfEachComponent) {
  FailWriter(WriterEvent::backupComplete, VSS_E_WRITERERROR_PARTIAL_FAILURE,
             {{L"\\SQL01\\crm", VSS_E_WRITERERROR_NONRETRYABLE, 0x41, L"log kept"}});
  Backup backup;
  backup.AdvanceTo(Phase::gathered);
  for (const wchar_t* name : {L"sales", L"crm"}) ASSERT_THAT(backup.Add(0xA, L"SQL01", name), Gives(S_OK));
  ASSERT_THAT(backup.Add(0xB, nullptr, L"Server"), Gives(S_OK));
  backup.StartSet().Prepare();
  ASSERT_THAT(backup.Snapshot(), Gives(VSS_S_ASYNC_FINISHED));
  const auto mark = [&](DWORD writer, LPCWSTR path, LPCWSTR name, bool succeeded) {
    return backup->SetBackupSucceeded(InstanceId(writer), ClassId(writer), VSS_CT_FILEGROUP, path, name, succeeded);
  };
  ASSERT_THAT(mark(0xA, L"SQL01", L"sales", false), Gives(S_OK));
  ASSERT_THAT(mark(0xA, L"SQL01", L"sales", true), Gives(S_OK)) << "the last mark counts";
  ASSERT_THAT(mark(0xB, nullptr, L"Server", false), Gives(S_OK));
  const BackupDocument before = ParseBackupDocument(WideToUtf8(backup.Document()));
  EXPECT_EQ(before.writers.at(0).components.at(0).succeeded, true);
  EXPECT_EQ(before.writers[0].components.at(1).succeeded, std::nullopt);
  ASSERT_THAT(backup.Complete(), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_THAT(mark(0xA, L"SQL01", L"crm", true), Gives(VSS_E_BAD_STATE));

  const BackupDocument after = ParseBackupDocument(WideToUtf8(backup.Document()));
  const auto& sql = after.writers.at(0);
  EXPECT_TRUE(sql.changedByWriter);
  EXPECT_EQ(sql.components.at(0).succeeded, true);
  EXPECT_THAT(sql.components[0].failure, Gives(S_OK));
  EXPECT_EQ(sql.components.at(1).succeeded, false) << "never marked";
  EXPECT_THAT(sql.components[1].failure, Gives(VSS_E_WRITERERROR_NONRETRYABLE));
  EXPECT_EQ(sql.components[1].applicationResult, 0x41);
  EXPECT_EQ(sql.components[1].applicationMessage, L"log kept");
  EXPECT_EQ(after.writers.at(1).components.at(0).succeeded, false);
  EXPECT_EQ(backup.Statuses().at(0).state, VSS_WS_FAILED_AT_BACKUP_COMPLETE);
}

TEST_F(ShadowCopyService, AnswersWhatABackupDoesNotFill) {
  Backup backup;
  backup.AdvanceTo(Phase::prepared);
  const ComPtr<IVssComponentEx2> component = AddedComponent(backup, 0);
  Bstr text;
  UINT count = 9;
  EXPECT_THAT(component->GetBackupStamp(text.Put()), Gives(S_FALSE));
  EXPECT_THAT(component->GetBackupMetadata(text.Put()), Gives(S_FALSE));
  EXPECT_THAT(component->GetPrepareForBackupFailureMsg(text.Put()), Gives(S_FALSE));
  EXPECT_THAT(component->GetPostSnapshotFailureMsg(text.Put()), Gives(S_FALSE));
  EXPECT_THAT(component->GetRestoreName(text.Put()), Gives(S_FALSE));
  EXPECT_THAT(component->GetPartialFileCount(&count), Gives(S_OK));
  EXPECT_EQ(count, 0U);
  EXPECT_THAT(component->GetPartialFile(0, text.Put(), nullptr, nullptr, nullptr), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(component->SetBackupMetadata(L"x"), Gives(VSS_E_BAD_STATE));
  EXPECT_THAT(component->SetBackupStamp(L"x"), Gives(VSS_E_BAD_STATE));
}

TEST_F(ShadowCopyService, WritesTheDocumentInTheServicesOwnForm) {
  Backup backup;
  backup.AdvanceTo(Phase::prepared);
  const std::wstring setId = FormatBareGuid(backup.setId);
  EXPECT_EQ(WideToUtf8(backup.Document()),
            WideToUtf8(L"<BACKUP_COMPONENTS xmlns=\"x-schema:#VssComponentMetadata\" version=\"1.2\" "
                       L"bootableSystemStateBackup=\"yes\" selectComponents=\"yes\" backupType=\"full\" "
                       L"partialFileSupport=\"no\" snapshotSetId=\"" +
                       setId +
                       L"\"><WRITER_COMPONENTS instanceId=\"0000000a-0001-0000-0000-000000000000\" "
                       L"writerId=\"0000000a-0000-0000-0000-000000000000\" backupSchema=\"0\">"
                       L"<COMPONENT logicalPath=\"SQL01\" componentName=\"sales\" componentType=\"filegroup\"/>"
                       L"</WRITER_COMPONENTS></BACKUP_COMPONENTS>"));
}

BackupDocument FullDocument() {
  BackupDocument document;
  document.bootableSystemState = true;
  document.backupType = VSS_BT_COPY;
  document.partialFileSupport = true;
  document.snapshotSetId = ClassId(5);
  simulator::DocumentWriter writer{InstanceId(1), ClassId(1), L"SQL \"1\"", 0x371, true, {}};
  simulator::DocumentComponent component;
  component.logicalPath = L"a<b>&c\r\n\t'";
  component.name = L"\u00e9\u4e2d";
  component.type = VSS_CT_DATABASE;
  component.backupStamp = L"stamp";
  component.previousBackupStamp = L"";
  component.backupOptions = L"options";
  component.backupMetadata = L"bWV0YQ==";
  component.prepareForBackupFailure = L"p";
  component.postSnapshotFailure = L"q";
  component.succeeded = false;
  component.failure = VSS_E_WRITERERROR_TIMEOUT;
  component.applicationResult = E_FAIL;
  component.applicationMessage = L"message";
  writer.components = {component, {}};
  writer.components[1].name = L"plain";
  document.writers = {writer, {InstanceId(2), ClassId(2), L"", 0, false, {}}};
  ShadowCopy copy;
  copy.id = ClassId(7);
  copy.setId = ClassId(5);
  copy.providerId = kHardware;
  copy.attributes = kTransportable;
  copy.timestamp = 134116992000000000;
  copy.copiesInSet = 1;
  copy.originatingMachine = L"SQL01";
  copy.originalVolume = VolumeName(1);
  copy.originalSerial = L"TSL0001";
  copy.serial = L"SHADOW-TSL0001";
  document.transportableCopies = {copy};
  return document;
}

TEST(BackupDocuments, KeepEverythingWhenReadBack) {
  const std::string written = FormatBackupDocument(FullDocument());
  const BackupDocument read = ParseBackupDocument(written);
  EXPECT_EQ(FormatBackupDocument(read), written);
  const simulator::DocumentComponent& component = read.writers.at(0).components.at(0);
  const BackupDocument expected = FullDocument();
  EXPECT_EQ(component.logicalPath, expected.writers[0].components[0].logicalPath);
  EXPECT_EQ(component.name, expected.writers[0].components[0].name);
  EXPECT_EQ(component.previousBackupStamp, L"");
  EXPECT_EQ(component.succeeded, false);
  EXPECT_THAT(component.failure, Gives(VSS_E_WRITERERROR_TIMEOUT));
  EXPECT_EQ(component.backupMetadata, L"bWV0YQ==");
  EXPECT_EQ(read.transportableCopies.at(0).timestamp, 134116992000000000);
  EXPECT_EQ(read.backupType, VSS_BT_COPY);
}

TEST(BackupDocuments, AreReadInTheIndentedFormToo) {
  const BackupDocument document = ParseBackupDocument(
      "<?xml version=\"1.0\"?>\r\n<BACKUP_COMPONENTS backupType='full'>\r\n\t<!-- note -->\r\n\t<WRITER_COMPONENTS "
      "instanceId='00000001-0001-0000-0000-000000000000' writerId='0000000A-0000-0000-0000-000000000000'>\r\n\t\t"
      "<COMPONENT componentName='a &gt; b' componentType='database'></COMPONENT>\r\n\t</WRITER_COMPONENTS>\r\n"
      "</BACKUP_COMPONENTS>\r\n");
  EXPECT_EQ(document.writers.at(0).writerId, ClassId(0xA));
  EXPECT_EQ(document.writers.at(0).components.at(0).name, L"a > b");
  EXPECT_EQ(document.writers.at(0).components.at(0).type, VSS_CT_DATABASE);
}

std::string Nested(int depth) {
  std::string xml;
  for (int i = 0; i < depth; ++i) xml += "<BACKUP_COMPONENTS>";
  for (int i = 0; i < depth; ++i) xml += "</BACKUP_COMPONENTS>";
  return xml;
}

TEST(BackupDocuments, RefuseRubbish) {
  const std::string writer = "instanceId=\"00000001-0001-0000-0000-000000000000\" ";
  const std::string rubbish[] = {
      "",
      "text",
      "<BACKUP_COMPONENTS>",
      "<BACKUP_COMPONENTS></WRITER>",
      "<WRITER_METADATA/>",
      "<BACKUP_COMPONENTS/><BACKUP_COMPONENTS/>",
      "<BACKUP_COMPONENTS backupType=\"weekly\"/>",
      "<BACKUP_COMPONENTS selectComponents=\"perhaps\"/>",
      "<BACKUP_COMPONENTS snapshotSetId=\"5\"/>",
      "<BACKUP_COMPONENTS><WRITER_COMPONENTS/></BACKUP_COMPONENTS>",
      "<BACKUP_COMPONENTS><WRITER_COMPONENTS " + writer + "writerId=\"x\"/></BACKUP_COMPONENTS>",
      "<BACKUP_COMPONENTS><WRITER_COMPONENTS " + writer +
          "writerId=\"00000001-0000-0000-0000-000000000000\"><COMPONENT componentName=\"a\"/></WRITER_COMPONENTS>"
          "</BACKUP_COMPONENTS>",
      "<BACKUP_COMPONENTS><WRITER_COMPONENTS " + writer +
          "writerId=\"00000001-0000-0000-0000-000000000000\"><COMPONENT componentType=\"filegroup\"/>"
          "</WRITER_COMPONENTS></BACKUP_COMPONENTS>",
      "<BACKUP_COMPONENTS><TRANSPORTABLE_SNAPSHOT/></BACKUP_COMPONENTS>",
      std::string("<BACKUP_COMPONENTS a=\"\xff\"/>").replace(19, 1, "instanceId").append("<"),
      Nested(100000),
      std::string("<BACKUP_COMPONENTS/>\0", 21),
  };
  for (const std::string& xml : rubbish) {
    SCOPED_TRACE(xml.substr(0, 120));
    EXPECT_THROW(ParseBackupDocument(xml), simulator::DocumentError);
  }
}

TEST_F(ShadowCopyService, RefusesDocumentsThatItCannotRead) {
  for (const wchar_t* xml : {L"rubbish", L"<BACKUP_COMPONENTS>", L"<WRITER_METADATA/>"}) {
    const Bstr document{std::wstring_view(xml)};
    Backup backup;
    EXPECT_THAT(backup->InitializeForBackup(document.Get()), Gives(VSS_E_INVALID_XML_DOCUMENT));
    EXPECT_THAT(backup->InitializeForRestore(document.Get()), Gives(VSS_E_INVALID_XML_DOCUMENT));
    EXPECT_THAT(backup->InitializeForBackup(nullptr), Gives(S_OK)) << "a failed call leaves the object as it was";
  }
  Backup backup;
  const Bstr empty{std::wstring_view(L"")};
  EXPECT_THAT(backup->InitializeForRestore(empty.Get()), Gives(VSS_E_INVALID_XML_DOCUMENT));
  EXPECT_THAT(backup->InitializeForRestore(nullptr), Gives(E_INVALIDARG));
}

TEST_F(ShadowCopyService, ReadsTheComponentsOfASavedDocument) {
  Backup saved;
  saved.AdvanceTo(Phase::complete);
  const Bstr xml(saved.Document());
  saved.Release();
  for (const bool restoring : {false, true}) {
    Backup backup;
    ASSERT_THAT(restoring ? backup->InitializeForRestore(xml.Get()) : backup->InitializeForBackup(xml.Get()),
                Gives(S_OK));
    EXPECT_EQ(backup.Document(), xml.View());
    Bstr name;
    VssBool succeeded = true;
    EXPECT_THAT(AddedComponent(backup, 0)->GetComponentName(name.Put()), Gives(S_OK));
    EXPECT_EQ(name.View(), L"sales");
    EXPECT_THAT(AddedComponent(backup, 0)->GetBackupSucceeded(&succeeded), Gives(S_OK));
    EXPECT_FALSE(succeeded);
  }
}

TEST_F(ShadowCopyService, RefusesTheCallsOfABackupDuringARestore) {
  Backup backup;
  ASSERT_THAT(backup->InitializeForRestore(LoadableDocument().Get()), Gives(S_OK));
  GUID id{};
  EXPECT_THAT(backup->SetContext(VSS_CTX_APP_ROLLBACK), Gives(VSS_E_BAD_STATE));
  EXPECT_THAT(backup->SetBackupState(true, true, VSS_BT_FULL, false), Gives(VSS_E_BAD_STATE));
  EXPECT_THAT(backup->StartSnapshotSet(&id), Gives(VSS_E_BAD_STATE));
  EXPECT_THAT(backup.Delete(id, VSS_OBJECT_SNAPSHOT), Gives(VSS_E_BAD_STATE));
  EXPECT_THAT(backup.PropertiesOf(id), Gives(VSS_E_BAD_STATE));
  backup.Gather();
  EXPECT_THAT(backup.Add(0xA, L"SQL01", L"sales"), Gives(VSS_E_BAD_STATE));
  EXPECT_THAT(backup->PreRestore(nullptr), Gives(E_NOTIMPL));
  EXPECT_THAT(backup->AbortBackup(), Gives(S_OK));
}

TEST(BackupDocuments, OfARealHostAreReadAndWrittenBackUnchanged) {
  const char* captures = std::getenv("VARNEL_CAPTURES");
  if (captures == nullptr) GTEST_SKIP() << "VARNEL_CAPTURES names no folder with a BCDocument.xml";
  std::ifstream file(std::filesystem::path(captures) / "BCDocument.xml", std::ios::binary);
  ASSERT_TRUE(file.is_open());
  std::string xml{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  while (!xml.empty() && (xml.back() == '\n' || xml.back() == '\r' || xml.back() == '\0')) xml.pop_back();
  const BackupDocument document = ParseBackupDocument(xml);
  EXPECT_FALSE(document.writers.empty());
  EXPECT_EQ(FormatBackupDocument(document), xml);
}

// ---------------------------------------------------------------------------------------------------------------------
// Call log and call faults

TEST_F(ShadowCopyService, RecordsCallsWithTheirArgumentsAndResults) {
  Backup backup;
  backup.AdvanceTo(Phase::setStarted);
  EXPECT_THAT(backup.AddVolume(L"X:\\"), Gives(VSS_E_OBJECT_NOT_FOUND));
  const std::string set = WideToUtf8(FormatGuid(backup.setId));
  const std::string copy = WideToUtf8(FormatGuid(backup.copyIds.at(0)));
  const std::string none = "{00000000-0000-0000-0000-000000000000}";
  EXPECT_THAT(
      host().calls().lines(),
      ElementsAre(
          "CreateVssBackupComponents() = S_OK", "IVssBackupComponents::InitializeForBackup(null) = S_OK",
          "IVssBackupComponents::GatherWriterMetadata() = S_OK", "IVssAsync::Wait(INFINITE) = S_OK",
          "IVssAsync::QueryStatus(-> VSS_S_ASYNC_FINISHED) = S_OK",
          "IVssBackupComponents::AddComponent({0000000a-0001-0000-0000-000000000000}, "
          "{0000000a-0000-0000-0000-000000000000}, 2, \"SQL01\", \"sales\") = S_OK",
          "IVssBackupComponents::SetBackupState(true, true, 1, false) = S_OK",
          "IVssBackupComponents::StartSnapshotSet(-> " + set + ") = S_OK",
          "IVssBackupComponents::AddToSnapshotSet(\"E:\\\", " + none + " -> " + copy + ") = S_OK",
          "IVssBackupComponents::AddToSnapshotSet(\"X:\\\", " + none + " -> " + none + ") = VSS_E_OBJECT_NOT_FOUND"));
}

TEST_F(ShadowCopyService, HandsOutNothingFromACallThatIsMadeToFailOrToSucceedUnrun) {
  Backup backup;
  backup.AdvanceTo(Phase::gathered);
  GUID instance{};
  IVssExamineWriterMetadata* const poison = reinterpret_cast<IVssExamineWriterMetadata*>(std::uintptr_t{1});
  for (const HRESULT forced : {E_OUTOFMEMORY, S_FALSE}) {
    host().faults().FailCall("IVssBackupComponents::GetWriterMetadata", static_cast<DWORD>(forced));
    IVssExamineWriterMetadata* metadata = poison;
    EXPECT_THAT(backup->GetWriterMetadata(0, &instance, &metadata), Gives(forced));
    EXPECT_EQ(metadata, nullptr);
  }
  host().faults().FailCall("IVssBackupComponents::StartSnapshotSet", static_cast<DWORD>(E_ACCESSDENIED));
  GUID id = ClassId(9);
  EXPECT_THAT(backup->StartSnapshotSet(&id), Gives(E_ACCESSDENIED));
  EXPECT_EQ(id, ClassId(9));
  EXPECT_THAT(backup->StartSnapshotSet(&id), Gives(S_OK)) << "the failed call changed nothing";
}

TEST_F(ShadowCopyService, CanBeMadeToFailAtItsCreation) {
  host().faults().FailCall("CreateVssBackupComponents", static_cast<DWORD>(E_ACCESSDENIED));
  host().faults().FailCall("CoCreateInstance", static_cast<DWORD>(E_ACCESSDENIED));
  ComPtr<IVssBackupComponents> backup;
  ComPtr<IVssAdmin> admin;
  EXPECT_THAT(CurrentHost().vss().CreateVssBackupComponents(backup.Put()), Gives(E_ACCESSDENIED));
  EXPECT_THAT(CurrentHost().vss().CoCreateInstance(kClsidVssCoordinator, nullptr, CLSCTX_ALL, kIidVssAdmin,
                                                   reinterpret_cast<void**>(admin.Put())),
              Gives(E_ACCESSDENIED));
  EXPECT_FALSE(backup);
  EXPECT_FALSE(admin);
}

TEST_F(ShadowCopyService, RecordsCallsThatItDoesNotImplement) {
  Backup backup;
  ComPtr<IVssBackupComponentsEx3> extended;
  ASSERT_THAT(QueryFor(&*backup, kIidVssBackupComponentsEx3, extended), Gives(S_OK));
  ComPtr<IVssAsync> async;
  EXPECT_THAT(backup->RevertToSnapshot(GUID{}, FALSE), Gives(E_NOTIMPL));
  EXPECT_THAT(extended->RecoverSet(0, async.Put()), Gives(E_NOTIMPL));
  EXPECT_THAT(host().calls().lines(), testing::Contains("IVssBackupComponentsEx3::RecoverSet() = E_NOTIMPL"));
  EXPECT_THAT(host().calls().lines(), testing::Contains("IVssBackupComponents::RevertToSnapshot() = E_NOTIMPL"));
}

TEST_F(ShadowCopyService, NamesItsSession) {
  Backup backup;
  ComPtr<IVssBackupComponentsEx3> extended;
  ASSERT_THAT(QueryFor(&*backup, kIidVssBackupComponentsEx3, extended), Gives(S_OK));
  GUID id{};
  EXPECT_THAT(extended->GetSessionId(&id), Gives(VSS_E_BAD_STATE));
  backup.Initialize();
  EXPECT_THAT(extended->GetSessionId(&id), Gives(S_OK));
  EXPECT_NE(id, GUID{});
}

TEST_F(ShadowCopyService, OutlivesItsHostInTheObjectsThatWereHandedOut) {
  Backup backup;
  backup.AdvanceTo(Phase::snapshotDone);
  Install(SmallHost());
  EXPECT_THAT(backup.PropertiesOf(backup.setId), Gives(VSS_E_OBJECT_NOT_FOUND));
  backup.Release();
}

}  // namespace
}  // namespace varnel::test
