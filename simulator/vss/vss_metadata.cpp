#include "simulator/vss/vss_metadata.h"

#include <algorithm>
#include <vector>

#include "simulator/host_file/documents.h"
#include "simulator/vss/com_object.h"

namespace varnel::simulator {
namespace {

constexpr GUID kMetadataInterfaces[] = {kIidVssExamineWriterMetadata, kIidVssExamineWriterMetadataEx,
                                        kIidVssExamineWriterMetadataEx2};

std::optional<std::wstring> UnlessEmpty(const std::wstring& text) {
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
    return Value("IVssWMFiledesc::GetRecursive", file_->recursive, recursive);
  }
  HRESULT STDMETHODCALLTYPE GetAlternateLocation(BSTR* alternateLocation) override {
    Clear(alternateLocation);
    return Call(machine(), "IVssWMFiledesc::GetAlternateLocation", NoArguments, [&] {
      if (alternateLocation == nullptr) return E_INVALIDARG;
      return file_->alternatePath.empty() ? S_FALSE : GiveText(machine(), file_->alternatePath, alternateLocation);
    });
  }
  HRESULT STDMETHODCALLTYPE GetBackupTypeMask(DWORD* typeMask) override {
    return Value("IVssWMFiledesc::GetBackupTypeMask", file_->backupTypeMask, typeMask);
  }

 private:
  ~FileDescriptor() override = default;

  HRESULT Text(std::string_view call, const std::wstring& text, BSTR* output) {
    Clear(output);
    return Call(machine(), call, NoArguments,
                [&] { return output == nullptr ? E_INVALIDARG : GiveText(machine(), text, output); });
  }

  template <class T, class Output>
  HRESULT Value(std::string_view call, T value, Output* output) {
    return Call(machine(), call, NoArguments, [&] {
      if (output == nullptr) return E_INVALIDARG;
      *output = value;
      return S_OK;
    });
  }

