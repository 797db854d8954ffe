#include <shlobj.h>

#include <memory>

#include "platform/win32.h"
#include "varnelctl/sets/journal.h"

namespace varnelctl {

// %ProgramData%, as the system knows it: the environment is the caller's to change.
std::filesystem::path DefaultJournalFolder() {
  PWSTR folder = nullptr;
  const HRESULT hr = ::SHGetKnownFolderPath(FOLDERID_ProgramData, KF_FLAG_DEFAULT, nullptr, &folder);
  const std::unique_ptr<wchar_t, decltype(&::CoTaskMemFree)> freed(folder, ::CoTaskMemFree);
  const std::filesystem::path root = SUCCEEDED(hr) ? folder : L"C:\\ProgramData";
  return root / L"varnel" / L"sets";
}

}  // namespace varnelctl
