#include <algorithm>
#include <array>
#include <string_view>

#include "platform/host.h"
#include "platform/tessel/TesselCommonClasses.h"
#include "text/ascii_case.h"

namespace TesselCommonClasses {
namespace {

// The system writes '/' of a path as '\' in its mount point.
wchar_t Normalized(wchar_t c) {
  return c == L'/' ? L'\\' : varnel::ascii::ToLower(c);
}

// How much of `path` the mount point takes. "E:" lies in "E:\", which is longer than the path itself; a mount point
// that is no prefix (the path was relative) takes nothing.
std::size_t PrefixLength(std::wstring_view path, std::wstring_view mountPoint) {
  const std::size_t length = std::min(path.size(), mountPoint.size());
  const bool isPrefix = std::equal(path.begin(), path.begin() + static_cast<std::ptrdiff_t>(length), mountPoint.begin(),
                                   [](wchar_t a, wchar_t b) { return Normalized(a) == Normalized(b); });
  return isPrefix ? length : 0;
}

}  // namespace

std::wstring UtilityClass::AppendBackslash(std::wstring text) {
  if (text.empty() || text.back() != L'\\') text += L'\\';
  return text;
}

bool UtilityClass::GetUniqueVolumeNameForPathNoThrow(const std::wstring& path, std::wstring& volumeName,
                                                     std::wstring& mountPoint) {
  volumeName.clear();
  mountPoint.clear();
  varnel::Storage& storage = varnel::CurrentHost().storage();
  // Room for the backslash that the system adds to a bare drive, and for the NUL.
  std::wstring root(std::max<std::size_t>(path.size() + 2, MAX_PATH), L'\0');
  if (!storage.GetVolumePathNameW(path.c_str(), root.data(), static_cast<DWORD>(root.size()))) return false;
  std::array<wchar_t, MAX_PATH> name{};
  if (!storage.GetVolumeNameForVolumeMountPointW(root.c_str(), name.data(), MAX_PATH)) return false;
  volumeName = name.data();
  mountPoint.assign(path, 0, PrefixLength(path, root.c_str()));
  return true;
}

}  // namespace TesselCommonClasses
