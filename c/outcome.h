// How an operation of a request ended, as the interface tells it.
#pragma once

#include <string>
#include <vector>

#include "c/varnel-c.h"
#include "platform/win32.h"

namespace varnel::c {

/// Thrown where the interface itself says no: a code, and its reason in UTF-8.
struct Refusal {
  int code;
  std::string reason;
};

struct Outcome {
  int code = VARNEL_DONE;
  HRESULT hresult = S_OK;
  int backupStatus = 0;
  std::string message;
  std::vector<std::string> details;
  std::string records;
};

/// Of the exception that is being handled.
Outcome OutcomeOfException() noexcept;

/// UTF-8 from text that is meant to be: what is none of it is taken for the ANSI code page.
std::string ToUtf8(std::string_view text);

}  // namespace varnel::c
