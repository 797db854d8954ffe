// What may be done with a set after its request, and doing it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "varnelctl/session.h"
#include "varnelctl/sets/known_sets.h"
#include "varnelctl/sets/set_sessions.h"

namespace varnelctl {

enum class SetAction { Break, Mask, Disconnect, Delete };

inline constexpr SetAction kSetActions[] = {SetAction::Break, SetAction::Mask, SetAction::Disconnect,
                                            SetAction::Delete};

/// As the command line has it.
const char* WordFor(SetAction action);

/// Why it is not done with this set; empty where nothing speaks against it.
/// \param force for sets of other programs and products.
std::string WhyNot(SetAction action, const KnownSet& set, const KnownSets& known, bool force);

struct ActionOutcome {
  SetAction action = SetAction::Delete;
  std::wstring setId;
  std::vector<std::string> plan;  ///< of a dry run: what would be called and changed
  std::string text;               ///< what it comes to, in one line
  std::vector<ListedCopy> copiesLeft;
  std::vector<SessionOfSet> sessionsLeft;
  std::optional<Failure> failure;
};

/// What is left is named in the failure, each with its remedy.
void TellLeft(Failure& failure, const KnownSet& set, const std::vector<ListedCopy>& copies,
              const std::vector<SessionOfSet>& sessions);

/// Does it, and writes what becomes of the set into the journal before and after. A failure is kept in the outcome.
/// Throws UsageError for a set that is not known or may not be touched, before anything is done; JournalError;
/// CallFailure where the service cannot be asked.
ActionOutcome DoWithSet(Session& session, SetAction action, const std::string& id, bool force);
/// Only says it.
ActionOutcome PlanWithSet(Session& session, SetAction action, const std::string& id, bool force);

}  // namespace varnelctl
