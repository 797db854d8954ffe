// The requests that there are, by the handles that the program has of them.
#pragma once

#include <memory>

#include "c/request.h"

namespace varnel::c {

/// A new handle. None is given out twice, so that one that was freed is known as such.
varnel_request* AddHandle(std::shared_ptr<Request> request);

/// Null where it is none.
std::shared_ptr<Request> FindHandle(const varnel_request* handle) noexcept;

void RemoveHandle(const varnel_request* handle) noexcept;

/// Calls the action with the request, for as long as it is nobody else's; else VARNEL_BAD_HANDLE or VARNEL_BUSY.
template <class Action>
int With(const varnel_request* handle, Action action) noexcept {
  const std::shared_ptr<Request> request = FindHandle(handle);
  if (!request) return VARNEL_BAD_HANDLE;
  if (!request->Take()) return VARNEL_BUSY;
  const int code = action(*request);
  request->GiveBack();
  return code;
}

/// Runs an operation of the request.
template <class Operation>
int Do(const varnel_request* handle, Operation operation) noexcept {
  return With(handle, [&](Request& request) { return request.Run([&] { operation(request); }); });
}

/// Asks the request something, and leaves its outcome as it is.
template <class Question>
int Ask(const varnel_request* handle, Question question) noexcept {
  return With(handle, [&](Request& request) {
    try {
      question(request);
      return static_cast<int>(VARNEL_DONE);
    } catch (...) {
      return OutcomeOfException().code;
    }
  });
}

}  // namespace varnel::c
