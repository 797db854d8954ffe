// COM objects between a requestor and the simulated host's Volume Shadow Copy service. Each passes every question on to
// the object that it wraps; a test replaces the answers that no host file can describe. They count as live objects of
// the host like its own.
#pragma once

#include <memory>
#include <string_view>
#include <utility>

#include "platform/owners.h"
#include "simulator/machine/counted_object.h"
#include "tests/support/forwarding_host.h"

namespace varnel::test {

/// Holds a reference to the wrapped object, and starts with one reference of its own, the caller's.
template <class Interface>
class ForwardingObject : public Interface, protected simulator::CountedObject {
 public:
  ForwardingObject(std::shared_ptr<simulator::Machine> machine, std::string_view kind, ComPtr<Interface> wrapped)
      : CountedObject(std::move(machine), kind), inner_(std::move(wrapped)) {}

  /// Answers to what the wrapped object answers to.
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override {
    const HRESULT result = static_cast<IUnknown*>(inner_.Get())->QueryInterface(id, object);
    if (FAILED(result)) return result;
    static_cast<IUnknown*>(*object)->Release();
    Retain();
    *object = static_cast<IUnknown*>(static_cast<Interface*>(this));
    return result;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return Retain(); }
  ULONG STDMETHODCALLTYPE Release() override { return Drop(); }

 protected:
  Interface& inner() const { return *inner_; }

 private:
  ComPtr<Interface> inner_;
};

class ForwardingBackup : public ForwardingObject<IVssBackupComponentsEx4> {
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
    return inner().GetWriterMetadataEx(writerIndex, instance, metadata);
  }
  HRESULT STDMETHODCALLTYPE SetSelectedForRestoreEx(VSS_ID writerId, VSS_COMPONENT_TYPE componentType,
                                                    LPCWSTR logicalPath, LPCWSTR componentName,
                                                    VssBool selectedForRestore, VSS_ID instanceId) override {
    return inner().SetSelectedForRestoreEx(writerId, componentType, logicalPath, componentName, selectedForRestore,
                                           instanceId);
  }
  HRESULT STDMETHODCALLTYPE UnexposeSnapshot(VSS_ID snapshotId) override {
    return inner().UnexposeSnapshot(snapshotId);
  }
  HRESULT STDMETHODCALLTYPE SetAuthoritativeRestore(VSS_ID writerId, VSS_COMPONENT_TYPE componentType,
                                                    LPCWSTR logicalPath, LPCWSTR componentName, VssBool auth) override {
    return inner().SetAuthoritativeRestore(writerId, componentType, logicalPath, componentName, auth);
  }
  HRESULT STDMETHODCALLTYPE SetRollForward(VSS_ID writerId, VSS_COMPONENT_TYPE componentType, LPCWSTR logicalPath,
                                           LPCWSTR componentName, VSS_ROLLFORWARD_TYPE rollType,
                                           LPCWSTR rollForwardPoint) override {
    return inner().SetRollForward(writerId, componentType, logicalPath, componentName, rollType, rollForwardPoint);
  }
  HRESULT STDMETHODCALLTYPE SetRestoreName(VSS_ID writerId, VSS_COMPONENT_TYPE componentType, LPCWSTR logicalPath,
                                           LPCWSTR componentName, LPCWSTR restoreName) override {
    return inner().SetRestoreName(writerId, componentType, logicalPath, componentName, restoreName);
  }
  HRESULT STDMETHODCALLTYPE BreakSnapshotSetEx(VSS_ID snapshotSetId, DWORD breakFlags, IVssAsync** async) override {
    return inner().BreakSnapshotSetEx(snapshotSetId, breakFlags, async);
  }
  HRESULT STDMETHODCALLTYPE PreFastRecovery(VSS_ID snapshotSetId, DWORD preFastRecoveryFlags,
                                            IVssAsync** async) override {
    return inner().PreFastRecovery(snapshotSetId, preFastRecoveryFlags, async);
  }
  HRESULT STDMETHODCALLTYPE FastRecovery(VSS_ID snapshotSetId, DWORD fastRecoveryFlags, IVssAsync** async) override {
    return inner().FastRecovery(snapshotSetId, fastRecoveryFlags, async);
  }
  HRESULT STDMETHODCALLTYPE GetWriterStatusEx(UINT writerIndex, VSS_ID* instance, VSS_ID* writer, BSTR* writerName,
                                              VSS_WRITER_STATE* state, HRESULT* writerFailure,
                                              HRESULT* applicationResult, BSTR* applicationMessage) override {
    return inner().GetWriterStatusEx(writerIndex, instance, writer, writerName, state, writerFailure, applicationResult,
                                     applicationMessage);
  }
  HRESULT STDMETHODCALLTYPE AddSnapshotToRecoverySet(VSS_ID snapshotId, DWORD flags,
                                                     VSS_PWSZ destinationVolume) override {
    return inner().AddSnapshotToRecoverySet(snapshotId, flags, destinationVolume);
  }
  HRESULT STDMETHODCALLTYPE RecoverSet(DWORD flags, IVssAsync** async) override {
    return inner().RecoverSet(flags, async);
  }
  HRESULT STDMETHODCALLTYPE GetSessionId(VSS_ID* session) override { return inner().GetSessionId(session); }
  HRESULT STDMETHODCALLTYPE GetRootAndLogicalPrefixPaths(VSS_PWSZ filePath, VSS_PWSZ* rootPath, VSS_PWSZ* logicalPrefix,
                                                         BOOL normalizeFQDNforRootPath) override {
    return inner().GetRootAndLogicalPrefixPaths(filePath, rootPath, logicalPrefix, normalizeFQDNforRootPath);
  }
};

