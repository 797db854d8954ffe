#include "simulator/vss/vss_backup.h"

#include "simulator/vss/backup_session.h"
#include "simulator/vss/com_object.h"
#include "simulator/vss/snapshot_service.h"
#include "simulator/vss/vss_enum.h"
#include "simulator/vss/vss_metadata.h"

namespace varnel::simulator {
namespace {

constexpr GUID kInterfaces[] = {kIidVssBackupComponents, kIidVssBackupComponentsEx, kIidVssBackupComponentsEx2,
                                kIidVssBackupComponentsEx3, kIidVssBackupComponentsEx4};

std::string IdListText(const VSS_ID* ids, UINT count) {
  if (ids == nullptr) return "null";
  std::string text;
  for (UINT i = 0; i < count; ++i) text += (i == 0 ? "" : ", ") + GuidText(ids[i]);
  return "[" + text + "]";
}

std::string DocumentText(BSTR xml) {
  return xml == nullptr ? "null" : std::to_string(::SysStringLen(xml)) + " characters";
}

std::string ComponentText(const ComponentName& component) {
  return ArgumentList({GuidText(component.instanceId), GuidText(component.writerId),
                       std::to_string(static_cast<int>(component.type)), Quoted(component.logicalPath),
                       Quoted(component.name)});
}

// Renders an identifier that the call made.
auto MadeId(const GUID& id) {
  return [&id] { return "-> " + GuidText(id); };
}

// What can be examined, restored or exposed but has no part in making snapshots is E_NOTIMPL.
class BackupComponents final : public ComObject<IVssBackupComponentsEx4> {
 public:
  explicit BackupComponents(std::shared_ptr<Machine> machine)
      : ComObject(std::move(machine), "IVssBackupComponents", kInterfaces), session_(sharedMachine()) {}

