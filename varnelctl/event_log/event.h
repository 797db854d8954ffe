// One event of the event log.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/win32.h"

namespace varnelctl {

/// All text is UTF-8.
struct Event {
  long long time = 0;  ///< UTC, in FILETIME's units
  std::string source;
  unsigned id = 0;                ///< without the qualifiers
  unsigned level = 0;             ///< 1 critical, 2 error, 3 warning, 4 information, 5 verbose; 0: of none
  unsigned long long record = 0;  ///< its number in the channel
  std::string computer;
  std::vector<std::string> texts;  ///< that are inserted into the message
  /// As the event viewer shows it; where the source's messages cannot be had, the inserted texts, a line each.
  std::string text;
  std::string xml;  ///< as the event log gave it
};

/// What stands in an event's XML, without its text. What cannot be read of it stays empty; nothing is thrown for that.
Event ParseEvent(std::string xml);

/// "error"; "level 7" for one without a name.
std::string LevelName(unsigned level);

}  // namespace varnelctl
