#include "simulator/services/simulated_event_log.h"

#include <algorithm>
#include <cstring>

#include "simulator/machine/handles.h"
#include "simulator/machine/shared_state.h"
#include "simulator/machine/win32_codes.h"
#include "simulator/services/event_query.h"
#include "simulator/services/event_xml.h"
#include "simulator/services/on_machine.h"
#include "simulator/vss/snapshot_service.h"
#include "text/ascii_case.h"

namespace varnel::simulator {
namespace {

constexpr std::wstring_view kWindowsChannels[] = {L"Application", L"Security", L"Setup", L"System"};
constexpr std::size_t kLongestText = 31839;  // that ReportEventW takes

// An event as a query found it, and its number in its channel.
struct FoundEvent {
  LoggedEvent event;
  ULONGLONG record = 0;
};

// What an EVT_HANDLE stands for: results that are still to be asked for, one event, or what describes a source.
struct EventObject {
  enum class Kind { results, event, publisher };
  Kind kind;
  std::vector<FoundEvent> events{};
  std::wstring publisher{};
};

std::wstring Hexadecimal(const void* data, std::size_t count) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  std::wstring text;
  for (std::size_t i = 0; i < count; ++i) {
    text += L"0123456789ABCDEF"[bytes[i] >> 4];
    text += L"0123456789ABCDEF"[bytes[i] & 0xF];
  }
  return text;
}

EventLevel LevelOf(WORD type) {
  switch (type) {
    case EVENTLOG_ERROR_TYPE:
      return EventLevel::error;
    case EVENTLOG_WARNING_TYPE:
      return EventLevel::warning;
    case EVENTLOG_INFORMATION_TYPE:
      return EventLevel::information;
    default:
      return EventLevel::always;
  }
}

class SimulatedEventLog final : public OnMachine<EventLog> {
 public:
  explicit SimulatedEventLog(Machine& machine)
      : OnMachine(machine), objects_(machine, 0x1003), sources_(machine, 0x1004) {}

  EVT_HANDLE EvtQuery(EVT_HANDLE session, LPCWSTR path, LPCWSTR query, DWORD flags) override {
    return Win32Call(machine_, "EvtQuery", Arguments(path, query), EVT_HANDLE{nullptr}, [&]() -> EVT_HANDLE {
      if (session != nullptr || path == nullptr || query == nullptr || (flags & EvtQueryChannelPath) == 0) {
        return Fail(ERROR_INVALID_PARAMETER, EVT_HANDLE{});
      }
      const std::optional<EventQuery> wanted = ParseEventQuery(query);
      if (!wanted) return Fail(ERROR_EVT_INVALID_QUERY, EVT_HANDLE{});
      if (!HasChannel(path)) return Fail(ERROR_EVT_CHANNEL_NOT_FOUND, EVT_HANDLE{});
      std::vector<FoundEvent> found = Find(path, *wanted);
      // The next one is taken from the end.
      if ((flags & EvtQueryReverseDirection) == 0) std::reverse(found.begin(), found.end());
      return objects_.Open("event query", {EventObject::Kind::results, std::move(found)});
    });
  }

  BOOL EvtNext(EVT_HANDLE results, DWORD count, EVT_HANDLE* events, DWORD, DWORD, DWORD* returned) override {
    return Win32Call(machine_, "EvtNext", Arguments(count), BOOL{FALSE}, [&] {
      EventObject* object = Find(results, EventObject::Kind::results);
      if (object == nullptr) return Fail(ERROR_INVALID_HANDLE);
      if (count == 0 || events == nullptr || returned == nullptr) return Fail(ERROR_INVALID_PARAMETER);
      *returned = 0;
      if (object->events.empty()) return Fail(ERROR_NO_MORE_ITEMS);
      for (; *returned < count && !object->events.empty(); ++*returned) {
        FoundEvent next = std::move(object->events.back());
        object->events.pop_back();
        events[*returned] = objects_.Open("event", {EventObject::Kind::event, {std::move(next)}});
      }
      return TRUE;
    });
  }

  BOOL EvtRender(EVT_HANDLE context, EVT_HANDLE event, DWORD flags, DWORD bytes, void* buffer, DWORD* used,
                 DWORD* properties) override {
    return Win32Call(machine_, "EvtRender", NoArguments, BOOL{FALSE}, [&] {
      const EventObject* object = Find(event, EventObject::Kind::event);
      if (object == nullptr) return Fail(ERROR_INVALID_HANDLE);
      const bool isAsked = context == nullptr && flags == EvtRenderEventXml && used != nullptr && properties != nullptr;
      if (!isAsked) return Fail(ERROR_INVALID_PARAMETER);
      const FoundEvent& found = object->events.front();
      const std::wstring xml = EventXml(found.event, found.record, TimeOf(found.event), ComputerOf(found.event));
      *properties = 0;
      *used = static_cast<DWORD>((xml.size() + 1) * sizeof(wchar_t));
      if (buffer == nullptr || bytes < *used) return Fail(ERROR_INSUFFICIENT_BUFFER);
      std::memcpy(buffer, xml.c_str(), *used);
      return TRUE;
    });
  }

  EVT_HANDLE EvtOpenPublisherMetadata(EVT_HANDLE session, LPCWSTR publisher, LPCWSTR, DWORD, DWORD) override {
    return Win32Call(machine_, "EvtOpenPublisherMetadata", Shown(publisher), EVT_HANDLE{nullptr}, [&]() -> EVT_HANDLE {
      if (session != nullptr || publisher == nullptr) return Fail(ERROR_INVALID_PARAMETER, EVT_HANDLE{});
      if (!HasMessages(publisher)) return Fail(ERROR_EVT_PUBLISHER_METADATA_NOT_FOUND, EVT_HANDLE{});
      return objects_.Open("publisher metadata", {EventObject::Kind::publisher, {}, publisher});
    });
  }

