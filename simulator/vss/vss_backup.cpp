#include "simulator/vss/vss_backup.h"

#include "simulator/vss/backup_session.h"
#include "simulator/vss/com_object.h"
#include "simulator/vss/snapshot_service.h"
#include "simulator/vss/vss_enum.h"
#include "simulator/vss/vss_metadata.h"
#include "text/unicode.h"

namespace varnel::simulator {
namespace {

constexpr GUID kBackupInterfaces[] = {kIidVssBackupComponents, kIidVssBackupComponentsEx, kIidVssBackupComponentsEx2,
                                      kIidVssBackupComponentsEx3, kIidVssBackupComponentsEx4};

std::string IdListText(const VSS_ID* ids, UINT count) {
  if (ids == nullptr) return "null";
  std::string text;
  for (UINT i = 0; i < count; ++i) text += (i == 0 ? "" : ", ") + ArgumentText(ids[i]);
  return "[" + text + "]";
}

std::string DocumentText(BSTR xml) {
  return xml == nullptr ? "null" : std::to_string(::SysStringLen(xml)) + " characters";
}

// Renders an identifier that the call made.
auto MadeId(const GUID& id) {
  return [&id] { return "-> " + ArgumentText(id); };
}

// What has no part in backups, restores and the making of snapshots is E_NOTIMPL.
class BackupComponents final : public ComObject<IVssBackupComponentsEx4> {
 public:
  explicit BackupComponents(std::shared_ptr<Machine> machine)
      : ComObject(std::move(machine), "IVssBackupComponents", kBackupInterfaces), session_(sharedMachine()) {}

