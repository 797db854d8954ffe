// The service of a simulated host for a program whose memory fails: what the service does is not under test, so nothing
// of it fails for want of memory, except the texts that it hands out.
#pragma once

#include <initializer_list>
#include <memory>
#include <utility>

#include "platform/owners.h"
#include "simulator/simulated_host.h"
#include "tests/faults/failing_memory.h"
#include "tests/support/forwarding_vss.h"

namespace varnel::test {

/// The texts that the service hands out. One of them can be lost: there was no memory for it.
class TextShortage {
 public:
  /// \param nth the text that is lost, from 1; 0: none. \param silently the call succeeds without it.
  TextShortage(int nth, bool silently) : nth_(nth), silently_(silently) {}
  bool Lose() { return ++count_ == nth_; }
  bool silently() const { return silently_; }
  int count() const { return count_; }
  bool Fired() const { return nth_ != 0 && count_ >= nth_; }

 private:
  int nth_;
  bool silently_;
  int count_ = 0;
};

/// What every object of the service needs.
struct Seam {
  MachinePtr machine;
  TextShortage* texts = nullptr;

  void Free(BSTR& text) const { machine->FreeBstr(std::exchange(text, nullptr)); }
  /// The texts that a call hands out, all or none.
  HRESULT Give(HRESULT result, std::initializer_list<BSTR*> given) const {
    if (FAILED(result)) return result;
    bool lost = false;
    for (BSTR* text : given) {
      if (*text == nullptr || !texts->Lose()) continue;
      Free(*text);
      lost = true;
    }
    if (!lost || texts->silently()) return result;
    for (BSTR* text : given) Free(*text);
    return E_OUTOFMEMORY;
  }
};

/// The object that a call hands out, wrapped.
template <class Wrapper, class Interface>
HRESULT Wrap(const Seam& seam, HRESULT result, Interface** object) {
  if (SUCCEEDED(result) && *object != nullptr) *object = new Wrapper(seam, ComPtr<Interface>::Attach(*object));
  return result;
}

/// What IUnknown asks for, outside.
template <class Base>
class Guarded : public Base {
 public:
  template <class Interface>
  Guarded(const Seam& seam, ComPtr<Interface> wrapped) : Base(std::move(wrapped)), seam_(seam) {}
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override {
    const memory::Outside outside;
    return Base::QueryInterface(id, object);
  }
  ULONG STDMETHODCALLTYPE Release() override {
    const memory::Outside outside;
    return Base::Release();
  }

 protected:
  const Seam& seam() const { return seam_; }

