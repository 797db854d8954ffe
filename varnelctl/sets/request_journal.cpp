#include "varnelctl/sets/request_journal.h"

#include <utility>

#include "text/guid.h"
#include "text/unicode.h"
#include "varnelctl/explanation/failure.h"
#include "varnelctl/sets/clean_up.h"
#include "varnelctl/sets/iscsi_sessions.h"

namespace varnelctl {

RequestJournal::RequestJournal(Session& session, const SnapshotOptions& options, SnapshotOutcome& outcome)
    : session_(session), options_(options), outcome_(outcome) {}

RequestJournal::~RequestJournal() {
  if (entry_.file.empty() || (!entry_.setId.empty() && entry_.end != JournalEnd::Nothing)) return;
  try {
    session_.journal->Remove(entry_);
  } catch (const std::exception&) {
    // It says that nothing was taken, and goes with the next request's.
  }
}

void RequestJournal::BeginRequest() {
  if (!session_.journal) return;
  TellLeftovers(session_, session_.journal->Tidy());
  const RequestedSet requested = Requested(options_);
  const Header& header = session_.TellHeader(requested);
  entry_.host = header.host.value_or("");
  entry_.process = ThisProcess();
  entry_.start = header.start;
  entry_.commandLine = header.commandLine;
  entry_.application = requested.application;
  entry_.disks = options_.disks;
  entry_.context = options_.context;
  Write(JournalStage::Begun);
}

void RequestJournal::NameSet(const VSS_ID& setId) {
  entry_.setId = varnel::FormatGuid(setId);
  Write(JournalStage::Started);
}

void RequestJournal::BeginSnapshot() {
  ReadCopies();
  Write(JournalStage::TakingSnapshot);
}

void RequestJournal::BeginFollowUp() {
  switch (outcome_.gotThrough ? options_.then : Then::Keep) {
    case Then::Keep:
      return;
    case Then::Break:
      return Write(JournalStage::Breaking);
    case Then::Mask:
      return Write(JournalStage::Masking);
    case Then::Delete:
      return Write(JournalStage::Deleting);
  }
}

void RequestJournal::NoteTaken() {
  Note(JournalStage::Taken);
}

void RequestJournal::NoteCopies() {
  if (entry_.setId.empty() || !session_.journal || !outcome_.taken) return;
  ReadCopies();
  ReadSessions();
  Note(JournalStage::Taken);
}

// A set that is to be kept is what was asked for from now on.
void RequestJournal::NoteCompleted() {
  if (entry_.setId.empty() || !outcome_.taken) return;
  const bool stays = outcome_.gotThrough && options_.then == Then::Keep;
  if (!stays) return Note(JournalStage::Completed);
  entry_.disconnected = options_.disconnect;  // before it is done
  entry_.end = End();
  Note(JournalStage::Ended);
}

void RequestJournal::NoteEnd() {
  if (entry_.file.empty()) return;
  if (outcome_.mayCome && outcome_.setState == SetState::Unknown) return;  // as if the process had ended there
  entry_.end = End();
  const std::size_t open = outcome_.sessionsLeft.size();
  const bool allOpen = open != 0 && open >= entry_.sessions.size();
  entry_.disconnected = outcome_.disconnected && !allOpen;
  Note(JournalStage::Ended);
}

void RequestJournal::Write(JournalStage stage) {
  if (!session_.journal) return;
  entry_.stage = stage;
  session_.journal->Write(entry_);
}

// An entry that is not brought to its end has the set ended by the next clean-up.
void RequestJournal::Note(JournalStage stage) {
  try {
    Write(stage);
  } catch (const JournalError& error) {
    const std::string setId = varnel::WideToUtf8Lossy(entry_.setId);
    outcome_.Attempt(session_, [&] {
      throw NotAllDone("what became of snapshot set " + setId +
                       " is not remembered, and varnelctl sets clean-up may end it: " + error.what());
    });
  }
}

void RequestJournal::ReadCopies() {
  entry_.copies.clear();
  for (const SnapshotVolumeInfo& volume : outcome_.requestor->GetSnapshotVolumes()) {
    JournalCopy& copy = entry_.copies.emplace_back();
    copy.snapshotId = volume.snapshotId;
    copy.volume = volume.volumeName;
    copy.device = volume.snapshotDeviceName;
  }
  for (std::size_t i = 0; i < entry_.copies.size() && i < outcome_.shadowCopies.size(); ++i) {
    const ShadowCopyView& view = outcome_.shadowCopies[i];
    entry_.copies[i].mountPoint = view.mountPoint;
    entry_.copies[i].sourceDisk = view.sourceSerialNumber;
    entry_.copies[i].disk = view.disk.diskName;
    entry_.copies[i].serialNumber = view.disk.serialNumber;
  }
}

// Where the initiator does not answer there is nothing to remember.
void RequestJournal::ReadSessions() {
  std::vector<TesselCommonClasses::WindowsDiskDevice> disks;
  for (const ShadowCopyView& copy : outcome_.shadowCopies) {
    if (!copy.disk.diskName.empty()) disks.push_back(copy.disk);
  }
  if (disks.empty()) return;
  try {
    entry_.sessions.clear();
    for (const IscsiSession& session : FindSessionsOf(disks)) {
      JournalSession& noted = entry_.sessions.emplace_back(JournalSession{session.targetName, session.sessionId, {}});
      for (const auto& disk : session.disks) {
        noted.disks.push_back(disk.serialNumber.empty() ? disk.diskName : disk.serialNumber);
      }
    }
  } catch (const CallFailure&) {
    return;
  }
}

JournalEnd RequestJournal::End() const {
  if (!outcome_.copiesLeft.empty() && !(outcome_.gotThrough && options_.then != Then::Delete)) {
    return JournalEnd::ToBeEnded;
  }
  switch (outcome_.setState) {
    case SetState::None:
      return JournalEnd::Nothing;
    case SetState::Kept:
      return outcome_.gotThrough ? JournalEnd::Kept : JournalEnd::ToBeEnded;
    case SetState::Released:
      return JournalEnd::Released;
    case SetState::Deleted:
      return JournalEnd::Deleted;
    case SetState::Broken:
      return JournalEnd::Broken;
    case SetState::Masked:
      return JournalEnd::Masked;
    case SetState::Unknown:
      break;
  }
  return JournalEnd::ToBeEnded;
}

}  // namespace varnelctl
