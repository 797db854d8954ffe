// The service's library over the simulated host of the process. vssapi.def gives the functions the SDK's names.
#include "platform/vss.h"
#include "simulator/dropin/process_host.h"
#include "simulator/services/requestor_functions.h"
#include "simulator/simulated_host.h"

namespace varnel::simulator {
namespace {

// What `body` answers on the host of the process.
template <class Body>
HRESULT OnHost(Body&& body) {
  Host* host = nullptr;
  const HRESULT hr = ProcessHost(&host);
  return FAILED(hr) ? hr : body(static_cast<SimulatedHost&>(*host));
}

// The coordinator's class object, one for the whole process and not counted.
class CoordinatorClass final : public IClassFactory {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override {
    if (object == nullptr) return E_POINTER;
    const bool known = id == kIidUnknown || id == IID_IClassFactory;
    *object = known ? static_cast<IClassFactory*>(this) : nullptr;
    return known ? S_OK : E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID id, void** object) override {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    return OnHost([&](SimulatedHost& host) {
      return host.vss().CoCreateInstance(kClsidVssCoordinator, outer, CLSCTX_INPROC_SERVER, id, object);
    });
  }
  HRESULT STDMETHODCALLTYPE LockServer(BOOL /*lock*/) override { return S_OK; }
};

}  // namespace
}  // namespace varnel::simulator

using varnel::simulator::OnHost;
using varnel::simulator::SimulatedHost;

extern "C" {

HRESULT STDAPICALLTYPE SimulatedCreateBackupComponents(IVssBackupComponents** backup) {
  if (backup != nullptr) *backup = nullptr;
  return OnHost([&](SimulatedHost& host) { return host.vss().CreateVssBackupComponents(backup); });
}

void STDAPICALLTYPE SimulatedFreeSnapshotProperties(VSS_SNAPSHOT_PROP* properties) {
  OnHost([&](SimulatedHost& host) {
    host.vss().VssFreeSnapshotProperties(properties);
    return S_OK;
  });
}

HRESULT STDAPICALLTYPE SimulatedExamineWriterMetadata(BSTR xml, IVssExamineWriterMetadata** metadata) {
  if (metadata != nullptr) *metadata = nullptr;
  return OnHost([&](SimulatedHost& host) { return CreateVssExamineWriterMetadata(host.machine(), xml, metadata); });
}

HRESULT STDAPICALLTYPE SimulatedIsVolumeSnapshotted(VSS_PWSZ volume, BOOL* present, LONG* capability) {
  return OnHost([&](SimulatedHost& host) { return IsVolumeSnapshotted(host.machine(), volume, present, capability); });
}

HRESULT STDAPICALLTYPE SimulatedShouldBlockRevert(LPCWSTR volume, VssBool* block) {
  return OnHost([&](SimulatedHost& host) { return ShouldBlockRevert(host.machine(), volume, block); });
}

// Providers of a simulated host have no management interfaces.
HRESULT STDAPICALLTYPE SimulatedProviderManagement(VSS_ID /*provider*/, IID /*id*/, IUnknown** object) {
  if (object != nullptr) *object = nullptr;
  return E_NOTIMPL;
}

HRESULT STDAPICALLTYPE SimulatedGetClassObject(REFCLSID classId, REFIID id, void** object) {
  static varnel::simulator::CoordinatorClass coordinator;
  if (object == nullptr) return E_POINTER;
  *object = nullptr;
  return classId == varnel::kClsidVssCoordinator ? coordinator.QueryInterface(id, object) : CLASS_E_CLASSNOTAVAILABLE;
}

HRESULT STDAPICALLTYPE SimulatedHostOfProcess(varnel::Host** host) {
  return varnel::simulator::ProcessHost(host);
}

}  // extern "C"
