#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "simulator/machine/state_file.h"
#include "simulator/machine/win32_codes.h"

namespace varnel::simulator {
namespace {

constexpr off_t kFirstPlace = 1 << 30;  // past all content
constexpr mode_t kMode = 0666;          // less what the user's mask takes away

// Locks of an open file, not of the process: two hosts in one process are kept apart as two processes are.
bool ChangeLock(int file, DWORD place, short type, bool wait) {
  struct flock region {};
  region.l_type = type;
  region.l_whence = SEEK_SET;
  region.l_start = kFirstPlace + static_cast<off_t>(place);
  region.l_len = 1;
  int result = 0;
  do {
    result = ::fcntl(file, wait ? F_OFD_SETLKW : F_OFD_SETLK, &region);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

DWORD Win32CodeOf(int error) {
  switch (error) {
    case ENOSPC:
    case EDQUOT:
      return kErrorDiskFull;
    case ENOENT:
    case ENOTDIR:
      return ERROR_PATH_NOT_FOUND;
    case EACCES:
    case EPERM:
    case EISDIR:
      return ERROR_ACCESS_DENIED;
    case EROFS:
      return kErrorWriteProtect;
    default:
      return kErrorWriteFault;
  }
}

bool WriteAll(int file, std::string_view content) {
  while (!content.empty()) {
    const ssize_t written = ::write(file, content.data(), content.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    content.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

// 0, or what went wrong.
int WriteFile(const std::filesystem::path& path, std::string_view content) {
  const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kMode);
  if (file < 0) return errno;
  const int error = WriteAll(file, content) ? 0 : errno;
  return ::close(file) == 0 || error != 0 ? error : errno;
}

}  // namespace

LockFile::LockFile(const std::filesystem::path& path)
    : file_(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kMode)) {
  if (file_ < 0) throw std::system_error(errno, std::generic_category());
}

LockFile::~LockFile() {
  ::close(static_cast<int>(file_));
}

bool LockFile::Lock(DWORD place, bool wait) const {
  return ChangeLock(static_cast<int>(file_), place, F_WRLCK, wait);
}

void LockFile::Unlock(DWORD place) const {
  ChangeLock(static_cast<int>(file_), place, F_UNLCK, false);
}

std::optional<std::uint64_t> LockFile::Number() const {
  std::array<char, sizeof(std::uint64_t)> bytes{};
  const ssize_t read = ::pread(static_cast<int>(file_), bytes.data(), bytes.size(), 0);
  if (read < 0) return std::nullopt;
  std::uint64_t number = 0;
  if (static_cast<std::size_t>(read) == bytes.size()) std::memcpy(&number, bytes.data(), bytes.size());
  return number;
}

DWORD LockFile::SetNumber(std::uint64_t number) const {
  const ssize_t written = ::pwrite(static_cast<int>(file_), &number, sizeof number, 0);
  return written == sizeof number ? ERROR_SUCCESS : Win32CodeOf(written < 0 ? errno : ENOSPC);
}

DWORD ReplaceContent(const std::filesystem::path& path, std::string_view content) {
  std::filesystem::path beside = path;
  beside += ".new";
  int error = WriteFile(beside, content);
  if (error == 0 && ::rename(beside.c_str(), path.c_str()) != 0) error = errno;
  if (error == 0) return ERROR_SUCCESS;
  ::unlink(beside.c_str());
  return Win32CodeOf(error);
}

}  // namespace varnel::simulator
