// CVarnel: one requestor, one application-consistent shadow copy set.
#pragma once

#include <map>
#include <memory>
#include <memory_resource>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/cataloguing.h"
#include "core/errors.h"
#include "core/writer_metadata.h"
#include "platform/export.h"
#include "platform/owners.h"
#include "platform/tessel/TesselCommonClasses.h"
#include "platform/vss.h"

namespace varnel {

inline constexpr wchar_t kAllDatabases[] = L"ALL_DB";
inline constexpr wchar_t kCatalogModule[] = L"varnel";
inline constexpr wchar_t kUnknown[] = L"UNKNOWN";

inline constexpr wchar_t kExchangeWriterId[] = L"{76fe1ac4-15f7-4bcd-987e-8e1acb462fb7}";
inline constexpr wchar_t kExchangeInstallKey[] = L"SOFTWARE\\Microsoft\\ExchangeServer";
inline constexpr wchar_t kExchangeSetupKey[] = L"Setup";
inline constexpr wchar_t kExchangeInstallValue[] = L"MsiInstallPath";
inline constexpr wchar_t kDatabaseChecker[] = L"eseutil.exe";
inline constexpr wchar_t kDatabaseCheckerSwitches[] = L"/k /i";
inline constexpr wchar_t kHyperVWriterId[] = L"{66841cd4-6ded-4f4b-8f17-fd23f8ddc3de}";
inline constexpr wchar_t kClusterSharedVolumeWriterId[] = L"{1072ae1c-e5a7-4ea1-9e4a-6f7964656570}";
inline constexpr wchar_t kSqlServerWriterId[] = L"{a65faa63-5ea8-4ebc-9dbd-a0c4db26912a}";
inline constexpr wchar_t kMsdeWriterId[] = L"{f8544ac1-0611-4fa5-b04b-f7ee00b03277}";

/// Registry names of the host agent. The library reads none of them; TestPointSetting reaches it as the constructor's
/// argument.
namespace agent_registry {
inline constexpr wchar_t kRoot[] = L"SOFTWARE\\Tessel Storage";
inline constexpr wchar_t kConfiguration[] = L"SOFTWARE\\Tessel Storage\\Configuration";
inline constexpr wchar_t kTestPointSetting[] = L"TestPointSetting";
inline constexpr wchar_t kDisableTransportableSnapshots[] = L"DisableTransportableSnapshots";
inline constexpr wchar_t kNoAdditionalVolumeInSnapshot[] = L"NoAdditionalVolumeInSnapshot";
inline constexpr wchar_t kCleanPhantomDevices[] = L"CleanPhantomDevices";
inline constexpr wchar_t kCleanPhantomDevicesInterval[] = L"CleanPhantomDevicesInterval";
inline constexpr wchar_t kCleanPhantomDevicesThreshold[] = L"CleanPhantomDevicesThreshold";
inline constexpr wchar_t kMaxArrayVerSupported[] = L"MaxArrayVerSupported";
inline constexpr wchar_t kMinArrayVerSupported[] = L"MinArrayVerSupported";
inline constexpr wchar_t kExcludedIps[] = L"ExcludedIps";
inline constexpr wchar_t kIncludedIps[] = L"IncludedIps";
inline constexpr wchar_t kGroupMgmtIps[] = L"GroupMgmtIps";
inline constexpr wchar_t kGroupMgmtIp[] = L"GroupMgmtIP";
inline constexpr wchar_t kIscsiGlobalDigestPolicy[] = L"ISCSIGlobalDigestPolicy";
inline constexpr wchar_t kDisableAutomaticGroupDiscovery[] = L"DisableAutomaticGroupDiscovery";
}  // namespace agent_registry

/// Test points: bits of the constructor's mask. All others are ignored.
inline constexpr DWORD kTestPointFailDoSnapshotSet = 0x1;
inline constexpr DWORD kTestPointFailFileVerification = 0x2;

class RequestorProbe;

}  // namespace varnel

/// One volume of the snapshot set.
struct SnapshotVolumeInfo {
  std::wstring volumeName;
  std::wstring snapshotId;
  std::wstring snapshotDeviceName;  ///< the device object with a backslash at the end; empty until it is known
};

