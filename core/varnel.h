// CVarnel: one requestor, one application-consistent shadow copy set.
#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "core/cataloguing.h"
#include "core/configuration.h"
#include "core/exception.h"
#include "core/writer_metadata.h"
#include "platform/export.h"
#include "platform/owners.h"
#include "platform/tessel/TesselCommonClasses.h"
#include "platform/vss.h"

namespace varnel {
class FailedWriter;
class RequestorProbe;
}  // namespace varnel

/// One volume of the snapshot set.
struct SnapshotVolumeInfo {
  std::wstring volumeName;          ///< its unique name
  std::wstring snapshotId;          ///< the GUID of its shadow copy in braces; empty before AddToSnapshotSet
  std::wstring snapshotDeviceName;  ///< the device object with a backslash at the end; empty until it is known
};

/// A requestor: drives one shadow copy request of the host agent through the Volume Shadow Copy service. The agent
/// constructs it (or an application's subclass), names the disks of the protection set, calls Initialize and
/// CreateVssSnapshotSet, and reads the results.
///
/// An object, and the enumerator that it borrows, belong to one thread at a time. Objects on several threads of one
/// process do not disturb each other, although they share the host, the log, the metadata bridge and the serial number
/// of the system drive. The service takes one set at a time: CreateVssSnapshotSet throws VSS_E_SNAPSHOT_SET_IN_PROGRESS
/// as a `long` while another's is under construction, and the agent tries again later with a new object.
///
/// The process must have initialised COM and its security. Operations that fail throw: a bare `long` holding an HRESULT
/// after a failed platform call, or VarnelException for a failed request. What else can leave an operation is said
/// there; any of them can throw std::bad_alloc, and varnel::NoHostError where no host is installed (only outside
/// Windows). After any exception the object can still be asked, completed with SetBackupStatus and destroyed. Most
/// operations take the error-details argument, to which they append alert records and the lists that go with them; only
/// ValidateVolumes clears it.
class VARNEL_API CVarnel {
 public:
  /// \param testPoints bits that make parts of the sequence fail on purpose (kTestPoint...).
  explicit CVarnel(DWORD testPoints);
  /// Releases everything; never throws. Shadow copies whose context is auto-release go with the object.
  virtual ~CVarnel();
  CVarnel(const CVarnel&) = delete;
  CVarnel& operator=(const CVarnel&) = delete;

  /// Checks the volumes of a collection (names in the thread's ANSI code page) before a request.
  /// \param volumes unique names or mount points.
  /// \param status receives the status word of the first rule broken.
  /// \param errorDetails receives the alert record of that rule. Here: is cleared.
  /// \param serialNumbers is kept for application requestors; no check reads it.
  /// \param hostName the same.
  /// \return 0 when they may be protected together, else the catalog id of the reason. Here: 0 for any.
  /// An application's check can throw E_POINTER as a `long` while no enumerator is set.
  virtual DWORD ValidateVolumes(const std::vector<std::string>& volumes, std::string& status, std::string& errorDetails,
                                std::vector<std::string> serialNumbers, const std::string& hostName);
  /// Checks that this host can run the request. \return 0, else the catalog id of the reason.
  virtual DWORD ValidateHostConfiguration(std::string& errorDetails);

  /// Whether this requestor backs this writer up. Here: every writer. Asked once per writer and request.
  virtual bool IsWriterEligible(VssWriter& writer);
  /// Whether every file of the component lies on a disk of the protection set. Notes the serial numbers of its disks in
  /// the component, also of one that is not eligible in the end.
  /// \param component one of a writer's that was gathered.
  /// \param volumeSerials serial numbers by volume, found so far.
  /// Throws what the disk and volume enumerator throws (TesselCommonClasses::ExceptionCommon), and
  /// std::invalid_argument or std::out_of_range for a writer code that is no number.
  virtual bool IsComponentEligible(VssComponent& component, std::map<std::wstring, std::wstring>& volumeSerials);
  /// Checks one file on the snapshot; throws when it is damaged. Here: nothing to check.
  virtual void VerifyComponentFile(VssFileDescriptor& file);

  /// Creates the backup components object and prepares it. Once per object: a second call replaces the first's object.
  /// \param context VSS context; 0 leaves the service's default.
  /// \param backupDocumentXml a saved backup components document, or empty for a new backup.
  /// \param backupType what the writers are to prepare for.
  /// \param errorDetails receives the alert record of a failure.
  /// \param restore initialises for a restore; the context is then not set.
  /// \param enumerator borrowed; must outlive the requestor.
  /// Throws a `long` after a failed call. The members set so far then keep their values and the destructor still
  /// releases everything.
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
  /// host, after Initialize. Throws a `long` after a failed call; writers read before it stay.
  void GatherWriterMetadata(std::string& errorDetails);

