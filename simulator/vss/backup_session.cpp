#include "simulator/vss/backup_session.h"

#include <algorithm>
#include <utility>

#include "simulator/machine/service_events.h"
#include "simulator/vss/snapshot_service.h"
#include "simulator/vss/torn_databases.h"
#include "text/unicode.h"

namespace varnel::simulator {
namespace {

constexpr DWORD kHoldLimitMilliseconds = 10000;

// Whether a planned result means that the operation did not do its work.
bool Prevents(const std::optional<HRESULT>& forced) {
  return forced && (FAILED(*forced) || *forced == VSS_S_ASYNC_CANCELLED || *forced == VSS_S_ASYNC_PENDING);
}

std::optional<HRESULT> ResultOf(const AsyncFault* fault) {
  return fault == nullptr ? std::nullopt : std::optional(fault->result);
}

std::wstring_view TextOf(LPCWSTR text) {
  return text == nullptr ? std::wstring_view() : std::wstring_view(text);
}

}  // namespace

BackupSession::BackupSession(std::shared_ptr<Machine> machine)
    : machine_(std::move(machine)), service_(*machine_->snapshots), id_(machine_->NewId()), writers_(*machine_) {}

BackupSession::~BackupSession() {
  NoticeCancellation();
  writers_.Shutdown();
  service_.EndSession(id_);
}

// What an operation did is undone when the caller cancelled it before its time was up.
void BackupSession::NoticeCancellation() {
  if (before_ && pending_ != nullptr && pending_->result == VSS_S_ASYNC_CANCELLED) {
    stage_ = before_->stage;
    gathered_ = before_->gathered;
    before_.reset();
  }
  if (snapshotOperation_ == nullptr || snapshotOperation_->result != VSS_S_ASYNC_CANCELLED) return;
  if (!IsIn(Stage::snapshotting, Stage::snapshotDone)) return;
  if (hungSince_) FailFrozenWriters(machine_->now - *hungSince_);
  service_.Withdraw(setId_);
  document_->content.transportableCopies.clear();
  EndSnapshot();
}

bool BackupSession::IsIdle() {
  NoticeCancellation();
  return pending_ == nullptr || pending_->settled;
}

HRESULT BackupSession::LoadDocument(BSTR xml) {
  try {
    document_->content = ParseBackupDocument(WideToUtf8Lossy(std::wstring_view(xml, ::SysStringLen(xml))));
  } catch (const DocumentError&) {
    return VSS_E_INVALID_XML_DOCUMENT;
  }
  for (const DocumentWriter& writer : document_->content.writers) {
    AddedComponents& added = added_.emplace_back();
    for (std::size_t i = 0; i < writer.components.size(); ++i) {
      const DocumentComponent& component = writer.components[i];
      added.emplace(ComponentKey(component.logicalPath.value_or(L""), component.name), i);
    }
  }
  loaded_ = true;
  return S_OK;
}

HRESULT BackupSession::InitializeForBackup(BSTR xml) {
  if (stage_ != Stage::created) return VSS_E_BAD_STATE;
  if (xml != nullptr && ::SysStringLen(xml) != 0) {
    if (const HRESULT result = LoadDocument(xml); FAILED(result)) return result;
  }
  stage_ = Stage::initialized;
  return S_OK;
}

HRESULT BackupSession::InitializeForRestore(BSTR xml) {
  if (xml == nullptr) return E_INVALIDARG;
  if (stage_ != Stage::created) return VSS_E_BAD_STATE;
  if (const HRESULT result = LoadDocument(xml); FAILED(result)) return result;
  restore_ = Restore::selecting;
  stage_ = Stage::initialized;
  return S_OK;
}

HRESULT BackupSession::SetContext(LONG context) {
  if (!IsIdle() || contextFixed_ || !IsBackupIn(Stage::initialized, Stage::initialized)) return VSS_E_BAD_STATE;
  if (!IsValidContext(context)) return E_INVALIDARG;
  contextFixed_ = true;
  context_ = context;
  return S_OK;
}

HRESULT BackupSession::SetBackupState(bool selectComponents, bool bootableSystemState, VSS_BACKUP_TYPE type,
                                      bool partialFiles) {
  const bool inOrder = IsBackupIn(Stage::initialized, Stage::setStarted) || restore_ == Restore::selecting;
  if (!IsIdle() || !inOrder) return VSS_E_BAD_STATE;
  if (type <= VSS_BT_UNDEFINED || type > VSS_BT_OTHER) return E_INVALIDARG;
  BackupDocument& document = document_->content;
  document.selectComponents = selectComponents;
  document.bootableSystemState = bootableSystemState;
  document.backupType = type;
  document.partialFileSupport = partialFiles;
  backupStateSet_ = true;
  return S_OK;
}

bool BackupSession::MaySelectWriters() {
  return IsIdle() && !gatherStarted_ && IsIn(Stage::initialized, Stage::setStarted);
}

HRESULT BackupSession::SelectWriters(const VSS_ID* ids, UINT count, WriterSelection select) {
  if (ids == nullptr || count == 0) return E_INVALIDARG;
  if (!MaySelectWriters()) return VSS_E_BAD_STATE;
  (writers_.*select)({ids, ids + count});
  return S_OK;
}

void BackupSession::HandOut(std::shared_ptr<AsyncOperation> operation, IVssAsync** async) {
  pending_ = operation;
  *async = MakeAsync(machine_, std::move(operation));
}

// Starts an operation that takes no time but that of writers that hang. `work` answers its result, and only runs when
// the fault plan lets it.
template <class Work>
HRESULT BackupSession::RunAsync(std::string_view name, IVssAsync** async, Work&& work) {
  const AsyncFault* fault = machine_->faults.OnAsync(name);
  const std::optional<HRESULT> forced = ResultOf(fault);
  auto operation = std::make_shared<AsyncOperation>();
  operation->hangs = fault != nullptr && fault->hangs;
  before_ = Before{stage_, gathered_};
  hungMilliseconds_ = 0;
  if (Prevents(forced)) LogOperationFailure(*machine_, name, *forced, {});
  operation->result = Prevents(forced) ? *forced : work();
  service_.raisedLater = 0;
  operation->endsAt = machine_->now + hungMilliseconds_;
  if (forced && SUCCEEDED(operation->result)) operation->result = *forced;
  HandOut(std::move(operation), async);
  return S_OK;
}

HRESULT BackupSession::GatherWriterMetadata(IVssAsync** async) {
  if (async == nullptr) return E_INVALIDARG;
  if (!MaySelectWriters()) return VSS_E_BAD_STATE;
  gatherStarted_ = true;
  contextFixed_ = true;
  return RunAsync("GatherWriterMetadata", async, [&] {
    hungMilliseconds_ += writers_.Identify();
    gathered_ = true;
    return VSS_S_ASYNC_FINISHED;
  });
}

HRESULT BackupSession::GetWriterMetadataCount(UINT* count) {
  if (count == nullptr) return E_INVALIDARG;
  if (!IsIdle() || !gathered_ || metadataFreed_ || stage_ == Stage::ended) return VSS_E_BAD_STATE;
  *count = static_cast<UINT>(writers_.writers().size());
  return S_OK;
}

HRESULT BackupSession::GetWriterMetadata(UINT index, std::shared_ptr<const Writer>& writer) {
  UINT count = 0;
  if (const HRESULT result = GetWriterMetadataCount(&count); FAILED(result)) return result;
  if (index >= count) return VSS_E_OBJECT_NOT_FOUND;
  writer = writers_.writers()[index].data;
  return S_OK;
}

HRESULT BackupSession::FreeWriterMetadata() {
  if (!IsIdle() || !gathered_ || metadataFreed_) return VSS_E_BAD_STATE;
  metadataFreed_ = true;
  return S_OK;
}

DocumentWriter* BackupSession::FindDocumentWriter(const GUID& instanceId, const GUID& writerId) {
  std::vector<DocumentWriter>& writers = document_->content.writers;
  const auto found = std::find_if(writers.begin(), writers.end(), [&](const DocumentWriter& writer) {
    return writer.instanceId == instanceId && writer.writerId == writerId;
  });
  return found == writers.end() ? nullptr : &*found;
}

std::size_t BackupSession::DocumentWriterFor(const GatheredWriter& writer) {
  std::vector<DocumentWriter>& writers = document_->content.writers;
  if (const DocumentWriter* known = FindDocumentWriter(writer.data->instanceId, writer.data->writerId)) {
    return static_cast<std::size_t>(known - writers.data());
  }
  DocumentWriter added;
  added.instanceId = writer.data->instanceId;
  added.writerId = writer.data->writerId;
  added.instanceName = writer.data->instanceName;
  added.backupSchema = writer.data->backupSchema;
  writers.push_back(std::move(added));
  added_.emplace_back();
  return writers.size() - 1;
}

HRESULT BackupSession::AddComponent(const ComponentName& component) {
  if (component.name == nullptr) return E_INVALIDARG;
  if (!IsIdle() || !gathered_ || IsWithoutWriters(context_) || !IsBackupIn(Stage::initialized, Stage::setStarted)) {
    return VSS_E_BAD_STATE;
  }
  GatheredWriter* writer = writers_.Find(component.instanceId, component.writerId);
  if (writer == nullptr) return VSS_E_OBJECT_NOT_FOUND;
  const std::wstring_view path = TextOf(component.logicalPath);
  const ComponentIndex& index = writers_.IndexOf(*writer);
  const WriterComponent* found = index.Find(component.type, path, component.name);
  if (found == nullptr) return VSS_E_OBJECT_NOT_FOUND;
  if (!found->selectable && index.HasSelectableAncestor(path)) return E_INVALIDARG;
  const std::size_t at = DocumentWriterFor(*writer);
  std::vector<DocumentComponent>& entries = document_->content.writers[at].components;
  const bool isNew = added_[at].emplace(ComponentKey(path, component.name), entries.size()).second;
  if (!isNew) return VSS_E_OBJECT_ALREADY_EXISTS;
  DocumentComponent& entry = entries.emplace_back();
  entry.logicalPath = found->logicalPath;
  entry.name = found->name;
  entry.type = found->type;
  return S_OK;
}

DocumentComponent* BackupSession::FindAdded(const ComponentName& component) {
  DocumentWriter* writer = FindDocumentWriter(component.instanceId, component.writerId);
  if (writer == nullptr) return nullptr;
  const AddedComponents& added = added_[static_cast<std::size_t>(writer - document_->content.writers.data())];
  const auto found = added.find(ComponentKey(TextOf(component.logicalPath), component.name));
  if (found == added.end()) return nullptr;
  DocumentComponent& entry = writer->components[found->second];
  return entry.type == component.type ? &entry : nullptr;
}

HRESULT BackupSession::ChangeForBackup(const ComponentName& component, const ComponentChange& change) {
  return Change(component, IsBackupIn(Stage::initialized, Stage::setStarted), change);
}

HRESULT BackupSession::ChangeForRestore(const ComponentName& component, const ComponentChange& change) {
  return Change(component, restore_ == Restore::selecting, change);
}

HRESULT BackupSession::Change(const ComponentName& component, bool inOrder, const ComponentChange& change) {
  if (component.name == nullptr) return E_INVALIDARG;
  if (!IsIdle() || !inOrder) return VSS_E_BAD_STATE;
  for (const DocumentWriter& writer : document_->content.writers) {
    if (writer.writerId != component.writerId) continue;
    ComponentName instance = component;
    instance.instanceId = writer.instanceId;
    if (DocumentComponent* found = FindAdded(instance)) {
      change(*found);
      return S_OK;
    }
  }
  return VSS_E_OBJECT_NOT_FOUND;
}

HRESULT BackupSession::SetBackupSucceeded(const ComponentName& component, bool succeeded) {
  if (component.name == nullptr) return E_INVALIDARG;
  if (!IsIdle() || stage_ != Stage::snapshotDone) return VSS_E_BAD_STATE;
  DocumentComponent* found = FindAdded(component);
  if (found == nullptr) return VSS_E_OBJECT_NOT_FOUND;
  found->succeeded = succeeded;
  return S_OK;
}

HRESULT BackupSession::StartSnapshotSet(VSS_ID* setId) {
  if (setId == nullptr) return E_INVALIDARG;
  if (!IsIdle()) return VSS_E_BAD_STATE;
  if (IsIn(Stage::setStarted, Stage::snapshotting)) return VSS_E_SNAPSHOT_SET_IN_PROGRESS;
  if (!IsBackupIn(Stage::initialized, Stage::initialized)) return VSS_E_BAD_STATE;
  if (const HRESULT result = service_.StartSet(id_, context_, setId_); FAILED(result)) return result;
  contextFixed_ = true;
  stage_ = Stage::setStarted;
  document_->content.snapshotSetId = setId_;
  *setId = setId_;
  return S_OK;
}

HRESULT BackupSession::AddToSnapshotSet(const wchar_t* volume, const GUID& provider, VSS_ID* copyId) {
  if (volume == nullptr || copyId == nullptr) return E_INVALIDARG;
  if (!IsIdle() || stage_ != Stage::setStarted) return VSS_E_BAD_STATE;
  return service_.AddVolume(id_, volume, provider, *copyId);
}

// In component mode only writers with added components are told of what follows PrepareBackup.
bool BackupSession::TakesPart(const GatheredWriter& writer) {
  return !SelectsComponents() || FindDocumentWriter(writer.data->instanceId, writer.data->writerId) != nullptr;
}

std::vector<std::wstring> BackupSession::Participants() {
  std::vector<std::wstring> names;
  for (const GatheredWriter& writer : writers_.writers()) {
    if (TakesPart(writer)) names.push_back(writer.data->name);
  }
  return names;
}

void BackupSession::ChooseParticipants() {
  for (GatheredWriter& writer : writers_.writers()) writer.takesPart = TakesPart(writer);
}

// How long the writer hung in it.
ULONGLONG BackupSession::RaiseAt(GatheredWriter& writer, WriterEvent event, VSS_WRITER_STATE reached,
                                 VSS_WRITER_STATE failed) {
  const std::optional<WriterFault> torn = JudgeDatabases(writer, event);
  const WriterFault* fault = writers_.Raise(writer, event, reached, failed, torn ? &*torn : nullptr);
  if (fault == nullptr) return 0;
  RecordComponentFailures(writer, *fault);
  const bool isTorn = torn && fault == &*torn;
  if (event == WriterEvent::freeze || event == WriterEvent::thaw || (isTorn && !SelectsComponents())) {
    writers_.Abort(writer);
  }
  return fault->hangs ? writers_.HangLimit(*writer.data, event) : 0;
}

// What the writer itself finds wrong with the set.
std::optional<WriterFault> BackupSession::JudgeDatabases(const GatheredWriter& writer, WriterEvent event) {
  if (event == WriterEvent::prepareSnapshot && !SelectsComponents()) {
    return JudgeDatabasesOfVolumes(*machine_, *writer.data, setVolumes_);
  }
  const bool judges = event == WriterEvent::postSnapshot && SelectsComponents();
  const DocumentWriter* entry = judges ? FindDocumentWriter(writer.data->instanceId, writer.data->writerId) : nullptr;
  if (entry == nullptr) return std::nullopt;
  return JudgeSelectedDatabases(*machine_, *writer.data, entry->components, setVolumes_);
}

// Writers are told at the same time: an event lasts as long as the one that hangs longest.
void BackupSession::RaiseAtAll(WriterEvent event, VSS_WRITER_STATE reached, VSS_WRITER_STATE failed) {
  ULONGLONG longest = 0;
  service_.raisedLater = hungMilliseconds_ + windowMilliseconds_;
  for (GatheredWriter& writer : writers_.writers()) {
    longest = std::max(longest, RaiseAt(writer, event, reached, failed));
  }
  hungMilliseconds_ += longest;
}

void BackupSession::RaiseAtParticipants(WriterEvent event, VSS_WRITER_STATE reached, VSS_WRITER_STATE failed) {
  ULONGLONG longest = 0;
  service_.raisedLater = hungMilliseconds_ + windowMilliseconds_;
  for (GatheredWriter& writer : writers_.writers()) {
    if (writer.takesPart) longest = std::max(longest, RaiseAt(writer, event, reached, failed));
  }
  hungMilliseconds_ += longest;
}

// The place of a writer in the document. That of an earlier backup may have another instance of it, which is not here
// any more; the requestor may also name this one for a component.
DocumentWriter* BackupSession::EntryOf(const Writer& writer) {
  DocumentWriter* same = FindDocumentWriter(writer.instanceId, writer.writerId);
  if (same != nullptr || restore_ == Restore::none) return same;
  std::vector<DocumentWriter>& entries = document_->content.writers;
  const auto takesBack = [&](const DocumentWriter& entry) {
    const auto names = [&](const DocumentComponent& component) {
      return component.restore.instanceId == writer.instanceId;
    };
    const bool isGone = writers_.Find(entry.instanceId, entry.writerId) == nullptr;
    return entry.writerId == writer.writerId && ((isGone && entry.instanceName == writer.instanceName) ||
                                                 std::any_of(entry.components.begin(), entry.components.end(), names));
  };
  const auto found = std::find_if(entries.begin(), entries.end(), takesBack);
  return found == entries.end() ? nullptr : &*found;
}

// Restores tell the writers of the document.
void BackupSession::RaiseAtRestorers(WriterEvent event, VSS_WRITER_STATE failed) {
  for (GatheredWriter& writer : writers_.writers()) {
    if (EntryOf(*writer.data) != nullptr) RaiseAt(writer, event, VSS_WS_STABLE, failed);
  }
}

// What the writer does with SetFailure, or during a restore with a message, for each component that the fault names;
// components that were not added explicitly have no place in the document.
void BackupSession::RecordComponentFailures(const GatheredWriter& writer, const WriterFault& fault) {
  DocumentWriter* entry = EntryOf(*writer.data);
  if (entry == nullptr || fault.components.empty()) return;
  std::unordered_map<std::wstring, DocumentComponent*> components;
  for (DocumentComponent& component : entry->components) {
    components.emplace(FullPathKey(component.logicalPath.value_or(L""), component.name), &component);
  }
  for (const ComponentFault& failed : fault.components) {
    const auto found = components.find(FullPathKey(L"", failed.fullPath));
    if (found == components.end()) continue;
    entry->changedByWriter = true;
    found->second->failure = failed.failure;
    found->second->applicationResult = failed.applicationResult;
    if (failed.applicationMessage.empty()) continue;
    ComponentRestore& restore = found->second->restore;
    found->second->applicationMessage = failed.applicationMessage;
    if (fault.event == WriterEvent::preRestore) restore.preRestoreFailure = failed.applicationMessage;
    if (fault.event == WriterEvent::postRestore) restore.postRestoreFailure = failed.applicationMessage;
  }
}

// Writers that did well put this into those of their components that were added.
void BackupSession::LetWritersLeave(std::optional<std::wstring> WriterComponent::*what,
                                    std::optional<std::wstring> DocumentComponent::*where) {
  for (const GatheredWriter& writer : writers_.writers()) {
    if (writer.status.HasFailed()) continue;
    for (const WriterComponent& component : writer.data->components) {
      if (!(component.*what)) continue;
      const std::wstring path = component.logicalPath.value_or(L"");
      DocumentComponent* added = FindAdded(
          {writer.data->instanceId, writer.data->writerId, component.type, path.c_str(), component.name.c_str()});
      if (added == nullptr) continue;
      added->*where = component.*what;
      FindDocumentWriter(writer.data->instanceId, writer.data->writerId)->changedByWriter = true;
    }
  }
}

HRESULT BackupSession::PrepareForBackup(IVssAsync** async) {
  if (async == nullptr) return E_INVALIDARG;
  if (!IsIdle() || stage_ != Stage::setStarted || !backupStateSet_ || !gathered_ || IsWithoutWriters(context_)) {
    return VSS_E_BAD_STATE;
  }
  if (const HRESULT kept = service_.KeepParticipants(id_, Participants()); FAILED(kept)) return kept;
  stage_ = Stage::preparing;
  ++document_->phase;
  return RunAsync("PrepareForBackup", async, [&] {
    ChooseParticipants();
    RaiseAtAll(WriterEvent::prepareBackup, VSS_WS_STABLE, VSS_WS_FAILED_AT_PREPARE_BACKUP);
    LetWritersLeave(&WriterComponent::backupStamp, &DocumentComponent::backupStamp);
    stage_ = Stage::prepared;
    return VSS_S_ASYNC_FINISHED;
  });
}

bool BackupSession::MayDoSnapshotSet() {
  if (!IsIdle()) return false;
  if (stage_ == Stage::prepared) return true;
  return stage_ == Stage::setStarted && IsWithoutWriters(context_) && service_.HasVolumes(id_);
}

DWORD BackupSession::SnapshotMilliseconds() const {
  const HostModel& model = machine_->model();
  const DWORD freeze = IsWithoutWriters(context_) ? 0 : std::min(model.freezeMilliseconds, kFreezeLimitMilliseconds);
  return freeze + std::min(model.commitMilliseconds, kHoldLimitMilliseconds);
}

// The window from Freeze to Thaw holds the writers' own freezing and the commit, which is cut off at its limit.
void BackupSession::FreezeWriters() {
  const HostModel& model = machine_->model();
  const ULONGLONG before = hungMilliseconds_;
  RaiseAtParticipants(WriterEvent::freeze, VSS_WS_WAITING_FOR_THAW, VSS_WS_FAILED_AT_FREEZE);
  const ULONGLONG hung = hungMilliseconds_ - before;
  FailFrozenWriters(std::max<ULONGLONG>(model.freezeMilliseconds, hung) +
                    std::min(model.commitMilliseconds, kHoldLimitMilliseconds));
  // The others freeze meanwhile, which SnapshotMilliseconds counts.
  hungMilliseconds_ = before + hung - std::min<ULONGLONG>(hung, model.freezeMilliseconds);
}

void BackupSession::FailFrozenWriters(ULONGLONG milliseconds) {
  const ULONGLONG frozen = service_.raisedLater;
  for (GatheredWriter& writer : writers_.writers()) {
    if (!writer.takesPart || writer.status.HasFailed()) continue;
    if (milliseconds <= writer.data->timeoutMilliseconds) continue;
    service_.raisedLater = frozen + writer.data->timeoutMilliseconds;
    writers_.FailFrozen(writer);
    writers_.Abort(writer);
  }
}

void BackupSession::EndSnapshot() {
  service_.AbandonSet(id_);
  writers_.Abort();
  stage_ = Stage::ended;
}

void BackupSession::SaveTransportableCopies() {
  for (const ShadowCopy* copy : service_.CopiesOfSet(setId_)) {
    if (!copy->surfaced) document_->content.transportableCopies.push_back(*copy);
  }
}

HRESULT BackupSession::TakeSnapshots(const std::optional<HRESULT>& forced) {
  setVolumes_ = service_.VolumesOfOpenSet(id_);
  RaiseAtParticipants(WriterEvent::prepareSnapshot, VSS_WS_WAITING_FOR_FREEZE, VSS_WS_FAILED_AT_PREPARE_SNAPSHOT);
  if (const HRESULT result = service_.AskProviders(id_, ProviderStep::endPrepare); FAILED(result)) {
    EndSnapshot();
    return result;
  }
  FreezeWriters();
  if (forced == VSS_S_ASYNC_PENDING) return *forced;
  if (!Prevents(forced) && service_.HasHangingProvider(id_)) return HangInCommit();
  HRESULT result = Prevents(forced) ? *forced : S_OK;
  if (result == S_OK && machine_->model().commitMilliseconds > kHoldLimitMilliseconds) {
    result = VSS_E_HOLD_WRITES_TIMEOUT;
  }
  if (result != S_OK) LogOperationFailure(*machine_, "DoSnapshotSet", result, setVolumes_);
  if (result == S_OK) result = service_.CommitSet(id_);
  windowMilliseconds_ = SnapshotMilliseconds();
  if (result != S_OK) {
    EndSnapshot();
    return result;
  }
  RaiseAtParticipants(WriterEvent::thaw, VSS_WS_WAITING_FOR_POST_SNAPSHOT, VSS_WS_FAILED_AT_THAW);
  RaiseAtParticipants(WriterEvent::postSnapshot, VSS_WS_WAITING_FOR_BACKUP_COMPLETE, VSS_WS_FAILED_AT_POST_SNAPSHOT);
  LetWritersLeave(&WriterComponent::backupMetadata, &DocumentComponent::backupMetadata);
  SaveTransportableCopies();
  stage_ = Stage::snapshotDone;
  return forced.value_or(VSS_S_ASYNC_FINISHED);
}

// The writers stay frozen until the caller gives up.
HRESULT BackupSession::HangInCommit() {
  snapshotOperation_->hangs = true;
  hungSince_ = machine_->now;
  return VSS_S_ASYNC_PENDING;
}

HRESULT BackupSession::DoSnapshotSet(IVssAsync** async) {
  if (async == nullptr) return E_INVALIDARG;
  if (!MayDoSnapshotSet()) return VSS_E_BAD_STATE;
  auto operation = std::make_shared<AsyncOperation>();
  if (const HRESULT begun = service_.BeginCommit(id_, operation); FAILED(begun)) return begun;
  stage_ = Stage::snapshotting;
  ++document_->phase;
  snapshotOperation_ = std::move(operation);
  const AsyncFault* fault = machine_->faults.OnAsync("DoSnapshotSet");
  if (fault != nullptr && fault->hangs) HangInCommit();
  before_.reset();
  hungMilliseconds_ = 0;
  snapshotOperation_->result = TakeSnapshots(ResultOf(fault));
  windowMilliseconds_ = 0;
  service_.raisedLater = 0;
  snapshotOperation_->endsAt = machine_->now + SnapshotMilliseconds() + hungMilliseconds_;
  HandOut(snapshotOperation_, async);
  return S_OK;
}

HRESULT BackupSession::CompleteBackup() {
  RaiseAtParticipants(WriterEvent::backupComplete, VSS_WS_STABLE, VSS_WS_FAILED_AT_BACKUP_COMPLETE);
  for (DocumentWriter& writer : document_->content.writers) {
    for (DocumentComponent& component : writer.components) component.succeeded = component.succeeded.value_or(false);
  }
  stage_ = Stage::complete;
  return VSS_S_ASYNC_FINISHED;
}

HRESULT BackupSession::BackupComplete(IVssAsync** async) {
  if (async == nullptr) return E_INVALIDARG;
  if (!IsIdle() || stage_ != Stage::snapshotDone || IsWithoutWriters(context_)) return VSS_E_BAD_STATE;
  ++document_->phase;
  return RunAsync("BackupComplete", async, [&] { return CompleteBackup(); });
}

HRESULT BackupSession::AbortBackup() {
  if (stage_ == Stage::created) return VSS_E_BAD_STATE;
  NoticeCancellation();
  if (const HRESULT abandoned = service_.AbandonSet(id_); FAILED(abandoned)) return abandoned;
  if (IsIn(Stage::setStarted, Stage::snapshotDone)) {
    pending_ = nullptr;
    EndSnapshot();
  }
  return S_OK;
}

HRESULT BackupSession::SetRestoreState(VSS_RESTORE_TYPE type) {
  if (!IsIdle() || restore_ != Restore::selecting) return VSS_E_BAD_STATE;
  if (type <= VSS_RTYPE_UNDEFINED || type > VSS_RTYPE_OTHER) return E_INVALIDARG;
  document_->content.restoreType = type;
  return S_OK;
}

HRESULT BackupSession::SetSelectedForRestore(const ComponentName& component, bool selected, const GUID& instanceId) {
  const bool named = instanceId != GUID{};
  if (named && writers_.Find(instanceId, component.writerId) == nullptr && restore_ == Restore::selecting) {
    return VSS_E_OBJECT_NOT_FOUND;
  }
  return ChangeForRestore(component, [&](DocumentComponent& chosen) {
    chosen.restore.selected = selected;
    chosen.restore.instanceId = named ? std::optional(instanceId) : std::nullopt;
  });
}

HRESULT BackupSession::PreRestore(IVssAsync** async) {
  if (async == nullptr) return E_INVALIDARG;
  if (!IsIdle() || restore_ != Restore::selecting || !gathered_) return VSS_E_BAD_STATE;
  restore_ = Restore::preparing;
  ++document_->phase;
  return RunAsync("PreRestore", async, [&] {
    RaiseAtRestorers(WriterEvent::preRestore, VSS_WS_FAILED_AT_PRE_RESTORE);
    restore_ = Restore::restoring;
    return VSS_S_ASYNC_FINISHED;
  });
}

HRESULT BackupSession::SetFileRestoreStatus(const ComponentName& component, VSS_FILE_RESTORE_STATUS status) {
  if (status <= VSS_RS_UNDEFINED || status > VSS_RS_FAILED) return E_INVALIDARG;
  return Change(component, restore_ == Restore::restoring,
                [&](DocumentComponent& restored) { restored.restore.fileStatus = status; });
}

HRESULT BackupSession::PostRestore(IVssAsync** async) {
  if (async == nullptr) return E_INVALIDARG;
  if (!IsIdle() || restore_ != Restore::restoring) return VSS_E_BAD_STATE;
  ++document_->phase;
  return RunAsync("PostRestore", async, [&] {
    RaiseAtRestorers(WriterEvent::postRestore, VSS_WS_FAILED_AT_POST_RESTORE);
    restore_ = Restore::complete;
    return VSS_S_ASYNC_FINISHED;
  });
}

HRESULT BackupSession::GatherWriterStatus(IVssAsync** async) {
  if (async == nullptr) return E_INVALIDARG;
  if (!IsIdle() || !gathered_) return VSS_E_BAD_STATE;
  reported_.reset();
  return RunAsync("GatherWriterStatus", async, [&] {
    reported_.emplace();
    for (const GatheredWriter& writer : writers_.writers()) reported_->push_back({writer.data, writer.status});
    return VSS_S_ASYNC_FINISHED;
  });
}

HRESULT BackupSession::GetWriterStatusCount(UINT* count) {
  if (count == nullptr) return E_INVALIDARG;
  if (!IsIdle() || !reported_) return VSS_E_BAD_STATE;
  *count = static_cast<UINT>(reported_->size());
  return S_OK;
}

HRESULT BackupSession::GetWriterStatus(UINT index, const ReportedWriter*& writer) {
  if (!IsIdle() || !reported_) return VSS_E_BAD_STATE;
  if (index >= reported_->size()) return VSS_E_OBJECT_NOT_FOUND;
  writer = &(*reported_)[index];
  return S_OK;
}

HRESULT BackupSession::FreeWriterStatus() {
  if (!IsIdle() || !reported_) return VSS_E_BAD_STATE;
  reported_.reset();
  return S_OK;
}

bool BackupSession::HasDocument() {
  return IsIdle() && IsIn(loaded_ ? Stage::initialized : Stage::prepared, Stage::complete);
}

HRESULT BackupSession::SaveAsXML(std::string& xml) {
  if (!HasDocument()) return VSS_E_BAD_STATE;
  xml = FormatBackupDocument(document_->content);
  return S_OK;
}

HRESULT BackupSession::GetWriterComponentsCount(UINT* count) {
  if (count == nullptr) return E_INVALIDARG;
  if (!HasDocument()) return VSS_E_BAD_STATE;
  *count = static_cast<UINT>(document_->content.writers.size());
  return S_OK;
}

HRESULT BackupSession::GetWriterComponents(UINT index, IVssWriterComponentsExt** writer) {
  if (writer == nullptr) return E_INVALIDARG;
  if (!HasDocument()) return VSS_E_BAD_STATE;
  if (index >= document_->content.writers.size()) return VSS_E_OBJECT_NOT_FOUND;
  *writer = MakeWriterComponents(machine_, document_, index);
  return S_OK;
}

HRESULT BackupSession::GetSnapshotProperties(const GUID& copyId, const ShadowCopy*& copy) {
  if (!IsIdle() || !IsBackupIn(Stage::initialized, Stage::complete)) return VSS_E_BAD_STATE;
  copy = service_.Find(copyId);
  return copy == nullptr ? VSS_E_OBJECT_NOT_FOUND : S_OK;
}

HRESULT BackupSession::QueryProviders() {
  NoticeCancellation();
  if (!IsBackupIn(Stage::initialized, Stage::complete)) return VSS_E_BAD_STATE;
  contextFixed_ = true;
  return S_OK;
}

HRESULT BackupSession::QuerySnapshots(std::vector<const ShadowCopy*>& copies) {
  if (const HRESULT result = QueryProviders(); FAILED(result)) return result;
  copies = service_.CopiesOfContext(context_);
  return S_OK;
}

HRESULT BackupSession::IsVolumeSupported(const GUID& provider, const wchar_t* volume, BOOL* supported) {
  if (volume == nullptr || supported == nullptr) return E_INVALIDARG;
  if (!IsBackupIn(Stage::initialized, Stage::complete)) return VSS_E_BAD_STATE;
  bool answer = false;
  const HRESULT result = service_.IsVolumeSupported(volume, provider, context_, answer);
  if (SUCCEEDED(result)) *supported = answer ? TRUE : FALSE;
  return result;
}

HRESULT BackupSession::DeleteSnapshots(const GUID& id, VSS_OBJECT_TYPE type, LONG& deleted, VSS_ID& notDeleted) {
  if (!IsIdle() || !IsBackupIn(Stage::initialized, Stage::complete)) return VSS_E_BAD_STATE;
  return service_.Delete(id, type, deleted, notDeleted);
}

HRESULT BackupSession::ExposeSnapshot(const GUID& copyId, LPCWSTR pathFromRoot, LONG where, LPCWSTR name,
                                      std::wstring& exposedName) {
  if (name == nullptr) return E_INVALIDARG;
  if (!IsIdle() || !IsBackupIn(Stage::initialized, Stage::complete)) return VSS_E_BAD_STATE;
  return service_.Expose(copyId, where, name, TextOf(pathFromRoot), exposedName);
}

HRESULT BackupSession::UnexposeSnapshot(const GUID& copyId) {
  if (!IsIdle() || !IsBackupIn(Stage::initialized, Stage::complete)) return VSS_E_BAD_STATE;
  return service_.Unexpose(copyId);
}

HRESULT BackupSession::BreakSnapshotSet(const GUID& setId) {
  if (!IsIdle() || !IsBackupIn(Stage::initialized, Stage::complete)) return VSS_E_BAD_STATE;
  return service_.Break(setId, 0);
}

HRESULT BackupSession::BreakSnapshotSetEx(const GUID& setId, DWORD flags, IVssAsync** async) {
  constexpr DWORD kRevertAll = VSS_BREAKEX_FLAG_REVERT_IDENTITY_ALL;
  constexpr DWORD kRevertNone = VSS_BREAKEX_FLAG_REVERT_IDENTITY_NONE;
  constexpr DWORD kKnown = VSS_BREAKEX_FLAG_MASK_LUNS | VSS_BREAKEX_FLAG_MAKE_READ_WRITE | kRevertAll | kRevertNone;
  if (async == nullptr || (flags & ~kKnown) != 0) return E_INVALIDARG;
  if ((flags & kRevertAll) != 0 && (flags & kRevertNone) != 0) return E_INVALIDARG;
  if (!IsIdle() || !IsBackupIn(Stage::initialized, Stage::complete)) return VSS_E_BAD_STATE;
  if (const HRESULT result = service_.CanBreak(setId); FAILED(result)) return result;
  return RunAsync("BreakSnapshotSetEx", async, [&] {
    const HRESULT result = service_.Break(setId, flags);
    return result == S_OK ? VSS_S_ASYNC_FINISHED : result;
  });
}

HRESULT BackupSession::ImportSnapshots(IVssAsync** async) {
  if (async == nullptr) return E_INVALIDARG;
  if (!IsIdle() || !loaded_ || !IsBackupIn(Stage::initialized, Stage::initialized)) return VSS_E_BAD_STATE;
  return RunAsync("ImportSnapshots", async,
                  [&] { return service_.Import(id_, document_->content.transportableCopies); });
}

}  // namespace varnel::simulator
