#include "simulator/host_file/read_events.h"

#include "simulator/machine/utc_time.h"

namespace varnel::simulator {
namespace {

constexpr Word<EventLevel> kLevels[] = {
    {"critical", EventLevel::critical},       {"error", EventLevel::error},   {"warning", EventLevel::warning},
    {"information", EventLevel::information}, {"always", EventLevel::always},
};

std::wstring ReadBytes(const JsonNode& node) {
  const std::string& text = node.Utf8();
  const bool isData = text.size() % 2 == 0 && text.find_first_not_of("0123456789ABCDEF") == text.npos;
  if (!isData) node.Refuse("is no data (two digits of 0-9, A-F for each byte)");
  return node.Text();
}

std::wstring ReadName(const JsonNode& node) {
  std::wstring name = node.Text();
  if (name.empty()) node.Fail("a name is not empty");
  return name;
}

}  // namespace

LoggedEvent ReadEvent(const JsonNode& node) {
  const JsonObject object(node, {"channel", "source", "id", "level", "time", "computer", "texts", "data", "message"});
  LoggedEvent event;
  if (const auto channel = object.Find("channel")) event.channel = ReadName(*channel);
  event.source = ReadName(object.At("source"));
  event.id = object.At("id").Number();
  object.Read("level", event.level, kLevels);
  if (const auto time = object.Find("time")) {
    event.time = ParseUtc(time->Utf8());
    if (!event.time) time->Refuse("is no time in UTC (2026-01-01T00:00:05Z)");
  }
  object.Read("computer", event.computer);
  object.ReadList("texts", event.texts, [](const JsonNode& text) { return text.Text(); });
  if (const auto data = object.Find("data")) event.data = ReadBytes(*data);
  object.Read("message", event.message);
  return event;
}

}  // namespace varnel::simulator
