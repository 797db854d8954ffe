#include "simulator/vss/vss_metadata.h"

#include <algorithm>
#include <vector>

#include "simulator/host_file/documents.h"
#include "simulator/vss/com_object.h"
#include "text/unicode.h"

namespace varnel::simulator {
namespace {

constexpr GUID kMetadataInterfaces[] = {kIidVssExamineWriterMetadata, kIidVssExamineWriterMetadataEx,
                                        kIidVssExamineWriterMetadataEx2};

std::optional<std::wstring_view> UnlessEmpty(std::wstring_view text) {
  return text.empty() ? std::nullopt : std::optional(text);
}

class FileDescriptor final : public ComObject<IVssWMFiledesc> {
 public:
  FileDescriptor(std::shared_ptr<Machine> machine, std::shared_ptr<const FileSpec> file)
      : ComObject(std::move(machine), "IVssWMFiledesc", {}), file_(std::move(file)) {}

  HRESULT STDMETHODCALLTYPE GetPath(BSTR* path) override { return Text("IVssWMFiledesc::GetPath", file_->path, path); }
  HRESULT STDMETHODCALLTYPE GetFilespec(BSTR* filespec) override {
    return Text("IVssWMFiledesc::GetFilespec", file_->filespec, filespec);
  }
  HRESULT STDMETHODCALLTYPE GetRecursive(VssBool* recursive) override {
    return Give("IVssWMFiledesc::GetRecursive", file_->recursive, recursive);
  }
  HRESULT STDMETHODCALLTYPE GetAlternateLocation(BSTR* alternateLocation) override {
    return Text("IVssWMFiledesc::GetAlternateLocation", UnlessEmpty(file_->alternatePath), alternateLocation);
  }
  HRESULT STDMETHODCALLTYPE GetBackupTypeMask(DWORD* typeMask) override {
    return Give("IVssWMFiledesc::GetBackupTypeMask", file_->backupTypeMask, typeMask);
  }

 private:
  ~FileDescriptor() override = default;

  std::shared_ptr<const FileSpec> file_;
};

// Looks up one file of a list that belongs to `owner`.
template <class Owner>
HRESULT GiveFile(const std::shared_ptr<Machine>& machine, std::string_view call, const std::shared_ptr<Owner>& owner,
                 const std::vector<FileSpec>* files, UINT index, IVssWMFiledesc** output) {
  Clear(output);
  return Call(*machine, call, Arguments(index), [&] {
    if (output == nullptr) return E_INVALIDARG;
    if (files == nullptr || index >= files->size()) return VSS_E_OBJECT_NOT_FOUND;
    *output = new FileDescriptor(machine, std::shared_ptr<const FileSpec>(owner, &(*files)[index]));
    return S_OK;
  });
}

class MetadataComponent final : public ComObject<IVssWMComponent> {
 public:
  MetadataComponent(std::shared_ptr<Machine> machine, std::shared_ptr<const WriterComponent> component)
      : ComObject(std::move(machine), "IVssWMComponent", {}), component_(std::move(component)) {}

  HRESULT STDMETHODCALLTYPE GetComponentInfo(PVSSCOMPONENTINFO* info) override {
    Clear(info);
    return Call("IVssWMComponent::GetComponentInfo", NoArguments, [&] {
      if (info == nullptr) return E_INVALIDARG;
      infos_.push_back(std::make_unique<VSS_COMPONENTINFO>(MakeInfo()));
      machine().live.Add("VSS_COMPONENTINFO");
      *info = infos_.back().get();
      return S_OK;
    });
  }

  HRESULT STDMETHODCALLTYPE FreeComponentInfo(PVSSCOMPONENTINFO info) override {
    // One that the fault plan makes fail has freed all the same: no caller can do more.
    const auto lock = machine().Lock();
    const HRESULT result = info == nullptr ? S_OK : FreeInfo(info);
    return Call("IVssWMComponent::FreeComponentInfo", NoArguments, [&] { return result; });
  }

