// HRESULTs: what counts as one, their names and texts.
#pragma once

#include <string>

#include "platform/win32.h"

namespace varnel {

/// The low 32 bits, signed: what an HRESULT argument means wherever `long` is wider.
constexpr HRESULT AsHResult(long hr) {
  return static_cast<HRESULT>(static_cast<unsigned long>(hr) & 0xFFFFFFFF);
}

/// The symbolic name, else the system's text, else "Error: 0x...".
std::wstring HResultText(HRESULT hr);

/// The text of the service's own message table or the system's; empty, with a warning in the log, when neither has one.
std::wstring MessageTableText(HRESULT hr);

/// Throws the HRESULT as a bare, sign-extended `long`.
[[noreturn]] void ThrowHResult(HRESULT hr);

}  // namespace varnel