/// A requestor: drives one shadow copy request of the host agent through the Volume Shadow Copy service. The agent
/// constructs it (or an application's subclass), names the disks of the protection set, calls Initialize and
/// CreateVssSnapshotSet, and reads the results.
///
/// Driven by one thread at a time; the process must have initialised COM and its security. Operations that fail throw:
/// a bare `long` holding an HRESULT after a failed platform call, or VarnelException for a failed request. Most take
/// the error-details argument, to which they append alert records and the lists that go with them; only ValidateVolumes
/// clears it.
class VARNEL_API CVarnel {
 public:
  /// \param testPoints bits that make parts of the sequence fail on purpose (kTestPoint...).
  explicit CVarnel(DWORD testPoints);
  /// Releases everything; never throws. Shadow copies whose context is auto-release go with the object.
  virtual ~CVarnel();
  CVarnel(const CVarnel&) = delete;
  CVarnel& operator=(const CVarnel&) = delete;

  /// Checks the volumes of a collection (names in the thread's ANSI code page) before a request.
  /// \param status receives the status word of the first rule broken.
  /// \param serialNumbers and \param hostName are kept for application requestors; no check reads them.
  /// \return 0 when they may be protected together, else the catalog id of the reason. Here: clears `errorDetails`.
  virtual DWORD ValidateVolumes(const std::vector<std::string>& volumes, std::string& status, std::string& errorDetails,
                                std::vector<std::string> serialNumbers, const std::string& hostName);
  /// Checks that this host can run the request. \return 0, else the catalog id of the reason.
  virtual DWORD ValidateHostConfiguration(std::string& errorDetails);

  /// Whether this requestor backs this writer up. Here: every writer.
  virtual bool IsWriterEligible(VssWriter& writer);
  /// Whether every file of the component lies on a disk of the protection set. Notes the serial numbers of its disks in
  /// the component. \param volumeSerials serial numbers by volume, found so far.
  virtual bool IsComponentEligible(VssComponent& component, std::map<std::wstring, std::wstring>& volumeSerials);
  /// Checks one file on the snapshot; throws when it is damaged. Here: nothing to check.
  virtual void VerifyComponentFile(VssFileDescriptor& file);

  /// Creates the backup components object and prepares it. Once per object: a second call replaces the first's object.
  /// \param context VSS context; 0 leaves the service's default.
  /// \param backupDocumentXml a saved backup components document, or empty for a new backup.
  /// \param restore initialises for a restore; the context is then not set.
  /// \param enumerator borrowed; must outlive the requestor.
  /// After a failure the members set so far keep their values and the destructor still releases everything.
  void Initialize(DWORD context, std::wstring backupDocumentXml, bool restore, VSS_BACKUP_TYPE backupType,
                  std::string& errorDetails, TesselCommonClasses::DiskAndVolumeEnumerator* enumerator);

  /// The context given to Initialize.
  DWORD GetContext() const;
  /// Borrows the enumerator; may precede Initialize, which replaces it.
  void SetDiskAndVolumeEnumeratorObj(TesselCommonClasses::DiskAndVolumeEnumerator* enumerator);
  /// Adds the serial numbers of the disks to protect, as the devices report them. Throws E_INVALIDARG for an empty
  /// list.
  void SetInputDriveSerialNos(std::vector<std::wstring> serialNumbers);

  /// Asks every writer for its metadata and keeps it. Called by CreateVssSnapshotSet; on its own it serves to look at a
  /// host. Writers read before a failure stay.
  void GatherWriterMetadata(std::string& errorDetails);

  /// Takes the snapshot set: gathers, selects, adds the volumes, prepares, snapshots, saves the document and reads the
  /// properties of the shadow copies (not of transportable ones). `errorDetails` carries the request text with the
  /// writer code ("writer=N,") on the way in.
  ///
  /// Throws VarnelException 601 when the set exists but writers failed for some components, 701 when it exists but the
  /// collection holds volumes that the application does not use, 602 when the protection set is wrong, 600 when writers
  /// failed, and a `long` after a failed call. Nothing is aborted or deleted here, and the members stay as far as they
  /// were filled.
  void CreateVssSnapshotSet(std::string& errorDetails);

  /// Fills the map of application objects by disk serial number, narrow text. On an exception it holds what was filled.
  void GetSnapshotMeatadata(std::map<std::string, ApplicationObjectMeatadataInfo>& metadata);
  /// The databases that the metadata service named, or "ALL_DB"; owned by the requestor or the metadata bridge.
  char* getSuccesfulDBList();

