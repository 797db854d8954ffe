// The part of the service that outlives its process: what it keeps in a state file, and what it does with that of a
// process that died.
#include <algorithm>
#include <utility>

#include "simulator/machine/shared_state.h"
#include "simulator/vss/snapshot_service.h"
#include "simulator/vss/vss_async.h"

namespace varnel::simulator {

ServiceState SnapshotService::State() const {
  return {devices_, copies_, openSet_, imported_, sessions_};
}

void SnapshotService::SetState(ServiceState state) {
  surfaced_.reset();
  devices_ = state.devices;
  copies_ = std::move(state.copies);
  openSet_ = std::move(state.openSet);
  imported_ = std::move(state.imported);
  sessions_ = std::move(state.sessions);
}

void SnapshotService::NoticeChange() const {
  if (machine_.shared != nullptr) machine_.shared->NoticeChange();
}

HRESULT SnapshotService::Saved() const {
  const DWORD error = machine_.shared == nullptr ? ERROR_SUCCESS : machine_.shared->Save();
  return error == ERROR_SUCCESS ? S_OK : HResultFromWin32(error);
}

KnownSession* SnapshotService::FindSession(const GUID& session) {
  const auto found =
      std::find_if(sessions_.begin(), sessions_.end(), [&](const KnownSession& known) { return known.id == session; });
  return found == sessions_.end() ? nullptr : &*found;
}

void SnapshotService::KnowSession(const GUID& session) {
  if (machine_.shared == nullptr) return;
  if (FindSession(session) == nullptr) sessions_.push_back({session, machine_.shared->process(), {}, {}});
  if (std::find(ownSessions_.begin(), ownSessions_.end(), session) == ownSessions_.end()) {
    ownSessions_.push_back(session);
  }
}

void SnapshotService::ForgetSession(const GUID& session) {
  std::erase_if(sessions_, [&](const KnownSession& known) { return known.id == session; });
  std::erase(ownSessions_, session);
  if (committing_ == session) commit_ = nullptr;
}

HRESULT SnapshotService::KeepParticipants(const GUID& session, std::vector<std::wstring> writers) {
  KnownSession* known = FindSession(session);
  if (known == nullptr) return S_OK;
  known->writers = std::move(writers);
  return Saved();
}

HRESULT SnapshotService::BeginCommit(const GUID& session, const std::shared_ptr<const AsyncOperation>& operation) {
  KnownSession* known = FindSession(session);
  if (known == nullptr || !openSet_) return S_OK;
  known->setUnderWay = openSet_->id;
  const HRESULT saved = Saved();
  if (FAILED(saved)) return saved;
  committing_ = session;
  commit_ = operation;
  return S_OK;
}

void SnapshotService::NoticeEndOfCommit() {
  if (commit_ == nullptr || !commit_->settled) return;
  if (KnownSession* session = FindSession(committing_)) session->setUnderWay = {};
  commit_ = nullptr;
  NoticeChange();
}

bool SnapshotService::IsCommitUnderWay() const {
  return std::any_of(sessions_.begin(), sessions_.end(),
                     [](const KnownSession& session) { return session.setUnderWay != GUID{}; });
}

void SnapshotService::EndOrphans(const std::function<bool(DWORD process)>& isAlive) {
  const auto hasEnded = [&](const KnownSession& session) {
    if (session.process != machine_.shared->process()) return !isAlive(session.process);
    return std::find(ownSessions_.begin(), ownSessions_.end(), session.id) == ownSessions_.end();
  };
  std::vector<KnownSession> orphans;
  std::copy_if(sessions_.begin(), sessions_.end(), std::back_inserter(orphans), hasEnded);
  for (const KnownSession& orphan : orphans) EndOrphan(orphan);
}

void SnapshotService::NoteRaised(std::wstring writer, std::optional<WriterEvent> event, HRESULT failure) {
  raisedEvents.push_back({std::move(writer), event, failure, machine_.now + raisedLater});
}

void SnapshotService::EndOrphan(const KnownSession& session) {
  if (session.setUnderWay != GUID{}) {
    const bool complete = machine_.model().orphanedSnapshot == OrphanedSnapshot::complete;
    if (complete && OpenSetOf(session.id) != nullptr) MakeCopies(session.id);
    if (!complete) {
      Withdraw(session.setUnderWay);
      for (const std::wstring& writer : session.writers) NoteRaised(writer, std::nullopt);
    }
  }
  for (const std::wstring& writer : session.writers) NoteRaised(writer, WriterEvent::backupShutdown);
  EndSession(session.id);
}

}  // namespace varnel::simulator
