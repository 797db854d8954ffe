// The requestor's own copies of the writers' metadata: plain values that hold no platform interface.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "core/serial_numbers.h"
#include "core/shared_text.h"
#include "platform/export.h"
#include "platform/vss.h"
#include "platform/win32.h"

/// One file entry of a writer or component.
struct VssFileDescriptor {
  enum FileType : DWORD { ExcludeFile = 1, File = 2, DatabaseFile = 3, DatabaseLogFile = 4 };

  SharedText path;          ///< as the writer reported it, environment variables not expanded
  std::wstring filespec;    ///< a name or a wildcard pattern
  SharedText pathOnVolume;  ///< the expanded path behind its mount point; empty when no volume was found
  SharedText reserved;
  bool recursive = false;  ///< always false: the flag that the writer reports is not kept
  DWORD fileType = 0;
  SharedText expandedPath;          ///< environment variables expanded, with a backslash at the end
  SharedText volumeName;            ///< the unique volume name; the expanded path itself when no volume was found
  SharedText snapshotDeviceName;    ///< the shadow copy's device object with a backslash at the end
  SharedText snapshotDiskName;      ///< the physical drive path of the shadow copy
  SharedText snapshotSerialNumber;  ///< that disk's serial number
};

/// One component of a writer.
struct VssComponent {
  std::wstring name;
  SharedText writerName;
  SharedText logicalPath;
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
  SerialNumbers affectedSerialNumbers;   ///< of the disks that its files lie on
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

/// Gives a text the block of one of the last two different ones when it is one of them: reading a tree, the writer
/// comes back to the path above.
class RecentTexts {
 public:
  SharedText Share(std::wstring_view text);

 private:
  SharedText latest_;
  SharedText earlier_;
};

/// Where the directories that writers name lie. The volume of each is looked up once: a writer names thousands of files
/// in few directories.
class DirectoryResolver {
 public:
  struct Directory {
    SharedText path;          ///< as first reported
    SharedText expandedPath;  ///< with a backslash at the end
    SharedText volumeName;    ///< the expanded path itself when no volume was found
    SharedText pathOnVolume;
  };
  /// Expands the environment variables of the path, on every call; throws the HRESULT as a `long` when that fails.
  const Directory& Resolve(std::wstring_view path);

 private:
  struct OwnTexts;  // those of a directory that no other has

  std::wstring_view Expand(std::wstring_view path);
  Directory LookUp(std::wstring_view path, std::wstring_view expandedPath);
  const SharedText& Volume(std::wstring_view name);

  std::unordered_map<std::wstring_view, Directory> known_;  // by expanded path
  const Directory* latest_ = nullptr;
  std::unordered_map<std::wstring_view, SharedText> volumes_;  // by name
  // Room that is kept from call to call.
  std::wstring path_;
  std::wstring expanded_;
  std::wstring volumeName_;
  std::wstring mountPoint_;
};

/// Builders of the records. Each logs a failed platform call and throws its HRESULT as a `long`; the record is then
/// incomplete, and nothing of the platform's is left behind.
void BuildFileDescriptor(VssFileDescriptor& file, IVssWMFiledesc* source, DWORD fileType,
                         DirectoryResolver& directories);
void BuildComponent(VssComponent& component, const SharedText& writerName, IVssWMComponent* source,
                    DirectoryResolver& directories, RecentTexts& logicalPaths);
void BuildWriter(VssWriter& writer, IVssExamineWriterMetadata* source, DirectoryResolver& directories);

/// "\logical path\name", one backslash in front.
std::wstring ComponentFullPath(const std::wstring& logicalPath, const std::wstring& name);

/// True when `a`'s full path and a backslash start `b`'s, case ignored. No component is its own ancestor.
VARNEL_API bool IsAncestor(const VssComponent& a, const VssComponent& b);

/// How the components of a list lie below each other, as IsAncestor tells pair by pair. Built in time linear in the
/// paths.
class ComponentTree {
 public:
  explicit ComponentTree(const std::vector<VssComponent>& components);

  std::size_t size() const { return first_.size(); }
  bool anyAncestor() const { return anyAncestor_; }
  bool HasAncestor(std::size_t index) const { return parent_[first_[index]] != kNone; }

 private:
  friend class Descendants;

  using Index = std::uint32_t;  // the service counts components in 32 bits

  // The components of one path: the first and the last of a list through next_.
  struct Same {
    Index first;
    Index last;
  };
  static constexpr Index kNone = static_cast<Index>(-1);

  // Calls `visit` with the index of every ancestor.
  template <class Visit>
  void ForEachAncestor(std::size_t index, Visit visit) const;

  std::vector<Index> first_;   // the first component of the same path
  std::vector<Index> next_;    // the next component of the same path
  std::vector<Index> parent_;  // of a path's first component: the first one of the nearest ancestor's path
  bool anyAncestor_ = false;
};

/// For every component of a list its descendants, in list order. Takes space for every pair.
class Descendants {
 public:
  explicit Descendants(const ComponentTree& tree);
  std::span<const std::uint32_t> Of(std::size_t index) const {
    return std::span(indexes_).subspan(begins_[index], begins_[index + 1] - begins_[index]);
  }

 private:
  std::vector<std::size_t> begins_;  // of each component's part of indexes_, and the end
  std::vector<std::uint32_t> indexes_;
};

}  // namespace varnel
