// How a user ends a run that is under way: Ctrl-C asks for it, and the run ends where it can be ended cleanly.
#pragma once

#include <functional>
#include <memory>

namespace varnelctl {

/// Notes the user's wish to end while it lives.
class Interruption {
 public:
  virtual ~Interruption() = default;
  virtual bool Requested() const = 0;
};

/// Starts watching. Called by a command that ends cleanly; all others end at once.
using InterruptionSource = std::function<std::unique_ptr<Interruption>()>;

/// Watches this process: Ctrl-C, the end of its console or terminal, and where there are signals SIGTERM. The first
/// request is noted and acknowledged on standard error; the second ends the process at once, but for the end of the
/// terminal, of which a process may be told twice. One at a time.
std::unique_ptr<Interruption> WatchProcess();

/// After a write that failed: whether it was to a pipe that nobody reads from any longer.
bool LastWriteHadNoReader();

/// What the first request is answered with. Starts on a new line: the present one may belong to a phase.
inline constexpr char kInterruptionNotice[] =
    "\nvarnelctl: interrupted; ends after this step and completes the backup (once more: ends at once)\n";

}  // namespace varnelctl
