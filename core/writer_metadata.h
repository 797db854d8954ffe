// The requestor's own copies of the writers' metadata: plain values that hold no platform interface.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "platform/export.h"
#include "platform/win32.h"

/// One file entry of a writer or component.
struct VssFileDescriptor {
  /// Where the entry comes from.
  enum FileType : DWORD {
    ExcludeFile = 1,      ///< of the writer: not to be backed up
    File = 2,             ///< of a component
    DatabaseFile = 3,     ///< of a component
    DatabaseLogFile = 4,  ///< of a component
  };

  std::wstring path;                  ///< as the writer reported it, environment variables not expanded
  std::wstring filespec;              ///< a name or a wildcard pattern
  std::wstring pathOnVolume;          ///< the expanded path after its mount point; empty when no volume was found
  std::wstring reserved;              ///< always empty
  bool recursive = false;             ///< always false: the flag that the writer reports is not kept
  DWORD fileType = 0;                 ///< a FileType
  std::wstring expandedPath;          ///< environment variables expanded, with a backslash at the end
  std::wstring volumeName;            ///< the unique volume name; the expanded path itself when no volume was found
  std::wstring snapshotDeviceName;    ///< the shadow copy's device object with a backslash at the end
  std::wstring snapshotDiskName;      ///< the physical drive path of the shadow copy
  std::wstring snapshotSerialNumber;  ///< that disk's serial number
};

/// One component of a writer.
struct VssComponent {
  std::wstring name;                     ///< unique within its logical path
  std::wstring writerName;               ///< of the writer that it belongs to
  std::wstring logicalPath;              ///< empty for a component at the root
  std::wstring caption;                  ///< for people; often empty
  DWORD type = 0;                        ///< VSS_COMPONENT_TYPE
  bool selectable = false;               ///< a requestor may leave it out
  bool notifyOnBackupComplete = false;   ///< its writer wants to hear of BackupComplete
  std::wstring fullPath;                 ///< "\logical path\name"
  bool topLevel = false;                 ///< no other component of the writer is its ancestor
  bool excluded = false;                 ///< takes no part in the backup
  bool added = false;                    ///< was added to the backup by itself; others take part through an ancestor
  std::vector<VssFileDescriptor> files;  ///< files, then database files, then database log files
  DWORD failureCode = 0;                 ///< the HRESULT with which the component failed
  bool failed = false;                   ///< a component-level status has been set, a success (0) included
  std::set<std::wstring> affectedSerialNumbers;  ///< of its files' disks, up to the first file that
                                                 ///< is not eligible, and of its included children's
};

/// One writer.
struct VssWriter {
  std::wstring name;                            ///< for people, such as "SqlServerWriter"
  std::wstring writerId;                        ///< the GUID of its class in braces
  std::wstring instanceId;                      ///< the GUID of this running writer in braces
  std::vector<VssComponent> components;         ///< in the order that it reported them
  std::vector<VssFileDescriptor> excludeFiles;  ///< what it wants nobody to back up
  DWORD writerRestore = 0;                      ///< VSS_WRITERRESTORE_ENUM
  bool restoreInvolvesWriter = false;           ///< it takes part in a restore: writerRestore is not VSS_WRE_NEVER
  DWORD restoreMethod = 0;                      ///< VSS_RESTOREMETHOD_ENUM
  bool rebootRequiredAfterRestore = false;      ///< the host must be restarted after one
  bool excluded = false;                        ///< takes no part in the backup
};

namespace varnel {

/// True when `a`'s full path and a backslash start `b`'s, case ignored. No component is its own ancestor.
VARNEL_API bool IsAncestor(const VssComponent& a, const VssComponent& b);

/// Whether a failure of the component is recorded.
inline bool HasFailed(const VssComponent& component) {
  return component.failed && component.failureCode != 0;
}

/// The components that take part in the backup, in the writers' order.
VARNEL_API std::vector<VssComponent*> SelectedComponents(std::vector<VssWriter>& writers);
/// The same, to be looked at only.
VARNEL_API std::vector<const VssComponent*> SelectedComponents(const std::vector<VssWriter>& writers);

}  // namespace varnel
