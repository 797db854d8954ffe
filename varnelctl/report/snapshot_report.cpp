#include "varnelctl/report/snapshot_report.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "text/format.h"
#include "text/unicode.h"
#include "varnelctl/console/text.h"

namespace varnelctl {
namespace {

std::string Hex(HRESULT hr) {
  return varnel::FormatNarrow("0x%08x", {hr});
}

Json ResultJson(const SnapshotRun& run) {
  Json result = {{"alertCode", 0}, {"hresult", nullptr}, {"message", ""}, {"details", Json::array()}};
  if (const std::optional<Failure>& failure = run.failure()) {
    result["alertCode"] = failure->alertCode;
    if (failure->hresult) result["hresult"] = Hex(*failure->hresult);
    result["message"] = failure->message;
    result["details"] = failure->details;
  }
  return result;
}

Json ComponentJson(const VssComponent& component) {
  Json disks = Json::array();
  for (const std::wstring& serialNumber : component.affectedSerialNumbers) disks.push_back(Utf8(serialNumber));
  return {{"fullPath", Utf8(component.fullPath)},
          {"caption", Utf8(component.caption)},
          {"excluded", component.excluded},
          {"added", component.added},
          {"failed", component.failed},
          {"failureCode", Hex(static_cast<HRESULT>(component.failureCode))},
          {"disks", std::move(disks)}};
}

Json WritersJson(const std::vector<VssWriter>& writers) {
  Json list = Json::array();
  for (const VssWriter& writer : writers) {
    Json components = Json::array();
    for (const VssComponent& component : writer.components) components.push_back(ComponentJson(component));
    list.push_back({{"name", Utf8(writer.name)},
                    {"writerId", Utf8(writer.writerId)},
                    {"instanceId", Utf8(writer.instanceId)},
                    {"excluded", writer.excluded},
                    {"components", std::move(components)}});
  }
  return list;
}

Json SnapshotsJson(const std::vector<ShadowCopyView>& copies) {
  Json list = Json::array();
  for (const ShadowCopyView& copy : copies) {
    list.push_back({{"volume", Utf8(copy.volume.volumeName)},
                    {"snapshotId", Utf8(copy.volume.snapshotId)},
                    {"device", Utf8(copy.volume.snapshotDeviceName)},
                    {"disk", Utf8(copy.disk.diskName)},
                    {"serialNumber", Utf8(copy.disk.serialNumber)}});
  }
  return list;
}

Json PhasesJson(const std::vector<Phase>& phases) {
  Json list = Json::array();
  for (const Phase& phase : phases) list.push_back({{"name", phase.name}, {"milliseconds", phase.milliseconds}});
  return list;
}

// What the library hands out as narrow text may be in the machine's code page; JSON wants valid UTF-8.
Json TextsJson(const std::vector<std::string>& texts) {
  Json list = Json::array();
  for (const std::string& text : texts) list.push_back(Utf8(varnel::Utf8ToWideLossy(text)));
  return list;
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

// Why a set exists behind a failed request; empty behind one that got through.
std::string WhyStillThere(const SnapshotRun& run) {
  if (run.copiesLeft()) {
    const std::size_t count = *run.copiesLeft();
    return ", because " + std::to_string(count) + (count == 1 ? " shadow copy" : " shadow copies") +
           " could not be deleted";
  }
  if (run.gotThrough()) return {};
  return ", although the request failed: deleting a transportable set is up to the array";
}

std::string DescribeState(const SnapshotRun& run) {
  switch (run.setState()) {
    case SetState::None:
      return "not taken";
    case SetState::Kept:
      return (run.options().IsTransportable() ? "kept for the array" : "kept until it is deleted") + WhyStillThere(run);
    case SetState::Released:
      return "released when this program ends, as its context says" + WhyStillThere(run);
    case SetState::Deleted:
      return run.gotThrough() ? "deleted" : "deleted, because the request failed";
    case SetState::Broken:
      return "broken, its disks are ordinary read-write disks of this host";
    case SetState::Masked:
      return "broken and masked, its disks are hidden from this host";
    case SetState::Unknown:
      break;
  }
  return run.options().IsTransportable() ? "unknown, as this host does not see transportable sets: ask the array"
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

void PrintSet(Console& console, const SnapshotRun& run) {
  const std::string id = Printable(run.requestor().GetSnapShotSetId());
  console.Line((id.empty() ? "Snapshot set: " : "Snapshot set " + id + ": ") + DescribeState(run));
  for (const ShadowCopyView& copy : run.shadowCopies()) PrintShadowCopy(console, copy);
}

std::string DisksOf(const VssComponent& component) {
  std::string disks;
  for (const std::wstring& serialNumber : component.affectedSerialNumbers) {
    disks += (disks.empty() ? "  on " : ", ") + Quoted(serialNumber);
  }
  return disks;
}

bool HasFailed(const VssComponent& component) {
  return component.failed && component.failureCode != 0;
}

// One line per component that `wanted` holds for, under its writer's name.
template <class Wanted>
std::size_t PrintComponents(Console& console, const SnapshotRun& run, Wanted wanted) {
  std::size_t count = 0;
  for (const VssWriter& writer : run.requestor().GetWriters()) {
    bool named = false;
    for (const VssComponent& component : writer.components) {
      if (!IsCaptured(writer, component) || !wanted(component)) continue;
      if (!named) console.Line("  " + Printable(writer.name));
      named = true;
      ++count;
      std::string line = "    " + Printable(component.fullPath) + DisksOf(component);
      if (HasFailed(component)) {
        line += ": " + OneLine(Utf8(CVarnel::HResult2String(static_cast<long>(component.failureCode))));
      }
      console.Line(line);
    }
  }
  return count;
}

void PrintCaptured(Console& console, const SnapshotRun& run) {
  console.Line("Captured application-consistent");
  if (PrintComponents(console, run, [](const auto& component) { return !HasFailed(component); }) == 0) {
    console.Line("  nothing");
  }
  const auto& writers = run.requestor().GetWriters();
  const bool anyFailed = std::any_of(writers.begin(), writers.end(), [](const VssWriter& writer) {
    return std::any_of(writer.components.begin(), writer.components.end(), HasFailed);
  });
  if (!anyFailed) return;
  console.Line("In the set, but failed by their writer");
  PrintComponents(console, run, HasFailed);
}

void PrintObjects(Console& console, std::string_view label, const std::vector<std::string>& objects) {
  for (const std::string& object : objects) {
    console.Line("    " + std::string(label) + Printable(varnel::Utf8ToWideLossy(object)));
  }
}

void PrintCatalog(Console& console, const SnapshotRun& run) {
  if (run.catalog().empty()) return;
  console.Line("Catalogue by disk");
  for (const auto& [serialNumber, info] : run.catalog()) {
    console.Line("  disk " + Quoted(varnel::Utf8ToWideLossy(serialNumber)));
    PrintObjects(console, "object id    ", info.appObjectIds);
    PrintObjects(console, "object name  ", info.appObjectNames);
    PrintObjects(console, "other id     ", info.otherObjectIds);
    PrintObjects(console, "other name   ", info.otherObjectNames);
  }
}

void PrintLeftOut(Console& console, const SnapshotRun& run) {
  if (run.leftOut().empty()) return;
  console.Line("Left out");
  const VssWriter* writer = nullptr;
  for (const LeftOut& entry : run.leftOut()) {
    if (entry.component == nullptr) {
      console.Line("  " + Printable(entry.writer->name) + ": " + entry.reason);
      continue;
    }
    if (entry.writer != writer) console.Line("  " + Printable(entry.writer->name));
    writer = entry.writer;
    console.Line("    " + Printable(entry.component->fullPath) + ": " + entry.reason);
  }
}

}  // namespace

Json CatalogDocument(const SnapshotRun& run) {
  Json catalog = Json::object();
  for (const auto& [serialNumber, info] : run.catalog()) {
    catalog[Utf8(varnel::Utf8ToWideLossy(serialNumber))] = {{"appObjectIds", TextsJson(info.appObjectIds)},
                                                            {"appObjectNames", TextsJson(info.appObjectNames)},
                                                            {"otherObjectIds", TextsJson(info.otherObjectIds)},
                                                            {"otherObjectNames", TextsJson(info.otherObjectNames)}};
  }
  return catalog;
}

Json SnapshotDocument(const SnapshotRun& run) {
  return {{"snapshotSetId", Utf8(run.requestor().GetSnapShotSetId())},
          {"setState", NameOf(run.setState())},
          {"result", ResultJson(run)},
          {"errorDetails", Utf8(varnel::Utf8ToWideLossy(run.errorDetails()))},
          {"writers", WritersJson(run.requestor().GetWriters())},
          {"snapshots", SnapshotsJson(run.shadowCopies())},
          {"catalog", CatalogDocument(run)},
          {"databases", Utf8(varnel::Utf8ToWideLossy(run.databases()))},
          {"phases", PhasesJson(run.phases())},
          {"document", Utf8(run.requestor().GetBackupDocument())}};
}

void PrintSnapshot(Console& console, const SnapshotRun& run) {
  console.Line("");
  PrintSet(console, run);
  if (run.gotThrough()) {
    PrintCaptured(console, run);
    PrintCatalog(console, run);
  }
  PrintLeftOut(console, run);
}

}  // namespace varnelctl