  /// Takes the snapshot set: gathers, selects, adds the volumes, prepares, snapshots, saves the document and reads the
  /// properties of the shadow copies (not of transportable ones). `errorDetails` carries the request text with the
  /// writer code ("writer=N,") on the way in.
  ///
  /// Throws
  /// - VarnelException 601 when the set exists but the writers' part is incomplete: writers failed for some components,
  ///   or, where the requestor accepts partial failures, one writer of several failed as a whole. Such a set is kept by
  ///   SetBackupStatus(601);
  /// - VarnelException 701 when the set exists but the collection holds volumes that the application does not use (601
  ///   comes before it). SetBackupStatus(701) deletes the set; an agent that accepts it passes 0;
  /// - VarnelException 602 when the protection set is wrong, 600 when writers failed;
  /// - a `long` after a failed call, E_INVALIDARG when databases are to be named and no disk was given, E_POINTER when
  /// a
  ///   disk must be looked up and no enumerator is set;
  /// - std::invalid_argument or std::out_of_range for a writer code that is no number (an absent one included);
  /// - std::range_error for text of the metadata service, or a serial number for it, that is not valid;
  /// TesselCommonClasses::ExceptionCommon of the
  ///   disk and volume enumerator, and what the metadata bridge throws.
  ///
  /// Nothing is aborted or deleted here, and the members stay as far as they were filled.
  void CreateVssSnapshotSet(std::string& errorDetails);

  /// Fills the map of application objects by disk serial number, narrow text. Throws std::range_error for a name that
  /// is not valid Unicode, ExceptionCommon of the enumerator, and E_POINTER as a `long` where extra disks are to be
  /// told and no enumerator is set; the map then holds what was filled before.
  void GetSnapshotMeatadata(std::map<std::string, ApplicationObjectMeatadataInfo>& metadata);
  /// The databases that the metadata service named, or "ALL_DB". Not the caller's: nobody may write to the text or free
  /// it, and it is valid until the metadata bridge of this process fetches another list, for this requestor or for
  /// another, on whatever thread. Null when the bridge had none. Never throws.
  char* getSuccesfulDBList();

  /// Ends the backup: tells every writer per component whether it succeeded, sends BackupComplete and looks at the
  /// writers once more. Without a snapshot set the backup is aborted instead. Belongs after every request, failed or
  /// not: until then the service takes no other one.
  /// \param snapErrorCode 0, or the alert code of the VarnelException that ended the request, or the HRESULT that was
  /// thrown, or -1. With anything but 0 and 601 the set is deleted first (a transportable one is kept) and the
  /// components are reported as failed.
  /// \param errorDetails receives the alert records of what fails in the completion.
  ///
  /// Throws VarnelException 600 or 601 for what the writers said to BackupComplete, and a `long` when the components
  /// could not be marked or a call failed; BackupComplete has then been tried all the same. A set that could not be
  /// deleted is told in the log alone, whatever is thrown: a host agent that must know asks the service which shadow
  /// copies of GetSnapShotSetId are left, with IVssBackupComponents::Query on an object of its own whose context is
  /// VSS_CTX_ALL (this one's lists only what its own context made).
  void SetBackupStatus(int snapErrorCode, std::string& errorDetails);

  /// Breaks the set: its shadow copies become ordinary read-write disks of this host. Throws a `long` after a failed
  /// call.
  void BreakSnapshotSet(std::string& errorDetails);
  /// Breaks the set and masks its disks from this host. Throws a `long` after a failed call.
  void MaskSnapshotSet(std::string& errorDetails);
  /// Deletes the set, by force. Throws a `long` when the service did not delete all of it; writes no alert. The service
  /// stops at the first shadow copy that cannot be deleted, so some may be gone: which ones are left is asked of the
  /// service as after SetBackupStatus.
  void DeleteSnapshotSet(std::string& errorDetails);
  /// Logs this host out of every iSCSI session that carries a shadow copy of the set. A session whose devices cannot be
  /// read, or that does not end after five tries, is left; the log tells of it unless the number of its devices was
  /// what could not be read. Throws a `long`: 122 without memory for the lists, else the HRESULT of the failed session
  /// list. Transportable sets have no disks here, so nothing is logged out.
  void DisconnectSnapshotLuns(std::string& errorDetails);
  /// Has every file of the selected components checked on the snapshot (VerifyComponentFile); what that throws for the
  /// first damaged one ends the walk and marks no component.
  void VerifySnapShotData();