  HRESULT STDMETHODCALLTYPE GetWriterComponentsCount(UINT* components) override {
    return Count("IVssBackupComponents::GetWriterComponentsCount", components,
                 &BackupSession::GetWriterComponentsCount);
  }
  HRESULT STDMETHODCALLTYPE GetWriterComponents(UINT index, IVssWriterComponentsExt** writer) override {
    Clear(writer);
    return Call("IVssBackupComponents::GetWriterComponents", Arguments(index),
                [&] { return session_.GetWriterComponents(index, writer); });
  }
  HRESULT STDMETHODCALLTYPE InitializeForBackup(BSTR xml) override {
    return Call(
        "IVssBackupComponents::InitializeForBackup", [&] { return DocumentText(xml); },
        [&] { return session_.InitializeForBackup(xml); });
  }
  HRESULT STDMETHODCALLTYPE SetBackupState(VssBool selectComponents, VssBool bootableSystemState, VSS_BACKUP_TYPE type,
                                           VssBool partialFiles) override {
    return Call("IVssBackupComponents::SetBackupState",
                Arguments(selectComponents, bootableSystemState, type, partialFiles), [&] {
                  return session_.SetBackupState(selectComponents != 0, bootableSystemState != 0, type,
                                                 partialFiles != 0);
                });
  }
  HRESULT STDMETHODCALLTYPE InitializeForRestore(BSTR xml) override {
    return Call(
        "IVssBackupComponents::InitializeForRestore", [&] { return DocumentText(xml); },
        [&] { return session_.InitializeForRestore(xml); });
  }
  HRESULT STDMETHODCALLTYPE SetRestoreState(VSS_RESTORE_TYPE type) override {
    return Call("IVssBackupComponents::SetRestoreState", Arguments(type),
                [&] { return session_.SetRestoreState(type); });
  }
  HRESULT STDMETHODCALLTYPE GatherWriterMetadata(IVssAsync** async) override {
    return StartOperation("IVssBackupComponents::GatherWriterMetadata", async, &BackupSession::GatherWriterMetadata);
  }
  HRESULT STDMETHODCALLTYPE GetWriterMetadataCount(UINT* writers) override {
    return Count("IVssBackupComponents::GetWriterMetadataCount", writers, &BackupSession::GetWriterMetadataCount);
  }
  HRESULT STDMETHODCALLTYPE GetWriterMetadata(UINT index, VSS_ID* instance,
                                              IVssExamineWriterMetadata** metadata) override {
    return GiveMetadata("IVssBackupComponents::GetWriterMetadata", index, instance, metadata);
  }
  HRESULT STDMETHODCALLTYPE FreeWriterMetadata() override {
    return Call("IVssBackupComponents::FreeWriterMetadata", NoArguments, [&] { return session_.FreeWriterMetadata(); });
  }
  HRESULT STDMETHODCALLTYPE AddComponent(VSS_ID instance, VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR logicalPath,
                                         LPCWSTR name) override {
    const ComponentName component{instance, writer, type, logicalPath, name};
    return Call("IVssBackupComponents::AddComponent", Arguments(instance, writer, type, logicalPath, name),
                [&] { return session_.AddComponent(component); });
  }
  HRESULT STDMETHODCALLTYPE PrepareForBackup(IVssAsync** async) override {
    return StartOperation("IVssBackupComponents::PrepareForBackup", async, &BackupSession::PrepareForBackup);
  }
  HRESULT STDMETHODCALLTYPE AbortBackup() override {
    return Call("IVssBackupComponents::AbortBackup", NoArguments, [&] { return session_.AbortBackup(); });
  }
  HRESULT STDMETHODCALLTYPE GatherWriterStatus(IVssAsync** async) override {
    return StartOperation("IVssBackupComponents::GatherWriterStatus", async, &BackupSession::GatherWriterStatus);
  }
  HRESULT STDMETHODCALLTYPE GetWriterStatusCount(UINT* writers) override {
    return Count("IVssBackupComponents::GetWriterStatusCount", writers, &BackupSession::GetWriterStatusCount);
  }
  HRESULT STDMETHODCALLTYPE FreeWriterStatus() override {
    return Call("IVssBackupComponents::FreeWriterStatus", NoArguments, [&] { return session_.FreeWriterStatus(); });
  }
  HRESULT STDMETHODCALLTYPE GetWriterStatus(UINT index, VSS_ID* instance, VSS_ID* writer, BSTR* name,
                                            VSS_WRITER_STATE* state, HRESULT* failure) override {
    Clear(name);
    return Call("IVssBackupComponents::GetWriterStatus", Arguments(index), [&] {
      const ReportedWriter* reported = nullptr;
      return GiveStatus(index, instance, writer, name, state, failure, reported);
    });
  }
  HRESULT STDMETHODCALLTYPE SetBackupSucceeded(VSS_ID instance, VSS_ID writer, VSS_COMPONENT_TYPE type,
                                               LPCWSTR logicalPath, LPCWSTR name, VssBool succeeded) override {
    const ComponentName component{instance, writer, type, logicalPath, name};
    return Call("IVssBackupComponents::SetBackupSucceeded",
                Arguments(instance, writer, type, logicalPath, name, succeeded),
                [&] { return session_.SetBackupSucceeded(component, succeeded != 0); });
  }
  HRESULT STDMETHODCALLTYPE SetBackupOptions(VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR logicalPath, LPCWSTR name,
                                             LPCWSTR options) override {
    const ComponentName component{{}, writer, type, logicalPath, name};
    return Call(
        "IVssBackupComponents::SetBackupOptions", Arguments(GUID{}, writer, type, logicalPath, name, options), [&] {
          return SetText(&BackupSession::ChangeForBackup, component, options, &DocumentComponent::backupOptions);
        });
  }
  HRESULT STDMETHODCALLTYPE SetSelectedForRestore(VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR logicalPath,
                                                  LPCWSTR name, VssBool selected) override {
    const ComponentName component{{}, writer, type, logicalPath, name};
    return Call("IVssBackupComponents::SetSelectedForRestore", Arguments(writer, type, logicalPath, name, selected),
                [&] { return session_.SetSelectedForRestore(component, selected != 0, GUID{}); });
  }
  HRESULT STDMETHODCALLTYPE SetRestoreOptions(VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR logicalPath, LPCWSTR name,
                                              LPCWSTR options) override {
    const ComponentName component{{}, writer, type, logicalPath, name};
    return Call("IVssBackupComponents::SetRestoreOptions", Arguments(writer, type, logicalPath, name, options), [&] {
      return SetText(&BackupSession::ChangeForRestore, component, options, &DocumentComponent::restoreOptions);
    });
  }
  HRESULT STDMETHODCALLTYPE SetAdditionalRestores(VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR logicalPath,
                                                  LPCWSTR name, VssBool additional) override {
    const ComponentName component{{}, writer, type, logicalPath, name};
    return Call(
        "IVssBackupComponents::SetAdditionalRestores", Arguments(writer, type, logicalPath, name, additional), [&] {
          return session_.ChangeForRestore(
              component, [&](DocumentComponent& restored) { restored.restore.additionalRestores = additional != 0; });
        });
  }
  HRESULT STDMETHODCALLTYPE SetPreviousBackupStamp(VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR logicalPath,
                                                   LPCWSTR name, LPCWSTR stamp) override {
    const ComponentName component{{}, writer, type, logicalPath, name};
    return Call(
        "IVssBackupComponents::SetPreviousBackupStamp", Arguments(GUID{}, writer, type, logicalPath, name, stamp), [&] {
          return SetText(&BackupSession::ChangeForBackup, component, stamp, &DocumentComponent::previousBackupStamp);
        });
  }
  HRESULT STDMETHODCALLTYPE SaveAsXML(BSTR* xml) override {
    Clear(xml);
    return Call("IVssBackupComponents::SaveAsXML", NoArguments, [&] {
      if (xml == nullptr) return E_INVALIDARG;
      std::string document;
      const HRESULT result = session_.SaveAsXML(document);
      return FAILED(result) ? result : GiveText(machine(), Utf8ToWideLossy(document), xml);
    });
  }
  HRESULT STDMETHODCALLTYPE BackupComplete(IVssAsync** async) override {
    return StartOperation("IVssBackupComponents::BackupComplete", async, &BackupSession::BackupComplete);
  }
  HRESULT STDMETHODCALLTYPE AddAlternativeLocationMapping(VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR logicalPath,
                                                          LPCWSTR name, LPCWSTR path, LPCWSTR filespec,
                                                          VssBool recursive, LPCWSTR destination) override {
    return AddTarget("IVssBackupComponents::AddAlternativeLocationMapping", {{}, writer, type, logicalPath, name},
                     {path, filespec, recursive, destination}, &ComponentRestore::alternateLocations);
  }
  HRESULT STDMETHODCALLTYPE AddRestoreSubcomponent(VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR logicalPath,
                                                   LPCWSTR name, LPCWSTR partPath, LPCWSTR partName,
                                                   VssBool repair) override {
    const ComponentName component{{}, writer, type, logicalPath, name};
    return Call("IVssBackupComponents::AddRestoreSubcomponent",
                Arguments(writer, type, logicalPath, name, partPath, partName, repair), [&] {
                  if (partName == nullptr || repair != 0) return E_INVALIDARG;
                  RestoreSubcomponent part{std::nullopt, partName};
                  if (partPath != nullptr) part.logicalPath = partPath;
                  return session_.ChangeForRestore(
                      component, [&](DocumentComponent& restored) { restored.restore.subcomponents.push_back(part); });
                });
  }
  HRESULT STDMETHODCALLTYPE SetFileRestoreStatus(VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR logicalPath,
                                                 LPCWSTR name, VSS_FILE_RESTORE_STATUS status) override {
    const ComponentName component{{}, writer, type, logicalPath, name};
    return Call("IVssBackupComponents::SetFileRestoreStatus", Arguments(writer, type, logicalPath, name, status),
                [&] { return session_.SetFileRestoreStatus(component, status); });
  }
  HRESULT STDMETHODCALLTYPE AddNewTarget(VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR logicalPath, LPCWSTR name,
                                         LPCWSTR path, LPCWSTR filespec, VssBool recursive, LPCWSTR target) override {
    return AddTarget("IVssBackupComponents::AddNewTarget", {{}, writer, type, logicalPath, name},
                     {path, filespec, recursive, target}, &ComponentRestore::newTargets);
  }
  HRESULT STDMETHODCALLTYPE SetRangesFilePath(VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, UINT, LPCWSTR) override {
    return Unsupported("::SetRangesFilePath");
  }
  HRESULT STDMETHODCALLTYPE PreRestore(IVssAsync** async) override {
    return StartOperation("IVssBackupComponents::PreRestore", async, &BackupSession::PreRestore);
  }
  HRESULT STDMETHODCALLTYPE PostRestore(IVssAsync** async) override {
    return StartOperation("IVssBackupComponents::PostRestore", async, &BackupSession::PostRestore);
  }
  HRESULT STDMETHODCALLTYPE SetContext(LONG context) override {
    return Call("IVssBackupComponents::SetContext", Arguments(context), [&] { return session_.SetContext(context); });
  }
  HRESULT STDMETHODCALLTYPE StartSnapshotSet(VSS_ID* setId) override {
    GUID made{};
    return Call("IVssBackupComponents::StartSnapshotSet", MadeId(made), [&] {
      const HRESULT result = session_.StartSnapshotSet(setId);
      if (SUCCEEDED(result)) made = *setId;
      return result;
    });
  }
  HRESULT STDMETHODCALLTYPE AddToSnapshotSet(VSS_PWSZ volume, VSS_ID provider, VSS_ID* copyId) override {
    GUID made{};
    return Call(
        "IVssBackupComponents::AddToSnapshotSet",
        [&] { return ArgumentList(volume, provider) + " -> " + ArgumentText(made); },
        [&] {
          const HRESULT result = session_.AddToSnapshotSet(volume, provider, copyId);
          if (SUCCEEDED(result)) made = *copyId;
          return result;
        });
  }
  HRESULT STDMETHODCALLTYPE DoSnapshotSet(IVssAsync** async) override {
    return StartOperation("IVssBackupComponents::DoSnapshotSet", async, &BackupSession::DoSnapshotSet);
  }
  HRESULT STDMETHODCALLTYPE DeleteSnapshots(VSS_ID id, VSS_OBJECT_TYPE type, BOOL force, LONG* deleted,
                                            VSS_ID* notDeleted) override {
    LONG count = 0;
    GUID left{};
    return Call(
        "IVssBackupComponents::DeleteSnapshots",
        [&] {
          return ArgumentList(id, type, force) + " -> " + std::to_string(count) +
                 (left == GUID{} ? "" : ", not " + ArgumentText(left));
        },
        [&] {
          if (deleted == nullptr || notDeleted == nullptr) return E_INVALIDARG;
          const HRESULT result = session_.DeleteSnapshots(id, type, count, left);
          *deleted = count;
          *notDeleted = left;
          return result;
        });
  }
  HRESULT STDMETHODCALLTYPE ImportSnapshots(IVssAsync** async) override {
    return StartOperation("IVssBackupComponents::ImportSnapshots", async, &BackupSession::ImportSnapshots);
  }
  HRESULT STDMETHODCALLTYPE BreakSnapshotSet(VSS_ID setId) override {
    return Call("IVssBackupComponents::BreakSnapshotSet", Arguments(setId),
                [&] { return session_.BreakSnapshotSet(setId); });
  }
  HRESULT STDMETHODCALLTYPE GetSnapshotProperties(VSS_ID copyId, VSS_SNAPSHOT_PROP* properties) override {
    return Call("IVssBackupComponents::GetSnapshotProperties", Arguments(copyId), [&] {
      if (properties == nullptr) return E_INVALIDARG;
      const ShadowCopy* copy = nullptr;
      const HRESULT result = session_.GetSnapshotProperties(copyId, copy);
      if (SUCCEEDED(result)) FillProperties(machine(), *copy, *properties);
      return result;
    });
  }
  HRESULT STDMETHODCALLTYPE Query(VSS_ID id, VSS_OBJECT_TYPE queriedType, VSS_OBJECT_TYPE returnedType,
                                  IVssEnumObject** enumerator) override {
    Clear(enumerator);
    return Call("IVssBackupComponents::Query", Arguments(id, queriedType, returnedType), [&] {
      const bool known = returnedType == VSS_OBJECT_PROVIDER || returnedType == VSS_OBJECT_SNAPSHOT;
      if (enumerator == nullptr || id != GUID{} || queriedType != VSS_OBJECT_NONE || !known) return E_INVALIDARG;
      return MakeQuery(returnedType, enumerator);
    });
  }
  HRESULT STDMETHODCALLTYPE IsVolumeSupported(VSS_ID provider, VSS_PWSZ volume, BOOL* supported) override {
    return Call("IVssBackupComponents::IsVolumeSupported", Arguments(provider, volume),
                [&] { return session_.IsVolumeSupported(provider, volume, supported); });
  }
  HRESULT STDMETHODCALLTYPE DisableWriterClasses(const VSS_ID* ids, UINT count) override {
    return SelectWriters("IVssBackupComponents::DisableWriterClasses", ids, count, &WriterSession::DisableClasses);
  }
  HRESULT STDMETHODCALLTYPE EnableWriterClasses(const VSS_ID* ids, UINT count) override {
    return SelectWriters("IVssBackupComponents::EnableWriterClasses", ids, count, &WriterSession::EnableClasses);
  }
  HRESULT STDMETHODCALLTYPE DisableWriterInstances(const VSS_ID* ids, UINT count) override {
    return SelectWriters("IVssBackupComponents::DisableWriterInstances", ids, count, &WriterSession::DisableInstances);
  }
  HRESULT STDMETHODCALLTYPE ExposeSnapshot(VSS_ID copyId, VSS_PWSZ pathFromRoot, LONG where, VSS_PWSZ name,
                                           VSS_PWSZ* exposed) override {
    Clear(exposed);
    std::wstring exposedName;
    return Call(
        "IVssBackupComponents::ExposeSnapshot",
        [&] { return ArgumentList(copyId, pathFromRoot, where, name) + " -> " + ArgumentText(exposedName.c_str()); },
        [&] {
          if (exposed == nullptr) return E_INVALIDARG;
          const HRESULT result = session_.ExposeSnapshot(copyId, pathFromRoot, where, name, exposedName);
          if (SUCCEEDED(result)) *exposed = machine().MakeTaskText(exposedName);
          return result;
        });
  }
  HRESULT STDMETHODCALLTYPE RevertToSnapshot(VSS_ID, BOOL) override { return Unsupported("::RevertToSnapshot"); }
  HRESULT STDMETHODCALLTYPE QueryRevertStatus(VSS_PWSZ, IVssAsync** async) override {
    return Unsupported("::QueryRevertStatus", async);
  }

