// Times as the event log and host files write them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/win32.h"

namespace varnel::simulator {

/// "2026-01-01T00:00:05Z", with up to seven digits of a fraction of the second, in FILETIME's units; nothing for
/// another text and for a day that no calendar has.
std::optional<LONGLONG> ParseUtc(std::string_view text);
/// With all seven digits.
std::string FormatUtc(LONGLONG fileTime);

}  // namespace varnel::simulator