  /// Ends the backup: tells every writer per component whether it succeeded, sends BackupComplete and looks at the
  /// writers once more. Without a snapshot set the backup is aborted instead. Belongs behind every request, failed or
  /// not: until then the service takes no other one.
  /// \param snapErrorCode 0, or the alert code of the VarnelException that ended the request, or the HRESULT that was
  /// thrown, or -1. With anything but 0 and 601 the set is deleted first (a transportable one is kept) and the
  /// components are reported as failed.
  ///
  /// Throws VarnelException 600 or 601 for what the writers said to BackupComplete, and a `long` when the components
  /// could not be marked or a call failed; BackupComplete has then been tried all the same.
  void SetBackupStatus(int snapErrorCode, std::string& errorDetails);

  /// Breaks the set: its shadow copies become ordinary read-write disks of this host. Throws a `long` after a failed
  /// call.
  void BreakSnapshotSet(std::string& errorDetails);
  /// Breaks the set and masks its disks from this host. Throws a `long` after a failed call.
  void MaskSnapshotSet(std::string& errorDetails);
  /// Deletes the set, by force. Throws a `long` when the service did not delete all of it; writes no alert.
  void DeleteSnapshotSet(std::string& errorDetails);
  /// Logs this host out of every iSCSI session that carries a shadow copy of the set. A session whose devices cannot be
  /// read, or that does not end after five tries, is left; the log tells of it unless the number of its devices was
  /// what could not be read. Throws a `long`: 122 without memory for the lists, else the HRESULT of the failed session
  /// list. Transportable sets have no disks here, so nothing is logged out.
  void DisconnectSnapshotLuns(std::string& errorDetails);
  /// Has every file of the selected components checked on the snapshot (VerifyComponentFile); the first damaged one
  /// throws and ends the walk.
  void VerifySnapShotData();

  /// Whether the array's VSS hardware provider is registered on this host.
  bool IsTesselVSSProviderPresent();
  /// Whether a writer that this requestor accepts is present. Belongs before Initialize: it uses the same object.
  bool IsWriterPresent(std::string& errorDetails);
  /// Runs a command line to its end. Throws the exit code as an HRESULT unless it is 0.
  void ExecCommand(std::wstring command) const;

  /// Serial numbers of the array's disks as WMI lists them; empty, with an error line, when there are none.
  static std::vector<std::wstring> GetAllSystemDisksEx(std::string& errorDetails);
  /// Whether the list of system disks holds the serial number, in any case; false while the list is not filled.
  bool IsDiskPresentInSystem(std::wstring serialNumber, std::string& errorDetails);

  /// The snapshot set's identifier in braces; empty before the set is started.
  std::wstring GetSnapShotSetId() const;
  /// The saved backup components document; empty before one was saved.
  std::wstring GetBackupDocument() const;

  /// The symbolic name of an HRESULT, else the system's text for it, else "Error: 0x...". Never throws.
  static std::wstring HResult2String(long hr);
  /// The best text for the administrator; never empty.
  void GetErrorString(long hr, std::wstring& text);
  /// Returns for a success code; otherwise writes the alert of the failed call and throws `hr`.
  /// \param callName the call as it stands in the alert, such as "m_pVssObject->StartSnapshotSet()".
  void CheckCommError(long hr, std::string callName, std::string& errorDetails);

  /// UTF-8 to wide text; empty for null. Throws std::range_error on invalid text.
  static std::wstring stringToWstring(const char* text);
  /// Wide text to UTF-8. Throws std::range_error on invalid text.
  static std::string wstringTostring(const wchar_t* text);
  /// "a, b, c".
  static std::wstring VectorToString(const std::vector<std::wstring>& elements);

  /// What was gathered and selected, for display.
  const std::vector<VssWriter>& GetWriters() const { return m_writers; }
  /// The volumes of the set in the order added, for display.
  const std::vector<SnapshotVolumeInfo>& GetSnapshotVolumes() const { return m_snapshotVolumes; }

  /// The array's VSS hardware provider.
  static const GUID TesselVssProviderID;

