// The text of an entry of the journal. docs/journal.schema.json describes it.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

#include "varnelctl/sets/journal.h"

namespace varnelctl {

std::string FormatJournalEntry(const JournalEntry& entry);

/// Throws std::runtime_error with the place and the reason.
JournalEntry ParseJournalEntry(std::string_view text);

}  // namespace varnelctl
