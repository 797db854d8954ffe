// The Volume Shadow Copy interfaces for builds without the Windows SDK: the values, the layouts and the order of the
// virtual functions are the service's own. Without includes on purpose: the Windows tests take this file into a
// namespace beside the SDK's headers and compare the two slot by slot.

using VSS_ID = GUID;
using VSS_PWSZ = wchar_t*;
using VSS_TIMESTAMP = LONGLONG;

enum VSS_OBJECT_TYPE : int {
  VSS_OBJECT_UNKNOWN = 0,
  VSS_OBJECT_NONE = 1,
  VSS_OBJECT_SNAPSHOT_SET = 2,
  VSS_OBJECT_SNAPSHOT = 3,
  VSS_OBJECT_PROVIDER = 4,
  VSS_OBJECT_TYPE_COUNT = 5,
};

enum VSS_SNAPSHOT_STATE {
  VSS_SS_UNKNOWN = 0,
  VSS_SS_PREPARING = 1,
  VSS_SS_PROCESSING_PREPARE = 2,
  VSS_SS_PREPARED = 3,
  VSS_SS_PROCESSING_PRECOMMIT = 4,
  VSS_SS_PRECOMMITTED = 5,
  VSS_SS_PROCESSING_COMMIT = 6,
  VSS_SS_COMMITTED = 7,
  VSS_SS_PROCESSING_POSTCOMMIT = 8,
  VSS_SS_PROCESSING_PREFINALCOMMIT = 9,
  VSS_SS_PREFINALCOMMITTED = 10,
  VSS_SS_PROCESSING_POSTFINALCOMMIT = 11,
  VSS_SS_CREATED = 12,
  VSS_SS_ABORTED = 13,
  VSS_SS_DELETED = 14,
  VSS_SS_POSTCOMMITTED = 15,
  VSS_SS_COUNT = 16,
};

enum VSS_VOLUME_SNAPSHOT_ATTRIBUTES {
  VSS_VOLSNAP_ATTR_PERSISTENT = 0x1,
  VSS_VOLSNAP_ATTR_NO_AUTORECOVERY = 0x2,
  VSS_VOLSNAP_ATTR_CLIENT_ACCESSIBLE = 0x4,
  VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE = 0x8,
  VSS_VOLSNAP_ATTR_NO_WRITERS = 0x10,
  VSS_VOLSNAP_ATTR_TRANSPORTABLE = 0x20,
  VSS_VOLSNAP_ATTR_NOT_SURFACED = 0x40,
  VSS_VOLSNAP_ATTR_NOT_TRANSACTED = 0x80,
  VSS_VOLSNAP_ATTR_HARDWARE_ASSISTED = 0x10000,
  VSS_VOLSNAP_ATTR_DIFFERENTIAL = 0x20000,
  VSS_VOLSNAP_ATTR_PLEX = 0x40000,
  VSS_VOLSNAP_ATTR_IMPORTED = 0x80000,
  VSS_VOLSNAP_ATTR_EXPOSED_LOCALLY = 0x100000,
  VSS_VOLSNAP_ATTR_EXPOSED_REMOTELY = 0x200000,
  VSS_VOLSNAP_ATTR_AUTORECOVER = 0x400000,
  VSS_VOLSNAP_ATTR_ROLLBACK_RECOVERY = 0x800000,
  VSS_VOLSNAP_ATTR_DELAYED_POSTSNAPSHOT = 0x1000000,
  VSS_VOLSNAP_ATTR_TXF_RECOVERY = 0x2000000,
  VSS_VOLSNAP_ATTR_FILE_SHARE = 0x4000000,
};

enum VSS_SNAPSHOT_CONTEXT {
  VSS_CTX_BACKUP = 0x0,
  VSS_CTX_FILE_SHARE_BACKUP = VSS_VOLSNAP_ATTR_NO_WRITERS,
  VSS_CTX_NAS_ROLLBACK = (VSS_VOLSNAP_ATTR_PERSISTENT | VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE) | VSS_VOLSNAP_ATTR_NO_WRITERS,
  VSS_CTX_APP_ROLLBACK = VSS_VOLSNAP_ATTR_PERSISTENT | VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE,
  VSS_CTX_CLIENT_ACCESSIBLE =
      ((VSS_VOLSNAP_ATTR_PERSISTENT | VSS_VOLSNAP_ATTR_CLIENT_ACCESSIBLE) | VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE) |
      VSS_VOLSNAP_ATTR_NO_WRITERS,
  VSS_CTX_CLIENT_ACCESSIBLE_WRITERS =
      (VSS_VOLSNAP_ATTR_PERSISTENT | VSS_VOLSNAP_ATTR_CLIENT_ACCESSIBLE) | VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE,
  VSS_CTX_ALL = 0xffffffff,
};

