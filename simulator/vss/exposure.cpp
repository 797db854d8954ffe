// Shadow copies under a drive letter, a folder or a share.
#include <algorithm>

#include "simulator/machine/volumes.h"
#include "simulator/vss/snapshot_service.h"
#include "text/ascii_case.h"

namespace varnel::simulator {
namespace {

constexpr LONG kLocally = VSS_VOLSNAP_ATTR_EXPOSED_LOCALLY;
constexpr LONG kRemotely = VSS_VOLSNAP_ATTR_EXPOSED_REMOTELY;

// Variables and patterns name no place.
bool IsPlain(std::wstring_view text) {
  return text.find_first_of(L"%*?\"<>|") == text.npos;
}

bool IsDrive(std::wstring_view text) {
  const wchar_t letter = text.empty() ? L'\0' : ascii::ToLower(text[0]);
  return text.size() == 2 && letter >= L'a' && letter <= L'z' && text[1] == L':';
}

bool IsFolder(std::wstring_view text) {
  return text.size() > 3 && IsDrive(text.substr(0, 2)) && text[2] == L'\\' && IsPlain(text) &&
         text.find_first_of(L"/:", 2) == text.npos && text.find(L"\\\\") == text.npos;
}

bool IsShareName(std::wstring_view text) {
  return !text.empty() && IsPlain(text) && text.find_first_of(L"\\/:") == text.npos;
}

}  // namespace

// Folders are not among what is known of a volume, so every folder on one is there and empty.
HRESULT SnapshotService::CheckMountPoint(std::wstring_view path) const {
  if (!IsDrive(path) && !IsFolder(path)) return E_INVALIDARG;
  const std::optional<VolumeView> holder = FindVolumeOfPath(machine_, path);
  if (holder && holder->prefix == path.size()) return VSS_E_OBJECT_ALREADY_EXISTS;
  return holder || IsDrive(path) ? S_OK : VSS_E_OBJECT_NOT_FOUND;
}

HRESULT SnapshotService::CheckShare(std::wstring_view name, std::wstring_view pathFromRoot) const {
  if (!IsShareName(name) || !IsPlain(pathFromRoot)) return E_INVALIDARG;
  const auto hasName = [&](const ShadowCopy& copy) {
    return (copy.attributes & kRemotely) != 0 && ascii::EqualIgnoringCase(copy.exposedName, name);
  };
  return std::any_of(copies_.begin(), copies_.end(), hasName) ? VSS_E_OBJECT_ALREADY_EXISTS : S_OK;
}

HRESULT SnapshotService::Expose(const GUID& copyId, LONG where, std::wstring_view name, std::wstring_view pathFromRoot,
                                std::wstring& exposedName) {
  if (where != kLocally && where != kRemotely) return E_INVALIDARG;
  if (where == kLocally && !pathFromRoot.empty()) return E_INVALIDARG;
  if (where == kLocally && name.ends_with(L'\\')) name.remove_suffix(1);
  const ShadowCopy* known = Find(copyId);
  if (known == nullptr) return VSS_E_OBJECT_NOT_FOUND;
  if (!known->exposedName.empty()) return VSS_E_OBJECT_ALREADY_EXISTS;
  const HRESULT result = where == kLocally ? CheckMountPoint(name) : CheckShare(name, pathFromRoot);
  if (FAILED(result)) return result;
  exposedName = name;
  if (where == kLocally) exposedName += L'\\';
  ShadowCopy& copy = *KnownCopies(copyId, VSS_OBJECT_SNAPSHOT).front();
  copy.attributes |= where;
  copy.exposedName = exposedName;
  copy.exposedPath = pathFromRoot;
  return Saved();
}

HRESULT SnapshotService::Unexpose(const GUID& copyId) {
  const std::vector<ShadowCopy*> copies = KnownCopies(copyId, VSS_OBJECT_SNAPSHOT);
  if (copies.empty() || copies.front()->exposedName.empty()) return VSS_E_OBJECT_NOT_FOUND;
  ShadowCopy& copy = *copies.front();
  copy.attributes &= ~(kLocally | kRemotely);
  copy.exposedName.clear();
  copy.exposedPath.clear();
  return Saved();
}

}  // namespace varnel::simulator
