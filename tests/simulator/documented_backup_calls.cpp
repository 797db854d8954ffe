// The calls of IVssBackupComponents and of what makes it.
#include "tests/simulator/documented_codes.h"

namespace varnel::test {
namespace {

constexpr auto kNotInitialized = static_cast<HRESULT>(0x800401F0);  // CO_E_NOTINITIALIZED
constexpr GUID kNoSuch = ParseGuid<GUID>("{00000000-0000-0000-0000-00000000dead}");

const char kUsual[] = "its turn in the order of calls";
const char kTooEarly[] = "before InitializeForBackup";
const char kTwice[] = "a second time";

const std::vector<HRESULT> kOftenFault = {E_OUTOFMEMORY, VSS_E_UNEXPECTED};
const std::vector<HRESULT> kDocumentFault = {E_OUTOFMEMORY, VSS_E_UNEXPECTED, VSS_E_INVALID_XML_DOCUMENT};
const std::vector<HRESULT> kGatherFault = {E_ACCESSDENIED, E_OUTOFMEMORY, VSS_E_UNEXPECTED,
                                           VSS_E_WRITER_INFRASTRUCTURE};

HRESULT Create(IVssBackupComponents** object) {
  return CurrentHost().vss().CreateVssBackupComponents(object);
}

HRESULT InitializeForRestore(Backup& b, const wchar_t* xml) {
  const Bstr text(xml);
  return b->InitializeForRestore(text.Get());
}

std::vector<DocumentedCall> Initialization() {
  const auto initialize = [](Backup& b) { return b->InitializeForBackup(nullptr); };
  const auto context = [](Backup& b) { return b->SetContext(VSS_CTX_APP_ROLLBACK); };
  const auto badContext = [](Backup& b) {
    return b->SetContext(VSS_VOLSNAP_ATTR_DIFFERENTIAL | VSS_VOLSNAP_ATTR_PLEX);
  };
  const auto state = [](Backup& b) { return b->SetBackupState(true, true, VSS_BT_FULL, false); };
  return {
      {"CreateVssBackupComponents",
       {{S_OK, "always", [] { return [] { return Create(ComPtr<IVssBackupComponents>().Put()); }; }},
        {E_INVALIDARG, kNullResult, [] { return [] { return Create(nullptr); }; }}},
       {E_ACCESSDENIED, E_OUTOFMEMORY, VSS_E_UNEXPECTED, kNotInitialized}},
      {"IVssBackupComponents::InitializeForBackup",
       {{S_OK, kUsual, At(Phase::created, initialize)},
        {VSS_E_BAD_STATE, kTwice, At(Phase::initialized, initialize)},
        {VSS_E_INVALID_XML_DOCUMENT, "a text that is no components document",
         At(Phase::created, [](Backup& b) { return b->InitializeForBackup(Bstr(L"<A/>").Get()); })}},
       {E_ACCESSDENIED, E_OUTOFMEMORY, VSS_E_UNEXPECTED}},
      {"IVssBackupComponents::InitializeForRestore",
       {{S_OK, "a saved components document",
         At(Phase::created, [](Backup& b) { return b->InitializeForRestore(LoadableDocument().Get()); })},
        {E_INVALIDARG, "no document", At(Phase::created, [](Backup& b) { return b->InitializeForRestore(nullptr); })},
        {VSS_E_BAD_STATE, kTwice,
         At(Phase::initialized, [](Backup& b) { return b->InitializeForRestore(LoadableDocument().Get()); })},
        {VSS_E_INVALID_XML_DOCUMENT, "a text that is no components document",
         At(Phase::created, [](Backup& b) { return InitializeForRestore(b, L"<A/>"); })}},
       {E_ACCESSDENIED, E_OUTOFMEMORY, VSS_E_UNEXPECTED}},
      {"IVssBackupComponents::SetContext",
       {{S_OK, kUsual, At(Phase::initialized, context)},
        {E_INVALIDARG, "attributes that exclude each other", At(Phase::initialized, badContext)},
        {VSS_E_BAD_STATE, "after GatherWriterMetadata", At(Phase::gathered, context)}},
       {VSS_E_UNEXPECTED, VSS_E_UNSUPPORTED_CONTEXT, E_NOTIMPL}},
      {"IVssBackupComponents::SetBackupState",
       {{S_OK, kUsual, At(Phase::initialized, state)},
        {E_INVALIDARG, "VSS_BT_UNDEFINED",
         At(Phase::initialized, [](Backup& b) { return b->SetBackupState(true, true, VSS_BT_UNDEFINED, false); })},
        {VSS_E_BAD_STATE, kTooEarly, At(Phase::created, state)}},
       kDocumentFault},
  };
}

using Choose = HRESULT (STDMETHODCALLTYPE IVssBackupComponents::*)(const VSS_ID*, UINT);

DocumentedCall WriterChoice(const char* name, Choose choose) {
  const auto one = [choose](Backup& b) {
    const GUID id = ClassId(0xA);
    return ((*b).*choose)(&id, 1);
  };
  return {name,
          {{S_OK, "before GatherWriterMetadata", At(Phase::initialized, one)},
           {E_INVALIDARG, "no list", At(Phase::initialized, [=](Backup& b) { return ((*b).*choose)(nullptr, 1); })},
           {VSS_E_BAD_STATE, "after GatherWriterMetadata", At(Phase::gathered, one)}},
          kOftenFault};
}

DocumentedCall Starts(const char* name, Phase turn, Phase wrong, const char* wrongHow, Start start,
                      std::vector<HRESULT> byFault) {
  const auto run = [=](Backup& b) {
    ComPtr<IVssAsync> async;
    return ((*b).*start)(async.Put());
  };
  return {name,
          {{S_OK, kUsual, At(turn, run)},
           {E_INVALIDARG, kNullResult, At(turn, [=](Backup& b) { return ((*b).*start)(nullptr); })},
           {VSS_E_BAD_STATE, wrongHow, At(wrong, run)}},
          std::move(byFault)};
}

std::vector<HRESULT> WithAccess(std::vector<HRESULT> codes) {
  codes.insert(codes.begin(), E_ACCESSDENIED);
  return codes;
}

std::vector<DocumentedCall> Operations() {
  const std::vector<HRESULT> snapshot = {E_ACCESSDENIED,
                                         E_OUTOFMEMORY,
                                         VSS_E_UNEXPECTED,
                                         VSS_E_INSUFFICIENT_STORAGE,
                                         VSS_E_FLUSH_WRITES_TIMEOUT,
                                         VSS_E_HOLD_WRITES_TIMEOUT,
                                         VSS_E_NESTED_VOLUME_LIMIT,
                                         VSS_E_PROVIDER_VETO,
                                         VSS_E_REBOOT_REQUIRED,
                                         VSS_E_TRANSACTION_FREEZE_TIMEOUT,
                                         VSS_E_TRANSACTION_THAW_TIMEOUT,
                                         VSS_E_UNEXPECTED_PROVIDER_ERROR};
  return {
      Starts("IVssBackupComponents::GatherWriterMetadata", Phase::initialized, Phase::gathered, kTwice,
             &IVssBackupComponents::GatherWriterMetadata, kGatherFault),
      Starts("IVssBackupComponents::PrepareForBackup", Phase::setStarted, Phase::gathered, "before StartSnapshotSet",
             &IVssBackupComponents::PrepareForBackup, kOftenFault),
      Starts("IVssBackupComponents::DoSnapshotSet", Phase::prepared, Phase::setStarted, "before PrepareForBackup",
             &IVssBackupComponents::DoSnapshotSet, snapshot),
      Starts("IVssBackupComponents::GatherWriterStatus", Phase::prepared, Phase::initialized,
             "before GatherWriterMetadata", &IVssBackupComponents::GatherWriterStatus, kGatherFault),
      Starts("IVssBackupComponents::BackupComplete", Phase::snapshotDone, Phase::prepared, "before DoSnapshotSet",
             &IVssBackupComponents::BackupComplete, {E_OUTOFMEMORY, VSS_E_UNEXPECTED, VSS_E_UNEXPECTED_WRITER_ERROR}),
      WriterChoice("IVssBackupComponents::EnableWriterClasses", &IVssBackupComponents::EnableWriterClasses),
      WriterChoice("IVssBackupComponents::DisableWriterClasses", &IVssBackupComponents::DisableWriterClasses),
      WriterChoice("IVssBackupComponents::DisableWriterInstances", &IVssBackupComponents::DisableWriterInstances),
  };
}

using GetCount = HRESULT (STDMETHODCALLTYPE IVssBackupComponents::*)(UINT*);

template <class Before>
DocumentedCall Counts(const char* name, Phase turn, Phase wrong, const char* wrongHow, GetCount get, Before before) {
  const auto count = [=](Backup& b) {
    before(b);
    return Ask(*b, get);
  };
  return {name,
          {{S_OK, kUsual, At(turn, count)},
           {E_INVALIDARG, kNullResult, At(turn, [=](Backup& b) { return ((*b).*get)(nullptr); })},
           {VSS_E_BAD_STATE, wrongHow, At(wrong, [=](Backup& b) { return Ask(*b, get); })}},
          kOftenFault};
}

void GatherStatus(Backup& b) {
  Expect(b.Run(&IVssBackupComponents::GatherWriterStatus), VSS_S_ASYNC_FINISHED);
}
void Nothing(Backup&) {}

HRESULT MetadataAt(Backup& b, UINT index) {
  GUID instance{};
  return b->GetWriterMetadata(index, &instance, ComPtr<IVssExamineWriterMetadata>().Put());
}
HRESULT MetadataExAt(Backup& b, UINT index) {
  GUID instance{};
  return b.As<IVssBackupComponentsEx2>()->GetWriterMetadataEx(index, &instance,
                                                              ComPtr<IVssExamineWriterMetadataEx>().Put());
}
HRESULT StatusAt(Backup& b, UINT index) {
  GUID id{};
  VSS_WRITER_STATE state{};
  HRESULT failure{};
  return b->GetWriterStatus(index, &id, &id, Bstr().Put(), &state, &failure);
}
HRESULT StatusExAt(Backup& b, UINT index) {
  GUID id{};
  VSS_WRITER_STATE state{};
  HRESULT failure{};
  return b.As<IVssBackupComponentsEx3>()->GetWriterStatusEx(index, &id, &id, Bstr().Put(), &state, &failure, nullptr,
                                                            nullptr);
}
HRESULT ComponentsAt(Backup& b, UINT index) {
  return b->GetWriterComponents(index, ComPtr<IVssWriterComponentsExt>().Put());
}

// One of a list that `before` makes.
DocumentedCall OneOf(const char* name, Phase turn, Phase wrong, const char* wrongHow, HRESULT (*get)(Backup&, UINT),
                     void (*before)(Backup&), Made (*forNothing)(), std::vector<HRESULT> byFault) {
  const auto ask = [=](UINT index) {
    return [=](Backup& b) {
      before(b);
      return get(b, index);
    };
  };
  return {name,
          {{S_OK, kUsual, At(turn, ask(0))},
           {E_INVALIDARG, kNullResult, forNothing},
           {VSS_E_BAD_STATE, wrongHow, At(wrong, [=](Backup& b) { return get(b, 0); })},
           {VSS_E_OBJECT_NOT_FOUND, "an index beyond the last", At(turn, ask(100))}},
          std::move(byFault)};
}

template <class Call>
Made AtOnce(Phase phase, Call call) {
  return At(phase, call)();
}

std::vector<DocumentedCall> WriterLists() {
  const char early[] = "before GatherWriterMetadata";
  const char unasked[] = "before GatherWriterStatus";
  return {
      Counts("IVssBackupComponents::GetWriterMetadataCount", Phase::gathered, Phase::initialized, early,
             &IVssBackupComponents::GetWriterMetadataCount, Nothing),
      OneOf(
          "IVssBackupComponents::GetWriterMetadata", Phase::gathered, Phase::initialized, early, MetadataAt, Nothing,
          [] { return AtOnce(Phase::gathered, [](Backup& b) { return b->GetWriterMetadata(0, nullptr, nullptr); }); },
          kDocumentFault),
      OneOf(
          "IVssBackupComponentsEx::GetWriterMetadataEx", Phase::gathered, Phase::initialized, early, MetadataExAt,
          Nothing,
          [] {
            return AtOnce(Phase::gathered, [](Backup& b) {
              return b.As<IVssBackupComponentsEx2>()->GetWriterMetadataEx(0, nullptr, nullptr);
            });
          },
          kDocumentFault),
      Counts("IVssBackupComponents::GetWriterStatusCount", Phase::prepared, Phase::prepared, unasked,
             &IVssBackupComponents::GetWriterStatusCount, GatherStatus),
      OneOf(
          "IVssBackupComponents::GetWriterStatus", Phase::prepared, Phase::prepared, unasked, StatusAt, GatherStatus,
          [] {
            return AtOnce(Phase::prepared,
                          [](Backup& b) { return b->GetWriterStatus(0, nullptr, nullptr, nullptr, nullptr, nullptr); });
          },
          kOftenFault),
      OneOf(
          "IVssBackupComponentsEx3::GetWriterStatusEx", Phase::prepared, Phase::prepared, unasked, StatusExAt,
          GatherStatus,
          [] {
            return AtOnce(Phase::prepared, [](Backup& b) {
              return b.As<IVssBackupComponentsEx3>()->GetWriterStatusEx(0, nullptr, nullptr, nullptr, nullptr, nullptr,
                                                                        nullptr, nullptr);
            });
          },
          kOftenFault),
  };
}

std::vector<DocumentedCall> Documents() {
  const char early[] = "before PrepareForBackup";
  const auto freed = [](Backup& b) {
    GatherStatus(b);
    return b->FreeWriterStatus();
  };
  return {
      {"IVssBackupComponents::FreeWriterMetadata",
       {{S_OK, kUsual, At(Phase::gathered, [](Backup& b) { return b->FreeWriterMetadata(); })},
        {VSS_E_BAD_STATE, "before GatherWriterMetadata",
         At(Phase::initialized, [](Backup& b) { return b->FreeWriterMetadata(); })}},
       kOftenFault},
      {"IVssBackupComponents::FreeWriterStatus",
       {{S_OK, kUsual, At(Phase::prepared, freed)},
        {VSS_E_BAD_STATE, "before GatherWriterStatus",
         At(Phase::prepared, [](Backup& b) { return b->FreeWriterStatus(); })}},
       kOftenFault},
      Counts("IVssBackupComponents::GetWriterComponentsCount", Phase::prepared, Phase::setStarted, early,
             &IVssBackupComponents::GetWriterComponentsCount, Nothing),
      OneOf(
          "IVssBackupComponents::GetWriterComponents", Phase::prepared, Phase::setStarted, early, ComponentsAt, Nothing,
          [] { return AtOnce(Phase::prepared, [](Backup& b) { return b->GetWriterComponents(0, nullptr); }); },
          kOftenFault),
      {"IVssBackupComponents::SaveAsXML",
       {{S_OK, kUsual, At(Phase::prepared, [](Backup& b) { return b->SaveAsXML(Bstr().Put()); })},
        {E_INVALIDARG, kNullResult, At(Phase::prepared, [](Backup& b) { return b->SaveAsXML(nullptr); })},
        {VSS_E_BAD_STATE, early, At(Phase::setStarted, [](Backup& b) { return b->SaveAsXML(Bstr().Put()); })}},
       kOftenFault},
  };
}

HRESULT AddTwice(Backup& b) {
  Expect(b.Add(0xA, L"SQL01", L"sales"), S_OK);
  return b.Add(0xA, L"SQL01", L"sales");
}

std::vector<DocumentedCall> Selection() {
  const auto add = [](Backup& b) { return b.Add(0xA, L"SQL01", L"sales"); };
  const auto mark = [](Backup& b) { return b.Mark(0xA, L"SQL01", L"sales"); };
  return {
      {"IVssBackupComponents::AddComponent",
       {{S_OK, "a component that its writer has", At(Phase::gathered, add)},
        {E_INVALIDARG, "no name", At(Phase::gathered, [](Backup& b) { return b.Add(0xA, L"SQL01", nullptr); })},
        {VSS_E_BAD_STATE, "before GatherWriterMetadata", At(Phase::initialized, add)},
        {VSS_E_OBJECT_ALREADY_EXISTS, kTwice, At(Phase::gathered, AddTwice)},
        {VSS_E_OBJECT_NOT_FOUND, "a component that its writer does not have",
         At(Phase::gathered, [](Backup& b) { return b.Add(0xA, L"SQL01", L"nothing"); })}},
       kDocumentFault},
      {"IVssBackupComponents::SetBackupSucceeded",
       {{S_OK, "a component that was added", At(Phase::snapshotDone, mark)},
        {E_INVALIDARG, "no name", At(Phase::snapshotDone, [](Backup& b) { return b.Mark(0xA, L"SQL01", nullptr); })},
        {VSS_E_BAD_STATE, "before DoSnapshotSet", At(Phase::prepared, mark)},
        {VSS_E_OBJECT_NOT_FOUND, "a component that was not added",
         At(Phase::snapshotDone, [](Backup& b) { return b.Mark(0xA, L"SQL01", L"crm"); })}},
       kDocumentFault},
  };
}

HRESULT StartSet(Backup& b) {
  GUID id{};
  return b->StartSnapshotSet(&id);
}

HRESULT StartBesideAnother(Backup& b) {
  Backup other(Phase::setStarted);
  return StartSet(b);
}

std::vector<DocumentedCall> StartOfTheSet() {
  return {
      {"IVssBackupComponents::StartSnapshotSet",
       {{S_OK, kUsual, At(Phase::gathered, StartSet)},
        {E_INVALIDARG, kNullResult, At(Phase::gathered, [](Backup& b) { return b->StartSnapshotSet(nullptr); })},
        {VSS_E_BAD_STATE, kTooEarly, At(Phase::created, StartSet)},
        {VSS_E_SNAPSHOT_SET_IN_PROGRESS, "while another backup's set is under construction",
         At(Phase::gathered, StartBesideAnother)},
        {VSS_E_UNSUPPORTED_CONTEXT, "VSS_CTX_ALL", At(Phase::initialized, StartSet, static_cast<LONG>(VSS_CTX_ALL))}},
       kOftenFault}};
}

HostModel HostWithManyVolumes() {
  HostModel model = VssHost();
  for (int n = 10; n < 75; ++n) {
    const std::wstring folder = L"C:\\many\\" + std::to_wstring(n) + L"\\";
    model.disks.push_back(MakeDisk(L"MANY" + std::to_wstring(n), static_cast<DWORD>(n), folder));
    model.disks.back().volumes[0].name =
        L"\\\\?\\Volume{000000" + std::to_wstring(n) + L"-0000-0000-0000-000000000000}\\";
  }
  return model;
}
HostModel HostWithSystemProvider() {
  return HostWithProviders({kSystemProvider});
}

HRESULT AddManyVolumes(Backup& b) {
  HRESULT result = S_OK;
  for (int n = 10; n < 75 && result == S_OK; ++n) {
    result = b.AddVolume((L"C:\\many\\" + std::to_wstring(n) + L"\\").c_str());
  }
  return result;
}

Prepare AddOf(const wchar_t* volume, const GUID& provider = GUID{}, LONG context = VSS_CTX_BACKUP) {
  return At(
      Phase::initialized,
      [=](Backup& b) {
        Expect(StartSet(b), S_OK);
        return b.AddVolume(volume, provider);
      },
      context);
}

std::vector<DocumentedCall> VolumesOfTheSet() {
  return {
      {"IVssBackupComponents::AddToSnapshotSet",
       {{S_OK, "a volume of the host", AddOf(L"E:\\")},
        {E_INVALIDARG, "a name without a backslash at its end", AddOf(L"E:")},
        {VSS_E_BAD_STATE, "before StartSnapshotSet",
         At(Phase::gathered, [](Backup& b) { return b.AddVolume(L"E:\\"); })},
        {VSS_E_OBJECT_ALREADY_EXISTS, kTwice, At(Phase::setStarted, [](Backup& b) { return b.AddVolume(L"E:\\"); })},
        {VSS_E_OBJECT_NOT_FOUND, "a volume that the host does not have", AddOf(L"Q:\\")},
        {VSS_E_PROVIDER_NOT_REGISTERED, "a provider that the host does not have", AddOf(L"E:\\", kNoSuch)},
        {VSS_E_VOLUME_NOT_SUPPORTED, "a transportable context where no provider makes such copies",
         AddOf(L"E:\\", GUID{}, kTransportable), HostWithSystemProvider},
        {VSS_E_VOLUME_NOT_SUPPORTED_BY_PROVIDER, "the same, with the provider named",
         AddOf(L"E:\\", kSystem, kTransportable), HostWithSystemProvider},
        {VSS_E_MAXIMUM_NUMBER_OF_VOLUMES_REACHED, "the 65th volume", At(Phase::setStarted, AddManyVolumes),
         HostWithManyVolumes}},
       {E_ACCESSDENIED, E_OUTOFMEMORY, VSS_E_UNEXPECTED, VSS_E_MAXIMUM_NUMBER_OF_SNAPSHOTS_REACHED,
        VSS_E_NESTED_VOLUME_LIMIT, VSS_E_PROVIDER_VETO, VSS_E_SNAPSHOT_SET_IN_PROGRESS,
        VSS_E_UNEXPECTED_PROVIDER_ERROR}}};
}

HRESULT IsSupported(Backup& b, std::wstring volume, const GUID& provider = GUID{}) {
  BOOL supported = FALSE;
  return b->IsVolumeSupported(provider, volume.data(), &supported);
}

HRESULT AskQuery(Backup& b, VSS_OBJECT_TYPE type) {
  return b->Query(GUID{}, VSS_OBJECT_NONE, type, ComPtr<IVssEnumObject>().Put());
}

std::vector<DocumentedCall> Questions() {
  return {
      {"IVssBackupComponents::IsVolumeSupported",
       {{S_OK, "a volume of the host", At(Phase::initialized, [](Backup& b) { return IsSupported(b, L"E:\\"); })},
        {E_INVALIDARG, kNullResult,
         At(Phase::initialized, [](Backup& b) { return b->IsVolumeSupported(GUID{}, nullptr, nullptr); })},
        {VSS_E_BAD_STATE, kTooEarly, At(Phase::created, [](Backup& b) { return IsSupported(b, L"E:\\"); })},
        {VSS_E_OBJECT_NOT_FOUND, "a volume that the host does not have",
         At(Phase::initialized, [](Backup& b) { return IsSupported(b, L"Q:\\"); })},
        {VSS_E_PROVIDER_NOT_REGISTERED, "a provider that the host does not have",
         At(Phase::initialized, [](Backup& b) { return IsSupported(b, L"E:\\", kNoSuch); })}},
       {E_ACCESSDENIED, E_OUTOFMEMORY, VSS_E_UNEXPECTED, VSS_E_NESTED_VOLUME_LIMIT, VSS_E_UNEXPECTED_PROVIDER_ERROR}},
      {"IVssBackupComponents::Query",
       {{S_OK, "for providers or shadow copies, of which there are some",
         At(Phase::initialized, [](Backup& b) { return AskQuery(b, VSS_OBJECT_PROVIDER); })},
        {E_INVALIDARG, "for anything else",
         At(Phase::initialized, [](Backup& b) { return AskQuery(b, VSS_OBJECT_SNAPSHOT_SET); })},
        {VSS_E_BAD_STATE, kTooEarly, At(Phase::created, [](Backup& b) { return AskQuery(b, VSS_OBJECT_PROVIDER); })}},
       {S_FALSE, E_ACCESSDENIED, E_OUTOFMEMORY, VSS_E_UNEXPECTED, VSS_E_OBJECT_NOT_FOUND}},
      {"IVssBackupComponents::GetSnapshotProperties",
       {{S_OK, "a shadow copy of this machine",
         At(Phase::snapshotDone, [](Backup& b) { return b.PropertiesOf(b.copyIds.at(0)); })},
        {E_INVALIDARG, kNullResult,
         At(Phase::snapshotDone, [](Backup& b) { return b->GetSnapshotProperties(b.copyIds.at(0), nullptr); })},
        {VSS_E_BAD_STATE, kTooEarly, At(Phase::created, [](Backup& b) { return b.PropertiesOf(kNoSuch); })},
        {VSS_E_OBJECT_NOT_FOUND, "no shadow copy",
         At(Phase::snapshotDone, [](Backup& b) { return b.PropertiesOf(kNoSuch); })}},
       {E_ACCESSDENIED, E_OUTOFMEMORY, VSS_E_UNEXPECTED, VSS_E_PROVIDER_VETO, VSS_E_UNEXPECTED_PROVIDER_ERROR}},
  };
}

HostModel HostThatCannotDelete() {
  HostModel model = VssHost();
  model.faults.deletions = {{L"TSL0001", VSS_E_PROVIDER_VETO}};
  return model;
}

HRESULT BreakEx(Backup& b, const GUID& set, DWORD flags) {
  return b.As<IVssBackupComponentsEx2>()->BreakSnapshotSetEx(set, flags, ComPtr<IVssAsync>().Put());
}

std::vector<DocumentedCall> EndOfTheSet() {
  const std::vector<HRESULT> often = WithAccess(kOftenFault);
  const auto remove = [](Backup& b) { return b.Delete(b.setId, VSS_OBJECT_SNAPSHOT_SET); };
  const auto breakUp = [](Backup& b) { return b->BreakSnapshotSet(b.setId); };
  const auto breakEx = [](Backup& b) { return BreakEx(b, b.setId, 0); };
  return {
      {"IVssBackupComponents::AbortBackup",
       {{S_OK, "also when there is nothing to abort", At(Phase::prepared, [](Backup& b) { return b->AbortBackup(); })},
        {VSS_E_BAD_STATE, kTooEarly, At(Phase::created, [](Backup& b) { return b->AbortBackup(); })}},
       kOftenFault},
      {"IVssBackupComponents::DeleteSnapshots",
       {{S_OK, "a set or a shadow copy", At(Phase::snapshotDone, remove)},
        {E_INVALIDARG, "another type of object",
         At(Phase::snapshotDone, [](Backup& b) { return b.Delete(b.setId, VSS_OBJECT_PROVIDER); })},
        {VSS_E_OBJECT_NOT_FOUND, "none of this machine",
         At(Phase::snapshotDone, [](Backup& b) { return b.Delete(kNoSuch, VSS_OBJECT_SNAPSHOT_SET); })},
        {VSS_E_BAD_STATE, kTooEarly, At(Phase::created, remove)},
        {VSS_E_PROVIDER_VETO, "a `deleteShadowOf` entry", At(Phase::snapshotDone, remove), HostThatCannotDelete}},
       {E_ACCESSDENIED, E_OUTOFMEMORY, VSS_E_UNEXPECTED, VSS_E_UNEXPECTED_PROVIDER_ERROR}},
      {"IVssBackupComponents::BreakSnapshotSet",
       {{S_OK, "a set of a hardware provider", At(Phase::snapshotDone, breakUp)},
        {VSS_E_BAD_STATE, kTooEarly, At(Phase::created, breakUp)},
        {VSS_E_OBJECT_NOT_FOUND, "none of this machine",
         At(Phase::snapshotDone, [](Backup& b) { return b->BreakSnapshotSet(kNoSuch); })},
        {VSS_E_PROVIDER_VETO, "a set of the system provider", At(Phase::snapshotDone, breakUp),
         HostWithSystemProvider}},
       often},
      {"IVssBackupComponentsEx2::BreakSnapshotSetEx",
       {{S_OK, "a set of a hardware provider", At(Phase::snapshotDone, breakEx)},
        {E_INVALIDARG, "flags that exclude each other",
         At(Phase::snapshotDone, [](Backup& b) { return BreakEx(b, b.setId, 4 | 8); })},
        {VSS_E_BAD_STATE, kTooEarly, At(Phase::created, breakEx)},
        {VSS_E_OBJECT_NOT_FOUND, "none of this machine",
         At(Phase::snapshotDone, [](Backup& b) { return BreakEx(b, kNoSuch, 0); })},
        {VSS_E_PROVIDER_VETO, "a set of the system provider", At(Phase::snapshotDone, breakEx),
         HostWithSystemProvider}},
       {E_ACCESSDENIED, E_OUTOFMEMORY, VSS_E_UNEXPECTED, VSS_E_BREAK_REVERT_ID_FAILED}},
  };
}

}  // namespace

std::vector<DocumentedCall> BackupCalls() {
  std::vector<DocumentedCall> all;
  for (auto section : {Initialization, WriterLists, Selection, StartOfTheSet, VolumesOfTheSet, Questions, Operations,
                       Documents, EndOfTheSet}) {
    for (DocumentedCall& call : section()) all.push_back(std::move(call));
  }
  return all;
}

}  // namespace varnel::test