enum VSS_PROVIDER_TYPE {
  VSS_PROV_UNKNOWN = 0,
  VSS_PROV_SYSTEM = 1,
  VSS_PROV_SOFTWARE = 2,
  VSS_PROV_HARDWARE = 3,
  VSS_PROV_FILESHARE = 4,
};

enum VSS_BACKUP_TYPE {
  VSS_BT_UNDEFINED = 0,
  VSS_BT_FULL = 1,
  VSS_BT_INCREMENTAL = 2,
  VSS_BT_DIFFERENTIAL = 3,
  VSS_BT_LOG = 4,
  VSS_BT_COPY = 5,
  VSS_BT_OTHER = 6,
};

enum VSS_WRITER_STATE : int {
  VSS_WS_UNKNOWN = 0,
  VSS_WS_STABLE = 1,
  VSS_WS_WAITING_FOR_FREEZE = 2,
  VSS_WS_WAITING_FOR_THAW = 3,
  VSS_WS_WAITING_FOR_POST_SNAPSHOT = 4,
  VSS_WS_WAITING_FOR_BACKUP_COMPLETE = 5,
  VSS_WS_FAILED_AT_IDENTIFY = 6,
  VSS_WS_FAILED_AT_PREPARE_BACKUP = 7,
  VSS_WS_FAILED_AT_PREPARE_SNAPSHOT = 8,
  VSS_WS_FAILED_AT_FREEZE = 9,
  VSS_WS_FAILED_AT_THAW = 10,
  VSS_WS_FAILED_AT_POST_SNAPSHOT = 11,
  VSS_WS_FAILED_AT_BACKUP_COMPLETE = 12,
  VSS_WS_FAILED_AT_PRE_RESTORE = 13,
  VSS_WS_FAILED_AT_POST_RESTORE = 14,
  VSS_WS_FAILED_AT_BACKUPSHUTDOWN = 15,
  VSS_WS_COUNT = 16,
};

enum VSS_USAGE_TYPE : int {
  VSS_UT_UNDEFINED = 0,
  VSS_UT_BOOTABLESYSTEMSTATE = 1,
  VSS_UT_SYSTEMSERVICE = 2,
  VSS_UT_USERDATA = 3,
  VSS_UT_OTHER = 4,
};

enum VSS_SOURCE_TYPE : int {
  VSS_ST_UNDEFINED = 0,
  VSS_ST_TRANSACTEDDB = 1,
  VSS_ST_NONTRANSACTEDDB = 2,
  VSS_ST_OTHER = 3,
};

enum VSS_RESTOREMETHOD_ENUM : int {
  VSS_RME_UNDEFINED = 0,
  VSS_RME_RESTORE_IF_NOT_THERE = 1,
  VSS_RME_RESTORE_IF_CAN_REPLACE = 2,
  VSS_RME_STOP_RESTORE_START = 3,
  VSS_RME_RESTORE_TO_ALTERNATE_LOCATION = 4,
  VSS_RME_RESTORE_AT_REBOOT = 5,
  VSS_RME_RESTORE_AT_REBOOT_IF_CANNOT_REPLACE = 6,
  VSS_RME_CUSTOM = 7,
  VSS_RME_RESTORE_STOP_START = 8,
};

enum VSS_WRITERRESTORE_ENUM : int {
  VSS_WRE_UNDEFINED = 0,
  VSS_WRE_NEVER = 1,
  VSS_WRE_IF_REPLACE_FAILS = 2,
  VSS_WRE_ALWAYS = 3,
};

enum VSS_COMPONENT_TYPE : int {
  VSS_CT_UNDEFINED = 0,
  VSS_CT_DATABASE = 1,
  VSS_CT_FILEGROUP = 2,
};

enum VSS_COMPONENT_FLAGS {
  VSS_CF_BACKUP_RECOVERY = 0x1,
  VSS_CF_APP_ROLLBACK_RECOVERY = 0x2,
  VSS_CF_NOT_SYSTEM_STATE = 0x4,
};

