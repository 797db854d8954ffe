// The files of a state that outlives its processes, and the processes that share it: FILE itself, FILE.new while it is
// written, and FILE.lock, whose locks the system takes back from a process that ends, however it ends.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/win32.h"

namespace varnel::simulator {

/// A state file that cannot be used: what() is "FILE: cause; next step" in UTF-8.
class StateFileError : public std::runtime_error {
 public:
  StateFileError(const std::filesystem::path& file, const std::string& cause, const std::string& nextStep);
};

/// An open file with places that one process at a time may lock, and a number that all can read. Both are the file's:
/// the object itself stays as it is.
class LockFile {
 public:
  /// Makes the file when there is none. Throws std::system_error.
  explicit LockFile(const std::filesystem::path& path);
  ~LockFile();
  LockFile(const LockFile&) = delete;
  LockFile& operator=(const LockFile&) = delete;

  /// False when it could not be had; without `wait` also when another process has it.
  bool Lock(DWORD place, bool wait) const;
  void Unlock(DWORD place) const;
  /// The number, 0 in a new file; nothing when it cannot be read.
  std::optional<std::uint64_t> Number() const;
  /// A Win32 code.
  DWORD SetNumber(std::uint64_t number) const;

 private:
  std::intptr_t file_;
};

/// Writes a file beside `path` and puts it in its place: whoever looks sees the old content or the new. A Win32 code;
/// after a failure the old content is there.
DWORD ReplaceContent(const std::filesystem::path& path, std::string_view content);

/// The file as one of the processes that share it sees it. Everything but Hold is called while it is held.
class StateFile {
 public:
  /// Throws StateFileError.
  explicit StateFile(const std::filesystem::path& path);

  const std::filesystem::path& path() const { return path_; }

  /// Waits until no other process holds the file. False when the system does not give the lock.
  bool Hold() const { return locks_.Lock(kTurn, true); }
  void Release() const { locks_.Unlock(kTurn); }

  /// Whether another process wrote since this one took the file as read or wrote it.
  bool HasChanged() const { return locks_.Number() != seen_; }
  /// Nothing when there is no such file. Throws StateFileError.
  std::optional<std::string> Read() const;
  void TakeAsRead() { seen_ = locks_.Number(); }
  /// A Win32 code; after a failure the file is as before.
  DWORD Write(std::string_view text);

  /// Becomes the process of a number that no other one has and that is not among `taken`.
  void Join(const std::set<DWORD>& taken);
  DWORD process() const { return process_; }
  bool IsAlive(DWORD process) const;

 private:
  static constexpr DWORD kTurn = 0;  // the place of who holds the file; process N has place N

  std::filesystem::path path_;
  LockFile locks_;
  std::optional<std::uint64_t> seen_;
  DWORD process_ = 0;
};

}  // namespace varnel::simulator
