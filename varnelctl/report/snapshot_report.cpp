#include "varnelctl/report/snapshot_report.h"

#include <set>
#include <string_view>

#include "core/provider.h"
#include "text/format.h"
#include "text/guid.h"
#include "text/unicode.h"
#include "varnelctl/console/json.h"
#include "varnelctl/console/text.h"
#include "varnelctl/explanation/requirement.h"
#include "varnelctl/report/document.h"
#include "varnelctl/report/not_in_set.h"
#include "varnelctl/report/sets_report.h"

namespace varnelctl {
namespace {

using varnel::WideToUtf8Lossy;

Json ReasonJson(Reason reason) {
  return reason == Reason::None ? Json(nullptr) : Json(WordFor(reason));
}

// Each once, in the order of the files.
Json VolumesJson(const VssComponent& component) {
  Json volumes = Json::array();
  std::set<std::wstring_view> told;
  for (const VssFileDescriptor& file : component.files) {
    if (told.insert(file.volumeName).second) volumes.push_back(WideToUtf8Lossy(file.volumeName));
  }
  return volumes;
}

Json TextOrNull(std::string text) {
  return text.empty() ? Json(nullptr) : Json(std::move(text));
}

Json ComponentJson(const VssComponent& component) {
  return {{"fullPath", WideToUtf8Lossy(component.fullPath)},
          {"caption", WideToUtf8Lossy(component.caption)},
          {"excluded", component.excluded},
          {"added", component.added},
          {"failed", component.failed},
          {"failureCode", Hex(static_cast<HRESULT>(component.failureCode))},
          {"disks", ArrayOf(component.affectedSerialNumbers, WideToUtf8Lossy)},
          {"volumes", VolumesJson(component)}};
}

Json PathJson(const VssComponent* component) {
  return component == nullptr ? Json(nullptr) : Json(WideToUtf8Lossy(component->fullPath));
}

Json ComponentJson(const ComponentExplanation& explained) {
  Json json = ComponentJson(*explained.component);
  json["place"] = WordFor(explained.place);
  json["reason"] = ReasonJson(explained.reason);
  json["why"] = TextOrNull(ReasonText(explained));
  json["because"] = PathJson(explained.because);
  json["missingDisks"] = ArrayOf(explained.missingDisks, WideToUtf8Lossy);
  json["files"] = ArrayOf(explained.files, WideToUtf8Lossy);
  return json;
}

Json WriterJson(const WriterExplanation& explained) {
  const VssWriter& writer = *explained.writer;
  const bool whole = explained.components.empty();
  return {{"name", WideToUtf8Lossy(writer.name)},
          {"writerId", WideToUtf8Lossy(writer.writerId)},
          {"instanceId", WideToUtf8Lossy(writer.instanceId)},
          {"excluded", writer.excluded},
          {"reason", ReasonJson(explained.reason)},
          {"why", TextOrNull(ReasonText(explained))},
          {"components",
           whole ? ArrayOf(writer.components, [](const VssComponent& c) { return ComponentJson(c); })
                 : ArrayOf(explained.components, [](const ComponentExplanation& c) { return ComponentJson(c); })}};
}

Json WritersJson(const Explanation& explanation) {
  Json writers = Json::array();
  for (const WriterExplanation& writer : explanation) {
    if (writer.writer != nullptr) writers.push_back(WriterJson(writer));
  }
  return writers;
}

Json ShadowCopyJson(const ShadowCopyView& copy) {
  return {{"volume", WideToUtf8Lossy(copy.volume.volumeName)},
          {"mountPoint", WideToUtf8Lossy(copy.mountPoint)},
          {"sourceSerialNumber", WideToUtf8Lossy(copy.sourceSerialNumber)},
          {"snapshotId", WideToUtf8Lossy(copy.volume.snapshotId)},
          {"device", WideToUtf8Lossy(copy.volume.snapshotDeviceName)},
          {"disk", WideToUtf8Lossy(copy.disk.diskName)},
          {"serialNumber", WideToUtf8Lossy(copy.disk.serialNumber)}};
}

Json SessionJson(const IscsiSession& session) {
  return {{"targetName", WideToUtf8Lossy(session.targetName)},
          {"sessionId", session.sessionId},
          {"disks", ArrayOf(session.disks, [](const auto& disk) { return WideToUtf8Lossy(disk.serialNumber); })}};
}

Json PhaseJson(const Phase& phase) {
  return {{"name", phase.name}, {"milliseconds", phase.milliseconds}};
}

Json StepJson(const Step& step) {
  return {
      {"name", step.name.key}, {"start", step.start}, {"end", step.end}, {"result", step.failed ? "failed" : "done"}};
}

// "VSS_WS_STABLE"
std::string NameOf(VSS_WRITER_STATE state) {
  static constexpr const char* kNames[] = {"UNKNOWN",
                                           "STABLE",
                                           "WAITING_FOR_FREEZE",
                                           "WAITING_FOR_THAW",
                                           "WAITING_FOR_POST_SNAPSHOT",
                                           "WAITING_FOR_BACKUP_COMPLETE",
                                           "FAILED_AT_IDENTIFY",
                                           "FAILED_AT_PREPARE_BACKUP",
                                           "FAILED_AT_PREPARE_SNAPSHOT",
                                           "FAILED_AT_FREEZE",
                                           "FAILED_AT_THAW",
                                           "FAILED_AT_POST_SNAPSHOT",
                                           "FAILED_AT_BACKUP_COMPLETE",
                                           "FAILED_AT_PRE_RESTORE",
                                           "FAILED_AT_POST_RESTORE",
                                           "FAILED_AT_BACKUPSHUTDOWN"};
  const auto number = static_cast<std::size_t>(state);
  return number < std::size(kNames) ? std::string("VSS_WS_") + kNames[number] : std::to_string(number);
}

Json WriterStatusJson(const WriterStatusTold& status) {
  return {{"name", WideToUtf8Lossy(status.name)},
          {"instanceId", WideToUtf8Lossy(varnel::FormatGuid(status.instanceId))},
          {"state", NameOf(status.state)},
          {"failure", Hex(status.failure)},
          {"applicationResult", Hex(status.applicationResult)},
          {"applicationMessage", WideToUtf8Lossy(status.applicationMessage)}};
}

Json WriterStatesJson(const WriterStates& states) {
  return {{"step", states.step}, {"time", states.time}, {"writers", ArrayOf(states.writers, WriterStatusJson)}};
}

Json MomentJson(const WriterMoment& moment) {
  return {{"time", moment.time},
          {"writer", WideToUtf8Lossy(moment.writer)},
          {"event", moment.event},
          {"failure", Hex(moment.failure)}};
}

Json ObjectsJson(const ApplicationObjectMeatadataInfo& info) {
  return {{"appObjectIds", ArrayOf(info.appObjectIds, FromLibrary)},
          {"appObjectNames", ArrayOf(info.appObjectNames, FromLibrary)},
          {"otherObjectIds", ArrayOf(info.otherObjectIds, FromLibrary)},
          {"otherObjectNames", ArrayOf(info.otherObjectNames, FromLibrary)}};
}

Json ObjectJson(const ApplicationObject& object, const SnapshotOutcome& outcome) {
  return {{"name", object.name},
          {"writer", WideToUtf8Lossy(object.writer->name)},
          {"path", WideToUtf8Lossy(object.component->fullPath)},
          {"captured", outcome.gotThrough && object.IsCaptured()},
          {"failed", object.failed},
          {"reason", object.leftOut == nullptr ? Json(nullptr) : ReasonJson(object.leftOut->reason)},
          {"why", TextOrNull(WhyLeftOut(object, outcome.options.application))},
          {"missingDisks", ArrayOf(object.missingDisks, WideToUtf8Lossy)},
          {"disks", ArrayOf(object.disks, WideToUtf8Lossy)}};
}

Json BackupJson(const SnapshotOutcome& outcome) {
  return {{"type", BackupTypeName(outcome.options.backupType)},
          {"context", ContextName(outcome.options.context)},
          {"effect", outcome.taken ? Json(EffectOf(outcome)) : Json(nullptr)}};
}

Json ProviderOfSetJson(const std::optional<Provider>& provider) {
  Json json = {
      {"id", WideToUtf8Lossy(varnel::FormatGuid(varnel::ArrayProviderId()))}, {"name", nullptr}, {"version", nullptr}};
  if (provider) {
    json["name"] = WideToUtf8Lossy(provider->name);
    json["version"] = WideToUtf8Lossy(provider->version);
  }
  return json;
}

Json VerdictJson(const Verdict& verdict) {
  Json json = {{"text", verdict.Text()},
               {"status", static_cast<int>(verdict.status)},
               {"captured", verdict.tally.captured},
               {"of", verdict.tally.of},
               {"noun", verdict.tally.noun}};
  if (verdict.isPlan) return json;
  json["setState"] = WordFor(verdict.setState);
  json["lifetime"] = verdict.lifetime;
  json["endWith"] = verdict.endWith ? Json(*verdict.endWith) : Json(nullptr);
  return json;
}

Tone ToneOf(const Verdict& verdict) {
  if (!verdict.gotThrough) return Tone::Bad;
  return verdict.IsWhole() ? Tone::Good : Tone::Warning;
}

}  // namespace

Json CatalogDocument(const SnapshotOutcome& outcome) {
  Json catalog = Json::object();
  for (const auto& [serialNumber, info] : outcome.catalog) catalog[FromLibrary(serialNumber)] = ObjectsJson(info);
  return catalog;
}

Json SnapshotDocument(const SnapshotOutcome& outcome) {
  return {{"snapshotSetId", WideToUtf8Lossy(outcome.requestor->GetSnapShotSetId())},
          {"setState", WordFor(outcome.setState)},
          {"result", ResultJson(outcome.failure)},
          {"errorDetails", FromLibrary(outcome.errorDetails)},
          {"writers", WritersJson(outcome.explanation)},
          {"objects", ArrayOf(outcome.objects, [&](const auto& object) { return ObjectJson(object, outcome); })},
          {"otherWriters", ArrayOf(OtherWriters(outcome.explanation), [](const auto& name) { return Json(name); })},
          {"backup", BackupJson(outcome)},
          {"provider", ProviderOfSetJson(outcome.provider)},
          {"snapshots", ArrayOf(outcome.shadowCopies, ShadowCopyJson)},
          {"copiesLeft", ArrayOf(outcome.copiesLeft, ListedCopyJson)},
          {"sessionsLeft", ArrayOf(outcome.sessionsLeft, SessionJson)},
          {"catalog", CatalogDocument(outcome)},
          {"databases", FromLibrary(outcome.databases)},
          {"phases", ArrayOf(outcome.phases, PhaseJson)},
          {"steps", ArrayOf(outcome.steps, StepJson)},
          {"writerStates", ArrayOf(outcome.writerStates, WriterStatesJson)},
          {"moments", ArrayOf(outcome.moments, MomentJson)},
          {"document", WideToUtf8Lossy(outcome.requestor->GetBackupDocument())}};
}

Json TriesJson(const std::vector<Try>& tries) {
  Json list = Json::array();
  for (const Try& made : tries) {
    list.push_back({{"number", list.size() + 1},
                    {"start", made.start},
                    {"status", static_cast<int>(made.failure ? made.failure->status : ExitStatus::Done)},
                    {"result", ResultJson(made.failure)},
                    {"pause", made.pause ? Json(*made.pause) : Json(nullptr)}});
  }
  return list;
}

Verdict VerdictNow(Verdict verdict, const Session& session) {
  for (const std::string& what : session.undone()) verdict.NoteUndone(what);
  return verdict;
}

void NoteVerdict(Session& session, const Verdict& verdict) {
  session.document.Add("verdict", VerdictJson(verdict));
}

void TellVerdict(Session& session, const Verdict& verdict) {
  NoteVerdict(session, verdict);
  if (!session.json) session.console.Line(verdict.Text(), ToneOf(verdict));
}

}  // namespace varnelctl
