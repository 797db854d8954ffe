#include "varnelctl/report/plan_report.h"

#include "text/unicode.h"
#include "varnelctl/console/json.h"
#include "varnelctl/console/text.h"
#include "varnelctl/explanation/requirement.h"
#include "varnelctl/report/backup_text.h"
#include "varnelctl/report/not_in_set.h"
#include "varnelctl/report/selection_text.h"
#include "varnelctl/report/snapshot_report.h"

namespace varnelctl {
namespace {

using varnel::WideToUtf8Lossy;

Json VolumeJson(const PlanOutcome::Volume& volume) {
  return {{"volume", WideToUtf8Lossy(volume.name)},
          {"mountPoint", WideToUtf8Lossy(volume.mountPoint)},
          {"serialNumber", WideToUtf8Lossy(volume.serialNumber)},
          {"extra", volume.extra}};
}

Json ObjectJson(const ApplicationObject& object) {
  return {{"name", object.name},
          {"writer", WideToUtf8Lossy(object.writer->name)},
          {"path", WideToUtf8Lossy(object.component->fullPath)},
          {"disks", ArrayOf(object.disks, WideToUtf8Lossy)}};
}

template <class Describe>
void PrintObjects(Console& console, const char* heading, const std::vector<ApplicationObject>& objects,
                  Describe describe) {
  if (objects.empty()) return;
  console.Line(heading);
  for (const ApplicationObject& object : objects) console.Line("  " + describe(object));
}

std::string WithDisks(const ApplicationObject& object) {
  return object.name + "  on " + SerialNumberList(object.disks);
}

std::vector<std::string> VolumeLines(const PlanOutcome& plan) {
  std::vector<std::string> lines;
  for (const PlanOutcome::Volume& volume : plan.volumes) {
    lines.push_back(Printable(volume.mountPoint.empty() ? volume.name : volume.mountPoint) + " on disk " +
                    Quoted(volume.serialNumber) + (volume.extra ? ", which the application does not use" : ""));
  }
  return lines;
}

}  // namespace

Json PlanDocument(const PlanOutcome& plan) {
  Json document = SnapshotDocument(plan);
  for (const char* key : {"snapshotSetId", "setState", "writerStates", "moments", "snapshots", "copiesLeft",
                          "sessionsLeft", "catalog", "databases", "document"}) {
    document.erase(key);
  }
  document["volumes"] = ArrayOf(plan.volumes, VolumeJson);
  document["backup"]["effect"] = BackupEffect(plan.options.application, plan.options.backupType, plan.options.context);
  return document;
}

void PrintPlan(Console& console, const PlanOutcome& plan, bool verbose) {
  const Application application = plan.options.application;
  console.Line("");
  PrintLines(console, "Volumes", VolumeLines(plan), "volume", verbose);
  if (verbose && plan.gotThrough) PrintCaptured(console, "Captured application-consistent", plan.explanation);
  if (verbose) PrintLeftOut(console, plan.explanation);
  PrintLines(console, "Not in the set", LinesNotInSet(plan.explanation, plan.objects, application),
             NounFor(application), verbose);
  PrintOtherWriters(console, plan.explanation, verbose);
  console.Line(BackupText(plan.options.backupType, plan.options.context));
  console.Line("  " + BackupEffect(application, plan.options.backupType, plan.options.context));
}

Json DisksForDocument(const DisksFor& found) {
  return {{"disks", ArrayOf(found.disks, WideToUtf8Lossy)},
          {"objects", ArrayOf(found.wanted, ObjectJson)},
          {"unprotected", ArrayOf(found.unprotected, ObjectJson)},
          {"alsoWholly", ArrayOf(found.alsoWholly, ObjectJson)},
          {"alsoPartly", ArrayOf(found.alsoPartly, ObjectJson)}};
}

void PrintDisksFor(Console& console, const DisksFor& found, Application application) {
  PrintObjects(console, "No set of disks can hold these wholly", found.unprotected,
               [&](const ApplicationObject& object) { return WhyNotHeld(object, application); });
  if (found.disks.empty()) return;
  PrintObjects(console, "Also wholly on these disks", found.alsoWholly, WithDisks);
  PrintObjects(console, "Also partly on these disks", found.alsoPartly, WithDisks);
  console.Line(DiskOption(found.disks));
}

}  // namespace varnelctl