  /// Whether the array's VSS hardware provider is registered on this host. Throws a `long` after a failed call.
  bool IsTesselVSSProviderPresent();
  /// Whether a writer that this requestor accepts is present. Belongs before Initialize: it uses the same object.
  /// Throws a `long` after a failed call.
  bool IsWriterPresent(std::string& errorDetails);
  /// Runs a command line to its end, however long that takes. Throws a `long`: the exit code as an HRESULT unless it is
  /// 0, or the HRESULT of the call that failed.
  void ExecCommand(std::wstring command) const;

  /// Serial numbers of the array's disks as WMI lists them; empty, with an error line, when there are none. Throws
  /// TesselCommonClasses::ExceptionCommon when WMI cannot be asked.
  static std::vector<std::wstring> GetAllSystemDisksEx(std::string& errorDetails);
  /// Whether the list of system disks holds the serial number, in any case; false while the list is not filled. Throws
  /// as GetAllSystemDisksEx does.
  bool IsDiskPresentInSystem(std::wstring serialNumber, std::string& errorDetails);

  /// The snapshot set's identifier in braces; empty before the set is started.
  std::wstring GetSnapShotSetId() const;
  /// The saved backup components document; empty before one was saved.
  std::wstring GetBackupDocument() const;

  /// The symbolic name of an HRESULT, else the system's text for it, else "Error: 0x...". Never throws but
  /// for want of memory.
  static std::wstring HResult2String(long hr);
  /// The best text for the administrator; never empty. Never throws but for want of memory.
  void GetErrorString(long hr, std::wstring& text);
  /// Returns for a success code; otherwise writes the alert of the failed call and throws `hr` as a `long`.
  /// \param hr what the call answered.
  /// \param errorDetails receives the record.
  /// \param callName the call as it stands in the alert, such as "m_pVssObject->StartSnapshotSet()".
  void CheckCommError(long hr, std::string callName, std::string& errorDetails);

  /// UTF-8 to wide text; empty for null. Throws std::range_error on invalid text.
  static std::wstring stringToWstring(const char* text);
  /// Wide text, never null, to UTF-8. Throws std::range_error on invalid text.
  static std::string wstringTostring(const wchar_t* text);
  /// "a, b, c".
  static std::wstring VectorToString(const std::vector<std::wstring>& elements);

  /// What was gathered and selected, for display.
  const std::vector<VssWriter>& GetWriters() const { return m_writers; }
  /// The volumes of the set in the order added, for display.
  const std::vector<SnapshotVolumeInfo>& GetSnapshotVolumes() const { return m_snapshotVolumes; }

  /// The array's VSS hardware provider, as the library was built with it. core/provider.h names another at run time.
  static const GUID TesselVssProviderID;

 private:
  friend class varnel::FailedWriter;
  friend class varnel::RequestorProbe;

  // The application object that a component stands for.
  virtual void GetComponentInfoForCataloging(const VssComponent& component, ComponentCatalogingInfo& info);
  // Whether components may fail without failing their writer.
  virtual bool ArePartialFailuresSupported();

  // Gathering
  void WaitAndCheckForAsyncOperation(IVssAsync* async, std::string operationName, std::string& errorDetails);
  void InitializeWriterMetadata(std::string& errorDetails);
  void FreeWriterMetadata() noexcept;

 protected:
  // Selection
  /// A part of CreateVssSnapshotSet, for a subclass that only wants to know what a request would hold: marks what takes
  /// part and names it to the service, of which nothing is asked that a writer would notice. Needs gathered metadata.
  /// Throws what CreateVssSnapshotSet throws of the selection.
  void SelectComponentsForBackup(std::string& errorDetails);