 private:
  Seam seam_;
};

class GuardedAsync final : public Guarded<ForwardingAsync> {
 public:
  using Guarded::Guarded;
  HRESULT STDMETHODCALLTYPE Cancel() override {
    const memory::Outside outside;
    return inner().Cancel();
  }
  HRESULT STDMETHODCALLTYPE Wait(DWORD milliseconds) override {
    const memory::Outside outside;
    return inner().Wait(milliseconds);
  }
  HRESULT STDMETHODCALLTYPE QueryStatus(HRESULT* result, INT* reserved) override {
    const memory::Outside outside;
    return inner().QueryStatus(result, reserved);
  }
};

class GuardedFile final : public Guarded<ForwardingFile> {
 public:
  using Guarded::Guarded;
  HRESULT STDMETHODCALLTYPE GetPath(BSTR* path) override {
    const memory::Outside outside;
    return seam().Give(inner().GetPath(path), {path});
  }
  HRESULT STDMETHODCALLTYPE GetFilespec(BSTR* filespec) override {
    const memory::Outside outside;
    return seam().Give(inner().GetFilespec(filespec), {filespec});
  }
  HRESULT STDMETHODCALLTYPE GetRecursive(VssBool* recursive) override {
    const memory::Outside outside;
    return inner().GetRecursive(recursive);
  }
  HRESULT STDMETHODCALLTYPE GetAlternateLocation(BSTR* location) override {
    const memory::Outside outside;
    return seam().Give(inner().GetAlternateLocation(location), {location});
  }
};

class GuardedComponent final : public Guarded<ForwardingComponent> {
 public:
  using Guarded::Guarded;
  HRESULT STDMETHODCALLTYPE GetComponentInfo(PVSSCOMPONENTINFO* info) override {
    const memory::Outside outside;
    const HRESULT result = inner().GetComponentInfo(info);
    if (FAILED(result) || *info == nullptr) return result;
    whole_ = *info;
    partial_ = *whole_;
    bool lost = false;
    for (BSTR* text : {&partial_.bstrLogicalPath, &partial_.bstrComponentName, &partial_.bstrCaption}) {
      if (*text == nullptr || !seam().texts->Lose()) continue;
      *text = nullptr;
      lost = true;
    }
    if (!lost) return result;
    if (seam().texts->silently()) {
      *info = &partial_;
      return result;
    }
    inner().FreeComponentInfo(std::exchange(*info, nullptr));
    return E_OUTOFMEMORY;
  }
  HRESULT STDMETHODCALLTYPE FreeComponentInfo(PVSSCOMPONENTINFO info) override {
    const memory::Outside outside;
    return inner().FreeComponentInfo(info == &partial_ ? whole_ : info);
  }
  HRESULT STDMETHODCALLTYPE GetFile(UINT index, IVssWMFiledesc** file) override {
    const memory::Outside outside;
    return Wrap<GuardedFile>(seam(), inner().GetFile(index, file), file);
  }
  HRESULT STDMETHODCALLTYPE GetDatabaseFile(UINT index, IVssWMFiledesc** file) override {
    const memory::Outside outside;
    return Wrap<GuardedFile>(seam(), inner().GetDatabaseFile(index, file), file);
  }
  HRESULT STDMETHODCALLTYPE GetDatabaseLogFile(UINT index, IVssWMFiledesc** file) override {
    const memory::Outside outside;
    return Wrap<GuardedFile>(seam(), inner().GetDatabaseLogFile(index, file), file);
  }

 private:
  PVSSCOMPONENTINFO whole_ = nullptr;
  VSS_COMPONENTINFO partial_{};
};

class GuardedMetadata final : public Guarded<ForwardingMetadata> {
 public:
  using Guarded::Guarded;
  HRESULT STDMETHODCALLTYPE GetIdentity(VSS_ID* instance, VSS_ID* writer, BSTR* name, VSS_USAGE_TYPE* usage,
                                        VSS_SOURCE_TYPE* source) override {
    const memory::Outside outside;
    return seam().Give(inner().GetIdentity(instance, writer, name, usage, source), {name});
  }
  HRESULT STDMETHODCALLTYPE GetFileCounts(UINT* includeFiles, UINT* excludeFiles, UINT* components) override {
    const memory::Outside outside;
    return inner().GetFileCounts(includeFiles, excludeFiles, components);
  }
  HRESULT STDMETHODCALLTYPE GetExcludeFile(UINT index, IVssWMFiledesc** file) override {
    const memory::Outside outside;
    return Wrap<GuardedFile>(seam(), inner().GetExcludeFile(index, file), file);
  }
  HRESULT STDMETHODCALLTYPE GetComponent(UINT index, IVssWMComponent** component) override {
    const memory::Outside outside;
    return Wrap<GuardedComponent>(seam(), inner().GetComponent(index, component), component);
  }
  HRESULT STDMETHODCALLTYPE GetRestoreMethod(VSS_RESTOREMETHOD_ENUM* method, BSTR* service, BSTR* userProcedure,
                                             VSS_WRITERRESTORE_ENUM* writerRestore, VssBool* rebootRequired,
                                             UINT* mappings) override {
    const memory::Outside outside;
    return seam().Give(
        inner().GetRestoreMethod(method, service, userProcedure, writerRestore, rebootRequired, mappings),
        {service, userProcedure});
  }
};

/// A component of the backup components document.
class GuardedDocumentComponent final : public DocumentComponentObject {
 public:
  GuardedDocumentComponent(const Seam& seam, const ComPtr<IVssComponent>& component)
      : DocumentComponentObject(seam.machine), seam_(seam) {
    QueryFor(component.Get(), kIidVssComponentEx2, component_);
  }
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override {
    const memory::Outside outside;
    return DocumentComponentObject::QueryInterface(id, object);
  }
  ULONG STDMETHODCALLTYPE Release() override {
    const memory::Outside outside;
    return DocumentComponentObject::Release();
  }
  HRESULT STDMETHODCALLTYPE GetLogicalPath(BSTR* path) override {
    const memory::Outside outside;
    return seam_.Give(component_->GetLogicalPath(path), {path});
  }
  HRESULT STDMETHODCALLTYPE GetComponentName(BSTR* name) override {
    const memory::Outside outside;
    return seam_.Give(component_->GetComponentName(name), {name});
  }
  HRESULT STDMETHODCALLTYPE GetFailure(HRESULT* failure, HRESULT* application, BSTR* message,
                                       DWORD* reserved) override {
    const memory::Outside outside;
    return seam_.Give(component_->GetFailure(failure, application, message, reserved), {message});
  }

