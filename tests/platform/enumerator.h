// An enumerator over a simulated host.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "platform/tessel/TesselCommonClasses.h"
#include "tests/support/host_fixture.h"

namespace varnel::test {

class Enumerator : public HostFixture {
 protected:
  std::wstring SerialOf(const std::wstring& volume) {
    TesselCommonClasses::WindowsDiskDevice device;
    enumerator.GetDiskDeviceForUniqueVolume(volume, device);
    return device.serialNumber;
  }
  std::vector<std::wstring> VolumesOf(const std::wstring& serial) {
    std::vector<std::wstring> names;
    enumerator.GetUniqueVolumeNamesForDisk(serial, names);
    return names;
  }
  std::size_t OpenCount() { return host().calls().Of("CreateFileW").size(); }

  TesselCommonClasses::DiskAndVolumeEnumerator enumerator;
};

}  // namespace varnel::test
