// The floor: what a snapshot costs at least, whoever takes it. BareRequestor makes every call that the real requestor
// makes, in the same order and with the same arguments (their call logs are equal), and does nothing besides: between
// two calls it keeps only what a later call needs (the identifiers and names of components, the volume of each
// directory), it decides nothing, writes no log and no alert, and gives up at the first failure. What the real
// requestor costs above this is its own work, and the only part that this project can make cheaper.
#include "bench/floor.h"

#include <algorithm>
#include <cwchar>
#include <set>
#include <stdexcept>
#include <unordered_map>

#include "core/varnel.h"
#include "platform/host.h"
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

std::wstring TextOf(BSTR text) {
  return text == nullptr ? std::wstring() : std::wstring(text);
}

// A component as the service is told of it.
struct Component {
  VSS_COMPONENT_TYPE type;
  std::wstring logicalPath;
  std::wstring name;
};

struct TakingPart {
  VSS_ID instanceId;
  VSS_ID writerId;
  std::vector<Component> selectable;
};

// A volume is its place among those met so far.
using VolumeIndex = std::size_t;

class BareRequestor {
 public:
  BareRequestor(const std::vector<std::wstring>& writerIds, const std::vector<std::wstring>& disks,
                DiskAndVolumeEnumerator& enumerator)
      : writerIds_(writerIds), disks_(disks.begin(), disks.end()), enumerator_(enumerator) {}

  ~BareRequestor() {
    if (gathered_) vss_->FreeWriterMetadata();
  }

  // The phases of a request, in their order.
  void TakeSnapshot() {
    Initialize();
    ReadWriters();
    CheckVolumes();
    AddComponents();
    AddVolumes();
    CreateShadowCopies();
    ReadShadowCopies();
    CompleteBackup();
  }

 private:
  void Initialize() {
    Check(CurrentHost().vss().CreateVssBackupComponents(vss_.Put()));
    Check(vss_->InitializeForBackup(nullptr));
    Check(vss_->SetBackupState(true, true, VSS_BT_FULL, false));
  }

  template <class Start>
  void RunToItsEnd(Start start) {
    ComPtr<IVssAsync> async;
    HRESULT result = S_OK;
    Check((vss_.Get()->*start)(async.Put()));
    Check(async->Wait(INFINITE));
    Check(async->QueryStatus(&result, nullptr));
    Check(result);
  }

  void ReadWriters() {
    RunToItsEnd(&IVssBackupComponents::GatherWriterMetadata);
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
    TakingPart writer{};
    Bstr name;
    VSS_USAGE_TYPE usage{};
    VSS_SOURCE_TYPE source{};
    Check(metadata.GetIdentity(&writer.instanceId, &writer.writerId, name.Put(), &usage, &source));
    ReadRestoreMethod(metadata);
    UINT includes = 0;
    UINT excludes = 0;
    UINT components = 0;
    Check(metadata.GetFileCounts(&includes, &excludes, &components));
    for (UINT i = 0; i < excludes; ++i) {
      ComPtr<IVssWMFiledesc> file;
      Check(metadata.GetExcludeFile(i, file.Put()));
      VolumeOf(*file);
    }
    const bool takesPart = writerIds_.empty() || std::find(writerIds_.begin(), writerIds_.end(),
                                                           FormatGuid(writer.writerId)) != writerIds_.end();
    for (UINT i = 0; i < components; ++i) {
      ComPtr<IVssWMComponent> component;
      Check(metadata.GetComponent(i, component.Put()));
      ReadComponent(*component, takesPart ? &writer : nullptr);
    }
    if (takesPart) writers_.push_back(std::move(writer));
  }

  static void ReadRestoreMethod(IVssExamineWriterMetadata& metadata) {
    VSS_RESTOREMETHOD_ENUM method{};
    Bstr service;
    Bstr procedure;
    VSS_WRITERRESTORE_ENUM writerRestore{};
    VssBool reboot{};
    UINT mappings = 0;
    Check(metadata.GetRestoreMethod(&method, service.Put(), procedure.Put(), &writerRestore, &reboot, &mappings));
  }

  // `writer` is null where it does not take part: its files are read all the same.
  void ReadComponent(IVssWMComponent& source, TakingPart* writer) {
    PVSSCOMPONENTINFO info = nullptr;
    Check(source.GetComponentInfo(&info));
    const auto read = [&](UINT count, auto get) {
      for (UINT i = 0; i < count; ++i) {
        ComPtr<IVssWMFiledesc> file;
        Check((source.*get)(i, file.Put()));
        const VolumeIndex volume = VolumeOf(*file);
        if (writer != nullptr) volumesOfSet_.insert(volume);
      }
    };
    read(info->cFileCount, &IVssWMComponent::GetFile);
    read(info->cDatabases, &IVssWMComponent::GetDatabaseFile);
    read(info->cLogFiles, &IVssWMComponent::GetDatabaseLogFile);
    if (writer != nullptr && info->bSelectable) {
      writer->selectable.push_back({info->type, TextOf(info->bstrLogicalPath), TextOf(info->bstrComponentName)});
    }
    source.FreeComponentInfo(info);
  }

