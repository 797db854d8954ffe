// The handles of a simulated host: values that point nowhere and are never used twice.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>

#include "simulator/machine/machine.h"

namespace varnel::simulator {

/// One kind of handle and what each stands for. A table gives out every `step`th value, so that tables with
/// different first values never meet.
template <class Object>
class HandleTable {
 public:
  HandleTable(Machine& machine, std::uintptr_t first) : machine_(machine), next_(first) {}

  /// `kind` is what LiveObjects counts the handle as.
  void* Open(std::string_view kind, Object object) {
    next_ += kStep;
    void* handle = reinterpret_cast<void*>(next_);
    objects_.emplace(handle, Entry{std::string(kind), std::move(object)});
    machine_.live.Add(kind);
    return handle;
  }

  Object* Find(const void* handle) {
    const auto found = objects_.find(handle);
    return found == objects_.end() ? nullptr : &found->second.object;
  }

  /// False, and a misuse, for a handle that is not open.
  bool Close(const void* handle, std::string_view call) {
    const auto found = objects_.find(handle);
    if (found == objects_.end()) {
      machine_.live.AddMisuse(std::string(call) + " of a handle that is not open");
      return false;
    }
    machine_.live.Remove(found->second.kind);
    objects_.erase(found);
    return true;
  }

 private:
  static constexpr std::uintptr_t kStep = 0x100;

  struct Entry {
    std::string kind;
    Object object;
  };

  Machine& machine_;
  std::uintptr_t next_;
  std::map<const void*, Entry> objects_;
};

}  // namespace varnel::simulator
