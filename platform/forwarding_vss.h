// COM objects between a requestor and the Volume Shadow Copy service: each passes every call on to the object that it
// wraps. Whoever wants to hear of a call, or to answer it otherwise, derives from the class that has it and overrides
// that method. No call is added.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <iterator>
#include <utility>

#include "platform/host.h"
#include "platform/owners.h"

namespace varnel {

/// Holds a reference to the wrapped object while it lives, and starts with one reference of its own, the caller's.
/// `kAnswered` are the identifiers of its interfaces besides IUnknown's: it answers to them where the wrapped object
/// does. Any other interface is the wrapped object's own.
template <class Interface, class Wrapped, const GUID&... kAnswered>
class ForwardingObject : public Interface {
 public:
  explicit ForwardingObject(ComPtr<Wrapped> wrapped) : inner_(std::move(wrapped)) {}
  ForwardingObject(const ForwardingObject&) = delete;
  ForwardingObject& operator=(const ForwardingObject&) = delete;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override {
    const bool forwarded = id == kIidUnknown || ((id == kAnswered) || ...);
    const HRESULT result = static_cast<IUnknown*>(inner_.Get())->QueryInterface(id, object);
    if (FAILED(result) || !forwarded || *object == nullptr) return result;
    NoteAnswer(id, ComPtr<IUnknown>::Attach(static_cast<IUnknown*>(*object)));
    AddRef();
    *object = static_cast<IUnknown*>(static_cast<Interface*>(this));
    return result;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG left = --references_;
    if (left == 0) delete this;
    return left;
  }

 protected:
  virtual ~ForwardingObject() = default;
  Wrapped& inner() const { return *inner_; }

 private:
  /// The wrapped object's own answer to a question for another interface.
  virtual void NoteAnswer(REFIID /*id*/, const ComPtr<IUnknown>& /*answer*/) {}

  ComPtr<Wrapped> inner_;
  std::atomic<ULONG> references_ = 1;
};

class ForwardingAsync : public ForwardingObject<IVssAsync, IVssAsync, kIidVssAsync> {
 public:
  using ForwardingObject::ForwardingObject;

