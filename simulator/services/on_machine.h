// What the classes of the seam share.
#pragma once

#include <string_view>

#include "platform/host.h"
#include "simulator/machine/calls.h"

namespace varnel::simulator {

/// The answers of a machine to the question `Interface`.
template <class Interface>
class OnMachine : public Interface {
 public:
  explicit OnMachine(Machine& machine) : machine_(machine) {}

 protected:
  const HostModel& model() const { return machine_.model(); }
  template <class Answer = BOOL>
  Answer Fail(DWORD error, Answer answer = {}) {
    return machine_.Fail(error, answer);
  }

  Machine& machine_;
};

/// Copies text with its end; `target` has the room.
inline void CopyWithEnd(std::wstring_view text, LPWSTR target) {
  text.copy(target, text.size());
  target[text.size()] = L'\0';
}

}  // namespace varnel::simulator
