// Objects of tests between a requestor and the Volume Shadow Copy service of a simulated host: they replace answers
// that no host file can describe.
#pragma once

#include <memory>
#include <utility>

#include "platform/forwarding_vss.h"
#include "simulator/machine/counted_object.h"
#include "tests/support/forwarding_host.h"

namespace varnel::test {

using MachinePtr = std::shared_ptr<simulator::Machine>;

/// A forwarding class for a test that hands out texts of the simulated host, too.
template <class Forwarding>
class OnMachine : public Forwarding {
 public:
  template <class Wrapped>
  OnMachine(MachinePtr machine, ComPtr<Wrapped> wrapped)
      : Forwarding(std::move(wrapped)), machine_(std::move(machine)) {}

 protected:
  simulator::Machine& machine() const { return *machine_; }
  const MachinePtr& sharedMachine() const { return machine_; }

 private:
  MachinePtr machine_;
};

/// A component of the backup components document as a requestor looks at it: only its names and its failure. Everything
/// else is not implemented.
class DocumentComponentObject : public IVssComponentEx2, protected simulator::CountedObject {
 public:
  explicit DocumentComponentObject(MachinePtr machine) : CountedObject(std::move(machine), "IVssComponent of a test") {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override {
    *object = nullptr;
    const bool known =
        id == kIidUnknown || id == kIidVssComponent || id == kIidVssComponentEx || id == kIidVssComponentEx2;
    if (!known) return E_NOINTERFACE;
    Retain();
    *object = static_cast<IVssComponentEx2*>(this);
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return Retain(); }
  ULONG STDMETHODCALLTYPE Release() override { return Drop(); }

  HRESULT STDMETHODCALLTYPE GetComponentType(VSS_COMPONENT_TYPE*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetBackupSucceeded(VssBool*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetAlternateLocationMappingCount(UINT*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetAlternateLocationMapping(UINT, IVssWMFiledesc**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SetBackupMetadata(LPCWSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetBackupMetadata(BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE AddPartialFile(LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetPartialFileCount(UINT*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetPartialFile(UINT, BSTR*, BSTR*, BSTR*, BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE IsSelectedForRestore(VssBool*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetAdditionalRestores(VssBool*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetNewTargetCount(UINT*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetNewTarget(UINT, IVssWMFiledesc**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE AddDirectedTarget(LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE GetDirectedTargetCount(UINT*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetDirectedTarget(UINT, BSTR*, BSTR*, BSTR*, BSTR*, BSTR*, BSTR*) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE SetRestoreMetadata(LPCWSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetRestoreMetadata(BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SetRestoreTarget(VSS_RESTORE_TARGET) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetRestoreTarget(VSS_RESTORE_TARGET*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SetPreRestoreFailureMsg(LPCWSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetPreRestoreFailureMsg(BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SetPostRestoreFailureMsg(LPCWSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetPostRestoreFailureMsg(BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SetBackupStamp(LPCWSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetBackupStamp(BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetPreviousBackupStamp(BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetBackupOptions(BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetRestoreOptions(BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetRestoreSubcomponentCount(UINT*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetRestoreSubcomponent(UINT, BSTR*, BSTR*, VssBool*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetFileRestoreStatus(VSS_FILE_RESTORE_STATUS*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE AddDifferencedFilesByLastModifyTime(LPCWSTR, LPCWSTR, BOOL, FILETIME) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE AddDifferencedFilesByLastModifyLSN(LPCWSTR, LPCWSTR, BOOL, BSTR) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE GetDifferencedFilesCount(UINT*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetDifferencedFile(UINT, BSTR*, BSTR*, BOOL*, BSTR*, FILETIME*) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE SetPrepareForBackupFailureMsg(LPCWSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SetPostSnapshotFailureMsg(LPCWSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetPrepareForBackupFailureMsg(BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetPostSnapshotFailureMsg(BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetAuthoritativeRestore(VssBool*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetRollForward(VSS_ROLLFORWARD_TYPE*, BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetRestoreName(BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SetFailure(HRESULT, HRESULT, LPCWSTR, DWORD) override { return E_NOTIMPL; }
};

/// A host with another service.
using HostWithService = HostWith;

}  // namespace varnel::test