  HRESULT STDMETHODCALLTYPE GetFile(UINT index, IVssWMFiledesc** file) override {
    return GiveFile(sharedMachine(), "IVssWMComponent::GetFile", component_,
                    IsDatabase() ? nullptr : &component_->files, index, file);
  }
  HRESULT STDMETHODCALLTYPE GetDatabaseFile(UINT index, IVssWMFiledesc** file) override {
    return GiveFile(sharedMachine(), "IVssWMComponent::GetDatabaseFile", component_,
                    IsDatabase() ? &component_->databaseFiles : nullptr, index, file);
  }
  HRESULT STDMETHODCALLTYPE GetDatabaseLogFile(UINT index, IVssWMFiledesc** file) override {
    return GiveFile(sharedMachine(), "IVssWMComponent::GetDatabaseLogFile", component_,
                    IsDatabase() ? &component_->logFiles : nullptr, index, file);
  }
  // Writers of this host declare no dependencies.
  HRESULT STDMETHODCALLTYPE GetDependency(UINT index, IVssWMDependency** dependency) override {
    Clear(dependency);
    return Call("IVssWMComponent::GetDependency", Arguments(index),
                [&] { return dependency == nullptr ? E_INVALIDARG : VSS_E_OBJECT_NOT_FOUND; });
  }

 private:
  ~MetadataComponent() override = default;

  bool IsDatabase() const { return component_->type == VSS_CT_DATABASE; }

  BSTR OptionalText(const std::optional<std::wstring>& text) { return text ? machine().MakeBstr(*text) : nullptr; }

  VSS_COMPONENTINFO MakeInfo() {
    VSS_COMPONENTINFO info{};
    info.type = component_->type;
    info.bstrLogicalPath = OptionalText(component_->logicalPath);
    info.bstrComponentName = machine().MakeBstr(component_->name);
    info.bstrCaption = OptionalText(component_->caption);
    info.bRestoreMetadata = component_->restoreMetadata;
    info.bNotifyOnBackupComplete = component_->notifyOnBackupComplete;
    info.bSelectable = component_->selectable;
    info.bSelectableForRestore = component_->selectableForRestore;
    info.dwComponentFlags = component_->componentFlags;
    if (IsDatabase()) {
      info.cDatabases = static_cast<UINT>(component_->databaseFiles.size());
      info.cLogFiles = static_cast<UINT>(component_->logFiles.size());
    } else {
      info.cFileCount = static_cast<UINT>(component_->files.size());
    }
    return info;
  }

  HRESULT FreeInfo(PVSSCOMPONENTINFO info) {
    const auto held =
        std::find_if(infos_.begin(), infos_.end(), [&](const auto& candidate) { return candidate.get() == info; });
    if (held == infos_.end()) {
      machine().live.AddMisuse("IVssWMComponent::FreeComponentInfo of information that this object did not give out");
      return E_INVALIDARG;
    }
    for (const BSTR text : {(*held)->bstrLogicalPath, (*held)->bstrComponentName, (*held)->bstrCaption}) {
      machine().FreeBstr(text);
    }
    infos_.erase(held);
    machine().live.Remove("VSS_COMPONENTINFO");
    return S_OK;
  }

  std::shared_ptr<const WriterComponent> component_;
  std::vector<std::unique_ptr<VSS_COMPONENTINFO>> infos_;
};

class WriterMetadata final : public ComObject<IVssExamineWriterMetadataEx2> {
 public:
  WriterMetadata(std::shared_ptr<Machine> machine, std::shared_ptr<const Writer> writer)
      : ComObject(std::move(machine), "IVssExamineWriterMetadata", kMetadataInterfaces), writer_(std::move(writer)) {}

