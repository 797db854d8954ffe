#include "varnelctl/event_log/reader.h"

#include <algorithm>
#include <array>
#include <map>
#include <utility>

#include "platform/host.h"
#include "platform/owners.h"
#include "text/unicode.h"
#include "varnelctl/explanation/failure.h"
#include "varnelctl/report/header.h"

namespace varnelctl {
namespace {

using varnel::CurrentHost;
using varnel::EventHandle;

// The system refuses queries of more than some twenty conditions.
constexpr std::size_t kSourcesPerQuery = 10;
// Larger answers than this the event log's service may refuse.
constexpr DWORD kEventsPerAnswer = 16;
// The service answers from files of this machine.
constexpr DWORD kPatience = 30'000;  // milliseconds
constexpr long long kTicksPerMillisecond = 10'000;

// A failed call of the event log. 0: it cannot be read at all.
struct ReadFailure {
  DWORD error;
};

std::wstring InQuotes(const std::wstring& name) {
  const wchar_t quote = name.find(L'\'') == name.npos ? L'\'' : L'"';
  return quote + name + quote;
}

// XPath as the event log understands it. `sources` are those from `first` on.
std::wstring QueryText(const std::vector<std::string>& sources, std::size_t first, long long from, long long to) {
  std::wstring names;
  for (std::size_t i = first; i < std::min(sources.size(), first + kSourcesPerQuery); ++i) {
    names += (names.empty() ? L"@Name=" : L" or @Name=") + InQuotes(varnel::Utf8ToWideLossy(sources[i]));
  }
  const std::string since = UtcText(from);
  const std::string until = UtcText(to + kTicksPerMillisecond - 1);
  return L"*[System[" + (names.empty() ? L"" : L"Provider[" + names + L"] and ") + L"TimeCreated[@SystemTime>='" +
         varnel::Utf8ToWide(since) + L"' and @SystemTime<='" + varnel::Utf8ToWide(until) + L"']]]";
}

// Makes a call that fills a buffer as often as it asks for more room. `fill(buffer, &needed)`; nothing when it fails.
template <class Fill>
bool FillText(std::wstring& text, std::size_t unit, Fill&& fill) {
  for (int tries = 0; tries < 3; ++tries) {
    DWORD needed = 0;
    const bool filled = fill(text, needed);
    const DWORD error = filled ? ERROR_SUCCESS : CurrentHost().GetLastError();
    const bool lacksInserts =
        error == ERROR_EVT_UNRESOLVED_VALUE_INSERT || error == ERROR_EVT_UNRESOLVED_PARAMETER_INSERT;
    if (filled || (lacksInserts && !text.empty())) {
      text.resize(std::min(text.size(), needed / unit));
      text.erase(std::min(text.find(L'\0'), text.size()));
      return true;
    }
    if (error != ERROR_INSUFFICIENT_BUFFER && !lacksInserts) return false;
    text.resize(needed / unit + 1);
  }
  return false;
}

ChannelState StateOf(DWORD error) {
  switch (error) {
    case ERROR_SUCCESS:
      return ChannelState::notAvailable;
    case ERROR_EVT_CHANNEL_NOT_FOUND:
      return ChannelState::absent;
    case ERROR_ACCESS_DENIED:
      return ChannelState::accessDenied;
    default:
      return ChannelState::failed;
  }
}

void Note(const ReadFailure& failure, ChannelEvents& result) {
  result.state = StateOf(failure.error);
  result.error = failure.error;
}

class ChannelReader {
 public:
  explicit ChannelReader(ChannelEvents& result) : result_(result), channel_(varnel::Utf8ToWideLossy(result.channel)) {}

  // Adds what a query finds, newest first.
  void Read(const std::wstring& query) {
    const EventHandle results(
        log_.EvtQuery(nullptr, channel_.c_str(), query.c_str(), EvtQueryChannelPath | EvtQueryReverseDirection));
    if (!results) throw ReadFailure{CurrentHost().GetLastError()};
    std::size_t found = 0;
    for (auto events = Next(results); !events.empty(); events = Next(results)) {
      for (const EventHandle& event : events) {
        if (found++ == kMostEvents) {
          result_.cutShort = true;
          return;
        }
        Take(event);
      }
    }
  }

 private:
  // One that cannot be rendered ends nothing: the next ones may be those that matter.
  void Take(const EventHandle& event) {
    try {
      result_.events.push_back(Render(event));
    } catch (const ReadFailure& failure) {
      if (result_.state == ChannelState::read) Note(failure, result_);
    }
  }

