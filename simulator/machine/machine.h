// The state that every part of a simulated host shares: model, fault plan, call log, live objects, clock, last error.
// COM objects keep it alive with a shared pointer, so an object released after its host is gone is still safe.
#pragma once

#include <concepts>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/win32.h"
#include "simulator/machine/model.h"

namespace varnel::simulator {

/// Which calls fail. Faults of the model, and for sweeps the nth call whatever it is. Occurrences count from 1 from the
/// moment the fault is planned; 0 means every one. The first fault that fits counts.
class FaultPlan {
 public:
  /// Replaces every planned fault.
  void Load(const Faults& faults);
  /// From now on, the nth call (from 1) of any kind returns `result`; with `persistent` so do all after it.
  void FailNthCall(int n, DWORD result, bool persistent = false);
  void FailCall(std::string call, DWORD result, int occurrence = 1);
  void FailAsync(std::string async, HRESULT result, int occurrence = 1);
  void FailWriter(WriterFault fault);
  void FailDeletion(DeletionFault fault);

  /// Counts one call; its forced result, if any.
  std::optional<DWORD> OnCall(std::string_view call);
  /// Counts one asynchronous operation; its forced result, if any.
  std::optional<HRESULT> OnAsync(std::string_view async);
  /// The fault of a writer at an event, null when it does well.
  const WriterFault* OnWriterEvent(std::wstring_view writer, WriterEvent event) const;
  /// Why a shadow copy of the disk with this serial number is not deleted; nothing when it is.
  std::optional<HRESULT> OnDeletion(std::wstring_view originalSerial) const;

  /// Calls of any kind so far.
  int callCount() const { return calls_; }
  /// Whether a fault of FailNthCall was used, and by which call.
  bool fired() const { return !firedAt_.empty(); }
  const std::string& firedAt() const { return firedAt_; }

 private:
  Faults faults_;
  std::map<std::string, int, std::less<>> callOccurrences_;
  std::map<std::string, int, std::less<>> asyncOccurrences_;
  int calls_ = 0;
  int nth_ = 0;  // by callCount(); 0: none
  DWORD nthResult_ = 0;
  bool nthPersistent_ = false;
  std::string firedAt_;
};

/// Every call with its arguments and result, one line each: `Interface::Method(arguments) = RESULT`.
class CallLog {
 public:
  using Sink = std::function<void(const std::string& line)>;

  void Add(std::string line) {
    if (sink_) {
      sink_(line);
    } else {
      lines_.push_back(std::move(line));
    }
  }
  /// From now on lines go there, each as it is added, and are not kept here.
  void SendTo(Sink sink) { sink_ = std::move(sink); }
  const std::vector<std::string>& lines() const { return lines_; }
  void Clear() { lines_.clear(); }
  /// The lines whose call is `call`.
  std::vector<std::string> Of(std::string_view call) const;
  /// Off while only speed counts.
  bool enabled = true;

 private:
  Sink sink_;
  std::vector<std::string> lines_;
};

/// What the host handed out and did not get back, by kind ("IVssAsync", "BSTR", "file handle", ...).
class LiveObjects {
 public:
  void Add(std::string_view kind);
  void Remove(std::string_view kind);
  long long Count() const;
  long long Count(std::string_view kind) const;
  /// "2 BSTR, 1 IVssAsync", empty when nothing is live.
  std::string Describe() const;
  /// Objects given back twice or never handed out; each is a fault of the caller.
  const std::vector<std::string>& misuses() const { return misuses_; }
  void AddMisuse(std::string what) { misuses_.push_back(std::move(what)); }

 private:
  std::map<std::string, long long, std::less<>> counts_;
  std::vector<std::string> misuses_;
};

class VolumeIndex;      // volumes.h
class SnapshotService;  // snapshot sets and shadow copies; snapshot_service.h

class Machine : public std::enable_shared_from_this<Machine> {
 public:
  explicit Machine(HostModel hostModel);
  ~Machine();

  HostModel model;
  /// Of the model's disks as they are; made when it is first needed. Whoever changes them drops it.
  mutable std::unique_ptr<const VolumeIndex> volumeIndex;
  FaultPlan faults;
  CallLog calls;
  LiveObjects live;
  std::unique_ptr<SnapshotService> snapshots;

  DWORD lastError = 0;
  /// Milliseconds since the host started; only sleeping and waiting move it.
  ULONGLONG now = 0;
  /// The part of it spent in Sleep.
  ULONGLONG slept = 0;

  /// Off where callers give BSTRs and task memory back to the system itself, so that nobody could count them.
  bool countsSystemMemory = true;

