#include "varnelctl/watched_host.h"

#include <chrono>
#include <optional>
#include <thread>
#include <utility>

namespace varnelctl {
namespace {

using varnel::ComPtr;

using Listeners = const WatchedHost::Listeners&;

constexpr DWORD kSliceMilliseconds = 500;

const char* NameOf(ServiceCall call) {
  switch (call) {
    case ServiceCall::InitializeForBackup:
      return "IVssBackupComponents::InitializeForBackup";
    case ServiceCall::GatherWriterMetadata:
      return "IVssBackupComponents::GatherWriterMetadata";
    case ServiceCall::AddComponent:
      return "IVssBackupComponents::AddComponent";
    case ServiceCall::StartSnapshotSet:
      return "IVssBackupComponents::StartSnapshotSet";
    case ServiceCall::AddToSnapshotSet:
      return "IVssBackupComponents::AddToSnapshotSet";
    case ServiceCall::PrepareForBackup:
      return "IVssBackupComponents::PrepareForBackup";
    case ServiceCall::DoSnapshotSet:
      return "IVssBackupComponents::DoSnapshotSet";
    case ServiceCall::GatherWriterStatus:
      return "IVssBackupComponents::GatherWriterStatus";
    case ServiceCall::SaveAsXML:
      return "IVssBackupComponents::SaveAsXML";
    case ServiceCall::GetSnapshotProperties:
      return "IVssBackupComponents::GetSnapshotProperties";
    case ServiceCall::BackupComplete:
      return "IVssBackupComponents::BackupComplete";
    case ServiceCall::AbortBackup:
      return "IVssBackupComponents::AbortBackup";
    case ServiceCall::DeleteSnapshots:
      return "IVssBackupComponents::DeleteSnapshots";
  }
  return "IVssBackupComponents";
}

void TellBefore(Listeners listeners, ServiceCall call) {
  if (listeners.watcher != nullptr) listeners.watcher->Before(call);
}

void TellAfter(Listeners listeners, ServiceCall call, HRESULT result) {
  if (listeners.watcher != nullptr) listeners.watcher->After(call, result);
}

bool Refuses(Listeners listeners, ServiceCall call) {
  return listeners.limits != nullptr && listeners.limits->Refuses(call);
}

template <class Action>
HRESULT Timed(Listeners listeners, const char* method, Action action) {
  if (listeners.limits != nullptr) listeners.limits->Begin(method);
  const HRESULT result = action();
  if (listeners.limits != nullptr) listeners.limits->End();
  return result;
}

// An endless wait in slices.
class Patience {
 public:
  explicit Patience(CallLimits& limits) : limits_(limits) {}

  /// After a slice that was not the last one.
  bool IsOver() {
    if (limits_.GivesUp(Now() - begun_)) return true;
    // A clock that jumps would make this a loop without a pause.
    if (++slices_ > kSlicesWithoutPause) std::this_thread::sleep_until(sliceBegun_ + kSlice);
    sliceBegun_ = std::chrono::steady_clock::now();
    return false;
  }

 private:
  static constexpr std::chrono::milliseconds kSlice{kSliceMilliseconds};
  static constexpr int kSlicesWithoutPause = 10'000;

  static unsigned long long Now() { return varnel::CurrentHost().time().GetTickCount64(); }

  CallLimits& limits_;
  const unsigned long long begun_ = Now();
  std::chrono::steady_clock::time_point sliceBegun_ = std::chrono::steady_clock::now();
  int slices_ = 0;
};

// Tells the end of its operation once. Where the wait is limited the status that ended it answers the next question for
// one, so that the service is asked no more often than without limits.
class WatchedAsync final : public varnel::ForwardingAsync {
 public:
  WatchedAsync(ComPtr<IVssAsync> operation, ServiceCall call, Listeners listeners)
      : ForwardingAsync(std::move(operation)), call_(call), listeners_(listeners) {}
  HRESULT STDMETHODCALLTYPE Wait(DWORD milliseconds) override {
    const bool limited = milliseconds == INFINITE && listeners_.limits != nullptr && listeners_.limits->MayGiveUp();
    const HRESULT result = limited ? WaitInSlices() : WaitFor(milliseconds);
    if (FAILED(result)) End(result);
    return result;
  }
  HRESULT STDMETHODCALLTYPE QueryStatus(HRESULT* status, INT* reserved) override {
    const HRESULT result = answer_ ? Answer(status, reserved) : Ask(status, reserved);
    if (FAILED(result)) {
      End(result);
    } else if (*status != VSS_S_ASYNC_PENDING) {
      End(*status);
    }
    return result;
  }

 private:
  struct Status {
    HRESULT result = S_OK;  // of the question
    HRESULT status = VSS_S_ASYNC_PENDING;

    bool IsPending() const { return SUCCEEDED(result) && status == VSS_S_ASYNC_PENDING; }
  };

  HRESULT WaitFor(DWORD milliseconds) {
    return Timed(listeners_, "IVssAsync::Wait", [&] { return ForwardingAsync::Wait(milliseconds); });
  }
  HRESULT Ask(HRESULT* status, INT* reserved) {
    return Timed(listeners_, "IVssAsync::QueryStatus", [&] { return ForwardingAsync::QueryStatus(status, reserved); });
  }
  Status Ask() {
    Status answer;
    answer.result = Ask(&answer.status, nullptr);
    return answer;
  }
  HRESULT Answer(HRESULT* status, INT* reserved) const {
    if (status == nullptr) return E_INVALIDARG;
    *status = answer_->status;
    if (reserved != nullptr) *reserved = 0;
    return answer_->result;
  }

