// The one form of query that the simulated event log understands: all of what these sources wrote in a stretch of time,
//
//   *[System[Provider[@Name='VSS' or @Name='volsnap'] and TimeCreated[@SystemTime>='2026-01-01T00:00:00.000Z' and
//   @SystemTime<='2026-01-01T00:01:00.000Z']]]
//
// in one line; without "Provider[...] and " of every source.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/machine/model.h"

namespace varnel::simulator {

struct EventQuery {
  std::vector<std::wstring> sources;  // empty: every one
  LONGLONG from = 0;
  LONGLONG to = 0;  // itself included

  /// `time` is when the event was written.
  bool Matches(const LoggedEvent& event, LONGLONG time) const;
};

/// Nothing for a query of another form.
std::optional<EventQuery> ParseEventQuery(std::wstring_view text);

}  // namespace varnel::simulator