class ForwardingMetadata : public ForwardingObject<IVssExamineWriterMetadata> {
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

class ForwardingComponent : public ForwardingObject<IVssWMComponent> {
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

class ForwardingFile : public ForwardingObject<IVssWMFiledesc> {
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

class ForwardingWriterComponents : public ForwardingObject<IVssWriterComponentsExt> {
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

/// A component of the backup components document as a requestor looks at it: only its names and its failure. Everything
/// else is not implemented.
class DocumentComponentObject : public IVssComponentEx2, protected simulator::CountedObject {
 public:
  explicit DocumentComponentObject(std::shared_ptr<simulator::Machine> machine)
      : CountedObject(std::move(machine), "IVssComponent of a test") {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override {
    *object = nullptr;
    const bool known =
        id == kIidUnknown || id == kIidVssComponent || id == kIidVssComponentEx || id == kIidVssComponentEx2;
    if (!known) return E_NOINTERFACE;
    Retain();
    *object = static_cast<IVssComponentEx2*>(this);
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return Retain(); }
  ULONG STDMETHODCALLTYPE Release() override { return Drop(); }

  HRESULT STDMETHODCALLTYPE GetComponentType(VSS_COMPONENT_TYPE*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetBackupSucceeded(VssBool*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetAlternateLocationMappingCount(UINT*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetAlternateLocationMapping(UINT, IVssWMFiledesc**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SetBackupMetadata(LPCWSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetBackupMetadata(BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE AddPartialFile(LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetPartialFileCount(UINT*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetPartialFile(UINT, BSTR*, BSTR*, BSTR*, BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE IsSelectedForRestore(VssBool*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetAdditionalRestores(VssBool*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetNewTargetCount(UINT*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetNewTarget(UINT, IVssWMFiledesc**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE AddDirectedTarget(LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE GetDirectedTargetCount(UINT*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetDirectedTarget(UINT, BSTR*, BSTR*, BSTR*, BSTR*, BSTR*, BSTR*) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE SetRestoreMetadata(LPCWSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetRestoreMetadata(BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SetRestoreTarget(VSS_RESTORE_TARGET) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetRestoreTarget(VSS_RESTORE_TARGET*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SetPreRestoreFailureMsg(LPCWSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetPreRestoreFailureMsg(BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SetPostRestoreFailureMsg(LPCWSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetPostRestoreFailureMsg(BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SetBackupStamp(LPCWSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetBackupStamp(BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetPreviousBackupStamp(BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetBackupOptions(BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetRestoreOptions(BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetRestoreSubcomponentCount(UINT*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetRestoreSubcomponent(UINT, BSTR*, BSTR*, VssBool*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetFileRestoreStatus(VSS_FILE_RESTORE_STATUS*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE AddDifferencedFilesByLastModifyTime(LPCWSTR, LPCWSTR, BOOL, FILETIME) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE AddDifferencedFilesByLastModifyLSN(LPCWSTR, LPCWSTR, BOOL, BSTR) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE GetDifferencedFilesCount(UINT*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetDifferencedFile(UINT, BSTR*, BSTR*, BOOL*, BSTR*, FILETIME*) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE SetPrepareForBackupFailureMsg(LPCWSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SetPostSnapshotFailureMsg(LPCWSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetPrepareForBackupFailureMsg(BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetPostSnapshotFailureMsg(BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetAuthoritativeRestore(VssBool*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetRollForward(VSS_ROLLFORWARD_TYPE*, BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetRestoreName(BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SetFailure(HRESULT, HRESULT, LPCWSTR, DWORD) override { return E_NOTIMPL; }
};

/// The service of a simulated host, whose backup components objects are wrapped on their way out.
class ForwardingVss : public VssService {
 public:
  explicit ForwardingVss(VssService& inner) : inner_(inner) {}
  HRESULT CreateVssBackupComponents(IVssBackupComponents** backup) override {
    ComPtr<IVssBackupComponents> made;
    HRESULT result = inner_.CreateVssBackupComponents(made.Put());
    if (FAILED(result)) return result;
    ComPtr<IVssBackupComponentsEx4> whole;
    result = QueryFor(made.Get(), kIidVssBackupComponentsEx4, whole);
    if (SUCCEEDED(result)) *backup = Wrap(std::move(whole));
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
  virtual IVssBackupComponents* Wrap(ComPtr<IVssBackupComponentsEx4> backup) { return backup.Detach(); }

  VssService& inner_;
};

/// A host with another service.
using HostWithService = HostWith;

}  // namespace varnel::test
