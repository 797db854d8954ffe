#include "core/writer_metadata.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <memory_resource>
#include <numeric>
#include <string_view>
#include <utility>

#include "core/errors.h"
#include "core/logging.h"
#include "platform/owners.h"
#include "platform/tessel/TesselCommonClasses.h"
#include "text/ascii_case.h"
#include "text/guid.h"

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

// A writer's counts are its own word: no more room than this is made before it delivers.
constexpr UINT kMostReserved = 1024;

// Reads what GetFile and its like hand out, one descriptor after the other.
template <class Get>
void AppendFiles(std::vector<VssFileDescriptor>& files, UINT count, DWORD fileType, const wchar_t* call,
                 DirectoryResolver& directories, Get get) {
  files.reserve(files.size() + std::min(count, kMostReserved));
  for (UINT index = 0; index < count; ++index) {
    ComPtr<IVssWMFiledesc> source;
    const HRESULT hr = get(index, source.Put());
    CheckComCall(Delivered(hr, source), call);
    BuildFileDescriptor(files.emplace_back(), source.Get(), fileType, directories);
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
  CheckComCall(
      source->GetRestoreMethod(&method, service.Put(), userProcedure.Put(), &writerRestore, &rebootRequired, &mappings),
      L"\"pMetadata->GetRestoreMethod(&restoreMethod, &bstrService, &bstrUserProcedure, "
      L"&writerRestoreConditions, &rebootRequiredAfterRestore, &iMappings)\"");
  writer.restoreMethod = static_cast<DWORD>(method);
  writer.writerRestore = static_cast<DWORD>(writerRestore);
  writer.rebootRequiredAfterRestore = rebootRequired != 0;
  writer.restoreInvolvesWriter = writerRestore != VSS_WRE_NEVER;
}

void ReadComponents(VssWriter& writer, UINT count, IVssExamineWriterMetadata* source, DirectoryResolver& directories) {
  const SharedText writerName = writer.name;
  RecentTexts logicalPaths;
  writer.components.reserve(std::min(count, kMostReserved));
  for (UINT index = 0; index < count; ++index) {
    ComPtr<IVssWMComponent> found;
    const HRESULT hr = source->GetComponent(index, found.Put());
    CheckComCall(Delivered(hr, found), L"\"pMetadata->GetComponent(iComponent, &pComponent)\"");
    BuildComponent(writer.components.emplace_back(), writerName, found.Get(), directories, logicalPaths);
  }
}

struct HashIgnoringCase {
  // FNV-1a
  std::size_t operator()(std::wstring_view text) const {
    std::uint64_t hash = 0xcbf29ce484222325;
    for (const wchar_t c : text) hash = (hash ^ static_cast<std::uint64_t>(ascii::ToLower(c))) * 0x100000001b3;
    return static_cast<std::size_t>(hash);
  }
};

struct EqualIgnoringCase {
  // Nearly always the same spelling, which is faster told.
  bool operator()(std::wstring_view a, std::wstring_view b) const { return a == b || ascii::EqualIgnoringCase(a, b); }
};

void MarkTopLevel(std::vector<VssComponent>& components) {
  const ComponentTree tree(components);
  for (std::size_t index = 0; index < components.size(); ++index) {
    components[index].topLevel = !tree.HasAncestor(index);
  }
}

}  // namespace

SharedText RecentTexts::Share(std::wstring_view text) {
  if (latest_ != text) {
    std::swap(latest_, earlier_);
    if (latest_ != text) latest_ = SharedText(text);
  }
  return latest_;
}

struct DirectoryResolver::OwnTexts {
  std::wstring path;
  std::wstring expandedPath;
  std::wstring pathOnVolume;
};

const DirectoryResolver::Directory& DirectoryResolver::Resolve(std::wstring_view path) {
  const std::wstring_view expanded = Expand(path);
  // Most files lie where the one before does.
  if (latest_ == nullptr || latest_->expandedPath != expanded) {
    auto known = known_.find(expanded);
    if (known == known_.end()) {
      Directory directory = LookUp(path, expanded);
      const std::wstring_view key = directory.expandedPath;
      known = known_.emplace(key, std::move(directory)).first;
    }
    latest_ = &known->second;
  }
  return *latest_;
}