  HRESULT STDMETHODCALLTYPE Cancel() override { return inner().Cancel(); }
  HRESULT STDMETHODCALLTYPE Wait(DWORD milliseconds) override { return inner().Wait(milliseconds); }
  HRESULT STDMETHODCALLTYPE QueryStatus(HRESULT* result, INT* reserved) override {
    return inner().QueryStatus(result, reserved);
  }
};

/// Later versions of the interface are answered where the wrapped object has them; their methods go to what it answered
/// then. Like the service's own object it belongs to one thread.
class ForwardingBackup : public ForwardingObject<IVssBackupComponentsEx4, IVssBackupComponents, kIidVssBackupComponents,
                                                 kIidVssBackupComponentsEx, kIidVssBackupComponentsEx2,
                                                 kIidVssBackupComponentsEx3, kIidVssBackupComponentsEx4> {
 public:
  using ForwardingObject::ForwardingObject;

  HRESULT STDMETHODCALLTYPE GetWriterComponentsCount(UINT* components) override {
    return inner().GetWriterComponentsCount(components);
  }
  HRESULT STDMETHODCALLTYPE GetWriterComponents(UINT writerIndex, IVssWriterComponentsExt** writer) override {
    return inner().GetWriterComponents(writerIndex, writer);
  }
  HRESULT STDMETHODCALLTYPE InitializeForBackup(BSTR xml) override { return inner().InitializeForBackup(xml); }
  HRESULT STDMETHODCALLTYPE SetBackupState(VssBool selectComponents, VssBool backupBootableSystemState,
                                           VSS_BACKUP_TYPE backupType, VssBool partialFileSupport) override {
    return inner().SetBackupState(selectComponents, backupBootableSystemState, backupType, partialFileSupport);
  }
  HRESULT STDMETHODCALLTYPE InitializeForRestore(BSTR xml) override { return inner().InitializeForRestore(xml); }
  HRESULT STDMETHODCALLTYPE SetRestoreState(VSS_RESTORE_TYPE restoreType) override {
    return inner().SetRestoreState(restoreType);
  }
  HRESULT STDMETHODCALLTYPE GatherWriterMetadata(IVssAsync** async) override {
    return inner().GatherWriterMetadata(async);
  }
  HRESULT STDMETHODCALLTYPE GetWriterMetadataCount(UINT* writers) override {
    return inner().GetWriterMetadataCount(writers);
  }
  HRESULT STDMETHODCALLTYPE GetWriterMetadata(UINT writerIndex, VSS_ID* instance,
                                              IVssExamineWriterMetadata** metadata) override {
    return inner().GetWriterMetadata(writerIndex, instance, metadata);
  }
  HRESULT STDMETHODCALLTYPE FreeWriterMetadata() override { return inner().FreeWriterMetadata(); }
  HRESULT STDMETHODCALLTYPE AddComponent(VSS_ID instanceId, VSS_ID writerId, VSS_COMPONENT_TYPE componentType,
                                         LPCWSTR logicalPath, LPCWSTR componentName) override {
    return inner().AddComponent(instanceId, writerId, componentType, logicalPath, componentName);
  }
  HRESULT STDMETHODCALLTYPE PrepareForBackup(IVssAsync** async) override { return inner().PrepareForBackup(async); }
  HRESULT STDMETHODCALLTYPE AbortBackup() override { return inner().AbortBackup(); }
  HRESULT STDMETHODCALLTYPE GatherWriterStatus(IVssAsync** async) override { return inner().GatherWriterStatus(async); }
  HRESULT STDMETHODCALLTYPE GetWriterStatusCount(UINT* writers) override {
    return inner().GetWriterStatusCount(writers);
  }
  HRESULT STDMETHODCALLTYPE FreeWriterStatus() override { return inner().FreeWriterStatus(); }
  HRESULT STDMETHODCALLTYPE GetWriterStatus(UINT writerIndex, VSS_ID* instance, VSS_ID* writer, BSTR* writerName,
                                            VSS_WRITER_STATE* state, HRESULT* failure) override {
    return inner().GetWriterStatus(writerIndex, instance, writer, writerName, state, failure);
  }
  HRESULT STDMETHODCALLTYPE SetBackupSucceeded(VSS_ID instanceId, VSS_ID writerId, VSS_COMPONENT_TYPE componentType,
                                               LPCWSTR logicalPath, LPCWSTR componentName, VssBool succeeded) override {
    return inner().SetBackupSucceeded(instanceId, writerId, componentType, logicalPath, componentName, succeeded);
  }
  HRESULT STDMETHODCALLTYPE SetBackupOptions(VSS_ID writerId, VSS_COMPONENT_TYPE componentType, LPCWSTR logicalPath,
                                             LPCWSTR componentName, LPCWSTR backupOptions) override {
    return inner().SetBackupOptions(writerId, componentType, logicalPath, componentName, backupOptions);
  }
  HRESULT STDMETHODCALLTYPE SetSelectedForRestore(VSS_ID writerId, VSS_COMPONENT_TYPE componentType,
                                                  LPCWSTR logicalPath, LPCWSTR componentName,
                                                  VssBool selectedForRestore) override {
    return inner().SetSelectedForRestore(writerId, componentType, logicalPath, componentName, selectedForRestore);
  }
  HRESULT STDMETHODCALLTYPE SetRestoreOptions(VSS_ID writerId, VSS_COMPONENT_TYPE componentType, LPCWSTR logicalPath,
                                              LPCWSTR componentName, LPCWSTR restoreOptions) override {
    return inner().SetRestoreOptions(writerId, componentType, logicalPath, componentName, restoreOptions);
  }
  HRESULT STDMETHODCALLTYPE SetAdditionalRestores(VSS_ID writerId, VSS_COMPONENT_TYPE componentType,
                                                  LPCWSTR logicalPath, LPCWSTR componentName,
                                                  VssBool additionalRestores) override {
    return inner().SetAdditionalRestores(writerId, componentType, logicalPath, componentName, additionalRestores);
  }
  HRESULT STDMETHODCALLTYPE SetPreviousBackupStamp(VSS_ID writerId, VSS_COMPONENT_TYPE componentType,
                                                   LPCWSTR logicalPath, LPCWSTR componentName,
                                                   LPCWSTR previousBackupStamp) override {
    return inner().SetPreviousBackupStamp(writerId, componentType, logicalPath, componentName, previousBackupStamp);
  }
  HRESULT STDMETHODCALLTYPE SaveAsXML(BSTR* xml) override { return inner().SaveAsXML(xml); }
  HRESULT STDMETHODCALLTYPE BackupComplete(IVssAsync** async) override { return inner().BackupComplete(async); }
  HRESULT STDMETHODCALLTYPE AddAlternativeLocationMapping(VSS_ID writerId, VSS_COMPONENT_TYPE componentType,
                                                          LPCWSTR logicalPath, LPCWSTR componentName, LPCWSTR path,
                                                          LPCWSTR filespec, VssBool recursive,
                                                          LPCWSTR destination) override {
    return inner().AddAlternativeLocationMapping(writerId, componentType, logicalPath, componentName, path, filespec,
                                                 recursive, destination);
  }
  HRESULT STDMETHODCALLTYPE AddRestoreSubcomponent(VSS_ID writerId, VSS_COMPONENT_TYPE componentType,
                                                   LPCWSTR logicalPath, LPCWSTR componentName,
                                                   LPCWSTR subComponentLogicalPath, LPCWSTR subComponentName,
                                                   VssBool repair) override {
    return inner().AddRestoreSubcomponent(writerId, componentType, logicalPath, componentName, subComponentLogicalPath,
                                          subComponentName, repair);
  }
  HRESULT STDMETHODCALLTYPE SetFileRestoreStatus(VSS_ID writerId, VSS_COMPONENT_TYPE componentType, LPCWSTR logicalPath,
                                                 LPCWSTR componentName, VSS_FILE_RESTORE_STATUS status) override {
    return inner().SetFileRestoreStatus(writerId, componentType, logicalPath, componentName, status);
  }
  HRESULT STDMETHODCALLTYPE AddNewTarget(VSS_ID writerId, VSS_COMPONENT_TYPE componentType, LPCWSTR logicalPath,
                                         LPCWSTR componentName, LPCWSTR path, LPCWSTR fileName, VssBool recursive,
                                         LPCWSTR alternatePath) override {
    return inner().AddNewTarget(writerId, componentType, logicalPath, componentName, path, fileName, recursive,
                                alternatePath);
  }
  HRESULT STDMETHODCALLTYPE SetRangesFilePath(VSS_ID writerId, VSS_COMPONENT_TYPE componentType, LPCWSTR logicalPath,
                                              LPCWSTR componentName, UINT partialFileIndex,
                                              LPCWSTR rangesFile) override {
    return inner().SetRangesFilePath(writerId, componentType, logicalPath, componentName, partialFileIndex, rangesFile);
  }
  HRESULT STDMETHODCALLTYPE PreRestore(IVssAsync** async) override { return inner().PreRestore(async); }
  HRESULT STDMETHODCALLTYPE PostRestore(IVssAsync** async) override { return inner().PostRestore(async); }
  HRESULT STDMETHODCALLTYPE SetContext(LONG context) override { return inner().SetContext(context); }
  HRESULT STDMETHODCALLTYPE StartSnapshotSet(VSS_ID* snapshotSetId) override {
    return inner().StartSnapshotSet(snapshotSetId);
  }
  HRESULT STDMETHODCALLTYPE AddToSnapshotSet(VSS_PWSZ volumeName, VSS_ID providerId, VSS_ID* snapshot) override {
    return inner().AddToSnapshotSet(volumeName, providerId, snapshot);
  }
  HRESULT STDMETHODCALLTYPE DoSnapshotSet(IVssAsync** async) override { return inner().DoSnapshotSet(async); }
  HRESULT STDMETHODCALLTYPE DeleteSnapshots(VSS_ID sourceObjectId, VSS_OBJECT_TYPE sourceObjectType, BOOL forceDelete,
                                            LONG* deletedSnapshots, VSS_ID* nonDeletedSnapshotId) override {
    return inner().DeleteSnapshots(sourceObjectId, sourceObjectType, forceDelete, deletedSnapshots,
                                   nonDeletedSnapshotId);
  }
  HRESULT STDMETHODCALLTYPE ImportSnapshots(IVssAsync** async) override { return inner().ImportSnapshots(async); }
  HRESULT STDMETHODCALLTYPE BreakSnapshotSet(VSS_ID snapshotSetId) override {
    return inner().BreakSnapshotSet(snapshotSetId);
  }
  HRESULT STDMETHODCALLTYPE GetSnapshotProperties(VSS_ID snapshotId, VSS_SNAPSHOT_PROP* prop) override {
    return inner().GetSnapshotProperties(snapshotId, prop);
  }
  HRESULT STDMETHODCALLTYPE Query(VSS_ID queriedObjectId, VSS_OBJECT_TYPE queriedObjectType,
                                  VSS_OBJECT_TYPE returnedObjectsType, IVssEnumObject** enumerator) override {
    return inner().Query(queriedObjectId, queriedObjectType, returnedObjectsType, enumerator);
  }
  HRESULT STDMETHODCALLTYPE IsVolumeSupported(VSS_ID providerId, VSS_PWSZ volumeName,
                                              BOOL* supportedByThisProvider) override {
    return inner().IsVolumeSupported(providerId, volumeName, supportedByThisProvider);
  }
  HRESULT STDMETHODCALLTYPE DisableWriterClasses(const VSS_ID* writerClassId, UINT classId) override {
    return inner().DisableWriterClasses(writerClassId, classId);
  }
  HRESULT STDMETHODCALLTYPE EnableWriterClasses(const VSS_ID* writerClassId, UINT classId) override {
    return inner().EnableWriterClasses(writerClassId, classId);
  }
  HRESULT STDMETHODCALLTYPE DisableWriterInstances(const VSS_ID* writerInstanceId, UINT instanceId) override {
    return inner().DisableWriterInstances(writerInstanceId, instanceId);
  }
  HRESULT STDMETHODCALLTYPE ExposeSnapshot(VSS_ID snapshotId, VSS_PWSZ pathFromRoot, LONG attributes, VSS_PWSZ expose,
                                           VSS_PWSZ* exposed) override {
    return inner().ExposeSnapshot(snapshotId, pathFromRoot, attributes, expose, exposed);
  }
  HRESULT STDMETHODCALLTYPE RevertToSnapshot(VSS_ID snapshotId, BOOL forceDismount) override {
    return inner().RevertToSnapshot(snapshotId, forceDismount);
  }
  HRESULT STDMETHODCALLTYPE QueryRevertStatus(VSS_PWSZ volume, IVssAsync** async) override {
    return inner().QueryRevertStatus(volume, async);
  }
  HRESULT STDMETHODCALLTYPE GetWriterMetadataEx(UINT writerIndex, VSS_ID* instance,
                                                IVssExamineWriterMetadataEx** metadata) override {
    return Version<IVssBackupComponentsEx>().GetWriterMetadataEx(writerIndex, instance, metadata);
  }
  HRESULT STDMETHODCALLTYPE SetSelectedForRestoreEx(VSS_ID writerId, VSS_COMPONENT_TYPE componentType,
                                                    LPCWSTR logicalPath, LPCWSTR componentName,
                                                    VssBool selectedForRestore, VSS_ID instanceId) override {
    return Version<IVssBackupComponentsEx>().SetSelectedForRestoreEx(writerId, componentType, logicalPath,
                                                                     componentName, selectedForRestore, instanceId);
  }
  HRESULT STDMETHODCALLTYPE UnexposeSnapshot(VSS_ID snapshotId) override {
    return Version<IVssBackupComponentsEx2>().UnexposeSnapshot(snapshotId);
  }
  HRESULT STDMETHODCALLTYPE SetAuthoritativeRestore(VSS_ID writerId, VSS_COMPONENT_TYPE componentType,
                                                    LPCWSTR logicalPath, LPCWSTR componentName, VssBool auth) override {
    return Version<IVssBackupComponentsEx2>().SetAuthoritativeRestore(writerId, componentType, logicalPath,
                                                                      componentName, auth);
  }
  HRESULT STDMETHODCALLTYPE SetRollForward(VSS_ID writerId, VSS_COMPONENT_TYPE componentType, LPCWSTR logicalPath,
                                           LPCWSTR componentName, VSS_ROLLFORWARD_TYPE rollType,
                                           LPCWSTR rollForwardPoint) override {
    return Version<IVssBackupComponentsEx2>().SetRollForward(writerId, componentType, logicalPath, componentName,
                                                             rollType, rollForwardPoint);
  }
  HRESULT STDMETHODCALLTYPE SetRestoreName(VSS_ID writerId, VSS_COMPONENT_TYPE componentType, LPCWSTR logicalPath,
                                           LPCWSTR componentName, LPCWSTR restoreName) override {
    return Version<IVssBackupComponentsEx2>().SetRestoreName(writerId, componentType, logicalPath, componentName,
                                                             restoreName);
  }
  HRESULT STDMETHODCALLTYPE BreakSnapshotSetEx(VSS_ID snapshotSetId, DWORD breakFlags, IVssAsync** async) override {
    return Version<IVssBackupComponentsEx2>().BreakSnapshotSetEx(snapshotSetId, breakFlags, async);
  }
  HRESULT STDMETHODCALLTYPE PreFastRecovery(VSS_ID snapshotSetId, DWORD preFastRecoveryFlags,
                                            IVssAsync** async) override {
    return Version<IVssBackupComponentsEx2>().PreFastRecovery(snapshotSetId, preFastRecoveryFlags, async);
  }
  HRESULT STDMETHODCALLTYPE FastRecovery(VSS_ID snapshotSetId, DWORD fastRecoveryFlags, IVssAsync** async) override {
    return Version<IVssBackupComponentsEx2>().FastRecovery(snapshotSetId, fastRecoveryFlags, async);
  }
  HRESULT STDMETHODCALLTYPE GetWriterStatusEx(UINT writerIndex, VSS_ID* instance, VSS_ID* writer, BSTR* writerName,
                                              VSS_WRITER_STATE* state, HRESULT* writerFailure,
                                              HRESULT* applicationResult, BSTR* applicationMessage) override {
    return Version<IVssBackupComponentsEx3>().GetWriterStatusEx(writerIndex, instance, writer, writerName, state,
                                                                writerFailure, applicationResult, applicationMessage);
  }
  HRESULT STDMETHODCALLTYPE AddSnapshotToRecoverySet(VSS_ID snapshotId, DWORD flags,
                                                     VSS_PWSZ destinationVolume) override {
    return Version<IVssBackupComponentsEx3>().AddSnapshotToRecoverySet(snapshotId, flags, destinationVolume);
  }
  HRESULT STDMETHODCALLTYPE RecoverSet(DWORD flags, IVssAsync** async) override {
    return Version<IVssBackupComponentsEx3>().RecoverSet(flags, async);
  }
  HRESULT STDMETHODCALLTYPE GetSessionId(VSS_ID* session) override {
    return Version<IVssBackupComponentsEx3>().GetSessionId(session);
  }
  HRESULT STDMETHODCALLTYPE GetRootAndLogicalPrefixPaths(VSS_PWSZ filePath, VSS_PWSZ* rootPath, VSS_PWSZ* logicalPrefix,
                                                         BOOL normalizeFQDNforRootPath) override {
    return Version<IVssBackupComponentsEx4>().GetRootAndLogicalPrefixPaths(filePath, rootPath, logicalPrefix,
                                                                           normalizeFQDNforRootPath);
  }

 private:
  // The newest version that was asked for has the methods of the older ones too.
  void NoteAnswer(REFIID id, const ComPtr<IUnknown>& answer) override {
    static constexpr GUID kOldestFirst[] = {kIidUnknown,
                                            kIidVssBackupComponents,
                                            kIidVssBackupComponentsEx,
                                            kIidVssBackupComponentsEx2,
                                            kIidVssBackupComponentsEx3,
                                            kIidVssBackupComponentsEx4};
    const auto version = std::find(std::begin(kOldestFirst), std::end(kOldestFirst), id) - std::begin(kOldestFirst);
    if (version <= newest_) return;
    newest_ = version;
    version_ = answer;
  }
  template <class Interface>
  Interface& Version() const {
    return *static_cast<Interface*>(version_.Get());
  }

  std::ptrdiff_t newest_ = 1;
  ComPtr<IUnknown> version_;  // null until a later version was asked for
};

class ForwardingMetadata
    : public ForwardingObject<IVssExamineWriterMetadata, IVssExamineWriterMetadata, kIidVssExamineWriterMetadata> {
 public:
  using ForwardingObject::ForwardingObject;

  HRESULT STDMETHODCALLTYPE GetIdentity(VSS_ID* instance, VSS_ID* writer, BSTR* writerName, VSS_USAGE_TYPE* usage,
                                        VSS_SOURCE_TYPE* source) override {
    return inner().GetIdentity(instance, writer, writerName, usage, source);
  }
  HRESULT STDMETHODCALLTYPE GetFileCounts(UINT* includeFiles, UINT* excludeFiles, UINT* components) override {
    return inner().GetFileCounts(includeFiles, excludeFiles, components);
  }
  HRESULT STDMETHODCALLTYPE GetIncludeFile(UINT fileIndex, IVssWMFiledesc** filedesc) override {
    return inner().GetIncludeFile(fileIndex, filedesc);
  }
  HRESULT STDMETHODCALLTYPE GetExcludeFile(UINT fileIndex, IVssWMFiledesc** filedesc) override {
    return inner().GetExcludeFile(fileIndex, filedesc);
  }
  HRESULT STDMETHODCALLTYPE GetComponent(UINT componentIndex, IVssWMComponent** component) override {
    return inner().GetComponent(componentIndex, component);
  }
  HRESULT STDMETHODCALLTYPE GetRestoreMethod(VSS_RESTOREMETHOD_ENUM* method, BSTR* service, BSTR* userProcedure,
                                             VSS_WRITERRESTORE_ENUM* writerRestore, VssBool* rebootRequired,
                                             UINT* mappings) override {
    return inner().GetRestoreMethod(method, service, userProcedure, writerRestore, rebootRequired, mappings);
  }
  HRESULT STDMETHODCALLTYPE GetAlternateLocationMapping(UINT mappingIndex, IVssWMFiledesc** filedesc) override {
    return inner().GetAlternateLocationMapping(mappingIndex, filedesc);
  }
  HRESULT STDMETHODCALLTYPE GetBackupSchema(DWORD* schemaMask) override { return inner().GetBackupSchema(schemaMask); }
  HRESULT STDMETHODCALLTYPE GetDocument(IXMLDOMDocument** doc) override { return inner().GetDocument(doc); }
  HRESULT STDMETHODCALLTYPE SaveAsXML(BSTR* xml) override { return inner().SaveAsXML(xml); }
  HRESULT STDMETHODCALLTYPE LoadFromXML(BSTR xml) override { return inner().LoadFromXML(xml); }
};

class ForwardingComponent : public ForwardingObject<IVssWMComponent, IVssWMComponent> {
 public:
  using ForwardingObject::ForwardingObject;

