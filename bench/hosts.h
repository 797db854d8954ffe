// Hosts of a chosen size for the benchmarks.
#pragma once

#include <string>
#include <vector>

#include "simulator/machine/model.h"
#include "text/guid.h"

namespace varnel::bench {

inline constexpr std::size_t kDisks = 64;

/// A drive letter cannot name 64 volumes, so each is mounted in a folder.
inline std::wstring MountPoint(std::size_t disk) {
  return L"C:\\mnt\\" + std::to_wstring(disk) + L"\\";
}

inline std::wstring Serial(std::size_t disk) {
  return L"TSL" + std::to_wstring(1000 + disk);
}

inline simulator::Disk MakeDisk(std::size_t n) {
  simulator::Disk disk;
  disk.number = static_cast<DWORD>(n);
  disk.system = n == 0;
  disk.serial = n == 0 ? L"SYSTEM" : Serial(n - 1);
  disk.vendor = n == 0 ? L"Local" : L"Tessel";
  GUID id{};
  id.Data1 = static_cast<DWORD>(n + 1);
  disk.volumes = {
      {L"\\\\?\\Volume" + FormatGuid(id) + L"\\", {n == 0 ? std::wstring(L"C:\\") : MountPoint(n - 1)}, false, L""}};
  return disk;
}

/// One writer with `components` components of `filesEach` files, spread over 64 disks of the array.
inline simulator::HostModel MakeHost(std::size_t components, std::size_t filesEach) {
  simulator::HostModel model;
  for (std::size_t n = 0; n <= kDisks; ++n) model.disks.push_back(MakeDisk(n));
  model.providers = {{ParseGuid<GUID>("{374579ad-285c-49b9-ab8a-950e0e252de2}"), L"Tessel VSS Hardware Provider",
                      VSS_PROV_HARDWARE, L"1.0"}};
  simulator::Writer writer;
  writer.name = L"Bench Writer";
  writer.writerId.Data1 = 1;
  writer.instanceId.Data1 = 2;
  for (std::size_t c = 0; c < components; ++c) {
    simulator::WriterComponent component;
    component.logicalPath = L"SERVER";
    component.name = L"database" + std::to_wstring(c);
    component.caption = component.name;
    for (std::size_t f = 0; f < filesEach; ++f) {
      simulator::FileSpec& file = component.files.emplace_back();
      file.path = MountPoint(c % kDisks) + L"data";
      file.filespec = L"file" + std::to_wstring(f) + L".mdf";
    }
    writer.components.push_back(std::move(component));
  }
  model.writers.push_back(std::move(writer));
  return model;
}

inline std::vector<std::wstring> AllSerials() {
  std::vector<std::wstring> serials;
  for (std::size_t n = 0; n < kDisks; ++n) serials.push_back(Serial(n));
  return serials;
}

}  // namespace varnel::bench
