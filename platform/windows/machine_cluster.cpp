#include "platform/windows/machine_services.h"
#include "platform/windows/system_library.h"

namespace varnel::windows {
namespace {

class FailoverCluster final : public Cluster {
 public:
  DWORD GetNodeClusterState(LPCWSTR node, DWORD* state) override {
    if (getState_ != nullptr) return getState_(node, state);
    *state = 0;
    return ERROR_SUCCESS;
  }
  BOOL ClusterIsPathOnSharedVolume(LPCWSTR path) override {
    return isOnSharedVolume_ == nullptr ? FALSE : isOnSharedVolume_(path);
  }

 private:
  using GetState = DWORD WINAPI(LPCWSTR, DWORD*);
  using IsOnSharedVolume = BOOL WINAPI(LPCWSTR);

  SystemLibrary clusterApi_{L"clusapi.dll"};
  SystemLibrary resourceUtilities_{L"resutils.dll"};
  GetState* getState_ = clusterApi_.Find<GetState>("GetNodeClusterState");
  IsOnSharedVolume* isOnSharedVolume_ = resourceUtilities_.Find<IsOnSharedVolume>("ClusterIsPathOnSharedVolume");
};

}  // namespace

Cluster& MachineCluster() {
  static FailoverCluster cluster;
  return cluster;
}

}  // namespace varnel::windows
