// The host as a request sees it: every call is passed on, and a watcher hears of those of the Volume Shadow Copy
// service that a request is made of. Limits, where there are any, end a request that lasts too long. The service is
// asked nothing more, but for the end of an operation that is given up.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/forwarding_host.h"
#include "platform/forwarding_vss.h"

namespace varnelctl {

/// The calls that a watcher hears of, whoever makes them.
enum class ServiceCall {
  InitializeForBackup,
  GatherWriterMetadata,
  AddComponent,
  StartSnapshotSet,
  AddToSnapshotSet,
  PrepareForBackup,
  DoSnapshotSet,
  GatherWriterStatus,
  SaveAsXML,
  GetSnapshotProperties,
  BackupComplete,
  AbortBackup,
  DeleteSnapshots,
};

/// What the service said of one writer.
struct WriterStatusTold {
  VSS_ID instanceId{};
  VSS_ID writerId{};
  std::wstring name;
  VSS_WRITER_STATE state = VSS_WS_UNKNOWN;
  HRESULT failure = S_OK;
  HRESULT applicationResult = S_OK;
  std::wstring applicationMessage;
};

/// Hears of the calls in their order, on the thread that makes them. A watcher may itself call the host; it hears of
/// that too.
class RequestWatcher {
 public:
  virtual ~RequestWatcher() = default;
  /// A call is about to be made. What is thrown here takes the place of the call, which is then not made, and no After
  /// follows. CreateVssSnapshotSet lets it pass as it is, and the request is completed like any other failed one; in
  /// SetBackupStatus it counts as that call's failure. At StartSnapshotSet the selection is final, and there is no set.
  virtual void Before(ServiceCall /*call*/) {}
  /// The call was answered. For one that starts an operation: the operation has ended, or could not be started, waited
  /// for or asked. Must not throw.
  virtual void After(ServiceCall /*call*/, HRESULT /*result*/) {}
  /// Follows the After of StartSnapshotSet that named a set. Must not throw.
  virtual void AfterStartSnapshotSet(const VSS_ID& /*setId*/) {}
  /// Follows the After of AddToSnapshotSet. `volume` is its unique name. Must not throw.
  virtual void AfterAddToSnapshotSet(std::wstring_view /*volume*/, HRESULT /*result*/) {}
  /// The status of a writer was read. Must not throw.
  virtual void AfterGetWriterStatus(const WriterStatusTold& /*status*/) {}
};

/// Says what of a request goes on. Asked on the thread that makes the calls.
class CallLimits {
 public:
  virtual ~CallLimits() = default;
  /// Before a watched call. Where it is true the call is not made and is answered with E_ABORT; what is thrown takes
  /// the place of the call. The watcher does not hear of it then.
  virtual bool Refuses(ServiceCall call) = 0;
  /// Whether endless waits, for operations and for programs, are made in slices, after each of which GivesUp is asked.
  virtual bool MayGiveUp() const = 0;
  /// Where it is true what is waited for since so many milliseconds is cancelled, or left to itself where it is a
  /// program, and its wait fails; an operation with E_ABORT, whatever becomes of it.
  virtual bool GivesUp(unsigned long long waited) = 0;
  /// An operation was cancelled. \param status how it has ended, which may be well all the same; nothing where that is
  /// not known: it may still go on.
  virtual void Cancelled(ServiceCall operation, std::optional<HRESULT> status) = 0;
  /// Around each watched call, and each of an operation: it has the name of the service's method.
  virtual void Begin(const char* method) = 0;
  virtual void End() = 0;
};

/// To be installed (ScopedHost) around a request; must outlive everything that is obtained meanwhile.
class WatchedHost final : public varnel::ForwardingHost {
 public:
  /// The host is borrowed.
  explicit WatchedHost(varnel::Host& inner)
      : ForwardingHost(inner), vss_(inner.vss(), listeners_), processes_(inner.processes(), listeners_) {}
  varnel::VssService& vss() override { return vss_; }
  varnel::Processes& processes() override { return processes_; }

  /// Null while there is none.
  struct Listeners {
    RequestWatcher* watcher = nullptr;
    CallLimits* limits = nullptr;
  };

  /// Lets one watcher hear of the calls while it lives; without one they are only passed on.
  class Watching {
   public:
    /// Both are borrowed.
    Watching(WatchedHost& host, RequestWatcher& watcher) : host_(host) { host_.listeners_.watcher = &watcher; }
    ~Watching() { host_.listeners_.watcher = nullptr; }
    Watching(const Watching&) = delete;
    Watching& operator=(const Watching&) = delete;

   private:
    WatchedHost& host_;
  };
  /// The same for limits.
  class Limiting {
   public:
    Limiting(WatchedHost& host, CallLimits& limits) : host_(host) { host_.listeners_.limits = &limits; }
    ~Limiting() { host_.listeners_.limits = nullptr; }
    Limiting(const Limiting&) = delete;
    Limiting& operator=(const Limiting&) = delete;

   private:
    WatchedHost& host_;
  };

 private:
  class Vss final : public varnel::ForwardingVss {
   public:
    Vss(varnel::VssService& inner, const Listeners& listeners) : ForwardingVss(inner), listeners_(listeners) {}

   private:
    IVssBackupComponents* Wrap(varnel::ComPtr<IVssBackupComponents> backup) override;

    const Listeners& listeners_;
  };
  // A program may run for hours.
  class Programs final : public varnel::ForwardingProcesses {
   public:
    Programs(varnel::Processes& inner, const Listeners& listeners)
        : ForwardingProcesses(inner), listeners_(listeners) {}
    DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) override;

   private:
    const Listeners& listeners_;
  };

  Listeners listeners_;
  Vss vss_;
  Programs processes_;
};

}  // namespace varnelctl