  HRESULT STDMETHODCALLTYPE GetIdentity(VSS_ID* instance, VSS_ID* writer, BSTR* name, VSS_USAGE_TYPE* usage,
                                        VSS_SOURCE_TYPE* source) override {
    Clear(name);
    return Call("IVssExamineWriterMetadata::GetIdentity", NoArguments,
                [&] { return GiveIdentity(instance, writer, name, usage, source); });
  }
  HRESULT STDMETHODCALLTYPE GetFileCounts(UINT* includeFiles, UINT* excludeFiles, UINT* components) override {
    return Call("IVssExamineWriterMetadata::GetFileCounts", NoArguments, [&] {
      if (includeFiles == nullptr || excludeFiles == nullptr || components == nullptr) return E_INVALIDARG;
      *includeFiles = 0;
      *excludeFiles = static_cast<UINT>(writer_->excludeFiles.size());
      *components = static_cast<UINT>(writer_->components.size());
      return S_OK;
    });
  }
  HRESULT STDMETHODCALLTYPE GetIncludeFile(UINT index, IVssWMFiledesc** file) override {
    return GiveFile<const Writer>(sharedMachine(), "IVssExamineWriterMetadata::GetIncludeFile", writer_, nullptr, index,
                                  file);
  }
  HRESULT STDMETHODCALLTYPE GetExcludeFile(UINT index, IVssWMFiledesc** file) override {
    return GiveFile(sharedMachine(), "IVssExamineWriterMetadata::GetExcludeFile", writer_, &writer_->excludeFiles,
                    index, file);
  }
  HRESULT STDMETHODCALLTYPE GetComponent(UINT index, IVssWMComponent** component) override {
    Clear(component);
    return Call("IVssExamineWriterMetadata::GetComponent", Arguments(index), [&] {
      if (component == nullptr) return E_INVALIDARG;
      if (index >= writer_->components.size()) return VSS_E_OBJECT_NOT_FOUND;
      *component = new MetadataComponent(sharedMachine(),
                                         std::shared_ptr<const WriterComponent>(writer_, &writer_->components[index]));
      return S_OK;
    });
  }
  HRESULT STDMETHODCALLTYPE GetRestoreMethod(VSS_RESTOREMETHOD_ENUM* method, BSTR* service, BSTR* userProcedure,
                                             VSS_WRITERRESTORE_ENUM* writerRestore, VssBool* rebootRequired,
                                             UINT* mappings) override {
    Clear(service);
    Clear(userProcedure);
    return Call("IVssExamineWriterMetadata::GetRestoreMethod", NoArguments, [&] {
      if (method == nullptr || service == nullptr || userProcedure == nullptr || writerRestore == nullptr ||
          rebootRequired == nullptr || mappings == nullptr) {
        return E_INVALIDARG;
      }
      const RestoreMethod restore = writer_->restoreMethod.value_or(RestoreMethod{});
      const bool stopsService =
          restore.method == VSS_RME_STOP_RESTORE_START || restore.method == VSS_RME_RESTORE_STOP_START;
      *method = restore.method;
      *writerRestore = restore.writerRestore;
      *rebootRequired = restore.rebootRequired;
      *mappings = 0;
      if (stopsService) GiveText(machine(), UnlessEmpty(restore.service), service);
      GiveText(machine(), UnlessEmpty(restore.userProcedure), userProcedure);
      return writer_->restoreMethod ? S_OK : S_FALSE;
    });
  }
  HRESULT STDMETHODCALLTYPE GetAlternateLocationMapping(UINT index, IVssWMFiledesc** file) override {
    return GiveFile<const Writer>(sharedMachine(), "IVssExamineWriterMetadata::GetAlternateLocationMapping", writer_,
                                  nullptr, index, file);
  }
  HRESULT STDMETHODCALLTYPE GetBackupSchema(DWORD* schemaMask) override {
    return Call("IVssExamineWriterMetadata::GetBackupSchema", NoArguments, [&] {
      if (schemaMask == nullptr) return E_INVALIDARG;
      *schemaMask = writer_->backupSchema;
      return S_OK;
    });
  }
  HRESULT STDMETHODCALLTYPE GetDocument(IXMLDOMDocument** document) override {
    return Unsupported("::GetDocument", document);
  }
  HRESULT STDMETHODCALLTYPE SaveAsXML(BSTR* xml) override {
    Clear(xml);
    return Call("IVssExamineWriterMetadata::SaveAsXML", NoArguments, [&] {
      if (xml == nullptr) return E_INVALIDARG;
      const std::string made = writer_->document ? std::string() : FormatWriterMetadata(*writer_);
      return GiveText(machine(), Utf8ToWideLossy(writer_->document ? *writer_->document : made), xml);
    });
  }
  HRESULT STDMETHODCALLTYPE LoadFromXML(BSTR xml) override {
    const std::wstring_view text = xml == nullptr ? std::wstring_view() : std::wstring_view(xml, ::SysStringLen(xml));
    return Call(
        "IVssExamineWriterMetadata::LoadFromXML", [&] { return std::to_string(text.size()) + " characters"; },
        [&] {
          if (xml == nullptr) return E_INVALIDARG;
          try {
            writer_ = std::make_shared<const Writer>(ReadWriterDocument(WideToUtf8Lossy(text)));
          } catch (const DocumentError&) {
            return VSS_E_INVALID_XML_DOCUMENT;
          }
          return S_OK;
        });
  }

