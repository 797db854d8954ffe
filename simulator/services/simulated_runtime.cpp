#include "simulator/services/simulated_runtime.h"

#include "simulator/services/on_machine.h"

namespace varnel::simulator {
namespace {

class SimulatedHeap final : public OnMachine<Heap> {
 public:
  using OnMachine::OnMachine;
  void* Malloc(std::size_t bytes) override {
    return Win32Call(machine_, "malloc", NoArguments, static_cast<void*>(nullptr),
                     [&] { return machine_.MakeHeapBlock(bytes); });
  }
  void Free(void* block) override { machine_.FreeHeapBlock(block); }
};

class SimulatedTime final : public OnMachine<Time> {
 public:
  using OnMachine::OnMachine;
  void Sleep(DWORD milliseconds) override {
    const auto lock = machine_.Lock();
    machine_.now += milliseconds;
    machine_.slept += milliseconds;
    RecordCall(machine_, "Sleep", Arguments(milliseconds));
  }
  ULONGLONG GetTickCount64() override {
    const auto lock = machine_.Lock();
    return machine_.now;
  }
  void GetSystemTimeAsFileTime(FILETIME* time) override {
    const auto lock = machine_.Lock();
    const auto ticks = static_cast<ULONGLONG>(machine_.SystemTime());
    *time = {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
  }
};

}  // namespace

std::unique_ptr<Heap> MakeHeap(Machine& machine) {
  return std::make_unique<SimulatedHeap>(machine);
}

std::unique_ptr<Time> MakeTime(Machine& machine) {
  return std::make_unique<SimulatedTime>(machine);
}

}  // namespace varnel::simulator