  HRESULT STDMETHODCALLTYPE GetWriterMetadataEx(UINT index, VSS_ID* instance,
                                                IVssExamineWriterMetadataEx** metadata) override {
    return GiveMetadata("IVssBackupComponentsEx::GetWriterMetadataEx", index, instance, metadata);
  }
  HRESULT STDMETHODCALLTYPE SetSelectedForRestoreEx(VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR logicalPath,
                                                    LPCWSTR name, VssBool selected, VSS_ID instance) override {
    const ComponentName component{{}, writer, type, logicalPath, name};
    return Call("IVssBackupComponentsEx::SetSelectedForRestoreEx",
                Arguments(writer, type, logicalPath, name, selected, instance),
                [&] { return session_.SetSelectedForRestore(component, selected != 0, instance); });
  }

  HRESULT STDMETHODCALLTYPE UnexposeSnapshot(VSS_ID copyId) override {
    return Call("IVssBackupComponentsEx2::UnexposeSnapshot", Arguments(copyId),
                [&] { return session_.UnexposeSnapshot(copyId); });
  }
  HRESULT STDMETHODCALLTYPE SetAuthoritativeRestore(VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, VssBool) override {
    return Unsupported("Ex2::SetAuthoritativeRestore");
  }
  HRESULT STDMETHODCALLTYPE SetRollForward(VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, VSS_ROLLFORWARD_TYPE,
                                           LPCWSTR) override {
    return Unsupported("Ex2::SetRollForward");
  }
  HRESULT STDMETHODCALLTYPE SetRestoreName(VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, LPCWSTR) override {
    return Unsupported("Ex2::SetRestoreName");
  }
  HRESULT STDMETHODCALLTYPE BreakSnapshotSetEx(VSS_ID setId, DWORD flags, IVssAsync** async) override {
    Clear(async);
    return Call("IVssBackupComponentsEx2::BreakSnapshotSetEx", Arguments(setId, flags),
                [&] { return session_.BreakSnapshotSetEx(setId, flags, async); });
  }
  HRESULT STDMETHODCALLTYPE PreFastRecovery(VSS_ID, DWORD, IVssAsync** async) override {
    return Unsupported("Ex2::PreFastRecovery", async);
  }
  HRESULT STDMETHODCALLTYPE FastRecovery(VSS_ID, DWORD, IVssAsync** async) override {
    return Unsupported("Ex2::FastRecovery", async);
  }

