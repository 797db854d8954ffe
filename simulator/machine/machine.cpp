#include "simulator/machine/machine.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <new>
#include <random>
#include <utility>

#include "simulator/machine/shared_state.h"
#include "simulator/machine/volumes.h"
#include "simulator/vss/snapshot_service.h"

namespace varnel::simulator {
namespace {

constexpr LONGLONG kStartOfHost = 134116992000000000;  // 2026-01-01
constexpr LONGLONG kUnixEpoch = 116444736000000000;    // 1970-01-01
constexpr LONGLONG kTicksPerMillisecond = 10000;
using Ticks = std::chrono::duration<LONGLONG, std::ratio<1, 1000 * kTicksPerMillisecond>>;

// A random identifier (version 4).
GUID RandomId() {
  std::random_device random;
  std::uint32_t words[4];
  for (std::uint32_t& word : words) word = static_cast<std::uint32_t>(random());
  GUID id{};
  static_assert(sizeof id == sizeof words);
  std::memcpy(&id, words, sizeof id);
  id.Data3 = static_cast<WORD>((id.Data3 & 0x0FFF) | 0x4000);
  id.Data4[0] = static_cast<BYTE>((id.Data4[0] & 0x3F) | 0x80);
  return id;
}

}  // namespace

Machine::Machine(HostModel model) : model_(std::move(model)), started_(SystemTime()) {
  lastError = ERROR_SUCCESS;
  faults.Load(model_.faults);
  snapshots = std::make_unique<SnapshotService>(*this);
}

Machine::~Machine() = default;

HostModel& Machine::ChangeModel() {
  volumes_.reset();
  return model_;
}

const VolumeIndex& Machine::volumes() const {
  if (volumes_ == nullptr) volumes_ = std::make_unique<const VolumeIndex>(model_);
  return *volumes_;
}

LONGLONG Machine::SystemTime() const {
  const LONGLONG passed = static_cast<LONGLONG>(now) * kTicksPerMillisecond;
  if (model_.clock) return *model_.clock + passed;
  if (model_.seed) return kStartOfHost + passed;
  const auto clock = std::chrono::system_clock::now().time_since_epoch();
  return kUnixEpoch + std::chrono::duration_cast<Ticks>(clock).count() + passed;
}

LONGLONG Machine::StartTime() const {
  return model_.seed ? kStartOfHost : started_;
}

GUID Machine::NewId() {
  if (!model_.seed || shared != nullptr) return RandomId();
  constexpr WORD kBeforeFirst = 0x5e1e;
  return GUID{++ids_, static_cast<WORD>(kBeforeFirst + *model_.seed), 0x4c3d, {0x9a, 0x0b, 0, 0, 0, 0, 0, 0}};
}

template <class T>
T* Machine::HandOut(std::string_view kind, T* block) {
  if (block != nullptr) {
    blocks_.insert_or_assign(block, kind);
    live.Add(kind);
  }
  return block;
}

bool Machine::TakeBack(std::string_view kind, const void* block) {
  const auto lock = Lock();
  const auto held = blocks_.find(block);
  if (held == blocks_.end() || held->second != kind) {
    live.AddMisuse(std::string(kind) + " given back that the caller does not hold");
    return false;
  }
  blocks_.erase(held);
  live.Remove(kind);
  return true;
}

BSTR Machine::MakeBstr(std::wstring_view text) {
  const BSTR copy = ::SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
  return countsSystemMemory ? HandOut("BSTR", copy) : copy;
}

void Machine::FreeBstr(BSTR text) {
  if (text == nullptr) return;
  if (!countsSystemMemory || TakeBack("BSTR", text)) ::SysFreeString(text);
}

wchar_t* Machine::MakeTaskText(std::wstring_view text) {
  void* block = ::CoTaskMemAlloc((text.size() + 1) * sizeof(wchar_t));
  if (block == nullptr) return nullptr;
  wchar_t* copy = static_cast<wchar_t*>(block);
  text.copy(copy, text.size());
  copy[text.size()] = L'\0';
  return countsSystemMemory ? HandOut("task memory", copy) : copy;
}

void Machine::FreeTask(void* block) {
  if (block == nullptr) return;
  if (!countsSystemMemory || TakeBack("task memory", block)) ::CoTaskMemFree(block);
}

wchar_t* Machine::MakeLocalText(std::wstring_view text, std::size_t characters) {
  wchar_t* copy = new wchar_t[std::max(text.size() + 1, characters)]();
  text.copy(copy, text.size());
  return HandOut("LocalAlloc", copy);
}

void Machine::FreeLocal(void* block) {
  if (block != nullptr && TakeBack("LocalAlloc", block)) delete[] static_cast<wchar_t*>(block);
}

void* Machine::MakeHeapBlock(std::size_t bytes) {
  return HandOut("heap block", ::operator new(bytes, std::nothrow));
}

void Machine::FreeHeapBlock(void* block) {
  if (block != nullptr && TakeBack("heap block", block)) ::operator delete(block);
}

}  // namespace varnel::simulator
