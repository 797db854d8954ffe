// What the event log of the current host says about a stretch of time.
#pragma once

#include <string>
#include <vector>

#include "varnelctl/event_log/event.h"

namespace varnelctl {

/// Why a channel's events are not all there.
enum class ChannelState {
  read,          ///< they are
  absent,        ///< the host has no such channel
  accessDenied,  ///< for this account
  notAvailable,  ///< the system has no event log that programs could read
  failed,        ///< a call failed; what could be read is there
};

struct ChannelEvents {
  std::string channel;
  ChannelState state = ChannelState::read;
  DWORD error = ERROR_SUCCESS;  ///< the system's code, unless it was read or is not available
  std::vector<Event> events;    ///< oldest first
  bool cutShort = false;        ///< there are more, older than these
};

/// So many events of a channel at most are read, the newest.
inline constexpr std::size_t kMostEvents = 5000;

/// What these sources wrote to a channel from `from` to `to`, both included (UTC, in FILETIME's units, taken to whole
/// milliseconds around them). Without sources: what all wrote. Names are UTF-8; those of sources are compared with
/// regard to case. Failures are in the result.
ChannelEvents ReadEvents(const std::string& channel, const std::vector<std::string>& sources, long long from,
                         long long to);

/// Why a channel could not be read, in one sentence: "the channel "X" is not on this host". Empty when it was.
std::string ProblemOf(const ChannelEvents& events);

}  // namespace varnelctl
