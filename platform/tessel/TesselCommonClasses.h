// The maker's common classes library, as far as varnel calls it. An object belongs to one thread; objects on several
// threads do not disturb each other.
#pragma once

#include <array>
#include <compare>
#include <exception>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/export.h"
#include "platform/win32.h"

/// The maker's common classes.
namespace TesselCommonClasses {

/// What the common classes throw.
class VARNEL_API ExceptionCommon : public std::exception {
 public:
  /// \param code a Win32 code or an HRESULT. \param message for people.
  ExceptionCommon(DWORD code, std::wstring message);
  /// The message in UTF-8; valid as long as this object.
  const char* what() const noexcept override { return narrow_.c_str(); }
  /// The Win32 code or HRESULT that it was made with.
  DWORD GetErrorCode() const noexcept { return code_; }
  /// The message that it was made with.
  const std::wstring& GetErrorMessage() const noexcept { return message_; }

 private:
  DWORD code_;
  std::wstring message_;
  std::string narrow_;
};

/// One disk: its physical drive path and the serial number that the device reports.
class VARNEL_API WindowsDiskDevice {
 public:
  std::wstring diskName;          ///< such as "\\.\PhysicalDrive2"
  std::wstring serialNumber;      ///< as it stands, blanks included; empty where the device reports none
  DWORD diskNumber = 0;           ///< the 2 of its name
  bool isClustered = false;       ///< a resource of a cluster
  bool isClusteredKnown = false;  ///< false when the disk could not be asked
};

/// One volume: its unique name and its first mount point, empty when it has none.
class VARNEL_API WindowsVolumeInfo {
 public:
  std::wstring uniqueVolumeName;  ///< "\\?\Volume{GUID}\"
  std::wstring mountPoint;        ///< with a backslash at its end
};

/// Maps volumes to disks and disks to volumes. Asks the machine only for what a question needs, and nothing twice until
/// it is told to refresh. A volume on several disks belongs to none of them: what is taken of one disk alone cannot be
/// restored.
///
/// The first question, and every one that lists the volumes anew, also learns the system drive's disk, and throws
/// ExceptionCommon with the Win32 code when that cannot be told: the system disk must never be taken for a data disk.
class VARNEL_API DiskAndVolumeEnumerator {
 public:
  DiskAndVolumeEnumerator();
  ~DiskAndVolumeEnumerator();
  DiskAndVolumeEnumerator(const DiskAndVolumeEnumerator&) = delete;
  DiskAndVolumeEnumerator& operator=(const DiskAndVolumeEnumerator&) = delete;

  /// With `refresh`, forgets what was found, so that the questions after it see the machine as it is then. Learns the
  /// system drive's disk if this object has not done so yet.
  void EnumerateDisks(bool refresh);
  /// Fills `device` for the disk that holds the volume, given by its unique name or a device path in any case; leaves
  /// it empty when it cannot tell or the volume lies on several disks, which an error line of the log then says.
  void GetDiskDeviceForUniqueVolume(const std::wstring& volume, WindowsDiskDevice& device);
  /// The numbers of the disks that the volume lies on, that of its first extent first; none when they cannot be told.
  std::vector<DWORD> GetDiskNumbersOfVolume(const std::wstring& volume);
  /// The unique names of all volumes on the disk with this serial number, in any case.
  void GetUniqueVolumeNamesForDisk(const std::wstring& serialNumber, std::vector<std::wstring>& names);
  /// The volumes of the disk with this serial number, in any case.
  void GetVolumesForGivenDisk(const std::wstring& serialNumber, std::vector<WindowsVolumeInfo>& volumes);
  /// Whether the volume, given by its unique name or a mount point, lies on a disk that is a cluster resource; a
  /// cluster shared volume does, whatever its disk answers. Throws ExceptionCommon when its disk cannot be told or
  /// asked, or it lies on several.
  bool IsClusteredDisk(const std::wstring& volume);
  /// Whether the cluster says that the volume, given by its unique name or a mount point, is a cluster shared volume.
  /// To a local account it may not say so while another node owns the volume.
  bool IsClusterSharedVolume(const std::wstring& volume);
  /// Every disk that holds a volume of its own, in drive order.
  const std::vector<WindowsDiskDevice>& GetDisks();

  /// Serial number of the disk that holds the system drive, of its first disk where it lies on several; empty when that
  /// disk has none. The process's: written to only when it changes, so that threads may read it while others enumerate
  /// a host whose system drive stays what it is.
  static std::wstring systemDriveSerialNumber;

 private:
  class Cache;
  Cache& Filled();
  std::unique_ptr<Cache> cache_;
};

/// Disks as the WMI class MSFT_Disk lists them.
class VARNEL_API WMIDiskHelper {
 public:
  WMIDiskHelper() = default;
  /// With `arrayDisksOnly`, the disks whose manufacturer is the array's.
  std::vector<WindowsDiskDevice> GetDiskDevices2k8(bool arrayDisksOnly);
};

/// The cluster that this host may be a node of.
class VARNEL_API ClusterHelper {
 public:
  /// Whether this node belongs to a cluster; `checkRunning` also wants the cluster service to run.
  // NOLINTNEXTLINE(readability-convert-member-functions-to-static): the maker's is a member
  bool IsCluster(bool checkRunning);
};

/// A file version: four parts, the first counts most.
class VARNEL_API Version {
 public:
  /// 6.3.9600.17195 as four numbers.
  constexpr Version(unsigned short major, unsigned short minor, unsigned short build, unsigned short revision)
      : parts_{major, minor, build, revision} {}
  /// By the first part that differs.
  // NOLINTNEXTLINE(modernize-use-nullptr): the defaulted comparison has no pointer
  friend constexpr auto operator<=>(const Version&, const Version&) = default;

 private:
  std::array<unsigned short, 4> parts_;
};

/// Versions of files on this host.
class VARNEL_API VersionHelper {
 public:
  /// Whether every file exists and has at least its version. What is missing or older is logged as a warning.
  static bool VerifyFileVersions(const std::map<std::wstring, Version>& lowest);
};

/// Paths and volumes.
class VARNEL_API UtilityClass {
 public:
  /// The text with a backslash at its end; the empty text gives "\".
  static std::wstring AppendBackslash(std::wstring text);
  /// The unique name of the volume that holds `path`, and the mount point as the prefix of `path` to cut. False, with
  /// both left empty, when no volume is found.
  static bool GetUniqueVolumeNameForPathNoThrow(const std::wstring& path, std::wstring& volumeName,
                                                std::wstring& mountPoint);
};

}  // namespace TesselCommonClasses
