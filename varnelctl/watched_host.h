// The host as a request sees it: every call is passed on, and a watcher hears of those of the Volume Shadow Copy
// service that a request is made of. The service is asked nothing more.
#pragma once

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
};

/// To be installed (ScopedHost) around a request; must outlive everything that is obtained meanwhile.
class WatchedHost final : public varnel::ForwardingHost {
 public:
  /// The host is borrowed.
  explicit WatchedHost(varnel::Host& inner) : ForwardingHost(inner), vss_(inner.vss(), watcher_) {}
  varnel::VssService& vss() override { return vss_; }

  /// Lets one watcher hear of the calls while it lives; without one they are only passed on.
  class Watching {
   public:
    /// Both are borrowed.
    Watching(WatchedHost& host, RequestWatcher& watcher) : host_(host) { host_.watcher_ = &watcher; }
    ~Watching() { host_.watcher_ = nullptr; }
    Watching(const Watching&) = delete;
    Watching& operator=(const Watching&) = delete;

   private:
    WatchedHost& host_;
  };

 private:
  class Vss final : public varnel::ForwardingVss {
   public:
    Vss(varnel::VssService& inner, RequestWatcher* const& watcher) : ForwardingVss(inner), watcher_(watcher) {}

   private:
    IVssBackupComponents* Wrap(varnel::ComPtr<IVssBackupComponents> backup) override;

    RequestWatcher* const& watcher_;
  };

  RequestWatcher* watcher_ = nullptr;
  Vss vss_;
};

}  // namespace varnelctl