  // Reads the whole file entry; each directory is looked up once.
  VolumeIndex VolumeOf(IVssWMFiledesc& file) {
    Bstr path;
    Bstr filespec;
    Bstr alternate;
    VssBool recursive{};
    Check(file.GetPath(path.Put()));
    Check(file.GetFilespec(filespec.Put()));
    Check(file.GetRecursive(&recursive));
    Check(file.GetAlternateLocation(alternate.Put()));
    wchar_t expanded[MAX_PATH];
    if (CurrentHost().system().ExpandEnvironmentStringsW(path.Get(), expanded, MAX_PATH) == 0) Check(E_FAIL);
    const auto known = volumesOfDirectories_.find(expanded);
    if (known != volumesOfDirectories_.end()) return known->second;
    const std::wstring directory = UtilityClass::AppendBackslash(expanded);
    std::wstring volume;
    std::wstring mountPoint;
    if (!UtilityClass::GetUniqueVolumeNameForPathNoThrow(directory, volume, mountPoint)) volume = directory;
    const VolumeIndex index = IndexOf(volume);
    volumesOfDirectories_.emplace(expanded, index);
    return index;
  }

  VolumeIndex IndexOf(const std::wstring& volume) {
    const auto found = std::find(volumes_.begin(), volumes_.end(), volume);
    const auto index = static_cast<VolumeIndex>(found - volumes_.begin());
    if (found == volumes_.end()) volumes_.push_back(volume);
    return index;
  }

  void CheckVolumes() {
    for (const VolumeIndex volume : volumesOfSet_) {
      WindowsDiskDevice device;
      enumerator_.GetDiskDeviceForUniqueVolume(volumes_[volume], device);
      if (!disks_.contains(device.serialNumber)) Check(E_FAIL);
    }
  }

  template <class Call>
  void ForEachSelectable(Call call) {
    for (const TakingPart& writer : writers_) {
      for (const Component& component : writer.selectable) Check(call(writer, component));
    }
  }

  void AddComponents() {
    ForEachSelectable([&](const TakingPart& writer, const Component& component) {
      return vss_->AddComponent(writer.instanceId, writer.writerId, component.type, component.logicalPath.c_str(),
                                component.name.c_str());
    });
  }

  void AddVolumes() {
    VSS_ID setId{};
    Check(vss_->StartSnapshotSet(&setId));
    for (const VolumeIndex volume : volumesOfSet_) {
      VSS_ID copy{};
      Check(vss_->AddToSnapshotSet(volumes_[volume].data(), CVarnel::TesselVssProviderID, &copy));
      copies_.push_back(copy);
    }
  }

  void CreateShadowCopies() {
    RunToItsEnd(&IVssBackupComponents::PrepareForBackup);
    CheckWriters();
    RunToItsEnd(&IVssBackupComponents::DoSnapshotSet);
    CheckWriters();
    Bstr document;
    Check(vss_->SaveAsXML(document.Put()));
  }

  void CheckWriters() {
    RunToItsEnd(&IVssBackupComponents::GatherWriterStatus);
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

  // Each copy is asked for twice, for its device and for its disk, and the disks are enumerated anew for each.
  void ReadShadowCopies() {
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

  void CompleteBackup() {
    UINT count = 0;
    Check(vss_->GetWriterComponentsCount(&count));
    ForEachSelectable([&](const TakingPart& writer, const Component& component) {
      return vss_->SetBackupSucceeded(writer.instanceId, writer.writerId, component.type, component.logicalPath.c_str(),
                                      component.name.c_str(), true);
    });
    RunToItsEnd(&IVssBackupComponents::BackupComplete);
    CheckWriters();
  }

  const std::vector<std::wstring>& writerIds_;
  const std::set<std::wstring> disks_;
  DiskAndVolumeEnumerator& enumerator_;
  ComPtr<IVssBackupComponents> vss_;
  bool gathered_ = false;
  std::vector<TakingPart> writers_;
  std::unordered_map<std::wstring, VolumeIndex> volumesOfDirectories_;
  std::vector<std::wstring> volumes_;
  std::set<VolumeIndex> volumesOfSet_;  // ascending is the order in which files named them
  std::vector<VSS_ID> copies_;
};

}  // namespace

void TakeBareSnapshot(const std::vector<std::wstring>& writerIds, const std::vector<std::wstring>& disks,
                      DiskAndVolumeEnumerator& enumerator) {
  BareRequestor(writerIds, disks, enumerator).TakeSnapshot();
}

}  // namespace varnel::bench
