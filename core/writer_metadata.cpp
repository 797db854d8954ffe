#include "core/writer_metadata.h"

#include <algorithm>
#include <cwchar>
#include <string_view>

#include "core/errors.h"
#include "core/logging.h"
#include "core/text.h"
#include "platform/ascii_case.h"
#include "platform/com.h"
#include "platform/tessel/TesselCommonClasses.h"

using TesselCommonClasses::UtilityClass;

namespace varnel {
namespace {

// The component information, which only its own component may free.
class ComponentInfo {
 public:
  explicit ComponentInfo(IVssWMComponent* component) : component_(component) {
    CheckComCall(Delivered(component->GetComponentInfo(&info_), info_), L"\"pComponent->GetComponentInfo(&pInfo)\"");
  }
  ComponentInfo(const ComponentInfo&) = delete;
  ComponentInfo& operator=(const ComponentInfo&) = delete;
  ~ComponentInfo() { component_->FreeComponentInfo(info_); }
  PVSSCOMPONENTINFO operator->() const { return info_; }

 private:
  IVssWMComponent* component_;
  PVSSCOMPONENTINFO info_ = nullptr;
};

std::wstring ExpandEnvironment(const std::wstring& path) {
  SystemInformation& system = CurrentHost().system();
  std::wstring expanded(MAX_PATH, L'\0');
  for (;;) {
    const auto characters = static_cast<DWORD>(expanded.size());
    const DWORD needed = system.ExpandEnvironmentStringsW(path.c_str(), expanded.data(), characters);
    if (needed == 0) {
      const DWORD error = LastErrorOrGeneric();
      kLog.Error(L"ExpandEnvironmentStringsW() Failed, Path=%s, Error=0x%x", path, error);
      ThrowHResult(HResultFromWin32(error));
    }
    if (needed <= characters) break;
    expanded.resize(needed);
  }
  expanded.resize(std::wcslen(expanded.c_str()));
  return expanded;
}

// A writer's counts are its own word: no more room than this is made before it delivers.
constexpr UINT kMostReserved = 1024;

// Reads what GetFile and its like hand out, one descriptor after the other.
template <class Get>
void AppendFiles(std::vector<VssFileDescriptor>& files, UINT count, DWORD fileType, const wchar_t* call,
                 VolumeResolver& volumes, Get get) {
  files.reserve(files.size() + std::min(count, kMostReserved));
  for (UINT index = 0; index < count; ++index) {
    ComPtr<IVssWMFiledesc> source;
    const HRESULT hr = get(index, source.Put());
    CheckComCall(Delivered(hr, source), call);
    BuildFileDescriptor(files.emplace_back(), source.Get(), fileType, volumes);
  }
}

void ReadIdentity(VssWriter& writer, IVssExamineWriterMetadata* source) {
  VSS_ID instanceId{};
  VSS_ID writerId{};
  Bstr name;
  VSS_USAGE_TYPE usage{};
  VSS_SOURCE_TYPE sourceType{};
  CheckComCall(source->GetIdentity(&instanceId, &writerId, name.Put(), &usage, &sourceType),
               L"\"pMetadata->GetIdentity(&idInstance, &idWriter, &bstrWriterName, &usage, &source)\"");
  writer.name = name.View();
  writer.writerId = Guid2WString(writerId);
  writer.instanceId = Guid2WString(instanceId);
}

void ReadRestoreMethod(VssWriter& writer, IVssExamineWriterMetadata* source) {
  VSS_RESTOREMETHOD_ENUM method{};
  Bstr service;
  Bstr userProcedure;
  VSS_WRITERRESTORE_ENUM writerRestore{};
  VssBool rebootRequired{};
  UINT mappings = 0;
  CheckComCall(
      source->GetRestoreMethod(&method, service.Put(), userProcedure.Put(), &writerRestore, &rebootRequired, &mappings),
      L"\"pMetadata->GetRestoreMethod(&restoreMethod, &bstrService, &bstrUserProcedure, "
      L"&writerRestoreConditions, &rebootRequiredAfterRestore, &iMappings)\"");
  writer.restoreMethod = static_cast<DWORD>(method);
  writer.writerRestore = static_cast<DWORD>(writerRestore);
  writer.rebootRequiredAfterRestore = rebootRequired != 0;
  writer.restoreInvolvesWriter = writerRestore != VSS_WRE_NEVER;
}

void ReadComponents(VssWriter& writer, UINT count, IVssExamineWriterMetadata* source, VolumeResolver& volumes) {
  writer.components.reserve(std::min(count, kMostReserved));
  for (UINT index = 0; index < count; ++index) {
    ComPtr<IVssWMComponent> component;
    const HRESULT hr = source->GetComponent(index, component.Put());
    CheckComCall(Delivered(hr, component), L"\"pMetadata->GetComponent(iComponent, &pComponent)\"");
    BuildComponent(writer.components.emplace_back(), writer.name, component.Get(), volumes);
  }
}

void MarkTopLevel(std::vector<VssComponent>& components) {
  for (VssComponent& component : components) component.topLevel = true;
  for (const std::vector<std::size_t>& descendants : DescendantsByComponent(components)) {
    for (const std::size_t index : descendants) components[index].topLevel = false;
  }
}

}  // namespace

const VolumeResolver::Location& VolumeResolver::Resolve(const std::wstring& expandedPath) {
  const auto [entry, isNew] = known_.try_emplace(expandedPath);
  if (isNew) {
    std::wstring mountPoint;
    Location& location = entry->second;
    location.found = UtilityClass::GetUniqueVolumeNameForPathNoThrow(expandedPath, location.volumeName, mountPoint);
    location.mountPointLength = mountPoint.size();
  }
  return entry->second;
}

void BuildFileDescriptor(VssFileDescriptor& file, IVssWMFiledesc* source, DWORD fileType, VolumeResolver& volumes) {
  file.fileType = fileType;
  Bstr path;
  Bstr filespec;
  Bstr alternateLocation;
  VssBool recursive{};
  CheckComCall(source->GetPath(path.Put()), L"\"pFileDesc->GetPath(&bstrPath)\"");
  CheckComCall(source->GetFilespec(filespec.Put()), L"\"pFileDesc->GetFilespec(&bstrFilespec)\"");
  CheckComCall(source->GetRecursive(&recursive), L"\"pFileDesc->GetRecursive(&bRecursive)\"");
  CheckComCall(source->GetAlternateLocation(alternateLocation.Put()),
               L"\"pFileDesc->GetAlternateLocation(&bstrAlternate)\"");
  file.path = path.View();
  file.filespec = filespec.View();
  file.expandedPath = UtilityClass::AppendBackslash(ExpandEnvironment(file.path));
  const VolumeResolver::Location& location = volumes.Resolve(file.expandedPath);
  file.volumeName = location.found ? location.volumeName : file.expandedPath;
  if (location.found && location.mountPointLength < file.expandedPath.size()) {
    file.pathOnVolume = file.expandedPath.substr(location.mountPointLength);
  }
}

void BuildComponent(VssComponent& component, const std::wstring& writerName, IVssWMComponent* source,
                    VolumeResolver& volumes) {
  component.writerName = writerName;
  const ComponentInfo info(source);
  component.name = BSTR2WString(info->bstrComponentName);
  component.logicalPath = BSTR2WString(info->bstrLogicalPath);
  component.caption = BSTR2WString(info->bstrCaption);
  component.type = static_cast<DWORD>(info->type);
  component.selectable = info->bSelectable != 0;
  component.notifyOnBackupComplete = info->bNotifyOnBackupComplete != 0;
  component.fullPath = ComponentFullPath(component.logicalPath, component.name);
  AppendFiles(component.files, info->cFileCount, VssFileDescriptor::File, L"\"pComponent->GetFile(i, &pFileDesc)\"",
              volumes, [&](UINT index, IVssWMFiledesc** file) { return source->GetFile(index, file); });
  AppendFiles(component.files, info->cDatabases, VssFileDescriptor::DatabaseFile,
              L"\"pComponent->GetDatabaseFile(i, &pFileDesc)\"", volumes,
              [&](UINT index, IVssWMFiledesc** file) { return source->GetDatabaseFile(index, file); });
  AppendFiles(component.files, info->cLogFiles, VssFileDescriptor::DatabaseLogFile,
              L"\"pComponent->GetDatabaseLogFile(i, &pFileDesc)\"", volumes,
              [&](UINT index, IVssWMFiledesc** file) { return source->GetDatabaseLogFile(index, file); });
}

void BuildWriter(VssWriter& writer, IVssExamineWriterMetadata* source, VolumeResolver& volumes) {
  ReadIdentity(writer, source);
  ReadRestoreMethod(writer, source);
  UINT includeFiles = 0;
  UINT excludeFiles = 0;
  UINT components = 0;
  CheckComCall(source->GetFileCounts(&includeFiles, &excludeFiles, &components),
               L"\"pMetadata->GetFileCounts(&cIncludeFiles, &cExcludeFiles, &cComponents)\"");
  AppendFiles(writer.excludeFiles, excludeFiles, VssFileDescriptor::ExcludeFile,
              L"\"pMetadata->GetExcludeFile(i, &pFileDesc)\"", volumes,
              [&](UINT index, IVssWMFiledesc** file) { return source->GetExcludeFile(index, file); });
  ReadComponents(writer, components, source, volumes);
  MarkTopLevel(writer.components);
}

std::wstring ComponentFullPath(const std::wstring& logicalPath, const std::wstring& name) {
  std::wstring path = UtilityClass::AppendBackslash(logicalPath) + name;
  if (path.front() != L'\\') path.insert(path.begin(), L'\\');
  return path;
}

bool IsAncestor(const VssComponent& a, const VssComponent& b) {
  const std::size_t length = a.fullPath.size();
  return length < b.fullPath.size() && b.fullPath[length] == L'\\' &&
         ascii::EqualIgnoringCase(a.fullPath, std::wstring_view(b.fullPath).substr(0, length));
}

std::vector<std::vector<std::size_t>> DescendantsByComponent(const std::vector<VssComponent>& components) {
  std::vector<std::wstring> folded;
  folded.reserve(components.size());
  for (const VssComponent& component : components) folded.push_back(ascii::ToLower(component.fullPath));
  std::unordered_map<std::wstring_view, std::vector<std::size_t>> byPath;
  for (std::size_t i = 0; i < folded.size(); ++i) byPath[folded[i]].push_back(i);

  std::vector<std::vector<std::size_t>> descendants(components.size());
  for (std::size_t i = 0; i < folded.size(); ++i) {
    const std::wstring_view path = folded[i];
    // An ancestor's path ends where a backslash of this path begins.
    for (std::size_t end = path.find(L'\\', 1); end != path.npos; end = path.find(L'\\', end + 1)) {
      const auto ancestors = byPath.find(path.substr(0, end));
      if (ancestors == byPath.end()) continue;
      for (const std::size_t ancestor : ancestors->second) descendants[ancestor].push_back(i);
    }
  }
  return descendants;
}

}  // namespace varnel
