#include <algorithm>
#include <utility>

#include "simulator/machine/machine.h"

namespace varnel::simulator {
namespace {

using Occurrences = std::map<std::string, int, std::less<>>;

int CountSoFar(const Occurrences& occurrences, std::string_view name) {
  const auto found = occurrences.find(name);
  return found == occurrences.end() ? 0 : found->second;
}

int CountOne(Occurrences& occurrences, std::string_view name) {
  const auto found = occurrences.find(name);
  if (found != occurrences.end()) return ++found->second;
  occurrences.emplace(name, 1);
  return 1;
}

}  // namespace

void FaultPlan::Load(const Faults& faults) {
  faults_ = faults;
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
  const int absolute = occurrence == 0 ? 0 : occurrence + CountSoFar(callOccurrences_, call);
  faults_.calls.push_back({std::move(call), absolute, result});
}

void FaultPlan::FailAsync(std::string async, HRESULT result, int occurrence) {
  const int absolute = occurrence == 0 ? 0 : occurrence + CountSoFar(asyncOccurrences_, async);
  faults_.asyncs.push_back({std::move(async), absolute, result});
}

void FaultPlan::FailWriter(WriterFault fault) {
  faults_.writers.push_back(std::move(fault));
}

void FaultPlan::FailDeletion(DeletionFault fault) {
  faults_.deletions.push_back(std::move(fault));
}

std::optional<DWORD> FaultPlan::OnCall(std::string_view call) {
  ++calls_;
  if (nth_ != 0 && (calls_ == nth_ || (nthPersistent_ && calls_ > nth_))) {
    if (firedAt_.empty()) firedAt_ = call;
    return nthResult_;
  }
  if (faults_.calls.empty()) return std::nullopt;
  const int occurrence = CountOne(callOccurrences_, call);
  for (const CallFault& fault : faults_.calls) {
    if (fault.call == call && (fault.occurrence == 0 || fault.occurrence == occurrence)) return fault.result;
  }
  return std::nullopt;
}

std::optional<HRESULT> FaultPlan::OnAsync(std::string_view async) {
  const int occurrence = CountOne(asyncOccurrences_, async);
  for (const AsyncFault& fault : faults_.asyncs) {
    if (fault.async == async && (fault.occurrence == 0 || fault.occurrence == occurrence)) return fault.result;
  }
  return std::nullopt;
}

const WriterFault* FaultPlan::OnWriterEvent(std::wstring_view writer, WriterEvent event) const {
  const auto fault = std::find_if(faults_.writers.begin(), faults_.writers.end(), [&](const WriterFault& candidate) {
    return candidate.event == event && candidate.writer == writer;
  });
  return fault == faults_.writers.end() ? nullptr : &*fault;
}

std::optional<HRESULT> FaultPlan::OnDeletion(std::wstring_view originalSerial) const {
  for (const DeletionFault& fault : faults_.deletions) {
    if (fault.shadowOf == originalSerial) return fault.result;
  }
  return std::nullopt;
}

}  // namespace varnel::simulator