  HRESULT STDMETHODCALLTYPE GetWriterComponentsCount(UINT* components) override;
  HRESULT STDMETHODCALLTYPE GetWriterComponents(UINT index, IVssWriterComponentsExt** writer) override;
  HRESULT STDMETHODCALLTYPE InitializeForBackup(BSTR xml) override;
  HRESULT STDMETHODCALLTYPE SetBackupState(VssBool selectComponents, VssBool bootableSystemState, VSS_BACKUP_TYPE type,
                                           VssBool partialFiles) override;
  HRESULT STDMETHODCALLTYPE InitializeForRestore(BSTR xml) override;
  HRESULT STDMETHODCALLTYPE SetRestoreState(VSS_RESTORE_TYPE) override {
    return Unsupported("IVssBackupComponents::SetRestoreState");
  }
  HRESULT STDMETHODCALLTYPE GatherWriterMetadata(IVssAsync** async) override;
  HRESULT STDMETHODCALLTYPE GetWriterMetadataCount(UINT* writers) override;
  HRESULT STDMETHODCALLTYPE GetWriterMetadata(UINT index, VSS_ID* instance,
                                              IVssExamineWriterMetadata** metadata) override {
    return GiveMetadata("IVssBackupComponents::GetWriterMetadata", index, instance, metadata);
  }
  HRESULT STDMETHODCALLTYPE FreeWriterMetadata() override;
  HRESULT STDMETHODCALLTYPE AddComponent(VSS_ID instance, VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR logicalPath,
                                         LPCWSTR name) override;
  HRESULT STDMETHODCALLTYPE PrepareForBackup(IVssAsync** async) override;
  HRESULT STDMETHODCALLTYPE AbortBackup() override;
  HRESULT STDMETHODCALLTYPE GatherWriterStatus(IVssAsync** async) override;
  HRESULT STDMETHODCALLTYPE GetWriterStatusCount(UINT* writers) override;
  HRESULT STDMETHODCALLTYPE FreeWriterStatus() override;
  HRESULT STDMETHODCALLTYPE GetWriterStatus(UINT index, VSS_ID* instance, VSS_ID* writer, BSTR* name,
                                            VSS_WRITER_STATE* state, HRESULT* failure) override;
  HRESULT STDMETHODCALLTYPE SetBackupSucceeded(VSS_ID instance, VSS_ID writer, VSS_COMPONENT_TYPE type,
                                               LPCWSTR logicalPath, LPCWSTR name, VssBool succeeded) override;
  HRESULT STDMETHODCALLTYPE SetBackupOptions(VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR logicalPath, LPCWSTR name,
                                             LPCWSTR options) override;
  HRESULT STDMETHODCALLTYPE SetSelectedForRestore(VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, VssBool) override {
    return Unsupported("IVssBackupComponents::SetSelectedForRestore");
  }
  HRESULT STDMETHODCALLTYPE SetRestoreOptions(VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, LPCWSTR) override {
    return Unsupported("IVssBackupComponents::SetRestoreOptions");
  }
  HRESULT STDMETHODCALLTYPE SetAdditionalRestores(VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, VssBool) override {
    return Unsupported("IVssBackupComponents::SetAdditionalRestores");
  }
  HRESULT STDMETHODCALLTYPE SetPreviousBackupStamp(VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR logicalPath,
                                                   LPCWSTR name, LPCWSTR stamp) override;
  HRESULT STDMETHODCALLTYPE SaveAsXML(BSTR* xml) override;
  HRESULT STDMETHODCALLTYPE BackupComplete(IVssAsync** async) override;
  HRESULT STDMETHODCALLTYPE AddAlternativeLocationMapping(VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, LPCWSTR,
                                                          LPCWSTR, VssBool, LPCWSTR) override {
    return Unsupported("IVssBackupComponents::AddAlternativeLocationMapping");
  }
  HRESULT STDMETHODCALLTYPE AddRestoreSubcomponent(VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR,
                                                   VssBool) override {
    return Unsupported("IVssBackupComponents::AddRestoreSubcomponent");
  }
  HRESULT STDMETHODCALLTYPE SetFileRestoreStatus(VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR,
                                                 VSS_FILE_RESTORE_STATUS) override {
    return Unsupported("IVssBackupComponents::SetFileRestoreStatus");
  }
  HRESULT STDMETHODCALLTYPE AddNewTarget(VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR, VssBool,
                                         LPCWSTR) override {
    return Unsupported("IVssBackupComponents::AddNewTarget");
  }
  HRESULT STDMETHODCALLTYPE SetRangesFilePath(VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, UINT, LPCWSTR) override {
    return Unsupported("IVssBackupComponents::SetRangesFilePath");
  }
  HRESULT STDMETHODCALLTYPE PreRestore(IVssAsync** async) override {
    return Unsupported("IVssBackupComponents::PreRestore", async);
  }
  HRESULT STDMETHODCALLTYPE PostRestore(IVssAsync** async) override {
    return Unsupported("IVssBackupComponents::PostRestore", async);
  }
  HRESULT STDMETHODCALLTYPE SetContext(LONG context) override;
  HRESULT STDMETHODCALLTYPE StartSnapshotSet(VSS_ID* setId) override;
  HRESULT STDMETHODCALLTYPE AddToSnapshotSet(VSS_PWSZ volume, VSS_ID provider, VSS_ID* copyId) override;
  HRESULT STDMETHODCALLTYPE DoSnapshotSet(IVssAsync** async) override;
  HRESULT STDMETHODCALLTYPE DeleteSnapshots(VSS_ID id, VSS_OBJECT_TYPE type, BOOL force, LONG* deleted,
                                            VSS_ID* notDeleted) override;
  HRESULT STDMETHODCALLTYPE ImportSnapshots(IVssAsync** async) override;
  HRESULT STDMETHODCALLTYPE BreakSnapshotSet(VSS_ID setId) override;
  HRESULT STDMETHODCALLTYPE GetSnapshotProperties(VSS_ID copyId, VSS_SNAPSHOT_PROP* properties) override;
  HRESULT STDMETHODCALLTYPE Query(VSS_ID id, VSS_OBJECT_TYPE queriedType, VSS_OBJECT_TYPE returnedType,
                                  IVssEnumObject** enumerator) override;
  HRESULT STDMETHODCALLTYPE IsVolumeSupported(VSS_ID provider, VSS_PWSZ volume, BOOL* supported) override;
  HRESULT STDMETHODCALLTYPE DisableWriterClasses(const VSS_ID* ids, UINT count) override;
  HRESULT STDMETHODCALLTYPE EnableWriterClasses(const VSS_ID* ids, UINT count) override;
  HRESULT STDMETHODCALLTYPE DisableWriterInstances(const VSS_ID* ids, UINT count) override;
  HRESULT STDMETHODCALLTYPE ExposeSnapshot(VSS_ID, VSS_PWSZ, LONG, VSS_PWSZ, VSS_PWSZ* exposed) override {
    return Unsupported("IVssBackupComponents::ExposeSnapshot", exposed);
  }
  HRESULT STDMETHODCALLTYPE RevertToSnapshot(VSS_ID, BOOL) override {
    return Unsupported("IVssBackupComponents::RevertToSnapshot");
  }
  HRESULT STDMETHODCALLTYPE QueryRevertStatus(VSS_PWSZ, IVssAsync** async) override {
    return Unsupported("IVssBackupComponents::QueryRevertStatus", async);
  }

