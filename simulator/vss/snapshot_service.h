// The snapshot sets and shadow copies of a simulated host, and the providers that make them.
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "simulator/machine/machine.h"

namespace varnel::simulator {

struct AsyncOperation;  // vss_async.h

/// A shadow copy of one volume.
struct ShadowCopy {
  GUID id{};
  GUID setId{};
  GUID providerId{};
  GUID owner{};                 // the session whose end releases it
  LONG attributes = 0;          // the context it was made in and what the service added
  VSS_TIMESTAMP timestamp = 0;  // 100 ns since 1601, UTC
  LONG copiesInSet = 0;
  std::wstring originatingMachine;
  std::wstring originalVolume;  // "\\?\Volume{...}\"
  std::wstring originalSerial;
  std::wstring device;       // "\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopyN", empty until it is surfaced
  std::wstring exposedName;  // a drive or folder with a backslash at its end, or a share; empty: not exposed
  std::wstring exposedPath;  // the part of the copy that a share shows; empty: all of it
  DWORD diskNumber = 0;
  std::wstring serial;
  bool ownDisk = true;     // false: its provider keeps it on the original disk
  bool surfaced = false;   // false: transportable and not imported here
  bool masked = false;     // its disk was taken from this machine
  bool forgotten = false;  // broken: an ordinary disk that the service does not know
};

/// A volume of a set under construction.
struct PlannedCopy {
  GUID id{};
  Provider provider;
  std::wstring volume;
};

struct OpenSet {
  GUID session{};
  GUID id{};
  LONG context = 0;
  std::vector<PlannedCopy> copies;
};

/// A session that has begun a set or imported one, and the process that it ends with.
struct KnownSession {
  GUID id{};
  DWORD process = 0;
  GUID setUnderWay{};                 // whose DoSnapshotSet has not ended
  std::vector<std::wstring> writers;  // that are told when it ends
};

/// What outlives the service's process.
struct ServiceState {
  unsigned devices = 0;
  std::list<ShadowCopy> copies;
  std::optional<OpenSet> openSet;
  std::vector<GUID> imported;
  std::vector<KnownSession> sessions;
};

/// A writer that was told of an event.
struct RaisedEvent {
  std::wstring writer;
  std::optional<WriterEvent> event;  // nothing: Abort
  HRESULT failure = 0;
  ULONGLONG time = 0;  // of GetTickCount64
};

/// One per machine. Sessions (backup components objects) are known by their identifiers. Results are those of the call
/// that asks; nothing here is logged, and of the fault plan only the faults of deletions count here.
class SnapshotService {
 public:
  explicit SnapshotService(Machine& machine);
  ~SnapshotService();
  SnapshotService(const SnapshotService&) = delete;
  SnapshotService& operator=(const SnapshotService&) = delete;

  /// The copies that this machine can see, in the order of their creation. Pointers hold until the next change.
  std::vector<const ShadowCopy*> SurfacedCopies() const;
  /// The surfaced copy whose own disk has this number; null when none has.
  const ShadowCopy* CopyOnDisk(DWORD number) const;
  /// The surfaced copy with this device, case ignored; null when none has it.
  const ShadowCopy* CopyOfDevice(std::wstring_view device) const;
  /// Those that are exposed as drives or folders.
  const std::vector<const ShadowCopy*>& MountedCopies() const;

  /// Opens the machine's only set under construction.
  HRESULT StartSet(const GUID& session, LONG context, GUID& setId);
  /// Adds a volume to the session's open set. A null provider means the best one that supports the volume.
  HRESULT AddVolume(const GUID& session, std::wstring_view volume, const GUID& provider, GUID& copyId);
  bool HasVolumes(const GUID& session) const;
  /// Whether the providers of the session's open set go along with a step: VSS_E_PROVIDER_VETO when one refuses it.
  HRESULT AskProviders(const GUID& session, ProviderStep step);
  /// The unique names of the volumes in the session's open set.
  std::vector<std::wstring> VolumesOfOpenSet(const GUID& session) const;
  bool HasHangingProvider(const GUID& session) const;
  /// Makes the copies of the session's open set, all or none, and closes the set in both cases.
  HRESULT CommitSet(const GUID& session);
  /// Closes the session's open set, if it has one.
  HRESULT AbandonSet(const GUID& session);
  HRESULT IsVolumeSupported(std::wstring_view volume, const GUID& provider, LONG context, bool& supported) const;

  /// Whether the service knows a copy of a volume here.
  HRESULT IsSnapshotted(std::wstring_view volume, bool& snapshotted) const;
  /// A copy that the service knows on this machine; null for any other.
  const ShadowCopy* Find(const GUID& copyId) const;
  /// Those that an object of this context sees; VSS_CTX_ALL sees every one.
  std::vector<const ShadowCopy*> CopiesOfContext(LONG context) const;
  /// Every copy of a set, also those that are not surfaced here.
  std::vector<const ShadowCopy*> CopiesOfSet(const GUID& setId) const;

