// How a snapshot is shown: one JSON document, or text that tells in a few lines what a person wants to know. The
// verdict follows either.
#pragma once

#include <string>

#include "varnelctl/console/console.h"
#include "varnelctl/report/verdict.h"
#include "varnelctl/sets/tries.h"

namespace varnelctl {

Json SnapshotDocument(const SnapshotOutcome& outcome);
Json TriesJson(const std::vector<Try>& tries);
Json CatalogDocument(const SnapshotOutcome& outcome);
/// \param verbose everything rather than a few lines.
void PrintSnapshot(Console& console, const SnapshotOutcome& outcome, const Verdict& verdict, bool verbose);

/// The verdict with what went wrong after the run's own end.
Verdict VerdictNow(Verdict verdict, const Session& session);
/// Into the document of the run.
void NoteVerdict(Session& session, const Verdict& verdict);
/// The last word, once nothing more can go wrong: in its line or, where a document is wanted, in that.
void TellVerdict(Session& session, const Verdict& verdict);

/// What the writers were told of the backup and what they make of it: a sentence without its end. Of a set that was
/// taken.
std::string EffectOf(const SnapshotOutcome& outcome);

}  // namespace varnelctl
