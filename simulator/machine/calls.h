// How a call runs: it is counted by the fault plan, does its work unless it is made to fail, and goes to the call log,
// all while it holds the machine.
#pragma once

#include <concepts>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include "platform/vss.h"
#include "simulator/machine/machine.h"
#include "simulator/machine/result_names.h"
#include "simulator/machine/service_events.h"
#include "simulator/machine/shared_state.h"

namespace varnel::simulator {

/// Text for the call log and for messages: UTF-8, "null" for a null pointer.
std::string Show(const wchar_t* text);
std::string Show(std::wstring_view text);

// How an argument looks among others: texts in quotation marks, flags as words.
std::string ArgumentText(const wchar_t* text);
std::string ArgumentText(const GUID& id);
inline const std::string& ArgumentText(const std::string& text) {
  return text;
}
template <class Number>
requires(std::is_integral_v<Number> || std::is_enum_v<Number>) std::string ArgumentText(Number number) {
  if constexpr (std::is_same_v<Number, VssBool>) {
    return number ? "true" : "false";
  } else if constexpr (std::is_enum_v<Number>) {
    return std::to_string(static_cast<int>(number));
  } else {
    return std::to_string(number);
  }
}

/// Joins arguments with commas.
template <class... Values>
std::string ArgumentList(const Values&... values) {
  std::string list;
  ((list += (list.empty() ? "" : ", ") + ArgumentText(values)), ...);
  return list;
}

// What the calls below take as `arguments`: something that renders them, asked after the call and only while the log is
// on, so that output arguments can be shown and a log that is off costs nothing. Values are borrowed until then.
inline std::string NoArguments() {
  return {};
}
template <class... Values>
auto Arguments(const Values&... values) {
  return [&values...] { return ArgumentList(values...); };
}
/// A text as it stands, the way Win32 calls show their only one.
inline auto Shown(const wchar_t* text) {
  return [text] { return Show(text); };
}

/// Adds a line to the log. A call that cannot fail has no `outcome` and comes here alone: the fault plan does not count
/// it.
template <std::invocable Rendered, std::invocable Outcome = std::string (*)()>
void RecordCall(Machine& machine, std::string_view name, Rendered&& arguments, Outcome&& outcome = NoArguments) {
  if (!machine.calls.enabled) return;
  const auto lock = machine.Lock();
  machine.calls.Add(std::string(name) + "(" + arguments() + ")" + outcome());
}

/// The end of a Win32 call's line.
std::string Win32Outcome(bool failed, DWORD error);

/// Runs one COM-style call: forced result or body, then the log line.
template <std::invocable Rendered, std::invocable Body>
HRESULT Call(Machine& machine, std::string_view name, Rendered&& arguments, Body&& body) {
  const Hangs::Passage passage = machine.faults.hangs().Pass(name);
  const Turn turn(machine);
  const std::optional<DWORD> forced = machine.faults.OnCall(name);
  const HRESULT result = forced ? static_cast<HRESULT>(*forced) : body();
  if (forced) LogCallFailure(machine, name, result);
  RecordCall(machine, name, arguments, [&] { return " = " + ResultName(result); });
  return result;
}

/// Runs one Win32 call that answers `failure` and sets the last error when it fails. `body` returns the answer and may
/// set `machine.lastError`.
template <std::invocable Rendered, class Result, std::invocable Body>
Result Win32Call(Machine& machine, std::string_view name, Rendered&& arguments, Result failure, Body&& body) {
  const Hangs::Passage passage = machine.faults.hangs().Pass(name);
  const Turn turn(machine);
  const std::optional<DWORD> forced = machine.faults.OnCall(name);
  if (forced) machine.lastError = *forced;
  const Result result = forced ? failure : body();
  RecordCall(machine, name, arguments, [&] { return Win32Outcome(result == failure, machine.lastError); });
  return result;
}

/// Runs one Win32 call that answers its error code.
template <class Code, std::invocable Rendered, std::invocable Body>
Code CodeCall(Machine& machine, std::string_view name, Rendered&& arguments, Body&& body) {
  const Hangs::Passage passage = machine.faults.hangs().Pass(name);
  const Turn turn(machine);
  const std::optional<DWORD> forced = machine.faults.OnCall(name);
  const Code code = static_cast<Code>(forced ? *forced : body());
  RecordCall(machine, name, arguments, [&] { return Win32Outcome(code != 0, static_cast<DWORD>(code)); });
  return code;
}

}  // namespace varnel::simulator