  std::vector<EventHandle> Next(const EventHandle& results) {
    std::array<EVT_HANDLE, kEventsPerAnswer> handles{};
    DWORD returned = 0;
    std::vector<EventHandle> events;
    if (!log_.EvtNext(results.Get(), kEventsPerAnswer, handles.data(), kPatience, 0, &returned)) {
      const DWORD error = CurrentHost().GetLastError();
      if (error != ERROR_NO_MORE_ITEMS) throw ReadFailure{error};
      return events;
    }
    events.reserve(returned);
    for (DWORD i = 0; i < returned; ++i) events.emplace_back(handles[i]);
    return events;
  }

  Event Render(const EventHandle& event) {
    std::wstring xml;
    const auto render = [&](std::wstring& buffer, DWORD& used) {
      DWORD properties = 0;
      return log_.EvtRender(nullptr, event.Get(), EvtRenderEventXml,
                            static_cast<DWORD>(buffer.size() * sizeof(wchar_t)), buffer.data(), &used,
                            &properties) != FALSE;
    };
    if (!FillText(xml, sizeof(wchar_t), render)) throw ReadFailure{CurrentHost().GetLastError()};
    Event result = ParseEvent(varnel::WideToUtf8Lossy(xml));
    if (!Format(event, result)) {
      for (const std::string& text : result.texts) result.text += (result.text.empty() ? "" : "\n") + text;
    }
    return result;
  }

  bool Format(const EventHandle& event, Event& result) {
    const EventHandle& publisher = PublisherOf(result.source);
    if (!publisher) return false;
    std::wstring text;
    const auto format = [&](std::wstring& buffer, DWORD& used) {
      return log_.EvtFormatMessage(publisher.Get(), event.Get(), 0, 0, nullptr, EvtFormatMessageEvent,
                                   static_cast<DWORD>(buffer.size()), buffer.data(), &used) != FALSE;
    };
    if (!FillText(text, 1, format)) return false;
    while (text.ends_with(L'\n') || text.ends_with(L'\r')) text.pop_back();
    result.text = varnel::WideToUtf8Lossy(text);
    return true;
  }

  // Empty where the source's messages cannot be had.
  const EventHandle& PublisherOf(const std::string& source) {
    const auto [entry, isNew] = publishers_.try_emplace(source);
    if (isNew) {
      const std::wstring name = varnel::Utf8ToWideLossy(source);
      entry->second = EventHandle(log_.EvtOpenPublisherMetadata(nullptr, name.c_str(), nullptr, 0, 0));
    }
    return entry->second;
  }

  ChannelEvents& result_;
  std::wstring channel_;
  varnel::EventLog& log_ = CurrentHost().eventLog();
  std::map<std::string, EventHandle> publishers_;
};

// Several queries' events in one order, and of them the newest.
void PutInOrder(ChannelEvents& result) {
  const auto isOlder = [](const Event& a, const Event& b) {
    return std::pair(a.time, a.record) < std::pair(b.time, b.record);
  };
  std::sort(result.events.begin(), result.events.end(), isOlder);
  if (result.events.size() <= kMostEvents) return;
  result.events.erase(result.events.begin(), result.events.end() - kMostEvents);
  result.cutShort = true;
}

}  // namespace

ChannelEvents ReadEvents(const std::string& channel, const std::vector<std::string>& sources, long long from,
                         long long to) {
  ChannelEvents result;
  result.channel = channel;
  try {
    ChannelReader reader(result);
    std::size_t first = 0;
    do {
      reader.Read(QueryText(sources, first, from, to));
      first += kSourcesPerQuery;
    } while (first < sources.size());
  } catch (const ReadFailure& failure) {
    Note(failure, result);
  }
  PutInOrder(result);
  return result;
}

std::string ProblemOf(const ChannelEvents& events) {
  const std::string channel = "the channel \"" + events.channel + "\"";
  switch (events.state) {
    case ChannelState::read:
      return {};
    case ChannelState::absent:
      return channel + " is not on this host";
    case ChannelState::accessDenied:
      return channel + " may not be read by this account";
    case ChannelState::notAvailable:
      return "this system has no event log that could be read";
    case ChannelState::failed:
      break;
  }
  return channel + " could not be read: error " + std::to_string(events.error);
}

}  // namespace varnelctl
