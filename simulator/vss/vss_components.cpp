#include "simulator/vss/vss_components.h"

#include "simulator/vss/com_object.h"
#include "simulator/vss/vss_metadata.h"

namespace varnel::simulator {
namespace {

constexpr GUID kComponentInterfaces[] = {kIidVssComponent, kIidVssComponentEx, kIidVssComponentEx2};

// A component as a requestor sees it: what only writers may set is refused.
class Component final : public ComObject<IVssComponentEx2> {
 public:
  Component(std::shared_ptr<Machine> machine, std::shared_ptr<const SharedDocument> document, std::size_t writer,
            std::size_t index)
      : ComObject(std::move(machine), "IVssComponent", kComponentInterfaces),
        document_(std::move(document)),
        writer_(writer),
        index_(index) {}

  HRESULT STDMETHODCALLTYPE GetLogicalPath(BSTR* path) override {
    return Text("IVssComponent::GetLogicalPath", component().logicalPath, path);
  }
  HRESULT STDMETHODCALLTYPE GetComponentType(VSS_COMPONENT_TYPE* type) override {
    return Give("IVssComponent::GetComponentType", component().type, type);
  }
  HRESULT STDMETHODCALLTYPE GetComponentName(BSTR* name) override {
    return Text("IVssComponent::GetComponentName", component().name, name);
  }
  HRESULT STDMETHODCALLTYPE GetBackupSucceeded(VssBool* succeeded) override {
    const bool known = component().succeeded.has_value();
    return Give("IVssComponent::GetBackupSucceeded", component().succeeded.value_or(false), succeeded,
                known ? S_OK : S_FALSE);
  }
  HRESULT STDMETHODCALLTYPE GetAlternateLocationMappingCount(UINT* mappings) override {
    return Give("IVssComponent::GetAlternateLocationMappingCount", restore().alternateLocations.size(), mappings);
  }
  HRESULT STDMETHODCALLTYPE GetAlternateLocationMapping(UINT index, IVssWMFiledesc** file) override {
    return GiveTarget("IVssComponent::GetAlternateLocationMapping", restore().alternateLocations, index, file);
  }
  HRESULT STDMETHODCALLTYPE SetBackupMetadata(LPCWSTR) override { return OnlyWriters("::SetBackupMetadata"); }
  HRESULT STDMETHODCALLTYPE GetBackupMetadata(BSTR* data) override {
    return Text("IVssComponent::GetBackupMetadata", component().backupMetadata, data);
  }
  HRESULT STDMETHODCALLTYPE AddPartialFile(LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR) override {
    return OnlyWriters("::AddPartialFile");
  }
  HRESULT STDMETHODCALLTYPE GetPartialFileCount(UINT* partialFiles) override {
    return Give("IVssComponent::GetPartialFileCount", 0U, partialFiles);
  }
  HRESULT STDMETHODCALLTYPE GetPartialFile(UINT index, BSTR* path, BSTR* filename, BSTR* range,
                                           BSTR* metadata) override {
    return NoEntry("IVssComponent::GetPartialFile", index, path, filename, range, metadata);
  }
  HRESULT STDMETHODCALLTYPE IsSelectedForRestore(VssBool* selectedForRestore) override {
    return Give("IVssComponent::IsSelectedForRestore", restore().selected, selectedForRestore);
  }
  HRESULT STDMETHODCALLTYPE GetAdditionalRestores(VssBool* additionalRestores) override {
    return Give("IVssComponent::GetAdditionalRestores", restore().additionalRestores, additionalRestores);
  }
  HRESULT STDMETHODCALLTYPE GetNewTargetCount(UINT* newTargets) override {
    return Give("IVssComponent::GetNewTargetCount", restore().newTargets.size(), newTargets);
  }
  HRESULT STDMETHODCALLTYPE GetNewTarget(UINT index, IVssWMFiledesc** file) override {
    return GiveTarget("IVssComponent::GetNewTarget", restore().newTargets, index, file);
  }
  HRESULT STDMETHODCALLTYPE AddDirectedTarget(LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR) override {
    return OnlyWriters("::AddDirectedTarget");
  }
  HRESULT STDMETHODCALLTYPE GetDirectedTargetCount(UINT* directedTargets) override {
    return Give("IVssComponent::GetDirectedTargetCount", 0U, directedTargets);
  }
  HRESULT STDMETHODCALLTYPE GetDirectedTarget(UINT index, BSTR* sourcePath, BSTR* sourceFileName, BSTR* sourceRangeList,
                                              BSTR* destinationPath, BSTR* destinationFilename,
                                              BSTR* destinationRangeList) override {
    return NoEntry("IVssComponent::GetDirectedTarget", index, sourcePath, sourceFileName, sourceRangeList,
                   destinationPath, destinationFilename, destinationRangeList);
  }
  HRESULT STDMETHODCALLTYPE SetRestoreMetadata(LPCWSTR) override { return OnlyWriters("::SetRestoreMetadata"); }
  HRESULT STDMETHODCALLTYPE GetRestoreMetadata(BSTR* metadata) override {
    return Text("IVssComponent::GetRestoreMetadata", std::nullopt, metadata);
  }
  HRESULT STDMETHODCALLTYPE SetRestoreTarget(VSS_RESTORE_TARGET) override { return OnlyWriters("::SetRestoreTarget"); }
  HRESULT STDMETHODCALLTYPE GetRestoreTarget(VSS_RESTORE_TARGET* target) override {
    return Give("IVssComponent::GetRestoreTarget", VSS_RT_UNDEFINED, target);
  }
  HRESULT STDMETHODCALLTYPE SetPreRestoreFailureMsg(LPCWSTR) override {
    return OnlyWriters("::SetPreRestoreFailureMsg");
  }
  HRESULT STDMETHODCALLTYPE GetPreRestoreFailureMsg(BSTR* message) override {
    return Text("IVssComponent::GetPreRestoreFailureMsg", restore().preRestoreFailure, message);
  }
  HRESULT STDMETHODCALLTYPE SetPostRestoreFailureMsg(LPCWSTR) override {
    return OnlyWriters("::SetPostRestoreFailureMsg");
  }
  HRESULT STDMETHODCALLTYPE GetPostRestoreFailureMsg(BSTR* message) override {
    return Text("IVssComponent::GetPostRestoreFailureMsg", restore().postRestoreFailure, message);
  }
  HRESULT STDMETHODCALLTYPE SetBackupStamp(LPCWSTR) override { return OnlyWriters("::SetBackupStamp"); }
  HRESULT STDMETHODCALLTYPE GetBackupStamp(BSTR* stamp) override {
    return Text("IVssComponent::GetBackupStamp", component().backupStamp, stamp);
  }
  HRESULT STDMETHODCALLTYPE GetPreviousBackupStamp(BSTR* stamp) override {
    return Text("IVssComponent::GetPreviousBackupStamp", component().previousBackupStamp, stamp);
  }
  HRESULT STDMETHODCALLTYPE GetBackupOptions(BSTR* options) override {
    return Text("IVssComponent::GetBackupOptions", component().backupOptions, options);
  }
  HRESULT STDMETHODCALLTYPE GetRestoreOptions(BSTR* options) override {
    return Text("IVssComponent::GetRestoreOptions", component().restoreOptions, options);
  }
  HRESULT STDMETHODCALLTYPE GetRestoreSubcomponentCount(UINT* subcomponents) override {
    return Give("IVssComponent::GetRestoreSubcomponentCount", restore().subcomponents.size(), subcomponents);
  }
  HRESULT STDMETHODCALLTYPE GetRestoreSubcomponent(UINT index, BSTR* logicalPath, BSTR* componentName,
                                                   VssBool* repair) override {
    Clear(logicalPath);
    Clear(componentName);
    return Call("IVssComponent::GetRestoreSubcomponent", Arguments(index), [&] {
      if (logicalPath == nullptr || componentName == nullptr || repair == nullptr) return E_INVALIDARG;
      if (index >= restore().subcomponents.size()) return VSS_E_OBJECT_NOT_FOUND;
      const RestoreSubcomponent& part = restore().subcomponents[index];
      GiveText(machine(), part.logicalPath, logicalPath);
      *repair = false;
      return GiveText(machine(), part.name, componentName);
    });
  }
  HRESULT STDMETHODCALLTYPE GetFileRestoreStatus(VSS_FILE_RESTORE_STATUS* status) override {
    return Give("IVssComponent::GetFileRestoreStatus", restore().fileStatus, status);
  }
  HRESULT STDMETHODCALLTYPE AddDifferencedFilesByLastModifyTime(LPCWSTR, LPCWSTR, BOOL, FILETIME) override {
    return OnlyWriters("::AddDifferencedFilesByLastModifyTime");
  }
  HRESULT STDMETHODCALLTYPE AddDifferencedFilesByLastModifyLSN(LPCWSTR, LPCWSTR, BOOL, BSTR) override {
    return OnlyWriters("::AddDifferencedFilesByLastModifyLSN");
  }
  HRESULT STDMETHODCALLTYPE GetDifferencedFilesCount(UINT* differencedFiles) override {
    return Give("IVssComponent::GetDifferencedFilesCount", 0U, differencedFiles);
  }
  HRESULT STDMETHODCALLTYPE GetDifferencedFile(UINT index, BSTR* path, BSTR* filespec, BOOL*, BSTR* lsn,
                                               FILETIME*) override {
    return NoEntry("IVssComponent::GetDifferencedFile", index, path, filespec, lsn);
  }