enum VSS_RESTORE_TARGET {
  VSS_RT_UNDEFINED = 0,
  VSS_RT_ORIGINAL = 1,
  VSS_RT_ALTERNATE = 2,
  VSS_RT_DIRECTED = 3,
  VSS_RT_ORIGINAL_LOCATION = 4,
};

enum VSS_FILE_RESTORE_STATUS {
  VSS_RS_UNDEFINED = 0,
  VSS_RS_NONE = 1,
  VSS_RS_ALL = 2,
  VSS_RS_FAILED = 3,
};

enum VSS_RESTORE_TYPE {
  VSS_RTYPE_UNDEFINED = 0,
  VSS_RTYPE_BY_COPY = 1,
  VSS_RTYPE_IMPORT = 2,
  VSS_RTYPE_OTHER = 3,
};

enum VSS_ROLLFORWARD_TYPE {
  VSS_RF_UNDEFINED = 0,
  VSS_RF_NONE = 1,
  VSS_RF_ALL = 2,
  VSS_RF_PARTIAL = 3,
};

enum VSS_RECOVERY_OPTIONS {
  VSS_RECOVERY_REVERT_IDENTITY_ALL = 0x100,
  VSS_RECOVERY_NO_VOLUME_CHECK = 0x200,
};

enum VSS_FILE_SPEC_BACKUP_TYPE {
  VSS_FSBT_FULL_BACKUP_REQUIRED = 0x1,
  VSS_FSBT_DIFFERENTIAL_BACKUP_REQUIRED = 0x2,
  VSS_FSBT_INCREMENTAL_BACKUP_REQUIRED = 0x4,
  VSS_FSBT_LOG_BACKUP_REQUIRED = 0x8,
  VSS_FSBT_FULL_SNAPSHOT_REQUIRED = 0x100,
  VSS_FSBT_DIFFERENTIAL_SNAPSHOT_REQUIRED = 0x200,
  VSS_FSBT_INCREMENTAL_SNAPSHOT_REQUIRED = 0x400,
  VSS_FSBT_LOG_SNAPSHOT_REQUIRED = 0x800,
  VSS_FSBT_CREATED_DURING_BACKUP = 0x10000,
  VSS_FSBT_ALL_BACKUP_REQUIRED = 0xf,
  VSS_FSBT_ALL_SNAPSHOT_REQUIRED = 0xf00,
};

enum VSS_BACKUP_SCHEMA {
  VSS_BS_UNDEFINED = 0x0,
  VSS_BS_DIFFERENTIAL = 0x1,
  VSS_BS_INCREMENTAL = 0x2,
  VSS_BS_EXCLUSIVE_INCREMENTAL_DIFFERENTIAL = 0x4,
  VSS_BS_LOG = 0x8,
  VSS_BS_COPY = 0x10,
  VSS_BS_TIMESTAMPED = 0x20,
  VSS_BS_LAST_MODIFY = 0x40,
  VSS_BS_LSN = 0x80,
  VSS_BS_WRITER_SUPPORTS_NEW_TARGET = 0x100,
  VSS_BS_WRITER_SUPPORTS_RESTORE_WITH_MOVE = 0x200,
  VSS_BS_INDEPENDENT_SYSTEM_STATE = 0x400,
  VSS_BS_ROLLFORWARD_RESTORE = 0x1000,
  VSS_BS_RESTORE_RENAME = 0x2000,
  VSS_BS_AUTHORITATIVE_RESTORE = 0x4000,
  VSS_BS_WRITER_SUPPORTS_PARALLEL_RESTORES = 0x8000,
};

enum VSS_HARDWARE_OPTIONS {
  VSS_BREAKEX_FLAG_MASK_LUNS = 0x1,
  VSS_BREAKEX_FLAG_MAKE_READ_WRITE = 0x2,
  VSS_BREAKEX_FLAG_REVERT_IDENTITY_ALL = 0x4,
  VSS_BREAKEX_FLAG_REVERT_IDENTITY_NONE = 0x8,
};

struct VSS_SNAPSHOT_PROP {
  VSS_ID m_SnapshotId;
  VSS_ID m_SnapshotSetId;
  LONG m_lSnapshotsCount;
  VSS_PWSZ m_pwszSnapshotDeviceObject;
  VSS_PWSZ m_pwszOriginalVolumeName;
  VSS_PWSZ m_pwszOriginatingMachine;
  VSS_PWSZ m_pwszServiceMachine;
  VSS_PWSZ m_pwszExposedName;
  VSS_PWSZ m_pwszExposedPath;
  VSS_ID m_ProviderId;
  LONG m_lSnapshotAttributes;
  VSS_TIMESTAMP m_tsCreationTimestamp;
  VSS_SNAPSHOT_STATE m_eStatus;
};

