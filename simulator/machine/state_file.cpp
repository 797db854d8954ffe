#include "simulator/machine/state_file.h"

#include <system_error>

#include "simulator/host_file/text_file.h"

namespace varnel::simulator {
namespace {

std::string Utf8Of(const std::filesystem::path& path) {
  const std::u8string utf8 = path.u8string();
  return std::string(utf8.begin(), utf8.end());
}

std::filesystem::path LockPath(std::filesystem::path path) {
  path += ".lock";
  return path;
}

LockFile OpenLocks(const std::filesystem::path& path) {
  try {
    return LockFile(LockPath(path));
  } catch (const std::system_error& error) {
    throw StateFileError(path, "cannot write " + Utf8Of(LockPath(path)) + ": " + error.code().message(),
                         "name a file in a folder that exists and that you may write");
  }
}

}  // namespace

StateFileError::StateFileError(const std::filesystem::path& file, const std::string& cause, const std::string& nextStep)
    : std::runtime_error(Utf8Of(file) + ": " + cause + "; " + nextStep) {}

// The process may change its current directory.
StateFile::StateFile(const std::filesystem::path& path)
    : path_(std::filesystem::absolute(path)), locks_(OpenLocks(path_)) {}

std::optional<std::string> StateFile::Read() const {
  std::error_code error;
  if (!std::filesystem::exists(path_, error) && !error) return std::nullopt;
  try {
    return ReadTextFile(path_);
  } catch (const TextFileError& cause) {
    throw StateFileError(path_, std::string("cannot read the file: ") + cause.what(), "name a file that you may read");
  }
}

// The number goes first: who is ended between the two leaves others to read once for nothing, and never to miss it.
DWORD StateFile::Write(std::string_view text) {
  const std::uint64_t next = seen_.value_or(0) + 1;
  if (const DWORD error = locks_.SetNumber(next); error != ERROR_SUCCESS) return error;
  seen_ = next;
  return ReplaceContent(path_, text);
}

void StateFile::Join(const std::set<DWORD>& taken) {
  DWORD process = 1;
  while (taken.contains(process) || !locks_.Lock(process, false)) ++process;
  process_ = process;
}

bool StateFile::IsAlive(DWORD process) const {
  if (process == process_) return true;
  if (!locks_.Lock(process, false)) return true;
  locks_.Unlock(process);
  return false;
}

}  // namespace varnel::simulator
