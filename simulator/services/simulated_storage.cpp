#include <algorithm>
#include <cstring>

#include "simulator/host_file/text.h"
#include "simulator/machine/volumes.h"
#include "simulator/machine/win32_codes.h"
#include "simulator/services/services.h"
#include "simulator/vss/snapshot_service.h"
#include "text/unicode.h"

namespace varnel::simulator {
namespace {

constexpr std::wstring_view kPhysicalDrive = L"\\\\.\\PhysicalDrive";
constexpr DWORD kFileDeviceDisk = 7;
constexpr DWORD kBusTypeIscsi = 9;
constexpr DWORD kBusTypeSata = 11;
constexpr DWORD kNoString = 0xFFFFFFFF;
constexpr DWORD kDescriptorHeaderBytes = 8;  // Version and Size

// The number behind "\\.\PhysicalDrive" in the only spelling that names a drive.
std::optional<DWORD> PhysicalDriveNumber(std::wstring_view name) {
  if (!StartsWithIgnoringCase(name, kPhysicalDrive)) return std::nullopt;
  const std::wstring_view digits = name.substr(kPhysicalDrive.size());
  if (digits.empty() || digits.size() > 9) return std::nullopt;
  DWORD number = 0;
  for (const wchar_t digit : digits) {
    if (digit < L'0' || digit > L'9') return std::nullopt;
    number = number * 10 + static_cast<DWORD>(digit - L'0');
  }
  if (std::to_wstring(number) != digits) return std::nullopt;
  return number;
}

std::string ControlCodeName(DWORD code) {
  switch (code) {
    case IOCTL_STORAGE_QUERY_PROPERTY:
      return "IOCTL_STORAGE_QUERY_PROPERTY";
    case IOCTL_STORAGE_GET_DEVICE_NUMBER:
      return "IOCTL_STORAGE_GET_DEVICE_NUMBER";
    case IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS:
      return "IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS";
    case IOCTL_DISK_IS_CLUSTERED:
      return "IOCTL_DISK_IS_CLUSTERED";
    default:
      return ResultName(static_cast<HRESULT>(code));
  }
}

// The descriptor with its texts behind it, as the driver returns them.
std::vector<char> DeviceDescriptor(const DiskView& disk) {
  STORAGE_DEVICE_DESCRIPTOR descriptor{};
  std::vector<char> bytes(sizeof descriptor);
  const auto append = [&bytes](std::wstring_view text) {
    const auto offset = static_cast<DWORD>(bytes.size());
    const std::string narrow = WideToUtf8Lossy(text);
    bytes.insert(bytes.end(), narrow.begin(), narrow.end());
    bytes.push_back('\0');
    return offset;
  };
  descriptor.Version = sizeof descriptor;
  descriptor.VendorIdOffset = disk.vendor.empty() ? 0 : append(disk.vendor);
  descriptor.SerialNumberOffset = disk.reportsSerial ? append(disk.serial) : kNoString;
  descriptor.BusType = static_cast<decltype(descriptor.BusType)>(disk.system ? kBusTypeSata : kBusTypeIscsi);
  descriptor.Size = static_cast<DWORD>(bytes.size());
  std::memcpy(bytes.data(), &descriptor, sizeof descriptor);
  return bytes;
}

VOLUME_DISK_EXTENTS DiskExtents(const KernelObject& device) {
  constexpr LONGLONG kFirstByte = 1LL << 20;
  constexpr LONGLONG kVolumeBytes = 64LL << 30;
  VOLUME_DISK_EXTENTS extents{};
  extents.NumberOfDiskExtents = 1;
  extents.Extents[0].DiskNumber = device.diskNumber;
  extents.Extents[0].StartingOffset.QuadPart = kFirstByte + (device.partition - 1) * kVolumeBytes;
  extents.Extents[0].ExtentLength.QuadPart = kVolumeBytes;
  return extents;
}

bool HasDrive(std::wstring_view path) {
  return path.size() >= 2 && path[1] == L':';
}

bool IsRelative(std::wstring_view path) {
  return !path.empty() && !HasDrive(path) && !path.starts_with(L"\\\\") && !path.starts_with(L"//");
}

}  // namespace

BOOL SimulatedStorage::Fail(DWORD error) {
  machine_.lastError = error;
  return FALSE;
}

BOOL SimulatedStorage::Give(std::wstring_view text, LPWSTR buffer, DWORD characters) {
  if (buffer == nullptr) return Fail(ERROR_INVALID_PARAMETER);
  if (text.size() + 1 > characters) return Fail(kErrorFilenameExceedsRange);
  text.copy(buffer, text.size());
  buffer[text.size()] = L'\0';
  return TRUE;
}

BOOL SimulatedStorage::Give(const void* record, std::size_t bytes, void* out, DWORD outBytes, DWORD* returned) {
  if (out == nullptr || outBytes < bytes) return Fail(ERROR_INSUFFICIENT_BUFFER);
  std::memcpy(out, record, bytes);
  *returned = static_cast<DWORD>(bytes);
  return TRUE;
}

std::optional<KernelObject> SimulatedStorage::FindDevice(std::wstring_view name) const {
  KernelObject device{KernelObject::Kind::device, std::wstring(name), 0, 0, 0};
  if (const std::optional<DWORD> number = PhysicalDriveNumber(name)) {
    if (!FindDisk(machine_, *number)) return std::nullopt;
    device.diskNumber = *number;
    return device;
  }
  const std::optional<VolumeView> volume = FindVolumeOfPath(machine_, name);
  if (!volume || volume->prefix != name.size() || HasDrive(name)) return std::nullopt;
  device.diskNumber = volume->diskNumber;
  device.partition = volume->partition;
  return device;
}

HANDLE SimulatedStorage::OpenDevice(std::wstring_view name) {
  if (std::optional<KernelObject> device = FindDevice(name)) return objects_.Open(std::move(*device));
  // With a backslash behind it, a volume's name means its root folder, which is no device.
  const bool rootFolder = name.ends_with(L'\\') && FindDevice(name.substr(0, name.size() - 1));
  machine_.lastError = rootFolder ? ERROR_PATH_NOT_FOUND : ERROR_FILE_NOT_FOUND;
  return INVALID_HANDLE_VALUE;
}

HANDLE SimulatedStorage::CreateFileW(LPCWSTR name, DWORD, DWORD, void*, DWORD, DWORD, HANDLE) {
  return Win32Call(
      machine_, "CreateFileW", INVALID_HANDLE_VALUE, [&] { return Show(name); },
      [&] { return OpenDevice(name == nullptr ? std::wstring_view() : name); });
}

BOOL SimulatedStorage::QueryProperty(const DiskView& disk, const void* in, DWORD inBytes, void* out, DWORD outBytes,
                                     DWORD* returned) {
  STORAGE_PROPERTY_QUERY query{};
  if (in == nullptr || inBytes < sizeof query) return Fail(ERROR_INVALID_PARAMETER);
  std::memcpy(&query, in, sizeof query);
  if (query.PropertyId != StorageDeviceProperty || query.QueryType != PropertyStandardQuery) {
    return Fail(kErrorInvalidFunction);
  }
  if (outBytes < kDescriptorHeaderBytes) return Fail(ERROR_INSUFFICIENT_BUFFER);
  // A short buffer gets the beginning, whose Size says how much there is.
  const std::vector<char> descriptor = DeviceDescriptor(disk);
  return Give(descriptor.data(), std::min<std::size_t>(descriptor.size(), outBytes), out, outBytes, returned);
}

BOOL SimulatedStorage::Control(const KernelObject& device, DWORD code, const void* in, DWORD inBytes, void* out,
                               DWORD outBytes, DWORD* returned) {
  const std::optional<DiskView> disk = FindDisk(machine_, device.diskNumber);
  if (!disk) return Fail(kErrorDeviceNotConnected);
  if (returned == nullptr) return Fail(ERROR_INVALID_PARAMETER);
  switch (code) {
    case IOCTL_STORAGE_QUERY_PROPERTY:
      return QueryProperty(*disk, in, inBytes, out, outBytes, returned);
    case IOCTL_STORAGE_GET_DEVICE_NUMBER: {
      STORAGE_DEVICE_NUMBER number{};
      number.DeviceType = kFileDeviceDisk;
      number.DeviceNumber = device.diskNumber;
      number.PartitionNumber = device.partition;
      return Give(&number, sizeof number, out, outBytes, returned);
    }
    case IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS: {
      if (device.partition == 0) return Fail(kErrorInvalidFunction);
      const VOLUME_DISK_EXTENTS extents = DiskExtents(device);
      return Give(&extents, sizeof extents, out, outBytes, returned);
    }
    case IOCTL_DISK_IS_CLUSTERED: {
      // A caller may bring a BOOL or a BOOLEAN.
      const BOOL clustered = disk->clustered ? TRUE : FALSE;
      const std::size_t bytes = outBytes < sizeof clustered ? sizeof(BOOLEAN) : sizeof clustered;
      return Give(&clustered, bytes, out, outBytes, returned);
    }
    default:
      return Fail(kErrorInvalidFunction);
  }
}

BOOL SimulatedStorage::DeviceIoControl(HANDLE device, DWORD code, void* in, DWORD inBytes, void* out, DWORD outBytes,
                                       DWORD* returned, void*) {
  return Win32Call(
      machine_, "DeviceIoControl", BOOL{FALSE},
      [&] { return objects_.Describe(device) + ", " + ControlCodeName(code); },
      [&]() -> BOOL {
        const KernelObject* object = objects_.Find(device, KernelObject::Kind::device);
        if (object == nullptr) return Fail(ERROR_INVALID_HANDLE);
        return Control(*object, code, in, inBytes, out, outBytes, returned);
      });
}

BOOL SimulatedStorage::GetVolumePathNameW(LPCWSTR path, LPWSTR mountPoint, DWORD characters) {
  return Win32Call(
      machine_, "GetVolumePathNameW", BOOL{FALSE}, [&] { return Show(path); },
      [&]() -> BOOL {
        if (path == nullptr || *path == L'\0') return Fail(ERROR_INVALID_NAME);
        std::wstring_view full = path;
        std::optional<VolumeView> volume = FindVolumeOfPath(machine_, full);
        if (!volume && IsRelative(full)) {
          // The current directory of a service is the system directory.
          full = machine_.model.systemDirectory;
          volume = FindVolumeOfPath(machine_, full);
        }
        if (!volume) return Fail(HasDrive(full) ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND);
        return Give(std::wstring(full.substr(0, volume->prefix)) + L'\\', mountPoint, characters);
      });
}

BOOL SimulatedStorage::GetVolumeNameForVolumeMountPointW(LPCWSTR mountPoint, LPWSTR volumeName, DWORD characters) {
  return Win32Call(
      machine_, "GetVolumeNameForVolumeMountPointW", BOOL{FALSE}, [&] { return Show(mountPoint); },
      [&]() -> BOOL {
        const std::wstring_view path = mountPoint == nullptr ? std::wstring_view() : mountPoint;
        if (!path.ends_with(L'\\')) return Fail(ERROR_INVALID_NAME);
        const std::optional<VolumeView> volume = FindVolumeOfPath(machine_, path);
        if (!volume || volume->volume == nullptr) return Fail(ERROR_FILE_NOT_FOUND);
        if (volume->prefix + 1 != path.size()) return Fail(kErrorNotAReparsePoint);
        return Give(volume->volume->name, volumeName, characters);
      });
}

BOOL SimulatedStorage::NextVolume(VolumeSearch& search, LPWSTR volumeName, DWORD characters) {
  if (search.next == search.names.size()) return Fail(ERROR_NO_MORE_FILES);
  if (Give(search.names[search.next], volumeName, characters) == FALSE) return FALSE;
  ++search.next;
  return TRUE;
}

HANDLE SimulatedStorage::FindFirstVolumeW(LPWSTR volumeName, DWORD characters) {
  return Win32Call(
      machine_, "FindFirstVolumeW", INVALID_HANDLE_VALUE, [] { return std::string(); },
      [&]() -> HANDLE {
        VolumeSearch search;
        for (const VolumeView& view : ListVolumes(machine_)) search.names.push_back(view.volume->name);
        if (NextVolume(search, volumeName, characters) == FALSE) return INVALID_HANDLE_VALUE;
        return searches_.Open("volume search", std::move(search));
      });
}

BOOL SimulatedStorage::FindNextVolumeW(HANDLE search, LPWSTR volumeName, DWORD characters) {
  return Win32Call(
      machine_, "FindNextVolumeW", BOOL{FALSE}, [] { return std::string(); },
      [&]() -> BOOL {
        VolumeSearch* open = searches_.Find(search);
        if (open == nullptr) return Fail(ERROR_INVALID_HANDLE);
        return NextVolume(*open, volumeName, characters);
      });
}

BOOL SimulatedStorage::FindVolumeClose(HANDLE search) {
  const bool closed = searches_.Close(search, "FindVolumeClose");
  return Win32Call(
      machine_, "FindVolumeClose", BOOL{FALSE}, [] { return std::string(); },
      [&]() -> BOOL { return closed ? TRUE : Fail(ERROR_INVALID_HANDLE); });
}

BOOL SimulatedStorage::GetVolumePathNamesForVolumeNameW(LPCWSTR volumeName, LPWSTR names, DWORD characters,
                                                        DWORD* needed) {
  return Win32Call(
      machine_, "GetVolumePathNamesForVolumeNameW", BOOL{FALSE}, [&] { return Show(volumeName); },
      [&]() -> BOOL {
        const std::wstring_view name = volumeName == nullptr ? std::wstring_view() : volumeName;
        if (!name.ends_with(L'\\')) return Fail(ERROR_INVALID_NAME);
        const std::optional<VolumeView> volume = FindVolumeOfPath(machine_, name);
        if (!volume || volume->volume == nullptr || !EqualsIgnoringCase(volume->volume->name, name)) {
          return Fail(ERROR_FILE_NOT_FOUND);
        }
        std::wstring list;
        for (const std::wstring& mountPoint : volume->volume->mountPoints) list += mountPoint + L'\0';
        list += L'\0';
        if (needed != nullptr) *needed = static_cast<DWORD>(list.size());
        if (names == nullptr || list.size() > characters) return Fail(ERROR_MORE_DATA);
        list.copy(names, list.size());
        return TRUE;
      });
}

}  // namespace varnel::simulator
