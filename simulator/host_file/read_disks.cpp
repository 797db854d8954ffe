#include "simulator/host_file/read_disks.h"

#include <algorithm>

#include "text/guid.h"
#include "text/unicode.h"

namespace varnel::simulator {
namespace {

bool IsVolumeName(std::wstring_view name) {
  constexpr std::wstring_view kStart = L"\\\\?\\Volume";
  constexpr std::size_t kGuidLength = 38;
  return name.size() == kStart.size() + kGuidLength + 1 && name.starts_with(kStart) && name.ends_with(L'\\') &&
         TryParseGuid<GUID>(name.substr(kStart.size(), kGuidLength));
}

bool IsMountPoint(std::wstring_view path) {
  const auto letter = path.empty() ? L'\0' : ascii::ToLower(path[0]);
  return path.size() >= 3 && letter >= L'a' && letter <= L'z' && path[1] == L':' && path[2] == L'\\' &&
         path.ends_with(L'\\');
}

class DiskReader {
 public:
  Disk Read(const JsonNode& node, DWORD index) {
    const JsonObject object(node, {"serial", "duplicateSerial", "number", "vendor", "system", "clustered", "volumes"});
    Disk disk;
    bool duplicate = false;
    object.Read("duplicateSerial", duplicate);
    ReadSerial(object.At("serial"), duplicate, disk);
    disk.number = index;
    object.Read("number", disk.number);
    numbers_.Add(std::to_wstring(disk.number), node);
    object.Read("vendor", disk.vendor).Read("system", disk.system).Read("clustered", disk.clustered);
    object.ReadList("volumes", disk.volumes,
                    [&](const JsonNode& volume) { return ReadVolume(volume, index, disk.volumes.size()); });
    return disk;
  }

  void Finish(std::vector<Disk>& disks) const {
    for (const Span& span : spans_) {
      for (const JsonNode& serial : span.serials.Elements()) {
        const DWORD number = ReadNumberOf(disks, serial);
        std::vector<DWORD>& others = disks[span.disk].volumes[span.volume].otherDisks;
        if (number == disks[span.disk].number || std::find(others.begin(), others.end(), number) != others.end()) {
          constexpr char kWhy[] = "already holds a part of the volume";
          serial.IsText() ? serial.Refuse(kWhy) : serial.Fail("disk " + std::to_string(number) + " " + kWhy);
        }
        others.push_back(number);
      }
    }
  }

 private:
  void ReadSerial(const JsonNode& node, bool duplicate, Disk& disk) {
    disk.reportsSerial = !node.IsNull();
    if (!disk.reportsSerial) return;
    disk.serial = node.Text();
    if (!disk.serial.empty() && !duplicate) serials_.Add(disk.serial, node);
  }

  // Of a disk that is named by its serial number or, where that would not do, by its number.
  static DWORD ReadNumberOf(const std::vector<Disk>& disks, const JsonNode& node) {
    if (node.IsText()) return ReadDiskOf(disks, node).number;
    const DWORD number = node.Number();
    const bool known = std::any_of(disks.begin(), disks.end(), [&](const Disk& disk) { return disk.number == number; });
    if (!known) node.Fail("no disk has the number " + std::to_string(number));
    return number;
  }

  // Disks may be named before they come, so they are looked up at the end.
  struct Span {
    std::size_t disk;
    std::size_t volume;
    JsonNode serials;
  };

  Volume ReadVolume(const JsonNode& node, std::size_t disk, std::size_t place) {
    const JsonObject object(node,
                            {"name", "mountPoints", "csv", "label", "otherDisks", "sizeMegabytes", "freeMegabytes"});
    if (const auto serials = object.Find("otherDisks")) spans_.push_back({disk, place, *serials});
    Volume volume;
    const JsonNode name = object.At("name");
    volume.name = name.Text();
    if (!IsVolumeName(volume.name)) name.Refuse("is no volume name (\\\\?\\Volume{GUID}\\)");
    volumeNames_.Add(volume.name, name);
    object.ReadList("mountPoints", volume.mountPoints, [&](const JsonNode& mountPoint) {
      std::wstring path = mountPoint.Text();
      if (!IsMountPoint(path)) mountPoint.Refuse("is no mount point (X:\\ or a folder, with a backslash at its end)");
      mountPoints_.Add(path, mountPoint);
      return path;
    });
    object.Read("csv", volume.csv).Read("label", volume.label).Read("sizeMegabytes", volume.sizeMegabytes);
    if (const auto free = object.Find("freeMegabytes")) volume.freeMegabytes = free->Number(volume.sizeMegabytes);
    return volume;
  }

  std::vector<Span> spans_;
  UniqueNames serials_{"disk serial"};
  UniqueNames numbers_{"disk number"};
  UniqueNames volumeNames_{"volume name"};
  UniqueNames mountPoints_{"mount point"};
};

}  // namespace

std::vector<Disk> ReadDisks(const JsonNode& list) {
  std::vector<Disk> disks;
  DiskReader reader;
  for (const JsonNode& node : list.Elements()) disks.push_back(reader.Read(node, static_cast<DWORD>(disks.size())));
  reader.Finish(disks);
  return disks;
}

const Disk& ReadDiskOf(const std::vector<Disk>& disks, const JsonNode& node) {
  const std::wstring serial = node.Text();
  ExpectDisk(disks, serial, node);
  return *std::find_if(disks.begin(), disks.end(),
                       [&](const Disk& disk) { return disk.reportsSerial && disk.serial == serial; });
}

const Volume& ReadVolumeOf(const std::vector<Disk>& disks, const JsonNode& node) {
  const std::wstring name = node.Text();
  const auto same = [&](const std::wstring& candidate) { return ascii::EqualIgnoringCase(name, candidate); };
  for (const Disk& disk : disks) {
    for (const Volume& volume : disk.volumes) {
      const std::vector<std::wstring>& mountPoints = volume.mountPoints;
      if (same(volume.name) || std::any_of(mountPoints.begin(), mountPoints.end(), same)) return volume;
    }
  }
  node.Refuse("is neither the name nor a mount point of a volume");
}

std::wstring ReadSerialOf(const std::vector<Disk>& disks, const JsonNode& node) {
  return ReadDiskOf(disks, node).serial;
}

void ExpectDisk(const std::vector<Disk>& disks, std::wstring_view serial, const JsonNode& node) {
  const bool known = std::any_of(disks.begin(), disks.end(),
                                 [&](const Disk& disk) { return disk.reportsSerial && disk.serial == serial; });
  if (known) return;
  const std::string name = WideToUtf8(serial);
  std::vector<std::wstring> serials;
  serials.reserve(disks.size());
  for (const Disk& disk : disks) serials.push_back(disk.serial);
  node.Fail("no disk has the serial \"" + name + "\"" + DidYouMean(name, serials));
}

}  // namespace varnel::simulator
