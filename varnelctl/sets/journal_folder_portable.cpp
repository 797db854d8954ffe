#include <cstdlib>

#include "varnelctl/sets/journal.h"

namespace varnelctl {

// As the XDG base directories say.
std::filesystem::path DefaultJournalFolder() {
  const char* const state = std::getenv("XDG_STATE_HOME");
  if (state != nullptr && *state == '/') return std::filesystem::path(state) / "varnel" / "sets";
  const char* const home = std::getenv("HOME");
  const std::filesystem::path root = home != nullptr && *home != '\0' ? home : "/var/lib";
  return root / ".local" / "state" / "varnel" / "sets";
}

}  // namespace varnelctl
