#include "simulator/machine/shared_state.h"

#include <exception>
#include <optional>
#include <set>
#include <utility>

#include "simulator/host_file/json_reader.h"
#include "simulator/host_file/state_document.h"
#include "simulator/machine/machine.h"
#include "simulator/machine/win32_codes.h"
#include "simulator/vss/snapshot_service.h"

namespace varnel::simulator {

SharedState::SharedState(Machine& machine, const std::filesystem::path& file) : machine_(machine), file_(file) {
  if (!file_.Hold()) {
    throw StateFileError(file, "its lock cannot be had", "name a file on a disk of this machine");
  }
  Read();
  std::set<DWORD> taken;
  for (const KnownSession& session : machine_.snapshots->State().sessions) taken.insert(session.process);
  file_.Join(taken);
  file_.Release();
}

void SharedState::Read() {
  const std::optional<std::string> text = file_.Read();
  try {
    if (text && text->empty()) throw JsonError("", "the file is empty");
    Take(text.value_or(""));
    file_.TakeAsRead();
  } catch (const JsonError& error) {
    throw StateFileError(file_.path(), (error.pointer().empty() ? "/" : error.pointer()) + ": " + error.what(),
                         "name another file, or delete this one to begin with a host without shadow copies");
  }
}

// No text is the state of a host at which nothing has happened.
void SharedState::Take(const std::string& text) {
  HostState state = text.empty() ? HostState() : ParseHostState(text, machine_.model());
  machine_.snapshots->SetState(std::move(state.service));
  machine_.endedSessions = std::move(state.endedSessions);
  machine_.newEvents = std::move(state.newEvents);
  text_ = text;
  changed_ = false;
}

std::string SharedState::Describe() const {
  return FormatHostState({machine_.snapshots->State(), machine_.endedSessions, machine_.newEvents}, machine_.model());
}

void SharedState::Enter() {
  if (depth_++ > 0) return;
  problem_ = file_.Hold() ? ERROR_SUCCESS : kErrorLockFailed;
  if (problem_ != ERROR_SUCCESS) return;
  try {
    if (file_.HasChanged()) Read();
    machine_.snapshots->EndOrphans([&](DWORD process) { return file_.IsAlive(process); });
  } catch (const StateFileError&) {
    problem_ = kErrorFileCorrupt;  // someone else's hand; it stays as it is
  } catch (const std::exception&) {
    problem_ = ERROR_NOT_ENOUGH_MEMORY;
  }
}

void SharedState::Leave() noexcept {
  if (--depth_ > 0) return;
  try {
    machine_.snapshots->NoticeEndOfCommit();
    if (changed_ && problem_ == ERROR_SUCCESS) Save();
  } catch (const std::exception&) {
    changed_ = true;  // no memory: the next call writes it
  }
  if (problem_ != kErrorLockFailed) file_.Release();
}

DWORD SharedState::Save() {
  std::string text = Describe();
  DWORD error = problem_;
  if (error == ERROR_SUCCESS && text != text_) error = file_.Write(text);
  if (error != ERROR_SUCCESS) {
    Take(text_);
    return error;
  }
  text_ = std::move(text);
  changed_ = false;
  return ERROR_SUCCESS;
}

Turn::Turn(Machine& machine) : machine_(machine), lock_(machine.Lock()) {
  if (machine_.shared != nullptr) machine_.shared->Enter();
}

Turn::~Turn() {
  if (machine_.shared != nullptr) machine_.shared->Leave();
}

}  // namespace varnel::simulator
