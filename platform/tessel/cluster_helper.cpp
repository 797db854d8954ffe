#include "platform/host.h"
#include "platform/tessel/FileLog.h"
#include "platform/tessel/TesselCommonClasses.h"

namespace TesselCommonClasses {
namespace {
constexpr DWORD kConfiguredNotRunning = 0x3;
constexpr DWORD kRunning = 0x13;
}  // namespace

bool ClusterHelper::IsCluster(bool checkRunning) {
  DWORD state = 0;
  const DWORD code = varnel::CurrentHost().cluster().GetNodeClusterState(nullptr, &state);
  if (code != ERROR_SUCCESS) {
    if (CFileLog* log = CFileLog::GetInstance()) {
      log->Log(CFileLog::Warning, L"ClusterHelper", __LINE__, L"GetNodeClusterState() Failed, Error=%u", code);
    }
    return false;
  }
  return state == kRunning || (!checkRunning && state == kConfiguredNotRunning);
}

}  // namespace TesselCommonClasses
