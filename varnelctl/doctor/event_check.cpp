// What the event log of the last day says of those who take part in a snapshot.
#include <algorithm>
#include <map>

#include "platform/host.h"
#include "text/unicode.h"
#include "varnelctl/console/text.h"
#include "varnelctl/doctor/check.h"
#include "varnelctl/event_log/reader.h"
#include "varnelctl/explanation/advice.h"
#include "varnelctl/report/header.h"

namespace varnelctl {
namespace {

constexpr long long kDay = 24 * 36'000'000'000;  // FILETIME's units
constexpr unsigned kErrorLevel = 2;              // 1 is critical

struct WatchedChannel {
  const char* channel;
  std::vector<std::string> sources;  // as each writes its own name; none means all
  bool isEverywhere;                 // else it comes with a role of the host
};

const std::vector<WatchedChannel>& WatchedChannels() {
  static const std::vector<WatchedChannel> channels = {
      {"Application",
       {"VSS", "SQLWRITER", "SQLVDI", "MSExchangeRepl", "MSExchangeIS", "ESE", "EventSystem",
        "Microsoft-Windows-EventSystem"},
       true},
      {"System", {"volsnap", "VolSnap", "Volsnap", "disk", "iScsiPrt", "MSiSCSI"}, true},
      {"Microsoft-Windows-Hyper-V-VMMS-Admin", {}, false}};
  return channels;
}

std::string OneSentence(const Event& event) {
  constexpr std::size_t kMost = 300;
  std::string text = OneLine(event.text);
  if (text.size() <= kMost) return text;
  std::size_t end = kMost;
  while (end != 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;  // no half character
  return text.substr(0, end) + "...";
}

// One finding for each source and number: the same error comes again and again.
void JudgeEvents(const ChannelEvents& events, Told& told) {
  std::map<std::pair<std::string, unsigned>, std::pair<std::size_t, const Event*>> bySource;
  for (const Event& event : events.events) {
    if (event.level == 0 || event.level > kErrorLevel) continue;
    auto& [count, latest] = bySource[{event.source, event.id}];
    ++count;
    latest = &event;
  }
  for (const auto& [source, errors] : bySource) {
    const auto& [count, latest] = errors;
    told.Add(Found(Severity::Warning, "source " + source.first + " of the log " + events.channel,
                   (events.cutShort ? "at least " : "") + Counted(count, "error") + " with the number " +
                       std::to_string(source.second) + " in the last day, the latest at " + UtcText(latest->time) +
                       ": " + OneSentence(*latest),
                   "", advice::kEventErrors));
  }
}

}  // namespace

void CheckEvents(Examination& /*examination*/, Told& told) {
  FILETIME time{};
  varnel::CurrentHost().time().GetSystemTimeAsFileTime(&time);
  const auto now = static_cast<long long>(ULONGLONG{time.dwHighDateTime} << 32 | time.dwLowDateTime);
  for (const WatchedChannel& watched : WatchedChannels()) {
    const ChannelEvents events = ReadEvents(watched.channel, watched.sources, now - kDay, now);
    JudgeEvents(events, told);
    if (events.state == ChannelState::read) continue;
    // A host without an event log has nothing to tell, which is no fault of it.
    const bool isAbsent = events.state == ChannelState::notAvailable || events.state == ChannelState::absent;
    if (isAbsent && !watched.isEverywhere) continue;
    if (isAbsent) {
      told.Add(Found(Severity::Note, "the event log " + events.channel, ProblemOf(events), "", advice::kEventErrors));
    } else {
      told.Add(FoundCode(Severity::Warning, "the event log " + events.channel,
                         "could not be asked: " + ProblemOf(events), "", varnel::HResultFromWin32(events.error)));
    }
  }
}

}  // namespace varnelctl
