// Disks and volumes: what no set can hold, and the room that there is.
#include <map>

#include "platform/host.h"
#include "text/ascii_case.h"
#include "text/format.h"
#include "text/unicode.h"
#include "varnelctl/console/text.h"
#include "varnelctl/doctor/check.h"
#include "varnelctl/explanation/advice.h"
#include "varnelctl/explanation/failure.h"

namespace varnelctl {
namespace {

constexpr std::size_t kMostVolumes = 64;  // of a snapshot set
constexpr ULONGLONG kMegabyte = 1 << 20;
// What the service wants to be free where a shadow copy is made on the volume itself.
constexpr ULONGLONG kSmallVolume = 500;
constexpr ULONGLONG kRoomOfSmallVolume = 50;
constexpr ULONGLONG kRoom = 320;

// Raw volumes, locked ones and drives without a medium: there is no room to be told.
bool HasNoFileSystem(DWORD error) {
  constexpr DWORD kNotReady = 21;              // ERROR_NOT_READY
  constexpr DWORD kUnrecognizedVolume = 1005;  // ERROR_UNRECOGNIZED_VOLUME
  return error == kNotReady || error == kUnrecognizedVolume;
}

// A note: the array's own shadow copies, which are what is asked for, need no room here.
void JudgeSpace(const VolumeView& volume, const DiskView& disk, Told& told) {
  const std::string name = NameOf(volume, &disk);
  ULARGE_INTEGER size{};
  ULARGE_INTEGER free{};
  if (!varnel::CurrentHost().space().GetDiskFreeSpaceExW(volume.name.c_str(), nullptr, &size, &free)) {
    if (HasNoFileSystem(varnel::CurrentHost().GetLastError())) return;
    try {
      ThrowLastError("GetDiskFreeSpaceExW");
    } catch (const CallFailure&) {
      return told.Add(NotAsked(name, {}));
    }
  }
  const ULONGLONG megabytes = size.QuadPart / kMegabyte;
  const ULONGLONG wanted = megabytes < kSmallVolume ? kRoomOfSmallVolume : kRoom;
  if (free.QuadPart / kMegabyte >= wanted) return;
  told.Add(
      Found(Severity::Note, name,
            varnel::FormatNarrow("%llu of its %llu MB are free", {free.QuadPart / kMegabyte, megabytes}),
            varnel::FormatNarrow(
                "at least %llu MB where a provider keeps differences on the volume, as the array's does not", {wanted}),
            "VSS_E_INSUFFICIENT_STORAGE"));
}

}  // namespace

void CheckSerialNumbers(Examination& examination, Told& told) {
  std::map<std::wstring, std::vector<DWORD>, varnel::ascii::LessIgnoringCase> numbers;
  const StorageView& storage = examination.Storage();
  told.saw = Counted(storage.disks.size(), "disk");
  for (const DiskView& disk : storage.disks) {
    if (!disk.device.serialNumber.empty()) {
      numbers[disk.device.serialNumber].push_back(disk.device.diskNumber);
    } else {
      told.Add(Found(Severity::Note, "disk " + std::to_string(disk.device.diskNumber),
                     "it has no serial number, so it cannot be in a protection set", "", advice::kNoSerialNumber));
    }
  }
  for (const auto& [serialNumber, disks] : numbers) {
    if (disks.size() == 1) continue;
    const Severity severity = examination.IsConcerned(disks) ? SeverityHere(examination) : Severity::Warning;
    told.Add(Found(severity, "disks " + NumberList(disks), "they have the same serial number " + Quoted(serialNumber),
                   "a serial number of its own for each disk", advice::kSameSerialNumber));
  }
}

void CheckSeveralDisks(Examination& examination, Told& told) {
  for (const VolumeView& volume : examination.Storage().volumesOnSeveralDisks) {
    const bool concerned = examination.IsConcerned(volume.severalDisks);
    told.Add(Found(concerned ? SeverityHere(examination) : Severity::Note, NameOf(volume, nullptr),
                   "it lies on disks " + NumberList(volume.severalDisks),
                   "a volume on one disk: no snapshot of one of these holds it whole", advice::kSeveralDisks));
  }
}

void CheckSetSize(Examination& examination, Told& told) {
  // An application's set need not hold every volume of the disks.
  const PlanOutcome* const plan = examination.MadePlan();
  std::size_t volumes = 0;
  if (plan != nullptr) {
    volumes = plan->volumes.size();
  } else {
    for (const DiskView* disk : examination.Disks()) volumes += disk->volumes.size();
  }
  told.saw = Counted(volumes, "volume");
  if (volumes <= kMostVolumes) return;
  const Severity severity = plan != nullptr ? Severity::Error : Severity::Warning;
  told.Add(Found(severity, "the set of these disks", "it would have " + Counted(volumes, "volume"),
                 "at most 64 in a set", "VSS_E_MAXIMUM_NUMBER_OF_VOLUMES_REACHED"));
}

void CheckSpace(Examination& examination, Told& told) {
  for (const DiskView* disk : examination.Disks()) {
    for (const VolumeView& volume : disk->volumes) JudgeSpace(volume, *disk, told);
  }
}

}  // namespace varnelctl