  HRESULT STDMETHODCALLTYPE GetWriterStatusEx(UINT index, VSS_ID* instance, VSS_ID* writer, BSTR* name,
                                              VSS_WRITER_STATE* state, HRESULT* failure, HRESULT* applicationResult,
                                              BSTR* applicationMessage) override {
    Clear(name);
    Clear(applicationMessage);
    return Call("IVssBackupComponentsEx3::GetWriterStatusEx", Arguments(index), [&] {
      const ReportedWriter* reported = nullptr;
      const HRESULT result = GiveStatus(index, instance, writer, name, state, failure, reported);
      if (FAILED(result)) return result;
      if (applicationResult != nullptr) *applicationResult = reported->status.applicationResult;
      if (applicationMessage != nullptr) {
        GiveText(machine(), reported->status.applicationMessage, applicationMessage);
      }
      return S_OK;
    });
  }
  HRESULT STDMETHODCALLTYPE AddSnapshotToRecoverySet(VSS_ID, DWORD, VSS_PWSZ) override {
    return Unsupported("Ex3::AddSnapshotToRecoverySet");
  }
  HRESULT STDMETHODCALLTYPE RecoverSet(DWORD, IVssAsync** async) override {
    return Unsupported("Ex3::RecoverSet", async);
  }
  HRESULT STDMETHODCALLTYPE GetSessionId(VSS_ID* session) override {
    return Call("IVssBackupComponentsEx3::GetSessionId", NoArguments, [&] {
      if (session == nullptr) return E_INVALIDARG;
      if (!session_.IsInitialized()) return VSS_E_BAD_STATE;
      *session = session_.id();
      return S_OK;
    });
  }

