#include "varnelctl/sets/journal_document.h"

#include <charconv>
#include <nlohmann/json.hpp>

#include "simulator/host_file/json_reader.h"
#include "text/guid.h"
#include "text/unicode.h"
#include "varnelctl/console/json.h"

namespace varnelctl {
namespace {

using varnel::WideToUtf8Lossy;
using varnel::simulator::JsonError;
using varnel::simulator::JsonNode;
using varnel::simulator::JsonObject;
using varnel::simulator::Word;

constexpr DWORD kVersion = 1;

constexpr Word<JournalStage> kStages[] = {{"begun", JournalStage::Begun},
                                          {"started", JournalStage::Started},
                                          {"takingSnapshot", JournalStage::TakingSnapshot},
                                          {"taken", JournalStage::Taken},
                                          {"completed", JournalStage::Completed},
                                          {"breaking", JournalStage::Breaking},
                                          {"masking", JournalStage::Masking},
                                          {"deleting", JournalStage::Deleting},
                                          {"ended", JournalStage::Ended}};

constexpr Word<JournalEnd> kEnds[] = {{"nothing", JournalEnd::Nothing},    {"released", JournalEnd::Released},
                                      {"kept", JournalEnd::Kept},          {"broken", JournalEnd::Broken},
                                      {"masked", JournalEnd::Masked},      {"deleted", JournalEnd::Deleted},
                                      {"toBeEnded", JournalEnd::ToBeEnded}};

Json CopyJson(const JournalCopy& copy) {
  return {{"snapshotId", WideToUtf8Lossy(copy.snapshotId)},
          {"volume", WideToUtf8Lossy(copy.volume)},
          {"mountPoint", WideToUtf8Lossy(copy.mountPoint)},
          {"sourceDisk", WideToUtf8Lossy(copy.sourceDisk)},
          {"device", WideToUtf8Lossy(copy.device)},
          {"disk", WideToUtf8Lossy(copy.disk)},
          {"serialNumber", WideToUtf8Lossy(copy.serialNumber)}};
}

Json SessionJson(const JournalSession& session) {
  return {{"targetName", WideToUtf8Lossy(session.targetName)},
          {"sessionId", session.sessionId},
          {"disks", ArrayOf(session.disks, WideToUtf8Lossy)}};
}

// JSON readers lose digits of numbers beyond 53 bits.
Json ProcessJson(const ProcessIdentity& process) {
  return {{"id", process.id}, {"start", std::to_string(process.start)}};
}

JournalCopy CopyOf(const JsonNode& node) {
  JournalCopy copy;
  JsonObject(node, {"snapshotId", "volume", "mountPoint", "sourceDisk", "device", "disk", "serialNumber"})
      .Read("snapshotId", copy.snapshotId)
      .Read("volume", copy.volume)
      .Read("mountPoint", copy.mountPoint)
      .Read("sourceDisk", copy.sourceDisk)
      .Read("device", copy.device)
      .Read("disk", copy.disk)
      .Read("serialNumber", copy.serialNumber);
  return copy;
}

JournalSession SessionOf(const JsonNode& node) {
  const JsonObject object(node, {"targetName", "sessionId", "disks"});
  JournalSession session{object.At("targetName").Text(), object.At("sessionId").Utf8(), {}};
  object.ReadList("disks", session.disks, [](const JsonNode& disk) { return disk.Text(); });
  return session;
}

ProcessIdentity ProcessOf(const JsonNode& node) {
  const JsonObject object(node, {"id", "start"});
  ProcessIdentity process{static_cast<std::uint32_t>(object.At("id").Number()), 0};
  const JsonNode start = object.At("start");
  const std::string& text = start.Utf8();
  const char* const last = text.data() + text.size();
  const auto [end, error] = std::from_chars(text.data(), last, process.start);
  if (error != std::errc() || end != last) start.Refuse("is no number");
  return process;
}

std::wstring SetIdOf(const JsonNode& node) {
  std::wstring id = node.Text();
  if (!id.empty()) node.Guid();
  return id;
}

void RequireVersion(const JsonNode& document) {
  if (!document.HasMember("version")) document.Fail("has no version: it is no entry of a journal");
  for (const auto& [key, value] : document.Members()) {
    if (key != "version") continue;
    const DWORD version = value.Number();
    if (version != kVersion) {
      value.Fail("is version " + std::to_string(version) + ", and this varnelctl reads version " +
                 std::to_string(kVersion));
    }
  }
}

void RequireSense(const JsonNode& document, const JournalEntry& entry) {
  const bool mayGoOn = entry.stage == JournalStage::Breaking || entry.stage == JournalStage::Masking;
  const bool isKept = mayGoOn && entry.end == JournalEnd::Kept;
  if ((entry.stage == JournalStage::Ended) != entry.end.has_value() && !isKept) {
    document.Fail("\"end\" stands with the stage \"ended\", and only there");
  }
  const bool hasSet = entry.stage != JournalStage::Begun && entry.end != JournalEnd::Nothing;
  if (hasSet && entry.setId.empty()) document.Fail("the stage has a set, but there is no setId");
}

JournalEntry EntryOf(const JsonNode& document) {
  RequireVersion(document);
  const JsonObject object(document, {"version", "host", "process", "start", "commandLine", "application", "disks",
                                     "context", "stage", "end", "setId", "disconnected", "copies", "sessions"});
  const auto utf8 = [](const JsonNode& node) { return node.Utf8(); };
  JournalEntry entry;
  entry.host = object.At("host").Utf8();
  entry.process = ProcessOf(object.At("process"));
  entry.start = object.At("start").Utf8();
  entry.application = object.At("application").Utf8();
  entry.context = static_cast<std::uint32_t>(object.At("context").Number());
  entry.stage = object.At("stage").OneOf(kStages);
  if (const JsonNode end = object.At("end"); !end.IsNull()) entry.end = end.OneOf(kEnds);
  entry.setId = SetIdOf(object.At("setId"));
  entry.disconnected = object.At("disconnected").Flag();
  object.ReadList("commandLine", entry.commandLine, utf8)
      .ReadList("disks", entry.disks, utf8)
      .ReadList("copies", entry.copies, CopyOf)
      .ReadList("sessions", entry.sessions, SessionOf);
  RequireSense(document, entry);
  return entry;
}

}  // namespace

std::string FormatJournalEntry(const JournalEntry& entry) {
  constexpr int kIndent = 2;
  const Json document = {{"version", kVersion},
                         {"host", entry.host},
                         {"process", ProcessJson(entry.process)},
                         {"start", entry.start},
                         {"commandLine", entry.commandLine},
                         {"application", entry.application},
                         {"disks", entry.disks},
                         {"context", entry.context},
                         {"stage", WordFor(entry.stage)},
                         {"end", entry.end ? Json(WordFor(*entry.end)) : Json(nullptr)},
                         {"setId", WideToUtf8Lossy(entry.setId)},
                         {"disconnected", entry.disconnected},
                         {"copies", ArrayOf(entry.copies, CopyJson)},
                         {"sessions", ArrayOf(entry.sessions, SessionJson)}};
  return document.dump(kIndent, ' ', false, Json::error_handler_t::replace) + "\n";
}

JournalEntry ParseJournalEntry(std::string_view text) {
  try {
    const nlohmann::json document = varnel::simulator::ParseJson(text);
    return EntryOf(JsonNode(document, ""));
  } catch (const JsonError& error) {
    throw std::runtime_error((error.pointer().empty() ? "" : error.pointer() + ": ") + error.what());
  }
}

const char* WordFor(JournalStage stage) {
  return varnel::simulator::WordFor(kStages, stage).data();
}

const char* WordFor(JournalEnd end) {
  return varnel::simulator::WordFor(kEnds, end).data();
}

}  // namespace varnelctl