  HRESULT STDMETHODCALLTYPE SetPrepareForBackupFailureMsg(LPCWSTR) override {
    return OnlyWriters("Ex::SetPrepareForBackupFailureMsg");
  }
  HRESULT STDMETHODCALLTYPE SetPostSnapshotFailureMsg(LPCWSTR) override {
    return OnlyWriters("Ex::SetPostSnapshotFailureMsg");
  }
  HRESULT STDMETHODCALLTYPE GetPrepareForBackupFailureMsg(BSTR* message) override {
    return Text("IVssComponentEx::GetPrepareForBackupFailureMsg", component().prepareForBackupFailure, message);
  }
  HRESULT STDMETHODCALLTYPE GetPostSnapshotFailureMsg(BSTR* message) override {
    return Text("IVssComponentEx::GetPostSnapshotFailureMsg", component().postSnapshotFailure, message);
  }
  HRESULT STDMETHODCALLTYPE GetAuthoritativeRestore(VssBool* authoritative) override {
    return Give("IVssComponentEx::GetAuthoritativeRestore", false, authoritative);
  }
  HRESULT STDMETHODCALLTYPE GetRollForward(VSS_ROLLFORWARD_TYPE* type, BSTR* point) override {
    Clear(point);
    return Give("IVssComponentEx::GetRollForward", VSS_RF_UNDEFINED, type);
  }
  HRESULT STDMETHODCALLTYPE GetRestoreName(BSTR* name) override {
    return Text("IVssComponentEx::GetRestoreName", std::nullopt, name);
  }

