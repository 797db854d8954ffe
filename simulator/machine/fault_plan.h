// Which calls fail.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "simulator/machine/hangs.h"
#include "simulator/machine/model.h"

namespace varnel::simulator {

/// Faults of the model, and for sweeps the nth call whatever it is. Occurrences count from 1 from the moment the fault
/// is planned; 0 means every one. The first fault that fits counts.
class FaultPlan {
 public:
  /// Replaces every planned fault.
  void Load(const Faults& faults);
  /// From now on, the nth call (from 1) of any kind returns `result`; with `persistent` so do all after it.
  void FailNthCall(int n, DWORD result, bool persistent = false);
  /// The call of this name ("Interface::Method", or the Win32 function's) returns `result`; 0 for every occurrence.
  void FailCall(std::string call, DWORD result, int occurrence = 1);
  /// The operation that the method of this name starts ends with `result`; 0 for every occurrence.
  void FailAsync(std::string async, HRESULT result, int occurrence = 1);
  /// The call blocks its thread until the hangs are ended, and then does its work.
  void HangCall(std::string call, int occurrence = 1) { hangs_->Plan(std::move(call), occurrence); }
  /// The operation ends with its cancellation alone; an endless wait for it blocks its thread until then.
  void HangAsync(std::string async, int occurrence = 1);
  /// A writer fails at an event.
  void FailWriter(WriterFault fault) { faults_.writers.push_back(std::move(fault)); }
  /// Shadow copies of a disk are not deleted.
  void FailDeletion(DeletionFault fault) { faults_.deletions.push_back(std::move(fault)); }

  /// From now on `listener` is told the number of each call before it runs: for tests that end the process there.
  void TellCallsTo(std::function<void(int call)> listener) { listener_ = std::move(listener); }

  /// Counts one call; its forced result, if any.
  std::optional<DWORD> OnCall(std::string_view call);
  /// Counts one asynchronous operation; its fault, null when it does well.
  const AsyncFault* OnAsync(std::string_view async);
  /// The fault of a writer at an event, null when it does well.
  const WriterFault* OnWriterEvent(std::wstring_view writer, WriterEvent event) const;
  /// Why a shadow copy of the disk with this serial number is not deleted; nothing when it is.
  std::optional<HRESULT> OnDeletion(std::wstring_view originalSerial) const;

  /// What hangs.
  Hangs& hangs() { return *hangs_; }
  /// Lets every thread go on that hangs in a call or waits for an operation that does. What hangs later does not block
  /// either, until another hang is planned.
  void EndHangs() { hangs_->End(); }

  /// Calls of any kind so far.
  int callCount() const { return calls_; }
  /// Whether a fault of FailNthCall was used, and by which call.
  bool fired() const { return !firedAt_.empty(); }
  /// That call; empty before.
  const std::string& firedAt() const { return firedAt_; }

 private:
  using Occurrences = std::map<std::string, int, std::less<>>;

  Faults faults_;                                             // without the calls that hang
  std::shared_ptr<Hangs> hangs_ = std::make_shared<Hangs>();  // copies of a plan share it
  Occurrences callOccurrences_;
  Occurrences asyncOccurrences_;
  int calls_ = 0;
  int nth_ = 0;  // by callCount(); 0: none
  DWORD nthResult_ = 0;
  bool nthPersistent_ = false;
  std::string firedAt_;
  std::function<void(int call)> listener_;
};

}  // namespace varnel::simulator