struct VSS_PROVIDER_PROP {
  VSS_ID m_ProviderId;
  VSS_PWSZ m_pwszProviderName;
  VSS_PROVIDER_TYPE m_eProviderType;
  VSS_PWSZ m_pwszProviderVersion;
  VSS_ID m_ProviderVersionId;
  GUID m_ClassId;
};

union VSS_OBJECT_UNION {
  VSS_SNAPSHOT_PROP Snap;
  VSS_PROVIDER_PROP Prov;
};

struct VSS_OBJECT_PROP {
  VSS_OBJECT_TYPE Type;
  VSS_OBJECT_UNION Obj;
};

struct VSS_COMPONENTINFO {
  VSS_COMPONENT_TYPE type;
  BSTR bstrLogicalPath;
  BSTR bstrComponentName;
  BSTR bstrCaption;
  BYTE* pbIcon;
  UINT cbIcon;
  VssBool bRestoreMetadata;
  VssBool bNotifyOnBackupComplete;
  VssBool bSelectable;
  VssBool bSelectableForRestore;
  DWORD dwComponentFlags;
  UINT cFileCount;
  UINT cDatabases;
  UINT cLogFiles;
  UINT cDependencies;
};
using PVSSCOMPONENTINFO = const VSS_COMPONENTINFO*;

struct IVssEnumObject : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE Next(ULONG celt, VSS_OBJECT_PROP* rgelt, ULONG* fetched) = 0;
  virtual HRESULT STDMETHODCALLTYPE Skip(ULONG celt) = 0;
  virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
  virtual HRESULT STDMETHODCALLTYPE Clone(IVssEnumObject** enumerator) = 0;
};

struct IVssAsync : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE Cancel() = 0;
  virtual HRESULT STDMETHODCALLTYPE Wait(DWORD milliseconds) = 0;
  virtual HRESULT STDMETHODCALLTYPE QueryStatus(HRESULT* result, INT* reserved) = 0;
};

struct IVssWMDependency : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE GetWriterId(VSS_ID* writerId) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetLogicalPath(BSTR* logicalPath) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetComponentName(BSTR* componentName) = 0;
};

struct IVssWMFiledesc : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE GetPath(BSTR* path) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetFilespec(BSTR* filespec) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetRecursive(VssBool* recursive) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetAlternateLocation(BSTR* alternateLocation) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetBackupTypeMask(DWORD* typeMask) = 0;
};

struct IVssWMComponent : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE GetComponentInfo(PVSSCOMPONENTINFO* info) = 0;
  virtual HRESULT STDMETHODCALLTYPE FreeComponentInfo(PVSSCOMPONENTINFO info) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetFile(UINT fileIndex, IVssWMFiledesc** filedesc) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetDatabaseFile(UINT databaseFileIndex, IVssWMFiledesc** filedesc) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetDatabaseLogFile(UINT logFileIndex, IVssWMFiledesc** filedesc) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetDependency(UINT dependencyIndex, IVssWMDependency** dependency) = 0;
};

struct IVssExamineWriterMetadata : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE GetIdentity(VSS_ID* instance, VSS_ID* writer, BSTR* writerName,
                                                VSS_USAGE_TYPE* usage, VSS_SOURCE_TYPE* source) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetFileCounts(UINT* includeFiles, UINT* excludeFiles, UINT* components) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetIncludeFile(UINT fileIndex, IVssWMFiledesc** filedesc) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetExcludeFile(UINT fileIndex, IVssWMFiledesc** filedesc) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetComponent(UINT componentIndex, IVssWMComponent** component) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetRestoreMethod(VSS_RESTOREMETHOD_ENUM* method, BSTR* service, BSTR* userProcedure,
                                                     VSS_WRITERRESTORE_ENUM* writerRestore, VssBool* rebootRequired,
                                                     UINT* mappings) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetAlternateLocationMapping(UINT mappingIndex, IVssWMFiledesc** filedesc) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetBackupSchema(DWORD* schemaMask) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetDocument(IXMLDOMDocument** doc) = 0;
  virtual HRESULT STDMETHODCALLTYPE SaveAsXML(BSTR* xml) = 0;
  virtual HRESULT STDMETHODCALLTYPE LoadFromXML(BSTR xml) = 0;
};