  HRESULT STDMETHODCALLTYPE SetFailure(HRESULT, HRESULT, LPCWSTR, DWORD) override {
    return OnlyWriters("Ex2::SetFailure");
  }
  HRESULT STDMETHODCALLTYPE GetFailure(HRESULT* failure, HRESULT* applicationResult, BSTR* applicationMessage,
                                       DWORD* reserved) override {
    Clear(applicationMessage);
    return Call(
        "IVssComponentEx2::GetFailure",
        [&] {
          return "-> " + ArgumentList(ResultName(component().failure), ResultName(component().applicationResult));
        },
        [&] {
          if (failure == nullptr || applicationResult == nullptr || applicationMessage == nullptr ||
              reserved == nullptr) {
            return E_INVALIDARG;
          }
          *failure = component().failure;
          *applicationResult = component().applicationResult;
          *reserved = 0;
          const HRESULT given = GiveText(machine(), component().applicationMessage, applicationMessage);
          return FAILED(given) ? given : S_OK;
        });
  }

 private:
  ~Component() override = default;

  const DocumentComponent& component() const { return document_->content.writers[writer_].components[index_]; }

  const ComponentRestore& restore() const { return component().restore; }

  HRESULT GiveTarget(std::string_view call, const std::vector<FileSpec>& targets, UINT index, IVssWMFiledesc** file) {
    Clear(file);
    return Call(call, Arguments(index), [&] {
      if (file == nullptr) return E_INVALIDARG;
      if (index >= targets.size()) return VSS_E_OBJECT_NOT_FOUND;
      // A copy: more targets may come.
      *file = MakeFileDescriptor(sharedMachine(), std::make_shared<const FileSpec>(targets[index]));
      return S_OK;
    });
  }

