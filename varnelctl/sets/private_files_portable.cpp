#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

#include "varnelctl/sets/private_files.h"

namespace varnelctl {
namespace {

constexpr mode_t kFolderMode = 0700;
constexpr mode_t kFileMode = 0600;

[[noreturn]] void Throw(int error) {
  throw std::system_error(error, std::generic_category());
}

void Require(bool done) {
  if (!done) Throw(errno);
}

class File {
 public:
  File(const std::filesystem::path& path, int flags) : file_(::open(path.c_str(), flags | O_CLOEXEC, kFileMode)) {
    Require(file_ >= 0);
  }
  ~File() {
    if (file_ >= 0) ::close(file_);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  int Get() const { return file_; }
  // What could not be written may be told as late as here.
  void Close() { Require(::close(std::exchange(file_, -1)) == 0); }

 private:
  int file_;
};

bool IsTrusted(const struct stat& status) {
  return status.st_uid == 0 || status.st_uid == ::geteuid();
}

// How much there is, of a plain file.
struct stat StatusOf(const File& file) {
  struct stat status {};
  Require(::fstat(file.Get(), &status) == 0);
  if (!S_ISREG(status.st_mode)) Throw(EINVAL);
  if (!IsTrusted(status)) Throw(EPERM);
  return status;
}

std::string ReadAll(const File& file, std::size_t limit) {
  std::string content;
  std::array<char, 16384> part{};
  for (;;) {
    const ssize_t read = ::read(file.Get(), part.data(), part.size());
    if (read < 0 && errno == EINTR) continue;
    Require(read >= 0);
    if (read == 0) return content;
    content.append(part.data(), static_cast<std::size_t>(read));
    if (content.size() > limit) Throw(EFBIG);
  }
}

void WriteAll(const File& file, std::string_view content) {
  while (!content.empty()) {
    const ssize_t written = ::write(file.Get(), content.data(), content.size());
    if (written < 0 && errno == EINTR) continue;
    Require(written >= 0);
    content.remove_prefix(static_cast<std::size_t>(written));
  }
}

void WriteNew(const std::filesystem::path& path, std::string_view content) {
  File file(path, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW);
  WriteAll(file, content);
  Require(::fsync(file.Get()) == 0);
  file.Close();
}

}  // namespace

void MakeOnePrivateFolder(const std::filesystem::path& folder) {
  if (::mkdir(folder.c_str(), kFolderMode) == 0) return;
  Require(errno == EEXIST);
  struct stat status {};
  Require(::lstat(folder.c_str(), &status) == 0);
  if (!IsTrusted(status)) Throw(EPERM);  // whoever owns a link says where it leads
  Require(::stat(folder.c_str(), &status) == 0);
  if (!S_ISDIR(status.st_mode)) Throw(ENOTDIR);
  if (!IsTrusted(status)) Throw(EPERM);
}

std::string ReadPrivateFile(const std::filesystem::path& path, std::size_t limit) {
  const File file(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);  // a pipe is opened at once, and refused
  if (static_cast<std::size_t>(StatusOf(file).st_size) > limit) Throw(EFBIG);
  return ReadAll(file, limit);
}

void ReplaceDurably(const std::filesystem::path& path, std::string_view content) {
  std::filesystem::path beside = path;
  beside += "." + std::to_string(::getpid()) + ".new";  // another process may write the same file
  try {
    WriteNew(beside, content);
    Require(::rename(beside.c_str(), path.c_str()) == 0);
  } catch (const std::system_error&) {
    ::unlink(beside.c_str());
    throw;
  }
  const File folder(path.parent_path(), O_RDONLY | O_DIRECTORY);
  Require(::fsync(folder.Get()) == 0);
}

}  // namespace varnelctl
