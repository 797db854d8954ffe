// One backup as the service sees it: the order of calls, the writers, the document and the snapshot set.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "simulator/machine/machine.h"
#include "simulator/vss/vss_async.h"
#include "simulator/vss/vss_components.h"
#include "simulator/vss/writer_session.h"

namespace varnel::simulator {

/// How a call names a component.
struct ComponentName {
  GUID instanceId{};
  GUID writerId{};
  VSS_COMPONENT_TYPE type = VSS_CT_UNDEFINED;
  LPCWSTR logicalPath = nullptr;  // null: none
  LPCWSTR name = nullptr;
};

/// How a gathered writer stood when its status was last asked for.
struct ReportedWriter {
  std::shared_ptr<const Writer> data;
  WriterStatus status;
};

/// The rules of IVssBackupComponents: every method answers as the interface's method of the same name does, without
/// the call log and the fault plan's call faults. Everything out of order is VSS_E_BAD_STATE.
class BackupSession {
 public:
  using ComponentChange = std::function<void(DocumentComponent& component)>;
  using WriterSelection = void (WriterSession::*)(const std::vector<GUID>& ids);

  explicit BackupSession(std::shared_ptr<Machine> machine);
  /// Raises BackupShutdown, gives up a set under construction and deletes auto-release copies.
  ~BackupSession();
  BackupSession(const BackupSession&) = delete;
  BackupSession& operator=(const BackupSession&) = delete;

  const GUID& id() const { return id_; }
  bool IsInitialized() const { return stage_ != Stage::created; }

  HRESULT InitializeForBackup(BSTR xml);
  HRESULT InitializeForRestore(BSTR xml);
  HRESULT SetContext(LONG context);
  HRESULT SetBackupState(bool selectComponents, bool bootableSystemState, VSS_BACKUP_TYPE type, bool partialFiles);
  /// For the calls that enable or disable writers.
  HRESULT SelectWriters(const VSS_ID* ids, UINT count, WriterSelection select);

  HRESULT GatherWriterMetadata(IVssAsync** async);
  HRESULT GetWriterMetadataCount(UINT* count);
  /// The writer at `index`; its metadata stays alive with it.
  HRESULT GetWriterMetadata(UINT index, std::shared_ptr<const Writer>& writer);
  HRESULT FreeWriterMetadata();

  HRESULT AddComponent(const ComponentName& component);
  // Changes of a component that was added. The calls name no instance: it is the first one of the class that has the
  // component.
  HRESULT ChangeForBackup(const ComponentName& component, const ComponentChange& change);
  HRESULT ChangeForRestore(const ComponentName& component, const ComponentChange& change);
  HRESULT SetBackupSucceeded(const ComponentName& component, bool succeeded);

  HRESULT StartSnapshotSet(VSS_ID* setId);
  HRESULT AddToSnapshotSet(const wchar_t* volume, const GUID& provider, VSS_ID* copyId);
  HRESULT PrepareForBackup(IVssAsync** async);
  HRESULT DoSnapshotSet(IVssAsync** async);
  HRESULT BackupComplete(IVssAsync** async);
  HRESULT AbortBackup();

  HRESULT SetRestoreState(VSS_RESTORE_TYPE type);
  /// `instanceId` is the writer that takes the component back; null: the one that it is of.
  HRESULT SetSelectedForRestore(const ComponentName& component, bool selected, const GUID& instanceId);
  HRESULT PreRestore(IVssAsync** async);
  HRESULT SetFileRestoreStatus(const ComponentName& component, VSS_FILE_RESTORE_STATUS status);
  HRESULT PostRestore(IVssAsync** async);

  HRESULT GatherWriterStatus(IVssAsync** async);
  HRESULT GetWriterStatusCount(UINT* count);
  HRESULT GetWriterStatus(UINT index, const ReportedWriter*& writer);
  HRESULT FreeWriterStatus();

  HRESULT SaveAsXML(std::string& xml);
  HRESULT GetWriterComponentsCount(UINT* count);
  HRESULT GetWriterComponents(UINT index, IVssWriterComponentsExt** writer);

  HRESULT GetSnapshotProperties(const GUID& copyId, const ShadowCopy*& copy);
  HRESULT QuerySnapshots(std::vector<const ShadowCopy*>& copies);
  HRESULT QueryProviders();
  HRESULT IsVolumeSupported(const GUID& provider, const wchar_t* volume, BOOL* supported);
  HRESULT DeleteSnapshots(const GUID& id, VSS_OBJECT_TYPE type, LONG& deleted, VSS_ID& notDeleted);
  HRESULT ExposeSnapshot(const GUID& copyId, LPCWSTR pathFromRoot, LONG where, LPCWSTR name, std::wstring& exposedName);
  HRESULT UnexposeSnapshot(const GUID& copyId);
  HRESULT BreakSnapshotSet(const GUID& setId);
  HRESULT BreakSnapshotSetEx(const GUID& setId, DWORD flags, IVssAsync** async);
  HRESULT ImportSnapshots(IVssAsync** async);

