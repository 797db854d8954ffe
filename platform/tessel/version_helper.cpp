#include <algorithm>

#include "platform/host.h"
#include "platform/tessel/FileLog.h"
#include "platform/tessel/TesselCommonClasses.h"
#include "text/format.h"

namespace TesselCommonClasses {
namespace {

constexpr unsigned short High(DWORD value) {
  return static_cast<unsigned short>(value >> 16);
}
constexpr unsigned short Low(DWORD value) {
  return static_cast<unsigned short>(value & 0xFFFF);
}

bool VerifyFileVersion(const std::wstring& path, const Version& lowest) {
  CFileLog* log = CFileLog::GetInstance();
  VS_FIXEDFILEINFO info{};
  if (!varnel::CurrentHost().files().GetFileVersion(path.c_str(), &info)) {
    if (log != nullptr) {
      log->Log(CFileLog::Warning, L"VersionHelper", __LINE__, L"GetFileVersionInfoW() Failed, File=%s, Error=%u",
               path.c_str(), varnel::CurrentHost().GetLastError());
    }
    return false;
  }
  const Version found(High(info.dwFileVersionMS), Low(info.dwFileVersionMS), High(info.dwFileVersionLS),
                      Low(info.dwFileVersionLS));
  if (found >= lowest) return true;
  if (log != nullptr) {
    log->Log(CFileLog::Warning, L"VersionHelper", __LINE__,
             L"File is older than required, File=%s, Version=%u.%u.%u.%u", path.c_str(), High(info.dwFileVersionMS),
             Low(info.dwFileVersionMS), High(info.dwFileVersionLS), Low(info.dwFileVersionLS));
  }
  return false;
}

}  // namespace

bool VersionHelper::VerifyFileVersions(const std::map<std::wstring, Version>& lowest) {
  return std::all_of(lowest.begin(), lowest.end(),
                     [](const auto& file) { return VerifyFileVersion(file.first, file.second); });
}

}  // namespace TesselCommonClasses
