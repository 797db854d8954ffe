// Parts of which a simulated host is put together, without the test framework: benchmarks and fuzz targets build their
// hosts of the same parts.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "simulator/machine/model.h"
#include "text/guid.h"

namespace varnel::test {

/// "\\?\Volume{0000000N-...}\" for a small number.
inline std::wstring VolumeName(int n) {
  return L"\\\\?\\Volume{" + std::wstring(8 - std::to_wstring(n).size(), L'0') + std::to_wstring(n) +
         L"-0000-0000-0000-000000000000}\\";
}

/// A disk with one volume at one mount point; the volume is VolumeName(number).
inline simulator::Disk MakeDisk(std::wstring serial, DWORD number, std::wstring mountPoint, bool system = false) {
  simulator::Disk disk;
  disk.serial = std::move(serial);
  disk.number = number;
  disk.vendor = system ? L"Local" : L"Tessel";
  disk.system = system;
  disk.volumes = {{VolumeName(static_cast<int>(number)), {std::move(mountPoint)}, false, L""}};
  return disk;
}

/// The array's own.
inline simulator::Provider ArrayProvider() {
  return {ParseGuid<GUID>("{374579ad-285c-49b9-ab8a-950e0e252de2}"), L"Tessel VSS Hardware Provider", VSS_PROV_HARDWARE,
          L"1.0"};
}

/// A file group component with one file per directory given.
inline simulator::WriterComponent MakeComponent(std::wstring logicalPath, std::wstring name,
                                                std::vector<std::wstring> directories) {
  simulator::WriterComponent component;
  if (!logicalPath.empty()) component.logicalPath = std::move(logicalPath);
  component.caption = name;
  component.name = std::move(name);
  for (std::wstring& directory : directories) component.files.push_back({std::move(directory), L"data.bin"});
  return component;
}

/// A writer whose class id and instance id are {0000000N-...} and {0000000N-0001-...}.
inline simulator::Writer MakeWriter(std::wstring name, DWORD n, std::vector<simulator::WriterComponent> components) {
  simulator::Writer writer;
  writer.name = std::move(name);
  writer.writerId.Data1 = n;
  writer.instanceId.Data1 = n;
  writer.instanceId.Data2 = 1;
  writer.usage = VSS_UT_USERDATA;
  writer.source = VSS_ST_OTHER;
  writer.restoreMethod = simulator::RestoreMethod{VSS_RME_RESTORE_IF_CAN_REPLACE, L"", L"", VSS_WRE_ALWAYS, false};
  writer.components = std::move(components);
  return writer;
}

/// MakeWriter with the class id of an application.
inline simulator::Writer MakeWriterOf(std::wstring_view writerId, std::wstring name, DWORD n,
                                      std::vector<simulator::WriterComponent> components) {
  simulator::Writer writer = MakeWriter(std::move(name), n, std::move(components));
  writer.writerId = TryParseGuid<GUID>(writerId).value();
  return writer;
}

/// A system disk (SYS, C:), two array disks (TSL0001 at E:, TSL0002 at F:) and the array's provider; no writers. Its
/// identifiers are the same on every run.
inline simulator::HostModel SmallHost() {
  simulator::HostModel model;
  model.seed = 1;
  model.disks = {MakeDisk(L"SYS", 0, L"C:\\", true), MakeDisk(L"TSL0001", 1, L"E:\\"),
                 MakeDisk(L"TSL0002", 2, L"F:\\")};
  model.environment = {{L"SystemRoot", L"C:\\Windows"}, {L"SystemDrive", L"C:"}};
  model.providers = {ArrayProvider()};
  return model;
}

}  // namespace varnel::test
