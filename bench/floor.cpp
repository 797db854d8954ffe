#include "bench/floor.h"

#include <algorithm>
#include <array>
#include <cwchar>
#include <map>
#include <set>
#include <stdexcept>
#include <string_view>
#include <unordered_map>

#include "core/varnel.h"
#include "platform/owners.h"
#include "text/ascii_case.h"
#include "text/guid.h"

namespace varnel::bench {
namespace {

using TesselCommonClasses::DiskAndVolumeEnumerator;
using TesselCommonClasses::UtilityClass;
using TesselCommonClasses::WindowsDiskDevice;

void Check(HRESULT hr) {
  if (FAILED(hr)) throw std::runtime_error("a call of the bare requestor failed");
}

void Wait(const ComPtr<IVssAsync>& async) {
  HRESULT result = S_OK;
  Check(async->Wait(INFINITE));
  Check(async->QueryStatus(&result, nullptr));
  Check(result);
}

// A volume is its index in the list of those met so far.
using VolumeIndex = std::size_t;

struct Component {
  VSS_COMPONENT_TYPE type;
  std::wstring logicalPath;
  std::wstring name;
  bool selectable;
  bool hasFiles;
  bool eligible;
};

struct WriterEntry {
  VSS_ID instanceId{};
  VSS_ID writerId{};
  bool takesPart = false;
  std::vector<Component> components;
};

class BareRequestor {
 public:
  BareRequestor(const std::vector<std::wstring>& writerIds, const std::vector<std::wstring>& disks,
                DiskAndVolumeEnumerator& enumerator)
      : writerIds_(writerIds), disks_(disks.begin(), disks.end()), enumerator_(enumerator) {}

  ~BareRequestor() {
    if (gathered_) vss_->FreeWriterMetadata();
  }

  void Run() {
    Check(CurrentHost().vss().CreateVssBackupComponents(vss_.Put()));
    Check(vss_->InitializeForBackup(nullptr));
    Check(vss_->SetBackupState(true, true, VSS_BT_FULL, false));
    Gather();
    Select();
    Add();
    Snapshot();
    Complete();
  }

 private:
  void Gather() {
    ComPtr<IVssAsync> async;
    Check(vss_->GatherWriterMetadata(async.Put()));
    Wait(async);
    gathered_ = true;
    UINT count = 0;
    Check(vss_->GetWriterMetadataCount(&count));
    for (UINT index = 0; index < count; ++index) {
      VSS_ID instanceId{};
      ComPtr<IVssExamineWriterMetadata> metadata;
      Check(vss_->GetWriterMetadata(index, &instanceId, metadata.Put()));
      ReadWriter(*metadata);
    }
  }

  void ReadWriter(IVssExamineWriterMetadata& metadata) {
    WriterEntry& writer = writers_.emplace_back();
    Bstr name;
    VSS_USAGE_TYPE usage{};
    VSS_SOURCE_TYPE source{};
    Check(metadata.GetIdentity(&writer.instanceId, &writer.writerId, name.Put(), &usage, &source));
    VSS_RESTOREMETHOD_ENUM method{};
    Bstr service;
    Bstr procedure;
    VSS_WRITERRESTORE_ENUM writerRestore{};
    VssBool reboot{};
    UINT mappings = 0;
    Check(metadata.GetRestoreMethod(&method, service.Put(), procedure.Put(), &writerRestore, &reboot, &mappings));
    UINT includes = 0;
    UINT excludes = 0;
    UINT components = 0;
    Check(metadata.GetFileCounts(&includes, &excludes, &components));
    for (UINT i = 0; i < excludes; ++i) {
      ComPtr<IVssWMFiledesc> file;
      Check(metadata.GetExcludeFile(i, file.Put()));
      VolumeOf(*file);
    }
    writer.takesPart = writerIds_.empty() ||
                       std::find(writerIds_.begin(), writerIds_.end(), FormatGuid(writer.writerId)) != writerIds_.end();
    writer.components.reserve(components);
    for (UINT i = 0; i < components; ++i) {
      ComPtr<IVssWMComponent> component;
      Check(metadata.GetComponent(i, component.Put()));
      ReadComponent(writer, *component);
    }
  }

  void ReadComponent(WriterEntry& writer, IVssWMComponent& source) {
    PVSSCOMPONENTINFO info = nullptr;
    Check(source.GetComponentInfo(&info));
    Component component{
        info->type, TextOf(info->bstrLogicalPath), TextOf(info->bstrComponentName), info->bSelectable != 0, false,
        true};
    const auto read = [&](UINT count, auto get) {
      for (UINT i = 0; i < count; ++i) {
        ComPtr<IVssWMFiledesc> file;
        Check((source.*get)(i, file.Put()));
        const VolumeIndex volume = VolumeOf(*file);
        component.hasFiles = true;
        if (writer.takesPart) component.eligible = IsOnDisks(volume) && component.eligible;
      }
    };
    read(info->cFileCount, &IVssWMComponent::GetFile);
    read(info->cDatabases, &IVssWMComponent::GetDatabaseFile);
    read(info->cLogFiles, &IVssWMComponent::GetDatabaseLogFile);
    source.FreeComponentInfo(info);
    writer.components.push_back(std::move(component));
  }

  static std::wstring TextOf(BSTR text) { return text == nullptr ? std::wstring() : std::wstring(text); }

