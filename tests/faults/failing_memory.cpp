#include "tests/faults/failing_memory.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace varnel::test::memory {
namespace {

bool armed = false;
int requests = 0;
int failing = 0;  // 0: none
bool failingOn = false;
bool fired = false;
std::atomic<long> liveBlocks{0};  // sanitizers and the test framework may have threads of their own

bool IsShort() noexcept {
  if (!armed) return false;
  ++requests;
  const bool isShort = failing != 0 && (requests == failing || (failingOn && requests > failing));
  fired = fired || isShort;
  return isShort;
}

}  // namespace

void FailNth(int nth, bool persistent) {
  requests = 0;
  failing = nth;
  failingOn = persistent;
  fired = false;
}

int Requests() noexcept {
  return requests;
}

bool Fired() noexcept {
  return fired;
}

long LiveBlocks() noexcept {
  return liveBlocks;
}

Switch::Switch(bool on) noexcept : before_(armed) {
  armed = on;
}

Switch::~Switch() {
  armed = before_;
}

// Null when there is no memory.
static void* Take(std::size_t bytes) noexcept {
  if (IsShort()) return nullptr;
  void* block = std::malloc(bytes == 0 ? 1 : bytes);
  if (block != nullptr) ++liveBlocks;
  return block;
}

static void* TakeOrThrow(std::size_t bytes) {
  if (void* block = Take(bytes)) return block;
  throw std::bad_alloc();
}

static void GiveBack(void* block) noexcept {
  if (block == nullptr) return;
  --liveBlocks;
  std::free(block);
}

}  // namespace varnel::test::memory

namespace memory = varnel::test::memory;

void* operator new(std::size_t bytes) {
  return memory::TakeOrThrow(bytes);
}
void* operator new[](std::size_t bytes) {
  return memory::TakeOrThrow(bytes);
}
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
  return memory::Take(bytes);
}
void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept {
  return memory::Take(bytes);
}
void operator delete(void* block) noexcept {
  memory::GiveBack(block);
}
void operator delete[](void* block) noexcept {
  memory::GiveBack(block);
}
void operator delete(void* block, std::size_t) noexcept {
  memory::GiveBack(block);
}
void operator delete[](void* block, std::size_t) noexcept {
  memory::GiveBack(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
  memory::GiveBack(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
  memory::GiveBack(block);
}
