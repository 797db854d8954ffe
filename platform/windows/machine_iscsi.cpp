#include "platform/windows/machine_services.h"
#include "platform/windows/system_library.h"

namespace varnel::windows {
namespace {

class Iscsi final : public IscsiInitiator {
 public:
  DWORD GetIScsiSessionListW(ULONG* bytes, ULONG* sessions, iscsi::SessionInfo* list) override {
    if (getSessions_ != nullptr) return getSessions_(bytes, sessions, list);
    *sessions = 0;
    return ERROR_SUCCESS;
  }
  DWORD GetDevicesForIScsiSessionW(iscsi::UniqueSessionId* session, ULONG* devices,
                                   iscsi::DeviceOnSession* list) override {
    return getDevices_ == nullptr ? library_.Error() : getDevices_(session, devices, list);
  }
  DWORD LogoutIScsiTarget(iscsi::UniqueSessionId* session) override {
    return logout_ == nullptr ? library_.Error() : logout_(session);
  }

 private:
  using GetSessions = DWORD WINAPI(ULONG*, ULONG*, iscsi::SessionInfo*);
  using GetDevices = DWORD WINAPI(iscsi::UniqueSessionId*, ULONG*, iscsi::DeviceOnSession*);
  using Logout = DWORD WINAPI(iscsi::UniqueSessionId*);

  SystemLibrary library_{L"iscsidsc.dll"};
  GetSessions* getSessions_ = library_.Find<GetSessions>("GetIScsiSessionListW");
  GetDevices* getDevices_ = library_.Find<GetDevices>("GetDevicesForIScsiSessionW");
  Logout* logout_ = library_.Find<Logout>("LogoutIScsiTarget");
};

}  // namespace

IscsiInitiator& MachineIscsi() {
  static Iscsi iscsi;
  return iscsi;
}

}  // namespace varnel::windows
