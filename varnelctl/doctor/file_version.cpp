#include "varnelctl/doctor/file_version.h"

#include <array>

#include "platform/host.h"
#include "text/format.h"
#include "varnelctl/explanation/failure.h"

namespace varnelctl {

FileVersionText ReadSystemFileVersion(const std::wstring& file) {
  std::array<wchar_t, MAX_PATH> directory{};
  const UINT length = varnel::CurrentHost().system().GetSystemDirectoryW(directory.data(), MAX_PATH);
  if (length == 0 || length >= MAX_PATH) ThrowLastError("GetSystemDirectoryW");
  const std::wstring path = std::wstring(directory.data()) + L"\\" + file;
  VS_FIXEDFILEINFO version{};
  if (!varnel::CurrentHost().files().GetFileVersion(path.c_str(), &version)) ThrowLastError("GetFileVersionInfoW");
  constexpr DWORD kLow = 0xFFFF;
  FileVersionText read{{}, version.dwFileVersionMS >> 16, version.dwFileVersionMS & kLow};
  read.text = varnel::FormatNarrow(
      "%u.%u.%u.%u", {read.major, read.minor, version.dwFileVersionLS >> 16, version.dwFileVersionLS & kLow});
  return read;
}

}  // namespace varnelctl