  BOOL EvtFormatMessage(EVT_HANDLE publisher, EVT_HANDLE event, DWORD, DWORD, EVT_VARIANT*, DWORD flags,
                        DWORD characters, LPWSTR buffer, DWORD* used) override {
    return Win32Call(machine_, "EvtFormatMessage", NoArguments, BOOL{FALSE}, [&] {
      const EventObject* source = Find(publisher, EventObject::Kind::publisher);
      const EventObject* object = Find(event, EventObject::Kind::event);
      if (source == nullptr || object == nullptr) return Fail(ERROR_INVALID_HANDLE);
      if (flags != EvtFormatMessageEvent || used == nullptr) return Fail(ERROR_INVALID_PARAMETER);
      const LoggedEvent& logged = object->events.front().event;
      if (!logged.message || logged.source != source->publisher) return Fail(ERROR_EVT_MESSAGE_NOT_FOUND);
      *used = static_cast<DWORD>(logged.message->size() + 1);
      if (buffer == nullptr || characters < *used) return Fail(ERROR_INSUFFICIENT_BUFFER);
      CopyWithEnd(*logged.message, buffer);
      return TRUE;
    });
  }

  BOOL EvtClose(EVT_HANDLE object) override {
    const auto lock = machine_.Lock();
    const bool closed = objects_.Close(object, "EvtClose");
    return Win32Call(machine_, "EvtClose", NoArguments, BOOL{FALSE},
                     [&] { return closed ? TRUE : Fail(ERROR_INVALID_HANDLE); });
  }

  HANDLE RegisterEventSourceW(LPCWSTR server, LPCWSTR source) override {
    return Win32Call(machine_, "RegisterEventSourceW", Shown(source), HANDLE{nullptr}, [&]() -> HANDLE {
      if (server != nullptr || source == nullptr || *source == L'\0') return Fail(ERROR_INVALID_PARAMETER, HANDLE{});
      return sources_.Open("event source", source);
    });
  }

  BOOL ReportEventW(HANDLE log, WORD type, WORD category, DWORD id, void*, WORD count, DWORD dataBytes, LPCWSTR* texts,
                    void* data) override {
    return Win32Call(machine_, "ReportEventW", Arguments(type, category, id), BOOL{FALSE}, [&] {
      const std::wstring* source = sources_.Find(log);
      if (source == nullptr) return Fail(ERROR_INVALID_HANDLE);
      if ((count != 0 && texts == nullptr) || (dataBytes != 0 && data == nullptr)) return Fail(ERROR_INVALID_PARAMETER);
      LoggedEvent event{L"Application", *source, id, LevelOf(type), machine_.SystemTime()};
      for (WORD i = 0; i < count; ++i) {
        if (texts[i] == nullptr) return Fail(ERROR_INVALID_PARAMETER);
        if (event.texts.emplace_back(texts[i]).size() > kLongestText) return Fail(kRpcInvalidBound);
      }
      event.data = Hexadecimal(data, dataBytes);
      machine_.newEvents.push_back(std::move(event));
      const DWORD error = machine_.shared == nullptr ? ERROR_SUCCESS : machine_.shared->Save();
      return error == ERROR_SUCCESS ? TRUE : Fail(error);
    });
  }

  BOOL DeregisterEventSource(HANDLE log) override {
    const auto lock = machine_.Lock();
    const bool closed = sources_.Close(log, "DeregisterEventSource");
    return Win32Call(machine_, "DeregisterEventSource", NoArguments, BOOL{FALSE},
                     [&] { return closed ? TRUE : Fail(ERROR_INVALID_HANDLE); });
  }

 private:
  // Every event of the host, in the order in which they were written.
  template <class Visit>
  void ForEachEvent(Visit&& visit) const {
    for (const LoggedEvent& event : model().events) visit(event);
    for (const LoggedEvent& event : machine_.newEvents) visit(event);
  }

  bool HasChannel(std::wstring_view channel) const {
    bool found = std::any_of(std::begin(kWindowsChannels), std::end(kWindowsChannels),
                             [&](std::wstring_view known) { return ascii::EqualIgnoringCase(known, channel); });
    ForEachEvent([&](const LoggedEvent& event) { found |= ascii::EqualIgnoringCase(event.channel, channel); });
    return found;
  }

  bool HasMessages(std::wstring_view source) const {
    bool found = false;
    ForEachEvent([&](const LoggedEvent& event) { found |= event.source == source && event.message; });
    return found;
  }

  std::vector<FoundEvent> Find(std::wstring_view channel, const EventQuery& query) const {
    std::vector<FoundEvent> found;
    ULONGLONG record = 0;
    ForEachEvent([&](const LoggedEvent& event) {
      if (!ascii::EqualIgnoringCase(event.channel, channel)) return;
      ++record;
      if (query.Matches(event, TimeOf(event))) found.push_back({event, record});
    });
    return found;
  }

  EventObject* Find(EVT_HANDLE handle, EventObject::Kind kind) {
    EventObject* object = objects_.Find(handle);
    return object != nullptr && object->kind == kind ? object : nullptr;
  }

  LONGLONG TimeOf(const LoggedEvent& event) const { return event.time.value_or(machine_.StartTime()); }

  std::wstring ComputerOf(const LoggedEvent& event) const {
    return event.computer.empty() ? MachineName(model()) : event.computer;
  }

  HandleTable<EventObject> objects_;
  HandleTable<std::wstring> sources_;  // by name
};

}  // namespace

std::unique_ptr<EventLog> MakeEventLog(Machine& machine) {
  return std::make_unique<SimulatedEventLog>(machine);
}

}  // namespace varnel::simulator
