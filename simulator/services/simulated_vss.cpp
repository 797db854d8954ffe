#include "simulator/services/simulated_vss.h"

#include <utility>

#include "simulator/machine/win32_codes.h"
#include "simulator/services/on_machine.h"
#include "simulator/services/simulated_service_manager.h"
#include "simulator/vss/com_object.h"
#include "simulator/vss/vss_backup.h"
#include "simulator/vss/vss_enum.h"

namespace varnel::simulator {
namespace {

constexpr HRESULT kNoAggregation = static_cast<HRESULT>(0x80040110);  // CLASS_E_NOAGGREGATION

class SimulatedVss final : public OnMachine<VssService> {
 public:
  explicit SimulatedVss(std::shared_ptr<Machine> machine) : OnMachine(*machine), shared_(std::move(machine)) {}

  HRESULT CreateVssBackupComponents(IVssBackupComponents** backup) override {
    Clear(backup);
    return Call(machine_, "CreateVssBackupComponents", NoArguments, [&]() -> HRESULT {
      if (backup == nullptr) return E_INVALIDARG;
      if (const HRESULT refused = Refused(); FAILED(refused)) return refused;
      *backup = MakeBackupComponents(shared_);
      return S_OK;
    });
  }

  HRESULT CoCreateInstance(REFCLSID classId, IUnknown* outer, DWORD context, REFIID interfaceId,
                           void** object) override {
    Clear(object);
    machine_.KeepArguments(&CallArguments::coCreateInstance, {classId, context, interfaceId});
    return Call(machine_, "CoCreateInstance", Arguments(classId, context, interfaceId), [&]() -> HRESULT {
      if (object == nullptr) return E_POINTER;
      if (classId != kClsidVssCoordinator) return REGDB_E_CLASSNOTREG;
      if (outer != nullptr) return kNoAggregation;
      if (interfaceId != kIidVssAdmin && interfaceId != kIidUnknown) return E_NOINTERFACE;
      if (const HRESULT refused = Refused(); FAILED(refused)) return refused;
      *object = MakeAdmin(shared_);
      return S_OK;
    });
  }

  void VssFreeSnapshotProperties(VSS_SNAPSHOT_PROP* properties) override {
    if (properties == nullptr) return;
    for (VSS_PWSZ* text : {&properties->m_pwszSnapshotDeviceObject, &properties->m_pwszOriginalVolumeName,
                           &properties->m_pwszOriginatingMachine, &properties->m_pwszServiceMachine,
                           &properties->m_pwszExposedName, &properties->m_pwszExposedPath}) {
      machine_.FreeTask(std::exchange(*text, nullptr));
    }
  }

  BSTR SysAllocStringLen(const wchar_t* text, UINT length) override {
    return Win32Call(machine_, "SysAllocStringLen", Arguments(length), BSTR{nullptr}, [&] {
      return machine_.MakeBstr(text == nullptr ? std::wstring(length, L'\0') : std::wstring(text, length));
    });
  }

  void SysFreeString(BSTR text) override { machine_.FreeBstr(text); }
  void CoTaskMemFree(void* block) override { machine_.FreeTask(block); }

 private:
  // The service answers administrators only, and none where it cannot start.
  HRESULT Refused() const {
    if (!model().process.elevated) return E_ACCESSDENIED;
    const std::optional<Service> service = FindService(model(), L"VSS");
    if (!service) return HResultFromWin32(ERROR_SERVICE_DOES_NOT_EXIST);
    return service->startType == SERVICE_DISABLED ? HResultFromWin32(kErrorServiceDisabled) : S_OK;
  }

  std::shared_ptr<Machine> shared_;
};

}  // namespace

std::unique_ptr<VssService> MakeVssService(std::shared_ptr<Machine> machine) {
  return std::make_unique<SimulatedVss>(std::move(machine));
}

}  // namespace varnel::simulator