  template <class... Outputs>
  HRESULT NoEntry(std::string_view call, UINT index, Outputs**... outputs) {
    (Clear(outputs), ...);
    return Call(call, Arguments(index), [] { return VSS_E_OBJECT_NOT_FOUND; });
  }

  HRESULT OnlyWriters(const char* method) { return Refuse(VSS_E_BAD_STATE, method); }

  std::shared_ptr<const SharedDocument> document_;
  std::size_t writer_;
  std::size_t index_;
};

class WriterComponents final : public ComObject<IVssWriterComponentsExt> {
 public:
  WriterComponents(std::shared_ptr<Machine> machine, std::shared_ptr<const SharedDocument> document, std::size_t index)
      : ComObject(std::move(machine), "IVssWriterComponentsExt", {}),
        document_(std::move(document)),
        phase_(document_->phase),
        index_(index) {}

  HRESULT STDMETHODCALLTYPE GetComponentCount(UINT* components) override {
    return Call("IVssWriterComponents::GetComponentCount", NoArguments, [&] {
      if (components == nullptr) return E_INVALIDARG;
      if (IsStale()) return VSS_E_BAD_STATE;
      *components = static_cast<UINT>(writer().components.size());
      return S_OK;
    });
  }

  HRESULT STDMETHODCALLTYPE GetWriterInfo(VSS_ID* instance, VSS_ID* writerId) override {
    return Call("IVssWriterComponents::GetWriterInfo", NoArguments, [&] {
      if (instance == nullptr || writerId == nullptr) return E_INVALIDARG;
      if (IsStale()) return VSS_E_BAD_STATE;
      *instance = writer().instanceId;
      *writerId = writer().writerId;
      return S_OK;
    });
  }

  HRESULT STDMETHODCALLTYPE GetComponent(UINT index, IVssComponent** component) override {
    Clear(component);
    return Call("IVssWriterComponents::GetComponent", Arguments(index), [&] {
      if (component == nullptr) return E_INVALIDARG;
      if (IsStale()) return VSS_E_BAD_STATE;
      if (index >= writer().components.size()) return VSS_E_OBJECT_NOT_FOUND;
      *component = new Component(sharedMachine(), document_, index_, index);
      return S_OK;
    });
  }

 private:
  ~WriterComponents() override = default;

  bool IsStale() const { return document_->phase != phase_; }
  const DocumentWriter& writer() const { return document_->content.writers[index_]; }

  std::shared_ptr<const SharedDocument> document_;
  unsigned phase_;
  std::size_t index_;
};

}  // namespace

IVssWriterComponentsExt* MakeWriterComponents(std::shared_ptr<Machine> machine,
                                              std::shared_ptr<const SharedDocument> document, std::size_t index) {
  return new WriterComponents(std::move(machine), std::move(document), index);
}

}  // namespace varnel::simulator