  HRESULT STDMETHODCALLTYPE GetComponentInfo(PVSSCOMPONENTINFO* info) override {
    return inner().GetComponentInfo(info);
  }
  HRESULT STDMETHODCALLTYPE FreeComponentInfo(PVSSCOMPONENTINFO info) override {
    return inner().FreeComponentInfo(info);
  }
  HRESULT STDMETHODCALLTYPE GetFile(UINT fileIndex, IVssWMFiledesc** filedesc) override {
    return inner().GetFile(fileIndex, filedesc);
  }
  HRESULT STDMETHODCALLTYPE GetDatabaseFile(UINT databaseFileIndex, IVssWMFiledesc** filedesc) override {
    return inner().GetDatabaseFile(databaseFileIndex, filedesc);
  }
  HRESULT STDMETHODCALLTYPE GetDatabaseLogFile(UINT logFileIndex, IVssWMFiledesc** filedesc) override {
    return inner().GetDatabaseLogFile(logFileIndex, filedesc);
  }
  HRESULT STDMETHODCALLTYPE GetDependency(UINT dependencyIndex, IVssWMDependency** dependency) override {
    return inner().GetDependency(dependencyIndex, dependency);
  }
};

class ForwardingFile : public ForwardingObject<IVssWMFiledesc, IVssWMFiledesc> {
 public:
  using ForwardingObject::ForwardingObject;