  HRESULT STDMETHODCALLTYPE GetWriterMetadataEx(UINT index, VSS_ID* instance,
                                                IVssExamineWriterMetadataEx** metadata) override {
    return GiveMetadata("IVssBackupComponentsEx::GetWriterMetadataEx", index, instance, metadata);
  }
  HRESULT STDMETHODCALLTYPE SetSelectedForRestoreEx(VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, VssBool,
                                                    VSS_ID) override {
    return Unsupported("IVssBackupComponentsEx::SetSelectedForRestoreEx");
  }

  HRESULT STDMETHODCALLTYPE UnexposeSnapshot(VSS_ID) override {
    return Unsupported("IVssBackupComponentsEx2::UnexposeSnapshot");
  }
  HRESULT STDMETHODCALLTYPE SetAuthoritativeRestore(VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, VssBool) override {
    return Unsupported("IVssBackupComponentsEx2::SetAuthoritativeRestore");
  }
  HRESULT STDMETHODCALLTYPE SetRollForward(VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, VSS_ROLLFORWARD_TYPE,
                                           LPCWSTR) override {
    return Unsupported("IVssBackupComponentsEx2::SetRollForward");
  }
  HRESULT STDMETHODCALLTYPE SetRestoreName(VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, LPCWSTR) override {
    return Unsupported("IVssBackupComponentsEx2::SetRestoreName");
  }
  HRESULT STDMETHODCALLTYPE BreakSnapshotSetEx(VSS_ID setId, DWORD flags, IVssAsync** async) override;
  HRESULT STDMETHODCALLTYPE PreFastRecovery(VSS_ID, DWORD, IVssAsync** async) override {
    return Unsupported("IVssBackupComponentsEx2::PreFastRecovery", async);
  }
  HRESULT STDMETHODCALLTYPE FastRecovery(VSS_ID, DWORD, IVssAsync** async) override {
    return Unsupported("IVssBackupComponentsEx2::FastRecovery", async);
  }

  HRESULT STDMETHODCALLTYPE GetWriterStatusEx(UINT index, VSS_ID* instance, VSS_ID* writer, BSTR* name,
                                              VSS_WRITER_STATE* state, HRESULT* failure, HRESULT* applicationResult,
                                              BSTR* applicationMessage) override;
  HRESULT STDMETHODCALLTYPE AddSnapshotToRecoverySet(VSS_ID, DWORD, VSS_PWSZ) override {
    return Unsupported("IVssBackupComponentsEx3::AddSnapshotToRecoverySet");
  }
  HRESULT STDMETHODCALLTYPE RecoverSet(DWORD, IVssAsync** async) override {
    return Unsupported("IVssBackupComponentsEx3::RecoverSet", async);
  }
  HRESULT STDMETHODCALLTYPE GetSessionId(VSS_ID* session) override;