 private:
  bool checkComponents(std::set<std::wstring> inputComponents, std::wstring componentFullPath);
  void GetComponentsList(std::set<std::wstring>& components);
  void IncludeImplicitComponents();
  void VerifyComponentSelection();
  void DiscardEmptyWriters();
  void AddSelectedComponents(std::string& errorDetails);
  bool IsWriterSelected(GUID instanceId);
  std::string parseWriterCode(std::string requestText);
  void setWriterCode(std::string code);
  std::string getWriterCode();
  // Disks and the protection set
  void GetAllSystemDisks();
  DWORD GetDiskSerialNumberForVolume(const std::wstring& volume, std::wstring& diskName, std::wstring& serialNumber);
  bool IsSerialNumberPresentInInputList(std::wstring serialNumber);
  bool IsSnapShotDevice(std::wstring diskName);
  bool isVolumeEligible(std::wstring serialNumber);
  void VerifyProtectionSetDiskList(std::string& errorDetails);
  // The snapshot set
  void AddToSnapshotSet(std::string& errorDetails);
  void PrepareForBackup(std::string& errorDetails);
  void DoSnapshotSet(std::string& errorDetails);
  void SaveBackupComponentsDocument(std::string& errorDetails);
  void GetSnapShotProperties(std::string& errorDetails);

 protected:
  /// Whether GetSnapshotVolumes has the volume, in any case of letters.
  bool IsVolumeAlreadyAdded(std::wstring volume);
  /// Appends the volumes of the protection set's disks that the application does not use, but for the system's.
  void GetVolumeListForExtraVolumes(std::vector<std::wstring>& volumes);

 private:
  // Writer status
  void GatherWriterStatus(std::string& errorDetails);
  void CheckSelectedWriterStatus(std::string& errorDetails);
  void HandlePartialWriterFailure(VssWriter& writer, std::wstring& failedComponentsText, std::string& errorDetails);
  void MarkAllWriterComponentsAsFailed(VssWriter& writer, long hr, std::wstring& failedComponentList);
  DWORD GetWriterStatusMessage(VSS_WRITER_STATE state, const std::wstring& writerName, std::wstring& text);
  std::wstring GetStringFromWriterStatus(VSS_WRITER_STATE state);
  // Completion
  void SetBackupSucceeded(int snapErrorCode, std::string& errorDetails);
  void BackupComplete(std::string& errorDetails);
  // Names and messages
  std::wstring GetHostnameNetworkName(std::wstring name);
  void GetVSSErrorMessage(long hr, std::wstring& text);
  // 0, or the Win32 error that left `text` empty.
  template <class... Arguments>
  DWORD GetErrorMessageFromCatalog(int id, std::wstring& text, const Arguments&... arguments);

 protected:
  /// Serial numbers of the array's disks on this host, as WMI lists them; empty before somebody asks.
  std::vector<std::wstring> m_systemDisks;
  /// The databases that the metadata service named; empty where all take part.
  std::set<std::wstring> m_inputComponents;
  /// What getSuccesfulDBList gives; the metadata bridge's.
  const char* m_successfulDBList;
  /// The service's object of this request; null before Initialize.
  varnel::ComPtr<IVssBackupComponents> m_pVssObject;
  /// The GUID of the set in braces; empty before it is started.
  std::wstring m_snapshotSetId;
  /// Whether Initialize was called.
  bool m_initialized = false;
  /// Whether the object was initialised for a restore.
  bool m_restoreMode = false;
  /// The context given to Initialize.
  DWORD m_context = 0;
  /// The writers of this host, and what of them was selected.
  std::vector<VssWriter> m_writers;
  /// The volumes of the set in the order added.
  std::vector<SnapshotVolumeInfo> m_snapshotVolumes;
  /// Serial numbers of the protection set's disks, as the agent gave them.
  std::vector<std::wstring> m_inputSerialNumbers;
  /// Those of the disks that eligible components lie on.
  std::vector<std::wstring> m_eligibleSerialNumbers;
  /// Whether the set was taken, whatever the writers said of it.
  bool m_snapshotDone = false;
  /// What the failed writers said since the request, or its completion, began.
  std::wstring m_writerErrorText;
  /// One entry per failed writer of those.
  std::vector<std::wstring> m_failedComponents;
  /// The saved backup components document; null before one was saved.
  varnel::Bstr m_backupDocument;
  /// Whether the service holds metadata that must be freed.
  bool m_metadataGathered = false;
  /// The latest message of the catalog.
  std::unique_ptr<wchar_t[]> m_messageBuffer;
  /// 601 or 701, to be thrown when the set is complete; None while there is no such message.
  VarnelException m_lastException;
  /// Serial numbers of disks whose volumes were added although the application does not use them.
  std::vector<std::wstring> m_extraSerialNumbers;
  /// The writer code of the request text.
  std::string m_writerCode;
  /// Borrowed; null before Initialize or SetDiskAndVolumeEnumeratorObj.
  TesselCommonClasses::DiskAndVolumeEnumerator* m_diskAndVolumeEnumerator = nullptr;
  /// The mask given to the constructor.
  DWORD m_testPoints;
};