  HRESULT STDMETHODCALLTYPE GetPath(BSTR* path) override { return inner().GetPath(path); }
  HRESULT STDMETHODCALLTYPE GetFilespec(BSTR* filespec) override { return inner().GetFilespec(filespec); }
  HRESULT STDMETHODCALLTYPE GetRecursive(VssBool* recursive) override { return inner().GetRecursive(recursive); }
  HRESULT STDMETHODCALLTYPE GetAlternateLocation(BSTR* alternateLocation) override {
    return inner().GetAlternateLocation(alternateLocation);
  }
  HRESULT STDMETHODCALLTYPE GetBackupTypeMask(DWORD* typeMask) override { return inner().GetBackupTypeMask(typeMask); }
};

class ForwardingWriterComponents : public ForwardingObject<IVssWriterComponentsExt, IVssWriterComponentsExt> {
 public:
  using ForwardingObject::ForwardingObject;

  HRESULT STDMETHODCALLTYPE GetComponentCount(UINT* components) override {
    return inner().GetComponentCount(components);
  }
  HRESULT STDMETHODCALLTYPE GetWriterInfo(VSS_ID* instance, VSS_ID* writer) override {
    return inner().GetWriterInfo(instance, writer);
  }
  HRESULT STDMETHODCALLTYPE GetComponent(UINT componentIndex, IVssComponent** component) override {
    return inner().GetComponent(componentIndex, component);
  }
};

/// A service whose backup components objects are wrapped on their way out.
class ForwardingVss : public VssService {
 public:
  explicit ForwardingVss(VssService& inner) : inner_(inner) {}
  HRESULT CreateVssBackupComponents(IVssBackupComponents** backup) override {
    const HRESULT result = inner_.CreateVssBackupComponents(backup);
    if (SUCCEEDED(result) && *backup != nullptr) *backup = Wrap(ComPtr<IVssBackupComponents>::Attach(*backup));
    return result;
  }
  HRESULT CoCreateInstance(REFCLSID classId, IUnknown* outer, DWORD context, REFIID interfaceId,
                           void** object) override {
    return inner_.CoCreateInstance(classId, outer, context, interfaceId, object);
  }
  void VssFreeSnapshotProperties(VSS_SNAPSHOT_PROP* properties) override {
    inner_.VssFreeSnapshotProperties(properties);
  }
  BSTR SysAllocStringLen(const wchar_t* text, UINT length) override { return inner_.SysAllocStringLen(text, length); }
  void SysFreeString(BSTR text) override { inner_.SysFreeString(text); }
  void CoTaskMemFree(void* block) override { inner_.CoTaskMemFree(block); }

 private:
  /// The object that a requestor gets, with the caller's reference.
  virtual IVssBackupComponents* Wrap(ComPtr<IVssBackupComponents> backup) { return backup.Detach(); }

  VssService& inner_;
};

}  // namespace varnel
