#include "varnelctl/report/sets_report.h"

#include <algorithm>
#include <array>
#include <iterator>

#include "core/provider.h"
#include "text/guid.h"
#include "text/unicode.h"
#include "varnelctl/console/json.h"
#include "varnelctl/console/text.h"
#include "varnelctl/report/header.h"
#include "varnelctl/sets/snapshot_options.h"

namespace varnelctl {
namespace {

using varnel::WideToUtf8Lossy;

struct KindText {
  SetKind kind;
  const char* word;
  const char* heading;
};

constexpr KindText kSetKinds[] = {{SetKind::There, "there", "In the journal and on this host"},
                                  {SetKind::NotVisible, "notVisible", "In the journal, not visible on this host"},
                                  {SetKind::NotJournalled, "notJournalled", "On this host, not in the journal"}};

const char* WordFor(SetKind kind) {
  return kSetKinds[static_cast<std::size_t>(kind)].word;
}

Json FileJson(const std::filesystem::path& path) {
  return WideToUtf8Lossy(varnel::WideFileName(path.native()));
}

std::string Created(const KnownSet& set) {
  if (set.entry) return Printable(varnel::Utf8ToWideLossy(set.entry->start));
  return UtcText(set.copies.front().listed->created);
}

// Of a set that no varnelctl remembers.
std::string MakerOf(const KnownSet& set, const KnownSets& known) {
  const GUID& provider = set.copies.front().listed->provider;
  const bool isArray = provider == varnel::ArrayProviderId();
  return std::string(isArray ? "made by another program or without a journal" : "made by another product") +
         ", provider " + known.NameOfProvider(provider);
}

std::string KnownCopyText(const KnownCopy& copy) {
  std::string text = Printable(copy.Source()) + " on disk " + Quoted(copy.sourceDisk) + ": ";
  if (!copy.listed) {
    text += "not listed";
    return copy.disk.diskName.empty() ? text : text + ", was on disk " + NameOfDisk(copy.disk);
  }
  return text + "shadow copy " +
         (copy.disk.diskName.empty() ? "without a disk of its own" : "on disk " + NameOfDisk(copy.disk));
}

void PrintShort(Console& console, const KnownSet& set, const KnownSets& known) {
  console.Line(set.id.empty() ? "(no set yet)" : Printable(set.id));
  console.Line("  " + DescribeState(set), set.IsLeftover() ? Tone::Warning : Tone::Plain);
  console.Line(
      "  " + Created(set) + ", " +
      (set.entry ? "application " + Printable(varnel::Utf8ToWideLossy(set.entry->application)) : MakerOf(set, known)));
  for (const KnownCopy& copy : set.copies) console.Line("  " + KnownCopyText(copy));
}

std::vector<std::string> NextCommands(const KnownSet& set, const KnownSets& known) {
  std::vector<std::string> commands;
  if (set.IsLeftover()) commands.emplace_back("varnelctl sets clean-up");
  if (set.id.empty()) return commands;
  for (const SetAction action : kSetActions) {
    const std::string command = std::string("varnelctl sets ") + WordFor(action) + " " + Printable(set.id);
    if (WhyNot(action, set, known, false).empty()) {
      commands.push_back(command);
    } else if (!set.entry && WhyNot(action, set, known, true).empty()) {
      commands.push_back(command + " --force");
    }
  }
  return commands;
}

Json KnownCopyJson(const KnownCopy& copy) {
  Json json = {{"snapshotId", WideToUtf8Lossy(copy.snapshotId)},
               {"volume", WideToUtf8Lossy(copy.volume)},
               {"mountPoint", WideToUtf8Lossy(copy.mountPoint)},
               {"sourceDisk", WideToUtf8Lossy(copy.sourceDisk)},
               {"device", WideToUtf8Lossy(copy.device)},
               {"disk", WideToUtf8Lossy(copy.disk.diskName)},
               {"serialNumber", WideToUtf8Lossy(copy.disk.serialNumber)},
               {"listed", copy.listed.has_value()},
               {"providerId", nullptr},
               {"attributes", nullptr},
               {"created", nullptr}};
  if (!copy.listed) return json;
  json["providerId"] = WideToUtf8Lossy(varnel::FormatGuid(copy.listed->provider));
  json["attributes"] = static_cast<std::uint32_t>(copy.listed->attributes);
  json["created"] = UtcText(copy.listed->created);
  return json;
}

Json RecordedSessionJson(const JournalSession& session) {
  return {{"targetName", WideToUtf8Lossy(session.targetName)},
          {"sessionId", session.sessionId},
          {"disks", ArrayOf(session.disks, WideToUtf8Lossy)}};
}

Json EntryJson(const KnownSet& set) {
  const JournalEntry& entry = *set.entry;
  return {{"file", FileJson(entry.file)},
          {"start", entry.start},
          {"application", entry.application},
          {"commandLine", entry.commandLine},
          {"disks", entry.disks},
          {"context", entry.context},
          {"process", entry.process.id},
          {"isRunning", set.IsProcessRunning()},
          {"stage", WordFor(entry.stage)},
          {"end", entry.end ? Json(WordFor(*entry.end)) : Json(nullptr)},
          {"transportable", entry.IsTransportable()},
          {"disconnected", entry.disconnected},
          {"sessions", ArrayOf(entry.sessions, RecordedSessionJson)}};
}

Json SetJson(const KnownSet& set, const KnownSets& known) {
  return {{"setId", set.id.empty() ? Json(nullptr) : Json(WideToUtf8Lossy(set.id))},
          {"kind", WordFor(set.Kind())},
          {"state", DescribeState(set)},
          {"leftover", set.IsLeftover()},
          {"journal", set.entry ? EntryJson(set) : Json(nullptr)},
          {"copies", ArrayOf(set.copies, KnownCopyJson)},
          {"next", NextCommands(set, known)}};
}

Json SessionOfSetJson(const SessionOfSet& session) {
  return {{"targetName", WideToUtf8Lossy(session.session.targetName)},
          {"sessionId", session.session.sessionId},
          {"disks", ArrayOf(session.own, [](const auto& disk) { return WideToUtf8Lossy(disk.serialNumber); })},
          {"others", session.others}};
}

Json FaultJson(const JournalFault& fault) {
  return {{"file", FileJson(fault.file)}, {"reason", fault.reason}};
}

void PrintEntry(Console& console, const KnownSet& set) {
  const JournalEntry& entry = *set.entry;
  console.Line("Request");
  console.Line("  " + CommandLineText(entry.commandLine));
  console.Line("  " + ProcessText(entry) + (set.IsProcessRunning() ? ", still runs" : ", has ended"));
  console.Line("  application " + Printable(varnel::Utf8ToWideLossy(entry.application)) + ", context " +
               ContextName(entry.context));
  console.Line("  journal " + ShownPath(entry.file));
}

void PrintWholeCopy(Console& console, const KnownCopy& copy, const KnownSets& known) {
  console.Line("  " + KnownCopyText(copy));
  console.Line("    volume       " + Printable(copy.volume));
  console.Line("    shadow copy  " + (copy.snapshotId.empty() ? "none" : Printable(copy.snapshotId)));
  if (!copy.device.empty()) console.Line("    device       " + Printable(copy.device));
  if (!copy.disk.diskName.empty()) console.Line("    disk         " + Printable(copy.disk.diskName));
  if (!copy.listed) return;
  console.Line("    provider     " + known.NameOfProvider(copy.listed->provider));
  console.Line("    made         " + UtcText(copy.listed->created));
}

bool IsOpen(const std::vector<SessionOfSet>& open, const JournalSession& session) {
  return std::any_of(open.begin(), open.end(), [&](const SessionOfSet& other) {
    return other.session.sessionId == session.sessionId && other.session.targetName == session.targetName;
  });
}

void PrintSessions(Console& console, const ShownSet& shown) {
  std::vector<std::string> lines;
  for (const SessionOfSet& session : shown.sessions) {
    lines.push_back("  " + session.session.sessionId + " to " + Printable(session.session.targetName) + " carries " +
                    session.Carries());
  }
  if (shown.set.entry) {
    for (const JournalSession& session : shown.set.entry->sessions) {
      if (IsOpen(shown.sessions, session)) continue;
      lines.push_back("  " + Printable(varnel::Utf8ToWideLossy(session.sessionId)) + " to " +
                      Printable(session.targetName) + " carried its disks");
    }
  }
  if (!lines.empty()) console.Line("iSCSI sessions");
  for (const std::string& line : lines) console.Line(line);
}

}  // namespace

void PrintSets(Console& console, const KnownSets& known, const std::optional<Journal>& journal) {
  for (const KindText& kind : kSetKinds) {
    bool isFirst = true;
    for (const KnownSet& set : known.sets()) {
      if (set.Kind() != kind.kind) continue;
      if (std::exchange(isFirst, false)) console.Line(kind.heading);
      PrintShort(console, set, known);
    }
    if (!isFirst) console.Line("");
  }
  const auto left = static_cast<std::size_t>(
      std::count_if(known.sets().begin(), known.sets().end(), [](const KnownSet& set) { return set.IsLeftover(); }));
  if (!journal) console.Line("No journal is kept here: only the service tells of sets.");
  console.Line(Counted(known.sets().size(), "set") +
               (left == 0 ? "" : "; " + std::to_string(left) + " to be ended with varnelctl sets clean-up"));
}

Json SetsDocument(const KnownSets& known, const std::optional<Journal>& journal) {
  return {{"journal", journal ? FileJson(journal->folder()) : Json(nullptr)},
          {"sets", ArrayOf(known.sets(), [&](const KnownSet& set) { return SetJson(set, known); })},
          {"faults", ArrayOf(known.faults(), FaultJson)}};
}

void PrintSet(Console& console, const ShownSet& shown, const KnownSets& known) {
  const KnownSet& set = shown.set;
  console.Line("Snapshot " + NameOf(set));
  console.Line("  " + DescribeState(set), set.IsLeftover() ? Tone::Warning : Tone::Plain);
  if (!set.entry) console.Line("  " + Created(set) + ", " + MakerOf(set, known));
  if (set.entry) PrintEntry(console, set);
  console.Line("Shadow copies");
  for (const KnownCopy& copy : set.copies) PrintWholeCopy(console, copy, known);
  PrintSessions(console, shown);
  const std::vector<std::string> commands = NextCommands(set, known);
  console.Line(commands.empty() ? "Nothing is to be done with it now." : "What may be done with it");
  for (const std::string& command : commands) console.Line("  " + command);
}

Json SetDocument(const ShownSet& shown, const KnownSets& known) {
  return {{"set", SetJson(shown.set, known)}, {"sessions", ArrayOf(shown.sessions, SessionOfSetJson)}};
}

void PrintPlan(Console& console, const ActionOutcome& outcome) {
  for (const std::string& line : outcome.plan) console.Line(line);
}

Json ActionDocument(const ActionOutcome& outcome, bool dryRun, const std::string& errorDetails) {
  return {{"action", WordFor(outcome.action)},
          {"dryRun", dryRun},
          {"setId", WideToUtf8Lossy(outcome.setId)},
          {"done", !dryRun && !outcome.failure},
          {"text", outcome.text},
          {"plan", outcome.plan},
          {"copiesLeft", ArrayOf(outcome.copiesLeft, ListedCopyJson)},
          {"sessionsLeft", ArrayOf(outcome.sessionsLeft, SessionOfSetJson)},
          {"errorDetails", errorDetails}};
}

void PrintCleanUp(Console& console, const std::vector<CleanUpOutcome>& outcomes) {
  for (const CleanUpOutcome& outcome : outcomes) {
    console.Line(
        (outcome.setId.empty() ? "a request without a set" : "set " + Printable(outcome.setId)) + ": " + outcome.text,
        outcome.result == CleanUpResult::Left ? Tone::Bad : Tone::Plain);
  }
}

Json CleanUpDocument(const std::vector<CleanUpOutcome>& outcomes, bool dryRun) {
  const auto outcomeJson = [](const CleanUpOutcome& outcome) -> Json {
    return {{"setId", outcome.setId.empty() ? Json(nullptr) : Json(WideToUtf8Lossy(outcome.setId))},
            {"file", FileJson(outcome.file)},
            {"outcome", WordFor(outcome.result)},
            {"text", outcome.text},
            {"copiesLeft", ArrayOf(outcome.copiesLeft, ListedCopyJson)},
            {"sessionsLeft", ArrayOf(outcome.sessionsLeft, SessionOfSetJson)}};
  };
  return {{"dryRun", dryRun}, {"text", DescribeCleanUp(outcomes, dryRun)}, {"sets", ArrayOf(outcomes, outcomeJson)}};
}

std::string DescribeCleanUp(const std::vector<CleanUpOutcome>& outcomes, bool dryRun) {
  if (outcomes.empty()) return "nothing is to be cleaned up";
  const auto left = static_cast<std::size_t>(std::count_if(
      outcomes.begin(), outcomes.end(), [](const auto& outcome) { return outcome.result == CleanUpResult::Left; }));
  const std::string count = Counted(outcomes.size(), "leftover");
  if (dryRun) return count + "; nothing was done: this was a dry run";
  if (left == 0) return count + ", none of which is left";
  return "NOT ALL DONE: " + std::to_string(left) + " of " + count + (left == 1 ? " is left" : " are left");
}

Json ListedCopyJson(const ListedCopy& copy) {
  return {{"snapshotId", WideToUtf8Lossy(copy.snapshotId)},
          {"volume", WideToUtf8Lossy(copy.volume)},
          {"device", WideToUtf8Lossy(copy.device)}};
}

}  // namespace varnelctl