  HRESULT STDMETHODCALLTYPE GetRootAndLogicalPrefixPaths(VSS_PWSZ, VSS_PWSZ* rootPath, VSS_PWSZ* logicalPrefix,
                                                         BOOL) override {
    return Unsupported("Ex4::GetRootAndLogicalPrefixPaths", rootPath, logicalPrefix);
  }

 private:
  ~BackupComponents() override = default;

  using Change = HRESULT (BackupSession::*)(const ComponentName&, const BackupSession::ComponentChange&);

  HRESULT SetText(Change change, const ComponentName& component, LPCWSTR text,
                  std::optional<std::wstring> DocumentComponent::*field) {
    if (text == nullptr) return E_INVALIDARG;
    return (session_.*change)(component, [&](DocumentComponent& changed) { changed.*field = text; });
  }

  // Where files of a component go in place of where they came from.
  struct Target {
    LPCWSTR path;
    LPCWSTR filespec;
    VssBool recursive;
    LPCWSTR destination;
  };
  HRESULT AddTarget(std::string_view call, const ComponentName& component, const Target& target,
                    std::vector<FileSpec> ComponentRestore::*list) {
    return Call(call,
                Arguments(component.writerId, component.type, component.logicalPath, component.name, target.path,
                          target.filespec, target.recursive, target.destination),
                [&] {
                  if (target.path == nullptr || target.filespec == nullptr || target.destination == nullptr) {
                    return E_INVALIDARG;
                  }
                  return session_.ChangeForRestore(component, [&](DocumentComponent& restored) {
                    (restored.restore.*list)
                        .push_back({target.path, target.filespec, target.recursive != 0, target.destination});
                  });
                });
  }