  HRESULT STDMETHODCALLTYPE GetRootAndLogicalPrefixPaths(VSS_PWSZ, VSS_PWSZ* rootPath, VSS_PWSZ* logicalPrefix,
                                                         BOOL) override {
    Clear(logicalPrefix);
    return Unsupported("IVssBackupComponentsEx4::GetRootAndLogicalPrefixPaths", rootPath);
  }

 private:
  ~BackupComponents() override = default;

  HRESULT Unsupported(std::string_view call) {
    return Call(machine(), call, NoArguments, [] { return E_NOTIMPL; });
  }
  template <class Output>
  HRESULT Unsupported(std::string_view call, Output** output) {
    Clear(output);
    return Unsupported(call);
  }

  // A call whose only argument is the operation that it starts.
  HRESULT StartOperation(std::string_view call, IVssAsync** async, HRESULT (BackupSession::*start)(IVssAsync**)) {
    Clear(async);
    return Call(machine(), call, NoArguments, [&] { return (session_.*start)(async); });
  }

  HRESULT Count(std::string_view call, UINT* count, HRESULT (BackupSession::*get)(UINT*)) {
    return Call(machine(), call, NoArguments, [&] { return (session_.*get)(count); });
  }

  HRESULT SelectWriters(std::string_view call, const VSS_ID* ids, UINT count,
                        HRESULT (BackupSession::*select)(const VSS_ID*, UINT)) {
    return Call(
        machine(), call, [&] { return IdListText(ids, count); }, [&] { return (session_.*select)(ids, count); });
  }

