// The state of a simulated host that outlives its process, and that several processes share by way of a file.
#pragma once

#include <filesystem>
#include <mutex>
#include <string>

#include "platform/win32.h"
#include "simulator/machine/state_file.h"

namespace varnel::simulator {

class Machine;

/// One per machine that has a state file. Every call holds the file, sees what other processes changed and ends what a
/// dead process left; what it changes itself it writes at once (Save). What nobody waits for, such as the end of a
/// session, is written as the call ends, and by a later call or by another process where that fails.
class SharedState {
 public:
  /// Throws StateFileError: the file is broken, of another version or of another host, and is left as it is.
  SharedState(Machine& machine, const std::filesystem::path& file);
  SharedState(const SharedState&) = delete;
  SharedState& operator=(const SharedState&) = delete;

  /// Around everything that looks at the state or changes it; may be nested.
  void Enter();
  void Leave() noexcept;

  /// The state may differ from what is in the file.
  void NoticeChange() { changed_ = true; }
  /// Writes what changed. A Win32 code; after a failure the state is as the file has it.
  DWORD Save();
  /// The number under which this process holds what ends with it.
  DWORD process() const { return file_.process(); }

 private:
  void Read();
  void Take(const std::string& text);
  std::string Describe() const;

  Machine& machine_;
  StateFile file_;
  std::string text_;  // the file's content
  int depth_ = 0;
  bool changed_ = false;
  DWORD problem_ = ERROR_SUCCESS;  // why this call may change nothing
};

/// Held by a call: the machine, and with a state file the turn among the processes.
class Turn {
 public:
  explicit Turn(Machine& machine);
  ~Turn();
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

 private:
  Machine& machine_;
  std::unique_lock<std::recursive_mutex> lock_;
};

}  // namespace varnel::simulator