// With a backslash at the end; valid until the next call.
std::wstring_view DirectoryResolver::Expand(std::wstring_view path) {
  SystemInformation& system = CurrentHost().system();
  path_ = path;
  DWORD characters = MAX_PATH;
  for (;;) {
    if (expanded_.size() <= characters) expanded_.resize(characters + 1);  // and the backslash
    const DWORD needed = system.ExpandEnvironmentStringsW(path_.c_str(), expanded_.data(), characters);
    if (needed == 0) {
      const DWORD error = LastErrorOrGeneric();
      kLog.Error(L"ExpandEnvironmentStringsW() Failed, Path=%s, Error=0x%x", path_, error);
      ThrowHResult(HResultFromWin32(error));
    }
    if (needed <= characters) break;
    characters = needed;
  }
  std::size_t length = std::wstring_view(expanded_).substr(0, characters).find(L'\0');
  if (length == std::wstring_view::npos) length = characters;
  if (length == 0 || expanded_[length - 1] != L'\\') expanded_[length++] = L'\\';
  return std::wstring_view(expanded_).substr(0, length);
}

DirectoryResolver::Directory DirectoryResolver::LookUp(std::wstring_view path, std::wstring_view expandedPath) {
  const auto texts = std::make_shared<OwnTexts>();
  texts->path = path;
  texts->expandedPath = expandedPath;
  const bool found = UtilityClass::GetUniqueVolumeNameForPathNoThrow(texts->expandedPath, volumeName_, mountPoint_);
  if (found && mountPoint_.size() < expandedPath.size()) {
    texts->pathOnVolume = expandedPath.substr(mountPoint_.size());
  }
  const auto share = [&](const std::wstring& text) {
    return SharedText(std::shared_ptr<const std::wstring>(texts, &text));
  };
  Directory directory;
  directory.path = share(texts->path);
  directory.expandedPath = share(texts->expandedPath);
  directory.volumeName = found ? Volume(volumeName_) : directory.expandedPath;
  directory.pathOnVolume = share(texts->pathOnVolume);
  return directory;
}

const SharedText& DirectoryResolver::Volume(std::wstring_view name) {
  const auto known = volumes_.find(name);
  if (known != volumes_.end()) return known->second;
  const SharedText text(name);
  return volumes_.emplace(text, text).first->second;
}

void BuildFileDescriptor(VssFileDescriptor& file, IVssWMFiledesc* source, DWORD fileType,
                         DirectoryResolver& directories) {
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
  file.filespec = filespec.View();
  const DirectoryResolver::Directory& directory = directories.Resolve(path.View());
  file.path = directory.path == path.View() ? directory.path : SharedText(path.View());
  file.expandedPath = directory.expandedPath;
  file.volumeName = directory.volumeName;
  file.pathOnVolume = directory.pathOnVolume;
}

void BuildComponent(VssComponent& component, const SharedText& writerName, IVssWMComponent* source,
                    DirectoryResolver& directories, RecentTexts& logicalPaths) {
  component.writerName = writerName;
  const ComponentInfo info(source);
  component.name = ViewOf(info->bstrComponentName);
  component.logicalPath = logicalPaths.Share(ViewOf(info->bstrLogicalPath));
  component.caption = ViewOf(info->bstrCaption);
  component.type = static_cast<DWORD>(info->type);
  component.selectable = info->bSelectable != 0;
  component.notifyOnBackupComplete = info->bNotifyOnBackupComplete != 0;
  component.fullPath = ComponentFullPath(component.logicalPath, component.name);
  AppendFiles(component.files, info->cFileCount, VssFileDescriptor::File, L"\"pComponent->GetFile(i, &pFileDesc)\"",
              directories, [&](UINT index, IVssWMFiledesc** file) { return source->GetFile(index, file); });
  AppendFiles(component.files, info->cDatabases, VssFileDescriptor::DatabaseFile,
              L"\"pComponent->GetDatabaseFile(i, &pFileDesc)\"", directories,
              [&](UINT index, IVssWMFiledesc** file) { return source->GetDatabaseFile(index, file); });
  AppendFiles(component.files, info->cLogFiles, VssFileDescriptor::DatabaseLogFile,
              L"\"pComponent->GetDatabaseLogFile(i, &pFileDesc)\"", directories,
              [&](UINT index, IVssWMFiledesc** file) { return source->GetDatabaseLogFile(index, file); });
}

