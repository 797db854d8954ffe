// The portable declarations of the Volume Shadow Copy interfaces against the SDK's: every method in its slot with
// arguments of the same sizes, every value, every layout. What runs elsewhere against the portable ones then means the
// same calls on Windows.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include "platform/vss.h"
#include "tests/windows/slot.h"

namespace portable {
#include "platform/portable/vss.h"
}

namespace {

using varnel::test::SlotOf;

// The result and the arguments by size and by whether they are pointers: types of the two sides have different names.
template <class Type>
std::string ShapeOf() {
  return (std::is_pointer_v<Type> ? "p" : "v") + std::to_string(sizeof(Type));
}

template <class Interface, class Result, class... Arguments>
std::string SignatureOf(Result (Interface::*)(Arguments...)) {
  return ShapeOf<Result>() + "(" + (... + (ShapeOf<Arguments>() + " ")) + ")";
}
template <class Interface, class Result>
std::string SignatureOf(Result (Interface::*)()) {
  return ShapeOf<Result>() + "()";
}

struct Method {
  const char* name;
  std::size_t slot;
  std::size_t portableSlot;
  std::string signature;
  std::string portableSignature;
};

struct Value {
  const char* name;
  long long value;
  long long portableValue;
};

// Names have to be spelled twice and shown once, which only a macro can do.
#define METHOD(interface_name, method)                                                                          \
  {                                                                                                             \
#interface_name "::" #method, SlotOf(&::interface_name::method), SlotOf(&portable::interface_name::method), \
        SignatureOf(&::interface_name::method), SignatureOf(&portable::interface_name::method)                  \
  }
#define VALUE(name) \
  { #name, static_cast < long long>(::name), static_cast < long long>(portable::name) }
#define MEMBER(structure, member) \
  { #structure "::" #member, offsetof(::structure, member), offsetof(portable::structure, member) }
#define SIZE(structure) \
  { "sizeof " #structure, sizeof(::structure), sizeof(portable::structure) }

const Method kMethods[] = {
    METHOD(IVssEnumObject, Next),
    METHOD(IVssEnumObject, Skip),
    METHOD(IVssEnumObject, Reset),
    METHOD(IVssEnumObject, Clone),
    METHOD(IVssAsync, Cancel),
    METHOD(IVssAsync, Wait),
    METHOD(IVssAsync, QueryStatus),
    METHOD(IVssWMDependency, GetWriterId),
    METHOD(IVssWMDependency, GetLogicalPath),
    METHOD(IVssWMDependency, GetComponentName),
    METHOD(IVssWMFiledesc, GetPath),
    METHOD(IVssWMFiledesc, GetFilespec),
    METHOD(IVssWMFiledesc, GetRecursive),
    METHOD(IVssWMFiledesc, GetAlternateLocation),
    METHOD(IVssWMFiledesc, GetBackupTypeMask),
    METHOD(IVssWMComponent, GetComponentInfo),
    METHOD(IVssWMComponent, FreeComponentInfo),
    METHOD(IVssWMComponent, GetFile),
    METHOD(IVssWMComponent, GetDatabaseFile),
    METHOD(IVssWMComponent, GetDatabaseLogFile),
    METHOD(IVssWMComponent, GetDependency),
    METHOD(IVssExamineWriterMetadata, GetIdentity),
    METHOD(IVssExamineWriterMetadata, GetFileCounts),
    METHOD(IVssExamineWriterMetadata, GetIncludeFile),
    METHOD(IVssExamineWriterMetadata, GetExcludeFile),
    METHOD(IVssExamineWriterMetadata, GetComponent),
    METHOD(IVssExamineWriterMetadata, GetRestoreMethod),
    METHOD(IVssExamineWriterMetadata, GetAlternateLocationMapping),
    METHOD(IVssExamineWriterMetadata, GetBackupSchema),
    METHOD(IVssExamineWriterMetadata, GetDocument),
    METHOD(IVssExamineWriterMetadata, SaveAsXML),
    METHOD(IVssExamineWriterMetadata, LoadFromXML),
    METHOD(IVssExamineWriterMetadataEx, GetIdentityEx),
    METHOD(IVssExamineWriterMetadataEx2, GetVersion),
    METHOD(IVssExamineWriterMetadataEx2, GetExcludeFromSnapshotCount),
    METHOD(IVssExamineWriterMetadataEx2, GetExcludeFromSnapshotFile),
    METHOD(IVssComponent, GetLogicalPath),
    METHOD(IVssComponent, GetComponentType),
    METHOD(IVssComponent, GetComponentName),
    METHOD(IVssComponent, GetBackupSucceeded),
    METHOD(IVssComponent, GetAlternateLocationMappingCount),
    METHOD(IVssComponent, GetAlternateLocationMapping),
    METHOD(IVssComponent, SetBackupMetadata),
    METHOD(IVssComponent, GetBackupMetadata),
    METHOD(IVssComponent, AddPartialFile),
    METHOD(IVssComponent, GetPartialFileCount),
    METHOD(IVssComponent, GetPartialFile),
    METHOD(IVssComponent, IsSelectedForRestore),
    METHOD(IVssComponent, GetAdditionalRestores),
    METHOD(IVssComponent, GetNewTargetCount),
    METHOD(IVssComponent, GetNewTarget),
    METHOD(IVssComponent, AddDirectedTarget),
    METHOD(IVssComponent, GetDirectedTargetCount),
    METHOD(IVssComponent, GetDirectedTarget),
    METHOD(IVssComponent, SetRestoreMetadata),
    METHOD(IVssComponent, GetRestoreMetadata),
    METHOD(IVssComponent, SetRestoreTarget),
    METHOD(IVssComponent, GetRestoreTarget),
    METHOD(IVssComponent, SetPreRestoreFailureMsg),
    METHOD(IVssComponent, GetPreRestoreFailureMsg),
    METHOD(IVssComponent, SetPostRestoreFailureMsg),
    METHOD(IVssComponent, GetPostRestoreFailureMsg),
    METHOD(IVssComponent, SetBackupStamp),
    METHOD(IVssComponent, GetBackupStamp),
    METHOD(IVssComponent, GetPreviousBackupStamp),
    METHOD(IVssComponent, GetBackupOptions),
    METHOD(IVssComponent, GetRestoreOptions),
    METHOD(IVssComponent, GetRestoreSubcomponentCount),
    METHOD(IVssComponent, GetRestoreSubcomponent),
    METHOD(IVssComponent, GetFileRestoreStatus),
    METHOD(IVssComponent, AddDifferencedFilesByLastModifyTime),
    METHOD(IVssComponent, AddDifferencedFilesByLastModifyLSN),
    METHOD(IVssComponent, GetDifferencedFilesCount),
    METHOD(IVssComponent, GetDifferencedFile),
    METHOD(IVssComponentEx, SetPrepareForBackupFailureMsg),
    METHOD(IVssComponentEx, SetPostSnapshotFailureMsg),
    METHOD(IVssComponentEx, GetPrepareForBackupFailureMsg),
    METHOD(IVssComponentEx, GetPostSnapshotFailureMsg),
    METHOD(IVssComponentEx, GetAuthoritativeRestore),
    METHOD(IVssComponentEx, GetRollForward),
    METHOD(IVssComponentEx, GetRestoreName),
    METHOD(IVssComponentEx2, SetFailure),
    METHOD(IVssComponentEx2, GetFailure),
    METHOD(IVssWriterComponents, GetComponentCount),
    METHOD(IVssWriterComponents, GetWriterInfo),
    METHOD(IVssWriterComponents, GetComponent),
    METHOD(IVssBackupComponents, GetWriterComponentsCount),
    METHOD(IVssBackupComponents, GetWriterComponents),
    METHOD(IVssBackupComponents, InitializeForBackup),
    METHOD(IVssBackupComponents, SetBackupState),
    METHOD(IVssBackupComponents, InitializeForRestore),
    METHOD(IVssBackupComponents, SetRestoreState),
    METHOD(IVssBackupComponents, GatherWriterMetadata),
    METHOD(IVssBackupComponents, GetWriterMetadataCount),
    METHOD(IVssBackupComponents, GetWriterMetadata),
    METHOD(IVssBackupComponents, FreeWriterMetadata),
    METHOD(IVssBackupComponents, AddComponent),
    METHOD(IVssBackupComponents, PrepareForBackup),
    METHOD(IVssBackupComponents, AbortBackup),
    METHOD(IVssBackupComponents, GatherWriterStatus),
    METHOD(IVssBackupComponents, GetWriterStatusCount),
    METHOD(IVssBackupComponents, FreeWriterStatus),
    METHOD(IVssBackupComponents, GetWriterStatus),
    METHOD(IVssBackupComponents, SetBackupSucceeded),
    METHOD(IVssBackupComponents, SetBackupOptions),
    METHOD(IVssBackupComponents, SetSelectedForRestore),
    METHOD(IVssBackupComponents, SetRestoreOptions),
    METHOD(IVssBackupComponents, SetAdditionalRestores),
    METHOD(IVssBackupComponents, SetPreviousBackupStamp),
    METHOD(IVssBackupComponents, SaveAsXML),
    METHOD(IVssBackupComponents, BackupComplete),
    METHOD(IVssBackupComponents, AddAlternativeLocationMapping),
    METHOD(IVssBackupComponents, AddRestoreSubcomponent),
    METHOD(IVssBackupComponents, SetFileRestoreStatus),
    METHOD(IVssBackupComponents, AddNewTarget),
    METHOD(IVssBackupComponents, SetRangesFilePath),
    METHOD(IVssBackupComponents, PreRestore),
    METHOD(IVssBackupComponents, PostRestore),
    METHOD(IVssBackupComponents, SetContext),
    METHOD(IVssBackupComponents, StartSnapshotSet),
    METHOD(IVssBackupComponents, AddToSnapshotSet),
    METHOD(IVssBackupComponents, DoSnapshotSet),
    METHOD(IVssBackupComponents, DeleteSnapshots),
    METHOD(IVssBackupComponents, ImportSnapshots),
    METHOD(IVssBackupComponents, BreakSnapshotSet),
    METHOD(IVssBackupComponents, GetSnapshotProperties),
    METHOD(IVssBackupComponents, Query),
    METHOD(IVssBackupComponents, IsVolumeSupported),
    METHOD(IVssBackupComponents, DisableWriterClasses),
    METHOD(IVssBackupComponents, EnableWriterClasses),
    METHOD(IVssBackupComponents, DisableWriterInstances),
    METHOD(IVssBackupComponents, ExposeSnapshot),
    METHOD(IVssBackupComponents, RevertToSnapshot),
    METHOD(IVssBackupComponents, QueryRevertStatus),
    METHOD(IVssBackupComponentsEx, GetWriterMetadataEx),
    METHOD(IVssBackupComponentsEx, SetSelectedForRestoreEx),
    METHOD(IVssBackupComponentsEx2, UnexposeSnapshot),
    METHOD(IVssBackupComponentsEx2, SetAuthoritativeRestore),
    METHOD(IVssBackupComponentsEx2, SetRollForward),
    METHOD(IVssBackupComponentsEx2, SetRestoreName),
    METHOD(IVssBackupComponentsEx2, BreakSnapshotSetEx),
    METHOD(IVssBackupComponentsEx2, PreFastRecovery),
    METHOD(IVssBackupComponentsEx2, FastRecovery),
    METHOD(IVssBackupComponentsEx3, GetWriterStatusEx),
    METHOD(IVssBackupComponentsEx3, AddSnapshotToRecoverySet),
    METHOD(IVssBackupComponentsEx3, RecoverSet),
    METHOD(IVssBackupComponentsEx3, GetSessionId),
    METHOD(IVssBackupComponentsEx4, GetRootAndLogicalPrefixPaths),
    METHOD(IVssAdmin, RegisterProvider),
    METHOD(IVssAdmin, UnregisterProvider),
    METHOD(IVssAdmin, QueryProviders),
    METHOD(IVssAdmin, AbortAllSnapshotsInProgress),
};

const Value kValues[] = {
    VALUE(VSS_OBJECT_UNKNOWN),
    VALUE(VSS_OBJECT_NONE),
    VALUE(VSS_OBJECT_SNAPSHOT_SET),
    VALUE(VSS_OBJECT_SNAPSHOT),
    VALUE(VSS_OBJECT_PROVIDER),
    VALUE(VSS_OBJECT_TYPE_COUNT),
    VALUE(VSS_SS_UNKNOWN),
    VALUE(VSS_SS_PREPARING),
    VALUE(VSS_SS_PROCESSING_PREPARE),
    VALUE(VSS_SS_PREPARED),
    VALUE(VSS_SS_PROCESSING_PRECOMMIT),
    VALUE(VSS_SS_PRECOMMITTED),
    VALUE(VSS_SS_PROCESSING_COMMIT),
    VALUE(VSS_SS_COMMITTED),
    VALUE(VSS_SS_PROCESSING_POSTCOMMIT),
    VALUE(VSS_SS_PROCESSING_PREFINALCOMMIT),
    VALUE(VSS_SS_PREFINALCOMMITTED),
    VALUE(VSS_SS_PROCESSING_POSTFINALCOMMIT),
    VALUE(VSS_SS_CREATED),
    VALUE(VSS_SS_ABORTED),
    VALUE(VSS_SS_DELETED),
    VALUE(VSS_SS_POSTCOMMITTED),
    VALUE(VSS_SS_COUNT),
    VALUE(VSS_VOLSNAP_ATTR_PERSISTENT),
    VALUE(VSS_VOLSNAP_ATTR_NO_AUTORECOVERY),
    VALUE(VSS_VOLSNAP_ATTR_CLIENT_ACCESSIBLE),
    VALUE(VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE),
    VALUE(VSS_VOLSNAP_ATTR_NO_WRITERS),
    VALUE(VSS_VOLSNAP_ATTR_TRANSPORTABLE),
    VALUE(VSS_VOLSNAP_ATTR_NOT_SURFACED),
    VALUE(VSS_VOLSNAP_ATTR_NOT_TRANSACTED),
    VALUE(VSS_VOLSNAP_ATTR_HARDWARE_ASSISTED),
    VALUE(VSS_VOLSNAP_ATTR_DIFFERENTIAL),
    VALUE(VSS_VOLSNAP_ATTR_PLEX),
    VALUE(VSS_VOLSNAP_ATTR_IMPORTED),
    VALUE(VSS_VOLSNAP_ATTR_EXPOSED_LOCALLY),
    VALUE(VSS_VOLSNAP_ATTR_EXPOSED_REMOTELY),
    VALUE(VSS_VOLSNAP_ATTR_AUTORECOVER),
    VALUE(VSS_VOLSNAP_ATTR_ROLLBACK_RECOVERY),
    VALUE(VSS_VOLSNAP_ATTR_DELAYED_POSTSNAPSHOT),
    VALUE(VSS_VOLSNAP_ATTR_TXF_RECOVERY),
    VALUE(VSS_VOLSNAP_ATTR_FILE_SHARE),
    VALUE(VSS_CTX_BACKUP),
    VALUE(VSS_CTX_FILE_SHARE_BACKUP),
    VALUE(VSS_CTX_NAS_ROLLBACK),
    VALUE(VSS_CTX_APP_ROLLBACK),
    VALUE(VSS_CTX_CLIENT_ACCESSIBLE),
    VALUE(VSS_CTX_CLIENT_ACCESSIBLE_WRITERS),
    VALUE(VSS_CTX_ALL),
    VALUE(VSS_PROV_UNKNOWN),
    VALUE(VSS_PROV_SYSTEM),
    VALUE(VSS_PROV_SOFTWARE),
    VALUE(VSS_PROV_HARDWARE),
    VALUE(VSS_PROV_FILESHARE),
    VALUE(VSS_BT_UNDEFINED),
    VALUE(VSS_BT_FULL),
    VALUE(VSS_BT_INCREMENTAL),
    VALUE(VSS_BT_DIFFERENTIAL),
    VALUE(VSS_BT_LOG),
    VALUE(VSS_BT_COPY),
    VALUE(VSS_BT_OTHER),
    VALUE(VSS_WS_UNKNOWN),
    VALUE(VSS_WS_STABLE),
    VALUE(VSS_WS_WAITING_FOR_FREEZE),
    VALUE(VSS_WS_WAITING_FOR_THAW),
    VALUE(VSS_WS_WAITING_FOR_POST_SNAPSHOT),
    VALUE(VSS_WS_WAITING_FOR_BACKUP_COMPLETE),
    VALUE(VSS_WS_FAILED_AT_IDENTIFY),
    VALUE(VSS_WS_FAILED_AT_PREPARE_BACKUP),
    VALUE(VSS_WS_FAILED_AT_PREPARE_SNAPSHOT),
    VALUE(VSS_WS_FAILED_AT_FREEZE),
    VALUE(VSS_WS_FAILED_AT_THAW),
    VALUE(VSS_WS_FAILED_AT_POST_SNAPSHOT),
    VALUE(VSS_WS_FAILED_AT_BACKUP_COMPLETE),
    VALUE(VSS_WS_FAILED_AT_PRE_RESTORE),
    VALUE(VSS_WS_FAILED_AT_POST_RESTORE),
    VALUE(VSS_WS_FAILED_AT_BACKUPSHUTDOWN),
    VALUE(VSS_WS_COUNT),
    VALUE(VSS_UT_UNDEFINED),
    VALUE(VSS_UT_BOOTABLESYSTEMSTATE),
    VALUE(VSS_UT_SYSTEMSERVICE),
    VALUE(VSS_UT_USERDATA),
    VALUE(VSS_UT_OTHER),
    VALUE(VSS_ST_UNDEFINED),
    VALUE(VSS_ST_TRANSACTEDDB),
    VALUE(VSS_ST_NONTRANSACTEDDB),
    VALUE(VSS_ST_OTHER),
    VALUE(VSS_RME_UNDEFINED),
    VALUE(VSS_RME_RESTORE_IF_NOT_THERE),
    VALUE(VSS_RME_RESTORE_IF_CAN_REPLACE),
    VALUE(VSS_RME_STOP_RESTORE_START),
    VALUE(VSS_RME_RESTORE_TO_ALTERNATE_LOCATION),
    VALUE(VSS_RME_RESTORE_AT_REBOOT),
    VALUE(VSS_RME_RESTORE_AT_REBOOT_IF_CANNOT_REPLACE),
    VALUE(VSS_RME_CUSTOM),
    VALUE(VSS_RME_RESTORE_STOP_START),
    VALUE(VSS_WRE_UNDEFINED),
    VALUE(VSS_WRE_NEVER),
    VALUE(VSS_WRE_IF_REPLACE_FAILS),
    VALUE(VSS_WRE_ALWAYS),
    VALUE(VSS_CT_UNDEFINED),
    VALUE(VSS_CT_DATABASE),
    VALUE(VSS_CT_FILEGROUP),
    VALUE(VSS_CF_BACKUP_RECOVERY),
    VALUE(VSS_CF_APP_ROLLBACK_RECOVERY),
    VALUE(VSS_CF_NOT_SYSTEM_STATE),
    VALUE(VSS_RT_UNDEFINED),
    VALUE(VSS_RT_ORIGINAL),
    VALUE(VSS_RT_ALTERNATE),
    VALUE(VSS_RT_DIRECTED),
    VALUE(VSS_RT_ORIGINAL_LOCATION),
    VALUE(VSS_RS_UNDEFINED),
    VALUE(VSS_RS_NONE),
    VALUE(VSS_RS_ALL),
    VALUE(VSS_RS_FAILED),
    VALUE(VSS_RTYPE_UNDEFINED),
    VALUE(VSS_RTYPE_BY_COPY),
    VALUE(VSS_RTYPE_IMPORT),
    VALUE(VSS_RTYPE_OTHER),
    VALUE(VSS_RF_UNDEFINED),
    VALUE(VSS_RF_NONE),
    VALUE(VSS_RF_ALL),
    VALUE(VSS_RF_PARTIAL),
    VALUE(VSS_RECOVERY_REVERT_IDENTITY_ALL),
    VALUE(VSS_RECOVERY_NO_VOLUME_CHECK),
    VALUE(VSS_FSBT_FULL_BACKUP_REQUIRED),
    VALUE(VSS_FSBT_DIFFERENTIAL_BACKUP_REQUIRED),
    VALUE(VSS_FSBT_INCREMENTAL_BACKUP_REQUIRED),
    VALUE(VSS_FSBT_LOG_BACKUP_REQUIRED),
    VALUE(VSS_FSBT_FULL_SNAPSHOT_REQUIRED),
    VALUE(VSS_FSBT_DIFFERENTIAL_SNAPSHOT_REQUIRED),
    VALUE(VSS_FSBT_INCREMENTAL_SNAPSHOT_REQUIRED),
    VALUE(VSS_FSBT_LOG_SNAPSHOT_REQUIRED),
    VALUE(VSS_FSBT_CREATED_DURING_BACKUP),
    VALUE(VSS_FSBT_ALL_BACKUP_REQUIRED),
    VALUE(VSS_FSBT_ALL_SNAPSHOT_REQUIRED),
    VALUE(VSS_BS_UNDEFINED),
    VALUE(VSS_BS_DIFFERENTIAL),
    VALUE(VSS_BS_INCREMENTAL),
    VALUE(VSS_BS_EXCLUSIVE_INCREMENTAL_DIFFERENTIAL),
    VALUE(VSS_BS_LOG),
    VALUE(VSS_BS_COPY),
    VALUE(VSS_BS_TIMESTAMPED),
    VALUE(VSS_BS_LAST_MODIFY),
    VALUE(VSS_BS_LSN),
    VALUE(VSS_BS_WRITER_SUPPORTS_NEW_TARGET),
    VALUE(VSS_BS_WRITER_SUPPORTS_RESTORE_WITH_MOVE),
    VALUE(VSS_BS_INDEPENDENT_SYSTEM_STATE),
    VALUE(VSS_BS_ROLLFORWARD_RESTORE),
    VALUE(VSS_BS_RESTORE_RENAME),
    VALUE(VSS_BS_AUTHORITATIVE_RESTORE),
    VALUE(VSS_BS_WRITER_SUPPORTS_PARALLEL_RESTORES),
    VALUE(VSS_BREAKEX_FLAG_MASK_LUNS),
    VALUE(VSS_BREAKEX_FLAG_MAKE_READ_WRITE),
    VALUE(VSS_BREAKEX_FLAG_REVERT_IDENTITY_ALL),
    VALUE(VSS_BREAKEX_FLAG_REVERT_IDENTITY_NONE),
};

const Value kLayouts[] = {
    SIZE(VSS_SNAPSHOT_PROP),
    MEMBER(VSS_SNAPSHOT_PROP, m_SnapshotId),
    MEMBER(VSS_SNAPSHOT_PROP, m_SnapshotSetId),
    MEMBER(VSS_SNAPSHOT_PROP, m_lSnapshotsCount),
    MEMBER(VSS_SNAPSHOT_PROP, m_pwszSnapshotDeviceObject),
    MEMBER(VSS_SNAPSHOT_PROP, m_pwszOriginalVolumeName),
    MEMBER(VSS_SNAPSHOT_PROP, m_pwszOriginatingMachine),
    MEMBER(VSS_SNAPSHOT_PROP, m_pwszServiceMachine),
    MEMBER(VSS_SNAPSHOT_PROP, m_pwszExposedName),
    MEMBER(VSS_SNAPSHOT_PROP, m_pwszExposedPath),
    MEMBER(VSS_SNAPSHOT_PROP, m_ProviderId),
    MEMBER(VSS_SNAPSHOT_PROP, m_lSnapshotAttributes),
    MEMBER(VSS_SNAPSHOT_PROP, m_tsCreationTimestamp),
    MEMBER(VSS_SNAPSHOT_PROP, m_eStatus),
    SIZE(VSS_PROVIDER_PROP),
    MEMBER(VSS_PROVIDER_PROP, m_ProviderId),
    MEMBER(VSS_PROVIDER_PROP, m_pwszProviderName),
    MEMBER(VSS_PROVIDER_PROP, m_eProviderType),
    MEMBER(VSS_PROVIDER_PROP, m_pwszProviderVersion),
    MEMBER(VSS_PROVIDER_PROP, m_ProviderVersionId),
    MEMBER(VSS_PROVIDER_PROP, m_ClassId),
    SIZE(VSS_OBJECT_PROP),
    MEMBER(VSS_OBJECT_PROP, Type),
    MEMBER(VSS_OBJECT_PROP, Obj),
    SIZE(VSS_COMPONENTINFO),
    MEMBER(VSS_COMPONENTINFO, type),
    MEMBER(VSS_COMPONENTINFO, bstrLogicalPath),
    MEMBER(VSS_COMPONENTINFO, bstrComponentName),
    MEMBER(VSS_COMPONENTINFO, bstrCaption),
    MEMBER(VSS_COMPONENTINFO, pbIcon),
    MEMBER(VSS_COMPONENTINFO, cbIcon),
    MEMBER(VSS_COMPONENTINFO, bRestoreMetadata),
    MEMBER(VSS_COMPONENTINFO, bNotifyOnBackupComplete),
    MEMBER(VSS_COMPONENTINFO, bSelectable),
    MEMBER(VSS_COMPONENTINFO, bSelectableForRestore),
    MEMBER(VSS_COMPONENTINFO, dwComponentFlags),
    MEMBER(VSS_COMPONENTINFO, cFileCount),
    MEMBER(VSS_COMPONENTINFO, cDatabases),
    MEMBER(VSS_COMPONENTINFO, cLogFiles),
    MEMBER(VSS_COMPONENTINFO, cDependencies),
};

TEST(PortableVss, EveryMethodStandsInTheSlotThatTheSdkGivesIt) {
  for (const Method& method : kMethods) EXPECT_EQ(method.portableSlot, method.slot) << method.name;
}

TEST(PortableVss, EveryMethodTakesArgumentsOfTheSizesThatTheSdkGivesThem) {
  for (const Method& method : kMethods) EXPECT_EQ(method.portableSignature, method.signature) << method.name;
}

TEST(PortableVss, MethodsFollowEachOtherWithoutAGap) {
  const std::vector<Method> methods(std::begin(kMethods), std::end(kMethods));
  for (std::size_t i = 1; i < methods.size(); ++i) {
    const std::size_t slot = methods[i].slot;
    EXPECT_TRUE(slot == methods[i - 1].slot + 1 || slot == 3 || slot == 0) << methods[i].name << " in slot " << slot;
  }
}

TEST(PortableVss, EveryValueIsTheSdks) {
  for (const Value& value : kValues) EXPECT_EQ(value.portableValue, value.value) << value.name;
}

TEST(PortableVss, EveryStructureIsLaidOutAsTheSdks) {
  for (const Value& layout : kLayouts) EXPECT_EQ(layout.portableValue, layout.value) << layout.name;
}

TEST(PortableVss, TheLastMethodsOfTheInterfacesStandInTheirPublishedSlots) {
  EXPECT_EQ(SlotOf(&IVssBackupComponents::QueryRevertStatus), 50u);
  EXPECT_EQ(SlotOf(&IVssBackupComponentsEx::SetSelectedForRestoreEx), 52u);
  EXPECT_EQ(SlotOf(&IVssBackupComponentsEx2::FastRecovery), 59u);
  EXPECT_EQ(SlotOf(&IVssBackupComponentsEx3::GetSessionId), 63u);
  EXPECT_EQ(SlotOf(&IVssBackupComponentsEx4::GetRootAndLogicalPrefixPaths), 64u);
  EXPECT_EQ(SlotOf(&IVssExamineWriterMetadataEx2::GetExcludeFromSnapshotFile), 17u);
  EXPECT_EQ(SlotOf(&IVssWMComponent::GetDependency), 8u);
  EXPECT_EQ(SlotOf(&IVssWMFiledesc::GetBackupTypeMask), 7u);
  EXPECT_EQ(SlotOf(&IVssComponentEx2::GetFailure), 49u);
  EXPECT_EQ(SlotOf(&IVssAsync::QueryStatus), 5u);
  EXPECT_EQ(SlotOf(&IVssEnumObject::Clone), 6u);
  EXPECT_EQ(SlotOf(&IVssAdmin::AbortAllSnapshotsInProgress), 6u);
}

// The service's writer components hold two table pointers: first the writer's own, after it IUnknown's. A caller
// releases through the second one.
template <class Interface, class Component>
class WriterComponents final : public Interface {
 public:
  HRESULT STDMETHODCALLTYPE GetComponentCount(UINT*) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE GetWriterInfo(VSS_ID*, VSS_ID*) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE GetComponent(UINT, Component**) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
  ULONG STDMETHODCALLTYPE Release() override { return --references; }
  ULONG references = 1;
};

template <class Writer, class Interface, class Object>
void ExpectTwoTables(Object& object) {
  static_assert(sizeof(Interface) == 2 * sizeof(void*));
  static_assert(std::is_base_of_v<Writer, Interface> && std::is_base_of_v<IUnknown, Interface>);
  Interface* components = &object;
  auto* start = reinterpret_cast<char*>(components);
  EXPECT_EQ(reinterpret_cast<char*>(static_cast<Writer*>(components)), start);
  EXPECT_EQ(reinterpret_cast<char*>(static_cast<IUnknown*>(components)), start + sizeof(void*));

  using ReleaseFunction = ULONG STDMETHODCALLTYPE(void*);
  void** table = nullptr;
  std::memcpy(&table, start + sizeof(void*), sizeof table);
  reinterpret_cast<ReleaseFunction*>(table[2])(start + sizeof(void*));
  EXPECT_EQ(object.references, 0u);
}

TEST(WriterComponentsExt, IsReleasedThroughTheThirdSlotOfItsSecondTable) {
  WriterComponents<IVssWriterComponentsExt, IVssComponent> object;
  ExpectTwoTables<IVssWriterComponents, IVssWriterComponentsExt>(object);
}

TEST(WriterComponentsExt, IsReleasedTheSameWayByThePortableDeclaration) {
  WriterComponents<portable::IVssWriterComponentsExt, portable::IVssComponent> object;
  ExpectTwoTables<portable::IVssWriterComponents, portable::IVssWriterComponentsExt>(object);
}

}  // namespace
