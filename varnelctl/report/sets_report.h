// What is told of snapshot sets after their requests, to people and to programs.
#pragma once

#include <string>
#include <vector>

#include "varnelctl/console/console.h"
#include "varnelctl/sets/clean_up.h"
#include "varnelctl/sets/known_sets.h"
#include "varnelctl/sets/set_actions.h"

namespace varnelctl {

/// One set with what is known of it at the moment.
struct ShownSet {
  const KnownSet& set;
  std::vector<SessionOfSet> sessions;  ///< the open ones that carry its disks
};

void PrintSets(Console& console, const KnownSets& known, const std::optional<Journal>& journal);
Json SetsDocument(const KnownSets& known, const std::optional<Journal>& journal);

void PrintSet(Console& console, const ShownSet& shown, const KnownSets& known);
Json SetDocument(const ShownSet& shown, const KnownSets& known);

void PrintPlan(Console& console, const ActionOutcome& outcome);
Json ActionDocument(const ActionOutcome& outcome, bool dryRun, const std::string& errorDetails);

void PrintCleanUp(Console& console, const std::vector<CleanUpOutcome>& outcomes);
Json CleanUpDocument(const std::vector<CleanUpOutcome>& outcomes, bool dryRun);
/// "3 sets: 2 deleted, 1 left"
std::string DescribeCleanUp(const std::vector<CleanUpOutcome>& outcomes, bool dryRun);

/// A shadow copy that is left of a set.
Json ListedCopyJson(const ListedCopy& copy);

}  // namespace varnelctl
