#include "platform/windows/machine_services.h"
#include "platform/windows/system_library.h"

namespace varnel::windows {
namespace {

// The entry points have two names: the C++ name, and the one that the headers of later SDKs call.
class VssLibrary {
 public:
  using Create = HRESULT WINAPI(IVssBackupComponents**);
  using FreeProperties = void WINAPI(VSS_SNAPSHOT_PROP*);

  static const VssLibrary& Get() {
    static const VssLibrary library;
    return library;
  }

  HRESULT CreateBackupComponents(IVssBackupComponents** backup) const {
    return create_ == nullptr ? HResultFromWin32(library_.Error()) : create_(backup);
  }
  FreeProperties* freeProperties() const { return freeProperties_; }

 private:
  VssLibrary() = default;

  template <class Function>
  Function* FindEither(const char* first, const char* second) const {
    Function* function = library_.Find<Function>(first);
    return function == nullptr ? library_.Find<Function>(second) : function;
  }

  SystemLibrary library_{L"vssapi.dll"};
  Create* create_ = FindEither<Create>("?CreateVssBackupComponents@@YAJPEAPEAVIVssBackupComponents@@@Z",
                                       "CreateVssBackupComponentsInternal");
  FreeProperties* freeProperties_ =
      FindEither<FreeProperties>("VssFreeSnapshotProperties", "VssFreeSnapshotPropertiesInternal");
};

bool HoldsText(const VSS_SNAPSHOT_PROP& properties) {
  return properties.m_pwszSnapshotDeviceObject != nullptr || properties.m_pwszOriginalVolumeName != nullptr ||
         properties.m_pwszOriginatingMachine != nullptr || properties.m_pwszServiceMachine != nullptr ||
         properties.m_pwszExposedName != nullptr || properties.m_pwszExposedPath != nullptr;
}

class Vss final : public VssService {
 public:
  HRESULT CreateVssBackupComponents(IVssBackupComponents** backup) override {
    return VssLibrary::Get().CreateBackupComponents(backup);
  }
  HRESULT CoCreateInstance(REFCLSID classId, IUnknown* outer, DWORD context, REFIID interfaceId,
                           void** object) override {
    return ::CoCreateInstance(classId, outer, context, interfaceId, object);
  }
  void VssFreeSnapshotProperties(VSS_SNAPSHOT_PROP* properties) override {
    if (properties == nullptr || !HoldsText(*properties)) return;
    if (VssLibrary::FreeProperties* free = VssLibrary::Get().freeProperties()) free(properties);
  }
  BSTR SysAllocStringLen(const wchar_t* text, UINT length) override { return ::SysAllocStringLen(text, length); }
  void SysFreeString(BSTR text) override { ::SysFreeString(text); }
  void CoTaskMemFree(void* block) override { ::CoTaskMemFree(block); }
};

}  // namespace

VssService& MachineVss() {
  static Vss vss;
  return vss;
}

}  // namespace varnel::windows