 protected:
  /// Whether a test point (kTestPoint...) is on.
  bool IsTestPointSet(DWORD testPoint) const { return (m_testPoints & testPoint) != 0; }
  /// Throws E_POINTER, with an error line, while no enumerator is set.
  TesselCommonClasses::DiskAndVolumeEnumerator& RequireEnumerator() const;

 private:
  friend class varnel::RequestorProbe;

  // The application object that a component stands for.
  virtual void GetComponentInfoForCataloging(const VssComponent& component, ComponentCatalogingInfo& info);
  // Whether components may fail without failing their writer.
  virtual bool ArePartialFailuresSupported();

  void CreateBackupComponents(std::string& errorDetails);
  void InitializeBackup(DWORD context, const std::wstring& backupDocumentXml, std::string& errorDetails);

  void WaitAndCheckForAsyncOperation(IVssAsync* async, std::string operationName, std::string& errorDetails);
  void InitializeWriterMetadata(std::string& errorDetails);
  void FreeWriterMetadata();

  // The identifiers as the service wants them, read once for all components of a writer.
  struct WriterIds {
    explicit WriterIds(const VssWriter& writer);
    GUID instanceId;
    GUID writerId;
  };

  // Selection
  void SelectComponentsForBackup(std::string& errorDetails);
  void SelectComponentsOf(VssWriter& writer, std::map<std::wstring, std::wstring>& volumeSerials,
                          const std::string& errorDetails);
  const std::wstring* SerialNumberOf(const std::wstring& volume, std::map<std::wstring, std::wstring>& volumeSerials);
  bool AreFilesEligible(const VssComponent& component, std::map<std::wstring, std::wstring>& volumeSerials,
                        std::pmr::vector<std::wstring_view>& serialNumbers);
  const SerialNumbers& ShareSerialNumbers(std::span<const std::wstring_view> sorted);
  void AddEligibleSerialNumber(std::wstring_view serialNumber);
  bool checkComponents(std::set<std::wstring> inputComponents, std::wstring componentFullPath);
  bool IsInInputComponents(const std::set<std::wstring>& inputComponents, const std::wstring& componentFullPath);
  void GetComponentsList(std::set<std::wstring>& components);
  void FetchDatabaseList();
  std::wstring ComponentPathOfDatabase(const std::wstring& database, const std::wstring& server);
  void IncludeImplicitComponents();
  void VerifyComponentSelection();
  void DiscardEmptyWriters();
  void AddSelectedComponents(std::string& errorDetails);
  void AddSelectedComponent(const WriterIds& writer, VssComponent& component, std::string& errorDetails);
  VssWriter* FindSelectedWriter(const GUID& instanceId);
  bool IsWriterSelected(GUID instanceId);
  std::string parseWriterCode(std::string requestText);
  void setWriterCode(std::string code);
  std::string getWriterCode();
  // Disks and the protection set
  void GetAllSystemDisks();
  DWORD GetDiskSerialNumberForVolume(const std::wstring& volume, std::wstring& diskName, std::wstring& serialNumber);
  bool IsSerialNumberPresentInInputList(std::wstring serialNumber);
  bool IsInputDisk(const std::wstring& serialNumber) const;
  bool IsSnapShotDevice(std::wstring diskName);
  bool isVolumeEligible(std::wstring serialNumber);
  bool IsOnEligibleDisk(const std::wstring& serialNumber) const;
  void VerifyProtectionSetDiskList(std::string& errorDetails);
  [[noreturn]] void ReportLunMismatch(std::string& errorDetails);
  void FindExtraDisks();
  void StoreExtraVolumesWarning(std::string& errorDetails);
  // The snapshot set
  void StartSnapshotSet(std::string& errorDetails);
  void AddToSnapshotSet(std::string& errorDetails);
  void CollectVolumes();
  void PrepareForBackup(std::string& errorDetails);
  void DoSnapshotSet(std::string& errorDetails);
  void SaveBackupComponentsDocument(std::string& errorDetails);
  void GetSnapShotProperties(std::string& errorDetails);
  void ReadSnapshotProperties(SnapshotVolumeInfo& volume, std::string& errorDetails);
  void IdentifySnapshotDisk(const SnapshotVolumeInfo& volume, std::wstring& diskName, std::wstring& serialNumber);
  bool IsVolumeAlreadyAdded(std::wstring volume);
  void GetVolumeListForExtraVolumes(std::vector<std::wstring>& volumes);
  // Writer status
  struct StatusSummary;
  struct WriterStatus;
  void GatherWriterStatus(std::string& errorDetails);
  void CheckSelectedWriterStatus(std::string& errorDetails);
  void CheckWriterStatus(const WriterStatus& status, StatusSummary& summary, std::string& errorDetails);
  std::wstring ReportWriterFailure(const WriterStatus& status, std::string& errorDetails);
  std::wstring FailWholeWriter(VssWriter& writer, HRESULT hr);
  std::wstring FailPartialWriter(VssWriter& writer, StatusSummary& summary, std::string& errorDetails);
  void HandlePartialWriterFailure(VssWriter& writer, std::wstring& failedComponentsText, std::string& errorDetails);
  void ReadComponentFailures(VssWriter& writer, IVssWriterComponentsExt* components, std::wstring& text,
                             std::string& errorDetails);
  void MarkAllWriterComponentsAsFailed(VssWriter& writer, long hr, std::wstring& failedComponentList);
  DWORD GetWriterStatusMessage(VSS_WRITER_STATE state, const std::wstring& writerName, std::wstring& text);
  std::wstring GetStringFromWriterStatus(VSS_WRITER_STATE state);
  // Completion and maintenance
  struct MarkingResult;
  void AbortUnfinishedBackup();
  void CleanUpFailedSet(std::string& errorDetails);
  MarkingResult MarkComponents(int snapErrorCode, std::string& errorDetails);
  void SetBackupSucceeded(int snapErrorCode, std::string& errorDetails);
  void ReportComponent(const WriterIds& writer, const VssComponent& component, bool byDefault,
                       std::string& errorDetails);
  void BackupComplete(std::string& errorDetails);
  bool HoldsSnapshotDevice(const std::vector<std::wstring>& devices);
  // Names and catalogue
  std::wstring GetHostnameNetworkName(std::wstring name);
  std::wstring ClusterNetworkName(const std::wstring& name);
  bool FindEligibleWriter();
  void CatalogComponent(const VssComponent& component, std::map<std::string, ApplicationObjectMeatadataInfo>& metadata);