  // A call whose only argument is the operation that it starts.
  HRESULT StartOperation(std::string_view call, IVssAsync** async, HRESULT (BackupSession::*start)(IVssAsync**)) {
    Clear(async);
    return Call(call, NoArguments, [&] { return (session_.*start)(async); });
  }

  HRESULT Count(std::string_view call, UINT* count, HRESULT (BackupSession::*get)(UINT*)) {
    return Call(call, NoArguments, [&] { return (session_.*get)(count); });
  }

  HRESULT SelectWriters(std::string_view call, const VSS_ID* ids, UINT count, BackupSession::WriterSelection select) {
    return Call(
        call, [&] { return IdListText(ids, count); }, [&] { return session_.SelectWriters(ids, count, select); });
  }

  template <class Metadata>
  HRESULT GiveMetadata(std::string_view call, UINT index, VSS_ID* instance, Metadata** metadata) {
    Clear(metadata);
    return Call(call, Arguments(index), [&] {
      if (instance == nullptr || metadata == nullptr) return E_INVALIDARG;
      std::shared_ptr<const Writer> writer;
      const HRESULT result = session_.GetWriterMetadata(index, writer);
      if (FAILED(result)) return result;
      *instance = writer->instanceId;
      *metadata = MakeWriterMetadata(sharedMachine(), std::move(writer));
      return S_OK;
    });
  }

