#include "varnelctl/sets/set_sessions.h"

#include <algorithm>
#include <map>

#include "text/ascii_case.h"
#include "varnelctl/console/text.h"

namespace varnelctl {
namespace {

using TesselCommonClasses::ExceptionCommon;
using TesselCommonClasses::WindowsDiskDevice;
using Disks = std::vector<WindowsDiskDevice>;

// By number. Those that cannot be told are missing.
std::map<DWORD, WindowsDiskDevice> DisksNow() {
  std::map<DWORD, WindowsDiskDevice> disks;
  const auto add = [&](const Disks& found) {
    for (const WindowsDiskDevice& disk : found) disks.try_emplace(disk.diskNumber, disk);
  };
  try {
    TesselCommonClasses::DiskAndVolumeEnumerator enumerator;
    add(enumerator.GetDisks());
    add(ManagedDisks());
  } catch (const ExceptionCommon&) {
    return disks;
  }
  return disks;
}

bool HasDisk(const Disks& disks, const WindowsDiskDevice& disk) {
  return std::any_of(disks.begin(), disks.end(), [&](const WindowsDiskDevice& other) {
    return varnel::ascii::EqualIgnoringCase(other.diskName, disk.diskName) && other.serialNumber == disk.serialNumber;
  });
}

}  // namespace

std::string SessionOfSet::Carries() const {
  std::vector<std::string> all;
  for (const WindowsDiskDevice& disk : own) all.push_back(NameOfDisk(disk));
  all.insert(all.end(), others.begin(), others.end());
  return Joined(all);
}

std::vector<SessionOfSet> ReadSessions(const Disks& disks, const Disks& ofOtherSets) {
  std::vector<SessionOfSet> sessions;
  const std::map<DWORD, WindowsDiskDevice> now = DisksNow();
  for (OpenSession& open : ListSessions()) {
    SessionOfSet session{std::move(open), {}, {}};
    for (const SessionDevice& device : session.session.devices) {
      if (!device.disk) {
        if (!device.name.empty()) session.others.push_back(Printable(device.name));
        continue;
      }
      const auto known = now.find(*device.disk);
      WindowsDiskDevice disk;
      disk.diskName = L"\\\\.\\PhysicalDrive" + std::to_wstring(*device.disk);
      if (known != now.end()) disk.serialNumber = known->second.serialNumber;
      if (HasDisk(disks, disk) && !HasDisk(ofOtherSets, disk)) {
        session.own.push_back(std::move(disk));
      } else {
        session.others.push_back(NameOfDisk(disk));
      }
    }
    sessions.push_back(std::move(session));
  }
  return sessions;
}

std::string Joined(const std::vector<std::string>& texts) {
  std::string joined;
  for (const std::string& text : texts) joined += (joined.empty() ? "" : ", ") + text;
  return joined;
}

}  // namespace varnelctl
