#include <system_error>

#include "simulator/machine/state_file.h"

namespace varnel::simulator {
namespace {

constexpr DWORD kFirstPlace = 1 << 30;  // past all content: locked bytes cannot be read
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

HANDLE HandleOf(std::intptr_t file) {
  return reinterpret_cast<HANDLE>(file);
}

OVERLAPPED At(DWORD offset) {
  OVERLAPPED position{};
  position.Offset = offset;
  return position;
}

// A Win32 code.
DWORD WriteNewFile(const std::filesystem::path& path, std::string_view content) {
  const HANDLE file =
      ::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return ::GetLastError();
  DWORD written = 0;
  const BOOL done = ::WriteFile(file, content.data(), static_cast<DWORD>(content.size()), &written, nullptr);
  const DWORD error = done == FALSE ? ::GetLastError() : ERROR_SUCCESS;
  ::CloseHandle(file);
  return error == ERROR_SUCCESS && written != content.size() ? DWORD{ERROR_DISK_FULL} : error;
}

// Who looks at the file at the wrong moment, another program as it starts or a search for viruses, keeps it from being
// replaced. A Win32 code.
DWORD PutInPlace(const std::filesystem::path& beside, const std::filesystem::path& path) {
  constexpr DWORD kAtOnce = MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH;
  constexpr DWORD kPause = 5;
  DWORD error = ERROR_SUCCESS;
  for (DWORD waited = 0; waited < 500; waited += kPause) {
    if (::MoveFileExW(beside.c_str(), path.c_str(), kAtOnce) != FALSE) return ERROR_SUCCESS;
    error = ::GetLastError();
    if (error != ERROR_ACCESS_DENIED && error != ERROR_SHARING_VIOLATION) return error;
    ::Sleep(kPause);
  }
  return error;
}

}  // namespace

LockFile::LockFile(const std::filesystem::path& path)
    : file_(reinterpret_cast<std::intptr_t>(::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, kShareAll,
                                                          nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr))) {
  if (HandleOf(file_) == INVALID_HANDLE_VALUE) {
    throw std::system_error(static_cast<int>(::GetLastError()), std::system_category());
  }
}

LockFile::~LockFile() {
  ::CloseHandle(HandleOf(file_));
}

bool LockFile::Lock(DWORD place, bool wait) const {
  OVERLAPPED position = At(kFirstPlace + place);
  const DWORD flags = LOCKFILE_EXCLUSIVE_LOCK | (wait ? 0 : LOCKFILE_FAIL_IMMEDIATELY);
  return ::LockFileEx(HandleOf(file_), flags, 0, 1, 0, &position) != FALSE;
}

void LockFile::Unlock(DWORD place) const {
  OVERLAPPED position = At(kFirstPlace + place);
  ::UnlockFileEx(HandleOf(file_), 0, 1, 0, &position);
}

std::optional<std::uint64_t> LockFile::Number() const {
  OVERLAPPED position = At(0);
  std::uint64_t number = 0;
  DWORD read = 0;
  if (::ReadFile(HandleOf(file_), &number, sizeof number, &read, &position) == FALSE) {
    return ::GetLastError() == ERROR_HANDLE_EOF ? std::optional<std::uint64_t>(0) : std::nullopt;
  }
  return read == sizeof number ? number : 0;
}

DWORD LockFile::SetNumber(std::uint64_t number) const {
  OVERLAPPED position = At(0);
  DWORD written = 0;
  if (::WriteFile(HandleOf(file_), &number, sizeof number, &written, &position) == FALSE) return ::GetLastError();
  return written == sizeof number ? DWORD{ERROR_SUCCESS} : DWORD{ERROR_DISK_FULL};
}

DWORD ReplaceContent(const std::filesystem::path& path, std::string_view content) {
  std::filesystem::path beside = path;
  beside += L".new";
  DWORD error = WriteNewFile(beside, content);
  if (error == ERROR_SUCCESS) error = PutInPlace(beside, path);
  if (error != ERROR_SUCCESS) ::DeleteFileW(beside.c_str());
  return error;
}

}  // namespace varnel::simulator