struct IVssExamineWriterMetadataEx : IVssExamineWriterMetadata {
  virtual HRESULT STDMETHODCALLTYPE GetIdentityEx(VSS_ID* instance, VSS_ID* writer, BSTR* writerName,
                                                  BSTR* instanceName, VSS_USAGE_TYPE* usage,
                                                  VSS_SOURCE_TYPE* source) = 0;
};

struct IVssExamineWriterMetadataEx2 : IVssExamineWriterMetadataEx {
  virtual HRESULT STDMETHODCALLTYPE GetVersion(DWORD* majorVersion, DWORD* minorVersion) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetExcludeFromSnapshotCount(UINT* excludedFromSnapshot) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetExcludeFromSnapshotFile(UINT fileIndex, IVssWMFiledesc** filedesc) = 0;
};

struct IVssComponent : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE GetLogicalPath(BSTR* path) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetComponentType(VSS_COMPONENT_TYPE* type) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetComponentName(BSTR* name) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetBackupSucceeded(VssBool* succeeded) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetAlternateLocationMappingCount(UINT* mappings) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetAlternateLocationMapping(UINT mappingIndex, IVssWMFiledesc** filedesc) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetBackupMetadata(LPCWSTR data) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetBackupMetadata(BSTR* data) = 0;
  virtual HRESULT STDMETHODCALLTYPE AddPartialFile(LPCWSTR path, LPCWSTR filename, LPCWSTR ranges,
                                                   LPCWSTR metadata) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetPartialFileCount(UINT* partialFiles) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetPartialFile(UINT partialFileIndex, BSTR* path, BSTR* filename, BSTR* range,
                                                   BSTR* metadata) = 0;
  virtual HRESULT STDMETHODCALLTYPE IsSelectedForRestore(VssBool* selectedForRestore) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetAdditionalRestores(VssBool* additionalRestores) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetNewTargetCount(UINT* newTarget) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetNewTarget(UINT newTargetIndex, IVssWMFiledesc** filedesc) = 0;
  virtual HRESULT STDMETHODCALLTYPE AddDirectedTarget(LPCWSTR sourcePath, LPCWSTR sourceFilename,
                                                      LPCWSTR sourceRangeList, LPCWSTR destinationPath,
                                                      LPCWSTR destinationFilename, LPCWSTR destinationRangeList) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetDirectedTargetCount(UINT* directedTarget) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetDirectedTarget(UINT directedTargetIndex, BSTR* sourcePath, BSTR* sourceFileName,
                                                      BSTR* sourceRangeList, BSTR* destinationPath,
                                                      BSTR* destinationFilename, BSTR* destinationRangeList) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetRestoreMetadata(LPCWSTR restoreMetadata) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetRestoreMetadata(BSTR* restoreMetadata) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetRestoreTarget(VSS_RESTORE_TARGET target) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetRestoreTarget(VSS_RESTORE_TARGET* target) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetPreRestoreFailureMsg(LPCWSTR preRestoreFailureMsg) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetPreRestoreFailureMsg(BSTR* preRestoreFailureMsg) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetPostRestoreFailureMsg(LPCWSTR postRestoreFailureMsg) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetPostRestoreFailureMsg(BSTR* postRestoreFailureMsg) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetBackupStamp(LPCWSTR backupStamp) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetBackupStamp(BSTR* backupStamp) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetPreviousBackupStamp(BSTR* backupStamp) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetBackupOptions(BSTR* backupOptions) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetRestoreOptions(BSTR* restoreOptions) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetRestoreSubcomponentCount(UINT* restoreSubcomponent) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetRestoreSubcomponent(UINT componentIndex, BSTR* logicalPath, BSTR* componentName,
                                                           VssBool* repair) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetFileRestoreStatus(VSS_FILE_RESTORE_STATUS* status) = 0;
  virtual HRESULT STDMETHODCALLTYPE AddDifferencedFilesByLastModifyTime(LPCWSTR path, LPCWSTR filespec, BOOL recursive,
                                                                        FILETIME lastModifyTime) = 0;
  virtual HRESULT STDMETHODCALLTYPE AddDifferencedFilesByLastModifyLSN(LPCWSTR path, LPCWSTR filespec, BOOL recursive,
                                                                       BSTR lsnString) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetDifferencedFilesCount(UINT* differencedFiles) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetDifferencedFile(UINT differencedFileIndex, BSTR* path, BSTR* filespec,
                                                       BOOL* recursive, BSTR* lsnString, FILETIME* lastModifyTime) = 0;
};

