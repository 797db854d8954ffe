#include <string_view>

#include "platform/host.h"
#include "platform/tessel/TesselCommonClasses.h"
#include "text/format.h"

namespace TesselCommonClasses {
namespace {

constexpr std::wstring_view kManufacturer = L"Tessel";

// SCSI inquiry fields are padded with blanks to their fixed width.
std::wstring_view Trim(std::wstring_view text) {
  const std::size_t first = text.find_first_not_of(L' ');
  if (first == text.npos) return {};
  return text.substr(first, text.find_last_not_of(L' ') - first + 1);
}

bool IsArrayDisk(const varnel::WmiDisk& disk) {
  return Trim(disk.manufacturer) == kManufacturer;
}

WindowsDiskDevice DeviceOf(const varnel::WmiDisk& disk) {
  WindowsDiskDevice device;
  device.diskName = varnel::FormatWide(L"\\\\.\\PhysicalDrive%u", {disk.number});
  device.serialNumber = disk.serialNumber;
  device.diskNumber = disk.number;
  device.isClustered = disk.isClustered;
  return device;
}

}  // namespace

std::vector<WindowsDiskDevice> WMIDiskHelper::GetDiskDevices2k8(bool arrayDisksOnly) {
  std::vector<varnel::WmiDisk> disks;
  if (const HRESULT hr = varnel::CurrentHost().wmi().QueryDisks(disks); FAILED(hr)) {
    throw ExceptionCommon(static_cast<DWORD>(hr),
                          varnel::FormatWide(L"The query of the MSFT_Disk class failed with 0x%08x", {hr}));
  }
  std::vector<WindowsDiskDevice> devices;
  devices.reserve(disks.size());
  for (const varnel::WmiDisk& disk : disks) {
    if (!arrayDisksOnly || IsArrayDisk(disk)) devices.push_back(DeviceOf(disk));
  }
  return devices;
}

}  // namespace TesselCommonClasses
