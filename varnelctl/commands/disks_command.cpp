#include <nlohmann/json.hpp>

#include "varnelctl/commands/command.h"
#include "varnelctl/commands/storage_view.h"
#include "varnelctl/console/text.h"

namespace varnelctl {
namespace {

Json ToJson(const VolumeView& volume) {
  Json mountPoints = Json::array();
  for (const std::wstring& mountPoint : volume.mountPoints) mountPoints.push_back(Utf8(mountPoint));
  return {{"name", Utf8(volume.name)}, {"mountPoints", std::move(mountPoints)}};
}

Json ToJson(const DiskView& disk) {
  Json volumes = Json::array();
  for (const VolumeView& volume : disk.volumes) volumes.push_back(ToJson(volume));
  return {{"name", Utf8(disk.device.diskName)},
          {"number", disk.device.diskNumber},
          {"serialNumber", Utf8(disk.device.serialNumber)},
          {"system", disk.system},
          {"clustered", disk.device.isClustered},
          {"volumes", std::move(volumes)}};
}

Json ToJson(const StorageView& storage) {
  Json disks = Json::array();
  for (const DiskView& disk : storage.disks) disks.push_back(ToJson(disk));
  return {{"disks", std::move(disks)}};
}

void Print(Console& console, const VolumeView& volume) {
  std::string line = "  " + Printable(volume.name);
  const char* separator = "  ";
  for (const std::wstring& mountPoint : volume.mountPoints) {
    line += separator + Printable(mountPoint);
    separator = ", ";
  }
  console.Line(volume.mountPoints.empty() ? line + "  (not mounted)" : line);
}

void Print(Console& console, const DiskView& disk) {
  const std::wstring& serialNumber = disk.device.serialNumber;
  std::string line = Printable(disk.device.diskName) + "  ";
  // Quoted: blanks at either end belong to the serial number.
  line += serialNumber.empty() ? "no serial number: cannot be in a protection set"
                               : "serial \"" + Printable(serialNumber) + "\"";
  if (disk.system) line += ", system disk";
  if (disk.device.isClustered) line += ", clustered";
  console.Line(line);
  for (const VolumeView& volume : disk.volumes) Print(console, volume);
  if (disk.volumes.empty()) console.Line("  no volumes");
}

void Print(Console& console, const StorageView& storage) {
  for (const DiskView& disk : storage.disks) Print(console, disk);
  if (!storage.volumesWithoutDisk.empty()) console.Line("volumes of no known disk");
  for (const VolumeView& volume : storage.volumesWithoutDisk) Print(console, volume);
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
    for (const std::string& warning : storage.warnings) session.console.Warning(warning);
    if (session.json) {
      session.console.Document(ToJson(storage));
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
