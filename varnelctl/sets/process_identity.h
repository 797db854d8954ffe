// Which process made a set: a number is given to another process when its own has ended, but not with the same start.
#pragma once

#include <cstdint>

namespace varnelctl {

struct ProcessIdentity {
  std::uint32_t id = 0;
  /// When it started, as the system counts: 100 ns since 1601 on Windows, clock ticks since the system's start
  /// elsewhere. To be compared alone.
  std::uint64_t start = 0;

  friend bool operator==(const ProcessIdentity&, const ProcessIdentity&) = default;
};

/// This process.
ProcessIdentity ThisProcess();

/// Whether it still runs. One that may not be asked counts as running.
bool IsRunning(const ProcessIdentity& process);

}  // namespace varnelctl
