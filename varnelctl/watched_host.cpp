#include "varnelctl/watched_host.h"

#include <utility>

namespace varnelctl {
namespace {

using varnel::ComPtr;

// Where the host keeps its watcher; null while there is none.
using Watcher = RequestWatcher* const&;

void TellBefore(Watcher watcher, ServiceCall call) {
  if (watcher != nullptr) watcher->Before(call);
}

void TellAfter(Watcher watcher, ServiceCall call, HRESULT result) {
  if (watcher != nullptr) watcher->After(call, result);
}

// Tells the end of its operation once.
class WatchedAsync final : public varnel::ForwardingAsync {
 public:
  WatchedAsync(ComPtr<IVssAsync> operation, ServiceCall call, Watcher watcher)
      : ForwardingAsync(std::move(operation)), call_(call), watcher_(watcher) {}
  HRESULT STDMETHODCALLTYPE Wait(DWORD milliseconds) override {
    const HRESULT result = ForwardingAsync::Wait(milliseconds);
    if (FAILED(result)) End(result);
    return result;
  }
  HRESULT STDMETHODCALLTYPE QueryStatus(HRESULT* status, INT* reserved) override {
    const HRESULT result = ForwardingAsync::QueryStatus(status, reserved);
    if (FAILED(result)) {
      End(result);
    } else if (*status != VSS_S_ASYNC_PENDING) {
      End(*status);
    }
    return result;
  }

 private:
  void End(HRESULT result) {
    if (!std::exchange(ended_, true)) TellAfter(watcher_, call_, result);
  }

  ServiceCall call_;
  Watcher watcher_;
  bool ended_ = false;
};

class WatchedBackup final : public varnel::ForwardingBackup {
 public:
  WatchedBackup(ComPtr<IVssBackupComponents> backup, Watcher watcher)
      : ForwardingBackup(std::move(backup)), watcher_(watcher) {}

  HRESULT STDMETHODCALLTYPE InitializeForBackup(BSTR xml) override {
    return Watch(ServiceCall::InitializeForBackup, [&] { return ForwardingBackup::InitializeForBackup(xml); });
  }
  HRESULT STDMETHODCALLTYPE GatherWriterMetadata(IVssAsync** async) override {
    return WatchOperation(ServiceCall::GatherWriterMetadata, async,
                          [&] { return ForwardingBackup::GatherWriterMetadata(async); });
  }
  HRESULT STDMETHODCALLTYPE AddComponent(VSS_ID instance, VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR logicalPath,
                                         LPCWSTR name) override {
    return Watch(ServiceCall::AddComponent,
                 [&] { return ForwardingBackup::AddComponent(instance, writer, type, logicalPath, name); });
  }
  HRESULT STDMETHODCALLTYPE StartSnapshotSet(VSS_ID* setId) override {
    const HRESULT result =
        Watch(ServiceCall::StartSnapshotSet, [&] { return ForwardingBackup::StartSnapshotSet(setId); });
    if (watcher_ != nullptr && SUCCEEDED(result) && setId != nullptr) watcher_->AfterStartSnapshotSet(*setId);
    return result;
  }
  HRESULT STDMETHODCALLTYPE AddToSnapshotSet(VSS_PWSZ volume, VSS_ID provider, VSS_ID* snapshot) override {
    const HRESULT result = Watch(ServiceCall::AddToSnapshotSet,
                                 [&] { return ForwardingBackup::AddToSnapshotSet(volume, provider, snapshot); });
    if (watcher_ != nullptr && volume != nullptr) watcher_->AfterAddToSnapshotSet(volume, result);
    return result;
  }
  HRESULT STDMETHODCALLTYPE PrepareForBackup(IVssAsync** async) override {
    return WatchOperation(ServiceCall::PrepareForBackup, async,
                          [&] { return ForwardingBackup::PrepareForBackup(async); });
  }
  HRESULT STDMETHODCALLTYPE DoSnapshotSet(IVssAsync** async) override {
    return WatchOperation(ServiceCall::DoSnapshotSet, async, [&] { return ForwardingBackup::DoSnapshotSet(async); });
  }
  HRESULT STDMETHODCALLTYPE GatherWriterStatus(IVssAsync** async) override {
    return WatchOperation(ServiceCall::GatherWriterStatus, async,
                          [&] { return ForwardingBackup::GatherWriterStatus(async); });
  }
  HRESULT STDMETHODCALLTYPE SaveAsXML(BSTR* xml) override {
    return Watch(ServiceCall::SaveAsXML, [&] { return ForwardingBackup::SaveAsXML(xml); });
  }
  HRESULT STDMETHODCALLTYPE GetSnapshotProperties(VSS_ID snapshot, VSS_SNAPSHOT_PROP* properties) override {
    return Watch(ServiceCall::GetSnapshotProperties,
                 [&] { return ForwardingBackup::GetSnapshotProperties(snapshot, properties); });
  }
  HRESULT STDMETHODCALLTYPE BackupComplete(IVssAsync** async) override {
    return WatchOperation(ServiceCall::BackupComplete, async, [&] { return ForwardingBackup::BackupComplete(async); });
  }
  HRESULT STDMETHODCALLTYPE AbortBackup() override {
    return Watch(ServiceCall::AbortBackup, [&] { return ForwardingBackup::AbortBackup(); });
  }
  HRESULT STDMETHODCALLTYPE DeleteSnapshots(VSS_ID source, VSS_OBJECT_TYPE type, BOOL force, LONG* deleted,
                                            VSS_ID* notDeleted) override {
    return Watch(ServiceCall::DeleteSnapshots,
                 [&] { return ForwardingBackup::DeleteSnapshots(source, type, force, deleted, notDeleted); });
  }

 private:
  template <class Action>
  HRESULT Watch(ServiceCall call, Action action) {
    TellBefore(watcher_, call);
    const HRESULT result = action();
    TellAfter(watcher_, call, result);
    return result;
  }
  // An operation that was started tells its end itself.
  template <class Start>
  HRESULT WatchOperation(ServiceCall call, IVssAsync** async, Start start) {
    TellBefore(watcher_, call);
    const HRESULT result = start();
    if (SUCCEEDED(result) && *async != nullptr) {
      *async = new WatchedAsync(ComPtr<IVssAsync>::Attach(*async), call, watcher_);
    } else {
      TellAfter(watcher_, call, result);
    }
    return result;
  }

  Watcher watcher_;
};

}  // namespace

IVssBackupComponents* WatchedHost::Vss::Wrap(ComPtr<IVssBackupComponents> backup) {
  return new WatchedBackup(std::move(backup), watcher_);
}

}  // namespace varnelctl