struct IVssComponentEx : IVssComponent {
  virtual HRESULT STDMETHODCALLTYPE SetPrepareForBackupFailureMsg(LPCWSTR failureMsg) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetPostSnapshotFailureMsg(LPCWSTR failureMsg) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetPrepareForBackupFailureMsg(BSTR* failureMsg) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetPostSnapshotFailureMsg(BSTR* failureMsg) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetAuthoritativeRestore(VssBool* auth) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetRollForward(VSS_ROLLFORWARD_TYPE* rollType, BSTR* point) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetRestoreName(BSTR* name) = 0;
};

struct IVssComponentEx2 : IVssComponentEx {
  virtual HRESULT STDMETHODCALLTYPE SetFailure(HRESULT hr, HRESULT hrApplication, LPCWSTR applicationMessage,
                                               DWORD reserved) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetFailure(HRESULT* result, HRESULT* applicationResult, BSTR* applicationMessage,
                                               DWORD* reserved) = 0;
};

struct IVssWriterComponents {
  virtual HRESULT STDMETHODCALLTYPE GetComponentCount(UINT* components) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetWriterInfo(VSS_ID* instance, VSS_ID* writer) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetComponent(UINT componentIndex, IVssComponent** component) = 0;
};

struct IVssWriterComponentsExt : IVssWriterComponents, IUnknown {};