  HRESULT GiveStatus(UINT index, VSS_ID* instance, VSS_ID* writer, BSTR* name, VSS_WRITER_STATE* state,
                     HRESULT* failure, const ReportedWriter*& reported) {
    if (instance == nullptr || writer == nullptr || name == nullptr || state == nullptr || failure == nullptr) {
      return E_INVALIDARG;
    }
    if (const HRESULT result = session_.GetWriterStatus(index, reported); FAILED(result)) return result;
    *instance = reported->data->instanceId;
    *writer = reported->data->writerId;
    *state = reported->status.state;
    *failure = reported->status.failure;
    return GiveText(machine(), reported->data->name, name);
  }

  // Where there is nothing to list, S_FALSE with an enumerator that yields nothing.
  HRESULT MakeQuery(VSS_OBJECT_TYPE returnedType, IVssEnumObject** enumerator) {
    std::vector<EnumeratedObject> objects;
    if (returnedType == VSS_OBJECT_PROVIDER) {
      if (const HRESULT result = session_.QueryProviders(); FAILED(result)) return result;
      objects.assign(machine().model().providers.begin(), machine().model().providers.end());
    } else {
      std::vector<const ShadowCopy*> copies;
      if (const HRESULT result = session_.QuerySnapshots(copies); FAILED(result)) return result;
      objects.reserve(copies.size());
      for (const ShadowCopy* copy : copies) objects.emplace_back(*copy);
    }
    const HRESULT found = objects.empty() ? S_FALSE : S_OK;
    *enumerator = MakeEnumerator(sharedMachine(), std::move(objects));
    return found;
  }

  BackupSession session_;
};

}  // namespace

IVssBackupComponents* MakeBackupComponents(std::shared_ptr<Machine> machine) {
  return new BackupComponents(std::move(machine));
}

}  // namespace varnel::simulator
