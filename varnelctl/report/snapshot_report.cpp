#include "varnelctl/report/snapshot_report.h"

#include <algorithm>

#include "text/format.h"
#include "text/unicode.h"
#include "varnelctl/console/json.h"
#include "varnelctl/console/text.h"

namespace varnelctl {
namespace {

using varnel::Utf8ToWideLossy;
using varnel::WideToUtf8Lossy;

std::string Hex(HRESULT hr) {
  return varnel::FormatNarrow("0x%08x", {hr});
}

Json ReasonJson(Reason reason) {
  return reason == Reason::None ? Json(nullptr) : Json(WordFor(reason));
}

Json ResultJson(const SnapshotOutcome& outcome) {
  Json result = {
      {"alertCode", 0}, {"hresult", nullptr}, {"message", ""}, {"details", Json::array()}, {"step", nullptr}};
  if (const std::optional<Failure>& failure = outcome.failure) {
    result["alertCode"] = failure->alertCode;
    if (failure->hresult) result["hresult"] = Hex(*failure->hresult);
    result["message"] = failure->message;
    result["details"] = failure->details;
    if (!failure->step.empty()) result["step"] = failure->step;
  }
  return result;
}

Json ComponentJson(const VssComponent& component) {
  return {{"fullPath", WideToUtf8Lossy(component.fullPath)},
          {"caption", WideToUtf8Lossy(component.caption)},
          {"excluded", component.excluded},
          {"added", component.added},
          {"failed", component.failed},
          {"failureCode", Hex(static_cast<HRESULT>(component.failureCode))},
          {"disks", ArrayOf(component.affectedSerialNumbers, WideToUtf8Lossy)}};
}

Json PathJson(const VssComponent* component) {
  return component == nullptr ? Json(nullptr) : Json(WideToUtf8Lossy(component->fullPath));
}

Json ComponentJson(const ComponentExplanation& explained) {
  Json json = ComponentJson(*explained.component);
  json["place"] = WordFor(explained.place);
  json["reason"] = ReasonJson(explained.reason);
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
          {"snapshotId", WideToUtf8Lossy(copy.volume.snapshotId)},
          {"device", WideToUtf8Lossy(copy.volume.snapshotDeviceName)},
          {"disk", WideToUtf8Lossy(copy.disk.diskName)},
          {"serialNumber", WideToUtf8Lossy(copy.disk.serialNumber)}};
}

Json ListedCopyJson(const ListedCopy& copy) {
  return {{"snapshotId", WideToUtf8Lossy(copy.snapshotId)},
          {"volume", WideToUtf8Lossy(copy.volume)},
          {"device", WideToUtf8Lossy(copy.device)}};
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

Json ObjectsJson(const ApplicationObjectMeatadataInfo& info) {
  return {{"appObjectIds", ArrayOf(info.appObjectIds, FromLibrary)},
          {"appObjectNames", ArrayOf(info.appObjectNames, FromLibrary)},
          {"otherObjectIds", ArrayOf(info.otherObjectIds, FromLibrary)},
          {"otherObjectNames", ArrayOf(info.otherObjectNames, FromLibrary)}};
}

const char* NameOf(SetState state) {
  switch (state) {
    case SetState::None:
      return "none";
    case SetState::Kept:
      return "kept";
    case SetState::Released:
      return "released";
    case SetState::Deleted:
      return "deleted";
    case SetState::Broken:
      return "broken";
    case SetState::Masked:
      return "masked";
    case SetState::Unknown:
      break;
  }
  return "unknown";
}

// Why a set exists after a failed request; empty after one that got through.
std::string WhyStillThere(const SnapshotOutcome& outcome) {
  if (const std::size_t count = outcome.copiesLeft.size(); count != 0) {
    return ", because " + std::to_string(count) + (count == 1 ? " shadow copy" : " shadow copies") +
           " could not be deleted";
  }
  if (outcome.gotThrough) return {};
  return ", although the request failed: deleting a transportable set is up to the array";
}

std::string DescribeState(const SnapshotOutcome& outcome) {
  switch (outcome.setState) {
    case SetState::None:
      return "not taken";
    case SetState::Kept:
      return (outcome.isTransportable ? "kept for the array" : "kept until it is deleted") + WhyStillThere(outcome);
    case SetState::Released:
      return "released when this program ends, as its context says" + WhyStillThere(outcome);
    case SetState::Deleted:
      return outcome.gotThrough ? "deleted" : "deleted, because the request failed";
    case SetState::Broken:
      return "broken, its disks are ordinary read-write disks of this host";
    case SetState::Masked:
      return "broken and masked, its disks are hidden from this host";
    case SetState::Unknown:
      break;
  }
  return outcome.isTransportable ? "unknown, as this host does not see transportable sets: ask the array"
                                 : "unknown, as the service did not say whether it is still there";
}

void PrintShadowCopy(Console& console, const ShadowCopyView& copy) {
  console.Line("  " + Printable(copy.mountPoint.empty() ? copy.volume.volumeName : copy.mountPoint) + "  on disk " +
               Quoted(copy.sourceSerialNumber));
  console.Line("    volume       " + Printable(copy.volume.volumeName));
  console.Line("    shadow copy  " + (copy.volume.snapshotId.empty() ? "none" : Printable(copy.volume.snapshotId)));
  if (copy.volume.snapshotDeviceName.empty()) {
    console.Line("    not surfaced on this host");
    return;
  }
  console.Line("    device       " + Printable(copy.volume.snapshotDeviceName));
  console.Line("    disk         " + Printable(copy.disk.diskName) + ", serial " + Quoted(copy.disk.serialNumber));
}

void PrintSet(Console& console, const SnapshotOutcome& outcome) {
  console.Line(DescribeSet(outcome));
  for (const ShadowCopyView& copy : outcome.shadowCopies) PrintShadowCopy(console, copy);
}

std::string DisksOf(const VssComponent& component) {
  const std::string disks =
      SerialNumberList({component.affectedSerialNumbers.begin(), component.affectedSerialNumbers.end()});
  return disks.empty() ? disks : "  on " + disks;
}

// One line per captured component that `wanted` holds for, under its writer's name.
template <class Wanted>
std::size_t PrintComponents(Console& console, const Explanation& explanation, Wanted wanted) {
  std::size_t count = 0;
  for (const WriterExplanation& writer : explanation) {
    bool named = false;
    for (const ComponentExplanation& explained : writer.components) {
      const VssComponent& component = *explained.component;
      const bool captured = explained.place != Place::LeftOut && explained.place != Place::Container;
      if (!captured || !wanted(component)) continue;
      if (!named) console.Line("  " + Printable(writer.writer->name));
      named = true;
      ++count;
      std::string line = "    " + Printable(component.fullPath) + DisksOf(component);
      if (varnel::HasFailed(component)) {
        line += ": " + OneLine(WideToUtf8Lossy(CVarnel::HResult2String(static_cast<long>(component.failureCode))));
      }
      console.Line(line);
    }
  }
  return count;
}

void PrintCaptured(Console& console, const Explanation& explanation) {
  console.Line("Captured application-consistent");
  if (PrintComponents(console, explanation, [](const auto& component) { return !varnel::HasFailed(component); }) == 0) {
    console.Line("  nothing");
  }
  const bool anyFailed = std::any_of(explanation.begin(), explanation.end(), [](const WriterExplanation& writer) {
    return std::any_of(writer.components.begin(), writer.components.end(),
                       [](const auto& explained) { return varnel::HasFailed(*explained.component); });
  });
  if (!anyFailed) return;
  console.Line("In the set, but failed by their writer");
  PrintComponents(console, explanation, varnel::HasFailed);
}

void PrintObjects(Console& console, std::string_view label, const std::vector<std::string>& objects) {
  for (const std::string& object : objects) {
    console.Line("    " + std::string(label) + Printable(Utf8ToWideLossy(FromLibrary(object))));
  }
}

void PrintCatalog(Console& console, const SnapshotOutcome& outcome) {
  if (outcome.catalog.empty()) return;
  console.Line("Catalogue by disk");
  for (const auto& [serialNumber, info] : outcome.catalog) {
    console.Line("  disk " + Quoted(Utf8ToWideLossy(FromLibrary(serialNumber))));
    PrintObjects(console, "object id    ", info.appObjectIds);
    PrintObjects(console, "object name  ", info.appObjectNames);
    PrintObjects(console, "other id     ", info.otherObjectIds);
    PrintObjects(console, "other name   ", info.otherObjectNames);
  }
}

// The lines under a heading, which stands only where there are some.
class Section {
 public:
  Section(Console& console, const char* heading) : console_(console), heading_(heading) {}
  void Line(const std::string& text) {
    if (heading_ != nullptr) console_.Line(heading_);
    heading_ = nullptr;
    console_.Line(text);
  }

 private:
  Console& console_;
  const char* heading_;
};

void PrintLeftOut(Section& section, const WriterExplanation& writer) {
  if (writer.reason != Reason::None && writer.writer != nullptr) {
    section.Line("  " + Printable(writer.writer->name) + ": " + ReasonText(writer));
  }
  bool named = false;
  for (const ComponentExplanation& explained : writer.components) {
    if (explained.place != Place::LeftOut) continue;
    if (!named) section.Line("  " + Printable(writer.writer->name));
    named = true;
    section.Line("    " + Printable(explained.component->fullPath) + ": " + ReasonText(explained));
  }
}

void PrintLeftOut(Console& console, const Explanation& explanation) {
  Section section(console, "Left out");
  for (const WriterExplanation& writer : explanation) PrintLeftOut(section, writer);
}

}  // namespace

std::string DescribeSet(const SnapshotOutcome& outcome) {
  const std::string id = Printable(outcome.requestor->GetSnapShotSetId());
  return (id.empty() ? "Snapshot set: " : "Snapshot set " + id + ": ") + DescribeState(outcome);
}

Json CatalogDocument(const SnapshotOutcome& outcome) {
  Json catalog = Json::object();
  for (const auto& [serialNumber, info] : outcome.catalog) catalog[FromLibrary(serialNumber)] = ObjectsJson(info);
  return catalog;
}

Json SnapshotDocument(const SnapshotOutcome& outcome) {
  return {{"snapshotSetId", WideToUtf8Lossy(outcome.requestor->GetSnapShotSetId())},
          {"setState", NameOf(outcome.setState)},
          {"result", ResultJson(outcome)},
          {"errorDetails", FromLibrary(outcome.errorDetails)},
          {"writers", WritersJson(outcome.explanation)},
          {"snapshots", ArrayOf(outcome.shadowCopies, ShadowCopyJson)},
          {"copiesLeft", ArrayOf(outcome.copiesLeft, ListedCopyJson)},
          {"sessionsLeft", ArrayOf(outcome.sessionsLeft, SessionJson)},
          {"catalog", CatalogDocument(outcome)},
          {"databases", FromLibrary(outcome.databases)},
          {"phases", ArrayOf(outcome.phases, PhaseJson)},
          {"steps", ArrayOf(outcome.steps, StepJson)},
          {"document", WideToUtf8Lossy(outcome.requestor->GetBackupDocument())}};
}

void PrintSnapshot(Console& console, const SnapshotOutcome& outcome) {
  console.Line("");
  PrintSet(console, outcome);
  if (outcome.gotThrough) {
    PrintCaptured(console, outcome.explanation);
    PrintCatalog(console, outcome);
  }
  PrintLeftOut(console, outcome.explanation);
}

}  // namespace varnelctl