  template <class Metadata>
  HRESULT GiveMetadata(std::string_view call, UINT index, VSS_ID* instance, Metadata** metadata) {
    Clear(metadata);
    return Call(machine(), call, OneNumber(index), [&] {
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
                     HRESULT* failure, const ReportedWriter*& reported);
  HRESULT MakeQuery(VSS_OBJECT_TYPE returnedType, IVssEnumObject** enumerator);

  BackupSession session_;
};

HRESULT BackupComponents::GetWriterComponentsCount(UINT* components) {
  return Count("IVssBackupComponents::GetWriterComponentsCount", components, &BackupSession::GetWriterComponentsCount);
}

HRESULT BackupComponents::GetWriterComponents(UINT index, IVssWriterComponentsExt** writer) {
  Clear(writer);
  return Call(machine(), "IVssBackupComponents::GetWriterComponents", OneNumber(index),
              [&] { return session_.GetWriterComponents(index, writer); });
}

HRESULT BackupComponents::InitializeForBackup(BSTR xml) {
  return Call(
      machine(), "IVssBackupComponents::InitializeForBackup", [&] { return DocumentText(xml); },
      [&] { return session_.InitializeForBackup(xml); });
}

HRESULT BackupComponents::SetBackupState(VssBool selectComponents, VssBool bootableSystemState, VSS_BACKUP_TYPE type,
                                         VssBool partialFiles) {
  return Call(
      machine(), "IVssBackupComponents::SetBackupState",
      [&] {
        return ArgumentList({FlagText(selectComponents), FlagText(bootableSystemState),
                             std::to_string(static_cast<int>(type)), FlagText(partialFiles)});
      },
      [&] {
        return session_.SetBackupState(selectComponents != 0, bootableSystemState != 0, type, partialFiles != 0);
      });
}

HRESULT BackupComponents::InitializeForRestore(BSTR xml) {
  return Call(
      machine(), "IVssBackupComponents::InitializeForRestore", [&] { return DocumentText(xml); },
      [&] { return session_.InitializeForRestore(xml); });
}

HRESULT BackupComponents::GatherWriterMetadata(IVssAsync** async) {
  return StartOperation("IVssBackupComponents::GatherWriterMetadata", async, &BackupSession::GatherWriterMetadata);
}

HRESULT BackupComponents::GetWriterMetadataCount(UINT* writers) {
  return Count("IVssBackupComponents::GetWriterMetadataCount", writers, &BackupSession::GetWriterMetadataCount);
}

HRESULT BackupComponents::FreeWriterMetadata() {
  return Call(machine(), "IVssBackupComponents::FreeWriterMetadata", NoArguments,
              [&] { return session_.FreeWriterMetadata(); });
}

HRESULT BackupComponents::AddComponent(VSS_ID instance, VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR logicalPath,
                                       LPCWSTR name) {
  const ComponentName component{instance, writer, type, logicalPath, name};
  return Call(
      machine(), "IVssBackupComponents::AddComponent", [&] { return ComponentText(component); },
      [&] { return session_.AddComponent(component); });
}

HRESULT BackupComponents::PrepareForBackup(IVssAsync** async) {
  return StartOperation("IVssBackupComponents::PrepareForBackup", async, &BackupSession::PrepareForBackup);
}

HRESULT BackupComponents::AbortBackup() {
  return Call(machine(), "IVssBackupComponents::AbortBackup", NoArguments, [&] { return session_.AbortBackup(); });
}

HRESULT BackupComponents::GatherWriterStatus(IVssAsync** async) {
  return StartOperation("IVssBackupComponents::GatherWriterStatus", async, &BackupSession::GatherWriterStatus);
}

HRESULT BackupComponents::GetWriterStatusCount(UINT* writers) {
  return Count("IVssBackupComponents::GetWriterStatusCount", writers, &BackupSession::GetWriterStatusCount);
}

HRESULT BackupComponents::FreeWriterStatus() {
  return Call(machine(), "IVssBackupComponents::FreeWriterStatus", NoArguments,
              [&] { return session_.FreeWriterStatus(); });
}

HRESULT BackupComponents::GiveStatus(UINT index, VSS_ID* instance, VSS_ID* writer, BSTR* name, VSS_WRITER_STATE* state,
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

HRESULT BackupComponents::GetWriterStatus(UINT index, VSS_ID* instance, VSS_ID* writer, BSTR* name,
                                          VSS_WRITER_STATE* state, HRESULT* failure) {
  Clear(name);
  return Call(machine(), "IVssBackupComponents::GetWriterStatus", OneNumber(index), [&] {
    const ReportedWriter* reported = nullptr;
    return GiveStatus(index, instance, writer, name, state, failure, reported);
  });
}

HRESULT BackupComponents::GetWriterStatusEx(UINT index, VSS_ID* instance, VSS_ID* writer, BSTR* name,
                                            VSS_WRITER_STATE* state, HRESULT* failure, HRESULT* applicationResult,
                                            BSTR* applicationMessage) {
  Clear(name);
  Clear(applicationMessage);
  return Call(machine(), "IVssBackupComponentsEx3::GetWriterStatusEx", OneNumber(index), [&] {
    const ReportedWriter* reported = nullptr;
    const HRESULT result = GiveStatus(index, instance, writer, name, state, failure, reported);
    if (FAILED(result)) return result;
    if (applicationResult != nullptr) *applicationResult = reported->status.applicationResult;
    if (applicationMessage != nullptr) {
      GiveOptionalText(machine(), reported->status.applicationMessage, applicationMessage);
    }
    return S_OK;
  });
}

HRESULT BackupComponents::SetBackupSucceeded(VSS_ID instance, VSS_ID writer, VSS_COMPONENT_TYPE type,
                                             LPCWSTR logicalPath, LPCWSTR name, VssBool succeeded) {
  const ComponentName component{instance, writer, type, logicalPath, name};
  return Call(
      machine(), "IVssBackupComponents::SetBackupSucceeded",
      [&] {
        return ArgumentList({ComponentText(component), FlagText(succeeded)});
      },
      [&] { return session_.SetBackupSucceeded(component, succeeded != 0); });
}

HRESULT BackupComponents::SetBackupOptions(VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR logicalPath, LPCWSTR name,
                                           LPCWSTR options) {
  const ComponentName component{{}, writer, type, logicalPath, name};
  return Call(
      machine(), "IVssBackupComponents::SetBackupOptions",
      [&] {
        return ArgumentList({ComponentText(component), Quoted(options)});
      },
      [&] { return session_.SetBackupOptions(component, options); });
}

HRESULT BackupComponents::SetPreviousBackupStamp(VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR logicalPath,
                                                 LPCWSTR name, LPCWSTR stamp) {
  const ComponentName component{{}, writer, type, logicalPath, name};
  return Call(
      machine(), "IVssBackupComponents::SetPreviousBackupStamp",
      [&] {
        return ArgumentList({ComponentText(component), Quoted(stamp)});
      },
      [&] { return session_.SetPreviousBackupStamp(component, stamp); });
}

HRESULT BackupComponents::SaveAsXML(BSTR* xml) {
  Clear(xml);
  return Call(machine(), "IVssBackupComponents::SaveAsXML", NoArguments, [&] {
    if (xml == nullptr) return E_INVALIDARG;
    std::string document;
    const HRESULT result = session_.SaveAsXML(document);
    return FAILED(result) ? result : GiveText(machine(), Utf8ToWideLossy(document), xml);
  });
}

HRESULT BackupComponents::BackupComplete(IVssAsync** async) {
  return StartOperation("IVssBackupComponents::BackupComplete", async, &BackupSession::BackupComplete);
}

HRESULT BackupComponents::SetContext(LONG context) {
  return Call(machine(), "IVssBackupComponents::SetContext", OneNumber(context),
              [&] { return session_.SetContext(context); });
}

HRESULT BackupComponents::StartSnapshotSet(VSS_ID* setId) {
  GUID made{};
  return Call(machine(), "IVssBackupComponents::StartSnapshotSet", MadeId(made), [&] {
    const HRESULT result = session_.StartSnapshotSet(setId);
    if (SUCCEEDED(result)) made = *setId;
    return result;
  });
}

HRESULT BackupComponents::AddToSnapshotSet(VSS_PWSZ volume, VSS_ID provider, VSS_ID* copyId) {
  GUID made{};
  return Call(
      machine(), "IVssBackupComponents::AddToSnapshotSet",
      [&] {
        return ArgumentList({Quoted(volume), GuidText(provider)}) + " -> " + GuidText(made);
      },
      [&] {
        const HRESULT result = session_.AddToSnapshotSet(volume, provider, copyId);
        if (SUCCEEDED(result)) made = *copyId;
        return result;
      });
}

HRESULT BackupComponents::DoSnapshotSet(IVssAsync** async) {
  return StartOperation("IVssBackupComponents::DoSnapshotSet", async, &BackupSession::DoSnapshotSet);
}

HRESULT BackupComponents::DeleteSnapshots(VSS_ID id, VSS_OBJECT_TYPE type, BOOL force, LONG* deleted,
                                          VSS_ID* notDeleted) {
  LONG count = 0;
  GUID left{};
  return Call(
      machine(), "IVssBackupComponents::DeleteSnapshots",
      [&] {
        return ArgumentList({GuidText(id), std::to_string(static_cast<int>(type)), std::to_string(force)}) + " -> " +
               std::to_string(count) + (left == GUID{} ? "" : ", not " + GuidText(left));
      },
      [&] {
        if (deleted == nullptr || notDeleted == nullptr) return E_INVALIDARG;
        const HRESULT result = session_.DeleteSnapshots(id, type, count, left);
        *deleted = count;
        *notDeleted = left;
        return result;
      });
}

HRESULT BackupComponents::ImportSnapshots(IVssAsync** async) {
  return StartOperation("IVssBackupComponents::ImportSnapshots", async, &BackupSession::ImportSnapshots);
}

HRESULT BackupComponents::BreakSnapshotSet(VSS_ID setId) {
  return Call(
      machine(), "IVssBackupComponents::BreakSnapshotSet", [&] { return GuidText(setId); },
      [&] { return session_.BreakSnapshotSet(setId); });
}

HRESULT BackupComponents::BreakSnapshotSetEx(VSS_ID setId, DWORD flags, IVssAsync** async) {
  Clear(async);
  return Call(
      machine(), "IVssBackupComponentsEx2::BreakSnapshotSetEx",
      [&] {
        return ArgumentList({GuidText(setId), std::to_string(flags)});
      },
      [&] { return session_.BreakSnapshotSetEx(setId, flags, async); });
}

HRESULT BackupComponents::GetSnapshotProperties(VSS_ID copyId, VSS_SNAPSHOT_PROP* properties) {
  return Call(
      machine(), "IVssBackupComponents::GetSnapshotProperties", [&] { return GuidText(copyId); },
      [&] {
        if (properties == nullptr) return E_INVALIDARG;
        const ShadowCopy* copy = nullptr;
        const HRESULT result = session_.GetSnapshotProperties(copyId, copy);
        if (SUCCEEDED(result)) FillProperties(machine(), *copy, *properties);
        return result;
      });
}

HRESULT BackupComponents::MakeQuery(VSS_OBJECT_TYPE returnedType, IVssEnumObject** enumerator) {
  if (returnedType == VSS_OBJECT_PROVIDER) {
    const HRESULT result = session_.QueryProviders();
    if (SUCCEEDED(result)) *enumerator = MakeProviderEnumerator(sharedMachine());
    return result;
  }
  std::vector<const ShadowCopy*> copies;
  const HRESULT result = session_.QuerySnapshots(copies);
  if (FAILED(result)) return result;
  std::vector<EnumeratedObject> objects;
  for (const ShadowCopy* copy : copies) objects.emplace_back(*copy);
  *enumerator = MakeEnumerator(sharedMachine(), std::move(objects));
  return S_OK;
}

HRESULT BackupComponents::Query(VSS_ID id, VSS_OBJECT_TYPE queriedType, VSS_OBJECT_TYPE returnedType,
                                IVssEnumObject** enumerator) {
  Clear(enumerator);
  return Call(
      machine(), "IVssBackupComponents::Query",
      [&] {
        return ArgumentList({GuidText(id), std::to_string(static_cast<int>(queriedType)),
                             std::to_string(static_cast<int>(returnedType))});
      },
      [&] {
        const bool known = returnedType == VSS_OBJECT_PROVIDER || returnedType == VSS_OBJECT_SNAPSHOT;
        if (enumerator == nullptr || id != GUID{} || queriedType != VSS_OBJECT_NONE || !known) return E_INVALIDARG;
        return MakeQuery(returnedType, enumerator);
      });
}

HRESULT BackupComponents::IsVolumeSupported(VSS_ID provider, VSS_PWSZ volume, BOOL* supported) {
  return Call(
      machine(), "IVssBackupComponents::IsVolumeSupported",
      [&] {
        return ArgumentList({GuidText(provider), Quoted(volume)});
      },
      [&] { return session_.IsVolumeSupported(provider, volume, supported); });
}

HRESULT BackupComponents::DisableWriterClasses(const VSS_ID* ids, UINT count) {
  return SelectWriters("IVssBackupComponents::DisableWriterClasses", ids, count, &BackupSession::DisableWriterClasses);
}

HRESULT BackupComponents::EnableWriterClasses(const VSS_ID* ids, UINT count) {
  return SelectWriters("IVssBackupComponents::EnableWriterClasses", ids, count, &BackupSession::EnableWriterClasses);
}

HRESULT BackupComponents::DisableWriterInstances(const VSS_ID* ids, UINT count) {
  return SelectWriters("IVssBackupComponents::DisableWriterInstances", ids, count,
                       &BackupSession::DisableWriterInstances);
}

HRESULT BackupComponents::GetSessionId(VSS_ID* session) {
  return Call(machine(), "IVssBackupComponentsEx3::GetSessionId", NoArguments, [&] {
    if (session == nullptr) return E_INVALIDARG;
    if (!session_.IsInitialized()) return VSS_E_BAD_STATE;
    *session = session_.id();
    return S_OK;
  });
}

}  // namespace

IVssBackupComponents* MakeBackupComponents(std::shared_ptr<Machine> machine) {
  return new BackupComponents(std::move(machine));
}

}  // namespace varnel::simulator
