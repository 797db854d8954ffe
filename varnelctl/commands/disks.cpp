#include "varnelctl/commands/command.h"
#include "varnelctl/console/json.h"
#include "varnelctl/console/text.h"
#include "varnelctl/report/host_json.h"
#include "varnelctl/storage_view.h"

namespace varnelctl {
namespace {

void Print(Console& console, const VolumeView& volume) {
  std::string line = "  " + Printable(volume.name);
  const char* separator = "  ";
  for (const std::wstring& mountPoint : volume.mountPoints) {
    line += separator + Printable(mountPoint);
    separator = ", ";
  }
  if (volume.mountPoints.empty()) line += "  (not mounted)";
  if (!volume.severalDisks.empty()) line += "  on disks " + NumberList(volume.severalDisks);
  console.Line(line);
}

void Print(Console& console, const DiskView& disk) {
  const std::wstring& serialNumber = disk.device.serialNumber;
  std::string line = Printable(disk.device.diskName) + "  ";
  line += serialNumber.empty() ? "no serial number: cannot be in a protection set" : "serial " + Quoted(serialNumber);
  if (disk.system) line += ", system disk";
  if (disk.device.isClustered) line += ", clustered";
  console.Line(line);
  for (const VolumeView& volume : disk.volumes) Print(console, volume);
  if (disk.volumes.empty()) console.Line("  no volumes");
}

void Print(Console& console, const char* heading, const std::vector<VolumeView>& volumes) {
  if (!volumes.empty()) console.Line(heading);
  for (const VolumeView& volume : volumes) Print(console, volume);
}

void Print(Console& console, const StorageView& storage) {
  for (const DiskView& disk : storage.disks) Print(console, disk);
  Print(console, "volumes on several disks: cannot be in a protection set", storage.volumesOnSeveralDisks);
  Print(console, "volumes of no known disk", storage.volumesWithoutDisk);
  console.Line("");
  console.Line(Counted(storage.disks.size(), "disk"));
}

class DisksCommand final : public Command {
 public:
  const char* name() const override { return "disks"; }
  const char* description() const override { return "Show disks with their serial numbers, volumes and mount points"; }
  const char* examples() const override { return "  varnelctl disks\n  varnelctl disks --json --host host.json\n"; }
  ExitStatus Run(Session& session) override {
    const StorageView storage = ReadStorage();
    for (const Warning& warning : storage.warnings) session.Warn(warning);
    if (session.json) {
      session.document.Set(name(), StorageJson(storage));
    } else {
      Print(session.console, storage);
    }
    return ExitStatus::Done;
  }
};

}  // namespace

std::unique_ptr<Command> MakeDisksCommand() {
  return std::make_unique<DisksCommand>();
}

}  // namespace varnelctl
