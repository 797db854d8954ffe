// Base of every COM object here.
#pragma once

#include <atomic>
#include <memory>
#include <string_view>

#include "simulator/machine/machine.h"
#include "simulator/machine/shared_state.h"

namespace varnel::simulator {

/// The reference count, the machine kept alive, and the live-object count under `kind`, which is a literal. Made in a
/// call, which holds the machine.
class CountedObject {
 public:
  CountedObject(std::shared_ptr<Machine> machine, std::string_view kind) : machine_(std::move(machine)), kind_(kind) {
    machine_->live.Add(kind_);
  }
  CountedObject(const CountedObject&) = delete;
  CountedObject& operator=(const CountedObject&) = delete;

 protected:
  virtual ~CountedObject() { machine_->live.Remove(kind_); }
  ULONG Retain() { return ++references_; }
  ULONG Drop() {
    const ULONG left = --references_;
    if (left == 0) End();
    return left;
  }
  Machine& machine() const { return *machine_; }
  const std::shared_ptr<Machine>& sharedMachine() const { return machine_; }
  std::string_view kind() const { return kind_; }

 private:
  // The machine may go with the object, but not while it is held.
  void End() {
    const std::shared_ptr<Machine> machine = machine_;
    const Turn turn(*machine);
    delete this;
  }

  std::shared_ptr<Machine> machine_;
  std::string_view kind_;
  std::atomic<ULONG> references_ = 1;
};

}  // namespace varnel::simulator