struct IVssBackupComponents : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE GetWriterComponentsCount(UINT* components) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetWriterComponents(UINT writerIndex, IVssWriterComponentsExt** writer) = 0;
  virtual HRESULT STDMETHODCALLTYPE InitializeForBackup(BSTR xml) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetBackupState(VssBool selectComponents, VssBool backupBootableSystemState,
                                                   VSS_BACKUP_TYPE backupType, VssBool partialFileSupport) = 0;
  virtual HRESULT STDMETHODCALLTYPE InitializeForRestore(BSTR xml) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetRestoreState(VSS_RESTORE_TYPE restoreType) = 0;
  virtual HRESULT STDMETHODCALLTYPE GatherWriterMetadata(IVssAsync** async) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetWriterMetadataCount(UINT* writers) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetWriterMetadata(UINT writerIndex, VSS_ID* instance,
                                                      IVssExamineWriterMetadata** metadata) = 0;
  virtual HRESULT STDMETHODCALLTYPE FreeWriterMetadata() = 0;
  virtual HRESULT STDMETHODCALLTYPE AddComponent(VSS_ID instanceId, VSS_ID writerId, VSS_COMPONENT_TYPE componentType,
                                                 LPCWSTR logicalPath, LPCWSTR componentName) = 0;
  virtual HRESULT STDMETHODCALLTYPE PrepareForBackup(IVssAsync** async) = 0;
  virtual HRESULT STDMETHODCALLTYPE AbortBackup() = 0;
  virtual HRESULT STDMETHODCALLTYPE GatherWriterStatus(IVssAsync** async) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetWriterStatusCount(UINT* writers) = 0;
  virtual HRESULT STDMETHODCALLTYPE FreeWriterStatus() = 0;
  virtual HRESULT STDMETHODCALLTYPE GetWriterStatus(UINT writerIndex, VSS_ID* instance, VSS_ID* writer,
                                                    BSTR* writerName, VSS_WRITER_STATE* state, HRESULT* failure) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetBackupSucceeded(VSS_ID instanceId, VSS_ID writerId,
                                                       VSS_COMPONENT_TYPE componentType, LPCWSTR logicalPath,
                                                       LPCWSTR componentName, VssBool succeeded) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetBackupOptions(VSS_ID writerId, VSS_COMPONENT_TYPE componentType,
                                                     LPCWSTR logicalPath, LPCWSTR componentName,
                                                     LPCWSTR backupOptions) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetSelectedForRestore(VSS_ID writerId, VSS_COMPONENT_TYPE componentType,
                                                          LPCWSTR logicalPath, LPCWSTR componentName,
                                                          VssBool selectedForRestore) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetRestoreOptions(VSS_ID writerId, VSS_COMPONENT_TYPE componentType,
                                                      LPCWSTR logicalPath, LPCWSTR componentName,
                                                      LPCWSTR restoreOptions) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetAdditionalRestores(VSS_ID writerId, VSS_COMPONENT_TYPE componentType,
                                                          LPCWSTR logicalPath, LPCWSTR componentName,
                                                          VssBool additionalRestores) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetPreviousBackupStamp(VSS_ID writerId, VSS_COMPONENT_TYPE componentType,
                                                           LPCWSTR logicalPath, LPCWSTR componentName,
                                                           LPCWSTR previousBackupStamp) = 0;
  virtual HRESULT STDMETHODCALLTYPE SaveAsXML(BSTR* xml) = 0;
  virtual HRESULT STDMETHODCALLTYPE BackupComplete(IVssAsync** async) = 0;
  virtual HRESULT STDMETHODCALLTYPE AddAlternativeLocationMapping(VSS_ID writerId, VSS_COMPONENT_TYPE componentType,
                                                                  LPCWSTR logicalPath, LPCWSTR componentName,
                                                                  LPCWSTR path, LPCWSTR filespec, VssBool recursive,
                                                                  LPCWSTR destination) = 0;
  virtual HRESULT STDMETHODCALLTYPE AddRestoreSubcomponent(VSS_ID writerId, VSS_COMPONENT_TYPE componentType,
                                                           LPCWSTR logicalPath, LPCWSTR componentName,
                                                           LPCWSTR subComponentLogicalPath, LPCWSTR subComponentName,
                                                           VssBool repair) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetFileRestoreStatus(VSS_ID writerId, VSS_COMPONENT_TYPE componentType,
                                                         LPCWSTR logicalPath, LPCWSTR componentName,
                                                         VSS_FILE_RESTORE_STATUS status) = 0;
  virtual HRESULT STDMETHODCALLTYPE AddNewTarget(VSS_ID writerId, VSS_COMPONENT_TYPE componentType, LPCWSTR logicalPath,
                                                 LPCWSTR componentName, LPCWSTR path, LPCWSTR fileName,
                                                 VssBool recursive, LPCWSTR alternatePath) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetRangesFilePath(VSS_ID writerId, VSS_COMPONENT_TYPE componentType,
                                                      LPCWSTR logicalPath, LPCWSTR componentName, UINT partialFileIndex,
                                                      LPCWSTR rangesFile) = 0;
  virtual HRESULT STDMETHODCALLTYPE PreRestore(IVssAsync** async) = 0;
  virtual HRESULT STDMETHODCALLTYPE PostRestore(IVssAsync** async) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetContext(LONG context) = 0;
  virtual HRESULT STDMETHODCALLTYPE StartSnapshotSet(VSS_ID* snapshotSetId) = 0;
  virtual HRESULT STDMETHODCALLTYPE AddToSnapshotSet(VSS_PWSZ volumeName, VSS_ID providerId, VSS_ID* snapshot) = 0;
  virtual HRESULT STDMETHODCALLTYPE DoSnapshotSet(IVssAsync** async) = 0;
  virtual HRESULT STDMETHODCALLTYPE DeleteSnapshots(VSS_ID sourceObjectId, VSS_OBJECT_TYPE sourceObjectType,
                                                    BOOL forceDelete, LONG* deletedSnapshots,
                                                    VSS_ID* nonDeletedSnapshotId) = 0;
  virtual HRESULT STDMETHODCALLTYPE ImportSnapshots(IVssAsync** async) = 0;
  virtual HRESULT STDMETHODCALLTYPE BreakSnapshotSet(VSS_ID snapshotSetId) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetSnapshotProperties(VSS_ID snapshotId, VSS_SNAPSHOT_PROP* prop) = 0;
  virtual HRESULT STDMETHODCALLTYPE Query(VSS_ID queriedObjectId, VSS_OBJECT_TYPE queriedObjectType,
                                          VSS_OBJECT_TYPE returnedObjectsType, IVssEnumObject** enumerator) = 0;
  virtual HRESULT STDMETHODCALLTYPE IsVolumeSupported(VSS_ID providerId, VSS_PWSZ volumeName,
                                                      BOOL* supportedByThisProvider) = 0;
  virtual HRESULT STDMETHODCALLTYPE DisableWriterClasses(const VSS_ID* writerClassId, UINT classId) = 0;
  virtual HRESULT STDMETHODCALLTYPE EnableWriterClasses(const VSS_ID* writerClassId, UINT classId) = 0;
  virtual HRESULT STDMETHODCALLTYPE DisableWriterInstances(const VSS_ID* writerInstanceId, UINT instanceId) = 0;
  virtual HRESULT STDMETHODCALLTYPE ExposeSnapshot(VSS_ID snapshotId, VSS_PWSZ pathFromRoot, LONG attributes,
                                                   VSS_PWSZ expose, VSS_PWSZ* exposed) = 0;
  virtual HRESULT STDMETHODCALLTYPE RevertToSnapshot(VSS_ID snapshotId, BOOL forceDismount) = 0;
  virtual HRESULT STDMETHODCALLTYPE QueryRevertStatus(VSS_PWSZ volume, IVssAsync** async) = 0;
};