  /// Deletes a copy or a set, one copy after the other, and stops at the first that its provider cannot delete:
  /// `deleted` then counts those before it and `notDeleted` names it.
  HRESULT Delete(const GUID& id, VSS_OBJECT_TYPE type, LONG& deleted, GUID& notDeleted);
  /// Whether a set can be broken: its copies must be surfaced here, each on a disk of its own.
  HRESULT CanBreak(const GUID& setId) const;
  HRESULT Break(const GUID& setId, DWORD flags);
  /// Exposes a copy that is here: `where` is VSS_VOLSNAP_ATTR_EXPOSED_LOCALLY, then `name` is a drive letter or a
  /// folder, or _REMOTELY, then it is a share's name and `pathFromRoot` may narrow it. `exposedName` is what callers
  /// find it by.
  HRESULT Expose(const GUID& copyId, LONG where, std::wstring_view name, std::wstring_view pathFromRoot,
                 std::wstring& exposedName);
  HRESULT Unexpose(const GUID& copyId);
  /// Surfaces transportable copies, made here or elsewhere. The result of the asynchronous operation.
  HRESULT Import(const GUID& session, std::span<const ShadowCopy> copies);
  /// Removes a copy or every copy of a set, asking no provider: for a commit that was cancelled.
  void Withdraw(GUID id);
  /// The end of a session: its open set and its auto-release copies go.
  void EndSession(const GUID& session);

  // With a state file (shared_state.h); all of it is nothing without one. What changes the state there fails with the
  // Win32 code of a file that was not written, and then has changed nothing.

  /// Who is to be told when the session ends with its process.
  HRESULT KeepParticipants(const GUID& session, std::vector<std::wstring> writers);
  /// The session's set is being made until `operation` has ended for the caller.
  HRESULT BeginCommit(const GUID& session, const std::shared_ptr<const AsyncOperation>& operation);
  /// Lets the next set begin when that operation has ended.
  void NoticeEndOfCommit();
  /// Ends the sessions whose process has died, as the service does it.
  void EndOrphans(const std::function<bool(DWORD process)>& isAlive);
  ServiceState State() const;
  void SetState(ServiceState state);

  /// Notes that a writer was told of an event.
  void NoteRaised(std::wstring writer, std::optional<WriterEvent> event, HRESULT failure = 0);

  std::vector<RaisedEvent> raisedEvents;
  /// How long after now the events are that are raised: an operation is worked out when it begins.
  ULONGLONG raisedLater = 0;

 private:
  struct Location {
    const Disk* disk = nullptr;
    const Volume* volume = nullptr;
  };

  // The surfaced copies by what callers name them with.
  struct Surfaced {
    std::unordered_map<DWORD, const ShadowCopy*> byDisk;
    std::unordered_map<std::wstring, const ShadowCopy*> byDevice;  // in lower case
    std::vector<const ShadowCopy*> mounted;
  };

  const Surfaced& SurfacedNow() const;
  // The copies, for changes.
  std::list<ShadowCopy>& ChangeCopies();
  template <class Condition>
  std::vector<const ShadowCopy*> CopiesWhere(Condition&& condition) const;
  OpenSet* OpenSetOf(const GUID& session);
  std::optional<Location> Resolve(std::wstring_view name) const;
  const Provider* FindProvider(const GUID& id) const;
  HRESULT ChooseProvider(const GUID& wanted, LONG context, const std::wstring& volume, const Provider*& chosen) const;
  bool ReachedLimit(const Provider& provider, LONG context, const std::wstring& volume) const;
  ShadowCopy MakeCopy(const OpenSet& set, const PlannedCopy& planned, const Location& location);
  void Surface(ShadowCopy& copy);
  DWORD NextFreeDisk() const;
  HRESULT AskToDelete(const ShadowCopy& copy) const;
  HRESULT CheckMountPoint(std::wstring_view path) const;
  HRESULT CheckShare(std::wstring_view name, std::wstring_view pathFromRoot) const;
  std::vector<ShadowCopy*> KnownCopies(const GUID& id, VSS_OBJECT_TYPE type);
  HRESULT MakeCopies(const GUID& session);
  HRESULT DeleteEach(const GUID& id, VSS_OBJECT_TYPE type, LONG& deleted, GUID& notDeleted);

  // snapshot_state.cpp
  HRESULT Saved() const;
  void NoticeChange() const;
  KnownSession* FindSession(const GUID& session);
  void KnowSession(const GUID& session);
  void ForgetSession(const GUID& session);
  bool IsCommitUnderWay() const;
  void EndOrphan(const KnownSession& session);

  Machine& machine_;
  std::list<ShadowCopy> copies_;              // changed by way of ChangeCopies only
  mutable std::optional<Surfaced> surfaced_;  // made when it is needed
  std::optional<OpenSet> openSet_;
  std::vector<GUID> imported_;
  unsigned devices_ = 0;
  std::vector<KnownSession> sessions_;  // with a state file
  std::vector<GUID> ownSessions_;       // those of this process that have not ended
  GUID committing_{};                   // the session of commit_
  std::shared_ptr<const AsyncOperation> commit_;
};

/// The machine as the service names it: with its domain, where it is a member of one.
std::wstring MachineName(const HostModel& model);

/// Whether a context leaves the writers out.
bool IsWithoutWriters(LONG context);
/// Whether SetContext takes it: one of the contexts with attributes that a requestor may add.
bool IsValidContext(LONG context);

}  // namespace varnel::simulator