 private:
  Seam seam_;
  ComPtr<IVssComponentEx2> component_;
};

class GuardedWriterComponents final : public Guarded<ForwardingWriterComponents> {
 public:
  using Guarded::Guarded;
  HRESULT STDMETHODCALLTYPE GetComponentCount(UINT* components) override {
    const memory::Outside outside;
    return inner().GetComponentCount(components);
  }
  HRESULT STDMETHODCALLTYPE GetWriterInfo(VSS_ID* instance, VSS_ID* writer) override {
    const memory::Outside outside;
    return inner().GetWriterInfo(instance, writer);
  }
  HRESULT STDMETHODCALLTYPE GetComponent(UINT index, IVssComponent** component) override {
    const memory::Outside outside;
    return Wrap<GuardedDocumentComponent>(seam(), inner().GetComponent(index, component), component);
  }
};

class GuardedBackup final : public Guarded<ForwardingBackup> {
 public:
  using Guarded::Guarded;
  HRESULT STDMETHODCALLTYPE GetWriterComponentsCount(UINT* components) override {
    const memory::Outside outside;
    return inner().GetWriterComponentsCount(components);
  }
  HRESULT STDMETHODCALLTYPE GetWriterComponents(UINT index, IVssWriterComponentsExt** writer) override {
    const memory::Outside outside;
    return Wrap<GuardedWriterComponents>(seam(), inner().GetWriterComponents(index, writer), writer);
  }
  HRESULT STDMETHODCALLTYPE InitializeForBackup(BSTR xml) override {
    const memory::Outside outside;
    return inner().InitializeForBackup(xml);
  }
  HRESULT STDMETHODCALLTYPE InitializeForRestore(BSTR xml) override {
    const memory::Outside outside;
    return inner().InitializeForRestore(xml);
  }
  HRESULT STDMETHODCALLTYPE SetBackupState(VssBool selectComponents, VssBool bootableSystemState, VSS_BACKUP_TYPE type,
                                           VssBool partialFiles) override {
    const memory::Outside outside;
    return inner().SetBackupState(selectComponents, bootableSystemState, type, partialFiles);
  }
  HRESULT STDMETHODCALLTYPE SetContext(LONG context) override {
    const memory::Outside outside;
    return inner().SetContext(context);
  }
  HRESULT STDMETHODCALLTYPE GatherWriterMetadata(IVssAsync** async) override {
    const memory::Outside outside;
    return Wrap<GuardedAsync>(seam(), inner().GatherWriterMetadata(async), async);
  }
  HRESULT STDMETHODCALLTYPE GetWriterMetadataCount(UINT* writers) override {
    const memory::Outside outside;
    return inner().GetWriterMetadataCount(writers);
  }
  HRESULT STDMETHODCALLTYPE GetWriterMetadata(UINT index, VSS_ID* instance,
                                              IVssExamineWriterMetadata** metadata) override {
    const memory::Outside outside;
    return Wrap<GuardedMetadata>(seam(), inner().GetWriterMetadata(index, instance, metadata), metadata);
  }
  HRESULT STDMETHODCALLTYPE FreeWriterMetadata() override {
    const memory::Outside outside;
    return inner().FreeWriterMetadata();
  }
  HRESULT STDMETHODCALLTYPE AddComponent(VSS_ID instance, VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR logicalPath,
                                         LPCWSTR name) override {
    const memory::Outside outside;
    return inner().AddComponent(instance, writer, type, logicalPath, name);
  }
  HRESULT STDMETHODCALLTYPE StartSnapshotSet(VSS_ID* setId) override {
    const memory::Outside outside;
    return inner().StartSnapshotSet(setId);
  }
  HRESULT STDMETHODCALLTYPE AddToSnapshotSet(VSS_PWSZ volume, VSS_ID provider, VSS_ID* snapshot) override {
    const memory::Outside outside;
    return inner().AddToSnapshotSet(volume, provider, snapshot);
  }
  HRESULT STDMETHODCALLTYPE PrepareForBackup(IVssAsync** async) override {
    const memory::Outside outside;
    return Wrap<GuardedAsync>(seam(), inner().PrepareForBackup(async), async);
  }
  HRESULT STDMETHODCALLTYPE AbortBackup() override {
    const memory::Outside outside;
    return inner().AbortBackup();
  }
  HRESULT STDMETHODCALLTYPE GatherWriterStatus(IVssAsync** async) override {
    const memory::Outside outside;
    return Wrap<GuardedAsync>(seam(), inner().GatherWriterStatus(async), async);
  }
  HRESULT STDMETHODCALLTYPE GetWriterStatusCount(UINT* writers) override {
    const memory::Outside outside;
    return inner().GetWriterStatusCount(writers);
  }
  HRESULT STDMETHODCALLTYPE GetWriterStatusEx(UINT index, VSS_ID* instance, VSS_ID* writer, BSTR* name,
                                              VSS_WRITER_STATE* state, HRESULT* failure, HRESULT* application,
                                              BSTR* message) override {
    const memory::Outside outside;
    return seam().Give(
        ForwardingBackup::GetWriterStatusEx(index, instance, writer, name, state, failure, application, message),
        {name, message});
  }
  HRESULT STDMETHODCALLTYPE FreeWriterStatus() override {
    const memory::Outside outside;
    return inner().FreeWriterStatus();
  }
  HRESULT STDMETHODCALLTYPE DoSnapshotSet(IVssAsync** async) override {
    const memory::Outside outside;
    return Wrap<GuardedAsync>(seam(), inner().DoSnapshotSet(async), async);
  }
  HRESULT STDMETHODCALLTYPE SaveAsXML(BSTR* xml) override {
    const memory::Outside outside;
    return seam().Give(inner().SaveAsXML(xml), {xml});
  }
  HRESULT STDMETHODCALLTYPE GetSnapshotProperties(VSS_ID snapshot, VSS_SNAPSHOT_PROP* properties) override {
    const memory::Outside outside;
    return inner().GetSnapshotProperties(snapshot, properties);
  }
  HRESULT STDMETHODCALLTYPE SetBackupSucceeded(VSS_ID instance, VSS_ID writer, VSS_COMPONENT_TYPE type,
                                               LPCWSTR logicalPath, LPCWSTR name, VssBool succeeded) override {
    const memory::Outside outside;
    return inner().SetBackupSucceeded(instance, writer, type, logicalPath, name, succeeded);
  }
  HRESULT STDMETHODCALLTYPE BackupComplete(IVssAsync** async) override {
    const memory::Outside outside;
    return Wrap<GuardedAsync>(seam(), inner().BackupComplete(async), async);
  }
  HRESULT STDMETHODCALLTYPE DeleteSnapshots(VSS_ID source, VSS_OBJECT_TYPE type, BOOL force, LONG* deleted,
                                            VSS_ID* notDeleted) override {
    const memory::Outside outside;
    return inner().DeleteSnapshots(source, type, force, deleted, notDeleted);
  }
  HRESULT STDMETHODCALLTYPE BreakSnapshotSet(VSS_ID set) override {
    const memory::Outside outside;
    return inner().BreakSnapshotSet(set);
  }
  HRESULT STDMETHODCALLTYPE BreakSnapshotSetEx(VSS_ID set, DWORD flags, IVssAsync** async) override {
    const memory::Outside outside;
    return Wrap<GuardedAsync>(seam(), ForwardingBackup::BreakSnapshotSetEx(set, flags, async), async);
  }
};

class GuardedEnumerator final : public Guarded<ForwardingObject<IVssEnumObject, IVssEnumObject>> {
 public:
  using Guarded::Guarded;
  HRESULT STDMETHODCALLTYPE Next(ULONG count, VSS_OBJECT_PROP* objects, ULONG* fetched) override {
    const memory::Outside outside;
    return inner().Next(count, objects, fetched);
  }
  HRESULT STDMETHODCALLTYPE Skip(ULONG count) override {
    const memory::Outside outside;
    return inner().Skip(count);
  }
  HRESULT STDMETHODCALLTYPE Reset() override {
    const memory::Outside outside;
    return inner().Reset();
  }
  HRESULT STDMETHODCALLTYPE Clone(IVssEnumObject** enumerator) override {
    const memory::Outside outside;
    return Wrap<GuardedEnumerator>(seam(), inner().Clone(enumerator), enumerator);
  }
};

class GuardedAdmin final : public Guarded<ForwardingObject<IVssAdmin, IVssAdmin>> {
 public:
  using Guarded::Guarded;
  HRESULT STDMETHODCALLTYPE RegisterProvider(VSS_ID, CLSID, VSS_PWSZ, VSS_PROVIDER_TYPE, VSS_PWSZ, VSS_ID) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE UnregisterProvider(VSS_ID) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE QueryProviders(IVssEnumObject** providers) override {
    const memory::Outside outside;
    return Wrap<GuardedEnumerator>(seam(), inner().QueryProviders(providers), providers);
  }
  HRESULT STDMETHODCALLTYPE AbortAllSnapshotsInProgress() override { return E_NOTIMPL; }
};

class GuardedService final : public ForwardingVss {
 public:
  GuardedService(simulator::SimulatedHost& host, TextShortage& texts)
      : ForwardingVss(host.vss()), host_(host), seam_{host.machine().shared_from_this(), &texts} {}
  HRESULT CreateVssBackupComponents(IVssBackupComponents** backup) override {
    const memory::Outside outside;
    return ForwardingVss::CreateVssBackupComponents(backup);
  }
  HRESULT CoCreateInstance(REFCLSID classId, IUnknown* outer, DWORD context, REFIID interfaceId,
                           void** object) override {
    const memory::Outside outside;
    IVssAdmin* admin = nullptr;
    void* made = nullptr;
    HRESULT result = host_.vss().CoCreateInstance(classId, outer, context, interfaceId, &made);
    admin = static_cast<IVssAdmin*>(made);
    result = test::Wrap<GuardedAdmin>(seam_, result, &admin);
    *object = admin;
    return result;
  }
  void VssFreeSnapshotProperties(VSS_SNAPSHOT_PROP* properties) override {
    const memory::Outside outside;
    ForwardingVss::VssFreeSnapshotProperties(properties);
  }
  BSTR SysAllocStringLen(const wchar_t* text, UINT length) override {
    const memory::Outside outside;
    return ForwardingVss::SysAllocStringLen(text, length);
  }
  void SysFreeString(BSTR text) override {
    const memory::Outside outside;
    ForwardingVss::SysFreeString(text);
  }
  void CoTaskMemFree(void* block) override {
    const memory::Outside outside;
    ForwardingVss::CoTaskMemFree(block);
  }

 private:
  IVssBackupComponents* Wrap(ComPtr<IVssBackupComponents> backup) override {
    return new GuardedBackup(seam_, std::move(backup));
  }

  simulator::SimulatedHost& host_;
  Seam seam_;
};

}  // namespace varnel::test
