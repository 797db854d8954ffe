#include "simulator/machine/fault_plan.h"

#include <functional>
#include <utility>

namespace varnel::simulator {
namespace {

// From here on, as the plan counts: occurrence 0 stays every one.
int Absolute(int occurrence, const auto& occurrences, std::string_view name) {
  const auto found = occurrences.find(name);
  return occurrence == 0 || found == occurrences.end() ? occurrence : occurrence + found->second;
}

int CountOne(auto& occurrences, std::string_view name) {
  const auto found = occurrences.find(name);
  return found != occurrences.end() ? ++found->second : occurrences.emplace(name, 1).first->second;
}

bool Fits(const auto& fault, int occurrence) {
  return fault.occurrence == 0 || fault.occurrence == occurrence;
}

}  // namespace

void FaultPlan::Load(const Faults& faults) {
  faults_ = faults;
  hangs_->Reset();
  std::erase_if(faults_.calls, std::mem_fn(&CallFault::hangs));
  for (const CallFault& fault : faults.calls) {
    if (fault.hangs) hangs_->Plan(fault.call, fault.occurrence);
  }
  callOccurrences_.clear();
  asyncOccurrences_.clear();
}

void FaultPlan::FailNthCall(int n, DWORD result, bool persistent) {
  nth_ = calls_ + n;
  nthResult_ = result;
  nthPersistent_ = persistent;
  firedAt_.clear();
}

void FaultPlan::FailCall(std::string call, DWORD result, int occurrence) {
  const int absolute = Absolute(occurrence, callOccurrences_, call);
  faults_.calls.push_back({std::move(call), absolute, result});
}

void FaultPlan::FailAsync(std::string async, HRESULT result, int occurrence) {
  const int absolute = Absolute(occurrence, asyncOccurrences_, async);
  faults_.asyncs.push_back({std::move(async), absolute, result});
}

void FaultPlan::HangAsync(std::string async, int occurrence) {
  FailAsync(std::move(async), VSS_S_ASYNC_PENDING, occurrence);
  faults_.asyncs.back().hangs = true;
  hangs_->Arm();
}

std::optional<DWORD> FaultPlan::OnCall(std::string_view call) {
  ++calls_;
  if (listener_) listener_(calls_);
  if (nth_ != 0 && (calls_ == nth_ || (nthPersistent_ && calls_ > nth_))) {
    if (firedAt_.empty()) firedAt_ = call;
    return nthResult_;
  }
  if (faults_.calls.empty()) return std::nullopt;
  const int occurrence = CountOne(callOccurrences_, call);
  for (const CallFault& fault : faults_.calls) {
    if (fault.call == call && Fits(fault, occurrence)) return fault.result;
  }
  return std::nullopt;
}

const AsyncFault* FaultPlan::OnAsync(std::string_view async) {
  const int occurrence = CountOne(asyncOccurrences_, async);
  for (const AsyncFault& fault : faults_.asyncs) {
    if (fault.async == async && Fits(fault, occurrence)) return &fault;
  }
  return nullptr;
}

const WriterFault* FaultPlan::OnWriterEvent(std::wstring_view writer, WriterEvent event) const {
  for (const WriterFault& fault : faults_.writers) {
    if (fault.event == event && fault.writer == writer) return &fault;
  }
  return nullptr;
}

std::optional<HRESULT> FaultPlan::OnDeletion(std::wstring_view originalSerial) const {
  for (const DeletionFault& fault : faults_.deletions) {
    if (fault.shadowOf == originalSerial) return fault.result;
  }
  return std::nullopt;
}

}  // namespace varnel::simulator
