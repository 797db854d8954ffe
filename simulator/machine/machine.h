// The state that every part of a simulated host shares: model, fault plan, call log, live objects, clock, last error.
// COM objects keep it alive with a shared pointer, so an object released after its host is gone is still safe.
#pragma once

#include <memory>
#include <mutex>
#include <set>
#include <string_view>
#include <unordered_map>

#include "platform/win32.h"
#include "simulator/machine/call_log.h"
#include "simulator/machine/fault_plan.h"
#include "simulator/machine/live_objects.h"
#include "simulator/machine/model.h"

namespace varnel::simulator {

class VolumeIndex;      // volumes.h
class SnapshotService;  // snapshot sets and shadow copies; snapshot_service.h
class SharedState;      // shared_state.h

/// Every thread of the process may call the host. A call holds the lock from its count in the fault plan to its line in
/// the log, so calls follow each other and none sees another half done; waits only move the clock. What is done outside
/// a call (calls.h) takes the lock itself. Tests that look at the parts do so while no other thread calls.
class Machine : public std::enable_shared_from_this<Machine> {
 public:
  /// A machine as the model says.
  explicit Machine(HostModel model);
  ~Machine();

  /// Holds the machine for the calling thread, which may hold it already.
  [[nodiscard]] std::unique_lock<std::recursive_mutex> Lock() const { return std::unique_lock(mutex_); }

  /// Keeps one call's arguments, as CallLog::Keep. A call that may hang holds nothing before it begins.
  template <class Record>
  void KeepArguments(std::vector<Record> CallArguments::*list, std::type_identity_t<Record> record) {
    const auto lock = Lock();
    calls.Keep(list, std::move(record));
  }

  /// What it was made of.
  const HostModel& model() const { return model_; }
  /// The model, for changes that are made before the next call.
  HostModel& ChangeModel();
  /// Of the model's disks as they are.
  const VolumeIndex& volumes() const;

  /// What is to fail.
  FaultPlan faults;
  /// What was called.
  CallLog calls;
  /// What was handed out and not given back.
  LiveObjects live;
  /// Snapshot sets and shadow copies.
  std::unique_ptr<SnapshotService> snapshots;
  /// The iSCSI sessions that were logged out, by index in the model.
  std::set<std::size_t> endedSessions;
  /// What was written to the event log since the host started.
  std::vector<LoggedEvent> newEvents;
  /// Null while the state ends with the process.
  std::unique_ptr<SharedState> shared;

  /// The calling thread's own, as on Windows: no matter which machine set it.
  constinit inline static thread_local DWORD lastError = 0;
  /// Sets the last error, for a Win32 call that then gives this answer.
  template <class Answer = BOOL>
  Answer Fail(DWORD error, Answer answer = {}) {
    lastError = error;
    return answer;
  }
  /// Milliseconds since the host started; only sleeping and waiting move it.
  ULONGLONG now = 0;
  /// The part of it spent in Sleep.
  ULONGLONG slept = 0;
  /// In FILETIME's units: when the host started the model's clock, with its seed 2026-01-01, else this machine's clock;
  /// what has passed on the virtual clock is added.
  LONGLONG SystemTime() const;
  /// What that was when the host started.
  LONGLONG StartTime() const;

  /// Off where callers give BSTRs and task memory back to the system itself, so that nobody could count them.
  bool countsSystemMemory = true;

  /// The next identifier: with the model's seed of the same sequence on every run, else and where processes share the
  /// state a random one.
  GUID NewId();

  /// Memory is handed out in a call and may be given back outside. BSTRs are counted, see countsSystemMemory; so is
  /// every block that a caller must give to CoTaskMemFree.
  BSTR MakeBstr(std::wstring_view text);
  /// Takes a text of MakeBstr back; null is none.
  void FreeBstr(BSTR text);
  /// Text for CoTaskMemFree.
  wchar_t* MakeTaskText(std::wstring_view text);
  /// Takes a block of CoTaskMemFree's kind back.
  void FreeTask(void* block);
  /// Text for LocalFree, with room for at least `characters`.
  wchar_t* MakeLocalText(std::wstring_view text, std::size_t characters);
  /// Takes a text of MakeLocalText back.
  void FreeLocal(void* block);
  /// A block of the C runtime's heap; null without memory.
  void* MakeHeapBlock(std::size_t bytes);
  /// Takes a block of MakeHeapBlock back.
  void FreeHeapBlock(void* block);

 private:
  template <class T>
  T* HandOut(std::string_view kind, T* block);
  bool TakeBack(std::string_view kind, const void* block);

  mutable std::recursive_mutex mutex_;
  HostModel model_;
  mutable std::unique_ptr<const VolumeIndex> volumes_;  // made when it is first needed
  LONGLONG started_ = 0;
  std::uint32_t ids_ = 0;
  std::unordered_map<const void*, std::string_view> blocks_;  // what callers still hold, and its kind
};

}  // namespace varnel::simulator
