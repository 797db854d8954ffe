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

// Takes a path literally and at any length, also where the process or the host's policy has no long paths.
constexpr std::wstring_view kLongPath = L"\\\\?\\";

bool IsOnDrive(std::wstring_view path) {
  return path.size() > 2 && path[1] == L':' && Normalized(path[2]) == L'\\';
}

// The path as the system is asked for it. What is short stays as it is; so does what the long form would not mean.
std::wstring Asked(std::wstring path) {
  if (path.size() < MAX_PATH - 1 || !IsOnDrive(path)) return path;
  std::replace(path.begin(), path.end(), L'/', L'\\');
  if (path.find(L"\\.\\") != path.npos || path.find(L"\\..\\") != path.npos) return path;
  return path.insert(0, kLongPath);
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
  const std::wstring asked = Asked(path);
  // Room for the backslash that the system adds to a bare drive, and for the NUL.
  std::wstring root(std::max<std::size_t>(asked.size() + 2, MAX_PATH), L'\0');
  if (!storage.GetVolumePathNameW(asked.c_str(), root.data(), static_cast<DWORD>(root.size()))) return false;
  root.resize(root.find(L'\0'));
  if (asked.size() != path.size() && root.starts_with(kLongPath)) root.erase(0, kLongPath.size());
  std::array<wchar_t, MAX_PATH> name{};
  if (!storage.GetVolumeNameForVolumeMountPointW(Asked(root).c_str(), name.data(), MAX_PATH)) return false;
  volumeName = name.data();
  mountPoint.assign(path, 0, PrefixLength(path, root));
  return true;
}

}  // namespace TesselCommonClasses
