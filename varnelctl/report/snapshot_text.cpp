#include <algorithm>

#include "text/unicode.h"
#include "varnelctl/console/text.h"
#include "varnelctl/report/backup_text.h"
#include "varnelctl/report/not_in_set.h"
#include "varnelctl/report/selection_text.h"
#include "varnelctl/report/snapshot_report.h"

namespace varnelctl {
namespace {

using varnel::Utf8ToWideLossy;
using varnel::WideToUtf8Lossy;

std::string VolumeText(const ShadowCopyView& copy) {
  return Printable(copy.mountPoint.empty() ? copy.volume.volumeName : copy.mountPoint) + " on disk " +
         Quoted(copy.sourceSerialNumber);
}

std::string CopyText(const ShadowCopyView& copy) {
  if (copy.volume.snapshotDeviceName.empty()) return "not surfaced on this host";
  return "shadow copy on disk " + Quoted(copy.disk.serialNumber);
}

// What --verbose has in place of a line for each volume.
void PrintShadowCopy(Console& console, const ShadowCopyView& copy) {
  console.Line("  " + VolumeText(copy));
  console.Line("    volume       " + Printable(copy.volume.volumeName));
  console.Line("    shadow copy  " + (copy.volume.snapshotId.empty() ? "none" : Printable(copy.volume.snapshotId)));
  if (copy.volume.snapshotDeviceName.empty()) {
    console.Line("    not surfaced on this host");
    return;
  }
  console.Line("    device       " + Printable(copy.volume.snapshotDeviceName));
  console.Line("    disk         " + Printable(copy.disk.diskName) + ", serial " + Quoted(copy.disk.serialNumber));
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

// The whole, as far as it was reached.
void PrintDetails(Console& console, const SnapshotOutcome& outcome) {
  if (!outcome.shadowCopies.empty()) console.Line("Volumes of the set");
  for (const ShadowCopyView& copy : outcome.shadowCopies) PrintShadowCopy(console, copy);
  if (outcome.gotThrough) {
    PrintCaptured(console, "Captured application-consistent", outcome.explanation);
    PrintCatalog(console, outcome);
  }
  PrintLeftOut(console, outcome.explanation);
}

void PrintVolumes(Console& console, const SnapshotOutcome& outcome) {
  if (outcome.setState == SetState::None || outcome.setState == SetState::Deleted) return;
  std::vector<std::string> lines;
  for (const ShadowCopyView& copy : outcome.shadowCopies) lines.push_back(VolumeText(copy) + ": " + CopyText(copy));
  PrintLines(console, "Volumes", lines, "volume", false);
}

const VssComponent& FailedComponentOf(const ApplicationObject& object) {
  for (const ComponentExplanation* part : object.parts) {
    if (varnel::HasFailed(*part->component)) return *part->component;
  }
  return *object.component;
}

// What the writer says of the component's failure in the alert records; empty where it says nothing.
std::string WritersWords(const VssComponent& component, const std::string& errorDetails) {
  const std::string key = "Component=" + WideToUtf8Lossy(component.fullPath) + ", ";
  constexpr std::string_view kMessage = "ApplicationMsg=";
  const std::size_t record = errorDetails.find(key);
  const std::size_t message = record == errorDetails.npos ? record : errorDetails.find(kMessage, record);
  if (message == errorDetails.npos) return {};
  const std::size_t begin = message + kMessage.size();
  const std::string_view words =
      std::string_view(errorDetails).substr(begin, errorDetails.find(", rc=", begin) - begin);
  return Printable(Utf8ToWideLossy(OneLine(FromLibrary(words))));
}

void PrintFailedObjects(Console& console, const SnapshotOutcome& outcome, bool verbose) {
  if (!outcome.gotThrough) return;
  std::vector<std::string> lines;
  for (const ApplicationObject& object : outcome.objects) {
    if (object.leftOut != nullptr || !object.failed) continue;
    const VssComponent& component = FailedComponentOf(object);
    std::string line = object.name + ": " + FailureName(component);
    const std::string words = WritersWords(component, outcome.errorDetails);
    if (!words.empty()) line.append(": ").append(words);
    lines.push_back(std::move(line));
  }
  PrintLines(console, "In the set, but failed by their writer", lines, NounFor(outcome.options.application), verbose);
}

void PrintBackup(Console& console, const SnapshotOutcome& outcome) {
  if (!outcome.taken) return;
  std::string text = BackupText(outcome.options.backupType, outcome.options.context);
  if (outcome.provider) {
    text += ", taken by provider " + Quoted(outcome.provider->name) + " " + Printable(outcome.provider->version);
  }
  console.Line(text);
  console.Line("  " + EffectOf(outcome));
}

void PrintSet(Console& console, const SnapshotOutcome& outcome, const Verdict& verdict) {
  if (outcome.setState == SetState::None) return;
  console.Line(DescribeSet(outcome));
  if (verdict.endWith) console.Line("  end it with " + *verdict.endWith);
}

}  // namespace

std::string EffectOf(const SnapshotOutcome& outcome) {
  if (!outcome.completed) return "completing the backup failed: what the writers make of it is not known";
  if (!outcome.gotThrough) return "the writers were told that it failed";
  const SnapshotOptions& options = outcome.options;
  return BackupEffect(options.application, options.backupType, options.context);
}

void PrintSnapshot(Console& console, const SnapshotOutcome& outcome, const Verdict& verdict, bool verbose) {
  const Application application = outcome.options.application;
  console.Line("");
  if (verbose) {
    PrintDetails(console, outcome);
  } else {
    PrintVolumes(console, outcome);
  }
  PrintFailedObjects(console, outcome, verbose);
  PrintLines(console, "Not in the set", LinesNotInSet(outcome.explanation, outcome.objects, application),
             NounFor(application), verbose);
  PrintOtherWriters(console, outcome.explanation, verbose);
  PrintBackup(console, outcome);
  PrintSet(console, outcome, verdict);
}

}  // namespace varnelctl