  // The volume of a file entry, each directory looked up once.
  VolumeIndex VolumeOf(IVssWMFiledesc& file) {
    Bstr path;
    Bstr filespec;
    Bstr alternate;
    VssBool recursive{};
    Check(file.GetPath(path.Put()));
    Check(file.GetFilespec(filespec.Put()));
    Check(file.GetRecursive(&recursive));
    Check(file.GetAlternateLocation(alternate.Put()));
    std::array<wchar_t, MAX_PATH> expanded;
    if (CurrentHost().system().ExpandEnvironmentStringsW(path.Get(), expanded.data(), MAX_PATH) == 0) Check(E_FAIL);
    const auto known = directories_.find(expanded.data());
    if (known != directories_.end()) return known->second;
    const std::wstring directory = UtilityClass::AppendBackslash(expanded.data());
    std::wstring volume;
    std::wstring mountPoint;
    if (!UtilityClass::GetUniqueVolumeNameForPathNoThrow(directory, volume, mountPoint)) volume = directory;
    const VolumeIndex index = IndexOf(volume);
    directories_.emplace(expanded.data(), index);
    return index;
  }

  VolumeIndex IndexOf(const std::wstring& volume) {
    const auto found = std::find(volumes_.begin(), volumes_.end(), volume);
    if (found != volumes_.end()) return static_cast<VolumeIndex>(found - volumes_.begin());
    volumes_.push_back(volume);
    return volumes_.size() - 1;
  }

  bool IsOnDisks(VolumeIndex volume) {
    selected_.insert(volume);
    return true;
  }

  // A component without files takes part when one below it does.
  void Select() {
    for (const VolumeIndex volume : selected_) {
      WindowsDiskDevice device;
      enumerator_.GetDiskDeviceForUniqueVolume(volumes_[volume], device);
      if (!disks_.contains(device.serialNumber)) Check(E_FAIL);
    }
    for (WriterEntry& writer : writers_) {
      if (!writer.takesPart) continue;
      for (const Component& component : writer.components) {
        if (!component.selectable || !component.eligible) continue;
        Check(vss_->AddComponent(writer.instanceId, writer.writerId, component.type, component.logicalPath.c_str(),
                                 component.name.c_str()));
      }
    }
  }

  void Add() {
    VSS_ID setId{};
    Check(vss_->StartSnapshotSet(&setId));
    for (const VolumeIndex volume : VolumesInOrder()) {
      VSS_ID copy{};
      Check(vss_->AddToSnapshotSet(volumes_[volume].data(), CVarnel::TesselVssProviderID, &copy));
      copies_.push_back(copy);
    }
  }

  // In the order in which the files named them.
  const std::set<VolumeIndex>& VolumesInOrder() const { return selected_; }

  void CheckWriters() {
    ComPtr<IVssAsync> async;
    Check(vss_->GatherWriterStatus(async.Put()));
    Wait(async);
    UINT count = 0;
    Check(vss_->GetWriterStatusCount(&count));
    ComPtr<IVssBackupComponentsEx3> extended;
    Check(QueryFor(vss_.Get(), kIidVssBackupComponentsEx3, extended));
    for (UINT index = 0; index < count; ++index) {
      VSS_ID instanceId{};
      VSS_ID writerId{};
      Bstr name;
      Bstr message;
      VSS_WRITER_STATE state{};
      HRESULT failure = S_OK;
      HRESULT application = S_OK;
      Check(extended->GetWriterStatusEx(index, &instanceId, &writerId, name.Put(), &state, &failure, &application,
                                        message.Put()));
      Check(failure);
    }
    Check(vss_->FreeWriterStatus());
  }

  void Snapshot() {
    ComPtr<IVssAsync> async;
    Check(vss_->PrepareForBackup(async.Put()));
    Wait(async);
    CheckWriters();
    Check(vss_->DoSnapshotSet(async.Put()));
    Wait(async);
    CheckWriters();
    Bstr document;
    Check(vss_->SaveAsXML(document.Put()));
    for (const VSS_ID& copy : copies_) {
      SnapshotProperties properties;
      Check(vss_->GetSnapshotProperties(copy, properties.Put()));
      Check(vss_->GetSnapshotProperties(copy, properties.Put()));
      enumerator_.EnumerateDisks(true);
      WindowsDiskDevice device;
      enumerator_.GetDiskDeviceForUniqueVolume(
          ascii::ToLower(UtilityClass::AppendBackslash(properties->m_pwszSnapshotDeviceObject)), device);
    }
  }

  void Complete() {
    UINT count = 0;
    Check(vss_->GetWriterComponentsCount(&count));
    for (const WriterEntry& writer : writers_) {
      if (!writer.takesPart) continue;
      for (const Component& component : writer.components) {
        if (!component.selectable || !component.eligible) continue;
        Check(vss_->SetBackupSucceeded(writer.instanceId, writer.writerId, component.type,
                                       component.logicalPath.c_str(), component.name.c_str(), true));
      }
    }
    ComPtr<IVssAsync> async;
    Check(vss_->BackupComplete(async.Put()));
    Wait(async);
    CheckWriters();
  }

  const std::vector<std::wstring>& writerIds_;
  const std::set<std::wstring> disks_;
  DiskAndVolumeEnumerator& enumerator_;
  ComPtr<IVssBackupComponents> vss_;
  bool gathered_ = false;
  std::vector<WriterEntry> writers_;
  std::unordered_map<std::wstring, VolumeIndex> directories_;
  std::vector<std::wstring> volumes_;
  std::set<VolumeIndex> selected_;
  std::vector<VSS_ID> copies_;
};

}  // namespace

void TakeBareSnapshot(const std::vector<std::wstring>& writerIds, const std::vector<std::wstring>& disks,
                      DiskAndVolumeEnumerator& enumerator) {
  BareRequestor(writerIds, disks, enumerator).Run();
}

}  // namespace varnel::bench
