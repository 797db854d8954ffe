#include "core/metadata_reader.h"

#include <algorithm>
#include <utility>

#include "core/component_tree.h"
#include "core/logging.h"
#include "core/vss_call.h"
#include "platform/host.h"
#include "platform/tessel/TesselCommonClasses.h"
#include "text/guid.h"

using TesselCommonClasses::UtilityClass;

namespace varnel {
namespace {

// The component information, which only its own component may free.
class ComponentInfo {
 public:
  explicit ComponentInfo(IVssWMComponent* component) : component_(component) {
    const HRESULT hr = component->GetComponentInfo(&info_);
    LogAndThrow(L"pComponent->GetComponentInfo(&pInfo)")(Delivered(hr, info_));
  }
  ComponentInfo(const ComponentInfo&) = delete;
  ComponentInfo& operator=(const ComponentInfo&) = delete;
  ~ComponentInfo() { component_->FreeComponentInfo(info_); }
  PVSSCOMPONENTINFO operator->() const { return info_; }

 private:
  IVssWMComponent* component_;
  PVSSCOMPONENTINFO info_ = nullptr;
};

// A writer may announce any count; room for at most this many is reserved before reading.
constexpr UINT kMostReserved = 1024;

// Reads what GetFile and its like hand out, one descriptor after the other.
template <class Source, class Method>
void AppendFiles(std::vector<VssFileDescriptor>& files, UINT count, DWORD fileType, const LogAndThrow& onFailure,
                 Source* source, Method method, DirectoryResolver& directories) {
  files.reserve(files.size() + std::min(count, kMostReserved));
  for (UINT index = 0; index < count; ++index) {
    const auto file = Obtain<IVssWMFiledesc>(onFailure, source, method, index);
    BuildFileDescriptor(files.emplace_back(), file.Get(), fileType, directories);
  }
}

void ReadIdentity(VssWriter& writer, IVssExamineWriterMetadata* source) {
  VSS_ID instanceId{};
  VSS_ID writerId{};
  Bstr name;
  VSS_USAGE_TYPE usage{};
  VSS_SOURCE_TYPE sourceType{};
  CheckedCall(LogAndThrow(L"pMetadata->GetIdentity(&idInstance, &idWriter, &bstrWriterName, &usage, &source)"), source,
              &IVssExamineWriterMetadata::GetIdentity, &instanceId, &writerId, name.Put(), &usage, &sourceType);
  writer.name = name.View();
  writer.writerId = FormatGuid(writerId);
  writer.instanceId = FormatGuid(instanceId);
}

void ReadRestoreMethod(VssWriter& writer, IVssExamineWriterMetadata* source) {
  VSS_RESTOREMETHOD_ENUM method{};
  Bstr service;
  Bstr userProcedure;
  VSS_WRITERRESTORE_ENUM writerRestore{};
  VssBool rebootRequired{};
  UINT mappings = 0;
  CheckedCall(LogAndThrow(L"pMetadata->GetRestoreMethod(&restoreMethod, &bstrService, &bstrUserProcedure, "
                          L"&writerRestoreConditions, &rebootRequiredAfterRestore, &iMappings)"),
              source, &IVssExamineWriterMetadata::GetRestoreMethod, &method, service.Put(), userProcedure.Put(),
              &writerRestore, &rebootRequired, &mappings);
  writer.restoreMethod = static_cast<DWORD>(method);
  writer.writerRestore = static_cast<DWORD>(writerRestore);
  writer.rebootRequiredAfterRestore = rebootRequired != 0;
  writer.restoreInvolvesWriter = writerRestore != VSS_WRE_NEVER;
}

void ReadComponents(VssWriter& writer, UINT count, IVssExamineWriterMetadata* source, DirectoryResolver& directories) {
  writer.components.reserve(std::min(count, kMostReserved));
  for (UINT index = 0; index < count; ++index) {
    const auto component = Obtain<IVssWMComponent>(LogAndThrow(L"pMetadata->GetComponent(iComponent, &pComponent)"),
                                                   source, &IVssExamineWriterMetadata::GetComponent, index);
    BuildComponent(writer.components.emplace_back(), writer.name, component.Get(), directories);
  }
}

void MarkTopLevel(std::vector<VssComponent>& components) {
  const ComponentTree tree(components);
  for (std::size_t index = 0; index < components.size(); ++index) {
    components[index].topLevel = !tree.HasAncestor(index);
  }
}

}  // namespace

// The path with its environment variables expanded and a backslash at its end.
std::wstring DirectoryResolver::Expanded(const std::wstring& path) {
  for (DWORD needed = MAX_PATH; needed > 0;) {
    if (expanded_.size() < needed) expanded_.resize(needed);
    const DWORD room = needed;
    needed = CurrentHost().system().ExpandEnvironmentStringsW(path.c_str(), expanded_.data(), room);
    if (needed == 0 || needed > room) continue;
    const std::wstring_view text(expanded_.c_str());
    std::wstring result;
    result.reserve(text.size() + 1);
    result += text;
    return UtilityClass::AppendBackslash(std::move(result));
  }
  const DWORD error = LastErrorOrGeneric();
  kLog.Error(L"ExpandEnvironmentStringsW() Failed, Path=%s, Error=0x%x", path, error);
  ThrowHResult(HResultFromWin32(error));
}

void DirectoryResolver::Resolve(VssFileDescriptor& file) {
  file.expandedPath = Expanded(file.path);
  auto known = known_.find(file.expandedPath);
  if (known == known_.end()) {
    std::wstring volumeName;
    std::wstring mountPoint;
    if (!UtilityClass::GetUniqueVolumeNameForPathNoThrow(file.expandedPath, volumeName, mountPoint)) {
      file.volumeName = file.expandedPath;
      return;
    }
    known = known_.emplace(file.expandedPath, Volume{std::move(volumeName), mountPoint.size()}).first;
  }
  const Volume& volume = known->second;
  file.volumeName = volume.name;
  file.pathOnVolume = file.expandedPath.substr(std::min(volume.mountPointLength, file.expandedPath.size()));
}

void BuildFileDescriptor(VssFileDescriptor& file, IVssWMFiledesc* source, DWORD fileType,
                         DirectoryResolver& directories) {
  file.fileType = fileType;
  Bstr path;
  Bstr filespec;
  Bstr alternateLocation;
  VssBool recursive{};
  CheckedCall(LogAndThrow(L"pFileDesc->GetPath(&bstrPath)"), source, &IVssWMFiledesc::GetPath, path.Put());
  CheckedCall(LogAndThrow(L"pFileDesc->GetFilespec(&bstrFilespec)"), source, &IVssWMFiledesc::GetFilespec,
              filespec.Put());
  CheckedCall(LogAndThrow(L"pFileDesc->GetRecursive(&bRecursive)"), source, &IVssWMFiledesc::GetRecursive, &recursive);
  CheckedCall(LogAndThrow(L"pFileDesc->GetAlternateLocation(&bstrAlternate)"), source,
              &IVssWMFiledesc::GetAlternateLocation, alternateLocation.Put());
  file.path = path.View();
  file.filespec = filespec.View();
  directories.Resolve(file);
}

void BuildComponent(VssComponent& component, std::wstring writerName, IVssWMComponent* source,
                    DirectoryResolver& directories) {
  component.writerName = std::move(writerName);
  const ComponentInfo info(source);
  component.name = ViewOf(info->bstrComponentName);
  component.logicalPath = ViewOf(info->bstrLogicalPath);
  component.caption = ViewOf(info->bstrCaption);
  component.type = static_cast<DWORD>(info->type);
  component.selectable = info->bSelectable != 0;
  component.notifyOnBackupComplete = info->bNotifyOnBackupComplete != 0;
  component.fullPath = ComponentFullPath(component.logicalPath, component.name);
  AppendFiles(component.files, info->cFileCount, VssFileDescriptor::File,
              LogAndThrow(L"pComponent->GetFile(i, &pFileDesc)"), source, &IVssWMComponent::GetFile, directories);
  AppendFiles(component.files, info->cDatabases, VssFileDescriptor::DatabaseFile,
              LogAndThrow(L"pComponent->GetDatabaseFile(i, &pFileDesc)"), source, &IVssWMComponent::GetDatabaseFile,
              directories);
  AppendFiles(component.files, info->cLogFiles, VssFileDescriptor::DatabaseLogFile,
              LogAndThrow(L"pComponent->GetDatabaseLogFile(i, &pFileDesc)"), source,
              &IVssWMComponent::GetDatabaseLogFile, directories);
}

void BuildWriter(VssWriter& writer, IVssExamineWriterMetadata* source, DirectoryResolver& directories) {
  ReadIdentity(writer, source);
  ReadRestoreMethod(writer, source);
  UINT includeFiles = 0;
  UINT excludeFiles = 0;
  UINT components = 0;
  CheckedCall(LogAndThrow(L"pMetadata->GetFileCounts(&cIncludeFiles, &cExcludeFiles, &cComponents)"), source,
              &IVssExamineWriterMetadata::GetFileCounts, &includeFiles, &excludeFiles, &components);
  AppendFiles(writer.excludeFiles, excludeFiles, VssFileDescriptor::ExcludeFile,
              LogAndThrow(L"pMetadata->GetExcludeFile(i, &pFileDesc)"), source,
              &IVssExamineWriterMetadata::GetExcludeFile, directories);
  ReadComponents(writer, components, source, directories);
  MarkTopLevel(writer.components);
}

std::wstring ComponentFullPath(std::wstring_view logicalPath, std::wstring_view name) {
  std::wstring path;
  path.reserve(logicalPath.size() + name.size() + 2);
  path += logicalPath;
  path = UtilityClass::AppendBackslash(std::move(path));
  path += name;
  if (!path.starts_with(L'\\')) path.insert(0, 1, L'\\');
  return path;
}

}  // namespace varnel