  std::shared_ptr<const FileSpec> file_;
};

// Looks up one file of a list that belongs to `owner`.
template <class Owner>
HRESULT GiveFile(const std::shared_ptr<Machine>& machine, std::string_view call, const std::shared_ptr<Owner>& owner,
                 const std::vector<FileSpec>* files, UINT index, IVssWMFiledesc** output) {
  Clear(output);
  return Call(*machine, call, OneNumber(index), [&] {
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
    return Call(machine(), "IVssWMComponent::GetComponentInfo", NoArguments, [&] {
      if (info == nullptr) return E_INVALIDARG;
      infos_.push_back(std::make_unique<VSS_COMPONENTINFO>(MakeInfo()));
      machine().live.Add("VSS_COMPONENTINFO");
      *info = infos_.back().get();
      return S_OK;
    });
  }

  HRESULT STDMETHODCALLTYPE FreeComponentInfo(PVSSCOMPONENTINFO info) override {
    // One that the fault plan makes fail has freed all the same: no caller can do more.
    const HRESULT result = info == nullptr ? S_OK : FreeInfo(info);
    return Call(machine(), "IVssWMComponent::FreeComponentInfo", NoArguments, [&] { return result; });
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
    return Call(machine(), "IVssWMComponent::GetDependency", OneNumber(index),
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
                                        VSS_SOURCE_TYPE* source) override;
  HRESULT STDMETHODCALLTYPE GetFileCounts(UINT* includeFiles, UINT* excludeFiles, UINT* components) override;
  HRESULT STDMETHODCALLTYPE GetIncludeFile(UINT index, IVssWMFiledesc** file) override {
    return GiveFile<const Writer>(sharedMachine(), "IVssExamineWriterMetadata::GetIncludeFile", writer_, nullptr, index,
                                  file);
  }
  HRESULT STDMETHODCALLTYPE GetExcludeFile(UINT index, IVssWMFiledesc** file) override {
    return GiveFile(sharedMachine(), "IVssExamineWriterMetadata::GetExcludeFile", writer_, &writer_->excludeFiles,
                    index, file);
  }
  HRESULT STDMETHODCALLTYPE GetComponent(UINT index, IVssWMComponent** component) override;
  HRESULT STDMETHODCALLTYPE GetRestoreMethod(VSS_RESTOREMETHOD_ENUM* method, BSTR* service, BSTR* userProcedure,
                                             VSS_WRITERRESTORE_ENUM* writerRestore, VssBool* rebootRequired,
                                             UINT* mappings) override;
  HRESULT STDMETHODCALLTYPE GetAlternateLocationMapping(UINT index, IVssWMFiledesc** file) override {
    return GiveFile<const Writer>(sharedMachine(), "IVssExamineWriterMetadata::GetAlternateLocationMapping", writer_,
                                  nullptr, index, file);
  }
  HRESULT STDMETHODCALLTYPE GetBackupSchema(DWORD* schemaMask) override;
  HRESULT STDMETHODCALLTYPE GetDocument(IXMLDOMDocument** document) override {
    Clear(document);
    return Call(machine(), "IVssExamineWriterMetadata::GetDocument", NoArguments, [] { return E_NOTIMPL; });
  }
  HRESULT STDMETHODCALLTYPE SaveAsXML(BSTR* xml) override;
  HRESULT STDMETHODCALLTYPE LoadFromXML(BSTR xml) override;

  HRESULT STDMETHODCALLTYPE GetIdentityEx(VSS_ID* instance, VSS_ID* writer, BSTR* name, BSTR* instanceName,
                                          VSS_USAGE_TYPE* usage, VSS_SOURCE_TYPE* source) override;

  HRESULT STDMETHODCALLTYPE GetVersion(DWORD* majorVersion, DWORD* minorVersion) override;
  HRESULT STDMETHODCALLTYPE GetExcludeFromSnapshotCount(UINT* count) override;
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

HRESULT WriterMetadata::GetIdentity(VSS_ID* instance, VSS_ID* writer, BSTR* name, VSS_USAGE_TYPE* usage,
                                    VSS_SOURCE_TYPE* source) {
  Clear(name);
  return Call(machine(), "IVssExamineWriterMetadata::GetIdentity", NoArguments,
              [&] { return GiveIdentity(instance, writer, name, usage, source); });
}

HRESULT WriterMetadata::GetIdentityEx(VSS_ID* instance, VSS_ID* writer, BSTR* name, BSTR* instanceName,
                                      VSS_USAGE_TYPE* usage, VSS_SOURCE_TYPE* source) {
  Clear(name);
  Clear(instanceName);
  return Call(machine(), "IVssExamineWriterMetadataEx::GetIdentityEx", NoArguments, [&] {
    if (instanceName == nullptr) return E_INVALIDARG;
    const HRESULT result = GiveIdentity(instance, writer, name, usage, source);
    if (SUCCEEDED(result)) GiveOptionalText(machine(), UnlessEmpty(writer_->instanceName), instanceName);
    return result;
  });
}

HRESULT WriterMetadata::GetFileCounts(UINT* includeFiles, UINT* excludeFiles, UINT* components) {
  return Call(machine(), "IVssExamineWriterMetadata::GetFileCounts", NoArguments, [&] {
    if (includeFiles == nullptr || excludeFiles == nullptr || components == nullptr) return E_INVALIDARG;
    *includeFiles = 0;
    *excludeFiles = static_cast<UINT>(writer_->excludeFiles.size());
    *components = static_cast<UINT>(writer_->components.size());
    return S_OK;
  });
}

HRESULT WriterMetadata::GetComponent(UINT index, IVssWMComponent** component) {
  Clear(component);
  return Call(machine(), "IVssExamineWriterMetadata::GetComponent", OneNumber(index), [&] {
    if (component == nullptr) return E_INVALIDARG;
    if (index >= writer_->components.size()) return VSS_E_OBJECT_NOT_FOUND;
    *component = new MetadataComponent(sharedMachine(),
                                       std::shared_ptr<const WriterComponent>(writer_, &writer_->components[index]));
    return S_OK;
  });
}

HRESULT WriterMetadata::GetRestoreMethod(VSS_RESTOREMETHOD_ENUM* method, BSTR* service, BSTR* userProcedure,
                                         VSS_WRITERRESTORE_ENUM* writerRestore, VssBool* rebootRequired,
                                         UINT* mappings) {
  Clear(service);
  Clear(userProcedure);
  return Call(machine(), "IVssExamineWriterMetadata::GetRestoreMethod", NoArguments, [&] {
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
    if (stopsService) GiveOptionalText(machine(), UnlessEmpty(restore.service), service);
    GiveOptionalText(machine(), UnlessEmpty(restore.userProcedure), userProcedure);
    return writer_->restoreMethod ? S_OK : S_FALSE;
  });
}

HRESULT WriterMetadata::GetBackupSchema(DWORD* schemaMask) {
  return Call(machine(), "IVssExamineWriterMetadata::GetBackupSchema", NoArguments, [&] {
    if (schemaMask == nullptr) return E_INVALIDARG;
    *schemaMask = writer_->backupSchema;
    return S_OK;
  });
}

HRESULT WriterMetadata::SaveAsXML(BSTR* xml) {
  Clear(xml);
  return Call(machine(), "IVssExamineWriterMetadata::SaveAsXML", NoArguments, [&] {
    if (xml == nullptr) return E_INVALIDARG;
    return GiveText(machine(), Utf8ToWideLossy(FormatWriterMetadata(*writer_)), xml);
  });
}

HRESULT WriterMetadata::LoadFromXML(BSTR xml) {
  const std::wstring_view text = xml == nullptr ? std::wstring_view() : std::wstring_view(xml, ::SysStringLen(xml));
  return Call(
      machine(), "IVssExamineWriterMetadata::LoadFromXML", [&] { return std::to_string(text.size()) + " characters"; },
      [&] {
        if (xml == nullptr) return E_INVALIDARG;
        try {
          writer_ = std::make_shared<const Writer>(ParseWriterMetadata(WideToUtf8Lossy(text)));
        } catch (const DocumentError&) {
          return VSS_E_INVALID_XML_DOCUMENT;
        }
        return S_OK;
      });
}

HRESULT WriterMetadata::GetVersion(DWORD* majorVersion, DWORD* minorVersion) {
  return Call(machine(), "IVssExamineWriterMetadataEx2::GetVersion", NoArguments, [&] {
    if (majorVersion == nullptr || minorVersion == nullptr) return E_INVALIDARG;
    *majorVersion = writer_->majorVersion;
    *minorVersion = writer_->minorVersion;
    return S_OK;
  });
}

HRESULT WriterMetadata::GetExcludeFromSnapshotCount(UINT* count) {
  return Call(machine(), "IVssExamineWriterMetadataEx2::GetExcludeFromSnapshotCount", NoArguments, [&] {
    if (count == nullptr) return E_INVALIDARG;
    *count = static_cast<UINT>(writer_->excludeFilesFromSnapshot.size());
    return S_OK;
  });
}

}  // namespace

IVssExamineWriterMetadataEx2* MakeWriterMetadata(std::shared_ptr<Machine> machine,
                                                 std::shared_ptr<const Writer> writer) {
  return new WriterMetadata(std::move(machine), std::move(writer));
}

}  // namespace varnel::simulator
