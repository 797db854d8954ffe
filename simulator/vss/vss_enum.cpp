#include "simulator/vss/vss_enum.h"

#include <algorithm>

#include "simulator/vss/com_object.h"

namespace varnel::simulator {
namespace {

constexpr GUID kEnumeratorInterfaces[] = {kIidVssEnumObject};
constexpr GUID kAdminInterfaces[] = {kIidVssAdmin};

void FillObject(Machine& machine, const Provider& provider, VSS_OBJECT_PROP& object) {
  object.Type = VSS_OBJECT_PROVIDER;
  object.Obj.Prov = VSS_PROVIDER_PROP{};
  object.Obj.Prov.m_ProviderId = provider.id;
  object.Obj.Prov.m_pwszProviderName = machine.MakeTaskText(provider.name);
  object.Obj.Prov.m_eProviderType = provider.type;
  object.Obj.Prov.m_pwszProviderVersion = machine.MakeTaskText(provider.version);
}

void FillObject(Machine& machine, const ShadowCopy& copy, VSS_OBJECT_PROP& object) {
  object.Type = VSS_OBJECT_SNAPSHOT;
  FillProperties(machine, copy, object.Obj.Snap);
}

class Enumerator final : public ComObject<IVssEnumObject> {
 public:
  Enumerator(std::shared_ptr<Machine> machine, std::vector<EnumeratedObject> objects, std::size_t next)
      : ComObject(std::move(machine), "IVssEnumObject", kEnumeratorInterfaces),
        objects_(std::move(objects)),
        next_(next) {}

  HRESULT STDMETHODCALLTYPE Next(ULONG count, VSS_OBJECT_PROP* elements, ULONG* fetched) override {
    if (fetched != nullptr) *fetched = 0;
    return Call("IVssEnumObject::Next", Arguments(count), [&] {
      if (elements == nullptr || fetched == nullptr) return E_POINTER;
      const ULONG given = std::min(count, Left());
      for (ULONG i = 0; i < given; ++i) {
        std::visit([&](const auto& object) { FillObject(machine(), object, elements[i]); }, objects_[next_++]);
      }
      *fetched = given;
      return given == count ? S_OK : S_FALSE;
    });
  }

  HRESULT STDMETHODCALLTYPE Skip(ULONG count) override {
    return Call("IVssEnumObject::Skip", Arguments(count), [&] {
      const ULONG skipped = std::min(count, Left());
      next_ += skipped;
      return skipped == count ? S_OK : S_FALSE;
    });
  }

  HRESULT STDMETHODCALLTYPE Reset() override {
    return Call("IVssEnumObject::Reset", NoArguments, [&] {
      next_ = 0;
      return S_OK;
    });
  }

  HRESULT STDMETHODCALLTYPE Clone(IVssEnumObject** enumerator) override {
    Clear(enumerator);
    return Call("IVssEnumObject::Clone", NoArguments, [&] {
      if (enumerator == nullptr) return E_POINTER;
      *enumerator = new Enumerator(sharedMachine(), objects_, next_);
      return S_OK;
    });
  }

 private:
  ~Enumerator() override = default;

  ULONG Left() const { return static_cast<ULONG>(objects_.size() - next_); }

  std::vector<EnumeratedObject> objects_;
  std::size_t next_;
};

class Admin final : public ComObject<IVssAdmin> {
 public:
  explicit Admin(std::shared_ptr<Machine> machine) : ComObject(std::move(machine), "IVssAdmin", kAdminInterfaces) {}

  HRESULT STDMETHODCALLTYPE RegisterProvider(VSS_ID, CLSID, VSS_PWSZ, VSS_PROVIDER_TYPE, VSS_PWSZ, VSS_ID) override {
    return Unsupported("::RegisterProvider");
  }
  HRESULT STDMETHODCALLTYPE UnregisterProvider(VSS_ID) override { return Unsupported("::UnregisterProvider"); }
  HRESULT STDMETHODCALLTYPE QueryProviders(IVssEnumObject** enumerator) override {
    Clear(enumerator);
    return Call("IVssAdmin::QueryProviders", NoArguments, [&] {
      if (enumerator == nullptr) return E_INVALIDARG;
      *enumerator = MakeProviderEnumerator(sharedMachine());
      return S_OK;
    });
  }
  HRESULT STDMETHODCALLTYPE AbortAllSnapshotsInProgress() override {
    return Unsupported("::AbortAllSnapshotsInProgress");
  }

 private:
  ~Admin() override = default;
};

}  // namespace

IVssEnumObject* MakeEnumerator(std::shared_ptr<Machine> machine, std::vector<EnumeratedObject> objects) {
  return new Enumerator(std::move(machine), std::move(objects), 0);
}

IVssEnumObject* MakeProviderEnumerator(std::shared_ptr<Machine> machine) {
  const std::vector<Provider>& providers = machine->model().providers;
  return MakeEnumerator(std::move(machine), {providers.begin(), providers.end()});
}

IVssAdmin* MakeAdmin(std::shared_ptr<Machine> machine) {
  return new Admin(std::move(machine));
}

void FillProperties(Machine& machine, const ShadowCopy& copy, VSS_SNAPSHOT_PROP& properties) {
  properties = VSS_SNAPSHOT_PROP{};
  properties.m_SnapshotId = copy.id;
  properties.m_SnapshotSetId = copy.setId;
  properties.m_lSnapshotsCount = copy.copiesInSet;
  properties.m_pwszSnapshotDeviceObject = machine.MakeTaskText(copy.device);
  properties.m_pwszOriginalVolumeName = machine.MakeTaskText(copy.originalVolume);
  properties.m_pwszOriginatingMachine = machine.MakeTaskText(copy.originatingMachine);
  properties.m_pwszServiceMachine = machine.MakeTaskText(MachineName(machine.model()));
  if (!copy.exposedName.empty()) properties.m_pwszExposedName = machine.MakeTaskText(copy.exposedName);
  if (!copy.exposedPath.empty()) properties.m_pwszExposedPath = machine.MakeTaskText(copy.exposedPath);
  properties.m_ProviderId = copy.providerId;
  properties.m_lSnapshotAttributes = copy.attributes;
  properties.m_tsCreationTimestamp = copy.timestamp;
  properties.m_eStatus = VSS_SS_CREATED;
}

}  // namespace varnel::simulator
