// How a user ends a run that is under way: Ctrl-C asks for it, and the run ends where it can be ended cleanly.
#pragma once

#include <functional>
#include <memory>
#include <string_view>

namespace varnelctl {

/// Notes the user's wish to end while it lives.
class Interruption {
 public:
  virtual ~Interruption() = default;
  virtual bool Requested() const = 0;
};

/// Starts watching. Called by a command that ends cleanly; all others end at once.
using InterruptionSource = std::function<std::unique_ptr<Interruption>()>;

/// The class of the hidden window.
inline constexpr wchar_t kSessionWindow[] = L"varnelctl session";

/// Watches this process: Ctrl-C, the end of its console or terminal, and where there are signals SIGTERM; on Windows
/// the end of the session and of the system, too, for which it has a hidden window. The first
/// request is noted and acknowledged on standard error; the second ends the process at once, but for the end of the
/// terminal, of which a process may be told twice. One at a time.
std::unique_ptr<Interruption> WatchProcess();

/// After a write that failed: whether it was to a pipe that nobody reads from any longer.
bool LastWriteHadNoReader();

/// Tells the words on standard error, as far as it takes them within a second, and ends the process at once: no
/// destructor runs, as a thread may hang that one would wait for.
[[noreturn]] void EndProcess(std::string_view words, int status);

/// What the first request is answered with. Starts on a new line: the present one may belong to a phase.
inline constexpr char kInterruptionNotice[] =
    "\nvarnelctl: interrupted; ends after this step and completes the backup (once more: ends at once)\n";

}  // namespace varnelctl
