// What a request writes into the journal, and when.
#pragma once

#include <optional>
#include <string>

#include "varnelctl/session.h"
#include "varnelctl/sets/journal.h"
#include "varnelctl/sets/snapshot_run.h"

namespace varnelctl {

/// One request. Without a journal nothing is written. Borrows all that it is given.
class RequestJournal {
 public:
  RequestJournal(Session& session, const SnapshotOptions& options, SnapshotOutcome& outcome);
  /// A request that has no set leaves no entry.
  ~RequestJournal();
  RequestJournal(const RequestJournal&) = delete;
  RequestJournal& operator=(const RequestJournal&) = delete;

  // Before what they name. Each throws JournalError when it cannot be written: what is not remembered is not begun.

  void BeginRequest();
  void NameSet(const VSS_ID& setId);
  void BeginSnapshot();
  /// What --then asks for.
  void BeginFollowUp();

  // After it. What cannot be written is a failure of the outcome: the set is there.

  void NoteTaken();
  /// With their disks and sessions.
  void NoteCopies();
  void NoteCompleted();
  void NoteEnd();

 private:
  void Write(JournalStage stage);
  void Note(JournalStage stage);
  void ReadCopies();
  void ReadSessions();
  JournalEnd End() const;

  Session& session_;
  const SnapshotOptions& options_;
  SnapshotOutcome& outcome_;
  JournalEntry entry_;
};

}  // namespace varnelctl
