// The service's library over the simulated host of the process. vssapi.def gives the functions the SDK's names.
#include "platform/vss.h"
#include "simulator/dropin/process_host.h"

namespace varnel::simulator {
namespace {

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
    Host* host = nullptr;
    const HRESULT hr = ProcessHost(&host);
    if (FAILED(hr)) return hr;
    return host->vss().CoCreateInstance(kClsidVssCoordinator, outer, CLSCTX_INPROC_SERVER, id, object);
  }
  HRESULT STDMETHODCALLTYPE LockServer(BOOL /*lock*/) override { return S_OK; }
};

}  // namespace
}  // namespace varnel::simulator

extern "C" {

HRESULT STDAPICALLTYPE SimulatedCreateBackupComponents(IVssBackupComponents** backup) {
  if (backup != nullptr) *backup = nullptr;
  varnel::Host* host = nullptr;
  const HRESULT hr = varnel::simulator::ProcessHost(&host);
  return FAILED(hr) ? hr : host->vss().CreateVssBackupComponents(backup);
}

void STDAPICALLTYPE SimulatedFreeSnapshotProperties(VSS_SNAPSHOT_PROP* properties) {
  varnel::Host* host = nullptr;
  if (SUCCEEDED(varnel::simulator::ProcessHost(&host))) host->vss().VssFreeSnapshotProperties(properties);
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
