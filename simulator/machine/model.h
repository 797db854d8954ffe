// What a simulated host is made of: plain values, filled by the host file or by a test.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/vss.h"
#include "platform/win32.h"

namespace varnel::simulator {

/// The longest that the service keeps a writer frozen.
inline constexpr DWORD kFreezeLimitMilliseconds = 60000;

/// A file entry of a writer or component.
struct FileSpec {
  /// As the key of the host file with this name, or the column of its page (docs/host-file.md).
  ///@{
  std::wstring path;
  std::wstring filespec;
  bool recursive = false;
  std::wstring alternatePath{};
  DWORD backupTypeMask = 0xF0F;
  ///@}
};

/// A component of a writer. A missing logical path or caption is null on the wire, an empty one is empty.
struct WriterComponent {
  /// As the key of the host file with this name, or the column of its page (docs/host-file.md).
  ///@{
  VSS_COMPONENT_TYPE type = VSS_CT_FILEGROUP;
  std::optional<std::wstring> logicalPath;
  std::wstring name;
  std::optional<std::wstring> caption;
  bool restoreMetadata = false;
  bool notifyOnBackupComplete = false;
  bool selectable = true;
  bool selectableForRestore = false;
  DWORD componentFlags = 0;
  std::vector<FileSpec> files;
  std::vector<FileSpec> databaseFiles;
  std::vector<FileSpec> logFiles;
  /// What the writer leaves in the components document when the component is backed up: the stamp as it prepares, the
  /// metadata after the snapshot.
  std::optional<std::wstring> backupStamp;
  std::optional<std::wstring> backupMetadata;
  ///@}
};

/// The name under which a requestor knows a component: "\\logical\\path\\name".
inline std::wstring FullPath(const WriterComponent& component) {
  std::wstring path = component.logicalPath.value_or(L"");
  if (path.empty() || path.back() != L'\\') path += L'\\';
  path += component.name;
  return path.front() == L'\\' ? path : L'\\' + path;
}

/// How a writer wants to be restored.
struct RestoreMethod {
  /// As the key of the host file with this name, or the column of its page (docs/host-file.md).
  ///@{
  VSS_RESTOREMETHOD_ENUM method = VSS_RME_UNDEFINED;
  std::wstring service;
  std::wstring userProcedure;
  VSS_WRITERRESTORE_ENUM writerRestore = VSS_WRE_UNDEFINED;
  bool rebootRequired = false;
  ///@}
};

/// A failure that a writer has not recovered from.
struct LastFailure {
  /// As the key of the host file with this name, or the column of its page (docs/host-file.md).
  ///@{
  VSS_WRITER_STATE state = VSS_WS_UNKNOWN;
  HRESULT failure = 0;
  ///@}
};

/// A writer: the content of its Writer Metadata Document.
struct Writer {
  /// As the key of the host file with this name, or the column of its page (docs/host-file.md).
  ///@{
  std::wstring name;
  GUID writerId{};
  GUID instanceId{};
  std::wstring instanceName;
  VSS_USAGE_TYPE usage = VSS_UT_OTHER;
  VSS_SOURCE_TYPE source = VSS_ST_OTHER;
  DWORD majorVersion = 0;
  DWORD minorVersion = 0;
  DWORD backupSchema = 0;
  DWORD timeoutMilliseconds = kFreezeLimitMilliseconds;  ///< it stays frozen no longer
  std::optional<RestoreMethod> restoreMethod;
  std::vector<FileSpec> excludeFiles;
  std::vector<FileSpec> excludeFilesFromSnapshot;
  std::vector<WriterComponent> components;
  /// The Writer Metadata Document that it came from, as it was written (UTF-8); null for a writer without one.
  std::shared_ptr<const std::string> document;
  /// How it stands since an earlier backup; absent for a writer that is stable.
  std::optional<LastFailure> lastFailure;
  ///@}
};

/// A volume of a disk.
struct Volume {
  /// As the key of the host file with this name, or the column of its page (docs/host-file.md).
  ///@{
  std::wstring name;  ///< "\\?\Volume{...}\"
  std::vector<std::wstring> mountPoints;
  bool csv = false;
  std::wstring label;
  std::vector<DWORD> otherDisks{};  ///< numbers of the disks, besides its own, that hold a part of it
  DWORD sizeMegabytes = 102400;
  std::optional<DWORD> freeMegabytes{};  ///< half of its size where absent
  ///@}
};

/// A service of Windows.
struct Service {
  /// As the key of the host file with this name, or the column of its page (docs/host-file.md).
  ///@{
  DWORD startType = 0;  ///< SERVICE_AUTO_START and so on
  DWORD state = 0;      ///< SERVICE_RUNNING and so on
  ///@}
};

/// The requestor's process.
struct Process {
  /// As the key of the host file with this name, or the column of its page (docs/host-file.md).
  ///@{
  bool elevated = true;
  bool is32Bit = false;
  ///@}
};

/// A disk.
struct Disk {
  /// As the key of the host file with this name, or the column of its page (docs/host-file.md).
  ///@{
  std::wstring serial;
  bool reportsSerial = true;  ///< false: the descriptor's offset is 0xFFFFFFFF
  DWORD number = 0;
  std::wstring vendor;
  bool system = false;
  bool clustered = false;
  std::vector<Volume> volumes;
  ///@}
};

/// What the service asks of a provider on the way to a shadow copy.
enum class ProviderStep {
  beginPrepare,  ///< BeginPrepareSnapshot
  endPrepare,    ///< EndPrepareSnapshots
  commit,        ///< CommitSnapshots
};

/// A registered provider.
struct Provider {
  /// As the key of the host file with this name, or the column of its page (docs/host-file.md).
  ///@{
  GUID id{};
  std::wstring name;
  VSS_PROVIDER_TYPE type = VSS_PROV_UNKNOWN;
  std::wstring version;
  /// The kinds of copies that it says it can make, of VSS_VOLSNAP_ATTR_TRANSPORTABLE, _DIFFERENTIAL and _PLEX; what is
  /// usual for its type where absent. Only hardware and software providers are asked.
  std::optional<LONG> supports{};
  std::vector<std::wstring> unsupportedVolumes{};  ///< unique names of volumes that it does not copy
  std::optional<ProviderStep> veto{};              ///< the step that it refuses
  bool hangs = false;                              ///< its commit does not come to an end
  ///@}
};

/// What the host says of its Windows.
struct OperatingSystem {
  /// As the key of the host file with this name, or the column of its page (docs/host-file.md).
  ///@{
  bool server = true;
  DWORD major = 10;
  DWORD minor = 0;
  DWORD build = 17763;
  WORD servicePack = 0;
  ///@}
};

/// The cluster that the host is a node of.
struct ClusterNode {
  /// As the key of the host file with this name, or the column of its page (docs/host-file.md).
  ///@{
  std::wstring name;
  std::map<std::wstring, std::wstring> networkNames;
  ///@}
};

/// A device that a session shows.
struct IscsiDevice {
  /// As the key of the host file with this name, or the column of its page (docs/host-file.md).
  ///@{
  std::wstring diskSerial;
  bool shadow = false;   ///< the disk of the shadow copy of `diskSerial`, not that disk itself
  int appearsAfter = 0;  ///< device queries of the session that do not show it yet
  ///@}
};

/// A session of the initiator.
struct IscsiSession {
  /// As the key of the host file with this name, or the column of its page (docs/host-file.md).
  ///@{
  std::wstring targetName;
  std::vector<IscsiDevice> devices;
  int busyQueries = 0;
  int failedLogouts = 0;
  int appearsAfter = 0;  ///< session lists that do not show it yet
  ///@}
};

/// An external program: the first one whose pattern ('*' and '?') matches the command line runs.
struct Command {
  /// As the key of the host file with this name, or the column of its page (docs/host-file.md).
  ///@{
  std::wstring match;
  DWORD exitCode = 0;
  /// Where the program lies; `match` is then the command line without it. Empty: wherever it is looked for.
  std::wstring folder{};
  ///@}
};

/// A call that fails (or returns another success) instead of running.
struct CallFault {
  /// As the key of the host file with this name, or the column of its page (docs/host-file.md).
  ///@{
  std::string call;    ///< "Interface::Method" or the Win32 function's name
  int occurrence = 1;  ///< counted from 1; 0 = every one
  DWORD result = 0;    ///< an HRESULT, or a Win32 code for a Win32 function
  bool hangs = false;  ///< has no result: the call blocks until the hangs are ended
  ///@}
};

/// An asynchronous operation that ends with this result, named by the method that started it ("DoSnapshotSet").
struct AsyncFault {
  /// As the key of the host file with this name, or the column of its page (docs/host-file.md).
  ///@{
  std::string async;
  int occurrence = 1;
  HRESULT result = 0;
  bool hangs = false;  ///< with VSS_S_ASYNC_PENDING: an endless wait for it blocks
  ///@}
};

/// What the service asks of a writer.
enum class WriterEvent {
  identify,         ///< OnIdentify
  prepareBackup,    ///< OnPrepareBackup
  prepareSnapshot,  ///< OnPrepareSnapshot
  freeze,           ///< OnFreeze
  thaw,             ///< OnThaw
  postSnapshot,     ///< OnPostSnapshot
  backupComplete,   ///< OnBackupComplete
  backupShutdown,   ///< OnBackupShutdown
  preRestore,       ///< OnPreRestore
  postRestore,      ///< OnPostRestore
};

/// A component that fails with its writer.
struct ComponentFault {
  /// As the key of the host file with this name, or the column of its page (docs/host-file.md).
  ///@{
  std::wstring fullPath;
  HRESULT failure = 0;
  HRESULT applicationResult = 0;
  std::wstring applicationMessage;
  ///@}
};

/// A writer that fails at one event. One that hangs there fails when the service gives it up, with the service's code.
struct WriterFault {
  /// As the key of the host file with this name, or the column of its page (docs/host-file.md).
  ///@{
  std::wstring writer;  ///< its name
  WriterEvent event = WriterEvent::freeze;
  HRESULT failure = 0;
  HRESULT applicationResult = 0;
  std::wstring applicationMessage;
  std::vector<ComponentFault> components;
  std::optional<VSS_WRITER_STATE> state = {};  ///< reported in place of the failed state of the event
  bool hangs = false;
  ///@}
};

/// Shadow copies that their provider does not delete when DeleteSnapshots asks for it.
struct DeletionFault {
  /// As the key of the host file with this name, or the column of its page (docs/host-file.md).
  ///@{
  std::wstring shadowOf;  ///< serial number of the original disk
  HRESULT result = 0;     ///< a failure
  ///@}
};

/// What becomes of a snapshot set whose requestor dies while DoSnapshotSet is under way.
enum class OrphanedSnapshot {
  abandon,   ///< it is aborted
  complete,  ///< it is taken all the same
};

/// How much an event of the log matters, as its XML tells it.
enum class EventLevel : DWORD { always = 0, critical = 1, error = 2, warning = 3, information = 4 };

/// An entry of the event log.
struct LoggedEvent {
  /// As the key of the host file with this name, or the column of its page (docs/host-file.md).
  ///@{
  std::wstring channel = L"Application";
  std::wstring source;
  DWORD id = 0;  ///< with the qualifiers in its upper half
  EventLevel level = EventLevel::information;
  std::optional<LONGLONG> time{};     ///< UTC, in FILETIME's units; absent: as the host starts
  std::wstring computer{};            ///< that wrote it; empty: the host
  std::vector<std::wstring> texts{};  ///< that are inserted into the message
  std::wstring data{};                ///< of the source's own, two digits of 0-9, A-F for each byte
  /// The whole text; absent where the source brought no message of this number.
  std::optional<std::wstring> message{};
  ///@}
};

/// What is to fail.
struct Faults {
  /// As the key of the host file with this name, or the column of its page (docs/host-file.md).
  ///@{
  std::vector<CallFault> calls;
  std::vector<AsyncFault> asyncs;
  std::vector<WriterFault> writers;
  std::vector<DeletionFault> deletions;
  ///@}
};

/// A whole host: what its host file says.
struct HostModel {
  /// As the key of the host file with this name, or the column of its page (docs/host-file.md).
  ///@{
  /// With a seed the host makes the same identifiers on every run, and copies are dated from 2026-01-01 on. Without one
  /// identifiers are random and copies are dated by the clock.
  std::optional<WORD> seed;
  std::wstring computerName = L"HOST";
  std::wstring domain;  ///< of which the machine is a member; empty: of none
  std::wstring systemDirectory = L"C:\\Windows\\system32";
  /// Names compare without regard to ASCII case. SystemRoot, windir, SystemDrive and ProgramData follow the system
  /// directory where they are absent.
  std::map<std::wstring, std::wstring> environment;
  std::wstring currentDirectory = L"C:\\";  ///< of the process
  OperatingSystem os;
  std::optional<ClusterNode> cluster;
  std::vector<Disk> disks;
  std::vector<Provider> providers;
  std::vector<Writer> writers;
  std::map<std::wstring, std::wstring> databases;  ///< by disk serial, as the metadata service tells them
  std::vector<IscsiSession> iscsiSessions;
  std::map<std::wstring, std::wstring> fileVersions;                      ///< path -> "6.3.9600.17120"
  std::map<std::wstring, std::map<std::wstring, std::wstring>> registry;  ///< full key -> value name -> text
  std::vector<Command> commands;
  /// By name; null for one that is not there. Those of the service itself are as usual where they are absent.
  std::map<std::wstring, std::optional<Service>> services;
  Process process;
  std::optional<LONGLONG> clock;           ///< when the host started, in FILETIME's units
  std::map<DWORD, std::wstring> messages;  ///< the system's message table
  /// The message table of vsstrace.dll; without one that module does not exist here.
  std::optional<std::map<DWORD, std::wstring>> vssMessages;
  /// The event log as the host starts. Channels of none of them and none of Windows' own are not there.
  std::vector<LoggedEvent> events;
  Faults faults;
  /// How long each writer's freeze and the provider's commit take on the virtual clock, in milliseconds.
  DWORD freezeMilliseconds = 0;
  DWORD commitMilliseconds = 0;
  /// After which the service gives up a writer that hangs in another event than Freeze.
  DWORD eventLimitMilliseconds = 600000;
  OrphanedSnapshot orphanedSnapshot = OrphanedSnapshot::abandon;
  ///@}
};

}  // namespace varnel::simulator