struct IVssBackupComponentsEx : IVssBackupComponents {
  virtual HRESULT STDMETHODCALLTYPE GetWriterMetadataEx(UINT writerIndex, VSS_ID* instance,
                                                        IVssExamineWriterMetadataEx** metadata) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetSelectedForRestoreEx(VSS_ID writerId, VSS_COMPONENT_TYPE componentType,
                                                            LPCWSTR logicalPath, LPCWSTR componentName,
                                                            VssBool selectedForRestore, VSS_ID instanceId) = 0;
};

struct IVssBackupComponentsEx2 : IVssBackupComponentsEx {
  virtual HRESULT STDMETHODCALLTYPE UnexposeSnapshot(VSS_ID snapshotId) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetAuthoritativeRestore(VSS_ID writerId, VSS_COMPONENT_TYPE componentType,
                                                            LPCWSTR logicalPath, LPCWSTR componentName,
                                                            VssBool auth) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetRollForward(VSS_ID writerId, VSS_COMPONENT_TYPE componentType,
                                                   LPCWSTR logicalPath, LPCWSTR componentName,
                                                   VSS_ROLLFORWARD_TYPE rollType, LPCWSTR rollForwardPoint) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetRestoreName(VSS_ID writerId, VSS_COMPONENT_TYPE componentType,
                                                   LPCWSTR logicalPath, LPCWSTR componentName, LPCWSTR restoreName) = 0;
  virtual HRESULT STDMETHODCALLTYPE BreakSnapshotSetEx(VSS_ID snapshotSetId, DWORD breakFlags, IVssAsync** async) = 0;
  virtual HRESULT STDMETHODCALLTYPE PreFastRecovery(VSS_ID snapshotSetId, DWORD preFastRecoveryFlags,
                                                    IVssAsync** async) = 0;
  virtual HRESULT STDMETHODCALLTYPE FastRecovery(VSS_ID snapshotSetId, DWORD fastRecoveryFlags, IVssAsync** async) = 0;
};

struct IVssBackupComponentsEx3 : IVssBackupComponentsEx2 {
  virtual HRESULT STDMETHODCALLTYPE GetWriterStatusEx(UINT writerIndex, VSS_ID* instance, VSS_ID* writer,
                                                      BSTR* writerName, VSS_WRITER_STATE* state, HRESULT* writerFailure,
                                                      HRESULT* applicationResult, BSTR* applicationMessage) = 0;
  virtual HRESULT STDMETHODCALLTYPE AddSnapshotToRecoverySet(VSS_ID snapshotId, DWORD flags,
                                                             VSS_PWSZ destinationVolume) = 0;
  virtual HRESULT STDMETHODCALLTYPE RecoverSet(DWORD flags, IVssAsync** async) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetSessionId(VSS_ID* session) = 0;
};

struct IVssBackupComponentsEx4 : IVssBackupComponentsEx3 {
  virtual HRESULT STDMETHODCALLTYPE GetRootAndLogicalPrefixPaths(VSS_PWSZ filePath, VSS_PWSZ* rootPath,
                                                                 VSS_PWSZ* logicalPrefix,
                                                                 BOOL normalizeFQDNforRootPath) = 0;
};

struct IVssAdmin : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE RegisterProvider(VSS_ID providerId, CLSID classId, VSS_PWSZ providerName,
                                                     VSS_PROVIDER_TYPE providerType, VSS_PWSZ providerVersion,
                                                     VSS_ID providerVersionId) = 0;
  virtual HRESULT STDMETHODCALLTYPE UnregisterProvider(VSS_ID providerId) = 0;
  virtual HRESULT STDMETHODCALLTYPE QueryProviders(IVssEnumObject** enumerator) = 0;
  virtual HRESULT STDMETHODCALLTYPE AbortAllSnapshotsInProgress() = 0;
};