  /// The next identifier: the same sequence on every run.
  GUID NewId();

  /// BSTRs are counted, see countsSystemMemory; so is every block that a caller must give to CoTaskMemFree.
  BSTR MakeBstr(std::wstring_view text);
  void FreeBstr(BSTR text);
  wchar_t* MakeTaskText(std::wstring_view text);
  void FreeTask(void* block);
  /// Text for LocalFree, with room for at least `characters`.
  wchar_t* MakeLocalText(std::wstring_view text, std::size_t characters);
  void FreeLocal(void* block);
  void* MakeHeapBlock(std::size_t bytes);
  void FreeHeapBlock(void* block);

 private:
  template <class T>
  T* HandOut(std::string_view kind, T* block);
  bool TakeBack(std::string_view kind, const void* block);

  std::uint32_t ids_ = 0;
  std::unordered_map<const void*, std::string_view> blocks_;  // what callers still hold, and its kind
};

/// The name of a result code for the call log and the host file: "VSS_E_BAD_STATE", "E_INVALIDARG", else "0x8004...".
/// This table is larger than the library's own and lives here because the simulator does not depend on the library.
std::string ResultName(HRESULT result);
/// The code of a name, "0x..." text or decimal text; nothing for anything else.
std::optional<DWORD> ParseResult(std::string_view text);
/// A Win32 code for the call log: decimal, an HRESULT or ISDSC_ code "0x...".
std::string ErrorName(DWORD code);

/// Runs one COM-style call: forced result or body, then the log line. `arguments` is a callable that renders the
/// arguments as text after the call, so that output arguments can be shown; it is only asked while the log is on.
template <class Arguments, class Body>
requires std::invocable<Arguments> && std::invocable<Body> HRESULT Call(Machine& machine, std::string_view name,
                                                                        Arguments&& arguments, Body&& body) {
  const std::optional<DWORD> forced = machine.faults.OnCall(name);
  const HRESULT result = forced ? static_cast<HRESULT>(*forced) : body();
  if (machine.calls.enabled) {
    machine.calls.Add(std::string(name) + "(" + arguments() + ") = " + ResultName(result));
  }
  return result;
}

/// Runs one Win32 call that answers `failure` and sets the last error when it fails. `body` returns the answer and may
/// set `machine.lastError`.
template <class Result, class Arguments, class Body>
Result Win32Call(Machine& machine, std::string_view name, Result failure, Arguments&& arguments, Body&& body) {
  const std::optional<DWORD> forced = machine.faults.OnCall(name);
  Result result = failure;
  if (forced) {
    machine.lastError = *forced;
  } else {
    result = body();
  }
  if (machine.calls.enabled) {
    const bool failed = forced || result == failure;
    machine.calls.Add(std::string(name) + "(" + arguments() +
                      ") = " + (failed ? "error " + ErrorName(machine.lastError) : std::string("ok")));
  }
  return result;
}

/// Runs one Win32 call that answers its error code.
template <class Code, class Arguments, class Body>
Code CodeCall(Machine& machine, std::string_view name, Arguments&& arguments, Body&& body) {
  const std::optional<DWORD> forced = machine.faults.OnCall(name);
  const Code code = forced ? static_cast<Code>(*forced) : static_cast<Code>(body());
  if (machine.calls.enabled) {
    machine.calls.Add(std::string(name) + "(" + arguments() +
                      ") = " + (code == 0 ? std::string("ok") : "error " + ErrorName(static_cast<DWORD>(code))));
  }
  return code;
}

/// Records a call that cannot fail, so that the fault plan does not count it either.
template <class Arguments>
void RecordCall(Machine& machine, std::string_view name, Arguments&& arguments) {
  if (machine.calls.enabled) machine.calls.Add(std::string(name) + "(" + arguments() + ")");
}

/// Base of every COM object here: reference count, the machine kept alive, and the live-object count under `kind`.
class CountedObject {
 public:
  CountedObject(std::shared_ptr<Machine> machine, std::string_view kind);
  CountedObject(const CountedObject&) = delete;
  CountedObject& operator=(const CountedObject&) = delete;

 protected:
  virtual ~CountedObject();
  ULONG Retain() { return ++references_; }
  ULONG Drop() {
    const ULONG left = --references_;
    if (left == 0) delete this;
    return left;
  }
  Machine& machine() const { return *machine_; }
  const std::shared_ptr<Machine>& sharedMachine() const { return machine_; }

 private:
  std::shared_ptr<Machine> machine_;
  std::string kind_;
  ULONG references_ = 1;
};

}  // namespace varnel::simulator
