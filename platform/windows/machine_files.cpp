#include <vector>

#include "platform/windows/machine_services.h"
#include "platform/windows/system_library.h"

namespace varnel::windows {
namespace {

class Files final : public FileVersions {
 public:
  BOOL GetFileVersion(LPCWSTR path, VS_FIXEDFILEINFO* version) override {
    if (size_ == nullptr || read_ == nullptr || query_ == nullptr) {
      ::SetLastError(library_.Error());
      return FALSE;
    }
    DWORD ignored = 0;
    const DWORD bytes = size_(path, &ignored);
    if (bytes == 0) return FALSE;
    std::vector<BYTE> block(bytes);
    if (!read_(path, 0, bytes, block.data())) return FALSE;
    void* fixed = nullptr;
    UINT fixedBytes = 0;
    if (!query_(block.data(), L"\\", &fixed, &fixedBytes) || fixedBytes < sizeof *version) {
      ::SetLastError(ERROR_RESOURCE_DATA_NOT_FOUND);
      return FALSE;
    }
    *version = *static_cast<const VS_FIXEDFILEINFO*>(fixed);
    return TRUE;
  }

 private:
  SystemLibrary library_{L"version.dll"};
  decltype(&::GetFileVersionInfoSizeW) size_ =
      library_.Find<decltype(::GetFileVersionInfoSizeW)>("GetFileVersionInfoSizeW");
  decltype(&::GetFileVersionInfoW) read_ = library_.Find<decltype(::GetFileVersionInfoW)>("GetFileVersionInfoW");
  decltype(&::VerQueryValueW) query_ = library_.Find<decltype(::VerQueryValueW)>("VerQueryValueW");
};

}  // namespace

FileVersions& MachineFiles() {
  static Files files;
  return files;
}

}  // namespace varnel::windows