void BuildWriter(VssWriter& writer, IVssExamineWriterMetadata* source, DirectoryResolver& directories) {
  ReadIdentity(writer, source);
  ReadRestoreMethod(writer, source);
  UINT includeFiles = 0;
  UINT excludeFiles = 0;
  UINT components = 0;
  CheckComCall(source->GetFileCounts(&includeFiles, &excludeFiles, &components),
               L"\"pMetadata->GetFileCounts(&cIncludeFiles, &cExcludeFiles, &cComponents)\"");
  AppendFiles(writer.excludeFiles, excludeFiles, VssFileDescriptor::ExcludeFile,
              L"\"pMetadata->GetExcludeFile(i, &pFileDesc)\"", directories,
              [&](UINT index, IVssWMFiledesc** file) { return source->GetExcludeFile(index, file); });
  ReadComponents(writer, components, source, directories);
  MarkTopLevel(writer.components);
}

std::wstring ComponentFullPath(const std::wstring& logicalPath, const std::wstring& name) {
  std::wstring path;
  path.reserve(logicalPath.size() + name.size() + 2);
  if (!logicalPath.starts_with(L'\\')) path += L'\\';
  path += logicalPath;
  if (path.back() != L'\\') path += L'\\';
  path += name;
  return path;
}

bool IsAncestor(const VssComponent& a, const VssComponent& b) {
  const std::size_t length = a.fullPath.size();
  return length < b.fullPath.size() && b.fullPath[length] == L'\\' &&
         ascii::EqualIgnoringCase(a.fullPath, std::wstring_view(b.fullPath).substr(0, length));
}

ComponentTree::ComponentTree(const std::vector<VssComponent>& components)
    : first_(components.size()), next_(components.size(), kNone), parent_(components.size(), kNone) {
  // The nodes of the look-up in one arena: no allocation per component.
  std::pmr::monotonic_buffer_resource arena;
  std::pmr::unordered_map<std::wstring_view, Same, HashIgnoringCase, EqualIgnoringCase> byPath(components.size(),
                                                                                               &arena);
  const auto count = static_cast<Index>(components.size());
  for (Index index = 0; index < count; ++index) {
    const auto [same, isNew] = byPath.try_emplace(components[index].fullPath, Same{index, index});
    first_[index] = same->second.first;
    if (!isNew) next_[std::exchange(same->second.last, index)] = index;
  }
  for (Index index = 0; index < count; ++index) {
    if (first_[index] != index) continue;
    // The nearest ancestor is enough: the others are its own. A path ends where a backslash of a longer one begins.
    const std::wstring_view path = components[index].fullPath;
    for (std::size_t end = path.rfind(L'\\'); end != path.npos && end > 0; end = path.rfind(L'\\', end - 1)) {
      const auto ancestor = byPath.find(path.substr(0, end));
      if (ancestor == byPath.end()) continue;
      parent_[index] = ancestor->second.first;
      anyAncestor_ = true;
      break;
    }
  }
}

template <class Visit>
void ComponentTree::ForEachAncestor(std::size_t index, Visit visit) const {
  for (Index path = parent_[first_[index]]; path != kNone; path = parent_[path]) {
    for (Index same = path; same != kNone; same = next_[same]) visit(same);
  }
}

Descendants::Descendants(const ComponentTree& tree) : begins_(tree.size() + 2) {
  if (!tree.anyAncestor()) return;
  // A component's count is taken two places on, so that one place on its part begins, and then grows to its end.
  for (std::uint32_t index = 0; index < tree.size(); ++index) {
    tree.ForEachAncestor(index, [&](std::uint32_t ancestor) { ++begins_[ancestor + 2]; });
  }
  std::partial_sum(begins_.begin(), begins_.end(), begins_.begin());
  indexes_.resize(begins_.back());
  for (std::uint32_t index = 0; index < tree.size(); ++index) {
    tree.ForEachAncestor(index, [&](std::uint32_t ancestor) { indexes_[begins_[ancestor + 1]++] = index; });
  }
}

}  // namespace varnel
