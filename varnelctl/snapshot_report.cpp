#include "varnelctl/snapshot_report.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "platform/format.h"
#include "platform/unicode.h"
#include "varnelctl/text.h"

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

void PrintSet(Console& console, const SnapshotRun& run) {
  const std::string id = Printable(run.requestor().GetSnapShotSetId());
  if (id.empty()) return;
  console.Line("Snapshot set " + id + (run.taken() ? "" : "  (the request failed; parts of it may exist)"));
  for (const ShadowCopyView& copy : run.shadowCopies()) {
    console.Line("  " + Printable(copy.mountPoint.empty() ? copy.volume.volumeName : copy.mountPoint) + "  on disk \"" +
                 Printable(copy.sourceSerialNumber) + "\"");
    console.Line("    volume       " + Printable(copy.volume.volumeName));
    console.Line("    shadow copy  " + (copy.volume.snapshotId.empty() ? "none" : Printable(copy.volume.snapshotId)));
    if (copy.volume.snapshotDeviceName.empty()) {
      console.Line("    not surfaced on this host");
      continue;
    }
    console.Line("    device       " + Printable(copy.volume.snapshotDeviceName));
    console.Line("    disk         " + Printable(copy.disk.diskName) + ", serial \"" +
                 Printable(copy.disk.serialNumber) + "\"");
  }
}

std::string DisksOf(const VssComponent& component) {
  std::string disks;
  for (const std::wstring& serialNumber : component.affectedSerialNumbers) {
    disks += (disks.empty() ? "  on \"" : ", \"") + Printable(serialNumber) + "\"";
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

void PrintLeftOut(Console& console, const SnapshotRun& run) {
  if (run.leftOut().empty()) return;
  console.Line("Left out");
  const VssWriter* writer = nullptr;
  for (const LeftOut& entry : run.leftOut()) {
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
  if (run.taken()) PrintCaptured(console, run);
  PrintLeftOut(console, run);
}

}  // namespace varnelctl
