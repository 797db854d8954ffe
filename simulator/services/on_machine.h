// What the classes of the seam share.
#pragma once

#include <string>
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

/// The answer of a call that fills a buffer: the characters without the NUL, or with too little room those needed with
/// it.
inline DWORD Fill(const std::wstring& text, LPWSTR target, DWORD characters) {
  const bool fits = target != nullptr && characters >= text.size() + 1;
  if (fits) CopyWithEnd(text, target);
  return static_cast<DWORD>(fits ? text.size() : text.size() + 1);
}

}  // namespace varnel::simulator
