// Reads the records of a writer from the service's metadata interfaces. Each builder logs a failed platform call and
// throws its HRESULT as a `long`; the record is then incomplete, and nothing of the platform's is left behind.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>

#include "core/writer_metadata.h"
#include "platform/vss.h"

namespace varnel {

/// Where the directories that writers name lie. A volume that was found is not looked up again: a writer names
/// thousands of files in few directories.
class DirectoryResolver {
 public:
  /// Fills what the file's path tells: expandedPath, volumeName and pathOnVolume. Throws the HRESULT as a `long` when
  /// the environment variables cannot be expanded.
  void Resolve(VssFileDescriptor& file);

 private:
  struct Volume {
    std::wstring name;
    std::size_t mountPointLength;
  };
  std::wstring Expanded(const std::wstring& path);

  std::unordered_map<std::wstring, Volume> known_;  // by expanded path
  std::wstring expanded_;                           // room that is kept from call to call
};

void BuildFileDescriptor(VssFileDescriptor& file, IVssWMFiledesc* source, DWORD fileType,
                         DirectoryResolver& directories);
void BuildComponent(VssComponent& component, std::wstring writerName, IVssWMComponent* source,
                    DirectoryResolver& directories);
void BuildWriter(VssWriter& writer, IVssExamineWriterMetadata* source, DirectoryResolver& directories);

/// "\logical path\name", starting with one backslash at least.
std::wstring ComponentFullPath(std::wstring_view logicalPath, std::wstring_view name);

}  // namespace varnel
