#include "simulator/services/simulated_storage.h"

#include <algorithm>
#include <cstring>

#include "simulator/machine/volumes.h"
#include "simulator/machine/win32_codes.h"
#include "simulator/services/kernel_objects.h"
#include "simulator/services/on_machine.h"
#include "text/ascii_case.h"

namespace varnel::simulator {
namespace {

constexpr std::wstring_view kPhysicalDrive = L"\\\\.\\PhysicalDrive";
constexpr DWORD kBusTypeIscsi = 9;
constexpr DWORD kBusTypeSata = 11;
constexpr DWORD kNoString = 0xFFFFFFFF;
constexpr DWORD kDescriptorHeaderBytes = 8;  // Version and Size

// The number after "\\.\PhysicalDrive" in the only spelling that names a drive.
std::optional<DWORD> PhysicalDriveNumber(std::wstring_view name) {
  if (!ascii::StartsWithIgnoringCase(name, kPhysicalDrive)) return std::nullopt;
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

// The descriptor and after it its texts, as the driver returns them.
std::vector<char> DeviceDescriptor(const DiskView& disk) {
  STORAGE_DEVICE_DESCRIPTOR descriptor{};
  std::vector<char> bytes(sizeof descriptor);
  const auto append = [&bytes](std::wstring_view text) {
    const auto offset = static_cast<DWORD>(bytes.size());
    const std::string narrow = Show(text);
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

// A VOLUME_DISK_EXTENTS with as many extents as the volume has disks.
std::vector<char> DiskExtents(const KernelObject& device) {
  constexpr LONGLONG kFirstByte = 1LL << 20;
  constexpr LONGLONG kVolumeBytes = 64LL << 30;
  constexpr std::size_t kStart = offsetof(VOLUME_DISK_EXTENTS, Extents);
  std::vector<DWORD> disks = {device.diskNumber};
  disks.insert(disks.end(), device.otherDisks.begin(), device.otherDisks.end());
  std::vector<char> bytes(kStart + disks.size() * sizeof(DISK_EXTENT));
  const auto count = static_cast<DWORD>(disks.size());
  std::memcpy(bytes.data(), &count, sizeof count);
  for (std::size_t i = 0; i < disks.size(); ++i) {
    DISK_EXTENT extent{};
    extent.DiskNumber = disks[i];
    extent.StartingOffset.QuadPart = kFirstByte + (device.partition - 1) * kVolumeBytes;
    extent.ExtentLength.QuadPart = kVolumeBytes;
    std::memcpy(bytes.data() + kStart + i * sizeof extent, &extent, sizeof extent);
  }
  return bytes;
}

bool HasDrive(std::wstring_view path) {
  return path.size() >= 2 && path[1] == L':';
}

bool IsRelative(std::wstring_view path) {
  return !path.empty() && !HasDrive(path) && !path.starts_with(L"\\\\") && !path.starts_with(L"//");
}

class SimulatedStorage final : public OnMachine<Storage> {
 public:
  SimulatedStorage(Machine& machine, KernelObjects& objects)
      : OnMachine(machine), objects_(objects), searches_(machine, 0x1001) {}

  HANDLE CreateFileW(LPCWSTR name, DWORD access, DWORD share, void*, DWORD disposition, DWORD flags, HANDLE) override {
    const std::wstring_view opened = Viewed(name);
    machine_.KeepArguments(&CallArguments::createFile, {std::wstring(opened), access, share, disposition, flags});
    return Win32Call(machine_, "CreateFileW", Shown(name), INVALID_HANDLE_VALUE, [&] { return OpenDevice(opened); });
  }

  BOOL DeviceIoControl(HANDLE device, DWORD code, void* in, DWORD inBytes, void* out, DWORD outBytes, DWORD* returned,
                       void*) override {
    machine_.KeepArguments(&CallArguments::deviceIoControl, {code, outBytes});
    const auto deviceAndCode = [&] { return objects_.Describe(device) + ", " + ControlCodeName(code); };
    return Win32Call(machine_, "DeviceIoControl", deviceAndCode, BOOL{FALSE}, [&] {
      const KernelObject* object = objects_.Find(device, KernelObject::Kind::device);
      if (object == nullptr) return Fail(ERROR_INVALID_HANDLE);
      return Control(*object, code, {in, inBytes}, {out, outBytes, returned});
    });
  }

  BOOL CloseHandle(HANDLE handle) override { return objects_.CloseHandle(handle); }

  BOOL GetVolumePathNameW(LPCWSTR path, LPWSTR mountPoint, DWORD characters) override {
    return Win32Call(machine_, "GetVolumePathNameW", Shown(path), BOOL{FALSE}, [&] {
      std::wstring_view full = Viewed(path);
      if (full.empty()) return Fail(ERROR_INVALID_NAME);
      std::optional<VolumeView> volume = FindVolumeOfPath(machine_, full);
      if (!volume && IsRelative(full)) {
        // The current directory of a service is the system directory.
        full = model().systemDirectory;
        volume = FindVolumeOfPath(machine_, full);
      }
      if (!volume) return Fail(HasDrive(full) ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND);
      return Give(std::wstring(full.substr(0, volume->prefix)) + L'\\', mountPoint, characters);
    });
  }

  BOOL GetVolumeNameForVolumeMountPointW(LPCWSTR mountPoint, LPWSTR volumeName, DWORD characters) override {
    return Win32Call(machine_, "GetVolumeNameForVolumeMountPointW", Shown(mountPoint), BOOL{FALSE}, [&] {
      const std::wstring_view path = Viewed(mountPoint);
      if (!path.ends_with(L'\\')) return Fail(ERROR_INVALID_NAME);
      const std::optional<VolumeView> volume = FindVolumeOfPath(machine_, path);
      if (!volume || volume->volume == nullptr) return Fail(ERROR_FILE_NOT_FOUND);
      if (volume->prefix + 1 != path.size()) return Fail(kErrorNotAReparsePoint);
      return Give(volume->volume->name, volumeName, characters);
    });
  }

  HANDLE FindFirstVolumeW(LPWSTR volumeName, DWORD characters) override {
    return Win32Call(machine_, "FindFirstVolumeW", NoArguments, INVALID_HANDLE_VALUE, [&]() -> HANDLE {
      VolumeSearch search;
      for (const VolumeView& view : ListVolumes(machine_)) search.names.push_back(view.volume->name);
      if (NextVolume(search, volumeName, characters) == FALSE) return INVALID_HANDLE_VALUE;
      return searches_.Open("volume search", std::move(search));
    });
  }

  BOOL FindNextVolumeW(HANDLE search, LPWSTR volumeName, DWORD characters) override {
    return Win32Call(machine_, "FindNextVolumeW", NoArguments, BOOL{FALSE}, [&] {
      VolumeSearch* open = searches_.Find(search);
      return open != nullptr ? NextVolume(*open, volumeName, characters) : Fail(ERROR_INVALID_HANDLE);
    });
  }

  BOOL FindVolumeClose(HANDLE search) override {
    const auto lock = machine_.Lock();
    const bool closed = searches_.Close(search, "FindVolumeClose");
    return Win32Call(machine_, "FindVolumeClose", NoArguments, BOOL{FALSE},
                     [&] { return closed ? TRUE : Fail(ERROR_INVALID_HANDLE); });
  }

  BOOL GetVolumePathNamesForVolumeNameW(LPCWSTR volumeName, LPWSTR names, DWORD characters, DWORD* needed) override {
    return Win32Call(machine_, "GetVolumePathNamesForVolumeNameW", Shown(volumeName), BOOL{FALSE}, [&] {
      const std::wstring_view name = Viewed(volumeName);
      if (!name.ends_with(L'\\')) return Fail(ERROR_INVALID_NAME);
      const std::optional<VolumeView> volume = FindVolumeOfPath(machine_, name);
      if (!volume || volume->volume == nullptr || !ascii::EqualIgnoringCase(volume->volume->name, name)) {
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

 private:
  struct VolumeSearch {
    std::vector<std::wstring> names;
    std::size_t next = 0;
  };
  // The buffers of DeviceIoControl.
  struct Input {
    const void* bytes;
    DWORD size;
  };
  struct Output {
    void* bytes;
    DWORD size;
    DWORD* returned;
  };

  static std::wstring_view Viewed(LPCWSTR text) { return text == nullptr ? std::wstring_view() : text; }

  BOOL Give(std::wstring_view text, LPWSTR buffer, DWORD characters) {
    if (buffer == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    if (text.size() + 1 > characters) return Fail(kErrorFilenameExceedsRange);
    CopyWithEnd(text, buffer);
    return TRUE;
  }

  BOOL Give(const void* record, std::size_t bytes, const Output& out) {
    if (out.bytes == nullptr || out.size < bytes) return Fail(ERROR_INSUFFICIENT_BUFFER);
    std::memcpy(out.bytes, record, bytes);
    *out.returned = static_cast<DWORD>(bytes);
    return TRUE;
  }

  // A buffer with room for some extents gets these, and learns how many there are.
  BOOL GiveExtents(const std::vector<char>& extents, const Output& out) {
    if (out.size < sizeof(VOLUME_DISK_EXTENTS)) return Fail(ERROR_INSUFFICIENT_BUFFER);
    Give(extents.data(), std::min<std::size_t>(extents.size(), out.size), out);
    return extents.size() <= out.size ? TRUE : Fail(ERROR_MORE_DATA);
  }

  std::optional<KernelObject> FindDevice(std::wstring_view name) const {
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
    if (volume->volume != nullptr) device.otherDisks = volume->volume->otherDisks;
    return device;
  }

  HANDLE OpenDevice(std::wstring_view name) {
    if (std::optional<KernelObject> device = FindDevice(name)) return objects_.Open(std::move(*device));
    // With a backslash at its end, a volume's name means its root folder, which is no device.
    const bool rootFolder = name.ends_with(L'\\') && FindDevice(name.substr(0, name.size() - 1));
    return Fail(rootFolder ? ERROR_PATH_NOT_FOUND : ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
  }

  BOOL QueryProperty(const DiskView& disk, const Input& in, const Output& out) {
    STORAGE_PROPERTY_QUERY query{};
    if (in.bytes == nullptr || in.size < sizeof query) return Fail(ERROR_INVALID_PARAMETER);
    std::memcpy(&query, in.bytes, sizeof query);
    if (query.PropertyId != StorageDeviceProperty || query.QueryType != PropertyStandardQuery) {
      return Fail(kErrorInvalidFunction);
    }
    if (out.size < kDescriptorHeaderBytes) return Fail(ERROR_INSUFFICIENT_BUFFER);
    // A short buffer gets the beginning, whose Size says how much there is.
    const std::vector<char> descriptor = DeviceDescriptor(disk);
    return Give(descriptor.data(), std::min<std::size_t>(descriptor.size(), out.size), out);
  }

  BOOL Control(const KernelObject& device, DWORD code, const Input& in, const Output& out) {
    const std::optional<DiskView> disk = FindDisk(machine_, device.diskNumber);
    if (!disk) return Fail(kErrorDeviceNotConnected);
    if (out.returned == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    switch (code) {
      case IOCTL_STORAGE_QUERY_PROPERTY:
        return QueryProperty(*disk, in, out);
      case IOCTL_STORAGE_GET_DEVICE_NUMBER: {
        const STORAGE_DEVICE_NUMBER number{kFileDeviceDisk, device.diskNumber, device.partition};
        return Give(&number, sizeof number, out);
      }
      case IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS: {
        if (device.partition == 0) return Fail(kErrorInvalidFunction);
        return GiveExtents(DiskExtents(device), out);
      }
      case IOCTL_DISK_IS_CLUSTERED: {
        // A caller may bring a BOOL or a BOOLEAN.
        const BOOL clustered = disk->clustered ? TRUE : FALSE;
        return Give(&clustered, out.size < sizeof clustered ? sizeof(BOOLEAN) : sizeof clustered, out);
      }
      default:
        return Fail(kErrorInvalidFunction);
    }
  }

  BOOL NextVolume(VolumeSearch& search, LPWSTR volumeName, DWORD characters) {
    if (search.next == search.names.size()) return Fail(ERROR_NO_MORE_FILES);
    if (Give(search.names[search.next], volumeName, characters) == FALSE) return FALSE;
    ++search.next;
    return TRUE;
  }

  KernelObjects& objects_;
  HandleTable<VolumeSearch> searches_;
};

class SimulatedWmiDisks final : public OnMachine<WmiDisks> {
 public:
  using OnMachine::OnMachine;

  HRESULT QueryDisks(std::vector<WmiDisk>& disks) override {
    disks.clear();
    return Call(machine_, "IWbemServices::ExecQuery", Arguments(std::string("SELECT * FROM MSFT_Disk")), [&] {
      for (const DiskView& disk : VisibleDisks(machine_)) {
        disks.push_back({disk.number, disk.serial, disk.vendor, disk.system, disk.clustered});
      }
      return S_OK;
    });
  }
};

}  // namespace

std::unique_ptr<Storage> MakeStorage(Machine& machine, KernelObjects& objects) {
  return std::make_unique<SimulatedStorage>(machine, objects);
}

std::unique_ptr<WmiDisks> MakeWmiDisks(Machine& machine) {
  return std::make_unique<SimulatedWmiDisks>(machine);
}

}  // namespace varnel::simulator