  HRESULT WaitInSlices() {
    Patience patience(*listeners_.limits);
    for (bool first = true;; first = false) {
      const HRESULT waited = WaitFor(kSliceMilliseconds);
      if (waited == E_INVALIDARG && first) return WaitFor(INFINITE);  // Server 2003 knows no other wait
      if (FAILED(waited)) return waited;
      if (const Status answer = Ask(); !answer.IsPending()) {
        answer_ = answer;
        return S_OK;
      }
      if (patience.IsOver()) return GiveUp();
    }
  }

  // An operation that is cancelled may need a moment, and may have ended well all the same: then there is what it made.
  HRESULT GiveUp() {
    const HRESULT asked = Timed(listeners_, "IVssAsync::Cancel", [&] { return ForwardingAsync::Cancel(); });
    std::optional<HRESULT> ended;
    if (SUCCEEDED(asked)) ended = asked == S_OK ? AwaitCancelled() : asked;
    listeners_.limits->Cancelled(call_, ended);
    answer_ = {S_OK, E_ABORT};
    return E_ABORT;
  }
  std::optional<HRESULT> AwaitCancelled() {
    constexpr int kMostSlices = 20;
    for (int slice = 0; slice < kMostSlices; ++slice) {
      const Status answer = Ask();
      if (FAILED(answer.result)) return std::nullopt;
      if (!answer.IsPending()) return answer.status;
      WaitFor(kSliceMilliseconds);
    }
    return std::nullopt;
  }

  void End(HRESULT result) {
    if (!std::exchange(ended_, true)) TellAfter(listeners_, call_, result);
  }

  ServiceCall call_;
  Listeners listeners_;
  std::optional<Status> answer_;
  bool ended_ = false;
};

std::wstring TextOf(const wchar_t* text) {
  return text == nullptr ? L"" : text;
}

class WatchedBackup final : public varnel::ForwardingBackup {
 public:
  WatchedBackup(ComPtr<IVssBackupComponents> backup, Listeners listeners)
      : ForwardingBackup(std::move(backup)), listeners_(listeners) {}

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
    const bool isTold = SUCCEEDED(result) && listeners_.watcher != nullptr && setId != nullptr;
    if (isTold) listeners_.watcher->AfterStartSnapshotSet(*setId);
    return result;
  }
  HRESULT STDMETHODCALLTYPE AddToSnapshotSet(VSS_PWSZ volume, VSS_ID provider, VSS_ID* snapshot) override {
    bool made = false;
    const HRESULT result = Watch(ServiceCall::AddToSnapshotSet, [&] {
      made = true;
      return ForwardingBackup::AddToSnapshotSet(volume, provider, snapshot);
    });
    const bool isTold = made && listeners_.watcher != nullptr && volume != nullptr;
    if (isTold) listeners_.watcher->AfterAddToSnapshotSet(volume, result);
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
  HRESULT STDMETHODCALLTYPE GetWriterStatusEx(UINT index, VSS_ID* instance, VSS_ID* writer, BSTR* name,
                                              VSS_WRITER_STATE* state, HRESULT* failure, HRESULT* applicationResult,
                                              BSTR* applicationMessage) override {
    const HRESULT result = ForwardingBackup::GetWriterStatusEx(index, instance, writer, name, state, failure,
                                                               applicationResult, applicationMessage);
    if (SUCCEEDED(result) && listeners_.watcher != nullptr) {
      listeners_.watcher->AfterGetWriterStatus(
          {*instance, *writer, TextOf(*name), *state, *failure, *applicationResult, TextOf(*applicationMessage)});
    }
    return result;
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
    if (Refuses(listeners_, call)) return E_ABORT;
    TellBefore(listeners_, call);
    const HRESULT result = Timed(listeners_, NameOf(call), action);
    TellAfter(listeners_, call, result);
    return result;
  }
  // An operation that was started tells its end itself.
  template <class Start>
  HRESULT WatchOperation(ServiceCall call, IVssAsync** async, Start start) {
    if (Refuses(listeners_, call)) return E_ABORT;
    TellBefore(listeners_, call);
    const HRESULT result = Timed(listeners_, NameOf(call), start);
    if (SUCCEEDED(result) && *async != nullptr) {
      *async = new WatchedAsync(ComPtr<IVssAsync>::Attach(*async), call, listeners_);
    } else {
      TellAfter(listeners_, call, result);
    }
    return result;
  }

  Listeners listeners_;
};

}  // namespace

IVssBackupComponents* WatchedHost::Vss::Wrap(ComPtr<IVssBackupComponents> backup) {
  return new WatchedBackup(std::move(backup), listeners_);
}

DWORD WatchedHost::Programs::WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
  CallLimits* const limits = listeners_.limits;
  const bool limited = milliseconds == INFINITE && limits != nullptr && limits->MayGiveUp();
  if (!limited) return ForwardingProcesses::WaitForSingleObject(handle, milliseconds);
  for (Patience patience(*limits);;) {
    limits->Begin("WaitForSingleObject");
    const DWORD waited = ForwardingProcesses::WaitForSingleObject(handle, kSliceMilliseconds);
    limits->End();
    if (waited != WAIT_TIMEOUT) return waited;
    if (patience.IsOver()) return WAIT_FAILED;
  }
}

}  // namespace varnelctl