  void GetVSSErrorMessage(long hr, std::wstring& text);
  // 0, or the Win32 error that left `text` empty.
  template <class... Arguments>
  DWORD GetErrorMessageFromCatalog(int id, std::wstring& text, const Arguments&... arguments) {
    return FormatCatalogMessage(id, text, std::initializer_list<varnel::FormatArgument>{arguments...});
  }
  DWORD FormatCatalogMessage(int id, std::wstring& text, std::initializer_list<varnel::FormatArgument> arguments);
  bool PrepareMessageBuffer();

  // The result of a call on m_pVssObject, VSS_E_BAD_STATE while there is none.
  template <class Call>
  HRESULT OnVssObject(Call call) {
    return m_pVssObject ? call(*m_pVssObject) : VSS_E_BAD_STATE;
  }

  std::vector<std::wstring> m_systemDisks;
  std::set<std::wstring> m_inputComponents;
  char* m_successfulDBList;
  varnel::ComPtr<IVssBackupComponents> m_pVssObject;
  std::wstring m_snapshotSetId;
  bool m_initialized = false;
  bool m_restoreMode = false;
  DWORD m_context = 0;
  std::vector<VssWriter> m_writers;
  std::vector<SnapshotVolumeInfo> m_snapshotVolumes;
  std::vector<std::wstring> m_inputSerialNumbers;
  std::vector<std::wstring> m_eligibleSerialNumbers;
  std::set<SerialNumbers, SerialNumbers::ByContent> m_serialNumberSets;  // those that components share
  bool m_snapshotDone = false;
  std::wstring m_writerErrorText;
  std::vector<std::wstring> m_failedComponents;
  varnel::Bstr m_backupDocument;
  bool m_metadataGathered = false;
  std::unique_ptr<wchar_t[]> m_messageBuffer;
  VarnelException m_lastException;
  std::vector<std::wstring> m_extraSerialNumbers;
  std::string m_writerCode;
  TesselCommonClasses::DiskAndVolumeEnumerator* m_diskAndVolumeEnumerator = nullptr;
  DWORD m_testPoints;
};
