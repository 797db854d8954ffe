// The end of what requests have left whose process is gone.
#pragma once

#include <string>
#include <vector>

#include "varnelctl/session.h"
#include "varnelctl/sets/known_sets.h"
#include "varnelctl/sets/set_sessions.h"

namespace varnelctl {

/// What came of a set; in a dry run, what would.
enum class CleanUpResult {
  NothingTaken,  ///< its request had not come so far
  Deleted,
  Gone,    ///< the service knows it no more
  Broken,  ///< its request was breaking it, and it is not listed any more
  Masked,
  Left,  ///< or one of its iSCSI sessions is
};

const char* WordFor(CleanUpResult result);

struct CleanUpOutcome {
  std::wstring setId;  ///< empty of a request that had none
  std::filesystem::path file;
  CleanUpResult result = CleanUpResult::Left;
  std::string text;  ///< one line
  std::vector<ListedCopy> copiesLeft;
  std::vector<SessionOfSet> sessionsLeft;
  std::vector<std::string> details;  ///< of what is left
};

/// Ends the sets of requests that the journal remembers as not done, or as to be ended, and whose process is gone;
/// nothing else is touched. What cannot be ended stays journalled. Throws UsageError without a journal, JournalError,
/// and CallFailure where the service cannot be asked.
/// \param dryRun only says it.
std::vector<CleanUpOutcome> CleanUp(Session& session, bool dryRun);

/// The failure of a clean-up that left something; nothing where it did not.
std::optional<Failure> FailureOf(const std::vector<CleanUpOutcome>& outcomes);

/// Warns of requests that may have left sets behind, and of files of the journal that cannot be read.
void TellLeftovers(Session& session, const Journal::Content& content);

}  // namespace varnelctl