  HRESULT STDMETHODCALLTYPE GetIdentityEx(VSS_ID* instance, VSS_ID* writer, BSTR* name, BSTR* instanceName,
                                          VSS_USAGE_TYPE* usage, VSS_SOURCE_TYPE* source) override {
    Clear(name);
    Clear(instanceName);
    return Call("IVssExamineWriterMetadataEx::GetIdentityEx", NoArguments, [&] {
      if (instanceName == nullptr) return E_INVALIDARG;
      const HRESULT result = GiveIdentity(instance, writer, name, usage, source);
      if (SUCCEEDED(result)) GiveText(machine(), UnlessEmpty(writer_->instanceName), instanceName);
      return result;
    });
  }

  HRESULT STDMETHODCALLTYPE GetVersion(DWORD* majorVersion, DWORD* minorVersion) override {
    return Call("IVssExamineWriterMetadataEx2::GetVersion", NoArguments, [&] {
      if (majorVersion == nullptr || minorVersion == nullptr) return E_INVALIDARG;
      *majorVersion = writer_->majorVersion;
      *minorVersion = writer_->minorVersion;
      return S_OK;
    });
  }
  HRESULT STDMETHODCALLTYPE GetExcludeFromSnapshotCount(UINT* count) override {
    return Call("IVssExamineWriterMetadataEx2::GetExcludeFromSnapshotCount", NoArguments, [&] {
      if (count == nullptr) return E_INVALIDARG;
      *count = static_cast<UINT>(writer_->excludeFilesFromSnapshot.size());
      return S_OK;
    });
  }
  HRESULT STDMETHODCALLTYPE GetExcludeFromSnapshotFile(UINT index, IVssWMFiledesc** file) override {
    return GiveFile(sharedMachine(), "IVssExamineWriterMetadataEx2::GetExcludeFromSnapshotFile", writer_,
                    &writer_->excludeFilesFromSnapshot, index, file);
  }

 private:
  ~WriterMetadata() override = default;

  HRESULT GiveIdentity(VSS_ID* instance, VSS_ID* writer, BSTR* name, VSS_USAGE_TYPE* usage, VSS_SOURCE_TYPE* source) {
    if (instance == nullptr || writer == nullptr || name == nullptr || usage == nullptr || source == nullptr) {
      return E_INVALIDARG;
    }
    *instance = writer_->instanceId;
    *writer = writer_->writerId;
    *usage = writer_->usage;
    *source = writer_->source;
    return GiveText(machine(), writer_->name, name);
  }

  std::shared_ptr<const Writer> writer_;
};

}  // namespace

IVssWMFiledesc* MakeFileDescriptor(std::shared_ptr<Machine> machine, std::shared_ptr<const FileSpec> file) {
  return new FileDescriptor(std::move(machine), std::move(file));
}

IVssExamineWriterMetadataEx2* MakeWriterMetadata(std::shared_ptr<Machine> machine,
                                                 std::shared_ptr<const Writer> writer) {
  return new WriterMetadata(std::move(machine), std::move(writer));
}

}  // namespace varnel::simulator
