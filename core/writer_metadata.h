// The requestor's own copies of the writers' metadata: plain values that hold no platform interface.
#pragma once

#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/export.h"
#include "platform/vss.h"
#include "platform/win32.h"

/// One file entry of a writer or component.
struct VssFileDescriptor {
  enum FileType : DWORD { ExcludeFile = 1, File = 2, DatabaseFile = 3, DatabaseLogFile = 4 };

  std::wstring path;          ///< as the writer reported it, environment variables not expanded
  std::wstring filespec;      ///< a name or a wildcard pattern
  std::wstring pathOnVolume;  ///< the expanded path behind its mount point; empty when no volume was found
  std::wstring reserved;
  bool recursive = false;  ///< always false: the flag that the writer reports is not kept
  DWORD fileType = 0;
  std::wstring expandedPath;          ///< environment variables expanded, with a backslash at the end
  std::wstring volumeName;            ///< the unique volume name; the expanded path itself when no volume was found
  std::wstring snapshotDeviceName;    ///< the shadow copy's device object with a backslash at the end
  std::wstring snapshotDiskName;      ///< the physical drive path of the shadow copy
  std::wstring snapshotSerialNumber;  ///< that disk's serial number
};

/// One component of a writer.
struct VssComponent {
  std::wstring name;
  std::wstring writerName;
  std::wstring logicalPath;
  std::wstring caption;
  DWORD type = 0;  ///< VSS_COMPONENT_TYPE
  bool selectable = false;
  bool notifyOnBackupComplete = false;
  std::wstring fullPath;  ///< "\logical path\name"
  bool topLevel = false;  ///< no other component of the writer is its ancestor
  bool excluded = false;
  bool added = false;
  std::vector<VssFileDescriptor> files;  ///< files, then database files, then database log files
  DWORD failureCode = 0;                 ///< the HRESULT with which the component failed
  bool failed = false;                   ///< a component-level status has been set
  std::set<std::wstring> affectedSerialNumbers;
};

/// One writer.
struct VssWriter {
  std::wstring name;
  std::wstring writerId;
  std::wstring instanceId;
  std::vector<VssComponent> components;
  std::vector<VssFileDescriptor> excludeFiles;
  DWORD writerRestore = 0;  ///< VSS_WRITERRESTORE_ENUM
  bool restoreInvolvesWriter = false;
  DWORD restoreMethod = 0;  ///< VSS_RESTOREMETHOD_ENUM
  bool rebootRequiredAfterRestore = false;
  bool excluded = false;
};

namespace varnel {

/// Finds the volume of a directory, each directory once: a writer names thousands of files in few directories.
class VolumeResolver {
 public:
  struct Location {
    bool found = false;
    std::wstring volumeName;
    std::size_t mountPointLength = 0;
  };
  const Location& Resolve(const std::wstring& expandedPath);

 private:
  std::unordered_map<std::wstring, Location> known_;
};

/// Builders of the records. Each logs a failed platform call and throws its HRESULT as a `long`; the record is then
/// incomplete, and nothing of the platform's is left behind.
void BuildFileDescriptor(VssFileDescriptor& file, IVssWMFiledesc* source, DWORD fileType, VolumeResolver& volumes);
void BuildComponent(VssComponent& component, const std::wstring& writerName, IVssWMComponent* source,
                    VolumeResolver& volumes);
void BuildWriter(VssWriter& writer, IVssExamineWriterMetadata* source, VolumeResolver& volumes);

/// "\logical path\name", one backslash in front.
std::wstring ComponentFullPath(const std::wstring& logicalPath, const std::wstring& name);

/// True when `a`'s full path and a backslash start `b`'s, case ignored. No component is its own ancestor.
VARNEL_API bool IsAncestor(const VssComponent& a, const VssComponent& b);

/// For every component of a list the indexes of its descendants, in list order. Built in time linear in the paths.
std::vector<std::vector<std::size_t>> DescendantsByComponent(const std::vector<VssComponent>& components);

}  // namespace varnel
