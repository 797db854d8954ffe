// The calls of the objects that a backup hands out, and its asynchronous operations.
#include "tests/simulator/documented_codes.h"

namespace varnel::test {
namespace {

const std::vector<HRESULT> kMemory = {E_OUTOFMEMORY};
const std::vector<HRESULT> kXml = {E_OUTOFMEMORY, VSS_E_INVALID_XML_DOCUMENT};
const std::vector<HRESULT> kText = {E_OUTOFMEMORY, VSS_E_BAD_STATE, VSS_E_INVALID_XML_DOCUMENT};
const std::vector<HRESULT> kAccess = {E_ACCESSDENIED, E_OUTOFMEMORY, VSS_E_UNEXPECTED};

const char kThere[] = "there is one";
const char kBeyond[] = "an index beyond the last";
const Reached kAbsent{S_FALSE, "there is none", {}};

// ---- the components document ----

ComPtr<IVssWriterComponentsExt> WriterOf(Backup& backup) {
  ComPtr<IVssWriterComponentsExt> writer;
  Expect(backup->GetWriterComponents(0, writer.Put()), S_OK);
  return writer;
}
ComPtr<IVssComponentEx2> ComponentOf(Backup& backup) {
  return AddedComponent(backup, 0);
}

const Source<IVssWriterComponentsExt> kWriter{Phase::prepared, WriterOf};
const Source<IVssComponentEx2> kComponent{Phase::snapshotDone, ComponentOf};
const Source<IVssComponentEx2> kCompleted{Phase::complete, ComponentOf};

HRESULT ComponentAt(IVssWriterComponentsExt& writer, UINT index) {
  return writer.GetComponent(index, ComPtr<IVssComponent>().Put());
}

std::vector<DocumentedCall> WriterComponents() {
  return {
      Getter("IVssWriterComponents::GetComponentCount", kWriter, &IVssWriterComponents::GetComponentCount, kMemory),
      {"IVssWriterComponents::GetWriterInfo",
       {{S_OK, kThere,
         Of(kWriter,
            [](IVssWriterComponentsExt& writer) {
              GUID instance{};
              GUID id{};
              return writer.GetWriterInfo(&instance, &id);
            })},
        {E_INVALIDARG, kNullResult,
         Of(kWriter, [](IVssWriterComponentsExt& writer) { return writer.GetWriterInfo(nullptr, nullptr); })}},
       kMemory},
      {"IVssWriterComponents::GetComponent",
       {{S_OK, kThere, Of(kWriter, [](IVssWriterComponentsExt& writer) { return ComponentAt(writer, 0); })},
        {E_INVALIDARG, kNullResult,
         Of(kWriter, [](IVssWriterComponentsExt& writer) { return writer.GetComponent(0, nullptr); })},
        {VSS_E_OBJECT_NOT_FOUND, kBeyond,
         Of(kWriter, [](IVssWriterComponentsExt& writer) { return ComponentAt(writer, 100); })}},
       kMemory},
  };
}

std::vector<DocumentedCall> ComponentTexts() {
  const auto text = [](const char* name, auto get) { return Getter(name, kComponent, get, kText, kAbsent); };
  return {
      Getter("IVssComponent::GetLogicalPath", kComponent, &IVssComponent::GetLogicalPath,
             {S_FALSE, E_OUTOFMEMORY, VSS_E_INVALID_XML_DOCUMENT}),
      Getter("IVssComponent::GetComponentName", kComponent, &IVssComponent::GetComponentName, kXml),
      Getter("IVssComponent::GetComponentType", kComponent, &IVssComponent::GetComponentType, kXml),
      Getter("IVssComponent::GetBackupSucceeded", kCompleted, &IVssComponent::GetBackupSucceeded,
             {S_FALSE, VSS_E_INVALID_XML_DOCUMENT}, {S_OK, "after BackupComplete", {}}),
      text("IVssComponent::GetBackupMetadata", &IVssComponent::GetBackupMetadata),
      text("IVssComponent::GetRestoreMetadata", &IVssComponent::GetRestoreMetadata),
      text("IVssComponent::GetBackupStamp", &IVssComponent::GetBackupStamp),
      text("IVssComponent::GetPreviousBackupStamp", &IVssComponent::GetPreviousBackupStamp),
      text("IVssComponent::GetBackupOptions", &IVssComponent::GetBackupOptions),
      text("IVssComponent::GetRestoreOptions", &IVssComponent::GetRestoreOptions),
      text("IVssComponent::GetPreRestoreFailureMsg", &IVssComponent::GetPreRestoreFailureMsg),
      text("IVssComponent::GetPostRestoreFailureMsg", &IVssComponent::GetPostRestoreFailureMsg),
      text("IVssComponentEx::GetPrepareForBackupFailureMsg", &IVssComponentEx::GetPrepareForBackupFailureMsg),
      text("IVssComponentEx::GetPostSnapshotFailureMsg", &IVssComponentEx::GetPostSnapshotFailureMsg),
  };
}

HRESULT AskFailure(IVssComponentEx2& component, DWORD* reserved) {
  HRESULT failure{};
  HRESULT application{};
  return component.GetFailure(&failure, &application, Bstr().Put(), reserved);
}

// Lists that this component has no entries in.
template <class Call>
DocumentedCall NoEntry(const char* name, Call call) {
  return {name, {{VSS_E_OBJECT_NOT_FOUND, kBeyond, Of(kComponent, call)}}, kText};
}

std::vector<DocumentedCall> ComponentLists() {
  return {
      Getter("IVssComponent::GetPartialFileCount", kComponent, &IVssComponent::GetPartialFileCount, kText),
      NoEntry("IVssComponent::GetPartialFile",
              [](IVssComponentEx2& c) {
                return c.GetPartialFile(0, Bstr().Put(), Bstr().Put(), Bstr().Put(), Bstr().Put());
              }),
      Getter("IVssComponent::GetDifferencedFilesCount", kComponent, &IVssComponent::GetDifferencedFilesCount, kText),
      NoEntry("IVssComponent::GetDifferencedFile",
              [](IVssComponentEx2& c) {
                BOOL recursive = FALSE;
                FILETIME modified{};
                return c.GetDifferencedFile(0, Bstr().Put(), Bstr().Put(), &recursive, Bstr().Put(), &modified);
              }),
      Getter("IVssComponent::GetNewTargetCount", kComponent, &IVssComponent::GetNewTargetCount, kText),
      Getter("IVssComponent::GetDirectedTargetCount", kComponent, &IVssComponent::GetDirectedTargetCount, kText),
      Getter("IVssComponent::GetAlternateLocationMappingCount", kComponent,
             &IVssComponent::GetAlternateLocationMappingCount, kText),
      Getter("IVssComponent::GetRestoreSubcomponentCount", kComponent, &IVssComponent::GetRestoreSubcomponentCount,
             kText),
      NoEntry("IVssComponent::GetRestoreSubcomponent",
              [](IVssComponentEx2& c) {
                VssBool repair{};
                return c.GetRestoreSubcomponent(0, Bstr().Put(), Bstr().Put(), &repair);
              }),
      NoEntry("IVssComponent::GetNewTarget",
              [](IVssComponentEx2& c) { return c.GetNewTarget(0, ComPtr<IVssWMFiledesc>().Put()); }),
      NoEntry("IVssComponent::GetAlternateLocationMapping",
              [](IVssComponentEx2& c) { return c.GetAlternateLocationMapping(0, ComPtr<IVssWMFiledesc>().Put()); }),
  };
}

std::vector<DocumentedCall> ComponentFailures() {
  return {
      {"IVssComponentEx2::SetFailure",
       {{VSS_E_BAD_STATE, "from a requestor",
         Of(kComponent, [](IVssComponentEx2& c) { return c.SetFailure(S_OK, S_OK, nullptr, 0); })}},
       {S_OK, E_INVALIDARG, E_OUTOFMEMORY}},
      {"IVssComponentEx2::GetFailure",
       {{S_OK, "also when no failure is set",
         Of(kComponent,
            [](IVssComponentEx2& c) {
              DWORD reserved = 0;
              return AskFailure(c, &reserved);
            })},
        {E_INVALIDARG, kNullResult, Of(kComponent, [](IVssComponentEx2& c) { return AskFailure(c, nullptr); })}},
       {E_OUTOFMEMORY, VSS_E_BAD_STATE}},
  };
}

// ---- metadata ----

ComPtr<IVssExamineWriterMetadata> MetadataOf(Backup& backup) {
  GUID instance{};
  ComPtr<IVssExamineWriterMetadata> metadata;
  Expect(backup->GetWriterMetadata(0, &instance, metadata.Put()), S_OK);
  return metadata;
}
ComPtr<IVssWMComponent> MetadataComponentOf(Backup& backup) {
  ComPtr<IVssWMComponent> component;
  Expect(MetadataOf(backup)->GetComponent(0, component.Put()), S_OK);
  return component;
}
ComPtr<IVssWMFiledesc> FileOf(Backup& backup) {
  ComPtr<IVssWMFiledesc> file;
  Expect(MetadataComponentOf(backup)->GetFile(0, file.Put()), S_OK);
  return file;
}

const Source<IVssExamineWriterMetadata> kMetadata{Phase::gathered, MetadataOf};
const Source<IVssWMComponent> kDescribed{Phase::gathered, MetadataComponentOf};
const Source<IVssWMFiledesc> kFile{Phase::gathered, FileOf};

HostModel HostWithoutMethods() {
  HostModel model = VssHost();
  model.writers.at(0).restoreMethod.reset();
  return model;
}

HRESULT AskMethod(IVssExamineWriterMetadata& metadata) {
  VSS_RESTOREMETHOD_ENUM method{};
  VSS_WRITERRESTORE_ENUM restore{};
  VssBool reboot{};
  UINT mappings = 0;
  return metadata.GetRestoreMethod(&method, Bstr().Put(), Bstr().Put(), &restore, &reboot, &mappings);
}

HRESULT AskIdentity(IVssExamineWriterMetadata& metadata) {
  GUID id{};
  VSS_USAGE_TYPE usage{};
  VSS_SOURCE_TYPE source{};
  return metadata.GetIdentity(&id, &id, Bstr().Put(), &usage, &source);
}

HRESULT AskCounts(IVssExamineWriterMetadata& metadata) {
  UINT count = 0;
  return metadata.GetFileCounts(&count, &count, &count);
}

std::vector<DocumentedCall> Metadata() {
  using Examined = IVssExamineWriterMetadata;
  return {
      {"IVssExamineWriterMetadata::GetIdentity",
       {{S_OK, kThere, Of(kMetadata, AskIdentity)},
        {E_INVALIDARG, kNullResult,
         Of(kMetadata, [](Examined& m) { return m.GetIdentity(nullptr, nullptr, nullptr, nullptr, nullptr); })}},
       kXml},
      {"IVssExamineWriterMetadata::GetFileCounts",
       {{S_OK, kThere, Of(kMetadata, AskCounts)},
        {E_INVALIDARG, kNullResult,
         Of(kMetadata, [](Examined& m) { return m.GetFileCounts(nullptr, nullptr, nullptr); })}},
       kXml},
      {"IVssExamineWriterMetadata::GetComponent",
       {{S_OK, kThere, Of(kMetadata, [](Examined& m) { return m.GetComponent(0, ComPtr<IVssWMComponent>().Put()); })},
        {E_INVALIDARG, kNullResult, Of(kMetadata, [](Examined& m) { return m.GetComponent(0, nullptr); })},
        {VSS_E_OBJECT_NOT_FOUND, kBeyond,
         Of(kMetadata, [](Examined& m) { return m.GetComponent(100, ComPtr<IVssWMComponent>().Put()); })}},
       kXml},
      {"IVssExamineWriterMetadata::GetExcludeFile",
       {{VSS_E_OBJECT_NOT_FOUND, kBeyond,
         Of(kMetadata, [](Examined& m) { return m.GetExcludeFile(100, ComPtr<IVssWMFiledesc>().Put()); })},
        {E_INVALIDARG, kNullResult, Of(kMetadata, [](Examined& m) { return m.GetExcludeFile(0, nullptr); })}},
       kXml},
      {"IVssExamineWriterMetadata::GetRestoreMethod",
       {{S_OK, "the writer has one", Of(kMetadata, AskMethod)},
        {S_FALSE, "the writer has none", Of(kMetadata, AskMethod), HostWithoutMethods}},
       kXml},
      Getter("IVssExamineWriterMetadata::GetBackupSchema", kMetadata, &Examined::GetBackupSchema, kXml),
      Getter("IVssExamineWriterMetadata::SaveAsXML", kMetadata, &Examined::SaveAsXML, kXml),
  };
}

ComPtr<IVssExamineWriterMetadataEx2> LaterMetadataOf(Backup& backup) {
  ComPtr<IVssExamineWriterMetadataEx2> later;
  Expect(QueryFor(MetadataOf(backup).Get(), kIidVssExamineWriterMetadataEx2, later), S_OK);
  return later;
}
const Source<IVssExamineWriterMetadataEx2> kLater{Phase::gathered, LaterMetadataOf};

HRESULT AskLaterIdentity(IVssExamineWriterMetadataEx2& metadata) {
  GUID id{};
  VSS_USAGE_TYPE usage{};
  VSS_SOURCE_TYPE source{};
  return metadata.GetIdentityEx(&id, &id, Bstr().Put(), Bstr().Put(), &usage, &source);
}

std::vector<DocumentedCall> LaterMetadata() {
  using Later = IVssExamineWriterMetadataEx2;
  return {
      {"IVssExamineWriterMetadataEx::GetIdentityEx",
       {{S_OK, kThere, Of(kLater, AskLaterIdentity)},
        {E_INVALIDARG, kNullResult,
         Of(kLater, [](Later& m) { return m.GetIdentityEx(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr); })}},
       kXml},
      {"IVssExamineWriterMetadataEx2::GetVersion",
       {{S_OK, kThere,
         Of(kLater,
            [](Later& m) {
              DWORD major = 0;
              DWORD minor = 0;
              return m.GetVersion(&major, &minor);
            })},
        {E_INVALIDARG, kNullResult, Of(kLater, [](Later& m) { return m.GetVersion(nullptr, nullptr); })}},
       kXml},
      Getter("IVssExamineWriterMetadataEx2::GetExcludeFromSnapshotCount", kLater, &Later::GetExcludeFromSnapshotCount,
             kXml),
      {"IVssExamineWriterMetadataEx2::GetExcludeFromSnapshotFile",
       {{VSS_E_OBJECT_NOT_FOUND, kBeyond,
         Of(kLater, [](Later& m) { return m.GetExcludeFromSnapshotFile(100, ComPtr<IVssWMFiledesc>().Put()); })}},
       kXml},
      {"IVssExamineWriterMetadata::LoadFromXML",
       {{VSS_E_INVALID_XML_DOCUMENT, "a text that is no writer metadata document",
         Of(kLater, [](Later& m) { return m.LoadFromXML(Bstr(L"<A/>").Get()); })}},
       {S_OK, E_INVALIDARG, E_OUTOFMEMORY}},
  };
}

HRESULT AskInfo(IVssWMComponent& component) {
  PVSSCOMPONENTINFO info = nullptr;
  const HRESULT result = component.GetComponentInfo(&info);
  if (info != nullptr) Expect(component.FreeComponentInfo(info), S_OK);
  return result;
}

std::vector<DocumentedCall> DescribedComponents() {
  const auto file = [](UINT index) {
    return [=](IVssWMComponent& c) { return c.GetFile(index, ComPtr<IVssWMFiledesc>().Put()); };
  };
  return {
      {"IVssWMComponent::GetComponentInfo",
       {{S_OK, kThere, Of(kDescribed, AskInfo)},
        {E_INVALIDARG, kNullResult, Of(kDescribed, [](IVssWMComponent& c) { return c.GetComponentInfo(nullptr); })}},
       kXml},
      {"IVssWMComponent::GetFile",
       {{S_OK, kThere, Of(kDescribed, file(0))},
        {E_INVALIDARG, kNullResult, Of(kDescribed, [](IVssWMComponent& c) { return c.GetFile(0, nullptr); })},
        {VSS_E_OBJECT_NOT_FOUND, kBeyond, Of(kDescribed, file(100))}},
       kXml},
      {"IVssWMComponent::GetDatabaseFile",
       {{VSS_E_OBJECT_NOT_FOUND, "a component that is no database",
         Of(kDescribed,
            [](IVssWMComponent& c) {
              ComPtr<IVssWMFiledesc> found;
              return c.GetDatabaseFile(0, found.Put());
            })}},
       kXml},
      {"IVssWMComponent::GetDatabaseLogFile",
       {{VSS_E_OBJECT_NOT_FOUND, "a component that is no database",
         Of(kDescribed,
            [](IVssWMComponent& c) {
              ComPtr<IVssWMFiledesc> found;
              return c.GetDatabaseLogFile(0, found.Put());
            })}},
       kXml},
      Getter("IVssWMFiledesc::GetPath", kFile, &IVssWMFiledesc::GetPath, kXml),
      Getter("IVssWMFiledesc::GetFilespec", kFile, &IVssWMFiledesc::GetFilespec, kXml),
      Getter("IVssWMFiledesc::GetRecursive", kFile, &IVssWMFiledesc::GetRecursive, kXml),
      Getter("IVssWMFiledesc::GetAlternateLocation", kFile, &IVssWMFiledesc::GetAlternateLocation, kXml, kAbsent),
      Getter("IVssWMFiledesc::GetBackupTypeMask", kFile, &IVssWMFiledesc::GetBackupTypeMask, kXml),
  };
}

// ---- providers ----

ComPtr<IVssAdmin> AdminOf(Backup&) {
  ComPtr<IVssAdmin> admin;
  Expect(CurrentHost().vss().CoCreateInstance(kClsidVssCoordinator, nullptr, CLSCTX_ALL, kIidVssAdmin,
                                              reinterpret_cast<void**>(admin.Put())),
         S_OK);
  return admin;
}
ComPtr<IVssEnumObject> ProvidersOf(Backup& backup) {
  ComPtr<IVssEnumObject> providers;
  Expect(AdminOf(backup)->QueryProviders(providers.Put()), S_OK);
  return providers;
}

const Source<IVssAdmin> kAdmin{Phase::created, AdminOf};
const Source<IVssEnumObject> kProviders{Phase::created, ProvidersOf};

HRESULT AskNext(IVssEnumObject& providers) {
  VSS_OBJECT_PROP object{};
  ULONG fetched = 0;
  const HRESULT result = providers.Next(1, &object, &fetched);
  if (fetched == 1) {
    CurrentHost().vss().CoTaskMemFree(object.Obj.Prov.m_pwszProviderName);
    CurrentHost().vss().CoTaskMemFree(object.Obj.Prov.m_pwszProviderVersion);
  }
  return result;
}

std::vector<DocumentedCall> Providers() {
  using Enumerator = IVssEnumObject;
  const auto beyond = [](Enumerator& e) {
    Expect(e.Skip(100), S_FALSE);
    return AskNext(e);
  };
  return {
      {"IVssAdmin::QueryProviders",
       {{S_OK, kThere, Of(kAdmin, [](IVssAdmin& a) { return a.QueryProviders(ComPtr<Enumerator>().Put()); })},
        {E_INVALIDARG, kNullResult, Of(kAdmin, [](IVssAdmin& a) { return a.QueryProviders(nullptr); })}},
       {E_ACCESSDENIED, E_OUTOFMEMORY, E_UNEXPECTED, VSS_E_UNEXPECTED, VSS_E_OBJECT_NOT_FOUND, VSS_E_PROVIDER_VETO,
        VSS_E_UNEXPECTED_PROVIDER_ERROR}},
      {"IVssEnumObject::Next",
       {{S_OK, "as many as asked for", Of(kProviders, AskNext)},
        {S_FALSE, "fewer than asked for", Of(kProviders, beyond)},
        {E_POINTER, kNullResult, Of(kProviders, [](Enumerator& e) { return e.Next(1, nullptr, nullptr); })}},
       {E_FAIL}},
      {"IVssEnumObject::Skip",
       {{S_OK, "no more than there are", Of(kProviders, [](Enumerator& e) { return e.Skip(1); })},
        {S_FALSE, "more than there are", Of(kProviders, [](Enumerator& e) { return e.Skip(100); })}},
       {}},
      {"IVssEnumObject::Reset", {{S_OK, "always", Of(kProviders, [](Enumerator& e) { return e.Reset(); })}}, {}},
      {"IVssEnumObject::Clone",
       {{S_OK, "always", Of(kProviders, [](Enumerator& e) { return e.Clone(ComPtr<Enumerator>().Put()); })},
        {E_POINTER, kNullResult, Of(kProviders, [](Enumerator& e) { return e.Clone(nullptr); })}},
       {}},
  };
}

// ---- asynchronous operations ----

HostModel SlowHost() {
  HostModel model = VssHost();
  model.freezeMilliseconds = 1000;
  return model;
}
HostModel HostThatHoldsTooLong() {
  HostModel model = VssHost();
  model.commitMilliseconds = 10001;
  return model;
}

// "sales", which is added, has a database of which the log lies elsewhere.
HostModel HostWithTornDatabase() {
  HostModel model = VssHost();
  simulator::WriterComponent database = MakeComponent(L"SQL01\\sales", L"data", {});
  database.type = VSS_CT_DATABASE;
  database.databaseFiles = {{L"E:\\data", L"sales.mdf"}};
  database.logFiles = {{L"F:\\log", L"sales.ldf"}};
  model.writers.at(0).components.push_back(std::move(database));
  return model;
}
HostModel HostWithImpatientWriter() {
  HostModel model = SlowHost();
  model.writers.at(0).timeoutMilliseconds = 999;
  return model;
}
HostModel HostWithHangingWriter() {
  HostModel model = VssHost();
  simulator::WriterFault fault{L"SqlServerWriter", WriterEvent::postSnapshot, S_OK, S_OK, L"", {}};
  fault.hangs = true;
  model.faults.writers.push_back(std::move(fault));
  return model;
}

ComPtr<IVssAsync> SnapshotOf(Backup& backup) {
  ComPtr<IVssAsync> async;
  Expect(backup->DoSnapshotSet(async.Put()), S_OK);
  return async;
}
const Source<IVssAsync> kSnapshot{Phase::prepared, SnapshotOf};

std::vector<DocumentedCall> AsyncCalls() {
  const auto cancelTwice = [](IVssAsync& async) {
    Expect(async.Cancel(), S_OK);
    return async.Cancel();
  };
  const auto ask = [](IVssAsync& async) {
    HRESULT status = S_OK;
    return async.QueryStatus(&status, nullptr);
  };
  return {
      {"IVssAsync::Wait",
       {{S_OK, "also when the time is up", Of(kSnapshot, [](IVssAsync& async) { return async.Wait(1); })}},
       {E_ACCESSDENIED, E_INVALIDARG, VSS_E_UNEXPECTED, VSS_E_HOLD_WRITES_TIMEOUT}},
      {"IVssAsync::QueryStatus",
       {{S_OK, "always", Of(kSnapshot, ask)},
        {E_INVALIDARG, kNullResult,
         Of(kSnapshot, [](IVssAsync& async) { return async.QueryStatus(nullptr, nullptr); })}},
       kAccess},
      {"IVssAsync::Cancel",
       {{S_OK, "before the end of the operation", Of(kSnapshot, [](IVssAsync& async) { return async.Cancel(); }),
         SlowHost},
        {VSS_S_ASYNC_CANCELLED, "a second time", Of(kSnapshot, cancelTwice), SlowHost},
        {VSS_S_ASYNC_FINISHED, "after the end", Of(kSnapshot, [](IVssAsync& async) { return async.Cancel(); })}},
       kAccess},
  };
}

HRESULT StatusOf(IVssAsync& async) {
  HRESULT status = E_UNEXPECTED;
  Expect(async.QueryStatus(&status, nullptr), S_OK);
  return status;
}

DocumentedAsync Operation(const char* name, Phase turn, Start start, std::vector<HRESULT> byFault) {
  return {name, {{VSS_S_ASYNC_FINISHED, "it does well", At(turn, [=](Backup& b) { return b.Run(start); })}}, byFault};
}

}  // namespace

std::vector<DocumentedAsync> Asyncs() {
  const auto cancelled = [](IVssAsync& async) {
    Expect(async.Cancel(), S_OK);
    return StatusOf(async);
  };
  const auto run = [](Backup& b) { return b.Snapshot(); };
  DocumentedAsync snapshot{
      "DoSnapshotSet",
      {{VSS_S_ASYNC_FINISHED, "it does well", At(Phase::prepared, run)},
       {VSS_S_ASYNC_PENDING, "before its end (`timing`)", Of(kSnapshot, StatusOf), SlowHost},
       {VSS_S_ASYNC_CANCELLED, "`Cancel` before its end", Of(kSnapshot, cancelled), SlowHost},
       {VSS_E_HOLD_WRITES_TIMEOUT, "`commitMilliseconds` above 10,000", At(Phase::prepared, run),
        HostThatHoldsTooLong}},
      {VSS_E_INSUFFICIENT_STORAGE, VSS_E_FLUSH_WRITES_TIMEOUT, VSS_E_NESTED_VOLUME_LIMIT, VSS_E_PROVIDER_VETO,
       VSS_E_REBOOT_REQUIRED, VSS_E_TRANSACTION_FREEZE_TIMEOUT, VSS_E_TRANSACTION_THAW_TIMEOUT, VSS_E_UNEXPECTED,
       VSS_E_UNEXPECTED_PROVIDER_ERROR, E_OUTOFMEMORY}};
  const std::vector<HRESULT> others = {VSS_S_ASYNC_PENDING, VSS_S_ASYNC_CANCELLED, E_OUTOFMEMORY, VSS_E_UNEXPECTED};
  return {Operation("GatherWriterMetadata", Phase::initialized, &IVssBackupComponents::GatherWriterMetadata, others),
          Operation("PrepareForBackup", Phase::setStarted, &IVssBackupComponents::PrepareForBackup, others),
          std::move(snapshot),
          Operation("GatherWriterStatus", Phase::prepared, &IVssBackupComponents::GatherWriterStatus, others),
          Operation("BackupComplete", Phase::snapshotDone, &IVssBackupComponents::BackupComplete, others)};
}

std::vector<Reached> WriterFailures() {
  const auto failure = At(Phase::snapshotDone, [](Backup& b) { return b.Statuses().at(0).failure; });
  return {{VSS_E_WRITERERROR_INCONSISTENTSNAPSHOT, "a selected database with a file on no volume of the set", failure,
           HostWithTornDatabase},
          {VSS_E_WRITERERROR_TIMEOUT, "`freezeMilliseconds` above 60,000 or its `timeoutMilliseconds`", failure,
           HostWithImpatientWriter},
          {VSS_E_WRITER_NOT_RESPONDING, "a `writer` that hangs in another event than Freeze", failure,
           HostWithHangingWriter}};
}

std::vector<DocumentedCall> ObjectCalls() {
  std::vector<DocumentedCall> all;
  for (auto section : {WriterComponents, ComponentTexts, ComponentLists, ComponentFailures, AsyncCalls, Metadata,
                       LaterMetadata, DescribedComponents, Providers}) {
    for (DocumentedCall& call : section()) all.push_back(std::move(call));
  }
  return all;
}

}  // namespace varnel::test