 private:
  enum class Stage {
    created,
    initialized,
    setStarted,
    preparing,  // PrepareForBackup was called and has not succeeded
    prepared,
    snapshotting,  // DoSnapshotSet was called and has not ended
    snapshotDone,
    complete,
    ended,  // aborted, or DoSnapshotSet failed
  };

  enum class Restore {
    none,
    selecting,  // the requestor says what comes back, and how
    preparing,  // PreRestore was called and has not succeeded
    restoring,
    complete,
  };

  struct Before {
    Stage stage;
    bool gathered;
  };

  // The components of one writer in the document, by key.
  using AddedComponents = std::unordered_map<std::wstring, std::size_t>;

  bool IsIn(Stage first, Stage last) const { return stage_ >= first && stage_ <= last; }
  bool IsBackupIn(Stage first, Stage last) const { return restore_ == Restore::none && IsIn(first, last); }
  bool SelectsComponents() const { return document_->content.selectComponents; }
  bool IsIdle();
  bool HasDocument();
  bool MaySelectWriters();
  void NoticeCancellation();
  HRESULT LoadDocument(BSTR xml);

  template <class Work>
  HRESULT RunAsync(std::string_view name, IVssAsync** async, Work&& work);
  void HandOut(std::shared_ptr<AsyncOperation> operation, IVssAsync** async);

  std::size_t DocumentWriterFor(const GatheredWriter& writer);
  DocumentWriter* FindDocumentWriter(const GUID& instanceId, const GUID& writerId);
  DocumentWriter* EntryOf(const Writer& writer);
  DocumentComponent* FindAdded(const ComponentName& component);
  HRESULT Change(const ComponentName& component, bool inOrder, const ComponentChange& change);

  bool TakesPart(const GatheredWriter& writer);
  std::vector<std::wstring> Participants();
  void ChooseParticipants();
  void RaiseAtAll(WriterEvent event, VSS_WRITER_STATE reached, VSS_WRITER_STATE failed);
  void RaiseAtParticipants(WriterEvent event, VSS_WRITER_STATE reached, VSS_WRITER_STATE failed);
  void RaiseAtRestorers(WriterEvent event, VSS_WRITER_STATE failed);
  void LetWritersLeave(std::optional<std::wstring> WriterComponent::*what,
                       std::optional<std::wstring> DocumentComponent::*where);
  ULONGLONG RaiseAt(GatheredWriter& writer, WriterEvent event, VSS_WRITER_STATE reached, VSS_WRITER_STATE failed);
  std::optional<WriterFault> JudgeDatabases(const GatheredWriter& writer, WriterEvent event);
  void RecordComponentFailures(const GatheredWriter& writer, const WriterFault& fault);
  bool MayDoSnapshotSet();
  DWORD SnapshotMilliseconds() const;
  void FreezeWriters();
  void FailFrozenWriters(ULONGLONG milliseconds);
  HRESULT HangInCommit();
  HRESULT TakeSnapshots(const std::optional<HRESULT>& forced);
  void EndSnapshot();
  void SaveTransportableCopies();
  HRESULT CompleteBackup();

  std::shared_ptr<Machine> machine_;
  SnapshotService& service_;
  GUID id_;
  Stage stage_ = Stage::created;
  Restore restore_ = Restore::none;
  bool loaded_ = false;
  bool contextFixed_ = false;
  bool backupStateSet_ = false;
  bool gatherStarted_ = false;
  bool gathered_ = false;
  bool metadataFreed_ = false;
  LONG context_ = VSS_CTX_BACKUP;
  GUID setId_{};
  std::vector<std::wstring> setVolumes_;  // of the set that is being taken
  std::shared_ptr<AsyncOperation> pending_;
  std::shared_ptr<AsyncOperation> snapshotOperation_;
  std::optional<Before> before_;          // the pending operation, unless that takes the snapshot
  ULONGLONG windowMilliseconds_ = 0;      // from Freeze on, within the snapshot that is being worked out
  ULONGLONG hungMilliseconds_ = 0;        // how long writers kept the operation that was started last
  std::optional<ULONGLONG> hungSince_{};  // when the commit began that does not end
  WriterSession writers_;
  std::optional<std::vector<ReportedWriter>> reported_;
  std::shared_ptr<SharedDocument> document_ = std::make_shared<SharedDocument>();
  std::vector<AddedComponents> added_;  // parallel to the document's writers
};

}  // namespace varnel::simulator
