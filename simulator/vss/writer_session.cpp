#include "simulator/vss/writer_session.h"

#include <algorithm>
#include <utility>

#include "text/ascii_case.h"

#include "simulator/machine/service_events.h"
#include "simulator/vss/snapshot_service.h"

namespace varnel::simulator {
namespace {

// Stands between the parts of a key: no path or name contains it.
constexpr wchar_t kSeparator = L'\x1';

bool Contains(const std::vector<GUID>& ids, const GUID& id) {
  return std::find(ids.begin(), ids.end(), id) != ids.end();
}

// The service's own code where the writer does not come to one.
HRESULT FailureOf(const WriterFault& fault) {
  if (!fault.hangs) return fault.failure;
  return fault.event == WriterEvent::freeze ? VSS_E_WRITERERROR_TIMEOUT : VSS_E_WRITER_NOT_RESPONDING;
}

std::wstring FullPath(std::wstring_view logicalPath, std::wstring_view name) {
  std::wstring path(logicalPath);
  if (!path.empty()) path += L'\\';
  path += name;
  return path;
}

}  // namespace

std::wstring ComponentKey(std::wstring_view logicalPath, std::wstring_view name) {
  std::wstring key = ascii::ToLower(logicalPath);
  key += kSeparator;
  key += ascii::ToLower(name);
  return key;
}

std::wstring FullPathKey(std::wstring_view logicalPath, std::wstring_view name) {
  std::wstring path = ascii::ToLower(FullPath(logicalPath, name));
  path.erase(0, std::min(path.find_first_not_of(L'\\'), path.size()));
  return path;
}

std::wstring ComponentIndex::TypedKey(VSS_COMPONENT_TYPE type, std::wstring_view logicalPath, std::wstring_view name) {
  return ComponentKey(logicalPath, name) + kSeparator + std::to_wstring(static_cast<int>(type));
}

ComponentIndex::ComponentIndex(const Writer& writer) {
  components_.reserve(writer.components.size());
  for (const WriterComponent& component : writer.components) {
    const std::wstring path = component.logicalPath.value_or(L"");
    components_.emplace(TypedKey(component.type, path, component.name), &component);
    if (component.selectable) selectablePaths_.insert(ascii::ToLower(FullPath(path, component.name)));
  }
}

const WriterComponent* ComponentIndex::Find(VSS_COMPONENT_TYPE type, std::wstring_view logicalPath,
                                            std::wstring_view name) const {
  const auto found = components_.find(TypedKey(type, logicalPath, name));
  return found == components_.end() ? nullptr : found->second;
}

bool ComponentIndex::HasSelectableAncestor(std::wstring_view logicalPath) const {
  if (logicalPath.empty()) return false;
  const std::wstring path = ascii::ToLower(logicalPath);
  for (std::size_t end = path.find(L'\\'); end != std::wstring::npos; end = path.find(L'\\', end + 1)) {
    if (selectablePaths_.contains(path.substr(0, end))) return true;
  }
  return selectablePaths_.contains(path);
}

void WriterSession::EnableClasses(const std::vector<GUID>& classes) {
  if (!enabledClasses_) enabledClasses_.emplace();
  enabledClasses_->insert(enabledClasses_->end(), classes.begin(), classes.end());
}

void WriterSession::DisableClasses(const std::vector<GUID>& classes) {
  disabledClasses_.insert(disabledClasses_.end(), classes.begin(), classes.end());
}

void WriterSession::DisableInstances(const std::vector<GUID>& instances) {
  disabledInstances_.insert(disabledInstances_.end(), instances.begin(), instances.end());
}

bool WriterSession::IsAllowed(const Writer& writer) const {
  if (enabledClasses_ && !Contains(*enabledClasses_, writer.writerId)) return false;
  return !Contains(disabledClasses_, writer.writerId) && !Contains(disabledInstances_, writer.instanceId);
}

ULONGLONG WriterSession::Identify() {
  writers_.clear();
  ULONGLONG longest = 0;
  for (const Writer& writer : machine_.model().writers) {
    if (!IsAllowed(writer)) continue;
    const WriterFault* fault = machine_.faults.OnWriterEvent(writer.name, WriterEvent::identify);
    machine_.snapshots->NoteRaised(writer.name, WriterEvent::identify, fault == nullptr ? S_OK : FailureOf(*fault));
    if (fault != nullptr) {
      LogRejection(machine_, writer, WriterEvent::identify, FailureOf(*fault), fault);
      if (fault->hangs) longest = HangLimit(writer, WriterEvent::identify);
      continue;
    }
    // A copy, once per gathering: objects that were handed out outlive changes to the model.
    WriterStatus status;
    if (writer.lastFailure) status = {writer.lastFailure->state, writer.lastFailure->failure, S_OK, {}};
    writers_.push_back({std::make_shared<const Writer>(writer), std::move(status), false, nullptr});
  }
  return longest;
}

ULONGLONG WriterSession::HangLimit(const Writer& writer, WriterEvent event) const {
  return event == WriterEvent::freeze ? writer.timeoutMilliseconds : machine_.model().eventLimitMilliseconds;
}

GatheredWriter* WriterSession::Find(const GUID& instanceId, const GUID& writerId) {
  const auto found = std::find_if(writers_.begin(), writers_.end(), [&](const GatheredWriter& writer) {
    return writer.data->instanceId == instanceId && writer.data->writerId == writerId;
  });
  return found == writers_.end() ? nullptr : &*found;
}

const ComponentIndex& WriterSession::IndexOf(GatheredWriter& writer) const {
  if (writer.index == nullptr) writer.index = std::make_unique<const ComponentIndex>(*writer.data);
  return *writer.index;
}

const WriterFault* WriterSession::Raise(GatheredWriter& writer, WriterEvent event, VSS_WRITER_STATE reached,
                                        VSS_WRITER_STATE failed, const WriterFault* own) {
  if (writer.status.HasFailed()) return nullptr;
  const WriterFault* planned = machine_.faults.OnWriterEvent(writer.data->name, event);
  const WriterFault* fault = planned != nullptr ? planned : own;
  machine_.snapshots->NoteRaised(writer.data->name, event, fault == nullptr ? S_OK : FailureOf(*fault));
  if (fault == nullptr) {
    writer.status.state = reached;
    return nullptr;
  }
  Fail(writer, event, fault->state.value_or(failed), FailureOf(*fault), fault);
  writer.status.applicationResult = fault->applicationResult;
  if (!fault->applicationMessage.empty()) writer.status.applicationMessage = fault->applicationMessage;
  return fault;
}

void WriterSession::Fail(GatheredWriter& writer, WriterEvent event, VSS_WRITER_STATE failed, HRESULT failure,
                         const WriterFault* fault) {
  writer.status.state = failed;
  writer.status.failure = failure;
  LogRejection(machine_, *writer.data, event, failure, fault);
}

void WriterSession::FailFrozen(GatheredWriter& writer) {
  if (writer.status.HasFailed()) return;
  Fail(writer, WriterEvent::freeze, VSS_WS_FAILED_AT_FREEZE, VSS_E_WRITERERROR_TIMEOUT, nullptr);
}

void WriterSession::Abort() {
  for (GatheredWriter& writer : writers_) {
    if (writer.takesPart) Abort(writer);
  }
}

void WriterSession::Abort(GatheredWriter& writer) const {
  machine_.snapshots->NoteRaised(writer.data->name, std::nullopt);
  if (!writer.status.HasFailed()) writer.status.state = VSS_WS_STABLE;
}

void WriterSession::Shutdown() {
  for (GatheredWriter& writer : writers_) {
    if (writer.takesPart) Raise(writer, WriterEvent::backupShutdown, VSS_WS_STABLE, VSS_WS_FAILED_AT_BACKUPSHUTDOWN);
  }
}

}  // namespace varnel::simulator
